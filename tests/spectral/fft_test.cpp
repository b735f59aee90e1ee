// Image FFT and DFT against double precision: shapes, layouts, flags, records, buffers of exactly the size told.
#include "reference.h"
#include "zori/spectral.h"

#include <gtest/gtest.h>

#include <cstring>
#include <omp.h>
#include <pmmintrin.h>

using namespace spectral;

extern "C" int zoriTestFailAllocationAt(int n);
extern "C" int zoriTestLiveBlocks();
extern "C" void zoriTestShareAllWork(int on);

namespace {

struct Layout {
  const char* name;
  int channels, processed;
};
constexpr Layout c1{"C1", 1, 1}, c3{"C3", 3, 3}, c4{"C4", 4, 4}, ac4{"AC4", 4, 3};

// The two families, by one name each.
struct Fft {
  using Record = ZorFftImgRecord;
  using Record32s = ZorFftImgRecord32s;
  static int order(int length) { return __builtin_ctz(static_cast<unsigned>(length)); }
  static ZorStatus make(Record** r, ZorImgSize s, int flag, bool isReal)
  {
    return (isReal ? zoriFFTInitAlloc_R_32f : zoriFFTInitAlloc_C_32fc)(r, order(s.width), order(s.height), flag,
                                                                       ZorHintNone);
  }
  static ZorStatus release(Record* r, bool isReal) { return (isReal ? zoriFFTFree_R_32f : zoriFFTFree_C_32fc)(r); }
  static ZorStatus bytes(const Record* r, bool isReal, int* n)
  {
    return (isReal ? zoriFFTGetBufSize_R_32f : zoriFFTGetBufSize_C_32fc)(r, n);
  }
  static constexpr auto forward = zoriFFTFwd_CToC_32fc_C1R, inverse = zoriFFTInv_CToC_32fc_C1R;
  static constexpr auto forwardInPlace = zoriFFTFwd_CToC_32fc_C1IR, inverseInPlace = zoriFFTInv_CToC_32fc_C1IR;
  static auto real(int layout, bool inverse)
  {
    static constexpr decltype(&zoriFFTFwd_RToPack_32f_C1R) all[2][4] = {
      {zoriFFTFwd_RToPack_32f_C1R, zoriFFTFwd_RToPack_32f_C3R, zoriFFTFwd_RToPack_32f_C4R, zoriFFTFwd_RToPack_32f_AC4R},
      {zoriFFTInv_PackToR_32f_C1R, zoriFFTInv_PackToR_32f_C3R, zoriFFTInv_PackToR_32f_C4R,
       zoriFFTInv_PackToR_32f_AC4R}};
    return all[inverse][layout];
  }
  static auto realInPlace(int layout, bool inverse)
  {
    static constexpr decltype(&zoriFFTFwd_RToPack_32f_C1IR) all[2][4] = {
      {zoriFFTFwd_RToPack_32f_C1IR, zoriFFTFwd_RToPack_32f_C3IR, zoriFFTFwd_RToPack_32f_C4IR,
       zoriFFTFwd_RToPack_32f_AC4IR},
      {zoriFFTInv_PackToR_32f_C1IR, zoriFFTInv_PackToR_32f_C3IR, zoriFFTInv_PackToR_32f_C4IR,
       zoriFFTInv_PackToR_32f_AC4IR}};
    return all[inverse][layout];
  }
};
struct Dft {
  using Record = ZorDftImgRecord;
  using Record32s = ZorDftImgRecord32s;
  static ZorStatus make(Record** r, ZorImgSize s, int flag, bool isReal)
  {
    return (isReal ? zoriDFTInitAlloc_R_32f : zoriDFTInitAlloc_C_32fc)(r, s.width, s.height, flag, ZorHintNone);
  }
  static ZorStatus release(Record* r, bool isReal) { return (isReal ? zoriDFTFree_R_32f : zoriDFTFree_C_32fc)(r); }
  static ZorStatus bytes(const Record* r, bool isReal, int* n)
  {
    return (isReal ? zoriDFTGetBufSize_R_32f : zoriDFTGetBufSize_C_32fc)(r, n);
  }
  static constexpr auto forward = zoriDFTFwd_CToC_32fc_C1R, inverse = zoriDFTInv_CToC_32fc_C1R;
  static constexpr auto forwardInPlace = zoriDFTFwd_CToC_32fc_C1IR, inverseInPlace = zoriDFTInv_CToC_32fc_C1IR;
  static auto real(int layout, bool inverse)
  {
    static constexpr decltype(&zoriDFTFwd_RToPack_32f_C1R) all[2][4] = {
      {zoriDFTFwd_RToPack_32f_C1R, zoriDFTFwd_RToPack_32f_C3R, zoriDFTFwd_RToPack_32f_C4R, zoriDFTFwd_RToPack_32f_AC4R},
      {zoriDFTInv_PackToR_32f_C1R, zoriDFTInv_PackToR_32f_C3R, zoriDFTInv_PackToR_32f_C4R,
       zoriDFTInv_PackToR_32f_AC4R}};
    return all[inverse][layout];
  }
  static auto realInPlace(int layout, bool inverse)
  {
    static constexpr decltype(&zoriDFTFwd_RToPack_32f_C1IR) all[2][4] = {
      {zoriDFTFwd_RToPack_32f_C1IR, zoriDFTFwd_RToPack_32f_C3IR, zoriDFTFwd_RToPack_32f_C4IR,
       zoriDFTFwd_RToPack_32f_AC4IR},
      {zoriDFTInv_PackToR_32f_C1IR, zoriDFTInv_PackToR_32f_C3IR, zoriDFTInv_PackToR_32f_C4IR,
       zoriDFTInv_PackToR_32f_AC4IR}};
    return all[inverse][layout];
  }
};

template <class F> struct Held {
  typename F::Record* record = nullptr;
  bool isReal;
  Held(ZorImgSize size, int flag, bool isReal_) : isReal(isReal_)
  {
    EXPECT_EQ(F::make(&record, size, flag, isReal), ZorOk);
  }
  Held(const Held&) = delete;
  ~Held() { EXPECT_EQ(F::release(record, isReal), ZorOk); }
  size_t bytes() const
  {
    int n = -1;
    EXPECT_EQ(F::bytes(record, isReal, &n), ZorOk);
    return static_cast<size_t>(n);
  }
};

const Layout layouts[] = {c1, c3, c4, ac4};

double factorOf(int flag, bool inverse, ZorImgSize size)
{
  const double n = static_cast<double>(size.width) * size.height;
  if (flag == ZorFftDivBySqrtN) return 1 / std::sqrt(n);
  return flag == (inverse ? ZorFftDivInvByN : ZorFftDivFwdByN) ? 1 / n : 1;
}

template <class F> void checkReal(ZorImgSize size, int layout, int flag, double limit)
{
  const Layout l = layouts[layout];
  SCOPED_TRACE(std::to_string(size.width) + "x" + std::to_string(size.height) + " " + l.name + " flag " +
               std::to_string(flag));
  const Held<F> record(size, flag, true);
  const Guarded<Zor8u> buffer(record.bytes());
  const int w = size.width, h = size.height, n = l.channels;
  Floats src(w * n, h, 8), dst(w * n, h, 0), back(w * n, h, 3);
  Noise noise(static_cast<unsigned>(w * 1000 + h));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w * n; ++x) src.put(x, y, noise.next());

  ASSERT_EQ(F::real(layout, false)(src.data(), src.step, dst.data(), dst.step, record.record, buffer.get()), ZorOk);
  const double values = static_cast<double>(w) * h, factor = factorOf(flag, false, size);
  for (int c = 0; c < l.processed; ++c) {
    Numbers x;
    for (int y = 0; y < h; ++y)
      for (int i = 0; i < w; ++i) x.push_back(src.get(i * n + c, y));
    const double norm = std::sqrt(sumOfSquares(x)) * factor;
    const std::vector<double> cells = packed(transformed(x, size, -1), size);
    Errors errors(values, norm, limit);
    for (int y = 0; y < h; ++y)
      for (int i = 0; i < w; ++i) errors.add(dst.get(i * n + c, y), cells[static_cast<size_t>(y) * w + i] * factor);
    EXPECT_LE(errors.share(), 1) << "channel " << c;
  }
  // with scarce memory, or memory of its own, the same bits
  Floats other(w * n, h, 12);
  zoriTestFailAllocationAt(1);
  ASSERT_EQ(F::real(layout, false)(src.data(), src.step, other.data(), other.step, record.record, buffer.get()), ZorOk);
  zoriTestFailAllocationAt(0);
  EXPECT_EQ(other, dst);
  ASSERT_EQ(F::real(layout, false)(src.data(), src.step, other.data(), other.step, record.record, nullptr), ZorOk);
  EXPECT_EQ(other, dst);

  ASSERT_EQ(F::real(layout, true)(dst.data(), dst.step, back.data(), back.step, record.record, buffer.get()), ZorOk);
  const double there = factor * factorOf(flag, true, size) * values;
  for (int c = 0; c < l.processed; ++c) {
    Errors errors(values, std::sqrt(values / 3) * there, limit);
    for (int y = 0; y < h; ++y)
      for (int i = 0; i < w; ++i) errors.add(back.get(i * n + c, y), src.get(i * n + c, y) * there);
    EXPECT_LE(errors.share(), 1) << "back, channel " << c;
  }
  zoriTestFailAllocationAt(1);
  ASSERT_EQ(F::real(layout, true)(dst.data(), dst.step, other.data(), other.step, record.record, buffer.get()), ZorOk);
  zoriTestFailAllocationAt(0);
  EXPECT_EQ(other, back);
  ASSERT_EQ(F::realInPlace(layout, true)(dst.data(), dst.step, record.record, nullptr), ZorOk);
  if (l.processed == l.channels) {
    EXPECT_EQ(dst, back);
  }
  ASSERT_EQ(F::realInPlace(layout, false)(back.data(), back.step, record.record, buffer.get()), ZorOk);
}

template <class F> void checkComplex(ZorImgSize size, int flag, double limit)
{
  SCOPED_TRACE(std::to_string(size.width) + "x" + std::to_string(size.height) + " complex, flag " +
               std::to_string(flag));
  const Held<F> record(size, flag, false);
  const Guarded<Zor8u> buffer(record.bytes());
  const int w = size.width, h = size.height;
  Floats src(2 * w, h, 8), dst(2 * w, h, 1), other(2 * w, h, 0);
  Noise noise(static_cast<unsigned>(w * 1000 + h));
  Numbers x;
  for (int y = 0; y < h; ++y)
    for (int i = 0; i < w; ++i) {
      src.put(2 * i, y, noise.next());
      src.put(2 * i + 1, y, noise.next());
      x.push_back({src.get(2 * i, y), src.get(2 * i + 1, y)});
    }
  const auto c = [](const Floats& f) { return reinterpret_cast<Zor32fc*>(f.data()); };
  for (const bool inverse : {false, true}) {
    const auto call = inverse ? F::inverse : F::forward;
    ASSERT_EQ(call(c(src), src.step, c(dst), dst.step, record.record, buffer.get()), ZorOk);
    const Numbers a = transformed(x, size, inverse ? 1 : -1);
    const double factor = factorOf(flag, inverse, size);
    Errors errors(static_cast<double>(w) * h, std::sqrt(sumOfSquares(x)) * factor, limit);
    for (int y = 0; y < h; ++y)
      for (int i = 0; i < w; ++i)
        errors.add({dst.get(2 * i, y), dst.get(2 * i + 1, y)}, a[static_cast<size_t>(y) * w + i] * factor);
    EXPECT_LE(errors.share(), 1) << (inverse ? "inverse" : "forward");
    zoriTestFailAllocationAt(1);
    ASSERT_EQ(call(c(src), src.step, c(other), other.step, record.record, buffer.get()), ZorOk);
    zoriTestFailAllocationAt(0);
    EXPECT_EQ(other, dst);
    for (int y = 0; y < h; ++y)
      std::memcpy(other.bytes.get() + static_cast<size_t>(y) * other.step,
                  src.bytes.get() + static_cast<size_t>(y) * src.step, 8 * static_cast<size_t>(w));
    ASSERT_EQ((inverse ? F::inverseInPlace : F::forwardInPlace)(c(other), other.step, record.record, nullptr), ZorOk);
    EXPECT_EQ(other, dst);
  }
}

constexpr double primeLimit = 1.2e-6;

} // namespace

TEST(ImageFft, EveryShape)
{
  for (int w = 1; w <= 64; w *= 2)
    for (int h = 1; h <= 64; h *= 2) {
      checkComplex<Fft>({w, h}, ZorFftDivFwdByN, 0);
      for (int layout = 0; layout < 4; ++layout) checkReal<Fft>({w, h}, layout, ZorFftDivInvByN, 0);
    }
}

TEST(ImageFft, LargeShapes)
{
  for (const ZorImgSize size : {ZorImgSize{256, 256},
                                {512, 128},
                                {128, 512},
                                {1024, 64},
                                {64, 2048},
                                {2048, 16},
                                {16, 4096},
                                {4, 8192},
                                {1, 65536},
                                {65536, 1}}) {
    checkComplex<Fft>(size, ZorFftDivBySqrtN, 0);
    checkReal<Fft>(size, 0, ZorFftDivBySqrtN, 0);
    if (size.width * size.height <= 65536) checkReal<Fft>(size, 1, ZorFftNoDiv, 0);
  }
}

// Rows of one image between those of another: neither is spoiled.
TEST(ImageFft, ImagesSideBySide)
{
  constexpr int n = 64, step = 2 * n * static_cast<int>(sizeof(float));
  const Held<Fft> record({n, n}, ZorFftNoDiv, true);
  for (const bool inverse : {false, true}) {
    std::vector<float> both(2 * n * n), apart(both.size());
    Noise noise(1);
    for (float& x : both) x = static_cast<float>(noise.next());
    const std::vector<float> before = both;
    ASSERT_EQ(Fft::real(0, inverse)(both.data(), step, both.data() + n, step, record.record, nullptr), ZorOk);
    ASSERT_EQ(Fft::real(0, inverse)(before.data(), step, apart.data() + n, step, record.record, nullptr), ZorOk);
    for (size_t i = 0; i < both.size(); ++i) EXPECT_EQ(both[i], (i / n % 2 ? apart : before)[i]) << i;
  }
}

TEST(ImageDft, EveryShape)
{
  for (const int w : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 13, 15, 17, 30, 33, 49})
    for (const int h : {1, 2, 3, 4, 5, 7, 11, 12, 16, 18, 35}) {
      checkComplex<Dft>({w, h}, ZorFftDivFwdByN, 0);
      for (int layout = 0; layout < 4; ++layout) checkReal<Dft>({w, h}, layout, ZorFftDivInvByN, 0);
    }
}

class Lengths : public testing::TestWithParam<int> {};
TEST_P(Lengths, OfEveryMethod)
{
  const int n = GetParam();
  const bool hasLargeFactor = n == 151 || n == 302 || n == 251 || n == 1009 || n == 10007 || n == 22801;
  for (const ZorImgSize size : {ZorImgSize{n, 1}, {1, n}, {n, 3}, {5, n}}) {
    if (n > 2000 && size.width * size.height > n) continue;
    checkComplex<Dft>(size, ZorFftDivBySqrtN, hasLargeFactor ? primeLimit : 0);
    checkReal<Dft>(size, 0, ZorFftDivBySqrtN, hasLargeFactor ? primeLimit : 0);
  }
}
INSTANTIATE_TEST_SUITE_P(ImageDft, Lengths,
                         testing::Values(149, 150, 151, 298, 302, 251, 360, 480, 1009, 1080, 10007, 22801));

TEST(ImageDft, ImagesOfEveryMethod)
{
  checkReal<Dft>({640, 48}, 0, ZorFftNoDiv, 0);
  checkReal<Dft>({251, 251}, 0, ZorFftDivFwdByN, primeLimit);
  checkReal<Dft>({251, 10}, 1, ZorFftDivFwdByN, primeLimit);
}

// Rows of powers of two go in pairs: a last one by itself, levels of 4 to 16, blocks of columns that are full and not.
TEST(ImageDft, RowsInPairs)
{
  for (const ZorImgSize size :
       {ZorImgSize{64, 3}, {128, 2}, {256, 5}, {512, 7}, {1024, 3}, {4096, 3}, {8192, 2}, {32768, 3}, {128, 72}})
    checkReal<Dft>(size, 0, ZorFftDivFwdByN, 0);
}

// All lengths that a table or a chirp could spoil: what is measured is 2.3e-7, a fifth of the limit that large primes
// have.
TEST(ImageDft, EveryLengthTo512)
{
  for (int n = 1; n <= 512; ++n) {
    const ZorImgSize size = n % 2 ? ZorImgSize{n, 1} : ZorImgSize{1, n};
    checkComplex<Dft>(size, ZorFftNoDiv, 3e-7);
    checkReal<Dft>(size, 0, ZorFftNoDiv, 3e-7);
  }
}

// The spectrum of an impulse is the divisor. That of the DFT by the root is an estimate with one step of Newton, but
// for the powers of two from 8 on, as the FFT's; a row or a column is divided by its length alone.
TEST(ImageDft, DividesByTheRoot)
{
  const auto factor = [](int n) {
    if (n >= 8 && (n & (n - 1)) == 0) return static_cast<float>(1 / std::sqrt(static_cast<double>(n)));
    const float length = static_cast<float>(n), x = _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(length)));
    return x * (length * x * x - 3) * -0.5f;
  };
  for (const ZorImgSize size :
       {ZorImgSize{1, 1}, {2, 1}, {1, 3}, {4, 1}, {5, 1}, {1, 8}, {7, 1}, {64, 1}, {2, 3}, {8, 6}, {151, 2}}) {
    const float expected = size.height == 1  ? factor(size.width)
                           : size.width == 1 ? factor(size.height)
                                             : factor(size.width) * factor(size.height);
    const Held<Dft> record(size, ZorFftDivBySqrtN, false);
    std::vector<Zor32fc> image(static_cast<size_t>(size.width * size.height));
    image[0] = {1, 0};
    const int step = size.width * 8;
    ASSERT_EQ(zoriDFTFwd_CToC_32fc_C1IR(image.data(), step, record.record, nullptr), ZorOk);
    if (size.width == 151) EXPECT_NEAR(image.back().re, expected, 1e-6);
    else
      for (const Zor32fc& z : image) EXPECT_EQ(z.re, expected) << size.width << 'x' << size.height;
  }
}

// Neither the team nor the caller's rounding shows in a result.
TEST(ImageFft, TeamsAndRounding)
{
  zoriTestShareAllWork(1);
  for (const int layout : {0, 1, 3})
    for (const ZorImgSize size : {ZorImgSize{512, 512}, {300, 301}}) {
      const int n = layouts[layout].channels;
      omp_set_num_threads(2); // buffers are planned for two
      const Held<Dft> record(size, ZorFftDivInvByN, true);
      const Held<Dft> complexRecord(size, ZorFftDivInvByN, false);
      Floats src(size.width * n, size.height, 4);
      Noise noise(5);
      for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width * n; ++x) src.put(x, y, noise.next());
      const Guarded<Zor8u> buffer(record.bytes());
      const unsigned word = _mm_getcsr();
      for (const bool scarce : {false, true}) {
        Floats first(size.width * n, size.height, 0);
        for (const int team : {1, 2, 7})
          for (const unsigned field : {0u, 0x2000u, 0x4000u, 0x6000u}) {
            if (team != 2 && field != 0) continue;
            omp_set_num_threads(team);
            Floats dst(size.width * n, size.height, 0);
            if (scarce) zoriTestFailAllocationAt(1);
            _mm_setcsr((word & ~0x6000u) | field);
            const ZorStatus status =
              Dft::real(layout, false)(src.data(), src.step, dst.data(), dst.step, record.record, buffer.get());
            _mm_setcsr(word);
            zoriTestFailAllocationAt(0);
            ASSERT_EQ(status, ZorOk);
            if (team == 1) std::memcpy(first.bytes.get(), dst.bytes.get(), first.bytes.size());
            EXPECT_EQ(dst, first) << team << " threads, field " << field;
          }
      }
    }
  omp_set_num_threads(2);
  zoriTestShareAllWork(0);
}

TEST(ImageFft, IntegerForms)
{
  const ZorImgSize size = {32, 16};
  for (const bool isDft : {false, true}) {
    ZorFftImgRecord32s* fft = nullptr;
    ZorDftImgRecord32s* dft = nullptr;
    ZorFftImgRecord* floats = nullptr;
    int bytes = 0;
    ASSERT_EQ(zoriFFTInitAlloc_R_32f(&floats, 5, 4, ZorFftDivInvByN, ZorHintNone), ZorOk);
    if (isDft) {
      ASSERT_EQ(zoriDFTInitAlloc_R_32s(&dft, 32, 16, ZorFftDivInvByN, ZorHintNone), ZorOk);
      ASSERT_EQ(zoriDFTGetBufSize_R_32s(dft, &bytes), ZorOk);
    } else {
      ASSERT_EQ(zoriFFTInitAlloc_R_32s(&fft, 5, 4, ZorFftDivInvByN, ZorHintNone), ZorOk);
      ASSERT_EQ(zoriFFTGetBufSize_R_32s(fft, &bytes), ZorOk);
    }
    const Guarded<Zor8u> buffer(static_cast<size_t>(bytes));
    for (const int n : {1, 3, 4, -4}) { // -4: AC4
      const int channels = std::abs(n), row = size.width * channels;
      std::vector<Zor8u> src(static_cast<size_t>(row * size.height)), back(src.size(), 77);
      std::vector<Zor32s> dst(src.size(), 12345);
      std::vector<float> f(src.size()), g(src.size());
      Noise noise(9);
      for (size_t i = 0; i < src.size(); ++i) f[i] = src[i] = static_cast<Zor8u>(127 + 127 * noise.next());
      const auto forward = n == 1   ? zoriFFTFwd_RToPack_8u32s_C1RSfs
                           : n == 3 ? zoriFFTFwd_RToPack_8u32s_C3RSfs
                           : n == 4 ? zoriFFTFwd_RToPack_8u32s_C4RSfs
                                    : zoriFFTFwd_RToPack_8u32s_AC4RSfs;
      const auto inverse = n == 1   ? zoriFFTInv_PackToR_32s8u_C1RSfs
                           : n == 3 ? zoriFFTInv_PackToR_32s8u_C3RSfs
                           : n == 4 ? zoriFFTInv_PackToR_32s8u_C4RSfs
                                    : zoriFFTInv_PackToR_32s8u_AC4RSfs;
      const auto forwardDft = n == 1   ? zoriDFTFwd_RToPack_8u32s_C1RSfs
                              : n == 3 ? zoriDFTFwd_RToPack_8u32s_C3RSfs
                              : n == 4 ? zoriDFTFwd_RToPack_8u32s_C4RSfs
                                       : zoriDFTFwd_RToPack_8u32s_AC4RSfs;
      const auto inverseDft = n == 1   ? zoriDFTInv_PackToR_32s8u_C1RSfs
                              : n == 3 ? zoriDFTInv_PackToR_32s8u_C3RSfs
                              : n == 4 ? zoriDFTInv_PackToR_32s8u_C4RSfs
                                       : zoriDFTInv_PackToR_32s8u_AC4RSfs;
      const int scale = -2;
      const auto call = [&](Zor8u* work) {
        return isDft ? forwardDft(src.data(), row, dst.data(), row * 4, dft, scale, work)
                     : forward(src.data(), row, dst.data(), row * 4, fft, scale, work);
      };
      ASSERT_EQ(call(buffer.get()), ZorOk);
      Fft::real(n < 0 ? 3 : n == 1 ? 0 : n - 2, false)(f.data(), row * 4, g.data(), row * 4, floats, nullptr);
      for (size_t i = 0; i < src.size(); ++i)
        ASSERT_EQ(dst[i], n < 0 && i % 4 == 3 ? 12345 : static_cast<Zor32s>(std::nearbyint(g[i] * 4.0f))) << i;
      ASSERT_EQ(call(nullptr), ZorOk);
      ASSERT_EQ(isDft ? inverseDft(dst.data(), row * 4, back.data(), row, dft, 2, buffer.get())
                      : inverse(dst.data(), row * 4, back.data(), row, fft, 2, buffer.get()),
                ZorOk);
      for (size_t i = 0; i < src.size(); ++i) ASSERT_EQ(back[i], n < 0 && i % 4 == 3 ? 77 : src[i]) << i;
    }
    EXPECT_EQ(zoriFFTFree_R_32f(floats), ZorOk);
    if (isDft) EXPECT_EQ(zoriDFTFree_R_32s(dft), ZorOk);
    else EXPECT_EQ(zoriFFTFree_R_32s(fft), ZorOk);
  }
}

TEST(ImageFft, RecordsAndBufferSizes)
{
  omp_set_num_threads(2);
  const auto vectorBytes = [](long long n) { return n < 16 ? 0 : ((8 * n + 31) & ~31LL) + 32; };
  for (int ox = 0; ox <= 10; ++ox)
    for (const int oy : {0, 3, 5, 8, 9}) {
      const long long w = 1LL << ox, h = 1LL << oy;
      ZorFftImgRecord *real = nullptr, *complex = nullptr;
      ZorFftImgRecord32s* integer = nullptr;
      ASSERT_EQ(zoriFFTInitAlloc_R_32f(&real, ox, oy, 8, ZorHintNone), ZorOk);
      ASSERT_EQ(zoriFFTInitAlloc_C_32fc(&complex, ox, oy, 8, ZorHintNone), ZorOk);
      ASSERT_EQ(zoriFFTInitAlloc_R_32s(&integer, ox, oy, 8, ZorHintNone), ZorOk);
      int r = 0, c = 0, i = 0;
      zoriFFTGetBufSize_R_32f(real, &r), zoriFFTGetBufSize_C_32fc(complex, &c), zoriFFTGetBufSize_R_32s(integer, &i);
      const auto realBytes = [&](long long n) { return n < 16 ? 0 : vectorBytes(n) ? ((4 * n + 31) & ~31LL) + 32 : 0; };
      const auto total = [&](long long bytes, bool shared) {
        return shared ? 2 * (((bytes + 15) & ~15LL) + 4) + 16 : bytes + 4 + 16;
      };
      const long long columns = 64 * h + vectorBytes(h);
      EXPECT_EQ(r, total(std::max({16 * w + realBytes(w), 16 * h + realBytes(h), columns}), w >= 141 && h >= 141))
        << w << "x" << h;
      EXPECT_EQ(c, total(std::max(vectorBytes(w), columns), w >= 291 && h >= 291)) << w << "x" << h;
      EXPECT_EQ(i, r + 4 * w + 16 * w * h + 16);
      EXPECT_EQ(zoriFFTFree_C_32fc(real), ZorErrContext);
      EXPECT_EQ(zoriFFTFree_R_32f(real), ZorOk);
      EXPECT_EQ(zoriFFTFree_C_32fc(complex), ZorOk);
      EXPECT_EQ(zoriFFTFree_R_32s(integer), ZorOk);
    }
  EXPECT_EQ(zoriFFTFree_R_32f(nullptr), ZorErrNullPtr);
  EXPECT_EQ(zoriDFTFree_R_32s(nullptr), ZorErrNullPtr);
  // sizes beyond what can be told or had
  ZorFftImgRecord* record = nullptr;
  ZorDftImgRecord* dft = nullptr;
  EXPECT_EQ(zoriFFTInitAlloc_R_32f(&record, 30, 30, 8, ZorHintNone), ZorErrAlloc);
  EXPECT_EQ(zoriFFTInitAlloc_C_32fc(&record, 0, 30, 8, ZorHintNone), ZorErrAlloc);
  EXPECT_EQ(zoriDFTInitAlloc_R_32f(&dft, 2147483647, 2147483647, 8, ZorHintNone), ZorErrAlloc);
  EXPECT_EQ(zoriDFTInitAlloc_C_32fc(&dft, 2147483647, 1, 8, ZorHintNone), ZorErrAlloc);
  EXPECT_EQ(record, nullptr);
}
