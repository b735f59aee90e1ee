"""Motion and defects: where two pictures of one scene differ by more than noise."""
import numpy as np
import picture
import zori

before = picture.opened(1)
height, width = before.shape
after = before.copy()
zori.add_rand_uniform_direct_inplace(after, 0, 6, 7)
x0, y0 = width // 4, height // 2
zori.xor_c_inplace(0x80, after[y0:y0 + 16, x0:x0 + 24])  # the defect: a view is a region

difference = zori.sub(before, after)  # after - before, or 0
zori.max_every_inplace(zori.sub(after, before), difference)
mask = np.zeros_like(before)
mask[1:-1, 1:-1] = zori.filter_median(difference, (3, 3), (1, 1))
mask = zori.compare_c(mask, 40, zori.ZorCmpGreater)

with zori.zoriMomentInitAlloc_64s() as state:
    zori.moments64s(mask, state)
    area, sum_x, sum_y = (zori.zoriGetSpatialMoment_64s(state, m, n, 0, (0, 0), scaleFactor=0)
                          for m, n in ((0, 0), (1, 0), (0, 1)))
x, y, pixels = sum_x / area, sum_y / area, area / 255
print(f"{pixels:.0f} pixels changed, about ({x:.1f}, {y:.1f})")
assert 0.8 < pixels / (24 * 16) < 1.2 and x0 < x < x0 + 24 and y0 < y < y0 + 16
picture.saved(mask, "change_detection")
