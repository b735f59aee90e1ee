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

namespace zori {
namespace {

// Four channels of three: table c gives sample first + step * c, alpha is the fourth.
template <class D, int First, int Step, int AlphaAt, bool Writes> struct PixelsWithAlpha {
  static constexpr int src = 3, dst = 4, tables = 3;
  static constexpr int place(int c) { return First + Step * c; }
  D alpha;
  template <class Word> Word rest(const D* pixel) const
  {
    return asBits<Word>(Writes ? alpha : get<D>(pixel + AlphaAt)) << 8 * sizeof(D) * AlphaAt;
  }
};
template <class D, bool Writes> using AlphaFirst = PixelsWithAlpha<D, 1, 1, 0, Writes>;
template <class D, bool Writes> using ReversedAlphaLast = PixelsWithAlpha<D, 2, -1, 3, Writes>;

// A pixel of the 24u forms.
struct ThreeBytes {
  Zor8u bytes[3];
};

template <class S> inline constexpr int sampleBits = 8 * sizeof(S);

template <class S> ZorStatus indexBits(int nBitSize)
{
  return require(nBitSize >= 1 && nBitSize <= sampleBits<S>, ZorErrBitSize);
}

template <class S, class D, class Pixels>
void mapPalette(Rows<const S> src, Rows<D> dst, ZorImgSize roi, const D* const* tables, int nBitSize, Pixels pixels)
{
  const auto walk = [&](auto index) {
    for (int y = 0; y < roi.height; ++y) lookUpRow(src[y], dst[y], roi.width, tables, index, pixels);
  };
  if (nBitSize == sampleBits<S>) walk(WholeSample{});
  else walk(LowBits{(std::size_t{1} << nBitSize) - 1});
}

// E: what the table holds, and a pixel of the destination.
template <class E, class S, class D>
ZorStatus oneTable(const S* pSrc, int srcStep, D* pDst, int dstStep, ZorImgSize roiSize, const D* pTable, int nBitSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, pTable), nonEmpty(roiSize), indexBits<S>(nBitSize)); s != ZorOk)
    return s;
  const E* table = reinterpret_cast<const E*>(pTable);
  const Rows dst{reinterpret_cast<E*>(pDst), dstStep};
  mapPalette(Rows{pSrc, srcStep}, dst, roiSize, &table, nBitSize, AlikePixels<C1>{});
  return ZorOk;
}

template <class S>
ZorStatus checksOfThree(const void* pSrc, const void* pDst, ZorImgSize roiSize, const S* const* pTable, int nBitSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, pTable), nonEmpty(roiSize)); s != ZorOk) return s;
  return firstFailure(nonNullPlanes<3>(pTable), indexBits<S>(nBitSize));
}

template <class T, Layout L>
ZorStatus threeTables(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, const T* const* pTable,
                      int nBitSize)
{
  if (auto s = checksOfThree(pSrc, pDst, roiSize, pTable, nBitSize); s != ZorOk) return s;
  mapPalette(Rows{pSrc, srcStep}, Rows{pDst, dstStep}, roiSize, pTable, nBitSize, AlikePixels<L>{});
  return ZorOk;
}

template <template <class, bool> class Pixels, class T>
ZorStatus threeTablesAndAlpha(const T* pSrc, int srcStep, int alphaValue, T* pDst, int dstStep, ZorImgSize roiSize,
                              const T* const* pTable, int nBitSize)
{
  if (auto s = checksOfThree(pSrc, pDst, roiSize, pTable, nBitSize); s != ZorOk) return s;
  const Rows src{pSrc, srcStep};
  const Rows dst{pDst, dstStep};
  const T alpha = static_cast<T>(alphaValue);
  if (alpha == alphaValue) mapPalette(src, dst, roiSize, pTable, nBitSize, Pixels<T, true>{alpha});
  else mapPalette(src, dst, roiSize, pTable, nBitSize, Pixels<T, false>{});
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP_ONE(types, S, D, entry)                                                                                  \
  ZorStatus zoriLUTPalette_##types##_C1R(const Zor##S* pSrc, int srcStep, Zor##D* pDst, int dstStep, ZorImgSize roiSize,\
                                         const Zor##D* pTable, int nBitSize)                                           \
  { return oneTable<entry>(pSrc, srcStep, pDst, dstStep, roiSize, pTable, nBitSize); }
STAMP_ONE(8u, 8u, 8u, Zor8u) STAMP_ONE(16u, 16u, 16u, Zor16u) STAMP_ONE(16u8u, 16u, 8u, Zor8u)
STAMP_ONE(8u24u, 8u, 8u, ThreeBytes) STAMP_ONE(16u24u, 16u, 8u, ThreeBytes)
STAMP_ONE(8u32u, 8u, 32u, Zor32u) STAMP_ONE(16u32u, 16u, 32u, Zor32u)
#undef STAMP_ONE

#define STAMP_THREE(type, layout)                                                                                   \
  ZorStatus zoriLUTPalette_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,   \
                                                ZorImgSize roiSize, const Zor##type* const pTable[3], int nBitSize) \
  { return threeTables<Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize, pTable, nBitSize); }
STAMP_THREE(8u, C3) STAMP_THREE(8u, AC4) STAMP_THREE(16u, C3) STAMP_THREE(16u, AC4)
#undef STAMP_THREE

#define STAMP_ALPHA(name, type, pixels)                                                                               \
  ZorStatus name##_##type##_C3A0C4R(const Zor##type* pSrc, int srcStep, int alphaValue, Zor##type* pDst, int dstStep, \
                                    ZorImgSize roiSize, const Zor##type* const pTable[3], int nBitSize)               \
  { return threeTablesAndAlpha<pixels>(pSrc, srcStep, alphaValue, pDst, dstStep, roiSize, pTable, nBitSize); }
STAMP_ALPHA(zoriLUTPalette, 8u, AlphaFirst) STAMP_ALPHA(zoriLUTPalette, 16u, AlphaFirst)
STAMP_ALPHA(zoriLUTPaletteSwap, 8u, ReversedAlphaLast)
#undef STAMP_ALPHA
