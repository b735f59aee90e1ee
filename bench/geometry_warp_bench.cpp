// Benchmarks of warps, rotation and remap.
//
// Warps turn a picture by 10 degrees about its middle, so that most of the destination is covered; the naive loop takes
// each destination pixel back by the coefficients, tests it, and blends in floating point.
#include "harness.h"
#include "zori/geometry.h"

#include <algorithm>
#include <cmath>

using namespace bench;

namespace {

ZorImgRect whole(ZorImgSize size) { return {0, 0, size.width, size.height}; }

struct Coeffs {
  double back[3][3];    // destination to source
  double forward[3][3]; // source to destination
};

Coeffs turned(ZorImgSize size)
{
  const double a = 10 / 180.0 * 3.141592653589793, c = std::cos(a), s = std::sin(a);
  const double x = size.width / 2.0, y = size.height / 2.0;
  return {{{c, -s, x - c * x + s * y}, {s, c, y - s * x - c * y}, {0, 0, 1}},
          {{c, s, x - c * x - s * y}, {-s, c, y + s * x - c * y}, {0, 0, 1}}};
}

// The naive sampler: the coordinates are inside.
template <class T> void naivePixel(const Image<T>& src, double x, double y, T* dst, int interpolation)
{
  const int channels = src.channels;
  if (interpolation == ZORI_INTER_NN) {
    const T* const p = src.row(int(y + 0.5)) + int(x + 0.5) * channels;
    for (int k = 0; k < channels; ++k) dst[k] = p[k];
    return;
  }
  const int last = interpolation == ZORI_INTER_LINEAR ? 2 : 3, before = last - 2, taps = 2 * (last - 1);
  const int ix = std::clamp(int(x), before, src.size.width - last),
            iy = std::clamp(int(y), before, src.size.height - last);
  const auto weights = [=](double t, double(&w)[4]) {
    if (interpolation == ZORI_INTER_LINEAR) {
      w[0] = 1 - t;
      w[1] = t;
    } else {
      w[0] = -t * (t - 1) * (t - 2) / 6;
      w[1] = (t + 1) * (t - 1) * (t - 2) / 2;
      w[2] = -(t + 1) * t * (t - 2) / 2;
      w[3] = (t + 1) * t * (t - 1) / 6;
    }
  };
  double wx[4], wy[4];
  weights(x - ix, wx);
  weights(y - iy, wy);
  for (int k = 0; k < channels; ++k) {
    double sum = 0;
    for (int i = 0; i < taps; ++i) {
      const T* const p = src.row(iy - before + i) + (ix - before) * channels + k;
      for (int j = 0; j < taps; ++j) sum += wy[i] * wx[j] * p[j * channels];
    }
    dst[k] = std::is_same_v<T, Zor32f> ? T(sum) : T(std::clamp(sum + 0.5, 0.0, sizeof(T) == 1 ? 255.0 : 65535.0));
  }
}

template <class T> void naiveWarp(const Image<T>& src, const Image<T>& dst, const double (&c)[3][3], int interpolation)
{
  for (int y = 0; y < dst.size.height; ++y)
    for (int x = 0; x < dst.size.width; ++x) {
      const double w = c[2][0] * x + c[2][1] * y + c[2][2];
      const double sx = (c[0][0] * x + c[0][1] * y + c[0][2]) / w, sy = (c[1][0] * x + c[1][1] * y + c[1][2]) / w;
      if (sx >= 0 && sx <= src.size.width - 1 && sy >= 0 && sy <= src.size.height - 1)
        naivePixel(src, sx, sy, dst.row(y) + x * src.channels, interpolation);
    }
}

template <class T, class Warp>
void affine(Group& g, const std::string& name, Warp warp, int channels, int interpolation)
{
  g.both("WarpAffine " + name, [=](ZorImgSize size) {
    const Image<T> src(size, channels), dst(size, channels);
    const Coeffs c = turned(size);
    return Run{
      src.bytes(), dst.bytes(),
      [=] { return warp(src, size, src.step, whole(size), dst, dst.step, whole(size), c.forward, interpolation); },
      [=] { naiveWarp(src, dst, c.back, interpolation); }};
  });
}

template <class T, class Warp>
void perspective(Group& g, const std::string& name, Warp warp, int channels, int interpolation)
{
  g.both("WarpPerspective " + name, [=](ZorImgSize size) {
    const Image<T> src(size, channels), dst(size, channels);
    Coeffs c = turned(size);
    c.back[2][0] = 0.1 / size.width;
    c.back[2][1] = 0.05 / size.height;
    return Run{
      src.bytes(), dst.bytes(),
      [=] { return warp(src, size, src.step, whole(size), dst, dst.step, whole(size), c.back, interpolation); },
      [=] { naiveWarp(src, dst, c.back, interpolation); }};
  });
}

template <class T, class Warp>
void bilinear(Group& g, const std::string& name, Warp warp, int channels, int interpolation)
{
  g.both("WarpBilinear " + name, [=](ZorImgSize size) {
    const Image<T> src(size, channels), dst(size, channels);
    const double w = size.width - 1, h = size.height - 1;
    const double quad[4][2] = {{0.05 * w, 0.03 * h}, {0.98 * w, 0.1 * h}, {0.9 * w, 0.97 * h}, {0, 0.9 * h}};
    struct Quad {
      double c[2][4];
    } q;
    zoriGetBilinearTransform(whole(size), quad, q.c);
    return Run{src.bytes(), dst.bytes(),
               [=] { return warp(src, size, src.step, whole(size), dst, dst.step, whole(size), q.c, interpolation); }};
  });
}

// Coordinates of a weak lens, jittered by nothing: neighbours stay neighbours. A strong one looks beyond the image in
// all but a circle of 0.4 of the pixels, which are left alone.
template <class T, class Remap>
void remap(Group& g, const std::string& name, Remap function, int channels, int interpolation, float bend = 0.05f)
{
  const bool isStrong = bend > 0.05f;
  g.both("Remap " + name, [=](ZorImgSize size) {
    const Image<T> src(size, channels), dst(size, channels);
    const Image<Zor32f> xMap(size), yMap(size);
    const float cx = size.width / 2.0f, cy = size.height / 2.0f;
    for (int y = 0; y < size.height; ++y)
      for (int x = 0; x < size.width; ++x) {
        const float dx = (x - cx) / cx, dy = (y - cy) / cy, k = 0.9f + bend * (dx * dx + dy * dy);
        const float sx = cx + cx * dx * k, sy = cy + cy * dy * k;
        xMap.row(y)[x] = isStrong ? sx : std::clamp(sx, 0.0f, size.width - 1.0f);
        yMap.row(y)[x] = isStrong ? sy : std::clamp(sy, 0.0f, size.height - 1.0f);
      }
    return Run{src.bytes() + xMap.bytes() + yMap.bytes(), dst.bytes(),
               [=] {
                 return function(src, size, src.step, whole(size), xMap, xMap.step, yMap, yMap.step, dst, dst.step,
                                 size, interpolation);
               },
               [=] {
                 for (int y = 0; y < size.height; ++y)
                   for (int x = 0; x < size.width; ++x) {
                     const float sx = xMap.row(y)[x], sy = yMap.row(y)[x];
                     if (sx >= 0 && sx <= size.width - 1 && sy >= 0 && sy <= size.height - 1)
                       naivePixel<T>(src, sx, sy, dst.row(y) + x * channels, interpolation);
                   }
               }};
  });
}

template <class T, class Rotate>
void rotate(Group& g, const std::string& name, Rotate function, int channels, int angle)
{
  g.both("Rotate " + name, [=](ZorImgSize size) {
    const ZorImgSize turned = angle == 180 ? size : ZorImgSize{size.height, size.width};
    const Image<T> src(size, channels), dst(turned, channels);
    const double xs = angle == 90 ? 0 : turned.width - 1, ys = angle == 270 ? 0 : turned.height - 1;
    return Run{src.bytes(), dst.bytes(), [=] {
                 return function(src, size, src.step, whole(size), dst, dst.step, whole(turned), angle, xs, ys,
                                 ZORI_INTER_NN);
               }};
  });
}

} // namespace

static const Group warps("warp", [](Group& g) {
  affine<Zor8u>(g, "NN 8u C1", zoriWarpAffine_8u_C1R, 1, ZORI_INTER_NN);
  affine<Zor8u>(g, "NN 8u C3", zoriWarpAffine_8u_C3R, 3, ZORI_INTER_NN);
  affine<Zor8u>(g, "linear 8u C1", zoriWarpAffine_8u_C1R, 1, ZORI_INTER_LINEAR);
  affine<Zor8u>(g, "linear 8u C3", zoriWarpAffine_8u_C3R, 3, ZORI_INTER_LINEAR);
  affine<Zor8u>(g, "linear 8u C4", zoriWarpAffine_8u_C4R, 4, ZORI_INTER_LINEAR);
  affine<Zor8u>(g, "linear 8u AC4", zoriWarpAffine_8u_AC4R, 4, ZORI_INTER_LINEAR);
  affine<Zor8u>(g, "cubic 8u C1", zoriWarpAffine_8u_C1R, 1, ZORI_INTER_CUBIC);
  affine<Zor8u>(g, "cubic 8u C3", zoriWarpAffine_8u_C3R, 3, ZORI_INTER_CUBIC);
  affine<Zor32f>(g, "linear 32f C1", zoriWarpAffine_32f_C1R, 1, ZORI_INTER_LINEAR);
  affine<Zor32f>(g, "linear 32f C3", zoriWarpAffine_32f_C3R, 3, ZORI_INTER_LINEAR);
  affine<Zor32f>(g, "cubic 32f C1", zoriWarpAffine_32f_C1R, 1, ZORI_INTER_CUBIC);
  affine<Zor32f>(g, "cubic 32f C3", zoriWarpAffine_32f_C3R, 3, ZORI_INTER_CUBIC);
  affine<Zor16u>(g, "linear 16u C1", zoriWarpAffine_16u_C1R, 1, ZORI_INTER_LINEAR);
  affine<Zor16u>(g, "cubic 16u C1", zoriWarpAffine_16u_C1R, 1, ZORI_INTER_CUBIC);
  perspective<Zor8u>(g, "linear 8u C1", zoriWarpPerspectiveBack_8u_C1R, 1, ZORI_INTER_LINEAR);
  perspective<Zor8u>(g, "NN 8u C1", zoriWarpPerspectiveBack_8u_C1R, 1, ZORI_INTER_NN);
  bilinear<Zor8u>(g, "linear 8u C1", zoriWarpBilinear_8u_C1R, 1, ZORI_INTER_LINEAR);
});

static const Group remaps("warp", [](Group& g) {
  remap<Zor8u>(g, "NN 8u C1", zoriRemap_8u_C1R, 1, ZORI_INTER_NN);
  remap<Zor8u>(g, "linear 8u C1", zoriRemap_8u_C1R, 1, ZORI_INTER_LINEAR);
  remap<Zor8u>(g, "linear 8u C3", zoriRemap_8u_C3R, 3, ZORI_INTER_LINEAR);
  remap<Zor8u>(g, "linear 8u C1 in a circle", zoriRemap_8u_C1R, 1, ZORI_INTER_LINEAR, 0.2f);
  remap<Zor8u>(g, "cubic 8u C1", zoriRemap_8u_C1R, 1, ZORI_INTER_CUBIC);
  remap<Zor32f>(g, "linear 32f C1", zoriRemap_32f_C1R, 1, ZORI_INTER_LINEAR);
});

static const Group rotations("warp", [](Group& g) {
  rotate<Zor8u>(g, "90 8u C1", zoriRotate_8u_C1R, 1, 90);
  rotate<Zor8u>(g, "90 8u C3", zoriRotate_8u_C3R, 3, 90);
  rotate<Zor8u>(g, "90 8u AC4", zoriRotate_8u_AC4R, 4, 90);
  rotate<Zor8u>(g, "180 8u C1", zoriRotate_8u_C1R, 1, 180);
  rotate<Zor8u>(g, "270 8u C1", zoriRotate_8u_C1R, 1, 270);
});
