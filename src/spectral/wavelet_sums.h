// Sums of products along a line, of which a wavelet transform consists: out[x] = sum over j of taps[j] * in_j[x], where
// in_0, in_1, ... lie a fixed distance apart, be it rows of an image or pixels of one line.
//
// A sum's terms are added from the first to the last, in whatever path, so that a result does not depend on where in a
// line it stands. What becomes of the sums is a sink's business: stored as they come, split into the even and the odd
// pixels of a line, or merged as these.
#pragma once

#include "frame/layout.h"
#include "rowkernels/simd.h"

#include <cstring>

namespace zori {
namespace {

using Floats = Vec<float>;

// in_j[x] is the float at first - j * apart bytes, and x floats on.
struct Terms {
  const char* first;
  std::ptrdiff_t apart;
  const float* taps;
  int count;

  const float* in(int j, std::ptrdiff_t x) const { return reinterpret_cast<const float*>(first - j * apart) + x; }
};

// Two runs of terms that make one sum; the second may be empty.
struct Sum {
  Terms run[2];

  // U vectors from float x on.
  template <int U> void at(std::ptrdiff_t x, Floats (&sum)[U]) const
  {
    const Floats first = splat(run[0].taps[0]);
    for (int u = 0; u < U; ++u) sum[u] = load<float>(run[0].in(0, x) + u * Floats::size) * first;
    add(run[0], 1, x, sum);
    add(run[1], 0, x, sum);
  }
  float at(std::ptrdiff_t x) const
  {
    float sum = run[0].taps[0] * get<float>(run[0].in(0, x));
    for (int j = 1; j < run[0].count; ++j) sum += run[0].taps[j] * get<float>(run[0].in(j, x));
    for (int j = 0; j < run[1].count; ++j) sum += run[1].taps[j] * get<float>(run[1].in(j, x));
    return sum;
  }

private:
  template <int U> static void add(const Terms& terms, int from, std::ptrdiff_t x, Floats (&sum)[U])
  {
    const char* p = reinterpret_cast<const char*>(terms.in(from, x));
    for (int j = from; j < terms.count; ++j, p -= terms.apart) {
      const Floats tap = splat(terms.taps[j]);
#pragma GCC unroll 8
      for (int u = 0; u < U; ++u) sum[u] += load<float>(p + u * sizeof(Floats)) * tap;
    }
  }
};

// Sums that a core works on together, as many as its registers hold.
constexpr int sumsTogether = sizeof(void*) == 8 ? 8 : 4;

// ---- Sinks: put(x, sums of S outputs), with x a multiple of `grain` ----

struct AsTheyCome {
  static constexpr int outputs = 1, grain = 1, vectors = sumsTogether, few = 1;
  float* to;

  template <int U> void put(std::ptrdiff_t x, Floats (&sum)[1][U]) const
  {
    for (int u = 0; u < U; ++u) store(to + x + u * Floats::size, sum[0][u]);
  }
  void putOne(std::ptrdiff_t x, const float (&sum)[1]) const { zori::put(to + x, sum[0]); }
};

// The pixels of a line go to two lines, even ones to the first.
template <int channelCount> struct SplitPixels;

template <> struct SplitPixels<1> {
  static constexpr int outputs = 1, grain = 2, vectors = sumsTogether, few = 2;
  float* half[2];

  template <int U> void put(std::ptrdiff_t x, Floats (&sum)[1][U]) const
  {
    for (int u = 0; u < U; u += 2) {
      const std::ptrdiff_t at = x / 2 + u / 2 * Floats::size;
      store(half[0] + at, inOrder(evenLanes(sum[0][u], sum[0][u + 1])));
      store(half[1] + at, inOrder(oddLanes(sum[0][u], sum[0][u + 1])));
    }
  }
  void putOne(std::ptrdiff_t x, const float (&sum)[1]) const { zori::put(half[x % 2] + x / 2, sum[0]); }
};

template <> struct SplitPixels<3> {
  static constexpr int outputs = 1, grain = 6, few = 3, vectors = sumsTogether == 8 ? 6 : few;
  float* half[2];

  template <int U> void put(std::ptrdiff_t x, Floats (&sum)[1][U]) const
  {
    alignas(32) float pixels[U * Floats::size];
    for (int u = 0; u < U; ++u) storeAligned(pixels + u * Floats::size, sum[0][u]);
    for (int i = 0; i < U * Floats::size / 3; ++i)
      std::memcpy(half[i % 2] + x / 2 + i / 2 * 3, pixels + 3 * i, 3 * sizeof(float));
  }
  void putOne(std::ptrdiff_t x, const float (&sum)[1]) const
  {
    const std::ptrdiff_t pixel = x / 3;
    zori::put(half[pixel % 2] + pixel / 2 * 3 + x % 3, sum[0]);
  }
};

// The sums of two outputs go to the even and the odd pixels of a line.
template <int channelCount> struct MergePixels;

template <> struct MergePixels<1> {
  static constexpr int outputs = 2, grain = 1, vectors = sumsTogether / 2, few = 1;
  float* to;

  template <int U> void put(std::ptrdiff_t x, Floats (&sum)[2][U]) const
  {
    for (int u = 0; u < U; ++u) {
      float* const p = to + 2 * (x + u * Floats::size);
      store(p, interleaveLow(sum[0][u], sum[1][u]));
      store(p + Floats::size, interleaveHigh(sum[0][u], sum[1][u]));
    }
  }
  void putOne(std::ptrdiff_t x, const float (&sum)[2]) const
  {
    zori::put(to + 2 * x, sum[0]);
    zori::put(to + 2 * x + 1, sum[1]);
  }
};

template <> struct MergePixels<3> {
  static constexpr int outputs = 2, grain = 3, few = 3, vectors = 3;
  float* to;

  template <int U> void put(std::ptrdiff_t x, Floats (&sum)[2][U]) const
  {
    alignas(32) float pixels[2][U * Floats::size];
    for (int o = 0; o < 2; ++o)
      for (int u = 0; u < U; ++u) storeAligned(pixels[o] + u * Floats::size, sum[o][u]);
    for (int i = 0; i < U * Floats::size / 3; ++i)
      for (int o = 0; o < 2; ++o) std::memcpy(to + 2 * x + 6 * i + 3 * o, pixels[o] + 3 * i, 3 * sizeof(float));
  }
  void putOne(std::ptrdiff_t x, const float (&sum)[2]) const
  {
    const std::ptrdiff_t at = x / 3 * 6 + x % 3;
    zori::put(to + at, sum[0]);
    zori::put(to + at + 3, sum[1]);
  }
};

// ---- A line of sums ----

template <int U, class Sink> inline void putBlock(const Sum (&sums)[Sink::outputs], std::ptrdiff_t x, const Sink& sink)
{
  Floats block[Sink::outputs][U];
  for (int o = 0; o < Sink::outputs; ++o) sums[o].at(x, block[o]);
  sink.put(x, block);
}

// Blocks, the last one over floats that have been worked already; returns where they end. Nothing where the line is
// shorter than a block.
template <int U, class Sink>
inline std::ptrdiff_t putBlocks(const Sum (&sums)[Sink::outputs], std::ptrdiff_t length, const Sink& sink)
{
  constexpr std::ptrdiff_t block = U * Floats::size;
  static_assert(block % Sink::grain == 0);
  if (length < block) return 0;
  std::ptrdiff_t x = 0;
  for (; x + block <= length; x += block) putBlock<U>(sums, x, sink);
  if (x + Sink::grain <= length) {
    x = (length - block) / Sink::grain * Sink::grain;
    putBlock<U>(sums, x, sink);
    x += block;
  }
  return x;
}

// The sums of `length` floats of each output.
template <class Sink> [[gnu::noinline]] void putSums(const Sum (&sums)[Sink::outputs], std::ptrdiff_t length, Sink sink)
{
  std::ptrdiff_t x = putBlocks<Sink::vectors>(sums, length, sink);
  if (x == 0) x = putBlocks<Sink::few>(sums, length, sink);
  for (; x < length; ++x) {
    float one[Sink::outputs];
    for (int o = 0; o < Sink::outputs; ++o) one[o] = sums[o].at(x);
    sink.putOne(x, one);
  }
}

} // namespace
} // namespace zori
