// Row drivers: how an operation on vectors is carried along a row. All kernels of a shape share one driver, so that
// a family writes only what it does to a vector.
//
// An operation is a small function object with one form, Vec in and Vec out. A driver covers a row of any length at any
// address with it and never reads or writes outside the row:
//
//   - the first and the last vector of the row are formed before anything is stored, and stored last; between them run
//     whole vectors from the first aligned address of the destination. The blocks overlap, no element loop is left,
//     and a row may be its own source;
//   - a row shorter than a vector goes through a partly filled one.
//
// Drivers are not inlined: one kernel an operation and type, shared by all layouts that call it.
#pragma once

#include "simd.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

namespace zori {

// ---- Parts of a vector: 1 to 15 bytes, the other bytes zero on load and untouched on store. ----

inline std::uint64_t loadBytesBelow8(const char* p, std::size_t bytes)
{
  if (bytes >= 4)
    return get<std::uint32_t>(p) | static_cast<std::uint64_t>(get<std::uint32_t>(p + bytes - 4)) << (8 * (bytes - 4));
  if (bytes >= 2)
    return get<std::uint16_t>(p) | static_cast<std::uint32_t>(get<std::uint16_t>(p + bytes - 2)) << (8 * (bytes - 2));
  return bytes ? static_cast<unsigned char>(*p) : 0;
}

inline void storeBytesBelow8(char* p, std::uint64_t x, std::size_t bytes)
{
  if (bytes >= 4) {
    const auto last = static_cast<std::uint32_t>(x >> (8 * (bytes - 4)));
    put(p, static_cast<std::uint32_t>(x));
    put(p + bytes - 4, last);
  } else if (bytes >= 2) {
    const auto last = static_cast<std::uint16_t>(x >> (8 * (bytes - 2)));
    put(p, static_cast<std::uint16_t>(x));
    put(p + bytes - 2, last);
  } else if (bytes) {
    *p = static_cast<char>(x);
  }
}

template <class T> inline Vec<T> loadPart(const void* from, std::size_t bytes)
{
  const char* p = static_cast<const char*>(from);
  std::uint64_t half[2] = {0, 0};
  if (bytes >= 8) {
    half[0] = get<std::uint64_t>(p);
    half[1] = loadBytesBelow8(p + 8, bytes - 8);
  } else {
    half[0] = loadBytesBelow8(p, bytes);
  }
  return load<T>(half);
}

template <class T> inline void storePart(void* to, Vec<T> x, std::size_t bytes)
{
  char* p = static_cast<char*>(to);
  std::uint64_t half[2];
  store(half, x);
  if (bytes >= 8) {
    put(p, half[0]);
    storeBytesBelow8(p + 8, half[1], bytes - 8);
  } else {
    storeBytesBelow8(p, half[0], bytes);
  }
}

// ---- Element by element: dst[i] = op(src[i]...), every type of one width. ----

// An operation that counts channels says `static constexpr int period = 4`: vectors then start at whole pixels.
template <class Op, class = void> inline constexpr int periodOf = 1;
template <class Op> inline constexpr int periodOf<Op, std::void_t<decltype(Op::period)>> = Op::period;

// An operation of many instructions says `static constexpr bool isLong = true`: its loops are not unrolled.
template <class Op, class = void> inline constexpr bool isLongOp = false;
template <class Op> inline constexpr bool isLongOp<Op, std::void_t<decltype(Op::isLong)>> = Op::isLong;

template <class T> inline std::ptrdiff_t elementsToAlignment(const T* p)
{
  const auto address = reinterpret_cast<std::uintptr_t>(p);
  return address % sizeof(T) ? 0 : static_cast<std::ptrdiff_t>((-address & 15) / sizeof(T));
}

template <class D, class Op, class... S>
[[gnu::noinline]] void mapRow(D* dst, std::ptrdiff_t length, Op op, const S*... src)
{
  constexpr std::ptrdiff_t lanes = Vec<D>::size;
  static_assert(((sizeof(S) == sizeof(D)) && ...));
  if (length < lanes) {
    const std::size_t bytes = static_cast<std::size_t>(length) * sizeof(D);
    storePart<D>(dst, op(loadPart<S>(src, bytes)...), bytes);
    return;
  }
  const Vec<D> first = op(load<S>(src)...), last = op(load<S>(src + length - lanes)...);
  std::ptrdiff_t i = periodOf<Op> == 1 ? elementsToAlignment(dst) : 0;
  for (; !isLongOp<Op> && i + 4 * lanes <= length; i += 4 * lanes) {
    const Vec<D> a = op(load<S>(src + i)...), b = op(load<S>(src + i + lanes)...);
    const Vec<D> c = op(load<S>(src + i + 2 * lanes)...), d = op(load<S>(src + i + 3 * lanes)...);
    store(dst + i, a);
    store(dst + i + lanes, b);
    store(dst + i + 2 * lanes, c);
    store(dst + i + 3 * lanes, d);
  }
  for (; i + lanes <= length; i += lanes) store(dst + i, op(load<S>(src + i)...));
  store(dst, first);
  store(dst + length - lanes, last);
}

// ---- The same with a constant that differs from channel to channel. ----

// A constant of 1 to 4 channels repeated, so that a vector of it can be had for any phase.
template <class T> struct Pattern {
  int period;
  T values[Vec<T>::size + 4];

  Pattern(const T* constant, int channels) : period(channels)
  {
    for (int i = 0; i < Vec<T>::size + 4; ++i) values[i] = get<T>(constant + i % channels);
  }
  explicit Pattern(T constant) : Pattern(&constant, 1) {}
  // As the element that stands i elements behind the start of a row.
  Vec<T> at(std::ptrdiff_t i) const { return load<T>(values + i % period); }
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
};

// dst[i] = op(src[i]..., constant[i % channels]), the constant a Pattern or Patterns.
template <class Constant, class D, class Op, class... S>
[[gnu::noinline]] void mapRowWith(const Constant& constant, D* dst, std::ptrdiff_t length, Op op, const S*... src)
{
  constexpr std::ptrdiff_t lanes = Vec<D>::size;
  static_assert(((sizeof(S) == sizeof(D)) && ...));
  if (length < lanes) {
    const std::size_t bytes = static_cast<std::size_t>(length) * sizeof(D);
    storePart<D>(dst, op(loadPart<S>(src, bytes)..., constant.at(0)), bytes);
    return;
  }
  const Vec<D> last = op(load<S>(src + length - lanes)..., constant.at(length - lanes));
  std::ptrdiff_t i = 0;
  // three vectors hold whole pixels of any channel count
  const auto c0 = constant.at(0), c1 = constant.at(lanes), c2 = constant.at(2 * lanes);
  for (; i + 3 * lanes <= length; i += 3 * lanes) {
    const Vec<D> a = op(load<S>(src + i)..., c0), b = op(load<S>(src + i + lanes)..., c1);
    const Vec<D> c = op(load<S>(src + i + 2 * lanes)..., c2);
    store(dst + i, a);
    store(dst + i + lanes, b);
    store(dst + i + 2 * lanes, c);
  }
  for (; i + lanes <= length; i += lanes) store(dst + i, op(load<S>(src + i)..., constant.at(i)));
  store(dst + length - lanes, last);
}

// ---- Groups: 16 elements in as many vectors as they take, so that operands of different widths meet. ----

template <class T> struct Group {
  static constexpr int size = 16, parts = size / Vec<T>::size;
  Vec<T> part[parts];
};

template <class T> inline Group<T> loadGroup(const T* p)
{
  Group<T> x;
  for (int k = 0; k < x.parts; ++k) x.part[k] = load<T>(p + k * Vec<T>::size);
  return x;
}

template <class T> inline void storeGroup(T* p, const Group<T>& x)
{
  for (int k = 0; k < x.parts; ++k) store(p + k * Vec<T>::size, x.part[k]);
}

// Long rows are fetched well ahead of their use: the processor alone does not keep up with two streams of different
// speed. Short ones are not, so that a narrow region does not drag in what lies beside it.
template <class T> inline std::ptrdiff_t fetchDistance(std::ptrdiff_t length)
{
  return length * static_cast<std::ptrdiff_t>(sizeof(T)) >= 4096 ? 2048 : 0;
}

// The lines that two groups take, so many bytes behind p.
template <class T> inline void fetchGroups(const T* p, std::ptrdiff_t distance)
{
  const char* from = reinterpret_cast<const char*>(p) + distance;
  for (std::size_t line = 0; line < 2 * sizeof(Group<T>); line += 64) prefetch(from + line);
}

// The first elements of a row in a block of N, the rest zero.
template <class T, std::ptrdiff_t N> struct PaddedBlock {
  alignas(16) T values[N];
  PaddedBlock(const T* from, std::ptrdiff_t length) : values{}
  {
    std::memcpy(values, from, static_cast<std::size_t>(length) * sizeof(T));
  }
};

// dst[i] = op(src[i]...) between widths: mapRow with an operation on groups. A row may be its own source where that
// is no narrower than the destination.
template <class D, class Op, class... S>
[[gnu::noinline]] void mapGroups(D* dst, std::ptrdiff_t length, Op op, const S*... src)
{
  constexpr std::ptrdiff_t size = Group<D>::size;
  if (length < size) {
    alignas(16) D out[size];
    storeGroup<D>(out, op(loadGroup<S>(PaddedBlock<S, size>(src, length).values)...));
    std::memcpy(dst, out, static_cast<std::size_t>(length) * sizeof(D));
    return;
  }
  const std::ptrdiff_t head = elementsToAlignment(dst);
  std::ptrdiff_t i = head % periodOf<Op> == 0 ? head : 0;
  const bool hasHead = i != 0, hasTail = (length - i) % size != 0;
  Group<D> first, last;
  if (hasHead) first = op(loadGroup<S>(src)...);
  if (hasTail) last = op(loadGroup<S>(src + length - size)...);
  const std::ptrdiff_t ahead = std::max({fetchDistance<D>(length), fetchDistance<S>(length)...}); // of the widest
  for (; i + 2 * size <= length; i += 2 * size) {
    fetchGroups(dst + i, ahead);
    (fetchGroups(src + i, ahead), ...);
    storeGroup<D>(dst + i, op(loadGroup<S>(src + i)...));
    storeGroup<D>(dst + i + size, op(loadGroup<S>(src + i + size)...));
  }
  if (i + size <= length) storeGroup<D>(dst + i, op(loadGroup<S>(src + i)...));
  if (hasHead) storeGroup<D>(dst, first);
  if (hasTail) storeGroup<D>(dst + length - size, last);
}

// ---- AC4: the fourth channel of the destination stays. ----

template <class T> inline Vec<T> colourMask()
{
  if constexpr (sizeof(T) == 1) return as<T>(splat<std::uint32_t>(0x00ffffffu));
  else if constexpr (sizeof(T) == 2) return as<T>(splat<std::uint64_t>(0x0000ffffffffffffull));
  else {
    alignas(16) static constexpr std::uint32_t mask[4] = {~0u, ~0u, ~0u, 0};
    return load<T>(mask);
  }
}

// Takes the destination as its first source: mapRow(dst, n, KeepFourth<Op>{op}, dst, src...), mapGroups likewise.
template <class Op> struct KeepFourth {
  static constexpr int period = 4;
  static constexpr bool isLong = isLongOp<Op>;
  Op op;
  template <class D, class... S> Vec<D> operator()(Vec<D> old, S... src) const
  {
    return select(colourMask<D>(), op(src...), old);
  }
  template <class D, class... S> Group<D> operator()(Group<D> old, S... src) const
  {
    Group<D> x = op(src...);
    for (int k = 0; k < x.parts; ++k) x.part[k] = ((x.part[k] ^ old.part[k]) & colourMask<D>()) ^ old.part[k];
    return x;
  }
};
template <class Op> KeepFourth(Op) -> KeepFourth<Op>;

// ---- Blocks: an operation on several vectors at once, of widths and shapes of its own. Not in place. ----

// op.block(src..., dst) works on exactly Op::blockLength elements. The last block overlaps the one before it.
template <class D, class Op, class... S>
[[gnu::noinline]] void mapBlocks(D* dst, std::ptrdiff_t length, Op op, const S*... src)
{
  constexpr std::ptrdiff_t block = Op::blockLength;
  if (length < block) {
    alignas(16) D out[block];
    op.block(PaddedBlock<S, block>(src, length).values..., out);
    std::memcpy(dst, out, static_cast<std::size_t>(length) * sizeof(D));
    return;
  }
  std::ptrdiff_t i = 0;
  for (; i + block <= length; i += block) op.block((src + i)..., dst + i);
  if (i < length) op.block((src + length - block)..., dst + length - block);
}

} // namespace zori
