#include "call.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fnmatch.h>
#include <map>
#include <unistd.h>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/common_interface_defs.h>
#endif

namespace zoritest {

static constexpr int bufferBytes = 1 << 20, recordBytes = 1 << 16;

const Function* findFunction(const std::string& name)
{
  static const std::map<std::string, const Function*> all = [] {
    std::map<std::string, const Function*> map;
    for (const Subsystem& subsystem : subsystems())
      for (const Function& function : subsystem.functions) map[function.name] = &function;
    return map;
  }();
  const auto found = all.find(name);
  return found == all.end() ? nullptr : found->second;
}

static const Function& required(const std::string& name)
{
  const Function* function = findFunction(name);
  if (!function) {
    std::fprintf(stderr, "%s is not in the function table\n", name.c_str());
    std::abort();
  }
  return *function;
}

static unsigned char* alignedTo64(unsigned char* p)
{
  return reinterpret_cast<unsigned char*>((reinterpret_cast<std::uintptr_t>(p) + 63) & ~std::uintptr_t(63));
}

// ---- Records ----

static bool isOutputPointer(const Argument& a) { return a.role == Role::Out && a.memory.element == Element::Pointer; }

Record::Record(const Function& user, const Plan& plan)
{
  Plan plain;
  plain.seed = plan.seed;
  for (int i = 0; i < user.makers.size; ++i) {
    const Function& maker = required(user.makers[i].function);
    if (i == 0) {
      own_.resize(recordBytes + 64);
      pointer_ = alignedTo64(own_.data());
    }
    Call call(maker, plain, pointer_);
    if (i == 0) made_ = call.values();
    const Result result = maker.callable.invoke(maker.callable.function, call.values().data());
    if (result.status < 0) {
      std::fprintf(stderr, "%s makes no record for %s: status %d\n", maker.name, user.name, result.status);
      std::abort();
    }
    for (int a = 0; i == 0 && a < maker.arguments.size; ++a)
      if (isOutputPointer(maker.arguments[a])) std::memcpy(&pointer_, call.image(a).pointer(), sizeof pointer_);
    if (i == 0 && maker.release[0]) release_ = &required(maker.release);
  }
}

Record::~Record()
{
  if (!release_) return;
  Value value;
  value.pointer = pointer_;
  release_->callable.invoke(release_->callable.function, &value);
}

// ---- Calling ----

static thread_local const Call* current = nullptr;

static void nameFunction()
{
  if (!current) return;
  const std::string text = "while calling " + current->describe() + "\n";
  if (write(STDERR_FILENO, text.data(), text.size()) < 0) _exit(2);
}

#ifdef __SANITIZE_ADDRESS__
static void watch() { __sanitizer_set_death_callback(nameFunction); }
#else
static void onPageFault(int number)
{
  nameFunction();
  std::signal(number, SIG_DFL);
  std::raise(number);
}
static void watch()
{
  std::signal(SIGSEGV, onPageFault);
  std::signal(SIGBUS, onPageFault);
}
#endif

// A crash inside of a call tells which.
static Result invoke(const Call& call, const std::vector<Value>& values)
{
  static const bool watched = (watch(), true);
  (void)watched;
  current = &call;
  const Result result = call.function().callable.invoke(call.function().callable.function, values.data());
  current = nullptr;
  return result;
}

// ---- Call ----

// Equal operands of a function and of its form in place get equal contents.
static std::uint64_t operandSeed(const Function& function, const Argument& argument, std::uint64_t seed)
{
  const std::string item = argument.item;
  const bool two = std::any_of(function.arguments.begin(), function.arguments.end(),
                               [](const Argument& a) { return !std::strcmp(a.item, "src"); });
  std::string canonical = item == "src1" ? "src" : item == "srcDst" ? (two ? "src2" : "src") : item;
  std::uint64_t hash = seed * 1000003;
  for (const char c : canonical) hash = hash * 131 + static_cast<unsigned char>(c);
  return hash;
}

Call::Call(const Function& function, const Plan& plan, void* record)
  : function_(function), plan_(plan), recordPointer_(record),
    values_(static_cast<std::size_t>(function.arguments.size)),
    images_(static_cast<std::size_t>(function.arguments.size))
{
  if (!record && function.makers.size) {
    record_ = std::make_unique<Record>(function, plan);
    recordPointer_ = record_->pointer();
  }
  Random random(plan.seed * 7 + 5);
  for (int i = 0; i < function.arguments.size; ++i) addValue(i, random);
  for (int i = 0; i < function.arguments.size; ++i) addMemory(i);
  remember();
}

ZorImgSize Call::sizeOf(const Argument& argument) const
{
  if (argument.example.size == 2) return {static_cast<int>(argument.example[0]), static_cast<int>(argument.example[1])};
  return plan_.region;
}

Context Call::context(int plane) const
{
  return {values_.data(), record_ && !record_->made().empty() ? record_->made().data() : nullptr, plane};
}

// Number `part` of an argument.
double Call::drawn(const Argument& argument, int part, Random& random) const
{
  for (const Range& range : argument.ranges) {
    if (range.part >= 0 && range.part != part) continue;
    if (range.choices.size) return range.choices[random.below(range.choices.size)];
    const double share = random.next() / 4294967296.0;
    const double low = range.low(context(part)), high = range.high(context(part));
    const bool whole = low == std::floor(low) && high == std::floor(high);
    return whole ? low + std::floor(share * (high - low + 1)) : low + share * (high - low);
  }
  static constexpr double scales[] = {0, 1, 2, 7, 8, 15, 16, 17, 31, 32, 33, 63, 64, 1e9, 2147483647};
  if (argument.role == Role::Scale)
    return (random.below(2) ? 1 : -1) * scales[random.below(sizeof scales / sizeof *scales)];
  return random.below(4) ? random.below(256) : random.below(65536) - 32768;
}

void Call::addValue(int index, Random& random)
{
  const Argument& a = function_.arguments[index];
  Value& v = values_[index];
  if ((a.role == Role::Region || a.role == Role::Size) && a.count == 2) {
    const ZorImgSize size = sizeOf(a);
    v.numbers[0] = size.width, v.numbers[1] = size.height;
    return;
  }
  const bool free = a.ranges.size || a.role == Role::Scale || a.role == Role::Value;
  for (int i = 0; i < std::min(a.count, 4); ++i)
    v.numbers[i] = plan_.vary && free      ? drawn(a, i, random)
                   : a.example.size        ? a.example[i % a.example.size]
                   : a.role == Role::Scale ? 0
                                           : 1;
}

void Call::addMemory(int index)
{
  const Argument& a = function_.arguments[index];
  Value& v = values_[index];
  if (a.role == Role::Record) {
    v.pointer = recordPointer_;
    return;
  }
  if (a.role == Role::Buffer) {
    buffers_.emplace_back(bufferBytes + 64, static_cast<unsigned char>(0xa5));
    v.pointer = alignedTo64(buffers_.back().data());
    return;
  }
  if (a.role != Role::Image && a.role != Role::In && a.role != Role::Out) return;

  GuardedImage::Shape shape;
  shape.memory = a.memory;
  if (function_.exemptions & kAlphaExempt && shape.memory.kept == Kept::Alpha) shape.memory.kept = Kept::None;
  const Extent& e = a.memory.extent;
  ZorImgSize size = plan_.region;
  for (const Argument& other : function_.arguments)
    if (other.role == Role::Region) size = sizeOf(other);
  const auto number = [&](Formula formula, int otherwise) {
    if (!formula) return otherwise;
    double most = formula(context(0)); // planes are equally long
    for (int plane = 1; plane < a.memory.planes; ++plane) most = std::max(most, formula(context(plane)));
    return static_cast<int>(most);
  };
  shape.width = number(e.width, size.width), shape.height = number(e.height, size.height);
  shape.left = number(e.left, 0), shape.right = number(e.right, 0);
  shape.top = number(e.top, 0), shape.bottom = number(e.bottom, 0);
  if (a.role != Role::Image) shape.width *= shape.height, shape.height = 1;
  if (a.memory.bitOffset >= 0) shape.bitOffset = static_cast<int>(values_[a.memory.bitOffset].numbers[0]);

  shape.placement = plan_.placement;
  if (a.role == Role::Image) {
    static constexpr int padding[] = {0, 24, 27}; // Tight, Padded, Odd
    shape.offset = plan_.offset;
    if (a.memory.step >= 0) shape.stepPadding = padding[static_cast<int>(plan_.steps)];
  }
  auto image = std::make_unique<GuardedImage>(shape);
  image->fill(operandSeed(function_, a, plan_.seed), plan_.fill);
  if (plan_.vary && a.role == Role::In && (a.ranges.size || !std::strcmp(a.item, "value"))) {
    std::vector<double> numbers(a.count);
    Random random(plan_.seed + 77);
    for (int k = 0; k < a.count; ++k) // formulas have looked at the first four
      numbers[k] = k < 4 && !a.memory.planes ? v.numbers[k] : drawn(a, k, random);
    image->fill(Span<double>{numbers.data(), a.count});
  } else if (a.example.size) {
    image->fill(a.example);
  }
  v.pointer = image->pointer();
  if (a.memory.step >= 0) values_[a.memory.step].numbers[0] = image->step();
  images_[index] = std::move(image);
}

bool Call::succeeded(const Result& result) const
{
  return function_.callable.returnsPointer ? result.pointer != nullptr : result.status >= 0;
}

Result Call::run(const std::vector<Value>& values)
{
  const Result result = invoke(*this, values);
  if (function_.release[0] && result.status >= 0) {
    Value made;
    made.pointer = result.pointer;
    for (int i = 0; i < function_.arguments.size; ++i)
      if (isOutputPointer(function_.arguments[i])) std::memcpy(&made.pointer, image(i).pointer(), sizeof(void*));
    const Function& release = required(function_.release);
    if (made.pointer) release.callable.invoke(release.callable.function, &made);
  }
  return result;
}

std::vector<unsigned char> Call::output() const
{
  std::vector<unsigned char> bytes;
  for (int i = 0; i < function_.arguments.size; ++i) {
    const Argument& a = function_.arguments[i];
    if (!a.memory.written || !images_[i] || isOutputPointer(a)) continue;
    const auto own = images_[i]->pixels();
    bytes.insert(bytes.end(), own.begin(), own.end());
  }
  return bytes;
}

void Call::remember()
{
  snapshots_.clear();
  for (const auto& image : images_) snapshots_.push_back(image ? image->snapshot() : GuardedImage::Snapshot{});
}

std::string Call::changes(bool failed) const
{
  for (int i = 0; i < function_.arguments.size; ++i) {
    const std::size_t at = i;
    if (!images_[at]) continue;
    const Argument& a = function_.arguments[i];
    const std::string change = images_[at]->changes(snapshots_[at], a.memory.written && !failed);
    if (!change.empty()) return std::string(a.name) + ": " + change;
  }
  return "";
}

std::string Call::describe() const
{
  static const char* const steps[] = {"tight", "padded", "odd"};
  static const char* const places[] = {"ending at a page's end", "starting at a page's start", "inside a page"};
  std::string text = std::string(function_.name) + " (" + std::to_string(plan_.region.width) + "x" +
                     std::to_string(plan_.region.height) + ", " + steps[static_cast<int>(plan_.steps)] + " rows, " +
                     places[static_cast<int>(plan_.placement)];
  if (plan_.offset) text += ", " + std::to_string(plan_.offset) + " bytes off";
  return text + ", seed " + std::to_string(plan_.seed) + ")";
}

// ---- Faults ----

bool compatible(const Fault& a, const Fault& b)
{
  return a.argument != b.argument || (a.kind == b.kind && a.kind == FaultKind::Size && a.part != b.part);
}

void Spoiled::apply(const Fault& fault, int number)
{
  const Argument& a = call_.function().arguments[fault.argument];
  Value& v = values[fault.argument];
  const bool null = fault.kind == FaultKind::Null || (fault.values.size == 1 && fault.values[0] == kNull);
  if (null && fault.part >= 0) {
    void** planes = call_.image(fault.argument).planes();
    planes_.emplace_back(planes, planes + a.memory.planes);
    planes_.back()[fault.part] = nullptr;
    v.pointer = planes_.back().data();
  } else if (null) {
    v.pointer = nullptr;
  } else if (fault.kind == FaultKind::Size) {
    v.numbers[fault.part] = number;
  } else if (fault.kind == FaultKind::Step) {
    v.numbers[0] = number;
  } else if (fault.values.size == 1 && fault.values[0] == kBadRecord) {
    blocks_.emplace_back(recordBytes, static_cast<unsigned char>(0x5a));
    v.pointer = blocks_.back().data();
  } else if (a.role == Role::In || a.role == Role::Out) {
    const int size = elementBytes(a.memory.element), elements = call_.image(fault.argument).rowBytes() / size;
    blocks_.emplace_back(elements * size);
    for (int i = 0; i < elements; ++i)
      putNumber(&blocks_.back()[i * size], a.memory.element, fault.values[i % fault.values.size]);
    v.pointer = blocks_.back().data();
    if (a.memory.planes) v.pointer = planes_.emplace_back(a.memory.planes, v.pointer).data();
  } else {
    for (int i = 0; i < std::min(a.count, 4); ++i) v.numbers[i] = fault.values[i % fault.values.size];
  }
}

// ---- Walking the table ----

std::vector<const Function*> swept(const Subsystem& subsystem)
{
  const char* glob = std::getenv("ZORI_SWEEP");
  std::vector<const Function*> functions;
  for (const Function& function : subsystem.functions)
    if (function.sweep && (!glob || fnmatch(glob, function.name, 0) == 0)) functions.push_back(&function);
  return functions;
}

} // namespace zoritest
