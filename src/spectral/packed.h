// The packed spectrum of a real image of W x H pixels, cell by cell: which frequency stands where, what its conjugate
// partner is, and rows of the whole spectrum unfolded from it.
//
//   column 0                 A(0, v): Re A(0,0), Re A(0,1), Im A(0,1), ..., for even H Re A(0,H/2) last
//   columns 2k-1 and 2k      Re A(k, v) and Im A(k, v) in row v, for k = 1 to the last below W / 2
//   column W-1, W even       A(W/2, v), as column 0
//
// What is missing follows from A(u, v) = conj(A(W - u, H - v)).
#pragma once

#include "frame/layout.h"
#include "rowkernels/simd.h"

#include <limits>

namespace zori {
namespace {

template <class T> struct ComplexOf;
template <> struct ComplexOf<Zor32f> {
  using Type = Zor32fc;
};
template <> struct ComplexOf<Zor32s> {
  using Type = Zor32sc;
};
template <> struct ComplexOf<Zor16s> {
  using Type = Zor16sc;
};
template <class T> using ComplexT = typename ComplexOf<T>::Type;

// Saturated where the least integer has no opposite.
template <class T> inline T opposite(T x)
{
  if constexpr (std::is_floating_point_v<T>) return -x;
  else return x == std::numeric_limits<T>::min() ? std::numeric_limits<T>::max() : static_cast<T>(-x);
}
template <class C> inline C conjugate(C x) { return {x.re, opposite(x.im)}; }

template <class T, int channelCount> struct Packed {
  Rows<const T> rows;
  ZorImgSize size;

  T cell(std::ptrdiff_t column, std::ptrdiff_t row, int channel) const
  {
    return get<T>(rows[row] + column * channelCount + channel);
  }
  // A(0, v) or A(W / 2, v), which stand in a column of real values.
  ComplexT<T> inRealColumn(std::ptrdiff_t column, std::ptrdiff_t v, int channel) const
  {
    const std::ptrdiff_t height = size.height;
    if (v == 0) return {cell(column, 0, channel), 0};
    if (2 * v == height) return {cell(column, height - 1, channel), 0};
    if (2 * v < height) return {cell(column, 2 * v - 1, channel), cell(column, 2 * v, channel)};
    return conjugate(inRealColumn(column, height - v, channel));
  }
  // Row v of the whole spectrum.
  void unfoldRow(std::ptrdiff_t v, ComplexT<T>* to) const
  {
    const std::ptrdiff_t width = size.width, height = size.height, partner = v == 0 ? 0 : height - v;
    const T *const row = rows[v], *const other = rows[partner];
    for (int c = 0; c < channelCount; ++c) {
      put(to + c, inRealColumn(0, v, c));
      if (width % 2 == 0) put(to + width / 2 * channelCount + c, inRealColumn(width - 1, v, c));
    }
    for (std::ptrdiff_t k = 1; 2 * k < width; ++k)
      for (int c = 0; c < channelCount; ++c) {
        const std::ptrdiff_t re = (2 * k - 1) * channelCount + c, im = re + channelCount;
        put(to + k * channelCount + c, ComplexT<T>{get<T>(row + re), get<T>(row + im)});
        put(to + (width - k) * channelCount + c, conjugate(ComplexT<T>{get<T>(other + re), get<T>(other + im)}));
      }
  }
};

} // namespace
} // namespace zori
