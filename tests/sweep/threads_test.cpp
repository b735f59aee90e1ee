// Results do not depend on other threads that call the library.
#include "sweep.h"

#include <atomic>
#include <omp.h>
#include <thread>

using namespace zoritest;

ZORI_SWEEP_SUITE(ThreadsSweep);

static bool exempt(const Function& function) { return function.exemptions & kThreadsExempt; }

namespace {

// Lets a number of threads go on together.
class Gate {
public:
  explicit Gate(int threads) : threads_(threads) {}
  void wait()
  {
    const int round = round_;
    if (++arrived_ == threads_) {
      arrived_ = 0;
      ++round_;
    }
    while (round_ == round) std::this_thread::yield();
  }

private:
  const int threads_;
  std::atomic<int> arrived_{0}, round_{0};
};

} // namespace

TEST_P(ThreadsSweep, CallsFromSeveralThreadsDoNotMeet)
{
  for (const Function* function : GetParam().functions)
    if (!exempt(*function)) functions.insert(function);
  constexpr int callers = 3;
  const auto planOf = [](int caller) {
    Plan plan;
    plan.region = {131, 41};
    plan.seed = static_cast<std::uint64_t>(caller + 1); // a state that calls share would show
    return plan;
  };
  Gate gate(callers);
  std::string faults[callers];
  const auto work = [&](int caller) {
    for (const Function* function : GetParam().functions) {
      if (exempt(*function)) continue;
      Call alone(*function, planOf(caller)), together(*function, planOf(caller));
      omp_set_num_threads(caller == 0 ? 2 : 1);
      for (int turn = 0; turn < callers; ++turn) {
        if (turn == caller) alone.run();
        gate.wait();
      }
      together.run();
      gate.wait();
      if (alone.output() != together.output()) faults[caller] += together.describe() + " differs among threads\n";
    }
  };
  std::vector<std::thread> threads;
  for (int caller = 0; caller < callers; ++caller) threads.emplace_back(work, caller);
  for (std::thread& thread : threads) thread.join();
  for (const std::string& fault : faults) EXPECT_EQ(fault, "");
}
