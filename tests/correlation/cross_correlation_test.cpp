// Cross-correlation and square distance against double precision: extents, measures, types, layouts; the sizes at which
// ways of computing change; windows without any contrast; samples that are no numbers.
#include "reference.h"
#include "zori/correlation.h"

#include <gtest/gtest.h>

#include <omp.h>

using namespace correlation;

extern "C" void zoriTestShareAllWork(int on);

namespace {

struct Layout {
  const char* name;
  int channels, processed;
};
constexpr Layout layouts[] = {{"C1", 1, 1}, {"C3", 3, 3}, {"C4", 4, 4}, {"AC4", 4, 3}};

template <class T, class D> using Match = ZorStatus (*)(const T*, int, ZorImgSize, const T*, int, ZorImgSize, D*, int);
using MatchSfs = ZorStatus (*)(const Zor8u*, int, ZorImgSize, const Zor8u*, int, ZorImgSize, Zor8u*, int, int);

// [extent][measure][layout]
template <class F> struct Forms {
  F norm[4], level[4], distance[4];
  F of(Measure m, int layout) const
  {
    return m == Measure::Norm ? norm[layout] : m == Measure::Level ? level[layout] : distance[layout];
  }
};
#define LAYOUTS(name, suffix)                                                                                          \
  {                                                                                                                    \
    name##_C1##suffix, name##_C3##suffix, name##_C4##suffix, name##_AC4##suffix                                        \
  }
#define FORMS(extent, type, suffix)                                                                                    \
  {                                                                                                                    \
    LAYOUTS(zoriCrossCorr##extent##_Norm_##type, suffix), LAYOUTS(zoriCrossCorr##extent##_NormLevel_##type, suffix),   \
      LAYOUTS(zoriSqrDistance##extent##_Norm_##type, suffix)                                                           \
  }
#define EXTENTS(type, suffix)                                                                                          \
  {                                                                                                                    \
    FORMS(Full, type, suffix), FORMS(Same, type, suffix), FORMS(Valid, type, suffix)                                   \
  }
const Forms<Match<Zor32f, Zor32f>> forms32f[] = EXTENTS(32f, R);
const Forms<Match<Zor8u, Zor32f>> forms8u32f[] = EXTENTS(8u32f, R);
const Forms<Match<Zor8s, Zor32f>> forms8s32f[] = EXTENTS(8s32f, R);
const Forms<Match<Zor16u, Zor32f>> forms16u32f[] = EXTENTS(16u32f, R);
const Forms<MatchSfs> forms8u[] = EXTENTS(8u, RSfs);

template <class T> const auto& formsOf()
{
  if constexpr (std::is_same_v<T, Zor32f>) return forms32f;
  else if constexpr (std::is_same_v<T, Zor8u>) return forms8u32f;
  else if constexpr (std::is_same_v<T, Zor8s>) return forms8s32f;
  else return forms16u32f;
}
template <class T> constexpr double floorFor = std::is_floating_point_v<T> ? 0.0005f : 1.0;

std::string describe(const Layout& l, Extent e, Measure m, ZorImgSize s, ZorImgSize t)
{
  return std::string(l.name) + " extent " + std::to_string(static_cast<int>(e)) + " measure " +
         std::to_string(static_cast<int>(m)) + " " + std::to_string(s.width) + "x" + std::to_string(s.height) + " by " +
         std::to_string(t.width) + "x" + std::to_string(t.height);
}

// Errors come from the transform: they follow the size of all samples of a tile and of the template. A quarter is cut
// out of the source, so that there is a perfect match.
template <class T> void checkMatch(ZorImgSize s, ZorImgSize t, int layout, Extent extent, Measure measure)
{
  const Layout& l = layouts[layout];
  SCOPED_TRACE(describe(l, extent, measure, s, t));
  TestImage<T> src(s.width, s.height, l.channels), tpl(t.width, t.height, l.channels);
  fillWithNoise(src, static_cast<unsigned>(s.width * 31 + t.width));
  fillWithNoise(tpl, 7);
  const ZorImgPoint match = {(s.width - t.width) / 2, (s.height - t.height) / 3};
  tpl.fill([&](int x, int y, int c) { return src.get(x + match.x, y + match.y, c); });
  const ZorImgSize size = sizeOf(extent, s, t);
  const ZorImgPoint origin = originOf(extent, t);
  TestImage<Zor32f> dst(size.width, size.height, l.channels);
  const auto before = dst.all();
  ASSERT_EQ(formsOf<T>()[static_cast<int>(extent)].of(measure, layout)(src.data(), src.step, s, tpl.data(), tpl.step, t,
                                                                       dst.data(), dst.step),
            ZorOk);
  TestImage<Zor32f> untouched(size.width, size.height, l.channels);
  for (int c = 0; c < l.channels; ++c) {
    if (c >= l.processed) {
      for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) {
          const Zor32f a = dst.get(x, y, c), b = untouched.get(x, y, c);
          ASSERT_EQ(std::memcmp(&a, &b, sizeof a), 0) << "alpha at " << x << "," << y;
        }
      continue;
    }
    const Plane source(src, c), tplPlane(tpl, c);
    const double noise = 4e-7 * std::sqrt(source.energy() * tplPlane.energy());
    for (int y = 0; y < size.height; ++y)
      for (int x = 0; x < size.width; ++x) {
        const Outcome o = measured(source, tplPlane, x + origin.x, y + origin.y, measure, floorFor<T>);
        // squares of 32f samples are floats: an error in a window's sum, which tells where little is left of it
        const double ofSums = std::is_floating_point_v<T> ? 2e-6 * std::abs(o.value) / o.window : 0;
        const double ofDistance = measure == Measure::Distance ? 2 * noise / o.denominator : 0;
        ASSERT_NEAR(dst.get(x, y, c), o.value, noise / o.denominator + ofDistance + 2e-6 * std::abs(o.value) + ofSums)
          << x << "," << y << " channel " << c;
      }
  }
}

template <class T> class Matches : public testing::Test {};
using Types = testing::Types<Zor32f, Zor8u, Zor8s, Zor16u>;
TYPED_TEST_SUITE(Matches, Types);

constexpr Extent extents[] = {Extent::Full, Extent::Same, Extent::Valid};
constexpr Measure measures[] = {Measure::Norm, Measure::Level, Measure::Distance};

TYPED_TEST(Matches, AllFormsAgreeWithTheDefinition)
{
  for (int layout = 0; layout < 4; ++layout)
    for (Extent e : extents)
      for (Measure m : measures) checkMatch<TypeParam>({37, 29}, {8, 5}, layout, e, m);
}

// One tile, several, an odd number of them, tiles of less than a vector, templates as large as the source.
TYPED_TEST(Matches, Shapes)
{
  const struct {
    ZorImgSize s, t;
  } shapes[] = {{{1, 1}, {1, 1}},     {{40, 3}, {1, 1}},   {{5, 70}, {2, 3}},    {{70, 6}, {4, 6}},
                {{90, 12}, {9, 1}},   {{140, 9}, {20, 2}}, {{9, 140}, {2, 20}},  {{100, 90}, {33, 17}},
                {{23, 19}, {23, 19}}, {{131, 7}, {65, 3}}, {{150, 97}, {12, 10}}};
  for (const auto& [s, t] : shapes)
    for (Extent e : extents)
      for (Measure m : measures) checkMatch<TypeParam>(s, t, 0, e, m);
}

// The direct way and the tiles, on both sides of their border.
TYPED_TEST(Matches, DirectWay)
{
  for (int w : {1, 2, 10, 11, 20, 37})
    for (int results : {1, 3, 13, 27, 28, 33, 34, 35, 64, 65})
      checkMatch<TypeParam>({w + results - 1, 16}, {w, 7}, 0, Extent::Valid, Measure::Level);
  checkMatch<TypeParam>({60, 90}, {40, 5}, 0, Extent::Valid, Measure::Level); // several units of rows
}

TYPED_TEST(Matches, WithoutNormalisation)
{
  using T = TypeParam;
  Match<T, Zor32f> f;
  if constexpr (std::is_same_v<T, Zor32f>) f = zoriCrossCorrValid_32f_C1R;
  else if constexpr (std::is_same_v<T, Zor8u>) f = zoriCrossCorrValid_8u32f_C1R;
  else if constexpr (std::is_same_v<T, Zor8s>) f = zoriCrossCorrValid_8s32f_C1R;
  else f = zoriCrossCorrValid_16u32f_C1R;
  for (ZorImgSize t : {ZorImgSize{3, 4}, ZorImgSize{17, 9}, ZorImgSize{70, 50}}) {
    TestImage<T> src(70, 50), tpl(t.width, t.height);
    fillWithNoise(src, 3);
    fillWithNoise(tpl, 4);
    const ZorImgSize size = sizeOf(Extent::Valid, src.size, t);
    TestImage<Zor32f> dst(size.width, size.height);
    ASSERT_EQ(f(src.data(), src.step, src.size, tpl.data(), tpl.step, t, dst.data(), dst.step), ZorOk);
    const Plane s(src, 0), p(tpl, 0);
    const double noise = 4e-7 * std::sqrt(s.energy() * p.energy());
    for (int y = 0; y < size.height; ++y)
      for (int x = 0; x < size.width; ++x)
        ASSERT_NEAR(dst.get(x, y), measured(s, p, x, y, Measure::Plain, 0).value, noise);
  }
}

// ---- 8u results: scaled, rounded, saturated ----

TEST(ScaledMatches, RoundAndSaturate)
{
  const ZorImgSize s = {60, 40}, t = {12, 9};
  for (int layout = 0; layout < 4; ++layout)
    for (Extent e : extents)
      for (Measure m : measures)
        for (int scale : {-7, 0, -9, 40, -200}) {
          const Layout& l = layouts[layout];
          SCOPED_TRACE(describe(l, e, m, s, t) + " scale " + std::to_string(scale));
          TestImage<Zor8u> src(s.width, s.height, l.channels), tpl(t.width, t.height, l.channels);
          fillWithNoise(src, 5);
          tpl.fill([&](int x, int y, int c) { return src.get(x + 20, y + 11, c); });
          const ZorImgSize size = sizeOf(e, s, t);
          const ZorImgPoint origin = originOf(e, t);
          TestImage<Zor8u> dst(size.width, size.height, l.channels);
          ASSERT_EQ(forms8u[static_cast<int>(e)].of(m, layout)(src.data(), src.step, s, tpl.data(), tpl.step, t,
                                                               dst.data(), dst.step, scale),
                    ZorOk);
          for (int c = 0; c < l.channels; ++c) {
            const Plane source(src, c), p(tpl, c);
            for (int y = 0; y < size.height; y += 3)
              for (int x = 0; x < size.width; x += 2) {
                if (c >= l.processed) {
                  ASSERT_EQ(dst.get(x, y, c), 0xcd);
                  continue;
                }
                const double v = measured(source, p, x + origin.x, y + origin.y, m, 1).value * std::ldexp(1.0, -scale);
                const double least = std::abs(v) < 1e9 ? 1e-5 * std::abs(v) : 0;   // either neighbour of a half
                if (scale == -200 && std::abs(v) < std::ldexp(1.0, 185)) continue; // nothing but rounding errors
                const double low = std::clamp(std::nearbyint(v - 0.02 - least), 0.0, 255.0);
                const double high = std::clamp(std::nearbyint(v + 0.02 + least), 0.0, 255.0);
                ASSERT_TRUE(dst.get(x, y, c) >= low && dst.get(x, y, c) <= high)
                  << int(dst.get(x, y, c)) << " for " << v << " at " << x << "," << y;
              }
          }
        }
}

TEST(ScaledMatches, DirectWayRoundsHalvesUp)
{
  // a match is 1: 128 at a scale of -7, 256 and so 255 at -8, and 0.5, which goes up, at 1
  TestImage<Zor8u> src(20, 16), dst(9, 9);
  fillWithNoise(src, 9);
  const Zor8u* const tpl = src.data() + 4 * src.step + 3;
  const struct {
    int scale, value;
  } cases[] = {{-7, 128}, {-8, 255}, {0, 1}, {1, 1}, {2, 0}, {1 << 30, 0}, {-(1 << 30), 255}};
  for (const auto& [scale, value] : cases) {
    ASSERT_EQ(zoriCrossCorrValid_NormLevel_8u_C1RSfs(src.data(), src.step, src.size, tpl, src.step, {12, 8}, dst.data(),
                                                     dst.step, scale),
              ZorOk);
    EXPECT_EQ(dst.get(3, 4), value) << scale;
  }
}

// ---- What a picture may hold ----

// A scene with slopes, edges, texture and large regions of one value, one of them with a pixel here and there that
// differs by one.
TestImage<Zor8u> naturalScene(int width, int height)
{
  TestImage<Zor8u> image(width, height);
  Noise noise(21);
  image.fill([&](int x, int y, int) {
    if (y < height / 3) return x < width / 2 ? 255.0 : 255.0 - (noise.bits() % 300 == 0); // a clipped sky
    if (x > width * 3 / 4 && y > height * 3 / 4) return 0.0;                              // a shadow
    if ((x - width / 3) * (x - width / 3) + (y - height / 2) * (y - height / 2) < height * height / 30) return 181.0;
    return 90 + 50 * std::sin(x * 0.05) * std::cos(y * 0.07) + 40 * noise.uniform();
  });
  return image;
}

TEST(Accuracy, Level8uInFlatRegions)
{
  TestImage<Zor8u> src = naturalScene(300, 260);
  for (ZorImgSize t :
       {ZorImgSize{7, 5}, ZorImgSize{16, 16}, ZorImgSize{33, 30}, ZorImgSize{65, 47}, ZorImgSize{120, 90}}) {
    SCOPED_TRACE(std::to_string(t.width) + "x" + std::to_string(t.height));
    for (ZorImgPoint from : {ZorImgPoint{40, 120}, ZorImgPoint{150, 70}}) {
      TestImage<Zor8u> tpl(t.width, t.height);
      tpl.fill([&](int x, int y, int) { return src.get(x + from.x, y + from.y); });
      for (Extent e : {Extent::Full, Extent::Valid}) {
        const ZorImgSize size = sizeOf(e, src.size, t);
        const ZorImgPoint origin = originOf(e, t);
        TestImage<Zor32f> dst(size.width, size.height);
        ASSERT_EQ(forms8u32f[static_cast<int>(e)].level[0](src.data(), src.step, src.size, tpl.data(), tpl.step, t,
                                                           dst.data(), dst.step),
                  ZorOk);
        const Plane s(src, 0), p(tpl, 0);
        double worst = 0;
        for (int y = 0; y<size.height; y += t.width> 30 ? 17 : 5)
          for (int x = 0; x<size.width; x += t.width> 30 ? 7 : 3) {
            const double exact = measured(s, p, x + origin.x, y + origin.y, Measure::Level, 1).value;
            worst = std::max(worst, std::abs(dst.get(x, y) - exact));
          }
        EXPECT_LT(worst, 3e-4) << from.x << "," << from.y << " extent " << static_cast<int>(e);
      }
    }
  }
}

// Pictures of full contrast with lights and shadows clipped to large flat regions, here and there a sample off by one:
// windows that hold one or a few of those, under templates of all sizes.
template <class T> class NearlyFlat : public testing::Test {};
using IntegerTypes = testing::Types<Zor8u, Zor8s, Zor16u>;
TYPED_TEST_SUITE(NearlyFlat, IntegerTypes);

TYPED_TEST(NearlyFlat, WindowsOfClippedScenes)
{
  using T = TypeParam;
  const auto sample = [](int v) { return sizeof(T) == 2 ? 257 * v : std::is_signed_v<T> ? v - 128 : v; };
  TestImage<T> src(420, 360);
  Noise noise(77);
  src.fill([&](int x, int y, int) {
    const double v = 128 + 320 * std::sin(x * 0.021 + y * 0.004) * std::cos(y * 0.017) + 8 * noise.uniform();
    const int off = noise.bits() % 900 == 0;
    return sample(v >= 255 ? 255 - off : v <= 0 ? off : static_cast<int>(v));
  });
  const Plane s(src, 0);
  for (ZorImgSize t : {ZorImgSize{9, 6}, ZorImgSize{32, 32}, ZorImgSize{61, 64}, ZorImgSize{85, 30}}) {
    SCOPED_TRACE(std::to_string(t.width) + "x" + std::to_string(t.height));
    TestImage<T> tpl(t.width, t.height);
    tpl.fill([&](int x, int y, int) { return src.get(x + 146 - t.width / 2, y + 5); });
    const Plane p(tpl, 0);
    const ZorImgSize size = sizeOf(Extent::Valid, src.size, t);
    TestImage<Zor32f> dst(size.width, size.height), shared(size.width, size.height);
    const auto run = [&](const TestImage<Zor32f>& to) {
      ASSERT_EQ(formsOf<T>()[static_cast<int>(Extent::Valid)].level[0](src.data(), src.step, src.size, tpl.data(),
                                                                       tpl.step, t, to.data(), to.step),
                ZorOk);
    };
    run(dst);
    const int most = omp_get_max_threads();
    zoriTestShareAllWork(1);
    omp_set_num_threads(3);
    run(shared);
    omp_set_num_threads(most);
    zoriTestShareAllWork(0);
    EXPECT_EQ(dst.all(), shared.all());

    int flat = 0;
    for (int k = 0; k < 3000; ++k) {
      const int x = static_cast<int>(noise.bits() % static_cast<unsigned>(size.width));
      const int y = static_cast<int>(noise.bits() % static_cast<unsigned>(size.height));
      int unlike = 0;
      for (int j = 0; j < t.height && unlike <= 40; ++j)
        for (int i = 0; i < t.width; ++i) unlike += s(x + i, y + j) != s(x, y);
      if (unlike > 40 && k % 50 != 0) continue;
      if (unlike > 0 && unlike <= 40) ++flat;
      ASSERT_NEAR(dst.get(x, y), measured(s, p, x, y, Measure::Level, 1).value, 1.5e-4)
        << x << "," << y << " " << unlike;
    }
    EXPECT_GT(flat, 20);
  }
}

// A large template, a scene half of which is clipped: two more samples off by one in a window that is flat otherwise.
TEST(NearlyFlat8u, LargeTemplate)
{
  const ZorImgSize s = {500, 420}, t = {200, 190}, size = sizeOf(Extent::Valid, s, t);
  TestImage<Zor8u> src(s.width, s.height), tpl(t.width, t.height);
  Noise noise(5);
  src.fill(
    [&](int x, int y, int) { return x < 260 && y < 250 ? 255 - (x * 7 + y * 3 == 1500) : noise.bits() % 2 * 255; });
  tpl.fill([&](int x, int y, int) { return src.get(x + 290, y + 120); });
  TestImage<Zor32f> dst(size.width, size.height);
  ASSERT_EQ(
    zoriCrossCorrValid_NormLevel_8u32f_C1R(src.data(), src.step, s, tpl.data(), tpl.step, t, dst.data(), dst.step),
    ZorOk);
  const Plane p(src, 0), q(tpl, 0);
  for (int y = 0; y < 60; y += 6)
    for (int x = 0; x < 60; x += 7)
      ASSERT_NEAR(dst.get(x, y), measured(p, q, x, y, Measure::Level, 1).value, 1e-6) << x << "," << y;
}

// Window sums of 16u are exact where doubles could not hold them.
TEST(NearlyFlat16u, OneSampleIsOff)
{
  const ZorImgSize s = {380, 330}, t = {300, 310}, size = sizeOf(Extent::Valid, s, t);
  TestImage<Zor16u> src(s.width, s.height), tpl(t.width, t.height);
  src.fill([&](int x, int y, int) { return x == 150 && y == 160 ? 65534 : 65535; });
  fillWithNoise(tpl, 6);
  TestImage<Zor32f> dst(size.width, size.height);
  ASSERT_EQ(
    zoriCrossCorrValid_NormLevel_16u32f_C1R(src.data(), src.step, s, tpl.data(), tpl.step, t, dst.data(), dst.step),
    ZorOk);
  const Plane p(tpl, 0);
  const double mean = p.sum() / (300 * 310), norm = std::sqrt(p.energy() - mean * p.sum());
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x) {
      const double exact = -(p(150 - x, 160 - y) - mean) / norm;
      ASSERT_NEAR(dst.get(x, y), exact, 1e-4 * std::abs(exact) + 1e-9) << x << "," << y;
    }
}

// The floor of denominators: a flat window gives a small number, a flat template too.
TEST(Floor, WithoutContrast)
{
  for (int value : {0, 1, 200, 255}) {
    TestImage<Zor8u> src(90, 60), tpl(9, 9);
    src.fill([&](int, int, int) { return value; });
    fillWithNoise(tpl, 2);
    TestImage<Zor32f> dst(82, 52);
    ASSERT_EQ(zoriCrossCorrValid_NormLevel_8u32f_C1R(src.data(), src.step, src.size, tpl.data(), tpl.step, tpl.size,
                                                     dst.data(), dst.step),
              ZorOk);
    for (int y = 0; y < 52; ++y)
      for (int x = 0; x < 82; ++x) ASSERT_NEAR(dst.get(x, y), 0, 2e-4);
    ASSERT_EQ(zoriCrossCorrValid_NormLevel_8u32f_C1R(tpl.data(), tpl.step, tpl.size, src.data(), src.step, {3, 3},
                                                     dst.data(), dst.step),
              ZorOk);
    for (int y = 0; y < 7; ++y)
      for (int x = 0; x < 7; ++x) ASSERT_NEAR(dst.get(x, y), 0, 1e-3);
  }
}

// An integer window of one value gives exactly 0, directly and in tiles.
TEST(Floor, FlatIntegerWindowsAreZero)
{
  for (int width : {40, 90})
    for (unsigned value = 1; value < 256; value += 11) {
      TestImage<Zor8u> src(width, 40), tpl(13, 11);
      TestImage<Zor32f> dst(width - 12, 30);
      src.fill([&](int, int, int) { return value; });
      fillWithNoise(tpl, value);
      ASSERT_EQ(zoriCrossCorrValid_NormLevel_8u32f_C1R(src.data(), src.step, src.size, tpl.data(), tpl.step, tpl.size,
                                                       dst.data(), dst.step),
                ZorOk);
      for (int y = 0; y < 30; ++y)
        for (int x = 0; x < width - 12; ++x) ASSERT_EQ(dst.get(x, y), 0) << width << " " << value;
    }
}

TEST(Floor, ZeroTemplateOfDistance)
{
  TestImage<Zor8u> src(40, 30), tpl(5, 6);
  fillWithNoise(src, 1);
  tpl.fill([](int, int, int) { return 0; });
  TestImage<Zor32f> dst(36, 25);
  ASSERT_EQ(zoriSqrDistanceValid_Norm_8u32f_C1R(src.data(), src.step, src.size, tpl.data(), tpl.step, tpl.size,
                                                dst.data(), dst.step),
            ZorOk);
  const Plane s(src, 0);
  for (int y = 0; y < 25; ++y)
    for (int x = 0; x < 36; ++x) {
      double q = 0;
      for (int j = 0; j < 6; ++j)
        for (int i = 0; i < 5; ++i) q += s(x + i, y + j) * s(x + i, y + j);
      ASSERT_NEAR(dst.get(x, y), std::sqrt(q), 1e-3 * std::sqrt(q));
    }
}

// A tile with an infinity or a NaN does not spoil another, nor do large samples the small ones of the tile beside.
TEST(Special, TilesKeepApart)
{
  const ZorImgSize s = {230, 20}, t = {6, 5}; // tiles of 27 columns and 12 rows of results
  TestImage<Zor32f> clean(s.width, s.height), tpl(t.width, t.height), dst(225, 16), expected(225, 16);
  fillWithNoise(clean, 30);
  fillWithNoise(tpl, 31);
  const auto run = [&](const TestImage<Zor32f>& src, const TestImage<Zor32f>& to) {
    ASSERT_EQ(zoriCrossCorrValid_32f_C1R(src.data(), src.step, s, tpl.data(), tpl.step, t, to.data(), to.step), ZorOk);
  };
  run(clean, expected);
  for (float odd : {INFINITY, -INFINITY, NAN, 3e38f, 1e30f}) {
    TestImage<Zor32f> src(s.width, s.height);
    src.fill([&](int x, int y, int) { return x == 4 && y == 7 ? odd : clean.get(x, y); });
    run(src, dst);
    for (int y = 0; y < 16; ++y)
      for (int x = 27; x < 225; ++x)
        ASSERT_NEAR(dst.get(x, y), expected.get(x, y), 1e-5) << odd << " " << x << "," << y;
  }
}

TEST(Special, TeamsAgree)
{
  const int most = omp_get_max_threads();
  zoriTestShareAllWork(1);
  TestImage<Zor32f> src(150, 130), tpl(9, 12), one(142, 119), many(142, 119);
  fillWithNoise(src, 8);
  src.put(70, 60, 0, NAN);
  fillWithNoise(tpl, 9);
  for (int threads : {1, 2, 3, 7}) {
    omp_set_num_threads(threads);
    const auto& to = threads == 1 ? one : many;
    ASSERT_EQ(zoriCrossCorrValid_NormLevel_32f_C1R(src.data(), src.step, src.size, tpl.data(), tpl.step, tpl.size,
                                                   to.data(), to.step),
              ZorOk);
    if (threads > 1) {
      EXPECT_EQ(one.all(), many.all());
    }
  }
  omp_set_num_threads(most);
  zoriTestShareAllWork(0);
}

// Sums of products and of squares beyond 32 bits, on both ways.
TEST(Special, LargeTemplates)
{
  for (ZorImgSize s : {ZorImgSize{270, 262}, ZorImgSize{33100, 3}}) {
    const ZorImgSize t = s.height == 3 ? ZorImgSize{33080, 2} : ZorImgSize{256, 260};
    TestImage<Zor8u> src(s.width, s.height), tpl(t.width, t.height);
    Noise noise(4);
    src.fill([&](int, int, int) { return 255 - noise.bits() % 3; });
    tpl.fill([&](int x, int y, int) { return src.get(x + 6, y + 1); });
    const ZorImgSize size = sizeOf(Extent::Valid, s, t);
    TestImage<Zor32f> dst(size.width, size.height);
    ASSERT_EQ(
      zoriCrossCorrValid_NormLevel_8u32f_C1R(src.data(), src.step, s, tpl.data(), tpl.step, t, dst.data(), dst.step),
      ZorOk);
    EXPECT_NEAR(dst.get(6, 1), 1, 1e-5);
    EXPECT_NEAR(dst.get(2, 0), measured(Plane(src, 0), Plane(tpl, 0), 2, 0, Measure::Level, 1).value, 2e-5);
  }
}

// Window sums that no longer fit 32 bits, in tiles: the same numbers as 8u and as 16u.
TEST(Special, LargeTemplatesInTiles)
{
  const ZorImgSize s = {330, 250}, t = {190, 180}, size = sizeOf(Extent::Valid, s, t);
  TestImage<Zor8u> src(s.width, s.height), tpl(t.width, t.height);
  TestImage<Zor16u> src16(s.width, s.height), tpl16(t.width, t.height);
  Noise noise(40);
  src.fill([&](int x, int y, int) { return x < 200 && y < 190 ? 250 : 200 + noise.bits() % 56; });
  tpl.fill([&](int x, int y, int) { return src.get(x + 60, y + 33); });
  src16.fill([&](int x, int y, int) { return 257 * src.get(x, y); });
  tpl16.fill([&](int x, int y, int) { return 257 * tpl.get(x, y); });
  TestImage<Zor32f> dst(size.width, size.height), dst16(size.width, size.height);
  ASSERT_EQ(
    zoriCrossCorrValid_NormLevel_8u32f_C1R(src.data(), src.step, s, tpl.data(), tpl.step, t, dst.data(), dst.step),
    ZorOk);
  ASSERT_EQ(zoriCrossCorrValid_NormLevel_16u32f_C1R(src16.data(), src16.step, s, tpl16.data(), tpl16.step, t,
                                                    dst16.data(), dst16.step),
            ZorOk);
  const Plane p(src, 0), q(tpl, 0);
  for (int y = 0; y < size.height; y += 10)
    for (int x = 0; x < size.width; x += 20) {
      const double exact = measured(p, q, x, y, Measure::Level, 1).value;
      ASSERT_NEAR(dst.get(x, y), exact, 1e-5) << x << "," << y;
      ASSERT_NEAR(dst16.get(x, y), exact, x < 10 && y < 10 ? 3e-4 : 1e-5) << x << "," << y; // another floor
    }
  EXPECT_NEAR(dst.get(60, 33), 1, 1e-5);
}

} // namespace
