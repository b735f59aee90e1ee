// Warps in cases that random calls (warp_sweep_test.cpp) do not make: edges a hair beside pixels, worked values of
// smooth edges, forms that have to agree, any coefficients whatever.
#include "warp_image.h"
#include "warp_rules.h"
#include "zori/geometry.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cfenv>
#include <limits>
#include <vector>

using namespace warptest;

extern "C" void zoriTestShareAllWork(int on);

namespace {

constexpr int interpolations[] = {ZORI_INTER_NN, ZORI_INTER_LINEAR, ZORI_INTER_CUBIC};

using Numbers = std::vector<double>; // coefficients, row by row

template <class T>
using QuadFunction = ZorStatus (*)(const T*, ZorImgSize, int, ZorImgRect, const double (*)[2], T*, int, ZorImgRect,
                                   const double (*)[2], int);

template <int N> const double (*rows(const Numbers& c))[N] { return reinterpret_cast<const double(*)[N]>(c.data()); }

const Numbers affines[] = {
  {1.3, 0.4, 3.7, -0.35, 1.15, 12.3},   // a turn
  {-0.8, 0.31, 70.2, 0.22, 1.7, -5.4},  // mirrored
  {0.11, 0.02, 10.3, -0.03, 0.12, 9.1}, // much smaller
  {5.3, -1.2, -30.1, 0.7, 6.1, -40.7},  // larger than the destination
  {0.07, 1.2, 8.3, -1.1, 0.05, 60.2},   // nearly a quarter turn
};

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

// Quadrangle to quadrangle: with the source's corners it is the warp by the transform of the destination's.
// The middle of a high destination lies beyond the fold, the image in front of it.
TEST(Warp, BilinearBackFindsTheImageBeyondTheFold)
{
  const double coeffs[2][4] = {{-0.01, 1, 0, 0}, {0, 0, 1, 0}}; // x = x' - x' y' / 100: folds in row 100
  const ZorImgSize size = {40, 21};
  const ZorImgRect all = {0, 0, 40, 21};
  std::vector<Zor8u> src(40 * 21), low(60 * 60, 9), high(60 * 300, 9);
  for (std::size_t i = 0; i < src.size(); ++i) src[i] = static_cast<Zor8u>(i * 37 + 11);
  ASSERT_EQ(
    zoriWarpBilinearBack_8u_C1R(src.data(), size, 40, all, low.data(), 60, {0, 0, 60, 60}, coeffs, ZORI_INTER_NN),
    ZorOk);
  ASSERT_EQ(
    zoriWarpBilinearBack_8u_C1R(src.data(), size, 40, all, high.data(), 60, {0, 0, 60, 300}, coeffs, ZORI_INTER_NN),
    ZorOk);
  EXPECT_NE(low[20 * 60 + 45], 9); // row 20 is 49 pixels long
  EXPECT_TRUE(std::equal(low.begin(), low.end(), high.begin()));
}

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
  warprules::Polygon shape;
  for (const auto& corner : quad) shape.push_back({corner[0], corner[1]});
  const warprules::Rows rows = warprules::perimeter(shape, 1);
  const ZorImgRect region = {15, 8, 20, 100};
  for (const QuadFunction<Zor32f> function :
       {QuadFunction<Zor32f>(zoriWarpAffineQuad_32f_C1R), QuadFunction<Zor32f>(zoriWarpPerspectiveQuad_32f_C1R),
        QuadFunction<Zor32f>(zoriWarpBilinearQuad_32f_C1R)}) {
    const Image<Zor32f> before(61, 47, 1, 5);
    Image<Zor32f> dst(61, 47, 1, 5);
    ASSERT_EQ(ZorOk, function(src.data(), src.size, src.step, region, quad, dst.data(), dst.step, wholeSource, quad,
                              ZORI_INTER_NN));
    for (int y = 0; y < 47; ++y) {
      const bool isRow = y >= rows.first && y < rows.first + int(rows.span.size());
      const auto [first, last] = isRow ? rows.span[y - rows.first] : std::pair(0, -1);
      for (int x = 0; x < 61; ++x) {
        const bool isWritten = x >= first && x <= last && x >= 15 && x < 35 && y >= 8;
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
