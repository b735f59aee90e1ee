// zoriFilterMedian_{8u,16u,16s}_{C1,C3,C4,AC4}R: the median over a rectangle.
//
//   mask                        way
//   1x1                         copy
//   3x1, 5x1, 1x3, 1x5          one operation on three or five places of a row or column (median_shapes.h)
//   squares of 3, 5, 7 ... 15   networks over sorted columns (sorted_columns.h) and tiles (median_tiles.h)
//   any other                   counting (median_histogram.cpp)
#include "median_histogram.h"
#include "median_shapes.h"
#include "median_square.h"

#include "zori/filter.h"

namespace zori {
namespace median {
namespace {

inline ZorStatus windowStatus(ZorImgSize mask, ZorImgPoint anchor)
{
  const bool isOdd = mask.width >= 1 && mask.height >= 1 && mask.width % 2 != 0 && mask.height % 2 != 0;
  const bool inside = anchor.x >= 0 && anchor.x < mask.width && anchor.y >= 0 && anchor.y < mask.height;
  return firstFailure(require(isOdd, ZorErrMaskSize), require(inside, ZorErrAnchor));
}

template <class T, Layout L>
void histogram(Rows<const T> src, ZorImgPoint anchor, Rows<T> dst, ZorImgSize roi, ZorImgSize mask)
{
  const T* const first = src[-std::ptrdiff_t{anchor.y}] - std::ptrdiff_t{anchor.x} * channels<L>;
  if constexpr (sizeof(T) == 1) histogramOfBytes({first, src.step}, dst, roi, mask, channels<L>, processed<L>);
  else
    histogramOfWords({reinterpret_cast<const uint16_t*>(first), src.step},
                     {reinterpret_cast<uint16_t*>(dst.first), dst.step}, roi, mask, channels<L>, processed<L>,
                     std::is_signed_v<T>);
}

template <class T, Layout L>
ZorStatus filterMedian(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roi, ZorImgSize mask,
                       ZorImgPoint anchor)
{
  if (auto s = firstFailure(imageStatus(pSrc, srcStep, pDst, dstStep, roi), windowStatus(mask, anchor)); s != ZorOk)
    return s;
  const Rows<const T> src{pSrc, srcStep};
  const Rows<T> dst{pDst, dstStep};
  // the middle of the window of the first pixel
  const Rows<const T> middle{src[std::ptrdiff_t{mask.height} / 2 - anchor.y] +
                               (std::ptrdiff_t{mask.width} / 2 - anchor.x) * channels<L>,
                             srcStep};
  const auto is = [=](int width, int height) { return mask.width == width && mask.height == height; };

  if (is(1, 1)) mapRegion<L>(roi, Unchanged{}, dst, src);
  else if (is(3, 1)) medianOfShape<T, L>(middle, dst, roi, row3);
  else if (is(5, 1)) medianOfShape<T, L>(middle, dst, roi, row5);
  else if (is(1, 3)) medianOfShape<T, L>(middle, dst, roi, column3);
  else if (is(1, 5)) medianOfShape<T, L>(middle, dst, roi, column5);
  else if (is(3, 3)) square<T, L, 3>(src, anchor, dst, roi);
  else if (is(5, 5)) square<T, L, 5>(src, anchor, dst, roi);
  else if (is(7, 7)) square<T, L, 7>(src, anchor, dst, roi);
  else if (is(9, 9)) square<T, L, 9>(src, anchor, dst, roi);
  else if (is(11, 11)) square<T, L, 11>(src, anchor, dst, roi);
  else if (is(13, 13)) square<T, L, 13>(src, anchor, dst, roi);
  else if (is(15, 15)) square<T, L, 15>(src, anchor, dst, roi);
  else histogram<T, L>(src, anchor, dst, roi, mask);
  return ZorOk;
}

} // namespace
} // namespace median
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout)                                                                                            \
  ZorStatus zoriFilterMedian_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,    \
                                                  ZorImgSize roiSize, ZorImgSize maskSize, ZorImgPoint anchor)         \
  { return median::filterMedian<Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize, maskSize, anchor); }
#define STAMPS(type) STAMP(type, C1) STAMP(type, C3) STAMP(type, C4) STAMP(type, AC4)
STAMPS(8u) STAMPS(16u) STAMPS(16s)
#undef STAMPS
#undef STAMP
