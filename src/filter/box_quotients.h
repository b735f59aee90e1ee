// From window sums to results: the finishing steps of the rows of integer sums.
#pragma once

#include "box_rule.h"
#include "box_sums.h"

namespace zori {
namespace box {

// (s * multiplier + half) >> shift of sums of 16 bits: the high halves of the products hold all that is needed.
struct HighProduct {
  using Sum = uint16_t;
  using Out = Zor8u;
  static constexpr int vectors = 2;
  static constexpr bool smallMasks = true;
  Vec<uint16_t> multiplier, half;
  int shift;

  // A shift below 17 is brought up by a larger multiplier, so that the rounding bit lies in the high half. An area of 3
  // to 257 leaves room for four bits more.
  explicit HighProduct(const Rule& rule)
  {
    const bool rounds = rule.arithmetic == Arithmetic::FixedPoint;
    const int up = rounds ? 4 : 0;
    shift = rule.shift + up - 16;
    multiplier = splat(static_cast<uint16_t>(rule.multiplier << up));
    half = splat(static_cast<uint16_t>(rounds ? 1 << (shift - 1) : 0));
  }
  Vec<int16_t> quotient(Vec<uint16_t> s) const { return as<int16_t>(shiftRight(mulHigh(s, multiplier) + half, shift)); }
  void operator()(const Vec<uint16_t>* s, Vec<Zor8u>* out) const
  {
    out[0] = narrowSat<Zor8u>(quotient(s[0]), quotient(s[1]));
  }
};

template <class Finish> inline Vec<Zor8u> packedBytes(const Finish& f, const Vec<uint32_t>* s)
{
  return narrowSat<Zor8u>(narrowSat<int16_t>(f.quotient(s[0]), f.quotient(s[1])),
                          narrowSat<int16_t>(f.quotient(s[2]), f.quotient(s[3])));
}

// The same of sums of 32 bits; the multiplier has at most 13.
struct FullProduct {
  using Sum = uint32_t;
  using Out = Zor8u;
  static constexpr int vectors = 4;
  static constexpr bool smallMasks = false;
  Vec<uint16_t> multiplier;
  Vec<uint32_t> half;
  int shift;

  explicit FullProduct(const Rule& rule)
    : multiplier(splat(static_cast<uint16_t>(rule.multiplier))), half(splat(1u << (rule.shift - 1))), shift(rule.shift)
  {}
  Vec<int32_t> quotient(Vec<uint32_t> s) const
  {
    const Vec<uint16_t> x = as<uint16_t>(s);
    const Vec<uint32_t> product =
      as<uint32_t>(mulLow(x, multiplier)) + shiftLeft<16>(as<uint32_t>(mulHigh(x, multiplier)));
    return as<int32_t>(shiftRight(product + half, shift));
  }
  void operator()(const Vec<uint32_t>* s, Vec<Zor8u>* out) const { out[0] = packedBytes(*this, s); }
};

// trunc(float(s) * r + 9e-6f) of sums that a float holds exactly.
struct ByteTruncated {
  using Sum = uint32_t;
  using Out = Zor8u;
  static constexpr int vectors = 4;
  static constexpr bool smallMasks = false;
  F32x4 factor;

  explicit ByteTruncated(const Rule& rule) : factor(splat(rule.factor)) {}
  Vec<int32_t> quotient(Vec<uint32_t> s) const
  {
    return toIntTruncated(toFloat(as<int32_t>(s)) * factor + splat(9e-6f));
  }
  void operator()(const Vec<uint32_t>* s, Vec<Zor8u>* out) const { out[0] = packedBytes(*this, s); }
};

// Sums of any 32 bits, or (quicker) of less than 2^31, rounded once.
template <bool AnySum> inline F32x4 sumToFloat(Vec<uint32_t> s)
{
  if constexpr (!AnySum) return toFloat(as<int32_t>(s));
  else
    return toFloat(as<int32_t>(shiftRight<16>(s))) * splat(65536.0f) +
           toFloat(as<int32_t>(s & splat<uint32_t>(0xffff)));
}

// float(s) * factor of 16-bit samples, to the nearest or toward zero. Results are packed 32768 lower, which is where
// those of 16s belong.
template <class T, bool AnySum, bool Truncates> struct WordQuotient {
  using Sum = uint32_t;
  using Out = T;
  static constexpr int vectors = 2;
  static constexpr bool smallMasks = true;
  F32x4 factor;

  explicit WordQuotient(const Rule& rule) : factor(splat(rule.factor)) {}
  Vec<int32_t> quotient(Vec<uint32_t> s) const
  {
    const F32x4 x = sumToFloat<AnySum>(s) * factor;
    return (Truncates ? toIntTruncated(x) : toInt(x)) - splat<int32_t>(32768);
  }
  void operator()(const Vec<uint32_t>* s, Vec<T>* out) const
  {
    const Vec<int16_t> x = narrowSat<int16_t>(quotient(s[0]), quotient(s[1]));
    out[0] = isSigned<T> ? as<T>(x) : as<T>(x) ^ topBits<T>();
  }
};

// The last pixels of a row of 16u: ties go up.
struct WordTail {
  using Sum = uint32_t;
  using Out = Zor16u;
  static constexpr int vectors = 2;
  static constexpr bool smallMasks = false;
  F32x4 factor;

  explicit WordTail(const Rule& rule) : factor(splat(rule.factor)) {}
  Vec<int32_t> quotient(Vec<uint32_t> s) const
  {
    const F32x4 x = sumToFloat<true>(s) * factor;
    const F64x2 half = splat(0.5000001);
    return toIntTruncated(toDoubleLow(x) + half, toDoubleHigh(x) + half);
  }
  void operator()(const Vec<uint32_t>* s, Vec<Zor16u>* out) const
  {
    out[0] = narrowSat<Zor16u>(quotient(s[0]), quotient(s[1]));
  }
};

} // namespace box
} // namespace zori
