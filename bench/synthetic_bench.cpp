// Benchmarks of synthetic images.
#include "harness.h"
#include "zori/synthetic.h"

using bench::Image;
using bench::Run;

static const bench::Group synthetic("synthetic", [](bench::Group& g) {
  g.both("ImageJaehne 8u C1", [](ZorImgSize size) {
    const Image<Zor8u> dst(size);
    return Run{0, dst.bytes(), [=] { return zoriImageJaehne_8u_C1R(dst, dst.step, size); }};
  });
  g.both("ImageRamp 8u C3", [](ZorImgSize size) {
    const Image<Zor8u> dst(size, 3);
    return Run{0, dst.bytes(), [=] { return zoriImageRamp_8u_C3R(dst, dst.step, size, 0, 0.1f, ZorRampAlongBoth); }};
  });
  g.both("AddRandUniform 8u C1", [](ZorImgSize size) {
    const Image<Zor8u> dst(size);
    return Run{dst.bytes(), dst.bytes(), [=] {
                 Zor32u seed = 7;
                 return zoriAddRandUniform_Direct_8u_C1IR(dst, dst.step, size, 0, 20, &seed);
               }};
  });
  g.both("AddRandGauss 8u C1", [](ZorImgSize size) {
    const Image<Zor8u> dst(size);
    return Run{dst.bytes(), dst.bytes(), [=] {
                 Zor32u seed = 7;
                 return zoriAddRandGauss_Direct_8u_C1IR(dst, dst.step, size, 0, 20, &seed);
               }};
  });
  g.both("WinHamming 32f C1", [](ZorImgSize size) {
    const Image<Zor32f> src(size), dst(size);
    return Run{src.bytes(), dst.bytes(), [=] { return zoriWinHamming_32f_C1R(src, src.step, dst, dst.step, size); }};
  });
  g.both("WinBartlettSep 8u C1", [](ZorImgSize size) {
    const Image<Zor8u> src(size), dst(size);
    return Run{src.bytes(), dst.bytes(), [=] { return zoriWinBartlettSep_8u_C1R(src, src.step, dst, dst.step, size); }};
  });
});
