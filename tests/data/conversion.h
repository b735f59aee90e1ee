// Holds a conversion of samples against an oracle of one sample: all widths around the block sizes, all alignments,
// rows with and without a gap, and every byte around the pixels.
#pragma once

#include "zori/types.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace zoritest {

// The layouts of a family: channels, and whether the fourth one is kept.
enum Form { FormC1, FormC3, FormC4, FormAC4 };
constexpr Form allForms[] = {FormC1, FormC3, FormC4, FormAC4};
inline int channelsOf(Form form) { return form == FormC1 ? 1 : form == FormC3 ? 3 : 4; }

// Values that conversions stumble over, then random ones. Integers up to 16 bits: all of them.
template <class T> std::vector<T> samplesOf()
{
  std::vector<T> values;
  std::mt19937 random(7);
  if constexpr (std::is_floating_point_v<T>) {
    const T inf = std::numeric_limits<T>::infinity(), nan = std::numeric_limits<T>::quiet_NaN();
    for (T x :
         {T(0), T(1e-42), std::numeric_limits<T>::min(), T(0.3), T(0.49999997), T(0.5), T(0.50000006), T(0.7), T(1e4),
          T(1e9), T(2147483520), T(2147483648), T(4294967296), T(1e30), std::numeric_limits<T>::max(), inf, nan})
      for (T sign : {T(1), T(-1)}) values.push_back(std::copysign(x, sign));
    for (int bound : {0, 1, 2, 3, 126, 127, 128, 129, 254, 255, 256, 257, 32766, 32767, 32768, 65534, 65535, 65536})
      for (T part : {T(-0.5), T(-0.01), T(0), T(0.25), T(0.5), T(0.75)})
        for (T sign : {T(1), T(-1)}) values.push_back(sign * (static_cast<T>(bound) + part));
    for (int i = 0; i < 1000; ++i)
      values.push_back(static_cast<T>(static_cast<int>(random() % 800000) - 400000) / T(1024));
  } else if constexpr (sizeof(T) <= 2) {
    for (int x = std::numeric_limits<T>::min(); x <= std::numeric_limits<T>::max(); ++x)
      values.push_back(static_cast<T>(x));
  } else {
    for (int k = 0; k < 32; ++k)
      for (unsigned d : {0u, 1u, 2u, ~0u, ~1u})
        for (unsigned top : {0u, 0x80000000u}) values.push_back(static_cast<T>((1u << k) + d + top));
    for (int i = 0; i < 2000; ++i) values.push_back(static_cast<T>(random()) >> (i % 24));
  }
  return values;
}

template <class S, class D> struct Conversion {
  std::string name;
  Form form;
  std::vector<S> samples;

  // call(pSrc, srcStep, pDst, dstStep, roi); oracle(sample).
  template <class Call, class Oracle> void check(Call call, Oracle oracle)
  {
    const int channels = channelsOf(form);
    // every sample, in rows that adjoin and in rows that do not
    const int all = (static_cast<int>(samples.size()) + 7 * channels - 1) / (7 * channels);
    run({all, 7}, 0, 0, 0, call, oracle);
    run({all, 7}, 5, 16, 0, call, oracle);
    for (int width = 1; width <= 70; ++width)
      for (int offset : {0, 1, 2, 4, 7, 12}) run({width, 2}, offset, offset * 5 % 16, width * 131, call, oracle);
  }

private:
  template <class Call, class Oracle>
  void run(ZorImgSize roi, int padding, int offset, int firstSample, Call call, Oracle oracle)
  {
    if (testing::Test::HasFailure()) return;
    const int channels = channelsOf(form), border = 48;
    const int srcStep = roi.width * channels * static_cast<int>(sizeof(S)) + padding;
    const int dstStep = roi.width * channels * static_cast<int>(sizeof(D)) + padding;
    std::vector<unsigned char> src(static_cast<size_t>(srcStep * roi.height + 2 * border), 0xc3);
    std::vector<unsigned char> dst(static_cast<size_t>(dstStep * roi.height + 2 * border));
    for (size_t i = 0; i < dst.size(); ++i) dst[i] = static_cast<unsigned char>(i * 29 + i / 5);
    std::vector<unsigned char> expected = dst;
    unsigned char* const s = src.data() + border - offset;
    const auto d = border - 15 + offset;
    for (int y = 0, next = firstSample; y < roi.height; ++y)
      for (int x = 0; x < roi.width * channels; ++x, ++next) {
        const S sample = samples[static_cast<size_t>(next) % samples.size()];
        std::memcpy(s + y * srcStep + x * static_cast<int>(sizeof(S)), &sample, sizeof(S));
        if (form == FormAC4 && x % 4 == 3) continue;
        const D result = oracle(sample);
        std::memcpy(expected.data() + d + y * dstStep + x * static_cast<int>(sizeof(D)), &result, sizeof(D));
      }
    const auto before = src;
    ASSERT_EQ(call(reinterpret_cast<const S*>(s), srcStep, reinterpret_cast<D*>(dst.data() + d), dstStep, roi), ZorOk)
      << name;
    ASSERT_TRUE(src == before);
    for (size_t i = 0; i < dst.size(); ++i)
      if (dst[i] != expected[i]) {
        const int at = static_cast<int>(i) - d, y = at / dstStep, x = at % dstStep / static_cast<int>(sizeof(D));
        const bool inside = at >= 0 && y < roi.height && x < roi.width * channels;
        S sample{};
        if (inside) std::memcpy(&sample, s + y * srcStep + x * static_cast<int>(sizeof(S)), sizeof(S));
        FAIL() << name << " of " << roi.width << 'x' << roi.height << ", offset " << offset << ": byte " << i << " is "
               << int(dst[i]) << " instead of " << int(expected[i])
               << (inside ? ", sample " + std::to_string(x) + " of row " + std::to_string(y) + ", from " +
                              std::to_string(sample)
                          : std::string(", outside the pixels"));
      }
  }
};

// The four forms of a function.
#define ZORI_FORMS(function)                                                                                           \
  {                                                                                                                    \
    function##_C1R, function##_C3R, function##_C4R, function##_AC4R                                                    \
  }

inline unsigned controlWord() { return __builtin_ia32_stmxcsr(); }

// Another rounding field for a while: 0 nearest, 0x2000 down, 0x4000 up, 0x6000 toward zero.
class CallersRounding {
public:
  explicit CallersRounding(unsigned field) : old_(controlWord()) { __builtin_ia32_ldmxcsr((old_ & ~0x6000u) | field); }
  ~CallersRounding() { __builtin_ia32_ldmxcsr(old_); }

private:
  unsigned old_;
};

} // namespace zoritest
