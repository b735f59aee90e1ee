// The processor's control register of vector arithmetic: rounding, and how a piece of work asks for it.
//
// The register belongs to a thread. The threads of a team start with one of their own, so that whoever shares out work
// says under which rounding it runs (Rounding), and the team helpers see to it in every thread.
#pragma once

#include <pmmintrin.h>

namespace zori {

inline unsigned controlWord() { return _mm_getcsr(); }
inline void setControlWord(unsigned word) { _mm_setcsr(word); }

// Values of the rounding field.
inline constexpr unsigned roundingField = 0x6000, roundNearest = 0, roundDownward = 0x2000, roundUpward = 0x4000,
                          roundTowardZero = 0x6000;

// Under which rounding a piece of work runs: to nearest, whatever the caller has set, or as the caller has set it.
enum class Rounding { Nearest, Callers };

inline unsigned fieldOf(Rounding rounding)
{
  return rounding == Rounding::Nearest ? roundNearest : controlWord() & roundingField;
}

// Sets the rounding field for a scope; the field that it found comes back at the end.
class RoundingScope {
public:
  explicit RoundingScope(unsigned field) : found_(controlWord() & roundingField), isOther_(field != found_)
  {
    if (isOther_) setField(field);
  }
  explicit RoundingScope(Rounding rounding) : RoundingScope(fieldOf(rounding)) {}
  RoundingScope(const RoundingScope&) = delete;
  RoundingScope& operator=(const RoundingScope&) = delete;
  ~RoundingScope()
  {
    if (isOther_) setField(found_);
  }

private:
  static void setField(unsigned field) { setControlWord((controlWord() & ~roundingField) | field); }

  unsigned found_;
  bool isOther_;
};

} // namespace zori
