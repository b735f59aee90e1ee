// Placing: points of the source as the sampling methods keep them.
#pragma once

#include "rowkernels/simd.h"
#include "sampling.h"

namespace zori {
namespace geometry {
inline namespace ZORI_WIDTH {

// Keeps points of a method: some in a row at a time, as many as a vector has 32-bit lanes, whose coordinates lie in the
// image.
template <Method M> class Placer {
public:
  using Whole = Vec<std::int32_t>;
  using Single = Vec<float>;
  static constexpr int lanes = Whole::size;

  explicit Placer(const Source& s)
    : words_(fitsWords(s)),
      factors_(splat<std::int32_t>(static_cast<std::int32_t>(words_ ? s.step << 16 | s.pixelBytes : s.step))),
      pixelBytes_(splat<std::int32_t>(s.pixelBytes)), lastX_(splat<std::int32_t>(s.width - 1 - isBetween)),
      lastY_(splat<std::int32_t>(s.height - 1 - isBetween)), highX_(scaled(s.width - 1)), highY_(scaled(s.height - 1)),
      lastWords_(fourEach(s.width - 1, s.height - 1))
  {}

  // The largest coordinates, with fractionBits(M).
  double highX() const { return highX_; }
  double highY() const { return highY_; }

  // Coordinates with fractionBits(M). Inner8: tracks which lie beyond.
  template <bool tracks = false> void place(Points& points, int row, int column, Whole x, Whole y) const
  {
    if constexpr (M == Method::Nearest) {
      store(points.offset[row] + column, offset(x, y));
    } else if constexpr (M == Method::Cubic8) {
      store(points.offset[row] + column, offset(shiftRight<10>(x), shiftRight<10>(y)));
      store(points.whole.x[row] + column, x);
      store(points.whole.y[row] + column, y);
    } else if constexpr (M == Method::Inner8) {
      const Whole rest = splat<std::int32_t>(16383);
      const Words fraction = narrowSat<std::int16_t>(x & rest, y & rest), twice = fraction + fraction;
      storeLowHalf(points.twice.x[row] + column, twice);
      storeHighHalf(points.twice.y[row] + column, twice);
      const Whole upper = splat<std::int32_t>(static_cast<std::int32_t>(0xffff0000u));
      store(points.offset[row] + column, wordOffset(shiftRight<14>(x) | (shiftLeft<2>(y) & upper)));
      if constexpr (tracks) {
        const Words whole = narrowSatLocal<std::int16_t>(shiftRight<14>(x), shiftRight<14>(y));
        using Beyond = std::conditional_t<lanes == 4, std::uint16_t, std::uint32_t>; // of four, or of twice four
        put(points.beyond[row] + column / 4, static_cast<Beyond>(moveMask(equal(max(whole, lastWords_), whole))));
      }
    } else {
      static_assert(M == Method::Linear8);
      const Whole ix = min(shiftRight<14>(x), lastX_), iy = min(shiftRight<14>(y), lastY_);
      store(points.offset[row] + column, offset(ix, iy));
      store(points.whole.x[row] + column, weights(x - shiftLeft<14>(ix)));
      store(points.whole.y[row] + column, weights(y - shiftLeft<14>(iy)));
    }
  }
  // Linear: whole parts, brought to those that have a right and a lower neighbour by wholeX and wholeY, and fractions.
  void place(Points& points, int row, int column, Whole ix, Whole iy, Single fx, Single fy) const
  {
    store(points.offset[row] + column, offset(ix, iy));
    store(points.single.x[row] + column, fx);
    store(points.single.y[row] + column, fy);
  }
  Whole wholeX(Whole ix) const { return min(ix, lastX_); }
  Whole wholeY(Whole iy) const { return min(iy, lastY_); }

  // Single-precision coordinates times 2^fractionBits(M), in the image; inner methods: before the last column and row.
  void placeInside(Points& points, int row, int column, Single x, Single y) const
  {
    if constexpr (M == Method::Fine) {
      placeSingle(points, row, column, x, y);
    } else if constexpr (M == Method::Linear || M == Method::Inner) {
      Whole ix = toIntTruncated(x), iy = toIntTruncated(y);
      if constexpr (M == Method::Linear) {
        ix = wholeX(ix);
        iy = wholeY(iy);
      }
      place(points, row, column, ix, iy, x - toFloat(ix), y - toFloat(iy));
    } else {
      place(points, row, column, toInt(x), toInt(y));
    }
  }

  // Single-precision coordinates times 2^fractionBits(M), wherever they are: brought to the nearest inside.
  void placeSingle(Points& points, int row, int column, Single x, Single y) const
  {
    if constexpr (M == Method::Fine) {
      store(points.fine.x[row] + column, toDoubleLow(x));
      store(points.fine.x[row] + column + lanes / 2, toDoubleHigh(x));
      store(points.fine.y[row] + column, toDoubleLow(y));
      store(points.fine.y[row] + column + lanes / 2, toDoubleHigh(y));
    } else {
      // in this order a NaN becomes a bound
      x = max(min(x, splat(static_cast<float>(highX_))), zero<float>());
      y = max(min(y, splat(static_cast<float>(highY_))), zero<float>());
      if constexpr (M == Method::Linear) {
        const Whole ix = wholeX(toIntTruncated(x)), iy = wholeY(toIntTruncated(y));
        place(points, row, column, ix, iy, x - toFloat(ix), y - toFloat(iy));
      } else {
        place<true>(points, row, column, toInt(x), toInt(y));
      }
    }
  }

private:
  using Words = Vec<std::int16_t>;
  static constexpr int isBetween =
    M == Method::Linear8 || M == Method::Inner8 || M == Method::Linear || M == Method::Inner;

  static double scaled(int x) { return double(x) * (1 << fractionBits(M)); }
  static Words fourEach(int x, int y)
  {
    return narrowSatLocal<std::int16_t>(splat<std::int32_t>(x), splat<std::int32_t>(y));
  }
  // 16384 - f and f as words
  static Whole weights(Whole f) { return shiftLeft<16>(f) - f + splat<std::int32_t>(16384); }
  // of pairs of x and y
  Whole wordOffset(Whole xy) const { return mulAddPairs(as<std::int16_t>(xy), as<std::int16_t>(factors_)); }
  Whole offset(Whole x, Whole y) const
  {
    if (words_) return wordOffset(x | shiftLeft<16>(y));
    return mulLow(y, factors_) + mulLow(x, pixelBytes_);
  }

  bool words_;
  Whole factors_, pixelBytes_, lastX_, lastY_;
  double highX_, highY_;
  Words lastWords_;
};

// Whether any of the first tracked points of a row lies beyond: on or behind the last column or row.
inline bool anyBeyond(const Points& points, int row, int count)
{
  const std::uint16_t* const beyond = points.beyond[row];
  std::uint64_t any = 0;
  int i = 0;
  for (; i + 16 <= count; i += 16) any |= get<std::uint64_t>(beyond + i / 4);
  for (; i + 4 <= count; i += 4) any |= beyond[i / 4];
  if (i < count) any |= beyond[i / 4] & 0x0101u * (0xffu >> 2 * (i + 4 - count));
  return any != 0;
}

} // namespace ZORI_WIDTH
} // namespace geometry
} // namespace zori
