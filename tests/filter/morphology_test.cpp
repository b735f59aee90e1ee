// Greatest and least samples under masks, against a look at every member.
#include "support/numbers.h"
#include "zori/filter.h"

#include "covered_image.h"
#include "filter_image.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <functional>
#include <string>
#include <vector>

using namespace filtertest;

namespace {

struct Mask {
  ZorImgSize size;
  ZorImgPoint anchor;
  std::vector<Zor8u> members; // none: all

  bool has(int i, int j) const { return members.empty() || members[static_cast<std::size_t>(j * size.width + i)]; }
};

Mask full(int width, int height, int x, int y) { return {{width, height}, {x, y}, {}}; }

Mask disc(int side)
{
  Mask m = full(side, side, side / 2, side / 2);
  for (int j = 0; j < side; ++j)
    for (int i = 0; i < side; ++i) {
      const int x = 2 * i + 1 - side, y = 2 * j + 1 - side;
      m.members.push_back(x * x + y * y <= side * side ? 1 : 0);
    }
  return m;
}

// Runs of so many lengths, 1, 3, 5 and on, a row each.
Mask stairs(int lengths)
{
  Mask m = full(2 * lengths - 1, lengths, lengths / 2, 1);
  for (int j = 0; j < lengths; ++j)
    for (int i = 0; i < 2 * lengths - 1; ++i) m.members.push_back(i <= 2 * j);
  return m;
}

Mask scattered(int width, int height, ZorImgPoint anchor, unsigned seed)
{
  Mask m{{width, height}, anchor, {}};
  for (int i = 0; i < width * height; ++i) {
    zoritest::nextNoise(seed);
    m.members.push_back(static_cast<Zor8u>(seed >> 24 < 100 ? seed >> 25 : 0));
  }
  m.members[static_cast<std::size_t>(width * height / 2)] = 128;
  return m;
}

// What is exact does not ask for the sign of a zero.
template <class T> T canonical(T x) { return x == 0 ? T(0) : x; }

// The forms of one operation, type and layout.
template <class T> struct Forms {
  std::string name;
  Layout layout;
  bool isGreatest, isLimited;
  std::function<ZorStatus(const T*, int, T*, int, ZorImgSize, const Mask&)> apart;
  std::function<ZorStatus(T*, int, ZorImgSize, const Mask&)> inPlace;

  T pick(const CoveredImage<T>& image, const Mask& mask, int x, int y, int k) const
  {
    bool first = true;
    T best{};
    for (int j = 0; j < mask.size.height; ++j)
      for (int i = 0; i < mask.size.width; ++i) {
        if (!mask.has(i, j)) continue;
        const T v = image.at(x + i, y + j, k);
        best = first || (isGreatest ? v > best : v < best) ? v : best;
        first = false;
      }
    if constexpr (std::is_same_v<T, float>)
      if (isLimited) best = std::min(std::max(best, -FLT_MAX), FLT_MAX);
    return best;
  }

  void check(ZorImgSize roi, const Mask& mask, int variant, float infinity = 0) const
  {
    const ZorImgSize covered = {roi.width + mask.size.width - 1, roi.height + mask.size.height - 1};
    CoveredImage<T> src(covered, mask.anchor, layout.channels, variant % 2, static_cast<unsigned>(variant));
    T* const first = src.region() - src.index(mask.anchor.x, mask.anchor.y, 0);
    for (std::size_t i = 0; i < src.samples(); ++i) {
      if (infinity != 0 && i % 3) first[i] = static_cast<T>(i % 3 == 1 ? infinity : -infinity);
      first[i] = canonical(first[i]);
    }
    Image<T> dst(roi, layout.channels, 0, 0, 5, variant % 3), expected = dst;
    std::vector<T> after = src.copy();
    for (int y = 0; y < roi.height; ++y)
      for (int x = 0; x < roi.width; ++x)
        for (int k = 0; k < layout.processed; ++k) {
          const T v = pick(src, mask, x, y, k);
          expected.put(x, y, k, v);
          after[src.index(x + mask.anchor.x, y + mask.anchor.y, k)] = v;
        }
    const std::string what = name + " " + std::to_string(mask.size.width) + "x" + std::to_string(mask.size.height) +
                             " at " + std::to_string(mask.anchor.x) + "," + std::to_string(mask.anchor.y) + " on " +
                             std::to_string(roi.width) + "x" + std::to_string(roi.height);
    ASSERT_EQ(apart(src.region(), src.step(), dst.pointer(), dst.step(), roi, mask), ZorOk) << what;
    EXPECT_EQ(dst.difference(expected), "") << what;
    if (!inPlace) return;
    ASSERT_EQ(inPlace(src.region(), src.step(), roi, mask), ZorOk) << what;
    EXPECT_TRUE(src.copy() == after) << what << " in place";
  }
};

template <class T, class Check> void forAnyShape(Check check)
{
  const auto mask = [](auto f) {
    return [f](const T* s, int ss, T* d, int ds, ZorImgSize roi, const Mask& m) {
      const std::vector<Zor8u> all(static_cast<std::size_t>(m.size.width * m.size.height), 7);
      return f(s, ss, d, ds, roi, m.members.empty() ? all.data() : m.members.data(), m.size, m.anchor);
    };
  };
  const auto maskIn = [](auto f) {
    return [f](T* s, int ss, ZorImgSize roi, const Mask& m) {
      const std::vector<Zor8u> all(static_cast<std::size_t>(m.size.width * m.size.height), 7);
      return f(s, ss, roi, m.members.empty() ? all.data() : m.members.data(), m.size, m.anchor);
    };
  };
#define FORMS(t, op, greatest)                                                                                         \
  check(                                                                                                               \
    Forms<Zor##t>{#op "_" #t "_C1", c1, greatest, true, mask(zori##op##_##t##_C1R), maskIn(zori##op##_##t##_C1IR)});   \
  check(                                                                                                               \
    Forms<Zor##t>{#op "_" #t "_C3", c3, greatest, true, mask(zori##op##_##t##_C3R), maskIn(zori##op##_##t##_C3IR)});   \
  check(Forms<Zor##t>{#op "_" #t "_C4", c4, greatest, true, mask(zori##op##_##t##_C4R), nullptr});                     \
  check(Forms<Zor##t>{#op "_" #t "_AC4", ac4, greatest, true, mask(zori##op##_##t##_AC4R),                             \
                      maskIn(zori##op##_##t##_AC4IR)});
  if constexpr (std::is_same_v<T, Zor8u>) {
    FORMS(8u, Dilate, true) FORMS(8u, Erode, false)
  }
  if constexpr (std::is_same_v<T, Zor16u>) {
    FORMS(16u, Dilate, true) FORMS(16u, Erode, false)
  }
  if constexpr (std::is_same_v<T, Zor32f>) {
    FORMS(32f, Dilate, true) FORMS(32f, Erode, false)
  }
#undef FORMS
}

template <class T, class Check> void forSquares(Check check)
{
  const auto apart = [](auto f) {
    return [f](const T* s, int ss, T* d, int ds, ZorImgSize roi, const Mask&) { return f(s, ss, d, ds, roi); };
  };
  const auto in = [](auto f) { return [f](T* s, int ss, ZorImgSize roi, const Mask&) { return f(s, ss, roi); }; };
#define FORM(t, op, greatest, l, layout)                                                                               \
  check(Forms<Zor##t>{#op "_" #t "_" #l, layout, greatest, false, apart(zori##op##_##t##_##l##R),                      \
                      in(zori##op##_##t##_##l##IR)});
#define FORMS(t, op, greatest)                                                                                         \
  FORM(t, op, greatest, C1, c1)                                                                                        \
  FORM(t, op, greatest, C3, c3) FORM(t, op, greatest, C4, c4) FORM(t, op, greatest, AC4, ac4)
  if constexpr (std::is_same_v<T, Zor8u>) {
    FORMS(8u, Dilate3x3, true) FORMS(8u, Erode3x3, false)
  }
  if constexpr (std::is_same_v<T, Zor16u>) {
    FORMS(16u, Dilate3x3, true) FORMS(16u, Erode3x3, false)
  }
  if constexpr (std::is_same_v<T, Zor32f>) {
    FORMS(32f, Dilate3x3, true) FORMS(32f, Erode3x3, false)
  }
#undef FORMS
#undef FORM
}

template <class T, class Check> void forRectangles(Check check)
{
  const auto apart = [](auto f) {
    return [f](const T* s, int ss, T* d, int ds, ZorImgSize roi, const Mask& m) {
      return f(s, ss, d, ds, roi, m.size, m.anchor);
    };
  };
#define FORM(t, op, greatest, l, layout)                                                                               \
  check(Forms<Zor##t>{#op "_" #t "_" #l, layout, greatest, false, apart(zori##op##_##t##_##l##R), nullptr});
#define FORMS(t, op, greatest)                                                                                         \
  FORM(t, op, greatest, C1, c1)                                                                                        \
  FORM(t, op, greatest, C3, c3) FORM(t, op, greatest, C4, c4) FORM(t, op, greatest, AC4, ac4)
  if constexpr (std::is_same_v<T, Zor8u>) {
    FORMS(8u, FilterMax, true) FORMS(8u, FilterMin, false)
  }
  if constexpr (std::is_same_v<T, Zor16u>) {
    FORMS(16u, FilterMax, true) FORMS(16u, FilterMin, false)
  }
  if constexpr (std::is_same_v<T, Zor16s>) {
    FORMS(16s, FilterMax, true) FORMS(16s, FilterMin, false)
  }
  if constexpr (std::is_same_v<T, Zor32f>) {
    FORMS(32f, FilterMax, true) FORMS(32f, FilterMin, false)
  }
#undef FORMS
#undef FORM
}

constexpr ZorImgSize regions[] = {{1, 1}, {2, 3}, {5, 2}, {16, 9}, {37, 14}, {70, 3}};

template <class T> class Morphology : public testing::Test {};
using ShapeTypes = testing::Types<Zor8u, Zor16u, Zor32f>;
TYPED_TEST_SUITE(Morphology, ShapeTypes);

TYPED_TEST(Morphology, TakesTheMembersOfAnyMask)
{
  const Mask masks[] = {full(1, 1, 0, 0),
                        full(3, 3, 1, 1),
                        full(4, 2, 0, 1),
                        disc(5),
                        disc(7),
                        scattered(5, 4, {0, 3}, 1),
                        scattered(3, 9, {2, 0}, 2),
                        scattered(9, 1, {8, 0}, 3),
                        scattered(20, 12, {7, 5}, 4),                  // more members than usual
                        {{3, 3}, {2, 2}, {1, 0, 0, 0, 0, 0, 0, 0, 0}}, // one member: a shift
                        {{3, 3}, {1, 0}, {0, 0, 0, 0, 0, 0, 0, 0, 9}}, // from below, in place too
                        {{5, 4}, {1, 3}, {0, 0, 0, 0, 0, 0, 1, 2, 0, 0, 0, 3, 4, 0, 0, 0, 0, 0, 0, 0}}};
  forAnyShape<TypeParam>([&](const Forms<TypeParam>& forms) {
    int variant = 0;
    for (const Mask& mask : masks)
      for (const ZorImgSize roi : regions) forms.check(roi, mask, variant++);
    forms.check({1500, 3}, disc(5), 1);
    forms.check({1100, 9}, scattered(4, 5, {1, 2}, 5), 2);
    for (const int side : {7, 8}) // several times round the ring of runs
      for (const int width : {19, 230}) forms.check({width, 41}, disc(side), side);
    for (const int lengths : {23, 24, 25, 26}) forms.check({35, 9}, stairs(lengths), lengths);
  });
}

TYPED_TEST(Morphology, TakesSquaresOfThree)
{
  forSquares<TypeParam>([&](const Forms<TypeParam>& forms) {
    int variant = 0;
    for (const ZorImgSize roi : regions) forms.check(roi, full(3, 3, 1, 1), variant++);
    forms.check({70, 31}, full(3, 3, 1, 1), 1); // groups of eight, four, two rows and one
    forms.check({2801, 4}, full(3, 3, 1, 1), 1);
  });
}

template <class T> class Extremes : public testing::Test {};
using ExtremeTypes = testing::Types<Zor8u, Zor16u, Zor16s, Zor32f>;
TYPED_TEST_SUITE(Extremes, ExtremeTypes);

TYPED_TEST(Extremes, TakeRectanglesOfAnySize)
{
  forRectangles<TypeParam>([&](const Forms<TypeParam>& forms) {
    int variant = 0;
    for (const int width : {1, 2, 3, 5, 6, 15, 26, 101})
      for (const int height : {1, 2, 3, 5, 15})
        for (const ZorImgSize roi : {ZorImgSize{1, 1}, {6, 3}, {33, 21}})
          forms.check(roi, full(width, height, variant % width, variant % height), variant), ++variant;
    forms.check({2700, 5}, full(7, 5, 3, 2), 1);
    forms.check({9, 2}, full(1300, 3, 600, 0), 2); // wider than the stack's strip
  });
}

// Masks of any shape give finite floats; squares and rectangles pass infinities on.
TEST(MorphologyInfinities, AreLimitedUnderMasks)
{
  const float infinity = std::numeric_limits<float>::infinity();
  for (const Mask& mask : {full(3, 3, 1, 1), full(1, 1, 0, 0), disc(5), scattered(4, 4, {1, 1}, 8)}) {
    forAnyShape<Zor32f>([&](const Forms<Zor32f>& forms) { forms.check({30, 5}, mask, 3, infinity); });
    forRectangles<Zor32f>([&](const Forms<Zor32f>& forms) {
      forms.check({30, 5}, full(mask.size.width, mask.size.height, 0, 0), 3, infinity);
    });
  }
  forSquares<Zor32f>([&](const Forms<Zor32f>& forms) { forms.check({30, 5}, full(3, 3, 1, 1), 3, infinity); });
}

// Of zeros of both signs the last one of the window counts, by columns in rectangles, by rows in 3x3 and masks of any
// shape, wherever the pixel lies in its row, strip or group of rows.
TEST(MorphologyZeros, ComeFromTheSamePlaceOfEveryWindow)
{
  const ZorImgSize roi = {41, 19};
  for (const Mask& mask : {full(3, 3, 1, 1), full(7, 9, 0, 0), disc(5)}) {
    CoveredImage<Zor32f> src({roi.width + mask.size.width - 1, roi.height + mask.size.height - 1}, mask.anchor, 1, true,
                             6);
    Zor32f* const first = src.region() - src.index(mask.anchor.x, mask.anchor.y, 0);
    for (std::size_t i = 0; i < src.samples(); ++i) first[i] = (i * i * 7 >> 3) % 3 ? -0.0f : 0.0f;
    const bool isFull = mask.members.empty(), byColumns = isFull && mask.size.width > 3;
    Image<Zor32f> greatest(roi, 1, 0, 0, 1, 0), least = greatest, expected = greatest;
    for (int y = 0; y < roi.height; ++y)
      for (int x = 0; x < roi.width; ++x) {
        const int outer = byColumns ? mask.size.width : mask.size.height,
                  inner = byColumns ? mask.size.height : mask.size.width;
        for (int a = 0; a < outer; ++a)
          for (int b = 0; b < inner; ++b) {
            const int i = byColumns ? a : b, j = byColumns ? b : a;
            if (mask.has(i, j)) expected.put(x, y, 0, src.at(x + i, y + j, 0));
          }
      }
    const Zor8u* const members = mask.members.data();
    if (isFull) {
      ASSERT_EQ(zoriFilterMax_32f_C1R(src.region(), src.step(), greatest.pointer(), greatest.step(), roi, mask.size,
                                      mask.anchor),
                ZorOk);
      ASSERT_EQ(
        zoriFilterMin_32f_C1R(src.region(), src.step(), least.pointer(), least.step(), roi, mask.size, mask.anchor),
        ZorOk);
    } else {
      ASSERT_EQ(zoriDilate_32f_C1R(src.region(), src.step(), greatest.pointer(), greatest.step(), roi, members,
                                   mask.size, mask.anchor),
                ZorOk);
      ASSERT_EQ(zoriErode_32f_C1R(src.region(), src.step(), least.pointer(), least.step(), roi, members, mask.size,
                                  mask.anchor),
                ZorOk);
    }
    EXPECT_EQ(greatest.difference(expected), "");
    EXPECT_EQ(least.difference(expected), "");
  }
}

// Steps are held against what is read: the row of the region and its neighbours.
TEST(MorphologySteps, HoldTheRowAndItsNeighbours)
{
  std::vector<Zor16u> image(64 * 12, 1), dst(64 * 12, 0);
  const ZorImgSize roi = {10, 3}, size = {5, 2};
  const std::vector<Zor8u> mask(10, 1);
  const auto dilate = [&](int srcStep, int dstStep) {
    return zoriDilate_16u_C3R(&image[200], srcStep, dst.data(), dstStep, roi, mask.data(), size, {1, 1});
  };
  const int wanted = (10 + 4) * 6, row = 10 * 6;
  EXPECT_EQ(dilate(wanted, row), ZorOk);
  EXPECT_EQ(dilate(wanted - 1, row), ZorErrStepTooSmall);
  EXPECT_EQ(dilate(wanted, row - 1), ZorErrStepTooSmall);
  EXPECT_EQ(zoriErode3x3_16u_C3R(&image[200], 12 * 6, dst.data(), row, roi), ZorOk);
  EXPECT_EQ(zoriErode3x3_16u_C3R(&image[200], 12 * 6 - 1, dst.data(), row, roi), ZorErrStepTooSmall);
  EXPECT_EQ(zoriErode3x3_16u_C3IR(&image[200], 12 * 6 - 1, roi), ZorErrStepTooSmall);
  EXPECT_EQ(zoriErode3x3_16u_C3R(&image[200], 12 * 6, dst.data(), row - 1, roi), ZorErrStepTooSmall);
}

} // namespace
