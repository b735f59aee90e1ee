// Kernels of supersampling, in the order of the work: rows to a row of sums, neighbouring sums to totals of outputs,
// totals to samples.
#pragma once

#include "frame/layout.h"
#include "resize_super.h"
#include "resize_taps.h"
#include "rowkernels/convert.h"
#include "rowkernels/simd_32_only.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zori {
namespace resize {
namespace {

// ---- Rows to a row of sums ----

// Rows are gathered in bunches, each with its weight.
constexpr int bunchRows = 16;
template <class T> struct Bunch {
  const T* rows[bunchRows];
  float weights[bunchRows];
  int count = 0;
  bool isPlain = true; // all weights are 1

  void add(const T* row, float weight)
  {
    rows[count] = row;
    weights[count++] = weight;
    isPlain &= weight == 1;
  }
  void clear() { count = 0, isPlain = true; }
};

// A group of samples as numbers of type Sum.
template <class Sum, class T> inline Group<Sum> groupAs(const T* p)
{
  if constexpr (std::is_same_v<T, Sum>) {
    return loadGroup(p);
  } else {
#if ZORI_VECTOR_BYTES == 32 // widened by the loads
    Group<Sum> x;
    for (int k = 0; k < x.parts; ++k) {
      if constexpr (sizeof(Sum) == 2) x.part[k] = loadHalfWidened<T>(p + k * x.part[k].size);
      else if constexpr (std::is_same_v<Sum, float>) x.part[k] = toFloat(loadWidenedTo32<T>(p + k * x.part[k].size));
      else x.part[k] = as<Sum>(loadWidenedTo32<T>(p + k * x.part[k].size));
    }
    return x;
#else
    return Converted<Sum>{}(loadGroup(p));
#endif
  }
}

#if ZORI_VECTOR_BYTES == 32
// The sums of a group of bytes, two rows at a time.
template <int Count> inline Group<std::uint16_t> sumOfBytes(const Zor8u* const* rows, int given, std::ptrdiff_t i)
{
  const int count = Count ? Count : given;
  auto low = zero<Zor16s>(), high = low; // the halves of each 16 bytes
  const auto ones = splat<Zor8s>(1);
  int r = 0;
  for (; r + 2 <= count; r += 2) {
    const auto a = load<Zor8u>(rows[r] + i), b = load<Zor8u>(rows[r + 1] + i);
    low += mulAddPairs(interleaveLowLocal(a, b), ones);
    high += mulAddPairs(interleaveHighLocal(a, b), ones);
  }
  if (r < count) {
    const auto a = load<Zor8u>(rows[r] + i);
    low += as<Zor16s>(widenLowLocal(a));
    high += as<Zor16s>(widenHighLocal(a));
  }
  Group<std::uint16_t> sums;
  sums.part[0] = as<std::uint16_t>(lowHalves(low, high));
  sums.part[1] = as<std::uint16_t>(highHalves(low, high));
  return sums;
}
#endif

// sums[i] += the rows' samples, each times its weight; from 0 on when isFirst. Count: how many rows, or 0.
template <bool IsPlain, int Count, class T, class Sum>
[[gnu::noinline]] void addRows(const Bunch<T>& bunch, bool isFirst, std::ptrdiff_t samples, Sum* sums)
{
  const UpperHalvesCleared atTheEnd;
  constexpr std::ptrdiff_t block = Group<T>::size;
  const int count = Count ? Count : bunch.count;
  const T* rows[Count ? Count : bunchRows];
  std::copy(bunch.rows, bunch.rows + count, rows);
  std::ptrdiff_t i = 0;
  if constexpr (sizeof(Sum) <= 4) {
    for (; i + block <= samples; i += block) {
      Group<Sum> sum;
      for (auto& v : sum.part) v = zero<Sum>();
      if (!isFirst) sum = loadGroup(sums + i);
#if ZORI_VECTOR_BYTES == 32
      if constexpr (sizeof(T) == 1 && sizeof(Sum) == 2) {
        const Group<Sum> x = sumOfBytes<Count>(rows, count, i);
        for (int k = 0; k < sum.parts; ++k) sum.part[k] += x.part[k];
        storeGroup(sums + i, sum);
        continue;
      }
#endif
      for (int r = 0; r < count; ++r) {
        const Group<Sum> x = groupAs<Sum>(rows[r] + i);
        for (int k = 0; k < sum.parts; ++k) {
          if constexpr (IsPlain) sum.part[k] += x.part[k];
          else sum.part[k] += x.part[k] * splat(bunch.weights[r]);
        }
      }
      storeGroup(sums + i, sum);
    }
  }
  for (; i < samples; ++i) {
    Sum sum = isFirst ? Sum() : sums[i];
    for (int r = 0; r < count; ++r) {
      const T x = get<T>(rows[r] + i);
      if constexpr (IsPlain) sum = static_cast<Sum>(sum + static_cast<Sum>(x));
      else sum += static_cast<float>(x) * bunch.weights[r];
    }
    sums[i] = sum;
  }
}

template <bool IsPlain, class T, class Sum>
void addBunch(const Bunch<T>& bunch, bool isFirst, std::ptrdiff_t samples, Sum* sums)
{
  switch (bunch.count) {
  case 2: return addRows<IsPlain, 2>(bunch, isFirst, samples, sums);
  case 3: return addRows<IsPlain, 3>(bunch, isFirst, samples, sums);
  default: return addRows<IsPlain, 0>(bunch, isFirst, samples, sums);
  }
}

// ---- Sums to totals ----

template <class Sum>
using Total = std::conditional_t<std::is_same_v<Sum, float>, float,
                                 std::conditional_t<sizeof(Sum) == 8, std::uint64_t, std::int32_t>>;

constexpr int stripOutputs = 256;
constexpr std::ptrdiff_t stripBytes = 16384, slackSamples = 16;

// Outputs that are worked on together, and the samples of the row of sums that they cover.
struct Strip {
  static constexpr int fewTaps = 8;
  Cover covers[stripOutputs];
  int count = 0;
  long long origin = 0, end = 0; // pixels
  long long taps = 0;            // of the output that has most of them
  bool isWhole = true;           // each covers just so many whole pixels
  std::int32_t at[stripOutputs];
  float weights[fewTaps][stripOutputs]; // 0 where an output has fewer taps

  void clear() { count = 0, origin = end = taps = 0, isWhole = true; }
  void add(const Cover& cover)
  {
    if (count == 0) origin = cover.first;
    taps = std::max(taps, cover.pixels());
    end = std::max(end, cover.first + cover.pixels());
    covers[count++] = cover;
  }
  void finish()
  {
    for (int o = 0; o < count; ++o) {
      isWhole &= covers[o].whole == taps;
      at[o] = static_cast<std::int32_t>(covers[o].first - origin);
    }
    const int padded = (count + 7) / 8 * 8;
    for (int o = count; o < padded; ++o) at[o] = at[count - 1];
    if (isWhole || taps > fewTaps) return;
    for (int t = 0; t < taps; ++t)
      for (int o = 0; o < padded; ++o) {
        const Cover& cover = covers[std::min(o, count - 1)];
        weights[t][o] = t < cover.pixels() ? cover.weight(t) : 0;
      }
  }
};

// The working memory of strips.
template <class Sum, int C> struct StripSpace {
  static constexpr std::ptrdiff_t sumCount = stripBytes / std::ptrdiff_t{sizeof(Sum)} + slackSamples,
                                  totalCount = stripOutputs * C + slackSamples;
  alignas(32) Sum sums[sumCount];
  alignas(32) Total<Sum> totals[totalCount];
  alignas(32) std::uint16_t shortTotals[sizeof(Sum) == 2 ? totalCount : 1];
  alignas(32) std::uint32_t wide[sizeof(Sum) == 2 && C == 1 ? sumCount : 1];
  Strip strip;
};

// A vector of outputs at a time, tap by tap, N taps brought together. Where some outputs have fewer taps the others'
// are read and count for nothing, but that 32f may hold what stays a number in no product.
template <bool IsWhole, bool MayBeInfinite, int N, class Sum>
[[gnu::noinline]] void sumSinglesBy(const Strip& strip, const Sum* sums, Total<Sum>* totals)
{
  const UpperHalvesCleared atTheEnd;
  using V = Vec<Total<Sum>>;
  const int taps = static_cast<int>(strip.taps);
  for (int o = 0; o < strip.count; o += V::size) {
    V total = zero<Total<Sum>>();
    for (int t = 0; t < taps; t += N) {
      Vec<float> p[N];
      loadTaps(reinterpret_cast<const float*>(sums) + t, strip.at + o, p);
      for (int k = 0; k < N; ++k) {
        if (t + k >= taps) break;
        if constexpr (IsWhole) {
          total += as<Total<Sum>>(p[k]);
        } else {
          const auto w = load<float>(strip.weights[t + k] + o), share = p[k] * w;
          total += MayBeInfinite ? without(share, equal(w, zero<float>())) : share;
        }
      }
    }
    store(totals + o, total);
  }
}

template <bool IsWhole, bool MayBeInfinite, class Sum>
void sumSingles(const Strip& strip, const Sum* sums, Total<Sum>* totals)
{
  if (strip.taps <= 2) sumSinglesBy<IsWhole, MayBeInfinite, 2>(strip, sums, totals);
  else sumSinglesBy<IsWhole, MayBeInfinite, 4>(strip, sums, totals);
}

// Pixels of three or four samples, each a vector of 16 bytes.
template <class Sum> inline Vec<Total<Sum>, 16> pixelAt(const Sum* p)
{
  if constexpr (sizeof(Sum) == 2) return as<Zor32s>(widenLow(loadLow8<Sum>(p)));
  else return as<Total<Sum>>(loadFour(reinterpret_cast<const float*>(p)));
}

template <int C, class Sum> [[gnu::noinline]] void sumPixelsOf(const Strip& strip, const Sum* sums, Total<Sum>* totals)
{
  for (int o = 0; o < strip.count; ++o, totals += C) {
    const Cover& cover = strip.covers[o];
    const Sum* p = sums + std::ptrdiff_t{strip.at[o]} * C;
    auto total = zero<Total<Sum>, 16>();
    if constexpr (std::is_same_v<Sum, float>) {
      if (cover.head > 0) {
        total += pixelAt(p) * splatFour(cover.head);
        p += C;
      }
    }
    for (long long k = 0; k < cover.whole; ++k, p += C) total += pixelAt(p);
    if constexpr (std::is_same_v<Sum, float>) {
      if (cover.tail > 0) total += pixelAt(p) * splatFour(cover.tail);
    }
    store(totals, total); // the fourth of three is written over by the next
  }
}

#if ZORI_VECTOR_BYTES == 32
// Of floats, two outputs at a time, with few taps.
template <int C, bool IsWhole, bool MayBeInfinite>
[[gnu::noinline]] void sumPixelPairs(const Strip& strip, const float* sums, float* totals)
{
  const UpperHalvesCleared atTheEnd;
  const int taps = static_cast<int>(strip.taps);
  for (int o = 0; o < strip.count; o += 2, totals += 2 * C) {
    const float *const p0 = sums + std::ptrdiff_t{strip.at[o]} * C, *const p1 =
                                                                      sums + std::ptrdiff_t{strip.at[o + 1]} * C;
    auto total = zero<float>();
    for (int t = 0; t < taps; ++t) {
      const auto x = joined(loadFour(p0 + t * C), loadFour(p1 + t * C));
      if constexpr (IsWhole) {
        total += x;
      } else {
        const auto w = joined(splatFour(strip.weights[t][o]), splatFour(strip.weights[t][o + 1])), share = x * w;
        total += MayBeInfinite ? without(share, equal(w, zero<float>())) : share;
      }
    }
    store(totals, lowHalf(total)); // the fourth of three is written over by the next
    store(totals + C, highHalf(total));
  }
}
#endif

// Outputs that all cover N whole pixels (0: as many as it takes); the first of one is the next of the one before.
// Short totals fit the type of the sums.
template <int C, int N, class Sum, class A>
[[gnu::noinline]] void sumWholePixels(const Strip& strip, const Sum* sums, A* totals)
{
  const auto pixels = N > 0 ? std::ptrdiff_t{N} : static_cast<std::ptrdiff_t>(strip.taps);
  for (int o = 0; o < strip.count; ++o, totals += C, sums += pixels * C) {
    if constexpr (sizeof(A) == 2) {
      auto total = load<Sum, 16>(sums); // as good as 8 bytes
      for (std::ptrdiff_t k = 1; k < pixels; ++k) total += load<Sum, 16>(sums + k * C);
      storeLow8(totals, total);
    } else {
      auto total = pixelAt(sums);
      for (std::ptrdiff_t k = 1; k < pixels; ++k) total += pixelAt(sums + k * C);
      store(totals, total);
    }
  }
}

template <int C, class Sum, class A> void sumWhole(const Strip& strip, const Sum* sums, A* totals)
{
  switch (strip.taps) {
  case 2: return sumWholePixels<C, 2>(strip, sums, totals);
  case 3: return sumWholePixels<C, 3>(strip, sums, totals);
  default: return sumWholePixels<C, 0>(strip, sums, totals);
  }
}

// The same for one channel and short totals, four taps of two outputs at a time.
[[gnu::noinline]] inline void sumWholeSingles(const Strip& strip, const std::uint16_t* sums, std::uint16_t* totals)
{
  const auto taps = static_cast<std::ptrdiff_t>(strip.taps);
  const auto fourOf = [](const std::uint16_t* low, const std::uint16_t* high) {
    return as<Zor16s>(loadHalves(reinterpret_cast<const float*>(low), reinterpret_cast<const float*>(high)));
  };
  const auto ones = splat<Zor16s, 16>(1);
  const int rest = static_cast<int>(taps % 4); // ones for so many of the last taps
  const auto last =
    as<Zor16s>(splat<std::uint64_t, 16>(rest == 0 ? ~std::uint64_t{0} : ~(~std::uint64_t{0} << 16 * rest))) & ones;
  const auto four = [=](const std::int32_t* at) {
    const std::uint16_t* p[4];
    for (int k = 0; k < 4; ++k) p[k] = sums + at[k];
    I32x4 low = zero<Zor32s, 16>(), high = low;
    std::ptrdiff_t t = 0;
    for (; t + 4 < taps; t += 4) {
      low += mulAddPairs(fourOf(p[0] + t, p[1] + t), ones);
      high += mulAddPairs(fourOf(p[2] + t, p[3] + t), ones);
    }
    low += mulAddPairs(fourOf(p[0] + t, p[1] + t), last);
    high += mulAddPairs(fourOf(p[2] + t, p[3] + t), last);
    const F32x4 a = as<float>(low), b = as<float>(high);
    return as<Zor32s>(shuffle<2, 0, 2, 0>(a, b)) + as<Zor32s>(shuffle<3, 1, 3, 1>(a, b));
  };
  for (int o = 0; o < strip.count; o += 8)
    store(totals + o, narrowSat<Zor16s>(four(strip.at + o), four(strip.at + o + 4)));
}

template <int C, class Sum> [[gnu::noinline]] void sumPlainly(const Strip& strip, const Sum* sums, Total<Sum>* totals)
{
  for (int o = 0; o < strip.count; ++o) {
    const Cover& cover = strip.covers[o];
    const Sum* p = sums + std::ptrdiff_t{strip.at[o]} * C;
    const auto pixels = static_cast<std::ptrdiff_t>(cover.pixels());
    for (int c = 0; c < C; ++c) {
      Total<Sum> total = 0;
      for (std::ptrdiff_t k = 0; k < pixels; ++k) {
        if constexpr (std::is_same_v<Sum, float>) total += p[k * C + c] * cover.weight(k);
        else total += static_cast<Total<Sum>>(p[k * C + c]);
      }
      totals[o * C + c] = total;
    }
  }
}

// No total is above 32767.
template <int C> inline void sumColumnsShort(const Strip& strip, const std::uint16_t* sums, std::uint16_t* totals)
{
  if constexpr (C == 1) sumWholeSingles(strip, sums, totals);
  else sumWhole<C>(strip, sums, totals);
}

// From the first `samples` sums.
template <bool MayBeInfinite, class Sum, int C>
inline void sumColumns(StripSpace<Sum, C>& space, std::ptrdiff_t samples)
{
  const Strip& strip = space.strip;
  Sum* const sums = space.sums;
  Total<Sum>* const totals = space.totals;
  if constexpr (sizeof(Sum) == 8) {
    sumPlainly<C>(strip, sums, totals);
  } else if constexpr (std::is_same_v<Sum, float>) {
    for (int k = 0; k < slackSamples; ++k) sums[samples + k] = 0; // read with weight 0
    const bool haveWeights = strip.isWhole || strip.taps <= Strip::fewTaps;
    if constexpr (C == 1) {
      if (strip.isWhole) sumSingles<true, false>(strip, static_cast<const Sum*>(sums), totals);
      else if (haveWeights) sumSingles<false, MayBeInfinite>(strip, static_cast<const Sum*>(sums), totals);
      else sumPlainly<1>(strip, sums, totals);
    } else {
#if ZORI_VECTOR_BYTES == 32
      if (haveWeights)
        return strip.isWhole ? sumPixelPairs<C, true, false>(strip, sums, totals)
                             : sumPixelPairs<C, false, MayBeInfinite>(strip, sums, totals);
#endif
      sumPixelsOf<C>(strip, sums, totals);
    }
  } else if constexpr (C > 1) {
    if (strip.isWhole) sumWhole<C>(strip, sums, totals);
    else sumPixelsOf<C>(strip, sums, totals);
  } else if constexpr (sizeof(Sum) == 2) {
    mapGroups(space.wide, samples, Converted<std::uint32_t>{}, static_cast<const Sum*>(sums));
    sumSingles<true, false>(strip, static_cast<const std::uint32_t*>(space.wide), totals);
  } else {
    sumSingles<true, false>(strip, static_cast<const Sum*>(sums), totals);
  }
}

// ---- Totals to samples ----

// How totals become samples: total * scale in double, and for integers + 0.5 and cut.
//
// Totals of 8u under blocks of up to 128 pixels stay in 15 bits. There the quotient (total + block / 2) / block, cut,
// mostly is the same number, and a product gives it: (total + block / 2) * factor >> shift. What rounding of the double
// product can change are totals halfway between two results; they are tried.
struct Scaling {
  double scale, block;
  bool isSingle; // scale is a number of single precision: products of floats are rounded once then, as they must be
  int factor = 0, shift = 0; // of 16 bits, shift is at least 16; factor 0: the double product

  // block: pixels of an output when all totals are whole numbers of 8u, else 0.
  Scaling(double s, double b) : scale(s), block(b), isSingle(static_cast<double>(static_cast<float>(s)) == s)
  {
    if (!(block >= 1 && block <= 128)) return;
    const int n = static_cast<int>(block), most = 255 * n + n / 2;
    if (!(std::fabs(s * n - 1) < 1e-6)) return;
    while ((2 << shift) / n < 65536) ++shift;
    const int ceiling = ((1 << shift) + n - 1) / n;
    const long long excess = 1LL * ceiling * n - (1LL << shift);
    if (shift >= 16 && most * excess < 1LL << shift && (n % 2 || tiesGoUp(n))) factor = ceiling;
  }

private:
  bool tiesGoUp(int n) const
  {
    bool all = true;
    for (int m = 0; m < 255; ++m) all &= (m * n + n / 2) * scale + 0.5 >= m + 1;
    return all;
  }
};

template <class T, class A> inline T scaledSample(A total, double scale)
{
  const double y = static_cast<double>(total) * scale;
  if constexpr (std::is_same_v<T, float>) return static_cast<float>(y);
  else {
    constexpr double high = std::numeric_limits<T>::max(), low = std::numeric_limits<T>::min();
    const double rounded = y + 0.5;
    return static_cast<T>(std::isless(rounded, low) ? low : std::isless(rounded, high) ? std::floor(rounded) : high);
  }
}

// x * scale + 0.5 cut to whole numbers.
template <class X> inline Vec<Zor32s> scaledInts(X x, double scale)
{
  const auto s = splat(scale), half = splat(0.5);
  return toIntTruncated(toDoubleLow(x) * s + half, toDoubleHigh(x) * s + half);
}

// Totals of outputs, of which there is room for whole groups.
template <class T, class A>
[[gnu::noinline]] void scaleTotals(const A* totals, std::ptrdiff_t count, const Scaling& given, T* dst)
{
  const UpperHalvesCleared atTheEnd;
  const Scaling by = given; // of its own: what is stored is not in it
  if constexpr (sizeof(A) > 4 || std::is_same_v<T, Zor16s>) {
    for (std::ptrdiff_t i = 0; i < count; ++i) put(dst + i, scaledSample<T>(totals[i], by.scale));
  } else if constexpr (std::is_same_v<T, float>) {
    constexpr std::ptrdiff_t block = Vec<float>::size;
    const auto single = splat(static_cast<float>(by.scale));
    const auto exact = splat(by.scale);
    std::ptrdiff_t i = 0;
    for (; i + block <= count; i += block) {
      const auto x = load<float>(totals + i);
      store(dst + i, by.isSingle ? x * single : toFloat(toDoubleLow(x) * exact, toDoubleHigh(x) * exact));
    }
    for (; i < count; ++i) put(dst + i, scaledSample<T>(totals[i], by.scale));
  } else {
    constexpr std::ptrdiff_t block = Group<T>::size;
    const auto half = splat(static_cast<std::uint16_t>(by.block / 2)),
               factor = splat(static_cast<std::uint16_t>(by.factor));
    const int shift = by.shift - 16;
    const auto samplesOf = [=](const A* p) -> Group<T> {
      if constexpr (sizeof(A) == 2) {
        if (by.factor > 0) {
          const auto two = [=](const A* q) {
            return as<Zor16s>(shiftRight(mulHigh(load<A>(q) + half, factor), shift));
          };
          return {{narrowSat<T>(two(p), two(p + Vec<A>::size))}};
        }
      }
      Group<Zor32s> n;
      for (int k = 0; k < n.parts; ++k) {
        const A* const q = p + k * Vec<Zor32s>::size;
        if constexpr (std::is_same_v<A, float>) n.part[k] = scaledInts(load<float>(q), by.scale);
        else if constexpr (sizeof(A) == 2) n.part[k] = scaledInts(as<Zor32s>(loadHalfWidened<A>(q)), by.scale);
        else n.part[k] = scaledInts(load<Zor32s>(q), by.scale);
      }
      return packed<T>(n);
    };
    std::ptrdiff_t i = 0;
    for (; i + block <= count; i += block) storeGroup(dst + i, samplesOf(totals + i));
    if (i < count) {
      T rest[block];
      storeGroup(rest, samplesOf(totals + i));
      std::memcpy(dst + i, rest, static_cast<std::size_t>(count - i) * sizeof(T));
    }
  }
}

} // namespace
} // namespace resize
} // namespace zori
