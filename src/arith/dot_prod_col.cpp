// zoriDotProdCol_32f_L2: the weighted sum of rows, pDst[j] = sum over i of pWeights[i] * ppSrc[i][j].
//
// The first row is multiplied by its weight, each further one multiplied and added, in single precision in the order of
// the rows. A null row ends the sum: the rows before it are in the result. Rows are summed piece by piece, so that the
// sums stay in the cache.
#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "rowkernels/drivers.h"
#include "zori/arith.h"

#include <algorithm>

namespace zori {
namespace {

struct Weighted {
  Zor32f weight;
  F32x4 operator()(F32x4 x) const { return x * splat(weight); }
};

// Several rows at once, each with its weight.
template <int N> struct WeightedSum {
  Zor32f weight[N];
  template <class... X> F32x4 operator()(F32x4 sum, X... x) const
  {
    int i = 0;
    ((sum = sum + x * splat(weight[i++])), ...);
    return sum;
  }
};

const Zor32f* rowOf(const Zor32f* const* ppSrc, int i) { return get<const Zor32f*>(ppSrc + i); }

void sumRows(const Zor32f* const* ppSrc, const Zor32f* pWeights, Zor32f* pDst, int rows, int length)
{
  constexpr int piece = 2048;
  for (std::ptrdiff_t j = 0; j < length; j += piece) {
    const std::ptrdiff_t n = std::min<std::ptrdiff_t>(piece, length - j);
    Zor32f* const dst = pDst + j;
    const Zor32f* const sum = dst;
    const auto row = [=](int i) { return rowOf(ppSrc, i) + j; };
    const auto weight = [=](int i) { return get<Zor32f>(pWeights + i); };
    mapRow(dst, n, Weighted{weight(0)}, row(0));
    int i = 1;
    for (; i + 4 <= rows; i += 4)
      mapRow(dst, n, WeightedSum<4>{{weight(i), weight(i + 1), weight(i + 2), weight(i + 3)}}, sum, row(i), row(i + 1),
             row(i + 2), row(i + 3));
    for (; i < rows; ++i) mapRow(dst, n, WeightedSum<1>{{weight(i)}}, sum, row(i));
  }
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriDotProdCol_32f_L2(const Zor32f* const* ppSrc, const Zor32f* pWeights, Zor32f* pDst, int count, int length)
{
  if (auto s = firstFailure(nonNull(ppSrc, pWeights, pDst), positiveSize(length, count)); s != ZorOk) return s;
  int rows = 0;
  while (rows < count && rowOf(ppSrc, rows)) ++rows;
  if (rows == 0) return ZorErrNullPtr;

  underRounding(Rounding::Nearest, [&] { sumRows(ppSrc, pWeights, pDst, rows, length); });
  return rows == count ? ZorOk : ZorErrNullPtr;
}
