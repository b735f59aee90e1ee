// Moments against sums in wide numbers, queries against their definitions, states and checks; the quality index.
#include "reference.h"
#include "zori/stats.h"

#include <gtest/gtest.h>

#include <cmath>
#include <type_traits>

using namespace reference;

namespace {

struct State64f {
  ZorMomentState* p = nullptr;
  State64f() { zoriMomentInitAlloc_64f(&p, ZorHintNone); }
  ~State64f() { zoriMomentFree_64f(p); }
};
struct State64s {
  ZorMomentState* p = nullptr;
  State64s() { zoriMomentInitAlloc_64s(&p, ZorHintAccurate); }
  ~State64s() { zoriMomentFree_64s(p); }
};

constexpr ZorImgSize momentSizes[] = {{1, 1}, {3, 2}, {16, 4}, {31, 3}, {512, 2}, {513, 3}, {700, 5}, {1600, 2}};

template <class T> long double rawMoment(const Image<T>& image, int channel, int i, int j, int x0 = 0, int y0 = 0)
{
  long double sum = 0;
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x)
      sum += std::pow(static_cast<long double>(x + x0), i) * std::pow(static_cast<long double>(y + y0), j) *
             static_cast<long double>(image.at(x, y, channel));
  return sum;
}

template <class T, class Pass> void spatial64f(Shape shape, Pass pass)
{
  for (ZorImgSize size : momentSizes) {
    Image<T> image(size.width, size.height, shape.channels, 5, size.width % 2);
    if constexpr (std::is_floating_point_v<T>)
      for (auto& v : image.data) v = std::fabs(v);
    State64f state;
    ASSERT_EQ(pass(image.begin(), image.step(), size, state.p), ZorOk);
    for (int k = 0; k < shape.processed; ++k)
      for (int i = 0; i < 4; ++i)
        for (int j = 0; i + j < 4; ++j)
          for (int offset : {0, 7}) {
            double value = 0;
            ASSERT_EQ(zoriGetSpatialMoment_64f(state.p, i, j, k, {offset, 2 * offset}, &value), ZorOk);
            const double exact = static_cast<double>(rawMoment(image, k, i, j, offset, 2 * offset));
            ASSERT_NEAR(value, exact, exact * 1e-12) << size.width << ' ' << i << j;
          }
    double value = 0;
    EXPECT_EQ(zoriGetSpatialMoment_64f(state.p, 0, 0, shape.processed, {0, 0}, &value), ZorErrMomentChannel);
  }
}
TEST(Moments, SpatialInDouble)
{
  spatial64f<Zor8u>(c1, zoriMoments64f_8u_C1R);
  spatial64f<Zor8u>(c3, zoriMoments64f_8u_C3R);
  spatial64f<Zor8u>(ac4, zoriMoments64f_8u_AC4R);
  spatial64f<Zor16u>(c1, zoriMoments64f_16u_C1R);
  spatial64f<Zor16u>(c3, zoriMoments64f_16u_C3R);
  spatial64f<Zor16u>(ac4, zoriMoments64f_16u_AC4R);
  spatial64f<Zor32f>(c1, zoriMoments64f_32f_C1R);
  spatial64f<Zor32f>(c3, zoriMoments64f_32f_C3R);
  spatial64f<Zor32f>(ac4, zoriMoments64f_32f_AC4R);
}

template <class T, class Pass> void spatial64s(Shape shape, Pass pass)
{
  for (ZorImgSize size : momentSizes) {
    const Image<T> image(size.width, size.height, shape.channels, 9, size.width % 2);
    State64s state;
    ASSERT_EQ(pass(image.begin(), image.step(), size, state.p), ZorOk);
    for (int k = 0; k < shape.processed; ++k)
      for (int i = 0; i < 4; ++i)
        for (int j = 0; i + j < 4; ++j) {
          std::int64_t exact = 0;
          for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x) {
              std::int64_t term = image.at(x, y, k);
              for (int n = 0; n < i; ++n) term *= x - 3;
              for (int n = 0; n < j; ++n) term *= y + 2;
              exact += term;
            }
          Zor64s value = -1;
          ASSERT_EQ(zoriGetSpatialMoment_64s(state.p, i, j, k, {-3, 2}, &value, 0), ZorOk);
          ASSERT_EQ(value, exact) << size.width << ' ' << i << j;
        }
  }
}
TEST(Moments, SpatialInIntegersIsExact)
{
  spatial64s<Zor8u>(c1, zoriMoments64s_8u_C1R);
  spatial64s<Zor8u>(c3, zoriMoments64s_8u_C3R);
  spatial64s<Zor8u>(ac4, zoriMoments64s_8u_AC4R);
  spatial64s<Zor16u>(c1, zoriMoments64s_16u_C1R);
  spatial64s<Zor16u>(c3, zoriMoments64s_16u_C3R);
  spatial64s<Zor16u>(ac4, zoriMoments64s_16u_AC4R);
}

TEST(Moments, IntegersScaleToTheNearest)
{
  const Zor8u five = 5, three = 3;
  State64s state;
  Zor64s value = 0;
  const auto query = [&](int scale) {
    EXPECT_EQ(zoriGetSpatialMoment_64s(state.p, 0, 0, 0, {0, 0}, &value, scale), ZorOk);
    return value;
  };
  zoriMoments64s_8u_C1R(&five, 1, {1, 1}, state.p);
  EXPECT_EQ(query(1), 2); // 2.5, to even
  EXPECT_EQ(query(2), 1);
  EXPECT_EQ(query(-4), 80);
  EXPECT_EQ(query(-61), INT64_MAX);
  EXPECT_EQ(query(64), 0);
  zoriMoments64s_8u_C1R(&three, 1, {1, 1}, state.p);
  EXPECT_EQ(query(1), 2); // 1.5, to even
  EXPECT_EQ(zoriGetCentralMoment_64s(state.p, 0, 0, 0, &value, 1), ZorOk);
  EXPECT_EQ(value, 2);
}

// Terms of the expansion leave 64 bits, what they add up to does not.
TEST(Moments, SpatialInIntegersIsExactWhereTermsAreNot)
{
  for (const ZorImgSize size : {ZorImgSize{20001, 1}, ZorImgSize{1, 20001}}) {
    const Image<Zor8u> image(size.width, size.height, 1, 5);
    State64s state;
    ASSERT_EQ(zoriMoments64s_8u_C1R(image.begin(), image.step(), size, state.p), ZorOk);
    const bool isRow = size.height == 1;
    std::int64_t exact = 0;
    for (int i = 0; i < 20001; ++i) {
      const std::int64_t from = i - 10000;
      exact += from * from * from * (isRow ? image.at(i, 0, 0) : image.at(0, i, 0));
    }
    Zor64s value = 0;
    ASSERT_EQ(zoriGetSpatialMoment_64s(state.p, isRow ? 3 : 0, isRow ? 0 : 3, 0,
                                       isRow ? ZorImgPoint{-10000, 0} : ZorImgPoint{0, -10000}, &value, 0),
              ZorOk);
    EXPECT_EQ(value, exact);
  }
}

// Values up to nearly 2^63 of either sign at every scale.
TEST(Moments, IntegersAtEveryScale)
{
  const Zor8u pixel = 255;
  State64s state;
  zoriMoments64s_8u_C1R(&pixel, 1, {1, 1}, state.p);
  for (const int offset : {0, 1, 3, 1000, 262144, 330000})
    for (const int sign : {1, -1}) {
      const std::int64_t x = std::int64_t{sign} * offset, value = 255 * x * x * x;
      for (int scale = -70; scale <= 70; ++scale) {
        const long double scaled = std::nearbyint(std::ldexp(static_cast<long double>(value), -scale));
        const Zor64s expected = scaled >= 0x1p63L    ? INT64_MAX
                                : scaled <= -0x1p63L ? INT64_MIN
                                                     : static_cast<Zor64s>(scaled);
        Zor64s got = 7;
        ASSERT_EQ(zoriGetSpatialMoment_64s(state.p, 3, 0, 0, {static_cast<int>(x), 0}, &got, scale), ZorOk);
        ASSERT_EQ(got, expected) << value << " at " << scale;
      }
    }
}

TEST(Moments, IntegersBeyond64BitsScaleBack)
{
  const Zor8u white = 255;
  State64s state;
  Zor64s value = 0;
  zoriMoments64s_8u_C1R(&white, 1, {1, 1}, state.p);
  EXPECT_EQ(zoriGetSpatialMoment_64s(state.p, 3, 0, 0, {400000, 0}, &value, 20), ZorOk);
  EXPECT_EQ(value, 15563964843750); // 255 * 400000^3 / 2^20
  EXPECT_EQ(zoriGetSpatialMoment_64s(state.p, 3, 0, 0, {400000, 0}, &value, 0), ZorOk);
  EXPECT_EQ(value, INT64_MAX);
  EXPECT_EQ(zoriGetSpatialMoment_64s(state.p, 3, 0, 0, {-300000, 0}, &value, 0), ZorOk);
  EXPECT_EQ(value, -255ll * 27000000000000000);
}

TEST(Moments, DerivedMoments)
{
  const Image<Zor8u> image(23, 17, 1, 11);
  State64f state;
  ASSERT_EQ(zoriMoments64f_8u_C1R(image.begin(), image.step(), image.size(), state.p), ZorOk);
  const long double m00 = rawMoment(image, 0, 0, 0), xbar = rawMoment(image, 0, 1, 0) / m00,
                    ybar = rawMoment(image, 0, 0, 1) / m00;
  long double eta[4][4] = {};
  for (int i = 0; i < 4; ++i)
    for (int j = 0; i + j < 4; ++j) {
      long double mu = 0;
      for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
          mu += std::pow(x - xbar, static_cast<long double>(i)) * std::pow(y - ybar, static_cast<long double>(j)) *
                image.at(x, y, 0);
      const long double power = std::pow(m00, -(i + j) / 2.0L - 1),
                        scale = std::pow(20.0L, static_cast<long double>(i + j)) * m00 * 1e-10L;
      eta[i][j] = mu * power;
      double value = 0;
      ASSERT_EQ(zoriGetCentralMoment_64f(state.p, i, j, 0, &value), ZorOk);
      EXPECT_NEAR(value, static_cast<double>(mu), static_cast<double>(scale)) << i << j;
      ASSERT_EQ(zoriGetNormalizedCentralMoment_64f(state.p, i, j, 0, &value), ZorOk);
      EXPECT_NEAR(value, static_cast<double>(eta[i][j]), static_cast<double>(scale * power));
      ASSERT_EQ(zoriGetNormalizedSpatialMoment_64f(state.p, i, j, 0, {4, 1}, &value), ZorOk);
      const double spatial = static_cast<double>(rawMoment(image, 0, i, j, 4, 1) * power);
      EXPECT_NEAR(value, spatial, spatial * 1e-12);
    }
  double hu[7];
  ASSERT_EQ(zoriGetHuMoments_64f(state.p, 0, hu), ZorOk);
  const auto n20 = eta[2][0], n02 = eta[0][2], n11 = eta[1][1], n30 = eta[3][0], n21 = eta[2][1], n12 = eta[1][2],
             n03 = eta[0][3];
  const auto b = n03 + n21, c = n12 + n30, d = n03 - 3 * n21, e = 3 * n12 - n30, f = n21 + n30;
  const long double expected[7] = {n20 + n02,
                                   (n20 - n02) * (n20 - n02) + 4 * n11 * n11,
                                   d * d + e * e,
                                   b * b + c * c,
                                   d * b * (f * f - 3 * c * c) + e * c * (3 * b * b - c * c),
                                   (n02 - n20) * (b * b - c * c) + 4 * n11 * b * c,
                                   e * b * (b * b - 3 * c * c) - d * c * (3 * b * b - c * c)};
  for (int i = 0; i < 7; ++i)
    EXPECT_NEAR(hu[i], static_cast<double>(expected[i]), std::fabs(static_cast<double>(expected[i])) * 1e-6) << i;
}

TEST(Moments, StatesAndChecks)
{
  State64f f;
  State64s s;
  const Zor8u x[8] = {5, 0, 0, 0, 0, 0, 0, 0};
  double value = 7;
  EXPECT_EQ(zoriGetSpatialMoment_64f(f.p, 0, 0, 0, {0, 0}, &value), ZorErrMomentChannel); // no pass yet
  EXPECT_EQ(zoriMoments64f_8u_C1R(x, 4, {4, 1}, s.p), ZorErrContext);
  EXPECT_EQ(zoriMoments64f_8u_C1R(x, 3, {4, 1}, f.p), ZorErrStepTooSmall);
  EXPECT_EQ(zoriMoments64f_8u_C1R(x, 0, {0, 1}, f.p), ZorErrStep);
  EXPECT_EQ(zoriMoments64f_8u_C1R(x, 4, {0, 1}, f.p), ZorErrSize);
  EXPECT_EQ(zoriMoments64f_8u_C1R(x + 1, 4, {4, 1}, f.p), ZorOk); // all zero
  EXPECT_EQ(zoriGetSpatialMoment_64f(f.p, 1, 1, 0, {3, 3}, &value), ZorOk);
  EXPECT_EQ(value, 0);
  value = 7;
  EXPECT_EQ(zoriGetCentralMoment_64f(f.p, 1, 1, 0, &value), ZorErrMomentTooSmall);
  double hu[7];
  EXPECT_EQ(zoriGetHuMoments_64f(f.p, 1, hu), ZorErrMomentChannel);
  EXPECT_EQ(zoriGetCentralMoment_64f(f.p, 2, 2, 5, &value), ZorErrSize);
  EXPECT_EQ(zoriGetCentralMoment_64f(f.p, -1, 2, 0, &value), ZorErrSize);
  EXPECT_EQ(value, 7);
  int size = 0;
  EXPECT_EQ(zoriMomentGetStateSize_64s(ZorHintNone, &size), ZorOk);
  EXPECT_EQ(size, 400);
  EXPECT_EQ(zoriMomentFree_64f(s.p), ZorErrContext);
}

template <class T, class F> void quality(Shape shape, F function)
{
  for (ZorImgSize size : {ZorImgSize{2, 2}, ZorImgSize{17, 9}, ZorImgSize{400, 33}}) {
    Image<T> a(size.width, size.height, shape.channels, 3, size.width % 2),
      b(size.width, size.height, shape.channels, 4, size.width % 2);
    for (size_t i = 0; i < a.data.size(); ++i) {
      a.data[i] = static_cast<T>(std::fabs(static_cast<double>(a.data[i])) / 3 + 20);
      b.data[i] = static_cast<T>(a.data[i] / 2 + b.data[i] / 5 * 2);
    }
    float q[4] = {9, 9, 9, 9};
    ASSERT_EQ(function(a.begin(), a.step(), b.begin(), b.step(), size, q), ZorOk);
    for (int k = 0; k < shape.processed; ++k) {
      long double s1 = 0, s2 = 0, s11 = 0, s12 = 0, s22 = 0, n = size.width * size.height;
      for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) s1 += a.at(x, y, k), s2 += b.at(x, y, k);
      for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) {
          const long double da = a.at(x, y, k) - s1 / n, db = b.at(x, y, k) - s2 / n;
          s11 += da * da, s12 += da * db, s22 += db * db;
        }
      const double expected =
        static_cast<double>(4 * s12 * (s1 / n) * (s2 / n) / ((s11 + s22) * (s1 * s1 + s2 * s2) / n / n));
      EXPECT_NEAR(q[k], expected, 2e-6 + std::fabs(expected) * 2e-6);
    }
    EXPECT_EQ(q[3], 9);
    ASSERT_EQ(function(a.begin(), a.step(), a.begin(), a.step(), size, q), ZorOk);
    EXPECT_NEAR(q[0], 1, 1e-6);
    for (int y = 0; y < size.height; ++y) // the last channel becomes flat in both
      for (int x = 0; x < size.width; ++x) a.at(x, y, shape.processed - 1) = b.at(x, y, shape.processed - 1) = 64;
    ASSERT_EQ(function(a.begin(), a.step(), b.begin(), b.step(), size, q), ZorErrQualitySize);
    EXPECT_TRUE(std::isnan(q[shape.processed - 1]));
    EXPECT_EQ(std::isnan(q[0]), shape.processed == 1);
  }
}
TEST(QualityIndex, FormulaAndFlatImages)
{
  quality<Zor8u>(c1, zoriQualityIndex_8u32f_C1R);
  quality<Zor8u>(c3, zoriQualityIndex_8u32f_C3R);
  quality<Zor8u>(ac4, zoriQualityIndex_8u32f_AC4R);
  quality<Zor16u>(c1, zoriQualityIndex_16u32f_C1R);
  quality<Zor16u>(c3, zoriQualityIndex_16u32f_C3R);
  quality<Zor16u>(ac4, zoriQualityIndex_16u32f_AC4R);
  quality<Zor32f>(c1, zoriQualityIndex_32f_C1R);
  quality<Zor32f>(c3, zoriQualityIndex_32f_C3R);
  quality<Zor32f>(ac4, zoriQualityIndex_32f_AC4R);
}

} // namespace
