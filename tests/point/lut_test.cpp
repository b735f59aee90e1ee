// Step functions, polygons and cubics against the rules written out for one sample, over types, layouts, sizes and
// nodes.
#include "support/numbers.h"
#include "zori/point.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

extern "C" int zoriTestFailAllocationAt(int n);

namespace {

enum Curve { Step, Linear, Cubic };

template <class T> using Node = std::conditional_t<std::is_floating_point_v<T>, Zor32f, Zor32s>;

template <class N> struct Nodes {
  std::vector<N> levels, values;
  int count() const { return static_cast<int>(levels.size()); }
};

// ---- The rules ----

double apart(Zor32s a, Zor32s b) { return static_cast<Zor32s>(static_cast<Zor32u>(a) - static_cast<Zor32u>(b)); }
double apart(Zor32f a, Zor32f b) { return a - b; }

struct Coefficients {
  double a, b, c;
};

template <class N> Coefficients cubicThrough(const N* level, const N* value)
{
  const double a = apart(level[0], level[1]), b = apart(level[2], level[1]), c = apart(level[3], level[1]);
  const double p = apart(value[0], value[1]), q = apart(value[2], value[1]), r = apart(value[3], value[1]);
  const double a2 = a * a, a3 = a * a * a, b2 = b * b, b3 = b * b * b, c2 = c * c, c3 = c * c * c;
  const double det = (a3 * b2 - b3 * a2) * c + (-a3 * b + a * b3) * c2 + (a2 * b - a * b2) * c3;
  const double inverse = 1 / det;
  return {((b2 * p - a2 * q) * c + (-b * p + a * q) * c2 + (a2 * b - a * b2) * r) * inverse,
          ((b * p - a * q) * c3 + (-b3 * p + a3 * q) * c + (a * b3 - a3 * b) * r) * inverse,
          ((b3 * p - a3 * q) * c2 + (-b2 * p + a2 * q) * c3 + (a3 * b2 - b3 * a2) * r) * inverse};
}

int origin(int k, int count) { return std::min(std::max(k - 1, 0), count - 4) + 1; }

template <class T> T clampedTo(double y)
{
  return static_cast<T>(
    std::clamp<double>(std::trunc(y), std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

// The images of all values of an integer type.
template <class T> std::vector<T> mapOf(Curve curve, const Nodes<Zor32s>& f)
{
  const int low = std::numeric_limits<T>::min(), high = std::numeric_limits<T>::max();
  std::vector<T> map(static_cast<size_t>(high - low) + 1);
  const auto at = [&](int x) -> T& { return map[static_cast<size_t>(x - low)]; };
  for (int x = low; x <= high; ++x) at(x) = static_cast<T>(x); // intervals follow each other from the first level on
  for (int k = 0; k + 1 < f.count(); ++k) {
    const auto i = static_cast<size_t>(k);
    const int level = f.levels[i], next = f.levels[i + 1], value = f.values[i];
    const int s = std::clamp(level, low, curve == Step ? high + 1 : high), e = std::clamp(next, low, high + 1);
    const double slope = next > level ? apart(f.values[i + 1], value) / apart(next, level) : 0;
    const size_t o = curve == Cubic ? static_cast<size_t>(origin(k, f.count())) : 1;
    const Coefficients g = curve == Cubic ? cubicThrough(&f.levels[o - 1], &f.values[o - 1]) : Coefficients{};
    for (int x = s; x < e; ++x) {
      if (curve == Step || (next > level && e - s == 1)) at(x) = clampedTo<T>(value);
      else if (next <= level) break;
      else if (curve == Linear) at(x) = clampedTo<T>(x * slope + (value + 0.5 - level * slope));
      else {
        const double d = x - static_cast<double>(f.levels[o]);
        at(x) = clampedTo<T>((g.a * (d * d) + g.c) * d + (g.b * (d * d) + f.values[o] + 0.5));
      }
    }
  }
  for (int x = std::max(f.levels.back(), low); x <= high; ++x) at(x) = static_cast<T>(x);
  return map;
}

// 16-bit step functions of small regions: the interval by halving, whatever the order of the levels.
template <class T> T searched(const Nodes<Zor32s>& f, T x)
{
  if (x < f.levels.front() || x >= f.levels.back()) return x;
  size_t i = 0;
  for (size_t count = f.levels.size() - 1; count > 1;) {
    const size_t half = count / 2;
    if (x >= f.levels[i + half]) i += half, count -= half;
    else count = half;
  }
  return clampedTo<T>(f.values[i]);
}

Zor32f imageOf(Curve curve, const Nodes<Zor32f>& f, Zor32f x)
{
  for (size_t k = 0; k + 1 < f.levels.size(); ++k) {
    if (!(x >= f.levels[k] && f.levels[k + 1] > x)) continue;
    if (curve == Step) return f.values[k];
    if (curve == Linear) {
      const Zor32f slope = (f.values[k + 1] - f.values[k]) / (f.levels[k + 1] - f.levels[k]);
      const Zor32f d = x - f.levels[k];
      return static_cast<Zor32f>(static_cast<double>(d) * static_cast<double>(slope) +
                                 static_cast<double>(f.values[k]));
    }
    const auto o = static_cast<size_t>(origin(static_cast<int>(k), f.count()));
    const Coefficients g = cubicThrough(&f.levels[o - 1], &f.values[o - 1]);
    const Zor32f single = x - f.levels[o];
    const double d = single;
    return static_cast<Zor32f>((g.a * (d * d) + g.c) * d + (f.values[o] + g.b * (d * d)));
  }
  return x;
}

// ---- The functions of a type and curve ----

template <class T> struct Functions {
  using N = Node<T>;
  ZorStatus (*one)(const T*, int, T*, int, ZorImgSize, const N*, const N*, int);
  ZorStatus (*oneInPlace)(T*, int, ZorImgSize, const N*, const N*, int);
  ZorStatus (*many[3])(const T*, int, T*, int, ZorImgSize, const N* const*, const N* const*, const int*); // C3, C4, AC4
  ZorStatus (*manyInPlace[3])(T*, int, ZorImgSize, const N* const*, const N* const*, const int*);
};
#define FUNCTIONS(name, type)                                                                                          \
  {                                                                                                                    \
    zori##name##_##type##_C1R, zori##name##_##type##_C1IR,                                                             \
      {zori##name##_##type##_C3R, zori##name##_##type##_C4R, zori##name##_##type##_AC4R},                              \
    {                                                                                                                  \
      zori##name##_##type##_C3IR, zori##name##_##type##_C4IR, zori##name##_##type##_AC4IR                              \
    }                                                                                                                  \
  }
#define FAMILY(type)                                                                                                   \
  {                                                                                                                    \
    FUNCTIONS(LUT, type), FUNCTIONS(LUT_Linear, type), FUNCTIONS(LUT_Cubic, type)                                      \
  }
const Functions<Zor8u> bytes[3] = FAMILY(8u);
const Functions<Zor16u> unsignedWords[3] = FAMILY(16u);
const Functions<Zor16s> signedWords[3] = FAMILY(16s);
const Functions<Zor32f> floats[3] = FAMILY(32f);

struct Form {
  int channels, processed, index; // index among the forms of several channels
};
constexpr Form forms[] = {{1, 1, -1}, {3, 3, 0}, {4, 4, 1}, {4, 3, 2}};

// Calls one form out of place and in place, with row steps that are no multiple of the element, and compares with
// expected(channel, sample).
template <class T, class Expected>
void check(const Functions<T>& call, Form form, ZorImgSize roi, const std::vector<Nodes<Node<T>>>& nodes,
           const std::vector<T>& samples, Expected expected)
{
  const int step = roi.width * form.channels * static_cast<int>(sizeof(T)) + 5;
  const size_t bytes = static_cast<size_t>(step) * static_cast<size_t>(roi.height) + 1;
  std::vector<unsigned char> src(bytes, 0x11), dst(bytes, 0x5a), both, wanted = dst, wantedBoth;
  const auto address = [&](std::vector<unsigned char>& image, int y, int i) {
    return &image[1 + static_cast<size_t>(y * step) + static_cast<size_t>(i) * sizeof(T)]; // an odd address
  };
  size_t next = 0;
  for (int y = 0; y < roi.height; ++y)
    for (int i = 0; i < roi.width * form.channels; ++i, ++next)
      std::memcpy(address(src, y, i), &samples[next % samples.size()], sizeof(T));
  both = wantedBoth = src;
  for (int y = 0; y < roi.height; ++y)
    for (int i = 0; i < roi.width * form.channels; ++i) {
      const int c = i % form.channels;
      if (c >= form.processed) continue;
      T x;
      std::memcpy(&x, address(src, y, i), sizeof(T));
      const T image = expected(c, x);
      std::memcpy(address(wanted, y, i), &image, sizeof(T));
      std::memcpy(address(wantedBoth, y, i), &image, sizeof(T));
    }

  const Node<T>*values[4], *levels[4];
  int counts[4];
  for (size_t c = 0; c < static_cast<size_t>(form.processed); ++c) {
    values[c] = nodes[c].values.data();
    levels[c] = nodes[c].levels.data();
    counts[c] = nodes[c].count();
  }
  T *s = reinterpret_cast<T*>(address(src, 0, 0)), *d = reinterpret_cast<T*>(address(dst, 0, 0)),
    *b = reinterpret_cast<T*>(address(both, 0, 0));
  if (form.channels == 1) {
    ASSERT_EQ(call.one(s, step, d, step, roi, values[0], levels[0], counts[0]), ZorOk);
    ASSERT_EQ(call.oneInPlace(b, step, roi, values[0], levels[0], counts[0]), ZorOk);
  } else {
    ASSERT_EQ(call.many[form.index](s, step, d, step, roi, values, levels, counts), ZorOk);
    ASSERT_EQ(call.manyInPlace[form.index](b, step, roi, values, levels, counts), ZorOk);
  }
  ASSERT_TRUE(dst == wanted);
  ASSERT_TRUE(both == wantedBoth);
}

// ---- Nodes ----

// Sets of nodes for a type with these limits: plain, beyond the limits, out of order, coinciding, dense, extreme.
std::vector<Nodes<Zor32s>> integerNodes(int low, int high)
{
  const int w = high - low;
  std::vector<Nodes<Zor32s>> sets = {
    {{low + 10, low + 20}, {low + 100, low + 200}},
    {{low + 10, low + 50, low + 100, low + 220}, {low - 300, high + 200, low + 30, high}},
    {{low - 40, low + w / 4, low + w / 2, high + 90, high + 500}, {-1, 3, -77, high, low}},
    {{low, low + 1, low + 2, low + 7, high, high + 1}, {40, -3, 17, 1000000, -1000000, 5}},
    {{low + 50, low + 20, low + 90, low + 60, low + 200}, {1, 2, 300, 4, 5}},  // out of order
    {{low + 9, low + 30, low + 30, low + 77, low + 91}, {5, 60, 200, 90, 7}},  // an empty interval
    {{high + 10, high + 20, high + 40}, {17, 33, 2}},                          // all above
    {{low - 90, low - 50, low - 7}, {17, 33, 2}},                              // all below
    {{low - 90, low - 50, low + 1, low + 90, high + 7}, {170, 33, 21, -9, 4}}, // reaches in by one value
    {{INT_MIN, low + 7, INT_MAX}, {INT_MAX, INT_MIN, 0}},
    {{INT_MIN, INT_MAX}, {low, high}},
    {{INT_MIN, -1, 0, 100, INT_MAX}, {INT_MIN, INT_MAX, 7, 60, INT_MIN}},
    {{0, INT_MAX / 2, INT_MAX}, {0, INT_MAX / 2, INT_MAX}},
    {{INT_MAX, 5, INT_MIN}, {1, 2, 3}},
  };
  Nodes<Zor32s> dense;
  unsigned seed = 5;
  for (int level = low - 3; level < high + 4; level += 1 + static_cast<int>(seed >> 16) % (w / 100)) {
    zoritest::nextNoise(seed);
    dense.levels.push_back(level);
    dense.values.push_back(low - w / 8 + static_cast<int>(seed >> 8) % (w + w / 4));
  }
  sets.push_back(dense);
  return sets;
}

// Cubics through coinciding or infinite nodes are no particular numbers.
template <class N> bool hasCubics(const Nodes<N>& f)
{
  for (size_t k = 0; k < f.levels.size(); ++k) {
    if (!std::isfinite(static_cast<double>(f.levels[k])) || !std::isfinite(static_cast<double>(f.values[k])))
      return false;
    if (k > 0 && f.levels[k] == f.levels[k - 1]) return false;
  }
  return true;
}

template <class T> void checkIntegers(const Functions<T> (&family)[3])
{
  const int low = std::numeric_limits<T>::min(), high = std::numeric_limits<T>::max();
  const auto sets = integerNodes(low, high);
  std::vector<T> samples;
  for (const auto& f : sets)
    for (int level : f.levels)
      for (int x = -1; x <= 1; ++x)
        samples.push_back(static_cast<T>(static_cast<unsigned>(level) + static_cast<unsigned>(x)));
  unsigned seed = 9;
  for (int i = 0; i < 4500; ++i) samples.push_back(static_cast<T>(zoritest::nextNoise(seed) >> 13));

  for (Curve curve : {Step, Linear, Cubic})
    for (size_t first = 0; first < sets.size(); ++first) {
      std::vector<Nodes<Zor32s>> nodes; // a set for each channel, one behind the other
      for (size_t c = 0; c < 4; ++c) nodes.push_back(sets[(first + c) % sets.size()]);
      for (Form form : forms) {
        bool lines = curve == Linear, defined = true;
        for (size_t c = 0; c < static_cast<size_t>(form.processed); ++c) {
          lines |= curve == Cubic && nodes[c].count() < 4; // one channel with few nodes draws lines in all
          defined &= hasCubics(nodes[c]);
        }
        if (curve == Cubic && !lines && !defined) continue;
        std::vector<std::vector<T>> maps;
        for (int c = 0; c < form.processed; ++c)
          maps.push_back(mapOf<T>(lines ? Linear : curve, nodes[static_cast<size_t>(c)]));
        for (ZorImgSize roi : {ZorImgSize{1, 1}, ZorImgSize{9, 3}, ZorImgSize{64, 64}, ZorImgSize{241, 17}}) {
          SCOPED_TRACE(::testing::Message() << "curve " << curve << " nodes " << first << " form " << form.channels
                                            << '/' << form.processed << " width " << roi.width);
          const bool searches = sizeof(T) == 2 && curve == Step && form.channels < 4 && roi.width * roi.height <= 4096;
          check<T>(family[curve], form, roi, nodes, samples, [&](int c, T x) {
            const auto at = static_cast<size_t>(c);
            return searches ? searched(nodes[at], x) : maps[at][static_cast<size_t>(x - low)];
          });
          if (::testing::Test::HasFatalFailure()) return;
        }
      }
    }
}

TEST(Lut, Bytes) { checkIntegers(bytes); }
TEST(Lut, UnsignedWords) { checkIntegers(unsignedWords); }
TEST(Lut, SignedWords) { checkIntegers(signedWords); }

TEST(Lut, Floats)
{
  std::vector<Nodes<Zor32f>> sets = {
    {{10, 20}, {100, 200}},
    {{-1.5f, 0.0f, 0.25f, 7.0f, 1e6f}, {3, -0.0f, 1e30f, -7.25f, 2}},
    {{5, 1, 9, 3, 8, 2}, {1, 2, 3, 4, 5, 6}}, // out of order: the first interval that holds x
    {{0, 2, 2, 6, 9}, {1, 5, 7, 2, 3}},       // an empty interval
    {{-INFINITY, -3, 4, INFINITY}, {1, 2, 3, 4}},
    {{0, NAN, 4, 8}, {1, 2, 3, 4}},
    {{0, 0.1f, 0.2f}, {INFINITY, 1, -INFINITY}},
  };
  for (int n : {5, 8, 40, 300}) {
    Nodes<Zor32f> f;
    for (Zor32f k = 0; k < static_cast<Zor32f>(n); ++k) {
      f.levels.push_back(k * 1.37f - 20);
      f.values.push_back(std::sin(k) * 50);
    }
    sets.push_back(f);
  }
  std::vector<Zor32f> samples = {NAN, INFINITY, -INFINITY, 0.0f, -0.0f, 1e-40f};
  for (const auto& f : sets)
    for (Zor32f level : f.levels)
      for (Zor32f x : {std::nextafterf(level, -INFINITY), level, std::nextafterf(level, INFINITY)})
        samples.push_back(x);
  unsigned seed = 3;
  for (int i = 0; i < 999; ++i) {
    zoritest::nextNoise(seed);
    samples.push_back(static_cast<Zor32f>(seed >> 8) / 40000 - 20);
  }

  for (Curve curve : {Step, Linear, Cubic})
    for (size_t first = 0; first < sets.size(); ++first) {
      std::vector<Nodes<Zor32f>> nodes;
      for (size_t c = 0; c < 4; ++c) nodes.push_back(sets[(first + 3 * c) % sets.size()]);
      for (Form form : forms) {
        bool lines = curve == Linear, defined = true;
        for (size_t c = 0; c < static_cast<size_t>(form.processed); ++c) {
          lines |= curve == Cubic && nodes[c].count() < 4;
          defined &= hasCubics(nodes[c]);
        }
        if (curve == Cubic && !lines && !defined) continue;
        for (ZorImgSize roi : {ZorImgSize{1, 1}, ZorImgSize{7, 3}, ZorImgSize{101, 7}}) {
          SCOPED_TRACE(::testing::Message() << "curve " << curve << " nodes " << first << " form " << form.channels
                                            << '/' << form.processed << " width " << roi.width);
          check<Zor32f>(floats[curve], form, roi, nodes, samples, [&](int c, Zor32f x) {
            return imageOf(lines ? Linear : curve, nodes[static_cast<size_t>(c)], x);
          });
          if (::testing::Test::HasFatalFailure()) return;
        }
      }
    }
}

// ---- Values worked out by hand ----

template <class T> std::vector<T> lookedUp(const Functions<T>& call, std::vector<T> x, const Nodes<Node<T>>& f)
{
  const int step = static_cast<int>(x.size() * sizeof(T));
  const ZorImgSize roi = {static_cast<int>(x.size()), 1};
  EXPECT_EQ(call.oneInPlace(x.data(), step, roi, f.values.data(), f.levels.data(), f.count()), ZorOk);
  return x;
}

TEST(Lut, WorkedValues)
{
  const Nodes<Zor32s> two = {{10, 20}, {100, 200}};
  EXPECT_EQ(lookedUp(bytes[Step], {0, 9, 10, 19, 20, 255}, two), (std::vector<Zor8u>{0, 9, 100, 100, 20, 255}));
  EXPECT_EQ(lookedUp(bytes[Linear], {9, 10, 15, 19, 20}, two), (std::vector<Zor8u>{9, 100, 150, 190, 20}));
  EXPECT_EQ(lookedUp(bytes[Linear], {0, 128, 255}, {{0, 510}, {0, 255}}), (std::vector<Zor8u>{0, 64, 128}));
  EXPECT_EQ(lookedUp(signedWords[Linear], {0, 5, 9, 10, 11}, {{0, 10, 11}, {-1, -1, 7}}),
            (std::vector<Zor16s>{0, 0, 0, -1, 11}));
  EXPECT_EQ(lookedUp(floats[Step], {-1, 0, 3, 4, 9}, {{0, 4}, {7, 9}}), (std::vector<Zor32f>{-1, 7, 7, 4, 9}));
  EXPECT_EQ(lookedUp(floats[Linear], {1, 3}, {{0, 4}, {7, 9}}), (std::vector<Zor32f>{7.5f, 8.5f}));

  // a cubic is met by the cubic through four of its points, in every interval
  Nodes<Zor32s> cubic;
  for (int x : {0, 30, 70, 110, 180, 250}) {
    cubic.levels.push_back(x);
    cubic.values.push_back((x - 20) * (x - 120) * (x - 240) / 1000 + 900);
  }
  std::vector<Zor16u> x(250);
  for (size_t i = 0; i < x.size(); ++i) x[i] = static_cast<Zor16u>(i);
  const auto y = lookedUp(unsignedWords[Cubic], x, cubic);
  for (size_t i = 0; i < x.size(); ++i) {
    const double d = static_cast<double>(i), exact = (d - 20) * (d - 120) * (d - 240) / 1000 + 900;
    EXPECT_NEAR(y[i], exact, 1.6) << i; // the nodes are rounded
  }
}

// ---- Failures ----

TEST(Lut, ChecksOfSeveralChannelsGoChannelByChannel)
{
  Zor8u image[12] = {1, 2, 3};
  const Zor32s levels[2] = {0, 9}, values[2] = {7, 7};
  const Zor32s *pLevels[3] = {levels, levels, nullptr}, *pValues[3] = {values, values, values};
  int n[3] = {2, 1, 2};
  EXPECT_EQ(zoriLUT_8u_C3IR(image, 0, {0, 1}, pValues, pLevels, nullptr), ZorErrNullPtr);
  EXPECT_EQ(zoriLUT_8u_C3IR(image, 0, {0, 1}, pValues, pLevels, n), ZorErrLutLevels);
  n[1] = 2;
  EXPECT_EQ(zoriLUT_8u_C3IR(image, 0, {0, 1}, pValues, pLevels, n), ZorErrNullPtr);
  pLevels[2] = levels;
  EXPECT_EQ(zoriLUT_8u_C3IR(image, 0, {0, 1}, pValues, pLevels, n), ZorErrSize);
  EXPECT_EQ(zoriLUT_8u_C3IR(image, 0, {1, 1}, pValues, pLevels, n), ZorErrStep);
  EXPECT_EQ(zoriLUT_8u_C1IR(image, 0, {1, 1}, values, levels, 1), ZorErrStep);
  EXPECT_EQ(image[0], 1);
}

TEST(Lut, AllocationFailsBeforeAnythingIsWritten)
{
  const auto fails = [](auto call, bool allocates) {
    zoriTestFailAllocationAt(1);
    const ZorStatus status = call();
    zoriTestFailAllocationAt(0);
    EXPECT_EQ(status, allocates ? ZorErrAlloc : ZorOk);
  };
  const Zor32s levels[4] = {0, 9, 20, 30}, values[4] = {7, 7, 9, 1};
  const Zor32f levelsF[4] = {0, 9, 20, 30}, valuesF[4] = {7, 7, 9, 1};
  std::vector<Zor16u> w(4097, 5);
  std::vector<Zor8u> b(4097, 5);
  std::vector<Zor32f> f(100, 5);
  fails([&] { return zoriLUT_Cubic_8u_C1IR(b.data(), 4097, {4097, 1}, values, levels, 4); }, false);
  fails([&] { return zoriLUT_16u_C1IR(w.data(), 2, {1, 4097}, values, levels, 4); }, true);
  fails([&] { return zoriLUT_Linear_16u_C1IR(w.data(), 2, {1, 1}, values, levels, 4); }, true);
  fails([&] { return zoriLUT_Linear_32f_C1IR(f.data(), 400, {100, 1}, valuesF, levelsF, 4); }, true);
  fails([&] { return zoriLUT_Cubic_32f_C1IR(f.data(), 400, {100, 1}, valuesF, levelsF, 4); }, true);
  for (Zor16u v : w) ASSERT_EQ(v, 5);
  for (Zor32f v : f) ASSERT_EQ(v, 5);
  fails([&] { return zoriLUT_16u_C1IR(w.data(), 2, {1, 4096}, values, levels, 4); }, false);
  fails([&] { return zoriLUT_32f_C1IR(f.data(), 400, {100, 1}, valuesF, levelsF, 4); }, false);
}

} // namespace
