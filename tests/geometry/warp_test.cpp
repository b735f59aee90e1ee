// Warps against a plain walk: which pixels are covered, where each lies in the source, and what the plain samplers of
// warp_image.h find there.
#include "warp_image.h"
#include "zori/geometry.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <array>
#include <cfenv>
#include <functional>
#include <limits>

using namespace warptest;

extern "C" void zoriTestShareAllWork(int on);

namespace {

constexpr int interpolations[] = {ZORI_INTER_NN, ZORI_INTER_LINEAR, ZORI_INTER_CUBIC};

struct Point {
  double x, y;
};
using Quad = std::array<Point, 4>;
using Numbers = std::vector<double>; // coefficients, row by row

template <class T, int N>
using Function = ZorStatus (*)(const T*, ZorImgSize, int, ZorImgRect, T*, int, ZorImgRect, const double (*)[N], int);
template <class T>
using QuadFunction = ZorStatus (*)(const T*, ZorImgSize, int, ZorImgRect, const double (*)[2], T*, int, ZorImgRect,
                                   const double (*)[2], int);

template <int N> const double (*rows(const Numbers& c))[N] { return reinterpret_cast<const double(*)[N]>(c.data()); }

// ---- The plain walk ----

struct Span {
  int first, last;
};

// Where a level line cuts a convex quadrangle.
Span covered(const Quad& quad, int y, ZorImgRect rect)
{
  double left = 1e30, right = -1e30;
  for (int i = 0; i < 4; ++i) {
    const Point a = quad[i], b = quad[(i + 1) % 4];
    if (y < std::min(a.y, b.y) || y > std::max(a.y, b.y)) continue;
    for (const Point& p : {a, b})
      if (p.y == y) {
        left = std::min(left, p.x);
        right = std::max(right, p.x);
      }
    if (a.y == b.y) continue;
    const double x = a.x + (y - a.y) * (b.x - a.x) / (b.y - a.y);
    left = std::min(left, x);
    right = std::max(right, x);
  }
  constexpr double hair = 1e-13, far = 1e6; // what does not fit an int must not become one
  const auto whole = [=](double x) { return int(std::clamp(x, -far, far)); };
  return {std::max(rect.x, whole(std::ceil(left - hair))),
          std::min(rect.x + rect.width - 1, whole(std::floor(right + hair)))};
}

// Source points of the covered pixels: point(x, y, first column, first row, rows before, columns before).
struct Walk {
  std::function<void(int y, int row)> startRow;   // row counts from the first covered one
  std::function<void(int x, int y)> startColumns; // at the first covered column
  std::function<Point()> next;
};

Walk affineWalk(const Numbers& c)
{
  struct State {
    double p, q, x, y;
  };
  const auto s = std::make_shared<State>();
  return {[=](int y, int row) {
            s->p = row == 0 ? y * c[1] + c[2] : s->p + c[1];
            s->q = row == 0 ? y * c[4] + c[5] : s->q + c[4];
          },
          [=](int x, int) {
            s->x = x * c[0] + s->p;
            s->y = x * c[3] + s->q;
          },
          [=] {
            const Point here = {s->x, s->y};
            s->x += c[0];
            s->y += c[3];
            return here;
          }};
}

Walk perspectiveWalk(const Numbers& c)
{
  struct State {
    double row[3], sum[3];
  };
  const auto s = std::make_shared<State>();
  return {[=](int y, int row) {
            for (int i = 0; i < 3; ++i)
              s->row[i] = row == 0 ? y * c[3 * i + 1] + c[3 * i + 2] : s->row[i] + c[3 * i + 1];
          },
          [=](int x, int) {
            for (int i = 0; i < 3; ++i) s->sum[i] = x * c[3 * i] + s->row[i];
          },
          [=] {
            const Point here = {float(s->sum[0] / s->sum[2]), float(s->sum[1] / s->sum[2])};
            for (int i = 0; i < 3; ++i) s->sum[i] += c[3 * i];
            return here;
          }};
}

// A point by itself, whatever stands beside it.
Walk directWalk(std::function<Point(int x, int y)> point)
{
  const auto at = std::make_shared<std::pair<int, int>>();
  return {[](int, int) {}, [=](int x, int y) { *at = {x, y}; }, [=] { return point(at->first++, at->second); }};
}

template <class T>
void expectWarp(const Image<T>& src, const Image<T>& before, const Image<T>& dst, ZorImgRect dstRoi, const Quad& quad,
                Walk walk, int interpolation, int written, double hair)
{
  int rowsDone = 0;
  for (int y = 0; y < dst.size.height; ++y) {
    Span span = {0, -1};
    if (y >= dstRoi.y && y < dstRoi.y + dstRoi.height) span = covered(quad, y, dstRoi);
    const bool isRow = y >= dstRoi.y && y < dstRoi.y + dstRoi.height &&
                       y >= std::min({quad[0].y, quad[1].y, quad[2].y, quad[3].y}) &&
                       y <= std::max({quad[0].y, quad[1].y, quad[2].y, quad[3].y});
    if (isRow) walk.startRow(y, rowsDone++);
    if (span.first <= span.last) walk.startColumns(span.first, y);
    for (int x = 0; x < dst.size.width; ++x) {
      const bool isCovered = x >= span.first && x <= span.last;
      const Point p = isCovered ? walk.next() : Point{0, 0};
      for (int c = 0; c < dst.channels; ++c) {
        const bool isWritten = isCovered && c < written;
        const double want = isWritten ? sampled(src, p.x, p.y, c, interpolation) : double(before.at(x, y, c));
        ASSERT_NEAR(want, dst.at(x, y, c), isWritten ? hair : 0)
          << x << ", " << y << " channel " << c << " from " << p.x << ", " << p.y
          << (isCovered ? "" : " (not covered)");
      }
    }
  }
}

// ---- Affine ----

Numbers inverseAffine(const Numbers& c)
{
  const double r = 1 / (c[0] * c[4] - c[1] * c[3]);
  return {c[4] * r, -c[1] * r, (c[1] * c[5] - c[4] * c[2]) * r, -c[3] * r, c[0] * r, (c[3] * c[2] - c[0] * c[5]) * r};
}

Quad affineQuad(const Numbers& c, ZorImgRect r)
{
  Quad q;
  const int x[] = {r.x, r.x + r.width - 1, r.x + r.width - 1, r.x},
            y[] = {r.y, r.y, r.y + r.height - 1, r.y + r.height - 1};
  for (int i = 0; i < 4; ++i) q[i] = {c[0] * x[i] + c[1] * y[i] + c[2], c[3] * x[i] + c[4] * y[i] + c[5]};
  return q;
}

// The backward coefficients as the warp forms them from the quadrangle.
Numbers affineFromQuad(const Quad& q, ZorImgRect r)
{
  const double d = (q[1].x - q[0].x) * (q[2].y - q[1].y) - (q[2].x - q[1].x) * (q[1].y - q[0].y), f = 1 / d;
  const double u = (r.width - 1) * f, v = (r.height - 1) * f;
  const double c00 = (q[2].y - q[1].y) * u, c01 = -(q[2].x - q[1].x) * u;
  const double c10 = -(q[1].y - q[0].y) * v, c11 = (q[1].x - q[0].x) * v;
  return {c00, c01, r.x - c01 * q[0].y - c00 * q[0].x, c10, c11, r.y - c10 * q[0].x - c11 * q[0].y};
}

const Numbers affines[] = {
  {1.3, 0.4, 3.7, -0.35, 1.15, 12.3},   // a turn
  {-0.8, 0.31, 70.2, 0.22, 1.7, -5.4},  // mirrored
  {0.11, 0.02, 10.3, -0.03, 0.12, 9.1}, // much smaller
  {5.3, -1.2, -30.1, 0.7, 6.1, -40.7},  // larger than the destination
  {0.07, 1.2, 8.3, -1.1, 0.05, 60.2},   // nearly a quarter turn
};

template <class T> struct Family {
  Function<T, 3> c1, c3, c4, ac4, back;
};
const Family<Zor8u> bytes = {zoriWarpAffine_8u_C1R, zoriWarpAffine_8u_C3R, zoriWarpAffine_8u_C4R,
                             zoriWarpAffine_8u_AC4R, zoriWarpAffineBack_8u_C1R};
const Family<Zor16u> words = {zoriWarpAffine_16u_C1R, zoriWarpAffine_16u_C3R, zoriWarpAffine_16u_C4R,
                              zoriWarpAffine_16u_AC4R, zoriWarpAffineBack_16u_C1R};
const Family<Zor32f> floats = {zoriWarpAffine_32f_C1R, zoriWarpAffine_32f_C3R, zoriWarpAffine_32f_C4R,
                               zoriWarpAffine_32f_AC4R, zoriWarpAffineBack_32f_C1R};

template <class T> void checkAffine(const Family<T>& family)
{
  const struct {
    ZorImgSize size;
    ZorImgRect region;
  } sources[] = {
    {{61, 47}, {0, 0, 61, 47}}, {{61, 47}, {7, 5, 30, 100}}, {{4, 5}, {0, 0, 4, 5}}, {{3, 17}, {0, 0, 3, 17}}};
  const struct {
    Function<T, 3> function;
    int channels, written;
  } layouts[] = {{family.c1, 1, 1}, {family.c3, 3, 3}, {family.c4, 4, 4}, {family.ac4, 4, 3}};
  const ZorImgRect dstRoi = {3, 2, 80, 57};
  for (const auto& layout : layouts)
    for (const auto& source : sources)
      for (const Numbers& c : affines)
        for (const int interpolation : interpolations) {
          SCOPED_TRACE(testing::Message() << layout.channels << " channels, " << source.size.width
                                          << " wide, coefficient " << c[0] << ", interpolation " << interpolation);
          const Image<T> src(source.size.width, source.size.height, layout.channels, 5, 1, layout.channels == 3);
          const ZorImgRect region = {source.region.x, source.region.y,
                                     std::min(source.region.width, source.size.width - source.region.x),
                                     std::min(source.region.height, source.size.height - source.region.y)};
          const Quad quad = affineQuad(c, region);
          Image<T> dst(90, 64, layout.channels, 6, 5);
          const Image<T> before(90, 64, layout.channels, 6, 5);
          const ZorStatus status = layout.function(src.data(), source.size, src.step, source.region, dst.data(),
                                                   dst.step, dstRoi, rows<3>(c), interpolation);
          ASSERT_TRUE(status == ZorOk || status == ZorWarnNoQuadIntersect) << status;
          expectWarp(src, before, dst, dstRoi, quad, affineWalk(affineFromQuad(quad, region)), interpolation,
                     layout.written, tolerance<T>(interpolation));
          if (testing::Test::HasFatalFailure()) return;
          if (layout.channels > 1) continue;
          // the same backward: the quadrangle comes of the inverse, the points of the coefficients as they are
          const Numbers back = inverseAffine(c);
          Image<T> dstBack(90, 64, 1, 6, 5);
          family.back(src.data(), source.size, src.step, source.region, dstBack.data(), dstBack.step, dstRoi,
                      rows<3>(back), interpolation);
          expectWarp(src, before, dstBack, dstRoi, affineQuad(inverseAffine(back), region), affineWalk(back),
                     interpolation, 1, tolerance<T>(interpolation));
          if (testing::Test::HasFatalFailure()) return;
        }
}

// ---- Perspective and bilinear ----

Quad mappedCorners(ZorImgRect r, const std::function<Point(double, double)>& map)
{
  const double left = r.x, top = r.y, right = r.x + r.width - 1, bottom = r.y + r.height - 1;
  return {map(left, top), map(right, top), map(right, bottom), map(left, bottom)};
}

Point perspectivePoint(const Numbers& c, double x, double y)
{
  const double w = c[6] * x + c[7] * y + c[8];
  return {(c[0] * x + c[1] * y + c[2]) / w, (c[3] * x + c[4] * y + c[5]) / w};
}
Point bilinearPoint(const Numbers& c, double x, double y)
{
  return {c[0] * x * y + c[1] * x + c[2] * y + c[3], c[4] * x * y + c[5] * x + c[6] * y + c[7]};
}

// The point that the bilinear map takes to `to`, by Newton's method from `from`.
Point bilinearOrigin(const Numbers& c, Point to, Point from)
{
  for (int i = 0; i < 60; ++i) {
    const Point at = bilinearPoint(c, from.x, from.y);
    const double xx = c[0] * from.y + c[1], xy = c[0] * from.x + c[2], yx = c[4] * from.y + c[5],
                 yy = c[4] * from.x + c[6], d = xx * yy - xy * yx;
    from.x -= ((at.x - to.x) * yy - (at.y - to.y) * xy) / d;
    from.y -= ((at.y - to.y) * xx - (at.x - to.x) * yx) / d;
  }
  return from;
}

// A smooth picture, so that a point that is off by rounding gives nearly the same.
template <class T> void makeSmooth(Image<T>& image)
{
  for (int y = 0; y < image.size.height; ++y)
    for (int x = 0; x < image.size.width * image.channels; ++x)
      image.put(x, y, T(100 + 60 * std::sin(x * 0.21 / image.channels) + 40 * std::cos(y * 0.17)));
}

constexpr ZorImgRect wholeSource = {0, 0, 61, 47}, wholeDst = {0, 0, 90, 64};

double greatestDifference(const Image<Zor32f>& a, const Image<Zor32f>& b)
{
  double most = 0;
  for (int y = 0; y < a.size.height; ++y)
    for (int x = 0; x < a.size.width; ++x) most = std::max(most, std::fabs(double(a.at(x, y)) - b.at(x, y)));
  return most;
}

constexpr double srcCorners[4][2] = {{0, 0}, {60, 0}, {60, 46}, {0, 46}};
constexpr double dstCorners[4][2] = {{7.3, 4.1}, {80.2, 11.7}, {70.9, 60.3}, {15.6, 50.2}};

} // namespace

TEST(WarpAffine, Bytes) { checkAffine(bytes); }
TEST(WarpAffine, Words) { checkAffine(words); }
TEST(WarpAffine, Floats) { checkAffine(floats); }

TEST(WarpPerspective, BothWaysFollowTheirQuotients)
{
  const Image<Zor8u> src(61, 47, 3, 1);
  const Image<Zor8u> before(90, 64, 3, 2);
  // from destination to source; the quadrangle is that of the inverse
  const Numbers back = {0.9, 0.07, -3.2, -0.05, 0.85, 1.137, 0.0011, 0.0023, 1};
  const double(*const b)[3] = rows<3>(back);
  Numbers forward;
  for (int i = 0; i < 3; ++i)
    for (int k = 0; k < 3; ++k) {
      const int i1 = (i + 1) % 3, i2 = (i + 2) % 3, k1 = (k + 1) % 3, k2 = (k + 2) % 3;
      forward.push_back(b[k1][i1] * b[k2][i2] - b[k1][i2] * b[k2][i1]);
    }
  const Quad quad = mappedCorners(wholeSource, [&](double x, double y) { return perspectivePoint(forward, x, y); });
  for (const int interpolation : interpolations) {
    Image<Zor8u> dst(90, 64, 3, 2);
    ASSERT_EQ(ZorOk, zoriWarpPerspectiveBack_8u_C3R(src.data(), src.size, src.step, wholeSource, dst.data(), dst.step,
                                                    wholeDst, b, interpolation));
    expectWarp(src, before, dst, wholeDst, quad, perspectiveWalk(back), interpolation, 3,
               tolerance<Zor8u>(interpolation));
  }
  // the other way round the coefficients come of the quadrangle; they lead to the same points
  Image<Zor32f> smooth(61, 47), there(90, 64), back32(90, 64);
  makeSmooth(smooth);
  ASSERT_EQ(ZorOk, zoriWarpPerspective_32f_C1R(smooth.data(), smooth.size, smooth.step, wholeSource, there.data(),
                                               there.step, wholeDst, rows<3>(forward), ZORI_INTER_LINEAR));
  ASSERT_EQ(ZorOk, zoriWarpPerspectiveBack_32f_C1R(smooth.data(), smooth.size, smooth.step, wholeSource, back32.data(),
                                                   back32.step, wholeDst, b, ZORI_INTER_LINEAR));
  EXPECT_LT(greatestDifference(there, back32), 1e-3);
}

TEST(WarpBilinear, InvertsTheForwardMap)
{
  Image<Zor32f> src(61, 47);
  makeSmooth(src);
  const Image<Zor32f> before(90, 64, 1, 2);
  const ZorImgRect region = {4, 3, 50, 40};
  for (const Numbers& c : {Numbers{0.006, 1.1, 0.13, 2.2, 0.004, -0.12, 1.05, 7.4},
                           Numbers{-0.009, -1.0, 0.2, 82.1, 0.003, 0.1, 0.9, 4.3}, // mirrored
                           Numbers{0, 1.1, 0.13, 2.2, 0, -0.12, 1.05, 7.4}}) {     // affine
    const Quad quad = mappedCorners(region, [&](double x, double y) { return bilinearPoint(c, x, y); });
    for (const int interpolation : {ZORI_INTER_LINEAR, ZORI_INTER_CUBIC}) {
      Image<Zor32f> dst(90, 64, 1, 2);
      ASSERT_EQ(ZorOk, zoriWarpBilinear_32f_C1R(src.data(), src.size, src.step, region, dst.data(), dst.step, wholeDst,
                                                rows<4>(c), interpolation));
      expectWarp(src, before, dst, wholeDst, quad, directWalk([&](int x, int y) {
                   return bilinearOrigin(c, {double(x), double(y)}, {25, 20});
                 }),
                 interpolation, 1, 1e-3);
    }
  }
}

TEST(WarpBilinear, BackwardTakesThePointsAsTheyAre)
{
  const Image<Zor8u> src(61, 47, 1, 1);
  const Image<Zor8u> before(90, 64, 1, 2);
  const Numbers c = {0.003, 0.7, -0.1, 1.3137, -0.002, 0.09, 0.8, -3.1059};
  // each corner's preimage on the destination's side of the fold
  const Quad quad = mappedCorners(wholeSource, [&](double x, double y) { return bilinearOrigin(c, {x, y}, {45, 30}); });
  for (const int interpolation : interpolations) {
    Image<Zor8u> dst(90, 64, 1, 2);
    ASSERT_EQ(ZorOk, zoriWarpBilinearBack_8u_C1R(src.data(), src.size, src.step, wholeSource, dst.data(), dst.step,
                                                 wholeDst, rows<4>(c), interpolation));
    expectWarp(src, before, dst, wholeDst, quad, directWalk([&](int x, int y) { return bilinearPoint(c, x, y); }),
               interpolation, 1, tolerance<Zor8u>(interpolation));
  }
}

// Quadrangle to quadrangle: with the source's corners it is the warp by the transform of the destination's.
TEST(WarpQuad, EqualsTheWarpByItsTransform)
{
  Image<Zor32f> src(61, 47);
  makeSmooth(src);
  const double parallelogram[4][2] = {{7.3, 4.1}, {80.2, 11.7}, {75.3, 52.1}, {2.4, 44.5}};
  const auto compare = [&](auto byQuad, auto byCoeffs, const auto& coeffs, const double(*dstQuad)[2]) {
    Image<Zor32f> a(90, 64, 1, 3), b(90, 64, 1, 3);
    EXPECT_EQ(ZorOk, byQuad(src.data(), src.size, src.step, wholeSource, srcCorners, a.data(), a.step, wholeDst,
                            dstQuad, ZORI_INTER_LINEAR));
    EXPECT_EQ(ZorOk, byCoeffs(src.data(), src.size, src.step, wholeSource, b.data(), b.step, wholeDst, coeffs,
                              ZORI_INTER_LINEAR));
    EXPECT_LT(greatestDifference(a, b), 1e-3);
  };
  double affine[2][3], perspective[3][3], bilinear[2][4];
  zoriGetAffineTransform(wholeSource, parallelogram, affine);
  zoriGetPerspectiveTransform(wholeSource, dstCorners, perspective);
  zoriGetBilinearTransform(wholeSource, dstCorners, bilinear);
  compare(zoriWarpAffineQuad_32f_C1R, zoriWarpAffine_32f_C1R, affine, parallelogram);
  compare(zoriWarpPerspectiveQuad_32f_C1R, zoriWarpPerspective_32f_C1R, perspective, dstCorners);
  compare(zoriWarpBilinearQuad_32f_C1R, zoriWarpBilinear_32f_C1R, bilinear, dstCorners);
}

// Between equal quadrangles every pixel stays; what lies outside the region or the quadrangle is not written.
TEST(WarpQuad, StaysInTheRegion)
{
  const Image<Zor32f> src(61, 47, 1, 4);
  const double quad[4][2] = {{10, 5}, {50, 9}, {44, 40}, {6, 33}};
  const Quad shape = {Point{10, 5}, Point{50, 9}, Point{44, 40}, Point{6, 33}};
  const ZorImgRect region = {15, 8, 20, 100};
  for (const QuadFunction<Zor32f> function :
       {QuadFunction<Zor32f>(zoriWarpAffineQuad_32f_C1R), QuadFunction<Zor32f>(zoriWarpPerspectiveQuad_32f_C1R),
        QuadFunction<Zor32f>(zoriWarpBilinearQuad_32f_C1R)}) {
    const Image<Zor32f> before(61, 47, 1, 5);
    Image<Zor32f> dst(61, 47, 1, 5);
    ASSERT_EQ(ZorOk, function(src.data(), src.size, src.step, region, quad, dst.data(), dst.step, wholeSource, quad,
                              ZORI_INTER_NN));
    for (int y = 0; y < 47; ++y) {
      const Span span = covered(shape, y, wholeSource);
      for (int x = 0; x < 61; ++x) {
        const bool isWritten = x >= span.first && x <= span.last && x >= 15 && x < 35 && y >= 8;
        ASSERT_EQ(isWritten ? src.at(x, y) : before.at(x, y), dst.at(x, y)) << x << ", " << y;
      }
    }
  }
}

// A pixel on an edge is inside, on all sides, and an edge a hair off counts as on the pixel.
TEST(WarpEdges, PixelsOnTheEdgeAreWritten)
{
  const Image<Zor8u> src(5, 4, 1, 1);
  for (const double hair : {0.0, 4e-15, -4e-15}) {
    const Numbers c = {1, 0, 3 + hair, 0, 1, 2};
    const Image<Zor8u> before(12, 9, 1, 2);
    Image<Zor8u> dst(12, 9, 1, 2);
    ASSERT_EQ(ZorOk, zoriWarpAffine_8u_C1R(src.data(), src.size, src.step, src.whole(), dst.data(), dst.step,
                                           dst.whole(), rows<3>(c), ZORI_INTER_LINEAR));
    for (int y = 0; y < 9; ++y)
      for (int x = 0; x < 12; ++x) {
        const bool isInside = x >= 3 && x < 8 && y >= 2 && y < 6;
        EXPECT_EQ(isInside ? src.at(x - 3, y - 2) : before.at(x, y), dst.at(x, y)) << x << ", " << y;
      }
  }
}

TEST(WarpEdges, SmoothingBlendsThePixelOutside)
{
  // x' = x + y / 4 + 2: slanted edges left and right, level ones above and below
  Image<Zor32f> src(9, 9, 4, 1);
  const Numbers c = {1, 0.25, 2, 0, 1, 0};
  Image<Zor32f> plain(16, 9, 4, 2), smooth(16, 9, 4, 2);
  const auto warp = [&](Image<Zor32f>& dst, int interpolation) {
    ASSERT_EQ(ZorOk, zoriWarpAffine_32f_AC4R(src.data(), src.size, src.step, src.whole(), dst.data(), dst.step,
                                             dst.whole(), rows<3>(c), interpolation));
  };
  warp(plain, ZORI_INTER_LINEAR);
  warp(smooth, ZORI_INTER_LINEAR | ZORI_SMOOTH_EDGE);
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 16; ++x)
      for (int k = 0; k < 4; ++k) {
        double want = plain.at(x, y, k);
        const double left = 2 + y / 4.0, right = 10 + y / 4.0;
        const auto blend = [&](double edge, int inner) {
          want = want * std::fabs(edge - x) + double(plain.at(inner, y, k)) * std::fabs(edge - inner);
        };
        if (k < 3 && x == std::floor(left) && x != left) blend(left, x + 1);
        if (k < 3 && x == std::ceil(right) && x != right) blend(right, x - 1);
        EXPECT_NEAR(want, smooth.at(x, y, k), 1e-4) << x << ", " << y;
      }
  // turned by a quarter the edges above and below are blended
  Image<Zor8u> small(9, 9, 1, 1), a(9, 16, 1, 2), b(9, 16, 1, 2);
  const Numbers d = {1, 0, 0, 0.25, 1, 2};
  zoriWarpAffine_8u_C1R(small.data(), small.size, small.step, small.whole(), a.data(), a.step, a.whole(), rows<3>(d),
                        1);
  zoriWarpAffine_8u_C1R(small.data(), small.size, small.step, small.whole(), b.data(), b.step, b.whole(), rows<3>(d),
                        1 | ZORI_SMOOTH_EDGE);
  EXPECT_EQ(int(a.at(1, 2) * 0.25 + a.at(1, 3) * 0.75 + 0.5), b.at(1, 2));
  EXPECT_EQ(int(a.at(3, 11) * 0.25 + a.at(3, 10) * 0.75 + 0.5), b.at(3, 11));
  EXPECT_EQ(a.at(4, 3), b.at(4, 3)); // on a pixel
}

// Offsets and coordinates have forms for ordinary and for large images.
TEST(WarpAffine, LargeSourcesGiveTheSame)
{
  const Numbers c = {0.9, 0.31, 4.3, -0.2, 1.1, 9.2};
  const auto check = [&](auto function, auto element, int channels, int width, int height, ZorImgRect region) {
    using T = decltype(element);
    Image<T> src(width, height, channels, 3);
    const Image<T> before(50, 40, channels, 4);
    const Quad quad = affineQuad(c, region);
    const ZorImgRect dstRoi = {int(quad[0].x), int(quad[0].y) - 12, 50, 40};
    // a destination that begins far out: the image's origin is not ours
    for (const int interpolation : interpolations) {
      Image<T> dst(50, 40, channels, 4);
      Numbers moved = c;
      moved[2] -= dstRoi.x;
      moved[5] -= dstRoi.y;
      const Quad here = affineQuad(moved, region);
      ASSERT_EQ(ZorOk, function(src.data(), src.size, src.step, region, dst.data(), dst.step, dst.whole(),
                                rows<3>(moved), interpolation));
      expectWarp(src, before, dst, dst.whole(), here, affineWalk(affineFromQuad(here, region)), interpolation, channels,
                 tolerance<T>(interpolation));
    }
  };
  check(zoriWarpAffine_8u_C3R, Zor8u{}, 3, 12000, 30, {11900, 2, 90, 28});
  check(zoriWarpAffine_8u_C1R, Zor8u{}, 1, 40000, 30, {39950, 2, 50, 28});
  check(zoriWarpAffine_8u_C1R, Zor8u{}, 1, 30, 140000, {2, 139950, 28, 50});
  check(zoriWarpAffine_32f_C1R, Zor32f{}, 1, 40000, 30, {39950, 2, 50, 28});
}

TEST(WarpStatus, ComesInItsOrder)
{
  Image<Zor8u> src(10, 8), dst(20, 20);
  const auto warp = [&](ZorImgRect region, const Numbers& c, ZorImgRect roi = {0, 0, 20, 20}) {
    return zoriWarpAffine_8u_C1R(src.data(), src.size, src.step, region, dst.data(), dst.step, roi, rows<3>(c), 1);
  };
  const Numbers identity = {1, 0, 0, 0, 1, 0}, singular = {1, 2, 0, 2, 4, 0}, far = {1, 0, 900, 0, 1, 0};
  EXPECT_EQ(ZorErrQuad, warp({20, 0, 4, 4}, singular));
  EXPECT_EQ(ZorWarnNoRoiIntersect, warp({10, 0, 1, 1}, identity));
  EXPECT_EQ(ZorErrCoeff, warp({9, 0, 5, 5}, identity));
  EXPECT_EQ(ZorErrCoeff, warp({0, 0, 1, 5}, far));
  EXPECT_EQ(ZorWarnNoQuadIntersect, warp({0, 0, 5, 5}, far));
  EXPECT_EQ(ZorWarnNoQuadIntersect, warp({0, 0, 5, 5}, identity, {5, 0, 4, 4}));
  EXPECT_EQ(ZorOk, warp({0, 0, 5, 5}, identity, {4, 0, 4, 4}));
  const double bowTie[4][2] = {{0, 0}, {5, 5}, {5, 0}, {0, 5}}, square[4][2] = {{0, 0}, {5, 0}, {5, 5}, {0, 5}};
  const auto quad = [&](const double(*from)[2], const double(*to)[2], ZorImgRect region) {
    return zoriWarpBilinearQuad_8u_C1R(src.data(), src.size, src.step, region, from, dst.data(), dst.step, {8, 8, 2, 2},
                                       to, 1);
  };
  EXPECT_EQ(ZorErrRect, quad(bowTie, square, {20, 0, 1, 1}));
  EXPECT_EQ(ZorErrRect, quad(square, bowTie, {20, 0, 1, 1}));
  EXPECT_EQ(ZorWarnNoRoiIntersect, quad(square, square, {20, 0, 1, 1}));
  EXPECT_EQ(ZorErrCoeff, quad(square, square, {0, 0, 1, 1}));
  EXPECT_EQ(ZorWarnNoQuadIntersect, quad(square, square, {0, 0, 5, 5}));
}

// Whatever the coefficients: nothing is read or written outside, and the call comes back.
TEST(WarpStatus, AnyCoefficientsAreSafe)
{
  std::mt19937_64 random(7);
  const double specials[] = {0,
                             1,
                             -1,
                             1e-300,
                             1e300,
                             -1e300,
                             1e18,
                             1e-18,
                             std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(),
                             std::nan(""),
                             0.5,
                             1e9,
                             4e-324,
                             1e-7};
  const auto number = [&](int kind) {
    if (random() % 4 == 0) return specials[random() % std::size(specials)];
    if (kind == 0) {
      const std::uint64_t bits = random();
      double d;
      std::memcpy(&d, &bits, sizeof d);
      return d;
    }
    return (double(random() % 2000001) / 1000000 - 1) * std::pow(10.0, int(random() % 7) - 3);
  };
  const Image<Zor8u> bytes3(13, 9, 3, 1);
  const Image<Zor32f> floats1(13, 9, 1, 1, 0, true);
  const int kinds = 3;
  int done = 0;
  for (int round = 0; round < 60000; ++round) {
    Numbers c(9), q(8);
    for (double& x : c) x = number(round % kinds);
    for (double& x : q) x = number(round % kinds) * 10;
    const int interpolation = interpolations[random() % 3] | (random() % 2 ? ZORI_SMOOTH_EDGE : 0);
    const ZorImgRect region = {int(random() % 5), int(random() % 5), 1 + int(random() % 20), 1 + int(random() % 20)};
    const ZorImgRect roi = {0, 0, 17, 11};
    static Image<Zor8u> dst3(17, 11, 3, 2);
    static Image<Zor32f> dst1(17, 11, 1, 2, 0, true);
    const auto all = [&](auto affine, auto affineBack, auto perspective, auto perspectiveBack, auto bilinear,
                         auto bilinearBack, auto byQuad, const auto& src, auto& dst) {
      const auto run = [&](auto function, auto coeffs) {
        done +=
          function(src.data(), src.size, src.step, region, dst.data(), dst.step, roi, coeffs, interpolation) == ZorOk;
      };
      run(affine, rows<3>(c));
      run(affineBack, rows<3>(c));
      run(perspective, rows<3>(c));
      run(perspectiveBack, rows<3>(c));
      run(bilinear, rows<4>(c));
      run(bilinearBack, rows<4>(c));
      done += byQuad(src.data(), src.size, src.step, region, rows<2>(q), dst.data(), dst.step, roi, dstCorners,
                     interpolation) == ZorOk;
      done += byQuad(src.data(), src.size, src.step, region, srcCorners, dst.data(), dst.step, roi, rows<2>(q),
                     interpolation) == ZorOk;
    };
    all(zoriWarpAffine_8u_C3R, zoriWarpAffineBack_8u_C3R, zoriWarpPerspective_8u_C3R, zoriWarpPerspectiveBack_8u_C3R,
        zoriWarpBilinear_8u_C3R, zoriWarpBilinearBack_8u_C3R,
        round % 3 == 0   ? zoriWarpBilinearQuad_8u_C3R
        : round % 3 == 1 ? zoriWarpAffineQuad_8u_C3R
                         : zoriWarpPerspectiveQuad_8u_C3R,
        bytes3, dst3);
    all(zoriWarpAffine_32f_C1R, zoriWarpAffineBack_32f_C1R, zoriWarpPerspective_32f_C1R,
        zoriWarpPerspectiveBack_32f_C1R, zoriWarpBilinear_32f_C1R, zoriWarpBilinearBack_32f_C1R,
        zoriWarpBilinearQuad_32f_C1R, floats1, dst1);
  }
  EXPECT_GT(done, 10000); // some of it was a warp
}

TEST(Warp, TeamsAndRoundingModesHaveNoEffect)
{
  const Image<Zor8u> src(61, 47, 3, 1);
  const Image<Zor16u> src16(61, 47, 1, 1);
  const auto result = [&] {
    std::pair<Image<Zor8u>, Image<Zor16u>> images{Image<Zor8u>(90, 64, 3, 2), Image<Zor16u>(90, 64, 1, 2)};
    for (const int interpolation : interpolations) {
      zoriWarpAffine_8u_C3R(src.data(), src.size, src.step, wholeSource, images.first.data(), images.first.step,
                            wholeDst, rows<3>(affines[interpolation / 2]), interpolation | ZORI_SMOOTH_EDGE);
      zoriWarpPerspectiveQuad_16u_C1R(src16.data(), src16.size, src16.step, wholeSource, srcCorners,
                                      images.second.data(), images.second.step, wholeDst, dstCorners, interpolation);
      zoriRotateCenter_16u_C1R(src16.data(), src16.size, src16.step, wholeSource, images.second.data(),
                               images.second.step, {20, 10, 30, 20}, 33.3, 30, 20, interpolation);
    }
    return images;
  };
  const auto expected = result();
  zoriTestShareAllWork(1);
  const int threads = omp_get_max_threads();
  for (const int team : {1, 2, 7}) {
    omp_set_num_threads(team);
    EXPECT_TRUE(result() == expected) << team;
  }
  omp_set_num_threads(threads);
  zoriTestShareAllWork(0);
  for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    std::fesetround(mode);
    const auto other = result();
    EXPECT_EQ(mode, std::fegetround());
    std::fesetround(FE_TONEAREST);
    EXPECT_TRUE(other == expected) << mode;
  }
}
