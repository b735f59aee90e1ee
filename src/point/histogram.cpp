// zoriHistogramEven_{8u,16u,16s}_{C1,C3,C4,AC4}R, zoriHistogramRange_{8u,16u,16s,32f}_{C1,C3,C4,AC4}R: counts of
// samples in intervals, pHist[k] for level k <= x < level k + 1.
//
// Four methods count alike; which one a call takes depends on the size of the region, the number of levels and whether
// they ascend (the tables below):
//
//   brute force      every bin tests every sample; the only method for levels out of order, besides the table
//   forward search   the first interval that holds the sample
//   binary search    the same by halving
//   full table       all values counted, then summed over the intervals; 8u always takes it
#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/memory.h"
#include "rowkernels/simd.h"
#include "zori/point.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace zori {
namespace {

enum class Method { BruteForce, ForwardSearch, BinarySearch, FullTable };

// Regions of fewer than `pixels` pixels search up to `levels` levels; with more levels they take the full table. The
// last row serves every larger region.
struct SearchLimit {
  long long pixels;
  int levels;
};
constexpr SearchLimit ascendingLimits[] = {{12544, 2147483647}, {16384, 214}, {20736, 74}, {25600, 38}, {30976, 34},
                                           {43264, 22},         {50176, 18},  {65536, 14}, {123904, 3}, {INT64_MAX, 2}};
constexpr SearchLimit unorderedLimits[] = {{1024, 2147483647}, {2304, 442}, {4096, 202},   {6400, 114}, {9216, 74},
                                           {12544, 54},        {16384, 42}, {20736, 30},   {30976, 22}, {36864, 18},
                                           {50176, 14},        {82944, 10}, {INT64_MAX, 6}};
constexpr int leastForBinarySearch = 27;                                                // 16-bit samples
constexpr int mostForForwardSearchFloat = 102, mostForForwardSearchFloatChannels = 106; // 32f, one channel and several

template <class T> using Level = std::conditional_t<std::is_same_v<T, Zor32f>, Zor32f, Zor32s>;

// One channel's levels and counters.
template <class T> struct Bins {
  Zor32s* hist;
  const Level<T>* levels;
  int count; // of levels

  int bins() const { return count - 1; }
  void add(int k) const { hist[k] = static_cast<Zor32s>(static_cast<Zor32u>(hist[k]) + 1u); }
  bool ascend() const
  {
    for (int k = 0; k + 1 < count; ++k)
      if (!(levels[k] < levels[k + 1])) return false;
    return true;
  }
};

template <class T> Method chooseMethod(long long pixels, bool ascending, int levels, bool oneChannel)
{
  if constexpr (sizeof(T) == 1) return Method::FullTable;
  else if constexpr (std::is_same_v<T, Zor32f>) {
    if (!ascending) return Method::BruteForce;
    const int most = oneChannel ? mostForForwardSearchFloat : mostForForwardSearchFloatChannels;
    return levels > most ? Method::BinarySearch : Method::ForwardSearch;
  } else {
    const SearchLimit* limit = ascending ? ascendingLimits : unorderedLimits;
    while (pixels >= limit->pixels) ++limit;
    if (levels > limit->levels) return Method::FullTable;
    if (!ascending) return Method::BruteForce;
    return levels < leastForBinarySearch ? Method::ForwardSearch : Method::BinarySearch;
  }
}

// ---- The methods, for one channel of a row ----

template <Method M, class T> void searchRow(const T* row, int width, int stride, const Bins<T>& b)
{
  const auto first = b.levels[0], last = b.levels[b.count - 1];
  for (std::ptrdiff_t i = 0, end = static_cast<std::ptrdiff_t>(width) * stride; i < end; i += stride) {
    const auto x = static_cast<Level<T>>(get<T>(row + i));
    if constexpr (M == Method::BruteForce) {
      for (int k = 0; k < b.bins(); ++k)
        if (b.levels[k] <= x && b.levels[k + 1] > x) b.add(k);
    } else {
      if (!(x >= first && x < last)) continue; // a NaN is in no bin
      int k = 0;
      if constexpr (M == Method::ForwardSearch) {
        while (!(x < b.levels[k + 1])) ++k;
      } else {
        for (int m = b.bins(); m > 1;) {
          const int h = m / 2;
          const bool below = x < b.levels[k + h];
          k = below ? k : k + h;
          m = below ? h : m - h;
        }
      }
      b.add(k);
    }
  }
}

template <class T> inline constexpr int tableSize = sizeof(T) == 1 ? 256 : 65536;
// From a lane's table to the next one's: counts of one value in two lanes do not lie a page apart, where a load waits
// for a store that is not its own.
template <class T, int Lanes> inline constexpr int tablePitch = tableSize<T> + (Lanes > 1 ? 32 : 0);

// Counts of all values, a table a channel and lane. Neighbouring pixels count in different tables, so that equal ones
// do not wait for each other's stores. One store a sample is the limit.
template <class T, int Channels, int Processed, int Lanes>
ZORI_ONE_COPY void countRow(const T* p, std::ptrdiff_t width, Zor32u* tables)
{
  constexpr int bias = std::is_signed_v<T> ? 32768 : 0;
  const auto count = [=](const T* pixel, int lane) {
    for (int k = 0; k < Processed; ++k) ++tables[(k * Lanes + lane) * tablePitch<T, Lanes> + get<T>(pixel + k) + bias];
  };
  if constexpr (Channels == 1 && sizeof(T) == 1) {
    static_assert(Lanes == 8);
    for (; width >= Lanes; width -= Lanes, p += Lanes) {
      const auto x = get<std::uint64_t>(p);
      for (int j = 0; j < Lanes; ++j) ++tables[j * tablePitch<T, Lanes> + (x >> 8 * j & 255)];
    }
  }
  for (; width >= Lanes; width -= Lanes)
    for (int j = 0; j < Lanes; ++j, p += Channels) count(p, j);
  for (; width > 0; --width, p += Channels) count(p, 0);
}

template <class T, int Lanes> void sumIntervals(const Zor32u* tables, const Bins<T>& b)
{
  constexpr int low = std::numeric_limits<T>::min(), end = static_cast<int>(std::numeric_limits<T>::max()) + 1;
  Zor32u lanesSum[Lanes > 1 ? tableSize<T> : 1];
  const Zor32u* counts = tables;
  if constexpr (Lanes > 1) {
    for (int i = 0; i < tableSize<T>; ++i) {
      Zor32u sum = 0;
      for (int j = 0; j < Lanes; ++j) sum += tables[j * tablePitch<T, Lanes> + i];
      lanesSum[i] = sum;
    }
    counts = lanesSum;
  }
  for (int k = 0; k < b.bins(); ++k) {
    const int from = std::clamp<int>(b.levels[k], low, end) - low,
              to = std::clamp<int>(b.levels[k + 1], low, end) - low;
    Zor32u sum = 0;
    for (int i = from; i < to; ++i) sum += counts[i];
    b.hist[k] = static_cast<Zor32s>(sum);
  }
}

template <class T, int Channels, int Processed>
ZorStatus countByTable(Rows<const T> src, ZorImgSize roi, const Bins<T>* bins)
{
  if constexpr (sizeof(T) == 1) {
    constexpr int lanes = Channels == 1 ? 8 : 2;
    Zor32u tables[Processed * lanes * tablePitch<T, lanes>] = {};
    for (int y = 0; y < roi.height; ++y) countRow<T, Channels, Processed, lanes>(src[y], roi.width, tables);
    for (int c = 0; c < Processed; ++c) sumIntervals<T, lanes>(tables + c * lanes * tablePitch<T, lanes>, bins[c]);
  } else {
    constexpr std::size_t entries = static_cast<std::size_t>(Processed) * tableSize<T>;
    Scratch<Zor32u> tables(entries);
    if (!tables) return ZorErrAlloc;
    std::memset(tables.get(), 0, entries * sizeof(Zor32u));
    for (int y = 0; y < roi.height; ++y) countRow<T, Channels, Processed, 1>(src[y], roi.width, tables.get());
    for (int c = 0; c < Processed; ++c) sumIntervals<T, 1>(tables.get() + c * tableSize<T>, bins[c]);
  }
  return ZorOk;
}

template <Method M, class T, int Channels, int Processed>
void countBySearch(Rows<const T> src, ZorImgSize roi, const Bins<T>* bins)
{
  for (int y = 0; y < roi.height; ++y)
    for (int c = 0; c < Processed; ++c) searchRow<M>(src[y] + c, roi.width, Channels, bins[c]);
}

// The counters start from zero, and stand so when the table cannot be had.
template <class T, int Channels, int Processed>
ZorStatus countRegion(Rows<const T> src, ZorImgSize roi, const Bins<T>* bins)
{
  bool ascending = true;
  int levels = bins[0].count;
  if constexpr (Processed > 1) { // the mean number of levels decides
    Zor32u sum = 0;
    for (int c = 0; c < Processed; ++c) sum += static_cast<Zor32u>(bins[c].count);
    levels = static_cast<int>(Processed == 3 ? static_cast<std::uint64_t>(sum) * 21845 >> 16 : sum >> 2);
  }
  for (int c = 0; c < Processed; ++c) {
    ascending = ascending && bins[c].ascend();
    std::memset(bins[c].hist, 0, static_cast<std::size_t>(bins[c].bins()) * sizeof(Zor32s));
  }
  const long long pixels = static_cast<long long>(roi.width) * roi.height;
  switch (chooseMethod<T>(pixels, ascending, levels, Processed == 1)) {
  case Method::BruteForce: countBySearch<Method::BruteForce, T, Channels, Processed>(src, roi, bins); break;
  case Method::ForwardSearch: countBySearch<Method::ForwardSearch, T, Channels, Processed>(src, roi, bins); break;
  case Method::BinarySearch: countBySearch<Method::BinarySearch, T, Channels, Processed>(src, roi, bins); break;
  case Method::FullTable:
    if constexpr (!std::is_same_v<T, Zor32f>) return countByTable<T, Channels, Processed>(src, roi, bins);
  }
  return ZorOk;
}

// ---- Even levels ----

// n bins from lower to upper; where the range does not divide, the first bins are one wider.
static void makeLevels(Zor32s* levels, int nLevels, int lower, int upper)
{
  const long long n = nLevels - 1, d = static_cast<long long>(upper) - lower, q = d / n;
  long long r = d % n, level = lower;
  levels[0] = lower;
  for (int k = 0; k < n; ++k) {
    level += q;
    if (q >= 0) level += k < r ? 1 : 0;
    else if (r++ < 0) --level;
    levels[k + 1] = static_cast<Zor32s>(level);
  }
}

// 16u with bins of one width in a small region: the bin is the quotient. Half a unit keeps products off the integers.
static void countEvenBins(Rows<const Zor16u> src, ZorImgSize roi, const Bins<Zor16u>& b, int width)
{
  const int lower = b.levels[0], upper = b.levels[b.bins()];
  const double reciprocal = 1.0 / width;
  std::memset(b.hist, 0, static_cast<std::size_t>(b.bins()) * sizeof(Zor32s));
  for (int y = 0; y < roi.height; ++y)
    for (int x = 0; x < roi.width; ++x) {
      const int v = get<Zor16u>(src[y] + x);
      if (v >= lower && v < upper) b.add(static_cast<int>((static_cast<double>(v) - lower + 0.5) * reciprocal));
    }
}

// ---- The functions ----

inline ZorStatus enoughLevels(int nLevels) { return require(nLevels >= 2, ZorErrHistLevels); }

template <class T>
ZorStatus rangeC1(const T* pSrc, int srcStep, ZorImgSize roiSize, Zor32s* pHist, const Level<T>* pLevels, int nLevels)
{
  if (auto s = firstFailure(nonNull(pSrc, pHist, pLevels), nonEmpty(roiSize), positive(srcStep), enoughLevels(nLevels));
      s != ZorOk)
    return s;
  const Bins<T> bins{pHist, pLevels, nLevels};
  return countRegion<T, 1, 1>(Rows{pSrc, srcStep}, roiSize, &bins);
}

template <class T>
ZorStatus evenC1(const T* pSrc, int srcStep, ZorImgSize roiSize, Zor32s* pHist, Zor32s* pLevels, int nLevels,
                 int lowerLevel, int upperLevel)
{
  if (auto s = firstFailure(nonNull(pSrc, pHist, pLevels), nonEmpty(roiSize), positive(srcStep), enoughLevels(nLevels));
      s != ZorOk)
    return s;
  makeLevels(pLevels, nLevels, lowerLevel, upperLevel);
  const Bins<T> bins{pHist, pLevels, nLevels};
  if constexpr (std::is_same_v<T, Zor16u>) {
    const long long d = static_cast<long long>(upperLevel) - lowerLevel,
                    pixels = static_cast<long long>(roiSize.width) * roiSize.height;
    if (d % (nLevels - 1) == 0 && d > 0 && pixels < 65536 && d / (nLevels - 1) <= INT32_MAX) {
      countEvenBins(Rows{pSrc, srcStep}, roiSize, bins, static_cast<int>(d / (nLevels - 1)));
      return ZorOk;
    }
  }
  return countRegion<T, 1, 1>(Rows{pSrc, srcStep}, roiSize, &bins);
}

// The channels' pointers and numbers of levels, one channel after the other.
template <int N, class L> ZorStatus channelChecks(Zor32s* const* pHist, L* const* pLevels, const int* nLevels)
{
  for (int c = 0; c < N; ++c)
    if (auto s = firstFailure(nonNull(pHist[c], pLevels[c]), enoughLevels(nLevels[c])); s != ZorOk) return s;
  return ZorOk;
}

template <class T, Layout L>
ZorStatus rangeChannels(const T* pSrc, int srcStep, ZorImgSize roiSize, Zor32s* const* pHist,
                        const Level<T>* const* pLevels, const int* nLevels)
{
  constexpr int n = processed<L>;
  if (auto s = nonNull(pSrc, pHist, pLevels, nLevels); s != ZorOk) return s;
  if (auto s = firstFailure(channelChecks<n>(pHist, pLevels, nLevels), nonEmpty(roiSize), positive(srcStep));
      s != ZorOk)
    return s;
  Bins<T> bins[n];
  for (int c = 0; c < n; ++c) bins[c] = {pHist[c], pLevels[c], nLevels[c]};
  return countRegion<T, channels<L>, n>(Rows{pSrc, srcStep}, roiSize, bins);
}

template <class T, Layout L>
ZorStatus evenChannels(const T* pSrc, int srcStep, ZorImgSize roiSize, Zor32s* const* pHist, Zor32s* const* pLevels,
                       const int* nLevels, const int* lowerLevel, const int* upperLevel)
{
  constexpr int n = processed<L>;
  if (auto s = nonNull(pSrc, pHist, pLevels, nLevels, lowerLevel, upperLevel); s != ZorOk) return s;
  if (auto s = firstFailure(channelChecks<n>(pHist, pLevels, nLevels), nonEmpty(roiSize), positive(srcStep));
      s != ZorOk)
    return s;
  for (int c = 0; c < n; ++c) makeLevels(pLevels[c], nLevels[c], lowerLevel[c], upperLevel[c]);
  Bins<T> bins[n];
  for (int c = 0; c < n; ++c) bins[c] = {pHist[c], pLevels[c], nLevels[c]};
  return countRegion<T, channels<L>, n>(Rows{pSrc, srcStep}, roiSize, bins);
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP_RANGE(type, leveltype)                                                                               \
  ZorStatus zoriHistogramRange_##type##_C1R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize, Zor32s* pHist, \
                                            const Zor##leveltype* pLevels, int nLevels)                            \
  { return rangeC1(pSrc, srcStep, roiSize, pHist, pLevels, nLevels); }                                             \
  STAMP_RANGE_N(type, leveltype, C3, 3) STAMP_RANGE_N(type, leveltype, C4, 4) STAMP_RANGE_N(type, leveltype, AC4, 3)
#define STAMP_RANGE_N(type, leveltype, layout, n)                                                           \
  ZorStatus zoriHistogramRange_##type##_##layout##R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize, \
    Zor32s* const pHist[n], const Zor##leveltype* const pLevels[n], const int nLevels[n])                   \
  { return rangeChannels<Zor##type, layout>(pSrc, srcStep, roiSize, pHist, pLevels, nLevels); }
STAMP_RANGE(8u, 32s) STAMP_RANGE(16u, 32s) STAMP_RANGE(16s, 32s) STAMP_RANGE(32f, 32f)
#undef STAMP_RANGE_N
#undef STAMP_RANGE

#define STAMP_EVEN(type)                                                                                          \
  ZorStatus zoriHistogramEven_##type##_C1R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize, Zor32s* pHist, \
                                           Zor32s* pLevels, int nLevels, int lowerLevel, int upperLevel)          \
  { return evenC1(pSrc, srcStep, roiSize, pHist, pLevels, nLevels, lowerLevel, upperLevel); }                     \
  STAMP_EVEN_N(type, C3, 3) STAMP_EVEN_N(type, C4, 4) STAMP_EVEN_N(type, AC4, 3)
#define STAMP_EVEN_N(type, layout, n)                                                                                  \
  ZorStatus zoriHistogramEven_##type##_##layout##R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize,             \
    Zor32s* const pHist[n], Zor32s* const pLevels[n], const int nLevels[n], const int lowerLevel[n], const int upperLevel[n])\
  { return evenChannels<Zor##type, layout>(pSrc, srcStep, roiSize, pHist, pLevels, nLevels, lowerLevel, upperLevel); }
STAMP_EVEN(8u) STAMP_EVEN(16u) STAMP_EVEN(16s)
#undef STAMP_EVEN_N
#undef STAMP_EVEN
