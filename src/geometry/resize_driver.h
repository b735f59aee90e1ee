// The driver of all resizes: from two planned axes to pixels.
#pragma once

#include "frame/layout.h"
#include "frame/machine.h"
#include "resize_kernels.h"

namespace zori {
namespace resize {

// Source and destination: the source from the first pixel of the image, the destination from the first pixel written.
struct Images {
  Element element;
  int channels; // of a pixel: 1 (planes too), 3 or 4
  bool keepsFourth;
  int planes;
  const void* src[4];
  void* dst[4];
  int srcStep, dstStep;

  const char* srcRow(int plane, std::ptrdiff_t y) const
  {
    return rowAt(static_cast<const char*>(src[plane]), srcStep, y);
  }
  char* dstRow(int plane, std::ptrdiff_t y) const { return rowAt(static_cast<char*>(dst[plane]), dstStep, y); }
  int pixelBytes() const { return channels * bytesOf(element); }
  int shuffleRoom(Taps taps) const { return resize::shuffleRoom(taps, channels, pixelBytes()); }
  bool hasNull() const
  {
    for (int p = 0; p < planes; ++p)
      if (!src[p] || !dst[p]) return true;
    return false;
  }
};

template <class T, Layout L> inline Images imagesOf(const T* pSrc, int srcStep, T* pDst, int dstStep)
{
  return {elementOf<T>, channels<L>, L == AC4, 1, {pSrc}, {pDst}, srcStep, dstStep};
}
template <class T, Layout L> inline Images imagesOf(const T* const* pSrc, int srcStep, T* const* pDst, int dstStep)
{
  Images images = {elementOf<T>, 1, false, planes<L>, {}, {}, srcStep, dstStep};
  for (int p = 0; p < planes<L>; ++p) {
    images.src[p] = pSrc[p];
    images.dst[p] = pDst[p];
  }
  return images;
}

// The taps of an interpolation between corners.
Taps tapsFor(int interpolation, Element element);

// ---- The walk ----

// Images, tables and kernels of one call.
struct Walk {
  Images images;
  AxisTable columns, rows;
  Kernels kernels = {};
  NearestKernel nearest = {};

  Walk(const Images& images, const AxisTable& columns, const AxisTable& rows);

  // Working memory of a thread, besides the tables.
  static long long workBytes(const Images& images, Taps taps, int width);
  // Rows first .. first + count - 1 of the destination.
  void rowsOf(int first, int count, void* work) const;

private:
  void copyRows(int plane, int first, int count) const;
  void combineRows(int plane, int first, int count, char* work) const;
};

// What one thread takes for an output sample, in picoseconds.
int picosecondsPerSample(Taps taps);

// ---- Whole calls, in a team where that pays, under round to nearest ----

// The axes have been placed.
ZorStatus interpolate(const Images& images, const Axis& x, const Axis& y, int interpolation);

} // namespace resize
} // namespace zori
