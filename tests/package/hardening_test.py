#!/usr/bin/env python3
"""What protects a program that loads the library, and what its files must not tell.

hardening_test.py --libraries LIBRARY... --archive ARCHIVE --source FOLDER --build FOLDER
"""
import argparse
import json
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

options = argparse.Namespace()
SAMPLE = "src/filter/median_color.cpp"  # arrays on the stack, indirect calls, anonymous namespaces


def readelf(*arguments):
    return subprocess.run(["readelf", "-W", *arguments], check=True, capture_output=True, text=True).stdout


class Hardening(unittest.TestCase):
    def each_library(self):
        for library in options.libraries:
            with self.subTest(library=library):
                yield library

    def test_what_is_bound_is_read_only(self):
        for library in self.each_library():
            self.assertRegex(readelf("-l", library), r"GNU_RELRO")
            dynamic = readelf("-d", library)
            self.assertRegex(dynamic, r"BIND_NOW|FLAGS_1.*NOW")
            self.assertNotRegex(dynamic, r"TEXTREL")
            self.assertNotRegex(dynamic, r"RPATH|RUNPATH")

    def test_nothing_is_both_written_and_executed(self):
        for library in self.each_library():
            rows = [line.split() for line in readelf("-l", library).splitlines() if re.match(r"  [A-Z_]+ +0x", line)]
            flags = {row[0]: "".join(row[6:-1]) for row in rows}
            self.assertIn("GNU_STACK", flags)
            for row in rows:
                self.assertFalse({"W", "E"} <= set("".join(row[6:-1])), row)
            self.assertNotIn("E", flags["GNU_STACK"])

    def test_arrays_on_the_stack_have_canaries(self):
        for library in self.each_library():
            self.assertRegex(readelf("--dyn-syms", library), r"UND __stack_chk_fail")

    def test_shadow_stacks_are_kept(self):
        for library in self.each_library():
            self.assertRegex(readelf("-n", library), r"x86 feature:.*SHSTK")

    def test_every_object_keeps_to_control_flow_protection(self):
        notes = readelf("-n", options.archive)
        files = notes.count("\nFile: ")
        self.assertGreater(files, 100)
        self.assertEqual(len(re.findall(r"x86 feature: IBT, SHSTK", notes)), files)

    def test_every_exported_function_starts_with_a_mark_for_indirect_calls(self):
        for library in self.each_library():
            sections = []  # address, offset, size
            for line in readelf("-S", library).splitlines():
                match = re.match(r"\s*\[ *\d+\] \S+ +PROGBITS +(\w+) (\w+) (\w+)", line)
                if match:
                    sections.append([int(number, 16) for number in match.groups()])
            with open(library, "rb") as file:
                content = file.read()
            functions, unmarked = 0, []
            for line in readelf("--dyn-syms", library).splitlines():
                match = re.match(r"\s*\d+: (\w+) +\d+ FUNC +GLOBAL +DEFAULT +\d+ (zor\w+)", line)
                if not match:
                    continue
                functions += 1
                address = int(match[1], 16)
                at = next(offset + address - start for start, offset, size in sections if start <= address < start + size)
                if content[at:at + 3] != b"\xf3\x0f\x1e":  # endbr64, endbr32
                    unmarked.append(match[2])
            self.assertGreater(functions, 10)
            self.assertEqual(unmarked, [])


class Places(unittest.TestCase):
    """Two builds of the same sources give the same bytes, wherever they were built."""

    def test_the_libraries_do_not_know_where_they_were_built(self):
        for library in options.libraries:
            with open(library, "rb") as file:
                content = file.read()
            for folder in (options.source, options.build):
                self.assertNotIn(os.path.realpath(folder).encode() + b"/", content, library)

    def test_an_object_is_the_same_from_another_folder(self):
        with open(os.path.join(options.build, "compile_commands.json")) as file:
            command = next(c for c in json.load(file) if c["file"].endswith(SAMPLE))
        words = shlex.split(command["command"])
        while not re.search(r"(g\+\+|clang\+\+|c\+\+)[-.0-9]*$", words[0]):
            words = words[1:]  # a compiler cache
        source, build = os.path.realpath(options.source), os.path.realpath(options.build)
        objects = []
        with tempfile.TemporaryDirectory() as scratch:
            for name in "one", "another/place":
                folder = os.path.join(scratch, name)
                for part in "include", "src":
                    shutil.copytree(os.path.join(source, part), os.path.join(folder, part))
                os.makedirs(os.path.join(folder, "build"))
                moved = [word.replace(build, folder + "/build").replace(source, folder) for word in words]
                at = moved.index("-o") + 1
                moved[at] = os.path.join(folder, "build", "object.o")
                subprocess.run([*moved, "-g"], check=True, cwd=os.path.join(folder, "build"))
                with open(moved[at], "rb") as file:
                    objects.append(file.read())
        self.assertEqual(*objects)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--libraries", nargs="+", required=True)
    parser.add_argument("--archive", required=True)
    parser.add_argument("--source", required=True)
    parser.add_argument("--build", required=True)
    options, rest = parser.parse_known_args()
    unittest.main(argv=sys.argv[:1] + rest)
