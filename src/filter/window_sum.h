// The masks from which window sums are formed in another way.
#pragma once

#include "rowkernels/simd.h"

namespace zori {
namespace window {

// Masks up to which sums fit 16 bits, or are exact in single precision.
template <class T> inline constexpr int largestSample = sizeof(T) == 1 ? 255 : isSigned<T> ? 32768 : 65535;
template <class T> inline constexpr int largestExactMask = (1 << 24) / largestSample<T>;
inline constexpr int largestShortMask = 65535 / 255;

} // namespace window
} // namespace zori
