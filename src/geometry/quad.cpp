// Quadrangles: orientation, clipping, outlines.
#include "quad.h"

#include <algorithm>
#include <cmath>

namespace zori {
namespace geometry {

// ---- Orientation and bounds ----

// Of the edge that comes from a to b with the edge that goes on from b to c.
static double turn(Point a, Point b, Point c) { return (b.x - a.x) * (c.y - b.y) - (b.y - a.y) * (c.x - b.x); }

QuadKind kindOf(const Quad& quad)
{
  const Point* const p = quad.corner;
  const double turns[4] = {turn(p[2], p[3], p[0]), turn(p[3], p[0], p[1]), turn(p[0], p[1], p[2]),
                           turn(p[1], p[2], p[3])};
  int positive = 0;
  for (const double t : turns) {
    if (!(t < 0.0 || t > 0.0)) return QuadKind::Degenerate;
    positive += t > 0.0;
  }
  return positive == 4 ? QuadKind::Positive : positive == 0 ? QuadKind::Negative : QuadKind::NotConvex;
}

template <class Points> static Box boundOf(const Points& points, int count)
{
  Box b = {points[0].x, points[0].y, points[0].x, points[0].y};
  for (int i = 1; i < count; ++i) {
    b.left = std::min(b.left, points[i].x);
    b.top = std::min(b.top, points[i].y);
    b.right = std::max(b.right, points[i].x);
    b.bottom = std::max(b.bottom, points[i].y);
  }
  return b;
}

Box boundOf(const Quad& quad) { return boundOf(quad.corner, 4); }

// ---- Clipping ----

namespace {

// One edge of the box, told for the upper one: what is inside has y of at least `bound`. Sides differ in the coordinate
// that counts and in its direction.
struct UpperSide {
  double bound;
  bool isOn(Point p) const { return p.y == bound; }
  bool isBefore(Point p) const { return p.y < bound; }
  Point crossing(Point a, Point b) const { return {a.x + (bound - a.y) * (b.x - a.x) / (b.y - a.y), bound}; }
};
struct LowerSide : UpperSide {
  bool isBefore(Point p) const { return p.y > bound; }
};
struct LeftSide {
  double bound;
  bool isOn(Point p) const { return p.x == bound; }
  bool isBefore(Point p) const { return p.x < bound; }
  Point crossing(Point a, Point b) const { return {bound, a.y + (bound - a.x) * (b.y - a.y) / (b.x - a.x)}; }
};
struct RightSide : LeftSide {
  bool isBefore(Point p) const { return p.x > bound; }
};

// What a segment leaves behind: nothing when it stays outside (or comes no nearer than the edge), its end when that is
// on the edge or all of it inside, else the point where it crosses, and its end when that is inside.
template <class Side> void clipSide(Polygon& polygon, Side side)
{
  bool crosses = false;
  for (int i = 0; i < polygon.count; ++i) crosses = crosses || side.isBefore(polygon.vertex[i]);
  if (!crosses) return;

  Polygon kept;
  for (int i = 0; i < polygon.count; ++i) {
    const Point a = polygon.vertex[i], b = polygon.vertex[i + 1 < polygon.count ? i + 1 : 0];
    const bool leavesFrom = side.isBefore(a), leadsTo = side.isBefore(b);
    if ((leavesFrom || side.isOn(a)) && leadsTo) continue;
    if (side.isOn(b) || (!leavesFrom && !leadsTo)) {
      kept.add(b);
    } else {
      kept.add(side.crossing(a, b));
      if (!leadsTo) kept.add(b);
    }
  }
  polygon = kept;
}

void dropRepeats(Polygon& polygon)
{
  Polygon kept;
  for (int i = 0; i < polygon.count; ++i)
    if (kept.count == 0 || !(polygon.vertex[i] == kept.vertex[kept.count - 1])) kept.add(polygon.vertex[i]);
  while (kept.count > 1 && kept.vertex[kept.count - 1] == kept.vertex[0]) --kept.count;
  polygon = kept;
}

} // namespace

Polygon clipped(Polygon polygon, const Box& box)
{
  if (polygon.count == 0) return polygon;
  const Box bound = boundOf(polygon.vertex, polygon.count);
  if (bound.bottom < box.top || bound.top > box.bottom || bound.right < box.left || bound.left > box.right)
    return Polygon();
  clipSide(polygon, UpperSide{box.top});
  clipSide(polygon, LowerSide{{box.bottom}});
  clipSide(polygon, LeftSide{box.left});
  clipSide(polygon, RightSide{{box.right}});
  dropRepeats(polygon);
  return polygon;
}

// ---- Outlines ----

static constexpr double hair = 1e-14;

void Outline::Chain::add(Point from, Point to)
{
  if (to.y > from.y && count < Polygon::most) edge[count++] = {from.x, from.y, to.y, (to.x - from.x) / (to.y - from.y)};
}

// The edge that decides row y: the first that reaches it, so that a vertex on a row belongs to the edge above. Rounding
// may leave a chain a little short of the last row.
const Outline::Edge* Outline::Chain::at(int y) const
{
  for (int i = 0; i < count; ++i)
    if (y <= edge[i].endY) return &edge[i];
  return count && y <= edge[count - 1].endY + 1e-9 ? &edge[count - 1] : nullptr;
}

Outline::Outline(const Polygon& polygon, bool isPositive, ZorImgRect rect)
{
  const int n = polygon.count;
  if (n < 1) return;
  const Box bound = boundOf(polygon.vertex, n);
  bounds_ = boxOf(rect);
  const double top = std::max(std::ceil(bound.top), bounds_.top);
  const double bottom = std::min(std::floor(bound.bottom), bounds_.bottom);
  if (!(top <= bottom) || !(std::ceil(bound.left) <= std::floor(bound.right))) return;
  firstRow_ = static_cast<int>(top);
  lastRow_ = static_cast<int>(bottom);

  int first = 0; // the first vertex of those at the top
  for (int i = 1; i < n; ++i)
    if (polygon.vertex[i].y < polygon.vertex[first].y) first = i;
  topLeft_ = topRight_ = polygon.vertex[first].x;
  for (int i = 0; i < n; ++i) {
    if (polygon.vertex[i].y != polygon.vertex[first].y) continue;
    topLeft_ = std::min(topLeft_, polygon.vertex[i].x);
    topRight_ = std::max(topRight_, polygon.vertex[i].x);
  }

  // both ways down from the top, level edges left out, to where the ways meet
  Chain ahead, back;
  const auto walk = [&](Chain& chain, int direction) {
    int i = first;
    for (int steps = 1; steps < n; ++steps) {
      const int next = (i + direction + n) % n;
      if (polygon.vertex[next].y < polygon.vertex[i].y) break;
      chain.add(polygon.vertex[i], polygon.vertex[next]);
      i = next;
    }
  };
  walk(ahead, 1);
  walk(back, -1);
  left_ = isPositive ? back : ahead;
  right_ = isPositive ? ahead : back;
}

Outline::Span Outline::row(int y) const
{
  double left, right;
  if (left_.count == 0 && right_.count == 0) { // one level line
    left = std::ceil(topLeft_);
    right = std::floor(topRight_);
  } else {
    const Edge *const l = left_.at(y), *const r = right_.at(y);
    if (!l || !r) return {0, -1};
    const double from = (y - l->startY) * l->slope + l->startX, to = (y - r->startY) * r->slope + r->startX;
    left = std::ceil(from);
    if (from + 1 - left < hair) left -= 1;
    right = std::floor(to);
    if (1 - to + right < hair) right += 1;
  }
  left = std::max(bounds_.left, left); // in this order a NaN gives the bound
  right = std::min(bounds_.right, right);
  if (!(left <= right)) return {0, -1};
  return {static_cast<int>(left), static_cast<int>(right)};
}

} // namespace geometry
} // namespace zori
