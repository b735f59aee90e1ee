// zoriResize, zoriResizeShift, zoriResizeCenter, zoriGetResizeFract: rules, extents, statuses.
#include "resize_reference.h"
#include "zori/geometry.h"

#include <gtest/gtest.h>

#include <climits>
#include <limits>

namespace {

using namespace resizetest;

// The exported functions by type and shape.
template <class T> struct Functions;
template <class T>
using Pixels = ZorStatus (*)(const T*, ZorImgSize, int, ZorImgRect, T*, int, ZorImgSize, double, double, int);
template <class T>
using PixelsMore = ZorStatus (*)(const T*, ZorImgSize, int, ZorImgRect, T*, int, ZorImgSize, double, double, double,
                                 double, int);
template <class T>
using Planes = ZorStatus (*)(const T* const*, ZorImgSize, int, ZorImgRect, T* const*, int, ZorImgSize, double, double,
                             int);
template <class T>
using PlanesMore = ZorStatus (*)(const T* const*, ZorImgSize, int, ZorImgRect, T* const*, int, ZorImgSize, double,
                                 double, double, double, int);

// clang-format off
#define FUNCTIONS(type)                                                                                                \
  template <> struct Functions<Zor##type> {                                                                            \
    using T = Zor##type;                                                                                               \
    static constexpr Pixels<T> resize[] = {zoriResize_##type##_C1R, zoriResize_##type##_C3R, zoriResize_##type##_C4R,   \
                                           zoriResize_##type##_AC4R};                                                  \
    static constexpr PixelsMore<T> shift[] = {zoriResizeShift_##type##_C1R, zoriResizeShift_##type##_C3R,              \
                                              zoriResizeShift_##type##_C4R, zoriResizeShift_##type##_AC4R};            \
    static constexpr PixelsMore<T> center[] = {zoriResizeCenter_##type##_C1R, zoriResizeCenter_##type##_C3R,           \
                                               zoriResizeCenter_##type##_C4R, zoriResizeCenter_##type##_AC4R};         \
    static constexpr Planes<T> resizePlanes[] = {zoriResize_##type##_P3R, zoriResize_##type##_P4R};                    \
    static constexpr PlanesMore<T> shiftPlanes[] = {zoriResizeShift_##type##_P3R, zoriResizeShift_##type##_P4R};       \
    static constexpr PlanesMore<T> centerPlanes[] = {zoriResizeCenter_##type##_P3R, zoriResizeCenter_##type##_P4R};    \
  };
FUNCTIONS(8u) FUNCTIONS(16u) FUNCTIONS(32f)
#undef FUNCTIONS
  // clang-format on

  enum class Form {
    Factors,
    Steps,
    Centre
  };

struct Call {
  ZorImgSize srcSize;
  ZorImgRect roi;
  ZorImgSize dstSize;
  Form form;
  double x, y, xMore, yMore;
  int interpolation;
};

std::ostream& operator<<(std::ostream& o, const Call& c)
{
  return o << c.srcSize.width << "x" << c.srcSize.height << " {" << c.roi.x << "," << c.roi.y << "," << c.roi.width
           << "," << c.roi.height << "} to " << c.dstSize.width << "x" << c.dstSize.height << " form " << int(c.form)
           << " " << c.x << " " << c.y << " " << c.xMore << " " << c.yMore << " interpolation " << c.interpolation;
}

template <class T> class Picture { // one image, or planes
public:
  Picture(ZorImgSize size, const Shape& shape, int gap, unsigned seed)
  {
    for (int p = 0; p < shape.planes; ++p)
      planes.emplace_back(size, shape.channels, gap, seed + static_cast<unsigned>(p));
  }
  std::vector<Image<T>> planes;
};

template <class T> ZorStatus run(const Call& c, std::size_t shape, const Picture<T>& src, Picture<T>& dst)
{
  using F = Functions<T>;
  const int srcStep = src.planes[0].step(), dstStep = dst.planes[0].step();
  if (shape < 4) {
    const T* s = src.planes[0].data();
    T* d = dst.planes[0].data();
    if (c.form == Form::Factors)
      return F::resize[shape](s, c.srcSize, srcStep, c.roi, d, dstStep, c.dstSize, c.x, c.y, c.interpolation);
    return (c.form == Form::Steps ? F::shift : F::center)[shape](s, c.srcSize, srcStep, c.roi, d, dstStep, c.dstSize,
                                                                 c.x, c.y, c.xMore, c.yMore, c.interpolation);
  }
  const T* s[4] = {};
  T* d[4] = {};
  for (std::size_t p = 0; p < src.planes.size(); ++p) s[p] = src.planes[p].data(), d[p] = dst.planes[p].data();
  if (c.form == Form::Factors)
    return F::resizePlanes[shape - 4](s, c.srcSize, srcStep, c.roi, d, dstStep, c.dstSize, c.x, c.y, c.interpolation);
  return (c.form == Form::Steps ? F::shiftPlanes : F::centerPlanes)[shape - 4](
    s, c.srcSize, srcStep, c.roi, d, dstStep, c.dstSize, c.x, c.y, c.xMore, c.yMore, c.interpolation);
}

// What a call must do: the status, and outputs from (left, top) on.
template <class T> class Expected {
public:
  ZorStatus status;

  Expected(const Call& c, const Shape& shape, const Picture<T>& src, Picture<T>& dst)
    : status(apply(c, shape, src, dst))
  {}

private:
  static ZorStatus apply(Call c, const Shape& shape, const Picture<T>& src, Picture<T>& dst)
  {
    int left = 0, top = 0;
    double xShift = 0, yShift = 0;
    if (c.form == Form::Steps) xShift = c.xMore, yShift = c.yMore;
    if (c.form == Form::Centre) {
      const int w = std::min(c.roi.width, c.srcSize.width - c.roi.x),
                h = std::min(c.roi.height, c.srcSize.height - c.roi.y);
      const double W = c.dstSize.width, H = c.dstSize.height;
      const double startX = (c.roi.x - c.xMore) * c.x + 0.5 * W, startY = (c.roi.y - c.yMore) * c.y + 0.5 * H;
      const double endX = (c.roi.x + w) * c.x + startX, endY = (c.roi.y + h) * c.y + startY;
      const double dstX = std::max(std::ceil(startX), 0.0), dstY = std::max(std::ceil(startY), 0.0);
      c.dstSize = {static_cast<int>(std::trunc(std::min(W, endX)) - dstX),
                   static_cast<int>(std::trunc(std::min(H, endY)) - dstY)};
      c.roi.width = static_cast<int>(std::ceil(std::min((W - startX) / c.x, double(w))));
      c.roi.height = static_cast<int>(std::ceil(std::min((H - startY) / c.y, double(h))));
      const double sx = (dstX - 0.5 * W) / c.x + c.xMore, sy = (dstY - 0.5 * H) / c.y + c.yMore;
      c.roi.x = static_cast<int>(sx), c.roi.y = static_cast<int>(sy);
      xShift = sx - c.roi.x, yShift = sy - c.roi.y;
      left = static_cast<int>(dstX), top = static_cast<int>(dstY);
      if (c.roi.width < 1 || c.roi.height < 1 || c.roi.x < 0 || c.roi.y < 0) return ZorErrSize;
      if (c.roi.x >= c.srcSize.width || c.roi.y >= c.srcSize.height) return ZorWarnNoRoiIntersect;
      if (c.dstSize.width < 1 || c.dstSize.height < 1) return ZorErrSize;
    }
    Line x(c.srcSize.width, c.roi.x, c.roi.width, c.dstSize.width),
      y(c.srcSize.height, c.roi.y, c.roi.height, c.dstSize.height);
    const bool isSuper = c.interpolation == 8;
    if (isSuper && (c.form == Form::Steps || c.x > 1 || c.y > 1)) return ZorErrInterpolation;
    const int used = lowered(c.interpolation, c.srcSize);
    if (c.form == Form::Steps) {
      x.bySteps(c.x, used == 1);
      y.bySteps(c.y, used == 1);
    } else if (!x.byFactor(c.x, used == 1) || !y.byFactor(c.y, used == 1)) {
      return ZorErrSubsample;
    }
    x.shifted(xShift, used == 1);
    y.shifted(yShift, used == 1);
    for (std::size_t p = 0; p < src.planes.size(); ++p)
      for (int k = 0; k < shape.processed; ++k) {
        const auto sample = [&](int column, int row) {
          EXPECT_TRUE(column >= 0 && row >= 0 && column < c.srcSize.width && row < c.srcSize.height);
          return src.planes[p].get(column, row, k);
        };
        const auto out = isSuper ? super<T>(x, y, c.x, c.y, sample) : interpolated<T>(used, x, y, sample);
        for (int j = 0, n = 0; j < y.count; ++j)
          for (int i = 0; i < x.count; ++i, ++n)
            dst.planes[p].put(left + i, top + j, k, out[static_cast<std::size_t>(n)]);
      }
    return ZorOk;
  }
};

template <class T> void check(const Call& c, std::size_t shape, unsigned seed, int gap = 0)
{
  const Shape& s = shapes[shape];
  const Picture<T> src(c.srcSize, s, gap, seed);
  Picture<T> dst(c.dstSize, s, gap, seed + 100), expected = dst;
  const Expected<T> want(c, s, src, expected);
  const auto status = [&] {
    const Surroundings some(seed);
    return run(c, shape, src, dst);
  };
  ASSERT_EQ(status(), want.status) << c << " " << s.name;
  for (std::size_t p = 0; p < dst.planes.size(); ++p)
    ASSERT_EQ(dst.planes[p].difference(expected.planes[p]), "") << c << " " << s.name << " seed " << seed;
}

constexpr int interpolations[] = {1, 2, 4, 16, 8};

Call randomCall(Random& r, bool small)
{
  Call c;
  const int most = small ? 9 : 60;
  c.srcSize = {r.between(1, most), r.between(1, most)};
  c.roi = {r.below(c.srcSize.width), r.below(c.srcSize.height), r.between(1, most), r.between(1, most)};
  if (r.below(3) == 0) c.roi = {0, 0, c.srcSize.width, c.srcSize.height};
  c.dstSize = {r.between(1, 90), r.between(1, 40)};
  c.interpolation = interpolations[r.below(5)];
  c.form = static_cast<Form>(r.below(3));
  constexpr double plain[] = {1, 2, 0.5, 1.5, 2.0 / 3, 0.25, 1.0 / 3, 3, 0.2, 4};
  const auto factor = [&] { return r.below(2) ? plain[r.below(10)] : r.below(4) ? r.real(0.1, 4) : r.real(0.01, 30); };
  c.x = factor();
  c.y = r.below(3) ? factor() : c.x;
  if (c.interpolation == 8 && r.below(4)) c.x = std::min(c.x, 1 / c.x), c.y = std::min(c.y, 1 / c.y);
  if (c.form == Form::Steps) {
    c.xMore = r.below(2) ? r.real(-8, 8) : 0;
    c.yMore = r.below(2) ? r.real(-8, 8) : r.below(3);
  } else {
    c.xMore = r.real(0, c.srcSize.width);
    c.yMore = r.below(2) ? r.below(c.srcSize.height + 1) : r.real(-5, c.srcSize.height + 5.0);
  }
  return c;
}

template <class T> class Resize : public testing::Test {};
using Types = testing::Types<Zor8u, Zor16u, Zor32f>;
TYPED_TEST_SUITE(Resize, Types);

TYPED_TEST(Resize, FollowsTheRules)
{
  Random r(sizeof(TypeParam));
  for (unsigned seed = 0; seed < 1500 && !this->HasFatalFailure(); ++seed)
    check<TypeParam>(randomCall(r, seed % 4 == 0), static_cast<std::size_t>(r.below(6)), seed, r.below(2) * r.below(9));
}

TYPED_TEST(Resize, WideRowsAndStrongFactors)
{
  const double factors[] = {0.004, 0.02, 1.0 / 16, 1.0 / 3, 0.9, 5.5};
  unsigned seed = 1;
  for (double f : factors)
    for (int interpolation : interpolations)
      for (std::size_t shape : {std::size_t{0}, std::size_t{1}, std::size_t{3}}) {
        const ZorImgSize src = {f < 1 ? 1800 : 150, f < 0.01 ? 260 : 40};
        const Call c = {
          src,          {3, 1, src.width, src.height - 2}, {800, 20}, Form::Factors, f, std::min(f * 4, 1.3), 0, 0,
          interpolation};
        check<TypeParam>(c, shape, ++seed);
        if (this->HasFatalFailure()) return;
      }
}

// One output takes more of a row than is summed at a time; and whole blocks of every size.
TYPED_TEST(Resize, LargeAreas)
{
  unsigned seed = 1;
  for (std::size_t shape : {std::size_t{0}, std::size_t{1}, std::size_t{2}})
    for (double x : {1.0 / 4500, 1.0 / 4096, 0.00011, 1.0 / 300, 1.0 / 7})
      for (double y : {1.0, 0.5, 0.4, 1.0 / 30}) {
        const ZorImgSize size = {9000, 60};
        check<TypeParam>({size, {0, 0, 9000, 60}, {1300, 60}, Form::Factors, x, y, 0, 0, ZORI_INTER_SUPER}, shape,
                         ++seed);
        if (this->HasFatalFailure()) return;
      }
}

// One output takes more rows than are summed at a time, or than 16-bit sums of bytes hold.
TYPED_TEST(Resize, TallAreas)
{
  unsigned seed = 1;
  for (std::size_t shape : {std::size_t{0}, std::size_t{1}, std::size_t{2}})
    for (double y : {1.0 / 64, 1.0 / 65, 0.0131, 1.0 / 257, 1.0 / 258, 1.0 / 600, 0.00047})
      for (double x : {1.0, 0.5, 0.4}) {
        const ZorImgSize size = {25, 2200};
        check<TypeParam>({size, {0, 0, 25, 2200}, {25, 40}, Form::Factors, x, y, 0, 0, ZORI_INTER_SUPER}, shape,
                         ++seed);
        if (this->HasFatalFailure()) return;
      }
  constexpr auto white = std::is_floating_point_v<TypeParam> ? TypeParam{1} : std::numeric_limits<TypeParam>::max();
  for (int rows : {254, 255, 256, 257, 258, 259, 514, 515}) {
    Image<TypeParam> src({40, 2 * rows}, 1, 0, 1), dst({20, 2}, 1, 0, 2);
    for (int y = 0; y < 2 * rows; ++y)
      for (int x = 0; x < 40; ++x) src.put(x, y, 0, white);
    const auto resize = [&](auto function) {
      return function(src.data(), src.size(), src.step(), {0, 0, 40, 2 * rows}, dst.data(), dst.step(), {20, 2}, 0.5,
                      1.0 / rows, ZORI_INTER_SUPER);
    };
    if constexpr (sizeof(TypeParam) == 1) ASSERT_EQ(resize(zoriResize_8u_C1R), ZorOk);
    else if constexpr (sizeof(TypeParam) == 2) ASSERT_EQ(resize(zoriResize_16u_C1R), ZorOk);
    else ASSERT_EQ(resize(zoriResize_32f_C1R), ZorOk);
    for (int x = 0; x < 20; ++x) ASSERT_NEAR(dst.get(x, 1, 0), white, 1e-5) << rows << " rows";
  }
}

// Regions that a team shares: every team gives the same bytes. (All calls of these tests run under some rounding
// field.)
TYPED_TEST(Resize, DoesNotDependOnTheTeam)
{
  using T = TypeParam;
  for (int interpolation : interpolations)
    for (std::size_t shape : {std::size_t{1}, std::size_t{3}, std::size_t{4}}) {
      const double f = interpolation == 8 ? 0.61 : 1.7;
      const Call c = {{400, 300}, {3, 2, 390, 298}, {680, 510}, Form::Factors, f, f, 0, 0, interpolation};
      const Picture<T> src(c.srcSize, shapes[shape], 0, 5);
      Picture<T> first(c.dstSize, shapes[shape], 0, 6);
      const Picture<T> untouched = first;
      const auto call = [&](Picture<T>& dst, unsigned seed) {
        const Surroundings some(seed);
        return run(c, shape, src, dst);
      };
      ASSERT_EQ(call(first, 0), ZorOk);
      for (unsigned seed : {5u, 11u}) { // teams of 2 and 7
        Picture<T> dst = untouched;
        ASSERT_EQ(call(dst, seed), ZorOk);
        for (std::size_t p = 0; p < dst.planes.size(); ++p)
          ASSERT_EQ(dst.planes[p].difference(first.planes[p]), "") << interpolation << " " << shapes[shape].name;
      }
    }
}

// Steps of GetResizeFract repeat the resize.
TYPED_TEST(Resize, ShiftRepeatsResize)
{
  using T = TypeParam;
  for (int interpolation : {1, 2, 4, 16})
    for (double f : {0.37, 1.0, 1.5, 2.0}) {
      const ZorImgSize size = {20, 16};
      const ZorImgRect roi = {2, 3, 30, 11};
      Call c = {size, roi, {80, 60}, Form::Factors, f, f, 0, 0, interpolation};
      const Picture<T> src(size, shapes[1], 0, 9);
      Picture<T> byFactor(c.dstSize, shapes[1], 0, 10), bySteps = byFactor;
      ASSERT_EQ(run(c, 1, src, byFactor), ZorOk);
      ASSERT_EQ(zoriGetResizeFract(size, roi, f, f, &c.x, &c.y, interpolation), ZorOk);
      c.form = Form::Steps;
      c.dstSize = {std::max(1, static_cast<int>(18 * f + 1e-7)), std::max(1, static_cast<int>(11 * f + 1e-7))};
      ASSERT_EQ(run(c, 1, src, bySteps), ZorOk);
      ASSERT_EQ(bySteps.planes[0].difference(byFactor.planes[0]), "") << interpolation << " " << f;
    }
}

// Whole blocks of small sizes, of the image to its end and of a part of it; rows of one strip, and of several.
TEST(ResizeSuper, SmallWholeBlocks)
{
  unsigned seed = 1;
  for (int nx = 2; nx <= 5; ++nx)
    for (int ny : {1, 2, 3, 4, 30, 43})
      for (int width : {15, 16, 17, 31, 46, 256, 257, 520}) {
        const ZorImgSize size = {nx * width, ny * 2};
        const ZorImgRect all = {0, 0, size.width, size.height}, part = {1, 0, size.width - 1, size.height};
        const std::size_t shape = seed % 6;
        for (const ZorImgRect& roi : {all, part}) {
          ++seed;
          check<Zor8u>({size, roi, {width, 2}, Form::Factors, 1.0 / nx, 1.0 / ny, 0, 0, ZORI_INTER_SUPER}, shape, seed,
                       static_cast<int>(seed % 3));
        }
        if (HasFatalFailure()) return;
      }
}

// Rows of the same taps are made together, and pixels doubled: every count of such rows, and of pixels.
TYPED_TEST(Resize, Magnified)
{
  unsigned seed = 1;
  for (int interpolation : {1, 2, 4})
    for (double f : {2.0, 3.0, 4.6})
      for (int width : {7, 16, 29, 47}) {
        ++seed;
        const ZorImgSize src = {width, 9}, dst = {static_cast<int>(width * f) + 1 - static_cast<int>(seed % 3), 40};
        check<TypeParam>({src, {0, 0, width, 9}, dst, Form::Factors, f, f, 0, 0, interpolation}, seed % 6, seed,
                         static_cast<int>(seed % 5));
        if (this->HasFatalFailure()) return;
      }
}

// Steps that are short binary fractions, from shifts before, in and beyond the image, in rows up to where sums of them
// take more bits.
TEST(ResizeShort, StepsOfFewBits)
{
  unsigned seed = 1;
  for (int interpolation : {ZORI_INTER_NN, ZORI_INTER_LINEAR})
    for (int width : {40, 2047, 2048, 2049, 2100})
      for (double step : {0.25, 0.5, 1.0, 1.75, 2.0})
        for (double shift : {-9.5, -1.5, 0.25, 37.5, 2040.0}) {
          const ZorImgSize size = {width, 4};
          ++seed;
          check<Zor8u>(
            {size, {5, 1, width - 5, 3}, {width * 2 + 3, 9}, Form::Steps, step, step, shift, shift / 16, interpolation},
            0, seed, static_cast<int>(seed % 3));
          if (HasFatalFailure()) return;
        }
}

// Blocks of 8u whose sums lie next to where results change.
TEST(ResizeSuper, RoundsAsTheDoubleProduct)
{
  for (int nx = 1; nx <= 16; ++nx)
    for (int ny = 1; ny <= 17; ++ny) {
      const int n = nx * ny, blocks = 3 * 255;
      Image<Zor8u> src({nx * blocks, ny}, 1, 0, 1), dst({blocks, 1}, 1, 0, 2), expected = dst;
      const double x = 1.0 / nx, y = 1.0 / ny;
      for (int b = 0; b < blocks; ++b) {
        const int sum = std::min(b / 3 * n + n / 2 + b % 3 - (n > 1), 255 * n);
        for (int k = 0; k < n; ++k) src.put(b * nx + k % nx, k / nx, 0, static_cast<Zor8u>(sum / n + (k < sum % n)));
        expected.put(b, 0, 0, cut<Zor8u>(sum * (x * y) + 0.5));
      }
      ASSERT_EQ(zoriResize_8u_C1R(src.data(), src.size(), src.step(), {0, 0, nx * blocks, ny}, dst.data(), dst.step(),
                                  {blocks, 1}, x, y, ZORI_INTER_SUPER),
                ZorOk);
      ASSERT_EQ(dst.difference(expected), "") << nx << "x" << ny;
    }
}

// Whole blocks with the greatest sums: beyond 15, 16, 31 and 32 bits.
template <class T, class Function> void expectWhite(ZorImgSize block, int blocks, int channels, Function resize)
{
  const ZorImgSize size = {block.width * blocks, block.height};
  constexpr T white = std::numeric_limits<T>::max();
  Image<T> src(size, channels, 0, 1), dst({blocks, 1}, channels, 0, 2), expected = dst;
  const auto fill = [=](Image<T>& image, ZorImgSize of) {
    for (int y = 0; y < of.height; ++y)
      for (int x = 0; x < of.width; ++x)
        for (int c = 0; c < channels; ++c) image.put(x, y, c, white);
  };
  fill(src, size), fill(expected, {blocks, 1});
  ASSERT_EQ(resize(src.data(), size, src.step(), ZorImgRect{0, 0, size.width, size.height}, dst.data(), dst.step(),
                   ZorImgSize{blocks, 1}, 1.0 / block.width, 1.0 / block.height, ZORI_INTER_SUPER),
            ZorOk);
  EXPECT_EQ(dst.difference(expected), "") << block.width << 'x' << block.height << " of " << channels;
}
TEST(ResizeSuper, GreatBlocksOfWhite)
{
  for (const int side : {2901, 2902, 4104, 4105}) expectWhite<Zor8u>({side, side}, 1, 1, zoriResize_8u_C1R);
  for (const int side : {181, 182, 256, 257, 258, 500}) expectWhite<Zor16u>({side, side}, 1, 1, zoriResize_16u_C1R);
  for (const int width : {1, 2, 3, 4, 40})
    for (const int height : {4, 32, 33, 43, 44, 64, 65, 128, 129, 255, 256, 257, 258, 259, 600})
      for (const int blocks : {1, 20}) {
        expectWhite<Zor8u>({width, height}, blocks, 1, zoriResize_8u_C1R);
        expectWhite<Zor8u>({width, height}, blocks, 3, zoriResize_8u_C3R);
        expectWhite<Zor8u>({width, height}, blocks, 4, zoriResize_8u_C4R);
        expectWhite<Zor16u>({width, height}, blocks, 1, zoriResize_16u_C1R);
      }
}

TEST(ResizeFloat, InfinitiesReachOnlyTheTapsThatUseThem)
{
  Image<Zor32f> src({40, 40}, 1, 0, 1), dst({80, 80}, 1, 0, 2);
  for (int y = 0; y < 40; ++y)
    for (int x = 0; x < 40; ++x)
      src.put(x, y, 0, x % 39 == 0 && y == 20 ? std::numeric_limits<float>::infinity() : 1.0f);
  ASSERT_EQ(zoriResize_32f_C1R(src.data(), {40, 40}, src.step(), {0, 0, 40, 40}, dst.data(), dst.step(), {80, 80}, 2, 2,
                               ZORI_INTER_LANCZOS),
            ZorOk);
  for (int x : {0, 1, 2, 3, 4, 75, 76, 77, 78, 79}) // taps beyond the edge do not multiply it by zero
    EXPECT_TRUE(std::isinf(dst.get(x, 40, 0))) << x;
  for (int x = 8; x < 72; ++x) EXPECT_NEAR(dst.get(x, 40, 0), 1, 1e-5);
}

TEST(ResizeStatus, OrderOfChecks)
{
  Image<Zor8u> src({16, 12}, 1, 0, 1), dst({24, 18}, 1, 0, 2);
  const Image<Zor8u> before = dst;
  const auto call = [&](ZorImgRect roi, double x, double y, int interpolation, ZorImgSize dstSize = {24, 18}) {
    return zoriResize_8u_C1R(src.data(), {16, 12}, src.step(), roi, dst.data(), dst.step(), dstSize, x, y,
                             interpolation);
  };
  const double nan = std::numeric_limits<double>::quiet_NaN(), tiny = std::numeric_limits<double>::denorm_min();
  EXPECT_EQ(call({-1, 0, 8, 8}, 0, 0, 3), ZorErrSize);
  EXPECT_EQ(call({16, 0, 8, 8}, 0, 0, 3, {0, 0}), ZorWarnNoRoiIntersect);
  EXPECT_EQ(call({15, 11, 8, 8}, 0, 0, 3, {0, 0}), ZorErrSize);
  EXPECT_EQ(call({0, 0, 8, 8}, nan, 1, 3), ZorErrResizeFactor);
  EXPECT_EQ(call({0, 0, 8, 8}, 0.5, 2.0, 8), ZorErrInterpolation);
  EXPECT_EQ(call({0, 0, 8, 8}, 0.01, 1, 18), ZorErrInterpolation);
  EXPECT_EQ(call({0, 0, 8, 8}, 0.01, 1, 8), ZorErrSubsample);
  EXPECT_EQ(call({0, 0, 8, 8}, 1, tiny, 2), ZorErrSubsample);
  EXPECT_EQ(dst.difference(before), "");
}

// Nothing in these is worth a crash.
TEST(ResizeStatus, StrangeNumbers)
{
  const double inf = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();
  const double strange[] = {inf, 1e300, 1e9, 1e-9, 4e-324, 1e-300, 0.0625};
  const double shifts[] = {nan, inf, -inf, 1e300, -1e300, 4e9, -0.3};
  const Image<Zor16u> src({16, 12}, 1, 0, 1);
  Image<Zor16u> dst({24, 18}, 1, 0, 2);
  for (double x : strange)
    for (double y : strange)
      for (int interpolation : interpolations) {
        zoriResize_16u_C1R(src.data(), {16, 12}, src.step(), {1, 1, INT_MAX, INT_MAX}, dst.data(), dst.step(), {24, 18},
                           x, y, interpolation);
        for (double shift : shifts) {
          zoriResizeShift_16u_C1R(src.data(), {16, 12}, src.step(), {1, 1, 15, 11}, dst.data(), dst.step(), {24, 18}, x,
                                  y, shift, 1.5, interpolation);
          zoriResizeCenter_16u_C1R(src.data(), {16, 12}, src.step(), {1, 1, 15, 11}, dst.data(), dst.step(), {24, 18},
                                   x, y, 8, shift, interpolation);
        }
      }
}

} // namespace
