// zoriSet_{8u,16u,16s,32s,32f}_{C1,C3,C4,AC4}R, ..._{C3,C4}CR: fills. The forms under a mask stand in masked.cpp.
#include "rowkernels/set.h"
#include "frame/checks.h"
#include "region.h"
#include "rowkernels/channels.h"
#include "walk/map.h"
#include "zori/data.h"

namespace zori {
namespace {

struct TakeConstant {
  template <class T> Vec<T> operator()(Vec<T> constant) const { return constant; }
};

// pValue: a number for each channel that is written. The step is not tested.
template <class T, Layout L> ZorStatus setRegion(const T* pValue, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pValue, pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  if constexpr (L == AC4) {
    Raw<T> pixel[4] = {};
    std::memcpy(pixel, pValue, 3 * sizeof(T));
    mapRegionWith<L>(Pattern<Raw<T>>(pixel, 4), roiSize, TakeConstant{}, Rows{raw(pDst), dstStep});
  } else {
    constexpr int pixelBytes = channels<L> * bytesOf<T>;
    const PixelPattern pattern = PixelPattern::of<pixelBytes>(pValue);
    const ZorImgSize rows = joinedRows(roiSize, Pitch{pixelBytes, dstStep});
    const std::ptrdiff_t bytes = static_cast<std::ptrdiff_t>(rows.width) * pixelBytes;
    fillRows(pattern, {reinterpret_cast<Zor8u*>(pDst), dstStep}, bytes, rows.height);
  }
  return ZorOk;
}

template <class T, int Stride> ZorStatus setChannel(T value, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  const Raw<T> bits = get<Raw<T>>(&value);
  moveChannel<Raw<T>, 0, Stride>({&bits, 0}, {raw(pDst), dstStep}, roiSize.width, roiSize.height);
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout, n)                                                                                       \
  ZorStatus zoriSet_##type##_##layout##R(const Zor##type value[n], Zor##type* pDst, int dstStep, ZorImgSize roiSize) \
  { return setRegion<Zor##type, layout>(value, pDst, dstStep, roiSize); }
#define STAMP_CHANNEL(type, n)                                                                                       \
  ZorStatus zoriSet_##type##_C##n##CR(Zor##type value, Zor##type* pDst, int dstStep, ZorImgSize roiSize)             \
  { return setChannel<Zor##type, n>(value, pDst, dstStep, roiSize); }
#define STAMPS(type)                                                                                                 \
  ZorStatus zoriSet_##type##_C1R(Zor##type value, Zor##type* pDst, int dstStep, ZorImgSize roiSize)                  \
  { return setRegion<Zor##type, C1>(&value, pDst, dstStep, roiSize); }                                               \
  STAMP(type, C3, 3) STAMP(type, C4, 4) STAMP(type, AC4, 3) STAMP_CHANNEL(type, 3) STAMP_CHANNEL(type, 4)
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32s) STAMPS(32f)
#undef STAMPS
#undef STAMP_CHANNEL
#undef STAMP
