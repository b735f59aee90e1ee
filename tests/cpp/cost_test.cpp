// What a call through views costs beyond the C call: a row of 16 samples, where calls are dearest, both ways in turn.
#include "calls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace {

// Nanoseconds a call of each, minima of many short runs: other work on the machine counts little.
template <class First, class Second> std::pair<double, double> leastTimes(First first, Second second)
{
  constexpr int calls = 500, runs = 600;
  double best[2] = {1e9, 1e9};
  const auto time = [](auto& call) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < calls; ++i) call();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() / calls;
  };
  for (int run = 0; run < runs; ++run) {
    best[0] = std::min(best[0], time(first));
    best[1] = std::min(best[1], time(second));
  }
  return {best[0], best[1]};
}

TEST(CostOfViews, AddsNothingThatCounts)
{
  std::vector<Zor8u> memory(3 * 64 * 8, 1);
  const ZorImgSize size = {16, 1};
  Zor8u *a = memory.data() + 64, *b = memory.data() + 9 * 64, *out = memory.data() + 17 * 64;
  const Pixels first(a, 64, size), second(b, 64, size);
  const Target result(out, 64, size);
  const Pixels inside = Pixels(a - 64 - 1, 64, {18, 3}).within(1, 1, 1, 1);
  ASSERT_EQ(addViews(first, second, result), ZorOk);
  ASSERT_EQ(out[15], 2);
  ASSERT_EQ(smoothViews(inside, result), ZorOk);
  ASSERT_EQ(out[15], 1);
  ASSERT_EQ(smoothViews(first, result), ZorErrSize) << "the neighbours are not looked for";

  int failed = 0;
  const auto report = [](const char* name, std::pair<double, double> times) {
    std::printf("%-9s %5.1f ns in C, %5.1f ns through views\n", name, times.first, times.second);
    // a tenth of the call and the resolution of the clock
    EXPECT_LT(times.second, 1.1 * times.first + 3) << name;
  };
  report("add", leastTimes([&] { failed |= addDirectly(a, 64, b, 64, out, 64, size); },
                           [&] { failed |= addViews(first, second, result); }));
  report("filterBox", leastTimes([&] { failed |= smoothDirectly(a, 64, out, 64, size); },
                                 [&] { failed |= smoothViews(inside, result); }));
  EXPECT_EQ(failed, 0);
}

} // namespace
