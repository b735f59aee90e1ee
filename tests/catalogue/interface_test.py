#!/usr/bin/env python3
"""The library can take the place of the last released one: nothing that a program uses has gone or changed.

interface_test.py --library LIBRARY [--cc COMPILER] [--flags=-m32] [UNITTEST ARGUMENTS]
"""
import argparse
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))
sys.dont_write_bytecode = True
import interface  # noqa: E402

options = argparse.Namespace(library=None, cc="cc", flags="")


def released():
    """The last version's interface, by number."""
    files = (ROOT / "api/released").glob("*.txt")
    return max(files, key=lambda path: [int(n) for n in path.stem.split(".")])


def output(*command, **more):
    return subprocess.run(command, check=True, capture_output=True, text=True, **more).stdout


class Released(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.old, cls.new = interface.read(released().read_text()), interface.current()

    def test_nothing_is_gone_or_changed(self):
        self.assertEqual(self.old.version, released().stem)
        self.assertGreater(len(self.old.functions), 3000)
        self.assertEqual(list(self.new.breaks(self.old)), [])

    def test_the_text_tells_all(self):
        again = interface.read(self.new.text())
        self.assertEqual((again.version, again.types, again.functions),
                         (self.new.version, self.new.types, self.new.functions))

    def test_breaks_are_found(self):
        def spoilt(old, new):
            text = self.new.text()
            self.assertIn(old, text)
            return list(interface.read(text.replace(old, new, 1)).breaks(self.new))
        self.assertEqual(spoilt(" zoriFree\n", ""), ["zoriFree is gone"])
        self.assertEqual(spoilt("ZorErrSize = -6", "ZorErrSize = -7"), ["enum ZorStatus.ZorErrSize: -6  became  -7"])
        self.assertEqual(spoilt("ZorImgSize = int width, height", "ZorImgSize = int height, width"),
                         ["struct ZorImgSize: int width, height;  became  int height, width;"])
        self.assertEqual(spoilt("typedef Zor64f = double", "typedef Zor64f = float"),
                         ["typedef Zor64f: double  became  float"])
        self.assertEqual(spoilt("void(void* pointer)", "int(void* pointer)"),
                         ["zoriFree: void(void* pointer)  became  int(void* pointer)"])
        more = interface.read(self.new.text().replace(" zoriFree\n", " zoriFree zoriFreeMore\n"))
        self.assertEqual(list(more.breaks(self.new)), [])  # additions are welcome
        self.assertEqual(list(self.new.breaks(more)), ["zoriFreeMore is gone"])

    def test_the_library_has_the_names_and_the_soname(self):
        exported = {line.split()[-1] for line in output("nm", "-D", "--defined-only", options.library).splitlines()}
        self.assertEqual(sorted(set(self.old.functions) - exported), [])
        self.assertRegex(output("readelf", "-dW", options.library),
                         rf"SONAME[^[]*\[libzoriq7-5\.3\.so\.{self.old.version.split('.')[0]}\]")


@unittest.skipUnless(shutil.which("abidiff"), "abidiff is not installed")
class Types(unittest.TestCase):
    """Down to their bits: stubs of the old functions, compiled with the released and with today's headers."""

    def difference(self, folder, older, newer, described):
        """What abidiff tells of two headers, each a name and the text that has the types."""
        bodies = [p + (" {}" if p.startswith("void ") else " { return 0; }") for p in described.prototypes()]
        for name, types in (older, newer):
            (folder / f"{name}.c").write_text("\n".join([types, *bodies, ""]))
            subprocess.run([options.cc, *options.flags.split(), "-w", "-g", "-O0", "-fPIC", "-shared", "-I",
                            ROOT / "include", "-Wl,-soname,libzoriq7-5.3.so.5", folder / f"{name}.c", "-o",
                            folder / f"{name}.so"], check=True)
        done = subprocess.run(["abidiff", "--no-added-syms", folder / f"{older[0]}.so", folder / f"{newer[0]}.so"],
                              capture_output=True, text=True)
        return done.returncode, done.stdout + done.stderr

    def test_abidiff_agrees(self):
        old = interface.read(released().read_text())
        header = old.header()
        rectangles = {name: text for name, text in old.functions.items() if "ZorImgRect" in text}
        few = interface.Interface(old.version, old.types, rectangles)
        with tempfile.TemporaryDirectory() as folder:
            folder = pathlib.Path(folder)
            # the compiler holds the stubs against today's prototypes, too
            self.assertEqual(self.difference(folder, ("old", header), ("new", "#include <zori.h>"), old), (0, ""))
            spoilt = header.replace("int x, y, width, height;", "int x, y, width; short height;")
            returncode, text = self.difference(folder, ("few", header), ("spoilt", spoilt), few)
            self.assertNotEqual(returncode, 0)
            self.assertIn("ZorImgRect", text)


class Version(unittest.TestCase):

    def test_told_alike_everywhere(self):
        version = interface.version()
        header = (ROOT / "include/zori/version.h").read_text()
        parts = re.findall(r"#define ZORI_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", header)
        self.assertEqual(".".join(parts), version)
        changes = (ROOT / "CHANGELOG.md").read_text()
        numbers = re.findall(r"^## (\d+\.\d+\.\d+) - \d{4}-\d\d-\d\d$", changes, re.M)
        self.assertEqual(numbers[0], version)
        self.assertEqual(sorted(numbers, key=lambda n: [int(i) for i in n.split(".")], reverse=True), numbers)
        self.assertEqual({path.stem for path in (ROOT / "api/released").glob("*.txt")} - set(numbers), set())


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--library")
    parser.add_argument("--cc", default="cc")
    parser.add_argument("--flags", default="")
    options, rest = parser.parse_known_args()
    unittest.main(argv=sys.argv[:1] + rest)
