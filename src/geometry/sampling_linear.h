// Row kernels of linear sampling.
//
// 8u has two forms. Linear8 takes any point; its kernels are seldom called and stay at 16 bytes. Inner8 takes points
// before the last column and row; where wide loads would leave the image they go through the plain form.
#pragma once

#include "rowkernels/drivers.h"
#include "rowkernels/simd_32_only.h"
#include "sampling_fine.h"

namespace zori {
namespace geometry {

namespace {

// ---- Groups of points ----

// Offsets of the last points of a row, and copies of the last one behind them.
template <int N> struct LastOffsets {
  std::int32_t at[N];
  LastOffsets(const std::int32_t* offset, int count)
  {
    for (int i = 0; i < N; ++i) at[i] = offset[std::min(i, count - 1)];
  }
};

// The last offset from which so many bytes may be read, or all offsets.
inline std::int32_t lastOffset(const Source& s, std::ptrdiff_t bytes)
{
  return static_cast<std::int32_t>(std::max(s.bytes() - bytes, -1LL));
}
constexpr std::int32_t anyOffset = INT32_MAX;

inline bool isBehind(const std::int32_t* offset, int count, std::int32_t last)
{
  using Whole = Vec<std::int32_t>;
  constexpr int lanes = Whole::size;
  const auto at = [=](int i) { return load<std::int32_t>(offset + i); };
  if (count < lanes) {
    bool isOne = false;
    for (int i = 0; i < count; ++i) isOne |= offset[i] > last;
    return isOne;
  }
  Whole greatest = at(count - lanes);
  int i = 0;
  for (; i + 2 * lanes <= count; i += 2 * lanes) greatest = max(greatest, max(at(i), at(i + lanes)));
  if (i + lanes <= count) greatest = max(greatest, at(i));
  return moveMask(greater(greatest, splat(last))) != 0;
}

// group(offsets, i, n) for points i to i + n - 1: N of them, at the end fewer with copies of the last one behind. Where
// one of their offsets is behind the last, plain(i, n) instead. Where none is, the first ones are left to
// several(offsets), which tells how many it has done.
template <int N, class Several, class Group, class Plain>
void byGroups(PointRow points, int count, std::int32_t lastOffset, Several several, Group group, Plain plain)
{
  const std::int32_t* const offset = points.offset();
  const bool hasRoom = lastOffset == anyOffset || !isBehind(offset, count, lastOffset);
  int i = hasRoom ? several(offset) : 0;
  if (hasRoom)
    for (; i + N <= count; i += N) group(offset + i, i, std::integral_constant<int, N>());
  for (; i < count; i += N) {
    const int n = std::min(N, count - i);
    std::int32_t at[N];
    for (int k = 0; k < N; ++k) at[k] = offset[i + std::min(k, n - 1)];
    if (hasRoom || !isBehind(at, N, lastOffset)) group(at, i, n);
    else plain(i, n);
  }
}

template <int N, class Group, class Plain>
void byGroups(PointRow points, int count, std::int32_t lastOffset, Group group, Plain plain)
{
  byGroups<N>(
    points, count, lastOffset, [](const std::int32_t*) { return 0; }, group, plain);
}

// ---- Kernels ----

template <class T, int Channels, int Processed> struct LinearPixels : FinePixels<T, Channels, Processed> {
  using FinePixels<T, Channels, Processed>::bytes, FinePixels<T, Channels, Processed>::written;

  // What is written of a pixel; the one behind it may be spoiled unless it is the last.
  static void storePixel(Zor8u* to, Vec<Zor8u, 16> x, bool isLast)
  {
    if constexpr (Processed != Channels || bytes == 3 || bytes == 6 || bytes == 12) {
      if (isLast || Processed != Channels) storePart(to, x, written);
      else if constexpr (written == 3) storeLow4(to, x);
      else if constexpr (written == 6) storeLow8(to, x);
      else store(to, x);
    } else {
      static_assert(bytes == 4 || bytes == 8 || bytes == 16);
      if constexpr (bytes == 4) storeLow4(to, x);
      else if constexpr (bytes == 8) storeLow8(to, x);
      else store(to, x);
    }
  }

  // ---- 8u ----

  // 8u, a pixel at a time: its samples and those of its right neighbour as pairs of words.
  static Vec<std::int16_t, 16> wordPairs(const Zor8u* p, bool exactly)
  {
    using U64 = Vec<std::uint64_t, 16>;
    U64 x;
    if (Channels == 3 && exactly)
      x = as<std::uint64_t>(loadLow4<Zor8u>(p)) | shiftLeft<32>(splat16<std::uint64_t>(get<std::uint16_t>(p + 4)));
    else x = loadLow8<std::uint64_t>(p);
    const U64 right = shiftRight<Channels * 8>(x);
    return as<std::int16_t>(widenLow(interleaveLow(as<Zor8u>(x), as<Zor8u>(right))));
  }

  static void linear8Pixels(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const std::int32_t *const offset = points.offset(), *const wx = points.wholeX(), *const wy = points.wholeY();
    const Zor8u* const below = plane + s.step;
    // 8 bytes are read where 6 are wanted, but not at the very end
    const long long lastWide = s.bytes() - s.step - 8;
    const I32x4 upperHalf = splat16<std::int32_t>(static_cast<std::int32_t>(0xffff0000u));
    const I32x4 half = splat16<std::int32_t>(524288);
    for (int i = 0; i < count; ++i, dst += bytes) {
      const bool exactly = Channels == 3 && offset[i] > lastWide;
      const auto weight = as<std::int16_t>(splat16<std::int32_t>(wx[i]));
      const I32x4 t0 = mulAddPairs(wordPairs(plane + offset[i], exactly), weight);
      const I32x4 t1 = mulAddPairs(wordPairs(below + offset[i], exactly), weight);
      const I32x4 both = shiftRight<8>(t0) | (shiftLeft<8>(t1) & upperHalf);
      const I32x4 out =
        shiftRight<20>(mulAddPairs(as<std::int16_t>(both), as<std::int16_t>(splat16<std::int32_t>(wy[i]))) + half);
      const auto words = narrowSat<std::int16_t>(out, out);
      storePixel(dst, narrowSat<Zor8u>(words, words), i == count - 1);
    }
  }

  // 8u C1, eight points at once.
  static void linear8(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const std::int32_t *const offset = points.offset(), *const wx = points.wholeX(), *const wy = points.wholeY();
    const Zor8u* const below = plane + s.step;
    const I32x4 upperHalf = splat16<std::int32_t>(static_cast<std::int32_t>(0xffff0000u));
    const I32x4 half = splat16<std::int32_t>(524288);
    const auto eight = [=](const std::int32_t* at, int i) {
      const auto above = as<Zor8u>(gatherWords(plane, at)), under = as<Zor8u>(gatherWords(below, at));
      const auto four = [=](Vec<std::uint16_t, 16> p, Vec<std::uint16_t, 16> q, int k) {
        const auto weight = load16<std::int16_t>(wx + i + k);
        const I32x4 t0 = mulAddPairs(as<std::int16_t>(p), weight), t1 = mulAddPairs(as<std::int16_t>(q), weight);
        const I32x4 both = shiftRight<8>(t0) | (shiftLeft<8>(t1) & upperHalf);
        return shiftRight<20>(mulAddPairs(as<std::int16_t>(both), load16<std::int16_t>(wy + i + k)) + half);
      };
      const auto words =
        narrowSat<std::int16_t>(four(widenLow(above), widenLow(under), 0), four(widenHigh(above), widenHigh(under), 4));
      return narrowSat<Zor8u>(words, words);
    };
    int i = 0;
    for (; i + 8 <= count; i += 8) storeLow8(dst + i, eight(offset + i, i));
    if (i < count)
      storePart(dst + i, eight(LastOffsets<8>(offset + i, count - i).at, i), static_cast<std::size_t>(count - i));
  }

  // ---- 8u, before the last column and row. Fractions are below 1 there, and all of it goes in words:
  // (p * (16384 - f) + q * f) >> 8 = (p << 6) + ((q - p << 7) * 2f >> 16), and so on for the rows.

  using Words = Vec<std::int16_t>;

  static Words acrossWords(Words left, Words right, Words twiceX)
  {
    return shiftLeft<6>(left) + mulHigh(shiftLeft<7>(right - left), twiceX);
  }
  static Words downWords(Words above, Words below, Words twiceY)
  {
    const Words difference = below - above, share = mulHigh(difference + difference, twiceY);
#if ZORI_VECTOR_BYTES == 32
    return mulRounded(above + share, splat<std::int16_t>(1 << 9));
#else
    return shiftRight<6>(above + splat<std::int16_t>(32) + share);
#endif
  }
  // In the low half.
  static Vec<Zor8u> bytesOf16(Words x) { return narrowSat<Zor8u>(x, x); }

  [[gnu::noinline]] static void inner8Plain(const Source& s, const Zor8u* plane, PointRow points, int first, int count,
                                            Zor8u* dst)
  {
    for (int i = first; i < first + count; ++i) {
      const Zor8u* const p = plane + points.offset()[i];
      for (int c = 0; c < Processed; ++c)
        dst[std::ptrdiff_t{i} * bytes + c] =
          blended8(p + c, p + s.step + c, Channels, points.twiceX()[i] >> 1, points.twiceY()[i] >> 1);
    }
  }

  static void inner8(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const UpperHalvesCleared atTheEnd;
    const std::int16_t *const fx = points.twiceX(), *const fy = points.twiceY();
    const Zor8u* const below = plane + s.step;
    byGroups<Words::size>(
      points, count, anyOffset,
      [=](const std::int32_t* at, int i, auto n) {
        const auto twiceX = load<std::int16_t>(fx + i);
        const auto row = [=](Vec<std::uint16_t> p) {
          return acrossWords(as<std::int16_t>(p & splat<std::uint16_t>(0xff)), as<std::int16_t>(shiftRight<8>(p)),
                             twiceX);
        };
        const auto out =
          bytesOf16(downWords(row(gatherLanes(plane, at)), row(gatherLanes(below, at)), load<std::int16_t>(fy + i)));
        if (n == Words::size) storeLowHalf(dst + i, out);
        else storePart(dst + i, sixteenBytes<0>(out), static_cast<std::size_t>(n));
      },
      [](int, int) {});
  }

#if ZORI_VECTOR_BYTES == 32
  // Bytes for words: of a pixel and its right neighbour, eight bytes, the samples of both in pairs; two bytes to four
  // words each.
  struct ByteOrders {
    alignas(32) Zor8u pairs[32], spread[32], packed[32];
    constexpr ByteOrders() : pairs{}, spread{}, packed{}
    {
      for (int i = 0; i < 32; ++i) {
        const int channel = i / 2 % 4, pixel = i / 8;
        pairs[i] = channel < Channels ? static_cast<Zor8u>(pixel % 2 * 8 + channel + i % 2 * Channels) : Zor8u{0x80};
        spread[i] = static_cast<Zor8u>(2 * pixel + i % 2);
        packed[i] = static_cast<Zor8u>(i % 16 < 12 ? i % 16 / 3 * 4 + i % 3 : 0x80);
      }
      for (int i = 16; i < 32; ++i) packed[i] = packed[i - 16];
    }
  };
  static constexpr ByteOrders byteOrders{};
#endif

  // As many pixels as there are eight bytes in a vector, four words each, from those of a row at these offsets and
  // their right neighbours. A byte more is read where another row follows.
  template <bool IsAbove> static Words acrossPixels(const Zor8u* p, const std::int32_t* at, Words twiceX)
  {
#if ZORI_VECTOR_BYTES == 32
    const auto x = gatherEightsOfFour<Zor8u>(p, at);
    const auto pairs = shuffleBytesLocal(x, loadAligned<Zor8u>(byteOrders.pairs));
    const auto left = as<Zor8s>(splat<std::uint16_t>(64)), difference = as<Zor8s>(splat<std::uint16_t>(0x40c0));
    const Words by64 = mulAddPairs(pairs, difference); // 64 * (right - left)
    return mulAddPairs(pairs, left) + mulHigh(by64 + by64, twiceX);
#else
    if constexpr (Channels == 4) {
      const auto x = as<Zor8u>(gatherPairs(p, at));
      return acrossWords(as<std::int16_t>(widenLowLocal(x)), as<std::int16_t>(widenHighLocal(x)), twiceX);
    } else {
      const auto two = [=](int from) {
        return interleaveLow(loadLow4<std::uint32_t>(p + at[0] + from), loadLow4<std::uint32_t>(p + at[1] + from));
      };
      const auto right = IsAbove ? two(3) : shiftRight<8>(two(2));
      return acrossWords(as<std::int16_t>(widenLow(as<Zor8u>(two(0)))), as<std::int16_t>(widenLow(as<Zor8u>(right))),
                         twiceX);
    }
#endif
  }
  static Words spread(const std::int16_t* f)
  {
#if ZORI_VECTOR_BYTES == 32
    return as<std::int16_t>(
      shuffleBytesLocal(as<Zor8u>(splat(get<std::uint64_t>(f))), loadAligned<Zor8u>(byteOrders.spread)));
#else
    const auto two = loadLow4<std::int16_t>(f);
    const auto pairs = as<std::int32_t>(interleaveLow(two, two));
    return as<std::int16_t>(interleaveLow(pairs, pairs));
#endif
  }
  // Of twice as many pixels.
  struct TwoWords {
    Words first, second;
  };
  static TwoWords spreadTwo(const std::int16_t* f)
  {
#if ZORI_VECTOR_BYTES == 32
    return {spread(f), spread(f + 4)};
#else
    const auto four = loadLow8<std::int16_t>(f);
    const auto pairs = as<std::int32_t>(interleaveLow(four, four));
    return {as<std::int16_t>(shuffle<1, 1, 0, 0>(pairs)), as<std::int16_t>(shuffle<3, 3, 2, 2>(pairs))};
#endif
  }

  // `n` pixels of four bytes each, behind which `left` are yet to come: up to two of them may be spoiled.
  static void storeFours(Zor8u* dst, Vec<Zor8u> x, int n, int left)
  {
    constexpr int most = vectorBytes / 8;
    if constexpr (Channels == 4) {
      if (n == most) {
        Vec<Zor8u, 16> pixels = sixteenBytes<0>(x);
        if constexpr (Processed != Channels)
          pixels = select(colourMask<Zor8u, 16>(), pixels, most == 4 ? load16<Zor8u>(dst) : loadLow8<Zor8u>(dst));
        if constexpr (most == 4) store(dst, pixels);
        else storeLow8(dst, pixels);
        return;
      }
    } else if (left >= 2) {
#if ZORI_VECTOR_BYTES == 32
      store(dst, shuffleBytesLocal(lowHalf(x), loadAligned<Zor8u, 16>(byteOrders.packed)));
#else
      storeLow4(dst, x);
      storeLow4(dst + 3, bytesDown<4>(x));
#endif
      return;
    }
    Zor8u pixels[vectorBytes];
    store(pixels, x);
    for (int i = 0; i < n; ++i) std::memcpy(dst + i * bytes, pixels + 4 * i, written);
  }

  // Twice as many, behind which two more may be spoiled unless they are the last.
  template <class IsEnd> static void storeEights(Zor8u* dst, Vec<Zor8u> x, [[maybe_unused]] IsEnd isEnd)
  {
    if constexpr (Channels == 4) {
      store(dst, Processed == Channels ? x : select(colourMask<Zor8u>(), x, load<Zor8u>(dst)));
    } else {
#if ZORI_VECTOR_BYTES == 32
      const auto pixels = shuffleBytesLocal(x, loadAligned<Zor8u>(byteOrders.packed));
      store(dst, lowHalf(pixels));
      if (!isEnd) return store(dst + 12, highHalf(pixels));
      storeLow8(dst + 12, highHalf(pixels));
      storeLow4(dst + 20, bytesDown<8>(highHalf(pixels)));
#else
      if (isEnd) return storeFours(dst, x, 4, 0);
      const auto pixels = as<std::uint64_t>(x), second = shiftRight<32>(pixels); // and the fourth
      storeLow8(dst, pixels);
      storeLow8(dst + 3, second);
      storeHigh8(dst + 6, pixels);
      storeHigh8(dst + 9, second);
#endif
    }
  }

  static void inner8Pixels(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const UpperHalvesCleared atTheEnd;
    const std::int16_t *const fx = points.twiceX(), *const fy = points.twiceY();
    const Zor8u* const below = plane + s.step;
    constexpr bool readsOn = Channels == 3 && vectorBytes == 32; // eight bytes where six are wanted
    constexpr int some = vectorBytes / 8;
    const auto words = [=](const std::int32_t* at, Words twiceX, Words twiceY) {
      return downWords(acrossPixels<true>(plane, at, twiceX), acrossPixels<false>(below, at, twiceX), twiceY);
    };
    byGroups<some>(
      points, count, readsOn ? lastOffset(s, s.step + 8) : anyOffset,
      [=](const std::int32_t* at) { // two groups of `some` at once, the last ones over those before them
        if (count < 2 * some) return 0;
        const auto several = [=](int i, auto isEnd) {
          const TwoWords twiceX = spreadTwo(fx + i), twiceY = spreadTwo(fy + i);
          const auto x = narrowSat<Zor8u>(words(at + i, twiceX.first, twiceY.first),
                                          words(at + i + some, twiceX.second, twiceY.second));
          storeEights(dst + std::ptrdiff_t{i} * bytes, x, isEnd);
        };
        constexpr int spoiled = Channels == 3 ? 2 : 0; // pixels
        int i = 0;
        for (; i + 2 * some + spoiled <= count; i += 2 * some) several(i, std::false_type());
        if (i + 2 * some < count) several(i, std::true_type());
        several(count - 2 * some, std::true_type());
        return count;
      },
      [=](const std::int32_t* at, int i, auto n) {
        storeFours(dst + std::ptrdiff_t{i} * bytes, bytesOf16(words(at, spread(fx + i), spread(fy + i))), n,
                   count - i - n);
      },
      [=](int i, int n) { inner8Plain(s, plane, points, i, n, dst); });
  }

  // ---- 16u and 32f ----

  using Single = Vec<float>;
  // The first row of a pixel and its right neighbour, and the second.
  struct Pair {
    Single left, right;
  };

  static Single blend(Pair above, Pair below, Single fx, Single fy)
  {
    const Single rest = splat(1.0f) - fx;
    const Single t0 = above.left * rest + above.right * fx, t1 = below.left * rest + below.right * fx;
    return t0 + (t1 - t0) * fy;
  }

  // As it is stored: samples side by side from the first lane on.
  static Vec<Zor8u> samples(Single x)
  {
    if constexpr (std::is_same_v<T, Zor16u>) {
      const auto whole = toInt(x);
      return as<Zor8u>(narrowSat<std::uint16_t>(whole, whole));
    } else {
      return as<Zor8u>(x);
    }
  }

  // Points of C1, as many as lanes.
  static Pair planePairs(const Zor8u* plane, const std::int32_t* at)
  {
    if constexpr (std::is_same_v<T, Zor16u>) {
      const auto x = gather32<1>(plane, at);
      return {toFloat(as<std::int32_t>(x & splat<std::uint32_t>(0xffff))),
              toFloat(as<std::int32_t>(shiftRight<16>(x)))};
    } else {
      constexpr int half = Single::size / 2;
      const auto a = as<double>(gatherPairs<half>(plane, at)), b = as<double>(gatherPairs<half>(plane, at + 2));
      return {as<float>(interleaveLowLocal(a, b)), as<float>(interleaveHighLocal(a, b))};
    }
  }

  static void linear(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const UpperHalvesCleared atTheEnd;
    const float *const fx = points.singleX(), *const fy = points.singleY();
    const Zor8u* const below = plane + s.step;
    byGroups<Single::size>(
      points, count, anyOffset,
      [=](const std::int32_t* at, int i, auto n) {
        const auto out =
          samples(blend(planePairs(plane, at), planePairs(below, at), load<float>(fx + i), load<float>(fy + i)));
        Zor8u* const to = dst + i * bytes;
        if (n < Single::size) storePart(to, out, static_cast<std::size_t>(n) * bytes);
        else if constexpr (bytes == 2) storeLowHalf(to, out);
        else store(to, out);
      },
      [](int, int) {});
  }

  // Pixels of three or four samples and their right neighbours, one in every 16 bytes of a vector.
  static Pair pixelPairs(const Zor8u* p, const std::int32_t* at)
  {
    if constexpr (std::is_same_v<T, Zor16u>) {
      const auto single = [](Vec<T, 16> x) { return toFloat(as<std::int32_t>(widenedHalf(x))); };
      if constexpr (Channels == 4) return {single(gatherHalf<T>(p, at)), single(gatherHalf<T>(p + 8, at))};
      else return {single(gatherHalf<T>(p, at)), single(as<T>(shiftRight<16>(gatherHalf<std::uint64_t>(p + 4, at))))};
    } else {
      const Single left = gather128<float>(p, at);
      if constexpr (Channels == 4) return {left, gather128<float>(p + 16, at)};
      const Single right = gather128<float>(p + 8, at);
      return {left, shuffleLocal<3, 3, 2, 1>(right, right)};
    }
  }

  static void linearPixels(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const UpperHalvesCleared atTheEnd;
    const float *const fx = points.singleX(), *const fy = points.singleY();
    const Zor8u* const below = plane + s.step;
    constexpr int most = vectorBytes / 16;
    byGroups<most>(
      points, count, anyOffset,
      [=](const std::int32_t* at, int i, auto n) {
        const auto out =
          samples(blend(pixelPairs(plane, at), pixelPairs(below, at), splatEach(fx + i), splatEach(fy + i)));
        Zor8u* const to = dst + std::ptrdiff_t{i} * bytes;
        storePixel(to, sixteenBytes<0>(out), i == count - 1);
        if constexpr (most == 2)
          if (n == 2) storePixel(to + bytes, second(out), i + 2 == count);
      },
      [](int, int) {});
  }
  // The second pixel of a vector's samples.
  static Vec<Zor8u, 16> second(Vec<Zor8u> x)
  {
    if constexpr (bytesOf<T> == 4) return sixteenBytes<vectorBytes / 16 - 1>(x);
    else return bytesDown<8>(sixteenBytes<0>(x));
  }
};

} // namespace

} // namespace geometry
} // namespace zori
