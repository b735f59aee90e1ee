// Products of packed spectra: which cells are real numbers and which are pairs, whatever the elements are.
//
// Rows 0 and, for even H, H-1 hold a real number in column 0 and, for even W, in column W-1. In between rows go in
// pairs whose cells of these columns are the two parts of one number. All other cells are pairs within a row.
#pragma once

#include "butterflies.h"
#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/numeric_mode.h"
#include "rowkernels/simd.h"

#include <algorithm>

namespace zori {
namespace {

template <class T> struct ProductRows {
  Rows<const T> a, b;
  Rows<T> dst;
};

// Column `column` of row y as a real number, or of rows y and y + 1 as a complex one.
template <Layout L, class Op, class T>
inline void multiplyEdge(const Op& op, const ProductRows<T>& x, std::ptrdiff_t column, std::ptrdiff_t y, bool isReal)
{
  for (int c = 0; c < processed<L>; ++c) {
    const std::ptrdiff_t at = column * channels<L> + c;
    const auto both = [&](auto rows) {
      return Complex<T>{get<T>(rows[y] + at), isReal ? T(0) : get<T>(rows[y + 1] + at)};
    };
    const Complex<T> a = both(x.a), b = both(x.b);
    if (isReal) {
      put(x.dst[y] + at, op.real(a.re, b.re));
    } else {
      const auto r = op.complex(a, b);
      put(x.dst[y] + at, r.re);
      put(x.dst[y + 1] + at, r.im);
    }
  }
}

// The first column and the last one in rows `first` to `end` - 1, of which none begins within a pair.
template <Layout L, class Op, class T>
[[gnu::noinline]] void multiplyEdges(Op op, const ProductRows<T>& x, std::ptrdiff_t first, std::ptrdiff_t end,
                                     ZorImgSize size)
{
  const std::ptrdiff_t width = size.width, height = size.height;
  for (std::ptrdiff_t y = first; y < end;) {
    const bool isReal = y == 0 || (height % 2 == 0 && y == height - 1);
    multiplyEdge<L>(op, x, 0, y, isReal);
    if (width % 2 == 0) multiplyEdge<L>(op, x, width - 1, y, isReal);
    y += isReal ? 1 : 2;
  }
}

// op.template pairs<L>(rows, count, width) multiplies columns 2k - 1 and 2k of so many rows; both products are worked
// in bands of rows that the nearest cache holds.
template <Layout L, class Op, class T = typename Op::Element>
ZorStatus multiplyPacked(Op op, const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                         ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pDst), positive(src1Step, src2Step, dstStep), nonEmpty(roiSize));
      s != ZorOk)
    return s;
  const RoundingScope rounding(Rounding::Nearest);
  constexpr std::ptrdiff_t band = 16;
  for (std::ptrdiff_t y = 0, end; y < roiSize.height; y = end) {
    end = std::min<std::ptrdiff_t>(y == 0 ? band + 1 : y + band, roiSize.height); // rows 1 and 2 are the first pair
    const ProductRows<T> all{{pSrc1, src1Step}, {pSrc2, src2Step}, {pDst, dstStep}};
    multiplyEdges<L>(op, all, y, end, roiSize);
    const ProductRows<T> here{fromRow(all.a, y), fromRow(all.b, y), fromRow(all.dst, y)};
    op.template pairs<L>(here, static_cast<int>(end - y), roiSize.width);
  }
  return ZorOk;
}

} // namespace
} // namespace zori
