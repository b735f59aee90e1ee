// Quadrangles in the plane: orientation, bounds, clipping to a rectangle, and which pixels of a row lie inside.
//
// All of it is double precision under rounding to nearest, which the callers see to. Coordinates may be anything,
// infinite and NaN too: a quadrangle that is not sound fails its check, and an outline never leaves its rectangle.
#pragma once

#include "zori/types.h"

namespace zori {
namespace geometry {

struct Point {
  double x, y;
};
inline bool operator==(Point a, Point b) { return a.x == b.x && a.y == b.y; }

// Corners in ring order: the images of the upper left, upper right, lower right and lower left corner of a rectangle.
struct Quad {
  Point corner[4];
};

// A rectangle by its outermost pixels, both of them inside.
struct Box {
  double left, top, right, bottom;
};
inline Box boxOf(ZorImgRect r)
{
  return {double(r.x), double(r.y), double(r.x) + r.width - 1.0, double(r.y) + r.height - 1.0};
}
inline bool isEmptyRect(ZorImgRect r) { return r.x < 0 || r.y < 0 || r.width < 1 || r.height < 1; }

enum class QuadKind { Degenerate, NotConvex, Negative, Positive };

// Positive: the corners turn as those of a rectangle do (clockwise where y points down). Degenerate when a cross
// product of adjacent edges is zero or not a number.
QuadKind kindOf(const Quad& quad);
inline bool isSound(QuadKind kind) { return kind == QuadKind::Negative || kind == QuadKind::Positive; }

Box boundOf(const Quad& quad);

// A convex polygon: a quadrangle has four vertices, and each edge that clips it can add one. It is clipped twice at
// most.
struct Polygon {
  static constexpr int most = 12;
  int count = 0;
  Point vertex[most];

  Polygon() = default;
  explicit Polygon(const Quad& quad) : count(4)
  {
    for (int i = 0; i < 4; ++i) vertex[i] = quad.corner[i];
  }
  void add(Point p)
  {
    if (count < most) vertex[count++] = p; // more come only of polygons that rounding has bent
  }
};

// The part of the polygon inside the box, corners that repeat each other removed; none when they are apart.
Polygon clipped(Polygon polygon, const Box& box);

// Which pixels of each row a convex polygon covers, with those on its edges. An edge that passes a hair (1e-14) beside
// a pixel passes through it.
class Outline {
public:
  struct Span {
    int first, last; // none when last < first
  };

  // The polygon lies in the rectangle. Positive polygons have their right side ahead of the top vertex.
  Outline(const Polygon& polygon, bool isPositive, ZorImgRect rect);

  bool isEmpty() const { return lastRow_ < firstRow_; }
  int firstRow() const { return firstRow_; }
  int lastRow() const { return lastRow_; }
  Span row(int y) const;

private:
  struct Edge {
    double startX, startY, endY, slope; // x = (y - startY) * slope + startX
  };
  struct Chain {
    int count = 0;
    Edge edge[Polygon::most];
    void add(Point from, Point to);
    const Edge* at(int y) const;
  };

  Chain left_, right_;
  Box bounds_ = {};
  int firstRow_ = 0, lastRow_ = -1;
  double topLeft_ = 0, topRight_ = 0; // of a polygon that is one level line
};

} // namespace geometry
} // namespace zori
