// What a resize decides before it touches a pixel: extents, steps, positions, and for every output column and row the
// first source pixel and the factors of its taps. Nothing here knows images; all of it can be tested by itself.
//
// An axis is planned alone. Positions are counted from the region's first pixel and are running double sums; a position
// outside the image counts as the image's nearest pixel, a position that is no number as its first. Arithmetic is in
// double and single precision under round to nearest, which the caller sees to.
#pragma once

#include "frame/arena.h"
#include "zori/types.h"

namespace zori {
namespace resize {

// The taps of an output along one axis, and what they are weighed with.
//
//   Nearest        1 tap
//   LinearInteger  2 taps, one pair of 16-bit weights (16384 - f, f)
//   LinearFloat    2 taps, f
//   Newton         4 taps: u, v and t + 1 of the polynomial in Newton's form
//   Weights4       4 taps, four weights
//   Weights6       6 taps, six weights
enum class Taps { Nearest, LinearInteger, LinearFloat, Newton, Weights4, Weights6 };

constexpr int tapsOf(Taps t)
{
  return t == Taps::Nearest ? 1 : t == Taps::LinearInteger || t == Taps::LinearFloat ? 2 : t == Taps::Weights6 ? 6 : 4;
}
// Factors of a position, each four bytes.
constexpr int factorsOf(Taps t)
{
  return t == Taps::Nearest                                   ? 0
         : t == Taps::LinearInteger || t == Taps::LinearFloat ? 1
         : t == Taps::Newton                                  ? 3
                                                              : tapsOf(t);
}

// ---- Extents and steps ----

// One axis of a call: the image, the region in it, the pixels of the destination.
struct Axis {
  int image, first, length, limit;
  int count = 0;              // outputs
  double start = 0, step = 0; // positions of the outputs

  // The part of the region that lies in the image; the region must start in it.
  void cut()
  {
    if (length > image - first) length = image - first;
  }
};

// Outputs of a resize by a factor; ZorErrSubsample when there is less than half of one.
ZorStatus countByFactor(Axis& axis, double factor);
// Outputs of a resize by source pixels an output.
void countByStep(Axis& axis, bool isNearest);

// Source pixels from one output to the next.
double stepOfFactor(const Axis& axis, double factor, bool isNearest);

// Positions from step and shift: centres of pixels for nearest, corners for all others.
inline void place(Axis& axis, bool isNearest, double step, double shift)
{
  axis.step = step;
  axis.start = isNearest ? 0.5 * step + shift : shift;
}

// The interpolation that an image of this size gets.
int interpolationFor(int interpolation, int width, int height);

// ---- Tables ----

// For each output the pixel of its first tap, counted in the image, and its factors: plane p of output i stands at
// factors[p * pitch + i]. Behind the last output its entries are repeated to the end of the pitch.
struct AxisTable {
  Taps taps;
  int count = 0;
  int image = 0; // pixels of the image; taps beyond it take `outside`
  enum class Outside { Never, Zero, Nearest } outside = Outside::Never;
  bool hasNegative = false; // linear fractions below 0
  std::ptrdiff_t pitch = 0;
  std::int32_t* at = nullptr;
  char* factors = nullptr;
  Zor8u* shuffles = nullptr; // room for plans of windows, or null

  const float* plane(int p) const { return reinterpret_cast<const float*>(factors) + p * pitch; }
  const Zor16s* pairs() const { return reinterpret_cast<const Zor16s*>(factors); }
  int fraction(int i) const { return pairs()[2 * static_cast<std::ptrdiff_t>(i) + 1]; }
};

// Outputs whose entries are worked on together: tables are padded to a multiple.
inline constexpr int tableUnit = 32;
constexpr long long tablePitch(int count) { return (count + (tableUnit - 1LL)) / tableUnit * tableUnit; }

// A table's place in a block of working memory.
struct TablePart {
  static constexpr int alignment = 32;
  BlockPart<std::int32_t> at;
  BlockPart<float> factors;
  BlockPart<Zor8u> shuffles;

  // add(count, T()) gives the next part of the block. shuffleBytes: room for an output.
  template <class Add> static TablePart of(Taps taps, int count, int shuffleBytes, Add add)
  {
    const long long pitch = tablePitch(count);
    TablePart part;
    part.at = add(pitch, std::int32_t());
    part.factors = add(pitch * factorsOf(taps), float());
    part.shuffles = add(pitch * shuffleBytes, Zor8u());
    return part;
  }
  AxisTable table(void* block, Taps taps, int count) const
  {
    AxisTable t;
    t.taps = taps;
    t.count = count;
    t.pitch = static_cast<std::ptrdiff_t>(tablePitch(count));
    t.at = at.in(block);
    t.factors = reinterpret_cast<char*>(factors.in(block));
    if (shuffles.count > 0) t.shuffles = shuffles.in(block);
    return t;
  }
};

// Corners on corners: fills the tables of axes whose count, start and step are set, of the same taps. Those of Weights6
// are Lanczos with three lobes. All other taps lie in the image. What those of Lanczos left and right of it weigh is
// added to its first and last column; those above and below take the nearest row.
void fillTables(const Axis& x, AxisTable& columns, const Axis& y, AxisTable& rows);

// Pixels as squares: output i stands for destination pixel firstOutput + i of a map x -> x * factor + shift. Weights4
// are a cubic that mixes the interpolating polynomial and the B-spline.
struct SquareAxis {
  int image, firstOutput, count;
  double factor, shift;
  float spline = 0; // share of the B-spline

  double positionOf(int i) const; // of the destination centre, in the source
};
void fillTable(const SquareAxis& axis, AxisTable& table);

// ---- Windows ----
//
// For kernels that shuffle: a few bytes of the row that hold all taps of a group of outputs, and where in them these
// stand. The windows lie in the image. Each function makes a table one of windows, or returns false and changes nothing
// when some group does not fit.

// Room of columns for that, in bytes an output.
constexpr int shuffleRoom(Taps taps, int channels, int pixelBytes)
{
  return taps == Taps::Nearest ? pixelBytes : tapsOf(taps) > 2 ? 0 : channels == 1 ? 4 : 16;
}

// Nearest, pixels of 1 to 4 bytes: 16 bytes for each 16 bytes of the destination, two by two; the last two end with the
// row. at[g] is the byte where window g starts, shuffles + 16 * g tells which of its bytes go where.
bool makeCopyWindows(AxisTable& columns, int pixelBytes);

// Linear 8u of 1, 3 or 4 samples a pixel: 16 bytes for each eight outputs of one sample, or two of several. at[g] is
// the byte where window g starts. For each two windows shuffles has 32 bytes that bring a0 b0 a1 b1... together, then
// twice the fractions of all samples in 16 bits, 32 bytes too.
constexpr int byteWindowOutputs(int channels) { return channels == 1 ? 8 : 2; }
bool makeByteWindows(AxisTable& columns, int channels);

// Linear of single samples: 16 bytes for each four outputs. at[4 * g] is the sample where window g starts, and
// shuffles + 16 * g brings a0 b0 a1 b1... together, as 16-bit lanes. Of each four windows, with their weights, the
// second and the third change places: what two vectors make of them is then in order when it is narrowed.
bool makePairWindows(AxisTable& columns, int sampleBytes);

// Linear 32f of single samples: eight samples for each eight outputs. at[8 * g] is where window g starts, and shuffles
// has the lane of each output's first tap in 32 bits.
bool makeFloatWindows(AxisTable& columns);

// ---- Weights ----

// Six weights, normalised, of a position between taps 2 and 3.
void lanczosWeights(float fraction, float (&weights)[6]);
void cubicWeights(double fraction, float spline, float (&weights)[4]);

} // namespace resize
} // namespace zori
