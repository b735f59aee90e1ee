// Copies of rows: the forward copy of 64 bytes a round, and the choice by size.
#include "copy.h"

#include "drivers.h"

#include <cstring>

namespace zori {
namespace {

template <class Unit> inline void copyUnit(const Zor8u*& src, Zor8u*& dst)
{
  put(dst, get<Unit>(src));
  src += sizeof(Unit);
  dst += sizeof(Unit);
}

// Below 16 bytes, in units of 1, 2, 4 and 8: the small ones first on the way to an aligned address, last behind it.
inline void copyHead(const Zor8u*& src, Zor8u*& dst, std::ptrdiff_t bytes)
{
  if (bytes & 1) copyUnit<std::uint8_t>(src, dst);
  if (bytes & 2) copyUnit<std::uint16_t>(src, dst);
  if (bytes & 4) copyUnit<std::uint32_t>(src, dst);
  if (bytes & 8) copyUnit<std::uint64_t>(src, dst);
}
inline void copyTail(const Zor8u* src, Zor8u* dst, std::ptrdiff_t bytes)
{
  if (bytes & 8) copyUnit<std::uint64_t>(src, dst);
  if (bytes & 4) copyUnit<std::uint32_t>(src, dst);
  if (bytes & 2) copyUnit<std::uint16_t>(src, dst);
  if (bytes & 1) copyUnit<std::uint8_t>(src, dst);
}

struct Ordinary {
  static void write(Zor8u* p, Vec<Zor8u> x) { storeAligned(p, x); }
  static void fetch(const Zor8u* src, const Zor8u* dst, std::ptrdiff_t distance)
  {
    prefetch(src + distance);
    prefetch(dst + distance);
  }
};
struct Streaming {
  static void write(Zor8u* p, Vec<Zor8u> x) { stream(p, x); }
  static void fetch(const Zor8u*, const Zor8u*, std::ptrdiff_t) {}
};

template <class Store> void copyWith(const Zor8u* src, Zor8u* dst, std::ptrdiff_t bytes)
{
  const auto head = static_cast<std::ptrdiff_t>(-reinterpret_cast<std::uintptr_t>(dst) & 15);
  if (bytes >= 16 + head) {
    copyHead(src, dst, head);
    bytes -= head;
    const std::ptrdiff_t distance = fetchDistance<Zor8u>(bytes);
    for (; bytes >= 64; bytes -= 64, src += 64, dst += 64) {
      Store::fetch(src, dst, distance);
      const Vec<Zor8u> a = load<Zor8u>(src), b = load<Zor8u>(src + 16);
      const Vec<Zor8u> c = load<Zor8u>(src + 32), d = load<Zor8u>(src + 48);
      Store::write(dst, a);
      Store::write(dst + 16, b);
      Store::write(dst + 32, c);
      Store::write(dst + 48, d);
    }
    for (; bytes >= 16; bytes -= 16, src += 16, dst += 16) Store::write(dst, load<Zor8u>(src));
  }
  if (bytes >= 16) { // the way to alignment was longer than what lay behind it
    store(dst, load<Zor8u>(src));
    src += 16, dst += 16, bytes -= 16;
  }
  copyTail(src, dst, bytes);
}

} // namespace

void copyForward(const Zor8u* pSrc, Zor8u* pDst, std::ptrdiff_t bytes, bool streaming)
{
  if (streaming) {
    copyWith<Streaming>(pSrc, pDst, bytes);
    streamFence();
  } else {
    copyWith<Ordinary>(pSrc, pDst, bytes);
  }
}

// What lies in the cache the C library copies fastest (it may use wider vectors). For more than that, fetching ahead is
// worth more.
static constexpr long long libraryCopyLimit = 3 << 19;

void copyRow(const Zor8u* pSrc, Zor8u* pDst, std::ptrdiff_t bytes, long long regionBytes)
{
  if (regionBytes <= libraryCopyLimit) std::memmove(pDst, pSrc, static_cast<std::size_t>(bytes));
  else copyForward(pSrc, pDst, bytes, false);
}

// Rows of N vectors at most and more than half of that: read, then written, so that a row may lie on its source.
template <int N> static void copyShortRows(Rows<const Zor8u> src, Rows<Zor8u> dst, std::ptrdiff_t bytes, int rows)
{
  constexpr std::ptrdiff_t half = N / 2 * 16;
  for (int y = 0; y < rows; ++y) {
    const Zor8u* const from = src[y];
    Zor8u* const to = dst[y];
    Vec<Zor8u, 16> front[N / 2], back[N / 2];
    for (int k = 0; k < N / 2; ++k) {
      front[k] = load<Zor8u, 16>(from + 16 * k);
      back[k] = load<Zor8u, 16>(from + bytes - half + 16 * k);
    }
    for (int k = 0; k < N / 2; ++k) {
      store(to + 16 * k, front[k]);
      store(to + bytes - half + 16 * k, back[k]);
    }
  }
}

void copyRows(Rows<const Zor8u> src, Rows<Zor8u> dst, std::ptrdiff_t bytes, int rows)
{
  if (bytes < 16) {
    for (int y = 0; y < rows; ++y) copyBelow<16>(dst[y], src[y], static_cast<std::size_t>(bytes));
  } else if (bytes <= 32) {
    copyShortRows<2>(src, dst, bytes, rows);
  } else if (bytes <= 64) {
    copyShortRows<4>(src, dst, bytes, rows);
  } else {
    const long long regionBytes = 1LL * bytes * rows;
    for (int y = 0; y < rows; ++y) copyRow(src[y], dst[y], bytes, regionBytes);
  }
}

} // namespace zori
