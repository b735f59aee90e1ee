// Benchmarks of bitwise operations and shifts.
#include "harness.h"
#include "zori/arith.h"

using bench::Image;
using bench::Run;

static const bench::Group logic("logic", [](bench::Group& g) {
  g.map("And 8u C1", zoriAnd_8u_C1R, 1, [](Zor8u a, Zor8u b) { return Zor8u(a & b); });
  g.map("Or 8u C4", zoriOr_8u_C4R, 4, [](Zor8u a, Zor8u b) { return Zor8u(a | b); });
  g.map("Xor 32s C1", zoriXor_32s_C1R, 1, [](Zor32s a, Zor32s b) { return a ^ b; });
  g.map("And 8u AC4", zoriAnd_8u_AC4R, 4, [](Zor8u a, Zor8u b) { return Zor8u(a & b); });
  g.map("Not 8u C3", zoriNot_8u_C3R, 3, [](Zor8u x) { return Zor8u(~x); });
  g.both("AndC 8u C3", [](ZorImgSize size) {
    const Image<Zor8u> src(size, 3), dst(size, 3);
    static const Zor8u value[3] = {15, 240, 60};
    return Run{src.bytes(), dst.bytes(), [=] { return zoriAndC_8u_C3R(src, src.step, value, dst, dst.step, size); }};
  });
  g.both("LShiftC 8u C1", [](ZorImgSize size) {
    const Image<Zor8u> src(size), dst(size);
    return Run{src.bytes(), dst.bytes(), [=] { return zoriLShiftC_8u_C1R(src, src.step, 3, dst, dst.step, size); }};
  });
  g.both("RShiftC 16s C3", [](ZorImgSize size) {
    const Image<Zor16s> src(size, 3), dst(size, 3);
    static const Zor32u counts[3] = {1, 5, 9};
    return Run{src.bytes(), dst.bytes(),
               [=] { return zoriRShiftC_16s_C3R(src, src.step, counts, dst, dst.step, size); }};
  });
});
