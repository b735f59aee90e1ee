"""The source distribution and the wheel, installed without a network in fresh environments and used; the type stubs.

ZORI_PACKAGES names the folder that the classes share; each test takes what those in front of it have made there:
Source.test_made, Wheel.test_made, Wheel.test_installed...
"""
import atexit
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


FOLDER = pathlib.Path(os.environ.get("ZORI_PACKAGES") or tempfile.mkdtemp())
if "ZORI_PACKAGES" not in os.environ:
    atexit.register(shutil.rmtree, FOLDER, ignore_errors=True)


class Packages(unittest.TestCase):

    def run_well(self, *words, **environment):
        status, said = run(*words, **environment)
        self.assertEqual(status, 0, said)
        return said

    def make(self, what):
        FOLDER.mkdir(parents=True, exist_ok=True)
        self.run_well("bash", ROOT / "scripts/wheel.sh", FOLDER, what)

    def pip(self, place, *words, **environment):
        """By the pip of the system where it has one, else by that of the environment in `place`."""
        has_pip = run(sys.executable, "-m", "pip", "--version")[0] == 0
        if not place.exists():
            self.run_well(sys.executable, "-m", "venv", "--system-site-packages", *["--without-pip"] * has_pip, place)
        python = place / "bin/python"
        pip = [sys.executable, "-m", "pip", "--python", python] if has_pip else [python, "-m", "pip"]
        self.run_well(*pip, *words, PIP_DISABLE_PIP_VERSION_CHECK="1", PIP_CACHE_DIR=FOLDER / "cache", **environment)

    def install(self, package, place):
        """In a fresh environment, with nothing else but what the system has."""
        shutil.rmtree(place, ignore_errors=True)
        self.pip(place, "install", "--no-index", "--no-compile", package)
        self.assertIn(str(place), self.run_well(place / "bin/python", "-c", PROGRAM))


class Source(Packages):

    def test_made(self):
        shutil.rmtree(FOLDER, ignore_errors=True)
        self.make("sdist")

    def test_then_built(self):
        package, = FOLDER.glob("zori-*.tar.gz")
        self.pip(FOLDER / "built/environment", "wheel", "--no-index", "--no-deps", "--no-build-isolation",
                 "-w", FOLDER / "built", package, CFLAGS="-O0")

    def test_then_installed(self):
        self.install(*(FOLDER / "built").glob("zori-*.whl"), FOLDER / "from-source")


class Wheel(Packages):

    def test_made(self):
        self.make("wheel")

    def test_then_installed(self):
        self.install(*FOLDER.glob("zori-*-cp311-abi3-*.whl"), FOLDER / "from-wheel")


class WheelStubs(Packages):

    def test_stubs(self):
        stubs, = (FOLDER / "from-wheel").glob("lib/python*/site-packages/zori-stubs/__init__.pyi")
        folder = FOLDER / "stubs"
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir()
        shutil.copy(stubs, folder / "zori.pyi")
        self.run_well("/usr/bin/mypy", "--strict", "--cache-dir", folder / "mypy", folder / "zori.pyi")
        (folder / "zori.pyi").unlink()
        python = FOLDER / "from-wheel/bin/python"
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
