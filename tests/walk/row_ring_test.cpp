// The ring of rows.
#include "walk/row_ring.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

using namespace zori;

TEST(RowRing, KeepsTheLastRows)
{
  std::vector<int> buffer(3 * 5);
  const RowRing<int> ring(buffer.data(), 3, 5);
  for (int y = 0; y < 20; ++y) {
    ring[y][4] = y;
    for (int back = 0; back < 3 && back <= y; ++back) EXPECT_EQ(ring[y - back][4], y - back);
  }
  EXPECT_EQ((std::set<int*>{ring[0], ring[1], ring[2], ring[3]}.size()), 3u);
}
