// Supersampling: the mean of the area that an output pixel covers.
#pragma once

#include "resize_driver.h"

namespace zori {
namespace resize {

// The pixels under one output along one axis: from `first` on, perhaps one that is split (its weight is `head`), then
// whole ones, then perhaps a split one (`tail`). A pixel beyond the limits stands for the nearest inside.
struct Cover {
  long long first, whole;
  float head, tail; // 0: there is none
  long long pixels() const { return (head > 0) + whole + (tail > 0); }
  float weight(long long k) const // of its pixel k
  {
    return k == 0 && head > 0 ? head : tail > 0 && k == pixels() - 1 ? tail : 1;
  }
};

// The covers of one axis after another.
class CoverSweep {
public:
  // So many pixels an output from the start on; what a split pixel leaves is carried to the next output.
  CoverSweep(int first, int length, double ratio);
  // Destination pixels from firstOutput on under x -> x * factor + shift; pixels are those of an image.
  CoverSweep(int image, int firstOutput, double factor, double shift);

  Cover next();
  // All covers so far are of whole pixels, and all to come.
  bool isWhole() const { return isWhole_; }
  int first() const { return first_; }
  int length() const { return length_; }

private:
  int first_, length_;
  double ratio_, rest_ = 0;
  long long at_ = 0;
  bool isFirst_ = true, isWhole_, isSquare_ = false;
  double output_ = 0, shift_ = 0;
};

// scale: 1 / area of an output. Under round to nearest. ZorErrAlloc, or ZorOk.
ZorStatus supersample(const Images& images, const CoverSweep& columns, int width, const CoverSweep& rows, int height,
                      double scale);

} // namespace resize
} // namespace zori
