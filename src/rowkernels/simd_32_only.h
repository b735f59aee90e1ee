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
// 16 bytes, in the low half and in the high one.
template <class T> inline Vec<T, 32> loadInBothHalves(const void* p)
{
  static_assert(isInt<T>);
  return {_mm256_broadcastsi128_si256(load16<T>(p).v)};
}
// Eight bytes from each of four places behind p, side by side: loads and blends, which any port does.
template <class T> inline Vec<T, 32> gatherEightsOfFour(const void* p, const int32_t* at)
{
  const auto all = [=](int k) { return _mm256_set1_epi64x(get<long long>(static_cast<const char*>(p) + at[k])); };
  return as<T>(Vec<uint64_t, 32>{
    _mm256_blend_epi32(_mm256_blend_epi32(all(0), all(1), 0x0c), _mm256_blend_epi32(all(2), all(3), 0xc0), 0xf0)});
}
// Samples of one or two bytes, as many as there are 32-bit lanes, widened.
template <class T> inline Vec<int32_t, 32> loadWidenedTo32(const void* p)
{
  if constexpr (std::is_same_v<T, uint8_t>) return {_mm256_cvtepu8_epi32(loadLow8<T>(p).v)};
  else if constexpr (std::is_same_v<T, int8_t>) return {_mm256_cvtepi8_epi32(loadLow8<T>(p).v)};
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
