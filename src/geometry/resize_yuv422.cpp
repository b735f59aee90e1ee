// zoriResizeYUV422_8u_C2R: luma and chroma of Y0 U Y1 V, each on a grid of its own.
//
// The rows that the region needs are taken apart into three planes, the planes resized as images of one channel, and
// the results put together. The region's first byte stands at y * srcStep + x * 4: four bytes for each unit of x.
#include "frame/checks.h"
#include "frame/memory.h"
#include "frame/numeric_mode.h"
#include "resize_driver.h"
#include "resize_super.h"
#include "rowkernels/drivers.h"
#include "zori/geometry.h"

#include <algorithm>
#include <climits>

namespace zori {
namespace {

using namespace resize;

constexpr long long reach = 3; // pixels around the region that any interpolation may read

// Macro-pixels of a row to planes, and back.
void takeApart(const Zor8u* row, std::ptrdiff_t macros, Zor8u* luma, Zor8u* u, Zor8u* v)
{
  std::ptrdiff_t i = 0;
  if constexpr (Vec<Zor8u>::size == 16) {
    const auto low = splat<Zor16u>(0xff);
    for (; i + 16 <= macros; i += 16) {
      Vec<Zor8u> chroma[2];
      for (int half = 0; half < 2; ++half) {
        const auto a = load<Zor16u>(row + 4 * i + 32 * half), b = load<Zor16u>(row + 4 * i + 32 * half + 16);
        store(luma + 2 * i + 16 * half, narrowSat<Zor8u>(as<Zor16s>(a & low), as<Zor16s>(b & low)));
        chroma[half] = narrowSat<Zor8u>(as<Zor16s>(shiftRight<8>(a)), as<Zor16s>(shiftRight<8>(b)));
      }
      const auto a = as<Zor16u>(chroma[0]), b = as<Zor16u>(chroma[1]);
      store(u + i, narrowSat<Zor8u>(as<Zor16s>(a & low), as<Zor16s>(b & low)));
      store(v + i, narrowSat<Zor8u>(as<Zor16s>(shiftRight<8>(a)), as<Zor16s>(shiftRight<8>(b))));
    }
  }
  for (; i < macros; ++i) {
    luma[2 * i] = row[4 * i];
    u[i] = row[4 * i + 1];
    luma[2 * i + 1] = row[4 * i + 2];
    v[i] = row[4 * i + 3];
  }
}

void putTogether(const Zor8u* luma, const Zor8u* u, const Zor8u* v, std::ptrdiff_t macros, Zor8u* row)
{
  std::ptrdiff_t i = 0;
  if constexpr (Vec<Zor8u>::size == 16) {
    for (; i + 16 <= macros; i += 16) {
      const auto a = load<Zor8u>(u + i), b = load<Zor8u>(v + i);
      const Vec<Zor8u> chroma[2] = {interleaveLow(a, b), interleaveHigh(a, b)};
      for (int half = 0; half < 2; ++half) {
        const auto y = load<Zor8u>(luma + 2 * i + 16 * half);
        store(row + 4 * i + 32 * half, interleaveLow(y, chroma[half]));
        store(row + 4 * i + 32 * half + 16, interleaveHigh(y, chroma[half]));
      }
    }
  }
  for (; i < macros; ++i) {
    row[4 * i] = luma[2 * i];
    row[4 * i + 1] = u[i];
    row[4 * i + 2] = luma[2 * i + 1];
    row[4 * i + 3] = v[i];
  }
}

int interpolationFor422(int interpolation, ZorImgSize size)
{
  if (interpolation == ZORI_INTER_CUBIC && !(size.width >= 8 && size.height >= 4)) interpolation = ZORI_INTER_LINEAR;
  return size.width >= 4 && size.height >= 2 ? interpolation : static_cast<int>(ZORI_INTER_NN);
}

struct Call422 {
  const Zor8u* pSrc;
  ZorImgSize srcSize;
  int srcStep;
  ZorImgRect roi;
  Zor8u* pDst;
  int dstStep;
  ZorImgSize dstSize;
  double xFactor, yFactor;
  int interpolation;
};

ZorStatus checked(const Call422& c)
{
  const bool isSuper = c.interpolation == ZORI_INTER_SUPER;
  return firstFailure(
    nonNull(c.pSrc, c.pDst), nonEmpty(c.srcSize),
    require(c.roi.width >= 1 && c.roi.height >= 1 && c.roi.x >= 0 && c.roi.y >= 0, ZorErrSize),
    require(c.roi.x < c.srcSize.width && c.roi.y < c.srcSize.height, ZorWarnNoRoiIntersect), nonEmpty(c.dstSize),
    require(c.srcSize.width % 2 == 0 && c.roi.width % 2 == 0 && c.roi.x % 2 == 0 && c.dstSize.width >= 2, ZorErrSize),
    require(c.xFactor > 0 && c.yFactor > 0, ZorErrResizeFactor),
    require(c.interpolation == ZORI_INTER_NN || c.interpolation == ZORI_INTER_LINEAR ||
              c.interpolation == ZORI_INTER_CUBIC || isSuper,
            ZorErrInterpolation));
}

// Macro-pixels of the result, and how many of the region's they reach over: positions grow to twice its width when the
// result is short of a pair.
ZorStatus macrosOf(const Call422& c, int width, int& macros, int& reached)
{
  const double exact = width * c.xFactor + 1e-7;
  if (exact < 1.5) return ZorErrSubsample;
  reached = exact < 2 ? width : width / 2;
  const int n = exact >= c.dstSize.width ? c.dstSize.width : std::max(static_cast<int>(exact), 2);
  macros = n / 2;
  return ZorOk;
}

[[gnu::noinline]] ZorStatus resize422(const Call422& c)
{
  if (auto s = checked(c); s != ZorOk) return s;
  const int width = std::min(c.roi.width, c.srcSize.width - c.roi.x);
  Axis rows = {c.srcSize.height, c.roi.y, c.roi.height, c.dstSize.height};
  rows.cut();
  int macros = 0, reached = 0;
  if (auto s = firstFailure(macrosOf(c, width, macros, reached), countByFactor(rows, c.yFactor)); s != ZorOk) return s;
  const bool isSuper = c.interpolation == ZORI_INTER_SUPER;
  if (isSuper && !(c.xFactor <= 1.0 && c.yFactor <= 1.0)) return ZorErrResizeFactor;

  // Source rows and macro-pixels that may be read. A region that begins beyond its row has the row's last pixel.
  const int lastMacro = c.srcSize.width / 2 - 1;
  const int top = static_cast<int>(std::max<long long>(rows.first - reach, 0)),
            bottom = static_cast<int>(std::min<long long>(1LL * rows.first + rows.length + reach, rows.image));
  const int left = static_cast<int>(std::clamp<long long>(c.roi.x - reach, 0, std::max(lastMacro - reach, 0LL))),
            right = static_cast<int>(std::min<long long>(c.roi.x + reached + reach, lastMacro + 1LL));
  const long long sourceMacros = right - left, sourceRows = bottom - top;

  // An own image of each plane: luma, then U, then V, with every row the macro-pixels 4 bytes.
  BlockPlan plan;
  const bool fits = sourceMacros * sourceRows < PTRDIFF_MAX / 16 && 1LL * macros * rows.count < PTRDIFF_MAX / 16;
  if (!fits || sourceMacros > INT_MAX / 4 || macros > INT_MAX / 4) return ZorErrAlloc;
  const auto source = plan.add<Zor8u>(sourceMacros * 4 * sourceRows),
             result = plan.add<Zor8u>(4LL * macros * rows.count);
  Scratch<Zor8u> block(plan.bytes());
  if (!block) return ZorErrAlloc;
  const int sourceStep = static_cast<int>(4 * sourceMacros), resultStep = 4 * macros;
  Zor8u *const from = source.in(block.get()), *const to = result.in(block.get());
  for (int y = 0; y < sourceRows; ++y) {
    Zor8u* const row = rowAt(from, sourceStep, y);
    takeApart(rowAt(c.pSrc, c.srcStep, top + y) + 4LL * left, static_cast<std::ptrdiff_t>(sourceMacros), row,
              row + 2 * sourceMacros, row + 3 * sourceMacros);
  }

  const int interpolation = interpolationFor422(c.interpolation, c.srcSize);
  const bool isNearest = interpolation == ZORI_INTER_NN;
  Axis y = {static_cast<int>(sourceRows), rows.first - top, rows.length, c.dstSize.height, rows.count};
  place(y, isNearest, stepOfFactor(y, c.yFactor, isNearest), 0);
  for (int plane = 0; plane < 3; ++plane) {
    const int each = plane == 0 ? 2 : 1; // samples a macro-pixel
    const std::ptrdiff_t part = plane == 0 ? 0 : plane + 1;
    const Images images = {
      Element::U8,          1,          false,     1, {from + part * static_cast<std::ptrdiff_t>(sourceMacros)},
      {to + part * macros}, sourceStep, resultStep};
    Axis x = {static_cast<int>(sourceMacros) * each, (c.roi.x - left) * each, width / 2 * each, macros * each,
              macros * each};
    if (isSuper) {
      // pixels beyond the row are its last
      const int length = std::max(1, std::min(x.length, x.image - x.first)), first = std::min(x.first, x.image - 1);
      if (auto s = supersample(images, CoverSweep(first, length, 1 / c.xFactor), x.count,
                               CoverSweep(y.first, y.length, 1 / c.yFactor), y.count, c.xFactor * c.yFactor);
          s != ZorOk)
        return s;
      continue;
    }
    place(x, isNearest, stepOfFactor(x, c.xFactor, isNearest), 0);
    if (auto s = interpolate(images, x, y, interpolation); s != ZorOk) return s;
  }
  for (int k = 0; k < rows.count; ++k) {
    const Zor8u* const row = rowAt(to, resultStep, k);
    putTogether(row, row + 2 * static_cast<std::ptrdiff_t>(macros), row + 3 * static_cast<std::ptrdiff_t>(macros),
                macros, rowAt(c.pDst, c.dstStep, k));
  }
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriResizeYUV422_8u_C2R(const Zor8u* pSrc, ZorImgSize srcSize, int srcStep, ZorImgRect srcRoi, Zor8u* pDst,
                                  int dstStep, ZorImgSize dstRoiSize, double xFactor, double yFactor, int interpolation)
{
  const RoundingScope nearest(Rounding::Nearest);
  return resize422({pSrc, srcSize, srcStep, srcRoi, pDst, dstStep, dstRoiSize, xFactor, yFactor, interpolation});
}
