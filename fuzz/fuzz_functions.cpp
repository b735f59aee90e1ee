// Calls the functions of the table with random arguments in valid memory, and with random faults. To be built with the
// sanitizers.   fuzz_functions [CALLS [SEED]]
#include "support/call.h"

#include <cstdio>
#include <cstdlib>

using namespace zoritest;

// A random call. True when status and memory are as they should be.
static bool tryOne(const Function& function, std::uint64_t seed)
{
  Random random(seed);
  Plan plan;
  plan.seed = seed;
  plan.region = {1 + random.below(random.below(4) ? 40 : 300), 1 + random.below(12)};
  plan.placement = static_cast<Placement>(random.below(3));
  plan.offset = plan.placement == Placement::Middle ? random.below(33) : 0;
  plan.steps = static_cast<Steps>(random.below(function.exemptions & kStepsExempt ? 2 : 3));
  plan.fill = random.below(4) ? Fill::Ordinary : Fill::AnyBits;
  plan.vary = true;
  Call call(function, plan);

  Spoiled spoiled(call);
  std::vector<std::pair<const Stage*, Fault>> applied;
  for (const Stage& stage : function.stages) {
    if (random.below(8)) continue;
    std::vector<Fault> faults(stage.faults.begin(), stage.faults.end());
    if (!stage.together) faults = {faults[static_cast<std::size_t>(random.below(stage.faults.size))]};
    bool fits = true;
    for (const Fault& fault : faults) {
      fits &= isFault(function, stage, fault, call.context());
      for (const auto& other : applied) fits &= compatible(fault, other.second);
    }
    if (!fits) continue;
    for (const Fault& fault : faults) spoiled.apply(fault, -random.below(1000)), applied.emplace_back(&stage, fault);
  }
  int expected = 0; // the status of the first check that fails
  Context context = call.context();
  context.values = spoiled.values.data();
  for (const auto& [stage, fault] : applied)
    if (!expected && isFault(function, *stage, fault, context)) expected = stage->status;
  if (!expected && !applied.empty()) return true; // one fault made another legal: the operands do not fit any more
  const Result result = call.run(spoiled.values);
  const bool statusFits = expected ? result.status == expected : call.mayGive(result.status);
  const std::string change = expected ? call.changesAfterFailure() : call.changesOutside();
  if (statusFits && change.empty()) return true;
  std::printf("%s: status %d, expected %s; %s\n", call.describe().c_str(), result.status,
              expected ? std::to_string(expected).c_str() : "success",
              change.empty() ? "memory is right" : change.c_str());
  return false;
}

int main(int argc, char** argv)
{
  const std::uint64_t most = argc > 1 ? std::strtoull(argv[1], nullptr, 0) : 20000;
  const std::uint64_t first = argc > 2 ? std::strtoull(argv[2], nullptr, 0) : 1;
  std::vector<const Function*> functions;
  for (const Subsystem& subsystem : subsystems())
    for (const Function* function : swept(subsystem)) functions.push_back(function);
  if (functions.empty()) return 1;

  std::uint64_t calls = 0, faults = 0;
  for (; calls < most && faults < 20; ++calls)
    if (!tryOne(*functions[calls % functions.size()], first * 1000003 + calls)) ++faults;
  std::printf("%llu calls of %zu functions, %llu faults\n", static_cast<unsigned long long>(calls), functions.size(),
              static_cast<unsigned long long>(faults));
  return faults ? 1 : 0;
}
