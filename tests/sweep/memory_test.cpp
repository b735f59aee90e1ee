// What every function may touch: nothing outside its operands, no byte of a source, and of a destination only the
// pixels of the region. Addresses and steps do not change results; a form in place gives what its partner gives.
#include "sweep.h"

using namespace zoritest;

ZORI_SWEEP_SUITE(MemorySweep);

static constexpr ZorImgSize regions[] = {{1, 1}, {3, 2}, {17, 5}, {67, 3}};

// Calls the function; tells what is wrong with its status or with what it wrote.
static std::string fault(Call& call)
{
  const Result result = call.run();
  if (!call.succeeded(result)) return call.describe() + " gives " + std::to_string(result.status);
  const std::string change = call.changesOutside();
  return change.empty() ? "" : call.describe() + ": " + change;
}

static bool isFixed(const Function& function)
{
  for (const Argument& argument : function.arguments)
    if (argument.role == Role::Region && argument.example.size == 0) return false;
  return true;
}

// The regions that the function takes.
static Span<ZorImgSize> regionsOf(const Function& function) { return {regions, isFixed(function) ? 1 : 4}; }

TEST_P(MemorySweep, OperandsMayTouchPagesWithoutAccess)
{
  eachFunction([](const Function& function) -> std::string {
    for (const ZorImgSize region : regionsOf(function))
      for (const Placement placement : {Placement::End, Placement::Begin})
        for (const Steps steps : {Steps::Tight, Steps::Padded}) {
          Plan plan;
          plan.region = region, plan.placement = placement, plan.steps = steps;
          Call call(function, plan);
          const std::string wrong = fault(call);
          if (!wrong.empty()) return wrong;
        }
    return "";
  });
}

TEST_P(MemorySweep, OddAddressesAndStepsGiveTheSameResult)
{
  eachFunction([](const Function& function) -> std::string {
    for (const ZorImgSize region : regionsOf(function)) {
      Plan plan;
      plan.region = region, plan.placement = Placement::Middle;
      Call aligned(function, plan);
      plan.offset = 1;
      plan.steps = function.exemptions & kStepsExempt ? Steps::Padded : Steps::Odd;
      Call odd(function, plan);
      for (Call* call : {&aligned, &odd}) {
        const std::string wrong = fault(*call);
        if (!wrong.empty()) return wrong;
      }
      if (!(function.exemptions & kAlignmentExempt) && aligned.output() != odd.output())
        return odd.describe() + " differs from the aligned result";
    }
    return "";
  });
}

TEST_P(MemorySweep, InPlaceEqualsTheFormThatIsNot)
{
  eachFunction([](const Function& function) -> std::string {
    const Function* partner = findFunction(function.partner);
    if (!partner) return "";
    for (const ZorImgSize region : regionsOf(function)) {
      Plan plan;
      plan.region = region;
      Call inPlace(function, plan), plain(*partner, plan);
      for (Call* call : {&inPlace, &plain}) {
        const std::string wrong = fault(*call);
        if (!wrong.empty()) return wrong;
      }
      if (inPlace.output() != plain.output()) return inPlace.describe() + " differs from " + partner->name;
    }
    return "";
  });
}
