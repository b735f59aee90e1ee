// The plan of complex transforms of one length, of any length, that run side by side in the lanes of vectors.
//
// A length is split into radices, each a level of butterflies in place. What is left in a level's place is out of
// order: frequency k ends at element position[k], and whoever takes the result out goes by that table. So no element is
// moved for the sake of its order alone.
//
// Lengths with a prime factor above 149 that cannot be split off, and primes above 149, go through a convolution with
// a chirp: two transforms of a work length of small factors.
//
// A plan lies in a record; its tables are parts of the record's block:
//
//   LanePlan plan(length, blockPlan);      // asks for the tables
//   plan.fill(block);                      // forms them once the block is there
//
// Elements are groups of lanes: E = 2 * vectors * lanes floats, the real parts of all lanes, then the imaginary ones.
// A buffer holds plan.workLength() of them; transformLanes works in it. The inverse transform is the forward one of
// values whose real and imaginary parts have changed places, before and after.
#pragma once

#include "frame/arena.h"

namespace zori {

// The radices of one length, worked from the first to the last. Primes from 7 on are summed by the definition.
struct RadixList {
  static constexpr int most = 32;
  std::int32_t length = 1, levels = 0, radix[most] = {};

  static constexpr bool isButterfly(int r) { return r <= 6 || r == 8 || r == 9 || r == 10 || r == 12 || r == 16; }
};

class LanePlan {
public:
  LanePlan() = default;
  // Along: also for transforms whose lanes are neighbouring elements, where the length allows them.
  LanePlan(int length, BlockPlan& block, bool along = false);
  // With these radices, all of them butterflies, instead of those that its own choice would be.
  LanePlan(const RadixList& radices, BlockPlan& block);

  // Under the rounding to nearest.
  void fill(void* block) const;

  int length() const { return length_; }
  long long workLength() const { return radices_.length; } // elements that transformLanes needs
  bool isConvolution() const { return chirp_.count != 0; }

  const RadixList& radices() const { return radices_; }
  // Of each level in turn: cosines and sines of a prime radix; then turns (re, im) of each butterfly's outputs from the
  // second on, butterfly by butterfly.
  const float* turns(const void* block) const { return turns_.in(block); }
  // The same with lanes along the elements, of all levels but the last: for eight butterflies at a time and each output
  // from the second on, eight real parts and eight imaginary ones.
  bool isAlong() const { return turnsAlong_.count != 0; }
  const float* turnsAlong(const void* block) const { return turnsAlong_.in(block); }
  const std::int32_t* position(const void* block) const { return position_.in(block); }
  const float* chirp(const void* block) const { return chirp_.in(block); }       // length pairs
  const float* spectrum(const void* block) const { return spectrum_.in(block); } // workLength pairs, as elements stand

private:
  void addTables(BlockPlan& block);

  std::int32_t length_ = 0;
  RadixList radices_;
  BlockPart<float> turns_, turnsAlong_, chirp_, spectrum_;
  BlockPart<std::int32_t> position_;
};

// Elements that a transform of this length is worked in; 0 where their number does not fit an int.
long long laneWorkLength(int length);

} // namespace zori
