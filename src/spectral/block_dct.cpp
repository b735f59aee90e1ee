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

// A row of a block, and neighbouring rows in one vector, a row in each 16 bytes: one, or two of them.
using Words = Vec<std::int16_t, 16>;
using Sums = Vec<std::int32_t, 16>;
using GroupWords = Vec<std::int16_t>;
using GroupSums = Vec<std::int32_t>;
constexpr int rowsOfGroup = GroupWords::size / 8, groups = 8 / rowsOfGroup;

inline Words allWords(std::int16_t x) { return splat<std::int16_t, 16>(x); }

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

// The matrices of a group's rows as vectors of pairs for mulAddPairs: four of them give four sums of eight products.
struct alignas(vectorBytes) GroupTable {
  std::int16_t values[4][GroupWords::size];
  GroupWords operator[](int i) const { return loadAligned<std::int16_t>(values[i]); }
};

// Forward, for pairs of sums and differences (s0 s1 d0 d1 s2 s3 d2 d3) and the same with its halves exchanged:
// coefficients 0 to 3 by vectors 0 and 1, coefficients 4 to 7 by vectors 2 and 3. Rows of one weight follow each other.
constexpr int forwardOrder[8] = {0, 4, 2, 6, 1, 7, 3, 5};
struct ForwardTables {
  GroupTable ofPair[4];
};
constexpr ForwardTables makeForwardTables()
{
  ForwardTables t{};
  for (int pair = 0; pair < 4; ++pair)
    for (int u = 0; u < 8; ++u)
      for (int i = 0; i < GroupWords::size / 2; ++i) {
        const int k = i % 4;
        const bool isExchanged = u % 4 / 2 != k / 2;
        t.ofPair[pair].values[u / 4 * 2 + isExchanged][i / 4 * 8 + u % 4 * 2 + k % 2] =
          static_cast<std::int16_t>(basis(weightOfRow[forwardOrder[2 * pair]], u, k));
      }
  return t;
}
constexpr ForwardTables forwardTables = makeForwardTables();

// Inverse, for broadcast pairs of coefficients (0 2), (1 3), (4 6), (5 7): four samples, or means, from each.
enum class Samples { All, MeansInFour, MeansInTwo };
struct InverseTables {
  GroupTable of[groups];
};
template <Samples S> constexpr InverseTables makeInverseTables()
{
  InverseTables t{};
  for (int r = 0; r < 8; ++r)
    for (int u = 0; u < 8; ++u)
      for (int k = 0; k < 4; ++k) {
        const Weight w = weightOfRow[r];
        const int value = S == Samples::All           ? basis(w, u, k)
                          : S == Samples::MeansInFour ? meanInFour(w, u, k)
                          : k < 2                     ? meanInTwo(w, u, k)
                                                      : 0;
        t.of[r / rowsOfGroup].values[u / 4 * 2 + u % 2][r % rowsOfGroup * 8 + 2 * k + u % 4 / 2] =
          static_cast<std::int16_t>(value);
      }
  return t;
}
template <Samples S> constexpr InverseTables inverseTables = makeInverseTables<S>();

// What is added to the sums of each row.
struct alignas(vectorBytes) Biases {
  std::int32_t values[groups][GroupSums::size];
  constexpr explicit Biases(const int (&ofRow)[8]) : values{}
  {
    for (int r = 0; r < 8; ++r)
      for (int k = 0; k < 4; ++k) values[r / rowsOfGroup][r % rowsOfGroup * 4 + k] = ofRow[r];
  }
  GroupSums operator[](int group) const { return loadAligned<std::int32_t>(values[group]); }
};

// ---- Products by tangents and cosines ----

// 2^16 times tan(pi/16), tan(pi/8), tan(3pi/16) - 1, cos(pi/4) / 2 and cos(pi/4) - 1, and a one.
struct alignas(16) Factors {
  std::int16_t tan1[8], tan2[8], tan3Less1[8], halfCos4[8], cos4Less1[8], one[8];
};
#define EIGHT(x)                                                                                                       \
  {                                                                                                                    \
    x, x, x, x, x, x, x, x                                                                                             \
  }
constexpr Factors factors = {EIGHT(13036), EIGHT(27146), EIGHT(-21746), EIGHT(23170), EIGHT(-19195), EIGHT(1)};
#undef EIGHT

// Products with them, which are read where they are used: gcc would form them anew in every call.
class Times {
  const Factors* f = forgotten(&factors);
  static Words of(const std::int16_t (&x)[8]) { return loadAligned<std::int16_t, 16>(x); }

public:
  Words tan1(Words x) const { return mulHigh(x, of(f->tan1)); }
  Words tan2(Words x) const { return mulHigh(x, of(f->tan2)); }
  Words tan3(Words x) const { return addSat(mulHigh(x, of(f->tan3Less1)), x); }
  Words halfCos4(Words x) const { return mulHigh(x, of(f->halfCos4)); }
  Words cos4(Words x) const { return addSat(mulHigh(x, of(f->cos4Less1)), x); }
  Words odd(Words x) const { return x | of(f->one); }
};

// ---- Forward ----

struct Block {
  Words row[8];

  // The rows that are a group in the forward order, and the neighbours that are one in the inverse.
  GroupWords group(int g) const { return together(row, forwardOrder + rowsOfGroup * g); }
  template <class G> void setGroup(int g, G x)
  {
    if constexpr (rowsOfGroup == 1) row[g] = x;
    else {
      row[2 * g] = lowHalf(x);
      row[2 * g + 1] = highHalf(x);
    }
  }

private:
  template <class W> static GroupWords together(const W* row, const int* at)
  {
    if constexpr (rowsOfGroup == 1) return row[at[0]];
    else return joined(row[at[0]], row[at[1]]);
  }
};

template <class G> inline void storeGroup(Zor16s* pDst, int g, G x)
{
  const int* const row = forwardOrder + rowsOfGroup * g;
  if constexpr (rowsOfGroup == 1) store(pDst + 8 * row[0], x);
  else {
    store(pDst + 8 * row[0], lowHalf(x));
    store(pDst + 8 * row[1], highHalf(x));
  }
}

inline void forwardColumns(Block& b)
{
  const Times times;
  Words* const x = b.row;
  const Words p16 = addSat(x[1], x[6]), p25 = addSat(x[2], x[5]), p07 = addSat(x[0], x[7]), p34 = addSat(x[3], x[4]);
  const Words e = shiftLeft<4>(subSat(x[1], x[6])), f = shiftLeft<4>(subSat(x[2], x[5]));
  const Words g = shiftLeft<3>(subSat(x[3], x[4])), h = shiftLeft<3>(subSat(x[0], x[7]));

  const Words a = shiftLeft<3>(p16), c = shiftLeft<3>(p25);
  const Words u = shiftLeft<3>(addSat(p07, p34)), v = shiftLeft<3>(subSat(p07, p34));
  const Words p = addSat(a, c), q = subSat(a, c);
  x[0] = addSat(u, p);
  x[4] = subSat(u, p);
  x[2] = times.odd(addSat(times.tan2(q), v));
  x[6] = times.odd(subSat(times.tan2(v), q));

  const Words m = times.odd(times.halfCos4(addSat(e, f))), n = times.halfCos4(subSat(e, f));
  const Words j = addSat(g, n), k = subSat(g, n), r = subSat(h, m), s = addSat(h, m);
  x[1] = times.odd(addSat(times.tan1(j), s));
  x[7] = subSat(times.tan1(s), j);
  x[3] = subSat(r, times.tan3(k));
  x[5] = addSat(times.tan3(r), k);
}

// Coefficients from sums and differences (s0 s1 d0 d1 s2 s3 d2 d3).
inline GroupWords forwardGroup(GroupSums pairs, const GroupTable& table)
{
  const GroupSums half = splat(0x80000);
  const GroupWords x = as<std::int16_t>(pairs), exchanged = as<std::int16_t>(shuffleLocal<1, 0, 3, 2>(pairs));
  const GroupSums low = mulAddPairs(x, table[0]) + mulAddPairs(exchanged, table[1]) + half;
  const GroupSums high = mulAddPairs(x, table[2]) + mulAddPairs(exchanged, table[3]) + half;
  return narrowSatLocal<std::int16_t>(shiftRight<20>(low), shiftRight<20>(high));
}

// Two groups of rows share the sums and differences.
inline void forwardRows(const Block& b, Zor16s* pDst)
{
#pragma GCC unroll 4
  for (int g = 0; g < groups; g += 2) {
    const auto x = as<std::uint64_t>(b.group(g)), y = as<std::uint64_t>(b.group(g + 1));
    const auto low = as<std::int16_t>(interleaveLowLocal(x, y));
    const auto high = shuffleWords<0, 1, 2, 3>(as<std::int16_t>(interleaveHighLocal(x, y))); // in reverse
    const auto s = as<std::int32_t>(addSat(low, high)), d = as<std::int32_t>(subSat(low, high));
    constexpr auto& table = forwardTables.ofPair;
    storeGroup(pDst, g, forwardGroup(interleaveLowLocal(s, d), table[g * rowsOfGroup / 2]));
    storeGroup(pDst, g + 1, forwardGroup(interleaveHighLocal(s, d), table[(g + 1) * rowsOfGroup / 2]));
  }
}

// ---- Inverse ----

constexpr Biases inverseBias({65536, 2901, 1704, 2260, 1024, 512, 455, 373});

// The pairs of coefficients (0 2), (1 3), (4 6), (5 7) of each row.
inline GroupSums coefficientPairs(GroupWords x) { return as<std::int32_t>(shuffleWords<3, 1, 2, 0>(x)); }
template <int K> inline GroupWords broadcastPair(GroupSums pairs)
{
  return as<std::int16_t>(shuffleLocal<K, K, K, K>(pairs));
}

// Samples of a group's rows. Coefficients beyond the first `Used` count as zero.
template <int Used> inline GroupWords inverseGroup(GroupWords x, int g)
{
  const GroupTable& table = inverseTables<Samples::All>.of[g];
  if constexpr (Used == 2) x = as<std::int16_t>(as<std::uint64_t>(x) & splat<std::uint64_t>(0xffffffffu));
  const GroupSums pairs = coefficientPairs(x);
  GroupSums even = mulAddPairs(broadcastPair<0>(pairs), table[0]) + inverseBias[g];
  GroupSums odd = mulAddPairs(broadcastPair<1>(pairs), table[1]);
  if constexpr (Used == 8) {
    even = even + mulAddPairs(broadcastPair<2>(pairs), table[2]);
    odd = odd + mulAddPairs(broadcastPair<3>(pairs), table[3]);
  }
  const GroupSums left = shiftRight<11>(even + odd), right = shiftRight<11>(even - odd);
  return narrowSatLocal<std::int16_t>(left, shuffleLocal<0, 1, 2, 3>(right));
}

// Rows that hold coefficients; the others stay zero.
template <int Used> inline void inverseRows(const Zor16s* pSrc, Block& b)
{
#pragma GCC unroll 8
  for (int g = 0; g < groups; ++g)
    b.setGroup(g, g * rowsOfGroup < Used ? inverseGroup<Used>(load<std::int16_t>(pSrc + g * GroupWords::size), g)
                                         : zero<std::int16_t>());
}

// The parts of which the samples of a column are sums and differences.
struct OddParts {
  Words y0, w1, w2, y3;
};
inline OddParts oddParts(const Times& times, const Block& b)
{
  const Words* const x = b.row;
  const Words t35 = addSat(times.tan3(x[5]), x[3]), t53 = subSat(x[5], times.tan3(x[3]));
  const Words t17 = addSat(times.tan1(x[7]), x[1]), t71 = subSat(times.tan1(x[1]), x[7]);
  const Words u = subSat(t17, t35), v = subSat(t71, t53);
  return {addSat(t17, t35), times.cos4(addSat(u, v)), times.cos4(subSat(u, v)), addSat(t71, t53)};
}

// put(k, samples of row k, samples of row 7 - k), for k from 0 to 3.
template <class Put> inline void inverseColumns(const Block& b, Put put)
{
  const Times times;
  const Words* const x = b.row;
  const OddParts odd = oddParts(times, b);
  const Words t26 = addSat(times.tan2(x[6]), x[2]), t62 = subSat(times.tan2(x[2]), x[6]);
  const Words sum = addSat(x[0], x[4]), difference = subSat(x[0], x[4]);
  const auto putTwo = [&](int k, Words even, Words odds) {
    put(k, shiftRight<6>(addSat(even, odds)), shiftRight<6>(subSat(even, odds)));
  };
  putTwo(0, addSat(sum, t26), odd.y0);
  putTwo(1, addSat(difference, t62), odd.w1);
  putTwo(2, subSat(difference, t62), odd.w2);
  putTwo(3, subSat(sum, t26), odd.y3);
}

// ---- Inverse to means ----
//
// The row pass gives half of the scale of the full inverse. In the means of a column the even parts that vanish drop
// out; the sums of the others have 32 bits.

constexpr Biases meanBias({67072, 5802, 4520, 3408, 0, 910, 1024, 746});

// All rows, also those of which no more use is made.
template <Samples S> inline void meanRows(const Zor16s* pSrc, Block& b)
{
#pragma GCC unroll 8
  for (int g = 0; g < groups; ++g) {
    const GroupTable& table = inverseTables<S>.of[g];
    const GroupSums pairs = coefficientPairs(load<std::int16_t>(pSrc + g * GroupWords::size));
    const GroupSums sum =
      meanBias[g] + mulAddPairs(broadcastPair<0>(pairs), table[0]) + mulAddPairs(broadcastPair<1>(pairs), table[1]) +
      mulAddPairs(broadcastPair<2>(pairs), table[2]) + mulAddPairs(broadcastPair<3>(pairs), table[3]);
    b.setGroup(g, narrowSatLocal<std::int16_t>(shiftRight<12>(sum), zero<std::int32_t>()));
  }
}

// The sums a + b of the first four words.
inline Sums wideSum(Words a, Words b) { return mulAddPairs(interleaveLow(a, b), allWords(1)); }

template <int Shift> inline void storeMeans(Zor16s* p, Sums means, int count)
{
  const Words x = narrowSat<std::int16_t>(shiftRight<Shift>(means), zero<std::int32_t, 16>());
  if (count == 4) storeLow8(p, x);
  else storeLow4(p, x);
}

inline void inverseToFour(const Zor16s* pSrc, Zor16s* pDst)
{
  Block b;
  meanRows<Samples::MeansInFour>(pSrc, b);
  const Times times;
  const OddParts odd = oddParts(times, b);
  const Words* const x = b.row;
  const Words t26 = addSat(times.tan2(x[6]), x[2]), t62 = subSat(times.tan2(x[2]), x[6]);
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
  meanRows<Samples::MeansInTwo>(pSrc, b);
  const Times times;
  const OddParts odd = oddParts(times, b);
  const Sums twice = wideSum(b.row[0], b.row[0]), constant = twice + twice;
  const Sums sum = wideSum(odd.y0, odd.w1) + wideSum(odd.w2, odd.y3); // four times the means
  storeMeans<7>(pDst, constant + sum, 2);
  storeMeans<7>(pDst + 2, constant - sum, 2);
}

// ---- Blocks in images ----

inline Words loadRow(const Zor16s* p) { return load<std::int16_t, 16>(p); }
inline Words loadRow(const Zor8u* p) { return as<std::int16_t>(widenLow(loadLow8<std::uint8_t>(p))); }
template <class S> ZorStatus forwardBlock(const S* pSrc, int srcStep, Zor16s* pDst, Zor16s addVal = 0)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), positive(srcStep)); s != ZorOk) return s;
  Block b;
  for (int y = 0; y < 8; ++y) b.row[y] = loadRow(rowAt(pSrc, srcStep, y)) + allWords(addVal);
  forwardColumns(b);
  forwardRows(b, pDst);
  return ZorOk;
}

using Bytes = Vec<std::uint8_t, 16>;

// Two rows of samples as bytes.
struct Saturated {
  Bytes operator()(Words x, Words y) const { return narrowSat<std::uint8_t>(x, y); }
};

// Shifted with wrap-around, saturated to a byte, then clamped; clipMax wins over a larger clipMin.
struct ShiftAndClip {
  Words addVal;
  Bytes least, most;

  Bytes operator()(Words x, Words y) const
  {
    return min(max(narrowSat<std::uint8_t>(x + addVal, y + addVal), least), most);
  }
};

template <int Used = 8, class D, class ToBytes = Saturated>
ZorStatus inverseBlock(const Zor16s* pSrc, D* pDst, int dstStep, ToBytes toBytes = {})
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), positive(dstStep)); s != ZorOk) return s;
  Block b;
  inverseRows<Used>(pSrc, b);
  inverseColumns(b, [=](int k, Words x, Words y) {
    D *const upper = rowAt(pDst, dstStep, k), *const lower = rowAt(pDst, dstStep, 7 - k);
    if constexpr (std::is_same_v<D, Zor8u>) {
      const Bytes both = toBytes(x, y);
      storeLow8(upper, both);
      storeLow8(lower, bytesDown<8>(both));
    } else {
      store(upper, x);
      store(lower, y);
    }
  });
  return ZorOk;
}

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
  return inverseBlock(pSrc, pDst, dstStep,
                      ShiftAndClip{allWords(addVal), splat<Zor8u, 16>(clipMin), splat<Zor8u, 16>(clipMax)});
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
