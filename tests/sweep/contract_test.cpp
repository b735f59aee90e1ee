// The calling contract of every function: what a valid call gives, which status each bad argument gives, which of two
// bad arguments decides, and that a failed call writes nothing.
#include "sweep.h"

using namespace zoritest;

ZORI_SWEEP_SUITE(ContractSweep);

namespace {

// One way to fail a check.
struct Variant {
  std::vector<Fault> faults;
  int number;
};

std::vector<Variant> variants(const Stage& stage)
{
  std::vector<Variant> all;
  if (stage.together) return {{{stage.faults.begin(), stage.faults.end()}, 0}};
  for (const Fault& fault : stage.faults) {
    all.push_back({{fault}, 0});
    if (fault.kind == FaultKind::Null) continue;
    all.push_back({{fault}, -1});
    all.push_back({{fault}, std::numeric_limits<int>::min()});
  }
  return all;
}

std::string words(const Function& function, const Variant& variant)
{
  std::string text;
  for (const Fault& fault : variant.faults) {
    text += (text.empty() ? "" : " and ") + std::string(function.arguments[fault.argument].name);
    if (fault.kind == FaultKind::Null)
      text += fault.part >= 0 ? " plane " + std::to_string(fault.part) + " null" : " null";
    else if (fault.kind == FaultKind::Size)
      text += (fault.part ? ".height " : ".width ") + std::to_string(variant.number);
    else if (fault.kind == FaultKind::Step) text += " " + std::to_string(variant.number);
    else text += " bad";
  }
  return text;
}

// A call with all these faults must give the status and change nothing.
std::string failure(Call& call, const std::vector<Variant>& bad, int status)
{
  Spoiled spoiled(call);
  std::string what;
  for (const Variant& variant : bad) {
    for (const Fault& fault : variant.faults) spoiled.apply(fault, variant.number);
    what += (what.empty() ? "" : ", ") + words(call.function(), variant);
  }
  const Result result = call.run(spoiled.values);
  const std::string where = std::string(call.function().name) + " with " + what;
  if (result.status != status)
    return where + ": status " + std::to_string(result.status) + " instead of " + std::to_string(status);
  const std::string change = call.changesAfterFailure();
  return change.empty() ? "" : where + " wrote: " + change;
}

bool compatible(const Variant& a, const Variant& b)
{
  for (const Fault& first : a.faults)
    for (const Fault& second : b.faults)
      if (!zoritest::compatible(first, second)) return false;
  return true;
}

} // namespace

TEST_P(ContractSweep, ValidCallSucceeds)
{
  eachFunction([](const Function& function) -> std::string {
    Call call(function, Plan{});
    const Result result = call.run();
    return call.succeeded(result) ? "" : call.describe() + " gives " + std::to_string(result.status);
  });
}

TEST_P(ContractSweep, EachBadArgumentGivesItsStatus)
{
  eachFunction([](const Function& function) -> std::string {
    Call call(function, Plan{});
    for (const Stage& stage : function.stages)
      for (const Variant& variant : variants(stage)) {
        const std::string fault = failure(call, {variant}, stage.status);
        if (!fault.empty()) return fault;
      }
    return "";
  });
}

TEST_P(ContractSweep, TheEarlierOfTwoChecksDecides)
{
  eachFunction([](const Function& function) -> std::string {
    Call call(function, Plan{});
    for (int i = 0; i < function.stages.size; ++i)
      for (int j = i + 1; j < function.stages.size; ++j)
        for (const Variant& first : variants(function.stages[i]))
          for (const Variant& second : variants(function.stages[j])) {
            if (first.number < -1 || second.number < -1 || !compatible(first, second)) continue;
            const std::string fault = failure(call, {second, first}, function.stages[i].status);
            if (!fault.empty()) return fault;
          }
    return "";
  });
}

TEST_P(ContractSweep, UntestedStepsMayBeZero)
{
  eachFunction([](const Function& function) -> std::string {
    for (int i = 0; i < function.arguments.size; ++i) {
      if (function.arguments[i].role != Role::Step) continue;
      bool tested = false;
      for (const Stage& stage : function.stages)
        for (const Fault& fault : stage.faults) tested |= fault.argument == i;
      if (tested) continue;
      Call call(function, Plan{});
      call.values()[i].numbers[0] = 0;
      const Result result = call.run();
      if (result.status < 0)
        return std::string(function.name) + " with " + function.arguments[i].name + " 0 gives " +
               std::to_string(result.status);
      const std::string change = call.changesOutside();
      if (!change.empty()) return std::string(function.name) + " with " + function.arguments[i].name + " 0: " + change;
    }
    return "";
  });
}
