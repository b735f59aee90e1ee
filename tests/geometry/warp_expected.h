// Every function of warps, rotation, shear and remap as one call with one record of arguments, and what it is to give
// by the rules of warp_rules.h: the status, and for each destination pixel whether it is written and from which source
// point.
#pragma once

#include "warp_rules.h"
#include "zori/geometry.h"

#include <functional>
#include <string>

namespace warprules {

// ---- The functions ----

struct Call {
  const void* src; // of planar layouts: the array of planes
  void* dst;
  ZorImgSize srcSize;
  int srcStep;
  ZorImgRect srcRoi;
  int dstStep;
  ZorImgRect dstRoi;
  int interpolation;
  double numbers[12]; // coefficients by rows; angle and shifts; shears and shifts
  double srcQuad[4][2], dstQuad[4][2];
  const float *xMap, *yMap;
  int xMapStep, yMapStep;
};

enum class Kind { Affine, Perspective, Bilinear, Rotate, RotateCenter, Shear, Remap };
enum class Way { Forward, Back, Quad };

struct Layout {
  const char* name;
  int channels, planes, written;
};
constexpr Layout layouts[] = {{"C1", 1, 1, 1},  {"C3", 3, 1, 3}, {"C4", 4, 1, 4},
                              {"AC4", 4, 1, 3}, {"P3", 1, 3, 1}, {"P4", 1, 4, 1}};

struct Function {
  std::string name;
  Kind kind;
  Way way;
  Sample type;
  Layout layout;
  ZorStatus (*run)(const Call&);
};

template <class Image> Image source(const Call& k) { return static_cast<Image>(k.src); }
template <class Image> Image destination(const Call& k) { return static_cast<Image>(k.dst); }
template <int N> const double (*coeffs(const Call& k))[N] { return reinterpret_cast<const double(*)[N]>(k.numbers); }

// clang-format off
#define ENTRY(kind, way, type, layout, name, call)                                                                     \
  all.push_back({name "_" #type "_" #layout, Kind::kind, Way::way, sample, layoutOf(#layout),                          \
                 [](const Call& k) { return call; }});
#define COEFFS(kind, way, suffix, columns, type, layout, Src, Dst)                                                     \
  ENTRY(kind, way, type, layout, "Warp" #kind #suffix,                                                                 \
        zoriWarp##kind##suffix##_##type##_##layout##R(source<Src>(k), k.srcSize, k.srcStep, k.srcRoi,                  \
                                                      destination<Dst>(k), k.dstStep, k.dstRoi, coeffs<columns>(k),    \
                                                      k.interpolation))
#define QUADS(kind, type, layout, Src, Dst)                                                                            \
  ENTRY(kind, Quad, type, layout, "Warp" #kind "Quad",                                                                 \
        zoriWarp##kind##Quad_##type##_##layout##R(source<Src>(k), k.srcSize, k.srcStep, k.srcRoi, k.srcQuad,           \
                                                  destination<Dst>(k), k.dstStep, k.dstRoi, k.dstQuad,                 \
                                                  k.interpolation))
#define WARPS(kind, columns, type, layout, Src, Dst)                                                                   \
  COEFFS(kind, Forward, , columns, type, layout, Src, Dst) COEFFS(kind, Back, Back, columns, type, layout, Src, Dst)   \
  QUADS(kind, type, layout, Src, Dst)
#define TURNS(kind, type, layout, Src, Dst)                                                                            \
  ENTRY(kind, Forward, type, layout, #kind,                                                                            \
        zori##kind##_##type##_##layout##R(source<Src>(k), k.srcSize, k.srcStep, k.srcRoi, destination<Dst>(k),         \
                                          k.dstStep, k.dstRoi, k.numbers[0], k.numbers[1], k.numbers[2],               \
                                          k.interpolation))
#define LAYOUT(type, layout, Src, Dst)                                                                                 \
  WARPS(Affine, 3, type, layout, Src, Dst) WARPS(Perspective, 3, type, layout, Src, Dst)                               \
  WARPS(Bilinear, 4, type, layout, Src, Dst) TURNS(Rotate, type, layout, Src, Dst)                                     \
  TURNS(RotateCenter, type, layout, Src, Dst)                                                                          \
  ENTRY(Shear, Forward, type, layout, "Shear",                                                                         \
        zoriShear_##type##_##layout##R(source<Src>(k), k.srcSize, k.srcStep, k.srcRoi, destination<Dst>(k), k.dstStep, \
                                       k.dstRoi, k.numbers[0], k.numbers[1], k.numbers[2], k.numbers[3],               \
                                       k.interpolation))                                                               \
  ENTRY(Remap, Forward, type, layout, "Remap",                                                                         \
        zoriRemap_##type##_##layout##R(source<Src>(k), k.srcSize, k.srcStep, k.srcRoi, k.xMap, k.xMapStep, k.yMap,     \
                                       k.yMapStep, destination<Dst>(k), k.dstStep,                                     \
                                       {k.dstRoi.width, k.dstRoi.height}, k.interpolation))
#define TYPE(type)                                                                                                     \
  LAYOUT(type, C1, const Zor##type*, Zor##type*) LAYOUT(type, C3, const Zor##type*, Zor##type*)                        \
  LAYOUT(type, C4, const Zor##type*, Zor##type*) LAYOUT(type, AC4, const Zor##type*, Zor##type*)                       \
  LAYOUT(type, P3, const Zor##type* const*, Zor##type* const*)                                                         \
  LAYOUT(type, P4, const Zor##type* const*, Zor##type* const*)
// clang-format on

inline std::vector<Function> allFunctions()
{
  std::vector<Function> all;
  const auto layoutOf = [](const std::string& name) {
    return *std::find_if(std::begin(layouts), std::end(layouts), [&](const Layout& l) { return name == l.name; });
  };
  Sample sample = Sample::U8;
  TYPE(8u)
  sample = Sample::U16;
  TYPE(16u)
  sample = Sample::F32;
  TYPE(32f)
  return all;
}
#undef TYPE
#undef LAYOUT
#undef TURNS
#undef WARPS
#undef QUADS
#undef COEFFS
#undef ENTRY

// ---- What is expected ----

struct Expected {
  enum Cover { No, Yes, Maybe };
  struct Pixel {
    Cover cover = No;
    double x = 0, y = 0, hair = 0; // the source point, and how far it may be off
  };
  ZorStatus status = ZorOk;
  bool mayMiss = false;   // ZorWarnNoQuadIntersect is right too: at most an edge is covered, which rounding may move
  bool isUnclear = false; // rounding decides: not compared
  bool isCopy = false;    // a right angle
  std::vector<Pixel> pixel;
  Polygon polygon; // whose edges are smoothed; of less than three points where it is not told to the bit
  int orientation = 0;
};

struct Shape {
  int width, height;
};

class Rules {
public:
  Rules(const Function& f, const Call& k, Shape dst) : f_(f), k_(k), dst_(dst), region_(k.srcRoi)
  {
    e_.pixel.resize(std::size_t(dst.width) * dst.height);
    e_.status = f.kind == Kind::Remap                                    ? remap()
                : f.kind == Kind::Rotate || f.kind == Kind::RotateCenter ? rotate()
                                                                         : warp();
  }
  const Expected& expected() const { return e_; }

private:
  // ---- Checks ----

  bool hasPlanes() const
  {
    if (f_.layout.planes == 1) return true;
    for (int i = 0; i < f_.layout.planes; ++i)
      if (!static_cast<void* const*>(k_.src)[i] || !static_cast<void* const*>(k_.dst)[i]) return false;
    return true;
  }
  bool hasSizes() const
  {
    const auto isRect = [](ZorImgRect r) { return r.x >= 0 && r.y >= 0 && r.width >= 1 && r.height >= 1; };
    return k_.srcSize.width >= 1 && k_.srcSize.height >= 1 && isRect(k_.srcRoi) && isRect(k_.dstRoi);
  }
  bool isKnown(int selector) const { return selector == 1 || selector == 2 || selector == 4; }
  bool clipRegion()
  {
    if (region_.x >= k_.srcSize.width || region_.y >= k_.srcSize.height) return false;
    region_.width = std::min(region_.width, k_.srcSize.width - region_.x);
    region_.height = std::min(region_.height, k_.srcSize.height - region_.y);
    return true;
  }

  // ---- Families ----

  ZorStatus remap()
  {
    if (!k_.src || !k_.dst || !k_.xMap || !k_.yMap || !hasPlanes()) return ZorErrNullPtr;
    if (!hasSizes()) return ZorErrSize;
    if (!isKnown(k_.interpolation)) return ZorErrInterpolation;
    if (k_.srcStep < 1 || k_.dstStep < 1 || k_.xMapStep < 1 || k_.yMapStep < 1) return ZorErrStep;
    if (!clipRegion()) return ZorWarnNoRoiIntersect;
    const auto entry = [](const float* map, int step, int x, int y) {
      return read<float>(reinterpret_cast<const unsigned char*>(map) + (long long)(y)*step + 4LL * x);
    };
    for (int y = 0; y < k_.dstRoi.height; ++y)
      for (int x = 0; x < k_.dstRoi.width; ++x) {
        const float sx = entry(k_.xMap, k_.xMapStep, x, y), sy = entry(k_.yMap, k_.yMapStep, x, y);
        if (sx >= region_.x && sx <= region_.x + region_.width - 1 && sy >= region_.y &&
            sy <= region_.y + region_.height - 1)
          at(x, y) = {Expected::Yes, sx, sy, 0};
      }
    return ZorOk;
  }

  ZorStatus rotate()
  {
    double xs = k_.numbers[1], ys = k_.numbers[2];
    if (f_.kind == Kind::RotateCenter) {
      const Point p = rotateShift(k_.numbers[0], xs, ys);
      xs = p.x;
      ys = p.y;
    }
    double a = k_.numbers[0] - std::nearbyint(k_.numbers[0] / 360) * 360;
    if (a < 0) a += 360;
    if ((a != 90 && a != 180 && a != 270) || std::floor(xs) != xs || std::floor(ys) != ys)
      return affine(rotateMatrix(a, xs, ys), false);
    e_.isCopy = true;
    if (!k_.src || !k_.dst) return ZorErrNullPtr;
    if (!hasSizes()) return ZorErrSize;
    if (k_.srcStep < 1 || k_.dstStep < 1) return ZorErrStep;
    if (!hasPlanes()) return ZorErrNullPtr;
    if (!clipRegion()) return ZorWarnNoRoiIntersect;
    const ZorImgRect d = k_.dstRoi;
    bool any = false;
    for (int y = region_.y; y < region_.y + region_.height; ++y)
      for (int x = region_.x; x < region_.x + region_.width; ++x) {
        const double toX = a == 90    ? y + xs
                           : a == 180 ? xs - x
                                      : xs - y,
                     toY = a == 270  ? x + ys
                           : a == 90 ? ys - x
                                     : ys - y;
        if (toX < d.x || toX >= double(d.x) + d.width || toY < d.y || toY >= double(d.y) + d.height) continue;
        at(int(toX), int(toY)) = {Expected::Yes, double(x), double(y), 0};
        any = true;
      }
    return any ? ZorOk : ZorWarnNoRoiIntersect;
  }

  ZorStatus warp()
  {
    const double* const n = k_.numbers;
    if (f_.kind == Kind::Shear) return affine({1, n[0], n[2], n[1], 1, n[3]}, false);
    if (f_.way == Way::Quad) return quads();
    const bool isBack = f_.way == Way::Back;
    if (f_.kind == Kind::Affine) return affine(Numbers(n, n + 6), isBack);
    return f_.kind == Kind::Perspective ? perspective(Numbers(n, n + 9), isBack) : bilinear(Numbers(n, n + 8), isBack);
  }

  // Those before the geometry.
  ZorStatus checks() const
  {
    if (!k_.src || !k_.dst) return ZorErrNullPtr;
    if (!hasSizes()) return ZorErrSize;
    if (k_.srcStep < 1 || k_.dstStep < 1) return ZorErrStep;
    if (!isKnown(k_.interpolation & ~ZORI_SMOOTH_EDGE)) return ZorErrInterpolation;
    return hasPlanes() ? ZorOk : ZorErrNullPtr;
  }
  ZorStatus checkRegion()
  {
    if (!clipRegion()) return ZorWarnNoRoiIntersect;
    return region_.width > 1 && region_.height > 1 ? ZorOk : ZorErrCoeff;
  }

  // Rows of `sums`, three numbers each: linear in x and y, kept as running sums down the rows and along each.
  ZorStatus walk(const Polygon& quad, const Numbers& sums, std::function<Point(const double*)> point)
  {
    const Rows rows = cover(quad);
    if (rows.span.empty()) return ZorWarnNoQuadIntersect;
    const int n = int(sums.size()) / 3;
    double row[3];
    for (int i = 0; i < n; ++i) row[i] = rows.first * sums[3 * i + 1] + sums[3 * i + 2];
    for (int y = 0; y < int(rows.span.size()); ++y) {
      double sum[3];
      for (int i = 0; i < n; ++i) sum[i] = rows.span[y].first * sums[3 * i] + row[i];
      for (int x = rows.span[y].first; x <= rows.span[y].second; ++x) {
        const Point p = point(sum);
        at(x, rows.first + y) = {Expected::Yes, p.x, p.y, 0};
        for (int i = 0; i < n; ++i) sum[i] += sums[3 * i];
      }
      for (int i = 0; i < n; ++i) row[i] += sums[3 * i + 1];
    }
    return ZorOk;
  }

  ZorStatus affine(const Numbers& c, bool isBack)
  {
    if (const ZorStatus s = checks(); s != ZorOk) return s;
    if (singular(c)) return ZorErrQuad;
    if (const ZorStatus s = checkRegion(); s != ZorOk) return s;
    const Numbers forward = isBack ? inverse2x2(c) : c;
    const Polygon quad = quadOf(region_, [&](double x, double y) { return throughAffine(forward, x, y); });
    if (checkQuad(quad) < 0) return ZorErrQuad;
    const ZorStatus status = walk(quad, isBack ? c : affineBack(quad, region_), [](const double* s) {
      return Point{s[0], s[1]};
    });
    e_.mayMiss = isBack && status != ZorOk;
    return status;
  }

  ZorStatus perspective(const Numbers& c, bool isBack)
  {
    if (const ZorStatus s = checks(); s != ZorOk) return s;
    const Numbers a = adjugate(c);
    const double t[3] = {c[0] * a[0], c[1] * a[3], c[2] * a[6]};
    if (!(std::fabs(t[0] + t[1] + t[2]) > 1e-10 * (std::fabs(t[0]) + std::fabs(t[1]) + std::fabs(t[2]))))
      return ZorErrQuad;
    if (const ZorStatus s = checkRegion(); s != ZorOk) return s;
    const Numbers& forward = isBack ? a : c;
    const Polygon quad = quadOf(region_, [&](double x, double y) { return throughPerspective(forward, x, y); });
    if (checkQuad(quad) < 0) return ZorErrQuad;
    return walk(quad, isBack ? c : adjugate(perspectiveOf(quad, region_)), [](const double* s) {
      return Point{float(s[0] / s[2]), float(s[1] / s[2])};
    });
  }

  ZorStatus bilinear(const Numbers& c, bool isBack)
  {
    if (const ZorStatus s = checks(); s != ZorOk) return s;
    if (const ZorStatus s = checkRegion(); s != ZorOk) return s;
    constexpr double hair = 1e-6;
    if (!isBack) {
      const Polygon quad = quadOf(region_, [&](double x, double y) { return throughBilinear(c, x, y); });
      if (checkQuad(quad) < 0) return ZorErrQuad;
      const Point middle = {region_.x + (region_.width - 1) / 2.0, region_.y + (region_.height - 1) / 2.0};
      return eachCovered(cover(quad), [&](int x, int y) {
        const Point p = bilinearOrigin(c, {double(x), double(y)}, middle);
        return Expected::Pixel{Expected::Yes, p.x, p.y, hair};
      });
    }
    // the preimages of the corners, on the side of the fold where the middle of the destination lies
    const ZorImgRect d = k_.dstRoi;
    const Point middle = {d.x + (d.width - 1) / 2.0, d.y + (d.height - 1) / 2.0};
    const auto turn = [&](Point p) {
      return (c[0] * p.y + c[1]) * (c[4] * p.x + c[6]) - (c[0] * p.x + c[2]) * (c[4] * p.y + c[5]);
    };
    const Polygon quad = quadOf(region_, [&](double x, double y) {
      const Point p = bilinearOrigin(c, {x, y}, middle), there = throughBilinear(c, p.x, p.y);
      if (!(std::fabs(there.x - x) + std::fabs(there.y - y) < 1e-8 && turn(p) / turn(middle) > 1e-3))
        e_.isUnclear = true;
      return p;
    });
    if (e_.isUnclear || checkQuad(quad) < 0) {
      e_.isUnclear = true;
      return ZorOk;
    }
    bool any = false;
    e_.orientation = checkQuad(quad);
    for (int y = d.y; y < d.y + d.height; ++y)
      for (int x = d.x; x < d.x + d.width; ++x) {
        const double depth = depthIn(quad, x, y);
        if (depth < -hair) continue;
        const Point p = throughBilinear(c, x, y);
        at(x, y) = {depth > hair ? Expected::Yes : Expected::Maybe, p.x, p.y, hair};
        any = any || depth > hair;
      }
    e_.mayMiss = !any;
    return ZorOk;
  }

  // Through the unit square.
  ZorStatus quads()
  {
    if (const ZorStatus s = checks(); s != ZorOk) return s;
    Polygon src, dst;
    for (int i = 0; i < 4; ++i) {
      src.push_back({k_.srcQuad[i][0], k_.srcQuad[i][1]});
      dst.push_back({k_.dstQuad[i][0], k_.dstQuad[i][1]});
    }
    if (checkQuad(src) < 0 || checkQuad(dst) < 0) return ZorErrRect;
    e_.isUnclear = isNearlyFlat(src) || isNearlyFlat(dst);
    if (e_.isUnclear) return ZorOk;
    if (const ZorStatus s = checkRegion(); s != ZorOk) return s;
    const ZorImgRect unit = {0, 0, 2, 2};
    std::function<Point(double, double)> map;
    if (f_.kind == Kind::Affine) {
      map = [&, toUnit = affineBack(dst, unit)](double x, double y) {
        const Point p = throughAffine(toUnit, x, y);
        return Point{src[0].x + (src[1].x - src[0].x) * p.x + (src[2].x - src[1].x) * p.y,
                     src[0].y + (src[1].y - src[0].y) * p.x + (src[2].y - src[1].y) * p.y};
      };
    } else if (f_.kind == Kind::Perspective) {
      map = [toUnit = adjugate(perspectiveOf(dst, unit)), toSrc = perspectiveOf(src, unit)](double x, double y) {
        const Point p = throughPerspective(toUnit, x, y), there = throughPerspective(toSrc, p.x, p.y);
        return Point{float(there.x), float(there.y)};
      };
    } else {
      map = [toDst = bilinearOf(dst, unit), toSrc = bilinearOf(src, unit)](double x, double y) {
        const Point p = bilinearOrigin(toDst, {x, y}, {0.5, 0.5});
        return throughBilinear(toSrc, p.x, p.y);
      };
    }
    // where all of the source quadrangle is in the region nothing of the destination's is cut off
    const auto depth = [&](Point p) {
      return std::min(
        {p.x - region_.x, region_.x + region_.width - 1 - p.x, p.y - region_.y, region_.y + region_.height - 1 - p.y});
    };
    Polygon corners = src;
    if (f_.kind == Kind::Affine) corners[3] = map(dst[3].x, dst[3].y);
    const bool isWhole = std::all_of(corners.begin(), corners.end(), [&](Point p) { return depth(p) >= 0; });
    bool any = false;
    const ZorStatus status = eachCovered(cover(dst), [&](int x, int y) {
      const Point p = map(x, y);
      constexpr double unsure = 2e-5;
      const double deep = isWhole ? 1 : depth(p);
      any = any || deep > unsure;
      return Expected::Pixel{deep > unsure    ? Expected::Yes
                             : deep < -unsure ? Expected::No
                                              : Expected::Maybe,
                             p.x, p.y, f_.kind == Kind::Perspective ? 1e-5 : 1e-7};
    });
    if (!isWhole) e_.polygon.clear();
    e_.mayMiss = !any;
    return status;
  }

  // ---- Helpers ----

  Expected::Pixel& at(int x, int y) { return e_.pixel.at(std::size_t(y) * dst_.width + x); }

  Rows cover(const Polygon& quad)
  {
    e_.orientation = checkQuad(quad);
    e_.polygon = clipPolygon(quad, boxOf(k_.dstRoi));
    return perimeter(e_.polygon, e_.orientation);
  }
  template <class PixelAt> ZorStatus eachCovered(const Rows& rows, PixelAt pixelAt)
  {
    for (int y = 0; y < int(rows.span.size()); ++y)
      for (int x = rows.span[y].first; x <= rows.span[y].second; ++x)
        at(x, rows.first + y) = pixelAt(x, rows.first + y);
    return rows.span.empty() ? ZorWarnNoQuadIntersect : ZorOk;
  }
  double depthIn(const Polygon& p, double x, double y) const
  {
    double least = 1e30;
    for (std::size_t i = 0; i < p.size(); ++i) {
      const Point a = p[i], b = p[(i + 1) % p.size()];
      const double side = ((b.x - a.x) * (y - a.y) - (b.y - a.y) * (x - a.x)) / std::hypot(b.x - a.x, b.y - a.y);
      least = std::min(least, e_.orientation ? side : -side);
    }
    return least;
  }
  static bool isNearlyFlat(const Polygon& p)
  {
    for (int i = 0; i < 4; ++i) {
      const Point a = p[i], b = p[(i + 1) % 4], c = p[(i + 2) % 4];
      const double turn = (b.x - a.x) * (c.y - b.y) - (b.y - a.y) * (c.x - b.x);
      if (!(std::fabs(turn) > 1e-6 * std::hypot(b.x - a.x, b.y - a.y) * std::hypot(c.x - b.x, c.y - b.y))) return true;
    }
    return false;
  }

  const Function& f_;
  const Call& k_;
  Shape dst_;
  ZorImgRect region_;
  Expected e_;
};

} // namespace warprules
