"""The binding seen from NumPy: operations against plain formulas, views, what is refused, records, threads, fork."""
import gc
import os
import threading
import unittest
import warnings

import numpy as np
import zori
from hypothesis import given, settings, strategies as st

TYPES = {"uint8": (0, 255), "uint16": (0, 65535), "int16": (-32768, 32767)}
settings.register_profile("zori", deadline=None, max_examples=60, derandomize=True)
settings.load_profile("zori")


@st.composite
def pictures(draw, count=1, dtypes=tuple(TYPES), channels=(1, 3, 4)):
    """Arrays of one shape and type, each a view into a larger one: with steps, at odd places, upside down."""
    dtype, n = draw(st.sampled_from(dtypes)), draw(st.sampled_from(channels))
    height, width = draw(st.integers(1, 9)), draw(st.integers(1, 40))
    random = np.random.default_rng(draw(st.integers(0, 2**32 - 1)))
    found = []
    for _ in range(count):
        left, top, skip = draw(st.integers(0, 3)), draw(st.integers(0, 2)), draw(st.integers(1, 2))
        shape = (top + height * skip, left + width + 2) + ((n,) if n > 1 else ())
        whole = (random.uniform(-1e4, 1e4, shape) if dtype.startswith("f") else
                 random.integers(TYPES[dtype][0], TYPES[dtype][1] + 1, shape)).astype(dtype)
        view = whole[top:, left:left + width][::skip][:height]
        found.append(view[::-1] if draw(st.booleans()) else view)
    return found


def saturated(exact, scale, dtype):
    """round(exact * 2^-scale), ties to even, within the type."""
    low, high = TYPES[dtype]
    return np.clip(np.rint(exact.astype(float) / 2.0**scale), low, high).astype(dtype)


class Operations(unittest.TestCase):

    @given(pictures(2), st.integers(-2, 3))
    def test_sums_differences_products(self, images, scale):
        a, b = images
        x, y = a.astype(np.int64), b.astype(np.int64)
        for operation, exact in ((zori.add, x + y), (zori.sub, y - x), (zori.mul, x * y)):
            try:
                result = operation(a, b, scale=scale)
            except zori.Error as error:  # a step below 1 is refused where the function tests steps
                self.assertEqual(error.name, "ZorErrStep")
                continue
            np.testing.assert_array_equal(result, saturated(exact, scale, a.dtype.name))

    @given(pictures(2, dtypes=("float32",)))
    def test_floats(self, images):
        a, b = images
        np.testing.assert_array_equal(zori.add(a, b), a + b)
        np.testing.assert_array_equal(zori.abs(np.abs(a) * -1), np.abs(a))

    @given(pictures(2), st.integers(0, 255))
    def test_logic_and_constants(self, images, value):
        a, b = (np.ascontiguousarray(i) for i in images)
        if a.dtype == np.uint8:
            np.testing.assert_array_equal(getattr(zori, "and_")(a, b), a & b)
            np.testing.assert_array_equal(zori.xor(a, b), a ^ b)
            np.testing.assert_array_equal(getattr(zori, "not_")(a), ~a)
        constants = value if a.ndim == 2 else [value] * a.shape[2]
        np.testing.assert_array_equal(zori.add_c(a, constants, scale=1),
                                      saturated(a.astype(np.int64) + value, 1, a.dtype.name))

    @given(pictures(1, dtypes=("uint8",)))
    def test_copies_go_where_they_are_told(self, images):
        a, = images
        whole = np.full((a.shape[0] + 2, a.shape[1] + 3) + a.shape[2:], 7, np.uint8)
        before, view = whole.copy(), whole[1:-1, 2:-1]
        self.assertIs(zori.copy(a, view), view)
        before[1:-1, 2:-1] = a
        np.testing.assert_array_equal(whole, before)

    @given(pictures(1, dtypes=("uint8",), channels=(1,)))
    def test_measures(self, images):
        a = np.ascontiguousarray(images[0])
        self.assertEqual(zori.sum(a), a.sum())
        self.assertAlmostEqual(zori.mean(a), a.mean(), places=9)
        self.assertEqual(zori.min_max(a), (a.min(), a.max()))
        counts = zori.histogram_range(a, range(257))
        np.testing.assert_array_equal(counts, np.bincount(a.ravel(), minlength=256))

    @given(pictures(1, dtypes=("uint8", "int16", "float32"), channels=(1, 3)), st.integers(1, 3), st.integers(1, 3))
    def test_filters_leave_what_has_no_neighbours(self, images, left, top):
        a = np.ascontiguousarray(images[0])
        size = 2 * left + 1, 2 * top + 1
        if a.shape[0] < size[1] or a.shape[1] < size[0] or a.dtype == np.float32:
            return
        windows = np.lib.stride_tricks.sliding_window_view(a, size[::-1], axis=(0, 1))
        result = zori.filter_max(a, size, (left, top))
        np.testing.assert_array_equal(result, windows.max(axis=(-1, -2)))

    def test_planes_and_channels(self):
        a = np.arange(5 * 7 * 3, dtype=np.uint8).reshape(5, 7, 3)
        planes = [np.zeros((5, 7), np.uint8) for _ in range(3)]
        zori.copy(a, planes)
        for k in range(3):
            np.testing.assert_array_equal(planes[k], a[:, :, k])
        b = np.zeros_like(a)
        zori.copy(a[:, :, 2], b[:, :, 0])
        np.testing.assert_array_equal(b[:, :, 0], a[:, :, 2])
        self.assertFalse(b[:, :, 1:].any())
        c = np.full((5, 7, 4), 9, np.uint8)
        zori.set([1, 2, 3], c, skip_alpha=True)
        self.assertEqual(c[2, 3].tolist(), [1, 2, 3, 9])


class Refusals(unittest.TestCase):

    def test_nothing_is_cast_copied_or_overrun(self):
        a = np.zeros((4, 6), np.uint8)
        refused = [(a, a.astype(np.uint16)), (a, a.astype(">u2")), (a, a[:, :5]), (a[:, ::2], a[:, ::2]), (a, a.astype(bool)),
                   (a, [[1]]), (a, None), (a,), (a, a, a, a), (a, a[0])]
        for arguments in refused:
            with self.assertRaises((TypeError, ValueError), msg=str(arguments)):
                zori.add(*arguments)
        with self.assertRaises(ValueError):
            zori.zoriAdd_8u_C1RSfs(a, a, a, (7, 4))
        with self.assertRaises(ValueError):
            zori.zoriFilterMax_8u_C1R((a, 0, 0), a, (4, 2), (3, 3), (1, 1))
        with self.assertRaises(TypeError):
            zori.add_c(a, 1.5)
        with self.assertRaises(OverflowError):
            zori.zoriAddC_8u_C1RSfs(a, 256, a)
        frozen = a.copy()
        frozen.flags.writeable = False
        with self.assertRaises(ValueError):
            zori.add(a, a, frozen)
        with self.assertRaises(TypeError):
            zori.add(a, a, nothing=1)
        self.assertFalse(a.any())

    def test_errors_name_the_argument(self):
        a = np.zeros((9, 9), np.uint8)
        with self.assertRaises(zori.Error) as caught:
            zori.zoriAdd_8u_C1RSfs(a, a, a, (0, 3))
        error = caught.exception
        self.assertEqual((error.status, error.name, error.argument, error.function),
                         (zori.ZorErrSize, "ZorErrSize", "roiSize", "zoriAdd_8u_C1RSfs"))
        with self.assertRaises(zori.Error) as caught:
            zori.zoriMirror_8u_C1R(a, a.copy(), (9, 9), 77)
        self.assertEqual(caught.exception.name, "ZorErrAxis")

    def test_warnings_are_warnings(self):
        a = np.ones((2, 2), np.uint8)
        with self.assertWarns(zori.StatusWarning):
            result = zori.div(np.zeros_like(a), a)
        self.assertEqual(result.shape, a.shape)
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            with self.assertRaises(zori.StatusWarning):
                zori.div(np.zeros_like(a), a)


class Lives(unittest.TestCase):

    def test_records_release_themselves(self):
        a = np.random.default_rng(1).normal(size=(8, 16)).astype(np.complex64)
        with zori.zoriFFTInitAlloc_C_32fc(4, 3, zori.ZorFftNoDiv) as record:
            result = zori.zoriFFTFwd_CToC_32fc_C1R(a, spectrum := np.empty_like(a), record)
            self.assertIsNone(result)
            np.testing.assert_allclose(spectrum, np.fft.fft2(a), rtol=1e-4, atol=1e-4)
            with self.assertRaises(ValueError):  # smaller than the record's transform
                zori.zoriFFTFwd_CToC_32fc_C1R(a[:4], spectrum, record)
        with self.assertRaises(ValueError):
            zori.zoriFFTFwd_CToC_32fc_C1R(a, spectrum, record)
        for _ in range(50):
            zori.zoriFFTInitAlloc_C_32fc(6, 6, zori.ZorFftNoDiv)
        gc.collect()

    def test_threads(self):
        a = np.random.default_rng(2).integers(0, 256, (300, 400), np.uint8)
        expected, wrong = zori.add(a, a, scale=1), []

        def work():
            for _ in range(20):
                if not np.array_equal(zori.add(a, a, scale=1), expected):
                    wrong.append(1)
        threads = [threading.Thread(target=work) for _ in range(4)]
        for t in threads:
            t.start()
        for t in threads:
            t.join()
        self.assertEqual(wrong, [])

    def test_fork(self):
        """A child goes on where the parent has used a team."""
        a = np.full((3000, 3000), 3, np.uint8)
        zori.add(a, a)
        child = os.fork()
        if child == 0:
            os._exit(0 if (zori.add(a, a) == 6).all() else 1)
        self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), 0)


if __name__ == "__main__":
    unittest.main()
