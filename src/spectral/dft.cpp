// zoriDFT{InitAlloc,Free,GetBufSize}_{C_32fc,R_32f,R_32s}, zoriDFT{Fwd,Inv}_CToC_32fc_C1{R,IR},
// zori{DFTFwd_RToPack,DFTInv_PackToR}_32f_{C1,C3,C4,AC4}{R,IR}, zoriDFTFwd_RToPack_8u32s_{C1,C3,C4,AC4}RSfs,
// zoriDFTInv_PackToR_32s8u_{C1,C3,C4,AC4}RSfs: images of any size. How they are transformed stands in
// image_transform.h.
#include "image_records.h"
#include "zori/spectral.h"

namespace zori {
namespace {

constexpr Tags tags = {27, 28, 30};

template <class Record>
ZorStatus make(bool isReal, Zor32u tag, Record** made, int width, int height, int flag, ZorHint hint)
{
  if (auto s = firstFailure(nonNull(made), positiveSize(width, height)); s != ZorOk) return s;
  return makeFloatRecord(TransformFamily::Dft, isReal, tag, made, ZorImgSize{width, height}, flag, hint);
}

template <class Record> ZorStatus makeOfIntegers(Record** made, int width, int height, int flag, ZorHint hint)
{
  if (auto s = firstFailure(nonNull(made), positiveSize(width, height)); s != ZorOk) return s;
  return makeIntegerRecord(TransformFamily::Dft, tags, made, ZorImgSize{width, height}, flag, hint);
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriDFTInitAlloc_C_32fc(ZorDftImgRecord** ppRecord, int width, int height, int flag, ZorHint hint)
{
  return make(false, tags.complexKind, ppRecord, width, height, flag, hint);
}
ZorStatus zoriDFTInitAlloc_R_32f(ZorDftImgRecord** ppRecord, int width, int height, int flag, ZorHint hint)
{
  return make(true, tags.realKind, ppRecord, width, height, flag, hint);
}
ZorStatus zoriDFTInitAlloc_R_32s(ZorDftImgRecord32s** ppRecord, int width, int height, int flag, ZorHint hint)
{
  return makeOfIntegers(ppRecord, width, height, flag, hint);
}

ZorStatus zoriDFTFree_C_32fc(ZorDftImgRecord* pRecord) { return releaseRecord(pRecord, tags.complexKind); }
ZorStatus zoriDFTFree_R_32f(ZorDftImgRecord* pRecord) { return releaseRecord(pRecord, tags.realKind); }
ZorStatus zoriDFTFree_R_32s(ZorDftImgRecord32s* pRecord) { return releaseRecord(pRecord, tags.integerKind); }

ZorStatus zoriDFTGetBufSize_C_32fc(const ZorDftImgRecord* pRecord, int* pSize)
{
  return floatBufferBytes(pRecord, tags.complexKind, pSize);
}
ZorStatus zoriDFTGetBufSize_R_32f(const ZorDftImgRecord* pRecord, int* pSize)
{
  return floatBufferBytes(pRecord, tags.realKind, pSize);
}
ZorStatus zoriDFTGetBufSize_R_32s(const ZorDftImgRecord32s* pRecord, int* pSize)
{
  return integerBufferBytes(pRecord, tags.integerKind, pSize);
}

// clang-format off
#define STAMP(name, way)                                                                                            \
  ZorStatus zoriDFT##name##_CToC_32fc_C1R(const Zor32fc* pSrc, int srcStep, Zor32fc* pDst, int dstStep,              \
                                         const ZorDftImgRecord* pRecord, Zor8u* pBuffer)                             \
  { return transformChecked(way, pSrc, srcStep, pDst, dstStep, pRecord, tags.complexKind, pBuffer); }               \
  ZorStatus zoriDFT##name##_CToC_32fc_C1IR(Zor32fc* pSrcDst, int srcDstStep, const ZorDftImgRecord* pRecord,         \
                                          Zor8u* pBuffer)                                                           \
  { return transformChecked(way, pSrcDst, srcDstStep, pSrcDst, srcDstStep, pRecord, tags.complexKind, pBuffer); }
STAMP(Fwd, Direction::Forward) STAMP(Inv, Direction::Inverse)
#undef STAMP

#define STAMP(name, way, layout)                                                                                    \
  ZorStatus zoriDFT##name##_32f_##layout##R(const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep,              \
                                           const ZorDftImgRecord* pRecord, Zor8u* pBuffer)                           \
  { return transformChecked<layout>(way, pSrc, srcStep, pDst, dstStep, pRecord, tags.realKind, pBuffer); }          \
  ZorStatus zoriDFT##name##_32f_##layout##IR(Zor32f* pSrcDst, int srcDstStep, const ZorDftImgRecord* pRecord,        \
                                            Zor8u* pBuffer)                                                         \
  { return transformChecked<layout>(way, pSrcDst, srcDstStep, pSrcDst, srcDstStep, pRecord, tags.realKind, pBuffer); }
STAMP(Fwd_RToPack, Direction::Forward, C1) STAMP(Fwd_RToPack, Direction::Forward, C3)
STAMP(Fwd_RToPack, Direction::Forward, C4) STAMP(Fwd_RToPack, Direction::Forward, AC4)
STAMP(Inv_PackToR, Direction::Inverse, C1) STAMP(Inv_PackToR, Direction::Inverse, C3)
STAMP(Inv_PackToR, Direction::Inverse, C4) STAMP(Inv_PackToR, Direction::Inverse, AC4)
#undef STAMP

#define STAMP(layout)                                                                                               \
  ZorStatus zoriDFTFwd_RToPack_8u32s_##layout##RSfs(const Zor8u* pSrc, int srcStep, Zor32s* pDst, int dstStep,       \
                                                   const ZorDftImgRecord32s* pRecord, int scaleFactor,               \
                                                   Zor8u* pBuffer)                                                  \
  { return transformIntegers<layout>(Direction::Forward, pSrc, srcStep, pDst, dstStep, pRecord, tags.integerKind,    \
                                     scaleFactor, pBuffer); }                                                       \
  ZorStatus zoriDFTInv_PackToR_32s8u_##layout##RSfs(const Zor32s* pSrc, int srcStep, Zor8u* pDst, int dstStep,       \
                                                   const ZorDftImgRecord32s* pRecord, int scaleFactor,               \
                                                   Zor8u* pBuffer)                                                  \
  { return transformIntegers<layout>(Direction::Inverse, pSrc, srcStep, pDst, dstStep, pRecord, tags.integerKind,    \
                                     scaleFactor, pBuffer); }
STAMP(C1) STAMP(C3) STAMP(C4) STAMP(AC4)
#undef STAMP
