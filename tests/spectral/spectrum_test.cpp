// Arithmetic on spectra: products in all parities against the definition, unfolding and packing, magnitude and phase.
#include "reference.h"
#include "zori/spectral.h"

#include <gtest/gtest.h>

#include <limits>

using namespace spectral;

extern "C" int zoriTestFailAllocationAt(int n);

namespace {

constexpr ZorImgSize sizes[] = {{1, 1}, {2, 1}, {1, 2}, {2, 2}, {3, 1}, {1, 3},  {3, 3},  {4, 2},
                                {5, 2}, {4, 5}, {7, 4}, {8, 8}, {9, 7}, {33, 6}, {34, 5}, {20, 9}};

// The whole spectrum that cells stand for, and the cells of it.
template <class T> Numbers unfolded(const std::vector<T>& cells, ZorImgSize size, int channels, int channel)
{
  const int w = size.width, h = size.height;
  const auto cell = [&](int c, int r) {
    return static_cast<double>(cells[static_cast<size_t>((r * w + c) * channels + channel)]);
  };
  Numbers a(static_cast<size_t>(w) * h);
  for (int v = 0; v < h; ++v)
    for (int u = 0; u < w; ++u) {
      const bool isReal = u == 0 || 2 * u == w;
      const bool mirrored = isReal ? 2 * v > h : 2 * u > w;
      const int p = mirrored ? (w - u) % w : u, q = mirrored ? (h - v) % h : v;
      Number x;
      if (!isReal) x = {cell(2 * p - 1, q), cell(2 * p, q)};
      else {
        const int c = u == 0 ? 0 : w - 1;
        x = q == 0 ? cell(c, 0) : 2 * q == h ? cell(c, h - 1) : Number(cell(c, 2 * q - 1), cell(c, 2 * q));
      }
      a[static_cast<size_t>(v) * w + u] = mirrored ? std::conj(x) : x;
    }
  return a;
}

template <class T> std::vector<T> randomCells(ZorImgSize size, int channels, unsigned seed, double range)
{
  Noise noise(seed);
  std::vector<T> cells(static_cast<size_t>(size.width) * size.height * channels);
  for (T& c : cells) c = static_cast<T>(noise.next() * range);
  return cells;
}

// Of a real number 2^-scale, with the rule of a type.
double scaledWord(double x, int scale)
{
  const auto saturated = [](double v) { return std::min(32767.0, std::max(-32768.0, v)); };
  return scale >= 0 ? saturated(std::floor(std::ldexp(x, -std::min(scale, 31))))
                    : saturated(std::ldexp(saturated(x), -scale));
}
double scaledInteger(double x, int scale)
{
  return std::min(2147483647.0, std::max(-2147483648.0, std::nearbyint(std::ldexp(x, -scale))));
}

template <class T, class Call, class Rule>
void checkProduct(int channels, int processed, double range, bool conjugates, double tolerance, Call call, Rule rule)
{
  for (const ZorImgSize size : sizes) {
    SCOPED_TRACE(std::to_string(size.width) + "x" + std::to_string(size.height) + " of " + std::to_string(channels));
    const auto a = randomCells<T>(size, channels, 1, range), b = randomCells<T>(size, channels, 2, range);
    std::vector<T> dst(a.size(), T(55)), inPlace = b;
    const int step = size.width * channels * static_cast<int>(sizeof(T));
    ASSERT_EQ(call(a.data(), step, b.data(), step, dst.data(), step, size), ZorOk);
    ASSERT_EQ(call(a.data(), step, inPlace.data(), step, inPlace.data(), step, size), ZorOk);
    for (int c = 0; c < channels; ++c) {
      Numbers x = unfolded(a, size, channels, c);
      const Numbers y = unfolded(b, size, channels, c);
      for (size_t i = 0; i < x.size(); ++i) x[i] *= conjugates ? std::conj(y[i]) : y[i];
      const std::vector<double> expected = packed(x, size);
      for (size_t i = 0; i < expected.size(); ++i) {
        const size_t at = i * channels + c;
        if (c >= processed) {
          EXPECT_EQ(dst[at], T(55));
          EXPECT_EQ(inPlace[at], b[at]);
          continue;
        }
        EXPECT_NEAR(static_cast<double>(dst[at]), rule(expected[i]), tolerance) << "cell " << i << " channel " << c;
        EXPECT_EQ(inPlace[at], dst[at]);
      }
    }
  }
}

} // namespace

TEST(SpectrumProduct, Floats)
{
  const auto same = [](double x) { return x; };
  const struct {
    decltype(&zoriMulPack_32f_C1R) product, conjugate;
    int channels, processed;
  } forms[] = {{zoriMulPack_32f_C1R, zoriMulPackConj_32f_C1R, 1, 1},
               {zoriMulPack_32f_C3R, zoriMulPackConj_32f_C3R, 3, 3},
               {zoriMulPack_32f_C4R, zoriMulPackConj_32f_C4R, 4, 4},
               {zoriMulPack_32f_AC4R, zoriMulPackConj_32f_AC4R, 4, 3}};
  for (const auto& f : forms) {
    checkProduct<float>(f.channels, f.processed, 1, false, 3e-7, f.product, same);
    checkProduct<float>(f.channels, f.processed, 1, true, 3e-7, f.conjugate, same);
  }
}

TEST(SpectrumProduct, IntegersAtEveryScale)
{
  const struct {
    decltype(&zoriMulPack_16s_C1RSfs) words;
    decltype(&zoriMulPack_32s_C1RSfs) integers;
    int channels, processed;
  } forms[] = {{zoriMulPack_16s_C1RSfs, zoriMulPack_32s_C1RSfs, 1, 1},
               {zoriMulPack_16s_C3RSfs, zoriMulPack_32s_C3RSfs, 3, 3},
               {zoriMulPack_16s_C4RSfs, zoriMulPack_32s_C4RSfs, 4, 4},
               {zoriMulPack_16s_AC4RSfs, zoriMulPack_32s_AC4RSfs, 4, 3}};
  for (const auto& f : forms)
    for (const int scale : {-40, -31, -3, -1, 0, 1, 5, 15, 17, 31, 32, 100}) {
      SCOPED_TRACE("scale " + std::to_string(scale));
      for (const double range : {20.0, 32768.0})
        checkProduct<Zor16s>(
          f.channels, f.processed, range, false, 0, [&](auto... args) { return f.words(args..., scale); },
          [&](double x) { return scaledWord(x, scale); });
      for (const double range : {20.0, 30000000.0}) // products below 2^53
        checkProduct<Zor32s>(
          f.channels, f.processed, range, false, 0, [&](auto... args) { return f.integers(args..., scale); },
          [&](double x) { return scaledInteger(x, scale); });
    }
}

TEST(SpectrumProduct, GreatestFactors)
{
  constexpr Zor16s w = -32768;
  constexpr Zor32s m = std::numeric_limits<Zor32s>::min();
  const Zor16s words[3] = {w, w, w};
  const Zor32s integers[3] = {m, m, m};
  Zor16s word[3];
  Zor32s integer[3];
  const ZorImgSize size = {3, 1};
  ASSERT_EQ(zoriMulPack_16s_C1RSfs(words, 6, words, 6, word, 6, size, 17), ZorOk);
  EXPECT_EQ(word[0], 8192);
  EXPECT_EQ(word[1], 0);
  EXPECT_EQ(word[2], 16384); // 2^31 >> 17
  ASSERT_EQ(zoriMulPack_32s_C1RSfs(integers, 12, integers, 12, integer, 12, size, 33), ZorOk);
  EXPECT_EQ(integer[0], 1 << 29);
  EXPECT_EQ(integer[1], 0);
  EXPECT_EQ(integer[2], 1 << 30); // 2^63 / 2^33
  for (const int scale : {std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    EXPECT_EQ(zoriMulPack_16s_C1RSfs(words, 6, words, 6, word, 6, size, scale), ZorOk);
    EXPECT_EQ(zoriMulPack_32s_C1RSfs(integers, 12, integers, 12, integer, 12, size, scale), ZorOk);
    EXPECT_EQ(integer[0], scale < 0 ? std::numeric_limits<Zor32s>::max() : 0);
  }
}

// The bounds of the types and their neighbours, at every scale: sums of products up to 2^63.
template <class T, class Function> void extremeProducts(Function product)
{
  constexpr T least = std::numeric_limits<T>::min(), most = std::numeric_limits<T>::max();
  const T extremes[] = {least, static_cast<T>(least + 1), -1, 0, 1, most};
  const ZorImgSize size = {3, 1};
  const auto rule = [](long double x, int scale) {
    const auto saturated = [](long double v) { return std::clamp<long double>(v, least, most); };
    if (sizeof(T) == 4) return saturated(std::nearbyint(std::ldexp(x, -std::max(scale, -31))));
    return scale >= 0 ? saturated(std::floor(std::ldexp(x, -std::min(scale, 31))))
                      : saturated(std::ldexp(saturated(x), -scale));
  };
  for (const T a : extremes)
    for (const T b : extremes)
      for (const T c : extremes)
        for (const T d : extremes)
          for (int scale = -66; scale <= 66; scale += scale < -33 || (scale > 0 && scale < 12) ? 4 : 1) {
            const T x[3] = {a, a, b}, y[3] = {c, c, d};
            T got[3];
            ASSERT_EQ(product(x, sizeof x, y, sizeof y, got, sizeof got, size, scale), ZorOk);
            const long double p = a, q = b, r = c, s = d;
            const long double expected[3] = {rule(p * r, scale), rule(p * r - q * s, scale),
                                             rule(p * s + q * r, scale)};
            for (int i = 0; i < 3; ++i)
              ASSERT_EQ(got[i], static_cast<T>(expected[i]))
                << i << ": " << a << ' ' << b << ' ' << c << ' ' << d << " at " << scale;
          }
}
TEST(SpectrumProduct, ExtremesAtEveryScale)
{
  extremeProducts<Zor16s>(zoriMulPack_16s_C1RSfs);
  extremeProducts<Zor32s>(zoriMulPack_32s_C1RSfs);
}

TEST(PackedSpectrum, UnfoldsAndPacksBack)
{
  for (const ZorImgSize size : sizes) {
    SCOPED_TRACE(std::to_string(size.width) + "x" + std::to_string(size.height));
    const size_t n = static_cast<size_t>(size.width) * size.height;
    const int step = size.width * 4;
    const auto floats = randomCells<float>(size, 1, 3, 100);
    const auto integers = randomCells<Zor32s>(size, 1, 3, 1e9);
    std::vector<Zor32fc> whole(n);
    std::vector<Zor32sc> wholeIntegers(n);
    ASSERT_EQ(zoriPackToCplxExtend_32f32fc_C1R(floats.data(), size, step, whole.data(), 2 * step), ZorOk);
    ASSERT_EQ(zoriPackToCplxExtend_32s32sc_C1R(integers.data(), size, step, wholeIntegers.data(), 2 * step), ZorOk);
    const Numbers a = unfolded(floats, size, 1, 0), b = unfolded(integers, size, 1, 0);
    for (size_t i = 0; i < n; ++i) {
      EXPECT_EQ(Number(whole[i].re, whole[i].im), a[i]) << i;
      EXPECT_EQ(Number(wholeIntegers[i].re, wholeIntegers[i].im), b[i]) << i;
    }
    std::vector<float> packedFloats(n);
    std::vector<Zor32s> packedIntegers(n);
    ASSERT_EQ(zoriCplxExtendToPack_32fc32f_C1R(whole.data(), 2 * step, size, packedFloats.data(), step), ZorOk);
    ASSERT_EQ(zoriCplxExtendToPack_32sc32s_C1R(wholeIntegers.data(), 2 * step, size, packedIntegers.data(), step),
              ZorOk);
    EXPECT_EQ(packedFloats, floats);
    EXPECT_EQ(packedIntegers, integers);
    // three channels: each of them
    std::vector<Zor16sc> three(3 * n), one(n);
    std::vector<Zor16s> cells(3 * n), plane(n);
    for (size_t i = 0; i < 3 * n; ++i) three[i] = {static_cast<Zor16s>(i * 7), static_cast<Zor16s>(i * 31)};
    ASSERT_EQ(zoriCplxExtendToPack_16sc16s_C3R(three.data(), 3 * step, size, cells.data(), 3 * step / 2), ZorOk);
    for (size_t c = 0; c < 3; ++c) {
      for (size_t i = 0; i < n; ++i) one[i] = three[3 * i + c];
      ASSERT_EQ(zoriCplxExtendToPack_16sc16s_C1R(one.data(), step, size, plane.data(), step / 2), ZorOk);
      for (size_t i = 0; i < n; ++i) EXPECT_EQ(cells[3 * i + c], plane[i]);
    }
  }
}

TEST(PackedSpectrum, MagnitudeAndPhaseOfTheWholeSpectrum)
{
  for (const ZorImgSize size : sizes)
    for (const int n : {1, 3}) {
      SCOPED_TRACE(std::to_string(size.width) + "x" + std::to_string(size.height) + " of " + std::to_string(n));
      const int step = size.width * n * 4;
      const auto floats = randomCells<float>(size, n, 4, 100);
      const auto words = randomCells<Zor16s>(size, n, 5, 32768);
      const auto integers = randomCells<Zor32s>(size, n, 6, 2147483000);
      std::vector<float> magnitude(floats.size()), phase(floats.size());
      std::vector<Zor16s> wordMagnitude(words.size()), wordPhase(words.size());
      std::vector<Zor32s> integerMagnitude(words.size()), integerPhase(words.size());
      ASSERT_EQ((n == 1 ? zoriMagnitudePack_32f_C1R : zoriMagnitudePack_32f_C3R)(floats.data(), step, magnitude.data(),
                                                                                 step, size),
                ZorOk);
      ASSERT_EQ((n == 1 ? zoriPhasePack_32f_C1R : zoriPhasePack_32f_C3R)(floats.data(), step, phase.data(), step, size),
                ZorOk);
      ASSERT_EQ((n == 1 ? zoriMagnitudePack_16s_C1RSfs : zoriMagnitudePack_16s_C3RSfs)(
                  words.data(), step / 2, wordMagnitude.data(), step / 2, size, 2),
                ZorOk);
      ASSERT_EQ((n == 1 ? zoriPhasePack_16s_C1RSfs : zoriPhasePack_16s_C3RSfs)(words.data(), step / 2, wordPhase.data(),
                                                                               step / 2, size, -13),
                ZorOk);
      ASSERT_EQ((n == 1 ? zoriMagnitudePack_32s_C1RSfs
                        : zoriMagnitudePack_32s_C3RSfs)(integers.data(), step, integerMagnitude.data(), step, size, 3),
                ZorOk);
      ASSERT_EQ((n == 1 ? zoriPhasePack_32s_C1RSfs : zoriPhasePack_32s_C3RSfs)(integers.data(), step,
                                                                               integerPhase.data(), step, size, -29),
                ZorOk);
      for (int c = 0; c < n; ++c) {
        const Numbers a = unfolded(floats, size, n, c), b = unfolded(words, size, n, c),
                      d = unfolded(integers, size, n, c);
        for (size_t i = 0; i < a.size(); ++i) {
          const size_t at = i * n + c;
          EXPECT_NEAR(magnitude[at], std::abs(a[i]), 1e-5);
          EXPECT_NEAR(phase[at], std::arg(a[i]), 6e-7);
          EXPECT_EQ(wordMagnitude[at], std::nearbyint(std::hypot(b[i].real(), b[i].imag()) / 4));
          const double turn = b[i] == 0.0 ? 0 : std::arg(b[i]);
          EXPECT_EQ(wordPhase[at], std::nearbyint(turn * 8192)) << b[i];
          EXPECT_EQ(integerMagnitude[at], std::nearbyint(std::abs(d[i]) / 8));
          EXPECT_EQ(integerPhase[at], std::nearbyint(std::arg(d[i]) * 536870912));
        }
      }
    }
  float x[4] = {1, 2, 3, 4}, y[4] = {-1, -1, -1, -1};
  zoriTestFailAllocationAt(1);
  EXPECT_EQ(zoriMagnitudePack_32f_C1R(x, 8, y, 8, ZorImgSize{2, 2}), ZorErrNullPtr);
  zoriTestFailAllocationAt(0);
  EXPECT_EQ(y[0], -1);
}

TEST(ComplexPixels, MagnitudeAndPhase)
{
  // every direction at several lengths, and the axes with either zero
  std::vector<Zor32fc> z;
  for (int i = 0; i < 4001; ++i) {
    const double angle = (i - 2000) * pi / 2000, length = std::pow(10.0, i % 21 - 10);
    z.push_back({static_cast<float>(length * std::cos(angle)), static_cast<float>(length * std::sin(angle))});
  }
  const float inf = INFINITY;
  for (const float a : {0.0f, -0.0f, 1.0f, -1.0f, inf, -inf})
    for (const float b : {0.0f, -0.0f, 1.0f, -1.0f, inf, -inf}) z.push_back({a, b});
  const int n = static_cast<int>(z.size());
  std::vector<float> magnitude(z.size()), phase(z.size());
  ASSERT_EQ(zoriMagnitude_32fc32f_C1R(z.data(), 1, magnitude.data(), 1, ZorImgSize{n, 1}), ZorOk);
  ASSERT_EQ(zoriPhase_32fc32f_C1R(z.data(), 1, phase.data(), 1, ZorImgSize{n, 1}), ZorOk);
  for (size_t i = 0; i < z.size(); ++i) {
    const double re = z[i].re, im = z[i].im, length = std::hypot(re, im);
    EXPECT_TRUE(magnitude[i] == length || std::abs(magnitude[i] / length - 1) < 2e-7) << re << " " << im;
    const double angle = re == 0 && im == 0 ? 0 : std::atan2(im, re);
    EXPECT_LE(std::abs(phase[i] - angle), std::min(3e-7, 2e-7 * std::abs(angle))) << re << " " << im;
  }
  for (const Zor32fc nan : {Zor32fc{NAN, 1}, {1, NAN}, {-NAN, -0.0f}, {NAN, inf}, {inf, NAN}, {NAN, NAN}}) {
    std::vector<Zor32fc> row(19, {-1, 2});
    row[3] = row[18] = nan; // among others in a vector, and behind the last whole one
    ASSERT_EQ(zoriPhase_32fc32f_C1R(row.data(), 152, phase.data(), 76, ZorImgSize{19, 1}), ZorOk);
    for (size_t i = 0; i < row.size(); ++i)
      if (i == 3 || i == 18) EXPECT_TRUE(std::isnan(phase[i])) << nan.re << " " << nan.im;
      else EXPECT_NEAR(phase[i], std::atan2(2.0, -1.0), 3e-7);
  }

  const Zor16uc u[3] = {{65535, 65535}, {3, 4}, {0, 5}};
  Zor16u out[3];
  ASSERT_EQ(zoriMagnitude_16uc16u_C3RSfs(u, 12, out, 6, ZorImgSize{1, 1}, 1), ZorOk);
  EXPECT_EQ(out[0], 46340); // 92680.5 / 2
  EXPECT_EQ(out[1], 2);     // 2.5 to even
  EXPECT_EQ(out[2], 2);
  ASSERT_EQ(zoriPhase_16uc16u_C1RSfs(u, 12, out, 6, ZorImgSize{3, 1}, -15), ZorOk);
  EXPECT_EQ(out[0], std::lround(pi / 4 * 32768));
  EXPECT_EQ(out[2], std::lround(pi / 2 * 32768));
  const Zor32sc s[3] = {{-5, 0}, {0, 0}, {std::numeric_limits<Zor32s>::min(), std::numeric_limits<Zor32s>::min()}};
  Zor32s t[3];
  ASSERT_EQ(zoriPhase_32sc32s_C1RSfs(s, 24, t, 12, ZorImgSize{3, 1}, -20), ZorOk);
  EXPECT_EQ(t[0], std::lround(pi * 1048576));
  EXPECT_EQ(t[1], 0);
  EXPECT_EQ(t[2], std::lround(-3 * pi / 4 * 1048576));
  ASSERT_EQ(zoriMagnitude_32sc32s_C3RSfs(s, 24, t, 12, ZorImgSize{1, 1}, std::numeric_limits<int>::min()), ZorOk);
  EXPECT_EQ(t[0], 2147483647);
  EXPECT_EQ(t[1], 0);
}

// The bounds of 16-bit types, their neighbours and what lies between, at every scale that matters.
template <class C, class T, class Function> void integerPixels(Function magnitude, Function phase)
{
  constexpr int least = std::numeric_limits<T>::min(), most = std::numeric_limits<T>::max();
  std::vector<C> z;
  for (const int re : {least, least + 1, 0, 1, 3, 12345, most - 1, most})
    for (const int im : {least, least + 1, 0, 2, 4, 777, most - 1, most})
      z.push_back({static_cast<T>(re), static_cast<T>(im)});
  const ZorImgSize size = {static_cast<int>(z.size()), 1};
  std::vector<T> length(z.size()), angle(z.size());
  const int step = size.width * static_cast<int>(sizeof(C));
  for (int scale = -18; scale <= 19; ++scale) {
    ASSERT_EQ(magnitude(z.data(), step, length.data(), step, size, scale), ZorOk);
    ASSERT_EQ(phase(z.data(), step, angle.data(), step, size, scale), ZorOk);
    const auto rounded = [=](double x) {
      return static_cast<T>(std::clamp<double>(std::nearbyint(std::ldexp(x, -scale)), least, most));
    };
    for (size_t i = 0; i < z.size(); ++i) {
      const double re = z[i].re, im = z[i].im;
      ASSERT_EQ(length[i], rounded(std::sqrt(re * re + im * im))) << re << ' ' << im << " at " << scale;
      ASSERT_EQ(angle[i], rounded(std::atan2(im, re))) << re << ' ' << im << " at " << scale;
    }
  }
}
TEST(ComplexPixels, IntegersAtTheirBounds)
{
  integerPixels<Zor16sc, Zor16s>(zoriMagnitude_16sc16s_C1RSfs, zoriPhase_16sc16s_C1RSfs);
  integerPixels<Zor16uc, Zor16u>(zoriMagnitude_16uc16u_C1RSfs, zoriPhase_16uc16u_C1RSfs);
}

// Ratios of the parts all over 0 to 1, and down to small ones, in all eight octants.
TEST(ComplexPixels, PhaseIsAsNearAsTold)
{
  Noise noise(9);
  std::vector<Zor32fc> z;
  for (int i = 0; i < 100000; ++i) {
    const float unit = 1 + std::abs(noise.next()), part = unit * std::abs(noise.next());
    const float other = i % 4 ? part : std::ldexp(part, -i % 30);
    const float re = i & 8 ? unit : other, im = i & 8 ? other : unit;
    z.push_back({i & 16 ? -re : re, i & 32 ? -im : im});
  }
  const ZorImgSize size = {1000, 100};
  std::vector<float> phase(z.size());
  ASSERT_EQ(zoriPhase_32fc32f_C1R(z.data(), 8000, phase.data(), 4000, size), ZorOk);
  for (size_t i = 0; i < z.size(); ++i) {
    const double angle = std::atan2(static_cast<double>(z[i].im), static_cast<double>(z[i].re));
    ASSERT_LE(std::abs(phase[i] - angle), std::min(3e-7, 2e-7 * std::abs(angle))) << z[i].re << " " << z[i].im;
  }
}

TEST(ComplexPixels, FromPolar)
{
  Noise noise(8);
  std::vector<Zor32fc> polar(301), dst(301), fromPlanes(301);
  std::vector<float> magnitude, phase;
  for (Zor32fc& p : polar) {
    p = {noise.next() * 50, noise.next() * 20};
    magnitude.push_back(p.re);
    phase.push_back(p.im);
  }
  ASSERT_EQ(zoriPolarToCart_32fc_C1R(polar.data(), 1, dst.data(), 1, ZorImgSize{301, 1}), ZorOk);
  const float* const planes[2] = {magnitude.data(), phase.data()};
  ASSERT_EQ(zoriPolarToCart_32f32fc_P2C1R(planes, 1, fromPlanes.data(), 1, ZorImgSize{301, 1}), ZorOk);
  for (size_t i = 0; i < polar.size(); ++i) {
    const double m = polar[i].re, a = polar[i].im;
    EXPECT_EQ(dst[i].re, static_cast<float>(m * std::cos(a)));
    EXPECT_EQ(dst[i].im, static_cast<float>(m * std::sin(a)));
    EXPECT_EQ(fromPlanes[i].re, dst[i].re);
    EXPECT_EQ(fromPlanes[i].im, dst[i].im);
  }
  const Zor16sc words[3] = {{1000, 1}, {-32768, 0}, {-32768, 3}};
  Zor16sc word[3];
  ASSERT_EQ(zoriPolarToCart_16sc_C3R(words, 12, word, 12, ZorImgSize{1, 1}), ZorOk);
  EXPECT_EQ(word[0].re, 540);
  EXPECT_EQ(word[0].im, 841);
  EXPECT_EQ(word[1].re, -32768);
  EXPECT_EQ(word[1].im, 0);
  EXPECT_EQ(word[2].re, std::lround(-32768 * std::cos(3.0)));
  const Zor32sc integer = {2000000000, -2};
  Zor32sc out;
  ASSERT_EQ(zoriPolarToCart_32sc_C1R(&integer, 8, &out, 8, ZorImgSize{1, 1}), ZorOk);
  EXPECT_EQ(out.re, std::lround(2e9 * std::cos(2.0)));
  EXPECT_EQ(out.im, std::lround(-2e9 * std::sin(2.0)));
}
