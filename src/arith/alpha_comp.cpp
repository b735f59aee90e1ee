// zoriAlphaComp_{8u,16u}_{AC1,AC4,AP4}R, zoriAlphaCompC_{8u,16u}_{C1,C3,C4,AC4,AP4}R, zoriAlphaCompColorKey_8u_AC4R:
// composition of two images by the Porter-Duff operators.
//
// Selectors 0 to 5 are the operators on straight sources (p = M(s, a)), 6 to 11 the same on premultiplied ones (p = s).
// Where alpha comes from is the operation: the samples themselves, the pixel's fourth channel, a plane, a constant.
#include "frame/checks.h"
#include "rowkernels/alpha.h"
#include "walk/map.h"
#include "zori/arith.h"

namespace zori {
namespace {

// Both sources are alpha images.
template <class T, Porter Operator> struct ComposeAlphas {
  static constexpr bool isLong = true;
  Vec<T> operator()(Vec<T> s1, Vec<T> s2) const
  {
    return onWords<T>([](Words a1, Words a2, auto) { return compose<T, Operator>(a1, a1, a2, a2); }, s1, s2);
  }
};

// Colours with an alpha for each sample.
template <class T, Porter Operator, bool Straight> struct ComposePlanes {
  static constexpr bool isLong = true;
  Vec<T> operator()(Vec<T> s1, Vec<T> alpha1, Vec<T> s2, Vec<T> alpha2) const
  {
    return onWords<T>(
      [](Words p1, Words a1, Words p2, Words a2, auto) {
        if constexpr (Straight) {
          p1 = fractionProduct<T>(p1, a1);
          p2 = fractionProduct<T>(p2, a2);
        }
        return compose<T, Operator>(p1, a1, p2, a2);
      },
      s1, alpha1, s2, alpha2);
  }
};

// Pixels with alpha in the fourth channel; alpha is its own premultiplied value.
template <class T, Porter Operator, bool Straight> struct ComposePixels {
  static constexpr bool isLong = true;
  static constexpr int period = 4;
  Vec<T> operator()(Vec<T> s1, Vec<T> s2) const
  {
    const Words a1 = alphaWords(s1), a2 = alphaWords(s2);
    return onWords<T>(
      [=](Words p1, Words p2, auto odd) {
        if constexpr (Straight) {
          p1 = fractionProduct<T>(p1, premultiplier<T, decltype(odd)::value>(a1));
          p2 = fractionProduct<T>(p2, premultiplier<T, decltype(odd)::value>(a2));
        }
        return compose<T, Operator>(p1, a1, p2, a2);
      },
      s1, s2);
  }
};

// One alpha for each image.
template <class T, Porter Operator, bool Straight> struct ComposeConstant {
  static constexpr bool isLong = true;
  T alpha1, alpha2;
  Vec<T> operator()(Vec<T> s1, Vec<T> s2) const
  {
    const Words a1 = splat<uint16_t>(alpha1), a2 = splat<uint16_t>(alpha2);
    return onWords<T>(
      [=](Words p1, Words p2, auto) {
        if constexpr (Straight) {
          p1 = fractionProduct<T>(p1, a1);
          p2 = fractionProduct<T>(p2, a2);
        }
        return compose<T, Operator>(p1, a1, p2, a2);
      },
      s1, s2);
  }
};

// Constant alphas, but pixels of the key colour let the second image through.
template <Porter Operator> struct ComposeUnlessKey {
  static constexpr bool isLong = true;
  ComposeConstant<Zor8u, Operator, true> composed;
  Zor32u key;
  Vec<Zor8u> operator()(Vec<Zor8u> s1, Vec<Zor8u> s2) const
  {
    return select(as<Zor8u>(equal(as<Zor32u>(s1), splat(key))), s2, composed(s1, s2));
  }
};

// Calls f(operator, is straight) for a valid selector.
template <class F> void withOperator(unsigned alphaType, F f)
{
  const auto dispatch = [&](auto straight) {
    switch (alphaType % 6) {
    case 0: return f(std::integral_constant<Porter, Porter::Over>{}, straight);
    case 1: return f(std::integral_constant<Porter, Porter::In>{}, straight);
    case 2: return f(std::integral_constant<Porter, Porter::Out>{}, straight);
    case 3: return f(std::integral_constant<Porter, Porter::Atop>{}, straight);
    case 4: return f(std::integral_constant<Porter, Porter::Xor>{}, straight);
    default: return f(std::integral_constant<Porter, Porter::Plus>{}, straight);
    }
  };
  if (alphaType < 6) dispatch(std::true_type{});
  else dispatch(std::false_type{});
}

inline ZorStatus knownOperator(ZorAlphaOp alphaType, unsigned last)
{
  return require(static_cast<unsigned>(alphaType) <= last, ZorErrAlphaType);
}

template <class T, Layout L>
ZorStatus alphaComp(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                    ZorImgSize roiSize, ZorAlphaOp alphaType)
{
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pDst), nonEmpty(roiSize), knownOperator(alphaType, 11)); s != ZorOk)
    return s;
  const Rows dst{pDst, dstStep};
  const Rows src1{pSrc1, src1Step}, src2{pSrc2, src2Step};
  if constexpr (L == AC1) {
    withOperator(alphaType % 6, [&](auto op, auto) {
      mapRegion<C1>(roiSize, ComposeAlphas<T, decltype(op)::value>{}, dst, src1, src2);
    });
  } else {
    withOperator(alphaType, [&](auto op, auto straight) {
      mapRegion<C4>(roiSize, ComposePixels<T, decltype(op)::value, decltype(straight)::value>{}, dst, src1, src2);
    });
  }
  return ZorOk;
}

template <class T>
ZorStatus alphaCompPlanes(const T* const pSrc1[4], int src1Step, const T* const pSrc2[4], int src2Step,
                          T* const pDst[4], int dstStep, ZorImgSize roiSize, ZorAlphaOp alphaType)
{
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pDst), nonNullPlanes<4>(pSrc1), nonNullPlanes<4>(pSrc2),
                            nonNullPlanes<4>(pDst), nonEmpty(roiSize), knownOperator(alphaType, 11));
      s != ZorOk)
    return s;
  const Rows alpha1{pSrc1[3], src1Step}, alpha2{pSrc2[3], src2Step};
  withOperator(alphaType, [&](auto op, auto straight) {
    for (int k = 0; k < 3; ++k)
      mapRegion<C1>(roiSize, ComposePlanes<T, decltype(op)::value, decltype(straight)::value>{}, Rows{pDst[k], dstStep},
                    Rows{pSrc1[k], src1Step}, alpha1, Rows{pSrc2[k], src2Step}, alpha2);
    mapRegion<C1>(roiSize, ComposeAlphas<T, decltype(op)::value>{}, Rows{pDst[3], dstStep}, alpha1, alpha2);
  });
  return ZorOk;
}

template <class T, Layout L>
ZorStatus alphaCompC(const T* pSrc1, int src1Step, T alpha1, const T* pSrc2, int src2Step, T alpha2, T* pDst,
                     int dstStep, ZorImgSize roiSize, ZorAlphaOp alphaType)
{
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pDst), nonEmpty(roiSize), knownOperator(alphaType, 11)); s != ZorOk)
    return s;
  withOperator(alphaType, [&](auto op, auto straight) {
    mapRegion<L>(roiSize, ComposeConstant<T, decltype(op)::value, decltype(straight)::value>{alpha1, alpha2},
                 Rows{pDst, dstStep}, Rows{pSrc1, src1Step}, Rows{pSrc2, src2Step});
  });
  return ZorOk;
}

template <class T>
ZorStatus alphaCompCPlanes(const T* const pSrc1[4], int src1Step, T alpha1, const T* const pSrc2[4], int src2Step,
                           T alpha2, T* const pDst[4], int dstStep, ZorImgSize roiSize, ZorAlphaOp alphaType)
{
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pDst), nonNullPlanes<4>(pSrc1), nonNullPlanes<4>(pSrc2),
                            nonNullPlanes<4>(pDst), nonEmpty(roiSize), knownOperator(alphaType, 11));
      s != ZorOk)
    return s;
  for (int k = 0; k < 3; ++k) // the fourth plane of the destination stays as it was
    alphaCompC<T, C1>(pSrc1[k], src1Step, alpha1, pSrc2[k], src2Step, alpha2, pDst[k], dstStep, roiSize, alphaType);
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriAlphaCompColorKey_8u_AC4R(const Zor8u* pSrc1, int src1Step, Zor8u alpha1, const Zor8u* pSrc2,
                                        int src2Step, Zor8u alpha2, Zor8u* pDst, int dstStep, ZorImgSize roiSize,
                                        const Zor8u colorKey[4], ZorAlphaOp alphaType)
{
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pDst, colorKey), nonEmpty(roiSize), knownOperator(alphaType, 5));
      s != ZorOk)
    return s;
  withOperator(alphaType, [&](auto op, auto) {
    mapRegion<AC4>(roiSize, ComposeUnlessKey<decltype(op)::value>{{alpha1, alpha2}, get<Zor32u>(colorKey)},
                   Rows{pDst, dstStep}, Rows{pSrc1, src1Step}, Rows{pSrc2, src2Step});
  });
  return ZorOk;
}

// clang-format off
#define STAMP(type, layout)                                                                                  \
  ZorStatus zoriAlphaComp_##type##_##layout##R(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2, \
    int src2Step, Zor##type* pDst, int dstStep, ZorImgSize roiSize, ZorAlphaOp alphaType)                    \
  { return alphaComp<Zor##type, layout>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, alphaType); }
STAMP(8u, AC1) STAMP(8u, AC4) STAMP(16u, AC1) STAMP(16u, AC4)
#undef STAMP

#define STAMP(type, layout)                                                                                   \
  ZorStatus zoriAlphaCompC_##type##_##layout##R(const Zor##type* pSrc1, int src1Step, Zor##type alpha1,       \
    const Zor##type* pSrc2, int src2Step, Zor##type alpha2, Zor##type* pDst, int dstStep, ZorImgSize roiSize, \
    ZorAlphaOp alphaType)                                                                                     \
  { return alphaCompC<Zor##type, layout>(pSrc1, src1Step, alpha1, pSrc2, src2Step, alpha2, pDst, dstStep, roiSize, alphaType); }
STAMP(8u, C1) STAMP(8u, C3) STAMP(8u, C4) STAMP(8u, AC4) STAMP(16u, C1) STAMP(16u, C3) STAMP(16u, C4) STAMP(16u, AC4)
#undef STAMP

#define STAMP(type)                                                                                                    \
  ZorStatus zoriAlphaComp_##type##_AP4R(const Zor##type* const pSrc1[4], int src1Step, const Zor##type* const pSrc2[4],\
    int src2Step, Zor##type* const pDst[4], int dstStep, ZorImgSize roiSize, ZorAlphaOp alphaType)                     \
  { return alphaCompPlanes(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, alphaType); }                     \
  ZorStatus zoriAlphaCompC_##type##_AP4R(const Zor##type* const pSrc1[4], int src1Step, Zor##type alpha1,              \
    const Zor##type* const pSrc2[4], int src2Step, Zor##type alpha2, Zor##type* const pDst[4], int dstStep,            \
    ZorImgSize roiSize, ZorAlphaOp alphaType)                                                                          \
  { return alphaCompCPlanes(pSrc1, src1Step, alpha1, pSrc2, src2Step, alpha2, pDst, dstStep, roiSize, alphaType); }
STAMP(8u) STAMP(16u)
#undef STAMP
