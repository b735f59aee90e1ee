"""Operands of all kinds: rows and their margins, counts that arrays tell, image memory, what is refused and how that is
said, what a call leaves behind."""
import gc
import os
import pathlib
import resource
import subprocess
import sys
import threading
import tracemalloc
import unittest

import numpy as np
import zori
from hypothesis import given, settings, strategies as st

settings.register_profile("zori", deadline=None, max_examples=60, derandomize=True)
settings.load_profile("zori")


class Rows(unittest.TestCase):

    @given(st.integers(1, 70), st.integers(1, 20), st.integers(0, 3), st.integers(0, 3), st.booleans())
    def test_weighted_sums(self, count, length, x, y, upside_down):
        random = np.random.default_rng(count * 100 + length)
        whole = random.normal(size=(count + y + 1, length + x)).astype(np.float32)
        whole = whole[::-1] if upside_down else whole
        weights = random.normal(size=count).astype(np.float32)
        expected = np.zeros(length, np.float32)
        for weight, row in zip(weights, whole[y:y + count, x:]):
            expected += weight * row
        part = whole[y:y + count, x:]
        for rows in (list(part), part, (whole, x, y)):
            np.testing.assert_array_equal(zori.dot_prod_col(rows, weights), expected)
        out = np.zeros(length, np.float32)
        self.assertIsNone(zori.zoriDotProdCol_32f_L2(part, weights, out, count, length))
        np.testing.assert_array_equal(out, expected)

    def test_no_row_is_left(self):
        rows, weights = [np.ones(5, np.float32)] * 3, np.ones(3, np.float32)
        out = np.zeros(5, np.float32)
        refused = [(rows, weights, None, 4, 5), (rows, weights, None, 3, 6), (rows[:2] + [rows[0][:4]], weights, None, 3, 5),
                   (rows, weights, out[:4], 3, 5), ((np.ones((3, 5), np.float32), 1, 0), weights, None, 3, 5),
                   ((np.ones((3, 5), np.float32), 0, 1), weights, None, 3, 5), (rows[:2] + [None], weights, None, 3, 5),
                   ([r.astype(float) for r in rows], weights, None, 3, 5), (rows[0], weights, None, 3, 5),
                   (rows, weights, out[::2], 3, 3), (rows, weights[:2], None, 3, 5)]
        for arguments in refused:
            with self.assertRaises((TypeError, ValueError), msg=str(arguments)):
                zori.zoriDotProdCol_32f_L2(*arguments)
        with self.assertRaisesRegex(ValueError, "src and weights tell different numbers for count"):
            zori.dot_prod_col(rows, weights[:2])
        with self.assertRaisesRegex(zori.Error, "ZorErrSize"):
            zori.zoriDotProdCol_32f_L2(rows, weights, out, 0, 5)

    @given(st.integers(1, 60), st.integers(1, 60), st.integers(0, 30), st.integers(1, 40))
    def test_a_row_is_read_within_its_array(self, rate_in, rate_out, start, length):
        record = zori.zoriResampleRowInit_32f(0, rate_in, rate_out)
        half, _ = zori.zoriResampleRowGetBorderWidth_32f(record)
        first, last = (i * rate_in // rate_out for i in (start, start + length - 1))
        left = max(0, half - first)
        row = np.sin(np.arange(left + last + 1 + half) / 7).astype(np.float32)
        found = zori.zoriResampleRow_32f_C1((row, left), start, None, length, record)
        np.testing.assert_array_equal(zori.zoriResampleRow_32f_C1(row, start, None, length, record), found)
        around = np.concatenate([[np.nan], row, [np.nan]]).astype(np.float32)  # nothing else is looked at
        np.testing.assert_array_equal(zori.resample_row((around, left + 1), start, length, record), found)
        for bad in ((row[1:], left - 1), (row[:-1], left), (row, left + 1), (row, -1), (row, 2**80)):
            with self.assertRaises((ValueError, OverflowError), msg=bad[1]):
                zori.zoriResampleRow_32f_C1(bad, start, None, length, record)


class Counts(unittest.TestCase):

    @given(st.integers(2, 40))
    def test_levels(self, n):
        a = np.random.default_rng(n).integers(0, 256, (9, 13), np.uint8)
        levels = np.linspace(0, 256, n).astype(np.int32)
        expected = np.histogram(a, np.append(levels[:-1], 255.5))[0]
        np.testing.assert_array_equal(zori.histogram_range(a, levels), expected)
        np.testing.assert_array_equal(zori.histogram_range(a, levels.tolist(), n_levels=n), expected)
        np.testing.assert_array_equal(zori.zoriHistogramRange_8u_C1R(a, None, None, levels), expected)
        colour, each = np.stack([a] * 3, -1), [levels, levels[:2], [0, 256]]
        found = zori.histogram_range(colour, each)
        self.assertEqual([len(h) for h in found], [n - 1, 1, 1])
        np.testing.assert_array_equal(found[0], expected)

    def test_kernels_masks_tables(self):
        a = np.random.default_rng(1).integers(0, 256, (9, 13), np.uint8)
        kernel = np.arange(6, dtype=np.int32).reshape(2, 3)
        expected = zori.filter(a, kernel.ravel(), (1, 0), 15, kernel_size=(3, 2))
        np.testing.assert_array_equal(zori.filter(a, kernel, (1, 0), 15), expected)
        np.testing.assert_array_equal(zori.filter(a, kernel.tolist(), (1, 0), 15), expected)
        np.testing.assert_array_equal(zori.dilate(a, np.ones((2, 3), np.uint8), (1, 0)), zori.filter_max(a, (3, 2), (1, 0)))
        np.testing.assert_array_equal(zori.lut_palette(a, np.arange(256, dtype=np.uint8)[::-1].copy()), 255 - a)
        for call, words in ((lambda: zori.filter(a, kernel.ravel(), (1, 0), 15), "kernel_size is missing"),
                            (lambda: zori.lut_palette(a, np.zeros(255, np.uint8)), "n_bit_size is missing.*power of two"),
                            (lambda: zori.lut(a, [1, 2, 3], [1, 2]), "values and levels tell different"),
                            (lambda: zori.histogram_range(a, [0, 9], n_levels=3), "levels must hold 3 numbers")):
            with self.assertRaisesRegex((TypeError, ValueError), words):
                call()


class Memory(unittest.TestCase):

    def test_is_an_operand_and_goes_back(self):
        a = np.arange(40, dtype=np.uint8).reshape(5, 8)
        with zori.zoriMalloc_8u_C1(8, 5) as memory:
            self.assertIs(zori.copy(a, memory), memory)
            np.testing.assert_array_equal(zori.add(memory, a), 2 * a)
            seen = np.asarray(memory)
            self.assertEqual((memory.shape, memory.strides), (seen.shape, seen.strides))
            with self.assertRaises(BufferError):
                memory.release()
            del seen
        with self.assertRaises((TypeError, ValueError)):
            zori.copy(a, memory)
        with self.assertRaisesRegex(ValueError, "released"):
            zori.zoriFree(memory)
        with self.assertRaisesRegex(ValueError, "width"):
            zori.zoriMalloc_32f_C3(0, 5)
        with self.assertRaises(MemoryError):
            zori.zoriMalloc_32f_C3(2**30, 2**30)
        with self.assertRaises(TypeError):
            zori.zoriFree(a)


class Results(unittest.TestCase):

    def test_hold_nothing_of_former_memory(self):
        """Pixels that a call leaves are 0 in a result that it makes."""
        a, mask = np.full((64, 64), 9, np.uint8), np.zeros((64, 64), np.uint8)
        mask[:8] = 1
        quad = [(10, 10), (40, 12), (38, 50), (12, 44)]
        for _ in range(20):
            rubbish = [np.full((64, 64), 77, np.uint8) for _ in range(4)]
            del rubbish
            self.assertEqual(np.unique(zori.copy(a, mask=mask)).tolist(), [0, 9])
            c = zori.get_perspective_transform((0, 0, 64, 64), quad)
            self.assertEqual(np.unique(zori.warp_perspective(a, (0, 0, 64, 64), c, zori.ZORI_INTER_NN)).tolist(), [0, 9])
            half = zori.resize(a, 0.5, 0.5, zori.ZORI_INTER_NN, dst_roi_size=(64, 64))
            self.assertEqual(np.unique(half).tolist(), [0, 9])
            four = zori.add(np.stack([a] * 4, -1), np.stack([a] * 4, -1), skip_alpha=True)
            self.assertEqual(np.unique(four[..., 3]).tolist(), [0])

    def test_search(self):
        self.assertIn("sub", zori.search("Difference images"))
        self.assertEqual(zori.search("no such words"), {})


class Refusals(unittest.TestCase):

    def test_strange_arrays(self):
        """Types and shapes that no function has are named, never cast; an array that does not fit is said to."""
        a = np.arange(48, dtype=np.uint8).reshape(6, 8)
        said = {
            "src1 is >u2": (a.astype(">u2"), a), "src1 is float64": (a * 1.0, a), "src1 is bool": (a > 3, a),
            "src1 is object": (a.astype(object), a), "src1 is float16": (a.astype(np.float16), a),
            r"src1 is uint8 \(\)": (np.array(3, np.uint8), a), r"src1 is uint8 \(48,\)": (a.ravel(), a),
            r"src1 is uint8 \(1, 1, 1, 6, 8\)": (a.reshape(1, 1, 1, 6, 8), a), "src1 is list": (a.tolist(), a),
            "out is float32.*takes uint8, shape": (a, a, a.astype(np.float32)),
            r"src2 is uint8 \(6, 8\).*takes uint8, shape \(h, w, 3\)": (np.stack([a] * 3, -1), a),
            "src1 do not adjoin": (np.asfortranarray(a), a), "of src1 do not adjoin": (a[:, ::-1], a),
            "src1 and src2 differ in size": (a, a[:5]), "src1 and out differ in size": (a, a, np.zeros((5, 8), np.uint8)),
            "out is read-only": (a, a, np.broadcast_to(a[0], (6, 8))),
            "out would have 8 x 0 pixels": (a[:0], a[:0]), "out would have 0 x 6 pixels": (a[:, :0], a[:, :0]),
            "argument src2 is missing": (a,), "too many arguments": (a, a, a, a)}
        for words, arguments in said.items():
            with self.assertRaisesRegex((TypeError, ValueError), words):
                zori.add(*arguments)
        for words, keywords in {"no argument 'sclae'": {"sclae": 1}, "two values for argument 'src1'": {"src1": a},
                                "roi: 1099511627776": {"roi": (2**40, 1)}, "needed are 9 x 6": {"roi": (9, 6)},
                                "scale: 'float'": {"scale": 1.0}}.items():
            with self.assertRaisesRegex((TypeError, ValueError, OverflowError), words):
                zori.add(a, a, **keywords)
        with self.assertRaisesRegex(zori.Error, "anchor.x > mask_size.width") as caught:
            zori.filter_box(a, (3, 3), (5, 1))
        self.assertEqual((caught.exception.argument, caught.exception.function), ("anchor", "zoriFilterBox_8u_C1R"))
        with self.assertRaises(zori.Error) as caught:
            zori.filter_box(a, (0, 3), (0, 1))
        self.assertEqual(caught.exception.argument, "mask_size")

    def test_arrays_that_are_as_good(self):
        """Rows upside down, read-only and repeated sources, subclasses, memoryviews, a row alone with any step."""
        a = np.arange(48, dtype=np.uint8).reshape(6, 8)
        twice = 2 * a
        np.testing.assert_array_equal(zori.add(a[::-1], a[::-1]), twice[::-1])
        np.testing.assert_array_equal(zori.add(np.broadcast_to(a[1], (6, 8)), a), a + a[1])
        np.testing.assert_array_equal(zori.add(memoryview(a), a.view(np.ndarray)), twice)
        np.testing.assert_array_equal(zori.add(a.view(type("Own", (np.ndarray,), {})), a), twice)
        np.testing.assert_array_equal(zori.and_(a[::-1][:1], a[::-1][:1]), a[5:])
        np.testing.assert_array_equal(zori.add(a.astype("<u2"), a.astype("=u2")), twice)
        odd = np.frombuffer(b"x" + a.astype(np.uint16).tobytes(), np.uint16, 48, 1).reshape(6, 8)  # not aligned
        np.testing.assert_array_equal(zori.add(odd, odd), twice)
        whole = bytearray(48)
        self.assertIsInstance(zori.add(a, a, memoryview(whole).cast("B", (6, 8))), memoryview)
        self.assertEqual(bytes(whole), twice.tobytes())


class Lives(unittest.TestCase):

    def test_nothing_is_left_behind(self):
        """Calls that work, warn and fail: no object, no reference, no memory of the process grows with their number."""
        a, b = np.ones((4, 16), np.uint8), np.ones((4, 16), np.uint8)
        row, weights = [np.ones(5, np.float32)] * 40, np.ones(40, np.float32)
        out, levels = np.empty_like(a), np.array([0, 9], np.int32)

        def calls():
            zori.add(a, b)
            zori.add(a, b, out=out, scale=1)
            zori.filter_box(a, (3, 3), (1, 1), border="edge")
            zori.zoriFilterGauss_8u_C1R((a, 1, 1), out, (3, 2), zori.ZorMask3x3)
            zori.histogram_range(a, levels)
            zori.min_max(a)
            zori.dot_prod_col(row, weights)
            zori.zoriMalloc_8u_C1(8, 8)
            zori.copy(memoryview(a), out)
            zori.zoriResampleRowInit_32f(0, 3, 4)
            zori.zoriFFTInitAlloc_C_32fc(2, 2, zori.ZorFftNoDiv)
            for refused in (lambda: zori.add(a, levels), lambda: zori.add(a, b, nothing=1),
                            lambda: zori.filter_box(a, (3, 3), (3, 3)), lambda: zori.filter_box(a, 3, (1, 1)),
                            lambda: zori.zoriAdd_8u_C1RSfs(a, b, out, (17, 4))):
                try:
                    refused()
                except (TypeError, ValueError, zori.Error):
                    pass

        for _ in range(300):
            calls()
        gc.collect()
        objects = [a, b, out, levels, row, row[0], weights, zori.ZorMask3x3, a.dtype, (3, 3), "edge"]
        counts = [sys.getrefcount(o) for o in objects]
        tracemalloc.start()
        calls()
        gc.collect()
        held = tracemalloc.get_traced_memory()[0]
        for _ in range(2000):
            calls()
        gc.collect()
        grown = tracemalloc.get_traced_memory()[0] - held
        tracemalloc.stop()
        print(grown, "bytes more after 34 thousand calls", file=sys.stderr)
        self.assertLess(grown, 2000 * 16)  # less than the smallest object a round; measured: some caches
        self.assertEqual([sys.getrefcount(o) for o in objects], counts)

        def resident():
            return int(pathlib.Path("/proc/self/statm").read_text().split()[1]) * resource.getpagesize()
        before = resident()
        for _ in range(6000):  # 100 thousand calls
            calls()
        self.assertLess(resident() - before, 2 << 20)

    def test_an_operand_outlives_what_held_it(self):
        """The planes of a list that another thread empties during the call."""
        planes, stop = [], threading.Event()

        def exchange():
            while not stop.is_set():
                planes[:] = [np.full((300, 300), 7, np.uint8) for _ in range(3)]
        planes[:] = [np.full((300, 300), 7, np.uint8) for _ in range(3)]
        thread = threading.Thread(target=exchange)
        thread.start()
        try:
            for _ in range(200):
                self.assertTrue((zori.copy(planes, np.empty((300, 300, 3), np.uint8)) == 7).all())
        finally:
            stop.set()
            thread.join()

    def test_other_interpreters(self):
        """Another interpreter in the process is refused, and the first goes on; the module may be imported again."""
        program = """if True:
            import sys, numpy, zori
            a = numpy.ones((2, 2), "u1")
            try:
                import _xxsubinterpreters as interpreters
            except ImportError:
                interpreters = None
            if interpreters:
                other = interpreters.create()
                try:
                    interpreters.run_string(other, "import zori")
                    print("imported")
                except interpreters.RunFailedError as error:
                    print("refused" if "zori works in the main interpreter" in str(error) else error)
                interpreters.destroy(other)
            record = zori.zoriFFTInitAlloc_C_32fc(2, 2, zori.ZorFftNoDiv)
            del sys.modules["zori"]
            import zori as again
            assert type(record) is again.Record and (again.add(a, a) == 2).all() and (zori.add(a, a) == 2).all()
        """
        done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, env=os.environ)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertIn(done.stdout, ("refused\n", ""))


if __name__ == "__main__":
    unittest.main()
