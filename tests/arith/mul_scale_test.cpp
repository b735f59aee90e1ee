// Products of fractions of full scale, sign and magnitude, weighted sums of rows.
#include "elementary.h"
#include "zori/arith.h"

static unsigned product8(unsigned a, unsigned b) { return (a * b + ((a * b) >> 8) + 1) >> 8; }
static unsigned product16(unsigned a, unsigned b) { return (a * b + ((a * b) >> 16) + 1) >> 16; }

TEST(MulScale, EveryPairOfBytes)
{
  std::vector<Zor8u> a(65536), b(65536), dst(65536), ofConstant(256);
  for (std::size_t i = 0; i < 65536; ++i) a[i] = static_cast<Zor8u>(i >> 8), b[i] = static_cast<Zor8u>(i);
  ASSERT_EQ(zoriMulScale_8u_C1R(a.data(), 65536, b.data(), 65536, dst.data(), 65536, {65536, 1}), ZorOk);
  for (std::size_t i = 0; i < 65536; ++i) ASSERT_EQ(dst[i], product8(a[i], b[i]));
  for (int c = 0; c < 256; ++c) {
    ASSERT_EQ(zoriMulCScale_8u_C1R(b.data(), 256, static_cast<Zor8u>(c), ofConstant.data(), 256, {256, 1}), ZorOk);
    ASSERT_EQ(0, std::memcmp(ofConstant.data(), &dst[static_cast<std::size_t>(c) * 256], 256));
  }
  EXPECT_EQ(dst[255 * 256 + 255], 255);
  EXPECT_EQ(dst[255 * 256 + 7], 7);
  EXPECT_EQ(dst[128 * 256 + 128], 64);
}

TEST(MulScale, EveryWordWithManyConstants)
{
  const std::vector<Zor16u> src = allValues<Zor16u>();
  std::vector<Zor16u> dst(65536), second(65536), both(65536);
  for (unsigned c = 0; c < 65536; c += c < 32 || c >= 65500 ? 1 : 331) {
    ASSERT_EQ(zoriMulCScale_16u_C1R(src.data(), 131072, static_cast<Zor16u>(c), dst.data(), 131072, {65536, 1}), ZorOk);
    for (std::size_t i = 0; i < 65536; ++i) ASSERT_EQ(dst[i], product16(src[i], c)) << src[i] << ' ' << c;
  }
  for (std::size_t i = 0; i < 65536; ++i) second[i] = static_cast<Zor16u>(i * 40503);
  ASSERT_EQ(zoriMulScale_16u_C1R(src.data(), 131072, second.data(), 131072, both.data(), 131072, {65536, 1}), ZorOk);
  for (std::size_t i = 0; i < 65536; ++i) ASSERT_EQ(both[i], product16(src[i], second[i]));
}

// Layouts of a type: two images and a constant a channel, in rows with a gap; the fourth channel of AC4 stays.
template <class T> struct Layouts {
  int channels;
  bool keepsFourth;
  ZorStatus (*images)(const T*, int, const T*, int, T*, int, ZorImgSize);
  ZorStatus (*imagesInPlace)(const T*, int, T*, int, ZorImgSize);
  ZorStatus (*constant)(const T*, int, const T*, T*, int, ZorImgSize);
  ZorStatus (*constantInPlace)(const T*, T*, int, ZorImgSize);
};

template <class T> static void expectProducts(std::initializer_list<Layouts<T>> layouts)
{
  std::mt19937 random(3);
  const T constants[4] = {static_cast<T>(100), static_cast<T>(200), static_cast<T>(~0), static_cast<T>(30)};
  for (const auto& layout : layouts)
    for (int width = 1; width <= 40; ++width) {
      constexpr int height = 2;
      const std::size_t rowLength = static_cast<std::size_t>(width * layout.channels), pitch = rowLength + 5;
      const int step = static_cast<int>(pitch * sizeof(T));
      std::vector<T> a(pitch * height), b(a.size()), old(a.size());
      for (auto* image : {&a, &b, &old})
        for (T& x : *image) x = static_cast<T>(random());
      const auto product = sizeof(T) == 1 ? product8 : product16;
      const auto expect = [&](const std::vector<T>& dst, const std::vector<T>& before, bool withConstant) {
        for (std::size_t i = 0; i < dst.size(); ++i) {
          const std::size_t column = i % pitch, channel = column % static_cast<std::size_t>(layout.channels);
          const bool kept = column >= rowLength || (layout.keepsFourth && channel == 3);
          const unsigned factor = withConstant ? constants[channel] : a[i];
          ASSERT_EQ(+dst[i], kept ? +before[i] : static_cast<int>(product(b[i], factor)));
        }
      };
      std::vector<T> dst = old, inPlace = b;
      ASSERT_EQ(layout.images(a.data(), step, b.data(), step, dst.data(), step, {width, height}), ZorOk);
      expect(dst, old, false);
      ASSERT_EQ(layout.imagesInPlace(a.data(), step, inPlace.data(), step, {width, height}), ZorOk);
      expect(inPlace, b, false);
      dst = old, inPlace = b;
      ASSERT_EQ(layout.constant(b.data(), step, constants, dst.data(), step, {width, height}), ZorOk);
      expect(dst, old, true);
      ASSERT_EQ(layout.constantInPlace(constants, inPlace.data(), step, {width, height}), ZorOk);
      expect(inPlace, b, true);
    }
}

TEST(MulScale, Layouts)
{
#define LAYOUT(type, layout, channels, keeps)                                                                          \
  {channels,                                                                                                           \
   keeps,                                                                                                              \
   zoriMulScale_##type##_##layout##R,                                                                                  \
   zoriMulScale_##type##_##layout##IR,                                                                                 \
   zoriMulCScale_##type##_##layout##R,                                                                                 \
   zoriMulCScale_##type##_##layout##IR}
  expectProducts<Zor8u>({LAYOUT(8u, C3, 3, false), LAYOUT(8u, C4, 4, false), LAYOUT(8u, AC4, 4, true)});
  expectProducts<Zor16u>({LAYOUT(16u, C3, 3, false), LAYOUT(16u, C4, 4, false), LAYOUT(16u, AC4, 4, true)});
#undef LAYOUT
}

TEST(Complement, SignAndMagnitude)
{
  const Zor32s least = std::numeric_limits<Zor32s>::min(), greatest = std::numeric_limits<Zor32s>::max();
  const Zor32s values[6] = {0, 1, -1, greatest, least, -greatest};
  const Zor32u expected[6] = {0, 1, 0x80000001u, 0x7fffffffu, 0x80000000u, 0xffffffffu};
  for (int length = 1; length <= 30; ++length) {
    std::vector<Zor32s> image(80, -5);
    for (int y = 0; y < 2; ++y)
      for (int i = 0; i < length; ++i) image[static_cast<std::size_t>(40 * y + i)] = values[(i + y) % 6];
    ASSERT_EQ(zoriComplement_32s_C1IR(image.data(), 160, {length, 2}), ZorOk);
    for (int y = 0; y < 2; ++y)
      for (int i = 0; i < 40; ++i) {
        const auto x = static_cast<Zor32u>(image[static_cast<std::size_t>(40 * y + i)]);
        ASSERT_EQ(x, i < length ? expected[(i + y) % 6] : static_cast<Zor32u>(-5)) << length << ' ' << i;
      }
  }
}

TEST(DotProdCol, SumsInTheOrderOfTheRows)
{
  for (const int length : {1, 3, 4, 17, 2047, 2048, 5001}) {
    constexpr int count = 7;
    std::vector<std::vector<float>> rows(count, std::vector<float>(static_cast<std::size_t>(length)));
    std::mt19937 random(static_cast<unsigned>(length));
    std::uniform_real_distribution<float> number(-100, 100);
    float weights[count];
    const float* pointers[count];
    for (std::size_t i = 0; i < count; ++i) {
      weights[i] = number(random);
      for (float& x : rows[i]) x = number(random);
      pointers[i] = rows[i].data();
    }
    for (int end = 1; end <= count; ++end) { // the row behind the last one is null, once within the count
      if (end < count) pointers[end] = nullptr;
      std::vector<float> dst(static_cast<std::size_t>(length) + 1, 7.0f);
      const ZorStatus status = end < count ? ZorErrNullPtr : ZorOk;
      ASSERT_EQ(zoriDotProdCol_32f_L2(pointers, weights, dst.data(), count, length), status);
      for (std::size_t j = 0; j < static_cast<std::size_t>(length); ++j) {
        float sum = weights[0] * rows[0][j];
        for (std::size_t i = 1; i < static_cast<std::size_t>(end); ++i) sum = sum + weights[i] * rows[i][j];
        ASSERT_EQ(dst[j], sum) << length << ' ' << end;
      }
      ASSERT_EQ(dst.back(), 7.0f);
      if (end < count) pointers[end] = rows[static_cast<std::size_t>(end)].data();
    }
  }
}

TEST(DotProdCol, ChecksItsArguments)
{
  const float row[4] = {1, 2, 3, 4}, weights[2] = {2, 3};
  const float *rows[2] = {row, row}, *none[2] = {nullptr, row};
  float dst[4] = {9, 9, 9, 9};
  EXPECT_EQ(zoriDotProdCol_32f_L2(nullptr, weights, dst, 0, 0), ZorErrNullPtr);
  EXPECT_EQ(zoriDotProdCol_32f_L2(rows, nullptr, dst, 2, 4), ZorErrNullPtr);
  EXPECT_EQ(zoriDotProdCol_32f_L2(rows, weights, nullptr, 2, 4), ZorErrNullPtr);
  EXPECT_EQ(zoriDotProdCol_32f_L2(none, weights, dst, 2, 0), ZorErrSize);
  EXPECT_EQ(zoriDotProdCol_32f_L2(none, weights, dst, 0, 4), ZorErrSize);
  EXPECT_EQ(zoriDotProdCol_32f_L2(none, weights, dst, 2, 4), ZorErrNullPtr);
  for (const float x : dst) EXPECT_EQ(x, 9);
}
