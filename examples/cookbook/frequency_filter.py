"""A filter in the frequency domain: a low-pass of Gaussian shape, by one product of packed spectra."""
import numpy as np
import picture
import zori

order, sigma = 8, 2.5
n = 1 << order
p = picture.opened(1)[:n, :n]
square = zori.copy_replicate_border(p, 0, 0, np.empty((n, n), np.uint8))  # what is missing repeats the edge
image = zori.convert(square, np.empty((n, n), np.float32))
before = zori.mean(image, hint=zori.ZorHintAccurate)

# a Gaussian about (0, 0), wrapped around, with the sum 1
distance = (np.arange(n) + n // 2) % n - n // 2
weights = np.exp(-(distance[None, :] ** 2 + distance[:, None] ** 2) / (2 * sigma * sigma))
kernel = weights.astype(np.float32)
zori.mul_c_inplace(1 / weights.sum(), kernel)

with zori.zoriFFTInitAlloc_R_32f(order, order, zori.ZorFftDivInvByN) as record:
    zori.fft_fwd_r_to_pack_inplace(image, record)
    zori.fft_fwd_r_to_pack_inplace(kernel, record)
    zori.mul_pack_inplace(kernel, image)
    zori.fft_inv_pack_to_r_inplace(image, record)

after = zori.mean(image, hint=zori.ZorHintAccurate)
print(f"mean {before:.3f} before, {after:.3f} after")
assert abs(before - after) < 0.01
picture.saved(zori.convert(image, zori.ZorRoundNearestEven, square), "frequency_filter")
