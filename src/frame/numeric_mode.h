// The processor's control register of vector arithmetic: rounding, and how a piece of work asks for it.
//
// The register belongs to a thread. The threads of a team start with one of their own, so that whoever shares out work
// says under which rounding it runs (Rounding), and the team helpers see to it in every thread. Work of the calling
// thread goes through underRounding.
//
// A compiler does not know that arithmetic depends on the register: it may move it across a change of the register, and
// the call of a function that does nothing but arithmetic as well. callApart stops both.
#pragma once

#include <pmmintrin.h>

namespace zori {

inline unsigned controlWord() { return _mm_getcsr(); }
inline void setControlWord(unsigned word) { _mm_setcsr(word); }

// Values of the rounding field.
inline constexpr unsigned roundingField = 0x6000, roundNearest = 0, roundDownward = 0x2000, roundUpward = 0x4000,
                          roundTowardZero = 0x6000;

inline void setRoundingField(unsigned field) { setControlWord((controlWord() & ~roundingField) | field); }

// Under which rounding a piece of work runs: to nearest, whatever the caller has set, or as the caller has set it.
enum class Rounding { Nearest, Callers };

inline unsigned fieldOf(Rounding rounding)
{
  return rounding == Rounding::Nearest ? roundNearest : controlWord() & roundingField;
}

// body(), of which nothing is done before the call or left until after it: the function is not inlined, and to the
// compiler it may change any memory, the body's variables too.
template <class Body> [[gnu::noinline]] auto callApart(Body& body)
{
  asm volatile("" : : "r"(&body) : "memory");
  return body();
}

// Sets the rounding field for a scope; the field that it found comes back at the end, and no other bit changes. For
// what is no arithmetic itself: arithmetic goes through underRounding.
class RoundingScope {
public:
  explicit RoundingScope(unsigned field) : found_(controlWord() & roundingField), isOther_(field != found_)
  {
    if (isOther_) setRoundingField(field);
  }
  explicit RoundingScope(Rounding rounding) : RoundingScope(fieldOf(rounding)) {}
  RoundingScope(const RoundingScope&) = delete;
  RoundingScope& operator=(const RoundingScope&) = delete;
  ~RoundingScope()
  {
    if (isOther_) setRoundingField(found_);
  }

private:
  unsigned found_;
  bool isOther_;
};

// body() with the rounding field set.
template <class Body> inline auto underRounding(unsigned field, Body body)
{
  const RoundingScope scope(field);
  return callApart(body);
}
// Arithmetic under the caller's rounding needs no change of the register, and so nothing that keeps it in its place.
template <class Body> inline auto underRounding(Rounding rounding, Body body)
{
  return rounding == Rounding::Callers ? body() : underRounding(roundNearest, body);
}

} // namespace zori
