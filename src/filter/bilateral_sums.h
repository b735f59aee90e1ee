// The sums of a bilateral filter over a region.
#pragma once

#include "bilateral_record.h"
#include "frame/layout.h"

namespace zori {
namespace bilateral {

struct Call {
  Rows<const Zor8u> src;
  Rows<Zor8u> dst;
  ZorImgSize roi;
  Radii radii; // in pixels; multiples of the record's step, and not above its radii
  const Record& record;
};

// dst = sum(weight * sample) / sum(weight) over the places of each window. The rounding field must be at nearest.
//
// Both sums are in single precision: along each row of the window from left to right, and then these from top to
// bottom. So the result depends on no path, width of vectors or place in the region.
void filterRegion(const Call& call);

} // namespace bilateral
} // namespace zori
