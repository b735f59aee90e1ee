// Coefficients of rectangles and quadrangles, and their inverses.
#include "calculus.h"

#include <cmath>

namespace zori {
namespace geometry {

// ---- Tests ----

// a and b to 1e-10 of a.
static bool agree(double a, double b)
{
  return std::fabs(a) <= 1e-200 ? !(std::fabs(b) > 1e-10) : !(std::fabs((a - b) / a) > 1e-10);
}

bool isParallelogram(const Quad& quad)
{
  const Point* const p = quad.corner;
  return agree((p[3].x - p[2].x) * (p[1].y - p[0].y), (p[1].x - p[0].x) * (p[3].y - p[2].y)) &&
         agree((p[0].y - p[3].y) * (p[2].x - p[1].x), (p[0].x - p[3].x) * (p[2].y - p[1].y));
}

bool isSingular(const Affine& t)
{
  const double a = t.xx * t.yy, b = t.xy * t.yx;
  return std::fabs(a) <= 1e-200 ? std::fabs(b) <= 1e-10 : std::fabs((a - b) / a) <= 1e-10;
}

bool isSingular(const Perspective& t)
{
  const Perspective a = inverseOf(t);
  const double terms[3] = {t.m[0][0] * a.m[0][0], t.m[0][1] * a.m[1][0], t.m[0][2] * a.m[2][0]};
  const double determinant = terms[0] + terms[1] + terms[2];
  const double size = std::fabs(terms[0]) + std::fabs(terms[1]) + std::fabs(terms[2]);
  return !(std::fabs(determinant) > 1e-10 * size);
}

// ---- Affine ----

Affine affineTo(const Quad& quad, const Box& box)
{
  const Point* const q = quad.corner;
  const double sx = 1 / (box.right - box.left), sy = 1 / (box.bottom - box.top);
  Affine a;
  a.xx = (q[1].x - q[0].x) * sx;
  a.xy = (q[2].x - q[1].x) * sy;
  a.yx = (q[1].y - q[0].y) * sx;
  a.yy = (q[2].y - q[1].y) * sy;
  a.x0 = q[0].x - a.xy * box.top - a.xx * box.left;
  a.y0 = q[0].y - box.left * a.yx - box.top * a.yy;
  return a;
}

Affine affineFrom(const Quad& quad, const Box& box)
{
  const Point* const q = quad.corner;
  const double along[2] = {q[1].x - q[0].x, q[1].y - q[0].y}, down[2] = {q[2].x - q[1].x, q[2].y - q[1].y};
  const double r = 1 / (along[0] * down[1] - down[0] * along[1]);
  const double u = (box.right - box.left) * r, v = (box.bottom - box.top) * r;
  Affine a;
  a.xx = down[1] * u;
  a.xy = -down[0] * u;
  a.x0 = box.left - a.xy * q[0].y - a.xx * q[0].x;
  a.yx = -along[1] * v;
  a.yy = along[0] * v;
  a.y0 = box.top - a.yx * q[0].x - a.yy * q[0].y;
  return a;
}

Affine inverseOf(const Affine& t)
{
  const double r = 1 / (t.xx * t.yy - t.xy * t.yx);
  Affine a;
  a.xx = t.yy * r;
  a.xy = -t.xy * r;
  a.yx = -t.yx * r;
  a.yy = t.xx * r;
  a.x0 = -(a.xx * t.x0 + a.xy * t.y0);
  a.y0 = -(a.yx * t.x0 + a.yy * t.y0);
  return a;
}

Affine product(const Affine& s, const Affine& f)
{
  return {s.xx * f.xx + s.xy * f.yx, s.xx * f.xy + s.xy * f.yy, s.xx * f.x0 + s.xy * f.y0 + s.x0,
          s.yx * f.xx + s.yy * f.yx, s.yx * f.xy + s.yy * f.yy, s.yx * f.x0 + s.yy * f.y0 + s.y0};
}

// ---- Perspective ----

Perspective perspectiveTo(const Quad& quad, const Box& box)
{
  const Point* const q = quad.corner;
  const double a1 = q[0].x - q[3].x, a2 = q[2].x - q[1].x, a3 = q[3].x - q[2].x;
  const double b1 = q[0].y - q[3].y, b2 = q[2].y - q[1].y, b3 = q[3].y - q[2].y;
  const double r = 1 / (a3 * b2 - a2 * b3);
  const double g = ((a1 + a2) * b3 - (b1 + b2) * a3) * r, h = ((a1 + a2) * b2 - (b1 + b2) * a2) * r;
  const double sx = 1 / (box.right - box.left), sy = 1 / (box.bottom - box.top);
  Perspective t;
  t.m[0][0] = (q[1].x - q[0].x + q[1].x * g) * sx;
  t.m[2][0] = g * sx;
  t.m[1][0] = (q[1].y - q[0].y + q[1].y * g) * sx;
  t.m[0][1] = (q[3].x * h - a1) * sy;
  t.m[1][1] = (q[3].y * h - b1) * sy;
  t.m[2][1] = h * sy;
  t.m[0][2] = q[0].x - t.m[0][0] * box.left - t.m[0][1] * box.top;
  t.m[1][2] = q[0].y - t.m[1][0] * box.left - t.m[1][1] * box.top;
  t.m[2][2] = 1 - box.left * t.m[2][0] - box.top * t.m[2][1];
  return t;
}

Perspective inverseOf(const Perspective& t)
{
  const double(*const c)[3] = t.m;
  return {{{c[1][1] * c[2][2] - c[2][1] * c[1][2], c[2][1] * c[0][2] - c[0][1] * c[2][2],
            c[0][1] * c[1][2] - c[1][1] * c[0][2]},
           {c[2][0] * c[1][2] - c[1][0] * c[2][2], c[2][2] * c[0][0] - c[2][0] * c[0][2],
            c[0][2] * c[1][0] - c[1][2] * c[0][0]},
           {c[1][0] * c[2][1] - c[2][0] * c[1][1], c[2][0] * c[0][1] - c[2][1] * c[0][0],
            c[0][0] * c[1][1] - c[0][1] * c[1][0]}}};
}

Perspective product(const Perspective& s, const Perspective& f)
{
  Perspective t;
  for (int i = 0; i < 3; ++i)
    for (int k = 0; k < 3; ++k) t.m[i][k] = s.m[i][0] * f.m[0][k] + s.m[i][1] * f.m[1][k] + s.m[i][2] * f.m[2][k];
  return t;
}

// ---- Bilinear ----

Bilinear bilinearTo(const Quad& quad, const Box& box)
{
  const double w = (box.right - box.left) * (box.bottom - box.top);
  const auto row = [&](const double(&q)[4], double& both, double& x, double& y, double& one) {
    const double d1 = q[1] - q[0], d3 = q[3] - q[2], d0 = q[0] - q[3], d2 = q[2] - q[1];
    both = (-d1 - d3) / w;
    x = (d1 * box.bottom + d3 * box.top) / w;
    y = (-d0 * box.right - d2 * box.left) / w;
    one = (-x - both * box.top) * box.left + (q[0] - y * box.top);
  };
  const Point* const q = quad.corner;
  Bilinear b;
  row({q[0].x, q[1].x, q[2].x, q[3].x}, b.xBoth, b.xx, b.xy, b.x0);
  row({q[0].y, q[1].y, q[2].y, q[3].y}, b.yBoth, b.yx, b.yy, b.y0);
  return b;
}

double turnAt(const Bilinear& b, Point p)
{
  return (b.xBoth * p.y + b.xx) * (b.yBoth * p.x + b.yy) - (b.xBoth * p.x + b.xy) * (b.yBoth * p.y + b.yx);
}

// With X = to.x - x0 and Y = to.y - y0, q = yBoth X - xBoth Y, K the turn at the origin and A = yx xBoth - yBoth xx,
// the turn at the wanted point is J = +-sqrt((q - K)^2 - 4 A (yy X - xy Y)), and the point x = 2 (yy X - xy Y) / (J + K
// - q), y = -2 (yx X - xx Y) / (J + K + q).
Point preimage(const Bilinear& b, Point to, double turn)
{
  const double x = to.x - b.x0, y = to.y - b.y0;
  const double q = b.yBoth * x - b.xBoth * y, k = b.xx * b.yy - b.xy * b.yx;
  const double c = b.yy * x - b.xy * y, d = b.yx * x - b.xx * y, a = b.yx * b.xBoth - b.yBoth * b.xx;
  const double j = std::copysign(std::sqrt((q - k) * (q - k) - 4 * a * c), turn);
  return {2 * c / (j + k - q), -2 * d / (j + k + q)};
}

// ---- Rotation ----

double reducedAngle(double degrees)
{
  const double a = degrees - std::trunc(degrees / 360) * 360;
  return a < 0 ? a + 360 : a;
}

static constexpr double radians(double degrees) { return degrees / 180 * 3.141592653589793; }

Affine rotation(double a, double xShift, double yShift)
{
  double c, s;
  if (a == 90) {
    c = 0;
    s = 1;
  } else if (a == 180) {
    c = -1;
    s = 0;
  } else if (a == 270) {
    c = 0;
    s = -1;
  } else {
    c = std::cos(radians(a));
    s = std::sin(radians(a));
  }
  return {c, s, xShift, 0 - s, c, yShift};
}

Point rotationShift(double degrees, Point p)
{
  const double a = reducedAngle(degrees);
  if (a == 0) return {0, 0};
  if (a == 90) return {p.x - p.y, p.x + p.y};
  if (a == 180) return {2 * p.x, 2 * p.y};
  if (a == 270) return {p.x + p.y, p.y - p.x};
  const double c = std::cos(radians(a)), s = std::sin(radians(a));
  return {p.x - p.x * c - p.y * s, p.y - p.y * c + p.x * s};
}

} // namespace geometry
} // namespace zori
