// Wiener filter: against windows summed one by one in long double.
#include "zori/filter.h"

#include "covered_image.h"
#include "filter_image.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <omp.h>
#include <pmmintrin.h>
#include <string>
#include <vector>

using namespace filtertest;

namespace {

template <class T> constexpr double fullPower = sizeof(T) == 1 ? 65025.0 : sizeof(T) == 2 ? 65535.0 * 65535.0 : 1.0;

struct Mask {
  ZorImgSize size;
  ZorImgPoint anchor;
};

template <class T> struct Form {
  std::string name;
  Layout layout;
  std::function<ZorStatus(const T*, int, T*, int, ZorImgSize, ZorImgSize, ZorImgPoint, Zor32f*, Zor8u*)> filter;

  // The call with a buffer of the told size that ends, or starts, at a page without access.
  ZorStatus run(const CoveredImage<T>& src, Image<T>& dst, ZorImgSize roi, const Mask& m, float* noise,
                int variant) const
  {
    int bytes = 0;
    EXPECT_EQ(zoriFilterWienerGetBufferSize(roi, m.size, layout.channels, &bytes), ZorOk);
    zoritest::GuardedBlock block(static_cast<std::size_t>(bytes));
    Zor8u* const buffer = variant % 2 ? block.begin() : block.end() - bytes;
    return filter(const_cast<CoveredImage<T>&>(src).region(), src.step(), dst.pointer(), dst.step(), roi, m.size,
                  m.anchor, noise, buffer);
  }
};

template <class T> std::vector<Form<T>> forms()
{
#define FORMS(t)                                                                                                       \
  {                                                                                                                    \
    {"C1", c1, zoriFilterWiener_##t##_C1R}, {"C3", c3, zoriFilterWiener_##t##_C3R},                                    \
      {"C4", c4, zoriFilterWiener_##t##_C4R}, {"AC4", ac4, zoriFilterWiener_##t##_AC4R},                               \
  }
  if constexpr (sizeof(T) == 1) return FORMS(8u);
  else if constexpr (sizeof(T) == 2) return FORMS(16s);
  else return FORMS(32f);
#undef FORMS
}

ZorImgSize covered(ZorImgSize roi, const Mask& m)
{
  return {roi.width + m.size.width - 1, roi.height + m.size.height - 1};
}

// Noise around a level that changes slowly; now and then an extreme.
template <class T> void paint(CoveredImage<T>& image, const Mask& m, unsigned seed)
{
  T* const p = image.region() - image.index(m.anchor.x, m.anchor.y, 0);
  for (std::size_t i = 0; i < image.samples(); ++i) {
    seed = seed * 1664525u + 1013904223u;
    const double v = 0.3 + 0.2 * std::sin(static_cast<double>(i) / 70) + (seed >> 8) / 16777216.0 * 0.15;
    if constexpr (sizeof(T) == 4) p[i] = static_cast<T>(v);
    else
      p[i] = seed >> 28 == 3   ? std::numeric_limits<T>::max()
             : seed >> 28 == 4 ? std::numeric_limits<T>::min()
                               : static_cast<T>((sizeof(T) == 1 ? v : 2 * v - 1) * std::numeric_limits<T>::max());
  }
}

template <class T> struct Window {
  double mean, variance;
  Window(const CoveredImage<T>& image, const Mask& m, int x, int y, int k)
  {
    long double sum = 0, squares = 0;
    for (int j = 0; j < m.size.height; ++j)
      for (int i = 0; i < m.size.width; ++i) {
        const long double v = image.at(x + i, y + j, k);
        sum += v;
        squares += v * v;
      }
    const long double area = static_cast<long double>(m.size.width) * m.size.height;
    mean = static_cast<double>(sum / area);
    variance = static_cast<double>(std::max(squares / area - sum / area * (sum / area), 0.0L));
  }
};

// A negative noise stands for one to be estimated.
template <class T> void check(const Form<T>& form, ZorImgSize roi, const Mask& m, const float (&noise)[4], int variant)
{
  SCOPED_TRACE(form.name + " mask " + std::to_string(m.size.width) + "x" + std::to_string(m.size.height) + " on " +
               std::to_string(roi.width) + "x" + std::to_string(roi.height));
  const int channels = form.layout.channels, processed = form.layout.processed;
  CoveredImage<T> src(covered(roi, m), m.anchor, channels, variant % 2, 1);
  paint(src, m, static_cast<unsigned>(variant));
  Image<T> dst(roi, channels, 0, 0, 5, variant % 3), expected = dst;
  float given[5] = {noise[0], noise[1], noise[2], noise[3], 0.625f};
  for (float& n : given)
    if (n < 0) n = variant % 2 ? 0 : 0x1.fffffep-24f;
  float after[5];
  std::copy(given, given + 5, after);
  ASSERT_EQ(form.run(src, dst, roi, m, after, variant), ZorOk);

  for (int k = 0; k < processed; ++k) {
    double n = given[k] * fullPower<T>;
    if (given[k] < 0x1p-23f) {
      n = 0;
      for (int y = 0; y < roi.height; ++y)
        for (int x = 0; x < roi.width; ++x) n += Window<T>(src, m, x, y, k).variance;
      n /= static_cast<double>(roi.width) * roi.height;
      ASSERT_NEAR(after[k], n / fullPower<T>, n / fullPower<T> * 1e-5);
    } else ASSERT_EQ(after[k], given[k]);
    for (int y = 0; y < roi.height; ++y)
      for (int x = 0; x < roi.width; ++x) {
        const Window<T> w(src, m, x, y, k);
        const double c = src.at(x + m.anchor.x, y + m.anchor.y, k), v = std::max(w.variance, n);
        const double result = w.mean + (v > 0 ? (v - n) / v : 0) * (c - w.mean);
        ASSERT_NEAR(dst.get(x, y, k), result, sizeof(T) == 4 ? 1e-6 : sizeof(T) == 1 ? 0.5002 : 0.51) << x << "," << y;
        expected.put(x, y, k, dst.get(x, y, k));
      }
  }
  for (int k = processed; k < 5; ++k) EXPECT_EQ(after[k], given[k]);
  EXPECT_EQ(dst.difference(expected), ""); // padding and fourth channel
}

template <class T> class Wiener : public ::testing::Test {};
using Types = ::testing::Types<Zor8u, Zor16s, Zor32f>;
TYPED_TEST_SUITE(Wiener, Types);

TYPED_TEST(Wiener, TowardTheMeanOfTheWindow)
{
  const Mask masks[] = {{{2, 2}, {0, 1}},  {{3, 3}, {1, 1}},   {{5, 4}, {4, 0}},   {{7, 7}, {0, 6}},
                        {{2, 19}, {1, 3}}, {{24, 2}, {11, 1}}, {{25, 3}, {24, 2}}, {{60, 9}, {0, 0}}};
  const ZorImgSize sizes[] = {{1, 1}, {1, 11}, {7, 3}, {16, 5}, {43, 9}, {121, 2}};
  int variant = 0;
  for (const Form<TypeParam>& form : forms<TypeParam>())
    for (const Mask& m : masks)
      for (const ZorImgSize& size : sizes) {
        check(form, size, m, {0.001f, 0.02f, 0x1p-23f, 0.999f}, variant++);
        check(form, size, m, {-1, 0.003f, -1, -1}, variant++);
        if (this->HasFatalFailure()) return;
      }
  // several strips, several bands of unequal height
  check(forms<TypeParam>()[1], {330, 3}, {{3, 3}, {1, 1}}, {0.001f, -1, 0.5f, 0}, 1);
  check(forms<TypeParam>()[0], {20, 303}, {{3, 9}, {1, 1}}, {-1, 0, 0, 0}, 2);
  check(forms<TypeParam>()[0], {9, 7}, {{260, 140}, {100, 50}}, {0.01f, 0, 0, 0}, 2); // sums beyond 32 bits
}

TYPED_TEST(Wiener, FlatImagesStay)
{
  const Mask m{{5, 3}, {2, 1}};
  const ZorImgSize roi = {33, 12};
  for (const Form<TypeParam>& form : forms<TypeParam>())
    for (double value : {0.0, 1.0, 77.0, 255.0, -1.0}) {
      CoveredImage<TypeParam> src(covered(roi, m), m.anchor, form.layout.channels, true, 1);
      src.fill(0);
      std::fill(src.region() - src.index(m.anchor.x, m.anchor.y, 0),
                src.region() - src.index(m.anchor.x, m.anchor.y, 0) + src.samples(),
                static_cast<TypeParam>(sizeof(TypeParam) == 4   ? value / 3
                                       : sizeof(TypeParam) == 1 ? std::abs(value)
                                                                : value));
      for (float given : {0.0f, 0.25f}) {
        Image<TypeParam> dst(roi, form.layout.channels, 0, 0, 5, 1);
        float noise[4] = {given, given, given, given};
        ASSERT_EQ(form.run(src, dst, roi, m, noise, 0), ZorOk);
        if (given == 0) {
          EXPECT_EQ(noise[0], 0);
        }
        for (int y = 0; y < roi.height; ++y)
          for (int x = 0; x < roi.width; ++x) ASSERT_EQ(dst.get(x, y, 0), src.at(0, 0, 0)) << form.name;
      }
    }
}

TYPED_TEST(Wiener, TeamsAndRoundingChangeNothing)
{
  const int threadsBefore = omp_get_max_threads();
  const unsigned before = _mm_getcsr();
  const ZorImgSize roi = {61, 290};
  for (const Mask& m : {Mask{{3, 3}, {1, 1}}, Mask{{4, 11}, {0, 9}}, Mask{{30, 3}, {7, 2}}})
    for (const Form<TypeParam>& form : forms<TypeParam>()) {
      CoveredImage<TypeParam> src(covered(roi, m), m.anchor, form.layout.channels, true, 1);
      paint(src, m, 99);
      Image<TypeParam> first(roi, form.layout.channels, 0, 0, 5, 1);
      float firstNoise[4] = {0, 0, 0, 0};
      omp_set_num_threads(1);
      ASSERT_EQ(form.run(src, first, roi, m, firstNoise, 0), ZorOk);
      for (int threads : {1, 2, 7})
        for (unsigned field : {0u, 0x2000u, 0x4000u, 0x6000u}) {
          Image<TypeParam> dst(roi, form.layout.channels, 0, 0, 5, 1);
          float noise[4] = {0, 0, 0, 0};
          omp_set_num_threads(threads);
          _mm_setcsr((before & ~0x6000u) | field);
          const ZorStatus status = form.run(src, dst, roi, m, noise, 0);
          const unsigned after = _mm_getcsr();
          _mm_setcsr(before);
          ASSERT_EQ(status, ZorOk);
          EXPECT_EQ(after & 0x6000u, field);
          ASSERT_EQ(dst.difference(first), "") << form.name << ", team of " << threads << ", rounding " << field;
          ASSERT_EQ(0, std::memcmp(noise, firstNoise, sizeof noise));
        }
    }
  omp_set_num_threads(threadsBefore);
}

// Windows of every kind of sums: formed anew for each row, carried down the columns, sliding along the rows, both.
TEST(WienerFloat, WhatLeavesTheWindowLeavesNothingBehind)
{
  const ZorImgSize roi = {90, 100};
  struct Extreme {
    float value;
    int x, y;
  };
  const float infinity = std::numeric_limits<float>::infinity(), none = std::numeric_limits<float>::quiet_NaN();
  std::vector<Extreme> extremes = {{infinity, 3, 2}, {none, 50, 12}, {3e38f, 12, 40}, {-1e20f, 70, 60}, {1e8f, 30, 85}};
  for (int x = 76; x < roi.width; ++x) extremes.push_back({3e7f, x, 20 + x % 4}); // where the last vectors overlap
  for (const Mask& m : {Mask{{3, 3}, {1, 1}}, Mask{{9, 9}, {4, 0}}, Mask{{2, 40}, {1, 30}}, Mask{{30, 3}, {29, 1}},
                        Mask{{27, 20}, {0, 10}}})
    for (const auto& form : forms<Zor32f>()) {
      const int channels = form.layout.channels;
      const auto channelOf = [&](const Extreme& e) { return e.x % form.layout.processed; };
      CoveredImage<Zor32f> src(covered(roi, m), m.anchor, channels, true, 1),
        clean(covered(roi, m), m.anchor, channels, true, 1);
      paint(src, m, 5);
      paint(clean, m, 5);
      for (const Extreme& e : extremes) src.region()[src.index(e.x, e.y, channelOf(e))] = e.value;
      Image<Zor32f> a(roi, channels, 0, 0, 5, 0), b(roi, channels, 0, 0, 5, 0);
      float noise[4] = {0.001f, 0.001f, 0.001f, 0.001f};
      ASSERT_EQ(form.run(src, a, roi, m, noise, 0), ZorOk);
      ASSERT_EQ(form.run(clean, b, roi, m, noise, 0), ZorOk);
      const auto isInWindow = [&](const Extreme& e, int x, int y) {
        const int i = e.x - x + m.anchor.x, j = e.y - y + m.anchor.y;
        return i >= 0 && i < m.size.width && j >= 0 && j < m.size.height;
      };
      for (int y = 0; y < roi.height; ++y)
        for (int x = 0; x < roi.width; ++x)
          for (int c = 0; c < form.layout.processed; ++c) {
            bool isSpoiled = false;
            for (const Extreme& e : extremes) isSpoiled = isSpoiled || (c == channelOf(e) && isInWindow(e, x, y));
            if (isSpoiled) continue;
            ASSERT_NEAR(a.get(x, y, c), b.get(x, y, c), 1e-6)
              << form.name << ", mask " << m.size.width << "x" << m.size.height << " at " << x << "," << y;
          }
      EXPECT_EQ(a.get(12, 40, 0), 3e38f); // where the variance is beyond all numbers, the pixel stays
    }
}

// Windows whose variance is no number count as flat ones.
TEST(WienerFloat, EstimatesPassOverWhatIsNoNumber)
{
  const Mask m{{3, 3}, {1, 1}};
  const ZorImgSize roi = {40, 12};
  CoveredImage<Zor32f> src(covered(roi, m), m.anchor, 1, true, 1);
  paint(src, m, 7);
  double expected = 0;
  for (int y = 0; y < roi.height; ++y)
    for (int x = 0; x < roi.width; ++x)
      if (std::abs(x - 9) > 1 || std::abs(y - 4) > 1) expected += Window<Zor32f>(src, m, x, y, 0).variance;
  for (const float bad : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
    src.region()[src.index(9, 4, 0)] = bad;
    Image<Zor32f> dst(roi, 1, 0, 0, 5, 0);
    float noise[1] = {0};
    ASSERT_EQ(forms<Zor32f>()[0].run(src, dst, roi, m, noise, 0), ZorOk);
    EXPECT_NEAR(noise[0], expected / 480, expected / 480 * 1e-5) << bad;
  }
}

TEST(WienerFloat, EstimatesStayBelowOne)
{
  const Mask m{{3, 3}, {1, 1}};
  const ZorImgSize roi = {20, 10};
  CoveredImage<Zor32f> src(covered(roi, m), m.anchor, 1, true, 1); // values in the thousands
  Image<Zor32f> dst(roi, 1, 0, 0, 5, 0);
  float noise[1] = {0};
  ASSERT_EQ(forms<Zor32f>()[0].run(src, dst, roi, m, noise, 0), ZorOk);
  EXPECT_EQ(noise[0], 0x1.fffffep-1f);
}

TEST(WienerContract, NoiseAndBuffer)
{
  const ZorImgSize roi = {4, 4}, mask = {3, 3};
  Zor8u src[6 * 6 * 4] = {}, dst[4 * 4 * 4], buffer[100000];
  std::fill(dst, dst + 64, Zor8u{9});
  const auto run = [&](float a, float b, float c, float d) {
    float noise[4] = {a, b, c, d};
    return zoriFilterWiener_8u_AC4R(src + 28, 24, dst, 16, roi, mask, {1, 1}, noise, buffer);
  };
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (float bad : {-1e-30f, 1.0f, 1e30f, nan}) {
    EXPECT_EQ(run(bad, 0, 0, 0), ZorErrNoiseRange);
    EXPECT_EQ(run(0, 0, bad, 0), ZorErrNoiseRange);
  }
  EXPECT_EQ(dst[0], 9);
  EXPECT_EQ(run(0.5f, -0.0f, 0x1.fffffep-1f, nan), ZorOk); // of AC4, the fourth is none
  EXPECT_EQ(dst[0], 0);
  EXPECT_EQ(dst[3], 9);

  // the mask and the anchor come before the steps, the noise last
  float noise[4] = {2, 2, 2, 2};
  EXPECT_EQ(zoriFilterWiener_8u_C1R(src, 0, dst, 4, roi, {1, 3}, {5, 0}, noise, buffer), ZorErrMaskSize);
  EXPECT_EQ(zoriFilterWiener_8u_C1R(src, 0, dst, 4, roi, {3, 3}, {3, 0}, noise, buffer), ZorErrAnchor);
  EXPECT_EQ(zoriFilterWiener_8u_C1R(src, 0, dst, 4, roi, {3, 3}, {0, 0}, noise, buffer), ZorErrStep);

  const int before = omp_get_max_threads();
  omp_set_num_threads(3);
  int bytes = 0;
  EXPECT_EQ(zoriFilterWienerGetBufferSize({10, 5}, {7, 3}, 1, &bytes), ZorOk);
  EXPECT_EQ(bytes, 20 * 3 * 20 + 15);
  EXPECT_EQ(zoriFilterWienerGetBufferSize({10, 5}, {7, 3}, 3, &bytes), ZorOk);
  EXPECT_EQ(bytes, 36 * 3 * 20 + 15);
  EXPECT_EQ(zoriFilterWienerGetBufferSize({2000000000, 5}, {7, 3}, 4, &bytes), ZorOk);
  EXPECT_EQ(bytes, std::numeric_limits<int>::max());
  omp_set_num_threads(before);
}

} // namespace
