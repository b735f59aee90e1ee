// Filters with a kernel of their own, 3x3 or 5x5: the two stages that they share, some rows at a time.
//
//   column stage   reduces the source rows above, at and below an output row to rows of sums, margin included
//   row stage      reduces neighbouring sums to the kernel's value and finishes it
//
// A filter is a Kernel that says what both do to one block of samples. Sums are exact in integers twice as wide as the
// samples, or single precision. Pixels of any channel count are runs of samples whose neighbours lie `channels` apart.
// Rows shorter than a block of 16-byte vectors V take those at any width: half a wider one would be work for nothing.
#pragma once

#include "frame/arena.h"
#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/parallel.h"
#include "rowkernels/copy.h"
#include "rowkernels/drivers.h"

#include <algorithm>
#include <climits>

namespace zori {
inline namespace ZORI_WIDTH {
namespace fixed {

// ---- Blocks: as many samples as two vectors of sums hold ----

template <class T> struct SumOf {
  using Type = std::make_signed_t<WiderT<T>>;
};
template <> struct SumOf<float> {
  using Type = float;
};
template <class T> using Sum = typename SumOf<T>::Type;

template <class A, int V = vectorBytes> struct Pair {
  static constexpr int size = 2 * Vec<A, V>::size;
  Vec<A, V> low, high;
};

template <class A, int V> inline Pair<A, V> operator+(Pair<A, V> a, Pair<A, V> b)
{
  return {a.low + b.low, a.high + b.high};
}
template <class A, int V> inline Pair<A, V> operator-(Pair<A, V> a, Pair<A, V> b)
{
  return {a.low - b.low, a.high - b.high};
}
template <int V> inline Pair<float, V> operator*(Pair<float, V> x, float factor)
{
  return {x.low * splat<float, V>(factor), x.high * splat<float, V>(factor)};
}

// Where a block lies: its halves `apart` elements apart, which is half a block but in a row shorter than one, whose
// first and last half overlap.
template <class T, int V = vectorBytes> struct Halves {
  T* p;
  std::ptrdiff_t apart;
  Halves operator+(std::ptrdiff_t n) const { return {p + n, apart}; }
};

// The samples of half a block and of a block as sums.
template <class A, int V, class T> inline Vec<A, V> loadHalf(const T* p)
{
  if constexpr (sizeof(T) == sizeof(A)) return load<A, V>(p);
  else if constexpr (V == vectorBytes) return as<A>(loadHalfWidened<T>(p));
  else return as<A>(widenLow(loadLow8<T>(p)));
}
template <class A, class T, int V> inline Pair<A, V> loadPair(Halves<const T, V> h)
{
  if constexpr (V == 16 && sizeof(T) < sizeof(A)) { // blocks are whole there
    const auto x = load<T, V>(h.p);
    return {as<A>(widenLow(x)), as<A>(widenHigh(x))};
  } else return {loadHalf<A, V>(h.p), loadHalf<A, V>(h.p + h.apart)};
}
template <class A, int V> inline void storePair(Halves<A, V> h, Pair<A, V> x)
{
  store(h.p, x.low);
  store(h.p + h.apart, x.high);
}

// C * x for a small constant, in shifts and sums where the processor has no product.
template <int C, class A, int V> inline Vec<A, V> times(Vec<A, V> x)
{
  if constexpr (C == 1) return x;
  else if constexpr (C == 2) return x + x;
  else if constexpr (!isInt<A>) return x * splat<A, V>(static_cast<A>(C));
  else if constexpr ((C & (C - 1)) == 0) return shiftLeft<__builtin_ctz(C)>(x);
  else if constexpr (sizeof(A) == 2) return mulLow(x, loadedOnce(splat<A, V>(C))); // one product, not shifts and sums
  else if constexpr ((C & (C + 1)) == 0) return times<C + 1>(x) - x;
  else if constexpr (C % 2 == 1) return times<C - 1>(x) + x;
  else return times<(C & -C)>(times<C / (C & -C)>(x));
}
template <int C, class A, int V> inline Pair<A, V> times(Pair<A, V> x) { return {times<C>(x.low), times<C>(x.high)}; }

template <class A, int V> inline Vec<A, V> negated(Vec<A, V> x) { return zero<A, V>() - x; }
template <class A, int V> inline Pair<A, V> negated(Pair<A, V> x) { return {negated(x.low), negated(x.high)}; }

// V * a + W * b for |V| == |W|, of vectors or pairs.
template <int V, int W, class X> inline X weighted(X a, X b)
{
  static_assert(V == W || V == -W);
  if constexpr (V == W && V > 0) return times<V>(a + b);
  else if constexpr (V == W) return negated(times<-V>(a + b));
  else if constexpr (W > 0) return times<W>(b - a);
  else return times<V>(a - b);
}

// sum + C * x
template <int C, class X> inline X addTimes(X sum, X x)
{
  if constexpr (C > 0) return sum + times<C>(x);
  else if constexpr (C < 0) return sum - times<-C>(x);
  else return sum;
}

// A vector of weights that is symmetric or antisymmetric: the outer pair first, the middle last. at(k) is what weight k
// multiplies, a vector or a pair.
template <int... W> struct Weights;

template <int A0, int A1, int A2> struct Weights<A0, A1, A2> {
  static constexpr int size = 3;
  template <class At> static auto apply(At at) { return addTimes<A1>(weighted<A0, A2>(at(0), at(2)), at(1)); }
};

template <int A0, int A1, int A2, int A3, int A4> struct Weights<A0, A1, A2, A3, A4> {
  static constexpr int size = 5;
  template <class At> static auto apply(At at)
  {
    auto sum = weighted<A0, A4>(at(0), at(4));
    if constexpr (A1 != 0) sum = sum + weighted<A1, A3>(at(1), at(3));
    return addTimes<A2>(sum, at(2));
  }
};

// ---- Results ----

template <class D, class A, int V = vectorBytes> struct Block {
  static constexpr int vectors = 2 * Vec<A, V>::size / Vec<D, V>::size;
  Vec<D, V> v[vectors];
};

// Kept where it fits, else saturated to the type.
template <class D, class A, int V> inline Block<D, A, V> narrowed(Pair<A, V> x)
{
  if constexpr (sizeof(D) == sizeof(A)) return {{as<D>(x.low), as<D>(x.high)}};
  else return {{narrowSat<D>(x.low, x.high)}};
}

// (x * m) >> 32 for unsigned x.
template <int V> inline Vec<std::int32_t, V> mulShift32(Vec<std::int32_t, V> x, std::uint32_t m)
{
  const Vec<std::uint32_t, V> factor = splat<std::uint32_t, V>(m), u = as<std::uint32_t>(x);
  const Vec<std::uint64_t, V> even = mulEven(u, factor),
                              odd = mulEven(as<std::uint32_t>(shiftRight<32>(as<std::uint64_t>(u))), factor);
  return as<std::int32_t>(shiftRight<32>(even) | without(odd, splat<std::uint64_t, V>(0xffffffffu)));
}
template <int V> inline Pair<std::int32_t, V> mulShift32(Pair<std::int32_t, V> x, std::uint32_t m)
{
  return {mulShift32(x.low, m), mulShift32(x.high, m)};
}
template <class A, int V> inline Pair<A, V> operator+(Pair<A, V> x, int c)
{
  return {x.low + splat<A, V>(static_cast<A>(c)), x.high + splat<A, V>(static_cast<A>(c))};
}
template <class A, int V> inline Pair<A, V> operator-(Pair<A, V> x, int c)
{
  return {x.low - splat<A, V>(static_cast<A>(c)), x.high - splat<A, V>(static_cast<A>(c))};
}

// x / 2^N to nearest, ties to even.
template <int N, class A, int V> inline Vec<A, V> halfEven(Vec<A, V> x)
{
  const Vec<A, V> odd = shiftRight<N>(x) & splat<A, V>(1);
  return shiftRight<N>(x + splat<A, V>((1 << (N - 1)) - 1) + odd);
}
template <int N, class A, int V> inline Pair<A, V> halfEven(Pair<A, V> x)
{
  return {halfEven<N>(x.low), halfEven<N>(x.high)};
}

// ---- Kernels ----

// The outer product of two weight vectors. Finish::apply(sum, centre) turns the sums of a block into its results;
// centre is where the source samples of the block lie.
template <class S_, class D_, class Vertical, class Horizontal, class Finish> struct Separable {
  using S = S_;
  using D = D_;
  using A = Sum<S>;
  static constexpr int size = Vertical::size, planes = 1;
  static_assert(Horizontal::size == size);

  template <int V> static void columns(const S* const* rows, std::ptrdiff_t i, Halves<A, V> sums, std::ptrdiff_t)
  {
    storePair(sums, Vertical::apply([=](int k) { return loadPair<A>(Halves<const S, V>{rows[k] + i, sums.apart}); }));
  }
  template <int Channels, int V>
  static Block<D, A, V> row(Halves<const A, V> sums, std::ptrdiff_t, Halves<const S, V> centre)
  {
    const Pair<A, V> sum = Horizontal::apply([=](int k) { return loadPair<A>(sums + k * Channels); });
    return Finish::template apply<D>(sum, centre);
  }
};

// A 5x5 kernel that is the same upside down and left to right but no product: three weight vectors, one for the columns
// two away from the pixel, one for those beside it, one for its own. Each gives a row of sums of its own.
template <class S_, class D_, class Outer, class Inner, class Own, class Finish> struct MirroredKernel5x5 {
  using S = S_;
  using D = D_;
  using A = Sum<S>;
  static constexpr int size = 5, planes = 3;

  template <int V> static void columns(const S* const* rows, std::ptrdiff_t i, Halves<A, V> sums, std::ptrdiff_t plane)
  {
    for (int h = 0; h < 2; ++h) { // pairs of five rows are more than the registers hold
      const std::ptrdiff_t k = h * sums.apart;
      const auto at = [=](int row) { return loadHalf<A, V>(rows[row] + i + k); };
      const Vec<A, V> samples[5] = {at(0), at(1), at(2), at(3), at(4)};
      const auto sample = [&](int row) { return samples[row]; };
      const Vec<A, V> outer = Outer::apply(sample), inner = Inner::apply(sample), own = Own::apply(sample);
      store(sums.p + k, outer);
      store(sums.p + plane + k, inner);
      store(sums.p + 2 * plane + k, own);
    }
  }
  template <int Channels, int V>
  static Block<D, A, V> row(Halves<const A, V> sums, std::ptrdiff_t plane, Halves<const S, V>)
  {
    const Pair<A, V> outer = loadPair<A>(sums) + loadPair<A>(sums + 4 * Channels);
    const Pair<A, V> inner = loadPair<A>(sums + plane + Channels) + loadPair<A>(sums + plane + 3 * Channels);
    return Finish::template apply<D>(outer, inner, loadPair<A>(sums + 2 * plane + 2 * Channels));
  }
};

// ---- Finishing that filters share ----

struct Plain { // the sum, saturated where the type demands it
  template <class D, class A, int V, class S> static Block<D, A, V> apply(Pair<A, V> sum, Halves<const S, V>)
  {
    return narrowed<D>(sum);
  }
};
struct PlainOfThree {
  template <class D, class A, int V> static Block<D, A, V> apply(Pair<A, V> outer, Pair<A, V> inner, Pair<A, V> own)
  {
    return narrowed<D>(outer + inner + own);
  }
};

// ---- The stages along rows ----

// Rows of sums: the planes of a row follow each other. They have room for whole blocks.
template <class A> struct SumRows {
  A* first;
  std::ptrdiff_t plane, pitch; // from plane to plane, from row to row
  A* operator[](int y) const { return first + y * pitch; }
};
inline constexpr int mostRowsAtOnce = 16;

// Rows shorter than a block of 16-byte vectors are padded to one.
template <class A> inline constexpr std::ptrdiff_t paddedTo = Pair<A, 16>::size;

// sums[0 .. length - 1] of so many rows, `source` being the uppermost row of the first. The row behind the lowest will
// soon be read.
template <class Kernel>
ZORI_ONE_COPY void columnStage(Rows<const typename Kernel::S> source, std::ptrdiff_t length, int rows,
                               SumRows<typename Kernel::A> sums)
{
  const UpperHalvesCleared atTheEnd;
  using S = typename Kernel::S;
  using A = typename Kernel::A;
  constexpr std::ptrdiff_t block = Pair<A>::size, half = block / 2;
  const S* from[Kernel::size];
  if (length < paddedTo<A>) {
    constexpr std::ptrdiff_t padded = paddedTo<A>;
    alignas(vectorBytes) S samples[(mostRowsAtOnce + Kernel::size - 1) * padded];
    for (int y = 0; y < rows + Kernel::size - 1; ++y) padBlock<padded>(samples + y * padded, source[y], length);
    for (int y = 0; y < rows; ++y) {
      for (int k = 0; k < Kernel::size; ++k) from[k] = samples + (y + k) * padded;
      Kernel::columns(from, 0, Halves<A, 16>{sums[y], padded / 2}, sums.plane);
    }
    return;
  }
  for (int y = 0; y < rows; ++y) {
    A* const to = sums[y];
    for (int k = 0; k < Kernel::size; ++k) from[k] = source[y + k];
    if (length < block) {
      Kernel::columns(from, 0, Halves<A>{to, length - half}, sums.plane);
      continue;
    }
    const S* const next = source[y + Kernel::size];
    std::ptrdiff_t i = 0;
    for (; i + block <= length; i += block) {
      prefetch(next + i);
      Kernel::columns(from, i, Halves<A>{to + i, half}, sums.plane);
    }
    if (i < length) Kernel::columns(from, length - block, Halves<A>{to + length - block, half}, sums.plane);
  }
}

template <class D, class A, int V> inline void storeBlock(Halves<D, V> to, const Block<D, A, V>& x)
{
  if constexpr (Block<D, A, V>::vectors == 2) storePair(to, Pair<D, V>{x.v[0], x.v[1]});
#if ZORI_VECTOR_BYTES == 32
  else if constexpr (V == 32) {
    if (to.apart == Vec<A, V>::size) return store(to.p, x.v[0]);
    store(to.p, lowHalf(x.v[0]));
    store(to.p + to.apart, highHalf(x.v[0]));
  }
#endif
  else
    store(to.p, x.v[0]);
}
template <class D, class A, int V> inline Block<D, A, V> loadBlock(Halves<D, V> from)
{
  if constexpr (Block<D, A, V>::vectors == 2) return {{load<D, V>(from.p), load<D, V>(from.p + from.apart)}};
#if ZORI_VECTOR_BYTES == 32
  else if constexpr (V == 32) return {{joined(load<D, 16>(from.p), load<D, 16>(from.p + from.apart))}};
#endif
  else return {{load<D, V>(from.p)}};
}

template <class Kernel, Layout L, int V>
inline void rowBlock(Halves<const typename Kernel::A, V> sums, std::ptrdiff_t plane,
                     Halves<const typename Kernel::S, V> centre, Halves<typename Kernel::D, V> dst)
{
  using D = typename Kernel::D;
  using A = typename Kernel::A;
  auto result = Kernel::template row<channels<L>>(sums, plane, centre);
  if constexpr (L == AC4) {
    const auto before = loadBlock<D, A>(dst);
    for (int k = 0; k < result.vectors; ++k) result.v[k] = select(colourMask<D, V>(), result.v[k], before.v[k]);
  }
  storeBlock(dst, result);
}

// The results of so many rows, `centre` being the source pixels that they belong to.
template <class Kernel, Layout L>
ZORI_ONE_COPY void rowStage(SumRows<const typename Kernel::A> sums, Rows<const typename Kernel::S> centre,
                            Rows<typename Kernel::D> dst, std::ptrdiff_t length, int rows)
{
  const UpperHalvesCleared atTheEnd;
  using S = typename Kernel::S;
  using D = typename Kernel::D;
  constexpr std::ptrdiff_t block = Pair<typename Kernel::A>::size, half = block / 2;
  using A = typename Kernel::A;
  if (length < paddedTo<A>) {
    constexpr std::ptrdiff_t padded = paddedTo<A>;
    alignas(vectorBytes) D out[padded] = {};
    alignas(vectorBytes) S samples[padded];
    const std::size_t bytes = static_cast<std::size_t>(length) * sizeof(D);
    for (int y = 0; y < rows; ++y) {
      if (L == AC4) copyBelow<sizeof out>(out, dst[y], bytes);
      padBlock<padded>(samples, centre[y], length);
      rowBlock<Kernel, L, 16>({sums[y], padded / 2}, sums.plane, {samples, padded / 2}, {out, padded / 2});
      copyBelow<sizeof out>(dst[y], out, bytes);
    }
    return;
  }
  for (int y = 0; y < rows; ++y) {
    const auto blockAt = [=, from = centre[y], to = dst[y]](std::ptrdiff_t i, std::ptrdiff_t apart) ZORI_INLINE {
      rowBlock<Kernel, L, vectorBytes>({sums[y] + i, apart}, sums.plane, {from + i, apart}, {to + i, apart});
    };
    if (length < block) {
      blockAt(0, length - half);
      continue;
    }
    std::ptrdiff_t i = 0;
    for (; i + block <= length; i += block) blockAt(i, half);
    if (i < length) blockAt(length - block, half);
  }
}

// ---- The region ----

// The least height from which a region is worth a team, by type and layout.
inline constexpr int always = 0, never = INT_MAX;
struct ForkHeights {
  int c1, c3, c4, ac4;
};
inline constexpr int picosecondsPerSample = 200; // of the fastest of these filters

template <Layout L> inline TeamRule teamRule(ForkHeights heights, ZorImgSize roi)
{
  const int least = L == C1 ? heights.c1 : L == C3 ? heights.c3 : L == C4 ? heights.c4 : heights.ac4;
  const long long samples = static_cast<long long>(roi.width) * roi.height * channels<L>;
  return TeamRule::forWork(samples, picosecondsPerSample).fromSize(roi.height >= least).when(least != never);
}

// A filter for one layout: its stages and what the walk must know of them.
template <class S, class D> struct Filter {
  void (*columns)(Rows<const S> source, std::ptrdiff_t length, int rows, SumRows<Sum<S>> sums);
  void (*row)(SumRows<const Sum<S>> sums, Rows<const S> centre, Rows<D> dst, std::ptrdiff_t length, int rows);
  int size, planes, channels;
};

// The two stages in turn, each over as many rows as have room in a few kilobytes: in a small region that is all of
// them, and what has just been stored is slow to read at other addresses. Independent of the rounding mode that the
// caller has set, in every thread.
template <class S, class D>
ZORI_ONE_COPY ZorStatus filterRows(Filter<S, D> filter, const S* pSrc, int srcStep, D* pDst, int dstStep,
                                   ZorImgSize roi, TeamRule team)
{
  using A = Sum<S>;
  const int reach = filter.size / 2, margin = reach * filter.channels;
  const long long samples = static_cast<long long>(roi.width) * filter.channels, length = samples + 2 * margin;
  // room for the last block of the row stage, that of a row of one pixel too
  const long long plane = (length + 2 * Pair<A>::size - 1) / Pair<A>::size * Pair<A>::size;
  const long long pitch = plane * filter.planes;
  constexpr long long room = SlabMemory::onStack / sizeof(A);
  const int most = std::min(mostRowsAtOnce, roi.height);
  const int atOnce = pitch * most <= room ? most : static_cast<int>(std::max(room / pitch, 1LL));
  BlockPlan plan;
  const auto part = plan.add<A>(pitch * atOnce);
  if (plan.isImpossible()) return ZorErrAlloc;

  const auto work = [=, src = Rows<const S>{pSrc, srcStep}, dst = Rows<D>{pDst, dstStep}](const Slab& slab) {
    const SumRows<A> sums{part.in(slab.buffer), static_cast<std::ptrdiff_t>(plane), static_cast<std::ptrdiff_t>(pitch)};
    const SumRows<const A> made{sums.first, sums.plane, sums.pitch};
    const int end = slab.first + slab.count;
    for (int y = slab.first; y < end; y += atOnce) {
      const int rows = std::min(atOnce, end - y);
      filter.columns({src[std::ptrdiff_t{y} - reach] - margin, srcStep}, static_cast<std::ptrdiff_t>(length), rows,
                     sums);
      filter.row(made, fromRow(src, y), fromRow(dst, y), static_cast<std::ptrdiff_t>(samples), rows);
    }
    return ZorOk;
  };
  // by its address: what was just written piece by piece is slow to copy
  return masterSlabs(team, Rounding::Nearest, roi.height, static_cast<std::size_t>(plan.bytes()),
                     [at = &work](const Slab& slab) { return (*at)(slab); });
}

template <class Kernel, Layout L, class S, class D>
inline ZorStatus filterRegion(const S* pSrc, int srcStep, D* pDst, int dstStep, ZorImgSize roi, ForkHeights heights)
{
  constexpr Filter<S, D> filter = {columnStage<Kernel>, rowStage<Kernel, L>, Kernel::size, Kernel::planes, channels<L>};
  return filterRows(filter, pSrc, srcStep, pDst, dstStep, roi, teamRule<L>(heights, roi));
}

// ---- Exported forms: the checks, and the kernel that the selector names ----

inline ZorStatus imageStatus(const void* pSrc, int srcStep, const void* pDst, int dstStep, ZorImgSize roi)
{
  return firstFailure(nonNull(pSrc, pDst), nonEmpty(roi), positive(srcStep, dstStep));
}
inline ZorStatus maskStatus(ZorMaskSize mask)
{
  return require(mask == ZorMask3x3 || mask == ZorMask5x5, ZorErrMaskSize);
}

template <class Kernel, Layout L, class S, class D>
inline ZorStatus filterImage(const S* pSrc, int srcStep, D* pDst, int dstStep, ZorImgSize roi, ForkHeights heights)
{
  if (auto s = imageStatus(pSrc, srcStep, pDst, dstStep, roi); s != ZorOk) return s;
  return filterRegion<Kernel, L>(pSrc, srcStep, pDst, dstStep, roi, heights);
}

// A lenient form takes every selector but 3x3 for 5x5.
template <class Kernel3x3, class Kernel5x5, Layout L, bool IsLenient = false, class S, class D>
inline ZorStatus filterSelected(const S* pSrc, int srcStep, D* pDst, int dstStep, ZorImgSize roi, ZorMaskSize mask,
                                ForkHeights heights3x3, ForkHeights heights5x5)
{
  if (auto s = firstFailure(imageStatus(pSrc, srcStep, pDst, dstStep, roi), IsLenient ? ZorOk : maskStatus(mask));
      s != ZorOk)
    return s;
  if (mask == ZorMask3x3) return filterRegion<Kernel3x3, L>(pSrc, srcStep, pDst, dstStep, roi, heights3x3);
  return filterRegion<Kernel5x5, L>(pSrc, srcStep, pDst, dstStep, roi, heights5x5);
}

} // namespace fixed
} // namespace ZORI_WIDTH
} // namespace zori
