// Rotation by right angles: pixels are copied one by one.
#pragma once

#include "warp.h"

namespace zori {
namespace geometry {

// Quarter turns (1 to 3), counter-clockwise as the picture is seen, then a shift by whole numbers.
ZorStatus turnRegion(const WarpCall& call, int quarters, double xShift, double yShift);

} // namespace geometry
} // namespace zori
