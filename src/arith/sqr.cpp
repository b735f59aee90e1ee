// zoriSqr_{8u,16u,16s}_{C1,C3,C4,AC4}{R,IR}Sfs, zoriSqr_32f_{C1,C3,C4,AC4}{R,IR}: square.
//
// The product of a sample with itself, scaled, rounded and saturated as products of two images are. By the scale:
//
//   0          saturated
//   positive   scaled down; 0 from the scale on at which the greatest square is below a half
//   negative   saturated and shifted left; from the width of a sample on, whatever is not zero gives the upper bound
//
// C1 and C3 advance by the step masked to whole samples, C4 and AC4 by the raw step.
#include "arith/shortcuts.h"
#include "frame/checks.h"
#include "rowkernels/scaled.h"
#include "walk/map.h"
#include "zori/arith.h"

namespace zori {
namespace {

template <class T, Path path> struct Squared {
  int shift = 0;
  ZORI_INLINE Vec<T> operator()(Vec<T> x) const { return AtScale<Product<T>, path>{shift}(x, x); }
};

// The greatest scale at which a square can round to 1.
template <class T> constexpr int greatestScale = isSigned<T> ? 30 : 16 * sizeof(T);

template <class T, Layout L>
ZorStatus sqrRegion(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, int scaleFactor = 0)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk) return s;
  if constexpr (L == C1 || L == C3) {
    srcStep = maskedStep<T>(srcStep);
    dstStep = maskedStep<T>(dstStep);
  }
  const auto map = [&](auto op) { mapRegion<L>(roiSize, op, Rows{pDst, dstStep}, Rows{pSrc, srcStep}); };
  if constexpr (isInt<T>) {
    if (scaleFactor > greatestScale<T>) return fillRegion<L>(T(0), pDst, dstStep, roiSize);
    if (scaleFactor > 0) map(Squared<T, Path::Positive>{scaleFactor});
    if (scaleFactor < 0) map(Squared<T, Path::Negative>{scaleFactor < -boundShift<T> ? boundShift<T> : -scaleFactor});
  }
  if (scaleFactor == 0) map(Squared<T, Path::Plain>{});
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout)                                                                                         \
  ZorStatus zoriSqr_##type##_##layout##RSfs(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,       \
                                            ZorImgSize roiSize, int scaleFactor)                                    \
  { return sqrRegion<Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize, scaleFactor); }                      \
  ZorStatus zoriSqr_##type##_##layout##IRSfs(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize,                \
                                             int scaleFactor)                                                       \
  { return sqrRegion<Zor##type, layout>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, scaleFactor); }
#define STAMP_TYPE(type) STAMP(type, C1) STAMP(type, C3) STAMP(type, C4) STAMP(type, AC4)
STAMP_TYPE(8u) STAMP_TYPE(16u) STAMP_TYPE(16s)
#undef STAMP_TYPE
#undef STAMP

#define STAMP(layout)                                                                                               \
  ZorStatus zoriSqr_32f_##layout##R(const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep, ZorImgSize roiSize) \
  { return sqrRegion<Zor32f, layout>(pSrc, srcStep, pDst, dstStep, roiSize); }                                      \
  ZorStatus zoriSqr_32f_##layout##IR(Zor32f* pSrcDst, int srcDstStep, ZorImgSize roiSize)                           \
  { return sqrRegion<Zor32f, layout>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }
STAMP(C1) STAMP(C3) STAMP(C4) STAMP(AC4)
#undef STAMP
