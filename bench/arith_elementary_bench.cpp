// Benchmarks of squares, roots, logarithms, exponentials and products of fractions.
#include "harness.h"
#include "zori/arith.h"

#include <algorithm>
#include <cmath>

namespace {

// Arguments of exponentials: -16 to 16, so that no result overflows.
bench::Image<Zor32f> exponents(ZorImgSize size)
{
  bench::Image<Zor32f> image(size);
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x) image.row(y)[x] = image.row(y)[x] / 8 - 16;
  return image;
}

template <class T> T clamped(double x) { return static_cast<T>(std::min(x, double(std::numeric_limits<T>::max()))); }

} // namespace

static const bench::Group elementary("arith", [](bench::Group& g) {
  using bench::Image, bench::Run;
  g.map(
    "Sqr 8u C1 scale 8", zoriSqr_8u_C1RSfs, 1, [](Zor8u x) { return Zor8u((x * x + 127 + (x * x >> 8 & 1)) >> 8); }, 8);
  g.map(
    "Sqr 16s C1 scale 15", zoriSqr_16s_C1RSfs, 1,
    [](Zor16s x) { return Zor16s(std::min(32767, (x * x + 16383 + (x * x >> 15 & 1)) >> 15)); }, 15);
  g.map("Sqr 32f C1", zoriSqr_32f_C1R, 1, [](Zor32f x) { return x * x; });
  g.map(
    "Sqrt 8u C1 scale -4", zoriSqrt_8u_C1RSfs, 1,
    [](Zor8u x) { return clamped<Zor8u>(std::nearbyint(std::sqrt(x) * 16)); }, -4);
  g.map(
    "Sqrt 16u C1 scale 0", zoriSqrt_16u_C1RSfs, 1, [](Zor16u x) { return Zor16u(std::nearbyint(std::sqrt(x))); }, 0);
  g.map(
    "Sqrt 16u C1 scale -8", zoriSqrt_16u_C1RSfs, 1,
    [](Zor16u x) { return clamped<Zor16u>(std::nearbyint(std::sqrt(x) * 256)); }, -8);
  g.map("Sqrt 32f C1", zoriSqrt_32f_C1R, 1, [](Zor32f x) { return std::sqrt(x); });
  g.map("Sqrt 32f AC4", zoriSqrt_32f_AC4R, 4, [](Zor32f x) { return std::sqrt(x); });
  g.map(
    "Ln 8u C1 scale -5", zoriLn_8u_C1RSfs, 1,
    [](Zor8u x) { return x ? clamped<Zor8u>(std::log(x) * 32 + 0.5) : Zor8u(0); }, -5);
  g.map(
    "Ln 16u C1 scale -8", zoriLn_16u_C1RSfs, 1,
    [](Zor16u x) { return x ? clamped<Zor16u>(std::log(x) * 256 + 0.5) : Zor16u(0); }, -8);
  g.map("Ln 32f C1", zoriLn_32f_C1R, 1, [](Zor32f x) { return std::log(x); });
  g.map(
    "Exp 8u C1 scale 2", zoriExp_8u_C1RSfs, 1, [](Zor8u x) { return clamped<Zor8u>(std::exp(x) / 4 + 0.5); }, 2);
  g.map(
    "Exp 16s C1 scale 0", zoriExp_16s_C1RSfs, 1, [](Zor16s x) { return clamped<Zor16s>(std::exp(x) + 0.5); }, 0);
  g.both("Exp 32f C1", [](ZorImgSize size) {
    const Image<Zor32f> src = exponents(size), dst(size);
    return Run{src.bytes(), dst.bytes(), [=] { return zoriExp_32f_C1R(src, src.step, dst, dst.step, size); },
               [=] { bench::naiveMap([](Zor32f x) { return std::exp(x); }, dst, src); }};
  });
  g.map("MulScale 8u C1", zoriMulScale_8u_C1R, 1,
        [](Zor8u a, Zor8u b) { return Zor8u((a * b + (a * b >> 8) + 1) >> 8); });
  g.map("MulScale 16u C1", zoriMulScale_16u_C1R, 1, [](Zor16u a, Zor16u b) {
    const Zor32u t = Zor32u(a) * b;
    return Zor16u((t + (t >> 16) + 1) >> 16);
  });
  g.both("MulCScale 8u AC4", [](ZorImgSize size) {
    const Image<Zor8u> src(size, 4), dst(size, 4);
    return Run{src.bytes(), dst.bytes(), [=] {
                 const Zor8u value[3] = {100, 150, 200};
                 return zoriMulCScale_8u_AC4R(src, src.step, value, dst, dst.step, size);
               }};
  });
  g.both("Complement 32s C1", [](ZorImgSize size) {
    const Image<Zor32s> image(size);
    return Run{0, image.bytes(), [=] { return zoriComplement_32s_C1IR(image, image.step, size); }};
  });
  g.both("DotProdCol 32f 9", [](ZorImgSize size) { // every row as the sum of nine others
    const Image<Zor32f> src(size), dst(size);
    return Run{src.bytes(), dst.bytes(), [=] {
                 const Zor32f weights[9] = {.1f, .2f, .3f, .4f, .5f, .4f, .3f, .2f, .1f};
                 ZorStatus status = ZorOk;
                 for (int y = 0; y + 8 < size.height; ++y) {
                   const Zor32f* rows[9];
                   for (int i = 0; i < 9; ++i) rows[i] = src.row(y + i);
                   status = zoriDotProdCol_32f_L2(rows, weights, dst.row(y), 9, size.width);
                 }
                 return status;
               }};
  });
});
