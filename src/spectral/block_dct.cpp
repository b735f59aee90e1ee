// zoriDCT8x8{Fwd,Inv}_16s..., level-shifted, sparse and reduced forms: the cosine transform of one 8 x 8 block in
// 16-bit fixed point.
//
// Columns are worked by the odd-even factorisation with tangents as multipliers, which keeps everything in 16 bits;
// what its outputs lack in scale differs from row to row (weights) and goes into the matrices of the row pass, whose
// sums have 32 bits and wrap. Sums of 16 bits saturate. The lowest bits set in the forward column pass and the biases
// of the inverse row pass make up for the products that are rounded downward.
#include "frame/checks.h"
#include "frame/layout.h"
#include "rowkernels/simd.h"
#include "zori/spectral.h"

namespace zori {
namespace {

using Words = Vec<std::int16_t>;
using Sums = Vec<std::int32_t>;

// ---- The matrices of the row passes ----

// Weights of the rows: rows of one weight share a matrix.
enum Weight { W16384, W22725, W21407, W19266, weights };
constexpr Weight weightOfRow[8] = {W16384, W22725, W21407, W19266, W16384, W19266, W21407, W22725};

// weight * sqrt(2) * cos(n * pi / 16) at [n]; at [0] the weight itself, for the constant term.
constexpr int scaledCosine[weights][8] = {
  {16384, 22725, 21407, 19266, 16384, 12873, 8867, 4520},
  {22725, 31521, 29692, 26722, 22725, 17855, 12299, 6270},
  {21407, 29692, 27969, 25172, 21407, 16819, 11585, 5906},
  {19266, 26722, 25172, 22654, 19266, 15137, 10426, 5315},
};

// Basis function u at sample k, 0 <= k < 8.
constexpr int basis(Weight w, int u, int k)
{
  if (u == 0) return scaledCosine[w][0];
  const int angle = (2 * k + 1) * u % 32, folded = angle > 16 ? 32 - angle : angle;
  return folded < 8 ? scaledCosine[w][folded] : -scaledCosine[w][16 - folded];
}

// Mean of basis function u over group g of four samples (2 groups); the even ones but the first vanish.
constexpr int meanOfFour[weights][4] = {
  {14846, -5213, 3483, -2953}, {20592, -7231, 4832, -4096}, {}, {17457, -6130, 4096, -3472}};
constexpr int meanInTwo(Weight w, int u, int g)
{
  if (u % 2 == 0) return u == 0 ? scaledCosine[w][0] : 0;
  return g == 0 ? meanOfFour[w][u / 2] : -meanOfFour[w][u / 2];
}

// Mean of basis function u over group g of two samples (4 groups). Halves go toward zero in group 0 and away from it in
// group 1, so that the two keep their sum.
constexpr int meanInFour(Weight w, int u, int g)
{
  if (g >= 2) return u % 2 ? -meanInFour(w, u, 3 - g) : meanInFour(w, u, 3 - g);
  const int sum = basis(w, u, 2 * g) + basis(w, u, 2 * g + 1);
  return g == 0 ? sum / 2 : (sum + (sum > 0 ? 1 : sum < 0 ? -1 : 0)) / 2;
}

// A matrix as vectors of pairs for mulAddPairs: four of them give four sums of eight products.
struct alignas(16) PairTable {
  std::int16_t values[4][8];
  Words operator[](int i) const { return loadAligned<std::int16_t>(values[i]); }
};

// Forward, for pairs of sums and differences (s0 s1 d0 d1 s2 s3 d2 d3) and the same with its halves exchanged:
// coefficients 0 to 3 by vectors 0 and 1, coefficients 4 to 7 by vectors 2 and 3.
constexpr PairTable forwardTable(Weight w)
{
  PairTable t{};
  for (int u = 0; u < 8; ++u)
    for (int k = 0; k < 4; ++k) {
      const bool isExchanged = u % 4 / 2 != k / 2;
      t.values[u / 4 * 2 + isExchanged][u % 4 * 2 + k % 2] = static_cast<std::int16_t>(basis(w, u, k));
    }
  return t;
}

// Inverse, for broadcast pairs of coefficients (0 2), (1 3), (4 6), (5 7): four samples, or means, from each.
enum class Samples { All, MeansInFour, MeansInTwo };
template <Samples S> constexpr PairTable inverseTable(Weight w)
{
  PairTable t{};
  for (int u = 0; u < 8; ++u)
    for (int k = 0; k < 4; ++k) {
      const int value = S == Samples::All           ? basis(w, u, k)
                        : S == Samples::MeansInFour ? meanInFour(w, u, k)
                        : k < 2                     ? meanInTwo(w, u, k)
                                                    : 0;
      t.values[u / 4 * 2 + u % 2][2 * k + u % 4 / 2] = static_cast<std::int16_t>(value);
    }
  return t;
}

struct ForwardTables {
  PairTable of[weights] = {forwardTable(W16384), forwardTable(W22725), forwardTable(W21407), forwardTable(W19266)};
};
template <Samples S> struct InverseTables {
  PairTable of[weights] = {inverseTable<S>(W16384), inverseTable<S>(W22725), inverseTable<S>(W21407),
                           inverseTable<S>(W19266)};
};
constexpr ForwardTables forwardTables;
template <Samples S> constexpr InverseTables<S> inverseTables;

// ---- Products by tangents and cosines ----

constexpr std::int16_t tan1 = 13036, tan2 = 27146, tan3Less1 = -21746, halfCos4 = 23170, cos4Less1 = -19195;

inline Words timesTan1(Words x) { return mulHigh(splat(tan1), x); }
inline Words timesTan2(Words x) { return mulHigh(splat(tan2), x); }
inline Words timesTan3(Words x) { return addSat(mulHigh(splat(tan3Less1), x), x); }
inline Words timesCos4(Words x) { return addSat(mulHigh(splat(cos4Less1), x), x); }
inline Words odd(Words x) { return x | splat<std::int16_t>(1); }

// ---- Forward ----

struct Block {
  Words row[8];
};

inline void forwardColumns(Block& b)
{
  Words* const x = b.row;
  const Words p16 = addSat(x[1], x[6]), p25 = addSat(x[2], x[5]), p07 = addSat(x[0], x[7]), p34 = addSat(x[3], x[4]);
  const Words e = shiftLeft<4>(subSat(x[1], x[6])), f = shiftLeft<4>(subSat(x[2], x[5]));
  const Words g = shiftLeft<3>(subSat(x[3], x[4])), h = shiftLeft<3>(subSat(x[0], x[7]));

  const Words a = shiftLeft<3>(p16), c = shiftLeft<3>(p25);
  const Words u = shiftLeft<3>(addSat(p07, p34)), v = shiftLeft<3>(subSat(p07, p34));
  const Words p = addSat(a, c), q = subSat(a, c);
  x[0] = addSat(u, p);
  x[4] = subSat(u, p);
  x[2] = odd(addSat(timesTan2(q), v));
  x[6] = odd(subSat(timesTan2(v), q));

  const Words m = odd(mulHigh(splat(halfCos4), addSat(e, f))), n = mulHigh(splat(halfCos4), subSat(e, f));
  const Words j = addSat(g, n), k = subSat(g, n), r = subSat(h, m), s = addSat(h, m);
  x[1] = odd(addSat(timesTan1(j), s));
  x[7] = subSat(timesTan1(s), j);
  x[3] = subSat(r, timesTan3(k));
  x[5] = addSat(timesTan3(r), k);
}

template <class T> inline Words pairOf64(T a, T b, bool high)
{
  const auto x = as<std::uint64_t>(a), y = as<std::uint64_t>(b);
  return as<std::int16_t>(high ? interleaveHigh(x, y) : interleaveLow(x, y));
}

// The words of the upper half in reverse.
inline Words upperReversed(Words x) { return shuffleWordsHigh<0, 1, 2, 3>(x); }

// Coefficients of one row from its sums and differences (s0 s1 d0 d1 s2 s3 d2 d3).
inline Words forwardRow(Sums pairs, const PairTable& table)
{
  const Sums half = splat(0x80000);
  const Words x = as<std::int16_t>(pairs), exchanged = as<std::int16_t>(shuffle<1, 0, 3, 2>(pairs));
  const Sums low = mulAddPairs(x, table[0]) + mulAddPairs(exchanged, table[1]) + half;
  const Sums high = mulAddPairs(x, table[2]) + mulAddPairs(exchanged, table[3]) + half;
  return narrowSat<std::int16_t>(shiftRight<20>(low), shiftRight<20>(high));
}

// Two rows of one weight.
inline void forwardRows(Words& first, Words& second, Weight weight)
{
  const Words x = upperReversed(first), y = upperReversed(second);
  const Words low = pairOf64(x, y, false), high = pairOf64(x, y, true);
  const Sums s = as<std::int32_t>(addSat(low, high)), d = as<std::int32_t>(subSat(low, high));
  first = forwardRow(interleaveLow(s, d), forwardTables.of[weight]);
  second = forwardRow(interleaveHigh(s, d), forwardTables.of[weight]);
}

inline void forwardRows(Block& b)
{
  forwardRows(b.row[0], b.row[4], W16384);
  forwardRows(b.row[2], b.row[6], W21407);
  forwardRows(b.row[1], b.row[7], W22725);
  forwardRows(b.row[3], b.row[5], W19266);
}

// ---- Inverse ----

constexpr int bias[8] = {65536, 2901, 1704, 2260, 1024, 512, 455, 373};

// Coefficients beyond the first `Used` count as zero.
template <int Used> inline Words inverseRow(Words x, const PairTable& table, int bias)
{
  if constexpr (Used == 2) x = as<std::int16_t>(as<std::uint64_t>(x) & splat<std::uint64_t>(0xffffffffu));
  const Sums pairs = as<std::int32_t>(shuffleWords<3, 1, 2, 0>(x)); // (0 2) (1 3) (4 6) (5 7)
  Sums even = mulAddPairs(as<std::int16_t>(shuffle<0, 0, 0, 0>(pairs)), table[0]) + splat(bias);
  Sums odd = mulAddPairs(as<std::int16_t>(shuffle<1, 1, 1, 1>(pairs)), table[1]);
  if constexpr (Used == 8) {
    even = even + mulAddPairs(as<std::int16_t>(shuffle<2, 2, 2, 2>(pairs)), table[2]);
    odd = odd + mulAddPairs(as<std::int16_t>(shuffle<3, 3, 3, 3>(pairs)), table[3]);
  }
  const Sums left = shiftRight<11>(even + odd), right = shiftRight<11>(even - odd);
  return narrowSat<std::int16_t>(left, shuffle<0, 1, 2, 3>(right));
}

// Rows that hold coefficients; the others stay zero.
template <int Used> inline void inverseRows(const Zor16s* pSrc, Block& b)
{
  for (int r = 0; r < 8; ++r)
    b.row[r] = r < Used ? inverseRow<Used>(load<std::int16_t>(pSrc + 8 * r),
                                           inverseTables<Samples::All>.of[weightOfRow[r]], bias[r])
                        : zero<std::int16_t>();
}

// The parts of which the samples of a column are sums and differences.
struct OddParts {
  Words y0, w1, w2, y3;
};
inline OddParts oddParts(const Block& b)
{
  const Words* const x = b.row;
  const Words t35 = addSat(timesTan3(x[5]), x[3]), t53 = subSat(x[5], timesTan3(x[3]));
  const Words t17 = addSat(timesTan1(x[7]), x[1]), t71 = subSat(timesTan1(x[1]), x[7]);
  const Words u = subSat(t17, t35), v = subSat(t71, t53);
  return {addSat(t17, t35), timesCos4(addSat(u, v)), timesCos4(subSat(u, v)), addSat(t71, t53)};
}

inline void inverseColumns(Block& b)
{
  Words* const x = b.row;
  const OddParts odd = oddParts(b);
  const Words t26 = addSat(timesTan2(x[6]), x[2]), t62 = subSat(timesTan2(x[2]), x[6]);
  const Words sum = addSat(x[0], x[4]), difference = subSat(x[0], x[4]);
  const Words even[4] = {addSat(sum, t26), addSat(difference, t62), subSat(difference, t62), subSat(sum, t26)};
  const Words odds[4] = {odd.y0, odd.w1, odd.w2, odd.y3};
  for (int k = 0; k < 4; ++k) {
    x[k] = shiftRight<6>(addSat(even[k], odds[k]));
    x[7 - k] = shiftRight<6>(subSat(even[k], odds[k]));
  }
}

template <int Used> inline Block inverse(const Zor16s* pSrc)
{
  Block b;
  inverseRows<Used>(pSrc, b);
  inverseColumns(b);
  return b;
}

// ---- Inverse to means ----
//
// The row pass gives half of the scale of the full inverse. In the means of a column the even parts that vanish drop
// out; the sums of the others have 32 bits.

constexpr int meanBias[8] = {67072, 5802, 4520, 3408, 0, 910, 1024, 746};

template <Samples S> inline void meanRow(const Zor16s* pSrc, int r, Block& b)
{
  const PairTable& table = inverseTables<S>.of[weightOfRow[r]];
  const Sums pairs = as<std::int32_t>(shuffleWords<3, 1, 2, 0>(load<std::int16_t>(pSrc + 8 * r)));
  const Sums sum = splat(meanBias[r]) + mulAddPairs(as<std::int16_t>(shuffle<0, 0, 0, 0>(pairs)), table[0]) +
                   mulAddPairs(as<std::int16_t>(shuffle<1, 1, 1, 1>(pairs)), table[1]) +
                   mulAddPairs(as<std::int16_t>(shuffle<2, 2, 2, 2>(pairs)), table[2]) +
                   mulAddPairs(as<std::int16_t>(shuffle<3, 3, 3, 3>(pairs)), table[3]);
  b.row[r] = narrowSat<std::int16_t>(shiftRight<12>(sum), zero<std::int32_t>());
}

// The sums a + b of the first four words.
inline Sums wideSum(Words a, Words b) { return mulAddPairs(interleaveLow(a, b), splat<std::int16_t>(1)); }

template <int Shift> inline void storeMeans(Zor16s* p, Sums means, int count)
{
  const Words x = narrowSat<std::int16_t>(shiftRight<Shift>(means), zero<std::int32_t>());
  if (count == 4) storeLow8(p, x);
  else storeLow4(p, x);
}

inline void inverseToFour(const Zor16s* pSrc, Zor16s* pDst)
{
  Block b;
  for (int r = 0; r < 8; ++r)
    if (r != 4) meanRow<Samples::MeansInFour>(pSrc, r, b);
  const OddParts odd = oddParts(b);
  const Words* const x = b.row;
  const Words t26 = addSat(timesTan2(x[6]), x[2]), t62 = subSat(timesTan2(x[2]), x[6]);
  const Sums constant = wideSum(x[0], x[0]), even = wideSum(t26, t62);
  const Sums outer = wideSum(odd.y0, odd.w1), inner = wideSum(odd.w2, odd.y3); // twice the means
  storeMeans<6>(pDst, constant + even + outer, 4);
  storeMeans<6>(pDst + 4, constant - even + inner, 4);
  storeMeans<6>(pDst + 8, constant - even - inner, 4);
  storeMeans<6>(pDst + 12, constant + even - outer, 4);
}

inline void inverseToTwo(const Zor16s* pSrc, Zor16s* pDst)
{
  Block b;
  for (int r = 0; r < 8; r += r ? 2 : 1) meanRow<Samples::MeansInTwo>(pSrc, r, b);
  const OddParts odd = oddParts(b);
  const Sums twice = wideSum(b.row[0], b.row[0]), constant = twice + twice;
  const Sums sum = wideSum(odd.y0, odd.w1) + wideSum(odd.w2, odd.y3); // four times the means
  storeMeans<7>(pDst, constant + sum, 2);
  storeMeans<7>(pDst + 2, constant - sum, 2);
}

// ---- Blocks in images ----

inline Words loadRow(const Zor16s* p) { return load<std::int16_t>(p); }
inline Words loadRow(const Zor8u* p) { return as<std::int16_t>(widenLow(loadLow8<std::uint8_t>(p))); }
inline void storeRow(Zor16s* p, Words x) { store(p, x); }
inline void storeRow(Zor8u* p, Words x) { storeLow8(p, narrowSat<std::uint8_t>(x, x)); }

template <class S> ZorStatus forwardBlock(const S* pSrc, int srcStep, Zor16s* pDst, Zor16s addVal = 0)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), positive(srcStep)); s != ZorOk) return s;
  Block b;
  for (int y = 0; y < 8; ++y) b.row[y] = loadRow(rowAt(pSrc, srcStep, y)) + splat(addVal);
  forwardColumns(b);
  forwardRows(b);
  for (int y = 0; y < 8; ++y) store(pDst + 8 * y, b.row[y]);
  return ZorOk;
}

struct AsItIs {
  Words operator()(Words x) const { return x; }
};

template <int Used = 8, class D, class Finish = AsItIs>
ZorStatus inverseBlock(const Zor16s* pSrc, D* pDst, int dstStep, Finish finish = {})
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), positive(dstStep)); s != ZorOk) return s;
  const Block b = inverse<Used>(pSrc);
  for (int y = 0; y < 8; ++y) storeRow(rowAt(pDst, dstStep, y), finish(b.row[y]));
  return ZorOk;
}

// Shifted with wrap-around, saturated to a byte, then clamped; clipMax wins over a larger clipMin.
struct ShiftAndClip {
  Words addVal;
  Vec<std::uint8_t> least, most;

  Words operator()(Words x) const
  {
    x = x + addVal;
    return as<std::int16_t>(widenLow(min(max(narrowSat<std::uint8_t>(x, x), least), most)));
  }
};

constexpr int blockStep = 8 * sizeof(Zor16s);

ZorStatus reduceToFour(const Zor16s* pSrc, Zor16s* pDst)
{
  if (auto s = nonNull(pSrc, pDst); s != ZorOk) return s;
  inverseToFour(pSrc, pDst);
  return ZorOk;
}

ZorStatus reduceToTwo(const Zor16s* pSrc, Zor16s* pDst)
{
  if (auto s = nonNull(pSrc, pDst); s != ZorOk) return s;
  inverseToTwo(pSrc, pDst);
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriDCT8x8Fwd_16s_C1R(const Zor16s* pSrc, int srcStep, Zor16s* pDst)
{
  return forwardBlock(pSrc, srcStep, pDst);
}

ZorStatus zoriDCT8x8Fwd_8u16s_C1R(const Zor8u* pSrc, int srcStep, Zor16s* pDst)
{
  return forwardBlock(pSrc, srcStep, pDst);
}

ZorStatus zoriDCT8x8FwdLS_8u16s_C1R(const Zor8u* pSrc, int srcStep, Zor16s* pDst, Zor16s addVal)
{
  return forwardBlock(pSrc, srcStep, pDst, addVal);
}

ZorStatus zoriDCT8x8Inv_16s_C1R(const Zor16s* pSrc, Zor16s* pDst, int dstStep)
{
  return inverseBlock(pSrc, pDst, dstStep);
}

ZorStatus zoriDCT8x8Inv_16s8u_C1R(const Zor16s* pSrc, Zor8u* pDst, int dstStep)
{
  return inverseBlock(pSrc, pDst, dstStep);
}

ZorStatus zoriDCT8x8InvLSClip_16s8u_C1R(const Zor16s* pSrc, Zor8u* pDst, int dstStep, Zor16s addVal, Zor8u clipMin,
                                        Zor8u clipMax)
{
  return inverseBlock(pSrc, pDst, dstStep, ShiftAndClip{splat(addVal), splat(clipMin), splat(clipMax)});
}

// clang-format off
#define STAMP(name, block)                                                                               \
  ZorStatus zori##name##_16s_C1(const Zor16s* pSrc, Zor16s* pDst) { return block(pSrc, pDst); }          \
  ZorStatus zori##name##_16s_C1I(Zor16s* pSrcDst) { return block(pSrcDst, pSrcDst); }
#define FORWARD(src, dst) forwardBlock(src, blockStep, dst)
#define INVERSE(src, dst) inverseBlock(src, dst, blockStep)
#define INVERSE_2X2(src, dst) inverseBlock<2>(src, dst, blockStep)
#define INVERSE_4X4(src, dst) inverseBlock<4>(src, dst, blockStep)
STAMP(DCT8x8Fwd, FORWARD)
STAMP(DCT8x8Inv, INVERSE)
STAMP(DCT8x8Inv_2x2, INVERSE_2X2)
STAMP(DCT8x8Inv_4x4, INVERSE_4X4)
STAMP(DCT8x8To2x2Inv, reduceToTwo)
STAMP(DCT8x8To4x4Inv, reduceToFour)
#undef INVERSE_4X4
#undef INVERSE_2X2
#undef INVERSE
#undef FORWARD
#undef STAMP
