// Filters that smooth what is alike and leave edges: bilateral, Wiener.
#include "tour/tour.h"

#include <vector>

namespace tour {

namespace {

constexpr int margin = 4;

// Noise as of a sensor in little light, and a margin that repeats the edge.
Grey noisyInFrame(const Grey& in)
{
  const ZorImgSize size = in.size(), outer = {size.width + 2 * margin, size.height + 2 * margin};
  Grey noisy(size), framed(outer);
  Zor32u seed = 20261123;
  ZORI_CHECK(zoriCopy_8u_C1R(in.data(), in.step(), noisy.data(), noisy.step(), size));
  ZORI_CHECK(zoriAddRandGauss_Direct_8u_C1IR(noisy.data(), noisy.step(), size, 0, 16, &seed));
  ZORI_CHECK(zoriCopyReplicateBorder_8u_C1R(noisy.data(), noisy.step(), size, framed.data(), framed.step(), outer,
                                            margin, margin));
  return framed;
}

} // namespace

void edgeKeepingStages(Tour& tour)
{
  const ZorImgSize size = tour.size();
  const Grey framed = noisyInFrame(tour.grey());
  const Zor8u* const noisy = framed.at(margin, margin);
  Grey out(size);
  ZORI_CHECK(zoriCopy_8u_C1R(noisy, framed.step(), out.data(), out.step(), size));
  tour.stage("Noise (detail)").show(out, View::detail);

  // differences up to twice the noise are taken for noise
  const ZorImgSize window = {9, 9};
  int bytes = 0;
  ZORI_CHECK(zoriFilterBilateralGetBufSize_8u_C1R(ZorBilateralGauss, size, window, &bytes));
  std::vector<Zor8u> memory(static_cast<std::size_t>(bytes));
  ZorBilateralState* const state = reinterpret_cast<ZorBilateralState*>(memory.data());
  ZORI_CHECK(zoriFilterBilateralInit_8u_C1R(ZorBilateralGauss, window, 32 * 32, 3 * 3, 1, state));
  tour.stage("Bilateral filter (detail)")
    .time("FilterBilateral_8u_C1R",
          [&] { return zoriFilterBilateral_8u_C1R(noisy, framed.step(), out.data(), out.step(), size, window, state); })
    .show(out, View::detail);

  // the noise is known: its variance as a part of the squared full scale
  const ZorImgSize mask = {5, 5};
  const ZorImgPoint centre = {2, 2};
  Zor32f noise[1] = {16 * 16 / (255.0f * 255.0f)};
  ZORI_CHECK(zoriFilterWienerGetBufferSize(size, mask, 1, &bytes));
  memory.resize(static_cast<std::size_t>(bytes));
  tour.stage("Wiener filter (detail)")
    .time("FilterWiener_8u_C1R",
          [&] {
            return zoriFilterWiener_8u_C1R(noisy, framed.step(), out.data(), out.step(), size, mask, centre, noise,
                                           memory.data());
          })
    .show(out, View::detail);
}

} // namespace tour
