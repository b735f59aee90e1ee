// Taps of several outputs, which lie here and there in a row of floats, brought into lanes.
#pragma once

#include "rowkernels/simd_32_only.h"
#include "zori/types.h"

namespace zori {
namespace resize {
inline namespace ZORI_WIDTH {

// Four floats from each of two places, two from each of four: the first half of them from at[0] (and at[1]), the other
// from at[4] (and at[5]), if vectors have one.
inline Vec<float> foursAt(const float* src, const std::int32_t* at)
{
#if ZORI_VECTOR_BYTES == 32
  return joined(loadFour(src + at[0]), loadFour(src + at[4]));
#else
  return loadFour(src + at[0]);
#endif
}
inline Vec<float> pairsAt(const float* src, const std::int32_t* at)
{
#if ZORI_VECTOR_BYTES == 32
  return joined(loadHalves(src + at[0], src + at[1]), loadHalves(src + at[4], src + at[5]));
#else
  return loadHalves(src + at[0], src + at[1]);
#endif
}

// Taps 0 to N - 1, two, four or six, of as many outputs as a vector has floats: output k has its first at src + at[k].
// Numbers are moved and not looked at. Where all taps lie in one vector the whole of it is read.
template <int N> inline void loadTaps(const float* src, const std::int32_t* at, Vec<float> (&p)[N])
{
#if ZORI_VECTOR_BYTES == 32
  if (N >= 4 && at[7] - at[0] <= 8 - N) {
    const auto window = load<float>(src + at[0]);
    const auto place = load<Zor32s>(at) - splat<Zor32s>(at[0]);
    for (int t = 0; t < N; ++t) p[t] = lanesAt(window, place + splat<Zor32s>(t));
    return;
  }
#endif
  if constexpr (N % 4 == 2) {
    const float* const pair = src + N - 2;
    const Vec<float> low = pairsAt(pair, at), high = pairsAt(pair, at + 2);
    p[N - 2] = shuffleLocal<2, 0, 2, 0>(low, high);
    p[N - 1] = shuffleLocal<3, 1, 3, 1>(low, high);
  }
  if constexpr (N >= 4) {
    const Vec<float> a = foursAt(src, at), b = foursAt(src, at + 1), c = foursAt(src, at + 2), d = foursAt(src, at + 3);
    const Vec<float> ab = interleaveLowLocal(a, b), cd = interleaveLowLocal(c, d), abHigh = interleaveHighLocal(a, b),
                     cdHigh = interleaveHighLocal(c, d);
    p[0] = shuffleLocal<1, 0, 1, 0>(ab, cd);
    p[1] = shuffleLocal<3, 2, 3, 2>(ab, cd);
    p[2] = shuffleLocal<1, 0, 1, 0>(abHigh, cdHigh);
    p[3] = shuffleLocal<3, 2, 3, 2>(abHigh, cdHigh);
  }
}

} // namespace ZORI_WIDTH
} // namespace resize
} // namespace zori
