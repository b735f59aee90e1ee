// Linear resize kernels.
//
//          across, f in 1/16384                     down, g in 1/16384
//   8u     (a * (16384 - f) + b * f + 128) >> 8     (r0 * (16384 - g) + r1 * g + 524288) >> 20, saturated
//   16u/s  (a * (16384 - f) + b * f + 8192) >> 14   the same again, saturated at both stages
//   32f    a + (b - a) * f                          r0 * (1 - g) + r1 * g
//
// Weights sum to 16384, so that what is added to both taps comes out of a stage as it went in. 16u is moved by 32768
// into the signed range, in which one multiply-add weighs both taps. With vectors of 16 bytes rows of sums of 8u are
// kept 32 larger than told: that is the half by which the second stage rounds, and costs nothing in the first. With
// those of 32 bytes the second stage has a product that rounds.
#include "resize_windows.h"
#include "rowkernels/drivers.h"

namespace zori {
namespace resize {
namespace {

// ---- Across ----

using I16x8 =
  Vec<Zor16s, 16>; // both taps of what an I32x4 is worked in: a pixel of up to four samples, or four outputs
constexpr bool isWide = vectorBytes == 32;

// The 16-bit pair of weights of pixel N of four.
template <int N> inline I16x8 pairOf(I16x8 four) { return as<Zor16s>(shuffle<N, N, N, N>(as<Zor32s>(four))); }

// What a stage adds to its sum of products, and by how much it shifts.
struct Stage {
  int added, shift;
};
constexpr int halfInSums = isWide ? 0 : 32;
template <class T> inline constexpr Stage across = sizeof(T) == 1 ? Stage{128 + halfInSums * 256, 8} : Stage{8192, 14};
template <class T>
inline constexpr Stage down = sizeof(T) == 1 ? Stage{(32 - halfInSums) * 16384, 20} : Stage{8192, 14};

template <const Stage& S, int Bytes>
inline Vec<Zor32s, Bytes> weighed(Vec<Zor16s, Bytes> taps, Vec<Zor16s, Bytes> weights)
{
  const auto sum = mulAddPairs(taps, weights);
  return shiftRight<S.shift>(S.added ? sum + splat<Zor32s, Bytes>(S.added) : sum);
}

// Both taps of a pixel side by side, a0 b0 a1 b1 a2 b2 (a3 b3), as 16-bit lanes. Reads the two pixels, and two bytes
// behind them where it may.
template <class T, int C, bool MayReadOn> inline I16x8 tapsOfPixel(const T* p)
{
#if ZORI_VECTOR_BYTES == 32
  if constexpr (sizeof(T) == 1 && (C == 4 || MayReadOn)) {
    constexpr int end = C == 3 ? 128 : 3 + C; // the seventh byte is no tap of three
    alignas(16) static constexpr Zor8u order[16] = {
      0, 128, C, 128, 1, 128, 1 + C, 128, 2, 128, 2 + C, 128, end == 128 ? end : 3, 128, end, 128};
    return as<Zor16s>(shuffleBytesLocal(loadLow8<Zor8u>(p), loadAligned<Zor8u, 16>(order)));
  }
#endif
  if constexpr (sizeof(T) == 1 && C == 3 && MayReadOn) {
    return as<Zor16s>(widenLow(interleaveLow(loadLow4<Zor8u>(p), loadLow4<Zor8u>(p + 3))));
  } else if constexpr (sizeof(T) == 1 && C == 3) {
    const auto a = loadLow4<Zor8u>(p), b = loadLow4<Zor8u>(p + 2); // a0 a1 a2 b0, a2 b0 b1 b2
    return as<Zor16s>(widenLow(interleaveLow(a, bytesDown<1>(b))));
  } else if constexpr (sizeof(T) == 1) {
    const auto ab = loadLow8<Zor8u>(p);
    return as<Zor16s>(widenLow(interleaveLow(ab, bytesDown<4>(ab))));
  } else {
    constexpr int back = C == 3;
    const auto a = loadLow8<Zor16u>(p), b = loadLow8<Zor16u>(p + C - back);
    const auto taps = interleaveLow(a, bytesDown<2 * back>(b));
    return as<Zor16s>(std::is_same_v<T, Zor16u> ? taps ^ topBits<Zor16u, 16>() : taps);
  }
}

// Both taps of four outputs of one channel, a0 b0 a1 b1... Reads two bytes behind each pair of bytes where it may.
template <class T, bool MayReadOn> inline I16x8 tapsOfFour(const T* row, const std::int32_t* at)
{
  if constexpr (sizeof(T) == 1) {
    const auto pair = [=](int k) {
      if constexpr (MayReadOn) return as<Zor16u>(loadLow4<Zor8u>(row + at[k]));
      else return splat<Zor16u, 16>(get<Zor16u>(row + at[k]));
    };
    const auto low = as<Zor32u>(interleaveLow(pair(0), pair(1))), high = as<Zor32u>(interleaveLow(pair(2), pair(3)));
    return as<Zor16s>(widenLow(as<Zor8u>(interleaveLow(low, high))));
  } else {
    const auto taps = as<Zor16u>(gatherFour<2>(row, at));
    return as<Zor16s>(std::is_same_v<T, Zor16u> ? taps ^ topBits<Zor16u, 16>() : taps);
  }
}

// How many outputs, a multiple of `unit`, have their first tap at `last` or in front of it; places grow along the row.
std::ptrdiff_t outputsUpTo(const AxisTable& columns, int last, std::ptrdiff_t unit)
{
  std::ptrdiff_t end = (columns.count + unit - 1) / unit * unit;
  while (end > 0 && columns.at[end - 1] > last) end -= unit;
  return end;
}

template <class T, int C> [[gnu::noinline]] void acrossIntegers(const AxisTable& columns, const void* row, void* sums)
{
  const T* const src = static_cast<const T*>(row);
  Zor16s* const out = static_cast<Zor16s*>(sums);
  const std::int32_t* const at = columns.at;
  const Zor16s* const weights = columns.pairs();
  const auto block = [=](std::ptrdiff_t i, auto mayReadOn) {
    constexpr bool readsOn = decltype(mayReadOn)::value;
    if constexpr (C == 1) {
      const auto four = [=](std::ptrdiff_t k) {
        return weighed<across<T>>(tapsOfFour<T, readsOn>(src, at + k), loadAligned<Zor16s, 16>(weights + 2 * k));
      };
      store(out + i, narrowSat<Zor16s>(four(i), four(i + 4)));
    } else {
      const auto pixel = [=](std::ptrdiff_t k) { return tapsOfPixel<T, C, readsOn>(src + std::ptrdiff_t{at[k]} * C); };
      const auto w = loadAligned<Zor16s, 16>(weights + 2 * i);
      const auto p0 = weighed<across<T>>(pixel(i), pairOf<0>(w)), p1 = weighed<across<T>>(pixel(i + 1), pairOf<1>(w)),
                 p2 = weighed<across<T>>(pixel(i + 2), pairOf<2>(w)),
                 p3 = weighed<across<T>>(pixel(i + 3), pairOf<3>(w));
      const auto p01 = narrowSat<Zor16s>(p0, p1), p23 = narrowSat<Zor16s>(p2, p3);
      Zor16s* const to = out + i * C;
      if constexpr (C == 4) {
        store(to, p01);
        store(to + 8, p23);
      } else { // each pixel's fourth lane is written over by the next
        storeLow8(to, p01);
        storeHigh8(to + 3, p01);
        storeLow8(to + 6, p23);
        storeHigh8(to + 9, p23);
      }
    }
  };
  constexpr int unit = C == 1 ? 8 : 4, bytesRead = C == 1 ? 4 : 8; // of what may be read on
  constexpr int pixelsRead = sizeof(T) == 1 ? (bytesRead + C - 1) / C : 2;
  const std::ptrdiff_t count = columns.count, safe = outputsUpTo(columns, columns.image - pixelsRead, unit);
  std::ptrdiff_t i = 0;
  for (; i < safe; i += unit) block(i, std::true_type());
  for (; i < count; i += unit) block(i, std::false_type());
}

template <int C> [[gnu::noinline]] void acrossFloats(const AxisTable& columns, const void* row, void* sums)
{
  const Zor32f* const src = static_cast<const Zor32f*>(row);
  Zor32f* out = static_cast<Zor32f*>(sums);
  const std::int32_t* const at = columns.at;
  const float* const f = columns.plane(0);
  const std::ptrdiff_t count = columns.count;
  if constexpr (C == 1) {
    for (std::ptrdiff_t i = 0; i < count; i += 4) {
      const F32x4 p01 = loadHalves(src + at[i], src + at[i + 1]), p23 = loadHalves(src + at[i + 2], src + at[i + 3]);
      const F32x4 a = shuffle<2, 0, 2, 0>(p01, p23), b = shuffle<3, 1, 3, 1>(p01, p23);
      store(out + i, a + (b - a) * loadFour(f + i));
    }
  } else {
    for (std::ptrdiff_t i = 0; i < count; ++i, out += C) {
      const Zor32f* const p = src + std::ptrdiff_t{at[i]} * C;
      const F32x4 a = loadFour(p);
      F32x4 b = loadFour(p + (C == 3 ? 2 : 4));
      if constexpr (C == 3) b = shuffle<3, 3, 2, 1>(b, b);
      store(out, a + (b - a) * F32x4(splatFour(f[i])));
    }
  }
}

// ---- Down ----

// Rows of 8u with sums in 0 .. 255 * 64 and 0 <= g <= 16384: out = (r0 + ((r1 - r0) * g >> 14) + 32) >> 6 in 16 bits,
// where the rows bring the 32, or the last product does.
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
#if ZORI_VECTOR_BYTES == 32
    return mulRounded(r + share, splat<Zor16s>(1 << 9));
#else
    return shiftRight<6>(r + share);
#endif
  }
};

// Any sums and fractions.
template <class T> struct DownPairs {
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
    return narrowSatLocal<Zor16s>(weighed<down<T>>(interleaveLowLocal(a, b), weights),
                                  weighed<down<T>>(interleaveHighLocal(a, b), weights));
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

// The kernel by windows, where they hold the taps of this table.
#if ZORI_VECTOR_BYTES == 32
template <class T> void acrossPairs(const AxisTable& columns, const void* row, void* sums)
{
  const UpperHalvesCleared atTheEnd;
  acrossPairWindows<T>(columns, row, sums, [](auto taps, auto weights) { return weighed<across<T>>(taps, weights); });
}
template <class T> AcrossRow windowsKernel(int channels, AxisTable& columns)
{
  if constexpr (std::is_same_v<T, Zor32f>) {
    return channels == 1 && makeFloatWindows(columns) ? acrossFloatWindows : nullptr;
  } else {
    if constexpr (sizeof(T) == 1)
      if (makeByteWindows(columns, channels))
        return channels == 1 ? acrossByteWindows<1> : channels == 3 ? acrossByteWindows<3> : acrossByteWindows<4>;
    return channels == 1 && makePairWindows(columns, sizeof(T)) ? acrossPairs<T> : nullptr;
  }
}
#else
template <class T> AcrossRow windowsKernel(int, AxisTable&) { return nullptr; }
#endif

template <class T> AcrossRow kernelOf(int channels, AxisTable& columns)
{
  if (const AcrossRow windows = windowsKernel<T>(channels, columns)) return windows;
  if constexpr (std::is_same_v<T, Zor32f>)
    return channels == 1 ? acrossFloats<1> : channels == 3 ? acrossFloats<3> : acrossFloats<4>;
  else return channels == 1 ? acrossIntegers<T, 1> : channels == 3 ? acrossIntegers<T, 3> : acrossIntegers<T, 4>;
}

} // namespace

Kernels linearKernels(Element element, int channels, AxisTable& columns)
{
  switch (element) {
  case Element::U8: return {kernelOf<Zor8u>(channels, columns), downIntegers<Zor8u>, 2};
  case Element::U16: return {kernelOf<Zor16u>(channels, columns), downIntegers<Zor16u>, 2};
  case Element::S16: return {kernelOf<Zor16s>(channels, columns), downIntegers<Zor16s>, 2};
  default: return {kernelOf<Zor32f>(channels, columns), downFloats, 4};
  }
}

} // namespace resize
} // namespace zori
