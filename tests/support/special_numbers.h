// Numbers for tests of floating-point samples: ordinary ones, and those at which mistakes show.
#pragma once

#include <cmath>
#include <cstddef>
#include <limits>

namespace zoritest {

// -512 .. 512 in 32 bits, so that single precision rounds it and sums of several round again.
template <class Random> double ordinaryNumber(Random& random)
{
  return (static_cast<double>(random.next()) - 2147483648.0) / 4194304.0;
}

// Signed zeros, infinities, denormals, the ends of the range; halves, at which rounding has a tie, inside the ranges of
// integers and at their ends; numbers beside them; what has no integer any more.
inline constexpr double specialNumbers[] = {0.0,
                                            -0.0,
                                            INFINITY,
                                            -INFINITY,
                                            1e-45,
                                            -1e-45,
                                            1.1e-38,
                                            -1.1e-38,
                                            1.17549435e-38,
                                            3.4028234e38,
                                            -3.4028234e38,
                                            0.5,
                                            -0.5,
                                            1.5,
                                            -1.5,
                                            2.5,
                                            -2.5,
                                            3.5,
                                            126.5,
                                            127.5,
                                            -127.5,
                                            -128.5,
                                            -129.0,
                                            128.5,
                                            254.5,
                                            255.0,
                                            255.5,
                                            256.0,
                                            32766.5,
                                            32767.5,
                                            -32767.5,
                                            -32768.5,
                                            -32769.0,
                                            65534.5,
                                            65535.5,
                                            65536.0,
                                            0.49999997,
                                            0.50000006,
                                            254.49998,
                                            8388607.5,
                                            8388609.0,
                                            16777216.0,
                                            2147483520.0,
                                            2147483648.0,
                                            -2147483648.0,
                                            4294967296.0,
                                            9.2233720368547758e18};

// Puts special numbers on one sample in eight. Some rows get an extreme with a NaN behind it in the same lane of
// vectors of 4, 8 or 16 lanes. With a side other than 0, that of an image, no number lies on its other side, and zeros
// of both signs are the least or the greatest.
template <class F, class Random> void addSpecialNumbers(F* numbers, std::size_t count, int side, Random& random)
{
  constexpr int kinds = sizeof specialNumbers / sizeof *specialNumbers;
  for (std::size_t i = 0; i < count; ++i)
    if (random.below(8) == 0) numbers[i] = static_cast<F>(specialNumbers[random.below(kinds)]);
  if (side != 0) {
    for (std::size_t i = 0; i < count; ++i)
      numbers[i] = random.below(8) ? std::copysign(numbers[i], F(side)) : std::copysign(F(0), numbers[i]);
    return;
  }
  if (count == 0 || random.below(2)) return;
  const std::size_t lanes[] = {4, 8, 16};
  const std::size_t at = static_cast<std::size_t>(random.below(static_cast<int>(count)));
  numbers[at] = random.below(2) ? F(3e38) : F(-3e38);
  const std::size_t behind = at + lanes[random.below(3)] * static_cast<std::size_t>(1 + random.below(2));
  if (behind < count) numbers[behind] = std::numeric_limits<F>::quiet_NaN();
}

} // namespace zoritest
