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
import catalogue  # noqa: E402
import generate   # noqa: E402

options = argparse.Namespace(library=None, subsystems=[], cc="cc", cxx="c++")


def load_text(text):
    with tempfile.TemporaryDirectory() as folder:
        (pathlib.Path(folder) / "some.txt").write_text(text)
        return catalogue.load(folder)


class Format(unittest.TestCase):
    """What a catalogue file says is what the reader understands."""

    def prototypes(self, text):
        return [f.prototype() for family in load_text(text) for f in family.functions]

    def fault(self, text):
        with self.assertRaises(catalogue.CatalogueError) as caught:
            load_text(text)
        return str(caught.exception)

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
         pMean=double[n] optional:buffer:pBuffer=Zor8u*
""")[1:], [
            "ZorStatus zoriWarpBack_16u_P3R(const Zor16u* const pSrc[3], ZorImgSize srcSize, int srcStep, "
            "Zor16u* const pDst[3], int dstStep, const double coeffs[2][3], const Zor16u* const pLevels[3], "
            "double pMean[3], Zor8u* pBuffer);"])

    def test_checks(self):
        family, = load_text("""
family   zoriAdd_8u_P3R
title    Sum
args     src1 src2 dst roi size:tplSize=ZorImgSize order=const int[3]
checks   height null:src1,order null size:tplSize size step ZorErrMode:order={0,-1,2},roiSize=1x1
""")
        stages = family.functions[0].checks
        self.assertEqual([(s.status, s.names) for s in stages], [
            ("ZorErrSize", ["roiSize.height"]), ("ZorErrNullPtr", ["pSrc1", "order"]),
            ("ZorErrNullPtr", ["pSrc2", "pDst"]), ("ZorErrSize", ["tplSize.width", "tplSize.height"]),
            ("ZorErrSize", ["roiSize.width"]), ("ZorErrStep", ["src1Step", "src2Step", "dstStep"]),
            ("ZorErrMode", ["order", "roiSize"])])
        self.assertEqual(stages[-1].faults, [("order", ["0", "-1", "2"]), ("roiSize", ["1", "1"])])

    def test_faults_name_their_line(self):
        head = "family   zoriAbs_16s_C1R\ntitle    Abs\n"
        for text, words in [
                (head + "args src dst roi\nchekcs null", "some.txt:4: unknown key 'chekcs'"),
                (head + "args src dts roi", "some.txt:3: unknown argument 'dts'"),
                (head + "args src dst roi\nchecks null ZorErrFoo:roiSize=1", "some.txt:4: unknown check 'ZorErrFoo"),
                (head + "args src dst roi\nchecks null size null", "has nothing left for the check 'null'"),
                (head + "args src dst roi\nexample mode=3", "no function of the family has an argument 'mode'"),
                (head + "args *IR src dst roi", "no 'args' line serves zoriAbs_16s_C1R"),
                (head, "some.txt:1: family without 'args'"),
                (2 * (head + "args src dst roi\n\n"), "stands in the catalogue twice")]:
            self.assertIn(words, self.fault(text))


class Project(unittest.TestCase):
    """The committed files and the built library agree with the catalogue."""

    @classmethod
    def setUpClass(cls):
        cls.families = catalogue.load()

    def test_the_catalogue_holds_all_names(self):
        self.assertEqual(generate.lint(self.families, ROOT / "tests/catalogue/functions.txt"), 0)

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
                done = subprocess.run(compiler + strict, input=f"#include <{header}>\n", capture_output=True, text=True)
                self.assertEqual(done.returncode, 0, f"{header} as {language}:\n{done.stderr}")


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--library")
    parser.add_argument("--subsystems", nargs="*", default=[])
    parser.add_argument("--cc", default="cc")
    parser.add_argument("--cxx", default="c++")
    options, rest = parser.parse_known_args()
    unittest.main(argv=sys.argv[:1] + rest)
