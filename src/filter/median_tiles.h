// Medians of squares of 5 pixels a side and more, by tiles of two rows and two columns of results: what the four
// windows of a tile share is sorted once.
//
// Even and odd pixels of the rows are parted first, so that a lane is a tile and all lanes do the same. Then, for a
// strip of the region that fits the cache,
//
//   couples   of two rows that windows hold together each column is sorted; a ring keeps them for the tiles below
//   columns   couples are merged to the column of rows that both windows hold
//   blocks    an odd column and the even one behind it are merged; such pairs beside each other then to larger blocks
//   tiles     blocks are merged to the core that all four windows hold, and the core with the column left of it and
//             with the one right of it; of their ranks only the middle ones can be the median, whatever is still to
//             come. The row above or below then gives the median
//
// Everything works on whole vectors of samples (rank_network.h); a strip holds one row for each rank. The samples of a
// tile's channels are lanes of their own, so that neighbours lie `channels` apart. What else stands beside each other
// in the rows of the strip, in segments: the three planes that three channels become, and bands of a narrow region.
#pragma once

#include "rank_rows.h"

#include "frame/layout.h"
#include "frame/parallel.h"
#include "rowkernels/channels.h"
#include "rowkernels/copy.h"
#include "rowkernels/drivers.h"
#include "walk/map.h"

#include <algorithm>

namespace zori {
namespace tiles {

using network::Drawing;
using network::List;
using network::Network;
using network::overVectors;

// Where an input lies: a row of the strip (below zero: a corner, whose row moves), so many tiles on.
struct Place {
  int row, tile;
};

// How blocks are made: block 0 is a pair of columns, block k the block first[k] with the block second[k] right of it.
// The core consists of the blocks of `core` from left to right. Found by counting exchanges; larger blocks
// would save a twelfth of them at 15x15, but take room from the strip.
template <int Side> struct Blocks;
template <> struct Blocks<5> {
  static constexpr int first[] = {-1}, second[] = {-1}, core[] = {0, 0};
};
template <> struct Blocks<7> {
  static constexpr int first[] = {-1}, second[] = {-1}, core[] = {0, 0, 0};
};
template <> struct Blocks<9> {
  static constexpr int first[] = {-1, 0}, second[] = {-1, 0}, core[] = {1, 1};
};
template <> struct Blocks<11> {
  static constexpr int first[] = {-1, 0}, second[] = {-1, 0}, core[] = {1, 1, 0};
};
template <> struct Blocks<13> {
  static constexpr int first[] = {-1, 0}, second[] = {-1, 0}, core[] = {1, 1, 1};
};
template <> struct Blocks<15> {
  static constexpr int first[] = {-1, 0}, second[] = {-1, 0}, core[] = {1, 1, 1, 0};
};

// A block of the strip: the two lists that it is merged from.
struct Join {
  int row, height, width;
  Place first, second;
  int firstHeight, secondHeight;
};

template <int Side> struct Tile {
  using B = Blocks<Side>;
  static constexpr int side = Side, joins = sizeof B::first / sizeof B::first[0];
  static constexpr int shared = Side - 1; // rows that both windows hold, columns that both hold
  static constexpr int pairs = shared / 2;
  static constexpr int area = Side * Side, median = area / 2;

  // The strip: a ring of couples, each of even columns and of odd ones; sorted columns of both; the row above and the
  // one below by pairs of columns; the blocks.
  enum CoupleRow { Lesser, Greater, First, Second, rowsOfCouple };
  static constexpr int couples = pairs + 2; // with those that the rows above and below belong to
  static constexpr int couple(int slot, int parity) { return (2 * slot + parity) * rowsOfCouple; }
  static constexpr int sorted(int parity) { return couple(couples, 0) + parity * shared; }
  static constexpr int paired(int row) { return sorted(2) + 2 * row; } // 0: above, 1: below
  static constexpr int width(int block)                                // in pairs
  {
    return block == 0 ? 1 : width(B::first[block]) + width(B::second[block]);
  }
  static constexpr int height(int block) { return 2 * shared * width(block); }
  static constexpr int row(int block) { return block == 0 ? paired(2) : row(block - 1) + height(block - 1); }
  static constexpr int rows = row(joins);
  static constexpr int corner(int row, int right) { return -1 - (2 * row + right); }

  static constexpr List sortedPairs(Drawing& d, const List& x)
  {
    if (x.size <= 2) return x;
    const int half = x.size / 4 * 2;
    return d.merged(sortedPairs(d, x.part(0, half)), sortedPairs(d, x.part(half, x.size)));
  }
  static constexpr Drawing coupled()
  {
    Drawing d;
    const List in = d.inputs(2);
    d.output(d.lesser(in.at[0], in.at[1]));
    d.output(d.greater(in.at[0], in.at[1]));
    d.output(in);
    return d;
  }
  static constexpr Drawing columns()
  {
    Drawing d;
    d.output(sortedPairs(d, d.inputs(shared)));
    return d;
  }
  static constexpr Join join(int block)
  {
    if (block == 0) return {row(0), height(0), 1, {sorted(1), 0}, {sorted(0), 1}, shared, shared};
    const int a = B::first[block], b = B::second[block];
    return {row(block), height(block), width(block), {row(a), 0}, {row(b), width(a)}, height(a), height(b)};
  }
  // Of the row above and of the one below: left, right.
  static constexpr Drawing medians()
  {
    Drawing d;
    using Ranks = network::MiddleRanks<median>;
    Ranks core;
    for (const int block : B::core) core = core.with(d, d.inputs(height(block)));
    const List left = d.inputs(shared), right = d.inputs(shared);
    const Ranks columns[] = {core.with(d, left), core.with(d, right)};
    for (int row = 0; row < 2; ++row) {
      const List between = sortedPairs(d, d.inputs(shared));
      for (const Ranks& x : columns) { // all but the corner leave two ranks, which hold it between them
        const Ranks rest = x.with(d, between);
        d.output(d.greater(rest.list.at[0], d.lesser(rest.list.at[1], d.inputs(1).at[0])));
      }
    }
    return d;
  }
  static constexpr int inputs = shared * shared + 2 * shared + 2 * (shared + 2);
  static constexpr Place input(int k)
  {
    int tile = 0;
    for (const int block : B::core) {
      if (k < height(block)) return {row(block) + k, tile};
      k -= height(block);
      tile += width(block);
    }
    for (int right = 0; right < 2; ++right) {
      if (k < shared) return {sorted(right) + k, right * pairs};
      k -= shared;
    }
    const int y = k / (shared + 2);
    k %= shared + 2;
    if (k < shared) return {paired(y) + k % 2, k / 2};
    return {corner(y, k - shared), (k - shared) * pairs};
  }
};

template <int Side> struct Places {
  Place at[Tile<Side>::inputs] = {};
  constexpr Places()
  {
    for (int k = 0; k < Tile<Side>::inputs; ++k) at[k] = Tile<Side>::input(k);
  }
};
template <int Side> inline constexpr Places<Side> inputPlaces{};

// ---- A strip ----

// Up to `most` samples of a row; with what their windows reach beyond them they take some 44 KB of stack.
template <class T, int Side> struct Strip {
  using Plan = Tile<Side>;
  static constexpr int lanes = Vec<T>::size, mostChannels = 4;
  static constexpr int beyond = Plan::pairs * mostChannels + lanes; // of each of the two parities
  static constexpr int wanted = 45056 / static_cast<int>(sizeof(T)) / (Plan::rows + 8) - beyond;
  static constexpr int half = std::max(std::min(wanted, 1024 / static_cast<int>(sizeof(T))) / lanes, 4) * lanes;
  static constexpr int most = 2 * half;
  static constexpr std::ptrdiff_t pitch = (half + beyond + lanes - 1) / lanes * lanes;

  alignas(32) T samples[Plan::rows * pitch];
  alignas(32) T medians[2][2 * pitch];
  alignas(32) T planes[2][2 * pitch];

  T* row(int k) { return samples + k * pitch; }
  T* couple(int number, int parity) { return row(Plan::couple((number + 1) % Plan::couples, parity)); }
};

// ---- Even and odd pixels ----

template <class T> struct Parted {
  Vec<T> even, odd;
};
template <class T> inline Parted<T> min(Parted<T> a, Parted<T> b) { return {min(a.even, b.even), min(a.odd, b.odd)}; }
template <class T> inline Parted<T> max(Parted<T> a, Parted<T> b) { return {max(a.even, b.even), max(a.odd, b.odd)}; }

template <int Bytes>
using Whole =
  std::conditional_t<Bytes == 1, uint8_t,
                     std::conditional_t<Bytes == 2, uint16_t, std::conditional_t<Bytes == 4, uint32_t, uint64_t>>>;

template <class T, int Channels> inline constexpr int bytesOf = Channels* static_cast<int>(sizeof(T));

// Two vectors of pixels.
template <int Channels, class T> [[gnu::always_inline]] inline Parted<T> parted(const T* p)
{
  using W = Whole<bytesOf<T, Channels>>;
  const auto a = as<W>(loadOfBlock<2, vectorBytes>(p, 0)), b = as<W>(loadOfBlock<2, vectorBytes>(p, 1));
  if constexpr (sizeof(W) == 8) return {as<T>(interleaveLowLocal(a, b)), as<T>(interleaveHighLocal(a, b))};
  else return {as<T>(evens(a, b)), as<T>(odds(a, b))};
}
template <int Channels, class T> [[gnu::always_inline]] inline void storeTogether(T* p, Vec<T> even, Vec<T> odd)
{
  using W = Whole<bytesOf<T, Channels>>;
  storeOfBlock<2>(p, 0, as<T>(interleaveLowLocal(as<W>(even), as<W>(odd))));
  storeOfBlock<2>(p, 1, as<T>(interleaveHighLocal(as<W>(even), as<W>(odd))));
}

// Fewer elements than two vectors, and others behind them.
template <class T> inline void loadShort(T* padded, const T* from, std::ptrdiff_t length)
{
  constexpr std::ptrdiff_t lanes = Vec<T>::size;
  store(padded + lanes, zero<T, vectorBytes>());
  if (length >= lanes) {
    store(padded, load<T>(from));
    if (length == lanes) return;
    from += lanes;
    padded += lanes;
    length -= lanes;
  }
  store(padded, loadPart<T>(from, static_cast<std::size_t>(length) * sizeof(T)));
}

// ---- Stages ----

// Two rows of so many pixels to a couple of the ring.
template <class T, int Side, int Channels>
[[gnu::noinline]] void partRows(const T* first, const T* second, T* even, T* odd, std::ptrdiff_t pixels, T flippedBits)
{
  const UpperHalvesCleared atTheEnd;
  const Vec<T> flip = splat(flippedBits);
  constexpr std::ptrdiff_t pitch = Strip<T, Side>::pitch, lanes = Vec<T>::size;
  constexpr std::ptrdiff_t atOnce = 2 * lanes / Channels; // pixels
  const auto part = [=](const T* a, const T* b, T* even, T* odd) __attribute__((always_inline))
  {
    Network<Tile<Side>::coupled>::template run<Parted<T>>(
      [=](auto k) {
        Parted<T> x = parted<Channels>(k == 0 ? a : b);
        if constexpr (sizeof(T) > 1) x = {x.even ^ flip, x.odd ^ flip};
        return x;
      },
      [=](auto k, Parted<T> x) {
        store(even + k * pitch, x.even);
        store(odd + k * pitch, x.odd);
      });
  };
  std::ptrdiff_t x = 0;
  for (; x + atOnce <= pixels; x += atOnce)
    part(first + Channels * x, second + Channels * x, even + x / 2 * Channels, odd + x / 2 * Channels);
  if (x == pixels) return;
  if (pixels >= atOnce) { // the last ones overlap; the parities change places with an odd beginning
    x = pixels - atOnce;
    T* const at[2] = {even + x / 2 * Channels, odd + x / 2 * Channels};
    const bool isOdd = x % 2 != 0;
    part(first + Channels * x, second + Channels * x, isOdd ? at[1] : at[0], isOdd ? at[0] + Channels : at[1]);
  } else {
    alignas(32) T padded[2][2 * lanes];
    loadShort(padded[0], first, Channels * pixels);
    loadShort(padded[1], second, Channels * pixels);
    part(padded[0], padded[1], even, odd);
  }
}

// The columns of both parities: even ones, then odd ones, from the couples number .. number + pairs - 1.
template <class T, int Side>
[[gnu::noinline]] void sortColumns(Strip<T, Side>& strip, int number, std::ptrdiff_t length)
{
  const UpperHalvesCleared atTheEnd;
  using Plan = Tile<Side>;
  constexpr std::ptrdiff_t pitch = Strip<T, Side>::pitch;
  for (int parity = 0; parity < 2; ++parity) {
    const T* from[Plan::pairs];
    for (int k = 0; k < Plan::pairs; ++k) from[k] = strip.couple(number + k, parity);
    T* const to = strip.row(Plan::sorted(parity));
    overVectors<T>(length, [&](std::ptrdiff_t i) {
      Network<Plan::columns>::template run<Vec<T>>([&](auto k) { return load<T>(from[k / 2] + (k % 2) * pitch + i); },
                                                   [&](auto k, Vec<T> x) { store(to + k * pitch + i, x); });
    });
  }
}

// A row by pairs of columns.
template <class T, int Side>
[[gnu::noinline]] void pairColumns(Strip<T, Side>& strip, int row, const T* even, const T* odd, std::ptrdiff_t length,
                                   int channels)
{
  const UpperHalvesCleared atTheEnd;
  T* const to = strip.row(Tile<Side>::paired(row));
  overVectors<T>(length, [=](std::ptrdiff_t i) {
    const Vec<T> a = load<T>(odd + i), b = load<T>(even + channels + i);
    store(to + i, min(a, b));
    store(to + Strip<T, Side>::pitch + i, max(a, b));
  });
}

template <class T, int Side, int Block>
[[gnu::noinline]] void joinBlocks(Strip<T, Side>& strip, std::ptrdiff_t length, int channels)
{
  const UpperHalvesCleared atTheEnd;
  constexpr Join join = Tile<Side>::join(Block);
  constexpr std::ptrdiff_t pitch = Strip<T, Side>::pitch;
  network::mergeRows<join.firstHeight, join.secondHeight, pitch>(
    strip.row(join.first.row), strip.row(join.second.row) + join.second.tile * channels, strip.row(join.row),
    length - (join.width - 1) * channels);
}

// corner: as Place numbers them. count: samples of each of both rows. length: samples of the tiles.
template <class T, int Side>
[[gnu::noinline]] void takeMedians(Strip<T, Side>& strip, const T* const* corner, T* upper, T* lower,
                                   std::ptrdiff_t count, std::ptrdiff_t length, int channels, T flippedBits)
{
  const UpperHalvesCleared atTheEnd;
  const Vec<T> flip = splat(flippedBits);
  using Selection = Network<Tile<Side>::medians>;
  constexpr std::ptrdiff_t pitch = Strip<T, Side>::pitch, lanes = Vec<T>::size;
  const T* const from = strip.samples;
  const T* const corners[] = {corner[0], corner[1], corner[2], corner[3]};
  overVectors<T>(length, [&](std::ptrdiff_t i) {
    Vec<T> median[4];
    Selection::template run<Vec<T>>(
      [&](auto k) {
        const Place place = inputPlaces<Side>.at[k];
        const T* const row = place.row < 0 ? corners[-1 - place.row] : from + place.row * pitch;
        return load<T>(row + std::ptrdiff_t{place.tile} * channels + i);
      },
      [&](auto k, Vec<T> x) { median[k] = sizeof(T) == 1 ? x : x ^ flip; });
    const auto put = [&](T * above, T * below) __attribute__((always_inline))
    {
      if (channels == 1) {
        storeTogether<1>(above, median[0], median[1]);
        storeTogether<1>(below, median[2], median[3]);
      } else {
        storeTogether<4>(above, median[0], median[1]);
        storeTogether<4>(below, median[2], median[3]);
      }
    };
    if (2 * (i + lanes) <= count) put(upper + 2 * i, lower + 2 * i);
    else { // a tile that is half outside, or fewer than a vector of them
      T row[2][2 * lanes];
      put(row[0], row[1]);
      const std::size_t bytes = static_cast<std::size_t>(count - 2 * i) * sizeof(T);
      copyShort(upper + 2 * i, row[0], bytes);
      copyShort(lower + 2 * i, row[1], bytes);
    }
  });
}

template <class T, int Side, int... Block>
inline void joinAll(Strip<T, Side>& strip, std::ptrdiff_t length, int channels, std::integer_sequence<int, Block...>)
{
  (joinBlocks<T, Side, Block>(strip, length, channels), ...);
}

// ---- The region ----

// src: from the first sample that a window covers.
template <class T> struct Region {
  Rows<const T> src;
  Rows<T> dst;
  std::ptrdiff_t width, height;
  int channels;
  bool keepFourth;
  T flippedBits; // of samples when they are compared, so that one kernel serves signed and unsigned ones
};

// What is in the strip: so many pixels of the region from column x on, of each of several bands of pairs of rows, which
// begin so many pairs apart. Pixels of a plane lie `channels` apart.
struct Part {
  std::ptrdiff_t x, pixels;
  int channels, planes, bands, pairsOfBand;
  std::ptrdiff_t tiles() const { return (pixels + 1) / 2; }
  std::ptrdiff_t segment(int pairs) const { return (tiles() + pairs) * channels; } // of even samples or odd ones
};

// Pixels of three channels to planes `apart` from each other, and back. Planes have room for a vector.
template <class T>
[[gnu::noinline]] void splitPlanes(const T* from, T* planes, std::ptrdiff_t apart, std::ptrdiff_t pixels)
{
  const UpperHalvesCleared atTheEnd;
  using Bits = std::make_unsigned_t<T>;
  const Interleaved<const Bits, 3> src{{reinterpret_cast<const Bits*>(from)}};
  Bits* const to = reinterpret_cast<Bits*>(planes);
  const Planar<Bits, 3> dst{{to, to + apart, to + 2 * apart}};
  if (pixels >= Vec<T>::size)
    return moveChannels<true>(PixelRows<Interleaved<const Bits, 3>>{src}, PixelRows<Planar<Bits, 3>>{dst}, pixels, 1,
                              SameChannels{}, splat(Bits{0}));
  alignas(32) Bits padded[3 * Vec<T>::size];
  copyShort(padded, from, static_cast<std::size_t>(3 * pixels) * sizeof(T));
  Vec<Bits> channel[3];
  Interleaved<const Bits, 3>{{padded}}.load(0, channel);
  dst.template store<true>(0, channel, splat(Bits{0}));
}
template <class T>
[[gnu::noinline]] void mergePlanes(const T* planes, std::ptrdiff_t apart, T* to, std::ptrdiff_t pixels)
{
  const UpperHalvesCleared atTheEnd;
  using Bits = std::make_unsigned_t<T>;
  const Bits* const from = reinterpret_cast<const Bits*>(planes);
  const Planar<const Bits, 3> src{{from, from + apart, from + 2 * apart}};
  const Interleaved<Bits, 3> dst{{reinterpret_cast<Bits*>(to)}};
  if (pixels >= Vec<T>::size)
    return moveChannels<true>(PixelRows<Planar<const Bits, 3>>{src}, PixelRows<Interleaved<Bits, 3>>{dst}, pixels, 1,
                              SameChannels{}, splat(Bits{0}));
  alignas(32) Bits padded[3 * Vec<T>::size];
  Vec<Bits> channel[3];
  src.load(0, channel);
  Interleaved<Bits, 3>{{padded}}.template store<true>(0, channel, splat(Bits{0}));
  copyShort(to, padded, static_cast<std::size_t>(3 * pixels) * sizeof(T));
}

// The couple of that number, and those as far down in the bands below.
template <class T, int Side>
void partCouple(const Region<T>& region, Strip<T, Side>& strip, const Part& part, int number)
{
  const std::ptrdiff_t pixels = part.pixels + Side - 1, segment = part.segment(Tile<Side>::pairs);
  // where only windows outside the region hold a row, another one stands for it
  const auto row = [&](std::ptrdiff_t y) {
    const std::ptrdiff_t inside = std::min(std::max(y, std::ptrdiff_t{0}), region.height + Side - 2);
    return region.src[inside] + part.x * region.channels;
  };
  T *even = strip.couple(number, 0), *odd = strip.couple(number, 1);
  for (int band = 0; band < part.bands; ++band, even += segment, odd += segment) {
    const std::ptrdiff_t y = std::ptrdiff_t{2} * (number + band * part.pairsOfBand) + 1;
    if (part.planes == 3) {
      splitPlanes(row(y), strip.planes[0], 2 * segment, pixels);
      splitPlanes(row(y + 1), strip.planes[1], 2 * segment, pixels);
      partRows<T, Side, 1>(strip.planes[0], strip.planes[1], even, odd, 6 * segment, region.flippedBits);
    } else if (part.channels == 1) {
      partRows<T, Side, 1>(row(y), row(y + 1), even, odd, pixels, region.flippedBits);
    } else {
      partRows<T, Side, 4>(row(y), row(y + 1), even, odd, pixels, region.flippedBits);
    }
  }
}

// The medians of the two rows from 2 * pair on, and those as far down in the bands below up to pair `end` - 1. Their
// couples are in the ring.
template <class T, int Side>
void medianRows(const Region<T>& region, Strip<T, Side>& strip, const Part& part, int pair, int end)
{
  using Plan = Tile<Side>;
  constexpr int pairs = Plan::pairs;
  const int channels = part.channels;
  const std::ptrdiff_t segment = part.segment(pairs), columns = part.bands * part.planes * segment;
  sortColumns<T, Side>(strip, pair, columns);
  const auto outer = [&](int row, int parity) {
    return strip.couple(row == 0 ? pair - 1 : pair + pairs, parity) +
           (row == 0 ? Plan::Second : Plan::First) * strip.pitch;
  };
  const T* const corner[] = {outer(0, 0), outer(0, 1), outer(1, 0), outer(1, 1)};
  for (int row = 0; row < 2; ++row)
    pairColumns<T, Side>(strip, row, corner[2 * row], corner[2 * row + 1], columns - channels, channels);
  joinAll<T, Side>(strip, columns - channels, channels, std::make_integer_sequence<int, Plan::joins>{});

  const auto destination = [&](std::ptrdiff_t y) { return region.dst[y] + part.x * region.channels; };
  const std::ptrdiff_t tiles = columns - pairs * channels;
  if (part.planes * part.bands == 1 && !region.keepFourth) {
    const std::ptrdiff_t y = std::ptrdiff_t{2} * pair;
    return takeMedians<T, Side>(strip, corner, destination(y),
                                y + 1 < region.height ? destination(y + 1) : strip.medians[1], part.pixels * channels,
                                tiles, channels, region.flippedBits);
  }
  takeMedians<T, Side>(strip, corner, strip.medians[0], strip.medians[1], 2 * strip.pitch, tiles, channels,
                       region.flippedBits);
  for (int band = 0; band < part.bands && pair < end; ++band, pair += part.pairsOfBand) {
    for (int k = 0; k < 2 && 2 * pair + k < region.height; ++k) {
      T* const to = destination(std::ptrdiff_t{2} * pair + k);
      const T* const medians = strip.medians[k] + 2 * band * part.planes * segment;
      if (part.planes == 3) mergePlanes(medians, 2 * segment, to, part.pixels);
      else if (region.keepFourth)
        mapRow(to, 4 * part.pixels, KeepFourth<Unchanged>{}, static_cast<const T*>(to), medians);
      else copyShort(to, medians, static_cast<std::size_t>(part.pixels * channels) * sizeof(T));
    }
  }
}

template <class T, int Side> void filterBand(const Region<T>& region, int firstPair, int count)
{
  using S = Strip<T, Side>;
  constexpr int pairs = Tile<Side>::pairs;
  S strip;
  Part part{0, region.width, region.channels == 4 ? 4 : 1, region.channels == 3 ? 3 : 1, 1, count};
  const std::ptrdiff_t unit = region.channels == 3 ? 2 : 2 * S::lanes / region.channels; // pixels
  const std::ptrdiff_t fitting = S::most / region.channels / unit * unit;
  const std::ptrdiff_t strips = (region.width + fitting - 1) / fitting;
  const std::ptrdiff_t most = ((region.width + strips - 1) / strips + unit - 1) / unit * unit;
  if (const std::ptrdiff_t length = part.segment(pairs); part.planes == 1 && length <= S::lanes) {
    // a vector holds several narrow ones
    const int wanted = static_cast<int>(std::min<std::ptrdiff_t>(std::min(4 * S::lanes, S::half) / length, count));
    part.pairsOfBand = (count + wanted - 1) / wanted;
    part.bands = (count + part.pairsOfBand - 1) / part.pairsOfBand;
  }
  for (; part.x < region.width; part.x += most) {
    part.pixels = std::min(most, region.width - part.x);
    for (int k = -1; k < pairs; ++k) partCouple(region, strip, part, firstPair + k);
    for (int k = 0; k < part.pairsOfBand; ++k) {
      partCouple(region, strip, part, firstPair + k + pairs);
      medianRows(region, strip, part, firstPair + k, firstPair + count);
    }
  }
}

template <class T, int Side>
[[gnu::noinline]] void filterSquare(Rows<const T> src, Rows<T> dst, ZorImgSize roi, int channels, bool keepFourth,
                                    T flippedBits, TeamRule team)
{
  const Region<T> region{src, dst, roi.width, roi.height, channels, keepFourth, flippedBits};
  staticBands(team, Rounding::Callers, roi.height / 2 + roi.height % 2,
              [&](int first, int count) { filterBand<T, Side>(region, first, count); });
}

} // namespace tiles
} // namespace zori
