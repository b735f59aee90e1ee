// Which arithmetic a call of zoriFilterBox gets, as data. The rules differ in the last bit, and which one applies is
// part of the contract.
#pragma once

#include "frame/layout.h"
#include "frame/machine.h"

namespace zori {
namespace box {

enum class Sample { U8, U16, S16, F32 };
template <class T>
inline constexpr Sample sampleOf = std::is_same_v<T, Zor8u>    ? Sample::U8
                                   : std::is_same_v<T, Zor16u> ? Sample::U16
                                   : std::is_same_v<T, Zor16s> ? Sample::S16
                                                               : Sample::F32;

// s is the sum of the window of `area` pixels, r = 1.0f / area.
enum class Arithmetic {
  Copy,       // the source itself
  Product,    // 8u: (s * multiplier) >> shift
  FixedPoint, // 8u: (s * multiplier + (1 << (shift - 1))) >> shift, the reciprocal of the area in fixed point
  FloatSum,   // 8u: trunc(s * r + 9e-6f), s a running sum of floats; 32f: s * r
  Rounded,    // 16 bits: float(s) * r to the nearest; 16s with every sample raised by 32768 and the result lowered
  Truncated,  // 16s: float(s) * factor toward zero, samples raised likewise
  NineFloats, // 32f: ((a + b) + c) * factor with the sums of the three rows, each (left + middle) + right
};

struct Rule {
  Arithmetic arithmetic;
  unsigned multiplier = 0;
  int shift = 0;
  float factor = 0;
};

constexpr unsigned bit(Layout l) { return 1u << static_cast<int>(l); }

// Square masks with a rule of their own.
struct Shortcut {
  Sample sample;
  unsigned layouts;
  bool inPlace;
  int side;
  Rule rule;
};
inline constexpr Shortcut shortcuts[] = {
  {Sample::U8, bit(C1) | bit(C3) | bit(AC4), false, 3, {Arithmetic::Product, 29128, 18}},
  {Sample::U8, bit(C4), false, 3, {Arithmetic::Product, 29127, 18}},
  {Sample::U8, bit(C4), false, 5, {Arithmetic::Product, 10485, 18}},
  {Sample::U8, bit(C1), true, 3, {Arithmetic::Product, 7282, 16}},
  {Sample::U8, bit(C1), true, 5, {Arithmetic::Product, 2622, 16}},
  {Sample::U8, bit(C3) | bit(AC4), true, 3, {Arithmetic::Product, 29128, 18}},
  {Sample::S16, bit(C4), false, 3, {Arithmetic::Truncated, 0, 0, 0.11111111f}},
  {Sample::S16, bit(C4), false, 5, {Arithmetic::Truncated, 0, 0, 0.04f}},
  {Sample::F32, bit(C4), false, 3, {Arithmetic::NineFloats, 0, 0, 0.11111111f}},
};

constexpr long long largestFixedPointArea = 8100;

constexpr long long areaOf(ZorImgSize mask) { return static_cast<long long>(mask.width) * mask.height; }
constexpr float reciprocal(ZorImgSize mask) { return 1.0f / static_cast<float>(areaOf(mask)); }

// The reciprocal of an area of 2 to 8100 as a multiplier of 12 bits, rounded upward, and a shift.
constexpr Rule fixedPointReciprocal(float r)
{
  const double scaled = r * 4294967295.0;
  unsigned v = static_cast<unsigned>(scaled);
  const double rest = scaled - v;
  if (rest > 0.5 || (rest == 0.5 && v % 2 == 1)) ++v;
  const int zeros = __builtin_clz(v); // v is at least 2^32 / 8100
  return {Arithmetic::FixedPoint, (v << zeros >> 20) + 1, zeros + 12, r};
}

constexpr Rule ruleOf(Sample sample, Layout layout, bool inPlace, ZorImgSize mask, int regionHeight)
{
  const long long area = areaOf(mask);
  const float r = reciprocal(mask);
  if (area == 1) return {Arithmetic::Copy};
  // in place, a mask as tall as the region leaves no row to start from: such calls take the general rule
  if (!inPlace || mask.height < regionHeight)
    for (const Shortcut& s : shortcuts)
      if (s.sample == sample && (s.layouts & bit(layout)) && s.inPlace == inPlace && mask.width == s.side &&
          mask.height == s.side)
        return s.rule;
  if (sample == Sample::U8 && area <= largestFixedPointArea) return fixedPointReciprocal(r);
  if (sample == Sample::U8 || sample == Sample::F32) return {Arithmetic::FloatSum, 0, 0, r};
  return {Arithmetic::Rounded, 0, 0, r};
}

inline constexpr int picosecondsPerSample = 200;

// The general paths out of place share the rows among a team. 16u, the paths in place and the small masks of C4 do not.
// The running sums of 32f begin anew with the rows of each thread: there the team is part of the contract.
constexpr TeamRule teamRule(Sample sample, Layout layout, bool inPlace, const Rule& rule, ZorImgSize roi, int channels)
{
  const long long area = static_cast<long long>(roi.width) * roi.height;
  const bool isGeneral = layout != C4 || rule.arithmetic == Arithmetic::FixedPoint ||
                         rule.arithmetic == Arithmetic::FloatSum || rule.arithmetic == Arithmetic::Rounded;
  const bool isLarge = layout == C4 || area > 4096;
  if (inPlace || sample == Sample::U16 || !isGeneral) return TeamRule::alone();
  if (sample == Sample::F32) return TeamRule::byContract(isLarge);
  return TeamRule::forWork(area * channels, picosecondsPerSample).fromSize(isLarge);
}

} // namespace box
} // namespace zori
