// Benchmarks of division. The naive loops round and saturate as the library does.
#include "harness.h"
#include "zori/arith.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

// Zeros of the noise become ones: a loop without zero rules divides by them.
template <class T> T orOne(T x) { return x == T(0) ? T(1) : x; }

template <class T> T saturated(float q)
{
  const float least = std::numeric_limits<T>::min(), greatest = std::numeric_limits<T>::max();
  return static_cast<T>(std::min(std::max(q, least), greatest));
}
template <class T> T quotient(T d, T n) { return saturated<T>(std::nearbyint(float(n) / float(orOne(d)))); }
template <class T> T quotientBy3(T n) { return saturated<T>(std::nearbyint(float(n) / 3)); }
Zor8u quotientTiesUp(Zor8u d, Zor8u n) { return saturated<Zor8u>(std::floor(float(n) / float(orOne(d)) + 0.5f)); }

Zor32fc complexQuotient(Zor32fc d, Zor32fc n)
{
  const float square = d.re * d.re + d.im * d.im;
  return {(n.re * d.re + n.im * d.im) / square, (n.im * d.re - n.re * d.im) / square};
}

} // namespace

static const bench::Group division("arith", [](bench::Group& g) {
  using bench::Image;
  using bench::Run;
  g.map("Div 8u C1", zoriDiv_8u_C1RSfs, 1, quotient<Zor8u>, 0);
  g.map("Div 8u AC4", zoriDiv_8u_AC4RSfs, 4, quotient<Zor8u>, 0);
  g.map("Div 16u C1", zoriDiv_16u_C1RSfs, 1, quotient<Zor16u>, 0);
  g.map("Div 16s C1", zoriDiv_16s_C1RSfs, 1, quotient<Zor16s>, 0);
  g.map("Div 32f C1", zoriDiv_32f_C1R, 1, [](Zor32f d, Zor32f n) { return n / d; });
  g.map("Div_Round 8u C1", zoriDiv_Round_8u_C1RSfs, 1, quotientTiesUp, ZorRoundNearestAway, 0);
  g.both("Div 32fc C1", [](ZorImgSize size) {
    const Image<Zor32f> a({2 * size.width, size.height}), b(a.size), dst(a.size);
    const auto row = [](const Image<Zor32f>& image, int y) { return reinterpret_cast<Zor32fc*>(image.row(y)); };
    return Run{a.bytes() + b.bytes(), dst.bytes(),
               [=] { return zoriDiv_32fc_C1R(row(a, 0), a.step, row(b, 0), b.step, row(dst, 0), dst.step, size); },
               [=] {
                 for (int y = 0; y < size.height; ++y)
                   bench::naiveRow(size.width, complexQuotient, row(dst, y), row(a, y), row(b, y));
               }};
  });
  g.both("DivC 8u C1", [](ZorImgSize size) {
    const Image<Zor8u> src(size), dst(size);
    return Run{src.bytes(), dst.bytes(), [=] { return zoriDivC_8u_C1RSfs(src, src.step, 3, dst, dst.step, size, 0); },
               [=] { bench::naiveMap(quotientBy3<Zor8u>, dst, src); }};
  });
  g.both("DivC 16u C3", [](ZorImgSize size) {
    static constexpr Zor16u threes[3] = {3, 3, 3};
    const Image<Zor16u> src(size, 3), dst(size, 3);
    return Run{src.bytes(), dst.bytes(),
               [=] { return zoriDivC_16u_C3RSfs(src, src.step, threes, dst, dst.step, size, 0); },
               [=] { bench::naiveMap(quotientBy3<Zor16u>, dst, src); }};
  });
  g.both("DivC 32f C1", [](ZorImgSize size) {
    const Image<Zor32f> src(size), dst(size);
    return Run{src.bytes(), dst.bytes(), [=] { return zoriDivC_32f_C1R(src, src.step, 3, dst, dst.step, size); },
               [=] { bench::naiveMap([](Zor32f x) { return x / 3; }, dst, src); }};
  });
});
