// Tiles in strips of lanes: see tile_transform.h.
#include "tile_transform.h"

#include "spectral/lane_transform.h"

#include <algorithm>

namespace zori {
namespace {

constexpr int strip = TileTransform::strip, element = TileTransform::element;
constexpr int vectors = strip / Vec<float>::size;

// Lane k of x[i] is value i of row k, rows `pitch` apart.
inline void loadTurned(const float* from, std::ptrdiff_t pitch, Vec<float> (&x)[Vec<float>::size])
{
#if ZORI_VECTOR_BYTES == 32
  // halves are brought together as they are loaded, which costs no exchange between them
  for (int i = 0; i < 8; i += 4) {
    const auto row = [=](int k) {
      return joined(load<float, 16>(from + k * pitch + i), load<float, 16>(from + (k + 4) * pitch + i));
    };
    const auto a = row(0), b = row(1), c = row(2), d = row(3);
    const auto lowAb = as<double>(interleaveLowLocal(a, b)), lowCd = as<double>(interleaveLowLocal(c, d));
    const auto highAb = as<double>(interleaveHighLocal(a, b)), highCd = as<double>(interleaveHighLocal(c, d));
    x[i] = as<float>(interleaveLowLocal(lowAb, lowCd));
    x[i + 1] = as<float>(interleaveHighLocal(lowAb, lowCd));
    x[i + 2] = as<float>(interleaveLowLocal(highAb, highCd));
    x[i + 3] = as<float>(interleaveHighLocal(highAb, highCd));
  }
#else
  for (int k = 0; k < Vec<float>::size; ++k) x[k] = loadAligned<float>(from + k * pitch);
  transposeLanes(x);
#endif
}

// Squares of 16 elements turned over their diagonal: lane j of element i becomes lane i of element j.
inline void turnSquare(const float* from, float* to)
{
  constexpr int size = Vec<float>::size;
  for (int part = 0; part < element; part += strip)
    for (int i = 0; i < strip; i += size)
      for (int j = 0; j < strip; j += size) {
        Vec<float> x[size];
        loadTurned(from + i * element + part + j, element, x);
        for (int k = 0; k < size; ++k) storeAligned(to + (j + k) * element + part + i, x[k]);
      }
}

// Radices that were measured to be the fastest, of two kinds of processors. Where the last is 4 or 8, its values stay
// at hand while they are multiplied and taken back.
LanePlan planOf(int length, BlockPlan& plan)
{
  constexpr RadixList lists[] = {{64, 3, {4, 4, 4}},  {96, 3, {4, 4, 6}},  {128, 3, {4, 4, 8}}, {144, 3, {6, 6, 4}},
                                 {160, 3, {4, 5, 8}}, {192, 3, {6, 8, 4}}, {256, 3, {4, 8, 8}}};
  for (const RadixList& list : lists)
    if (list.length == length) return LanePlan(list, plan);
  return LanePlan(length, plan);
}

} // namespace

TileTransform::TileTransform(int width, int height, BlockPlan& plan)
  : width_(width), height_(height), strips_(width / strip), sets_(height / strip), columns_(planOf(height, plan)),
    rows_(width_ == height_ ? columns_ : planOf(width, plan))
{
  // half a kilobyte of floats between strips, lest they meet in few sets of the cache
  const long long floats = static_cast<long long>(sets_) * strip * element + strip * element;
  if (floats > PTRDIFF_MAX / 8) plan.add<float>(-1);
  stripFloats_ = static_cast<std::ptrdiff_t>(floats);
}

void TileTransform::fill(void* block) const
{
  columns_.fill(block);
  if (width_ != height_) rows_.fill(block);
}

void TileTransform::forwardColumns(const void* block, float* first) const
{
  transformVectorLanes(columns_, block, first, vectors);
}

void TileTransform::inverseColumns(const void* block, float* first, int columns) const
{
  constexpr int size = Vec<float>::size;
  transformSomeVectorLanesBack(columns_, block, first, std::min((columns + size - 1) / size, vectors), vectors);
}

void TileTransform::formSpectrum(const void* block, float* tile, float* spectrum) const
{
  const float by = 1.0f / static_cast<float>(width_) / static_cast<float>(height_);
  for (int set = 0; set < sets_; ++set, spectrum += setFloats()) {
    const std::ptrdiff_t rows = static_cast<std::ptrdiff_t>(set) * strip * element;
    for (int s = 0; s < strips_; ++s)
      turnSquare(stripOf(tile, s) + rows, spectrum + static_cast<std::ptrdiff_t>(s) * strip * element);
    transformVectorLanes(rows_, block, spectrum, vectors);
    for (std::ptrdiff_t x = 0; x < width_; ++x)
      for (int i = 0; i < strip; ++i) {
        spectrum[x * element + i] *= by;
        spectrum[x * element + strip + i] *= -by;
      }
  }
}

void TileTransform::correlateRows(const void* block, float* tile, const float* spectrum, float* buffer,
                                  int strips) const
{
  for (int set = 0; set < sets_; ++set, spectrum += setFloats()) {
    const std::ptrdiff_t rows = static_cast<std::ptrdiff_t>(set) * strip * element;
    for (int s = 0; s < strips_; ++s)
      turnSquare(stripOf(tile, s) + rows, buffer + static_cast<std::ptrdiff_t>(s) * strip * element);
    multiplySpectraOfVectorLanes(rows_, block, buffer, spectrum, vectors);
    for (int s = 0; s < strips; ++s)
      turnSquare(buffer + static_cast<std::ptrdiff_t>(s) * strip * element, stripOf(tile, s) + rows);
  }
}

} // namespace zori
