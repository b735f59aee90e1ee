// A row of results on its way to the destination.
#pragma once

#include "rowkernels/convert.h"

namespace zori {
namespace {

// n results to every channels-th sample; integers times 2^-scaleFactor, rounded and saturated. `spare` holds n.
template <class D> void storeRow(const float* results, D* to, int channels, int n, int scaleFactor, D* spare)
{
  const auto convert = [&](D* row) {
    if constexpr (std::is_same_v<D, float>) std::memcpy(row, results, static_cast<std::size_t>(n) * sizeof(float));
    else mapGroups(row, n, Scaled<Rounded<D>>(scaleFactor), results);
  };
  if (channels == 1) return convert(to);
  convert(spare);
  for (int x = 0; x < n; ++x, to += channels) put(to, spare[x]);
}

} // namespace
} // namespace zori
