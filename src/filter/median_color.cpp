// zoriFilterMedianColor_{8u,16s,32f}_{C3,AC4}R: that pixel of the window whose distances to all others have the least
// sum, the first in reading order where there are several. The distance of two pixels is |a0 - b0| + |a1 - b1| +
// |a2 - b2|.
//
// In strips of columns, from the top down:
//
//   planes     the source rows that a window covers, one channel apart from the other
//   maps       for each way (dx, dy) from one pixel of a window to another, dy >= 0: the distance of every pixel of a
//              row to the one that lies so. A new row brings the maps that end in it; the others stay
//   columns    for each row r of the window and each dx: the sum of the distances of a pixel of row r to the window's
//              pixels dx columns beside it, from top to bottom
//   choice     the sums of a window's pixels are those of its columns, from left to right
//
// Distances are exact, in 16 bits for 8u and 32 bits for 16s; in single precision the order above is the order of sums.
#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/parallel.h"
#include "rowkernels/channels.h"
#include "zori/filter.h"

namespace zori {
namespace median {
namespace {

// ---- Distances of two rows of pixels ----

inline Vec<uint8_t> difference(Vec<uint8_t> a, Vec<uint8_t> b) { return subSat(a, b) | subSat(b, a); }
inline Vec<uint16_t> difference(Vec<int16_t> a, Vec<int16_t> b) { return as<uint16_t>(max(a, b) - min(a, b)); }
inline Vec<float> difference(Vec<float> a, Vec<float> b) { return abs(a - b); }

// Sums of distances: how wide, and what a vector of samples gives.
template <class T> struct DistanceOf {
  using Type = std::make_signed_t<WiderT<T>>;
};
template <> struct DistanceOf<float> {
  using Type = float;
};
template <class T> using Distance = typename DistanceOf<T>::Type;

template <class T> inline void storeDistance(Distance<T>* to, Vec<T> (&a)[3], Vec<T> (&b)[3])
{
  using D = Distance<T>;
  const auto x = difference(a[0], b[0]), y = difference(a[1], b[1]), z = difference(a[2], b[2]);
  if constexpr (!isInt<T>) store(to, x + y + z);
  else {
    store(to, as<D>(widenLow(x) + widenLow(y) + widenLow(z)));
    store(to + Vec<D>::size, as<D>(widenHigh(x) + widenHigh(y) + widenHigh(z)));
  }
}

// ---- A strip ----

template <class T, int Side> struct Strip {
  using D = Distance<T>;
  static constexpr int most = sizeof(D) == 2 ? 128 : 56; // windows beside each other
  static constexpr int reach = Side - 1;                 // dx is -reach to reach
  static constexpr int ways = 2 * reach + 1;
  static constexpr int pitch = most + reach + Vec<T>::size;

  // Maps of dy are kept for Side - dy rows; those within a row have dx > 0 alone.
  static constexpr int kept(int dy) { return Side - dy; }
  static constexpr int firstMap(int dy)
  {
    return dy == 0 ? 0 : firstMap(dy - 1) + (dy == 1 ? reach : ways) * kept(dy - 1);
  }

  alignas(32) T planes[Side][3][pitch];
  alignas(32) D maps[firstMap(Side)][pitch];
  alignas(32) D columns[Side][ways][pitch];
  alignas(32) D choice[most + Vec<D>::size];

  // Where the maps from a row are, counted from the top of the strip, to the one dy below.
  struct Slot {
    int dy, number;

    Slot(std::ptrdiff_t row, int dy)
      : dy(dy), number(static_cast<int>(static_cast<std::uint32_t>(row) % static_cast<std::uint32_t>(kept(dy))))
    {}
  };
  D* map(Slot slot, int dx)
  {
    return maps[firstMap(slot.dy) + (slot.dy ? dx + reach : dx - 1) * kept(slot.dy) + slot.number];
  }
};

template <class T, int Channels> void takePlanes(const T* src, T* const (&planes)[3], std::ptrdiff_t pixels)
{
  using Bits =
    std::conditional_t<sizeof(T) == 1, std::uint8_t, std::conditional_t<sizeof(T) == 2, std::uint16_t, std::uint32_t>>;
  const auto colours = [](const auto& in, auto& out) { // of vectors of either width
    for (int k = 0; k < 3; ++k) out[k] = in[k];
  };
  const Planar<Bits, 3> to{
    {reinterpret_cast<Bits*>(planes[0]), reinterpret_cast<Bits*>(planes[1]), reinterpret_cast<Bits*>(planes[2])}};
  moveChannels<true>(PixelRows<Interleaved<const Bits, Channels>>{{{reinterpret_cast<const Bits*>(src)}}},
                     PixelRows<Planar<Bits, 3>>{to}, pixels, 1, colours, zero<Bits>());
}

// The maps from `row` to the row dy below it.
template <class T, int Side>
[[gnu::noinline]] void fillMaps(Strip<T, Side>& strip, std::ptrdiff_t row, int dy, std::ptrdiff_t pixels)
{
  const UpperHalvesCleared atTheEnd;
  const auto& a = strip.planes[row % Side];
  const auto& b = strip.planes[(row + dy) % Side];
  const typename Strip<T, Side>::Slot slot(row, dy);
  for (int dx = dy ? -strip.reach : 1; dx <= strip.reach; ++dx) {
    const std::ptrdiff_t first = dx < 0 ? -dx : 0, last = pixels - (dx > 0 ? dx : 0);
    Distance<T>* const to = strip.map(slot, dx);
    for (std::ptrdiff_t x = first; x < last; x += Vec<T>::size) { // rows have room for what is beyond the last pixel
      Vec<T> from[3], other[3];
      for (int k = 0; k < 3; ++k) {
        from[k] = load<T>(a[k] + x);
        other[k] = load<T>(b[k] + x + dx);
      }
      storeDistance<T>(to + x, from, other);
    }
  }
}

template <class T, std::size_t... K>
inline void addMaps(Distance<T>* to, const Distance<T>* const* maps, std::ptrdiff_t first, std::ptrdiff_t last,
                    std::index_sequence<K...>)
{
  using D = Distance<T>;
  for (std::ptrdiff_t x = first; x < last; x += Vec<D>::size) {
    Vec<D> sum = load<D>(maps[0] + x);
    ((sum = sum + load<D>(maps[K + 1] + x)), ...);
    store(to + x, sum);
  }
}
// The sums of columns beside the pixels of window row r, windows starting at row y.
template <class T, int Side>
[[gnu::noinline]] void sumColumns(Strip<T, Side>& strip, std::ptrdiff_t y, int r, std::ptrdiff_t pixels)
{
  using S = Strip<T, Side>;
  const UpperHalvesCleared atTheEnd;
  const Distance<T>* first[Side]; // the map of dx = 0 (of the row itself: 1) to each row, and the way to the next dx
  std::ptrdiff_t next[Side];
  for (int other = 0; other < Side; ++other) {
    const bool isBack = other < r;
    const typename S::Slot slot(isBack ? y + other : y + r, isBack ? r - other : other - r);
    first[other] = strip.map(slot, other == r ? 1 : 0);
    next[other] = S::kept(slot.dy) * std::ptrdiff_t{S::pitch} * (isBack ? -1 : 1) + (isBack ? 1 : 0);
  }
  for (int dx = -strip.reach; dx <= strip.reach; ++dx) {
    const Distance<T>* maps[Side];
    int n = 0;
    for (int other = 0; other < Side; ++other) {
      if (other != r) maps[n++] = first[other] + dx * next[other];
      else if (dx > 0) maps[n++] = first[other] + (dx - 1) * next[other];
      else if (dx < 0) maps[n++] = first[other] + (-dx - 1) * next[other] + dx; // the way back
    }
    const std::ptrdiff_t begin = dx < 0 ? -dx : 0, end = pixels - (dx > 0 ? dx : 0);
    Distance<T>* const to = strip.columns[r][dx + strip.reach];
    if (dx != 0) addMaps<T>(to, maps, begin, end, std::make_index_sequence<Side - 1>{});
    else addMaps<T>(to, maps, begin, end, std::make_index_sequence<Side - 2>{});
  }
}

// For each window the number of its pixel with the least sum.
template <class T, int Side> [[gnu::noinline]] void choose(Strip<T, Side>& strip, std::ptrdiff_t windows)
{
  using D = Distance<T>;
  const auto number = [](int k) {
    if constexpr (isInt<D>) return splat(static_cast<D>(k));
    else return as<float>(splat(k));
  };
  for (std::ptrdiff_t x = 0; x < windows; x += Vec<D>::size) {
    Vec<D> least{}, best = number(0);
    for (int r = 0; r < Side; ++r) {
      for (int c = 0; c < Side; ++c) {
        Vec<D> sum = load<D>(strip.columns[r][strip.reach - c] + x + c);
        for (int other = 1; other < Side; ++other)
          sum = sum + load<D>(strip.columns[r][strip.reach - c + other] + x + c);
        if (r + c == 0) least = sum;
        else {
          const Vec<D> less = greater(least, sum);
          least = min(sum, least); // of floats as `less` says: the second operand where neither is less
          best = select(less, number(r * Side + c), best);
        }
      }
    }
    store(strip.choice + x, best);
  }
}

// ---- The region ----

template <class T, Layout L, int Side>
[[gnu::noinline]] void filterRows(Rows<const T> src, Rows<T> dst, std::ptrdiff_t width, int firstRow, int rows)
{
  constexpr int CH = channels<L>;
  using S = Strip<T, Side>;
  S strip;
  std::ptrdiff_t offset[Side * Side]; // of a window's pixels, in bytes
  for (int k = 0; k < Side * Side; ++k)
    offset[k] = rowOffset(k / Side, src.step) + k % Side * CH * static_cast<std::ptrdiff_t>(sizeof(T));

  constexpr std::ptrdiff_t lanes = Vec<typename S::D>::size;
  const std::ptrdiff_t strips = (width + S::most - 1) / S::most;
  const std::ptrdiff_t most = ((width + strips - 1) / strips + lanes - 1) / lanes * lanes;
  for (std::ptrdiff_t at = 0; at < width; at += most) {
    const std::ptrdiff_t windows = std::min(most, width - at), pixels = windows + Side - 1;
    for (std::ptrdiff_t row = 0; row < std::ptrdiff_t{rows} + Side - 1; ++row) {
      auto& planes = strip.planes[row % Side];
      takePlanes<T, CH>(src[firstRow + row] + at * CH, {planes[0], planes[1], planes[2]}, pixels);
      for (int dy = 0; dy < Side && dy <= row; ++dy) fillMaps(strip, row - dy, dy, pixels);
      const std::ptrdiff_t y = row - (Side - 1);
      if (y < 0) continue;

      for (int r = 0; r < Side; ++r) sumColumns(strip, y, r, pixels);
      choose(strip, windows);
      const char* from = reinterpret_cast<const char*>(src[firstRow + y] + at * CH);
      char* to = reinterpret_cast<char*>(dst[firstRow + y] + at * CH);
      for (std::ptrdiff_t x = 0; x < windows; ++x) {
        std::int32_t k;
        if constexpr (sizeof(Distance<T>) == 4) std::memcpy(&k, strip.choice + x, sizeof k);
        else k = strip.choice[x];
        std::memcpy(to, from + offset[k], 3 * sizeof(T));
        from += CH * sizeof(T), to += CH * sizeof(T);
      }
    }
  }
}

template <class T, Layout L, int Side> ZorStatus filterWindows(Rows<const T> src, Rows<T> dst, ZorImgSize roi)
{
  constexpr int picosecondsPerPixel = 5000;
  const TeamRule team =
    TeamRule::forWork(static_cast<long long>(roi.width) * roi.height, picosecondsPerPixel).when(Side == 3);
  const Rows<const T> first{src[-(Side / 2)] - Side / 2 * channels<L>, src.step};
  return masterSlabs(team, Rounding::Nearest, roi.height, 0, [=](Slab slab) {
    if (slab.count) filterRows<T, L, Side>(first, dst, roi.width, slab.first, slab.count);
    return ZorOk;
  });
}

template <class T, Layout L>
ZorStatus filterColor(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roi, ZorMaskSize mask)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roi), positive(srcStep, dstStep),
                            require(mask == ZorMask3x3 || mask == ZorMask5x5, ZorErrMaskSize));
      s != ZorOk)
    return s;
  if (mask == ZorMask3x3) return filterWindows<T, L, 3>({pSrc, srcStep}, {pDst, dstStep}, roi);
  return filterWindows<T, L, 5>({pSrc, srcStep}, {pDst, dstStep}, roi);
}

} // namespace
} // namespace median
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout)                                                                                            \
  ZorStatus zoriFilterMedianColor_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst,            \
                                                       int dstStep, ZorImgSize roiSize, ZorMaskSize mask)              \
  { return median::filterColor<Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize, mask); }
STAMP(8u, C3) STAMP(8u, AC4) STAMP(16s, C3) STAMP(16s, AC4) STAMP(32f, C3) STAMP(32f, AC4)
#undef STAMP
