// Tiles: a few pixels by a few, their rows turned into columns in registers. A pixel is 1, 2, 3, 4, 6, 8, 12 or 16
// bytes.
//
// Pixels of 1, 2, 4 and 8 bytes: rows are interleaved in pairs, in lanes that double from the pixel up to 8 bytes;
// every half of a vector is then a column. Pixels of 3 bytes: two rows meet in lanes of 8 bytes. What is longer moves
// as it is.
#pragma once

#include "drivers.h"
#include "zori/types.h"

namespace zori {
inline namespace ZORI_WIDTH {

// N rows of 16 / sizeof(T) columns, which make columns of 8 or 16 bytes.
template <class T, int N> inline void storeColumns(const Vec<T> (&row)[N], Zor8u* dst, std::ptrdiff_t dstStep)
{
  if constexpr (sizeof(T) == 8) {
    if constexpr (N == 1) {
      storeLow8(dst, row[0]);
      storeHigh8(dst + dstStep, row[0]);
    } else {
      static_assert(N == 2);
      store(dst, interleaveLow(row[0], row[1]));
      store(dst + dstStep, interleaveHigh(row[0], row[1]));
    }
  } else {
    using Pair = WiderT<T>;
    Vec<Pair> low[N / 2], high[N / 2];
    for (int i = 0; i < N / 2; ++i) {
      low[i] = as<Pair>(interleaveLow(row[2 * i], row[2 * i + 1]));
      high[i] = as<Pair>(interleaveHigh(row[2 * i], row[2 * i + 1]));
    }
    storeColumns(low, dst, dstStep);
    storeColumns(high, dst + 8 / static_cast<std::ptrdiff_t>(sizeof(T)) * dstStep, dstStep);
  }
}

// The first N of 8 or 16 bytes. What lies behind them may be read, or spoiled, unless exact.
template <int N> inline Vec<Zor8u> loadFront(const Zor8u* p, bool exact)
{
  if (N < 16 && exact) return loadPart<Zor8u>(p, N);
  return N <= 8 ? loadLow8<Zor8u>(p) : load<Zor8u>(p);
}
template <int N> inline void storeFront(Zor8u* p, Vec<Zor8u> x, bool exact)
{
  if (N < 16 && exact) storePart(p, x, N);
  else if (N <= 8) storeLow8(p, x);
  else store(p, x);
}

// Four columns of two rows of pixels of 3 bytes.
inline void storeThreeByteColumns(const Zor8u* src, std::ptrdiff_t srcStep, Zor8u* dst, std::ptrdiff_t dstStep,
                                  bool exactReads, bool exactWrites)
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

// A tile of columns by rows pixels.
//
// Where the pixel's size is odd to the processor, a little is read behind the last column unless exactReads, and
// less than a pixel is spoiled behind the last row's pixels in the destination unless exactWrites.
template <int PixelBytes> struct TransposeTile {
  static constexpr bool isLane = 8 % PixelBytes == 0;
  static constexpr int columns = isLane ? 16 / PixelBytes : 4, rows = 8;

  static void move(const Zor8u* src, std::ptrdiff_t srcStep, Zor8u* dst, std::ptrdiff_t dstStep, bool exactReads,
                   bool exactWrites)
  {
    for (int y = 0; y < rows; y += unitRows) {
      const Zor8u* const from = src + y * srcStep;
      Zor8u* const to = dst + y * PixelBytes;
      const bool isLast = y + unitRows == rows;
      if constexpr (isLane) {
        using T =
          std::conditional_t<PixelBytes == 1, std::uint8_t,
                             std::conditional_t<PixelBytes == 2, std::uint16_t,
                                                std::conditional_t<PixelBytes == 4, std::uint32_t, std::uint64_t>>>;
        Vec<T> row[unitRows];
        for (int i = 0; i < unitRows; ++i) row[i] = load<T>(from + i * srcStep);
        storeColumns(row, to, dstStep);
      } else if constexpr (PixelBytes == 3) {
        storeThreeByteColumns(from, srcStep, to, dstStep, exactReads, exactWrites && isLast);
      } else {
        for (int x = 0; x < columns; ++x)
          storeFront<PixelBytes>(to + x * dstStep,
                                 loadFront<PixelBytes>(from + x * PixelBytes, exactReads && x == columns - 1),
                                 exactWrites && isLast);
      }
    }
  }

  // Asks for a share of the cache lines of a tile that lies as this one in a block to come, so that the tiles of a
  // block share out its lines: `column` and `row` count the tiles of the block.
  static void fetch(const Zor8u* src, std::ptrdiff_t srcStep, int column, const Zor8u* dst, std::ptrdiff_t dstStep,
                    int row)
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
  static constexpr int unitRows = PixelBytes == 3 ? 2 : !isLane ? 1 : PixelBytes == 1 ? 8 : 16 / PixelBytes;
};

} // namespace ZORI_WIDTH
} // namespace zori
