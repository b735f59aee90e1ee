// zoriTranspose_{8u,16u,16s,32s}_{C1,C3,C4}{R,IR}: exchange of rows and columns.
//
// Pixels move whole, so that one walk serves all types and layouts of a pixel's size. It goes in square blocks whose
// lines of both sides stay in the cache, and asks for the lines of the next block while it works on one. A block goes in
// tiles that are turned in registers; tiles at the edges of the region overlap the ones before.
#include "frame/checks.h"
#include "region.h"
#include "rowkernels/transpose.h"
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

// How far the block that is worked on next lies from this one, on both sides; 0 when nothing is to be fetched.
struct Ahead {
  std::ptrdiff_t src = 0, dst = 0;
};

// Up to this size an image is taken to be in a cache already.
static constexpr long long cachedBytes = 1 << 18;

template <int PixelBytes> struct Transposer {
  using Tile = owniTransposeTile<PixelBytes>;
  // Pixels of a block's side, as measured: rows of whole cache lines, and both sides of a block in the first cache.
  static constexpr Count side = PixelBytes < 4 || PixelBytes == 6 ? 64 : PixelBytes == 4 ? 32 : 16;

  // One block, exact at the edges of the region. The region holds a tile at least.
  [[gnu::noinline]] static void block(const TransposedPair& p, Block b, Ahead ahead)
  {
    for (Count x = 0; x < b.width; x += Tile::columns) {
      const Count column = std::min(b.x + x, p.width - Count{Tile::columns});
      for (Count y = 0; y < b.height; y += Tile::rows) {
        const Count row = std::min(b.y + y, p.height - Count{Tile::rows});
        const Zor8u* const src = p.src + row * p.srcStep + column * PixelBytes;
        Zor8u* const dst = p.dst + column * p.dstStep + row * PixelBytes;
        if (ahead.src)
          Tile::fetch(src + ahead.src, p.srcStep, x / Tile::columns, dst + ahead.dst, p.dstStep, y / Tile::rows);
        // the lines behind a block are those of another: what is not its own stays out of it
        Tile::move(src, p.srcStep, dst, p.dstStep, column + Tile::columns == p.width, y + Tile::rows >= b.height);
      }
    }
  }

  static bool holdsTile(Count width, Count height) { return width >= Tile::columns && height >= Tile::rows; }

  // A region that is too narrow or too low for tiles.
  static void pixels(const TransposedPair& p)
  {
    for (Count y = 0; y < p.height; ++y)
      for (Count x = 0; x < p.width; ++x)
        std::memcpy(p.dst + x * p.dstStep + y * PixelBytes, p.src + y * p.srcStep + x * PixelBytes, PixelBytes);
  }

  // A region of one block.
  static void small(const TransposedPair& p)
  {
    if (holdsTile(p.width, p.height)) block(p, {0, 0, p.width, p.height}, {});
    else pixels(p);
  }

  static void region(const TransposedPair& p)
  {
    if (!holdsTile(p.width, p.height)) return pixels(p);
    const bool fetches = 1LL * p.width * p.height * PixelBytes >= cachedBytes;
    for (Count y = 0; y < p.height; y += side)
      for (Count x = 0; x < p.width; x += side) {
        // on to the right, and then to the start of the next row of blocks
        const bool isLast = x + side >= p.width;
        const Count nextX = isLast ? 0 : x + side, nextY = isLast ? y + side : y;
        Ahead ahead;
        if (fetches && nextX + side <= p.width && nextY + side <= p.height)
          ahead = {(nextY - y) * p.srcStep + (nextX - x) * PixelBytes, (nextX - x) * p.dstStep + (nextY - y) * PixelBytes};
        block(p, {x, y, std::min(side, p.width - x), std::min(side, p.height - y)}, ahead);
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

template <int PixelBytes> [[gnu::noinline]] ZorStatus owniTransposeSquare(void* pSrcDst, int srcDstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrcDst), nonEmpty(roiSize), require(roiSize.width == roiSize.height, ZorErrSize));
      s != ZorOk)
    return s;
  Transposer<PixelBytes>::square(static_cast<Zor8u*>(pSrcDst), srcDstStep, roiSize.width);
  return ZorOk;
}

template <int PixelBytes>
[[gnu::noinline]] ZorStatus owniTranspose(const void* pSrc, int srcStep, void* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  if (pSrc == pDst && srcStep == dstStep && roiSize.width == roiSize.height)
    return owniTransposeSquare<PixelBytes>(pDst, dstStep, roiSize);
  Transposer<PixelBytes>::region({static_cast<const Zor8u*>(pSrc), srcStep, static_cast<Zor8u*>(pDst), dstStep,
                                  roiSize.width, roiSize.height});
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

#define STAMP(type, layout)                                                                                            \
  ZorStatus zoriTranspose_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,      \
                                               ZorImgSize roiSize)                                                     \
  { return owniTranspose<channels<layout> * bytesOf<Zor##type>>(pSrc, srcStep, pDst, dstStep, roiSize); }              \
  ZorStatus zoriTranspose_##type##_##layout##IR(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize)                \
  { return owniTransposeSquare<channels<layout> * bytesOf<Zor##type>>(pSrcDst, srcDstStep, roiSize); }
#define STAMPS(type) STAMP(type, C1) STAMP(type, C3) STAMP(type, C4)
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32s)
#undef STAMPS
#undef STAMP
