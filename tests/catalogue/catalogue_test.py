#!/usr/bin/env python3
"""The catalogue, the public headers and the library tell the same functions.

catalogue_test.py [--library LIBRARY] [--subsystems NAME...] [--cc COMPILER] [--cxx COMPILER] [UNITTEST ARGUMENTS]
"""
import argparse
import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))
sys.dont_write_bytecode = True
import catalogue      # noqa: E402
import documentation  # noqa: E402
import facts          # noqa: E402
import generate       # noqa: E402

options = argparse.Namespace(library=None, subsystems=[], cc="cc", cxx="c++")


TAIL = "team no\nrounding nearest\ntext\n    What it does.\n"  # of a block that is complete


def load_text(text):
    with tempfile.TemporaryDirectory() as folder:
        (pathlib.Path(folder) / "some.txt").write_text(text)
        return catalogue.load(folder)


class Format(unittest.TestCase):
    """What a catalogue file says is what the reader understands."""

    def prototypes(self, text):
        return [" ".join(" ".join(documentation.prototype(f)).split()).replace("( ", "(")
                for family in load_text(text + TAIL) for f in family.functions]

    def test_names_and_arguments(self):
        self.assertEqual(self.prototypes("""
family   zoriMix_{8u16s,32fc}_{C1,AC4}{R,IR}Sfs
title    Mix
args     *IRSfs   value src srcDst roi scale
args     src1 src2:pTpl(8u) value dst roi mask scale mode=ZorRoundMode
""")[::3], [
            "ZorStatus zoriMix_8u16s_C1RSfs(const Zor8u* pSrc1, int src1Step, const Zor8u* pTpl, int tplStep, "
            "Zor16s value, Zor16s* pDst, int dstStep, ZorImgSize roiSize, const Zor8u* pMask, int maskStep, "
            "int scaleFactor, ZorRoundMode mode);",
            "ZorStatus zoriMix_8u16s_AC4IRSfs(const Zor16s value[3], const Zor8u* pSrc, int srcStep, Zor16s* pSrcDst, "
            "int srcDstStep, ZorImgSize roiSize, int scaleFactor);",
            "ZorStatus zoriMix_32fc_AC4RSfs(const Zor32fc* pSrc1, int src1Step, const Zor8u* pTpl, int tplStep, "
            "const Zor32fc value[3], Zor32fc* pDst, int dstStep, ZorImgSize roiSize, const Zor8u* pMask, int maskStep, "
            "int scaleFactor, ZorRoundMode mode);"])

    def test_planes_steps_and_free_types(self):
        self.assertEqual(self.prototypes("""
family   zoriWarp{,Back}_16u_P3R
title    Warp
args     src(S,,nostep) srcSize=ZorImgSize step:srcStep=int dst coeffs=const double[2][3] pLevels=const S* const[3]
         pMean=double[n] optional:record:pState=ZorMomentState*
sweep    no a made-up family
""")[1:], [
            "ZorStatus zoriWarpBack_16u_P3R(const Zor16u* const pSrc[3], ZorImgSize srcSize, int srcStep, "
            "Zor16u* const pDst[3], int dstStep, const double coeffs[2][3], const Zor16u* const pLevels[3], "
            "double pMean[3], ZorMomentState* pState);"])

    def test_checks(self):
        family, = load_text("""
family   zoriAdd_8u_P3R
title    Sum
args     src1 src2 dst roi size:tplSize=ZorImgSize order=const int[3]
checks   height null:src1,order null null:src1[] size:tplSize size step ZorErrMode:order={0,-1,2},roiSize=1x1
""" + TAIL)
        stages = family.functions[0].checks
        self.assertEqual([(s.status, s.names) for s in stages], [
            ("ZorErrSize", ["roiSize.height"]), ("ZorErrNullPtr", ["pSrc1", "order"]),
            ("ZorErrNullPtr", ["pSrc2", "pDst"]), ("ZorErrNullPtr", ["pSrc1[]"]),
            ("ZorErrSize", ["tplSize.width", "tplSize.height"]),
            ("ZorErrSize", ["roiSize.width"]), ("ZorErrStep", ["src1Step", "src2Step", "dstStep"]),
            ("ZorErrMode", ["order", "roiSize"])])
        self.assertEqual(stages[-1].faults, [[("order", ["0", "-1", "2"]), ("roiSize", ["1", "1"])]])

    def test_limits_formulas_and_what_follows_from_them(self):
        function, = load_text("""
family   zoriMean_16s_C3R
title    Mean
args     src@anchor.x,0,(maskSize.width-anchor.x)/2,0 dst roi param:maskSize=ZorImgSize anchor=ZorImgPoint
         mode=ZorCmpOp in:pLevels=const int*@2*nLevels-1 nLevels=int
checks   ZorErrAnchor:anchor.x>maskSize.width-1 ZorErrMode:mode!=ZorCmpLess|ZorCmpGreater
         ZorErrStep:srcStep<(roiSize.width+maskSize.width-1)*src.pixel
example  maskSize=8x3 anchor={2,1} mode=4 nLevels=4 pLevels=5
range    anchor.x=0..maskSize.width-1 mode=0|4
""" + TAIL)[0].functions
        context = facts.Context(function, {})
        source, levels = (function.parameter(name).memory.extent for name in ("src", "pLevels"))
        self.assertEqual([context.number(f) for f in (source.left, source.right, levels.width)], [2, 3, 7])
        self.assertEqual(source.right.code(), "quotient((c.values[5].numbers[0] - c.values[6].numbers[0]), 2)")
        limits = [(limit.argument.name, limit.part, limit.relation, limit.legal) for limit, _ in function.limits]
        self.assertEqual(limits, [("anchor", 0, ">", []), ("mode", -1, "!=", [0, 4]), ("srcStep", -1, "<", [])])
        bad = [[value for fault in stage.faults for _, value in fault] for stage in function.checks]
        self.assertEqual(bad, [[["2147483647", "1"]], [["5"], ["-1"], ["1"]], [["1"]]])
        self.assertEqual(context.number(function.ranges["anchor"][0].high), 7)

    def test_functions_that_go_with_others(self):
        families = load_text("""
family   zoriMakeInit_{C1,C3}
title    Make
args     record:pState=ZorMomentState* width=int
example  width=9
record   zoriMakeInit_* zoriMakeInit_*
bytes    pState=zoriMakeGetSize aligned=8
""" + TAIL + """
family   zoriMakeGetSize
title    Size
args     width=int out:pSize=int*
""" + TAIL + """
family   zoriUse_8u_{C1,C3}R
title    Use
args     src@(pState.width)x3 dst@1x1 record:pState=const ZorMomentState* buffer:pBuffer=Zor8u*
record   zoriUse_8u_*R zoriMakeInit_*(width=src.channels)
bytes    pBuffer=zoriMakeGetSize(width=2*src.pixel)
""" + TAIL)
        use = families[2].functions[1]
        self.assertEqual(use.makers[0].function, "zoriMakeInit_C3")
        self.assertEqual([(a, part, f.evaluate(None)) for a, part, f in use.makers[0].passing], [(1, 0, 3)])
        size = use.parameter("pBuffer").size
        self.assertEqual((size.function, size.output, size.passing[0][2].evaluate(None)), ("zoriMakeGetSize", 1, 6))
        self.assertEqual(use.parameter("src").memory.extent.width.tree, ("maker", 1, 0))
        self.assertEqual(families[0].functions[0].parameter("pState").alignment, 8)
        self.assertEqual(use.one_channel_form, "zoriUse_8u_C1R")


class Mistakes(unittest.TestCase):
    """Every line of a catalogue file serves a function and says what can be: the others are refused, by their line."""

    def refuse(self, lines, line, words, head="family   zoriAbs_{16s,32f}_{C1R,C1IR}\ntitle    Abs\n", tail=TAIL):
        with self.assertRaises(catalogue.CatalogueError) as caught:
            load_text(head + lines + tail)
        self.assertIn(words, str(caught.exception))
        self.assertIn(f"some.txt:{line}:", str(caught.exception))

    args = "args *IR srcDst roi mode=int\nargs src dst roi mode=int pOut=int*\n"  # lines 3 and 4

    def refuse_line(self, text, words):
        """A line behind complete arguments."""
        self.refuse(self.args + text + "\n", 5, words)

    def test_blocks(self):
        self.refuse("args src dst roi\nchekcs null\n", 4, "unknown key 'chekcs'")
        self.refuse(self.args + "title    Other\n", 5, "a second 'title'")
        self.refuse(self.args, 1, "family without 'text'", tail="team no\nrounding nearest\n")
        self.refuse(self.args, 7, "family without 'text'", tail="team no\nrounding nearest\ntext\n")
        self.refuse(self.args, 2, "without full stop", head="family   zoriAbs_{16s,32f}_{C1R,C1IR}\ntitle    Abs.\n")
        self.refuse("", 1, "family without 'args'")
        self.refuse("args src dst roi\n", 1, "'zorAbs_8u_C1R' is not a name", head="family zorAbs_8u_C1R\ntitle A\n")
        self.refuse("args src dst roi\n" + TAIL + "\nfamily zoriAbs_16s_C1R\ntitle Abs\nargs src dst roi\n", 9,
                    "zoriAbs_16s_C1R stands in the catalogue twice")
        self.refuse(self.args, 1, "'team' must be", tail="rounding nearest\ntext\n    What it does.\n")
        self.refuse(self.args, 6, "'rounding' must be", tail=TAIL.replace("nearest", "upward"))
        self.refuse(self.args, 5, "contract and a reason", tail=TAIL.replace("team no", "team contract"))
        self.refuse(self.args + "built yes\n", 1, "how far its results are from exact ones")

    def test_arguments(self):
        self.refuse("args src dts roi\n", 3, "unknown argument 'dts'")
        self.refuse("args *IR srcDst roi\n", 3, "no 'args' line serves zoriAbs_16s_C1R")
        self.refuse("args src dst roi\nargs *IR srcDst roi\n", 4, "serves no function")
        self.refuse("args src dst roi mode=ZorFoo\n", 3, "no type 'ZorFoo' is declared")
        self.refuse("args src dst roi mode=int mode=int\n", 3, "two arguments of one name")
        self.refuse("args src(9u) dst roi\n", 3, "no known type and layout")
        self.refuse("args src@size dst roi\n", 3, "formula 'size' names no number 'size'")
        self.refuse("args src@mode-2,0,0,0 dst roi mode=int\n", 3, "'mode-2' is -1 for the example")
        self.refuse("args src dst mode=int\n", 3, "has no region that pSrc could cover")
        self.refuse("args src dst roi record:pState=ZorMomentState*\n", 1, "no 'record' line tells who makes it")
        self.refuse("args src dst roi buffer:pBuffer=Zor8u*\n", 1, "no 'bytes' line tells the size of pBuffer")

    def test_checks(self):
        self.refuse_line("checks *_64f_* null", "serves no function")
        self.refuse_line("checks null ZorErrFoo:mode=3", "unknown check 'ZorErrFoo:mode=3'")
        self.refuse_line("checks null size null", "has nothing left for the check 'null'")
        self.refuse_line("checks null:pOther", "has no argument 'pOther' for 'null'")
        self.refuse_line("checks ZorErrMode:mode=", "'' is not a value")
        self.refuse_line("checks ZorErrMode:mode=3 ZorErrMode:mode=3", "stands there twice")
        self.refuse_line("checks ZorErrMode:mode!=2|3\nexample mode=1", "breaks its own check 'mode!=2|3'")
        self.refuse_line("checks ZorErrMode:mode=1\nexample mode=1", "is that of the example")
        self.refuse_line("checks ZorErrMode:roi.depth<1", "is not in list")

    def test_values(self):
        self.refuse_line("example scale=3", "'scale=3' serves no function")
        self.refuse_line("example mode={1,2}", "mode holds 1 numbers")
        self.refuse_line("example mode=3\nexample mode=4", "'mode=3' serves no function")
        self.refuse_line("example mode=ZorFoo", "'ZorFoo' is not a value")
        self.refuse_line("example *_8u_* mode=3", "serves no function")
        self.refuse_line("range mode=3..1", "holds no number")
        self.refuse_line("range srcStep=1..3", "no range for step arguments")
        self.refuse(self.args + "checks ZorErrMode:mode>4\nrange mode=0..9\n", 6, "gives ZorErrMode (mode>4)")

    def test_facts(self):
        self.refuse_line("status ZorWarnFoo", "unknown status 'ZorWarnFoo'")
        self.refuse_line("status ZorErrAlloc:mode", "writes nothing to 'mode'")
        self.refuse_line("alias src=roi", "has no images 'src=roi'")
        self.refuse_line("alias other=dst", "serves no function")
        self.refuse_line("exempt loyalty it may", "'exempt' takes one of")
        self.refuse_line("exempt layout it may", "has no one-channel form to be exempt from")
        self.refuse_line("record zoriFoo", "zoriFoo is not in the catalogue")
        self.refuse_line("release zoriFoo", "zoriFoo is not in the catalogue")
        self.refuse_line("bytes pOut=zoriAbs_16s_C1R", "has no block 'pOut'")


class Project(unittest.TestCase):
    """The committed files and the built library agree with the catalogue."""

    @classmethod
    def setUpClass(cls):
        cls.families = catalogue.load()

    def test_committed_files_follow_from_the_catalogue(self):
        self.assertEqual(generate.check(self.families), 0)

    def test_the_library_exports_exactly_the_built_functions(self):
        if not options.library:
            self.skipTest("no --library given")
        lines = subprocess.run(["nm", "-D", "--defined-only", options.library], check=True, capture_output=True,
                               text=True).stdout.splitlines()
        exported = {line.split()[-1] for line in lines}
        built = {f.name for family in self.families for f in family.functions
                 if family.built and (not options.subsystems or family.subsystem in options.subsystems)}
        self.assertEqual(sorted(built - exported), [], "built, but not exported")
        self.assertEqual(sorted(exported - built), [], "exported, but not in the catalogue")

    def test_every_header_compiles_alone(self):
        strict = ["-pedantic", "-Wall", "-Wextra", "-Werror", "-fsyntax-only", f"-I{ROOT / 'include'}", "-"]
        for header in ["zori.h"] + [f"zori/{p.name}" for p in sorted((ROOT / "include/zori").glob("*.h"))]:
            for compiler, language in [([options.cc, "-std=c99", "-xc"], "C99"),
                                       ([options.cxx, "-std=c++17", "-xc++"], "C++17")]:
                done = subprocess.run(compiler + strict, input=f"#include <{header}>\ntypedef int something;\n", capture_output=True, text=True)
                self.assertEqual(done.returncode, 0, f"{header} as {language}:\n{done.stderr}")


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--library")
    parser.add_argument("--subsystems", nargs="*", default=[])
    parser.add_argument("--cc", default="cc")
    parser.add_argument("--cxx", default="c++")
    options, rest = parser.parse_known_args()
    unittest.main(argv=sys.argv[:1] + rest)
