"""`border=` against numpy.pad, `dtype=`, and margins()."""
import unittest

import numpy as np
import zori
from hypothesis import given, settings, strategies as st

settings.register_profile("zori", deadline=None, max_examples=60, derandomize=True)
settings.load_profile("zori")

NUMPY = {"edge": "edge", "nearest": "edge", "reflect": "reflect", "mirror": "reflect", "symmetric": "symmetric",
         "wrap": "wrap", "grid-wrap": "wrap", "constant": "constant"}


@st.composite
def framed(draw, dtypes=("uint8", "int16", "uint16", "float32")):
    """A picture and a mask that its margins may exceed, with a name of a border."""
    dtype, channels = draw(st.sampled_from(dtypes)), draw(st.sampled_from((1, 3, 4)))
    height, width = draw(st.integers(1, 12)), draw(st.integers(1, 30))
    random = np.random.default_rng(draw(st.integers(0, 2**32 - 1)))
    shape = (height, width + 3) + ((channels,) if channels > 1 else ())
    a = random.integers(0, 200, shape).astype(dtype)[:, 2:width + 2]
    mask = draw(st.integers(1, 7)), draw(st.integers(1, 7))
    anchor = draw(st.integers(0, mask[0] - 1)), draw(st.integers(0, mask[1] - 1))
    return a[::-1] if draw(st.booleans()) else a, mask, anchor, draw(st.sampled_from(sorted(NUMPY)))


def beyond(count, before, after, name):
    """Which of `count` pixels stands at each place of a row with its border."""
    places = np.arange(-before, count + after)
    if NUMPY[name] == "edge" or count == 1:
        return np.clip(places, 0, count - 1)
    period = {"wrap": count, "reflect": 2 * count - 2, "symmetric": 2 * count}[NUMPY[name]]
    places %= period
    return np.where(places < count, places, (period if NUMPY[name] == "reflect" else period - 1) - places)


def padded(a, mask, anchor, name, constant=0):
    before, after = anchor, (mask[0] - 1 - anchor[0], mask[1] - 1 - anchor[1])
    margins = ((before[1], after[1]), (before[0], after[0])) + ((0, 0),) * (a.ndim - 2)
    if NUMPY[name] == "constant":
        return np.pad(a, margins, "constant", constant_values=constant)
    if max(*before, *after) < min(a.shape[:2]):  # as far as all versions of NumPy agree with the definition
        return np.pad(a, margins, NUMPY[name])
    return np.ascontiguousarray(a[beyond(a.shape[0], *margins[0], name)][:, beyond(a.shape[1], *margins[1], name)])


def windows(a, mask):
    return np.lib.stride_tricks.sliding_window_view(a, mask[::-1], axis=(0, 1))


class Borders(unittest.TestCase):

    @given(framed())
    def test_largest_of_a_window(self, case):
        a, mask, anchor, name = case
        result = zori.filter_max(a, mask, anchor, border=name)
        np.testing.assert_array_equal(result, windows(padded(a, mask, anchor, name), mask).max(axis=(-1, -2)))

    @given(framed(("uint8", "int16")), st.integers(-3, 3))
    def test_kernels_are_turned(self, case, weight):
        a, mask, anchor, name = case
        kernel = np.arange(mask[0] * mask[1], dtype=np.int32).reshape(mask[::-1]) % 5 + weight
        result = zori.filter(a, kernel, anchor, 16, border=name)
        turned_anchor = mask[0] - 1 - anchor[0], mask[1] - 1 - anchor[1]
        exact = (windows(padded(a, mask, turned_anchor, name).astype(np.int64), mask) *
                 kernel[::-1, ::-1]).sum(axis=(-1, -2))
        low, high = (0, 255) if a.dtype == np.uint8 else (-32768, 32767)
        np.testing.assert_array_equal(result, np.clip(np.rint(exact / 16), low, high))

    @given(framed(("uint8", "uint16", "float32")))
    def test_a_frame_is_a_padded_picture(self, case):
        """Whatever the operation: the border is what the caller would have made."""
        a, _, _, name = case
        around = padded(a, (5, 5), (2, 2), name)
        np.testing.assert_array_equal(zori.filter_gauss(a, zori.ZorMask5x5, border=name),
                                      zori.filter_gauss(around, zori.ZorMask5x5))
        np.testing.assert_array_equal(zori.filter_box(a, (5, 5), (2, 2), border=name),
                                      zori.filter_box(around, (5, 5), (2, 2)))
        row = np.ones(5, np.float32) if a.dtype == np.float32 else np.ones(5, np.int32)
        if a.dtype != np.uint16:
            extra = () if a.dtype == np.float32 else (5,)
            np.testing.assert_array_equal(zori.filter_row(a, row, 1, *extra, border=name),
                                          zori.filter_row(padded(a, (5, 1), (3, 0), name), row, 1, *extra))

    @given(framed(("uint8", "float32")), st.integers(0, 255))
    def test_constants(self, case, value):
        a, mask, anchor, _ = case
        values = [value, 255 - value, 7, 9][:a.shape[2]] if a.ndim == 3 else value
        around = padded(a, mask, anchor, "constant", value)
        if a.ndim == 3:
            inside = np.zeros(around.shape[:2], bool)
            inside[anchor[1]:anchor[1] + a.shape[0], anchor[0]:anchor[0] + a.shape[1]] = True
            around[~inside] = values
        expected = windows(around, mask).min(axis=(-1, -2))
        np.testing.assert_array_equal(zori.filter_min(a, mask, anchor, border=values), expected)

    def test_parts_and_places(self):
        """With a region inside the picture its neighbours are real, and only those beyond the edge are made."""
        a = np.random.default_rng(4).integers(0, 256, (20, 30), np.uint8)
        whole = zori.filter_median(a, (5, 5), (2, 2), border="reflect")
        for x, y, w, h in ((0, 0, 7, 9), (23, 11, 7, 9), (10, 8, 5, 5)):
            part = zori.filter_median((a, x, y), (5, 5), (2, 2), roi=(w, h), border="reflect")
            np.testing.assert_array_equal(part, whole[y:y + h, x:x + w])
        self.assertIs(zori.filter_median(a, (5, 5), (2, 2), a, border="reflect"), a)  # the frame is a copy
        np.testing.assert_array_equal(a, whole)

    def test_refusals(self):
        a = np.zeros((5, 5), np.uint8)
        with self.assertRaises(ValueError):
            zori.filter_max(a, (3, 3), (1, 1), border="mirrored")
        with self.assertRaises(ValueError):
            zori.filter_max(a, (3, 3), (1, 1), border=(1, 2, 3))
        with self.assertRaises((TypeError, OverflowError)):
            zori.filter_max(a, (3, 3), (1, 1), border=256)
        with self.assertRaises(TypeError):
            zori.add(a, a, border="edge")
        with self.assertRaises(zori.Error) as caught:
            zori.filter_max(a, (3, 3), (4, 1), border="edge")
        self.assertEqual(caught.exception.name, "ZorErrAnchor")
        with self.assertRaises(ValueError):
            zori.filter_max(a, (3, 3), (1, 1), roi=(6, 5), border="edge")


class Types(unittest.TestCase):

    def test_dtype_tells_the_result(self):
        a = np.arange(12, dtype=np.uint8).reshape(3, 4)
        for _ in range(3):  # remembered choices, too
            for dtype in (np.uint16, np.int16, np.int32, np.float32, "float32", np.dtype("u2")):
                result = zori.convert(a, dtype=dtype)
                self.assertEqual(result.dtype, np.dtype(dtype))
                np.testing.assert_array_equal(result, a)
        self.assertEqual(zori.filter_laplace(a, zori.ZorMask3x3, border="edge", dtype=np.int16).dtype, np.int16)
        self.assertEqual(zori.filter_laplace(a, zori.ZorMask3x3, border="edge").dtype, np.uint8)
        self.assertEqual(zori.image_jaehne(roi=(8, 6), dtype=np.float32).shape, (6, 8))
        for wrong in (np.float64, np.uint8, "no such type"):
            with self.assertRaises(TypeError):
                zori.convert(a, dtype=wrong)
        with self.assertRaises(TypeError):
            zori.convert(a)


class Margins(unittest.TestCase):

    def test_margins(self):
        self.assertEqual(zori.margins("zoriFilterGauss_8u_C1R", mask=zori.ZorMask5x5), (2, 2, 2, 2))
        self.assertEqual(zori.margins(zori.filter_box, mask_size=(5, 4), anchor=(1, 2)), (1, 2, 3, 1))
        self.assertEqual(zori.margins("filter_row", kernel_size=5, anchor=1), (3, 0, 1, 0))
        self.assertEqual(zori.margins("add"), (0, 0, 0, 0))
        for wrong in ({}, {"mask": zori.ZorMask5x5}, {"mask_size": (5, 5)}):
            with self.assertRaises(TypeError):
                zori.margins("filter_box", **wrong)
        with self.assertRaises(KeyError):
            zori.margins("no_such_filter")

    def test_a_call_needs_just_these(self):
        """With the margins that are told a filter is content, with a pixel less it is not."""
        calls = {"filter_box": {"mask_size": (4, 3), "anchor": (3, 0)}, "filter_roberts_up": {},
                 "filter_sobel_cross": {"mask": zori.ZorMask5x5}, "filter_sharpen": {}}
        for name, arguments in calls.items():
            left, top, right, bottom = zori.margins(name, **arguments)
            dtype = np.int16 if name == "filter_sobel_cross" else np.uint8
            for cut in range(5):
                a = np.zeros((6 + top + bottom - (cut == 3), 7 + left + right - (cut == 4)), np.uint8)
                place = left - (cut == 1), top - (cut == 2)
                out = np.zeros((6, 7), dtype)
                call = (lambda: getattr(zori, name)((a, *place), out=out, roi=(7, 6), **arguments))
                if cut == 0 or (cut == 1 and not left) or (cut == 2 and not top):
                    if cut == 0:
                        call()
                else:
                    with self.assertRaises(ValueError, msg=(name, cut)):
                        call()


if __name__ == "__main__":
    unittest.main()
