// Division of complex samples: n * conj(d) / |d|^2, each part with one rounded division.
//
// 16sc and 32fc are computed in double, where the numerators and denominators of 16sc are exact, the products of 32fc
// too, and nothing over- or underflows. 32sc needs 64 bits for that and has them in the extended format.
#include "division.h"

#include <algorithm>

namespace zori {

static F64x2 swapped(F64x2 x) { return as<double>(shuffle<1, 0, 3, 2>(as<float>(x), as<float>(x))); }

// The parts of n * conj(d), and |d|^2 twice.
struct Fraction {
  F64x2 numerators, denominator;

  Fraction(F64x2 n, F64x2 d)
  {
    alignas(16) static constexpr double minusInSecond[2] = {0.0, -0.0};
    const F64x2 cross = swapped(n) * interleaveHigh(d, d), squares = d * d;
    numerators = n * interleaveLow(d, d) + (cross ^ loadAligned<double>(minusInSecond));
    denominator = squares + swapped(squares);
  }
};

// Quotients of one sample; operator() tells whether the denominator was zero.

struct Quotient16sc {
  F64x2 factor; // 2^-scaleFactor; within the bounds every part saturates, or rounds to zero

  explicit Quotient16sc(int scaleFactor) : factor(splat(powerOfTwo(-std::clamp(scaleFactor, -64, 33)))) {}
  static F64x2 parts(const Zor16sc* p) { return toDoubleLow(widenLow(loadLow4<int16_t>(p))); }
  bool operator()(Zor16sc* dst, const Zor16sc* num, const Zor16sc* den) const
  {
    const Fraction f(parts(num), parts(den));
    // over zero the numerators are 0, too; a quotient that is too small saturates by itself
    const F64x2 q = min(f.numerators * factor / max(f.denominator, splat(1.0)), splat(32767.0));
    const Vec<int32_t> whole = toInt(q, q);
    storeLow4(dst, narrowSat<int16_t>(whole, whole));
    return firstLane(f.denominator) == 0;
  }
};

struct Quotient32fc {
  static F64x2 parts(const Zor32fc* p) { return toDoubleLow(loadLow8<float>(p)); }
  bool operator()(Zor32fc* dst, const Zor32fc* num, const Zor32fc* den) const
  {
    const Fraction f(parts(num), parts(den));
    const F64x2 q = f.numerators / f.denominator;
    storeLow8(dst, toFloat(q, q));
    return firstLane(f.denominator) == 0;
  }
};

struct Quotient32sc {
  double factor;

  explicit Quotient32sc(int scaleFactor) : factor(powerOfTwo(-std::clamp(scaleFactor, -128, 64))) {}
  // To nearest, ties to even, whatever the rounding field of either unit.
  static Zor32s saturated(long double x)
  {
    if (x >= INT32_MAX) return INT32_MAX;
    if (x <= INT32_MIN) return INT32_MIN;
    const Zor32s whole = static_cast<Zor32s>(x);
    const long double rest = x - whole;
    if (rest > 0.5L || (rest == 0.5L && whole % 2 != 0)) return whole + 1;
    if (rest < -0.5L || (rest == -0.5L && whole % 2 != 0)) return whole - 1;
    return whole;
  }
  bool operator()(Zor32sc* dst, const Zor32sc* num, const Zor32sc* den) const
  {
    const Zor32sc n = get<Zor32sc>(num), d = get<Zor32sc>(den);
    const long double a = n.re, b = n.im, c = d.re, e = d.im, square = c * c + e * e;
    if (square == 0) {
      put(dst, Zor32sc{0, 0});
      return true;
    }
    put(dst, Zor32sc{saturated((a * c + b * e) * factor / square), saturated((b * c - a * e) * factor / square)});
    return false;
  }
};

template <class T, class Op>
static bool divideEach(T* dst, std::ptrdiff_t length, const Op op, bool keepsFourth, const T* num, const T* den)
{
  bool anyZero = false;
  for (std::ptrdiff_t i = 0; i < length; ++i)
    if (!keepsFourth || i % 4 != 3) anyZero |= op(dst + i, num + i, den + i);
  return anyZero;
}

bool divideComplex(Zor16sc* dst, std::ptrdiff_t length, int scaleFactor, bool keepsFourth, const Zor16sc* num, const Zor16sc* den)
{
  return divideEach(dst, length, Quotient16sc(scaleFactor), keepsFourth, num, den);
}

bool divideComplex(Zor32sc* dst, std::ptrdiff_t length, int scaleFactor, bool keepsFourth, const Zor32sc* num, const Zor32sc* den)
{
  return divideEach(dst, length, Quotient32sc(scaleFactor), keepsFourth, num, den);
}

bool divideComplex(Zor32fc* dst, std::ptrdiff_t length, int scaleFactor, bool keepsFourth, const Zor32fc* num, const Zor32fc* den)
{
  (void)scaleFactor;
  return divideEach(dst, length, Quotient32fc(), keepsFourth, num, den);
}

} // namespace zori
