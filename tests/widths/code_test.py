#!/usr/bin/env python3
"""What the code of the library for x86-64-v3 must not have.

code_test.py --library LIBRARY --narrow OBJECTS... --wide OBJECTS...
"""
import argparse
import collections
import re
import subprocess
import sys
import unittest

options = argparse.Namespace()


def lines(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()


class Code(unittest.TestCase):
    def test_no_product_is_fused_with_a_sum(self):
        """Compilers form such instructions where they may, and round once where the other build rounds twice."""
        fused = collections.Counter()
        function, wide = "", 0
        for line in lines("objdump", "-d", "--no-show-raw-insn", options.library):
            if line.endswith(">:"):
                function = line.split("<")[1][:-2]
            elif re.search(r"\tvfn?m(add|sub)", line):
                fused[function] += 1
            elif "%ymm" in line:
                wide += 1
        self.assertEqual(dict(fused), {})
        self.assertGreater(wide, 1000, "hardly an instruction uses vectors of 32 bytes")

    def test_no_function_of_one_width_can_stand_for_one_of_the_other(self):
        """What both kinds of objects define under one name is the same code: the linker keeps but one of them."""
        def shared(objects):
            found = collections.defaultdict(list)
            for path in objects:
                for line in lines("nm", "-S", path):
                    fields = line.split()
                    if len(fields) == 4 and fields[2] in "WVu":
                        found[fields[3]].append((path, int(fields[1], 16)))
            return found

        def code(path, symbol):
            text = lines("objdump", "-d", "--no-show-raw-insn", "-j", f".text.{symbol}", path)
            return [re.sub(r"\s*#.*|<.*>", "", line) for line in text if "\t" in line]

        narrow, wide = shared(options.narrow), shared(options.wide)
        different = []
        for symbol in sorted(narrow.keys() & wide.keys()):
            (path, size), (other, other_size) = narrow[symbol][0], wide[symbol][0]
            if size != other_size or code(path, symbol) != code(other, symbol):
                different.append(f"{symbol} in {path} and {other}")
        self.assertEqual(different, [])


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--library", required=True)
    parser.add_argument("--narrow", nargs="*", default=[])
    parser.add_argument("--wide", nargs="*", default=[])
    options, rest = parser.parse_known_args()
    unittest.main(argv=sys.argv[:1] + rest)
