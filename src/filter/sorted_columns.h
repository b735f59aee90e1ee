// Medians of 3x3 and 5x5 by sorted columns: what neighbouring windows share is sorted once.
//
// Two output rows at a time. The windows of both hold the same rows but one each, and windows beside each other the
// same columns. So for a strip of the region that fits the cache
//
//   columns   each column of shared rows is sorted
//   joins     neighbouring columns are merged to sorted blocks, of which each window takes two and a column
//   windows   blocks are merged; of their ranks only the middle ones can be the median, whatever the row that is still
//             to come. That row, one above and one below, then gives the two medians
//
// 3x3 does that in registers where vectors have 32 bytes; 5x5 of more than a few pixels has tiles instead, but not of
// three channels (median_tiles.h). Everything works on whole vectors of samples
// (rank_network.h); a strip holds one row for each rank. Pixels of any channel count are runs of samples whose
// neighbours lie `channels` apart.
#pragma once

#include "rank_rows.h"

#include "frame/layout.h"
#include "frame/parallel.h"
#include "rowkernels/drivers.h"
#include "rowkernels/fetch.h"
#include "walk/map.h"

#include <algorithm>

namespace zori {
namespace columns {

using network::Drawing;
using network::List;
using network::Network;
using network::overVectors;

// Where an input of the last network lies: a row of the strip, so many columns on.
struct Place {
  int row, column;
};

// A block of sorted columns: two blocks that stand side by side, the second `column` columns on.
struct Join {
  int row, column, height, width; // of the result: its first row in the strip, how many, columns that it covers
  int firstRow, firstHeight;
  int secondRow, secondHeight;
};

// ---- 3x3: each column is sorted for both output rows; the median is that of the greatest of the least, the middle of
// the middle and the least of the greatest ----

struct Square3 {
  static constexpr int side = 3, joins = 0, rows = 6;

  static constexpr Drawing columns()
  {
    Drawing d;
    const List in = d.inputs(4);
    const int low = d.lesser(in.at[1], in.at[2]), high = d.greater(in.at[1], in.at[2]);
    for (const int outer : {in.at[0], in.at[3]}) {
      const int below = d.lesser(high, outer);
      d.output(d.lesser(low, outer));
      d.output(d.greater(low, below));
      d.output(d.greater(high, outer));
    }
    return d;
  }

  static constexpr int middle(Drawing& d, int a, int b, int c)
  {
    return d.greater(d.lesser(a, b), d.lesser(d.greater(a, b), c));
  }
  static constexpr Drawing windows()
  {
    Drawing d;
    for (int row = 0; row < 2; ++row) {
      const List low = d.inputs(3), mid = d.inputs(3), high = d.inputs(3);
      const int a = d.greater(d.greater(low.at[0], low.at[1]), low.at[2]);
      const int b = middle(d, mid.at[0], mid.at[1], mid.at[2]);
      const int c = d.lesser(d.lesser(high.at[0], high.at[1]), high.at[2]);
      d.output(middle(d, a, b, c));
    }
    return d;
  }
  static constexpr Place input(int k) { return {k / 3, k % 3}; }
};

// ---- 5x5 ----

// How blocks are made: block k is a neighbour of the widths (first, second), 0 standing for a column, k for block k
// - 1. The window takes the blocks of `window` from left to right, in this order. Found by counting exchanges.
template <int Side> struct Blocks;
template <> struct Blocks<5> {
  static constexpr int first[] = {0}, second[] = {0}, window[] = {0, 1, 1};
};

template <int Side> struct Square {
  using B = Blocks<Side>;
  static constexpr int side = Side, joins = sizeof B::first / sizeof B::first[0];
  static constexpr int shared = Side - 1; // rows that both windows hold
  static constexpr int area = Side * Side, median = area / 2;

  static constexpr int width(int block)
  {
    return block == 0 ? 1 : width(B::first[block - 1]) + width(B::second[block - 1]);
  }
  static constexpr int height(int block) { return shared * width(block); }
  // The strip: the row above, the row below, the sorted columns, the blocks.
  static constexpr int row(int block) { return block == 0 ? 2 : row(block - 1) + height(block - 1); }
  static constexpr int rows = row(joins) + height(joins);

  // Rows from the top to two outputs that pass, and the sorted ones between.
  static constexpr Drawing columns()
  {
    Drawing d;
    const List in = d.inputs(shared + 2);
    d.output(in.at[0]);
    d.output(in.at[shared + 1]);
    d.output(d.sorted(in.part(1, shared + 1)));
    return d;
  }

  static constexpr Join join(int k)
  {
    const int a = B::first[k], b = B::second[k];
    return {row(k + 1), width(a), height(k + 1), width(k + 1), row(a), height(a), row(b), height(b)};
  }
  static constexpr Drawing windows()
  {
    Drawing d;
    network::MiddleRanks<median> all;
    for (const int block : B::window) all = all.with(d, d.inputs(height(block)));
    for (int row = 0; row < 2; ++row) {
      const List ownRow = d.sorted(d.inputs(Side));
      d.output(d.ranked(all.list, ownRow, median - all.from));
    }
    return d;
  }
  static constexpr Place input(int k)
  {
    int column = 0;
    for (const int block : B::window) {
      if (k < height(block)) return {row(block) + k, column};
      k -= height(block);
      column += width(block);
    }
    return {k / Side, k % Side};
  }
};
template <> struct Square<3> : Square3 {};

template <int Side> struct Places {
  static constexpr int count = Side == 3 ? 18 : (Side - 1) * Side + 2 * Side;
  Place at[count] = {};
  constexpr Places()
  {
    for (int k = 0; k < count; ++k) at[k] = Square<Side>::input(k);
  }
};
template <int Side> inline constexpr Places<Side> inputPlaces{};

// ---- A strip ----

// The samples of a strip are a multiple of the vector; with what its windows reach beyond it they take up to some 32
// KB.
template <class T, int Side> struct Strip {
  using Plan = Square<Side>;
  static constexpr int lanes = Vec<T>::size, mostChannels = 4;
  static constexpr int beyond = (Side - 1) * mostChannels + lanes;
  static constexpr int wanted = 32768 / static_cast<int>(sizeof(T)) / Plan::rows - beyond;
  static constexpr int most = std::max(std::min(wanted, 2048 / static_cast<int>(sizeof(T))) / lanes, 8) * lanes;
  static constexpr std::ptrdiff_t pitch = (most + beyond + lanes - 1) / lanes * lanes;

  alignas(32) T samples[Plan::rows * pitch];
  alignas(32) T medians[2][most];

  T* row(int k) { return samples + k * pitch; }
};

// rows: side + 1 source rows, length samples each, which may be fewer than a vector.
template <class T, int Side>
[[gnu::noinline]] void sortColumns(Strip<T, Side>& strip, const T* const* rows, std::ptrdiff_t length, T flippedBits)
{
  const UpperHalvesCleared atTheEnd;
  const Vec<T> flip = splat(flippedBits);
  using Sorting = Network<Square<Side>::columns>;
  constexpr std::ptrdiff_t pitch = Strip<T, Side>::pitch;
  T* const to = strip.samples;
  const T* from[Side + 1];
  std::copy(rows, rows + Side + 1, from);
  alignas(vectorBytes) T padded[Side + 1][Vec<T>::size];
  if (length < Vec<T>::size) {
    for (int k = 0; k <= Side; ++k) {
      store(padded[k], loadPart<T>(rows[k], static_cast<std::size_t>(length) * sizeof(T)));
      from[k] = padded[k];
    }
  }
  overVectors<T>(length, [&](std::ptrdiff_t i) {
    Sorting::template run<Vec<T>>(
      [&](auto k) {
        const Vec<T> x = load<T>(from[k] + i);
        return sizeof(T) == 1 ? x : x ^ flip;
      },
      [&](auto k, Vec<T> x) { store(to + k * pitch + i, x); });
  });
}

template <class T, int Side, int K>
[[gnu::noinline]] void joinBlocks(Strip<T, Side>& strip, std::ptrdiff_t length, int channels)
{
  const UpperHalvesCleared atTheEnd;
  constexpr Join join = Square<Side>::join(K);
  constexpr std::ptrdiff_t pitch = Strip<T, Side>::pitch;
  network::mergeRows<join.firstHeight, join.secondHeight, pitch>(
    strip.row(join.firstRow), strip.row(join.secondRow) + join.column * channels, strip.row(join.row),
    length - (join.width - 1) * channels);
}

template <class T, int Side>
[[gnu::noinline]] void takeMedians(Strip<T, Side>& strip, T* upper, T* lower, std::ptrdiff_t count, int channels,
                                   T flippedBits)
{
  const UpperHalvesCleared atTheEnd;
  const Vec<T> flip = splat(flippedBits);
  using Selection = Network<Square<Side>::windows>;
  constexpr std::ptrdiff_t pitch = Strip<T, Side>::pitch;
  const T* const from = strip.samples;
  overVectors<T>(count, [=](std::ptrdiff_t i) {
    Selection::template run<Vec<T>>(
      [=](auto k) {
        const Place place = inputPlaces<Side>.at[k];
        return load<T>(from + place.row * pitch + std::ptrdiff_t{place.column} * channels + i);
      },
      [=](auto k, Vec<T> x) { store((k == 0 ? upper : lower) + i, sizeof(T) == 1 ? x : x ^ flip); });
  });
}

template <class T, int Side, int... K>
inline void joinAll(Strip<T, Side>& strip, std::ptrdiff_t length, int channels, std::integer_sequence<int, K...>)
{
  (joinBlocks<T, Side, K>(strip, length, channels), ...);
  (void)strip, (void)length, (void)channels;
}

// The medians of two rows. rows: from the first sample that a window covers.
template <class T, int Side>
void medianRows(const T* const* rows, T* upper, T* lower, std::ptrdiff_t samples, int channels, bool keepFourth,
                T flippedBits)
{
  using S = Strip<T, Side>;
  S strip;
  const std::ptrdiff_t strips = (samples + S::most - 1) / S::most;
  const std::ptrdiff_t most = ((samples + strips - 1) / strips + S::lanes - 1) / S::lanes * S::lanes;
  for (std::ptrdiff_t at = 0; at < samples; at += most) {
    const std::ptrdiff_t count = std::min(most, samples - at), length = count + std::ptrdiff_t{Side - 1} * channels;
    const T* from[Side + 1];
    for (int k = 0; k <= Side; ++k) from[k] = rows[k] + at;
    sortColumns<T, Side>(strip, from, length, flippedBits);
    joinAll<T, Side>(strip, length, channels, std::make_integer_sequence<int, Square<Side>::joins>{});
    const bool direct = !keepFourth && count >= S::lanes;
    takeMedians<T, Side>(strip, direct ? upper + at : strip.medians[0], direct ? lower + at : strip.medians[1], count,
                         channels, flippedBits);
    if (direct) continue;
    T* const to[2] = {upper + at, lower + at};
    for (int k = 0; k < 2; ++k) {
      if (keepFourth)
        mapRow(to[k], count, KeepFourth<Unchanged>{}, static_cast<const T*>(to[k]),
               static_cast<const T*>(strip.medians[k]));
      else std::memcpy(to[k], strip.medians[k], static_cast<std::size_t>(count) * sizeof(T));
    }
  }
}

// ---- 3x3 in registers: vectors of 32 bytes are shifted against each other there, which costs less than to store
// sorted columns and load them again from addresses of which half lie across two cache lines ----

// Bytes from what a pair of rows reads and writes first to what the next pair does, where the region is so large that
// it is fetched a pair ahead; else 0.
struct Ahead {
  std::ptrdiff_t src, dst;
};

#if ZORI_VECTOR_BYTES == 32
template <class T> struct ColumnsOf3 {
  Vec<T> sorted[6]; // of the upper row, of the lower one

  [[gnu::always_inline]] ColumnsOf3(const T* const (&rows)[4], std::ptrdiff_t at)
  {
    Network<Square<3>::columns>::template run<Vec<T>>([&](auto k) { return load<T>(rows[k] + at); },
                                                      [&](auto k, Vec<T> x) { sorted[k] = x; });
  }
};

// column(row, x): a sorted row of the columns x samples on.
template <class T, bool KeepFourth, class Column>
[[gnu::always_inline]] inline void takeMediansOf3(T* upper, T* lower, const Column& column)
{
  Network<Square<3>::windows>::template run<Vec<T>>([&](auto k) { return column(k / 3, k % 3); },
                                                    [&](auto k, Vec<T> x) {
                                                      T* const to = k == 0 ? upper : lower;
                                                      if (KeepFourth) x = select(colourMask<T>(), x, load<T>(to));
                                                      store(to, x);
                                                    });
}

template <class T, int Channels, bool KeepFourth, bool Fetches>
[[gnu::noinline]] void medianRowsInRegisters(const T* const* from, T* upper, T* lower, std::ptrdiff_t samples,
                                             Ahead ahead)
{
  const UpperHalvesCleared atTheEnd;
  using Columns = ColumnsOf3<T>;
  constexpr std::ptrdiff_t lanes = Vec<T>::size;
  constexpr int distance = Channels * static_cast<int>(sizeof(T));
  const T* const rows[4] = {from[0], from[1], from[2], from[3]};
  std::ptrdiff_t i = 0;
  if (const std::ptrdiff_t length = samples + 2 * Channels; length >= 2 * lanes) {
    Columns here(rows, 0);
    for (; i + 2 * lanes <= length; i += lanes) {
      const Columns next(rows, i + lanes);
      if constexpr (Fetches) {
        for (const T* p : {rows[2], rows[3]}) fetchAhead(p + i, ahead.src);
        for (const T* p : {upper, lower}) fetchAhead(p + i, ahead.dst);
      }
      const auto shifted = [&](int row, int column) __attribute__((always_inline))
      {
        const Vec<T> a = here.sorted[row], b = next.sorted[row];
        return column == 0 ? a : column == 1 ? bytesFrom<distance>(a, b) : bytesFrom<2 * distance>(a, b);
      };
      takeMediansOf3<T, KeepFourth>(upper + i, lower + i, shifted);
      here = next;
    }
  }
  while (i < samples) { // the last vectors have none behind them
    i = std::min(i, samples - lanes);
    const Columns columns[3] = {{rows, i}, {rows, i + Channels}, {rows, i + 2 * Channels}};
    const auto loaded = [&](int row, int column) __attribute__((always_inline)) { return columns[column].sorted[row]; };
    takeMediansOf3<T, KeepFourth>(upper + i, lower + i, loaded);
    i += lanes;
  }
}

template <class T, int Channels, bool KeepFourth>
inline void medianRowsInRegisters(const T* const* rows, T* upper, T* lower, std::ptrdiff_t samples, Ahead ahead)
{
  if (ahead.src != 0) medianRowsInRegisters<T, Channels, KeepFourth, true>(rows, upper, lower, samples, ahead);
  else medianRowsInRegisters<T, Channels, KeepFourth, false>(rows, upper, lower, samples, ahead);
}
template <class T>
inline void medianRowsInRegisters(const T* const* rows, T* upper, T* lower, std::ptrdiff_t samples, int channels,
                                  bool keepFourth, Ahead ahead)
{
  if (channels == 1) medianRowsInRegisters<T, 1, false>(rows, upper, lower, samples, ahead);
  else if (channels == 3) medianRowsInRegisters<T, 3, false>(rows, upper, lower, samples, ahead);
  else if (keepFourth) medianRowsInRegisters<T, 4, true>(rows, upper, lower, samples, ahead);
  else medianRowsInRegisters<T, 4, false>(rows, upper, lower, samples, ahead);
}
// False where there is less than a vector. Unsigned samples of 16 bits are compared as such.
template <class T>
inline bool medianRowsInRegisters(const T* const* rows, T* upper, T* lower, std::ptrdiff_t samples, int channels,
                                  bool keepFourth, T flippedBits, Ahead ahead)
{
  if (samples < Vec<T>::size) return false;
  if (flippedBits) {
    using U = std::make_unsigned_t<T>;
    const U* unsignedRows[4];
    for (int k = 0; k < 4; ++k) unsignedRows[k] = reinterpret_cast<const U*>(rows[k]);
    medianRowsInRegisters<U>(unsignedRows, reinterpret_cast<U*>(upper), reinterpret_cast<U*>(lower), samples, channels,
                             keepFourth, ahead);
  } else medianRowsInRegisters<T>(rows, upper, lower, samples, channels, keepFourth, ahead);
  return true;
}
#else
template <class T> inline bool medianRowsInRegisters(const T* const*, T*, T*, std::ptrdiff_t, int, bool, T, Ahead)
{
  return false;
}
#endif

// The region. src: from the first sample that a window covers. Samples are compared with their bits flipped, so that
// one kernel serves signed and unsigned ones.
template <class T, int Side>
[[gnu::noinline]] void filterSquare(Rows<const T> src, Rows<T> dst, ZorImgSize roi, int channels, bool keepFourth,
                                    T flippedBits, TeamRule team)
{
  const std::ptrdiff_t samples = std::ptrdiff_t{roi.width} * channels;
  const bool isLarge = static_cast<long long>(samples) * static_cast<int>(sizeof(T)) * roi.height >= 1 << 20;
  const Ahead ahead = isLarge ? Ahead{rowOffset(2, src.step), rowOffset(2, dst.step)} : Ahead{0, 0};
  staticRows(team, Rounding::Callers, roi.height / 2 + roi.height % 2, [=](int pair) {
    const std::ptrdiff_t y = std::ptrdiff_t{2} * pair;
    const bool alone = y + 1 == roi.height; // an odd last row is its own partner: it gets the same outer row
    const T* rows[Side + 1];
    for (int k = 0; k < Side; ++k) rows[k] = src[y + k];
    rows[Side] = alone ? rows[0] : src[y + Side];
    T *const upper = dst[y], *const lower = alone ? upper : dst[y + 1];
    if (Side == 3 && medianRowsInRegisters<T>(rows, upper, lower, samples, channels, keepFourth, flippedBits, ahead))
      return;
    medianRows<T, Side>(rows, upper, lower, samples, channels, keepFourth, flippedBits);
  });
}

} // namespace columns
} // namespace zori
