// Row kernels of division: quotients of real samples as vector operations for the drivers, rows of complex samples as
// functions of their own.
//
// Every quotient is a true division. Integer samples become float, n / (d * 2^scaleFactor) is rounded once to single
// precision, and that is rounded to an integer and saturated, so the result does not depend on the place in a row, and
// a quotient halfway between two integers is met exactly. The integer kernels need the rounding field at nearest.
#pragma once

#include "convert.h"
#include "frame/corelib.h"
#include "zori/types.h"

namespace zori {

// 2^exponent, for the exponents of normal numbers.
inline double powerOfTwo(int exponent)
{
  const std::uint64_t bits = static_cast<std::uint64_t>(1023 + exponent) << 52;
  return get<double>(&bits);
}

// Scale factors beyond these bounds give what the bounds give: with the least denominator every quotient of 8- and
// 16-bit samples rounds to zero, with the greatest each but zero saturates.
inline int boundedScale(int scaleFactor) { return scaleFactor < -32 ? -32 : scaleFactor > 17 ? 17 : scaleFactor; }

// Quotients of samples of type T, in whole numbers rounded by Mode.
template <class T, ZorRoundMode Mode = ZorRoundNearestEven> struct Quotient;

// ---- Integer samples: operations on groups of numerators and denominators ----

template <class T> struct RoundedTowardZero {
  Group<T> operator()(const Group<Zor32f>& x) const
  {
    Group<Zor32s> n;
    for (int k = 0; k < x.parts; ++k) n.part[k] = toIntTruncated(clampedAbove<T>(x.part[k]));
    return packed<T>(n);
  }
};
template <class T, ZorRoundMode Mode>
using RoundedBy = std::conditional_t<Mode == ZorRoundTowardZero, RoundedTowardZero<T>,
                                     std::conditional_t<Mode == ZorRoundNearestEven, Rounded<T>, RoundedAway<T>>>;

template <class T, ZorRoundMode Mode> struct Quotient {
  static_assert(isInt<T> && sizeof(T) <= 2);
  float scale; // 2^scaleFactor

  explicit Quotient(int scaleFactor) : scale(static_cast<float>(powerOfTwo(boundedScale(scaleFactor)))) {}
  Group<T> operator()(Group<T> n, Group<T> d) const
  {
    // Vanishes in the sum with any scaled denominator but zero, over which the quotient is now 0 or beyond all bounds
    // with the numerator's sign.
    const F32x4 tiny = splat(0x1p-80f);
    Group<Zor32f> x = Converted<Zor32f>{}(n);
    const Group<Zor32f> y = Converted<Zor32f>{}(d);
    for (int k = 0; k < x.parts; ++k) x.part[k] = x.part[k] / (y.part[k] * splat(scale) + tiny);
    return RoundedBy<T, Mode>{}(x);
  }
};

// Product of the numerators and 2^-scaleFactor / d in single precision: for denominators that do not change.
template <class T> struct ScaledReciprocalProduct {
  float factor; // 2^-scaleFactor

  explicit ScaledReciprocalProduct(int scaleFactor)
    : factor(static_cast<float>(powerOfTwo(-boundedScale(scaleFactor))))
  {}
};

// ---- Float samples ----

// Over a zero of either sign: an infinity with the sign of the numerator, NaN for zero and NaN.
template <> struct Quotient<Zor32f> {
  explicit Quotient(int /* floats have no scale */) {}
  F32x4 operator()(F32x4 n, F32x4 d) const
  {
    const F32x4 zeros = equal(d, zero<float>());
    F32x4 q = n / without(d, zeros);
    if (moveMask(zeros)) q = select(zeros & unordered(q, q), splat(zorConstantOfNAN_32f), q);
    return q;
  }
};

// ---- Complex samples: functions of a row ----

// A run of complex samples. The denominators start again after `period` samples.
struct ComplexRun {
  std::ptrdiff_t length, period;
  bool keepsFourth;
};

// dst[i] = saturate(round(num[i] / den[i] * 2^-scaleFactor)), 0 over zero; 32fc without scale and with NaN over zero.
// True when a denominator was zero.
bool divideSamples(const ComplexRun& run, Zor16sc* dst, int scaleFactor, const Zor16sc* num, const Zor16sc* den);
bool divideSamples(const ComplexRun& run, Zor32sc* dst, int scaleFactor, const Zor32sc* num, const Zor32sc* den);
bool divideSamples(const ComplexRun& run, Zor32fc* dst, int scaleFactor, const Zor32fc* num, const Zor32fc* den);

// ---- Rows of quotients that tell of zero denominators ----

template <class Op, class T> struct FlagZeros {
  static constexpr bool isLong = isInt<T>;
  Op op;
  Vec<T>* zeros;
  Vec<T> operator()(Vec<T> n, Vec<T> d) const
  {
    *zeros = *zeros | equal(d, zero<T>());
    return op(n, d);
  }
  Group<T> operator()(Group<T> n, Group<T> d) const
  {
    for (int k = 0; k < d.parts; ++k) *zeros = *zeros | equal(d.part[k], zero<T>());
    return op(n, d);
  }
};

// dst[i] = num[i] / den[i]; true when a denominator was zero. Where the fourth channel is kept it is neither written nor
// looked at.
template <class T> using RowDivision = bool (*)(T* dst, std::ptrdiff_t length, int scaleFactor, const T* num, const T* den);

template <class T, bool keepsFourth, ZorRoundMode Mode = ZorRoundNearestEven>
[[gnu::noinline]] bool divideRow(T* dst, std::ptrdiff_t length, int scaleFactor, const T* num, const T* den)
{
  if constexpr (!std::is_arithmetic_v<T>) {
    return divideSamples({length, length, keepsFourth}, dst, scaleFactor, num, den);
  } else {
    Vec<T> zeros = zero<T>();
    const FlagZeros<Quotient<T, Mode>, T> op{Quotient<T, Mode>(scaleFactor), &zeros};
    if constexpr (keepsFourth) {
      if constexpr (isInt<T>) mapGroups(dst, length, KeepFourth<FlagZeros<Quotient<T, Mode>, T>>{op}, static_cast<const T*>(dst), num, den);
      else mapRow(dst, length, KeepFourth<FlagZeros<Quotient<T, Mode>, T>>{op}, static_cast<const T*>(dst), num, den);
      zeros = zeros & colourMask<T>();
    } else {
      if constexpr (isInt<T>) mapGroups(dst, length, op, num, den);
      else mapRow(dst, length, op, num, den);
    }
    const int zeroBytes = moveMask(as<std::uint8_t>(zeros));
    // the driver fills a row that is shorter than a vector up with zeros
    return length < Vec<T>::size ? zeroBytes & ((1 << length * static_cast<int>(sizeof(T))) - 1) : zeroBytes;
  }
}

} // namespace zori
