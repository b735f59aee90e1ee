// zori{Rotate,RotateCenter,Shear}_{8u,16u,32f}_{C1,C3,C4,AC4,P3,P4}R: affine warps whose coefficients are made here.
// Right angles with whole shifts are copies (rotate_turn.cpp).
#include "rotate.h"

#include "frame/numeric_mode.h"
#include "zori/geometry.h"

#include <cmath>

namespace zori {
namespace {

using namespace geometry;

// Whole turns are counted by rounding.
double nearestAngle(double degrees)
{
  const double a = degrees - std::rint(degrees / 360) * 360;
  return a < 0 ? a + 360 : a;
}

ZorStatus rotate(const WarpCall& call, double angle, double xShift, double yShift)
{
  const double a = nearestAngle(angle);
  if ((a == 90 || a == 180 || a == 270) && std::floor(xShift) == xShift && std::floor(yShift) == yShift)
    return turnRegion(call, static_cast<int>(std::rint(a + 0.1)) / 90, xShift, yShift);
  const Affine t = rotation(a, xShift, yShift);
  const double coeffs[2][3] = {{t.xx, t.xy, t.x0}, {t.yx, t.yy, t.y0}};
  return warpAffine(call, coeffs);
}

ZorStatus rotateBy(const WarpCall& call, double angle, double xShift, double yShift)
{
  return underRounding(Rounding::Nearest, [&] { return rotate(call, angle, xShift, yShift); });
}

ZorStatus rotateAbout(const WarpCall& call, double angle, double xCenter, double yCenter)
{
  return underRounding(Rounding::Nearest, [&] {
    const Point shift = rotationShift(angle, {xCenter, yCenter});
    return rotate(call, angle, shift.x, shift.y);
  });
}

ZorStatus shearBy(const WarpCall& call, double xShear, double yShear, double xShift, double yShift)
{
  const double coeffs[2][3] = {{1, xShear, xShift}, {yShear, 1, yShift}};
  return warpAffine(call, coeffs);
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define IMAGE(type) const Zor##type*
#define IMAGES(type) Zor##type*
#define PLANES(type) const Zor##type* const*
#define PLANES_OUT(type) Zor##type* const*
#define CALL(type, layout)                                                                                             \
  geometry::warpCall<layout>(geometry::sampleType<Zor##type>, pSrc, srcSize, srcStep, srcRoi, pDst, dstStep, dstRoi,   \
                             interpolation)
#define STAMP(type, layout, In, Out)                                                                                   \
  ZorStatus zoriRotate_##type##_##layout##R(In(type) pSrc, ZorImgSize srcSize, int srcStep, ZorImgRect srcRoi,         \
                                            Out(type) pDst, int dstStep, ZorImgRect dstRoi, double angle,              \
                                            double xShift, double yShift, int interpolation)                           \
  { return rotateBy(CALL(type, layout), angle, xShift, yShift); }                                                      \
  ZorStatus zoriRotateCenter_##type##_##layout##R(In(type) pSrc, ZorImgSize srcSize, int srcStep, ZorImgRect srcRoi,   \
                                                  Out(type) pDst, int dstStep, ZorImgRect dstRoi, double angle,        \
                                                  double xCenter, double yCenter, int interpolation)                   \
  { return rotateAbout(CALL(type, layout), angle, xCenter, yCenter); }                                                 \
  ZorStatus zoriShear_##type##_##layout##R(In(type) pSrc, ZorImgSize srcSize, int srcStep, ZorImgRect srcRoi,          \
                                           Out(type) pDst, int dstStep, ZorImgRect dstRoi, double xShear,              \
                                           double yShear, double xShift, double yShift, int interpolation)             \
  { return shearBy(CALL(type, layout), xShear, yShear, xShift, yShift); }
#define STAMPS(type)                                                                                                   \
  STAMP(type, C1, IMAGE, IMAGES) STAMP(type, C3, IMAGE, IMAGES) STAMP(type, C4, IMAGE, IMAGES)                         \
  STAMP(type, AC4, IMAGE, IMAGES) STAMP(type, P3, PLANES, PLANES_OUT) STAMP(type, P4, PLANES, PLANES_OUT)
STAMPS(8u) STAMPS(16u) STAMPS(32f)
#undef STAMPS
#undef STAMP
