// zori{Min,Max,MinMax,MinIndx,MaxIndx}_{8u,16u,16s,32f}_{C1,C3,C4,AC4}R: extreme values of a region, and where they
// stand.
//
// The position is found in phases: the first row whose extreme is strictly better than those above it, of integers by
// way of the first such band of rows, then the first pixel of that row with the value.
#include "frame/checks.h"
#include "rowkernels/reduce.h"
#include "zori/stats.h"

#include <algorithm>
#include <cfloat>
#include <limits>

namespace zori {
namespace {

// What a search starts from: floats from the largest finite value of the opposite sign.
template <class T, bool Greatest> constexpr T worst()
{
  if (std::is_same_v<T, Zor32f>) return static_cast<T>(Greatest ? -FLT_MAX : FLT_MAX);
  return Greatest ? std::numeric_limits<T>::lowest() : std::numeric_limits<T>::max();
}

template <class T, Layout L, bool Greatest>
ZorStatus extremeRegion(const T* pSrc, int srcStep, ZorImgSize roiSize, T* result)
{
  if (auto s = firstFailure(nonNull(pSrc, result), nonEmpty(roiSize)); s != ZorOk) return s;
  const auto make = [](auto bytes, int) { return Extreme<T, Greatest, bytes>(worst<T, Greatest>()); };
  const auto use = [=](const auto& reducers) {
    for (int k = 0; k < processed<L>; ++k) result[k] = reducers[k].value();
  };
  reduceRegion<L>(roiSize, make, use, Rows{pSrc, srcStep});
  return ZorOk;
}

template <class T, Layout L>
ZorStatus bothExtremes(const T* pSrc, int srcStep, ZorImgSize roiSize, T* least, T* greatest)
{
  if (auto s = firstFailure(nonNull(pSrc, least, greatest), nonEmpty(roiSize)); s != ZorOk) return s;
  const auto make = [](auto bytes, int) { return BothExtremes<T, bytes>(worst<T, false>(), worst<T, true>()); };
  const auto use = [=](const auto& reducers) {
    for (int k = 0; k < processed<L>; ++k) {
      least[k] = reducers[k].least.value();
      greatest[k] = reducers[k].greatest.value();
    }
  };
  reduceRegion<L>(roiSize, make, use, Rows{pSrc, srcStep});
  return ZorOk;
}

template <class T, Layout L, bool Greatest, int Bytes>
void findExtreme(const T* pSrc, int srcStep, ZorImgSize roiSize, T* result, int* indexX, int* indexY)
{
  constexpr int n = processed<L>;
  constexpr bool fromFirstPixel = std::is_same_v<T, Zor16s> || (std::is_same_v<T, Zor32f> && L != C1);
  const Rows src{pSrc, srcStep};
  T best[n];
  int bestRow[n] = {};
  for (int k = 0; k < n; ++k) best[k] = fromFirstPixel ? get<T>(pSrc + k) : worst<T, Greatest>();
  const auto from = [](const T* start) {
    return [start](auto bytes, int k) { return Extreme<T, Greatest, bytes>(start[k]); };
  };
  T found[n];
  const auto toFound = [&found](const auto& reducers) {
    for (int k = 0; k < n; ++k) found[k] = reducers[k].value();
  };
  const int band = isInt<T> ? static_cast<int>(std::clamp<long long>(
                                2048 / (static_cast<long long>(roiSize.width) * channels<L> * sizeof(T)), 1, 16))
                            : 1;
  for (int y = 0; y < roiSize.height; y += band) {
    reduceRows<L, Bytes>(from(best), toFound, roiSize.width, std::min(band, roiSize.height - y), fromRow(src, y));
    bool final = !std::is_same_v<T, Zor32f>; // no better value exists in any channel
    for (int k = 0; k < n; ++k) {
      const T value = found[k];
      if (Greatest ? value > best[k] : value < best[k]) {
        best[k] = value;
        bestRow[k] = y;
      }
      final = final && best[k] == worst<T, !Greatest>();
    }
    if (final) break;
  }
  T worsts[n];
  for (T& x : worsts) x = worst<T, Greatest>();
  if (band > 1)
    for (int k = 0; k < n; ++k)
      for (const int end = std::min(bestRow[k] + band, roiSize.height); bestRow[k] < end - 1; ++bestRow[k]) {
        reduceRows<L, Bytes>(from(worsts), toFound, roiSize.width, 1, fromRow(src, bestRow[k]));
        if (found[k] == best[k]) break;
      }
  for (int k = 0; k < n; ++k) {
    const T* row = src[bestRow[k]] + k;
    int x = 0;
    while (x < roiSize.width && !(get<T>(row + static_cast<std::ptrdiff_t>(x) * channels<L>) == best[k])) ++x;
    result[k] = best[k];
    indexX[k] = x < roiSize.width ? x : 0; // none: only infinities beyond the start
    indexY[k] = bestRow[k];
  }
}

template <class T, Layout L, bool Greatest>
ZorStatus extremeWithIndex(const T* pSrc, int srcStep, ZorImgSize roiSize, T* result, int* indexX, int* indexY)
{
  if (auto s = firstFailure(nonNull(pSrc, result, indexX, indexY), nonEmpty(roiSize)); s != ZorOk) return s;
  withReducerBytes<T>(roiSize.width, [=](auto bytes) {
    findExtreme<T, L, Greatest, bytes>(pSrc, srcStep, roiSize, result, indexX, indexY);
  });
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout, P, least, greatest, x, y)                                                                  \
  ZorStatus zoriMin_##type##_##layout##R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize, P(Zor##type, least))  \
  { return extremeRegion<Zor##type, layout, false>(pSrc, srcStep, roiSize, least); }                                   \
  ZorStatus zoriMax_##type##_##layout##R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize, P(Zor##type, greatest))\
  { return extremeRegion<Zor##type, layout, true>(pSrc, srcStep, roiSize, greatest); }                                 \
  ZorStatus zoriMinMax_##type##_##layout##R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize, P(Zor##type, least),\
                                            P(Zor##type, greatest))                                                    \
  { return bothExtremes<Zor##type, layout>(pSrc, srcStep, roiSize, least, greatest); }                                 \
  ZorStatus zoriMinIndx_##type##_##layout##R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize, P(Zor##type, least),\
                                             P(int, x), P(int, y))                                                     \
  { return extremeWithIndex<Zor##type, layout, false>(pSrc, srcStep, roiSize, least, x, y); }                          \
  ZorStatus zoriMaxIndx_##type##_##layout##R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize, P(Zor##type, greatest),\
                                             P(int, x), P(int, y))                                                     \
  { return extremeWithIndex<Zor##type, layout, true>(pSrc, srcStep, roiSize, greatest, x, y); }
#define ONE(type, name) type* name
#define THREE(type, name) type name[3]
#define FOUR(type, name) type name[4]
#define STAMPS(type)                                                                                  \
  STAMP(type, C1, ONE, pMin, pMax, pIndexX, pIndexY) STAMP(type, C3, THREE, min, max, indexX, indexY) \
  STAMP(type, C4, FOUR, min, max, indexX, indexY) STAMP(type, AC4, THREE, min, max, indexX, indexY)
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32f)
#undef STAMPS
#undef FOUR
#undef THREE
#undef ONE
#undef STAMP
