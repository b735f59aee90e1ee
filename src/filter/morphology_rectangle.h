// The greatest or least samples of rectangles: columns first, then rows.
//
//   columns   up to eight rows at once, which share the middle of their windows: a column of height h costs h + 7
//             samples and some 20 picks more for eight results
//   rows      runs of 4, 16, 64... neighbours, each from four of the one before; a window is up to five of these, which
//             may overlap
//
// This goes in strips of columns that stay in the cache. Squares of three need no strip: rows first, in registers,
// eight results at once. Neighbouring samples lie `channels` apart. src is the first sample that a window covers.
//
// A NaN makes picks depend on how they are grouped: rows of 16 bytes and more are grouped alike at every width, those
// of fewer than 32 in vectors of 16.
#pragma once

#include "morphology.h"

#include <climits>
#include <utility>

namespace zori {
namespace morphology {

// Calls body(x) for vectors that cover `length` elements, the last one overlapping; there are as many as it holds. The
// loop of a short body is unrolled.
template <class T, bool IsShort, int Bytes = vectorBytes, class Body>
[[gnu::always_inline]] inline void overRow(std::ptrdiff_t length, Body body)
{
  constexpr std::ptrdiff_t lanes = Vec<T, Bytes>::size;
  if constexpr (IsShort) {
#pragma GCC unroll 2
    for (std::ptrdiff_t x = 0; x < length - lanes; x += lanes) body(x);
  } else {
    for (std::ptrdiff_t x = 0; x < length - lanes; x += lanes) body(x);
  }
  body(length - lanes);
}

// ---- Fetching ----

// Rows that the next stage or the next rows of results need. A stage asks for them at the place where it works on
// others, so that memory is busy while it computes with what is near. No first row: nothing is asked for.
template <class T> using Coming = Rows<const T>;

// The rows where they are worth asking for: not those of small regions, which stay near by themselves.
template <class T> inline Coming<T> comingIn(ZorImgSize roi, int channels, Coming<T> rows)
{
  constexpr long long farFrom = 512 << 10;
  const long long bytes = 1LL * roi.width * channels * static_cast<int>(sizeof(T)) * roi.height;
  return bytes >= farFrom ? rows : Coming<T>{nullptr, 0};
}

// Asks for the lines of `Count` rows from sample x on, once a line where x goes along by whole vectors.
template <int Count, class T> [[gnu::always_inline]] inline void fetch(Coming<T> rows, std::ptrdiff_t x)
{
  constexpr std::ptrdiff_t line = 64 / sizeof(T);
  if (rows.first == nullptr || x % line != 0) return;
  for (int i = 0; i < Count; ++i) prefetch(rows[i] + x);
}

// ---- Columns ----

// Row `row` from p on, steps in bytes.
template <int Bytes, class T> inline Vec<T, Bytes> loadRow(const T* p, std::ptrdiff_t row, std::ptrdiff_t step)
{
  return load<T, Bytes>(reinterpret_cast<const char*>(p) + row * step);
}

// R rows of results, of windows of `height` >= R rows: to[i * pitch + x] for `length` samples. Windows one row taller
// than R have kernels of their own. R rows are coming.
template <class Op, int R, bool IsOneTaller, int Bytes, class T = typename Op::Sample>
[[gnu::noinline]] void pickColumns(Rows<const T> src, std::ptrdiff_t anyHeight, std::ptrdiff_t length, T* to,
                                   std::ptrdiff_t pitch, Coming<T> coming)
{
  const UpperHalvesCleared atTheEnd;
  using V = Vec<T, Bytes>;
  const std::ptrdiff_t height = IsOneTaller ? R + 1 : anyHeight, step = src.step;
  const auto pickAt = [=](std::ptrdiff_t x) {
    fetch<R>(coming, x);
    const T* const p = src.first + x;
    V shared = loadRow<Bytes>(p, R - 1, step);
    for (std::ptrdiff_t row = R; row < height; ++row) shared = Op::pick(shared, loadRow<Bytes>(p, row, step));
    V upper[R];
    upper[R - 1] = shared;
    for (int i = R - 2; i >= 0; --i) upper[i] = Op::pick(loadRow<Bytes>(p, i, step), upper[i + 1]);
    store(to + x, upper[0]);
    if constexpr (R > 1) {
      V lower = loadRow<Bytes>(p, height, step);
      store(to + pitch + x, Op::pick(upper[1], lower));
      for (int i = 2; i < R; ++i) {
        lower = Op::pick(lower, loadRow<Bytes>(p, height + i - 1, step));
        store(to + i * pitch + x, Op::pick(upper[i], lower));
      }
    }
  };
  overRow<T, IsOneTaller, Bytes>(length, pickAt);
}

// One row of results of less than 16 bytes.
template <class Op, class T = typename Op::Sample>
[[gnu::noinline]] void pickShortColumns(Rows<const T> src, std::ptrdiff_t height, std::ptrdiff_t length, T* to)
{
  const std::size_t bytes = static_cast<std::size_t>(length) * sizeof(T);
  const auto rowAt = [=](std::ptrdiff_t row) { return loadPart16<T>(src[row], bytes); };
  Vec<T, 16> x = rowAt(0);
  for (std::ptrdiff_t row = 1; row < height; ++row) x = Op::pick(x, rowAt(row));
  store(to, x);
}

// ---- Rows ----

// `count` rows of `length` samples that are picked from as many others, steps in bytes; as many are coming.
template <class T> struct RowPairs {
  const T* from;
  std::ptrdiff_t fromStep;
  T* to;
  std::ptrdiff_t toStep;
  int count;
  std::ptrdiff_t length;
  Coming<T> coming;

  template <class Body> [[gnu::always_inline]] void forEach(Body body) const
  {
    const char* source = reinterpret_cast<const char*>(from);
    char* result = reinterpret_cast<char*>(to);
    Coming<T> next = coming;
    for (int i = 0; i < count; ++i, source += fromStep, result += toStep) {
      body(reinterpret_cast<const T*>(source), reinterpret_cast<T*>(result), next);
      if (next.first) next.first = next[1];
    }
  }
};

// The pick of from[k * distance] for 0 <= k < Taps - 1, and from[last].
template <class Op, int Taps, int Bytes = vectorBytes, class T>
inline Vec<T, Bytes> pickTaps(const T* from, std::ptrdiff_t distance, std::ptrdiff_t last)
{
  Vec<T, Bytes> x = load<T, Bytes>(from);
  for (int k = 1; k < Taps; ++k) x = Op::pick(x, load<T, Bytes>(from + (k == Taps - 1 ? last : k * distance)));
  return x;
}

// In place: the rows have room for whole vectors.
template <class Op, class T = typename Op::Sample>
[[gnu::noinline]] void lengthenRuns(T* rows, std::ptrdiff_t step, int count, std::ptrdiff_t distance,
                                    std::ptrdiff_t length)
{
  const UpperHalvesCleared atTheEnd;
  RowPairs<T>{rows, step, rows, step, count, length, {}}.forEach([=](const T* from, T* to, Coming<T>) {
    for (std::ptrdiff_t x = 0; x < length; x += Vec<T>::size)
      store(to + x, pickTaps<Op, 4>(from + x, distance, 3 * distance));
  });
}

template <class Op, int Taps, bool KeepFourth, class T = typename Op::Sample>
[[gnu::noinline]] void pickRows(const RowPairs<T>& rows, std::ptrdiff_t distance, std::ptrdiff_t last)
{
  const UpperHalvesCleared atTheEnd;
  const std::ptrdiff_t length = rows.length;
  const auto inVectors = [&](auto bytes) {
    constexpr int Bytes = decltype(bytes)::value;
    rows.forEach([=](const T* from, T* to, Coming<T> coming) {
      const auto result = [=](std::ptrdiff_t x) {
        return Op::finished(pickTaps<Op, Taps, Bytes>(from + x, distance, last));
      };
      if constexpr (Bytes == 16)
        if (length < Vec<T, 16>::size)
          return storeResultPart<KeepFourth>(to, result(0), static_cast<std::size_t>(length) * sizeof(T));
      overRow<T, Taps >= 3, Bytes>(length, [=](std::ptrdiff_t x) {
        fetch<1>(coming, x);
        storeResult<KeepFourth>(to + x, result(x));
      });
    });
  };
  if (vectorBytes > 16 && length < Vec<T>::size) inVectors(std::integral_constant<int, 16>{});
  else inVectors(std::integral_constant<int, vectorBytes>{});
}

// The same for any number of taps from 1 to 5.
template <class Op, bool KeepFourth, class T = typename Op::Sample>
inline void pickTapsOf(int taps, const RowPairs<T>& rows, std::ptrdiff_t distance, std::ptrdiff_t last)
{
  switch (taps) {
  case 1: return pickRows<Op, 1, KeepFourth>(rows, distance, last);
  case 2: return pickRows<Op, 2, KeepFourth>(rows, distance, last);
  case 3: return pickRows<Op, 3, KeepFourth>(rows, distance, last);
  case 4: return pickRows<Op, 4, KeepFourth>(rows, distance, last);
  default: return pickRows<Op, 5, KeepFourth>(rows, distance, last);
  }
}

// ---- Squares of three ----

// Three vectors of pixels beside each other.
template <class V> struct Neighbours {
  V left, middle, right;
};

// Up to ten rows at a place that goes along them. Each is a multiple that addresses have room for from one of three
// pointers: one for each row would not stay in registers.
template <class T> class NearRows {
public:
  explicit NearRows(Rows<T> rows) : first_(rows.first), fourth_(rows[3]), sixth_(rows[5]), step_(rows.step) {}
  template <int Row> T* at() const
  {
    static_assert(Row >= 0 && Row < 10);
    if constexpr (Row == 3) return fourth_;
    else if constexpr (Row < 5 || Row == 8) return below(first_, Row);
    else return below(sixth_, Row - 5);
  }
  void advance(std::ptrdiff_t samples)
  {
    first_ = forgotten(first_ + samples);
    fourth_ = forgotten(fourth_ + samples);
    sixth_ = forgotten(sixth_ + samples);
  }

private:
  T* below(T* p, int rows) const
  {
    using Byte = std::conditional_t<std::is_const_v<T>, const char, char>;
    return reinterpret_cast<T*>(reinterpret_cast<Byte*>(p) + rows * step_);
  }

  T *first_, *fourth_, *sixth_;
  std::ptrdiff_t step_;
};

constexpr int longRow = 16; // vectors of a row from which on it pays to begin with one more

template <int N> using Row = std::integral_constant<int, N>;

// R rows (1 or an even number) of results, a vector each: put(row, best); row r of the windows is neighbours(r).
template <class Op, class Load, class N>
[[gnu::always_inline]] inline auto pickNeighbours(const Load& neighbours, N row)
{
  const auto x = neighbours(row);
  return Op::pick(Op::pick(x.left, x.middle), x.right);
}
template <class Op, int R, int First = 0, class V, class Load, class Put>
[[gnu::always_inline]] inline void pickRowPairs(V a, V b, const Load& neighbours, const Put& put)
{
  const V c = pickNeighbours<Op>(neighbours, Row<First + 2>{}), d = pickNeighbours<Op>(neighbours, Row<First + 3>{}),
          shared = Op::pick(b, c);
  put(Row<First>{}, Op::pick(a, shared));
  put(Row<First + 1>{}, Op::pick(shared, d));
  if constexpr (First + 2 < R) pickRowPairs<Op, R, First + 2>(c, d, neighbours, put);
}
template <class Op, int R, class Load, class Put>
[[gnu::always_inline]] inline void pickSquare(const Load& neighbours, const Put& put)
{
  const auto a = pickNeighbours<Op>(neighbours, Row<0>{}), b = pickNeighbours<Op>(neighbours, Row<1>{});
  if constexpr (R == 1) put(Row<0>{}, Op::pick(Op::pick(a, b), pickNeighbours<Op>(neighbours, Row<2>{})));
  else pickRowPairs<Op, R>(a, b, neighbours, put);
}

// R rows of results, length samples each, at least as many as a vector holds. Where Channels tells their number,
// neighbours within 16 bytes are shifted out of two loads, of which fewer lie across two cache lines; at a distance of
// whole words three loads are as fast. Such rows may fetch the lines of the results below: stores across two lines wait
// long for lines that are not near.
template <class Op, int R, bool KeepFourth, int Bytes, int Channels, bool FetchesBelow = false,
          class T = typename Op::Sample>
[[gnu::noinline]] void pickSquares(Rows<const T> src, std::ptrdiff_t channels, Rows<T> to, std::ptrdiff_t length)
{
  const UpperHalvesCleared atTheEnd;
  using V = Vec<T, Bytes>;
  NearRows<const T> from(src);
  NearRows<T> results(to);
  const auto advance = [&](std::ptrdiff_t samples) __attribute__((always_inline))
  {
    from.advance(samples);
    results.advance(samples);
    length -= samples;
  };
  const auto put = [&](auto row, V best) __attribute__((always_inline))
  {
    storeResult<KeepFourth>(results.template at<decltype(row)::value>(), Op::finished(best));
  };
  const auto fetchBelow = [&]() __attribute__((always_inline))
  {
    if constexpr (FetchesBelow) {
      const Rows<T> below{results.template at<0>(), to.step};
      for (int i = 0; i < R; ++i) prefetch(below[R + i]);
    }
  };
  const std::ptrdiff_t apart = Channels > 0 ? Channels : channels;
  const auto loaded = [&](auto row) __attribute__((always_inline))
  {
    const T* const p = from.template at<decltype(row)::value>();
    return Neighbours<V>{load<T, Bytes>(p), load<T, Bytes>(p + apart), load<T, Bytes>(p + 2 * apart)};
  };
  // what is stored across two lines waits long: in long rows only the first vector is, where others may begin there
  constexpr auto apartOfBegins = static_cast<std::uintptr_t>(KeepFourth ? 4 * sizeof(T) : sizeof(T));
  const auto beyond = reinterpret_cast<std::uintptr_t>(to.first) % Bytes;
  if (Channels > 0 && beyond != 0 && beyond % apartOfBegins == 0 && to.step % Bytes == 0 &&
      length >= longRow * V::size) {
    pickSquare<Op, R>(loaded, put);
    advance(static_cast<std::ptrdiff_t>((Bytes - beyond) / sizeof(T)));
  }
#if ZORI_VECTOR_BYTES == 32
  constexpr int distance = Channels * static_cast<int>(sizeof(T));
  if constexpr (Bytes == 32 && Channels > 0 && 2 * distance <= 16 && distance % 4 != 0) {
    constexpr int half = V::size / 2;
    const auto shifted = [&](auto row) __attribute__((always_inline))
    {
      const T* const p = from.template at<decltype(row)::value>();
      const V left = load<T, Bytes>(p), on = load<T, Bytes>(p + half);
      return Neighbours<V>{left, bytesFromLocal<distance>(left, on), bytesFromLocal<2 * distance>(left, on)};
    };
    while (V::size + half <= length + 2 * Channels) {
      pickSquare<Op, R>(shifted, put);
      fetchBelow();
      advance(V::size);
    }
  }
#endif
  while (length > 0) {
    if (length < V::size) advance(length - V::size);
    pickSquare<Op, R>(loaded, put);
    fetchBelow();
    advance(V::size);
  }
}

template <class Op, bool KeepFourth, class T = typename Op::Sample>
[[gnu::noinline]] void pickShortSquares(Rows<const T> src, std::ptrdiff_t channels, T* to, std::ptrdiff_t length)
{
  const UpperHalvesCleared atTheEnd;
  const std::size_t bytes = static_cast<std::size_t>(length) * sizeof(T);
  const auto rowAt = [=](std::ptrdiff_t y) {
    const T* const p = src[y];
    return Op::pick(Op::pick(loadShort<T>(p, bytes), loadShort<T>(p + channels, bytes)),
                    loadShort<T>(p + 2 * channels, bytes));
  };
  storeShortResult<KeepFourth>(to, Op::finished(Op::pick(Op::pick(rowAt(0), rowAt(1)), rowAt(2))), bytes);
}

template <class Op> class Square {
  using T = typename Op::Sample;

public:
  Square(Rows<const T> src, int width, int channels)
    : src_(src), samples_(std::ptrdiff_t{width} * channels), channels_(channels)
  {}
  int rowsAtOnce() const { return 8; }
  void rows(std::ptrdiff_t y, int count, Rows<T> to, bool keepFourth) const
  {
    if (keepFourth) rows<true>(y, count, to);
    else rows<false>(y, count, to);
  }

private:
  template <bool Keep> void rows(std::ptrdiff_t y, int count, Rows<T> to) const
  {
    while (count > 0) {
      const bool isShort = samples_ < Vec<T, 16>::size;
      const int together = isShort ? 1 : count >= 8 ? 8 : count >= 4 ? 4 : count >= 2 ? 2 : 1;
      const Rows<const T> from{src_[y], src_.step};
      if (isShort) pickShortSquares<Op, Keep>(from, channels_, to.first, samples_);
      else if (samples_ < Vec<T>::size) squares<Keep, 16>(together, from, to);
      else squares<Keep, vectorBytes>(together, from, to);
      y += together, to = {to[together], to.step}, count -= together;
    }
  }

  template <bool Keep, int Bytes> void squares(int together, Rows<const T> from, Rows<T> to) const
  {
    if (together == 8) eightSquares<Keep, Bytes>(from, to);
    else if (together == 4) pickSquares<Op, 4, Keep, Bytes, 0>(from, channels_, to, samples_);
    else if (together == 2) pickSquares<Op, 2, Keep, Bytes, 0>(from, channels_, to, samples_);
    else pickSquares<Op, 1, Keep, Bytes, 0>(from, channels_, to, samples_);
  }
  template <bool Keep, int Bytes> void eightSquares(Rows<const T> from, Rows<T> to) const
  {
    if constexpr (Bytes == vectorBytes) {
      const auto hasChannels = [&](auto n) {
        constexpr int channels = decltype(n)::value;
        if constexpr (Keep && channels != 4) return false;
        else {
          if (channels_ != channels) return false;
          const bool mayBeAligned = to.step % Bytes == 0 && (reinterpret_cast<std::uintptr_t>(to.first) % Bytes == 0 ||
                                                             samples_ >= longRow * Vec<T>::size);
          // as far as they stay near until their turn
          if (Bytes == 32 && !mayBeAligned && samples_ <= 4096 / static_cast<int>(sizeof(T)))
            pickSquares<Op, 8, Keep, Bytes, channels, true>(from, channels, to, samples_);
          else pickSquares<Op, 8, Keep, Bytes, channels>(from, channels, to, samples_);
          return true;
        }
      };
      if (hasChannels(std::integral_constant<int, 1>{}) || hasChannels(std::integral_constant<int, 3>{}) ||
          hasChannels(std::integral_constant<int, 4>{}))
        return;
    }
    pickSquares<Op, 8, Keep, Bytes, 0>(from, channels_, to, samples_);
  }

  Rows<const T> src_;
  std::ptrdiff_t samples_, channels_;
};

// ---- The filter ----

template <class Op> class Rectangle {
  using T = typename Op::Sample;

public:
  Rectangle(Rows<const T> src, ZorImgSize mask, ZorImgSize roi, int channels)
    : src_(src), mask_(mask), roi_(roi), channels_(channels), samples_(std::ptrdiff_t{roi.width} * channels),
      plan_(samples_, (mask.width - 1LL) * channels),
      isOnStack_(plan_.pitch * rowsAtOnce() <= localSamples && mayUseStack()),
      memory_(isOnStack_ ? 0 : plan_.pitch * rowsAtOnce())
  {}
  ZorStatus status() const { return require(isOnStack_ || memory_, ZorErrAlloc); }
  int rowsAtOnce() const { return mask_.height >= 8 ? 8 : mask_.height >= 4 ? 4 : mask_.height >= 2 ? 2 : 1; }

  void rows(std::ptrdiff_t y, int count, Rows<T> to, bool keepFourth) const
  {
    alignas(64) T local[localSamples];
    T* const strip = isOnStack_ ? local : memory_.get();
    const auto windows = static_cast<std::ptrdiff_t>(plan_.windows);
    while (count > 0) {
      const int together = count >= 8 ? 8 : count >= 4 ? 4 : count >= 2 ? 2 : 1;
      for (std::ptrdiff_t x = 0; x < samples_; x += windows) {
        const std::ptrdiff_t length = std::min(windows, samples_ - x);
        columns({src_[y] + x, src_.step}, together, length, strip,
                comingIn<T>(roi_, channels_, {to.first + x, to.step}));
        const std::ptrdiff_t step = pitch() * static_cast<std::ptrdiff_t>(sizeof(T)), next = y + together;
        Coming<T> coming{};
        if (next + together <= roi_.height)
          coming = comingIn<T>(roi_, channels_, {src_[next + mask_.height - 1] + x, src_.step});
        const RowPairs<T> pairs{strip, step, to.first + x, to.step, together, length, coming};
        if (keepFourth) alongRows<true>(pairs, strip);
        else alongRows<false>(pairs, strip);
      }
      y += together, to = {to[together], to.step}, count -= together;
    }
  }

private:
  static constexpr int localSamples = mostRowsAtOnce * (4096 / static_cast<int>(sizeof(T)) + 16);

  // The strip, in samples: some 4 KB a row, but windows for the most part.
  struct Plan {
    static constexpr int spare = 64; // vectors reach beyond the last sample
    long long windows, pitch;

    Plan(long long samples, long long beyond)
    {
      const long long most = std::max<long long>(4096 / static_cast<int>(sizeof(T)) - spare - beyond, 2 * beyond);
      windows = std::min(samples, most / 16 * 16 + 16);
      pitch = (windows + beyond + spare) / 16 * 16;
    }
  };
  std::ptrdiff_t pitch() const { return static_cast<std::ptrdiff_t>(plan_.pitch); }

  void columns(Rows<const T> src, int rows, std::ptrdiff_t windows, T* strip, Coming<T> coming) const
  {
    const std::ptrdiff_t height = mask_.height, length = windows + (std::ptrdiff_t{mask_.width} - 1) * channels_;
    if (length < Vec<T, 16>::size)
      for (int i = 0; i < rows; ++i) pickShortColumns<Op>({src[i], src.step}, height, length, strip + i * pitch());
    else if (length < Vec<T>::size) columnsIn<16>(src, rows, length, strip, coming);
    else columnsIn<vectorBytes>(src, rows, length, strip, coming);
  }
  template <int Bytes>
  void columnsIn(Rows<const T> src, int rows, std::ptrdiff_t length, T* strip, Coming<T> coming) const
  {
    if (mask_.height == rows + 1) columnsOf<true, Bytes>(src, rows, length, strip, coming);
    else columnsOf<false, Bytes>(src, rows, length, strip, coming);
  }
  template <bool IsOneTaller, int Bytes>
  void columnsOf(Rows<const T> src, int rows, std::ptrdiff_t length, T* strip, Coming<T> coming) const
  {
    if (rows == 8) pickColumns<Op, 8, false, Bytes>(src, mask_.height, length, strip, pitch(), coming);
    else if (rows == 4) pickColumns<Op, 4, IsOneTaller, Bytes>(src, mask_.height, length, strip, pitch(), coming);
    else if (rows == 2) pickColumns<Op, 2, IsOneTaller, Bytes>(src, mask_.height, length, strip, pitch(), coming);
    else pickColumns<Op, 1, false, Bytes>(src, mask_.height, length, strip, pitch(), coming);
  }

  // pairs: from the rows of the strip to those of results.
  template <bool Keep> void alongRows(const RowPairs<T>& pairs, T* strip) const
  {
    std::ptrdiff_t run = 1; // each sample of the strip is the pick of so many
    for (; mask_.width > 5 * run; run *= 4)
      lengthenRuns<Op>(strip, pairs.fromStep, pairs.count, run * channels_,
                       pairs.length + (mask_.width - 4 * run) * channels_);
    pickTapsOf<Op, Keep>(static_cast<int>((mask_.width + run - 1) / run), pairs, run * channels_,
                         (mask_.width - run) * channels_);
  }

  Rows<const T> src_;
  ZorImgSize mask_, roi_;
  int channels_;
  std::ptrdiff_t samples_;
  Plan plan_;
  bool isOnStack_;
  Scratch<T> memory_;
};

// The region; src: from the first sample that a window covers, `above` rows above the region.
template <class Op, class T = typename Op::Sample>
inline ZorStatus filterRectangle(Rows<const T> src, ZorImgSize mask, const Target<T>& target, bool inPlace, int above)
{
  if (mask.width == 3 && mask.height == 3) {
    Square<Op> filter(src, target.roi.width, target.channels);
    if (inPlace) return target.fillInPlace(filter, above);
    target.fill(filter);
    return ZorOk;
  }
  Rectangle<Op> filter(src, mask, target.roi, target.channels);
  if (auto s = filter.status(); s != ZorOk) return s;
  if (inPlace) return target.fillInPlace(filter, above);
  target.fill(filter);
  return ZorOk;
}

} // namespace morphology
} // namespace zori
