// The pass over the edges of a warped quadrangle that softens their steps.
#include "rowkernels/simd.h"
#include "warp.h"

#include <cmath>

namespace zori {
namespace geometry {

namespace {

struct Pixel {
  int x, y;
};

template <class T> void blendSample(Zor8u* outer, const Zor8u* inner, double fromOuter, double fromInner)
{
  const double sum = get<T>(outer) * fromOuter + get<T>(inner) * fromInner;
  if constexpr (std::is_same_v<T, Zor32f>) put(outer, static_cast<T>(sum));
  else put(outer, static_cast<T>(sum + 0.5));
}

// Both pixels lie in the destination rectangle; each weighs by how far the edge is from the other.
void blendPixel(const WarpCall& call, Pixel outer, Pixel inner, double fromOuter, double fromInner)
{
  const int samples = call.layout == AC4 ? 3 : call.channelCount(), bytes = call.sampleBytes();
  for (int p = 0; p < call.planeCount(); ++p) {
    const auto at = [&](Pixel pixel) {
      return rowAt(call.dstPlane(p), call.dstStep, pixel.y) + std::ptrdiff_t{pixel.x} * call.pixelBytes();
    };
    Zor8u *const to = at(outer), *const from = at(inner);
    for (int k = 0; k < samples * bytes; k += bytes)
      if (call.type == SampleType::U8) blendSample<Zor8u>(to + k, from + k, fromOuter, fromInner);
      else if (call.type == SampleType::U16) blendSample<Zor16u>(to + k, from + k, fromOuter, fromInner);
      else blendSample<Zor32f>(to + k, from + k, fromOuter, fromInner);
  }
}

} // namespace

[[gnu::noinline]] void smoothEdges(const WarpCall& call, const Polygon& polygon, bool isPositive)
{
  const Box box = boxOf(call.dstRoi);
  if (polygon.count < 3) return;
  for (int i = 0; i < polygon.count; ++i) {
    const Point a = polygon.vertex[i], b = polygon.vertex[i + 1 < polygon.count ? i + 1 : 0];
    const double dx = b.x - a.x, dy = b.y - a.y;
    if (!(dx < 0 || dx > 0) || !(dy < 0 || dy > 0)) continue;
    // along: the coordinate that is walked; across: the other, where the edge passes between two pixels
    const bool isSteep = std::fabs(dy) > std::fabs(dx);
    const double from = isSteep ? std::fmin(a.y, b.y) : std::fmin(a.x, b.x);
    const double to = isSteep ? std::fmax(a.y, b.y) : std::fmax(a.x, b.x);
    const double slope = isSteep ? dx / dy : dy / dx;
    const double start = isSteep ? a.y : a.x, startAcross = isSteep ? a.x : a.y;
    const double low = isSteep ? box.left : box.top, high = isSteep ? box.right : box.bottom;
    const bool innerIsHigher = isSteep ? (dy < 0) == isPositive : (dx > 0) == isPositive;

    const double first = std::fmax(std::ceil(from), isSteep ? box.top : box.left);
    const double last = std::fmin(std::floor(to), isSteep ? box.bottom : box.right);
    for (double along = first; along <= last; along += 1) {
      const double across = (along - start) * slope + startAcross, below = std::floor(across), above = below + 1;
      // an edge a hair beside a pixel passes through it, and leaves nothing to blend
      if (!(across - below >= 1e-14) || !(above - across >= 1e-14) || below < low || above > high) continue;
      const double outer = innerIsHigher ? below : above, inner = innerIsHigher ? above : below;
      const auto pixel = [&](double at) {
        const int x = static_cast<int>(isSteep ? at : along), y = static_cast<int>(isSteep ? along : at);
        return Pixel{x, y};
      };
      blendPixel(call, pixel(outer), pixel(inner), std::fabs(across - outer), std::fabs(across - inner));
    }
  }
}

} // namespace geometry
} // namespace zori
