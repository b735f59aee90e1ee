// The calculus of rectangles, quadrangles and coefficients: worked values, round trips, statuses.
#include "zori/geometry.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <cstring>
#include <limits>

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
