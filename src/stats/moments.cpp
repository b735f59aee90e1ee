// zoriMoments64f_{8u,16u,32f}_{C1,C3,AC4}R, zoriMoments64s_{8u,16u}_{C1,C3,AC4}R and the moment state: raw moments
// m(i, j) = sum of x^i y^j I(x, y) up to the third order, and the central, normalised and Hu moments derived from them.
//
// A row is reduced to S_k = sum of x^k I for k = 0..3; then m(i, j) += y^j S_i. Integer rows are summed exactly in
// chunks about an origin of their own and moved to the region's; the 64s states stay in 64-bit integers throughout.
#include "frame/checks.h"
#include "frame/memory.h"
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

// ---- Sums of a chunk of integer samples ----

constexpr int blockPixels = 32, chunkBlocks = 16, chunkPixels = blockPixels * chunkBlocks;

// s += the sums t of u^k I as sums of x^k I, where x = u + by.
template <class A> inline void addMoved(A* s, A t0, A t1, A t2, A t3, A by)
{
  s[0] += t0;
  s[1] += t1 + by * t0;
  s[2] += t2 + by * (A(2) * t1 + by * t0);
  s[3] += t3 + by * (A(3) * t2 + by * (A(3) * t1 + by * t0));
}

// Sums of u^k I about an origin behind the chunk: u = x - end, so u runs from -length to -1.
struct ChunkSums {
  std::int64_t t[4];
};

// The total of each vector's lanes.
struct FourTotals {
  Zor32s total[4];
  FourTotals(Vec<Zor32s> a, Vec<Zor32s> b, Vec<Zor32s> c, Vec<Zor32s> d)
  {
    const auto ab = as<std::uint64_t>(interleaveLow(a, b) + interleaveHigh(a, b));
    const auto cd = as<std::uint64_t>(interleaveLow(c, d) + interleaveHigh(c, d));
    store(total, as<Zor32s>(interleaveLow(ab, cd)) + as<Zor32s>(interleaveHigh(ab, cd)));
  }
  std::int64_t operator[](int k) const { return total[k]; }
};

// Samples of at most 8 bits as words, four vectors of eight columns a block: column 8j + c is sample c of vector j.
// Sums of j^r times vector j, which still are words, leave ten products for the powers of the column up to the third.
// Over the blocks, running sums of running sums give the powers of the block's number: with w = blocks - b (from
// `blocks` down to 1) they are the sums of t, w t, w (w + 1) / 2 t and w (w + 1) (w + 2) / 6 t. No lane and no total of
// lanes passes 2^30.
template <class Words> [[gnu::noinline]] ChunkSums sumChunk(int blocks, Words words)
{
  // binomials of (8j + c)^k
  struct alignas(16) Weights {
    Zor16s one[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    Zor16s c[8] = {0, 1, 2, 3, 4, 5, 6, 7}, eight[8] = {8, 8, 8, 8, 8, 8, 8, 8};
    Zor16s c2[8] = {0, 1, 4, 9, 16, 25, 36, 49}, c16[8] = {0, 16, 32, 48, 64, 80, 96, 112};
    Zor16s c3[8] = {0, 1, 8, 27, 64, 125, 216, 343}, c2by24[8] = {0, 24, 96, 216, 384, 600, 864, 1176};
    Zor16s c192[8] = {0, 192, 384, 576, 768, 960, 1152, 1344};
    Zor16s square[8] = {64, 64, 64, 64, 64, 64, 64, 64}, cube[8] = {512, 512, 512, 512, 512, 512, 512, 512};
    Zor16s nine[8] = {9, 9, 9, 9, 9, 9, 9, 9}, twentySeven[8] = {27, 27, 27, 27, 27, 27, 27, 27};
  };
  static constexpr Weights weights;
  const auto times = [](Vec<Zor16s> v, const Zor16s* weight) { return mulAddPairs(v, loadAligned<Zor16s>(weight)); };
  Vec<Zor32s> a1 = zero<Zor32s>(), a2 = a1, a3 = a1, a4 = a1, b1 = a1, b2 = a1, b3 = a1, c1 = a1, c2 = a1, d1 = a1;
  for (int b = 0; b < blocks; ++b) {
    Vec<Zor16s> v[4];
    words(b, v);
    const Vec<Zor16s> above = v[2] + v[3], p0 = v[0] + v[1] + above, p1 = v[1] + above + above + v[3];
    const Vec<Zor16s> p2 = v[1] + shiftLeft<2>(v[2]) + mulLow(v[3], loadAligned<Zor16s>(weights.nine));
    const Vec<Zor16s> p3 = v[1] + shiftLeft<3>(v[2]) + mulLow(v[3], loadAligned<Zor16s>(weights.twentySeven));
    d1 += times(p0, weights.c3) + times(p1, weights.c2by24) + times(p2, weights.c192) + times(p3, weights.cube);
    c1 += times(p0, weights.c2) + times(p1, weights.c16) + times(p2, weights.square), c2 += c1;
    b1 += times(p0, weights.c) + times(p1, weights.eight), b2 += b1, b3 += b2;
    a1 += times(p0, weights.one), a2 += a1, a3 += a2, a4 += a3;
  }
  const FourTotals a(a1, a2, a3, a4), b(b1, b2, b3, zero<Zor32s>()), c(c1, c2, d1, zero<Zor32s>());
  const std::int64_t A1 = a[1], A2 = 2 * a[2] - A1, A3 = 6 * a[3] - 6 * a[2] + A1;
  const std::int64_t B1 = b[1], B2 = 2 * b[2] - B1, C1_ = c[1];
  // u = column in the block - 32 w
  return {{a[0], b[0] - 32 * A1, c[0] - 64 * B1 + 1024 * A2, c[2] - 96 * C1_ + 3072 * B2 - 32768 * A3}};
}

inline ChunkSums sumPlane(const Zor8u* p, int blocks)
{
  return sumChunk(blocks, [=](int b, Vec<Zor16s>* v) {
    for (int k = 0; k < 2; ++k) {
      const Vec<Zor8u> x = load<Zor8u>(p + b * blockPixels + 16 * k);
      v[2 * k] = as<Zor16s>(widenLow(x));
      v[2 * k + 1] = as<Zor16s>(widenHigh(x));
    }
  });
}

// Words as their low and high bytes.
inline ChunkSums sumPlane(const Zor16u* p, int blocks)
{
  const auto bytes = [=](bool upper) {
    return sumChunk(blocks, [=](int b, Vec<Zor16s>* v) {
      for (int k = 0; k < 4; ++k) {
        const Vec<Zor16u> x = load<Zor16u>(p + b * blockPixels + 8 * k);
        v[k] = as<Zor16s>(upper ? shiftRight<8>(x) : x & splat<Zor16u>(255));
      }
    });
  };
  const ChunkSums low = bytes(false), high = bytes(true);
  ChunkSums sums;
  for (int k = 0; k < 4; ++k) sums.t[k] = low.t[k] + 256 * high.t[k];
  return sums;
}

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
        else if (i < pixels)
          v = loadPixelVectors<L>(
            static_cast<const T*>(LastPixels<L, T, false>(row + i * channels<L>, pixels - i).values));
        else
          for (auto& c : v.channel) c = zero<T>();
        for (int k = 0; k < n; ++k) storeAligned(planes[k] + i, v.channel[k]);
      }
      const int end = (pixels + 15) / 16 * 16; // what doubles round to in wide rows is a matter of the origin
      for (int k = 0; k < n; ++k) {
        const ChunkSums sum = sumPlane(direct ? row : planes[k], blocks);
        std::int64_t t[4] = {};
        addMoved<std::int64_t>(t, sum.t[0], sum.t[1], sum.t[2], sum.t[3], blocks * blockPixels - end);
        sums[k].add(t, static_cast<A>(x + static_cast<long long>(end)));
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
        require(pState->tag == (Integer ? tag64s : tag64f), ZorErrContext), positive(srcStep), nonEmpty(roiSize),
        require(srcStep >= static_cast<long long>(roiSize.width) * channels<L> * static_cast<int>(sizeof(T)),
                ZorErrStepTooSmall));
      s != ZorOk)
    return s;
  A m[n][16] = {};
  for (int y = 0; y < roiSize.height; ++y) {
    RowSums<A> sums[n];
    sumRow<L>(rowAt(pSrc, srcStep, y), roiSize.width, sums);
    const A y1 = static_cast<A>(y), y2 = y1 * y1, y3 = y2 * y1, powers[4] = {A(1), y1, y2, y3};
    for (int k = 0; k < n; ++k)
      for (int i = 0; i < 4; ++i)
        for (int j = 0; i + j < 4; ++j) m[k][4 * i + j] += powers[j] * sums[k].s[i];
  }
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
  return firstFailure(require(pState->tag == tag, ZorErrContext),
                      require(mOrd >= 0 && nOrd >= 0 && mOrd <= 3 && nOrd <= 3 && mOrd + nOrd <= 3, ZorErrSize),
                      require(nChannel >= 0 && nChannel < pState->channels, ZorErrMomentChannel));
}

// A channel's moments in double.
struct Raw {
  double m[16];
  Raw(const ZorMomentState& state, int channel)
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

static double centralMoment(const Raw& raw, int mOrd, int nOrd)
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

static void huMoments(const Raw& raw, double* hu)
{
  const double m00 = raw.total(), second = 1.0 / (m00 * m00), third = 1.0 / (std::sqrt(m00) * m00 * m00);
  const auto eta = [&](int i, int j) { return centralMoment(raw, i, j) * (i + j == 2 ? second : third); };
  const double eta20 = eta(2, 0), eta02 = eta(0, 2), eta11 = eta(1, 1);
  const double eta30 = eta(3, 0), eta21 = eta(2, 1), eta12 = eta(1, 2), eta03 = eta(0, 3);
  const double b = eta03 + eta21, c = eta12 + eta30, d = eta03 - 3 * eta21, e = 3 * eta12 - eta30;
  const double f = eta21 + eta30; // a deliberate deviation in the fifth moment: not eta03 + eta21
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
  auto* state = reinterpret_cast<ZorMomentState*>(zorsMalloc_8u(sizeof(ZorMomentState)));
  if (!state) return ZorErrAlloc;
  *ppState = state;
  return initState(state, tag, hint);
}

static ZorStatus freeState(ZorMomentState* pState, Zor32u tag)
{
  if (!pState) return ZorErrNullPtr;
  if (pState->tag != tag) return ZorErrContext;
  pState->tag = 0;
  zorsFree(pState);
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriMomentInitAlloc_64f(ZorMomentState** ppState, ZorHint hint) { return newState(ppState, tag64f, hint); }
ZorStatus zoriMomentInitAlloc_64s(ZorMomentState** ppState, ZorHint hint) { return newState(ppState, tag64s, hint); }
ZorStatus zoriMomentFree_64f(ZorMomentState* pState) { return freeState(pState, tag64f); }
ZorStatus zoriMomentFree_64s(ZorMomentState* pState) { return freeState(pState, tag64s); }
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

// clang-format off
#define STAMP(form, integer, type, layout)                                                                             \
  ZorStatus zoriMoments##form##_##type##_##layout##R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize, ZorMomentState* pState)\
  { return momentsRegion<Zor##type, layout, integer>(pSrc, srcStep, roiSize, pState); }
#define STAMPS(form, integer, type) STAMP(form, integer, type, C1) STAMP(form, integer, type, C3) STAMP(form, integer, type, AC4)
STAMPS(64f, false, 8u) STAMPS(64f, false, 16u) STAMPS(64f, false, 32f) STAMPS(64s, true, 8u) STAMPS(64s, true, 16u)
#undef STAMPS
#undef STAMP

ZorStatus zoriGetSpatialMoment_64f(const ZorMomentState* pState, int mOrd, int nOrd, int nChannel, ZorImgPoint roiOffset, Zor64f* pValue)
{
  if (auto s = queryChecks(pState, pValue, tag64f, mOrd, nOrd, nChannel); s != ZorOk) return s;
  *pValue = spatialMoment<double>(pState->f[nChannel], mOrd, nOrd, roiOffset.x, roiOffset.y);
  return ZorOk;
}

ZorStatus zoriGetSpatialMoment_64s(const ZorMomentState* pState, int mOrd, int nOrd, int nChannel, ZorImgPoint roiOffset,
                                   Zor64s* pValue, int scaleFactor)
{
  if (auto s = queryChecks(pState, pValue, tag64s, mOrd, nOrd, nChannel); s != ZorOk) return s;
  const Zor64s* m = pState->s[nChannel];
  const auto wide = [](int offset) { return static_cast<std::uint64_t>(static_cast<Zor64s>(offset)); };
  double magnitude = 0;
  const double estimate = spatialMoment<double>(m, mOrd, nOrd, roiOffset.x, roiOffset.y, &magnitude);
  if (std::fabs(estimate) + std::ldexp(magnitude, -45) < 9223372036854775808.0) { // fits, so that sums may wrap on the way
    const auto exact = spatialMoment<std::uint64_t>(m, mOrd, nOrd, wide(roiOffset.x), wide(roiOffset.y));
    *pValue = scaledInteger(static_cast<Zor64s>(exact), scaleFactor);
  } else {
    *pValue = scaledInteger(estimate, scaleFactor);
  }
  return ZorOk;
}

// A query of one value: the checks, the test of the normalising moment, the value in double.
#define STAMP(name, offset, value)                                                                                     \
  ZorStatus zoriGet##name##_64f(const ZorMomentState* pState, int mOrd, int nOrd, int nChannel, UNPACK offset Zor64f* pValue)\
  {                                                                                                                    \
    if (auto s = queryChecks(pState, pValue, tag64f, mOrd, nOrd, nChannel); s != ZorOk) return s;                      \
    const Raw raw(*pState, nChannel);                                                                                  \
    if (raw.vanishes()) return ZorErrMomentTooSmall;                                                                   \
    *pValue = value;                                                                                                   \
    return ZorOk;                                                                                                      \
  }                                                                                                                    \
  ZorStatus zoriGet##name##_64s(const ZorMomentState* pState, int mOrd, int nOrd, int nChannel, UNPACK offset Zor64s* pValue, int scaleFactor)\
  {                                                                                                                    \
    if (auto s = queryChecks(pState, pValue, tag64s, mOrd, nOrd, nChannel); s != ZorOk) return s;                      \
    const Raw raw(*pState, nChannel);                                                                                  \
    if (raw.vanishes()) return ZorErrMomentTooSmall;                                                                   \
    *pValue = scaledInteger(value, scaleFactor);                                                                       \
    return ZorOk;                                                                                                      \
  }
#define UNPACK(...) __VA_ARGS__
STAMP(CentralMoment, (), centralMoment(raw, mOrd, nOrd))
STAMP(NormalizedCentralMoment, (), centralMoment(raw, mOrd, nOrd) * raw.normaliser(mOrd, nOrd))
STAMP(NormalizedSpatialMoment, (ZorImgPoint roiOffset, ),
      spatialMoment<double>(raw.m, mOrd, nOrd, roiOffset.x, roiOffset.y) * raw.normaliser(mOrd, nOrd))
#undef UNPACK
#undef STAMP
// clang-format on

ZorStatus zoriGetHuMoments_64f(const ZorMomentState* pState, int nChannel, Zor64f pHu[7])
{
  if (auto s = queryChecks(pState, pHu, tag64f, 0, 0, nChannel); s != ZorOk) return s;
  const Raw raw(*pState, nChannel);
  if (raw.vanishes()) return ZorErrMomentTooSmall;
  huMoments(raw, pHu);
  return ZorOk;
}

ZorStatus zoriGetHuMoments_64s(const ZorMomentState* pState, int nChannel, Zor64s pHu[7], int scaleFactor)
{
  if (auto s = queryChecks(pState, pHu, tag64s, 0, 0, nChannel); s != ZorOk) return s;
  const Raw raw(*pState, nChannel);
  if (raw.vanishes()) return ZorErrMomentTooSmall;
  double hu[7];
  huMoments(raw, hu);
  for (int i = 0; i < 7; ++i) pHu[i] = scaledInteger(hu[i], scaleFactor);
  return ZorOk;
}
