"""Grey from colour: 0.299 R + 0.587 G + 0.114 B, exact to the nearest level."""
import numpy as np
import picture
import zori

colour = picture.opened(3)
total = np.zeros(colour.shape[:2], np.float32)
term, plane, grey = np.empty_like(total), np.empty(total.shape, np.uint8), np.empty(total.shape, np.uint8)
for channel, weight in enumerate((77 / 256, 150 / 256, 29 / 256)):
    zori.copy(colour[:, :, channel], plane)  # a channel of interest
    zori.convert(plane, term)
    zori.mul_c_inplace(weight, term)
    zori.add_inplace(term, total)
zori.convert(total, zori.ZorRoundNearestEven, grey)

assert abs(int(grey[0, 0]) - colour[0, 0] @ np.array([77, 150, 29]) / 256) <= 0.5
picture.saved(grey, "grey")
