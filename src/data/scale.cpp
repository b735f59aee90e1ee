// zoriScale_<a><b>_{C1,C3,C4,AC4}R: conversion of the element type that maps the whole range of one type, or the range
// vMin..vMax of 32f, onto the whole range of the other.
//
//   8u to 16u, 16s, 32s  the byte repeated, less the offset of a signed type
//   16u, 16s, 32s to 8u  hint 2: round((x + offset) * (255 / greatest)), to nearest, ties to even, the product in 32f;
//                        any other: (x - (x >> 8)) shifted down to its top byte, in integers
//   8u to 32f            x * ((vMax - vMin) / 255) + vMin in 32f
//   32f to 8u            the low byte of round(clamp(x) * factor + offset), factor = 255 / (vMax - vMin),
//                        offset = (0 - factor) * vMin in 32f; the clamp takes a NaN to vMax
#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "rowkernels/convert.h"
#include "walk/map.h"
#include "zori/data.h"

namespace zori {
namespace {

// ---- Integers ----

template <class D> struct ByteRepeated {
  template <int Bytes> ZORI_INLINE Group<D, Bytes> operator()(const Group<Zor8u, Bytes>& x) const
  {
    const Vec<Zor16u, Bytes> twice[2] = {as<Zor16u>(interleaveLow(x.part[0], x.part[0])),
                                         as<Zor16u>(interleaveHigh(x.part[0], x.part[0]))};
    const Vec<D, Bytes> offset = isSigned<D> ? topBits<D, Bytes>() : zero<D, Bytes>();
    Group<D, Bytes> y;
    for (int k = 0; k < 2; ++k) {
      if constexpr (sizeof(D) == 2) {
        y.part[k] = as<D>(twice[k]) ^ offset;
      } else {
        y.part[2 * k] = as<D>(interleaveLow(twice[k], twice[k])) ^ offset;
        y.part[2 * k + 1] = as<D>(interleaveHigh(twice[k], twice[k])) ^ offset;
      }
    }
    return y;
  }
};

template <class S> struct TopByteFast {
  template <int Bytes> ZORI_INLINE Group<Zor8u, Bytes> operator()(Group<S, Bytes> x) const
  {
    for (int k = 0; k < x.parts; ++k) x.part[k] = shiftRight<8 * (sizeof(S) - 1)>(x.part[k] - shiftRight<8>(x.part[k]));
    if constexpr (isSigned<S>) { // -128..127, and 128 added
      const Group<Zor8s, Bytes> top = Converted<Zor8s>{}(x);
      return {{as<Zor8u>(top.part[0]) ^ topBits<Zor8u, Bytes>()}};
    } else {
      return Converted<Zor8u>{}(Converted<Zor16s>{}(x)); // 0..255
    }
  }
};

// Of 16 bits the rounded product is that of x / 257, which is never a tie, so that integers give it. Of 32 bits it is
// formed in 32f, under round to nearest.
template <class S> struct TopByteAccurate {
  template <int Bytes> ZORI_INLINE Group<Zor8u, Bytes> operator()(const Group<S, Bytes>& x) const
  {
    if constexpr (sizeof(S) == 2) {
      const Vec<Zor16u, Bytes> offset = isSigned<S> ? topBits<Zor16u, Bytes>() : zero<Zor16u, Bytes>();
      Group<Zor16u, Bytes> y = Converted<Zor16u>{}(x);
      for (int k = 0; k < y.parts; ++k) y.part[k] = addSat(y.part[k] ^ offset, splat<Zor16u, Bytes>(128));
      return TopByteFast<Zor16u>{}(y);
    } else {
      constexpr Zor32f factor = static_cast<Zor32f>(255.0 / 4294967295.0);
      const Group<Zor32f, Bytes> y = Converted<Zor32f>{}(x);
      Group<Zor32s, Bytes> n;
      for (int k = 0; k < y.parts; ++k)
        n.part[k] = toInt((y.part[k] + splat<Zor32f, Bytes>(2147483648.0f)) * splat<Zor32f, Bytes>(factor));
      return Converted<Zor8u>{}(n);
    }
  }
};

template <Layout L, class D>
ZorStatus scaleUpRegion(const Zor8u* pSrc, int srcStep, D* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk) return s;
  mapRegionOfGroups<L>(roiSize, ByteRepeated<D>{}, Rows{pDst, dstStep}, Rows{pSrc, srcStep});
  return ZorOk;
}

template <Layout L, class S>
ZorStatus scaleDownRegion(const S* pSrc, int srcStep, Zor8u* pDst, int dstStep, ZorImgSize roiSize, ZorHint hint)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk) return s;
  const Rows dst{pDst, dstStep};
  const Rows src{pSrc, srcStep};
  if (hint == ZorHintAccurate) {
    underRounding(Rounding::Nearest, [&] { mapRegionOfGroups<L>(roiSize, TopByteAccurate<S>{}, dst, src); });
  } else {
    mapRegionOfGroups<L>(roiSize, TopByteFast<S>{}, dst, src);
  }
  return ZorOk;
}

// ---- 32f ----

struct ByteToRange {
  static constexpr int widensTo = sizeof(Zor32f);
  Zor32f factor, least;

  template <class S, int Bytes> ZORI_INLINE Group<Zor32f, Bytes> operator()(const Group<S, Bytes>& x) const
  {
    const auto all = [](Zor32f c) { return splat<Zor32f, Bytes>(c); };
    Group<Zor32f, Bytes> y = Converted<Zor32f>{}(x);
    for (int k = 0; k < y.parts; ++k) y.part[k] = y.part[k] * all(factor) + all(least);
    return y;
  }
};

// Rounded by the control register. A result beyond a byte loses its upper bits; it does not saturate.
struct RangeToByte {
  Zor32f least, greatest, factor, offset;

  template <int Bytes> ZORI_INLINE Group<Zor8u, Bytes> operator()(const Group<Zor32f, Bytes>& x) const
  {
    const auto all = [](Zor32f c) { return splat<Zor32f, Bytes>(c); };
    Group<Zor32s, Bytes> n;
    for (int k = 0; k < x.parts; ++k) {
      const Vec<Zor32f, Bytes> clamped = max(min(x.part[k], all(greatest)), all(least));
      n.part[k] = toInt(clamped * all(factor) + all(offset)) & splat<Zor32s, Bytes>(0xff);
    }
    return Converted<Zor8u>{}(n);
  }
};

static ZorStatus nonEmptyRange(Zor32f vMin, Zor32f vMax) { return require(vMax - vMin > 0, ZorErrScaleRange); }

template <Layout L>
ZorStatus scaleToRangeRegion(const Zor8u* pSrc, int srcStep, Zor32f* pDst, int dstStep, ZorImgSize roiSize, Zor32f vMin,
                             Zor32f vMax)
{
  return underRounding(Rounding::Nearest, [&] {
    if (auto s =
          firstFailure(nonEmptyRange(vMin, vMax), nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep));
        s != ZorOk)
      return s;
    const ByteToRange op{(vMax - vMin) / 255, vMin};
    mapRegionOfGroups<L>(roiSize, op, Rows{pDst, dstStep}, Rows{pSrc, srcStep});
    return ZorOk;
  });
}

template <Layout L>
ZorStatus scaleFromRangeRegion(const Zor32f* pSrc, int srcStep, Zor8u* pDst, int dstStep, ZorImgSize roiSize,
                               Zor32f vMin, Zor32f vMax)
{
  // The contract: the rounding field is set before anything else, and stays as set when a check fails.
  const unsigned callersField = controlWord() & roundingField;
  setRoundingField(roundNearest);
  const auto scale = [&] {
    if (auto s =
          firstFailure(nonEmptyRange(vMin, vMax), nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep));
        s != ZorOk)
      return s;
    const Zor32f factor = 255 / (vMax - vMin), offset = (0.0f - factor) * vMin;
    const RangeToByte op{vMin, vMax, factor, offset};
    mapRegionOfGroups<L>(roiSize, op, Rows{pDst, dstStep}, Rows{pSrc, srcStep});
    return ZorOk;
  };
  const ZorStatus status = callApart(scale);
  if (status == ZorOk) setRoundingField(callersField);
  return status;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP_EACH(from, to) STAMP(from, to, C1) STAMP(from, to, C3) STAMP(from, to, C4) STAMP(from, to, AC4)

#define STAMP(from, to, layout)                                                                                     \
  ZorStatus zoriScale_##from##to##_##layout##R(const Zor##from* pSrc, int srcStep, Zor##to* pDst, int dstStep,      \
                                               ZorImgSize roiSize)                                                  \
  { return scaleUpRegion<layout>(pSrc, srcStep, pDst, dstStep, roiSize); }
STAMP_EACH(8u, 16u) STAMP_EACH(8u, 16s) STAMP_EACH(8u, 32s)
#undef STAMP

#define STAMP(from, to, layout)                                                                                     \
  ZorStatus zoriScale_##from##to##_##layout##R(const Zor##from* pSrc, int srcStep, Zor##to* pDst, int dstStep,      \
                                               ZorImgSize roiSize, ZorHint hint)                                    \
  { return scaleDownRegion<layout>(pSrc, srcStep, pDst, dstStep, roiSize, hint); }
STAMP_EACH(16u, 8u) STAMP_EACH(16s, 8u) STAMP_EACH(32s, 8u)
#undef STAMP

#define STAMP(layout)                                                                                               \
  ZorStatus zoriScale_8u32f_##layout##R(const Zor8u* pSrc, int srcStep, Zor32f* pDst, int dstStep,                  \
                                        ZorImgSize roiSize, Zor32f vMin, Zor32f vMax)                               \
  { return scaleToRangeRegion<layout>(pSrc, srcStep, pDst, dstStep, roiSize, vMin, vMax); }                         \
  ZorStatus zoriScale_32f8u_##layout##R(const Zor32f* pSrc, int srcStep, Zor8u* pDst, int dstStep,                  \
                                        ZorImgSize roiSize, Zor32f vMin, Zor32f vMax)                               \
  { return scaleFromRangeRegion<layout>(pSrc, srcStep, pDst, dstStep, roiSize, vMin, vMax); }
STAMP(C1) STAMP(C3) STAMP(C4) STAMP(AC4)
#undef STAMP
#undef STAMP_EACH
