// Benchmarks of scaled arithmetic. The naive loops know their scale when they are compiled.
#include "harness.h"
#include "zori/arith.h"

#include <algorithm>
#include <limits>

using bench::Image, bench::Run;

namespace {

template <class T, int scale, class V> T scaled(V v)
{
  using Limits = std::numeric_limits<T>;
  if constexpr (scale > 0) v = (v + (V{1} << (scale - 1)) - 1 + ((v >> scale) & 1)) >> scale;
  else v *= V{1} << -scale;
  return static_cast<T>(std::clamp<V>(v, Limits::min(), Limits::max()));
}

template <int scale = 0> struct Add {
  template <class T> T operator()(T a, T b) const { return scaled<T, scale>(a + b); }
  Zor32f operator()(Zor32f a, Zor32f b) const { return a + b; }
};
template <int scale = 0> struct Sub {
  template <class T> T operator()(T a, T b) const { return scaled<T, scale>(b - a); }
  Zor32f operator()(Zor32f a, Zor32f b) const { return b - a; }
};
template <int scale = 0> struct Mul {
  template <class T> T operator()(T a, T b) const { return scaled<T, scale>(a * b); }
  Zor16u operator()(Zor16u a, Zor16u b) const { return scaled<Zor16u, scale>(Zor32u{a} * b); }
  Zor32f operator()(Zor32f a, Zor32f b) const { return a * b; }
  Zor32sc operator()(Zor32sc a, Zor32sc b) const
  {
    return {scaled<Zor32s, scale>(Zor64s{a.re} * b.re - Zor64s{a.im} * b.im),
            scaled<Zor32s, scale>(Zor64s{a.re} * b.im + Zor64s{a.im} * b.re)};
  }
  Zor16sc operator()(Zor16sc a, Zor16sc b) const
  {
    return {scaled<Zor16s, scale>(a.re * b.re - a.im * b.im), scaled<Zor16s, scale>(a.re * b.im + a.im * b.re)};
  }
};

// An image and a constant, the same in all channels.
template <class T, class V, class Op, class... E>
void constant(bench::Group& g, const char* name, ZorStatus (*function)(const T*, int, V, T*, int, ZorImgSize, E...),
              int channels, V value, Op op, T number, E... scale)
{
  g.both(name, [=](ZorImgSize size) {
    const Image<T> src(size, channels), dst(size, channels);
    return Run{src.bytes(), dst.bytes(), [=] { return function(src, src.step, value, dst, dst.step, size, scale...); },
               [=] { naiveMap([=](T x) { return op(x, number); }, dst, src); }};
  });
}

constexpr Zor8u three8[] = {3, 3, 3};
constexpr Zor32f three32[] = {3, 3, 3};
constexpr Zor16sc c16 = {1200, -345};

const bench::Group group("arith", [](bench::Group& g) {
  g.map("Add 8u C1", zoriAdd_8u_C1RSfs, 1, Add{}, 0);
  g.at("Add 8u C1 4096", {4096, 4096}, [](ZorImgSize size) {
    const Image<Zor8u> a(size), b(size), d(size);
    return Run{a.bytes() + b.bytes(), d.bytes(),
               [=] { return zoriAdd_8u_C1RSfs(a, a.step, b, b.step, d, d.step, size, 0); }};
  });
  g.map("Add 8u C4", zoriAdd_8u_C4RSfs, 4, Add{}, 0);
  g.map("Add 8u C1 scale 1", zoriAdd_8u_C1RSfs, 1, Add<1>{}, 1);
  g.map("Add 8u C1 scale 3", zoriAdd_8u_C1RSfs, 1, Add<3>{}, 3);
  g.map("Add 8u AC4", zoriAdd_8u_AC4RSfs, 4, Add{}, 0);
  g.map("Add 16s C1", zoriAdd_16s_C1RSfs, 1, Add{}, 0);
  g.map("Add 16s C1 scale 1", zoriAdd_16s_C1RSfs, 1, Add<1>{}, 1);
  g.map("Add 16s C1 scale 4", zoriAdd_16s_C1RSfs, 1, Add<4>{}, 4);
  g.map("Add 16u C1 scale -3", zoriAdd_16u_C1RSfs, 1, Add<-3>{}, -3);
  g.map("Add 32f C1", zoriAdd_32f_C1R, 1, Add{});
  g.map("Sub 8u C1", zoriSub_8u_C1RSfs, 1, Sub{}, 0);
  g.map("Sub 16s C1 scale 1", zoriSub_16s_C1RSfs, 1, Sub<1>{}, 1);
  g.map("Sub 32f C1", zoriSub_32f_C1R, 1, Sub{});
  g.map("Mul 8u C1 scale 0", zoriMul_8u_C1RSfs, 1, Mul{}, 0);
  g.map("Mul 8u C1 scale 8", zoriMul_8u_C1RSfs, 1, Mul<8>{}, 8);
  g.map("Mul 16s C1 scale 8", zoriMul_16s_C1RSfs, 1, Mul<8>{}, 8);
  g.map("Mul 16u C1 scale 16", zoriMul_16u_C1RSfs, 1, Mul<16>{}, 16);
  g.map("Mul 32f C3", zoriMul_32f_C3R, 3, Mul{});
  g.map("Mul 16sc C1 scale 10", zoriMul_16sc_C1RSfs, 1, Mul<10>{}, 10);
  g.map("Mul 32sc C1 scale 20", zoriMul_32sc_C1RSfs, 1, Mul<20>{}, 20);

  constant(g, "AddC 8u C1", zoriAddC_8u_C1RSfs, 1, Zor8u{3}, Add{}, Zor8u{3}, 0);
  constant(g, "AddC 8u C3", zoriAddC_8u_C3RSfs, 3, three8, Add{}, Zor8u{3}, 0);
  constant(g, "AddC 16s C1", zoriAddC_16s_C1RSfs, 1, Zor16s{3}, Add{}, Zor16s{3}, 0);
  constant(g, "AddC 32f C1", zoriAddC_32f_C1R, 1, 3.0f, Add{}, 3.0f);
  constant(g, "AddC 32f C3", zoriAddC_32f_C3R, 3, three32, Add{}, 3.0f);
  constant(g, "MulC 8u C1 scale 4", zoriMulC_8u_C1RSfs, 1, Zor8u{13}, Mul<4>{}, Zor8u{13}, 4);
  constant(g, "MulC 32f C1", zoriMulC_32f_C1R, 1, 3.0f, Mul{}, 3.0f);
  constant(g, "MulC 16sc C1 scale 10", zoriMulC_16sc_C1RSfs, 1, c16, Mul<10>{}, c16, 10);
});

} // namespace
