// zoriFilterMedianHoriz, ...Vert _{8u,16u,16s}_{C1,C3,C4,AC4}R, zoriFilterMedianCross_{8u,16u,16s}_{C1,C3,AC4}R,
// zoriFilterMedianWeightedCenter3x3_8u_C1R, zoriMedian_8u_P3C1R: medians over fixed shapes.
#include "median_shapes.h"
#include "median_square.h"

#include "zori/filter.h"

namespace zori {
namespace median {
namespace {

// The shapes of a function, by selector: pixels, and whether there are three, five or nine of them.
struct Horizontal {
  static constexpr ZorMaskSize small = ZorMask3x1, large = ZorMask5x1;
  static constexpr const auto& few = row3;
  static constexpr const auto& many = row5;
};
struct Vertical {
  static constexpr ZorMaskSize small = ZorMask1x3, large = ZorMask1x5;
  static constexpr const auto& few = column3;
  static constexpr const auto& many = column5;
};
struct Cross {
  static constexpr ZorMaskSize small = ZorMask3x3, large = ZorMask5x5;
  static constexpr const auto& few = cross5;
  static constexpr const auto& many = cross9;
};

template <class Shapes, class T, Layout L>
ZorStatus filterShape(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roi, ZorMaskSize mask)
{
  if (auto s = firstFailure(imageStatus(pSrc, srcStep, pDst, dstStep, roi),
                            require(mask == Shapes::small || mask == Shapes::large, ZorErrMaskSize));
      s != ZorOk)
    return s;
  const Rows<const T> src{pSrc, srcStep};
  const Rows<T> dst{pDst, dstStep};
  if (mask == Shapes::small) medianOfShape<T, L>(src, dst, roi, Shapes::few);
  else medianOfShape<T, L>(src, dst, roi, Shapes::many);
  return ZorOk;
}

void filterWeighted(Rows<const Zor8u> src, Rows<Zor8u> dst, ZorImgSize roi, int weight)
{
  if (weight == 1) square<Zor8u, C1, 3>(src, {1, 1}, dst, roi);
  else if (weight == 3) mapShape<Zor8u, C1>(src, dst, roi, Selected<weightedMedian<3>>{}, around);
  else if (weight == 5) mapShape<Zor8u, C1>(src, dst, roi, Selected<weightedMedian<5>>{}, around);
  else if (weight == 7) mapShape<Zor8u, C1>(src, dst, roi, Selected<weightedMedian<7>>{}, around);
  else mapRegion<C1>(roi, Unchanged{}, dst, src); // the pixel is the majority
}

} // namespace
} // namespace median
} // namespace zori

using namespace zori;
using namespace zori::median;

// An even weight counts as the odd one below it.
ZorStatus zoriFilterMedianWeightedCenter3x3_8u_C1R(const Zor8u* pSrc, int srcStep, Zor8u* pDst, int dstStep,
                                                   ZorImgSize roiSize, int weight)
{
  if (auto s =
        firstFailure(imageStatus(pSrc, srcStep, pDst, dstStep, roiSize), require(weight >= 1, ZorErrMedianWeight));
      s != ZorOk)
    return s;
  const bool isEven = weight % 2 == 0;
  filterWeighted({pSrc, srcStep}, {pDst, dstStep}, roiSize, isEven ? weight - 1 : weight);
  return isEven ? ZorWarnEvenMedianWeight : ZorOk;
}

ZorStatus zoriMedian_8u_P3C1R(const Zor8u* const pSrc[3], int srcStep, Zor8u* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNullPlanes<3>(pSrc), nonNull(pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  const auto plane = [=](int k) { return Rows<const Zor8u>{pSrc[k], srcStep}; };
  mapRegion<C1>(roiSize, Selected<medianOf<3>>{}, Rows<Zor8u>{pDst, dstStep}, plane(0), plane(1), plane(2));
  return ZorOk;
}

// clang-format off
#define STAMP(name, shapes, type, layout)                                                                              \
  ZorStatus zoriFilterMedian##name##_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst,         \
                                                          int dstStep, ZorImgSize roiSize, ZorMaskSize mask)           \
  { return filterShape<shapes, Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize, mask); }
#define TYPES(name, shapes, layout) STAMP(name, shapes, 8u, layout) STAMP(name, shapes, 16u, layout) STAMP(name, shapes, 16s, layout)
TYPES(Horiz, Horizontal, C1) TYPES(Horiz, Horizontal, C3) TYPES(Horiz, Horizontal, C4) TYPES(Horiz, Horizontal, AC4)
TYPES(Vert, Vertical, C1) TYPES(Vert, Vertical, C3) TYPES(Vert, Vertical, C4) TYPES(Vert, Vertical, AC4)
TYPES(Cross, Cross, C1) TYPES(Cross, Cross, C3) TYPES(Cross, Cross, AC4)
#undef TYPES
#undef STAMP
