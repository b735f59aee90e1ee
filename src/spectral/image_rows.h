// Rows of an image in lanes: how they come into a buffer of lanes, are transformed there and go back.
//
// A set of rows loads and stores columns x, x + 1, ... for all lanes at once: `tile` columns are t[0], t[1], ..., with
// a lane for each row (or channel) of the set.
#pragma once

#include "butterflies.h"
#include "frame/layout.h"
#include "lane_transform.h"

#include <algorithm>

namespace zori {
namespace {

// ---- Sets of rows; P is float or const float ----

// Within each 16 bytes, lane j of vector i becomes lane i of vector j. Lanes go as whole numbers, of which newer
// processors interleave two vectors a cycle, of floats one.
template <class V> inline void transposeFours(V& x0, V& x1, V& x2, V& x3)
{
  const auto y0 = as<std::uint32_t>(x0), y1 = as<std::uint32_t>(x1), y2 = as<std::uint32_t>(x2),
             y3 = as<std::uint32_t>(x3);
  const auto a = as<std::uint64_t>(interleaveLowLocal(y0, y1)), b = as<std::uint64_t>(interleaveLowLocal(y2, y3)),
             c = as<std::uint64_t>(interleaveHighLocal(y0, y1)), d = as<std::uint64_t>(interleaveHighLocal(y2, y3));
  x0 = as<float>(interleaveLowLocal(a, b));
  x1 = as<float>(interleaveHighLocal(a, b));
  x2 = as<float>(interleaveLowLocal(c, d));
  x3 = as<float>(interleaveHighLocal(c, d));
}

// Four floats of the first row and, where the vector has eight lanes, four of the second.
template <class V> inline V loadFours(const float* first, [[maybe_unused]] const float* second)
{
  if constexpr (laneCount<V> == 4) return load<float, 16>(first);
  else return joined(load<float, V::bytes / 2>(first), load<float, V::bytes / 2>(second));
}
template <class V> inline void storeFours(float* first, [[maybe_unused]] float* second, V x)
{
  if constexpr (laneCount<V> == 4) zori::store(first, x);
  else {
    zori::store(first, lowHalf(x));
    zori::store(second, highHalf(x));
  }
}

// A row in each lane, every `apart`-th from y on. Below the image its last row is read again and nothing is written.
template <class V, class P> struct RowPerLane {
  using Vector = V;
  static constexpr int lanes = laneCount<V>, tile = lanes;
  P* row[lanes];
  int rows;

  RowPerLane(Rows<P> image, std::ptrdiff_t y, int apart, int height, int)
  {
    const std::ptrdiff_t last = height - 1;
    for (int i = 0; i < lanes; ++i) row[i] = image[std::min(y + i * apart, last)];
    rows = y > last ? 0 : static_cast<int>(std::min<std::ptrdiff_t>(lanes, (last - y) / apart + 1));
  }
  // Rows go in fours, whose lanes are turned within 16 bytes: the halves of wide vectors are put together and taken
  // apart on the way from and to memory.
  void load(std::ptrdiff_t x, V (&t)[tile]) const
  {
#pragma GCC unroll 2
    for (int f = 0; f < tile; f += 4) {
#pragma GCC unroll 4
      for (int i = 0; i < 4; ++i) t[f + i] = loadFours<V>(row[i] + x + f, row[lanes - 4 + i] + x + f);
      transposeFours(t[f], t[f + 1], t[f + 2], t[f + 3]);
    }
  }
  void store(std::ptrdiff_t x, V (&t)[tile]) const
  {
    if (rows < lanes) return storeSome(x, t);
#pragma GCC unroll 2
    for (int f = 0; f < tile; f += 4) {
      transposeFours(t[f], t[f + 1], t[f + 2], t[f + 3]);
#pragma GCC unroll 4
      for (int i = 0; i < 4; ++i) storeFours(row[i] + x + f, row[lanes - 4 + i] + x + f, t[f + i]);
    }
  }
  // The lines of column x into the nearest cache.
  void fetch(std::ptrdiff_t x) const
  {
    for (int i = 0; i < lanes; ++i) prefetch(row[i] + x);
  }
  void storeSome(std::ptrdiff_t x, V (&t)[tile]) const
  {
    transposeLanes(t);
    for (int i = 0; i < rows; ++i) zori::store(row[i] + x, t[i]);
  }
  void loadPart(std::ptrdiff_t x, int columns, V* t) const
  {
    alignas(32) float lane[lanes];
    for (int c = 0; c < columns; ++c) {
      for (int i = 0; i < lanes; ++i) lane[i] = get<float>(row[i] + x + c);
      t[c] = loadLanes<V>(lane);
    }
  }
  void storePart(std::ptrdiff_t x, int columns, const V* t) const
  {
    alignas(32) float lane[lanes];
    for (int c = 0; c < columns; ++c) {
      storeLanes(lane, t[c]);
      for (int i = 0; i < rows; ++i) put(row[i] + x + c, lane[i]);
    }
  }
};

// Pixels of three or four channels that fill the lanes; the fourth of AC4 is neither used nor written.
template <Layout L> inline F32x4 loadPixel(const float* row, std::ptrdiff_t x, std::ptrdiff_t width)
{
  const float* const p = row + x * channels<L>;
  if constexpr (channels<L> == 4) return load<float, 16>(p);
  else {
    if (x + 1 < width) return load<float, 16>(p); // the fourth lane is idle
    const F32x4 two = loadLow8<float>(p), third = loadLow4<float>(p + 2);
    return as<float>(interleaveLow(as<double>(two), as<double>(third)));
  }
}
template <Layout L> inline void storePixel(float* row, std::ptrdiff_t x, F32x4 pixel)
{
  float* const p = row + x * channels<L>;
  if constexpr (processed<L> == 4) store(p, pixel);
  else {
    storeLow8(p, pixel);
    storeLow4(p + 2, bytesDown<8>(pixel));
  }
}

// One row, its channels in lanes.
template <Layout L, class P> struct ChannelPerLane {
  using Vector = F32x4;
  static constexpr int lanes = 4, tile = 1;
  P* row;
  int rows;
  std::ptrdiff_t width;

  ChannelPerLane(Rows<P> image, std::ptrdiff_t y, int, int height, int width_)
    : row(image[std::min<std::ptrdiff_t>(y, height - 1)]), rows(y < height), width(width_)
  {}
  void load(std::ptrdiff_t x, F32x4 (&t)[1]) const { t[0] = loadPixel<L>(row, x, width); }
  void store(std::ptrdiff_t x, F32x4 (&t)[1]) const { storePart(x, 1, t); }
  void fetch(std::ptrdiff_t) const {}
  void loadPart(std::ptrdiff_t x, int, F32x4* t) const { t[0] = loadPixel<L>(row, x, width); }
  void storePart(std::ptrdiff_t x, int, const F32x4* t) const
  {
    if (rows) storePixel<L>(row, x, t[0]);
  }
};

// One channel of one row, where memory is scarce. The image starts at the channel.
template <int channelCount, class P> struct SingleLane {
  using Vector = float;
  static constexpr int lanes = 1, tile = 1;
  P* row;
  int rows;

  SingleLane(Rows<P> image, std::ptrdiff_t y, int, int height, int)
    : row(image[std::min<std::ptrdiff_t>(y, height - 1)]), rows(y < height)
  {}
  void load(std::ptrdiff_t x, float (&t)[1]) const { t[0] = get<float>(row + x * channelCount); }
  void store(std::ptrdiff_t x, float (&t)[1]) const { storePart(x, 1, t); }
  void fetch(std::ptrdiff_t) const {}
  void loadPart(std::ptrdiff_t x, int, float* t) const { t[0] = get<float>(row + x * channelCount); }
  void storePart(std::ptrdiff_t x, int, const float* t) const
  {
    if (rows) put(row + x * channelCount, t[0]);
  }
};

// The kinds of sets by name.
template <class V> struct ByRows {
  static constexpr int pairs = laneCount<V>; // rows of a set
  template <class P> using Set = RowPerLane<V, P>;
};
template <Layout L> struct ByChannels {
  static constexpr int pairs = 1;
  template <class P> using Set = ChannelPerLane<L, P>;
};
template <int channelCount> struct OneByOne {
  static constexpr int pairs = 1;
  template <class P> using Set = SingleLane<channelCount, P>;
};

// Columns x to x + N - 1, N a multiple of the tile or less than one; the first `columns` of them where they are fewer.
template <int N, class Set, class V> inline void loadColumns(const Set& set, std::ptrdiff_t x, int columns, V (&t)[N])
{
  if constexpr (Set::tile == 1) {
    for (int c = 0; c < columns; ++c) set.loadPart(x + c, 1, t + c);
  } else {
    static_assert(N == Set::tile);
    if (columns == N) set.load(x, t);
    else set.loadPart(x, columns, t);
  }
}
template <int N, class Set, class V> inline void storeColumns(const Set& set, std::ptrdiff_t x, int columns, V (&t)[N])
{
  if constexpr (Set::tile == 1) {
    for (int c = 0; c < columns; ++c) set.storePart(x + c, 1, t + c);
  } else {
    static_assert(N == Set::tile);
    if (columns == N) set.store(x, t);
    else set.storePart(x, columns, t);
  }
}

// body(x, n) for columns from `first` to `end` - 1, n of them together: N, as a constant, and the rest.
template <int N, class Body> inline void inSteps(std::ptrdiff_t first, std::ptrdiff_t end, Body body)
{
  std::ptrdiff_t x = first;
  for (; x + N <= end; x += N) body(x, std::integral_constant<int, N>{});
  if (x < end) body(x, static_cast<int>(end - x));
}

// ---- The buffer ----

// Elements of one vector of lanes; swapped when real and imaginary parts have changed places.
template <class V> struct LaneBuffer {
  static constexpr std::ptrdiff_t lanes = laneCount<V>, pitch = 2 * lanes;
  float* buffer;
  const std::int32_t* position;
  std::ptrdiff_t re, im;

  LaneBuffer(float* buffer_, const std::int32_t* position_, bool swapped)
    : buffer(buffer_), position(position_), re(swapped ? lanes : 0), im(swapped ? 0 : lanes)
  {}
  void putAt(std::ptrdiff_t element, V x, V y) const
  {
    storeLanes(buffer + element * pitch + re, x);
    storeLanes(buffer + element * pitch + im, y);
  }
  // Result k.
  Complex<V> result(std::ptrdiff_t k) const
  {
    const float* const p = buffer + position[k] * pitch;
    return {loadLanes<V>(p + re), loadLanes<V>(p + im)};
  }
};

struct RowPass {
  const LanePlan& plan;
  const void* block;
  float factor;
  std::ptrdiff_t width;
};

// ---- Real rows: two sets, one in the real parts and one in the imaginary ones ----

template <class Set, class Target>
[[gnu::noinline]] void forwardRealRows(const RowPass& pass, const Set& even, const Set& odd, const Target& evenTo,
                                       const Target& oddTo, float* buffer)
{
  using V = typename Set::Vector;
  constexpr int N = Set::tile == 1 ? 2 : Set::tile;
  const LaneBuffer<V> lanes(buffer, pass.plan.position(pass.block), false);
  const std::ptrdiff_t width = pass.width;
  inSteps<N>(0, width, [&](std::ptrdiff_t x, auto columns) {
    V a[N], b[N];
    loadColumns<N>(even, x, columns, a);
    loadColumns<N>(odd, x, columns, b);
    for (int c = 0; c < columns; ++c) lanes.putAt(x + c, a[c], b[c]);
  });
  transformLanes<V>(pass.plan, pass.block, buffer, 1);

  const V factor = allLanes<V>(pass.factor), half = allLanes<V>(pass.factor * 0.5f);
  const auto putReal = [&](std::ptrdiff_t x, std::ptrdiff_t k) {
    const Complex<V> z = lanes.result(k);
    V a[N] = {z.re * factor}, b[N] = {z.im * factor};
    storeColumns<N>(evenTo, x, 1, a);
    storeColumns<N>(oddTo, x, 1, b);
  };
  putReal(0, 0);
  const std::ptrdiff_t pairs = (width - 1) / 2;
  inSteps<N>(1, 2 * pairs + 1, [&](std::ptrdiff_t x, auto columns) {
    V a[N], b[N];
    for (int c = 0; c < columns; c += 2) {
      const std::ptrdiff_t k = (x + c + 1) / 2;
      const Complex<V> z = lanes.result(k), y = lanes.result(width - k);
      a[c] = (z.re + y.re) * half;
      a[c + 1] = (z.im - y.im) * half;
      b[c] = (z.im + y.im) * half;
      b[c + 1] = (y.re - z.re) * half;
    }
    storeColumns<N>(evenTo, x, columns, a);
    storeColumns<N>(oddTo, x, columns, b);
  });
  if (width % 2 == 0) putReal(width - 1, width / 2);
}

template <class Set, class Target>
[[gnu::noinline]] void inverseRealRows(const RowPass& pass, const Set& even, const Set& odd, const Target& evenTo,
                                       const Target& oddTo, float* buffer)
{
  using V = typename Set::Vector;
  constexpr int N = Set::tile == 1 ? 2 : Set::tile;
  const LaneBuffer<V> lanes(buffer, pass.plan.position(pass.block), true);
  const std::ptrdiff_t width = pass.width;
  const auto takeReal = [&](std::ptrdiff_t x, std::ptrdiff_t k) {
    V a[N], b[N];
    loadColumns<N>(even, x, 1, a);
    loadColumns<N>(odd, x, 1, b);
    lanes.putAt(k, a[0], b[0]);
  };
  takeReal(0, 0);
  const std::ptrdiff_t pairs = (width - 1) / 2;
  inSteps<N>(1, 2 * pairs + 1, [&](std::ptrdiff_t x, auto columns) {
    V a[N], b[N];
    loadColumns<N>(even, x, columns, a);
    loadColumns<N>(odd, x, columns, b);
    for (int c = 0; c < columns; c += 2) {
      const std::ptrdiff_t k = (x + c + 1) / 2;
      lanes.putAt(k, a[c] - b[c + 1], a[c + 1] + b[c]);
      lanes.putAt(width - k, a[c] + b[c + 1], b[c] - a[c + 1]);
    }
  });
  if (width % 2 == 0) takeReal(width - 1, width / 2);
  transformLanes<V>(pass.plan, pass.block, buffer, 1);

  const V factor = allLanes<V>(pass.factor);
  inSteps<N>(0, width, [&](std::ptrdiff_t x, auto columns) {
    V a[N], b[N];
    for (int c = 0; c < columns; ++c) {
      const Complex<V> z = lanes.result(x + c);
      a[c] = z.re * factor;
      b[c] = z.im * factor;
    }
    storeColumns<N>(evenTo, x, columns, a);
    storeColumns<N>(oddTo, x, columns, b);
  });
}

// ---- Complex rows: re and im are neighbouring columns ----

template <class Set, class Target>
[[gnu::noinline]] void complexRows(const RowPass& pass, bool inverse, const Set& from, const Target& to, float* buffer)
{
  using V = typename Set::Vector;
  constexpr int N = Set::tile == 1 ? 2 : Set::tile;
  const LaneBuffer<V> lanes(buffer, pass.plan.position(pass.block), inverse);
  inSteps<N>(0, 2 * pass.width, [&](std::ptrdiff_t x, auto columns) {
    V t[N];
    loadColumns<N>(from, x, columns, t);
    for (int c = 0; c < columns; c += 2) lanes.putAt((x + c) / 2, t[c], t[c + 1]);
  });
  transformLanes<V>(pass.plan, pass.block, buffer, 1);
  const V factor = allLanes<V>(pass.factor);
  inSteps<N>(0, 2 * pass.width, [&](std::ptrdiff_t x, auto columns) {
    V t[N];
    for (int c = 0; c < columns; c += 2) {
      const Complex<V> z = lanes.result((x + c) / 2);
      t[c] = z.re * factor;
      t[c + 1] = z.im * factor;
    }
    storeColumns<N>(to, x, columns, t);
  });
}

} // namespace
} // namespace zori
