// Benchmarks of deconvolution: a square that fills its transform, and one round of the iterations.
#include "harness.h"
#include "zori/filter.h"

#include <string>
#include <vector>

using bench::Image;
using bench::Run;

namespace {

// A pyramid of sum 1.
std::vector<Zor32f> kernelOf(int side)
{
  std::vector<Zor32f> taps;
  const auto height = [=](int i) { return static_cast<Zor32f>(i < side / 2 ? i + 1 : side - i); };
  const Zor32f half = static_cast<Zor32f>((side + 1) / 2), sum = half * half * half * half;
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) taps.push_back(height(y) * height(x) / sum);
  return taps;
}

template <class State> std::shared_ptr<State> held(State* state, ZorStatus (*release)(State*))
{
  return {state, release};
}

} // namespace

static const bench::Group deconvolution("filter", [](bench::Group& g) {
  for (const int channels : {1, 3}) {
    const std::string layout = " 32f C" + std::to_string(channels);
    g.at("DeconvFFT" + layout + " 9x9 504", {504, 504}, [=](ZorImgSize size) {
      const Image<Zor32f> src(size, channels), dst(size, channels);
      ZorDeconvFftState* made = nullptr;
      zoriDeconvFFTInitAlloc_32f_C1R(&made, kernelOf(9).data(), 9, 9, 1e-3f);
      const auto state = held(made, zoriDeconvFFTFree_32f_C1R);
      const auto function = channels == 3 ? zoriDeconvFFT_32f_C3R : zoriDeconvFFT_32f_C1R;
      return Run{src.bytes(), dst.bytes(), [=] { return function(src, src.step, dst, dst.step, size, state.get()); }};
    });
    for (const int side : {3, 9})
      g.at("DeconvLR" + layout + " " + std::to_string(side) + "x" + std::to_string(side) + " 1 round 512", {512, 512},
           [=](ZorImgSize size) {
             const Image<Zor32f> src(size, channels), dst(size, channels);
             ZorDeconvLrState* made = nullptr;
             zoriDeconvLRInitAlloc_32f_C1R(&made, kernelOf(side).data(), side, size, 1e-3f);
             const auto state = held(made, zoriDeconvLRFree_32f_C1R);
             const auto function = channels == 3 ? zoriDeconvLR_32f_C3R : zoriDeconvLR_32f_C1R;
             return Run{src.bytes(), dst.bytes(),
                        [=] { return function(src, src.step, dst, dst.step, size, 1, state.get()); }};
           });
  }
});
