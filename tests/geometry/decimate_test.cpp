// zoriDecimateFilterRow, zoriDecimateFilterColumn, zoriDeinterlaceFilterCAVT.
#include "resize_image.h"
#include "zori/geometry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

using namespace resizetest;

// Weights in 1/16384 of output i, the first of them at source sample `first`.
struct Weights {
  int first;
  std::vector<int> w;
};

Weights weightsOf(int i, int p)
{
  const double pi = std::acos(-1.0), stretch = (p + 1.0) / p, position = (i % p + 0.5) * stretch - 0.5;
  Weights result{static_cast<int>(std::ceil(position - 2 * stretch)), {}};
  std::vector<double> real;
  double sum = 0;
  for (int k = result.first; k <= position + 2 * stretch; ++k) {
    const double d = std::fabs(k - position) / stretch;
    const double w = d >= 2 ? 0 : d < 1e-9 ? 1 : std::sin(pi * d) / (pi * d) * std::sin(pi * d / 2) / (pi * d / 2);
    real.push_back(w);
    sum += w;
  }
  int total = 0;
  for (double w : real) result.w.push_back(static_cast<int>(std::lrint(w / sum * 16384))), total += result.w.back();
  *std::max_element(result.w.begin(), result.w.end()) += 16384 - total;
  result.first += i / p * (p + 1);
  return result;
}

TEST(DecimateFilter, WeighsTheNearestInside)
{
  unsigned seed = 0;
  for (int p = 1; p <= 4; ++p)
    for (int extent = 1; extent < 60; ++extent)
      for (int other : {1, 2, 17, 40}) {
        const int count = extent * p / (p + 1);
        for (bool isRow : {true, false}) {
          const ZorImgSize size = isRow ? ZorImgSize{extent, other} : ZorImgSize{other, extent};
          const ZorImgSize dstSize =
            isRow ? ZorImgSize{std::max(count, 1), other} : ZorImgSize{other, std::max(count, 1)};
          const Image<Zor8u> src(size, 1, extent % 3, ++seed);
          Image<Zor8u> dst(dstSize, 1, 1, seed + 1), expected = dst;
          for (int i = 0; i < count; ++i) {
            const Weights weights = weightsOf(i, p);
            for (int j = 0; j < other; ++j) {
              int sum = 8192;
              for (std::size_t t = 0; t < weights.w.size(); ++t) {
                const int k = std::clamp(weights.first + static_cast<int>(t), 0, extent - 1);
                sum += weights.w[t] * (isRow ? src.get(k, j, 0) : src.get(j, k, 0));
              }
              const auto v = static_cast<Zor8u>(std::clamp(sum >> 14, 0, 255));
              isRow ? expected.put(i, j, 0, v) : expected.put(j, i, 0, v);
            }
          }
          const auto function = isRow ? zoriDecimateFilterRow_8u_C1R : zoriDecimateFilterColumn_8u_C1R;
          ASSERT_EQ(function(src.data(), src.step(), size, dst.data(), dst.step(), p), count ? ZorOk : ZorErrSubsample);
          ASSERT_EQ(dst.difference(expected), "") << "fraction " << p << " extent " << extent << " row " << isRow;
        }
      }
}

TEST(DecimateFilter, FlatStaysFlat)
{
  std::vector<Zor8u> src(50, 255), dst(50);
  for (int p = 1; p <= 4; ++p) {
    ASSERT_EQ(zoriDecimateFilterRow_8u_C1R(src.data(), 50, {50, 1}, dst.data(), 50, p), ZorOk);
    for (int i = 0; i < 50 * p / (p + 1); ++i) ASSERT_EQ(dst[static_cast<std::size_t>(i)], 255);
  }
}

TEST(Deinterlace, ReplacesWhatStandsOutFromBothNeighbours)
{
  unsigned seed = 0;
  for (int threshold : {-300, -255, -254, -3, -1, 0, 1, 8, 100, 254, 255, 1000})
    for (int width : {1, 15, 16, 33})
      for (int height : {1, 2, 3, 6}) {
        const ZorImgSize size = {width, height};
        const Image<Zor8u> src(size, 1, 0, ++seed);
        Image<Zor8u> dst(size, 1, 2, seed), expected = dst;
        for (int y = 0; y < height; ++y)
          for (int x = 0; x < width; ++x) {
            const int c = src.get(x, y, 0);
            int out = c;
            if (y % 2) {
              const int a = src.get(x, y - 1, 0), b = y + 1 < height ? src.get(x, y + 1, 0) : a;
              if ((c > a + threshold && c > b + threshold) || (c < a - threshold && c < b - threshold))
                out = (a + b + 1) >> 1;
            }
            expected.put(x, y, 0, static_cast<Zor8u>(out));
          }
        ASSERT_EQ(zoriDeinterlaceFilterCAVT_8u_C1R(src.data(), src.step(), dst.data(), dst.step(), size, threshold),
                  ZorOk);
        ASSERT_EQ(dst.difference(expected), "") << threshold << " " << width << "x" << height;
      }
}

} // namespace
