// The choice of a tile for a correlation: of all shapes that need no more memory than the common one of a power of two
// either way, the one that takes the least work. The common tile takes the memory of its values, of its results and of
// a transform by columns; a pair of tiles may take twice that.
#pragma once

#include <cstdint>

namespace zori {

struct TileShape {
  int width, height;              // values of the transform, multiples of 16
  int resultsAcross, resultsDown; // that it yields
};

// What a correlation asks of its tiles along one axis.
struct TileAxis {
  std::int64_t samples, results; // of the template; of all tiles together
  int order;                     // of the common tile, 2^order values
  // One tile may hold all results: windows run over its end and go on at its begin, where zeros must stand.
  bool runsOver;
};

// The shape depends on sizes alone. Orders up to 30.
TileShape chooseTileShape(const TileAxis& x, const TileAxis& y);

// Order of a tile for a template of so many samples and so many results: the least with 2^order >= 2 * samples, one
// more if it is below `limit` and 2^order below the results.
int tileOrder(std::int64_t samples, std::int64_t results, int limit);
// The least order from 1 on with 2^order >= samples.
int orderCovering(std::int64_t samples);

} // namespace zori
