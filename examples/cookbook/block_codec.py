"""The path of a block codec: 8 x 8 blocks are transformed, quantised, put in zigzag order, and back."""
import math

import numpy as np
import picture
import zori

p = picture.opened(1)
height, width = p.shape[0] // 8 * 8, p.shape[1] // 8 * 8
p = np.ascontiguousarray(p[:height, :width])
out, kept = np.empty_like(p), 0
i, j = np.mgrid[:8, :8]
quanta = 6 + 4 * (i + j)  # coarser for higher frequencies
block, ordered = np.empty((8, 8), np.int16), np.empty((8, 8), np.int16)
for y in range(0, height, 8):
    for x in range(0, width, 8):
        zori.zoriDCT8x8FwdLS_8u16s_C1R(p[y:y + 8, x:x + 8], block, -128)
        block[:] = np.trunc(block / quanta)
        zori.zoriZigzagFwd8x8_16s_C1(block, ordered)  # what an entropy coder would get
        kept += np.count_nonzero(ordered)
        zori.zoriZigzagInv8x8_16s_C1(ordered, block)
        block *= quanta.astype(np.int16)
        zori.zoriDCT8x8InvLSClip_16s8u_C1R(block, out[y:y + 8, x:x + 8], 128, 0, 255)
mse = zori.norm_diff_l2(p, out) ** 2 / p.size
print(f"{100 * kept / p.size:.1f}% of the coefficients are not zero, {10 * math.log10(255 * 255 / mse):.1f} dB")
assert mse < 200 and kept < p.size / 2
picture.saved(out, "block_codec")
