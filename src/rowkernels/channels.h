// Pixels of three or four channels, apart and together again: what copies between layouts and channel orders share.
//
// A block is 16 / sizeof(T) pixels, one vector a channel. T is an unsigned type of the element's width. No instruction
// of this level moves single bytes freely, so three channels are sorted from the outside in: first the 32-bit words of
// each 12 bytes, then their halves, then bytes, the last two by masks and shifts within a word.
#pragma once

#include "drivers.h"

#include <cstddef>
#include <cstring>

namespace zori {

template <class T> inline constexpr int lanesOf = Vec<T>::size;

// ---- Three channels ----

// Every lane of W holds two elements, and a b c follow each other: a0 a1 b0 b1 c0 c1. Sorted by position modulo 3,
// a = a0 b1, b = a1 c0, c = b0 c1; and back.
template <class W> inline void sortHalves(Vec<W>& a, Vec<W>& b, Vec<W>& c)
{
  constexpr int half = 4 * sizeof(W);
  const Vec<W> low = splat<W>(static_cast<W>((W(1) << half) - 1)), high = shiftLeft<half>(low);
  const Vec<W> x = (a & low) | (b & high);
  const Vec<W> y = shiftRight<half>(a) | shiftLeft<half>(c);
  const Vec<W> z = (b & low) | (c & high);
  a = x, b = y, c = z;
}
template <class W> inline void unsortHalves(Vec<W>& a, Vec<W>& b, Vec<W>& c)
{
  constexpr int half = 4 * sizeof(W);
  const Vec<W> low = splat<W>(static_cast<W>((W(1) << half) - 1)), high = shiftLeft<half>(low);
  const Vec<W> x = (a & low) | shiftLeft<half>(b);
  const Vec<W> y = (c & low) | (a & high);
  const Vec<W> z = shiftRight<half>(b) | (c & high);
  a = x, b = y, c = z;
}

using U32x4 = Vec<std::uint32_t>;

template <int D, int C, int B, int A> inline U32x4 pick(U32x4 a, U32x4 b)
{
  return as<std::uint32_t>(shuffle<D, C, B, A>(as<float>(a), as<float>(b)));
}

// 48 bytes to channels.
template <class T> inline void split(const T* from, Vec<T> (&channel)[3])
{
  const char* p = reinterpret_cast<const char*>(from);
  const auto everyThirdWord = [p](int first) {
    return pick<3, 0, 3, 0>(load<std::uint32_t>(p + first), load<std::uint32_t>(p + first + 24));
  };
  U32x4 a = everyThirdWord(0), b = everyThirdWord(4), c = everyThirdWord(8);
  if constexpr (sizeof(T) <= 2) sortHalves(a, b, c);
  Vec<std::uint16_t> a16 = as<std::uint16_t>(a), b16 = as<std::uint16_t>(b), c16 = as<std::uint16_t>(c);
  if constexpr (sizeof(T) == 1) sortHalves(a16, b16, c16);
  channel[0] = as<T>(a16);
  channel[1] = as<T>(b16);
  channel[2] = as<T>(c16);
}

// Channels to 48 bytes.
template <class T> inline void merge(const Vec<T> (&channel)[3], Vec<T> (&out)[3])
{
  Vec<std::uint16_t> a16 = as<std::uint16_t>(channel[0]), b16 = as<std::uint16_t>(channel[1]),
                     c16 = as<std::uint16_t>(channel[2]);
  if constexpr (sizeof(T) == 1) unsortHalves(a16, b16, c16);
  U32x4 a = as<std::uint32_t>(a16), b = as<std::uint32_t>(b16), c = as<std::uint32_t>(c16);
  if constexpr (sizeof(T) <= 2) unsortHalves(a, b, c);
  const U32x4 ca = as<std::uint32_t>(shuffle<3, 1, 2, 0>(as<std::int32_t>(pick<3, 1, 2, 0>(c, a)))); // c0 a1 c2 a3
  out[0] = as<T>(pick<1, 0, 1, 0>(interleaveLow(a, b), ca));
  out[1] = as<T>(pick<1, 0, 3, 2>(interleaveLow(b, c), interleaveHigh(a, b)));
  out[2] = as<T>(pick<3, 2, 3, 2>(ca, interleaveHigh(b, c)));
}

// ---- Four channels ----

// The even (odd) lanes of a, then those of b.
template <class T> inline Vec<T> evens(Vec<T> a, Vec<T> b)
{
  if constexpr (sizeof(T) == 4) return pick<2, 0, 2, 0>(a, b);
  else if constexpr (sizeof(T) == 2) {
    const auto low = [](Vec<T> x) { return shiftRight<16>(shiftLeft<16>(as<std::int32_t>(x))); };
    return as<T>(narrowSat<std::int16_t>(low(a), low(b))); // sign-extended, nothing saturates
  } else {
    const Vec<std::int16_t> low = splat<std::int16_t>(0xff);
    return narrowSat<T>(as<std::int16_t>(a) & low, as<std::int16_t>(b) & low);
  }
}
template <class T> inline Vec<T> odds(Vec<T> a, Vec<T> b)
{
  if constexpr (sizeof(T) == 4) return pick<3, 1, 3, 1>(a, b);
  else if constexpr (sizeof(T) == 2) {
    const auto high = [](Vec<T> x) { return shiftRight<16>(as<std::int32_t>(x)); };
    return as<T>(narrowSat<std::int16_t>(high(a), high(b)));
  } else {
    const auto high = [](Vec<T> x) { return as<std::int16_t>(shiftRight<8>(as<std::uint16_t>(x))); };
    return narrowSat<T>(high(a), high(b));
  }
}

// 64 bytes to channels.
template <class T> inline void split(const T* from, Vec<T> (&channel)[4])
{
  const char* p = reinterpret_cast<const char*>(from);
  const Vec<T> v0 = load<T>(p), v1 = load<T>(p + 16), v2 = load<T>(p + 32), v3 = load<T>(p + 48);
  const Vec<T> even0 = evens(v0, v1), even1 = evens(v2, v3), odd0 = odds(v0, v1), odd1 = odds(v2, v3);
  channel[0] = evens(even0, even1);
  channel[1] = evens(odd0, odd1);
  channel[2] = odds(even0, even1);
  channel[3] = odds(odd0, odd1);
}

// Channels to 64 bytes.
template <class T> inline void merge(const Vec<T> (&channel)[4], Vec<T> (&out)[4])
{
  using Pair = WiderT<T>;
  const auto low01 = as<Pair>(interleaveLow(channel[0], channel[1]));
  const auto low23 = as<Pair>(interleaveLow(channel[2], channel[3]));
  const auto high01 = as<Pair>(interleaveHigh(channel[0], channel[1]));
  const auto high23 = as<Pair>(interleaveHigh(channel[2], channel[3]));
  out[0] = as<T>(interleaveLow(low01, low23));
  out[1] = as<T>(interleaveHigh(low01, low23));
  out[2] = as<T>(interleaveLow(high01, high23));
  out[3] = as<T>(interleaveHigh(high01, high23));
}

// ---- Rows ----

enum class Form { Interleaved, Planar };

// Asks for the lines of `bytes` bytes that stand `distance` bytes behind p (see fetchDistance).
inline void fetchAhead(const void* p, std::ptrdiff_t distance, std::ptrdiff_t bytes = 64)
{
  for (std::ptrdiff_t i = 0; i < bytes; i += 64) prefetch(static_cast<const char*>(p) + distance + i);
}

// The pixels of a row: one run of interleaved channels, or one run a channel.
template <class T, int N, Form F> struct Pixels {
  using Element = std::remove_const_t<T>;
  static constexpr int channels = N;
  static constexpr int runs = F == Form::Planar ? N : 1;
  static constexpr int perPixel = F == Form::Planar ? 1 : N; // elements of a pixel in one run

  T* run[runs];

  // For four blocks from x on.
  void fetch(std::ptrdiff_t x, std::ptrdiff_t distance) const
  {
    for (int i = 0; i < runs; ++i) fetchAhead(run[i] + x * perPixel, distance, 64 * perPixel);
  }
  void load(std::ptrdiff_t x, Vec<Element> (&channel)[N]) const
  {
    if constexpr (F == Form::Interleaved) split<Element>(run[0] + x * N, channel);
    else
      for (int k = 0; k < N; ++k) channel[k] = zori::load<Element>(run[k] + x);
  }
  // Lanes of interleaved pixels that `kept` names keep their value; they are zero in the channels given.
  template <bool All> void store(std::ptrdiff_t x, const Vec<Element> (&channel)[N], Vec<Element> kept) const
  {
    if constexpr (F == Form::Interleaved) {
      Vec<Element> pixels[N];
      merge(channel, pixels);
      for (int i = 0; i < N; ++i) {
        T* const p = run[0] + x * N + i * lanesOf<Element>;
        zori::store(p, All ? pixels[i] : pixels[i] | (zori::load<Element>(p) & kept));
      }
    } else {
      for (int k = 0; k < N; ++k) zori::store(run[k] + x, channel[k]);
    }
  }
};

template <class T, int N> using Interleaved = Pixels<T, N, Form::Interleaved>;
template <class T, int N> using Planar = Pixels<T, N, Form::Planar>;

// A row shorter than a block, padded to one.
template <class P> struct LocalBlock {
  using T = typename P::Element;
  static constexpr int length = lanesOf<T> * P::perPixel;
  alignas(16) T data[P::runs * length];

  LocalBlock(const P& row, std::ptrdiff_t width) : data{}
  {
    for (int i = 0; i < P::runs; ++i) std::memcpy(data + i * length, row.run[i], bytes(width));
  }
  P pixels()
  {
    P p;
    for (int i = 0; i < P::runs; ++i) p.run[i] = data + i * length;
    return p;
  }
  void copyTo(const P& row, std::ptrdiff_t width) const
  {
    for (int i = 0; i < P::runs; ++i) std::memcpy(row.run[i], data + i * length, bytes(width));
  }
  static std::size_t bytes(std::ptrdiff_t width) { return static_cast<std::size_t>(width) * P::perPixel * sizeof(T); }
};

// dst = op(src) in blocks; op has Vec<T>[Src::channels] for input and fills Vec<T>[Dst::channels]. The last block
// overlaps the one before it and is formed first, so that a row may shrink in place.
template <bool All, class Src, class Dst, class Op, class T = typename Dst::Element>
[[gnu::noinline]] void moveChannels(Src src, Dst dst, std::ptrdiff_t width, Op op, Vec<T> kept)
{
  constexpr std::ptrdiff_t block = lanesOf<T>;
  if (width < block) {
    LocalBlock<Src> from(src, width);
    LocalBlock<Dst> to(dst, width);
    moveChannels<All>(Src(from.pixels()), Dst(to.pixels()), block, op, kept);
    to.copyTo(dst, width);
    return;
  }
  Vec<T> in[Src::channels], out[Dst::channels], last[Dst::channels];
  src.load(width - block, in);
  op(in, last);
  const std::ptrdiff_t distance = fetchDistance<T>(width * Src::channels);
  for (std::ptrdiff_t x = 0; x + block <= width; x += block) {
    if (x % (4 * block) == 0) {
      src.fetch(x, distance);
      dst.fetch(x, distance);
    }
    src.load(x, in);
    op(in, out);
    dst.template store<All>(x, out, kept);
  }
  dst.template store<All>(width - block, last, kept);
}

struct SameChannels {
  template <class T, int N> void operator()(const Vec<T> (&in)[N], Vec<T> (&out)[N]) const
  {
    for (int k = 0; k < N; ++k) out[k] = in[k];
  }
};

// All channels are the one of the source.
struct OneChannel {
  template <class T, int N> void operator()(const Vec<T> (&in)[1], Vec<T> (&out)[N]) const
  {
    for (int k = 0; k < N; ++k) out[k] = in[0];
  }
};

// ---- Three channels beside four: a vector holds 4 / sizeof(T) pixels of four channels, or 12 bytes of three ----

template <class T> inline constexpr int fourChannelPixels = Vec<T>::size / 4;

// The 12 bytes at p, each pixel followed by an undefined fourth channel. Reads less than a pixel more.
template <class T> inline Vec<T> loadWidened(const T* p)
{
  if constexpr (sizeof(T) == 4) return load<T>(p);
  else {
    const auto halves = interleaveLow(loadLow8<std::uint64_t>(p), loadLow8<std::uint64_t>(p + 6 / sizeof(T)));
    if constexpr (sizeof(T) == 2) return as<T>(halves);
    else {
      const auto first = splat<std::uint64_t>(0xffffff), second = splat<std::uint64_t>(0xffffff00000000);
      return as<T>((halves & first) | (shiftLeft<8>(halves) & second));
    }
  }
}

// Back to 12 bytes. Spoils less than a pixel more.
template <class T> inline void storeNarrowed(T* p, Vec<T> x)
{
  if constexpr (sizeof(T) == 4) store(p, x);
  else {
    auto halves = as<std::uint64_t>(x);
    if constexpr (sizeof(T) == 1) {
      const auto first = splat<std::uint64_t>(0xffffff), second = splat<std::uint64_t>(0xffffff000000);
      halves = (halves & first) | (shiftRight<8>(halves) & second);
    }
    storeLow8(p, halves);
    storeLow8(p + 6 / sizeof(T), bytesDown<8>(halves));
  }
}

// The first three channels of pixels of SrcChannels; the fourth channel of the destination stays.
template <class T, int SrcChannels> [[gnu::noinline]] void copyColour(const T* src, T* dst, std::ptrdiff_t width)
{
  constexpr int step = fourChannelPixels<T>;
  const Vec<T> colour = colourMask<T>();
  const auto copy = [=](std::ptrdiff_t x) {
    const T* const from = src + SrcChannels * x;
    store(dst + 4 * x, select(colour, SrcChannels == 3 ? loadWidened(from) : load<T>(from), load<T>(dst + 4 * x)));
  };
  const std::ptrdiff_t distance = fetchDistance<T>(3 * width);
  std::ptrdiff_t x = 0;
  for (; x + 4 * step < width; x += 4 * step) {
    fetchAhead(src + SrcChannels * x, distance);
    fetchAhead(dst + 4 * x, distance);
    for (int v = 0; v < 4; ++v) copy(x + v * step);
  }
  for (; x + step < width; x += step) copy(x);
  for (; x < width; ++x) std::memmove(dst + 4 * x, src + SrcChannels * x, 3 * sizeof(T));
}

// Pixels of four channels to pixels of three. May be in place.
template <class T> [[gnu::noinline]] void dropFourth(const T* src, T* dst, std::ptrdiff_t width)
{
  constexpr int step = fourChannelPixels<T>;
  const std::ptrdiff_t distance = fetchDistance<T>(3 * width);
  std::ptrdiff_t x = 0;
  for (; x + 4 * step < width; x += 4 * step) {
    fetchAhead(src + 4 * x, distance);
    fetchAhead(dst + 3 * x, distance);
    for (int v = 0; v < 4; ++v) storeNarrowed(dst + 3 * (x + v * step), load<T>(src + 4 * (x + v * step)));
  }
  for (; x + step < width; x += step) storeNarrowed(dst + 3 * x, load<T>(src + 4 * x));
  for (; x < width; ++x) std::memmove(dst + 3 * x, src + 4 * x, 3 * sizeof(T));
}

// ---- One channel ----

// The channel at p of pixels of N channels. Reads from p up to the last element of that channel and no further: the
// last block ends with it, so that in this one the channel is the last of its pixel. May shrink in place.
template <class T, int N> [[gnu::noinline]] void takeChannel(const T* p, T* dst, std::ptrdiff_t width)
{
  constexpr std::ptrdiff_t block = lanesOf<T>;
  if (width <= block) {
    for (std::ptrdiff_t x = 0; x < width; ++x) put(dst + x, get<T>(p + x * N));
    return;
  }
  Vec<T> channel[N], last[N];
  split(p + (width - block) * N - (N - 1), last);
  const std::ptrdiff_t distance = fetchDistance<T>(width);
  for (std::ptrdiff_t x = 0; x + block < width; x += block) {
    if (x % (4 * block) == 0) {
      fetchAhead(p + x * N, distance, 64 * N);
      fetchAhead(dst + x, distance);
    }
    split(p + x * N, channel);
    store(dst + x, channel[0]);
  }
  store(dst + width - block, last[N - 1]);
}

// Keeps the compiler from making vectors of a loop over elements that lie apart, which is slower than one by one.
template <class P> inline void oneByOne(P& p) { asm("" : "+r"(p)); }

// One channel to one channel, or (with a source stride of 0) a constant to it. What lies between may be another's and
// is not touched.
template <class T, int SrcStride, int DstStride>
[[gnu::noinline]] void moveChannel(const T* src, T* dst, std::ptrdiff_t width)
{
  const std::ptrdiff_t distance = fetchDistance<T>(width * DstStride);
  for (; width >= 16; width -= 16) {
    fetchAhead(src, distance, 16 * SrcStride * sizeof(T));
    fetchAhead(dst, distance, 16 * DstStride * sizeof(T));
    for (int i = 0; i < 4; ++i, src += 4 * SrcStride, dst += 4 * DstStride) {
      oneByOne(src);
      const T a = get<T>(src), b = get<T>(src + SrcStride), c = get<T>(src + 2 * SrcStride),
              d = get<T>(src + 3 * SrcStride);
      put(dst, a);
      put(dst + DstStride, b);
      put(dst + 2 * DstStride, c);
      put(dst + 3 * DstStride, d);
    }
  }
  for (; width > 0; --width, src += SrcStride, dst += DstStride) {
    oneByOne(src);
    put(dst, get<T>(src));
  }
}

} // namespace zori
