// Numbers that tests share: a sequence for images, and the rule by which results keep to their type.
#pragma once

#include <algorithm>
#include <limits>

namespace zoritest {

// The next of a sequence that begins with the seed. The upper bits are the better ones.
inline unsigned nextNoise(unsigned& seed) { return seed = seed * 1664525u + 1013904223u; }

// A whole number brought into the range of the type.
template <class T> T saturated(double x)
{
  return static_cast<T>(std::clamp<double>(x, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

} // namespace zoritest
