// Tiles: a few pixels by a few, their rows turned into columns in registers. A pixel is 1, 2, 3, 4, 6, 8, 12 or 16
// bytes.
//
// Pixels of 1, 2, 4 and 8 bytes: rows are interleaved in pairs, in lanes that double from the pixel up to 8 bytes;
// every half of 16 bytes is then a column. Vectors of 32 bytes hold two rows, one half a tile apart, so that a column
// ends in one piece. Pixels of 3 and 6 bytes: by the byte shuffle they are 4 and 8 bytes long in between; without it,
// two rows of pixels of 3 bytes meet in lanes of 8 bytes. What is longer moves as it is.
#pragma once

#include "drivers.h"
#include "zori/types.h"

namespace zori {
inline namespace ZORI_WIDTH {

// N vectors of 16 / sizeof(T) columns, which make columns of 8 or 16 bytes for each row that a vector holds.
template <class T, int N, int Bytes>
inline void storeColumns(const Vec<T, Bytes> (&row)[N], Zor8u* dst, std::ptrdiff_t dstStep)
{
  if constexpr (sizeof(T) == 8) {
    if constexpr (N == 2) {
      store(dst, interleaveLowLocal(row[0], row[1]));
      store(dst + dstStep, interleaveHighLocal(row[0], row[1]));
    } else {
      static_assert(N == 1);
#if ZORI_VECTOR_BYTES == 32
      if constexpr (Bytes == 32) {
        const auto columns = shuffleQuarters<3, 1, 2, 0>(row[0]);
        store(dst, lowHalf(columns));
        store(dst + dstStep, highHalf(columns));
        return;
      }
#endif
      if constexpr (Bytes == 16) {
        storeLow8(dst, row[0]);
        storeHigh8(dst + dstStep, row[0]);
      }
    }
  } else {
    using Pair = WiderT<T>;
    Vec<Pair, Bytes> low[N / 2], high[N / 2];
    for (int i = 0; i < N / 2; ++i) {
      low[i] = as<Pair>(interleaveLowLocal(row[2 * i], row[2 * i + 1]));
      high[i] = as<Pair>(interleaveHighLocal(row[2 * i], row[2 * i + 1]));
    }
    storeColumns(low, dst, dstStep);
    storeColumns(high, dst + 8 / static_cast<std::ptrdiff_t>(sizeof(T)) * dstStep, dstStep);
  }
}

// The first N of 8 or 16 bytes. What lies behind them may be read, or spoiled, unless exact.
template <int N> inline Vec<Zor8u, 16> loadFront(const Zor8u* p, bool exact)
{
  if constexpr (N == 12) {
    if (exact) return as<Zor8u>(interleaveLow(loadLow8<std::uint64_t>(p), as<std::uint64_t>(loadLow4<Zor8u>(p + 8))));
  } else if (N < 16 && exact) {
    return loadPart16<Zor8u>(p, N);
  }
  return N <= 8 ? loadLow8<Zor8u>(p) : load<Zor8u, 16>(p);
}
template <int N> inline void storeFront(Zor8u* p, Vec<Zor8u, 16> x, bool exact)
{
  if (N == 12 && exact) {
    storeLow8(p, x);
    storeLow4(p + 8, bytesDown<8>(x));
  } else if (N < 16 && exact) {
    storePart(p, x, N);
  } else if (N <= 8) storeLow8(p, x);
  else store(p, x);
}

#if ZORI_VECTOR_BYTES == 32

// 12 / PixelBytes columns of as many rows twice, of pixels of 3 or 6 bytes. In between a pixel is a lane.
template <int PixelBytes> struct OddColumns {
  static constexpr int lane = PixelBytes / 3 * 4, count = 12 / PixelBytes, rows = 2 * count;
  using T = std::conditional_t<PixelBytes == 3, std::uint32_t, std::uint64_t>;

  ZORI_INLINE static void move(const Zor8u* src, std::ptrdiff_t srcStep, Zor8u* dst, std::ptrdiff_t dstStep,
                               bool exactReads, bool exactWrites)
  {
    Vec<T> row[count];
    for (int i = 0; i < count; ++i) {
      const Zor8u* const p = src + i * srcStep;
      const auto both = joined(loadFront<12>(p, exactReads), loadFront<12>(p + count * srcStep, exactReads));
      row[i] = as<T>(shuffleBytesLocal(both, index(indexes.apart)));
    }
    const auto write = [=](int column, Vec<T> x) ZORI_INLINE {
      const auto pixels = shuffleBytesLocal(as<Zor8u>(x), index(indexes.together));
      Zor8u* const to = dst + column * dstStep;
      storeFront<12>(to, lowHalf(pixels), false);
      storeFront<12>(to + 12, highHalf(pixels), exactWrites);
    };
    if constexpr (PixelBytes == 6) {
      write(0, interleaveLowLocal(row[0], row[1]));
      write(1, interleaveHighLocal(row[0], row[1]));
    } else {
      using Pair = std::uint64_t;
      const auto low0 = as<Pair>(interleaveLowLocal(row[0], row[1])),
                 low1 = as<Pair>(interleaveLowLocal(row[2], row[3])),
                 high0 = as<Pair>(interleaveHighLocal(row[0], row[1])),
                 high1 = as<Pair>(interleaveHighLocal(row[2], row[3]));
      write(0, as<T>(interleaveLowLocal(low0, low1)));
      write(1, as<T>(interleaveHighLocal(low0, low1)));
      write(2, as<T>(interleaveLowLocal(high0, high1)));
      write(3, as<T>(interleaveHighLocal(high0, high1)));
    }
  }

private:
  struct Indexes {
    alignas(16) Zor8u apart[16] = {}, together[16] = {};
    constexpr Indexes()
    {
      for (int i = 0; i < 16; ++i) {
        apart[i] = static_cast<Zor8u>(i % lane < PixelBytes ? i / lane * PixelBytes + i % lane : 0x80);
        together[i] = static_cast<Zor8u>(i < 12 ? i / PixelBytes * lane + i % PixelBytes : 0x80);
      }
    }
  };
  static constexpr Indexes indexes{};
  static Vec<Zor8u> index(const Zor8u* of)
  {
    const auto x = loadAligned<Zor8u, 16>(of);
    return joined(x, x);
  }
};

#else
// Four columns of two rows of pixels of 3 bytes.
ZORI_INLINE inline void storeThreeByteColumns(const Zor8u* src, std::ptrdiff_t srcStep, Zor8u* dst,
                                              std::ptrdiff_t dstStep, bool exactReads, bool exactWrites)
{
  using U64x2 = Vec<std::uint64_t>;
  const auto pixelPairs = [=](const Zor8u* p) {
    return as<std::uint64_t>(
      interleaveLow(loadLow8<std::uint64_t>(p), as<std::uint64_t>(loadFront<6>(p + 6, exactReads))));
  };
  const U64x2 first = splat<std::uint64_t>(0xffffff), second = splat<std::uint64_t>(0xffffff000000);
  const U64x2 a = pixelPairs(src), b = pixelPairs(src + srcStep); // a0 a1 . . | a2 a3 . .
  const U64x2 even = (a & first) | shiftLeft<24>(b), odd = (shiftRight<24>(a) & first) | (b & second);
  if (exactWrites) {
    storePart(dst, even, 6);
    storePart(dst + dstStep, odd, 6);
    storePart(dst + 2 * dstStep, bytesDown<8>(even), 6);
    storePart(dst + 3 * dstStep, bytesDown<8>(odd), 6);
  } else {
    storeLow8(dst, even);
    storeLow8(dst + dstStep, odd);
    storeHigh8(dst + 2 * dstStep, even);
    storeHigh8(dst + 3 * dstStep, odd);
  }
}

#endif

// A tile of columns by rows pixels, in vectors of Bytes.
template <int PixelBytes, int Bytes = vectorBytes> struct TransposeTile {
  static constexpr bool isLane = 8 % PixelBytes == 0;
  static constexpr int columns = isLane ? 16 / PixelBytes : 4,
                       rows = PixelBytes <= 3 || PixelBytes == 6 ? Bytes / 2 : 8;

  // Where the pixel's size is odd to the processor, a little is read behind the last column, and a little is spoiled
  // behind the last row's pixels in the destination: parts of so many pixels.
  static constexpr int behind = vectorBytes == 32 && PixelBytes == 3 ? 2 : 1;
  static void move(const Zor8u* src, std::ptrdiff_t srcStep, Zor8u* dst, std::ptrdiff_t dstStep)
  {
    moveAs<false>(src, srcStep, dst, dstStep, false, false);
  }
  // The same without either, or both.
  static void moveExactly(const Zor8u* src, std::ptrdiff_t srcStep, Zor8u* dst, std::ptrdiff_t dstStep, bool exactReads,
                          bool exactWrites)
  {
    moveAs<!isLane>(src, srcStep, dst, dstStep, exactReads, exactWrites);
  }

  // Asks for a share of the cache lines of a tile that lies as this one in a block to come, so that the tiles of a
  // block share out its lines: `column` and `row` count the tiles of the block.
  [[gnu::always_inline]] static void fetch(const Zor8u* src, std::ptrdiff_t srcStep, int column, const Zor8u* dst,
                                           std::ptrdiff_t dstStep, int row)
  {
    constexpr int lines = (columns * rows * PixelBytes + 63) / 64; // as many on either side
    constexpr int share = lines <= 2 ? 2 : lines <= 4 ? 4 : 8;
    constexpr int srcShare = share, dstShare = share < columns ? share : columns;
    for (int i = 0; i < srcShare; ++i) prefetch(src + (column * srcShare % rows + i) * srcStep);
    for (int i = 0; i < dstShare; ++i)
      for (int line = 0; line < rows * PixelBytes; line += 64)
        prefetch(dst + (row * dstShare % columns + i) * dstStep + line);
  }

private:
  template <bool Exact>
  ZORI_INLINE static void moveAs(const Zor8u* src, std::ptrdiff_t srcStep, Zor8u* dst, std::ptrdiff_t dstStep,
                                 bool exactReads, bool exactWrites)
  {
    for (int y = 0; y < rows; y += unitRows) {
      const Zor8u* const from = src + y * srcStep;
      Zor8u* const to = dst + y * PixelBytes;
      const bool exactHere = Exact && exactWrites && y + unitRows == rows;
      if constexpr (isLane) {
        using T =
          std::conditional_t<PixelBytes == 1, std::uint8_t,
                             std::conditional_t<PixelBytes == 2, std::uint16_t,
                                                std::conditional_t<PixelBytes == 4, std::uint32_t, std::uint64_t>>>;
        constexpr int vectors = unitRows * 16 / Bytes;
        Vec<T, Bytes> row[vectors];
        for (int i = 0; i < vectors; ++i) row[i] = rowsFrom<T>(from + i * srcStep, vectors * srcStep);
        storeColumns(row, to, dstStep);
#if ZORI_VECTOR_BYTES == 32
      } else if constexpr (PixelBytes == 3 || PixelBytes == 6) {
        using Part = OddColumns<PixelBytes>;
        for (int x = 0; x < columns; x += Part::count)
          Part::move(from + x * PixelBytes, srcStep, to + x * dstStep, dstStep,
                     Exact && exactReads && x + Part::count == columns, exactHere);
#else
      } else if constexpr (PixelBytes == 3) {
        storeThreeByteColumns(from, srcStep, to, dstStep, Exact && exactReads, exactHere);
#endif
      } else {
        for (int x = 0; x < columns; ++x)
          storeFront<PixelBytes>(to + x * dstStep,
                                 loadFront<PixelBytes>(from + x * PixelBytes, Exact && exactReads && x == columns - 1),
                                 exactHere);
      }
    }
  }

#if ZORI_VECTOR_BYTES == 32
  static constexpr int oddRows = PixelBytes == 3 ? 8 : PixelBytes == 6 ? 4 : 1;
#else
  static constexpr int oddRows = PixelBytes == 3 ? 2 : 1;
#endif
  static constexpr int unitRows = !isLane ? oddRows : (PixelBytes == 1 ? 8 : 16 / PixelBytes) * (Bytes / 16);

  // The row at p, and in 32 bytes the one that stands `distance` bytes behind it.
  template <class T> static Vec<T, Bytes> rowsFrom(const Zor8u* p, [[maybe_unused]] std::ptrdiff_t distance)
  {
#if ZORI_VECTOR_BYTES == 32
    if constexpr (Bytes == 32) return joined(load<T, 16>(p), load<T, 16>(p + distance));
#endif
    if constexpr (Bytes == 16) return load<T, 16>(p);
  }
};

} // namespace ZORI_WIDTH
} // namespace zori
