"""The functions of the checking twin: each hands its arguments over and goes on to the library's (check/)."""
from documentation import MARK, prototype


def wrappers(families, folder):
    """path -> text: a file a subsystem."""
    subsystems = {}
    for family in families:
        if family.built:
            subsystems.setdefault(family.subsystem, []).extend(family.functions)
    files = {}
    for name, functions in subsystems.items():
        lines = [f"// {MARK}{name}.txt.", '#include "checked_call.h"', ""]
        for f in functions:
            head = " ".join(line.strip() for line in prototype(f)).removesuffix(";")
            arguments = ", ".join(["entry", f"&{f.name}", *(p.name for p in f.parameters)])
            lines += [head, "{", f'  static const zoricheck::Entry entry("{f.name}");',
                      f"  return zoricheck::call({arguments});", "}"]
        files[folder / f"wrappers_{name}.cpp"] = "\n".join(lines + [""])
    return files
