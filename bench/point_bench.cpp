// Benchmarks of thresholds, comparisons and histograms.
#include "harness.h"
#include "zori/point.h"

using bench::Image;
using bench::Run;

namespace {

// Masks of several channels: one byte a pixel.
template <class T, class F>
void compareConstant(bench::Group& g, const char* name, int channels, F function, const T* constant)
{
  g.both(name, [=](ZorImgSize size) {
    const Image<T> src(size, channels);
    const Image<Zor8u> dst(size);
    return Run{src.bytes(), dst.bytes(),
               [=] { return function(src, src.step, constant, dst, dst.step, size, ZorCmpLess); }};
  });
}
template <class T, class F> void compareImages(bench::Group& g, const char* name, int channels, F function)
{
  g.both(name, [=](ZorImgSize size) {
    const Image<T> a(size, channels), b(size, channels);
    const Image<Zor8u> dst(size);
    return Run{a.bytes() + b.bytes(), dst.bytes(),
               [=] { return function(a, a.step, b, b.step, dst, dst.step, size, ZorCmpLess); }};
  });
}

} // namespace

static const bench::Group point("point", [](bench::Group& g) {
  g.map(
    "Threshold_GT 8u C1", zoriThreshold_GT_8u_C1R, 1, [](Zor8u x) { return x < 100 ? x : Zor8u(100); }, Zor8u(100));
  g.map(
    "Threshold_GT 16s C1", zoriThreshold_GT_16s_C1R, 1, [](Zor16s x) { return x < 100 ? x : Zor16s(100); },
    Zor16s(100));
  g.map(
    "Threshold_GT 32f C1", zoriThreshold_GT_32f_C1R, 1, [](Zor32f x) { return x < 100 ? x : 100.0f; }, 100.0f);
  g.map(
    "Threshold_LTVal 8u C1", zoriThreshold_LTVal_8u_C1R, 1, [](Zor8u x) { return x < 100 ? Zor8u(7) : x; }, Zor8u(100),
    Zor8u(7));
  g.map(
    "Threshold_LTValGTVal 8u C1", zoriThreshold_LTValGTVal_8u_C1R, 1,
    [](Zor8u x) { return x < 50    ? Zor8u(7)
                         : x > 200 ? Zor8u(9)
                                   : x; }, Zor8u(50), Zor8u(7), Zor8u(200), Zor8u(9));
  static const Zor8u low[3] = {50, 60, 70}, high[3] = {200, 190, 180};
  g.map(
    "Threshold_LTValGTVal 8u C3", zoriThreshold_LTValGTVal_8u_C3R, 3,
    [](Zor8u x) { return x < 50    ? Zor8u(50)
                         : x > 200 ? Zor8u(200)
                                   : x; }, low, low, high, high);
  static const Zor8u below[3] = {1, 2, 3}, above[3] = {255, 254, 253};
  g.map(
    "Threshold_LTValGTVal 8u C3 values", zoriThreshold_LTValGTVal_8u_C3R, 3,
    [](Zor8u x) { return x < 50    ? Zor8u(1)
                         : x > 200 ? Zor8u(255)
                                   : x; }, low, below, high, above);
  static const Zor16s wLow[3] = {-9000, -8000, -7000}, wHigh[3] = {9000, 8000, 7000}, wValue[3] = {0, 1, 2};
  g.map(
    "Threshold_LTValGTVal 16s C3 values", zoriThreshold_LTValGTVal_16s_C3R, 3,
    [](Zor16s x) { return x < -9000  ? Zor16s(0)
                          : x > 9000 ? Zor16s(1)
                                     : x; }, wLow, wValue, wHigh, wValue);
  g.map(
    "Threshold_GTVal 8u C3", zoriThreshold_GTVal_8u_C3R, 3, [](Zor8u x) { return x > 200 ? Zor8u(255) : x; }, high,
    above);
  g.map(
    "Compare 8u C1 greater", zoriCompare_8u_C1R, 1, [](Zor8u a, Zor8u b) { return Zor8u(a > b ? 255 : 0); },
    ZorCmpGreater);
  g.map(
    "Compare 32f C1 less", zoriCompare_32f_C1R, 1, [](Zor32f a, Zor32f b) { return Zor8u(a < b ? 255 : 0); },
    ZorCmpLess);
  g.both("CompareC 16s C1 greater", [](ZorImgSize size) {
    const Image<Zor16s> src(size);
    const Image<Zor8u> dst(size);
    return Run{src.bytes(), dst.bytes(),
               [=] { return zoriCompareC_16s_C1R(src, src.step, 100, dst, dst.step, size, ZorCmpGreater); }};
  });
  static const Zor16u words[4] = {30000, 40000, 50000, 60000};
  compareConstant<Zor8u>(g, "CompareC 8u C3 less", 3, zoriCompareC_8u_C3R, low);
  compareConstant<Zor16u>(g, "CompareC 16u C3 less", 3, zoriCompareC_16u_C3R, words);
  compareConstant<Zor16u>(g, "CompareC 16u AC4 less", 4, zoriCompareC_16u_AC4R, words);
  compareImages<Zor8u>(g, "Compare 8u C4 less", 4, zoriCompare_8u_C4R);
  compareImages<Zor32f>(g, "Compare 32f C3 less", 3, zoriCompare_32f_C3R);
  g.both("Otsu 8u C1", [](ZorImgSize size) {
    const Image<Zor8u> src(size);
    return Run{src.bytes(), 1, [=] {
                 Zor8u level;
                 return zoriComputeThreshold_Otsu_8u_C1R(src, src.step, size, &level);
               }};
  });

  // Counts in 256 even bins, of noise and of an image whose neighbours are alike.
  g.both("HistogramEven 8u C1 noise", [](ZorImgSize size) {
    const Image<Zor8u> src(size);
    return Run{src.bytes(), 1, [=] {
                 Zor32s hist[256], levels[257];
                 return zoriHistogramEven_8u_C1R(src, src.step, size, hist, levels, 257, 0, 256);
               }};
  });
  g.both("HistogramEven 8u C1 smooth image", [](ZorImgSize size) {
    const Image<Zor8u> src(size);
    for (int y = 0; y < size.height; ++y)
      for (int x = 0; x < size.width; ++x) src.row(y)[x] = static_cast<Zor8u>((x / 24 + y / 16) & 255);
    return Run{src.bytes(), 1, [=] {
                 Zor32s hist[256], levels[257];
                 return zoriHistogramEven_8u_C1R(src, src.step, size, hist, levels, 257, 0, 256);
               }};
  });
  g.both("HistogramEven 16u C1 noise", [](ZorImgSize size) {
    const Image<Zor16u> src(size);
    return Run{src.bytes(), 1, [=] {
                 static Zor32s hist[1024], levels[1025];
                 return zoriHistogramEven_16u_C1R(src, src.step, size, hist, levels, 1025, 0, 65536);
               }};
  });
});
