/* Gradient magnitude: sqrt(gx^2 + gy^2) by Sobel's kernels in 16 bits, the root in single precision.
 *
 * The kernels read one pixel beyond the region, so the picture gets a margin first (margins.md). */
#include "picture.h"

int main(int argc, char** argv)
{
  Picture in = pictureOpen(argc, argv, 1), out = pictureNew(in.size.width, in.size.height, 1);
  const ZorImgSize size = in.size, outer = {size.width + 2, size.height + 2};
  Picture framed = pictureNew(outer.width, outer.height, 1);
  CALL(zoriCopyReplicateBorder_8u_C1R(in.data, in.step, size, framed.data, framed.step, outer, 1, 1));
  const Zor8u* inner = framed.data + framed.step + 1;

  int step, fstep;
  Zor16s* edge = zoriMalloc_16s_C1(size.width, size.height, &step);
  Zor32f* gx = zoriMalloc_32f_C1(size.width, size.height, &fstep);
  Zor32f* gy = zoriMalloc_32f_C1(size.width, size.height, &fstep);
  if (!edge || !gx || !gy) return 1;
  CALL(zoriFilterSobelVert_8u16s_C1R(inner, framed.step, edge, step, size, ZorMask3x3));
  CALL(zoriConvert_16s32f_C1R(edge, step, gx, fstep, size));
  CALL(zoriFilterSobelHoriz_8u16s_C1R(inner, framed.step, edge, step, size, ZorMask3x3));
  CALL(zoriConvert_16s32f_C1R(edge, step, gy, fstep, size));
  CALL(zoriSqr_32f_C1IR(gx, fstep, size));
  CALL(zoriSqr_32f_C1IR(gy, fstep, size));
  CALL(zoriAdd_32f_C1IR(gx, fstep, gy, fstep, size));
  CALL(zoriSqrt_32f_C1IR(gy, fstep, size));
  CALL(zoriMulC_32f_C1IR(0.25f, gy, fstep, size)); /* Sobel's weights sum to 4 a side */
  CALL(zoriConvert_32f8u_C1R(gy, fstep, out.data, out.step, size, ZorRoundNearestEven));

  Zor8u greatest;
  CALL(zoriMax_8u_C1R(out.data, out.step, size, &greatest));
  EXPECT(greatest > 50);
  pictureSave(&out, 1, argc, argv, "gradient");
  zoriFree(edge), zoriFree(gx), zoriFree(gy);
  pictureFree(&in), pictureFree(&out), pictureFree(&framed);
  return 0;
}
