// Copies of one row with its pixels in reverse order. A pixel is 1, 2, 3, 4, 6, 8, 12 or 16 bytes.
//
// Where pixels fill a vector, its pixels are reversed in a register; pixels of 3 bytes change places in pairs, in lanes
// of 8 bytes. No instruction of the base level moves single bytes freely, so bytes go by words and then within them;
// with vectors of 32 bytes one does.
#pragma once

#include "drivers.h"
#include "zori/types.h"

namespace zori {
inline namespace ZORI_WIDTH {

#if ZORI_VECTOR_BYTES == 32

// The order of bytes that reverses the pixels of 16 bytes, as many as there are whole ones, the first from byte `skip`
// on. What lies behind them becomes zero.
template <int PixelBytes, int skip = 0> inline Vec<Zor8u, 16> reversal()
{
  struct Table {
    alignas(16) Zor8u byte[16] = {};
    constexpr Table()
    {
      constexpr int pixels = 16 / PixelBytes;
      for (int i = 0; i < 16; ++i) {
        const int pixel = i / PixelBytes;
        byte[i] = pixel < pixels ? static_cast<Zor8u>(skip + (pixels - 1 - pixel) * PixelBytes + i % PixelBytes) : 0x80;
      }
    }
  };
  static constexpr Table table;
  return loadAligned<Zor8u, 16>(table.byte);
}

// The pixels of the V bytes in front of `end` in reverse order.
template <int PixelBytes, int V> inline Vec<Zor8u, V> reversedBefore(const Zor8u* end)
{
  if constexpr (V == 32) {
    const auto swapped = joined(load<Zor8u, 16>(end - 16), load<Zor8u, 16>(end - 32));
    return shuffleBytesLocal(swapped, joined(reversal<PixelBytes>(), reversal<PixelBytes>()));
  } else if constexpr (PixelBytes == 16) {
    return load<Zor8u, 16>(end - 16);
  } else {
    return shuffleBytesLocal(load<Zor8u, 16>(end - 16), reversal<PixelBytes>());
  }
}

// A row of 16 to 31 bytes: its first 16 bytes and its last ones.
template <int PixelBytes> inline void reverseShortRow(const Zor8u* src, Zor8u* dst, std::ptrdiff_t bytes)
{
  Zor8u* const last = dst + bytes - 16;
  const auto first = shuffleBytesLocal(load<Zor8u, 16>(src + bytes - 16), reversal<PixelBytes>());
  const auto second = shuffleBytesLocal(load<Zor8u, 16>(src), reversal<PixelBytes>());
  store(dst, first);
  store(last, second);
}

// A few pixels of 3, 6 or 12 bytes in reverse order. Reads less than a pixel in front of them or behind them, and
// spoils less than a pixel behind what is written.
template <int PixelBytes> struct OddPixels {
  static constexpr int count = 16 / PixelBytes, skip = 16 - count * PixelBytes;
  static void reverse(const Zor8u* src, Zor8u* dst)
  {
    store(dst, shuffleBytesLocal(load<Zor8u, 16>(src - skip), reversal<PixelBytes, skip>()));
  }
};

#else

// The pixels of a vector in reverse order.
template <int PixelBytes> inline Vec<Zor8u> reversed(Vec<Zor8u> x)
{
  if constexpr (PixelBytes == 1) {
    const auto words = as<std::uint16_t>(reversed<2>(x));
    return as<Zor8u>(shiftLeft<8>(words) | shiftRight<8>(words));
  } else if constexpr (PixelBytes == 2) {
    return as<Zor8u>(shuffle<1, 0, 3, 2>(as<std::int32_t>(shuffleWords<0, 1, 2, 3>(as<std::uint16_t>(x)))));
  } else if constexpr (PixelBytes == 4) {
    return as<Zor8u>(shuffle<0, 1, 2, 3>(as<std::int32_t>(x)));
  } else if constexpr (PixelBytes == 8) {
    return as<Zor8u>(shuffle<1, 0, 3, 2>(as<std::int32_t>(x)));
  } else {
    static_assert(PixelBytes == 16);
    return x;
  }
}

// Those of the vector in front of `end`.
template <int PixelBytes, int> inline Vec<Zor8u> reversedBefore(const Zor8u* end)
{
  return reversed<PixelBytes>(load<Zor8u>(end - 16));
}

// A few pixels of 3, 6 or 12 bytes in reverse order. Reads less than a pixel in front of them and spoils less than a
// pixel behind what is written.
template <int PixelBytes> struct OddPixels;
template <> struct OddPixels<3> {
  static constexpr int count = 4;
  static void reverse(const Zor8u* src, Zor8u* dst)
  {
    const auto pairs =
      interleaveLow(loadLow8<std::uint64_t>(src + 4), loadLow8<std::uint64_t>(src - 2)); // . . a a a b b b
    const auto second = splat<std::uint64_t>(0xffffff000000);
    const auto swapped = shiftRight<40>(pairs) | (shiftLeft<8>(pairs) & second);
    storeLow8(dst, swapped);
    storeLow8(dst + 6, bytesDown<8>(swapped));
  }
};
template <> struct OddPixels<6> {
  static constexpr int count = 2;
  static void reverse(const Zor8u* src, Zor8u* dst)
  {
    storeLow8(dst, shiftRight<16>(loadLow8<std::uint64_t>(src + 4)));
    storeLow8(dst + 6, shiftRight<16>(loadLow8<std::uint64_t>(src - 2)));
  }
};
template <> struct OddPixels<12> {
  static constexpr int count = 1;
  static void reverse(const Zor8u* src, Zor8u* dst) { store(dst, bytesDown<4>(load<Zor8u>(src - 4))); }
};

#endif

// Bytes from where a row is read and written to what is fetched meanwhile; 0 when nothing is.
struct FlipAhead {
  std::ptrdiff_t src, dst;
};

// Two streams that run apart are more than the processor foresees. Short rows are left to it, so that a narrow region
// does not drag in what lies beside it.
inline FlipAhead aheadInRow(std::ptrdiff_t rowBytes)
{
  constexpr std::ptrdiff_t ahead = 512;
  return rowBytes >= 2 * ahead ? FlipAhead{-ahead, ahead} : FlipAhead{0, 0};
}

// Rows with a step of any size and sign.
template <class P> struct RowsApart {
  P first;
  std::ptrdiff_t step;
};

template <int PixelBytes, bool KeepsFourth> class ReversedPixels {
public:
  static constexpr bool fillsVectors = 16 % PixelBytes == 0;
  static constexpr int bytes = PixelBytes == 1 ? vectorBytes : 16; // larger pixels gain nothing
  static constexpr std::ptrdiff_t lanes = bytes / PixelBytes;

  // The pixels of a vector that stand in front of `end`, in reverse order.
  static Vec<Zor8u, bytes> take(const Zor8u* end) { return reversedBefore<PixelBytes, bytes>(end); }
  // Pixels of a vector to dst.
  static void write(Zor8u* dst, Vec<Zor8u, bytes> x)
  {
    using T = std::conditional_t<PixelBytes == 4, std::uint8_t,
                                 std::conditional_t<PixelBytes == 8, std::uint16_t, std::uint32_t>>;
    if constexpr (KeepsFourth) x = select(as<Zor8u>(colourMask<T, bytes>()), x, load<Zor8u, bytes>(dst));
    store(dst, x);
  }
  static void writeOne(Zor8u* dst, const Zor8u* src)
  {
    std::memcpy(dst, src, KeepsFourth ? PixelBytes / 4 * 3 : PixelBytes);
  }

  template <bool Fetches>
  ZORI_INLINE static void row(const Zor8u* src, Zor8u* dst, std::ptrdiff_t pixels, FlipAhead ahead)
  {
    const Zor8u* const end = src + pixels * PixelBytes;
    const auto fetch = [=](std::ptrdiff_t at) ZORI_INLINE {
      if constexpr (Fetches) {
        prefetch(end - at * PixelBytes - 64 + ahead.src);
        prefetch(dst + at * PixelBytes + ahead.dst);
      }
    };
    std::ptrdiff_t i = 0;
    if constexpr (fillsVectors) {
      const auto from = [=](std::ptrdiff_t at) ZORI_INLINE { return take(end - at * PixelBytes); };
      const auto to = [=](std::ptrdiff_t at, Vec<Zor8u, bytes> x) ZORI_INLINE { write(dst + at * PixelBytes, x); };
      for (; i + 4 * lanes <= pixels; i += 4 * lanes) {
        fetch(i);
        if (bytes == 32) fetch(i + 2 * lanes);
        const auto a = from(i), b = from(i + lanes), c = from(i + 2 * lanes), d = from(i + 3 * lanes);
        to(i, a);
        to(i + lanes, b);
        to(i + 2 * lanes, c);
        to(i + 3 * lanes, d);
      }
      for (; i + lanes <= pixels; i += lanes) to(i, from(i));
      if (i < pixels) to(pixels - lanes, from(pixels - lanes)); // over some of those before
    } else {
      using Group = OddPixels<PixelBytes>;
      const auto group = [=](std::ptrdiff_t at) ZORI_INLINE {
        Group::reverse(end - (at + Group::count) * PixelBytes, dst + at * PixelBytes);
      };
      constexpr int together = 60 / (Group::count * PixelBytes);
      for (; i + together * Group::count < pixels; i += together * Group::count) {
        fetch(i);
        for (int k = 0; k < together; ++k) group(i + k * Group::count);
      }
      for (; i + Group::count < pixels; i += Group::count) group(i);
      for (; i < pixels; ++i) writeOne(dst + i * PixelBytes, end - (i + 1) * PixelBytes);
    }
  }

  // A row of fewer pixels than a vector has.
  static void shortRow(const Zor8u* src, Zor8u* dst, std::ptrdiff_t pixels)
  {
#if ZORI_VECTOR_BYTES == 32
    if (bytes == 32 && 2 * pixels >= lanes) {
      return reverseShortRow<PixelBytes>(src, dst, pixels * PixelBytes);
    }
#endif
    for (std::ptrdiff_t i = 0; i < pixels; ++i) writeOne(dst + i * PixelBytes, src + (pixels - 1 - i) * PixelBytes);
  }
};

// Pixel i of a row of dst = pixel pixels - 1 - i of the row of src. With KeepsFourth, the fourth of a pixel's four
// elements stays.
template <int PixelBytes, bool KeepsFourth>
[[gnu::noinline]] void copyReversed(RowsApart<const Zor8u*> src, RowsApart<Zor8u*> dst, std::ptrdiff_t pixels,
                                    std::ptrdiff_t rows, FlipAhead ahead)
{
  const UpperHalvesCleared atTheEnd;
  using Reversed = ReversedPixels<PixelBytes, KeepsFourth>;
  const auto eachRow = [&](auto row) ZORI_INLINE {
    for (; rows > 0; --rows, src.first += src.step, dst.first += dst.step) row(src.first, dst.first);
  };
  if (Reversed::fillsVectors && pixels < Reversed::lanes)
    eachRow([=](const Zor8u* s, Zor8u* d) ZORI_INLINE { Reversed::shortRow(s, d, pixels); });
  else if (ahead.dst)
    eachRow([=](const Zor8u* s, Zor8u* d) ZORI_INLINE { Reversed::template row<true>(s, d, pixels, ahead); });
  else eachRow([=](const Zor8u* s, Zor8u* d) ZORI_INLINE { Reversed::template row<false>(s, d, pixels, ahead); });
}

// The pixels from a on change places with those from b on, or with those in front of b, in reverse order. There are as
// many as a vector has, or more, and they do not overlap.
template <int PixelBytes, bool KeepsFourth, bool Turned>
[[gnu::noinline]] void exchangePixels(Zor8u* a, Zor8u* b, std::ptrdiff_t pixels)
{
  const UpperHalvesCleared atTheEnd;
  using Reversed = ReversedPixels<PixelBytes, KeepsFourth>;
  using V = Vec<Zor8u, Reversed::bytes>;
  const auto other = [=](std::ptrdiff_t i)
                       ZORI_INLINE { return Turned ? b - (i + Reversed::lanes) * PixelBytes : b + i * PixelBytes; };
  const auto taken = [](const Zor8u* p) ZORI_INLINE {
    return Turned ? Reversed::take(p + Reversed::bytes) : load<Zor8u, Reversed::bytes>(p);
  };
  const std::ptrdiff_t last = pixels - Reversed::lanes;
  const V lastHere = taken(a + last * PixelBytes), lastThere = taken(other(last));
  for (std::ptrdiff_t i = 0; i < last; i += Reversed::lanes) {
    const V here = taken(a + i * PixelBytes), there = taken(other(i));
    Reversed::write(a + i * PixelBytes, there);
    Reversed::write(other(i), here);
  }
  Reversed::write(a + last * PixelBytes, lastThere);
  Reversed::write(other(last), lastHere);
}

} // namespace ZORI_WIDTH
} // namespace zori
