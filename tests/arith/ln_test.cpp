// Natural logarithm: every integer sample at every scale, floats within the last place, warnings, the layouts.
#include "elementary.h"
#include "zori/arith.h"

#include <cfenv>
#include <cmath>

template <class T> static double scaledLn(T x, int scale)
{
  if (x <= 0) return std::numeric_limits<T>::min();
  if (x == 1) return 0;
  if (scale < -64) return 1e9;
  const long double exact = std::ldexp(std::log(static_cast<long double>(x)), -std::min(scale, 64));
  return static_cast<double>(std::floor(exact + 0.5L));
}

TEST(Ln, EverySampleAtEveryScale)
{
  expectMap(zoriLn_8u_C1RSfs, allValues<Zor8u>(), manyScales(), ZorWarnLnZeroArg, scaledLn<Zor8u>);
  expectMap(zoriLn_16u_C1RSfs, allValues<Zor16u>(), manyScales(), ZorWarnLnZeroArg, scaledLn<Zor16u>);
  expectMap(zoriLn_16s_C1RSfs, allValues<Zor16s>(), manyScales(), ZorWarnLnNegArg, scaledLn<Zor16s>);
  // large images of 8u take a way of their own
  std::vector<Zor8u> many;
  for (int i = 0; i < 40000; ++i) many.push_back(static_cast<Zor8u>(i * 7 % 255 + 1));
  expectMap(zoriLn_8u_C1RSfs, many, manyScales(), ZorOk, scaledLn<Zor8u>);
}

// Regions that are worth a table of all logarithms, against their rows one by one.
template <class T, class F> static void expectRowsAlike(F function)
{
  constexpr int width = 1000, height = 263, step = width * sizeof(T); // hardly more than four times all values
  for (int scale : {-13, -9, 0, 2}) {
    std::vector<T> src, whole(width * height), rows(width * height);
    for (int i = 0; i < width * height; ++i) src.push_back(static_cast<T>(i * 7));
    std::vector<T> inPlace = src;
    const ZorStatus status = function(src.data(), step, whole.data(), step, {width, height}, scale);
    EXPECT_EQ(status, ZorWarnLnZeroArg);
    EXPECT_EQ(function(inPlace.data(), step, inPlace.data(), step, {width, height}, scale), status);
    for (int y = 0; y < height; ++y)
      function(src.data() + y * width, step, rows.data() + y * width, step, {width, 1}, scale);
    EXPECT_EQ(whole, rows) << scale;
    EXPECT_EQ(inPlace, rows) << scale;
  }
}

TEST(Ln, LargeRegionsAreAsTheirRows)
{
  expectRowsAlike<Zor16u>(zoriLn_16u_C1RSfs);
  expectRowsAlike<Zor16s>(zoriLn_16s_C1RSfs);
}

TEST(Ln, FloatsWithinTheLastPlace)
{
  expectLastPlace(
    zoriLn_32f_C1R, [](double x) { return std::log(x); }, [](float x) { return !(x <= 0); });
  // near 1, where the logarithm vanishes
  for (float x = 1 - 1000 * 0x1p-24f; x <= 1 + 1000 * 0x1p-23f; x = std::nextafter(x, 2.0f)) {
    float y;
    ASSERT_EQ(zoriLn_32f_C1R(&x, 4, &y, 4, {1, 1}), ZorOk);
    ASSERT_LE(std::abs(place(y) - place(static_cast<float>(std::log(static_cast<double>(x))))), 1) << x;
  }
}

TEST(Ln, FloatsOutsideTheOrdinaryRange)
{
  const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  struct {
    float x, y;
    ZorStatus status;
  } cases[] = {{0, -inf, ZorWarnLnZeroArg},
               {-0.0f, -inf, ZorWarnLnZeroArg},
               {-1, nan, ZorWarnLnNegArg},
               {-inf, nan, ZorWarnLnNegArg},
               {-1e-45f, nan, ZorWarnLnNegArg},
               {inf, inf, ZorOk},
               {nan, nan, ZorOk},
               {-nan, nan, ZorOk},
               {1, 0, ZorOk},
               {1e-45f, -103.278929f, ZorOk},
               {std::numeric_limits<float>::max(), 88.722839f, ZorOk}};
  for (const auto& c : cases)
    for (int length = 1; length <= 40; ++length)
      for (int at = 0; at < length; ++at) {
        std::vector<float> row(40, 1.0f);
        row[static_cast<std::size_t>(at)] = c.x;
        ASSERT_EQ(zoriLn_32f_C1IR(row.data(), 4 * length, {length, 1}), c.status) << c.x;
        for (int i = 0; i < 40; ++i) {
          const float y = row[static_cast<std::size_t>(i)], expected = i == at ? c.y : i < length ? 0 : 1;
          if (std::isnan(expected)) ASSERT_TRUE(std::isnan(y)) << c.x;
          else ASSERT_EQ(y, expected) << c.x;
        }
      }
}

TEST(Ln, WarnsOfASampleAnywhere)
{
  const auto scaled = [](auto function) {
    return [=](const auto* src, auto* dst, int n) {
      const int step = n * static_cast<int>(sizeof *src);
      return function(src, step, dst, step, {n, 1}, 0);
    };
  };
  const auto floats = [](const Zor32f* src, Zor32f* dst, int n) {
    return zoriLn_32f_C1R(src, 4 * n, dst, 4 * n, {n, 1});
  };
  expectWarningAtEveryPlace<Zor8u>(3, 0, ZorWarnLnZeroArg, scaled(zoriLn_8u_C1RSfs));
  expectWarningAtEveryPlace<Zor16u>(3, 0, ZorWarnLnZeroArg, scaled(zoriLn_16u_C1RSfs));
  expectWarningAtEveryPlace<Zor16s>(3, 0, ZorWarnLnZeroArg, scaled(zoriLn_16s_C1RSfs));
  expectWarningAtEveryPlace<Zor16s>(3, -1, ZorWarnLnNegArg, scaled(zoriLn_16s_C1RSfs));
  expectWarningAtEveryPlace<Zor32f>(3, 0, ZorWarnLnZeroArg, floats);
  expectWarningAtEveryPlace<Zor32f>(3, -1, ZorWarnLnNegArg, floats);
}

TEST(Ln, TheFirstWarningCounts)
{
  constexpr int width = 3000, height = 3;
  const auto call = [](int zeroAt, int negativeAt, int both) {
    std::vector<Zor16s> s(width * height, 2), d(s.size());
    std::vector<Zor32f> f(s.size(), 2), g(s.size());
    s[static_cast<std::size_t>(zeroAt)] = 0, f[static_cast<std::size_t>(zeroAt)] = -0.0f;
    s[static_cast<std::size_t>(negativeAt)] = -3, f[static_cast<std::size_t>(negativeAt)] = -3;
    const ZorStatus ofFloats = zoriLn_32f_C3R(f.data(), width * 4, g.data(), width * 4, {width / 3, height});
    EXPECT_EQ(ofFloats, both);
    EXPECT_EQ(zoriLn_32f_C1IR(f.data(), width * 4, {width, height}), both);
    EXPECT_EQ(zoriLn_16s_C1RSfs(s.data(), width * 2, d.data(), width * 2, {width, height}, -3), both);
    EXPECT_EQ(d[static_cast<std::size_t>(zeroAt)], -32768);
    EXPECT_EQ(d[static_cast<std::size_t>(negativeAt)], -32768);
    EXPECT_EQ(zoriLn_16s_C3IRSfs(s.data(), width * 2, {width / 3, height}, 20), both);
  };
  for (const auto& [first, second] : {std::pair{0, 1}, {4, 7}, {1, 2999}, {2998, 2999}, {2999, 3000}, {3001, 8999}}) {
    call(first, second, ZorWarnLnZeroArg);
    call(second, first, ZorWarnLnNegArg);
  }
}

TEST(Ln, TheCallersRoundingModeDoesNotMatter)
{
  const Zor16u src[8] = {2, 3, 100, 1000, 5000, 10000, 40000, 65535};
  Zor16u expected[8], dst[8];
  Zor32f x[8] = {0.1f, 0.7f, 3, 1e-40f, 1e10f, 1.0001f, 0.99f, 5}, y[8], z[8];
  zoriLn_16u_C1RSfs(src, 16, expected, 16, {8, 1}, -9);
  zoriLn_32f_C1R(x, 32, y, 32, {8, 1});
  std::fesetround(FE_UPWARD);
  zoriLn_16u_C1RSfs(src, 16, dst, 16, {8, 1}, -9);
  zoriLn_32f_C1R(x, 32, z, 32, {8, 1});
  EXPECT_EQ(std::fegetround(), FE_UPWARD);
  std::fesetround(FE_TONEAREST);
  EXPECT_EQ(0, std::memcmp(dst, expected, sizeof dst));
  EXPECT_EQ(0, std::memcmp(y, z, sizeof y));
}

TEST(Ln, LayoutsAgree)
{
#define FORMS(type, suffix)                                                                                            \
  {1, false, zoriLn_##type##_C1R##suffix, zoriLn_##type##_C1IR##suffix},                                               \
    {3, false, zoriLn_##type##_C3R##suffix, zoriLn_##type##_C3IR##suffix}
  expectLayoutsAgree<Zor8u, int>({FORMS(8u, Sfs)}, -5);
  expectLayoutsAgree<Zor16u, int>({FORMS(16u, Sfs)}, -12);
  expectLayoutsAgree<Zor16s, int>({FORMS(16s, Sfs)}, -11);
  expectLayoutsAgree<Zor32f>({FORMS(32f, )});
#undef FORMS
}
