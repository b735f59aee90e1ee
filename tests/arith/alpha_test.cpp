// Alpha compositing, premultiplication and colour keys against plain loops over pixels.
#include "support/numbers.h"
#include "zori/arith.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <type_traits>
#include <vector>

namespace {

template <class T> constexpr unsigned full = static_cast<T>(~T(0));

template <class T> unsigned product(unsigned a, unsigned b)
{
  constexpr unsigned bits = 8 * sizeof(T);
  const unsigned t = a * b;
  return (t + (t >> bits) + 1) >> bits;
}

// The operator on premultiplied values.
template <class T> unsigned composed(int op, unsigned p1, unsigned a1, unsigned p2, unsigned a2)
{
  const unsigned c1 = full<T> - a1, c2 = full<T> - a2;
  unsigned r = 0;
  switch (op % 6) {
  case 0: r = p1 + product<T>(c1, p2); break;
  case 1: r = product<T>(p1, a2); break;
  case 2: r = product<T>(p1, c2); break;
  case 3: r = product<T>(p1, a2) + product<T>(p2, c1); break;
  case 4: r = product<T>(p1, c2) + product<T>(p2, c1); break;
  case 5: r = p1 + p2; break;
  }
  return std::min(r, full<T>);
}
template <class T> T sample(int op, unsigned s1, unsigned a1, unsigned s2, unsigned a2)
{
  return static_cast<T>(op < 6 ? composed<T>(op, product<T>(s1, a1), a1, product<T>(s2, a2), a2)
                               : composed<T>(op, s1, a1, s2, a2));
}

// Noise with many samples at the ends of the range.
template <class T> std::vector<T> noise(size_t n, unsigned seed)
{
  std::vector<T> x(n);
  for (auto& v : x) {
    zoritest::nextNoise(seed);
    v = static_cast<T>(seed >> 28 == 0 ? 0 : seed >> 28 == 1 ? full<T> : seed >> 12);
  }
  return x;
}

constexpr int width = 131, height = 3, step4 = width * 4 + 4;

template <class T> struct Functions;
#define FUNCTIONS(type)                                                                                                \
  template <> struct Functions<Zor##type> {                                                                            \
    static constexpr auto compAC1 = zoriAlphaComp_##type##_AC1R, compAC4 = zoriAlphaComp_##type##_AC4R;                \
    static constexpr auto compAP4 = zoriAlphaComp_##type##_AP4R;                                                       \
    static constexpr auto compC1 = zoriAlphaCompC_##type##_C1R, compC3 = zoriAlphaCompC_##type##_C3R;                  \
    static constexpr auto compC4 = zoriAlphaCompC_##type##_C4R, compCAC4 = zoriAlphaCompC_##type##_AC4R;               \
    static constexpr auto compCAP4 = zoriAlphaCompC_##type##_AP4R;                                                     \
    static constexpr auto premulAC4 = zoriAlphaPremul_##type##_AC4R;                                                   \
    static constexpr auto premulAC4I = zoriAlphaPremul_##type##_AC4IR;                                                 \
    static constexpr auto premulAP4 = zoriAlphaPremul_##type##_AP4R;                                                   \
    static constexpr auto premulAP4I = zoriAlphaPremul_##type##_AP4IR;                                                 \
    static constexpr auto premulCC1 = zoriAlphaPremulC_##type##_C1R, premulCC3 = zoriAlphaPremulC_##type##_C3R;        \
    static constexpr auto premulCC4 = zoriAlphaPremulC_##type##_C4R, premulCAC4 = zoriAlphaPremulC_##type##_AC4R;      \
    static constexpr auto premulCAP4 = zoriAlphaPremulC_##type##_AP4R;                                                 \
  };
FUNCTIONS(8u)
FUNCTIONS(16u)

template <class T> class Alpha : public testing::Test {
protected:
  static constexpr int step = step4 * static_cast<int>(sizeof(T));
  std::vector<T> a = noise<T>(step4 * height, 1), b = noise<T>(step4 * height, 2), before = noise<T>(step4 * height, 3);
  std::vector<T> dst = before, expected = before;
  static constexpr ZorImgSize roi = {width, height};

  // expected[i] = f(i) for the elements of the first n of each row
  template <class F> void expect(int perRow, F f)
  {
    expected = before;
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < perRow; ++x) {
        const size_t i = static_cast<size_t>(y * step4 + x);
        expected[i] = f(i, x);
      }
  }
  void compare(const char* what, int op)
  {
    ASSERT_EQ(dst, expected) << what << ' ' << op;
    dst = before;
  }
  struct Planes {
    T* p[4];
    explicit Planes(std::vector<T>& v)
    {
      for (int k = 0; k < 4; ++k) p[k] = v.data() + k * (width + 1);
    }
    const T* const* read() const { return p; }
  };
};
using Samples = testing::Types<Zor8u, Zor16u>;
TYPED_TEST_SUITE(Alpha, Samples);

// Planes give what pixels of four channels give, in the plane of alpha too, in rows of any length.
template <class T, class Planes, class Pixels> void premultipliedPlanes(Planes planes, Pixels pixels)
{
  for (const ZorImgSize size : {ZorImgSize{1, 1}, ZorImgSize{33, 5}, ZorImgSize{5000, 3}, ZorImgSize{70000, 2}}) {
    const std::size_t n = static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
    std::vector<T> src[4], dst[4], whole(4 * n), expected(4 * n);
    for (std::size_t c = 0; c < 4; ++c) {
      dst[c].assign(n, 7);
      for (std::size_t i = 0; i < n; ++i) {
        src[c].push_back(static_cast<T>(i * 40503 + c * 977 + i / 256));
        whole[4 * i + c] = src[c][i];
      }
    }
    const T* const from[] = {src[0].data(), src[1].data(), src[2].data(), src[3].data()};
    T* const to[] = {dst[0].data(), dst[1].data(), dst[2].data(), dst[3].data()};
    const int step = size.width * static_cast<int>(sizeof(T));
    ASSERT_EQ(planes(from, step, to, step, size), ZorOk);
    ASSERT_EQ(pixels(whole.data(), 4 * step, expected.data(), 4 * step, size), ZorOk);
    for (std::size_t i = 0; i < 4 * n; ++i) ASSERT_EQ(dst[i % 4][i / 4], expected[i]) << i << " of " << size.width;
  }
}
TEST(Alpha, PremultipliedPlanesAreAsPixels)
{
  premultipliedPlanes<Zor8u>(zoriAlphaPremul_8u_AP4R, zoriAlphaPremul_8u_AC4R);
  premultipliedPlanes<Zor16u>(zoriAlphaPremul_16u_AP4R, zoriAlphaPremul_16u_AC4R);
}

TYPED_TEST(Alpha, Composition)
{
  using T = TypeParam;
  using F = Functions<T>;
  auto &a = this->a, &b = this->b, &dst = this->dst;
  const int step = this->step;
  const auto roi = this->roi;
  for (int op = 0; op < 12; ++op) {
    const auto type = static_cast<ZorAlphaOp>(op);
    ASSERT_EQ(F::compAC1(a.data(), step, b.data(), step, dst.data(), step, roi, type), ZorOk);
    this->expect(width, [&](size_t i, int) { return static_cast<T>(composed<T>(op, a[i], a[i], b[i], b[i])); });
    this->compare("AC1", op);

    ASSERT_EQ(F::compAC4(a.data(), step, b.data(), step, dst.data(), step, roi, type), ZorOk);
    this->expect(width * 4, [&](size_t i, int x) {
      const size_t alpha = i - static_cast<size_t>(x % 4) + 3;
      return x % 4 == 3 ? static_cast<T>(composed<T>(op, a[i], a[i], b[i], b[i]))
                        : sample<T>(op, a[i], a[alpha], b[i], b[alpha]);
    });
    this->compare("AC4", op);

    typename Alpha<T>::Planes pa(a), pb(b), pd(dst);
    ASSERT_EQ(F::compAP4(pa.read(), step, pb.read(), step, pd.p, step, roi, type), ZorOk);
    this->expect(step4, [&](size_t i, int x) {
      const int plane = x / (width + 1);
      if (x % (width + 1) == width) return this->before[i];
      const size_t alpha = i + static_cast<size_t>((3 - plane) * (width + 1));
      return plane == 3 ? static_cast<T>(composed<T>(op, a[i], a[i], b[i], b[i]))
                        : sample<T>(op, a[i], a[alpha], b[i], b[alpha]);
    });
    this->compare("AP4", op);

    for (unsigned alpha1 : {0u, 1u, full<T> / 3, full<T>})
      for (unsigned alpha2 : {0u, full<T> / 2, full<T>}) {
        const T c1 = static_cast<T>(alpha1), c2 = static_cast<T>(alpha2);
        const auto constant = [&](size_t i, int) { return sample<T>(op, a[i], alpha1, b[i], alpha2); };
        ASSERT_EQ(F::compC1(a.data(), step, c1, b.data(), step, c2, dst.data(), step, roi, type), ZorOk);
        this->expect(width, constant);
        this->compare("C1", op);
        ASSERT_EQ(F::compC3(a.data(), step, c1, b.data(), step, c2, dst.data(), step, roi, type), ZorOk);
        this->expect(width * 3, constant);
        this->compare("C3", op);
        ASSERT_EQ(F::compC4(a.data(), step, c1, b.data(), step, c2, dst.data(), step, roi, type), ZorOk);
        this->expect(width * 4, constant);
        this->compare("C4", op);
        ASSERT_EQ(F::compCAC4(a.data(), step, c1, b.data(), step, c2, dst.data(), step, roi, type), ZorOk);
        this->expect(width * 4, [&](size_t i, int x) { return x % 4 == 3 ? this->before[i] : constant(i, x); });
        this->compare("AC4 constant", op);
        pd = typename Alpha<T>::Planes(dst);
        ASSERT_EQ(F::compCAP4(pa.read(), step, c1, pb.read(), step, c2, pd.p, step, roi, type), ZorOk);
        this->expect(3 * (width + 1),
                     [&](size_t i, int x) { return x % (width + 1) == width ? this->before[i] : constant(i, x); });
        this->compare("AP4 constant", op);
      }
  }
}

TYPED_TEST(Alpha, Premultiplication)
{
  using T = TypeParam;
  using F = Functions<T>;
  auto &a = this->a, &dst = this->dst;
  const int step = this->step;
  const auto roi = this->roi;
  const auto pixel = [&](size_t i, int x) {
    return x % 4 == 3 ? a[i] : static_cast<T>(product<T>(a[i], a[i - static_cast<size_t>(x % 4) + 3]));
  };
  ASSERT_EQ(F::premulAC4(a.data(), step, dst.data(), step, roi), ZorOk);
  this->expect(width * 4, pixel);
  this->compare("AC4", 0);
  auto inPlace = a;
  ASSERT_EQ(F::premulAC4I(inPlace.data(), step, roi), ZorOk);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width * 4; ++x)
      ASSERT_EQ(inPlace[static_cast<size_t>(y * step4 + x)], pixel(static_cast<size_t>(y * step4 + x), x));

  typename Alpha<T>::Planes pa(a), pd(dst);
  ASSERT_EQ(F::premulAP4(pa.read(), step, pd.p, step, roi), ZorOk);
  const auto plane = [&](size_t i, int x) {
    const int k = x / (width + 1);
    if (x % (width + 1) == width) return this->before[i];
    return k == 3 ? a[i] : static_cast<T>(product<T>(a[i], a[i + static_cast<size_t>((3 - k) * (width + 1))]));
  };
  this->expect(step4, plane);
  this->compare("AP4", 0);
  inPlace = a;
  typename Alpha<T>::Planes pi(inPlace);
  ASSERT_EQ(F::premulAP4I(pi.p, step, roi), ZorOk);
  for (int x = 0; x < step4; ++x)
    if (x % (width + 1) != width) {
      ASSERT_EQ(inPlace[static_cast<size_t>(x)], plane(static_cast<size_t>(x), x));
    }

  for (unsigned alpha : {0u, 77u, full<T>}) {
    const T c = static_cast<T>(alpha);
    const auto colour = [&](size_t i, int) { return static_cast<T>(product<T>(a[i], alpha)); };
    ASSERT_EQ(F::premulCC1(a.data(), step, c, dst.data(), step, roi), ZorOk);
    this->expect(width, colour);
    this->compare("C1", 0);
    ASSERT_EQ(F::premulCC3(a.data(), step, c, dst.data(), step, roi), ZorOk);
    this->expect(width * 3, colour);
    this->compare("C3", 0);
    ASSERT_EQ(F::premulCC4(a.data(), step, c, dst.data(), step, roi), ZorOk);
    this->expect(width * 4, colour);
    this->compare("C4", 0);
    ASSERT_EQ(F::premulCAC4(a.data(), step, c, dst.data(), step, roi), ZorOk);
    this->expect(width * 4, [&](size_t i, int x) { return x % 4 == 3 ? c : colour(i, x); });
    this->compare("AC4 constant", 0);
    pd = typename Alpha<T>::Planes(dst);
    ASSERT_EQ(F::premulCAP4(pa.read(), step, c, pd.p, step, roi), ZorOk);
    this->expect(step4, [&](size_t i, int x) {
      return x % (width + 1) == width ? this->before[i] : x / (width + 1) == 3 ? c : colour(i, x);
    });
    this->compare("AP4 constant", 0);
  }
}

template <class T, class Call> void keyed(int channels, const T* key, Call call)
{
  for (int pixels : {1, 2, 5, 6, 7, 16, 17, 70}) {
    const size_t n = static_cast<size_t>(pixels * channels);
    std::vector<T> a(n), b(n), dst(n + 8, T(99));
    unsigned seed = static_cast<unsigned>(pixels);
    for (size_t i = 0; i < n; ++i) {
      zoritest::nextNoise(seed);
      a[i] = seed >> 30 ? key[i % static_cast<size_t>(channels)] : static_cast<T>(seed >> 8);
      b[i] = static_cast<T>(seed >> 16);
    }
    auto expected = dst;
    for (size_t i = 0; i < n; ++i) {
      const size_t first = i - i % static_cast<size_t>(channels);
      bool same = true;
      for (size_t k = 0; k < static_cast<size_t>(channels); ++k) same &= a[first + k] == key[k];
      expected[i] = same ? b[i] : a[i];
    }
    const int bytes = static_cast<int>(n * sizeof(T));
    ASSERT_EQ(call(a.data(), b.data(), dst.data(), bytes, ZorImgSize{pixels, 1}), ZorOk);
    ASSERT_EQ(dst, expected) << pixels;
    auto inFirst = a, inSecond = b;
    ASSERT_EQ(call(inFirst.data(), b.data(), inFirst.data(), bytes, ZorImgSize{pixels, 1}), ZorOk);
    ASSERT_EQ(call(a.data(), inSecond.data(), inSecond.data(), bytes, ZorImgSize{pixels, 1}), ZorOk);
    expected.resize(n);
    ASSERT_EQ(inFirst, expected);
    ASSERT_EQ(inSecond, expected);
  }
}

TEST(ColorKey, TheSecondImageShowsThrough){
#define KEYED(type)                                                                                                    \
  {                                                                                                                    \
    static const Zor##type key[4] = {200, 3, Zor##type(-1), 77};                                                       \
    keyed<Zor##type>(1, key, [](auto a, auto b, auto d, int s, ZorImgSize r) {                                         \
      return zoriCompColorKey_##type##_C1R(a, s, b, s, d, s, r, key[0]);                                               \
    });                                                                                                                \
    keyed<Zor##type>(3, key, [](auto a, auto b, auto d, int s, ZorImgSize r) {                                         \
      return zoriCompColorKey_##type##_C3R(a, s, b, s, d, s, r, key);                                                  \
    });                                                                                                                \
    keyed<Zor##type>(4, key, [](auto a, auto b, auto d, int s, ZorImgSize r) {                                         \
      return zoriCompColorKey_##type##_C4R(a, s, b, s, d, s, r, key);                                                  \
    });                                                                                                                \
  }
  KEYED(8u) KEYED(16u) KEYED(16s)}

TEST(ColorKey, ComposedElsewhere)
{
  const Zor8u key[4] = {9, 8, 7, 6};
  const Zor8u a[16] = {9, 8, 7, 6, 9, 8, 7, 5, 200, 100, 50, 0, 9, 8, 7, 6},
              b[16] = {1, 2, 3, 4, 50, 60, 70, 80, 250, 240, 230, 220, 5, 6, 7, 8};
  for (int op = 0; op < 6; ++op) {
    Zor8u dst[16] = {11, 11, 11, 11, 22, 22, 22, 22, 33, 33, 33, 33, 44, 44, 44, 44};
    ASSERT_EQ(zoriAlphaCompColorKey_8u_AC4R(a, 16, 120, b, 16, 77, dst, 16, {4, 1}, key, static_cast<ZorAlphaOp>(op)),
              ZorOk);
    for (int i = 0; i < 16; ++i) {
      const int expected = i % 4 == 3       ? 11 * (i / 4 + 1)
                           : i / 4 % 3 == 0 ? b[i]
                                            : sample<Zor8u>(op, a[i], 120, b[i], 77);
      EXPECT_EQ(dst[i], expected) << op << ' ' << i;
    }
  }
  Zor8u dst[16] = {};
  EXPECT_EQ(zoriAlphaCompColorKey_8u_AC4R(a, 16, 1, b, 16, 1, dst, 16, {4, 1}, key, ZorAlphaOverPremul),
            ZorErrAlphaType);
  EXPECT_EQ(zoriAlphaCompColorKey_8u_AC4R(a, 16, 1, b, 16, 1, dst, 16, {0, 1}, key, ZorAlphaOverPremul), ZorErrSize);
}

} // namespace
