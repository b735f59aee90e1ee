// How the sums of a general kernel become samples: the rules, as operations on groups.
//
//   integer sums, by the divisor    1                saturated
//                                   power of two     shifted, ties to even, exactly
//                                   any other        f = float(sum) * (1.0f / divisor), then as a float sum
//   float sums                      Rounded          to nearest, ties to even (rowkernels/convert.h)
//                                   RoundedUp        8u off the fast path: trunc(f + 0.5) in double, ties up
//   a choice of rounding            ExactQuotient    of an integer sum and the divisor
//                                   RoundedBy        of a float sum
//
// All saturate; a NaN becomes the upper bound.
#pragma once

#include "general.h"
#include "rowkernels/convert.h"

namespace zori {
inline namespace ZORI_WIDTH {
namespace general {

template <class D> struct Saturated {
  explicit Saturated(const Finish<Zor32s>&) {}
  Group<D> operator()(const Group<Zor32s>& sums) const { return Converted<D>{}(sums); }
};

template <class D> struct Shifted {
  int shift;
  Vec<Zor32s> below, halfLessOne;
  explicit Shifted(const Finish<Zor32s>& f)
    : shift(f.shift), below(splat((1 << f.shift) - 1)), halfLessOne(splat((1 << (f.shift - 1)) - 1))
  {}
  Group<D> operator()(Group<Zor32s> sums) const
  {
    for (auto& v : sums.part) { // the sum itself may be so large that adding to it would wrap
      const Vec<Zor32s> quotient = shiftRight(v, shift);
      v = quotient + shiftRight((v & below) + halfLessOne + (quotient & splat<Zor32s>(1)), shift);
    }
    return Converted<D>{}(sums);
  }
};

struct RoundedUp {
  Group<Zor8u> operator()(const Group<Zor32f>& x) const
  {
    Group<Zor32s> n;
    for (int k = 0; k < n.parts; ++k) {
      const Vec<Zor32f> v = clampedAtZero(clampedAbove<Zor8u>(x.part[k]));
      const Vec<Zor32s> whole = toIntTruncated(v);
      n.part[k] = whole - as<Zor32s>(greaterEqual(v - toFloat(whole), splat(0.5f)));
    }
    return packed<Zor8u>(n);
  }
};

template <class D, class Round> struct Multiplied {
  Vec<Zor32f> reciprocal;
  explicit Multiplied(const Finish<Zor32s>& f) : reciprocal(splat(1.0f / static_cast<Zor32f>(f.divisor))) {}
  Group<D> operator()(const Group<Zor32s>& sums) const
  {
    Group<Zor32f> x;
    for (int k = 0; k < x.parts; ++k) x.part[k] = toFloat(sums.part[k]) * reciprocal;
    return Round{}(x);
  }
};

template <class Round> struct Plainly {
  explicit Plainly(const Finish<Zor32f>&) {}
  template <class S> auto operator()(const Group<S>& x) const { return Round{}(x); }
};

// The quotient of two 32-bit integers in double is an integer or halfway between two only where the exact one is, so
// that rounding it rounds the exact one.
template <class D> struct ExactQuotient {
  Vec<Zor64f> divisor;
  ZorRoundMode mode;
  explicit ExactQuotient(const Finish<Zor32s>& f) : divisor(splat(f.divisor)), mode(f.roundMode) {}

  Vec<Zor64f> clamped(Vec<Zor64f> sum) const
  {
    return max(min(sum / divisor, splat<Zor64f>(std::numeric_limits<D>::max())),
               splat<Zor64f>(std::numeric_limits<D>::lowest()));
  }
  static Vec<Zor64f> halfFurther(Vec<Zor64f> q) { return q + (splat(0.5) | (q & splat(-0.0))); }
  Group<D> operator()(Group<Zor32s> sums) const
  {
    for (auto& v : sums.part) {
      const Vec<Zor64f> low = clamped(toDoubleLow(v)), high = clamped(toDoubleHigh(v));
      if (mode == ZorRoundNearestEven) v = toInt(low, high);
      else if (mode == ZorRoundTowardZero) v = toIntTruncated(low, high);
      else v = toIntTruncated(halfFurther(low), halfFurther(high));
    }
    return packed<D>(sums);
  }
};

template <class D> struct RoundedBy {
  ZorRoundMode mode;
  explicit RoundedBy(const Finish<Zor32f>& f) : mode(f.roundMode) {}
  Group<D> operator()(const Group<Zor32f>& x) const
  {
    Group<Zor32s> n;
    for (int k = 0; k < n.parts; ++k) {
      const Vec<Zor32f> v = max(clampedAbove<D>(x.part[k]), splat<Zor32f>(std::numeric_limits<D>::lowest()));
      if (mode == ZorRoundNearestEven) {
        n.part[k] = toInt(v);
      } else {
        n.part[k] = toIntTruncated(v);
        if (mode == ZorRoundNearestAway) { // by the fraction, because v + 0.5 may round up to the next integer
          const Vec<Zor32f> fraction = v - toFloat(n.part[k]);
          n.part[k] =
            n.part[k] - as<Zor32s>(greaterEqual(fraction, splat(0.5f))) + as<Zor32s>(lessEqual(fraction, splat(-0.5f)));
        }
      }
    }
    return packed<D>(n);
  }
};

struct Same {
  template <class T> const Group<T>& operator()(const Group<T>& x) const { return x; }
};

// ---- Rows ----

template <Layout L, class D, class Op, class Sum>
void finishSums(const Finish<Sum>& finish, const Sum* sums, void* dst, std::ptrdiff_t samples)
{
  D* const to = static_cast<D*>(dst);
  if constexpr (L == AC4) mapGroups(to, samples, KeepFourth<Op>{Op(finish)}, static_cast<const D*>(to), sums);
  else mapGroups(to, samples, Op(finish), sums);
}

// What the divisor of an integer kernel asks for.
enum class Divisor { None, PowerOfTwo, Other };

inline Divisor kindOf(int divisor, int& shift)
{
  if (divisor == 1) return Divisor::None;
  if (divisor < 1 || (divisor & (divisor - 1)) != 0) return Divisor::Other;
  shift = __builtin_ctz(static_cast<unsigned>(divisor));
  return Divisor::PowerOfTwo;
}

// Rounding: of the divisors that are neither 1 nor a power of two.
template <Layout L, class D, class Round> Finish<Zor32s> divisionBy(int divisor)
{
  Finish<Zor32s> finish;
  finish.divisor = divisor;
  switch (kindOf(divisor, finish.shift)) {
  case Divisor::None: finish.row = finishSums<L, D, Saturated<D>>; break;
  case Divisor::PowerOfTwo: finish.row = finishSums<L, D, Shifted<D>>; break;
  case Divisor::Other: finish.row = finishSums<L, D, Multiplied<D, Round>>; break;
  }
  return finish;
}

template <Layout L, class D> Finish<Zor32s> exactDivisionBy(int divisor, ZorRoundMode mode)
{
  Finish<Zor32s> finish;
  finish.row = finishSums<L, D, ExactQuotient<D>>;
  finish.divisor = divisor;
  finish.roundMode = mode;
  return finish;
}

template <Layout L, class D, class Round> Finish<Zor32f> roundingTo()
{
  Finish<Zor32f> finish;
  if constexpr (!std::is_same_v<D, Zor32f>) finish.row = finishSums<L, D, Plainly<Round>>;
  else if constexpr (L == AC4) finish.row = finishSums<L, D, Plainly<Same>>;
  return finish;
}

// Float sums to nearest: ties to even, in 8u off the fast path up.
template <Layout L, class D, class Call> void finishNearest(Call& call, bool isFast)
{
  call.fast = call.plain = roundingTo<L, D, Rounded<D>>();
  if constexpr (std::is_same_v<D, Zor8u>) {
    call.plain = roundingTo<L, D, RoundedUp>();
    if (!isFast) call.fast = call.plain;
  }
}

// The same for integer sums of 8u.
template <Layout L, class Call> void finishQuotient_8u(Call& call, int divisor, bool isFast)
{
  call.plain = divisionBy<L, Zor8u, RoundedUp>(divisor);
  call.fast = isFast ? divisionBy<L, Zor8u, Rounded<Zor8u>>(divisor) : call.plain;
}

} // namespace general
} // namespace ZORI_WIDTH
} // namespace zori
