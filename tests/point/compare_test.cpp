// Comparisons of two images, with a constant and within a tolerance, against plain loops.
#include "support/numbers.h"
#include "zori/point.h"

#include <gtest/gtest.h>

#include <cmath>
#include <type_traits>
#include <vector>

namespace {

template <class T> std::vector<T> samples(size_t n, unsigned seed)
{
  std::vector<T> x(n);
  for (auto& v : x) {
    zoritest::nextNoise(seed);
    const int few = static_cast<int>(seed >> 16) % 5; // equal samples are common
    if (seed >> 29) v = static_cast<T>(std::is_signed_v<T> ? few - 2 : few);
    else if constexpr (std::is_floating_point_v<T>)
      v = seed & 0x100000 ? T(NAN) : seed & 0x200000 ? T(INFINITY) : T(0.25f);
    else v = static_cast<T>(seed >> 8);
  }
  return x;
}

template <class T> bool holds(int op, T a, T b)
{
  switch (op) {
  case 0: return a < b;
  case 1: return a <= b;
  case 2: return a == b;
  case 3: return a >= b;
  default: return a > b;
  }
}

// The mask of a pixel is the and over its channels.
template <class T, class Call, class Rule>
void check(const char* name, int channels, int compared, bool constant, Call call, Rule rule)
{
  for (int width : {1, 2, 5, 15, 16, 17, 50}) {
    const size_t pitch = static_cast<size_t>(width * channels) + 1;
    const auto a = samples<T>(pitch * 3, 1);
    auto b = samples<T>(pitch * 3, 2);
    std::vector<Zor8u> dst(static_cast<size_t>(width + 3) * 3, 77), expected = dst;
    ASSERT_EQ(
      call(a.data(), b.data(), static_cast<int>(pitch * sizeof(T)), dst.data(), width + 3, ZorImgSize{width, 3}),
      ZorOk);
    for (size_t y = 0; y < 3; ++y)
      for (size_t x = 0; x < static_cast<size_t>(width); ++x) {
        bool all = true;
        for (size_t k = 0; k < static_cast<size_t>(compared); ++k) {
          const size_t i = y * pitch + x * static_cast<size_t>(channels) + k;
          all &= rule(a[i], b[constant ? k : i]);
        }
        expected[y * static_cast<size_t>(width + 3) + x] = all ? 255 : 0;
      }
    ASSERT_EQ(dst, expected) << name << ' ' << width;
  }
}

#define CHECK(type, layout, n, compared, byValue)                                                                      \
  for (int op = 0; op < 5; ++op) {                                                                                     \
    using T = Zor##type;                                                                                               \
    const auto rule = [=](T a, T b) { return holds(op, a, b); };                                                       \
    const auto cmp = static_cast<ZorCmpOp>(op);                                                                        \
    check<T>(                                                                                                          \
      "Compare_" #type "_" #layout, n, compared, false,                                                                \
      [=](auto a, auto b, int s, auto d, int ds, ZorImgSize r) {                                                       \
        return zoriCompare_##type##_##layout##R(a, s, b, s, d, ds, r, cmp);                                            \
      },                                                                                                               \
      rule);                                                                                                           \
    check<T>(                                                                                                          \
      "CompareC_" #type "_" #layout, n, compared, true,                                                                \
      [=](auto a, auto b, int s, auto d, int ds, ZorImgSize r) {                                                       \
        return zoriCompareC_##type##_##layout##R(a, s, byValue b, d, ds, r, cmp);                                      \
      },                                                                                                               \
      rule);                                                                                                           \
  }
#define CHECK_TYPE(type)                                                                                               \
  {                                                                                                                    \
    CHECK(type, C1, 1, 1, *) CHECK(type, C3, 3, 3, ) CHECK(type, C4, 4, 4, ) CHECK(type, AC4, 4, 3, )                  \
  }

TEST(Compare, Bytes)
CHECK_TYPE(8u)
TEST(Compare, UnsignedWords)
CHECK_TYPE(16u)
TEST(Compare, SignedWords)
CHECK_TYPE(16s)
TEST(Compare, FloatsWithNan)
CHECK_TYPE(32f)

TEST(Compare, WithinATolerance)
{
  for (float eps : {0.0f, 0.25f, 1.0f, -0.0f, INFINITY, NAN}) {
    const auto rule = [=](float a, float b) { return std::fabs(a - b) <= eps; };
#define CHECK_EPS(layout, n, compared, byValue)                                                                        \
  check<float>(                                                                                                        \
    "CompareEqualEps_" #layout, n, compared, false,                                                                    \
    [=](auto a, auto b, int s, auto d, int ds, ZorImgSize r) {                                                         \
      return zoriCompareEqualEps_32f_##layout##R(a, s, b, s, d, ds, r, eps);                                           \
    },                                                                                                                 \
    rule);                                                                                                             \
  check<float>(                                                                                                        \
    "CompareEqualEpsC_" #layout, n, compared, true,                                                                    \
    [=](auto a, auto b, int s, auto d, int ds, ZorImgSize r) {                                                         \
      return zoriCompareEqualEpsC_32f_##layout##R(a, s, byValue b, d, ds, r, eps);                                     \
    },                                                                                                                 \
    rule);
    CHECK_EPS(C1, 1, 1, *) CHECK_EPS(C3, 3, 3, ) CHECK_EPS(C4, 4, 4, ) CHECK_EPS(AC4, 4, 3, )
  }
  float x[4] = {};
  Zor8u d[4] = {};
  EXPECT_EQ(zoriCompareEqualEps_32f_C1R(x, 16, x, 16, d, 4, {4, 1}, -1e-30f), ZorErrEpsilon);
  EXPECT_EQ(zoriCompareEqualEps_32f_C1R(x, 16, x, 16, d, 4, {0, 1}, -1e-30f), ZorErrSize);
}

TEST(Compare, UnknownSelectorWritesNothing)
{
  for (int op : {5, -1, 1000}) {
    Zor8u x[4] = {1, 2, 3, 4}, d[4] = {9, 9, 9, 9};
    EXPECT_EQ(zoriCompare_8u_C1R(x, 4, x, 4, d, 4, {4, 1}, static_cast<ZorCmpOp>(op)), ZorOk);
    EXPECT_EQ(zoriCompareC_8u_C4R(x, 4, x, d, 4, {1, 1}, static_cast<ZorCmpOp>(op)), ZorOk);
    for (Zor8u v : d) EXPECT_EQ(v, 9);
    EXPECT_EQ(zoriCompare_8u_C1R(x, 4, x, 0, d, 4, {0, 1}, static_cast<ZorCmpOp>(op)), ZorErrStep);
  }
}

} // namespace
