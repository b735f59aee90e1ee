// Benchmarks of scaled arithmetic.
#include "harness.h"
#include "zori/arith.h"

#include <algorithm>
#include <limits>

using bench::Image, bench::Run;

namespace {

template <class T> T saturate(int v)
{
  return static_cast<T>(std::clamp<int>(v, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}
int halfEven(int v, int scale) { return scale == 0 ? v : (v + (1 << (scale - 1)) - 1 + ((v >> scale) & 1)) >> scale; }

// An image and a constant, the same in all channels.
template <class T, class V, class Op, class... E>
void constant(bench::Group& g, const char* name, ZorStatus (*function)(const T*, int, V, T*, int, ZorImgSize, E...),
              int channels, V value, Op naive, E... scale)
{
  g.both(name, [=](ZorImgSize size) {
    const Image<T> src(size, channels), dst(size, channels);
    return Run{src.bytes(), dst.bytes(),
               [=] { return function(src, src.step, value, dst, dst.step, size, scale...); },
               [=] { naiveMap(naive, dst, src); }};
  });
}

const bench::Group scaled("arith", [](bench::Group& g) {
  const auto sum8 = [](Zor8u a, Zor8u b) { return saturate<Zor8u>(a + b); };
  g.map("Add 8u C1", zoriAdd_8u_C1RSfs, 1, sum8, 0);
  g.at("Add 8u C1 4096", {4096, 4096}, [](ZorImgSize size) {
    const Image<Zor8u> a(size), b(size), d(size);
    return Run{a.bytes() + b.bytes(), d.bytes(),
               [=] { return zoriAdd_8u_C1RSfs(a, a.step, b, b.step, d, d.step, size, 0); }};
  });
  g.map("Add 8u C1 scale 1", zoriAdd_8u_C1RSfs, 1, [](Zor8u a, Zor8u b) { return saturate<Zor8u>(halfEven(a + b, 1)); }, 1);
  g.map("Add 8u C1 scale 3", zoriAdd_8u_C1RSfs, 1, [](Zor8u a, Zor8u b) { return saturate<Zor8u>(halfEven(a + b, 3)); }, 3);
  g.map("Add 8u AC4", zoriAdd_8u_AC4RSfs, 4, sum8, 0);
  g.map("Sub 8u C1", zoriSub_8u_C1RSfs, 1, [](Zor8u a, Zor8u b) { return saturate<Zor8u>(b - a); }, 0);
  g.map("Mul 8u C1 scale 0", zoriMul_8u_C1RSfs, 1, [](Zor8u a, Zor8u b) { return saturate<Zor8u>(a * b); }, 0);
  g.map("Mul 8u C1 scale 8", zoriMul_8u_C1RSfs, 1, [](Zor8u a, Zor8u b) { return saturate<Zor8u>(halfEven(a * b, 8)); }, 8);
  g.map("Add 16s C1", zoriAdd_16s_C1RSfs, 1, [](Zor16s a, Zor16s b) { return saturate<Zor16s>(a + b); }, 0);
  g.map("Add 16s C1 scale 1", zoriAdd_16s_C1RSfs, 1, [](Zor16s a, Zor16s b) { return saturate<Zor16s>(halfEven(a + b, 1)); }, 1);
  g.map("Add 16u C1 scale -3", zoriAdd_16u_C1RSfs, 1, [](Zor16u a, Zor16u b) { return saturate<Zor16u>((a + b) * 8); }, -3);
  g.map("Mul 16s C1 scale 8", zoriMul_16s_C1RSfs, 1, [](Zor16s a, Zor16s b) { return saturate<Zor16s>(halfEven(a * b, 8)); }, 8);
  g.map("Mul 16u C1 scale 16", zoriMul_16u_C1RSfs, 1, [](Zor16u a, Zor16u b) {
    const unsigned v = unsigned{a} * b;
    return static_cast<Zor16u>((v + 32767 + ((v >> 16) & 1)) >> 16);
  }, 16);
  g.map("Add 32f C1", zoriAdd_32f_C1R, 1, [](Zor32f a, Zor32f b) { return a + b; });
  g.map("Sub 32f C1", zoriSub_32f_C1R, 1, [](Zor32f a, Zor32f b) { return b - a; });
  g.map("Mul 32f C3", zoriMul_32f_C3R, 3, [](Zor32f a, Zor32f b) { return a * b; });

  static const Zor8u three8[] = {3, 3, 3};
  static const Zor16sc c16 = {1200, -345};
  constant<Zor8u, Zor8u>(g, "AddC 8u C1", zoriAddC_8u_C1RSfs, 1, 3, [](Zor8u a) { return saturate<Zor8u>(a + 3); }, 0);
  constant<Zor8u, const Zor8u*>(g, "AddC 8u C3", zoriAddC_8u_C3RSfs, 3, three8, [](Zor8u a) { return saturate<Zor8u>(a + 3); }, 0);
  constant<Zor16s, Zor16s>(g, "AddC 16s C1", zoriAddC_16s_C1RSfs, 1, 3, [](Zor16s a) { return saturate<Zor16s>(a + 3); }, 0);
  constant<Zor32f, Zor32f>(g, "AddC 32f C1", zoriAddC_32f_C1R, 1, 3, [](Zor32f a) { return a + 3; });
  constant<Zor8u, Zor8u>(g, "MulC 8u C1 scale 4", zoriMulC_8u_C1RSfs, 1, 13, [](Zor8u a) { return saturate<Zor8u>(halfEven(a * 13, 4)); }, 4);
  constant<Zor32f, Zor32f>(g, "MulC 32f C1", zoriMulC_32f_C1R, 1, 3, [](Zor32f a) { return a * 3; });
  constant<Zor16sc, Zor16sc>(g, "MulC 16sc C1 scale 10", zoriMulC_16sc_C1RSfs, 1, c16, [](Zor16sc a) {
    return Zor16sc{saturate<Zor16s>(halfEven(a.re * c16.re - a.im * c16.im, 10)),
                   saturate<Zor16s>(halfEven(a.re * c16.im + a.im * c16.re, 10))};
  }, 10);
  g.map("Mul 32sc C1 scale 20", zoriMul_32sc_C1RSfs, 1, [](Zor32sc a, Zor32sc b) {
    const auto scaled = [](Zor64s v) {
      v = (v + (1 << 19) - 1 + ((v >> 20) & 1)) >> 20;
      return static_cast<Zor32s>(std::clamp<Zor64s>(v, INT32_MIN, INT32_MAX));
    };
    return Zor32sc{scaled(Zor64s{a.re} * b.re - Zor64s{a.im} * b.im), scaled(Zor64s{a.re} * b.im + Zor64s{a.im} * b.re)};
  }, 20);
});

} // namespace
