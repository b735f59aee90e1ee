// The image model in types: pixel layouts, rows of a region, planes.
#pragma once

#include "compiler.h"
#include "zori/types.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace zori {

enum class Layout { C1, C2, C3, C4, AC4, P3, P4, AC1, AP4 };

inline constexpr Layout C1 = Layout::C1, C2 = Layout::C2, C3 = Layout::C3, C4 = Layout::C4, AC4 = Layout::AC4,
                        P3 = Layout::P3, P4 = Layout::P4, AC1 = Layout::AC1, AP4 = Layout::AP4;

// Elements from one pixel to the next in memory (one in each plane of a planar image).
template <Layout L> inline constexpr int channels = L == C2 ? 2 : L == C3 ? 3 : (L == C4 || L == AC4) ? 4 : 1;
// Channels that an operation works on: AC4 leaves the fourth alone.
template <Layout L> inline constexpr int processed = L == AC4 ? 3 : channels<L>;
template <Layout L> inline constexpr int planes = L == P3 ? 3 : (L == P4 || L == AP4) ? 4 : 1;

// Bytes from one row to the next, formed at pointer width so that large images do not wrap.
inline std::ptrdiff_t rowOffset(std::ptrdiff_t y, int step) { return y * step; }

// Row y of a region whose first row is at p.
template <class T> inline T* rowAt(T* p, int step, std::ptrdiff_t y)
{
  using Byte = std::conditional_t<std::is_const_v<T>, const char, char>;
  return reinterpret_cast<T*>(reinterpret_cast<Byte*>(p) + rowOffset(y, step));
}

// The rows of a region: the step is in bytes and may be any number.
template <class T> struct Rows {
  T* first;
  int step;
  T* operator[](std::ptrdiff_t y) const { return rowAt(first, step, y); }
};
template <class T> Rows(T*, int) -> Rows<T>;
template <class T> inline Rows<const T> readOnly(Rows<T> rows) { return {rows.first, rows.step}; }
// Row y and those behind it.
template <class T> inline Rows<T> fromRow(Rows<T> rows, std::ptrdiff_t y) { return {rows[y], rows.step}; }

// The step with its low bits cleared to whole elements: the row walk of Abs, Sqr and Sqrt in C1 and C3.
template <class T> inline int maskedStep(int step) { return step & ~static_cast<int>(sizeof(T) - 1); }

} // namespace zori
