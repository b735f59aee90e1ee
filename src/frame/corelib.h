// What the library asks of the machine: threads, cache, the SIMD control register, NaN.
#pragma once

#include "zori/types.h"

// Upper bound of a team: what the application set for OpenMP, else the processors. The child of a fork gets 1,
// because the OpenMP runtime does not survive a fork.
int ownGetNumThreads();

// Stores the size of the largest cache in bytes; a non-zero result says that it could not be had.
int zorGetMaxCacheSizeB(int* pSize);

// Set the rounding field of the control register (0 nearest, 0x6000 toward zero) and return the whole old word.
unsigned zor_set_rc_ssx(unsigned rounding);
void zor_set_cw_ssx(unsigned word);
unsigned zs_get_ssx();
void zs_set_ssx(unsigned value, unsigned mask);

extern const Zor32f zorConstantOfNAN_32f;
extern const Zor64f zorConstantOfNAN_64f;

namespace zori {

inline constexpr unsigned roundingMask = 0x6000, roundNearest = 0, roundTowardZero = 0x6000;

// Sets the rounding field for a scope. The old word comes back at the end if its field was another.
class RoundingScope {
public:
  explicit RoundingScope(unsigned rounding) : rounding_(rounding), old_(zor_set_rc_ssx(rounding)) {}
  RoundingScope(const RoundingScope&) = delete;
  RoundingScope& operator=(const RoundingScope&) = delete;
  ~RoundingScope()
  {
    if ((old_ & roundingMask) != rounding_) zor_set_cw_ssx(old_);
  }

private:
  unsigned rounding_, old_;
};

} // namespace zori
