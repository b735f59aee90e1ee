// Every allocation of every function fails once: the status says so, nothing is written, nothing leaks. Functions that
// can do without give what they give with it; some tell a failure as a null pointer.
#include "sweep.h"

#include <omp.h>

using namespace zoritest;

// The n-th allocation from now on fails, all of them where n is negative; 0 switches that off. Returns the allocations
// since the last call.
extern "C" int zoriTestFailAllocationAt(int n);
extern "C" int zoriTestLiveBlocks();
// Work is shared however little it is, until this is switched off again.
extern "C" void zoriTestShareAllWork(int on);

ZORI_SWEEP_SUITE(AllocationSweep);

TEST_P(AllocationSweep, FailureIsReportedAndLeavesNoTrace)
{
  eachFunction([](const Function& function) -> std::string {
    const WorkingMemoryOnHeap all;
    Plan plan;
    plan.region = {67, 21};
    for (int n = 1; n < 1000; ++n) {
      Call call(function, plan);
      const int blocks = zoriTestLiveBlocks();
      zoriTestFailAllocationAt(n);
      const Result result = call.run();
      const bool failed = zoriTestFailAllocationAt(0) >= n;
      const std::string where = call.describe() + " with allocation " + std::to_string(n) + " failing";
      if (zoriTestLiveBlocks() != blocks)
        return where + " leaves " + std::to_string(zoriTestLiveBlocks() - blocks) + " blocks behind";
      if (!failed) return call.succeeded(result) ? "" : call.describe() + " gives " + std::to_string(result.status);
      if (call.succeeded(result) && (function.exemptions & kAllocationExempt)) {
        Call undisturbed(function, plan);
        undisturbed.run();
        if (!(function.exemptions & kFallbackExempt) && call.output() != undisturbed.output())
          return where + " gives other results";
        continue;
      }
      if (call.succeeded(result)) return where + " succeeds";
      if (function.callable.returnsPointer) continue;
      const bool ownStatus = function.exemptions & kAllocationExempt && result.status == ZorErrNullPtr;
      if (result.status != ZorErrAlloc && result.status != ZorErrNoMem && !ownStatus)
        return where + " gives " + std::to_string(result.status);
      const std::string change = call.changesAfterFailure();
      if (!change.empty()) return where + " wrote: " + change;
    }
    return std::string(function.name) + " allocates without end";
  });
}

// What works without memory of its own does so in a team as well: each thread finds its share of the rows.
TEST_P(AllocationSweep, WhatDoesWithoutMemoryDoesNotShowItsTeam)
{
  eachFunction([](const Function& function) -> std::string {
    if (!(function.exemptions & kAllocationExempt)) return "";
    const WorkingMemoryOnHeap all;
    Plan plan;
    plan.region = {67, 71};
    std::vector<unsigned char> alone;
    int status = 0;
    for (const int threads : {1, 2, 7}) {
      Call call(function, plan);
      omp_set_num_threads(threads);
      zoriTestShareAllWork(1);
      zoriTestFailAllocationAt(-1);
      const Result result = call.run();
      zoriTestFailAllocationAt(0);
      zoriTestShareAllWork(0);
      omp_set_num_threads(1);
      if (threads == 1) alone = call.output(), status = result.status;
      else if (result.status != status || call.output() != alone)
        return call.describe() + " without memory gives other results with " + std::to_string(threads) + " threads";
    }
    return "";
  });
}
