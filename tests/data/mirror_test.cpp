// Mirror images of every type and layout about all axes, in place and not, with steps of either sign.
#include "zori/data.h"

#include "pixel_image.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

using namespace zoritest;

namespace {

struct Case {
  std::string name;
  int pixelBytes, movedBytes;
  std::function<ZorStatus(const void*, int, void*, int, ZorImgSize, ZorAxis)> call;
  std::function<ZorStatus(void*, int, ZorImgSize, ZorAxis)> inPlace;
};
void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

std::vector<Case> cases()
{
  std::vector<Case> all;
#define CASE(type, layout, n, moved)                                                                                   \
  all.push_back({#type "_" #layout, n * static_cast<int>(sizeof(Zor##type)),                                           \
                 moved * static_cast<int>(sizeof(Zor##type)),                                                          \
                 [](const void* src, int srcStep, void* dst, int dstStep, ZorImgSize size, ZorAxis flip) {             \
                   return zoriMirror_##type##_##layout##R(static_cast<const Zor##type*>(src), srcStep,                 \
                                                          static_cast<Zor##type*>(dst), dstStep, size, flip);          \
                 },                                                                                                    \
                 [](void* image, int step, ZorImgSize size, ZorAxis flip) {                                            \
                   return zoriMirror_##type##_##layout##IR(static_cast<Zor##type*>(image), step, size, flip);          \
                 }});
#define CASES(type) CASE(type, C1, 1, 1) CASE(type, C3, 3, 3) CASE(type, C4, 4, 4) CASE(type, AC4, 4, 3)
  CASES(8u) CASES(16u) CASES(16s) CASES(32s) CASES(32f) return all;
}

class Mirror : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(All, Mirror, testing::ValuesIn(cases()));

constexpr ZorAxis axes[] = {ZorAxsHorizontal, ZorAxsVertical, ZorAxsBoth};

// What dst holds afterwards.
std::vector<Zor8u> mirrored(const Case& c, const PixelImage& src, const PixelImage& dst, ZorImgSize size, ZorAxis flip)
{
  const auto from = src.bytes();
  auto to = dst.bytes();
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x) {
      const int toX = flip == ZorAxsHorizontal ? x : size.width - 1 - x;
      const int toY = flip == ZorAxsVertical ? y : size.height - 1 - y;
      std::memcpy(&to[dst.offset(toX, toY)], &from[src.offset(x, y)], static_cast<std::size_t>(c.movedBytes));
    }
  return to;
}

// Every size and axis that is not an error: widths around vectors, groups of pixels and the buffer in place.
template <class Body> void eachImage(Body body)
{
  std::vector<ZorImgSize> sizes = {{1, 5}, {2, 2}, {1030, 2}, {2049, 3}, {9001, 1}, {1303, 1301}};
  for (int width = 2; width <= 36; ++width) sizes.push_back({width, width % 5 + 1});
  for (int width : {63, 64, 65, 100, 131, 350}) sizes.push_back({width, 3});
  for (ZorImgSize size : sizes)
    for (ZorAxis flip : axes)
      for (Edge edge : {Edge::End, Edge::Begin}) {
        if (size.height > 1000 && (edge == Edge::Begin || flip == ZorAxsHorizontal)) continue; // large: time
        if (size.height == 1 && flip != ZorAxsVertical) continue;
        if (size.width == 1 && flip != ZorAxsHorizontal) continue;
        body(size, flip, edge);
        if (testing::Test::HasFatalFailure()) return;
      }
}

TEST_P(Mirror, PixelsGoToTheOtherSide)
{
  const Case& c = GetParam();
  eachImage([&](ZorImgSize size, ZorAxis flip, Edge edge) {
    const PixelImage src(size, c.pixelBytes, 3, edge, 1), dst(size, c.pixelBytes, 0, edge, 2);
    const auto before = src.bytes(), expected = mirrored(c, src, dst, size, flip);
    ASSERT_EQ(c.call(src.at(0, 0), src.step, dst.at(0, 0), dst.step, size, flip), ZorOk);
    ASSERT_TRUE(dst.bytes() == expected) << size.width << 'x' << size.height << " axis " << flip;
    ASSERT_TRUE(src.bytes() == before);
  });
}

TEST_P(Mirror, InPlace)
{
  const Case& c = GetParam();
  eachImage([&](ZorImgSize size, ZorAxis flip, Edge edge) {
    for (bool ownForm : {true, false}) {
      const PixelImage image(size, c.pixelBytes, 5, edge, 3);
      const auto expected = mirrored(c, image, image, size, flip);
      void* const p = image.at(0, 0);
      ASSERT_EQ(ownForm ? c.inPlace(p, image.step, size, flip) : c.call(p, image.step, p, image.step, size, flip),
                ZorOk);
      ASSERT_TRUE(image.bytes() == expected) << size.width << 'x' << size.height << " axis " << flip;
    }
  });
}

TEST_P(Mirror, NegativeSourceStepsWalkUpward)
{
  const Case& c = GetParam();
  for (ZorAxis flip : axes)
    for (ZorImgSize size : {ZorImgSize{5, 4}, ZorImgSize{77, 3}}) {
      const PixelImage src(size, c.pixelBytes, 0, Edge::End, 1), dst(size, c.pixelBytes, 0, Edge::End, 2);
      auto expected = dst.bytes();
      const auto from = src.bytes();
      for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) {
          const int toX = flip == ZorAxsHorizontal ? x : size.width - 1 - x;
          const int toY = flip == ZorAxsVertical ? y : size.height - 1 - y;
          std::memcpy(&expected[dst.offset(toX, toY)], &from[src.offset(x, size.height - 1 - y)],
                      static_cast<std::size_t>(c.movedBytes));
        }
      ASSERT_EQ(c.call(src.at(0, size.height - 1), -src.step, dst.at(0, 0), dst.step, size, flip), ZorOk);
      ASSERT_TRUE(dst.bytes() == expected) << size.width << " axis " << flip;
    }
}

TEST(MirrorChecks, Order)
{
  const ZorAxis none = static_cast<ZorAxis>(3);
  Zor8u x[16] = {}, y[16] = {};
  EXPECT_EQ(zoriMirror_8u_C1R(nullptr, 4, y, 4, {0, 0}, none), ZorErrNullPtr);
  EXPECT_EQ(zoriMirror_8u_C1R(x, 4, y, 4, {4, 0}, none), ZorErrSize);
  EXPECT_EQ(zoriMirror_8u_C1R(x, 4, y, 4, {1, 1}, none), ZorErrAxis);
  EXPECT_EQ(zoriMirror_8u_C1R(x, 4, y, 4, {1, 1}, static_cast<ZorAxis>(-1)), ZorErrAxis);
  // a side that is mirrored needs two pixels
  EXPECT_EQ(zoriMirror_8u_C1R(x, 4, y, 4, {4, 1}, ZorAxsHorizontal), ZorErrSize);
  EXPECT_EQ(zoriMirror_8u_C1R(x, 4, y, 4, {4, 1}, ZorAxsVertical), ZorOk);
  EXPECT_EQ(zoriMirror_8u_C1R(x, 4, y, 4, {1, 4}, ZorAxsVertical), ZorErrSize);
  EXPECT_EQ(zoriMirror_8u_C1R(x, 4, y, 4, {1, 4}, ZorAxsHorizontal), ZorOk);
  EXPECT_EQ(zoriMirror_8u_C1R(x, 4, y, 4, {1, 4}, ZorAxsBoth), ZorErrSize);
  EXPECT_EQ(zoriMirror_8u_AC4IR(nullptr, 4, {1, 4}, ZorAxsHorizontal), ZorErrNullPtr);
  EXPECT_EQ(zoriMirror_8u_AC4IR(x, 4, {1, 1}, ZorAxsHorizontal), ZorErrSize);
}

} // namespace
