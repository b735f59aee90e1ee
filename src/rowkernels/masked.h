// Pixels under a mask of one byte each: the pixel is written where the byte is not zero.
//
// A block is 16 pixels. Their mask bytes become "keep" masks as wide as the pixels, by doubling and tripling lanes; a
// block without a selected pixel is passed over, in another one the pixels that are not selected are written back as
// they were.
#pragma once

#include "channels.h"
#include "set.h"

namespace zori {

// visit(j, keep) for the 16-byte vectors j = first, first + 1, ... of pixels of Bytes bytes, given a lane a pixel.
template <int Bytes, class E, class Visit> inline void widenMask(Vec<E> keep, int first, Visit visit)
{
  if constexpr (Bytes == sizeof(E)) visit(first, as<Zor8u>(keep));
  else if constexpr (Bytes == 3 * sizeof(E)) {
    const Vec<E> channels[3] = {keep, keep, keep};
    Vec<E> pixels[3];
    merge(channels, pixels);
    for (int i = 0; i < 3; ++i) visit(first + i, as<Zor8u>(pixels[i]));
  } else {
    const Vec<E> low = interleaveLow(keep, keep), high = interleaveHigh(keep, keep);
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

// What is written: the pixels of a row, or one pixel over and over.
struct RowSource {
  const Zor8u* p;
  Vec<Zor8u> vector(std::ptrdiff_t offset, int j) const { return load<Zor8u>(p + offset + 16 * j); }
  const Zor8u* pixel(std::ptrdiff_t offset) const { return p + offset; }
  void fetch(std::ptrdiff_t offset, std::ptrdiff_t distance, int bytes) const
  {
    fetchAhead(p + offset, distance, bytes);
  }
};
struct PatternSource {
  Vec<Zor8u> vectors[3];
  const Zor8u* onePixel;
  explicit PatternSource(const PixelPattern& pattern)
    : vectors{pattern.at(0), pattern.at(16), pattern.at(32)}, onePixel(pattern.pixel())
  {}
  Vec<Zor8u> vector(std::ptrdiff_t, int j) const { return vectors[j % 3]; }
  const Zor8u* pixel(std::ptrdiff_t) const { return onePixel; }
  void fetch(std::ptrdiff_t, std::ptrdiff_t, int) const {}
};

// The first Used bytes of each selected pixel of Bytes bytes. The row may be its own source.
template <int Bytes, int Used, class Source>
[[gnu::noinline]] void mergeRow(const Zor8u* mask, Zor8u* dst, std::ptrdiff_t width, Source src)
{
  constexpr std::ptrdiff_t block = 16;
  if (width < block) {
    for (std::ptrdiff_t x = 0; x < width; ++x) {
      oneByOne(mask);
      if (mask[x]) std::memcpy(dst + x * Bytes, src.pixel(x * Bytes), Used);
    }
    return;
  }
  alignas(16) Zor8u rest[16] = {};
  if constexpr (Used < Bytes)
    for (int i = 0; i < 16; ++i) rest[i] = i % Bytes < Used ? 0 : 0xff;
  const Vec<Zor8u> keepRest = load<Zor8u>(rest);

  const std::ptrdiff_t distance = fetchDistance<Zor8u>(width * Bytes);
  const auto mergeBlocks = [=](std::ptrdiff_t x, auto blocks) {
    Vec<Zor8u> keep[blocks], keepAll = equal(load<Zor8u>(mask + x), zero<Zor8u>());
    keep[0] = keepAll;
    for (int b = 1; b < blocks; ++b) {
      keep[b] = equal(load<Zor8u>(mask + x + b * block), zero<Zor8u>());
      keepAll = keepAll & keep[b];
    }
    if (moveMask(keepAll) == 0xffff) return;
    const std::ptrdiff_t offset = x * Bytes;
    Zor8u* const to = dst + offset;
    fetchAhead(to, distance, blocks * 16 * Bytes);
    src.fetch(offset, distance, blocks * 16 * Bytes);
    for (int b = 0; b < blocks; ++b)
      widenMask<Bytes>(keep[b], b * Bytes, [=](int j, Vec<Zor8u> k) {
        if constexpr (Used < Bytes) k = k | keepRest;
        store(to + 16 * j, select(k, load<Zor8u>(to + 16 * j), src.vector(offset, j)));
      });
  };
  constexpr int batch = Bytes <= 2 ? 4 / Bytes : 1; // blocks of few vectors go together
  std::ptrdiff_t x = 0;
  if constexpr (batch > 1)
    for (; x + batch * block <= width; x += batch * block) mergeBlocks(x, std::integral_constant<int, batch>{});
  // the last block may overlap the one before, to no effect
  for (; x < width; x += block) mergeBlocks(x + block < width ? x : width - block, std::integral_constant<int, 1>{});
}

} // namespace zori
