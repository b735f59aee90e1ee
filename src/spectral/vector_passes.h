// Passes of the vector FFT: radix 4 over values in bit-reversed order, decimation in time.
//
// Between the first and the last pass values stand in groups of four: four real parts, four imaginary ones. A pass of
// length L takes value j of the four quarters of a stretch of L, turns them by W^0, W^2j, W^j, W^3j (the middle ones
// change places because the order is reversed bit by bit), W = e^(-2 pi i / L), and transforms them. Inverse passes
// read the same tables and turn the other way.
#pragma once

#include "butterflies.h"
#include "frame/layout.h"

#include <algorithm>

namespace zori {
namespace {

using Quad = Complex<F32x4>;

inline Quad quadAt(const float* p) { return {load<float>(p), load<float>(p + 4)}; }

enum class Order { Grouped, Interleaved }; // of what a last pass leaves

template <Order order> inline void putQuad(float* p, Quad x)
{
  if constexpr (order == Order::Grouped) {
    store(p, x.re);
    store(p + 4, x.im);
  } else {
    store(p, interleaveLow(x.re, x.im));
    store(p + 4, interleaveHigh(x.re, x.im));
  }
}

// x W, or x conj(W)
template <bool inverse> inline Quad turnedBy(Quad x, const float* w)
{
  const F32x4 c = loadAligned<float>(w), s = loadAligned<float>(w + 4); // W = c + i s
  if constexpr (inverse) return {x.re * c + x.im * s, x.im * c - x.re * s};
  else return {x.re * c - x.im * s, x.im * c + x.re * s};
}

template <bool inverse> inline void butterflyOfQuarters(Quad& a, Quad& b, Quad& c, Quad& d)
{
  const Quad s0 = a + b, d0 = a - b, s1 = c + d, d1 = c - d;
  a = s0 + s1;
  c = s0 - s1;
  b = inverse ? plusI(d0, d1) : lessI(d0, d1);
  d = inverse ? lessI(d0, d1) : plusI(d0, d1);
}

inline void transposeQuad(F32x4 (&x)[4])
{
  const F64x2 a = as<double>(interleaveLow(x[0], x[1])), b = as<double>(interleaveLow(x[2], x[3]));
  const F64x2 c = as<double>(interleaveHigh(x[0], x[1])), d = as<double>(interleaveHigh(x[2], x[3]));
  x[0] = as<float>(interleaveLow(a, b));
  x[1] = as<float>(interleaveHigh(a, b));
  x[2] = as<float>(interleaveLow(c, d));
  x[3] = as<float>(interleaveHigh(c, d));
}

// The first pass, of length 4, with the reversal: quads i and i + n / 8 come from the values at r, r + 1 and so many
// quarters behind them, r the reversed i.
template <bool inverse>
[[gnu::noinline]] void firstPass(const float* src, float* work, std::ptrdiff_t n, const std::int32_t* reversal)
{
  const std::ptrdiff_t quarter = n / 2; // in floats
  for (std::ptrdiff_t i = 0; i < n / 8; ++i) {
    const float* p = src + reversal[i];
    const F32x4 a = load<float>(p), b = load<float>(p + 2 * quarter);
    const F32x4 c = load<float>(p + quarter), d = load<float>(p + 3 * quarter);
    const F32x4 s0 = a + b, d0 = a - b, s1 = c + d, d1 = c - d;
    // -i d1, or i d1
    const F32x4 turned = shuffle<2, 3, 0, 1>(d1, d1) ^
                         as<float>(splat<std::uint64_t>(inverse ? 0x80000000u : std::uint64_t{0x80000000u} << 32));
    F32x4 y[4] = {s0 + s1, d0 + turned, s0 - s1, d0 - turned};
    transposeQuad(y);
    float *even = work + 8 * i, *odd = even + n;
    store(even, y[0]);
    store(even + 4, y[1]);
    store(odd, y[2]);
    store(odd + 4, y[3]);
  }
}

// The same in place, on values that are reversed already.
template <bool inverse> [[gnu::noinline]] void firstPassInPlace(float* data, std::ptrdiff_t n)
{
  for (std::ptrdiff_t i = 0; i < 2 * n; i += 16) { // two quads
    float* const p = data + i;
    // values 0 and 2 ... of both quads side by side
    const F32x4 q0 = load<float>(p), q1 = load<float>(p + 4), q2 = load<float>(p + 8), q3 = load<float>(p + 12);
    const F32x4 a = shuffle<1, 0, 1, 0>(q0, q2), b = shuffle<3, 2, 3, 2>(q0, q2);
    const F32x4 c = shuffle<1, 0, 1, 0>(q1, q3), d = shuffle<3, 2, 3, 2>(q1, q3);
    const F32x4 s0 = a + b, d0 = a - b, s1 = c + d, d1 = c - d;
    const F32x4 turned = shuffle<2, 3, 0, 1>(d1, d1) ^
                         as<float>(splat<std::uint64_t>(inverse ? 0x80000000u : std::uint64_t{0x80000000u} << 32));
    F32x4 y[4] = {s0 + s1, d0 + turned, s0 - s1, d0 - turned};
    transposeQuad(y);
    for (int k = 0; k < 4; ++k) store(p + 4 * k, y[k]);
  }
}

// A pass of the given length over so many stretches; in place when out is data. Turns: of each four j, 4 Re W^j,
// 4 Im W^j, then of W^2j and W^3j.
template <bool inverse, Order order>
[[gnu::noinline]] void radix4Pass(const float* data, float* out, std::ptrdiff_t length, std::ptrdiff_t stretches,
                                  const float* turns)
{
  const std::ptrdiff_t quarter = length / 2; // in floats
  for (std::ptrdiff_t s = 0; s < stretches; ++s, data += 2 * length, out += 2 * length) {
    const float* w = turns;
    for (std::ptrdiff_t j = 0; j < quarter; j += 8, w += 24) {
      Quad a = quadAt(data + j), b = turnedBy<inverse>(quadAt(data + j + quarter), w + 8);
      Quad c = turnedBy<inverse>(quadAt(data + j + 2 * quarter), w);
      Quad d = turnedBy<inverse>(quadAt(data + j + 3 * quarter), w + 16);
      butterflyOfQuarters<inverse>(a, b, c, d);
      putQuad<order>(out + j, a);
      putQuad<order>(out + j + quarter, b);
      putQuad<order>(out + j + 2 * quarter, c);
      putQuad<order>(out + j + 3 * quarter, d);
    }
  }
}

// The same of radix 2. Turns: of each four j, 4 Re W^j, 4 Im W^j.
template <bool inverse, Order order>
[[gnu::noinline]] void radix2Pass(const float* data, float* out, std::ptrdiff_t length, std::ptrdiff_t stretches,
                                  const float* turns)
{
  const std::ptrdiff_t half = length; // in floats
  for (std::ptrdiff_t s = 0; s < stretches; ++s, data += 2 * length, out += 2 * length) {
    const float* w = turns;
    for (std::ptrdiff_t j = 0; j < half; j += 8, w += 8) {
      const Quad a = quadAt(data + j), b = turnedBy<inverse>(quadAt(data + j + half), w);
      putQuad<order>(out + j, a + b);
      putQuad<order>(out + j + half, a - b);
    }
  }
}

// Floats of the turns of one pass.
constexpr std::ptrdiff_t radix4Turns(std::ptrdiff_t length) { return length / 4 * 6; }

// All passes behind the first, from the work area to out; order 4 to 16. Stretches of 1024 values go through all
// passes that they hold before the next one begins, so that they stay in the nearest cache.
template <bool inverse, Order order> void laterPasses(float* work, float* out, int log2n, const float* turns)
{
  const std::ptrdiff_t n = std::ptrdiff_t{1} << log2n, stretch = std::min<std::ptrdiff_t>(n, 1024);
  const bool endsIn2 = log2n % 2 != 0;
  const std::ptrdiff_t lastRadix4 = endsIn2 ? n / 2 : n; // the greatest length of radix 4
  const auto isInner = [&](std::ptrdiff_t length) { return length < n; };
  for (std::ptrdiff_t at = 0; at < n; at += stretch) {
    const float* w = turns;
    for (std::ptrdiff_t length = 16; length <= std::min(lastRadix4, stretch) && isInner(length); length *= 4) {
      radix4Pass<inverse, Order::Grouped>(work + 2 * at, work + 2 * at, length, stretch / length, w);
      w += radix4Turns(length);
    }
  }
  const float* w = turns;
  for (std::ptrdiff_t length = 16; length <= lastRadix4; w += radix4Turns(length), length *= 4) {
    if (!isInner(length)) radix4Pass<inverse, order>(work, out, length, 1, w);
    else if (length > stretch) radix4Pass<inverse, Order::Grouped>(work, work, length, n / length, w);
  }
  if (endsIn2) radix2Pass<inverse, order>(work, out, n, 1, w);
}

// ---- Reversal of bits in tiles ----

// Values of the two tiles that change places: a tile is 64 rows of 64 neighbouring values.
constexpr std::ptrdiff_t tileSide = 64, tileValues = tileSide * tileSide;

inline void takeTile(const float* src, std::ptrdiff_t rowFloats, std::uint64_t* tile)
{
  for (std::ptrdiff_t row = 0; row < tileSide; ++row)
    std::memcpy(tile + row * tileSide, src + row * rowFloats, tileSide * sizeof(std::uint64_t));
}

// Both indices within the tile reversed, rows for columns.
inline void putReversedTile(float* dst, std::ptrdiff_t rowFloats, const std::uint64_t* tile,
                            const std::uint8_t* reversed)
{
  for (std::ptrdiff_t row = 0; row < tileSide; ++row) {
    float* p = dst + row * rowFloats;
    const std::uint64_t* column = tile + reversed[row];
    for (std::ptrdiff_t c = 0; c < tileSide; ++c) put(p + 2 * c, column[reversed[c] * tileSide]);
  }
}

// dst[reversed i] = src[i] for orders from 12 on; in place too. The middle bits of an index choose its tile.
[[gnu::noinline]] inline void reverseInTiles(const float* src, float* dst, int order, const std::int32_t* middle,
                                             void* buffer)
{
  std::uint8_t reversed[tileSide];
  for (int i = 0; i < tileSide; ++i)
    reversed[i] =
      static_cast<std::uint8_t>((i & 1) << 5 | (i & 2) << 3 | (i & 4) << 1 | (i & 8) >> 1 | (i & 16) >> 3 | i >> 5);
  auto *first = static_cast<std::uint64_t*>(buffer), *second = first + tileValues;
  const std::ptrdiff_t tiles = std::ptrdiff_t{1} << (order - 12), rowFloats = 2 * tiles * tileSide;
  for (std::ptrdiff_t i = 0; i < tiles; ++i) {
    const std::ptrdiff_t partner = middle[i];
    if (partner < i) continue;
    takeTile(src + 2 * tileSide * i, rowFloats, first);
    if (partner > i) {
      takeTile(src + 2 * tileSide * partner, rowFloats, second);
      putReversedTile(dst + 2 * tileSide * i, rowFloats, second, reversed);
    }
    putReversedTile(dst + 2 * tileSide * partner, rowFloats, first, reversed);
  }
}

} // namespace
} // namespace zori
