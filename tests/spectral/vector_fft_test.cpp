// The vector FFT: every order against double precision, layouts, flags, sizes, checks.
#include "spectral/vector_fft.h"

#include "reference.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace zori;
using namespace spectral;

extern "C" int zoriTestFailAllocationAt(int n);
extern "C" int zoriTestLiveBlocks();

namespace {

// The share of the bound that errors may take: half of it is measured.
constexpr double nearness = 0.75;

struct Record {
  FftKind kind;
  FftVectorRecord* record = nullptr;
  Record(FftKind kind_, int order, int flag) : kind(kind_)
  {
    EXPECT_EQ(makeVectorFft(kind, order, flag, ZorHintNone, &record), ZorOk) << "order " << order;
  }
  Record(const Record&) = delete;
  ~Record() { EXPECT_EQ(freeVectorFft(kind, record), ZorOk); }
  size_t bufferBytes() const
  {
    long long bytes = -1;
    EXPECT_EQ(vectorFftBufferBytes(kind, record, &bytes), ZorOk);
    return static_cast<size_t>(bytes);
  }
};

Zor32fc* asComplex(float* p) { return reinterpret_cast<Zor32fc*>(p); }

// Forward and inverse, out of place and in place, with a buffer of exactly the size told.
void checkComplex(int order)
{
  SCOPED_TRACE("order " + std::to_string(order));
  const size_t n = size_t{1} << order;
  const Record record(FftKind::Complex, order, ZorFftDivInvByN);
  Guarded<float> src(2 * n), dst(2 * n);
  Guarded<unsigned char> buffer(record.bufferBytes());
  Noise noise(static_cast<unsigned>(order));
  Numbers x(n);
  for (size_t j = 0; j < n; ++j) x[j] = {src[2 * j] = noise.next(), src[2 * j + 1] = noise.next()};
  const std::vector<float> copy(src.get(), src.get() + 2 * n);
  const double norm = std::sqrt(sumOfSquares(x));
  void* const work = buffer.size() ? buffer.get() : nullptr;

  ASSERT_EQ(forwardComplex(asComplex(src.get()), asComplex(dst.get()), record.record, work), ZorOk);
  EXPECT_EQ(std::memcmp(src.get(), copy.data(), 2 * n * sizeof(float)), 0) << "the source has changed";
  Errors forward(double(n), norm), inverse(double(n), norm / std::sqrt(double(n)) / std::sqrt(double(n)));
  const Numbers y = transformed(x, -1), z = transformed(x, 1);
  for (size_t k = 0; k < n; ++k) forward.add({dst[2 * k], dst[2 * k + 1]}, y[k]);
  EXPECT_LE(forward.share(), nearness);

  ASSERT_EQ(forwardComplex(asComplex(src.get()), asComplex(src.get()), record.record, nullptr), ZorOk);
  EXPECT_EQ(std::memcmp(src.get(), dst.get(), 2 * n * sizeof(float)), 0) << "in place differs";

  std::memcpy(src.get(), copy.data(), 2 * n * sizeof(float));
  ASSERT_EQ(inverseComplex(asComplex(src.get()), asComplex(src.get()), record.record, work), ZorOk);
  for (size_t k = 0; k < n; ++k) inverse.add({src[2 * k], src[2 * k + 1]}, z[k] / double(n));
  EXPECT_LE(inverse.share(), nearness);
}

void checkReal(int order)
{
  SCOPED_TRACE("order " + std::to_string(order));
  const size_t n = size_t{1} << order;
  const Record record(FftKind::Real, order, ZorFftDivFwdByN);
  Guarded<float> src(n), pack(n), perm(n), back(n);
  Guarded<unsigned char> buffer(record.bufferBytes());
  void* const work = buffer.size() ? buffer.get() : nullptr;
  Noise noise(static_cast<unsigned>(order) + 100);
  Numbers x(n);
  for (size_t j = 0; j < n; ++j) x[j] = src[j] = noise.next();
  const double norm = std::sqrt(sumOfSquares(x)), factor = 1.0 / double(n);
  const Numbers y = transformed(x, -1);

  ASSERT_EQ(forwardToPack(src.get(), pack.get(), record.record, work), ZorOk);
  ASSERT_EQ(forwardToPerm(src.get(), perm.get(), record.record, work), ZorOk);
  Errors errors(double(n), norm * factor);
  for (size_t i = 0; i < n; ++i) {
    const size_t k = (i + 1) / 2;
    errors.add(pack[i], (i % 2 == 0 && i > 0 ? y[k].imag() : y[k].real()) * factor);
    const size_t at = i == 0 ? 0 : i == n - 1 ? 1 : i + 1;
    EXPECT_EQ(perm[at], pack[i]) << i;
  }
  EXPECT_LE(errors.share(), nearness);

  // the inverse of this flag does not divide
  Errors inverse(double(n), norm);
  ASSERT_EQ(inverseFromPack(pack.get(), back.get(), record.record, work), ZorOk);
  for (size_t j = 0; j < n; ++j) inverse.add(back[j], x[j]);
  EXPECT_LE(inverse.share() / 2, nearness); // there and back
  ASSERT_EQ(inverseFromPerm(perm.get(), perm.get(), record.record, nullptr), ZorOk);
  ASSERT_EQ(inverseFromPack(pack.get(), pack.get(), record.record, nullptr), ZorOk);
  EXPECT_EQ(std::memcmp(perm.get(), back.get(), n * sizeof(float)), 0);
  EXPECT_EQ(std::memcmp(pack.get(), back.get(), n * sizeof(float)), 0);
  ASSERT_EQ(forwardToPack(src.get(), src.get(), record.record, work), ZorOk);
  ASSERT_EQ(inverseFromPack(src.get(), src.get(), record.record, work), ZorOk);
  EXPECT_EQ(std::memcmp(src.get(), back.get(), n * sizeof(float)), 0);
}

} // namespace

class Orders : public testing::TestWithParam<int> {};
TEST_P(Orders, Complex) { checkComplex(GetParam()); }
TEST_P(Orders, Real) { checkReal(GetParam()); }
INSTANTIATE_TEST_SUITE_P(VectorFft, Orders, testing::Range(0, 23));

// Orders from 25 on have large blocks within blocks: a few impulses, whose spectrum is known. 32-bit programs have no
// room for the tables.
TEST(VectorFft, BlocksOfBlocks)
{
  if (sizeof(void*) == 4) GTEST_SKIP() << "no room for the tables";
  const int order = 25;
  const size_t n = size_t{1} << order;
  const Record record(FftKind::Complex, order, ZorFftNoDiv);
  std::vector<float> x(2 * n);
  struct Impulse {
    size_t at;
    Number height;
  };
  const Impulse impulses[] = {{3, {1, 0.5}}, {n / 2 + 77, {-0.25, 1}}, {n - 12345, {0.75, -0.5}}};
  for (const Impulse& i : impulses)
    x[2 * i.at] = static_cast<float>(i.height.real()), x[2 * i.at + 1] = static_cast<float>(i.height.imag());
  ASSERT_EQ(forwardComplex(asComplex(x.data()), asComplex(x.data()), record.record, nullptr), ZorOk);
  for (size_t k = 1; k < n; k += 4099) {
    Number y = 0;
    for (const Impulse& i : impulses)
      y += i.height * std::polar(1.0, -2 * pi * static_cast<double>(i.at * k % n) / static_cast<double>(n));
    ASSERT_NEAR(x[2 * k], y.real(), 2e-6) << k;
    ASSERT_NEAR(x[2 * k + 1], y.imag(), 2e-6) << k;
  }
}

TEST(VectorFft, FlagsSayWhereItDivides)
{
  const int order = 5;
  const float n = 32, root = static_cast<float>(1 / std::sqrt(32.0));
  const struct {
    int flag;
    float forward, inverse;
  } cases[] = {
    {ZorFftDivFwdByN, 1 / n, 1}, {ZorFftDivInvByN, 1, 1 / n}, {ZorFftDivBySqrtN, root, root}, {ZorFftNoDiv, 1, 1}};
  for (const auto& c : cases)
    for (const FftKind kind : {FftKind::Complex, FftKind::Real}) {
      const Record record(kind, order, c.flag);
      std::vector<float> one(64), out(64);
      one[0] = 1;
      const bool isReal = kind == FftKind::Real;
      if (isReal) forwardToPack(one.data(), out.data(), record.record, nullptr);
      else forwardComplex(asComplex(one.data()), asComplex(out.data()), record.record, nullptr);
      EXPECT_EQ(out[0], c.forward);
      if (isReal) inverseFromPack(one.data(), out.data(), record.record, nullptr);
      else inverseComplex(asComplex(one.data()), asComplex(out.data()), record.record, nullptr);
      EXPECT_EQ(out[0], c.inverse);
    }
}

TEST(VectorFft, SizesAndRecordsInTheCallersMemory)
{
  const auto sizes = [](FftKind kind, int order) {
    std::vector<long long> s(3, -1);
    EXPECT_EQ(vectorFftSizes(kind, order, ZorFftNoDiv, ZorHintNone, &s[0], &s[1], &s[2]), ZorOk);
    return s;
  };
  using Sizes = std::vector<long long>;
  for (int order = 0; order <= 3; ++order) EXPECT_EQ(sizes(FftKind::Complex, order), (Sizes{116, 0, 0}));
  for (int order = 4; order <= 16; ++order) {
    const long long n = 1LL << order, init = order > 10 ? ((n + 35) & ~31LL) + 32 : 0;
    EXPECT_EQ(sizes(FftKind::Complex, order),
              (Sizes{((8 * n + 39) & ~31LL) + ((n + 35) & ~31LL) + 128, init, ((8 * n + 31) & ~31LL) + 32}));
    const long long h = n / 2;
    EXPECT_EQ(sizes(FftKind::Real, order),
              (Sizes{((8 * h + 39) & ~31LL) + ((h + 35) & ~31LL) + 128 + ((n / 4 * 8 + 31) >> 5 << 6), init,
                     ((8 * h + 31) & ~31LL) + 32}));
  }
  // 2^17 in 8 blocks of 2^14; 2^26 in 256 of 2^18, those in 16 of 2^14
  EXPECT_EQ(sizes(FftKind::Complex, 17),
            (Sizes{(8 << 14) + 32 + (8 << 17) + (1 << 17) + 32 + 128, (1 << 17) + 64, (8 << 14) + 32}));
  EXPECT_EQ(sizes(FftKind::Complex, 26)[2], (8 << 15) + 32);

  for (const FftKind kind : {FftKind::Complex, FftKind::Real})
    for (const int order : {0, 3, 4, 9, 11, 16, 17, 18}) {
      const Sizes s = sizes(kind, order);
      Guarded<char> memory(static_cast<size_t>(s[0])), init(static_cast<size_t>(s[1]));
      FftVectorRecord* record = nullptr;
      ASSERT_EQ(initVectorFft(kind, order, ZorFftNoDiv, ZorHintNone, memory.get(), init.get(), &record), ZorOk);
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(record) % 32, 0u);
      EXPECT_EQ(freeVectorFft(kind, record), ZorOk);
      EXPECT_EQ(freeVectorFft(kind, record), ZorErrContext);
    }
}

TEST(VectorFft, Checks)
{
  FftVectorRecord* record = nullptr;
  long long a, b, c;
  char memory[4096];
  const FftKind complexKind = FftKind::Complex, realKind = FftKind::Real;
  EXPECT_EQ(vectorFftSizes(complexKind, 31, 3, ZorHintNone, nullptr, &b, &c), ZorErrOrder);
  EXPECT_EQ(vectorFftSizes(complexKind, 3, 3, ZorHintNone, &a, nullptr, &c), ZorErrNullPtr);
  EXPECT_EQ(vectorFftSizes(complexKind, 3, 3, ZorHintNone, &a, &b, &c), ZorErrFlag);
  EXPECT_EQ(initVectorFft(complexKind, -1, 3, ZorHintNone, nullptr, nullptr, nullptr), ZorErrNullPtr);
  EXPECT_EQ(initVectorFft(complexKind, -1, 3, ZorHintNone, nullptr, nullptr, &record), ZorErrOrder);
  EXPECT_EQ(initVectorFft(complexKind, 12, 3, ZorHintNone, nullptr, nullptr, &record), ZorErrNullPtr);
  EXPECT_EQ(initVectorFft(complexKind, 12, 0, ZorHintNone, memory, nullptr, &record), ZorErrFlag);
  EXPECT_EQ(initVectorFft(complexKind, 12, 1, ZorHintNone, memory, nullptr, &record), ZorErrNullPtr);
  EXPECT_EQ(makeVectorFft(realKind, 3, 5, ZorHintNone, &record), ZorErrFlag);
  EXPECT_EQ(freeVectorFft(realKind, nullptr), ZorErrNullPtr);

  const Record complexRecord(complexKind, 6, 1), realRecord(realKind, 6, 1);
  float x[128] = {};
  EXPECT_EQ(forwardToPack(x, x, complexRecord.record, nullptr), ZorErrContext);
  EXPECT_EQ(inverseComplex(asComplex(x), asComplex(x), realRecord.record, nullptr), ZorErrContext);
  EXPECT_EQ(forwardToPerm(nullptr, x, nullptr, nullptr), ZorErrNullPtr);
  EXPECT_EQ(forwardToPerm(x, nullptr, realRecord.record, nullptr), ZorErrNullPtr);
  EXPECT_EQ(vectorFftBufferBytes(realKind, complexRecord.record, &a), ZorErrContext);
  EXPECT_EQ(vectorFftBufferBytes(realKind, realRecord.record, nullptr), ZorErrNullPtr);
  EXPECT_EQ(freeVectorFft(realKind, complexRecord.record), ZorErrContext);

  const int before = zoriTestLiveBlocks();
  zoriTestFailAllocationAt(1);
  EXPECT_EQ(forwardToPack(x, x, realRecord.record, nullptr), ZorErrAlloc);
  for (int n = 1; n <= 2; ++n) {
    zoriTestFailAllocationAt(n);
    EXPECT_EQ(makeVectorFft(realKind, 12, 1, ZorHintNone, &record), ZorErrAlloc);
  }
  zoriTestFailAllocationAt(0);
  EXPECT_EQ(zoriTestLiveBlocks(), before);
}
