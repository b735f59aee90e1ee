// An oracle for filters with the caller's kernel: plain loops, on images that hold exactly what the kernel covers and
// lie at a page without access.
#pragma once

#include "data/pixel_image.h"
#include "support/numbers.h"
#include "zori/types.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <vector>

namespace general {

struct Layout {
  int channels, processed;
};
constexpr Layout c1{1, 1}, c3{3, 3}, c4{4, 4}, ac4{4, 3};

struct Shape {
  ZorImgSize roi, kernel;
  ZorImgPoint anchor;
};
inline std::ostream& operator<<(std::ostream& out, const Shape& s)
{
  return out << "region " << s.roi.width << 'x' << s.roi.height << " kernel " << s.kernel.width << 'x'
             << s.kernel.height;
}

// Regions below and above a block of samples, of odd and even height, worth a team, longer than a strip.
inline const std::vector<Shape> shapes = {
  {{1, 1}, {1, 1}, {0, 0}},    {{3, 2}, {3, 3}, {1, 1}},    {{15, 3}, {3, 3}, {0, 2}},  {{16, 4}, {3, 3}, {5, -7}},
  {{17, 5}, {2, 2}, {1, 0}},   {{20, 3}, {4, 5}, {3, 3}},   {{33, 2}, {5, 1}, {2, 0}},  {{37, 1}, {5, 5}, {2, 2}},
  {{18, 4}, {1, 6}, {0, 2}},   {{64, 64}, {5, 4}, {1, 1}},  {{70, 67}, {3, 3}, {1, 1}}, {{3001, 3}, {3, 2}, {2, 1}},
  {{40, 5}, {31, 17}, {9, 9}}, {{961, 2}, {46, 45}, {0, 0}}};
inline const std::vector<Shape> rows = {{{1, 1}, {1, 1}, {0, 0}},    {{2, 3}, {3, 1}, {1, 0}},
                                        {{16, 2}, {3, 1}, {2, 0}},   {{45, 3}, {9, 1}, {4, 0}},
                                        {{64, 65}, {4, 1}, {-3, 0}}, {{1025, 2}, {33, 1}, {40, 0}}};
inline const std::vector<Shape> columns = {{{1, 1}, {1, 1}, {0, 0}},    {{2, 3}, {1, 3}, {0, 1}},
                                           {{16, 2}, {1, 3}, {0, 2}},   {{45, 3}, {1, 9}, {0, 4}},
                                           {{64, 65}, {1, 4}, {0, -3}}, {{1025, 5}, {1, 2}, {0, 40}}};

// Numbers below n, from a seed.
class Random {
public:
  explicit Random(unsigned seed) : state_(seed * 2654435761u + 99991) {}
  int below(int n) { return static_cast<int>(zoritest::nextNoise(state_) >> 8) % n; }

private:
  unsigned state_;
};

template <class K> std::vector<K> kernelOf(const Shape& shape, int seed)
{
  Random random(static_cast<unsigned>(seed));
  std::vector<K> kernel(static_cast<size_t>(shape.kernel.width * shape.kernel.height));
  for (K& k : kernel) k = static_cast<K>(random.below(41) - 16);
  if constexpr (std::is_floating_point_v<K>)
    for (K& k : kernel) k /= static_cast<K>(7 * std::sqrt(static_cast<double>(kernel.size())));
  return kernel;
}

// What the functions sum up: wrapping integers, or floats in the order of the pixels.
template <class K, class T> K added(K sum, K k, T sample)
{
  if constexpr (std::is_floating_point_v<K>) return sum + k * static_cast<K>(sample);
  else return static_cast<K>(static_cast<Zor32u>(sum) + static_cast<Zor32u>(k) * static_cast<Zor32u>(sample));
}

// Calls call(pSrc, srcStep, pDst, dstStep, shape) and compares every byte with rule(sum) in place of the samples.
template <class T, class K, class Call, class Rule>
void compare(Layout layout, const Shape& shape, const std::vector<K>& kernel, Call call, Rule rule)
{
  using zoritest::Edge;
  using zoritest::PixelImage;
  const int n = layout.channels, sample = static_cast<int>(sizeof(T)), kw = shape.kernel.width,
            kh = shape.kernel.height;
  const int width = shape.roi.width, height = shape.roi.height;
  static unsigned seed = 0;
  const Edge edge = ++seed % 2 ? Edge::End : Edge::Begin;
  const int padding = static_cast<int>(seed % 3) * sample + (seed % 5 == 0);
  const ZorImgSize covered = {width + kw - 1, height + kh - 1};
  const PixelImage src(covered, n * sample, padding, edge, seed);
  const PixelImage dst(shape.roi, n * sample, padding / 2, edge, 77);
  const auto at = [&](int x, int y, int k) { return src.at<char>(x, y) + k * sample; };
  if constexpr (std::is_floating_point_v<T>) {
    Random random(seed);
    for (int y = 0; y < height + kh - 1; ++y)
      for (int x = 0; x < width + kw - 1; ++x)
        for (int k = 0; k < n; ++k) {
          const T v = static_cast<T>(random.below(200001) - 100000) / 128;
          std::memcpy(at(x, y, k), &v, sizeof v);
        }
  }

  std::vector<Zor8u> expected = dst.bytes();
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int k = 0; k < layout.processed; ++k) {
        K sum = 0;
        for (int j = 0; j < kh; ++j)
          for (int i = 0; i < kw; ++i) {
            T v;
            std::memcpy(&v, at(x + i, y + j, k), sizeof v);
            sum = added(sum, kernel[static_cast<size_t>((kh - 1 - j) * kw + kw - 1 - i)], v);
          }
        const T result = static_cast<T>(rule(sum));
        std::memcpy(expected.data() + dst.offset(x, y) + static_cast<size_t>(k * sample), &result, sizeof result);
      }

  // once where the seed puts the source, once with its last sample at the page and rows that adjoin
  for (const bool adjoining : {false, true}) {
    const PixelImage tight(covered, n * sample, 0, Edge::End, 1), &from = adjoining ? tight : src;
    for (int y = 0; adjoining && y < covered.height; ++y)
      std::memcpy(from.at<char>(0, y), src.at<char>(0, y), static_cast<size_t>(covered.width * n * sample));
    const std::ptrdiff_t first =
      std::ptrdiff_t{kh - 1 - shape.anchor.y} * from.step + std::ptrdiff_t{kw - 1 - shape.anchor.x} * n * sample;
    const T* const pSrc = reinterpret_cast<const T*>(from.at<char>(0, 0) + first);
    ASSERT_EQ(call(pSrc, from.step, dst.at<T>(0, 0), dst.step, shape), ZorOk) << shape;
    const std::vector<Zor8u> bytes = dst.bytes();
    for (size_t i = 0; i < bytes.size(); ++i)
      ASSERT_EQ(static_cast<int>(bytes[i]), static_cast<int>(expected[i]))
        << shape << " channels " << n << ", byte " << static_cast<std::ptrdiff_t>(i - dst.offset(0, 0))
        << " of the region, " << sizeof(T) << " a sample";
  }
}

// ---- Rules ----

using zoritest::saturated;

enum class Ties { Even, Up };
template <class T> double rounded(float f, Ties ties)
{
  return saturated<T>(ties == Ties::Even ? std::nearbyint(static_cast<double>(f))
                                         : std::floor(static_cast<double>(f) + 0.5));
}
template <class T> double roundedBy(double x, ZorRoundMode mode)
{
  return saturated<T>(mode == ZorRoundTowardZero    ? std::trunc(x)
                      : mode == ZorRoundNearestEven ? std::nearbyint(x)
                                                    : std::round(x));
}

// The exact quotient in whole numbers.
template <class T> double dividedExactly(Zor32s sum, int divisor, ZorRoundMode mode)
{
  const long long d = std::abs(static_cast<long long>(divisor)), n = std::abs(static_cast<long long>(sum));
  long long q = n / d;
  const long long rest = 2 * (n % d);
  if (mode != ZorRoundTowardZero && (rest > d || (rest == d && (mode == ZorRoundNearestAway || q % 2 != 0)))) ++q;
  return saturated<T>(static_cast<double>((sum < 0) == (divisor < 0) ? q : -q));
}

template <class T> double divided(Zor32s sum, int divisor, Ties ties)
{
  if (divisor > 0 && (divisor & (divisor - 1)) == 0) return dividedExactly<T>(sum, divisor, ZorRoundNearestEven);
  return rounded<T>(static_cast<float>(sum) * (1.0f / static_cast<float>(divisor)), ties);
}

inline Ties tiesOf(int kernelLength, int roiWidth)
{
  return kernelLength >= 3 && roiWidth >= 16 ? Ties::Even : Ties::Up;
}

} // namespace general
