// zoriAlphaPremul_{8u,16u}_{AC4,AP4}{R,IR}, zoriAlphaPremulC_{8u,16u}_{C1,C3,C4,AC4,AP4}{R,IR}: colours times alpha.
//
// Colours become M(c, alpha). With an alpha of the pixel's own it is copied; AC4 and AP4 with a constant write the
// constant as alpha.
#include "frame/checks.h"
#include "rowkernels/alpha.h"
#include "shortcuts.h"
#include "walk/map.h"
#include "zori/arith.h"

namespace zori {
namespace {

template <class T> struct PremultiplyPixels {
  static constexpr int period = 4;
  Vec<T> operator()(Vec<T> s) const
  {
    const Words alpha = alphaWords(s);
    return onWords<T>(
      [=](Words x, auto odd) { return fractionProduct<T>(x, premultiplier<T, decltype(odd)::value>(alpha)); }, s);
  }
};

template <class T> struct Premultiply {
  Vec<T> operator()(Vec<T> s, Vec<T> alpha) const
  {
    return onWords<T>([](Words x, Words a, auto) { return fractionProduct<T>(x, a); }, s, alpha);
  }
};

template <class T> struct PremultiplyBy {
  T alpha;
  Vec<T> operator()(Vec<T> s) const { return Premultiply<T>{}(s, splat(alpha)); }
};

template <class T> struct PremultiplyColoursBy {
  static constexpr int period = 4;
  T alpha;
  Vec<T> operator()(Vec<T> s) const { return select(colourMask<T>(), PremultiplyBy<T>{alpha}(s), splat(alpha)); }
};

template <class T> ZorStatus premultiply(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  mapRegion<C4>(roiSize, PremultiplyPixels<T>{}, Rows{pDst, dstStep}, Rows{pSrc, srcStep});
  return ZorOk;
}

template <class T>
ZorStatus premultiplyPlanes(const T* const pSrc[4], int srcStep, T* const pDst[4], int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonNullPlanes<4>(pSrc), nonNullPlanes<4>(pDst), nonEmpty(roiSize));
      s != ZorOk)
    return s;
  const Rows alpha{pSrc[3], srcStep};
  for (int k = 0; k < 3; ++k)
    mapRegion<C1>(roiSize, Premultiply<T>{}, Rows{pDst[k], dstStep}, Rows{pSrc[k], srcStep}, alpha);
  return copyRegion<C1>(pSrc[3], srcStep, pDst[3], dstStep, roiSize);
}

template <class T, Layout L>
ZorStatus premultiplyC(const T* pSrc, int srcStep, T alpha, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  const Rows dst{pDst, dstStep};
  const Rows src{pSrc, srcStep};
  if constexpr (L == AC4) mapRegion<C4>(roiSize, PremultiplyColoursBy<T>{alpha}, dst, src);
  else mapRegion<L>(roiSize, PremultiplyBy<T>{alpha}, dst, src);
  return ZorOk;
}

template <class T>
ZorStatus premultiplyCPlanes(const T* const pSrc[4], int srcStep, T alpha, T* const pDst[4], int dstStep,
                             ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonNullPlanes<4>(pSrc), nonNullPlanes<4>(pDst), nonEmpty(roiSize));
      s != ZorOk)
    return s;
  for (int k = 0; k < 3; ++k) premultiplyC<T, C1>(pSrc[k], srcStep, alpha, pDst[k], dstStep, roiSize);
  return fillRegion<C1>(alpha, pDst[3], dstStep, roiSize);
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type)                                                                                              \
  ZorStatus zoriAlphaPremul_##type##_AC4R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,      \
                                          ZorImgSize roiSize)                                                    \
  { return premultiply(pSrc, srcStep, pDst, dstStep, roiSize); }                                                 \
  ZorStatus zoriAlphaPremul_##type##_AC4IR(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize)               \
  { return premultiply<Zor##type>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }                          \
  ZorStatus zoriAlphaPremul_##type##_AP4R(const Zor##type* const pSrc[4], int srcStep, Zor##type* const pDst[4], \
                                          int dstStep, ZorImgSize roiSize)                                       \
  { return premultiplyPlanes(pSrc, srcStep, pDst, dstStep, roiSize); }                                           \
  ZorStatus zoriAlphaPremul_##type##_AP4IR(Zor##type* const pSrcDst[4], int srcDstStep, ZorImgSize roiSize)      \
  { return premultiplyPlanes<Zor##type>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }                    \
  ZorStatus zoriAlphaPremulC_##type##_AP4R(const Zor##type* const pSrc[4], int srcStep, Zor##type alpha,         \
                                           Zor##type* const pDst[4], int dstStep, ZorImgSize roiSize)            \
  { return premultiplyCPlanes(pSrc, srcStep, alpha, pDst, dstStep, roiSize); }                                   \
  ZorStatus zoriAlphaPremulC_##type##_AP4IR(Zor##type alpha, Zor##type* const pSrcDst[4], int srcDstStep,        \
                                            ZorImgSize roiSize)                                                  \
  { return premultiplyCPlanes<Zor##type>(pSrcDst, srcDstStep, alpha, pSrcDst, srcDstStep, roiSize); }
STAMP(8u) STAMP(16u)
#undef STAMP

#define STAMP(type, layout)                                                                                            \
  ZorStatus zoriAlphaPremulC_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type alpha, Zor##type* pDst,\
                                                  int dstStep, ZorImgSize roiSize)                                     \
  { return premultiplyC<Zor##type, layout>(pSrc, srcStep, alpha, pDst, dstStep, roiSize); }                            \
  ZorStatus zoriAlphaPremulC_##type##_##layout##IR(Zor##type alpha, Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize)\
  { return premultiplyC<Zor##type, layout>(pSrcDst, srcDstStep, alpha, pSrcDst, srcDstStep, roiSize); }
STAMP(8u, C1) STAMP(8u, C3) STAMP(8u, C4) STAMP(8u, AC4) STAMP(16u, C1) STAMP(16u, C3) STAMP(16u, C4) STAMP(16u, AC4)
#undef STAMP
