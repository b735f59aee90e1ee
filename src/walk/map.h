// The walk over a region: one row kernel a row. Layouts are a property of the walk, not of the kernels.
#pragma once

#include "frame/layout.h"
#include "rowkernels/drivers.h"

namespace zori {

// The rows of a region as runs of elements; a region without gaps is one long row.
struct RowRun {
  std::ptrdiff_t length;
  int height;

  // Row by row, whatever lies between them.
  static RowRun separate(ZorImgSize roi, int channels) { return RowRun(roi, channels, 0); }

  template <class... Step>
  RowRun(ZorImgSize roi, int channels, int elementBytes, Step... steps)
    : length(static_cast<std::ptrdiff_t>(roi.width) * channels), height(roi.height)
  {
    if (sizeof...(Step) && isContiguous(static_cast<long long>(length) * elementBytes, height, steps...)) {
      length *= height;
      height = 1;
    }
  }
};

// dst = op(src...), element by element. AC4 leaves the destination's fourth channel alone. The destination may be one
// of the sources.
template <Layout L, class Op, class D, class... S>
inline void mapRegion(ZorImgSize roi, Op op, Rows<D> dst, Rows<const S>... src)
{
  const RowRun run(roi, channels<L>, sizeof(D), dst.step, src.step...);
  for (int y = 0; y < run.height; ++y) {
    if constexpr (L == AC4) mapRow(dst[y], run.length, KeepFourth<Op>{op}, static_cast<const D*>(dst[y]), src[y]...);
    else mapRow(dst[y], run.length, op, src[y]...);
  }
}

// The same between widths: op works on groups. A destination that is also the source must not be the wider one.
template <Layout L, class Op, class D, class... S>
inline void mapRegionOfGroups(ZorImgSize roi, Op op, Rows<D> dst, Rows<const S>... src)
{
  std::ptrdiff_t length = static_cast<std::ptrdiff_t>(roi.width) * channels<L>;
  const auto adjoin = [&](int elementBytes, int step) {
    return isContiguous(static_cast<long long>(length) * elementBytes, roi.height, step);
  };
  if (adjoin(sizeof(D), dst.step) && (adjoin(sizeof(S), src.step) && ...)) {
    length *= roi.height;
    roi.height = 1;
  }
  for (int y = 0; y < roi.height; ++y) {
    if constexpr (L == AC4) mapGroups(dst[y], length, KeepFourth<Op>{op}, static_cast<const D*>(dst[y]), src[y]...);
    else mapGroups(dst[y], length, op, src[y]...);
  }
}

// dst = op(src..., constant), with a constant for each channel.
template <Layout L, class Constant, class Op, class D, class... S>
inline void mapRegionWith(const Constant& constant, ZorImgSize roi, Op op, Rows<D> dst, Rows<const S>... src)
{
  const RowRun run(roi, channels<L>, sizeof(D), dst.step, src.step...);
  for (int y = 0; y < run.height; ++y) {
    if constexpr (L == AC4)
      mapRowWith(constant, dst[y], run.length, KeepFourth<Op>{op}, static_cast<const D*>(dst[y]), src[y]...);
    else mapRowWith(constant, dst[y], run.length, op, src[y]...);
  }
}

} // namespace zori
