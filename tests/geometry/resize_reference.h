// The resize rules, pixel by pixel and in the order in which they are told.
#pragma once

#include "resize_image.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace resizetest {

constexpr double e = 1e-7;

struct Tap { // one output along one axis
  int k;     // pixel in the image: of the first of two, of the second of four, of the third of six
  double f;
};

// An axis: image pixels, region, limit of the destination.
struct Line {
  int image, first, length, limit;
  int count = 0;
  double step = 0, start = 0;

  Line(int i, int f, int l, int d) : image(i), first(f), length(std::min(l, i - f)), limit(d) {}

  bool byFactor(double factor, bool nearest)
  {
    const double exact = length * factor;
    const double whole = std::floor(exact + e);
    count = whole >= limit ? limit : whole >= 1 ? static_cast<int>(whole) : 1;
    if (whole < limit && whole < 1 && exact + e < 0.5) return false;
    step = nearest ? 1 / factor : exact > 1.0 ? (length - 1) / (exact - 1) : 0;
    return true;
  }
  void bySteps(double fr, bool nearest)
  {
    step = fr;
    const int n = static_cast<int>((nearest ? length : length - 1) / fr + e);
    count = n >= limit - 1 ? limit : std::max(nearest ? n : n + 1, 1);
  }
  void shifted(double shift, bool nearest) { start = (nearest ? 0.5 * step : 0) + shift; }

  // Positions, counted from the region, and the whole numbers that they are cut to (towards zero). Those outside the
  // image are its nearest pixel.
  struct Position {
    double x;
    int k;
  };
  std::vector<Position> positions() const
  {
    std::vector<Position> all;
    double x = start;
    for (int i = 0; i < count; ++i, x += step) {
      if (first + x < 0) all.push_back({-double(first), -first});
      else if (first + x > image - 1) all.push_back({double(image - 1 - first), image - 1 - first});
      else all.push_back({x, static_cast<int>(x + e)});
    }
    return all;
  }
};

inline std::vector<Tap> linearTaps(const Line& line)
{
  std::vector<Tap> taps;
  for (const auto& [x, k] : line.positions()) {
    const int a = line.first + k;
    taps.push_back(a == line.image - 1 ? Tap{a - 1, 1.0} : Tap{a, x - k});
  }
  return taps;
}
inline std::vector<Tap> cubicTaps(const Line& line)
{
  std::vector<Tap> taps;
  for (const auto& [x, cut] : line.positions()) {
    int k = cut;
    const int a = line.first + k;
    double f;
    if (a == line.image - 1) k -= 2, f = 2.0;
    else {
      if (a == 0) ++k;
      else if (a == line.image - 2) --k;
      f = x - k;
    }
    taps.push_back({line.first + k, f});
  }
  return taps;
}
inline std::vector<Tap> plainTaps(const Line& line)
{
  std::vector<Tap> taps;
  for (const auto& [x, k] : line.positions()) taps.push_back({line.first + k, x - k});
  return taps;
}

inline int fixedFraction(double f) { return static_cast<int>(f * 16384 + e); }

template <class T> T cut(double y) // of y + 0.5 and the like
{
  return static_cast<T>(
    std::clamp<double>(std::trunc(y), std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

// sample(x, y): a channel of the source. Results as rows of outputs.
template <class T, class Sample> std::vector<T> linear(const Line& lx, const Line& ly, Sample sample)
{
  std::vector<T> out;
  const auto columns = linearTaps(lx), rows = linearTaps(ly);
  for (const Tap& r : rows)
    for (const Tap& c : columns) {
      if constexpr (std::is_floating_point_v<T>) {
        const float f = static_cast<float>(c.f), g = static_cast<float>(r.f);
        float s[2];
        for (int j = 0; j < 2; ++j) {
          const float a = sample(c.k, r.k + j), b = sample(c.k + 1, r.k + j);
          s[j] = a + (b - a) * f;
        }
        out.push_back(s[0] * (1 - g) + s[1] * g);
      } else {
        const long long f = fixedFraction(c.f), g = fixedFraction(r.f);
        constexpr int first = sizeof(T) == 1 ? 8 : 14, second = sizeof(T) == 1 ? 20 : 14;
        long long s[2];
        for (int j = 0; j < 2; ++j) {
          const long long a = sample(c.k, r.k + j), b = sample(c.k + 1, r.k + j);
          s[j] = (a * (16384 - f) + b * f + (1 << (first - 1))) >> first;
          if (sizeof(T) == 2) s[j] = std::clamp<long long>(s[j], 0, 65535);
        }
        const long long y = (s[0] * (16384 - g) + s[1] * g + (1 << (second - 1))) >> second;
        out.push_back(static_cast<T>(std::clamp<long long>(y, 0, std::numeric_limits<T>::max())));
      }
    }
  return out;
}

inline float newtonForm(const float (&p)[4], float t)
{
  const float d1 = p[1] - p[0], d2 = (p[2] - p[1]) - d1, d3 = (((p[1] - p[2]) - p[2]) + p[3]) - d2;
  const float u = t * (t + 1) * 0.5f, v = (t - 1) * u / 3;
  return p[0] + v * d3 + u * d2 + (t + 1) * d1;
}

template <class T> T finished(float y)
{
  if constexpr (std::is_floating_point_v<T>) return y;
  else return cut<T>(y + 0.5000001192092896f);
}

template <class T, class Sample> std::vector<T> cubic(const Line& lx, const Line& ly, Sample sample)
{
  std::vector<T> out;
  const auto columns = cubicTaps(lx), rows = cubicTaps(ly);
  for (const Tap& r : rows)
    for (const Tap& c : columns) {
      float s[4];
      for (int j = 0; j < 4; ++j) {
        float p[4];
        for (int i = 0; i < 4; ++i) p[i] = sample(c.k - 1 + i, r.k - 1 + j);
        s[j] = newtonForm(p, static_cast<float>(c.f));
      }
      out.push_back(finished<T>(newtonForm(s, static_cast<float>(r.f))));
    }
  return out;
}

inline float lanczosEntry(int k)
{
  const double pi = std::acos(-1.0), x = k / 100.0;
  if (k == 0) return 1;
  if (k % 100 == 0 || k > 300) return 0;
  return static_cast<float>(std::sin(pi * x) / (pi * x) * (std::sin(pi * x / 3) / (pi * x / 3)));
}

inline std::vector<float> lanczosSix(float f)
{
  std::vector<float> w(6);
  for (int j = 0; j < 6; ++j) {
    const float t = std::min(std::fabs(static_cast<float>(j - 2) - f), 3.0f) * 100;
    const int m = static_cast<int>(t);
    w[static_cast<std::size_t>(j)] =
      lanczosEntry(m) + (t - static_cast<float>(m)) * (lanczosEntry(m + 1) - lanczosEntry(m));
  }
  const float sum = ((((w[0] + w[1]) + w[3]) + w[2]) + w[4]) + w[5];
  for (float& x : w) x /= sum;
  return w;
}

// In a row, what taps beyond the image weigh goes to its outermost pixel; rows beyond it are repeated.
template <class T, class Sample> std::vector<T> lanczos(const Line& lx, const Line& ly, Sample sample)
{
  std::vector<T> out;
  const auto columns = plainTaps(lx), rows = plainTaps(ly);
  for (const Tap& r : rows)
    for (const Tap& c : columns) {
      std::vector<float> w = lanczosSix(static_cast<float>(c.f));
      const auto down = lanczosSix(static_cast<float>(r.f));
      int begin = 0, end = 6;
      for (; c.k - 2 + begin < 0; ++begin) w[static_cast<std::size_t>(begin) + 1] += w[static_cast<std::size_t>(begin)];
      for (; c.k - 2 + end - 1 > lx.image - 1; --end)
        w[static_cast<std::size_t>(end) - 2] += w[static_cast<std::size_t>(end) - 1];
      float total = 0;
      for (int j = 0; j < 6; ++j) {
        const int y = std::clamp(r.k - 2 + j, 0, ly.image - 1);
        float sum = 0;
        for (int i = begin; i < end; ++i) {
          const float term = w[static_cast<std::size_t>(i)] * static_cast<float>(sample(c.k - 2 + i, y));
          sum = i == begin ? term : sum + term;
        }
        const float term = down[static_cast<std::size_t>(j)] * sum;
        total = j == 0 ? term : total + term;
      }
      out.push_back(finished<T>(total));
    }
  return out;
}

template <class T, class Sample> std::vector<T> nearest(const Line& lx, const Line& ly, Sample sample)
{
  std::vector<T> out;
  for (const auto& y : ly.positions())
    for (const auto& x : lx.positions()) out.push_back(sample(lx.first + x.k, ly.first + y.k));
  return out;
}

// ---- Supersampling: shares of pixels, carried from output to output ----

struct Share {
  long long pixel;
  float weight;
};

inline std::vector<std::vector<Share>> shares(double ratio, int count)
{
  std::vector<std::vector<Share>> all;
  const double n = std::floor(ratio);
  const bool whole = ratio - n < e;
  double rest = 0;
  long long at = 0;
  for (int i = 0; i < count; ++i) {
    std::vector<Share> share;
    double wholes = n;
    if (!whole && i > 0) {
      const double a = 1 - rest;
      wholes = std::floor(e + (ratio - a));
      rest = ratio - a - wholes;
      if (a > e) share.push_back({at++, static_cast<float>(a)});
    } else if (!whole) {
      rest = ratio - n;
    }
    if (std::fabs(rest) <= e) rest = 0;
    for (double k = 0; k < wholes; ++k) share.push_back({at++, 1});
    if (rest != 0) share.push_back({at, static_cast<float>(rest)});
    all.push_back(share);
  }
  return all;
}

// Integers under whole pixels are summed exactly.
template <class T, class Sum, class Sample>
std::vector<T> superIn(const Line& lx, const Line& ly, double xFactor, double yFactor, Sample sample)
{
  std::vector<T> out;
  const auto columns = shares(1 / xFactor, lx.count), rows = shares(1 / yFactor, ly.count);
  for (const auto& row : rows)
    for (const auto& column : columns) {
      Sum sum = 0;
      for (const Share& c : column) {
        Sum down = 0;
        for (const Share& r : row)
          down += static_cast<Sum>(sample(lx.first + static_cast<int>(std::min<long long>(c.pixel, lx.length - 1)),
                                          ly.first + static_cast<int>(std::min<long long>(r.pixel, ly.length - 1)))) *
                  r.weight;
        sum += down * c.weight;
      }
      const double scaled = static_cast<double>(sum) * (xFactor * yFactor);
      if constexpr (std::is_floating_point_v<T>) out.push_back(static_cast<float>(scaled));
      else out.push_back(cut<T>(scaled + 0.5));
    }
  return out;
}

template <class T, class Sample>
std::vector<T> super(const Line& lx, const Line& ly, double xFactor, double yFactor, Sample sample)
{
  const auto isWhole = [](double r) { return r - std::floor(r) < e; };
  if (!std::is_floating_point_v<T> && isWhole(1 / xFactor) && isWhole(1 / yFactor))
    return superIn<T, double>(lx, ly, xFactor, yFactor, sample);
  return superIn<T, float>(lx, ly, xFactor, yFactor, sample);
}

inline int lowered(int interpolation, ZorImgSize size)
{
  const int side = std::min(size.width, size.height);
  if (interpolation == 16 && side < 8) interpolation = 4;
  if (interpolation == 4 && side < 4) interpolation = 2;
  return side < 2 ? 1 : interpolation;
}

template <class T, class Sample>
std::vector<T> interpolated(int interpolation, const Line& lx, const Line& ly, Sample sample)
{
  switch (interpolation) {
  case 1: return nearest<T>(lx, ly, sample);
  case 2: return linear<T>(lx, ly, sample);
  case 4: return cubic<T>(lx, ly, sample);
  default: return lanczos<T>(lx, ly, sample);
  }
}

} // namespace resizetest
