// Quotients by a constant: its checks, one divisor a channel, exact rounding, the reciprocals of 16u and 32f.
#include "division.h"
#include "zori/arith.h"

#include <cfenv>
#include <cmath>

namespace {

template <class T> std::vector<T> allValues()
{
  std::vector<T> all;
  for (int x = std::numeric_limits<T>::min(); x <= std::numeric_limits<T>::max(); ++x) all.push_back(static_cast<T>(x));
  return all;
}

// The function on all values; expected(n, d, scale) is the result.
template <class T, class DivC, class Expected>
void expectQuotients(DivC divC, std::initializer_list<int> divisors, Expected expected)
{
  const std::vector<T> src = allValues<T>();
  const int length = static_cast<int>(src.size()), step = length * static_cast<int>(sizeof(T));
  std::vector<T> dst(src.size());
  for (const int divisor : divisors)
    for (const int scale : {INT_MIN, -33, -32, -31, -30, -16, -15, -5, -1, 0, 1, 3, 8, 9, 15, 16, 17, INT_MAX}) {
      const T d = static_cast<T>(divisor);
      ASSERT_EQ(divC(src.data(), step, d, dst.data(), step, {length, 1}, scale), ZorOk);
      for (std::size_t i = 0; i < src.size(); ++i)
        ASSERT_EQ(+dst[i], +expected(src[i], d, scale)) << +src[i] << " / " << divisor << " at scale " << scale;
    }
}

// 2^-scale / d in single precision, times n, rounded: a bound or zero where the scale leaves nothing else.
Zor16u byReciprocal(Zor16u n, Zor16u d, int scale)
{
  if (scale < -31) return n ? 65535 : 0;
  if (scale > 16) return 0;
  const float q = static_cast<float>(n) * (std::ldexp(1.0f, -scale) / static_cast<float>(d));
  return q > 65535 ? 65535 : static_cast<Zor16u>(std::nearbyint(q));
}

} // namespace

TEST(DivC, AllSamplesAtEveryScale)
{
  const auto exact = [](auto n, auto d, int scale) { return exactQuotient(n, d, scale); };
  for (int d = 1; d <= 255; ++d) expectQuotients<Zor8u>(zoriDivC_8u_C1RSfs, {d}, exact);
  expectQuotients<Zor16u>(zoriDivC_16u_C1RSfs, {14, 1000, 65535}, byReciprocal);
  expectQuotients<Zor16u>(zoriDivC_16u_C1RSfs, {1, 1024}, exact);
  // below a scale of 0 single precision may meet a tie that the exact quotient misses
  const auto exactOrNear = [](Zor16s n, Zor16s d, int scale) {
    const Zor16s found = exactQuotient(n, d, scale);
    if (scale >= 0 || ExactQuotient(n, d, scale).distanceFromTie() > 0x1p-23) return found;
    const float q = std::ldexp(static_cast<float>(n), std::min(99, -std::max(scale, -99))) / static_cast<float>(d);
    return static_cast<Zor16s>(std::nearbyint(std::fmax(-32768.0f, std::fmin(q, 32767.0f))));
  };
  expectQuotients<Zor16s>(zoriDivC_16s_C1RSfs, {-1, 2, -6, 999, -32768}, exactOrNear);
}

TEST(DivC, Floats)
{
  const float divisors[3] = {3, -1e-3f, 1e-40f};
  std::vector<float> src, dst;
  std::mt19937 random(4);
  for (int i = 0; i < 3 * 800; ++i) src.push_back(static_cast<float>(static_cast<int>(random())) * 0x1p-10f);
  dst.resize(src.size());
  ASSERT_EQ(zoriDivC_32f_C3R(src.data(), 9600, divisors, dst.data(), 9600, {800, 1}), ZorOk);
  for (std::size_t i = 0; i < src.size(); ++i) {
    const float reciprocal = 1.0f / divisors[i % 3];
    ASSERT_EQ(dst[i], src[i] * reciprocal) << i;
  }
}

TEST(DivC, Complex)
{
  const Zor16sc value16[3] = {{2, 0}, {0, 2}, {3, -4}}, src16[3] = {{5, -7}, {5, -7}, {75, 25}};
  const Zor16sc expected16[3] = {{2, -4}, {-4, -2}, {5, 15}};
  Zor16sc dst16[3];
  ASSERT_EQ(zoriDivC_16sc_C3RSfs(src16, 12, value16, dst16, 12, {1, 1}, 0), ZorOk);
  EXPECT_EQ(std::memcmp(dst16, expected16, sizeof dst16), 0);
  ASSERT_EQ(zoriDivC_16sc_C1RSfs(src16, 12, {1, 0}, dst16, 12, {3, 1}, INT_MIN), ZorOk);
  const Zor16sc bounds[3] = {{32767, -32768}, {32767, -32768}, {32767, 32767}}, nothing[3] = {};
  EXPECT_EQ(std::memcmp(dst16, bounds, sizeof bounds), 0);
  ASSERT_EQ(zoriDivC_16sc_C1RSfs(src16, 12, {1, 0}, dst16, 12, {3, 1}, 16), ZorOk);
  EXPECT_EQ(std::memcmp(dst16, nothing, sizeof nothing), 0);

  const Zor32sc src32[2] = {{2099999997, -5}, {INT32_MIN, INT32_MAX}}, expected32[2] = {{2, 0}, {-2, 2}};
  Zor32sc dst32[2];
  ASSERT_EQ(zoriDivC_32sc_C1RSfs(src32, 16, {1399999998, 0}, dst32, 16, {2, 1}, 0), ZorOk);
  EXPECT_EQ(std::memcmp(dst32, expected32, sizeof dst32), 0);

  // a product with the reciprocal in double, not a quotient: they part on some ties
  for (int d = 1; d < 200; ++d)
    for (int n = 1; n < 400; ++n) {
      const Zor32sc x = {n, -n}, c = {d, 0};
      Zor32sc q;
      ASSERT_EQ(zoriDivC_32sc_C1RSfs(&x, 8, c, &q, 8, {1, 1}, 0), ZorOk);
      const int expected = static_cast<int>(std::lrint(n * (d / (double(d) * d))));
      ASSERT_TRUE(q.re == expected && q.im == -expected) << n << " / " << d;
    }

  const Zor32fc src = {1e30f, 2}, value = {3, 1e-3f};
  Zor32fc dst;
  ASSERT_EQ(zoriDivC_32fc_C1R(&src, 8, value, &dst, 8, {1, 1}), ZorOk);
  const long double a = src.re, e = value.im, square = 9 + e * e;
  EXPECT_FLOAT_EQ(dst.re, static_cast<float>((3 * a + 2 * e) / square));
  EXPECT_FLOAT_EQ(dst.im, static_cast<float>((6 - a * e) / square));
}

TEST(DivC, AZeroInAnyChannelOfTheConstant)
{
  const Zor8u src[4] = {8, 8, 8, 8};
  Zor8u dst[4] = {9, 9, 9, 9};
  for (int k = 0; k < 4; ++k) {
    Zor8u value[4] = {1, 1, 1, 1};
    value[k] = 0;
    EXPECT_EQ(zoriDivC_8u_C4RSfs(src, 4, value, dst, 4, {1, 1}, 0), ZorErrDivByZero);
    if (k < 3) {
      EXPECT_EQ(zoriDivC_8u_C3RSfs(src, 4, value, dst, 4, {1, 1}, 0), ZorErrDivByZero);
      EXPECT_EQ(zoriDivC_8u_AC4RSfs(src, 4, value, dst, 4, {1, 1}, 0), ZorErrDivByZero);
    }
    EXPECT_EQ(zoriDivC_8u_C4RSfs(src, 4, value, dst, 0, {1, 1}, 0), ZorErrStep);
  }
  EXPECT_EQ(zoriDivC_8u_C1RSfs(src, 4, 0, dst, 4, {1, 1}, 100), ZorErrDivByZero);
  for (const Zor8u x : dst) EXPECT_EQ(x, 9);

  float x = 1;
  EXPECT_EQ(zoriDivC_32f_C1IR(-0.0f, &x, 4, {1, 1}), ZorErrDivByZero);
  // a complex constant whose square vanishes in single precision counts as zero
  Zor32fc z = {1, 1};
  EXPECT_EQ(zoriDivC_32fc_C1IR({1e-30f, -1e-30f}, &z, 8, {1, 1}), ZorErrDivByZero);
  EXPECT_EQ(zoriDivC_32fc_C1IR({1e-20f, 0}, &z, 8, {1, 1}), ZorOk);
  Zor16sc w = {1, 1};
  EXPECT_EQ(zoriDivC_16sc_C1IRSfs({0, 0}, &w, 4, {1, 1}, 0), ZorErrDivByZero);
  EXPECT_EQ(zoriDivC_16sc_C1IRSfs({0, -1}, &w, 4, {1, 1}, 0), ZorOk);
}

// ---- Layouts ----

namespace {

template <class T, class... A> struct ConstantForm {
  int channels;
  bool keepsFourth;
  ZorStatus (*plain)(const T*, int, const T*, T*, int, ZorImgSize, A...);
  ZorStatus (*inPlace)(const T*, T*, int, ZorImgSize, A...);
};

// Every form gives, sample by sample, what the function of one channel gives for that channel's constant.
template <class T, class... A>
void expectConstantFormsAgree(ZorStatus (*single)(const T*, int, T, T*, int, ZorImgSize, A...), std::vector<T> values,
                              std::initializer_list<ConstantForm<T, A...>> forms, A... arguments)
{
  std::mt19937 random(8);
  for (const auto& form : forms)
    forEachShape(form.channels, [&](int width, std::size_t offset, int gap) {
      constexpr int height = 2, one = sizeof(T);
      const int length = width * form.channels;
      const ZorImgSize size = {width, height};
      LooseImage<T> src(length, height, offset, gap, random), dst(length, height, 4 - offset, gap, random);
      const auto expected = [&](LooseImage<T> to) {
        for (int y = 0; y < height; ++y)
          for (int i = 0; i < length; ++i) {
            if (form.keepsFourth && i % 4 == 3) continue;
            const T value = values[static_cast<std::size_t>(i % form.channels)];
            single(src.sample(y, i), one, value, to.sample(y, i), one, {1, 1}, arguments...);
          }
        return to.bytes;
      };
      LooseImage<T> result = dst, inPlace = src;
      ASSERT_EQ(form.plain(src.data(), src.step, values.data(), result.data(), result.step, size, arguments...), ZorOk);
      ASSERT_EQ(result.bytes, expected(dst)) << form.channels << " channels, width " << width;
      ASSERT_EQ(form.inPlace(values.data(), inPlace.data(), inPlace.step, size, arguments...), ZorOk);
      ASSERT_EQ(inPlace.bytes, expected(src)) << "in place, " << form.channels << " channels, width " << width;
    });
}

// The form of one channel, its constant behind a pointer as in the others.
template <auto function, auto inPlace, class T, class... A> ConstantForm<T, A...> oneChannel()
{
  return {1, false,
          [](const T* src, int srcStep, const T* value, T* dst, int dstStep, ZorImgSize size, A... a) {
            return function(src, srcStep, *value, dst, dstStep, size, a...);
          },
          [](const T* value, T* srcDst, int step, ZorImgSize size, A... a) {
            return inPlace(*value, srcDst, step, size, a...);
          }};
}

} // namespace

#define FORM(count, keeps, type, layout, suffix)                                                                       \
  {                                                                                                                    \
    count, keeps, zoriDivC_##type##_##layout##R##suffix, zoriDivC_##type##_##layout##IR##suffix                        \
  }
#define SCALED(type, ...)                                                                                              \
  {                                                                                                                    \
    oneChannel<zoriDivC_##type##_C1RSfs, zoriDivC_##type##_C1IRSfs, Zor##type, int>(), FORM(3, false, type, C3, Sfs),  \
      FORM(4, true, type, AC4, Sfs), ##__VA_ARGS__                                                                     \
  }
#define FLOATS(type, ...)                                                                                              \
  {                                                                                                                    \
    oneChannel<zoriDivC_##type##_C1R, zoriDivC_##type##_C1IR, Zor##type>(), FORM(3, false, type, C3, ),                \
      FORM(4, true, type, AC4, ), ##__VA_ARGS__                                                                        \
  }
#define C4(type, suffix) FORM(4, false, type, C4, suffix)

TEST(DivC, LayoutsAgreeWithSingleSamples)
{
  expectConstantFormsAgree<Zor8u, int>(zoriDivC_8u_C1RSfs, {3, 200, 7, 64}, SCALED(8u, C4(8u, Sfs)), -2);
  expectConstantFormsAgree<Zor16u, int>(zoriDivC_16u_C1RSfs, {3, 20000, 1, 7}, SCALED(16u, C4(16u, Sfs)), -2);
  expectConstantFormsAgree<Zor16s, int>(zoriDivC_16s_C1RSfs, {-3, 20000, 1, 7}, SCALED(16s, C4(16s, Sfs)), -2);
  expectConstantFormsAgree<Zor32f>(zoriDivC_32f_C1R, {-3, 0.1f, 1, 7}, FLOATS(32f, C4(32f, )));
  // of three channels, the fourth being none of the constant's
  expectConstantFormsAgree<Zor16sc, int>(zoriDivC_16sc_C1RSfs, {{3, 1}, {0, 9}, {-100, 1}}, SCALED(16sc), -2);
  expectConstantFormsAgree<Zor32sc, int>(zoriDivC_32sc_C1RSfs, {{3, 1}, {0, 9}, {-100, 1}}, SCALED(32sc), -2);
  expectConstantFormsAgree<Zor32fc>(zoriDivC_32fc_C1R, {{3, 1}, {0, 9}, {-100, 1}}, FLOATS(32fc));
}

TEST(DivC, IntegersIgnoreTheCallersRoundingMode)
{
  const std::vector<Zor16u> src = allValues<Zor16u>();
  std::vector<Zor16u> expected(65536), dst(65536);
  zoriDivC_16u_C1RSfs(src.data(), 512, 6, expected.data(), 512, {256, 256}, 0);
  for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    std::fesetround(mode);
    zoriDivC_16u_C1RSfs(src.data(), 512, 6, dst.data(), 512, {256, 256}, 0);
    EXPECT_EQ(std::fegetround(), mode);
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(dst, expected);
  }
}
