// One row through tables: dst = table[src & mask], a table a channel.
//
// No vector instruction of this level reads a table; two loads and a store a sample are the limit. A block of lookups is
// read before its results are written: the loads do not wait for stores that might overlap them, and a row may be its
// own source.
#pragma once

#include "frame/layout.h"
#include "simd.h"

namespace zori {

// How the pixels lie: elements of a pixel on either side, and where the sample that table c gives is written.
template <Layout L> struct AlikePixels {
  static constexpr int src = channels<L>, dst = channels<L>, tables = processed<L>;
  static constexpr int place(int c) { return c; }
};

// Which bits of a sample are the index.
struct WholeSample {
  template <class S> std::ptrdiff_t operator()(S x) const { return x; }
};
struct LowBits {
  std::size_t mask;
  template <class S> std::size_t operator()(S x) const { return x & mask; }
};

template <class Pixels, class Index, class S, class D>
[[gnu::noinline]] void lookUpRow(const S* src, D* dst, std::ptrdiff_t pixels, const D* const* tables, Index index)
{
  constexpr int n = Pixels::tables, block = n == 1 ? 8 : 2;
  const D* table[n];
  for (int c = 0; c < n; ++c) table[c] = tables[c];
  const auto lookUp = [&](auto count) {
    D found[count][n];
    for (int i = 0; i < count; ++i)
      for (int c = 0; c < n; ++c) found[i][c] = get<D>(table[c] + index(get<S>(src + i * Pixels::src + c)));
    for (int i = 0; i < count; ++i)
      for (int c = 0; c < n; ++c) put(dst + i * Pixels::dst + Pixels::place(c), found[i][c]);
    src += count * Pixels::src;
    dst += count * Pixels::dst;
    pixels -= count;
  };
  while (pixels >= block) lookUp(std::integral_constant<int, block>{});
  while (pixels > 0) lookUp(std::integral_constant<int, 1>{});
}

} // namespace zori
