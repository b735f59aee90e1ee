// zoriGet{Affine,Perspective,Bilinear}{Quad,Bound,Transform}, zoriGet{Rotate,Shear}{Quad,Bound}, zoriGetRotateShift,
// zoriAddRotateShift: which quadrangle a transform makes of a rectangle, and the transform for a quadrangle.
//
// A rectangle is its outermost pixels. Everything is computed under rounding to nearest, whatever the caller has set.
#include "calculus.h"
#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "zori/geometry.h"

#include <type_traits>

namespace zori {
namespace {

using namespace geometry;

void storeQuad(double (*to)[2], const Quad& quad)
{
  for (int i = 0; i < 4; ++i) {
    to[i][0] = quad.corner[i].x;
    to[i][1] = quad.corner[i].y;
  }
}

void storeBound(double (*to)[2], const Quad& quad)
{
  const Box b = boundOf(quad);
  to[0][0] = b.left;
  to[0][1] = b.top;
  to[1][0] = b.right;
  to[1][1] = b.bottom;
}

Quad loadQuad(const double (*from)[2])
{
  Quad quad;
  for (int i = 0; i < 4; ++i) quad.corner[i] = {from[i][0], from[i][1]};
  return quad;
}

void storeCoeffs(double (*to)[3], const Affine& a)
{
  to[0][0] = a.xx;
  to[0][1] = a.xy;
  to[0][2] = a.x0;
  to[1][0] = a.yx;
  to[1][1] = a.yy;
  to[1][2] = a.y0;
}
void storeCoeffs(double (*to)[3], const Perspective& t)
{
  for (int i = 0; i < 3; ++i)
    for (int k = 0; k < 3; ++k) to[i][k] = t.m[i][k];
}
void storeCoeffs(double (*to)[4], const Bilinear& b)
{
  const double rows[2][4] = {{b.xBoth, b.xx, b.xy, b.x0}, {b.yBoth, b.yx, b.yy, b.y0}};
  for (int i = 0; i < 2; ++i)
    for (int k = 0; k < 4; ++k) to[i][k] = rows[i][k];
}

enum class Folded { IsAnError, IsNot };

template <class Transform>
ZorStatus rectangleImage(ZorImgRect srcRoi, const Transform& transform, Folded folded,
                         void (*store)(double (*)[2], const Quad&), double (*result)[2])
{
  const Quad quad = mapped(transform, boxOf(srcRoi));
  store(result, quad);
  return require(folded == Folded::IsNot || isSound(kindOf(quad)), ZorErrQuad);
}

// quad and coeffs are arrays of rows, of a quadrangle or a bound.
template <class Transform, class Coeffs>
ZorStatus imageByCoeffs(ZorImgRect srcRoi, double (*result)[2], void (*store)(double (*)[2], const Quad&),
                        const Coeffs* coeffs, Transform (*load)(const Coeffs*))
{
  if (isEmptyRect(srcRoi)) return ZorErrSize;
  return underRounding(Rounding::Nearest,
                       [&] { return rectangleImage(srcRoi, load(coeffs), Folded::IsAnError, store, result); });
}

template <class Transform, class Coeffs>
ZorStatus transformTo(ZorImgRect srcRoi, const double (*given)[2], Coeffs* coeffs,
                      Transform (*solve)(const Quad&, const Box&))
{
  if (isEmptyRect(srcRoi)) return ZorErrSize;
  return underRounding(Rounding::Nearest, [&] {
    const Quad quad = loadQuad(given);
    if (!isSound(kindOf(quad))) return ZorErrRect;
    if (srcRoi.width < 2 || srcRoi.height < 2) return ZorErrCoeff;
    storeCoeffs(coeffs, solve(quad, boxOf(srcRoi)));
    return std::is_same_v<Transform, Affine> && !isParallelogram(quad) ? ZorWarnNotParallelogram : ZorOk;
  });
}

ZorStatus rotatedImage(ZorImgRect srcRoi, double angle, double xShift, double yShift,
                       void (*store)(double (*)[2], const Quad&), double (*result)[2])
{
  if (isEmptyRect(srcRoi)) return ZorErrSize;
  return underRounding(Rounding::Nearest, [&] {
    return rectangleImage(srcRoi, rotation(reducedAngle(angle), xShift, yShift), Folded::IsNot, store, result);
  });
}

ZorStatus shearedImage(ZorImgRect srcRoi, const Affine& shear, void (*store)(double (*)[2], const Quad&),
                       double (*result)[2])
{
  if (isEmptyRect(srcRoi)) return ZorErrSize;
  return underRounding(Rounding::Nearest,
                       [&] { return rectangleImage(srcRoi, shear, Folded::IsAnError, store, result); });
}

// The shift of a rotation about a point, stored or added to what is there.
ZorStatus rotationShiftAt(double xCenter, double yCenter, double angle, double* pxShift, double* pyShift, bool adds)
{
  if (auto s = nonNull(pxShift, pyShift); s != ZorOk) return s;
  return underRounding(Rounding::Nearest, [&] {
    const Point shift = rotationShift(angle, {xCenter, yCenter});
    *pxShift = adds ? *pxShift + shift.x : shift.x;
    *pyShift = adds ? *pyShift + shift.y : shift.y;
    return ZorOk;
  });
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(Kind, kind, columns)                                                                                     \
  ZorStatus zoriGet##Kind##Quad(ZorImgRect srcRoi, double quad[4][2], const double coeffs[][columns])                  \
  { return imageByCoeffs(srcRoi, quad, storeQuad, coeffs, geometry::kind##Of); }                                       \
  ZorStatus zoriGet##Kind##Bound(ZorImgRect srcRoi, double bound[2][2], const double coeffs[][columns])                \
  { return imageByCoeffs(srcRoi, bound, storeBound, coeffs, geometry::kind##Of); }                                     \
  ZorStatus zoriGet##Kind##Transform(ZorImgRect srcRoi, const double quad[4][2], double coeffs[][columns])             \
  { return transformTo(srcRoi, quad, coeffs, geometry::kind##To); }
STAMP(Affine, affine, 3)
STAMP(Perspective, perspective, 3)
STAMP(Bilinear, bilinear, 4)
#undef STAMP

#define STAMP(form, result, store)                                                                                     \
  ZorStatus zoriGetRotate##form(ZorImgRect srcRoi, double result[][2], double angle, double xShift, double yShift)     \
  {                                                                                                                    \
    return rotatedImage(srcRoi, angle, xShift, yShift, store, result);                                                 \
  }                                                                                                                    \
  ZorStatus zoriGetShear##form(ZorImgRect srcRoi, double result[][2], double xShear, double yShear, double xShift,     \
                               double yShift)                                                                          \
  {                                                                                                                    \
    return shearedImage(srcRoi, geometry::shear(xShear, yShear, xShift, yShift), store, result);                       \
  }
STAMP(Quad, quad, storeQuad)
STAMP(Bound, bound, storeBound)
#undef STAMP
// clang-format on

ZorStatus zoriGetRotateShift(double xCenter, double yCenter, double angle, double* pxShift, double* pyShift)
{
  return rotationShiftAt(xCenter, yCenter, angle, pxShift, pyShift, false);
}

ZorStatus zoriAddRotateShift(double xCenter, double yCenter, double angle, double* pxShift, double* pyShift)
{
  return rotationShiftAt(xCenter, yCenter, angle, pxShift, pyShift, true);
}
