"""A page seen askew, straightened: the quadrangle of its corners becomes an upright rectangle."""
import numpy as np
import picture
import zori

page = picture.opened(3)
height, width = page.shape[:2]
w, h, whole = width - 1, height - 1, (0, 0, width, height)
corners = [[0, 0], [w, 0], [w, h], [0, h]]
askew = [[0.12 * w, 0.10 * h], [0.95 * w, 0.02 * h], [0.85 * w, 0.93 * h], [0.03 * w, 0.80 * h]]
photo, straight = np.zeros_like(page), np.zeros_like(page)
zori.warp_perspective_quad(page, corners, whole, askew, zori.ZORI_INTER_LINEAR, photo)  # the photograph
zori.warp_perspective_quad(photo, askew, whole, corners, zori.ZORI_INTER_CUBIC, straight)

inner = (slice(10, height - 10), slice(10, width - 10))
mean = zori.norm_diff_l1(page[inner], straight[inner])[1] / ((width - 20) * (height - 20))
print(f"mean difference from the original page: {mean:.2f} levels")
assert mean < 8
picture.saved(straight, "perspective_page")
