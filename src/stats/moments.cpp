// zoriMoments64f_{8u,16u,32f}_{C1,C3,AC4}R, zoriMoments64s_{8u,16u}_{C1,C3,AC4}R and the moment state: raw moments
// m(i, j) = sum of x^i y^j I(x, y) up to the third order, and the central, normalised and Hu moments derived from them.
//
// A row is reduced to S_k = sum of x^k I for k = 0..3; then m(i, j) += y^j S_i. Integer rows are summed exactly in
// chunks about an origin of their own and moved to the region's; the 64s states stay in 64-bit integers throughout.
#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "frame/record.h"
#include "moments_sums.h"
#include "rowkernels/reduce.h"
#include "zori/stats.h"

#include <cmath>

constexpr Zor32u tag64f = 33, tag64s = 34;

struct ZorMomentState {
  Zor32u tag;
  Zor32s hint;
  Zor32s channels; // of the last pass, -1 before the first
  Zor32s reserved;
  union { // a channel's moments stand at order of x * 4 + order of y
    Zor64f f[3][16];
    Zor64s s[3][16];
  };
};
static_assert(sizeof(ZorMomentState) == 400);

namespace zori {
namespace {

// ---- Rows ----

// S_k of each channel. Integer moments are formed modulo 2^64, as unsigned numbers.
template <class A> struct RowSums {
  A s[4] = {};
  // Sums about `end`, moved to the origin.
  void add(const std::int64_t* t, A end)
  {
    addMoved(s, static_cast<A>(t[0]), static_cast<A>(t[1]), static_cast<A>(t[2]), static_cast<A>(t[3]), end);
  }
};

template <Layout L, class A, class T> void sumRow(const T* row, int width, RowSums<A>* sums)
{
  constexpr int n = processed<L>, lanes = Vec<T>::size;
  if constexpr (std::is_same_v<T, Zor32f>) {
    for (int x = 0; x < width; ++x, row += channels<L>)
      for (int k = 0; k < n; ++k) {
        const double v = get<Zor32f>(row + k), vx = v * x, vxx = vx * x;
        sums[k].s[0] += v;
        sums[k].s[1] += vx;
        sums[k].s[2] += vxx;
        sums[k].s[3] += vxx * x;
      }
  } else {
    alignas(16) T planes[n][chunkPixels + lanes]; // the last block filled with zeros
    for (int x = 0; x < width; x += chunkPixels, row += chunkPixels * channels<L>) {
      const int pixels = width - x < chunkPixels ? width - x : chunkPixels;
      const int blocks = (pixels + blockPixels - 1) / blockPixels;
      const bool direct = L == C1 && pixels % blockPixels == 0;
      for (int i = 0; !direct && i < blocks * blockPixels; i += lanes) {
        PixelVectors<L, T> v;
        if (i + lanes <= pixels) v = loadPixelVectors<L>(row + i * channels<L>);
        else if (i < pixels) v = loadLastPixels<L, IntegerReducer<vectorBytes>>(row + i * channels<L>, pixels - i);
        else
          for (auto& c : v.channel) c = zero<T>();
        for (int k = 0; k < n; ++k) storeAligned(planes[k] + i, v.channel[k]);
      }
      const int end = (pixels + 15) / 16 * 16; // what doubles round to in wide rows is a matter of the origin
      for (int k = 0; k < n; ++k) {
        const ChunkSums sum = sumPlane(direct ? row : planes[k], blocks);
        std::int64_t t[4] = {};
        const std::int64_t* moved = sum.t;
        if (const int behind = blocks * blockPixels - end; behind != 0) {
          addMoved<std::int64_t>(t, sum.t[0], sum.t[1], sum.t[2], sum.t[3], behind);
          moved = t;
        }
        sums[k].add(moved, static_cast<A>(x + static_cast<long long>(end)));
      }
      if (width - x <= chunkPixels) break;
    }
  }
}

template <class T, Layout L, bool Integer>
ZorStatus momentsRegion(const T* pSrc, int srcStep, ZorImgSize roiSize, ZorMomentState* pState)
{
  using A = std::conditional_t<Integer, std::uint64_t, double>;
  constexpr int n = processed<L>;
  if (auto s = nonNull(pSrc, pState); s != ZorOk) return s;
  if (auto s = firstFailure(
        isOfKind(pState, Integer ? tag64s : tag64f), positive(srcStep), nonEmpty(roiSize),
        require(srcStep >= static_cast<long long>(roiSize.width) * channels<L> * static_cast<int>(sizeof(T)),
                ZorErrStepTooSmall));
      s != ZorOk)
    return s;
  A m[n][16] = {};
  underRounding(Rounding::Nearest, [&] {
    for (int y = 0; y < roiSize.height; ++y) {
      RowSums<A> sums[n];
      sumRow<L>(rowAt(pSrc, srcStep, y), roiSize.width, sums);
      const A y1 = static_cast<A>(y), y2 = y1 * y1, y3 = y2 * y1, powers[4] = {A(1), y1, y2, y3};
      for (int k = 0; k < n; ++k)
        for (int i = 0; i < 4; ++i)
          for (int j = 0; i + j < 4; ++j) m[k][4 * i + j] += powers[j] * sums[k].s[i];
    }
  });
  std::memset(pState->s, 0, sizeof pState->s);
  std::memcpy(pState->s, m, sizeof m);
  pState->channels = n;
  return ZorOk;
}

// ---- Queries ----

static ZorStatus queryChecks(const ZorMomentState* pState, const void* pValue, Zor32u tag, int mOrd, int nOrd,
                             int nChannel)
{
  if (auto s = nonNull(pState, pValue); s != ZorOk) return s;
  return firstFailure(isOfKind(pState, tag),
                      require(mOrd >= 0 && nOrd >= 0 && mOrd <= 3 && nOrd <= 3 && mOrd + nOrd <= 3, ZorErrSize),
                      require(nChannel >= 0 && nChannel < pState->channels, ZorErrMomentChannel));
}

// A channel's moments in double.
struct RawMoments {
  double m[16];
  RawMoments(const ZorMomentState& state, int channel)
  {
    for (int i = 0; i < 16; ++i)
      m[i] = state.tag == tag64f ? state.f[channel][i] : static_cast<double>(state.s[channel][i]);
  }
  double total() const { return m[0]; }
  bool vanishes() const { return !(std::fabs(m[0]) > 2.220446049250313e-16); }
  double normaliser(int mOrd, int nOrd) const { return std::pow(m[0], -(mOrd + nOrd) / 2.0 - 1.0); }
};

// The expansion of (x + x0)^i (y + y0)^j, in doubles or in integers modulo 2^64.
template <class A, class M> A spatialMoment(const M* m, int mOrd, int nOrd, A x0, A y0, double* magnitude = nullptr)
{
  static constexpr int binomial[4][4] = {{1}, {1, 1}, {1, 2, 1}, {1, 3, 3, 1}};
  const A xPower[4] = {A(1), x0, x0 * x0, x0 * x0 * x0}, yPower[4] = {A(1), y0, y0 * y0, y0 * y0 * y0};
  A sum = 0;
  for (int i = mOrd; i >= 0; --i)
    for (int j = nOrd; j >= 0; --j) {
      const A term = static_cast<A>(binomial[mOrd][i] * binomial[nOrd][j]) * xPower[mOrd - i] * yPower[nOrd - j] *
                     static_cast<A>(m[4 * i + j]);
      if (magnitude) *magnitude += std::fabs(static_cast<double>(term));
      sum += term;
    }
  return sum;
}

static double centralMoment(const RawMoments& raw, int mOrd, int nOrd)
{
  const double* m = raw.m;
  const double xbar = m[4] / m[0], ybar = m[1] / m[0];
  switch (4 * mOrd + nOrd) {
  case 0: return m[0];
  case 5: return m[5] - m[4] * ybar;
  case 8: return m[8] - m[4] * xbar;
  case 2: return m[2] - m[1] * ybar;
  case 12: return m[12] - 3 * xbar * m[8] + 2 * xbar * xbar * m[4];
  case 9: return m[9] - ybar * m[8] - 2 * xbar * m[5] + 2 * xbar * xbar * m[1];
  case 6: return m[6] - xbar * m[2] - 2 * ybar * m[5] + 2 * ybar * ybar * m[4];
  case 3: return m[3] - 3 * ybar * m[2] + 2 * ybar * ybar * m[1];
  default: return 0; // first order
  }
}

static void huMoments(const RawMoments& raw, double* hu)
{
  const double m00 = raw.total(), second = 1.0 / (m00 * m00), third = 1.0 / (std::sqrt(m00) * m00 * m00);
  const auto eta = [&](int i, int j) { return centralMoment(raw, i, j) * (i + j == 2 ? second : third); };
  const double eta20 = eta(2, 0), eta02 = eta(0, 2), eta11 = eta(1, 1);
  const double eta30 = eta(3, 0), eta21 = eta(2, 1), eta12 = eta(1, 2), eta03 = eta(0, 3);
  const double b = eta03 + eta21, c = eta12 + eta30, d = eta03 - 3 * eta21, e = 3 * eta12 - eta30;
  const double f = eta21 + eta30; // in the fifth moment, where the textbooks have b
  const double g = 3 * (b * b) - c * c;
  hu[0] = eta02 + eta20;
  hu[1] = 4 * (eta11 * eta11) + (eta02 - eta20) * (eta02 - eta20);
  hu[2] = d * d + e * e;
  hu[3] = b * b + c * c;
  hu[4] = d * b * (f * f - 3 * (c * c)) + e * c * g;
  hu[5] = (eta02 - eta20) * (b * b - c * c) + 4 * eta11 * b * c;
  hu[6] = e * b * (b * b - 3 * (c * c)) - d * c * g;
}

// value * 2^-scaleFactor to nearest, ties to even, saturated.
static Zor64s scaledInteger(double value, int scaleFactor)
{
  const double scaled = std::ldexp(value, scaleFactor < -4000 ? 4000 : scaleFactor > 4000 ? -4000 : -scaleFactor);
  if (!(scaled > -9223372036854775808.0)) return INT64_MIN; // a NaN too
  if (scaled >= 9223372036854775808.0) return INT64_MAX;
  if (std::fabs(scaled) >= 4503599627370496.0) return static_cast<Zor64s>(scaled); // an integer already
  const Zor64s below = static_cast<Zor64s>(std::floor(scaled));
  const double rest = scaled - static_cast<double>(below);
  return below + (rest > 0.5 || (rest == 0.5 && (below & 1)) ? 1 : 0);
}

// The same of an exact integer.
static Zor64s scaledInteger(Zor64s value, int scaleFactor)
{
  if (scaleFactor <= 0) {
    if (value == 0) return 0;
    const int shift = -(scaleFactor < -64 ? -64 : scaleFactor);
    if (shift < 63 && value <= (INT64_MAX >> shift) && value >= (INT64_MIN >> shift))
      return value * (Zor64s(1) << shift);
    return value > 0 ? INT64_MAX : INT64_MIN;
  }
  if (scaleFactor > 63) return 0; // at most a half of one
  const Zor64s quotient = scaleFactor == 63 ? (value < 0 ? -1 : 0) : value >> scaleFactor;
  const auto rest = static_cast<std::uint64_t>(value) & ((std::uint64_t(1) << scaleFactor) - 1),
             half = std::uint64_t(1) << (scaleFactor - 1);
  return quotient + (rest > half || (rest == half && (quotient & 1)) ? 1 : 0);
}

static ZorStatus initState(ZorMomentState* pState, Zor32u tag, ZorHint hint)
{
  *pState = ZorMomentState{};
  pState->tag = tag;
  pState->hint = hint;
  pState->channels = -1;
  return ZorOk;
}

static ZorStatus newState(ZorMomentState** ppState, Zor32u tag, ZorHint hint)
{
  if (!ppState) return ZorErrNullPtr;
  auto* state = static_cast<ZorMomentState*>(alignedBlock(sizeof(ZorMomentState)));
  if (!state) return ZorErrAlloc;
  *ppState = state;
  return initState(state, tag, hint);
}

// A value that is formed in double from a channel's moments, if their total does not vanish: give(value of raw).
template <class Value, class Give>
static ZorStatus derived(const ZorMomentState* pState, const void* pValue, Zor32u tag, int mOrd, int nOrd, int nChannel,
                         Value value, Give give)
{
  if (auto s = queryChecks(pState, pValue, tag, mOrd, nOrd, nChannel); s != ZorOk) return s;
  return underRounding(Rounding::Nearest, [&] {
    const RawMoments raw(*pState, nChannel);
    if (raw.vanishes()) return ZorErrMomentTooSmall;
    give(value(raw));
    return ZorOk;
  });
}
template <class Value>
static ZorStatus derivedFloat(const ZorMomentState* pState, int mOrd, int nOrd, int nChannel, Zor64f* pValue,
                              Value value)
{
  return derived(pState, pValue, tag64f, mOrd, nOrd, nChannel, value, [=](double v) { *pValue = v; });
}
template <class Value>
static ZorStatus derivedInteger(const ZorMomentState* pState, int mOrd, int nOrd, int nChannel, Zor64s* pValue,
                                int scaleFactor, Value value)
{
  return derived(pState, pValue, tag64s, mOrd, nOrd, nChannel, value,
                 [=](double v) { *pValue = scaledInteger(v, scaleFactor); });
}

static auto centralOf(int mOrd, int nOrd)
{
  return [=](const RawMoments& raw) { return centralMoment(raw, mOrd, nOrd); };
}
static auto normalisedCentralOf(int mOrd, int nOrd)
{
  return [=](const RawMoments& raw) { return centralMoment(raw, mOrd, nOrd) * raw.normaliser(mOrd, nOrd); };
}
static auto normalisedSpatialOf(int mOrd, int nOrd, ZorImgPoint offset)
{
  return [=](const RawMoments& raw) {
    return spatialMoment<double>(raw.m, mOrd, nOrd, offset.x, offset.y) * raw.normaliser(mOrd, nOrd);
  };
}

struct SevenMoments {
  double hu[7];
  explicit SevenMoments(const RawMoments& raw) { huMoments(raw, hu); }
};
static SevenMoments huOf(const RawMoments& raw) { return SevenMoments(raw); }

// Exact where it fits 64 bits, an estimate where it does not.
static Zor64s exactSpatialMoment(const Zor64s* m, int mOrd, int nOrd, ZorImgPoint offset, int scaleFactor)
{
  const auto wide = [](int by) { return static_cast<std::uint64_t>(static_cast<Zor64s>(by)); };
  double magnitude = 0;
  const double estimate = spatialMoment<double>(m, mOrd, nOrd, offset.x, offset.y, &magnitude);
  if (std::fabs(estimate) + std::ldexp(magnitude, -45) >= 9223372036854775808.0)
    return scaledInteger(estimate, scaleFactor);
  // it fits, so that sums may wrap on the way
  const auto exact = spatialMoment<std::uint64_t>(m, mOrd, nOrd, wide(offset.x), wide(offset.y));
  return scaledInteger(static_cast<Zor64s>(exact), scaleFactor);
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriMomentInitAlloc_64f(ZorMomentState** ppState, ZorHint hint) { return newState(ppState, tag64f, hint); }
ZorStatus zoriMomentInitAlloc_64s(ZorMomentState** ppState, ZorHint hint) { return newState(ppState, tag64s, hint); }
ZorStatus zoriMomentFree_64f(ZorMomentState* pState) { return releaseRecord(pState, tag64f); }
ZorStatus zoriMomentFree_64s(ZorMomentState* pState) { return releaseRecord(pState, tag64s); }
ZorStatus zoriMomentInit_64s(ZorMomentState* pState, ZorHint hint)
{
  return pState ? initState(pState, tag64s, hint) : ZorErrNullPtr;
}

ZorStatus zoriMomentGetStateSize_64s(ZorHint, int* pSize)
{
  if (!pSize) return ZorErrNullPtr;
  *pSize = sizeof(ZorMomentState);
  return ZorOk;
}

ZorStatus zoriGetSpatialMoment_64f(const ZorMomentState* pState, int mOrd, int nOrd, int nChannel,
                                   ZorImgPoint roiOffset, Zor64f* pValue)
{
  if (auto s = queryChecks(pState, pValue, tag64f, mOrd, nOrd, nChannel); s != ZorOk) return s;
  *pValue = underRounding(Rounding::Nearest, [&] {
    return spatialMoment<double>(pState->f[nChannel], mOrd, nOrd, roiOffset.x, roiOffset.y);
  });
  return ZorOk;
}

ZorStatus zoriGetSpatialMoment_64s(const ZorMomentState* pState, int mOrd, int nOrd, int nChannel,
                                   ZorImgPoint roiOffset, Zor64s* pValue, int scaleFactor)
{
  if (auto s = queryChecks(pState, pValue, tag64s, mOrd, nOrd, nChannel); s != ZorOk) return s;
  *pValue = underRounding(Rounding::Nearest,
                          [&] { return exactSpatialMoment(pState->s[nChannel], mOrd, nOrd, roiOffset, scaleFactor); });
  return ZorOk;
}

ZorStatus zoriGetCentralMoment_64f(const ZorMomentState* pState, int mOrd, int nOrd, int nChannel, Zor64f* pValue)
{
  return derivedFloat(pState, mOrd, nOrd, nChannel, pValue, centralOf(mOrd, nOrd));
}
ZorStatus zoriGetCentralMoment_64s(const ZorMomentState* pState, int mOrd, int nOrd, int nChannel, Zor64s* pValue,
                                   int scaleFactor)
{
  return derivedInteger(pState, mOrd, nOrd, nChannel, pValue, scaleFactor, centralOf(mOrd, nOrd));
}

ZorStatus zoriGetNormalizedCentralMoment_64f(const ZorMomentState* pState, int mOrd, int nOrd, int nChannel,
                                             Zor64f* pValue)
{
  return derivedFloat(pState, mOrd, nOrd, nChannel, pValue, normalisedCentralOf(mOrd, nOrd));
}
ZorStatus zoriGetNormalizedCentralMoment_64s(const ZorMomentState* pState, int mOrd, int nOrd, int nChannel,
                                             Zor64s* pValue, int scaleFactor)
{
  return derivedInteger(pState, mOrd, nOrd, nChannel, pValue, scaleFactor, normalisedCentralOf(mOrd, nOrd));
}

ZorStatus zoriGetNormalizedSpatialMoment_64f(const ZorMomentState* pState, int mOrd, int nOrd, int nChannel,
                                             ZorImgPoint roiOffset, Zor64f* pValue)
{
  return derivedFloat(pState, mOrd, nOrd, nChannel, pValue, normalisedSpatialOf(mOrd, nOrd, roiOffset));
}
ZorStatus zoriGetNormalizedSpatialMoment_64s(const ZorMomentState* pState, int mOrd, int nOrd, int nChannel,
                                             ZorImgPoint roiOffset, Zor64s* pValue, int scaleFactor)
{
  return derivedInteger(pState, mOrd, nOrd, nChannel, pValue, scaleFactor, normalisedSpatialOf(mOrd, nOrd, roiOffset));
}

ZorStatus zoriGetHuMoments_64f(const ZorMomentState* pState, int nChannel, Zor64f pHu[7])
{
  return derived(pState, pHu, tag64f, 0, 0, nChannel, huOf,
                 [=](const SevenMoments& m) { std::memcpy(pHu, m.hu, sizeof m.hu); });
}

ZorStatus zoriGetHuMoments_64s(const ZorMomentState* pState, int nChannel, Zor64s pHu[7], int scaleFactor)
{
  return derived(pState, pHu, tag64s, 0, 0, nChannel, huOf, [=](const SevenMoments& m) {
    for (int i = 0; i < 7; ++i) pHu[i] = scaledInteger(m.hu[i], scaleFactor);
  });
}

// clang-format off
#define STAMP(form, integer, type, layout)                                                                             \
  ZorStatus zoriMoments##form##_##type##_##layout##R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize, ZorMomentState* pState)\
  { return momentsRegion<Zor##type, layout, integer>(pSrc, srcStep, roiSize, pState); }
#define STAMPS(form, integer, type) STAMP(form, integer, type, C1) STAMP(form, integer, type, C3) STAMP(form, integer, type, AC4)
STAMPS(64f, false, 8u) STAMPS(64f, false, 16u) STAMPS(64f, false, 32f) STAMPS(64s, true, 8u) STAMPS(64s, true, 16u)
#undef STAMPS
#undef STAMP
