// Row kernels of division: quotients of real samples as vector operations for the drivers, rows of complex samples as
// functions of their own.
//
// Every quotient is a true division. Integer samples become float, n / (d * 2^scaleFactor) is rounded once to single
// precision, and that is rounded to an integer and saturated, so the result does not depend on the place in a row, and
// a quotient halfway between two integers is met exactly. The integer kernels need the rounding field at nearest.
#pragma once

#include "drivers.h"
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

template <class T> inline constexpr bool isComplex = !std::is_arithmetic_v<T>;

// Quotients of samples of type T, in whole numbers rounded by Mode.
template <class T, ZorRoundMode Mode = ZorRoundNearestEven> struct Quotient;

// ---- Integer samples: operations on numerators and denominators ----

template <ZorRoundMode Mode> inline Vec<int32_t> rounded(F32x4 q)
{
  if constexpr (Mode == ZorRoundNearestEven) return toInt(q);
  else if constexpr (Mode == ZorRoundTowardZero) return toIntTruncated(q);
  else return toIntTruncated(q + (splat(0.5f) | (q & splat(-0.0f))));
}

// Carries out an operation on four lanes of float, lane(n, d), for all lanes of T. Operands are widened as far as
// needed; the result is rounded and saturated.
template <class T, ZorRoundMode Mode, class Lane> inline Vec<T> inFloat(Vec<T> n, Vec<T> d, Lane lane)
{
  const auto four = [&](auto x, auto y) {
    constexpr float upper = sizeof(T) == 1 ? 255.0f : isSigned<T> ? 32767.0f : 65535.0f;
    // a quotient that is too small needs no bound: conversion and packing saturate it
    return rounded<Mode>(min(lane(toFloat(as<int32_t>(x)), toFloat(as<int32_t>(y))), splat(upper)));
  };
  if constexpr (sizeof(T) == 1) {
    const auto eight = [&](auto x, auto y) {
      return narrowSat<int16_t>(four(widenLow(x), widenLow(y)), four(widenHigh(x), widenHigh(y)));
    };
    return narrowSat<T>(eight(widenLow(n), widenLow(d)), eight(widenHigh(n), widenHigh(d)));
  } else {
    return narrowSat<T>(four(widenLow(n), widenLow(d)), four(widenHigh(n), widenHigh(d)));
  }
}

template <class T, ZorRoundMode Mode> struct Quotient {
  static_assert(isInt<T> && sizeof(T) <= 2);
  float scale; // 2^scaleFactor

  explicit Quotient(int scaleFactor) : scale(static_cast<float>(powerOfTwo(boundedScale(scaleFactor)))) {}
  Vec<T> operator()(Vec<T> n, Vec<T> d) const
  {
    return inFloat<T, Mode>(n, d, [this](F32x4 x, F32x4 y) {
      // Vanishes in the sum with any scaled denominator but zero, over which the quotient is now 0 or beyond all bounds
      // with the numerator's sign.
      const F32x4 tiny = splat(0x1p-80f);
      return x / (y * splat(scale) + tiny);
    });
  }
};

// Product of the numerators and 2^-scaleFactor / d in single precision: for denominators that do not change.
template <class T> struct ScaledReciprocalProduct {
  float factor; // 2^-scaleFactor

  explicit ScaledReciprocalProduct(int scaleFactor)
    : factor(static_cast<float>(powerOfTwo(-boundedScale(scaleFactor))))
  {}
  Vec<T> operator()(Vec<T> n, Vec<T> d) const
  {
    return inFloat<T, ZorRoundNearestEven>(n, d, [this](F32x4 x, F32x4 y) { return x * (splat(factor) / y); });
  }
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
  Op op;
  Vec<T>* zeros;
  Vec<T> operator()(Vec<T> n, Vec<T> d) const
  {
    *zeros = *zeros | equal(d, zero<T>());
    return op(n, d);
  }
};

// dst[i] = num[i] / den[i]; true when a denominator was zero. Where the fourth channel is kept it is neither written nor
// looked at.
template <class T> using RowDivision = bool (*)(T* dst, std::ptrdiff_t length, int scaleFactor, const T* num, const T* den);

template <class T, bool keepsFourth, ZorRoundMode Mode = ZorRoundNearestEven>
[[gnu::noinline]] bool divideRow(T* dst, std::ptrdiff_t length, int scaleFactor, const T* num, const T* den)
{
  if constexpr (isComplex<T>) {
    return divideSamples({length, length, keepsFourth}, dst, scaleFactor, num, den);
  } else {
    Vec<T> zeros = zero<T>();
    const FlagZeros<Quotient<T, Mode>, T> op{Quotient<T, Mode>(scaleFactor), &zeros};
    if constexpr (keepsFourth) {
      mapRow(dst, length, KeepFourth<FlagZeros<Quotient<T, Mode>, T>>{op}, static_cast<const T*>(dst), num, den);
      zeros = zeros & colourMask<T>();
    } else {
      mapRow(dst, length, op, num, den);
    }
    const int zeroBytes = moveMask(as<std::uint8_t>(zeros));
    // the driver fills a row that is shorter than a vector up with zeros
    return length < Vec<T>::size ? zeroBytes & ((1 << length * static_cast<int>(sizeof(T))) - 1) : zeroBytes;
  }
}

} // namespace zori
