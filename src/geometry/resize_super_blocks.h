// Supersampling of bytes under blocks of two to four whole pixels in a row, by windows: 16 bytes of each row that hold
// the pixels of a few outputs, which a shuffle brings into pairs, and a product adds. They need vectors of 32 bytes.
#pragma once

#include "resize_super_sums.h"

namespace zori {
namespace resize {
namespace {

#if ZORI_VECTOR_BYTES == 32

// N pixels of C samples a row.
template <int C, int N> struct BlockWindow {
  static constexpr int outputs = C == 1 ? 4 : N == 2 ? 2 : 1, used = outputs * N * C; // bytes
  static_assert(used <= 16 && 16 - used <= used);

  // Which bytes of the window go where: of one channel, each output's to four bytes; of several, the pair that each sum
  // is of to the place of the channel, pixels 2 and 3 eight bytes behind. `moved`: by how much the window starts early.
  static constexpr auto order(int moved)
  {
    struct Bytes {
      alignas(16) Zor8u at[16];
    } bytes = {};
    for (int i = 0; i < 16; ++i) {
      const int first = C == 1 ? i / 4 * N : i / 8 * 2, pixel = C == 1 ? i % 4 : i % 2,
                channel = C == 1 ? 0 : i % 8 / 2;
      const bool isPart = channel < C && (C == 1 ? pixel < N : N == 2 || first + pixel < N);
      bytes.at[i] = isPart ? static_cast<Zor8u>((first + pixel) * C + channel + moved) : 0x80;
    }
    return bytes;
  }
};

// The totals of `count` outputs, at least those of two windows (four of one channel), under blocks of M rows (0: as
// many as are given). The last window of a group starts early and ends with the group, so that nothing behind the
// outputs is read; the last group overlaps the one before it.
template <int C, int N, int M>
[[gnu::noinline]] void sumBlocks(const Zor8u* src, std::ptrdiff_t step, int given, std::ptrdiff_t count,
                                 std::uint16_t* totals)
{
  const UpperHalvesCleared atTheEnd;
  using Window = BlockWindow<C, N>;
  constexpr int early = 16 - Window::used;
  static constexpr auto usual = Window::order(0), moved = Window::order(early);
  const auto order = loadAligned<Zor8u, 16>(usual.at);
  const auto usually = joined(order, order), lastly = joined(order, loadAligned<Zor8u, 16>(moved.at));
  const int rows = M > 0 ? M : given;
  // two windows
  const auto sums = [=](const Zor8u* low, const Zor8u* high, Vec<Zor8u> by) {
    auto sum = zero<Zor16s>();
    for (int r = 0; r < rows; ++r, low += step, high += step)
      sum += mulAddPairs(shuffleBytesLocal(joined(load<Zor8u, 16>(low), load<Zor8u, 16>(high)), by), splat<Zor8s>(1));
    return sum;
  };
  constexpr std::ptrdiff_t used = Window::used, group = (C == 1 ? 4 : 2) * Window::outputs;
  const auto block = [=](std::ptrdiff_t o) {
    const Zor8u* const p = src + o * (N * C);
    std::uint16_t* const to = totals + o * C;
    if constexpr (C == 1) {
      const auto ones = splat<Zor16s>(1);
      store(to, narrowSat<Zor16s>(mulAddPairs(sums(p, p + used, usually), ones),
                                  mulAddPairs(sums(p + 2 * used, p + 3 * used - early, lastly), ones)));
    } else {
      auto x = as<std::uint64_t>(sums(p, p + used - early, lastly));
      if constexpr (N > 2) x = as<std::uint64_t>(as<Zor16s>(x) + as<Zor16s>(interleaveHighLocal(x, x)));
      // what is behind a pixel's totals is written over by the next
      storeLow8(to, lowHalf(x));
      if constexpr (N == 2) storeHigh8(to + C, lowHalf(x));
      storeLow8(to + group / 2 * C, highHalf(x));
      if constexpr (N == 2) storeHigh8(to + (group / 2 + 1) * C, highHalf(x));
    }
  };
  for (std::ptrdiff_t o = 0; o + group < count; o += group) block(o);
  block(count - group);
}

using SumBlocks = void (*)(const Zor8u* src, std::ptrdiff_t step, int rows, std::ptrdiff_t count,
                           std::uint16_t* totals);
template <int C, int N> SumBlocks blockSums(long long height)
{
  return height == N ? sumBlocks<C, N, N> : sumBlocks<C, N, 0>;
}

// The kernel for blocks of so many pixels, or null.
inline SumBlocks blockSums(int channels, long long width, long long height)
{
  if (width * height > 128) return nullptr; // totals stay in 15 bits
  switch (channels * 10 + static_cast<int>(width)) {
  case 13: return blockSums<1, 3>(height);
  case 14: return blockSums<1, 4>(height);
  case 32: return blockSums<3, 2>(height);
  case 33: return blockSums<3, 3>(height);
  case 34: return blockSums<3, 4>(height);
  case 42: return blockSums<4, 2>(height);
  case 43: return blockSums<4, 3>(height);
  case 44: return blockSums<4, 4>(height);
  default: return nullptr;
  }
}
constexpr int leastBlocks = 16; // outputs of a row

#endif

} // namespace
} // namespace resize
} // namespace zori
