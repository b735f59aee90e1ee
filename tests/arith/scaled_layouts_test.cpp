// Scaled arithmetic in all layouts: rows of all lengths at odd addresses and steps, in place in every way, by teams of
// threads, and the arithmetic of floats.
#include "scaled_cases.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <omp.h>
#include <string>

using namespace scaledtest;

namespace {

// An image at an odd address with an odd step: nothing but its samples may change.
template <class T> struct Image {
  int width, height, channels, step;
  std::vector<unsigned char> bytes;

  Image(int w, int h, int c, int seed, int padding = 5)
    : width(w), height(h), channels(c), step(w * c * static_cast<int>(sizeof(T)) + padding),
      bytes(static_cast<std::size_t>(step) * h + 33)
  {
    std::uint32_t state = static_cast<std::uint32_t>(seed) * 2654435761u + 99;
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>((state = state * 1664525u + 1013904223u) >> 24);
    if constexpr (std::is_floating_point_v<Part<T>>) // plain numbers
      for (int y = 0; y < h; ++y)
        for (int i = 0; i < w * c; ++i) {
          const float x[2] = {float((state = state * 1664525u + 1013904223u) >> 8) / 1000 - 5000, float(i) + 0.25f};
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

// The image that a call on d must give: a op b in the channels that are processed.
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

constexpr int scales[] = {0, 1, 2, 5, 9, -1, -5, -40, 70};

template <class T> class ScaledLayouts : public testing::Test {};
using All = testing::Types<Zor8u, Zor16u, Zor16s, Zor32f, Zor16sc, Zor32sc, Zor32fc>;
TYPED_TEST_SUITE(ScaledLayouts, All);

} // namespace

TYPED_TEST(ScaledLayouts, TwoImages)
{
  using T = TypeParam;
  int seed = 0;
  for (const auto& f : images<T>())
    for (int width : {1, 2, 3, 5, 7, 8, 11, 16, 17, 31, 64, 77}) {
      const int scale = std::is_floating_point_v<Part<T>> ? 0 : scales[++seed % 9];
      const int padding = seed % 3 == 0 ? 0 : 5; // rows without gaps too
      const ZorImgSize roi = {width, 3};
      Image<T> a(width, 3, f.channels, 1, padding), b(width, 3, f.channels, 2, padding), d(width, 3, f.channels, 3, padding);
      const auto of = [&](Image<T>& x, Image<T>& y) { // the first image is subtracted
        return f.operation == Difference ? result(f.operation, y, [&](int r, int i) { return x.get(r, i); }, d, f.processed, scale)
                                         : result(f.operation, x, [&](int r, int i) { return y.get(r, i); }, d, f.processed, scale);
      };
      const std::string where = f.name + (" " + std::to_string(width)) + " at " + std::to_string(scale);
      const auto same = [&](const Image<T>& got, const Image<T>& want) { return got.bytes == want.bytes; };

      Image<T> got = d;
      ASSERT_EQ(f.to(a.data(), a.step, b.data(), b.step, got.data(), d.step, roi, scale), ZorOk);
      ASSERT_TRUE(same(got, of(a, b))) << where;

      d = b; // over the second image
      got = b;
      ASSERT_EQ(f.inPlace(a.data(), a.step, got.data(), got.step, roi, scale), ZorOk);
      ASSERT_TRUE(same(got, of(a, b))) << where << " in place";
      got = b;
      ASSERT_EQ(f.to(a.data(), a.step, got.data(), got.step, got.data(), got.step, roi, scale), ZorOk);
      ASSERT_TRUE(same(got, of(a, b))) << where << " over the second";
      got = b;
      ASSERT_EQ(f.to(got.data(), got.step, got.data(), got.step, got.data(), got.step, roi, scale), ZorOk);
      ASSERT_TRUE(same(got, of(b, b))) << where << " over both";
      d = a;
      got = a;
      ASSERT_EQ(f.to(got.data(), got.step, b.data(), b.step, got.data(), got.step, roi, scale), ZorOk);
      ASSERT_TRUE(same(got, of(a, b))) << where << " over the first";
    }
}

TYPED_TEST(ScaledLayouts, Constants)
{
  using T = TypeParam;
  int seed = 0;
  for (const auto& f : constants<T>())
    for (int width : {1, 2, 3, 5, 7, 8, 11, 16, 17, 31, 64, 77})
      for (int kind = 0; kind < 4; ++kind) { // any constant; all 0; all 1; 0 in the second channel
        const int scale = std::is_floating_point_v<Part<T>> ? 0 : kind % 3 ? scales[++seed % 9] * (seed % 2) : scales[++seed % 9];
        const int padding = seed % 3 == 0 ? 0 : 5;
        const ZorImgSize roi = {width, 3};
        Image<T> a(width, 3, f.channels, 1, padding), d(width, 3, f.channels, 3, padding), c(4, 1, 1, kind + 10);
        const Part<T> plain[2] = {Part<T>(kind == 2), 0};
        for (int i = 0; i < 4; ++i)
          if (kind == 1 || kind == 2 || (kind == 3 && i == 1)) std::memcpy(c.at(0, i), plain, sizeof(T));
        // constants lie at an odd address and end where they end: C1 passes them by value
        alignas(8) unsigned char block[4 * sizeof(T) + 1];
        T* constant = reinterpret_cast<T*>(block + (f.channels > 1));
        std::memcpy(static_cast<void*>(constant), c.at(0, 0), 4 * sizeof(T));
        const auto wanted = [&](const Image<T>& into) {
          return result(f.operation, a, [&](int, int i) { return c.get(0, i % f.channels); }, into, f.processed, scale);
        };
        const std::string where = f.name + (" " + std::to_string(width)) + " at " + std::to_string(scale) + ", constant " + std::to_string(kind);

        Image<T> got = d;
        ASSERT_EQ(f.to(a.data(), a.step, constant, got.data(), got.step, roi, scale), ZorOk);
        ASSERT_EQ(got.bytes, wanted(d).bytes) << where;
        got = a;
        ASSERT_EQ(f.inPlace(constant, got.data(), got.step, roi, scale), ZorOk);
        ASSERT_EQ(got.bytes, wanted(a).bytes) << where << " in place";
        got = a;
        ASSERT_EQ(f.to(got.data(), got.step, constant, got.data(), got.step, roi, scale), ZorOk);
        ASSERT_EQ(got.bytes, wanted(a).bytes) << where << " over the source";
      }
}

// Images that are large enough for a team, and rows that lie on each other.
TYPED_TEST(ScaledLayouts, TeamsGiveWhatOneThreadGives)
{
  using T = TypeParam;
  const int threads = omp_get_max_threads();
  for (const auto& f : images<T>())
    for (int scale : {0, 1, 3, -2, -60}) {
      const ZorImgSize roi = {211, 233};
      Image<T> a(211, 233, f.channels, 1, 16), b(211, 233, f.channels, 2, 16), alone = b, team = b;
      omp_set_num_threads(1);
      f.inPlace(a.data(), a.step, alone.data(), alone.step, roi, scale);
      f.to(a.data(), a.step, b.data(), b.step, alone.data(), 0, roi, scale);
      omp_set_num_threads(7);
      f.inPlace(a.data(), a.step, team.data(), team.step, roi, scale);
      if (partsOfSteps<T>(f)) f.to(a.data(), a.step, b.data(), b.step, team.data(), 0, roi, scale);
      ASSERT_EQ(alone.bytes, team.bytes) << f.name << " at " << scale;
    }
  omp_set_num_threads(threads);
}
