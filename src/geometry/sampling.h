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

#include <cstddef>
#include <cstdint>

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

constexpr int blockRows = 4, blockColumns = 128; // three blocks of points lie on the stack

// Points of a block as their method keeps them. Weights behind the last are read too, but not used: kernels take up to
// sixteen at once.
struct Points {
  static constexpr int room = blockColumns + 16;
  alignas(32) std::int32_t offset[blockRows][room];
  // Inner8, where it is asked for: which of four points are on or behind the last column (bits 0 to 7) or row (8 to
  // 15), two bits each
  std::uint16_t beyond[blockRows][blockColumns / 4];
  union {
    struct {
      alignas(32) std::int32_t x[blockRows][room], y[blockRows][room];
    } whole;
    struct {
      alignas(32) std::int16_t x[blockRows][room], y[blockRows][room];
    } twice;
    struct {
      alignas(32) float x[blockRows][room], y[blockRows][room];
    } single;
    struct {
      alignas(32) double x[blockRows][room], y[blockRows][room];
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

} // namespace geometry
} // namespace zori
