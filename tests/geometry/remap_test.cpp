// Remap against the plain samplers, point by point, with maps that lead everywhere.
#include "warp_image.h"
#include "zori/geometry.h"

#include <gtest/gtest.h>

#include <limits>

using namespace warptest;

namespace {

template <class T>
using Function = ZorStatus (*)(const T*, ZorImgSize, int, ZorImgRect, const Zor32f*, int, const Zor32f*, int, T*, int,
                               ZorImgSize, int);

constexpr int interpolations[] = {ZORI_INTER_NN, ZORI_INTER_LINEAR, ZORI_INTER_CUBIC};

// Coordinates around and in the region: on its bounds, beside them, anywhere, and not numbers.
Image<Zor32f> randomMap(ZorImgSize size, int first, int last, unsigned seed)
{
  Image<Zor32f> map(size.width, size.height, 1, seed, 4);
  std::mt19937 random(seed);
  const float specials[] = {float(first),
                            float(last),
                            last + 0.001f,
                            first - 0.001f,
                            std::nanf(""),
                            std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity(),
                            3e38f,
                            -1e30f,
                            first + 0.5f,
                            last - 0.5f,
                            std::nextafter(float(last), 0.0f)};
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x) {
      const bool isSpecial = random() % 16 == 0;
      map.put(x, y,
              isSpecial ? specials[random() % std::size(specials)]
                        : first + (last - first) * (float(random() % 100001) / 100000));
    }
  return map;
}

template <class T>
void checkRemap(Function<T> function, int channels, int written, ZorImgSize srcSize, ZorImgRect region, ZorImgSize size,
                int interpolation, unsigned seed)
{
  SCOPED_TRACE(testing::Message() << sizeof(T) << " bytes, " << channels << " channels, " << srcSize.width << "x"
                                  << srcSize.height << ", interpolation " << interpolation);
  for (const bool atBegin : {false, true}) {
    const Image<T> src(srcSize.width, srcSize.height, channels, seed, seed % 3, atBegin);
    Image<T> dst(size.width, size.height, channels, seed + 1, 3),
      expected(size.width, size.height, channels, seed + 1, 3);
    const int right = std::min(srcSize.width, region.x + region.width) - 1;
    const int bottom = std::min(srcSize.height, region.y + region.height) - 1;
    const Image<Zor32f> xMap = randomMap(size, region.x, right, seed + 2),
                        yMap = randomMap(size, region.y, bottom, seed + 3);
    ASSERT_EQ(ZorOk, function(src.data(), srcSize, src.step, region, xMap.data(), xMap.step, yMap.data(), yMap.step,
                              dst.data(), dst.step, size, interpolation));
    for (int y = 0; y < size.height; ++y)
      for (int x = 0; x < size.width; ++x) {
        const float sx = xMap.at(x, y), sy = yMap.at(x, y);
        const bool isInside = sx >= region.x && sx <= right && sy >= region.y && sy <= bottom;
        for (int c = 0; c < channels; ++c) {
          const double want =
            isInside && c < written ? sampled(src, sx, sy, c, interpolation) : double(expected.at(x, y, c));
          const double hair = isInside && c < written ? tolerance<T>(interpolation) : 0;
          ASSERT_NEAR(want, dst.at(x, y, c), hair) << x << ", " << y << " from " << sx << ", " << sy;
        }
      }
  }
}

template <class T> struct Family {
  Function<T> c1, c3, c4, ac4;
};
const Family<Zor8u> bytes = {zoriRemap_8u_C1R, zoriRemap_8u_C3R, zoriRemap_8u_C4R, zoriRemap_8u_AC4R};
const Family<Zor16u> words = {zoriRemap_16u_C1R, zoriRemap_16u_C3R, zoriRemap_16u_C4R, zoriRemap_16u_AC4R};
const Family<Zor32f> floats = {zoriRemap_32f_C1R, zoriRemap_32f_C3R, zoriRemap_32f_C4R, zoriRemap_32f_AC4R};

template <class T> void checkFamily(const Family<T>& family)
{
  const struct {
    ZorImgSize size;
    ZorImgRect region;
  } sources[] = {{{37, 29}, {0, 0, 37, 29}}, {{37, 29}, {5, 4, 100, 17}}, {{4, 4}, {0, 0, 4, 4}},
                 {{3, 7}, {0, 0, 3, 7}},     {{2, 2}, {0, 0, 2, 2}},      {{1, 9}, {0, 0, 1, 9}},
                 {{9, 1}, {0, 0, 9, 1}}};
  unsigned seed = 10;
  for (const auto& source : sources)
    for (const int interpolation : interpolations)
      for (const ZorImgSize size : {ZorImgSize{67, 9}, ZorImgSize{3, 5}, ZorImgSize{270, 3}, ZorImgSize{1100, 2}}) {
        if (size.width > 1000 && &source != sources) continue; // several blocks of columns
        checkRemap(family.c1, 1, 1, source.size, source.region, size, interpolation, ++seed);
        checkRemap(family.c3, 3, 3, source.size, source.region, size, interpolation, ++seed);
        checkRemap(family.c4, 4, 4, source.size, source.region, size, interpolation, ++seed);
        checkRemap(family.ac4, 4, 3, source.size, source.region, size, interpolation, ++seed);
      }
}

} // namespace

TEST(Remap, Bytes) { checkFamily(bytes); }
TEST(Remap, Words) { checkFamily(words); }
TEST(Remap, Floats) { checkFamily(floats); }

// Offsets of a source are formed in three ways, by its size: all give the same.
TEST(Remap, LargeSourcesAndSteps)
{
  const ZorImgSize dst = {130, 7};
  for (const int interpolation : interpolations) {
    checkRemap(zoriRemap_8u_C3R, 3, 3, {12000, 5}, {0, 0, 12000, 5}, dst, interpolation, 1);   // the step
    checkRemap(zoriRemap_8u_C1R, 1, 1, {40000, 5}, {0, 0, 40000, 5}, dst, interpolation, 2);   // the width
    checkRemap(zoriRemap_8u_C1R, 1, 1, {5, 40000}, {0, 0, 5, 40000}, dst, interpolation, 3);   // the height
    checkRemap(zoriRemap_8u_C1R, 1, 1, {140000, 4}, {0, 0, 140000, 4}, dst, interpolation, 4); // the fractions' room
    checkRemap(zoriRemap_32f_C1R, 1, 1, {40000, 5}, {0, 0, 40000, 5}, dst, interpolation, 5);
    checkRemap(zoriRemap_16u_C1R, 1, 1, {5, 140000}, {0, 0, 5, 140000}, dst, interpolation, 6);
  }
}

// Planes are worked as images of one channel.
TEST(Remap, Planes)
{
  const ZorImgSize size = {41, 13};
  const Image<Zor32f> xMap = randomMap(size, 0, 30, 1), yMap = randomMap(size, 0, 20, 2);
  for (const int interpolation : interpolations) {
    std::vector<Image<Zor16u>> src, dst, one;
    for (unsigned i = 0; i < 4; ++i) {
      src.emplace_back(31, 21, 1, i);
      dst.emplace_back(41, 13, 1, 9);
      one.emplace_back(41, 13, 1, 9);
      zoriRemap_16u_C1R(src[i].data(), {31, 21}, src[i].step, {0, 0, 31, 21}, xMap.data(), xMap.step, yMap.data(),
                        yMap.step, one[i].data(), one[i].step, size, interpolation);
    }
    const Zor16u* const from[] = {src[0].data(), src[1].data(), src[2].data(), src[3].data()};
    Zor16u* const to[] = {dst[0].data(), dst[1].data(), dst[2].data(), dst[3].data()};
    EXPECT_EQ(ZorOk, zoriRemap_16u_P4R(from, {31, 21}, src[0].step, {0, 0, 31, 21}, xMap.data(), xMap.step, yMap.data(),
                                       yMap.step, to, dst[0].step, size, interpolation));
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(dst[i] == one[i]);
  }
}
