// Exponential and natural logarithm.
//
// Single precision: within one unit in the last place of the correctly rounded value, over all numbers. Ordinary
// arguments take a short path, others go through functions that know all of them. The rounding field must be at
// nearest: callers set a RoundingScope.
#pragma once

#include "drivers.h"
#include "zori/types.h"

namespace zori {
inline namespace ZORI_WIDTH {

namespace explog {

// The same number in all lanes, in memory: gcc would spread a literal anew in every round of a loop.
struct alignas(vectorBytes) Lanes {
  Zor32f value[Vec<Zor32f>::size];
  constexpr Lanes(Zor32f x) : value{}
  {
    for (Zor32f& v : value) v = x;
  }
  operator Vec<Zor32f>() const { return loadAligned<Zor32f>(value); }
};
inline Vec<Zor32f> operator+(Vec<Zor32f> a, const Lanes& b) { return a + Vec<Zor32f>(b); }
inline Vec<Zor32f> operator-(Vec<Zor32f> a, const Lanes& b) { return a - Vec<Zor32f>(b); }
inline Vec<Zor32f> operator-(const Lanes& a, Vec<Zor32f> b) { return Vec<Zor32f>(a) - b; }

struct Constants {
  Lanes log2e = 0x1.715476p0f, ln2 = 0x1.62e43p-24f;      // the latter times 2^-23
  Lanes ln2High = 0x1.62e4p-1f, ln2Low = 0x1.7f7d1cp-20f; // ln 2; multiples of the first, up to 2^8, are exact
  Lanes toInteger = 0x1.8p23f; // a sum with it is rounded to an integer, which is in its low bits
  Lanes half = 0.5f, one = 1.0f, two = 2.0f, expBound = 87.0f;
  Lanes exp2 = 0.0833332689823f, exp4 = -0.00138476768716f;
  Lanes log3 = 0.6666668505723f, log5 = 0.3998877334331f, log7 = 0.2958027715381f;
};
[[gnu::visibility("hidden")]] extern const Constants constants;

inline constexpr Zor32s leastNormalBits = 0x00800000;

// The steps below are taken by W vectors together, so that the waits of one are filled by the others.

// e^x = mantissa * 2^exponent, for |x| up to 105. With x = n ln2 + r, e^r = 1 + r / d, and d is
// 1 - r/2 + r^2/12 - r^4/720...
template <int W> struct Exponentials {
  Vec<Zor32f> mantissa[W];
  Vec<Zor32s> exponent[W]; // in the low bits

  explicit Exponentials(const Vec<Zor32f>* x)
  {
    const Constants& c = constants;
    Vec<Zor32f> shifted[W], n[W], r[W], d[W];
    for (int k = 0; k < W; ++k) shifted[k] = x[k] * c.log2e + c.toInteger;
    for (int k = 0; k < W; ++k) {
      n[k] = shifted[k] - c.toInteger;
      r[k] = x[k] - n[k] * c.ln2High;
    }
    for (int k = 0; k < W; ++k) r[k] = r[k] - n[k] * c.ln2Low;
    for (int k = 0; k < W; ++k) {
      const Vec<Zor32f> r2 = r[k] * r[k];
      d[k] = (r2 * c.exp4 + c.exp2) * r2 + (c.one - r[k] * c.half);
    }
    for (int k = 0; k < W; ++k) {
      mantissa[k] = r[k] / d[k] + c.one;
      exponent[k] = as<Zor32s>(shifted[k]);
    }
  }
};

// x = (1 + fraction) * 2^exponent for normal positive x, with 1 + fraction between the roots of 1/2 and 2.
struct Parts {
  Vec<Zor32f> fraction;
  Vec<Zor32s> exponent; // where it stands in a number: times 2^23

  Parts() = default;
  explicit Parts(Vec<Zor32f> x)
  {
    const Vec<Zor32s> rootHalfBits = splat(0x3f3504f3), mantissaBits = splat(0x007fffff);
    const Vec<Zor32s> fromRoot = as<Zor32s>(x) - rootHalfBits;
    exponent = without(fromRoot, mantissaBits);
    fraction = as<Zor32f>((fromRoot & mantissaBits) + rootHalfBits) - constants.one;
  }
};

// With s = f / (2 + f), ln(1 + f) is 2 atanh(s) = 2s + s^3 * series(s^2), and 2s = f - s * f.
template <int W> inline void logarithms(Vec<Zor32f>* y, const Parts* x)
{
  const Constants& c = constants;
  Vec<Zor32f> s[W], rest[W];
  for (int k = 0; k < W; ++k) s[k] = x[k].fraction / (x[k].fraction + c.two);
  for (int k = 0; k < W; ++k) {
    const Vec<Zor32f> z = s[k] * s[k];
    rest[k] = x[k].fraction - z * ((z * c.log7 + c.log5) * z + c.log3);
  }
  for (int k = 0; k < W; ++k) y[k] = toFloat(x[k].exponent) * c.ln2 + (x[k].fraction - s[k] * rest[k]);
}

Vec<Zor32f> exponentialOfAny(Vec<Zor32f> x);
Vec<Zor32f> logarithmOfAny(Vec<Zor32f> x);

} // namespace explog

inline Group<Zor32f> exponential(const Group<Zor32f>& x)
{
  const auto beyond = [&](int k) { return notLess(abs(x.part[k]), explog::constants.expBound); }; // so is NaN
  Group<Zor32f> y;
  if (__builtin_expect(moveMask((beyond(0) | beyond(1)) | (beyond(2) | beyond(3))), 0)) {
    for (int k = 0; k < x.parts; ++k) y.part[k] = explog::exponentialOfAny(x.part[k]);
  } else {
    const explog::Exponentials<Group<Zor32f>::parts> e(x.part);
    for (int k = 0; k < x.parts; ++k) y.part[k] = as<Zor32f>(as<Zor32s>(e.mantissa[k]) + shiftLeft<23>(e.exponent[k]));
  }
  return y;
}

// The logarithm of zero is minus infinity, that of a negative number a NaN with its sign set, that of a NaN the same
// NaN without a sign: results tell what was met. `special` is set when a number may be among the three.
inline Group<Zor32f> logarithm(const Group<Zor32f>& x, bool& special)
{
  // this sum brings all numbers that are not normal and positive below those that are
  const Vec<Zor32s> bound = splat(2 * explog::leastNormalBits - 1);
  const auto normal = [&](int k) { return greater(as<Zor32s>(x.part[k]) + splat(explog::leastNormalBits), bound); };
  Group<Zor32f> y;
  if (__builtin_expect(!isAll(as<Zor32f>((normal(0) & normal(1)) & (normal(2) & normal(3)))), 0)) {
    special = true;
    for (int k = 0; k < x.parts; ++k) y.part[k] = explog::logarithmOfAny(x.part[k]);
  } else {
    explog::Parts parts[Group<Zor32f>::parts];
    for (int k = 0; k < x.parts; ++k) parts[k] = explog::Parts(x.part[k]);
    explog::logarithms<Group<Zor32f>::parts>(y.part, parts);
  }
  return y;
}

// ln(x) * factor rounded to integers, for positive integers x below 2^24: formed in double precision, within 1e-12 of
// the value relatively. For numbers that are not positive the result is of no use.
Group<Zor32s> integerLogarithm(const Group<Zor32f>& x, Zor64f factor);

} // namespace ZORI_WIDTH
} // namespace zori
