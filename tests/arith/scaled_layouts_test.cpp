// Scaled arithmetic in all layouts: rows of all lengths at odd addresses and steps, in place in every way, by teams of
// threads, and the arithmetic of floats.
#include "scaled_cases.h"
#include "support/numbers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <omp.h>
#include <string>
#include <utility>

using namespace scaledtest;

namespace {

template <class T> constexpr bool isFloat = std::is_floating_point_v<Part<T>>;

// An image at an odd address: nothing but its samples may change. Padding 0: rows without gaps; else: an odd step.
template <class T> struct Image {
  int width, height, channels, step;
  std::vector<unsigned char> bytes;

  Image(ZorImgSize roi, int channelCount, int seed, int padding)
    : width(roi.width), height(roi.height), channels(channelCount),
      step(width * channels * static_cast<int>(sizeof(T)) + (padding ? 8 * padding - 3 : 0)),
      bytes(static_cast<std::size_t>(step) * roi.height + 33)
  {
    std::uint32_t state = static_cast<std::uint32_t>(seed) * 2654435761u + 99;
    const auto next = [&] { return zoritest::nextNoise(state) >> 8; };
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(next() >> 16);
    if (isFloat<T>) // plain numbers
      for (int y = 0; y < height; ++y)
        for (int i = 0; i < width * channels; ++i) {
          const float x[2] = {static_cast<float>(next()) / 1000 - 5000, static_cast<float>(next()) * 0.25f};
          std::memcpy(at(y, i), x, sizeof(T));
        }
  }
  T* data() { return reinterpret_cast<T*>(bytes.data() + 7); }
  unsigned char* at(int y, int i) { return bytes.data() + 7 + static_cast<std::size_t>(step) * y + sizeof(T) * i; }
  T get(int y, int i)
  {
    T x;
    std::memcpy(&x, at(y, i), sizeof x);
    return x;
  }
};

// The image that a call into d must give: a op b in the channels that are processed.
template <class T, class B> Image<T> result(Operation operation, Image<T> a, B b, Image<T> d, int processed, int scale)
{
  for (int y = 0; y < d.height; ++y)
    for (int i = 0; i < d.width * d.channels; ++i)
      if (i % d.channels < processed) {
        const T x = expected(operation, a.get(y, i), b(y, i), scale);
        std::memcpy(d.at(y, i), &x, sizeof x);
      }
  return d;
}

constexpr int widths[] = {1, 2, 3, 5, 7, 8, 11, 16, 17, 31, 64, 77};
constexpr int scales[] = {0, 1, 2, 5, 9, -1, -5, -40, 70};

template <class T> class ScaledLayouts : public testing::Test {};
using All = testing::Types<Zor8u, Zor16u, Zor16s, Zor32f, Zor16sc, Zor32sc, Zor32fc>;
TYPED_TEST_SUITE(ScaledLayouts, All);

template <class T> class ScaledInTeams : public testing::Test {};
using WithTeams = testing::Types<Zor8u, Zor16s, Zor32f>;
TYPED_TEST_SUITE(ScaledInTeams, WithTeams);

} // namespace

TYPED_TEST(ScaledLayouts, TwoImages)
{
  using T = TypeParam;
  int turn = 0;
  for (const auto& f : images<T>())
    for (int width : widths) {
      const int scale = isFloat<T> ? 0 : scales[++turn % 9];
      const ZorImgSize roi = {width, 3};
      Image<T> a(roi, f.channels, 1, turn % 3), b(roi, f.channels, 2, turn % 3), d(roi, f.channels, 3, turn % 3);
      const auto wanted = [&](Image<T> x, Image<T> y, const Image<T>& into) {
        if (f.operation == Difference) std::swap(x, y); // the first image is subtracted
        return result(
          f.operation, x, [&](int row, int i) { return y.get(row, i); }, into, f.processed, scale);
      };
      const std::string where = f.name + (" " + std::to_string(width)) + " at " + std::to_string(scale);

      Image<T> got = d;
      ASSERT_EQ(f.to(a.data(), a.step, b.data(), b.step, got.data(), d.step, roi, scale), ZorOk);
      ASSERT_TRUE(got.bytes == wanted(a, b, d).bytes) << where;
      got = b;
      ASSERT_EQ(f.inPlace(a.data(), a.step, got.data(), got.step, roi, scale), ZorOk);
      ASSERT_TRUE(got.bytes == wanted(a, b, b).bytes) << where << " in place";
      got = b;
      ASSERT_EQ(f.to(a.data(), a.step, got.data(), got.step, got.data(), got.step, roi, scale), ZorOk);
      ASSERT_TRUE(got.bytes == wanted(a, b, b).bytes) << where << " over the second";
      got = b;
      ASSERT_EQ(f.to(got.data(), got.step, got.data(), got.step, got.data(), got.step, roi, scale), ZorOk);
      ASSERT_TRUE(got.bytes == wanted(b, b, b).bytes) << where << " over both";
      got = a;
      ASSERT_EQ(f.to(got.data(), got.step, b.data(), b.step, got.data(), got.step, roi, scale), ZorOk);
      ASSERT_TRUE(got.bytes == wanted(a, b, a).bytes) << where << " over the first";
    }
}

TYPED_TEST(ScaledLayouts, Constants)
{
  using T = TypeParam;
  int turn = 0;
  for (const auto& f : constants<T>())
    for (int width : widths)
      for (const char* kind : {"any", "0", "1", "0 in the second channel"})
        for (int scale : {scales[++turn % 9], 0, -40}) {
          if (isFloat<T>) scale = 0;
          const ZorImgSize roi = {width, 3};
          Image<T> a(roi, f.channels, 1, turn % 3), d(roi, f.channels, 3, turn % 3), c({4, 1}, 1, turn, 0);
          const Part<T> plain[2] = {Part<T>(*kind == '1'), 0};
          for (int i = 0; i < 4; ++i)
            if (*kind == '1' || (*kind == '0' && (!kind[1] || i == 1))) std::memcpy(c.at(0, i), plain, sizeof(T));
          alignas(8) unsigned char block[4 * sizeof(T) + 1]; // at an odd address, but for C1, which passes a value
          T* const constant = reinterpret_cast<T*>(block + (f.channels > 1));
          std::memcpy(static_cast<void*>(constant), c.at(0, 0), 4 * sizeof(T));
          const auto wanted = [&](const Image<T>& into) {
            const auto ofChannel = [&](int, int i) { return c.get(0, i % f.channels); };
            return result(f.operation, a, ofChannel, into, f.processed, scale);
          };
          const std::string where =
            f.name + (" " + std::to_string(width)) + " at " + std::to_string(scale) + ", constant " + kind;

          Image<T> got = d;
          ASSERT_EQ(f.to(a.data(), a.step, constant, got.data(), got.step, roi, scale), ZorOk);
          ASSERT_TRUE(got.bytes == wanted(d).bytes) << where;
          got = a;
          ASSERT_EQ(f.inPlace(constant, got.data(), got.step, roi, scale), ZorOk);
          ASSERT_TRUE(got.bytes == wanted(a).bytes) << where << " in place";

          // rows drawn apart: the first stays where it is, the second goes behind all that is read
          Image<T> apart({width, 3}, f.channels, 1, turn % 3);
          Image<T> expected = apart, whole = wanted(apart);
          const auto put = [&](int row, int from) {
            for (int i = 0; i < width * f.channels; ++i)
              if (i % f.channels < f.processed) std::memcpy(expected.at(row, i), whole.at(from, i), sizeof(T));
          };
          put(0, 0), put(2, 1);
          ASSERT_EQ(f.to(apart.data(), apart.step, constant, apart.data(), 2 * apart.step, {width, 2}, scale), ZorOk);
          ASSERT_TRUE(apart.bytes == expected.bytes) << where << " to another step";
        }
}

// Images that are large enough for a team, in a rounding mode of the caller; then rows that lie on each other.
TYPED_TEST(ScaledInTeams, GiveWhatOneThreadGives)
{
  using T = TypeParam;
  const int threads = omp_get_max_threads();
  const ZorImgSize roi = {211, 540 * 1024 / (211 * static_cast<int>(sizeof(T)))};
#pragma omp parallel num_threads(7)
  std::fesetround(FE_TONEAREST); // new threads have their maker's mode: these are here before it changes
  std::fesetround(FE_UPWARD);
  for (int channels : {1, 3, 4}) {
    Image<T> a(roi, channels, 1, 1), b(roi, channels, 2, 1), alone = b, got = b;
    const auto compare = [&](const char* name, auto call) {
      for (int team : {1, 2, 7}) {
        Image<T>& d = team == 1 ? alone : got;
        d.bytes = b.bytes;
        omp_set_num_threads(team);
        call(d);
        ASSERT_TRUE(team == 1 || got.bytes == alone.bytes) << name << " by " << team;
      }
    };
    for (int scale : {0, 1, 3, -2, -60}) {
      if (isFloat<T> && scale) continue;
      for (const auto& f : images<T>())
        if (f.channels == channels)
          compare(f.name, [&](Image<T>& d) {
            f.inPlace(a.data(), a.step, d.data(), d.step, roi, scale);
            f.to(a.data(), a.step, b.data(), b.step, d.data(), 0, roi, scale);
          });
      for (const auto& f : constants<T>())
        if (f.channels == channels)
          compare(f.name, [&](Image<T>& d) {
            f.to(a.data(), a.step, a.data(), d.data(), d.step, roi, scale);
            f.inPlace(a.data(), d.data(), 0, roi, scale);
          });
    }
  }
  std::fesetround(FE_TONEAREST);
  omp_set_num_threads(threads);
}

TEST(ScaledFloats, FollowTheRoundingModeAndKnowNoShortcuts)
{
  const Zor32f one = 1, tiny = 0x1p-30f;
  Zor32f d = 0;
  for (int mode : {FE_TONEAREST, FE_UPWARD, FE_TOWARDZERO, FE_DOWNWARD}) {
    std::fesetround(mode);
    EXPECT_EQ(zoriAdd_32f_C1R(&one, 4, &tiny, 4, &d, 4, {1, 1}), ZorOk);
    EXPECT_EQ(d, mode == FE_UPWARD ? std::nextafter(1.0f, 2.0f) : 1.0f);
    EXPECT_EQ(zoriSubC_32f_C1R(&one, 4, tiny, &d, 4, {1, 1}), ZorOk);
    EXPECT_EQ(d, mode == FE_TOWARDZERO || mode == FE_DOWNWARD ? std::nextafter(1.0f, 0.0f) : 1.0f);
  }
  std::fesetround(FE_TONEAREST);
  const Zor32f minusZero = -0.0f;
  zoriAddC_32f_C1R(&minusZero, 4, 0, &d, 4, {1, 1});
  EXPECT_FALSE(std::signbit(d));
  zoriSubC_32f_C1R(&minusZero, 4, 0, &d, 4, {1, 1});
  EXPECT_TRUE(std::signbit(d));
}
