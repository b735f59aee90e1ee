"""Histogram equalisation: every grey level gets the share of the range that its pixels have of the picture."""
import numpy as np
import picture
import zori

p = picture.opened(1)
count, levels = zori.histogram_even(p, 257, 0, 256)
below = np.cumsum(count)
values = [*(255 * below / p.size + 0.5).astype(np.int32), 255]
assert below[-1] == p.size and levels[0] == 0 and levels[256] == 256
out = zori.lut(p, values, levels)

assert zori.min_max(out)[1] == 255
picture.saved(out, "equalisation")
