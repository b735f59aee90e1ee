// zoriSumWindowRow_{8u,16u,16s}32f_{C1,C3,C4}R, zoriSumWindowColumn_{8u,16u,16s}32f_{C1,C3,C4}R: sums over a window
// along the row or down the column, as floats.
//
// The sums are defined as running sums in single precision: add the samples of the first window, then what enters less
// what leaves. Along the row they are formed in integers wherever these give the same, which is as long as no sum can
// reach beyond 2^24.
#include "window_sum.h"
#include "box_sums.h"

#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/memory.h"
#include "frame/numeric_mode.h"
#include "zori/filter.h"

namespace zori {
namespace box {

// ---- Along the row ----

template <class T> inline F32x4 floatLow(Vec<T> x)
{
  if constexpr (sizeof(T) == 4) return toFloat(as<int32_t>(x));
  else return floatLow(widenLow(x));
}
template <class T> inline F32x4 floatHigh(Vec<T> x) { return floatLow(widenHigh(x)); }

template <class SumType> struct ToFloat {
  using Sum = SumType;
  using Out = Zor32f;
  static constexpr int vectors = 1;
  void operator()(const Vec<Sum>* s, F32x4* out) const
  {
    out[0] = floatLow(s[0]);
    if constexpr (sizeof(Sum) == 2) out[1] = floatHigh(s[0]);
  }
};

using window::largestExactMask, window::largestShortMask;

template <class T, int CH> void floatSums(const T* src, Zor32f* dst, std::ptrdiff_t n, int mask)
{
  const std::ptrdiff_t span = static_cast<std::ptrdiff_t>(mask) * CH;
  for (int c = 0; c < CH; ++c) {
    Zor32f sum = 0;
    for (std::ptrdiff_t i = c; i < span; i += CH) sum += static_cast<Zor32f>(get<T>(src + i));
    for (std::ptrdiff_t i = c;; i += CH) {
      put(dst + i, sum);
      if (i + CH >= n) break;
      sum += static_cast<Zor32f>(get<T>(src + i + span) - get<T>(src + i));
    }
  }
}

template <class T, int CH> void rowWindowSums(Rows<const T> src, Rows<Zor32f> dst, ZorImgSize roi, int mask, int anchor)
{
  using Wide = std::conditional_t<isSigned<T>, int32_t, uint32_t>;
  const std::ptrdiff_t n = static_cast<std::ptrdiff_t>(roi.width) * CH;
  for (int y = 0; y < roi.height; ++y) {
    const T* const row = src[y] - static_cast<std::ptrdiff_t>(anchor) * CH;
    if (mask > largestExactMask<T>) floatSums<T, CH>(row, dst[y], n, mask);
    else if (sizeof(T) > 1 || mask > largestShortMask)
      runningSums<CH, false>(Exact<Wide, T>{row}, dst[y], n, mask, ToFloat<Wide>{});
    else if constexpr (sizeof(T) == 1)
      runningSums<CH, false>(Exact<uint16_t, T>{row}, dst[y], n, mask, ToFloat<uint16_t>{});
  }
}

// ---- Down the column ----

// sums[i] += Sum(entering[i] - leaving[i])
template <class Sum, class T> inline void addDifferences(Sum* sums, Vec<T> entering, Vec<T> leaving)
{
  const WidenedDifference<T> d(entering, leaving);
  const auto add = [](Zor32f* p, F32x4 x) { storeAligned(p, loadAligned<Zor32f>(p) + x); };
  if constexpr (isInt<Sum>) {
    addTo(sums, d.low);
    addTo(sums + Vec<T>::size / 2, d.high);
  } else if constexpr (sizeof(T) == 1) {
    add(sums, floatLow(d.low));
    add(sums + 4, floatHigh(d.low));
    add(sums + 8, floatLow(d.high));
    add(sums + 12, floatHigh(d.high));
  } else {
    add(sums, floatLow(d.low));
    add(sums + 4, floatLow(d.high));
  }
}

template <class Sum, class T>
ZORI_ONE_COPY void slideSums(Sum* sums, const T* entering, const T* leaving, std::ptrdiff_t n)
{
  eachBlock(
    sums, n, [](Sum* s, Vec<T> in, Vec<T> out) { addDifferences(s, in, out); }, entering, leaving);
}
template <class Sum, class T> ZORI_ONE_COPY void addToSums(Sum* sums, const T* row, std::ptrdiff_t n)
{
  eachBlock(
    sums, n, [](Sum* s, Vec<T> x) { addDifferences(s, x, zero<T>()); }, row);
}

struct IntToFloat {
  F32x4 operator()(Vec<int32_t> x) const { return toFloat(x); }
};

template <class Sum, class T, int CH>
ZorStatus sumColumns(Rows<const T> src, Rows<Zor32f> dst, ZorImgSize roi, int mask, int anchor)
{
  const long long elements = static_cast<long long>(roi.width) * CH;
  Scratch<Sum> sums(elements + Vec<T>::size);
  if (!sums) return ZorErrAlloc;
  const std::ptrdiff_t n = static_cast<std::ptrdiff_t>(elements);
  std::memset(sums.get(), 0, static_cast<std::size_t>(n + Vec<T>::size) * sizeof(Sum));
  for (int j = 0; j < mask; ++j) addToSums(sums.get(), src[std::ptrdiff_t{j} - anchor], n);
  for (int y = 0; y < roi.height; ++y) {
    if constexpr (isInt<Sum>) mapRow(dst[y], n, IntToFloat{}, static_cast<const Sum*>(sums.get()));
    else std::memcpy(dst[y], sums.get(), static_cast<std::size_t>(n) * sizeof(Sum));
    const std::ptrdiff_t leaving = std::ptrdiff_t{y} - anchor;
    if (y + 1 < roi.height) slideSums(sums.get(), src[leaving + mask], src[leaving], n);
  }
  return ZorOk;
}

// Words that go to aligned rows are summed in integers of 32 bits, all else in single precision.
template <class T, int CH>
ZorStatus columnWindowSums(Rows<const T> src, Rows<Zor32f> dst, ZorImgSize roi, int mask, int anchor)
{
  if constexpr (std::is_same_v<T, Zor16s>)
    if (isAligned(dst.first, 16) && dst.step % 16 == 0) return sumColumns<int32_t, T, CH>(src, dst, roi, mask, anchor);
  return sumColumns<Zor32f, T, CH>(src, dst, roi, mask, anchor);
}

// ---- Checks ----

enum class SizeCheck { None, First, Second }; // where the region is tested

inline ZorStatus windowStatus(SizeCheck check, const void* src, const void* dst, ZorImgSize roi, int mask, int anchor)
{
  return firstFailure(check == SizeCheck::First ? nonEmpty(roi) : ZorOk, nonNull(src, dst),
                      check == SizeCheck::Second ? nonEmpty(roi) : ZorOk, require(mask >= 1, ZorErrMaskSize),
                      require(anchor >= 0 && anchor < mask, ZorErrAnchor));
}

template <class T, Layout L>
ZorStatus sumWindowRow(SizeCheck check, const T* pSrc, int srcStep, Zor32f* pDst, int dstStep, ZorImgSize roiSize,
                       int maskSize, int anchor)
{
  if (auto s = windowStatus(check, pSrc, pDst, roiSize, maskSize, anchor); s != ZorOk) return s;
  if (nonEmpty(roiSize) != ZorOk) return ZorOk;
  return underRounding(Rounding::Nearest, [&] {
    rowWindowSums<T, channels<L>>({pSrc, srcStep}, {pDst, dstStep}, roiSize, maskSize, anchor);
    return ZorOk;
  });
}

template <class T, Layout L>
ZorStatus sumWindowColumn(SizeCheck check, const T* pSrc, int srcStep, Zor32f* pDst, int dstStep, ZorImgSize roiSize,
                          int maskSize, int anchor)
{
  if (auto s = windowStatus(check, pSrc, pDst, roiSize, maskSize, anchor); s != ZorOk) return s;
  if (nonEmpty(roiSize) != ZorOk) return ZorOk;
  return underRounding(Rounding::Nearest, [&] {
    return columnWindowSums<T, channels<L>>({pSrc, srcStep}, {pDst, dstStep}, roiSize, maskSize, anchor);
  });
}

} // namespace box
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(name, operation, type, layout, check)                                                                    \
  ZorStatus zoriSumWindow##name##_##type##32f_##layout##R(const Zor##type* pSrc, int srcStep, Zor32f* pDst, int dstStep,\
                                                          ZorImgSize roiSize, int maskSize, int anchor)                \
  {                                                                                                                    \
    return box::operation<Zor##type, layout>(box::SizeCheck::check, pSrc, srcStep, pDst, dstStep, roiSize, maskSize, anchor);\
  }
#define ROW(type, layout, check) STAMP(Row, sumWindowRow, type, layout, check)
#define COLUMN(type, layout, check) STAMP(Column, sumWindowColumn, type, layout, check)
ROW(8u, C1, None) ROW(8u, C3, None) ROW(8u, C4, None)
ROW(16u, C1, Second) ROW(16u, C3, Second) ROW(16u, C4, Second)
ROW(16s, C1, None) ROW(16s, C3, None) ROW(16s, C4, None)
COLUMN(8u, C1, None) COLUMN(8u, C3, None) COLUMN(8u, C4, None)
COLUMN(16u, C1, Second) COLUMN(16u, C3, Second) COLUMN(16u, C4, Second)
COLUMN(16s, C1, None) COLUMN(16s, C3, First) COLUMN(16s, C4, None)
#undef COLUMN
#undef ROW
#undef STAMP
