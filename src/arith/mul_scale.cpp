// zori{MulScale,MulCScale}_{8u,16u}_{C1,C3,C4,AC4}{R,IR}: products of fractions of full scale.
//
// With two images, C3 and C4 are one-channel runs: they test the region before the pointers. The forms with a constant
// test pointers, steps, region.
#include "frame/checks.h"
#include "rowkernels/alpha.h"
#include "walk/map.h"
#include "zori/arith.h"

namespace zori {
namespace {

struct FractionProduct {
  template <class T> Vec<T> operator()(Vec<T> a, Vec<T> b) const
  {
    return onWords<T>([](Words x, Words y, auto) { return fractionProduct<T>(x, y); }, a, b);
  }
};

template <class T, Layout L>
ZorStatus mulScale(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if constexpr (L == C3 || L == C4)
    if (auto s = nonEmpty(roiSize); s != ZorOk) return s;
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pDst), positive(src1Step, src2Step, dstStep), nonEmpty(roiSize));
      s != ZorOk)
    return s;
  mapRegion<L>(roiSize, FractionProduct{}, Rows{pDst, dstStep}, Rows{pSrc1, src1Step}, Rows{pSrc2, src2Step});
  return ZorOk;
}

template <class T, Layout L>
ZorStatus mulCScale(const T* pSrc, int srcStep, const T* value, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, value, pDst), positive(srcStep, dstStep), nonEmpty(roiSize)); s != ZorOk)
    return s;
  T constant[4] = {};
  for (int k = 0; k < processed<L>; ++k) constant[k] = get<T>(value + k);
  mapRegionWith<L>(Pattern<T>(constant, channels<L>), roiSize, FractionProduct{}, Rows{pDst, dstStep},
                   Rows{pSrc, srcStep});
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout)                                                                                           \
  ZorStatus zoriMulScale_##type##_##layout##R(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2,           \
                                              int src2Step, Zor##type* pDst, int dstStep, ZorImgSize roiSize)         \
  { return mulScale<Zor##type, layout>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize); }                   \
  ZorStatus zoriMulScale_##type##_##layout##IR(const Zor##type* pSrc, int srcStep, Zor##type* pSrcDst,                \
                                               int srcDstStep, ZorImgSize roiSize)                                    \
  { return mulScale<Zor##type, layout>(pSrc, srcStep, pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }
#define STAMP_C(type, layout, parameter, address)                                                                     \
  ZorStatus zoriMulCScale_##type##_##layout##R(const Zor##type* pSrc, int srcStep, parameter, Zor##type* pDst,        \
                                               int dstStep, ZorImgSize roiSize)                                       \
  { return mulCScale<Zor##type, layout>(pSrc, srcStep, address, pDst, dstStep, roiSize); }                            \
  ZorStatus zoriMulCScale_##type##_##layout##IR(parameter, Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize)    \
  { return mulCScale<Zor##type, layout>(pSrcDst, srcDstStep, address, pSrcDst, srcDstStep, roiSize); }
#define STAMP_TYPE(type)                                                                                              \
  STAMP(type, C1) STAMP(type, C3) STAMP(type, C4) STAMP(type, AC4)                                                    \
  STAMP_C(type, C1, Zor##type value, &value)                                                                          \
  STAMP_C(type, C3, const Zor##type value[3], value)                                                                  \
  STAMP_C(type, C4, const Zor##type value[4], value)                                                                  \
  STAMP_C(type, AC4, const Zor##type value[3], value)
STAMP_TYPE(8u) STAMP_TYPE(16u)
#undef STAMP_TYPE
#undef STAMP_C
#undef STAMP
