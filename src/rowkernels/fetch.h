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

// The same of rows of a region, of which short ones are fetched some rows before they come; 0 where they lie in the
// cache.
template <class T> inline std::ptrdiff_t fetchDistance(Rows<T> image, std::ptrdiff_t length, int rows)
{
  constexpr long long beyondTheCache = 1 << 20, along = 2048;
  const long long bytes = length * static_cast<long long>(sizeof(T));
  if (bytes * rows < beyondTheCache) return 0;
  return bytes >= 2 * along ? along : static_cast<std::ptrdiff_t>(image.step * (1 + (along - 1) / bytes));
}

// Asks for the lines of `bytes` bytes that stand `distance` bytes behind p; for none where that is 0.
[[gnu::always_inline]] inline void fetchAhead(const void* p, std::ptrdiff_t distance, std::ptrdiff_t bytes = 64)
{
  if (distance == 0) return;
  for (std::ptrdiff_t i = 0; i < bytes; i += 64) prefetch(static_cast<const char*>(p) + distance + i);
}

} // namespace ZORI_WIDTH
} // namespace zori
