// The cosine transform of images against its definition in double precision: shapes of every method, layouts, records,
// buffers of exactly the size told.
#include "reference.h"
#include "zori/spectral.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <pmmintrin.h>
#include <string>

using namespace spectral;

extern "C" int zoriTestFailAllocationAt(int n);
extern "C" int zoriTestLiveBlocks();

namespace {

struct Layout {
  const char* name;
  int channels, processed;
};
constexpr Layout layouts[] = {{"C1", 1, 1}, {"C3", 3, 3}, {"C4", 4, 4}, {"AC4", 4, 3}};

constexpr decltype(&zoriDCTFwd_32f_C1R) functions[2][4] = {
  {zoriDCTFwd_32f_C1R, zoriDCTFwd_32f_C3R, zoriDCTFwd_32f_C4R, zoriDCTFwd_32f_AC4R},
  {zoriDCTInv_32f_C1R, zoriDCTInv_32f_C3R, zoriDCTInv_32f_C4R, zoriDCTInv_32f_AC4R}};

struct Record {
  ZorDctImgRecord* p = nullptr;
  bool inverse;
  int bytes = -1;

  Record(ZorImgSize size, bool inverse_, ZorHint hint = ZorHintNone) : inverse(inverse_)
  {
    EXPECT_EQ((inverse ? zoriDCTInvInitAlloc_32f : zoriDCTFwdInitAlloc_32f)(&p, size, hint), ZorOk);
    EXPECT_EQ((inverse ? zoriDCTInvGetBufSize_32f : zoriDCTFwdGetBufSize_32f)(p, &bytes), ZorOk);
  }
  Record(const Record&) = delete;
  ~Record() { EXPECT_EQ((inverse ? zoriDCTInvFree_32f : zoriDCTFwdFree_32f)(p), ZorOk); }
};

// ---- The definition ----

// Coefficient k of a vector of n values as weights of its samples: cosines from one table of a period.
class Cosines {
public:
  explicit Cosines(int n) : n_(n), table_(4 * static_cast<size_t>(n))
  {
    for (size_t i = 0; i < table_.size(); ++i) table_[i] = std::cos(pi * static_cast<double>(i) / (2 * n));
  }
  double operator()(long long k, long long i) const
  {
    return std::sqrt((k == 0 ? 1.0 : 2.0) / n_) * table_[static_cast<size_t>(k * (2 * i + 1) % (4LL * n_))];
  }

private:
  int n_;
  std::vector<double> table_;
};

using Values = std::vector<double>;

// Down the columns of an image of `height` rows of `width` values.
Values alongColumns(const Values& in, int width, int height, bool inverse)
{
  const Cosines weight(height);
  Values out(in.size());
  for (int k = 0; k < height; ++k)
    for (int y = 0; y < height; ++y) {
      const double w = inverse ? weight(y, k) : weight(k, y);
      for (int x = 0; x < width; ++x)
        out[static_cast<size_t>(k) * width + x] += w * in[static_cast<size_t>(y) * width + x];
    }
  return out;
}

Values flipped(const Values& in, int width, int height)
{
  Values out(in.size());
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) out[static_cast<size_t>(x) * height + y] = in[static_cast<size_t>(y) * width + x];
  return out;
}

Values exact(const Values& in, ZorImgSize size, bool inverse)
{
  const Values columns = alongColumns(in, size.width, size.height, inverse);
  return flipped(alongColumns(flipped(columns, size.width, size.height), size.height, size.width, inverse), size.height,
                 size.width);
}

void check(ZorImgSize size, int layout, double limit = 0)
{
  const Layout l = layouts[layout];
  const int w = size.width, h = size.height, n = l.channels;
  const bool isBlock = w == 8 && h == 8;
  Floats src(w * n, h, 8);
  Noise noise(static_cast<unsigned>(w * 1000 + h));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w * n; ++x) src.put(x, y, noise.next());
  for (const bool inverse : {false, true}) {
    SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h) + " " + l.name + (inverse ? " inverse" : " forward"));
    const Record record(size, inverse);
    const Guarded<Zor8u> buffer(static_cast<size_t>(record.bytes));
    const auto call = functions[inverse][layout];
    Floats dst(w * n, h, 0), other(w * n, h, 12);
    ASSERT_EQ(call(src.data(), src.step, dst.data(), dst.step, record.p, buffer.get()), ZorOk);
    for (int c = 0; c < l.processed; ++c) {
      Values x;
      for (int y = 0; y < h; ++y)
        for (int i = 0; i < w; ++i) x.push_back(src.get(i * n + c, y));
      double square = 0;
      for (const double v : x) square += v * v;
      const Values expected = exact(x, size, inverse);
      Errors errors(static_cast<double>(x.size()), std::sqrt(square), limit);
      for (int y = 0; y < h; ++y)
        for (int i = 0; i < w; ++i) errors.add(dst.get(i * n + c, y), expected[static_cast<size_t>(y) * w + i]);
      // an error counts against the norm shared by all coefficients
      EXPECT_LE(errors.share(), 1) << "channel " << c;
    }
    // memory of its own, in place and any rounding mode: the same bits
    ASSERT_EQ(call(src.data(), src.step, other.data(), other.step, record.p, nullptr), ZorOk);
    EXPECT_EQ(other, dst);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w * n; ++x)
        if (x % n < l.processed) other.put(x, y, src.get(x, y));
    const unsigned word = _mm_getcsr();
    _mm_setcsr((word & ~0x6000u) | 0x4000u);
    const ZorStatus s = call(other.data(), other.step, other.data(), other.step, record.p, buffer.get() + 0);
    _mm_setcsr(word);
    ASSERT_EQ(s, ZorOk);
    EXPECT_EQ(other, dst);
    if (isBlock) continue;
    zoriTestFailAllocationAt(1);
    EXPECT_EQ(call(src.data(), src.step, other.data(), other.step, record.p, buffer.get()), ZorOk);
    zoriTestFailAllocationAt(1);
    EXPECT_EQ(call(src.data(), src.step, other.data(), other.step, record.p, nullptr), ZorErrAlloc);
    zoriTestFailAllocationAt(0);
    EXPECT_EQ(other, dst);
  }
}

constexpr double primeLimit = 1.2e-6;

} // namespace

TEST(ImageDct, EveryShape)
{
  for (const int w : {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 32, 33, 64})
    for (const int h : {1, 2, 3, 4, 5, 8, 11, 16, 18, 35, 64})
      for (int layout = 0; layout < 4; ++layout) check({w, h}, layout);
}

TEST(ImageDct, LengthsOfEveryMethod)
{
  for (const int n : {97, 100, 101, 128, 149, 150, 151, 251, 302, 360, 512, 1009, 2048}) {
    const double limit = n == 151 || n == 302 || n == 251 || n == 1009 ? primeLimit : 0;
    for (const ZorImgSize size : {ZorImgSize{n, 1}, {1, n}, {n, 6}, {5, n}}) check(size, 0, limit);
    check({n, 2}, 1, limit);
    check({3, n}, 3, limit);
  }
}

// A single cosine of a length too large for the definition, and back; above 65536 under both hints.
TEST(ImageDct, LongVectors)
{
  for (const int n : {65536, 131072, 100003})
    for (const bool isRow : {true, false})
      for (const ZorHint hint : {ZorHintNone, ZorHintAccurate}) {
        SCOPED_TRACE(n);
        const ZorImgSize size = isRow ? ZorImgSize{n, 1} : ZorImgSize{1, n};
        const int step = isRow ? 4 * n : 4;
        const Record there(size, false, hint), back(size, true, hint);
        std::vector<float> x(static_cast<size_t>(n)), y(x.size()), z(x.size());
        const Cosines weight(n);
        const long long k = n / 3;
        for (int i = 0; i < n; ++i) x[static_cast<size_t>(i)] = static_cast<float>(weight(k, i) + weight(0, i));
        ASSERT_EQ(zoriDCTFwd_32f_C1R(x.data(), step, y.data(), step, there.p, nullptr), ZorOk);
        double worst = 0;
        for (int i = 0; i < n; ++i)
          worst = std::max(worst, std::fabs(double(y[static_cast<size_t>(i)]) - (i == 0 || i == k)));
        EXPECT_LT(worst, 2e-6);
        ASSERT_EQ(zoriDCTInv_32f_C1R(y.data(), step, z.data(), step, back.p, nullptr), ZorOk);
        worst = 0;
        for (size_t i = 0; i < x.size(); ++i) worst = std::max(worst, std::fabs(double(z[i]) - x[i]));
        EXPECT_LT(worst, 2e-6 / std::sqrt(n) * 4);
      }
}

TEST(ImageDct, AnImageOfOneBlockIsTheBlockTransform)
{
  float block[64], expected[64];
  Noise noise(1);
  for (float& v : block) v = 255 * noise.next();
  for (const bool inverse : {false, true}) {
    const Record record({8, 8}, inverse);
    EXPECT_EQ(record.bytes, 1040);
    ASSERT_EQ((inverse ? zoriDCT8x8Inv_32f_C1 : zoriDCT8x8Fwd_32f_C1)(block, expected), ZorOk);
    for (int layout = 0; layout < 4; ++layout)
      for (const int padding : {0, 4}) {
        const int n = layouts[layout].channels;
        Floats src(8 * n, 8, padding), dst(8 * n, 8, padding);
        for (int y = 0; y < 8; ++y)
          for (int x = 0; x < 8 * n; ++x) src.put(x, y, block[8 * y + x / n]), dst.put(x, y, 7);
        ASSERT_EQ(functions[inverse][layout](src.data(), src.step, dst.data(), dst.step, record.p, nullptr), ZorOk);
        for (int y = 0; y < 8; ++y)
          for (int x = 0; x < 8 * n; ++x)
            ASSERT_EQ(dst.get(x, y), x % n < layouts[layout].processed ? expected[8 * y + x / n] : 7);
      }
  }
}

TEST(ImageDct, AConstantImageHasOneCoefficient)
{
  for (const ZorImgSize size : {ZorImgSize{64, 32}, {15, 9}, {1, 5}, {302, 4}}) {
    const Record record(size, false);
    const size_t count = static_cast<size_t>(size.width) * size.height;
    std::vector<float> image(count, 3.0f);
    ASSERT_EQ(zoriDCTFwd_32f_C1R(image.data(), 4 * size.width, image.data(), 4 * size.width, record.p, nullptr), ZorOk);
    const double first = 3 * std::sqrt(static_cast<double>(count));
    EXPECT_NEAR(image[0], first, first * 2e-6);
    for (size_t i = 1; i < count; ++i) EXPECT_NEAR(image[i], 0, first * 2e-6) << i;
  }
}

TEST(ImageDct, Records)
{
  const int before = zoriTestLiveBlocks();
  ZorDctImgRecord* record = nullptr;
  // two directions, two kinds
  ASSERT_EQ(zoriDCTFwdInitAlloc_32f(&record, {20, 10}, ZorHintNone), ZorOk);
  float image[200] = {};
  EXPECT_EQ(zoriDCTInv_32f_C1R(image, 80, image, 80, record, nullptr), ZorErrContext);
  EXPECT_EQ(zoriDCTInvFree_32f(record), ZorErrContext);
  EXPECT_EQ(zoriDCTFwdFree_32f(record), ZorOk);
  EXPECT_EQ(zoriDCTFwdFree_32f(nullptr), ZorErrNullPtr);

  // each allocation fails once, and nothing stays behind
  record = nullptr;
  for (const ZorImgSize size : {ZorImgSize{20, 10}, {4096, 1}, {1, 151}, {8, 8}}) {
    int at = 1;
    for (; at < 10; ++at) {
      zoriTestFailAllocationAt(at);
      const ZorStatus s = zoriDCTInvInitAlloc_32f(&record, size, ZorHintNone);
      zoriTestFailAllocationAt(0);
      if (s == ZorOk) break;
      EXPECT_EQ(s, ZorErrAlloc);
      EXPECT_EQ(record, nullptr);
      EXPECT_EQ(zoriTestLiveBlocks(), before);
    }
    EXPECT_GT(at, 1);
    EXPECT_EQ(zoriDCTInvFree_32f(record), ZorOk);
    record = nullptr;
  }
  // sizes beyond what can be told or had
  for (const ZorImgSize size : {ZorImgSize{2147483647, 1}, {1, 2147483647}, {2147483647, 2147483647}, {1 << 30, 1}})
    EXPECT_EQ(zoriDCTFwdInitAlloc_32f(&record, size, ZorHintNone), ZorErrAlloc);
  EXPECT_EQ(record, nullptr);
  EXPECT_EQ(zoriTestLiveBlocks(), before);
}
