// zoriFFT{InitAlloc,Free,GetBufSize}_{C_32fc,R_32f,R_32s}, zoriFFT{Fwd,Inv}_CToC_32fc_C1{R,IR},
// zori{FFTFwd_RToPack,FFTInv_PackToR}_32f_{C1,C3,C4,AC4}{R,IR}, zoriFFTFwd_RToPack_8u32s_{C1,C3,C4,AC4}RSfs,
// zoriFFTInv_PackToR_32s8u_{C1,C3,C4,AC4}RSfs: images whose sides are powers of two. How they are transformed stands in
// image_transform.h.
#include "image_records.h"
#include "zori/spectral.h"

namespace zori {
namespace {

constexpr Tags tags = {25, 26, 29};

constexpr int greatestOrder = 30;
bool isOrder(int order) { return order >= 0 && order <= greatestOrder; }

template <class Record>
ZorStatus make(bool isReal, Zor32u tag, Record** made, int orderX, int orderY, int flag, ZorHint hint)
{
  if (auto s = firstFailure(nonNull(made), require(isOrder(orderX) && isOrder(orderY), ZorErrOrder)); s != ZorOk)
    return s;
  return makeFloatRecord(TransformFamily::Fft, isReal, tag, made, ZorImgSize{1 << orderX, 1 << orderY}, flag, hint);
}

template <class Record> ZorStatus makeOfIntegers(Record** made, int orderX, int orderY, int flag, ZorHint hint)
{
  if (auto s = firstFailure(nonNull(made), require(isOrder(orderX) && isOrder(orderY), ZorErrOrder)); s != ZorOk)
    return s;
  return makeIntegerRecord(TransformFamily::Fft, tags, made, ZorImgSize{1 << orderX, 1 << orderY}, flag, hint);
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriFFTInitAlloc_C_32fc(ZorFftImgRecord** ppRecord, int orderX, int orderY, int flag, ZorHint hint)
{
  return make(false, tags.complexKind, ppRecord, orderX, orderY, flag, hint);
}
ZorStatus zoriFFTInitAlloc_R_32f(ZorFftImgRecord** ppRecord, int orderX, int orderY, int flag, ZorHint hint)
{
  return make(true, tags.realKind, ppRecord, orderX, orderY, flag, hint);
}
ZorStatus zoriFFTInitAlloc_R_32s(ZorFftImgRecord32s** ppRecord, int orderX, int orderY, int flag, ZorHint hint)
{
  return makeOfIntegers(ppRecord, orderX, orderY, flag, hint);
}

ZorStatus zoriFFTFree_C_32fc(ZorFftImgRecord* pRecord) { return releaseRecord(pRecord, tags.complexKind); }
ZorStatus zoriFFTFree_R_32f(ZorFftImgRecord* pRecord) { return releaseRecord(pRecord, tags.realKind); }
ZorStatus zoriFFTFree_R_32s(ZorFftImgRecord32s* pRecord) { return releaseRecord(pRecord, tags.integerKind); }

ZorStatus zoriFFTGetBufSize_C_32fc(const ZorFftImgRecord* pRecord, int* pSize)
{
  return floatBufferBytes(pRecord, tags.complexKind, pSize);
}
ZorStatus zoriFFTGetBufSize_R_32f(const ZorFftImgRecord* pRecord, int* pSize)
{
  return floatBufferBytes(pRecord, tags.realKind, pSize);
}
ZorStatus zoriFFTGetBufSize_R_32s(const ZorFftImgRecord32s* pRecord, int* pSize)
{
  return integerBufferBytes(pRecord, tags.integerKind, pSize);
}

// clang-format off
#define STAMP(name, way)                                                                                            \
  ZorStatus zoriFFT##name##_CToC_32fc_C1R(const Zor32fc* pSrc, int srcStep, Zor32fc* pDst, int dstStep,              \
                                         const ZorFftImgRecord* pRecord, Zor8u* pBuffer)                             \
  { return transformChecked(way, pSrc, srcStep, pDst, dstStep, pRecord, tags.complexKind, pBuffer); }               \
  ZorStatus zoriFFT##name##_CToC_32fc_C1IR(Zor32fc* pSrcDst, int srcDstStep, const ZorFftImgRecord* pRecord,         \
                                          Zor8u* pBuffer)                                                           \
  { return transformChecked(way, pSrcDst, srcDstStep, pSrcDst, srcDstStep, pRecord, tags.complexKind, pBuffer); }
STAMP(Fwd, Direction::Forward) STAMP(Inv, Direction::Inverse)
#undef STAMP

#define STAMP(name, way, layout)                                                                                    \
  ZorStatus zoriFFT##name##_32f_##layout##R(const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep,              \
                                           const ZorFftImgRecord* pRecord, Zor8u* pBuffer)                           \
  { return transformChecked<layout>(way, pSrc, srcStep, pDst, dstStep, pRecord, tags.realKind, pBuffer); }          \
  ZorStatus zoriFFT##name##_32f_##layout##IR(Zor32f* pSrcDst, int srcDstStep, const ZorFftImgRecord* pRecord,        \
                                            Zor8u* pBuffer)                                                         \
  { return transformChecked<layout>(way, pSrcDst, srcDstStep, pSrcDst, srcDstStep, pRecord, tags.realKind, pBuffer); }
STAMP(Fwd_RToPack, Direction::Forward, C1) STAMP(Fwd_RToPack, Direction::Forward, C3)
STAMP(Fwd_RToPack, Direction::Forward, C4) STAMP(Fwd_RToPack, Direction::Forward, AC4)
STAMP(Inv_PackToR, Direction::Inverse, C1) STAMP(Inv_PackToR, Direction::Inverse, C3)
STAMP(Inv_PackToR, Direction::Inverse, C4) STAMP(Inv_PackToR, Direction::Inverse, AC4)
#undef STAMP

#define STAMP(layout)                                                                                               \
  ZorStatus zoriFFTFwd_RToPack_8u32s_##layout##RSfs(const Zor8u* pSrc, int srcStep, Zor32s* pDst, int dstStep,       \
                                                   const ZorFftImgRecord32s* pRecord, int scaleFactor,               \
                                                   Zor8u* pBuffer)                                                  \
  { return transformIntegers<layout>(Direction::Forward, pSrc, srcStep, pDst, dstStep, pRecord, tags.integerKind,    \
                                     scaleFactor, pBuffer); }                                                       \
  ZorStatus zoriFFTInv_PackToR_32s8u_##layout##RSfs(const Zor32s* pSrc, int srcStep, Zor8u* pDst, int dstStep,       \
                                                   const ZorFftImgRecord32s* pRecord, int scaleFactor,               \
                                                   Zor8u* pBuffer)                                                  \
  { return transformIntegers<layout>(Direction::Inverse, pSrc, srcStep, pDst, dstStep, pRecord, tags.integerKind,    \
                                     scaleFactor, pBuffer); }
STAMP(C1) STAMP(C3) STAMP(C4) STAMP(AC4)
#undef STAMP
