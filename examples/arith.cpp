// arith: flat-field correction, as an X-ray detector or a microscope needs it. Every pixel has an offset (the dark
// frame) and a gain (the flat frame, of an even brightness) of its own:
//   corrected = (raw - dark) / (flat - dark) * mean(flat - dark)
#include "support/image.h"

#include <cstdio>

using Frame = example::Image<Zor16u, 1>;
using Floats = example::Image<Zor32f, 1>;

int main()
{
  const ZorImgSize size = {640, 480};
  Frame raw(size), dark(size), flat(size), difference(size), corrected(size);
  Floats signal(size), gain(size);

  // a detector whose left half is weaker, with columns of different offset, sees a disc of half the brightness
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x) {
      const int offset = 100 + x % 7 * 10, full = x < size.width / 2 ? 20000 : 30000;
      const bool inDisc = (x - 320) * (x - 320) + (y - 240) * (y - 240) < 150 * 150;
      *dark.at(x, y) = static_cast<Zor16u>(offset);
      *flat.at(x, y) = static_cast<Zor16u>(offset + full);
      *raw.at(x, y) = static_cast<Zor16u>(offset + (inDisc ? full / 2 : full));
    }

  // the subtrahend comes first
  ZORI_CHECK(zoriSub_16u_C1RSfs(dark.data(), dark.step(), flat.data(), flat.step(), difference.data(),
                                difference.step(), size, 0));
  ZORI_CHECK(zoriConvert_16u32f_C1R(difference.data(), difference.step(), gain.data(), gain.step(), size));
  ZORI_CHECK(zoriSub_16u_C1RSfs(dark.data(), dark.step(), raw.data(), raw.step(), difference.data(), difference.step(),
                                size, 0));
  ZORI_CHECK(zoriConvert_16u32f_C1R(difference.data(), difference.step(), signal.data(), signal.step(), size));

  Zor64f mean;
  ZORI_CHECK(zoriMean_32f_C1R(gain.data(), gain.step(), size, &mean, ZorHintAccurate));
  // and so does the divisor
  ZORI_CHECK(zoriDiv_32f_C1IR(gain.data(), gain.step(), signal.data(), signal.step(), size));
  ZORI_CHECK(zoriMulC_32f_C1IR(static_cast<Zor32f>(mean), signal.data(), signal.step(), size));
  ZORI_CHECK(zoriConvert_32f16u_C1R(signal.data(), signal.step(), corrected.data(), corrected.step(), size,
                                    ZorRoundNearestEven));

  Zor16u least, greatest;
  ZORI_CHECK(zoriMinMax_16u_C1R(corrected.data(), corrected.step(), size, &least, &greatest));
  std::printf("field of %.0f, disc of %d, background of %d everywhere\n", mean, least, greatest);
  return least == 12500 && greatest == 25000 ? 0 : 1;
}
