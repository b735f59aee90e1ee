#!/usr/bin/env python3
"""The binary interface as a text, to hold one version against another.

  interface.py write FILE    the interface of the headers as they are
  interface.py check FILE    fails where it breaks what FILE tells: additions are no breaks

The text has a line a type, a member, a number of an enum; then a line a signature, with the names of the functions that
have it below. Names of arguments belong to it: two ints that change places are a break that no linker sees.
api/released/ holds that of the last released version.
"""
import pathlib
import re
import sys
import textwrap

sys.dont_write_bytecode = True
import catalogue
from catalogue import ROOT
from documentation import prototype

TYPES = ROOT / "include/zori/types.h"


class Interface:
    def __init__(self, version, types, functions):
        self.version = version
        self.types = types          # "enum ZorStatus.ZorErrSize" -> "-6", "struct ZorImgSize" -> "int width, height;"...
        self.functions = functions  # name -> signature

    def text(self):
        names = {}
        for name, signature in self.functions.items():
            names.setdefault(signature, []).append(name)
        lines = [f"# Interface of version {self.version}, written by tools/interface.py."]
        lines += [f"{key} = {value}" for key, value in sorted(self.types.items())]
        for signature in sorted(names):
            lines.append(signature)
            lines += textwrap.wrap(" ".join(sorted(names[signature])), 120, initial_indent="  ", subsequent_indent="  ")
        return "\n".join(lines) + "\n"

    def breaks(self, older):
        """What a program that was built with the older one would trip over."""
        for new, old in ((self.types, older.types), (self.functions, older.functions)):
            for key, value in old.items():
                if key not in new:
                    yield f"{key} is gone"
                elif new[key] != value:
                    yield f"{key}: {value}  became  {new[key]}"

    def header(self):
        """The types as C, for a description that is no longer in the tree."""
        structs, enums, lines = [], {}, ["#include <stdint.h>"]
        for key, value in self.types.items():
            kind, name = key.split(" ", 1)
            if kind == "typedef":
                lines.append(f"typedef {value} {name};")
            elif kind == "struct":
                structs.append(f"typedef struct {{ {value} }} {name};" if value else f"typedef struct {name} {name};")
            elif kind == "enum":
                name, _, member = name.partition(".")
                enums.setdefault(name, []).append(f"{member} = {value}")
        lines += [f"typedef enum {{ {', '.join(members)} }} {name};" for name, members in enums.items()]
        return "\n".join(lines + structs) + "\n"

    def prototypes(self):
        return [signature.replace("(", f" {name}(", 1) for name, signature in sorted(self.functions.items())]


def read_types(source):
    """Types of the shared header."""
    text = re.sub(r"/\*.*?\*/", "", source, flags=re.S)
    found = {}
    for name, value in re.findall(r"^#define (ZORI_[A-Z_]+) +(\(.*\))$", text.replace(" \n", "\n"), re.M):
        found[f"define {name}"] = value
    text = " ".join(line for line in text.splitlines() if not line.startswith(("#", "  extern", "  }", "  _Pragma")))
    for declaration in re.findall(r"typedef [^;{]*(?:\{[^}]*\}[^;]*)?;", text):
        words = " ".join(declaration.split())
        enum = re.fullmatch(r"typedef enum \{ ?(.*?),? ?\} (\w+);", words)
        struct = re.fullmatch(r"typedef struct(?: \w+)? \{ ?(.*?) ?\} (\w+);", words)
        opaque = re.fullmatch(r"typedef struct (\w+) \1;", words)
        plain = re.fullmatch(r"typedef (.*) (\w+);", words)
        if enum:
            for member in enum[1].split(","):
                name, value = member.split("=")
                found[f"enum {enum[2]}.{name.strip()}"] = value.strip()
        elif struct or opaque:
            found[f"struct {(struct or (0, 0, opaque[1]))[2]}"] = struct[1] if struct else ""
        else:
            found[f"typedef {plain[2]}"] = plain[1]
    return found


def version():
    return re.search(r'#define ZORI_VERSION "(.*)"', (ROOT / "include/zori/version.h").read_text())[1]


def current(families=None):
    functions = {}
    for family in families or catalogue.load():
        for f in family.functions if family.built else []:
            words = " ".join(" ".join(prototype(f)).split()).replace("( ", "(").rstrip(";")
            functions[f.name] = re.sub(r" \w+\(", "(", words, count=1)
    return Interface(version(), read_types(TYPES.read_text()), functions)


def read(text):
    types, functions, signature = {}, {}, None
    head, *lines = text.splitlines()
    for line in lines:
        if line.startswith("  "):
            functions |= dict.fromkeys(line.split(), signature)
        elif " = " in line:
            key, value = line.split(" = ", 1)
            types[key] = value
        elif line.endswith(" ="):
            types[line[:-2]] = ""
        else:
            signature = line
    return Interface(re.search(r"version (\S+),", head)[1], types, functions)


def main(arguments):
    if len(arguments) != 2 or arguments[0] not in ("write", "check"):
        print(__doc__)
        return 2
    path = pathlib.Path(arguments[1])
    if arguments[0] == "write":
        path.write_text(re.sub(r" +$", "", current().text(), flags=re.M))
        return 0
    faults = list(current().breaks(read(path.read_text())))
    print("\n".join(faults), end="\n" if faults else "")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
