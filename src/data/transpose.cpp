// zoriTranspose_{8u,16u,16s,32s}_{C1,C3,C4}{R,IR}: exchange of rows and columns.
//
// Pixels move whole, so that one walk serves all types and layouts of a pixel's size. It goes in square blocks whose
// lines of both sides stay in the cache, and asks for the lines of the next block while it works on one. A block goes
// in tiles that are turned in registers; tiles at the edges of the region overlap the ones before. Large images are
// turned into a buffer, and written from there past the cache.
#include "rowkernels/transpose.h"
#include "frame/checks.h"
#include "region.h"
#include "zori/data.h"

#include <algorithm>

namespace zori {
namespace {

// Counts of pixels, wide enough to go past the end of any region.
using Count = std::ptrdiff_t;

// A source region and where its columns go.
struct TransposedPair {
  const Zor8u* src;
  std::ptrdiff_t srcStep;
  Zor8u* dst;
  std::ptrdiff_t dstStep;
  Count width, height; // of the source
};

struct Block {
  Count x, y, width, height;
};

// How far the block that is worked on next lies from this one, on both sides.
struct Ahead {
  std::ptrdiff_t src, dst;
};

// From this size on an image is written past the cache.
static constexpr long long streamedBytes = 3 << 19;

template <int PixelBytes, int Bytes = vectorBytes> struct Transposer {
  using Tile = TransposeTile<PixelBytes, Bytes>;
  // For regions of fewer rows than a tile, where tiles of less rows exist.
  static constexpr bool hasLower = TransposeTile<PixelBytes, Bytes>::rows > 8;
  using Lower = Transposer<PixelBytes, 16>;
  // Pixels of a block's side, as measured: rows of whole cache lines, and both sides of a block in the first cache.
  static constexpr Count side = PixelBytes < 4 || PixelBytes == 6 ? 64 : PixelBytes == 4 ? 32 : 16;

  // Up to this size an image is taken to be in a cache already, from where short rows need no fetching.
  static constexpr long long cachedBytes = PixelBytes <= 8 ? 1 << 20 : 1 << 18;

  // Tiles inside go without the tests of what is exact, where that was measured to pay.
  static constexpr bool splitsTiles = PixelBytes <= 8 && (PixelBytes != 3 || vectorBytes == 32);

  // One block, exact at the edges of the region. The region holds a tile at least.
  template <bool Fetches>
  ZORI_ONE_COPY static void block(const TransposedPair& pair, const Block& where, const Ahead& ahead)
  {
    const TransposedPair p = pair; // copies stay in registers
    const Block b = where;
    for (Count x = 0; x < b.width; x += Tile::columns) {
      const Count column = std::min(b.x + x, p.width - Count{Tile::columns});
      const bool isLast = column + Tile::columns + Tile::behind > p.width;
      for (Count y = 0; y < b.height; y += Tile::rows) {
        const Count row = std::min(b.y + y, p.height - Count{Tile::rows});
        const Zor8u* const src = p.src + row * p.srcStep + column * PixelBytes;
        Zor8u* const dst = p.dst + column * p.dstStep + row * PixelBytes;
        if constexpr (Fetches)
          Tile::fetch(src + ahead.src, p.srcStep, static_cast<int>(x) / Tile::columns, dst + ahead.dst, p.dstStep,
                      static_cast<int>(y) / Tile::rows);
        // the lines behind a block are those of another: what is not its own stays out of it
        const bool isLow = y + Tile::rows + Tile::behind > b.height;
        if (!splitsTiles || isLast || isLow) Tile::moveExactly(src, p.srcStep, dst, p.dstStep, isLast, isLow);
        else Tile::move(src, p.srcStep, dst, p.dstStep);
      }
    }
  }

  static bool holdsTile(Count width, Count height) { return width >= Tile::columns && height >= Tile::rows; }

  // A region that is too narrow or too low for tiles.
  static void pixels(const TransposedPair& pair)
  {
    const TransposedPair p = pair; // stays in registers
    for (Count y = 0; y < p.height; ++y)
      for (Count x = 0; x < p.width; ++x)
        std::memcpy(p.dst + x * p.dstStep + y * PixelBytes, p.src + y * p.srcStep + x * PixelBytes, PixelBytes);
  }

  // A region of one block.
  static void small(const TransposedPair& p)
  {
    if (holdsTile(p.width, p.height)) block<false>(p, {0, 0, p.width, p.height}, {});
    else if constexpr (hasLower) Lower::small(p);
    else pixels(p);
  }

  static void region(const TransposedPair& p)
  {
    if constexpr (hasLower)
      if (!holdsTile(p.width, p.height)) return Lower::region(p);
    if (!holdsTile(p.width, p.height)) return pixels(p);
    const bool streams = 1LL * p.width * p.height * PixelBytes >= streamedBytes && p.width >= lanes;
    const Count done = streams ? streamedRows(p) : 0;
    const TransposedPair rest = {p.src + done * p.srcStep, p.srcStep, p.dst + done * PixelBytes, p.dstStep, p.width,
                                 p.height - done};
    if (holdsTile(rest.width, rest.height)) blocks(rest);
    else if constexpr (hasLower) Lower::region(rest);
    else pixels(rest);
  }

  static void blocks(const TransposedPair& p)
  {
    const bool fetches = 1LL * p.width * p.height * PixelBytes >= cachedBytes;
    for (Count y = 0; y < p.height; y += side)
      for (Count x = 0; x < p.width; x += side) {
        // on to the right, and then to the start of the next row of blocks
        const bool isLast = x + side >= p.width;
        const Count nextX = isLast ? 0 : x + side, nextY = isLast ? y + side : y;
        const Block here = {x, y, std::min(side, p.width - x), std::min(side, p.height - y)};
        if (fetches && nextX + side <= p.width && nextY + side <= p.height)
          block<true>(
            p, here,
            {(nextY - y) * p.srcStep + (nextX - x) * PixelBytes, (nextX - x) * p.dstStep + (nextY - y) * PixelBytes});
        else block<false>(p, here, {});
      }
  }

  // What does not fit the caches is bound by how its lines are met: bands of `run` source rows go block by block
  // through a buffer, and each of its rows from there into the destination as whole cache lines, written past the
  // cache. Narrow blocks, so that their lines, those ahead and the buffer share the first cache.
  static constexpr Count runBytes = PixelBytes % 3 ? 256 : 192, run = runBytes / PixelBytes;
  static constexpr Count lanes = std::max<Count>(Tile::columns, 32 / PixelBytes / Tile::columns * Tile::columns);
  static_assert(runBytes % 64 == 0 && run % Tile::rows == 0);

  static Count toCacheLine(const Zor8u* p) { return static_cast<Count>(-reinterpret_cast<std::uintptr_t>(p) & 63); }

  // Whole bands, from the top. Gives the rows of the source whose pixels are all written.
  static Count streamedRows(const TransposedPair& p)
  {
    // The first whole line of each destination row begins somewhere behind the band's first pixel, so that its last one
    // ends behind the band's last pixel: up to there more rows are turned. What is in front is the band's before.
    Count before = 0;
    for (Count x = 0; x < std::min(p.width, Count{64}); ++x)
      before = std::max(before, toCacheLine(p.dst + x * p.dstStep));
    constexpr Count tileBytes = Tile::rows * PixelBytes;
    const Count rows = run + (before + tileBytes - 1) / tileBytes * Tile::rows;
    constexpr std::ptrdiff_t turnedStep = runBytes + tileBytes + 96; // a tile more than 63 bytes, and what it spoils
    alignas(64) Zor8u turned[lanes * turnedStep];

    Count y = 0;
    for (; y + rows <= p.height; y += run)
      for (Count at = 0; at < p.width; at += lanes) {
        const Count x = std::min(at, p.width - lanes);
        turnBlock(p, x, y, rows, turned, turnedStep);
        for (Count i = 0; i < lanes; ++i) {
          const Zor8u* const from = turned + i * turnedStep;
          Zor8u* const to = p.dst + (x + i) * p.dstStep + y * PixelBytes;
          const Count head = toCacheLine(to);
          if (y == 0) std::memcpy(to, from, static_cast<std::size_t>(head));
          for (Count k = head; k < head + runBytes; k += vectorBytes) stream(to + k, load<Zor8u>(from + k));
        }
      }
    streamFence();
    return y;
  }

  // The block of `lanes` columns at x, y into the buffer. Goes along its rows, for each lies in a page of its own, and
  // fetches those of the fourth block to come.
  static void turnBlock(const TransposedPair& p, Count x, Count y, Count rows, Zor8u* turned, std::ptrdiff_t turnedStep)
  {
    constexpr Count ahead = 4 * lanes;
    const bool isLast = x + lanes + Tile::behind > p.width, fetches = x + ahead < p.width;
    for (Count i = 0; i < rows; i += Tile::rows) {
      const Zor8u* const src = p.src + (y + i) * p.srcStep + x * PixelBytes;
      if (fetches)
        for (Count k = 0; k < Tile::rows; ++k) prefetch(src + k * p.srcStep + ahead * PixelBytes);
      for (Count k = 0; k < lanes; k += Tile::columns)
        if (isLast && k + Tile::columns == lanes)
          Tile::moveExactly(src + k * PixelBytes, p.srcStep, turned + k * turnedStep + i * PixelBytes, turnedStep, true,
                            false);
        else Tile::move(src + k * PixelBytes, p.srcStep, turned + k * turnedStep + i * PixelBytes, turnedStep);
    }
  }

  // In place: each block below the diagonal changes places with its mirror image above it.
  static void square(Zor8u* first, std::ptrdiff_t step, Count length)
  {
    alignas(64) Zor8u turned[side * side * PixelBytes];
    constexpr std::ptrdiff_t turnedStep = side * PixelBytes;
    for (Count y = 0; y < length; y += side)
      for (Count x = 0; x <= y; x += side) {
        const Count width = std::min(side, length - x), height = std::min(side, length - y);
        Zor8u* const lower = first + y * step + x * PixelBytes;
        Zor8u* const upper = first + x * step + y * PixelBytes;
        small({lower, step, turned, turnedStep, width, height});
        if (x != y) small({upper, step, lower, step, height, width});
        for (Count i = 0; i < width; ++i)
          std::memcpy(upper + i * step, turned + i * turnedStep, static_cast<std::size_t>(height) * PixelBytes);
      }
  }
};

template <int PixelBytes> ZORI_ONE_COPY ZorStatus transposeSquare(void* pSrcDst, int srcDstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrcDst), nonEmpty(roiSize), require(roiSize.width == roiSize.height, ZorErrSize));
      s != ZorOk)
    return s;
  const UpperHalvesCleared atTheEnd;
  Transposer<PixelBytes>::square(static_cast<Zor8u*>(pSrcDst), srcDstStep, roiSize.width);
  return ZorOk;
}

template <int PixelBytes>
ZORI_ONE_COPY ZorStatus transposeRegion(const void* pSrc, int srcStep, void* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  if (pSrc == pDst && srcStep == dstStep && roiSize.width == roiSize.height)
    return transposeSquare<PixelBytes>(pDst, dstStep, roiSize);
  const UpperHalvesCleared atTheEnd;
  Transposer<PixelBytes>::region(
    {static_cast<const Zor8u*>(pSrc), srcStep, static_cast<Zor8u*>(pDst), dstStep, roiSize.width, roiSize.height});
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout)                                                                                            \
  ZorStatus zoriTranspose_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,      \
                                               ZorImgSize roiSize)                                                     \
  { return transposeRegion<channels<layout> * bytesOf<Zor##type>>(pSrc, srcStep, pDst, dstStep, roiSize); }              \
  ZorStatus zoriTranspose_##type##_##layout##IR(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize)                \
  { return transposeSquare<channels<layout> * bytesOf<Zor##type>>(pSrcDst, srcDstStep, roiSize); }
#define STAMPS(type) STAMP(type, C1) STAMP(type, C3) STAMP(type, C4)
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32s)
#undef STAMPS
#undef STAMP
