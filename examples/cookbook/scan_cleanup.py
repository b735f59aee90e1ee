"""Scan clean-up: a page photographed in uneven light becomes black writing on white paper."""
import picture
import zori

page = picture.opened(1)
window, centre = (15, 15), (7, 7)
# the background is what remains when everything dark and small goes; a filter returns what has all its neighbours
ground = zori.filter_max(picture.framed(page, 7), window, centre)
ground = zori.filter_box(picture.framed(ground, 7), window, centre)

flat = zori.div(ground, page, scale=-8)  # 256 * page / ground: the first operand is the denominator
threshold = zori.compute_threshold_otsu(flat)
out = zori.compare_c(flat, threshold, zori.ZorCmpGreater)

black, white = zori.count_in_range(out, 0, 0), zori.count_in_range(out, 255, 255)
print(f"threshold {threshold}, {100 * black / (black + white):.1f}% black")
assert black + white == out.size and 0 < black < white
picture.saved(out, "scan_cleanup")
