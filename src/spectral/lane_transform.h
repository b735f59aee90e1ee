// Transforms in lanes: see lane_plan.h.
#pragma once

#include "lane_plan.h"
#include "rowkernels/simd.h"

namespace zori {

// Forward transforms of plan.length() elements, without a divisor, of so many vectors of lanes each. The buffer has
// room for plan.workLength() elements and is aligned for its vectors; what stands behind the first length() is spoiled.
// The result of a lane is the same for all three, to the bit.
void transformOneLane(const LanePlan& plan, const void* block, float* buffer, int vectors);
void transformFourLanes(const LanePlan& plan, const void* block, float* buffer, int vectors);
inline namespace ZORI_WIDTH { // the lanes of a vector are part of what is agreed
void transformVectorLanes(const LanePlan& plan, const void* block, float* buffer, int vectors);
}

// V is float, F32x4 or Vec<float>.
template <class V> inline void transformLanes(const LanePlan& plan, const void* block, float* buffer, int vectors)
{
  if constexpr (std::is_same_v<V, float>) transformOneLane(plan, block, buffer, vectors);
  else if constexpr (std::is_same_v<V, F32x4>) transformFourLanes(plan, block, buffer, vectors);
  else transformVectorLanes(plan, block, buffer, vectors);
}

// What is left when the first level has been worked elsewhere. Not for plans of a convolution. `vectors` of Vec<float>
// lanes each.
inline namespace ZORI_WIDTH {
void transformBehindFirst(const LanePlan& plan, const void* block, float* buffer, int vectors);
}

// From the order in which the forward transform leaves values back to their natural one, by the inverse transform
// without a divisor. Not for plans of a convolution. `vectors` of Vec<float> lanes each.
inline namespace ZORI_WIDTH {
void transformVectorLanesBack(const LanePlan& plan, const void* block, float* buffer, int vectors);

// The first vectors of elements of `all` vectors.
void transformSomeVectorLanesBack(const LanePlan& plan, const void* block, float* buffer, int vectors, int all);

// Forward, each value times the factor that stands in its place, and back. Factors lie as the buffer does. For plans
// without a prime radix.
void multiplySpectraOfVectorLanes(const LanePlan& plan, const void* block, float* buffer, const float* factors,
                                  int vectors);
} // namespace ZORI_WIDTH

// The plan's levels alone on workLength() pairs: how a plan of a convolution forms its table.
void transformChirp(const LanePlan& plan, const void* block, float* pairs);

} // namespace zori
