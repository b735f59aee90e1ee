// zoriAddRandUniform_Direct_{8u,16u,16s,32f}_{C1,C3,C4,AC4}IR,
// zoriAddRandGauss_Direct_{8u,16u,16s,32f}_{C1,C3,C4,AC4}IR: noise added in place. Samples are drawn in memory order,
// from one generator a call.
#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/numeric_mode.h"
#include "rowkernels/simd.h"
#include "zori/synthetic.h"

#include <cmath>
#include <limits>

namespace zori {
namespace {

// Subtract with borrow, summed with a linear congruence; all modulo 2^32.
class Generator {
public:
  explicit Generator(Zor32u seed) : s0_(seed), s1_(next(s0_)), s2_(next(s1_)) {}

  Zor32s operator()()
  {
    lcg_ = next(lcg_);
    Zor32u t = s1_ - s2_ + carry_;
    const bool borrow = static_cast<Zor32s>(t) < 0;
    carry_ = borrow ? ~0u : 0;
    t -= borrow ? 18 : 0;
    s2_ = s1_;
    s1_ = s0_;
    s0_ = t;
    return static_cast<Zor32s>(s0_ + lcg_);
  }
  Zor32u state() const { return s0_; }

private:
  static Zor32u next(Zor32u x) { return x * 69069u + 1013904243u; }
  Zor32u s0_, s1_, s2_, carry_ = ~0u, lcg_ = 1131199209u;
};

class Uniform {
public:
  Uniform(Zor32u seed, double low, double high)
    : word_(seed), factor_((high - low) * 2.3283064365387e-10), middle_((low + high) * 0.5)
  {}
  double operator()() { return word_() * factor_ + middle_; }
  Zor32u state() const { return word_.state(); }

private:
  Generator word_;
  double factor_, middle_;
};

// The polar method: samples come in pairs, the second waits.
class Gauss {
public:
  Gauss(Zor32u seed, double mean, double stdDev) : word_(seed), mean_(mean), stdDev_(stdDev) {}
  double operator()()
  {
    if (waits_) {
      waits_ = false;
      return second_;
    }
    double g1, g2, q;
    do {
      g1 = word_() * 4.656612873077e-10;
      g2 = word_() * 4.656612873077e-10;
      q = g1 * g1 + g2 * g2;
    } while (q >= 1.0 || q == 0.0);
    const double f = std::sqrt(-2.0 * std::log(q) / q);
    second_ = g2 * f * stdDev_ + mean_;
    waits_ = true;
    return g1 * f * stdDev_ + mean_;
  }
  Zor32u state() const { return word_.state(); }

private:
  Generator word_;
  double mean_, stdDev_, second_ = 0;
  bool waits_ = false;
};

// The noise is rounded to nearest, ties to even, and far within an int.
template <class T> inline T noisy(T sample, double noise)
{
  if constexpr (std::is_same_v<T, Zor32f>) return sample + static_cast<Zor32f>(noise);
  else {
    const int sum = sample + toInt(noise);
    constexpr int least = std::numeric_limits<T>::min(), greatest = std::numeric_limits<T>::max();
    return static_cast<T>(sum < least ? least : sum > greatest ? greatest : sum);
  }
}

template <Layout L, class Source, class T>
ZorStatus addNoise(T* pSrcDst, int srcDstStep, ZorImgSize roiSize, T parameter1, T parameter2, Zor32u* pSeed)
{
  if (auto s = firstFailure(nonNull(pSrcDst, pSeed), nonEmpty(roiSize), positive(srcDstStep)); s != ZorOk) return s;
  underRounding(Rounding::Nearest, [=] {
    Source noise(*pSeed, static_cast<double>(parameter1), static_cast<double>(parameter2));
    for (int y = 0; y < roiSize.height; ++y) {
      T* p = rowAt(pSrcDst, srcDstStep, y);
      for (int x = 0; x < roiSize.width; ++x, p += channels<L>)
        for (int k = 0; k < processed<L>; ++k) put(p + k, noisy(get<T>(p + k), noise()));
    }
    *pSeed = noise.state();
  });
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout)                                                                                         \
  ZorStatus zoriAddRandUniform_Direct_##type##_##layout##IR(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize, \
                                                            Zor##type low, Zor##type high, Zor32u* pSeed)           \
  { return addNoise<layout, Uniform>(pSrcDst, srcDstStep, roiSize, low, high, pSeed); }                   \
  ZorStatus zoriAddRandGauss_Direct_##type##_##layout##IR(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize,   \
                                                          Zor##type mean, Zor##type stdDev, Zor32u* pSeed)          \
  { return addNoise<layout, Gauss>(pSrcDst, srcDstStep, roiSize, mean, stdDev, pSeed); }
#define STAMPS(type) STAMP(type, C1) STAMP(type, C3) STAMP(type, C4) STAMP(type, AC4)
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32f)
#undef STAMPS
#undef STAMP
