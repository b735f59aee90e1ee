// zoriCopy_{8u,16u,16s,32s,32f}_{C3P3,C4P4,P3C3,P4C4,C3C1,C4C1,C1C3,C1C4}R, ..._{C3,C4}CR, zoriDup_8u_C1C3R: channels
// apart and together.
//
// In the forms of one channel a pointer addresses that channel, and nothing is written beside it.
#include "frame/checks.h"
#include "region.h"
#include "rowkernels/channels.h"
#include "zori/data.h"

namespace zori {
namespace {

template <class T, int N>
ZorStatus splitRegion(const T* pSrc, int srcStep, T* const* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc), nonNullPlanes<N>(pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  using R = Raw<T>;
  Planar<R, N> dst;
  for (int k = 0; k < N; ++k) dst.run[k] = raw(pDst[k]);
  const ZorImgSize rows = joinedRows(roiSize, Pitch{N * bytesOf<T>, srcStep}, Pitch{bytesOf<T>, dstStep});
  moveChannels<true>(PixelRows<Interleaved<const R, N>>{{raw(pSrc)}, srcStep}, PixelRows<Planar<R, N>>{dst, dstStep},
                     rows.width, rows.height, SameChannels{}, zero<R>());
  return ZorOk;
}

template <class T, int N>
ZorStatus mergeRegion(const T* const* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNullPlanes<N>(pSrc), nonNull(pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  using R = Raw<T>;
  Planar<const R, N> src;
  for (int k = 0; k < N; ++k) src.run[k] = raw(pSrc[k]);
  const ZorImgSize rows = joinedRows(roiSize, Pitch{bytesOf<T>, srcStep}, Pitch{N * bytesOf<T>, dstStep});
  moveChannels<true>(PixelRows<Planar<const R, N>>{src, srcStep}, PixelRows<Interleaved<R, N>>{{raw(pDst)}, dstStep},
                     rows.width, rows.height, SameChannels{}, zero<R>());
  return ZorOk;
}

template <class T, int SrcStride, int DstStride>
ZorStatus copyChannel(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  const Rows<const Raw<T>> src{raw(pSrc), srcStep};
  const Rows<Raw<T>> dst{raw(pDst), dstStep};
  if constexpr (DstStride == 1) takeChannel<Raw<T>, SrcStride>(src, dst, roiSize.width, roiSize.height);
  else moveChannel<Raw<T>, SrcStride, DstStride>(src, dst, roiSize.width, roiSize.height);
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriDup_8u_C1C3R(const Zor8u* pSrc, int srcStep, Zor8u* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  const ZorImgSize rows = joinedRows(roiSize, Pitch{1, srcStep}, Pitch{3, dstStep});
  moveChannels<true>(PixelRows<Planar<const Zor8u, 1>>{{{pSrc}}, srcStep},
                     PixelRows<Interleaved<Zor8u, 3>>{{{pDst}}, dstStep}, rows.width, rows.height, OneChannel{},
                     zero<Zor8u>());
  return ZorOk;
}

// clang-format off
#define STAMP(type, layouts, S, D)                                                                          \
  ZorStatus zoriCopy_##type##_##layouts##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep, \
                                           ZorImgSize roiSize)                                              \
  { return copyChannel<Zor##type, S, D>(pSrc, srcStep, pDst, dstStep, roiSize); }
#define STAMP_PLANES(type, n)                                                                               \
  ZorStatus zoriCopy_##type##_C##n##P##n##R(const Zor##type* pSrc, int srcStep, Zor##type* const pDst[n],   \
                                            int dstStep, ZorImgSize roiSize)                                \
  { return splitRegion<Zor##type, n>(pSrc, srcStep, pDst, dstStep, roiSize); }                              \
  ZorStatus zoriCopy_##type##_P##n##C##n##R(const Zor##type* const pSrc[n], int srcStep, Zor##type* pDst,   \
                                            int dstStep, ZorImgSize roiSize)                                \
  { return mergeRegion<Zor##type, n>(pSrc, srcStep, pDst, dstStep, roiSize); }
#define STAMPS(type)                                                                                        \
  STAMP(type, C3C1, 3, 1) STAMP(type, C4C1, 4, 1) STAMP(type, C1C3, 1, 3) STAMP(type, C1C4, 1, 4)           \
  STAMP(type, C3C, 3, 3) STAMP(type, C4C, 4, 4) STAMP_PLANES(type, 3) STAMP_PLANES(type, 4)
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32s) STAMPS(32f)
#undef STAMPS
#undef STAMP_PLANES
#undef STAMP
