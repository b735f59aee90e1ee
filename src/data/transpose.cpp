// zoriTranspose_{8u,16u,16s,32s}_{C1,C3,C4}{R,IR}: exchange of rows and columns.
//
// Pixels move whole, so that one walk serves all types and layouts of a pixel's size. It goes in square blocks whose
// lines of both sides stay in the cache, and asks for the lines of the next block while it works on one. A block goes in
// tiles that are turned in registers; tiles at the edges of the region overlap the ones before.
#include "frame/checks.h"
#include "frame/corelib.h"
#include "region.h"
#include "rowkernels/transpose.h"
#include "zori/data.h"

#include <algorithm>

namespace zori {

// A source region and where its columns go.
struct TransposedPair {
  const Zor8u* src;
  std::ptrdiff_t srcStep;
  Zor8u* dst;
  std::ptrdiff_t dstStep;
  int width, height; // of the source
};

struct Block {
  int x, y, width, height;
};

// Up to this size an image is taken to be in a cache already.
static constexpr long long cachedBytes = 1 << 18;

// How far the block that is worked on next lies from this one, on both sides; 0 when nothing is to be fetched.
struct Ahead {
  std::ptrdiff_t src = 0, dst = 0;
};

template <int PixelBytes, int side_ = 0> struct Transposer {
  using Tile = owniTransposeTile<PixelBytes>;
  // Pixels of a block's side: its rows are whole cache lines, where they start at one.
  static constexpr int side = side_ ? side_ : std::max(16, 64 / (PixelBytes & -PixelBytes));

  // One block, exact at the edges of the region. The region holds a tile at least.
  [[gnu::noinline]] static void block(const TransposedPair& p, Block b, Ahead ahead)
  {
    for (int x = 0; x < b.width; x += Tile::columns) {
      const int column = std::min(b.x + x, p.width - Tile::columns);
      for (int y = 0; y < b.height; y += Tile::rows) {
        const int row = std::min(b.y + y, p.height - Tile::rows);
        const Zor8u* const src = p.src + row * p.srcStep + column * PixelBytes;
        Zor8u* const dst = p.dst + column * p.dstStep + row * PixelBytes;
        if (ahead.src)
          Tile::fetch(src + ahead.src, p.srcStep, x / Tile::columns, dst + ahead.dst, p.dstStep, y / Tile::rows);
        if (Tile::overreach && (column + Tile::columns == p.width || row + Tile::rows == p.height))
          exactTile(src, p.srcStep, dst, p.dstStep);
        else Tile::move(src, p.srcStep, dst, p.dstStep);
      }
    }
  }

  // A tile that reads and writes its own pixels alone.
  [[gnu::noinline]] static void exactTile(const Zor8u* src, std::ptrdiff_t srcStep, Zor8u* dst, std::ptrdiff_t dstStep)
  {
    constexpr int rowBytes = Tile::columns * PixelBytes, columnBytes = Tile::rows * PixelBytes;
    constexpr int toStep = columnBytes + Tile::overreach;
    Zor8u from[Tile::rows * rowBytes + Tile::overreach], to[Tile::columns * toStep];
    for (int y = 0; y < Tile::rows; ++y) std::memcpy(from + y * rowBytes, src + y * srcStep, rowBytes);
    Tile::move(from, rowBytes, to, toStep);
    for (int x = 0; x < Tile::columns; ++x) std::memcpy(dst + x * dstStep, to + x * toStep, columnBytes);
  }

  static bool holdsTile(int width, int height) { return width >= Tile::columns && height >= Tile::rows; }

  // A region that is too narrow or too low for tiles.
  static void pixels(const TransposedPair& p)
  {
    for (int y = 0; y < p.height; ++y)
      for (int x = 0; x < p.width; ++x)
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
    for (int y = 0; y < p.height; y += side)
      for (int x = 0; x < p.width; x += side) {
        // on to the right, and then to the start of the next row of blocks
        const bool isLast = x + side >= p.width;
        const int nextX = isLast ? 0 : x + side, nextY = isLast ? y + side : y;
        Ahead ahead;
        if (fetches && nextX + side <= p.width && nextY + side <= p.height)
          ahead = {(nextY - y) * p.srcStep + (nextX - x) * PixelBytes, (nextX - x) * p.dstStep + (nextY - y) * PixelBytes};
        block(p, {x, y, std::min(side, p.width - x), std::min(side, p.height - y)}, ahead);
      }
  }

  static void square(Zor8u* first, std::ptrdiff_t step, int length)
  {
    alignas(64) Zor8u turned[side * side * PixelBytes];
    constexpr std::ptrdiff_t turnedStep = side * PixelBytes;
    for (int y = 0; y < length; y += side)
      for (int x = 0; x <= y; x += side) {
        const int width = std::min(side, length - x), height = std::min(side, length - y);
        Zor8u* const lower = first + y * step + x * PixelBytes;
        Zor8u* const upper = first + x * step + y * PixelBytes;
        small({lower, step, turned, turnedStep, width, height});
        if (x != y) small({upper, step, lower, step, height, width});
        for (int i = 0; i < width; ++i)
          std::memcpy(upper + i * step, turned + i * turnedStep, static_cast<std::size_t>(height) * PixelBytes);
      }
  }
};

template <int PixelBytes>
ZorStatus owniTranspose(const void* pSrc, int srcStep, void* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  Transposer<PixelBytes>::region({static_cast<const Zor8u*>(pSrc), srcStep, static_cast<Zor8u*>(pDst), dstStep,
                                  roiSize.width, roiSize.height});
  return ZorOk;
}

template <int PixelBytes> ZorStatus owniTransposeSquare(void* pSrcDst, int srcDstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrcDst), nonEmpty(roiSize), require(roiSize.width == roiSize.height, ZorErrSize));
      s != ZorOk)
    return s;
  Transposer<PixelBytes>::square(static_cast<Zor8u*>(pSrcDst), srcDstStep, roiSize.width);
  return ZorOk;
}

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
