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

// Cache lines of a rectangle, fetched one by one.
class Lines {
public:
  Lines() = default;
  Lines(const Zor8u* first, std::ptrdiff_t step, int rows, std::ptrdiff_t rowBytes)
    : row_(first), step_(step), rowBytes_(rowBytes), rows_(rows)
  {}
  void fetch()
  {
    if (rows_ == 0) return;
    prefetch(row_ + at_);
    at_ += 64;
    if (at_ >= rowBytes_) {
      at_ = 0;
      row_ += step_;
      --rows_;
    }
  }

private:
  const Zor8u* row_ = nullptr;
  std::ptrdiff_t step_ = 0, rowBytes_ = 0, at_ = 0;
  int rows_ = 0;
};

// The lines of a block that is worked on next.
struct NextLines {
  Lines src, dst;
  NextLines() = default;
  NextLines(const TransposedPair& p, Block b, int pixelBytes)
    : src(p.src + b.y * p.srcStep + b.x * pixelBytes, p.srcStep, b.height, b.width * pixelBytes),
      dst(p.dst + b.x * p.dstStep + b.y * pixelBytes, p.dstStep, b.width, b.height * pixelBytes)
  {}
};

template <int PixelBytes, int side_ = 0> struct Transposer {
  using Tile = owniTransposeTile<PixelBytes>;
  // Pixels of a block's side: its rows are whole cache lines, where they start at one.
  static constexpr int side = side_ ? side_ : std::max(16, 64 / (PixelBytes & -PixelBytes));
  static constexpr int linesOfTile = (Tile::columns * Tile::rows * PixelBytes + 63) / 64;

  // One block, exact at the edges of the region. The region holds a tile at least.
  static void block(const TransposedPair& p, Block b, NextLines next)
  {
    for (int x = b.x; x < b.x + b.width; x += Tile::columns) {
      const int column = std::min(x, p.width - Tile::columns);
      for (int y = b.y; y < b.y + b.height; y += Tile::rows) {
        const int row = std::min(y, p.height - Tile::rows);
        const Zor8u* const src = p.src + row * p.srcStep + column * PixelBytes;
        Zor8u* const dst = p.dst + column * p.dstStep + row * PixelBytes;
        if (Tile::overreach && (column + Tile::columns == p.width || row + Tile::rows == p.height))
          exactTile(src, p.srcStep, dst, p.dstStep);
        else Tile::move(src, p.srcStep, dst, p.dstStep);
        for (int i = 0; i < linesOfTile; ++i) {
          next.src.fetch();
          next.dst.fetch();
        }
      }
    }
  }

  // A tile that reads and writes its own pixels alone.
  static void exactTile(const Zor8u* src, std::ptrdiff_t srcStep, Zor8u* dst, std::ptrdiff_t dstStep)
  {
    constexpr int rowBytes = Tile::columns * PixelBytes, step = rowBytes + 16;
    Zor8u from[Tile::rows * step], to[Tile::columns * step];
    for (int y = 0; y < Tile::rows; ++y) std::memcpy(from + y * step, src + y * srcStep, rowBytes);
    Tile::move(from, step, to, step);
    for (int x = 0; x < Tile::columns; ++x) std::memcpy(dst + x * dstStep, to + x * step, Tile::rows * PixelBytes);
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
    const auto at = [&p](int x, int y) { return Block{x, y, std::min(side, p.width - x), std::min(side, p.height - y)}; };
    for (int y = 0; y < p.height; y += side)
      for (int x = 0; x < p.width; x += side) {
        const bool isLast = x + side >= p.width;
        NextLines next;
        if (!isLast) next = NextLines(p, at(x + side, y), PixelBytes);
        else if (y + side < p.height) next = NextLines(p, at(0, y + side), PixelBytes);
        block(p, at(x, y), next);
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
