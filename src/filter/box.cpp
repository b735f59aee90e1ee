// zoriFilterBox_{8u,16u,16s,32f}_{C1,C3,C4,AC4}{R,IR}: the mean over a window.
//
// box_rule.h says which arithmetic a call gets, this file which path that takes: the types of the sums down the columns
// and along the rows are the narrowest that hold them.
#include "box_paths.h"
#include "frame/checks.h"
#include "walk/map.h"
#include "zori/filter.h"

#include <climits>

namespace zori {
namespace box {

template <class T, Layout L, bool InPlace> struct BoxFilter {
  static constexpr int CH = channels<L>;
  static constexpr bool keepAlpha = L == AC4 && !InPlace; // in place the way back into the image sees to it

  const Windows<T>& windows;
  Rows<T> dst;
  TeamRule team;

  template <class Path> ZorStatus run(const Path& path) const
  {
    return runPath<T, L, InPlace>(windows, dst, team, path);
  }
  template <class Col, class Finish> ZorStatus integers(const Rule& rule) const
  {
    return run(IntegerPath<T, Col, CH, keepAlpha, Finish>{rule});
  }

  ZorStatus bytes(const Rule& rule) const
  {
    const long long area = areaOf(windows.mask), largest = 65535 / 255;
    const bool shortColumns = windows.mask.height <= largest;
    if (rule.arithmetic == Arithmetic::FloatSum) {
      // while every sum is below 2^24, that of a window and a column too, running sums of floats are exact: these are
      // they
      if ((area + windows.mask.height) * 255 > 1 << 24) return run(FloatPath<T, CH, keepAlpha>{rule});
      return shortColumns ? integers<uint16_t, ByteTruncated>(rule) : integers<uint32_t, ByteTruncated>(rule);
    }
    if (rule.arithmetic == Arithmetic::Product || (area > 2 && area <= largest))
      return integers<uint16_t, HighProduct>(rule);
    return shortColumns ? integers<uint16_t, FullProduct>(rule) : integers<uint32_t, FullProduct>(rule);
  }

  ZorStatus words(const Rule& rule) const
  {
    if constexpr (sampleOf<T> == Sample::S16 && L == C4 && !InPlace)
      if (rule.arithmetic == Arithmetic::Truncated) return integers<uint32_t, WordQuotient<T, false, true>>(rule);
    if (areaOf(windows.mask) <= 32768) return integers<uint32_t, WordQuotient<T, false, false>>(rule); // below 2^31
    return integers<uint32_t, WordQuotient<T, true, false>>(rule);
  }

  ZorStatus filter(const Rule& rule) const
  {
    if constexpr (sampleOf<T> == Sample::U16 || sampleOf<T> == Sample::S16) return words(rule);
    else if constexpr (sampleOf<T> == Sample::U8) return bytes(rule);
    else {
      if constexpr (L == C4 && !InPlace)
        if (rule.arithmetic == Arithmetic::NineFloats) return run(NineFloatsPath<CH>{rule});
      return run(FloatPath<T, CH, keepAlpha>{rule});
    }
  }
};

inline ZorStatus maskStatus(ZorImgSize mask, ZorImgPoint anchor)
{
  const bool inside = anchor.x >= 0 && anchor.x < mask.width && anchor.y >= 0 && anchor.y < mask.height;
  return firstFailure(require(mask.width >= 1 && mask.height >= 1, ZorErrMaskSize), require(inside, ZorErrAnchor));
}

// In place with a mask at least as tall as the region: the rectangle that the windows cover is copied, and filtered
// from there as if it were another image, with the teams and the running sums of that.
template <class T, Layout L> ZorStatus throughCopy(const Windows<T>& w, Rows<T> dst, const Rule& rule)
{
  constexpr int CH = channels<L>;
  const long long rowBytes = w.columns(CH) * static_cast<long long>(sizeof(T)),
                  rows = w.roi.height + w.mask.height - 1LL;
  if (!fitsMemory(rowBytes) || rowBytes > INT_MAX || rows > PTRDIFF_MAX / 4 / rowBytes) return ZorErrAlloc;
  const Scratch<Zor8u> copy(rowBytes * rows);
  if (!copy) return ZorErrAlloc;
  const Windows<T> windows{{reinterpret_cast<const T*>(copy.get()), static_cast<int>(rowBytes)}, w.roi, w.mask, {0, 0}};
  for (std::ptrdiff_t y = 0; y < rows; ++y)
    std::memcpy(copy.get() + y * static_cast<std::ptrdiff_t>(rowBytes), w.template row<CH>(y),
                static_cast<std::size_t>(rowBytes));
  return BoxFilter<T, L, false>{windows, dst, teamRule(sampleOf<T>, L, false, rule, w.roi, CH)}.filter(rule);
}

template <class T, Layout L, bool InPlace>
ZorStatus filterByRule(Rows<const T> src, Rows<T> dst, ZorImgSize roiSize, ZorImgSize maskSize, ZorImgPoint anchor)
{
  const Rule rule = ruleOf(sampleOf<T>, L, InPlace, maskSize, roiSize.height);
  if (rule.arithmetic == Arithmetic::Copy) {
    if (!InPlace) mapRegion<L>(roiSize, Unchanged{}, dst, src);
    return ZorOk;
  }
  const Windows<T> windows{src, roiSize, maskSize, anchor};
  if constexpr (InPlace && sampleOf<T> != Sample::U16)
    if (maskSize.height >= roiSize.height) return throughCopy<T, L>(windows, dst, rule);
  return BoxFilter<T, L, InPlace>{windows, dst, teamRule(sampleOf<T>, L, InPlace, rule, roiSize, channels<L>)}.filter(
    rule);
}

template <class T, Layout L, bool InPlace>
ZorStatus filterBox(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, ZorImgSize maskSize,
                    ZorImgPoint anchor)
{
  if (auto s =
        firstFailure(nonNull(pSrc, pDst), positive(srcStep, dstStep), nonEmpty(roiSize), maskStatus(maskSize, anchor));
      s != ZorOk)
    return s;
  return underRounding(Rounding::Nearest, [&] {
    return filterByRule<T, L, InPlace>({pSrc, maskedStep<T>(srcStep)}, {pDst, maskedStep<T>(dstStep)}, roiSize,
                                       maskSize, anchor);
  });
}

} // namespace box
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout)                                                                                            \
  ZorStatus zoriFilterBox_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,       \
                                               ZorImgSize roiSize, ZorImgSize maskSize, ZorImgPoint anchor)            \
  { return box::filterBox<Zor##type, layout, false>(pSrc, srcStep, pDst, dstStep, roiSize, maskSize, anchor); }        \
  ZorStatus zoriFilterBox_##type##_##layout##IR(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize,                \
                                                ZorImgSize maskSize, ZorImgPoint anchor)                               \
  {                                                                                                                    \
    return box::filterBox<Zor##type, layout, true>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, maskSize, anchor);\
  }
#define STAMPS(type) STAMP(type, C1) STAMP(type, C3) STAMP(type, C4) STAMP(type, AC4)
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32f)
#undef STAMPS
#undef STAMP
