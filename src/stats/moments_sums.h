// Sums of x^k I over a chunk of a row of integers, k = 0..3, exact: what the moments of integer images are made of.
#pragma once

#include "frame/compiler.h"
#include "rowkernels/simd.h"
#include "zori/types.h"

namespace zori {
namespace {

constexpr int blockPixels = 32, chunkBlocks = 16, chunkPixels = blockPixels * chunkBlocks;

// s += the sums t of u^k I as sums of x^k I, where x = u + by.
template <class A> inline void addMoved(A* s, A t0, A t1, A t2, A t3, A by)
{
  s[0] += t0;
  s[1] += t1 + by * t0;
  s[2] += t2 + by * (A(2) * t1 + by * t0);
  s[3] += t3 + by * (A(3) * t2 + by * (A(3) * t1 + by * t0));
}

// Sums of u^k I about an origin behind the chunk: u = x - end, so u runs from -length to -1.
struct ChunkSums {
  std::int64_t t[4];
};

// The sums of a power t of the column over all blocks, times the number w of the block, which counts from the chunk's
// end: 1 is the last block. Sums of sums do that without products: of[k] is the sum of t, w t, w (w + 1) / 2 t and
// w (w + 1) (w + 2) / 6 t for k = 0..3.
template <int Orders> struct SumsOverBlocks {
  Vec<Zor32s> of[Orders];

  SumsOverBlocks()
  {
    for (auto& sum : of) sum = zero<Zor32s>();
  }
  void add(Vec<Zor32s> t)
  {
    of[0] += t;
    for (int k = 1; k < Orders; ++k) of[k] += of[k - 1];
  }
};

// The totals over the lanes too, as sums of t w^k.
struct WeightedTotals {
  std::int64_t byPower[4] = {};

  template <int Orders> explicit WeightedTotals(const SumsOverBlocks<Orders>& sums)
  {
    Vec<Zor32s> v[4];
    for (int k = 0; k < 4; ++k) v[k] = k < Orders ? sums.of[k < Orders ? k : 0] : zero<Zor32s>();
    const auto low = as<std::uint64_t>(interleaveLow(v[0], v[1]) + interleaveHigh(v[0], v[1]));
    const auto high = as<std::uint64_t>(interleaveLow(v[2], v[3]) + interleaveHigh(v[2], v[3]));
    Zor32s total[4];
    store(total, as<Zor32s>(interleaveLow(low, high)) + as<Zor32s>(interleaveHigh(low, high)));
    const std::int64_t once = total[1], twice = total[2], thrice = total[3];
    byPower[0] = total[0];
    byPower[1] = once;
    byPower[2] = 2 * twice - once;
    byPower[3] = 6 * thrice - 6 * twice + once;
  }
  std::int64_t operator[](int power) const { return byPower[power]; }
};

// Samples of at most 8 bits as words, four vectors of eight columns a block: column 8j + c is sample c of vector j.
// With the sums p_r of j^r times vector j, which still are words, the sums of the powers of the column are
//
//   1                                  p0
//   8j + c                             p0 c   + p1 8
//   64j^2 + 16jc + c^2                 p0 c^2 + p1 16c   + p2 64
//   512j^3 + 192j^2 c + 24jc^2 + c^3   p0 c^3 + p1 24c^2 + p2 192c + p3 512
//
// No lane and no total of lanes passes 2^30.
template <class Words> ZORI_ONE_COPY ChunkSums sumChunk(int blocks, Words words)
{
  struct alignas(16) Weights {
    Zor16s one[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    Zor16s c[8] = {0, 1, 2, 3, 4, 5, 6, 7}, eight[8] = {8, 8, 8, 8, 8, 8, 8, 8};
    Zor16s c2[8] = {0, 1, 4, 9, 16, 25, 36, 49}, c16[8] = {0, 16, 32, 48, 64, 80, 96, 112};
    Zor16s c3[8] = {0, 1, 8, 27, 64, 125, 216, 343}, c2by24[8] = {0, 24, 96, 216, 384, 600, 864, 1176};
    Zor16s c192[8] = {0, 192, 384, 576, 768, 960, 1152, 1344};
    Zor16s square[8] = {64, 64, 64, 64, 64, 64, 64, 64}, cube[8] = {512, 512, 512, 512, 512, 512, 512, 512};
    Zor16s nine[8] = {9, 9, 9, 9, 9, 9, 9, 9}, twentySeven[8] = {27, 27, 27, 27, 27, 27, 27, 27};
  };
  static constexpr Weights weights;
  const auto times = [](Vec<Zor16s> v, const Zor16s* weight) { return mulAddPairs(v, loadAligned<Zor16s>(weight)); };

  SumsOverBlocks<4> ones; // of column^0, which meet w up to its third power
  SumsOverBlocks<3> columns;
  SumsOverBlocks<2> squares;
  SumsOverBlocks<1> cubes;
  for (int b = 0; b < blocks; ++b) {
    Vec<Zor16s> v[4];
    words(b, v);
    const Vec<Zor16s> above = v[2] + v[3], p0 = v[0] + v[1] + above, p1 = v[1] + above + above + v[3];
    const Vec<Zor16s> p2 = v[1] + shiftLeft<2>(v[2]) + mulLow(v[3], loadAligned<Zor16s>(weights.nine));
    const Vec<Zor16s> p3 = v[1] + shiftLeft<3>(v[2]) + mulLow(v[3], loadAligned<Zor16s>(weights.twentySeven));
    cubes.add(times(p0, weights.c3) + times(p1, weights.c2by24) + times(p2, weights.c192) + times(p3, weights.cube));
    squares.add(times(p0, weights.c2) + times(p1, weights.c16) + times(p2, weights.square));
    columns.add(times(p0, weights.c) + times(p1, weights.eight));
    ones.add(times(p0, weights.one));
  }
  // u = column in the block - 32 w, to the powers 0..3
  const WeightedTotals t0(ones), t1(columns), t2(squares), t3(cubes);
  return {{t0[0], t1[0] - 32 * t0[1], t2[0] - 2 * 32 * t1[1] + 32 * 32 * t0[2],
           t3[0] - 3 * 32 * t2[1] + 3 * 32 * 32 * t1[2] - 32 * 32 * 32 * t0[3]}};
}

inline ChunkSums sumPlane(const Zor8u* p, int blocks)
{
  return sumChunk(blocks, [=](int b, Vec<Zor16s>* v) {
    for (int k = 0; k < 2; ++k) {
      const Vec<Zor8u> x = load<Zor8u>(p + b * blockPixels + 16 * k);
      v[2 * k] = as<Zor16s>(widenLow(x));
      v[2 * k + 1] = as<Zor16s>(widenHigh(x));
    }
  });
}

// Words as their low and high bytes.
inline ChunkSums sumPlane(const Zor16u* p, int blocks)
{
  const auto bytes = [=](bool upper) {
    return sumChunk(blocks, [=](int b, Vec<Zor16s>* v) {
      for (int k = 0; k < 4; ++k) {
        const Vec<Zor16u> x = load<Zor16u>(p + b * blockPixels + 8 * k);
        v[k] = as<Zor16s>(upper ? shiftRight<8>(x) : x & splat<Zor16u>(255));
      }
    });
  };
  const ChunkSums low = bytes(false), high = bytes(true);
  ChunkSums sums;
  for (int k = 0; k < 4; ++k) sums.t[k] = low.t[k] + 256 * high.t[k];
  return sums;
}

} // namespace
} // namespace zori
