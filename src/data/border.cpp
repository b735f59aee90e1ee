// zoriCopyConstBorder_{8u,16u,16s,32s}_{C1,C3,C4,AC4}R, zoriCopyReplicateBorder_{8u,16u,16s,32s}_{C1,C3,C4,AC4}{R,IR},
// zoriCopyWrapBorder_32s_C1{R,IR}: a source rectangle inside a larger destination, and what is written around it.
//
// Each row of the rectangle is copied and gets its two margins; the rows above and below are fills, or copies of rows
// that are finished. In place the rectangle is in the destination already and is not written. AC4 writes three
// channels.
#include "frame/checks.h"
#include "region.h"
#include "rowkernels/copy.h"
#include "rowkernels/set.h"
#include "walk/map.h"
#include "zori/data.h"

#include <algorithm>

namespace zori {
namespace {

// The rectangle inside its frame.
struct Frame {
  ZorImgSize inner, outer;
  int top, left;
  int right() const { return outer.width - inner.width - left; }
  int bottom() const { return outer.height - inner.height - top; }
};

template <class... Step> static ZorStatus frameStatus(const void* src, const void* dst, const Frame& f, Step... steps)
{
  const bool fits = f.top >= 0 && f.left >= 0 && 1LL * f.left + f.inner.width <= f.outer.width &&
                    1LL * f.top + f.inner.height <= f.outer.height;
  return firstFailure(nonNull(src, dst), positive(steps...), nonEmpty(f.inner), nonEmpty(f.outer),
                      require(fits, ZorErrSize));
}

template <class T> struct Repeated {
  Vec<T> pixels;
  Vec<T> operator()() const { return pixels; }
};

// Runs of pixels of elements T.
template <class T, Layout L> struct Runs {
  static constexpr int pixelElements = channels<L>, pixelBytes = pixelElements * bytesOf<T>;

  static void copy(const T* src, T* dst, std::ptrdiff_t pixels, long long regionBytes)
  {
    if (src == dst) return;
    if constexpr (L == AC4) mapRowOf<AC4>(dst, pixels * pixelElements, Unchanged{}, src);
    else copyRow(reinterpret_cast<const Zor8u*>(src), reinterpret_cast<Zor8u*>(dst), pixels * pixelBytes, regionBytes);
  }

  // One pixel over and over.
  static void repeat(const T* pixel, T* dst, std::ptrdiff_t pixels)
  {
    if (pixels == 0) return;
    Zor8u* const to = reinterpret_cast<Zor8u*>(dst);
    const std::ptrdiff_t bytes = pixels * pixelBytes;
    if constexpr (16 % pixelBytes == 0) {
      alignas(16) T pattern[16 / sizeof(T)];
      for (int i = 0; i < 16; i += pixelBytes) std::memcpy(reinterpret_cast<Zor8u*>(pattern) + i, pixel, pixelBytes);
      const Vec<T> x = loadAligned<T>(pattern);
      if constexpr (L == AC4) {
        mapRow(dst, pixels * pixelElements, KeepFourth<Repeated<T>>{x}, const_cast<const T*>(dst));
      } else if (bytes < 16) {
        storePart(to, x, static_cast<std::size_t>(bytes));
      } else {
        for (std::ptrdiff_t i = 0; i + 16 <= bytes; i += 16) store(to + i, x);
        store(to + bytes - 16, x);
      }
    } else {
      const auto pattern = PixelPattern::of<pixelBytes>(pixel);
      if (ShortFill::holds(bytes)) ShortFill(pattern, bytes)(to);
      else fillRow(pattern, to, bytes, bytes);
    }
  }
};

// What fills both margins of all rows of a rectangle.
class MarginFill {
public:
  MarginFill(const PixelPattern& pattern, std::ptrdiff_t bytes)
    : pattern_(pattern), bytes_(bytes), isShort_(ShortFill::holds(bytes) && !pattern.isUniform()),
      short_(pattern, ShortFill::holds(bytes) ? bytes : 16)
  {}
  void operator()(Zor8u* to) const
  {
    if (isShort_) short_(to);
    else if (bytes_ != 0) fillRow(pattern_, to, bytes_, bytes_);
  }

private:
  const PixelPattern& pattern_;
  std::ptrdiff_t bytes_;
  bool isShort_;
  ShortFill short_;
};

// value: a number for each channel that is written.
template <class T, Layout L>
static void frameWithConstant(Rows<const T> src, Rows<T> dst, const Frame& f, const void* value)
{
  using Run = Runs<T, L>;
  T pixel[4] = {};
  std::memcpy(pixel, value, processed<L> * sizeof(T));
  const long long bytes = 1LL * f.outer.width * Run::pixelBytes * f.outer.height;
  const auto pattern = PixelPattern::of<Run::pixelBytes>(pixel);
  const MarginFill fillLeft(pattern, std::ptrdiff_t{f.left} * Run::pixelBytes),
    fillRight(pattern, std::ptrdiff_t{f.right()} * Run::pixelBytes);
  const auto margin = [&](T* p, std::ptrdiff_t pixels, const MarginFill& fill) {
    if constexpr (L == AC4) Run::repeat(pixel, p, pixels);
    else fill(reinterpret_cast<Zor8u*>(p));
  };
  for (int y = 0; y < f.outer.height; ++y) {
    T* const row = dst[y];
    if (y < f.top || y >= f.top + f.inner.height) {
      if constexpr (L == AC4) Run::repeat(pixel, row, f.outer.width);
      else fillRow(pattern, reinterpret_cast<Zor8u*>(row), std::ptrdiff_t{f.outer.width} * Run::pixelBytes, bytes);
    } else {
      T* const inner = row + std::ptrdiff_t{f.left} * Run::pixelElements;
      margin(row, f.left, fillLeft);
      Run::copy(src[y - f.top], inner, f.inner.width, bytes);
      margin(inner + std::ptrdiff_t{f.inner.width} * Run::pixelElements, f.right(), fillRight);
    }
  }
}

template <class T, Layout L> static void frameWithEdges(Rows<const T> src, Rows<T> dst, const Frame& f)
{
  using Run = Runs<T, L>;
  const long long bytes = 1LL * f.outer.width * Run::pixelBytes * f.outer.height;
  for (int y = 0; y < f.inner.height; ++y) {
    T* const row = dst[f.top + y];
    T* const inner = row + std::ptrdiff_t{f.left} * Run::pixelElements;
    T* const right = inner + std::ptrdiff_t{f.inner.width} * Run::pixelElements;
    Run::copy(src[y], inner, f.inner.width, bytes);
    Run::repeat(inner, row, f.left);
    Run::repeat(right - Run::pixelElements, right, f.right());
    // the rows that repeat this one, while it is in the cache
    const int above = y == 0 ? f.top : 0, below = y == f.inner.height - 1 ? f.bottom() : 0;
    for (int i = 0; i < above; ++i) Run::copy(row, dst[i], f.outer.width, bytes);
    for (int i = 1; i <= below; ++i) Run::copy(row, dst[f.top + y + i], f.outer.width, bytes);
  }
}

template <class T> static void frameWithTiles(Rows<const T> src, Rows<T> dst, const Frame& f)
{
  using Run = Runs<T, C1>;
  const long long bytes = 1LL * f.outer.width * Run::pixelBytes * f.outer.height;
  for (int y = 0; y < f.inner.height; ++y) {
    T* const inner = dst[f.top + y] + f.left;
    Run::copy(src[y], inner, f.inner.width, bytes);
    // what is there is whole tiles, and each copy doubles it
    for (std::ptrdiff_t done = 0, tiles = f.inner.width; done < f.right(); tiles *= 2) {
      const std::ptrdiff_t count = std::min(tiles, f.right() - done);
      Run::copy(inner, inner + f.inner.width + done, count, bytes);
      done += count;
    }
    for (std::ptrdiff_t done = 0, tiles = f.inner.width; done < f.left; tiles *= 2) {
      const std::ptrdiff_t count = std::min(tiles, f.left - done);
      Run::copy(inner + f.inner.width - count, inner - done - count, count, bytes);
      done += count;
    }
  }
  for (int y = f.top + f.inner.height; y < f.outer.height; ++y)
    Run::copy(dst[y - f.inner.height], dst[y], f.outer.width, bytes);
  for (int y = f.top - 1; y >= 0; --y) Run::copy(dst[y + f.inner.height], dst[y], f.outer.width, bytes);
}

// The first pixel of the frame around a rectangle in the same image.
template <int PixelElements, class T> static T* frameStart(T* inner, int step, const Frame& f)
{
  return rowAt(inner, step, -f.top) - std::ptrdiff_t{f.left} * PixelElements;
}

template <class T, Layout L>
ZorStatus constBorder(const T* pSrc, int srcStep, ZorImgSize srcRoiSize, T* pDst, int dstStep, ZorImgSize dstRoiSize,
                      int topBorderHeight, int leftBorderWidth, const T* value)
{
  const Frame f{srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth};
  if (auto s = firstFailure(frameStatus(pSrc, pDst, f, srcStep, dstStep), nonNull(value)); s != ZorOk) return s;
  frameWithConstant<Raw<T>, L>({raw(pSrc), srcStep}, {raw(pDst), dstStep}, f, value);
  return ZorOk;
}

template <class T, Layout L>
ZorStatus replicateBorder(const T* pSrc, int srcStep, ZorImgSize srcRoiSize, T* pDst, int dstStep,
                          ZorImgSize dstRoiSize, int topBorderHeight, int leftBorderWidth)
{
  const Frame f{srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth};
  if (auto s = frameStatus(pSrc, pDst, f, srcStep, dstStep); s != ZorOk) return s;
  frameWithEdges<Raw<T>, L>({raw(pSrc), srcStep}, {raw(pDst), dstStep}, f);
  return ZorOk;
}

template <class T, Layout L>
ZorStatus replicateBorderInPlace(T* pSrcDst, int srcDstStep, ZorImgSize srcRoiSize, ZorImgSize dstRoiSize,
                                 int topBorderHeight, int leftBorderWidth)
{
  const Frame f{srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth};
  if (auto s = frameStatus(pSrcDst, pSrcDst, f, srcDstStep); s != ZorOk) return s;
  frameWithEdges<Raw<T>, L>({raw(pSrcDst), srcDstStep},
                            {frameStart<channels<L>>(raw(pSrcDst), srcDstStep, f), srcDstStep}, f);
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriCopyWrapBorder_32s_C1R(const Zor32s* pSrc, int srcStep, ZorImgSize srcRoiSize, Zor32s* pDst, int dstStep,
                                     ZorImgSize dstRoiSize, int topBorderHeight, int leftBorderWidth)
{
  const Frame f{srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth};
  if (auto s = frameStatus(pSrc, pDst, f, srcStep, dstStep); s != ZorOk) return s;
  frameWithTiles<Zor32s>({pSrc, srcStep}, {pDst, dstStep}, f);
  return ZorOk;
}

ZorStatus zoriCopyWrapBorder_32s_C1IR(Zor32s* pSrcDst, int srcDstStep, ZorImgSize srcRoiSize, ZorImgSize dstRoiSize,
                                      int topBorderHeight, int leftBorderWidth)
{
  const Frame f{srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth};
  if (auto s = frameStatus(pSrcDst, pSrcDst, f, srcDstStep); s != ZorOk) return s;
  frameWithTiles<Zor32s>({pSrcDst, srcDstStep}, {frameStart<1>(pSrcDst, srcDstStep, f), srcDstStep}, f);
  return ZorOk;
}

// clang-format off
#define PARAMETERS ZorImgSize dstRoiSize, int topBorderHeight, int leftBorderWidth
#define ARGUMENTS dstRoiSize, topBorderHeight, leftBorderWidth
#define STAMP_CONST(type, layout, parameter, argument)                                                                \
  ZorStatus zoriCopyConstBorder_##type##_##layout##R(const Zor##type* pSrc, int srcStep, ZorImgSize srcRoiSize,       \
                                                     Zor##type* pDst, int dstStep, PARAMETERS, parameter)             \
  { return constBorder<Zor##type, layout>(pSrc, srcStep, srcRoiSize, pDst, dstStep, ARGUMENTS, argument); }
#define STAMP_REPLICATE(type, layout)                                                                                 \
  ZorStatus zoriCopyReplicateBorder_##type##_##layout##R(const Zor##type* pSrc, int srcStep, ZorImgSize srcRoiSize,   \
                                                         Zor##type* pDst, int dstStep, PARAMETERS)                    \
  { return replicateBorder<Zor##type, layout>(pSrc, srcStep, srcRoiSize, pDst, dstStep, ARGUMENTS); }                 \
  ZorStatus zoriCopyReplicateBorder_##type##_##layout##IR(Zor##type* pSrcDst, int srcDstStep, ZorImgSize srcRoiSize,  \
                                                          PARAMETERS)                                                 \
  { return replicateBorderInPlace<Zor##type, layout>(pSrcDst, srcDstStep, srcRoiSize, ARGUMENTS); }
#define STAMPS(type)                                                                                                  \
  STAMP_CONST(type, C1, Zor##type value, &value) STAMP_CONST(type, C3, const Zor##type value[3], value)               \
  STAMP_CONST(type, C4, const Zor##type value[4], value) STAMP_CONST(type, AC4, const Zor##type value[3], value)      \
  STAMP_REPLICATE(type, C1) STAMP_REPLICATE(type, C3) STAMP_REPLICATE(type, C4) STAMP_REPLICATE(type, AC4)
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32s)
#undef STAMPS
#undef STAMP_REPLICATE
#undef STAMP_CONST
#undef ARGUMENTS
#undef PARAMETERS
