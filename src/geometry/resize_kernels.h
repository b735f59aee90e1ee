// The kernels of a resize: they walk tables that have been planned and know nothing of how.
//
//   across   resamples source rows, each into a row of sums: 16-bit integers for linear 8u, 16u and 16s, else floats
//   down     combines the rows of sums of all taps to rows of samples
//   copy     nearest: one source row into one destination row
//
// Rows of sums belong to the library and have room behind their end; source rows are read and destination rows written
// exactly.
#pragma once

#include "resize_plan.h"

#include <cstddef>

namespace zori {
namespace resize {

enum class Element { U8, U16, F32, S16 };
template <class T> inline constexpr Element elementOf = Element::U8;
template <> inline constexpr Element elementOf<Zor16u> = Element::U16;
template <> inline constexpr Element elementOf<Zor32f> = Element::F32;
template <> inline constexpr Element elementOf<Zor16s> = Element::S16;
constexpr int bytesOf(Element e) { return e == Element::U8 ? 1 : e == Element::F32 ? 4 : 2; }

// Samples behind a row of sums that kernels may write.
inline constexpr int sumSlack = 16;

// The first pixels of one row of the image or two, and where their sums go. Two at a time share what is read of tables.
using AcrossRows = void (*)(const AxisTable& columns, const void* const* rows, int count, void* const* sums);
// Output rows y .. y + count - 1, of the same taps; rows: the rows of sums of these. hasNegative: sums of 8u may lie
// outside 0 to 255.
using DownRows = void (*)(const void* const* rows, const AxisTable& table, int y, int count, bool hasNegative,
                          void* dst, int dstStep, std::ptrdiff_t samples);

struct Kernels {
  AcrossRows across;
  DownRows down;
  int atOnce; // rows that across takes
};

// For 1, 3 or 4 channels.
Kernels linearKernels(Element element, int channels, AxisTable& columns); // may make the table one of windows
Kernels weightedKernels(Element element, int channels, Taps taps);

// Pixels of 1, 2, 3, 4, 6, 8, 12 or 16 bytes, of which the first `moved` bytes are written.
using CopyRow = void (*)(const AxisTable& columns, const void* row, void* dst);
using CopyRowTwice = void (*)(const AxisTable& columns, const void* row, void* first, void* second);
struct NearestKernel {
  CopyRow copy = nullptr;
  CopyRowTwice copyTwice = nullptr; // where that is cheaper than copying the row that was made
};
NearestKernel nearestKernel(AxisTable& columns, int pixelBytes, int moved); // may make the table one of windows

} // namespace resize
} // namespace zori
