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

// Kernels for N rows share what they read of tables: it is read before any sum is stored.
template <class T, class S, int N> struct Rows {
  const T* src[N];
  S* sums[N];
  Rows(const void* const* rows, void* const* to)
  {
    for (int r = 0; r < N; ++r) src[r] = static_cast<const T*>(rows[r]), sums[r] = static_cast<S*>(to[r]);
  }
};

template <class T, int C, int N>
[[gnu::noinline]] void acrossIntegers(const AxisTable& columns, const void* const* rows, void* const* sums)
{
  const Rows<T, Zor16s, N> of(rows, sums);
  const std::int32_t* const at = columns.at;
  const Zor16s* const weights = columns.pairs();
  const auto block = [=](std::ptrdiff_t i, auto mayReadOn) {
    constexpr bool readsOn = decltype(mayReadOn)::value;
    if constexpr (C == 1) {
      I32x4 eight[2][N];
      for (int half = 0; half < 2; ++half) {
        const std::ptrdiff_t k = i + 4 * half;
        const auto by = loadAligned<Zor16s, 16>(weights + 2 * k);
        for (int r = 0; r < N; ++r) eight[half][r] = weighed<across<T>>(tapsOfFour<T, readsOn>(of.src[r], at + k), by);
      }
      for (int r = 0; r < N; ++r) store(of.sums[r] + i, narrowSat<Zor16s>(eight[0][r], eight[1][r]));
    } else {
      const std::ptrdiff_t at0 = at[i], at1 = at[i + 1], at2 = at[i + 2], at3 = at[i + 3];
      const auto w = loadAligned<Zor16s, 16>(weights + 2 * i);
      const auto w0 = pairOf<0>(w), w1 = pairOf<1>(w), w2 = pairOf<2>(w), w3 = pairOf<3>(w);
      for (int r = 0; r < N; ++r) {
        const auto pixel = [=](std::ptrdiff_t k, I16x8 by) {
          return weighed<across<T>>(tapsOfPixel<T, C, readsOn>(of.src[r] + k * C), by);
        };
        const auto p01 = narrowSat<Zor16s>(pixel(at0, w0), pixel(at1, w1)),
                   p23 = narrowSat<Zor16s>(pixel(at2, w2), pixel(at3, w3));
        Zor16s* const to = of.sums[r] + i * C;
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
    }
  };
  constexpr int unit = C == 1 ? 8 : 4, bytesRead = C == 1 ? 4 : 8; // of what may be read on
  constexpr int pixelsRead = sizeof(T) == 1 ? (bytesRead + C - 1) / C : 2;
  const std::ptrdiff_t count = columns.count, safe = outputsUpTo(columns, columns.image - pixelsRead, unit);
  std::ptrdiff_t i = 0;
  for (; i < safe; i += unit) block(i, std::true_type());
  for (; i < count; i += unit) block(i, std::false_type());
}

template <int C, int N>
[[gnu::noinline]] void acrossFloats(const AxisTable& columns, const void* const* rows, void* const* sums)
{
  const Rows<Zor32f, Zor32f, N> of(rows, sums);
  const std::int32_t* const at = columns.at;
  const float* const f = columns.plane(0);
  const std::ptrdiff_t count = columns.count;
  if constexpr (C == 1) {
    for (std::ptrdiff_t i = 0; i < count; i += 4) {
      const std::ptrdiff_t at0 = at[i], at1 = at[i + 1], at2 = at[i + 2], at3 = at[i + 3];
      const auto by = loadFour(f + i);
      for (int r = 0; r < N; ++r) {
        const Zor32f* const src = of.src[r];
        const F32x4 p01 = loadHalves(src + at0, src + at1), p23 = loadHalves(src + at2, src + at3);
        const F32x4 a = shuffle<2, 0, 2, 0>(p01, p23), b = shuffle<3, 1, 3, 1>(p01, p23);
        store(of.sums[r] + i, a + (b - a) * by);
      }
    }
  } else {
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      const std::ptrdiff_t first = std::ptrdiff_t{at[i]} * C;
      const F32x4 by = splatFour(f[i]);
      for (int r = 0; r < N; ++r) {
        const Zor32f* const p = of.src[r] + first;
        const F32x4 a = loadFour(p);
        F32x4 b = loadFour(p + (C == 3 ? 2 : 4));
        if constexpr (C == 3) b = shuffle<3, 3, 2, 1>(b, b);
        store(of.sums[r] + i * C, a + (b - a) * by);
      }
    }
  }
}

// ---- Down ----

// An operation on both rows of sums makes N rows, `step` bytes apart, of destination rows with the same taps.

// Rows of 8u with sums in 0 .. 255 * 64 and 0 <= g <= 16384: out = (r + ((r1 - r0) * c >> 16) + 32) >> 6 in 16 bits,
// where the rows bring the 32, or the last product does. The factor c is 4 * g if that fits 16 bits, and then r is r0;
// beyond it is 4 * (g - 16384), not below -32768, and r is r1.
template <bool... IsNearSecond> struct DownBytes {
  static constexpr std::ptrdiff_t blockLength = Vec<Zor8u>::size;
  static constexpr int rows = sizeof...(IsNearSecond);
  Vec<Zor16s> factor[rows];
  int step;

  void block(const Zor16s* r0, const Zor16s* r1, Zor8u* dst) const
  {
    constexpr int half = Vec<Zor16s>::size;
    constexpr bool isSecond[] = {IsNearSecond...};
    const auto low0 = load<Zor16s>(r0), high0 = load<Zor16s>(r0 + half), low1 = load<Zor16s>(r1),
               high1 = load<Zor16s>(r1 + half);
    const auto low = low1 - low0, high = high1 - high0; // differences
    for (int k = 0; k < rows; ++k)
      store(rowAt(dst, step, k), narrowSat<Zor8u>(rounded((isSecond[k] ? low1 : low0) + mulHigh(low, factor[k])),
                                                  rounded((isSecond[k] ? high1 : high0) + mulHigh(high, factor[k]))));
  }
  static Vec<Zor16s> rounded(Vec<Zor16s> x)
  {
#if ZORI_VECTOR_BYTES == 32
    return mulRounded(x, splat<Zor16s>(1 << 9));
#else
    return shiftRight<6>(x);
#endif
  }
};

// Any sums and fractions.
template <class T, int N> struct DownPairs {
  static constexpr std::ptrdiff_t blockLength = Vec<T>::size;
  Vec<Zor16s> weights[N]; // 16384 - g, g
  int step;

  void block(const Zor16s* r0, const Zor16s* r1, T* dst) const
  {
    constexpr int parts = 2 / sizeof(T);
    Vec<Zor16s> low[parts], high[parts];
    for (int p = 0; p < parts; ++p) {
      const auto a = load<Zor16s>(r0 + p * Vec<Zor16s>::size), b = load<Zor16s>(r1 + p * Vec<Zor16s>::size);
      low[p] = interleaveLowLocal(a, b);
      high[p] = interleaveHighLocal(a, b);
    }
    for (int k = 0; k < N; ++k) {
      Vec<Zor16s> x[parts];
      for (int p = 0; p < parts; ++p)
        x[p] = narrowSatLocal<Zor16s>(weighed<down<T>>(low[p], weights[k]), weighed<down<T>>(high[p], weights[k]));
      T* const to = rowAt(dst, step, k);
      if constexpr (sizeof(T) == 1) store(to, narrowSat<T>(x[0], x[1]));
      else if constexpr (std::is_same_v<T, Zor16u>) store(to, as<T>(x[0]) ^ topBits<T>());
      else store(to, x[0]);
    }
  }
};

template <int N> struct DownFloats {
  static constexpr std::ptrdiff_t blockLength = 2 * Vec<float>::size;
  Vec<float> g0[N], g1[N];
  int step;

  void block(const float* r0, const float* r1, float* dst) const
  {
    constexpr int lanes = Vec<float>::size;
    for (int p = 0; p < 2 * lanes; p += lanes) {
      const auto a = load<float>(r0 + p), b = load<float>(r1 + p);
      for (int k = 0; k < N; ++k) store(rowAt(dst, step, k) + p, a * g0[k] + b * g1[k]);
    }
  }
};

// The operation on rows of sums. It stays in registers: as an argument it would go through memory, and be waited for.
template <class T, class Op, class S>
inline void makeRows(T* dst, std::ptrdiff_t samples, const Op& op, const S* r0, const S* r1)
{
  constexpr std::ptrdiff_t block = Op::blockLength;
  if (samples < block) {
    const Op copy = op;
    return mapBlocks(dst, samples, copy, r0, r1);
  }
  std::ptrdiff_t i = 0;
  for (; i + block <= samples; i += block) op.block(r0 + i, r1 + i, dst + i);
  if (i < samples) op.block(r0 + samples - block, r1 + samples - block, dst + samples - block);
}

// N rows from y on.
template <int N, class T>
[[gnu::noinline]] void downIntegers(const Zor16s* r0, const Zor16s* r1, const AxisTable& table, int y, bool hasNegative,
                                    T* dst, int step, std::ptrdiff_t samples)
{
  const UpperHalvesCleared atTheEnd;
  const int g = table.fraction(y), h = table.fraction(y + N - 1);
  if constexpr (sizeof(T) == 1) {
    const auto factor = [](int x) { return splat(static_cast<Zor16s>(4 * (x < 8192 ? x : x - 16384))); };
    if (!hasNegative && 0 <= g && g <= h) { // those of the same taps grow
      if constexpr (N == 1) {
        if (g >= 8192) return makeRows(dst, samples, DownBytes<true>{{factor(g)}, 0}, r0, r1);
        return makeRows(dst, samples, DownBytes<false>{{factor(g)}, 0}, r0, r1);
      } else {
        if (g >= 8192) return makeRows(dst, samples, DownBytes<true, true>{{factor(g), factor(h)}, step}, r0, r1);
        if (h >= 8192) return makeRows(dst, samples, DownBytes<false, true>{{factor(g), factor(h)}, step}, r0, r1);
        return makeRows(dst, samples, DownBytes<false, false>{{factor(g), factor(h)}, step}, r0, r1);
      }
    }
  } else {
    (void)hasNegative;
  }
  const auto weights = [](int x) {
    return as<Zor16s>(splat(static_cast<std::uint32_t>(16384 - x) | static_cast<std::uint32_t>(x) << 16));
  };
  if constexpr (N == 1) makeRows(dst, samples, DownPairs<T, 1>{{weights(g)}, 0}, r0, r1);
  else makeRows(dst, samples, DownPairs<T, 2>{{weights(g), weights(h)}, step}, r0, r1);
}

template <int N>
[[gnu::noinline]] void downFloats(const float* r0, const float* r1, const AxisTable& table, int y, float* dst, int step,
                                  std::ptrdiff_t samples)
{
  const UpperHalvesCleared atTheEnd;
  const float g = table.plane(0)[y], h = table.plane(0)[y + N - 1];
  if constexpr (N == 1) makeRows(dst, samples, DownFloats<1>{{splat(1.0f - g)}, {splat(g)}, 0}, r0, r1);
  else makeRows(dst, samples, DownFloats<2>{{splat(1.0f - g), splat(1.0f - h)}, {splat(g), splat(h)}, step}, r0, r1);
}

// Two rows at a time, where an operation that writes both has them long enough.
template <class T>
void downRows(const void* const* rows, const AxisTable& table, int y, int count, bool hasNegative, void* dst, int step,
              std::ptrdiff_t samples)
{
  using Sum = std::conditional_t<std::is_same_v<T, Zor32f>, float, Zor16s>;
  const Sum *const r0 = static_cast<const Sum*>(rows[0]), *const r1 = static_cast<const Sum*>(rows[1]);
  const auto make = [&](int k, auto n) {
    constexpr int each = decltype(n)::value;
    T* const out = rowAt(static_cast<T*>(dst), step, k);
    if constexpr (std::is_same_v<T, Zor32f>) downFloats<each>(r0, r1, table, y + k, out, step, samples);
    else downIntegers<each>(r0, r1, table, y + k, hasNegative, out, step, samples);
  };
  int k = 0;
  if (samples >= std::ptrdiff_t{2 * Vec<T>::size})
    for (; k + 1 < count; k += 2) make(k, std::integral_constant<int, 2>());
  for (; k < count; ++k) make(k, std::integral_constant<int, 1>());
}

// ---- The choice ----

using AcrossOneOrTwo = void (*)(const AxisTable& columns, const void* const* rows, void* const* sums);
template <AcrossOneOrTwo One, AcrossOneOrTwo Two>
void oneOrTwo(const AxisTable& columns, const void* const* rows, int count, void* const* sums)
{
  (count == 2 ? Two : One)(columns, rows, sums);
}

// The kernel by windows, where they hold the taps of this table.
#if ZORI_VECTOR_BYTES == 32
template <class T, int N>
[[gnu::noinline]] void acrossPairs(const AxisTable& columns, const void* const* rows, void* const* sums)
{
  const UpperHalvesCleared atTheEnd;
  acrossPairWindows<T, N>(columns, rows, sums,
                          [](auto taps, auto weights) { return weighed<across<T>>(taps, weights); });
}
template <class T> AcrossRows windowsKernel(int channels, AxisTable& columns)
{
  if constexpr (std::is_same_v<T, Zor32f>) {
    if (channels == 1 && makeFloatWindows(columns)) return oneOrTwo<acrossFloatWindows<1>, acrossFloatWindows<2>>;
  } else {
    if constexpr (sizeof(T) == 1)
      if (makeByteWindows(columns, channels)) switch (channels) {
        case 1: return oneOrTwo<acrossByteWindows<1, 1>, acrossByteWindows<1, 2>>;
        case 3: return oneOrTwo<acrossByteWindows<3, 1>, acrossByteWindows<3, 2>>;
        default: return oneOrTwo<acrossByteWindows<4, 1>, acrossByteWindows<4, 2>>;
        }
    if (channels == 1 && makePairWindows(columns, sizeof(T))) return oneOrTwo<acrossPairs<T, 1>, acrossPairs<T, 2>>;
  }
  return nullptr;
}
#else
template <class T> AcrossRows windowsKernel(int, AxisTable&) { return nullptr; }
#endif

template <class T, int C> AcrossRows plainKernel()
{
  if constexpr (std::is_same_v<T, Zor32f>) return oneOrTwo<acrossFloats<C, 1>, acrossFloats<C, 2>>;
  else return oneOrTwo<acrossIntegers<T, C, 1>, acrossIntegers<T, C, 2>>;
}

template <class T> Kernels kernelsOf(int channels, AxisTable& columns)
{
  if (const AcrossRows windows = windowsKernel<T>(channels, columns)) return {windows, downRows<T>, 2};
  return {channels == 1   ? plainKernel<T, 1>()
          : channels == 3 ? plainKernel<T, 3>()
                          : plainKernel<T, 4>(),
          downRows<T>, 2};
}

} // namespace

Kernels linearKernels(Element element, int channels, AxisTable& columns)
{
  switch (element) {
  case Element::U8: return kernelsOf<Zor8u>(channels, columns);
  case Element::U16: return kernelsOf<Zor16u>(channels, columns);
  case Element::S16: return kernelsOf<Zor16s>(channels, columns);
  default: return kernelsOf<Zor32f>(channels, columns);
  }
}

} // namespace resize
} // namespace zori
