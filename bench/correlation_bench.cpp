// Benchmarks of correlation and convolution. The naive loop does one row of results, as often as there are rows.
#include "harness.h"
#include "zori/correlation.h"

#include <cmath>

using bench::Image;
using bench::Run;

namespace {

template <class T, class D, class F> bench::Make matchValid(ZorImgSize tplSize, F function)
{
  return [=](ZorImgSize size) {
    const Image<T> src(size), tpl(tplSize);
    const Image<D> dst({size.width - tplSize.width + 1, size.height - tplSize.height + 1});
    return Run{src.bytes(), dst.bytes(),
               [=] { return function(src, src.step, size, tpl, tpl.step, tplSize, dst, dst.step); }};
  };
}
template <class T, class D, class F> bench::Make matchSame(ZorImgSize tplSize, int channels, F function)
{
  return [=](ZorImgSize size) {
    const Image<T> src(size, channels), tpl(tplSize, channels);
    const Image<D> dst(size, channels);
    return Run{src.bytes(), dst.bytes(),
               [=] { return function(src, src.step, size, tpl, tpl.step, tplSize, dst, dst.step); }};
  };
}

bench::Make convolveFull(ZorImgSize small)
{
  return [=](ZorImgSize size) {
    const Image<Zor32f> a(size), b(small), dst({size.width + small.width - 1, size.height + small.height - 1});
    return Run{a.bytes(), dst.bytes(),
               [=] { return zoriConvFull_32f_C1R(a, a.step, size, b, b.step, small, dst, dst.step); },
               [=] {
                 for (int y = 0; y < dst.size.height; ++y)
                   for (int x = 0; x < dst.size.width; ++x) {
                     float sum = 0;
                     for (int j = std::max(0, y - size.height + 1); j < std::min(small.height, y + 1); ++j)
                       for (int i = std::max(0, x - size.width + 1); i < std::min(small.width, x + 1); ++i)
                         sum += a.row(y - j)[x - i] * b.row(j)[i];
                     dst.row(y)[x] = sum;
                   }
               }};
  };
}

} // namespace

static const bench::Group correlationCases("corr", [](bench::Group& g) {
  const ZorImgSize vga = {640, 480};
  g.at("CrossCorrValid_NormLevel 8u32f 640 16x16", vga,
       matchValid<Zor8u, Zor32f>({16, 16}, zoriCrossCorrValid_NormLevel_8u32f_C1R));
  g.both("CrossCorrValid_NormLevel 8u32f 1080p 32",
         matchValid<Zor8u, Zor32f>({32, 32}, zoriCrossCorrValid_NormLevel_8u32f_C1R));
  g.at("CrossCorrValid_NormLevel 8u32f 640 64x64", vga,
       matchValid<Zor8u, Zor32f>({64, 64}, zoriCrossCorrValid_NormLevel_8u32f_C1R));
  g.at("CrossCorrValid_NormLevel 8u32f 64 48x48", {64, 64},
       matchValid<Zor8u, Zor32f>({48, 48}, zoriCrossCorrValid_NormLevel_8u32f_C1R));
  g.at("CrossCorrValid_NormLevel 16u32f 640 32x32", vga,
       matchValid<Zor16u, Zor32f>({32, 32}, zoriCrossCorrValid_NormLevel_16u32f_C1R));
  g.at("CrossCorrValid_Norm 32f 640 32x32", vga, matchValid<Zor32f, Zor32f>({32, 32}, zoriCrossCorrValid_Norm_32f_C1R));
  g.at("CrossCorrValid 8u32f 640 32x32", vga, matchValid<Zor8u, Zor32f>({32, 32}, zoriCrossCorrValid_8u32f_C1R));
  g.at("CrossCorrSame_NormLevel 8u32f C3 640 32x32", vga,
       matchSame<Zor8u, Zor32f>({32, 32}, 3, zoriCrossCorrSame_NormLevel_8u32f_C3R));
  g.at("SqrDistanceValid_Norm 8u32f 640 32x32", vga,
       matchValid<Zor8u, Zor32f>({32, 32}, zoriSqrDistanceValid_Norm_8u32f_C1R));

  g.at("ConvFull 32f 512 9x9 direct", {512, 512}, convolveFull({9, 9}));
  g.at("ConvFull 32f 512 31x31", {512, 512}, convolveFull({31, 31}));
  g.at("ConvFull 32f 1024 63x63", {1024, 1024}, convolveFull({63, 63}));
  g.at("ConvFull 32f 256 200x200", {256, 256}, convolveFull({200, 200}));
  g.at("ConvValid 8u 512 15x14", {512, 512}, [](ZorImgSize size) {
    const ZorImgSize small = {15, 14};
    const Image<Zor8u> a(size), b(small), dst({size.width - small.width + 1, size.height - small.height + 1});
    return Run{a.bytes(), dst.bytes(),
               [=] { return zoriConvValid_8u_C1R(a, a.step, size, b, b.step, small, dst, dst.step, 210); }};
  });
});
