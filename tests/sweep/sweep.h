// Runs a rule over every function of the catalogue. A rule returns what is wrong with a function, or "".
#pragma once

#include "support/call.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <set>

extern "C" void zoriTestUseHeap(int on);

namespace zoritest {

// All working memory comes from the heap, whose blocks are guarded; else little of it may lie on the stack.
struct WorkingMemoryOnHeap {
  explicit WorkingMemoryOnHeap(bool on = true) { zoriTestUseHeap(on); }
  ~WorkingMemoryOnHeap() { zoriTestUseHeap(0); }
};

// A handful of families of a subsystem: what one test goes through, so that none takes long and several run at a time.
struct Batch {
  std::string name;
  std::vector<const Function*> functions;
};

inline std::vector<Batch> batches()
{
  constexpr std::size_t most = 50;
  std::vector<Batch> all;
  for (const Subsystem& subsystem : subsystems()) {
    int number = 0;
    const char* family = "";
    for (const Function* function : swept(subsystem)) {
      const bool starts =
        number == 0 || (all.back().functions.size() >= most && family != std::string(function->family));
      if (starts) all.push_back({subsystem.name + std::to_string(++number), {}});
      all.back().functions.push_back(function);
      family = function->family;
    }
  }
  return all;
}

// At its end each sweep tells which functions it called, and how often.
class Sweep : public testing::TestWithParam<Batch> {
public:
  static void SetUpTestSuite() { functions.clear(), callsBefore = callsMade(); }
  static void TearDownTestSuite()
  {
    const std::string name = testing::UnitTest::GetInstance()->current_test_suite()->name();
    std::printf("%s: %zu functions, %llu calls\n", name.substr(name.find('/') + 1).c_str(), functions.size(),
                static_cast<unsigned long long>(callsMade() - callsBefore));
  }

protected:
  static inline std::set<const Function*> functions;
  static inline std::uint64_t callsBefore = 0;

  template <class Rule> void eachFunction(Rule rule)
  {
    for (const Function* function : GetParam().functions) {
      const std::uint64_t before = callsMade();
      const std::string fault = rule(*function);
      if (callsMade() != before) functions.insert(function);
      if (!fault.empty()) ADD_FAILURE() << fault;
    }
  }
};

inline void PrintTo(const Batch& batch, std::ostream* out) { *out << batch.functions.front()->name << "..."; }

inline std::string batchName(const testing::TestParamInfo<Batch>& info) { return info.param.name; }

// True when the function works in regions of any size.
inline bool takesAnyRegion(const Function& function)
{
  for (const Argument& argument : function.arguments)
    if (argument.role == Role::Region && argument.example.size == 0) return true;
  return false;
}

} // namespace zoritest

#define ZORI_SWEEP_SUITE(suite)                                                                                        \
  class suite : public zoritest::Sweep {};                                                                             \
  INSTANTIATE_TEST_SUITE_P(All, suite, testing::ValuesIn(zoritest::batches()), zoritest::batchName)
