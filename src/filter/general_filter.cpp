// zoriFilter_{8u,16u,16s}_{C1,C3,C4,AC4}R, zoriFilter_32f_{C1,C3,C4,AC4}R, zoriFilter32f_{8u,16u,16s}_{C1,C3,C4,AC4}R,
// zoriFilter_64f_C1R, zoriFilterGetBufSize_64f_C1R: convolution with the caller's kernel.
//
//   8u, 16s    integer sums; 8u rounds ties of general divisors to even on the fast path, else up
//   16u        the elements times 1.0f / divisor, then as zoriFilter32f_16u
//   32f forms  float sums; to 8u ties go to even on the fast path, else up
#include "general_finish.h"
#include "zori/filter.h"

namespace zori {
inline namespace ZORI_WIDTH {
namespace general {
namespace {

template <class T, Layout L>
ZorStatus filterWithIntegers(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize,
                             const Zor32s* pKernel, ZorImgSize kernelSize, ZorImgPoint anchor, int divisor)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, pKernel), nonEmpty(roiSize), nonEmpty(kernelSize), divides(divisor),
                            rowsFit<L>(pSrc, srcStep, pDst, dstStep, roiSize, kernelSize.width));
      s != ZorOk)
    return s;
  auto call = convolution<L>(pSrc, srcStep, pDst, dstStep, roiSize, pKernel, kernelSize, anchor);
  if constexpr (std::is_same_v<T, Zor8u>)
    finishQuotient_8u<L>(call, divisor,
                         isWide(kernelSize.width, roiSize.width) && elementsWithin(pKernel, kernelSize, -32767, 32766));
  else call.fast = call.plain = divisionBy<L, T, Rounded<T>>(divisor);
  convolve(call);
  return ZorOk;
}

template <class T, class D, Layout L>
ZorStatus filterWithFloats(const T* pSrc, int srcStep, D* pDst, int dstStep, ZorImgSize roiSize, const Zor32f* pKernel,
                           ZorImgSize kernelSize, ZorImgPoint anchor)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, pKernel), nonEmpty(roiSize), nonEmpty(kernelSize),
                            rowsFit<L>(pSrc, srcStep, pDst, dstStep, roiSize, kernelSize.width));
      s != ZorOk)
    return s;
  auto call = convolution<L>(pSrc, srcStep, pDst, dstStep, roiSize, pKernel, kernelSize, anchor);
  finishNearest<L, D>(call, isWide(kernelSize.width, roiSize.width));
  convolve(call);
  return ZorOk;
}

// The kernel alone is looked at here, everything else by the float form.
template <Layout L>
ZorStatus filterDivided(const Zor16u* pSrc, int srcStep, Zor16u* pDst, int dstStep, ZorImgSize roiSize,
                        const Zor32s* pKernel, ZorImgSize kernelSize, ZorImgPoint anchor, int divisor)
{
  if (auto s = firstFailure(nonNull(pKernel), nonEmpty(kernelSize), divides(divisor)); s != ZorOk) return s;
  const DividedKernel divided(pKernel, kernelSize, divisor);
  if (!divided.get()) return ZorErrAlloc;
  return filterWithFloats<Zor16u, Zor16u, L>(pSrc, srcStep, pDst, dstStep, roiSize, divided.get(), kernelSize, anchor);
}

} // namespace
} // namespace general
} // namespace ZORI_WIDTH
} // namespace zori

using namespace zori;
using namespace zori::general;

ZorStatus zoriFilter_64f_C1R(const Zor64f* pSrc, int srcStep, Zor64f* pDst, int dstStep, ZorImgSize roiSize,
                             const Zor64f* pKernel, ZorImgSize kernelSize, ZorImgPoint anchor)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, pKernel), nonEmpty(roiSize), nonEmpty(kernelSize),
                            rowsFit<C1>(pSrc, srcStep, pDst, dstStep, roiSize, kernelSize.width));
      s != ZorOk)
    return s;
  convolveInDouble(convolution<C1>(pSrc, srcStep, pDst, dstStep, roiSize, pKernel, kernelSize, anchor));
  return ZorOk;
}

ZorStatus zoriFilterGetBufSize_64f_C1R(ZorImgSize kernelSize, int roiWidth, int* pBufferSize)
{
  if (auto s = firstFailure(nonNull(pBufferSize), nonEmpty(kernelSize), positiveSize(roiWidth)); s != ZorOk) return s;
  *pBufferSize = 0;
  return ZorOk;
}

// clang-format off
#define PARAMETERS(type, kernel)                                                                                      \
  const Zor##type *pSrc, int srcStep, Zor##type *pDst, int dstStep, ZorImgSize roiSize, const Zor##kernel *pKernel,   \
    ZorImgSize kernelSize, ZorImgPoint anchor
#define ARGUMENTS pSrc, srcStep, pDst, dstStep, roiSize, pKernel, kernelSize, anchor
#define STAMP_INTEGERS(type, layout)                                                                                  \
  ZorStatus zoriFilter_##type##_##layout##R(PARAMETERS(type, 32s), int divisor)                                       \
  { return filterWithIntegers<Zor##type, layout>(ARGUMENTS, divisor); }
#define STAMP_DIVIDED(type, layout)                                                                                   \
  ZorStatus zoriFilter_##type##_##layout##R(PARAMETERS(type, 32s), int divisor)                                       \
  { return filterDivided<layout>(ARGUMENTS, divisor); }
#define STAMP_FLOATS(name, type, layout)                                                                              \
  ZorStatus name##_##type##_##layout##R(PARAMETERS(type, 32f))                                                        \
  { return filterWithFloats<Zor##type, Zor##type, layout>(ARGUMENTS); }
#define STAMPS(layout)                                                                                                \
  STAMP_INTEGERS(8u, layout) STAMP_INTEGERS(16s, layout) STAMP_DIVIDED(16u, layout)                                   \
  STAMP_FLOATS(zoriFilter, 32f, layout) STAMP_FLOATS(zoriFilter32f, 8u, layout)                                       \
  STAMP_FLOATS(zoriFilter32f, 16u, layout) STAMP_FLOATS(zoriFilter32f, 16s, layout)
STAMPS(C1) STAMPS(C3) STAMPS(C4) STAMPS(AC4)
#undef STAMPS
#undef STAMP_FLOATS
#undef STAMP_DIVIDED
#undef STAMP_INTEGERS
#undef ARGUMENTS
#undef PARAMETERS
