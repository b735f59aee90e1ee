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
template <int C> [[gnu::noinline]] void acrossByteWindows(const AxisTable& columns, const void* row, void* sums)
{
  const UpperHalvesCleared atTheEnd;
  constexpr std::ptrdiff_t outputs = byteWindowOutputs(C), each = outputs * C;                    // sums of a window
  const auto first = as<Zor8s>(splat<Zor16u>(64)), difference = as<Zor8s>(splat<Zor16u>(0x40c0)); // 64 0, -64 64
  const Zor8u* const src = static_cast<const Zor8u*>(row);
  const std::int32_t* at = columns.at;
  const Zor8u* plan = columns.shuffles;
  Zor16s *out = static_cast<Zor16s*>(sums), *const end = out + std::ptrdiff_t{columns.count} * C;
  for (; out < end; out += 2 * each, at += 2, plan += 64) {
    const auto window = joined(load<Zor8u, 16>(src + at[0]), load<Zor8u, 16>(src + at[1]));
    const auto taps = shuffleBytesLocal(window, loadAligned<Zor8u>(plan));
    const auto x = mulAddPairs(taps, first) + mulRounded(mulAddPairs(taps, difference), loadAligned<Zor16s>(plan + 32));
    if constexpr (each == 8) {
      store(out, x);
    } else { // what is behind a window's sums is written over by the next
      store(out, lowHalf(x));
      store(out + each, highHalf(x));
    }
  }
}

// 16 bits, and 8u whose outputs lie too far apart for the above: four outputs of each window, a0 b0 a1 b1...
template <class T, class Weighed>
inline void acrossPairWindows(const AxisTable& columns, const void* row, void* sums, Weighed weighed)
{
  const T* const src = static_cast<const T*>(row);
  const std::int32_t* const at = columns.at;
  const Zor8u* const shuffles = columns.shuffles;
  const Zor16s* const weights = columns.pairs();
  Zor16s* const out = static_cast<Zor16s*>(sums);
  const auto eight = [=](std::ptrdiff_t i) {
    const auto window = joined(load<Zor8u, 16>(src + at[i]), load<Zor8u, 16>(src + at[i + 4]));
    auto taps = as<Zor16u>(shuffleBytesLocal(window, loadAligned<Zor8u>(shuffles + 4 * i)));
    if constexpr (std::is_same_v<T, Zor16u>) taps = taps ^ topBits<Zor16u>();
    return weighed(as<Zor16s>(taps), loadAligned<Zor16s>(weights + 2 * i));
  };
  for (std::ptrdiff_t i = 0; i < columns.count; i += 16) store(out + i, narrowSat<Zor16s>(eight(i), eight(i + 8)));
}

// 32f: eight outputs of a window of eight samples.
[[gnu::noinline]] inline void acrossFloatWindows(const AxisTable& columns, const void* row, void* sums)
{
  const UpperHalvesCleared atTheEnd;
  const Zor32f* const src = static_cast<const Zor32f*>(row);
  Zor32f* const out = static_cast<Zor32f*>(sums);
  const std::int32_t* const at = columns.at;
  const Zor8u* const places = columns.shuffles;
  const float* const f = columns.plane(0);
  for (std::ptrdiff_t i = 0; i < columns.count; i += 8) {
    const auto window = load<float>(src + at[i]);
    const auto place = loadAligned<Zor32s>(places + 4 * i);
    const auto a = lanesAt(window, place), b = lanesAt(window, place + splat<Zor32s>(1));
    store(out + i, a + (b - a) * loadAligned<float>(f + i));
  }
}

#endif

} // namespace ZORI_WIDTH
} // namespace resize
} // namespace zori
