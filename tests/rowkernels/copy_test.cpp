// Copies and fills of rows: every length and alignment, nothing outside the row.
#include "rowkernels/copy.h"
#include "rowkernels/set.h"

#include <gtest/gtest.h>

#include <vector>

using namespace zori;

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
        copyForward(src.data() + from, dst.data() + 32 + at, length, streaming);
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
      copyForward(row.data() + 100 + by, row.data() + 100, 800, streaming);
      ASSERT_EQ(row, expected) << by;
    }
}

// Rows of every length, by steps of their own; a row may be moved over itself.
TEST(CopyRows, EveryLength)
{
  constexpr int rows = 3;
  for (int length = 1; length <= 150; ++length)
    for (int by : {0, 1, 7, 40}) { // the source is that far behind the destination in memory
      const int step = length + by + 9;
      std::vector<Zor8u> image = numbered(static_cast<std::size_t>(rows * step)), expected = image;
      for (int y = 0; y < rows; ++y) std::copy_n(image.begin() + y * step + by, length, expected.begin() + y * step);
      copyRows({image.data() + by, step}, {image.data(), step}, length, rows);
      ASSERT_EQ(image, expected) << length << ' ' << by;
    }
}

template <int PixelBytes> void checkFill()
{
  const std::vector<Zor8u> pixel = numbered(PixelBytes);
  const auto pattern = PixelPattern::of<PixelBytes>(pixel.data());
  for (int length = 0; length <= 330; ++length)
    for (int at = 0; at < 16; at += length < 40 ? 1 : 5)
      for (long long regionBytes : {0LL + length, 1LL << 40}) {
        std::vector<Zor8u> dst(512, 0xee), expected = dst;
        for (int i = 0; i < length; ++i) expected[32 + at + i] = pixel[i % PixelBytes];
        fillRow(pattern, dst.data() + 32 + at, length, regionBytes);
        ASSERT_EQ(dst, expected) << PixelBytes << ' ' << length << ' ' << at;
      }
  for (int length = 0; length <= 150; ++length) {
    constexpr int step = 170;
    std::vector<Zor8u> dst(3 * step, 0xee), expected = dst;
    for (int y = 0; y < 3; ++y)
      for (int i = 0; i < length; ++i) expected[1 + y * step + i] = pixel[i % PixelBytes];
    fillRows(pattern, {dst.data() + 1, step}, length, 3);
    ASSERT_EQ(dst, expected) << PixelBytes << ' ' << length;
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

} // namespace
