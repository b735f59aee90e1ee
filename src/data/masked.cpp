// zoriCopy_{8u,16u,16s,32s,32f}_{C1,C3,C4,AC4}MR, zoriSet_{8u,16u,16s,32s,32f}_{C1,C3,C4,AC4}MR: pixels under a mask.
//
// One kernel for each size of a pixel; AC4 writes three quarters of it.
#include "rowkernels/masked.h"
#include "frame/checks.h"
#include "region.h"
#include "zori/data.h"

namespace zori {
namespace {

template <class T, Layout L> inline constexpr int pixelBytes = channels<L>* bytesOf<T>;
template <class T, Layout L> inline constexpr int usedBytes = processed<L>* bytesOf<T>;

template <class T, Layout L>
ZorStatus copyMasked(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, const Zor8u* pMask,
                     int maskStep)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, pMask), nonEmpty(roiSize)); s != ZorOk) return s;
  constexpr int bytes = pixelBytes<T, L>;
  const ZorImgSize rows = joinedRows(roiSize, Pitch{bytes, srcStep}, Pitch{bytes, dstStep}, Pitch{1, maskStep});
  const Rows src{reinterpret_cast<const Zor8u*>(pSrc), srcStep};
  const Rows dst{reinterpret_cast<Zor8u*>(pDst), dstStep};
  const Rows mask{pMask, maskStep};
  mergeUnderMask<bytes, usedBytes<T, L>>(mask, dst, rows.width, rows.height, SourceRows{src});
  return ZorOk;
}

// pValue: a pixel, or its first three channels.
template <class T, Layout L>
ZorStatus setMasked(const T* pValue, T* pDst, int dstStep, ZorImgSize roiSize, const Zor8u* pMask, int maskStep)
{
  if (auto s = firstFailure(nonNull(pValue, pDst, pMask), nonEmpty(roiSize)); s != ZorOk) return s;
  constexpr int bytes = pixelBytes<T, L>;
  Zor8u pixel[bytes] = {};
  std::memcpy(pixel, pValue, usedBytes<T, L>);
  const PixelPattern pattern = PixelPattern::of<bytes>(pixel);
  const ZorImgSize rows = joinedRows(roiSize, Pitch{bytes, dstStep}, Pitch{1, maskStep});
  const Rows dst{reinterpret_cast<Zor8u*>(pDst), dstStep};
  const Rows mask{pMask, maskStep};
  mergeUnderMask<bytes, usedBytes<T, L>>(mask, dst, rows.width, rows.height, PatternSource(pattern));
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout)                                                                                       \
  ZorStatus zoriCopy_##type##_##layout##MR(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,      \
                                           ZorImgSize roiSize, const Zor8u* pMask, int maskStep)                  \
  { return copyMasked<Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize, pMask, maskStep); }
#define STAMP_SET(type, layout, n)                                                                                \
  ZorStatus zoriSet_##type##_##layout##MR(const Zor##type value[n], Zor##type* pDst, int dstStep,                 \
                                          ZorImgSize roiSize, const Zor8u* pMask, int maskStep)                   \
  { return setMasked<Zor##type, layout>(value, pDst, dstStep, roiSize, pMask, maskStep); }
#define STAMPS(type)                                                                                              \
  STAMP(type, C1) STAMP(type, C3) STAMP(type, C4) STAMP(type, AC4)                                                \
  ZorStatus zoriSet_##type##_C1MR(Zor##type value, Zor##type* pDst, int dstStep, ZorImgSize roiSize,              \
                                  const Zor8u* pMask, int maskStep)                                               \
  { return setMasked<Zor##type, C1>(&value, pDst, dstStep, roiSize, pMask, maskStep); }                           \
  STAMP_SET(type, C3, 3) STAMP_SET(type, C4, 4) STAMP_SET(type, AC4, 3)
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32s) STAMPS(32f)
#undef STAMPS
#undef STAMP_SET
#undef STAMP
