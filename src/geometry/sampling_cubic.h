// The polynomial through four pixels, at -1, 0, 1 and 2, and its weights at a fraction between the middle two.
#pragma once

#include <cstdint>

namespace zori {
namespace geometry {

struct CubicWeights {
  double w[4];
};

constexpr CubicWeights cubicWeights(double t)
{
  const double t2 = t * t;
  return {
    {(-t2 / 6 - 1.0 / 3) * t + t2 / 2, t * t2 / 2 + 1 - t2 - t / 2, -(t * t2) / 2 + t2 / 2 + t, t * t2 / 6 - t / 6}};
}

// The weights in 1/16384 for fractions in 1/1024. What rounding leaves of their sum goes to the largest.
constexpr int cubicFractions = 1024, cubicUnit = 16384;

struct CubicTable {
  alignas(16) std::int16_t rows[cubicFractions][4];

  constexpr CubicTable() : rows{}
  {
    for (int i = 0; i < cubicFractions; ++i) {
      const CubicWeights exact = cubicWeights(double(i) / cubicFractions);
      int sum = 0, largest = 0;
      for (int k = 0; k < 4; ++k) {
        const double scaled = exact.w[k] * cubicUnit;
        const int rounded = static_cast<int>(scaled < 0 ? scaled - 0.5 : scaled + 0.5);
        rows[i][k] = static_cast<std::int16_t>(rounded);
        sum += rounded;
        if (rows[i][k] > rows[i][largest]) largest = k;
      }
      rows[i][largest] = static_cast<std::int16_t>(rows[i][largest] + cubicUnit - sum);
    }
  }
};

} // namespace geometry
} // namespace zori
