// Kernels by windows: 16 or 32 bytes of the source row that hold all taps of a few outputs, out of which shuffles that
// have been planned bring them into lanes. They need vectors of 32 bytes; without them there are none.
//
// Those of linear tell the sums that the other kernels tell; see resize_linear.cpp.
#pragma once

#include "resize_kernels.h"
#include "rowkernels/simd_32_only.h"

namespace zori {
namespace resize {
inline namespace ZORI_WIDTH {

#if ZORI_VECTOR_BYTES == 32

// Nearest, pixels of N bytes: 32 bytes of the destination from two windows of 16. The last ones end with the row.
template <int N> [[gnu::noinline]] void copyWindows(const AxisTable& columns, const void* row, void* dst)
{
  const UpperHalvesCleared atTheEnd;
  const Zor8u* const src = static_cast<const Zor8u*>(row);
  Zor8u* const out = static_cast<Zor8u*>(dst);
  const std::int32_t* at = columns.at;
  const Zor8u* order = columns.shuffles;
  const std::ptrdiff_t last = std::ptrdiff_t{columns.count} * N - 32;
  const auto block = [&](std::ptrdiff_t i) {
    const auto window = joined(load<Zor8u, 16>(src + at[0]), load<Zor8u, 16>(src + at[1]));
    store(out + i, shuffleBytesLocal(window, loadAligned<Zor8u>(order)));
    at += 2;
    order += 32;
  };
  for (std::ptrdiff_t i = 0; i < last; i += 32) block(i);
  block(last);
}

// 8u, eight sums of each window: a * 64 + ((b - a) * f + 128 >> 8), where (b - a) * 64 and 2 * f give the shifted
// product in one step. Two pixels of three samples leave two of the eight lanes empty.
template <int C, int N>
[[gnu::noinline]] void acrossByteWindows(const AxisTable& columns, const void* const* rows, void* const* sums)
{
  const UpperHalvesCleared atTheEnd;
  constexpr std::ptrdiff_t outputs = byteWindowOutputs(C), each = outputs * C;                    // sums of a window
  const auto first = as<Zor8s>(splat<Zor16u>(64)), difference = as<Zor8s>(splat<Zor16u>(0x40c0)); // 64 0, -64 64
  const Zor8u* src[N];
  Zor16s* out[N];
  for (int r = 0; r < N; ++r) src[r] = static_cast<const Zor8u*>(rows[r]), out[r] = static_cast<Zor16s*>(sums[r]);
  const std::int32_t* at = columns.at;
  const Zor8u* plan = columns.shuffles;
  const std::ptrdiff_t end = std::ptrdiff_t{columns.count} * C;
  for (std::ptrdiff_t i = 0; i < end; i += 2 * each, at += 2, plan += 64) {
    const auto order = loadedOnce(loadAligned<Zor8u>(plan));
    const auto factors = loadedOnce(loadAligned<Zor16s>(plan + 32));
    const std::ptrdiff_t at0 = at[0], at1 = at[1];
    for (int r = 0; r < N; ++r) {
      const auto window = joined(load<Zor8u, 16>(src[r] + at0), load<Zor8u, 16>(src[r] + at1));
      const auto taps = shuffleBytesLocal(window, order);
      const auto x = mulAddPairs(taps, first) + mulRounded(mulAddPairs(taps, difference), factors);
      if constexpr (each == 8) {
        store(out[r] + i, x);
      } else { // what is behind a window's sums is written over by the next
        store(out[r] + i, lowHalf(x));
        store(out[r] + i + each, highHalf(x));
      }
    }
  }
}

// 16 bits, and 8u whose outputs lie too far apart for the above: four outputs of each window, a0 b0 a1 b1...
template <class T, int N, class Weighed>
inline void acrossPairWindows(const AxisTable& columns, const void* const* rows, void* const* sums, Weighed weighed)
{
  const T* src[N];
  Zor16s* out[N];
  for (int r = 0; r < N; ++r) src[r] = static_cast<const T*>(rows[r]), out[r] = static_cast<Zor16s*>(sums[r]);
  const std::int32_t* const at = columns.at;
  const Zor8u* const shuffles = columns.shuffles;
  const Zor16s* const weights = columns.pairs();
  const std::ptrdiff_t end = columns.count;
  for (std::ptrdiff_t i = 0; i < end; i += 16) {
    Vec<Zor32s> eight[2][N];
    for (int half = 0; half < 2; ++half) {
      const std::ptrdiff_t k = i + 8 * half, at0 = at[k], at1 = at[k + 4];
      const auto order = loadedOnce(loadAligned<Zor8u>(shuffles + 4 * k));
      const auto by = loadedOnce(loadAligned<Zor16s>(weights + 2 * k));
      for (int r = 0; r < N; ++r) {
        const auto window = joined(load<Zor8u, 16>(src[r] + at0), load<Zor8u, 16>(src[r] + at1));
        auto taps = as<Zor16u>(shuffleBytesLocal(window, order));
        if constexpr (std::is_same_v<T, Zor16u>) taps = taps ^ topBits<Zor16u>();
        eight[half][r] = weighed(as<Zor16s>(taps), by);
      }
    }
    for (int r = 0; r < N; ++r) store(out[r] + i, narrowSatLocal<Zor16s>(eight[0][r], eight[1][r]));
  }
}

// 32f: eight outputs of a window of eight samples.
template <int N>
[[gnu::noinline]] void acrossFloatWindows(const AxisTable& columns, const void* const* rows, void* const* sums)
{
  const UpperHalvesCleared atTheEnd;
  const Zor32f* src[N];
  Zor32f* out[N];
  for (int r = 0; r < N; ++r) src[r] = static_cast<const Zor32f*>(rows[r]), out[r] = static_cast<Zor32f*>(sums[r]);
  const std::int32_t* const at = columns.at;
  const Zor8u* const places = columns.shuffles;
  const float* const f = columns.plane(0);
  const std::ptrdiff_t end = columns.count;
  for (std::ptrdiff_t i = 0; i < end; i += 8) {
    const std::ptrdiff_t start = at[i];
    const auto place = loadAligned<Zor32s>(places + 4 * i), next = place + splat<Zor32s>(1);
    const auto by = loadedOnce(loadAligned<float>(f + i));
    for (int r = 0; r < N; ++r) {
      const auto window = load<float>(src[r] + start);
      const auto a = lanesAt(window, place), b = lanesAt(window, next);
      store(out[r] + i, a + (b - a) * by);
    }
  }
}

#endif

} // namespace ZORI_WIDTH
} // namespace resize
} // namespace zori
