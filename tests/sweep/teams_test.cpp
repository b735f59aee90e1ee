// Teams of threads and rounding: no result depends on the size of the team, nor on the caller's rounding mode unless
// the contract says so; the control word of every thread is after a call what it was before; whoever is documented to
// share its work does.
#include "sweep.h"

#include "frame/numeric_mode.h"

#include <atomic>
#include <map>
#include <omp.h>

using namespace zoritest;

// Work is shared however little it is, until this is switched off again.
extern "C" void zoriTestShareAllWork(int on);
// The teams of more than one thread asked for since the last call.
extern "C" int zoriTestTeams();

ZORI_SWEEP_SUITE(TeamsSweep);

namespace {

constexpr unsigned statusFlags = 0x3f, flushDenormals = 0x8040;
constexpr unsigned fields[] = {zori::roundNearest, zori::roundDownward, zori::roundUpward, zori::roundTowardZero};
const char* const fieldNames[] = {"nearest", "down", "up", "zero"};

unsigned wordNow() { return zori::controlWord() & ~statusFlags; }

// The threads of a team but the caller's round in a way of their own, which no call may take over or change.
class StrangeTeam {
public:
  explicit StrangeTeam(int threads) : threads_(threads)
  {
    omp_set_num_threads(threads);
    zoriTestShareAllWork(1);
    changed();
  }
  ~StrangeTeam()
  {
    visit([] { zori::setControlWord(plain), isMarked = false; });
    zoriTestShareAllWork(0);
    omp_set_num_threads(1);
  }
  // Threads whose control word is not what it was. (New ones come when a call had asked for fewer.)
  int changed()
  {
    std::atomic<int> count{0};
    visit([&] {
      count += isMarked && wordNow() != strange;
      zori::setControlWord(strange), isMarked = true;
    });
    return count;
  }

private:
  static constexpr unsigned plain = 0x1f80, strange = plain | zori::roundUpward | flushDenormals;
  template <class Do> void visit(Do visitor)
  {
#pragma omp parallel num_threads(threads_)
    if (omp_get_thread_num() > 0) visitor();
  }
  int threads_;
  static thread_local bool isMarked;
};
thread_local bool StrangeTeam::isMarked = false;

// Calls under a control word; what is wrong with the word afterwards, or "".
std::string runUnder(Call& call, unsigned bits, Result* result)
{
  const unsigned before = wordNow(), wanted = before | bits;
  zori::setControlWord(wanted);
  *result = call.run();
  const unsigned after = wordNow();
  zori::setControlWord(before);
  if (after == wanted) return "";
  char text[80];
  std::snprintf(text, sizeof text, " leaves the control word %04x where it found %04x", after, wanted);
  return call.describe() + text;
}

bool givesFloats(const Function& function)
{
  for (const Argument& a : function.arguments)
    if (a.memory.written && (a.memory.element == Element::T32f || a.memory.element == Element::T64f)) return true;
  return false;
}

struct Answer {
  int status = 0;
  std::vector<unsigned char> output;
  bool operator==(const Answer& other) const { return status == other.status && output == other.output; }
};

} // namespace

// The example, special numbers, and other arguments: the path may depend on them.
static constexpr int variants = 5;

TEST_P(TeamsSweep, NeitherTeamNorRoundingShows)
{
  std::map<std::pair<const Function*, int>, Answer> first[4]; // by field
  std::map<const Function*, bool> differs;
  for (const int threads : {1, 2, 7}) {
    StrangeTeam team(threads);
    eachFunction([&](const Function& function) -> std::string {
      const bool callers = function.rounding == RoundingRule::Callers, teamShows = function.exemptions & kThreadsExempt;
      for (int variant = 0; variant < variants; ++variant)
        for (int f = 0; f < 4; ++f) {
          Plan plan;
          plan.region = {67, 71};
          plan.seed = static_cast<std::uint64_t>(variant);
          plan.fill = variant == 1 ? Fill::Special : Fill::Ordinary;
          plan.vary = variant > 1;
          if (variant == 1 && !hasFloats(function)) continue;
          Call call(function, plan);
          Result result;
          const std::string wrong = runUnder(call, fields[f], &result);
          if (!wrong.empty()) return wrong;
          const std::string where =
            call.describe() + " with " + std::to_string(threads) + " threads, rounding " + fieldNames[f];
          if (!call.mayGive(result.status)) return where + " gives " + std::to_string(result.status);
          const Answer outcome = {result.status, call.output()};
          const auto key = std::pair{&function, variant};
          // the reference: one thread (this team where it may show) to nearest (or so where the caller's rounding
          // counts)
          auto& references = first[callers ? f : 0];
          const auto known = references.find(key);
          if (known == references.end() || (teamShows && f == 0)) references[key] = outcome;
          else if (!(known->second == outcome)) return where + " gives another result";
          if (callers && f && !(first[0][key] == outcome)) differs[&function] = true;
        }
      const int changed = team.changed();
      return changed
               ? std::string(function.name) + " changes the control word of " + std::to_string(changed) + " threads"
               : "";
    });
  }
  std::map<std::string, bool> heeds; // by family: not every function meets an operand that shows it
  for (const Function* function : GetParam().functions)
    if (function->rounding == RoundingRule::Callers && hasFloats(*function) && givesFloats(*function))
      heeds[function->family] |= differs[function];
  for (const auto& [family, does] : heeds) EXPECT_TRUE(does) << family << " does not heed the caller's rounding";
}

// With the example's arguments or others: some share their work for one size of mask alone.
TEST_P(TeamsSweep, WhoeverIsSaidToShareItsWorkDoes)
{
  omp_set_num_threads(2);
  zoriTestShareAllWork(1);
  eachFunction([](const Function& function) -> std::string {
    bool takesImages = false, shares = false;
    for (const Argument& a : function.arguments) takesImages |= a.role == Role::Image;
    for (int i = 0; i < 16 && !shares; ++i) {
      Plan plan;
      plan.region = i % 4 == 3 ? ZorImgSize{40, 400} : ZorImgSize{67, 71}; // some share bands of many rows
      plan.seed = static_cast<std::uint64_t>(i + 1);
      plan.vary = i > 0;
      Call call(function, plan);
      zoriTestTeams();
      call.run();
      shares = zoriTestTeams() > 0;
    }
    const bool mayShare = function.team != Team::No;
    if (shares ? mayShare : !mayShare || !takesImages) return ""; // makers of records share at times
    return std::string(function.name) + (shares ? " shares its work" : " works alone");
  });
  zoriTestShareAllWork(0);
}

TEST_P(TeamsSweep, FlushedDenormalsStayFlushed)
{
  eachFunction([](const Function& function) -> std::string {
    Call call(function, Plan{});
    Result result;
    return runUnder(call, zori::roundDownward | flushDenormals, &result);
  });
}

TEST_P(TeamsSweep, FailingCallsLeaveTheControlWord)
{
  eachFunction([](const Function& function) -> std::string {
    Call call(function, Plan{});
    for (const Stage& stage : function.stages) {
      Spoiled spoiled(call);
      for (const Fault& fault : stage.faults) {
        spoiled.apply(fault, 0);
        if (!stage.together) break;
      }
      const unsigned before = wordNow();
      zori::setControlWord(before | zori::roundUpward);
      const Result result = call.run(spoiled.values);
      const unsigned after = wordNow() & zori::roundingField;
      zori::setControlWord(before);
      if (after != (function.rounding == RoundingRule::Kept ? zori::roundNearest : zori::roundUpward))
        return std::string(function.name) + " failing with " + std::to_string(result.status) +
               " leaves rounding field " + std::to_string(after);
    }
    return "";
  });
}
