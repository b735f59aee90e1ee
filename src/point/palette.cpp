// zoriLUTPalette_{8u,16u}_{C1,C3,AC4,C3A0C4}R, zoriLUTPalette_{8u24u,8u32u,16u8u,16u24u,16u32u}_C1R,
// zoriLUTPaletteSwap_8u_C3A0C4R: the low bits of a sample are its index in the caller's table.
//
//   C1, C3, AC4        dst[c] = table[c][src[c] & mask], mask = 2^nBitSize - 1
//   C3A0C4             alpha first: dst = {alpha, table[0][src[0]], table[1][src[1]], table[2][src[2]]}
//   C3A0C4 of Swap     alpha last:  dst = {table[2][src[2]], table[1][src[1]], table[0][src[0]], alpha}
//
// An alpha out of the type's range leaves that sample of the destination as it was. A table is read only at the indices
// that occur, so it may be shorter than the mask allows. Steps are not tested.
#include "frame/checks.h"
#include "frame/layout.h"
#include "rowkernels/lookup.h"
#include "zori/point.h"

#include <limits>

namespace zori {

struct AlphaFirst {
  static constexpr int src = 3, dst = 4, tables = 3, alpha = 0;
  static constexpr int place(int c) { return c + 1; }
};
struct ReversedAlphaLast {
  static constexpr int src = 3, dst = 4, tables = 3, alpha = 3;
  static constexpr int place(int c) { return 2 - c; }
};

// A pixel of the 24u forms.
struct ThreeBytes {
  Zor8u bytes[3];
};

template <class S> inline constexpr int sampleBits = 8 * sizeof(S);

template <class S> ZorStatus indexBits(int nBitSize)
{
  return require(nBitSize >= 1 && nBitSize <= sampleBits<S>, ZorErrBitSize);
}

// What follows the lookups of a row: nothing, or one sample of each pixel set to a constant.
struct NoAlpha {
  template <class D> void operator()(D*, int) const {}
};
template <class D, class Pixels> struct SetAlpha {
  int value;
  void operator()(D* row, int pixels) const
  {
    if (value < 0 || value > std::numeric_limits<D>::max()) return;
    for (std::ptrdiff_t x = 0; x < pixels; ++x) put(row + x * Pixels::dst + Pixels::alpha, static_cast<D>(value));
  }
};

template <class Pixels, class S, class D, class Alpha>
void lookUpRegion(Rows<const S> src, Rows<D> dst, ZorImgSize roi, const D* const* tables, int nBitSize, Alpha setAlpha)
{
  const auto walk = [&](auto index) {
    for (int y = 0; y < roi.height; ++y) {
      lookUpRow<Pixels>(src[y], dst[y], roi.width, tables, index);
      setAlpha(dst[y], roi.width);
    }
  };
  if (nBitSize == sampleBits<S>) walk(WholeSample{});
  else walk(LowBits{(std::size_t{1} << nBitSize) - 1});
}

// E: what a table holds, where that is not an element of the destination.
template <class E, class S, class D>
ZorStatus oneTable(const S* pSrc, int srcStep, D* pDst, int dstStep, ZorImgSize roiSize, const D* pTable, int nBitSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, pTable), nonEmpty(roiSize), indexBits<S>(nBitSize)); s != ZorOk) return s;
  const E* table = reinterpret_cast<const E*>(pTable);
  lookUpRegion<AlikePixels<C1>>(Rows{pSrc, srcStep}, Rows{reinterpret_cast<E*>(pDst), dstStep}, roiSize, &table, nBitSize, NoAlpha{});
  return ZorOk;
}

template <class Pixels, class S, class D, class Alpha>
ZorStatus threeTables(const S* pSrc, int srcStep, D* pDst, int dstStep, ZorImgSize roiSize, const D* const* pTable, int nBitSize,
                      Alpha setAlpha)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, pTable), nonEmpty(roiSize)); s != ZorOk) return s;
  if (auto s = firstFailure(nonNullPlanes<3>(pTable), indexBits<S>(nBitSize)); s != ZorOk) return s;
  lookUpRegion<Pixels>(Rows{pSrc, srcStep}, Rows{pDst, dstStep}, roiSize, pTable, nBitSize, setAlpha);
  return ZorOk;
}

} // namespace zori

using namespace zori;

#define STAMP_ONE(types, S, D, entry)                                                                                    \
  ZorStatus zoriLUTPalette_##types##_C1R(const Zor##S* pSrc, int srcStep, Zor##D* pDst, int dstStep, ZorImgSize roiSize,  \
                                         const Zor##D* pTable, int nBitSize)                                             \
  { return oneTable<entry>(pSrc, srcStep, pDst, dstStep, roiSize, pTable, nBitSize); }
STAMP_ONE(8u, 8u, 8u, Zor8u) STAMP_ONE(16u, 16u, 16u, Zor16u) STAMP_ONE(16u8u, 16u, 8u, Zor8u)
STAMP_ONE(8u24u, 8u, 8u, ThreeBytes) STAMP_ONE(16u24u, 16u, 8u, ThreeBytes)
STAMP_ONE(8u32u, 8u, 32u, Zor32u) STAMP_ONE(16u32u, 16u, 32u, Zor32u)
#undef STAMP_ONE

#define STAMP_THREE(type, layout)                                                                                        \
  ZorStatus zoriLUTPalette_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,         \
                                                ZorImgSize roiSize, const Zor##type* const pTable[3], int nBitSize)      \
  { return threeTables<AlikePixels<layout>>(pSrc, srcStep, pDst, dstStep, roiSize, pTable, nBitSize, NoAlpha{}); }
STAMP_THREE(8u, C3) STAMP_THREE(8u, AC4) STAMP_THREE(16u, C3) STAMP_THREE(16u, AC4)
#undef STAMP_THREE

#define STAMP_ALPHA(name, type, pixels)                                                                                  \
  ZorStatus name##_##type##_C3A0C4R(const Zor##type* pSrc, int srcStep, int alphaValue, Zor##type* pDst, int dstStep,     \
                                    ZorImgSize roiSize, const Zor##type* const pTable[3], int nBitSize)                  \
  {                                                                                                                      \
    return threeTables<pixels>(pSrc, srcStep, pDst, dstStep, roiSize, pTable, nBitSize,                                  \
                               SetAlpha<Zor##type, pixels>{alphaValue});                                                 \
  }
STAMP_ALPHA(zoriLUTPalette, 8u, AlphaFirst) STAMP_ALPHA(zoriLUTPalette, 16u, AlphaFirst)
STAMP_ALPHA(zoriLUTPaletteSwap, 8u, ReversedAlphaLast)
#undef STAMP_ALPHA
