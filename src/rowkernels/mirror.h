// Copies of one row with its pixels in reverse order. A pixel is 1, 2, 3, 4, 6, 8, 12 or 16 bytes.
//
// Where pixels fill a vector, its pixels are reversed in a register; pixels of 3 bytes change places in pairs, in lanes
// of 8 bytes. No instruction of this level moves single bytes freely, so bytes go by words and then within them.
#pragma once

#include "drivers.h"
#include "zori/types.h"

namespace zori {

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

// Pixel i of dst = pixel pixels - 1 - i of src. With KeepsFourth, the fourth of a pixel's four elements stays.
template <int PixelBytes, bool KeepsFourth>
[[gnu::noinline]] void owniFlipCopy(const Zor8u* src, Zor8u* dst, std::ptrdiff_t pixels, FlipAhead ahead)
{
  constexpr int used = KeepsFourth ? PixelBytes / 4 * 3 : PixelBytes;
  const Zor8u* const end = src + pixels * PixelBytes;
  const auto fetch = [=](std::ptrdiff_t at) {
    prefetch(end - at * PixelBytes - 64 + ahead.src);
    prefetch(dst + at * PixelBytes + ahead.dst);
  };
  const bool fetches = ahead.dst != 0;
  std::ptrdiff_t i = 0;
  if constexpr (16 % PixelBytes == 0) {
    constexpr std::ptrdiff_t lanes = 16 / PixelBytes;
    using T = std::conditional_t<PixelBytes == 4, std::uint8_t,
                                 std::conditional_t<PixelBytes == 8, std::uint16_t, std::uint32_t>>;
    const auto take = [=](std::ptrdiff_t at) {
      return reversed<PixelBytes>(load<Zor8u>(end - (at + lanes) * PixelBytes));
    };
    const auto write = [=](std::ptrdiff_t at, Vec<Zor8u> x) {
      Zor8u* const to = dst + at * PixelBytes;
      if constexpr (KeepsFourth) x = select(as<Zor8u>(colourMask<T>()), x, load<Zor8u>(to));
      store(to, x);
    };
    for (; i + 4 * lanes <= pixels; i += 4 * lanes) {
      if (fetches) fetch(i);
      const Vec<Zor8u> a = take(i), b = take(i + lanes), c = take(i + 2 * lanes), d = take(i + 3 * lanes);
      write(i, a);
      write(i + lanes, b);
      write(i + 2 * lanes, c);
      write(i + 3 * lanes, d);
    }
    for (; i + lanes <= pixels; i += lanes) write(i, take(i));
    if (i < pixels && lanes <= pixels) write(pixels - lanes, take(pixels - lanes)); // over some of those before
    else
      for (; i < pixels; ++i) std::memcpy(dst + i * PixelBytes, end - (i + 1) * PixelBytes, used);
  } else {
    using Group = OddPixels<PixelBytes>;
    const auto reverseGroup = [=](std::ptrdiff_t at) {
      Group::reverse(end - (at + Group::count) * PixelBytes, dst + at * PixelBytes);
    };
    for (; i + 5 * Group::count < pixels; i += 5 * Group::count) { // 60 bytes
      if (fetches) fetch(i);
      for (int k = 0; k < 5; ++k) reverseGroup(i + k * Group::count);
    }
    for (; i + Group::count < pixels; i += Group::count) reverseGroup(i);
    for (; i < pixels; ++i) std::memcpy(dst + i * PixelBytes, end - (i + 1) * PixelBytes, used);
  }
}

} // namespace zori
