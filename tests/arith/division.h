// What the tests of division share: exact quotients, and the layouts held against single samples.
#pragma once

#include "zori/types.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <random>
#include <string>
#include <vector>

// Scales from beyond both ends of what matters, with the extremes of int.
inline std::vector<int> divisionScales()
{
  std::vector<int> scales{INT_MIN, -1000, 1000, INT_MAX};
  for (int s = -36; s <= 36; ++s) scales.push_back(s);
  return scales;
}

// A quotient n / d * 2^-scale in exact numbers.
struct ExactQuotient {
  bool negative;
  unsigned long long whole, rest, divisor;

  ExactQuotient(long long n, long long d, int scale) : negative((n < 0) != (d < 0))
  {
    const int shift = std::abs(std::max(-32, std::min(scale, 32))); // further on nothing changes
    const auto numerator = static_cast<unsigned long long>(std::llabs(n)) << (scale < 0 ? shift : 0);
    divisor = static_cast<unsigned long long>(std::llabs(d)) << (scale < 0 ? 0 : shift);
    whole = numerator / divisor;
    rest = numerator % divisor;
  }
  template <class T> T rounded(ZorRoundMode mode) const
  {
    const bool up = mode == ZorRoundNearestEven ? 2 * rest > divisor || (2 * rest == divisor && whole % 2 != 0)
                                                : mode == ZorRoundNearestAway && 2 * rest >= divisor;
    const long long magnitude = static_cast<long long>(std::min(whole, 1ull << 62)) + up;
    const long long value = negative ? -magnitude : magnitude, greatest = std::numeric_limits<T>::max();
    return static_cast<T>(std::max<long long>(std::min(value, greatest), std::numeric_limits<T>::min()));
  }
  // How far from the nearest tie, as a part of the quotient.
  double distanceFromTie() const
  {
    const double fraction = static_cast<double>(rest) / static_cast<double>(divisor);
    return std::abs(fraction - 0.5) / (static_cast<double>(whole) + fraction);
  }
};

template <class T> T overZero(T n)
{
  return n > 0 ? std::numeric_limits<T>::max() : n < 0 ? std::numeric_limits<T>::min() : T(0);
}

template <class T> T exactQuotient(T n, T d, int scale, ZorRoundMode mode = ZorRoundNearestEven)
{
  return d == 0 ? overZero(n) : ExactQuotient(n, d, scale).rounded<T>(mode);
}

// ---- Forms: the channels of a layout, of which the fourth may have to stay, and its two functions. ----

template <class T, class... A> struct ImagesForm {
  int channels;
  bool keepsFourth;
  ZorStatus (*plain)(const T*, int, const T*, int, T*, int, ZorImgSize, A...);
  ZorStatus (*inPlace)(const T*, int, T*, int, ZorImgSize, A...);
};

// An image on any address with any step, all of its memory random, with a zero sample now and then.
template <class T> struct LooseImage {
  std::vector<unsigned char> bytes;
  std::size_t offset;
  int step;

  LooseImage(int rowLength, int height, std::size_t offset_, int gap, std::mt19937& random)
    : offset(offset_), step(rowLength * static_cast<int>(sizeof(T)) + gap)
  {
    bytes.resize(offset + static_cast<std::size_t>(step * height));
    for (auto& b : bytes) b = static_cast<unsigned char>(random());
    for (int y = 0; y < height; ++y)
      for (int i = 0; i < rowLength; ++i) {
        if (random() % 61 == 0) std::memset(at(y, i), 0, sizeof(T));
        if (std::is_same_v<T, Zor32f> || std::is_same_v<T, Zor32fc>) // finite: the bits of a NaN are nobody's promise
          for (std::size_t k = 3; k < sizeof(T); k += 4) at(y, i)[k] &= 0xbf;
      }
  }
  T* data() { return reinterpret_cast<T*>(bytes.data() + offset); }
  unsigned char* at(int y, int i) { return bytes.data() + offset + y * step + i * static_cast<int>(sizeof(T)); }
  T* sample(int y, int i) { return reinterpret_cast<T*>(at(y, i)); }
};

// Rows of every length up to a few vectors, with gaps and without, on even and odd addresses.
template <class Body> void forEachShape(int channels, Body body)
{
  struct {
    std::size_t offset;
    int gap;
  } places[] = {{0, 0}, {0, 16}, {1, 7}, {4, 3}};
  for (const auto& place : places)
    for (int width = 1; width * channels <= 72; ++width) body(width, place.offset, place.gap);
  body(800, std::size_t{0}, 8);
}

// All forms give, sample by sample, result and warning that the first one, of one channel, gives for single samples; in
// place, too, and where the destination is either source.
template <class T, class... A>
void expectImageFormsAgree(std::initializer_list<ImagesForm<T, A...>> forms, A... arguments)
{
  std::mt19937 random(7);
  const auto single = forms.begin()->plain;
  for (const auto& form : forms)
    forEachShape(form.channels, [&](int width, std::size_t offset, int gap) {
      constexpr int height = 2, one = sizeof(T);
      const int length = width * form.channels;
      const ZorImgSize size = {width, height};
      LooseImage<T> den(length, height, offset, gap, random), num(length, height, 4 - offset, gap, random);
      LooseImage<T> dst(length, height, offset, gap, random);
      ZorStatus status = ZorOk;
      const auto expected = [&](LooseImage<T> to) {
        for (int y = 0; y < height; ++y)
          for (int i = 0; i < length; ++i) {
            if (form.keepsFourth && i % 4 == 3) continue;
            T *d = den.sample(y, i), *n = num.sample(y, i), *q = to.sample(y, i);
            if (const auto s = single(d, one, n, one, q, one, {1, 1}, arguments...); s != ZorOk) status = s;
          }
        return to.bytes;
      };
      const auto bytes = expected(dst), bytesOverNum = expected(num), bytesOverDen = expected(den);
      const std::string where = std::to_string(form.channels) + " channels, width " + std::to_string(width);

      LooseImage<T> to = dst;
      T *d = den.data(), *n = num.data();
      ASSERT_EQ(form.plain(d, den.step, n, num.step, to.data(), to.step, size, arguments...), status) << where;
      ASSERT_EQ(to.bytes, bytes) << where;
      to = num;
      ASSERT_EQ(form.inPlace(d, den.step, to.data(), to.step, size, arguments...), status) << where;
      ASSERT_EQ(to.bytes, bytesOverNum) << "in place, " << where;
      to = den;
      ASSERT_EQ(form.plain(to.data(), to.step, n, num.step, to.data(), to.step, size, arguments...), status) << where;
      ASSERT_EQ(to.bytes, bytesOverDen) << "over the denominators, " << where;
    });
}
