// Transforms, spectra and correlations against their definitions in exact arithmetic: every length up to 512, and
// chosen ones beyond.
#include "accuracy.h"

#include <complex>

using namespace accuracy;

namespace {

using Complex = std::complex<double>;
const double pi = std::acos(-1.0);

// What is promised of a transform of n values, as a part of the 2-norm of its input; each error is within six times
// that.
double promisedOfTransform(int n)
{
  int rest = n;
  for (int p = 2; p <= 150; ++p)
    while (rest % p == 0) rest /= p;
  return (1 + 0.6 * std::sqrt(std::log2(n))) * 1e-7 * (rest > 1 ? 4 : 1);
}

struct Spread {
  double squares = 0, most = 0, norm = 0;
  int count = 0;
  void add(Complex got, Complex exact)
  {
    const double error = std::abs(got - exact);
    squares += error * error, most = std::max(most, error), ++count;
  }
};

// The greatest share of what is promised that was needed.
struct Shares {
  double rms = 0, most = 0;
  void add(const Spread& s, int n)
  {
    const double unit = promisedOfTransform(n) * s.norm;
    rms = std::max(rms, std::sqrt(s.squares / s.count) / unit), most = std::max(most, s.most / (6 * unit));
  }
  void hold(const char* name) const
  {
    std::printf("%-44s root mean square %.3g, greatest %.3g of what is told\n", name, rms, most);
    EXPECT_LE(rms, 1) << name;
    EXPECT_LE(most, 1) << name;
  }
};

std::vector<int> lengths()
{
  std::vector<int> all;
  for (int n = 1; n <= 512; ++n) all.push_back(n);
  for (const int n : {600, 997, 1000, 1024, 1155, 2048, 2003, 4096}) all.push_back(n);
  return all;
}

// e^(2 pi i k / n)
std::vector<Complex> turns(int n)
{
  std::vector<Complex> w(static_cast<std::size_t>(n));
  for (int k = 0; k < n; ++k) w[static_cast<std::size_t>(k)] = std::polar(1.0, 2 * pi * k / n);
  return w;
}

// Some of the coefficients, where there are many.
int strideOf(int n) { return n <= 512 ? 1 : 7; }

} // namespace

TEST(SpectralAccuracy, Transforms)
{
  Shares complex, packed, cosine;
  for (const int n : lengths()) {
    Noise noise(static_cast<unsigned>(n));
    std::vector<Zor32fc> a(static_cast<std::size_t>(n)), spectrum(a.size());
    std::vector<Zor32f> real(a.size()), coefficients(a.size()), pack(a.size());
    Spread s, p, c;
    for (std::size_t i = 0; i < a.size(); ++i) {
      a[i] = {static_cast<float>(noise.uniform(-1, 1)), static_cast<float>(noise.uniform(-1, 1))};
      real[i] = a[i].re;
      s.norm += a[i].re * a[i].re + a[i].im * a[i].im, p.norm += real[i] * real[i];
    }
    s.norm = std::sqrt(s.norm), c.norm = p.norm = std::sqrt(p.norm);
    ZorDftImgRecord* record = nullptr;
    ASSERT_EQ(zoriDFTInitAlloc_C_32fc(&record, n, 1, ZorFftNoDiv, ZorHintNone), ZorOk);
    ASSERT_EQ(zoriDFTFwd_CToC_32fc_C1R(a.data(), 8 * n, spectrum.data(), 8 * n, record, nullptr), ZorOk);
    zoriDFTFree_C_32fc(record);
    ASSERT_EQ(zoriDFTInitAlloc_R_32f(&record, n, 1, ZorFftNoDiv, ZorHintNone), ZorOk);
    ASSERT_EQ(zoriDFTFwd_RToPack_32f_C1R(real.data(), 4 * n, pack.data(), 4 * n, record, nullptr), ZorOk);
    zoriDFTFree_R_32f(record);
    ZorDctImgRecord* cosines = nullptr;
    ASSERT_EQ(zoriDCTFwdInitAlloc_32f(&cosines, {n, 1}, ZorHintNone), ZorOk);
    ASSERT_EQ(zoriDCTFwd_32f_C1R(real.data(), 4 * n, coefficients.data(), 4 * n, cosines, nullptr), ZorOk);
    zoriDCTFwdFree_32f(cosines);
    const std::vector<Complex> w = turns(n), quarters = turns(4 * n);
    for (int k = 0; k < n; k += strideOf(n)) {
      Complex sum = 0, ofReal = 0;
      double ofCosines = 0;
      for (std::size_t i = 0, turn = 0; i < a.size(); ++i) {
        const Complex by = std::conj(w[turn]);
        turn = (turn + static_cast<std::size_t>(k)) % a.size();
        sum += Complex(a[i].re, a[i].im) * by, ofReal += Complex(real[i]) * by;
        const std::size_t angle = static_cast<std::size_t>(k) * (2 * i + 1) % quarters.size();
        ofCosines += real[i] * quarters[angle].real();
      }
      const auto at = static_cast<std::size_t>(k);
      s.add({spectrum[at].re, spectrum[at].im}, sum);
      if (k == 0) p.add({pack[0], 0}, {ofReal.real(), 0});
      else if (2 * k < n) p.add({pack[2 * at - 1], pack[2 * at]}, ofReal);
      else if (2 * k == n) p.add({pack[2 * at - 1], 0}, {ofReal.real(), 0});
      c.add({coefficients[at], 0}, {ofCosines * std::sqrt((k ? 2.0 : 1.0) / n), 0});
    }
    complex.add(s, n), packed.add(p, n), cosine.add(c, n);
  }
  complex.hold("zoriDFTFwd_CToC_32fc_C1R");
  packed.hold("zoriDFTFwd_RToPack_32f_C1R");
  cosine.hold("zoriDCTFwd_32f_C1R");
}

TEST(SpectralAccuracy, Blocks)
{
  Noise noise(5);
  Error forward, floats, quarter;
  for (int block = 0; block < 100; ++block) {
    Zor16s x[64], y[64], small[4], back[64];
    Zor32f fx[64], fy[64];
    double norm = 0;
    for (int i = 0; i < 64; ++i)
      fx[i] = x[i] = static_cast<Zor16s>(noise.below(511) - 255), norm += double(x[i]) * x[i];
    zoriDCT8x8Fwd_16s_C1(x, y);
    zoriDCT8x8Fwd_32f_C1(fx, fy);
    zoriDCT8x8To2x2Inv_16s_C1(y, small);
    zoriDCT8x8Inv_16s_C1(y, back);
    double means[4] = {};
    for (int v = 0; v < 8; ++v)
      for (int u = 0; u < 8; ++u) {
        Real exact = 0, inverse = 0;
        for (int j = 0; j < 8; ++j)
          for (int i = 0; i < 8; ++i) {
            const auto wave = [](int k, int at) {
              return (k ? 0.5L : std::sqrt(0.125L)) * std::cos((2 * at + 1) * k * std::acos(Real{-1}) / 16);
            };
            exact += wave(u, i) * wave(v, j) * x[j * 8 + i];
            inverse += wave(i, u) * wave(j, v) * y[j * 8 + i];
          }
        forward.add(y[v * 8 + u], exact, 1);
        floats.add(fy[v * 8 + u], exact, std::sqrt(norm));
        means[v / 4 * 2 + u / 4] += static_cast<double>(inverse / 16);
      }
    for (int i = 0; i < 4; ++i) quarter.add(small[i], means[i], 1);
  }
  hold("zoriDCT8x8Fwd_16s_C1", forward);
  hold("zoriDCT8x8Fwd_32f_C1", floats, "of the 2-norm");
  hold("zoriDCT8x8To2x2Inv_16s_C1", quarter);
}

TEST(SpectralAccuracy, ComplexPixels)
{
  constexpr int width = 301, height = 200;
  Picture<Zor32fc> a(width, height), polar(width, height);
  Picture<Zor32f> magnitude(width, height), phase(width, height);
  Picture<Zor16sc> b(width, height);
  Picture<Zor32sc> c(width, height);
  Picture<Zor16s> phase16(width, height);
  Picture<Zor32s> magnitude32(width, height);
  Noise noise(6);
  for (std::size_t i = 0; i < a.samples.size(); ++i) {
    const float scale = static_cast<float>(std::exp(noise.uniform(-10, 10)));
    a.samples[i] = {static_cast<float>(noise.uniform(-1, 1)) * scale, static_cast<float>(noise.uniform(-1, 1)) * scale};
    b.samples[i] = {static_cast<Zor16s>(noise.bits()), static_cast<Zor16s>(noise.bits())};
    c.samples[i] = {static_cast<Zor32s>(noise.bits()) / 2, static_cast<Zor32s>(noise.bits()) / 2};
  }
  zoriMagnitude_32fc32f_C1R(a.data(), a.step(), magnitude.data(), magnitude.step(), a.size());
  zoriPhase_32fc32f_C1R(a.data(), a.step(), phase.data(), phase.step(), a.size());
  zoriPhase_16sc16s_C1RSfs(b.data(), b.step(), phase16.data(), phase16.step(), b.size(), -13);
  zoriMagnitude_32sc32s_C1RSfs(c.data(), c.step(), magnitude32.data(), magnitude32.step(), c.size(), 8);
  Error magnitudes, phases, phases16, magnitudes32, points;
  for (std::size_t i = 0; i < a.samples.size(); ++i) {
    const Real size = std::hypot(Real{a.samples[i].re}, Real{a.samples[i].im});
    const Real angle = std::atan2(Real{a.samples[i].im}, Real{a.samples[i].re});
    magnitudes.add(magnitude.samples[i], size, size);
    phases.add(phase.samples[i], angle, std::fabs(angle));
    phases16.add(phase16.samples[i], std::atan2(Real(b.samples[i].im), Real(b.samples[i].re)) * 8192, 1);
    magnitudes32.add(magnitude32.samples[i], std::hypot(Real(c.samples[i].re), Real(c.samples[i].im)) / 256, 1);
    a.samples[i] = {a.samples[i].re, a.samples[i].im > 1000 ? 1.f : a.samples[i].im};
  }
  hold("zoriMagnitude_32fc32f_C1R", magnitudes, "of the value");
  hold("zoriPhase_32fc32f_C1R", phases, "of the value", 1);
  hold("zoriPhase_16sc16s_C1RSfs", phases16);
  hold("zoriMagnitude_32sc32s_C1RSfs", magnitudes32);
  zoriPolarToCart_32fc_C1R(a.data(), a.step(), polar.data(), polar.step(), a.size());
  for (std::size_t i = 0; i < a.samples.size(); ++i) {
    const Real m = a.samples[i].re, angle = a.samples[i].im;
    points.add(polar.samples[i].re, m * std::cos(angle), unitOf<float>(m));
    points.add(polar.samples[i].im, m * std::sin(angle), unitOf<float>(m));
  }
  hold("zoriPolarToCart_32fc_C1R", points, "of the magnitude's last place");

  Picture<Zor32f> p(64, 64), q(64, 64), product(64, 64);
  p.fillWithNoise(1), q.fillWithNoise(2);
  zoriMulPack_32f_C1R(p.data(), p.step(), q.data(), q.step(), product.data(), product.step(), p.size());
  Error products;
  for (int y = 0; y < 64; ++y)
    for (int k = 1; k < 32; ++k) {
      const std::complex<Real> one(p.at(2 * k - 1, y), p.at(2 * k, y)), other(q.at(2 * k - 1, y), q.at(2 * k, y));
      const std::complex<Real> exact = one * other;
      const Real size = std::abs(one) * std::abs(other);
      products.add(product.at(2 * k - 1, y), exact.real(), size),
        products.add(product.at(2 * k, y), exact.imag(), size);
    }
  hold("zoriMulPack_32f_C1R", products, "of the magnitudes");
}

TEST(SpectralAccuracy, Wavelets)
{
  const Zor32f low[4] = {0.48296291f, 0.83651630f, 0.22414387f, -0.12940952f};
  const Zor32f high[4] = {-0.12940952f, -0.22414387f, 0.83651630f, -0.48296291f};
  ZorWtFwdState* state = nullptr;
  ASSERT_EQ(zoriWTFwdInitAlloc_32f_C1R(&state, low, 4, 1, high, 4, 1), ZorOk);
  int bytes = 0;
  zoriWTFwdGetBufSize_C1R(state, &bytes);
  std::vector<Zor8u> buffer(static_cast<std::size_t>(bytes));
  Picture<Zor32f> src(200, 100, 4);
  src.fillWithNoise(3);
  Picture<Zor32f> d[4] = {{100, 50}, {100, 50}, {100, 50}, {100, 50}};
  ASSERT_EQ(zoriWTFwd_32f_C1R(src.data(), src.step(), d[0].data(), d[0].step(), d[1].data(), d[1].step(), d[2].data(),
                              d[2].step(), d[3].data(), d[3].step(), d[0].size(), state, buffer.data()),
            ZorOk);
  zoriWTFwdFree_32f_C1R(state);
  Error error;
  for (int band = 0; band < 4; ++band) // LL, HL (high along columns), LH (high along rows), HH
    for (int y = 0; y < 50; ++y)
      for (int x = 0; x < 100; ++x) {
        const Zor32f *const rows = band & 2 ? high : low, *const columns = band & 1 ? high : low;
        Real exact = 0, size = 0;
        for (int j = 0; j < 4; ++j)
          for (int i = 0; i < 4; ++i) {
            const Real part = Real{rows[i]} * columns[j] * src.at(2 * x + 1 - i, 2 * y + 1 - j);
            exact += part, size += std::fabs(part);
          }
        error.add(d[band].at(x, y), exact, size * 8);
      }
  hold("zoriWTFwd_32f_C1R", error, "of the sum of magnitudes, for each tap");
}

// Images of so many columns and a few rows, and the other way round, under templates of half their size; at places all
// over the results, the corners among them.
TEST(CorrelationAccuracy, AllSizes)
{
  Error sums, convolved;
  for (const int n : lengths())
    for (const bool isUpright : {false, true}) {
      const int few = 9, half = n / 2 + 1;
      Picture<Zor32f> src(isUpright ? few : n, isUpright ? n : few), tpl(isUpright ? 6 : half, isUpright ? half : 6);
      src.fillWithNoise(static_cast<unsigned>(n)), tpl.fillWithNoise(1);
      Picture<Zor32f> raw(src.width - tpl.width + 1, src.height - tpl.height + 1);
      Picture<Zor32f> full(src.width + tpl.width - 1, src.height + tpl.height - 1);
      ASSERT_EQ(zoriCrossCorrValid_32f_C1R(src.data(), src.step(), src.size(), tpl.data(), tpl.step(), tpl.size(),
                                           raw.data(), raw.step()),
                ZorOk);
      ASSERT_EQ(zoriConvFull_32f_C1R(src.data(), src.step(), src.size(), tpl.data(), tpl.step(), tpl.size(),
                                     full.data(), full.step()),
                ZorOk);
      Real image = 0, ofTemplate = 0;
      for (const float s : src.samples) image += Real{s} * s;
      for (const float t : tpl.samples) ofTemplate += Real{t} * t;
      const Real norms = std::sqrt(image * ofTemplate);
      const auto overPlaces = [](Picture<Zor32f>& results, auto exact, Error& error, Real unit) {
        constexpr int places = 11;
        const int last = static_cast<int>(results.samples.size()) - 1;
        for (int k = 0; k < places; ++k) {
          const int at = static_cast<int>(std::int64_t{last} * k / (places - 1));
          error.add(results.samples[static_cast<std::size_t>(at)], exact(at % results.width, at / results.width), unit);
        }
      };
      const auto correlation = [&](int x, int y) {
        Real sum = 0;
        for (int j = 0; j < tpl.height; ++j)
          for (int i = 0; i < tpl.width; ++i) sum += Real{src.at(x + i, y + j)} * tpl.at(i, j);
        return sum;
      };
      const auto convolution = [&](int x, int y) {
        Real sum = 0;
        for (int j = std::max(0, y - src.height + 1); j < std::min(tpl.height, y + 1); ++j)
          for (int i = std::max(0, x - src.width + 1); i < std::min(tpl.width, x + 1); ++i)
            sum += Real{src.at(x - i, y - j)} * tpl.at(i, j);
        return sum;
      };
      overPlaces(raw, correlation, sums, norms);
      overPlaces(full, convolution, convolved, norms);
    }
  hold("zoriCrossCorrValid_32f_C1R", sums, "of the product of the 2-norms, all sizes");
  hold("zoriConvFull_32f_C1R", convolved, "of the product of the 2-norms, all sizes");
}

TEST(CorrelationAccuracy, SumsOfProducts)
{
  for (const int side : {3, 9, 24}) {
    Picture<Zor32f> src(91, 70), tpl(side, side + 2), level(side, side + 2);
    src.fillWithScene(1), tpl.fillWithNoise(2);
    Picture<Zor32f> raw(src.width - side + 1, src.height - side - 1), distance(raw.width, raw.height);
    Picture<Zor32f> full(src.width + side - 1, src.height + side + 1);
    zoriCrossCorrValid_32f_C1R(src.data(), src.step(), src.size(), tpl.data(), tpl.step(), tpl.size(), raw.data(),
                               raw.step());
    zoriSqrDistanceValid_Norm_32f_C1R(src.data(), src.step(), src.size(), tpl.data(), tpl.step(), tpl.size(),
                                      distance.data(), distance.step());
    zoriConvFull_32f_C1R(src.data(), src.step(), src.size(), tpl.data(), tpl.step(), tpl.size(), full.data(),
                         full.step());
    Real image = 0, ofTemplate = 0;
    for (const float s : src.samples) image += Real{s} * s;
    for (const float t : tpl.samples) ofTemplate += Real{t} * t;
    const Real norms = std::sqrt(image * ofTemplate);
    Error sums, distances, convolved;
    for (int y = 0; y < raw.height; ++y)
      for (int x = 0; x < raw.width; ++x) {
        Real sum = 0, squares = 0, apart = 0;
        for (int j = 0; j < tpl.height; ++j)
          for (int i = 0; i < tpl.width; ++i) {
            const Real s = src.at(x + i, y + j), t = tpl.at(i, j);
            sum += s * t, squares += s * s, apart += (s - t) * (s - t);
          }
        sums.add(raw.at(x, y), sum, norms);
        const Real divisor =
          std::sqrt(std::max<Real>(squares, 0.0005L)) * std::max<Real>(std::sqrt(ofTemplate), 0.0005L);
        distances.add(distance.at(x, y) * divisor, apart, norms + squares + ofTemplate);
      }
    for (int y = 0; y < full.height; ++y)
      for (int x = 0; x < full.width; ++x) {
        Real sum = 0;
        for (int j = std::max(0, y - src.height + 1); j < std::min(tpl.height, y + 1); ++j)
          for (int i = std::max(0, x - src.width + 1); i < std::min(tpl.width, x + 1); ++i)
            sum += Real{src.at(x - i, y - j)} * tpl.at(i, j);
        convolved.add(full.at(x, y), sum, norms);
      }
    hold("zoriCrossCorrValid_32f_C1R", sums, "of the product of the 2-norms");
    hold("zoriSqrDistanceValid_Norm_32f_C1R", distances, "of the norms and squares");
    hold("zoriConvFull_32f_C1R", convolved, "of the product of the 2-norms");
  }
}
