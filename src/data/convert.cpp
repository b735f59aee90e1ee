// zoriConvert_<a><b>_{C1,C3,C4,AC4}R: conversion of the element type; the value stays, clamped to the new type.
//
// Integers to wider types and to 32f are exact, integers to narrower ones saturate. 32f to an integer clamps (a NaN
// takes the upper bound), then rounds by roundMode: 0 toward zero and 1 to nearest, ties to even, both by the rounding
// field of the control register, which is set for the call; any other value ties away from zero, with the register
// left alone.
//
// Stores are ordinary ones at every size: streaming past the cache measured slower up to images of 128 MB.
#include "rowkernels/convert.h"
#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "walk/map.h"
#include "zori/data.h"

namespace zori {
namespace {

// The contract of 16s32s has no test of the steps.
template <class S, class D>
inline constexpr bool stepsTested = !(std::is_same_v<S, Zor16s> && std::is_same_v<D, Zor32s>);

template <Layout L, class S, class D>
ZorStatus convertRegion(const S* pSrc, int srcStep, D* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  if (auto s = positive(srcStep, dstStep); stepsTested<S, D> && s != ZorOk) return s;
  mapRegionOfGroups<L>(roiSize, Converted<D>{}, Rows{pDst, dstStep}, Rows{pSrc, srcStep});
  return ZorOk;
}

template <Layout L, class D>
ZorStatus roundRegion(const Zor32f* pSrc, int srcStep, D* pDst, int dstStep, ZorImgSize roiSize, ZorRoundMode roundMode)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk) return s;
  const Rows dst{pDst, dstStep};
  const Rows src{pSrc, srcStep};
  if (roundMode == ZorRoundTowardZero || roundMode == ZorRoundNearestEven) {
    underRounding(roundMode == ZorRoundTowardZero ? roundTowardZero : roundNearest,
                  [&] { mapRegionOfGroups<L>(roiSize, Rounded<D>{}, dst, src); });
  } else {
    mapRegionOfGroups<L>(roiSize, RoundedAway<D>{}, dst, src);
  }
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP_LAYOUT(from, to, layout)                                                                              \
  ZorStatus zoriConvert_##from##to##_##layout##R(const Zor##from* pSrc, int srcStep, Zor##to* pDst, int dstStep,    \
                                                 ZorImgSize roiSize)                                                \
  { return convertRegion<layout>(pSrc, srcStep, pDst, dstStep, roiSize); }
#define STAMP(from, to) \
  STAMP_LAYOUT(from, to, C1) STAMP_LAYOUT(from, to, C3) STAMP_LAYOUT(from, to, C4) STAMP_LAYOUT(from, to, AC4)
STAMP(8u, 16u) STAMP(8u, 16s) STAMP(8u, 32s) STAMP(8u, 32f) STAMP(8s, 32s) STAMP(8s, 32f)
STAMP(16u, 8u) STAMP(16u, 32s) STAMP(16u, 32f) STAMP(16s, 8u) STAMP(16s, 32s) STAMP(16s, 32f)
STAMP(32s, 8u) STAMP(32s, 8s)
#undef STAMP_LAYOUT

#define STAMP_LAYOUT(from, to, layout)                                                                              \
  ZorStatus zoriConvert_##from##to##_##layout##R(const Zor##from* pSrc, int srcStep, Zor##to* pDst, int dstStep,    \
                                                 ZorImgSize roiSize, ZorRoundMode roundMode)                        \
  { return roundRegion<layout>(pSrc, srcStep, pDst, dstStep, roiSize, roundMode); }
STAMP(32f, 8u) STAMP(32f, 8s) STAMP(32f, 16u) STAMP(32f, 16s)
#undef STAMP_LAYOUT
#undef STAMP
