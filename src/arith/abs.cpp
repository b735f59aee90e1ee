// zoriAbs_{16s,32f}_{C1,C3,C4,AC4}{R,IR}: absolute value.
//
// 16s: m = x < 0 ? -1 : 0, (x ^ m) - m with saturation, so that -32768 gives 32767. 32f: the sign bit cleared.
// C1 and C3 advance by the step masked to whole elements, C4 and AC4 by the raw step.
#include "frame/checks.h"
#include "walk/map.h"
#include "zori/arith.h"

#include <algorithm>

namespace zori {
namespace {

template <class T> struct AbsoluteValue {
  Vec<T> operator()(Vec<T> x) const
  {
    if constexpr (std::is_same_v<T, Zor32f>) return abs(x);
    else {
      const Vec<T> m = signs(x);
      return subSat(x ^ m, m);
    }
  }
};

// Pixels of a 32f AC4 row that are written. The row goes in steps of 256 pixels, but a step starts only 64 pixels
// behind the one before; what lies behind the last step keeps its value. This is the function's contract.
static int coveredPixels(int width)
{
  const int full = width / 256, rest = width % 256;
  return full == 0 ? width : std::max(64 * (full - 1) + 256, 64 * full + rest);
}

template <class T, Layout L> ZorStatus absRegion(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk) return s;
  if constexpr (L == C1 || L == C3) {
    srcStep = maskedStep<T>(srcStep);
    dstStep = maskedStep<T>(dstStep);
  }
  if constexpr (L == AC4 && std::is_same_v<T, Zor32f>) roiSize.width = coveredPixels(roiSize.width);
  mapRegion<L>(roiSize, AbsoluteValue<T>{}, Rows{pDst, dstStep}, Rows{pSrc, srcStep});
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout)                                                                                       \
  ZorStatus zoriAbs_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,        \
                                         ZorImgSize roiSize)                                                      \
  { return absRegion<Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize); }                                 \
  ZorStatus zoriAbs_##type##_##layout##IR(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize)                 \
  { return absRegion<Zor##type, layout>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }
STAMP(16s, C1) STAMP(16s, C3) STAMP(16s, C4) STAMP(16s, AC4)
STAMP(32f, C1) STAMP(32f, C3) STAMP(32f, C4) STAMP(32f, AC4)
#undef STAMP
