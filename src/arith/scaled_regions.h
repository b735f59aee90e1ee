// The frame of zori{Add,Sub,Mul,AddC,SubC,MulC}: which path a scale takes, when a team of threads does the work, and
// the walk over the region with the row kernel of that path.
#pragma once

#include "arith/shortcuts.h"
#include "frame/checks.h"
#include "frame/parallel.h"
#include "rowkernels/scaled.h"
#include "walk/map.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace zori {

// ---- The paths by scale ----
//
// From the greatest down: Zero above zeroAbove, Positive to 2, One, Plain at 0, Negative to boundBelow, Bound.

struct ScaleRange {
  int zeroAbove, boundBelow;
};
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
  return scale > range.zeroAbove     ? Path::Zero
         : scale > 1                 ? Path::Positive
         : scale == 1                ? Path::One
         : scale == 0                ? Path::Plain
         : scale >= range.boundBelow ? Path::Negative
                                     : Path::Bound;
}

// ---- When a team works ----
//
// C1 forms of 8u, 16s and 32f, and C3 forms of their scaled constants, are worked by a team; the C3 and C4 forms of two
// images are C1 forms of a wider region.

// What an element costs, by its bytes: up to the least work that is shared, the images stay in the cache of one core.
inline constexpr int picosecondsPerByte = 100;

// ---- The kernels of an operation ----

template <class T> inline constexpr bool isComplex = partCount<T> == 2;

template <class T, Layout L>
inline constexpr Shape shapeOf = L != AC4       ? Shape::Whole
                                 : isComplex<T> ? Shape::KeepFourthComplex
                                                : Shape::KeepFourth;

// Parts are what kernels count: a complex image is worked as one of plain numbers, but for its products.
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

enum class Operand { Image, Constant };

template <Operand second, Shape shape, class Op> constexpr auto rowKernel()
{
  if constexpr (second == Operand::Image) return &imageRows<shape, Op, typename Op::T>;
  else return &constantRows<shape, Op, typename Op::T>;
}

// The row kernel of an operation on a path. Products have no shorter way at scale 1, floats only the plain path.
template <Operand second, Shape shape, class Operation> auto kernelOf(Path path)
{
  constexpr auto plain = rowKernel<second, shape, AtScale<Operation, Path::Plain>>();
  if constexpr (isInt<typename Operation::Element>) {
    constexpr auto positive = rowKernel<second, shape, AtScale<Operation, Path::Positive>>();
    constexpr auto one = rowKernel<second, shape, AtScale<Operation, Operation::halves ? Path::One : Path::Positive>>();
    constexpr auto negative = rowKernel<second, shape, AtScale<Operation, Path::Negative>>();
    return path == Path::Positive ? positive : path == Path::One ? one : path == Path::Plain ? plain : negative;
  } else {
    return plain;
  }
}

// The count that the kernel shifts by.
template <class T> constexpr int shiftOf(Path path, int scale)
{
  return path == Path::Negative ? -scale : path == Path::Bound ? boundShift<Part<T>> : scale;
}

// ---- The walk ----

template <class T> Rows<Part<T>> partRows(T* p, int step) { return {reinterpret_cast<Part<T>*>(p), step}; }
template <class T> Rows<const Part<T>> partRows(const T* p, int step)
{
  return {reinterpret_cast<const Part<T>*>(p), step};
}

// How a region is walked: the parts from pixel to pixel, and whether by a team. Floats keep to the caller's rounding.
struct Walk {
  ZorImgSize roi;
  int parts;
  TeamRule team;

  // work(length, rows, dst, src...)
  template <class D, class Work, class... S> void operator()(Work work, Rows<D> dst, Rows<const S>... src) const
  {
    const int pixelBytes = parts * static_cast<int>(sizeof(D));
    const bool alone = team.threads(roi.height) == 1;
    const ZorImgSize rows = alone ? joinedRows(roi, Pitch{pixelBytes, dst.step}, Pitch{pixelBytes, src.step}...) : roi;
    const std::ptrdiff_t length = elementsOf(rows.width, parts);
    if (alone) return work(length, rows.height, dst, src...);
    staticBands(team, Rounding::Callers, rows.height,
                [=](int first, int count) { work(length, count, fromRow(dst, first), fromRow(src, first)...); });
  }
};

template <class T> Walk walkOf(ZorImgSize roi, int channels, int dstStep, bool mayShare)
{
  const int parts = channels * partCount<T>;
  const long long elements = static_cast<long long>(roi.width) * channels, rowBytes = elements * int{sizeof(T)};
  // rows that overlap each other are left to one thread, which works them in their order
  return {roi, parts,
          TeamRule::forWork(elements * roi.height, picosecondsPerByte * int{sizeof(T)})
            .when(mayShare && dstStep >= rowBytes)};
}

// One walk serves all kernels of a type of parts.
template <class T>
ZORI_ONE_COPY void walkImages(Walk walk, ImageKernel<T> kernel, int shift, Rows<T> dst, Rows<const T> a,
                              Rows<const T> b)
{
  walk([=](std::ptrdiff_t length, int rows, Rows<T> d, Rows<const T> x,
           Rows<const T> y) { kernel(d, x, y, length, rows, shift); },
       dst, a, b);
}
template <class T>
ZORI_ONE_COPY void walkConstant(Walk walk, ConstantKernel<T> kernel, int shift, Rows<T> dst, Rows<const T> src,
                                const Pattern<T>& constant)
{
  walk([=, &constant](std::ptrdiff_t length, int rows, Rows<T> d,
                      Rows<const T> x) { kernel(d, x, length, rows, shift, constant); },
       dst, src);
}

// ---- Fills and copies that take the place of arithmetic. They look at bits alone. ----

template <class T> using Bits = std::conditional_t<std::is_same_v<T, Zor16sc>, Zor32s, T>;

template <class T, Layout L> ZorStatus zeroImage(T* pDst, int dstStep, ZorImgSize roiSize)
{
  if constexpr (std::is_same_v<T, Zor32sc>) { // elements of 8 bytes have no fill
    const Rows dst = partRows(pDst, dstStep);
    const Rows<const Part<T>> unread{dst.first, dstStep};
    constexpr auto kernel = rowKernel<Operand::Image, shapeOf<T, L>, AtScale<Sum<Part<T>>, Path::Zero>>();
    walkImages({roiSize, channels<L> * partCount<T>, TeamRule::alone()}, kernel, 0, dst, unread, unread);
    return ZorOk;
  } else {
    return fillRegion<L>(Bits<T>(0), reinterpret_cast<Bits<T>*>(pDst), dstStep, roiSize);
  }
}

// ---- Two images ----

template <template <class> class Operation, class T, Layout L>
ZORI_ONE_COPY ZorStatus scaledImages(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                                     ZorImgSize roiSize, int scaleFactor)
{
  ZorStatus s;
  if constexpr (isComplex<T>)
    s = firstFailure(nonNull(pSrc1, pSrc2, pDst), nonEmpty(roiSize), positive(src1Step, src2Step, dstStep));
  else if constexpr (L == C3 || L == C4) // the C1 form of a wider region, behind a test of the height
    s = firstFailure(positiveSize(roiSize.height), nonNull(pSrc1, pSrc2, pDst), positiveSize(roiSize.width));
  else s = firstFailure(nonNull(pSrc1, pSrc2, pDst), nonEmpty(roiSize));
  if (s != ZorOk) return s;

  const Path path = pathOf<Operation, T>(scaleFactor);
  if constexpr (isInt<Part<T>>)
    if (path == Path::Zero) return zeroImage<T, L>(pDst, dstStep, roiSize);

  constexpr bool mayShare = !isComplex<T> && !std::is_same_v<T, Zor16u> && L != AC4;
  Rows a = partRows(pSrc1, src1Step), b = partRows(pSrc2, src2Step);
  if (std::is_same_v<Operation<T>, Difference<T>>) std::swap(a, b); // the first image is subtracted
  walkImages(walkOf<T>(roiSize, channels<L>, dstStep, mayShare),
             kernelOf<Operand::Image, shapeOf<T, L>, typename OnParts<Operation, T>::Type>(path),
             shiftOf<T>(path, scaleFactor), partRows(pDst, dstStep), a, b);
  return ZorOk;
}

// ---- An image and a constant ----

template <template <class> class Operation, class T, Layout L>
ZORI_ONE_COPY ZorStatus scaledConstant(const T* pSrc, int srcStep, const T* value, T* pDst, int dstStep,
                                       ZorImgSize roiSize, int scaleFactor)
{
  if (auto s = firstFailure(nonNull(pSrc, value, pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  if constexpr (isComplex<T>)
    if (auto s = positive(srcStep, dstStep); s != ZorOk) return s;

  const Path path = pathOf<Operation, T>(scaleFactor);
  constexpr int valueParts = processed<L> * partCount<T>, parts = channels<L> * partCount<T>;
  Part<T> constant[parts] = {}; // the fourth of AC4 is not used
  std::memcpy(constant, value, valueParts * sizeof(Part<T>));

  if constexpr (isInt<Part<T>>) { // what needs no arithmetic
    constexpr bool isSum = std::is_same_v<Operation<T>, Sum<T>>, isProduct = std::is_same_v<Operation<T>, Product<T>>;
    const auto isEvery = [&](int number) {
      for (int i = 0; i < valueParts; ++i)
        if (constant[i] != (i % partCount<T> ? 0 : number)) return false;
      return true;
    };
    const bool hasZero = std::find(constant, constant + valueParts, 0) != constant + valueParts;
    if (path == Path::Zero || (isProduct && isEvery(0))) return zeroImage<T, L>(pDst, dstStep, roiSize);
    if (path == Path::Plain && isEvery(isProduct ? 1 : 0)) {
      if (pSrc == pDst && srcStep == dstStep) return ZorOk;
      if constexpr (!std::is_same_v<T, Zor32sc>)
        return copyRegion<L>(reinterpret_cast<const Bits<T>*>(pSrc), srcStep, reinterpret_cast<Bits<T>*>(pDst), dstStep,
                             roiSize);
    }
    if constexpr (isSum && !isSigned<Part<T>>)
      if (path == Path::Bound && !hasZero) return fillRegion<L>(T(-1), pDst, dstStep, roiSize); // the greatest value
  }

  constexpr bool mayBeShared = !isComplex<T> && !std::is_same_v<T, Zor16u> && (L == C1 || L == C3);
  const bool mayShare = mayBeShared && (L == C1 || path != Path::Plain);
  walkConstant(walkOf<T>(roiSize, channels<L>, dstStep, mayShare),
               kernelOf<Operand::Constant, shapeOf<T, L>, typename OnParts<Operation, T>::Type>(path),
               shiftOf<T>(path, scaleFactor), partRows(pDst, dstStep), partRows(pSrc, srcStep),
               Pattern<Part<T>>(constant, parts));
  return ZorOk;
}

} // namespace zori
