// Test images, noise and windows against their formulas, one sample at a time.
#include "zori/synthetic.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>
#include <vector>

namespace {

constexpr ZorImgSize sizes[] = {{1, 1}, {2, 1}, {1, 3}, {8, 5}, {17, 9}, {40, 24}};

// Compares a function's image with samples of a formula, in every processed channel.
template <class T, class Call, class F> void compare(const char* name, int channels, int processed, Call call, F sample)
{
  for (ZorImgSize size : sizes) {
    const int pitch = size.width * channels + 3;
    std::vector<T> image(static_cast<size_t>(pitch * size.height), T(9)), expected = image;
    ASSERT_EQ(call(image.data(), pitch * static_cast<int>(sizeof(T)), size), ZorOk) << name;
    for (int y = 0; y < size.height; ++y)
      for (int x = 0; x < size.width; ++x)
        for (int k = 0; k < processed; ++k)
          expected[static_cast<size_t>(y * pitch + x * channels + k)] = sample(x, y, size);
    ASSERT_EQ(image, expected) << name << ' ' << size.width << 'x' << size.height;
  }
}

template <class T> T ring(int x, int y, ZorImgSize size)
{
  const double x0 = (size.width - 1) * 0.5, y0 = (size.height - 1) * 0.5;
  const double v = std::sin(6.283185307179586 * ((x - x0) * (x - x0) + (y - y0) * (y - y0)) / (4.0 * size.height));
  if (std::is_same_v<T, Zor8u>) return static_cast<T>((v + 1.0) * 127.99999);
  if (std::is_same_v<T, Zor16u>) return static_cast<T>((v + 1.0) * 32767.99999);
  if (std::is_same_v<T, Zor8s>) return static_cast<T>(v * 127.99999);
  if (std::is_same_v<T, Zor16s>) return static_cast<T>(v * 32767.99999);
  if (std::is_same_v<T, Zor32s>) return static_cast<T>(v * 2147483647.99999);
  return static_cast<T>((v + 1.0) * 0.49999);
}

template <class T> T ramp(float v)
{
  if constexpr (std::is_same_v<T, float>) return v;
  else {
    const double rounded = v < 0 ? -std::floor(0.5 - static_cast<double>(v)) : std::floor(static_cast<double>(v) + 0.5);
    return static_cast<T>(std::clamp<double>(rounded, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
  }
}

#define JAEHNE(type, layout, n, p)                                                                                     \
  compare<Zor##type>("Jaehne " #type #layout, n, p, zoriImageJaehne_##type##_##layout##R, ring<Zor##type>);
#define RAMP(type, layout, n, p)                                                                                       \
  for (int axis : {0, 1, 2, 7, -1})                                                                                    \
    for (auto [offset, slope] :                                                                                        \
         {std::pair{0.0f, 1.0f}, {-3.5f, 0.5f}, {250.25f, 9.0f}, {-200.0f, -13.5f}, {1e9f, 1e9f}, {-4e9f, 77.0f}})     \
      compare<Zor##type>(                                                                                              \
        "Ramp " #type #layout, n, p,                                                                                   \
        [=](auto d, int s, ZorImgSize r) {                                                                             \
          return zoriImageRamp_##type##_##layout##R(d, s, r, offset, slope, static_cast<ZorRampAxis>(axis));           \
        },                                                                                                             \
        [=](int x, int y, ZorImgSize) {                                                                                \
          return ramp<Zor##type>(static_cast<float>(axis == 0 ? x : axis == 1 ? y : x * y) * slope + offset);          \
        });
#define LAYOUTS(form, type) form(type, C1, 1, 1) form(type, C3, 3, 3) form(type, C4, 4, 4) form(type, AC4, 4, 3)
#define TYPES(form)                                                                                                    \
  LAYOUTS(form, 8u) LAYOUTS(form, 8s) LAYOUTS(form, 16u) LAYOUTS(form, 16s) LAYOUTS(form, 32s) LAYOUTS(form, 32f)

TEST(TestImages, RadialPattern){TYPES(JAEHNE)} TEST(TestImages, Ramps){TYPES(RAMP)} TEST(TestImages,
                                                                                         TheLastHalfSaturates)
{
  std::vector<Zor8u> row(300);
  ASSERT_EQ(zoriImageRamp_8u_C1R(row.data(), 300, {300, 1}, 0, 1, ZorRampAlongX), ZorOk);
  EXPECT_TRUE(row[254] == 254 && row[255] == 255 && row[299] == 255);
}

// A ramp that is no number gives the least value, one that is infinite the bound on its side.
template <class T, class Call> void strangeRamps(Call call)
{
  constexpr float infinite = std::numeric_limits<float>::infinity(), none = std::numeric_limits<float>::quiet_NaN();
  constexpr T least = std::numeric_limits<T>::min(), most = std::numeric_limits<T>::max();
  const struct {
    float offset, slope;
    T expected;
  } ramps[] = {
    {none, 0, least}, {0, none, least}, {infinite, 1, most}, {-infinite, 1, least}, {infinite, -infinite, least}};
  for (const auto& ramp : ramps) {
    T row[3] = {1, 1, 1};
    ASSERT_EQ(call(row, static_cast<int>(sizeof row), ZorImgSize{3, 1}, ramp.offset, ramp.slope, ZorRampAlongX), ZorOk);
    EXPECT_EQ(row[2], ramp.expected) << ramp.offset << " + x * " << ramp.slope;
  }
}
TEST(TestImages, RampsOfNoNumbers)
{
  strangeRamps<Zor8u>(zoriImageRamp_8u_C1R);
  strangeRamps<Zor8s>(zoriImageRamp_8s_C1R);
  strangeRamps<Zor16u>(zoriImageRamp_16u_C1R);
  strangeRamps<Zor16s>(zoriImageRamp_16s_C1R);
  strangeRamps<Zor32s>(zoriImageRamp_32s_C1R);
}

// Numbers from 2^23 on, to which single precision adds no half, up to the bounds of 32 bits.
TEST(TestImages, RampsOfLargeNumbers)
{
  for (const float from : {8388604.0f, -8388612.0f, 16777200.0f, 2147483392.0f, -2147483648.0f}) {
    Zor32s row[17];
    ASSERT_EQ(zoriImageRamp_32s_C1R(row, sizeof row, {17, 1}, from, 1, ZorRampAlongX), ZorOk);
    for (int x = 0; x < 17; ++x) {
      const double exact = static_cast<float>(from + static_cast<float>(x));
      EXPECT_EQ(row[x], static_cast<Zor32s>(std::min(std::round(exact), 2147483647.0))) << from << " and " << x;
    }
  }
}

// The generator, word by word in 64-bit arithmetic.
struct Words {
  std::int64_t s0, s1, s2, carry = -1, lcg = 1131199209;
  static std::int64_t wrap(std::int64_t v) { return static_cast<std::int32_t>(static_cast<std::uint32_t>(v)); }
  static std::int64_t chain(std::int64_t v)
  {
    return wrap(static_cast<std::int64_t>(static_cast<std::uint64_t>(v) * 69069u + 1013904243u));
  }
  explicit Words(Zor32u seed) : s0(wrap(seed)), s1(chain(s0)), s2(chain(s1)) {}
  std::int64_t operator()()
  {
    lcg = chain(lcg);
    std::int64_t t = wrap(s1 - s2 + carry);
    carry = t < 0 ? -1 : 0;
    if (t < 0) t = wrap(t - 18);
    s2 = s1, s1 = s0, s0 = t;
    return wrap(s0 + lcg);
  }
};

template <class T> T added(T x, double noise)
{
  if constexpr (std::is_same_v<T, float>) return x + static_cast<float>(noise);
  else
    return static_cast<T>(
      std::clamp<double>(x + std::rint(noise), std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

template <class T, class Call> void noise(bool gauss, int channels, int processed, T a, T b, Call call)
{
  for (ZorImgSize size : {ZorImgSize{1, 4}, ZorImgSize{5, 3}, ZorImgSize{64, 7}})
    for (Zor32u seed : {0u, 1u, 123456789u, 0xfffffff0u}) {
      const int pitch = size.width * channels + 1;
      std::vector<T> image(static_cast<size_t>(pitch * size.height), T(100)), expected = image;
      Zor32u state = seed;
      ASSERT_EQ(call(image.data(), pitch * static_cast<int>(sizeof(T)), size, a, b, &state), ZorOk);
      Words words(seed);
      double second = 0;
      bool waits = false;
      const auto draw = [&]() -> double {
        if (!gauss)
          return static_cast<double>(words()) * ((static_cast<double>(b) - a) * 2.3283064365387e-10) +
                 (static_cast<double>(a) + b) * 0.5;
        if (waits) return waits = false, second;
        for (;;) {
          const double g1 = static_cast<double>(words()) * 4.656612873077e-10,
                       g2 = static_cast<double>(words()) * 4.656612873077e-10, q = g1 * g1 + g2 * g2;
          if (q >= 1.0 || q == 0) continue;
          const double f = std::sqrt(-2.0 * std::log(q) / q);
          waits = true;
          second = g2 * f * b + a;
          return g1 * f * b + a;
        }
      };
      for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
          for (int k = 0; k < processed; ++k) {
            T& v = expected[static_cast<size_t>(y * pitch + x * channels + k)];
            v = added(v, draw());
          }
      ASSERT_EQ(image, expected) << gauss << ' ' << channels << ' ' << size.width;
      ASSERT_EQ(state, static_cast<Zor32u>(words.s0));
    }
}
#define NOISE(type, layout, n, p)                                                                                      \
  noise<Zor##type>(false, n, p, 3, 77, zoriAddRandUniform_Direct_##type##_##layout##IR);                               \
  noise<Zor##type>(false, n, p, 0, 0, zoriAddRandUniform_Direct_##type##_##layout##IR);                                \
  noise<Zor##type>(true, n, p, 5, 90, zoriAddRandGauss_Direct_##type##_##layout##IR);
TEST(Noise, DrawsInMemoryOrder){LAYOUTS(NOISE, 8u) LAYOUTS(NOISE, 16u) LAYOUTS(NOISE, 16s) LAYOUTS(NOISE, 32f)}

TEST(Noise, HasTheAskedMoments)
{
  std::vector<float> image(100000);
  Zor32u seed = 42;
  ASSERT_EQ(zoriAddRandGauss_Direct_32f_C1IR(image.data(), 400000, {100000, 1}, 10, 3, &seed), ZorOk);
  double sum = 0, squares = 0;
  for (float v : image) sum += v, squares += static_cast<double>(v) * v;
  EXPECT_NEAR(sum / 1e5, 10, 0.05);
  EXPECT_NEAR(std::sqrt(squares / 1e5 - sum / 1e5 * sum / 1e5), 3, 0.05);
}

double window(bool hamming, int i, int n)
{
  return hamming ? 0.54 - 0.46 * std::cos(6.283185307179586 * i / (n - 1)) : 1 - std::fabs(2.0 * i / (n - 1) - 1);
}
double radialWindow(bool hamming, int x, int y, ZorImgSize size)
{
  const double w = size.width, h = size.height;
  const double dx = w / 2 - std::min(x, size.width - 1 - x), dy = h / 2 - std::min(y, size.height - 1 - y);
  const bool inside = dx * dx / (w * w / 4) + dy * dy / (h * h / 4) < 1;
  const double r = std::sqrt(dx * dx + w * w / (h * h) * dy * dy);
  if (!hamming) return inside ? 1 - 2 / w * r : 0;
  return 0.54 - 0.46 * std::cos(inside ? (w / 2 - r) * 6.283185307179586 / w : 0);
}

template <class T, class R, class I> void taper(R function, I inPlace, bool radial, bool hamming)
{
  for (ZorImgSize size : {ZorImgSize{3, 3}, ZorImgSize{4, 9}, ZorImgSize{37, 12}, ZorImgSize{64, 31}}) {
    std::vector<T> src(static_cast<size_t>(size.width * size.height)), dst(src.size());
    for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<T>(i * 7919 % 251 * (sizeof(T) == 2 ? 255 : 1) + 1);
    const int step = size.width * static_cast<int>(sizeof(T));
    ASSERT_EQ(function(src.data(), step, dst.data(), step, size), ZorOk);
    for (int y = 0; y < size.height; ++y)
      for (int x = 0; x < size.width; ++x) {
        const size_t i = static_cast<size_t>(y * size.width + x);
        const double w =
          radial ? radialWindow(hamming, x, y, size) : window(hamming, x, size.width) * window(hamming, y, size.height);
        const double exact = src[i] * w;
        ASSERT_NEAR(dst[i], exact, (std::is_integral_v<T> ? 0.5 : 0) + src[i] * 4e-7)
          << x << ' ' << y << ' ' << size.width;
        if (!radial && !hamming && (x == 0 || y == 0 || x == size.width - 1 || y == size.height - 1)) {
          ASSERT_EQ(dst[i], 0);
        }
      }
    ASSERT_EQ(inPlace(src.data(), step, size), ZorOk);
    ASSERT_EQ(src, dst);
  }
}
#define TAPER(type)                                                                                                    \
  taper<Zor##type>(zoriWinBartlett_##type##_C1R, zoriWinBartlett_##type##_C1IR, true, false);                          \
  taper<Zor##type>(zoriWinHamming_##type##_C1R, zoriWinHamming_##type##_C1IR, true, true);                             \
  taper<Zor##type>(zoriWinBartlettSep_##type##_C1R, zoriWinBartlettSep_##type##_C1IR, false, false);                   \
  taper<Zor##type>(zoriWinHammingSep_##type##_C1R, zoriWinHammingSep_##type##_C1IR, false, true);
TEST(Windows, RadialAndSeparable) { TAPER(8u) TAPER(16u) TAPER(32f) }

} // namespace
