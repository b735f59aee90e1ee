// Sums over windows of integers: down the columns, where they slide from row to row, and along a row of columns. Every
// sum is exact, or wraps in its type, whatever the order. A pixel costs the same for every window.
//
// Pixels of CH interleaved channels are runs of elements; the same channel of the next pixel is CH elements on.
#pragma once

#include "frame/compiler.h"
#include "rowkernels/copy.h"
#include "rowkernels/drivers.h"

namespace zori {
namespace box {

// ---- Elements of a narrower type as lanes of Sum ----

template <class Sum, class Col> inline Vec<Sum> widened(Vec<Col> x)
{
  if constexpr (sizeof(Sum) == sizeof(Col)) return as<Sum>(x);
  else return widened<Sum>(widenLow(x));
}
template <class Sum, class Col> inline Vec<Sum> loadAs(const Col* p)
{
  if constexpr (sizeof(Sum) == sizeof(Col)) return widened<Sum>(load<Col>(p));
  else if constexpr (sizeof(Sum) == 2 * sizeof(Col)) return widened<Sum>(loadLow8<Col>(p));
  else return widened<Sum>(loadLow4<Col>(p));
}

// ---- Down the columns ----

// a - b of unsigned or signed samples, as lanes of twice the width: low and high half.
template <class T> struct WidenedDifference {
  Vec<int16_t> low, high; // 8 bits
  WidenedDifference(Vec<T> a, Vec<T> b)
    : low(as<int16_t>(widenLow(a) - widenLow(b))), high(as<int16_t>(widenHigh(a) - widenHigh(b)))
  {}
};
// 16 bits: products of the pairs (a, b) with (1, -1)
template <class T> struct WordDifference {
  Vec<int32_t> low, high;
  WordDifference(Vec<T> a, Vec<T> b)
  {
    const Vec<int16_t> signs = as<int16_t>(splat<uint32_t>(0xffff0001u));
    const Vec<T> flip = isSigned<T> ? zero<T>() : topBits<T>();
    const Vec<int16_t> x = as<int16_t>(a ^ flip), y = as<int16_t>(b ^ flip);
    low = mulAddPairs(interleaveLow(x, y), signs);
    high = mulAddPairs(interleaveHigh(x, y), signs);
  }
};
template <> struct WidenedDifference<uint16_t> : WordDifference<uint16_t> {
  using WordDifference::WordDifference;
};
template <> struct WidenedDifference<int16_t> : WordDifference<int16_t> {
  using WordDifference::WordDifference;
};

// to[i] = col[i] + x[i]
template <class Col, class D> inline void addTo(Col* to, const Col* col, Vec<D> x)
{
  if constexpr (sizeof(Col) == sizeof(D)) {
    store(to, load<Col>(col) + as<Col>(x));
  } else {
    addTo(to, col, widenLow(x));
    addTo(to + Vec<Col>::size, col + Vec<Col>::size, widenHigh(x));
  }
}
template <class Col, class D> inline void addTo(Col* col, Vec<D> x) { addTo(col, col, x); }

// op(col, i) for blocks of Vec<T>::size elements, the last one from copies of the rows that go on with zeros.
template <class Col, class T, class Op, class... Row>
[[gnu::always_inline]] inline void eachBlock(Col* col, std::ptrdiff_t n, Op op, const T* first, const Row*... rows)
{
  constexpr std::ptrdiff_t block = Vec<T>::size;
  std::ptrdiff_t i = 0;
  for (; i + block <= n; i += block) op(col + i, load<T>(first + i), load<T>(rows + i)...);
  if (i < n) {
    const std::size_t bytes = static_cast<std::size_t>(n - i) * sizeof(T);
    op(col + i, loadPart<T>(first + i, bytes), loadPart<T>(rows + i, bytes)...);
  }
}

// to[i] = col[i] + entering[i] - leaving[i]. Both rows of columns have room for whole blocks; they do not overlap, so
// that the last block may be formed twice.
template <class Col, class T>
ZORI_ONE_COPY void slideColumns(Col* to, const Col* col, const T* entering, const T* leaving, std::ptrdiff_t n)
{
  constexpr std::ptrdiff_t block = Vec<T>::size, half = block / 2;
  const auto slide = [=](std::ptrdiff_t i, Vec<T> in, Vec<T> out) {
    const WidenedDifference<T> d(in, out);
    addTo(to + i, col + i, d.low);
    addTo(to + i + half, col + i + half, d.high);
  };
  if (n < block) {
    const std::size_t bytes = static_cast<std::size_t>(n) * sizeof(T);
    return slide(0, loadPart<T>(entering, bytes), loadPart<T>(leaving, bytes));
  }
  std::ptrdiff_t i = 0;
  for (; i + block <= n; i += block) slide(i, load<T>(entering + i), load<T>(leaving + i));
  if (i < n) slide(n - block, load<T>(entering + n - block), load<T>(leaving + n - block));
}

// col[i] += the samples of so many rows; signed ones enter with their sign bit flipped, so that all are positive.
template <class Col, class T> ZORI_ONE_COPY void addRows(Col* col, Rows<const T> source, int rows, std::ptrdiff_t n)
{
  for (int y = 0; y < rows; ++y)
    eachBlock(
      col, n,
      [](Col* c, Vec<T> x) {
        using U = std::make_unsigned_t<T>;
        if constexpr (isSigned<T>) x = x ^ topBits<T>();
        addTo(c, widenLow(as<U>(x)));
        addTo(c + Vec<T>::size / 2, widenHigh(as<U>(x)));
      },
      source[y]);
}

// ---- Along the row ----

// Columns in a buffer of our own: a zero pixel in front of them, room for whole blocks behind.
template <class SumType, class Col> struct Buffered {
  using Sum = SumType;
  static constexpr int margin = 16; // elements, on both sides
  const Col* p;

  Vec<Sum> at(std::ptrdiff_t i) const { return loadAs<Sum>(p + i); }
  Vec<Sum> at(std::ptrdiff_t i, std::ptrdiff_t) const { return at(i); }
  template <int CH> Vec<Sum> previous(std::ptrdiff_t i) const { return at(i - CH); }
  template <int CH> Vec<Sum> previous(std::ptrdiff_t i, std::ptrdiff_t) const { return at(i - CH); }
  // The window one pixel in front of the first.
  template <int CH> const Col* firstWindow() const { return p - CH; }
  int firstWindowPixels(int mask) const { return mask; }
};

// A row of the caller, of which no element outside the windows may be read: in front of it is a pixel of zeros that is
// not in memory.
template <class SumType, class Col> struct Exact {
  using Sum = SumType;
  static constexpr std::ptrdiff_t lanes = Vec<Sum>::size;
  const Col* p;

  Vec<Sum> at(std::ptrdiff_t i) const { return loadAs<Sum>(p + i); }
  Vec<Sum> at(std::ptrdiff_t i, std::ptrdiff_t count) const
  {
    return count >= lanes ? at(i) : widened<Sum>(loadPart<Col>(p + i, static_cast<std::size_t>(count) * sizeof(Col)));
  }
  template <int CH> Vec<Sum> previous(std::ptrdiff_t i) const
  {
    return i ? at(i - CH) : bytesUp<CH * sizeof(Sum)>(at(0));
  }
  template <int CH> Vec<Sum> previous(std::ptrdiff_t i, std::ptrdiff_t count) const
  {
    return i ? at(i - CH, count) : bytesUp<CH * sizeof(Sum)>(at(0, count));
  }
  template <int CH> const Col* firstWindow() const { return p; }
  int firstWindowPixels(int mask) const { return mask - 1; }
};

// Lane j of the result: lanes j, j - CH, j - 2 * CH... added.
template <int CH, class T> inline Vec<T> prefixSums(Vec<T> x)
{
  constexpr int lanes = Vec<T>::size, bytes = CH * sizeof(T);
  if constexpr (CH < lanes) x += bytesUp<bytes>(x);
  if constexpr (2 * CH < lanes) x += bytesUp<2 * bytes>(x);
  if constexpr (4 * CH < lanes) x += bytesUp<4 * bytes>(x);
  return x;
}

// The last CH lanes over and over: what comes in front of each lane of the next vector.
template <int CH, class T> inline Vec<T> lastPixel(Vec<T> x)
{
  const Vec<int32_t> v = as<int32_t>(x);
  if constexpr (sizeof(T) == 4) {
    if constexpr (CH == 1) return as<T>(shuffle<3, 3, 3, 3>(v));
    else if constexpr (CH == 3) return as<T>(shuffle<1, 3, 2, 1>(v));
    else return x;
  } else {
    if constexpr (CH == 1) return as<T>(shuffle<3, 3, 3, 3>(as<int32_t>(interleaveHigh(x, x))));
    else if constexpr (CH == 4) return as<T>(shuffle<3, 2, 3, 2>(v));
    else {
      const Vec<T> pixel = bytesDown<10>(x);
      return pixel | bytesUp<6>(pixel) | bytesUp<12>(pixel);
    }
  }
}

// The sum of `pixels` pixels from p on, in all lanes.
template <int CH, class Sum, class Col> inline Vec<Sum> sumPixels(const Col* p, int pixels)
{
  constexpr int lanes = Vec<Sum>::size, turn = lanes % CH ? CH : 1; // vectors that hold whole pixels
  const std::ptrdiff_t n = static_cast<std::ptrdiff_t>(pixels) * CH;
  Vec<Sum> sums[turn];
  for (auto& s : sums) s = zero<Sum>();
  std::ptrdiff_t i = 0;
  for (; i + turn * lanes <= n; i += turn * lanes)
    for (int k = 0; k < turn; ++k) sums[k] += loadAs<Sum>(p + i + k * lanes);
  Sum values[turn * lanes], pixel[CH] = {}, out[lanes];
  for (int k = 0; k < turn; ++k) store(values + k * lanes, sums[k]);
  for (int k = 0; k < turn * lanes; ++k) pixel[k % CH] = static_cast<Sum>(pixel[k % CH] + values[k]);
  for (int k = 0; i < n; ++i, k = k + 1 == CH ? 0 : k + 1) pixel[k] = static_cast<Sum>(pixel[k] + get<Col>(p + i));
  for (int k = 0; k < lanes; ++k) out[k] = pixel[k % CH];
  return load<Sum>(out);
}

// How a row of sums becomes a row of results: finish(sums, out) turns Finish::vectors vectors of Finish::Sum into whole
// vectors of Finish::Out. sums(i, count, s) gives the sums of a block from element i on of which `count` are wanted.
// KeepAlpha leaves every fourth element of the destination as it was.
template <bool KeepAlpha, class Finish, class Sums>
[[gnu::always_inline]] inline void finishRow(typename Finish::Out* dst, std::ptrdiff_t n, const Finish& finish,
                                             Sums sums)
{
  using Sum = typename Finish::Sum;
  using Out = typename Finish::Out;
  constexpr std::ptrdiff_t block = Finish::vectors * Vec<Sum>::size, lanes = Vec<Out>::size;
  const auto result = [&](std::ptrdiff_t i, std::ptrdiff_t count, Out * old, Out * to) __attribute__((always_inline))
  {
    Vec<Sum> s[Finish::vectors];
    Vec<Out> out[block / lanes];
    sums(i, count, s);
    finish(s, out);
    for (int k = 0; k < block / lanes; ++k)
      store(to + k * lanes, KeepAlpha ? select(colourMask<Out>(), out[k], load<Out>(old + k * lanes)) : out[k]);
  };
  std::ptrdiff_t i = 0;
  for (; i + block <= n; i += block) result(i, block, dst + i, dst + i);
  if (i < n) {
    alignas(16) Out last[block] = {};
    const auto copyPart = [](Out* to, const Out* from, std::size_t count) {
      if constexpr (sizeof last <= 32) copyBelow<sizeof last>(to, from, count);
      else std::memcpy(to, from, count);
    };
    const std::size_t bytes = static_cast<std::size_t>(n - i) * sizeof(Out);
    if (KeepAlpha) copyPart(last, dst + i, bytes);
    result(i, n - i, last, last);
    copyPart(dst + i, last, bytes);
  }
}

// Sums of the windows of `mask` pixels: each pixel's from its neighbour's.
template <int CH, bool KeepAlpha, class Source, class Finish>
ZORI_ONE_COPY void runningSums(Source in, typename Finish::Out* dst, std::ptrdiff_t n, int mask, const Finish& given)
{
  using Sum = typename Source::Sum;
  constexpr int lanes = Vec<Sum>::size;
  const Finish finish = given;
  const std::ptrdiff_t span = static_cast<std::ptrdiff_t>(mask - 1) * CH;
  Vec<Sum> before = sumPixels<CH, Sum>(in.template firstWindow<CH>(), in.firstWindowPixels(mask));
  const auto next = [&before](Vec<Sum> entering, Vec<Sum> leaving) __attribute__((always_inline))
  {
    const Vec<Sum> rise = prefixSums<CH>(entering - leaving), sum = rise + before;
    before = lanes % CH ? lastPixel<CH>(sum) : before + lastPixel<CH>(rise); // the shorter chain where there is one
    return sum;
  };
  finishRow<KeepAlpha>(
    dst, n, finish, [&](std::ptrdiff_t i, std::ptrdiff_t count, Vec<Sum> * s) __attribute__((always_inline)) {
      for (int k = 0; k < Finish::vectors; ++k, i += lanes, count -= lanes) {
        if (count >= lanes) s[k] = next(in.at(i + span), in.template previous<CH>(i));
        else s[k] = count > 0 ? next(in.at(i + span, count), in.template previous<CH>(i, count)) : zero<Sum>();
      }
    });
}

// The same for a small mask: every window anew.
template <int CH, int Mask, bool KeepAlpha, class Source, class Finish>
ZORI_ONE_COPY void directSums(Source in, typename Finish::Out* dst, std::ptrdiff_t n, const Finish& given)
{
  using Sum = typename Source::Sum;
  const Finish finish = given;
  finishRow<KeepAlpha>(
    dst, n, finish, [&](std::ptrdiff_t i, std::ptrdiff_t, Vec<Sum> * s) __attribute__((always_inline)) {
      for (int k = 0; k < Finish::vectors; ++k, i += Vec<Sum>::size) {
        s[k] = in.at(i);
        for (int j = 1; j < Mask; ++j) s[k] += in.at(i + j * CH);
      }
    });
}

} // namespace box
} // namespace zori
