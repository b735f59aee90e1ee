// Exponential and natural logarithm.
//
// Single precision: within one unit in the last place of the correctly rounded value, over all numbers. Ordinary
// arguments take a short path, others go through functions that know all of them. The rounding field must be at nearest:
// callers set a RoundingScope.
#pragma once

#include "drivers.h"
#include "zori/types.h"

namespace zori {

namespace explog {

// The same number in all lanes, in memory: gcc would spread a literal anew in every round of a loop.
struct alignas(16) Lanes {
  Zor32f value[4];
  constexpr Lanes(Zor32f x) : value{x, x, x, x} {}
  operator F32x4() const { return loadAligned<Zor32f>(value); }
};
inline F32x4 operator+(F32x4 a, const Lanes& b) { return a + F32x4(b); }
inline F32x4 operator-(F32x4 a, const Lanes& b) { return a - F32x4(b); }
inline F32x4 operator-(const Lanes& a, F32x4 b) { return F32x4(a) - b; }

struct Constants {
  Lanes log2e = 0x1.715476p0f, ln2 = 0x1.62e43p-1f;
  Lanes ln2High = 0x1.62e4p-1f, ln2Low = 0x1.7f7d1cp-20f; // in two parts: multiples of the first, up to 2^8, are exact
  Lanes toInteger = 0x1.8p23f; // a sum with it is rounded to an integer, which is in its low bits
  Lanes half = 0.5f, one = 1.0f, two = 2.0f, expBound = 87.0f;
  Lanes exp2 = 0.0833332689823f, exp4 = -0.00138476768716f;
  Lanes log3 = 0.6666668505723f, log5 = 0.3998877334331f, log7 = 0.2958027715381f;
};
[[gnu::visibility("hidden")]] extern const Constants constants;

inline constexpr Zor32s leastNormalBits = 0x00800000;

// e^x = mantissa * 2^exponent, for |x| up to 105. With x = n ln2 + r, e^r = 1 + r / d, and d = 1 - r/2 + r^2/12 - r^4/720...
struct Exponential {
  F32x4 mantissa;
  Vec<Zor32s> exponent; // in the low bits

  explicit Exponential(F32x4 x)
  {
    const Constants& c = constants;
    const F32x4 shifted = x * c.log2e + c.toInteger, n = shifted - c.toInteger;
    const F32x4 r = (x - n * c.ln2High) - n * c.ln2Low, r2 = r * r;
    const F32x4 d = (r2 * c.exp4 + c.exp2) * r2 + (c.one - r * c.half);
    mantissa = r / d + c.one;
    exponent = as<Zor32s>(shifted);
  }
};

// x = (1 + fraction) * 2^exponent for normal positive x, with 1 + fraction between the roots of 1/2 and 2.
struct Parts {
  F32x4 fraction;
  Vec<Zor32s> exponent;

  explicit Parts(F32x4 x)
  {
    const Vec<Zor32s> rootHalfBits = splat(0x3f3504f3), mantissaBits = splat(0x007fffff);
    const Vec<Zor32s> fromRoot = as<Zor32s>(x) - rootHalfBits;
    exponent = shiftRight<23>(fromRoot);
    fraction = as<Zor32f>((fromRoot & mantissaBits) + rootHalfBits) - constants.one;
  }
};

// With s = f / (2 + f), ln(1 + f) is 2 atanh(s) = 2s + s^3 * series(s^2), and 2s = f - s * f.
inline F32x4 logarithm(const Parts& x)
{
  const Constants& c = constants;
  const F32x4 n = toFloat(x.exponent), f = x.fraction, s = f / (f + c.two), z = s * s;
  return n * c.ln2 + (f - s * (f - z * ((z * c.log7 + c.log5) * z + c.log3)));
}

F32x4 exponentialOfAny(F32x4 x);
F32x4 logarithmOfAny(F32x4 x);

} // namespace explog

inline Group<Zor32f> exponential(const Group<Zor32f>& x)
{
  const auto beyond = [&](int k) { return notLess(abs(x.part[k]), explog::constants.expBound); }; // so is NaN
  Group<Zor32f> y;
  if (__builtin_expect(moveMask((beyond(0) | beyond(1)) | (beyond(2) | beyond(3))), 0)) {
    for (int k = 0; k < x.parts; ++k) y.part[k] = explog::exponentialOfAny(x.part[k]);
  } else {
    for (int k = 0; k < x.parts; ++k) {
      const explog::Exponential e(x.part[k]);
      y.part[k] = as<Zor32f>(as<Zor32s>(e.mantissa) + shiftLeft<23>(e.exponent));
    }
  }
  return y;
}

// The logarithm of zero is minus infinity, that of a negative number a NaN with its sign set, that of a NaN the same NaN
// without a sign: results tell what was met. `special` is set when a number may be among the three.
inline Group<Zor32f> logarithm(const Group<Zor32f>& x, bool& special)
{
  // this sum brings all numbers that are not normal and positive below those that are
  const Vec<Zor32s> least = splat(2 * explog::leastNormalBits);
  const auto below = [&](int k) { return greater(least, as<Zor32s>(x.part[k]) + splat(explog::leastNormalBits)); };
  Group<Zor32f> y;
  if (__builtin_expect(moveMask((below(0) | below(1)) | (below(2) | below(3))), 0)) {
    special = true;
    for (int k = 0; k < x.parts; ++k) y.part[k] = explog::logarithmOfAny(x.part[k]);
  } else {
    for (int k = 0; k < x.parts; ++k) y.part[k] = explog::logarithm(explog::Parts(x.part[k]));
  }
  return y;
}

// ln(x) * factor rounded to integers, for positive integers x below 2^24: formed in double precision, within 1e-12 of the
// value relatively. For numbers that are not positive the result is of no use.
Group<Zor32s> integerLogarithm(const Group<Zor32f>& x, Zor64f factor);

} // namespace zori
