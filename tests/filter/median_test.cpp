// Medians against sorting: windows, shapes, weights, planes; the vector median against all sums of distances.
#include "zori/filter.h"

#include "covered_image.h"
#include "filter_image.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

using namespace filtertest;

extern "C" void zoriTestShareAllWork(int on);
extern "C" int zoriTestFailAllocationAt(int n);

namespace {

using Places = std::vector<ZorImgPoint>; // of a window's pixels, from the pixel itself

Places rectangle(ZorImgSize mask, ZorImgPoint anchor)
{
  Places all;
  for (int j = 0; j < mask.height; ++j)
    for (int i = 0; i < mask.width; ++i) all.push_back({i - anchor.x, j - anchor.y});
  return all;
}

Places cross(int reach)
{
  Places all;
  for (int j = -reach; j <= reach; ++j)
    for (int i = -reach; i <= reach; ++i)
      if (i == 0 || j == 0) all.push_back({i, j});
  return all;
}

// Beside the image's own runs of extreme values (kind 0): values near each other, and all values.
template <class T> void change(CoveredImage<T>& image, ZorImgPoint anchor, int kind)
{
  T* const first = image.region() - image.index(anchor.x, anchor.y, 0);
  for (std::size_t i = 0; kind > 0 && i < image.samples(); ++i)
    first[i] = kind == 1 ? static_cast<T>(first[i] / 64) : static_cast<T>(i * i * 40503u >> 5);
}

template <class T> T medianOf(std::vector<T> x)
{
  std::sort(x.begin(), x.end());
  return x[x.size() / 2];
}

// The covered rectangle of a region.
struct Cover {
  ZorImgSize size;
  ZorImgPoint anchor;
};
Cover cover(ZorImgSize roi, const Places& places)
{
  int left = 0, top = 0, right = 0, bottom = 0;
  bool first = true;
  for (const ZorImgPoint p : places) {
    left = first ? p.x : std::min(left, p.x), right = first ? p.x : std::max(right, p.x);
    top = first ? p.y : std::min(top, p.y), bottom = first ? p.y : std::max(bottom, p.y);
    first = false;
  }
  return {{roi.width + right - left, roi.height + bottom - top}, {-left, -top}};
}

// Calls call(src, srcStep, dst, dstStep, roi) and compares with value(samples of the window).
template <class T, class Call, class Value>
std::string compare(const Places& places, Layout layout, ZorImgSize roi, int variant, Call call, Value value,
                    ZorStatus wanted = ZorOk)
{
  const Cover c = cover(roi, places);
  CoveredImage<T> src(c.size, c.anchor, layout.channels, variant % 2 == 0, static_cast<unsigned>(variant));
  change(src, c.anchor, variant % 3);
  Image<T> dst(roi, layout.channels, 0, 0, 99, variant % 3), expected = dst;
  std::vector<T> window;
  for (int y = 0; y < roi.height; ++y)
    for (int x = 0; x < roi.width; ++x)
      for (int k = 0; k < layout.processed; ++k) {
        window.clear();
        for (const ZorImgPoint p : places) window.push_back(src.at(x + c.anchor.x + p.x, y + c.anchor.y + p.y, k));
        expected.put(x, y, k, value(window));
      }
  const ZorStatus status = call(static_cast<const T*>(src.region()), src.step(), dst.pointer(), dst.step(), roi);
  if (status != wanted) return "status " + std::to_string(status);
  return dst.difference(expected);
}

struct Case {
  std::string name;
  Layout layout;
  std::function<std::string(ZorImgSize roi, int variant, ZorImgSize mask, ZorImgPoint anchor)> differs;
};
void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

template <class T>
Case rectangleCase(std::string name, Layout layout,
                   ZorStatus (*f)(const T*, int, T*, int, ZorImgSize, ZorImgSize, ZorImgPoint))
{
  return {std::move(name), layout, [=](ZorImgSize roi, int variant, ZorImgSize mask, ZorImgPoint anchor) {
            return compare<T>(
              rectangle(mask, anchor), layout, roi, variant, [=](auto... a) { return f(a..., mask, anchor); },
              medianOf<T>);
          }};
}

// Tall masks are told by ZorMaskSize: tens the width, units the height.
template <class T>
Case shapeCase(std::string name, Layout layout, bool isCross,
               ZorStatus (*f)(const T*, int, T*, int, ZorImgSize, ZorMaskSize))
{
  return {std::move(name), layout, [=](ZorImgSize roi, int variant, ZorImgSize mask, ZorImgPoint) {
            const Places places = isCross ? cross(mask.width / 2) : rectangle(mask, {mask.width / 2, mask.height / 2});
            const auto selector = static_cast<ZorMaskSize>(mask.width * 10 + mask.height);
            return compare<T>(
              places, layout, roi, variant, [=](auto... a) { return f(a..., selector); }, medianOf<T>);
          }};
}

std::vector<Case> rectangles()
{
  return {
#define R(t, l, layout) rectangleCase<Zor##t>(#t "_" #l, layout, zoriFilterMedian_##t##_##l##R),
#define LAYOUTS(t) R(t, C1, c1) R(t, C3, c3) R(t, C4, c4) R(t, AC4, ac4)
    LAYOUTS(8u) LAYOUTS(16u) LAYOUTS(16s)
#undef LAYOUTS
#undef R
  };
}

class Median : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(All, Median, testing::ValuesIn(rectangles()), [](const auto& i) { return i.param.name; });

TEST_P(Median, TakesTheMiddleOfARectangle)
{
  const ZorImgSize masks[] = {{1, 1},   {3, 1},   {5, 1}, {1, 3}, {1, 5}, {3, 3},   {5, 5}, {7, 7},  {9, 9}, {11, 11},
                              {15, 15}, {17, 17}, {7, 1}, {1, 7}, {3, 5}, {13, 13}, {9, 3}, {21, 5}, {1, 31}};
  int variant = 0;
  for (const ZorImgSize mask : masks)
    for (const ZorImgSize roi : {ZorImgSize{1, 1}, {2, 3}, {5, 2}, {16, 3}, {37, 4}, {70, 5}}) {
      const ZorImgPoint corner = {variant % 2 ? 0 : mask.width - 1, variant % 3 ? mask.height - 1 : 0};
      for (const ZorImgPoint anchor : {ZorImgPoint{mask.width / 2, mask.height / 2}, corner})
        EXPECT_EQ(GetParam().differs(roi, variant++, mask, anchor), "")
          << mask.width << "x" << mask.height << " at " << anchor.x << "," << anchor.y << " on " << roi.width << "x"
          << roi.height;
    }
}

// Several strips of columns, which differ in width from mask to mask.
TEST_P(Median, TakesWideRegionsInStrips)
{
  for (const int side : {3, 5, 7, 9, 11, 13, 15, 17})
    EXPECT_EQ(GetParam().differs({1301, 3}, side, {side, side}, {side / 2, side / 2}), "") << side;
}

// Narrow regions, of which several bands of rows lie beside each other in a vector; the last one may be shorter.
TEST_P(Median, TakesNarrowRegionsInBands)
{
  for (const int side : {5, 7, 9, 11, 13, 15})
    for (const ZorImgSize roi : {ZorImgSize{9, 37}, {3, 10}})
      EXPECT_EQ(GetParam().differs(roi, side, {side, side}, {side / 2, side / 2}), "") << side << " on " << roi.width;
}

std::vector<Case> shapes()
{
  return {
#define S(f, isCross, t, l, layout)                                                                                    \
  shapeCase<Zor##t>(#f "_" #t "_" #l, layout, isCross, zoriFilterMedian##f##_##t##_##l##R),
#define THREE(f, isCross, t) S(f, isCross, t, C1, c1) S(f, isCross, t, C3, c3) S(f, isCross, t, AC4, ac4)
#define TYPES(F, f, isCross) F(f, isCross, 8u) F(f, isCross, 16u) F(f, isCross, 16s)
#define FOUR(f, isCross, t) THREE(f, isCross, t) S(f, isCross, t, C4, c4)
    TYPES(FOUR, Horiz, false) TYPES(FOUR, Vert, false) TYPES(THREE, Cross, true)
#undef FOUR
#undef TYPES
#undef THREE
#undef S
  };
}

class MedianShape : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(All, MedianShape, testing::ValuesIn(shapes()), [](const auto& i) { return i.param.name; });

TEST_P(MedianShape, TakesTheMiddle)
{
  const char kind = GetParam().name[0];
  const std::vector<ZorImgSize> masks = kind == 'H'   ? std::vector<ZorImgSize>{{3, 1}, {5, 1}}
                                        : kind == 'V' ? std::vector<ZorImgSize>{{1, 3}, {1, 5}}
                                                      : std::vector<ZorImgSize>{{3, 3}, {5, 5}};
  int variant = 0;
  for (const ZorImgSize mask : masks)
    for (const ZorImgSize roi : {ZorImgSize{1, 1}, {3, 2}, {5, 4}, {16, 2}, {33, 3}, {100, 2}})
      EXPECT_EQ(GetParam().differs(roi, variant++, mask, {}), "") << mask.width << mask.height << " on " << roi.width;
}

TEST(MedianWeighted, CountsTheCentreSeveralTimes)
{
  for (int weight = 1; weight <= 12; ++weight) {
    const int counted = weight - (weight % 2 == 0);
    const auto value = [=](std::vector<Zor8u> x) {
      x.insert(x.end(), static_cast<std::size_t>(counted - 1), x[4]);
      return medianOf(x);
    };
    for (const ZorImgSize roi : {ZorImgSize{1, 1}, {7, 3}, {40, 5}})
      EXPECT_EQ(compare<Zor8u>(
                  rectangle({3, 3}, {1, 1}), c1, roi, weight,
                  [=](auto... a) { return zoriFilterMedianWeightedCenter3x3_8u_C1R(a..., weight); }, value,
                  weight == counted ? ZorOk : ZorWarnEvenMedianWeight),
                "")
        << weight << " on " << roi.width;
  }
}

TEST(MedianOfPlanes, TakesTheMiddleOfThreeAndMayBeInPlace)
{
  for (const ZorImgSize roi : {ZorImgSize{1, 1}, {15, 3}, {77, 2}}) {
    const Image<Zor8u> a(roi, 1, 0, 0, 1, 1), b(roi, 1, 0, 0, 2, 1), c(roi, 1, 0, 0, 3, 1);
    Image<Zor8u> dst(roi, 1, 0, 0, 4, 1), expected = dst, same = b, inPlace = b;
    for (int y = 0; y < roi.height; ++y)
      for (int x = 0; x < roi.width; ++x) {
        const Zor8u m = medianOf<Zor8u>({a.get(x, y, 0), b.get(x, y, 0), c.get(x, y, 0)});
        expected.put(x, y, 0, m);
        same.put(x, y, 0, m);
      }
    const Zor8u* planes[3] = {a.pointer(), b.pointer(), c.pointer()};
    EXPECT_EQ(zoriMedian_8u_P3C1R(planes, a.step(), dst.pointer(), dst.step(), roi), ZorOk);
    EXPECT_EQ(dst.difference(expected), "");
    planes[1] = inPlace.pointer();
    EXPECT_EQ(zoriMedian_8u_P3C1R(planes, a.step(), inPlace.pointer(), inPlace.step(), roi), ZorOk);
    EXPECT_EQ(inPlace.difference(same), "");
  }
}

// Bytes need no memory for windows of any size: where there is none, they take longer.
TEST(MedianMemory, BytesDoWithout)
{
  for (const ZorImgSize mask : {ZorImgSize{7, 3}, {13, 13}}) {
    zoriTestFailAllocationAt(1);
    EXPECT_EQ(rectangles()[1].differs({40, 6}, 2, mask, {1, 2}), "");
    zoriTestFailAllocationAt(0);
  }
}

TEST(MedianLarge, CountsInAsManyBitsAsTheWindowNeeds)
{
  for (const ZorImgSize mask : {ZorImgSize{181, 181}, {255, 257}, {3, 12001}}) // areas around 2^15 and beyond 2^16
    for (const int variant : {1, 2})
      EXPECT_EQ(rectangles()[0].differs({5, 3}, variant, mask, {0, 0}), "") << mask.width;
}

// ---- Vector median ----

template <class T> double distance(const T* a, const T* b)
{
  if constexpr (std::is_same_v<T, float>) {
    const volatile float x = std::fabs(a[0] - b[0]) + std::fabs(a[1] - b[1]), y = x + std::fabs(a[2] - b[2]);
    return static_cast<double>(y);
  } else return std::abs(a[0] - b[0]) + std::abs(a[1] - b[1]) + std::abs(a[2] - b[2]);
}

// `floats` are whole numbers below 512, whose sums are exact.
template <class T, class Call>
std::string compareColours(Layout layout, int side, ZorImgSize roi, int variant, Call call)
{
  const int reach = side / 2, n = layout.channels;
  Image<T> src(roi, n, reach, reach, static_cast<unsigned>(variant), variant % 2);
  if (variant % 3) // few colours, so that sums tie
    for (int y = -reach; y < roi.height + reach; ++y)
      for (int x = -reach; x < roi.width + reach; ++x)
        for (int k = 0; k < n; ++k)
          src.put(x, y, k, static_cast<T>((static_cast<int>(src.get(x, y, k)) & 3) * (variant % 3 == 1 ? 1 : 100)));
  Image<T> dst(roi, n, 0, 0, 77, variant % 3), expected = dst;
  for (int y = 0; y < roi.height; ++y)
    for (int x = 0; x < roi.width; ++x) {
      std::vector<T> window;
      for (int j = -reach; j <= reach; ++j)
        for (int i = -reach; i <= reach; ++i)
          for (int k = 0; k < 3; ++k) window.push_back(src.get(x + i, y + j, k));
      double least = 0;
      std::size_t best = 0;
      for (std::size_t a = 0; a < window.size(); a += 3) {
        double sum = 0;
        for (std::size_t b = 0; b < window.size(); b += 3) sum += distance(&window[a], &window[b]);
        if (a == 0 || sum < least) least = sum, best = a;
      }
      for (int k = 0; k < 3; ++k) expected.put(x, y, k, window[best + static_cast<std::size_t>(k)]);
    }
  const ZorStatus status =
    call(static_cast<const Image<T>&>(src).pointer(), src.step(), dst.pointer(), dst.step(), roi);
  if (status != ZorOk) return "status " + std::to_string(status);
  return dst.difference(expected);
}

template <class T> void checkColours(Layout layout, ZorStatus (*f)(const T*, int, T*, int, ZorImgSize, ZorMaskSize))
{
  for (const int side : {3, 5}) {
    int variant = 0;
    const auto call = [=](auto... a) { return f(a..., side == 3 ? ZorMask3x3 : ZorMask5x5); };
    for (const ZorImgSize roi : {ZorImgSize{1, 1}, {2, 3}, {9, 1}, {17, 6}, {64, 2}, {131, 3}, {300, 2}})
      for (int n = 0; n < 3; ++n)
        EXPECT_EQ(compareColours<T>(layout, side, roi, variant++, call), "") << side << " on " << roi.width;
  }
}

TEST(MedianColour, TakesThePixelOfLeastDistances)
{
  checkColours<Zor8u>(c3, zoriFilterMedianColor_8u_C3R);
  checkColours<Zor8u>(ac4, zoriFilterMedianColor_8u_AC4R);
  checkColours<Zor16s>(c3, zoriFilterMedianColor_16s_C3R);
  checkColours<Zor16s>(ac4, zoriFilterMedianColor_16s_AC4R);
  checkColours<Zor32f>(c3, zoriFilterMedianColor_32f_C3R);
  checkColours<Zor32f>(ac4, zoriFilterMedianColor_32f_AC4R);
}

// Extremes far apart: no distance or sum saturates.
TEST(MedianColour, SumsDoNotSaturate)
{
  Zor16s src[3][9];
  for (auto& row : src)
    for (int i = 0; i < 9; ++i) row[i] = i % 6 < 3 ? INT16_MIN : INT16_MAX;
  src[1][3] = src[1][4] = src[1][5] = INT16_MIN + 1; // nearer to six of the nine than any extreme is
  Zor16s dst[3] = {};
  ASSERT_EQ(zoriFilterMedianColor_16s_C3R(&src[1][3], sizeof src[0], dst, sizeof dst, {1, 1}, ZorMask3x3), ZorOk);
  EXPECT_EQ(dst[0], INT16_MIN);
  EXPECT_EQ(dst[2], INT16_MIN);
}

// Teams of all sizes: 5x5 of four channels and 3x3 of colours take one.
TEST(MedianTeam, DoesNotShowInResults)
{
  zoriTestShareAllWork(1);
  const int before = omp_get_max_threads();
  for (const int threads : {2, 7}) {
    omp_set_num_threads(threads);
    for (const std::size_t layout : {2u, 3u})
      EXPECT_EQ(rectangles()[layout].differs({80, 61}, 1, {5, 5}, {2, 2}), "") << threads;
    EXPECT_EQ(compareColours<Zor8u>(c3, 3, {40, 23}, 1,
                                    [](auto... a) { return zoriFilterMedianColor_8u_C3R(a..., ZorMask3x3); }),
              "");
    EXPECT_EQ(compareColours<Zor32f>(ac4, 3, {40, 3}, 1,
                                     [](auto... a) { return zoriFilterMedianColor_32f_AC4R(a..., ZorMask3x3); }),
              "");
  }
  omp_set_num_threads(before);
  zoriTestShareAllWork(0);
}

} // namespace
