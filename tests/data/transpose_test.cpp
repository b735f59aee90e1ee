// Transposition of every type and layout, in place and not, around the sizes of tiles and blocks.
#include "zori/data.h"

#include "pixel_image.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

using namespace zoritest;

namespace {

struct Case {
  std::string name;
  int pixelBytes;
  std::function<ZorStatus(const void*, int, void*, int, ZorImgSize)> call;
  std::function<ZorStatus(void*, int, ZorImgSize)> inPlace;
};
void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

std::vector<Case> cases()
{
  std::vector<Case> all;
#define CASE(type, layout, n)                                                                                          \
  all.push_back({#type "_" #layout, n * static_cast<int>(sizeof(Zor##type)),                                           \
                 [](const void* src, int srcStep, void* dst, int dstStep, ZorImgSize size) {                           \
                   return zoriTranspose_##type##_##layout##R(static_cast<const Zor##type*>(src), srcStep,              \
                                                             static_cast<Zor##type*>(dst), dstStep, size);             \
                 },                                                                                                    \
                 [](void* image, int step, ZorImgSize size) {                                                          \
                   return zoriTranspose_##type##_##layout##IR(static_cast<Zor##type*>(image), step, size);             \
                 }});
#define CASES(type) CASE(type, C1, 1) CASE(type, C3, 3) CASE(type, C4, 4)
  CASES(8u) CASES(16u) CASES(16s) CASES(32s) return all;
}

class Transpose : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(All, Transpose, testing::ValuesIn(cases()));

void transposed(const PixelImage& src, const std::vector<Zor8u>& from, ZorImgSize size, int pixelBytes,
                const PixelImage& dst, std::vector<Zor8u>& to)
{
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x)
      std::memcpy(&to[dst.offset(y, x)], &from[src.offset(x, y)], static_cast<std::size_t>(pixelBytes));
}

TEST_P(Transpose, RowsBecomeColumnsAndNothingElseIsTouched)
{
  const Case& c = GetParam();
  std::vector<ZorImgSize> sizes = {{65, 1}, {1, 65}, {130, 70}, {70, 130}, {301, 307}, {1303, 1301}};
  for (int a : {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 63, 64, 67})
    for (int b : {3, 4, 8, 11, 16, 66}) sizes.push_back(a % 2 ? ZorImgSize{a, b} : ZorImgSize{b, a});
  for (ZorImgSize size : sizes)
    for (Edge edge : {Edge::End, Edge::Begin})
      for (int padding : {0, 5}) {
        if (size.width > 1000 && (edge == Edge::Begin || padding == 0)) continue; // large: time
        const PixelImage src(size, c.pixelBytes, padding, edge, 1);
        const PixelImage dst({size.height, size.width}, c.pixelBytes, 2 * padding, edge, 2);
        const auto before = src.bytes();
        auto expected = dst.bytes();
        transposed(src, before, size, c.pixelBytes, dst, expected);
        ASSERT_EQ(c.call(src.at(0, 0), src.step, dst.at(0, 0), dst.step, size), ZorOk);
        ASSERT_TRUE(dst.bytes() == expected) << size.width << 'x' << size.height << " padding " << padding;
        ASSERT_TRUE(src.bytes() == before);
      }
}

TEST_P(Transpose, SquaresInPlace)
{
  const Case& c = GetParam();
  for (int side : {1, 2, 3, 4, 7, 8, 9, 15, 16, 17, 20, 31, 32, 33, 40, 63, 64, 65, 71, 130})
    for (Edge edge : {Edge::End, Edge::Begin})
      for (bool ownForm : {true, false}) {
        const ZorImgSize size = {side, side};
        const PixelImage image(size, c.pixelBytes, ownForm ? 7 : 0, edge, 3);
        auto expected = image.bytes();
        transposed(image, image.bytes(), size, c.pixelBytes, image, expected);
        void* const p = image.at(0, 0);
        ASSERT_EQ(ownForm ? c.inPlace(p, image.step, size) : c.call(p, image.step, p, image.step, size), ZorOk);
        ASSERT_TRUE(image.bytes() == expected) << side;
      }
}

TEST(TransposeChecks, OrderAndTheSquare)
{
  Zor8u x[16] = {}, y[16] = {};
  EXPECT_EQ(zoriTranspose_8u_C1R(nullptr, 4, y, 4, {0, 1}), ZorErrNullPtr);
  EXPECT_EQ(zoriTranspose_8u_C1R(x, 4, nullptr, 4, {0, 1}), ZorErrNullPtr);
  EXPECT_EQ(zoriTranspose_8u_C1R(x, 4, y, 4, {4, 0}), ZorErrSize);
  EXPECT_EQ(zoriTranspose_8u_C1IR(nullptr, 4, {3, 4}), ZorErrNullPtr);
  EXPECT_EQ(zoriTranspose_8u_C1IR(x, 4, {3, 4}), ZorErrSize);
  EXPECT_EQ(zoriTranspose_8u_C1IR(x, 4, {0, 0}), ZorErrSize);
}

TEST(TransposeChecks, StepsAreNotTested)
{
  // a step of 0 reads one row again and again
  const Zor8u row[3] = {1, 2, 3};
  Zor8u columns[6] = {};
  ASSERT_EQ(zoriTranspose_8u_C1R(row, 0, columns, 2, {3, 2}), ZorOk);
  const Zor8u expected[6] = {1, 1, 2, 2, 3, 3};
  EXPECT_EQ(0, std::memcmp(columns, expected, 6));
}

} // namespace
