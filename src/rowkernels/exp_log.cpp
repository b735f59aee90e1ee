// Exponentials and logarithms of infinities, NaN, denormal, huge, zero and negative numbers; logarithms of integers.
#include "exp_log.h"

#include <limits>

namespace zori {
inline namespace ZORI_WIDTH {

namespace explog {

const Constants constants;

static constexpr Zor32f infinity = std::numeric_limits<Zor32f>::infinity();

Vec<Zor32f> exponentialOfAny(Vec<Zor32f> x)
{
  // beyond these bounds the result is 0 or infinite
  const Vec<Zor32f> inside = min(max(x, splat(-104.0f)), splat(89.0f));
  const Exponentials<1> e(&inside);
  const auto power = [](Vec<Zor32s> n) { return as<Zor32f>(shiftLeft<23>(n + splat(127))); };
  const auto n = shiftRight<23>(shiftLeft<23>(e.exponent[0])), half = shiftRight<1>(n);
  return select(unordered(x, x), x + x, e.mantissa[0] * power(half) * power(n - half));
}

Vec<Zor32f> logarithmOfAny(Vec<Zor32f> x)
{
  const Vec<Zor32f> small = less(x, as<Zor32f>(splat(leastNormalBits)));
  Parts parts(select(small, x * splat(0x1p24f), x));
  parts.exponent -= as<Zor32s>(small) & splat(24 << 23);
  Vec<Zor32f> result;
  logarithms<1>(&result, &parts);
  result = select(equal(x, splat(infinity)), x, result);
  result = select(equal(x, splat(0.0f)), splat(-infinity), result);
  // the root of a negative number is a NaN with its sign set
  return select(greaterEqual(x, splat(0.0f)), result, select(unordered(x, x), abs(x + x), sqrt(x)));
}

} // namespace explog

// ln((1 + f) * 2^(exponent * 2^-23)) * factor as in single precision, but that no cancellation matters here.
static Vec<Zor64f> scaledLogarithm(Vec<Zor64f> f, Vec<Zor64f> exponent, Vec<Zor64f> factor)
{
  const Vec<Zor64f> s = f / (f + splat(2.0)), z = s * s;
  Vec<Zor64f> series = z * splat(0.1936304304875124938) + splat(0.2219138078904433381); // from here on within 1e-11
  series = series * z + splat(0.2857175485162510781);
  series = series * z + splat(0.3999999879579106314);
  series = series * z + splat(0.6666666666737622547);
  return exponent * (splat(0x1.62e42fefa39efp-24) * factor) + s * factor * (series * z + splat(2.0));
}

Group<Zor32s> integerLogarithm(const Group<Zor32f>& x, Zor64f factor)
{
  Group<Zor32s> y;
  for (int k = 0; k < x.parts; ++k) {
    const explog::Parts parts(x.part[k]);
    const auto scaled = [=](Vec<Zor64f> f, Vec<Zor64f> exponent) {
      return scaledLogarithm(f, exponent, splat(factor));
    };
    y.part[k] = toInt(scaled(toDoubleLow(parts.fraction), toDoubleLow(parts.exponent)),
                      scaled(toDoubleHigh(parts.fraction), toDoubleHigh(parts.exponent)));
  }
  return y;
}

} // namespace ZORI_WIDTH
} // namespace zori
