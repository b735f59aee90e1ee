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

template <Layout L, int Bytes = vectorBytes, class T> inline PixelVectors<L, T, Bytes> loadPixelVectors(const T* p)
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
template <class F, int... j> inline void forConstants(std::integer_sequence<int, j...>, F f)
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
inline PixelVectors<L, T, 16> loadLastPixels16(const T* from, std::ptrdiff_t count)
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
template <Layout L, class R, class T> inline PixelVectors<L, T> loadLastPixels(const T* from, std::ptrdiff_t count)
{
#if ZORI_VECTOR_BYTES == 32
  constexpr std::ptrdiff_t half = Vec<T, 16>::size;
  const auto low = count >= half ? loadPixelVectors<L, 16>(from) : loadLastPixels16<L, R>(from, count);
  PixelVectors<L, T> pixels;
  if (count > half) {
    const auto high = loadLastPixels16<L, R>(from + half * channels<L>, count - half);
    for (int k = 0; k < processed<L>; ++k) pixels.channel[k] = joined(low.channel[k], high.channel[k]);
  } else {
    for (int k = 0; k < processed<L>; ++k) pixels.channel[k] = joined(low.channel[k], nothingBeside<R>(low.channel[k]));
  }
  return pixels;
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

// Rows of fewer pixels than a vector, for reducers that take a pixel in any place: the first and the last ones meet in
// a vector, and those that are there twice count once.
template <Layout L, class R, class T> struct ShortRow {
  static constexpr std::ptrdiff_t half = Vec<T, 16>::size;
  std::ptrdiff_t width;
  Vec<T> once;

  explicit ShortRow(std::ptrdiff_t pixels) : width(pixels), once(lastBytes<T>(vectorBytes))
  {
    if (R::repeats || (L != C1 && pixels < half)) return;
    const std::ptrdiff_t bytes = pixels * std::ptrdiff_t{sizeof(T)}, part = greatestPowerOfTwo(bytes);
    const auto from = [](std::ptrdiff_t n) { return lastBytes<T>(n < vectorBytes ? vectorBytes - n : 0); };
    once = without(from(3 * part - bytes), from(2 * part)) | without(from(0), from(part));
  }
  PixelVectors<L, T> operator()(const T* row) const
  {
    PixelVectors<L, T> pixels;
    if constexpr (L == C1) pixels.channel[0] = loadShort<T>(row, static_cast<std::size_t>(width) * sizeof(T));
    else {
#if ZORI_VECTOR_BYTES == 32
      if (width < half) return loadLastPixels<L, R>(row, width);
      const auto low = loadPixelVectors<L, 16>(row);
      const auto high = loadPixelVectors<L, 16>(row + (width - half) * channels<L>);
      for (int k = 0; k < processed<L>; ++k) pixels.channel[k] = joined(low.channel[k], high.channel[k]);
#else
      return loadLastPixels<L, R>(row, width);
#endif
    }
    if constexpr (!R::repeats)
      for (auto& x : pixels.channel) x = x & once;
    return pixels;
  }
};

inline constexpr std::ptrdiff_t fetchedAhead = 1024; // in short rows too: the next one mostly follows

template <Layout L, class R, class... T>
[[gnu::noinline]] void reduceRows(R* reducers, std::ptrdiff_t width, int rows, Rows<const T>... image)
{
  const UpperHalvesCleared atTheEnd;
  constexpr int n = processed<L>, groups = R::groups;
  constexpr std::ptrdiff_t lanes = std::common_type_t<std::integral_constant<int, Vec<T>::size>...>::value;
  R r[n]; // a copy of their own, so that they live in registers
  for (int k = 0; k < n; ++k) r[k] = reducers[k];

  const auto add = [&](int j, const PixelVectors<L, T>&... pixels) ZORI_INLINE {
    for (int k = 0; k < n; ++k) r[k].add(j, pixels.channel[k]...);
  };

  // whole vectors that end with the row, of which the last `rest` pixels are new
  const auto onlyLast = [](std::ptrdiff_t rest, auto pixels) ZORI_INLINE {
    using E = typename std::remove_reference_t<decltype(pixels.channel[0])>::Element;
    if constexpr (!R::repeats)
      for (auto& x : pixels.channel) x = x & lastBytes<E>(rest * static_cast<std::ptrdiff_t>(sizeof(E)));
    return pixels;
  };
  if constexpr (R::placeFree) {
    if (width < lanes) {
      const ShortRow<L, R, std::common_type_t<T...>> shortRow(width);
      for (int y = 0; y < rows; ++y) {
        add(0, shortRow(image[y])...);
        for (int k = 0; k < n; ++k) r[k].endRow();
      }
    } else if (L == C1 && width <= 2 * lanes) {
      const std::ptrdiff_t behind = width - lanes;
      for (int y = 0; y < rows; ++y) {
        add(0, loadPixelVectors<L>(image[y])...);
        if (behind != 0) add(1 % groups, onlyLast(behind, loadPixelVectors<L>(image[y] + behind))...);
        r[0].endRow();
      }
    }
    if (width < lanes || (L == C1 && width <= 2 * lanes)) {
      for (int k = 0; k < n; ++k) reducers[k] = r[k];
      return;
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
        if constexpr (groups > 1) (fetchAhead(row + x * channels<L>, fetchedAhead), ...);
        forConstants(std::make_integer_sequence<int, groups>{},
                     [&](auto j) ZORI_INLINE { add(j, loadPixelVectors<L>(row + (x + j * lanes) * channels<L>)...); });
        x += groups * lanes;
      }
      if (done < rounds)
        for (int k = 0; k < n; ++k) r[k].flush();
    }
    // what is left: vectors, each with its own number, then a part of one
    forConstants(std::make_integer_sequence<int, groups>{}, [&](auto j) ZORI_INLINE {
      if (x + lanes <= width) add(j, loadPixelVectors<L>(row + x * channels<L>)...);
      else if (x < width) {
        if constexpr (R::placeFree)
          add(j, onlyLast(width - x, loadPixelVectors<L>(row + (width - lanes) * channels<L>))...);
        else add(j, loadLastPixels<L, R>(row + x * channels<L>, width - x)...);
      }
      x += lanes;
    });
    for (int k = 0; k < n; ++k) r[k].endRow();
  };
  for (int y = 0; y < rows; ++y) alongRow(image[y]...);
  for (int k = 0; k < n; ++k) reducers[k] = r[k];
}

// All rows; a region without gaps is one row where the order does not matter.
template <Layout L, class R, class... T> void reduceRegion(R* reducers, ZorImgSize roi, Rows<const T>... image)
{
  std::ptrdiff_t width = roi.width;
  int height = roi.height;
  const auto contiguous = [&](auto rows) {
    return static_cast<long long>(width) * channels<L> * static_cast<int>(sizeof(*rows.first)) == rows.step;
  };
  if (R::orderFree && height > 1 && (contiguous(image) && ...)) {
    width *= height;
    height = 1;
  }
  reduceRows<L>(reducers, width, height, image...);
}

// ---- Reducers of integers: exact, in any order ----

struct IntegerReducer {
  static constexpr bool orderFree = true, placeFree = true, repeats = false;
  static constexpr int groups = 1;
  static constexpr std::ptrdiff_t capacity = PTRDIFF_MAX;
  void flush() {}
  void endRow() {}
};

inline std::uint64_t lanesSum(Vec<std::uint64_t> x)
{
  std::uint64_t lanes[Vec<std::uint64_t>::size], sum = 0;
  store(lanes, x);
  for (const std::uint64_t lane : lanes) sum += lane;
  return sum;
}

template <class T> struct IntegerSum;

template <> struct IntegerSum<std::uint8_t> : IntegerReducer {
  static constexpr int groups = 4;
  Vec<std::uint64_t> total = zero<std::uint64_t>();
  void add(int, Vec<std::uint8_t> x) { total += sumAbsDiff(x, zero<std::uint8_t>()); }
  double value() const { return static_cast<double>(lanesSum(total)); }
};

template <> struct IntegerSum<std::uint16_t> : IntegerReducer {
  static constexpr std::ptrdiff_t capacity = 32768; // two words a lane each time
  Vec<std::uint32_t> lanes = zero<std::uint32_t>();
  Vec<std::uint64_t> total = zero<std::uint64_t>();
  void add(int, Vec<std::uint16_t> x)
  {
    const Vec<std::uint32_t> pairs = as<std::uint32_t>(x);
    lanes += (pairs & splat<std::uint32_t>(0xffff)) + shiftRight<16>(pairs);
  }
  void flush()
  {
    total += widenLowLocal(lanes) + widenHighLocal(lanes);
    lanes = zero<std::uint32_t>();
  }
  void endRow() { flush(); }
  double value() const { return static_cast<double>(lanesSum(total)); }
};

template <> struct IntegerSum<std::int16_t> : IntegerReducer {
  static constexpr std::ptrdiff_t capacity = 32767;
  Vec<std::int32_t> lanes = zero<std::int32_t>();
  Vec<std::uint64_t> total = zero<std::uint64_t>(); // two's complement
  void add(int, Vec<std::int16_t> x) { lanes += mulAddPairs(x, splat<std::int16_t>(1)); }
  void flush()
  {
    total += as<std::uint64_t>(widenLowLocal(lanes)) + as<std::uint64_t>(widenHighLocal(lanes));
    lanes = zero<std::int32_t>();
  }
  void endRow() { flush(); }
  double value() const { return static_cast<double>(static_cast<std::int64_t>(lanesSum(total))); }
};

// Sums of squares of magnitudes.
template <class T> struct SquareSum;

template <> struct SquareSum<std::uint8_t> : IntegerReducer {
  static constexpr std::ptrdiff_t capacity = 16384; // four squares a lane each time
  Vec<std::uint32_t> lanes = zero<std::uint32_t>();
  Vec<std::uint64_t> total = zero<std::uint64_t>();
  void add(int, Vec<std::uint8_t> x)
  {
    const Vec<std::int16_t> low = as<std::int16_t>(widenLowLocal(x)), high = as<std::int16_t>(widenHighLocal(x));
    lanes += as<std::uint32_t>(mulAddPairs(low, low)) + as<std::uint32_t>(mulAddPairs(high, high));
  }
  void flush()
  {
    total += widenLowLocal(lanes) + widenHighLocal(lanes);
    lanes = zero<std::uint32_t>();
  }
  void endRow() { flush(); }
  double value() const { return static_cast<double>(lanesSum(total)); }
};

template <> struct SquareSum<std::int16_t> : IntegerReducer { // of signed words
  Vec<std::uint64_t> total = zero<std::uint64_t>();
  void add(int, Vec<std::int16_t> x)
  {
    const Vec<std::uint32_t> pairs = as<std::uint32_t>(mulAddPairs(x, x)); // at most 2^31, without a sign
    total += widenLowLocal(pairs) + widenHighLocal(pairs);
  }
  double value() const { return static_cast<double>(lanesSum(total)); }
};

template <> struct SquareSum<std::uint16_t> : IntegerReducer {
  static constexpr std::ptrdiff_t capacity = IntegerSum<std::uint16_t>::capacity;
  IntegerSum<std::uint16_t> low, high; // halves of the squares
  void add(int j, Vec<std::uint16_t> x)
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
template <class T> inline constexpr int extremeGroups = std::is_same_v<T, float> ? 16 / Vec<float>::size : 2;

template <class T, bool Greatest> struct Extreme : IntegerReducer {
  static constexpr bool placeFree = isInt<T>, repeats = true;
  static constexpr int groups = extremeGroups<T>;
  Vec<T> best[groups];

  Extreme() = default;
  explicit Extreme(T start)
  {
    for (auto& b : best) b = splat(start);
  }
  void add(int j, Vec<T> x) { best[j] = Greatest ? max(x, best[j]) : min(x, best[j]); }
  T value() const
  {
    constexpr int lanesOf16 = Vec<T, 16>::size;
    T places[groups * Vec<T>::size], lanes[lanesOf16];
    for (int j = 0; j < groups; ++j) store(places + j * Vec<T>::size, best[j]);
    Vec<T, 16> v = load<T, 16>(places);
    for (const T* p = places + lanesOf16; p < places + groups * Vec<T>::size; p += lanesOf16)
      v = Greatest ? max(load<T, 16>(p), v) : min(load<T, 16>(p), v);
    store(lanes, v);
    T result = lanes[0];
    for (T lane : lanes) result = (Greatest ? lane > result : lane < result) ? lane : result;
    return result;
  }
};

template <class T> struct BothExtremes : IntegerReducer {
  static constexpr bool placeFree = isInt<T>, repeats = true;
  static constexpr int groups = extremeGroups<T>;
  Extreme<T, false> least;
  Extreme<T, true> greatest;

  BothExtremes() = default;
  BothExtremes(T leastStart, T greatestStart) : least(leastStart), greatest(greatestStart) {}
  void add(int j, Vec<T> x)
  {
    least.add(j, x);
    greatest.add(j, x);
  }
};

// ---- Sums of floats, whose order is part of the result ----

struct OrderedReducer : IntegerReducer {
  static constexpr bool orderFree = false, placeFree = false;
};

// visit(four...) for the fours of vectors in their order.
template <class Visit, class... V> inline void eachFour(Visit visit, V... x)
{
#if ZORI_VECTOR_BYTES == 32
  visit(lowHalf(x)...);
  visit(highHalf(x)...);
#else
  visit(x...);
#endif
}

// Pixel i of a row goes to lane i mod 16; the lanes of a row are added in pairs down to two, those in double to the
// total.
struct FastSum : OrderedReducer {
  static constexpr int groups = 16 / Vec<float>::size;
  Vec<float> lanes[groups];
  double total = 0;
  FastSum()
  {
    for (auto& l : lanes) l = zero<float>();
  }
  void add(int j, Vec<float> x) { lanes[j] += x; }
  void endRow()
  {
    float places[16];
    for (int j = 0; j < groups; ++j) store(places + j * Vec<float>::size, lanes[j]);
    const F32x4 four = (load<float, 16>(places) + load<float, 16>(places + 4)) +
                       (load<float, 16>(places + 8) + load<float, 16>(places + 12));
    const F32x4 two = four + shuffle<3, 2, 3, 2>(four, four);
    total += static_cast<double>(firstLane(two));
    total += static_cast<double>(firstLane(shuffle<1, 1, 1, 1>(two, two)));
    for (auto& l : lanes) l = zero<float>();
  }
  double value() const { return total; }
};

// Pixel i of a row goes to lane i mod 4; the row's total is (l0 + l1) + (l2 + l3).
struct FastRowSum : OrderedReducer {
  F32x4 lanes = zero<float, 16>();
  double total = 0;
  void add(int, Vec<float> x)
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
struct AccurateSum : OrderedReducer {
  F64x2 total = zero<double, 16>();
  void add(int, Vec<float> x)
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
struct AccurateChannelSum : OrderedReducer {
  double total = 0;
  void add(int, Vec<float> x)
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
template <Layout L> using AccurateSumOf = std::conditional_t<L == C1, AccurateSum, AccurateChannelSum>;

} // namespace ZORI_WIDTH
} // namespace zori
