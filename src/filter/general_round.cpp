// zoriFilter_Round16s_8u_{C1,C3,C4,AC4}R, zoriFilter_Round32s_{16u,16s}_{C1,C3,C4,AC4}R,
// zoriFilter_Round32f_{8u,16u,16s}_{C1,C3,C4,AC4}R, zoriFilterRoundGetBufSize{16s,32s,32f}_*: convolution with the
// caller's kernel and a choice of rounding.
//
// The same on all paths: the exact quotient, or the float sum, is rounded toward zero, to nearest with ties to even, or
// to nearest with ties away from zero.
#include "frame/machine.h"
#include "general_finish.h"
#include "zori/filter.h"

namespace zori {
inline namespace ZORI_WIDTH {
namespace general {
namespace {

// The caller's buffer must be there but is not used: its size knows nothing of the ring of rows that the sums need.
template <class T, Layout L>
ZorStatus filterRoundWithIntegers(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize,
                                  const Zor32s* pKernel, ZorImgSize kernelSize, ZorImgPoint anchor, int divisor,
                                  ZorRoundMode roundMode, Zor8u* pBuffer)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, pKernel), nonEmpty(roiSize), nonEmpty(kernelSize), divides(divisor),
                            rowsFit<L>(pSrc, srcStep, pDst, dstStep, roiSize, kernelSize.width), isRoundMode(roundMode),
                            nonNull(pBuffer));
      s != ZorOk)
    return s;
  auto call = convolution<L>(pSrc, srcStep, pDst, dstStep, roiSize, pKernel, kernelSize, anchor);
  call.fast = call.plain = exactDivisionBy<L, T>(divisor, roundMode);
  convolve(call);
  return ZorOk;
}

template <class T, Layout L>
ZorStatus filterRoundWithFloats(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize,
                                const Zor32f* pKernel, ZorImgSize kernelSize, ZorImgPoint anchor,
                                ZorRoundMode roundMode, Zor8u* pBuffer)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, pKernel), nonEmpty(roiSize), nonEmpty(kernelSize),
                            rowsFit<L>(pSrc, srcStep, pDst, dstStep, roiSize, kernelSize.width), isRoundMode(roundMode),
                            nonNull(pBuffer));
      s != ZorOk)
    return s;
  auto call = convolution<L>(pSrc, srcStep, pDst, dstStep, roiSize, pKernel, kernelSize, anchor);
  call.fast.row = finishSums<L, T, RoundedBy<T>>;
  call.fast.roundMode = roundMode;
  call.plain = call.fast;
  convolve(call);
  return ZorOk;
}

// (perElement * kw * kh + perPixel * w + rest) bytes for each thread of the team, in 32 bits, which wrap.
struct BufferRule {
  unsigned perElement, perPixel, rest;
};
constexpr BufferRule buffer16s{16, 4, 15}, buffer32s{16, 4, 31}, buffer32f{16, 8, 43};

ZorStatus bufferSize(const BufferRule& rule, ZorImgSize kernelSize, int roiWidth, int* pBufferSize)
{
  if (auto s = firstFailure(nonNull(pBufferSize), nonEmpty(kernelSize), positiveSize(roiWidth)); s != ZorOk) return s;
  const unsigned elements = static_cast<unsigned>(kernelSize.width) * static_cast<unsigned>(kernelSize.height);
  const unsigned bytes = rule.perElement * elements + rule.perPixel * static_cast<unsigned>(roiWidth) + rule.rest;
  *pBufferSize = static_cast<int>(bytes * static_cast<unsigned>(allowedThreads()));
  return ZorOk;
}

} // namespace
} // namespace general
} // namespace ZORI_WIDTH
} // namespace zori

using namespace zori;
using namespace zori::general;

// clang-format off
#define PARAMETERS(type, kernel)                                                                                      \
  const Zor##type *pSrc, int srcStep, Zor##type *pDst, int dstStep, ZorImgSize roiSize, const Zor##kernel *pKernel,   \
    ZorImgSize kernelSize, ZorImgPoint anchor
#define ARGUMENTS pSrc, srcStep, pDst, dstStep, roiSize, pKernel, kernelSize, anchor
#define STAMP_SIZE(kernel, type, layout)                                                                               \
  ZorStatus zoriFilterRoundGetBufSize##kernel##_##type##_##layout##R(ZorImgSize kernelSize, int roiWidth, int* pBufferSize)\
  { return bufferSize(buffer##kernel, kernelSize, roiWidth, pBufferSize); }
#define STAMP_INTEGERS(kernel, type, layout)                                                                           \
  ZorStatus zoriFilter_Round##kernel##_##type##_##layout##R(PARAMETERS(type, 32s), int divisor, ZorRoundMode roundMode,\
                                                            Zor8u* pBuffer)                                            \
  { return filterRoundWithIntegers<Zor##type, layout>(ARGUMENTS, divisor, roundMode, pBuffer); }                       \
  STAMP_SIZE(kernel, type, layout)
#define STAMP_FLOATS(type, layout)                                                                                    \
  ZorStatus zoriFilter_Round32f_##type##_##layout##R(PARAMETERS(type, 32f), ZorRoundMode roundMode, Zor8u* pBuffer)   \
  { return filterRoundWithFloats<Zor##type, layout>(ARGUMENTS, roundMode, pBuffer); }                                 \
  STAMP_SIZE(32f, type, layout)
#define STAMPS(layout)                                                                                                \
  STAMP_INTEGERS(16s, 8u, layout) STAMP_INTEGERS(32s, 16u, layout) STAMP_INTEGERS(32s, 16s, layout)                   \
  STAMP_FLOATS(8u, layout) STAMP_FLOATS(16u, layout) STAMP_FLOATS(16s, layout)
STAMPS(C1) STAMPS(C3) STAMPS(C4) STAMPS(AC4)
#undef STAMPS
#undef STAMP_FLOATS
#undef STAMP_INTEGERS
#undef STAMP_SIZE
#undef ARGUMENTS
#undef PARAMETERS
