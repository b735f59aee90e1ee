// Square root: every integer sample at every scale, ties, warnings, the layouts, the masked steps.
#include "elementary.h"
#include "zori/arith.h"

#include <cfenv>
#include <cmath>

// The integer nearest to sqrt(x) * 2^-scale, ties to even, in exact integers; saturation makes larger ones equal.
template <class T> static double scaledRoot(T x, int scale)
{
  if (x <= 0) return 0;
  if (scale < -17) return 1e9;
  if (scale > 17) return 0;
  // sqrt(x) * 2^-scale against (2n + 1) / 2: 4 * x * 4^-scale against (2n + 1)^2
  const long long left = scale > 0 ? 4ll * x : (4ll * x) << (-2 * scale), unit = scale > 0 ? 1ll << (2 * scale) : 1;
  auto n = static_cast<long long>(std::sqrt(static_cast<long double>(left) / static_cast<long double>(unit)) / 2);
  const auto aboveMiddle = [&](long long k) { return left - (2 * k + 1) * (2 * k + 1) * unit; };
  n -= n > 0 && aboveMiddle(n - 1) <= 0;
  const long long above = aboveMiddle(n);
  return static_cast<double>(n + (above > 0 || (above == 0 && n % 2 != 0)));
}

TEST(Sqrt, EverySampleAtEveryScale)
{
  std::vector<Zor16s> natural;
  for (int x = 0; x <= 32767; ++x) natural.push_back(static_cast<Zor16s>(x));
  // the caller's rounding mode does not matter
  for (const int mode : {FE_TONEAREST, FE_UPWARD, FE_TOWARDZERO}) {
    std::fesetround(mode);
    const auto oracle = [](auto x, int scale) {
      const int old = std::fegetround();
      std::fesetround(FE_TONEAREST);
      const double root = scaledRoot(x, scale);
      std::fesetround(old);
      return root;
    };
    const auto scales = mode == FE_TONEAREST ? manyScales() : std::vector<int>{-7, -3, -2, 0, 1, 4};
    expectMap(zoriSqrt_8u_C1RSfs, allValues<Zor8u>(), scales, ZorOk, oracle);
    expectMap(zoriSqrt_16u_C1RSfs, allValues<Zor16u>(), scales, ZorOk, oracle);
    expectMap(zoriSqrt_16s_C1RSfs, natural, scales, ZorOk, oracle);
    expectMap(zoriSqrt_16s_C1RSfs, allValues<Zor16s>(), scales, ZorWarnSqrtNegArg, oracle);
  }
  std::fesetround(FE_TONEAREST);
}

TEST(Sqrt, TiesGoToTheEvenNeighbour)
{
  const Zor8u src[15] = {1, 8, 9, 24, 25, 48, 49, 81, 120, 121, 169, 170, 224, 225, 255};
  const Zor8u expected[15] = {0, 1, 2, 2, 2, 3, 4, 4, 5, 6, 6, 7, 7, 8, 8};
  Zor8u dst[15];
  ASSERT_EQ(zoriSqrt_8u_C1RSfs(src, 15, dst, 15, {15, 1}, 1), ZorOk);
  for (int i = 0; i < 15; ++i) EXPECT_EQ(dst[i], expected[i]) << +src[i];
}

TEST(Sqrt, FloatsAndTheirWarning)
{
  const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  const float src[7] = {-0.0f, 2, inf, nan, -nan, 1e-42f, 0.1f};
  float dst[7];
  ASSERT_EQ(zoriSqrt_32f_C1R(src, 28, dst, 28, {7, 1}), ZorOk); // NaN is not negative
  for (int i = 0; i < 7; ++i) {
    if (std::isnan(src[i])) EXPECT_TRUE(std::isnan(dst[i]));
    else EXPECT_EQ(dst[i], std::sqrt(src[i]));
  }
  EXPECT_TRUE(std::signbit(dst[0]));
  for (const float negative : {-1.0f, -inf, -1e-42f})
    for (int length = 1; length <= 40; ++length)
      for (int at = 0; at < length; ++at) {
        std::vector<float> row(40, 4.0f);
        row[static_cast<std::size_t>(at)] = negative;
        ASSERT_EQ(zoriSqrt_32f_C1IR(row.data(), 4 * length, {length, 1}), ZorWarnSqrtNegArg);
        for (int i = 0; i < 40; ++i) {
          const float x = row[static_cast<std::size_t>(i)];
          if (i == at) ASSERT_TRUE(std::isnan(x));
          else ASSERT_EQ(x, i < length ? 2 : 4);
        }
      }
}

TEST(Sqrt, WarnsOfOneSampleAnywhereButInTheFourthChannel)
{
  constexpr int width = 1500, height = 3;
  std::vector<Zor16s> src(width * height * 4, 9), dst(src.size());
  std::vector<Zor32f> srcF(src.size(), 9), dstF(src.size());
  const auto call = [&](int scale) {
    return zoriSqrt_16s_AC4RSfs(src.data(), width * 8, dst.data(), width * 8, {width, height}, scale);
  };
  const auto callF = [&] {
    return zoriSqrt_32f_AC4R(srcF.data(), width * 16, dstF.data(), width * 16, {width, height});
  };
  for (std::size_t i = 3; i < src.size(); i += 4) src[i] = -1, srcF[i] = -1;
  EXPECT_EQ(call(0), ZorOk);
  EXPECT_EQ(callF(), ZorOk);
  for (const std::size_t at : {0, 4, 2001 * 4 + 2, (width * height - 1) * 4 + 1}) {
    src[at] = -1, srcF[at] = -1;
    for (const int scale : {-100, -5, 0, 9, 100}) EXPECT_EQ(call(scale), ZorWarnSqrtNegArg) << at << ' ' << scale;
    EXPECT_EQ(callF(), ZorWarnSqrtNegArg) << at;
    src[at] = 9, srcF[at] = 9;
  }
  EXPECT_EQ(zoriSqrt_32f_C4IR(srcF.data(), width * 16, {width, height}), ZorWarnSqrtNegArg);
  EXPECT_EQ(srcF[0], 3);
  EXPECT_TRUE(std::isnan(srcF[3]));
}

TEST(Sqrt, LayoutsAgree)
{
#define FORMS(type, suffix)                                                                                            \
  {1, false, zoriSqrt_##type##_C1R##suffix, zoriSqrt_##type##_C1IR##suffix},                                           \
    {3, false, zoriSqrt_##type##_C3R##suffix, zoriSqrt_##type##_C3IR##suffix},                                         \
  {                                                                                                                    \
    4, true, zoriSqrt_##type##_AC4R##suffix, zoriSqrt_##type##_AC4IR##suffix                                           \
  }
  for (const int scale : {-7, 0, 1}) {
    expectLayoutsAgree<Zor8u, int>({FORMS(8u, Sfs)}, scale);
    expectLayoutsAgree<Zor16u, int>({FORMS(16u, Sfs)}, scale);
    expectLayoutsAgree<Zor16s, int>({FORMS(16s, Sfs)}, scale);
  }
  expectLayoutsAgree<Zor32f>({FORMS(32f, ), {4, false, nullptr, zoriSqrt_32f_C4IR}});
#undef FORMS
}

TEST(Sqrt, StepsAreMaskedInOneAndThreeChannels)
{
  Zor16s x[8] = {1, 4, 9, 16, 25, 36, 49, 64};
  ASSERT_EQ(zoriSqrt_16s_C3IRSfs(x, 7, {1, 2}, 0), ZorOk);
  const Zor16s expected[8] = {1, 2, 3, 4, 5, 6, 49, 64};
  EXPECT_EQ(0, std::memcmp(x, expected, sizeof x));
  // rows that coincide: the root of the root, and the warning of the first
  Zor32f y[2] = {16, -1};
  ASSERT_EQ(zoriSqrt_32f_C1IR(y, 3, {2, 2}), ZorWarnSqrtNegArg);
  EXPECT_EQ(y[0], 2);
}
