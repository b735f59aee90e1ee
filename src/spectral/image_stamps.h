// The exported functions of a family of image transforms, the same for the FFT and the DFT: records, buffer sizes,
// transforms of complex, real and integer images. What differs is a type:
//
//   struct Family {
//     static constexpr TransformFamily kind;
//     static constexpr Tags tags;
//     static ZorStatus sizeOf(int, int, ZorImgSize*);   // the image of a record's two arguments, if they are legal
//   };
//   ZORI_STAMP_IMAGE_TRANSFORMS(DFT, Dft, Family)       // zoriDFT..., Zor Dft ImgRecord
#pragma once

#include "image_records.h"

namespace zori {
namespace {

template <class Family, class Record>
ZorStatus makeFloats(bool isReal, Record** made, int first, int second, int flag, ZorHint hint)
{
  ZorImgSize size;
  if (auto s = nonNull(made); s != ZorOk) return s;
  if (auto s = Family::sizeOf(first, second, &size); s != ZorOk) return s;
  const Zor32u tag = isReal ? Family::tags.realKind : Family::tags.complexKind;
  return makeFloatRecord(Family::kind, isReal, tag, made, size, flag, hint);
}

template <class Family, class Record>
ZorStatus makeIntegers(Record** made, int first, int second, int flag, ZorHint hint)
{
  ZorImgSize size;
  if (auto s = nonNull(made); s != ZorOk) return s;
  if (auto s = Family::sizeOf(first, second, &size); s != ZorOk) return s;
  return makeIntegerRecord(Family::kind, Family::tags, made, size, flag, hint);
}

} // namespace
} // namespace zori

// clang-format off
#define ZORI_STAMP_RECORD(name, suffix, Record, tag, make, queried)                                                   \
  ZorStatus zori##name##InitAlloc_##suffix(Record** ppRecord, int first, int second, int flag, ZorHint hint)          \
  { return make; }                                                                                                    \
  ZorStatus zori##name##Free_##suffix(Record* pRecord) { return releaseRecord(pRecord, tag); }                        \
  ZorStatus zori##name##GetBufSize_##suffix(const Record* pRecord, int* pSize) { return queried(pRecord, tag, pSize); }

#define ZORI_STAMP_COMPLEX(name, Record, tag, way)                                                                    \
  ZorStatus zori##name##_CToC_32fc_C1R(const Zor32fc* pSrc, int srcStep, Zor32fc* pDst, int dstStep,                  \
                                       const Record* pRecord, Zor8u* pBuffer)                                         \
  { return transformChecked(way, pSrc, srcStep, pDst, dstStep, pRecord, tag, pBuffer); }                              \
  ZorStatus zori##name##_CToC_32fc_C1IR(Zor32fc* pSrcDst, int srcDstStep, const Record* pRecord, Zor8u* pBuffer)      \
  { return transformChecked(way, pSrcDst, srcDstStep, pSrcDst, srcDstStep, pRecord, tag, pBuffer); }

#define ZORI_STAMP_REAL(name, Record, tag, way, layout)                                                               \
  ZorStatus zori##name##_32f_##layout##R(const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep,                  \
                                         const Record* pRecord, Zor8u* pBuffer)                                       \
  { return transformChecked<layout>(way, pSrc, srcStep, pDst, dstStep, pRecord, tag, pBuffer); }                      \
  ZorStatus zori##name##_32f_##layout##IR(Zor32f* pSrcDst, int srcDstStep, const Record* pRecord, Zor8u* pBuffer)     \
  { return transformChecked<layout>(way, pSrcDst, srcDstStep, pSrcDst, srcDstStep, pRecord, tag, pBuffer); }

#define ZORI_STAMP_INTEGERS(name, S, D, Record, tag, way, layout)                                                     \
  ZorStatus zori##name##_##layout##RSfs(const S* pSrc, int srcStep, D* pDst, int dstStep, const Record* pRecord,      \
                                        int scaleFactor, Zor8u* pBuffer)                                              \
  { return transformIntegers<layout>(way, pSrc, srcStep, pDst, dstStep, pRecord, tag, scaleFactor, pBuffer); }

#define ZORI_STAMP_LAYOUT(name, Type, Family, layout)                                                                 \
  ZORI_STAMP_REAL(name##Fwd_RToPack, Zor##Type##ImgRecord, Family::tags.realKind, Direction::Forward, layout)         \
  ZORI_STAMP_REAL(name##Inv_PackToR, Zor##Type##ImgRecord, Family::tags.realKind, Direction::Inverse, layout)         \
  ZORI_STAMP_INTEGERS(name##Fwd_RToPack_8u32s, Zor8u, Zor32s, Zor##Type##ImgRecord32s, Family::tags.integerKind,      \
                      Direction::Forward, layout)                                                                     \
  ZORI_STAMP_INTEGERS(name##Inv_PackToR_32s8u, Zor32s, Zor8u, Zor##Type##ImgRecord32s, Family::tags.integerKind,      \
                      Direction::Inverse, layout)

#define ZORI_STAMP_IMAGE_TRANSFORMS(name, Type, Family)                                                               \
  ZORI_STAMP_RECORD(name, C_32fc, Zor##Type##ImgRecord, Family::tags.complexKind,                                     \
                    makeFloats<Family>(false, ppRecord, first, second, flag, hint), floatBufferBytes)                 \
  ZORI_STAMP_RECORD(name, R_32f, Zor##Type##ImgRecord, Family::tags.realKind,                                         \
                    makeFloats<Family>(true, ppRecord, first, second, flag, hint), floatBufferBytes)                  \
  ZORI_STAMP_RECORD(name, R_32s, Zor##Type##ImgRecord32s, Family::tags.integerKind,                                   \
                    makeIntegers<Family>(ppRecord, first, second, flag, hint), integerBufferBytes)                    \
  ZORI_STAMP_COMPLEX(name##Fwd, Zor##Type##ImgRecord, Family::tags.complexKind, Direction::Forward)                   \
  ZORI_STAMP_COMPLEX(name##Inv, Zor##Type##ImgRecord, Family::tags.complexKind, Direction::Inverse)                   \
  ZORI_STAMP_LAYOUT(name, Type, Family, C1) ZORI_STAMP_LAYOUT(name, Type, Family, C3)                                 \
  ZORI_STAMP_LAYOUT(name, Type, Family, C4) ZORI_STAMP_LAYOUT(name, Type, Family, AC4)
