/* Scan clean-up: a page photographed in uneven light becomes black writing on white paper.
 *
 * The background is what remains when everything dark and small goes: a dilation (the greatest value of a window wider
 * than strokes), smoothed by a box. The page divided by its background has paper at 255 everywhere; Otsu's method
 * finds the threshold. */
#include "picture.h"

int main(int argc, char** argv)
{
  Picture page = pictureOpen(argc, argv, 1);
  const ZorImgSize size = page.size, window = {15, 15};
  const ZorImgPoint centre = {7, 7};
  const ZorImgSize outer = {size.width + 14, size.height + 14};
  Picture framed = pictureNew(outer.width, outer.height, 1), ground = pictureNew(size.width, size.height, 1),
          out = pictureNew(size.width, size.height, 1);
  const int at = 7 * framed.step + 7;

  CALL(zoriCopyReplicateBorder_8u_C1R(page.data, page.step, size, framed.data, framed.step, outer, 7, 7));
  CALL(zoriFilterMax_8u_C1R(framed.data + at, framed.step, ground.data, ground.step, size, window, centre));
  CALL(zoriCopyReplicateBorder_8u_C1R(ground.data, ground.step, size, framed.data, framed.step, outer, 7, 7));
  CALL(zoriFilterBox_8u_C1R(framed.data + at, framed.step, ground.data, ground.step, size, window, centre));

  /* 255 * page / ground: Div takes whole quotients, so the scale factor -8 makes them parts of 256 (saturating at 255);
   * its first source is the denominator */
  CALL(zoriDiv_8u_C1RSfs(ground.data, ground.step, page.data, page.step, out.data, out.step, size, -8));
  Zor8u threshold;
  CALL(zoriComputeThreshold_Otsu_8u_C1R(out.data, out.step, size, &threshold));
  CALL(zoriCompareC_8u_C1R(out.data, out.step, threshold, ground.data, ground.step, size, ZorCmpGreater));

  int black, white;
  CALL(zoriCountInRange_8u_C1R(ground.data, ground.step, size, &black, 0, 0));
  CALL(zoriCountInRange_8u_C1R(ground.data, ground.step, size, &white, 255, 255));
  printf("threshold %d, %.1f%% black\n", threshold, 100.0 * black / (black + white));
  EXPECT(black + white == size.width * size.height && black > 0 && white > black);
  pictureSave(&ground, 1, argc, argv, "scan_cleanup");
  pictureFree(&page), pictureFree(&framed), pictureFree(&ground), pictureFree(&out);
  return 0;
}
