// zoriDCT8x8{Fwd,Inv}_32f_{C1,C1I}: the cosine transform of one 8 x 8 block in single precision.
//
// Columns and rows go through scaled butterflies with five products each, and one product for every coefficient gives
// them their scale, 0.125 * f[row] * f[column]. The odd outputs of the butterflies are larger than those of the usual
// form by 1 / cos(pi / 8), which f makes up for.
#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "rowkernels/simd.h"
#include "zori/spectral.h"

#include <utility>

namespace zori {
namespace {

// Two vectors a row.
struct Block {
  F32x4 row[8][2];
};

constexpr float tanPi8 = 0.41421357f, rootHalf = 0.70710677f, root2 = 1.4142135f;

template <class V> inline void forwardButterfly(V (&x)[8])
{
  const V s07 = x[0] + x[7], s16 = x[1] + x[6], s25 = x[2] + x[5], s34 = x[3] + x[4];
  const V d07 = x[0] - x[7], d16 = x[1] - x[6], d25 = x[2] - x[5], d34 = x[3] - x[4];
  const V a = s07 + s34, b = s16 + s25, p = s07 - s34, q = s16 - s25;
  const V z = (p + q) * splat(rootHalf);
  x[0] = a + b;
  x[4] = a - b;
  x[2] = p + z;
  x[6] = p - z;

  const V lower = d34 + d25, middle = (d25 + d16) * splat(0.76536685f), upper = d16 + d07,
          own = d07 * splat(1.0823922f);
  const V ofLower = lower - upper * splat(tanPi8), ofUpper = upper + lower * splat(tanPi8);
  const V sum = own + middle, difference = own - middle;
  x[1] = sum + ofUpper;
  x[7] = sum - ofUpper;
  x[5] = difference + ofLower;
  x[3] = difference - ofLower;
}

template <class V> inline void inverseButterfly(V (&x)[8])
{
  const V a = x[0] + x[4], b = x[0] - x[4], c = x[2] + x[6], d = (x[2] - x[6]) * splat(root2) - c;
  const V even[4] = {a + c, b + d, b - d, a - c};

  const V s35 = x[5] + x[3], d53 = x[5] - x[3], s17 = x[1] + x[7], d17 = x[1] - x[7];
  const V t7 = (s17 + s35) * splat(0.5411961f), t5 = (s17 - s35) * splat(0.76536685f);
  const V t4 = d53 + d17 * splat(tanPi8), t6 = d17 - d53 * splat(tanPi8);
  const V o6 = t6 - t7, o5 = t5 - o6, o4 = t4 - o5;
  x[0] = even[0] + t7;
  x[7] = even[0] - t7;
  x[1] = even[1] + o6;
  x[6] = even[1] - o6;
  x[2] = even[2] + o5;
  x[5] = even[2] - o5;
  x[3] = even[3] + o4;
  x[4] = even[3] - o4;
}

template <class Butterfly> inline void columns(Block& b, Butterfly butterfly)
{
  for (int half = 0; half < 2; ++half) {
    F32x4 x[8];
    for (int y = 0; y < 8; ++y) x[y] = b.row[y][half];
    butterfly(x);
    for (int y = 0; y < 8; ++y) b.row[y][half] = x[y];
  }
}

inline void transposeQuarter(F32x4& a, F32x4& b, F32x4& c, F32x4& d)
{
  const F32x4 ac0 = interleaveLow(a, c), ac1 = interleaveHigh(a, c), bd0 = interleaveLow(b, d),
              bd1 = interleaveHigh(b, d);
  a = interleaveLow(ac0, bd0);
  b = interleaveHigh(ac0, bd0);
  c = interleaveLow(ac1, bd1);
  d = interleaveHigh(ac1, bd1);
}

inline void transpose(Block& b)
{
  for (int y = 0; y < 8; y += 4)
    for (int half = 0; half < 2; ++half)
      transposeQuarter(b.row[y][half], b.row[y + 1][half], b.row[y + 2][half], b.row[y + 3][half]);
  for (int y = 0; y < 4; ++y) std::swap(b.row[y][1], b.row[y + 4][0]);
}

// 0.125 * f[i] * f[j]
struct alignas(16) ScaleTable {
  float values[8][8];

  constexpr explicit ScaleTable(const double (&f)[8]) : values{}
  {
    for (int i = 0; i < 8; ++i)
      for (int j = 0; j < 8; ++j) values[i][j] = static_cast<float>(0.125 * f[i] * f[j]);
  }
  void apply(Block& b) const
  {
    for (int y = 0; y < 8; ++y)
      for (int half = 0; half < 2; ++half) b.row[y][half] = b.row[y][half] * loadAligned<float>(values[y] + 4 * half);
  }
};

// 1 / (sqrt(2) cos(u pi / 16)), the odd ones times cos(pi / 8); 1 for u = 0.
constexpr ScaleTable forwardScales({1, 0.6660800233151994, 0.7653668647301796, 0.7856949583871021, 1,
                                    1.1758756024193584, 1.847759065022573, 3.348610406128607});
// sqrt(2) cos(u pi / 16), the odd ones times 2 cos(pi / 8); 1 for u = 0.
constexpr ScaleTable inverseScales({1, 2.5629154477415064, 1.3065629648763766, 2.17273480370925, 1, 1.451774981702302,
                                    0.5411961001461971, 0.5097955791041593});

inline Block loadBlock(const Zor32f* p)
{
  Block b;
  for (int y = 0; y < 8; ++y)
    for (int half = 0; half < 2; ++half) b.row[y][half] = F32x4{load<float>(p + 8 * y + 4 * half)};
  return b;
}

inline void storeBlock(const Block& b, Zor32f* p)
{
  for (int y = 0; y < 8; ++y)
    for (int half = 0; half < 2; ++half) store(p + 8 * y + 4 * half, b.row[y][half]);
}

struct ForwardButterfly {
  void operator()(F32x4 (&x)[8]) const { forwardButterfly(x); }
};
struct InverseButterfly {
  void operator()(F32x4 (&x)[8]) const { inverseButterfly(x); }
};

template <class Butterfly> inline void columnsThenRows(Block& b)
{
  columns(b, Butterfly{});
  transpose(b);
  columns(b, Butterfly{});
  transpose(b);
}

// The scales come in front of the inverse and behind the forward transform.
template <class Butterfly> ZorStatus transform(const Zor32f* pSrc, Zor32f* pDst)
{
  constexpr bool isForward = std::is_same_v<Butterfly, ForwardButterfly>;
  if (auto s = nonNull(pSrc, pDst); s != ZorOk) return s;
  underRounding(Rounding::Nearest, [=] {
    Block b = loadBlock(pSrc);
    if (!isForward) inverseScales.apply(b);
    columnsThenRows<Butterfly>(b);
    if (isForward) forwardScales.apply(b);
    storeBlock(b, pDst);
  });
  return ZorOk;
}

ZorStatus forward(const Zor32f* pSrc, Zor32f* pDst) { return transform<ForwardButterfly>(pSrc, pDst); }
ZorStatus inverse(const Zor32f* pSrc, Zor32f* pDst) { return transform<InverseButterfly>(pSrc, pDst); }

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriDCT8x8Fwd_32f_C1(const Zor32f* pSrc, Zor32f* pDst) { return forward(pSrc, pDst); }
ZorStatus zoriDCT8x8Fwd_32f_C1I(Zor32f* pSrcDst) { return forward(pSrcDst, pSrcDst); }
ZorStatus zoriDCT8x8Inv_32f_C1(const Zor32f* pSrc, Zor32f* pDst) { return inverse(pSrc, pDst); }
ZorStatus zoriDCT8x8Inv_32f_C1I(Zor32f* pSrcDst) { return inverse(pSrcDst, pSrcDst); }
