// Complex columns of an image in lanes: blocks of them are gathered row by row, transformed and scattered.
//
// In a packed spectrum columns 2k-1 and 2k of pixels are the parts of complex column k. The first column and, where the
// width is even, the last are real; together they are one complex column in the last lanes of the last block and come
// apart by symmetry.
#pragma once

#include "image_rows.h"

namespace zori {
namespace {

struct ColumnPass {
  const LanePlan& plan;
  const void* block;
  float factor;
  bool inverse;
  std::ptrdiff_t height;
};

// Lanes of a block's elements: at(element, lane) where lane `lane` has its real part; im floats behind stands the
// other.
struct BlockBuffer {
  float* buffer;
  const std::int32_t* position;
  std::ptrdiff_t lanes, re, im;

  BlockBuffer(const ColumnPass& pass, float* buffer_, std::ptrdiff_t lanes_)
    : buffer(buffer_), position(pass.plan.position(pass.block)), lanes(lanes_), re(pass.inverse ? lanes : 0),
      im(pass.inverse ? 0 : lanes)
  {}
  float* element(std::ptrdiff_t j) const { return buffer + 2 * lanes * j; }
  float* result(std::ptrdiff_t k) const { return element(position[k]); }
};

// ---- Pairs of floats, one complex column in each lane ----

// Where evenLanes puts pair i of a vector's two.
template <class V> inline int laneOfPair(int pair)
{
  constexpr int size = laneCount<V>;
  alignas(32) float number[2 * size], even[size];
  for (int i = 0; i < 2 * size; ++i) number[i] = static_cast<float>(i / 2);
  storeLanes(even, evenLanes(loadLanes<V>(number), loadLanes<V>(number + size)));
  int lane = 0;
  while (even[lane] != static_cast<float>(pair % size)) ++lane;
  return pair / size * size + lane;
}

// Up to `lanes` columns of pairs.
template <class V> struct PairColumns {
  using Vector = V;
  static constexpr int size = laneCount<V>;
  std::ptrdiff_t first; // float of the first pair in a row
  int pairs, vectors;   // columns there are, vectors that an element has

  void gatherRow(const BlockBuffer& b, const float* row, float* to) const
  {
    const float* p = row + first;
    const int whole = pairs / size;
    for (int v = 0; v < whole; ++v, p += 2 * size) putPairs(b, to + v * size, pairsAt(p), pairsAt(p + size));
    if (whole < vectors) {
      alignas(32) float part[2 * size] = {};
      copyPart(part, p);
      putPairs(b, to + whole * size, pairsAt(part), pairsAt(part + size));
    }
  }
  void scatterRow(const BlockBuffer& b, const float* from, V factor, float* row) const
  {
    float* p = row + first;
    const int whole = pairs / size;
    for (int v = 0; v < whole; ++v, p += 2 * size) takePairs(b, from + v * size, factor, p);
    if (whole < vectors) {
      alignas(32) float part[2 * size];
      takePairs(b, from + whole * size, factor, part);
      copyPart(p, part);
    }
  }
  // The floats that a row's block begins with, and the cache lines that they may take.
  const float* fetched(const float* row) const { return row + first; }
  int lines() const { return vectors * size / 8 + 1; }
  // The real columns in the lane behind the last pair.
  int realLane() const { return laneOfPair<V>(pairs); }
  static constexpr int realLanes = 1;

private:
  static V pairsAt(const float* p) { return load<float, V::bytes>(p); }
  static void putPairs(const BlockBuffer& b, float* to, V x, V y)
  {
    storeLanes(to + b.re, evenLanes(x, y));
    storeLanes(to + b.im, oddLanes(x, y));
  }
  static void takePairs(const BlockBuffer& b, const float* from, V factor, float* p)
  {
    const V re = loadLanes<V>(from + b.re) * factor, im = loadLanes<V>(from + b.im) * factor;
    store(p, pairsLow(re, im));
    store(p + size, pairsHigh(re, im));
  }
  // The pairs that do not fill a vector.
  void copyPart(float* to, const float* from) const
  {
    for (int i = 0; i < pairs % size; ++i) put(to + 2 * i, get<std::uint64_t>(from + 2 * i));
  }
};

// ---- Pixels, a complex column of each channel in lanes of four ----

template <Layout L> struct PixelColumns {
  using Vector = F32x4;
  std::ptrdiff_t first, width; // pixel of the first pair in a row
  int pairs;

  void gatherRow(const BlockBuffer& b, const float* row, float* to) const
  {
    for (int v = 0; v < pairs; ++v) {
      storeLanes(to + 4 * v + b.re, loadPixel<L>(row, first + 2 * v, width));
      storeLanes(to + 4 * v + b.im, loadPixel<L>(row, first + 2 * v + 1, width));
    }
  }
  void scatterRow(const BlockBuffer& b, const float* from, F32x4 factor, float* row) const
  {
    for (int v = 0; v < pairs; ++v) {
      storePixel<L>(row, first + 2 * v, loadLanes<F32x4>(from + 4 * v + b.re) * factor);
      storePixel<L>(row, first + 2 * v + 1, loadLanes<F32x4>(from + 4 * v + b.im) * factor);
    }
  }
  const float* fetched(const float* row) const { return row + first * channels<L>; }
  int lines() const { return pairs * channels<L> / 8 + 1; }
  int realLane() const { return 4 * pairs; }
  static constexpr int realLanes = processed<L>;
};

// ---- The two real columns ----

// Column 0 and, where the width is even, the last one of an image. A missing one reads as zeros.
struct RealColumns {
  bool areThere;
  std::ptrdiff_t last; // float of the last column in a row, 0 when there is none
};

// The number at row y of the first or of the last column.
inline float realAt(const float* row, std::ptrdiff_t column, bool isThere)
{
  return isThere ? get<float>(row + column) : 0;
}

template <class Image>
[[gnu::noinline]] void takeRealColumns(const ColumnPass& pass, const RealColumns& real, Rows<Image> src, int channel,
                                       const BlockBuffer& b, std::ptrdiff_t lane)
{
  const bool two = real.last != 0;
  const std::ptrdiff_t height = pass.height, first = channel, last = real.last + channel;
  const auto putAt = [&](std::ptrdiff_t y, float re, float im) {
    float* const p = b.element(y) + lane;
    p[b.re] = re;
    p[b.im] = im;
  };
  const auto pairAt = [&](std::ptrdiff_t y, float& a, float& c) {
    a = realAt(src[y], first, true);
    c = realAt(src[y], last, two);
  };
  float a, c, ai, ci;
  if (!pass.inverse) {
    for (std::ptrdiff_t y = 0; y < height; ++y) {
      pairAt(y, a, c);
      putAt(y, a, c);
    }
    return;
  }
  pairAt(0, a, c);
  putAt(0, a, c);
  for (std::ptrdiff_t k = 1; 2 * k < height; ++k) {
    pairAt(2 * k - 1, a, c);
    pairAt(2 * k, ai, ci);
    putAt(k, a - ci, ai + c);
    putAt(height - k, a + ci, c - ai);
  }
  if (height % 2 == 0) {
    pairAt(height - 1, a, c);
    putAt(height / 2, a, c);
  }
}

[[gnu::noinline]] inline void bringRealColumns(const ColumnPass& pass, const RealColumns& real, Rows<float> dst,
                                               int channel, const BlockBuffer& b, std::ptrdiff_t lane)
{
  const bool two = real.last != 0;
  const std::ptrdiff_t height = pass.height;
  const float factor = pass.factor, half = factor * 0.5f;
  const auto putPair = [&](std::ptrdiff_t y, float a, float c) {
    put(dst[y] + channel, a);
    if (two) put(dst[y] + real.last + channel, c);
  };
  const auto result = [&](std::ptrdiff_t k) {
    const float* const p = b.result(k) + lane;
    return Complex<float>{p[b.re], p[b.im]};
  };
  const auto putReal = [&](std::ptrdiff_t y, std::ptrdiff_t k) {
    const Complex<float> z = result(k);
    putPair(y, z.re * factor, z.im * factor);
  };
  if (pass.inverse) {
    for (std::ptrdiff_t y = 0; y < height; ++y) putReal(y, y);
    return;
  }
  putReal(0, 0);
  for (std::ptrdiff_t k = 1; 2 * k < height; ++k) {
    const Complex<float> z = result(k), y = result(height - k);
    putPair(2 * k - 1, (z.re + y.re) * half, (z.im + y.im) * half);
    putPair(2 * k, (z.im - y.im) * half, (y.re - z.re) * half);
  }
  if (height % 2 == 0) putReal(height - 1, height / 2);
}

// ---- A block ----

// Rows are fetched so many ahead of their use: no two of them stand near each other.
constexpr std::ptrdiff_t rowsAhead = 6;

template <class Columns> inline void fetchLines(const Columns& columns, const float* row)
{
  const char* const p = reinterpret_cast<const char*>(columns.fetched(row));
  for (int line = 0; line < columns.lines(); ++line) prefetch(p + 64 * line);
}

template <class Columns, class P>
inline void fetchAhead(const Columns& columns, Rows<P> rows, std::ptrdiff_t y, std::ptrdiff_t height)
{
  if (y + rowsAhead < height) fetchLines(columns, rows[y + rowsAhead]);
}

template <class Columns>
[[gnu::noinline]] void gatherBlock(const Columns& columns, Rows<const float> src, std::ptrdiff_t height,
                                   const BlockBuffer& b)
{
  for (std::ptrdiff_t y = 0; y < height; ++y) {
    fetchAhead(columns, src, y, height);
    columns.gatherRow(b, src[y], b.element(y));
  }
}

template <class Columns>
[[gnu::noinline]] void scatterBlock(const Columns& columns, Rows<float> dst, std::ptrdiff_t height, float factor,
                                    const BlockBuffer& b)
{
  const auto by = allLanes<typename Columns::Vector>(factor);
  for (std::ptrdiff_t y = 0; y < height; ++y) {
    fetchAhead(columns, dst, y, height);
    columns.scatterRow(b, b.result(y), by, dst[y]);
  }
}

// vectors of lanes make an element.
template <class Columns>
void transformBlock(const ColumnPass& pass, const Columns& columns, const RealColumns& real, int vectors,
                    Rows<const float> src, Rows<float> dst, float* buffer)
{
  using V = typename Columns::Vector;
  const BlockBuffer b(pass, buffer, static_cast<std::ptrdiff_t>(vectors) * laneCount<V>);
  gatherBlock(columns, src, pass.height, b);
  if (real.areThere)
    for (int c = 0; c < Columns::realLanes; ++c) takeRealColumns(pass, real, src, c, b, columns.realLane() + c);
  transformLanes<V>(pass.plan, pass.block, buffer, vectors);
  scatterBlock(columns, dst, pass.height, pass.factor, b);
  if (real.areThere)
    for (int c = 0; c < Columns::realLanes; ++c) bringRealColumns(pass, real, dst, c, b, columns.realLane() + c);
}

} // namespace
} // namespace zori
