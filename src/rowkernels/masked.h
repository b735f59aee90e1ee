// Pixels under a mask of one byte each: the pixel is written where the byte is not zero.
//
// A block is as many pixels as a vector has bytes. Their mask bytes become "keep" masks as wide as the pixels, by
// doubling and tripling lanes; a block without a selected pixel is passed over, in another one the pixels that are not
// selected are written back as they were.
#pragma once

#include "channels.h"
#include "set.h"

namespace zori {
inline namespace ZORI_WIDTH {

// visit(j, keep) for the vectors j = first, first + 1, ... of pixels of Bytes bytes, given a lane a pixel.
template <int Bytes, class E, int V, class Visit>
ZORI_INLINE inline void widenMask(Vec<E, V> keep, int first, Visit visit)
{
  if constexpr (Bytes == sizeof(E)) visit(first, as<Zor8u>(keep));
  else if constexpr (Bytes == 3 * sizeof(E)) {
    const Vec<E, V> channels[3] = {keep, keep, keep};
    Vec<E, V> pixels[3];
    merge(channels, pixels);
#if ZORI_VECTOR_BYTES == 32
    if constexpr (V == 32) { // in the order of memory: halves of the block stand in the halves of the vectors
      visit(first, as<Zor8u>(lowHalves(pixels[0], pixels[1])));
      visit(first + 1, as<Zor8u>(joined(lowHalf(pixels[2]), highHalf(pixels[0]))));
      visit(first + 2, as<Zor8u>(highHalves(pixels[1], pixels[2])));
      return;
    }
#endif
    for (int i = 0; i < 3; ++i) visit(first + i, as<Zor8u>(pixels[i]));
  } else {
    const Vec<E, V> low = interleaveLow(keep, keep), high = interleaveHigh(keep, keep);
    if constexpr (sizeof(E) == 8) { // a pixel a vector
      visit(first, as<Zor8u>(low));
      visit(first + 1, as<Zor8u>(high));
    } else {
      constexpr int vectors = Bytes / sizeof(E) / 2;
      widenMask<Bytes>(as<WiderT<E>>(low), first, visit);
      widenMask<Bytes>(as<WiderT<E>>(high), first + vectors, visit);
    }
  }
}

// What is written: the pixels of rows, or one pixel over and over.
struct RowSource {
  const Zor8u* p;
  template <int V> Vec<Zor8u, V> vector(std::ptrdiff_t offset, int j) const
  {
    return load<Zor8u, V>(p + offset + V * j);
  }
  const Zor8u* pixel(std::ptrdiff_t offset) const { return p + offset; }
  void fetch(std::ptrdiff_t offset, std::ptrdiff_t distance, int bytes) const
  {
    fetchAhead(p + offset, distance, bytes);
  }
};
struct SourceRows {
  Rows<const Zor8u> rows;
  RowSource row(int y) const { return {rows[y]}; }
};
struct PatternSource {
  Vec<Zor8u, 16> vectors[3];
  const Zor8u* onePixel;
  explicit PatternSource(const PixelPattern& pattern)
    : vectors{pattern.at(0), pattern.at(16), pattern.at(32)}, onePixel(pattern.pixel())
  {}
  template <int V> Vec<Zor8u, V> vector(std::ptrdiff_t, int j) const
  {
#if ZORI_VECTOR_BYTES == 32
    if constexpr (V == 32) return joined(vectors[2 * j % 3], vectors[(2 * j + 1) % 3]);
    else return vectors[j % 3];
#else
    return vectors[j % 3];
#endif
  }
  const PatternSource& row(int) const { return *this; }
  const Zor8u* pixel(std::ptrdiff_t) const { return onePixel; }
  void fetch(std::ptrdiff_t, std::ptrdiff_t, int) const {}
};

// Rows of a block of V pixels at least.
template <int Bytes, int Used, int V, class Source>
[[gnu::noinline]] void mergeRows(Rows<const Zor8u> masks, Rows<Zor8u> dsts, std::ptrdiff_t width, int rows,
                                 const Source& source)
{
  const UpperHalvesCleared atTheEnd;
  constexpr std::ptrdiff_t block = V;
  alignas(V) Zor8u rest[V] = {};
  if constexpr (Used < Bytes)
    for (int i = 0; i < V; ++i) rest[i] = i % Bytes < Used ? 0 : 0xff;
  const Vec<Zor8u, V> keepRest = load<Zor8u, V>(rest);

  const std::ptrdiff_t distance = fetchDistance<Zor8u>(width * Bytes);
  const Source held = source; // a copy that nobody else can see, so that what it holds stays in registers
  const auto along = [=](const Zor8u* mask, Zor8u* dst, const auto& from) ZORI_INLINE {
    const auto mergeBlocks = [=](std::ptrdiff_t x, auto blocks, auto pixels) ZORI_INLINE {
      constexpr int P = pixels;
      Vec<Zor8u, P> keep[blocks], keepAll = equal(load<Zor8u, P>(mask + x), zero<Zor8u, P>());
      keep[0] = keepAll;
      for (int b = 1; b < blocks; ++b) {
        keep[b] = equal(load<Zor8u, P>(mask + x + b * P), zero<Zor8u, P>());
        keepAll = keepAll & keep[b];
      }
      if (isAll(keepAll)) return;
      const std::ptrdiff_t offset = x * Bytes;
      Zor8u* const to = dst + offset;
      fetchAhead(to, distance, blocks * P * Bytes);
      from.fetch(offset, distance, blocks * P * Bytes);
      for (int b = 0; b < blocks; ++b)
        widenMask<Bytes>(keep[b], b * Bytes, [=](int j, Vec<Zor8u, P> k) ZORI_INLINE {
          if constexpr (Used < Bytes) k = k | firstBytes<P>(keepRest);
          store(to + P * j, select(k, load<Zor8u, P>(to + P * j), from.template vector<P>(offset, j)));
        });
    };
    constexpr std::integral_constant<int, V> whole;
    constexpr std::integral_constant<int, 16> half;
    constexpr std::integral_constant<int, 1> one;
    constexpr int batch = Bytes <= 2 ? 4 / Bytes : 1; // blocks of few vectors go together
    std::ptrdiff_t x = 0;
    if constexpr (batch > 1)
      for (; x + batch * block <= width; x += batch * block)
        mergeBlocks(x, std::integral_constant<int, batch>{}, whole);
    for (; x + block <= width; x += block) mergeBlocks(x, one, whole);
    // the last block may overlap the one before, to no effect
    if (V > 16 && x < width && width - x <= 16) mergeBlocks(width - 16, one, half);
    else if (x < width) mergeBlocks(width - block, one, whole);
  };
  for (int y = 0; y < rows; ++y) along(masks[y], dsts[y], held.row(y));
}

// The first Used bytes of each selected pixel of Bytes bytes. Rows may be their own source.
template <int Bytes, int Used, class Source>
ZORI_INLINE inline void mergeUnderMask(Rows<const Zor8u> mask, Rows<Zor8u> dst, std::ptrdiff_t width, int rows,
                                       const Source& source)
{
  if (width >= 16)
    return width < vectorBytes ? mergeRows<Bytes, Used, 16>(mask, dst, width, rows, source)
                               : mergeRows<Bytes, Used, vectorBytes>(mask, dst, width, rows, source);
  for (int y = 0; y < rows; ++y) {
    const Zor8u* selected = mask[y];
    Zor8u* const to = dst[y];
    const auto& from = source.row(y);
    for (std::ptrdiff_t x = 0; x < width; ++x) {
      oneByOne(selected);
      if (selected[x]) std::memcpy(to + x * Bytes, from.pixel(x * Bytes), Used);
    }
  }
}

} // namespace ZORI_WIDTH
} // namespace zori
