// Rotation and shear: right angles copy, everything else is the affine warp.
#include "warp_image.h"
#include "zori/geometry.h"

#include <gtest/gtest.h>

#include <xmmintrin.h>

using namespace warptest;

namespace {

template <class T>
using Function = ZorStatus (*)(const T*, ZorImgSize, int, ZorImgRect, T*, int, ZorImgRect, double, double, double, int);

// Pixel by pixel.
template <class T> void checkTurn(Function<T> function, int channels, int written)
{
  const struct {
    int width, height;
    ZorImgRect region;
  } sources[] = {{70, 45, {0, 0, 70, 45}}, {70, 45, {9, 3, 41, 100}}, {5, 9, {4, 2, 1, 7}}, {5, 9, {0, 8, 5, 5}}};
  for (const auto& source : sources)
    for (const int angle : {90, 180, 270, 450, -90, -540})
      for (const ZorImgRect roi : {ZorImgRect{0, 0, 100, 90}, ZorImgRect{30, 22, 19, 31}}) {
        SCOPED_TRACE(testing::Message() << channels << " channels, angle " << angle);
        const Image<T> src(source.width, source.height, channels, 1, 2);
        const Image<T> before(100, 90, channels, 2, 3);
        Image<T> dst(100, 90, channels, 2, 3);
        const int xs = angle == 90 || angle == 450 ? 20 : 75, ys = 60, turn = ((angle % 360) + 360) % 360;
        const int yShift = turn == 270 ? 10 : ys;
        int count = 0;
        Image<T> expected(100, 90, channels, 2, 3);
        for (int y = source.region.y; y < std::min(source.height, source.region.y + source.region.height); ++y)
          for (int x = source.region.x; x < std::min(source.width, source.region.x + source.region.width); ++x) {
            const int toX = turn == 90 ? y + xs : turn == 180 ? xs - x : xs - y;
            const int toY = turn == 90 ? yShift - x : turn == 180 ? yShift - y : x + yShift;
            if (toX < roi.x || toX >= roi.x + roi.width || toY < roi.y || toY >= roi.y + roi.height) continue;
            ++count;
            for (int c = 0; c < written; ++c) expected.put(toX * channels + c, toY, src.at(x, y, c));
          }
        // the interpolation is not looked at
        EXPECT_EQ(count ? ZorOk : ZorWarnNoRoiIntersect, function(src.data(), src.size, src.step, source.region,
                                                                  dst.data(), dst.step, roi, angle, xs, yShift, 99));
        EXPECT_TRUE(dst == expected);
      }
}

template <class T> Image<T> warped(const Image<T>& src, const double (&c)[2][3], int interpolation);
template <> Image<Zor8u> warped(const Image<Zor8u>& src, const double (&c)[2][3], int interpolation)
{
  Image<Zor8u> dst(60, 60, 1, 2);
  EXPECT_EQ(ZorOk, zoriWarpAffine_8u_C1R(src.data(), src.size, src.step, src.whole(), dst.data(), dst.step, dst.whole(),
                                         c, interpolation));
  return dst;
}

} // namespace

TEST(Rotate, RightAnglesCopyPixels)
{
  checkTurn(zoriRotate_8u_C1R, 1, 1);
  checkTurn(zoriRotate_8u_C3R, 3, 3);
  checkTurn(zoriRotate_8u_C4R, 4, 4);
  checkTurn(zoriRotate_8u_AC4R, 4, 3);
  checkTurn(zoriRotate_16u_C1R, 1, 1);
  checkTurn(zoriRotate_16u_C3R, 3, 3);
  checkTurn(zoriRotate_16u_C4R, 4, 4);
  checkTurn(zoriRotate_16u_AC4R, 4, 3);
  checkTurn(zoriRotate_32f_C1R, 1, 1);
  checkTurn(zoriRotate_32f_C3R, 3, 3);
  checkTurn(zoriRotate_32f_C4R, 4, 4);
  checkTurn(zoriRotate_32f_AC4R, 4, 3);
}

TEST(Rotate, OtherAnglesAndShiftsAreWarps)
{
  const Image<Zor8u> src(40, 30);
  const auto compare = [&](double angle, double xShift, double yShift, double c, double s) {
    Image<Zor8u> dst(60, 60, 1, 2);
    EXPECT_EQ(ZorOk, zoriRotate_8u_C1R(src.data(), src.size, src.step, src.whole(), dst.data(), dst.step, dst.whole(),
                                       angle, xShift, yShift, ZORI_INTER_LINEAR));
    EXPECT_TRUE(dst == warped(src, {{c, s, xShift}, {-s, c, yShift}}, ZORI_INTER_LINEAR)) << angle;
  };
  compare(90, 10.5, 45, 0, 1);
  compare(270, 40.5, 10, 0, -1);
  compare(360, 5, 7, 1, 0);
  compare(0, 5, 7, 1, 0);
  const double a = 33.0 / 180 * 3.141592653589793;
  compare(33, 5, 30, std::cos(a), std::sin(a));
  compare(-327, 5, 30, std::cos(a), std::sin(a));
}

TEST(Rotate, CenterKeepsItsPlace)
{
  const Image<Zor8u> src(41, 41, 1, 1);
  for (const double angle : {90.0, 180.0, 270.0}) {
    Image<Zor8u> dst(41, 41, 1, 2);
    EXPECT_EQ(ZorOk, zoriRotateCenter_8u_C1R(src.data(), src.size, src.step, src.whole(), dst.data(), dst.step,
                                             dst.whole(), angle, 20, 20, ZORI_INTER_NN));
    EXPECT_EQ(src.at(20, 20), dst.at(20, 20));
    EXPECT_EQ(src.at(40, 20), angle == 90 ? dst.at(20, 0) : angle == 180 ? dst.at(0, 20) : dst.at(20, 40));
  }
  Image<Zor8u> dst(41, 41, 1, 2);
  EXPECT_EQ(ZorOk, zoriRotateCenter_8u_C1R(src.data(), src.size, src.step, src.whole(), dst.data(), dst.step,
                                           dst.whole(), 37.5, 20, 20, ZORI_INTER_NN));
  EXPECT_EQ(src.at(20, 20), dst.at(20, 20));
}

// Coefficients too are formed under the nearest mode. Beside a sample that weighs 1e20 times as much their last bit
// shows where a point falls onto a column.
TEST(Rotate, CallersRoundingChangesNothing)
{
  Image<Zor32f> src(48, 48);
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 48; ++x) src.put(x, y, x % 2 != 0 ? 1e20f : 1);
  const unsigned before = _mm_getcsr();
  const auto turned = [&](auto function, unsigned field, double angle, double x, double y) {
    Image<Zor32f> dst(48, 48, 1, 2);
    _mm_setcsr((before & ~0x6000u) | field << 13);
    const auto status = function(src.data(), src.size, src.step, src.whole(), dst.data(), dst.step, dst.whole(), angle,
                                 x, y, ZORI_INTER_LINEAR);
    _mm_setcsr(before);
    EXPECT_GE(status, ZorOk);
    return dst;
  };
  for (int angle = -345; angle < 360; angle += 15)
    for (const double place : {0.0, 13.0, 23.5, 24.0})
      for (auto function : {zoriRotate_32f_C1R, zoriRotateCenter_32f_C1R}) {
        const auto nearest = turned(function, 0, angle, place, place);
        for (const unsigned field : {1u, 2u, 3u})
          ASSERT_TRUE(nearest == turned(function, field, angle, place, place))
            << angle << " degrees about " << place << ", rounding field " << field;
      }
}

TEST(Rotate, ShiftsOfAnySize)
{
  const Image<Zor8u> src(10, 8);
  Image<Zor8u> dst(20, 20, 1, 2);
  const Image<Zor8u> before(20, 20, 1, 2);
  for (const double shift : {1e300, -1e300, 1e18, 4294967296.0, 2147483648.0, -2147483648.0})
    for (const double angle : {90.0, 180.0, 270.0}) {
      EXPECT_EQ(ZorWarnNoRoiIntersect, zoriRotate_8u_C1R(src.data(), src.size, src.step, src.whole(), dst.data(),
                                                         dst.step, dst.whole(), angle, shift, 5, 1));
      EXPECT_EQ(ZorWarnNoRoiIntersect, zoriRotate_8u_C1R(src.data(), src.size, src.step, src.whole(), dst.data(),
                                                         dst.step, dst.whole(), angle, 5, shift, 1));
    }
  const double none = std::nan("");
  EXPECT_EQ(ZorErrQuad, zoriRotate_8u_C1R(src.data(), src.size, src.step, src.whole(), dst.data(), dst.step,
                                          dst.whole(), none, 0, 0, 1));
  EXPECT_TRUE(dst == before);
}

TEST(Shear, IsAnAffineWarp)
{
  const Image<Zor8u> src(40, 30);
  for (const int interpolation : {ZORI_INTER_NN, ZORI_INTER_CUBIC}) {
    Image<Zor8u> dst(60, 60, 1, 2);
    EXPECT_EQ(ZorOk, zoriShear_8u_C1R(src.data(), src.size, src.step, src.whole(), dst.data(), dst.step, dst.whole(),
                                      0.4, -0.3, 3.5, 14, interpolation));
    EXPECT_TRUE(dst == warped(src, {{1, 0.4, 3.5}, {-0.3, 1, 14}}, interpolation));
  }
}
