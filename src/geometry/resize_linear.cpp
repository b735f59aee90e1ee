// Linear resize kernels.
//
//          across, f in 1/16384                     down, g in 1/16384
//   8u     (a * (16384 - f) + b * f + 128) >> 8     (r0 * (16384 - g) + r1 * g + 524288) >> 20, saturated
//   16u/s  (a * (16384 - f) + b * f + 8192) >> 14   the same again, saturated at both stages
//   32f    a + (b - a) * f                          r0 * (1 - g) + r1 * g
//
// 16u moves by 32768 on its way into the signed range, so that one multiply-add weighs both taps; the weights sum to
// 16384, so that the move is still 32768 behind each stage.
#include "resize_kernels.h"
#include "rowkernels/drivers.h"

namespace zori {
namespace resize {
namespace {

// ---- Across ----

using I32x4 = Vec<Zor32s>; // what a pixel of up to four samples is worked in

// The 16-bit pair of weights of pixel N of four.
template <int N> inline Vec<Zor16s> pairOf(Vec<Zor16s> four)
{
  return as<Zor16s>(shuffle<N, N, N, N>(as<Zor32s>(four)));
}

template <int Shift> inline I32x4 weighed(Vec<Zor16s> taps, Vec<Zor16s> weights)
{
  return shiftRight<Shift>(mulAddPairs(taps, weights) + splat<Zor32s>(1 << (Shift - 1)));
}

// Both taps of a pixel side by side, a0 b0 a1 b1 a2 b2 (a3 b3), as 16-bit lanes. Reads the two pixels and no more.
template <class T, int C> inline Vec<Zor16s> tapsOfPixel(const T* p)
{
  if constexpr (sizeof(T) == 1 && C == 3) {
    const auto a = loadLow4<Zor8u>(p), b = loadLow4<Zor8u>(p + 2); // a0 a1 a2 b0, a2 b0 b1 b2
    return as<Zor16s>(widenLow(interleaveLow(a, bytesDown<1>(b))));
  } else if constexpr (sizeof(T) == 1) {
    const auto ab = loadLow8<Zor8u>(p);
    return as<Zor16s>(widenLow(interleaveLow(ab, bytesDown<4>(ab))));
  } else {
    constexpr int back = C == 3;
    const auto a = loadLow8<Zor16u>(p), b = loadLow8<Zor16u>(p + C - back);
    const auto taps = interleaveLow(a, bytesDown<2 * back>(b));
    return as<Zor16s>(std::is_same_v<T, Zor16u> ? taps ^ topBits<Zor16u>() : taps);
  }
}

// Pairs of neighbouring samples from 16-bit or 32-bit places, as many as a vector of sums holds.
template <class T> struct PairsOfSamples {
  Vec<Zor16s> low, high;

  // mayReadOn: two bytes behind each pair are of the row, too.
  PairsOfSamples(const T* row, const std::int32_t* at, bool mayReadOn)
  {
    if constexpr (sizeof(T) == 1) {
      const Vec<Zor8u> pairs = as<Zor8u>(mayReadOn ? gather16ReadingOn<1>(row, at) : gather16<1>(row, at));
      low = as<Zor16s>(widenLow(pairs));
      high = as<Zor16s>(widenHigh(pairs));
    } else {
      const Vec<Zor16u> bias = std::is_same_v<T, Zor16u> ? topBits<Zor16u>() : zero<Zor16u>();
      low = as<Zor16s>(as<Zor16u>(gather32<2>(row, at)) ^ bias);
      high = as<Zor16s>(as<Zor16u>(gather32<2>(row, at + Vec<Zor32s>::size)) ^ bias);
      (void)mayReadOn;
    }
  }
};

template <class T, int C> [[gnu::noinline]] void acrossIntegers(const AxisTable& columns, const void* row, void* sums)
{
  constexpr int shift = sizeof(T) == 1 ? 8 : 14;
  const T* const src = static_cast<const T*>(row);
  Zor16s* out = static_cast<Zor16s*>(sums);
  const std::int32_t* const at = columns.at;
  const Zor16s* const weights = columns.pairs();
  const std::ptrdiff_t count = columns.count;
  if constexpr (C == 1) {
    constexpr std::ptrdiff_t lanes = Vec<Zor16s>::size;
    const auto block = [=](std::ptrdiff_t i, bool mayReadOn) {
      const PairsOfSamples<T> taps(src, at + i, mayReadOn);
      const auto low = weighed<shift>(taps.low, load<Zor16s>(weights + 2 * i)),
                 high = weighed<shift>(taps.high, load<Zor16s>(weights + 2 * i + lanes));
      store(out + i, narrowSat<Zor16s>(low, high));
    };
    const int last = columns.image - 4; // places grow along the row
    std::ptrdiff_t i = 0;
    for (; i < count && at[i + lanes - 1] <= last; i += lanes) block(i, true);
    for (; i < count; i += lanes) block(i, false);
  } else {
    const auto pixel = [=](std::ptrdiff_t i) { return tapsOfPixel<T, C>(src + std::ptrdiff_t{at[i]} * C); };
    for (std::ptrdiff_t i = 0; i < count; i += 4, out += 4 * C) {
      const auto w = load<Zor16s>(weights + 2 * i);
      const auto p0 = weighed<shift>(pixel(i), pairOf<0>(w)), p1 = weighed<shift>(pixel(i + 1), pairOf<1>(w)),
                 p2 = weighed<shift>(pixel(i + 2), pairOf<2>(w)), p3 = weighed<shift>(pixel(i + 3), pairOf<3>(w));
      const auto p01 = narrowSat<Zor16s>(p0, p1), p23 = narrowSat<Zor16s>(p2, p3);
      if constexpr (C == 4) {
        store(out, p01);
        store(out + 8, p23);
      } else { // each pixel's fourth lane is written over by the next
        storeLow8(out, p01);
        storeLow8(out + 3, bytesDown<8>(p01));
        storeLow8(out + 6, p23);
        storeLow8(out + 9, bytesDown<8>(p23));
      }
    }
  }
}

template <int C> [[gnu::noinline]] void acrossFloats(const AxisTable& columns, const void* row, void* sums)
{
  const Zor32f* const src = static_cast<const Zor32f*>(row);
  Zor32f* out = static_cast<Zor32f*>(sums);
  const std::int32_t* const at = columns.at;
  const float* const f = columns.plane(0);
  if constexpr (C == 1) {
    for (std::ptrdiff_t i = 0; i < columns.count; i += 4) {
      const F32x4 p01 = loadHalves(src + at[i], src + at[i + 1]), p23 = loadHalves(src + at[i + 2], src + at[i + 3]);
      const F32x4 a = shuffle<2, 0, 2, 0>(p01, p23), b = shuffle<3, 1, 3, 1>(p01, p23);
      store(out + i, a + (b - a) * loadFour(f + i));
    }
  } else {
    for (std::ptrdiff_t i = 0; i < columns.count; ++i, out += C) {
      const Zor32f* const p = src + std::ptrdiff_t{at[i]} * C;
      const F32x4 a = loadFour(p);
      F32x4 b = loadFour(p + (C == 3 ? 2 : 4));
      if constexpr (C == 3) b = shuffle<3, 3, 2, 1>(b, b);
      store(out, a + (b - a) * F32x4(splatFour(f[i])));
    }
  }
}

// ---- Down ----

// Rows of 8u with sums in 0 .. 255 * 64 and 0 <= g <= 16384: out = (r0 + ((r1 - r0) * g >> 14) + 32) >> 6 in 16 bits.
// 4 * g must fit a signed 16-bit factor: beyond the middle the rows change places, in the middle it is a shift.
template <bool IsMiddle> struct DownBytes {
  static constexpr std::ptrdiff_t blockLength = Vec<Zor8u>::size;
  Vec<Zor16s> factor;

  void block(const Zor16s* near, const Zor16s* far, Zor8u* dst) const
  {
    constexpr int half = Vec<Zor16s>::size;
    store(dst, narrowSat<Zor8u>(sum(near, far), sum(near + half, far + half)));
  }
  Vec<Zor16s> sum(const Zor16s* near, const Zor16s* far) const
  {
    const auto r = load<Zor16s>(near), difference = load<Zor16s>(far) - r;
    const auto share = IsMiddle ? shiftRight<1>(difference) : mulHigh(difference, factor);
    return shiftRight<6>(r + share + splat<Zor16s>(32));
  }
};

// Any sums and fractions.
template <class T> struct DownPairs {
  static constexpr int shift = sizeof(T) == 1 ? 20 : 14;
  static constexpr std::ptrdiff_t blockLength = Vec<T>::size;
  Vec<Zor16s> weights; // 16384 - g, g

  void block(const Zor16s* r0, const Zor16s* r1, T* dst) const
  {
    const Vec<Zor16s> x = sum(r0, r1);
    if constexpr (sizeof(T) == 1) store(dst, narrowSat<T>(x, sum(r0 + Vec<Zor16s>::size, r1 + Vec<Zor16s>::size)));
    else if constexpr (std::is_same_v<T, Zor16u>) store(dst, as<T>(x) ^ topBits<T>());
    else store(dst, x);
  }
  Vec<Zor16s> sum(const Zor16s* r0, const Zor16s* r1) const
  {
    const auto a = load<Zor16s>(r0), b = load<Zor16s>(r1);
    return narrowSat<Zor16s>(weighed<shift>(interleaveLow(a, b), weights),
                             weighed<shift>(interleaveHigh(a, b), weights));
  }
};

template <class T>
void downIntegers(const void* const* rows, const AxisTable& table, int y, bool hasNegative, void* dst,
                  std::ptrdiff_t samples)
{
  const Zor16s *const r0 = static_cast<const Zor16s*>(rows[0]), *const r1 = static_cast<const Zor16s*>(rows[1]);
  T* const out = static_cast<T*>(dst);
  const int g = table.fraction(y);
  if constexpr (sizeof(T) == 1) {
    const auto factor = [](int share) { return splat(static_cast<Zor16s>(4 * share)); };
    if (!hasNegative && g >= 0) {
      if (g == 8192) return mapBlocks(out, samples, DownBytes<true>{}, r0, r1);
      if (g < 8192) return mapBlocks(out, samples, DownBytes<false>{factor(g)}, r0, r1);
      return mapBlocks(out, samples, DownBytes<false>{factor(16384 - g)}, r1, r0);
    }
  } else {
    (void)hasNegative;
  }
  const auto pair = static_cast<std::uint32_t>(16384 - g) | static_cast<std::uint32_t>(g) << 16;
  mapBlocks(out, samples, DownPairs<T>{as<Zor16s>(splat(pair))}, r0, r1);
}

struct DownFloats {
  Vec<Zor32f> g0, g1;
  Vec<Zor32f> operator()(Vec<Zor32f> r0, Vec<Zor32f> r1) const { return r0 * g0 + r1 * g1; }
};

void downFloats(const void* const* rows, const AxisTable& table, int y, bool, void* dst, std::ptrdiff_t samples)
{
  const float g = table.plane(0)[y];
  mapRow(static_cast<Zor32f*>(dst), samples, DownFloats{splat(1.0f - g), splat(g)}, static_cast<const Zor32f*>(rows[0]),
         static_cast<const Zor32f*>(rows[1]));
}

template <class T> Kernels integerKernels(int channels)
{
  const AcrossRow across = channels == 1   ? acrossIntegers<T, 1>
                           : channels == 3 ? acrossIntegers<T, 3>
                                           : acrossIntegers<T, 4>;
  return {across, downIntegers<T>, 2};
}

} // namespace

Kernels linearKernels(Element element, int channels)
{
  switch (element) {
  case Element::U8: return integerKernels<Zor8u>(channels);
  case Element::U16: return integerKernels<Zor16u>(channels);
  case Element::S16: return integerKernels<Zor16s>(channels);
  default: break;
  }
  return {channels == 1 ? acrossFloats<1> : channels == 3 ? acrossFloats<3> : acrossFloats<4>, downFloats, 4};
}

} // namespace resize
} // namespace zori
