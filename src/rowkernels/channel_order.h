// New orders of channels, mostly between pixels of the same size, three or four channels.
//
// Channel k of a pixel takes its channel order[k], which stands order[k] - k elements further in memory: the source is
// read that much off its place, for each channel anew, and masks put the readings together. That takes three loads and
// five operations a vector for any order of three channels and any type, and no shuffle.
#pragma once

#include "channels.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace zori {
inline namespace ZORI_WIDTH {

// One shuffle of bytes within each pixel of four.
#if ZORI_VECTOR_BYTES == 32
template <class T> struct PixelsInOrder {
  static constexpr int period = 4;
  Vec<Zor8u> index;

  explicit PixelsInOrder(const int (&order)[4])
  {
    constexpr int size = sizeof(T);
    Zor8u bytes[vectorBytes];
    for (int i = 0; i < vectorBytes; ++i)
      bytes[i] = static_cast<Zor8u>(i % 16 / (4 * size) * (4 * size) + order[i / size % 4] * size + i % size);
    index = load<Zor8u>(bytes);
  }
  Vec<T> operator()(Vec<T> x) const { return as<T>(shuffleBytesLocal(as<Zor8u>(x), index)); }
};
#endif

template <class T, int N> class ChannelOrder {
public:
  // Channels `moved` and above keep what the destination holds.
  ChannelOrder(const int* order, int moved)
  {
    for (int k = 0; k < N; ++k) {
      offset_[k] = k < moved ? order[k] - k : 0;
      T lanes[Vec<T>::size];
      for (int i = 0; i < Vec<T>::size; ++i) lanes[i] = static_cast<T>(i % N == k ? -1 : 0);
      lanes_[k] = load<T>(lanes);
    }
  }

  // Rows of `length` elements. Source and destination may be the same.
  template <int Moved> void rows(Rows<const T> src, Rows<T> dst, std::ptrdiff_t length, int count) const
  {
#if ZORI_VECTOR_BYTES == 32
    if constexpr (N == 4) {
      int order[4];
      for (int k = 0; k < 4; ++k) order[k] = k + static_cast<int>(offset_[k]);
      const PixelsInOrder<T> op(order);
      if constexpr (Moved == 4) return mapRows(dst, length, count, op, src);
      else return mapRows(dst, length, count, KeepFourth<PixelsInOrder<T>>{op}, readOnly(dst), src);
    }
#endif
    if (length < block<vectorBytes>) rowsOf<Moved, 16>(src, dst, length, count);
    else rowsOf<Moved, vectorBytes>(src, dst, length, count);
  }

#if ZORI_VECTOR_BYTES == 16
  // `width` pixels of four channels to pixels of three. May be in place.
  void rowToThree(const T* src, T* dst, std::ptrdiff_t width) const;
#endif

private:
  template <int Bytes> static constexpr std::ptrdiff_t block = 3 * Vec<T, Bytes>::size; // whole pixels of any type
  static constexpr std::ptrdiff_t room = N - 1; // elements in front of and behind a block that are read to no purpose

  template <int Bytes> struct Block {
    Vec<T, Bytes> a, b, c;
    void writeTo(T* p) const
    {
      store(p, a);
      store(p + a.size, b);
      store(p + 2 * a.size, c);
    }
  };

  // A vector `by` elements off its place at p. Where that is the first (last) of a row, nothing in front of (behind)
  // the row is read, and what would stand there is zero.
  enum class Place { Inside, First, Last };
  template <Place At, int Bytes> static Vec<T, Bytes> readOff(const T* p, std::ptrdiff_t by)
  {
#ifdef __AVX2__
    constexpr int lanes16 = Vec<T, 16>::size, last16 = Vec<T, Bytes>::size - lanes16;
    struct Indexes {
      std::uint8_t at[48];
      constexpr Indexes() : at{}
      {
        for (int i = 0; i < 48; ++i) at[i] = static_cast<std::uint8_t>(i / 16 == 1 ? i - 16 : 0x80);
      }
    };
    static constexpr Indexes indexes;
    const auto moved = [by](const T* from) {
      const auto index = load<std::uint8_t, 16>(indexes.at + 16 + by * static_cast<std::ptrdiff_t>(sizeof(T)));
      return as<T>(shuffleBytesLocal(load<std::uint8_t, 16>(from), index));
    };
    if ((At == Place::First && by < 0) || (At == Place::Last && by > 0)) {
      if constexpr (Bytes == 16) return moved(p);
#if ZORI_VECTOR_BYTES == 32
      else if constexpr (At == Place::First) return joined(moved(p), load<T, 16>(p + lanes16 + by));
      else if constexpr (At == Place::Last) return joined(load<T, 16>(p + by), moved(p + last16));
#endif
    }
#endif
    return load<T, Bytes>(p + by);
  }
  template <int Moved, int Bytes, Place At = Place::Inside>
  Vec<T, Bytes> vector(const T* src, const T* dst, std::ptrdiff_t at) const
  {
    // in pixels of three, lane 0 belongs to another channel from vector to vector
    const auto lanes = [this, at](int k) { return firstBytes<Bytes>(lanes_[(k + N * block<Bytes> - at) % N]); };
    Vec<T, Bytes> x = readOff<At, Bytes>(src + at, offset_[0]) & lanes(0);
    for (int k = 1; k < Moved; ++k) x = x | (readOff<At, Bytes>(src + at, offset_[k]) & lanes(k));
    for (int k = Moved; k < N; ++k) x = x | (load<T, Bytes>(dst + at) & lanes(k));
    return x;
  }
  // A block: whether it is the first of its row, or the last.
  template <int Moved, int Bytes, bool IsFirst = false, bool IsLast = false>
  Block<Bytes> moved(const T* src, const T* dst) const
  {
    constexpr int lanes = Vec<T, Bytes>::size;
    constexpr Place first = IsFirst ? Place::First : Place::Inside, last = IsLast ? Place::Last : Place::Inside;
    return {vector<Moved, Bytes, first>(src, dst, 0), vector<Moved, Bytes>(src, dst, lanes),
            vector<Moved, Bytes, last>(src, dst, 2 * lanes)};
  }

  // The same by way of a copy with room around it: at the ends of rows, and of rows shorter than a block.
  template <int Moved, int Bytes>
  Block<Bytes> movedAtEnd(const T* src, const T* dst, std::ptrdiff_t length = block<Bytes>) const
  {
    T from[room + block<Bytes> + room], to[block<Bytes>];
    std::memcpy(from + room, src, static_cast<std::size_t>(length) * sizeof(T));
    if constexpr (Moved < N) std::memcpy(to, dst, static_cast<std::size_t>(length) * sizeof(T));
    return moved<Moved, Bytes>(from + room, to);
  }

  template <int Moved, int Bytes, bool IsFirst, bool IsLast> Block<Bytes> movedEnd(const T* src, const T* dst) const
  {
    if constexpr (hasByteShuffle) return moved<Moved, Bytes, IsFirst, IsLast>(src, dst);
    else return movedAtEnd<Moved, Bytes>(src, dst);
  }

  template <int Moved, int Bytes> ZORI_INLINE void rowOf(const T* src, T* dst, std::ptrdiff_t length) const;
  template <int Moved, int Bytes>
  [[gnu::noinline]] void rowsOf(Rows<const T> src, Rows<T> dst, std::ptrdiff_t length, int count) const
  {
    const UpperHalvesCleared atTheEnd;
    const ChannelOrder local = *this; // stays in registers
#ifdef __AVX2__
    if (N == 3 && length < block<16>) {
      const auto index = local.indexesOfBytes();
      for (int y = 0; y < count; ++y) shortRow(src[y], dst[y], length, index);
      return;
    }
#endif
    for (int y = 0; y < count; ++y) local.rowOf<Moved, Bytes>(src[y], dst[y], length);
  }

#ifdef __AVX2__
  // Whole pixels of three, as many as 16 bytes hold, by one shuffle.
  Vec<std::uint8_t, 16> indexesOfBytes() const
  {
    alignas(16) static constexpr std::uint8_t places[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    auto index = loadAligned<std::uint8_t, 16>(places);
    for (int k = 0; k < N; ++k) {
      const auto off = static_cast<std::uint8_t>(offset_[k] * static_cast<std::ptrdiff_t>(sizeof(T)));
      index = index + (as<std::uint8_t>(firstBytes<16>(lanes_[k])) & splat<std::uint8_t, 16>(off));
    }
    return index;
  }
  static ZORI_INLINE void shortRow(const T* src, T* dst, std::ptrdiff_t length, Vec<std::uint8_t, 16> index)
  {
    constexpr std::ptrdiff_t step = Vec<T, 16>::size / 3 * 3;
    for (; length > 0; length -= step, src += step, dst += step) {
      const auto bytes = [](std::ptrdiff_t n) { return static_cast<std::size_t>(n) * sizeof(T); };
      const auto x =
        length >= Vec<T, 16>::size ? load<std::uint8_t, 16>(src) : loadPart16<std::uint8_t>(src, bytes(length));
      storePart(dst, shuffleBytesLocal(x, index), bytes(std::min(length, step)));
    }
  }
#endif

  std::ptrdiff_t offset_[N];
  Vec<T> lanes_[N];
};

template <class T, int N>
template <int Moved, int Bytes>
ZORI_INLINE inline void ChannelOrder<T, N>::rowOf(const T* src, T* dst, std::ptrdiff_t length) const
{
  constexpr std::ptrdiff_t block = ChannelOrder::block<Bytes>;
  if (length < block) {
    T out[block];
    movedAtEnd<Moved, Bytes>(src, dst, length).writeTo(out);
    std::memcpy(dst, out, static_cast<std::size_t>(length) * sizeof(T));
    return;
  }
  // Ends first, and each block before the one in front of it is written: a row may be its own source, and no reading
  // waits for a writing.
  if (length == block) return movedEnd<Moved, Bytes, true, true>(src, dst).writeTo(dst);
  const auto last = movedEnd<Moved, Bytes, false, true>(src + length - block, dst + length - block);
  auto waiting = movedEnd<Moved, Bytes, true, false>(src, dst);
  const std::ptrdiff_t distance = fetchDistance<T>(length);
  std::ptrdiff_t i = block;
  for (; i + block < length; i += block) {          // behind the block there is at least a pixel
    if (Bytes == 16) fetchAhead(src + i, distance); // wider vectors have enough lines of it under way
    fetchAhead(dst + i, distance, Bytes == 16 ? 64 : 128);
    const auto next = moved<Moved, Bytes>(src + i, dst + i);
    waiting.writeTo(dst + i - block);
    waiting = next;
  }
  waiting.writeTo(dst + i - block);
  last.writeTo(dst + length - block);
}

#if ZORI_VECTOR_BYTES == 16
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
    storeNarrowed(dst + 3 * x, (load<T, 16>(at + local.offset_[0]) & firstBytes<16>(local.lanes_[0])) |
                                 (load<T, 16>(at + local.offset_[1]) & firstBytes<16>(local.lanes_[1])) |
                                 (load<T, 16>(at + local.offset_[2]) & firstBytes<16>(local.lanes_[2])));
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
#endif

// Rows of pixels of four channels to pixels of three: channel k is number order[k]. May be in place.
template <class T> void rowsToThree(Rows<const T> src, Rows<T> dst, std::ptrdiff_t width, int rows, const int* order)
{
#if ZORI_VECTOR_BYTES == 32
  threeOfFourRows(src, dst, width, rows, order, threeOfFourIndexes<T>(order));
#else
  const ChannelOrder<T, 4> moved(order, 3);
  for (int y = 0; y < rows; ++y) moved.rowToThree(src[y], dst[y], width);
#endif
}

} // namespace ZORI_WIDTH
} // namespace zori
