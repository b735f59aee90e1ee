// zoriDiv_{8u,16u,16s}_{C1,C3,C4,AC4}{R,IR}Sfs, zoriDiv_{16sc,32sc}_{C1,C3,AC4}{R,IR}Sfs,
// zoriDiv_32f_{C1,C3,C4,AC4}{R,IR}, zoriDiv_32fc_{C1,C3,AC4}{R,IR}: quotient of two images.
// zoriDiv_Round_{8u,16u,16s}_{C1,C3,C4,AC4}{R,IR}Sfs: the same with a choice of rounding.
//
// dst = src2 / src1 * 2^-scaleFactor: the first image is the denominator. In place, srcDst / src. A zero denominator
// has a defined result and makes the call end with a warning.
#include "frame/checks.h"
#include "rowkernels/division.h"
#include "walk/map.h"
#include "zori/arith.h"

namespace zori {
namespace {

template <class T>
using RowDivision = bool (*)(T* dst, std::ptrdiff_t length, int scaleFactor, const T* num, const T* den);

// Walks the region with a row kernel. The last check is that of a parameter.
template <class T>
ZORI_ONE_COPY ZorStatus divideRegion(RowDivision<T> divide, int channelCount, Rows<const T> den, Rows<const T> num,
                                     Rows<T> dst, ZorImgSize roiSize, int scaleFactor, ZorStatus lastCheck = ZorOk)
{
  if (auto s = firstFailure(nonNull(den.first, num.first, dst.first), nonEmpty(roiSize),
                            positive(den.step, num.step, dst.step), lastCheck);
      s != ZorOk)
    return s;
  const int pixelBytes = channelCount * static_cast<int>(sizeof(T));
  roiSize = joinedRows(roiSize, Pitch{pixelBytes, den.step}, Pitch{pixelBytes, num.step}, Pitch{pixelBytes, dst.step});
  const std::ptrdiff_t length = elementsOf(roiSize.width, channelCount);
  return underRounding(divisionRounding<T>, [&] {
    ZorStatus status = ZorOk;
    for (int y = 0; y < roiSize.height; ++y)
      if (divide(dst[y], length, scaleFactor, num[y], den[y])) status = ZorWarnDivByZero;
    return status;
  });
}

template <Layout L, class T>
ZorStatus divImages(Rows<const T> den, Rows<const T> num, Rows<T> dst, ZorImgSize roiSize, int scaleFactor = 0)
{
  // 16sc: below this scale every part but 0 saturates, even one that the scale would leave within the bounds
  if (std::is_same_v<T, Zor16sc> && scaleFactor < -32) scaleFactor = -64;
  return divideRegion<T>(divideRow<T, L == AC4>, channels<L>, den, num, dst, roiSize, scaleFactor);
}

template <Layout L, class T>
ZorStatus divImagesRound(Rows<const T> den, Rows<const T> num, Rows<T> dst, ZorImgSize roiSize, ZorRoundMode rndMode,
                         int scaleFactor)
{
  constexpr bool keepsFourth = L == AC4;
  static constexpr RowDivision<T> byMode[] = {divideRow<T, keepsFourth, ZorRoundTowardZero>,
                                              divideRow<T, keepsFourth, ZorRoundNearestEven>,
                                              divideRow<T, keepsFourth, ZorRoundNearestAway>};
  const auto mode = static_cast<unsigned>(rndMode);
  const bool known = mode <= ZorRoundNearestAway;
  return divideRegion<T>(byMode[known ? mode : 0], channels<L>, den, num, dst, roiSize, scaleFactor,
                         require(known, ZorErrRoundMode));
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout)                                                                                           \
  ZorStatus zoriDiv_##type##_##layout##RSfs(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2,             \
                                            int src2Step, Zor##type* pDst, int dstStep, ZorImgSize roiSize,           \
                                            int scaleFactor)                                                          \
  {                                                                                                                   \
    return divImages<layout>(Rows{pSrc1, src1Step}, Rows{pSrc2, src2Step}, Rows{pDst, dstStep}, roiSize, scaleFactor); \
  }                                                                                                                   \
  ZorStatus zoriDiv_##type##_##layout##IRSfs(const Zor##type* pSrc, int srcStep, Zor##type* pSrcDst, int srcDstStep,  \
                                             ZorImgSize roiSize, int scaleFactor)                                     \
  {                                                                                                                   \
    return zoriDiv_##type##_##layout##RSfs(pSrc, srcStep, pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize,          \
                                           scaleFactor);                                                              \
  }
STAMP(8u, C1) STAMP(8u, C3) STAMP(8u, C4) STAMP(8u, AC4)
STAMP(16u, C1) STAMP(16u, C3) STAMP(16u, C4) STAMP(16u, AC4)
STAMP(16s, C1) STAMP(16s, C3) STAMP(16s, C4) STAMP(16s, AC4)
STAMP(16sc, C1) STAMP(16sc, C3) STAMP(16sc, AC4)
STAMP(32sc, C1) STAMP(32sc, C3) STAMP(32sc, AC4)
#undef STAMP

#define STAMP(type, layout)                                                                                           \
  ZorStatus zoriDiv_##type##_##layout##R(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2, int src2Step,  \
                                         Zor##type* pDst, int dstStep, ZorImgSize roiSize)                            \
  { return divImages<layout>(Rows{pSrc1, src1Step}, Rows{pSrc2, src2Step}, Rows{pDst, dstStep}, roiSize); }      \
  ZorStatus zoriDiv_##type##_##layout##IR(const Zor##type* pSrc, int srcStep, Zor##type* pSrcDst, int srcDstStep,     \
                                          ZorImgSize roiSize)                                                         \
  { return zoriDiv_##type##_##layout##R(pSrc, srcStep, pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }
STAMP(32f, C1) STAMP(32f, C3) STAMP(32f, C4) STAMP(32f, AC4)
STAMP(32fc, C1) STAMP(32fc, C3) STAMP(32fc, AC4)
#undef STAMP

#define STAMP(type, layout)                                                                                           \
  ZorStatus zoriDiv_Round_##type##_##layout##RSfs(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2,       \
                                                  int src2Step, Zor##type* pDst, int dstStep, ZorImgSize roiSize,     \
                                                  ZorRoundMode rndMode, int scaleFactor)                              \
  {                                                                                                                   \
    return divImagesRound<layout>(Rows{pSrc1, src1Step}, Rows{pSrc2, src2Step}, Rows{pDst, dstStep}, roiSize,         \
                                  rndMode, scaleFactor);                                                              \
  }                                                                                                                   \
  ZorStatus zoriDiv_Round_##type##_##layout##IRSfs(const Zor##type* pSrc, int srcStep, Zor##type* pSrcDst,            \
                                                   int srcDstStep, ZorImgSize roiSize, ZorRoundMode rndMode,          \
                                                   int scaleFactor)                                                   \
  {                                                                                                                   \
    return zoriDiv_Round_##type##_##layout##RSfs(pSrc, srcStep, pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize,    \
                                                 rndMode, scaleFactor);                                               \
  }
STAMP(8u, C1) STAMP(8u, C3) STAMP(8u, C4) STAMP(8u, AC4)
STAMP(16u, C1) STAMP(16u, C3) STAMP(16u, C4) STAMP(16u, AC4)
STAMP(16s, C1) STAMP(16s, C3) STAMP(16s, C4) STAMP(16s, AC4)
#undef STAMP
