// A valid call of any function of the table, in guarded memory, and ways to spoil it.
#pragma once

#include "guarded.h"

#include <deque>

namespace zoritest {

enum class Steps { Tight, Padded, Odd }; // Odd: not a multiple of the element size

struct Plan {
  ZorImgSize region = {17, 5};
  Steps steps = Steps::Padded;
  Placement placement = Placement::End;
  int offset = 0; // bytes off the alignment, in the middle
  std::uint64_t seed = 1;
  Fill fill = Fill::Ordinary;
  bool vary = false; // draw constants and scale factors, and numbers with a range, at random
};

// A record that other functions of the table have made.
class Record {
public:
  Record(const Function& user, const Plan& plan);
  ~Record();
  void* pointer() const { return pointer_; }
  const std::vector<Value>& made() const { return made_; } // the arguments of the call that made it

private:
  void* pointer_ = nullptr;
  std::vector<Value> made_;
  const Function* release_ = nullptr;
  std::vector<unsigned char> own_; // block of a record that lies in the caller's memory
};

class Call {
public:
  Call(const Function& function, const Plan& plan, void* record = nullptr);

  const Function& function() const { return function_; }
  std::vector<Value>& values() { return values_; }
  GuardedImage& image(int argument) { return *images_[static_cast<std::size_t>(argument)]; }

  // Calls the function; what the call makes is released.
  Result run() { return run(values_); }
  Result run(const std::vector<Value>& values);
  bool succeeded(const Result& result) const;

  // The bytes of all outputs.
  std::vector<unsigned char> output() const;

  // Remembers all operands; tells what changed in them since: nothing may after a failed call, and only pixels
  // that the function writes after any.
  void remember();
  std::string changesAfterFailure() const { return changes(true); }
  std::string changesOutside() const { return changes(false); }

  std::string describe() const;

private:
  ZorImgSize sizeOf(const Argument& argument) const;
  Context context(int plane) const;
  double drawn(const Argument& argument, int part, Random& random) const;
  void addMemory(int index);
  void addValue(int index, Random& random);
  std::string changes(bool failed) const;

  const Function& function_;
  Plan plan_;
  std::unique_ptr<Record> record_;
  void* recordPointer_ = nullptr;
  std::vector<Value> values_;
  std::vector<std::unique_ptr<GuardedImage>> images_; // of pointer arguments, else null
  std::vector<GuardedImage::Snapshot> snapshots_;
  std::deque<std::vector<unsigned char>> buffers_;
};

// Arguments of a call with faults in them.
class Spoiled {
public:
  explicit Spoiled(Call& call) : call_(call), values(call.values()) {}
  // `number` takes the place of a size or a step.
  void apply(const Fault& fault, int number);

private:
  Call& call_;
  std::deque<std::vector<unsigned char>> blocks_;
  std::deque<std::vector<void*>> planes_;

public:
  std::vector<Value> values;
};

// True when both faults can be in one call.
bool compatible(const Fault& a, const Fault& b);

// The functions of a subsystem that the sweeps call. ZORI_SWEEP=<glob> in the environment narrows them down.
std::vector<const Function*> swept(const Subsystem& subsystem);

} // namespace zoritest
