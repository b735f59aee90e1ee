// Fixed kernels against the kernels as printed, applied pixel by pixel in exact integers; single precision with images
// of small whole numbers, whose sums are exact too.
#include "support/numbers.h"
#include "zori/filter.h"

#include "filter_image.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cfenv>
#include <functional>
#include <map>
#include <string>

using namespace filtertest;

#if defined(__GLIBC__) && !defined(__clang__)
#define COUNTS_REGIONS
#include <dlfcn.h>

// Stands before the OpenMP library's own entry, and counts the parallel regions that are begun.
static int regionsBegun = 0;
extern "C" void GOMP_parallel(void (*body)(void*), void* data, unsigned threads, unsigned flags)
{
  using Entry = void (*)(void (*)(void*), void*, unsigned, unsigned);
  static const auto next = reinterpret_cast<Entry>(dlsym(RTLD_NEXT, "GOMP_parallel"));
  ++regionsBegun;
  next(body, data, threads, flags);
}
#endif

extern "C" void zoriTestShareAllWork(int on);

namespace {

using Matrix = std::vector<int>; // row by row

Matrix product(std::initializer_list<int> vertical, std::initializer_list<int> horizontal)
{
  Matrix m;
  for (int v : vertical)
    for (int h : horizontal) m.push_back(v * h);
  return m;
}

Matrix centred(int side, int around, int centre)
{
  Matrix m(static_cast<size_t>(side * side), around);
  m[m.size() / 2] = centre;
  return m;
}

const std::map<std::string, Matrix> kernels = {
  {"Gauss33", {1, 2, 1, 2, 4, 2, 1, 2, 1}},
  {"Gauss55", {2, 7, 12, 7, 2, 7, 31, 52, 31, 7, 12, 52, 127, 52, 12, 7, 31, 52, 31, 7, 2, 7, 12, 7, 2}},
  {"Lowpass33", centred(3, 1, 1)},
  {"Lowpass55", centred(5, 1, 1)},
  {"Sharpen33", centred(3, -1, 16)},
  {"Hipass33", centred(3, -1, 8)},
  {"Hipass55", centred(5, -1, 24)},
  {"Laplace33", centred(3, -1, 8)},
  {"Laplace55", {-1, -3, -4, -3, -1, -3, 0, 6, 0, -3, -4, 6, 20, 6, -4, -3, 0, 6, 0, -3, -1, -3, -4, -3, -1}},
  {"PrewittHoriz33", {-1, -1, -1, 0, 0, 0, 1, 1, 1}},
  {"PrewittVert33", {1, 0, -1, 1, 0, -1, 1, 0, -1}},
  {"SobelHoriz33", {-1, -2, -1, 0, 0, 0, 1, 2, 1}},
  {"SobelVert33", {1, 0, -1, 2, 0, -2, 1, 0, -1}},
  {"ScharrHoriz33", {-3, -10, -3, 0, 0, 0, 3, 10, 3}},
  {"ScharrVert33", {-3, 0, 3, -10, 0, 10, -3, 0, 3}},
  {"SobelHoriz55", product({-1, -2, 0, 2, 1}, {1, 4, 6, 4, 1})},
  {"SobelVert55", product({1, 4, 6, 4, 1}, {1, 2, 0, -2, -1})},
  {"SobelHorizMask33", {-1, -2, -1, 0, 0, 0, 1, 2, 1}},
  {"SobelVertMask33", {1, 0, -1, 2, 0, -2, 1, 0, -1}},
  {"SobelHorizMask55", product({-1, -2, 0, 2, 1}, {1, 4, 6, 4, 1})},
  {"SobelVertMask55", product({1, 4, 6, 4, 1}, {1, 2, 0, -2, -1})},
  {"SobelHorizSecond33", product({1, -2, 1}, {1, 2, 1})},
  {"SobelVertSecond33", product({1, 2, 1}, {1, -2, 1})},
  {"SobelCross33", product({-1, 0, 1}, {1, 0, -1})},
  {"SobelHorizSecond55", product({1, 0, -2, 0, 1}, {1, 4, 6, 4, 1})},
  {"SobelVertSecond55", product({1, 4, 6, 4, 1}, {1, 0, -2, 0, 1})},
  {"SobelCross55", product({-1, -2, 0, 2, 1}, {1, 2, 0, -2, -1})},
};

long long roundHalfEven(long long t, int divisor) // divisor a power of two
{
  long long q = t / divisor, rest = t % divisor;
  if (rest < 0) --q, rest += divisor;
  return q + (2 * rest > divisor || (2 * rest == divisor && q % 2 != 0));
}

template <class D> D saturate(long long x) { return zoritest::saturated<D>(static_cast<double>(x)); }

// What becomes of the exact sum t.
template <class D> D finish(const std::string& name, long long t)
{
  const bool gauss3 = name == "Gauss33", gauss5 = name == "Gauss55", low3 = name == "Lowpass33",
             low5 = name == "Lowpass55";
  if constexpr (std::is_same_v<D, Zor32f>) {
    const float f = static_cast<float>(t);
    return f * (gauss3                ? 0.0625f
                : gauss5              ? 1.0f / 571
                : low3                ? 0.11111111f
                : low5                ? 0.04f
                : name == "Sharpen33" ? 0.125f
                                      : 1.0f);
  } else {
    if (gauss3) return saturate<D>(roundHalfEven(t, 16));
    if (name == "Sharpen33") return saturate<D>(roundHalfEven(t, 8));
    if (gauss5) {
      if (std::is_same_v<D, Zor8u>) return saturate<D>(std::lrintf(static_cast<float>(t) * (1.0f / 571)));
      if (std::is_same_v<D, Zor16u>) return static_cast<D>((static_cast<unsigned long long>(t) + 286) * 0x72C62A >> 32);
      return saturate<D>(std::lrint(static_cast<double>(t) * (1.0 / 571)));
    }
    if (std::is_same_v<D, Zor8u> && low3) return saturate<D>((t + 5) * 7281 >> 16);
    if (std::is_same_v<D, Zor8u> && low5) return saturate<D>((t + 13) * 10485 >> 18);
    if (std::is_same_v<D, Zor16u> && low5) return saturate<D>(std::lrintf(static_cast<float>(t) * 0.04f));
    const long long bias = std::is_same_v<D, Zor16s> ? 32768 : 0;
    if (low3) return static_cast<D>(((t + 9 * bias + 5) * 0x1C71C71C >> 32) - bias);
    if (low5) return static_cast<D>(((t + 25 * bias + 13) * 0x0A3D70A3 >> 32) - bias);
    return saturate<D>(t);
  }
}

struct Case {
  std::string name; // of the member
  std::function<std::string(ZorImgSize, int variant)> differs;
};
void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

template <class S, class D, class Call>
std::string compare(const std::string& filter, Layout layout, ZorImgSize size, int variant, Call call)
{
  const Matrix& kernel = kernels.at(filter);
  const int side = kernel.size() == 9 ? 3 : 5, reach = side / 2;
  const Image<S> src(size, layout.channels, reach, reach, static_cast<unsigned>(variant), variant);
  Image<D> dst(size, layout.channels, 0, 0, 99, variant + 1), expected = dst;
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x)
      for (int k = 0; k < layout.processed; ++k) {
        long long t = 0;
        for (int j = 0; j < side; ++j)
          for (int i = 0; i < side; ++i)
            t += kernel[static_cast<size_t>(j * side + i)] *
                 static_cast<long long>(src.get(x + i - reach, y + j - reach, k));
        expected.put(x, y, k, finish<D>(filter, t));
      }
  const ZorStatus status = call(src.pointer(), src.step(), dst.pointer(), dst.step(), size);
  if (status != ZorOk) return "status " + std::to_string(status);
  return dst.difference(expected);
}

std::vector<Case> cases()
{
  std::vector<Case> all;
#define CASE(filter, mask, types, source, dest, layout, layoutOf, ...)                                                 \
  all.push_back({#filter #mask "_" #types "_" #layout, [](ZorImgSize size, int variant) {                              \
                   return compare<Zor##source, Zor##dest>(#filter #mask, layoutOf, size, variant, [](auto... a) {      \
                     return zoriFilter##filter##_##types##_##layout##R(a... __VA_ARGS__);                              \
                   });                                                                                                 \
                 }});
#define FIXED(filter, type, layout, layoutOf) CASE(filter, 33, type, type, type, layout, layoutOf, )
#define SELECTED(filter, type, layout, layoutOf)                                                                       \
  CASE(filter, 33, type, type, type, layout, layoutOf, , ZorMask3x3)                                                   \
  CASE(filter, 55, type, type, type, layout, layoutOf, , ZorMask5x5)
#define THREE(kind, filter, type) kind(filter, type, C1, c1) kind(filter, type, C3, c3) kind(filter, type, AC4, ac4)
#define FOUR(kind, filter, type) THREE(kind, filter, type) kind(filter, type, C4, c4)
#define TYPES(kind, filter) FOUR(kind, filter, 8u) FOUR(kind, filter, 16s) FOUR(kind, filter, 32f)
#define MIXED(filter, mask, ...)                                                                                       \
  CASE(filter, mask, 8u16s, 8u, 16s, C1, c1, __VA_ARGS__) CASE(filter, mask, 8s16s, 8s, 16s, C1, c1, __VA_ARGS__)
#define MIXED_SELECTED(filter) MIXED(filter, 33, , ZorMask3x3) MIXED(filter, 55, , ZorMask5x5)
  TYPES(SELECTED, Gauss)
  FOUR(SELECTED, Gauss, 16u)
  THREE(SELECTED, Lowpass, 8u)
  THREE(SELECTED, Lowpass, 16u)
  THREE(SELECTED, Lowpass, 16s)
  THREE(SELECTED, Lowpass, 32f)
  TYPES(SELECTED, Hipass)
  TYPES(SELECTED, Laplace)
  MIXED_SELECTED(Laplace)
  TYPES(FIXED, Sharpen)
  TYPES(FIXED, PrewittHoriz)
  TYPES(FIXED, PrewittVert)
  TYPES(FIXED, SobelHoriz)
  TYPES(FIXED, SobelVert)
  MIXED(ScharrHoriz, 33, )
  MIXED(ScharrVert, 33, )
  FIXED(ScharrHoriz, 32f, C1, c1)
  FIXED(ScharrVert, 32f, C1, c1)
  MIXED_SELECTED(SobelHoriz)
  MIXED_SELECTED(SobelVert)
  SELECTED(SobelHorizMask, 32f, C1, c1)
  SELECTED(SobelVertMask, 32f, C1, c1)
  MIXED_SELECTED(SobelHorizSecond)
  MIXED_SELECTED(SobelVertSecond)
  MIXED_SELECTED(SobelCross)
  SELECTED(SobelHorizSecond, 32f, C1, c1)
  SELECTED(SobelVertSecond, 32f, C1, c1) SELECTED(SobelCross, 32f, C1, c1) return all;
}

class FixedKernel : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(All, FixedKernel, testing::ValuesIn(cases()), [](const auto& i) { return i.param.name; });

TEST_P(FixedKernel, AppliesItsKernel)
{
  for (ZorImgSize size :
       {ZorImgSize{1, 1}, {2, 7}, {3, 2}, {5, 3}, {7, 1}, {15, 2}, {16, 3}, {17, 2}, {31, 2}, {70, 5}})
    for (int variant : {0, 1, 2}) EXPECT_EQ(GetParam().differs(size, variant), "") << size.width << "x" << size.height;

  const int before = omp_get_max_threads();
  for (int threads : {2, 7}) {
    omp_set_num_threads(threads);
    EXPECT_EQ(GetParam().differs({40, 521}, 1), "") << threads << " threads";
  }
  omp_set_num_threads(before);
}

#ifdef COUNTS_REGIONS
// The heights from which a region is shared among a team, C1, C3, C4, AC4; 0 always, -1 never (as all that is missing).
struct Heights {
  const char* filter;
  int layouts[4];
};
constexpr Heights forkHeights[] = {
  {"Gauss33_8u", {256, 0, 400, 0}},      {"Gauss33_16s", {400, 400, 256, 0}},    {"Gauss33_32f", {-1, -1, -1, 0}},
  {"Gauss55_8u", {0, 0, 0, 0}},          {"Gauss55_16s", {0, 0, 0, 0}},          {"Lowpass55_8u", {-1, 0, -1, 0}},
  {"Lowpass55_16s", {400, 400, -1, 0}},  {"Laplace33_8u", {256, 0, 400, 400}},   {"Laplace33_16s", {400, 400, -1, 0}},
  {"Laplace33_32f", {-1, -1, -1, 100}},  {"Laplace33_8s16s", {256, -1, -1, -1}}, {"Laplace55_8u", {256, 0, 512, 0}},
  {"Laplace55_16s", {256, 0, 512, 0}},   {"Hipass33_8u", {256, 0, 400, 400}},    {"Hipass33_16s", {400, 400, -1, 0}},
  {"Hipass33_32f", {-1, -1, -1, 100}},   {"Hipass55_8u", {-1, 256, -1, 256}},    {"Hipass55_16s", {512, 512, 0, 256}},
  {"Sharpen33_8u", {256, 0, 400, 0}},    {"Sharpen33_16s", {-1, 400, 256, 0}},   {"Sharpen33_32f", {-1, -1, -1, 0}},
  {"PrewittHoriz33_", {-1, -1, -1, 0}},  {"PrewittVert33_", {-1, -1, -1, 0}},    {"SobelHoriz33_8u", {-1, -1, -1, 0}},
  {"SobelHoriz33_16s", {-1, -1, -1, 0}}, {"SobelHoriz33_32f", {-1, -1, -1, 0}},  {"SobelVert33_8u", {-1, -1, -1, 0}},
  {"SobelVert33_16s", {-1, -1, -1, 0}},  {"SobelVert33_32f", {-1, -1, -1, 0}},
};

int forkHeightOf(const std::string& member)
{
  const size_t end = member.rfind('_');
  const std::string filter = member.substr(0, end), layout = member.substr(end + 1);
  for (const Heights& h : forkHeights)
    if (const std::string name = h.filter;
        name.back() == '_' ? filter.compare(0, name.size(), name) == 0 : filter == name)
      return h.layouts[layout == "C1" ? 0 : layout == "C3" ? 1 : layout == "C4" ? 2 : 3];
  return -1;
}

TEST_P(FixedKernel, TakesATeamOrNone)
{
  const bool takesTeam = forkHeightOf(GetParam().name) >= 0;
  const int before = omp_get_max_threads();
  omp_set_num_threads(2);
  for (const bool isSmallWorkShared : {false, true}) {
    zoriTestShareAllWork(isSmallWorkShared);
    for (int h : {1, 100}) {
      regionsBegun = 0;
      ASSERT_EQ(GetParam().differs({2, h}, 0), "");
      EXPECT_EQ(regionsBegun, takesTeam && isSmallWorkShared && h > 1 ? 1 : 0) << h << " rows";
    }
  }
  zoriTestShareAllWork(0);
  omp_set_num_threads(before);
}
#endif

// The threads of a team have modes of their own: every one of them is set, and found again.
template <class T, class Call> void expectIndependenceOfTheRoundingMode(int channels, int reach, Call call)
{
  const ZorImgSize size = {50, 100};
  const Image<T> src(size, channels, reach, reach, 3, 0);
  Image<T> nearest(size, channels, 0, 0, 1, 0);
  ASSERT_EQ(call(src.pointer(), src.step(), nearest.pointer(), nearest.step(), size), ZorOk);
  for (int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    Image<T> other(size, channels, 0, 0, 1, 0);
    int kept = 0, threads = 0;
#pragma omp parallel
    std::fesetround(mode);
    EXPECT_EQ(call(src.pointer(), src.step(), other.pointer(), other.step(), size), ZorOk);
#pragma omp parallel reduction(+ : kept, threads)
    {
      threads += 1;
      kept += std::fegetround() == mode;
      std::fesetround(FE_TONEAREST);
    }
    EXPECT_EQ(kept, threads);
    EXPECT_EQ(other.difference(nearest), "") << mode;
  }
}

TEST(FixedKernels, RoundToNearestInAnyModeOfTheCaller)
{
  const int before = omp_get_max_threads();
  omp_set_num_threads(3);
  expectIndependenceOfTheRoundingMode<Zor16u>(1, 2,
                                              [](auto... a) { return zoriFilterLowpass_16u_C1R(a..., ZorMask5x5); });
  expectIndependenceOfTheRoundingMode<Zor32f>(4, 1, [](auto... a) { return zoriFilterSharpen_32f_AC4R(a...); });
  expectIndependenceOfTheRoundingMode<Zor32f>(4, 1,
                                              [](auto... a) { return zoriFilterGauss_32f_AC4R(a..., ZorMask3x3); });
  omp_set_num_threads(before);
}

// Column sums first, the outer rows before the middle one, then the same along the row.
TEST(FixedKernels, GaussInSinglePrecisionKeepsItsOrder)
{
  const ZorImgSize size = {37, 4};
  Image<Zor32f> src(size, 1, 1, 1, 5, 1), dst(size, 1, 0, 0, 1, 0), expected = dst;
  for (int y = -1; y <= size.height; ++y)
    for (int x = -1; x <= size.width; ++x)
      src.put(x, y, 0, src.get(x, y, 0) * 1.2345678f + 1e3f / static_cast<float>(x + 3));
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x) {
      const auto column = [&](int i) { return (src.get(i, y - 1, 0) + src.get(i, y + 1, 0)) + 2 * src.get(i, y, 0); };
      expected.put(x, y, 0, ((column(x - 1) + column(x + 1)) + 2 * column(x)) * 0.0625f);
    }
  ASSERT_EQ(zoriFilterGauss_32f_C1R(src.pointer(), src.step(), dst.pointer(), dst.step(), size, ZorMask3x3), ZorOk);
  EXPECT_EQ(dst.difference(expected), "");
}

TEST(FixedKernels, FiveFormsInSinglePrecisionTakeAnyOtherSelectorAs5x5)
{
  const ZorImgSize size = {20, 3};
  const Image<Zor32f> src(size, 1, 2, 2, 3, 0);
  for (auto function :
       {zoriFilterSobelHorizMask_32f_C1R, zoriFilterSobelVertMask_32f_C1R, zoriFilterSobelHorizSecond_32f_C1R,
        zoriFilterSobelVertSecond_32f_C1R, zoriFilterSobelCross_32f_C1R}) {
    Image<Zor32f> a(size, 1, 0, 0, 1, 0), b = a;
    EXPECT_EQ(function(src.pointer(), src.step(), a.pointer(), a.step(), size, ZorMask5x5), ZorOk);
    EXPECT_EQ(function(src.pointer(), src.step(), b.pointer(), b.step(), size, ZorMask3x1), ZorOk);
    EXPECT_EQ(b.difference(a), "");
  }
}

// dst = src less the pixel above to the left (Down) or to the right (Up); the row above is reached by whole samples.
template <class T, class Call>
std::string robertsDiffers(Layout layout, int shift, ZorImgSize size, int padding, Call call)
{
  const Image<T> src(size, layout.channels, 1, 1, 7, padding);
  Image<T> dst(size, layout.channels, 0, 0, 9, 1), expected = dst;
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x)
      for (int k = 0; k < layout.processed; ++k) {
        if constexpr (std::is_integral_v<T>)
          expected.put(x, y, k, saturate<T>(static_cast<long long>(src.get(x, y, k)) - src.get(x + shift, y - 1, k)));
        else expected.put(x, y, k, src.get(x, y, k) - src.get(x + shift, y - 1, k));
      }
  if (ZorStatus status = call(src.pointer(), src.step(), dst.pointer(), dst.step(), size); status != ZorOk)
    return "status " + std::to_string(status);
  return dst.difference(expected);
}

TEST(Roberts, SubtractsADiagonalNeighbour)
{
  for (ZorImgSize size : {ZorImgSize{1, 1}, {5, 4}, {33, 3}}) {
#define ROBERTS(type, layout, layoutOf)                                                                                \
  EXPECT_EQ(robertsDiffers<Zor##type>(layoutOf, -1, size, 2, zoriFilterRobertsDown_##type##_##layout##R), "");         \
  EXPECT_EQ(robertsDiffers<Zor##type>(layoutOf, 1, size, 2, zoriFilterRobertsUp_##type##_##layout##R), "");
    ROBERTS(8u, C1, c1)
    ROBERTS(8u, C3, c3)
    ROBERTS(8u, AC4, ac4)
    ROBERTS(16s, C1, c1)
    ROBERTS(16s, C3, c3) ROBERTS(16s, AC4, ac4) ROBERTS(32f, C1, c1) ROBERTS(32f, C3, c3) ROBERTS(32f, AC4, ac4)
  }
}

TEST(Roberts, ReachesTheRowAboveByWholeSamples)
{
  const Zor16s image[] = {5, 7, 11, 13, 17, 19, 23, 29};
  Zor16s result[1] = {0};
  // step 5 cut to 4: two samples up and one to the left of image[4]
  EXPECT_EQ(zoriFilterRobertsDown_16s_C1R(image + 4, 5, result, 2, {1, 1}), ZorOk);
  EXPECT_EQ(result[0], 17 - 7);
}

} // namespace
