// Exponentials and logarithms of groups that hold infinities, NaN, denormal, huge, zero or negative numbers; logarithms
// of integers.
#include "exp_log.h"

#include <limits>

namespace zori {

namespace explog {

static constexpr Zor32f infinity = std::numeric_limits<Zor32f>::infinity();

static F32x4 exponentialOfAny(F32x4 x)
{
  // beyond these bounds the result is 0 or infinite
  const Exponential e(min(max(x, splat(-104.0f)), splat(89.0f)));
  const auto power = [](Vec<Zor32s> n) { return as<Zor32f>(shiftLeft<23>(n + splat(127))); };
  const auto n = shiftRight<23>(shiftLeft<23>(e.exponent)), half = shiftRight<1>(n);
  return select(unordered(x, x), x + x, e.mantissa * power(half) * power(n - half));
}

static F32x4 logarithmOfAny(F32x4 x)
{
  const F32x4 small = less(x, as<Zor32f>(splat(leastNormalBits)));
  Parts parts(select(small, x * splat(0x1p24f), x));
  parts.exponent -= small & splat(24.0f);
  F32x4 result = select(equal(x, splat(infinity)), x, logarithm(parts));
  result = select(equal(x, splat(0.0f)), splat(-infinity), result);
  // what is left, negative numbers and NaN, has a NaN for a root too
  return select(greaterEqual(x, splat(0.0f)), result, sqrt(x));
}

[[gnu::noinline]] Group<Zor32f> exponentialOfAny(const Group<Zor32f>& x)
{
  Group<Zor32f> y;
  for (int k = 0; k < x.parts; ++k) y.part[k] = exponentialOfAny(x.part[k]);
  return y;
}

[[gnu::noinline]] Group<Zor32f> logarithmOfAny(const Group<Zor32f>& x)
{
  Group<Zor32f> y;
  for (int k = 0; k < x.parts; ++k) y.part[k] = logarithmOfAny(x.part[k]);
  return y;
}

} // namespace explog

// The logarithm of (1 + f) * 2^exponent, as in single precision; without cancellation no care is needed.
static F64x2 logarithm(F64x2 f, F64x2 exponent)
{
  const F64x2 s = f / (f + splat(2.0)), z = s * s;
  F64x2 series = z * splat(0.1662222803754402832) + splat(0.1814016660403494962);
  series = series * z + splat(0.2222286290237226054);
  series = series * z + splat(0.2857142413260568745);
  series = series * z + splat(0.40000000011224517);
  series = series * z + splat(0.666666666666620744);
  return exponent * splat(explog::ln2) + (s + s + s * z * series);
}

[[gnu::noinline]] Group<Zor32s> integerLogarithm(const Group<Zor32f>& x, Zor64f factor)
{
  Group<Zor32s> y;
  for (int k = 0; k < x.parts; ++k) {
    const explog::Parts parts(x.part[k]);
    y.part[k] = toInt(logarithm(toDoubleLow(parts.fraction), toDoubleLow(parts.exponent)) * splat(factor),
                      logarithm(toDoubleHigh(parts.fraction), toDoubleHigh(parts.exponent)) * splat(factor));
  }
  return y;
}

} // namespace zori
