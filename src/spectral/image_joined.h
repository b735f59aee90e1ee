// Real images whose sides are powers of two, where rows and one level of the columns go together: the image is walked
// twice instead of three times, and what columns need of a buffer is small.
//
// Forward: eight rows, an eighth of the height apart, are transformed in pairs, and the first level of the columns,
// which needs no others, joins them. Row b + 8 j then takes element j of block b, so that rows b, b + 8, ... are closed
// in themselves: the other levels take their values straight from them and put them straight back. The inverse goes the
// other way: all levels of the columns but the last on such rows, then the last one and the rows' own transforms.
//
// Between the two passes columns lie in eights: eight real parts, then the imaginary ones. Columns 0 and W/2, which are
// real, are one complex column, the first; it is formed before and comes apart after all others. The source must not be
// the destination. Results are those of the other way, to the bit.
#pragma once

#include "frame/numeric_mode.h"
#include "image_columns.h"
#include "image_row_pairs.h"
#include "rowkernels/drivers.h"

namespace zori {
namespace {

constexpr bool isJoinedRadix(int radix) { return radix == 4 || radix == 8 || radix == 16; }

template <class Body> inline void withJoinedRadix(int radix, Body body)
{
  if (radix == 4) body(std::integral_constant<int, 4>{});
  else if (radix == 8) body(std::integral_constant<int, 8>{});
  else body(std::integral_constant<int, 16>{});
}

struct JoinedPass {
  const LanePlan &rows, &columns;
  const void* block;
  float rowFactor, columnFactor;
  bool inverse;

  const RadixList& list() const { return columns.radices(); }
  std::ptrdiff_t width() const { return rows.length(); }
  std::ptrdiff_t height() const { return columns.length(); }
  // The level that goes with the rows, how many of them it joins, and the others.
  int joined() const { return inverse ? list().levels - 1 : 0; }
  int together() const { return list().radix[joined()]; }
  int first() const { return inverse ? 0 : 1; }
  int last() const { return list().levels - (inverse ? 2 : 1); }
  // Rows that are closed in themselves.
  std::ptrdiff_t closed() const { return height() / together(); }

  // Columns of a block: many, for a visit to a row then takes many lines that lie together, as long as the buffer stays
  // small.
  int lanes() const
  {
    constexpr std::ptrdiff_t least = 16, most = 64, elements = 8192;
    return static_cast<int>(std::min(std::clamp(elements / closed(), least, most), width() / 2));
  }
  // Floats of a thread: of a pair's transform and the spectra of rows that go together, or of a block of columns; and
  // of the real columns, once.
  std::ptrdiff_t pitch() const { return width() + 8; }
  long long threadFloats() const
  {
    return std::max<long long>(2 * width() + together() * pitch(), 2 * lanes() * closed());
  }
  long long realFloats() const { return 2 * height(); }
};

inline bool canBeJoined(const LanePlan& rows, const LanePlan& columns)
{
  constexpr int longest = 8192; // so that the second cache holds rows that go together
  if (!rows.isAlong() || rows.length() > longest || columns.isConvolution()) return false;
  const RadixList& list = columns.radices();
  for (int i = 0; i < list.levels; ++i)
    if (!isJoinedRadix(list.radix[i])) return false;
  return list.levels > 1 && list.radix[0] == 8 && list.radix[list.levels - 1] >= 8;
}

template <class V> inline V withFirstLane(V x, float first)
{
  alignas(32) float lane[laneCount<V>];
  storeLanes(lane, x);
  lane[0] = first;
  return loadLanes<V>(lane);
}
template <class V> inline Complex<V> partsSwapped(Complex<V> x) { return {x.im, x.re}; }
template <class V> inline Complex<float> firstLane(Complex<V> x) { return {firstLane(x.re), firstLane(x.im)}; }

// Columns k, k + 1, ... of a row in eights.
template <class V> inline Complex<V> loadEights(float* row, std::ptrdiff_t k)
{
  const float* const p = eightsAt(row, k);
  return {loadAnywhere<V>(p), loadAnywhere<V>(p + 8)};
}
template <class V> inline void storeEights(float* row, std::ptrdiff_t k, Complex<V> x)
{
  float* const p = eightsAt(row, k);
  store(p, x.re);
  store(p + 8, x.im);
}

// ---- Rows that go together ----

// Pairs of rows as one complex row each, real parts in front of the imaginary ones, and the memory of a transform.
struct JoinedSpectra {
  float *work, *first;
  std::ptrdiff_t pitch;

  JoinedSpectra(const JoinedPass& pass, float* buffer)
    : work(buffer), first(buffer + 2 * pass.width()), pitch(pass.pitch())
  {}
  float* re(int pair) const { return first + 2 * pair * pitch; }
  float* im(int pair) const { return re(pair) + pitch; }
};

// The next rows are fetched meanwhile: with those at hand they fit the nearest cache, or the second.
template <int R, class P>
inline void fetchJoined(Rows<P> rows, std::ptrdiff_t next, std::ptrdiff_t apart, std::ptrdiff_t x)
{
#pragma GCC unroll 16
  for (int q = 0; q < R; ++q) prefetch(rows[next + q * apart] + x);
}

// Rows j, j + apart, ... to rows R j, R j + 1, ...
template <int R, class V>
[[gnu::noinline]] void forwardJoinedRows(const JoinedPass& pass, Rows<const float> src, Rows<float> dst,
                                         std::ptrdiff_t j, float* buffer)
{
  constexpr int pairs = R / 2;
  const std::ptrdiff_t n = pass.width(), apart = pass.closed(), next = std::min(j + 1, apart - 1);
  const JoinedSpectra spectra(pass, buffer);
  for (int p = 0; p < pairs; ++p) {
    float *const re = spectra.re(p), *const im = spectra.im(p);
    transformAlong<V>(pass.rows, pass.block, src[j + p * apart], src[j + (p + pairs) * apart], spectra.work,
                      [=](std::ptrdiff_t k, Complex<V> z) {
                        storeLanes(re + k, z.re);
                        storeLanes(im + k, z.im);
                      });
    re[n] = re[0], im[n] = im[0];
  }
  const float* const turns = pass.columns.turns(pass.block) + 2 * (R - 1) * j;
  const V by = allLanes<V>(pass.rowFactor * 0.5f);
  const auto level = [=](std::ptrdiff_t k, auto isFirst) {
    fetchJoined<R>(src, next, apart, 2 * k);
    Complex<V> x[R];
#pragma GCC unroll 8
    for (int p = 0; p < pairs; ++p) {
      const float *const re = spectra.re(p), *const im = spectra.im(p);
      const Complex<V> z = {loadLanes<V>(re + k), loadLanes<V>(im + k)};
      const Complex<V> y = {loadMirrored<V>(re + n - k), loadMirrored<V>(im + n - k)};
      x[p] = {(z.re + y.re) * by, (z.im - y.im) * by};
      x[p + pairs] = {(z.im + y.im) * by, (y.re - z.re) * by};
      if constexpr (isFirst) { // frequency n / 2 in the place of an imaginary part
        x[p].im = withFirstLane(x[p].im, re[n / 2] * pass.rowFactor);
        x[p + pairs].im = withFirstLane(x[p + pairs].im, im[n / 2] * pass.rowFactor);
      }
    }
    butterfly<R>(x);
#pragma GCC unroll 16
    for (int q = 0; q < R; ++q) {
      if (q) x[q] = x[q] * Complex<V>{allLanes<V>(turns[2 * q - 2]), allLanes<V>(turns[2 * q - 1])};
      storeEights(dst[R * j + q], k, x[q]);
    }
  };
  level(0, std::true_type{});
  for (std::ptrdiff_t k = laneCount<V>; k < n / 2; k += laneCount<V>) level(k, std::false_type{});
}

// Rows j, j + apart, ... in their place; parts have changed places.
template <int R, class V>
[[gnu::noinline]] void inverseJoinedRows(const JoinedPass& pass, Rows<float> dst, std::ptrdiff_t j, float* buffer)
{
  constexpr int pairs = R / 2;
  const std::ptrdiff_t n = pass.width(), apart = pass.closed(), next = std::min(j + 1, apart - 1);
  const JoinedSpectra spectra(pass, buffer);
  const V factor = allLanes<V>(pass.columnFactor), by = allLanes<V>(pass.rowFactor);
  const auto level = [=](std::ptrdiff_t k, auto isFirst) {
    fetchJoined<R>(dst, next, apart, 2 * k);
    Complex<V> x[R];
#pragma GCC unroll 16
    for (int q = 0; q < R; ++q) x[q] = loadEights<V>(dst[j + q * apart], k);
    butterfly<R>(x);
#pragma GCC unroll 8
    for (int i = 0; i < pairs; ++i) {
      float *const re = spectra.re(i), *const im = spectra.im(i);
      const Complex<V> p = partsSwapped(scaled(x[i], factor)), q = partsSwapped(scaled(x[i + pairs], factor));
      storeLanes(re + k, p.re - q.im);
      storeLanes(im + k, p.im + q.re);
      storeMirrored(re + n - k, p.re + q.im);
      storeMirrored(im + n - k, q.re - p.im);
      if constexpr (isFirst) { // frequency n / 2 in the place of an imaginary part
        const Complex<float> a = firstLane(p), b = firstLane(q);
        re[0] = a.re, im[0] = b.re;
        re[n / 2] = a.im, im[n / 2] = b.im;
      }
    }
  };
  level(0, std::true_type{});
  for (std::ptrdiff_t k = laneCount<V>; k < n / 2; k += laneCount<V>) level(k, std::false_type{});
  for (int p = 0; p < pairs; ++p) {
    float *const first = dst[j + p * apart], *const second = dst[j + (p + pairs) * apart];
    transformAlong<V>(pass.rows, pass.block, spectra.im(p), spectra.re(p), spectra.work,
                      [=](std::ptrdiff_t x, Complex<V> z) {
                        store(first + x, z.im * by);
                        store(second + x, z.re * by);
                      });
  }
}

// ---- Levels of closed rows ----

struct JoinedLevel {
  std::ptrdiff_t apart, blocks;
  const float* turns;
  std::ptrdiff_t turnsApart; // floats from one butterfly's to the next one's
  std::ptrdiff_t firstColumn;
  int vectors;
};

// from(b, j) and to(b, j) know where the values of butterfly j in block b are: they load and store vector v of each.
template <int R, bool turned, class V, class From, class To>
[[gnu::noinline]] void runJoinedLevel(const JoinedLevel& level, const From& from, const To& to)
{
  const float* turns = level.turns;
  for (std::ptrdiff_t j = 0; j < level.apart; ++j, turns += level.turnsApart) {
    Complex<V> w[R];
    if constexpr (turned) {
#pragma GCC unroll 16
      for (int k = 1; k < R; ++k) w[k] = {allLanes<V>(turns[2 * k - 2]), allLanes<V>(turns[2 * k - 1])};
    }
    for (std::ptrdiff_t b = 0; b < level.blocks; ++b) {
      const auto source = from(b, j);
      const auto target = to(b, j);
      const auto work = [&](int v, auto isFirst) ZORI_INLINE {
        Complex<V> x[R];
        source.load(v, x, isFirst);
        if constexpr (R > 1) butterfly<R>(x);
        if constexpr (turned) {
#pragma GCC unroll 16
          for (int k = 1; k < R; ++k) x[k] = x[k] * w[k];
        }
        target.store(v, x, isFirst);
      };
      int v = 0;
      if constexpr (source.differsFirst || target.differsFirst)
        if (level.firstColumn == 0) work(v++, std::true_type{});
      for (; v < level.vectors; ++v) work(v, std::false_type{});
    }
  }
}

// Values of a butterfly in the buffer.
template <int R, class V> struct InJoinedBuffer {
  static constexpr bool differsFirst = false;
  float* first;
  std::ptrdiff_t far, im;

  ZORI_INLINE void load(int v, Complex<V> (&x)[R], bool) const
  {
    const float* const p = first + v * laneCount<V>;
#pragma GCC unroll 16
    for (int k = 0; k < R; ++k) x[k] = {loadLanes<V>(p + far * k), loadLanes<V>(p + far * k + im)};
  }
  ZORI_INLINE void store(int v, const Complex<V> (&x)[R], bool) const
  {
    float* const p = first + v * laneCount<V>;
#pragma GCC unroll 16
    for (int k = 0; k < R; ++k) {
      storeLanes(p + far * k, x[k].re);
      storeLanes(p + far * k + im, x[k].im);
    }
  }
};

// Values of a butterfly in rows, in eights.
template <int R, class V> struct InJoinedRows {
  static constexpr bool differsFirst = false;
  float* row[R];
  std::ptrdiff_t first; // column

  ZORI_INLINE void load(int v, Complex<V> (&x)[R], bool) const
  {
#pragma GCC unroll 16
    for (int k = 0; k < R; ++k) x[k] = loadEights<V>(row[k], first + v * laneCount<V>);
  }
  ZORI_INLINE void store(int v, const Complex<V> (&x)[R], bool) const
  {
#pragma GCC unroll 16
    for (int k = 0; k < R; ++k) storeEights(row[k], first + v * laneCount<V>, x[k]);
  }
};

// Values of a butterfly in the rows of a packed spectrum, the parts of an inverse one's in each other's place. The
// pairs of columns k, k + 1, ... begin at float 2 k - 1; what stands for the first column is elsewhere.
template <class V> inline void storeFirstPairs(float* row, Complex<float>* real, Complex<V> x, V factor)
{
  const V low = pairsLow(x.re * factor, x.im * factor), high = pairsHigh(x.re * factor, x.im * factor);
  if constexpr (laneCount<V> == 4) {
    storeHigh8(row + 1, low);
    store(row + 3, high);
  } else {
    storeHigh8(row + 1, lowHalf(low));
    store(row + 3, lowHalf(high));
    store(row + 7, highHalf(low));
    store(row + 11, highHalf(high));
  }
  *real = firstLane(x);
}
template <class V> inline Complex<V> loadFirstPairs(const float* row, const Complex<float>* real)
{
  const auto two = as<double>(loadLow8<float>(real)), others = as<double>(loadLow8<float>(row + 1));
  const auto first = as<float>(interleaveLow(two, others));
  V x, y;
  if constexpr (laneCount<V> == 4) x = first, y = loadAnywhere<V>(row + 3);
  else x = joined(first, load<float, V::bytes / 2>(row + 7)), y = loadFours<V>(row + 3, row + 11);
  return {evenLanes(x, y), oddLanes(x, y)};
}

template <int R, class V> struct OfPackedSpectrum {
  static constexpr bool differsFirst = true;
  const float* row[R];
  const Complex<float>* real[R];
  std::ptrdiff_t first;

  ZORI_INLINE void load(int v, Complex<V> (&x)[R], std::false_type) const
  {
    const std::ptrdiff_t column = first + v * laneCount<V>;
#pragma GCC unroll 16
    for (int k = 0; k < R; ++k) x[k] = partsSwapped(loadPairs<V>(row[k] + 2 * column - 1));
  }
  ZORI_INLINE void load(int, Complex<V> (&x)[R], std::true_type) const
  {
#pragma GCC unroll 16
    for (int k = 0; k < R; ++k) x[k] = partsSwapped(loadFirstPairs<V>(row[k], real[k]));
  }
};
template <int R, class V> struct ToPackedSpectrum {
  static constexpr bool differsFirst = true;
  float* row[R];
  Complex<float>* real[R];
  std::ptrdiff_t first;
  V factor;

  ZORI_INLINE void store(int v, const Complex<V> (&x)[R], std::false_type) const
  {
    const std::ptrdiff_t column = first + v * laneCount<V>;
#pragma GCC unroll 16
    for (int k = 0; k < R; ++k) {
      storePairs(row[k] + 2 * column - 1, x[k].re * factor, x[k].im * factor);
      storesInOrder();
    }
  }
  ZORI_INLINE void store(int, const Complex<V> (&x)[R], std::true_type) const
  {
#pragma GCC unroll 16
    for (int k = 0; k < R; ++k) storeFirstPairs(row[k], real[k], x[k], factor);
  }
};

// Set `unit` of closed rows. Columns go from left to right: the pairs of an eight end in the float before the next one
// and begin in the float before their own.
template <class V> struct JoinedColumns {
  const JoinedPass& pass;
  Rows<const float> src; // of the inverse
  Rows<float> dst;
  std::ptrdiff_t unit;
  float* buffer;
  Complex<float>* real; // the first column

  void run() const
  {
    const int lanes = pass.lanes();
    for (std::ptrdiff_t first = 0; first < pass.width() / 2; first += lanes)
      if (pass.inverse) inverse(first, lanes);
      else forward(first, lanes);
  }

private:
  // Level i of this set, which has `blocks` blocks of it: of the forward transform block `unit` of the second level, of
  // the inverse the butterflies unit, unit + together, ... of all.
  JoinedLevel level(int i, std::ptrdiff_t blocks, std::ptrdiff_t first, int lanes) const
  {
    const RadixList& list = pass.list();
    const float* turns = pass.columns.turns(pass.block);
    std::ptrdiff_t left = list.length;
    for (int before = 0; before < i; ++before) {
      left /= list.radix[before];
      turns += 2 * (list.radix[before] - 1) * left;
    }
    const std::ptrdiff_t r = list.radix[i], each = 2 * (r - 1);
    JoinedLevel made{left / r, blocks, turns, each, first, lanes / laneCount<V>};
    if (pass.inverse) {
      made.apart /= pass.together();
      made.turns += each * unit;
      made.turnsApart *= pass.together();
    }
    return made;
  }
  // The least frequency, within the set, of block b of level i.
  std::ptrdiff_t least(int i, std::ptrdiff_t b) const
  {
    const RadixList& list = pass.list();
    std::ptrdiff_t k = 0;
    for (--i; i >= pass.first(); --i) k = k * list.radix[i] + b % list.radix[i], b /= list.radix[i];
    return k;
  }
  template <int R> auto inBuffer(const JoinedLevel& level, int lanes) const
  {
    return [=, p = buffer, apart = level.apart](std::ptrdiff_t b, std::ptrdiff_t j) {
      return InJoinedBuffer<R, V>{p + 2 * lanes * (b * R * apart + j), 2 * lanes * apart, lanes};
    };
  }
  // Levels that neither take their values from rows nor put them there.
  void between(std::ptrdiff_t blocks, int lanes) const
  {
    for (int i = pass.first() + 1; i < pass.last(); ++i) {
      const JoinedLevel here = level(i, blocks, 0, lanes);
      withJoinedRadix(pass.list().radix[i], [&](auto r) {
        const auto place = inBuffer<r>(here, lanes);
        runJoinedLevel<r, true, V>(here, place, place);
      });
      blocks *= pass.list().radix[i];
    }
  }

  void forward(std::ptrdiff_t first, int lanes) const
  {
    const RadixList& list = pass.list();
    const int begin = pass.first(), end = pass.last(), radix = list.radix[begin];
    const std::ptrdiff_t stride = pass.together(), rows = pass.closed(), blocks = rows / list.radix[end];
    const auto row = [=, to = dst, at = unit](std::ptrdiff_t element) { return to[at + stride * element]; };
    const JoinedLevel start = level(begin, 1, first, lanes);
    withJoinedRadix(radix, [&](auto r) {
      const auto from = [=](std::ptrdiff_t, std::ptrdiff_t j) {
        InJoinedRows<r, V> values{{}, first};
        for (int k = 0; k < r; ++k) values.row[k] = row(j + k * start.apart);
        return values;
      };
      if (begin == end) runJoinedLevel<r, false, V>(start, from, inBuffer<r>(start, lanes));
      else runJoinedLevel<r, true, V>(start, from, inBuffer<r>(start, lanes));
    });
    between(radix, lanes);
    const V factor = allLanes<V>(pass.columnFactor);
    const auto to = [&](auto r, std::ptrdiff_t least, std::ptrdiff_t apart) {
      ToPackedSpectrum<r, V> values{{}, {}, first, factor};
      for (int k = 0; k < r; ++k) {
        values.row[k] = row(least + k * apart);
        values.real[k] = real + unit + stride * (least + k * apart);
      }
      return values;
    };
    if (begin == end) {
      const JoinedLevel none{1, rows, nullptr, 0, first, start.vectors};
      constexpr std::integral_constant<int, 1> one{};
      return runJoinedLevel<1, false, V>(none, inBuffer<1>(none, lanes),
                                         [&](std::ptrdiff_t b, std::ptrdiff_t) { return to(one, b, 0); });
    }
    const JoinedLevel finish = level(end, blocks, first, lanes);
    withJoinedRadix(list.radix[end], [&](auto r) {
      runJoinedLevel<r, false, V>(finish, inBuffer<r>(finish, lanes),
                                  [&](std::ptrdiff_t b, std::ptrdiff_t) { return to(r, least(end, b), blocks); });
    });
  }

  void inverse(std::ptrdiff_t first, int lanes) const
  {
    const RadixList& list = pass.list();
    const int begin = pass.first(), end = pass.last(), radix = list.radix[begin];
    const std::ptrdiff_t stride = pass.together(), rows = pass.closed(), blocks = rows / list.radix[end];
    const JoinedLevel start = level(begin, 1, first, lanes);
    const auto from = [&](auto r, std::ptrdiff_t j) {
      OfPackedSpectrum<r, V> values{{}, {}, first};
      for (int k = 0; k < r; ++k) {
        const std::ptrdiff_t y = unit + stride * (j + k * start.apart);
        values.row[k] = src[y];
        values.real[k] = real + y;
      }
      return values;
    };
    const auto to = [&](auto r, std::ptrdiff_t b) {
      InJoinedRows<r, V> values{{}, first};
      for (int k = 0; k < r; ++k) values.row[k] = dst[rows * unit + least(end, b) + blocks * k];
      return values;
    };
    withJoinedRadix(radix, [&](auto r) {
      const auto source = [&](std::ptrdiff_t, std::ptrdiff_t j) { return from(r, j); };
      if (begin == end)
        return runJoinedLevel<r, true, V>(start, source, [&](std::ptrdiff_t b, std::ptrdiff_t) { return to(r, b); });
      runJoinedLevel<r, true, V>(start, source, inBuffer<r>(start, lanes));
    });
    if (begin == end) return;
    between(radix, lanes);
    const JoinedLevel finish = level(end, blocks, first, lanes);
    withJoinedRadix(list.radix[end], [&](auto r) {
      runJoinedLevel<r, true, V>(finish, inBuffer<r>(finish, lanes),
                                 [&](std::ptrdiff_t b, std::ptrdiff_t) { return to(r, b); });
    });
  }
};

// ---- The real columns ----

// From the first complex column, when the others are done.
[[gnu::noinline]] inline void bringJoinedReals(const JoinedPass& pass, Rows<float> dst, const Complex<float>* real)
{
  const RoundingScope rounding(Rounding::Nearest);
  const std::ptrdiff_t height = pass.height(), last = pass.width() - 1;
  const float factor = pass.columnFactor, half = factor * 0.5f;
  const auto putPair = [=](std::ptrdiff_t y, float a, float c) {
    put(dst[y], a);
    put(dst[y] + last, c);
  };
  putPair(0, real[0].re * factor, real[0].im * factor);
  for (std::ptrdiff_t k = 1; 2 * k < height; ++k) {
    const Complex<float> z = real[k], y = real[height - k];
    putPair(2 * k - 1, (z.re + y.re) * half, (z.im + y.im) * half);
    putPair(2 * k, (z.im - y.im) * half, (y.re - z.re) * half);
  }
  putPair(height - 1, real[height / 2].re * factor, real[height / 2].im * factor);
}

// To it, before the others begin.
[[gnu::noinline]] inline void takeJoinedReals(const JoinedPass& pass, Rows<const float> src, Complex<float>* real)
{
  const RoundingScope rounding(Rounding::Nearest);
  const std::ptrdiff_t height = pass.height(), last = pass.width() - 1;
  const auto pairAt = [=](std::ptrdiff_t y) { return Complex<float>{get<float>(src[y]), get<float>(src[y] + last)}; };
  real[0] = pairAt(0);
  for (std::ptrdiff_t k = 1; 2 * k < height; ++k) {
    const Complex<float> re = pairAt(2 * k - 1), im = pairAt(2 * k);
    real[k] = {re.re - im.im, im.re + re.im};
    real[height - k] = {re.re + im.im, re.im - im.re};
  }
  real[height / 2] = pairAt(height - 1);
}

} // namespace
} // namespace zori
