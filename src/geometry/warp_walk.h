// The coordinate walkers of the warps: where in the source the pixels of destination rows lie.
//
// A rule tells a map from destination to source by a few numbers that are linear in x, kept as running sums along each
// row, and by what the source point is of them. Sums are in double precision. Four rows go side by side, one a lane,
// each from a first column of its own: that keeps the order of each row's sums and hides the time that a sum takes.
//
// All coordinates are scaled by a power of two, the fraction bits of the sampling method, which changes no rounding.
#pragma once

#include "calculus.h"
#include "sampling.h"

#include <cmath>

namespace zori {
namespace geometry {

// What rules are written with: one number, or a vector of them.
inline double rootOf(double x) { return std::sqrt(x); }
inline F64x2 rootOf(F64x2 x) { return sqrt(x); }
template <class V> V allOf(double x)
{
  if constexpr (std::is_same_v<V, double>) return x;
  else return splat(x);
}

// ---- Rules ----

// The point is two sums.
struct LinearPoint {
  static constexpr int sums = 2;
  static constexpr bool isSingle = false;

  template <class V> void point(const V* sum, V& x, V& y) const
  {
    x = sum[0];
    y = sum[1];
  }
  // A row's points lie between its ends, and a quarter of a step outside the image still rounds to its edge: so far
  // points can be placed as they come.
  static constexpr bool keepsBetweenEnds = true;
};

// From destination to source by an affine map. What depends on y is summed from row to row.
class AffineRule : public LinearPoint {
public:
  AffineRule(const Affine& a, double scale)
    : a_{a.xx * scale, a.xy * scale, a.x0 * scale, a.yx * scale, a.yy * scale, a.y0 * scale}
  {}
  struct Row {
    double x, y;
  };
  Row firstRow(int y) const { return {y * a_.xy + a_.x0, y * a_.yy + a_.y0}; }
  void advance(Row& row) const
  {
    row.x += a_.xy;
    row.y += a_.yy;
  }
  void start(const Row& row, int, int x, double (&sum)[sums], double (&step)[sums]) const
  {
    sum[0] = x * a_.xx + row.x;
    sum[1] = x * a_.yx + row.y;
    step[0] = a_.xx;
    step[1] = a_.yx;
  }

private:
  Affine a_;
};

// By a bilinear map: linear in each row, with steps of its own.
class BilinearBackRule : public LinearPoint {
public:
  BilinearBackRule(const Bilinear& b, double scale)
    : b_{b.xBoth * scale, b.xx * scale, b.xy * scale, b.x0 * scale,
         b.yBoth * scale, b.yx * scale, b.yy * scale, b.y0 * scale}
  {}
  struct Row {};
  Row firstRow(int) const { return {}; }
  void advance(Row&) const {}
  void start(const Row&, int y, int x, double (&sum)[sums], double (&step)[sums]) const
  {
    step[0] = b_.xBoth * y + b_.xx;
    step[1] = b_.yBoth * y + b_.yx;
    sum[0] = step[0] * x + (b_.xy * y + b_.x0);
    sum[1] = step[1] * x + (b_.yy * y + b_.y0);
  }

private:
  Bilinear b_;
};

// By a perspective map: two numerators and a divisor; the quotients are rounded to single precision.
class PerspectiveRule {
public:
  static constexpr int sums = 3;
  static constexpr bool isSingle = true, keepsBetweenEnds = false;

  PerspectiveRule(const Perspective& t, double scale) : t_(t)
  {
    for (int i = 0; i < 2; ++i)
      for (int k = 0; k < 3; ++k) t_.m[i][k] *= scale;
  }
  struct Row {
    double sum[3];
  };
  Row firstRow(int y) const
  {
    Row row;
    for (int i = 0; i < 3; ++i) row.sum[i] = y * t_.m[i][1] + t_.m[i][2];
    return row;
  }
  void advance(Row& row) const
  {
    for (int i = 0; i < 3; ++i) row.sum[i] += t_.m[i][1];
  }
  void start(const Row& row, int, int x, double (&sum)[sums], double (&step)[sums]) const
  {
    for (int i = 0; i < 3; ++i) {
      sum[i] = x * t_.m[i][0] + row.sum[i];
      step[i] = t_.m[i][0];
    }
  }
  template <class V> void point(const V* sum, V& x, V& y) const
  {
    x = sum[0] / sum[2];
    y = sum[1] / sum[2];
  }

private:
  Perspective t_;
};

// By the inverse of a bilinear map (calculus.cpp tells the formula), followed by another that takes what it gives to
// the source.
class BilinearRule {
public:
  static constexpr int sums = 3;
  static constexpr bool isSingle = false, keepsBetweenEnds = false;

  BilinearRule(const Bilinear& b, bool turnsPositive, const Bilinear& toSource, double scale)
    : b_(b), sign_(turnsPositive ? 1.0 : -1.0), turn_(b.xx * b.yy - b.xy * b.yx),
      bend_(2 * (b.yx * b.xBoth - b.yBoth * b.xx)), to_{toSource.xBoth * scale, toSource.xx * scale,
                                                        toSource.xy * scale,    toSource.x0 * scale,
                                                        toSource.yBoth * scale, toSource.yx * scale,
                                                        toSource.yy * scale,    toSource.y0 * scale}
  {}
  struct Row {};
  Row firstRow(int) const { return {}; }
  void advance(Row&) const {}
  void start(const Row&, int y, int x, double (&sum)[sums], double (&step)[sums]) const
  {
    const double dx = x - b_.x0, dy = y - b_.y0;
    step[0] = b_.yBoth;
    step[1] = 2 * b_.yy;
    step[2] = -2 * b_.yx;
    sum[0] = b_.yBoth * dx - b_.xBoth * dy;
    sum[1] = 2 * (b_.yy * dx - b_.xy * dy);
    sum[2] = -2 * (b_.yx * dx - b_.xx * dy);
  }
  template <class V> void point(const V* sum, V& x, V& y) const
  {
    const auto all = [](double c) { return allOf<V>(c); };
    const V below = all(turn_) - sum[0], above = all(turn_) + sum[0];
    const V j = all(sign_) * rootOf(below * below - all(bend_) * sum[1]);
    const V u = sum[1] / (j + below), v = sum[2] / (j + above), both = u * v;
    x = all(to_.xBoth) * both + all(to_.xx) * u + (all(to_.xy) * v + all(to_.x0));
    y = all(to_.yBoth) * both + all(to_.yx) * u + (all(to_.yy) * v + all(to_.y0));
  }

private:
  Bilinear b_;
  double sign_, turn_, bend_;
  Bilinear to_;
};

// ---- Four rows ----

template <class Rule> struct Lanes {
  double sum[Rule::sums][blockRows], step[Rule::sums][blockRows];

  void start(int lane, const double (&s)[Rule::sums], const double (&d)[Rule::sums])
  {
    for (int i = 0; i < Rule::sums; ++i) {
      sum[i][lane] = s[i];
      step[i][lane] = d[i];
    }
  }
};

// The ends of a row's points as its lane stands: may they be placed without a look at each?
template <Method M, class Rule> bool isPlain(const Lanes<Rule>& lanes, int lane, int count, const Placer<M>& placer)
{
  const auto isBetween = [=](double x, double low, double high) { return x >= low && x <= high; };
  const double steps = count - 1;
  if constexpr (Rule::keepsBetweenEnds) {
    const double high[2] = {placer.highX() + 0.25, placer.highY() + 0.25};
    for (int i = 0; i < 2; ++i) {
      const double start = lanes.sum[i][lane], end = start + steps * lanes.step[i][lane];
      if (!isBetween(start, -0.25, high[i]) || !isBetween(end, -0.25, high[i])) return false;
    }
    return true;
  } else {
    // no sum overflows, and a divisor keeps its sign
    for (int i = 0; i < Rule::sums; ++i) {
      const double start = lanes.sum[i][lane], end = start + steps * lanes.step[i][lane];
      if (!isBetween(start, -1e150, 1e150) || !isBetween(end, -1e150, 1e150)) return false;
      if (Rule::isSingle && i == 2 && !(start > 0 && end > 0) && !(start < 0 && end < 0)) return false;
    }
    return true;
  }
}

// Do they lie before the last column and row besides?
template <Method M, class Rule>
bool isInner(const Lanes<Rule>& lanes, int lane, int count, const Placer<M>& placer, const Points& points)
{
  if constexpr (M != Method::Inner8 && M != Method::Inner) return false;
  else if constexpr (Rule::keepsBetweenEnds) {
    // fractions in single precision are those of coordinates as they are: none may be below 0
    constexpr double low = M == Method::Inner8 ? -0.25 : 0.001, before = M == Method::Inner8 ? 1 : 0.001;
    const double high[2] = {placer.highX() - before, placer.highY() - before}, steps = count - 1;
    for (int i = 0; i < 2; ++i) {
      const double start = lanes.sum[i][lane], end = start + steps * lanes.step[i][lane];
      if (!(start >= low && start <= high[i] && end >= low && end <= high[i])) return false;
    }
    return true;
  } else {
    return !anyBeyond(points, lane, 0, count);
  }
}

// The points of one row one by one, as the fine kernels take them. Those for which skips(x, y) holds become NaN.
template <class Rule, class Skips>
void placeFine(const Rule& rule, const Lanes<Rule>& lanes, int lane, int count, double scale, Skips skips,
               Points& points)
{
  double sum[Rule::sums], *const toX = points.fine.x[lane], *const toY = points.fine.y[lane];
  for (int i = 0; i < Rule::sums; ++i) sum[i] = lanes.sum[i][lane];
  for (int k = 0; k < count; ++k) {
    double x, y;
    rule.point(sum, x, y);
    if (Rule::isSingle) {
      x = static_cast<float>(x);
      y = static_cast<float>(y);
    }
    x /= scale;
    y /= scale;
    toX[k] = skips(x, y) ? NAN : x;
    toY[k] = y;
    for (int i = 0; i < Rule::sums; ++i) sum[i] += lanes.step[i][lane];
  }
}

// ---- Four rows by four columns ----

template <class V> struct FourByFour {
  V line[4];
};

// Lines become columns.
inline FourByFour<I32x4> transposed(const FourByFour<I32x4>& m)
{
  using U64 = Vec<std::uint64_t>;
  const auto a = as<std::uint64_t>(interleaveLow(m.line[0], m.line[1]));
  const auto b = as<std::uint64_t>(interleaveHigh(m.line[0], m.line[1]));
  const auto c = as<std::uint64_t>(interleaveLow(m.line[2], m.line[3]));
  const auto d = as<std::uint64_t>(interleaveHigh(m.line[2], m.line[3]));
  const auto whole = [](U64 x) { return as<std::int32_t>(x); };
  return {
    {whole(interleaveLow(a, c)), whole(interleaveHigh(a, c)), whole(interleaveLow(b, d)), whole(interleaveHigh(b, d))}};
}
inline FourByFour<F32x4> transposed(const FourByFour<F32x4>& m)
{
  FourByFour<I32x4> bits;
  for (int i = 0; i < 4; ++i) bits.line[i] = as<std::int32_t>(m.line[i]);
  bits = transposed(bits);
  FourByFour<F32x4> out;
  for (int i = 0; i < 4; ++i) out.line[i] = as<float>(bits.line[i]);
  return out;
}

// A coordinate of four columns, each as rows 0, 1 and rows 2, 3.
using Columns = F64x2[4][2];

// Rounded to whole numbers below 2^31, halves to even, by rows.
inline FourByFour<I32x4> roundedRows(const Columns& x)
{
  const F64x2 toWhole = splat(6755399441055744.0); // 1.5 * 2^52: the sum holds the whole number in its low half
  const auto halves = [=](int k, int rows) { return as<float>(x[k][rows] + toWhole); };
  FourByFour<I32x4> out;
  for (int rows = 0; rows < 2; ++rows) {
    const F32x4 a = shuffle<2, 0, 2, 0>(halves(0, rows), halves(1, rows));
    const F32x4 b = shuffle<2, 0, 2, 0>(halves(2, rows), halves(3, rows));
    out.line[2 * rows] = as<std::int32_t>(shuffle<2, 0, 2, 0>(a, b));
    out.line[2 * rows + 1] = as<std::int32_t>(shuffle<3, 1, 3, 1>(a, b));
  }
  return out;
}

// The four columns of one row.
struct RowOfFour {
  F64x2 low, high;
};
inline RowOfFour rowOf(const Columns& x, int row)
{
  const int pair = row / 2;
  if (row % 2 == 0) return {interleaveLow(x[0][pair], x[1][pair]), interleaveLow(x[2][pair], x[3][pair])};
  return {interleaveHigh(x[0][pair], x[1][pair]), interleaveHigh(x[2][pair], x[3][pair])};
}

// How far coordinates lie behind whole numbers, in single precision.
inline F32x4 fractions(RowOfFour x, I32x4 whole)
{
  return toFloat(x.low - toDoubleLow(whole), x.high - toDoubleHigh(whole));
}

// Places `columns` points in each of four rows; lanes go on to the columns behind.
template <Method M, class Rule>
[[gnu::noinline]] void placeBlock(const Rule& rule, Lanes<Rule>& lanes, const Source& source, int columns,
                                  Points& points)
{
  const Placer<M> placer(source);
  F64x2 sum[Rule::sums][2], step[Rule::sums][2];
  for (int i = 0; i < Rule::sums; ++i)
    for (int r = 0; r < 2; ++r) {
      sum[i][r] = load<double>(lanes.sum[i] + 2 * r);
      step[i][r] = load<double>(lanes.step[i] + 2 * r);
    }

  const F64x2 highX = splat(placer.highX()), highY = splat(placer.highY());
  for (int column = 0; column < columns; column += 4) {
    Columns x, y;
    for (int k = 0; k < 4; ++k)
      for (int r = 0; r < 2; ++r) {
        F64x2 s[Rule::sums];
        for (int i = 0; i < Rule::sums; ++i) {
          s[i] = sum[i][r];
          sum[i][r] += step[i][r];
        }
        rule.point(s, x[k][r], y[k][r]);
        if constexpr (!Rule::isSingle && (M == Method::Linear || (!Rule::keepsBetweenEnds && M != Method::Fine))) {
          x[k][r] = max(min(x[k][r], highX), zero<double>());
          y[k][r] = max(min(y[k][r], highY), zero<double>());
        }
      }

    if constexpr (Rule::isSingle) {
      FourByFour<F32x4> rowsX, rowsY;
      for (int k = 0; k < 4; ++k) {
        rowsX.line[k] = toFloat(x[k][0], x[k][1]);
        rowsY.line[k] = toFloat(y[k][0], y[k][1]);
      }
      rowsX = transposed(rowsX);
      rowsY = transposed(rowsY);
      for (int r = 0; r < 4; ++r) placer.placeSingle(points, r, column, rowsX.line[r], rowsY.line[r]);
    } else if constexpr (M == Method::Fine || M == Method::Linear || M == Method::Inner) {
      for (int r = 0; r < 4; ++r) {
        const RowOfFour across = rowOf(x, r), down = rowOf(y, r);
        if constexpr (M == Method::Fine) {
          store(points.fine.x[r] + column, across.low);
          store(points.fine.x[r] + column + 2, across.high);
          store(points.fine.y[r] + column, down.low);
          store(points.fine.y[r] + column + 2, down.high);
        } else {
          I32x4 ix = toIntTruncated(across.low, across.high), iy = toIntTruncated(down.low, down.high);
          if constexpr (M == Method::Linear) {
            ix = placer.wholeX(ix);
            iy = placer.wholeY(iy);
          }
          placer.place(points, r, column, ix, iy, fractions(across, ix), fractions(down, iy));
        }
      }
    } else {
      const FourByFour<I32x4> rowsX = roundedRows(x), rowsY = roundedRows(y);
      for (int r = 0; r < 4; ++r)
        placer.template place<!Rule::keepsBetweenEnds>(points, r, column, rowsX.line[r], rowsY.line[r]);
    }
  }

  for (int i = 0; i < Rule::sums; ++i)
    for (int r = 0; r < 2; ++r) store(lanes.sum[i] + 2 * r, sum[i][r]);
}

} // namespace geometry
} // namespace zori
