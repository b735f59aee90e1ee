// What a tile sees of an image: samples of one channel from some place on, zeros beyond the image.
#pragma once

#include "frame/layout.h"
#include "rowkernels/simd.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace zori {

template <class T> struct TileView {
  Rows<const T> image; // of its first sample of the channel
  int width, height, channels;
  std::int64_t left, top; // where in the image the tile begins; may lie outside

  // Samples x .. x + count - 1 of tile row y: where they lie in the image if they can be read there, else in `spare`.
  const T* run(std::int64_t x, std::int64_t y, int count, T* spare) const
  {
    x += left;
    y += top;
    if (channels == 1 && y >= 0 && y < height && x >= 0 && x + count <= width) return image[y] + x;
    copyRun(x, y, count, spare);
    return spare;
  }

  // Whether samples x .. x + count - 1 of a row inside the image can be read where they lie.
  bool isThere(std::int64_t x, int count) const
  {
    x += left;
    return channels == 1 && x >= 0 && x + count <= width;
  }
  // Whether all of them lie beside the image.
  bool isBeside(std::int64_t x, int count) const { return x + left + count <= 0 || x + left >= width; }
  // Rows of a tile of so many that lie inside the image: first and end.
  int firstRow(int rows) const { return static_cast<int>(std::clamp<std::int64_t>(-top, 0, rows)); }
  int endRow(int rows) const { return static_cast<int>(std::clamp<std::int64_t>(height - top, firstRow(rows), rows)); }

  // The same samples as an image of its own of width x height, one channel.
  TileView laidOut(int w, int h, T* to) const
  {
    const TileView image{{to, static_cast<int>(w * sizeof(T))}, w, h, 1, 0, 0};
    for (std::ptrdiff_t y = 0; y < h; ++y) copyRun(left, top + y, w, to + y * w);
    return image;
  }

private:
  void copyRun(std::int64_t x, std::int64_t y, int count, T* spare) const
  {
    const bool isInside = y >= 0 && y < height;
    const int first = isInside ? static_cast<int>(std::clamp<std::int64_t>(-x, 0, count)) : count;
    const int end = isInside ? static_cast<int>(std::clamp<std::int64_t>(width - x, first, count)) : count;
    std::fill(spare, spare + first, T(0));
    if (end > first) {
      const T* p = image[y] + (x + first) * channels;
      if (channels == 1) std::memcpy(spare + first, p, static_cast<std::size_t>(end - first) * sizeof(T));
      else if (channels == 3) pick<3>(p, end - first, spare + first);
      else pick<4>(p, end - first, spare + first);
    }
    std::fill(spare + end, spare + count, T(0));
  }
  template <int apart> static void pick(const T* p, int count, T* __restrict to)
  {
    for (std::ptrdiff_t i = 0; i < count; ++i) to[i] = get<T>(p + i * apart);
  }
};

} // namespace zori
