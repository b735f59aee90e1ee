// Images and plain samplers that the tests of the warps share. Samplers take one point at a time, by the rules as they
// are told to users.
#pragma once

#include "support/image.h"
#include "zori/types.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

namespace warptest {

// Noise of all values, floats between -1000 and 1000.
template <class T> class Image : public zoritest::GuardedRows<T> {
public:
  Image(int width, int height, int channels = 1, unsigned seed = 1, int padding = 0, bool atBegin = false)
    : zoritest::GuardedRows<T>(width * channels, height, padding, !atBegin), size{width, height}, channels(channels),
      step(zoritest::GuardedRows<T>::step())
  {
    std::mt19937 random(seed);
    this->fill(random, [&] {
      if constexpr (std::is_same_v<T, Zor32f>) return static_cast<float>(int(random() % 2000001) - 1000000) / 1000;
      else return static_cast<T>(random());
    });
  }
  T get(int sample, int y) const { return this->sample(y, sample); }
  void put(int sample, int y, T value) { this->putSample(y, sample, value); }
  T at(int x, int y, int channel = 0) const { return get(x * channels + channel, y); }
  T* data() const { return this->rows(); }
  ZorImgRect whole() const { return {0, 0, size.width, size.height}; }
  bool operator==(const Image& other) const { return this->difference(other).empty(); }

  ZorImgSize size;
  int channels, step;
};

inline double cubicWeight(int k, double t)
{
  switch (k) {
  case 0: return (-t * t / 6 - 1.0 / 3) * t + t * t / 2;
  case 1: return t * t * t / 2 + 1 - t * t - t / 2;
  case 2: return -t * t * t / 2 + t * t / 2 + t;
  default: return t * t * t / 6 - t / 6;
  }
}

// The source at a point inside it, one channel. `single`: fractions are formed in single precision, as for coordinates
// that are single themselves.
template <class T> double sampled(const Image<T>& s, double x, double y, int channel, int interpolation)
{
  const int w = s.size.width, h = s.size.height;
  if (interpolation == ZORI_INTER_CUBIC && (w < 4 || h < 4)) interpolation = ZORI_INTER_LINEAR;
  if (w < 2 || h < 2) interpolation = ZORI_INTER_NN;
  x = std::clamp(x, 0.0, w - 1.0);
  y = std::clamp(y, 0.0, h - 1.0);
  if (interpolation == ZORI_INTER_NN) return s.at(int(std::nearbyint(x)), int(std::nearbyint(y)), channel);
  int ix = int(x), iy = int(y);
  if (interpolation == ZORI_INTER_LINEAR) {
    ix = std::min(ix, w - 2);
    iy = std::min(iy, h - 2);
    if constexpr (sizeof(T) == 1) {
      const int fx = int(std::nearbyint((x - ix) * 16384)), fy = int(std::nearbyint((y - iy) * 16384));
      const auto row = [&](int r) {
        return (s.at(ix, r, channel) * (16384 - fx) + s.at(ix + 1, r, channel) * fx) >> 8;
      };
      return (row(iy) * (16384 - fy) + row(iy + 1) * fy + 524288) >> 20;
    } else {
      const float fx = float(x - ix), fy = float(y - iy);
      const auto row = [&](int r) {
        const float a = float(s.at(ix, r, channel)) * (1 - fx), b = float(s.at(ix + 1, r, channel)) * fx;
        return a + b;
      };
      const float t0 = row(iy), t1 = row(iy + 1), out = t0 + (t1 - t0) * fy;
      return std::is_same_v<T, Zor16u> ? std::nearbyint(out) : out;
    }
  }
  double sum = 0;
  for (int i = 0; i < 4; ++i) {
    double row = 0;
    for (int k = 0; k < 4; ++k)
      row += cubicWeight(k, x - ix) * s.at(std::clamp(ix - 1 + k, 0, w - 1), std::clamp(iy - 1 + i, 0, h - 1), channel);
    sum += cubicWeight(i, y - iy) * row;
  }
  if (std::is_same_v<T, Zor32f>) return float(sum);
  return std::floor(std::clamp(sum, 0.0, sizeof(T) == 1 ? 255.0 : 65535.0) + 0.5);
}

// How far a result may be from `sampled` with the very same point.
template <class T> double tolerance(int interpolation)
{
  if (interpolation != ZORI_INTER_CUBIC) return 0;
  return std::is_same_v<T, Zor32f> ? 1e-3 : sizeof(T) == 1 ? 1 : 1; // sums in another order
}

} // namespace warptest
