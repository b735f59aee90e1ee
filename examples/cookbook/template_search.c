/* Template search: where in a picture a small one is found, under other light and with noise.
 *
 * The correlation coefficient (NormLevel) does not see brightness and contrast: 1 is the template itself. The greatest
 * value is the place of the template's corner, since the Valid form visits corners inside the picture alone. */
#include "picture.h"

int main(int argc, char** argv)
{
  Picture in = pictureOpen(argc, argv, 1);
  const ZorImgSize size = in.size, part = {size.width / 6, size.height / 6};
  const int x0 = size.width / 2, y0 = size.height / 5; /* the template is cut out here */
  Picture pattern = pictureNew(part.width, part.height, 1);
  CALL(zoriCopy_8u_C1R(in.data + y0 * in.step + x0, in.step, pattern.data, pattern.step, part));
  /* the picture gets half the contrast, more light, and noise */
  unsigned seed = 5;
  CALL(zoriRShiftC_8u_C1IR(1, in.data, in.step, size));
  CALL(zoriAddC_8u_C1IRSfs(60, in.data, in.step, size, 0));
  CALL(zoriAddRandUniform_Direct_8u_C1IR(in.data, in.step, size, 0, 12, &seed));

  const ZorImgSize places = {size.width - part.width + 1, size.height - part.height + 1};
  int step;
  Zor32f* match = zoriMalloc_32f_C1(places.width, places.height, &step);
  if (!match) return 1;
  CALL(zoriCrossCorrValid_NormLevel_8u32f_C1R(in.data, in.step, size, pattern.data, pattern.step, part, match, step));
  Zor32f best;
  int x, y;
  CALL(zoriMaxIndx_32f_C1R(match, step, places, &best, &x, &y));
  printf("best match %.3f at (%d, %d)\n", best, x, y);
  EXPECT(x == x0 && y == y0 && best > 0.8);

  const ZorImgSize wide = {part.width, 2}, high = {2, part.height}; /* a white frame about it */
  Zor8u* corner = in.data + y * in.step + x;
  CALL(zoriSet_8u_C1R(255, corner, in.step, wide));
  CALL(zoriSet_8u_C1R(255, corner + (part.height - 2) * in.step, in.step, wide));
  CALL(zoriSet_8u_C1R(255, corner, in.step, high));
  CALL(zoriSet_8u_C1R(255, corner + part.width - 2, in.step, high));
  pictureSave(&in, 1, argc, argv, "template_search");
  zoriFree(match);
  pictureFree(&in), pictureFree(&pattern);
  return 0;
}
