// Statistics and synthetic images.
#include "accuracy.h"

using namespace accuracy;

TEST(StatisticsAccuracy, SumsAndNormsOfFloats)
{
  for (const int width : {37, 4099}) {
    const int height = 113;
    Picture<Zor32f> a(width, height), b(width, height);
    a.fillWithNoise(1), b.fillWithScene(2);
    Real sum = 0, l1 = 0, squares = 0, d1 = 0, dSquares = 0, squaresB = 0, l1B = 0;
    for (std::size_t i = 0; i < a.samples.size(); ++i) {
      const Real x = a.samples[i], y = b.samples[i];
      sum += x, l1 += std::fabs(x), squares += x * x, d1 += std::fabs(x - y), dSquares += (x - y) * (x - y);
      squaresB += y * y, l1B += std::fabs(y);
    }
    const auto measure = [&](const char* name, auto call, Real exact, Real unit) {
      double accurate = 0, fast = 0;
      call(&accurate, ZorHintAccurate), call(&fast, ZorHintFast);
      Error error, other;
      error.add(accurate, exact, unit);
      other.add(fast, exact, unit);
      hold(name, error);
      std::printf("    fast, width %d: %.3g\n", width, static_cast<double>(other.most()));
      EXPECT_LE(other.most(), 1e-7 * (4 + width / 4.0)) << name;
    };
    const ZorImgSize size = a.size();
    const int step = a.step();
    const Real n = Real(width) * height;
    using Hint = ZorHint;
    measure(
      "zoriSum_32f_C1R", [&](double* r, Hint h) { zoriSum_32f_C1R(a.data(), step, size, r, h); }, sum, l1);
    measure(
      "zoriMean_32f_C1R", [&](double* r, Hint h) { zoriMean_32f_C1R(a.data(), step, size, r, h); }, sum / n, l1 / n);
    measure(
      "zoriNorm_L1_32f_C1R", [&](double* r, Hint h) { zoriNorm_L1_32f_C1R(a.data(), step, size, r, h); }, l1, l1);
    measure(
      "zoriNorm_L2_32f_C1R", [&](double* r, Hint h) { zoriNorm_L2_32f_C1R(a.data(), step, size, r, h); },
      std::sqrt(squares), std::sqrt(squares));
    measure(
      "zoriNormDiff_L1_32f_C1R",
      [&](double* r, Hint h) { zoriNormDiff_L1_32f_C1R(a.data(), step, b.data(), step, size, r, h); }, d1, d1);
    measure(
      "zoriNormDiff_L2_32f_C1R",
      [&](double* r, Hint h) { zoriNormDiff_L2_32f_C1R(a.data(), step, b.data(), step, size, r, h); },
      std::sqrt(dSquares), std::sqrt(dSquares));
    measure(
      "zoriNormRel_L1_32f_C1R",
      [&](double* r, Hint h) { zoriNormRel_L1_32f_C1R(a.data(), step, b.data(), step, size, r, h); }, d1 / l1B,
      d1 / l1B);
    measure(
      "zoriNormRel_L2_32f_C1R",
      [&](double* r, Hint h) { zoriNormRel_L2_32f_C1R(a.data(), step, b.data(), step, size, r, h); },
      std::sqrt(dSquares / squaresB), std::sqrt(dSquares / squaresB));
  }
}

TEST(StatisticsAccuracy, IntegerNorms)
{
  Picture<Zor16u> a(611, 301), b(611, 301);
  a.fillWithNoise(1), b.fillWithScene(2);
  Real sum = 0, squares = 0, squaresB = 0;
  for (std::size_t i = 0; i < a.samples.size(); ++i) {
    const Real x = a.samples[i], y = b.samples[i];
    sum += x, squares += (x - y) * (x - y), squaresB += y * y;
  }
  double mean = 0, norm = 0, relative = 0;
  zoriMean_16u_C1R(a.data(), a.step(), a.size(), &mean);
  zoriNormDiff_L2_16u_C1R(a.data(), a.step(), b.data(), b.step(), a.size(), &norm);
  zoriNormRel_L2_16u_C1R(a.data(), a.step(), b.data(), b.step(), a.size(), &relative);
  const auto measure = [](const char* name, double got, Real exact) {
    Error error;
    error.add(got, exact, unitOf<double>(exact));
    hold(name, error, "of a last place");
  };
  measure("zoriMean_16u_C1R", mean, sum / Real(a.samples.size()));
  measure("zoriNormDiff_L2_16u_C1R", norm, std::sqrt(squares));
  measure("zoriNormRel_L2_16u_C1R", relative, std::sqrt(squares / squaresB));
}

TEST(StatisticsAccuracy, Moments)
{
  Picture<Zor32f> image(301, 211);
  image.fillWithScene(3);
  ZorMomentState* state = nullptr;
  ASSERT_EQ(zoriMomentInitAlloc_64f(&state, ZorHintNone), ZorOk);
  zoriMoments64f_32f_C1R(image.data(), image.step(), image.size(), state);
  Real m[4][4] = {};
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x)
      for (int i = 0; i < 4; ++i)
        for (int j = 0; i + j < 4; ++j) m[i][j] += std::pow(Real(x), i) * std::pow(Real(y), j) * image.at(x, y);
  const Real cx = m[1][0] / m[0][0], cy = m[0][1] / m[0][0];
  Real central[4][4] = {}, size[4][4] = {};
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x)
      for (int i = 0; i < 4; ++i)
        for (int j = 0; i + j < 4; ++j) central[i][j] += std::pow(x - cx, i) * std::pow(y - cy, j) * image.at(x, y);
  Error spatial, centrals;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; i + j < 4; ++j) {
      double value = 0;
      zoriGetSpatialMoment_64f(state, i, j, 0, {0, 0}, &value);
      spatial.add(value, m[i][j], m[i][j]);
      if (i + j < 2) continue;
      zoriGetCentralMoment_64f(state, i, j, 0, &value);
      size[i][j] = m[i][j] + 3 * std::pow(cx, i) * std::pow(cy, j) * m[0][0];
      centrals.add(value, central[i][j], size[i][j]);
    }
  zoriMomentFree_64f(state);
  hold("zoriGetSpatialMoment_64f", spatial, "of the moment");
  hold("zoriGetCentralMoment_64f", centrals, "of the terms");
}

TEST(StatisticsAccuracy, QualityIndex)
{
  for (const int width : {64, 1021}) {
    Picture<Zor32f> a(width, 300), b(width, 300);
    a.fillWithScene(1);
    Noise noise(4);
    b.fill([&](int x, int y) { return 0.9 * a.at(x, y) + noise.uniform(0, 0.2); });
    Real m1 = 0, m2 = 0, s11 = 0, s22 = 0, s12 = 0;
    const Real n = Real(a.samples.size());
    for (std::size_t i = 0; i < a.samples.size(); ++i) m1 += a.samples[i] / n, m2 += b.samples[i] / n;
    for (std::size_t i = 0; i < a.samples.size(); ++i) {
      const Real x = a.samples[i] - m1, y = b.samples[i] - m2;
      s11 += x * x, s22 += y * y, s12 += x * y;
    }
    Zor32f index = 0;
    zoriQualityIndex_32f_C1R(a.data(), a.step(), b.data(), b.step(), a.size(), &index);
    Error error;
    error.add(index, 4 * s12 * m1 * m2 / ((s11 + s22) * (m1 * m1 + m2 * m2)), 1);
    hold("zoriQualityIndex_32f_C1R", error);
  }
}

TEST(SyntheticAccuracy, Patterns)
{
  Picture<Zor32f> image(300, 200), source(300, 200);
  const Real pi = std::acos(Real{-1});
  zoriImageJaehne_32f_C1R(image.data(), image.step(), image.size());
  Error rings, ramp, hamming, bartlett;
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x) {
      const Real dx = x - Real(image.width - 1) / 2, dy = y - Real(image.height - 1) / 2;
      rings.add(image.at(x, y), (std::sin(2 * pi * (dx * dx + dy * dy) / (4 * image.height)) + 1) * 0.49999L, 1);
    }
  hold("zoriImageJaehne_32f_C1R", rings);
  zoriImageRamp_32f_C1R(image.data(), image.step(), image.size(), -7.3f, 0.37f, ZorRampAlongX);
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x)
      ramp.add(image.at(x, y), x * Real{0.37f} + Real{-7.3f}, x * Real{0.37f} + Real{7.3f});
  hold("zoriImageRamp_32f_C1R", ramp, "of both terms");
  source.fillWithNoise(6);
  const Real w = source.width, h = source.height;
  const auto inside = [&](int x, int y, auto taper) -> Real {
    const Real dx = std::fabs(x < w / 2 ? w / 2 - x : w / 2 - (w - 1 - x));
    const Real dy = std::fabs(y < h / 2 ? h / 2 - y : h / 2 - (h - 1 - y));
    const bool isInside = dx * dx / (w * w / 4) + dy * dy / (h * h / 4) < 1;
    return taper(std::sqrt(dx * dx + w * w / h / h * dy * dy), isInside);
  };
  zoriWinHamming_32f_C1R(source.data(), source.step(), image.data(), image.step(), image.size());
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x) {
      const Real taper =
        inside(x, y, [&](Real r, bool is) { return is ? 0.54L - 0.46L * std::cos((w / 2 - r) * 2 * pi / w) : 0.08L; });
      hamming.add(image.at(x, y), source.at(x, y) * taper, std::fabs(source.at(x, y)));
    }
  hold("zoriWinHamming_32f_C1R", hamming, "of the sample");
  zoriWinBartlettSep_32f_C1R(source.data(), source.step(), image.data(), image.step(), image.size());
  for (int y = 0; y < image.height; ++y)
    for (int x = 0; x < image.width; ++x) {
      const Real taper = (1 - std::fabs(2 * x / (w - 1) - 1)) * (1 - std::fabs(2 * y / (h - 1) - 1));
      bartlett.add(image.at(x, y), source.at(x, y) * taper, std::fabs(source.at(x, y)));
    }
  hold("zoriWinBartlettSep_32f_C1R", bartlett, "of the sample");
}
