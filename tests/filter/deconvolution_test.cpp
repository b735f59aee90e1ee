// Deconvolution against plain loops in double precision, and what callers want from it: blurs undone.
#include "support/guarded_block.h"
#include "zori/filter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <memory>
#include <vector>

namespace {

using zoritest::GuardedBlock;
using Table = std::vector<double>;

// A region of floats of some channels in pixels of the next page; `padding` floats behind each row.
class Image {
public:
  Image(ZorImgSize s, int n, int padding = 0)
    : size(s), channels(n), pitch(s.width * n + padding), block_(std::make_unique<GuardedBlock>(bytes())),
      first_(reinterpret_cast<float*>(block_->end() - bytes()))
  {
    for (size_t i = 0; i < bytes() / 4; ++i) first_[i] = -77;
  }
  float* data() const { return first_; }
  int step() const { return 4 * pitch; }
  float& at(int x, int y, int c) const { return first_[y * pitch + x * channels + c]; }
  bool keepsPadding() const
  {
    for (int y = 0; y + 1 < size.height; ++y)
      for (int x = size.width * channels; x < pitch; ++x)
        if (first_[y * pitch + x] != -77) return false;
    return true;
  }

  ZorImgSize size;
  int channels, pitch;

private:
  size_t bytes() const { return 4 * static_cast<size_t>(pitch * (size.height - 1) + size.width * channels); }
  std::unique_ptr<GuardedBlock> block_;
  float* first_;
};

struct Random {
  unsigned state;
  double next() { return ((state = state * 1664525u + 1013904223u) >> 8) / double(1 << 24); }
};

void fill(const Image& image, unsigned seed)
{
  Random random{seed};
  for (int y = 0; y < image.size.height; ++y)
    for (int x = 0; x < image.size.width * image.channels; ++x)
      image.data()[y * image.pitch + x] = static_cast<float>(20 + 100 * random.next());
}

// Uneven in every direction, of sum 1, with a heavy tap so that its spectrum has no zero.
std::vector<float> unevenKernel(int k, int heavy, unsigned seed)
{
  Random random{seed};
  std::vector<float> taps(static_cast<size_t>(k * k));
  double sum = 0;
  for (float& t : taps) sum += t = static_cast<float>(random.next());
  for (float& t : taps) t = static_cast<float>(t / sum * 0.4);
  taps[static_cast<size_t>(heavy * k + heavy)] += 0.6f;
  return taps;
}

// ---- The oracle, on one channel ----

struct Oracle {
  int k;
  std::vector<float> kernel;
  double threshold;

  int a() const { return (k - 1) / 2; }
  int m() const { return k - 1 - a(); }
  double tap(int y, int x) const { return kernel[static_cast<size_t>(y * k + x)]; }

  double reach(int dx, int dy) const
  {
    double sum = 0;
    for (int v = dy; a() + v < k; ++v)
      for (int u = dx; a() + u < k; ++u) sum += tap(a() + v, a() + u);
    return sum;
  }
  double extended(const Image& image, int c, int x, int y) const // from the region's first pixel
  {
    const int nx = std::min(std::max(x, 0), image.size.width - 1), ny = std::min(std::max(y, 0), image.size.height - 1);
    const double pixel = image.at(nx, ny, c);
    if (nx == x && ny == y) return pixel;
    const double total = reach(0, 0);
    return pixel * reach(std::abs(x - nx), std::abs(y - ny)) / (std::abs(total) > threshold ? total : 1);
  }

  using Spectrum = std::vector<std::complex<double>>;
  static Spectrum dft(const Spectrum& z, int n, int sign)
  {
    Spectrum roots, rows(z.size()), all(z.size());
    for (int i = 0; i < n; ++i) roots.push_back(std::polar(1.0, sign * 2 * 3.14159265358979323846 * i / n));
    const auto at = [n](int y, int x) { return static_cast<size_t>(y * n + x); };
    for (int y = 0; y < n; ++y)
      for (int u = 0; u < n; ++u)
        for (int x = 0; x < n; ++x) rows[at(y, u)] += z[at(y, x)] * roots[static_cast<size_t>(x * u % n)];
    for (int v = 0; v < n; ++v)
      for (int y = 0; y < n; ++y)
        for (int u = 0; u < n; ++u) all[at(v, u)] += rows[at(y, u)] * roots[static_cast<size_t>(y * v % n)];
    return all;
  }
  double cut(double x) const { return std::abs(x) > threshold ? x : 0; }

  Table bySpectrum(const Image& image, int c, int n) const
  {
    const auto at = [n](int y, int x) { return static_cast<size_t>(y * n + x); };
    Spectrum h(static_cast<size_t>(n * n)), z(h.size());
    for (int y = 0; y < k; ++y)
      for (int x = 0; x < k; ++x) h[at(y, x)] = cut(tap(y, x));
    for (int y = 0; y < image.size.height + k - 1; ++y)
      for (int x = 0; x < image.size.width + k - 1; ++x) z[at(y, x)] = extended(image, c, x - m(), y - m());
    h = dft(h, n, -1);
    z = dft(z, n, -1);
    for (size_t i = 0; i < z.size(); ++i) {
      const double re = cut(h[i].real()), im = cut(h[i].imag());
      if (re != 0 || im != 0) z[i] /= std::complex<double>(re, im);
    }
    z = dft(z, n, 1);
    Table result;
    for (int y = 0; y < image.size.height; ++y)
      for (int x = 0; x < image.size.width; ++x) result.push_back(cut(z[at(y, x)].real() / (n * n)));
    return result;
  }

  Table byIterations(const Image& image, int c, int rounds) const
  {
    const int w = image.size.width + k - 1, h = image.size.height + k - 1;
    Table observed(static_cast<size_t>(w * h));
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) observed[static_cast<size_t>(y * w + x)] = extended(image, c, x - m(), y - m());
    const auto filtered = [&](const Table& in, bool transposed, int anchor) {
      Table out(in.size());
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
          for (int j = 0; j < k; ++j)
            for (int i = 0; i < k; ++i) {
              const int sx = x + anchor - i, sy = y + anchor - j;
              if (sx < 0 || sy < 0 || sx >= w || sy >= h) continue;
              out[static_cast<size_t>(y * w + x)] +=
                (transposed ? tap(i, j) : tap(j, i)) * in[static_cast<size_t>(sy * w + sx)];
            }
      return out;
    };
    Table estimate = observed;
    for (int round = 0; round < rounds; ++round) {
      Table ratio = filtered(estimate, false, a());
      for (size_t i = 0; i < ratio.size(); ++i) ratio[i] = std::abs(ratio[i]) > threshold ? observed[i] / ratio[i] : 0;
      const Table correction = filtered(ratio, true, k - a() - 1);
      const double least = 1.1754943247493889e-15;
      for (size_t i = 0; i < ratio.size(); ++i)
        estimate[i] =
          std::abs(estimate[i]) > least && std::abs(correction[i]) > least ? estimate[i] * correction[i] : 0;
    }
    Table result;
    for (int y = 0; y < image.size.height; ++y)
      for (int x = 0; x < image.size.width; ++x)
        result.push_back(cut(estimate[static_cast<size_t>((y + m()) * w + x + m())]));
    return result;
  }
};

void expectNear(const Image& got, int c, const Table& expected, double allowed, const std::string& what)
{
  for (int y = 0; y < got.size.height; ++y)
    for (int x = 0; x < got.size.width; ++x) {
      const double e = expected[static_cast<size_t>(y * got.size.width + x)];
      ASSERT_LE(std::abs(got.at(x, y, c) - e), allowed * (100 + std::abs(e))) << what << " x " << x << " y " << y;
    }
}

// ---- States ----

struct BySpectrum {
  ZorDeconvFftState* state = nullptr;
  int channels;
  BySpectrum(int n, const std::vector<float>& taps, int k, int order, float threshold) : channels(n)
  {
    EXPECT_EQ((n == 3 ? zoriDeconvFFTInitAlloc_32f_C3R : zoriDeconvFFTInitAlloc_32f_C1R)(&state, taps.data(), k, order,
                                                                                         threshold),
              ZorOk);
  }
  ~BySpectrum() { EXPECT_EQ((channels == 3 ? zoriDeconvFFTFree_32f_C3R : zoriDeconvFFTFree_32f_C1R)(state), ZorOk); }
  ZorStatus operator()(const Image& src, const Image& dst) const
  {
    return (channels == 3 ? zoriDeconvFFT_32f_C3R : zoriDeconvFFT_32f_C1R)(src.data(), src.step(), dst.data(),
                                                                           dst.step(), src.size, state);
  }
};

struct ByIterations {
  ZorDeconvLrState* state = nullptr;
  int channels;
  ByIterations(int n, const std::vector<float>& taps, int k, ZorImgSize maxRoi, float threshold) : channels(n)
  {
    EXPECT_EQ((n == 3 ? zoriDeconvLRInitAlloc_32f_C3R : zoriDeconvLRInitAlloc_32f_C1R)(&state, taps.data(), k, maxRoi,
                                                                                       threshold),
              ZorOk);
  }
  ~ByIterations() { EXPECT_EQ((channels == 3 ? zoriDeconvLRFree_32f_C3R : zoriDeconvLRFree_32f_C1R)(state), ZorOk); }
  ZorStatus operator()(const Image& src, const Image& dst, int rounds) const
  {
    return (channels == 3 ? zoriDeconvLR_32f_C3R : zoriDeconvLR_32f_C1R)(src.data(), src.step(), dst.data(), dst.step(),
                                                                         src.size, rounds, state);
  }
};

std::string words(int k, ZorImgSize size, int n)
{
  return "kernel " + std::to_string(k) + " region " + std::to_string(size.width) + "x" + std::to_string(size.height) +
         " channels " + std::to_string(n);
}

struct Case {
  int k, order;
  ZorImgSize roi;
};
const Case cases[] = {{1, 0, {1, 1}},  {1, 4, {16, 9}}, {2, 4, {9, 15}}, {2, 1, {1, 1}}, {3, 4, {14, 14}},
                      {4, 5, {5, 29}}, {5, 5, {28, 7}}, {6, 5, {27, 1}}, {7, 5, {1, 3}}, {8, 3, {1, 1}}};

} // namespace

TEST(DeconvFFT, Oracle)
{
  for (const Case& t : cases)
    for (const int n : {1, 3})
      for (const float threshold : {0.0f, 0.02f}) {
        const auto kernel = unevenKernel(t.k, t.k / 2, 11u * static_cast<unsigned>(t.k));
        const Oracle oracle{t.k, kernel, threshold};
        const Image src(t.roi, n, 1), dst(t.roi, n, 2);
        fill(src, 5);
        const BySpectrum restored(n, kernel, t.k, t.order, threshold);
        for (int again = 0; again < 2; ++again) { // the state serves any number of calls
          ASSERT_EQ(restored(src, dst), ZorOk) << words(t.k, t.roi, n);
          for (int c = 0; c < n; ++c)
            expectNear(dst, c, oracle.bySpectrum(src, c, 1 << t.order), 3e-5, words(t.k, t.roi, n));
          ASSERT_TRUE(dst.keepsPadding());
        }
      }
}

TEST(DeconvFFT, SingleTapGivesTheImage)
{
  const ZorImgSize size = {32, 20};
  const Image src(size, 1), dst(size, 1);
  fill(src, 9);
  const BySpectrum restored(1, {1}, 1, 5, 0);
  ASSERT_EQ(restored(src, dst), ZorOk);
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x) ASSERT_NEAR(dst.at(x, y, 0), src.at(x, y, 0), 1e-4);
}

// A kernel all of whose frequencies but some vanish: those pass as they are, and a kernel below the threshold is none.
TEST(DeconvFFT, VanishingFrequencies)
{
  const ZorImgSize size = {7, 7};
  const Image src(size, 1), dst(size, 1);
  fill(src, 9);
  for (const float threshold : {1e-4f, 2.0f}) {
    const std::vector<float> box(4, 0.25f);
    const BySpectrum restored(1, box, 2, 3, threshold);
    ASSERT_EQ(restored(src, dst), ZorOk);
    expectNear(dst, 0, Oracle{2, box, threshold}.bySpectrum(src, 0, 8), 1e-4, "box");
  }
}

// The taps that weigh the margin can sum up to no more than the threshold: they are not divided then.
TEST(Deconvolution, MarginOfLittleWeight)
{
  const std::vector<float> kernel = {0.6f, 0.3f, 0, 0.2f, 0.01f, 0.02f, 0, 0.03f, 0.01f};
  const ZorImgSize size = {6, 5};
  const Image src(size, 1), dst(size, 1);
  fill(src, 3);
  for (const float threshold : {0.15f, 0.05f}) { // above and below that sum, 0.07
    const Oracle oracle{3, kernel, threshold};
    const BySpectrum spectrum(1, kernel, 3, 3, threshold);
    ASSERT_EQ(spectrum(src, dst), ZorOk);
    expectNear(dst, 0, oracle.bySpectrum(src, 0, 8), 3e-5, "by spectrum");
    const ByIterations iterations(1, kernel, 3, size, threshold);
    ASSERT_EQ(iterations(src, dst, 2), ZorOk);
    expectNear(dst, 0, oracle.byIterations(src, 0, 2), 1e-5, "by iterations");
  }
}

TEST(DeconvFFT, UndoesItsBlur)
{
  const ZorImgSize size = {100, 90};
  const int k = 6, a = (k - 1) / 2, m = k - 1 - a;
  const auto kernel = unevenKernel(k, 3, 3);
  const Image sharp({size.width + k - 1, size.height + k - 1}, 1), blurred(size, 1), dst(size, 1);
  fill(sharp, 4); // dark around the region: its margin is the only thing that is not known
  for (int y = 0; y < sharp.size.height; ++y)
    for (int x = 0; x < sharp.size.width; ++x)
      if (x < 30 || y < 30 || x > 70 || y > 60) sharp.at(x, y, 0) = 0;
  ASSERT_EQ(zoriFilter_32f_C1R(&sharp.at(k - 1 - m, k - 1 - m, 0), sharp.step(), blurred.data(), blurred.step(), size,
                               kernel.data(), {k, k}, {m, m}),
            ZorOk);
  const BySpectrum restored(1, kernel, k, 7, 0);
  ASSERT_EQ(restored(blurred, dst), ZorOk);
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x)
      ASSERT_NEAR(dst.at(x, y, 0), sharp.at(x + k - 1 - m, y + k - 1 - m, 0), 2e-3) << x << ' ' << y;
}

TEST(DeconvLR, Oracle)
{
  for (const Case& t : cases)
    for (const int n : {1, 3})
      for (const int rounds : {1, 3}) {
        const auto kernel = unevenKernel(t.k, t.k / 2, 13u * static_cast<unsigned>(t.k));
        const float threshold = 1e-3f;
        const Oracle oracle{t.k, kernel, threshold};
        const Image src(t.roi, n, 2), dst(t.roi, n, 1);
        fill(src, 6);
        const ZorImgSize most = {std::max(t.roi.width, t.k) + rounds, std::max(t.roi.height, t.k)};
        const ByIterations restored(n, kernel, t.k, most, threshold);
        const Image larger(most, n), ignored(most, n); // leaves its traces in the state
        fill(larger, 8);
        ASSERT_EQ(restored(larger, ignored, 1), ZorOk);
        ASSERT_EQ(restored(src, dst, rounds), ZorOk) << words(t.k, t.roi, n);
        for (int c = 0; c < n; ++c) expectNear(dst, c, oracle.byIterations(src, c, rounds), 1e-5, words(t.k, t.roi, n));
        ASSERT_TRUE(dst.keepsPadding());
      }
}

TEST(DeconvLR, SmallNumbersVanish)
{
  const ZorImgSize size = {20, 3};
  const Image src(size, 1), dst(size, 1);
  fill(src, 6);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 10; ++x) src.at(x, y, 0) = x < 5 ? 1e-16f : 1e-3f;
  const ByIterations sharp(1, {1}, 1, size, 0), cut(1, {1}, 1, size, 0.01f);
  ASSERT_EQ(sharp(src, dst, 2), ZorOk);
  for (int x = 0; x < 20; ++x) ASSERT_FLOAT_EQ(dst.at(x, 1, 0), x < 5 ? 0 : src.at(x, 1, 0));
  ASSERT_EQ(cut(src, dst, 2), ZorOk);
  for (int x = 0; x < 20; ++x) ASSERT_FLOAT_EQ(dst.at(x, 1, 0), x < 10 ? 0 : src.at(x, 1, 0));

  // a large sample's correction is that of its neighbours on the right, which it covers: as good as none
  const std::vector<float> pair = {1, 1, 0, 0};
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 20; ++x) src.at(x, y, 0) = x == 7 ? 1e20f : 100;
  const ByIterations spread(1, pair, 2, size, 0);
  ASSERT_EQ(spread(src, dst, 1), ZorOk);
  expectNear(dst, 0, Oracle{2, pair, 0}.byIterations(src, 0, 1), 1e-5, "beside a large sample");
  EXPECT_EQ(dst.at(7, 1, 0), 0);
}

TEST(DeconvLR, EachRoundComesNearer)
{
  const ZorImgSize size = {64, 64}, frame = {72, 72};
  std::vector<float> kernel(81);
  double sum = 0;
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 9; ++x)
      sum += kernel[static_cast<size_t>(9 * y + x)] =
        std::exp(-static_cast<float>((x - 4) * (x - 4) + (y - 4) * (y - 4)) / 8);
  for (float& t : kernel) t = static_cast<float>(t / sum);
  const Image sharp(frame, 1), blurred(size, 1), dst(size, 1);
  for (int y = 0; y < frame.height; ++y)
    for (int x = 0; x < frame.width; ++x) sharp.at(x, y, 0) = (x / 9 + y / 9) % 2 != 0 ? 200.0f : 40.0f;
  ASSERT_EQ(zoriFilter_32f_C1R(&sharp.at(4, 4, 0), sharp.step(), blurred.data(), blurred.step(), size, kernel.data(),
                               {9, 9}, {4, 4}),
            ZorOk);
  const ByIterations restored(1, kernel, 9, size, 0);
  const auto error = [&](const Image& image) {
    double e = 0;
    for (int y = 8; y < 56; ++y)
      for (int x = 8; x < 56; ++x) e += std::pow(image.at(x, y, 0) - sharp.at(x + 4, y + 4, 0), 2);
    return e;
  };
  double before = error(blurred);
  for (const int rounds : {1, 4, 16, 64}) {
    ASSERT_EQ(restored(blurred, dst, rounds), ZorOk);
    EXPECT_LT(error(dst), 0.95 * before) << rounds;
    before = error(dst);
  }
}

TEST(Deconvolution, NumbersThatAreNone)
{
  const ZorImgSize size = {9, 9};
  const Image src(size, 1), dst(size, 1);
  const std::vector<float> wild = {INFINITY, 1, -INFINITY, NAN};
  for (const float threshold : {0.0f, NAN}) {
    const BySpectrum spectrum(1, wild, 2, 4, threshold);
    const ByIterations iterations(1, wild, 2, size, threshold);
    for (int i = 0; i < 81; ++i)
      src.data()[i] = i % 7 == 0 ? NAN : i % 5 == 0 ? INFINITY : i % 3 == 0 ? -1e38f : 1e-40f;
    ASSERT_EQ(spectrum(src, dst), ZorOk);
    ASSERT_EQ(iterations(src, dst, 3), ZorOk);
    for (int i = 0; i < 81; ++i) ASSERT_FALSE(std::isnan(dst.data()[i])); // they count as zero
  }
  const ByIterations negative(1, {1}, 1, size, -1);
  ASSERT_EQ(negative(src, dst, 1), ZorOk);
}

TEST(Deconvolution, Making)
{
  const float kernel[9] = {0, 0, 0, 0, 1, 0, 0, 0, 0};
  ZorDeconvFftState* const untouchedFft = reinterpret_cast<ZorDeconvFftState*>(0x40);
  ZorDeconvLrState* const untouchedLr = reinterpret_cast<ZorDeconvLrState*>(0x40);
  ZorDeconvFftState* fft = untouchedFft;
  ZorDeconvLrState* lr = untouchedLr;
  const auto makeFft = [&](int k, int order, float threshold) {
    return zoriDeconvFFTInitAlloc_32f_C1R(&fft, kernel, k, order, threshold);
  };
  EXPECT_EQ(makeFft(3, 1, 0), ZorErrSize);
  EXPECT_EQ(makeFft(3, 1, -1), ZorErrSize);
  EXPECT_EQ(makeFft(INT32_MIN, 4, 0), ZorErrSize);
  EXPECT_EQ(makeFft(INT32_MAX, 30, 0), ZorErrSize);
  EXPECT_EQ(makeFft(3, 31, -1), ZorErrOrder);
  EXPECT_EQ(makeFft(3, -1, 0), ZorErrOrder);
  EXPECT_EQ(makeFft(3, INT32_MIN, 0), ZorErrOrder);
  EXPECT_EQ(makeFft(3, 2, -1e-30f), ZorErrBadArg);
  for (const int order : {28, 29, 30}) EXPECT_EQ(makeFft(3, order, 0), ZorErrAlloc);
  const auto makeLr = [&](int k, ZorImgSize most) { return zoriDeconvLRInitAlloc_32f_C3R(&lr, kernel, k, most, 0); };
  EXPECT_EQ(makeLr(0, {5, 5}), ZorErrSize);
  EXPECT_EQ(makeLr(3, {2, 5}), ZorErrSize);
  EXPECT_EQ(makeLr(3, {5, INT32_MIN}), ZorErrSize);
  EXPECT_EQ(makeLr(1, {INT32_MAX, INT32_MAX}), ZorErrAlloc);
  EXPECT_EQ(makeLr(1, {INT32_MAX / 4, INT32_MAX}), ZorErrAlloc);
  EXPECT_EQ(fft, untouchedFft);
  EXPECT_EQ(lr, untouchedLr);
  EXPECT_EQ(zoriDeconvFFTFree_32f_C1R(nullptr), ZorErrNullPtr);
  EXPECT_EQ(zoriDeconvFFTFree_32f_C3R(nullptr), ZorErrNullPtr);
  EXPECT_EQ(zoriDeconvLRFree_32f_C1R(nullptr), ZorErrNullPtr);
  EXPECT_EQ(zoriDeconvLRFree_32f_C3R(nullptr), ZorErrNullPtr);
}

TEST(Deconvolution, OrderOfChecks)
{
  const std::vector<float> kernel(9, 1);
  const Image src({14, 14}, 3, 4), dst({14, 14}, 3, 4);
  const BySpectrum spectrum(3, kernel, 3, 4, 0);
  const ByIterations iterations(3, kernel, 3, {14, 14}, 0);
  const auto both = [&](ZorImgSize size, int srcStep, int dstStep, ZorStatus expected) {
    EXPECT_EQ(zoriDeconvFFT_32f_C3R(src.data(), srcStep, dst.data(), dstStep, size, spectrum.state), expected);
    EXPECT_EQ(zoriDeconvLR_32f_C3R(src.data(), srcStep, dst.data(), dstStep, size, 1, iterations.state), expected);
  };
  both({14, 14}, 14 * 12, 14 * 12, ZorOk);
  both({15, 14}, 1, 1, ZorErrSize);
  both({14, 15}, 1, 1, ZorErrSize);
  both({14, INT32_MAX}, 1, 1, ZorErrSize);
  both({14, 14}, 14 * 12 - 4, 14 * 12 + 2, ZorErrStep);
  both({14, 14}, 14 * 12 + 2, 14 * 12 - 1, ZorErrStep);
  both({14, 14}, 14 * 12 + 2, 14 * 12, ZorErrDeconvParam);
  both({14, 14}, 14 * 12, 14 * 12 + 1, ZorErrDeconvParam);
  EXPECT_EQ(zoriDeconvLR_32f_C3R(src.data(), 14 * 12 + 2, dst.data(), 14 * 12, {14, 14}, 0, iterations.state),
            ZorErrDeconvParam);
  EXPECT_EQ(zoriDeconvLR_32f_C3R(src.data(), 14 * 12, dst.data(), 14 * 12, {14, 14}, 0, iterations.state),
            ZorErrBadArg);
  EXPECT_EQ(zoriDeconvLR_32f_C3R(src.data(), 1, dst.data(), 1, {14, 14}, 0, nullptr), ZorErrNullPtr);
}
