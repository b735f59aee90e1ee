// Borders of every type and layout: margins of any size, in place rings, extents at the limits of an int.
#include "zori/data.h"

#include "pixel_image.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>

using namespace zoritest;

namespace {

enum class Kind { Constant, Replicate, Wrap };

struct Frame {
  ZorImgSize inner, outer;
  int top, left;
};

struct Case {
  std::string name;
  Kind kind;
  int pixelBytes, movedBytes;
  std::function<ZorStatus(const void*, int, void*, int, const Frame&)> call;
  std::function<ZorStatus(void*, int, const Frame&)> inPlace = nullptr;
};
void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

alignas(16) constexpr Zor8u constantBytes[16] = {3, 1, 4, 1, 5, 9, 2, 6, 53, 58, 97, 93, 238, 46, 26, 43};
alignas(16) constexpr Zor8u uniformBytes[16] = {9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9};

template <class T> const T* numbers(const Zor8u* bytes) { return reinterpret_cast<const T*>(bytes); }

std::vector<Case> cases(const Zor8u* constant)
{
  std::vector<Case> all;
#define CONSTANT(type, layout, n, moved, value)                                                                        \
  all.push_back({"Const_" #type "_" #layout, Kind::Constant, n * static_cast<int>(sizeof(Zor##type)),                  \
                 moved * static_cast<int>(sizeof(Zor##type)),                                                          \
                 [constant](const void* src, int srcStep, void* dst, int dstStep, const Frame& f) {                    \
                   return zoriCopyConstBorder_##type##_##layout##R(                                                    \
                     static_cast<const Zor##type*>(src), srcStep, f.inner, static_cast<Zor##type*>(dst), dstStep,      \
                     f.outer, f.top, f.left, value numbers<Zor##type>(constant));                                      \
                 }});
#define COPIED(op, kind, type, layout, n, moved)                                                                       \
  all.push_back({#op "_" #type "_" #layout, Kind::kind, n * static_cast<int>(sizeof(Zor##type)),                       \
                 moved * static_cast<int>(sizeof(Zor##type)),                                                          \
                 [](const void* src, int srcStep, void* dst, int dstStep, const Frame& f) {                            \
                   return zoriCopy##op##Border_##type##_##layout##R(static_cast<const Zor##type*>(src), srcStep,       \
                                                                    f.inner, static_cast<Zor##type*>(dst), dstStep,    \
                                                                    f.outer, f.top, f.left);                           \
                 },                                                                                                    \
                 [](void* image, int step, const Frame& f) {                                                           \
                   return zoriCopy##op##Border_##type##_##layout##IR(static_cast<Zor##type*>(image), step, f.inner,    \
                                                                     f.outer, f.top, f.left);                          \
                 }});
#define CASES(type)                                                                                                    \
  CONSTANT(type, C1, 1, 1, *)                                                                                          \
  CONSTANT(type, C3, 3, 3, )                                                                                           \
  CONSTANT(type, C4, 4, 4, )                                                                                           \
  CONSTANT(type, AC4, 4, 3, )                                                                                          \
  COPIED(Replicate, Replicate, type, C1, 1, 1)                                                                         \
  COPIED(Replicate, Replicate, type, C3, 3, 3)                                                                         \
  COPIED(Replicate, Replicate, type, C4, 4, 4) COPIED(Replicate, Replicate, type, AC4, 4, 3)
  CASES(8u) CASES(16u) CASES(16s) CASES(32s) COPIED(Wrap, Wrap, 32s, C1, 1, 1) return all;
}

class Border : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(All, Border, testing::ValuesIn(cases(constantBytes)));

// The source coordinate behind a destination coordinate, -1 for none.
int back(Kind kind, int i, int length)
{
  if (kind == Kind::Wrap) return (i % length + length) % length;
  if (i >= 0 && i < length) return i;
  return kind == Kind::Constant ? -1 : i < 0 ? 0 : length - 1;
}

// Fills `to`, the bytes of outer, by the rule; the rectangle comes from `from`, the bytes of inner.
void frame(const Case& c, const Frame& f, const PixelImage& inner, int x0, int y0, const std::vector<Zor8u>& from,
           const Zor8u* constant, const PixelImage& outer, std::vector<Zor8u>& to)
{
  for (int y = 0; y < f.outer.height; ++y)
    for (int x = 0; x < f.outer.width; ++x) {
      const int fromX = back(c.kind, x - f.left, f.inner.width), fromY = back(c.kind, y - f.top, f.inner.height);
      const Zor8u* const pixel = fromX < 0 || fromY < 0 ? constant : &from[inner.offset(x0 + fromX, y0 + fromY)];
      std::memcpy(&to[outer.offset(x, y)], pixel, static_cast<std::size_t>(c.movedBytes));
    }
}

std::vector<Frame> frames()
{
  std::vector<Frame> all;
  const int margins[][4] = {{0, 0, 0, 0}, {1, 0, 0, 0},     {0, 0, 0, 2},  {0, 3, 5, 0},
                            {2, 3, 4, 5}, {16, 16, 16, 16}, {7, 40, 33, 9}};
  for (ZorImgSize inner : {ZorImgSize{1, 1}, ZorImgSize{3, 2}, ZorImgSize{17, 4}, ZorImgSize{67, 3}})
    for (auto& m : margins) // top, left, right, bottom
      all.push_back({inner, {inner.width + m[1] + m[2], inner.height + m[0] + m[3]}, m[0], m[1]});
  return all;
}

void checkFrames(const Case& c, const Zor8u* constant)
{
  for (const Frame& f : frames())
    for (Edge edge : {Edge::End, Edge::Begin})
      for (int padding : {0, 5}) {
        const PixelImage src(f.inner, c.pixelBytes, padding, edge, 1), dst(f.outer, c.pixelBytes, padding, edge, 2);
        const auto before = src.bytes();
        auto expected = dst.bytes();
        frame(c, f, src, 0, 0, before, constant, dst, expected);
        ASSERT_EQ(c.call(src.at(0, 0), src.step, dst.at(0, 0), dst.step, f), ZorOk);
        ASSERT_TRUE(dst.bytes() == expected)
          << f.inner.width << 'x' << f.inner.height << " in " << f.outer.width << 'x' << f.outer.height;
        ASSERT_TRUE(src.bytes() == before);
      }
}

TEST_P(Border, SurroundsTheRectangle) { checkFrames(GetParam(), constantBytes); }

TEST(BorderConstants, OfOneByteAreWrittenLikeOthers)
{
  for (const Case& c : cases(uniformBytes))
    if (c.kind == Kind::Constant) checkFrames(c, uniformBytes);
}

TEST_P(Border, InPlaceFillsTheRingAlone)
{
  const Case& c = GetParam();
  if (!c.inPlace) return; // constant borders have no such form
  for (const Frame& f : frames())
    for (Edge edge : {Edge::End, Edge::Begin}) {
      const PixelImage image(f.outer, c.pixelBytes, 5, edge, 3);
      auto expected = image.bytes();
      frame(c, f, image, f.left, f.top, image.bytes(), nullptr, image, expected);
      ASSERT_EQ(c.inPlace(image.at(f.left, f.top), image.step, f), ZorOk);
      ASSERT_TRUE(image.bytes() == expected)
        << f.inner.width << 'x' << f.inner.height << " in " << f.outer.width << 'x' << f.outer.height;
    }
}

TEST_P(Border, ExtentsAreComparedWithoutOverflow)
{
  const Case& c = GetParam();
  const PixelImage src({5, 4}, c.pixelBytes, 0, Edge::End, 1), dst({9, 8}, c.pixelBytes, 0, Edge::End, 2);
  const auto before = dst.bytes();
  const Frame bad[] = {
    {{5, 4}, {9, 8}, 5, 0},       {{5, 4}, {9, 8}, 0, 5},       {{5, 4}, {9, 8}, -1, 0},
    {{5, 4}, {9, 8}, 0, -1},      {{5, 4}, {9, 8}, INT_MAX, 0}, {{5, 4}, {9, 8}, 0, INT_MAX},
    {{INT_MAX, 4}, {9, 8}, 0, 2}, {{5, INT_MAX}, {9, 8}, 2, 0}, {{5, 4}, {9, 8}, INT_MIN, 0},
    {{5, 4}, {9, 8}, 0, INT_MIN}, {{0, 4}, {9, 8}, 0, 0},       {{5, 0}, {9, 8}, 0, 0},
    {{5, 4}, {0, 8}, 0, 0},       {{5, 4}, {9, -1}, 0, 0},      {{INT_MAX, INT_MAX}, {9, 8}, INT_MAX, INT_MAX}};
  for (const Frame& f : bad) {
    EXPECT_EQ(c.call(src.at(0, 0), src.step, dst.at(0, 0), dst.step, f), ZorErrSize) << f.top << ' ' << f.left;
    if (c.inPlace) {
      EXPECT_EQ(c.inPlace(dst.at(2, 2), dst.step, f), ZorErrSize);
    }
  }
  // pointers, then steps, come before sizes
  EXPECT_EQ(c.call(nullptr, 0, dst.at(0, 0), dst.step, bad[0]), ZorErrNullPtr);
  EXPECT_EQ(c.call(src.at(0, 0), src.step, nullptr, 0, bad[0]), ZorErrNullPtr);
  EXPECT_EQ(c.call(src.at(0, 0), 0, dst.at(0, 0), dst.step, bad[0]), ZorErrStep);
  EXPECT_EQ(c.call(src.at(0, 0), src.step, dst.at(0, 0), -dst.step, bad[0]), ZorErrStep);
  if (c.inPlace) {
    EXPECT_EQ(c.inPlace(nullptr, 0, bad[0]), ZorErrNullPtr);
    EXPECT_EQ(c.inPlace(dst.at(2, 2), 0, bad[0]), ZorErrStep);
  }
  EXPECT_TRUE(dst.bytes() == before);
}

TEST(BorderConstants, TheArrayIsTestedLast)
{
  for (const Case& c : cases(nullptr)) {
    if (c.kind != Kind::Constant || c.name.find("_C1") != std::string::npos) continue;
    const PixelImage src({5, 4}, c.pixelBytes, 0, Edge::End, 1), dst({9, 8}, c.pixelBytes, 0, Edge::End, 2);
    const auto before = dst.bytes();
    EXPECT_EQ(c.call(src.at(0, 0), src.step, dst.at(0, 0), dst.step, {{5, 4}, {9, 8}, 5, 0}), ZorErrSize) << c.name;
    EXPECT_EQ(c.call(src.at(0, 0), 0, dst.at(0, 0), dst.step, {{5, 4}, {9, 8}, 0, 0}), ZorErrStep) << c.name;
    EXPECT_EQ(c.call(src.at(0, 0), src.step, dst.at(0, 0), dst.step, {{5, 4}, {9, 8}, 0, 0}), ZorErrNullPtr) << c.name;
    EXPECT_TRUE(dst.bytes() == before);
  }
}

} // namespace
