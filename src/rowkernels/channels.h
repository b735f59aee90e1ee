// Pixels of three or four channels in rows, interleaved or in planes: what copies between layouts and channel orders
// share. Blocks of them are brought apart and together again by interleave.h.
#pragma once

#include "drivers.h"
#include "interleave.h"

#include <cstddef>

namespace zori {
inline namespace ZORI_WIDTH {

// ---- Rows ----

enum class Form { Interleaved, Planar };

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
  template <int Bytes> void load(std::ptrdiff_t x, Vec<Element, Bytes> (&channel)[N]) const
  {
    if constexpr (F == Form::Interleaved) split<Element>(run[0] + x * N, channel);
    else
      for (int k = 0; k < N; ++k) channel[k] = zori::load<Element, Bytes>(run[k] + x);
  }
  // Lanes of interleaved pixels that `kept` names keep their value; they are zero in the channels given.
  template <bool All, int Bytes>
  void store(std::ptrdiff_t x, const Vec<Element, Bytes> (&channel)[N], Vec<Element, Bytes> kept) const
  {
    if constexpr (F == Form::Interleaved) storeMerged<All>(run[0] + x * N, channel, kept, 16 * N);
    else
      for (int k = 0; k < N; ++k) zori::store(run[k] + x, channel[k]);
  }

#if ZORI_VECTOR_BYTES == 32
  // A row shorter than a block of 32 bytes a channel: its first 16 bytes of each in the low half, its last in the high.
  void loadEnds(std::ptrdiff_t width, Vec<Element> (&channel)[N]) const
  {
    const std::ptrdiff_t apart = betweenEnds(width);
    if constexpr (F == Form::Interleaved) split<Element>(run[0], channel, apart);
    else
      for (int k = 0; k < N; ++k) channel[k] = loadOfBlock<1, vectorBytes, Element>(run[k], 0, apart);
  }
  template <bool All> void storeEnds(std::ptrdiff_t width, const Vec<Element> (&channel)[N], Vec<Element> kept) const
  {
    const std::ptrdiff_t apart = betweenEnds(width);
    if constexpr (F == Form::Interleaved) storeMerged<All>(run[0], channel, kept, apart);
    else
      for (int k = 0; k < N; ++k) storeOfBlock<1>(run[k], 0, channel[k], apart);
  }
#endif

  // A row shorter than a block of 16 bytes a channel.
  void loadShort(std::ptrdiff_t width, Vec<Element, 16> (&channel)[N]) const
  {
    if constexpr (F == Form::Interleaved) {
      alignas(16) Element block[N * shortRoom] = {};
      copyBelow<sizeof block>(block, run[0], bytes(width));
      split<Element>(block, channel);
    } else {
      for (int k = 0; k < N; ++k) channel[k] = loadPart16<Element>(run[k], bytes(width));
    }
  }
  template <bool All>
  void storeShort(std::ptrdiff_t width, const Vec<Element, 16> (&channel)[N], Vec<Element, 16> kept) const
  {
    if constexpr (F == Form::Interleaved) {
      Vec<Element, 16> pixels[N];
      merge(channel, pixels);
      Element* to = run[0];
      std::ptrdiff_t rest = static_cast<std::ptrdiff_t>(bytes(width));
      for (int i = 0; i < N && rest > 0; ++i, to += shortRoom, rest -= 16) {
        const auto size = static_cast<std::size_t>(rest);
        if (rest >= 16) zori::store(to, All ? pixels[i] : pixels[i] | (zori::load<Element, 16>(to) & kept));
        else storePart(to, All ? pixels[i] : pixels[i] | (loadPart16<Element>(to, size) & kept), size);
      }
    } else {
      for (int k = 0; k < N; ++k) storePart(run[k], channel[k], bytes(width));
    }
  }

private:
  static constexpr std::ptrdiff_t shortRoom = Vec<Element, 16>::size; // pixels

  static std::size_t bytes(std::ptrdiff_t width) { return static_cast<std::size_t>(width) * perPixel * sizeof(T); }
#if ZORI_VECTOR_BYTES == 32
  static std::ptrdiff_t betweenEnds(std::ptrdiff_t width)
  {
    return (width - shortRoom) * perPixel * static_cast<std::ptrdiff_t>(sizeof(T));
  }
#endif

  template <bool All, int Bytes>
  static void storeMerged(T* block, const Vec<Element, Bytes> (&channel)[N], Vec<Element, Bytes> kept,
                          std::ptrdiff_t apart)
  {
    Vec<Element, Bytes> pixels[N];
    merge(channel, pixels);
    for (int i = 0; i < N; ++i)
      storeOfBlock<N>(block, i, All ? pixels[i] : pixels[i] | (loadOfBlock<N, Bytes>(block, i, apart) & kept), apart);
  }
};

template <class T, int N> using Interleaved = Pixels<T, N, Form::Interleaved>;
template <class T, int N> using Planar = Pixels<T, N, Form::Planar>;

// Such rows below each other, a step in bytes apart.
template <class P> struct PixelRows {
  P first;
  int step = 0;

  // Pointer by pointer: all at once would read them sooner than they are written.
  P operator[](std::ptrdiff_t y) const
  {
    P p;
    for (int i = 0; i < P::runs; ++i) p.run[i] = forgotten(rowAt(first.run[i], step, y));
    return p;
  }
};

// Rows shorter than a block: one of at least 16 bytes a channel has two halves that overlap.
template <bool All, class Src, class Dst, class Op, class T>
ZORI_INLINE inline void moveShort(const PixelRows<Src>& src, const PixelRows<Dst>& dst, std::ptrdiff_t width, int rows,
                                  const Op& op, Vec<T> kept)
{
#if ZORI_VECTOR_BYTES == 32
  if (width >= Vec<T, 16>::size) {
    for (int y = 0; y < rows; ++y) {
      Vec<T> in[Src::channels], out[Dst::channels];
      src[y].loadEnds(width, in);
      op(in, out);
      dst[y].template storeEnds<All>(width, out, kept);
    }
    return;
  }
#endif
  for (int y = 0; y < rows; ++y) {
    Vec<T, 16> in[Src::channels], out[Dst::channels];
    src[y].loadShort(width, in);
    op(in, out);
    dst[y].template storeShort<All>(width, out, firstBytes<16>(kept));
  }
}

// dst = op(src) in blocks; op has a vector for each channel of the source as input and fills one for each of the
// destination. The last block overlaps the one before it and is formed first, so that a row may shrink in place.
template <bool All, class Src, class Dst, class Op, class T = typename Dst::Element>
[[gnu::noinline]] void moveChannels(const PixelRows<Src>& srcRows, const PixelRows<Dst>& dstRows, std::ptrdiff_t width,
                                    int rows, const Op& given, const Vec<T>& kept)
{
  const UpperHalvesCleared atTheEnd;
  constexpr std::ptrdiff_t block = Vec<T>::size;
  const Op op = given; // copies that nobody else can see, so that what they hold stays in registers
  const Vec<T> keptLanes = kept;
  if (width < block) return moveShort<All>(srcRows, dstRows, width, rows, op, keptLanes);
  const std::ptrdiff_t distance = fetchDistance<T>(width * Src::channels);
  constexpr std::ptrdiff_t fetched = 64 / sizeof(T); // pixels
  for (int y = 0; y < rows; ++y) {
    const Src src = srcRows[y];
    const Dst dst = dstRows[y];
    Vec<T> in[Src::channels], out[Dst::channels], last[Dst::channels];
    src.load(width - block, in);
    op(in, last);
    for (std::ptrdiff_t x = 0; x + block <= width; x += block) {
      if (x % fetched == 0) {
        src.fetch(x, distance);
        dst.fetch(x, distance);
      }
      src.load(x, in);
      op(in, out);
      dst.template store<All>(x, out, keptLanes);
    }
    dst.template store<All>(width - block, last, keptLanes);
  }
}

struct SameChannels {
  template <class V, int N> void operator()(const V (&in)[N], V (&out)[N]) const
  {
    for (int k = 0; k < N; ++k) out[k] = in[k];
  }
};

// All channels are the one of the source.
struct OneChannel {
  template <class V, int N> void operator()(const V (&in)[1], V (&out)[N]) const
  {
    for (int k = 0; k < N; ++k) out[k] = in[0];
  }
};

// ---- Three channels beside four: 16 bytes hold 4 / sizeof(T) pixels of four channels, 12 bytes those of three ----

template <class T> inline constexpr int fourChannelPixels = Vec<T, 16>::size / 4;

// The 12 bytes at p, each pixel followed by an undefined fourth channel. Reads less than a pixel more.
template <class T> inline Vec<T, 16> loadWidened(const T* p)
{
  if constexpr (sizeof(T) == 4) return load<T, 16>(p);
  else {
    const auto halves = interleaveLow(loadLow8<std::uint64_t>(p), loadLow8<std::uint64_t>(p + 6 / sizeof(T)));
    if constexpr (sizeof(T) == 2) return as<T>(halves);
    else {
      const auto first = splat<std::uint64_t, 16>(0xffffff), second = splat<std::uint64_t, 16>(0xffffff00000000);
      return as<T>((halves & first) | (shiftLeft<8>(halves) & second));
    }
  }
}

// Back to 12 bytes. Spoils less than a pixel more.
template <class T> inline void storeNarrowed(T* p, Vec<T, 16> x)
{
  if constexpr (sizeof(T) == 4) store(p, x);
  else {
    auto halves = as<std::uint64_t>(x);
    if constexpr (sizeof(T) == 1) {
      const auto first = splat<std::uint64_t, 16>(0xffffff), second = splat<std::uint64_t, 16>(0xffffff000000);
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
  const Vec<T, 16> colour = colourMask<T, 16>();
  const auto copy = [=](std::ptrdiff_t x) {
    const T* const from = src + SrcChannels * x;
    store(dst + 4 * x,
          select(colour, SrcChannels == 3 ? loadWidened(from) : load<T, 16>(from), load<T, 16>(dst + 4 * x)));
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

#if ZORI_VECTOR_BYTES == 32
// Which 12 of each 16 bytes come in front where pixels of four channels become pixels of three: channel k is number
// order[k].
template <class T> constexpr ByteIndexes threeOfFourIndexes(const int* order)
{
  constexpr int size = sizeof(T);
  ByteIndexes x{};
  for (int i = 0; i < 16; ++i)
    x.index[i] =
      static_cast<std::uint8_t>(i < 12 ? (i / (3 * size) * 4 + order[i / size % 3]) * size + i % size : 0x80);
  return x;
}

// Rows of pixels of four channels to pixels of three. May be in place.
template <class T>
ZORI_INLINE inline void threeOfFour(const T* src, T* dst, std::ptrdiff_t width, const int* order,
                                    Vec<std::uint8_t> index)
{
  constexpr int size = sizeof(T), step = fourChannelPixels<T>;
  if (width < step) {
    for (std::ptrdiff_t x = 0; x < width; ++x) {
      const T* const from = src + 4 * x;
      const T a = get<T>(from + order[0]), b = get<T>(from + order[1]), c = get<T>(from + order[2]);
      put(dst + 3 * x, a);
      put(dst + 3 * x + 1, b);
      put(dst + 3 * x + 2, c);
    }
    return;
  }
  const auto index16 = lowHalf(index);
  const auto takeStep = [=](std::ptrdiff_t x) {
    return shuffleBytesLocal(load<std::uint8_t, 16>(src + 4 * x), index16);
  };
  const auto storeStep = [=](std::ptrdiff_t x, Vec<std::uint8_t, 16> pixels) { // and nothing behind it
    storeLow8(dst + 3 * x, pixels);
    storeLow4(dst + 3 * x + 8 / size, bytesDown<8>(pixels));
  };
  const auto last = takeStep(width - step);
  const std::ptrdiff_t distance = fetchDistance<T>(3 * width);
  std::ptrdiff_t x = 0;
  const auto two = [=](std::ptrdiff_t at) { // spoils 4 bytes behind them
    const auto pixels = shuffleBytesLocal(load<std::uint8_t, 32>(src + 4 * at), index);
    store(dst + 3 * at, lowHalf(pixels));
    store(dst + 3 * (at + step), highHalf(pixels));
  };
  for (; x + 4 * step + 1 < width; x += 4 * step) {
    fetchAhead(dst + 3 * x, distance);
    two(x);
    two(x + 2 * step);
  }
  for (; x + step < width; x += step) storeStep(x, takeStep(x));
  storeStep(width - step, last);
}
template <class T>
[[gnu::noinline]] void threeOfFourRows(Rows<const T> src, Rows<T> dst, std::ptrdiff_t width, int rows, const int* order,
                                       const ByteIndexes& indexes)
{
  const UpperHalvesCleared atTheEnd;
  const int channels[3] = {order[0], order[1], order[2]};
  const auto index = indexes.vector<vectorBytes>();
  for (int y = 0; y < rows; ++y) threeOfFour(src[y], dst[y], width, channels, index);
}

// Pixels of three channels to pixels of four: channel k is number order[k]; a value where that is 3, and above 3 what
// is there already.
template <class T> class FourOfThree {
public:
  FourOfThree(const int* order, T value)
  {
    constexpr int size = sizeof(T), lanes = Vec<T>::size;
    std::uint8_t bytes[vectorBytes];
    T added[lanes], kept[lanes];
    for (int i = 0; i < vectorBytes; ++i) {
      const int k = order[i / size % 4];
      bytes[i] = static_cast<std::uint8_t>(k < 3 ? (i % 16 / (4 * size) * 3 + k) * size + i % size : 0x80);
    }
    for (int i = 0; i < lanes; ++i) {
      added[i] = order[i % 4] == 3 ? value : T{0};
      kept[i] = static_cast<T>(order[i % 4] > 3 ? -1 : 0);
    }
    index_ = load<std::uint8_t>(bytes);
    added_ = load<T>(added);
    kept_ = load<T>(kept);
  }

  // All: nothing stays.
  template <bool All> [[gnu::noinline]] void rows(Rows<const T> src, Rows<T> dst, std::ptrdiff_t width, int count) const
  {
    const UpperHalvesCleared atTheEnd;
    const FourOfThree op = *this; // stays in registers
    for (int y = 0; y < count; ++y) op.row<All>(src[y], dst[y], width);
  }

private:
  template <bool All> ZORI_INLINE void row(const T* src, T* dst, std::ptrdiff_t width) const
  {
    const FourOfThree op = *this;
    constexpr std::ptrdiff_t step = fourChannelPixels<T>;
    if (width < step) {
      const std::size_t pixels = static_cast<std::size_t>(width) * sizeof(T);
      const auto there = All ? zero<T, 16>() : loadPart16<T>(dst, 4 * pixels);
      return storePart(dst, op.moved<All>(loadPart16<std::uint8_t>(src, 3 * pixels), there), 4 * pixels);
    }
    const auto one = [=](std::ptrdiff_t x) { // reads nothing behind it
      const T* const p = src + 3 * x;
      const auto from =
        interleaveLow(loadLow8<std::uint64_t>(p), as<std::uint64_t>(loadLow4<std::uint8_t>(p + 8 / sizeof(T))));
      return op.moved<All>(as<std::uint8_t>(from), load<T, 16>(dst + 4 * x));
    };
    const auto two = [=](std::ptrdiff_t x) { // reads 4 bytes behind them
      const T* const p = src + 3 * x;
      const auto from = joined(load<std::uint8_t, 16>(p), load<std::uint8_t, 16>(p + 3 * step));
      store(dst + 4 * x, op.moved<All>(from, load<T>(dst + 4 * x)));
    };
    const std::ptrdiff_t distance = fetchDistance<T>(4 * width);
    std::ptrdiff_t x = 0;
    for (; x + 4 * step + 1 < width; x += 4 * step) {
      fetchAhead(dst + 4 * x, distance);
      two(x);
      two(x + 2 * step);
    }
    for (; x + step < width; x += step) store(dst + 4 * x, one(x));
    store(dst + 4 * (width - step), one(width - step));
  }

  template <bool All, int Bytes> Vec<T, Bytes> moved(Vec<std::uint8_t, Bytes> x, Vec<T, Bytes> there) const
  {
    const auto pixels = as<T>(shuffleBytesLocal(x, firstBytes<Bytes>(index_))) | firstBytes<Bytes>(added_);
    return All ? pixels : pixels | (there & firstBytes<Bytes>(kept_));
  }

  Vec<std::uint8_t> index_;
  Vec<T> added_, kept_;
};

template <class T> inline void dropFourth(Rows<const T> src, Rows<T> dst, std::ptrdiff_t width, int rows)
{
  static constexpr int order[] = {0, 1, 2};
  static constexpr ByteIndexes indexes = threeOfFourIndexes<T>(order);
  threeOfFourRows(src, dst, width, rows, order, indexes);
}
#else
// Pixels of four channels to pixels of three. May be in place.
template <class T> [[gnu::noinline]] void dropFourth(const T* src, T* dst, std::ptrdiff_t width)
{
  constexpr int step = fourChannelPixels<T>;
  const std::ptrdiff_t distance = fetchDistance<T>(3 * width);
  std::ptrdiff_t x = 0;
  for (; x + 4 * step < width; x += 4 * step) {
    fetchAhead(src + 4 * x, distance);
    fetchAhead(dst + 3 * x, distance);
    for (int v = 0; v < 4; ++v) storeNarrowed(dst + 3 * (x + v * step), load<T, 16>(src + 4 * (x + v * step)));
  }
  for (; x + step < width; x += step) storeNarrowed(dst + 3 * x, load<T, 16>(src + 4 * x));
  for (; x < width; ++x) std::memmove(dst + 3 * x, src + 4 * x, 3 * sizeof(T));
}
template <class T> inline void dropFourth(Rows<const T> src, Rows<T> dst, std::ptrdiff_t width, int rows)
{
  for (int y = 0; y < rows; ++y) dropFourth(src[y], dst[y], width);
}
#endif

// ---- One channel ----

// Keeps the compiler from making vectors of a loop over elements that lie apart, which is slower than one by one.
template <class P> inline void oneByOne(P& p) { asm("" : "+r"(p)); }

// The channel at the rows' start of pixels of N channels. Reads from there up to the last element of that channel and
// no further: the last block ends with it, so that in this one the channel is the last of its pixel. May shrink in
// place.
template <class T, int N, int Bytes = vectorBytes>
[[gnu::noinline]] void takeChannel(Rows<const T> srcRows, Rows<T> dstRows, std::ptrdiff_t width, int rows)
{
  constexpr std::ptrdiff_t block = Vec<T, Bytes>::size;
  if (width <= block) {
    if constexpr (Bytes > 16) return takeChannel<T, N, 16>(srcRows, dstRows, width, rows);
    for (int y = 0; y < rows; ++y) {
      const T* p = srcRows[y];
      T* const dst = dstRows[y];
      for (std::ptrdiff_t x = 0; x < width; ++x) {
        oneByOne(p);
        put(dst + x, get<T>(p + x * N));
      }
    }
    return;
  }
  const UpperHalvesCleared atTheEnd;
  const std::ptrdiff_t distance = fetchDistance<T>(width);
  for (int y = 0; y < rows; ++y) {
    const T* const p = srcRows[y];
    T* const dst = dstRows[y];
    Vec<T, Bytes> channel[N], last[N];
    split(p + (width - block) * N - (N - 1), last);
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
}

// One channel to one channel, or (with a source stride of 0) a constant to it. What lies between may be another's and
// is not touched.
template <class T, int SrcStride, int DstStride>
[[gnu::noinline]] void moveChannel(Rows<const T> srcRows, Rows<T> dstRows, std::ptrdiff_t width, int rows)
{
  const std::ptrdiff_t distance = fetchDistance<T>(width * DstStride);
  for (int y = 0; y < rows; ++y) {
    const T* src = srcRows[y];
    T* dst = dstRows[y];
    std::ptrdiff_t left = width;
    for (; left >= 16; left -= 16) {
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
    for (; left > 0; --left, src += SrcStride, dst += DstStride) {
      oneByOne(src);
      put(dst, get<T>(src));
    }
  }
}

} // namespace ZORI_WIDTH
} // namespace zori
