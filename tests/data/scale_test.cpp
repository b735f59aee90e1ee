// Scaling between the ranges of two types: exact ends, both hints, the caller's range, and the rounding field that the
// failing checks of 32f8u leave behind.
#include "conversion.h"
#include "zori/data.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

using namespace zoritest;

namespace {

constexpr unsigned fields[] = {0, 0x2000, 0x4000, 0x6000};

template <class S, class D> using Plain = ZorStatus (*)(const S*, int, D*, int, ZorImgSize);
template <class S> using Hinted = ZorStatus (*)(const S*, int, Zor8u*, int, ZorImgSize, ZorHint);
template <class S, class D> using Ranged = ZorStatus (*)(const S*, int, D*, int, ZorImgSize, Zor32f, Zor32f);

// Rounded to nearest, ties to even, whatever the control register says.
int nearestEven(float x)
{
  const double low = std::floor(static_cast<double>(x)), part = x - low;
  return static_cast<int>(part > 0.5 || (part == 0.5 && std::fmod(low, 2) != 0) ? low + 1 : low);
}

template <class D>
void checkRepeated(const char* name, const Plain<Zor8u, D> (&functions)[4], std::int64_t factor, std::int64_t offset)
{
  for (Form form : allForms)
    Conversion<Zor8u, D>{name, form, samplesOf<Zor8u>()}.check(
      functions[form], [=](Zor8u x) { return static_cast<D>(x * factor - offset); });
}

// The accurate rule in 32f under round to nearest, and the fast one in integers.
template <class S> int accurate(S x)
{
  const CallersRounding nearest(0);
  constexpr float factor = sizeof(S) == 2 ? 0.0038910505827516317f : static_cast<float>(255.0 / 4294967295.0);
  volatile float y = static_cast<float>(x);
  if (std::is_signed_v<S>) y = y + (sizeof(S) == 2 ? 32768.0f : 2147483648.0f);
  y = y * factor;
  return nearestEven(y);
}
template <class S> int fast(S x)
{
  const std::int64_t top = (static_cast<std::int64_t>(x) - (x >> 8)) >> (8 * (sizeof(S) - 1));
  return static_cast<int>(std::is_signed_v<S> ? top + 128 : top);
}

template <class S> void checkHinted(const char* name, const Hinted<S> (&functions)[4])
{
  const S least = std::numeric_limits<S>::min(), greatest = std::numeric_limits<S>::max();
  for (Form form : allForms)
    for (int hint : {2, 0, 1, 3}) {
      const auto oracle = [=](S x) { return static_cast<Zor8u>(hint == 2 ? accurate(x) : fast(x)); };
      EXPECT_EQ(oracle(least), 0) << name;
      EXPECT_EQ(oracle(greatest), 255) << name;
      Conversion<S, Zor8u>{name, form, samplesOf<S>()}.check(
        [&](const S* pSrc, int srcStep, Zor8u* pDst, int dstStep, ZorImgSize roi) {
          const CallersRounding scope(fields[roi.width % 4]);
          const unsigned word = controlWord() & ~0x3fu;
          const ZorStatus status = functions[form](pSrc, srcStep, pDst, dstStep, roi, static_cast<ZorHint>(hint));
          EXPECT_EQ(controlWord() & ~0x3fu, word);
          return status;
        },
        oracle);
    }
  for (S x : samplesOf<S>()) ASSERT_LE(std::abs(accurate(x) - fast(x)), 1) << name << ' ' << x;
}

TEST(Scale, BytesRepeatUpwards)
{
  checkRepeated<Zor16u>("8u16u", ZORI_FORMS(zoriScale_8u16u), 257, 0);
  checkRepeated<Zor16s>("8u16s", ZORI_FORMS(zoriScale_8u16s), 257, 32768);
  checkRepeated<Zor32s>("8u32s", ZORI_FORMS(zoriScale_8u32s), 0x01010101, 2147483648);
}

TEST(Scale, IntegersToBytesByBothHints)
{
  checkHinted<Zor16u>("16u8u", ZORI_FORMS(zoriScale_16u8u));
  checkHinted<Zor16s>("16s8u", ZORI_FORMS(zoriScale_16s8u));
  checkHinted<Zor32s>("32s8u", ZORI_FORMS(zoriScale_32s8u));
}

TEST(Scale, BytesToARange)
{
  const Ranged<Zor8u, Zor32f> functions[4] = ZORI_FORMS(zoriScale_8u32f);
  const float ranges[][2] = {{0, 1}, {-1, 1}, {0, 255}, {-3e38f, 3e38f}, {1e-40f, 2e-40f}, {100, 100.5f}};
  for (Form form : allForms)
    for (auto range : ranges)
      Conversion<Zor8u, Zor32f>{"8u32f", form, samplesOf<Zor8u>()}.check(
        [&](const Zor8u* pSrc, int srcStep, Zor32f* pDst, int dstStep, ZorImgSize roi) {
          return functions[form](pSrc, srcStep, pDst, dstStep, roi, range[0], range[1]);
        },
        [=](Zor8u x) {
          volatile float width = range[1] - range[0], factor = width / 255, y = static_cast<float>(x) * factor;
          y = y + range[0];
          return float(y);
        });
}

// The low byte of what the conversion instruction gives; out of range it gives the least integer.
Zor8u lowByte(float y)
{
  const bool fits = y >= -2147483648.0f && y < 2147483648.0f;
  return static_cast<Zor8u>(fits ? nearestEven(y) : 0);
}

TEST(Scale, ARangeToBytes)
{
  const Ranged<Zor32f, Zor8u> functions[4] = ZORI_FORMS(zoriScale_32f8u);
  // with the cancellation of the last two, results leave the byte
  const float inf = std::numeric_limits<float>::infinity();
  const float ranges[][2] = {
    {0, 255}, {0, 1}, {-300, 300}, {0, inf}, {-inf, 0}, {16777216, 16777218}, {-1e9f, -0.99999e9f}};
  for (Form form : allForms)
    for (auto range : ranges)
      for (unsigned field : fields) {
        std::vector<float> samples = samplesOf<Zor32f>();
        for (int i = 0; i < 40; ++i) samples.push_back(range[0] + (range[1] - range[0]) * static_cast<float>(i) / 40);
        volatile float width = range[1] - range[0], factor = 255.0f / width, offset = 0.0f - factor;
        offset = offset * range[0];
        Conversion<Zor32f, Zor8u>{"32f8u", form, samples}.check(
          [&](const Zor32f* pSrc, int srcStep, Zor8u* pDst, int dstStep, ZorImgSize roi) {
            const CallersRounding scope(field);
            const unsigned word = controlWord() & ~0x3fu;
            const ZorStatus status = functions[form](pSrc, srcStep, pDst, dstStep, roi, range[0], range[1]);
            EXPECT_EQ(controlWord() & ~0x3fu, word);
            return status;
          },
          [&](Zor32f x) {
            x = std::isnan(x) ? range[1] : std::clamp(x, range[0], range[1]);
            volatile float y = x * factor;
            y = y + offset;
            return lowByte(y);
          });
      }
}

TEST(Scale, FailedChecksOfRangeToBytesLeaveRoundToNearest)
{
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const Zor32f src[4] = {};
  Zor8u dst[4] = {};
  struct {
    const Zor32f* pSrc;
    int step;
    ZorImgSize roi;
    float vMin, vMax;
    ZorStatus status;
  } cases[] = {{nullptr, 0, {0, 0}, 1, 1, ZorErrScaleRange}, {src, 4, {1, 1}, 2, 1, ZorErrScaleRange},
               {src, 4, {1, 1}, nan, 1, ZorErrScaleRange},   {nullptr, 0, {0, 0}, 0, 1, ZorErrNullPtr},
               {src, 0, {1, 0}, 0, 1, ZorErrSize},           {src, 0, {1, 1}, 0, 1, ZorErrStep}};
  for (auto c : cases)
    for (unsigned field : fields) {
      const CallersRounding scope(field);
      EXPECT_EQ(zoriScale_32f8u_C1R(c.pSrc, c.step, dst, 4, c.roi, c.vMin, c.vMax), c.status);
      EXPECT_EQ(controlWord() & 0x6000, 0u);
      Zor32f out[4];
      __builtin_ia32_ldmxcsr((controlWord() & ~0x6000u) | field);
      EXPECT_EQ(zoriScale_8u32f_C1R(c.pSrc ? dst : nullptr, c.step, out, 16, c.roi, c.vMin, c.vMax), c.status);
      EXPECT_EQ(controlWord() & 0x6000, field);
    }
}

} // namespace
