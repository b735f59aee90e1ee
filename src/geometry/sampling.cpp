// Row kernels of the sampling stage: nearest, linear and cubic for 8u, 16u and 32f. Their fine forms are in
// sampling_fine.h.
#include "rowkernels/drivers.h"
#include "sampling_fine.h"

namespace zori {
namespace geometry {

namespace {

// Offsets of the last points of a row, and copies of the last one behind them.
template <int N> struct LastOffsets {
  std::int32_t at[N];
  LastOffsets(const std::int32_t* offset, int count)
  {
    for (int i = 0; i < N; ++i) at[i] = offset[std::min(i, count - 1)];
  }
};

template <class T, int Channels, int Processed> struct Pixels : FinePixels<T, Channels, Processed> {
  using FinePixels<T, Channels, Processed>::bytes, FinePixels<T, Channels, Processed>::written,
    FinePixels<T, Channels, Processed>::hasAllTaps;

  // ---- Nearest ----

  static void nearest(const Source&, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const std::int32_t* const offset = points.offset();
#pragma GCC unroll 4
    for (int i = 0; i < count; ++i) std::memcpy(dst + std::ptrdiff_t{i} * bytes, plane + offset[i], written);
  }

  // ---- Linear ----

  // The first row of a pixel and its right neighbour, and the second.
  template <class V> struct Pair {
    V left, right;
  };

  // What is written of a pixel; the one behind it may be spoiled unless it is the last.
  static void storePixel(Zor8u* to, Vec<Zor8u> x, bool isLast)
  {
    if constexpr (Processed != Channels || bytes == 3 || bytes == 6 || bytes == 12) {
      if (isLast || Processed != Channels) storePart(to, x, written);
      else if constexpr (written == 3) storeLow4(to, x);
      else if constexpr (written == 6) storeLow8(to, x);
      else store(to, x);
    } else {
      static_assert(bytes == 4 || bytes == 8 || bytes == 16);
      if constexpr (bytes == 4) storeLow4(to, x);
      else if constexpr (bytes == 8) storeLow8(to, x);
      else store(to, x);
    }
  }

  // 8u, a pixel at a time: its samples and those of its right neighbour as pairs of words.
  static Vec<std::int16_t> wordPairs(const Zor8u* p, bool exactly)
  {
    using U64 = Vec<std::uint64_t>;
    U64 x;
    if (Channels == 3 && exactly)
      x = as<std::uint64_t>(loadLow4<Zor8u>(p)) | shiftLeft<32>(splat<std::uint64_t>(get<std::uint16_t>(p + 4)));
    else x = loadLow8<std::uint64_t>(p);
    const U64 right = shiftRight<Channels * 8>(x);
    return as<std::int16_t>(widenLow(interleaveLow(as<Zor8u>(x), as<Zor8u>(right))));
  }

  static void linear8Pixels(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const std::int32_t *const offset = points.offset(), *const wx = points.wholeX(), *const wy = points.wholeY();
    const Zor8u* const below = plane + s.step;
    // 8 bytes are read where 6 are wanted, but not at the very end
    const long long lastWide = s.bytes() - s.step - 8;
    const I32x4 upperHalf = splat<std::int32_t>(static_cast<std::int32_t>(0xffff0000u));
    const I32x4 half = splat<std::int32_t>(524288);
    for (int i = 0; i < count; ++i, dst += bytes) {
      const bool exactly = Channels == 3 && offset[i] > lastWide;
      const auto weight = as<std::int16_t>(splat<std::int32_t>(wx[i]));
      const I32x4 t0 = mulAddPairs(wordPairs(plane + offset[i], exactly), weight);
      const I32x4 t1 = mulAddPairs(wordPairs(below + offset[i], exactly), weight);
      const I32x4 both = shiftRight<8>(t0) | (shiftLeft<8>(t1) & upperHalf);
      const I32x4 out =
        shiftRight<20>(mulAddPairs(as<std::int16_t>(both), as<std::int16_t>(splat<std::int32_t>(wy[i]))) + half);
      const auto words = narrowSat<std::int16_t>(out, out);
      storePixel(dst, narrowSat<Zor8u>(words, words), i == count - 1);
    }
  }

  // 8u C1, eight points at once.
  static void linear8(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const std::int32_t *const offset = points.offset(), *const wx = points.wholeX(), *const wy = points.wholeY();
    const Zor8u* const below = plane + s.step;
    const I32x4 upperHalf = splat<std::int32_t>(static_cast<std::int32_t>(0xffff0000u));
    const I32x4 half = splat<std::int32_t>(524288);
    const auto eight = [=](const std::int32_t* at, int i) {
      const auto above = as<Zor8u>(gatherWords(plane, at)), under = as<Zor8u>(gatherWords(below, at));
      const auto four = [=](Vec<std::uint16_t> p, Vec<std::uint16_t> q, int k) {
        const auto weight = load<std::int16_t>(wx + i + k);
        const I32x4 t0 = mulAddPairs(as<std::int16_t>(p), weight), t1 = mulAddPairs(as<std::int16_t>(q), weight);
        const I32x4 both = shiftRight<8>(t0) | (shiftLeft<8>(t1) & upperHalf);
        return shiftRight<20>(mulAddPairs(as<std::int16_t>(both), load<std::int16_t>(wy + i + k)) + half);
      };
      const auto words =
        narrowSat<std::int16_t>(four(widenLow(above), widenLow(under), 0), four(widenHigh(above), widenHigh(under), 4));
      return narrowSat<Zor8u>(words, words);
    };
    int i = 0;
    for (; i + 8 <= count; i += 8) storeLow8(dst + i, eight(offset + i, i));
    if (i < count)
      storePart(dst + i, eight(LastOffsets<8>(offset + i, count - i).at, i), static_cast<std::size_t>(count - i));
  }

  // ---- Linear, 8u, before the last column and row. Fractions are below 1 there, and all of it goes in words:
  // (p * (16384 - f) + q * f) >> 8 = (p << 6) + ((q - p << 7) * 2f >> 16), and so on for the rows.

  using Words = Vec<std::int16_t>;

  static Words acrossWords(Words left, Words right, Words twiceX)
  {
    return shiftLeft<6>(left) + mulHigh(shiftLeft<7>(right - left), twiceX);
  }
  static Vec<Zor8u> downWords(Words above, Words below, Words twiceY)
  {
    const Words difference = below - above;
    const Words sum = above + splat<std::int16_t>(32) + mulHigh(difference + difference, twiceY);
    const Words out = shiftRight<6>(sum);
    return narrowSat<Zor8u>(out, out);
  }

  static void inner8(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const std::int32_t* const offset = points.offset();
    const std::int16_t *const fx = points.twiceX(), *const fy = points.twiceY();
    const Zor8u* const below = plane + s.step;
    const auto eight = [=](const std::int32_t* at, int i) {
      const auto twiceX = load<std::int16_t>(fx + i);
      const auto row = [=](const Zor8u* p) {
        const auto pairs = gatherWords(p, at);
        return acrossWords(as<std::int16_t>(pairs & splat<std::uint16_t>(0xff)), as<std::int16_t>(shiftRight<8>(pairs)),
                           twiceX);
      };
      return downWords(row(plane), row(below), load<std::int16_t>(fy + i));
    };
    int i = 0;
    for (; i + 8 <= count; i += 8) storeLow8(dst + i, eight(offset + i, i));
    if (i < count)
      storePart(dst + i, eight(LastOffsets<8>(offset + i, count - i).at, i), static_cast<std::size_t>(count - i));
  }

  // Two pixels, four words each.
  static void inner8Pixels(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const std::int32_t* const offset = points.offset();
    const std::int16_t *const fx = points.twiceX(), *const fy = points.twiceY();
    const Zor8u* const below = plane + s.step;
    const auto twice = [](const std::int16_t* f) {
      const auto two = loadLow4<std::int16_t>(f);
      const auto pairs = as<std::int32_t>(interleaveLow(two, two));
      return as<std::int16_t>(interleaveLow(pairs, pairs));
    };
    const auto row = [](const Zor8u* p, const Zor8u* q, Words twiceX) {
      if constexpr (Channels == 4) {
        const auto both =
          as<Zor8u>(interleaveLow(as<std::int32_t>(loadLow8<Zor8u>(p)), as<std::int32_t>(loadLow8<Zor8u>(q))));
        return acrossWords(as<std::int16_t>(widenLow(both)), as<std::int16_t>(widenHigh(both)), twiceX);
      } else {
        const auto left = interleaveLow(loadLow4<std::uint32_t>(p), loadLow4<std::uint32_t>(q));
        const auto right = shiftRight<8>(interleaveLow(loadLow4<std::uint32_t>(p + 2), loadLow4<std::uint32_t>(q + 2)));
        return acrossWords(as<std::int16_t>(widenLow(as<Zor8u>(left))), as<std::int16_t>(widenLow(as<Zor8u>(right))),
                           twiceX);
      }
    };
    for (int i = 0; i < count; i += 2, dst += 2 * bytes) {
      const Words twiceX = twice(fx + i), twiceY = twice(fy + i);
      const std::ptrdiff_t p = offset[i], q = i + 1 < count ? offset[i + 1] : p;
      Vec<Zor8u> out = downWords(row(plane + p, plane + q, twiceX), row(below + p, below + q, twiceX), twiceY);
      if (i + 2 < count || (Channels == 4 && i + 2 == count)) {
        if constexpr (Processed != Channels) out = select(colourMask<Zor8u>(), out, loadLow8<Zor8u>(dst));
        if constexpr (Channels == 4) storeLow8(dst, out);
        else {
          storeLow4(dst, out);
          storeLow4(dst + 3, bytesDown<4>(out));
        }
      } else {
        storePart(dst, out, written);
        if (i + 1 < count) storePart(dst + bytes, bytesDown<4>(out), written);
      }
    }
  }

  static F32x4 blend(Pair<F32x4> above, Pair<F32x4> below, F32x4 fx, F32x4 fy)
  {
    const F32x4 rest = splat(1.0f) - fx;
    const F32x4 t0 = above.left * rest + above.right * fx, t1 = below.left * rest + below.right * fx;
    return t0 + (t1 - t0) * fy;
  }

  // As it is stored: samples side by side from the first lane on.
  static Vec<Zor8u> samples(F32x4 x)
  {
    if constexpr (std::is_same_v<T, Zor16u>) {
      const I32x4 whole = toInt(x);
      return as<Zor8u>(narrowSat<std::uint16_t>(whole, whole));
    } else {
      return as<Zor8u>(x);
    }
  }

  // Four points of C1.
  static Pair<F32x4> fourPairs(const Zor8u* plane, const std::int32_t* offset)
  {
    if constexpr (std::is_same_v<T, Zor16u>) {
      const auto two = [=](int i) {
        return interleaveLow(loadLow4<std::int32_t>(plane + offset[i]), loadLow4<std::int32_t>(plane + offset[i + 1]));
      };
      const I32x4 x = as<std::int32_t>(interleaveLow(as<std::uint64_t>(two(0)), as<std::uint64_t>(two(2))));
      return {toFloat(x & splat<std::int32_t>(0xffff)),
              toFloat(as<std::int32_t>(shiftRight<16>(as<std::uint32_t>(x))))};
    } else {
      const auto two = [=](int i) {
        return as<float>(
          interleaveLow(loadLow8<std::uint64_t>(plane + offset[i]), loadLow8<std::uint64_t>(plane + offset[i + 1])));
      };
      const F32x4 a = two(0), b = two(2);
      return {shuffle<2, 0, 2, 0>(a, b), shuffle<3, 1, 3, 1>(a, b)};
    }
  }

  static void linear(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const std::int32_t* const offset = points.offset();
    const float *const fx = points.singleX(), *const fy = points.singleY();
    const Zor8u* const below = plane + s.step;
    const auto four = [=](const std::int32_t* at, int i) {
      return samples(blend(fourPairs(plane, at), fourPairs(below, at), load<float>(fx + i), load<float>(fy + i)));
    };
    int i = 0;
    for (; i + 4 <= count; i += 4) {
      if constexpr (bytes == 2) storeLow8(dst + i * bytes, four(offset + i, i));
      else store(dst + i * bytes, four(offset + i, i));
    }
    if (i < count)
      storePart(dst + i * bytes, four(LastOffsets<4>(offset + i, count - i).at, i),
                static_cast<std::size_t>(count - i) * bytes);
  }

  // A pixel of three or four samples and its right neighbour.
  static Pair<F32x4> pixelPair(const Zor8u* p)
  {
    if constexpr (std::is_same_v<T, Zor16u>) {
      const auto right =
        Channels == 3 ? shiftRight<16>(loadLow8<std::uint64_t>(p + 4)) : loadLow8<std::uint64_t>(p + 8);
      return {toFloat(as<std::int32_t>(widenLow(loadLow8<std::uint16_t>(p)))),
              toFloat(as<std::int32_t>(widenLow(as<std::uint16_t>(right))))};
    } else {
      if constexpr (Channels == 3) return {load<float>(p), bytesDown<4>(load<float>(p + 8))};
      else return {load<float>(p), load<float>(p + 16)};
    }
  }

  static void linearPixels(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const std::int32_t* const offset = points.offset();
    const float *const fx = points.singleX(), *const fy = points.singleY();
    for (int i = 0; i < count; ++i, dst += bytes) {
      const Zor8u* const p = plane + offset[i];
      storePixel(dst, samples(blend(pixelPair(p), pixelPair(p + s.step), splat(fx[i]), splat(fy[i]))), i == count - 1);
    }
  }

  // ---- Cubic, 8u: rows are summed to 6 fraction bits, then the four sums to whole numbers. ----

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

  // The stretch of points that have all their taps: the points lie on a line, and only its ends may have not.
  struct Stretch {
    int first, end;
    Stretch(const Source& s, PointRow points, int count) : first(0), end(count)
    {
      const auto isWhole = [&](int i) { return hasAllTaps(s, points.wholeX()[i] >> 10, points.wholeY()[i] >> 10); };
      while (first < end && !isWhole(first)) ++first;
      while (end > first && !isWhole(end - 1)) --end;
    }
  };
  static void cubicPoints8(const Source& s, const Zor8u* plane, PointRow points, int first, int end, Zor8u* dst)
  {
    for (int i = first; i < end; ++i)
      cubicPoint8<Processed>(s, plane, points.wholeX()[i], points.wholeY()[i], dst + std::ptrdiff_t{i} * bytes);
  }

  // Four points with all their taps.
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

  // The upper left tap of a point, before its own pixel.
  static const Zor8u* firstTap(const Source& s, const Zor8u* plane) { return plane - s.step - bytes; }

  static void cubicLine8(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const Stretch whole(s, points, count);
    if (whole.end - whole.first < 4) return cubicPoints8(s, plane, points, 0, count, dst);
    const Zor8u* const before = firstTap(s, plane);
    cubicPoints8(s, plane, points, 0, whole.first, dst);
    int i = whole.first;
    for (; i + 4 <= whole.end; i += 4) cubicFour8(s, before, points, i, dst);
    if (i < whole.end) cubicFour8(s, before, points, whole.end - 4, dst); // some of them again
    cubicPoints8(s, plane, points, whole.end, count, dst);
  }

  static void cubic8(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const std::int32_t *const x = points.wholeX(), *const y = points.wholeY();
    const Zor8u* const before = firstTap(s, plane);
    const auto allTaps = [&](int i) { return hasAllTaps(s, x[i] >> 10, y[i] >> 10); };
    for (int i = 0; i < count;) {
      if (i + 4 <= count && allTaps(i) && allTaps(i + 1) && allTaps(i + 2) && allTaps(i + 3)) {
        cubicFour8(s, before, points, i, dst);
        i += 4;
      } else {
        cubicPoints8(s, plane, points, i, i + 1, dst);
        ++i;
      }
    }
  }

  // The sum of four pixels of a row, sample by sample.
  static I32x4 pixelSum(const Zor8u* p, I32x4 first, I32x4 second)
  {
    Vec<Zor8u> pairs, others;
    if constexpr (Channels == 4) {
      const auto x = load<Zor8u>(p);
      pairs = interleaveLow(x, bytesDown<4>(x));
      others = interleaveLow(bytesDown<8>(x), bytesDown<12>(x));
    } else {
      const auto x = loadLow8<std::uint64_t>(p), y = shiftRight<16>(loadLow8<std::uint64_t>(p + 4));
      pairs = interleaveLow(as<Zor8u>(x), as<Zor8u>(shiftRight<24>(x)));
      others = interleaveLow(as<Zor8u>(y), as<Zor8u>(shiftRight<24>(y)));
    }
    return mulAddPairs(as<std::int16_t>(widenLow(pairs)), as<std::int16_t>(first)) +
           mulAddPairs(as<std::int16_t>(widenLow(others)), as<std::int16_t>(second));
  }

  // A pixel with all its taps.
  static void cubicPixel8(const Source& s, const Zor8u* p, int x, int y, Zor8u* dst, bool isLast)
  {
    const I32x4 rowHalf = splat<std::int32_t>(128), half = splat<std::int32_t>(1 << 19);
    const I32x4 low = splat<std::int32_t>(0xffff);
    const I32x4 wx = as<std::int32_t>(loadLow8<std::uint64_t>(cubicTable.rows[x & 1023]));
    const I32x4 wy = as<std::int32_t>(loadLow8<std::uint64_t>(cubicTable.rows[y & 1023]));
    const I32x4 first = shuffle<0, 0, 0, 0>(wx), second = shuffle<1, 1, 1, 1>(wx);
    const auto row = [&](int k) { return shiftRight<8>(pixelSum(p + k * s.step, first, second) + rowHalf); };
    const auto pair = [&](int k) { return as<std::int16_t>((row(k) & low) | shiftLeft<16>(row(k + 1))); };
    const I32x4 out = shiftRight<20>(mulAddPairs(pair(0), as<std::int16_t>(shuffle<0, 0, 0, 0>(wy))) +
                                     mulAddPairs(pair(2), as<std::int16_t>(shuffle<1, 1, 1, 1>(wy))) + half);
    const auto words = narrowSat<std::int16_t>(out, out);
    storePixel(dst, narrowSat<Zor8u>(words, words), isLast);
  }

  static void cubicLinePixels8(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const std::int32_t *const offset = points.offset(), *const x = points.wholeX(), *const y = points.wholeY();
    const Zor8u* const before = firstTap(s, plane);
    const Stretch whole(s, points, count);
    cubicPoints8(s, plane, points, 0, whole.first, dst);
    for (int i = whole.first; i < whole.end; ++i)
      cubicPixel8(s, before + offset[i], x[i], y[i], dst + std::ptrdiff_t{i} * bytes, i == whole.end - 1);
    cubicPoints8(s, plane, points, whole.end, count, dst);
  }

  static void cubic8Pixels(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const std::int32_t *const offset = points.offset(), *const x = points.wholeX(), *const y = points.wholeY();
    const Zor8u* const before = firstTap(s, plane);
    for (int i = 0; i < count; ++i) {
      if (hasAllTaps(s, x[i] >> 10, y[i] >> 10))
        cubicPixel8(s, before + offset[i], x[i], y[i], dst + std::ptrdiff_t{i} * bytes, i == count - 1);
      else cubicPoints8(s, plane, points, i, i + 1, dst);
    }
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
    if constexpr (isByte && isPlane) return {Method::Cubic8, P::cubic8, fine, P::cubicLine8};
    else if constexpr (isByte) return {Method::Cubic8, P::cubic8Pixels, fine, P::cubicLinePixels8};
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
