// What the tests of functions of one sample share: images of all values, and the layouts held against C1.
#pragma once

#include "support/numbers.h"
#include "zori/types.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <limits>
#include <random>
#include <vector>

// Every value of an integer type, as one row.
template <class T> std::vector<T> allValues()
{
  std::vector<T> all;
  for (int x = std::numeric_limits<T>::min(); x <= std::numeric_limits<T>::max(); ++x) all.push_back(static_cast<T>(x));
  return all;
}

// Scales from beyond both ends of what matters, with the extremes of int.
inline std::vector<int> manyScales()
{
  std::vector<int> scales{std::numeric_limits<int>::min(), -1000, 1000, std::numeric_limits<int>::max()};
  for (int s = -40; s <= 40; ++s) scales.push_back(s);
  return scales;
}

using zoritest::saturated;

// The function on one row of values against the oracle: oracle(value, scale) is the result as a number.
template <class T, class Oracle>
void expectMap(ZorStatus (*function)(const T*, int, T*, int, ZorImgSize, int), const std::vector<T>& values,
               const std::vector<int>& scales, ZorStatus status, Oracle oracle)
{
  const int length = static_cast<int>(values.size()), step = length * static_cast<int>(sizeof(T));
  std::vector<T> result(values.size());
  for (const int scale : scales) {
    ASSERT_EQ(function(values.data(), step, result.data(), step, {length, 1}, scale), status) << "scale " << scale;
    for (std::size_t i = 0; i < values.size(); ++i)
      ASSERT_EQ(+result[i], +saturated<T>(oracle(values[i], scale))) << "of " << +values[i] << " at scale " << scale;
  }
}

// A layout of a function: its channels, of which the fourth may have to stay, and its two forms.
template <class T, class... A> struct Form {
  int channels;
  bool keepsFourth;
  ZorStatus (*plain)(const T*, int, T*, int, ZorImgSize, A...);
  ZorStatus (*inPlace)(T*, int, ZorImgSize, A...);
};

// All forms give sample by sample what the first one, of one channel, gives: in rows with gaps and without, of every
// length up to a few vectors, on any bits.
template <class T, class... A> void expectLayoutsAgree(std::initializer_list<Form<T, A...>> forms, A... arguments)
{
  std::mt19937 random(7);
  const auto oneChannel = forms.begin()->plain;
  for (const auto& form : forms)
    for (int width = 1; width <= 40; ++width)
      for (const int gap : {0, 3}) {
        constexpr int height = 3;
        const auto rowLength = static_cast<std::size_t>(width * form.channels);
        const std::size_t pitch = rowLength + static_cast<std::size_t>(gap);
        std::vector<T> src(pitch * height), dst(src.size()), expected;
        for (auto* image : {&src, &dst})
          for (T& x : *image) {
            const std::uint32_t bits = random();
            std::memcpy(&x, &bits, sizeof(T));
          }
        expected = dst;
        for (std::size_t y = 0; y < height; ++y)
          for (std::size_t i = 0; i < rowLength; ++i)
            if (!form.keepsFourth || i % 4 != 3)
              oneChannel(&src[y * pitch + i], 4, &expected[y * pitch + i], 4, {1, 1}, arguments...);

        const int step = static_cast<int>(pitch * sizeof(T));
        std::vector<T> inPlace = src;
        if (form.plain) {
          ASSERT_GE(form.plain(src.data(), step, dst.data(), step, {width, height}, arguments...), ZorOk);
          ASSERT_EQ(std::memcmp(dst.data(), expected.data(), dst.size() * sizeof(T)), 0)
            << form.channels << " " << width;
        }
        ASSERT_GE(form.inPlace(inPlace.data(), step, {width, height}, arguments...), ZorOk);
        for (std::size_t i = 0; i < src.size(); ++i) {
          const bool kept = i % pitch >= rowLength || (form.keepsFourth && i % pitch % 4 == 3);
          const T* wanted = kept ? &src[i] : &expected[i];
          ASSERT_EQ(std::memcmp(&inPlace[i], wanted, sizeof(T)), 0) << form.channels << " " << width;
        }
      }
}

// Numbers in the order of their values, one apart: the distance of two in units of the last place.
inline long long place(float x)
{
  std::int32_t bits;
  std::memcpy(&bits, &x, 4);
  return bits < 0 ? -(static_cast<long long>(bits) & 0x7fffffff) : bits;
}

// The function on bit patterns spread over all of 32f, within one unit in the last place of the rounded oracle in
// double precision; NaN where that has NaN, infinite only where it is. `admitted` picks the samples.
template <class Oracle, class Admitted>
void expectLastPlace(ZorStatus (*function)(const Zor32f*, int, Zor32f*, int, ZorImgSize), Oracle oracle,
                     Admitted admitted)
{
  constexpr int length = 1000;
  std::vector<float> src, dst(length);
  std::uint64_t bits = 0;
  while (bits < (1ull << 32)) {
    for (src.clear(); src.size() < length && bits < (1ull << 32); bits += 2111) {
      const auto word = static_cast<std::uint32_t>(bits);
      float x;
      std::memcpy(&x, &word, 4);
      if (admitted(x)) src.push_back(x);
    }
    const int count = static_cast<int>(src.size());
    if (!count) continue;
    ASSERT_EQ(function(src.data(), 4 * count, dst.data(), 4 * count, {count, 1}), ZorOk);
    for (std::size_t i = 0; i < src.size(); ++i) {
      const double exact = oracle(static_cast<double>(src[i]));
      const float rounded = static_cast<float>(exact);
      if (rounded != rounded) ASSERT_NE(dst[i], dst[i]) << src[i];
      else if (rounded - rounded != 0 || dst[i] - dst[i] != 0) ASSERT_EQ(dst[i], rounded) << src[i];
      else
        ASSERT_LE(std::abs(place(dst[i]) - place(rounded)), 1) << src[i] << " gives " << dst[i] << " for " << rounded;
    }
  }
}

// One sample that the function warns of, in each place of rows of each length among samples that it does not:
// call(src, dst, length) calls it.
template <class T, class Call> void expectWarningAtEveryPlace(T harmless, T harmful, ZorStatus warning, Call call)
{
  for (int length = 1; length <= 70; ++length) {
    std::vector<T> src(static_cast<std::size_t>(length), harmless), dst(src);
    ASSERT_EQ(call(src.data(), dst.data(), length), ZorOk) << length;
    for (T& sample : src) {
      sample = harmful;
      ASSERT_EQ(call(src.data(), dst.data(), length), warning) << &sample - src.data() << " of " << length;
      sample = harmless;
    }
  }
}
