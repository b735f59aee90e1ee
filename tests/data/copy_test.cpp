// Copies between all layouts: every function against a sample-by-sample oracle over widths, odd steps and addresses.
#include "support/numbers.h"
#include "zori/data.h"

#include "sample_image.h"

#include <gtest/gtest.h>

using namespace zoritest;

namespace {

struct Case {
  std::string name;
  int sampleBytes, srcPlanes, srcChannels, dstPlanes, dstChannels;
  std::vector<int> from;
  Call call;
  bool masked = false;
  int srcChannel = 0, dstChannel = 0;
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

template <class T> constexpr int bytesOf = static_cast<int>(sizeof(T));

std::vector<Case> cases()
{
  std::vector<Case> all;
#define ACROSS(type, layouts, sp, sc, dp, dc, ...)                                                                     \
  all.push_back({#type "_" #layouts "R",                                                                               \
                 bytesOf<Zor##type>,                                                                                   \
                 sp,                                                                                                   \
                 sc,                                                                                                   \
                 dp,                                                                                                   \
                 dc,                                                                                                   \
                 {__VA_ARGS__},                                                                                        \
                 call(zoriCopy_##type##_##layouts##R)});
#define SAME(type, layout, n, ...)                                                                                     \
  ACROSS(type, layout, 1, n, 1, n, __VA_ARGS__)                                                                        \
  all.push_back({#type "_" #layout "MR",                                                                               \
                 bytesOf<Zor##type>,                                                                                   \
                 1,                                                                                                    \
                 n,                                                                                                    \
                 1,                                                                                                    \
                 n,                                                                                                    \
                 {__VA_ARGS__},                                                                                        \
                 call(zoriCopy_##type##_##layout##MR),                                                                 \
                 true});
// channel `from` of n channels to channel `to` of m
#define CHANNEL(type, form, n, m, source, target)                                                                      \
  {                                                                                                                    \
    std::vector<int> rule(m, -1);                                                                                      \
    rule[target] = source;                                                                                             \
    all.push_back({#type "_" #form "R" #source #target, bytesOf<Zor##type>, 1, n, 1, m, rule,                          \
                   call(zoriCopy_##type##_##form##R), false, source, target});                                         \
  }
#define ALL(type)                                                                                                      \
  SAME(type, C1, 1, 0)                                                                                                 \
  SAME(type, C3, 3, 0, 1, 2)                                                                                           \
  SAME(type, C4, 4, 0, 1, 2, 3)                                                                                        \
  SAME(type, AC4, 4, 0, 1, 2, -1)                                                                                      \
  ACROSS(type, C3AC4, 1, 3, 1, 4, 0, 1, 2, -1)                                                                         \
  ACROSS(type, AC4C3, 1, 4, 1, 3, 0, 1, 2)                                                                             \
  ACROSS(type, C3P3, 1, 3, 3, 1, 0, 1, 2)                                                                              \
  ACROSS(type, C4P4, 1, 4, 4, 1, 0, 1, 2, 3)                                                                           \
  ACROSS(type, P3C3, 3, 1, 1, 3, 0, 1, 2)                                                                              \
  ACROSS(type, P4C4, 4, 1, 1, 4, 0, 1, 2, 3)                                                                           \
  CHANNEL(type, C3C1, 3, 1, 0, 0)                                                                                      \
  CHANNEL(type, C3C1, 3, 1, 2, 0)                                                                                      \
  CHANNEL(type, C4C1, 4, 1, 1, 0)                                                                                      \
  CHANNEL(type, C4C1, 4, 1, 3, 0)                                                                                      \
  CHANNEL(type, C1C3, 1, 3, 0, 1)                                                                                      \
  CHANNEL(type, C1C4, 1, 4, 0, 3) CHANNEL(type, C3C, 3, 3, 2, 0) CHANNEL(type, C4C, 4, 4, 1, 3)
  ALL(8u) ALL(16u) ALL(16s) ALL(32s) ALL(32f) all.push_back({"Dup", 1, 1, 1, 1, 3, {0, 0, 0}, call(zoriDup_8u_C1C3R)});
  for (int flags : {0, 1, 2, -1})
    all.push_back({"Managed" + std::to_string(flags), 1, 1, 1, 1, 1, {0}, [flags](const Operands& o) {
                     return zoriCopyManaged_8u_C1R(o.src.at(0, 0, 0, 0), o.src.step, o.dst.at(0, 0, 0, 0), o.dst.step,
                                                   o.roi, flags);
                   }});
  return all;
}

class Copy : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(All, Copy, testing::ValuesIn(cases()));

// A mask of runs and of single pixels, with any nonzero byte for yes.
std::vector<Zor8u> maskFor(ZorImgSize roi, int step, int kind)
{
  std::vector<Zor8u> mask(static_cast<size_t>(step) * roi.height);
  unsigned state = static_cast<unsigned>(kind) + 7;
  for (size_t i = 0; i < mask.size(); ++i) {
    zoritest::nextNoise(state);
    mask[i] = kind == 0 ? 0 : kind == 1 ? 0xff : kind == 2 ? (state >> 31) * (state >> 24) : i / 20 % 2 * 128;
  }
  return mask;
}

TEST_P(Copy, MovesWhatTheLayoutsSayAndNothingElse)
{
  const Case& c = GetParam();
  // bytes behind each row of source, destination and mask: rows adjoin in all, in some, in none
  const int paddings[][3] = {{0, 0, 0}, {0, 0, 3}, {5, 0, 0}, {0, 64, 1}};
  for (int width : testWidths())
    for (int variant = 0; variant < 4; ++variant) {
      const ZorImgSize roi{width, 3};
      const int offsets[] = {0, 1, 3, 8};
      const auto [srcPadding, dstPadding, maskPadding] = paddings[variant];
      SampleImage src(c.srcPlanes, c.srcChannels, c.sampleBytes, roi, srcPadding, offsets[variant], 1);
      SampleImage dst(c.dstPlanes, c.dstChannels, c.sampleBytes, roi, dstPadding, offsets[(variant + 1) % 4], 2);
      SampleImage expected = dst;
      const int maskStep = width + maskPadding;
      const std::vector<Zor8u> mask = maskFor(roi, maskStep, (variant + width) % 4);
      moveSamples(src, expected, c.from, c.masked ? mask.data() : nullptr, maskStep);
      ASSERT_EQ(c.call({src, dst, mask.data(), maskStep, roi, c.srcChannel, c.dstChannel}), ZorOk);
      ASSERT_EQ(dst.bytes, expected.bytes) << "width " << width << ", variant " << variant;
    }
}

// The same pointer and step for both operands, where the destination's pixels are no larger.
TEST_P(Copy, InPlace)
{
  const Case& c = GetParam();
  if (c.srcPlanes > 1 || c.dstPlanes > 1 || c.dstChannels > c.srcChannels) return;
  for (int width : testWidths()) {
    const ZorImgSize roi{width, 2};
    SampleImage image(1, c.srcChannels, c.sampleBytes, roi, 16, 1, 3), expected = image;
    const int maskStep = width;
    const std::vector<Zor8u> mask = maskFor(roi, maskStep, 2);
    for (int y = 0; y < roi.height; ++y)
      for (int x = 0; x < width; ++x)
        for (int k = 0; k < c.dstChannels; ++k)
          if (c.from[k] >= 0 && (!c.masked || mask[y * maskStep + x])) {
            Zor8u* const row = expected.at(0, y, 0, 0);
            std::memcpy(row + (x * c.dstChannels + k) * c.sampleBytes, image.at(0, y, x, c.from[k]),
                        static_cast<size_t>(c.sampleBytes));
          }
    ASSERT_EQ(c.call({image, image, mask.data(), maskStep, roi, c.srcChannel, c.dstChannel}), ZorOk);
    ASSERT_EQ(image.bytes, expected.bytes) << width;
  }
}

// Steps are used as they are: a source step of 0 repeats a row, a negative one walks up.
TEST(CopySteps, AreNotTested)
{
  Zor8u src[6] = {1, 2, 3, 4, 5, 6}, dst[9] = {};
  EXPECT_EQ(zoriCopy_8u_C1R(src, 0, dst, 3, {3, 3}), ZorOk);
  EXPECT_EQ(std::vector<Zor8u>(dst, dst + 9), (std::vector<Zor8u>{1, 2, 3, 1, 2, 3, 1, 2, 3}));
  EXPECT_EQ(zoriCopy_8u_C1R(src + 3, -3, dst, 3, {3, 2}), ZorOk);
  EXPECT_EQ(std::vector<Zor8u>(dst, dst + 6), (std::vector<Zor8u>{4, 5, 6, 1, 2, 3}));
}

// Large regions take other stores.
TEST(LargeCopy, OfOneRunAndRowByRow)
{
  for (int padding : {0, 3}) {
    const ZorImgSize roi{4099, 701};
    SampleImage src(1, 1, 1, roi, padding, 1, 1), dst(1, 1, 1, roi, padding, 2, 2), expected = dst;
    for (int y = 0; y < roi.height; ++y) std::memcpy(expected.at(0, y, 0, 0), src.at(0, y, 0, 0), 4099);
    ASSERT_EQ(zoriCopy_8u_C1R(src.at(0, 0, 0, 0), src.step, dst.at(0, 0, 0, 0), dst.step, roi), ZorOk);
    ASSERT_TRUE(dst.bytes == expected.bytes);
  }
}

} // namespace
