// Copies of rows. What moves is bytes: no value is looked at, and one kernel serves every type.
#pragma once

#include "frame/layout.h"
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

// All rows of a region.
void copyRows(Rows<const Zor8u> src, Rows<Zor8u> dst, std::ptrdiff_t bytes, int rows);

// Below Capacity bytes, 8 to 64, without a call: the two ends overlap.
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
  static_assert(Capacity <= 64);
  struct Sixteen {
    std::uint64_t half[2];
  };
  struct ThirtyTwo {
    Sixteen half[2];
  };
  if (Capacity > 32 && bytes >= 32) copyEnds<std::conditional_t<(Capacity > 32), ThirtyTwo, char>>(to, from, bytes);
  else if (Capacity > 16 && bytes >= 16) copyEnds<std::conditional_t<(Capacity > 16), Sixteen, char>>(to, from, bytes);
  else if (Capacity > 8 && bytes >= 8)
    copyEnds<std::conditional_t<(Capacity > 8), std::uint64_t, char>>(to, from, bytes);
  else if (bytes >= 4) copyEnds<std::uint32_t>(to, from, bytes);
  else if (bytes >= 2) copyEnds<std::uint16_t>(to, from, bytes);
  else if (bytes == 1) *static_cast<char*>(to) = *static_cast<const char*>(from);
}

// Some 100 bytes at most, without a call.
inline void copyShort(void* to, const void* from, std::size_t bytes)
{
  struct Sixteen {
    std::uint64_t half[2];
  };
  if (bytes < sizeof(Sixteen)) return copyBelow<sizeof(Sixteen)>(to, from, bytes);
  for (std::size_t i = sizeof(Sixteen); i < bytes; i += sizeof(Sixteen))
    std::memcpy(static_cast<char*>(to) + i - sizeof(Sixteen), static_cast<const char*>(from) + i - sizeof(Sixteen),
                sizeof(Sixteen));
  copyEnds<Sixteen>(static_cast<char*>(to) + bytes - sizeof(Sixteen),
                    static_cast<const char*>(from) + bytes - sizeof(Sixteen), sizeof(Sixteen));
}

} // namespace zori
