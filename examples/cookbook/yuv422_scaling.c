/* A YUV 4:2:2 frame (bytes Y U Y V) at half its size, in one call.
 *
 * Luma is resampled at pixels, chroma at pairs of pixels; widths are even. */
#include "picture.h"

int main(int argc, char** argv)
{
  Picture grey = pictureOpen(argc, argv, 1);
  const ZorImgSize size = {grey.size.width / 4 * 4, grey.size.height / 2 * 2}, half = {size.width / 2, size.height / 2};
  const ZorImgRect whole = {0, 0, size.width, size.height};
  const int step = size.width * 2, halfStep = half.width * 2;
  Zor8u* frame = malloc((size_t)step * (size_t)size.height);
  Zor8u* small = malloc((size_t)halfStep * (size_t)half.height);
  if (!frame || !small) return 1;
  for (int y = 0; y < size.height; ++y) /* a grey frame: chroma at its middle */
    for (int x = 0; x < size.width; ++x) {
      frame[y * step + 2 * x] = grey.data[y * grey.step + x];
      frame[y * step + 2 * x + 1] = 128;
    }

  CALL(zoriResizeYUV422_8u_C2R(frame, size, step, whole, small, halfStep, half, 0.5, 0.5, ZORI_INTER_LINEAR));

  Picture out = pictureNew(half.width, half.height, 1);
  for (int y = 0; y < half.height; ++y)
    for (int x = 0; x < half.width; ++x) {
      EXPECT(small[y * halfStep + 2 * x + 1] == 128);
      out.data[y * out.step + x] = small[y * halfStep + 2 * x];
    }
  pictureSave(&out, 1, argc, argv, "yuv422_scaling");
  free(frame), free(small);
  pictureFree(&grey), pictureFree(&out);
  return 0;
}
