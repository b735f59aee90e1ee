// Vectors: the only place that names an intrinsic of the processor.
//
// Vec<T> holds Vec<T>::size elements of type T; operations are small overloaded functions that work lane by lane unless
// their name says otherwise. Kernels are written against Vec<T>::size. Where a result depends on the number of lanes
// (float sums, reciprocal estimates) a kernel uses F32x4 by name, which always has four.
//
// simd_types.h has the types, simd_16.h and simd_32.h the operations of each width, this file what has no width.
#pragma once

#include "simd_16.h"
#include "simd_32.h"

namespace zori {
inline namespace ZORI_WIDTH {

inline void streamFence() { _mm_sfence(); }
// p itself, of which the compiler forgets where it came from: what it points to is then loaded where it is used, and
// not carried from one round of a loop to the next for the sake of a load.
template <class T> inline T* forgotten(T* p)
{
  asm("" : "+r"(p));
  return p;
}
// Inlined early: a call of a function that does nothing but this is left out.
[[gnu::always_inline]] inline void prefetch(const void* p) { _mm_prefetch(static_cast<const char*>(p), _MM_HINT_T0); }
// What stores before it stays before it in the code: a cache line is then written in one go.
inline void storesInOrder() { asm volatile("" ::: "memory"); }

// Functions that work on vectors and are not inlined hold one of these: at its end the upper halves of the registers
// are clear, without which code for 16 bytes runs many times slower afterwards. Compilers do that by themselves, but
// not on every path: where a function is given an operation that consists of one vector they leave it out.
struct UpperHalvesCleared {
  UpperHalvesCleared() = default;
  UpperHalvesCleared(const UpperHalvesCleared&) = delete;
#if ZORI_VECTOR_BYTES == 32
  ~UpperHalvesCleared() { _mm256_zeroupper(); }
#else
  ~UpperHalvesCleared() {}
#endif
};

// ---- Making: of the file's width, unless another one is named ----

template <class T, int Bytes = vectorBytes> inline Vec<T, Bytes> load(const void* p)
{
#if ZORI_VECTOR_BYTES == 32
  if constexpr (Bytes == 32) return load32<T>(p);
  else return load16<T>(p);
#else
  return load16<T>(p);
#endif
}
template <class T, int Bytes = vectorBytes> inline Vec<T, Bytes> loadAligned(const void* p)
{
#if ZORI_VECTOR_BYTES == 32
  if constexpr (Bytes == 32) return loadAligned32<T>(p);
  else return loadAligned16<T>(p);
#else
  return loadAligned16<T>(p);
#endif
}
template <class T, int Bytes = vectorBytes> inline Vec<T, Bytes> splat(T x)
{
#if ZORI_VECTOR_BYTES == 32
  if constexpr (Bytes == 32) return splat32<T>(x);
  else return splat16<T>(x);
#else
  return splat16<T>(x);
#endif
}
template <class T, int Bytes> inline Vec<T, Bytes> zero() { return splat<T, Bytes>(T(0)); }
template <class T, int Bytes> inline Vec<T, Bytes> topBits()
{
  return splat<T, Bytes>(static_cast<T>(T(1) << (8 * sizeof(T) - 1)));
}

// x itself, of which the compiler forgets where it came from: what several operations share is then copied from
// register to register and not loaded again for each, and a product with a constant stays a product.
template <class T, int Bytes> inline Vec<T, Bytes> loadedOnce(Vec<T, Bytes> x)
{
  asm("" : "+x"(x.v));
  return x;
}

// ---- Composed ----

template <class T, int Bytes> inline Vec<T, Bytes>& operator+=(Vec<T, Bytes>& a, Vec<T, Bytes> b) { return a = a + b; }
template <class T, int Bytes> inline Vec<T, Bytes>& operator-=(Vec<T, Bytes>& a, Vec<T, Bytes> b) { return a = a - b; }
// mask ? a : b, with lanes of the mask all ones or all zeros
template <class T, int Bytes> inline Vec<T, Bytes> select(Vec<T, Bytes> mask, Vec<T, Bytes> a, Vec<T, Bytes> b)
{
  return (a & mask) | without(b, mask);
}
template <class T, int Bytes> inline Vec<T, Bytes> signs(Vec<T, Bytes> a) { return greater(zero<T, Bytes>(), a); }

// What moveMask gives when all lanes are set.
template <class T, int Bytes = vectorBytes>
inline constexpr int
  fullMask = static_cast<int>((std::uint64_t{1} << (isInt<T> ? Bytes : Bytes / static_cast<int>(sizeof(T)))) - 1);
template <class T, int Bytes> inline bool isAll(Vec<T, Bytes> mask) { return moveMask(mask) == fullMask<T, Bytes>; }

// ---- Within each 16 bytes, of vectors of 16 bytes: the same as across the whole ----

template <class T> inline Vec<T, 16> interleaveLowLocal(Vec<T, 16> a, Vec<T, 16> b) { return interleaveLow(a, b); }
template <class T> inline Vec<T, 16> interleaveHighLocal(Vec<T, 16> a, Vec<T, 16> b) { return interleaveHigh(a, b); }
template <int N, class T> inline Vec<T, 16> bytesUpLocal(Vec<T, 16> a) { return bytesUp<N>(a); }
template <class To, class W> inline Vec<To, 16> narrowSatLocal(Vec<W, 16> low, Vec<W, 16> high)
{
  return narrowSat<To>(low, high);
}
template <int D, int C, int B, int A> inline Vec<int32_t, 16> shuffleLocal(Vec<int32_t, 16> a)
{
  return shuffle<D, C, B, A>(a);
}
template <int D, int C, int B, int A> inline Vec<float, 16> shuffleLocal(Vec<float, 16> a, Vec<float, 16> b)
{
  return shuffle<D, C, B, A>(a, b);
}

// The low (high) halves of each 16 bytes, zero- or sign-extended to twice the width: narrowSatLocal is the way back.
template <class T, int Bytes> inline Vec<WiderT<T>, Bytes> widenLowLocal(Vec<T, Bytes> a)
{
  if constexpr (isSigned<T>) return as<WiderT<T>>(interleaveLowLocal(a, signs(a)));
  else return as<WiderT<T>>(interleaveLowLocal(a, zero<T, Bytes>()));
}
template <class T, int Bytes> inline Vec<WiderT<T>, Bytes> widenHighLocal(Vec<T, Bytes> a)
{
  if constexpr (isSigned<T>) return as<WiderT<T>>(interleaveHighLocal(a, signs(a)));
  else return as<WiderT<T>>(interleaveHighLocal(a, zero<T, Bytes>()));
}

// Four vectors of 32-bit lanes into one of bytes, saturated.
template <class To, int Bytes>
inline Vec<To, Bytes> narrowSatFour(Vec<int32_t, Bytes> a, Vec<int32_t, Bytes> b, Vec<int32_t, Bytes> c,
                                    Vec<int32_t, Bytes> d)
{
  const auto x = narrowSatLocal<To>(narrowSatLocal<int16_t>(a, b), narrowSatLocal<int16_t>(c, d));
#if ZORI_VECTOR_BYTES == 32
  if constexpr (Bytes == 32) return fourthsInOrder(x);
#endif
  return x;
}

// The 16 bytes K of a vector.
template <int K, class T, int Bytes> inline Vec<T, 16> sixteenBytes(Vec<T, Bytes> x)
{
  static_assert(K < Bytes / 16);
#if ZORI_VECTOR_BYTES == 32
  if constexpr (Bytes == 32) return K == 0 ? lowHalf(x) : highHalf(x);
  else return x;
#else
  return x;
#endif
}

// The first bytes of a vector.
template <int N, class T, int Bytes> inline Vec<T, N> firstBytes(Vec<T, Bytes> x)
{
#if ZORI_VECTOR_BYTES == 32
  if constexpr (N < Bytes) return lowHalf(x);
  else return x;
#else
  return x;
#endif
}

// A vector of a file's width: 16 bytes that are less than one stand in it twice.
template <class T, int Bytes> inline Vec<T> wholeOf(Vec<T, Bytes> x)
{
  if constexpr (Bytes < vectorBytes) return joined(x, x);
  else return x;
}

// ---- Gathering: lanes from Scale * at[0], Scale * at[1]... bytes behind p ----

template <int Scale> inline Vec<uint32_t> gather32(const void* p, const int32_t* at)
{
#if ZORI_VECTOR_BYTES == 32
  return joined(gatherFour<Scale>(p, at), gatherFour<Scale>(p, at + 4));
#else
  return gatherFour<Scale>(p, at);
#endif
}

// A vector in loads of 16 bytes, for what comes from far: with wider ones some processors have so many lines under way
// that all of them take a quarter longer.
template <class T> inline Vec<T> loadFromFar(const void* p)
{
#if ZORI_VECTOR_BYTES == 32
  return joined(load<T, 16>(p), load<T, 16>(static_cast<const char*>(p) + 16));
#else
  return load<T>(p);
#endif
}

// Words at at[0], at[1]... bytes behind p.
inline Vec<uint16_t> gatherLanes(const void* p, const int32_t* at)
{
#if ZORI_VECTOR_BYTES == 32
  return joined(gatherWords(p, at), gatherWords(p, at + 8));
#else
  return gatherWords(p, at);
#endif
}
// Eight bytes from each place: the first four of the first two places, then the second four; in either half of 32
// bytes. The high half is from at[High] on.
template <int High = 2> inline Vec<uint32_t> gatherPairs(const void* p, const int32_t* at)
{
  const auto two = [=](int i) {
    const auto lane = [=](int k) { return loadLow8<uint32_t>(static_cast<const char*>(p) + at[k]); };
    return interleaveLow(lane(i), lane(i + 1));
  };
#if ZORI_VECTOR_BYTES == 32
  return joined(two(0), two(High));
#else
  return two(0);
#endif
}
// 16 bytes from each place.
template <class T> inline Vec<T> gather128(const void* p, const int32_t* at)
{
  const char* const from = static_cast<const char*>(p);
#if ZORI_VECTOR_BYTES == 32
  return joined(load<T, 16>(from + at[0]), load<T, 16>(from + at[1]));
#else
  return load<T>(from + at[0]);
#endif
}
// 8 bytes from each place, in the low half of 16 bytes each; and side by side, for widenedHalf.
inline Vec<int32_t> gatherEights(const void* p, const int32_t* at)
{
  const char* const from = static_cast<const char*>(p);
#if ZORI_VECTOR_BYTES == 32
  return joined(loadLow8<int32_t>(from + at[0]), loadLow8<int32_t>(from + at[1]));
#else
  return loadLow8<int32_t>(from + at[0]);
#endif
}
template <class T> inline Vec<T, 16> gatherHalf(const void* p, const int32_t* at)
{
  const char* const from = static_cast<const char*>(p);
#if ZORI_VECTOR_BYTES == 32
  return loadTwo<T>(from + at[0], from + at[1]);
#else
  return loadLow8<T>(from + at[0]);
#endif
}
// As many elements as half a vector of the file's width holds, widened to a whole one.
template <class T> inline Vec<WiderT<T>> widenedHalf(Vec<T, 16> x)
{
#if ZORI_VECTOR_BYTES == 32
  return widened(x);
#else
  return widenLow(x);
#endif
}
// Each of as many elements as there are 16 bytes in a vector, in all lanes of its 16 bytes.
template <class T> inline Vec<T> splatEach(const T* p)
{
#if ZORI_VECTOR_BYTES == 32
  return joined(splat<T, 16>(p[0]), splat<T, 16>(p[1]));
#else
  return splat(p[0]);
#endif
}

// ---- Half a vector in memory ----

// The samples of half a vector, widened to a whole one.
template <class T> inline Vec<WiderT<T>> loadHalfWidened(const void* p)
{
#if ZORI_VECTOR_BYTES == 32
  return widened(load<T, 16>(p));
#else
  return widenLow(loadLow8<T>(p));
#endif
}
// The samples of a whole vector, widened to two in their order.
template <class T> inline void loadWidened(const void* p, Vec<WiderT<T>>& low, Vec<WiderT<T>>& high)
{
#if ZORI_VECTOR_BYTES == 32
  low = loadHalfWidened<T>(p);
  high = loadHalfWidened<T>(static_cast<const char*>(p) + 16);
#else
  const Vec<T> x = load<T>(p);
  low = widenLow(x);
  high = widenHigh(x);
#endif
}
template <class T> inline void storeLowHalf(void* p, Vec<T> x)
{
#if ZORI_VECTOR_BYTES == 32
  store(p, lowHalf(x));
#else
  storeLow8(p, x);
#endif
}

template <class T> inline void storeHighHalf(void* p, Vec<T> x)
{
#if ZORI_VECTOR_BYTES == 32
  store(p, highHalf(x));
#else
  storeLow8(p, bytesDown<8>(x));
#endif
}

// ---- Numbers ----

// Under the rounding field of the control register.
inline int toInt(float a) { return _mm_cvtss_si32(_mm_set_ss(a)); }
inline int toInt(double a) { return _mm_cvtsd_si32(_mm_set_sd(a)); }

} // namespace ZORI_WIDTH
} // namespace zori
