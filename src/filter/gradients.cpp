// Fixed gradient filters: Prewitt, Sobel, Scharr and the second derivatives as outer products of two weight vectors,
// Roberts as a difference of shifted images.
#include "fixed.h"

#include "zori/arith.h"
#include "zori/filter.h"

namespace zori {
namespace {

using namespace fixed;

// ---- Kernels: weights from top to bottom, then from left to right ----

template <class S, class D, class Vertical, class Horizontal>
using Gradient = Separable<S, D, Vertical, Horizontal, Plain>;

template <int... N> using W = Weights<N...>;

template <class S, class D> using PrewittHoriz = Gradient<S, D, W<-1, 0, 1>, W<1, 1, 1>>;
template <class S, class D> using PrewittVert = Gradient<S, D, W<1, 1, 1>, W<1, 0, -1>>;
template <class S, class D> using SobelHoriz3x3 = Gradient<S, D, W<-1, 0, 1>, W<1, 2, 1>>;
template <class S, class D> using SobelVert3x3 = Gradient<S, D, W<1, 2, 1>, W<1, 0, -1>>;
template <class S, class D> using SobelHoriz5x5 = Gradient<S, D, W<-1, -2, 0, 2, 1>, W<1, 4, 6, 4, 1>>;
template <class S, class D> using SobelVert5x5 = Gradient<S, D, W<1, 4, 6, 4, 1>, W<1, 2, 0, -2, -1>>;
template <class S, class D> using SobelHorizSecond3x3 = Gradient<S, D, W<1, -2, 1>, W<1, 2, 1>>;
template <class S, class D> using SobelVertSecond3x3 = Gradient<S, D, W<1, 2, 1>, W<1, -2, 1>>;
template <class S, class D> using SobelHorizSecond5x5 = Gradient<S, D, W<1, 0, -2, 0, 1>, W<1, 4, 6, 4, 1>>;
template <class S, class D> using SobelVertSecond5x5 = Gradient<S, D, W<1, 4, 6, 4, 1>, W<1, 0, -2, 0, 1>>;
template <class S, class D> using SobelCross3x3 = Gradient<S, D, W<-1, 0, 1>, W<1, 0, -1>>;
template <class S, class D> using SobelCross5x5 = Gradient<S, D, W<-1, -2, 0, 2, 1>, W<1, 2, 0, -2, -1>>;
template <class S, class D> using ScharrHoriz = Gradient<S, D, W<-1, 0, 1>, W<3, 10, 3>>;
template <class S, class D>
using ScharrVert = Gradient<S, D, W<3, 10, 3>, W<-1, 0, 1>>; // right less left, unlike the others

constexpr ForkHeights onlyAC4 = {never, never, never, always}, serial = {never, never, never, never};

// ---- Forms ----

template <template <class, class> class Kernel, Layout L, class S, class D>
ZorStatus gradient(const S* pSrc, int srcStep, D* pDst, int dstStep, ZorImgSize roi, ForkHeights heights)
{
  return filterImage<Kernel<S, D>, L>(pSrc, srcStep, pDst, dstStep, roi, heights);
}

// The forms in single precision do not test their selector.
template <template <class, class> class Kernel3x3, template <class, class> class Kernel5x5, class S, class D>
ZorStatus selectedGradient(const S* pSrc, int srcStep, D* pDst, int dstStep, ZorImgSize roi, ZorMaskSize mask)
{
  return filterSelected<Kernel3x3<S, D>, Kernel5x5<S, D>, C1, !isInt<S>>(pSrc, srcStep, pDst, dstStep, roi, mask,
                                                                         serial, serial);
}

// The image less itself shifted by one row and one pixel to either side: shift -1 takes the pixel above and to the
// left, 1 that above and to the right. The step to the row above is cut to whole samples.
template <Layout L, class T, class Subtract>
ZorStatus filterRoberts(int shift, const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roi, Subtract subtract)
{
  if (auto s = imageStatus(pSrc, srcStep, pDst, dstStep, roi); s != ZorOk) return s;
  const T* neighbour = rowAt(pSrc, maskedStep<T>(srcStep), -1) + shift * channels<L>;
  return underRounding(Rounding::Nearest,
                       [&] { return subtract(neighbour, srcStep, pSrc, srcStep, pDst, dstStep, roi); });
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define LAYOUTS(STAMP, name, type) STAMP(name, type, C1) STAMP(name, type, C3) STAMP(name, type, C4) STAMP(name, type, AC4)
#define TYPES(STAMP, name) LAYOUTS(STAMP, name, 8u) LAYOUTS(STAMP, name, 16s) LAYOUTS(STAMP, name, 32f)

// zoriFilterPrewitt{Horiz,Vert}_{8u,16s,32f}_{C1,C3,C4,AC4}R, zoriFilterSobel{Horiz,Vert}_{8u,16s,32f}_{C1,C3,C4,AC4}R
#define STAMP_OF(name, kernel, type, layout)                                                                           \
  ZorStatus zoriFilter##name##_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,  \
                                                    ZorImgSize roiSize)                                                \
  {                                                                                                                    \
    return gradient<kernel, layout>(pSrc, srcStep, pDst, dstStep, roiSize, onlyAC4);                                   \
  }
#define STAMP(name, type, layout) STAMP_OF(name, name, type, layout)
TYPES(STAMP, PrewittHoriz) TYPES(STAMP, PrewittVert)
#undef STAMP
#define STAMP(name, type, layout) STAMP_OF(name, name##3x3, type, layout)
TYPES(STAMP, SobelHoriz) TYPES(STAMP, SobelVert)
#undef STAMP
#undef STAMP_OF

// zoriFilterScharr{Horiz,Vert}_{8u16s,8s16s,32f}_C1R
#define STAMP(name, types, source, dest)                                                                               \
  ZorStatus zoriFilter##name##_##types##_C1R(const Zor##source* pSrc, int srcStep, Zor##dest* pDst, int dstStep,       \
                                             ZorImgSize roiSize)                                                       \
  {                                                                                                                    \
    return gradient<name, C1>(pSrc, srcStep, pDst, dstStep, roiSize, serial);                                          \
  }
#define MIXED(name) STAMP(name, 8u16s, 8u, 16s) STAMP(name, 8s16s, 8s, 16s)
MIXED(ScharrHoriz) STAMP(ScharrHoriz, 32f, 32f, 32f)
MIXED(ScharrVert) STAMP(ScharrVert, 32f, 32f, 32f)
#undef STAMP

// zoriFilterSobel{Horiz,Vert}_{8u16s,8s16s}_C1R, zoriFilterSobel{Horiz,Vert}Mask_32f_C1R,
// zoriFilterSobel{HorizSecond,VertSecond,Cross}_{8u16s,8s16s,32f}_C1R
#define STAMP_OF(name, kernel, types, source, dest)                                                                    \
  ZorStatus zoriFilter##name##_##types##_C1R(const Zor##source* pSrc, int srcStep, Zor##dest* pDst, int dstStep,       \
                                             ZorImgSize roiSize, ZorMaskSize mask)                                     \
  {                                                                                                                    \
    return selectedGradient<kernel##3x3, kernel##5x5>(pSrc, srcStep, pDst, dstStep, roiSize, mask);                    \
  }
#define STAMP(name, types, source, dest) STAMP_OF(name, name, types, source, dest)
MIXED(SobelHoriz) STAMP_OF(SobelHorizMask, SobelHoriz, 32f, 32f, 32f)
MIXED(SobelVert) STAMP_OF(SobelVertMask, SobelVert, 32f, 32f, 32f)
MIXED(SobelHorizSecond) STAMP(SobelHorizSecond, 32f, 32f, 32f)
MIXED(SobelVertSecond) STAMP(SobelVertSecond, 32f, 32f, 32f)
MIXED(SobelCross) STAMP(SobelCross, 32f, 32f, 32f)
#undef STAMP
#undef STAMP_OF
#undef MIXED

// zoriFilterRoberts{Down,Up}_{8u,16s,32f}_{C1,C3,AC4}R
#define STAMP(name, shift, type, layout, ...)                                                                          \
  ZorStatus zoriFilterRoberts##name##_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst,        \
                                                           int dstStep, ZorImgSize roiSize)                            \
  {                                                                                                                    \
    return filterRoberts<layout>(shift, pSrc, srcStep, pDst, dstStep, roiSize,                                  \
                                        [](auto... arguments) { return __VA_ARGS__; });                                \
  }
#define SCALED(name, shift, type, layout) STAMP(name, shift, type, layout, zoriSub_##type##_##layout##RSfs(arguments..., 0))
#define PLAIN(name, shift, type, layout) STAMP(name, shift, type, layout, zoriSub_##type##_##layout##R(arguments...))
#define LAYOUTS_OF(name, shift, layout)                                                                                \
  SCALED(name, shift, 8u, layout) SCALED(name, shift, 16s, layout) PLAIN(name, shift, 32f, layout)
LAYOUTS_OF(Down, -1, C1) LAYOUTS_OF(Down, -1, C3) LAYOUTS_OF(Down, -1, AC4)
LAYOUTS_OF(Up, 1, C1) LAYOUTS_OF(Up, 1, C3) LAYOUTS_OF(Up, 1, AC4)
#undef LAYOUTS_OF
#undef PLAIN
#undef SCALED
#undef STAMP
#undef TYPES
#undef LAYOUTS
