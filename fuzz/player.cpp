#include "player.h"

#include "support/special_numbers.h"

#include <algorithm>
#include <climits>
#include <omp.h>
#include <xmmintrin.h>

// Of the testing build of the library; other builds go without.
extern "C" {
__attribute__((weak)) int zoriTestFailAllocationAt(int n);
__attribute__((weak)) int zoriTestLiveBlocks();
__attribute__((weak)) void zoriTestUseHeap(int on);
__attribute__((weak)) void zoriTestShareAllWork(int on);
}

namespace zoritest {
namespace {

constexpr int mostCalls = 32;

const std::vector<const Function*>& functions()
{
  static const std::vector<const Function*> all = [] {
    std::vector<const Function*> list;
    for (const Subsystem& subsystem : subsystems())
      for (const Function* function : swept(subsystem)) list.push_back(function);
    return list;
  }();
  return all;
}

// ---- Numbers that may be anything ----

// The catalogue does not tell that memory depends on these, or they stand for the time that a call takes.
bool isBound(const Argument& a)
{
  static const char* const names[] = {"numIter", "fraction"};
  return std::any_of(std::begin(names), std::end(names), [&](const char* name) { return !std::strcmp(a.name, name); });
}

// Transforms of millions of numbers, which are planned for when the record is made; fftOrder is that of both sides.
bool takesLong(const Argument& a, double number)
{
  const bool isSquare = !std::strcmp(a.name, "fftOrder");
  return (isSquare || !std::strcmp(a.name, "orderX") || !std::strcmp(a.name, "orderY")) &&
         number > (isSquare ? 8 : 14) && number < 31;
}

bool mayBeAnything(const Function& function, int index)
{
  const Argument& a = function.arguments[index];
  if ((a.role != Role::Param && a.role != Role::In) || a.memory.planes || a.number == Element::Pointer) return false;
  if (a.role == Role::In && !a.example.size && !a.ranges.size) return false; // its contents are pixels of a kind
  for (const Argument& other : function.arguments)
    if (other.memory.bitOffset == index) return false;
  return !isBound(a);
}

// What memory the numbers of a call ask for.
void findReach(const Function& function, Context context, std::vector<double>& numbers)
{
  numbers.clear();
  const auto add = [&](Formula formula) {
    if (formula) numbers.push_back(formula(context));
  };
  const auto addLink = [&](const Link& link) {
    for (const Passing& passing : link.passing) add(passing.number);
  };
  for (const Argument& a : function.arguments) {
    const Extent& e = a.memory.extent;
    for (context.plane = 0; context.plane < std::max(a.memory.planes, 1); ++context.plane)
      for (const Formula formula : {e.width, e.height, e.left, e.top, e.right, e.bottom}) add(formula);
    context.plane = 0;
    addLink(a.size);
  }
  for (const Link& link : function.makers) addLink(link);
}

// As a small integer takes it.
double wrapped(Element element, double number)
{
  switch (element) {
  case Element::T8u: return static_cast<std::uint8_t>(static_cast<std::int64_t>(number));
  case Element::T8s: return static_cast<std::int8_t>(static_cast<std::int64_t>(number));
  case Element::T16u: return static_cast<std::uint16_t>(static_cast<std::int64_t>(number));
  case Element::T16s: return static_cast<std::int16_t>(static_cast<std::int64_t>(number));
  case Element::T32u: return static_cast<std::uint32_t>(static_cast<std::int64_t>(number));
  case Element::T32s: return static_cast<std::int32_t>(static_cast<std::int64_t>(number));
  case Element::T32f: return static_cast<float>(number);
  default: return number;
  }
}

double chosen(Element element, double now, Random& random)
{
  const bool isFloating = element == Element::T32f || element == Element::T64f;
  static constexpr int ends[] = {INT_MIN, INT_MIN + 1, -1, 0, 1, 127, 255, 32767, 65535, 65536, INT_MAX - 1, INT_MAX};
  switch (random.below(4)) {
  case 0: return wildNumber(element, random);
  case 1: return random.below(64) - 16;
  case 2: return now + random.below(5) - 2;
  default:
    return isFloating ? specialNumbers[random.below(sizeof specialNumbers / sizeof *specialNumbers)]
                      : ends[random.below(sizeof ends / sizeof *ends)];
  }
}

// ---- Statuses ----

// A step of one byte, too small for most images, holds a row of one byte.
bool holdsItsRow(Call& call, const Fault& fault)
{
  const Function& function = call.function();
  for (int i = 0; i < function.arguments.size; ++i)
    if (function.arguments[i].role == Role::Image && function.arguments[i].memory.step == fault.argument &&
        fault.values.size == 1 && fault.values[0] == 1 && call.image(i).rowBytes() == 1)
      return true;
  return false;
}

bool isBadRecord(const Fault& fault) { return fault.values.size == 1 && fault.values[0] == kBadRecord; }

// Whether a number of the call is beyond the bounds that the stage tests; of a NaN a bound does not say.
enum class Beyond { No, Yes, NotANumber };
Beyond isBeyond(const Function& function, const Stage& stage, Context context)
{
  Beyond found = Beyond::No;
  for (const Limit& limit : function.limits) {
    if (&function.stages[limit.stage] != &stage) continue;
    const Argument& a = function.arguments[limit.argument];
    for (int part = 0; part < std::min(a.count, 4); ++part) {
      context.plane = part;
      const double number = context.values[limit.argument].numbers[part];
      if (limit.part >= 0 && limit.part != part) continue;
      if (std::isnan(number) || (limit.bound && std::isnan(limit.bound(context)))) found = Beyond::NotANumber;
      else if (!isLegal(limit, number, context)) return Beyond::Yes;
    }
  }
  return found;
}

// True when the stage tests numbers in a way that no bound tells.
bool mayRefuse(const Function& function, const Stage& stage)
{
  return std::any_of(stage.faults.begin(), stage.faults.end(), [&](const Fault& fault) {
    return fault.kind == FaultKind::Value && !isBadRecord(fault) &&
           std::none_of(function.limits.begin(), function.limits.end(),
                        [&](const Limit& limit) { return &function.stages[limit.stage] == &stage; });
  });
}

// ---- Playing ----

std::uint32_t tagOf(const void* record)
{
  std::uint32_t tag;
  std::memcpy(&tag, record, sizeof tag);
  return tag;
}

class Player {
public:
  Player(Bytes bytes, const PlayRules& rules) : bytes_(bytes), rules_(rules) {}
  void play();
  Played played;

private:
  struct Applied {
    const Stage* stage;
    Fault fault;
  };
  Plan planFor(const Function& function, Random& random);
  void playOne(const Function& function);
  void drawPlaces(const Function& function, Random& random, Plan& plan);
  void say(const std::string& words) { words_ += ", " + words; }
  std::uint32_t spoilRecord(Spoiled& spoiled, Call& call, Random& random, const std::string& kind);
  void spoilArguments(Spoiled& spoiled, Call& call, Random& random);
  void spoilNumbers(Spoiled& spoiled, Call& call, Random& random);
  void judge(Call& call, const Spoiled& spoiled, const Result& result, bool hasNoMemory);

  Bytes bytes_;
  const PlayRules rules_;
  std::map<std::string, std::shared_ptr<Record>> shelf_; // by the functions that make them
  std::vector<Applied> applied_;
  std::vector<double> reach_, otherReach_;
  bool isTeamed_ = false; // some calls of this input have a team
  bool isWild_ = false;   // numbers have been chosen freely
  std::string words_;     // where they are told
};

Plan Player::planFor(const Function& function, Random& random)
{
  Plan plan;
  // small, now and then large
  static constexpr int widths[] = {8, 20, 20, 40, 40, 40, 70, 250}, heights[] = {4, 4, 4, 7, 7, 7, 12, 40};
  plan.region = {1 + random.below(widths[random.below(8)]), 1 + random.below(heights[random.below(8)])};
  if (!random.below(256)) plan.region = {1 + random.below(random.below(2) ? 200 : 5000), 1 + random.below(30)};
  plan.placement = static_cast<Placement>(random.below(3));
  plan.offset = plan.placement == Placement::Middle ? random.below(64) : 0;
  plan.steps = static_cast<Steps>(random.below(function.exemptions & kStepsExempt ? 2 : 3));
  if (random.below(4) == 0) plan.padding = random.below(100) & (function.exemptions & kStepsExempt ? ~7 : ~0);
  const int fill = random.below(4);
  plan.fill = static_cast<Fill>(fill % 3);
  if (fill == 3) {
    plan.pattern.resize(static_cast<std::size_t>(1 + random.below(16)));
    for (unsigned char& byte : plan.pattern) byte = static_cast<unsigned char>(random.below(256));
  }
  plan.vary = random.below(8) != 0;
  plan.wild = plan.vary && random.below(2);
  plan.bytes = &bytes_;
  if (random.below(2)) drawPlaces(function, random, plan);
  return plan;
}

// Rectangles that have no range: how much memory they ask for follows from them.
void Player::drawPlaces(const Function& function, Random& random, Plan& plan)
{
  for (int i = 0; i < function.arguments.size; ++i) {
    const Argument& a = function.arguments[i];
    if (a.role != Role::Param || std::strcmp(a.name, "dstRoi") != 0 || a.ranges.size) continue;
    const int numbers[] = {random.below(2) ? 0 : random.below(20), random.below(2) ? 0 : random.below(12),
                           1 + random.below(40), 1 + random.below(24)};
    for (int part = 0; part < 4; ++part) plan.settings.push_back({i, part, double(numbers[part])});
    isWild_ = true;
  }
}

// A record of another kind, a broken one or one that was released takes the place of a valid one. Returns what must be
// put back in front of it.
std::uint32_t Player::spoilRecord(Spoiled& spoiled, Call& call, Random& random, const std::string& kind)
{
  const Function& function = call.function();
  if (!call.record()) return 0;
  const bool releases = zoriTestLiveBlocks && !rules_.build; // what was released can be read
  for (const Stage& stage : function.stages)
    for (const Fault& fault : stage.faults) {
      if (!isBadRecord(fault) || random.below(6)) continue;
      void* const own = call.record()->pointer();
      if (releases && !random.below(8)) {
        auto dead = std::make_unique<Record>(function, Plan(), call.values());
        void* const place = dead->isReleased() ? dead->pointer() : nullptr;
        dead.reset();
        if (!place || tagOf(place) == tagOf(own)) continue;
        spoiled.putRecord(fault.argument, place);
        applied_.push_back({&stage, fault});
        if (rules_.tells) say("released record");
        return 0;
      }
      if (random.below(2)) {
        const std::uint32_t change = random.next() | 1u << random.below(32), tag = tagOf(own) ^ change;
        std::memcpy(own, &tag, sizeof tag);
        applied_.push_back({&stage, fault});
        if (rules_.tells) say("broken record");
        return change;
      }
      for (const auto& [otherKind, other] : shelf_) {
        if (otherKind == kind || tagOf(other->pointer()) == tagOf(own)) continue;
        spoiled.putRecord(fault.argument, other->pointer());
        applied_.push_back({&stage, fault});
        if (rules_.tells) say("record of " + otherKind);
        return 0;
      }
    }
  return 0;
}

void Player::spoilArguments(Spoiled& spoiled, Call& call, Random& random)
{
  const Function& function = call.function();
  for (const Stage& stage : function.stages) {
    if (random.below(16)) continue;
    std::vector<Fault> faults(stage.faults.begin(), stage.faults.end());
    if (!stage.together) faults = {faults[static_cast<std::size_t>(random.below(stage.faults.size))]};
    bool fits = true;
    for (const Fault& fault : faults) {
      fits &= isFault(function, stage, fault, call.context()) && !holdsItsRow(call, fault);
      for (const Applied& other : applied_) fits &= compatible(fault, other.fault);
    }
    const int number = random.below(4) ? -random.below(1000) : INT_MIN + random.below(3);
    for (const Fault& fault : faults) {
      if (!fits) continue;
      spoiled.apply(fault, number);
      applied_.push_back({&stage, fault});
      if (rules_.tells) say(std::string("fault in ") + function.arguments[fault.argument].name);
    }
  }
}

void Player::spoilNumbers(Spoiled& spoiled, Call& call, Random& random)
{
  const Function& function = call.function();
  Context context = call.context();
  for (int i = 0; i < function.arguments.size; ++i) {
    const Argument& a = function.arguments[i];
    const bool isTaken =
      std::any_of(applied_.begin(), applied_.end(), [=](const Applied& other) { return other.fault.argument == i; });
    if (isTaken || !mayBeAnything(function, i) || random.below(4)) continue;
    const Element element = a.role == Role::In ? a.memory.element : a.number;
    const int part = random.below(std::max(a.count, 1));
    const double number = wrapped(element, chosen(element, part < 4 ? spoiled.values[i].numbers[part] : 0, random));
    if (takesLong(a, number)) continue;
    if (part < 4) {
      context.values = spoiled.values.data();
      findReach(function, context, reach_);
      double& place = spoiled.values[static_cast<std::size_t>(i)].numbers[part];
      const double before = place;
      place = number;
      findReach(function, context, otherReach_);
      place = before;
      if (!reach_.empty() && std::memcmp(reach_.data(), otherReach_.data(), reach_.size() * sizeof(double)) != 0)
        continue;
    }
    spoiled.put(i, part, number);
    isWild_ = true;
    if (rules_.tells) say(std::string(a.name) + "[" + std::to_string(part) + "] " + std::to_string(number));
  }
}

void Player::judge(Call& call, const Spoiled& spoiled, const Result& result, bool hasNoMemory)
{
  const Function& function = call.function();
  Context context = call.context();
  context.values = spoiled.values.data();
  int expected = 0; // the status of the first check that fails
  std::vector<int> others;
  for (const Stage& stage : function.stages) {
    const bool isSpoiled = std::any_of(applied_.begin(), applied_.end(), [&](const Applied& a) {
      return a.stage == &stage && isFault(function, stage, a.fault, context);
    });
    const Beyond beyond = isBeyond(function, stage, context);
    if (isSpoiled || beyond == Beyond::Yes) {
      expected = stage.status;
      break;
    }
    if (beyond == Beyond::NotANumber || (isWild_ && mayRefuse(function, stage))) others.push_back(stage.status);
  }
  if (!expected && !applied_.empty()) return; // one fault made another legal: the operands do not fit any more
  if (hasNoMemory) others.insert(others.end(), {ZorErrAlloc, ZorErrNoMem, ZorErrNullPtr});
  if (isWild_)
    others.insert(others.end(), {ZorErrQuad, ZorErrCoeff, ZorErrRect, ZorErrSize}); // singular maps, places far outside
  const int status = result.status;
  const bool fits = function.callable.returnsPointer ||
                    std::find(others.begin(), others.end(), status) != others.end() ||
                    (expected ? status == expected : call.mayGive(status));
  const std::string change = call.changesAfter(status);
  if (fits && change.empty()) return;
  played.fault = std::string(function.name) + ": status " + std::to_string(status) + ", expected " +
                 (expected ? std::to_string(expected) : "success") + "; " +
                 (change.empty() ? "memory is right" : change);
}

void Player::playOne(const Function& listed)
{
  const Function& function = rules_.build ? *rules_.build->find(listed) : listed;
  const int low = bytes_.byte();
  Random random(static_cast<std::uint64_t>(low | bytes_.byte() << 8), &bytes_);
  isWild_ = false;
  Plan plan = planFor(function, random);
  plan.seed = static_cast<std::uint64_t>(low);
  std::string kind;
  if (function.makers.size && followsRecord(function)) {
    for (const Link& maker : function.makers) kind += (kind.empty() ? "" : " ") + std::string(maker.function);
    const auto known = shelf_.find(kind);
    if (known != shelf_.end() && random.below(4)) plan.record = known->second;
  }
  const int threads = isTeamed_ && random.below(2) ? 2 + random.below(3) : 1;
  const int fails = random.below(16) ? 0 : 1 + random.below(4);
  const int rounding = random.below(4) ? 0 : random.below(4);
  const bool usesHeap = random.below(4) == 0;

  Call call(function, plan);
  if (!kind.empty()) shelf_[kind] = call.record();
  applied_.clear();
  if (rules_.tells) {
    words_ = call.describe() + ", " + std::to_string(threads) + " threads, rounding " + std::to_string(rounding);
    if (fails) say("allocation " + std::to_string(fails) + " failing");
  }
  Spoiled spoiled(call);
  const std::uint32_t tagChange = spoilRecord(spoiled, call, random, kind);
  if (random.below(2)) spoilArguments(spoiled, call, random);
  // values that are bad in the company of an example's may be good in others, and ask for other memory
  const bool isCertain = std::all_of(applied_.begin(), applied_.end(), [&](const Applied& a) {
    return a.fault.kind != FaultKind::Value || isBadRecord(a.fault);
  });
  if (isCertain && random.below(2)) spoilNumbers(spoiled, call, random);
  if (rules_.tells) std::fprintf(stderr, "%s\n", words_.c_str());

  if (threads > 1) omp_set_num_threads(threads);
  if (zoriTestShareAllWork) zoriTestShareAllWork(threads > 1);
  if (zoriTestUseHeap) zoriTestUseHeap(usesHeap);
  if (zoriTestFailAllocationAt) zoriTestFailAllocationAt(fails);
  Result result;
  bool changesMode;
  {
    const RoundingField field(static_cast<unsigned>(rounding));
    constexpr unsigned flags = 0x3f;
    const unsigned mode = _mm_getcsr() & ~flags;
    result = call.run(spoiled.values);
    changesMode = (_mm_getcsr() & ~flags) != mode && function.rounding != RoundingRule::Kept;
  }
  const bool hasNoMemory = zoriTestFailAllocationAt && zoriTestFailAllocationAt(0) >= fails && fails;
  if (zoriTestUseHeap) zoriTestUseHeap(0);
  if (zoriTestShareAllWork) zoriTestShareAllWork(0);
  if (threads > 1) omp_set_num_threads(1);
  if (tagChange) {
    const std::uint32_t tag = tagOf(call.record()->pointer()) ^ tagChange;
    std::memcpy(call.record()->pointer(), &tag, sizeof tag);
  }
  ++played.calls;
  judge(call, spoiled, result, hasNoMemory);
  if (played.fault.empty() && changesMode)
    played.fault = std::string(function.name) + ": the control register is not as it was";
  if (!rules_.keepsResults) return;
  played.moves.push_back({&function, resultsOf(call, result)});
  unifyNans(function, played.moves.back().results);
}

void Player::play()
{
  const int blocks = zoriTestLiveBlocks ? zoriTestLiveBlocks() : 0;
  omp_set_num_threads(1);
  isTeamed_ = bytes_.byte() % 128 == 1;
  for (int n = 0; n < mostCalls && bytes_.left() >= 4 && played.fault.empty(); ++n) {
    const int low = bytes_.byte();
    playOne(*functions()[static_cast<std::size_t>(low | bytes_.byte() << 8) % functions().size()]);
  }
  shelf_.clear();
  const int left = zoriTestLiveBlocks ? zoriTestLiveBlocks() - blocks : 0;
  if (left && played.fault.empty()) played.fault = std::to_string(left) + " blocks are left behind";
}

} // namespace

Played play(const unsigned char* data, std::size_t size, const PlayRules& rules)
{
  Player player(Bytes(data, size), rules);
  player.play();
  return std::move(player.played);
}

} // namespace zoritest
