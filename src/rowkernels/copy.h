// Copies of one row. What moves is bytes: no value is looked at, and one kernel serves every type.
#pragma once

#include "zori/types.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace zori {

// Forward from the first byte to the last, each read and written once. A streaming copy writes past the cache, for data
// that is not read again soon. By itself it is slower at every size (see docs/performance.md).
void copyForward(const Zor8u* pSrc, Zor8u* pDst, std::ptrdiff_t bytes, bool streaming);

// A row of a region of regionBytes in all: picks what is fastest at that size. The row may be its own source.
void copyRow(const Zor8u* pSrc, Zor8u* pDst, std::ptrdiff_t bytes, long long regionBytes);

// Below Capacity bytes, 16 or 32, without a call: the two ends overlap.
template <class Unit> inline void copyEnds(void* to, const void* from, std::size_t bytes)
{
  Unit first, last;
  const std::size_t behind = bytes - sizeof(Unit);
  std::memcpy(&first, from, sizeof first);
  std::memcpy(&last, static_cast<const char*>(from) + behind, sizeof last);
  std::memcpy(to, &first, sizeof first);
  std::memcpy(static_cast<char*>(to) + behind, &last, sizeof last);
}
template <std::size_t Capacity> inline void copyBelow(void* to, const void* from, std::size_t bytes)
{
  static_assert(Capacity == 16 || Capacity == 32);
  struct Sixteen {
    std::uint64_t half[2];
  };
  if (Capacity > 16 && bytes >= 16) copyEnds<std::conditional_t<(Capacity > 16), Sixteen, char>>(to, from, bytes);
  else if (bytes >= 8) copyEnds<std::uint64_t>(to, from, bytes);
  else if (bytes >= 4) copyEnds<std::uint32_t>(to, from, bytes);
  else if (bytes >= 2) copyEnds<std::uint16_t>(to, from, bytes);
  else if (bytes == 1) *static_cast<char*>(to) = *static_cast<const char*>(from);
}

} // namespace zori
