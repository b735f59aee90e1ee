// Quotients of two images: exact rounding at every scale, zero denominators, limits of the scale, rounding modes,
// complex numbers, and every layout held against single samples.
#include "division.h"
#include "elementary.h"
#include "zori/arith.h"

#include <cfenv>
#include <cmath>

namespace {

// Every pair of bytes: numerators along y, denominators along x.
struct AllPairs {
  std::vector<Zor8u> num, den;
  AllPairs() : num(65536), den(65536)
  {
    for (std::size_t i = 0; i < 65536; ++i) num[i] = static_cast<Zor8u>(i >> 8), den[i] = static_cast<Zor8u>(i);
  }
};

// Pairs of 16-bit samples: bounds, small numbers (full of ties), random ones.
template <class T> struct SomePairs {
  std::vector<T> num, den;
  SomePairs()
  {
    std::mt19937 random(3);
    const int edges[] = {0, 1, 2, 3, 255, 256, 32766, 32767, 32768, 65534, 65535};
    for (const int a : edges)
      for (const int b : edges) add(a, b);
    for (int i = 0; i < 4000; ++i) {
      add(static_cast<int>(random()), static_cast<int>(random()));
      add(static_cast<int>(random()), static_cast<int>(random() % 300));
      const int d = static_cast<int>(random() % 180), k = static_cast<int>(random() % 180);
      add(d * (2 * k + 1), 2 * d); // a tie
    }
  }
  void add(int n, int d)
  {
    num.push_back(static_cast<T>(n));
    den.push_back(static_cast<T>(d));
    if (std::is_signed_v<T>) {
      num.push_back(static_cast<T>(-n));
      den.push_back(static_cast<T>(d));
    }
  }
};

// A function of one channel on rows of numerators and denominators.
template <class T, class... A>
ZorStatus divideRow(ZorStatus (*div)(const T*, int, const T*, int, T*, int, ZorImgSize, A...),
                    const std::vector<T>& den, const std::vector<T>& num, std::vector<T>& dst, A... arguments)
{
  const int step = static_cast<int>(num.size() * sizeof(T));
  dst.resize(num.size());
  return div(den.data(), step, num.data(), step, dst.data(), step, {static_cast<int>(num.size()), 1}, arguments...);
}

constexpr ZorRoundMode modes[] = {ZorRoundTowardZero, ZorRoundNearestEven, ZorRoundNearestAway};

// In single precision a quotient may meet a tie (or a whole number) that it only lies next to.
template <class T> void expectNearlyExact(T result, T n, T d, int scale, ZorRoundMode mode)
{
  const T exact = exactQuotient(n, d, scale, mode);
  if (result == exact) return;
  const ExactQuotient q(n, d, scale);
  const double toNextWhole = static_cast<double>(q.divisor - q.rest) / static_cast<double>(q.divisor);
  const double distance = mode == ZorRoundTowardZero ? toNextWhole / static_cast<double>(q.whole) : q.distanceFromTie();
  EXPECT_LT(distance, 0x1p-23) << n << " / " << d << " at scale " << scale << ", mode " << mode;
  EXPECT_LT(scale, 0) << n << " / " << d << ", mode " << mode;
  EXPECT_LE(std::abs(result - exact), 1);
}

template <class T, class Div, class DivRound> void expectQuotients(Div div, DivRound divRound)
{
  const SomePairs<T> pairs;
  std::vector<T> dst, rounded;
  for (const int scale : divisionScales()) {
    ASSERT_EQ(divideRow<T>(div, pairs.den, pairs.num, dst, scale), ZorWarnDivByZero);
    for (const ZorRoundMode mode : modes) {
      ASSERT_EQ(divideRow<T>(divRound, pairs.den, pairs.num, rounded, mode, scale), ZorWarnDivByZero);
      if (mode == ZorRoundNearestEven) {
        ASSERT_EQ(rounded, dst);
      }
      for (std::size_t i = 0; i < dst.size(); ++i)
        expectNearlyExact(rounded[i], pairs.num[i], pairs.den[i], scale, mode);
    }
  }
}

} // namespace

TEST(Div, WarnsOfAZeroAnywhere)
{
  const auto over = [](auto function) { // a row of ones
    return [=](const auto* den, auto* dst, int n) {
      using T = std::remove_pointer_t<decltype(dst)>;
      const std::vector<T> num(static_cast<std::size_t>(n), 1);
      const int step = n * static_cast<int>(sizeof *den);
      if constexpr (std::is_floating_point_v<T>) return function(den, step, num.data(), step, dst, step, {n, 1});
      else return function(den, step, num.data(), step, dst, step, {n, 1}, 0);
    };
  };
  expectWarningAtEveryPlace<Zor8u>(3, 0, ZorWarnDivByZero, over(zoriDiv_8u_C1RSfs));
  expectWarningAtEveryPlace<Zor16u>(3, 0, ZorWarnDivByZero, over(zoriDiv_16u_C1RSfs));
  expectWarningAtEveryPlace<Zor16s>(3, 0, ZorWarnDivByZero, over(zoriDiv_16s_C1RSfs));
  expectWarningAtEveryPlace<Zor32f>(3, 0, ZorWarnDivByZero, over(zoriDiv_32f_C1R));
}

TEST(Div, EveryPairOfBytesAtEveryScale)
{
  const AllPairs pairs;
  std::vector<Zor8u> dst, rounded;
  for (const int scale : divisionScales()) {
    ASSERT_EQ(divideRow(zoriDiv_8u_C1RSfs, pairs.den, pairs.num, dst, scale), ZorWarnDivByZero);
    for (const ZorRoundMode mode : modes) {
      ASSERT_EQ(divideRow(zoriDiv_Round_8u_C1RSfs, pairs.den, pairs.num, rounded, mode, scale), ZorWarnDivByZero);
      if (mode == ZorRoundNearestEven) {
        ASSERT_EQ(rounded, dst);
      }
      for (std::size_t i = 0; i < 65536; ++i)
        ASSERT_EQ(+rounded[i], +exactQuotient(pairs.num[i], pairs.den[i], scale, mode))
          << +pairs.num[i] << " / " << +pairs.den[i] << " at scale " << scale << ", mode " << mode;
    }
  }
}

TEST(Div, SixteenBits)
{
  expectQuotients<Zor16u>(zoriDiv_16u_C1RSfs, zoriDiv_Round_16u_C1RSfs);
  expectQuotients<Zor16s>(zoriDiv_16s_C1RSfs, zoriDiv_Round_16s_C1RSfs);
}

TEST(Div, TheFirstImageIsTheDenominator)
{
  Zor16s src[6] = {2, 2, 2, -2, 4, 3}, dst[6] = {5, 7, -5, 5, 100, -7};
  const Zor16s expected[6] = {2, 4, -2, -2, 25, -2};
  ASSERT_EQ(zoriDiv_16s_C1IRSfs(src, 12, dst, 12, {6, 1}, 0), ZorOk);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(dst[i], expected[i]) << i;
}

TEST(DivRound, TiesBelowZeroMirrorThoseAbove)
{
  const Zor16s num[4] = {5, -5, 7, -7}, den[4] = {2, 2, 2, 2};
  const Zor16s expected[3][4] = {{2, -2, 3, -3}, {2, -2, 4, -4}, {3, -3, 4, -4}};
  for (const ZorRoundMode mode : modes) {
    Zor16s dst[4];
    ASSERT_EQ(zoriDiv_Round_16s_C1RSfs(den, 8, num, 8, dst, 8, {4, 1}, mode, 0), ZorOk);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(dst[i], expected[mode][i]) << mode << ' ' << i;
  }
}

TEST(DivRound, AnUnknownModeIsTheLastCheck)
{
  Zor8u src[4] = {1, 1, 1, 1}, dst[4] = {9, 9, 9, 9};
  for (const int number : {-1, 3, INT_MAX}) {
    ZorRoundMode mode;
    std::memcpy(&mode, &number, sizeof mode);
    EXPECT_EQ(zoriDiv_Round_8u_C1RSfs(src, 4, src, 4, dst, 4, {4, 1}, mode, 0), ZorErrRoundMode);
    EXPECT_EQ(zoriDiv_Round_8u_C1RSfs(src, 4, src, 4, dst, 0, {4, 1}, mode, 0), ZorErrStep);
  }
  EXPECT_EQ(dst[0], 9);
}

TEST(Div, Floats)
{
  const float inf = INFINITY, nan = NAN;
  std::vector<float> num{5, -5, 0, -0.0f, nan, inf, -inf, 5, -5, 1e-40f, inf, 1, 3e38f, -1, 1, nan};
  std::vector<float> den{0, 0, 0, 0, 0, 0, 0, -0.0f, -0.0f, 0, inf, inf, 1e-40f, 1e-44f, 3, 2};
  const std::vector<float> overZeros{inf, -inf, nan, nan, nan, inf, -inf, inf, -inf, inf};
  std::mt19937 random(1);
  while (num.size() < 5000) {
    const Zor32u bits[2] = {static_cast<Zor32u>(random()), static_cast<Zor32u>(random())};
    float x[2];
    std::memcpy(x, bits, sizeof x);
    num.push_back(x[0]), den.push_back(x[1]);
  }
  std::vector<float> dst;
  ASSERT_EQ(divideRow(zoriDiv_32f_C1R, den, num, dst), ZorWarnDivByZero);
  for (std::size_t i = 0; i < dst.size(); ++i) {
    const float expected = i < overZeros.size() ? overZeros[i] : num[i] / den[i];
    if (std::isnan(expected)) ASSERT_TRUE(std::isnan(dst[i])) << i;
    else ASSERT_EQ(dst[i], expected) << num[i] << " / " << den[i];
  }
}

// Every zero is noticed wherever it stands, and none is seen that is not there.
TEST(Div, TheWarningIsExact)
{
  for (int length = 1; length <= 70; ++length) {
    const std::vector<Zor16u> num(70, 7);
    const std::vector<float> numFloat(70, 7);
    for (int zeroAt = -1; zeroAt < length; ++zeroAt) {
      std::vector<Zor16u> den(70, 3), dst(70, 1);
      std::vector<float> denFloat(70, 3), dstFloat(70, 1);
      if (length < 70) den[static_cast<std::size_t>(length)] = 0; // behind the row
      if (zeroAt >= 0) {
        den[static_cast<std::size_t>(zeroAt)] = 0;
        denFloat[static_cast<std::size_t>(zeroAt)] = -0.0f;
      }
      const ZorStatus expected = zeroAt < 0 ? ZorOk : ZorWarnDivByZero;
      for (const int scale : {0, -1000, 1000})
        ASSERT_EQ(zoriDiv_16u_C1RSfs(den.data(), 140, num.data(), 140, dst.data(), 140, {length, 1}, scale), expected);
      const ZorImgSize size = {length, 1}, pixels = {length / 4, 1};
      ASSERT_EQ(zoriDiv_32f_C1R(denFloat.data(), 280, numFloat.data(), 280, dstFloat.data(), 280, size), expected);
      // of four channels the fourth does not count
      if (length % 4 == 0) {
        const ZorStatus kept = zeroAt % 4 == 3 ? ZorOk : expected;
        ASSERT_EQ(zoriDiv_16u_AC4RSfs(den.data(), 140, num.data(), 140, dst.data(), 140, pixels, 0), kept);
        ASSERT_EQ(zoriDiv_32f_AC4R(denFloat.data(), 280, numFloat.data(), 280, dstFloat.data(), 280, pixels), kept);
      }
    }
  }
}

// ---- Complex numbers ----

TEST(Div, Complex16)
{
  std::mt19937 random(5);
  const int ranges[] = {3, 40, 1000, 32768};
  std::vector<Zor16sc> num, den;
  const auto part = [&](int range) {
    return static_cast<Zor16s>(static_cast<int>(random() % static_cast<unsigned>(2 * range)) - range);
  };
  for (const int a : ranges)
    for (const int b : ranges)
      for (int i = 0; i < 500; ++i) {
        num.push_back({part(a), part(a)});
        den.push_back({part(b), part(b)});
      }
  num.push_back({-32768, -32768}), den.push_back({-32768, -32768});
  num.push_back({-32768, -32768}), den.push_back({1, 1});
  num.push_back({1, -1}), den.push_back({-32767, -32768});
  num.push_back({4, 7}), den.push_back({0, 0});
  std::vector<Zor16sc> dst;
  for (const int scale : divisionScales()) {
    ASSERT_EQ(divideRow(zoriDiv_16sc_C1RSfs, den, num, dst, scale), ZorWarnDivByZero);
    for (std::size_t i = 0; i < num.size(); ++i) {
      const long long a = num[i].re, b = num[i].im, c = den[i].re, d = den[i].im, square = c * c + d * d;
      const long long parts[2] = {a * c + b * d, b * c - a * d};
      Zor16s expected[2] = {0, 0};
      for (int k = 0; k < 2 && square != 0; ++k) {
        // beyond the lower limit the sign alone counts
        if (scale < -32) expected[k] = overZero(static_cast<Zor16s>(parts[k] > 0 ? 1 : parts[k] < 0 ? -1 : 0));
        else expected[k] = ExactQuotient(parts[k], square, scale).rounded<Zor16s>(ZorRoundNearestEven);
      }
      ASSERT_EQ(dst[i].re, expected[0]) << a << '+' << b << "i / " << c << '+' << d << "i at scale " << scale;
      ASSERT_EQ(dst[i].im, expected[1]) << a << '+' << b << "i / " << c << '+' << d << "i at scale " << scale;
    }
  }
}

TEST(Div, Complex32)
{
  const Zor32s low = INT32_MIN, high = INT32_MAX;
  struct {
    Zor32sc num, den;
    int scale;
    Zor32sc expected;
  } cases[] = {
    {{5, -5}, {2, 0}, 0, {2, -2}},
    {{7, 5}, {0, 2}, 0, {2, -4}}, // 2.5 - 3.5i
    {{4, 7}, {0, 0}, 0, {0, 0}},
    {{low, low}, {low, low}, -4, {16, 0}}, // numerator and square at 2^63
    {{low, low}, {low, low}, -31, {high, 0}},
    {{low, low}, {1, 1}, 0, {low, 0}},
    {{low, high}, {1, 0}, 0, {low, high}},
    {{high, low}, {-1, 0}, 0, {-high, high}},
    {{low, 3}, {1, 0}, 1, {-1073741824, 2}},
    {{2099999997, 0}, {1399999998, 0}, 0, {2, 0}}, // 1.5, with products that a double cannot hold
    {{1166666665, 0}, {466666666, 0}, 0, {2, 0}},  // 2.5
    {{1, 1}, {high, high}, -60, {536870912, 0}},   // 2^29 and a little
    {{1, 0}, {high, 0}, INT_MIN, {high, 0}},
    {{-1, 1}, {high, 0}, -1000, {low, high}},
    {{low, low}, {1, 0}, INT_MAX, {0, 0}},
    {{low, low}, {1, 0}, 32, {0, 0}}, // -1/2
    {{low, low}, {1, 0}, 31, {-1, -1}},
  };
  for (const auto& c : cases) {
    Zor32sc dst = {1, 1}, inPlace = c.num;
    const ZorStatus status = c.den.re || c.den.im ? ZorOk : ZorWarnDivByZero;
    EXPECT_EQ(zoriDiv_32sc_C1RSfs(&c.den, 8, &c.num, 8, &dst, 8, {1, 1}, c.scale), status);
    EXPECT_EQ(dst.re, c.expected.re) << c.num.re << '+' << c.num.im << "i, scale " << c.scale;
    EXPECT_EQ(dst.im, c.expected.im) << c.num.re << '+' << c.num.im << "i, scale " << c.scale;
    EXPECT_EQ(zoriDiv_32sc_C1IRSfs(&c.den, 8, &inPlace, 8, {1, 1}, c.scale), status);
    EXPECT_EQ(std::memcmp(&inPlace, &dst, 8), 0);
  }
}

TEST(Div, ComplexFloats)
{
  std::mt19937 random(9);
  std::vector<Zor32fc> num, den;
  const auto part = [&] {
    const int mantissa = static_cast<int>(random()) >> 8, exponent = static_cast<int>(random() % 60) - 50;
    return std::ldexp(static_cast<float>(mantissa), exponent);
  };
  for (int i = 0; i < 3000; ++i) num.push_back({part(), part()}), den.push_back({part(), part()});
  // squares that single precision does not hold; parts that all but cancel
  num.push_back({3e38f, 3e38f}), den.push_back({2e38f, -1e38f});
  num.push_back({1e-38f, 0}), den.push_back({0, 1e-40f});
  num.push_back({16777215, 16777213}), den.push_back({16777213, -16777211});
  std::vector<Zor32fc> dst;
  ASSERT_EQ(divideRow(zoriDiv_32fc_C1R, den, num, dst), ZorOk);
  for (std::size_t i = 0; i < num.size(); ++i) {
    const long double a = num[i].re, b = num[i].im, c = den[i].re, d = den[i].im, square = c * c + d * d;
    const float re = static_cast<float>((a * c + b * d) / square), im = static_cast<float>((b * c - a * d) / square);
    ASSERT_FLOAT_EQ(dst[i].re, re) << i;
    ASSERT_FLOAT_EQ(dst[i].im, im) << i;
  }
  const Zor32fc zero = {0, -0.0f}, x = {1, 2};
  EXPECT_EQ(zoriDiv_32fc_C1R(&zero, 8, &x, 8, dst.data(), 8, {1, 1}), ZorWarnDivByZero);
  EXPECT_FALSE(std::isfinite(dst[0].re) || std::isfinite(dst[0].im));
}

// ---- Layouts, rounding mode ----

#define FORMS(name, type, suffix)                                                                                      \
  {                                                                                                                    \
    {1, false, name##_##type##_C1R##suffix, name##_##type##_C1IR##suffix},                                             \
      {3, false, name##_##type##_C3R##suffix, name##_##type##_C3IR##suffix},                                           \
      {4, false, name##_##type##_C4R##suffix, name##_##type##_C4IR##suffix},                                           \
    {                                                                                                                  \
      4, true, name##_##type##_AC4R##suffix, name##_##type##_AC4IR##suffix                                             \
    }                                                                                                                  \
  }
#define FORMS_WITHOUT_C4(name, type, suffix)                                                                           \
  {                                                                                                                    \
    {1, false, name##_##type##_C1R##suffix, name##_##type##_C1IR##suffix},                                             \
      {3, false, name##_##type##_C3R##suffix, name##_##type##_C3IR##suffix},                                           \
    {                                                                                                                  \
      4, true, name##_##type##_AC4R##suffix, name##_##type##_AC4IR##suffix                                             \
    }                                                                                                                  \
  }

TEST(Div, LayoutsAgreeWithSingleSamples)
{
  expectImageFormsAgree<Zor8u, int>(FORMS(zoriDiv, 8u, Sfs), -3);
  expectImageFormsAgree<Zor16u, int>(FORMS(zoriDiv, 16u, Sfs), -3);
  expectImageFormsAgree<Zor16s, int>(FORMS(zoriDiv, 16s, Sfs), -3);
  expectImageFormsAgree<Zor32f>(FORMS(zoriDiv, 32f, ));
  expectImageFormsAgree<Zor16sc, int>(FORMS_WITHOUT_C4(zoriDiv, 16sc, Sfs), -3);
  expectImageFormsAgree<Zor32sc, int>(FORMS_WITHOUT_C4(zoriDiv, 32sc, Sfs), -3);
  expectImageFormsAgree<Zor32fc>(FORMS_WITHOUT_C4(zoriDiv, 32fc, ));
}

TEST(DivRound, LayoutsAgreeWithSingleSamples)
{
  for (const ZorRoundMode mode : modes) {
    expectImageFormsAgree<Zor8u, ZorRoundMode, int>(FORMS(zoriDiv_Round, 8u, Sfs), mode, -3);
    expectImageFormsAgree<Zor16u, ZorRoundMode, int>(FORMS(zoriDiv_Round, 16u, Sfs), mode, -3);
    expectImageFormsAgree<Zor16s, ZorRoundMode, int>(FORMS(zoriDiv_Round, 16s, Sfs), mode, -3);
  }
}

TEST(Div, IntegersIgnoreTheCallersRoundingMode)
{
  const SomePairs<Zor16s> pairs;
  std::vector<Zor16s> expected, dst;
  const Zor16sc complexNum[2] = {{5, 7}, {-3, 100}}, complexDen[2] = {{2, 0}, {7, -3}};
  const Zor32sc wideNum[2] = {{5, 7}, {-3, 100}}, wideDen[2] = {{2, 0}, {7, -3}};
  Zor16sc complexExpected[2], complexDst[2];
  Zor32sc wideExpected[2], wideDst[2];
  const auto call = [&](std::vector<Zor16s>& a, Zor16sc* b, Zor32sc* c) {
    divideRow(zoriDiv_16s_C1RSfs, pairs.den, pairs.num, a, -3);
    zoriDiv_16sc_C1RSfs(complexDen, 8, complexNum, 8, b, 8, {2, 1}, 0);
    zoriDiv_32sc_C1RSfs(wideDen, 16, wideNum, 16, c, 16, {2, 1}, 0);
  };
  call(expected, complexExpected, wideExpected);
  for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    std::fesetround(mode);
    call(dst, complexDst, wideDst);
    const int after = std::fegetround();
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(after, mode);
    EXPECT_EQ(dst, expected);
    EXPECT_EQ(std::memcmp(complexDst, complexExpected, sizeof complexDst), 0);
    EXPECT_EQ(std::memcmp(wideDst, wideExpected, sizeof wideDst), 0);
  }
}
