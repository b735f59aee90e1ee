#!/usr/bin/env python3
"""The build says that CMake 3.16 suffices: no file of it uses what came later.

Tests and packages are left out where they may ask for more: Debian packages want 3.20, presets 3.25.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
LATER = {  # what: the version that brought it
    r"cmake_language *\(": "3.18", r"cmake_path *\(": "3.20", r"\bblock *\(": "3.25", r"return *\( *PROPAGATE": "3.25",
    r"file *\( *(CONFIGURE|ARCHIVE_\w+|CHMOD\w*|REAL_PATH|COPY_FILE)\b": "3.18", r"string *\( *(JSON|HEX)\b": "3.18",
    r"foreach *\([^)]*ZIP_LISTS": "3.17", r"\bPATH_EQUAL\b": "3.24", r"find_(program|library|path|file) *\([^)]*REQUIRED": "3.18",
    r"COMMAND_ERROR_IS_FATAL": "3.19", r"DISCOVERY_MODE": "3.18", r"CMAKE_CURRENT_FUNCTION_\w+": "3.17",
    r"PROJECT_IS_TOP_LEVEL": "3.21", r"FILE_SET": "3.23", r"(TARGET_)?DIRECTORY \w+ PROPERTIES": "3.18",
    r"\$<(TARGET_RUNTIME_DLLS|PATH|LINK_LIBRARY|LINK_GROUP|DEVICE_LINK|HOST_LINK|BUILD_LOCAL_INTERFACE)": "3.18",
    r"\$<CONFIG:[^>]*,": "3.19", r"install *\( *(IMPORTED_RUNTIME_ARTIFACTS|RUNTIME_DEPENDENCY_SET)": "3.21",
    r"EXCLUDE_FROM_ALL +(OFF|ON)": "3.28"}


def later(text):
    """(line, version) of everything that 3.16 does not know."""
    text = re.sub(r"#[^\n]*", "", text)
    for pattern, version in LATER.items():
        for match in re.finditer(pattern, text):
            yield text[:match.start()].count("\n") + 1, version


def main():
    assert list(later("set(a b) # JSON\ncmake_path(GET a STEM b)\n")) == [(2, "3.20")]
    assert list(later("find_program(A a REQUIRED)")) and not list(later("find_package(A REQUIRED)"))
    files = [p for p in ROOT.rglob("*") if (p.name == "CMakeLists.txt" or p.suffix == ".cmake")
             and p.relative_to(ROOT).parts[0] not in ("build", "out", ".git")]
    faults = [f"{p.relative_to(ROOT)}:{line}: since CMake {version}" for p in files for line, version in later(p.read_text())]
    if "cmake_minimum_required(VERSION 3.16..." not in (ROOT / "CMakeLists.txt").read_text():
        faults.append("CMakeLists.txt does not ask for 3.16")
    print("\n".join(faults + [f"{len(files)} files, {len(faults)} faults"]))
    return 1 if faults or len(files) < 15 else 0


if __name__ == "__main__":
    sys.exit(main())
