// Cosine transforms of real vectors of an odd length, two by two, through complex transforms of the same length in
// lanes; and what they share with those of even lengths (cosine_halves.h).
//
// Vectors a and b, folded (even samples forwards, then odd ones backwards), are the real and the imaginary part of one
// complex vector. Of its transform Z the two come apart by symmetry, and with w(k) = e^(-pi i k / 2n)
//
//   y(k) - i y(n - k) = sqrt(2 / n) * w(k) * Z(k), of each of the two.
//
// The inverse goes the same way back. Each coefficient but the first costs two products for its vector. Which
// vectors go together (rows 2j and 2j + 1, columns 2j and 2j + 1) does not depend on the number of lanes.
#pragma once

#include "image_columns.h"

namespace zori {
namespace {

struct CosinePass {
  const LanePlan& plan;
  const void* block;
  // w = sqrt(1 / 2n) * (cos, sin) of pi k / 2n: of odd lengths w(k), k = 1, 2, ... below n / 2; of even ones (cos, sin)
  // of 2 pi k / n, w(k) and w(n / 2 - k), k = 1, 2, ... up to n / 4
  const float* turns;
  float single; // sqrt(1 / n): the factor of coefficients 0 and n / 2
  std::ptrdiff_t length;

  std::ptrdiff_t pairs() const { return length / 2; } // of an odd length
  template <class V> Complex<V> turn(std::ptrdiff_t k) const
  {
    return {allLanes<V>(turns[2 * (k - 1)]), allLanes<V>(turns[2 * (k - 1) + 1])};
  }
};

// Where sample i of n stands in a folded vector.
inline std::ptrdiff_t folded(std::ptrdiff_t i, std::ptrdiff_t n) { return i % 2 == 0 ? i / 2 : n - 1 - i / 2; }

// From Z(k) and Z(n - k) to coefficients k and n - k, those of a in re, those of b in im.
template <class V> inline void toCoefficients(Complex<V>& z, Complex<V>& mirror, Complex<V> turn)
{
  const V c = turn.re, s = turn.im;
  const V ar = z.re + mirror.re, ai = z.im - mirror.im, br = z.im + mirror.im, bi = mirror.re - z.re;
  z = {ar * c + ai * s, br * c + bi * s};
  mirror = {ar * s - ai * c, br * s - bi * c};
}

// And back.
template <class V> inline void fromCoefficients(Complex<V>& z, Complex<V>& mirror, Complex<V> turn)
{
  const V c = turn.re, s = turn.im;
  const V ar = z.re * c + mirror.re * s, ai = z.re * s - mirror.re * c;
  const V br = z.im * c + mirror.im * s, bi = z.im * s - mirror.im * c;
  z = {ar - bi, ai + br};
  mirror = {ar + bi, br - ai};
}

// ---- Rows ----

// body(x, n) for n columns from x on: N of them, known to the compiler, and what is left at the end.
template <int N, class Body> inline void inTiles(std::ptrdiff_t first, std::ptrdiff_t end, Body body)
{
  std::ptrdiff_t x = first;
  for (; x + N <= end; x += N) body(x, std::integral_constant<int, N>{});
  if (x < end) body(x, static_cast<int>(end - x));
}

// Two sets of rows, those of a and those of b.
template <class Set> struct RowSets {
  const Set &even, &odd;
  static constexpr int tile = Set::tile;
  using V = typename Set::Vector;

  void load(std::ptrdiff_t x, int columns, V (&a)[tile], V (&b)[tile]) const
  {
    loadColumns<tile>(even, x, columns, a);
    loadColumns<tile>(odd, x, columns, b);
  }
  void store(std::ptrdiff_t x, int columns, V (&a)[tile], V (&b)[tile]) const
  {
    storeColumns<tile>(even, x, columns, a);
    storeColumns<tile>(odd, x, columns, b);
  }
};

template <class From, class To>
[[gnu::noinline]] void forwardCosineRows(const CosinePass& pass, const RowSets<From>& from, const RowSets<To>& to,
                                         float* buffer)
{
  using V = typename From::Vector;
  constexpr int N = From::tile;
  const LaneBuffer<V> lanes(buffer, pass.plan.position(pass.block), false);
  const std::ptrdiff_t n = pass.length;
  inTiles<N>(0, n, [&](std::ptrdiff_t x, auto columns) {
    V a[N], b[N];
    from.load(x, columns, a, b);
    for (int i = 0; i < columns; ++i) lanes.putAt(folded(x + i, n), a[i], b[i]);
  });
  transformLanes<V>(pass.plan, pass.block, buffer, 1);

  const Complex<V> first = scaled(lanes.result(0), allLanes<V>(pass.single));
  V firstA[N] = {first.re}, firstB[N] = {first.im};
  to.store(0, 1, firstA, firstB);
  inTiles<N>(1, 1 + pass.pairs(), [&](std::ptrdiff_t k, auto columns) {
    V a[N], b[N], mirrorA[N], mirrorB[N];
    for (int i = 0; i < columns; ++i) {
      Complex<V> z = lanes.result(k + i), mirror = lanes.result(n - k - i);
      toCoefficients(z, mirror, pass.turn<V>(k + i));
      a[i] = z.re, b[i] = z.im;
      mirrorA[columns - 1 - i] = mirror.re, mirrorB[columns - 1 - i] = mirror.im;
    }
    to.store(k, columns, a, b);
    to.store(n - k - columns + 1, columns, mirrorA, mirrorB);
  });
}

template <class From, class To>
[[gnu::noinline]] void inverseCosineRows(const CosinePass& pass, const RowSets<From>& from, const RowSets<To>& to,
                                         float* buffer)
{
  using V = typename From::Vector;
  constexpr int N = From::tile;
  const LaneBuffer<V> lanes(buffer, pass.plan.position(pass.block), true);
  const std::ptrdiff_t n = pass.length;
  V firstA[N], firstB[N];
  from.load(0, 1, firstA, firstB);
  lanes.putAt(0, firstA[0] * allLanes<V>(pass.single), firstB[0] * allLanes<V>(pass.single));
  inTiles<N>(1, 1 + pass.pairs(), [&](std::ptrdiff_t k, auto columns) {
    V a[N], b[N], mirrorA[N], mirrorB[N];
    from.load(k, columns, a, b);
    from.load(n - k - columns + 1, columns, mirrorA, mirrorB);
    for (int i = 0; i < columns; ++i) {
      Complex<V> z = {a[i], b[i]}, mirror = {mirrorA[columns - 1 - i], mirrorB[columns - 1 - i]};
      fromCoefficients(z, mirror, pass.turn<V>(k + i));
      lanes.putAt(k + i, z.re, z.im);
      lanes.putAt(n - k - i, mirror.re, mirror.im);
    }
  });
  transformLanes<V>(pass.plan, pass.block, buffer, 1);
  inTiles<N>(0, n, [&](std::ptrdiff_t x, auto columns) {
    V a[N], b[N];
    for (int i = 0; i < columns; ++i) {
      const Complex<V> z = lanes.result(folded(x + i, n));
      a[i] = z.re, b[i] = z.im;
    }
    to.store(x, columns, a, b);
  });
}

// ---- Columns: blocks of neighbouring ones are gathered row by row ----

// Neighbouring columns of floats, in pairs.
template <class V> struct FloatPairs {
  using Vector = V;
  static constexpr int size = laneCount<V>;
  std::ptrdiff_t first; // float in a row
  int floats;

  int vectors() const { return (floats + 2 * size - 1) / (2 * size); }
  Complex<V> take(const float* row, int vector) const
  {
    const float* p = row + first + 2 * size * vector;
    alignas(32) float part[2 * size];
    if (const int left = floats - 2 * size * vector; left < 2 * size) {
      for (int i = 0; i < 2 * size; ++i) part[i] = i < left ? get<float>(p + i) : 0;
      p = part;
    }
    const V x = loadAnywhere<V>(p), y = loadAnywhere<V>(p + size);
    return {evenLanes(x, y), oddLanes(x, y)};
  }
  void bring(float* row, int vector, Complex<V> z) const
  {
    float* const p = row + first + 2 * size * vector;
    const V x = pairsLow(z.re, z.im), y = pairsHigh(z.re, z.im);
    if (const int left = floats - 2 * size * vector; left < 2 * size) {
      alignas(32) float part[2 * size];
      storeLanes(part, x);
      storeLanes(part + size, y);
      for (int i = 0; i < left; ++i) put(p + i, part[i]);
    } else {
      store(p, x);
      store(p + size, y);
    }
  }
  const float* firstIn(const float* row) const { return row + first; }
  int floatsInRow() const { return floats; }
};

// Pixels in pairs, the channels of one in lanes.
template <Layout L> struct PixelPairs {
  using Vector = F32x4;
  std::ptrdiff_t first, width; // pixel of the first pair in a row, pixels in a row
  int pixels;

  int vectors() const { return (pixels + 1) / 2; }
  Complex<F32x4> take(const float* row, int vector) const
  {
    const std::ptrdiff_t x = first + 2 * vector;
    return {loadPixel<L>(row, x, width), x + 1 < width ? loadPixel<L>(row, x + 1, width) : allLanes<F32x4>(0)};
  }
  void bring(float* row, int vector, Complex<F32x4> z) const
  {
    const std::ptrdiff_t x = first + 2 * vector;
    storePixel<L>(row, x, z.re);
    if (x + 1 < width) storePixel<L>(row, x + 1, z.im);
  }
  const float* firstIn(const float* row) const { return row + first * channels<L>; }
  int floatsInRow() const { return pixels * channels<L>; }
};

// Rows are fetched some time ahead of their use: no two of them stand near each other.
constexpr std::ptrdiff_t cosineRowsAhead = 8;
template <class Columns, class P> inline void fetchRow(const Columns& columns, Rows<P> rows, std::ptrdiff_t y)
{
  const float *const p = columns.firstIn(rows[y]), *const last = p + columns.floatsInRow() - 1;
  for (const float* q = p; q < last; q += 16) prefetch(q);
  prefetch(last);
}

// The elements of a block in the buffer; a vector's real and imaginary part by places that the inverse exchanges.
template <class V> struct BlockLanes {
  float* buffer;
  const std::int32_t* position;
  std::ptrdiff_t lanes, re, im;

  BlockLanes(const CosinePass& pass, float* buffer_, int vectors, bool swapped)
    : buffer(buffer_), position(pass.plan.position(pass.block)), lanes(std::ptrdiff_t{vectors} * laneCount<V>),
      re(swapped ? lanes : 0), im(swapped ? 0 : lanes)
  {}
  void putAt(std::ptrdiff_t element, int vector, Complex<V> z) const
  {
    float* const p = buffer + 2 * lanes * element + vector * laneCount<V>;
    storeLanes(p + re, z.re);
    storeLanes(p + im, z.im);
  }
  Complex<V> result(std::ptrdiff_t k, int vector) const
  {
    const float* const p = buffer + 2 * lanes * position[k] + vector * laneCount<V>;
    return {loadLanes<V>(p + re), loadLanes<V>(p + im)};
  }
};

template <class Columns>
[[gnu::noinline]] void forwardCosineColumns(const CosinePass& pass, const Columns& columns, Rows<const float> src,
                                            Rows<float> dst, float* buffer)
{
  using V = typename Columns::Vector;
  const int vectors = columns.vectors();
  const std::ptrdiff_t n = pass.length;
  const BlockLanes<V> lanes(pass, buffer, vectors, false);
  for (std::ptrdiff_t y = 0; y < n; ++y) {
    fetchRow(columns, src, std::min(y + cosineRowsAhead, n - 1));
    const float* const row = src[y];
    for (int v = 0; v < vectors; ++v) lanes.putAt(folded(y, n), v, columns.take(row, v));
  }
  transformLanes<V>(pass.plan, pass.block, buffer, vectors);

  const V single = allLanes<V>(pass.single);
  for (int v = 0; v < vectors; ++v) columns.bring(dst[0], v, scaled(lanes.result(0, v), single));
  for (std::ptrdiff_t k = 1; k <= pass.pairs(); ++k) {
    fetchRow(columns, dst, std::min(k + cosineRowsAhead, n - 1));
    fetchRow(columns, dst, std::max<std::ptrdiff_t>(n - k - cosineRowsAhead, 0));
    const Complex<V> turn = pass.turn<V>(k);
    float *const row = dst[k], *const mirrorRow = dst[n - k];
    for (int v = 0; v < vectors; ++v) {
      Complex<V> z = lanes.result(k, v), mirror = lanes.result(n - k, v);
      toCoefficients(z, mirror, turn);
      columns.bring(row, v, z);
      columns.bring(mirrorRow, v, mirror);
    }
  }
}

template <class Columns>
[[gnu::noinline]] void inverseCosineColumns(const CosinePass& pass, const Columns& columns, Rows<const float> src,
                                            Rows<float> dst, float* buffer)
{
  using V = typename Columns::Vector;
  const int vectors = columns.vectors();
  const std::ptrdiff_t n = pass.length;
  const BlockLanes<V> lanes(pass, buffer, vectors, true);
  const V single = allLanes<V>(pass.single);
  for (int v = 0; v < vectors; ++v) lanes.putAt(0, v, scaled(columns.take(src[0], v), single));
  for (std::ptrdiff_t k = 1; k <= pass.pairs(); ++k) {
    fetchRow(columns, src, std::min(k + cosineRowsAhead, n - 1));
    fetchRow(columns, src, std::max<std::ptrdiff_t>(n - k - cosineRowsAhead, 0));
    const Complex<V> turn = pass.turn<V>(k);
    const float *const row = src[k], *const mirrorRow = src[n - k];
    for (int v = 0; v < vectors; ++v) {
      Complex<V> z = columns.take(row, v), mirror = columns.take(mirrorRow, v);
      fromCoefficients(z, mirror, turn);
      lanes.putAt(k, v, z);
      lanes.putAt(n - k, v, mirror);
    }
  }
  transformLanes<V>(pass.plan, pass.block, buffer, vectors);
  for (std::ptrdiff_t y = 0; y < n; ++y) {
    fetchRow(columns, dst, std::min(y + cosineRowsAhead, n - 1));
    float* const row = dst[y];
    for (int v = 0; v < vectors; ++v) columns.bring(row, v, lanes.result(folded(y, n), v));
  }
}

} // namespace
} // namespace zori
