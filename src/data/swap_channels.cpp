// zoriSwapChannels_{8u,16u,16s,32s,32f}_{C3,AC4,C3C4,C4C3}R, zoriSwapChannels_8u_{C3,C4}IR: new orders of channels.
//
// Mostly the source is read off its place (see channel_order.h); from three channels to four, pixels are taken apart
// and put together again, or have their bytes shuffled.
#include "frame/checks.h"
#include "region.h"
#include "rowkernels/channel_order.h"
#include "rowkernels/channels.h"
#include "zori/data.h"

#include <algorithm>
#include <climits>

namespace zori {
namespace {

// The entries in turn; each lies in 0..last.
static ZorStatus ordered(const int* order, int entries, int last)
{
  for (int k = 0; k < entries; ++k)
    if (order[k] < 0 || order[k] > last) return ZorErrChannelOrder;
  return ZorOk;
}

// Pixels of N channels, of which the first Moved get a new order. May be in place.
template <class T, int N, int Moved>
static void swapRows(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, const int* dstOrder)
{
  using R = Raw<T>;
  const ChannelOrder<R, N> order(dstOrder, Moved);
  const ZorImgSize rows = joinedRows(roiSize, Pitch{N * bytesOf<T>, srcStep}, Pitch{N * bytesOf<T>, dstStep});
  const std::ptrdiff_t length = static_cast<std::ptrdiff_t>(rows.width) * N;
  order.template rows<Moved>({raw(pSrc), srcStep}, {raw(pDst), dstStep}, length, rows.height);
}

template <class T, int N>
ZorStatus swapColour(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, const int* dstOrder)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, dstOrder), nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk)
    return s;
  if (auto s = ordered(dstOrder, 3, 2); s != ZorOk) return s;
  swapRows<T, N, 3>(pSrc, srcStep, pDst, dstStep, roiSize, dstOrder);
  return ZorOk;
}

#if ZORI_VECTOR_BYTES == 16
// Channel k of the destination is number order[k] of the source's three channels; a value where that is 3, and above 3
// what is there already.
template <class R> class FourOfThree {
public:
  FourOfThree(const int* order, R value) : selected_{{}, splat(value)}
  {
    R lanes[Vec<R>::size];
    for (int k = 0; k < 4; ++k) selected_.index[k] = std::min(order[k], 4);
    for (int i = 0; i < Vec<R>::size; ++i) lanes[i] = static_cast<R>(order[i % 4] > 3 ? -1 : 0);
    kept_ = load<R>(lanes);
  }
  template <bool All> void rows(Rows<const R> src, Rows<R> dst, std::ptrdiff_t width, int count) const
  {
    moveChannels<All>(PixelRows<Interleaved<const R, 3>>{{{src.first}}, src.step},
                      PixelRows<Interleaved<R, 4>>{{{dst.first}}, dst.step}, width, count, selected_, kept_);
  }

private:
  struct Selected {
    int index[4];
    Vec<R> constant;

    void operator()(const Vec<R> (&in)[3], Vec<R> (&out)[4]) const
    {
      const Vec<R> from[5] = {in[0], in[1], in[2], constant, zero<R>()};
      for (int k = 0; k < 4; ++k) out[k] = from[index[k]];
    }
  };

  Selected selected_;
  Vec<R> kept_;
};
#endif

// Steps are not tested.
template <class T>
ZorStatus swapToFour(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, const int* dstOrder, T value)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, dstOrder), nonEmpty(roiSize)); s != ZorOk) return s;
  if (auto s = ordered(dstOrder, 4, INT_MAX); s != ZorOk) return s;
  using R = Raw<T>;
  const FourOfThree<R> pixels(dstOrder, get<R>(&value));
  const bool all = *std::max_element(dstOrder, dstOrder + 4) <= 3;
  const ZorImgSize rows = joinedRows(roiSize, Pitch{3 * bytesOf<T>, srcStep}, Pitch{4 * bytesOf<T>, dstStep});
  const Rows<const R> src{raw(pSrc), srcStep};
  const Rows<R> dst{raw(pDst), dstStep};
  if (all) pixels.template rows<true>(src, dst, rows.width, rows.height);
  else pixels.template rows<false>(src, dst, rows.width, rows.height);
  return ZorOk;
}

// Steps are not tested.
template <class T>
ZorStatus swapToThree(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, const int* dstOrder)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, dstOrder), nonEmpty(roiSize)); s != ZorOk) return s;
  if (auto s = ordered(dstOrder, 3, 3); s != ZorOk) return s;
  const ZorImgSize rows = joinedRows(roiSize, Pitch{4 * bytesOf<T>, srcStep}, Pitch{3 * bytesOf<T>, dstStep});
  rowsToThree<Raw<T>>({raw(pSrc), srcStep}, {raw(pDst), dstStep}, rows.width, rows.height, dstOrder);
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriSwapChannels_8u_C3IR(Zor8u* pSrcDst, int srcDstStep, ZorImgSize roiSize, const int dstOrder[3])
{
  return swapColour<Zor8u, 3>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, dstOrder);
}

// The one form that tests the step before the size.
ZorStatus zoriSwapChannels_8u_C4IR(Zor8u* pSrcDst, int srcDstStep, ZorImgSize roiSize, const int dstOrder[4])
{
  if (auto s = firstFailure(nonNull(pSrcDst, dstOrder), positive(srcDstStep), nonEmpty(roiSize)); s != ZorOk) return s;
  if (auto s = ordered(dstOrder, 4, 3); s != ZorOk) return s;
  swapRows<Zor8u, 4, 4>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, dstOrder);
  return ZorOk;
}

// clang-format off
#define STAMP(type, layouts, call)                                                                          \
  ZorStatus zoriSwapChannels_##type##_##layouts##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst,     \
                                                   int dstStep, ZorImgSize roiSize, const int dstOrder[3])  \
  { return call(pSrc, srcStep, pDst, dstStep, roiSize, dstOrder); }
#define STAMPS(type)                                                                                        \
  STAMP(type, C3, (swapColour<Zor##type, 3>)) STAMP(type, AC4, (swapColour<Zor##type, 4>))                  \
  STAMP(type, C4C3, swapToThree)                                                                            \
  ZorStatus zoriSwapChannels_##type##_C3C4R(const Zor##type* pSrc, int srcStep, Zor##type* pDst,            \
                                            int dstStep, ZorImgSize roiSize, const int dstOrder[4],         \
                                            Zor##type value)                                                \
  { return swapToFour(pSrc, srcStep, pDst, dstStep, roiSize, dstOrder, value); }
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32s) STAMPS(32f)
#undef STAMPS
#undef STAMP
