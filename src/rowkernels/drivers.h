// Row drivers: how an operation on vectors is carried along rows. All kernels of a shape share one driver, so that
// a family writes only what it does to a vector.
//
// An operation is a small function object with one form, Vec in and Vec out. A driver covers rows of one length at any
// addresses with it and never reads or writes outside a row. It goes down the rows itself: what does not differ from
// row to row (the operation's constants, which of the ways below a length takes) is settled once, and a small region
// costs one call.
//
//   - whole vectors run from the start of the row, or, in long rows, from the first aligned address of the destination,
//     whose lines are fetched ahead where the region is large (fetch.h).
//     The last vector ends with the row and overlaps the one before it, as the first one does the second; of two that
//     overlap both are formed before one is stored. So no element loop is left, and a row may be its own source;
//   - a row shorter than a vector (short_rows.h) goes through one that holds its first and its last elements, so many
//   of
//     each as a power of two: the two parts overlap, and no other element is ever looked at.
//
// Drivers are not inlined: one kernel an operation and type, shared by all layouts that call it.
#pragma once

#include "copy.h"
#include "fetch.h"
#include "frame/layout.h"
#include "short_rows.h"
#include "simd.h"
#include "simd_32_only.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

namespace zori {
inline namespace ZORI_WIDTH {

// ---- Element by element: dst[i] = op(src[i]...), every type of one width. ----

// An operation that counts channels says `static constexpr int period = 4`: vectors then start at whole pixels.
template <class Op, class = void> inline constexpr int periodOf = 1;
template <class Op> inline constexpr int periodOf<Op, std::void_t<decltype(Op::period)>> = Op::period;

// An operation of many instructions says `static constexpr bool isLong = true`: its loops are not unrolled.
template <class Op, class = void> inline constexpr bool isLongOp = false;
template <class Op> inline constexpr bool isLongOp<Op, std::void_t<decltype(Op::isLong)>> = Op::isLong;

// Rows of so many vectors or groups are worth the way to an aligned address.
inline constexpr std::ptrdiff_t alignedFrom = 8;

template <class T> inline std::ptrdiff_t elementsToAlignment(const T* p)
{
  const auto address = reinterpret_cast<std::uintptr_t>(p);
  return address % sizeof(T) ? 0 : static_cast<std::ptrdiff_t>((-address & (vectorBytes - 1)) / sizeof(T));
}

// How kernels are given their operation: by value, or, where it holds vectors of 32 bytes, by reference. A copy of
// those for the call would be read sooner than it is written.
template <class Op> using Passed = std::conditional_t<(alignof(Op) > 16), const Op&, Op>;

// Vectors that stand side by side, in the order of their addresses, so that a cache line is written in one go.
template <class T, class... V> ZORI_INLINE inline void storeSideBySide(T* p, bool streams, Vec<T> first, V... others)
{
  if (streams) {
    stream(p, first);
    ((stream(p += Vec<T>::size, others)), ...);
  } else {
    store(p, first);
    ((storesInOrder(), store(p += Vec<T>::size, others)), ...);
  }
}

template <class T> inline bool isAligned(const T* p) { return reinterpret_cast<std::uintptr_t>(p) % vectorBytes == 0; }

// The element behind the first aligned vector of a long row, where its loop begins: what is in front of that vector
// goes as the row's first one, which overlaps it. 0 where no such place is at the start of a period.
template <int Period, class D> inline std::ptrdiff_t loopBegin(const D* dst, std::ptrdiff_t length)
{
  constexpr std::ptrdiff_t lanes = Vec<D>::size;
  if (length < alignedFrom * lanes) return 0;
  const std::ptrdiff_t head = elementsToAlignment(dst);
  return head % Period ? 0 : head + lanes;
}

template <bool IsFar, class T> ZORI_INLINE inline Vec<T> loadFrom(const T* p)
{
  if constexpr (IsFar) return loadFromFar<T>(p);
  else return load<T>(p);
}

// A row of a vector or more.
template <int Period, bool IsLongOp, class D, class W, class At>
ZORI_INLINE inline void mapVectors(D* dst, std::ptrdiff_t length, const W& writing, At at)
{
  constexpr std::ptrdiff_t lanes = Vec<D>::size;
  std::ptrdiff_t i = loopBegin<Period>(dst, length);
  if (i != 0) {
    const Vec<D> first = at(0), second = at(i - lanes);
    store(dst, first);
    store(dst + i - lanes, second);
  }
  const bool streams = writing.streams && isAligned(dst + i);
  for (; !IsLongOp && i + 5 * lanes <= length; i += 4 * lanes) {
    fetchAhead(dst + i, writing.ahead, 4 * vectorBytes);
    const Vec<D> a = at(i), b = at(i + lanes), c = at(i + 2 * lanes), d = at(i + 3 * lanes);
    storeSideBySide(dst + i, streams, a, b, c, d);
  }
  for (; i + 2 * lanes <= length; i += lanes) store(dst + i, at(i));
  const Vec<D> next = at(i), last = at(length - lanes); // the last two, which overlap
  store(dst + i, next);
  store(dst + length - lanes, last);
}

// Operations without a constant, in the manner of a Pattern.
struct NoConstant {
  NoConstant at(std::ptrdiff_t) const { return {}; }
  NoConstant ofShort(std::size_t) const { return {}; }
};
template <class Op, class C, class... V> ZORI_INLINE inline auto applied(const Op& op, const C& constant, V... x)
{
  if constexpr (std::is_same_v<C, NoConstant>) return op(x...);
  else return op(x..., constant);
}

// A row of more than two vectors with a constant: in threes, which hold whole pixels of any channel count, from element
// i on, where the constants are c0, c1, c2, and so on in turns.
template <class D, class C, class W, class At>
ZORI_INLINE inline void mapVectorsInThrees(D* dst, std::ptrdiff_t i, std::ptrdiff_t length, const C& cFirst,
                                           const C& c0, const C& c1, const C& c2, const C& cLast, const W& writing,
                                           At at)
{
  constexpr std::ptrdiff_t lanes = Vec<D>::size;
  const Vec<D> last = at(length - lanes, cLast);
  if (i != 0) {
    const Vec<D> first = at(0, cFirst), second = at(i - lanes, c2);
    store(dst, first);
    store(dst + i - lanes, second);
  }
  const bool streams = writing.streams && isAligned(dst + i);
  for (; i + 3 * lanes <= length; i += 3 * lanes) {
    fetchAhead(dst + i, writing.ahead, 3 * vectorBytes);
    const Vec<D> a = at(i, c0), b = at(i + lanes, c1), c = at(i + 2 * lanes, c2);
    storeSideBySide(dst + i, streams, a, b, c);
  }
  if (i + lanes <= length) store(dst + i, at(i, c0));
  if (i + 2 * lanes <= length) store(dst + i + lanes, at(i + lanes, c1));
  store(dst + length - lanes, last);
}

template <class Constant, class D, class Op, class... S>
[[gnu::noinline]] void rowKernel(const Constant& constant, Rows<D> dst, std::ptrdiff_t length, int rows,
                                 Passed<Op> given, Rows<const S>... src)
{
  const UpperHalvesCleared atTheEnd;
  Op op = given;
  constexpr std::ptrdiff_t lanes = Vec<D>::size;
  constexpr bool hasConstant = !std::is_same_v<Constant, NoConstant>;
  static_assert(((sizeof(S) == sizeof(D)) && ...));
  if (length < lanes) {
    const std::size_t bytes = static_cast<std::size_t>(length) * sizeof(D);
    const auto all = constant.ofShort(bytes);
    if constexpr (isLongOp<Op>) {
      for (int y = 0; y < rows; ++y) storeShort<D>(dst[y], applied(op, all, loadShort<S>(src[y], bytes)...), bytes);
    } else {
      const auto inParts = [&](auto part) ZORI_INLINE {
        for (int y = 0; y < rows; ++y)
          storeShort<part, D>(dst[y], applied(op, all, loadShort<part, S>(src[y], bytes)...), bytes);
      };
      if (vectorBytes > 16 && bytes == 16) inParts(bothHalves); // of one load and one store, not two
      else withShortPart<sizeof(D)>(bytes, inParts);
    }
    return;
  }
  const auto along = [&op](auto isFar, const S*... from) ZORI_INLINE {
    return [&op, from...](std::ptrdiff_t i, const auto& c)
             ZORI_INLINE { return applied(op, c, loadFrom<decltype(isFar)::value>(from + i)...); };
  };
  const std::ptrdiff_t behind = length - lanes;
  const auto c0 = constant.at(0), cLast = constant.at(behind);
  if (length <= 2 * lanes && (hasConstant || !isLongOp<Op>)) { // one or two vectors, which overlap
    if (behind == 0) {
      for (int y = 0; y < rows; ++y) store(dst[y], along(std::false_type{}, src[y]...)(0, c0));
      return;
    }
    for (int y = 0; y < rows; ++y) {
      const auto at = along(std::false_type{}, src[y]...);
      const Vec<D> first = at(0, c0), last = at(behind, cLast);
      store(dst[y], first);
      store(dst[y] + behind, last);
    }
    return;
  }
  const auto allRows = [&](const auto& writing) ZORI_INLINE {
    constexpr bool isNear = std::is_same_v<std::decay_t<decltype(writing)>, NearWriting>;
    using IsFar = std::bool_constant<!isNear>;
    if constexpr (hasConstant) {
      std::ptrdiff_t begin = 0; // where the loop of the row before began, to which the constants belong
      auto cLoop = c0, c1 = constant.at(lanes), c2 = constant.at(2 * lanes);
      for (int y = 0; y < rows; ++y) {
        const std::ptrdiff_t here = isNear ? 0 : loopBegin<periodOf<Op>>(dst[y], length);
        if (begin != here) {
          begin = here;
          cLoop = constant.at(begin), c1 = constant.at(begin + lanes), c2 = constant.at(begin + 2 * lanes);
        }
        mapVectorsInThrees(dst[y], begin, length, c0, cLoop, c1, c2, cLast, writing, along(IsFar{}, src[y]...));
      }
    } else {
      for (int y = 0; y < rows; ++y) {
        const auto at = along(IsFar{}, src[y]...);
        mapVectors<periodOf<Op>, isLongOp<Op>>(dst[y], length, writing,
                                               [&](std::ptrdiff_t i) ZORI_INLINE { return at(i, NoConstant{}); });
      }
    }
  };
  if constexpr (!isLongOp<Op>) {
    const Writing writing = writingOf(dst, length, rows, src...);
    if (writing.ahead != 0 || writing.streams) {
      allRows(writing);
      if (writing.streams) streamFence();
      return;
    }
  }
  allRows(NearWriting{});
}

// dst = op(src...) on rows, and on one row.
template <class D, class Op, class... S>
inline void mapRows(Rows<D> dst, std::ptrdiff_t length, int rows, const Op& op, Rows<const S>... src)
{
  rowKernel<NoConstant, D, Op, S...>({}, dst, length, rows, op, src...);
}
template <class D, class Op, class... S>
inline void mapRow(D* dst, std::ptrdiff_t length, const Op& op, const S*... src)
{
  rowKernel<NoConstant, D, Op, S...>({}, {dst, 0}, length, 1, op, Rows<const S>{src, 0}...);
}

// ---- The same with a constant that differs from channel to channel. ----

// The bytes of a period of 16 or less, again and again.
struct RepeatedBytes {
  static constexpr int size = 2 * vectorBytes;
  std::uint8_t places[17][size];
  constexpr RepeatedBytes() : places{}
  {
    for (int period = 1; period <= 16; ++period)
      for (int i = 0; i < size; ++i) places[period][i] = static_cast<std::uint8_t>(i % period);
  }
};
inline constexpr RepeatedBytes repeatedBytes;

// A constant of 1 to 4 channels repeated, complex ones being two, so that a vector of it can be had for any phase.
template <class T> struct Pattern {
  static constexpr int count = Vec<T>::size + (sizeof(T) > 4 ? 4 : std::max(Vec<T, 16>::size, 8)); // every phase
  int period;
  alignas(16) T values[count];

  ZORI_INLINE Pattern(const T* constant, int channels) : period(channels)
  {
#if ZORI_VECTOR_BYTES == 32
    // Formed in registers, since it is soon read as vectors, and of 16 bytes, since the caller clears no upper halves.
    constexpr int size = sizeof(T);
    if (channels == 1) {
      fill(get<T>(constant));
      return;
    }
    if (channels * size <= 16) {
      std::uint64_t once[2] = {};
      for (int i = 0; i < channels; ++i)
        once[i * size / 8] |= std::uint64_t{get<BitsOf<T>>(constant + i)} << (8 * (i * size % 8));
      const auto bytes = as<std::uint8_t>(ofHalves(once[0], once[1]));
      const std::uint8_t* const places = repeatedBytes.places[channels * size];
      for (int k = 0; k < count; k += Vec<T, 16>::size)
        store(values + k, as<T>(shuffleBytesLocal(bytes, load<std::uint8_t, 16>(places + k * size))));
      return;
    }
#endif
    for (int i = 0, k = 0; i < Vec<T>::size + channels - 1; ++i, k = k + 1 < channels ? k + 1 : 0)
      values[i] = get<T>(constant + k);
  }
  explicit Pattern(T constant) : period(1) { fill(constant); }
  // As the element that stands i elements behind the start of a row. Periods are 1, 2, 3, 4, 6 or 8.
  Vec<T> at(std::ptrdiff_t i) const
  {
    const T* const from = values + (period == 3 ? i % 3 : period == 6 ? i % 6 : i & (period - 1));
    return isRepeatedIn16() ? loadRepeated(from) : load<T>(from);
  }
  // As a row shorter than a vector, of whole pixels.
  Vec<T> ofShort(std::size_t bytes) const
  {
    return isRepeatedIn16() ? loadRepeated(values) : loadShort<T>(values, bytes);
  }

private:
  // Whether all 16 bytes are alike, and so any parts of a short row: read as they were stored, which is soon there.
  bool isRepeatedIn16() const
  {
    return vectorBytes > 16 && period * static_cast<int>(sizeof(T)) <= 16 && (period & (period - 1)) == 0;
  }
  static Vec<T> loadRepeated(const T* from)
  {
#if ZORI_VECTOR_BYTES == 32
    return as<T>(loadInBothHalves<std::uint8_t>(from));
#else
    return load<T>(from);
#endif
  }
  template <class U>
  using BitsOf =
    std::conditional_t<sizeof(U) == 1, std::uint8_t,
                       std::conditional_t<sizeof(U) == 2, std::uint16_t,
                                          std::conditional_t<sizeof(U) == 4, std::uint32_t, std::uint64_t>>>;
  void fill(T constant)
  {
    for (int k = 0; k < count; k += Vec<T, 16>::size) store(values + k, splat<T, 16>(constant));
  }
};

// Several constants that an operation takes together: op(src..., const Patterns<T, N>::Vectors&).
template <class T, int N> struct Patterns {
  struct Vectors {
    Vec<T> v[N];
    Vec<T> operator[](int k) const { return v[k]; }
  };
  Pattern<T> patterns[N];
  Vectors at(std::ptrdiff_t i) const
  {
    Vectors x;
    for (int k = 0; k < N; ++k) x.v[k] = patterns[k].at(i);
    return x;
  }
  Vectors ofShort(std::size_t bytes) const
  {
    Vectors x;
    for (int k = 0; k < N; ++k) x.v[k] = patterns[k].ofShort(bytes);
    return x;
  }
};

// dst[i] = op(src[i]..., constant[i % channels]), the constant a Pattern or Patterns.
template <class Constant, class D, class Op, class... S>
inline void mapRowsWith(const Constant& constant, Rows<D> dst, std::ptrdiff_t length, int rows, const Op& op,
                        Rows<const S>... src)
{
  rowKernel<Constant, D, Op, S...>(constant, dst, length, rows, op, src...);
}
template <class Constant, class D, class Op, class... S>
inline void mapRowWith(const Constant& constant, D* dst, std::ptrdiff_t length, const Op& op, const S*... src)
{
  rowKernel<Constant, D, Op, S...>(constant, {dst, 0}, length, 1, op, Rows<const S>{src, 0}...);
}

// ---- Groups: as many elements as a vector has bytes, in as many vectors as they take, so that operands of different
// widths meet. ----

template <class T, int Bytes = vectorBytes> struct Group {
  static constexpr int size = Bytes, lanes = Vec<T, Bytes>::size, parts = size / lanes;
  Vec<T, Bytes> part[parts];
};

template <class T, int Bytes = vectorBytes> ZORI_INLINE inline Group<T, Bytes> loadGroup(const T* p)
{
  Group<T, Bytes> x;
  for (int k = 0; k < x.parts; ++k) x.part[k] = load<T, Bytes>(p + k * x.lanes);
  return x;
}

template <class T, int Bytes> ZORI_INLINE inline void storeGroup(T* p, const Group<T, Bytes>& x)
{
  for (int k = 0; k < x.parts; ++k) store(p + k * x.lanes, x.part[k]);
}

// To an aligned address, past the cache.
template <class T, int Bytes> ZORI_INLINE inline void streamGroup(T* p, const Group<T, Bytes>& x)
{
  for (int k = 0; k < x.parts; ++k) stream(p + k * x.lanes, x.part[k]);
}

// A row of fewer elements than a group, in the manner of loadShort. `half` is the greatest power of two up to length.
template <class T, int Bytes>
ZORI_INLINE inline Group<T, Bytes> loadShortGroup(const T* p, std::ptrdiff_t length, std::ptrdiff_t half)
{
  constexpr std::ptrdiff_t lanes = Vec<T, Bytes>::size;
  Group<T, Bytes> x;
  static_assert(x.parts <= 4);
  if (length < lanes) {
    x.part[0] = loadShortOf<Bytes, T>(p, static_cast<std::size_t>(length) * sizeof(T));
    for (int k = 1; k < x.parts; ++k) x.part[k] = x.part[0];
    return x;
  }
  const T* const last = p + length - half;
  if constexpr (Group<T, Bytes>::parts >= 4) {
    if (half >= 2 * lanes) {
      for (int k = 0; k < x.parts / 2; ++k) {
        x.part[k] = load<T, Bytes>(p + k * lanes);
        x.part[x.parts / 2 + k] = load<T, Bytes>(last + k * lanes);
      }
      return x;
    }
  }
  if constexpr (Group<T, Bytes>::parts >= 2) {
    x.part[0] = load<T, Bytes>(p);
    x.part[1] = load<T, Bytes>(last);
    for (int k = 2; k < x.parts; ++k) x.part[k] = x.part[k - 2];
  }
  return x;
}
template <class T, int Bytes>
ZORI_INLINE inline void storeShortGroup(T* p, const Group<T, Bytes>& x, std::ptrdiff_t length, std::ptrdiff_t half)
{
  constexpr std::ptrdiff_t lanes = Vec<T, Bytes>::size;
  if (length < lanes) {
    storeShort(p, x.part[0], static_cast<std::size_t>(length) * sizeof(T));
    return;
  }
  T* const last = p + length - half;
  if constexpr (Group<T, Bytes>::parts >= 4) {
    if (half >= 2 * lanes) {
      for (int k = 0; k < x.parts / 2; ++k) store(p + k * lanes, x.part[k]);
      for (int k = 0; k < x.parts / 2; ++k) store(last + k * lanes, x.part[x.parts / 2 + k]);
      return;
    }
  }
  if constexpr (Group<T, Bytes>::parts >= 2) {
    store(p, x.part[0]);
    store(last, x.part[1]);
  }
}
inline std::ptrdiff_t greatestPowerOfTwo(std::ptrdiff_t n)
{
  return std::ptrdiff_t{1} << (31 - __builtin_clz(static_cast<unsigned>(n)));
}

// The first elements of a row in a block of N, the rest zero. Whole vectors are stored, since they are soon read.
template <std::ptrdiff_t N, class T> ZORI_INLINE inline void padBlock(T* block, const T* from, std::ptrdiff_t length)
{
  constexpr std::ptrdiff_t bytes = N * sizeof(T);
  if constexpr (bytes % 16 == 0) {
    constexpr int width = bytes % vectorBytes == 0 ? vectorBytes : 16;
    constexpr std::ptrdiff_t lanes = Vec<T, width>::size;
    const auto part = [](const T* p, std::ptrdiff_t n) {
      if constexpr (width == 16) return loadPart16<T>(p, static_cast<std::size_t>(n) * sizeof(T));
      else return loadPart<T>(p, static_cast<std::size_t>(n) * sizeof(T));
    };
    for (std::ptrdiff_t i = 0; i < N; i += lanes, length -= lanes)
      store(block + i, length >= lanes ? load<T, width>(from + i)
                       : length > 0    ? part(from + i, length)
                                       : zero<T, width>());
  } else {
    std::memset(block, 0, bytes);
    if constexpr (bytes <= 64) copyBelow<bytes>(block, from, static_cast<std::size_t>(length) * sizeof(T));
    else std::memcpy(block, from, static_cast<std::size_t>(length) * sizeof(T));
  }
}
template <class T, std::ptrdiff_t N> struct PaddedBlock {
  alignas(vectorBytes) T values[N];
  PaddedBlock(const T* from, std::ptrdiff_t length) { padBlock<N>(values, from, length); }
};

// Rows of a group at most. An operation that takes groups of any width (its operator() is a template of Bytes) meets
// rows of up to 16 elements in groups of 16: half of a wider one would be work for nothing, and dividers take twice as
// long for it.
template <int Bytes, class D, class Op, class... S>
ZORI_INLINE inline void shortGroups(Rows<D> dst, std::ptrdiff_t length, int rows, const Op& op, Rows<const S>... src)
{
  if (Bytes < vectorBytes && length == Bytes) {
    for (int y = 0; y < rows; ++y) storeGroup(dst[y], op(loadGroup<S, Bytes>(src[y])...));
    return;
  }
  const std::ptrdiff_t half = greatestPowerOfTwo(length);
  for (int y = 0; y < rows; ++y)
    storeShortGroup(dst[y], op(loadShortGroup<S, Bytes>(src[y], length, half)...), length, half);
}

// An operation that widens its source says `static constexpr int widensTo = sizeof(D)`: where vectors of 32 bytes are
// loaded, their samples come widened, which costs less there than taking a vector to pieces.
template <class Op, class = void> inline constexpr int widensTo = 1;
template <class Op> inline constexpr int widensTo<Op, std::void_t<decltype(Op::widensTo)>> = Op::widensTo;

template <int To, class T> ZORI_INLINE inline auto loadGroupWidened(const T* p)
{
#if ZORI_VECTOR_BYTES == 32
  if constexpr (To == 2 * sizeof(T)) {
    Group<WiderT<T>> x;
    for (int k = 0; k < x.parts; ++k) x.part[k] = loadHalfWidened<T>(p + k * x.lanes);
    return x;
  } else if constexpr (To == 4 * sizeof(T)) {
    Group<Zor32s> x;
    for (int k = 0; k < x.parts; ++k) x.part[k] = loadWidenedTo32<T>(p + k * x.lanes);
    return x;
  } else
#endif
    return loadGroup<T>(p);
}

// Sources of more bytes than the destination are asked for as well, but only so many bytes ahead.
inline constexpr std::ptrdiff_t sourceAhead = 1024;

// dst[i] = op(src[i]...) between widths: mapRow with an operation on groups. A row may be its own source where that
// is no narrower than the destination. The two groups in front of the loop overlap, and so do the two behind it: both
// are formed before one is stored.
template <class D, class Op, class... S>
[[gnu::noinline]] void groupKernel(Rows<D> dst, std::ptrdiff_t length, int rows, Passed<Op> given, Rows<const S>... src)
{
  const UpperHalvesCleared atTheEnd;
  Op op = given;
  constexpr std::ptrdiff_t size = Group<D>::size;
  constexpr bool hasHalves = vectorBytes == 32 && std::is_invocable_v<const Op&, const Group<S, 16>&...>;
  if constexpr (hasHalves)
    if (length <= 16) return shortGroups<16>(dst, length, rows, op, src...);
  if (length < size) return shortGroups<vectorBytes>(dst, length, rows, op, src...);
  constexpr bool sourceIsMore = ((sizeof(S) > sizeof(D)) && ...);
  const Writing writing = isLongOp<Op> ? Writing{} : writingOf(dst, length, rows, src...);
  const bool isNear = writing.ahead == 0 && !writing.streams;
  const auto alongRow = [&](D* to, const S*... from) ZORI_INLINE {
    const auto at = [&](std::ptrdiff_t i) ZORI_INLINE { return op(loadGroupWidened<widensTo<Op>>(from + i)...); };
    std::ptrdiff_t i = 0;
    if (length >= alignedFrom * size) {
      const std::ptrdiff_t head = elementsToAlignment(to);
      if (head != 0 && head % periodOf<Op> == 0) {
        const Group<D> first = at(0), second = at(head);
        storeGroup(to, first);
        storeGroup(to + head, second);
        i = head + size;
      }
    }
    if (isNear) {
      for (; i + 2 * size <= length; i += size) storeGroup(to + i, at(i));
    } else if (writing.streams && isAligned(to + i)) {
      for (; i + 2 * size <= length; i += size) streamGroup(to + i, at(i));
    } else {
      for (; i + 2 * size <= length; i += size) {
        fetchAhead(to + i, writing.ahead, sizeof(Group<D>));
        if constexpr (sourceIsMore) (fetchAhead(from + i, sourceAhead, sizeof(Group<S>)), ...);
        storeGroup(to + i, at(i));
      }
    }
    const std::ptrdiff_t lastAt = length - size;
    const Group<D> next = at(i);
    if constexpr (hasHalves) {
      constexpr std::ptrdiff_t half = size / 2; // so much at the end goes in half a group
      if (i < lastAt && lastAt - i <= half) {
        const Group<D, 16> last = op(loadGroup<S, 16>(from + length - half)...);
        storeGroup(to + i, next);
        storeGroup(to + length - half, last);
        return;
      }
    }
    if (i < lastAt) {
      const Group<D> last = at(lastAt);
      storeGroup(to + i, next);
      storeGroup(to + lastAt, last);
    } else {
      storeGroup(to + i, next);
    }
  };
  for (int y = 0; y < rows; ++y) alongRow(dst[y], src[y]...);
  if (writing.streams) streamFence();
}

template <class D, class Op, class... S>
inline void mapRowsOfGroups(Rows<D> dst, std::ptrdiff_t length, int rows, const Op& op, Rows<const S>... src)
{
  groupKernel<D, Op, S...>(dst, length, rows, op, src...);
}
template <class D, class Op, class... S>
inline void mapGroups(D* dst, std::ptrdiff_t length, const Op& op, const S*... src)
{
  groupKernel<D, Op, S...>({dst, 0}, length, 1, op, Rows<const S>{src, 0}...);
}

// ---- AC4: the fourth channel of the destination stays. ----

template <class T, int Bytes = vectorBytes> inline Vec<T, Bytes> colourMask()
{
  if constexpr (sizeof(T) == 1) return as<T>(splat<std::uint32_t, Bytes>(0x00ffffffu));
  else if constexpr (sizeof(T) == 2) return as<T>(splat<std::uint64_t, Bytes>(0x0000ffffffffffffull));
  else {
    alignas(vectorBytes) static constexpr std::uint32_t mask[8] = {~0u, ~0u, ~0u, 0, ~0u, ~0u, ~0u, 0};
    return loadAligned<T, Bytes>(mask);
  }
}

// Takes the destination as its first source: mapRow(dst, n, KeepFourth<Op>{op}, dst, src...), mapGroups likewise.
template <class Op> struct KeepFourth {
  static constexpr int period = 4;
  static constexpr bool isLong = isLongOp<Op>;
  static constexpr int widensTo = zori::widensTo<Op>;
  Op op;
  template <class D, class... S> Vec<D> operator()(Vec<D> old, S... src) const
  {
    return select(colourMask<D>(), op(src...), old);
  }
  template <class D, int Bytes, class... S, class = std::enable_if_t<std::is_invocable_v<const Op&, S...>>>
  ZORI_INLINE Group<D, Bytes> operator()(Group<D, Bytes> old, S... src) const
  {
    Group<D, Bytes> x = op(src...);
    const auto colours = colourMask<D, Bytes>();
    for (int k = 0; k < x.parts; ++k) x.part[k] = ((x.part[k] ^ old.part[k]) & colours) ^ old.part[k];
    return x;
  }
};
template <class Op> KeepFourth(Op) -> KeepFourth<Op>;

// ---- Blocks: an operation on several vectors at once, of widths and shapes of its own. Not in place. ----

// The first and the last half of a block of N elements, which overlap where a row is shorter.
template <class T, std::ptrdiff_t N> struct EndsOfBlock {
  alignas(vectorBytes) T values[N];
  EndsOfBlock(const T* from, std::ptrdiff_t length)
  {
    std::memcpy(values, from, N / 2 * sizeof(T));
    std::memcpy(values + N / 2, from + length - N / 2, N / 2 * sizeof(T));
  }
};

// op.block(src..., dst) works on exactly Op::blockLength elements. The last block overlaps the one before it.
template <class D, class Op, class... S>
[[gnu::noinline]] void blockKernel(D* dst, std::ptrdiff_t length, Passed<Op> given, const S*... src)
{
  const UpperHalvesCleared atTheEnd;
  Op op = given;
  constexpr std::ptrdiff_t block = Op::blockLength;
  if (length < block) {
    alignas(vectorBytes) D out[block];
    if constexpr (vectorBytes == 32 && block % 2 == 0) { // no slower than in two blocks of half the width
      constexpr std::ptrdiff_t half = block / 2;
      if (length >= half) {
        op.block(EndsOfBlock<S, block>(src, length).values..., out);
        std::memcpy(dst, out, half * sizeof(D));
        std::memcpy(dst + length - half, out + half, half * sizeof(D));
        return;
      }
    }
    op.block(PaddedBlock<S, block>(src, length).values..., out);
    std::memcpy(dst, out, static_cast<std::size_t>(length) * sizeof(D));
    return;
  }
  std::ptrdiff_t i = 0;
  for (; i + block <= length; i += block) op.block((src + i)..., dst + i);
  if (i < length) op.block((src + length - block)..., dst + length - block);
}

template <class D, class Op, class... S>
inline void mapBlocks(D* dst, std::ptrdiff_t length, const Op& op, const S*... src)
{
  blockKernel<D, Op, S...>(dst, length, op, src...);
}

} // namespace ZORI_WIDTH
} // namespace zori
