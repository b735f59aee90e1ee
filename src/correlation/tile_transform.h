// Correlation of tiles through the Fourier transform: two real tiles, one as the real and one as the imaginary part of
// a complex image, are transformed, multiplied with the spectrum of a real template and transformed back.
//
// A tile of F x G values, both multiples of 16, lies in strips of 16 columns: row y of a strip is 16 real parts, then
// 16 imaginary ones. A strip is therefore a buffer of lanes (spectral/lane_plan.h) as it stands, and its columns are
// transformed in place. Rows go 16 at a time, turned over their diagonal, through a buffer of lanes of the same kind.
//
// Nothing is ever put in order: the forward transform leaves frequencies as its levels do, the spectrum of the template
// stands in that same order, and the way back takes them so.
#pragma once

#include "frame/arena.h"
#include "spectral/lane_plan.h"

namespace zori {

class TileTransform {
public:
  static constexpr int strip = 16;          // columns of a strip, rows of a set
  static constexpr int element = 2 * strip; // floats of a row of a strip

  // Asks for the tables of tiles of width by height values.
  TileTransform(int width, int height, BlockPlan& plan);
  // Forms them once the block is there. Under the rounding to nearest, as all below.
  void fill(void* block) const;

  int width() const { return width_; }
  int height() const { return height_; }
  int strips() const { return strips_; }
  long long stripFloats() const { return stripFloats_; }
  long long tileFloats() const { return static_cast<long long>(strips_) * stripFloats_; }
  long long setFloats() const { return static_cast<long long>(strips_) * strip * element; }
  long long spectrumFloats() const { return sets_ * setFloats(); }

  float* stripOf(float* tile, int s) const { return tile + static_cast<std::ptrdiff_t>(s) * stripFloats_; }

  // The columns of one strip, forward; and back, without a divisor, the first `columns` of them or more.
  void forwardColumns(const void* block, float* strip) const;
  void inverseColumns(const void* block, float* strip, int columns) const;
  // The spectrum that belongs to a template whose columns have been transformed: conjugated, divided by F * G.
  void formSpectrum(const void* block, float* tile, float* spectrum) const;
  // Rows forward, times the spectrum, and back, of which the first strips come back to the tile. The buffer has
  // setFloats().
  void correlateRows(const void* block, float* tile, const float* spectrum, float* buffer, int strips) const;

private:
  int width_, height_, strips_, sets_;
  std::ptrdiff_t stripFloats_;
  LanePlan columns_, rows_;
};

} // namespace zori
