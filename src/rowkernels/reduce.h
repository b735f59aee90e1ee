// Reductions of rows to numbers. PixelVectors are taken apart into a vector a channel, and every channel has a reducer
// of its own:
//
//   add(j, x...)   takes Vec<T>::size pixels of the channel, of one image or of two; j counts the vectors of a row
//   modulo
//                  `groups`, for reducers with several accumulators
//   flush()        is called after at most `capacity` vectors and at the end of a row (endRow), and widens what is
//   narrow
//
// What is missing to a whole vector at the end of a row is zero, or a pixel of the row again where `repeats` says so.
// `orderFree`: rows may be joined; `placeFree`: a pixel may stand in any lane.
//
// Reducers exist at both widths, with the same results: rows shorter than a vector of 32 bytes go through those of 16.
#pragma once

#include "channels.h"
#include "copy.h"
#include "drivers.h"
#include "frame/layout.h"

#include <type_traits>
#include <utility>

namespace zori {
inline namespace ZORI_WIDTH {

template <Layout L, class T, int Bytes = vectorBytes> struct PixelVectors {
  Vec<T, Bytes> channel[processed<L>];
};

template <Layout L, int Bytes = vectorBytes, class T>
ZORI_INLINE inline PixelVectors<L, T, Bytes> loadPixelVectors(const T* p)
{
  PixelVectors<L, T, Bytes> pixels;
  if constexpr (L == C1) pixels.channel[0] = load<T, Bytes>(p);
  else {
    using U = std::conditional_t<sizeof(T) == 1, std::uint8_t,
                                 std::conditional_t<sizeof(T) == 2, std::uint16_t, std::uint32_t>>;
    Vec<U, Bytes> channel[channels<L>];
    split(reinterpret_cast<const U*>(p), channel);
    for (int k = 0; k < processed<L>; ++k) pixels.channel[k] = as<T>(channel[k]);
  }
  return pixels;
}

// f(0), f(1) ... f(N - 1), each a constant.
template <class F, int... j> ZORI_INLINE inline void forConstants(std::integer_sequence<int, j...>, F f)
{
  (f(std::integral_constant<int, j>{}), ...);
}

// ---- The last pixels of a row, fewer than a vector, in the shape of whole ones ----

// Of 16 bytes a channel, through memory.
template <Layout L, class T, bool Repeats> struct LastPixels {
  static constexpr int lanes = Vec<T, 16>::size;
  alignas(16) T values[lanes * channels<L>];
  LastPixels(const T* from, std::ptrdiff_t count)
  {
    const std::ptrdiff_t given = count * channels<L>;
    if constexpr (!Repeats) std::memset(values, 0, sizeof values);
    copyShort(values, from, static_cast<std::size_t>(given) * sizeof(T));
    if constexpr (Repeats)
      for (std::ptrdiff_t i = given; i < lanes * channels<L>; i += channels<L>)
        std::memcpy(values + i, from + given - channels<L>, channels<L> * sizeof(T));
  }
};
template <Layout L, class R, class T>
ZORI_INLINE inline PixelVectors<L, T, 16> loadLastPixels16(const T* from, std::ptrdiff_t count)
{
  if constexpr (L == C1 && !R::repeats) return {{loadPart16<T>(from, static_cast<std::size_t>(count) * sizeof(T))}};
  else if constexpr (L == C1 && R::placeFree)
    return {{loadShort16<T>(reinterpret_cast<const char*>(from), static_cast<std::size_t>(count) * sizeof(T))}};
  else if constexpr (L == C1 && std::is_same_v<T, float>) { // the last one again in what is left of four lanes
    if (count == 1) return {{splat<T, 16>(get<T>(from))}};
    return {{shuffle<1, 1, 1, 0>(loadLow8<T>(from), loadLow8<T>(from + count - 2))}};
  } else return loadPixelVectors<L, 16>(static_cast<const T*>(LastPixels<L, T, R::repeats>(from, count).values));
}

// What leaves a reducer as it is: zero, the pixels x again, or, where places count, a NaN.
template <class R, class T> inline Vec<T, 16> nothingBeside(Vec<T, 16> x)
{
  if constexpr (!R::repeats) return zero<T, 16>();
  else if constexpr (R::placeFree) return x;
  else return as<T>(splat<std::uint32_t, 16>(~0u));
}

// In their places, of vectors of 32 bytes each half by itself.
template <Layout L, class R, class T>
ZORI_INLINE inline PixelVectors<L, T, R::bytes> loadLastPixels(const T* from, std::ptrdiff_t count)
{
#if ZORI_VECTOR_BYTES == 32
  if constexpr (R::bytes == 32) {
    constexpr std::ptrdiff_t half = Vec<T, 16>::size;
    const auto low = count >= half ? loadPixelVectors<L, 16>(from) : loadLastPixels16<L, R>(from, count);
    PixelVectors<L, T> pixels;
    if (count > half) {
      const auto high = loadLastPixels16<L, R>(from + half * channels<L>, count - half);
      for (int k = 0; k < processed<L>; ++k) pixels.channel[k] = joined(low.channel[k], high.channel[k]);
    } else {
      for (int k = 0; k < processed<L>; ++k)
        pixels.channel[k] = joined(low.channel[k], nothingBeside<R>(low.channel[k]));
    }
    return pixels;
  } else return loadLastPixels16<L, R>(from, count);
#else
  return loadLastPixels16<L, R>(from, count);
#endif
}

// A mask that leaves the last bytes of a vector.
template <class T, int Bytes = vectorBytes> inline Vec<T, Bytes> lastBytes(std::ptrdiff_t bytes)
{
  struct Steps {
    std::uint8_t bytes[2 * Bytes];
    constexpr Steps() : bytes{}
    {
      for (int i = Bytes; i < 2 * Bytes; ++i) bytes[i] = 0xff;
    }
  };
  static constexpr Steps steps;
  return load<T, Bytes>(steps.bytes + bytes);
}

// Rows of fewer pixels than a vector of 16 bytes, for reducers that take a pixel in any place: the first and the last
// ones meet in a vector, and those that are there twice count once.
template <Layout L, class R, class T> struct ShortRow {
  std::ptrdiff_t width;
  Vec<T, 16> once;

  explicit ShortRow(std::ptrdiff_t pixels) : width(pixels), once(lastBytes<T, 16>(16))
  {
    if (R::repeats || L != C1) return;
    const std::ptrdiff_t bytes = pixels * std::ptrdiff_t{sizeof(T)}, part = greatestPowerOfTwo(bytes);
    const auto from = [](std::ptrdiff_t n) { return lastBytes<T, 16>(n < 16 ? 16 - n : 0); };
    once = without(from(3 * part - bytes), from(2 * part)) | without(from(0), from(part));
  }
  ZORI_INLINE PixelVectors<L, T, 16> operator()(const T* row) const
  {
    if constexpr (L != C1) return loadLastPixels16<L, R>(row, width);
    else {
      const auto x = loadShort16<T>(reinterpret_cast<const char*>(row), static_cast<std::size_t>(width) * sizeof(T));
      return {{R::repeats ? x : x & once}};
    }
  }
};

// In short rows too: the next one mostly follows. Wider vectors have enough lines under way by themselves.
inline constexpr std::ptrdiff_t fetchedAhead = 1024;

// use(reducers) behind all rows, where make(bytes, k) gives the reducer of channel k. Both are done here and not by the
// caller: reducers that pass through memory are copied in 32 bytes, which waits for what was written in 16.
template <Layout L, int Bytes, class Make, class Use, class... T>
[[gnu::noinline]] auto reduceRows(Make make, Use use, std::ptrdiff_t width, int rows, Rows<const T>... image)
{
  const UpperHalvesCleared atTheEnd;
  using R = decltype(make(std::integral_constant<int, Bytes>{}, 0));
  constexpr int n = processed<L>, groups = R::groups, bytes = Bytes;
  constexpr std::ptrdiff_t lanes = std::common_type_t<std::integral_constant<int, Vec<T, bytes>::size>...>::value;
  R r[n]; // live in registers
  for (int k = 0; k < n; ++k) r[k] = make(std::integral_constant<int, bytes>{}, k);

  const auto add = [&](int j, const PixelVectors<L, T, bytes>&... pixels) ZORI_INLINE {
    for (int k = 0; k < n; ++k) r[k].add(j, pixels.channel[k]...);
  };

  // whole vectors that end with the row, of which the last `rest` pixels are new
  const auto onlyLast = [](std::ptrdiff_t rest, auto pixels) ZORI_INLINE {
    using E = typename std::remove_reference_t<decltype(pixels.channel[0])>::Element;
    if constexpr (!R::repeats)
      for (auto& x : pixels.channel) x = x & lastBytes<E, bytes>(rest * static_cast<std::ptrdiff_t>(sizeof(E)));
    return pixels;
  };
  if constexpr (R::placeFree && bytes == 16) {
    if (width < lanes) {
      const ShortRow<L, R, std::common_type_t<T...>> shortRow(width);
      for (int y = 0; y < rows; ++y) {
        add(0, shortRow(image[y])...);
        for (int k = 0; k < n; ++k) r[k].endRow();
      }
      return use(r);
    }
  }
  if constexpr (R::placeFree && L == C1) {
    if (width <= 2 * lanes) {
      const std::ptrdiff_t behind = width - lanes;
      for (int y = 0; y < rows; ++y) {
        add(0, loadPixelVectors<L, bytes>(image[y])...);
        if (behind != 0) add(1 % groups, onlyLast(behind, loadPixelVectors<L, bytes>(image[y] + behind))...);
        r[0].endRow();
      }
      return use(r);
    }
  }

  const std::ptrdiff_t blocks = width / lanes, rounds = blocks / groups;
  constexpr std::ptrdiff_t atOnce = R::capacity / groups - 1; // what is left of the row takes one round more
  static_assert(atOnce > 0);
  const auto alongRow = [&](const T*... row) ZORI_INLINE {
    std::ptrdiff_t x = 0;
    for (std::ptrdiff_t done = 0; done < rounds;) {
      const std::ptrdiff_t until = rounds - done < atOnce ? rounds : done + atOnce;
      for (; done < until; ++done) {
        if constexpr (groups > 1 && bytes == 16) (fetchAhead(row + x * channels<L>, fetchedAhead), ...);
        forConstants(std::make_integer_sequence<int, groups>{}, [&](auto j) ZORI_INLINE {
          add(j, loadPixelVectors<L, bytes>(row + (x + j * lanes) * channels<L>)...);
        });
        x += groups * lanes;
      }
      if (done < rounds)
        for (int k = 0; k < n; ++k) r[k].flush();
    }
    // what is left: vectors, each with its own number, then a part of one
    forConstants(std::make_integer_sequence<int, groups>{}, [&](auto j) ZORI_INLINE {
      if (x + lanes <= width) add(j, loadPixelVectors<L, bytes>(row + x * channels<L>)...);
      else if (x < width) {
        if constexpr (R::placeFree)
          add(j, onlyLast(width - x, loadPixelVectors<L, bytes>(row + (width - lanes) * channels<L>))...);
        else add(j, loadLastPixels<L, R>(row + x * channels<L>, width - x)...);
      }
      x += lanes;
    });
    for (int k = 0; k < n; ++k) r[k].endRow();
  };
  for (int y = 0; y < rows; ++y) alongRow(image[y]...);
  return use(r);
}

// f of the width of the reducers for such rows, as a constant.
template <class T, class F> ZORI_INLINE inline auto withReducerBytes(std::ptrdiff_t width, F f)
{
  if constexpr (vectorBytes > 16)
    if (width < Vec<T>::size) return f(std::integral_constant<int, 16>{});
  return f(std::integral_constant<int, vectorBytes>{});
}

// The same of a region. One without gaps is one row where the order does not matter.
template <Layout L, class Make, class Use, class T, class... More>
auto reduceRegion(ZorImgSize roi, Make make, Use use, Rows<const T> image, Rows<const More>... more)
{
  std::ptrdiff_t width = roi.width;
  int height = roi.height;
  const auto contiguous = [&](auto rows) {
    return static_cast<long long>(width) * channels<L> * static_cast<int>(sizeof(*rows.first)) == rows.step;
  };
  using Whole = decltype(make(std::integral_constant<int, vectorBytes>{}, 0));
  if (Whole::orderFree && height > 1 && contiguous(image) && (contiguous(more) && ...)) {
    width *= height;
    height = 1;
  }
  return withReducerBytes<T>(
    width, [&](auto bytes) { return reduceRows<L, bytes>(make, use, width, height, image, more...); });
}

// ---- Reducers of integers: exact, in any order ----

template <int Bytes> struct IntegerReducer {
  static constexpr int bytes = Bytes;
  static constexpr bool orderFree = true, placeFree = true, repeats = false;
  static constexpr int groups = 1;
  static constexpr std::ptrdiff_t capacity = PTRDIFF_MAX;
  void flush() {}
  void endRow() {}
};

template <int Bytes> inline std::uint64_t lanesSum(Vec<std::uint64_t, Bytes> x)
{
  std::uint64_t lanes[Bytes / 8], sum = 0;
  store(lanes, x);
  for (const std::uint64_t lane : lanes) sum += lane;
  return sum;
}

template <class T, int Bytes = vectorBytes> struct IntegerSum;

template <int Bytes> struct IntegerSum<std::uint8_t, Bytes> : IntegerReducer<Bytes> {
  static constexpr int groups = 4;
  Vec<std::uint64_t, Bytes> total = zero<std::uint64_t, Bytes>();
  void add(int, Vec<std::uint8_t, Bytes> x) { total += sumAbsDiff(x, zero<std::uint8_t, Bytes>()); }
  double value() const { return static_cast<double>(lanesSum(total)); }
};

template <int Bytes> struct IntegerSum<std::uint16_t, Bytes> : IntegerReducer<Bytes> {
  static constexpr std::ptrdiff_t capacity = 32768; // two words a lane each time
  Vec<std::uint32_t, Bytes> lanes = zero<std::uint32_t, Bytes>();
  Vec<std::uint64_t, Bytes> total = zero<std::uint64_t, Bytes>();
  void add(int, Vec<std::uint16_t, Bytes> x)
  {
    const Vec<std::uint32_t, Bytes> pairs = as<std::uint32_t>(x);
    lanes += (pairs & splat<std::uint32_t, Bytes>(0xffff)) + shiftRight<16>(pairs);
  }
  void flush()
  {
    total += widenLowLocal(lanes) + widenHighLocal(lanes);
    lanes = zero<std::uint32_t, Bytes>();
  }
  void endRow() { flush(); }
  double value() const { return static_cast<double>(lanesSum(total)); }
};

template <int Bytes> struct IntegerSum<std::int16_t, Bytes> : IntegerReducer<Bytes> {
  static constexpr std::ptrdiff_t capacity = 32767;
  Vec<std::int32_t, Bytes> lanes = zero<std::int32_t, Bytes>();
  Vec<std::uint64_t, Bytes> total = zero<std::uint64_t, Bytes>(); // two's complement
  void add(int, Vec<std::int16_t, Bytes> x) { lanes += mulAddPairs(x, splat<std::int16_t, Bytes>(1)); }
  void flush()
  {
    total += as<std::uint64_t>(widenLowLocal(lanes)) + as<std::uint64_t>(widenHighLocal(lanes));
    lanes = zero<std::int32_t, Bytes>();
  }
  void endRow() { flush(); }
  double value() const { return static_cast<double>(static_cast<std::int64_t>(lanesSum(total))); }
};

// Sums of squares of magnitudes.
template <class T, int Bytes = vectorBytes> struct SquareSum;

template <int Bytes> struct SquareSum<std::uint8_t, Bytes> : IntegerReducer<Bytes> {
  static constexpr std::ptrdiff_t capacity = 16384; // four squares a lane each time
  Vec<std::uint32_t, Bytes> lanes = zero<std::uint32_t, Bytes>();
  Vec<std::uint64_t, Bytes> total = zero<std::uint64_t, Bytes>();
  void add(int, Vec<std::uint8_t, Bytes> x)
  {
    const Vec<std::int16_t, Bytes> low = as<std::int16_t>(widenLowLocal(x)), high = as<std::int16_t>(widenHighLocal(x));
    lanes += as<std::uint32_t>(mulAddPairs(low, low)) + as<std::uint32_t>(mulAddPairs(high, high));
  }
  void flush()
  {
    total += widenLowLocal(lanes) + widenHighLocal(lanes);
    lanes = zero<std::uint32_t, Bytes>();
  }
  void endRow() { flush(); }
  double value() const { return static_cast<double>(lanesSum(total)); }
};

template <int Bytes> struct SquareSum<std::int16_t, Bytes> : IntegerReducer<Bytes> { // of signed words
  Vec<std::uint64_t, Bytes> total = zero<std::uint64_t, Bytes>();
  void add(int, Vec<std::int16_t, Bytes> x)
  {
    const Vec<std::uint32_t, Bytes> pairs = as<std::uint32_t>(mulAddPairs(x, x)); // at most 2^31, without a sign
    total += widenLowLocal(pairs) + widenHighLocal(pairs);
  }
  double value() const { return static_cast<double>(lanesSum(total)); }
};

template <int Bytes> struct SquareSum<std::uint16_t, Bytes> : IntegerReducer<Bytes> {
  static constexpr std::ptrdiff_t capacity = IntegerSum<std::uint16_t, Bytes>::capacity;
  IntegerSum<std::uint16_t, Bytes> low, high; // halves of the squares
  void add(int j, Vec<std::uint16_t, Bytes> x)
  {
    low.add(j, mulLow(x, x));
    high.add(j, mulHigh(x, x));
  }
  void flush()
  {
    low.flush();
    high.flush();
  }
  void endRow() { flush(); }
  double value() const { return static_cast<double>(lanesSum(low.total) + (lanesSum(high.total) << 16)); }
};

// ---- Extremes ----

// Minima of floats take the processor longer than those of integers: several accumulators keep it busy. A NaN is passed
// over.
//
// Which of two zeros of floats comes out is a matter of the order, so that theirs is one at every width: pixel i of a
// row belongs to place i mod 16.
template <class T, int Bytes>
inline constexpr int extremeGroups = std::is_same_v<T, float> ? 16 / Vec<float, Bytes>::size : 2;

template <class T, bool Greatest, int Bytes = vectorBytes> struct Extreme : IntegerReducer<Bytes> {
  static constexpr bool placeFree = isInt<T>, repeats = true;
  static constexpr int groups = extremeGroups<T, Bytes>;
  Vec<T, Bytes> best[groups];

  Extreme() = default;
  explicit Extreme(T start)
  {
    for (auto& b : best) b = splat<T, Bytes>(start);
  }
  void add(int j, Vec<T, Bytes> x) { best[j] = Greatest ? max(x, best[j]) : min(x, best[j]); }
  T value() const
  {
    constexpr int lanesOf16 = Vec<T, 16>::size;
    T places[groups * Vec<T, Bytes>::size];
    for (int j = 0; j < groups; ++j) store(places + j * Vec<T, Bytes>::size, best[j]);
    Vec<T, 16> v = load<T, 16>(places);
    for (const T* p = places + lanesOf16; p < places + groups * Vec<T, Bytes>::size; p += lanesOf16)
      v = Greatest ? max(load<T, 16>(p), v) : min(load<T, 16>(p), v);
    if constexpr (isInt<T>) {
      const auto folded = [](auto x, auto down) ZORI_INLINE {
        const auto behind = bytesDown<down>(x);
        return Greatest ? max(behind, x) : min(behind, x);
      };
      v = folded(folded(v, std::integral_constant<int, 8>{}), std::integral_constant<int, 4>{});
      if constexpr (sizeof(T) <= 2) v = folded(v, std::integral_constant<int, 2>{});
      if constexpr (sizeof(T) == 1) v = folded(v, std::integral_constant<int, 1>{});
      return static_cast<T>(firstLane(as<std::uint32_t>(v)));
    } else {
      T lanes[lanesOf16];
      store(lanes, v);
      T result = lanes[0];
      for (T lane : lanes) result = (Greatest ? lane > result : lane < result) ? lane : result;
      return result;
    }
  }
};

template <class T, int Bytes = vectorBytes> struct BothExtremes : IntegerReducer<Bytes> {
  static constexpr bool placeFree = isInt<T>, repeats = true;
  static constexpr int groups = extremeGroups<T, Bytes>;
  Extreme<T, false, Bytes> least;
  Extreme<T, true, Bytes> greatest;

  BothExtremes() = default;
  BothExtremes(T leastStart, T greatestStart) : least(leastStart), greatest(greatestStart) {}
  void add(int j, Vec<T, Bytes> x)
  {
    least.add(j, x);
    greatest.add(j, x);
  }
};

// ---- Sums of floats, whose order is part of the result ----

template <int Bytes> struct OrderedReducer : IntegerReducer<Bytes> {
  static constexpr bool orderFree = false, placeFree = false;
};

// visit(four...) for the fours of vectors in their order.
template <class Visit, class... V> ZORI_INLINE inline void eachFour(Visit visit, V... x)
{
  visit(sixteenBytes<0>(x)...);
  if constexpr (((V::bytes == 32) && ...)) visit(sixteenBytes<(vectorBytes == 32)>(x)...);
}

// Pixel i of a row goes to lane i mod 16; the lanes of a row are added in pairs down to two, those in double to the
// total.
template <int Bytes> struct FastSum : OrderedReducer<Bytes> {
  static constexpr int groups = 16 / Vec<float, Bytes>::size;
  Vec<float, Bytes> lanes[groups];
  double total = 0;
  FastSum()
  {
    for (auto& l : lanes) l = zero<float, Bytes>();
  }
  void add(int j, Vec<float, Bytes> x) { lanes[j] += x; }
  void endRow()
  {
    float places[16];
    for (int j = 0; j < groups; ++j) store(places + j * Vec<float, Bytes>::size, lanes[j]);
    const F32x4 four = (load<float, 16>(places) + load<float, 16>(places + 4)) +
                       (load<float, 16>(places + 8) + load<float, 16>(places + 12));
    const F32x4 two = four + shuffle<3, 2, 3, 2>(four, four);
    total += static_cast<double>(firstLane(two));
    total += static_cast<double>(firstLane(shuffle<1, 1, 1, 1>(two, two)));
    for (auto& l : lanes) l = zero<float, Bytes>();
  }
  double value() const { return total; }
};

// Pixel i of a row goes to lane i mod 4; the row's total is (l0 + l1) + (l2 + l3).
template <int Bytes> struct FastRowSum : OrderedReducer<Bytes> {
  F32x4 lanes = zero<float, 16>();
  double total = 0;
  void add(int, Vec<float, Bytes> x)
  {
    eachFour([this](F32x4 four) { lanes += four; }, x);
  }
  void endRow()
  {
    float l[4];
    store(l, lanes);
    total += static_cast<double>((l[0] + l[1]) + (l[2] + l[3]));
    lanes = zero<float, 16>();
  }
  double value() const { return total; }
};

// Double accumulators for the even and for the odd positions of a row; they go on from row to row.
template <int Bytes> struct AccurateSum : OrderedReducer<Bytes> {
  F64x2 total = zero<double, 16>();
  void add(int, Vec<float, Bytes> x)
  {
    eachFour([this](F32x4 four) { add2(toDoubleLow(four), toDoubleHigh(four)); }, x);
  }
  void add2(F64x2 low, F64x2 high)
  {
    total += low;
    total += high;
  }
  double value() const
  {
    double lanes[2];
    store(lanes, total);
    return lanes[1] + lanes[0];
  }
};

// One double accumulator, pixel after pixel.
template <int Bytes> struct AccurateChannelSum : OrderedReducer<Bytes> {
  double total = 0;
  void add(int, Vec<float, Bytes> x)
  {
    eachFour([this](F32x4 four) { add2(toDoubleLow(four), toDoubleHigh(four)); }, x);
  }
  void add2(F64x2 low, F64x2 high)
  {
    double x[4];
    store(x, low);
    store(x + 2, high);
    for (double v : x) total += v;
  }
  double value() const { return total; }
};
template <Layout L, int Bytes>
using AccurateSumOf = std::conditional_t<L == C1, AccurateSum<Bytes>, AccurateChannelSum<Bytes>>;

} // namespace ZORI_WIDTH
} // namespace zori
