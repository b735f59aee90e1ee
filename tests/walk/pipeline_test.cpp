// Rows in between: each made once and in order, and there when an output row needs it.
#include "walk/pipeline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using namespace zori;

extern "C" int zoriTestFailAllocationAt(int n);

namespace {

constexpr int width = 7;

// Output row y is the sum of the rows in between that it needs; row b is filled with b.
template <class Needed> std::vector<int> sums(TeamRule team, int height, int most, int ahead, Needed needed)
{
  std::vector<int> out(static_cast<std::size_t>(height), -1), made(1000), wanted(1000);
  EXPECT_EQ(pipeRows<int>(
              team, Rounding::Callers, height, {width, most, ahead}, needed,
              [&](int b, int* row) {
                std::fill(row, row + width, b);
                ++made[static_cast<std::size_t>(b + 10)];
              },
              [&](int y, RowWindow<int> window) {
                const RowRange range = needed(y);
                int sum = 0;
                for (int k = 0; k < range.end - range.first; ++k) {
                  EXPECT_EQ(window[k][0], range.first + k);
                  EXPECT_EQ(window[k][width - 1], range.first + k);
                  sum += window[k][0];
                }
                out[static_cast<std::size_t>(y)] = sum;
              }),
            ZorOk);
  if (team.threads(height) == 1) {
    for (int y = 0; ahead == 0 && y < height; ++y) // what nobody needs is not made, unless it is ahead of a need
      for (int b = needed(y).first; b < needed(y).end; ++b) wanted[static_cast<std::size_t>(b + 10)] = 1;
    for (std::size_t i = 0; i < made.size(); ++i) EXPECT_LE(made[i], ahead == 0 ? wanted[i] : 1) << i;
  }
  return out;
}

template <class Needed> void check(int height, int most, Needed needed)
{
  std::vector<int> expected;
  for (int y = 0; y < height; ++y) {
    int sum = 0;
    for (int b = needed(y).first; b < needed(y).end; ++b) sum += b;
    expected.push_back(sum);
  }
  for (int ahead : {0, 1, 3})
    for (TeamRule team : {TeamRule::alone(), TeamRule::byContract(true)})
      EXPECT_EQ(sums(team, height, most, ahead, needed), expected) << ahead;
}

TEST(Pipeline, WindowsOfAFilter)
{
  for (int height : {1, 2, 5, 40}) {
    check(height, 1, [](int y) { return RowRange{y, y + 1}; });
    check(height, 5, [](int y) { return RowRange{y - 2, y + 3}; });
  }
}

TEST(Pipeline, RowsThatAreUsedSeveralTimesOrNotAtAll)
{
  check(50, 2, [](int y) { return RowRange{y / 3, y / 3 + 2}; });
  check(50, 2, [](int y) { return RowRange{5 * y, 5 * y + 2}; });
}

TEST(Pipeline, NoMemoryMakesNothing)
{
  const auto run = [](long long elements, int most) {
    bool worked = false;
    const auto status = pipeRows<double>(
      TeamRule::alone(), Rounding::Callers, 3, {elements, most},
      [](int y) {
        return RowRange{y, y + 1};
      },
      [&](int, double*) { worked = true; }, [&](int, const RowWindow<double>&) { worked = true; });
    EXPECT_FALSE(worked);
    return status;
  };
  zoriTestFailAllocationAt(1);
  EXPECT_EQ(run(100000, 3), ZorErrAlloc);
  zoriTestFailAllocationAt(0);
  EXPECT_EQ(run(1LL << 40, 1 << 30), ZorErrAlloc);
  EXPECT_EQ(run(BlockPlan::impossible - 7, 1), ZorErrAlloc);
}

} // namespace
