// Benchmarks of arithmetic.
#include "harness.h"
#include "zori/arith.h"

#include <algorithm>
#include <cmath>

static const bench::Group arith("arith", [](bench::Group& g) {
  g.map("Abs 16s C1", zoriAbs_16s_C1R, 1, [](Zor16s x) { return Zor16s(std::min(std::abs(x), 32767)); });
  g.map("Abs 32f C1", zoriAbs_32f_C1R, 1, [](Zor32f x) { return std::fabs(x); });
});
