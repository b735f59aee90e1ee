// The inverse block transforms against the figures that the field asks of inverse 8 x 8 cosine transforms: ten thousand
// random blocks in each of three ranges and with the sign turned, transformed forward in double precision, rounded to
// coefficients of 12 bits, and back; held against the exact inverse, rounded to 9 bits.
#include "zori/spectral.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace {

using Words = std::array<Zor16s, 64>;
using Reals = std::array<double, 64>;

const std::array<Reals, 2>& bases() // of [u][x], and turned
{
  static const std::array<Reals, 2> both = [] {
    std::array<Reals, 2> made{};
    for (int u = 0; u < 8; ++u)
      for (int x = 0; x < 8; ++x) {
        const double c = (u ? 0.5 : std::sqrt(0.125)) * std::cos((2 * x + 1) * u * std::acos(-1.0) / 16);
        made[0][u * 8 + x] = made[1][x * 8 + u] = c;
      }
    return made;
  }();
  return both;
}

// a * b for 8 x 8 matrices
Reals product(const Reals& a, const Reals& b)
{
  Reals out{};
  for (int i = 0; i < 8; ++i)
    for (int k = 0; k < 8; ++k)
      for (int j = 0; j < 8; ++j) out[i * 8 + j] += a[i * 8 + k] * b[k * 8 + j];
  return out;
}
Reals exactForward(const Reals& x) { return product(product(bases()[0], x), bases()[1]); }
Reals exactInverse(const Reals& x) { return product(product(bases()[1], x), bases()[0]); }

// The generator that belongs to the procedure: a linear congruence, and its high bits scaled to a range.
class Generator {
public:
  long next(long low, long high)
  {
    state_ = state_ * 1103515245 + 12345;
    const auto bits = static_cast<std::int32_t>(state_ & 0x7ffffffe);
    const double share = static_cast<double>(bits) / 0x7fffffff * static_cast<double>(low + high + 1);
    return static_cast<long>(share) - low;
  }

private:
  std::uint32_t state_ = 1;
};

struct Figures {
  double peak = 0, worstSquare = 0, square = 0, worstMean = 0, mean = 0;
};

template <class Inverse> Figures measure(long low, long high, int sign, Inverse inverse)
{
  constexpr int blocks = 10000;
  Generator generator;
  Reals sum{}, squares{};
  Figures figures;
  for (int block = 0; block < blocks; ++block) {
    Reals pixels;
    for (double& x : pixels) x = sign * static_cast<double>(generator.next(low, high));
    Reals coefficients = exactForward(pixels);
    for (double& x : coefficients) x = std::clamp(std::nearbyint(x), -2048.0, 2047.0);
    const Reals exact = exactInverse(coefficients), given = inverse(coefficients);
    for (int i = 0; i < 64; ++i) {
      const auto pixel = [](double x) { return std::clamp(std::nearbyint(x), -256.0, 255.0); };
      const double error = pixel(given[i]) - pixel(exact[i]);
      figures.peak = std::max(figures.peak, std::fabs(error));
      sum[i] += error;
      squares[i] += error * error;
    }
  }
  double all = 0;
  for (int i = 0; i < 64; ++i) {
    figures.worstSquare = std::max(figures.worstSquare, squares[i] / blocks);
    figures.worstMean = std::max(figures.worstMean, std::fabs(sum[i]) / blocks);
    figures.square += squares[i] / blocks / 64;
    all += sum[i] / blocks / 64;
  }
  figures.mean = std::fabs(all);
  return figures;
}

Reals integerInverse(const Reals& coefficients)
{
  Words from, to;
  for (int i = 0; i < 64; ++i) from[i] = static_cast<Zor16s>(coefficients[i]);
  zoriDCT8x8Inv_16s_C1(from.data(), to.data());
  Reals out;
  std::copy(to.begin(), to.end(), out.begin());
  return out;
}

Reals floatInverse(const Reals& coefficients)
{
  std::array<float, 64> from, to;
  for (int i = 0; i < 64; ++i) from[i] = static_cast<float>(coefficients[i]);
  zoriDCT8x8Inv_32f_C1(from.data(), to.data());
  Reals out;
  std::copy(to.begin(), to.end(), out.begin());
  return out;
}

struct Range {
  long low, high;
};
constexpr Range ranges[] = {{256, 255}, {5, 5}, {300, 300}};

template <class Inverse> void expectTheFiguresOfTheField(const char* name, Inverse inverse)
{
  Figures worst;
  for (const Range& range : ranges)
    for (const int sign : {1, -1}) {
      const Figures f = measure(range.low, range.high, sign, inverse);
      EXPECT_LE(f.peak, 1) << name << " -" << range.low << ".." << range.high;
      EXPECT_LE(f.worstSquare, 0.06) << name << " -" << range.low << ".." << range.high;
      EXPECT_LE(f.square, 0.02) << name << " -" << range.low << ".." << range.high;
      EXPECT_LE(f.worstMean, 0.015) << name << " -" << range.low << ".." << range.high;
      EXPECT_LE(f.mean, 0.0015) << name << " -" << range.low << ".." << range.high;
      worst.peak = std::max(worst.peak, f.peak);
      worst.worstSquare = std::max(worst.worstSquare, f.worstSquare);
      worst.square = std::max(worst.square, f.square);
      worst.worstMean = std::max(worst.worstMean, f.worstMean);
      worst.mean = std::max(worst.mean, f.mean);
    }
  std::printf("%s: peak %.0f, mean square %.4f of a place and %.5f of all, mean %.4f of a place and %.5f of all\n",
              name, worst.peak, worst.worstSquare, worst.square, worst.worstMean, worst.mean);
}

} // namespace

TEST(BlockAccuracy, IntegerInverseKeepsTheFiguresOfTheField)
{
  expectTheFiguresOfTheField("zoriDCT8x8Inv_16s_C1", integerInverse);
}

TEST(BlockAccuracy, FloatInverseKeepsTheFiguresOfTheField)
{
  expectTheFiguresOfTheField("zoriDCT8x8Inv_32f_C1", floatInverse);
}

TEST(BlockAccuracy, ZeroGivesZero)
{
  EXPECT_EQ(integerInverse(Reals{}), Reals{});
  EXPECT_EQ(floatInverse(Reals{}), Reals{});
}
