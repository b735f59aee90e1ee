// Fills of one row: 96 bytes of a pattern a round, and the checking forms by type.
#include "set.h"

#include "drivers.h"
#include "frame/checks.h"

#include <cstring>

using namespace zori;

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

void ownsSet_8u(const PixelPattern& pattern, Zor8u* pDst, std::ptrdiff_t bytes, long long regionBytes)
{
  if (pattern.isUniform() && regionBytes <= librarySetLimit)
    std::memset(pDst, firstLane(pattern.at(0)), static_cast<std::size_t>(bytes));
  else fill(pattern, pDst, bytes);
}

template <class T> static void setRow(const T& value, T* pDst, std::ptrdiff_t length)
{
  const std::ptrdiff_t bytes = length * static_cast<std::ptrdiff_t>(sizeof(T));
  ownsSet_8u(PixelPattern::of(value), reinterpret_cast<Zor8u*>(pDst), bytes, bytes);
}

void ownsSet_32s(Zor32s value, Zor32s* pDst, std::ptrdiff_t length) { setRow(value, pDst, length); }
void ownsSet_64s(Zor64s value, Zor64s* pDst, std::ptrdiff_t length) { setRow(value, pDst, length); }
void ownsZero_8u(Zor8u* pDst, std::ptrdiff_t bytes) { setRow(Zor8u(0), pDst, bytes); }

template <class T> static ZorStatus checkedSet(const T& value, T* pDst, int length)
{
  if (auto s = firstFailure(nonNull(pDst), positiveSize(length)); s != ZorOk) return s;
  setRow(value, pDst, length);
  return ZorOk;
}

// clang-format off
#define STAMP(type)                                                                                                   \
  ZorStatus zorsSet_##type(Zor##type value, Zor##type* pDst, int length) { return checkedSet(value, pDst, length); } \
  ZorStatus zorsZero_##type(Zor##type* pDst, int length) { return checkedSet(Zor##type{}, pDst, length); }
STAMP(8u) STAMP(16s) STAMP(32s) STAMP(32f) STAMP(64s) STAMP(64f) STAMP(32fc) STAMP(64fc)
#undef STAMP
