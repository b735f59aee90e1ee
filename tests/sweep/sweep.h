// Runs a rule over every function of a subsystem. A rule returns what is wrong with a function, or "".
#pragma once

#include "support/call.h"

#include <gtest/gtest.h>

namespace zoritest {

class Sweep : public testing::TestWithParam<Subsystem> {
protected:
  template <class Rule> void eachFunction(Rule rule)
  {
    for (const Function* function : swept(GetParam())) {
      const std::string fault = rule(*function);
      if (!fault.empty()) ADD_FAILURE() << fault;
    }
  }
};

inline void PrintTo(const Subsystem& subsystem, std::ostream* out) { *out << subsystem.name; }

inline std::string subsystemName(const testing::TestParamInfo<Subsystem>& info) { return info.param.name; }

} // namespace zoritest

#define ZORI_SWEEP_SUITE(suite)                                                                                        \
  class suite : public zoritest::Sweep {};                                                                             \
  INSTANTIATE_TEST_SUITE_P(All, suite, testing::ValuesIn(zoritest::subsystems()), zoritest::subsystemName)
