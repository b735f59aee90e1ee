// The coordinate walkers of the warps: where in the source the pixels of destination rows lie.
//
// A rule tells a map from destination to source by a few numbers that are linear in x, kept as running sums along each
// row, and by what the source point is of them. Sums are in double precision. Four rows go side by side, one a lane,
// each from a first column of its own: that keeps the order of each row's sums and hides the time that a sum takes.
//
// All coordinates are scaled by a power of two, the fraction bits of the sampling method, which changes no rounding.
#pragma once

#include "calculus.h"
#include "sampling_place.h"

#include <cmath>

namespace zori {
namespace geometry {

// What rules are written with: one number, or a vector of them.
inline double rootOf(double x) { return std::sqrt(x); }
template <int Bytes> Vec<double, Bytes> rootOf(Vec<double, Bytes> x) { return sqrt(x); }
template <class V> V allOf(double x)
{
  if constexpr (std::is_same_v<V, double>) return x;
  else return splat(x);
}

// ---- Four rows: the sums where the columns begin, and their steps ----

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
  // With one division instead of two: the quotients are wrong by less than 3 units of their last place, which hardly
  // ever changes what they are rounded to. Where it may, lanes of `doubt` become ones.
  template <class V> void pointQuickly(const V* sum, V& x, V& y, Vec<std::int32_t>& doubt) const
  {
    const V inverse = splat(1.0) / sum[2];
    x = sum[0] * inverse;
    y = sum[1] * inverse;
    // the 29 bits that rounding to single precision cuts off, as seen from their middle
    constexpr std::int32_t margin = 4 << 3;
    const auto bits = shiftLeft<3>(as<std::int32_t>(evenLanes(as<float>(x), as<float>(y))));
    const auto fromMiddle = bits + splat(-margin - 1);
    doubt = doubt | greater(fromMiddle, splat(INT32_MAX - 2 * margin - 1));
  }
  // Whether that holds of divisors between these: of a row without columns both are 0.
  static bool dividesQuickly(const Lanes<PerspectiveRule>& first, const Lanes<PerspectiveRule>& last)
  {
    constexpr double least = 1e-100;
    for (int r = 0; r < blockRows; ++r) {
      const double a = first.sum[2][r], b = last.sum[2][r];
      if (!(a > least && b > least) && !(a < -least && b < -least) && !(a == 0 && b == 0)) return false;
    }
    return true;
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
    return !anyBeyond(points, lane, count);
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

// ---- Four rows by as many columns as a vector has 32-bit lanes ----

inline namespace ZORI_WIDTH {

using Doubles = Vec<double>;
constexpr int placedColumns = Vec<std::int32_t>::size;

// A coordinate of such a block, column by column, in two halves: x[h][k] is, with vectors of 16 bytes, column k of rows
// 2h and 2h + 1; with vectors of 32 bytes column 4h + k of all rows. So the sums of a half are these:
constexpr int sumsOfHalf(int h) { return Doubles::size == 2 ? h : 0; }
using Columns = Doubles[2][4];

// The same row by row. Doubles take two vectors a row.
template <class T> struct Rows {
  Vec<T> row[blockRows];
};
struct RowsOfDoubles {
  Doubles low[blockRows], high[blockRows];
};

// The halves of a block whose rows 0 and 1, or 0 and 2 above 1 and 3, are in `even` and `odd`.
template <class T> Rows<T> joinedRows(const Vec<T> (&even)[2], const Vec<T> (&odd)[2])
{
  if constexpr (Doubles::size == 2) return {{even[0], odd[0], even[1], odd[1]}};
  else
    return {{lowHalves(even[0], even[1]), lowHalves(odd[0], odd[1]), highHalves(even[0], even[1]),
             highHalves(odd[0], odd[1])}};
}

// A half of a block on its way to rows of whole numbers below 2^31: rounded, halves to even.
inline void roundHalf(const Doubles (&x)[4], Vec<std::int32_t>& even, Vec<std::int32_t>& odd)
{
  const Doubles toWhole = splat(6755399441055744.0); // 1.5 * 2^52: the sum holds the whole number in its low half
  const auto rounded = [=](int k) { return as<float>(x[k] + toWhole); };
  const Vec<float> a = evenLanes(rounded(0), rounded(1)), b = evenLanes(rounded(2), rounded(3));
  even = as<std::int32_t>(evenLanes(a, b));
  odd = as<std::int32_t>(oddLanes(a, b));
}

inline Rows<float> singleRows(const Columns& x)
{
  Doubles line[4]; // pairs of a column's rows
  for (int k = 0; k < 4; ++k) line[k] = as<double>(toFloat(x[0][k], x[1][k]));
  const auto pairs = [=](int k) { return interleaveLowLocal(as<float>(line[k]), as<float>(line[k + 1])); };
  const auto others = [=](int k) { return interleaveHighLocal(as<float>(line[k]), as<float>(line[k + 1])); };
  const auto low = [](Vec<float> a, Vec<float> b) {
    return as<float>(interleaveLowLocal(as<double>(a), as<double>(b)));
  };
  const auto high = [](Vec<float> a, Vec<float> b) {
    return as<float>(interleaveHighLocal(as<double>(a), as<double>(b)));
  };
  return {{low(pairs(0), pairs(2)), high(pairs(0), pairs(2)), low(others(0), others(2)), high(others(0), others(2))}};
}

inline RowsOfDoubles doubleRows(const Columns& x)
{
  RowsOfDoubles rows;
  for (int h = 0; h < 2; ++h) {
    const Doubles even[2] = {interleaveLowLocal(x[h][0], x[h][1]), interleaveLowLocal(x[h][2], x[h][3])};
    const Doubles odd[2] = {interleaveHighLocal(x[h][0], x[h][1]), interleaveHighLocal(x[h][2], x[h][3])};
    if constexpr (Doubles::size == 2) {
      rows.low[2 * h] = even[0];
      rows.high[2 * h] = even[1];
      rows.low[2 * h + 1] = odd[0];
      rows.high[2 * h + 1] = odd[1];
    } else {
      const Rows<double> half = joinedRows<double>(even, odd);
      for (int r = 0; r < blockRows; ++r) (h == 0 ? rows.low : rows.high)[r] = half.row[r];
    }
  }
  return rows;
}

// How far coordinates lie behind whole numbers, in single precision.
inline Vec<float> fractions(Doubles low, Doubles high, Vec<std::int32_t> whole)
{
  return toFloat(low - toDoubleLow(whole), high - toDoubleHigh(whole));
}

// Places `columns` points in each of four rows; lanes go on to the columns behind. What is done quickly has to be done
// again where the answer is no.
template <Method M, bool Quickly, class Rule>
[[gnu::noinline]] bool placeColumns(const Rule& rule, Lanes<Rule>& lanes, const Source& source, int columns,
                                    Points& points)
{
  const UpperHalvesCleared atTheEnd;
  constexpr int sets = blockRows / Doubles::size;
  Vec<std::int32_t> doubt = zero<std::int32_t>();
  const Placer<M> placer(source);
  Doubles sum[sets][Rule::sums], step[sets][Rule::sums];
  for (int set = 0; set < sets; ++set)
    for (int i = 0; i < Rule::sums; ++i) {
      sum[set][i] = load<double>(lanes.sum[i] + set * Doubles::size);
      step[set][i] = load<double>(lanes.step[i] + set * Doubles::size);
    }

  constexpr bool isExact = M == Method::Fine || M == Method::Linear || M == Method::Inner;
  constexpr bool isClamped = !Rule::isSingle && (M == Method::Linear || (!Rule::keepsBetweenEnds && M != Method::Fine));
  const Doubles highX = splat(placer.highX()), highY = splat(placer.highY());
  for (int column = 0; column < columns; column += placedColumns) {
    Columns x, y;
    Vec<std::int32_t> evenX[2], oddX[2], evenY[2], oddY[2];
    for (int h = 0; h < 2; ++h) {
      for (int k = 0; k < 4; ++k) {
        auto& s = sum[sumsOfHalf(h)];
        if constexpr (Quickly) rule.pointQuickly(s, x[h][k], y[h][k], doubt);
        else rule.point(s, x[h][k], y[h][k]);
        for (int i = 0; i < Rule::sums; ++i) s[i] += step[sumsOfHalf(h)][i];
        if constexpr (isClamped) {
          x[h][k] = max(min(x[h][k], highX), zero<double>());
          y[h][k] = max(min(y[h][k], highY), zero<double>());
        }
      }
      if constexpr (!Rule::isSingle && !isExact) {
        roundHalf(x[h], evenX[h], oddX[h]);
        roundHalf(y[h], evenY[h], oddY[h]);
      }
    }

    if constexpr (Rule::isSingle) {
      const Rows<float> across = singleRows(x), down = singleRows(y);
      for (int r = 0; r < blockRows; ++r) placer.placeSingle(points, r, column, across.row[r], down.row[r]);
    } else if constexpr (isExact) {
      const RowsOfDoubles across = doubleRows(x), down = doubleRows(y);
      for (int r = 0; r < blockRows; ++r) {
        if constexpr (M == Method::Fine) {
          store(points.fine.x[r] + column, across.low[r]);
          store(points.fine.x[r] + column + placedColumns / 2, across.high[r]);
          store(points.fine.y[r] + column, down.low[r]);
          store(points.fine.y[r] + column + placedColumns / 2, down.high[r]);
        } else {
          auto ix = toIntTruncated(across.low[r], across.high[r]), iy = toIntTruncated(down.low[r], down.high[r]);
          if constexpr (M == Method::Linear) {
            ix = placer.wholeX(ix);
            iy = placer.wholeY(iy);
          }
          placer.place(points, r, column, ix, iy, fractions(across.low[r], across.high[r], ix),
                       fractions(down.low[r], down.high[r], iy));
        }
      }
    } else {
      const Rows<std::int32_t> across = joinedRows(evenX, oddX), down = joinedRows(evenY, oddY);
      for (int r = 0; r < blockRows; ++r)
        placer.template place<!Rule::keepsBetweenEnds>(points, r, column, across.row[r], down.row[r]);
    }
  }

  for (int set = 0; set < sets; ++set)
    for (int i = 0; i < Rule::sums; ++i) store(lanes.sum[i] + set * Doubles::size, sum[set][i]);
  return moveMask(doubt) == 0;
}

template <Method M, class Rule>
void placeBlock(const Rule& rule, Lanes<Rule>& lanes, const Source& source, int columns, Points& points)
{
  // With vectors of 16 bytes it does not pay. Only where coordinates are rounded to whole numbers: other methods keep
  // what is below the least normal number of single precision.
  if constexpr (Rule::isSingle && Doubles::size == 4 &&
                (M == Method::Nearest || M == Method::Inner8 || M == Method::Linear8 || M == Method::Cubic8)) {
    const Lanes<Rule> before = lanes;
    if (placeColumns<M, true>(rule, lanes, source, columns, points) && Rule::dividesQuickly(before, lanes)) return;
    lanes = before;
  }
  placeColumns<M, false>(rule, lanes, source, columns, points);
}

} // namespace ZORI_WIDTH
} // namespace geometry
} // namespace zori
