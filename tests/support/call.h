// A valid call of any function of the table, in guarded memory, and ways to spoil it.
#pragma once

#include "guarded.h"

#include <deque>
#include <memory>

namespace zoritest {

enum class Steps { Tight, Padded, Odd, Huge }; // Odd: not a multiple of the element size; Huge: 2^30 bytes

// A number that takes the place of an example's or of one that was drawn.
struct Setting {
  int argument, part;
  double number;
};

class Record;

struct Plan {
  ZorImgSize region = {17, 5};
  Steps steps = Steps::Padded;
  int tightImage = -1; // the only one of the images, counted from 0, that has tight rows whatever `steps` says
  Placement placement = Placement::End;
  int offset = 0; // bytes off the alignment, in the middle
  std::uint64_t seed = 1;
  Fill fill = Fill::Ordinary;
  std::vector<Setting> settings;
  unsigned char bufferFilling = 0xa5; // of work memory that is given
  bool vary = false;                  // draw constants and scale factors, and numbers with a range, at random

  // For fuzz tests:
  bool wild = false;                  // constants and scale factors may be any number of their type
  int padding = -1;                   // bytes behind each row, in place of those that `steps` means
  std::vector<unsigned char> pattern; // images consist of these bytes in turn, if there are some
  Bytes* bytes = nullptr;             // what is drawn is made of these first
  std::shared_ptr<Record> record;     // one that was made before
};

// Memory of exactly so many bytes: it ends at a page without access, or as close to it as the alignment allows, or so
// many bytes in front of it where no alignment is asked for.
class ExactBlock {
public:
  ExactBlock(std::size_t bytes, int alignment, int offset = 0);
  void* pointer() const { return pointer_; }
  bool isOverrun() const; // something was written between its end and the page

private:
  Arena arena_;
  unsigned char *pointer_, *end_;
};

// A record that other functions of the table have made for a call with these arguments.
class Record {
public:
  Record(const Function& user, const Plan& plan, const std::vector<Value>& values);
  ~Record();
  void* pointer() const { return pointer_; }
  bool isOverrun() const { return own_ && own_->isOverrun(); }
  bool isReleased() const { return release_; }             // by a function of the library, when it ends
  const std::vector<Value>& made() const { return made_; } // the arguments of the call that made it

private:
  void* pointer_ = nullptr;
  std::vector<Value> made_;
  const Function* release_ = nullptr;
  std::unique_ptr<ExactBlock> own_; // of a record that lies in the caller's memory
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
  // True when the catalogue knows the status of a call with valid arguments.
  bool mayGive(int status) const;
  Context context(int plane = 0) const;

  // The bytes of all outputs; with special numbers in the sources, each NaN is the same.
  std::vector<unsigned char> output() const;
  int imagesWithSteps() const { return imagesWithSteps_; }
  // Null where the caller had one or the function takes none.
  const std::shared_ptr<Record>& record() const { return record_; }

  // Remembers all operands; tells what changed in them since: nothing may after a failed call, and only pixels
  // that the function writes after any.
  void remember();
  std::string changesAfterFailure() const { return changes(true); }
  std::string changesOutside() const { return changes(false); }
  // By the rule that holds for this status: after an error nothing may change but what the catalogue names.
  std::string changesAfter(int status) const;

  std::string describe() const;

private:
  ZorImgSize sizeOf(const Argument& argument) const;
  double drawn(const Argument& argument, int part, Random& random) const;
  bool fits(const Argument& argument, int part, double number) const;
  void addValue(int index, Random& random);
  void makeRecord();
  void addMemory(int index);
  std::string changes(bool failed) const;

  const Function& function_;
  Plan plan_;
  std::shared_ptr<Record> record_;
  void* recordPointer_ = nullptr;
  std::vector<Value> values_;
  int imagesWithSteps_ = 0;
  std::vector<std::unique_ptr<GuardedImage>> images_; // of pointer arguments, else null
  std::vector<GuardedImage::Snapshot> snapshots_;
  std::deque<ExactBlock> buffers_;
};

// How often functions of the table were called with operands of their own; calls that serve one (queries of sizes,
// makers of records) count where they have some, too.
std::uint64_t callsMade();

// Arguments of a call with faults in them.
class Spoiled {
public:
  explicit Spoiled(Call& call) : call_(call), values(call.values()) {}
  // `number` takes the place of a size or a step.
  void apply(const Fault& fault, int number);
  // One number, or one element of an array.
  void put(int argument, int part, double number);
  // Another record.
  void putRecord(int argument, void* record) { values[static_cast<std::size_t>(argument)].pointer = record; }

private:
  Call& call_;
  std::deque<std::vector<unsigned char>> blocks_;
  std::deque<std::vector<void*>> planes_;

public:
  std::vector<Value> values;
};

// Any number of a type.
double wildNumber(Element element, Random& random);

// True when the record of such calls does not depend on their arguments.
bool followsRecord(const Function& function);

// True when other calls than the example's can be drawn.
bool hasRanges(const Function& function);

bool isLegal(const Limit& limit, double number, const Context& context);

// True when the fault is one in a call with these values: a bad number may be right in other company.
bool isFault(const Function& function, const Stage& stage, const Fault& fault, const Context& context);

// True when both faults can be in one call.
bool compatible(const Fault& a, const Fault& b);

// The functions of a subsystem that the sweeps call. ZORI_SWEEP=<glob>[:<glob>...] in the environment narrows them
// down, ZORI_SWEEP_EVERY=<n> to every n-th.
std::vector<const Function*> swept(const Subsystem& subsystem);

// True when the function reads images of floats.
inline bool hasFloats(const Function& function)
{
  for (const Argument& a : function.arguments)
    if (a.role == Role::Image && a.memory.read &&
        (a.memory.element == Element::T32f || a.memory.element == Element::T64f))
      return true;
  return false;
}

} // namespace zoritest
