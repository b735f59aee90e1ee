// zoriLn_{8u,16u,16s}_{C1,C3}{R,IR}Sfs, zoriLn_32f_{C1,C3}{R,IR}: natural logarithm.
//
// Integers: ln(x) * 2^-scaleFactor to the nearest integer, saturated. Ties, which would go upward, do not occur: the
// logarithm of an integer above 1 is irrational, and none comes as near to a tie as the error of double precision.
// Zero gives 0 in 8u and 16u; zero and negative samples give -32768 in 16s.
#include "frame/checks.h"
#include "frame/memory.h"
#include "frame/numeric_mode.h"
#include "rowkernels/convert.h"
#include "rowkernels/exp_log.h"
#include "rowkernels/lookup.h"
#include "walk/map.h"
#include "zori/arith.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zori {
namespace {

// Single precision tells the integer, unless the scaled logarithm is so near to a tie that its error might matter: then
// the group is formed in double precision. The logarithm of 1 is exact.
template <class T> struct IntegerLn {
  static constexpr Zor32f greatestError = 0x1p-19f, beyondAnyType = 70000.0f;
  Zor64f factor;

  Group<T> operator()(const Group<T>& x) const
  {
    constexpr int parts = Group<Zor32f>::parts;
    Group<Zor32f> numbers = Converted<Zor32f>{}(x), logarithms;
    explog::Parts split[parts];
    for (int k = 0; k < parts; ++k) {
      numbers.part[k] = max(numbers.part[k], Vec<Zor32f>(explog::constants.one));
      split[k] = explog::Parts(numbers.part[k]);
    }
    explog::logarithms<parts>(logarithms.part, split);
    const Zor32f scale = static_cast<Zor32f>(factor);
    const Vec<Zor32f> sure = splat(std::max(0.5f - greatestError * scale, 0.0f));
    Group<Zor32s> integers;
    Vec<Zor32f> doubtful = splat(0.0f);
    for (int k = 0; k < parts; ++k) {
      const Vec<Zor32f> scaled = min(logarithms.part[k] * splat(scale), splat(beyondAnyType));
      integers.part[k] = toInt(scaled);
      doubtful = doubtful | greater(abs(scaled - toFloat(integers.part[k])), sure);
    }
    if (__builtin_expect(moveMask(doubtful), 0)) integers = integerLogarithm(numbers, factor);
    Group<T> result = Converted<T>{}(integers);
    if constexpr (isSigned<T>)
      for (int k = 0; k < x.parts; ++k)
        result.part[k] = select(greater(x.part[k], zero<T>()), result.part[k], splat(std::numeric_limits<T>::min()));
    return result;
  }
};

// The status of the first sample that has no logarithm.
template <class T> ZorStatus firstWarning(const T* row, std::ptrdiff_t length)
{
  const UpperHalvesCleared atTheEnd;
  constexpr std::ptrdiff_t lanes = Vec<T>::size;
  const auto marks = [=](std::ptrdiff_t i) {
    const Vec<T> x = load<T>(row + i);
    return isSigned<T> ? greater(splat(T(1)), x) : equal(x, zero<T>());
  };
  if (length >= lanes) {
    Vec<T> any = marks(length - lanes);
    for (std::ptrdiff_t i = 0; i + lanes <= length; i += lanes) any = any | marks(i);
    if (!moveMask(any)) return ZorOk;
  }
  for (std::ptrdiff_t i = 0; i < length; ++i)
    if (const T x = get<T>(row + i); x <= 0) return x == 0 ? ZorWarnLnZeroArg : ZorWarnLnNegArg;
  return ZorOk;
}

// kernel(dst, length, src) on every row, and the first warning in the order of the rows and from left to right. A piece
// of a row is searched before it may be overwritten in place.
template <class T, class Kernel>
ZorStatus mapRows(ZorImgSize roi, std::ptrdiff_t length, Rows<T> dst, Rows<const T> src, Kernel kernel)
{
  constexpr std::ptrdiff_t piece = 8192 / sizeof(T);
  ZorStatus status = ZorOk;
  for (int y = 0; y < roi.height; ++y)
    for (std::ptrdiff_t i = 0; i < length; i += piece) {
      const std::ptrdiff_t count = std::min(piece, length - i);
      if (status == ZorOk) status = firstWarning(src[y] + i, count);
      kernel(dst[y] + i, count, src[y] + i);
    }
  return status;
}

// Beyond these scales every result is 0, or a bound for whatever is above 1.
constexpr int greatestScale = 8, leastScale = -20;

template <class T>
ZorStatus integerRows(ZorImgSize roi, std::ptrdiff_t length, Rows<T> dst, Rows<const T> src, int scaleFactor)
{
  const int scale = scaleFactor > greatestScale ? greatestScale : scaleFactor < leastScale ? leastScale : scaleFactor;
  const IntegerLn<T> op{std::ldexp(1.0, -scale)};
  constexpr int least = std::numeric_limits<T>::min(), values = 1 << 8 * sizeof(T);
  if (static_cast<long long>(length) * roi.height >= 4 * values) { // the logarithms of all samples pay
    Scratch<T> table(values);
    for (int i = 0; table && i < values; ++i) table[i] = static_cast<T>(least + i);
    if (table) {
      mapGroups(table.get(), values, op, static_cast<const T*>(table.get()));
      const T* const tables[1] = {table.get() - least};
      return mapRows(roi, length, dst, src, [&](T* to, std::ptrdiff_t count, const T* from) {
        lookUpRow(from, to, count, tables, WholeSample{}, AlikePixels<C1>{});
      });
    }
  }
  return mapRows(roi, length, dst, src,
                 [=](T* to, std::ptrdiff_t count, const T* from) { mapGroups(to, count, op, from); });
}

struct FloatLn {
  bool* special;
  Group<Zor32f> operator()(const Group<Zor32f>& x) const { return logarithm(x, *special); }
};

// What the first result of a sample without a logarithm tells: minus infinity is that of zero, and a NaN with its sign
// set, whose bits are greater, that of a negative sample.
ZorStatus firstWarningOfResults(const Zor32f* row, std::ptrdiff_t length)
{
  constexpr Zor32u minusInfinity = 0xff800000u;
  for (std::ptrdiff_t i = 0; i < length; ++i)
    if (const Zor32u bits = get<Zor32u>(row + i); bits >= minusInfinity)
      return bits == minusInfinity ? ZorWarnLnZeroArg : ZorWarnLnNegArg;
  return ZorOk;
}

ZorStatus floatRows(ZorImgSize roi, std::ptrdiff_t length, Rows<Zor32f> dst, Rows<const Zor32f> src)
{
  ZorStatus status = ZorOk;
  for (int y = 0; y < roi.height; ++y) {
    bool special = false;
    mapGroups(dst[y], length, FloatLn{&special}, src[y]);
    if (special && status == ZorOk) status = firstWarningOfResults(dst[y], length);
  }
  return status;
}

template <class T, Layout L>
ZorStatus lnRegion(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, int scaleFactor = 0)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk) return s;
  const Rows<T> dst{pDst, dstStep};
  const Rows<const T> src{pSrc, srcStep};
  const std::ptrdiff_t length = static_cast<std::ptrdiff_t>(roiSize.width) * channels<L>;
  return underRounding(Rounding::Nearest, [&] {
    if constexpr (isInt<T>) return integerRows(roiSize, length, dst, src, scaleFactor);
    else return floatRows(roiSize, length, dst, src);
  });
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout)                                                                                         \
  ZorStatus zoriLn_##type##_##layout##RSfs(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,        \
                                           ZorImgSize roiSize, int scaleFactor)                                     \
  { return lnRegion<Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize, scaleFactor); }                       \
  ZorStatus zoriLn_##type##_##layout##IRSfs(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize, int scaleFactor) \
  { return lnRegion<Zor##type, layout>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, scaleFactor); }
STAMP(8u, C1) STAMP(8u, C3) STAMP(16u, C1) STAMP(16u, C3) STAMP(16s, C1) STAMP(16s, C3)
#undef STAMP

#define STAMP(layout)                                                                                               \
  ZorStatus zoriLn_32f_##layout##R(const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep, ZorImgSize roiSize)  \
  { return lnRegion<Zor32f, layout>(pSrc, srcStep, pDst, dstStep, roiSize); }                                       \
  ZorStatus zoriLn_32f_##layout##IR(Zor32f* pSrcDst, int srcDstStep, ZorImgSize roiSize)                            \
  { return lnRegion<Zor32f, layout>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }
STAMP(C1) STAMP(C3)
#undef STAMP
