// The vector types, and scalar access to samples.
//
// Vec<T> is as wide as the file is built for: ZORI_VECTOR_BYTES is 16, or 32 in the second build of a file for newer
// processors. Vec<T, 16> is 16 bytes wide everywhere. Where a result depends on the number or the order of lanes (sums
// of floats) a kernel names F32x4 or F64x2.
//
// Objects of both widths are linked into one library. What depends on the width therefore lives in an inline namespace
// of the width, ZORI_WIDTH, so that no function of one width can take the place of its twin.
#pragma once

#include <pmmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#ifndef ZORI_VECTOR_BYTES
#define ZORI_VECTOR_BYTES 16
#endif
#if ZORI_VECTOR_BYTES == 32
#define ZORI_WIDTH bytes32
#include <immintrin.h>
#elif ZORI_VECTOR_BYTES == 16
#define ZORI_WIDTH bytes16
#ifdef __AVX2__
#include <immintrin.h>
#endif
#else
#error "vectors are 16 or 32 bytes wide"
#endif

namespace zori {

// ---- Scalar access: rows may start at any address, so samples are never read through a typed pointer. ----

template <class T> inline T get(const void* p)
{
  T x;
  std::memcpy(&x, p, sizeof(T));
  return x;
}

template <class T> inline void put(void* p, T x) { std::memcpy(p, &x, sizeof(T)); }

inline bool isAligned(const void* p, std::size_t bytes) { return reinterpret_cast<std::uintptr_t>(p) % bytes == 0; }

// ---- Types ----

template <class T> inline constexpr bool isInt = std::is_integral_v<T>;
template <class T> inline constexpr bool isSigned = std::is_signed_v<T>;

template <class T> struct Wider;
template <> struct Wider<uint8_t> {
  using Type = uint16_t;
};
template <> struct Wider<int8_t> {
  using Type = int16_t;
};
template <> struct Wider<uint16_t> {
  using Type = uint32_t;
};
template <> struct Wider<int16_t> {
  using Type = int32_t;
};
template <> struct Wider<uint32_t> {
  using Type = uint64_t;
};
template <> struct Wider<int32_t> {
  using Type = int64_t;
};
template <class T> using WiderT = typename Wider<T>::Type;
template <class T> using SameBits = std::conditional_t<sizeof(T) == 4, uint32_t, uint64_t>; // of a float

inline namespace ZORI_WIDTH {

inline constexpr int vectorBytes = ZORI_VECTOR_BYTES;

template <class T, int Bytes> struct Register {
  static_assert(isInt<T> && Bytes == 16);
  using Type = __m128i;
};
template <> struct Register<float, 16> {
  using Type = __m128;
};
template <> struct Register<double, 16> {
  using Type = __m128d;
};
#if ZORI_VECTOR_BYTES == 32
template <class T> struct Register<T, 32> {
  static_assert(isInt<T>);
  using Type = __m256i;
};
template <> struct Register<float, 32> {
  using Type = __m256;
};
template <> struct Register<double, 32> {
  using Type = __m256d;
};
#endif

template <class T, int Bytes = vectorBytes> struct Vec {
  using Element = T;
  static constexpr int bytes = Bytes, size = Bytes / int{sizeof(T)};
  typename Register<T, Bytes>::Type v;
};

using F32x4 = Vec<float, 16>; // four lanes at every vector width
using F64x2 = Vec<double, 16>;
using I32x4 = Vec<int32_t, 16>; // the whole numbers of an F32x4

} // namespace ZORI_WIDTH
} // namespace zori
