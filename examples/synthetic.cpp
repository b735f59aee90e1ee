// synthetic: how much a smoothing filter helps against noise, measured on pictures that are made for it.
#include "support/image.h"

#include <cmath>
#include <cstdio>

using example::Grey;

namespace {

// Distance from the original in decibels; more is better.
double quality(const Grey& original, const Grey& picture)
{
  Zor64f norm;
  ZORI_CHECK(
    zoriNormDiff_L2_8u_C1R(original.data(), original.step(), picture.data(), picture.step(), original.size(), &norm));
  const double pixels = static_cast<double>(original.width()) * original.height();
  return 20 * std::log10(255 * std::sqrt(pixels) / norm);
}

} // namespace

int main()
{
  const ZorImgSize size = {256, 256};
  bool helped = true;
  for (int deviation : {5, 10, 20}) {
    Grey ramp(size), noisy(size), smooth(size);
    ZORI_CHECK(zoriImageRamp_8u_C1R(ramp.data(), ramp.step(), size, 40, 0.7f, ZorRampAlongX));
    ZORI_CHECK(zoriCopy_8u_C1R(ramp.data(), ramp.step(), noisy.data(), noisy.step(), size));
    Zor32u seed = 42; // the same seed, the same noise
    ZORI_CHECK(
      zoriAddRandGauss_Direct_8u_C1IR(noisy.data(), noisy.step(), size, 0, static_cast<Zor8u>(deviation), &seed));

    Grey framed(size.width + 4, size.height + 4);
    ZORI_CHECK(zoriCopyReplicateBorder_8u_C1R(noisy.data(), noisy.step(), size, framed.data(), framed.step(),
                                              framed.size(), 2, 2));
    ZORI_CHECK(zoriFilterGauss_8u_C1R(framed.at(2, 2), framed.step(), smooth.data(), smooth.step(), size, ZorMask5x5));

    const double before = quality(ramp, noisy), after = quality(ramp, smooth);
    std::printf("noise of %2d: %.1f dB, after Gauss 5x5 %.1f dB\n", deviation, before, after);
    helped = helped && after > before + 6;
  }
  return helped ? 0 : 1;
}
