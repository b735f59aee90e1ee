"""The source distribution and the wheel, installed without a network in fresh environments and used; the type stubs."""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAM = """
import numpy, pathlib, sys, zori
a = numpy.arange(12, dtype="u1").reshape(3, 4)
assert (zori.add(a, a) == 2 * a).all()
assert zori.filter_box(a, (3, 3), (1, 1), border="edge").shape == (3, 4)
maps = pathlib.Path("/proc/self/maps").read_text()
libraries = {line.split()[-1] for line in maps.splitlines() if "libzoriq7" in line}
assert libraries and all(path.startswith(sys.prefix) for path in libraries), libraries
print(zori.__file__)
"""
TYPED = """
import numpy
import zori

a = numpy.zeros((4, 4), "u1")
b = zori.add(a, a, scale=1)
zori.filter_box(a, (3, 3), (1, 1), border="edge")
zori.filter_box((a, 1, 1), (3, 3), (1, 1), roi=(2, 2))
mean: float = zori.mean(a)
margins: tuple[int, int, int, int] = zori.margins("filter_box", mask_size=(3, 3), anchor=(1, 1))
with zori.zoriFFTInitAlloc_C_32fc(4, 3, zori.ZorFftNoDiv, zori.ZorHintNone) as record:
    kind: str = record.kind
try:
    zori.zoriAdd_8u_C1RSfs(a, a, a)
except zori.Error as error:
    status: int = error.status
"""
WRONG = {'zori.add(a)': "call-overload|call-arg", 'zori.nothing(a)': "attr-defined",
         'zori.filter_box(a, 3, (1, 1))': "arg-type",
         'zori.filter_box(a, (3, 3), (1, 1), border="mirrored")': "arg-type"}


def run(*words, **environment):
    inherited = {k: v for k, v in os.environ.items() if k not in ("PYTHONPATH", "LD_LIBRARY_PATH")}
    done = subprocess.run([str(w) for w in words], cwd="/", env={**inherited, **environment}, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    return done.returncode, done.stdout


class Packages(unittest.TestCase):

    def test_packages(self):
        with tempfile.TemporaryDirectory() as folder:
            folder = pathlib.Path(folder)
            made, said = run("bash", ROOT / "scripts/wheel.sh", folder)
            self.assertEqual(made, 0, said)
            wheel, = folder.glob("zori-*-cp311-abi3-*.whl")
            source, = folder.glob("zori-*.tar.gz")
            for package in (wheel, source):
                with self.subTest(package.name):
                    python = folder / package.suffix[1:] / "bin/python"
                    made, said = run(sys.executable, "-m", "venv", "--system-site-packages", python.parents[1])
                    self.assertEqual(made, 0, said)
                    made, said = run(python, "-m", "pip", "install", "--no-index", "--no-build-isolation", package,
                                     PIP_DISABLE_PIP_VERSION_CHECK="1", PIP_CACHE_DIR=folder / "cache")
                    self.assertEqual(made, 0, said)
                    made, said = run(python, "-c", PROGRAM)
                    self.assertEqual(made, 0, said)
                    self.assertIn(str(python.parents[1]), said)
            with self.subTest("stubs"):
                self.check_stubs(folder, folder / "whl/bin/python")

    def check_stubs(self, folder, python):
        stubs, = (folder / "whl").glob("lib/python*/site-packages/zori-stubs/__init__.pyi")
        shutil.copy(stubs, folder / "zori.pyi")
        found, said = run("/usr/bin/mypy", "--strict", "--cache-dir", folder / "mypy", folder / "zori.pyi")
        self.assertEqual(found, 0, said)
        (folder / "zori.pyi").unlink()
        lines = TYPED.splitlines()
        (folder / "program.py").write_text("\n".join(lines + list(WRONG)))
        _, said = run("/usr/bin/mypy", "--strict", "--python-executable", python, "--cache-dir", folder / "mypy",
                      "--no-error-summary", folder / "program.py")
        faults = {}
        for line in said.splitlines():
            if ": error:" in line:
                faults[int(line.split(":")[1])] = line
        for number, line in enumerate(lines + list(WRONG), 1):
            if line in WRONG:
                self.assertIn(number, faults, f"not seen: {line}\n{said}")
                self.assertRegex(faults[number], WRONG[line])
            else:
                self.assertNotIn(number, faults, said)


if __name__ == "__main__":
    unittest.main()
