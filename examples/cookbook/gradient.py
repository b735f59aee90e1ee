"""Gradient magnitude: sqrt(gx^2 + gy^2) by Sobel's kernels in 16 bits, the root in single precision."""
import numpy as np
import picture
import zori

p = picture.opened(1)
margin = picture.framed(p, 1)
slope, gx, gy = np.empty(p.shape, np.int16), np.empty(p.shape, np.float32), np.empty(p.shape, np.float32)
zori.convert(zori.filter_sobel_vert(margin, zori.ZorMask3x3, slope), gx)
zori.convert(zori.filter_sobel_horiz(margin, zori.ZorMask3x3, slope), gy)
zori.sqr_inplace(gx)
zori.sqr_inplace(gy)
zori.add_inplace(gx, gy)
zori.sqrt_inplace(gy)
zori.mul_c_inplace(0.25, gy)  # Sobel's weights sum to 4 a side
out = zori.convert(gy, zori.ZorRoundNearestEven, np.empty_like(p))

assert zori.max(out) > 50
picture.saved(out, "gradient")
