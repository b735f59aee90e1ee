// Fetching ahead: asking for cache lines well before their use.
//
// The processor alone does not keep up with two streams of different speed or direction. Short rows are left to it, so
// that a narrow region does not drag in what lies beside it.
#pragma once

#include "frame/layout.h"
#include "simd.h"

namespace zori {
inline namespace ZORI_WIDTH {

// How many bytes ahead of its use a row of `length` elements is fetched; 0 when it is not.
template <class T> inline std::ptrdiff_t fetchDistance(std::ptrdiff_t length)
{
  return length * static_cast<std::ptrdiff_t>(sizeof(T)) >= 4096 ? 2048 : 0;
}

// Asks for the lines of `bytes` bytes that stand `distance` bytes behind p; for none where that is 0.
[[gnu::always_inline]] inline void fetchAhead(const void* p, std::ptrdiff_t distance, std::ptrdiff_t bytes = 64)
{
  if (distance == 0) return;
  for (std::ptrdiff_t i = 0; i < bytes; i += 64) prefetch(static_cast<const char*>(p) + distance + i);
}

// How a region is written. A line that a loop is going to write is fetched well before, since the processor asks for
// what is read early enough by itself and waits for what is written. What lies in the second-level cache is left alone.
// Regions that no cache holds beside their sources go past it, whole aligned vectors at a time, unless they are written
// over a source, which brings the lines along.
struct Writing {
  std::ptrdiff_t ahead = 0; // bytes from what is written to what is fetched; 0 for nothing
  bool streams = false;
};
// For what is near already, and for short rows: nothing to ask for in the loops.
struct NearWriting {
  static constexpr std::ptrdiff_t ahead = 0;
  static constexpr bool streams = false;
};
template <class D, class... S>
inline Writing writingOf(Rows<D> dst, std::ptrdiff_t length, int rows, Rows<const S>... src)
{
  constexpr long long farFrom = 128 << 10, streamedFrom = 24 << 20;
  const auto row = length * static_cast<std::ptrdiff_t>(sizeof(D));
  const long long region = 1LL * row * rows;
  const bool overSource = ((static_cast<const void*>(src.first) == dst.first) || ...);
  if (region < farFrom || row < 1024) return {};
  if (region >= streamedFrom && !overSource) return {0, true};
  return {row >= 4096 ? 2048 : dst.step, false}; // from a shorter row the one below
}

} // namespace ZORI_WIDTH
} // namespace zori
