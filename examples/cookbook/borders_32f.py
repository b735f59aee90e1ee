"""Borders for floats: a border only moves pixels, so a float image goes through as 32-bit integers, bit for bit."""
import numpy as np
import picture
import zori

p = picture.opened(1)
image = zori.convert(p, np.empty(p.shape, np.float32))
framed = np.empty((p.shape[0] + 4, p.shape[1] + 4), np.float32)
zori.copy_replicate_border(image.view(np.int32), 2, 2, framed.view(np.int32))  # views: the same memory
assert framed[0, 0] == image[0, 0] == framed[2, 2]

zori.filter_gauss(framed, zori.ZorMask5x5, image)
picture.saved(zori.convert(image, zori.ZorRoundNearestEven, np.empty_like(p)), "borders_32f")
