// Copies and fills of one row: every length and alignment, nothing outside the row.
#include "rowkernels/copy.h"
#include "rowkernels/set.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<Zor8u> numbered(std::size_t n)
{
  std::vector<Zor8u> bytes(n);
  for (std::size_t i = 0; i < n; ++i) bytes[i] = static_cast<Zor8u>(i * 37 + i / 251);
  return bytes;
}

TEST(CopyRow, AllLengthsAndAlignments)
{
  const std::vector<Zor8u> src = numbered(512);
  for (bool streaming : {false, true})
    for (int length = 0; length <= 200; ++length)
      for (int at = 0; at < 16; ++at) {
        const int from = (at * 7 + length) % 16;
        std::vector<Zor8u> dst(512, 0xee), expected = dst;
        std::copy(src.begin() + from, src.begin() + from + length, expected.begin() + 32 + at);
        ownsCopy_8u(src.data() + from, dst.data() + 32 + at, length, streaming);
        ASSERT_EQ(dst, expected) << length << ' ' << at;
      }
}

// From the first byte to the last: a row may be moved towards lower addresses over itself.
TEST(CopyRow, GoesForward)
{
  for (bool streaming : {false, true})
    for (int by : {1, 5, 16, 30, 70}) {
      std::vector<Zor8u> row = numbered(1000), expected = row;
      std::copy(expected.begin() + 100 + by, expected.begin() + 900 + by, expected.begin() + 100);
      ownsCopy_8u(row.data() + 100 + by, row.data() + 100, 800, streaming);
      ASSERT_EQ(row, expected) << by;
    }
}

template <int PixelBytes> void checkFill()
{
  const std::vector<Zor8u> pixel = numbered(PixelBytes);
  const auto pattern = zori::PixelPattern::of<PixelBytes>(pixel.data());
  for (int length = 0; length <= 330; ++length)
    for (int at = 0; at < 16; at += length < 40 ? 1 : 5)
      for (long long regionBytes : {0LL + length, 1LL << 40}) {
        std::vector<Zor8u> dst(512, 0xee), expected = dst;
        for (int i = 0; i < length; ++i) expected[32 + at + i] = pixel[i % PixelBytes];
        ownsSet_8u(pattern, dst.data() + 32 + at, length, regionBytes);
        ASSERT_EQ(dst, expected) << PixelBytes << ' ' << length << ' ' << at;
      }
}

TEST(SetRow, AllPixelSizesLengthsAndAlignments)
{
  checkFill<1>();
  checkFill<2>();
  checkFill<3>();
  checkFill<4>();
  checkFill<6>();
  checkFill<8>();
  checkFill<12>();
  checkFill<16>();
}

TEST(CheckingForms, StatusesAndTypes)
{
  Zor64fc a[3] = {{1, 2}, {3, 4}, {5, 6}}, b[3] = {};
  EXPECT_EQ(zorsCopy_64fc(nullptr, b, 0), ZorErrNullPtr);
  EXPECT_EQ(zorsMove_64fc(a, nullptr, 1), ZorErrNullPtr);
  EXPECT_EQ(zorsCopy_64fc(a, b, 0), ZorErrSize);
  EXPECT_EQ(zorsSet_16s(7, nullptr, 0), ZorErrNullPtr);
  EXPECT_EQ(zorsZero_16s(reinterpret_cast<Zor16s*>(b), -1), ZorErrSize);

  EXPECT_EQ(zorsCopy_64fc(a, b, 2), ZorOk);
  EXPECT_EQ(b[1].im, 4);
  EXPECT_EQ(b[2].re, 0);
  EXPECT_EQ(zorsMove_64fc(a, a + 1, 2), ZorOk);
  EXPECT_EQ(a[1].re, 1);
  EXPECT_EQ(a[2].re, 3);
  EXPECT_EQ(zorsSet_64fc({8, 9}, b, 2), ZorOk);
  EXPECT_EQ(b[1].re, 8);
  EXPECT_EQ(b[1].im, 9);
  EXPECT_EQ(b[2].re, 0);
  EXPECT_EQ(zorsZero_64fc(b, 1), ZorOk);
  EXPECT_EQ(b[0].im, 0);
  EXPECT_EQ(b[1].im, 9);

  Zor32f f[5] = {};
  ownsSet_32s(0x3f800000, reinterpret_cast<Zor32s*>(f), 3);
  EXPECT_EQ(f[2], 1.0f);
  EXPECT_EQ(f[3], 0.0f);
  ownsZero_8u(reinterpret_cast<Zor8u*>(f), 5);
  EXPECT_EQ(f[0], 0.0f);
  EXPECT_EQ(f[2], 1.0f);
}

} // namespace
