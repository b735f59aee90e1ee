// Conversion of the element type: exactness, saturation, the three rounding rules, packed bits, error diffusion.
#include "conversion.h"
#include "support/numbers.h"
#include "zori/data.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <sys/mman.h>

using namespace zoritest;

extern "C" int zoriTestFailAllocationAt(int n);

namespace {

using zoritest::saturated;

// The rules of 32f, told once more and in other words: in double, from the clamped value.
template <class D> D rounded(float x, int mode)
{
  if (std::isnan(x)) return std::numeric_limits<D>::max();
  const float clamped =
    std::clamp(x, static_cast<float>(std::numeric_limits<D>::min()), static_cast<float>(std::numeric_limits<D>::max()));
  if (mode == 0) return static_cast<D>(std::trunc(static_cast<double>(clamped)));
  if (mode == 1) { // nearest, ties to even
    const double low = std::floor(static_cast<double>(clamped)), part = clamped - low;
    return saturated<D>(part > 0.5 || (part == 0.5 && std::fmod(low, 2) != 0) ? low + 1 : low);
  }
  volatile const float sum = std::fabs(clamped) + 0.5f;
  return saturated<D>(std::copysign(std::trunc(static_cast<double>(sum)), static_cast<double>(clamped)));
}

template <class S, class D> using Plain = ZorStatus (*)(const S*, int, D*, int, ZorImgSize);
template <class D> using Rounding = ZorStatus (*)(const Zor32f*, int, D*, int, ZorImgSize, ZorRoundMode);

template <class S, class D> void checkPlain(const char* name, const Plain<S, D> (&functions)[4])
{
  for (Form form : allForms)
    Conversion<S, D>{name, form, samplesOf<S>()}.check(functions[form], [](S x) {
      if constexpr (std::is_same_v<D, Zor32f>) return static_cast<D>(x);
      else return saturated<D>(static_cast<double>(x));
    });
}

template <class D> void checkRounding(const char* name, const Rounding<D> (&functions)[4])
{
  for (Form form : allForms)
    for (int mode : {0, 1, 2, 3}) // any other number is the third rule
      Conversion<Zor32f, D>{name, form, samplesOf<Zor32f>()}.check(
        [&](const Zor32f* pSrc, int srcStep, D* pDst, int dstStep, ZorImgSize roi) {
          return functions[form](pSrc, srcStep, pDst, dstStep, roi, static_cast<ZorRoundMode>(mode));
        },
        [=](Zor32f x) { return rounded<D>(x, mode); });
}

TEST(Convert, IntegersWidenExactlyAndNarrowWithSaturation)
{
#define CHECK(from, to) checkPlain<Zor##from, Zor##to>(#from #to, ZORI_FORMS(zoriConvert_##from##to))
  CHECK(8u, 16u);
  CHECK(8u, 16s);
  CHECK(8u, 32s);
  CHECK(8u, 32f);
  CHECK(8s, 32s);
  CHECK(8s, 32f);
  CHECK(16u, 8u);
  CHECK(16u, 32s);
  CHECK(16u, 32f);
  CHECK(16s, 8u);
  CHECK(16s, 32s);
  CHECK(16s, 32f);
  CHECK(32s, 8u);
  CHECK(32s, 8s);
#undef CHECK
}

TEST(Convert, FloatsClampAndRoundByTheMode)
{
#define CHECK(to) checkRounding<Zor##to>("32f" #to, ZORI_FORMS(zoriConvert_32f##to))
  CHECK(8u);
  CHECK(8s);
  CHECK(16u);
  CHECK(16s);
#undef CHECK
}

TEST(Convert, WorkedRoundings)
{
  const Zor32f x[6] = {
    2.5f, -0.7f, 300.0f, std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::quiet_NaN(), -2.5f};
  const Zor8u bytes[3][6] = {{2, 0, 255, 255, 255, 0}, {2, 0, 255, 255, 255, 0}, {3, 0, 255, 255, 255, 0}};
  const Zor16s least[3] = {-2, -2, -3};
  for (int mode = 0; mode < 3; ++mode) {
    Zor8u to8[6];
    Zor16s to16[6];
    ASSERT_EQ(zoriConvert_32f8u_C1R(x, 24, to8, 6, {6, 1}, static_cast<ZorRoundMode>(mode)), ZorOk);
    ASSERT_EQ(zoriConvert_32f16s_C1R(x, 24, to16, 12, {6, 1}, static_cast<ZorRoundMode>(mode)), ZorOk);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(to8[i], bytes[mode][i]) << mode << ' ' << i;
    EXPECT_EQ(to16[5], least[mode]);
  }
}

TEST(Convert, RoundingIsThatOfTheModeAndTheRegisterTheCallers)
{
  const std::vector<Zor32f> x = samplesOf<Zor32f>();
  const int n = static_cast<int>(x.size());
  std::vector<Zor16s> dst(x.size());
  for (unsigned field : {0u, 0x2000u, 0x4000u, 0x6000u})
    for (unsigned denormals : {0u, 0x8040u}) { // flush to zero and denormals are zero
      const CallersRounding scope(field);
      __builtin_ia32_ldmxcsr((controlWord() & ~0x3fu) | denormals);
      const unsigned word = controlWord();
      for (int mode : {0, 1}) {
        EXPECT_EQ(zoriConvert_32f16s_C1R(x.data(), n * 4, dst.data(), n * 2, {n, 1}, static_cast<ZorRoundMode>(mode)),
                  ZorOk);
        EXPECT_EQ(controlWord() & ~0x3fu, word); // but for the flags
        for (size_t i = 0; i < x.size(); ++i) ASSERT_EQ(dst[i], rounded<Zor16s>(x[i], mode)) << x[i] << ' ' << field;
        EXPECT_EQ(zoriConvert_32f16s_C1R(x.data(), 0, dst.data(), n * 2, {n, 1}, static_cast<ZorRoundMode>(mode)),
                  ZorErrStep);
        EXPECT_EQ(controlWord() & ~0x3fu, word);
      }
      EXPECT_EQ(zoriConvert_32f16s_C1R(x.data(), n * 4, dst.data(), n * 2, {n, 1}, ZorRoundNearestAway), ZorOk);
      EXPECT_EQ(controlWord() & ~0x3fu, word);
    }
}

TEST(Convert, SixteenToThirtyTwoBitsWalksAnyStep)
{
  const Zor16s src[4] = {1, -2, 3, -4};
  Zor32s dst[4] = {9, 9, 9, 9};
  ASSERT_EQ(zoriConvert_16s32s_C1R(src + 2, -4, dst, 0, {2, 2}), ZorOk); // the last row stays
  EXPECT_EQ(dst[0], 1);
  EXPECT_EQ(dst[1], -2);
  EXPECT_EQ(dst[2], 9);
}

// ---- Bits ----

TEST(ConvertBits, ToBytesAtAllOffsets)
{
  // the bits end where the memory does
  auto* const map =
    static_cast<Zor8u*>(mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(static_cast<void*>(map), MAP_FAILED);
  for (int i = 0; i < 4096; ++i) map[i] = static_cast<Zor8u>(i * 73 + i / 3 * 5);
  ASSERT_EQ(mprotect(map + 4096, 4096, PROT_NONE), 0);
  for (int width = 1; width <= 210; ++width)
    for (int offset : {0, 1, 2, 3, 4, 5, 6, 7, 8, 11, 16, 23}) {
      const int step = (offset + width + 7) / 8, dstStep = width + 3, shift = (width + offset) % 16;
      const Zor8u* const src = map + 4096 - 2 * step;
      std::vector<Zor8u> dst(static_cast<size_t>(2 * dstStep + 32), 77), expected = dst;
      for (int y = 0; y < 2; ++y)
        for (int x = 0; x < width; ++x)
          expected[static_cast<size_t>(shift + y * dstStep + x)] =
            src[y * step + (offset + x) / 8] & (0x80 >> (offset + x) % 8) ? 255 : 0;
      ASSERT_EQ(zoriConvert_1u8u_C1R(src, step, offset, dst.data() + shift, dstStep, {width, 2}), ZorOk);
      ASSERT_EQ(dst, expected) << width << ' ' << offset;
    }
  munmap(map, 8192);
}

// Error diffusion as the formula reads, for the whole image.
std::vector<Zor8u> dithered(const std::vector<Zor8u>& pixels, ZorImgSize roi, int threshold)
{
  std::vector<Zor8u> set(pixels.size());
  std::vector<std::int64_t> errors(static_cast<size_t>((roi.height + 2) * (roi.width + 4)));
  const auto e = [&](int y, int x) -> std::int64_t& {
    return errors[static_cast<size_t>((y + 2) * (roi.width + 4) + x + 2)];
  };
  for (int y = 0; y < roi.height; ++y)
    for (int x = 0; x < roi.width; ++x) {
      const std::int64_t sum = 8 * (e(y - 1, x) + e(y, x - 1)) +
                               4 * (e(y - 2, x) + e(y - 1, x - 1) + e(y - 1, x + 1) + e(y, x - 2)) +
                               2 * (e(y - 2, x - 1) + e(y - 2, x + 1) + e(y - 1, x - 2) + e(y - 1, x + 2)) +
                               (e(y - 2, x - 2) + e(y - 2, x + 2));
      const auto at = static_cast<size_t>(y * roi.width + x);
      const std::int64_t t = (static_cast<std::int64_t>(pixels[at]) << 13) + 23 * sum;
      set[at] = t > threshold * 8192;
      e(y, x) = (t >> 10) - (set[at] ? 2047 : 0);
    }
  return set;
}

TEST(ConvertBits, FromBytesByErrorDiffusion)
{
  std::mt19937 random(3);
  for (int width = 1; width <= 75; width += width < 36 ? 1 : 13)
    for (int offset : {0, 1, 3, 4, 7, 8, 13, 22})
      for (int threshold : {0, 1, 100, 128, 254, 255}) {
        const int height = 1 + (width + offset) % 7, srcStep = width + 5,
                  dstStep = (offset + width + 7) / 8 + offset % 3;
        std::vector<Zor8u> src(static_cast<size_t>(srcStep * height - 5)), pixels;
        const int kind = static_cast<int>(random() % 4); // noise, black, white, noise near the threshold
        for (Zor8u& p : src)
          p = static_cast<Zor8u>(kind == 0   ? random()
                                 : kind == 1 ? 0
                                 : kind == 2 ? 255
                                             : std::clamp(threshold + static_cast<int>(random() % 9) - 4, 0, 255));
        for (int y = 0; y < height; ++y)
          pixels.insert(pixels.end(), src.begin() + y * srcStep, src.begin() + y * srcStep + width);
        std::vector<Zor8u> dst(static_cast<size_t>(dstStep * (height - 1) + (offset + width + 7) / 8));
        for (Zor8u& b : dst) b = static_cast<Zor8u>(random());
        std::vector<Zor8u> expected = dst;
        const std::vector<Zor8u> set = dithered(pixels, {width, height}, threshold);
        for (int i = 0; i < width * height; ++i) {
          const int bit = offset + i % width, mask = 0x80 >> bit % 8;
          Zor8u& b = expected[static_cast<size_t>(i / width * dstStep + bit / 8)];
          b = static_cast<Zor8u>(set[static_cast<size_t>(i)] ? b | mask : b & ~mask);
        }
        ASSERT_EQ(zoriConvert_8u1u_C1R(src.data(), srcStep, dst.data(), dstStep, offset, {width, height},
                                       static_cast<Zor8u>(threshold)),
                  ZorOk);
        ASSERT_EQ(dst, expected) << width << " offset " << offset << " threshold " << threshold << " kind " << kind;
      }
}

TEST(ConvertBits, GreyTurnsIntoItsShareOfSetBits)
{
  for (int grey : {0, 32, 128, 200}) {
    const std::vector<Zor8u> src(256 * 256, static_cast<Zor8u>(grey));
    std::vector<Zor8u> dst(256 * 32);
    ASSERT_EQ(zoriConvert_8u1u_C1R(src.data(), 256, dst.data(), 32, 0, {256, 256}, 128), ZorOk);
    int set = 0;
    for (Zor8u b : dst) set += __builtin_popcount(b);
    EXPECT_NEAR(set / 65536.0, grey / 255.0, grey ? 0.04 : 0) << grey; // a part of each error is dropped
  }
}

TEST(ConvertBits, FailedBuffersAndStepsThatNobodyTests)
{
  const std::vector<Zor8u> src(64, 200);
  Zor8u dst[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  zoriTestFailAllocationAt(1);
  EXPECT_EQ(zoriConvert_8u1u_C1R(src.data(), 8, dst, 1, 0, {8, 8}, 128), ZorErrAlloc);
  zoriTestFailAllocationAt(0);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(dst[i], i + 1);
  // rows from the last to the first give the picture upside down of rows from first to last
  Zor8u upright[4], turned[4];
  ASSERT_EQ(zoriConvert_8u1u_C1R(src.data(), 0, upright, 1, 0, {8, 4}, 128), ZorOk);
  ASSERT_EQ(zoriConvert_8u1u_C1R(src.data() + 24, -8, turned + 3, -1, 0, {8, 4}, 128), ZorOk);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(upright[i], turned[3 - i]);
}

} // namespace
