// Rectangles, quadrangles and coefficients: where coefficients take a rectangle, which coefficients take a rectangle to
// a quadrangle, and their inverses. Double precision under rounding to nearest, which the callers see to.
#pragma once

#include "quad.h"

namespace zori {
namespace geometry {

// Coefficients, by rows. The one-dimensional order is that of the interface.
struct Affine { // x' = xx * x + xy * y + x0, y' = yx * x + yy * y + y0
  double xx, xy, x0, yx, yy, y0;
};
struct Perspective { // the third row is that of the divisor
  double m[3][3];
};
struct Bilinear { // x' = (xBoth * y + xx) * x + (xy * y + x0), y' likewise
  double xBoth, xx, xy, x0, yBoth, yx, yy, y0;
};

inline Affine affineOf(const double (*c)[3]) { return {c[0][0], c[0][1], c[0][2], c[1][0], c[1][1], c[1][2]}; }
inline Perspective perspectiveOf(const double (*c)[3])
{
  return {{{c[0][0], c[0][1], c[0][2]}, {c[1][0], c[1][1], c[1][2]}, {c[2][0], c[2][1], c[2][2]}}};
}
inline Bilinear bilinearOf(const double (*c)[4])
{
  return {c[0][0], c[0][1], c[0][2], c[0][3], c[1][0], c[1][1], c[1][2], c[1][3]};
}

// ---- Where a point goes ----

inline Point mapped(const Affine& a, Point p)
{
  return {a.xx * p.x + a.xy * p.y + a.x0, a.yx * p.x + a.yy * p.y + a.y0};
}
inline Point mapped(const Perspective& t, Point p)
{
  const double(*const m)[3] = t.m;
  const double w = m[2][0] * p.x + m[2][1] * p.y + m[2][2];
  return {(m[0][0] * p.x + m[0][1] * p.y + m[0][2]) / w, (m[1][0] * p.x + m[1][1] * p.y + m[1][2]) / w};
}
inline Point mapped(const Bilinear& b, Point p)
{
  return {(b.xBoth * p.y + b.xx) * p.x + (b.xy * p.y + b.x0), (b.yBoth * p.y + b.yx) * p.x + (b.yy * p.y + b.y0)};
}

inline Quad cornersOf(const Box& box)
{
  return {{{box.left, box.top}, {box.right, box.top}, {box.right, box.bottom}, {box.left, box.bottom}}};
}

template <class Transform> inline Quad mapped(const Transform& t, const Box& box)
{
  const Quad corners = cornersOf(box);
  Quad quad;
  for (int i = 0; i < 4; ++i) quad.corner[i] = mapped(t, corners.corner[i]);
  return quad;
}

// ---- From a rectangle to a quadrangle. The rectangle has two columns and two rows at least. ----

bool isParallelogram(const Quad& quad);
Affine affineTo(const Quad& quad, const Box& box); // by the first three corners
Perspective perspectiveTo(const Quad& quad, const Box& box);
Bilinear bilinearTo(const Quad& quad, const Box& box);

// ---- And back ----

Affine affineFrom(const Quad& quad, const Box& box);
Affine inverseOf(const Affine& a);
// The adjugate: the inverse but for a common factor.
Perspective inverseOf(const Perspective& t);
Affine product(const Affine& second, const Affine& first);
Perspective product(const Perspective& second, const Perspective& first);

// The terms of the determinant agree: to 1e-10 of the first, or both are next to nothing.
bool isSingular(const Affine& a);
bool isSingular(const Perspective& t);

// Which way a point is turned by t: the sign of the determinant of its derivative there.
double turnAt(const Bilinear& b, Point p);
// The point that b takes to `to`, on the side of the fold where turnAt has the sign of `turn`. NaN where there is none.
Point preimage(const Bilinear& b, Point to, double turn);

// ---- Rotation and shear ----

// The angle in degrees, brought to 0 .. 360, whole turns counted by truncation.
double reducedAngle(double degrees);
// Counter-clockwise as the picture is seen; right angles are exact. The angle is a reduced one.
Affine rotation(double reducedDegrees, double xShift, double yShift);
// The shift that makes (x, y) the fixed point of a rotation.
Point rotationShift(double degrees, Point centre);
inline Affine shear(double xShear, double yShear, double xShift, double yShift)
{
  return {1, xShear, xShift, yShear, 1, yShift};
}

} // namespace geometry
} // namespace zori
