/* Motion and defects: where two pictures of one scene differ by more than noise.
 *
 * Absolute difference, a median against single noisy pixels, a threshold, and the moments of the mask tell where the
 * change is and how large. */
#include "picture.h"

int main(int argc, char** argv)
{
  Picture before = pictureOpen(argc, argv, 1);
  const ZorImgSize size = before.size, spot = {24, 16};
  Picture after = pictureNew(size.width, size.height, 1), mask = pictureNew(size.width, size.height, 1);
  CALL(zoriCopy_8u_C1R(before.data, before.step, after.data, after.step, size));
  unsigned seed = 7;
  CALL(zoriAddRandUniform_Direct_8u_C1IR(after.data, after.step, size, 0, 6, &seed));
  const int x0 = size.width / 4, y0 = size.height / 2;
  CALL(zoriXorC_8u_C1IR(0x80, after.data + y0 * after.step + x0, after.step, spot)); /* the defect */

  /* |before - after| in `other` */
  Picture other = pictureNew(size.width, size.height, 1);
  CALL(zoriSub_8u_C1RSfs(before.data, before.step, after.data, after.step, other.data, other.step, size, 0));
  CALL(zoriSub_8u_C1RSfs(after.data, after.step, before.data, before.step, mask.data, mask.step, size, 0));
  CALL(zoriMaxEvery_8u_C1IR(mask.data, mask.step, other.data, other.step, size));
  const ZorImgSize inner = {size.width - 2, size.height - 2}, three = {3, 3};
  const ZorImgPoint centre = {1, 1};
  CALL(zoriSet_8u_C1R(0, mask.data, mask.step, size));
  CALL(zoriFilterMedian_8u_C1R(other.data + other.step + 1, other.step, mask.data + mask.step + 1, mask.step, inner,
                               three, centre));
  CALL(zoriCompareC_8u_C1R(mask.data, mask.step, 40, mask.data, mask.step, size, ZorCmpGreater));

  ZorMomentState* moments;
  CALL(zoriMomentInitAlloc_64s(&moments, ZorHintNone));
  CALL(zoriMoments64s_8u_C1R(mask.data, mask.step, size, moments));
  const ZorImgPoint origin = {0, 0};
  Zor64s area, sumX, sumY;
  CALL(zoriGetSpatialMoment_64s(moments, 0, 0, 0, origin, &area, 0));
  CALL(zoriGetSpatialMoment_64s(moments, 1, 0, 0, origin, &sumX, 0));
  CALL(zoriGetSpatialMoment_64s(moments, 0, 1, 0, origin, &sumY, 0));
  CALL(zoriMomentFree_64s(moments));
  EXPECT(area > 0);
  const double x = (double)sumX / (double)area, y = (double)sumY / (double)area, pixels = (double)area / 255;
  printf("%.0f pixels changed, about (%.1f, %.1f)\n", pixels, x, y);
  EXPECT(pixels > 0.8 * 24 * 16 && pixels < 1.2 * 24 * 16 && x > x0 && x < x0 + 24 && y > y0 && y < y0 + 16);
  pictureSave(&mask, 1, argc, argv, "change_detection");
  pictureFree(&before), pictureFree(&after), pictureFree(&mask), pictureFree(&other);
  return 0;
}
