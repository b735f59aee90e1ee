// A blurred picture restored: by its spectrum, and step by step.
#include "tour/tour.h"

#include <algorithm>
#include <cmath>
#include <memory>

namespace tour {

namespace {

constexpr int side = 9, anchor = side / 2, order = 9;

using Floats = Image<Zor32f, 1>;

// What a lens spreads: some of the light over a bell, the rest stays where it belongs.
struct Blur {
  Zor32f taps[side * side];
  Blur(float width, float spread)
  {
    float sum = 0;
    for (int y = 0; y < side; ++y)
      for (int x = 0; x < side; ++x) {
        const int square = (x - anchor) * (x - anchor) + (y - anchor) * (y - anchor);
        sum += taps[y * side + x] = std::exp(-static_cast<float>(square) / (2 * width * width));
      }
    for (float& tap : taps) tap *= spread / sum;
    taps[anchor * side + anchor] += 1 - spread;
  }
};

// The left half of one picture beside the right half of another.
Grey halves(const Floats& left, const Floats& right)
{
  const ZorImgSize size = left.size(), half = {size.width / 2, size.height};
  Grey out(size);
  ZORI_CHECK(zoriConvert_32f8u_C1R(right.data(), right.step(), out.data(), out.step(), size, ZorRoundNearestEven));
  if (half.width > 0)
    ZORI_CHECK(zoriConvert_32f8u_C1R(left.data(), left.step(), out.data(), out.step(), half, ZorRoundNearestEven));
  return out;
}

} // namespace

void restorationStages(Tour& tour)
{
  // the middle of the picture, small enough for many rounds
  const ZorImgSize size = {std::min(tour.size().width, 320), std::min(tour.size().height, 240)};
  const long long pixels = static_cast<long long>(size.width) * size.height;
  const Zor8u* const middle =
    tour.grey().at((tour.size().width - size.width) / 2, (tour.size().height - size.height) / 2);
  Grey framed(size.width + side - 1, size.height + side - 1), blurred(size);
  Floats observed(size), restored(size);
  ZORI_CHECK(zoriCopyReplicateBorder_8u_C1R(middle, tour.grey().step(), size, framed.data(), framed.step(),
                                            framed.size(), anchor, anchor));
  const auto observe = [&](const Blur& blur) {
    ZORI_CHECK(zoriFilter32f_8u_C1R(framed.at(anchor, anchor), framed.step(), blurred.data(), blurred.step(), size,
                                    blur.taps, {side, side}, {anchor, anchor}));
    ZORI_CHECK(zoriConvert_8u32f_C1R(blurred.data(), blurred.step(), observed.data(), observed.step(), size));
  };

  const Blur haze(3, 0.7f);
  observe(haze);
  ZorDeconvFftState* madeFft = nullptr;
  ZORI_CHECK(zoriDeconvFFTInitAlloc_32f_C1R(&madeFft, haze.taps, side, order, 1e-4f));
  const std::unique_ptr<ZorDeconvFftState, ZorStatus (*)(ZorDeconvFftState*)> fft(madeFft, zoriDeconvFFTFree_32f_C1R);
  tour.stage("Through a haze, and without it")
    .time(
      "DeconvFFT_32f_C1R",
      [&] {
        return zoriDeconvFFT_32f_C1R(observed.data(), observed.step(), restored.data(), restored.step(), size,
                                     fft.get());
      },
      pixels)
    .show(halves(observed, restored), View::detail);

  const Blur outOfFocus(1.5f, 1);
  observe(outOfFocus);
  const ZorImgSize most = {std::max(size.width, side), std::max(size.height, side)};
  ZorDeconvLrState* madeLr = nullptr;
  ZORI_CHECK(zoriDeconvLRInitAlloc_32f_C1R(&madeLr, outOfFocus.taps, side, most, 1e-3f));
  const std::unique_ptr<ZorDeconvLrState, ZorStatus (*)(ZorDeconvLrState*)> lr(madeLr, zoriDeconvLRFree_32f_C1R);
  tour.stage("Out of focus, and restored")
    .highlight()
    .time(
      "DeconvLR_32f_C1R",
      [&] {
        return zoriDeconvLR_32f_C1R(observed.data(), observed.step(), restored.data(), restored.step(), size, 10,
                                    lr.get());
      },
      pixels)
    .note("10 rounds")
    .show(halves(observed, restored), View::detail);
}

} // namespace tour
