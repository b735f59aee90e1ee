// The frame of zori{Add,Sub,Mul,AddC,SubC,MulC}: which path a scale takes, when a team of threads does the work, and the
// walk over the region with the row kernel of that path.
#pragma once

#include "frame/checks.h"
#include "frame/walk.h"
#include "rowkernels/scaled.h"
#include "zori/data.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace zori {

// ---- The paths by scale s ----
//
//   s > zeroAbove   zero image             s = 1            One
//   s > 1           Positive               s = 0            Plain
//                                          s >= boundBelow  Negative
//                                          s < boundBelow   Bound
struct ScaleRange {
  int zeroAbove, boundBelow;
};

// One kernel serves the two parts of complex sums. Products of 16u use their scales to the last: 32 bits.
template <template <class> class Operation, class T> inline constexpr ScaleRange scaleRange = {};
template <> inline constexpr ScaleRange scaleRange<Sum, Zor8u> = {9, -7};
template <> inline constexpr ScaleRange scaleRange<Difference, Zor8u> = {8, -7};
template <> inline constexpr ScaleRange scaleRange<Product, Zor8u> = {16, -7};
template <> inline constexpr ScaleRange scaleRange<Sum, Zor16s> = {16, -15};
template <> inline constexpr ScaleRange scaleRange<Difference, Zor16s> = {16, -15};
template <> inline constexpr ScaleRange scaleRange<Product, Zor16s> = {30, -14};
template <> inline constexpr ScaleRange scaleRange<Sum, Zor16u> = {17, -15};
template <> inline constexpr ScaleRange scaleRange<Difference, Zor16u> = {16, -15};
template <> inline constexpr ScaleRange scaleRange<Product, Zor16u> = {32, -15};
template <> inline constexpr ScaleRange scaleRange<Sum, Zor16sc> = {16, -15};
template <> inline constexpr ScaleRange scaleRange<Difference, Zor16sc> = {16, -15};
template <> inline constexpr ScaleRange scaleRange<Product, Zor16sc> = {31, -15};
template <> inline constexpr ScaleRange scaleRange<Sum, Zor32sc> = {32, -31};
template <> inline constexpr ScaleRange scaleRange<Difference, Zor32sc> = {32, -31};
template <> inline constexpr ScaleRange scaleRange<Product, Zor32sc> = {63, -31};

template <template <class> class Operation, class T> constexpr Path pathOf(int scale)
{
  if (!isInt<Part<T>>) return Path::Plain;
  constexpr ScaleRange range = scaleRange<Operation, T>;
  return scale > range.zeroAbove    ? Path::Zero
         : scale > 1                ? Path::Positive
         : scale == 1               ? Path::One
         : scale == 0               ? Path::Plain
         : scale >= range.boundBelow ? Path::Negative
                                    : Path::Bound;
}

// ---- When a team works ----
//
// C1 forms of 8u, 16s and 32f, and C3 forms of their scaled constants, are worked by a team; the C3 and C4 forms of two
// images are C1 forms of a wider region. Below a limit of width + height a path keeps to the calling thread; 0 stands
// for no limit. Paths that are not named have none.
struct TeamLimits {
  int plain, one, positive;
};
enum class Form { Images, ImagesInPlace, Constant, ConstantInPlace };

template <template <class> class Operation, class T, Form form> inline constexpr TeamLimits teamLimits = {0, 0, 0};
template <> inline constexpr TeamLimits teamLimits<Sum, Zor16s, Form::Images> = {256, 256, 256};
template <> inline constexpr TeamLimits teamLimits<Difference, Zor16s, Form::Images> = {256, 256, 256};
template <> inline constexpr TeamLimits teamLimits<Sum, Zor16s, Form::Constant> = {256, 256, 256};
template <> inline constexpr TeamLimits teamLimits<Difference, Zor16s, Form::Constant> = {256, 256, 256};
template <> inline constexpr TeamLimits teamLimits<Sum, Zor32f, Form::Images> = {256, 0, 0};
template <> inline constexpr TeamLimits teamLimits<Difference, Zor32f, Form::Images> = {256, 0, 0};
template <> inline constexpr TeamLimits teamLimits<Sum, Zor32f, Form::Constant> = {256, 0, 0};
template <> inline constexpr TeamLimits teamLimits<Difference, Zor32f, Form::Constant> = {256, 0, 0};
template <> inline constexpr TeamLimits teamLimits<Product, Zor8u, Form::Images> = {0, 128, 256};
template <> inline constexpr TeamLimits teamLimits<Product, Zor16s, Form::Images> = {0, 128, 128};
template <> inline constexpr TeamLimits teamLimits<Sum, Zor8u, Form::ConstantInPlace> = {0, 256, 256};
template <> inline constexpr TeamLimits teamLimits<Difference, Zor8u, Form::ConstantInPlace> = {0, 256, 256};
template <> inline constexpr TeamLimits teamLimits<Sum, Zor16s, Form::ConstantInPlace> = {0, 256, 256};
template <> inline constexpr TeamLimits teamLimits<Product, Zor16s, Form::ConstantInPlace> = {0, 256, 256};
template <> inline constexpr TeamLimits teamLimits<Difference, Zor16s, Form::ImagesInPlace> = {0, 128, 256};
template <> inline constexpr TeamLimits teamLimits<Sum, Zor8u, Form::ImagesInPlace> = {0, 0, 256};
template <> inline constexpr TeamLimits teamLimits<Difference, Zor8u, Form::ImagesInPlace> = {0, 0, 256};
template <> inline constexpr TeamLimits teamLimits<Product, Zor8u, Form::ConstantInPlace> = {0, 0, 128};
template <> inline constexpr TeamLimits teamLimits<Difference, Zor16s, Form::ConstantInPlace> = {0, 256, 0};

// Images of fewer bytes are not worth waking a team, whatever the limit says.
inline constexpr long long teamBytes = 128 * 1024;

// ---- The walk ----

template <class T, Layout L>
inline constexpr Shape shapeOf = L != AC4 ? Shape::Whole : partCount<T> == 1 ? Shape::KeepFourth : Shape::KeepFourthComplex;

// Parts are what kernels count: a complex image is worked as one of numbers, but for its products.
template <template <class> class Operation, class T> struct OnParts {
  using Type = Operation<Part<T>>;
};
template <> struct OnParts<Product, Zor16sc> {
  using Type = ComplexProduct<Zor16s>;
};
template <> struct OnParts<Product, Zor32sc> {
  using Type = ComplexProduct<Zor32s>;
};
template <> struct OnParts<Product, Zor32fc> {
  using Type = ComplexProduct<Zor32f>;
};

template <bool withConstant, Shape shape, class Op> constexpr auto rowKernel()
{
  if constexpr (withConstant) return &constantRow<shape, Op, typename Op::T>;
  else return &imageRow<shape, Op, typename Op::T>;
}

// The row kernel of an operation on a path. Products have no shorter way at scale 1.
template <bool withConstant, Shape shape, class Operation> auto kernelOf(Path path)
{
  constexpr auto plain = rowKernel<withConstant, shape, AtScale<Operation, Path::Plain>>();
  if constexpr (isInt<typename Operation::Element>) {
    constexpr Path once = Operation::halves ? Path::One : Path::Positive;
    constexpr auto negative = rowKernel<withConstant, shape, AtScale<Operation, Path::Negative>>();
    static constexpr decltype(plain) kernels[] = {
        rowKernel<withConstant, shape, AtScale<Operation, Path::Zero>>(),
        rowKernel<withConstant, shape, AtScale<Operation, Path::Positive>>(),
        rowKernel<withConstant, shape, AtScale<Operation, once>>(),
        plain, negative, negative};
    return kernels[static_cast<int>(path)];
  } else {
    return plain;
  }
}

template <class T> constexpr int shiftOf(Path path, int scale)
{
  return path == Path::Negative ? -scale : path == Path::Bound ? boundShift<Part<T>> : scale;
}

// How a region is walked: the parts from pixel to pixel, and whether by a team.
struct Walk {
  ZorImgSize roi;
  int parts;
  bool team;

  template <class D, class Row, class... S> void operator()(Row row, Rows<D> dst, Rows<const S>... src) const
  {
    const auto rows = [=](auto order) {
      const RowRun run(order, roi, parts, sizeof(D), dst.step, src.step...);
      order(run.height, [=](int y) { row(run.length, dst[y], src[y]...); });
    };
    if (team) rows(InTeam{});
    else rows(Serial{});
  }
};

template <class T> Walk walkOf(TeamLimits limits, Path path, bool mayTeam, ZorImgSize roi, int channels, int dstStep)
{
  const int limit = path == Path::Plain ? limits.plain : path == Path::One ? limits.one : path == Path::Positive ? limits.positive : 0;
  const long long width = static_cast<long long>(roi.width) * channels, rowBytes = width * static_cast<int>(sizeof(T));
  // rows that overlap each other are left to one thread, which works them in their order
  const bool worthIt = width + roi.height >= limit && rowBytes * roi.height >= teamBytes && dstStep >= rowBytes;
  return {roi, channels * partCount<T>, mayTeam && worthIt && ownGetNumThreads() > 1};
}

// noinline: one walk for all kernels of a type of parts.
template <class T>
[[gnu::noinline]] void walkImages(ImageKernel<T> kernel, int shift, Walk walk, Rows<T> dst, Rows<const T> a, Rows<const T> b)
{
  walk([=](std::ptrdiff_t length, T* d, const T* x, const T* y) { kernel(d, length, shift, x, y); }, dst, a, b);
}
template <class T>
[[gnu::noinline]] void walkConstant(ConstantKernel<T> kernel, int shift, Walk walk, Rows<T> dst, Rows<const T> src,
                                    const Pattern<T>& constant)
{
  walk([=, &constant](std::ptrdiff_t length, T* d, const T* x) { kernel(d, length, shift, x, constant); }, dst, src);
}

template <class T> Rows<Part<T>> partRows(T* p, int step) { return {reinterpret_cast<Part<T>*>(p), step}; }
template <class T> Rows<const Part<T>> partRows(const T* p, int step)
{
  return {reinterpret_cast<const Part<T>*>(p), step};
}

// ---- Fills and copies, by the bytes of an element ----

template <int elementBytes, Layout L> struct Data;
#define DATA(type, layout)                                 \
  template <> struct Data<sizeof(Zor##type), layout> {     \
    using Element = Zor##type;                             \
    static constexpr auto copy = zoriCopy_##type##_##layout##R; \
    static constexpr auto set = zoriSet_##type##_##layout##R;   \
  };
DATA(8u, C1) DATA(8u, C3) DATA(8u, C4) DATA(8u, AC4)
DATA(16s, C1) DATA(16s, C3) DATA(16s, C4) DATA(16s, AC4)
DATA(32s, C1) DATA(32s, C3) DATA(32s, C4) DATA(32s, AC4)
#undef DATA
template <class T> inline constexpr bool hasData = sizeof(T) <= 4;

template <class T, Layout L> ZorStatus fill(int value, T* pDst, int dstStep, ZorImgSize roiSize)
{
  using E = typename Data<sizeof(T), L>::Element;
  const E values[4] = {E(value), E(value), E(value), E(value)};
  E* const dst = reinterpret_cast<E*>(pDst);
  if constexpr (L == C1) return Data<sizeof(T), L>::set(values[0], dst, dstStep, roiSize);
  else return Data<sizeof(T), L>::set(values, dst, dstStep, roiSize);
}

template <class T, Layout L> ZorStatus zeroImage(T* pDst, int dstStep, ZorImgSize roiSize)
{
  if constexpr (hasData<T>) return fill<T, L>(0, pDst, dstStep, roiSize);
  else {
    const auto dst = partRows(pDst, dstStep);
    const auto kernel = rowKernel<false, shapeOf<T, L>, AtScale<Sum<Part<T>>, Path::Zero>>();
    walkImages<Part<T>>(kernel, 0, {roiSize, channels<L> * partCount<T>, false}, dst, {dst.first, dstStep}, {dst.first, dstStep});
    return ZorOk;
  }
}

// ---- The functions: two images, or an image and a constant ----

template <template <class> class Operation, class T, Layout L, Form form>
ZorStatus scaledImages(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                       ZorImgSize roiSize, int scaleFactor)
{
  constexpr bool isComplex = partCount<T> == 2;
  ZorStatus s;
  if constexpr (isComplex)
    s = firstFailure(nonNull(pSrc1, pSrc2, pDst), nonEmpty(roiSize), positive(src1Step, src2Step, dstStep));
  else if constexpr (L == C3 || L == C4) // the C1 form of a wider region, behind a test of the height
    s = firstFailure(positiveSize(roiSize.height), nonNull(pSrc1, pSrc2, pDst), positiveSize(roiSize.width));
  else s = firstFailure(nonNull(pSrc1, pSrc2, pDst), nonEmpty(roiSize));
  if (s != ZorOk) return s;

  const Path path = pathOf<Operation, T>(scaleFactor);
  if (path == Path::Zero) return zeroImage<T, L>(pDst, dstStep, roiSize);
  constexpr bool mayTeam = !isComplex && L != AC4 && !std::is_same_v<T, Zor16u>;
  const Walk walk = walkOf<T>(teamLimits<Operation, T, form>, path, mayTeam, roiSize, channels<L>, dstStep);
  const auto kernel = kernelOf<false, shapeOf<T, L>, typename OnParts<Operation, T>::Type>(path);
  Rows<const Part<T>> a = partRows(pSrc1, src1Step), b = partRows(pSrc2, src2Step);
  if (std::is_same_v<Operation<T>, Difference<T>>) std::swap(a, b); // the first image is subtracted
  walkImages<Part<T>>(kernel, shiftOf<T>(path, scaleFactor), walk, partRows(pDst, dstStep), a, b);
  return ZorOk;
}

template <template <class> class Operation, class T, Layout L, Form form>
ZorStatus scaledConstant(const T* pSrc, int srcStep, const T* value, T* pDst, int dstStep, ZorImgSize roiSize,
                         int scaleFactor)
{
  constexpr bool isComplex = partCount<T> == 2;
  if (auto s = firstFailure(nonNull(pSrc, value, pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  if constexpr (isComplex)
    if (auto s = positive(srcStep, dstStep); s != ZorOk) return s;

  using P = Part<T>;
  const Path path = pathOf<Operation, T>(scaleFactor);
  P constant[channels<L> * partCount<T>] = {}; // the fourth of AC4 is not used
  std::memcpy(constant, value, sizeof(T) * processed<L>);

  if constexpr (isInt<P>) { // what needs no arithmetic
    constexpr bool isSum = std::is_same_v<Operation<T>, Sum<T>>, isProduct = std::is_same_v<Operation<T>, Product<T>>;
    const auto isEvery = [&](P number) {
      for (int i = 0; i < processed<L> * partCount<T>; ++i)
        if (constant[i] != (i % partCount<T> ? 0 : number)) return false;
      return true;
    };
    if (path == Path::Zero || (isProduct && isEvery(0))) return zeroImage<T, L>(pDst, dstStep, roiSize);
    if (path == Path::Plain && isEvery(isProduct ? 1 : 0)) {
      if (pSrc == pDst && srcStep == dstStep) return ZorOk;
      if constexpr (hasData<T>) {
        using D = Data<sizeof(T), L>;
        using E = typename D::Element;
        return D::copy(reinterpret_cast<const E*>(pSrc), srcStep, reinterpret_cast<E*>(pDst), dstStep, roiSize);
      }
    }
    if constexpr (isSum && !isSigned<P>)
      if (path == Path::Bound && std::find(constant, constant + processed<L>, 0) == constant + processed<L>)
        return fill<T, L>(-1, pDst, dstStep, roiSize); // all bits: the greatest value
  }

  const bool isScaled = path != Path::Plain;
  const bool mayTeam = !isComplex && !std::is_same_v<T, Zor16u> && (L == C1 || (L == C3 && isScaled));
  const Walk walk = walkOf<T>(teamLimits<Operation, T, form>, path, mayTeam, roiSize, channels<L>, dstStep);
  const auto kernel = kernelOf<true, shapeOf<T, L>, typename OnParts<Operation, T>::Type>(path);
  walkConstant<P>(kernel, shiftOf<T>(path, scaleFactor), walk, partRows(pDst, dstStep), partRows(pSrc, srcStep),
                  Pattern<P>(constant, channels<L> * partCount<T>));
  return ZorOk;
}

} // namespace zori
