// Exponential and natural logarithm.
//
// Single precision: within one unit in the last place of the correctly rounded value, over all numbers. Ordinary
// arguments take a short path; a group with any other goes through a function that knows all of them. The rounding field
// must be at nearest: callers set a RoundingScope.
#pragma once

#include "drivers.h"
#include "zori/types.h"

namespace zori {

namespace explog {

// ln 2 in two parts: whole multiples of the first, up to 2^8, are exact in single precision.
inline constexpr Zor32f ln2High = 0x1.62e4p-1f, ln2Low = 0x1.7f7d1cp-20f;
inline constexpr Zor64f ln2 = 0x1.62e42fefa39efp-1;

inline constexpr Zor32s leastNormalBits = 0x00800000;

// e^x = mantissa * 2^exponent, for |x| up to 105.
struct Exponential {
  F32x4 mantissa;
  Vec<Zor32s> exponent; // in the low bits

  explicit Exponential(F32x4 x)
  {
    const F32x4 toInteger = splat(0x1.8p23f); // a sum with it is rounded to an integer, which is in its low bits
    const F32x4 shifted = x * splat(0x1.715476p0f) + toInteger;
    const F32x4 n = shifted - toInteger;
    const F32x4 r = (x - n * splat(ln2High)) - n * splat(ln2Low);
    F32x4 series = r * splat(0.0013926926614f) + splat(0.0083637738744f); // of (e^r - 1 - r) / r^2
    series = series * r + splat(0.0416665501103f);
    series = series * r + splat(0.1666657338190f);
    series = series * r + splat(0.5f);
    mantissa = (series * r * r + r) + splat(1.0f);
    exponent = as<Zor32s>(shifted);
  }
};

// x = (1 + fraction) * 2^exponent for normal positive x, with 1 + fraction between the roots of 1/2 and 2.
struct Parts {
  F32x4 fraction, exponent;

  explicit Parts(F32x4 x)
  {
    const Vec<Zor32s> rootHalfBits = splat(0x3f3504f3), mantissaBits = splat(0x007fffff);
    const Vec<Zor32s> fromRoot = as<Zor32s>(x) - rootHalfBits;
    exponent = toFloat(shiftRight<23>(fromRoot));
    fraction = as<Zor32f>((fromRoot & mantissaBits) + rootHalfBits) - splat(1.0f);
  }
};

// With s = f / (2 + f), ln(1 + f) is 2 atanh(s) = 2s + s^3 * series(s^2), and 2s = f - s * f.
inline F32x4 logarithm(const Parts& x)
{
  const F32x4 f = x.fraction, s = f / (f + splat(2.0f)), z = s * s;
  const F32x4 series = (z * splat(0.2958027715381f) + splat(0.3998877334331f)) * z + splat(0.6666668505723f);
  const F32x4 rest = s * (f - z * series) - x.exponent * splat(ln2Low);
  return x.exponent * splat(ln2High) + (f - rest);
}

Group<Zor32f> exponentialOfAny(const Group<Zor32f>& x);
Group<Zor32f> logarithmOfAny(const Group<Zor32f>& x);

} // namespace explog

inline Group<Zor32f> exponential(const Group<Zor32f>& x)
{
  F32x4 special = notLess(abs(x.part[0]), splat(87.0f)); // holds for NaN
  for (int k = 1; k < x.parts; ++k) special = special | notLess(abs(x.part[k]), splat(87.0f));
  if (__builtin_expect(moveMask(special), 0)) return explog::exponentialOfAny(x);
  Group<Zor32f> y;
  for (int k = 0; k < x.parts; ++k) {
    const explog::Exponential e(x.part[k]);
    y.part[k] = as<Zor32f>(as<Zor32s>(e.mantissa) + shiftLeft<23>(e.exponent));
  }
  return y;
}

inline Group<Zor32f> logarithm(const Group<Zor32f>& x)
{
  // this sum brings zero, denormal, negative and infinite numbers and NaN below the normal ones
  const auto moved = [&](int k) { return as<Zor32s>(x.part[k]) + splat(explog::leastNormalBits); };
  const auto least = splat(2 * explog::leastNormalBits);
  Vec<Zor32s> special = greater(least, moved(0));
  for (int k = 1; k < x.parts; ++k) special = special | greater(least, moved(k));
  if (__builtin_expect(moveMask(as<Zor32f>(special)), 0)) return explog::logarithmOfAny(x);
  Group<Zor32f> y;
  for (int k = 0; k < x.parts; ++k) y.part[k] = explog::logarithm(explog::Parts(x.part[k]));
  return y;
}

// ln(x) * factor rounded to integers, for positive integers x below 2^24: formed in double precision, within 1e-14 of the
// value relatively. For numbers that are not positive the result is of no use.
Group<Zor32s> integerLogarithm(const Group<Zor32f>& x, Zor64f factor);

} // namespace zori
