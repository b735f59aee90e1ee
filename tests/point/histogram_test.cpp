// Histograms against a count of the definition, over types, layouts, sizes and levels that reach every method.
#include "support/numbers.h"
#include "zori/point.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

extern "C" int zoriTestFailAllocationAt(int n);

namespace {

template <class T> std::vector<T> noise(size_t n, unsigned seed, int spread)
{
  std::vector<T> x(n);
  for (auto& v : x) {
    zoritest::nextNoise(seed);
    const int r = static_cast<int>(seed >> 9) % spread;
    v = static_cast<T>(std::is_signed_v<T> ? r - spread / 2 : r);
    if constexpr (std::is_floating_point_v<T>) v = seed >> 28 ? v + 0.25f : T(NAN);
  }
  return x;
}

template <class T, class L>
std::vector<Zor32s> expectedCounts(const std::vector<T>& image, int channels, int c, const std::vector<L>& levels)
{
  std::vector<Zor32s> hist(levels.size() - 1);
  for (size_t i = static_cast<size_t>(c); i < image.size(); i += static_cast<size_t>(channels))
    for (size_t k = 0; k + 1 < levels.size(); ++k) hist[k] += image[i] >= levels[k] && image[i] < levels[k + 1];
  return hist;
}

template <class L> std::vector<L> someLevels(int count, int from, int step, bool ordered)
{
  std::vector<L> levels(static_cast<size_t>(count));
  for (int k = 0; k < count; ++k) levels[static_cast<size_t>(k)] = static_cast<L>(from + k * step);
  if (!ordered && count > 3) std::swap(levels[1], levels[static_cast<size_t>(count) - 2]);
  return levels;
}

template <class T, class L, class C1, class CN>
void check(int channels, int counted, int spread, int from, int to, C1 one, CN many)
{
  for (ZorImgSize roi : {ZorImgSize{1, 1}, ZorImgSize{7, 3}, ZorImgSize{40, 41}, ZorImgSize{131, 101},
                         ZorImgSize{300, 220}, ZorImgSize{400, 320}})
    for (int count : {2, 3, 8, 26, 27, 60, 120, 500})
      for (bool ordered : {true, false}) {
        if (roi.width > 100 && count != 2 && count != 26 && count != 60) continue; // the naive count is slow
        const auto image =
          noise<T>(static_cast<size_t>(roi.width * roi.height * channels), static_cast<unsigned>(count), spread);
        const int step = roi.width * channels * static_cast<int>(sizeof(T));
        std::vector<L> levels[4];
        std::vector<Zor32s> hist[4];
        Zor32s* pHist[4];
        const L* pLevels[4];
        int nLevels[4];
        for (int c = 0; c < counted; ++c) {
          levels[c] = someLevels<L>(count + c, from + c, std::max(1, (to - from) / count), ordered);
          hist[c].assign(levels[c].size() - 1, -5);
          pHist[c] = hist[c].data();
          pLevels[c] = levels[c].data();
          nLevels[c] = count + c;
        }
        ASSERT_EQ(counted == 1 ? one(image.data(), step, roi, pHist[0], pLevels[0], nLevels[0])
                               : many(image.data(), step, roi, pHist, pLevels, nLevels),
                  ZorOk);
        for (int c = 0; c < counted; ++c)
          ASSERT_EQ(hist[c], expectedCounts(image, channels, c, levels[c]))
            << roi.width << ' ' << count << ' ' << ordered << ' ' << c;
      }
}

#define RANGE(type, L, spread, from, to)                                                                               \
  check<Zor##type, L>(1, 1, spread, from, to, zoriHistogramRange_##type##_C1R, zoriHistogramRange_##type##_C3R);       \
  check<Zor##type, L>(3, 3, spread, from, to, zoriHistogramRange_##type##_C1R, zoriHistogramRange_##type##_C3R);       \
  check<Zor##type, L>(4, 4, spread, from, to, zoriHistogramRange_##type##_C1R, zoriHistogramRange_##type##_C4R);       \
  check<Zor##type, L>(4, 3, spread, from, to, zoriHistogramRange_##type##_C1R, zoriHistogramRange_##type##_AC4R);

TEST(HistogramRange, Bytes){RANGE(8u, Zor32s, 256, -20, 300)} TEST(HistogramRange, UnsignedWords){
  RANGE(16u, Zor32s, 65536, -100, 70000)} TEST(HistogramRange, SignedWords){
  RANGE(16s, Zor32s, 65536, -40000, 30000)} TEST(HistogramRange, FloatsWithNan){RANGE(32f, Zor32f, 1000, -450, 480)}

// Levels made one by one: even steps, the wider ones at the end that is met first.
std::vector<Zor32s> evenLevels(int n, int lower, int upper)
{
  std::vector<Zor32s> levels{lower};
  const int d = upper - lower, bins = n - 1;
  for (int k = 0; k < bins; ++k) {
    const bool wider = d / bins < 0 ? k < -(d % bins) : k < d % bins;
    levels.push_back(levels.back() + d / bins + (wider ? (d / bins < 0 ? -1 : 1) : 0));
  }
  return levels;
}

TEST(HistogramEven, LevelsAndCounts)
{
  const auto image = noise<Zor16u>(200 * 150, 3, 5000);
  for (ZorImgSize roi : {ZorImgSize{200, 150}, ZorImgSize{13, 9}})
    for (int n : {2, 4, 5, 33, 257})
      for (auto range :
           {std::pair{0, 4096}, {0, 256}, {-7, 4990}, {100, 103}, {300, 100}, {40, 40}, {5, 3}, {-3000, 70000}}) {
        std::vector<Zor32s> hist(static_cast<size_t>(n) - 1, -1), levels(static_cast<size_t>(n), -1);
        ASSERT_EQ(
          zoriHistogramEven_16u_C1R(image.data(), 400, roi, hist.data(), levels.data(), n, range.first, range.second),
          ZorOk);
        ASSERT_EQ(levels, evenLevels(n, range.first, range.second)) << n << ' ' << range.first;
        EXPECT_EQ(levels.back(), (range.second - range.first) / (n - 1) < 0 || range.second >= range.first
                                   ? range.second
                                   : range.first);
        std::vector<Zor16u> region;
        for (int y = 0; y < roi.height; ++y)
          region.insert(region.end(), image.begin() + y * 200, image.begin() + y * 200 + roi.width);
        ASSERT_EQ(hist, expectedCounts(region, 1, 0, levels))
          << roi.width << ' ' << n << ' ' << range.first << ' ' << range.second;
      }
  Zor32s hist[3], levels[6], *pHist[3] = {hist, hist + 1, hist + 2}, *pLevels[3] = {levels, levels + 2, levels + 4};
  const int n[3] = {2, 2, 2}, lower[3] = {0, 10, 20}, upper[3] = {256, 200, 21};
  const auto colour = noise<Zor8u>(300, 5, 256);
  ASSERT_EQ(zoriHistogramEven_8u_C3R(colour.data(), 30, {10, 10}, pHist, pLevels, n, lower, upper), ZorOk);
  for (int c = 0; c < 3; ++c)
    EXPECT_EQ(hist[c], expectedCounts(colour, 3, c, std::vector<Zor32s>{lower[c], upper[c]})[0]);
}

// Samples on both sides of every level, for bins of every width.
TEST(HistogramEven, LevelsOfEveryWidthPartTheirNeighbours)
{
  for (int width = 1; width <= 2100; width += width < 300 ? 1 : 97)
    for (int lower : {-5, 0, 7}) {
      const int bins = std::min(300, 66000 / width);
      std::vector<Zor16u> row;
      std::vector<Zor32s> hist(static_cast<size_t>(bins), -1), levels(hist.size() + 1), expected(hist.size());
      const auto put = [&](int x, int bin) {
        if (x < 0 || x > 65535) return;
        row.push_back(static_cast<Zor16u>(x));
        if (bin >= 0 && bin < bins) ++expected[static_cast<size_t>(bin)];
      };
      for (int k = 0; k <= bins; ++k) put(lower + k * width, k), put(lower + k * width - 1, k - 1);
      ASSERT_EQ(zoriHistogramEven_16u_C1R(row.data(), static_cast<int>(row.size()) * 2,
                                          {static_cast<int>(row.size()), 1}, hist.data(), levels.data(), bins + 1,
                                          lower, lower + bins * width),
                ZorOk);
      ASSERT_EQ(hist, expected) << "of " << width << " from " << lower;
    }
}

TEST(Histogram, ChecksAndTheFailedTable)
{
  Zor8u x[12] = {};
  Zor32s hist[4] = {7, 7, 7, 7}, levels[4] = {0, 5, 9, 12}, *pHist[3] = {hist, hist, nullptr};
  const Zor32s* pLevels[3] = {levels, levels, levels};
  int n[3] = {4, 1, 4};
  EXPECT_EQ(zoriHistogramRange_8u_C3R(x, 0, {0, 1}, pHist, pLevels, n),
            ZorErrHistLevels); // the second channel's levels first
  n[1] = 4;
  EXPECT_EQ(zoriHistogramRange_8u_C3R(x, 0, {0, 1}, pHist, pLevels, n), ZorErrNullPtr);
  pHist[2] = hist;
  EXPECT_EQ(zoriHistogramRange_8u_C3R(x, 0, {0, 1}, pHist, pLevels, n), ZorErrSize);
  EXPECT_EQ(zoriHistogramRange_8u_C3R(x, 0, {1, 1}, pHist, pLevels, n), ZorErrStep);
  EXPECT_EQ(zoriHistogramRange_8u_C1R(x, 0, {1, 1}, hist, levels, 1), ZorErrStep);
  for (int v : hist) EXPECT_EQ(v, 7);

  std::vector<Zor16u> wide(400 * 400, 3);
  zoriTestFailAllocationAt(1);
  EXPECT_EQ(zoriHistogramRange_16u_C1R(wide.data(), 800, {400, 400}, hist, levels, 4), ZorErrAlloc);
  zoriTestFailAllocationAt(0);
  for (int k = 0; k < 4; ++k) EXPECT_EQ(hist[k], k < 3 ? 0 : 7);
}

} // namespace
