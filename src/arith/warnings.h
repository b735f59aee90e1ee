// The walk over a region with an operation that warns of some samples: Sqrt and Ln.
#pragma once

#include "frame/walk.h"

namespace zori {

// A warning has a scalar form that gives the status of a sample, and a vector form that marks lanes: all whose status is
// not ZorOk, and others that the kernel wants to know of. The fourth channel of AC4 does not count.
//
// False when the samples of a row are surely not marked.
template <Layout L, class T, class Warning> bool anyMarked(const T* row, std::ptrdiff_t length, Warning warning)
{
  constexpr std::ptrdiff_t lanes = Vec<T>::size;
  if (length < lanes) return true;
  const auto marks = [=](std::ptrdiff_t i) {
    const auto marked = warning(load<T>(row + i));
    if constexpr (L == AC4) return as<Zor8u>(marked) & as<Zor8u>(colourMask<T>());
    else return as<Zor8u>(marked);
  };
  Vec<Zor8u> any = marks(length - lanes);
  for (std::ptrdiff_t i = 0; i + lanes <= length; i += lanes) any = any | marks(i);
  return moveMask(any) != 0;
}

template <Layout L, class T, class Warning>
ZorStatus firstStatus(const T* row, std::ptrdiff_t length, Warning warning)
{
  for (std::ptrdiff_t i = 0; i < length; ++i)
    if (L != AC4 || i % 4 != 3)
      if (const ZorStatus status = warning(get<T>(row + i)); status != ZorOk) return status;
  return ZorOk;
}

// kernel(dst, length, src, marked) on every row, and the first warning in the order of the rows and from left to right.
// A piece of a row is searched while it is on its way to the kernel, before it may be overwritten in place.
template <Layout L, class T, class Warning, class Kernel>
ZorStatus mapRegionWarning(ZorImgSize roi, Rows<T> dst, Rows<const T> src, Warning warning, Kernel kernel)
{
  constexpr std::ptrdiff_t piece = 8192 / sizeof(T);
  const std::ptrdiff_t length = static_cast<std::ptrdiff_t>(roi.width) * channels<L>;
  ZorStatus status = ZorOk;
  for (int y = 0; y < roi.height; ++y)
    for (std::ptrdiff_t i = 0; i < length; i += piece) {
      const std::ptrdiff_t count = length - i < piece ? length - i : piece;
      const bool marked = anyMarked<L>(src[y] + i, count, warning);
      if (marked && status == ZorOk) status = firstStatus<L>(src[y] + i, count, warning);
      kernel(dst[y] + i, count, src[y] + i, marked);
    }
  return status;
}

// The same with an operation on groups.
template <Layout L, class T, class Warning, class Op>
ZorStatus mapGroupsWarning(ZorImgSize roi, Rows<T> dst, Rows<const T> src, Warning warning, Op op)
{
  return mapRegionWarning<L>(roi, dst, src, warning, [op](T* to, std::ptrdiff_t length, const T* from, bool) {
    if constexpr (L == AC4) mapGroups(to, length, KeepFourth<Op>{op}, static_cast<const T*>(to), from);
    else mapGroups(to, length, op, from);
  });
}

} // namespace zori
