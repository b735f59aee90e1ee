// Wavelet transforms against their definition in double precision, with images that end exactly where the margins do,
// and buffers of exactly the size told; reconstruction; states.
#include "reference.h"
#include "zori/spectral.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <pmmintrin.h>
#include <string>

using namespace spectral;

extern "C" int zoriTestFailAllocationAt(int n);
extern "C" int zoriTestLiveBlocks();

namespace {

struct Filter {
  std::vector<float> taps;
  int anchor;

  int length() const { return static_cast<int>(taps.size()); }
  // of an orthonormal wavelet: the way back
  Filter back() const { return {{taps.rbegin(), taps.rend()}, length() - anchor}; }
};

// ---- The functions by channels and direction ----

enum class Direction { Forward, Inverse };
constexpr Direction Forward = Direction::Forward, Inverse = Direction::Inverse;

template <Direction direction, int n> struct Functions;
// clang-format off
#define FUNCTIONS(direction, name, n)                                        \
  template <> struct Functions<direction, n> {                               \
    using State = ZorWt##name##State;                                        \
    static constexpr auto make = zoriWT##name##InitAlloc_32f_C##n##R;        \
    static constexpr auto release = zoriWT##name##Free_32f_C##n##R;          \
    static constexpr auto bytes = zoriWT##name##GetBufSize_C##n##R;          \
    static constexpr auto transform = zoriWT##name##_32f_C##n##R;            \
  };
FUNCTIONS(Forward, Fwd, 1) FUNCTIONS(Forward, Fwd, 3) FUNCTIONS(Inverse, Inv, 1) FUNCTIONS(Inverse, Inv, 3)
#undef FUNCTIONS
  // clang-format on

  template <Direction direction, int n>
  struct State {
  using F = Functions<direction, n>;
  typename F::State* p = nullptr;
  State(const Filter& low, const Filter& high)
  {
    EXPECT_EQ(F::make(&p, low.taps.data(), low.length(), low.anchor, high.taps.data(), high.length(), high.anchor),
              ZorOk);
  }
  State(const State&) = delete;
  ~State() { EXPECT_EQ(F::release(p), ZorOk); }
  int bytes() const
  {
    int b = -1;
    EXPECT_EQ(F::bytes(p, &b), ZorOk);
    return b;
  }
};
template <int n> using ForwardFunctions = Functions<Forward, n>;
template <int n> using InverseFunctions = Functions<Inverse, n>;
template <int n> using ForwardState = State<Forward, n>;
template <int n> using InverseState = State<Inverse, n>;

// ---- Images with margins that end exactly at a page without access ----

struct Margins {
  int before, behind;
};
Margins forwardMargins(const Filter& low, const Filter& high)
{
  return {std::max(low.length() - low.anchor, high.length() - high.anchor) - 1,
          std::max({low.anchor - 1, high.anchor - 1, 0})};
}
Margins inverseMargins(const Filter& low, const Filter& high)
{
  return {std::max((low.length() - low.anchor) / 2, (high.length() - high.anchor) / 2),
          std::max(low.anchor / 2, high.anchor / 2)};
}

struct Framed {
  int channels;
  Margins margins;
  Floats floats;

  Framed(ZorImgSize size, int n, Margins m, int padding)
    : channels(n), margins(m),
      floats((size.width + m.before + m.behind) * n, size.height + m.before + m.behind, padding)
  {}
  float* data() const
  {
    return reinterpret_cast<float*>(floats.bytes.get() + std::ptrdiff_t{floats.step} * margins.before +
                                    std::ptrdiff_t{4} * channels * margins.before);
  }
  int step() const { return floats.step; }
  double at(int x, int y, int c) const { return floats.get((x + margins.before) * channels + c, y + margins.before); }
  void put(int x, int y, int c, float v) { floats.put((x + margins.before) * channels + c, y + margins.before, v); }
  void fill(const std::function<float()>& next)
  {
    for (int y = 0; y < floats.height; ++y)
      for (int x = 0; x < floats.width; ++x) floats.put(x, y, next());
  }
};

double gain(const Filter& f)
{
  double sum = 0;
  for (const float t : f.taps) sum += std::fabs(t);
  return sum;
}

double forwardValue(const Framed& s, const Filter& column, const Filter& row, int x, int y, int c)
{
  double sum = 0;
  for (int j = 0; j < column.length(); ++j)
    for (int k = 0; k < row.length(); ++k)
      sum +=
        static_cast<double>(column.taps[j]) * row.taps[k] * s.at(2 * x + row.anchor - k, 2 * y + column.anchor - j, c);
  return sum;
}

double inverseValue(const Framed& s, const Filter& column, const Filter& row, int x, int y, int c)
{
  double sum = 0;
  for (int j = 0; j < column.length(); ++j)
    for (int k = 0; k < row.length(); ++k) {
      const int v = y + column.anchor - j, u = x + row.anchor - k; // of the spread image
      if (u % 2 != 0 && v % 2 != 0)
        sum += static_cast<double>(column.taps[j]) * row.taps[k] * s.at((u - 1) >> 1, (v - 1) >> 1, c);
    }
  return sum;
}

// Every value against the definition.
template <int n> void checkBoth(ZorImgSize size, const Filter& low, const Filter& high)
{
  SCOPED_TRACE(std::to_string(size.width) + "x" + std::to_string(size.height) + " C" + std::to_string(n) + " low " +
               std::to_string(low.length()) + "," + std::to_string(low.anchor) + " high " +
               std::to_string(high.length()) + "," + std::to_string(high.anchor));
  Noise noise(static_cast<unsigned>(size.width * 31 + size.height));
  const auto next = [&] { return noise.next(); };
  const ZorImgSize full = {2 * size.width, 2 * size.height};
  const Filter* const filters[4][2] = {{&low, &low}, {&high, &low}, {&low, &high}, {&high, &high}}; // column, row
  const double greatest = std::max(gain(low), gain(high)), limit = 1e-6 * greatest * greatest;
  {
    const ForwardState<n> state(low, high);
    const Guarded<Zor8u> buffer(static_cast<size_t>(state.bytes()));
    Framed src(full, n, forwardMargins(low, high), 4);
    src.fill(next);
    std::array<Floats, 4> dst = {Floats(size.width * n, size.height, 0), Floats(size.width * n, size.height, 8),
                                 Floats(size.width * n, size.height, 3), Floats(size.width * n, size.height, 12)};
    const unsigned word = _mm_getcsr();
    _mm_setcsr((word & ~0x6000u) | 0x2000u); // the caller's rounding does not matter
    const ZorStatus s = ForwardFunctions<n>::transform(src.data(), src.step(), dst[0].data(), dst[0].step,
                                                       dst[1].data(), dst[1].step, dst[2].data(), dst[2].step,
                                                       dst[3].data(), dst[3].step, size, state.p, buffer.get());
    _mm_setcsr(word);
    ASSERT_EQ(s, ZorOk);
    for (int i = 0; i < 4; ++i)
      for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width * n; ++x)
          ASSERT_NEAR(dst[i].get(x, y), forwardValue(src, *filters[i][0], *filters[i][1], x / n, y, x % n), limit)
            << "image " << i << " at " << x << "," << y;
  }
  const InverseState<n> state(low, high);
  const Guarded<Zor8u> buffer(static_cast<size_t>(state.bytes()) + 1); // at an odd address
  const Margins margins = inverseMargins(low, high);
  std::array<Framed, 4> src = {Framed(size, n, margins, 4), Framed(size, n, margins, 0), Framed(size, n, margins, 8),
                               Framed(size, n, margins, 1)};
  for (Framed& s : src) s.fill(next);
  Floats dst(full.width * n, full.height, 5);
  ASSERT_EQ(InverseFunctions<n>::transform(src[0].data(), src[0].step(), src[1].data(), src[1].step(), src[2].data(),
                                           src[2].step(), src[3].data(), src[3].step(), size, dst.data(), dst.step,
                                           state.p, buffer.get()),
            ZorOk);
  for (int y = 0; y < full.height; ++y)
    for (int x = 0; x < full.width * n; ++x) {
      double sum = 0;
      for (int i = 0; i < 4; ++i) sum += inverseValue(src[i], *filters[i][0], *filters[i][1], x / n, y, x % n);
      ASSERT_NEAR(dst.get(x, y), sum, 2 * limit) << "back, at " << x << "," << y;
    }
}

Filter random(int length, int anchor)
{
  Noise noise(static_cast<unsigned>(100 * length + anchor));
  Filter f{{}, anchor};
  for (int k = 0; k < length; ++k) f.taps.push_back(noise.next());
  return f;
}

const float h2 = static_cast<float>(std::sqrt(0.5));
const Filter haarLow{{h2, h2}, 1}, haarHigh{{h2, -h2}, 1};

// The orthonormal pair of four taps.
Filter fourTaps(bool high)
{
  const double r = std::sqrt(3), d = 4 * std::sqrt(2);
  const std::vector<float> low = {static_cast<float>((1 + r) / d), static_cast<float>((3 + r) / d),
                                  static_cast<float>((3 - r) / d), static_cast<float>((1 - r) / d)};
  if (!high) return {low, 2};
  return {{low[3], -low[2], low[1], -low[0]}, 2};
}

} // namespace

TEST(Wavelet, EveryPlaceOfFilters)
{
  for (int length = 2; length <= 7; ++length)
    for (int anchor = 0; anchor < length; ++anchor)
      for (const auto& [otherLength, otherAnchor] : {std::pair{2, 0}, {5, 4}, {8, 3}}) {
        checkBoth<1>({5, 3}, random(length, anchor), random(otherLength, otherAnchor));
        checkBoth<1>({40, 2}, random(otherLength, otherAnchor), random(length, anchor));
        checkBoth<3>({11, 2}, random(length, anchor), random(otherLength, otherAnchor));
      }
}

TEST(Wavelet, EveryWidth)
{
  for (int width = 1; width <= 70; ++width) {
    checkBoth<1>({width, 1 + width % 3}, random(4, 2), random(3, 0));
    checkBoth<3>({width, 1 + width % 3}, random(5, 3), random(2, 1));
  }
  for (const int width : {255, 256, 257, 258, 511, 512, 513}) {
    checkBoth<1>({width, 3}, random(9, 4), random(7, 2));
    checkBoth<3>({width, 2}, random(4, 0), random(7, 6));
  }
  checkBoth<1>({3, 300}, random(4, 2), random(4, 2));
  checkBoth<1>({20, 3}, random(150, 70), random(61, 60));
}

// Forward and back give the image, its margins being those of a periodic image.
TEST(Wavelet, ReconstructsTheImage)
{
  const auto periodic = [](Framed& f, ZorImgSize size) {
    const int b = f.margins.before, e = f.margins.behind;
    for (int y = -b; y < size.height + e; ++y)
      for (int x = -b; x < size.width + e; ++x)
        f.put(x, y, 0, static_cast<float>(f.at((x + size.width) % size.width, (y + size.height) % size.height, 0)));
  };
  for (const auto& [low, high] : {std::pair{haarLow, haarHigh}, {fourTaps(false), fourTaps(true)}})
    for (const ZorImgSize size : {ZorImgSize{2, 2}, {16, 9}, {300, 20}}) {
      const ZorImgSize full = {2 * size.width, 2 * size.height};
      const ForwardState<1> there(low, high);
      const InverseState<1> back(low.back(), high.back());
      std::vector<Zor8u> buffer(static_cast<size_t>(std::max(there.bytes(), back.bytes())));
      Framed src(full, 1, forwardMargins(low, high), 0);
      Noise noise(3);
      src.fill([&] { return noise.next(); });
      periodic(src, full);
      const Margins m = inverseMargins(low.back(), high.back());
      Framed a(size, 1, m, 0), b(size, 1, m, 0), c(size, 1, m, 0), d(size, 1, m, 0);
      ASSERT_EQ(zoriWTFwd_32f_C1R(src.data(), src.step(), a.data(), a.step(), b.data(), b.step(), c.data(), c.step(),
                                  d.data(), d.step(), size, there.p, buffer.data()),
                ZorOk);
      for (Framed* f : {&a, &b, &c, &d}) periodic(*f, size);
      Floats dst(full.width, full.height, 0);
      ASSERT_EQ(zoriWTInv_32f_C1R(a.data(), a.step(), b.data(), b.step(), c.data(), c.step(), d.data(), d.step(), size,
                                  dst.data(), dst.step, back.p, buffer.data()),
                ZorOk);
      for (int y = 0; y < full.height; ++y)
        for (int x = 0; x < full.width; ++x) ASSERT_NEAR(dst.get(x, y), src.at(x, y, 0), 1e-6) << x << "," << y;
    }
}

TEST(Wavelet, BufferSizes)
{
  const auto total = [](int floats) { return ((floats * 4 + 31) & ~31) + floats * 4; };
  const Filter low = random(9, 4), high = random(7, 5);
  EXPECT_EQ((ForwardState<1>(low, high).bytes()), total(512 + 4 + 4));
  EXPECT_EQ((ForwardState<3>(low, high).bytes()), total(3 * (512 + 4 + 4)));
  EXPECT_EQ((ForwardState<1>(random(2, 0), random(2, 0)).bytes()), total(512 + 1));
  EXPECT_EQ((InverseState<1>(low, high).bytes()), total(256 + 2 + 2));
}

TEST(Wavelet, States)
{
  const int before = zoriTestLiveBlocks();
  const Filter low = random(4, 2), high = random(6, 1);
  ZorWtFwdState* state = reinterpret_cast<ZorWtFwdState*>(&state);
  zoriTestFailAllocationAt(1);
  EXPECT_EQ(zoriWTFwdInitAlloc_32f_C1R(&state, low.taps.data(), 4, 2, high.taps.data(), 6, 1), ZorErrAlloc);
  zoriTestFailAllocationAt(0);
  EXPECT_EQ(state, nullptr);
  // a buffer that no int can tell
  EXPECT_EQ(zoriWTFwdInitAlloc_32f_C1R(&state, low.taps.data(), 2147483647, 0, high.taps.data(), 6, 1), ZorErrAlloc);
  EXPECT_EQ(zoriWTFwdInitAlloc_32f_C3R(&state, low.taps.data(), 2147483647, 2147483646, high.taps.data(), 6, 1),
            ZorErrAlloc);

  float image[256] = {};
  Zor8u buffer[20000];
  const ForwardState<1> made(low, high);
  ASSERT_LE(made.bytes(), 20000);
  const auto forward = [&] {
    return zoriWTFwd_32f_C1R(image + 68, 64, image, 4, image, 4, image, 4, image, 4, {1, 1}, made.p, buffer);
  };
  EXPECT_EQ(forward(), ZorOk);
  // neither of another direction nor of another layout
  const auto asInverse = reinterpret_cast<ZorWtInvState*>(made.p);
  int bytes = 0;
  EXPECT_EQ(zoriWTInv_32f_C1R(image, 4, image, 4, image, 4, image, 4, {1, 1}, image, 32, asInverse, buffer),
            ZorErrContext);
  EXPECT_EQ(zoriWTInvFree_32f_C1R(asInverse), ZorErrContext);
  EXPECT_EQ(zoriWTFwdGetBufSize_C3R(made.p, &bytes), ZorErrContext);
  EXPECT_EQ(zoriWTFwdFree_32f_C1R(nullptr), ZorErrNullPtr);
  // every damaged number of the head (behind it stand the taps) comes before any other bad argument
  auto* const words = reinterpret_cast<std::uint32_t*>(made.p);
  int seen = 0;
  for (int i = 0; i < 34; ++i)
    for (const std::uint32_t bit : {1u, 0x100u, 0x80000000u}) {
      words[i] ^= bit;
      seen += zoriWTFwd_32f_C1R(nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, {0, 0}, made.p, nullptr) ==
              ZorErrContext;
      words[i] ^= bit;
    }
  EXPECT_EQ(seen, 34 * 3);
  EXPECT_EQ(forward(), ZorOk);
  EXPECT_EQ(zoriTestLiveBlocks(), before + 1);
}
