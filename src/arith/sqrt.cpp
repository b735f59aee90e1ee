// zoriSqrt_{8u,16u,16s}_{C1,C3,AC4}{R,IR}Sfs, zoriSqrt_32f_{C1,C3,AC4}{R,IR}, zoriSqrt_32f_C4IR: square root.
//
// Integers: sqrt(x) * 2^-scaleFactor to the nearest integer with ties to even, saturated. The quotient is formed in
// floating point and converted under rounding to nearest, which is exact. Ties occur only where the root itself is an
// integer. Any other quotient y is at least 1 / (8y) away from a tie at scales up to 0, where 4y^2 and the square of an
// odd number differ by at least 1: single precision resolves that up to 1448, double precision everywhere.
//
// C1 and C3 advance by the step masked to whole samples, C4 and AC4 by the raw step.
#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "rowkernels/convert.h"
#include "walk/map.h"
#include "zori/arith.h"

#include <cmath>

namespace zori {
namespace {

// Groups of samples that are not negative, times a power of two.
template <class T> struct RootInSingle {
  Zor32f factor;
  template <int Bytes> ZORI_INLINE Group<T, Bytes> operator()(const Group<T, Bytes>& x) const
  {
    Group<Zor32f, Bytes> y = Converted<Zor32f>{}(x);
    for (int k = 0; k < y.parts; ++k) y.part[k] = sqrt(y.part[k]) * splat<Zor32f, Bytes>(factor);
    return Rounded<T>{}(y);
  }
};

template <class T> struct RootInDouble {
  Zor64f factor;
  template <int Bytes> ZORI_INLINE Group<T, Bytes> operator()(const Group<T, Bytes>& x) const
  {
    Group<Zor32s, Bytes> n = Converted<Zor32s>{}(x);
    const auto root = [&](Vec<Zor64f, Bytes> v) { return sqrt(v) * splat<Zor64f, Bytes>(factor); };
    for (auto& part : n.part) part = toInt(root(toDoubleLow(part)), root(toDoubleHigh(part)));
    return Converted<T>{}(n);
  }
};

// Negative samples count as 0 and are marked in `negative`.
template <class Root> struct RootOfPositive {
  Root root;
  Vec<Zor16s>* negative;
  template <int Bytes> ZORI_INLINE Group<Zor16s, Bytes> operator()(Group<Zor16s, Bytes> x) const
  {
    for (auto& part : x.part) {
      *negative = *negative | wholeOf(signs(part));
      part = max(part, zero<Zor16s, Bytes>());
    }
    return root(x);
  }
};

struct FloatRoot {
  Vec<Zor32f>* negative;
  template <int Bytes> ZORI_INLINE Group<Zor32f, Bytes> operator()(Group<Zor32f, Bytes> x) const
  {
    Vec<Zor32f> marks = *negative;
    for (auto& part : x.part) {
      marks = marks | wholeOf(less(part, zero<Zor32f, Bytes>()));
      part = sqrt(part);
    }
    *negative = marks;
    return x;
  }
};

// Beyond these scales every result is 0, or a bound for whatever is not 0. Up to -2 the greatest quotient is 1024.
constexpr int greatestScale = 16, leastScale = -16, leastScaleInSingle = -2;

// The lanes in which a negative sample was met are all ones in the result.
template <class T, Layout L> Vec<T> mapRoots(ZorImgSize roi, Rows<T> dst, Rows<const T> src, int scaleFactor)
{
  Vec<T> negative = zero<T>();
  const auto map = [&](auto op) { mapRegionOfGroups<L>(roi, op, dst, src); };
  if constexpr (!isInt<T>) {
    map(FloatRoot{&negative});
  } else {
    const int scale = scaleFactor > greatestScale ? greatestScale : scaleFactor < leastScale ? leastScale : scaleFactor;
    const Zor32f factor = std::ldexp(1.0f, -scale);
    const auto mapRoot = [&](auto root) {
      if constexpr (isSigned<T>) map(RootOfPositive<decltype(root)>{root, &negative});
      else map(root);
    };
    underRounding(Rounding::Nearest, [&] {
      if (sizeof(T) == 1 || scale >= leastScaleInSingle) mapRoot(RootInSingle<T>{factor});
      else mapRoot(RootInDouble<T>{factor});
    });
  }
  return negative;
}

template <class T, Layout L>
ZorStatus sqrtRegion(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, int scaleFactor = 0)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk) return s;
  if constexpr (L == C1 || L == C3) {
    srcStep = maskedStep<T>(srcStep);
    dstStep = maskedStep<T>(dstStep);
  }
  Vec<T> negative = mapRoots<T, L>(roiSize, Rows{pDst, dstStep}, Rows{pSrc, srcStep}, scaleFactor);
  if constexpr (L == AC4) negative = negative & colourMask<T>();
  return moveMask(negative) ? ZorWarnSqrtNegArg : ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout)                                                                                         \
  ZorStatus zoriSqrt_##type##_##layout##RSfs(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,      \
                                             ZorImgSize roiSize, int scaleFactor)                                   \
  { return sqrtRegion<Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize, scaleFactor); }                     \
  ZorStatus zoriSqrt_##type##_##layout##IRSfs(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize,               \
                                              int scaleFactor)                                                      \
  { return sqrtRegion<Zor##type, layout>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, scaleFactor); }
#define STAMP_TYPE(type) STAMP(type, C1) STAMP(type, C3) STAMP(type, AC4)
STAMP_TYPE(8u) STAMP_TYPE(16u) STAMP_TYPE(16s)
#undef STAMP_TYPE
#undef STAMP

#define STAMP_R(layout)                                                                                             \
  ZorStatus zoriSqrt_32f_##layout##R(const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep,                    \
                                     ZorImgSize roiSize)                                                            \
  { return sqrtRegion<Zor32f, layout>(pSrc, srcStep, pDst, dstStep, roiSize); }
#define STAMP_IR(layout)                                                                                            \
  ZorStatus zoriSqrt_32f_##layout##IR(Zor32f* pSrcDst, int srcDstStep, ZorImgSize roiSize)                          \
  { return sqrtRegion<Zor32f, layout>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }
STAMP_R(C1) STAMP_R(C3) STAMP_R(AC4)
STAMP_IR(C1) STAMP_IR(C3) STAMP_IR(C4) STAMP_IR(AC4)
#undef STAMP_R
#undef STAMP_IR
