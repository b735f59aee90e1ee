#!/usr/bin/env python3
"""What the library asks of others, what it shows, and how much of the archive a small program gets.

symbols_test.py LIBRARY... ARCHIVE --include FOLDER [--cc COMPILER] [--flags FLAGS] [UNITTEST ARGUMENTS]
"""
import argparse
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

# Memory, the C library's functions, the OpenMP runtime, what compilers and linkers add by themselves. Nothing that
# prints, ends the program, throws, or waits for a lock of its own.
MAY_ASK = re.compile(r"""malloc|free|mem(cpy|move|set|cmp)|(__|pthread_)(register_)?atfork
    |(sin|cos|sincos|atan2|exp2?|log|pow|ldexp|fmin|fmax|floor|ceil|rint|l?lrint|sqrt)f?l?
    |GOMP_\w+|omp_\w+|__kmpc_\w+|__[a-z]+[sdtx][ifc][234]|___?tls_get_addr
    |__stack_chk_fail(_local)?|_ITM_\w+|__gmon_start__|__cxa_finalize|_GLOBAL_OFFSET_TABLE_""", re.X)

PROGRAM = """#include <zori.h>
int main(int argc, char** argv)
{
  Zor8u image[64] = {(Zor8u)argc};
  const ZorImgSize size = {8, 8};
  (void)argv;
  return zoriAddC_8u_C1IRSfs(3, image, 8, size, 0) != ZorOk || image[0] != argc + 3;
}
"""


def symbols(file):
    """(name, whether it is defined, binding, visibility) of every symbol that others may see or must bring."""
    table = "--dyn-syms" if file.suffix != ".a" else "-s"
    text = subprocess.run(["readelf", "-W", table, file], check=True, capture_output=True, text=True).stdout
    for line in text.splitlines():
        found = re.match(r" *\d+: [0-9a-f]+ +\S+ (\w+) +(GLOBAL|WEAK) +(\w+) +(?:\[.*\] +)?(\w+) (\S+)", line)
        if found:
            yield found[5].split("@")[0], found[4] != "UND", found[2], found[3]


class Symbols(unittest.TestCase):

    def test_nothing_is_asked_but_memory_mathematics_and_threads(self):
        for file in options.libraries:
            every = list(symbols(file))
            own = {name for name, defined, *_ in every if defined}
            asked = {name for name, defined, *_ in every if not defined} - own
            self.assertIn("malloc", asked, file)
            self.assertEqual([name for name in sorted(asked) if not MAY_ASK.fullmatch(name)], [], file)

    def test_nothing_is_shown_but_the_interface(self):
        """In the archive, too: its inner names cannot meet those of a program, or take their place."""
        for file in options.libraries:
            shown = [name for name, defined, _, visibility in symbols(file) if defined and visibility == "DEFAULT"]
            self.assertGreater(len(shown), 3000, file)
            self.assertEqual([name for name in shown if not name.startswith("zori")], [], file)

    def test_a_program_of_one_function_is_small(self):
        archive = options.libraries[-1]
        with tempfile.TemporaryDirectory() as folder:
            source, program = pathlib.Path(folder) / "one.c", pathlib.Path(folder) / "one"
            source.write_text(PROGRAM)
            subprocess.run([options.cc, *options.flags.split(), "-O2", "-I", options.include, source, archive, "-s",
                            "-Wl,--gc-sections", "-fopenmp", "-lm", "-o", program], check=True)
            subprocess.run([program], check=True)
            self.assertLess(program.stat().st_size, 100_000)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("libraries", nargs="+", type=pathlib.Path)
    parser.add_argument("--include", required=True)
    parser.add_argument("--cc", default="cc")
    parser.add_argument("--flags", default="")
    options = parser.parse_args()
    unittest.main(argv=sys.argv[:1])
