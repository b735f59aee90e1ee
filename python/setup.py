"""Builds the binding where scripts/wheel.sh has put this file: beside the sources of the library, the generated ones too.

The library is built with CMake, or taken from the folder that ZORI_LIBRARY names. The wheel holds the extension (stable
ABI), the library with its copy for 32-byte vectors, and the type stubs.
"""
import os
import pathlib
import re
import shutil
import subprocess

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = pathlib.Path(__file__).resolve().parent
VERSION = re.search(r'define ZORI_VERSION "([\d.]+)"', (ROOT / "include/zori/version.h").read_text())[1]
SONAME = "libzoriq7-5.3.so.5"


def library(work):
    """The folder with the built library."""
    if os.environ.get("ZORI_LIBRARY"):
        return pathlib.Path(os.environ["ZORI_LIBRARY"])
    options = ["-DCMAKE_BUILD_TYPE=Release"] + ["-GNinja"] * bool(shutil.which("ninja"))
    options += [f"-DZORI_BUILD_{part}=OFF" for part in ("TESTS", "EXAMPLES", "CHECK", "PYTHON")]
    subprocess.check_call(["cmake", "-S", ROOT, "-B", work, *options], stdout=subprocess.DEVNULL)
    wide = re.search(r"^ZORI_WIDE:.*=ON$", (work / "CMakeCache.txt").read_text(), re.M)
    subprocess.check_call(["cmake", "--build", work, "--parallel", str(os.cpu_count()), "--target", "zori"]
                          + ["zori_wide"] * bool(wide))
    return work / "src"


class Build(build_ext):

    def run(self):
        work = pathlib.Path(self.build_temp).absolute()
        found = library(work / "library")
        target = pathlib.Path(self.build_lib)
        for path in [found / SONAME, *found.glob(f"glibc-hwcaps/*/{SONAME}")]:
            copy = target / "zori.libs" / path.relative_to(found)
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(path, copy)
        (target / "zori-stubs").mkdir(parents=True, exist_ok=True)
        shutil.copyfile(ROOT / "python/zori.pyi", target / "zori-stubs/__init__.pyi")
        for extension in self.extensions:
            extension.include_dirs = [str(ROOT / "include")]
            extension.extra_link_args += [str(target.absolute() / "zori.libs" / SONAME), "-Wl,-rpath,$ORIGIN/zori.libs"]
        super().run()


setup(
    version=VERSION,
    packages=[],
    py_modules=[],
    ext_modules=[Extension("zori", [str(p.relative_to(ROOT)) for p in sorted((ROOT / "python").glob("*.c"))],
                           depends=["python/binding.h", "python/table.h", "python/zori_table.h"], py_limited_api=True, libraries=["m"],
                           extra_compile_args="-std=gnu99 -g0 -fno-plt -fvisibility=hidden -fopenmp".split(),
                           extra_link_args=["-fopenmp"])],
    cmdclass={"build_ext": Build},
    options={"bdist_wheel": {"py_limited_api": "cp311"}},
)
