#!/usr/bin/env python3
"""Writes what follows from the catalogue (api/*.txt).

  generate.py headers                  include/zori/<subsystem>.h, include/zori.h and include/zori.hpp
  generate.py index                    docs/functions.md
  generate.py table FOLDER [SUBSYSTEM...]   the C++ function table for tests and benchmarks
  generate.py wrappers FOLDER          the functions of the checking twin
  generate.py calls FOLDER             a program that calls every overload of zori.hpp once
  generate.py check                    fails when committed headers or the index differ from the catalogue
  generate.py names [--built]          names, one per line
"""
import os
import pathlib
import sys

import catalogue
from catalogue import ROOT, CatalogueError
from cpp_header import calls, cpp_header
from documentation import MARK, headers, index
from table import table
from wrappers import wrappers


def write(files, folder, pattern):
    """Writes what changed (the others keep their time: no rebuild); generated files of no more use go."""
    for path, text in files.items():
        if not path.exists() or path.read_text() != text:
            path.parent.mkdir(parents=True, exist_ok=True)
            partial = path.with_name(f"{path.name}.{os.getpid()}")
            partial.write_text(text)
            partial.replace(path)
    for path in stale(files, folder, pattern):
        path.unlink()


def stale(files, folder, pattern):
    """Generated files of subsystems that have nothing built."""
    return [p for p in folder.glob(pattern) if p not in files and MARK in p.read_text()]


def check(families):
    files = headers(families) | cpp_header(families) | index(families)
    wrong = [p for p, text in files.items() if not p.exists() or p.read_text() != text]
    wrong += stale(files, ROOT / "include/zori", "*.h")
    for path in wrong:
        print(f"{path.relative_to(ROOT)} differs from the catalogue: run tools/generate.py headers index")
    return 1 if wrong else 0


def main(arguments):
    if not arguments:
        print(__doc__)
        return 2
    families = catalogue.load()
    while arguments:
        command = arguments.pop(0)
        if command == "headers":
            write(headers(families) | cpp_header(families), ROOT / "include/zori", "*.h")
        elif command == "index":
            write(index(families), ROOT / "docs", "functions.md")
        elif command == "table":
            folder = pathlib.Path(arguments[0])
            write(table(families, folder, arguments[1:]), folder, "functions*.cpp")
            return 0
        elif command == "wrappers":
            folder = pathlib.Path(arguments.pop(0))
            write(wrappers(families, folder), folder, "wrappers*.cpp")
        elif command == "calls":
            folder = pathlib.Path(arguments.pop(0))
            write(calls(families, folder), folder, "overloads*.cpp")
        elif command == "check":
            return check(families)
        elif command == "names":
            built_only = arguments == ["--built"]
            print("\n".join(f.name for family in families if family.built or not built_only
                            for f in family.functions))
            return 0
        else:
            print(__doc__)
            return 2
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except CatalogueError as fault:
        sys.exit(str(fault))
