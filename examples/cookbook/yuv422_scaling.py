"""A YUV 4:2:2 frame (bytes Y U Y V) at half its size, in one call: luma at pixels, chroma at pairs of pixels."""
import numpy as np
import picture
import zori

grey = picture.opened(1)
height, width = grey.shape[0] // 2 * 2, grey.shape[1] // 4 * 4
frame = np.full((height, width, 2), 128, np.uint8)  # a grey frame: chroma at its middle
frame[:, :, 0] = grey[:height, :width]

small = np.empty((height // 2, width // 2, 2), np.uint8)
zori.zoriResizeYUV422_8u_C2R(frame, (width, height), (0, 0, width, height), small, (width // 2, height // 2), 0.5, 0.5,
                             zori.ZORI_INTER_LINEAR)

assert (small[:, :, 1] == 128).all()
picture.saved(small[:, :, 0], "yuv422_scaling")
