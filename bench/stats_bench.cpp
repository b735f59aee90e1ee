// Benchmarks of statistics.
#include "harness.h"
#include "zori/stats.h"

#include <memory>

using bench::Image;
using bench::Run;

namespace {

// A reduction of one image, or of two, to numbers.
template <class T, class F> bench::Make reduce(int channels, F function)
{
  return [=](ZorImgSize size) {
    const Image<T> src(size, channels);
    return Run{src.bytes(), 1, [=] { return function(static_cast<const T*>(src), src.step, size); }};
  };
}
template <class T, class F> bench::Make reduceTwo(int channels, F function)
{
  return [=](ZorImgSize size) {
    const Image<T> a(size, channels), b(size, channels);
    return Run{a.bytes() + b.bytes(), 1,
               [=] { return function(static_cast<const T*>(a), a.step, static_cast<const T*>(b), b.step, size); }};
  };
}

} // namespace

static const bench::Group stats("stats", [](bench::Group& g) {
  [[maybe_unused]] static Zor64f d[4];
  static Zor8u b[8];
  static Zor16s w[8];
  static Zor32f f[8];
  [[maybe_unused]] static int x[4], y[4];
  g.both("Sum 8u C1", reduce<Zor8u>(1, [](auto p, int s, ZorImgSize r) { return zoriSum_8u_C1R(p, s, r, d); }));
  g.both("Sum 16s C1", reduce<Zor16s>(1, [](auto p, int s, ZorImgSize r) { return zoriSum_16s_C1R(p, s, r, d); }));
  g.both("Sum 32f C1 fast",
         reduce<Zor32f>(1, [](auto p, int s, ZorImgSize r) { return zoriSum_32f_C1R(p, s, r, d, ZorHintFast); }));
  g.both("Mean 8u C3", reduce<Zor8u>(3, [](auto p, int s, ZorImgSize r) { return zoriMean_8u_C3R(p, s, r, d); }));
  g.both("MinMax 8u C1",
         reduce<Zor8u>(1, [](auto p, int s, ZorImgSize r) { return zoriMinMax_8u_C1R(p, s, r, b, b + 4); }));
  g.both("MinMax 16s C1",
         reduce<Zor16s>(1, [](auto p, int s, ZorImgSize r) { return zoriMinMax_16s_C1R(p, s, r, w, w + 4); }));
  g.both("MinMax 32f C1",
         reduce<Zor32f>(1, [](auto p, int s, ZorImgSize r) { return zoriMinMax_32f_C1R(p, s, r, f, f + 4); }));
  g.both("MaxIndx 8u C1",
         reduce<Zor8u>(1, [](auto p, int s, ZorImgSize r) { return zoriMaxIndx_8u_C1R(p, s, r, b, x, y); }));
  g.both("MaxIndx 32f C1",
         reduce<Zor32f>(1, [](auto p, int s, ZorImgSize r) { return zoriMaxIndx_32f_C1R(p, s, r, f, x, y); }));
  g.both("Norm_L2 8u C1", reduce<Zor8u>(1, [](auto p, int s, ZorImgSize r) { return zoriNorm_L2_8u_C1R(p, s, r, d); }));
  g.both("Norm_Inf 16s C1",
         reduce<Zor16s>(1, [](auto p, int s, ZorImgSize r) { return zoriNorm_Inf_16s_C1R(p, s, r, d); }));
  g.both("NormDiff_L1 8u C1", reduceTwo<Zor8u>(1, [](auto p, int s, auto q, int t, ZorImgSize r) {
           return zoriNormDiff_L1_8u_C1R(p, s, q, t, r, d);
         }));
  g.both("NormDiff_L2 8u C1", reduceTwo<Zor8u>(1, [](auto p, int s, auto q, int t, ZorImgSize r) {
           return zoriNormDiff_L2_8u_C1R(p, s, q, t, r, d);
         }));
  g.both("NormRel_L2 32f C1", reduceTwo<Zor32f>(1, [](auto p, int s, auto q, int t, ZorImgSize r) {
           return zoriNormRel_L2_32f_C1R(p, s, q, t, r, d, ZorHintFast);
         }));
  g.both("CountInRange 8u C1",
         reduce<Zor8u>(1, [](auto p, int s, ZorImgSize r) { return zoriCountInRange_8u_C1R(p, s, r, x, 50, 200); }));
  g.both("MinEvery 8u C1", [](ZorImgSize size) {
    const Image<Zor8u> src(size), dst(size);
    return Run{src.bytes() + dst.bytes(), dst.bytes(),
               [=] { return zoriMinEvery_8u_C1IR(src, src.step, dst, dst.step, size); }};
  });
  g.both("Moments64f 8u C1", [](ZorImgSize size) {
    const Image<Zor8u> src(size);
    ZorMomentState* raw = nullptr;
    zoriMomentInitAlloc_64f(&raw, ZorHintNone);
    const std::shared_ptr<ZorMomentState> state(raw, zoriMomentFree_64f);
    return Run{src.bytes(), 1, [=] { return zoriMoments64f_8u_C1R(src, src.step, size, state.get()); }};
  });
  g.both("QualityIndex 8u32f C1", reduceTwo<Zor8u>(1, [](auto p, int s, auto q, int t, ZorImgSize r) {
           return zoriQualityIndex_8u32f_C1R(p, s, q, t, r, f);
         }));
});
