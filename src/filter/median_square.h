// Medians of square windows of 3 to 15 pixels a side, of all layouts: the ways into sorted_columns.h and
// median_tiles.h. One kernel a side and width of sample serves all layouts and signs; median_square.cpp holds them.
#pragma once

#include "frame/layout.h"
#include "frame/machine.h"

#include <cstdint>

namespace zori {
namespace median {

// src: from the first sample that a window covers.
template <int Side>
void squareOfBytes(Rows<const uint8_t> src, Rows<uint8_t> dst, ZorImgSize roi, int channels, bool keepFourth,
                   TeamRule team);
template <int Side>
void squareOfWords(Rows<const int16_t> src, Rows<int16_t> dst, ZorImgSize roi, int channels, bool keepFourth,
                   bool isUnsigned);

// Four-channel bytes alone are worth a team, with 5x5.
template <Layout L, int Side> inline TeamRule teamRule(ZorImgSize roi)
{
  const long long pixels = static_cast<long long>(roi.width) * roi.height;
  constexpr int picosecondsPerSample = 700;
  return TeamRule::forWork(pixels * channels<L>, picosecondsPerSample)
    .fromSize(L == AC4 || pixels >= 4096)
    .when(Side == 5 && channels<L> == 4);
}

// src: the region's own first pixel; the window's is at the anchor.
template <class T, Layout L, int Side>
inline void square(Rows<const T> src, ZorImgPoint anchor, Rows<T> dst, ZorImgSize roi)
{
  constexpr bool keepFourth = L == AC4;
  const T* const first = src[-std::ptrdiff_t{anchor.y}] - std::ptrdiff_t{anchor.x} * channels<L>;
  if constexpr (sizeof(T) == 1) {
    squareOfBytes<Side>({first, src.step}, dst, roi, channels<L>, keepFourth, teamRule<L, Side>(roi));
  } else {
    squareOfWords<Side>({reinterpret_cast<const int16_t*>(first), src.step},
                        {reinterpret_cast<int16_t*>(dst.first), dst.step}, roi, channels<L>, keepFourth,
                        std::is_unsigned_v<T>);
  }
}

} // namespace median
} // namespace zori
