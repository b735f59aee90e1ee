// Errors against exact arithmetic, held against what the catalogue tells of a function ("accuracy"): the numbers
// behind the word "within". Each measurement prints what it found, so that lines can follow.
#pragma once

#include "support/function_table.h"
#include "support/noise.h"
#include "zori.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <vector>

namespace accuracy {

using Real = long double;

using zoritest::Noise;

// One channel of samples whose rows adjoin, with a margin around the region.
template <class T> struct Picture {
  Picture(int width, int height, int margin = 0)
    : width(width), height(height), margin(margin), columns(width + 2 * margin),
      samples(static_cast<std::size_t>(columns) * static_cast<std::size_t>(height + 2 * margin))
  {}
  T& at(int x, int y)
  {
    return samples[static_cast<std::size_t>(y + margin) * static_cast<std::size_t>(columns) +
                   static_cast<std::size_t>(x + margin)];
  }
  T* data() { return &at(0, 0); }
  int step() const { return columns * static_cast<int>(sizeof(T)); }
  ZorImgSize size() const { return {width, height}; }
  ZorImgRect rectangle() const { return {0, 0, width, height}; }
  template <class F> Picture& fill(F f)
  {
    for (int y = -margin; y < height + margin; ++y)
      for (int x = -margin; x < width + margin; ++x) at(x, y) = static_cast<T>(f(x, y));
    return *this;
  }
  // Integers of all values, floating numbers from -1 to 1.
  Picture& fillWithNoise(unsigned seed)
  {
    Noise noise(seed);
    return fill([&](int, int) {
      if constexpr (std::is_integral_v<T>) return static_cast<T>(noise.bits());
      else return static_cast<T>(noise.uniform(-1, 1));
    });
  }
  // A scene as cameras see it: smooth, with edges and some noise. In the range of the type, or 0 .. 1.
  Picture& fillWithScene(unsigned seed)
  {
    Noise noise(seed);
    double most = 1;
    if constexpr (std::is_integral_v<T>) most = std::numeric_limits<T>::max();
    return fill([&](int x, int y) {
      const double wave = 0.5 + 0.25 * std::sin(0.11 * x + 0.05 * y) + 0.15 * std::cos(0.023 * x * y);
      const double edge = (x / 13 + y / 9) % 2 ? 0.1 : 0;
      return std::clamp(wave - edge + noise.uniform(-0.02, 0.02), 0.0, 1.0) * most;
    });
  }

  int width, height, margin, columns;
  std::vector<T> samples;
};

// The distance of two neighbours among numbers of the type, at an exact value.
template <class F> inline Real unitOf(Real exact)
{
  constexpr int digits = std::numeric_limits<F>::digits, least = std::numeric_limits<F>::min_exponent;
  if (exact == 0) return std::ldexp(Real{1}, least - digits);
  return std::ldexp(Real{1}, std::max(std::ilogb(exact) + 1, least) - digits);
}

// The number as an integer type can hold it.
template <class T> Real clamped(Real x)
{
  return std::clamp<Real>(x, std::numeric_limits<T>::lowest(), std::numeric_limits<T>::max());
}

// The greatest error, in a unit.
class Error {
public:
  void add(Real got, Real exact, Real unit)
  {
    const Real error = std::fabs(got - exact) / unit;
    if (!(error <= most_)) most_ = error; // a NaN stays
  }
  void add(const Error& other) { most_ = std::max(most_, other.most_); }
  Real most() const { return most_; }

private:
  Real most_ = 0;
};

// What the catalogue promises of a function: the number behind one of the words "within".
inline double promised(const std::string& name, int which)
{
  const zoritest::Function* const function = zoritest::findFunction(name);
  const char* text = function ? std::strstr(function->accuracy, "within ") : nullptr;
  for (; which > 0 && text; --which) text = std::strstr(text + 1, "within ");
  return text ? std::strtod(text + 7, nullptr) : -1;
}

// The error is within what is promised.
inline void hold(const std::string& name, const Error& error, const char* unit = "", int which = 0)
{
  const double bound = promised(name, which), most = static_cast<double>(error.most());
  std::printf("%-44s %.4g of %.4g %s\n", name.c_str(), most, bound, unit);
  EXPECT_LE(most, bound) << name;
}

} // namespace accuracy
