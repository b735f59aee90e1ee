// Absolute value: limits, special floats, the masked steps and the rows of wide 32f AC4 images.
#include "zori/arith.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

TEST(Abs, IntegersSaturate)
{
  for (int length = 1; length <= 40; ++length)
    for (int offset = 0; offset < 9; ++offset) {
      std::vector<Zor16s> src(64, -32768), dst(64, 5);
      src[static_cast<size_t>(offset)] = -7;
      ASSERT_EQ(zoriAbs_16s_C1R(src.data() + offset, 2, dst.data() + 8 - offset, 2, {length, 1}), ZorOk);
      for (int i = 0; i < length; ++i) ASSERT_EQ(dst[static_cast<size_t>(8 - offset + i)], i ? 32767 : 7);
    }
}

TEST(Abs, FloatsLoseTheSignBitAlone)
{
  const float inf = std::numeric_limits<float>::infinity();
  Zor32u nan = 0xffc12345u;
  float x[5] = {-0.0f, -inf, 0, -1.5f, 2.0f};
  std::memcpy(&x[2], &nan, 4);
  ASSERT_EQ(zoriAbs_32f_C1IR(x, 20, {5, 1}), ZorOk);
  EXPECT_FALSE(std::signbit(x[0]));
  EXPECT_EQ(x[1], inf);
  std::memcpy(&nan, &x[2], 4);
  EXPECT_EQ(nan, 0x7fc12345u);
  EXPECT_EQ(x[3], 1.5f);
}

TEST(Abs, StepsAreMaskedInOneAndThreeChannels)
{
  // two rows of 3 at a step of 2 * 3 + 1 bytes, walked at 6
  Zor16s x[8] = {-1, -2, -3, -4, -5, -6, -7, -8};
  ASSERT_EQ(zoriAbs_16s_C1IR(x, 7, {3, 2}), ZorOk);
  const Zor16s expected[8] = {1, 2, 3, 4, 5, 6, -7, -8};
  EXPECT_EQ(0, std::memcmp(x, expected, sizeof x));
  // C4 keeps the raw step: the second row starts at byte 9
  std::vector<unsigned char> bytes(32, 0xff);
  ASSERT_EQ(zoriAbs_16s_C4IR(reinterpret_cast<Zor16s*>(bytes.data()), 9, {1, 2}), ZorOk);
  for (int i = 0; i < 32; ++i) {
    const bool low = (i < 8 && i % 2 == 0) || (i >= 9 && i < 17 && i % 2 == 1);
    const bool high = (i < 8 && i % 2 == 1) || (i >= 9 && i < 17 && i % 2 == 0);
    EXPECT_EQ(bytes[static_cast<size_t>(i)], low ? 1 : high ? 0 : 0xff) << i;
  }
}

TEST(Abs, WideFloatRowsWithAlpha)
{
  // 256-pixel steps that start 64 pixels apart: the number of leading pixels that are written
  struct {
    int width, covered;
  } cases[] = {{1, 1},     {255, 255}, {256, 256}, {257, 256}, {300, 256},
               {511, 319}, {512, 320}, {513, 320}, {800, 384}, {1023, 447}};
  for (auto c : cases) {
    std::vector<float> src(static_cast<size_t>(c.width) * 4, -3.0f), dst(src.size(), -9.0f), inPlace = src;
    ASSERT_EQ(zoriAbs_32f_AC4R(src.data(), c.width * 16, dst.data(), c.width * 16, {c.width, 1}), ZorOk);
    ASSERT_EQ(zoriAbs_32f_AC4IR(inPlace.data(), c.width * 16, {c.width, 1}), ZorOk);
    for (int i = 0; i < c.width * 4; ++i) {
      const bool written = i / 4 < c.covered && i % 4 < 3;
      ASSERT_EQ(dst[static_cast<size_t>(i)], written ? 3.0f : -9.0f) << c.width << ' ' << i;
      ASSERT_EQ(inPlace[static_cast<size_t>(i)], written ? 3.0f : -3.0f) << c.width << ' ' << i;
    }
  }
  std::vector<Zor16s> src(600 * 4, -3), dst(600 * 4, -9);
  ASSERT_EQ(zoriAbs_16s_AC4R(src.data(), 4800, dst.data(), 4800, {600, 1}), ZorOk);
  for (size_t i = 0; i < dst.size(); ++i) ASSERT_EQ(dst[i], i % 4 < 3 ? 3 : -9);
}
