// The calculus of rectangles, quadrangles and coefficients: worked values, round trips, statuses.
#include "warp_rules.h"
#include "zori/geometry.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace {

using Quad = double[4][2];

void expectPoints(const double (*actual)[2], std::initializer_list<std::initializer_list<double>> expected, double hair)
{
  int i = 0;
  for (const auto& point : expected) {
    EXPECT_NEAR(actual[i][0], *point.begin(), hair) << i;
    EXPECT_NEAR(actual[i][1], *(point.begin() + 1), hair) << i;
    ++i;
  }
}

constexpr ZorImgRect rect = {2, 3, 10, 8}; // corners 2, 3 and 11, 10
constexpr double endlessly = std::numeric_limits<double>::infinity(),
                 notANumber = std::numeric_limits<double>::quiet_NaN();

} // namespace

TEST(Transform, QuadsFollowTheFormulas)
{
  Quad q;
  const double affine[2][3] = {{2, 0.5, -1}, {-0.25, 1, 3}};
  EXPECT_EQ(ZorOk, zoriGetAffineQuad(rect, q, affine));
  expectPoints(q, {{4.5, 5.5}, {22.5, 3.25}, {26, 10.25}, {8, 12.5}}, 0);

  const double perspective[3][3] = {{2, 0, 0}, {0, 2, 0}, {0.5, 0, 1}};
  EXPECT_EQ(ZorOk, zoriGetPerspectiveQuad(rect, q, perspective));
  expectPoints(q, {{2, 3}, {22 / 6.5, 6 / 6.5}, {22 / 6.5, 20 / 6.5}, {2, 10}}, 0);

  const double bilinear[2][4] = {{0.125, 1, 0, 4}, {0, 0, 1, 5}};
  EXPECT_EQ(ZorOk, zoriGetBilinearQuad(rect, q, bilinear));
  expectPoints(q, {{6.75, 8}, {19.125, 8}, {28.75, 15}, {8.5, 15}}, 0);

  EXPECT_EQ(ZorOk, zoriGetShearQuad(rect, q, 0.5, -0.25, 1, 2));
  expectPoints(q, {{4.5, 4.5}, {13.5, 2.25}, {17, 9.25}, {8, 11.5}}, 0);
}

TEST(Transform, BoundsAreThoseOfTheCorners)
{
  double b[2][2];
  const double affine[2][3] = {{2, 0.5, -1}, {-0.25, 1, 3}};
  EXPECT_EQ(ZorOk, zoriGetAffineBound(rect, b, affine));
  expectPoints(b, {{4.5, 3.25}, {26, 12.5}}, 0);
  const double perspective[3][3] = {{2, 0, 0}, {0, 2, 0}, {0.5, 0, 1}};
  EXPECT_EQ(ZorOk, zoriGetPerspectiveBound(rect, b, perspective));
  expectPoints(b, {{2, 6 / 6.5}, {22 / 6.5, 10}}, 0);
  const double bilinear[2][4] = {{0.125, 1, 0, 4}, {0, 0, 1, 5}};
  EXPECT_EQ(ZorOk, zoriGetBilinearBound(rect, b, bilinear));
  expectPoints(b, {{6.75, 8}, {28.75, 15}}, 0);
  EXPECT_EQ(ZorOk, zoriGetShearBound(rect, b, 0.5, -0.25, 1, 2));
  expectPoints(b, {{4.5, 2.25}, {17, 11.5}}, 0);
  EXPECT_EQ(ZorOk, zoriGetRotateBound(rect, b, 90, 1, 2));
  expectPoints(b, {{4, -9}, {11, 0}}, 0);
}

TEST(Transform, FoldedRectanglesAreToldAndStillWritten)
{
  Quad q = {};
  double b[2][2] = {};
  const double singular[2][3] = {{1, 2, 5}, {2, 4, 7}};
  EXPECT_EQ(ZorErrQuad, zoriGetAffineQuad(rect, q, singular));
  expectPoints(q, {{13, 23}, {22, 41}, {36, 69}, {27, 51}}, 0);
  EXPECT_EQ(ZorErrQuad, zoriGetAffineBound(rect, b, singular));
  expectPoints(b, {{13, 23}, {36, 69}}, 0);
  EXPECT_EQ(ZorErrQuad, zoriGetShearQuad(rect, q, 2, 0.5, 0, 0));
  // one pixel wide or high: four corners on a line or in a point
  const double identity[2][3] = {{1, 0, 0}, {0, 1, 0}};
  EXPECT_EQ(ZorErrQuad, zoriGetAffineQuad({3, 4, 1, 1}, q, identity));
  expectPoints(q, {{3, 4}, {3, 4}, {3, 4}, {3, 4}}, 0);
  EXPECT_EQ(ZorOk, zoriGetRotateQuad({3, 4, 1, 1}, q, 90, 0, 0));
  const double broken[2][3] = {{notANumber, 0, 0}, {0, 1, 0}}, endless[2][3] = {{1, 0, endlessly}, {0, 1, 0}};
  EXPECT_EQ(ZorErrQuad, zoriGetAffineQuad(rect, q, broken));
  EXPECT_EQ(ZorErrQuad, zoriGetAffineQuad(rect, q, endless));
}

TEST(Transform, TransformsGiveTheQuadBack)
{
  const Quad parallelogram = {{1.5, 2}, {20, 5}, {24, 17}, {5.5, 14}}, general = {{1, 1}, {12, 2}, {13, 9}, {2, 8.5}};
  const Quad mirrored = {{30, 1}, {4, 2}, {3, 19}, {28, 16}};
  Quad q;
  double affine[2][3], perspective[3][3], bilinear[2][4];
  EXPECT_EQ(ZorOk, zoriGetAffineTransform(rect, parallelogram, affine));
  EXPECT_EQ(ZorOk, zoriGetAffineQuad(rect, q, affine));
  expectPoints(q, {{1.5, 2}, {20, 5}, {24, 17}, {5.5, 14}}, 1e-12);
  for (const auto& quad : {general, mirrored}) {
    EXPECT_EQ(ZorOk, zoriGetPerspectiveTransform(rect, quad, perspective));
    EXPECT_EQ(ZorOk, zoriGetPerspectiveQuad(rect, q, perspective));
    for (int i = 0; i < 8; ++i) EXPECT_NEAR(quad[i / 2][i % 2], q[i / 2][i % 2], 1e-12);
    EXPECT_EQ(ZorOk, zoriGetBilinearTransform(rect, quad, bilinear));
    EXPECT_EQ(ZorOk, zoriGetBilinearQuad(rect, q, bilinear));
    for (int i = 0; i < 8; ++i) EXPECT_NEAR(quad[i / 2][i % 2], q[i / 2][i % 2], 1e-12);
  }
  // the first three corners alone, with a warning
  EXPECT_EQ(ZorWarnNotParallelogram, zoriGetAffineTransform(rect, general, affine));
  zoriGetAffineQuad(rect, q, affine);
  expectPoints(q, {{1, 1}, {12, 2}, {13, 9}, {2, 8}}, 1e-12);
}

TEST(Transform, ParallelogramsMayBeOffByAHair)
{
  double coeffs[2][3];
  const auto status = [&](double error) {
    const Quad quad = {{0, 0}, {10, 4}, {13, 24}, {3, 20 * (1 + error)}};
    return zoriGetAffineTransform(rect, quad, coeffs);
  };
  EXPECT_EQ(ZorOk, status(0));
  EXPECT_EQ(ZorOk, status(1e-12));
  EXPECT_EQ(ZorWarnNotParallelogram, status(1e-8));
}

TEST(Transform, UnsoundQuadsAndThinRectanglesLeaveTheCoefficients)
{
  const Quad bowTie = {{0, 0}, {10, 0}, {0, 8}, {10, 8}}, line = {{0, 0}, {5, 0}, {10, 0}, {0, 8}};
  const Quad broken = {{0, 0}, {notANumber, 0}, {10, 8}, {0, 8}}, good = {{0, 0}, {10, 0}, {10, 8}, {0, 8}};
  double coeffs[3][3], before[3][3];
  std::memset(coeffs, 0x5a, sizeof coeffs);
  std::memcpy(before, coeffs, sizeof coeffs);
  const auto bilinear = reinterpret_cast<double(*)[4]>(&coeffs[0][0]);
  const auto expect = [&](ZorStatus status, ZorImgRect r, const Quad& quad) {
    EXPECT_EQ(status, zoriGetAffineTransform(r, quad, coeffs));
    EXPECT_EQ(status, zoriGetPerspectiveTransform(r, quad, coeffs));
    EXPECT_EQ(status, zoriGetBilinearTransform(r, quad, bilinear));
    EXPECT_EQ(0, std::memcmp(before, coeffs, sizeof coeffs));
  };
  expect(ZorErrRect, rect, bowTie);
  expect(ZorErrRect, rect, line);
  expect(ZorErrRect, rect, broken);
  expect(ZorErrCoeff, {2, 3, 1, 8}, good);
  expect(ZorErrCoeff, {2, 3, 10, 1}, good);
  expect(ZorErrRect, {2, 3, 1, 8}, line); // the quad comes first
  expect(ZorErrSize, {2, 3, 0, 8}, line);
}

TEST(Transform, RightAnglesAreExact)
{
  double x, y;
  const auto shift = [&](double angle) { EXPECT_EQ(ZorOk, zoriGetRotateShift(12.5, -3, angle, &x, &y)); };
  const auto expect = [&](double angle, double xs, double ys) {
    shift(angle);
    EXPECT_EQ(xs, x) << angle;
    EXPECT_EQ(ys, y) << angle;
  };
  for (const double turns : {0.0, 360.0, 3600.0, -360.0}) {
    expect(0 + turns, 0, 0);
    expect(90 + turns, 15.5, 9.5);
    expect(180 + turns, 25, -6);
    expect(270 + turns, 9.5, -15.5);
  }
  expect(-90, 9.5, -15.5);
  shift(30);
  const double a = 30 / 180.0 * 3.141592653589793;
  EXPECT_DOUBLE_EQ(12.5 - 12.5 * std::cos(a) + 3 * std::sin(a), x);
  EXPECT_DOUBLE_EQ(-3 + 3 * std::cos(a) + 12.5 * std::sin(a), y);
  const double oldX = x, oldY = y;
  EXPECT_EQ(ZorOk, zoriAddRotateShift(12.5, -3, 90, &x, &y));
  EXPECT_EQ(oldX + 15.5, x);
  EXPECT_EQ(oldY + 9.5, y);
  EXPECT_EQ(ZorErrNullPtr, zoriGetRotateShift(1, 1, 1, nullptr, &y));
  EXPECT_EQ(ZorErrNullPtr, zoriAddRotateShift(1, 1, 1, &x, nullptr));

  Quad q;
  zoriGetRotateQuad(rect, q, 450, 1, 2);
  expectPoints(q, {{4, 0}, {4, -9}, {11, -9}, {11, 0}}, 0);
  zoriGetRotateQuad(rect, q, -180, 1, 2);
  expectPoints(q, {{-1, -1}, {-10, -1}, {-10, -8}, {-1, -8}}, 0);
  zoriGetRotateQuad(rect, q, 270, 1, 2);
  expectPoints(q, {{-2, 4}, {-2, 13}, {-9, 13}, {-9, 4}}, 0);
  zoriGetRotateQuad(rect, q, 90.0000001, 1, 2);
  EXPECT_NE(4, q[0][0]);
  EXPECT_NEAR(4, q[0][0], 1e-7);
}

TEST(Transform, RoundingModeOfTheCallerHasNoEffect)
{
  double nearest[3][3], other[3][3];
  const Quad quad = {{1.1, 1.3}, {12.7, 2.9}, {13.1, 9.7}, {2.3, 8.9}};
  zoriGetPerspectiveTransform(rect, quad, nearest);
  double x = 0.1, y = 0.7, upX = 0.1, upY = 0.7;
  zoriAddRotateShift(1.7, 2.9, 33.3, &x, &y);
  for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    std::fesetround(mode);
    zoriGetPerspectiveTransform(rect, quad, other);
    upX = 0.1;
    upY = 0.7;
    zoriAddRotateShift(1.7, 2.9, 33.3, &upX, &upY);
    EXPECT_EQ(mode, std::fegetround());
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(0, std::memcmp(nearest, other, sizeof nearest));
    EXPECT_EQ(x, upX);
    EXPECT_EQ(y, upY);
  }
}

// All fifteen functions against the plain formulas, to the bit, with ordinary numbers, round ones and those that break
// everything, under all rounding modes.
TEST(Transform, RandomArgumentsFollowTheFormulas)
{
  using namespace warprules;
  std::mt19937 random(1);
  const auto below = [&](int n) { return int(random() % unsigned(n)); };
  const auto real = [&](double a, double b) { return a + (b - a) * (random() % 1000001 / 1e6); };
  const double specials[] = {0, 1, -1, 0.5, 2, notANumber, endlessly, 1e300, -1e-300};
  const double angles[] = {0, 90, 180, 270, 360, 450, -90, -180, 3690, 90.0000001, 89.99999999, 1e9, -1e-20, 1e300};
  const auto number = [&](int kind) {
    return kind == 0 ? specials[below(9)] : kind == 1 ? below(7) - 3.0 : real(-3, 3);
  };
  for (int round = 0; round < 20000 && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    const int modes[] = {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}, mode = modes[below(4)];
    ZorImgRect r = {below(50), below(50), 1 + below(below(2) ? 3 : 90), 1 + below(below(2) ? 3 : 90)};
    if (below(10) == 0) (below(2) ? r.x : r.width) = -1;
    if (below(10) == 0) (below(2) ? r.y : r.height) = -1;
    const bool isRect = r.x >= 0 && r.y >= 0 && r.width > 0 && r.height > 0;
    Numbers c(9);
    const int kind = below(6);
    for (double& x : c) x = number(kind);
    if (kind > 2) c[6] *= 0.003, c[7] *= 0.003, c[8] = 1;

    double got[9], want[9];
    const auto reset = [&] { std::fill(got, got + 9, 7.5), std::fill(want, want + 9, 7.5); };
    const auto expectCall = [&](ZorStatus status, auto call) {
      std::fesetround(mode);
      const ZorStatus actual = call();
      EXPECT_EQ(mode, std::fegetround());
      std::fesetround(FE_TONEAREST);
      EXPECT_EQ(status, actual);
      for (int i = 0; i < 9; ++i)
        EXPECT_TRUE(got[i] == want[i] || (std::isnan(got[i]) && std::isnan(want[i])))
          << i << ": " << got[i] << ", not " << want[i];
    };
    const auto two = [&] { return reinterpret_cast<double(*)[2]>(got); };
    const auto three = [&] { return reinterpret_cast<double(*)[3]>(got); };
    const auto image = [&](auto map, auto quadFunction, auto boundFunction, bool isChecked) {
      const Polygon q = quadOf(r, map);
      const ZorStatus status = !isRect ? ZorErrSize : isChecked && checkQuad(q) < 0 ? ZorErrQuad : ZorOk;
      reset();
      for (int i = 0; isRect && i < 4; ++i) want[2 * i] = q[i].x, want[2 * i + 1] = q[i].y;
      expectCall(status, [&] { return quadFunction(two()); });
      reset();
      const Box b = bound(q);
      if (isRect) want[0] = b.left, want[1] = b.top, want[2] = b.right, want[3] = b.bottom;
      for (const Point& p : q)
        if (std::isnan(p.x) || std::isnan(p.y)) return;
      expectCall(status, [&] { return boundFunction(two()); });
    };
    const auto c3 = reinterpret_cast<const double(*)[3]>(c.data());
    const auto c4 = reinterpret_cast<const double(*)[4]>(c.data());
    image([&](double x, double y) { return throughAffine(c, x, y); },
          [&](auto q) { return zoriGetAffineQuad(r, q, c3); }, [&](auto b) { return zoriGetAffineBound(r, b, c3); },
          true);
    image([&](double x, double y) { return throughPerspective(c, x, y); },
          [&](auto q) { return zoriGetPerspectiveQuad(r, q, c3); },
          [&](auto b) { return zoriGetPerspectiveBound(r, b, c3); }, true);
    image([&](double x, double y) { return throughBilinear(c, x, y); },
          [&](auto q) { return zoriGetBilinearQuad(r, q, c4); }, [&](auto b) { return zoriGetBilinearBound(r, b, c4); },
          true);
    const Numbers shear = {1, c[0], c[2], c[1], 1, c[3]};
    image([&](double x, double y) { return throughAffine(shear, x, y); },
          [&](auto q) { return zoriGetShearQuad(r, q, c[0], c[1], c[2], c[3]); },
          [&](auto b) { return zoriGetShearBound(r, b, c[0], c[1], c[2], c[3]); }, true);
    const double angle = below(2) ? angles[below(14)] : real(-1000, 1000);
    double reduced = angle - std::trunc(angle / 360) * 360;
    if (reduced < 0) reduced += 360;
    const Numbers turn = rotateMatrix(reduced, c[2], c[3]);
    image([&](double x, double y) { return throughAffine(turn, x, y); },
          [&](auto q) { return zoriGetRotateQuad(r, q, angle, c[2], c[3]); },
          [&](auto b) { return zoriGetRotateBound(r, b, angle, c[2], c[3]); }, false);
    const Point shift = rotateShift(angle, c[0], c[1]);
    reset();
    want[0] = shift.x, want[1] = shift.y;
    expectCall(ZorOk, [&] { return zoriGetRotateShift(c[0], c[1], angle, &got[0], &got[1]); });
    reset();
    want[0] = 7.5 + shift.x, want[1] = 7.5 + shift.y;
    expectCall(ZorOk, [&] { return zoriAddRotateShift(c[0], c[1], angle, &got[0], &got[1]); });

    // to a quadrangle: any four points, near a rectangle, a parallelogram with one number off by a hair
    double q[8];
    const double rectangle[8] = {0, 0, 10, 0, 10, 8, 0, 8};
    for (int i = 0; i < 8; ++i) q[i] = kind < 2 ? number(kind) : rectangle[i] + real(-3, 3);
    if (kind > 3) {
      const double a[2] = {std::floor(real(-9, 9)), real(-9, 9)}, b[2] = {real(-9, 9), std::floor(real(-9, 9))};
      for (int k = 0; k < 2; ++k) {
        q[0 + k] = real(-20, 20);
        q[2 + k] = q[0 + k] + a[k];
        q[4 + k] = q[2 + k] + b[k];
        q[6 + k] = q[0 + k] + b[k];
      }
      if (kind == 5) q[below(8)] *= 1 + std::pow(10, real(-13, -7));
    }
    Polygon quad;
    for (int i = 0; i < 4; ++i) quad.push_back({q[2 * i], q[2 * i + 1]});
    const auto given = reinterpret_cast<const double(*)[2]>(q);
    const ZorStatus status = !isRect                       ? ZorErrSize
                             : checkQuad(quad) < 0         ? ZorErrRect
                             : r.width < 2 || r.height < 2 ? ZorErrCoeff
                                                           : ZorOk;
    const auto store = [&](const Numbers& n) {
      reset();
      if (status == ZorOk) std::copy(n.begin(), n.end(), want);
    };
    const Point e = {quad[1].x - quad[0].x, quad[1].y - quad[0].y}, f = {quad[2].x - quad[1].x, quad[2].y - quad[1].y};
    const Point g = {quad[3].x - quad[2].x, quad[3].y - quad[2].y}, h = {quad[0].x - quad[3].x, quad[0].y - quad[3].y};
    const auto fails = [](double a, double b) {
      return std::fabs(a) <= 1e-200 ? std::fabs(b) > 1e-10 : std::fabs((a - b) / a) > 1e-10;
    };
    const bool isSlanted = fails(g.x * e.y, e.x * g.y) || fails(h.y * f.x, h.x * f.y);
    const Box box = boxOf(r);
    const double sx = 1 / (box.right - box.left), sy = 1 / (box.bottom - box.top);
    const double xx = e.x * sx, xy = f.x * sy, yx = e.y * sx, yy = f.y * sy;
    store({xx, xy, q[0] - xy * box.top - xx * box.left, yx, yy, q[1] - box.left * yx - box.top * yy});
    expectCall(status == ZorOk && isSlanted ? ZorWarnNotParallelogram : status,
               [&] { return zoriGetAffineTransform(r, given, three()); });
    store(perspectiveOf(quad, r));
    expectCall(status, [&] { return zoriGetPerspectiveTransform(r, given, three()); });
    store(bilinearOf(quad, r));
    expectCall(status, [&] { return zoriGetBilinearTransform(r, given, reinterpret_cast<double(*)[4]>(got)); });
  }
}
