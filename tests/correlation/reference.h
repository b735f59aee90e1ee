// Correlation and convolution in double precision, as plain as can be, and images that end where a page without access
// begins.
#pragma once

#include "support/guarded_block.h"
#include "support/noise.h"
#include "zori/types.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace correlation {

using zoritest::Noise;

// Pixels of `channels` samples; rows have some bytes between them, the last one ends at the page.
template <class T> class TestImage {
public:
  TestImage(int width, int height, int channels = 1, int padding = 5)
    : size{width, height}, channels(channels), step(width * channels * static_cast<int>(sizeof(T)) + padding),
      bytes_(static_cast<size_t>(step) * (height - 1) + static_cast<size_t>(width) * channels * sizeof(T)),
      block_(std::make_unique<zoritest::GuardedBlock>(bytes_ + 1)), first_(block_->end() - bytes_)
  {
    std::memset(first_, 0xcd, bytes_);
  }
  T* data() const { return reinterpret_cast<T*>(first_); }
  T get(int x, int y, int c = 0) const
  {
    T v;
    std::memcpy(&v, at(x, y, c), sizeof(T));
    return v;
  }
  void put(int x, int y, int c, T v) { std::memcpy(at(x, y, c), &v, sizeof(T)); }
  template <class F> TestImage& fill(F f)
  {
    for (int y = 0; y < size.height; ++y)
      for (int x = 0; x < size.width; ++x)
        for (int c = 0; c < channels; ++c) put(x, y, c, static_cast<T>(f(x, y, c)));
    return *this;
  }
  std::vector<unsigned char> all() const { return {first_, first_ + bytes_}; }

  ZorImgSize size;
  int channels, step;

private:
  unsigned char* at(int x, int y, int c) const
  {
    return first_ + static_cast<size_t>(y) * step + (static_cast<size_t>(x) * channels + c) * sizeof(T);
  }
  size_t bytes_;
  std::unique_ptr<zoritest::GuardedBlock> block_;
  unsigned char* first_;
};

// Samples over the range of the type; of 32f in [-1, 1).
template <class T> void fillWithNoise(TestImage<T>& image, unsigned seed)
{
  Noise noise(seed);
  image.fill([&](int, int, int) {
    if constexpr (std::is_floating_point_v<T>) return static_cast<T>(noise.uniform() * 2 - 1);
    else return static_cast<T>(noise.bits());
  });
}

// One channel as doubles; zero outside.
struct Plane {
  int width, height;
  std::vector<double> v;

  Plane(int w, int h) : width(w), height(h), v(static_cast<size_t>(w) * h) {}
  template <class T> Plane(const TestImage<T>& image, int c) : Plane(image.size.width, image.size.height)
  {
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) at(x, y) = static_cast<double>(image.get(x, y, c));
  }
  double& at(int x, int y) { return v[static_cast<size_t>(y) * width + x]; }
  double operator()(int x, int y) const
  {
    return x < 0 || y < 0 || x >= width || y >= height ? 0 : v[static_cast<size_t>(y) * width + x];
  }
  double sum() const
  {
    double s = 0;
    for (double a : v) s += a;
    return s;
  }
  double energy() const
  {
    double s = 0;
    for (double a : v) s += a * a;
    return s;
  }
};

enum class Extent { Full, Same, Valid };
enum class Measure { Plain, Norm, Level, Distance };

struct Outcome {
  double value, denominator, window; // the number of the window that is below the root
};

// The measure of the window of s that begins at (x, y).
inline Outcome measured(const Plane& s, const Plane& t, int x, int y, Measure measure, double floor)
{
  const double n = static_cast<double>(t.width) * t.height, mean = t.sum() / n;
  double c = 0, level = 0, sum = 0, squares = 0, differences = 0, deviations = 0;
  for (int j = 0; j < t.height; ++j)
    for (int i = 0; i < t.width; ++i) {
      const double a = s(x + i, y + j), b = t(i, j);
      c += a * b;
      level += a * (b - mean);
      sum += a;
      squares += a * a;
      differences += (a - b) * (a - b);
      deviations += (b - mean) * (b - mean);
    }
  const double norm = std::max(floor, std::sqrt(t.energy()));
  double spread = 0; // of the window, in two passes
  if (measure == Measure::Level)
    for (int j = 0; j < t.height; ++j)
      for (int i = 0; i < t.width; ++i) spread += (s(x + i, y + j) - sum / n) * (s(x + i, y + j) - sum / n);
  const double window = std::max(measure == Measure::Level ? spread : squares, floor);
  switch (measure) {
  case Measure::Plain: return {c, 1, 1};
  case Measure::Norm: return {c / (std::sqrt(window) * norm), std::sqrt(window) * norm, window};
  case Measure::Level: {
    const double d = std::sqrt(window * std::max(deviations, floor));
    return {level / d, d, window};
  }
  default: {
    const double d = std::sqrt(window) * norm;
    return {differences / d, d, window};
  }
  }
}

inline ZorImgSize sizeOf(Extent extent, ZorImgSize s, ZorImgSize t)
{
  if (extent == Extent::Full) return {s.width + t.width - 1, s.height + t.height - 1};
  if (extent == Extent::Same) return s;
  return {s.width - t.width + 1, s.height - t.height + 1};
}
inline ZorImgPoint originOf(Extent extent, ZorImgSize t)
{
  if (extent == Extent::Full) return {1 - t.width, 1 - t.height};
  if (extent == Extent::Same) return {-(t.width / 2), -(t.height / 2)};
  return {0, 0};
}

} // namespace correlation
