# A tour of the Python binding in cells: run it as a notebook (editors know `# %%`), or as a program:
#   python_tour.py [FOLDER]      writes its pictures into FOLDER; without one it shows them
# %% [markdown]
# # zori in Python
# An operation takes arrays as they are and chooses the function by their types. Let us draw a scene to work on.
# %%
import pathlib
import sys
import warnings

import matplotlib.pyplot as plt
import numpy as np
import zori

FOLDER = pathlib.Path(sys.argv[1]) if len(sys.argv) == 2 else None


def show(name, **pictures):
    """A row of pictures with their titles."""
    figure, places = plt.subplots(1, len(pictures), figsize=(3.4 * len(pictures), 3.4), squeeze=False)
    for place, (title, picture) in zip(places[0], pictures.items()):
        bright = {"vmin": 0, "vmax": 255} if picture.dtype == np.uint8 else {}
        place.imshow(picture, cmap="gray", interpolation="nearest", **bright)
        place.set_title(title.replace("_", " "), fontsize=10)
        place.set_axis_off()
    figure.tight_layout()
    if FOLDER:
        FOLDER.mkdir(parents=True, exist_ok=True)
        figure.savefig(FOLDER / f"{name}.png", dpi=80)
    else:
        plt.show()
    plt.close(figure)


rings = zori.image_jaehne(roi=(256, 256), dtype=np.uint8)
scene = zori.r_shift_c(rings, 1)  # half as bright
scene[60:140, 40:120] = 200       # arrays stay arrays: NumPy draws into them
scene[150:230, 130:230] = np.linspace(20, 250, 100, dtype=np.uint8)
show("1_scene", rings=rings, scene=scene)

# %% [markdown]
# ## Views, results and scale factors
# A part of an array is an image too, and nothing is copied on the way. `out` puts the result into memory of yours;
# integers are saturated, and `scale` divides an exact result by a power of two before that.
# %%
middle = scene[64:192, 64:192]
brighter = zori.add_c(middle, 100)
mean_of_two = zori.add(middle, zori.mirror(middle, zori.ZorAxsHorizontal), scale=1)
whole = scene.copy()
zori.not_(middle, out=whole[64:192, 64:192])
show("2_views", part=middle, brighter=brighter, mean_with_its_mirror=mean_of_two, negative_in_the_middle=whole)
assert (brighter == np.minimum(middle.astype(int) + 100, 255)).all()

# %% [markdown]
# ## Filters and borders
# A filter reads beyond its region. Either the result is smaller, or `border` says what lies around the picture.
# %%
noisy = scene.copy()
zori.add_rand_gauss_direct_inplace(noisy, 0, 25, 1)
inside = zori.filter_median(noisy, (5, 5), (2, 2))
smooth = {name: zori.filter_median(noisy, (5, 5), (2, 2), border=name) for name in ("edge", "reflect", "wrap")}
print("without a border", inside.shape, "with one", smooth["edge"].shape,
      "since it reads", zori.margins("filter_median", mask_size=(5, 5), anchor=(2, 2)))
show("3_filters", noisy=noisy, median=smooth["reflect"], box=zori.filter_box(noisy, (9, 9), (4, 4), border="reflect"),
     largest=zori.filter_max(scene, (9, 9), (4, 4), border="edge"))

# %% [markdown]
# ## Types
# No type is changed silently. Where the result may be of several types, `dtype` chooses.
# %%
across = zori.filter_sobel_vert(zori.convert(smooth["edge"], dtype=np.int16), border="edge")
down = zori.filter_sobel_horiz(zori.convert(smooth["edge"], dtype=np.int16), border="edge")
gradient = zori.sqrt(zori.add(zori.sqr(zori.convert(across, dtype=np.float32)),
                              zori.sqr(zori.convert(down, dtype=np.float32))))
show("4_gradient", across=across, down=down, magnitude=gradient)
try:
    zori.add(across, smooth["edge"])
except TypeError as error:
    print(str(error).split(";")[0])

# %% [markdown]
# ## Measuring
# Results that are single numbers are returned, several as a tuple.
# %%
dark = zori.r_shift_c(scene, 2)
counts = zori.histogram_range(dark, range(257))
table = np.cumsum(counts) * 255 // dark.size
equal = zori.lut(dark, np.append(table, 0).astype(np.int32), range(257))
print("mean", zori.mean(dark), "least and greatest", zori.min_max(dark))
show("5_equalised", dark=dark, equalised=equal)

# %% [markdown]
# ## Finding a pattern
# The correlation coefficient does not see brightness and contrast.
# %%
pattern = scene[90:150, 90:150].copy()
changed = zori.add_c(zori.r_shift_c(noisy, 1), 60)
match = zori.cross_corr_valid_norm_level(changed, pattern, dtype=np.float32)
best, x, y = zori.max_indx(match)
print(f"best match {best:.2f} at ({x}, {y})")
framed = changed.copy()
framed[y:y + 60, x:x + 60] = 255 - framed[y:y + 60, x:x + 60]
show("6_search", pattern=pattern, correlation=match, found=framed)
assert abs(x - 90) <= 1 and abs(y - 90) <= 1

# %% [markdown]
# ## Geometry
# Coordinates map; what lies outside stays as it was, so the destination is one that you made.
# %%
turned, leaning = np.zeros((2, 256, 256), np.uint8)
zori.rotate_center(scene, (0, 0, 256, 256), 20, 127.5, 127.5, zori.ZORI_INTER_CUBIC, turned)
lean = [[1, 0.2, 0], [0, 1, 10], [0, 0.001, 1]]
zori.warp_perspective(scene, (0, 0, 256, 256), lean, zori.ZORI_INTER_LINEAR, leaning)
large = zori.resize(scene[60:100, 100:140].copy(), 6, 6, zori.ZORI_INTER_CUBIC, dst_roi_size=(240, 240))
show("7_geometry", rotated=turned, perspective=leaning, six_times=large)

# %% [markdown]
# ## Spectra
# What a transform needs to know is a record. It releases itself, or at the end of `with`.
# %%
plane = zori.convert(scene, dtype=np.float32)
with zori.fft_init_alloc_r(8, 8, zori.ZorFftDivInvByN) as record:
    spectrum = zori.fft_fwd_r_to_pack(plane, record)
    strength = np.fft.fftshift(zori.ln(zori.add_c(zori.magnitude_pack(spectrum), 1.0)))
    back = zori.fft_inv_pack_to_r(spectrum, record)
show("8_spectrum", picture=plane, spectrum=strength, and_back=back)
assert np.abs(back - plane).max() < 1e-2

# %% [markdown]
# ## What can go wrong
# A status is an exception that names the argument, a defined but doubtful case a Python warning. Every function is
# there under its C name too, and `help()` has its rules.
# %%
try:
    zori.zoriFilterMedian_8u_C1R(noisy, np.empty_like(noisy), (250, 250), (5, 5), (9, 2))
except (zori.Error, ValueError) as error:
    print(error)
with warnings.catch_warnings(record=True) as seen:
    warnings.simplefilter("always")
    zori.div(np.zeros((2, 2), np.uint8), np.ones((2, 2), np.uint8))
print(seen[0].message)
print(zori.filter_median.__doc__.split("\n\n")[2])
