// zoriDotProdCol_32f_L2: the weighted sum of rows, pDst[j] = sum over i of pWeights[i] * ppSrc[i][j].
//
// The first row is multiplied by its weight, each further one multiplied and added, in single precision in the order of
// the rows. A null row ends the sum: the rows before it are in the result. Rows are summed piece by piece, so that the
// sums stay in the cache.
#include "frame/checks.h"
#include "rowkernels/drivers.h"
#include "zori/arith.h"

#include <algorithm>

namespace zori {

struct Weighted {
  Zor32f weight;
  F32x4 operator()(F32x4 x) const { return x * splat(weight); }
};

struct WeightedSum {
  Zor32f weight;
  F32x4 operator()(F32x4 sum, F32x4 x) const { return sum + x * splat(weight); }
};

static const Zor32f* rowOf(const Zor32f* const* ppSrc, int i) { return get<const Zor32f*>(ppSrc + i); }

} // namespace zori

using namespace zori;

ZorStatus zoriDotProdCol_32f_L2(const Zor32f* const* ppSrc, const Zor32f* pWeights, Zor32f* pDst, int count, int length)
{
  if (auto s = firstFailure(nonNull(ppSrc, pWeights, pDst), positiveSize(length, count)); s != ZorOk) return s;
  int rows = 0;
  while (rows < count && rowOf(ppSrc, rows)) ++rows;
  if (rows == 0) return ZorErrNullPtr;

  constexpr int piece = 2048;
  for (std::ptrdiff_t j = 0; j < length; j += piece) {
    const std::ptrdiff_t n = std::min<std::ptrdiff_t>(piece, length - j);
    mapRow(pDst + j, n, Weighted{get<Zor32f>(pWeights)}, rowOf(ppSrc, 0) + j);
    for (int i = 1; i < rows; ++i)
      mapRow(pDst + j, n, WeightedSum{get<Zor32f>(pWeights + i)}, static_cast<const Zor32f*>(pDst + j), rowOf(ppSrc, i) + j);
  }
  return rows == count ? ZorOk : ZorErrNullPtr;
}
