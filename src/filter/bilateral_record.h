// The state of a bilateral filter as it lies in the caller's buffer.
//
// The buffer's first byte tells how far behind it the record starts, which is at the next multiple of 8. The record is
// its head, the weights of differences in value, and the weights of places: a quarter of the window, since they are the
// same on all four sides.
#pragma once

#include "frame/record.h"
#include "rowkernels/simd.h"

namespace zori {
namespace bilateral {

struct Radii {
  int x, y;
};

struct Head {
  std::uint32_t tag;
  std::int32_t type;
  std::int32_t radiusX, radiusY; // the largest, in pixels; multiples of the step
  std::int32_t step;
  std::int32_t values; // the length of the value table; the weight of greater differences is 0
};

inline constexpr int levels = 256;
inline constexpr int mostRadius = 255;

// As 32-bit floats, 205.25555 and 205.25557.
inline constexpr std::uint32_t tagOfGauss = 0x434d416c, tagOfGaussFast = 0x434d416d;

// The radius of a side of the kernel, lowered to a multiple of the step.
inline int steppedRadius(int side, int step) { return (side - 1) / 2 - (side - 1) / 2 % step; }
inline Radii steppedRadii(ZorImgSize kernel, int step)
{
  return {steppedRadius(kernel.width, step), steppedRadius(kernel.height, step)};
}

// Reads a record that may stand at any address, as copies of records do.
class Record {
public:
  // False unless a record stands in the buffer.
  bool find(const void* buffer)
  {
    const char* const bytes = static_cast<const char*>(buffer);
    const int distance = static_cast<unsigned char>(*bytes);
    if (distance < 1 || distance > 8) return false;
    record_ = bytes + distance;
    head_ = get<Head>(record_);
    return head_.tag == tagOfGauss || head_.tag == tagOfGaussFast;
  }
  const Head& head() const { return head_; }
  // Weights of the differences 0 .. 255.
  void copyValues(float* to) const { std::memcpy(to, record_ + sizeof(Head), levels * sizeof(float)); }
  // Weight of a place so many steps away.
  float place(int i, int j) const
  {
    const std::ptrdiff_t pitch = head_.radiusX / head_.step + 1;
    return get<float>(record_ + sizeof(Head) + sizeof(float) * levels +
                      static_cast<std::ptrdiff_t>(sizeof(float)) * (j * pitch + i));
  }

private:
  const char* record_;
  Head head_;
};

} // namespace bilateral
} // namespace zori
