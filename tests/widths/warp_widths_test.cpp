// Warps and remaps of both 64-bit builds by random coefficients and maps: steep angles, shears, horizons inside the
// picture, points on the lattice and between, numbers that are none, tiny images, every type, layout and interpolation.
// Images end or begin at a page without access.
#include "geometry/warp_image.h"
#include "zori/geometry.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <limits>
#include <string>

#ifdef ZORI_WIDE_LIBRARY

namespace {

using warptest::Image;

class Random {
public:
  explicit Random(unsigned seed) : engine_(seed) {}
  int below(int n) { return static_cast<int>(engine_() % static_cast<unsigned>(n)); }
  int between(int low, int high) { return low + below(high - low + 1); }
  bool oneIn(int n) { return below(n) == 0; }
  double between(double low, double high) { return low + (high - low) * (engine_() / 4294967296.0); }
  // Whole, halves, quarters, sixteenths or anything.
  double coarse(double low, double high)
  {
    const double x = between(low, high);
    const int grid[] = {1, 2, 4, 16};
    return oneIn(2) ? x : std::rint(x * grid[below(4)]) / grid[below(4)];
  }
  double odd()
  {
    const double odd[] = {0, -0.0, 1e-300, 1e-40, 1e-9, 1e9, 1e18, 1e300, -1e5, NAN, -1.0, 0.5, INFINITY, -INFINITY};
    return odd[below(14)];
  }

private:
  std::mt19937 engine_;
};

struct Sizes {
  ZorImgSize src, dst;
  ZorImgRect srcRoi, dstRoi;

  explicit Sizes(Random& r)
  {
    const auto side = [&] {
      switch (r.below(6)) {
      case 0: return r.between(1, 6);
      case 1: return r.between(100, 600);
      default: return r.between(7, 60);
      }
    };
    src = {side(), side()};
    dst = {side(), side()};
    const auto part = [&](ZorImgSize s) {
      if (r.oneIn(2)) return ZorImgRect{0, 0, s.width, s.height};
      const int x = r.below(s.width), y = r.below(s.height);
      return ZorImgRect{x, y, r.between(1, s.width - x), r.between(1, s.height - y)};
    };
    srcRoi = part(src);
    dstRoi = part(dst);
  }
};

// Nine numbers: from one image to the other, more or less.
void setCoefficients(Random& r, const Sizes& s, bool isBilinear, double (&c)[3][3], double (&b)[2][4])
{
  const double angle = r.oneIn(4) ? r.below(8) * 0.7853981633974483 : r.between(-3.2, 3.2);
  const double scale = r.oneIn(3) ? 1 : r.between(0.2, 4.0), shear = r.oneIn(3) ? r.between(-2.0, 2.0) : 0;
  c[0][0] = scale * std::cos(angle), c[0][1] = -scale * std::sin(angle) + shear;
  c[1][0] = scale * std::sin(angle), c[1][1] = scale * std::cos(angle);
  for (int i = 0; i < 2; ++i) { // the middles on each other, not far off
    const double from[2] = {s.src.width / 2.0, s.src.height / 2.0};
    const double to = (i ? s.dst.height : s.dst.width) / 2.0 + r.coarse(-9, 9);
    if (r.oneIn(4)) c[i][0] = r.coarse(-2, 2), c[i][1] = r.coarse(-2, 2);
    c[i][2] = to - c[i][0] * from[0] - c[i][1] * from[1];
    if (r.oneIn(4)) c[i][2] = std::rint(c[i][2]);
  }
  c[2][0] = r.oneIn(5) ? 0 : r.between(-2.0, 2.0) / (s.src.width + s.src.height);
  c[2][1] = r.oneIn(5) ? 0 : r.between(-2.0, 2.0) / (s.src.width + s.src.height);
  c[2][2] = r.oneIn(3) ? r.between(-1.0, 1.0) : 1;
  if (r.oneIn(8)) { // quotients that are halfway between numbers of single precision
    c[2][0] = c[2][1] = 0, c[2][2] = r.between(3, 11);
    for (int i = 0; i < 2; ++i)
      for (int k = 0; k < 3; ++k) c[i][k] = std::rint(c[i][k] * 65536) / 65536 * c[2][2];
  }
  if (r.oneIn(12)) c[r.below(3)][r.below(3)] = r.odd();
  for (int i = 0; i < 2; ++i) {
    b[i][0] = isBilinear ? r.between(-1.0, 1.0) / (s.src.width + s.src.height) : 0;
    for (int k = 0; k < 3; ++k) b[i][k + 1] = c[i][k];
  }
}

template <class T> class Pair {
public:
  Pair(void* base, void* wide, const char* type, unsigned seed) : r_(seed), base_(base), wide_(wide), type_(type) {}

  void compareOne()
  {
    const char* const layouts[] = {"C1", "C3", "C4", "AC4", "P3", "P4"};
    const int layout = r_.below(6), planes = layout == 4 ? 3 : layout == 5 ? 4 : 1;
    const int channels = layout == 1 ? 3 : layout == 2 || layout == 3 ? 4 : 1;
    const Sizes s(r_);
    const int padding = r_.below(3) * r_.below(20) * int(sizeof(T)), dstPadding = r_.below(2) * 5 * int(sizeof(T));
    const bool atBegin = r_.oneIn(3), isPlanar = planes > 1;
    std::vector<Image<T>> src, expected, found;
    std::vector<void*> from, toBase, toWide;
    for (int p = 0; p < planes; ++p) {
      src.emplace_back(s.src.width, s.src.height, channels, unsigned(p + r_.below(9)), padding, atBegin);
      expected.emplace_back(s.dst.width, s.dst.height, channels, 77u, dstPadding, atBegin);
      found.emplace_back(s.dst.width, s.dst.height, channels, 77u, dstPadding, atBegin);
    }
    for (int p = 0; p < planes; ++p) {
      if (std::is_same_v<T, Zor32f> && r_.oneIn(4))
        src[p].put(r_.below(s.src.width * channels), r_.below(s.src.height), static_cast<T>(r_.odd()));
      from.push_back(src[p].data());
      toBase.push_back(expected[p].data());
      toWide.push_back(found[p].data());
    }
    const void* const given = isPlanar ? static_cast<const void*>(from.data()) : from[0];
    void *const base = isPlanar ? toBase.data() : toBase[0], *const wide = isPlanar ? toWide.data() : toWide[0];
    const int srcStep = src[0].step, dstStep = expected[0].step;

    const char* const names[] = {"WarpAffine",   "WarpAffineBack",   "WarpPerspective",     "WarpPerspectiveBack",
                                 "WarpBilinear", "WarpBilinearBack", "WarpPerspectiveQuad", "Remap"};
    const int which = r_.below(8), modes[] = {ZORI_INTER_NN, ZORI_INTER_LINEAR, ZORI_INTER_CUBIC};
    int mode = modes[r_.below(3)];
    if (which < 7 && r_.oneIn(3)) mode |= ZORI_SMOOTH_EDGE;
    const std::string name = std::string("zori") + names[which] + "_" + type_ + "_" + layouts[layout] + "R";
    double c[3][3], b[2][4], quads[2][4][2];
    setCoefficients(r_, s, which == 4 || which == 5, c, b);
    for (auto& quad : quads)
      for (int i = 0; i < 4; ++i) {
        const ZorImgSize size = &quad == quads ? s.src : s.dst;
        quad[i][0] = (i == 1 || i == 2 ? size.width - 1 : 0) + r_.coarse(-0.3, 0.3) * size.width;
        quad[i][1] = (i >= 2 ? size.height - 1 : 0) + r_.coarse(-0.3, 0.3) * size.height;
      }
    const Image<Zor32f> xMap = map(s, c[0], s.src.width), yMap = map(s, c[1], s.src.height);
    const auto call = [&](void* library, void* dst) {
      void* const f = dlsym(library, name.c_str());
      if (which == 7)
        return reinterpret_cast<ZorStatus (*)(const void*, ZorImgSize, int, ZorImgRect, const Zor32f*, int,
                                              const Zor32f*, int, void*, int, ZorImgSize, int)>(f)(
          given, s.src, srcStep, s.srcRoi, xMap.data(), xMap.step, yMap.data(), yMap.step, dst, dstStep, s.dst, mode);
      if (which == 6)
        return reinterpret_cast<ZorStatus (*)(const void*, ZorImgSize, int, ZorImgRect, const void*, void*, int,
                                              ZorImgRect, const void*, int)>(f)(
          given, s.src, srcStep, s.srcRoi, quads[0], dst, dstStep, s.dstRoi, quads[1], mode);
      const void* const coeffs = which >= 4 ? static_cast<const void*>(b) : c;
      return reinterpret_cast<ZorStatus (*)(const void*, ZorImgSize, int, ZorImgRect, void*, int, ZorImgRect,
                                            const void*, int)>(f)(given, s.src, srcStep, s.srcRoi, dst, dstStep,
                                                                  s.dstRoi, coeffs, mode);
    };
    const ZorStatus status = call(base_, base);
    EXPECT_EQ(call(wide_, wide), status) << name;
    written += status == ZorOk;
    for (int p = 0; p < planes; ++p)
      EXPECT_EQ(found[p].difference(expected[p]), "")
        << name << " plane " << p << ", interpolation " << mode << ", " << s.src.width << "x" << s.src.height << " to "
        << s.dst.width << "x" << s.dst.height;
  }

  int written = 0;

private:
  // Coordinates by a row of coefficients, some brought to the image's edges, some strewn with what is odd.
  Image<Zor32f> map(const Sizes& s, const double (&c)[3], int limit)
  {
    Image<Zor32f> to(s.dst.width, s.dst.height, 1, 5, 4 * r_.below(3), r_.oneIn(2));
    const bool isClamped = r_.oneIn(2), isNoise = r_.oneIn(5);
    for (int y = 0; y < s.dst.height; ++y)
      for (int x = 0; x < s.dst.width; ++x) {
        double at = isNoise ? r_.coarse(-1, limit) : c[0] * x + c[1] * y + limit / 2.0;
        if (isClamped) at = std::clamp(at, 0.0, limit - 1.0);
        to.put(x, y, static_cast<Zor32f>(at));
      }
    for (int i = r_.oneIn(2) ? 0 : r_.below(5); i > 0; --i)
      to.put(r_.below(s.dst.width), r_.below(s.dst.height), static_cast<Zor32f>(r_.odd()));
    return to;
  }

  Random r_;
  void *base_, *wide_;
  const char* type_;
};

TEST(WarpsOfBothWidths, AreEqualByRandomCoefficients)
{
  if (!__builtin_cpu_supports("avx2")) GTEST_SKIP() << "NOT COMPARED: THIS PROCESSOR IS NOT OF THE CLASS x86-64-v3";
  void *const base = dlopen(ZORI_BASE_LIBRARY, RTLD_NOW | RTLD_LOCAL), *const wide = dlopen(ZORI_WIDE_LIBRARY,
                                                                                            RTLD_NOW | RTLD_LOCAL);
  ASSERT_TRUE(base && wide);
  const char* const more = std::getenv("ZORI_TRIALS");
  const int trials = more ? std::atoi(more) : 1500;
  Pair<Zor8u> bytes(base, wide, "8u", 1);
  Pair<Zor16u> words(base, wide, "16u", 2);
  Pair<Zor32f> floats(base, wide, "32f", 3);
  for (int i = 0; i < trials && !HasFailure(); ++i) {
    bytes.compareOne();
    bytes.compareOne();
    words.compareOne();
    floats.compareOne();
  }
  EXPECT_GT(bytes.written, trials / 2); // of twice as many
}

} // namespace

#endif
