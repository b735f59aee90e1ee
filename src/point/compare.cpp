// zori{Compare,CompareC}_{8u,16u,16s,32f}_{C1,C3,C4,AC4}R, zori{CompareEqualEps,CompareEqualEpsC}_32f_{C1,C3,C4,AC4}R:
// masks of one byte a pixel, 255 where the comparison holds in every processed channel.
//
// Sixteen pixels at a time: samples compare in their own type to vectors of byte masks, and the masks of a pixel's channels
// meet by a bitwise and. Greater (or equal) is less (or equal) with the operands exchanged; a NaN fails every comparison.
#include "frame/checks.h"
#include "frame/layout.h"
#include "rowkernels/channels.h"
#include "zori/point.h"

namespace zori {
namespace {

// ---- Comparisons of vectors: lanes of all ones where they hold ----

struct Less {
  template <class T> Vec<T> operator()(Vec<T> a, Vec<T> b) const
  {
    if constexpr (isInt<T> && !isSigned<T>) return without(splat<T>(T(~T(0))), equal(subSat(b, a), zero<T>()));
    else return greater(b, a);
  }
};
struct LessEqual {
  template <class T> Vec<T> operator()(Vec<T> a, Vec<T> b) const
  {
    if constexpr (std::is_same_v<T, Zor32f>) return lessEqual(a, b);
    else if constexpr (isSigned<T>) return without(splat<T>(T(-1)), greater(a, b));
    else return equal(subSat(a, b), zero<T>());
  }
};
struct Equal {
  template <class T> Vec<T> operator()(Vec<T> a, Vec<T> b) const { return equal(a, b); }
};
struct EqualWithin {
  Zor32f eps;
  F32x4 operator()(F32x4 a, F32x4 b) const { return lessEqual(abs(a - b), splat(eps)); }
};

// ---- From samples to masks ----

using Bytes = Vec<Zor8u>;

// Byte masks of 16 samples.
template <class T, class Compare> inline Bytes sampleMasks(Compare compare, const T* a, const T* b)
{
  constexpr int lanes = Vec<T>::size;
  const auto part = [&](int k) { return compare(load<T>(a + k * lanes), load<T>(b + k * lanes)); };
  const auto words = [](auto low, auto high) { // 32-bit masks to 16-bit masks
    return narrowSat<Zor16s>(as<Zor32s>(low), as<Zor32s>(high));
  };
  if constexpr (sizeof(T) == 1) return as<Zor8u>(part(0));
  else if constexpr (sizeof(T) == 2) return as<Zor8u>(narrowSat<Zor8s>(as<Zor16s>(part(0)), as<Zor16s>(part(1))));
  else return as<Zor8u>(narrowSat<Zor8s>(words(part(0), part(1)), words(part(2), part(3))));
}

// Masks of 16 pixels.
template <Layout L, class T, class Compare> inline Bytes pixelMasks(Compare compare, const T* a, const T* b)
{
  if constexpr (L == C1) return sampleMasks(compare, a, b);
  else if constexpr (L == C3) {
    Zor8u masks[48];
    for (int k = 0; k < 3; ++k) store(masks + 16 * k, sampleMasks(compare, a + 16 * k, b + 16 * k));
    Bytes channel[3];
    split(masks, channel);
    return channel[0] & channel[1] & channel[2];
  } else { // four masks a pixel: 32 bits, all of them set
    Vec<Zor32s> pixels[4];
    for (int k = 0; k < 4; ++k) {
      Vec<Zor32s> masks = as<Zor32s>(sampleMasks(compare, a + 16 * k, b + 16 * k));
      if constexpr (L == AC4) masks = masks | splat<Zor32s>(static_cast<Zor32s>(0xff000000u));
      pixels[k] = equal(masks, splat<Zor32s>(-1));
    }
    return as<Zor8u>(narrowSat<Zor8s>(narrowSat<Zor16s>(pixels[0], pixels[1]), narrowSat<Zor16s>(pixels[2], pixels[3])));
  }
}

// The second operand is an image, or the constant repeated for 16 pixels (Advance 0).
template <Layout L, int Advance, class T, class Compare>
[[gnu::noinline]] void maskRow(const T* a, const T* b, Zor8u* dst, std::ptrdiff_t width, Compare compare)
{
  constexpr std::ptrdiff_t block = 16, samples = block * channels<L>;
  std::ptrdiff_t x = 0;
  for (; x + block <= width; x += block) {
    store(dst + x, pixelMasks<L>(compare, a, b));
    a += samples;
    b += samples * Advance;
  }
  if (x < width) {
    const std::ptrdiff_t rest = (width - x) * channels<L>;
    const PaddedBlock<T, samples> first(a, rest), second(b, Advance ? rest : samples);
    storePart(dst + x, pixelMasks<L>(compare, first.values, second.values), static_cast<std::size_t>(width - x));
  }
}

// ---- Regions ----

template <Layout L, int Advance, class T, class Compare>
void maskRegion(Rows<const T> a, Rows<const T> b, Rows<Zor8u> dst, ZorImgSize roi, Compare compare)
{
  for (int y = 0; y < roi.height; ++y) maskRow<L, Advance>(a[y], b[y], dst[y], roi.width, compare);
}

template <class T, Layout L>
ZorStatus compareRegion(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, Zor8u* pDst, int dstStep, ZorImgSize roiSize,
                        ZorCmpOp cmpOp)
{
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pDst), positive(src1Step, src2Step, dstStep), nonEmpty(roiSize)); s != ZorOk)
    return s;
  const Rows a{pSrc1, src1Step}, b{pSrc2, src2Step};
  const Rows dst{pDst, dstStep};
  switch (static_cast<int>(cmpOp)) {
  case ZorCmpLess: maskRegion<L, 1>(a, b, dst, roiSize, Less{}); break;
  case ZorCmpLessEq: maskRegion<L, 1>(a, b, dst, roiSize, LessEqual{}); break;
  case ZorCmpEq: maskRegion<L, 1>(a, b, dst, roiSize, Equal{}); break;
  case ZorCmpGreaterEq: maskRegion<L, 1>(b, a, dst, roiSize, LessEqual{}); break;
  case ZorCmpGreater: maskRegion<L, 1>(b, a, dst, roiSize, Less{}); break;
  default: break; // an unknown selector writes nothing and is no error
  }
  return ZorOk;
}

// A constant for 16 pixels, of the processed channels; the fourth of AC4 is never looked at.
template <class T, Layout L> struct PixelConstant {
  alignas(16) T values[16 * channels<L>];
  explicit PixelConstant(const T* constant)
  {
    for (int i = 0; i < 16 * channels<L>; ++i)
      values[i] = i % channels<L> < processed<L> ? get<T>(constant + i % channels<L>) : T(0);
  }
};

// Exchanges the operands of a comparison, so that the constant stands first.
template <class Compare> struct Exchanged {
  Compare compare;
  template <class V> V operator()(V a, V b) const { return compare(b, a); }
};

template <class T, Layout L>
ZorStatus compareConstant(const T* pSrc, int srcStep, const T* value, Zor8u* pDst, int dstStep, ZorImgSize roiSize, ZorCmpOp cmpOp)
{
  if (auto s = firstFailure(nonNull(pSrc, value, pDst), positive(srcStep, dstStep), nonEmpty(roiSize)); s != ZorOk) return s;
  const PixelConstant<T, L> constant(value);
  const Rows a{pSrc, srcStep}, b{static_cast<const T*>(constant.values), 0};
  const Rows dst{pDst, dstStep};
  switch (static_cast<int>(cmpOp)) {
  case ZorCmpLess: maskRegion<L, 0>(a, b, dst, roiSize, Less{}); break;
  case ZorCmpLessEq: maskRegion<L, 0>(a, b, dst, roiSize, LessEqual{}); break;
  case ZorCmpEq: maskRegion<L, 0>(a, b, dst, roiSize, Equal{}); break;
  case ZorCmpGreaterEq: maskRegion<L, 0>(a, b, dst, roiSize, Exchanged<LessEqual>{}); break;
  case ZorCmpGreater: maskRegion<L, 0>(a, b, dst, roiSize, Exchanged<Less>{}); break;
  default: break;
  }
  return ZorOk;
}

inline ZorStatus knownTolerance(Zor32f eps) { return require(!(eps < 0.0f), ZorErrEpsilon); } // a NaN passes and never holds

template <Layout L>
ZorStatus compareEqualEps(const Zor32f* pSrc1, int src1Step, const Zor32f* pSrc2, int src2Step, Zor8u* pDst, int dstStep,
                          ZorImgSize roiSize, Zor32f eps)
{
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pDst), positive(src1Step, src2Step, dstStep), nonEmpty(roiSize),
                            knownTolerance(eps)); s != ZorOk)
    return s;
  maskRegion<L, 1>(Rows{pSrc1, src1Step}, Rows{pSrc2, src2Step}, Rows{pDst, dstStep}, roiSize, EqualWithin{eps});
  return ZorOk;
}

template <Layout L>
ZorStatus compareEqualEpsC(const Zor32f* pSrc, int srcStep, const Zor32f* value, Zor8u* pDst, int dstStep, ZorImgSize roiSize, Zor32f eps)
{
  if (auto s = firstFailure(nonNull(pSrc, value, pDst), positive(srcStep, dstStep), nonEmpty(roiSize), knownTolerance(eps)); s != ZorOk)
    return s;
  const PixelConstant<Zor32f, L> constant(value);
  maskRegion<L, 0>(Rows{pSrc, srcStep}, Rows{static_cast<const Zor32f*>(constant.values), 0}, Rows{pDst, dstStep}, roiSize,
                   EqualWithin{eps});
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

#define STAMP_IMAGES(type, layout)                                                                                        \
  ZorStatus zoriCompare_##type##_##layout##R(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2, int src2Step,  \
                                             Zor8u* pDst, int dstStep, ZorImgSize roiSize, ZorCmpOp cmpOp)                \
  { return compareRegion<Zor##type, layout>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, cmpOp); }
#define STAMP_CONSTANT(type, layout, parameter, address)                                                                  \
  ZorStatus zoriCompareC_##type##_##layout##R(const Zor##type* pSrc, int srcStep, parameter, Zor8u* pDst, int dstStep,    \
                                              ZorImgSize roiSize, ZorCmpOp cmpOp)                                         \
  { return compareConstant<Zor##type, layout>(pSrc, srcStep, address, pDst, dstStep, roiSize, cmpOp); }
#define STAMPS(type)                                                                                                      \
  STAMP_IMAGES(type, C1) STAMP_IMAGES(type, C3) STAMP_IMAGES(type, C4) STAMP_IMAGES(type, AC4)                            \
  STAMP_CONSTANT(type, C1, Zor##type value, &value) STAMP_CONSTANT(type, C3, const Zor##type value[3], value)             \
  STAMP_CONSTANT(type, C4, const Zor##type value[4], value) STAMP_CONSTANT(type, AC4, const Zor##type value[3], value)
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32f)
#undef STAMPS
#undef STAMP_CONSTANT
#undef STAMP_IMAGES

#define STAMP(layout, parameter, address)                                                                                 \
  ZorStatus zoriCompareEqualEps_32f_##layout##R(const Zor32f* pSrc1, int src1Step, const Zor32f* pSrc2, int src2Step,     \
                                                Zor8u* pDst, int dstStep, ZorImgSize roiSize, Zor32f eps)                 \
  { return compareEqualEps<layout>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, eps); }                      \
  ZorStatus zoriCompareEqualEpsC_32f_##layout##R(const Zor32f* pSrc, int srcStep, parameter, Zor8u* pDst, int dstStep,    \
                                                 ZorImgSize roiSize, Zor32f eps)                                          \
  { return compareEqualEpsC<layout>(pSrc, srcStep, address, pDst, dstStep, roiSize, eps); }
STAMP(C1, Zor32f value, &value) STAMP(C3, const Zor32f value[3], value)
STAMP(C4, const Zor32f value[4], value) STAMP(AC4, const Zor32f value[3], value)
#undef STAMP
