"""Denoising compared: box, Gauss and median on noise of two kinds, judged by the mean squared error."""
import picture
import zori

clean = picture.opened(1)
height, width = clean.shape
three, centre = (3, 3), (1, 1)


def error(p):
    return zori.norm_diff_l2(clean, p) ** 2 / clean.size


def salt_and_pepper(p):
    """On one pixel of twenty."""
    seed = 11
    for i in range(width * height // 20):
        seed = (seed * 1664525 + 1013904223) % 2**32
        x = (seed >> 8) % width
        seed = (seed * 1664525 + 1013904223) % 2**32
        p[(seed >> 8) % height, x] = 255 if i % 2 else 0


for name, spoil in (("Gaussian noise", lambda p: zori.add_rand_gauss_direct_inplace(p, 0, 20, 11)),
                    ("salt and pepper", salt_and_pepper)):
    noisy = clean.copy()
    spoil(noisy)
    margin = picture.framed(noisy, 1)
    results = [zori.filter_box(margin, three, centre), zori.filter_gauss(margin, zori.ZorMask3x3),
               out := zori.filter_median(margin, three, centre)]
    box, gauss, median = map(error, results)
    print(f"{name:<16} noisy {error(noisy):6.1f}   box {box:6.1f}   Gauss {gauss:6.1f}   median {median:6.1f}")
    assert gauss < error(noisy)
assert median < min(box, gauss)  # single pixels: the median
picture.saved(out, "denoising")
