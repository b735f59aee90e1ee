// Exponential: every integer sample at every scale, floats within the last place, the layouts.
#include "elementary.h"
#include "zori/arith.h"

#include <cfenv>
#include <cmath>

// e^x * 2^-scale + 1/2, cut; in numbers of a range that holds every e^x of the scales here.
template <class T> static double scaledExp(T x, int scale)
{
  const long double y = std::ldexp(std::exp(static_cast<long double>(x)), -std::max(-100000, std::min(scale, 100000)));
  return static_cast<double>(std::floor(std::min(y, 1e9L) + 0.5L));
}

TEST(Exp, EverySampleAtEveryScale)
{
  expectMap(zoriExp_8u_C1RSfs, allValues<Zor8u>(), manyScales(), ZorOk, scaledExp<Zor8u>);
  std::vector<Zor8u> two{0, 1};
  expectMap(zoriExp_8u_C1RSfs, two, {-7}, ZorOk, [](int x, int) { return x ? 255.0 : 128.0; });
  // up to 11000 the oracle's numbers hold the exponentials
  std::vector<Zor16u> natural;
  std::vector<Zor16s> integers;
  for (int x = -11000; x <= 11000; ++x) integers.push_back(static_cast<Zor16s>(x));
  for (int x = 0; x <= 11000; ++x) natural.push_back(static_cast<Zor16u>(x));
  std::vector<int> scales = manyScales();
  for (int s = -15000; s <= 15000; s += 709) scales.push_back(s);
  expectMap(zoriExp_16u_C1RSfs, natural, scales, ZorOk, scaledExp<Zor16u>);
  expectMap(zoriExp_16s_C1RSfs, integers, scales, ZorOk, scaledExp<Zor16s>);
}

TEST(Exp, StepsAtTheEndsOfTheRange)
{
  // e^x * 2^-s of the last and the first samples, by logarithms
  const auto near = [](int x, int s) {
    return static_cast<double>(std::floor(std::exp(static_cast<long double>(x) - s * std::log(2.0L)) + 0.5L));
  };
  for (int s = 94520; s <= 94560; ++s) {
    std::vector<Zor16u> src, dst(20);
    for (int x = 65516; x <= 65535; ++x) src.push_back(static_cast<Zor16u>(x));
    ASSERT_EQ(zoriExp_16u_C1RSfs(src.data(), 40, dst.data(), 40, {20, 1}, s), ZorOk);
    for (std::size_t i = 0; i < 20; ++i) ASSERT_EQ(dst[i], saturated<Zor16u>(near(src[i], s))) << s;
  }
  for (int s = -47290; s <= -47250; ++s) {
    std::vector<Zor16s> src, dst(20);
    for (int x = -32768; x < -32748; ++x) src.push_back(static_cast<Zor16s>(x));
    ASSERT_EQ(zoriExp_16s_C1RSfs(src.data(), 40, dst.data(), 40, {20, 1}, s), ZorOk);
    for (std::size_t i = 0; i < 20; ++i) ASSERT_EQ(dst[i], saturated<Zor16s>(near(src[i], s))) << s;
  }
}

TEST(Exp, FloatsWithinTheLastPlace)
{
  expectLastPlace(
    zoriExp_32f_C1R, [](double x) { return std::exp(x); }, [](float) { return true; });
  // where results are denormal, and where they pass the bounds
  for (const float from : {-104.2f, -103.5f, -87.5f, 86.99f, 88.7f}) {
    std::vector<float> src, dst(4000);
    for (float x = from; src.size() < 4000; x += 0x1p-14f) src.push_back(x);
    ASSERT_EQ(zoriExp_32f_C1R(src.data(), 16000, dst.data(), 16000, {4000, 1}), ZorOk);
    for (std::size_t i = 0; i < 4000; ++i) {
      const float exact = static_cast<float>(std::exp(static_cast<double>(src[i])));
      if (std::isinf(exact)) ASSERT_EQ(dst[i], exact) << src[i];
      else ASSERT_LE(std::abs(place(dst[i]) - place(exact)), 1) << src[i];
    }
  }
}

TEST(Exp, FloatsOutsideTheOrdinaryRange)
{
  const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  struct {
    float x, y;
  } cases[] = {{0, 1},      {-0.0f, 1}, {inf, inf}, {-inf, 0},   {nan, nan},
               {-nan, nan}, {89, inf},  {-104, 0},  {1e-45f, 1}, {std::numeric_limits<float>::max(), inf}};
  for (const auto& c : cases)
    for (int length = 1; length <= 40; ++length)
      for (int at = 0; at < length; ++at) {
        std::vector<float> row(40, 0.0f);
        row[static_cast<std::size_t>(at)] = c.x;
        ASSERT_EQ(zoriExp_32f_C1IR(row.data(), 4 * length, {length, 1}), ZorOk);
        for (int i = 0; i < 40; ++i) {
          const float y = row[static_cast<std::size_t>(i)], expected = i == at ? c.y : i < length ? 1 : 0;
          if (std::isnan(expected)) ASSERT_TRUE(std::isnan(y)) << c.x;
          else ASSERT_EQ(y, expected) << c.x;
        }
      }
}

TEST(Exp, TheCallersRoundingModeDoesNotMatter)
{
  Zor32f x[8] = {0.1f, 0.7f, 3, -100, 50, 1.0001f, -0.99f, -88}, y[8], z[8];
  zoriExp_32f_C1R(x, 32, y, 32, {8, 1});
  std::fesetround(FE_TOWARDZERO);
  zoriExp_32f_C1R(x, 32, z, 32, {8, 1});
  EXPECT_EQ(std::fegetround(), FE_TOWARDZERO);
  std::fesetround(FE_TONEAREST);
  EXPECT_EQ(0, std::memcmp(y, z, sizeof y));
}

TEST(Exp, LayoutsAgree)
{
#define FORMS(type, suffix)                                                                                            \
  {1, false, zoriExp_##type##_C1R##suffix, zoriExp_##type##_C1IR##suffix},                                             \
    {3, false, zoriExp_##type##_C3R##suffix, zoriExp_##type##_C3IR##suffix}
  expectLayoutsAgree<Zor8u, int>({FORMS(8u, Sfs)}, 300);
  expectLayoutsAgree<Zor16u, int>({FORMS(16u, Sfs)}, 60000);
  expectLayoutsAgree<Zor16s, int>({FORMS(16s, Sfs)}, -7);
  expectLayoutsAgree<Zor32f>({FORMS(32f, )});
#undef FORMS
}
