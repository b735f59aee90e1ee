// Arithmetic, conversions and lookup tables, sample by sample.
#include "accuracy.h"

using namespace accuracy;

namespace {

constexpr int side = 512;

// zoriXxx_32f_C1R(src, dst) against an exact function, in last places.
template <class F, class G> void holdFunction(const char* name, F call, G exact, double low, double high)
{
  Noise noise(7);
  Picture<Zor32f> src(side, side), dst(side, side);
  src.fill([&](int, int) { return noise.uniform(low, high); });
  call(src.data(), src.step(), dst.data(), dst.step(), src.size());
  Error error;
  for (std::size_t i = 0; i < src.samples.size(); ++i) {
    const Real e = exact(Real{src.samples[i]});
    error.add(dst.samples[i], e, unitOf<float>(e));
  }
  hold(name, error, "of a last place");
}

// Integer functions of one or two sources with a scale factor: the distance from the exact result.
template <class T, class F, class G> Error scaledError(F call, G exact, int lowScale, int highScale)
{
  Error error;
  Picture<T> a(side, side), b(side, side), dst(side, side);
  if (sizeof(T) == 1) { // all pairs
    a.fill([](int x, int) { return x; }), b.fill([](int, int y) { return y; });
  } else {
    a.fillWithNoise(1), b.fillWithNoise(2);
    for (int i = 0; i < side * side; i += 3) b.samples[static_cast<std::size_t>(i)] %= 300;
    for (int i = 0; i < side * side; i += 5) a.samples[static_cast<std::size_t>(i)] %= 300;
  }
  for (int scale = lowScale; scale <= highScale; ++scale) {
    call(a, b, dst, scale);
    for (std::size_t i = 0; i < dst.samples.size(); ++i) {
      const Real e = exact(Real(a.samples[i]), Real(b.samples[i])) * std::ldexp(Real{1}, -scale);
      if (!std::isnan(e)) error.add(dst.samples[i], clamped<T>(e), 1);
    }
  }
  return error;
}

constexpr Real none = std::numeric_limits<Real>::quiet_NaN(); // nothing is told of it

Real quotient(Real denominator, Real numerator) { return denominator == 0 ? none : numerator / denominator; }

template <class F> auto unary(F f)
{
  return [f](auto& a, auto&, auto& d, int scale) { f(a.data(), a.step(), d.data(), d.step(), d.size(), scale); };
}
template <class F> auto binary(F f)
{
  return [f](auto& a, auto& b, auto& d, auto... more) {
    f(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), d.size(), more...);
  };
}

template <class T, class Div, class Round, class ByConstant>
void holdQuotients(const std::string& type, Div div, Round round, ByConstant byConstant)
{
  hold("zoriDiv_" + type + "_C1RSfs", scaledError<T>(binary(div), quotient, -8, 4));
  const auto away = [=](auto& a, auto& b, auto& d, int scale) { binary(round)(a, b, d, ZorRoundNearestAway, scale); };
  hold("zoriDiv_Round_" + type + "_C1RSfs", scaledError<T>(away, quotient, -8, 4));
  Error error;
  for (const int value : {1, 3, 7, 10, 57, 100, 127}) {
    const auto call = [=](auto& a, auto&, auto& d, int scale) {
      byConstant(a.data(), a.step(), static_cast<T>(value), d.data(), d.step(), d.size(), scale);
    };
    error.add(scaledError<T>(
      call, [=](Real a, Real) { return a / value; }, -6, 4));
  }
  hold("zoriDivC_" + type + "_C1RSfs", error);
}

template <class T, class Mul, class Compose> void holdFractions(const std::string& type, Mul mul, Compose compose)
{
  const Real full = std::numeric_limits<T>::max();
  const auto times = [=](auto& a, auto& b, auto& d, int) { binary(mul)(a, b, d); };
  hold("zoriMulScale_" + type + "_C1R", scaledError<T>(
                                          times, [=](Real a, Real b) { return a * b / full; }, 0, 0));
  Error error;
  for (int op = 0; op < 6; ++op) {
    const T a1 = static_cast<T>(full * 0.4L), a2 = static_cast<T>(full * 0.7L);
    const Real f1 = a1 / full, f2 = a2 / full;
    const auto exact = [=](Real s1, Real s2) {
      const Real p1 = s1 * f1, p2 = s2 * f2;
      const Real results[] = {
        p1 + (1 - f1) * p2, p1 * f2, p1 * (1 - f2), p1 * f2 + p2 * (1 - f1), p1 * (1 - f2) + p2 * (1 - f1), p1 + p2};
      return results[op];
    };
    const auto call = [=](auto& a, auto& b, auto& d, int) {
      compose(a.data(), a.step(), a1, b.data(), b.step(), a2, d.data(), d.step(), d.size(),
              static_cast<ZorAlphaOp>(op));
    };
    error.add(scaledError<T>(call, exact, 0, 0));
  }
  hold("zoriAlphaCompC_" + type + "_C1R", error);
}

} // namespace

TEST(ArithmeticAccuracy, Quotients)
{
  holdQuotients<Zor8u>("8u", zoriDiv_8u_C1RSfs, zoriDiv_Round_8u_C1RSfs, zoriDivC_8u_C1RSfs);
  holdQuotients<Zor16u>("16u", zoriDiv_16u_C1RSfs, zoriDiv_Round_16u_C1RSfs, zoriDivC_16u_C1RSfs);
  holdQuotients<Zor16s>("16s", zoriDiv_16s_C1RSfs, zoriDiv_Round_16s_C1RSfs, zoriDivC_16s_C1RSfs);
  Noise noise(3);
  Picture<Zor32f> a(side, side), b(side, side), d(side, side);
  a.fillWithNoise(1), b.fillWithNoise(2);
  Error quotients;
  for (const float value : {0.1f, 3.f, 7.f, 57.3f, 1e-3f}) {
    zoriDivC_32f_C1R(a.data(), a.step(), value, d.data(), d.step(), d.size());
    for (std::size_t i = 0; i < d.samples.size(); ++i) {
      const Real exact = Real{a.samples[i]} / value;
      quotients.add(d.samples[i], exact, unitOf<float>(exact));
    }
  }
  hold("zoriDivC_32f_C1R", quotients, "of a last place");
  Picture<Zor32fc> p(side, side), q(side, side), r(side, side);
  for (std::size_t i = 0; i < p.samples.size(); ++i)
    p.samples[i] = {a.samples[i], b.samples[i]}, q.samples[i] = {b.samples[i] * 3, static_cast<float>(noise.uniform())};
  const auto complexQuotients = [&](const char* name, bool isConstant) {
    Error error;
    for (std::size_t i = 0; i < p.samples.size(); ++i) {
      const Zor32fc one = isConstant ? Zor32fc{0.3f, -0.7f} : p.samples[i],
                    by = isConstant ? p.samples[i] : q.samples[i];
      const Real n = Real{one.re} * one.re + Real{one.im} * one.im;
      const Real re = (Real{by.re} * one.re + Real{by.im} * one.im) / n;
      const Real im = (Real{by.im} * one.re - Real{by.re} * one.im) / n;
      const Real size = std::hypot(re, im);
      error.add(r.samples[i].re, re, size), error.add(r.samples[i].im, im, size);
    }
    hold(name, error, "of the magnitude");
  };
  zoriDiv_32fc_C1R(p.data(), p.step(), q.data(), q.step(), r.data(), r.step(), r.size());
  complexQuotients("zoriDiv_32fc_C1R", false);
  zoriDivC_32fc_C1R(p.data(), p.step(), {0.3f, -0.7f}, r.data(), r.step(), r.size());
  complexQuotients("zoriDivC_32fc_C1R", true);
  zoriMul_32fc_C1R(p.data(), p.step(), q.data(), q.step(), r.data(), r.step(), r.size());
  Error products;
  for (std::size_t i = 0; i < p.samples.size(); ++i) {
    const Zor32fc x = p.samples[i], y = q.samples[i];
    const Real size = std::hypot(Real{x.re}, Real{x.im}) * std::hypot(Real{y.re}, Real{y.im});
    products.add(r.samples[i].re, Real{x.re} * y.re - Real{x.im} * y.im, size);
    products.add(r.samples[i].im, Real{x.re} * y.im + Real{x.im} * y.re, size);
  }
  hold("zoriMul_32fc_C1R", products, "of the magnitude");
}

TEST(ArithmeticAccuracy, ElementaryFunctions)
{
  const auto log = [](Real x) { return std::log(x); };
  const auto exp = [](Real x) { return std::exp(x); };
  holdFunction("zoriLn_32f_C1R", zoriLn_32f_C1R, log, 1e-3, 4);
  holdFunction("zoriLn_32f_C1R", zoriLn_32f_C1R, log, 1, 1e9);
  holdFunction("zoriExp_32f_C1R", zoriExp_32f_C1R, exp, -80, 80);
  holdFunction("zoriExp_32f_C1R", zoriExp_32f_C1R, exp, -1, 1);
  const auto logOfInteger = [](Real a, Real) { return a > 0 ? std::log(a) : none; };
  const auto expOfInteger = [](Real a, Real) { return std::exp(std::min<Real>(a, 1000)); };
  hold("zoriLn_8u_C1RSfs", scaledError<Zor8u>(unary(zoriLn_8u_C1RSfs), logOfInteger, -10, 1));
  hold("zoriLn_16u_C1RSfs", scaledError<Zor16u>(unary(zoriLn_16u_C1RSfs), logOfInteger, -10, 1));
  hold("zoriLn_16s_C1RSfs", scaledError<Zor16s>(unary(zoriLn_16s_C1RSfs), logOfInteger, -10, 1));
  hold("zoriExp_8u_C1RSfs", scaledError<Zor8u>(unary(zoriExp_8u_C1RSfs), expOfInteger, -6, 12));
  hold("zoriExp_16u_C1RSfs", scaledError<Zor16u>(unary(zoriExp_16u_C1RSfs), expOfInteger, -6, 12));
  hold("zoriExp_16s_C1RSfs", scaledError<Zor16s>(unary(zoriExp_16s_C1RSfs), expOfInteger, -6, 12));
}

TEST(ArithmeticAccuracy, Fractions)
{
  holdFractions<Zor8u>("8u", zoriMulScale_8u_C1R, zoriAlphaCompC_8u_C1R);
  holdFractions<Zor16u>("16u", zoriMulScale_16u_C1R, zoriAlphaCompC_16u_C1R);
}

TEST(ArithmeticAccuracy, WeightedRows)
{
  for (const int count : {3, 17, 200}) {
    Picture<Zor32f> rows(side, count), sum(side, 1);
    rows.fillWithNoise(5);
    Noise noise(6);
    std::vector<const Zor32f*> pointers;
    std::vector<Zor32f> weights;
    for (int i = 0; i < count; ++i)
      pointers.push_back(&rows.at(0, i)), weights.push_back(static_cast<float>(noise.uniform(-1, 1)));
    zoriDotProdCol_32f_L2(pointers.data(), weights.data(), sum.data(), count, side);
    Error error;
    for (int x = 0; x < side; ++x) {
      Real exact = 0, size = 0;
      for (int i = 0; i < count; ++i) {
        const Real part = Real{weights[static_cast<std::size_t>(i)]} * rows.at(x, i);
        exact += part, size += std::fabs(part);
      }
      error.add(sum.at(x, 0), exact, size * count);
    }
    hold("zoriDotProdCol_32f_L2", error, "of the sum of magnitudes and the count");
  }
}

TEST(DataAccuracy, Conversions)
{
  Picture<Zor32f> src(side, side), wide(side, side);
  Picture<Zor8u> dst(side, side);
  Noise noise(9);
  src.fill([&](int x, int) { return x % 2 ? noise.uniform(-20, 280) : noise.below(512) * 0.5 + (x % 4 ? 3e-8 : 0); });
  zoriConvert_32f8u_C1R(src.data(), src.step(), dst.data(), dst.step(), dst.size(), ZorRoundNearestAway);
  Error converted, scaled, narrowed, fast, widened;
  for (std::size_t i = 0; i < src.samples.size(); ++i) converted.add(dst.samples[i], clamped<Zor8u>(src.samples[i]), 1);
  hold("zoriConvert_32f8u_C1R", converted);
  const float low = -3.3f, high = 271.5f;
  zoriScale_32f8u_C1R(src.data(), src.step(), dst.data(), dst.step(), dst.size(), low, high);
  for (std::size_t i = 0; i < src.samples.size(); ++i) {
    const Real x = std::clamp<Real>(src.samples[i], low, high);
    scaled.add(dst.samples[i], (x - low) * 255 / (Real{high} - low), 1);
  }
  hold("zoriScale_32f8u_C1R", scaled);
  zoriScale_8u32f_C1R(dst.data(), dst.step(), wide.data(), wide.step(), wide.size(), low, high);
  for (std::size_t i = 0; i < src.samples.size(); ++i)
    widened.add(wide.samples[i], Real(dst.samples[i]) * (Real{high} - low) / 255 + low, Real{high} - low);
  hold("zoriScale_8u32f_C1R", widened, "of the range");
  Picture<Zor16u> all(256, 256);
  all.fill([](int x, int y) { return y * 256 + x; });
  Picture<Zor8u> narrow(256, 256);
  zoriScale_16u8u_C1R(all.data(), all.step(), narrow.data(), narrow.step(), narrow.size(), ZorHintAccurate);
  for (std::size_t i = 0; i < all.samples.size(); ++i) narrowed.add(narrow.samples[i], all.samples[i] / Real{257}, 1);
  zoriScale_16u8u_C1R(all.data(), all.step(), narrow.data(), narrow.step(), narrow.size(), ZorHintFast);
  for (std::size_t i = 0; i < all.samples.size(); ++i) fast.add(narrow.samples[i], all.samples[i] / Real{257}, 1);
  std::printf("fast: %.4g\n", static_cast<double>(fast.most()));
  hold("zoriScale_16u8u_C1R", narrowed);
}

TEST(PointAccuracy, CurvesThroughNodes)
{
  const std::vector<Zor32f> values = {-3.3f, 20, 21.5f, 7, 100.25f, 90, 12},
                            levels = {0, 10.5f, 30, 31, 100, 200.25f, 256};
  const int n = static_cast<int>(levels.size());
  Picture<Zor32f> src(side, side), dst(side, side);
  Noise noise(11);
  src.fill([&](int, int) { return noise.uniform(0, 255.9); });
  const auto interval = [&](Real x) {
    int k = 0;
    while (k + 2 < n && x >= levels[static_cast<std::size_t>(k + 1)]) ++k;
    return k;
  };
  zoriLUT_Linear_32f_C1R(src.data(), src.step(), dst.data(), dst.step(), dst.size(), values.data(), levels.data(), n);
  Error linear, cubic;
  for (std::size_t i = 0; i < src.samples.size(); ++i) {
    const Real x = src.samples[i];
    const auto k = static_cast<std::size_t>(interval(x));
    const Real t = (x - levels[k]) / (Real{levels[k + 1]} - levels[k]);
    linear.add(dst.samples[i], values[k] + t * (Real{values[k + 1]} - values[k]),
               std::max(std::fabs(values[k]), std::fabs(values[k + 1])));
  }
  hold("zoriLUT_Linear_32f_C1R", linear, "of the interval's greater value");
  zoriLUT_Cubic_32f_C1R(src.data(), src.step(), dst.data(), dst.step(), dst.size(), values.data(), levels.data(), n);
  for (std::size_t i = 0; i < src.samples.size(); ++i) {
    const Real x = src.samples[i];
    const auto first = static_cast<std::size_t>(std::clamp(interval(x) - 1, 0, n - 4));
    Real exact = 0, size = 0;
    for (std::size_t a = first; a < first + 4; ++a) {
      Real part = values[a];
      for (std::size_t b = first; b < first + 4; ++b)
        if (a != b) part *= (x - levels[b]) / (Real{levels[a]} - levels[b]);
      exact += part, size += std::fabs(part);
    }
    cubic.add(dst.samples[i], exact, size);
  }
  hold("zoriLUT_Cubic_32f_C1R", cubic, "of the sum of the four nodes' shares");
}

TEST(IntegerFormsAccuracy, ComplexAndWindows)
{
  Noise noise(12);
  Picture<Zor16sc> p(side, side), q(side, side), r(side, side);
  Picture<Zor32sc> p32(side, side), q32(side, side), r32(side, side);
  const auto word = [&] { return static_cast<Zor16s>(noise.bits()); };
  const auto wide = [&] { return static_cast<Zor32s>(noise.bits()); };
  for (std::size_t i = 0; i < p.samples.size(); ++i) {
    p.samples[i] = {static_cast<Zor16s>(word() / 64), word()}, q.samples[i] = {word(), word()};
    p32.samples[i] = {wide() / 65536, wide() / 4}, q32.samples[i] = {wide(), wide()};
  }
  const auto quotients = [](auto& one, auto& other, auto& got, int scale, auto sample) {
    Error error;
    for (std::size_t i = 0; i < one.samples.size(); ++i) {
      const Real a = one.samples[i].re, b = one.samples[i].im, c = other.samples[i].re, d = other.samples[i].im;
      const Real n = (a * a + b * b) * std::ldexp(Real{1}, scale);
      if (n == 0) continue;
      error.add(got.samples[i].re, clamped<decltype(sample)>((c * a + d * b) / n), 1);
      error.add(got.samples[i].im, clamped<decltype(sample)>((d * a - c * b) / n), 1);
    }
    return error;
  };
  zoriDiv_16sc_C1RSfs(p.data(), p.step(), q.data(), q.step(), r.data(), r.step(), r.size(), -4);
  hold("zoriDiv_16sc_C1RSfs", quotients(p, q, r, -4, Zor16s()));
  zoriDiv_32sc_C1RSfs(p32.data(), p32.step(), q32.data(), q32.step(), r32.data(), r32.step(), r32.size(), -8);
  hold("zoriDiv_32sc_C1RSfs", quotients(p32, q32, r32, -8, Zor32s()));
  zoriPolarToCart_16sc_C1R(q.data(), q.step(), r.data(), r.step(), r.size());
  Error points, window8, window16, rings, ramp;
  for (std::size_t i = 0; i < q.samples.size(); ++i) {
    const Real m = q.samples[i].re, angle = q.samples[i].im;
    points.add(r.samples[i].re, clamped<Zor16s>(m * std::cos(angle)), 1);
    points.add(r.samples[i].im, clamped<Zor16s>(m * std::sin(angle)), 1);
  }
  hold("zoriPolarToCart_16sc_C1R", points);
  const Real pi = std::acos(Real{-1});
  const auto taper = [&](int at) { return 0.54L - 0.46L * std::cos(2 * pi * at / (side - 1)); };
  Picture<Zor8u> s8(side, side), d8(side, side);
  Picture<Zor16u> s16(side, side), d16(side, side);
  s8.fillWithNoise(1), s16.fillWithNoise(2);
  zoriWinHammingSep_8u_C1R(s8.data(), s8.step(), d8.data(), d8.step(), d8.size());
  zoriWinHammingSep_16u_C1R(s16.data(), s16.step(), d16.data(), d16.step(), d16.size());
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      window8.add(d8.at(x, y), s8.at(x, y) * taper(x) * taper(y), 1);
      window16.add(d16.at(x, y), s16.at(x, y) * taper(x) * taper(y), 1);
    }
  hold("zoriWinHammingSep_8u_C1R", window8);
  hold("zoriWinHammingSep_16u_C1R", window16, "", 1);
  zoriImageJaehne_16u_C1R(d16.data(), d16.step(), d16.size());
  zoriImageRamp_8u_C1R(d8.data(), d8.step(), d8.size(), -7.3f, 0.37f, ZorRampAlongX);
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      const Real dx = x - Real(side - 1) / 2, dy = y - Real(side - 1) / 2;
      rings.add(d16.at(x, y), (std::sin(2 * pi * (dx * dx + dy * dy) / (4 * side)) + 1) * 32767.99999L, 1);
      ramp.add(d8.at(x, y), clamped<Zor8u>(x * Real{0.37f} - Real{7.3f}), 1);
    }
  hold("zoriImageJaehne_16u_C1R", rings);
  hold("zoriImageRamp_8u_C1R", ramp);
}
