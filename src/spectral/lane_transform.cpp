// Transforms in lanes: levels of butterflies in place.
//
// A level of radix r on blocks of r * m elements takes elements j, j + m, ..., j + (r - 1) m of a block, replaces them
// by their transform and turns output k by e^(-2 pi i j k / (r m)). The next level works on the r blocks of m elements
// that are left. Run from the last level to the first, with the turns in front, the same levels take values in that
// order back to natural order, which the convolution makes use of.
#include "lane_transform.h"

#include "butterflies.h"

namespace zori {
namespace {

// How elements lie in memory: an element every `pitch` floats, the imaginary part of a lane `im` floats behind the real
// one (in front of it where the two have changed places), `vectors` vectors of lanes each.
struct Elements {
  float* first;
  std::ptrdiff_t pitch, im;
  int vectors;

  Elements from(std::ptrdiff_t element) const { return {first + element * pitch, pitch, im, vectors}; }
};

struct Level {
  int radix;
  std::ptrdiff_t apart;       // elements between the values of a butterfly, and butterflies in a block
  const float *roots, *turns; // of a prime radix; of the outputs, null in the last level
};

enum class Turns { Behind, InFront };

template <class V> inline Complex<V> at(const float* p, std::ptrdiff_t im)
{
  return {loadLanes<V>(p), loadLanes<V>(p + im)};
}
template <class V> inline void putAt(float* p, std::ptrdiff_t im, Complex<V> x)
{
  storeLanes(p, x.re);
  storeLanes(p + im, x.im);
}
template <class V> inline Complex<V> turnAt(const float* p) { return {allLanes<V>(p[0]), allLanes<V>(p[1])}; }

// How often a butterfly's turns are used: by many vectors, for which they are kept, or by one, which takes them as they
// come.
enum class Use { Often, Once };

template <int R, Turns place, bool hasTurns, Use use, class V>
[[gnu::noinline]] void runLevel(const Level& level, const Elements& data, std::ptrdiff_t blocks)
{
  const std::ptrdiff_t apart = level.apart * data.pitch, block = R * apart, im = data.im;
  const int vectors = data.vectors;
  const float* turn = level.turns;
  for (std::ptrdiff_t j = 0; j < level.apart; ++j) {
    Complex<V> w[R];
    const float* const turns = turn;
    if constexpr (hasTurns) turn += 2 * (R - 1);
    if constexpr (hasTurns && use == Use::Often) {
#pragma GCC unroll 16
      for (int k = 1; k < R; ++k) w[k] = turnAt<V>(turns + 2 * (k - 1));
    }
    const auto turned = [&](Complex<V> x, int k) {
      return x * (use == Use::Often ? w[k] : turnAt<V>(turns + 2 * (k - 1)));
    };
    float* p = data.first + j * data.pitch;
    for (std::ptrdiff_t b = 0; b < blocks; ++b, p += block)
      for (int v = 0; v < vectors; ++v) {
        float* const q = p + v * laneCount<V>;
        Complex<V> x[R];
#pragma GCC unroll 16
        for (int k = 0; k < R; ++k) x[k] = at<V>(q + k * apart, im);
        if constexpr (hasTurns && place == Turns::InFront) {
#pragma GCC unroll 16
          for (int k = 1; k < R; ++k) x[k] = turned(x[k], k);
        }
        butterfly<R>(x);
        if constexpr (hasTurns && place == Turns::Behind) {
#pragma GCC unroll 16
          for (int k = 1; k < R; ++k) x[k] = turned(x[k], k);
        }
#pragma GCC unroll 16
        for (int k = 0; k < R; ++k) putAt(q + k * apart, im, x[k]);
      }
  }
}

// An odd prime, by the definition: sums and differences of x[k] and x[r - k] against cosines and sines.
template <Turns place, class V>
[[gnu::noinline]] void runPrimeLevel(const Level& level, const Elements& data, std::ptrdiff_t blocks)
{
  const int r = level.radix, half = r / 2;
  const std::ptrdiff_t apart = level.apart * data.pitch, block = r * apart, im = data.im;
  const auto turnOf = [&](std::ptrdiff_t j, int k) { return turnAt<V>(level.turns + 2 * (j * (r - 1) + k - 1)); };
  const auto value = [&](const float* q, std::ptrdiff_t j, int k) {
    const Complex<V> x = at<V>(q + k * apart, im);
    return place == Turns::InFront && level.turns && k ? x * turnOf(j, k) : x;
  };
  for (std::ptrdiff_t j = 0; j < level.apart; ++j)
    for (std::ptrdiff_t b = 0; b < blocks; ++b)
      for (int v = 0; v < data.vectors; ++v) {
        float* const q = data.first + j * data.pitch + b * block + v * laneCount<V>;
        const auto put = [&](int k, Complex<V> x) {
          putAt(q + k * apart, im, place == Turns::Behind && level.turns && k ? x * turnOf(j, k) : x);
        };
        Complex<V> sum[75], difference[75];
        const Complex<V> first = value(q, j, 0);
        Complex<V> total = first;
        for (int k = 1; k <= half; ++k) {
          const Complex<V> a = value(q, j, k), c = value(q, j, r - k);
          sum[k] = a + c;
          difference[k] = a - c;
          total = total + sum[k];
        }
        put(0, total);
        for (int f = 1; f <= half; ++f) {
          Complex<V> even = first, odd = {allLanes<V>(0), allLanes<V>(0)};
          for (int k = 1, n = f; k <= half; ++k) {
            even = even + scaled(sum[k], allLanes<V>(level.roots[2 * n]));
            odd = odd + scaled(difference[k], allLanes<V>(level.roots[2 * n + 1]));
            if ((n += f) >= r) n -= r;
          }
          put(f, lessI(even, odd));
          put(r - f, plusI(even, odd));
        }
      }
}

// body(R) for the radix of a butterfly.
template <class Body> void withRadix(int radix, Body body)
{
  switch (radix) {
  case 2: return body(std::integral_constant<int, 2>{});
  case 3: return body(std::integral_constant<int, 3>{});
  case 4: return body(std::integral_constant<int, 4>{});
  case 5: return body(std::integral_constant<int, 5>{});
  case 6: return body(std::integral_constant<int, 6>{});
  case 8: return body(std::integral_constant<int, 8>{});
  case 9: return body(std::integral_constant<int, 9>{});
  case 10: return body(std::integral_constant<int, 10>{});
  case 12: return body(std::integral_constant<int, 12>{});
  case 16: return body(std::integral_constant<int, 16>{});
  }
}

template <Turns place, class V> void run(const Level& level, const Elements& data, std::ptrdiff_t blocks)
{
  if (level.roots) return runPrimeLevel<place, V>(level, data, blocks);
  withRadix(level.radix, [&](auto radix) {
    constexpr int R = decltype(radix)::value;
    if (!level.turns) runLevel<R, place, false, Use::Once, V>(level, data, blocks);
    else if (data.vectors * blocks > 1) runLevel<R, place, true, Use::Often, V>(level, data, blocks);
    else runLevel<R, place, true, Use::Once, V>(level, data, blocks);
  });
}

struct Levels {
  Level level[RadixList::most];
  int count;

  Levels(const LanePlan& plan, const void* block) : count(plan.radices().levels)
  {
    const float* p = plan.turns(block);
    std::ptrdiff_t left = plan.radices().length;
    for (int i = 0; i < count; ++i) {
      const int r = plan.radices().radix[i];
      left /= r;
      const float* roots = nullptr;
      if (!RadixList::isButterfly(r)) roots = p, p += 2 * r;
      level[i] = {r, left, roots, left > 1 ? p : nullptr};
      if (left > 1) p += 2 * (r - 1) * left;
    }
  }
  std::ptrdiff_t length() const { return level[0].radix * level[0].apart; }
};

// Bytes that may be walked several times over without leaving the cache that is nearest.
constexpr std::ptrdiff_t nearBytes = 40 * 1024;

// Levels from `i` on, on so many blocks. What does not fit the nearest cache is finished block by block.
template <class V> void fromNatural(const Levels& levels, int i, const Elements& data, std::ptrdiff_t blocks)
{
  for (; i < levels.count; ++i) {
    const Level& level = levels.level[i];
    const std::ptrdiff_t elements = level.radix * level.apart;
    if (blocks > 1 && blocks * elements * data.pitch * static_cast<std::ptrdiff_t>(sizeof(float)) > nearBytes) {
      for (std::ptrdiff_t b = 0; b < blocks; ++b) fromNatural<V>(levels, i, data.from(b * elements), 1);
      return;
    }
    run<Turns::Behind, V>(level, data, blocks);
    blocks *= level.radix;
  }
}

template <class V> void toNatural(const Levels& levels, const Elements& data)
{
  const std::ptrdiff_t length = levels.length();
  for (int i = levels.count - 1; i >= 0; --i) {
    const Level& level = levels.level[i];
    run<Turns::InFront, V>(level, data, length / (level.radix * level.apart));
  }
}

// The last level, each value times its factor, and the first level back, on R elements at a time.
template <int R, class V>
[[gnu::noinline]] void runMiddle(const Elements& data, std::ptrdiff_t blocks, const float* factors)
{
  const std::ptrdiff_t pitch = data.pitch, im = data.im, all = blocks * R * pitch;
  const int floats = data.vectors * laneCount<V>;
  for (std::ptrdiff_t b = 0; b < all; b += R * pitch)
    for (int i = 0; i < floats; i += laneCount<V>) {
      float* const q = data.first + b + i;
      const float* const f = factors + b + i;
      Complex<V> x[R];
#pragma GCC unroll 16
      for (int k = 0; k < R; ++k) x[k] = at<V>(q + k * pitch, im);
      butterfly<R>(x);
#pragma GCC unroll 16
      for (int k = 0; k < R; ++k) {
        const Complex<V> product = x[k] * at<V>(f + k * pitch, im);
        x[k] = {product.im, product.re};
      }
      butterfly<R>(x);
#pragma GCC unroll 16
      for (int k = 0; k < R; ++k) putAt<V>(q + k * pitch, im, {x[k].im, x[k].re});
    }
}

// Each value times its factor.
template <class V> void multiplyEach(const Elements& data, std::ptrdiff_t count, const float* factors)
{
  const std::ptrdiff_t im = data.im;
  const int floats = data.vectors * laneCount<V>;
  for (std::ptrdiff_t k = 0; k < count * data.pitch; k += data.pitch)
    for (int i = 0; i < floats; i += laneCount<V>)
      putAt(data.first + k + i, im, at<V>(data.first + k + i, im) * at<V>(factors + k + i, im));
}

// Levels from `i` on, a product, and the same levels back.
template <class V>
void multiplySpectra(const Levels& levels, int i, const Elements& data, std::ptrdiff_t blocks, const float* factors)
{
  const Level& level = levels.level[i];
  // what is at hand is worked both ways
  if (i + 1 == levels.count && level.radix == 4) return runMiddle<4, V>(data, blocks, factors);
  if (i + 1 == levels.count && level.radix == 8) return runMiddle<8, V>(data, blocks, factors);
  const std::ptrdiff_t elements = level.radix * level.apart, floats = elements * data.pitch;
  if (blocks > 1 && blocks * floats * static_cast<std::ptrdiff_t>(sizeof(float)) > nearBytes) {
    for (std::ptrdiff_t b = 0; b < blocks; ++b)
      multiplySpectra<V>(levels, i, data.from(b * elements), 1, factors + b * floats);
    return;
  }
  run<Turns::Behind, V>(level, data, blocks);
  if (i + 1 < levels.count) multiplySpectra<V>(levels, i + 1, data, blocks * level.radix, factors);
  else multiplyEach<V>(data, blocks * elements, factors);
  run<Turns::InFront, V>(level, {data.first + data.im, data.pitch, -data.im, data.vectors}, blocks);
}

// Element k times factor k.
template <class V> void multiply(const Elements& data, std::ptrdiff_t count, const float* factors)
{
  for (std::ptrdiff_t k = 0; k < count; ++k) {
    const Complex<V> f = turnAt<V>(factors + 2 * k);
    for (int v = 0; v < data.vectors; ++v) {
      float* const q = data.first + k * data.pitch + v * laneCount<V>;
      putAt(q, data.im, at<V>(q, data.im) * f);
    }
  }
}

// sum of x[j] w^(jk) = chirp[k] * sum of (x[j] chirp[j]) * conj(chirp[k - j]), w = chirp[1]^2
template <class V> void convolve(const LanePlan& plan, const void* block, const Levels& levels, const Elements& data)
{
  const std::ptrdiff_t n = plan.length(), m = static_cast<std::ptrdiff_t>(plan.workLength());
  multiply<V>(data, n, plan.chirp(block));
  std::memset(data.first + n * data.pitch, 0, static_cast<std::size_t>((m - n) * data.pitch) * sizeof(float));
  fromNatural<V>(levels, 0, data, 1);
  multiply<V>(data, m, plan.spectrum(block));
  toNatural<V>(levels, {data.first + data.im, data.pitch, -data.im, data.vectors});
  multiply<V>(data, n, plan.chirp(block));
}

template <class V> void transform(const LanePlan& plan, const void* block, float* buffer, int vectors)
{
  if (plan.radices().levels == 0) return; // a length of 1
  const Levels levels(plan, block);
  const std::ptrdiff_t lanes = static_cast<std::ptrdiff_t>(vectors) * laneCount<V>;
  const Elements data{buffer, 2 * lanes, lanes, vectors};
  if (plan.isConvolution()) convolve<V>(plan, block, levels, data);
  else fromNatural<V>(levels, 0, data, 1);
}

} // namespace

void transformOneLane(const LanePlan& plan, const void* block, float* buffer, int vectors)
{
  transform<float>(plan, block, buffer, vectors);
}
void transformFourLanes(const LanePlan& plan, const void* block, float* buffer, int vectors)
{
  transform<F32x4>(plan, block, buffer, vectors);
}
inline namespace ZORI_WIDTH {

void transformVectorLanes(const LanePlan& plan, const void* block, float* buffer, int vectors)
{
  transform<Vec<float>>(plan, block, buffer, vectors);
}

void transformBehindFirst(const LanePlan& plan, const void* block, float* buffer, int vectors)
{
  const Levels levels(plan, block);
  const std::ptrdiff_t lanes = static_cast<std::ptrdiff_t>(vectors) * laneCount<Vec<float>>;
  fromNatural<Vec<float>>(levels, 1, {buffer, 2 * lanes, lanes, vectors}, levels.level[0].radix);
}

void transformVectorLanesBack(const LanePlan& plan, const void* block, float* buffer, int vectors)
{
  const std::ptrdiff_t lanes = static_cast<std::ptrdiff_t>(vectors) * laneCount<Vec<float>>;
  toNatural<Vec<float>>(Levels(plan, block), {buffer + lanes, 2 * lanes, -lanes, vectors});
}

void transformSomeVectorLanesBack(const LanePlan& plan, const void* block, float* buffer, int vectors, int all)
{
  const std::ptrdiff_t lanes = static_cast<std::ptrdiff_t>(all) * laneCount<Vec<float>>;
  toNatural<Vec<float>>(Levels(plan, block), {buffer + lanes, 2 * lanes, -lanes, vectors});
}

void multiplySpectraOfVectorLanes(const LanePlan& plan, const void* block, float* buffer, const float* factors,
                                  int vectors)
{
  const std::ptrdiff_t lanes = static_cast<std::ptrdiff_t>(vectors) * laneCount<Vec<float>>;
  multiplySpectra<Vec<float>>(Levels(plan, block), 0, {buffer, 2 * lanes, lanes, vectors}, 1, factors);
}

} // namespace ZORI_WIDTH

void transformChirp(const LanePlan& plan, const void* block, float* pairs)
{
  fromNatural<float>(Levels(plan, block), 0, {pairs, 2, 1, 1}, 1);
}

} // namespace zori
