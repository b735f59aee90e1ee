// Rotation by right angles, as copies: a quarter turn is a transposition with one side walked backward, a half turn
// reverses rows in reverse order.
#include "rotate.h"
#include "rowkernels/mirror.h"
#include "zori/data.h"

#include <algorithm>

namespace zori {
namespace geometry {

namespace {

// Rows of pixels; the step may be negative.
struct PixelRows {
  Zor8u* first;
  int step;
};

// dst row x, column y = src row y, column x. `size` is the source's.
void transposePixels(int pixelBytes, PixelRows src, PixelRows dst, ZorImgSize size)
{
  const auto call = [&](auto function, auto element) {
    using T = decltype(element);
    function(reinterpret_cast<const T*>(src.first), src.step, reinterpret_cast<T*>(dst.first), dst.step, size);
  };
  switch (pixelBytes) {
  case 1: return call(zoriTranspose_8u_C1R, Zor8u{});
  case 2: return call(zoriTranspose_16u_C1R, Zor16u{});
  case 3: return call(zoriTranspose_8u_C3R, Zor8u{});
  case 4: return call(zoriTranspose_8u_C4R, Zor8u{});
  case 6: return call(zoriTranspose_16u_C3R, Zor16u{});
  case 8: return call(zoriTranspose_16u_C4R, Zor16u{});
  case 12: return call(zoriTranspose_32s_C3R, Zor32s{});
  default: return call(zoriTranspose_32s_C4R, Zor32s{});
  }
}

struct Unchanged {
  template <class T> Vec<T> operator()(Vec<T> x) const { return x; }
};

template <class T> void copyColours(const Zor8u* from, Zor8u* to, int pixels)
{
  T* const dst = reinterpret_cast<T*>(to);
  mapRow(dst, std::ptrdiff_t{pixels} * 4, KeepFourth<Unchanged>{}, const_cast<const T*>(dst),
         reinterpret_cast<const T*>(from));
}

// The same for pixels of four samples whose fourth stays: tiles are turned in a buffer.
template <class T> void transposeColours(PixelRows src, PixelRows dst, ZorImgSize size)
{
  constexpr int side = 32, pixelBytes = 4 * static_cast<int>(sizeof(T)), tileStep = side * pixelBytes;
  alignas(64) Zor8u tile[side * tileStep];
  for (int y = 0; y < size.height; y += std::min(side, size.height - y))
    for (int x = 0; x < size.width; x += std::min(side, size.width - x)) {
      const ZorImgSize part = {std::min(side, size.width - x), std::min(side, size.height - y)};
      Zor8u* const from = rowAt(src.first, src.step, y) + std::ptrdiff_t{x} * pixelBytes;
      transposePixels(pixelBytes, {from, src.step}, {tile, tileStep}, part);
      for (int i = 0; i < part.width; ++i)
        copyColours<T>(tile + i * tileStep,
                       rowAt(dst.first, dst.step, std::ptrdiff_t{x} + i) + std::ptrdiff_t{y} * pixelBytes, part.height);
    }
}

template <int PixelBytes, bool KeepsFourth> void reverseRows(PixelRows src, PixelRows dst, ZorImgSize size)
{
  const std::ptrdiff_t srcStep = src.step; // from the last row up
  copyReversed<PixelBytes, KeepsFourth>({rowAt(src.first, src.step, size.height - 1), -srcStep}, {dst.first, dst.step},
                                        size.width, size.height, aheadInRow(std::ptrdiff_t{size.width} * PixelBytes));
}

using CopyRegion = void (*)(PixelRows, PixelRows, ZorImgSize);

CopyRegion reversal(int pixelBytes, bool keepsFourth)
{
  switch (pixelBytes) {
  case 1: return reverseRows<1, false>;
  case 2: return reverseRows<2, false>;
  case 3: return reverseRows<3, false>;
  case 4: return keepsFourth ? reverseRows<4, true> : reverseRows<4, false>;
  case 6: return reverseRows<6, false>;
  case 8: return keepsFourth ? reverseRows<8, true> : reverseRows<8, false>;
  case 12: return reverseRows<12, false>;
  default: return keepsFourth ? reverseRows<16, true> : reverseRows<16, false>;
  }
}

// Whole numbers that rectangles are counted in; shifts beyond all images end up far outside of them.
using Whole = long long;
Whole wholeShift(double shift)
{
  constexpr double far = 1e15;
  return static_cast<Whole>(std::max(-far, std::min(far, shift)));
}

struct Span {
  Whole first, last;
};
Span common(Span a, Span b) { return {std::max(a.first, b.first), std::min(a.last, b.last)}; }

} // namespace

[[gnu::noinline]] ZorStatus turnRegion(const WarpCall& call, int quarters, double xShift, double yShift)
{
  if (auto s = checkImages(call); s != ZorOk) return s; // a null array has no planes to look at
  if (auto s = checkPlanes(call); s != ZorOk) return s;
  ZorImgRect region;
  if (auto s = clipRegion(call, region); s != ZorOk) return s;

  // where the region goes, cut to the destination rectangle, and what of it that takes
  const Whole xs = wholeShift(xShift), ys = wholeShift(yShift);
  const Span across = {region.x, Whole{region.x} + region.width - 1};
  const Span down = {region.y, Whole{region.y} + region.height - 1};
  const Span dstAcross = {call.dstRoi.x, Whole{call.dstRoi.x} + call.dstRoi.width - 1};
  const Span dstDown = {call.dstRoi.y, Whole{call.dstRoi.y} + call.dstRoi.height - 1};
  const auto moved = [](Span s, Whole by) { return Span{s.first + by, s.last + by}; };
  const auto turned = [](Span s, Whole from) { return Span{from - s.last, from - s.first}; };
  const Span x = common(quarters == 1 ? moved(down, xs) : turned(quarters == 2 ? across : down, xs), dstAcross);
  const Span y = common(quarters == 3 ? moved(across, ys) : turned(quarters == 1 ? across : down, ys), dstDown);
  if (x.first > x.last || y.first > y.last) return ZorWarnNoRoiIntersect;
  const Span srcAcross = quarters == 1 ? turned(y, ys) : quarters == 2 ? turned(x, xs) : moved(y, -ys);
  const Span srcDown = quarters == 1 ? moved(x, -xs) : quarters == 2 ? turned(y, ys) : turned(x, xs);
  const ZorImgSize size = {static_cast<int>(srcAcross.last - srcAcross.first + 1),
                           static_cast<int>(srcDown.last - srcDown.first + 1)};

  const int bytes = call.pixelBytes();
  for (int p = 0; p < call.planeCount(); ++p) {
    const auto src = [&](Whole row) {
      return const_cast<Zor8u*>(rowAt(call.srcPlane(p), call.srcStep, static_cast<std::ptrdiff_t>(row))) +
             static_cast<std::ptrdiff_t>(srcAcross.first) * bytes;
    };
    const auto dst = [&](Whole row) {
      return rowAt(call.dstPlane(p), call.dstStep, static_cast<std::ptrdiff_t>(row)) +
             static_cast<std::ptrdiff_t>(x.first) * bytes;
    };
    if (quarters == 2) {
      reversal(bytes, call.layout == AC4)({src(srcDown.first), call.srcStep}, {dst(y.first), call.dstStep}, size);
      continue;
    }
    const PixelRows from =
      quarters == 1 ? PixelRows{src(srcDown.first), call.srcStep} : PixelRows{src(srcDown.last), -call.srcStep};
    const PixelRows to = quarters == 1 ? PixelRows{dst(y.last), -call.dstStep} : PixelRows{dst(y.first), call.dstStep};
    if (call.layout != AC4) transposePixels(bytes, from, to, size);
    else if (bytes == 4) transposeColours<std::uint8_t>(from, to, size);
    else if (bytes == 8) transposeColours<std::uint16_t>(from, to, size);
    else transposeColours<std::uint32_t>(from, to, size);
  }
  return ZorOk;
}

} // namespace geometry
} // namespace zori
