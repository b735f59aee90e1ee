/* A page seen askew, straightened: the quadrangle of its corners in the photograph becomes an upright rectangle. */
#include "picture.h"

int main(int argc, char** argv)
{
  Picture page = pictureOpen(argc, argv, 3);
  const ZorImgSize size = page.size;
  const ZorImgRect whole = {0, 0, size.width, size.height};
  const double w = size.width - 1, h = size.height - 1;
  const double corners[4][2] = {{0, 0}, {w, 0}, {w, h}, {0, h}};
  const double askew[4][2] = {{0.12 * w, 0.10 * h}, {0.95 * w, 0.02 * h}, {0.85 * w, 0.93 * h}, {0.03 * w, 0.80 * h}};
  Picture photo = pictureNew(size.width, size.height, 3), straight = pictureNew(size.width, size.height, 3);
  CALL(zoriWarpPerspectiveQuad_8u_C3R(page.data, size, page.step, whole, corners, photo.data, photo.step, whole, askew,
                                      ZORI_INTER_LINEAR)); /* the photograph */
  CALL(zoriWarpPerspectiveQuad_8u_C3R(photo.data, size, photo.step, whole, askew, straight.data, straight.step, whole,
                                      corners, ZORI_INTER_CUBIC));

  Zor64f difference[3];
  const ZorImgSize inner = {size.width - 20, size.height - 20};
  CALL(zoriNormDiff_L1_8u_C3R(page.data + 10 * page.step + 30, page.step, straight.data + 10 * straight.step + 30,
                              straight.step, inner, difference));
  const double mean = difference[1] / ((double)inner.width * inner.height);
  printf("mean difference from the original page: %.2f levels\n", mean);
  EXPECT(mean < 8);
  pictureSave(&straight, 3, argc, argv, "perspective_page");
  pictureFree(&page), pictureFree(&photo), pictureFree(&straight);
  return 0;
}
