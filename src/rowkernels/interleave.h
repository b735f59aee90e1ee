// Blocks of pixels of three or four channels, apart and together again in registers.
//
// A block is as many pixels as a vector has elements, one vector a channel. T is an unsigned type of the element's
// width. Of a block of interleaved pixels, all that is done is done within 16 bytes: vectors of 32 hold one half of the
// block in their low halves and the other in their high ones.
//
// The base level has no instruction that moves single bytes freely, so three channels are sorted from the outside in:
// first the 32-bit words of each 12 bytes, then their halves, then bytes, the last two by masks and shifts within a
// word.
#pragma once

#include "short_rows.h"

#include <cstddef>
#include <cstdint>

namespace zori {
inline namespace ZORI_WIDTH {

template <class T> inline constexpr int lanesOf = Vec<T>::size;

// Vector j of a block of N vectors, whose halves are `apart` bytes from each other.
template <int N, int Bytes, class T>
inline Vec<T, Bytes> loadOfBlock(const T* block, int j, [[maybe_unused]] std::ptrdiff_t apart = 16 * N)
{
  const char* const p = reinterpret_cast<const char*>(block) + 16 * j;
#if ZORI_VECTOR_BYTES == 32
  if constexpr (Bytes == 32) return joined(load<T, 16>(p), load<T, 16>(p + apart));
#endif
  return load<T, Bytes>(p);
}
template <int N, class T, int Bytes>
inline void storeOfBlock(T* block, int j, Vec<T, Bytes> x, [[maybe_unused]] std::ptrdiff_t apart = 16 * N)
{
  char* const p = reinterpret_cast<char*>(block) + 16 * j;
#if ZORI_VECTOR_BYTES == 32
  if constexpr (Bytes == 32) {
    store(p, lowHalf(x));
    store(p + apart, highHalf(x));
    return;
  }
  store(forgotten(p), x); // one by one: the compiler would join two in memory, and wait for them there
#else
  store(p, x);
#endif
}

#ifdef __AVX2__
// The bytes of 16 that a shuffle puts in their places, from any of several vectors: 0x80 where another one has them.
struct ByteIndexes {
  alignas(16) std::uint8_t index[16];
  template <int Bytes> Vec<std::uint8_t, Bytes> vector() const
  {
#if ZORI_VECTOR_BYTES == 32
    if constexpr (Bytes == 32) return loadInBothHalves<std::uint8_t>(index);
#endif
    if constexpr (Bytes == 16) return loadAligned<std::uint8_t, 16>(index);
  }
};
// Where the bytes of channel `channel` of N stand in vector `from`, and where those of interleaved vector `from` stand
// in the channel.
template <class T> constexpr ByteIndexes splitIndexes(int n, int channel, int from)
{
  constexpr int bytes = sizeof(T);
  ByteIndexes x{};
  for (int i = 0; i < 16; ++i) {
    const int at = (i / bytes * n + channel) * bytes + i % bytes;
    x.index[i] = static_cast<std::uint8_t>(at / 16 == from ? at % 16 : 0x80);
  }
  return x;
}
template <class T> constexpr ByteIndexes mergeIndexes(int n, int channel, int to)
{
  constexpr int bytes = sizeof(T);
  ByteIndexes x{};
  for (int i = 0; i < 16; ++i) {
    const int at = (16 * to + i) / bytes;
    x.index[i] = static_cast<std::uint8_t>(at % n == channel ? at / n * bytes + i % bytes : 0x80);
  }
  return x;
}
template <class T, bool Splits> struct ThreeIndexes {
  ByteIndexes at[3][3]; // of a channel, in a vector
  constexpr ThreeIndexes() : at{}
  {
    for (int k = 0; k < 3; ++k)
      for (int v = 0; v < 3; ++v) at[k][v] = Splits ? splitIndexes<T>(3, k, v) : mergeIndexes<T>(3, k, v);
  }
};
template <class T, bool Splits> inline constexpr ThreeIndexes<T, Splits> threeIndexes;

inline constexpr bool hasByteShuffle = true;
#else
inline constexpr bool hasByteShuffle = false;
#endif

// ---- Three channels ----

// Every lane of W holds two elements, and a b c follow each other: a0 a1 b0 b1 c0 c1. Sorted by position modulo 3,
// a = a0 b1, b = a1 c0, c = b0 c1; and back.
template <class W, int Bytes> inline void sortHalves(Vec<W, Bytes>& a, Vec<W, Bytes>& b, Vec<W, Bytes>& c)
{
  constexpr int half = 4 * sizeof(W);
  const auto low = splat<W, Bytes>(static_cast<W>((W(1) << half) - 1)), high = shiftLeft<half>(low);
  const auto x = (a & low) | (b & high);
  const auto y = shiftRight<half>(a) | shiftLeft<half>(c);
  const auto z = (b & low) | (c & high);
  a = x, b = y, c = z;
}
template <class W, int Bytes> inline void unsortHalves(Vec<W, Bytes>& a, Vec<W, Bytes>& b, Vec<W, Bytes>& c)
{
  constexpr int half = 4 * sizeof(W);
  const auto low = splat<W, Bytes>(static_cast<W>((W(1) << half) - 1)), high = shiftLeft<half>(low);
  const auto x = (a & low) | shiftLeft<half>(b);
  const auto y = (c & low) | (a & high);
  const auto z = shiftRight<half>(b) | (c & high);
  a = x, b = y, c = z;
}

// Lanes A and B of a, then C and D of b, within each 16 bytes.
template <int D, int C, int B, int A, int Bytes>
inline Vec<std::uint32_t, Bytes> pick(Vec<std::uint32_t, Bytes> a, Vec<std::uint32_t, Bytes> b)
{
  return as<std::uint32_t>(shuffleLocal<D, C, B, A>(as<float>(a), as<float>(b)));
}

// A block to channels.
template <class T, int Bytes>
ZORI_INLINE inline void split(const T* from, Vec<T, Bytes> (&channel)[3], std::ptrdiff_t apart = 16 * 3)
{
  if constexpr (hasByteShuffle && sizeof(T) <= 2) {
#ifdef __AVX2__
    Vec<std::uint8_t, Bytes> v[3];
    for (int j = 0; j < 3; ++j) v[j] = as<std::uint8_t>(loadOfBlock<3, Bytes>(from, j, apart));
    for (int k = 0; k < 3; ++k) {
      const auto part = [&](int j) {
        return shuffleBytesLocal(v[j], threeIndexes<T, true>.at[k][j].template vector<Bytes>());
      };
      channel[k] = as<T>(part(0) | part(1) | part(2));
    }
#endif
  } else {
    const std::uint32_t* const words = reinterpret_cast<const std::uint32_t*>(from);
    const auto everyThirdWord = [words, apart](int first) {
      return pick<3, 0, 3, 0>(loadOfBlock<3, Bytes>(words + first, 0, apart),
                              loadOfBlock<3, Bytes>(words + first + 6, 0, apart));
    };
    auto a = everyThirdWord(0), b = everyThirdWord(1), c = everyThirdWord(2);
    if constexpr (sizeof(T) <= 2) sortHalves(a, b, c);
    auto a16 = as<std::uint16_t>(a), b16 = as<std::uint16_t>(b), c16 = as<std::uint16_t>(c);
    if constexpr (sizeof(T) == 1) sortHalves(a16, b16, c16);
    channel[0] = as<T>(a16);
    channel[1] = as<T>(b16);
    channel[2] = as<T>(c16);
  }
}

// Channels to a block.
template <class T, int Bytes> ZORI_INLINE inline void merge(const Vec<T, Bytes> (&channel)[3], Vec<T, Bytes> (&out)[3])
{
  if constexpr (hasByteShuffle && sizeof(T) <= 2) {
#ifdef __AVX2__
    for (int j = 0; j < 3; ++j) {
      const auto part = [&](int k) {
        return shuffleBytesLocal(as<std::uint8_t>(channel[k]),
                                 threeIndexes<T, false>.at[k][j].template vector<Bytes>());
      };
      out[j] = as<T>(part(0) | part(1) | part(2));
    }
#endif
  } else {
    auto a16 = as<std::uint16_t>(channel[0]), b16 = as<std::uint16_t>(channel[1]), c16 = as<std::uint16_t>(channel[2]);
    if constexpr (sizeof(T) == 1) unsortHalves(a16, b16, c16);
    auto a = as<std::uint32_t>(a16), b = as<std::uint32_t>(b16), c = as<std::uint32_t>(c16);
    if constexpr (sizeof(T) <= 2) unsortHalves(a, b, c);
    const auto ca =
      as<std::uint32_t>(shuffleLocal<3, 1, 2, 0>(as<std::int32_t>(pick<3, 1, 2, 0>(c, a)))); // c0 a1 c2 a3
    out[0] = as<T>(pick<1, 0, 1, 0>(interleaveLowLocal(a, b), ca));
    out[1] = as<T>(pick<1, 0, 3, 2>(interleaveLowLocal(b, c), interleaveHighLocal(a, b)));
    out[2] = as<T>(pick<3, 2, 3, 2>(ca, interleaveHighLocal(b, c)));
  }
}

// ---- Four channels ----

// The even (odd) lanes of a, then those of b, within each 16 bytes.
template <class T, int Bytes> inline Vec<T, Bytes> evens(Vec<T, Bytes> a, Vec<T, Bytes> b)
{
  if constexpr (sizeof(T) == 4) return pick<2, 0, 2, 0>(a, b);
  else if constexpr (sizeof(T) == 2) {
    const auto low = [](Vec<T, Bytes> x) { return shiftRight<16>(shiftLeft<16>(as<std::int32_t>(x))); };
    return as<T>(narrowSatLocal<std::int16_t>(low(a), low(b))); // sign-extended, nothing saturates
  } else {
    const auto low = splat<std::int16_t, Bytes>(0xff);
    return narrowSatLocal<T>(as<std::int16_t>(a) & low, as<std::int16_t>(b) & low);
  }
}
template <class T, int Bytes> inline Vec<T, Bytes> odds(Vec<T, Bytes> a, Vec<T, Bytes> b)
{
  if constexpr (sizeof(T) == 4) return pick<3, 1, 3, 1>(a, b);
  else if constexpr (sizeof(T) == 2) {
    const auto high = [](Vec<T, Bytes> x) { return shiftRight<16>(as<std::int32_t>(x)); };
    return as<T>(narrowSatLocal<std::int16_t>(high(a), high(b)));
  } else {
    const auto high = [](Vec<T, Bytes> x) { return as<std::int16_t>(shiftRight<8>(as<std::uint16_t>(x))); };
    return narrowSatLocal<T>(high(a), high(b));
  }
}

// A block to channels.
template <class T, int Bytes>
ZORI_INLINE inline void split(const T* from, Vec<T, Bytes> (&channel)[4], std::ptrdiff_t apart = 16 * 4)
{
  const auto at = [=](int j) { return loadOfBlock<4, Bytes>(from, j, apart); };
  const auto v0 = at(0), v1 = at(1), v2 = at(2), v3 = at(3);
  const auto even0 = evens(v0, v1), even1 = evens(v2, v3), odd0 = odds(v0, v1), odd1 = odds(v2, v3);
  channel[0] = evens(even0, even1);
  channel[1] = evens(odd0, odd1);
  channel[2] = odds(even0, even1);
  channel[3] = odds(odd0, odd1);
}

// Channels to a block.
template <class T, int Bytes> ZORI_INLINE inline void merge(const Vec<T, Bytes> (&channel)[4], Vec<T, Bytes> (&out)[4])
{
  using Pair = WiderT<T>;
  const auto low01 = as<Pair>(interleaveLowLocal(channel[0], channel[1]));
  const auto low23 = as<Pair>(interleaveLowLocal(channel[2], channel[3]));
  const auto high01 = as<Pair>(interleaveHighLocal(channel[0], channel[1]));
  const auto high23 = as<Pair>(interleaveHighLocal(channel[2], channel[3]));
  out[0] = as<T>(interleaveLowLocal(low01, low23));
  out[1] = as<T>(interleaveHighLocal(low01, low23));
  out[2] = as<T>(interleaveLowLocal(high01, high23));
  out[3] = as<T>(interleaveHighLocal(high01, high23));
}

} // namespace ZORI_WIDTH
} // namespace zori
