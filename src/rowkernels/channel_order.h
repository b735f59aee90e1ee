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
      T lanes[Vec<T>::size + N];
      for (int i = 0; i < Vec<T>::size; ++i) lanes[i] = static_cast<T>(i % N == k ? -1 : 0);
      lanes_[k] = load<T>(lanes);
    }
  }

  // `length` elements. Source and destination may be the same.
  template <int Moved> void row(const T* src, T* dst, std::ptrdiff_t length) const;

  // `width` pixels of four channels to pixels of three. May be in place.
  void rowToThree(const T* src, T* dst, std::ptrdiff_t width) const;

private:
  static constexpr int vectors = N == 3 ? 3 : 4; // whole pixels
  static constexpr std::ptrdiff_t block = vectors * Vec<T>::size;

  // All readings come before the first writing. Reads up to N - 1 elements in front of and behind the block, which it
  // has no use for.
  template <int Moved> void moveBlock(const T* src, T* dst) const
  {
    Vec<T> out[vectors];
    for (int v = 0; v < vectors; ++v) {
      const T* const at = src + v * Vec<T>::size;
      // lane 0 of a vector belongs to another channel from vector to vector
      const auto lanesOf = [this, v](int k) { return lanes_[(k + vectors * N - v * Vec<T>::size % N) % N]; };
      out[v] = load<T>(at + offset_[0]) & lanesOf(0);
      for (int k = 1; k < Moved; ++k) out[v] = out[v] | (load<T>(at + offset_[k]) & lanesOf(k));
      for (int k = Moved; k < N; ++k) out[v] = out[v] | (load<T>(dst + v * Vec<T>::size) & lanesOf(k));
    }
    for (int v = 0; v < vectors; ++v) store(dst + v * Vec<T>::size, out[v]);
  }

  // By way of a copy with room at both ends: for the ends of a row, and for one that is its own source.
  template <int Moved> void moveCopied(const T* src, T* dst, std::ptrdiff_t length) const
  {
    constexpr std::ptrdiff_t chunk = 32 * block, room = N - 1;
    alignas(16) T copy[room + chunk + room];
    T tail[block];
    while (length > 0) {
      const std::ptrdiff_t n = length < chunk ? length : chunk;
      std::memcpy(copy + room, src, static_cast<std::size_t>(n) * sizeof(T));
      std::ptrdiff_t i = 0;
      for (; i + block <= n; i += block) moveBlock<Moved>(copy + room + i, dst + i);
      if (i < n) {
        const std::size_t bytes = static_cast<std::size_t>(n - i) * sizeof(T);
        std::memcpy(tail, dst + i, bytes);
        moveBlock<Moved>(copy + room + i, tail);
        std::memcpy(dst + i, tail, bytes);
      }
      src += n, dst += n, length -= n;
    }
  }

  std::ptrdiff_t offset_[N];
  Vec<T> lanes_[N];
};

template <class T, int N>
template <int Moved>
[[gnu::noinline]] void ChannelOrder<T, N>::row(const T* src, T* dst, std::ptrdiff_t length) const
{
  if (src == dst || length < 2 * block) return moveCopied<Moved>(src, dst, length);
  moveCopied<Moved>(src, dst, block);
  const ChannelOrder local = *this; // stays in registers
  // behind each of these blocks there is at least a pixel
  for (std::ptrdiff_t i = block; i + block < length; i += block) local.moveBlock<Moved>(src + i, dst + i);
  moveCopied<Moved>(src + length - block, dst + length - block, block);
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
  pixel(0);
  std::ptrdiff_t x = 1; // with a pixel on either side of what is read
  for (; x + step < width; x += step) {
    const T* const at = src + 4 * x;
    storeNarrowed(dst + 3 * x, (load<T>(at + local.offset_[0]) & local.lanes_[0]) |
                                 (load<T>(at + local.offset_[1]) & local.lanes_[1]) |
                                 (load<T>(at + local.offset_[2]) & local.lanes_[2]));
  }
  for (; x < width; ++x) pixel(x);
}

} // namespace zori
