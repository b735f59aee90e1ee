// zori{Dilate,Erode}3x3_{8u,16u,32f}_{C1,C3,C4,AC4}{R,IR}, zoriFilter{Max,Min}_{8u,16u,16s,32f}_{C1,C3,C4,AC4}R: the
// greatest and least samples of rectangles. In place the windows read the former samples.
#include "morphology_rectangle.h"

#include "walk/map.h"
#include "zori/filter.h"

namespace zori {
namespace morphology {
namespace {

struct Unchanged {
  template <class V> V operator()(V x) const { return x; }
};

// From the first sample that the window of the region's first pixel covers.
template <Layout L, class T> Rows<const T> windows(const T* pSrc, int srcStep, ZorImgPoint anchor)
{
  return {rowAt(pSrc, srcStep, -std::ptrdiff_t{anchor.y}) - std::ptrdiff_t{anchor.x} * channels<L>, srcStep};
}

template <class Op, Layout L, class T>
ZorStatus filterSquare(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roi)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), positive(srcStep, dstStep), nonEmpty(roi),
                            rowFits<T, L>(srcStep, 2LL + roi.width), rowFits<T, L>(dstStep, roi.width));
      s != ZorOk)
    return s;
  return filterRectangle<Op>(windows<L>(pSrc, srcStep, {1, 1}), {3, 3},
                             Target<T>{{pDst, dstStep}, roi, channels<L>, L == AC4}, pSrc == pDst, 1);
}

template <class Op, Layout L, class T>
ZorStatus filterExtreme(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roi, ZorImgSize mask,
                        ZorImgPoint anchor)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roi), positive(srcStep, dstStep), isMask(mask),
                            isAnchorInside(mask, anchor));
      s != ZorOk)
    return s;
  const Rows<T> dst{pDst, dstStep};
  if (mask.width == 1 && mask.height == 1) {
    mapRegion<L>(roi, Unchanged{}, dst, Rows<const T>{pSrc, srcStep});
    return ZorOk;
  }
  return filterRectangle<Op>(windows<L>(pSrc, srcStep, anchor), mask, Target<T>{dst, roi, channels<L>, L == AC4}, false,
                             0);
}

} // namespace
} // namespace morphology
} // namespace zori

using namespace zori;
using namespace zori::morphology;

// clang-format off
#define STAMP(name, op, type, layout)                                                                                  \
  ZorStatus zori##name##3x3_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,     \
                                                 ZorImgSize roiSize)                                                   \
  { return filterSquare<op<Zor##type>, layout>(pSrc, srcStep, pDst, dstStep, roiSize); }                               \
  ZorStatus zori##name##3x3_##type##_##layout##IR(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize)              \
  { return filterSquare<op<Zor##type>, layout>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }
#define TYPES(name, op, layout) STAMP(name, op, 8u, layout) STAMP(name, op, 16u, layout) STAMP(name, op, 32f, layout)
#define STAMPS(name, op) TYPES(name, op, C1) TYPES(name, op, C3) TYPES(name, op, C4) TYPES(name, op, AC4)
STAMPS(Dilate, Greatest) STAMPS(Erode, Least)
#undef STAMPS
#undef TYPES
#undef STAMP

#define STAMP(name, op, type, layout)                                                                                  \
  ZorStatus zoriFilter##name##_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,  \
                                                    ZorImgSize roiSize, ZorImgSize maskSize, ZorImgPoint anchor)       \
  { return filterExtreme<op<Zor##type>, layout>(pSrc, srcStep, pDst, dstStep, roiSize, maskSize, anchor); }
#define TYPES(name, op, layout) STAMP(name, op, 8u, layout) STAMP(name, op, 16u, layout) STAMP(name, op, 16s, layout) STAMP(name, op, 32f, layout)
#define STAMPS(name, op) TYPES(name, op, C1) TYPES(name, op, C3) TYPES(name, op, C4) TYPES(name, op, AC4)
STAMPS(Max, Greatest) STAMPS(Min, Least)
#undef STAMPS
#undef TYPES
#undef STAMP
