// Row kernels of the sampling stage: nearest and cubic of 8u, and the choice of a kernel. Linear ones are in
// sampling_linear.h, the fine forms in sampling_fine.h.
#include "sampling_linear.h"

namespace zori {
namespace geometry {

namespace {

template <class T, int Channels, int Processed> struct Pixels : LinearPixels<T, Channels, Processed> {
  using FinePixels<T, Channels, Processed>::bytes, FinePixels<T, Channels, Processed>::written,
    FinePixels<T, Channels, Processed>::hasAllTaps, LinearPixels<T, Channels, Processed>::storePixel;

  // ---- Nearest ----

  static void nearest(const Source&, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const std::int32_t* const offset = points.offset();
#pragma GCC unroll 4
    for (int i = 0; i < count; ++i) std::memcpy(dst + std::ptrdiff_t{i} * bytes, plane + offset[i], written);
  }

  // ---- Cubic, 8u: rows are summed to 6 fraction bits, then the four sums to whole numbers. ----

  // The upper left tap of a point, before its own pixel.
  static const Zor8u* firstTap(const Source& s, const Zor8u* plane) { return plane - s.step - bytes; }
  static bool allTaps(const Source& s, PointRow points, int i)
  {
    return hasAllTaps(s, points.wholeX()[i] >> 10, points.wholeY()[i] >> 10);
  }
  static std::uint64_t weightsAt(std::int32_t x) { return get<std::uint64_t>(cubicTable.rows[x & 1023]); }

  static void cubicPoints8(const Source& s, const Zor8u* plane, PointRow points, int first, int end, Zor8u* dst)
  {
    for (int i = first; i < end; ++i)
      cubicPoint8<Processed>(s, plane, points.wholeX()[i], points.wholeY()[i], dst + std::ptrdiff_t{i} * bytes);
  }

  // A group of points from `i` on that have all their taps: C1.
  static constexpr int cubicGroup = Channels == 1 ? 4 : vectorBytes / 16;

#if ZORI_VECTOR_BYTES == 32
  // Of two points: sums of rows 0 and 1 of either, then of rows 2 and 3.
  static Vec<std::int32_t> rowSums(const Source& s, const Zor8u* p, const Zor8u* q, std::int32_t x, std::int32_t y)
  {
    const std::int32_t rowAt[4] = {0, static_cast<std::int32_t>(s.step), static_cast<std::int32_t>(2 * s.step),
                                   static_cast<std::int32_t>(3 * s.step)};
    const auto pairs = [&](const Zor8u* from, std::int32_t fraction) {
      const auto taps = as<Zor8u>(gatherFour<1>(from, rowAt));
      return as<float>(mulAddPairs(as<std::int16_t>(widened(taps)), as<std::int16_t>(splat(weightsAt(fraction)))));
    };
    const Vec<float> a = pairs(p, x), b = pairs(q, y);
    return shiftRight<8>(as<std::int32_t>(evenLanes(a, b)) + as<std::int32_t>(oddLanes(a, b)) +
                         splat<std::int32_t>(128));
  }
  static void cubicFour8(const Source& s, const Zor8u* before, PointRow points, int i, Zor8u* dst)
  {
    const std::int32_t *const offset = points.offset() + i, *const x = points.wholeX() + i,
                              *const y = points.wholeY() + i;
    const auto sums = [&](int k) { return rowSums(s, before + offset[k], before + offset[k + 1], x[k], x[k + 1]); };
    const auto down = [&](int k) {
      return as<std::uint64_t>(
        interleaveLow(as<std::int32_t>(loadLow8<std::uint64_t>(cubicTable.rows[y[k] & 1023])),
                      as<std::int32_t>(loadLow8<std::uint64_t>(cubicTable.rows[y[k + 1] & 1023]))));
    };
    const auto a = down(0), b = down(2);
    const auto weights = as<std::int16_t>(joined(interleaveLow(a, b), interleaveHigh(a, b)));
    const auto both = mulAddPairs(narrowSatLocal<std::int16_t>(sums(0), sums(2)), weights);
    const I32x4 out = shiftRight<20>(lowHalf(both) + highHalf(both) + splat16<std::int32_t>(1 << 19));
    const auto words = narrowSat<std::int16_t>(out, out);
    storeLow4(dst + i, narrowSat<Zor8u>(words, words));
  }
#else
  // Four sums of rows, of one sample.
  static I32x4 rowSums(const Source& s, const Zor8u* p, const std::int16_t* wx)
  {
    const auto two = loadLow8<std::uint64_t>(wx);
    const auto weights = as<std::int16_t>(interleaveLow(two, two));
    const auto rows = [=](const Zor8u* q) {
      const auto bytes = interleaveLow(loadLow4<std::int32_t>(q), loadLow4<std::int32_t>(q + s.step));
      return as<float>(mulAddPairs(as<std::int16_t>(widenLow(as<Zor8u>(bytes))), weights));
    };
    const F32x4 a = rows(p), b = rows(p + 2 * s.step);
    return as<std::int32_t>(shuffle<2, 0, 2, 0>(a, b)) + as<std::int32_t>(shuffle<3, 1, 3, 1>(a, b));
  }
  static void cubicFour8(const Source& s, const Zor8u* before, PointRow points, int i, Zor8u* dst)
  {
    const std::int32_t *const offset = points.offset() + i, *const x = points.wholeX() + i,
                              *const y = points.wholeY() + i;
    const I32x4 rowHalf = splat<std::int32_t>(128), half = splat<std::int32_t>(1 << 19);
    const auto sums = [&](int k) {
      return shiftRight<8>(rowSums(s, before + offset[k], cubicTable.rows[x[k] & 1023]) + rowHalf);
    };
    const auto two = [&](int k) { // pairs of sums of two points
      const auto weights = interleaveLow(loadLow8<std::uint64_t>(cubicTable.rows[y[k] & 1023]),
                                         loadLow8<std::uint64_t>(cubicTable.rows[y[k + 1] & 1023]));
      return as<float>(mulAddPairs(narrowSat<std::int16_t>(sums(k), sums(k + 1)), as<std::int16_t>(weights)));
    };
    const F32x4 a = two(0), b = two(2);
    const I32x4 out =
      shiftRight<20>(as<std::int32_t>(shuffle<2, 0, 2, 0>(a, b)) + as<std::int32_t>(shuffle<3, 1, 3, 1>(a, b)) + half);
    const auto words = narrowSat<std::int16_t>(out, out);
    storeLow4(dst + i, narrowSat<Zor8u>(words, words));
  }
#endif

  // A group of pixels that have all their taps, each in 16 bytes of a vector.
#if ZORI_VECTOR_BYTES == 32
  struct TapOrders {
    alignas(32) Zor8u first[32], second[32]; // taps 0 and 1, 2 and 3, sample by sample, as words
    constexpr TapOrders() : first{}, second{}
    {
      for (int i = 0; i < 32; ++i) {
        const int word = i / 2 % 8, sample = word / 2 % Channels, tap = word % 2;
        first[i] = static_cast<Zor8u>(i % 2 ? 0x80 : tap * Channels + sample);
        second[i] = static_cast<Zor8u>(i % 2 ? 0x80 : (tap + 2) * Channels + sample);
      }
    }
  };
  static constexpr TapOrders tapOrders{};
#endif
  // The taps of a row as pairs of words.
  struct TapWords {
    Vec<std::int16_t> first, second;
    TapWords(const Zor8u* p, const std::int32_t* at)
    {
#if ZORI_VECTOR_BYTES == 32
      const auto x = gather128<Zor8u>(p, at);
      first = as<std::int16_t>(shuffleBytesLocal(x, load<Zor8u>(tapOrders.first)));
      second = as<std::int16_t>(shuffleBytesLocal(x, load<Zor8u>(tapOrders.second)));
#else
      Vec<Zor8u> pairs, others;
      p += at[0];
      if constexpr (Channels == 4) {
        const auto x = load<Zor8u>(p);
        pairs = interleaveLow(x, bytesDown<4>(x));
        others = interleaveLow(bytesDown<8>(x), bytesDown<12>(x));
      } else {
        const auto x = loadLow8<std::uint64_t>(p), y = shiftRight<16>(loadLow8<std::uint64_t>(p + 4));
        pairs = interleaveLow(as<Zor8u>(x), as<Zor8u>(shiftRight<24>(x)));
        others = interleaveLow(as<Zor8u>(y), as<Zor8u>(shiftRight<24>(y)));
      }
      first = as<std::int16_t>(widenLow(pairs));
      second = as<std::int16_t>(widenLow(others));
#endif
    }
  };
  // Pairs of weights for them.
  struct WeightPairs {
    Vec<std::int16_t> first, second;
    explicit WeightPairs(const std::int32_t* x)
    {
      const std::int32_t at[2] = {8 * (x[0] & 1023), vectorBytes == 32 ? 8 * (x[1] & 1023) : 0};
      const auto w = gatherEights(cubicTable.rows, at);
      first = as<std::int16_t>(shuffleLocal<0, 0, 0, 0>(w));
      second = as<std::int16_t>(shuffleLocal<1, 1, 1, 1>(w));
    }
    Vec<std::int32_t> sum(Vec<std::int16_t> a, Vec<std::int16_t> b) const
    {
      return mulAddPairs(a, first) + mulAddPairs(b, second);
    }
  };
  static void cubicPixels8(const Source& s, const Zor8u* before, PointRow points, int i, Zor8u* dst, bool isLast)
  {
    const std::int32_t* const offset = points.offset() + i;
    const auto low = splat<std::int32_t>(0xffff);
    const WeightPairs across(points.wholeX() + i), down(points.wholeY() + i);
    const auto row = [&](int k) {
      const TapWords taps(before + k * s.step, offset);
      return shiftRight<8>(across.sum(taps.first, taps.second) + splat<std::int32_t>(128));
    };
    const auto pair = [&](int k) { return as<std::int16_t>((row(k) & low) | shiftLeft<16>(row(k + 1))); };
    const auto out = shiftRight<20>(down.sum(pair(0), pair(2)) + splat<std::int32_t>(1 << 19));
    const auto words = narrowSatLocal<std::int16_t>(out, out);
    const auto pixels = narrowSatLocal<Zor8u>(words, words);
    Zor8u* const to = dst + std::ptrdiff_t{i} * bytes;
    storePixel(to, sixteenBytes<0>(pixels), isLast && cubicGroup == 1);
    if constexpr (cubicGroup == 2) storePixel(to + bytes, sixteenBytes<1>(pixels), isLast);
  }

  // The last offset of a point in a group: 16 bytes are read where 12 are wanted.
  static std::int32_t lastGroup(const Source& s)
  {
    return Channels == 3 && vectorBytes == 32 ? lastOffset(s, 2 * s.step + 16 - bytes) : anyOffset;
  }

  static void cubicGroup8(const Source& s, const Zor8u* before, PointRow points, int i, Zor8u* dst, bool isLast)
  {
    if constexpr (Channels == 1) cubicFour8(s, before, points, i, dst);
    else cubicPixels8(s, before, points, i, dst, isLast);
  }

  static void cubic8(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const UpperHalvesCleared atTheEnd;
    const Zor8u* const before = firstTap(s, plane);
    const std::int32_t last = lastGroup(s);
    const bool hasRoom = last == anyOffset || !isBehind(points.offset(), count, last);
    for (int i = 0; i < count;) {
      bool isWhole = i + cubicGroup <= count && (hasRoom || !isBehind(points.offset() + i, cubicGroup, last));
      for (int k = 0; k < cubicGroup; ++k) isWhole = isWhole && allTaps(s, points, i + k);
      const int n = isWhole ? cubicGroup : 1;
      if (isWhole) cubicGroup8(s, before, points, i, dst, i + n == count);
      else cubicPoints8(s, plane, points, i, i + 1, dst);
      i += n;
    }
  }

  // Points on a line: only its ends may lack taps.
  static void cubicLine8(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const UpperHalvesCleared atTheEnd;
    int first = 0, end = count;
    while (first < end && !allTaps(s, points, first)) ++first;
    while (end > first && !allTaps(s, points, end - 1)) --end;
    const std::int32_t last = lastGroup(s);
    if (end - first < cubicGroup || (last != anyOffset && isBehind(points.offset() + first, end - first, last)))
      return cubic8(s, plane, points, count, dst);
    const Zor8u* const before = firstTap(s, plane);
    cubicPoints8(s, plane, points, 0, first, dst);
    int i = first;
    for (; i + cubicGroup <= end; i += cubicGroup) cubicGroup8(s, before, points, i, dst, i + cubicGroup == end);
    if (i < end) cubicGroup8(s, before, points, end - cubicGroup, dst, true); // some of them again
    cubicPoints8(s, plane, points, end, count, dst);
  }
};

template <class T, int Channels, int Processed> Sampler samplerOf(int interpolation)
{
  using P = Pixels<T, Channels, Processed>;
  constexpr bool isByte = sizeof(T) == 1, isPlane = Channels == 1;
  switch (interpolation) {
  case ZORI_INTER_NN: return {Method::Nearest, P::nearest, P::template fine<P::nearestPoint>, P::nearest};
  case ZORI_INTER_LINEAR: {
    constexpr SampleRow fine = P::template fine<P::linearPoint>;
    if constexpr (isByte && isPlane) return {Method::Linear8, P::linear8, fine, P::inner8};
    else if constexpr (isByte) return {Method::Linear8, P::linear8Pixels, fine, P::inner8Pixels};
    else if constexpr (isPlane) return {Method::Linear, P::linear, fine, P::linear};
    else return {Method::Linear, P::linearPixels, fine, P::linearPixels};
  }
  default: {
    constexpr SampleRow fine = P::template fine<P::cubicPoint>;
    if constexpr (isByte) return {Method::Cubic8, P::cubic8, fine, P::cubicLine8};
    else return {Method::Fine, fine, fine, fine};
  }
  }
}

template <class T> Sampler samplerOf(Layout layout, int interpolation)
{
  switch (layout) {
  case C3: return samplerOf<T, 3, 3>(interpolation);
  case C4: return samplerOf<T, 4, 4>(interpolation);
  case AC4: return samplerOf<T, 4, 3>(interpolation);
  default: return samplerOf<T, 1, 1>(interpolation);
  }
}

} // namespace

Sampler samplerFor(SampleType type, Layout layout, int interpolation, ZorImgSize srcSize)
{
  const int least = std::min(srcSize.width, srcSize.height);
  if (least < 4 && interpolation == ZORI_INTER_CUBIC) interpolation = ZORI_INTER_LINEAR;
  if (least < 2) interpolation = ZORI_INTER_NN;
  switch (type) {
  case SampleType::U8: return samplerOf<Zor8u>(layout, interpolation);
  case SampleType::U16: return samplerOf<Zor16u>(layout, interpolation);
  default: return samplerOf<Zor32f>(layout, interpolation);
  }
}

bool isPlaceable(const Source& s, Method method)
{
  // coordinates with their fraction bits stay below 2^31, floats hold their limits, offsets are 32 bits
  const int bits = method == Method::Nearest || method == Method::Linear ? 24 : 31 - fractionBits(method);
  if (method == Method::Fine) return true;
  return s.width <= 1LL << bits && s.height <= 1LL << bits && s.bytes() <= INT32_MAX;
}

} // namespace geometry
} // namespace zori
