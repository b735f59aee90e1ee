// Blocks of complex columns whose pairs fill their vectors: the first level takes its values straight from the image,
// so that the buffer, which the nearest cache does not hold, is walked once less. (The last one straight to the image
// is slower: eight rows a round, all in the same few places of that cache.) Results are those of transformBlock.
#pragma once

#include "image_columns.h"

namespace zori {
namespace {

template <int R, class V>
[[gnu::noinline]] void gatherIntoLevel(const ColumnPass& pass, const PairColumns<V>& columns, Rows<const float> src,
                                       const BlockBuffer& b)
{
  constexpr int lanes = laneCount<V>;
  const std::ptrdiff_t apart = pass.height / R, far = 2 * b.lanes * apart;
  const bool inverse = pass.inverse;
  const float* turns = pass.plan.turns(pass.block);
  for (std::ptrdiff_t j = 0; j < apart; ++j, turns += 2 * (R - 1)) {
    const std::ptrdiff_t next = std::min(j + 1, apart - 1);
    const float* row[R];
    for (int k = 0; k < R; ++k) {
      row[k] = columns.fetched(src[j + k * apart]);
      fetchLines(columns, src[next + k * apart]);
    }
    Complex<V> w[R];
#pragma GCC unroll 16
    for (int k = 1; k < R; ++k) w[k] = {allLanes<V>(turns[2 * k - 2]), allLanes<V>(turns[2 * k - 1])};
    float* p = b.element(j);
    for (int v = 0; v < columns.vectors; ++v, p += lanes) {
      Complex<V> x[R];
#pragma GCC unroll 16
      for (int k = 0; k < R; ++k) {
        const float* const q = row[k] + 2 * lanes * v;
        const V y = loadAnywhere<V>(q), z = loadAnywhere<V>(q + lanes), even = evenLanes(y, z), odd = oddLanes(y, z);
        x[k] = inverse ? Complex<V>{odd, even} : Complex<V>{even, odd};
      }
      butterfly<R>(x);
#pragma GCC unroll 16
      for (int k = 0; k < R; ++k) {
        if (k) x[k] = x[k] * w[k];
        storeLanes(p + far * k, x[k].re);
        storeLanes(p + far * k + b.lanes, x[k].im);
      }
    }
  }
}

// Whether there is such a first level.
inline bool isStraight(const ColumnPass& pass, const PairColumns<Vec<float>>& columns)
{
  return columns.pairs == columns.vectors * columns.size && !pass.plan.isConvolution() &&
         pass.plan.radices().levels > 1 && pass.plan.radices().radix[0] == 8;
}

inline void transformStraight(const ColumnPass& pass, const PairColumns<Vec<float>>& columns, Rows<const float> src,
                              Rows<float> dst, float* buffer)
{
  const BlockBuffer b(pass, buffer, columns.vectors * std::ptrdiff_t{columns.size});
  gatherIntoLevel<8>(pass, columns, src, b);
  transformBehindFirst(pass.plan, pass.block, buffer, columns.vectors);
  scatterBlock(columns, dst, pass.height, pass.factor, b);
}

} // namespace
} // namespace zori
