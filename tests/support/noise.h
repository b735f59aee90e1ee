// Noise for tests whose bounds are statistical: every bit is as good as the next, unlike those of a congruence.
#pragma once

#include <cstdint>

namespace zoritest {

// Noise from a seed.
class Noise {
public:
  explicit Noise(unsigned seed) : state_(seed + 1) {}
  std::uint32_t bits()
  {
    std::uint64_t z = state_ += 0x9E3779B97F4A7C15u;
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9u;
    z = (z ^ z >> 27) * 0x94D049BB133111EBu;
    return static_cast<std::uint32_t>(z >> 32);
  }
  double uniform(double low = 0, double high = 1) { return low + (high - low) * (bits() / 4294967296.0); }
  int below(int n) { return static_cast<int>(bits() % static_cast<std::uint32_t>(n)); }

private:
  std::uint64_t state_;
};

} // namespace zoritest
