// Real rows of an image in pairs, one row in the real parts and one in the imaginary ones, with neighbours along the
// row in lanes.
//
// Levels read and write vectors as they lie. Before the last one a square of values is turned, so that its lanes are
// blocks of the first level: frequencies then leave it in their order, side by side. A pair takes little memory, all of
// it in the nearest cache, and is turned once, where rows in lanes are turned on the way in and on the way out. Results
// are the same, for the butterflies are.
#pragma once

#include "image_rows.h"

namespace zori {
namespace {

// Elements of the work memory go in eights: eight real parts, then the imaginary ones.
inline float* eightsAt(float* work, std::ptrdiff_t element) { return work + element / 8 * 16 + element % 8; }

// Lanes p[0], p[-1], ... and back.
template <class V> inline V loadMirrored(const float* p)
{
  const V x = loadFours<V>(p - 3, p - 7);
  return shuffleLocal<0, 1, 2, 3>(x, x);
}
template <class V> inline void storeMirrored(float* p, V x)
{
  storeFours(p - 3, p - 7, shuffleLocal<0, 1, 2, 3>(x, x));
}

// Neighbouring values, real and imaginary parts side by side.
template <class V> inline Complex<V> loadPairs(const float* p)
{
  const V x = loadFours<V>(p, p + 8), y = loadFours<V>(p + 4, p + 12);
  return {evenLanes(x, y), oddLanes(x, y)};
}
template <class V> inline void storePairs(float* p, V re, V im)
{
  storeFours(p, p + 8, pairsLow(re, im));
  storeFours(p + 4, p + 12, pairsHigh(re, im));
}

// One level, lanes of neighbouring butterflies, from wherever from(element) finds them.
template <int R, class V, class From>
[[gnu::noinline]] void levelAlong(float* work, std::ptrdiff_t apart, std::ptrdiff_t blocks, const float* turns,
                                  const From& from)
{
  for (std::ptrdiff_t j = 0; j < apart; j += laneCount<V>) {
    const float* const w = turns + j / 8 * 16 * (R - 1) + j % 8;
    for (std::ptrdiff_t b = 0; b < blocks; ++b) {
      const std::ptrdiff_t first = b * R * apart + j;
      Complex<V> x[R];
#pragma GCC unroll 16
      for (int k = 0; k < R; ++k) x[k] = from(first + k * apart);
      butterfly<R>(x);
      float* const p = eightsAt(work, first);
      storeLanes(p, x[0].re);
      storeLanes(p + 8, x[0].im);
#pragma GCC unroll 16
      for (int k = 1; k < R; ++k) {
        const float* const turn = w + 16 * (k - 1);
        x[k] = x[k] * Complex<V>{loadAnywhere<V>(turn), loadAnywhere<V>(turn + 8)};
        storeLanes(p + 2 * k * apart, x[k].re);
        storeLanes(p + 2 * k * apart + 8, x[k].im);
      }
    }
  }
}

// The last level: to(k, values) for frequencies k, k + 1, ...
template <int R, class V, class To>
[[gnu::noinline]] void lastLevelAlong(const LanePlan& plan, const void* block, const float* work, const To& to)
{
  constexpr int lanes = laneCount<V>;
  const std::ptrdiff_t n = plan.length(), first = plan.radices().radix[0], apart = n / first;
  const std::int32_t* const position = plan.position(block);
  for (std::ptrdiff_t m = 0; m < apart / R; ++m) {
    const float* const middle = work + 2 * std::ptrdiff_t{position[first * m]};
    for (std::ptrdiff_t k = 0; k < first; k += lanes) {
      const float* const p = middle + 2 * apart * k;
      V re[R], im[R];
#pragma GCC unroll 4
      for (int f = 0; f < R; f += 4) {
        const float* const q = p + f / 8 * 16 + f % 8;
#pragma GCC unroll 4
        for (int i = 0; i < 4; ++i) {
          const float *const low = q + 2 * apart * i, *const high = low + 2 * apart * (lanes - 4);
          re[f + i] = loadFours<V>(low, high);
          im[f + i] = loadFours<V>(low + 8, high + 8);
        }
        transposeFours(re[f], re[f + 1], re[f + 2], re[f + 3]);
        transposeFours(im[f], im[f + 1], im[f + 2], im[f + 3]);
      }
      Complex<V> x[R];
#pragma GCC unroll 16
      for (int i = 0; i < R; ++i) x[i] = {re[i], im[i]};
      butterfly<R>(x);
#pragma GCC unroll 16
      for (int i = 0; i < R; ++i) to(k + first * m + n / R * i, x[i]);
    }
  }
}

// Forward transform of re + i im, value by value to `to` as above.
template <class V, class To>
inline void transformAlong(const LanePlan& plan, const void* block, const float* re, const float* im, float* work,
                           const To& to)
{
  const auto given = [=](std::ptrdiff_t i) { return Complex<V>{loadAnywhere<V>(re + i), loadAnywhere<V>(im + i)}; };
  const auto worked = [=](std::ptrdiff_t i) {
    const float* const p = eightsAt(work, i);
    return Complex<V>{loadLanes<V>(p), loadLanes<V>(p + 8)};
  };
  const auto withRadix = [](int radix, auto body) {
    if (radix == 4) body(std::integral_constant<int, 4>{});
    else if (radix == 8) body(std::integral_constant<int, 8>{});
    else body(std::integral_constant<int, 16>{});
  };
  const RadixList& list = plan.radices();
  const float* turns = plan.turnsAlong(block);
  std::ptrdiff_t apart = plan.length(), blocks = 1;
  for (int i = 0; i + 1 < list.levels; ++i) {
    const int r = list.radix[i];
    apart /= r;
    withRadix(r, [&](auto radix) {
      constexpr int R = decltype(radix)::value;
      if (i == 0) levelAlong<R, V>(work, apart, blocks, turns, given);
      else levelAlong<R, V>(work, apart, blocks, turns, worked);
    });
    turns += 2 * (r - 1) * apart;
    blocks *= r;
  }
  if (list.radix[list.levels - 1] == 8) lastLevelAlong<8, V>(plan, block, work, to);
  else lastLevelAlong<16, V>(plan, block, work, to);
}

// Two rows. Without a second one the first takes its place as source, and its result goes nowhere. The rows of the next
// pair are fetched meanwhile.
struct RowPair {
  const float *first, *second, *nextFirst, *nextSecond;
  float *firstTo, *secondTo;

  void fetchNext(std::ptrdiff_t x) const { prefetch(nextFirst + x), prefetch(nextSecond + x); }
};

// body(k) for vectors of frequencies that cover 1 to half - 1, some twice.
template <class V, class Body> inline void overFrequencies(std::ptrdiff_t half, Body body)
{
  body(1);
  for (std::ptrdiff_t k = laneCount<V>; k < half; k += laneCount<V>) body(k);
}

// The buffer holds two rows of complex values.
template <class V> [[gnu::noinline]] void forwardRowPair(const RowPass& pass, RowPair rows, float* buffer)
{
  const std::ptrdiff_t n = pass.width, half = n / 2;
  float *const work = buffer, *const re = buffer + 2 * n, *const im = re + n;
  float *const a = rows.firstTo, *const b = rows.secondTo ? rows.secondTo : work;
  transformAlong<V>(pass.plan, pass.block, rows.first, rows.second, work, [=](std::ptrdiff_t k, Complex<V> z) {
    storeLanes(re + k, z.re);
    storeLanes(im + k, z.im);
  });
  for (const std::ptrdiff_t k : {std::ptrdiff_t{0}, half}) {
    const std::ptrdiff_t x = k ? n - 1 : 0;
    put(a + x, re[k] * pass.factor);
    put(b + x, im[k] * pass.factor);
  }
  const V by = allLanes<V>(pass.factor * 0.5f);
  overFrequencies<V>(half, [=](std::ptrdiff_t k) {
    rows.fetchNext(2 * k);
    const Complex<V> z = {loadAnywhere<V>(re + k), loadAnywhere<V>(im + k)};
    const Complex<V> y = {loadMirrored<V>(re + n - k), loadMirrored<V>(im + n - k)};
    storePairs(a + 2 * k - 1, (z.re + y.re) * by, (z.im - y.im) * by);
    storePairs(b + 2 * k - 1, (z.im + y.im) * by, (y.re - z.re) * by);
  });
}

template <class V> [[gnu::noinline]] void inverseRowPair(const RowPass& pass, RowPair rows, float* buffer)
{
  const std::ptrdiff_t n = pass.width, half = n / 2;
  float *const work = buffer, *const re = buffer + 2 * n, *const im = re + n;
  const float *const a = rows.first, *const b = rows.second;
  for (const std::ptrdiff_t k : {std::ptrdiff_t{0}, half}) {
    const std::ptrdiff_t x = k ? n - 1 : 0;
    re[k] = get<float>(a + x);
    im[k] = get<float>(b + x);
  }
  overFrequencies<V>(half, [=](std::ptrdiff_t k) {
    const Complex<V> p = loadPairs<V>(a + 2 * k - 1), q = loadPairs<V>(b + 2 * k - 1);
    store(re + k, p.re - q.im);
    store(im + k, p.im + q.re);
    storeMirrored(re + n - k, p.re + q.im);
    storeMirrored(im + n - k, q.re - p.im);
  });
  // the parts change places before and after
  float *const first = rows.firstTo, *const second = rows.secondTo ? rows.secondTo : re;
  const V by = allLanes<V>(pass.factor);
  transformAlong<V>(pass.plan, pass.block, im, re, work, [=](std::ptrdiff_t x, Complex<V> z) {
    store(first + x, z.im * by);
    store(second + x, z.re * by);
  });
}

} // namespace
} // namespace zori
