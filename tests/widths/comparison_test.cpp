// Both 64-bit builds of the library, loaded by path, side by side: every function of the catalogue gets the same inputs
// in both, and gives the same status and the same bytes. Numbers that are no numbers are compared as such: where both
// operands of a sum or product are NaN, which of them comes out is the compiler's choice.
//
// Functions go in batches, every so many of a subsystem, that take a few seconds each. The results are hashed as well,
// a file a batch, so that builds that cannot be loaded together can be compared.
#include "support/results.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>

using namespace zoritest;

namespace {

// ---- The libraries ----

#ifdef ZORI_WIDE_LIBRARY
bool isWideProcessor() { return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2"); }
Build& baseBuild()
{
  static Build build(ZORI_BASE_LIBRARY);
  return build;
}
Build* wideBuild()
{
  static Build build(isWideProcessor() ? ZORI_WIDE_LIBRARY : nullptr);
  return isWideProcessor() ? &build : nullptr;
}
#else
Build& baseBuild()
{
  static Build build(nullptr);
  return build;
}
Build* wideBuild() { return nullptr; }
#endif

// ---- The state of the processor ----

#ifdef __x86_64__
// The upper halves of the vector registers are in use: code for 16 bytes runs many times slower then.
bool upperHalvesInUse()
{
  unsigned low, high;
  asm volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(1));
  return (low & 4) != 0;
}
bool tellsOfUpperHalves()
{
  static const bool tells = [] {
    unsigned a = 0xd, b, c = 1, d;
    asm volatile("cpuid" : "+a"(a), "=b"(b), "+c"(c), "=d"(d));
    if (!(a & 4)) return false; // no xgetbv of what is in use
    asm volatile("vzeroupper" ::: "memory");
    const bool before = upperHalvesInUse();
    asm volatile("vpcmpeqb %%ymm0, %%ymm0, %%ymm0" ::: "xmm0");
    const bool between = upperHalvesInUse();
    asm volatile("vzeroupper" ::: "memory");
    return !before && between && !upperHalvesInUse();
  }();
  return tells;
}
#else
bool upperHalvesInUse() { return false; }
bool tellsOfUpperHalves() { return false; }
#endif

// ---- Results ----

Results resultsOf(const Function& function, const Plan& plan, unsigned rounding)
{
  Call call(function, plan);
  const auto run = [&] {
    const RoundingField field(rounding);
    return call.run();
  };
  return resultsOf(call, run());
}

void addTo(std::uint64_t& hash, const void* data, std::size_t bytes)
{
  for (std::size_t i = 0; i < bytes; ++i) hash = (hash ^ static_cast<const unsigned char*>(data)[i]) * 0x100000001b3u;
}

// ---- The plans ----

struct Trial {
  Plan plan;
  unsigned rounding;
};

// All widths to 100 and some beyond, with everything else varying along.
std::vector<Trial> trials()
{
  std::vector<int> widths;
  for (int width = 1; width <= 100; ++width) widths.push_back(width);
  for (const int width : {127, 128, 129, 255, 1000, 1037, 4201}) widths.push_back(width);
  std::vector<Trial> all;
  for (const int width : widths)
    for (const Fill fill : {Fill::Ordinary, Fill::AnyBits, Fill::Special, Fill::Special}) {
      const int n = static_cast<int>(all.size());
      Trial trial;
      trial.plan.region = {width, width > 128 ? 2 : n % 9 == 5 ? 9 + n % 31 : 1 + n % 6};
      trial.plan.steps = static_cast<Steps>(n / 2 % 3);
      trial.plan.placement = n % 5 < 2 ? Placement::Middle : n % 5 < 4 ? Placement::End : Placement::Begin;
      trial.plan.offset = trial.plan.placement == Placement::Middle ? n * 7 % 64 : 0;
      trial.plan.seed = static_cast<std::uint64_t>(n + 1);
      trial.plan.fill = fill;
      trial.plan.vary = n % 4 != 0;
      trial.rounding = static_cast<unsigned>(n / 2 % 5 == 0 ? 0 : n / 2 % 4);
      all.push_back(trial);
    }
  return all;
}

// Normalised moments take powers from the C library, whose last place differs between its own builds: their hash leaves
// the numbers out (their accuracy is tested with the statistics).
bool hasPowersOfTheCLibrary(const Function& function)
{
  return std::strstr(function.name, "Normalized") && std::strstr(function.name, "Moment");
}

// ---- Batches ----

struct Batch {
  const Subsystem* subsystem;
  std::size_t number, batches; // of the subsystem

  std::string name() const { return subsystem->name + ("_" + std::to_string(number)); }
};

std::vector<Batch> batches()
{
  constexpr std::size_t most = 100; // functions
  std::vector<Batch> all;
  for (const Subsystem& subsystem : subsystems()) {
    const std::size_t count = (static_cast<std::size_t>(subsystem.functions.size) + most - 1) / most;
    for (std::size_t k = 0; k < count; ++k) all.push_back({&subsystem, k, count});
  }
  return all;
}

class Widths : public testing::TestWithParam<Batch> {};

TEST_P(Widths, GiveTheSameResults)
{
  Build* const wide = wideBuild();
#ifdef ZORI_WIDE_LIBRARY
  ASSERT_TRUE(baseBuild().isLoaded());
  if (wide) {
    ASSERT_TRUE(wide->isLoaded());
    EXPECT_TRUE(tellsOfUpperHalves()) << "whether upper halves are cleared cannot be seen on this processor";
  } else {
    std::printf("** NOT COMPARED: THIS PROCESSOR IS NOT OF THE CLASS x86-64-v3 **\n");
  }
#endif
  const std::vector<Trial> all = trials();
  std::uint64_t hash = 0xcbf29ce484222325;
  int compared = 0;
  const std::vector<const Function*> functions = swept(*GetParam().subsystem);
  for (std::size_t i = GetParam().number; i < functions.size(); i += GetParam().batches) {
    const Function* const function = functions[i];
    const Function* const base = baseBuild().find(*function);
    const Function* const other = wide ? wide->find(*function) : nullptr;
    ASSERT_TRUE(base && (other || !wide)) << function->name;
    std::uint64_t own = 0xcbf29ce484222325;
    for (Trial trial : all) {
      if (trial.plan.fill == Fill::Special && !hasFloats(*function)) continue;
      if (function->exemptions & kStepsExempt && trial.plan.steps == Steps::Odd) trial.plan.steps = Steps::Padded;
      Results expected = resultsOf(*base, trial.plan, trial.rounding);
      unifyNans(*base, expected);
      addTo(own, &expected.status, sizeof expected.status);
      if (!hasPowersOfTheCLibrary(*function))
        for (const auto& output : expected.outputs) addTo(own, output.data(), output.size());
      if (!wide) continue;
      Results found = resultsOf(*other, trial.plan, trial.rounding);
      const bool inUse = tellsOfUpperHalves() && upperHalvesInUse();
      unifyNans(*other, found);
      const std::string fault =
        inUse ? "leaves the upper halves of registers in use" : difference(*base, expected, found);
      if (!fault.empty()) {
        ADD_FAILURE() << Call(*function, trial.plan).describe() << ", rounding " << trial.rounding << ": " << fault;
        break; // one a function
      }
      ++compared;
    }
    addTo(hash, function->name, std::strlen(function->name));
    addTo(hash, &own, sizeof own);
  }
  std::printf("%s: %d calls compared, hash of the results %016llx\n", GetParam().name().c_str(), compared,
              static_cast<unsigned long long>(hash));
  if (!std::getenv("ZORI_SWEEP"))
    std::ofstream(std::string(ZORI_RESULT_HASHES "/") + GetParam().name()) << std::hex << hash << '\n';
}

INSTANTIATE_TEST_SUITE_P(All, Widths, testing::ValuesIn(batches()),
                         [](const testing::TestParamInfo<Batch>& info) { return info.param.name(); });

void PrintTo(const Batch& batch, std::ostream* out) { *out << batch.name(); }

} // namespace
