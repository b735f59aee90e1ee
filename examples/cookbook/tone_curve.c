/* A tone curve through a few points: shadows lifted, lights held.
 *
 * LUT_Linear draws straight lines between (level, value) pairs, LUT_Cubic a smooth curve through them. Values may be
 * outside the range of a byte: results saturate. */
#include "picture.h"

int main(int argc, char** argv)
{
  static const Zor32s levels[] = {0, 40, 128, 220, 256}, values[] = {0, 70, 150, 235, 256};
  Picture in = pictureOpen(argc, argv, 3), out = pictureNew(in.size.width, in.size.height, 3);
  const Zor32s* const allLevels[3] = {levels, levels, levels};
  const Zor32s* const allValues[3] = {values, values, values};
  const int counts[3] = {5, 5, 5};
  CALL(zoriLUT_Cubic_8u_C3R(in.data, in.step, out.data, out.step, in.size, allValues, allLevels, counts));

  Zor64f before[3], after[3];
  CALL(zoriMean_8u_C3R(in.data, in.step, in.size, before));
  CALL(zoriMean_8u_C3R(out.data, out.step, out.size, after));
  printf("mean of green: %.1f before, %.1f after\n", before[1], after[1]);
  EXPECT(after[1] > before[1]);
  pictureSave(&out, 3, argc, argv, "tone_curve");
  pictureFree(&in), pictureFree(&out);
  return 0;
}
