// Cosine transforms of real vectors of an even length, each by itself, through complex transforms of half the length in
// lanes.
//
// Neighbours in the folded vector (cosine_passes.h) are the parts of one of n / 2 complex values. Of their transform Z
//
//   2 V(k) = Z(k) + conj Z(n/2 - k) - i u(k) (Z(k) - conj Z(n/2 - k)), u(k) = e^(-2 pi i k / n),
//
// is the folded vector's own, and y(k) - i y(n - k) = sqrt(2 / n) * e^(-pi i k / 2n) * V(k). Frequencies k and n/2 - k
// are formed together, which makes four coefficients. The buffer is half as large as that of pairs, and lanes are
// neighbours in the image, without shuffles.
#pragma once

#include "cosine_passes.h"

namespace zori {
namespace {

// Values of one vector of lanes, or of several.
template <class V> struct HalfLanes {
  float* buffer;
  const std::int32_t* position;
  std::ptrdiff_t lanes, swap; // where the parts have changed places, the last bit of a sample's place is flipped

  HalfLanes(const CosinePass& pass, float* buffer_, int vectors, bool swapped)
    : buffer(buffer_), position(pass.plan.position(pass.block)), lanes(std::ptrdiff_t{vectors} * laneCount<V>),
      swap(swapped)
  {}
  // Sample i of the vector, of n, before the transform and after it.
  float* sample(std::ptrdiff_t i, std::ptrdiff_t n, int vector) const
  {
    return buffer + lanes * (folded(i, n) ^ swap) + vector * laneCount<V>;
  }
  V resultSample(std::ptrdiff_t i, std::ptrdiff_t n, int vector) const
  {
    const std::ptrdiff_t at = folded(i, n) ^ swap;
    return loadLanes<V>(buffer + lanes * (2 * std::ptrdiff_t{position[at / 2]} + at % 2) + vector * laneCount<V>);
  }
  void putAt(std::ptrdiff_t k, int vector, Complex<V> z) const
  {
    float* const p = buffer + 2 * lanes * k + vector * laneCount<V>;
    storeLanes(p + lanes * swap, z.re);
    storeLanes(p + lanes * (1 - swap), z.im);
  }
  Complex<V> result(std::ptrdiff_t k, int vector) const // not swapped
  {
    const float* const p = buffer + 2 * lanes * position[k] + vector * laneCount<V>;
    return {loadLanes<V>(p), loadLanes<V>(p + lanes)};
  }
};

template <class V> struct HalfTurns {
  Complex<V> u, first, second; // u(k), and the factors of k and of n/2 - k

  HalfTurns(const CosinePass& pass, std::ptrdiff_t k)
  {
    const float* const p = pass.turns + 6 * (k - 1);
    u = {allLanes<V>(p[0]), allLanes<V>(p[1])};
    first = {allLanes<V>(p[2]), allLanes<V>(p[3])};
    second = {allLanes<V>(p[4]), allLanes<V>(p[5])};
  }
  // From Z(k) and Z(n/2 - k) to coefficients k, n/2 - k, n/2 + k and n - k, and back.
  void toCoefficients(Complex<V> z, Complex<V> y, V& low, V& below, V& above, V& high) const
  {
    const V sr = z.re + y.re, si = z.im - y.im, dr = z.re - y.re, di = z.im + y.im;
    const V tr = di * u.re - dr * u.im, ti = dr * u.re + di * u.im;
    const V ar = sr + tr, ai = si - ti, br = sr - tr, bi = si + ti; // bi negated
    low = ar * first.re + ai * first.im;
    high = ar * first.im - ai * first.re;
    below = br * second.re - bi * second.im;
    above = br * second.im + bi * second.re;
  }
  void fromCoefficients(V low, V below, V above, V high, Complex<V>& z, Complex<V>& y) const
  {
    const V ar = low * first.re + high * first.im, ai = low * first.im - high * first.re;
    const V br = below * second.re + above * second.im, bi = above * second.re - below * second.im;
    const V sr = ar + br, si = ai + bi, dr = ar - br, di = ai - bi; // bi negated
    const V qr = dr * u.im + di * u.re, qi = dr * u.re - di * u.im; // qr negated
    z = {sr - qr, si + qi};
    y = {sr + qr, qi - si};
  }
};

template <class V> inline Complex<V> ends(const CosinePass& pass, Complex<V> z)
{
  const V single = allLanes<V>(pass.single);
  return {(z.re + z.im) * single, (z.re - z.im) * single};
}

// ---- Rows ----

// The line of the cache that stands some columns away from x, once in as many columns as it has.
template <class Set> inline void fetchLine(const Set& set, std::ptrdiff_t x, std::ptrdiff_t away)
{
  if (x % 16 == 0) set.fetch(x + away);
}

// Tiles of columns begin at multiples of their width, so that no line of the image is visited more often than needs be:
// of the coefficients that go up with k, the last of a tile waits for the next one.
template <class From, class To>
[[gnu::noinline]] void forwardHalvedRows(const CosinePass& pass, const From& from, const To& to, float* buffer)
{
  using V = typename From::Vector;
  constexpr int N = From::tile;
  const HalfLanes<V> lanes(pass, buffer, 1, false);
  const std::ptrdiff_t n = pass.length, half = n / 2;
  inTiles<N>(0, n, [&](std::ptrdiff_t x, auto columns) {
    V t[N];
    fetchLine(from, x, 48);
    loadColumns<N>(from, x, columns, t);
    for (int i = 0; i < columns; ++i) storeLanes(lanes.sample(x + i, n, 0), t[i]);
  });
  transformLanes<V>(pass.plan, pass.block, buffer, 1);

  const Complex<V> first = ends(pass, lanes.result(0, 0));
  V low[N + 1] = {first.re}, above[N + 1] = {first.im}, below[N] = {}, high[N] = {};
  const auto form = [&](std::ptrdiff_t k, auto columns) { // k + 1, k + 2, ...
    for (int i = 0; i < columns; ++i)
      HalfTurns<V>(pass, k + i + 1)
        .toCoefficients(lanes.result(k + i + 1, 0), lanes.result(half - k - i - 1, 0), low[i + 1],
                        below[columns - 1 - i], above[i + 1], high[columns - 1 - i]);
  };
  const auto store = [&](std::ptrdiff_t x, auto columns, const V* t) {
    V tile[N];
    for (int i = 0; i < N; ++i) tile[i] = t[i];
    storeColumns<N>(to, x, columns, tile);
  };
  std::ptrdiff_t k = 0;
  constexpr std::integral_constant<int, N> whole;
  for (; k + N <= half / 2; k += N) {
    fetchLine(to, k, 32), fetchLine(to, half - k, -48), fetchLine(to, half + k, 32), fetchLine(to, n - k, -48);
    form(k, whole);
    const V nextLow = low[N], nextAbove = above[N];
    store(k, whole, low);
    store(half - k - N, whole, below);
    store(half + k, whole, above);
    store(n - k - N, whole, high);
    low[0] = nextLow, above[0] = nextAbove;
  }
  const int left = static_cast<int>(half / 2 - k);
  form(k, left);
  store(k, left + 1, low);
  store(half + k, left + 1, above);
  if (left) {
    store(half - k - left, left, below);
    store(n - k - left, left, high);
  }
}

template <class From, class To>
[[gnu::noinline]] void inverseHalvedRows(const CosinePass& pass, const From& from, const To& to, float* buffer)
{
  using V = typename From::Vector;
  constexpr int N = From::tile;
  const HalfLanes<V> lanes(pass, buffer, 1, true);
  const std::ptrdiff_t n = pass.length, half = n / 2;
  V first[N], middle[N];
  loadColumns<N>(from, 0, 1, first);
  loadColumns<N>(from, half, 1, middle);
  lanes.putAt(0, 0, ends(pass, Complex<V>{first[0], middle[0]}));
  inTiles<N>(1, 1 + half / 2, [&](std::ptrdiff_t k, auto columns) {
    V low[N], below[N], above[N], high[N];
    fetchLine(from, k - 1, 48), fetchLine(from, half - k + 1, -64);
    fetchLine(from, half + k - 1, 48), fetchLine(from, n - k + 1, -64);
    loadColumns<N>(from, k, columns, low);
    loadColumns<N>(from, half - k - columns + 1, columns, below);
    loadColumns<N>(from, half + k, columns, above);
    loadColumns<N>(from, n - k - columns + 1, columns, high);
    for (int i = 0; i < columns; ++i) {
      const int mirror = columns - 1 - i;
      Complex<V> z, y;
      HalfTurns<V>(pass, k + i).fromCoefficients(low[i], below[mirror], above[i], high[mirror], z, y);
      lanes.putAt(k + i, 0, z);
      lanes.putAt(half - k - i, 0, y);
    }
  });
  transformLanes<V>(pass.plan, pass.block, buffer, 1);
  inTiles<N>(0, n, [&](std::ptrdiff_t x, auto columns) {
    V t[N];
    fetchLine(to, x, 48);
    for (int i = 0; i < columns; ++i) t[i] = lanes.resultSample(x + i, n, 0);
    storeColumns<N>(to, x, columns, t);
  });
}

// ---- Columns: blocks of neighbouring ones, row by row ----

// As many as fill a line of the cache, where `whole`.
template <class V, bool whole> struct SingleFloats {
  using Vector = V;
  static constexpr int size = laneCount<V>, line = 16;
  std::ptrdiff_t first; // float in a row
  int floats;

  int vectors() const { return whole ? line / size : (floats + size - 1) / size; }
  V take(const float* row, int vector) const
  {
    const float* const p = row + first + size * vector;
    const int left = floats - size * vector;
    if (whole || left >= size) return loadAnywhere<V>(p);
    alignas(32) float part[size];
    for (int i = 0; i < size; ++i) part[i] = i < left ? get<float>(p + i) : 0;
    return loadLanes<V>(part);
  }
  void bring(float* row, int vector, V x) const
  {
    float* const p = row + first + size * vector;
    const int left = floats - size * vector;
    if (whole || left >= size) return store(p, x);
    alignas(32) float part[size];
    storeLanes(part, x);
    for (int i = 0; i < left; ++i) put(p + i, part[i]);
  }
  const float* firstIn(const float* row) const { return row + first; }
  int floatsInRow() const { return whole ? line : floats; }
};

// The channels of a pixel in lanes.
template <Layout L> struct SinglePixels {
  using Vector = F32x4;
  std::ptrdiff_t first, width; // pixels in a row
  int pixels;

  int vectors() const { return pixels; }
  F32x4 take(const float* row, int vector) const { return loadPixel<L>(row, first + vector, width); }
  void bring(float* row, int vector, F32x4 x) const { storePixel<L>(row, first + vector, x); }
  const float* firstIn(const float* row) const { return row + first * channels<L>; }
  int floatsInRow() const { return pixels * channels<L>; }
};

// The rows of four coefficients, the next ones only: where steps are powers of two all rows share a few places of the
// nearest cache.
template <class Columns, class P>
inline void fetchFourRows(const Columns& columns, Rows<P> rows, std::ptrdiff_t k, std::ptrdiff_t n)
{
  for (const std::ptrdiff_t y : {k, n / 2 - k, n / 2 + k, n - k}) fetchRow(columns, rows, y);
}

template <class Columns>
[[gnu::noinline]] void forwardHalvedColumns(const CosinePass& pass, const Columns& columns, Rows<const float> src,
                                            Rows<float> dst, float* buffer)
{
  using V = typename Columns::Vector;
  const int vectors = columns.vectors();
  const std::ptrdiff_t n = pass.length, half = n / 2;
  const HalfLanes<V> lanes(pass, buffer, vectors, false);
  for (std::ptrdiff_t y = 0; y < n; ++y) {
    fetchRow(columns, src, std::min(y + cosineRowsAhead, n - 1));
    const float* const row = src[y];
    float* const p = lanes.sample(y, n, 0);
    for (int v = 0; v < vectors; ++v) storeLanes(p + v * laneCount<V>, columns.take(row, v));
  }
  transformLanes<V>(pass.plan, pass.block, buffer, vectors);

  for (int v = 0; v < vectors; ++v) {
    const Complex<V> z = ends(pass, lanes.result(0, v));
    columns.bring(dst[0], v, z.re);
    columns.bring(dst[half], v, z.im);
  }
  for (std::ptrdiff_t k = 1; k <= half / 2; ++k) {
    fetchFourRows(columns, dst, std::min(k + 1, half / 2), n);
    const HalfTurns<V> turns(pass, k);
    for (int v = 0; v < vectors; ++v) {
      V low, below, above, high;
      turns.toCoefficients(lanes.result(k, v), lanes.result(half - k, v), low, below, above, high);
      columns.bring(dst[k], v, low);
      columns.bring(dst[half - k], v, below);
      columns.bring(dst[half + k], v, above);
      columns.bring(dst[n - k], v, high);
    }
  }
}

template <class Columns>
[[gnu::noinline]] void inverseHalvedColumns(const CosinePass& pass, const Columns& columns, Rows<const float> src,
                                            Rows<float> dst, float* buffer)
{
  using V = typename Columns::Vector;
  const int vectors = columns.vectors();
  const std::ptrdiff_t n = pass.length, half = n / 2;
  const HalfLanes<V> lanes(pass, buffer, vectors, true);
  for (int v = 0; v < vectors; ++v)
    lanes.putAt(0, v, ends(pass, Complex<V>{columns.take(src[0], v), columns.take(src[half], v)}));
  for (std::ptrdiff_t k = 1; k <= half / 2; ++k) {
    fetchFourRows(columns, src, std::min(k + 1, half / 2), n);
    const HalfTurns<V> turns(pass, k);
    for (int v = 0; v < vectors; ++v) {
      Complex<V> z, y;
      turns.fromCoefficients(columns.take(src[k], v), columns.take(src[half - k], v), columns.take(src[half + k], v),
                             columns.take(src[n - k], v), z, y);
      lanes.putAt(k, v, z);
      lanes.putAt(half - k, v, y);
    }
  }
  transformLanes<V>(pass.plan, pass.block, buffer, vectors);
  for (std::ptrdiff_t y = 0; y < n; ++y) {
    fetchRow(columns, dst, std::min(y + cosineRowsAhead, n - 1));
    float* const row = dst[y];
    for (int v = 0; v < vectors; ++v) columns.bring(row, v, lanes.resultSample(y, n, v));
  }
}

} // namespace
} // namespace zori
