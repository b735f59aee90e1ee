// Networks along the rows of a strip: every lane of whole vectors by itself.
#pragma once

#include "rank_network.h"

#include "rowkernels/drivers.h"

#include <algorithm>
#include <cstddef>

namespace zori {
namespace network {

// Vectors that cover `length` elements, the last one overlapping; one alone where there are fewer than it holds.
template <class T, class Body> [[gnu::always_inline]] inline void overVectors(std::ptrdiff_t length, Body body)
{
  constexpr std::ptrdiff_t lanes = Vec<T>::size;
  for (std::ptrdiff_t i = 0;; i = std::min(i + lanes, length - lanes)) {
    body(i);
    if (i + lanes >= length) return;
  }
}

// Two sorted lists to one. Their rows, and those of the result, lie Pitch elements apart.
template <int First, int Second, std::ptrdiff_t Pitch, class T>
[[gnu::always_inline]] inline void mergeRows(const T* first, const T* second, T* to, std::ptrdiff_t length)
{
  overVectors<T>(length, [=](std::ptrdiff_t i) {
    Network<twoMerged<First, Second>>::template run<Vec<T>>(
      [=](auto k) { return load<T>(k < First ? first + k * Pitch + i : second + (k - First) * Pitch + i); },
      [=](auto k, Vec<T> x) { store(to + k * Pitch + i, x); });
  });
}

} // namespace network
} // namespace zori
