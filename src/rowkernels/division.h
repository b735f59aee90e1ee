// Row kernels of division.
//
// Every quotient is a true division, so that a result depends neither on its place in the row nor on the processor.
// Samples of 8 and 16 bits become float, n / (d * 2^scaleFactor) is rounded once to single precision and then to an
// integer. A quotient halfway between two integers is exact in float, and with a scaleFactor of 0 or more no other one
// can be taken for such a tie: n / d is at least 1 / (2d) away from it, and the rounding of n < 2^16 is finer.
#pragma once

#include "convert.h"
#include "frame/numeric_mode.h"

namespace zori {

// Complex samples: num * conj(den) / |den|^2, over zero 0 in both parts, in 32fc NaN. 32fc has no scale.
bool divideComplex(Zor16sc* dst, std::ptrdiff_t length, int scaleFactor, bool keepsFourth, const Zor16sc* num,
                   const Zor16sc* den);
bool divideComplex(Zor32sc* dst, std::ptrdiff_t length, int scaleFactor, bool keepsFourth, const Zor32sc* num,
                   const Zor32sc* den);
bool divideComplex(Zor32fc* dst, std::ptrdiff_t length, int scaleFactor, bool keepsFourth, const Zor32fc* num,
                   const Zor32fc* den);

inline namespace ZORI_WIDTH {

// Quotients of samples of type T as an operation on groups, in whole numbers rounded by Mode.
template <class T, ZorRoundMode Mode = ZorRoundNearestEven> struct Quotient;

// The rounding under which rows of T are divided.
template <class T>
inline constexpr Rounding divisionRounding =
  std::is_same_v<T, Zor32f> || std::is_same_v<T, Zor32fc> ? Rounding::Callers : Rounding::Nearest;

// ---- Integers ----

// 2^exponent, for the exponents of normal numbers.
inline double powerOfTwo(int exponent)
{
  const std::uint64_t bits = static_cast<std::uint64_t>(1023 + exponent) << 52;
  return get<double>(&bits);
}

// Scale factors beyond these bounds give what the bounds give: every quotient rounds to zero at the upper one, each but
// zero saturates at the lower one.
inline int boundedScale(int scaleFactor) { return scaleFactor < -32 ? -32 : scaleFactor > 17 ? 17 : scaleFactor; }

template <class T> struct RoundedTowardZero {
  template <int Bytes> ZORI_INLINE Group<T, Bytes> operator()(const Group<Zor32f, Bytes>& x) const
  {
    Group<Zor32s, Bytes> n;
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
  template <int Bytes> ZORI_INLINE Group<T, Bytes> operator()(const Group<T, Bytes>& n, const Group<T, Bytes>& d) const
  {
    // Vanishes in the sum with any scaled denominator but zero, over which the quotient is now 0 or beyond all bounds
    // with the numerator's sign.
    const auto tiny = splat<Zor32f, Bytes>(0x1p-80f), scales = splat<Zor32f, Bytes>(scale);
    Group<Zor32f, Bytes> x = Converted<Zor32f>{}(n);
    const Group<Zor32f, Bytes> y = Converted<Zor32f>{}(d);
    for (int k = 0; k < x.parts; ++k) x.part[k] = x.part[k] / (y.part[k] * scales + tiny);
    return RoundedBy<T, Mode>{}(x);
  }
};

// ---- Floats ----

// Over a zero of either sign: an infinity with the sign of the numerator, NaN for zero and NaN.
template <> struct Quotient<Zor32f> {
  explicit Quotient(int /* floats have no scale */) {}
  template <int Bytes> using Floats = Group<Zor32f, Bytes>;
  template <int Bytes> ZORI_INLINE Floats<Bytes> operator()(const Floats<Bytes>& n, const Floats<Bytes>& d) const
  {
    Floats<Bytes> q, zeros;
    auto anyZero = zero<Zor32f, Bytes>();
    for (int k = 0; k < q.parts; ++k) {
      zeros.part[k] = equal(d.part[k], zero<Zor32f, Bytes>());
      anyZero = anyZero | zeros.part[k];
      q.part[k] = n.part[k] / without(d.part[k], zeros.part[k]);
    }
    if (moveMask(anyZero))
      for (int k = 0; k < q.parts; ++k)
        q.part[k] = select(zeros.part[k] & unordered(q.part[k], q.part[k]),
                           splat<Zor32f, Bytes>(std::numeric_limits<Zor32f>::quiet_NaN()), q.part[k]);
    return q;
  }
};

// ---- Rows of quotients that tell of zero denominators ----

template <class Op, class T> struct FlagZeros {
  Op op;
  Vec<T>* zeros;
  template <int Bytes> ZORI_INLINE Group<T, Bytes> operator()(const Group<T, Bytes>& n, const Group<T, Bytes>& d) const
  {
    for (int k = 0; k < d.parts; ++k) *zeros = *zeros | wholeOf(equal(d.part[k], zero<T, Bytes>()));
    return op(n, d);
  }
};

// dst = num / den * 2^-scaleFactor; true when a denominator was zero. Where the fourth of four samples is kept it is
// neither written nor looked at.
template <class T, bool keepsFourth, ZorRoundMode Mode = ZorRoundNearestEven>
[[gnu::noinline]] bool divideRow(T* dst, std::ptrdiff_t length, int scaleFactor, const T* num, const T* den)
{
  if constexpr (!std::is_arithmetic_v<T>) {
    return divideComplex(dst, length, scaleFactor, keepsFourth, num, den);
  } else {
    using Op = FlagZeros<Quotient<T, Mode>, T>;
    Vec<T> zeros = zero<T>();
    const Op op{Quotient<T, Mode>(scaleFactor), &zeros};
    if constexpr (keepsFourth) {
      mapGroups(dst, length, KeepFourth<Op>{op}, static_cast<const T*>(dst), num, den);
      zeros = zeros & colourMask<T>();
    } else {
      mapGroups(dst, length, op, num, den);
    }
    return moveMask(zeros) != 0;
  }
}

} // namespace ZORI_WIDTH
} // namespace zori
