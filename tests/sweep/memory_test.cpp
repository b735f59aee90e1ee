// What every function may touch: nothing outside its operands, no byte of a source, and of a destination only the
// pixels of the region. Addresses and steps do not change results; a form in place gives what its partner gives.
#include "sweep.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

using namespace zoritest;

ZORI_SWEEP_SUITE(MemorySweep);

// Around each length of a vector, a batch of vectors and a row's rest; columns of one pixel; squares and more rows than
// a filter or a transposition works at a time.
static constexpr ZorImgSize regions[] = {{1, 1},   {1, 9},   {9, 1},   {3, 2},   {5, 8},  {7, 3},  {8, 17},
                                         {15, 3},  {16, 2},  {16, 16}, {17, 5},  {23, 4}, {31, 2}, {32, 9},
                                         {33, 3},  {47, 2},  {48, 8},  {63, 2},  {64, 3}, {65, 2}, {67, 3},
                                         {128, 9}, {129, 2}, {255, 1}, {17, 17}, {33, 34}};

// Calls the function; tells what is wrong with its status or with what it wrote.
static std::string fault(Call& call)
{
  const Result result = call.run();
  if (!call.mayGive(result.status)) return call.describe() + " gives " + std::to_string(result.status);
  const std::string change = call.changesOutside();
  return change.empty() ? "" : call.describe() + ": " + change;
}

// Calls of all shapes: the example's arguments over the regions; every other one, and all of functions whose shapes
// follow from other arguments, with numbers from their ranges.
static std::vector<Plan> plansOf(const Function& function)
{
  const bool anyRegion = takesAnyRegion(function), varies = hasRanges(function);
  std::vector<Plan> plans(anyRegion ? std::size(regions) : varies ? 16 : 1);
  for (std::size_t i = 0; i < plans.size(); ++i) {
    if (anyRegion) plans[i].region = regions[i];
    else plans[i].region = regions[0];
    plans[i].seed = i + 1;
    plans[i].vary = varies && (anyRegion ? i % 2 : i > 0);
  }
  return plans;
}

// What new blocks of working memory are filled with.
extern "C" void zoriTestFillBlocks(int byte);

// Nothing is read before it is written, or it does not show: not in vectors that go beyond a row either. The bytes are
// of no number in particular, zeros, great numbers, and no numbers.
TEST_P(MemorySweep, WorkingMemoryMayHoldAnything)
{
  const WorkingMemoryOnHeap all;
  eachFunction([](const Function& function) -> std::string {
    for (const Plan& shape : plansOf(function)) {
      std::vector<unsigned char> first;
      for (const int byte : {0xa5, 0x00, 0x7f, 0xff}) {
        Plan plan = shape;
        plan.bufferFilling = static_cast<unsigned char>(byte);
        zoriTestFillBlocks(byte);
        Call call(function, plan);
        call.run();
        if (byte == 0xa5) first = call.output();
        else if (call.output() != first) return call.describe() + " shows that its memory was " + std::to_string(byte);
      }
    }
    return "";
  });
  zoriTestFillBlocks(0xa5);
}

// Pages without access behind and in front of each operand; rows that adjoin in all operands, in none, or in one.
TEST_P(MemorySweep, OperandsMayTouchPagesWithoutAccess)
{
  eachFunction([](const Function& function) -> std::string {
    for (const Plan& shape : plansOf(function)) {
      std::vector<unsigned char> first;
      for (const Placement placement : {Placement::End, Placement::Begin}) {
        const WorkingMemoryOnHeap guarded(placement == Placement::End);
        for (int tight = -2, images = 1; tight < images; ++tight) { // -2: all of them, -1: none
          Plan plan = shape;
          plan.placement = placement;
          plan.steps = tight < -1 ? Steps::Tight : Steps::Padded;
          plan.tightImage = tight;
          Call call(function, plan);
          images = call.imagesWithSteps();
          const std::string wrong = fault(call);
          if (!wrong.empty()) return wrong;
          if (function.exemptions & kAlignmentExempt) continue;
          if (first.empty()) first = call.output();
          else if (first != call.output()) return call.describe() + " gives another result than with tight rows";
        }
      }
    }
    return "";
  });
}

// Rows 2^30 bytes apart: offsets of rows do not fit 32 bits.
#if UINTPTR_MAX > 0xffffffffu // it takes more addresses than 32 bits have
TEST_P(MemorySweep, RowsMayLieFarApart)
{
  eachFunction([](const Function& function) -> std::string {
    Plan plan;
    plan.region = {19, 6};
    Call near(function, plan);
    if (near.imagesWithSteps() == 0) return "";
    plan.steps = Steps::Huge;
    Call far(function, plan);
    for (Call* call : {&near, &far}) {
      const std::string wrong = fault(*call);
      if (!wrong.empty()) return wrong;
    }
    return near.output() == far.output() ? "" : far.describe() + " differs from the result with rows close together";
  });
}
#endif

static int widestPixel(const Function& function)
{
  int bytes = 1;
  for (const Argument& a : function.arguments)
    if (a.role == Role::Image)
      bytes = std::max(bytes, elementBytes(a.memory.element) * a.memory.count * a.memory.channels);
  return bytes;
}

// Regions for those whose path depends on their size, 1.5 MB in the widest operand: tight or odd rows give the same;
// heights of all kinds beside the numbers of rows that are worked at a time.
TEST_P(MemorySweep, LargeRegionsKeepToTheirOperands)
{
  eachFunction([](const Function& function) -> std::string {
    if (!takesAnyRegion(function)) return "";
    const int bytes = widestPixel(function);
    Plan plan;
    const WorkingMemoryOnHeap guarded;
    plan.region = {1031, std::max(3, 1537 / bytes)};
    plan.steps = Steps::Tight;
    Call tight(function, plan);
    plan.placement = Placement::Begin;
    plan.steps = function.exemptions & kStepsExempt ? Steps::Padded : Steps::Odd;
    Call odd(function, plan);
    plan.region = {997, std::max(3, 1601 / bytes)};
    plan.placement = Placement::End;
    plan.steps = Steps::Tight;
    Call other(function, plan);
    for (Call* call : {&tight, &odd, &other}) {
      const std::string wrong = fault(*call);
      if (!wrong.empty()) return wrong;
    }
    if (function.exemptions & kAlignmentExempt || tight.output() == odd.output()) return "";
    return odd.describe() + " differs from the result with tight rows";
  });
}

TEST_P(MemorySweep, OddAddressesAndStepsGiveTheSameResult)
{
  eachFunction([](const Function& function) -> std::string {
    for (const Plan& shape : plansOf(function))
      for (const Fill fill : {Fill::Ordinary, Fill::Special}) {
        if (fill == Fill::Special && !hasFloats(function)) continue;
        Plan plan = shape;
        plan.placement = Placement::Middle, plan.fill = fill;
        Call aligned(function, plan);
        plan.offset = 13; // of all rows alike, and those of ordinary numbers adjoin
        if (fill == Fill::Ordinary) plan.steps = Steps::Tight;
        Call shifted(function, plan);
        plan.offset = 1;
        plan.steps = function.exemptions & kStepsExempt ? Steps::Padded : Steps::Odd;
        Call odd(function, plan);
        for (Call* call : {&aligned, &shifted, &odd}) {
          const std::string wrong = fault(*call);
          if (!wrong.empty()) return wrong;
          if (!(function.exemptions & kAlignmentExempt) && aligned.output() != call->output())
            return call->describe() + " differs from the aligned result";
        }
      }
    return "";
  });
}

TEST_P(MemorySweep, InPlaceEqualsTheFormThatIsNot)
{
  eachFunction([](const Function& function) -> std::string {
    const Function* partner = findFunction(function.partner);
    if (!partner) return "";
    for (const Plan& plan : plansOf(function)) {
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
