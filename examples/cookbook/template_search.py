"""Template search: where in a picture a small one is found, under other light and with noise."""
import numpy as np
import picture
import zori

p = picture.opened(1)
height, width = p.shape
h, w, x0, y0 = height // 6, width // 6, width // 2, height // 5
pattern = p[y0:y0 + h, x0:x0 + w].copy()
# the picture gets half the contrast, more light, and noise
zori.r_shift_c_inplace(1, p)
zori.add_c_inplace(60, p)
zori.add_rand_uniform_direct_inplace(p, 0, 12, 5)

match = np.empty((height - h + 1, width - w + 1), np.float32)
zori.cross_corr_valid_norm_level(p, pattern, match)
best, x, y = zori.max_indx(match)
print(f"best match {best:.3f} at ({x}, {y})")
assert (x, y) == (x0, y0) and best > 0.8

found = p[y:y + h, x:x + w]  # a white frame about it
for edge in (found[:2], found[-2:], found[:, :2], found[:, -2:]):
    zori.set(255, edge)
picture.saved(p, "template_search")
