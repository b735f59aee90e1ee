// zoriFilter{Row,Column}_{8u,16u,16s,32f}_{C1,C3,C4,AC4}R, zoriFilter{Row,Column}32f_{8u,16u,16s}_{C1,C3,C4,AC4}R:
// convolution with a kernel of one row or one column.
//
//   8u         integer sums; ties of general divisors go to even on the fast path, else up
//   16u, 16s   the elements times 1.0f / divisor, then as the 32f form
//   32f forms  float sums; to 8u ties go to even on the fast path, else up
#include "general_finish.h"
#include "zori/filter.h"

namespace zori {
inline namespace ZORI_WIDTH {
namespace general {
namespace {

struct Row {
  static ZorImgSize size(int length) { return {length, 1}; }
  static ZorImgPoint anchor(int a) { return {a, 0}; }
};
struct Column {
  static ZorImgSize size(int length) { return {1, length}; }
  static ZorImgPoint anchor(int a) { return {0, a}; }
};

template <class Line, Layout L>
ZorStatus lineWithIntegers(const Zor8u* pSrc, int srcStep, Zor8u* pDst, int dstStep, ZorImgSize roiSize,
                           const Zor32s* pKernel, int kernelSize, int anchor, int divisor)
{
  const ZorImgSize size = Line::size(kernelSize);
  if (auto s = firstFailure(nonNull(pSrc, pDst, pKernel), nonEmpty(roiSize), positiveSize(kernelSize), divides(divisor),
                            rowsFit<L>(pSrc, srcStep, pDst, dstStep, roiSize, size.width));
      s != ZorOk)
    return s;
  auto call = convolution<L>(pSrc, srcStep, pDst, dstStep, roiSize, pKernel, size, Line::anchor(anchor));
  finishQuotient_8u<L>(call, divisor,
                       isWide(kernelSize, roiSize.width) && elementsWithin(pKernel, size, -32768, 32767));
  convolve(call);
  return ZorOk;
}

template <class Line, class T, Layout L>
ZorStatus lineWithFloats(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, const Zor32f* pKernel,
                         int kernelSize, int anchor)
{
  const ZorImgSize size = Line::size(kernelSize);
  if (auto s = firstFailure(nonNull(pSrc, pDst, pKernel), nonEmpty(roiSize), positiveSize(kernelSize),
                            rowsFit<L>(pSrc, srcStep, pDst, dstStep, roiSize, size.width));
      s != ZorOk)
    return s;
  auto call = convolution<L>(pSrc, srcStep, pDst, dstStep, roiSize, pKernel, size, Line::anchor(anchor));
  finishNearest<L, T>(call, isWide(kernelSize, roiSize.width));
  convolve(call);
  return ZorOk;
}

// The kernel alone is looked at here, everything else by the float form.
template <class Line, class T, Layout L>
ZorStatus lineDivided(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, const Zor32s* pKernel,
                      int kernelSize, int anchor, int divisor)
{
  if (auto s = firstFailure(nonNull(pKernel), positiveSize(kernelSize), divides(divisor)); s != ZorOk) return s;
  const DividedKernel divided(pKernel, {kernelSize, 1}, divisor);
  if (!divided.get()) return ZorErrAlloc;
  return lineWithFloats<Line, T, L>(pSrc, srcStep, pDst, dstStep, roiSize, divided.get(), kernelSize, anchor);
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
    int kernelSize, int anchor
#define ARGUMENTS pSrc, srcStep, pDst, dstStep, roiSize, pKernel, kernelSize, anchor
#define STAMP_INTEGERS(line, type, layout)                                                                            \
  ZorStatus zoriFilter##line##_##type##_##layout##R(PARAMETERS(type, 32s), int divisor)                               \
  { return lineWithIntegers<line, layout>(ARGUMENTS, divisor); }
#define STAMP_DIVIDED(line, type, layout)                                                                             \
  ZorStatus zoriFilter##line##_##type##_##layout##R(PARAMETERS(type, 32s), int divisor)                               \
  { return lineDivided<line, Zor##type, layout>(ARGUMENTS, divisor); }
#define STAMP_FLOATS(name, line, type, layout)                                                                        \
  ZorStatus name##_##type##_##layout##R(PARAMETERS(type, 32f))                                                        \
  { return lineWithFloats<line, Zor##type, layout>(ARGUMENTS); }
#define STAMPS(line, layout)                                                                                          \
  STAMP_INTEGERS(line, 8u, layout) STAMP_DIVIDED(line, 16u, layout) STAMP_DIVIDED(line, 16s, layout)                  \
  STAMP_FLOATS(zoriFilter##line, line, 32f, layout) STAMP_FLOATS(zoriFilter##line##32f, line, 8u, layout)             \
  STAMP_FLOATS(zoriFilter##line##32f, line, 16u, layout) STAMP_FLOATS(zoriFilter##line##32f, line, 16s, layout)
STAMPS(Row, C1) STAMPS(Row, C3) STAMPS(Row, C4) STAMPS(Row, AC4)
STAMPS(Column, C1) STAMPS(Column, C3) STAMPS(Column, C4) STAMPS(Column, AC4)
#undef STAMPS
#undef STAMP_FLOATS
#undef STAMP_DIVIDED
#undef STAMP_INTEGERS
#undef ARGUMENTS
#undef PARAMETERS
