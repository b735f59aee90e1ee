// Argument checks that read like the contract: the order of the arguments is the order of the checks.
//
//   if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep)); s != ZorOk) return s;
#pragma once

#include "compiler.h"
#include "zori/types.h"

namespace zori {

template <class... S> inline ZorStatus firstFailure(S... statuses)
{
  ZorStatus first = ZorOk;
  (void)(((first = statuses) != ZorOk) || ...);
  return first;
}

inline ZorStatus require(bool condition, ZorStatus otherwise) { return condition ? ZorOk : otherwise; }

template <class... P> inline ZorStatus nonNull(P... pointers)
{
  return require(((pointers != nullptr) && ...), ZorErrNullPtr);
}

// An array of n plane pointers, none of them null. The array itself is tested too.
template <int N, class T> inline ZorStatus nonNullPlanes(T* const* planes)
{
  if (!planes) return ZorErrNullPtr;
  for (int i = 0; i < N; ++i)
    if (!planes[i]) return ZorErrNullPtr;
  return ZorOk;
}

inline ZorStatus nonEmpty(ZorImgSize size) { return require(size.width >= 1 && size.height >= 1, ZorErrSize); }

template <class... N> inline ZorStatus positiveSize(N... extents)
{
  return require(((extents >= 1) && ...), ZorErrSize);
}

template <class... N> inline ZorStatus positive(N... steps) { return require(((steps >= 1) && ...), ZorErrStep); }

} // namespace zori
