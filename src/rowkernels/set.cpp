// Fills of rows: 96 bytes of a pattern a round.
#include "set.h"

#include "drivers.h"

#include <cstring>

namespace zori {

// The first and the last vector go to where the row starts and ends, those between to aligned addresses.
static void fill(const PixelPattern& pattern, Zor8u* dst, std::ptrdiff_t bytes)
{
  if (bytes < 16) {
    storePart(dst, pattern.at(0), static_cast<std::size_t>(bytes));
    return;
  }
  store(dst, pattern.at(0));
  std::ptrdiff_t i = elementsToAlignment(dst);
  Vec<Zor8u> a = pattern.at(i), b = pattern.at(i + 16), c = pattern.at(i + 32);
  const std::ptrdiff_t distance = fetchDistance<Zor8u>(bytes);
  for (; i + 96 <= bytes; i += 96) {
    prefetch(dst + i + distance);
    prefetch(dst + i + distance + 48);
    storeAligned(dst + i, a);
    storeAligned(dst + i + 16, b);
    storeAligned(dst + i + 32, c);
    storeAligned(dst + i + 48, a);
    storeAligned(dst + i + 64, b);
    storeAligned(dst + i + 80, c);
  }
  for (; i + 16 <= bytes; i += 16) {
    storeAligned(dst + i, a);
    const Vec<Zor8u> first = a;
    a = b, b = c, c = first;
  }
  store(dst + bytes - 16, pattern.at((bytes - 16) % PixelPattern::period));
}

// In the cache the C library's fill of one byte is the fastest (it may use string instructions). From memory those are
// slower than stores that are fetched ahead.
static constexpr long long librarySetLimit = 3 << 19;

void fillRow(const PixelPattern& pattern, Zor8u* pDst, std::ptrdiff_t bytes, long long regionBytes)
{
  if (pattern.isUniform() && regionBytes <= librarySetLimit)
    std::memset(pDst, firstLane(pattern.at(0)), static_cast<std::size_t>(bytes));
  else fill(pattern, pDst, bytes);
}

void fillRows(const PixelPattern& pattern, Rows<Zor8u> dst, std::ptrdiff_t bytes, int rows)
{
  if (ShortFill::holds(bytes)) {
    const ShortFill fill(pattern, bytes);
    for (int y = 0; y < rows; ++y) fill(dst[y]);
    return;
  }
  const long long regionBytes = 1LL * bytes * rows;
  for (int y = 0; y < rows; ++y) fillRow(pattern, dst[y], bytes, regionBytes);
}

} // namespace zori
