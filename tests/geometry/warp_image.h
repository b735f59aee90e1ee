// Images and plain samplers that the tests of the warps share. Samplers take one point at a time, by the rules as they
// are told to users.
#pragma once

#include "support/guarded_block.h"
#include "zori/types.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

namespace warptest {

// An image whose last byte, or first, lies at a page without access. Noise of all values, floats between -1000 and
// 1000.
template <class T> class Image {
public:
  Image(int width, int height, int channels = 1, unsigned seed = 1, int padding = 0, bool atBegin = false)
    : size{width, height}, channels(channels), step(width * channels * int(sizeof(T)) + padding)
  {
    const std::size_t bytes = std::size_t(step) * (height - 1) + std::size_t(width) * channels * sizeof(T);
    block_ = std::make_unique<zoritest::GuardedBlock>(bytes);
    first_ = atBegin ? block_->begin() : block_->end() - bytes;
    std::mt19937 random(seed);
    for (std::size_t i = 0; i < bytes; ++i) first_[i] = static_cast<unsigned char>(random());
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width * channels; ++x) {
        T value;
        if constexpr (std::is_same_v<T, Zor32f>) value = static_cast<float>(int(random() % 2000001) - 1000000) / 1000;
        else value = static_cast<T>(random());
        put(x, y, value);
      }
  }
  T get(int sample, int y) const
  {
    T value;
    std::memcpy(&value, row(y) + std::size_t(sample) * sizeof(T), sizeof(T));
    return value;
  }
  void put(int sample, int y, T value) { std::memcpy(row(y) + std::size_t(sample) * sizeof(T), &value, sizeof(T)); }
  T at(int x, int y, int channel = 0) const { return get(x * channels + channel, y); }
  T* data() const { return reinterpret_cast<T*>(first_); }
  ZorImgRect whole() const { return {0, 0, size.width, size.height}; }
  bool operator==(const Image& other) const
  {
    for (int y = 0; y < size.height; ++y)
      if (std::memcmp(row(y), other.row(y), std::size_t(size.width) * channels * sizeof(T)) != 0) return false;
    return true;
  }

  ZorImgSize size;
  int channels, step;

private:
  unsigned char* row(int y) const { return first_ + std::ptrdiff_t(y) * step; }
  std::unique_ptr<zoritest::GuardedBlock> block_;
  unsigned char* first_;
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
