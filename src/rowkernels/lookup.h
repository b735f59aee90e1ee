// One row through tables: dst = table[index of src], a table a channel.
//
// No vector instruction of this level reads a table: two loads and a store a sample are the limit, and the plain loop,
// unrolled, reaches it. A row may be its own source.
#pragma once

#include "frame/layout.h"
#include "simd.h"

namespace zori {

// How the pixels lie: elements of a pixel on either side, where the sample that table c gives is written, and what else
// is written.
template <Layout L> struct AlikePixels {
  static constexpr int src = channels<L>, dst = channels<L>, tables = processed<L>;
  static constexpr int place(int c) { return c; }
  template <class D> void finish(D*) const {}
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
[[gnu::noinline]] void lookUpRow(const S* src, D* dst, std::ptrdiff_t length, const D* const* tables, Index index,
                                 Pixels pixels)
{
  constexpr int n = Pixels::tables;
  const D* table[n];
  for (int c = 0; c < n; ++c) table[c] = tables[c];
  const auto lookUp = [&](const S* from, D* to) {
    for (int c = 0; c < n; ++c) put(to + Pixels::place(c), get<D>(table[c] + index(get<S>(from + c))));
    pixels.finish(to);
  };
  constexpr int block = n == 1 ? 8 : 2;
  for (; length >= block; length -= block)
    for (int i = 0; i < block; ++i, src += Pixels::src, dst += Pixels::dst) lookUp(src, dst);
  for (; length > 0; --length, src += Pixels::src, dst += Pixels::dst) lookUp(src, dst);
}

} // namespace zori
