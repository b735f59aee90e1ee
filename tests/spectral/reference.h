// Transforms in double precision, as plain as can be, and vectors and images that end where a page without access
// begins.
#pragma once

#include "support/guarded_block.h"
#include "zori/types.h"

#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace spectral {

using Number = std::complex<double>;
using Numbers = std::vector<Number>;

constexpr double pi = 3.14159265358979323846;

// e^(sign 2 pi i k / n) for k = 0 .. n - 1
inline Numbers roots(long long n, int sign)
{
  Numbers w(static_cast<size_t>(n));
  for (long long k = 0; k < n; ++k)
    w[k] = std::polar(1.0, sign * 2 * pi * static_cast<double>(k) / static_cast<double>(n));
  return w;
}

// By halves while the length is even, by its least odd prime then, by the definition where nothing is left to split.
inline Numbers transformed(const Numbers& x, int sign)
{
  const size_t n = x.size();
  Numbers y(n);
  if (n % 2 == 0) {
    Numbers even(n / 2), odd(n / 2);
    for (size_t i = 0; i < n / 2; ++i) even[i] = x[2 * i], odd[i] = x[2 * i + 1];
    even = transformed(even, sign);
    odd = transformed(odd, sign);
    for (size_t k = 0; k < n / 2; ++k) {
      const Number turned = odd[k] * std::polar(1.0, sign * 2 * pi * static_cast<double>(k) / static_cast<double>(n));
      y[k] = even[k] + turned;
      y[k + n / 2] = even[k] - turned;
    }
    return y;
  }
  size_t prime = 3;
  while (prime < n && n % prime != 0) prime = prime * prime > n ? n : prime + 2;
  const Numbers w = roots(static_cast<long long>(n), sign);
  const auto addPart = [&](size_t k, Number part, size_t turn) {
    const Number by = w[turn];
    y[k] +=
      Number(part.real() * by.real() - part.imag() * by.imag(), part.real() * by.imag() + part.imag() * by.real());
  };
  if (prime >= n) {
    for (size_t k = 0; k < n; ++k)
      for (size_t j = 0, turn = 0; j < n; ++j, turn = turn + k < n ? turn + k : turn + k - n) addPart(k, x[j], turn);
    return y;
  }
  const size_t m = n / prime;
  for (size_t r = 0; r < prime; ++r) {
    Numbers part(m);
    for (size_t i = 0; i < m; ++i) part[i] = x[i * prime + r];
    part = transformed(part, sign);
    for (size_t k = 0, turn = 0; k < n; ++k, turn = turn + r < n ? turn + r : turn + r - n)
      addPart(k, part[k % m], turn);
  }
  return y;
}

// Rows, then columns, of an image whose rows follow each other.
inline Numbers transformed(Numbers image, ZorImgSize size, int sign)
{
  const size_t w = static_cast<size_t>(size.width), h = static_cast<size_t>(size.height);
  for (size_t y = 0; y < h; ++y) {
    const Numbers row = transformed(
      Numbers(image.begin() + static_cast<long>(y * w), image.begin() + static_cast<long>((y + 1) * w)), sign);
    std::copy(row.begin(), row.end(), image.begin() + static_cast<long>(y * w));
  }
  for (size_t x = 0; x < w; ++x) {
    Numbers column(h);
    for (size_t y = 0; y < h; ++y) column[y] = image[y * w + x];
    column = transformed(column, sign);
    for (size_t y = 0; y < h; ++y) image[y * w + x] = column[y];
  }
  return image;
}

// The cells of the packed spectrum, row by row.
inline std::vector<double> packed(const Numbers& a, ZorImgSize size)
{
  const int w = size.width, h = size.height;
  std::vector<double> cells(static_cast<size_t>(w) * h);
  const auto cell = [&](int c, int r) -> double& { return cells[static_cast<size_t>(r) * w + c]; };
  const auto at = [&](int u, int v) { return a[static_cast<size_t>(v) * w + u]; };
  const auto realColumn = [&](int c, int u) {
    for (int r = 0; r < h; ++r)
      cell(c, r) = r == 0 ? at(u, 0).real() : r % 2 == 0 ? at(u, r / 2).imag() : at(u, (r + 1) / 2).real();
  };
  realColumn(0, 0);
  for (int c = 1; c < w; ++c) {
    if (c == w - 1 && w % 2 == 0) realColumn(c, w / 2);
    else
      for (int r = 0; r < h; ++r) cell(c, r) = c % 2 != 0 ? at((c + 1) / 2, r).real() : at(c / 2, r).imag();
  }
  return cells;
}

inline double sumOfSquares(const Numbers& x)
{
  double sum = 0;
  for (const Number& v : x) sum += std::norm(v);
  return sum;
}

// Root mean square and worst error of single numbers against what is allowed, as a share of it; n values went in.
class Errors {
public:
  // `norm` is the 2-norm of the input times the divisor's factor.
  Errors(double n, double norm, double limit = 0)
    : limit_((limit != 0 ? limit : 1e-7 + 6e-8 * std::sqrt(std::log2(n < 2 ? 2 : n))) * norm)
  {}
  void add(Number got, Number expected)
  {
    const double e = std::norm(got - expected);
    sum_ += e;
    worst_ = std::max(worst_, e);
    ++count_;
    isFinite_ &= std::isfinite(e);
  }
  double share() const
  {
    if (!isFinite_) return INFINITY;
    return std::max(std::sqrt(sum_ / count_) / limit_, std::sqrt(worst_) / limit_ / 6);
  }

private:
  double limit_, sum_ = 0, worst_ = 0;
  int count_ = 0;
  bool isFinite_ = true;
};

// White noise: its spectrum has no lines, in which errors would gather.
class Noise {
public:
  explicit Noise(unsigned seed) : state_(seed + 1) {}
  float next()
  {
    std::uint64_t z = state_ += 0x9E3779B97F4A7C15u;
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9u;
    z = (z ^ z >> 27) * 0x94D049BB133111EBu;
    return static_cast<float>(static_cast<int>(z >> 40) - (1 << 23)) / (1 << 23);
  }

private:
  std::uint64_t state_;
};

// So many elements; the page behind them cannot be touched.
template <class T> class Guarded {
public:
  explicit Guarded(size_t count)
    : count_(count), block_(std::make_unique<zoritest::GuardedBlock>(count * sizeof(T) + 1)),
      first_(reinterpret_cast<T*>(block_->end() - count * sizeof(T)))
  {}
  T* get() const { return first_; }
  T& operator[](size_t i) const { return first_[i]; }
  size_t size() const { return count_; }

private:
  size_t count_;
  std::unique_ptr<zoritest::GuardedBlock> block_;
  T* first_;
};

// Rows of floats with some between them; the last one ends at a page without access.
struct Floats {
  int width, height, step;
  Guarded<unsigned char> bytes;
  Floats(int w, int h, int padding)
    : width(w), height(h), step(w * 4 + padding),
      bytes(static_cast<size_t>(step) * (h - 1) + static_cast<size_t>(w) * 4)
  {
    std::memset(bytes.get(), 0xab, bytes.size());
  }
  float* data() const { return reinterpret_cast<float*>(bytes.get()); }
  float get(int x, int y) const
  {
    float v;
    std::memcpy(&v, bytes.get() + static_cast<size_t>(y) * step + 4 * x, 4);
    return v;
  }
  void put(int x, int y, float v) { std::memcpy(bytes.get() + static_cast<size_t>(y) * step + 4 * x, &v, 4); }
  bool operator==(const Floats& other) const
  {
    for (int y = 0; y < height; ++y)
      if (std::memcmp(bytes.get() + static_cast<size_t>(y) * step,
                      other.bytes.get() + static_cast<size_t>(y) * other.step, static_cast<size_t>(width) * 4) != 0)
        return false;
    return true;
  }
};

} // namespace spectral
