// The geometry of warps as a plain program: quadrangles and coefficients, the clip, the covered pixels row by row, and
// the interpolation at a point. One point, one edge, one row at a time; nothing is shared with the library.
#pragma once

#include "zori/types.h"

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace warprules {

struct Point {
  double x, y;
};
using Polygon = std::vector<Point>;
using Numbers = std::vector<double>; // coefficients, row by row

// ---- Quadrangles ----

// -5 degenerate, -4 not convex, else the orientation, 1 or 0.
inline int checkQuad(const Polygon& q)
{
  const double x0 = q[0].x, y0 = q[0].y, x1 = q[1].x, y1 = q[1].y, x2 = q[2].x, y2 = q[2].y, x3 = q[3].x, y3 = q[3].y;
  const double c[4] = {(x3 - x2) * (y0 - y3) - (x0 - x3) * (y3 - y2), (x0 - x3) * (y1 - y0) - (y0 - y3) * (x1 - x0),
                       (x1 - x0) * (y2 - y1) - (y1 - y0) * (x2 - x1), (x2 - x1) * (y3 - y2) - (x3 - x2) * (y2 - y1)};
  for (const double t : c)
    if (t == 0.0 || std::isnan(t)) return -5;
  for (const double t : c)
    if ((t > 0) != (c[0] > 0)) return -4;
  return c[0] > 0;
}

struct Box {
  double left, top, right, bottom;
};
inline Box boxOf(ZorImgRect r)
{
  return {double(r.x), double(r.y), double(r.x) + r.width - 1, double(r.y) + r.height - 1};
}
inline Box bound(const Polygon& p)
{
  Box b = {p[0].x, p[0].y, p[0].x, p[0].y};
  for (const Point& v : p)
    b = {std::min(b.left, v.x), std::min(b.top, v.y), std::max(b.right, v.x), std::max(b.bottom, v.y)};
  return b;
}

// One side of the rectangle: points are turned so that inside is x >= edge, and turned back.
template <class Turn> Polygon clipSide(const Polygon& in, double edge, Turn turn)
{
  Polygon p, out;
  for (const Point& v : in) p.push_back(turn(v));
  bool crosses = false;
  for (const Point& v : p) crosses = crosses || v.x < edge;
  if (!crosses) return in;
  if (!p.empty()) p.push_back(p[0]);
  for (std::size_t i = 0; i + 1 < p.size(); ++i) {
    const Point a = p[i], b = p[i + 1];
    if (a.x <= edge && b.x < edge) continue;
    if (b.x == edge || (a.x >= edge && b.x >= edge)) {
      out.push_back(b);
      continue;
    }
    out.push_back({edge, a.y + (edge - a.x) * (b.y - a.y) / (b.x - a.x)});
    if (b.x > edge) out.push_back(b);
  }
  for (Point& v : out) v = turn(v);
  return out;
}

inline Polygon clipPolygon(Polygon p, const Box& r)
{
  const Box b = bound(p);
  if (b.bottom < r.top || b.top > r.bottom || b.right < r.left || b.left > r.right) return {};
  p = clipSide(p, r.top, [](Point v) { return Point{v.y, v.x}; });
  p = clipSide(p, -r.bottom, [](Point v) { return Point{-v.y, -v.x}; });
  p = clipSide(p, r.left, [](Point v) { return v; });
  p = clipSide(p, -r.right, [](Point v) { return Point{-v.x, -v.y}; });
  Polygon out;
  for (const Point& v : p)
    if (out.empty() || v.x != out.back().x || v.y != out.back().y) out.push_back(v);
  while (out.size() > 1 && out.back().x == out[0].x && out.back().y == out[0].y) out.pop_back();
  return out;
}

struct Rows {
  int first = 0;
  std::vector<std::pair<int, int>> span; // first and last column; none when last < first
};

inline Rows perimeter(const Polygon& p, int orientation)
{
  Rows rows;
  if (p.empty()) return rows;
  const Box b = bound(p);
  const double top = std::ceil(b.top), bottom = std::floor(b.bottom);
  if (top > bottom || std::ceil(b.left) > std::floor(b.right)) return rows;
  rows.first = int(top);
  rows.span.assign(std::size_t(bottom - top) + 1, {0, -1});
  const int n = int(p.size());
  int start = 0;
  for (int i = 1; i < n; ++i)
    if (p[i].y < p[start].y) start = i;
  if (n == 1) {
    rows.span[0] = {int(std::floor(p[0].x)), int(std::floor(p[0].x))};
    return rows;
  }
  // a level edge at the top
  double left = p[start].x, right = p[start].x;
  for (const Point& v : p)
    if (v.y == p[start].y) {
      left = std::min(left, v.x);
      right = std::max(right, v.x);
    }
  if (p[start].y == top) rows.span[0] = {int(std::ceil(left)), int(std::floor(right))};
  // the two chains
  int back = start, ahead = start, steps = 0;
  double y = top;
  int backEnd = (start + n - 1) % n, aheadEnd = (start + 1) % n;
  const auto stepBack = [&] {
    back = backEnd;
    backEnd = (back + n - 1) % n;
    ++steps;
  };
  const auto stepAhead = [&] {
    ahead = aheadEnd;
    aheadEnd = (ahead + 1) % n;
    ++steps;
  };
  for (;;) {
    while (steps < n && p[back].y >= p[backEnd].y) stepBack();
    while (steps < n && p[ahead].y >= p[aheadEnd].y) stepAhead();
    if (steps >= n) break;
    const double end = std::min(p[backEnd].y, p[aheadEnd].y);
    const auto at = [&](Point from, Point to, double row) {
      return (row - from.y) * ((to.x - from.x) / (to.y - from.y)) + from.x;
    };
    for (; y <= std::floor(end) && y <= bottom; y += 1) {
      const double xBack = at(p[back], p[backEnd], y), xAhead = at(p[ahead], p[aheadEnd], y);
      const double l = orientation ? xBack : xAhead, r = orientation ? xAhead : xBack;
      double first = std::ceil(l), last = std::floor(r);
      if (l + 1 - std::ceil(l) < 1e-14) first -= 1;
      if (1 - r + std::floor(r) < 1e-14) last += 1;
      rows.span[std::size_t(y - top)] = {int(first), int(last)};
    }
    const bool backDone = p[backEnd].y <= end, aheadDone = p[aheadEnd].y <= end;
    if (backDone) stepBack();
    if (aheadDone) stepAhead();
    if (steps >= n) break;
  }
  return rows;
}

// ---- Coefficients ----

inline Point throughAffine(const Numbers& c, double x, double y)
{
  return {c[0] * x + c[1] * y + c[2], c[3] * x + c[4] * y + c[5]};
}
inline Point throughPerspective(const Numbers& c, double x, double y)
{
  const double w = c[6] * x + c[7] * y + c[8];
  return {(c[0] * x + c[1] * y + c[2]) / w, (c[3] * x + c[4] * y + c[5]) / w};
}
inline Point throughBilinear(const Numbers& c, double x, double y)
{
  return {(c[0] * y + c[1]) * x + (c[2] * y + c[3]), (c[4] * y + c[5]) * x + (c[6] * y + c[7])};
}
template <class Map> Polygon quadOf(ZorImgRect r, Map map)
{
  const Box b = boxOf(r);
  return {map(b.left, b.top), map(b.right, b.top), map(b.right, b.bottom), map(b.left, b.bottom)};
}

inline bool singular(const Numbers& c)
{
  const double a = c[0] * c[4], b = c[1] * c[3];
  if (std::fabs(a) <= 1e-200) return std::fabs(b) <= 1e-10;
  return std::fabs((a - b) / a) <= 1e-10;
}
inline Numbers inverse2x2(const Numbers& c)
{
  const double det = c[0] * c[4] - c[1] * c[3];
  const double a = c[4] / det, b = -c[1] / det, d = -c[3] / det, e = c[0] / det;
  return {a, b, -(a * c[2] + b * c[5]), d, e, -(d * c[2] + e * c[5])};
}
inline Numbers affineBack(const Polygon& q, ZorImgRect rect)
{
  const Box r = boxOf(rect);
  const double X0 = q[0].x, Y0 = q[0].y, X1 = q[1].x, Y1 = q[1].y, X2 = q[2].x, Y2 = q[2].y;
  const double d = (X1 - X0) * (Y2 - Y1) - (X2 - X1) * (Y1 - Y0), f = 1 / d;
  const double u = (r.right - r.left) * f, v = (r.bottom - r.top) * f;
  const double c00 = (Y2 - Y1) * u, c01 = -(X2 - X1) * u, c10 = -(Y1 - Y0) * v, c11 = (X1 - X0) * v;
  return {c00, c01, r.left - c01 * Y0 - c00 * X0, c10, c11, r.top - c10 * X0 - c11 * Y0};
}
inline Numbers adjugate(const Numbers& c)
{
  return {c[4] * c[8] - c[7] * c[5], c[7] * c[2] - c[1] * c[8], c[1] * c[5] - c[4] * c[2],
          c[6] * c[5] - c[3] * c[8], c[8] * c[0] - c[6] * c[2], c[2] * c[3] - c[5] * c[0],
          c[3] * c[7] - c[6] * c[4], c[6] * c[1] - c[7] * c[0], c[0] * c[4] - c[1] * c[3]};
}
inline Numbers perspectiveOf(const Polygon& q, ZorImgRect rect)
{
  const Box r = boxOf(rect);
  const double X0 = q[0].x, Y0 = q[0].y, X1 = q[1].x, Y1 = q[1].y, X2 = q[2].x, Y2 = q[2].y, X3 = q[3].x, Y3 = q[3].y;
  const double a1 = X0 - X3, a2 = X2 - X1, a3 = X3 - X2, b1 = Y0 - Y3, b2 = Y2 - Y1, b3 = Y3 - Y2;
  const double f = 1 / (a3 * b2 - a2 * b3);
  const double g = ((a1 + a2) * b3 - (b1 + b2) * a3) * f, h = ((a1 + a2) * b2 - (b1 + b2) * a2) * f;
  const double sx = 1 / (r.right - r.left), sy = 1 / (r.bottom - r.top);
  const double c00 = (X1 - X0 + X1 * g) * sx, c20 = g * sx, c10 = (Y1 - Y0 + Y1 * g) * sx;
  const double c01 = (X3 * h - a1) * sy, c11 = (Y3 * h - b1) * sy, c21 = h * sy;
  return {c00, c01, X0 - c00 * r.left - c01 * r.top, c10, c11, Y0 - c10 * r.left - c11 * r.top,
          c20, c21, 1 - r.left * c20 - r.top * c21};
}
inline Numbers bilinearOf(const Polygon& q, ZorImgRect rect)
{
  const Box r = boxOf(rect);
  const double w = (r.right - r.left) * (r.bottom - r.top);
  Numbers out;
  for (int k = 0; k < 2; ++k) {
    const auto at = [&](int i) { return k ? q[i].y : q[i].x; };
    const double d1 = at(1) - at(0), d3 = at(3) - at(2), d0 = at(0) - at(3), d2 = at(2) - at(1);
    const double c0 = (-d1 - d3) / w, c1 = (d1 * r.bottom + d3 * r.top) / w, c2 = (-d0 * r.right - d2 * r.left) / w;
    for (const double c : {c0, c1, c2, (-c1 - c0 * r.top) * r.left + (at(0) - c2 * r.top)}) out.push_back(c);
  }
  return out;
}
// The point that the bilinear map takes to (x, y), by Newton's method from `from`.
inline Point bilinearOrigin(const Numbers& c, Point to, Point from)
{
  long double x = from.x, y = from.y;
  for (int i = 0; i < 60; ++i) {
    const long double atX = (c[0] * y + c[1]) * x + (c[2] * y + c[3]) - to.x,
                      atY = (c[4] * y + c[5]) * x + (c[6] * y + c[7]) - to.y;
    const long double xx = c[0] * y + c[1], xy = c[0] * x + c[2], yx = c[4] * y + c[5], yy = c[4] * x + c[6],
                      d = xx * yy - xy * yx;
    x -= (atX * yy - atY * xy) / d;
    y -= (atY * xx - atX * yx) / d;
  }
  return {double(x), double(y)};
}

inline Point rotateShift(double angle, double x, double y)
{
  double a = angle - std::trunc(angle / 360) * 360;
  if (a < 0) a += 360;
  if (a == 0) return {0, 0};
  if (a == 90) return {x - y, x + y};
  if (a == 180) return {2 * x, 2 * y};
  if (a == 270) return {x + y, y - x};
  const double c = std::cos(a / 180 * 3.141592653589793), s = std::sin(a / 180 * 3.141592653589793);
  return {x - x * c - y * s, y - y * c + x * s};
}
inline Numbers rotateMatrix(double a, double xs, double ys)
{
  double c = std::cos(a / 180 * 3.141592653589793), s = std::sin(a / 180 * 3.141592653589793);
  if (a == 90) c = 0, s = 1;
  if (a == 180) c = -1, s = 0;
  if (a == 270) c = 0, s = -1;
  return {c, s, xs, -s, c, ys};
}

// ---- Interpolation at a point ----

enum class Sample { U8, U16, F32 };
inline int bytesOf(Sample t) { return t == Sample::U8 ? 1 : t == Sample::U16 ? 2 : 4; }
template <class T> T read(const unsigned char* p)
{
  T x;
  std::memcpy(&x, p, sizeof x);
  return x;
}
inline double get(Sample t, const unsigned char* p)
{
  return t == Sample::U8 ? *p : t == Sample::U16 ? double(read<Zor16u>(p)) : double(read<float>(p));
}
inline void put(Sample t, unsigned char* p, double x)
{
  const Zor16u word = t == Sample::U16 ? Zor16u(x) : Zor16u(0);
  const float single = float(x);
  if (t == Sample::U8) *p = static_cast<unsigned char>(x);
  else if (t == Sample::U16) std::memcpy(p, &word, sizeof word);
  else std::memcpy(p, &single, sizeof single);
}

// One plane, or all channels of an image.
struct Pixels {
  Sample type;
  unsigned char* first;
  long long step;
  int width, height, channels;

  unsigned char* at(long long x, long long y, int channel) const
  {
    return first + y * step + (x * channels + channel) * bytesOf(type);
  }
  double value(long long x, long long y, int channel) const { return get(type, at(x, y, channel)); }
};

struct Range {
  double low, high;
};
inline bool holds(Range r, double x) { return (x >= r.low && x <= r.high) || (std::isnan(x) && std::isnan(r.low)); }

inline double cubicWeight(int k, double t)
{
  switch (k) {
  case 0: return (-t * t / 6 - 1.0 / 3) * t + t * t / 2;
  case 1: return t * (t * t) / 2 + 1 - t * t - t / 2;
  case 2: return -(t * (t * t)) / 2 + t * t / 2 + t;
  default: return t * (t * t) / 6 - t / 6;
  }
}

// What the source may give at a point: one value, but for cubic 8u, which is within 1 of the exact polynomial.
inline Range sampled(const Pixels& s, double x, double y, int channel, int interpolation)
{
  const int w = s.width, h = s.height;
  if (interpolation == ZORI_INTER_CUBIC && (w < 4 || h < 4)) interpolation = ZORI_INTER_LINEAR;
  if (w == 1 || h == 1) interpolation = ZORI_INTER_NN;
  x = std::clamp(x, 0.0, w - 1.0);
  y = std::clamp(y, 0.0, h - 1.0);
  if (interpolation == ZORI_INTER_NN) {
    const double value = s.value((long long)(std::nearbyint(x)), (long long)(std::nearbyint(y)), channel);
    return {value, value};
  }
  if (interpolation == ZORI_INTER_LINEAR) {
    const long long ix = std::min<long long>((long long)(x), w - 2), iy = std::min<long long>((long long)(y), h - 2);
    if (s.type == Sample::U8) {
      const int fx = int(std::nearbyint((x - ix) * 16384)), fy = int(std::nearbyint((y - iy) * 16384));
      const auto row = [&](long long r) {
        return (int(s.value(ix, r, channel)) * (16384 - fx) + int(s.value(ix + 1, r, channel)) * fx) >> 8;
      };
      const double value = (row(iy) * (16384 - fy) + row(iy + 1) * fy + 524288) >> 20;
      return {value, value};
    }
    const float fx = float(x - ix), fy = float(y - iy);
    const auto row = [&](long long r) {
      const float a = float(s.value(ix, r, channel)) * (1 - fx), b = float(s.value(ix + 1, r, channel)) * fx;
      return a + b;
    };
    const float t0 = row(iy), t1 = row(iy + 1), out = t0 + (t1 - t0) * fy;
    const double value = s.type == Sample::U16 ? std::nearbyint(out) : out;
    return {value, value};
  }
  const long long ix = (long long)(x), iy = (long long)(y);
  double rows[4];
  for (int i = 0; i < 4; ++i) {
    double term[4];
    for (int k = 0; k < 4; ++k)
      term[k] = cubicWeight(k, x - ix) * s.value(std::clamp<long long>(ix - 1 + k, 0, w - 1),
                                                 std::clamp<long long>(iy - 1 + i, 0, h - 1), channel);
    rows[i] = term[0] + term[1] + term[2] + term[3];
  }
  double value = 0;
  for (int i = 0; i < 4; ++i) value += cubicWeight(i, y - iy) * rows[i];
  if (s.type == Sample::U8) {
    value = std::clamp(value, 0.0, 255.0);
    return {value - 1, value + 1};
  }
  if (s.type == Sample::U16) value = value > 65535 ? 65535 : value < 0 ? 0 : std::floor(value + 0.5);
  else value = float(value);
  return {value, value};
}

// ---- Smooth edges ----

inline void smoothEdges(const Pixels& dst, int written, const Polygon& p, int orientation)
{
  const int n = int(p.size());
  for (int i = 0; n > 2 && i < n; ++i) {
    const Point a = p[i], b = p[(i + 1) % n];
    const double dx = b.x - a.x, dy = b.y - a.y;
    if (dx == 0 || dy == 0) continue;
    const bool steep = std::fabs(dy) > std::fabs(dx);
    const double from = steep ? std::min(a.y, b.y) : std::min(a.x, b.x),
                 to = steep ? std::max(a.y, b.y) : std::max(a.x, b.x);
    for (double t = std::ceil(from); t <= std::floor(to); t += 1) {
      const double x = steep ? (t - a.y) * (dx / dy) + a.x : (t - a.x) * (dy / dx) + a.y;
      if (std::fabs(x - std::nearbyint(x)) < 1e-14) continue; // the edge goes through a pixel
      const double below = std::floor(x), above = std::ceil(x);
      if (below < 0) continue;
      const bool innerIsAbove = (steep ? dy < 0 : dx > 0) == (orientation == 1);
      const double inner = innerIsAbove ? above : below, outer = innerIsAbove ? below : above;
      const auto at = [&](double across, int k) {
        return dst.at((long long)(steep ? across : t), (long long)(steep ? t : across), k);
      };
      for (int k = 0; k < written; ++k) {
        const double mix =
          get(dst.type, at(outer, k)) * std::fabs(x - outer) + get(dst.type, at(inner, k)) * std::fabs(x - inner);
        put(dst.type, at(outer, k), dst.type == Sample::F32 ? mix : std::trunc(mix + 0.5));
      }
    }
  }
}

} // namespace warprules
