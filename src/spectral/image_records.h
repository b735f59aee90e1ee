// What the image FFT and the image DFT share behind their exported names (image_stamps.h): records of both kinds, their
// checks, and the forms between byte images and integer spectra.
#pragma once

#include "frame/checks.h"
#include "frame/parallel.h"
#include "frame/record.h"
#include "image_transform.h"
#include "rowkernels/convert.h"

#include <cstring>

namespace zori {
namespace {

// The record of the integer forms: a head in front of the record of a real transform, in the same block.
struct IntegerTransform {
  Zor32u tag;
  Zor32s width, height;
  ZorHint hint;
  Zor32s bufferBytes; // that GetBufSize tells
  Zor32s reserved[3];

  const ImageTransform& real() const { return *reinterpret_cast<const ImageTransform*>(this + 1); }
};
static_assert(sizeof(IntegerTransform) == 32);

// Kinds of records by their tags.
struct Tags {
  Zor32u complexKind, realKind, integerKind;
};

template <class Record>
ZorStatus makeFloatRecord(TransformFamily family, bool isReal, Zor32u tag, Record** made, ZorImgSize size, int flag,
                          ZorHint hint)
{
  void* block = nullptr;
  const ZorStatus s = makeImageTransform(family, isReal, tag, size, flag, hint, 0, &block);
  if (s == ZorOk) *made = static_cast<Record*>(block);
  return s;
}

template <class Record>
ZorStatus makeIntegerRecord(TransformFamily family, Tags tags, Record** made, ZorImgSize size, int flag, ZorHint hint)
{
  void* block = nullptr;
  if (auto s = makeImageTransform(family, true, tags.realKind, size, flag, hint, sizeof(IntegerTransform), &block);
      s != ZorOk)
    return s;
  const auto head = static_cast<IntegerTransform*>(block);
  *head = {tags.integerKind, size.width, size.height, hint, 0, {}};
  // room for an image of four channels
  const long long bytes = bufferBytes(head->real()) + 4LL * size.width + 16LL * size.width * size.height + 16;
  if (bytes > INT32_MAX) { // no buffer of that size can be told
    releaseBlock(block);
    return ZorErrAlloc;
  }
  head->bufferBytes = static_cast<Zor32s>(bytes);
  *made = reinterpret_cast<Record*>(block);
  return ZorOk;
}

template <class Record> ZorStatus checkedRecord(const Record* record, Zor32u tag)
{
  return record ? isOfKind(record, tag) : ZorErrNullPtr;
}

template <class Record> const ImageTransform& transformOf(const Record* record)
{
  return *reinterpret_cast<const ImageTransform*>(record);
}

template <class Record> ZorStatus floatBufferBytes(const Record* record, Zor32u tag, int* size)
{
  if (auto s = firstFailure(nonNull(record, size)); s != ZorOk) return s;
  if (auto s = checkedRecord(record, tag); s != ZorOk) return s;
  *size = bufferBytes(transformOf(record));
  return ZorOk;
}

template <class Record> ZorStatus integerBufferBytes(const Record* record, Zor32u tag, int* size)
{
  if (auto s = firstFailure(nonNull(record, size)); s != ZorOk) return s;
  if (auto s = checkedRecord(record, tag); s != ZorOk) return s;
  *size = reinterpret_cast<const IntegerTransform*>(record)->bufferBytes;
  return ZorOk;
}

// ---- Between integers: through an image of floats with the same channels ----

constexpr int conversionPicoseconds = 400;

// dst = saturate(round(src * 2^-scaleFactor))
template <Layout L, class D> void roundRow(const Zor32f* src, D* dst, std::ptrdiff_t length, int scaleFactor)
{
  const Scaled<Rounded<D>> op(scaleFactor);
  if constexpr (L == AC4) mapGroups(dst, length, KeepFourth<Scaled<Rounded<D>>>{op}, static_cast<const D*>(dst), src);
  else mapGroups(dst, length, op, src);
}

template <Layout L, class S, class D, class Record>
ZorStatus transformIntegers(Direction direction, const S* pSrc, int srcStep, D* pDst, int dstStep, const Record* record,
                            Zor32u tag, int scaleFactor, Zor8u* pBuffer)
{
  if (auto s = checkedRecord(record, tag); s != ZorOk) return s;
  if (auto s = firstFailure(nonNull(pSrc, pDst), positive(srcStep, dstStep)); s != ZorOk) return s;
  const ImageTransform& plan = reinterpret_cast<const IntegerTransform*>(record)->real();
  const long long length = static_cast<long long>(plan.width) * channels<L>;
  const long long bytes = length * plan.height * static_cast<long long>(sizeof(Zor32f));
  Scratch<Zor8u> own(pBuffer ? 0 : bytes);
  if (!pBuffer && !own) return ZorErrAlloc;
  Zor8u* const image = pBuffer ? pBuffer + (-reinterpret_cast<std::uintptr_t>(pBuffer) & 15) : own.get();
  const Rows<Zor32f> floats{reinterpret_cast<Zor32f*>(image), static_cast<int>(length * sizeof(Zor32f))};

  const TeamRule rule = TeamRule::forWork(length * plan.height, conversionPicoseconds);
  const Rows src{pSrc, srcStep};
  const Rows dst{pDst, dstStep};
  staticRows(rule, Rounding::Nearest, plan.height,
             [=](int y) { mapGroups(floats[y], static_cast<std::ptrdiff_t>(length), Converted<Zor32f>{}, src[y]); });
  const ZorStatus s = transformReal<L>(plan, direction, floats.first, floats.step, floats.first, floats.step,
                                       pBuffer ? image + bytes : nullptr);
  if (s != ZorOk) return s;
  staticRows(rule, Rounding::Nearest, plan.height, [=](int y) {
    roundRow<L>(static_cast<const Zor32f*>(floats[y]), dst[y], static_cast<std::ptrdiff_t>(length), scaleFactor);
  });
  return ZorOk;
}

// ---- The float forms ----

template <class Record>
ZorStatus transformChecked(Direction direction, const Zor32fc* pSrc, int srcStep, Zor32fc* pDst, int dstStep,
                           const Record* record, Zor32u tag, Zor8u* pBuffer)
{
  if (auto s = checkedRecord(record, tag); s != ZorOk) return s;
  return transformComplex(transformOf(record), direction, pSrc, srcStep, pDst, dstStep, pBuffer);
}

template <Layout L, class Record>
ZorStatus transformChecked(Direction direction, const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep,
                           const Record* record, Zor32u tag, Zor8u* pBuffer)
{
  if (auto s = checkedRecord(record, tag); s != ZorOk) return s;
  return transformReal<L>(transformOf(record), direction, pSrc, srcStep, pDst, dstStep, pBuffer);
}

} // namespace
} // namespace zori
