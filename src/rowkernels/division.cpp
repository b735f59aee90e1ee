// Division of complex samples: n * conj(d) / |d|^2, each part with one rounded division.
//
// 16sc and 32fc are computed in double, where the numerators and denominators of 16sc are exact, the products of 32fc
// too, and nothing over- or underflows. 32sc needs 64 bits for that and has them in the extended format.
#include "division.h"

#include <algorithm>
#include <cmath>

namespace zori {

// The parts of two samples.
struct Parts {
  F64x2 re, im;
};

// Operators load, compute and store `count` samples, 1 or 2, and remember whether a denominator was zero.

struct ComplexQuotient {
  F64x2 zeros = zero<double>();
  bool anyZero() const { return moveMask(zeros) != 0; }

  // Both parts times the square of the denominator, and that square.
  template <int count> Parts numerators(Parts n, Parts d, F64x2& square)
  {
    square = d.re * d.re + d.im * d.im;
    if constexpr (count == 1) square = interleaveLow(square, square); // there is no second sample
    zeros = zeros | equal(square, zero<double>());
    return {n.re * d.re + n.im * d.im, n.im * d.re - n.re * d.im};
  }
};

struct Quotient16sc : ComplexQuotient {
  F64x2 factor; // 2^-scaleFactor; within the bounds every part saturates, or rounds to zero

  explicit Quotient16sc(int scaleFactor) : factor(splat(powerOfTwo(-std::clamp(scaleFactor, -64, 33)))) {}
  template <int count> static Parts load(const Zor16sc* p)
  {
    const auto whole = widenLow(count == 1 ? loadLow4<int16_t>(p) : loadLow8<int16_t>(p));
    const auto sorted = shuffle<3, 1, 2, 0>(whole);
    return {toDoubleLow(sorted), toDoubleHigh(sorted)};
  }
  template <int count> void operator()(Zor16sc* dst, const Zor16sc* num, const Zor16sc* den)
  {
    F64x2 square;
    const Parts n = numerators<count>(load<count>(num), load<count>(den), square);
    // over zero the numerators are 0, too; a quotient that is too small saturates by itself
    const F64x2 divisor = max(square, splat(1.0)), upper = splat(32767.0);
    const auto re = toInt(min(n.re * factor / divisor, upper), zero<double>());
    const auto im = toInt(min(n.im * factor / divisor, upper), zero<double>());
    const auto whole = interleaveLow(re, im);
    const auto packed = narrowSat<int16_t>(whole, whole);
    if constexpr (count == 1) storeLow4(dst, packed);
    else storeLow8(dst, packed);
  }
};

struct Quotient32fc : ComplexQuotient {
  template <int count> static Parts load(const Zor32fc* p)
  {
    F32x4 x;
    if constexpr (count == 1) x = loadLow8<float>(p);
    else x = zori::load<float>(p);
    const F32x4 sorted = shuffle<3, 1, 2, 0>(x, x);
    return {toDoubleLow(sorted), toDoubleHigh(sorted)};
  }
  template <int count> void operator()(Zor32fc* dst, const Zor32fc* num, const Zor32fc* den)
  {
    F64x2 square;
    const Parts n = numerators<count>(load<count>(num), load<count>(den), square);
    const F32x4 x = toFloat(n.re / square, n.im / square), parts = shuffle<3, 1, 2, 0>(x, x);
    if constexpr (count == 1) storeLow8(dst, parts);
    else store(dst, parts);
  }
};

struct Quotient32sc {
  double factor;
  bool metZero = false;

  explicit Quotient32sc(int scaleFactor) : factor(powerOfTwo(-std::clamp(scaleFactor, -128, 64))) {}
  bool anyZero() const { return metZero; }
  // To nearest, ties to even, whatever the rounding fields say.
  static Zor32s saturated(long double x)
  {
    const long double magnitude = std::min(std::fabs(x), 2147483648.0L);
    Zor64s whole = static_cast<Zor64s>(magnitude);
    const long double rest = magnitude - static_cast<long double>(whole);
    whole += static_cast<int>(rest > 0.5L) | (static_cast<int>(rest == 0.5L) & static_cast<int>(whole));
    return static_cast<Zor32s>(x < 0 ? -whole : std::min<Zor64s>(whole, INT32_MAX));
  }
  template <int count> void operator()(Zor32sc* dst, const Zor32sc* num, const Zor32sc* den)
  {
    for (int k = 0; k < count; ++k) {
      const Zor32sc n = get<Zor32sc>(num + k), d = get<Zor32sc>(den + k);
      const long double a = n.re, b = n.im, c = d.re, e = d.im, square = c * c + e * e;
      Zor32sc q = {0, 0};
      if (square == 0) metZero = true;
      else q = {saturated((a * c + b * e) * factor / square), saturated((b * c - a * e) * factor / square)};
      put(dst + k, q);
    }
  }
};

template <class T, class Op>
static bool divideEach(T* dst, std::ptrdiff_t length, Op op, bool keepsFourth, const T* num, const T* den)
{
  const auto at = [&](std::ptrdiff_t i, auto count) { op.template operator()<count>(dst + i, num + i, den + i); };
  constexpr std::integral_constant<int, 1> one;
  constexpr std::integral_constant<int, 2> two;
  std::ptrdiff_t i = 0;
  if (keepsFourth)
    for (; i < length; i += 4) at(i, two), at(i + 2, one);
  for (; i + 2 <= length; i += 2) at(i, two);
  if (i < length) at(i, one);
  return op.anyZero();
}

bool divideComplex(Zor16sc* dst, std::ptrdiff_t length, int scaleFactor, bool keepsFourth, const Zor16sc* num,
                   const Zor16sc* den)
{
  return divideEach(dst, length, Quotient16sc(scaleFactor), keepsFourth, num, den);
}

bool divideComplex(Zor32sc* dst, std::ptrdiff_t length, int scaleFactor, bool keepsFourth, const Zor32sc* num,
                   const Zor32sc* den)
{
  return divideEach(dst, length, Quotient32sc(scaleFactor), keepsFourth, num, den);
}

bool divideComplex(Zor32fc* dst, std::ptrdiff_t length, int /* floats have no scale */, bool keepsFourth,
                   const Zor32fc* num, const Zor32fc* den)
{
  return divideEach(dst, length, Quotient32fc(), keepsFourth, num, den);
}

} // namespace zori
