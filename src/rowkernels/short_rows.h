// Vectors that hold less than they could: the first bytes of one, and rows shorter than one.
#pragma once

#include "simd_32_only.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

// Into its caller, whatever the compiler thinks of its size.
#define ZORI_INLINE __attribute__((always_inline))

namespace zori {
inline namespace ZORI_WIDTH {

// ---- Parts of a vector, in their order: the other bytes are zero on load and untouched on store. ----

inline std::uint64_t loadBytesBelow8(const char* p, std::size_t bytes)
{
  if (bytes >= 4)
    return get<std::uint32_t>(p) | static_cast<std::uint64_t>(get<std::uint32_t>(p + bytes - 4)) << (8 * (bytes - 4));
  if (bytes >= 2)
    return get<std::uint16_t>(p) | static_cast<std::uint32_t>(get<std::uint16_t>(p + bytes - 2)) << (8 * (bytes - 2));
  return bytes ? static_cast<unsigned char>(*p) : 0;
}

inline void storeBytesBelow8(char* p, std::uint64_t x, std::size_t bytes)
{
  if (bytes >= 4) {
    const auto last = static_cast<std::uint32_t>(x >> (8 * (bytes - 4)));
    put(p, static_cast<std::uint32_t>(x));
    put(p + bytes - 4, last);
  } else if (bytes >= 2) {
    const auto last = static_cast<std::uint16_t>(x >> (8 * (bytes - 2)));
    put(p, static_cast<std::uint16_t>(x));
    put(p + bytes - 2, last);
  } else if (bytes) {
    *p = static_cast<char>(x);
  }
}

// `bytes` is less than 16. What is put together in memory is slow to read as a vector, so it is done in registers.
template <class T> inline Vec<T, 16> loadPart16(const void* from, std::size_t bytes)
{
  const char* p = static_cast<const char*>(from);
  if (bytes < 8) return as<T>(ofHalves(loadBytesBelow8(p, bytes), 0));
  if (bytes == 8) return loadLow8<T>(p);
  return as<T>(ofHalves(get<std::uint64_t>(p), get<std::uint64_t>(p + bytes - 8) >> (8 * (16 - bytes))));
}

template <class T> inline void storePart(void* to, Vec<T, 16> x, std::size_t bytes)
{
  char* p = static_cast<char*>(to);
  std::uint64_t half[2];
  store(half, x);
  if (bytes >= 8) {
    put(p, half[0]);
    storeBytesBelow8(p + 8, half[1], bytes - 8);
  } else {
    storeBytesBelow8(p, half[0], bytes);
  }
}

#if ZORI_VECTOR_BYTES == 32
template <class T> inline Vec<T> loadPart(const void* from, std::size_t bytes)
{
  const char* p = static_cast<const char*>(from);
  if (bytes < 16) return joined(loadPart16<T>(p, bytes), zero<T, 16>());
  // the last 16 bytes moved down, so that what comes behind the first 16 is left
  struct Indices {
    std::uint8_t down[32];
    constexpr Indices() : down{}
    {
      for (int i = 0; i < 32; ++i) down[i] = static_cast<std::uint8_t>(i < 16 ? i : 0x80);
    }
  };
  static constexpr Indices indices;
  const auto rest =
    shuffleBytesLocal(load<std::uint8_t, 16>(p + bytes - 16), load<std::uint8_t, 16>(indices.down + 32 - bytes));
  return joined(load<T, 16>(p), as<T>(rest));
}
template <class T> inline void storePart(void* to, Vec<T, 32> x, std::size_t bytes)
{
  char* p = static_cast<char*>(to);
  if (bytes >= 16) {
    alignas(32) char whole[32];
    store(whole, x);
    store(p, lowHalf(x));
    store(p + bytes - 16, load<std::uint8_t, 16>(whole + bytes - 16));
  } else {
    storePart(p, lowHalf(x), bytes);
  }
}
#else
template <class T> inline Vec<T> loadPart(const void* from, std::size_t bytes) { return loadPart16<T>(from, bytes); }
#endif

// ---- Rows shorter than a vector: the first elements and the last ones, as many of each as a power of two. ----
//
// Together they are the row, most of them twice; a vector that they do not fill holds them again. So no lane has
// anything but an element of the row, and whole pixels stay whole pixels.

template <class T> inline void storeHigh8(void* p, Vec<T, 16> x)
{
  put(p, static_cast<std::uint64_t>(as<std::uint64_t>(x).v[1]));
}

// Such a row holds at least 16, 8, 4 or 1 bytes, Part, and less than twice that, or four times 1.
template <std::size_t Part, class T> ZORI_INLINE inline Vec<T, 16> loadShort16(const char* p, std::size_t bytes)
{
  if constexpr (Part == 8) {
    const auto last = loadLow8<std::uint64_t>(p + bytes - 8);
    return as<T>(interleaveLow(loadLow8<std::uint64_t>(p), last));
  } else if constexpr (Part == 4) {
    const auto both = interleaveLow(loadLow4<std::uint32_t>(p), loadLow4<std::uint32_t>(p + bytes - 4));
    return as<T>(interleaveLow(as<std::uint64_t>(both), as<std::uint64_t>(both)));
  } else if (bytes >= 2) {
    return as<T>(splat<std::uint32_t, 16>(get<std::uint16_t>(p) |
                                          static_cast<std::uint32_t>(get<std::uint16_t>(p + bytes - 2)) << 16));
  } else return as<T>(splat<std::uint8_t, 16>(get<std::uint8_t>(p)));
}
template <std::size_t Part, class T> ZORI_INLINE inline void storeShort16(char* p, Vec<T, 16> x, std::size_t bytes)
{
  if constexpr (Part == 8) {
    storeLow8(p, x);
    storeHigh8(p + bytes - 8, x);
  } else if constexpr (Part == 4) {
    storeLow4(p, x);
    storeLow4(p + bytes - 4, bytesDown<4>(x));
  } else {
    const auto both = firstLane(as<std::uint32_t>(x));
    if (bytes >= 2) {
      put(p, static_cast<std::uint16_t>(both));
      put(p + bytes - 2, static_cast<std::uint16_t>(both >> 16));
    } else {
      put(p, static_cast<std::uint8_t>(both));
    }
  }
}
// Stands for a part of 16 bytes of a row that has no more.
inline constexpr std::integral_constant<std::size_t, 32> bothHalves;

template <std::size_t Part, class T> ZORI_INLINE inline Vec<T> loadShort(const void* from, std::size_t bytes)
{
  const char* p = static_cast<const char*>(from);
#if ZORI_VECTOR_BYTES == 32
  // loads that fill the vector and a blend: no shuffles
  if constexpr (Part == bothHalves) return as<T>(loadInBothHalves<std::uint8_t>(p));
  else if constexpr (Part == 16) return joined(load<T, 16>(p), load<T, 16>(p + bytes - 16));
  else if constexpr (Part == 8)
    return as<T>(alternating(splat(get<std::uint64_t>(p)), splat(get<std::uint64_t>(p + bytes - 8))));
  else if constexpr (Part == 4)
    return as<T>(alternating(splat(get<std::uint32_t>(p)), splat(get<std::uint32_t>(p + bytes - 4))));
  else {
    const auto x = loadShort16<Part, T>(p, bytes);
    return joined(x, x);
  }
#else
  return loadShort16<Part, T>(p, bytes);
#endif
}
template <std::size_t Part, class T> ZORI_INLINE inline void storeShort(void* to, Vec<T> x, std::size_t bytes)
{
  char* p = static_cast<char*>(to);
#if ZORI_VECTOR_BYTES == 32
  if constexpr (Part == bothHalves) store(p, lowHalf(x));
  else if constexpr (Part == 16) {
    store(p, lowHalf(x));
    store(p + bytes - 16, highHalf(x));
  } else storeShort16<Part>(p, lowHalf(x), bytes);
#else
  storeShort16<Part>(p, x, bytes);
#endif
}

// f(Part) for a row of elements of `Element` bytes, which is at least one and less than `vector` bytes long. What goes
// down many rows asks once.
template <std::size_t Element, int vector = vectorBytes, class F>
ZORI_INLINE inline auto withShortPart(std::size_t bytes, F f)
{
  if constexpr (vector > 16)
    if (bytes >= 16) return f(std::integral_constant<std::size_t, 16>{});
  if constexpr (Element >= 8) return f(std::integral_constant<std::size_t, 8>{});
  else {
    if (bytes >= 8) return f(std::integral_constant<std::size_t, 8>{});
    if constexpr (Element >= 4) return f(std::integral_constant<std::size_t, 4>{});
    else return bytes >= 4 ? f(std::integral_constant<std::size_t, 4>{}) : f(std::integral_constant<std::size_t, 1>{});
  }
}
template <class T> ZORI_INLINE inline Vec<T, 16> loadShort16(const char* p, std::size_t bytes)
{
  return withShortPart<sizeof(T), 16>(bytes, [=](auto part) ZORI_INLINE { return loadShort16<part, T>(p, bytes); });
}
template <class T> ZORI_INLINE inline Vec<T> loadShort(const void* from, std::size_t bytes)
{
  return withShortPart<sizeof(T)>(bytes, [=](auto part) ZORI_INLINE { return loadShort<part, T>(from, bytes); });
}
template <int Bytes, class T> ZORI_INLINE inline Vec<T, Bytes> loadShortOf(const void* from, std::size_t bytes)
{
  if constexpr (Bytes < vectorBytes) return loadShort16<T>(static_cast<const char*>(from), bytes);
  else return loadShort<T>(from, bytes);
}
template <class T, int Bytes> ZORI_INLINE inline void storeShort(void* to, Vec<T, Bytes> x, std::size_t bytes)
{
  withShortPart<sizeof(T), Bytes>(bytes, [=](auto part) ZORI_INLINE {
    if constexpr (Bytes < vectorBytes) storeShort16<part, T>(static_cast<char*>(to), x, bytes);
    else storeShort<part, T>(to, x, bytes);
  });
}

} // namespace ZORI_WIDTH
} // namespace zori
