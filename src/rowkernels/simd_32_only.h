// Operations on vectors of 32 bytes that the base level has nothing like: for kernels that have another form there.
#pragma once

#include "simd.h"

#if ZORI_VECTOR_BYTES == 32

namespace zori {
inline namespace ZORI_WIDTH {

// a0*b0 + a1*b1 of each pair of bytes, saturated.
inline Vec<int16_t, 32> mulAddPairs(Vec<uint8_t, 32> a, Vec<int8_t, 32> b) { return {_mm256_maddubs_epi16(a.v, b.v)}; }
// (a * b + 2^14) >> 15
inline Vec<int16_t, 32> mulRounded(Vec<int16_t, 32> a, Vec<int16_t, 32> b) { return {_mm256_mulhrs_epi16(a.v, b.v)}; }
// Samples of one or two bytes, as many as there are 32-bit lanes, widened.
template <class T> inline Vec<int32_t, 32> loadWidenedTo32(const void* p)
{
  if constexpr (std::is_same_v<T, uint8_t>) return {_mm256_cvtepu8_epi32(loadLow8<T>(p).v)};
  else if constexpr (std::is_same_v<T, uint16_t>) return {_mm256_cvtepu16_epi32(load16<T>(p).v)};
  else {
    static_assert(std::is_same_v<T, int16_t>);
    return {_mm256_cvtepi16_epi32(load16<T>(p).v)};
  }
}
// Lane i is lane index[i] of the whole vector.
inline Vec<float, 32> lanesAt(Vec<float, 32> a, Vec<int32_t, 32> index)
{
  return {_mm256_permutevar8x32_ps(a.v, index.v)};
}

} // namespace ZORI_WIDTH
} // namespace zori

#endif
