// point: a dull picture gets its contrast back, and its dark objects are counted. The histogram says which grey values
// occur: the darkest and brightest hundredth may go to black and white, everything between is stretched.
#include "support/image.h"

#include <cstdio>

using example::Grey;

int main()
{
  const ZorImgSize size = {320, 240};
  Grey dull(size), clear(size), objects(size);
  for (int y = 0; y < size.height; ++y) // dark squares on brighter paper, all of it between 90 and 140
    for (int x = 0; x < size.width; ++x) {
      const bool onObject = x % 80 >= 20 && x % 80 < 60 && y % 80 >= 20 && y % 80 < 60;
      *dull.at(x, y) = static_cast<Zor8u>((onObject ? 90 : 130) + (x * 7 + y * 13) % 10);
    }

  Zor32s counts[256], bounds[257];
  ZORI_CHECK(zoriHistogramEven_8u_C1R(dull.data(), dull.step(), size, counts, bounds, 257, 0, 256));
  const int hundredth = size.width * size.height / 100;
  Zor32s low = 0, high = 255;
  for (int seen = counts[0]; seen <= hundredth; seen += counts[++low]) {}
  for (int seen = counts[255]; seen <= hundredth; seen += counts[--high]) {}

  const Zor32s levels[4] = {0, low, high, 256}, values[4] = {0, 0, 255, 255};
  ZORI_CHECK(zoriLUT_Linear_8u_C1R(dull.data(), dull.step(), clear.data(), clear.step(), size, values, levels, 4));

  Zor8u threshold;
  int pixels = 0;
  ZORI_CHECK(zoriComputeThreshold_Otsu_8u_C1R(clear.data(), clear.step(), size, &threshold));
  ZORI_CHECK(
    zoriCompareC_8u_C1R(clear.data(), clear.step(), threshold, objects.data(), objects.step(), size, ZorCmpLessEq));
  ZORI_CHECK(zoriCountInRange_8u_C1R(objects.data(), objects.step(), size, &pixels, 255, 255));

  std::printf("grey values %d to %d stretched to 0 to 255; %d pixels at or below %d\n", low, high, pixels, threshold);
  return pixels == 12 * 40 * 40 ? 0 : 1;
}
