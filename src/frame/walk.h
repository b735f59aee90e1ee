// The walk over a region: one row kernel a row. Layouts are a property of the walk, not of the kernels.
#pragma once

#include "layout.h"
#include "parallel.h"
#include "rowkernels/drivers.h"

namespace zori {

// How rows are walked: in the calling thread, or by a team when the region is worth one.
struct Serial {
  template <class Body> void operator()(int height, Body body) const
  {
    for (int y = 0; y < height; ++y) body(y);
  }
};
struct InTeam {
  bool worthIt = true;
  template <class Body> void operator()(int height, Body body) const
  {
    if (worthIt) staticRows(height, body);
    else Serial{}(height, body);
  }
};

// The rows of a region as runs of elements; a serial walk over a region without gaps is one long row.
struct RowRun {
  std::ptrdiff_t length;
  int height;

  template <class Walk, class... Step> RowRun(Walk, ZorImgSize roi, int channels, int elementBytes, Step... steps)
    : length(static_cast<std::ptrdiff_t>(roi.width) * channels), height(roi.height)
  {
    if (std::is_same_v<Walk, Serial> && isContiguous(static_cast<long long>(length) * elementBytes, height, steps...)) {
      length *= height;
      height = 1;
    }
  }
};

// dst = op(src...), element by element. AC4 leaves the destination's fourth channel alone. The destination may be one
// of the sources.
template <Layout L, class Walk, class Op, class D, class... S>
inline void mapRegion(Walk walk, ZorImgSize roi, Op op, Rows<D> dst, Rows<const S>... src)
{
  const RowRun run(walk, roi, channels<L>, sizeof(D), dst.step, src.step...);
  walk(run.height, [=](int y) {
    if constexpr (L == AC4) mapRow(dst[y], run.length, KeepFourth<Op>{op}, static_cast<const D*>(dst[y]), src[y]...);
    else mapRow(dst[y], run.length, op, src[y]...);
  });
}

// The same between widths: op works on groups. A destination that is also the source must not be the wider one.
template <Layout L, class Walk, class Op, class D, class... S>
inline void mapRegionOfGroups(Walk walk, ZorImgSize roi, Op op, Rows<D> dst, Rows<const S>... src)
{
  std::ptrdiff_t length = static_cast<std::ptrdiff_t>(roi.width) * channels<L>;
  const auto adjoin = [&](int elementBytes, int step) {
    return isContiguous(static_cast<long long>(length) * elementBytes, roi.height, step);
  };
  if (std::is_same_v<Walk, Serial> && adjoin(sizeof(D), dst.step) && (adjoin(sizeof(S), src.step) && ...)) {
    length *= roi.height;
    roi.height = 1;
  }
  walk(roi.height, [=](int y) {
    if constexpr (L == AC4) mapGroups(dst[y], length, KeepFourth<Op>{op}, static_cast<const D*>(dst[y]), src[y]...);
    else mapGroups(dst[y], length, op, src[y]...);
  });
}

// dst = op(src..., constant), with a constant for each channel.
template <Layout L, class Walk, class Constant, class Op, class D, class... S>
inline void mapRegionWith(const Constant& constant, Walk walk, ZorImgSize roi, Op op, Rows<D> dst, Rows<const S>... src)
{
  const RowRun run(walk, roi, channels<L>, sizeof(D), dst.step, src.step...);
  walk(run.height, [=, &constant](int y) {
    if constexpr (L == AC4)
      mapRowWith(constant, dst[y], run.length, KeepFourth<Op>{op}, static_cast<const D*>(dst[y]), src[y]...);
    else mapRowWith(constant, dst[y], run.length, op, src[y]...);
  });
}

} // namespace zori
