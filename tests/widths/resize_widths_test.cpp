// Resizing in both 64-bit builds of the library: what the comparison of all functions has few of, sizes and factors.
// Random sizes around the lengths of vectors, factors from thumbnails to large enlargements, whole and fractional ones,
// regions, shifts (negative fractions too), steps, rounding fields and teams; images that end at pages without access.
#include "geometry/resize_image.h"
#include "zori/geometry.h"

#include <cmath>
#include <cstdio>
#include <dlfcn.h>
#include <type_traits>

namespace {

using namespace resizetest;

#ifdef ZORI_WIDE_LIBRARY
struct Libraries {
  void *base = dlopen(ZORI_BASE_LIBRARY, RTLD_NOW | RTLD_LOCAL), *wide = nullptr;
  Libraries()
  {
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2"))
      wide = dlopen(ZORI_WIDE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  }
};
const Libraries& libraries()
{
  static const Libraries both;
  return both;
}

template <class F> F* find(void* library, const std::string& name)
{
  F* const function = reinterpret_cast<F*>(dlsym(library, name.c_str()));
  EXPECT_NE(function, nullptr) << name;
  return function;
}

// A number of samples: often next to a multiple of a vector's.
int someLength(Random& random)
{
  switch (random.below(4)) {
  case 0: return random.between(1, 40);
  case 1: return std::max(1, 16 * random.between(1, 12) + random.between(-2, 2));
  case 2: return random.between(1, 300);
  default: return random.between(1, 90);
  }
}

double someFactor(Random& random, bool isShrinking)
{
  static constexpr double usual[] = {0.5, 1.0 / 3, 2.0 / 3, 0.25, 0.75, 1, 0.8, 0.2, 1.0 / 7, 1.5, 2, 3, 4, 8};
  if (random.below(2)) return usual[random.below(isShrinking ? 9 : 14)];
  return isShrinking ? random.real(0.03, 1) : std::exp(random.real(-3, 2));
}

template <class T> void putOddNumbers(Image<T>& image, Random& random)
{
  if constexpr (std::is_floating_point_v<T>) {
    const T odd[] = {std::numeric_limits<T>::infinity(),  -std::numeric_limits<T>::infinity(), T(-0.0), T(1e-40),
                     std::numeric_limits<T>::quiet_NaN(), std::numeric_limits<T>::max()};
    for (int n = random.below(4); n > 0; --n)
      image.put(random.below(image.size().height), random.below(image.size().width * image.channels()),
                odd[random.below(6)]);
  }
}

enum class Form { Factors, Steps, Centre, Squares };

template <class T> struct Trial {
  const char* type;
  Form form;
  const Shape& shape;
  unsigned seed;

  int run() const
  {
    Random random(seed);
    const int interpolations[] = {ZORI_INTER_NN,    ZORI_INTER_LINEAR,    ZORI_INTER_CUBIC,     ZORI_INTER_LANCZOS,
                                  ZORI_INTER_SUPER, ZORI_INTER_CUBIC2P_B, ZORI_INTER_CUBIC2P_C, ZORI_INTER_LINEAR};
    int interpolation = interpolations[random.below(8)];
    if (form != Form::Squares && interpolation > 4 && interpolation < 8) interpolation = ZORI_INTER_LINEAR;
    if (form == Form::Steps && interpolation == ZORI_INTER_SUPER) interpolation = ZORI_INTER_NN;
    const bool isSuper = interpolation == ZORI_INTER_SUPER;
    const double xFactor = someFactor(random, isSuper), yFactor = someFactor(random, isSuper);
    const auto sourceOf = [&](int length, double factor) {
      return std::clamp(static_cast<int>(length / factor) + random.between(-1, 2), 1, 1500);
    };
    const int width = someLength(random), height = random.between(1, 9);
    const ZorImgSize srcSize = {sourceOf(width, xFactor), sourceOf(height, yFactor)}, dstSize = {width, height};
    ZorImgRect roi = {0, 0, srcSize.width, srcSize.height};
    if (random.below(3) == 0)
      roi = {random.below(srcSize.width), random.below(srcSize.height), random.between(1, srcSize.width),
             random.between(1, srcSize.height)};

    std::vector<Image<T>> src, dst[2];
    const T* from[4] = {};
    T* to[2][4] = {};
    const int srcGap = random.below(2) * 5, dstGap = random.below(2) * 7;
    for (int p = 0; p < shape.planes; ++p) {
      src.emplace_back(srcSize, shape.channels, srcGap, random.next());
      if (random.below(4) == 0) putOddNumbers(src.back(), random);
      const unsigned noise = random.next();
      for (auto& d : dst) d.emplace_back(dstSize, shape.channels, dstGap, noise);
    }
    for (int p = 0; p < shape.planes; ++p) {
      const auto at = static_cast<std::size_t>(p);
      from[p] = src[at].data();
      for (int k = 0; k < 2; ++k) to[k][p] = dst[k][at].data();
    }
    const double shift[2] = {random.below(2) ? random.real(-2, 2) : 0, random.below(2) ? random.real(-2, 2) : 0};
    int status[2];
    for (int k = 0; k < 2; ++k) {
      const Surroundings surroundings(seed);
      status[k] = call(k == 0 ? libraries().base : libraries().wide, srcSize, from, src[0].step(), roi, to[k],
                       dst[k][0].step(), dstSize, xFactor, yFactor, shift, interpolation);
    }
    const auto describe = [&] {
      return std::string(type) + "_" + shape.name + " form " + std::to_string(static_cast<int>(form)) + " seed " +
             std::to_string(seed) + " interpolation " + std::to_string(interpolation) + " " +
             std::to_string(srcSize.width) + "x" + std::to_string(srcSize.height) + " to " + std::to_string(width) +
             "x" + std::to_string(height) + " by " + std::to_string(xFactor) + ", " + std::to_string(yFactor);
    };
    EXPECT_EQ(status[0], status[1]) << describe();
    for (std::size_t p = 0; p < dst[0].size(); ++p) EXPECT_EQ(dst[1][p].difference(dst[0][p]), "") << describe();
    return status[0] == ZorOk;
  }

private:
  int call(void* library, ZorImgSize srcSize, const T* const* from, int srcStep, ZorImgRect roi, T* const* to,
           int dstStep, ZorImgSize dstSize, double xFactor, double yFactor, const double (&shift)[2],
           int interpolation) const
  {
    const std::string suffix = std::string("_") + type + "_" + shape.name + "R";
    const auto with = [&](auto pixels) {
      using P = typename decltype(pixels)::Source;
      using Q = typename decltype(pixels)::Destination;
      const P source = pixels.source(from);
      const Q destination = pixels.destination(to);
      switch (form) {
      case Form::Factors:
        return find<ZorStatus(P, ZorImgSize, int, ZorImgRect, Q, int, ZorImgSize, double, double, int)>(
          library, "zoriResize" + suffix)(source, srcSize, srcStep, roi, destination, dstStep, dstSize, xFactor,
                                          yFactor, interpolation);
      case Form::Steps:
      case Form::Centre: {
        const bool isSteps = form == Form::Steps;
        const double x = isSteps ? 1 / xFactor : xFactor, y = isSteps ? 1 / yFactor : yFactor;
        const double xMore = isSteps ? shift[0] : 0.5 * srcSize.width + shift[0],
                     yMore = isSteps ? shift[1] : 0.5 * srcSize.height + shift[1];
        return find<ZorStatus(P, ZorImgSize, int, ZorImgRect, Q, int, ZorImgSize, double, double, double, double, int)>(
          library, (isSteps ? "zoriResizeShift" : "zoriResizeCenter") + suffix)(
          source, srcSize, srcStep, roi, destination, dstStep, dstSize, x, y, xMore, yMore, interpolation);
      }
      default: break;
      }
      const ZorImgRect dstRoi = {0, 0, dstSize.width, dstSize.height};
      int bytes = 0;
      find<ZorStatus(ZorImgRect, ZorImgRect, double, double, int, int, int*)>(library, "zoriResizeGetBufSize")(
        roi, dstRoi, xFactor, yFactor, shape.channels, interpolation, &bytes);
      Image<Zor8u> memory({std::max(bytes, 1), 1}, 1, 0, 1);
      return find<ZorStatus(P, ZorImgSize, int, ZorImgRect, Q, int, ZorImgRect, double, double, double, double, int,
                            Zor8u*)>(library, "zoriResizeSqrPixel" + suffix)(
        source, srcSize, srcStep, roi, destination, dstStep, dstRoi, xFactor, yFactor, shift[0], shift[1],
        interpolation, memory.data());
    };
    struct Chunky {
      using Source = const T*;
      using Destination = T*;
      static Source source(const T* const* p) { return p[0]; }
      static Destination destination(T* const* p) { return p[0]; }
    };
    struct Planar {
      using Source = const T* const*;
      using Destination = T* const*;
      static Source source(const T* const* p) { return p; }
      static Destination destination(T* const* p) { return p; }
    };
    return shape.planes == 1 ? with(Chunky()) : with(Planar());
  }
};

template <class T> void compare(const char* type, unsigned seed)
{
  int done = 0, trials = 0;
  for (const Shape& shape : shapes)
    for (const Form form : {Form::Factors, Form::Steps, Form::Centre, Form::Squares}) {
      if (std::is_same_v<T, Zor16s> && form != Form::Squares) continue;
      const int times = (shape.planes > 1 ? 60 : 250) * (form == Form::Centre ? 1 : 2);
      for (int k = 0; k < times && !testing::Test::HasFailure(); ++k, ++trials)
        done += Trial<T>{type, form, shape, seed++}.run();
    }
  std::printf("%s: %d of %d calls gave an image\n", type, done, trials);
  EXPECT_GT(done, trials / 2);
}

TEST(ResizeWidths, GiveTheSameResults)
{
  ASSERT_NE(libraries().base, nullptr);
  if (!libraries().wide) {
    std::printf("** NOT COMPARED: THIS PROCESSOR IS NOT OF THE CLASS x86-64-v3 **\n");
    return;
  }
  const char* const more = std::getenv("ZORI_RESIZE_SEED"); // for other trials than the usual ones
  const unsigned seed = more ? static_cast<unsigned>(std::atoi(more)) : 1;
  compare<Zor8u>("8u", seed);
  compare<Zor16u>("16u", seed + 100000);
  compare<Zor16s>("16s", seed + 200000);
  compare<Zor32f>("32f", seed + 300000);
}

#endif

} // namespace
