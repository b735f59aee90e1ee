// The block transforms against their rules followed number by number, and against exact cosines.
#include "zori/spectral.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <numeric>
#include <pmmintrin.h>
#include <random>
#include <vector>

namespace {

using Words = std::array<Zor16s, 64>;
using Reals = std::array<double, 64>;

// ---- The rules, on one number at a time ----

int sat(int x) { return std::clamp(x, -32768, 32767); }
int add(int a, int b) { return sat(a + b); }
int sub(int a, int b) { return sat(a - b); }
int high(int c, int v) { return (c * v) >> 16; }
int wrap(int x) { return static_cast<std::int16_t>(x); }
int odd(int x) { return x | 1; }

// weight * sqrt(2) * cos(n * pi / 16) by row; the values are part of the contract (one is not the nearest integer).
const int cosines[8][8] = {
  {16384, 22725, 21407, 19266, 16384, 12873, 8867, 4520},  {22725, 31521, 29692, 26722, 22725, 17855, 12299, 6270},
  {21407, 29692, 27969, 25172, 21407, 16819, 11585, 5906}, {19266, 26722, 25172, 22654, 19266, 15137, 10426, 5315},
  {16384, 22725, 21407, 19266, 16384, 12873, 8867, 4520},  {19266, 26722, 25172, 22654, 19266, 15137, 10426, 5315},
  {21407, 29692, 27969, 25172, 21407, 16819, 11585, 5906}, {22725, 31521, 29692, 26722, 22725, 17855, 12299, 6270},
};

int matrix(int row, int u, int k)
{
  if (u == 0) return cosines[row][0];
  const double sign = std::cos((2 * k + 1) * u * M_PI / 16);
  const int n = static_cast<int>(std::lround(std::acos(std::fabs(sign)) * 16 / M_PI));
  return sign < 0 ? -cosines[row][n] : cosines[row][n];
}

Words forward(const Words& in)
{
  int m[8][8];
  for (int c = 0; c < 8; ++c) {
    int x[8];
    for (int y = 0; y < 8; ++y) x[y] = in[8 * y + c];
    const int a = wrap(add(x[1], x[6]) << 3), b = wrap(add(x[2], x[5]) << 3), cc = add(x[0], x[7]), d = add(x[3], x[4]);
    const int u = wrap(add(cc, d) << 3), v = wrap(sub(cc, d) << 3), p = add(a, b), q = sub(a, b);
    m[0][c] = add(u, p);
    m[4][c] = sub(u, p);
    m[2][c] = wrap(odd(add(high(27146, q), v)));
    m[6][c] = wrap(odd(sub(high(27146, v), q)));
    const int e = wrap(sub(x[1], x[6]) << 4), f = wrap(sub(x[2], x[5]) << 4), g = wrap(sub(x[3], x[4]) << 3),
              h = wrap(sub(x[0], x[7]) << 3);
    const int mm = odd(high(23170, add(e, f))), n = high(23170, sub(e, f));
    const int j = add(g, n), k = sub(g, n), r = sub(h, mm), s = add(h, mm);
    m[1][c] = odd(add(high(13036, j), s));
    m[7][c] = sub(high(13036, s), j);
    m[3][c] = sub(r, add(high(-21746, k), k));
    m[5][c] = add(add(high(-21746, r), r), k);
  }
  Words out;
  for (int r = 0; r < 8; ++r)
    for (int u = 0; u < 8; ++u) {
      std::uint32_t sum = 0x80000;
      for (int k = 0; k < 4; ++k) {
        const int part = u % 2 ? sub(m[r][k], m[r][7 - k]) : add(m[r][k], m[r][7 - k]);
        sum += static_cast<std::uint32_t>(matrix(r, u, k) * part);
      }
      out[8 * r + u] = static_cast<Zor16s>(sat(static_cast<std::int32_t>(sum) >> 20));
    }
  return out;
}

// Coefficients outside the first `used` rows and columns count as zero, and rows without any are not biased.
Words inverse(const Words& in, int used = 8)
{
  const int bias[8] = {65536, 2901, 1704, 2260, 1024, 512, 455, 373};
  int m[8][8] = {};
  for (int r = 0; r < used; ++r)
    for (int k = 0; k < 8; ++k) {
      std::uint32_t sum = static_cast<std::uint32_t>(bias[r]);
      for (int u = 0; u < used; ++u) sum += static_cast<std::uint32_t>(matrix(r, u, k) * in[8 * r + u]);
      m[r][k] = sat(static_cast<std::int32_t>(sum) >> 11);
    }
  Words out;
  for (int c = 0; c < 8; ++c) {
    const auto tan3 = [](int v) { return add(high(-21746, v), v); };
    const auto cos4 = [](int v) { return add(v, high(-19195, v)); };
    int R[8];
    for (int y = 0; y < 8; ++y) R[y] = m[y][c];
    const int t35 = add(tan3(R[5]), R[3]), t53 = sub(R[5], tan3(R[3]));
    const int t17 = add(high(13036, R[7]), R[1]), t71 = sub(high(13036, R[1]), R[7]);
    const int y0 = add(t17, t35), u = sub(t17, t35), y3 = add(t71, t53), v = sub(t71, t53);
    const int w1 = cos4(add(u, v)), w2 = cos4(sub(u, v));
    const int t26 = add(high(27146, R[6]), R[2]), t62 = sub(high(27146, R[2]), R[6]);
    const int a0 = add(add(R[0], R[4]), t26), a3 = sub(add(R[0], R[4]), t26);
    const int a1 = add(sub(R[0], R[4]), t62), a2 = sub(sub(R[0], R[4]), t62);
    const int o[8] = {add(a0, y0), add(a1, w1), add(a2, w2), add(a3, y3),
                      sub(a3, y3), sub(a2, w2), sub(a1, w1), sub(a0, y0)};
    for (int y = 0; y < 8; ++y) out[8 * y + c] = static_cast<Zor16s>(o[y] >> 6);
  }
  return out;
}

// ---- The reduced forms ----

// What odd coefficients of the full inverse's columns make up, of the rows of one column.
struct OddSums {
  int y0, w1, w2, y3;
  explicit OddSums(const int (&row)[8])
  {
    const auto tan3 = [](int v) { return add(high(-21746, v), v); };
    const auto cos4 = [](int v) { return add(v, high(-19195, v)); };
    const int t35 = add(tan3(row[5]), row[3]), t53 = sub(row[5], tan3(row[3]));
    const int t17 = add(high(13036, row[7]), row[1]), t71 = sub(high(13036, row[1]), row[7]);
    const int u = sub(t17, t35), v = sub(t71, t53);
    y0 = add(t17, t35), y3 = add(t71, t53), w1 = cos4(add(u, v)), w2 = cos4(sub(u, v));
  }
};

int reducedRow(const Words& in, int r, int bias, const std::function<int(int)>& mean)
{
  std::uint32_t sum = static_cast<std::uint32_t>(bias);
  for (int u = 0; u < 8; ++u) sum += static_cast<std::uint32_t>(mean(u) * in[8 * r + u]);
  return sat(static_cast<std::int32_t>(sum) >> 12);
}

// 2 by 2 samples.
std::vector<int> reducedToTwo(const Words& in)
{
  const int means[8][4] = {{14846, -5213, 3483, -2953},
                           {20592, -7231, 4832, -4096},
                           {},
                           {17457, -6130, 4096, -3472},
                           {},
                           {17457, -6130, 4096, -3472},
                           {},
                           {20592, -7231, 4832, -4096}};
  const int bias[8] = {67072, 5802, 0, 3408, 0, 910, 0, 746};
  std::vector<int> out(4);
  for (int c = 0; c < 2; ++c) {
    int row[8] = {};
    for (const int r : {0, 1, 3, 5, 7})
      row[r] = reducedRow(in, r, bias[r], [&](int u) {
        return u == 0 ? cosines[r][0] : u % 2 == 0 ? 0 : c == 0 ? means[r][u / 2] : -means[r][u / 2];
      });
    const OddSums odd(row);
    const int sum = odd.y0 + odd.w1 + odd.w2 + odd.y3;
    out[static_cast<std::size_t>(c)] = (4 * row[0] + sum) >> 7;
    out[static_cast<std::size_t>(c + 2)] = (4 * row[0] - sum) >> 7;
  }
  return out;
}

// 4 by 4 samples; halves of means toward zero in the outer groups, away from it in the inner ones.
std::vector<int> reducedToFour(const Words& in)
{
  const int bias[8] = {67072, 5802, 4520, 3408, 0, 910, 1024, 746};
  std::vector<int> out(16);
  for (int c = 0; c < 4; ++c) {
    int row[8] = {};
    for (const int r : {0, 1, 2, 3, 5, 6, 7})
      row[r] = reducedRow(in, r, bias[r], [&](int u) {
        const int sum = matrix(r, u, 2 * c) + matrix(r, u, 2 * c + 1), away = c == 1 || c == 2;
        return (std::abs(sum) + away) / 2 * (sum < 0 ? -1 : 1);
      });
    const OddSums odd(row);
    const int t26 = add(high(27146, row[6]), row[2]), t62 = sub(high(27146, row[2]), row[6]);
    const int even[4] = {t26 + t62, -t26 - t62, -t26 - t62, t26 + t62};
    const int odds[4] = {odd.y0 + odd.w1, odd.w2 + odd.y3, -odd.w2 - odd.y3, -odd.y0 - odd.w1};
    for (int y = 0; y < 4; ++y) out[static_cast<std::size_t>(4 * y + c)] = (2 * row[0] + even[y] + odds[y]) >> 6;
  }
  return out;
}

// ---- Exact transforms ----

double cosine(int u, int i) { return std::cos((2 * i + 1) * u * M_PI / 16) * (u ? 0.5 : std::sqrt(0.125)); }

template <class Block> Reals exact(const Block& in, bool isInverse)
{
  Reals half{}, out{};
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x)
      for (int k = 0; k < 8; ++k) half[8 * y + x] += in[8 * y + k] * (isInverse ? cosine(k, x) : cosine(x, k));
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x)
      for (int k = 0; k < 8; ++k) out[8 * y + x] += half[8 * k + x] * (isInverse ? cosine(k, y) : cosine(y, k));
  return out;
}

template <class Block> double distance(const Block& a, const Reals& b)
{
  double most = 0;
  for (std::size_t i = 0; i < a.size(); ++i) most = std::max(most, std::fabs(a[i] - b[i]));
  return most;
}

// Blocks of one amplitude: noise, extremes, single values, few values, constant ones.
std::vector<Words> blocks(int amplitude, int noisy = 400)
{
  std::mt19937 random(static_cast<unsigned>(amplitude));
  std::uniform_int_distribution<int> any(-amplitude, amplitude);
  std::vector<Words> all;
  for (int n = 0; n < noisy; ++n) {
    Words b;
    for (auto& v : b) v = static_cast<Zor16s>(n % 3 == 0 ? (random() & 1 ? amplitude : -amplitude) : any(random));
    all.push_back(b);
  }
  for (int i = 0; i < 64; ++i)
    for (int value : {1, -1, amplitude, -amplitude}) {
      Words b{};
      b[static_cast<std::size_t>(i)] = static_cast<Zor16s>(value);
      all.push_back(b);
    }
  for (int n = 0; n < noisy; ++n) {
    Words b{};
    for (int k = n % 6; k >= 0; --k) b[random() % 64] = static_cast<Zor16s>(any(random));
    all.push_back(b);
  }
  for (int value : {0, 1, amplitude, -amplitude}) {
    Words b;
    b.fill(static_cast<Zor16s>(value));
    all.push_back(b);
  }
  return all;
}

using BlockFunction = ZorStatus (*)(const Zor16s*, Zor16s*);

Words result(BlockFunction function, const Words& in)
{
  Words out;
  EXPECT_EQ(function(in.data(), out.data()), ZorOk);
  return out;
}

} // namespace

TEST(BlockDct, FollowsItsRulesToTheBit)
{
  for (int amplitude : {1, 128, 255, 2047, 8000, 32767})
    for (const Words& block : blocks(amplitude)) {
      ASSERT_EQ(result(zoriDCT8x8Fwd_16s_C1, block), forward(block)) << amplitude;
      ASSERT_EQ(result(zoriDCT8x8Inv_16s_C1, block), inverse(block)) << amplitude;
      ASSERT_EQ(result(zoriDCT8x8Inv_2x2_16s_C1, block), inverse(block, 2)) << amplitude;
      ASSERT_EQ(result(zoriDCT8x8Inv_4x4_16s_C1, block), inverse(block, 4)) << amplitude;
      Words few = result(zoriDCT8x8To2x2Inv_16s_C1, block);
      ASSERT_EQ(std::vector<int>(few.begin(), few.begin() + 4), reducedToTwo(block)) << amplitude;
      few = result(zoriDCT8x8To4x4Inv_16s_C1, block);
      ASSERT_EQ(std::vector<int>(few.begin(), few.begin() + 16), reducedToFour(block)) << amplitude;
    }
}

TEST(BlockDct, IsCloseToTheExactTransformAndBack)
{
  double worst = 0, worstBack = 0, worstOfPictures = 0;
  int count = 0, beyondOne = 0;
  for (const Words& block : blocks(128, 4000)) {
    const Words coefficients = result(zoriDCT8x8Fwd_16s_C1, block);
    worst = std::max(worst, distance(coefficients, exact(block, false)));
    const Words back = result(zoriDCT8x8Inv_16s_C1, coefficients);
    worstBack = std::max(worstBack, distance(back, exact(coefficients, true)));
    double most = 0;
    for (int i = 0; i < 64; ++i) most = std::max(most, std::fabs(double(back[i]) - block[i]));
    worstOfPictures = std::max(worstOfPictures, most);
    beyondOne += most > 1;
    ++count;
  }
  EXPECT_LT(worst, 0.75);
  EXPECT_LT(worstBack, 0.6);
  EXPECT_LE(worstOfPictures, 2); // a lone 2 has no coefficient that reaches one half
  EXPECT_LE(beyondOne, count / 1000);
}

TEST(BlockDct, AConstantBlockHasOneCoefficient)
{
  Words block, expected{};
  block.fill(100);
  expected[0] = 800;
  EXPECT_EQ(result(zoriDCT8x8Fwd_16s_C1, block), expected);
  EXPECT_EQ(result(zoriDCT8x8Inv_16s_C1, expected), block);
  EXPECT_EQ(result(zoriDCT8x8Fwd_16s_C1, Words{}), Words{});
  EXPECT_EQ(result(zoriDCT8x8Inv_16s_C1, Words{}), Words{});
}

// The reduced forms give the means of the exact inverse.
TEST(BlockDct, ReducedFormsGiveMeans)
{
  for (const int side : {2, 4}) {
    double worst = 0, bias = 0;
    int count = 0;
    for (const Words& block : blocks(128, 2000)) {
      const Words coefficients = result(zoriDCT8x8Fwd_16s_C1, block);
      const Reals full = exact(coefficients, true);
      Words in = coefficients, out;
      out.fill(77);
      ASSERT_EQ((side == 2 ? zoriDCT8x8To2x2Inv_16s_C1 : zoriDCT8x8To4x4Inv_16s_C1)(in.data(), out.data()), ZorOk);
      ASSERT_EQ(out[static_cast<std::size_t>(side * side)], 77);
      ASSERT_EQ((side == 2 ? zoriDCT8x8To2x2Inv_16s_C1I : zoriDCT8x8To4x4Inv_16s_C1I)(in.data()), ZorOk);
      ASSERT_TRUE(std::equal(in.begin(), in.begin() + side * side, out.begin()));
      ASSERT_TRUE(std::equal(in.begin() + side * side, in.end(), coefficients.begin() + side * side));
      const int group = 8 / side;
      for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
          double mean = 0;
          for (int j = 0; j < group; ++j)
            for (int i = 0; i < group; ++i) mean += full[8 * (y * group + j) + x * group + i] / (group * group);
          worst = std::max(worst, std::fabs(out[y * side + x] - mean));
          bias += out[y * side + x] - mean;
          ++count;
        }
    }
    EXPECT_LT(worst, 0.7) << side;
    EXPECT_LT(std::fabs(bias / count), 0.05) << side;
  }
}

TEST(BlockDct, BetweenImagesAndBlocks)
{
  std::mt19937 random(3);
  for (int turn = 0; turn < 50; ++turn) {
    Zor8u bytes[8 * 11];
    Zor16s words[8 * 12];
    for (auto& v : bytes) v = static_cast<Zor8u>(random());
    for (auto& v : words) v = static_cast<Zor16s>(random() % 512 - 256);
    const Zor16s addVal = static_cast<Zor16s>(turn % 2 ? -128 : random());
    Words ofBytes, shifted, ofWords, out;
    for (int i = 0; i < 64; ++i) {
      ofBytes[i] = bytes[i / 8 * 11 + i % 8];
      shifted[i] = static_cast<Zor16s>(wrap(ofBytes[i] + addVal));
      ofWords[i] = words[i / 8 * 12 + i % 8];
    }
    ASSERT_EQ(zoriDCT8x8Fwd_8u16s_C1R(bytes, 11, out.data()), ZorOk);
    EXPECT_EQ(out, forward(ofBytes));
    ASSERT_EQ(zoriDCT8x8FwdLS_8u16s_C1R(bytes, 11, out.data(), addVal), ZorOk);
    EXPECT_EQ(out, forward(shifted));
    ASSERT_EQ(zoriDCT8x8Fwd_16s_C1R(words, 24, out.data()), ZorOk);
    EXPECT_EQ(out, forward(ofWords));

    const Words back = inverse(ofWords);
    Zor16s wide[8 * 9];
    Zor8u narrow[8 * 10];
    ASSERT_EQ(zoriDCT8x8Inv_16s_C1R(ofWords.data(), wide, 18), ZorOk);
    for (int i = 0; i < 64; ++i) ASSERT_EQ(wide[i / 8 * 9 + i % 8], back[i]);
    ASSERT_EQ(zoriDCT8x8Inv_16s8u_C1R(ofWords.data(), narrow, 10), ZorOk);
    for (int i = 0; i < 64; ++i) ASSERT_EQ(narrow[i / 8 * 10 + i % 8], std::clamp<int>(back[i], 0, 255));
    for (const auto& [low, top] : {std::pair<int, int>{0, 255}, {16, 235}, {0, 200}, {90, 91}, {200, 60}}) {
      ASSERT_EQ(zoriDCT8x8InvLSClip_16s8u_C1R(ofWords.data(), narrow, 10, addVal, static_cast<Zor8u>(low),
                                              static_cast<Zor8u>(top)),
                ZorOk);
      for (int i = 0; i < 64; ++i)
        ASSERT_EQ(narrow[i / 8 * 10 + i % 8], std::min(std::max(wrap(back[i] + addVal), low), top))
          << low << ' ' << top;
    }
  }
}

TEST(BlockDct, FloatsAreCloseToTheExactTransformAndBack)
{
  double worst = 0, back = 0;
  for (const Words& block : blocks(255, 2000)) {
    std::array<Zor32f, 64> in, out, again;
    std::copy(block.begin(), block.end(), in.begin());
    ASSERT_EQ(zoriDCT8x8Fwd_32f_C1(in.data(), out.data()), ZorOk);
    const double norm = std::sqrt(std::inner_product(in.begin(), in.end(), in.begin(), 0.0)) + 1e-30;
    worst = std::max(worst, distance(out, exact(in, false)) / norm);
    ASSERT_EQ(zoriDCT8x8Inv_32f_C1(out.data(), again.data()), ZorOk);
    back = std::max(back, distance(again, exact(out, true)) / norm);
  }
  EXPECT_LT(worst, 4e-7);
  EXPECT_LT(back, 4e-7);
}

TEST(BlockDct, FloatsDoNotDependOnTheCallersRounding)
{
  std::array<Zor32f, 64> in, out, expected;
  for (std::size_t i = 0; i < 64; ++i) in[i] = static_cast<Zor32f>(i * i % 97) / 7;
  for (const auto function : {zoriDCT8x8Fwd_32f_C1, zoriDCT8x8Inv_32f_C1}) {
    ASSERT_EQ(function(in.data(), expected.data()), ZorOk);
    const unsigned word = _mm_getcsr();
    for (const unsigned field : {0x2000u, 0x4000u, 0x6000u}) {
      _mm_setcsr((word & ~0x6000u) | field);
      function(in.data(), out.data());
      EXPECT_EQ(_mm_getcsr() & 0x6000u, field);
      _mm_setcsr(word);
      EXPECT_EQ(out, expected);
    }
  }
}

TEST(Zigzag, WalksTheDiagonals)
{
  // up and down the diagonals of equal x + y, the first step to the right
  std::array<int, 64> order;
  int n = 0;
  for (int d = 0; d < 15; ++d)
    for (int i = 0; i <= d; ++i) {
      const int y = d % 2 ? i : d - i, x = d - y;
      if (x < 8 && y < 8) order[static_cast<std::size_t>(n++)] = 8 * y + x;
    }
  Words block, scanned, back;
  std::iota(block.begin(), block.end(), Zor16s{-30});
  ASSERT_EQ(zoriZigzagFwd8x8_16s_C1(block.data(), scanned.data()), ZorOk);
  for (std::size_t i = 0; i < 64; ++i) EXPECT_EQ(scanned[i], block[static_cast<std::size_t>(order[i])]);
  ASSERT_EQ(zoriZigzagInv8x8_16s_C1(scanned.data(), back.data()), ZorOk);
  EXPECT_EQ(back, block);
}
