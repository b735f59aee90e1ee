// Convolution against double precision: extents, types, layouts, the exchange of the images, the sizes at which ways of
// computing change, divisors.
#include "reference.h"
#include "zori/correlation.h"

#include <gtest/gtest.h>

using namespace correlation;

namespace {

constexpr int channelCounts[] = {1, 3, 4}; // C1, C3, AC4

template <class T> struct Forms;
#define FORMS(type, ...)                                                                                               \
  template <> struct Forms<Zor##type> {                                                                                \
    using F = ZorStatus (*)(const Zor##type*, int, ZorImgSize, const Zor##type*, int, ZorImgSize, Zor##type*,          \
                            int __VA_ARGS__);                                                                          \
    static constexpr F all[2][3] = {                                                                                   \
      {zoriConvFull_##type##_C1R, zoriConvFull_##type##_C3R, zoriConvFull_##type##_AC4R},                              \
      {zoriConvValid_##type##_C1R, zoriConvValid_##type##_C3R, zoriConvValid_##type##_AC4R}};                          \
  };
FORMS(8u, , int)
FORMS(16s, , int)
FORMS(32f)
#undef FORMS

template <class T>
ZorStatus call(bool valid, int layout, const TestImage<T>& a, const TestImage<T>& b, const TestImage<T>& dst,
               int divisor)
{
  const auto f = Forms<T>::all[valid][layout];
  if constexpr (std::is_floating_point_v<T>)
    return f(a.data(), a.step, a.size, b.data(), b.step, b.size, dst.data(), dst.step);
  else return f(a.data(), a.step, a.size, b.data(), b.step, b.size, dst.data(), dst.step, divisor);
}

template <class T> void check(ZorImgSize a, ZorImgSize b, bool valid, int layout, int divisor = 0)
{
  SCOPED_TRACE(std::to_string(a.width) + "x" + std::to_string(a.height) + " with " + std::to_string(b.width) + "x" +
               std::to_string(b.height) + (valid ? " valid" : " full") + " layout " + std::to_string(layout));
  const int channels = channelCounts[layout];
  TestImage<T> src1(a.width, a.height, channels), src2(b.width, b.height, channels);
  fillWithNoise(src1, static_cast<unsigned>(a.width));
  fillWithNoise(src2, static_cast<unsigned>(b.height + 100));
  const auto extent = [=](int m, int n) { return valid ? std::abs(m - n) + 1 : m + n - 1; };
  const ZorImgSize size = {extent(a.width, b.width), extent(a.height, b.height)};
  TestImage<T> dst(size.width, size.height, channels);
  const std::int64_t area = std::min<std::int64_t>(std::int64_t{a.width} * a.height, std::int64_t{b.width} * b.height);
  if (divisor == 0) divisor = static_cast<int>(area * (sizeof(T) == 1 ? 128 : 900));
  ASSERT_EQ(call(valid, layout, src1, src2, dst, divisor), ZorOk);
  // the first result that is written, as a place of the full convolution
  const int u0 = valid ? std::min(a.width, b.width) - 1 : 0, v0 = valid ? std::min(a.height, b.height) - 1 : 0;
  for (int c = 0; c < channels; ++c) {
    if (c == 3) {
      TestImage<T> untouched(1, 1, 1);
      for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) {
          const T got = dst.get(x, y, c), was = untouched.get(0, 0);
          ASSERT_EQ(std::memcmp(&got, &was, sizeof got), 0);
        }
      continue;
    }
    const Plane p(src1, c), q(src2, c);
    const double noise = 4e-7 * std::sqrt(p.energy() * q.energy());
    const int across = size.width > 200 ? 7 : 1, down = size.height > 200 ? 11 : 1;
    for (int y = 0; y < size.height; y += y + down < size.height || y == size.height - 1 ? down : size.height - 1 - y)
      for (int x = 0; x < size.width; x += across) {
        double sum = 0;
        for (int j = 0; j < b.height; ++j)
          for (int i = 0; i < b.width; ++i) sum += p(x + u0 - i, y + v0 - j) * q(i, j);
        if constexpr (std::is_floating_point_v<T>) ASSERT_NEAR(dst.get(x, y, c), sum, noise) << x << "," << y;
        else {
          const double exact = sum / divisor, slack = noise / std::abs(divisor) + 1e-6 * std::abs(exact);
          const auto bounded = [](double v) {
            return std::min(std::max(std::nearbyint(v), double(std::numeric_limits<T>::min())),
                            double(std::numeric_limits<T>::max()));
          };
          ASSERT_GE(dst.get(x, y, c), bounded(exact - slack)) << x << "," << y;
          ASSERT_LE(dst.get(x, y, c), bounded(exact + slack)) << x << "," << y;
        }
      }
  }
}

template <class T> class Convolution : public testing::Test {};
using Types = testing::Types<Zor32f, Zor16s, Zor8u>;
TYPED_TEST_SUITE(Convolution, Types);

TYPED_TEST(Convolution, AllForms)
{
  for (int layout = 0; layout < 3; ++layout)
    for (bool valid : {false, true}) {
      check<TypeParam>({23, 17}, {5, 4}, valid, layout);
      check<TypeParam>({60, 50}, {17, 16}, valid, layout); // through transforms
    }
}

TYPED_TEST(Convolution, FullShapes)
{
  const struct {
    ZorImgSize a, b;
  } shapes[] = {{{1, 1}, {1, 1}},     {{30, 1}, {5, 9}},     {{9, 40}, {3, 1}},    {{7, 5}, {7, 9}},
                {{3, 2}, {31, 20}},   {{64, 27}, {1, 14}},   {{47, 27}, {11, 11}}, // 57 * 37 = 2109 results: directly
                {{60, 37}, {11, 12}}, // 70 * 48 = 3360 of 132: one transform or tiles
                {{700, 9}, {9, 4}},   // rows of more results than are summed at once
                {{110, 7}, {110, 1}}, {{77, 110}, {11, 11}}, {{78, 11}, {11, 11}}, {{30, 60}, {40, 50}},
                {{90, 80}, {60, 70}}, {{180, 150}, {15, 13}}};
  for (const auto& [a, b] : shapes) {
    check<TypeParam>(a, b, false, 0);
    check<TypeParam>(b, a, false, 0);
  }
}

// 7 times the smaller image's samples, and one column more; 2960 and 2961 results of 121 samples.
TYPED_TEST(Convolution, FullBorders)
{
  check<TypeParam>({77, 88}, {11, 88}, false, 0);
  check<TypeParam>({78, 88}, {11, 88}, false, 0);
  check<TypeParam>({64, 30}, {11, 11}, false, 0); // 74 * 40
  check<TypeParam>({53, 37}, {11, 11}, false, 0); // 63 * 47
  check<TypeParam>({300, 40}, {12, 10}, false, 0);
}

// One transform that is just long enough for all results, and one that would be a result short: either way.
TYPED_TEST(Convolution, FullResultsOfATransformsLength)
{
  for (int length : {48, 64, 96})
    for (int more : {0, 1}) {
      check<TypeParam>({length + more - 24, 41}, {25, 24}, false, 0); // 64 rows of results
      check<TypeParam>({50, length + more - 20}, {47, 21}, false, 0); // 96 columns
    }
}

TYPED_TEST(Convolution, ValidBorders)
{
  for (ZorImgSize b : {ZorImgSize{14, 16}, ZorImgSize{15, 15}, ZorImgSize{3, 1}, ZorImgSize{1, 30}}) {
    check<TypeParam>({b.width + 10, b.height + 12}, b, true, 0); // 11 * 13 = 143 results
    check<TypeParam>({b.width + 11, b.height + 11}, b, true, 0); // 144
    check<TypeParam>({b.width, b.height}, b, true, 0);
    check<TypeParam>(b, {b.width + 200, b.height + 3}, true, 0);
  }
  check<TypeParam>({70, 60}, {65, 55}, true, 0);
}

TEST(ConvolutionDivisor, ScalesRoundsAndSaturates)
{
  TestImage<Zor8u> a(8, 8), b(1, 1), dst(8, 8);
  a.fill([](int x, int y, int) { return x + 8 * y; });
  b.fill([](int, int, int) { return 5; });
  const struct {
    int divisor, of7, of63;
  } cases[] = {{10, 4, 32}, {1, 35, 255}, {-1, 0, 0}, {2, 18, 158}, {INT32_MAX, 0, 0}, {INT32_MIN, 0, 0}};
  for (const auto& [divisor, of7, of63] : cases) {
    ASSERT_EQ(call<Zor8u>(false, 0, a, b, dst, divisor), ZorOk);
    EXPECT_EQ(dst.get(7, 0), of7) << divisor; // 3.5 and 17.5 are ties: to even
    EXPECT_EQ(dst.get(7, 7), of63) << divisor;
  }
  check<Zor16s>({40, 30}, {20, 12}, true, 0, -70000);
}

TEST(ConvolutionChecks, ValidWantsTheWiderImageToBeHighEnough)
{
  TestImage<Zor32f> a(12, 5), b(12, 9), wide(20, 5), dst(9, 5);
  EXPECT_EQ(call<Zor32f>(true, 0, a, b, dst, 1), ZorErrSize); // equal widths: the first counts as the larger
  EXPECT_EQ(call<Zor32f>(true, 0, b, a, dst, 1), ZorOk);
  EXPECT_EQ(call<Zor32f>(true, 0, b, wide, dst, 1), ZorErrSize);
  for (int rows = 7; rows <= 10; ++rows) { // to the row
    TestImage<Zor32f> tall(20, rows), sums(9, 5);
    EXPECT_EQ(call<Zor32f>(true, 0, tall, b, sums, 1), rows < 9 ? ZorErrSize : ZorOk) << rows;
    EXPECT_EQ(call<Zor32f>(true, 0, b, tall, sums, 1), rows < 9 ? ZorErrSize : ZorOk) << rows;
  }
  // whatever the step is
  EXPECT_EQ(zoriConvValid_32f_C1R(b.data(), 1, {12, 2}, a.data(), 1, {3, 2}, dst.data(), dst.step), ZorOk);
}

} // namespace
