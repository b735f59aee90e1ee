/* Borders for floats: the border functions take 8u and 32s; a border only moves pixels, so a float image goes through
 * as 32s, bit for bit. */
#include "picture.h"

int main(int argc, char** argv)
{
  Picture in = pictureOpen(argc, argv, 1), out = pictureNew(in.size.width, in.size.height, 1);
  const ZorImgSize size = in.size, outer = {size.width + 4, size.height + 4};
  int step, framedStep;
  Zor32f* image = zoriMalloc_32f_C1(size.width, size.height, &step);
  Zor32f* framed = zoriMalloc_32f_C1(outer.width, outer.height, &framedStep);
  if (!image || !framed) return 1;
  CALL(zoriConvert_8u32f_C1R(in.data, in.step, image, step, size));

  /* the edge repeated on every side, two pixels wide */
  CALL(zoriCopyReplicateBorder_32s_C1R((const Zor32s*)image, step, size, (Zor32s*)framed, framedStep, outer, 2, 2));
  const Zor32f* inner = (const Zor32f*)((const Zor8u*)framed + 2 * framedStep) + 2;
  EXPECT(framed[0] == image[0] && inner[0] == image[0]);
  CALL(zoriFilterGauss_32f_C1R(inner, framedStep, image, step, size, ZorMask5x5));

  CALL(zoriConvert_32f8u_C1R(image, step, out.data, out.step, size, ZorRoundNearestEven));
  pictureSave(&out, 1, argc, argv, "borders_32f");
  zoriFree(image), zoriFree(framed);
  pictureFree(&in), pictureFree(&out);
  return 0;
}
