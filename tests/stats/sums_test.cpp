// Sums, means, extrema and their positions, counts, elementwise extrema against plain loops.
#include "reference.h"
#include "zori/stats.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cstring>

using namespace reference;

namespace {

template <class T, class F> void forImages(Shape shape, F f)
{
  for (ZorImgSize size : sizes)
    for (int padding : {0, 1, 4})
      f(Image<T>(size.width, size.height, shape.channels, static_cast<unsigned>(size.width), padding));
}

template <class T, class Sum, class Mean> void sums(Shape shape, Sum sum, Mean mean)
{
  forImages<T>(shape, [&](const Image<T>& image) {
    double s[4] = {-1, -1, -1, -1}, m[4] = {-1, -1, -1, -1};
    ASSERT_EQ(sum(image.begin(), image.step(), image.size(), s), ZorOk);
    ASSERT_EQ(mean(image.begin(), image.step(), image.size(), m), ZorOk);
    const double pixels = image.width * image.height;
    for (int k = 0; k < 4; ++k) {
      long long total = 0;
      for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
          total += k < shape.channels ? static_cast<long long>(image.at(x, y, k)) : 0;
      const double exact = static_cast<double>(total);
      ASSERT_EQ(s[k], k < shape.processed ? exact : -1) << image.width << ' ' << k;
      ASSERT_EQ(m[k], k >= shape.processed ? -1 : shape.channels == 1 ? exact / pixels : exact * (1.0 / pixels));
    }
  });
}
#define SUMS(type)                                                                                                     \
  sums<Zor##type>(c1, zoriSum_##type##_C1R, zoriMean_##type##_C1R);                                                    \
  sums<Zor##type>(c3, zoriSum_##type##_C3R, zoriMean_##type##_C3R);                                                    \
  sums<Zor##type>(c4, zoriSum_##type##_C4R, zoriMean_##type##_C4R);                                                    \
  sums<Zor##type>(ac4, zoriSum_##type##_AC4R, zoriMean_##type##_AC4R);

TEST(Sum, IntegersAreExact){SUMS(8u) SUMS(16u) SUMS(16s)}

TEST(Sum, WideRowsDoNotOverflow)
{
  std::vector<Zor16u> words(100001, 65535);
  std::vector<Zor16s> lows(200003, -32768);
  std::vector<Zor8u> bytes(0x808081, 255);
  double sum = 0;
  ASSERT_EQ(zoriSum_16u_C1R(words.data(), 200002, {100001, 1}, &sum), ZorOk);
  EXPECT_EQ(sum, 65535.0 * 100001);
  ASSERT_EQ(zoriSum_16s_C1R(lows.data(), 400006, {200003, 1}, &sum), ZorOk);
  EXPECT_EQ(sum, -32768.0 * 200003);
  ASSERT_EQ(zoriSum_8u_C1R(bytes.data(), 0x808081, {0x808081, 1}, &sum), ZorOk);
  EXPECT_EQ(sum, 255.0 * 0x808081);
  ASSERT_EQ(zoriSum_16u_C1R(words.data() + 500, -2, {1, 300}, &sum), ZorOk); // a negative step walks up
  EXPECT_EQ(sum, 65535.0 * 300);
  // as many as the lanes of a sum bear, and a rest
  words.assign(262151, 65535);
  for (int width : {262144, 262146, 262151}) {
    ASSERT_EQ(zoriSum_16u_C1R(words.data(), 4, {width, 1}, &sum), ZorOk);
    EXPECT_EQ(sum, 65535.0 * width);
  }
}

// A long row of one value is no other than as many pixels in short rows, whatever the lanes of a sum bear.
template <class T, class One, class Two>
void longRows(std::initializer_list<One> ofOne, std::initializer_list<Two> ofTwo)
{
  constexpr int width = 1000, height = 1100, step = (width + 1) * static_cast<int>(sizeof(T));
  const T least = std::numeric_limits<T>::min(), most = std::numeric_limits<T>::max();
  const std::vector<T> low((width + 1) * height, least), high(low.size(), most);
  const int whole = step * height;
  for (const std::vector<T>* image : {&low, &high})
    for (One function : ofOne) {
      double once = -1, rows = -2;
      ASSERT_EQ(function(image->data(), whole, {width * height, 1}, &once), ZorOk);
      ASSERT_EQ(function(image->data(), step, {width, height}, &rows), ZorOk);
      EXPECT_EQ(once, rows) << +image->front();
    }
  for (Two function : ofTwo) {
    double once = -1, rows = -2;
    ASSERT_EQ(function(low.data(), whole, high.data(), whole, {width * height, 1}, &once), ZorOk);
    ASSERT_EQ(function(low.data(), step, high.data(), step, {width, height}, &rows), ZorOk);
    EXPECT_EQ(once, rows);
  }
}

TEST(Sum, LongRowsAreNoOtherThanShortOnes)
{
#define LONG_ROWS(type)                                                                                                \
  longRows<Zor##type>(                                                                                                 \
    {zoriSum_##type##_C1R, zoriMean_##type##_C1R, zoriNorm_L1_##type##_C1R, zoriNorm_L2_##type##_C1R},                 \
    {zoriNormDiff_L1_##type##_C1R, zoriNormDiff_L2_##type##_C1R});
  LONG_ROWS(8u)
  LONG_ROWS(16u)
  LONG_ROWS(16s)
#undef LONG_ROWS
}

// The normative orders of float sums, one channel at a time.
double fastSum(const Image<float>& image, int k)
{
  double total = 0;
  for (int y = 0; y < image.height; ++y) {
    float lane[16] = {};
    for (int x = 0; x < image.width; ++x) lane[x % 16] += image.at(x, y, k);
    float four[4];
    for (int i = 0; i < 4; ++i) four[i] = (lane[i] + lane[4 + i]) + (lane[8 + i] + lane[12 + i]);
    total += four[0] + four[2];
    total += four[1] + four[3];
  }
  return total;
}
double accurateSum(const Image<float>& image, int k)
{
  double even = 0, odd = 0, all = 0;
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x) (x % 2 ? odd : even) += image.at(x, y, k), all += image.at(x, y, k);
  return image.channels == 1 ? odd + even : all;
}

template <class Sum> void floatSums(Shape shape, Sum sum)
{
  forImages<float>(shape, [&](Image<float> image) {
    for (auto& v : image.data) v *= 1.1f;
    for (ZorHint hint : {ZorHintNone, ZorHintFast, ZorHintAccurate, static_cast<ZorHint>(99)}) {
      double s[4] = {-1, -1, -1, -1};
      ASSERT_EQ(sum(image.begin(), image.step(), image.size(), s, hint), ZorOk);
      for (int k = 0; k < 4; ++k)
        ASSERT_EQ(s[k], k >= shape.processed      ? -1
                        : hint == ZorHintAccurate ? accurateSum(image, k)
                                                  : fastSum(image, k))
          << image.width << ' ' << hint;
    }
  });
}
TEST(Sum, FloatsInTheirOrder)
{
  floatSums(c1, zoriSum_32f_C1R);
  floatSums(c3, zoriSum_32f_C3R);
  floatSums(c4, zoriSum_32f_C4R);
  floatSums(ac4, zoriSum_32f_AC4R);
}

template <class T, class Min, class Max, class MinMax, class MinIndx, class MaxIndx>
void extrema(Shape shape, Min least, Max greatest, MinMax both, MinIndx leastAt, MaxIndx greatestAt)
{
  forImages<T>(shape, [&](Image<T> image) {
    for (auto& v : image.data) v = static_cast<T>(v / 7 * 7); // equal extremes are likely
    T lo[4] = {9, 9, 9, 9}, hi[4] = {9, 9, 9, 9}, lo2[4], hi2[4], lo3[4], hi3[4];
    int x0[4], y0[4], x1[4], y1[4];
    const auto* p = image.begin();
    const int step = image.step();
    const auto size = image.size();
    ASSERT_EQ(least(p, step, size, lo), ZorOk);
    ASSERT_EQ(greatest(p, step, size, hi), ZorOk);
    ASSERT_EQ(both(p, step, size, lo2, hi2), ZorOk);
    ASSERT_EQ(leastAt(p, step, size, lo3, x0, y0), ZorOk);
    ASSERT_EQ(greatestAt(p, step, size, hi3, x1, y1), ZorOk);
    for (int k = 0; k < shape.processed; ++k) {
      int bestX[2] = {}, bestY[2] = {};
      for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x) {
          if (image.at(x, y, k) < image.at(bestX[0], bestY[0], k)) bestX[0] = x, bestY[0] = y;
          if (image.at(x, y, k) > image.at(bestX[1], bestY[1], k)) bestX[1] = x, bestY[1] = y;
        }
      const T low = image.at(bestX[0], bestY[0], k), high = image.at(bestX[1], bestY[1], k);
      ASSERT_TRUE(lo[k] == low && lo2[k] == low && lo3[k] == low) << image.width;
      ASSERT_TRUE(hi[k] == high && hi2[k] == high && hi3[k] == high) << image.width;
      ASSERT_TRUE(x0[k] == bestX[0] && y0[k] == bestY[0] && x1[k] == bestX[1] && y1[k] == bestY[1])
        << image.width << ' ' << image.height << ' ' << k;
    }
    for (int k = shape.processed; k < 4; ++k) ASSERT_TRUE(lo[k] == 9 && hi[k] == 9);
  });
}
#define EXTREMA(type, shape, layout)                                                                                   \
  extrema<Zor##type>(shape, zoriMin_##type##_##layout##R, zoriMax_##type##_##layout##R,                                \
                     zoriMinMax_##type##_##layout##R, zoriMinIndx_##type##_##layout##R,                                \
                     zoriMaxIndx_##type##_##layout##R);
#define EXTREMA_TYPE(type)                                                                                             \
  {                                                                                                                    \
    EXTREMA(type, c1, C1) EXTREMA(type, c3, C3) EXTREMA(type, c4, C4) EXTREMA(type, ac4, AC4)                          \
  }

TEST(Extrema, Bytes)
EXTREMA_TYPE(8u)
TEST(Extrema, UnsignedWords)
EXTREMA_TYPE(16u)
TEST(Extrema, SignedWords)
EXTREMA_TYPE(16s)
TEST(Extrema, Floats)
EXTREMA_TYPE(32f)

TEST(Extrema, OnlyInfinities)
{
  const float x[6] = {-INFINITY, -INFINITY, -INFINITY, -INFINITY, -INFINITY, -INFINITY};
  float value = 0;
  int ix = 9, iy = 9;
  ASSERT_EQ(zoriMaxIndx_32f_C1R(x, 12, {3, 2}, &value, &ix, &iy), ZorOk);
  EXPECT_EQ(value, -FLT_MAX);
  EXPECT_TRUE(ix == 0 && iy == 0);
  ASSERT_EQ(zoriMax_32f_C1R(x, 12, {3, 2}, &value), ZorOk);
  EXPECT_EQ(value, -FLT_MAX);
}

// Minima and maxima pass over a NaN, wherever it stands; what came before it counts.
TEST(Extrema, PassOverNan)
{
  for (int width = 1; width <= 70; ++width)
    for (int at = 0; at < width; ++at) {
      std::vector<float> x(static_cast<std::size_t>(width));
      for (int i = 0; i < width; ++i) x[static_cast<std::size_t>(i)] = static_cast<float>(i < at ? i - at : 1 + i - at);
      x[static_cast<std::size_t>(at)] = NAN;
      const float least = at > 0 ? static_cast<float>(-at) : width > 1 ? 2 : FLT_MAX;
      float value = 0, low = 0, high = 0;
      ASSERT_EQ(zoriMin_32f_C1R(x.data(), 4 * width, {width, 1}, &value), ZorOk);
      ASSERT_EQ(value, least) << width << ' ' << at;
      for (float& sample : x) sample = -sample;
      ASSERT_EQ(zoriMax_32f_C1R(x.data(), 4 * width, {width, 1}, &value), ZorOk);
      ASSERT_EQ(value, -least) << width << ' ' << at;
      ASSERT_EQ(zoriMinMax_32f_C1R(x.data(), 4 * width, {width, 1}, &low, &high), ZorOk);
      ASSERT_EQ(high, -least) << width << ' ' << at;
    }
}

template <class T, class F> void every(Shape shape, F function, bool greatest)
{
  forImages<T>(shape, [&](Image<T> a) {
    Image<T> b(a.width, a.height, a.channels, 77, a.padding());
    auto expected = b;
    for (int y = 0; y < a.height; ++y)
      for (int x = 0; x < a.width; ++x)
        for (int k = 0; k < shape.processed; ++k)
          expected.at(x, y, k) =
            greatest ? std::max(a.at(x, y, k), b.at(x, y, k)) : std::min(a.at(x, y, k), b.at(x, y, k));
    ASSERT_EQ(function(a.begin(), a.step(), const_cast<T*>(b.begin()), b.step(), a.size()), ZorOk);
    ASSERT_EQ(b.data, expected.data);
  });
}
#define EVERY(type, shape, layout)                                                                                     \
  every<Zor##type>(shape, zoriMinEvery_##type##_##layout##IR, false);                                                  \
  every<Zor##type>(shape, zoriMaxEvery_##type##_##layout##IR, true);
#define EVERY_TYPE(type) EVERY(type, c1, C1) EVERY(type, c3, C3) EVERY(type, c4, C4) EVERY(type, ac4, AC4)
TEST(Every, LesserAndGreater) { EVERY_TYPE(8u) EVERY_TYPE(16u) EVERY_TYPE(16s) EVERY_TYPE(32f) }

template <class T, class F> void counts(Shape shape, F function)
{
  const T bounds[][2] = {{0, 255}, {0, 0}, {17, 99}, {200, 200}, {1, 3}};
  forImages<T>(shape, [&](Image<T> image) {
    for (auto& v : image.data)
      v = std::is_floating_point_v<T> && v > 300
            ? T(NAN)
            : static_cast<T>(static_cast<int>(v) % 130 + (sizeof(T) == 1 ? 100 : 0));
    for (auto& b : bounds) {
      T lower[3] = {b[0], b[0], 0}, upper[3] = {b[1], b[1], 120};
      int count[4] = {-1, -1, -1, -1};
      ASSERT_EQ(function(image.begin(), image.step(), image.size(), count, lower, upper), ZorOk);
      for (int k = 0; k < shape.processed; ++k) {
        int expected = 0;
        for (int y = 0; y < image.height; ++y)
          for (int x = 0; x < image.width; ++x)
            expected += image.at(x, y, k) >= lower[k] && image.at(x, y, k) <= upper[k];
        ASSERT_EQ(count[k], expected) << image.width << ' ' << k;
      }
      ASSERT_EQ(count[3], -1);
    }
  });
}
TEST(CountInRange, BothBoundsIncluded)
{
  counts<Zor8u>(c1, [](auto p, int s, ZorImgSize r, int* n, auto lo, auto hi) {
    return zoriCountInRange_8u_C1R(p, s, r, n, *lo, *hi);
  });
  counts<Zor32f>(c1, [](auto p, int s, ZorImgSize r, int* n, auto lo, auto hi) {
    return zoriCountInRange_32f_C1R(p, s, r, n, *lo, *hi);
  });
  counts<Zor8u>(c3, zoriCountInRange_8u_C3R);
  counts<Zor8u>(ac4, zoriCountInRange_8u_AC4R);
  counts<Zor32f>(c3, zoriCountInRange_32f_C3R);
  counts<Zor32f>(ac4, zoriCountInRange_32f_AC4R);
  int n = 0;
  for (Zor8u value : {0, 7})
    for (int width : {300000, 4080, 4081, 4095, 4096, 8161}) { // around what byte counters bear
      std::vector<Zor8u> wide(300000, value);
      ASSERT_EQ(zoriCountInRange_8u_C1R(wide.data(), 300000, {width, 1}, &n, value, value), ZorOk);
      EXPECT_EQ(n, width);
    }
}

} // namespace
