// Thresholds against a plain loop over types and layouts, NaN samples, the order of checks, Otsu's method.
#include "support/numbers.h"
#include "zori/point.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace {

// Noise around the thresholds, so that samples equal to them are met; floats hold NaN and infinities.
template <class T> std::vector<T> samples(size_t n, unsigned seed)
{
  std::vector<T> x(n);
  for (auto& v : x) {
    zoritest::nextNoise(seed);
    if constexpr (std::is_floating_point_v<T>) {
      const float special[] = {NAN, INFINITY, -INFINITY, -0.0f};
      v = seed >> 29 ? static_cast<T>(static_cast<int>(seed >> 16 & 255) - 100) : special[seed >> 20 & 3];
    } else {
      v = seed >> 28 ? static_cast<T>(static_cast<int>(seed >> 16 & 255) - (std::is_signed_v<T> ? 100 : 0))
                     : static_cast<T>(seed >> 12);
    }
  }
  return x;
}

// The rules, spelled for one sample; for a NaN the comparisons fail.
template <class T> T clampAbove(T x, T t) { return x < t ? x : t; }
template <class T> T clampBelow(T x, T t) { return x > t ? x : t; }
template <class T> T replaceAbove(T x, T t, T value) { return t < x ? value : x; }
template <class T> T replaceBelow(T x, T t, T value) { return t <= x ? x : value; }
template <class T> T replaceOutside(T x, T tLT, T vLT, T tGT, T vGT) { return tGT < x ? vGT : tLT <= x ? x : vLT; }

template <class T> bool sameBits(const std::vector<T>& a, const std::vector<T>& b)
{
  return 0 == std::memcmp(a.data(), b.data(), a.size() * sizeof(T));
}

// Calls out of place and in place over several widths, with a padded and odd row step.
template <class T, class R, class I, class F>
void check(const char* name, int channels, bool keepsFourth, R region, I inPlace, F rule)
{
  for (int width : {1, 2, 3, 7, 16, 61})
    for (int offset : {0, 1}) {
      const size_t pitch = static_cast<size_t>(width * channels) + 3, n = pitch * 3 + 2;
      const auto src = samples<T>(n, 7), before = samples<T>(n, 8);
      auto dst = before, expected = before, both = src, expectedBoth = src;
      const int step = static_cast<int>(pitch * sizeof(T));
      const ZorImgSize roi{width, 3};
      ASSERT_EQ(region(src.data() + offset, step, dst.data() + offset, step, roi), ZorOk) << name;
      ASSERT_EQ(inPlace(both.data() + offset, step, roi), ZorOk) << name;
      for (size_t y = 0; y < 3; ++y)
        for (int i = 0; i < width * channels; ++i) {
          if (keepsFourth && i % 4 == 3) continue;
          const size_t at = y * pitch + static_cast<size_t>(i + offset);
          expected[at] = expectedBoth[at] = rule(src[at], i % channels);
        }
      ASSERT_TRUE(sameBits(dst, expected)) << name << ' ' << width;
      ASSERT_TRUE(sameBits(both, expectedBoth)) << name << " in place " << width;
    }
}

#define CHECK_FORM(form, type, layout, n, keeps, rule, ...)                                                            \
  check<Zor##type>(                                                                                                    \
    #form "_" #type "_" #layout, n, keeps,                                                                             \
    [=](auto s, int ss, auto d, int ds, ZorImgSize roi) {                                                              \
      return zori##form##_##type##_##layout##R(s, ss, d, ds, roi, __VA_ARGS__);                                        \
    },                                                                                                                 \
    [=](auto d, int ds, ZorImgSize roi) { return zori##form##_##type##_##layout##IR(d, ds, roi, __VA_ARGS__); },       \
    rule);

#define CHECK_VALUES(type, layout, n, keeps, a, v)                                                                     \
  CHECK_FORM(                                                                                                          \
    Threshold_GTVal, type, layout, n, keeps, [=](T x, int k) { return replaceAbove(x, t[k], value[k]); }, a, v)        \
  CHECK_FORM(                                                                                                          \
    Threshold_LTVal, type, layout, n, keeps, [=](T x, int k) { return replaceBelow(x, t[k], value[k]); }, a, v)

#define CHECK_LAYOUT(type, layout, n, keeps, a, v, b, w)                                                               \
  CHECK_FORM(                                                                                                          \
    Threshold, type, layout, n, keeps, [=](T x, int k) { return clampAbove(x, t[k]); }, a, ZorCmpGreater)              \
  CHECK_FORM(                                                                                                          \
    Threshold, type, layout, n, keeps, [=](T x, int k) { return clampBelow(x, t[k]); }, a, ZorCmpLess)                 \
  CHECK_FORM(                                                                                                          \
    Threshold_GT, type, layout, n, keeps, [=](T x, int k) { return clampAbove(x, t[k]); }, a)                          \
  CHECK_FORM(                                                                                                          \
    Threshold_LT, type, layout, n, keeps, [=](T x, int k) { return clampBelow(x, t[k]); }, a)                          \
  CHECK_FORM(                                                                                                          \
    Threshold_Val, type, layout, n, keeps, [=](T x, int k) { return replaceAbove(x, t[k], value[k]); }, a, v,          \
    ZorCmpGreater)                                                                                                     \
  CHECK_FORM(                                                                                                          \
    Threshold_Val, type, layout, n, keeps, [=](T x, int k) { return replaceBelow(x, t[k], value[k]); }, a, v,          \
    ZorCmpLess)                                                                                                        \
  CHECK_FORM(                                                                                                          \
    Threshold_LTValGTVal, type, layout, n, keeps,                                                                      \
    [=](T x, int k) { return replaceOutside(x, t[k], value[k], upper[k], other[k]); }, a, v, b, w)                     \
  CHECK_VALUES(type, layout, n, keeps, a, v)

#define CHECK_TYPE(type)                                                                                               \
  {                                                                                                                    \
    using T = Zor##type;                                                                                               \
    static const T t[4] = {50, 20, 99, 3}, value[4] = {1, 200, 7, 90}, upper[4] = {100, 20, 120, 60},                  \
                   other[4] = {9, 4, 250, 33};                                                                         \
    CHECK_LAYOUT(type, C1, 1, false, t[0], value[0], upper[0], other[0])                                               \
    CHECK_LAYOUT(type, C3, 3, false, t, value, upper, other)                                                           \
    CHECK_LAYOUT(type, AC4, 4, true, t, value, upper, other)                                                           \
    CHECK_VALUES(type, C4, 4, false, t, value)                                                                         \
  }

TEST(Threshold, Bytes)
CHECK_TYPE(8u)
TEST(Threshold, UnsignedWords)
CHECK_TYPE(16u)
TEST(Threshold, SignedWords)
CHECK_TYPE(16s)
TEST(Threshold, FloatsWithNan)
CHECK_TYPE(32f)

TEST(Threshold, OrderOfChecks)
{
  Zor8u x[12] = {}, t[3] = {9, 9, 9}, lower[3] = {1, 1, 10};
  EXPECT_EQ(zoriThreshold_8u_C1R(nullptr, 1, x, 1, {1, 1}, 5, static_cast<ZorCmpOp>(2)), ZorErrNullPtr);
  EXPECT_EQ(zoriThreshold_Val_8u_C1R(nullptr, 1, x, 1, {1, 1}, 5, 6, static_cast<ZorCmpOp>(2)), ZorErrMode);
  EXPECT_EQ(zoriThreshold_8u_C3R(x, 0, x, 1, {1, 1}, nullptr, static_cast<ZorCmpOp>(2)), ZorErrStep);
  EXPECT_EQ(zoriThreshold_8u_C3R(x, 3, x, 3, {1, 1}, nullptr, static_cast<ZorCmpOp>(2)), ZorErrNullPtr);
  EXPECT_EQ(zoriThreshold_8u_C3R(x, 3, x, 3, {1, 1}, t, static_cast<ZorCmpOp>(2)), ZorErrMode);
  EXPECT_EQ(zoriThreshold_LTValGTVal_8u_C3IR(x, 3, {1, 1}, lower, t, t, t), ZorErrThreshold);
  EXPECT_EQ(zoriThreshold_LTValGTVal_8u_C3IR(x, 3, {1, 1}, t, t, t, t), ZorOk);
  EXPECT_EQ(zoriThreshold_LTValGTVal_32f_C1IR(reinterpret_cast<Zor32f*>(x), 4, {1, 1}, NAN, 0, 1, 0), ZorOk);
}

// Between-class variance by its definition over the plain histogram: the lowest level of the greatest one.
int bestSplit(const std::vector<Zor8u>& image)
{
  long double count[256] = {}, best = 0;
  for (Zor8u v : image) ++count[v];
  int level = 0;
  for (int t = 0; t < 255; ++t) {
    long double n0 = 0, s0 = 0, n1 = 0, s1 = 0;
    for (int i = 0; i < 256; ++i) (i <= t ? n0 : n1) += count[i], (i <= t ? s0 : s1) += count[i] * i;
    if (n0 == 0 || n1 == 0) continue;
    const long double d = s0 / n0 - s1 / n1, sigma = n0 * n1 * d * d;
    if (sigma > best * (1 + 1e-12L)) best = sigma, level = t;
  }
  return level;
}

TEST(Otsu, PartsTheHistogram)
{
  Zor8u threshold = 99;
  std::vector<Zor8u> flat(35, 17);
  ASSERT_EQ(zoriComputeThreshold_Otsu_8u_C1R(flat.data(), 7, {7, 5}, &threshold), ZorOk);
  EXPECT_EQ(threshold, 0);
  for (size_t i = 0; i < 11; ++i) flat[i] = 203;
  ASSERT_EQ(zoriComputeThreshold_Otsu_8u_C1R(flat.data(), 7, {7, 5}, &threshold), ZorOk);
  EXPECT_EQ(threshold, 17);
  for (unsigned seed = 1; seed < 40; ++seed) {
    std::vector<Zor8u> image(97 * 31);
    unsigned state = seed;
    for (auto& v : image) {
      zoritest::nextNoise(state);
      const int hump = static_cast<int>((state >> 27) + (state >> 19 & 31) + (state >> 11 & 31));
      v = static_cast<Zor8u>(state % (seed % 5 + 2) ? 20 + hump : 120 + hump);
    }
    ASSERT_EQ(zoriComputeThreshold_Otsu_8u_C1R(image.data(), 97, {97, 31}, &threshold), ZorOk);
    EXPECT_EQ(threshold, bestSplit(image));
  }
  EXPECT_EQ(zoriComputeThreshold_Otsu_8u_C1R(flat.data(), 6, {7, 5}, &threshold), ZorErrStep);
}

} // namespace
