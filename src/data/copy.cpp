// zoriCopy_{8u,16u,16s,32s,32f}_{C1,C3,C4,AC4,C3AC4,AC4C3}R, zoriCopyManaged_8u_C1R: copies of whole pixels.
//
// Between equal layouts a row is bytes. Where one side has a fourth channel that is not moved, vectors of pixels are
// merged with what the destination holds, or written closer together.
#include "rowkernels/copy.h"
#include "frame/checks.h"
#include "region.h"
#include "rowkernels/channels.h"
#include "zori/data.h"

namespace zori {
namespace {

template <class T, Layout L> ZorStatus copyRegion(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  constexpr int pixelBytes = channels<L> * bytesOf<T>;
  const ZorImgSize rows = joinedRows(roiSize, Pitch{pixelBytes, srcStep}, Pitch{pixelBytes, dstStep});
  const std::ptrdiff_t bytes = static_cast<std::ptrdiff_t>(rows.width) * pixelBytes;
  copyRows({reinterpret_cast<const Zor8u*>(pSrc), srcStep}, {reinterpret_cast<Zor8u*>(pDst), dstStep}, bytes,
           rows.height);
  return ZorOk;
}

// The first three channels alone, from pixels of SrcChannels to pixels of DstChannels.
template <class T, int SrcChannels, int DstChannels>
ZorStatus copyColourRegion(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  const ZorImgSize rows =
    joinedRows(roiSize, Pitch{SrcChannels * bytesOf<T>, srcStep}, Pitch{DstChannels * bytesOf<T>, dstStep});
  const Rows src{raw(pSrc), srcStep};
  const Rows dst{raw(pDst), dstStep};
  if constexpr (DstChannels == 3) return dropFourth<Raw<T>>(src, dst, rows.width, rows.height), ZorOk;
  for (int y = 0; y < rows.height; ++y) copyColour<Raw<T>, SrcChannels>(src[y], dst[y], rows.width);
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriCopyManaged_8u_C1R(const Zor8u* pSrc, int srcStep, Zor8u* pDst, int dstStep, ZorImgSize roiSize,
                                 int flags)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  const ZorImgSize rows = joinedRows(roiSize, Pitch{1, srcStep}, Pitch{1, dstStep});
  const Rows src{pSrc, srcStep};
  const Rows dst{pDst, dstStep};
  for (int y = 0; y < rows.height; ++y) copyForward(src[y], dst[y], rows.width, flags & 1);
  return ZorOk;
}

// clang-format off
#define STAMP(name, type, call)                                                                            \
  ZorStatus zoriCopy_##type##_##name(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,     \
                                     ZorImgSize roiSize)                                                   \
  { return call(pSrc, srcStep, pDst, dstStep, roiSize); }
#define STAMPS(type)                                                                                       \
  STAMP(C1R, type, (copyRegion<Zor##type, C1>)) STAMP(C3R, type, (copyRegion<Zor##type, C3>))              \
  STAMP(C4R, type, (copyRegion<Zor##type, C4>)) STAMP(AC4R, type, (copyColourRegion<Zor##type, 4, 4>))     \
  STAMP(C3AC4R, type, (copyColourRegion<Zor##type, 3, 4>))                                                 \
  STAMP(AC4C3R, type, (copyColourRegion<Zor##type, 4, 3>))
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32s) STAMPS(32f)
#undef STAMPS
#undef STAMP
