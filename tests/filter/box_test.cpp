// The box filter against a filter that follows the rules of each form pixel by pixel, in memory that ends with the
// windows.
#include "covered_image.h"
#include "filter/box_rule.h"
#include "support/limits.h"
#include "zori/filter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <omp.h>
#include <type_traits>
#include <vector>

using filtertest::CoveredImage;

namespace {

enum Layout { C1, C3, C4, AC4 };
constexpr int channelsOf(Layout l) { return l == C1 ? 1 : l == C3 ? 3 : 4; }
constexpr int processedOf(Layout l) { return l == AC4 ? 3 : channelsOf(l); }

struct Box {
  ZorImgSize region, mask;
  ZorImgPoint anchor;
  ZorImgSize covered() const { return {region.width + mask.width - 1, region.height + mask.height - 1}; }
  int area() const { return mask.width * mask.height; }
};

std::ostream& operator<<(std::ostream& out, const Box& b)
{
  return out << b.region.width << 'x' << b.region.height << " mask " << b.mask.width << 'x' << b.mask.height
             << " anchor " << b.anchor.x << ',' << b.anchor.y;
}

// ---- The rules ----

// Exact sums of the windows of one channel; samples of 16s are raised to be positive.
template <class T>
std::vector<std::int64_t> exactSums(const CoveredImage<T>& image, const std::vector<T>& pixels, const Box& b, int k)
{
  const int w = b.covered().width, h = b.covered().height;
  std::vector<std::int64_t> integral(static_cast<std::size_t>(w + 1) * static_cast<std::size_t>(h + 1)), sums;
  const auto at = [&](int x, int y) -> std::int64_t& {
    return integral[static_cast<std::size_t>(y) * static_cast<std::size_t>(w + 1) + static_cast<std::size_t>(x)];
  };
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      at(x + 1, y + 1) = at(x, y + 1) + at(x + 1, y) - at(x, y) +
                         static_cast<std::int64_t>(pixels[image.index(x, y, k)]) +
                         (std::is_same_v<T, Zor16s> ? 32768 : 0);
  for (int y = 0; y < b.region.height; ++y)
    for (int x = 0; x < b.region.width; ++x)
      sums.push_back(at(x + b.mask.width, y + b.mask.height) - at(x, y + b.mask.height) - at(x + b.mask.width, y) +
                     at(x, y));
  return sums;
}

// Running sums of floats, begun anew with each slab of rows.
template <class T>
std::vector<float> runningSums(const CoveredImage<T>& image, const std::vector<T>& pixels, const Box& b, int k,
                               int team)
{
  const auto sample = [&](int x, int y) { return static_cast<float>(pixels[image.index(x, y, k)]); };
  std::vector<float> sums, columns(static_cast<std::size_t>(b.covered().width));
  const int slab = b.region.height / team;
  for (int y = 0; y < b.region.height; ++y) {
    const bool begins = y == 0 || (slab > 0 ? y % slab == 0 && y / slab < team : false);
    for (int x = 0; x < b.covered().width; ++x) {
      float& column = columns[static_cast<std::size_t>(x)];
      if (!begins) column = (column + sample(x, y + b.mask.height - 1)) - sample(x, y - 1);
      else {
        column = 0;
        for (int j = 0; j < b.mask.height; ++j) column += sample(x, y + j);
      }
    }
    float sum = 0;
    for (int x = 0; x < b.mask.width; ++x) sum += columns[static_cast<std::size_t>(x)];
    for (int x = 0; x < b.region.width; ++x) {
      sums.push_back(sum);
      if (x + 1 < b.region.width)
        sum = (sum + columns[static_cast<std::size_t>(x + b.mask.width)]) - columns[static_cast<std::size_t>(x)];
    }
  }
  return sums;
}

int fixedPoint(std::int64_t s, int area)
{
  const float r = 1.0f / static_cast<float>(area);
  std::uint64_t v = static_cast<std::uint64_t>(std::llrint(static_cast<double>(r) * 4294967295.0));
  int n = 0;
  while (v < 0x80000000u && n < 24) v *= 2, ++n;
  return static_cast<int>((((v >> 20) + 1) * static_cast<std::uint64_t>(s) + (1ull << (n + 11))) >> (n + 12));
}

int clamp(long x, int low, int high) { return static_cast<int>(x < low ? low : x > high ? high : x); }

int byteResult(Layout layout, bool shortcuts, bool inPlace, const Box& b, std::int64_t s, float running)
{
  const bool three = shortcuts && b.mask.width == 3 && b.mask.height == 3,
             five = shortcuts && b.mask.width == 5 && b.mask.height == 5;
  const int sum = static_cast<int>(s);
  if (b.area() > 8100) return static_cast<int>(running * (1.0f / static_cast<float>(b.area())) + 9e-6f);
  if (three && layout == C1 && inPlace) return (sum * 7282) >> 16;
  if (five && layout == C1 && inPlace) return (sum * 2622) >> 16;
  if (three && layout == C4 && !inPlace) return (sum * 29127) >> 18;
  if (five && layout == C4 && !inPlace) return (sum * 10485) >> 18;
  if (three && layout != C4) return (sum * 29128) >> 18;
  return fixedPoint(s, b.area());
}

template <class T>
std::vector<T> expected(const CoveredImage<T>& image, const std::vector<T>& pixels, Layout layout, bool inPlace,
                        const Box& b, int k, int team)
{
  const auto sums = exactSums(image, pixels, b, k);
  const auto running = runningSums(image, pixels, b, k, team);
  const bool shortcuts = !inPlace || b.mask.height < b.region.height;
  const float r = 1.0f / static_cast<float>(b.area());
  std::vector<T> out;
  for (int y = 0, i = 0; y < b.region.height; ++y)
    for (int x = 0; x < b.region.width; ++x, ++i) {
      const auto s = sums[static_cast<std::size_t>(i)];
      const float quotient = static_cast<float>(s) * r;
      if (b.area() == 1) out.push_back(pixels[image.index(x, y, k)]);
      else if constexpr (std::is_same_v<T, Zor8u>)
        out.push_back(
          static_cast<T>(byteResult(layout, shortcuts, inPlace, b, s, running[static_cast<std::size_t>(i)])));
      else if constexpr (std::is_same_v<T, Zor16u>) {
        const bool tail = x >= b.region.width / 8 * 8;
        out.push_back(static_cast<T>(clamp(
          tail ? static_cast<long>(static_cast<double>(quotient) + 0.5000001) : std::lrintf(quotient), 0, 65535)));
      } else if constexpr (std::is_same_v<T, Zor16s>) {
        const bool truncates =
          layout == C4 && !inPlace && b.mask.width == b.mask.height && (b.mask.width == 3 || b.mask.width == 5);
        const float product = static_cast<float>(s) * (b.mask.width == 3 ? 0.11111111f : 0.04f);
        out.push_back(static_cast<T>(
          clamp((truncates ? static_cast<long>(product) : std::lrintf(quotient)) - 32768, -32768, 32767)));
      } else if (layout == C4 && !inPlace && b.mask.width == 3 && b.mask.height == 3) {
        const auto row = [&](int j) {
          return (pixels[image.index(x, y + j, k)] + pixels[image.index(x + 1, y + j, k)]) +
                 pixels[image.index(x + 2, y + j, k)];
        };
        out.push_back(((row(0) + row(1)) + row(2)) * 0.11111111f);
      } else out.push_back(running[static_cast<std::size_t>(i)] * r);
    }
  return out;
}

// ---- The comparison ----

template <class T> struct Functions {
  Layout layout;
  ZorStatus (*apart)(const T*, int, T*, int, ZorImgSize, ZorImgSize, ZorImgPoint);
  ZorStatus (*inPlace)(T*, int, ZorImgSize, ZorImgSize, ZorImgPoint);
};

#define FUNCTIONS(type)                                                                                                \
  {                                                                                                                    \
    {C1, zoriFilterBox_##type##_C1R, zoriFilterBox_##type##_C1IR},                                                     \
      {C3, zoriFilterBox_##type##_C3R, zoriFilterBox_##type##_C3IR},                                                   \
      {C4, zoriFilterBox_##type##_C4R, zoriFilterBox_##type##_C4IR},                                                   \
    {                                                                                                                  \
      AC4, zoriFilterBox_##type##_AC4R, zoriFilterBox_##type##_AC4IR                                                   \
    }                                                                                                                  \
  }
const std::vector<Functions<Zor8u>> forms8u = FUNCTIONS(8u);
const std::vector<Functions<Zor16u>> forms16u = FUNCTIONS(16u);
const std::vector<Functions<Zor16s>> forms16s = FUNCTIONS(16s);
const std::vector<Functions<Zor32f>> forms32f = FUNCTIONS(32f);
#undef FUNCTIONS

template <class T> void compare(const Functions<T>& f, const Box& b, unsigned seed, int team = 1)
{
  const int channels = channelsOf(f.layout);
  for (bool inPlace : {false, true}) {
    CoveredImage<T> image(b.covered(), b.anchor, channels, seed % 2 == 0, seed);
    const std::vector<T> before = image.copy();
    std::vector<T> all = before; // of the rectangle, or of a destination with a pixel between the rows
    const int pitch = inPlace ? b.covered().width * channels : (b.region.width + 1) * channels;
    std::size_t first = 0;
    if (inPlace) {
      ASSERT_EQ(f.inPlace(image.region(), image.step(), b.region, b.mask, b.anchor), ZorOk);
      first = image.index(b.anchor.x, b.anchor.y, 0);
    } else {
      all.assign(static_cast<std::size_t>(pitch) * static_cast<std::size_t>(b.region.height), T(77));
    }
    std::vector<T> wanted = all;
    if (inPlace) all = image.copy();
    else
      ASSERT_EQ(f.apart(image.region(), image.step(), all.data(), pitch * static_cast<int>(sizeof(T)), b.region, b.mask,
                        b.anchor),
                ZorOk);
    for (int k = 0; k < processedOf(f.layout); ++k) {
      const std::vector<T> results = expected(image, before, f.layout, inPlace, b, k, inPlace ? 1 : team);
      for (int y = 0, i = 0; y < b.region.height; ++y)
        for (int x = 0; x < b.region.width; ++x, ++i)
          wanted[first + static_cast<std::size_t>(y * pitch + x * channels + k)] = results[static_cast<std::size_t>(i)];
    }
    for (std::size_t i = 0; i < wanted.size(); ++i)
      ASSERT_EQ(std::memcmp(&all[i], &wanted[i], sizeof(T)), 0)
        << b << (inPlace ? " in place" : "") << " layout " << f.layout << " element " << i << ": " << +all[i] << " for "
        << +wanted[i];
  }
}

template <class T> void compareAll(const std::vector<Functions<T>>& forms)
{
  omp_set_num_threads(1);
  const ZorImgSize masks[] = {{1, 1}, {2, 1}, {1, 2},   {3, 3},   {5, 5},   {3, 1},   {5, 2},
                              {4, 3}, {7, 9}, {15, 15}, {16, 16}, {17, 17}, {31, 33}, {2, 258}};
  const ZorImgSize regions[] = {{1, 1}, {3, 4}, {7, 3}, {8, 6}, {13, 5}, {16, 17}, {33, 9}, {101, 7}};
  unsigned seed = 1;
  for (const auto& f : forms)
    for (ZorImgSize mask : masks)
      for (ZorImgSize region : regions) {
        ++seed;
        const ZorImgPoint anchor = {static_cast<int>(seed * 7) % mask.width, static_cast<int>(seed * 5) % mask.height};
        compare(f, {region, mask, anchor}, seed);
        if (testing::Test::HasFatalFailure()) return;
      }
}

TEST(FilterBox, EveryFormOf8u) { compareAll(forms8u); }
TEST(FilterBox, EveryFormOf16u) { compareAll(forms16u); }
TEST(FilterBox, EveryFormOf16s) { compareAll(forms16s); }
TEST(FilterBox, EveryFormOf32f) { compareAll(forms32f); }

TEST(FilterBox, LargeMasks)
{
  omp_set_num_threads(1);
  // around the largest fixed-point area, and where running sums of floats become inexact
  for (ZorImgSize mask : {ZorImgSize{90, 90}, ZorImgSize{1, 8101}, ZorImgSize{256, 257}, ZorImgSize{300, 300}})
    for (const auto& f : forms8u) compare(f, {{19, 6}, mask, {mask.width - 1, mask.height / 2}}, 4);
  for (const int area : zoritest::around(zori::box::largestFixedPointArea))
    for (const auto& f : forms8u) compare(f, {{19, 6}, {area, 1}, {area - 1, 0}}, 4);
  // sums of 16 bits beyond 2^31
  for (ZorImgSize mask : {ZorImgSize{181, 181}, ZorImgSize{256, 256}}) {
    for (const auto& f : forms16u) compare(f, {{19, 4}, mask, {0, 0}}, 7);
    for (const auto& f : forms16s) compare(f, {{19, 4}, mask, {0, 0}}, 8);
  }
}

// Quotients that fall just short of the whole number, and running sums that drift away from it.
TEST(FilterBox, QuotientsNextToAWholeNumber)
{
  for (ZorImgSize mask : {ZorImgSize{49, 166}, ZorImgSize{241, 275}, ZorImgSize{401, 399}})
    for (int value : {1, 16, 107, 111, 254}) {
      const Box b = {{9, 2}, mask, {0, 0}};
      CoveredImage<Zor8u> image(b.covered(), b.anchor, 1, true, 1);
      image.fill(static_cast<Zor8u>(value));
      const auto wanted = expected(image, image.copy(), C1, false, b, 0, 1);
      if (mask.width < 401) {
        EXPECT_EQ(wanted[0], value);
      }
      std::vector<Zor8u> out(18);
      ASSERT_EQ(zoriFilterBox_8u_C1R(image.region(), image.step(), out.data(), 9, b.region, mask, b.anchor), ZorOk);
      EXPECT_EQ(out, wanted) << b << ' ' << value;
    }
  // 41 of 82 is less than a half in single precision: the tail of a row makes up for it
  std::vector<Zor16u> row(82 + 8, 1), out(9);
  for (int i = 0; i < 90; i += 2) row[static_cast<std::size_t>(i)] = 0;
  ASSERT_EQ(zoriFilterBox_16u_C1R(row.data(), 2, out.data(), 2, {9, 1}, {82, 1}, {0, 0}), ZorOk);
  EXPECT_EQ(out, (std::vector<Zor16u>{0, 0, 0, 0, 0, 0, 0, 0, 1}));
}

// Every sum that a window of an area can have.
TEST(FilterBox, EveryByteSumOfSmallAreas)
{
  for (int area : {2, 3, 4, 7, 16, 36, 64, 255, 256, 257, 258, 1000}) {
    const int sums = 255 * area + 1, columns = (sums + area - 1) / area;
    const ZorImgSize mask = {1, area}, region = {columns, area};
    // column c, window y: y samples of c + 1, the others c
    std::vector<Zor8u> image(static_cast<std::size_t>(columns) * static_cast<std::size_t>(2 * area)), out(image.size());
    for (int y = 0; y < 2 * area - 1; ++y)
      for (int c = 0; c < columns; ++c)
        image[static_cast<std::size_t>(y * columns + c)] = static_cast<Zor8u>(clamp(c + (y >= area), 0, 255));
    ASSERT_EQ(zoriFilterBox_8u_C1R(image.data(), columns, out.data(), columns, region, mask, {0, 0}), ZorOk);
    for (int y = 0; y < area; ++y)
      for (int c = 0; c < columns; ++c)
        ASSERT_EQ(out[static_cast<std::size_t>(y * columns + c)], fixedPoint(std::min(c * area + y, sums - 1), area))
          << area << ' ' << c << ' ' << y;
  }
}

TEST(FilterBox, FlatImages)
{
  const auto flat = [](auto f, auto value, int channels, ZorImgSize mask, int height) {
    using T = decltype(value);
    std::vector<T> image(static_cast<std::size_t>(40 * 20 * channels), value);
    T* const region = image.data() + (8 * 40 + 8) * channels;
    const int step = 40 * channels * static_cast<int>(sizeof(T));
    const ZorImgPoint centre = {mask.width / 2, mask.height / 2};
    std::vector<T> out(image.size());
    if constexpr (std::is_invocable_v<decltype(f), T*, int, ZorImgSize, ZorImgSize, ZorImgPoint>) {
      EXPECT_EQ(f(region, step, {17, height}, mask, centre), ZorOk);
      return static_cast<double>(region[16 * channels]);
    } else {
      EXPECT_EQ(f(region, step, out.data(), step, {17, height}, mask, centre), ZorOk);
      return static_cast<double>(out[0]);
    }
  };
  const Zor8u white = 255;
  EXPECT_EQ(flat(zoriFilterBox_8u_C4R, white, 4, {3, 3}, 4), 254);
  EXPECT_EQ(flat(zoriFilterBox_8u_C4R, white, 4, {5, 5}, 4), 254);
  EXPECT_EQ(flat(zoriFilterBox_8u_C3R, white, 3, {3, 3}, 4), 255);
  EXPECT_EQ(flat(zoriFilterBox_8u_C4IR, white, 4, {3, 3}, 4), 255);
  EXPECT_EQ(flat(zoriFilterBox_16s_C1R, Zor16s(-32768), 1, {7, 5}, 4), -32768);
  EXPECT_EQ(flat(zoriFilterBox_16s_C3R, Zor16s(32767), 3, {3, 3}, 4), 32767);
  EXPECT_EQ(flat(zoriFilterBox_16u_C1R, Zor16u(65535), 1, {5, 3}, 4), 65535);
  // 127 lies where the truncating constant and the rounding rule part: (127 * 9 - 1) over nine pixels
  const auto nearly = [](int height) {
    std::vector<Zor8u> image(40 * 20, 127);
    for (int y = 0; y < 20; y += 3)
      for (int x = 0; x < 40; x += 3) image[static_cast<std::size_t>(y * 40 + x)] = 126;
    EXPECT_EQ(zoriFilterBox_8u_C1IR(image.data() + 5 * 40 + 5, 40, {17, height}, {3, 3}, {1, 1}), ZorOk);
    return image[6 * 40 + 8];
  };
  EXPECT_EQ(nearly(3), 127); // as tall as the mask: rounded
  EXPECT_EQ(nearly(4), 126);
}

TEST(FilterBox, Teams)
{
  for (int team : {2, 3, 7}) {
    omp_set_num_threads(team);
    unsigned seed = static_cast<unsigned>(team);
    const Box b = {{81, 53}, {6, 5}, {2, 4}};
    for (const auto& f : forms8u) compare(f, b, ++seed, team);
    for (const auto& f : forms16s) compare(f, b, ++seed, team);
    for (const auto& f : forms32f) compare(f, b, ++seed, team);
    for (const auto& f : forms32f)
      compare(f, {{30, 5}, {3, 4}, {1, 1}}, ++seed, f.layout == C4 ? team : 1); // C4 always forks
  }
  omp_set_num_threads(1);
}

// A mask as tall as the region filters a copy of the image, with the teams of the form that is not in place.
TEST(FilterBox, TallMasksInPlaceAreAsOutOfPlace)
{
  const ZorImgSize region = {1365, 4}, mask = {6, 5};
  const ZorImgPoint anchor = {4, 2};
  for (int team : {1, 2, 3}) {
    omp_set_num_threads(team);
    CoveredImage<Zor32f> image({region.width + mask.width - 1, region.height + mask.height - 1}, anchor, 3, true, 7);
    const auto before = image.copy();
    std::vector<Zor32f> wanted(static_cast<std::size_t>(region.width * region.height * 3));
    ASSERT_EQ(
      zoriFilterBox_32f_C3R(image.region(), image.step(), wanted.data(), region.width * 12, region, mask, anchor),
      ZorOk);
    ASSERT_EQ(zoriFilterBox_32f_C3IR(image.region(), image.step(), region, mask, anchor), ZorOk);
    for (int y = 0; y < region.height + mask.height - 1; ++y)
      for (int x = 0; x < region.width + mask.width - 1; ++x)
        for (int k = 0; k < 3; ++k) {
          const int rx = x - anchor.x, ry = y - anchor.y;
          const bool inside = rx >= 0 && rx < region.width && ry >= 0 && ry < region.height;
          ASSERT_EQ(image.at(x, y, k), inside ? wanted[static_cast<std::size_t>((ry * region.width + rx) * 3 + k)]
                                              : before[image.index(x, y, k)]);
        }
  }
  omp_set_num_threads(1);
}

TEST(FilterBox, StepsCountWholeElements)
{
  Zor16u image[8] = {10, 20, 30, 40, 50, 60, 70, 80}, out[4] = {};
  ASSERT_EQ(zoriFilterBox_16u_C1R(image, 5, out, 5, {2, 2}, {1, 2}, {0, 0}), ZorOk); // as a step of 4
  EXPECT_EQ(out[0], 20);
  EXPECT_EQ(out[1], 30);
  EXPECT_EQ(out[2], 40);
}

TEST(FilterBox, Checks)
{
  Zor8u p[9] = {}, q[9] = {9};
  const ZorImgSize one = {1, 1};
  EXPECT_EQ(zoriFilterBox_8u_C1R(nullptr, 0, q, 0, {0, 0}, {0, 0}, {0, 0}), ZorErrNullPtr);
  EXPECT_EQ(zoriFilterBox_8u_C1R(p, 0, q, 3, {0, 0}, {0, 0}, {0, 0}), ZorErrStep);
  EXPECT_EQ(zoriFilterBox_8u_C1R(p, 3, q, 3, {0, 1}, {0, 0}, {0, 0}), ZorErrSize);
  EXPECT_EQ(zoriFilterBox_8u_C1R(p, 3, q, 3, one, {1, 0}, {5, 5}), ZorErrMaskSize);
  for (ZorImgPoint anchor : {ZorImgPoint{-1, 0}, ZorImgPoint{3, 0}, ZorImgPoint{0, -1}, ZorImgPoint{0, 2}})
    EXPECT_EQ(zoriFilterBox_8u_C1IR(p, 3, one, {3, 2}, anchor), ZorErrAnchor);
  EXPECT_EQ(q[0], 9);
}

} // namespace
