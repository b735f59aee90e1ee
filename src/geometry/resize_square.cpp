// zoriResizeSqrPixel_{8u,16u,16s,32f}_{C1,C3,C4,AC4,P3,P4}R and the two queries of its work memory.
//
// Pixels are squares: destination pixel x' is the source at (x' + 0.5 - shift) / factor - 0.5, and those are written
// whose centre lies in the image of the region. Tables and rows of sums lie in the caller's buffer; supersampling needs
// none.
#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "resize_driver.h"
#include "resize_super.h"
#include "zori/geometry.h"

#include <climits>
#include <cmath>

namespace zori {
namespace {

using namespace resize;

bool isRect(ZorImgRect r) { return r.x >= 0 && r.y >= 0 && r.width >= 1 && r.height >= 1; }

Taps squareTaps(int interpolation, Element element)
{
  switch (interpolation) {
  case ZORI_INTER_CUBIC:
  case ZORI_INTER_CUBIC2P_A:
  case ZORI_INTER_CUBIC2P_B:
  case ZORI_INTER_CUBIC2P_C: return Taps::Weights4;
  default: return tapsFor(interpolation, element);
  }
}

float splineShare(int interpolation)
{
  return interpolation == ZORI_INTER_CUBIC2P_B ? 1 : interpolation == ZORI_INTER_CUBIC2P_C ? 0.5f : 0;
}

ZorStatus interpolationStatus(int i)
{
  const bool isKnown = i == ZORI_INTER_NN || i == ZORI_INTER_LINEAR || i == ZORI_INTER_CUBIC ||
                       i == ZORI_INTER_CUBIC2P_A || i == ZORI_INTER_CUBIC2P_B || i == ZORI_INTER_CUBIC2P_C ||
                       i == ZORI_INTER_LANCZOS;
  return require(isKnown, ZorErrInterpolation);
}
ZorStatus factorStatus(double x, double y) { return require(x > 0 && y > 0, ZorErrResizeFactor); }
ZorStatus superStatus(double x, double y, int interpolation)
{
  return interpolation == ZORI_INTER_SUPER ? require(x <= 1.0 && y <= 1.0, ZorErrResizeFactor)
                                           : interpolationStatus(interpolation);
}

// ---- The buffer ----

// From a multiple of 32 on: tables of columns and rows, then the walk's own memory.
constexpr int bufferAlignment = TablePart::alignment;

// Offsets are formed without regard to the width of an address: both builds tell the same sizes.
struct BufferLayout {
  TablePart columns, rows;
  BlockPart<char> work;
  long long bytes = 0; // with what a buffer needs to get to that multiple

  BufferLayout(const Images& images, Taps taps, int width, int height)
  {
    const auto take = [this](long long count, auto sample) {
      const BlockPart<decltype(sample)> part = {bytes, count};
      const long long size = count * static_cast<long long>(sizeof(sample));
      bytes += (size + bufferAlignment - 1) / bufferAlignment * bufferAlignment;
      return part;
    };
    columns = TablePart::of(taps, width, images.shuffleRoom(taps), take);
    rows = TablePart::of(taps, height, 0, take);
    work = take(Walk::workBytes(images, taps, width), char());
    bytes += bufferAlignment;
  }
};

// Enough for every element type: floats take most.
ZorStatus bufferSize(ZorImgSize size, int channels, int interpolation, int* pBufSize)
{
  if (interpolation == ZORI_INTER_SUPER) {
    *pBufSize = bufferAlignment;
    return ZorOk;
  }
  const Images images = {Element::F32, channels, channels == 4, 1, {}, {}, 0, 0};
  const BufferLayout layout(images, squareTaps(interpolation, Element::F32), size.width, size.height);
  if (layout.bytes > INT_MAX) return ZorErrSize;
  *pBufSize = static_cast<int>(layout.bytes);
  return ZorOk;
}

// ---- The call ----

// Destination pixels of one axis: those whose centres lie in the image of the source pixels first .. first + length
// - 1.
struct Span {
  int first, count;

  Span(int srcFirst, int srcLength, int dstFirst, int dstLength, double factor, double shift)
  {
    const double begin = std::ceil(srcFirst * factor + shift - 0.5),
                 end = std::ceil((static_cast<double>(srcFirst) + srcLength) * factor + shift - 0.5);
    const double low = dstFirst, high = low + dstLength;
    if (!(begin < high) || !(end > low)) { // no number counts as none
      first = dstFirst, count = 0;
      return;
    }
    first = static_cast<int>(begin > low ? begin : low);
    count = static_cast<int>((end < high ? end : high) - first);
  }
};

struct SquareCall {
  ZorImgSize srcSize;
  ZorImgRect srcRoi, dstRoi;
  double xFactor, yFactor, xShift, yShift;
  int interpolation;
  Zor8u* pBuffer;
};

[[gnu::noinline]] ZorStatus resizeSquares(Images images, const SquareCall& call)
{
  if (auto s = firstFailure(
        require(!images.hasNull() && call.pBuffer, ZorErrNullPtr), nonEmpty(call.srcSize),
        require(isRect(call.srcRoi) && isRect(call.dstRoi), ZorErrSize), factorStatus(call.xFactor, call.yFactor),
        superStatus(call.xFactor, call.yFactor, call.interpolation),
        require(call.srcRoi.x < call.srcSize.width && call.srcRoi.y < call.srcSize.height, ZorWarnNoRoiIntersect));
      s != ZorOk)
    return s;
  Axis x = {call.srcSize.width, call.srcRoi.x, call.srcRoi.width, 0},
       y = {call.srcSize.height, call.srcRoi.y, call.srcRoi.height, 0};
  x.cut();
  y.cut();
  const Span columnSpan(x.first, x.length, call.dstRoi.x, call.dstRoi.width, call.xFactor, call.xShift),
    rowSpan(y.first, y.length, call.dstRoi.y, call.dstRoi.height, call.yFactor, call.yShift);
  if (columnSpan.count < 1 || rowSpan.count < 1) return ZorWarnNoRoiIntersect;
  for (int p = 0; p < images.planes; ++p)
    images.dst[p] = images.dstRow(p, rowSpan.first) + std::ptrdiff_t{columnSpan.first} * images.pixelBytes();

  if (call.interpolation == ZORI_INTER_SUPER)
    return supersample(images, CoverSweep(x.image, columnSpan.first, call.xFactor, call.xShift), columnSpan.count,
                       CoverSweep(y.image, rowSpan.first, call.yFactor, call.yShift), rowSpan.count,
                       call.xFactor * call.yFactor);

  const Taps taps = squareTaps(call.interpolation, images.element);
  const BufferLayout layout(images, taps, columnSpan.count, rowSpan.count);
  const auto past = reinterpret_cast<std::uintptr_t>(call.pBuffer) % bufferAlignment;
  Zor8u* const block = call.pBuffer + (past ? bufferAlignment - past : 0);
  AxisTable columns = layout.columns.table(block, taps, columnSpan.count),
            rows = layout.rows.table(block, taps, rowSpan.count);
  const float spline = splineShare(call.interpolation);
  fillTable(SquareAxis{x.image, columnSpan.first, columnSpan.count, call.xFactor, call.xShift, spline}, columns);
  fillTable(SquareAxis{y.image, rowSpan.first, rowSpan.count, call.yFactor, call.yShift, spline}, rows);
  Walk(images, columns, rows).rowsOf(0, rowSpan.count, layout.work.in(block));
  return ZorOk;
}

[[gnu::noinline]] ZorStatus underNearest(const Images& images, const SquareCall& call)
{
  const RoundingScope nearest(Rounding::Nearest);
  return resizeSquares(images, call);
}

template <Layout L, class S, class D>
ZorStatus resizeImage(S pSrc, int srcStep, D pDst, int dstStep, const SquareCall& call)
{
  if constexpr (planes < L >> 1)
    if (auto s = firstFailure(nonNullPlanes<planes<L>>(pSrc), nonNullPlanes<planes<L>>(pDst)); s != ZorOk) return s;
  using T = std::remove_const_t<std::remove_pointer_t<std::remove_const_t<std::remove_pointer_t<D>>>>;
  return underNearest(imagesOf<T, L>(pSrc, srcStep, pDst, dstStep), call);
}

ZorStatus channelStatus(int n) { return require(n == 1 || n == 3 || n == 4, ZorErrChannels); }

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriResizeSqrPixelGetBufSize(ZorImgSize dstSize, int nChannel, int interpolation, int* pBufSize)
{
  if (auto s =
        firstFailure(nonNull(pBufSize), nonEmpty(dstSize), channelStatus(nChannel), interpolationStatus(interpolation));
      s != ZorOk)
    return s;
  return bufferSize(dstSize, nChannel, interpolation, pBufSize);
}

ZorStatus zoriResizeGetBufSize(ZorImgRect srcRoi, ZorImgRect dstRoi, double xFactor, double yFactor, int nChannel,
                               int interpolation, int* pBufSize)
{
  if (auto s = firstFailure(nonNull(pBufSize), require(isRect(srcRoi) && isRect(dstRoi), ZorErrSize),
                            factorStatus(xFactor, yFactor), channelStatus(nChannel),
                            superStatus(xFactor, yFactor, interpolation));
      s != ZorOk)
    return s;
  return bufferSize({dstRoi.width, dstRoi.height}, nChannel, interpolation, pBufSize);
}

// clang-format off
#define STAMP(type, layout, Src, Dst)                                                                                  \
  ZorStatus zoriResizeSqrPixel_##type##_##layout##R(Src, ZorImgSize srcSize, int srcStep, ZorImgRect srcRoi, Dst,      \
                                                    int dstStep, ZorImgRect dstRoi, double xFactor, double yFactor,    \
                                                    double xShift, double yShift, int interpolation, Zor8u* pBuffer)   \
  {                                                                                                                    \
    return resizeImage<layout>(pSrc, srcStep, pDst, dstStep, {srcSize, srcRoi, dstRoi, xFactor, yFactor, xShift, \
                                                                    yShift, interpolation, pBuffer});                  \
  }
#define PIXELS(type, layout) STAMP(type, layout, const Zor##type* pSrc, Zor##type* pDst)
#define PLANES(type, layout, n) STAMP(type, layout, const Zor##type* const pSrc[n], Zor##type* const pDst[n])
#define TYPE(type) PIXELS(type, C1) PIXELS(type, C3) PIXELS(type, C4) PIXELS(type, AC4) PLANES(type, P3, 3) PLANES(type, P4, 4)
TYPE(8u) TYPE(16u) TYPE(16s) TYPE(32f)
#undef TYPE
#undef PLANES
#undef PIXELS
#undef STAMP
