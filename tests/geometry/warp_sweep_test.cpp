// All warps, rotations, shears and remaps with random arguments against a plain program (warp_expected.h): the status,
// which pixels are written, and their values. Images lie between pages without access; every call runs under some
// rounding mode, with some team. Where coordinates are told to the bit the values are too; where a transform is only
// told by what it does (bilinear maps, quadrangle to quadrangle), the source point may be off by a hair.
#include "support/guarded_block.h"
#include "warp_expected.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cfenv>
#include <limits>
#include <memory>
#include <random>

using namespace warprules;

extern "C" void zoriTestShareAllWork(int on);

namespace {

// ---- Random calls ----

class Random {
public:
  explicit Random(unsigned seed) : bits_(seed) {}
  int below(int n) { return int(bits_() % unsigned(n)); }
  int between(int a, int b) { return a + below(b - a + 1); }
  bool oneIn(int n) { return below(n) == 0; }
  double real(double a, double b) { return a + (b - a) * (bits_() % 1000001 / 1e6); }
  template <class T, std::size_t N> T of(const T (&some)[N]) { return some[below(int(N))]; }
  int side() // of an image: small ones with all their special rules, some longer than the blocks of a kernel
  {
    const int m = below(10);
    return m < 4 ? m + 1 : m < 8 ? between(5, 40) : m == 8 ? between(41, 90) : between(250, 620);
  }

private:
  std::mt19937 bits_;
};

// Rows between pages without access, at the end or at the beginning of their block.
class Memory {
public:
  Memory(int width, int height, int pixelBytes, long long step, bool atBegin)
    : bytes(std::size_t((height - 1) * step + (long long)(width)*pixelBytes)),
      block_(std::make_unique<zoritest::GuardedBlock>(bytes)), first(atBegin ? block_->begin() : block_->end() - bytes)
  {}
  std::size_t bytes;

private:
  std::unique_ptr<zoritest::GuardedBlock> block_;

public:
  unsigned char* first;
};

// A call with all its images, and what it is to give.
class Trial {
public:
  Trial(const Function& f, unsigned seed) : f_(f), random_(seed)
  {
    makeImages();
    makeGeometry();
    if (random_.oneIn(5))
      for (int i = random_.between(1, 2); i > 0; --i) spoil();
  }

  void run()
  {
    const Expected expected = Rules(f_, k_, dstShape_).expected();
    if (expected.isUnclear) return;
    static const int modes[] = {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}, teams[] = {1, 2, 7};
    const int mode = random_.of(modes);
    omp_set_num_threads(random_.of(teams));
    const auto call = [&] {
      std::fesetround(mode);
      const ZorStatus status = f_.run(k_);
      EXPECT_EQ(mode, std::fegetround());
      std::fesetround(FE_TONEAREST);
      return status;
    };
    const ZorStatus status = call();
    if (!expected.mayMiss || status != ZorWarnNoQuadIntersect) {
      ASSERT_EQ(expected.status, status);
    }
    if (status == ZorOk) comparePixels(expected);
    else compareUntouched();
    if (testing::Test::HasFailure() || status != ZorOk || f_.kind == Kind::Remap) return;
    // once more, with the edges smoothed
    if (!random_.oneIn(3) || (!expected.isCopy && expected.polygon.size() < 3)) return;
    std::vector<std::vector<unsigned char>> plain;
    for (std::size_t i = 0; i < dst_.size(); ++i) {
      plain.emplace_back(dst_[i].first, dst_[i].first + dst_[i].bytes);
      std::memcpy(dst_[i].first, before_[i].data(), dst_[i].bytes);
      const Pixels pixels = {f_.type,         plain[i].data(),  k_.dstStep,
                             dstShape_.width, dstShape_.height, f_.layout.channels};
      if (!expected.isCopy) smoothEdges(pixels, f_.layout.written, expected.polygon, expected.orientation);
    }
    k_.interpolation |= ZORI_SMOOTH_EDGE;
    ASSERT_EQ(ZorOk, call());
    for (std::size_t i = 0; i < dst_.size(); ++i)
      ASSERT_EQ(0, std::memcmp(plain[i].data(), dst_[i].first, dst_[i].bytes)) << "smooth edges, plane " << i;
  }

  friend std::ostream& operator<<(std::ostream& out, const Trial& t)
  {
    const Call& k = t.k_;
    const auto rect = [&](const char* name, ZorImgRect r) {
      out << ", " << name << " " << r.x << "," << r.y << " " << r.width << "x" << r.height;
    };
    out << t.f_.name << " interpolation " << k.interpolation << ", source " << t.srcShape_.width << "x"
        << t.srcShape_.height << " step " << k.srcStep;
    rect("srcRoi", k.srcRoi);
    rect("dstRoi", k.dstRoi);
    out.precision(17);
    for (const double x : k.numbers) out << " " << x;
    for (const auto& quad : {k.srcQuad, k.dstQuad})
      for (int i = 0; i < 4; ++i) out << " (" << quad[i][0] << ", " << quad[i][1] << ")";
    return out;
  }

private:
  // ---- Images ----

  void makeImages()
  {
    const int pixelBytes = f_.layout.channels * bytesOf(f_.type);
    srcShape_ = {random_.side(), random_.oneIn(3) ? random_.between(1, 12) : random_.side()};
    dstShape_ = {random_.oneIn(8) ? random_.between(250, 600) : std::min(random_.side(), 90),
                 std::min(random_.side(), 60)};
    const bool isLong = random_.oneIn(60); // sizes and steps that need other forms of offsets
    static const Shape longOnes[] = {{12000, 9}, {40000, 5}, {5, 40000}, {140000, 4}, {4, 140000}};
    if (isLong) srcShape_ = random_.of(longOnes);
    const long long row = (long long)(srcShape_.width) * pixelBytes;
    static const int wider[] = {0, 0, 1, 2, 3, 7, 16, 32768, 1 << 21};
    long long srcStep = row + (srcShape_.height < 20 ? random_.of(wider) : random_.below(9));
    if (random_.oneIn(12)) // rows that lie in each other
      srcStep = random_.between(1, int(row) / bytesOf(f_.type)) * bytesOf(f_.type);
    const long long dstStep =
      (long long)(dstShape_.width) * pixelBytes + (random_.oneIn(2) ? 0 : random_.between(1, 7));
    const bool srcFirst = random_.oneIn(2), dstFirst = random_.oneIn(2), isSmooth = random_.oneIn(2);
    for (int i = 0; i < f_.layout.planes; ++i) {
      src_.emplace_back(srcShape_.width, srcShape_.height, pixelBytes, srcStep, srcFirst);
      dst_.emplace_back(dstShape_.width, dstShape_.height, pixelBytes, dstStep, dstFirst);
      fill(source(i, srcStep), isSmooth);
      for (std::size_t k = 0; k < dst_[i].bytes; ++k) dst_[i].first[k] = static_cast<unsigned char>(random_.below(256));
      fill({f_.type, dst_[i].first, dstStep, dstShape_.width, dstShape_.height, f_.layout.channels}, false);
      before_.emplace_back(dst_[i].first, dst_[i].first + dst_[i].bytes);
      srcPlanes_[i] = src_[i].first;
      dstPlanes_[i] = dst_[i].first;
    }
    const bool isPlanar = f_.layout.planes > 1;
    k_.src = isPlanar ? static_cast<void*>(srcPlanes_) : src_[0].first;
    k_.dst = isPlanar ? static_cast<void*>(dstPlanes_) : dst_[0].first;
    k_.srcSize = {srcShape_.width, srcShape_.height};
    k_.srcStep = int(srcStep);
    k_.dstStep = int(dstStep);
    k_.srcRoi = {0, 0, srcShape_.width, srcShape_.height};
    k_.dstRoi = {0, 0, dstShape_.width, dstShape_.height};
    if (isLong) k_.srcRoi = {std::max(0, srcShape_.width - 60), std::max(0, srcShape_.height - 60), 60, 60};
    else if (random_.oneIn(2))
      k_.srcRoi = {random_.below(srcShape_.width), random_.below(srcShape_.height),
                   random_.oneIn(4) ? 1000000 : random_.between(1, srcShape_.width),
                   random_.oneIn(4) ? std::numeric_limits<int>::max() : random_.between(1, srcShape_.height)};
    if (random_.oneIn(2)) {
      k_.dstRoi.x = random_.below(dstShape_.width);
      k_.dstRoi.y = random_.below(dstShape_.height);
      k_.dstRoi.width = random_.between(1, dstShape_.width - k_.dstRoi.x);
      k_.dstRoi.height = random_.between(1, dstShape_.height - k_.dstRoi.y);
    }
    k_.interpolation = 1 << random_.below(3);
  }

  Pixels source(int plane, long long step) const
  {
    return {f_.type, src_[plane].first, step, srcShape_.width, srcShape_.height, f_.layout.channels};
  }

  void fill(const Pixels& p, bool isSmooth)
  {
    for (int y = 0; y < p.height; ++y)
      for (int x = 0; x < p.width * p.channels; ++x) {
        const double most = p.type == Sample::U8 ? 255 : 65535;
        const double noise = p.type == Sample::F32 ? random_.real(-1000, 1000)
                             : random_.oneIn(4)    ? most * random_.below(2)
                                                   : random_.below(int(most) + 1);
        put(p.type, p.at(0, y, 0) + (long long)(x)*bytesOf(p.type),
            isSmooth ? 120 + 60 * std::sin(x * 0.2) + 50 * std::cos(y * 0.3) : noise);
      }
  }

  // ---- Geometry ----

  void makeGeometry()
  {
    switch (f_.kind) {
    case Kind::Affine:
    case Kind::Perspective:
    case Kind::Bilinear: return f_.way == Way::Quad ? makeQuads() : makeCoefficients();
    case Kind::Rotate:
    case Kind::RotateCenter: return makeRotation();
    case Kind::Shear: return makeShear();
    case Kind::Remap: return makeMaps();
    }
  }

  ZorImgRect clippedRegion() const
  {
    ZorImgRect r = k_.srcRoi;
    r.width = std::min(r.width, srcShape_.width - r.x);
    r.height = std::min(r.height, srcShape_.height - r.y);
    return r;
  }
  static Point middleOf(ZorImgRect r) { return {r.x + r.width / 2.0, r.y + r.height / 2.0}; }
  // A point in or near the destination rectangle, where the region's middle is to go.
  Point target()
  {
    const ZorImgRect d = k_.dstRoi;
    return {d.x + d.width * random_.real(-0.2, 1.2), d.y + d.height * random_.real(-0.2, 1.2)};
  }

  // Linear parts of all kinds: turned, mirrored, slanted, much smaller and larger, upright with round factors.
  void makeLinear(double (&m)[4])
  {
    const double size = std::exp(random_.real(-1.5, 1.8)), ratio = random_.real(0.6, 1.6) * (random_.oneIn(3) ? -1 : 1);
    const double angle = random_.oneIn(3) ? random_.below(4) * 1.5707963267948966 : random_.real(0, 6.3);
    const double slant = random_.oneIn(2) ? random_.real(-0.5, 0.5) : 0, c = std::cos(angle), s = std::sin(angle);
    const double general[4] = {size * c, size * ratio * (s + slant * c), -size * s, size * ratio * (c - slant * s)};
    std::copy(general, general + 4, m);
    if (random_.oneIn(5)) {
      static const double round[] = {1, 2, 0.5, -1, 0.25, 3, 1.5};
      const bool isTurned = random_.oneIn(2);
      std::fill(m, m + 4, 0);
      m[isTurned ? 1 : 0] = random_.of(round);
      m[isTurned ? 2 : 3] = random_.of(round);
      if (random_.oneIn(3)) m[isTurned ? 0 : 1] = 0.25;
    }
    if (random_.oneIn(6))
      for (double& x : m) x = std::floor(x * 8) / 8;
  }

  void makeCoefficients()
  {
    double m[4];
    makeLinear(m);
    const bool isBack = f_.way == Way::Back;
    Point from = middleOf(clippedRegion()), to = target();
    if (random_.oneIn(3)) {
      from = {std::floor(from.x), std::floor(from.y)};
      to = {std::floor(to.x), std::floor(to.y)};
    }
    double reachX = srcShape_.width, reachY = srcShape_.height;
    if (isBack) {
      std::swap(from, to);
      reachX = dstShape_.width;
      reachY = dstShape_.height;
      const double d = m[0] * m[3] - m[1] * m[2];
      const double inverse[4] = {m[3] / d, -m[1] / d, -m[2] / d, m[0] / d};
      if (d != 0) std::copy(inverse, inverse + 4, m);
    }
    double* const c = k_.numbers;
    const auto store = [&](std::initializer_list<double> some) { std::copy(some.begin(), some.end(), c); };
    if (f_.kind == Kind::Affine) {
      const double hair = random_.oneIn(10) ? random_.real(-3e-14, 3e-14) : 0;
      store({m[0], m[1], to.x - m[0] * from.x - m[1] * from.y + hair, m[2], m[3],
             to.y - m[2] * from.x - m[3] * from.y - hair});
    } else if (f_.kind == Kind::Perspective) {
      double g = random_.real(-0.4, 0.4) / reachX, h = random_.real(-0.4, 0.4) / reachY;
      if (random_.oneIn(5)) g = h = 0;
      if (random_.oneIn(12)) g *= 6; // mostly folded
      const double w = g * from.x + h * from.y, all = random_.oneIn(4) ? random_.real(-3, 3) : 1;
      store({m[0] + to.x * g, m[1] + to.x * h, to.x - m[0] * from.x - m[1] * from.y - to.x * w, m[2] + to.y * g,
             m[3] + to.y * h, to.y - m[2] * from.x - m[3] * from.y - to.y * w, g, h, 1 - w});
      for (int i = 0; i < 9; ++i) c[i] *= all;
    } else {
      const double reach = std::max(reachX, reachY);
      const double u = random_.oneIn(5) ? 0 : random_.real(-0.3, 0.3) / reach * std::hypot(m[0], m[2]);
      const double v = random_.oneIn(5) ? 0 : random_.real(-0.3, 0.3) / reach * std::hypot(m[1], m[3]);
      store({u, m[0] - u * from.y, m[1] - u * from.x, to.x - m[0] * from.x - m[1] * from.y + u * from.x * from.y, v,
             m[2] - v * from.y, m[3] - v * from.x, to.y - m[2] * from.x - m[3] * from.y + v * from.x * from.y});
    }
  }

  void makeQuads()
  {
    const auto around = [&](double left, double top, double right, double bottom, double jitter, double(&quad)[4][2]) {
      const double corners[4][2] = {{left, top}, {right, top}, {right, bottom}, {left, bottom}};
      const double reach = jitter * std::max(0.5, std::min(right - left, bottom - top));
      for (int i = 0; i < 8; ++i) quad[i / 2][i % 2] = corners[i / 2][i % 2] + random_.real(-reach, reach);
    };
    const ZorImgRect r = clippedRegion();
    const double right = r.x + r.width - 1, bottom = r.y + r.height - 1, w = srcShape_.width, h = srcShape_.height;
    switch (random_.below(4)) {
    case 0:
      around(random_.real(-3, w / 2), random_.real(-3, h / 2), random_.real(w / 2, w + 3), random_.real(h / 2, h + 3),
             0.2, k_.srcQuad);
      break;
    case 1:
      around(r.x + 0.2 * r.width, r.y + 0.2 * r.height, right - 0.2 * r.width, bottom - 0.2 * r.height, 0.2,
             k_.srcQuad);
      break;
    default: around(r.x, r.y, right, bottom, 0, k_.srcQuad);
    }
    double quad[4][2];
    const double dw = dstShape_.width, dh = dstShape_.height;
    if (random_.oneIn(3))
      around(random_.below(dstShape_.width), random_.below(dstShape_.height), dw - 1, dh - 1, 0, quad);
    else
      around(random_.real(-5, dw / 2), random_.real(-5, dh / 2), random_.real(dw / 2, dw + 5),
             random_.real(dh / 2, dh + 5), 0.25, quad);
    const int turn = random_.below(4), direction = random_.oneIn(2) ? 1 : 3; // turned and mirrored
    for (int i = 0; i < 4; ++i)
      std::copy(quad[(turn + direction * i) % 4], quad[(turn + direction * i) % 4] + 2, k_.dstQuad[i]);
  }

  void makeRotation()
  {
    static const double angles[] = {90, 180, 270, 0, 360, 450, -90, -180, 540, 90.0000001, 45, -1e-9, 3690, 1e6};
    const double angle = random_.oneIn(2) ? random_.real(-800, 800) : random_.of(angles);
    const Point from = middleOf(clippedRegion()), to = target();
    const Numbers m = rotateMatrix(angle - 360 * std::floor(angle / 360), 0, 0);
    const bool isAbout = f_.kind == Kind::RotateCenter;
    double x = isAbout ? to.x : to.x - m[0] * from.x - m[1] * from.y;
    double y = isAbout ? to.y : to.y - m[3] * from.x - m[4] * from.y;
    if (!random_.oneIn(3)) {
      x = std::floor(x);
      y = std::floor(y);
    }
    const double numbers[] = {angle, x, y};
    std::copy(numbers, numbers + 3, k_.numbers);
  }

  void makeShear()
  {
    const double xShear = random_.oneIn(4) ? 0 : random_.real(-1.2, 1.2),
                 yShear = random_.oneIn(4) ? 0.5 : random_.real(-1.2, 1.2);
    const Point from = middleOf(clippedRegion()), to = target();
    double xShift = to.x - from.x - xShear * from.y, yShift = to.y - from.y - yShear * from.x;
    if (random_.oneIn(2)) {
      xShift = std::floor(xShift);
      yShift = std::floor(yShift);
    }
    const double numbers[] = {xShear, yShear, xShift, yShift};
    std::copy(numbers, numbers + 4, k_.numbers);
  }

  // Maps that lead everywhere, into the region, into it but for its first pixels, or along a line; with special values,
  // few or many, valid ones only or any.
  void makeMaps()
  {
    k_.dstRoi.x = k_.dstRoi.y = 0;
    const ZorImgRect r = clippedRegion();
    const int kind = random_.below(4), rarity = random_.oneIn(2) ? 12 : 400;
    const bool onlyValid = random_.oneIn(2);
    const auto make = [&](double low, double high, const float*& map, int& step) {
      step = 4 * k_.dstRoi.width + (random_.oneIn(2) ? 0 : random_.below(9));
      maps_.push_back(std::make_unique<Memory>(k_.dstRoi.width, k_.dstRoi.height, 4, step, random_.oneIn(2)));
      unsigned char* const first = maps_.back()->first;
      constexpr double endless = std::numeric_limits<double>::infinity();
      const double least = kind == 3 ? std::min(low + 1, high) : low;
      const double valid[] = {least,
                              high,
                              std::nextafter(float(high), 0.0f),
                              std::max(least, high - 1),
                              std::max(least, high - 0.5),
                              std::min(least + 0.5, high)};
      const double any[] = {high + 0.001, low - 0.001, std::nan(""), endless, -endless, 3e38,       -3e38,
                            1e-40,        -1e-40,      -0.0,         4e9,     -4e9,     high + 0.5, low - 0.5};
      const double start = random_.real(low, high), across = random_.real(-0.8, 0.8), down = random_.real(-0.3, 0.3);
      for (int y = 0; y < k_.dstRoi.height; ++y)
        for (int x = 0; x < k_.dstRoi.width; ++x) {
          const double value = random_.oneIn(rarity)
                                 ? onlyValid || random_.oneIn(2) ? random_.of(valid) : random_.of(any)
                               : kind == 0 ? random_.real(low - 1, high + 1)
                               : kind == 2 ? start + across * x + down * y
                                           : random_.real(least, high);
          put(Sample::F32, first + (long long)(y)*step + 4 * x, value);
        }
      map = reinterpret_cast<const float*>(first);
    };
    make(r.x, r.x + r.width - 1.0, k_.xMap, k_.xMapStep);
    make(r.y, r.y + r.height - 1.0, k_.yMap, k_.yMapStep);
  }

  // ---- Faults ----

  void spoil()
  {
    static const int selectors[] = {0, 3, 5, 6, 7, 8, 16, 32, -1};
    const bool first = random_.oneIn(2), isRemap = f_.kind == Kind::Remap;
    double* const c = k_.numbers;
    switch (random_.below(20)) {
    case 0: k_.src = nullptr; break;
    case 1: k_.dst = nullptr; break;
    case 2: (first ? srcPlanes_ : dstPlanes_)[random_.below(f_.layout.planes)] = nullptr; break;
    case 3: (first ? k_.srcSize.width : k_.srcSize.height) = -random_.below(3); break;
    case 4: (first ? k_.srcRoi.x : k_.srcRoi.y) = -1; break;
    case 5: (first ? k_.srcRoi.width : k_.srcRoi.height) = -random_.below(2); break;
    case 6: (first ? k_.dstRoi.width : k_.dstRoi.height) = -random_.below(2); break;
    case 7:
      if (!isRemap) (first ? k_.dstRoi.x : k_.dstRoi.y) = -1;
      break;
    case 8: k_.srcStep = -random_.below(2); break;
    case 9: k_.dstStep = -random_.below(2); break;
    case 10: k_.interpolation = random_.of(selectors); break;
    case 11: k_.srcRoi.x = srcShape_.width; break;
    case 12: k_.srcRoi.y = srcShape_.height + 5; break;
    case 13: (first ? k_.srcRoi.width : k_.srcRoi.height) = 1; break;
    case 14: c[random_.below(9)] = first ? std::nan("") : std::numeric_limits<double>::infinity(); break;
    case 15: // a row that is twice the other
      c[3] = 2 * c[0];
      c[4] = 2 * c[1];
      break;
    case 16: (first ? k_.xMapStep : k_.yMapStep) = 0; break;
    case 17: (first ? k_.xMap : k_.yMap) = nullptr; break;
    case 18: std::swap((first ? k_.srcQuad : k_.dstQuad)[0], (first ? k_.srcQuad : k_.dstQuad)[1]); break;
    default: (first ? k_.srcQuad : k_.dstQuad)[random_.below(4)][0] = std::nan("");
    }
  }

  // ---- Comparison ----

  void compareUntouched()
  {
    for (std::size_t i = 0; i < dst_.size(); ++i)
      ASSERT_EQ(0, std::memcmp(before_[i].data(), dst_[i].first, dst_[i].bytes)) << "plane " << i;
  }

  // May the source give the value at some point that is as near as the hair?
  bool mayBe(const Pixels& src, const Expected::Pixel& p, int channel, int interpolation, double value) const
  {
    if (p.hair == 0) return holds(sampled(src, p.x, p.y, channel, interpolation), value);
    Range all = {1e30, -1e30};
    for (int i = 0; i < 9; ++i) {
      const Range r = sampled(src, p.x + (i % 3 - 1) * p.hair, p.y + (i / 3 - 1) * p.hair, channel, interpolation);
      if (holds(r, value) || std::isnan(r.low)) return true;
      all = {std::min(all.low, r.low), std::max(all.high, r.high)};
    }
    const double tolerance = f_.type == Sample::F32 ? 2e-3 : 1;
    const bool isNearest = interpolation == ZORI_INTER_NN || src.width == 1 || src.height == 1;
    return !isNearest && value >= all.low - tolerance && value <= all.high + tolerance;
  }

  void comparePixels(const Expected& expected)
  {
    const int interpolation = expected.isCopy ? ZORI_INTER_NN : k_.interpolation, bytes = bytesOf(f_.type);
    for (int i = 0; i < f_.layout.planes; ++i) {
      const Pixels src = source(i, k_.srcStep);
      const Pixels dst = {f_.type, dst_[i].first, k_.dstStep, dstShape_.width, dstShape_.height, f_.layout.channels};
      Pixels before = dst;
      before.first = before_[i].data();
      const std::size_t rowBytes = std::size_t(dst.width) * dst.channels * bytes;
      for (int y = 0; y < dst.height; ++y) {
        for (int x = 0; x < dst.width; ++x) {
          const Expected::Pixel& p = expected.pixel[std::size_t(y) * dst.width + x];
          for (int c = 0; c < dst.channels; ++c) {
            const bool isKept = std::memcmp(dst.at(x, y, c), before.at(x, y, c), bytes) == 0;
            if (p.cover == Expected::No || c >= f_.layout.written) {
              ASSERT_TRUE(isKept) << "written at " << x << ", " << y << " channel " << c << " plane " << i;
            } else if (p.cover == Expected::Yes || !isKept) {
              ASSERT_TRUE(mayBe(src, p, c, interpolation, dst.value(x, y, c)))
                << "at " << x << ", " << y << " channel " << c << " plane " << i << " from " << p.x << ", " << p.y
                << ": " << dst.value(x, y, c) << ", not " << sampled(src, p.x, p.y, c, interpolation).high;
            }
          }
        }
        const std::size_t padding = y + 1 < dst.height ? k_.dstStep - rowBytes : 0;
        ASSERT_EQ(0, std::memcmp(dst.at(0, y, 0) + rowBytes, before.at(0, y, 0) + rowBytes, padding))
          << "behind row " << y;
      }
    }
  }

  const Function& f_;
  Random random_;
  Call k_ = {};
  Shape srcShape_, dstShape_;
  std::vector<Memory> src_, dst_;
  std::vector<std::unique_ptr<Memory>> maps_;
  std::vector<std::vector<unsigned char>> before_;
  void* srcPlanes_[4] = {};
  void* dstPlanes_[4] = {};
};

} // namespace

class Shares : public testing::TestWithParam<unsigned> {
public:
  static constexpr unsigned count = 4;
};

// Every fourth function.
TEST_P(Shares, FunctionsFollowTheirRules)
{
  constexpr unsigned trials = 16, remapTrials = 64; // a function
  const std::vector<Function> functions = allFunctions();
  ASSERT_EQ(234u, functions.size());
  const int threads = omp_get_max_threads();
  zoriTestShareAllWork(1);
  unsigned seed = 0, number = 0;
  for (const Function& f : functions) {
    const unsigned ofFunction = f.kind == Kind::Remap ? remapTrials : trials, before = seed;
    seed += ofFunction;
    if (number++ % count != GetParam()) continue;
    for (unsigned i = 1; i <= ofFunction && !HasFailure(); ++i) {
      Trial trial(f, before + i);
      SCOPED_TRACE(testing::Message() << trial << ", trial " << before + i);
      trial.run();
    }
  }
  zoriTestShareAllWork(0);
  omp_set_num_threads(threads);
}

INSTANTIATE_TEST_SUITE_P(WarpSweep, Shares, testing::Range(0u, Shares::count));
