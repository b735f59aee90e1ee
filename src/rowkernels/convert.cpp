// The checking kernels of type conversion.
#include "convert.h"

#include "frame/checks.h"
#include "frame/numeric_mode.h"

namespace zori {

template <class S, class D> static ZorStatus zorsConvert(const S* pSrc, D* pDst, int length)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), positiveSize(length)); s != ZorOk) return s;
  ownzorsCnvrt(pSrc, pDst, length);
  return ZorOk;
}

template <class D>
static ZorStatus zorsConvert_Sfs(const Zor32f* pSrc, D* pDst, int length, ZorRoundMode roundMode, int scaleFactor)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), positiveSize(length)); s != ZorOk) return s;
  if (roundMode == ZorRoundTowardZero || roundMode == ZorRoundNearestEven) {
    const RoundingScope rounding(roundMode == ZorRoundTowardZero ? roundTowardZero : roundNearest);
    ownzorsCnvrt_Sfs(pSrc, pDst, length, scaleFactor);
  } else {
    ownzorsCnvrtFin_Sfs(pSrc, pDst, length, scaleFactor);
  }
  return ZorOk;
}

// clang-format off
#define STAMP(type)                                                                     \
  ZorStatus zorsConvert_##type##32f(const Zor##type* pSrc, Zor32f* pDst, int length)    \
  { return zorsConvert(pSrc, pDst, length); }
STAMP(8u) STAMP(8s) STAMP(16u) STAMP(16s) STAMP(32s)
#undef STAMP

#define STAMP(type)                                                                                                   \
  ZorStatus zorsConvert_32f##type##_Sfs(const Zor32f* pSrc, Zor##type* pDst, int length, ZorRoundMode roundMode,      \
                                        int scaleFactor)                                                              \
  { return zorsConvert_Sfs(pSrc, pDst, length, roundMode, scaleFactor); }
STAMP(8u) STAMP(8s) STAMP(16u) STAMP(16s) STAMP(32s)
#undef STAMP

} // namespace zori
