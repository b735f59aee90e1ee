// zoriDecimateFilterRow_8u_C1R, zoriDecimateFilterColumn_8u_C1R: shrinking by p / q = 1/2, 2/3, 3/4, 4/5 behind a
// low-pass filter.
//
// Sample i lies at (i + 0.5) * q / p - 0.5. Its weights are a two-lobe Lanczos kernel stretched by q / p, one set for
// each phase i mod p, as 14-bit integers with the sum 16384: what rounding leaves over goes to the largest weight.
// Samples outside the region are its nearest. (sum + 8192) >> 14, saturated.
#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/numeric_mode.h"
#include "rowkernels/drivers.h"
#include "zori/geometry.h"

#include <algorithm>
#include <cmath>

namespace zori {
namespace {

constexpr int maxTaps = 8, maxPhases = 4;

// The taps of all phases, `taps` of them each; phase k of group g starts at source sample g * q + first[k].
struct Filter {
  int p, q, taps = 0;
  int first[maxPhases];
  Zor16s weights[maxPhases][maxTaps];
};

double lanczos2(double d)
{
  constexpr double pi = 3.14159265358979323846;
  d = std::fabs(d);
  if (d >= 2) return 0;
  return d < 1e-12 ? 1 : std::sin(pi * d) / (pi * d) * std::sin(pi * d / 2) / (pi * d / 2);
}

[[gnu::noinline]] Filter filterOf(int fraction)
{
  Filter f;
  f.p = fraction;
  f.q = fraction + 1;
  f.taps = maxTaps; // 4 * q / p, at most 8
  const double stretch = static_cast<double>(f.q) / f.p;
  for (int k = 0; k < f.p; ++k) {
    const double position = (k + 0.5) * stretch - 0.5;
    f.first[k] = static_cast<int>(std::floor(position - 2 * stretch)) + 1;
    double w[maxTaps], sum = 0;
    for (int t = 0; t < f.taps; ++t) sum += w[t] = lanczos2((f.first[k] + t - position) / stretch);
    int total = 0;
    for (int t = 0; t < f.taps; ++t) {
      f.weights[k][t] = static_cast<Zor16s>(std::lrint(w[t] / sum * 16384));
      total += f.weights[k][t];
    }
    Zor16s* const largest = std::max_element(f.weights[k], f.weights[k] + f.taps);
    *largest = static_cast<Zor16s>(*largest + 16384 - total);
  }
  return f;
}

Filter filterUnderNearest(int fraction)
{
  const RoundingScope nearest(Rounding::Nearest);
  return filterOf(fraction);
}

ZorStatus checked(const Zor8u* pSrc, int srcStep, ZorImgSize roi, const Zor8u* pDst, int dstStep, int fraction,
                  int extent)
{
  return firstFailure(nonNull(pSrc, pDst), positive(srcStep, dstStep), nonEmpty(roi),
                      require(fraction >= 1 && fraction <= 4, ZorErrDecimateFraction),
                      require(1LL * extent * fraction / (1LL * fraction + 1) >= 1, ZorErrSubsample));
}

int shrunk(int extent, const Filter& f) { return static_cast<int>(1LL * extent * f.p / f.q); }

Zor8u finished(int sum) { return static_cast<Zor8u>(std::clamp((sum + 8192) >> 14, 0, 255)); }

// The products of eight samples with all weights of a phase, in four parts of their sum.
inline Vec<Zor32s> productsOfTaps(const Zor8u* p, const Zor16s* weights)
{
  return mulAddPairs(as<Zor16s>(widenLow(loadLow8<Zor8u>(p))), load<Zor16s>(weights));
}

inline int sumOfTaps(const Zor8u* p, const Zor16s* weights)
{
  Vec<Zor32s> sum = productsOfTaps(p, weights);
  sum = sum + shuffle<1, 0, 3, 2>(sum);
  return firstLane(sum + shuffle<2, 3, 0, 1>(sum));
}

// The sums of four vectors, side by side.
inline Vec<Zor32s> sumsOfFour(const Vec<Zor32s> (&x)[4])
{
  const auto half = [](Vec<Zor32s> a, Vec<Zor32s> b) {
    return as<std::uint64_t>(interleaveLow(a, b) + interleaveHigh(a, b));
  };
  const auto first = half(x[0], x[1]), second = half(x[2], x[3]);
  return as<Zor32s>(interleaveLow(first, second)) + as<Zor32s>(interleaveHigh(first, second));
}

[[gnu::noinline]] void decimateRow(const Filter& f, const Zor8u* src, int width, Zor8u* dst, int count)
{
  int i = 0, base = 0;
  const auto group = [&] {
    for (int k = 0; k < f.p && i < count; ++k, ++i) {
      const int first = base + f.first[k];
      if (first >= 0 && first + maxTaps <= width) {
        dst[i] = finished(sumOfTaps(src + first, f.weights[k]));
        continue;
      }
      Zor8u edge[maxTaps];
      for (int t = 0; t < maxTaps; ++t) edge[t] = src[std::clamp(first + t, 0, width - 1)];
      dst[i] = finished(sumOfTaps(edge, f.weights[k]));
    }
    base += f.q;
  };
  while (i < count && base + f.first[0] < 0) group();

  constexpr int together = 12; // whole groups of all fractions
  int first[together];
  const Zor16s* weights[together];
  for (int k = 0; k < together; ++k) {
    first[k] = k / f.p * f.q + f.first[k % f.p];
    weights[k] = f.weights[k % f.p];
  }
  const int advance = together / f.p * f.q;
  for (; i + together <= count && base + first[together - 1] + maxTaps <= width; i += together, base += advance)
    for (int k = 0; k < together; k += 4) {
      Vec<Zor32s> products[4];
      for (int j = 0; j < 4; ++j) products[j] = productsOfTaps(src + base + first[k + j], weights[k + j]);
      const auto words = narrowSat<Zor16s>(shiftRight<14>(sumsOfFour(products) + splat(8192)), splat(0));
      storeLow4(dst + i + k, narrowSat<Zor8u>(words, words));
    }
  while (i < count) group();
}

// Rows above each other, two to a multiply-add.
struct CombineRows {
  static constexpr std::ptrdiff_t blockLength = 16;
  Vec<Zor16s> pairs[maxTaps / 2];

  explicit CombineRows(const Zor16s* weights)
  {
    for (int t = 0; t < maxTaps / 2; ++t) {
      const auto low = static_cast<std::uint16_t>(weights[2 * t]),
                 high = static_cast<std::uint16_t>(weights[2 * t + 1]);
      pairs[t] = as<Zor16s>(splat(static_cast<std::uint32_t>(low | static_cast<std::uint32_t>(high) << 16)));
    }
  }
  void block(const Zor8u* r0, const Zor8u* r1, const Zor8u* r2, const Zor8u* r3, const Zor8u* r4, const Zor8u* r5,
             const Zor8u* r6, const Zor8u* r7, Zor8u* dst) const
  {
    const Zor8u* const rows[maxTaps] = {r0, r1, r2, r3, r4, r5, r6, r7};
    constexpr int parts = 16 / Vec<Zor32s>::size;
    Vec<Zor32s> sum[parts];
    for (auto& s : sum) s = splat<Zor32s>(8192);
    for (int t = 0; t < maxTaps / 2; ++t) {
      const Group<Zor8u> a = loadGroup(rows[2 * t]), b = loadGroup(rows[2 * t + 1]);
      const auto low = interleaveLow(a.part[0], b.part[0]), high = interleaveHigh(a.part[0], b.part[0]);
      sum[0] += mulAddPairs(as<Zor16s>(widenLow(low)), pairs[t]);
      sum[1] += mulAddPairs(as<Zor16s>(widenHigh(low)), pairs[t]);
      sum[2] += mulAddPairs(as<Zor16s>(widenLow(high)), pairs[t]);
      sum[3] += mulAddPairs(as<Zor16s>(widenHigh(high)), pairs[t]);
    }
    const auto low = narrowSat<Zor16s>(shiftRight<14>(sum[0]), shiftRight<14>(sum[1])),
               high = narrowSat<Zor16s>(shiftRight<14>(sum[2]), shiftRight<14>(sum[3]));
    store(dst, narrowSat<Zor8u>(low, high));
  }
};

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriDecimateFilterRow_8u_C1R(const Zor8u* pSrc, int srcStep, ZorImgSize srcRoiSize, Zor8u* pDst, int dstStep,
                                       int fraction)
{
  if (auto s = checked(pSrc, srcStep, srcRoiSize, pDst, dstStep, fraction, srcRoiSize.width); s != ZorOk) return s;
  const Filter f = filterUnderNearest(fraction);
  for (int y = 0; y < srcRoiSize.height; ++y)
    decimateRow(f, rowAt(pSrc, srcStep, y), srcRoiSize.width, rowAt(pDst, dstStep, y), shrunk(srcRoiSize.width, f));
  return ZorOk;
}

ZorStatus zoriDecimateFilterColumn_8u_C1R(const Zor8u* pSrc, int srcStep, ZorImgSize srcRoiSize, Zor8u* pDst,
                                          int dstStep, int fraction)
{
  if (auto s = checked(pSrc, srcStep, srcRoiSize, pDst, dstStep, fraction, srcRoiSize.height); s != ZorOk) return s;
  const Filter f = filterUnderNearest(fraction);
  const int count = shrunk(srcRoiSize.height, f);
  for (int i = 0; i < count; ++i) {
    const int k = i % f.p, first = i / f.p * f.q + f.first[k];
    const Zor8u* r[maxTaps];
    for (int t = 0; t < maxTaps; ++t) r[t] = rowAt(pSrc, srcStep, std::clamp(first + t, 0, srcRoiSize.height - 1));
    mapBlocks(rowAt(pDst, dstStep, i), srcRoiSize.width, CombineRows(f.weights[k]), r[0], r[1], r[2], r[3], r[4], r[5],
              r[6], r[7]);
  }
  return ZorOk;
}
