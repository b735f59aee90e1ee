// One row through tables: dst = table[index of src], a table a channel.
//
// No vector instruction of this level reads a table: a load of the index and one of the entry are needed for every
// sample. As the processor stores but once a clock, results are put together in a register and stored as a word. A row
// may be its own source, where its entries are no wider than its samples.
#pragma once

#include "frame/layout.h"
#include "simd.h"

namespace zori {
inline namespace ZORI_WIDTH {

// An entry as the low bits of a word.
template <class Word, class D> inline Word asBits(D entry) { return static_cast<std::make_unsigned_t<D>>(entry); }

// How the pixels lie: elements of a pixel on either side, where the sample that table c gives is written, and what else
// is in a pixel of the destination, as bits of a word of it.
template <Layout L> struct AlikePixels {
  static constexpr int src = channels<L>, dst = channels<L>, tables = processed<L>;
  static constexpr int place(int c) { return c; }
  template <class Word, class D> Word rest(const D* pixel) const
  {
    return asBits<Word>(get<D>(pixel + 3)) << 24 * sizeof(D);
  }
};

// Which bits of a sample are the index.
struct WholeSample {
  template <class S> std::ptrdiff_t operator()(S x) const { return x; }
};
struct LowBits {
  std::size_t mask;
  template <class S> std::size_t operator()(S x) const { return x & mask; }
};

// A table for every sample, in turn.
template <int N, class Index, class S, class D>
inline void lookUpSamples(const S* src, D* dst, std::ptrdiff_t length, const D* const (&table)[N], Index index)
{
  const auto entry = [&](int i) { return get<D>(table[i % N] + index(get<S>(src + i))); };
  if constexpr (sizeof(D) <= 2) {
    using Word = std::size_t;
    constexpr int perWord = sizeof(Word) / sizeof(D);
    for (; length >= perWord; length -= perWord, src += perWord * N, dst += perWord * N)
      for (int w = 0; w < N; ++w) {
        Word word = 0;
        for (int i = 0; i < perWord; ++i) word |= asBits<Word>(entry(w * perWord + i)) << 8 * sizeof(D) * i;
        put(dst + w * perWord, word);
      }
  } else {
    constexpr int block = 8;
    for (; length >= block; length -= block, src += block * N, dst += block * N)
      for (int i = 0; i < block * N; ++i) put(dst + i, entry(i));
  }
  for (; length > 0; --length, src += N, dst += N)
    for (int c = 0; c < N; ++c) put(dst + c, entry(c));
}

template <class Pixels, class Index, class S, class D>
[[gnu::noinline]] void lookUpRow(const S* src, D* dst, std::ptrdiff_t length, const D* const* tables, Index index,
                                 Pixels pixels)
{
  constexpr int n = Pixels::tables;
  const D* table[n];
  for (int c = 0; c < n; ++c) table[c] = tables[c];
  if constexpr (Pixels::dst == n) lookUpSamples(src, dst, length, table, index);
  else { // pixels of four samples
    using Word = std::conditional_t<sizeof(D) == 1, Zor32u, std::uint64_t>;
    for (; length > 0; --length, src += Pixels::src, dst += Pixels::dst) {
      Word word = pixels.template rest<Word>(dst);
      for (int c = 0; c < n; ++c)
        word |= asBits<Word>(get<D>(table[c] + index(get<S>(src + c)))) << 8 * sizeof(D) * Pixels::place(c);
      put(dst, word);
    }
  }
}

} // namespace ZORI_WIDTH
} // namespace zori
