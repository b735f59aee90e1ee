// Fills in all layouts, of one channel and under a mask.
#include "zori/data.h"

#include "sample_image.h"

#include <gtest/gtest.h>

using namespace zoritest;

namespace {

struct Case {
  std::string name;
  int sampleBytes, channels, channel, written; // channels channel .. channel + written - 1 are written
  std::function<ZorStatus(const void* value, const Operands&)> call;
  bool masked = false;
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

template <class T> T* target(const Operands& o) { return first<T>(o.dst, o.dstChannel); }

using Filler = decltype(Case::call);
template <class T> T firstOf(const void* value)
{
  T x;
  std::memcpy(&x, value, sizeof x);
  return x;
}
template <class T> Filler fill(ZorStatus (*f)(T, T*, int, ZorImgSize))
{
  return [f](const void* v, const Operands& o) { return f(firstOf<T>(v), target<T>(o), o.dst.step, o.roi); };
}
template <class T> Filler fill(ZorStatus (*f)(const T*, T*, int, ZorImgSize))
{
  return [f](const void* v, const Operands& o) { return f(static_cast<const T*>(v), target<T>(o), o.dst.step, o.roi); };
}
template <class T> Filler fill(ZorStatus (*f)(T, T*, int, ZorImgSize, const Zor8u*, int))
{
  return [f](const void* v, const Operands& o) {
    return f(firstOf<T>(v), target<T>(o), o.dst.step, o.roi, o.mask, o.maskStep);
  };
}
template <class T> Filler fill(ZorStatus (*f)(const T*, T*, int, ZorImgSize, const Zor8u*, int))
{
  return [f](const void* v, const Operands& o) {
    return f(static_cast<const T*>(v), target<T>(o), o.dst.step, o.roi, o.mask, o.maskStep);
  };
}

std::vector<Case> cases()
{
  std::vector<Case> all;
#define ONE(type, form, channels, channel, written, masked)                                                            \
  all.push_back({#type "_" #form #channel, static_cast<int>(sizeof(Zor##type)), channels, channel, written,            \
                 fill(zoriSet_##type##_##form), masked});
#define ALL(type)                                                                                                      \
  ONE(type, C1R, 1, 0, 1, false)                                                                                       \
  ONE(type, C3R, 3, 0, 3, false)                                                                                       \
  ONE(type, C4R, 4, 0, 4, false)                                                                                       \
  ONE(type, AC4R, 4, 0, 3, false)                                                                                      \
  ONE(type, C1MR, 1, 0, 1, true)                                                                                       \
  ONE(type, C3MR, 3, 0, 3, true)                                                                                       \
  ONE(type, C4MR, 4, 0, 4, true)                                                                                       \
  ONE(type, AC4MR, 4, 0, 3, true) ONE(type, C3CR, 3, 1, 1, false) ONE(type, C4CR, 4, 3, 1, false)
  ALL(8u) ALL(16u) ALL(16s) ALL(32s) ALL(32f) return all;
}

class Set : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(All, Set, testing::ValuesIn(cases()));

TEST_P(Set, WritesTheValueAndNothingElse)
{
  const Case& c = GetParam();
  alignas(16) const Zor8u different[16] = {9, 200, 31, 4, 250, 6, 77, 128, 19, 10, 11, 12, 213, 14, 15, 160};
  alignas(16) Zor8u same[16];
  std::memset(same, 0x5a, sizeof same);
  for (const Zor8u* value : {different, static_cast<const Zor8u*>(same)})
    for (int width : testWidths())
      for (int padding : {0, 7}) {
        const ZorImgSize roi{width, 3};
        SampleImage dst(1, c.channels, c.sampleBytes, roi, padding, width % 5, 2), expected = dst;
        const int maskStep = width + (padding + width) % 3;
        std::vector<Zor8u> mask(static_cast<size_t>(maskStep) * roi.height);
        for (size_t i = 0; i < mask.size(); ++i) mask[i] = i / 40 % 3 == 0 ? 0 : static_cast<Zor8u>(i * 7 % 3);
        for (int y = 0; y < roi.height; ++y)
          for (int x = 0; x < width; ++x)
            if (!c.masked || mask[y * maskStep + x])
              std::memcpy(expected.at(0, y, x, c.channel), value, static_cast<size_t>(c.written * c.sampleBytes));
        ASSERT_EQ(c.call(value, {dst, dst, mask.data(), maskStep, roi, 0, c.channel}), ZorOk);
        ASSERT_EQ(dst.bytes, expected.bytes) << "width " << width << ", padding " << padding;
      }
}

TEST(LargeSet, OfEqualAndOfDifferentBytes)
{
  const ZorImgSize roi{1001, 1003}; // 3 MB in C3
  for (Zor8u last : {5, 6}) {
    const Zor8u value[3] = {5, 5, last};
    SampleImage dst(1, 3, 1, roi, 0, 1, 2), expected = dst;
    for (int i = 0; i < roi.width * roi.height; ++i) std::memcpy(expected.at(0, 0, 0, 0) + 3 * i, value, 3);
    ASSERT_EQ(zoriSet_8u_C3R(value, dst.at(0, 0, 0, 0), dst.step, roi), ZorOk);
    ASSERT_TRUE(dst.bytes == expected.bytes);
  }
}

} // namespace
