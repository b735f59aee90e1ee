// The sampling stage that warps and remap share: points of a source image, and row kernels that read it there.
//
// Coordinates are placed by blocks of 4 rows and 256 columns: a method (nearest, linear, cubic, by type of sample)
// keeps of each point what its kernel wants, and the kernel goes along a row of such points.
//
//   Nearest   whole coordinates, halves to even; kept as the pixel's offset
//   Linear8   fractions in 1/16384, halves to even; offset of the upper left of 2 by 2 pixels, weights
//   Inner8    the same for points before the last column and row: twice the fractions, as words
//   Linear    fractions in single precision; offset and fractions
//   Inner     the same for points before the last column and row
//   Cubic8    fractions in 1/1024; the coordinates themselves, in 1/1024, and the offset of the pixel before them
//   Fine      coordinates in double precision: cubic of 16u and 32f, and whatever the others cannot take
//
// Placed points lie inside the image: kernels test nothing but the cubic taps. The fine form of every method takes any
// coordinates, brings them to the nearest inside, and skips points with a NaN; it gives the same values.
#pragma once

#include "frame/layout.h"
#include "rowkernels/simd.h"

namespace zori {
namespace geometry {

enum class SampleType { U8, F32, U16 };
enum class Method { Nearest, Linear8, Inner8, Linear, Inner, Cubic8, Fine };

// Bits of a placed coordinate behind the binary point.
constexpr int fractionBits(Method m)
{
  return m == Method::Linear8 || m == Method::Inner8 ? 14 : m == Method::Cubic8 ? 10 : 0;
}

// What is sampled; all planes have the same shape.
struct Source {
  int width, height;
  std::ptrdiff_t step; // bytes
  int pixelBytes;

  long long bytes() const { return 1LL * (height - 1) * step + 1LL * width * pixelBytes; }
};

constexpr int blockRows = 4, blockColumns = 256;

// Points of a block as their method keeps them. Weights behind the last are read too, but not used: kernels take eight
// at once.
struct Points {
  static constexpr int room = blockColumns + 8;
  alignas(16) std::int32_t offset[blockRows][room];
  // Inner8, where it is asked for: which of four points are on or behind the last column (bits 0 to 7) or row (8 to
  // 15), two bits each
  std::uint16_t beyond[blockRows][blockColumns / 4];
  union {
    struct {
      alignas(16) std::int32_t x[blockRows][room], y[blockRows][room];
    } whole;
    struct {
      alignas(16) std::int16_t x[blockRows][room], y[blockRows][room];
    } twice;
    struct {
      alignas(16) float x[blockRows][room], y[blockRows][room];
    } single;
    struct {
      alignas(16) double x[blockRows][room], y[blockRows][room];
    } fine;
  };
};

// Points of a row from some column on.
struct PointRow {
  const Points* points;
  int row, first;

  const std::int32_t* offset() const { return points->offset[row] + first; }
  const std::int32_t* wholeX() const { return points->whole.x[row] + first; }
  const std::int32_t* wholeY() const { return points->whole.y[row] + first; }
  const std::int16_t* twiceX() const { return points->twice.x[row] + first; }
  const std::int16_t* twiceY() const { return points->twice.y[row] + first; }
  const float* singleX() const { return points->single.x[row] + first; }
  const float* singleY() const { return points->single.y[row] + first; }
  const double* fineX() const { return points->fine.x[row] + first; }
  const double* fineY() const { return points->fine.y[row] + first; }
};

// dst[i] = the plane at point i, for `count` points.
using SampleRow = void (*)(const Source& source, const Zor8u* plane, PointRow points, int count, Zor8u* dst);

struct Sampler {
  Method method; // of `placed`
  SampleRow placed, fine;
  // For Inner8 and Inner, where there are such. Cubic8: for points on a line, which have all their taps or lie at the
  // line's ends.
  SampleRow inner;
};

// The kernels for an accepted selector, with the small images' rule applied: one column or row selects nearest, fewer
// than four turn cubic into linear. Planes are C1.
Sampler samplerFor(SampleType type, Layout layout, int interpolation, ZorImgSize srcSize);

// Whether placed points of this source fit their 32 bits.
bool isPlaceable(const Source& source, Method method);

// Whether coordinates, step and size of a pixel fit words.
inline bool fitsWords(const Source& s) { return s.width <= 32768 && s.height <= 32768 && s.step <= 32767; }

// ---- Placing ----

// Keeps points of a method: four in a row at a time, whose coordinates lie in the image.
template <Method M> class Placer {
public:
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
  template <bool tracks = false> void place(Points& points, int row, int column, I32x4 x, I32x4 y) const
  {
    if constexpr (M == Method::Nearest) {
      store(points.offset[row] + column, offset(x, y));
    } else if constexpr (M == Method::Cubic8) {
      store(points.offset[row] + column, offset(shiftRight<10>(x), shiftRight<10>(y)));
      store(points.whole.x[row] + column, x);
      store(points.whole.y[row] + column, y);
    } else if constexpr (M == Method::Inner8) {
      const I32x4 rest = splat<std::int32_t>(16383);
      const Words fraction = narrowSat<std::int16_t>(x & rest, y & rest), twice = fraction + fraction;
      storeLow8(points.twice.x[row] + column, twice);
      storeLow8(points.twice.y[row] + column, bytesDown<8>(twice));
      const I32x4 upper = splat<std::int32_t>(static_cast<std::int32_t>(0xffff0000u));
      store(points.offset[row] + column, wordOffset(shiftRight<14>(x) | (shiftLeft<2>(y) & upper)));
      if constexpr (tracks) {
        const Words whole = narrowSat<std::int16_t>(shiftRight<14>(x), shiftRight<14>(y));
        points.beyond[row][column / 4] = static_cast<std::uint16_t>(moveMask(equal(max(whole, lastWords_), whole)));
      }
    } else {
      static_assert(M == Method::Linear8);
      const I32x4 ix = min(shiftRight<14>(x), lastX_), iy = min(shiftRight<14>(y), lastY_);
      store(points.offset[row] + column, offset(ix, iy));
      store(points.whole.x[row] + column, weights(x - shiftLeft<14>(ix)));
      store(points.whole.y[row] + column, weights(y - shiftLeft<14>(iy)));
    }
  }
  // Linear: whole parts, brought to those that have a right and a lower neighbour by wholeX and wholeY, and fractions.
  void place(Points& points, int row, int column, I32x4 ix, I32x4 iy, F32x4 fx, F32x4 fy) const
  {
    store(points.offset[row] + column, offset(ix, iy));
    store(points.single.x[row] + column, fx);
    store(points.single.y[row] + column, fy);
  }
  I32x4 wholeX(I32x4 ix) const { return min(ix, lastX_); }
  I32x4 wholeY(I32x4 iy) const { return min(iy, lastY_); }

  // Single-precision coordinates times 2^fractionBits(M), in the image; inner methods: before the last column and row.
  void placeInside(Points& points, int row, int column, F32x4 x, F32x4 y) const
  {
    if constexpr (M == Method::Fine) {
      placeSingle(points, row, column, x, y);
    } else if constexpr (M == Method::Linear || M == Method::Inner) {
      I32x4 ix = toIntTruncated(x), iy = toIntTruncated(y);
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
  void placeSingle(Points& points, int row, int column, F32x4 x, F32x4 y) const
  {
    if constexpr (M == Method::Fine) {
      store(points.fine.x[row] + column, toDoubleLow(x));
      store(points.fine.x[row] + column + 2, toDoubleHigh(x));
      store(points.fine.y[row] + column, toDoubleLow(y));
      store(points.fine.y[row] + column + 2, toDoubleHigh(y));
    } else {
      // in this order a NaN becomes a bound
      x = max(min(x, splat(static_cast<float>(highX_))), zero<float>());
      y = max(min(y, splat(static_cast<float>(highY_))), zero<float>());
      if constexpr (M == Method::Linear) {
        const I32x4 ix = wholeX(toIntTruncated(x)), iy = wholeY(toIntTruncated(y));
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
    return narrowSat<std::int16_t>(splat<std::int32_t>(x), splat<std::int32_t>(y));
  }
  // 16384 - f and f as words
  static I32x4 weights(I32x4 f) { return shiftLeft<16>(f) - f + splat<std::int32_t>(16384); }
  // of pairs of x and y
  I32x4 wordOffset(I32x4 xy) const { return mulAddPairs(as<std::int16_t>(xy), as<std::int16_t>(factors_)); }
  I32x4 offset(I32x4 x, I32x4 y) const
  {
    if (words_) return wordOffset(x | shiftLeft<16>(y));
    return mulLow(y, factors_) + mulLow(x, pixelBytes_);
  }

  bool words_;
  I32x4 factors_, pixelBytes_, lastX_, lastY_;
  double highX_, highY_;
  Words lastWords_;
};

// Whether any of the tracked points from `first` on lies beyond: on or behind the last column or row.
inline bool anyBeyond(const Points& points, int row, int first, int count)
{
  unsigned any = 0;
  for (int i = first & ~3; i < first + count; i += 4) {
    unsigned bits = points.beyond[row][i / 4];
    if (i < first) bits &= 0x0101u * (0xffu << 2 * (first - i) & 0xff);
    if (i + 4 > first + count) bits &= 0x0101u * (0xffu >> 2 * (i + 4 - first - count));
    any |= bits;
  }
  return any != 0;
}

} // namespace geometry
} // namespace zori
