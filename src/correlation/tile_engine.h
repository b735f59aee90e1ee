// Correlation in tiles: what normalised correlation, square distance and convolution share.
//
// The output is cut into tiles that a transform of a fixed size yields at once; the spectrum of the template is formed
// once a channel. Tiles go in pairs, fixed by their numbers, and the pairs in turn to the threads of a team, so that no
// result depends on it. The last step turns sums of products into results.
//
// - Integer sources of NormLevel: the tile's mean, as an integer, is taken off all of its samples, those beyond the
//   image too. The template has no mean, so nothing changes but the rounding errors, which follow the size of samples.
//   A window whose V, which is exact, is 0 has the result 0; one with a small V is formed without the transform
//   (nearly_flat.h).
// - 32f sources: each tile of a pair is scaled by a power of two of its own to a largest sample of 1 to 2, so that
//   neither drowns in the other's rounding errors. A tile with a NaN or an infinity goes alone.
#pragma once

#include "frame/layout.h"
#include "tile_shape.h"

#include <algorithm>
#include <cstdint>

namespace zori {

// What becomes of the sum of products C of a window, with Q its sum of squares and V the squares of what differs from
// its mean, both raised to the floor; t is the template, t' the template without its mean.
enum class LastStep {
  Plain,    // C * factor
  Norm,     // C / (sqrt(Q) * max(floor, |t|))
  Level,    // sum of products with t' / sqrt(V * max(floor, |t'|^2))
  Distance, // ((-2 C + Q) + |t|^2) / (sqrt(Q) * max(floor, |t|))
};

// An image of a job: its first row, its size.
template <class T> struct JobImage {
  Rows<T> rows;
  std::int64_t width, height;
};

template <class T, class D> struct CorrelationJob {
  JobImage<const T> source, tpl;
  JobImage<D> result;
  int channels, processed; // in memory, and those that are worked on
  int originX, originY;    // the window of result (0, 0) begins here in the source
  bool isTurned;           // the template is turned by half a turn: a convolution
  LastStep last;
  float floor, factor;
  int scaleFactor;    // of integer results: times 2^-scaleFactor, rounded
  int orderX, orderY; // tiles take the memory of 2^orderX by 2^orderY values
  bool runsOver;      // one tile may cover all results, see TileAxis
};

// Arguments are checked. ZorErrOrder: an order above 30; ZorErrAlloc.
template <class T, class D> ZorStatus correlateInTiles(const CorrelationJob<T, D>& job);

} // namespace zori
