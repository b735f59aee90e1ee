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
#include <utility>

namespace zori {

inline unsigned controlWord() { return _mm_getcsr(); }
inline void setControlWord(unsigned word) { _mm_setcsr(word); }

// Values of the rounding field.
inline constexpr unsigned roundingField = 0x6000, roundNearest = 0, roundDownward = 0x2000, roundUpward = 0x4000,
                          roundTowardZero = 0x6000;

inline void setRoundingField(unsigned field) { setControlWord((controlWord() & ~roundingField) | field); }

// Under which rounding a piece of work runs: to nearest, whatever the caller has set, or as the caller has set it.
enum class Rounding { Nearest, Callers };

// All of the register but the flags of what has happened: rounding, the treatment of denormals, the masks.
inline constexpr unsigned modeBits = 0xffc0;

// A mode with another rounding.
inline unsigned withRounding(unsigned mode, unsigned field) { return (mode & ~roundingField) | field; }
inline unsigned withRounding(unsigned mode, Rounding rounding)
{
  return rounding == Rounding::Nearest ? withRounding(mode, roundNearest) : mode;
}

// The mode of this thread with the rounding that is asked for. Whoever shares out work takes it once and sets it in
// every thread, so that no result depends on which of them did the work.
template <class Field> inline unsigned modeFor(Field rounding)
{
  return withRounding(controlWord() & modeBits, rounding);
}

// body(), of which nothing is done before the call or left until after it: the function is not inlined, and to the
// compiler it may change any memory, the body's variables too.
template <class Body> [[gnu::noinline]] auto callApart(Body& body)
{
  asm volatile("" : : "r"(&body) : "memory");
  return body();
}

// Sets the mode of this thread for a scope; what it found comes back at the end, and no flag changes. For what is no
// arithmetic itself: arithmetic goes through underRounding.
class ModeScope {
public:
  explicit ModeScope(unsigned mode) : ModeScope(mode, controlWord() & modeBits) {}
  ModeScope(const ModeScope&) = delete;
  ModeScope& operator=(const ModeScope&) = delete;
  ~ModeScope()
  {
    if (isOther_) setMode(found_);
  }

protected:
  ModeScope(unsigned mode, unsigned found) : found_(found), isOther_(mode != found)
  {
    if (isOther_) setMode(mode);
  }

private:
  static void setMode(unsigned mode) { setControlWord((controlWord() & ~modeBits) | mode); }

  unsigned found_;
  bool isOther_;
};

// Sets the rounding alone. It reads the register once, which calls of a few pixels feel.
class RoundingScope : public ModeScope {
public:
  template <class Field> explicit RoundingScope(Field rounding) : RoundingScope(rounding, controlWord() & modeBits) {}

private:
  template <class Field> RoundingScope(Field rounding, unsigned found) : ModeScope(withRounding(found, rounding), found)
  {}
};

// body() in a mode, or with the rounding field set.
template <class Body> inline auto underMode(unsigned mode, Body body)
{
  const ModeScope scope(mode);
  return callApart(body);
}
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
