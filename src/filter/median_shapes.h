// Medians of a few pixels in a fixed shape: one operation on as many source rows, or one row taken at several places,
// as the shape has pixels.
#pragma once

#include "rank_network.h"

#include "frame/checks.h"
#include "walk/map.h"

namespace zori {
namespace median {

using network::Drawing;
using network::List;

// ---- Networks ----

constexpr int middleOf3(Drawing& d, int a, int b, int c)
{
  return d.greater(d.lesser(a, b), d.lesser(d.greater(a, b), c));
}

template <int N> constexpr Drawing medianOf()
{
  Drawing d;
  const List x = d.inputs(N);
  if constexpr (N == 3) {
    d.output(middleOf3(d, x.at[0], x.at[1], x.at[2]));
  } else if constexpr (N == 5) { // the greatest and the least of four fall out
    const int low = d.greater(d.lesser(x.at[0], x.at[1]), d.lesser(x.at[2], x.at[3]));
    const int high = d.lesser(d.greater(x.at[0], x.at[1]), d.greater(x.at[2], x.at[3]));
    d.output(middleOf3(d, low, high, x.at[4]));
  } else {
    static_assert(N == 9);
    const List a = d.sorted(x.part(0, 3)), b = d.sorted(x.part(3, 6)), c = d.sorted(x.part(6, 9));
    const int low = d.greater(d.greater(a.at[0], b.at[0]), c.at[0]);
    const int mid = middleOf3(d, a.at[1], b.at[1], c.at[1]);
    const int high = d.lesser(d.lesser(a.at[2], b.at[2]), c.at[2]);
    d.output(middleOf3(d, low, mid, high));
  }
  return d;
}

// The median of eight samples and a ninth that counts `Weight` times (an odd number below 9): the ninth, held between
// two of the eight.
template <int Weight> constexpr Drawing weightedMedian()
{
  Drawing d;
  const List x = d.inputs(9), a = d.sorted(x.part(0, 4)), b = d.sorted(x.part(4, 8));
  constexpr int half = Weight / 2;
  const int low = d.ranked(a, b, 3 - half), high = d.ranked(a, b, 4 + half);
  d.output(d.lesser(d.greater(x.at[8], low), high));
  return d;
}

// ---- Operations ----

template <auto Draw> struct Selected {
  static constexpr bool isLong = Draw().length().exchangeHalves > 6; // more than the median of three
  template <class T, class... Rest> ZORI_INLINE Vec<T> operator()(Vec<T> first, Rest... rest) const
  {
    if constexpr (std::is_same_v<T, uint16_t>) { // signed words have a minimum and a maximum of their own
      const Vec<T> top = topBits<T>();
      return as<T>((*this)(as<int16_t>(first ^ top), as<int16_t>(rest ^ top)...)) ^ top;
    } else {
      const Vec<T> sample[] = {first, rest...};
      Vec<T> result;
      network::Network<Draw>::template run<Vec<T>>([&](auto k) { return sample[k]; },
                                                   [&](auto, Vec<T> x) { result = x; });
      return result;
    }
  }
};

struct Unchanged {
  template <class V> V operator()(V x) const { return x; }
};

// ---- Regions ----

// One pixel of a shape, seen from the middle.
struct Offset {
  int x, y;
};

template <class T, Layout L, class Op, std::size_t N, std::size_t... K>
inline void mapShape(Rows<const T> src, Rows<T> dst, ZorImgSize roi, Op op, const Offset (&shape)[N],
                     std::index_sequence<K...>)
{
  const std::ptrdiff_t length = std::ptrdiff_t{roi.width} * channels<L>;
  const auto at = [=](Offset pixel) {
    return Rows<const T>{src[pixel.y] + std::ptrdiff_t{pixel.x} * channels<L>, src.step};
  };
  if constexpr (L == AC4) mapRows(dst, length, roi.height, KeepFourth<Op>{op}, readOnly(dst), at(shape[K])...);
  else mapRows(dst, length, roi.height, op, at(shape[K])...);
}

template <class T, Layout L, class Op, std::size_t N>
inline void mapShape(Rows<const T> src, Rows<T> dst, ZorImgSize roi, Op op, const Offset (&shape)[N])
{
  mapShape<T, L>(src, dst, roi, op, shape, std::make_index_sequence<N>{});
}

inline constexpr Offset row3[] = {{-1, 0}, {0, 0}, {1, 0}}, row5[] = {{-2, 0}, {-1, 0}, {0, 0}, {1, 0}, {2, 0}};
inline constexpr Offset column3[] = {{0, -1}, {0, 0}, {0, 1}}, column5[] = {{0, -2}, {0, -1}, {0, 0}, {0, 1}, {0, 2}};
inline constexpr Offset cross5[] = {{0, -1}, {-1, 0}, {0, 0}, {1, 0}, {0, 1}};
inline constexpr Offset cross9[] = {{0, -2}, {0, -1}, {-2, 0}, {-1, 0}, {0, 0}, {1, 0}, {2, 0}, {0, 1}, {0, 2}};
inline constexpr Offset around[] = {{-1, -1}, {0, -1}, {1, -1}, {-1, 0}, {1, 0}, {-1, 1}, {0, 1}, {1, 1}, {0, 0}};

// src: the region's own first pixel.
template <class T, Layout L, std::size_t N>
inline void medianOfShape(Rows<const T> src, Rows<T> dst, ZorImgSize roi, const Offset (&shape)[N])
{
  mapShape<T, L>(src, dst, roi, Selected<medianOf<static_cast<int>(N)>>{}, shape);
}

inline ZorStatus imageStatus(const void* pSrc, int srcStep, const void* pDst, int dstStep, ZorImgSize roi)
{
  return firstFailure(nonNull(pSrc, pDst), nonEmpty(roi), positive(srcStep, dstStep));
}

} // namespace median
} // namespace zori
