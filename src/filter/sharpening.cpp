// Fixed filters that weigh a pixel against the sum of its window: Sharpen, Hipass and Laplace.
//
//   Sharpen 3x3              (17 * c - S) / 8, ties to even
//   Laplace 3x3, Hipass 3x3  9 * c - S (one filter under two names)
//   Hipass 5x5               25 * c - S
//   Laplace 5x5              a kernel of its own, with a sum of 0
//
// c is the pixel, S the sum over the window, c included. Integers saturate; 8u16s and 8s16s hold every result.
#include "fixed.h"

#include "zori/filter.h"

namespace zori {
namespace {

using namespace fixed;

// Factor * c - S
template <int Factor> struct CentreLessSum {
  template <class A, int V, class S> static Pair<A, V> of(Pair<A, V> sum, Halves<const S, V> centre)
  {
    return times<Factor>(loadPair<A>(centre)) - sum;
  }
  template <class D, class A, int V, class S> static Block<D, A, V> apply(Pair<A, V> sum, Halves<const S, V> centre)
  {
    return narrowed<D>(of(sum, centre));
  }
};

struct Sharpened {
  template <class D, class A, int V, class S> static Block<D, A, V> apply(Pair<A, V> sum, Halves<const S, V> centre)
  {
    const Pair<A, V> t = CentreLessSum<17>::of(sum, centre);
    if constexpr (isInt<A>) return narrowed<D>(halfEven<3>(t));
    else return narrowed<D>(t * 0.125f);
  }
};

using Ones3 = Weights<1, 1, 1>;
using Ones5 = Weights<1, 1, 1, 1, 1>;
template <class T> using Sharpen3x3 = Separable<T, T, Ones3, Ones3, Sharpened>;
template <class S, class D> using Laplace3x3 = Separable<S, D, Ones3, Ones3, CentreLessSum<9>>;
template <class T> using Hipass5x5 = Separable<T, T, Ones5, Ones5, CentreLessSum<25>>;
template <class S, class D>
using Laplace5x5 = MirroredKernel5x5<S, D, Weights<-1, -3, -4, -3, -1>, Weights<-3, 0, 6, 0, -3>,
                                     Weights<-4, 6, 20, 6, -4>, PlainOfThree>;

// ---- Teams: the heights from which they pay ----

template <class S> constexpr ForkHeights sharpenHeights = {never, never, never, always};
template <> constexpr ForkHeights sharpenHeights<Zor8u> = {256, always, 400, always};
template <> constexpr ForkHeights sharpenHeights<Zor16s> = {never, 400, 256, always};

template <class S, class D> constexpr ForkHeights laplace3x3Heights = {never, never, never, 100};
template <> constexpr ForkHeights laplace3x3Heights<Zor8u, Zor8u> = {256, always, 400, 400};
template <> constexpr ForkHeights laplace3x3Heights<Zor16s, Zor16s> = {400, 400, never, always};
template <> constexpr ForkHeights laplace3x3Heights<Zor8s, Zor16s> = {256, never, never, never};

template <class S, class D> constexpr ForkHeights laplace5x5Heights = {never, never, never, never};
template <> constexpr ForkHeights laplace5x5Heights<Zor8u, Zor8u> = {256, always, 512, always};
template <> constexpr ForkHeights laplace5x5Heights<Zor16s, Zor16s> = {256, always, 512, always};

template <class S> constexpr ForkHeights hipass5x5Heights = {never, never, never, never};
template <> constexpr ForkHeights hipass5x5Heights<Zor8u> = {never, 256, never, 256};
template <> constexpr ForkHeights hipass5x5Heights<Zor16s> = {512, 512, always, 256};

// ---- Forms ----

template <class T, Layout L> ZorStatus filterSharpen(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roi)
{
  return filterImage<Sharpen3x3<T>, L>(pSrc, srcStep, pDst, dstStep, roi, sharpenHeights<T>);
}

template <class T, Layout L>
ZorStatus filterHipass(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roi, ZorMaskSize mask)
{
  return filterSelected<Laplace3x3<T, T>, Hipass5x5<T>, L>(pSrc, srcStep, pDst, dstStep, roi, mask,
                                                           laplace3x3Heights<T, T>, hipass5x5Heights<T>);
}

template <Layout L, class S, class D>
ZorStatus filterLaplace(const S* pSrc, int srcStep, D* pDst, int dstStep, ZorImgSize roi, ZorMaskSize mask)
{
  return filterSelected<Laplace3x3<S, D>, Laplace5x5<S, D>, L>(pSrc, srcStep, pDst, dstStep, roi, mask,
                                                               laplace3x3Heights<S, D>, laplace5x5Heights<S, D>);
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define LAYOUTS(STAMP, type) STAMP(type, C1) STAMP(type, C3) STAMP(type, C4) STAMP(type, AC4)

// zoriFilterSharpen_{8u,16s,32f}_{C1,C3,C4,AC4}R
#define STAMP(type, layout)                                                                                            \
  ZorStatus zoriFilterSharpen_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,   \
                                                   ZorImgSize roiSize)                                                 \
  {                                                                                                                    \
    return filterSharpen<Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize);                             \
  }
LAYOUTS(STAMP, 8u) LAYOUTS(STAMP, 16s) LAYOUTS(STAMP, 32f)
#undef STAMP

// zoriFilterHipass_{8u,16s,32f}_{C1,C3,C4,AC4}R
#define STAMP(type, layout)                                                                                            \
  ZorStatus zoriFilterHipass_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,    \
                                                  ZorImgSize roiSize, ZorMaskSize mask)                                \
  {                                                                                                                    \
    return filterHipass<Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize, mask);                        \
  }
LAYOUTS(STAMP, 8u) LAYOUTS(STAMP, 16s) LAYOUTS(STAMP, 32f)
#undef STAMP

// zoriFilterLaplace_{8u,16s,32f}_{C1,C3,C4,AC4}R, zoriFilterLaplace_{8u16s,8s16s}_C1R
#define STAMP_BETWEEN(types, source, dest, layout)                                                                     \
  ZorStatus zoriFilterLaplace_##types##_##layout##R(const Zor##source* pSrc, int srcStep, Zor##dest* pDst,             \
                                                    int dstStep, ZorImgSize roiSize, ZorMaskSize mask)                 \
  {                                                                                                                    \
    return filterLaplace<layout>(pSrc, srcStep, pDst, dstStep, roiSize, mask);                                  \
  }
#define STAMP(type, layout) STAMP_BETWEEN(type, type, type, layout)
LAYOUTS(STAMP, 8u) LAYOUTS(STAMP, 16s) LAYOUTS(STAMP, 32f)
STAMP_BETWEEN(8u16s, 8u, 16s, C1) STAMP_BETWEEN(8s16s, 8s, 16s, C1)
#undef STAMP
#undef STAMP_BETWEEN
#undef LAYOUTS
