#include "call.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fnmatch.h>
#include <sstream>
#include <unistd.h>
#include <unordered_map>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/common_interface_defs.h>
#endif

namespace zoritest {

static constexpr int bufferBytes = 1 << 20, recordBytes = 1 << 16; // where no query tells
static constexpr int mostNumbers = 4;                              // in a value

const Function* findFunction(std::string_view name)
{
  static const auto all = [] {
    std::unordered_map<std::string_view, const Function*> map;
    for (const Subsystem& subsystem : subsystems())
      for (const Function& function : subsystem.functions) map[function.name] = &function;
    return map;
  }();
  const auto found = all.find(name);
  return found == all.end() ? nullptr : found->second;
}

static const Function& required(std::string_view name)
{
  const Function* function = findFunction(name);
  if (!function) {
    std::fprintf(stderr, "%s is not in the function table\n", std::string(name).c_str());
    std::abort();
  }
  return *function;
}

// ---- Work memory and records ----

static constexpr unsigned char blockFilling = 0xa5;

ExactBlock::ExactBlock(std::size_t bytes, int alignment, int offset)
  : arena_(bytes + static_cast<std::size_t>(std::max(alignment, offset)))
{
  const std::uintptr_t mask = static_cast<std::uintptr_t>(std::max(alignment, 1)) - 1;
  unsigned char* const latest = arena_.end() - bytes - (alignment <= 1 ? offset : 0);
  pointer_ = reinterpret_cast<unsigned char*>(reinterpret_cast<std::uintptr_t>(latest) & ~mask);
  end_ = pointer_ + bytes;
  std::memset(pointer_, blockFilling, static_cast<std::size_t>(arena_.end() - pointer_));
}

bool ExactBlock::isOverrun() const
{
  return std::any_of(end_, arena_.end(), [](unsigned char byte) { return byte != blockFilling; });
}

static std::vector<Setting> settingsOf(const Link& link, const Context& context)
{
  std::vector<Setting> settings;
  for (const Passing& passing : link.passing)
    settings.push_back({passing.argument, passing.part, passing.number(context)});
  return settings;
}

// The bytes of a block, as the query that belongs to it tells; `otherwise` without one.
static std::size_t bytesOf(const Argument& argument, const Context& context, void* record, int otherwise)
{
  if (!argument.size.function) return static_cast<std::size_t>(otherwise);
  Plan plan;
  plan.settings = settingsOf(argument.size, context);
  Call query(required(argument.size.function), plan, record);
  const Result result = query.run();
  std::int32_t bytes = 0;
  std::memcpy(&bytes, query.image(argument.size.output).pointer(), sizeof bytes);
  if (result.status != ZorOk || bytes < 1) {
    std::fprintf(stderr, "%s tells no size: status %d\n", argument.size.function, result.status);
    std::abort();
  }
  return static_cast<std::size_t>(bytes);
}

static bool isOutputPointer(const Argument& a) { return a.role == Role::Out && a.memory.element == Element::Pointer; }

// Otherwise the record follows the arguments.
bool followsRecord(const Function& function)
{
  return std::all_of(function.makers.begin(), function.makers.end(),
                     [](const Link& link) { return link.passing.size == 0; });
}

// What makes the record may be drawn, since the arguments follow what it was made for.
static bool hasOwnRanges(const Function& function)
{
  return std::any_of(function.arguments.begin(), function.arguments.end(),
                     [](const Argument& a) { return a.ranges.size > 0; });
}

// True when the record is made for other arguments too. (A maker may itself be told how its record is made.)
static bool drawsRecord(const Function& function)
{
  return function.makers.size > 0 && followsRecord(function) && hasOwnRanges(required(function.makers[0].function));
}

bool hasRanges(const Function& function) { return drawsRecord(function) || hasOwnRanges(function); }

Record::Record(const Function& user, const Plan& plan, const std::vector<Value>& values)
{
  for (int i = 0; i < user.makers.size; ++i) {
    const Function& maker = required(user.makers[i].function);
    Plan plain;
    plain.seed = plan.seed;
    plain.vary = plan.vary && i == 0 && drawsRecord(user);
    plain.settings = settingsOf(user.makers[i], {values.data()});
    if (i == 0)
      for (const Argument& a : maker.arguments)
        if (a.role == Role::Record) {
          const Call sizes(maker, plain, this); // for its arguments alone
          own_ =
            std::make_unique<ExactBlock>(bytesOf(a, sizes.context(), nullptr, recordBytes), std::max(a.alignment, 1));
          pointer_ = own_->pointer();
        }
    Call call(maker, plain, pointer_ ? pointer_ : this);
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

#ifdef ZORI_ENGINE_WATCHES
static void watch() {}
#elif defined __SANITIZE_ADDRESS__
static void watch() { __sanitizer_set_death_callback(nameFunction); }
#else
static void onPageFault(int number)
{
  alarm(10); // the name needs memory, which a broken heap may not give
  nameFunction();
  std::signal(number, SIG_DFL);
  std::raise(number);
}
static void watch()
{
  std::signal(SIGSEGV, onPageFault);
  std::signal(SIGBUS, onPageFault);
  std::signal(SIGABRT, onPageFault); // a block of working memory was overrun
}
#endif

static std::atomic<std::uint64_t> calls{0};
std::uint64_t callsMade() { return calls; }

// A crash inside of a call tells which.
static Result invoke(const Call& call, const std::vector<Value>& values)
{
  static const bool watched = (watch(), true);
  (void)watched;
  current = &call;
  calls.fetch_add(1, std::memory_order_relaxed);
  const Result result = call.function().callable.invoke(call.function().callable.function, values.data());
  current = nullptr;
  return result;
}

// ---- Call ----

// Equal operands of a function and of its form in place get equal contents.
static std::uint64_t operandSeed(const Function& function, const Argument& argument, std::uint64_t seed)
{
  const std::string_view item = argument.item;
  const bool two = std::any_of(function.arguments.begin(), function.arguments.end(),
                               [](const Argument& a) { return !std::strcmp(a.item, "src"); });
  const std::string_view canonical = item == "src1" ? "src" : item == "srcDst" ? (two ? "src2" : "src") : item;
  std::uint64_t hash = seed * 1000003;
  for (const char c : canonical) hash = hash * 131 + static_cast<unsigned char>(c);
  return hash;
}

static const Range* rangeOf(const Argument& argument, int part)
{
  for (const Range& range : argument.ranges)
    if (range.part < 0 || range.part == part) return &range;
  return nullptr;
}

Call::Call(const Function& function, const Plan& plan, void* record)
  : function_(function), plan_(plan), recordPointer_(record),
    values_(static_cast<std::size_t>(function.arguments.size)),
    images_(static_cast<std::size_t>(function.arguments.size))
{
  const bool fromRecord = followsRecord(function);
  if (fromRecord) makeRecord();
  Random random(plan.seed * 7 + 5, plan.bytes);
  for (int i = 0; i < function.arguments.size; ++i) addValue(i, random);
  for (int round = 0; plan.vary && round < 3; ++round) // ranges may depend on what was drawn later
    for (int i = 0; i < function.arguments.size; ++i) {
      const Argument& a = function.arguments[i];
      for (int part = 0; a.ranges.size && part < std::min(a.count, mostNumbers); ++part)
        if (double& number = values_[i].numbers[part]; !fits(a, part, number)) number = drawn(a, part, random);
    }
  for (const Setting& setting : plan.settings) values_[setting.argument].numbers[setting.part] = setting.number;
  for (int i = 0; !plan.settings.empty() && i < function.arguments.size; ++i) { // what depends on them follows
    const Argument& a = function.arguments[i];
    for (int part = 0; part < std::min(a.count, mostNumbers); ++part) {
      const bool isSet = std::any_of(plan.settings.begin(), plan.settings.end(), [&](const Setting& setting) {
        return setting.argument == i && setting.part == part;
      });
      double& number = values_[i].numbers[part];
      if (isSet || fits(a, part, number)) continue;
      const Range* range = rangeOf(a, part);
      number = std::min(std::max(number, range->low(context(part))), range->high(context(part)));
    }
  }
  for (int i = 0; i < function.arguments.size; ++i) // so that no call rounds them, in the mode that it is made under
    if (function.arguments[i].number == Element::T32f)
      for (double& number : values_[i].numbers) number = static_cast<float>(number);
  if (!fromRecord) makeRecord();
  for (int i = 0; i < function.arguments.size; ++i) addMemory(i);
  remember();
}

void Call::makeRecord()
{
  if (recordPointer_ || function_.makers.size == 0) return;
  record_ = plan_.record ? plan_.record : std::make_shared<Record>(function_, plan_, values_);
  recordPointer_ = record_->pointer();
}

Context Call::context(int plane) const
{
  return {values_.data(), record_ && !record_->made().empty() ? record_->made().data() : nullptr, plane};
}

ZorImgSize Call::sizeOf(const Argument& argument) const
{
  if (argument.example.size == 2) return {static_cast<int>(argument.example[0]), static_cast<int>(argument.example[1])};
  return plan_.region;
}

double wildNumber(Element element, Random& random)
{
  const std::uint32_t word = random.next();
  switch (element) {
  case Element::T32f: {
    float number;
    std::memcpy(&number, &word, sizeof number);
    return number;
  }
  case Element::T64f: {
    const std::uint64_t bits = static_cast<std::uint64_t>(word) << 32 | random.next();
    double number;
    std::memcpy(&number, &bits, sizeof number);
    return number;
  }
  case Element::T8u: return static_cast<std::uint8_t>(word);
  case Element::T8s: return static_cast<std::int8_t>(word);
  case Element::T16u: return static_cast<std::uint16_t>(word);
  case Element::T16s: return static_cast<std::int16_t>(word);
  case Element::T32u: return word;
  default: return static_cast<std::int32_t>(word);
  }
}

// Number `part` of an argument.
double Call::drawn(const Argument& argument, int part, Random& random) const
{
  if (const Range* range = rangeOf(argument, part)) {
    if (range->choices.size) return range->choices[random.below(range->choices.size)];
    double share = random.next() / 4294967296.0;
    if (plan_.bytes && random.below(8)) share *= share * share; // mostly near the low end, which stands for little work
    const double low = range->low(context(part)), high = range->high(context(part));
    const bool whole = low == std::floor(low) && high == std::floor(high);
    return whole ? low + std::floor(share * (high - low + 1)) : low + share * (high - low);
  }
  if (plan_.wild && !random.below(3)) return wildNumber(argument.number, random);
  static constexpr double scales[] = {0, 1, 2, 7, 8, 15, 16, 17, 31, 32, 33, 63, 64, 1e9, 2147483647};
  if (argument.role == Role::Scale)
    return (random.below(2) ? 1 : -1) * scales[random.below(sizeof scales / sizeof *scales)];
  return random.below(4) ? random.below(256) : random.below(65536) - 32768;
}

bool Call::fits(const Argument& argument, int part, double number) const
{
  const Range* range = rangeOf(argument, part);
  if (!range || range->choices.size) return true;
  return number >= range->low(context(part)) && number <= range->high(context(part));
}

// True for a number that may be drawn: it has a range or needs none.
static bool isFree(const Argument& a, int part)
{
  return rangeOf(a, part) || a.role == Role::Scale || a.role == Role::Value;
}

// An array of a few numbers: formulas look at them, so that they stand in the value before they stand in memory.
static bool isShortArray(const Argument& a)
{
  return a.role == Role::In && !a.memory.planes && a.count > 1 && a.count <= mostNumbers &&
         (a.example.size || a.ranges.size);
}

void Call::addValue(int index, Random& random)
{
  const Argument& a = function_.arguments[index];
  Value& v = values_[index];
  if ((a.role == Role::Region || a.role == Role::Size) && a.count == 2 && !(plan_.vary && a.ranges.size)) {
    const ZorImgSize size = sizeOf(a);
    v.numbers[0] = size.width, v.numbers[1] = size.height;
    return;
  }
  for (int i = 0; i < std::min(a.count, mostNumbers); ++i)
    v.numbers[i] = plan_.vary && isFree(a, i) ? drawn(a, i, random)
                   : a.example.size           ? a.example[i % a.example.size]
                   : a.role == Role::Scale    ? 0
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
    const std::size_t bytes = bytesOf(a, context(), recordPointer_, bufferBytes);
    buffers_.emplace_back(bytes, std::max(a.alignment, 1), plan_.offset);
    v.pointer = buffers_.back().pointer();
    if (plan_.bufferFilling != blockFilling) std::memset(v.pointer, plan_.bufferFilling, bytes);
    return;
  }
  if (a.role != Role::Image && a.role != Role::In && a.role != Role::Out) return;

  GuardedImage::Shape shape;
  shape.memory = a.memory;
  if (function_.exemptions & kAlphaExempt && shape.memory.kept == Kept::Alpha) shape.memory.kept = Kept::None;
  const Extent& e = a.memory.extent;
  ZorImgSize size = plan_.region;
  for (int i = 0; i < function_.arguments.size; ++i)
    if (function_.arguments[i].role == Role::Region)
      size = {static_cast<int>(values_[i].numbers[0]), static_cast<int>(values_[i].numbers[1])};
  const auto number = [&](Formula formula, int otherwise) {
    if (!formula) return otherwise;
    double most = formula(context(0)); // planes are as long as the longest
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
    static constexpr int padding[] = {0, 24, 27, 0}; // Tight, Padded, Odd, Huge
    shape.offset = plan_.offset;
    if (a.memory.step >= 0 && imagesWithSteps_++ != plan_.tightImage) {
      shape.stepPadding = plan_.padding >= 0 ? plan_.padding : padding[static_cast<int>(plan_.steps)];
      if (plan_.steps == Steps::Huge) shape.step = 1 << 30;
    }
  }
  auto image = std::make_unique<GuardedImage>(shape);
  image->fill(operandSeed(function_, a, plan_.seed), plan_.fill);
  if (!plan_.pattern.empty() && a.memory.element != Element::Pointer) image->fillRows(plan_.pattern);
  if (isShortArray(a)) {
    image->fill(Span<double>{v.numbers, a.count});
  } else if (plan_.vary && a.role == Role::In && (a.ranges.size || !std::strcmp(a.item, "value"))) {
    std::vector<double> numbers(static_cast<std::size_t>(std::max(a.count, 1)));
    Random random(plan_.seed + 77);
    for (std::size_t k = 0; k < numbers.size(); ++k) numbers[k] = drawn(a, static_cast<int>(k), random);
    image->fill(Span<double>{numbers.data(), static_cast<int>(numbers.size())});
  } else if (a.example.size) {
    image->fill(a.example);
  } else if (a.role == Role::Image && a.ranges.size) { // coordinates
    std::vector<double> numbers(static_cast<std::size_t>(shape.width * shape.height));
    Random random(plan_.seed + 77);
    for (double& x : numbers) x = drawn(a, 0, random);
    image->fill(Span<double>{numbers.data(), shape.width * shape.height});
  }
  v.pointer = image->pointer();
  if (a.memory.step >= 0) values_[a.memory.step].numbers[0] = image->step();
  images_[index] = std::move(image);
}

bool Call::succeeded(const Result& result) const
{
  return function_.callable.returnsPointer ? result.pointer != nullptr : result.status >= 0;
}

bool Call::mayGive(int status) const
{
  return function_.callable.returnsPointer || status == ZorOk ||
         std::any_of(function_.outcomes.begin(), function_.outcomes.end(),
                     [=](const Outcome& outcome) { return outcome.status == status; });
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

// Which of several NaNs comes through an operation is left to the processor and the compiler.
static void unifyNans(std::vector<unsigned char>& bytes, Element element)
{
  const auto unify = [&](auto number) {
    for (std::size_t i = 0; i + sizeof number <= bytes.size(); i += sizeof number) {
      std::memcpy(&number, &bytes[i], sizeof number);
      if (std::isnan(number)) std::memset(&bytes[i], 0xff, sizeof number);
    }
  };
  if (element == Element::T32f) unify(0.f);
  if (element == Element::T64f) unify(0.0);
}

std::vector<unsigned char> Call::output() const
{
  std::vector<unsigned char> bytes;
  for (int i = 0; i < function_.arguments.size; ++i) {
    const Argument& a = function_.arguments[i];
    if (!a.memory.written || !images_[i] || isOutputPointer(a)) continue;
    auto own = images_[i]->pixels();
    if (plan_.fill == Fill::Special) unifyNans(own, a.memory.element);
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
  for (const ExactBlock& buffer : buffers_)
    if (buffer.isOverrun()) return "the work buffer was overrun";
  if (record_ && record_->isOverrun()) return "the record was overrun";
  for (int i = 0; i < function_.arguments.size; ++i) {
    const std::size_t at = i;
    if (!images_[at]) continue;
    const Argument& a = function_.arguments[i];
    const std::string change = images_[at]->changes(snapshots_[at], a.memory.written && !failed);
    if (!change.empty()) return std::string(a.name) + ": " + change;
  }
  return "";
}

std::string Call::changesAfter(int status) const
{
  const bool isSaidToWrite =
    std::any_of(function_.outcomes.begin(), function_.outcomes.end(),
                [=](const Outcome& outcome) { return outcome.status == status && outcome.written.size; });
  return changes(status < 0 && !isSaidToWrite);
}

std::string Call::describe() const
{
  static const char* const steps[] = {"tight", "padded", "odd", "huge"};
  static const char* const places[] = {"ending at a page's end", "starting at a page's start", "inside a page"};
  std::string text = std::string(function_.name) + " (" + std::to_string(plan_.region.width) + "x" +
                     std::to_string(plan_.region.height) + ", " + steps[static_cast<int>(plan_.steps)] + " rows, " +
                     places[static_cast<int>(plan_.placement)];
  if (plan_.tightImage >= 0) text += ", image " + std::to_string(plan_.tightImage) + " tight";
  if (plan_.fill == Fill::Special) text += ", special numbers";
  if (plan_.offset) text += ", " + std::to_string(plan_.offset) + " bytes off";
  return text + ", seed " + std::to_string(plan_.seed) + ")";
}

// ---- Faults ----

bool isLegal(const Limit& limit, double number, const Context& context)
{
  switch (limit.illegal) {
  case Illegal::Below: return number >= limit.bound(context);
  case Illegal::Above: return number <= limit.bound(context);
  case Illegal::AtMost: return number > limit.bound(context);
  case Illegal::AtLeast: return number < limit.bound(context);
  default: return std::find(limit.legal.begin(), limit.legal.end(), number) != limit.legal.end();
  }
}

bool isFault(const Function& function, const Stage& stage, const Fault& fault, const Context& context)
{
  bool limited = false;
  for (const Limit& limit : function.limits) {
    if (fault.kind != FaultKind::Value || limit.argument != fault.argument || limit.status != stage.status) continue;
    limited = true;
    for (int i = 0; i < fault.values.size; ++i) {
      Context own = context;
      own.plane = i;
      if ((limit.part < 0 || limit.part == i) && !isLegal(limit, fault.values[i], own)) return true;
    }
  }
  return !limited;
}

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
    for (int i = 0; i < elements; ++i) {
      const double bad = fault.values[i % fault.values.size];
      putNumber(&blocks_.back()[i * size], a.memory.element, bad);
      if (i < mostNumbers) v.numbers[i] = bad;
    }
    v.pointer = blocks_.back().data();
    if (a.memory.planes) v.pointer = planes_.emplace_back(a.memory.planes, v.pointer).data();
  } else {
    for (int i = 0; i < std::min(a.count, 4); ++i) v.numbers[i] = fault.values[i % fault.values.size];
  }
}

void Spoiled::put(int argument, int part, double number)
{
  const Argument& a = call_.function().arguments[argument];
  Value& v = values[argument];
  if (part < mostNumbers) v.numbers[part] = number;
  if (a.role != Role::In) return;
  GuardedImage& image = call_.image(argument);
  unsigned char* const first = image.sample(0, 0, 0, 0);
  const auto bytes = static_cast<std::size_t>(image.rowBytes());
  if (std::none_of(blocks_.begin(), blocks_.end(), [&](const auto& block) { return block.data() == v.pointer; })) {
    blocks_.emplace_back(first, first + bytes);
    v.pointer = blocks_.back().data();
  }
  putNumber(static_cast<unsigned char*>(v.pointer) + part * elementBytes(a.memory.element), a.memory.element, number);
}

// ---- Walking the table ----

std::vector<const Function*> swept(const Subsystem& subsystem)
{
  std::vector<std::string> globs;
  if (const char* all = std::getenv("ZORI_SWEEP"))
    for (std::istringstream words(all); std::getline(words, globs.emplace_back(), ':');) {}
  const auto isWanted = [&](const Function& function) {
    return globs.empty() || std::any_of(globs.begin(), globs.end(), [&](const std::string& glob) {
             return fnmatch(glob.c_str(), function.name, 0) == 0;
           });
  };
  const char* const every = std::getenv("ZORI_SWEEP_EVERY");
  const int distance = std::max(every ? std::atoi(every) : 1, 1);
  std::vector<const Function*> functions;
  int number = 0;
  for (const Function& function : subsystem.functions)
    if (function.sweep && isWanted(function) && number++ % distance == 0) functions.push_back(&function);
  return functions;
}

} // namespace zoritest
