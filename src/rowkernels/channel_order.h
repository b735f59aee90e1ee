// New orders of channels, mostly between pixels of the same size, three or four channels.
//
// Channel k of a pixel takes its channel order[k], which stands order[k] - k elements further in memory: the source is
// read that much off its place, for each channel anew, and masks put the readings together. That takes three loads and
// five operations a vector for any order of three channels and any type, and no shuffle.
#pragma once

#include "channels.h"

#include <cstddef>
#include <cstring>

namespace zori {

template <class T, int N> class ChannelOrder {
public:
  // Channels `moved` and above keep what the destination holds.
  ChannelOrder(const int* order, int moved)
  {
    for (int k = 0; k < N; ++k) {
      offset_[k] = k < moved ? order[k] - k : 0;
      T lanes[lanesOf<T>];
      for (int i = 0; i < lanesOf<T>; ++i) lanes[i] = static_cast<T>(i % N == k ? -1 : 0);
      lanes_[k] = load<T>(lanes);
    }
  }

  // `length` elements. Source and destination may be the same.
  template <int Moved> void row(const T* src, T* dst, std::ptrdiff_t length) const;

  // `width` pixels of four channels to pixels of three. May be in place.
  void rowToThree(const T* src, T* dst, std::ptrdiff_t width) const;

private:
  static constexpr std::ptrdiff_t block = 3 * lanesOf<T>; // whole pixels of any type
  static constexpr std::ptrdiff_t room = N - 1; // elements in front of and behind a block that are read to no purpose

  struct Block {
    Vec<T> a, b, c;
    void writeTo(T* p) const
    {
      store(p, a);
      store(p + lanesOf<T>, b);
      store(p + 2 * lanesOf<T>, c);
    }
  };

  template <int Moved> Vec<T> vector(const T* src, const T* dst, std::ptrdiff_t at) const
  {
    // in pixels of three, lane 0 belongs to another channel from vector to vector
    const auto lanes = [this, at](int k) { return lanes_[(k + N * block - at) % N]; };
    Vec<T> x = load<T>(src + at + offset_[0]) & lanes(0);
    for (int k = 1; k < Moved; ++k) x = x | (load<T>(src + at + offset_[k]) & lanes(k));
    for (int k = Moved; k < N; ++k) x = x | (load<T>(dst + at) & lanes(k));
    return x;
  }
  template <int Moved> Block moved(const T* src, const T* dst) const
  {
    return {vector<Moved>(src, dst, 0), vector<Moved>(src, dst, lanesOf<T>), vector<Moved>(src, dst, 2 * lanesOf<T>)};
  }

  // The same for the ends of a row, by way of a copy with room around it.
  template <int Moved> Block movedAtEnd(const T* src, const T* dst, std::ptrdiff_t length = block) const
  {
    T from[room + block + room], to[block];
    std::memcpy(from + room, src, static_cast<std::size_t>(length) * sizeof(T));
    if constexpr (Moved < N) std::memcpy(to, dst, static_cast<std::size_t>(length) * sizeof(T));
    return moved<Moved>(from + room, to);
  }

  std::ptrdiff_t offset_[N];
  Vec<T> lanes_[N];
};

template <class T, int N>
template <int Moved>
[[gnu::noinline]] void ChannelOrder<T, N>::row(const T* src, T* dst, std::ptrdiff_t length) const
{
  const ChannelOrder local = *this; // stays in registers
  if (length < block) {
    T out[block];
    local.movedAtEnd<Moved>(src, dst, length).writeTo(out);
    std::memcpy(dst, out, static_cast<std::size_t>(length) * sizeof(T));
    return;
  }
  // Ends first, and each block before the one in front of it is written: a row may be its own source, and no reading
  // waits for a writing.
  const Block last = local.movedAtEnd<Moved>(src + length - block, dst + length - block);
  Block waiting = local.movedAtEnd<Moved>(src, dst);
  const std::ptrdiff_t distance = fetchDistance<T>(length);
  std::ptrdiff_t i = block;
  for (; i + block < length; i += block) { // behind the block there is at least a pixel
    fetchAhead(src + i, distance);
    fetchAhead(dst + i, distance);
    const Block next = local.moved<Moved>(src + i, dst + i);
    waiting.writeTo(dst + i - block);
    waiting = next;
  }
  waiting.writeTo(dst + i - block);
  last.writeTo(dst + length - block);
}

template <class T, int N>
[[gnu::noinline]] void ChannelOrder<T, N>::rowToThree(const T* src, T* dst, std::ptrdiff_t width) const
{
  static_assert(N == 4);
  constexpr int step = fourChannelPixels<T>;
  const ChannelOrder local = *this;
  const auto pixel = [&local, src, dst](std::ptrdiff_t x) {
    T moved[3];
    for (int k = 0; k < 3; ++k) moved[k] = get<T>(src + 4 * x + k + local.offset_[k]);
    std::memcpy(dst + 3 * x, moved, sizeof moved);
  };
  const auto pixels = [&local, src, dst](std::ptrdiff_t x) {
    const T* const at = src + 4 * x;
    storeNarrowed(dst + 3 * x, (load<T>(at + local.offset_[0]) & local.lanes_[0]) |
                                 (load<T>(at + local.offset_[1]) & local.lanes_[1]) |
                                 (load<T>(at + local.offset_[2]) & local.lanes_[2]));
  };
  const std::ptrdiff_t distance = fetchDistance<T>(3 * width);
  pixel(0);
  std::ptrdiff_t x = 1; // with a pixel on either side of what is read
  for (; x + 4 * step < width; x += 4 * step) {
    fetchAhead(src + 4 * x, distance);
    fetchAhead(dst + 3 * x, distance);
    for (int v = 0; v < 4; ++v) pixels(x + v * step);
  }
  for (; x + step < width; x += step) pixels(x);
  for (; x < width; ++x) pixel(x);
}

} // namespace zori
