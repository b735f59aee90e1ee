// The walk over a region: one call of a row kernel. Layouts are a property of the walk, not of the kernels.
#pragma once

#include "rowkernels/drivers.h"
#include "rows.h"

namespace zori {

// The operation that copies: with KeepFourth, all but the fourth channel.
struct Unchanged {
  template <class V> V operator()(V x) const { return x; }
};

// dst[i] = op(src[i]...) on one row of a layout: AC4 leaves the destination's fourth channel alone.
template <Layout L, class Op, class D, class... S>
inline void mapRowOf(D* dst, std::ptrdiff_t length, const Op& op, const S*... src)
{
  if constexpr (L == AC4) mapRow(dst, length, KeepFourth<Op>{op}, static_cast<const D*>(dst), src...);
  else mapRow(dst, length, op, src...);
}

// dst = op(src...), element by element. The destination may be one of the sources.
template <Layout L, class Op, class D, class... S>
inline void mapRegion(ZorImgSize roi, Op op, Rows<D> dst, Rows<const S>... src)
{
  roi = joinedRows(roi, pitchOf<channels<L>>(dst), pitchOf<channels<L>>(src)...);
  const std::ptrdiff_t length = elementsOf(roi.width, channels<L>);
  if constexpr (L == AC4) mapRows(dst, length, roi.height, KeepFourth<Op>{op}, readOnly(dst), src...);
  else mapRows(dst, length, roi.height, op, src...);
}

// The same between widths: op works on groups. A destination that is also the source must not be the wider one.
template <Layout L, class Op, class D, class... S>
inline void mapRegionOfGroups(ZorImgSize roi, Op op, Rows<D> dst, Rows<const S>... src)
{
  roi = joinedRows(roi, pitchOf<channels<L>>(dst), pitchOf<channels<L>>(src)...);
  const std::ptrdiff_t length = elementsOf(roi.width, channels<L>);
  if constexpr (L == AC4) mapRowsOfGroups(dst, length, roi.height, KeepFourth<Op>{op}, readOnly(dst), src...);
  else mapRowsOfGroups(dst, length, roi.height, op, src...);
}

// dst = op(src..., constant), with a constant for each channel.
template <Layout L, class Constant, class Op, class D, class... S>
inline void mapRegionWith(const Constant& constant, ZorImgSize roi, Op op, Rows<D> dst, Rows<const S>... src)
{
  roi = joinedRows(roi, pitchOf<channels<L>>(dst), pitchOf<channels<L>>(src)...);
  const std::ptrdiff_t length = elementsOf(roi.width, channels<L>);
  if constexpr (L == AC4) mapRowsWith(constant, dst, length, roi.height, KeepFourth<Op>{op}, readOnly(dst), src...);
  else mapRowsWith(constant, dst, length, roi.height, op, src...);
}

} // namespace zori
