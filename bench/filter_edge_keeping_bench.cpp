// Benchmarks of the filters that smooth and keep edges: bilateral, Wiener.
#include "harness.h"
#include "zori/filter.h"

#include <algorithm>
#include <cmath>
#include <vector>

using bench::Framed;
using bench::Run;

namespace {

constexpr float valueVariance = 900, placeVariance = 9;

bench::Make bilateral(int side, int step = 1)
{
  return [=](ZorImgSize size) {
    const Framed<Zor8u> f(size, 1);
    const ZorImgSize kernel = {side, side};
    int bytes = 0;
    zoriFilterBilateralGetBufSize_8u_C1R(ZorBilateralGauss, size, kernel, &bytes);
    const auto buffer = bench::noise(static_cast<std::size_t>(bytes));
    const auto state = static_cast<ZorBilateralState*>(buffer.get());
    zoriFilterBilateralInit_8u_C1R(ZorBilateralGauss, kernel, valueVariance, placeVariance, step, state);
    std::vector<float> values(256), places(static_cast<std::size_t>(side * side));
    for (std::size_t d = 0; d < 256; ++d) values[d] = std::exp(-0.5f / valueVariance * static_cast<float>(d * d));
    const int r = side / 2;
    for (int j = -r; j <= r; ++j)
      for (int i = -r; i <= r; ++i)
        places[static_cast<std::size_t>((j + r) * side + i + r)] =
          std::exp(-0.5f / placeVariance * static_cast<float>(i * i + j * j));
    return Run{f.dst.bytes(), f.dst.bytes(),
               [=, keep = buffer] {
                 return zoriFilterBilateral_8u_C1R(f.at(0, 0), f.image.step, f.dst, f.dst.step, size, kernel, state);
               },
               [=] {
                 for (int y = 0; y < size.height; ++y)
                   for (int x = 0; x < size.width; ++x) {
                     const int c = *f.at(x, y);
                     float sum = 0, weights = 0;
                     for (int j = -r; j <= r; j += step)
                       for (int i = -r; i <= r; i += step) {
                         const int s = *f.at(x + i, y + j);
                         const float w = places[static_cast<std::size_t>((j + r) * side + i + r)] *
                                         values[static_cast<std::size_t>(std::abs(s - c))];
                         sum += w * static_cast<float>(s);
                         weights += w;
                       }
                     f.dst.row(y)[x] = static_cast<Zor8u>(sum / weights + 0.5f);
                   }
               }};
  };
}

template <class T>
bench::Make wiener(ZorStatus (*function)(const T*, int, T*, int, ZorImgSize, ZorImgSize, ZorImgPoint, Zor32f*, Zor8u*),
                   int channels, int side, float noise)
{
  return [=](ZorImgSize size) {
    const Framed<T> f(size, channels);
    const ZorImgSize mask = {side, side};
    int bytes = 0;
    zoriFilterWienerGetBufferSize(size, mask, channels, &bytes);
    const auto buffer = bench::noise(static_cast<std::size_t>(bytes));
    const std::function<void()> naive = [=] {
      const float n = noise * (sizeof(T) == 1 ? 65025.0f : sizeof(T) == 2 ? 4.3e9f : 1.0f);
      const auto area = static_cast<float>(side * side);
      for (int y = 0; y < size.height; ++y)
        for (int i = 0; i < f.dst.rowLength(); ++i) {
          float sum = 0, squares = 0;
          for (int j = 0; j < side; ++j)
            for (int k = 0; k < side; ++k) {
              const auto s = static_cast<float>(f.at(k - side / 2, y + j - side / 2)[i]);
              sum += s;
              squares += s * s;
            }
          const float m = sum / area, v = std::max(squares / area - m * m, n);
          f.dst.row(y)[i] = static_cast<T>(m + (v - n) / v * (static_cast<float>(f.at(0, y)[i]) - m));
        }
    };
    return Run{f.dst.bytes(), f.dst.bytes(),
               [=] {
                 Zor32f level[4] = {noise, noise, noise, noise};
                 return function(f.at(0, 0), f.image.step, f.dst, f.dst.step, size, mask, {side / 2, side / 2}, level,
                                 static_cast<Zor8u*>(buffer.get()));
               },
               noise > 0 ? naive : nullptr};
  };
}

} // namespace

static const bench::Group rank("rank", [](bench::Group& g) {
  g.both("Bilateral 8u C1 3x3", bilateral(3));
  g.both("Bilateral 8u C1 5x5 per tap", bilateral(5));
  g.both("Bilateral 8u C1 7x7 per tap", bilateral(7));
  g.both("Bilateral 8u C1 9x9 step 2", bilateral(9, 2));
  g.both("Bilateral 8u C1 15x15", bilateral(15));
  g.both("Bilateral 8u C1 31x31", bilateral(31));

  g.both("Wiener 8u C1 3x3", wiener(zoriFilterWiener_8u_C1R, 1, 3, 0.02f));
  g.both("Wiener 8u C1 5x5", wiener(zoriFilterWiener_8u_C1R, 1, 5, 0.02f));
  g.both("Wiener 8u C1 7x7", wiener(zoriFilterWiener_8u_C1R, 1, 7, 0.02f));
  g.both("Wiener 8u C1 5x5 estimated", wiener(zoriFilterWiener_8u_C1R, 1, 5, 0));
  g.both("Wiener 8u C3 5x5", wiener(zoriFilterWiener_8u_C3R, 3, 5, 0.02f));
  g.both("Wiener 16s C1 5x5", wiener(zoriFilterWiener_16s_C1R, 1, 5, 0.02f));
  g.both("Wiener 32f C1 5x5", wiener(zoriFilterWiener_32f_C1R, 1, 5, 0.02f));
  g.both("Wiener 8u C1 31x31", wiener(zoriFilterWiener_8u_C1R, 1, 31, 0.02f));
});
