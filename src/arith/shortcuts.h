// Trivial parameters take a shortcut into another exported function: copy and fill by element type and layout.
#pragma once

#include "frame/layout.h"
#include "zori/data.h"

namespace zori {

template <class T, Layout L> struct CopyAndSet;

// Neither looks at the sign of an element.
template <Layout L> struct CopyAndSet<Zor8s, L> {
  static ZorStatus copy(const Zor8s* pSrc, int srcStep, Zor8s* pDst, int dstStep, ZorImgSize roiSize)
  {
    return CopyAndSet<Zor8u, L>::copy(reinterpret_cast<const Zor8u*>(pSrc), srcStep, reinterpret_cast<Zor8u*>(pDst),
                                      dstStep, roiSize);
  }
};

template <Layout L, class T> ZorStatus copyRegion(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (pSrc == pDst && srcStep == dstStep) return ZorOk;
  return CopyAndSet<T, L>::copy(pSrc, srcStep, pDst, dstStep, roiSize);
}

// The same value in every processed channel.
template <Layout L, class T> ZorStatus fillRegion(T value, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if constexpr (L == C1) return CopyAndSet<T, L>::set(value, pDst, dstStep, roiSize);
  else {
    const T values[4] = {value, value, value, value};
    return CopyAndSet<T, L>::set(values, pDst, dstStep, roiSize);
  }
}

// clang-format off
#define STAMP(type, layout)                                                                          \
  template <> struct CopyAndSet<Zor##type, layout> {                                                 \
    static constexpr auto copy = zoriCopy_##type##_##layout##R;                                      \
    static constexpr auto set = zoriSet_##type##_##layout##R;                                        \
  };
#define STAMPS(type) STAMP(type, C1) STAMP(type, C3) STAMP(type, C4) STAMP(type, AC4)
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32s) STAMPS(32f)
#undef STAMPS
#undef STAMP

} // namespace zori
