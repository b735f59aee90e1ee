// Planning of a resize, one axis at a time.
#include "resize_plan.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace zori {
namespace resize {
namespace {

// Keeps exact halves and whole numbers, which sums of doubles may fall short of, on their own side.
constexpr double slack = 1e-7;

// Cut to a whole number between low and high, whatever x is; low for what is no number.
int cutToWhole(double x, int low, int high)
{
  if (!(x > low)) return low;
  return x < high ? static_cast<int>(x) : high;
}

} // namespace

// ---- Extents and steps ----

ZorStatus countByFactor(Axis& axis, double factor)
{
  const double exact = axis.length * factor + slack;
  const int whole = cutToWhole(exact, 0, axis.limit);
  if (whole < 1 && exact < 0.5) return ZorErrSubsample;
  axis.count = std::max(whole, 1);
  return ZorOk;
}

void countByStep(Axis& axis, bool isNearest)
{
  const double exact = (isNearest ? axis.length : axis.length - 1) / axis.step;
  const int n = cutToWhole(exact + slack, 0, axis.limit);
  axis.count = n >= axis.limit - 1 ? axis.limit : std::max(isNearest ? n : n + 1, 1);
}

double stepOfFactor(const Axis& axis, double factor, bool isNearest)
{
  if (isNearest) return 1 / factor;
  const double exact = axis.length * factor;
  return exact > 1.0 ? (axis.length - 1) / (exact - 1) : 0;
}

int interpolationFor(int interpolation, int width, int height)
{
  const int side = std::min(width, height);
  if (interpolation == ZORI_INTER_LANCZOS && side < 8) interpolation = ZORI_INTER_CUBIC;
  if (interpolation == ZORI_INTER_CUBIC && side < 4) interpolation = ZORI_INTER_LINEAR;
  return side < 2 ? static_cast<int>(ZORI_INTER_NN) : interpolation;
}

// ---- Weights ----

namespace {

// sin(pi * x) for x from 0 to 3.
constexpr double sineOfPi(double x)
{
  double sign = 1;
  for (; x >= 1; x -= 1) sign = -sign;
  const double angle = 3.14159265358979323846 * (x > 0.5 ? 1 - x : x);
  double term = angle, sum = angle;
  for (int n = 2; n < 24; n += 2) {
    term *= -angle * angle / (n * (n + 1));
    sum += term;
  }
  return sign * sum;
}

// sinc(x) * sinc(x / 3) at hundredths, exact zeros where it vanishes.
struct LanczosTable {
  float at[302];

  constexpr LanczosTable() : at()
  {
    at[0] = 1;
    for (int k = 1; k < 300; ++k) {
      const double x = k / 100.0, pi = 3.14159265358979323846;
      if (k % 100 != 0) at[k] = static_cast<float>(sineOfPi(x) * sineOfPi(x / 3) * 3 / (pi * x * pi * x));
    }
  }
};
constexpr LanczosTable lanczosTable;

float lanczosAt(float distance)
{
  const float t = std::min(distance, 3.0f) * 100;
  const int m = static_cast<int>(t);
  const float left = lanczosTable.at[m], right = lanczosTable.at[m + 1];
  return left + (t - static_cast<float>(m)) * (right - left);
}

double interpolatingCubic(double d)
{
  if (d < 1) return 0.5 * d * d * d - d * d - 0.5 * d + 1;
  return d < 2 ? -d * d * d / 6 + d * d - 11.0 / 6 * d + 1 : 0;
}

double cubicSpline(double d)
{
  if (d < 1) return 0.5 * d * d * d - d * d + 2.0 / 3;
  return d < 2 ? -d * d * d / 6 + d * d - 2 * d + 4.0 / 3 : 0;
}

} // namespace

void lanczosWeights(float fraction, float (&w)[6])
{
  for (int j = 0; j < 6; ++j) w[j] = lanczosAt(std::fabs(static_cast<float>(j - 2) - fraction));
  const float sum = ((((w[0] + w[1]) + w[3]) + w[2]) + w[4]) + w[5];
  for (float& x : w) x /= sum;
}

void cubicWeights(double fraction, float spline, float (&weights)[4])
{
  for (int j = 0; j < 4; ++j) {
    const double d = std::fabs(j - 1 - fraction), s = static_cast<double>(spline);
    double w = 0;
    if (s < 1) w += (1 - s) * interpolatingCubic(d);
    if (s > 0) w += s * cubicSpline(d);
    weights[j] = static_cast<float>(w);
  }
}

// ---- Tables ----

namespace {

class Writer {
public:
  explicit Writer(AxisTable& table)
    : table_(table), at_(table.at), factors_(reinterpret_cast<float*>(table.factors)), pitch_(table.pitch)
  {}

  void at(int i, int pixel) { at_[i] = pixel; }
  void factor(int i, int plane, float x) { factors_[plane * pitch_ + i] = x; }
  void pair(int i, double fraction)
  {
    const int f = static_cast<int>(fraction * 16384 + slack);
    hasNegative_ |= f < 0;
    const Zor16s pair[2] = {static_cast<Zor16s>(16384 - f), static_cast<Zor16s>(f)};
    std::memcpy(factors_ + i, pair, sizeof pair);
  }
  void newton(int i, float t)
  {
    const float u = t * (t + 1) * 0.5f;
    factor(i, 0, u);
    factor(i, 1, (t - 1) * u / 3);
    factor(i, 2, t + 1);
  }
  template <int N> void weights(int i, const float (&w)[N])
  {
    for (int j = 0; j < N; ++j) factor(i, j, w[j]);
  }
  // The entries behind the last output.
  void finish()
  {
    table_.hasNegative = hasNegative_;
    const int last = table_.count - 1;
    for (std::ptrdiff_t i = table_.count; i < table_.pitch; ++i) {
      table_.at[i] = table_.at[last];
      for (int p = 0; p < factorsOf(table_.taps); ++p) {
        char* const plane = table_.factors + p * table_.pitch * 4;
        std::memcpy(plane + 4 * i, plane + 4 * static_cast<std::ptrdiff_t>(last), 4);
      }
    }
  }

private:
  AxisTable& table_;
  std::int32_t* const at_;
  float* const factors_;
  const std::ptrdiff_t pitch_;
  bool hasNegative_ = false;
};

// The weights of taps beyond the image's ends are added to those of its first and last pixel.
void foldWeights(int firstTap, int image, float (&w)[6])
{
  const int below = std::max(-firstTap, 0), above = std::min(image - 1 - firstTap, 5);
  for (int j = 0; j < below; ++j) w[j + 1] += w[j], w[j] = 0;
  for (int j = 5; j > above; --j) w[j - 1] += w[j], w[j] = 0;
}

} // namespace

namespace {

// emit(i, pixel, k, position): for each output the pixel of the image that its position is cut to, and the same counted
// from the region, as is the position.
template <class Emit> inline void cutPositions(const Axis& axis, Emit emit)
{
  const int first = axis.first, count = axis.count;
  const double lowest = -static_cast<double>(first), highest = static_cast<double>(axis.image - 1) - first;
  const double step = axis.step;
  double running = axis.start;
  for (int i = 0; i < count; ++i, running += step) {
    // inside, k is cut towards zero, so that fractions left of the region's corner are negative
    double position = running;
    int k;
    if (running >= lowest && running <= highest) {
      k = static_cast<int>(running + slack);
    } else {
      position = running > highest ? highest : lowest;
      k = static_cast<int>(position);
    }
    emit(i, first + k, k, position);
  }
}

// Whether sums of steps have no rounding in them, so that products are the same numbers.
bool isExact(const Axis& axis)
{
  const auto isShort = [](double x) { return x >= 0 && x < 1024 && x * 1048576 == std::floor(x * 1048576); };
  return isShort(axis.start) && isShort(axis.step);
}

void fillNearest(const Axis& axis, std::int32_t* at)
{
  const double start = axis.start, step = axis.step, most = static_cast<double>(axis.image - 1) - axis.first;
  if (!isExact(axis) || most < 0) return cutPositions(axis, [=](int i, int pixel, int, double) { at[i] = pixel; });
  // each without the one before it
  const int first = axis.first, count = axis.count;
  for (int i = 0; i < count; ++i) {
    const double position = start + i * step;
    at[i] = first + static_cast<int>((position < most ? position : most) + slack);
  }
}

} // namespace

void fillTable(const Axis& axis, AxisTable& table, bool foldsEdges)
{
  Writer to(table);
  table.image = axis.image;
  const int last = axis.image - 1;
  switch (table.taps) {
  case Taps::Nearest: fillNearest(axis, table.at); break;
  case Taps::LinearInteger:
    cutPositions(axis, [&, last](int i, int pixel, int k, double position) {
      to.at(i, pixel == last ? pixel - 1 : pixel);
      to.pair(i, pixel == last ? 1.0 : position - k);
    });
    break;
  case Taps::LinearFloat:
    cutPositions(axis, [&, last](int i, int pixel, int k, double position) {
      to.at(i, pixel == last ? pixel - 1 : pixel);
      to.factor(i, 0, pixel == last ? 1.0f : static_cast<float>(position - k));
    });
    break;
  case Taps::Newton: // in the outermost intervals the polynomial of the next one goes on
    cutPositions(axis, [&, last](int i, int pixel, int k, double position) {
      const int moved = pixel == last ? -2 : pixel == 0 ? 1 : pixel == last - 1 ? -1 : 0;
      to.at(i, pixel + moved - 1);
      to.newton(i, pixel == last ? 2.0f : static_cast<float>(position - (k + moved)));
    });
    break;
  case Taps::Weights6:
    table.outside = foldsEdges ? AxisTable::Outside::Zero : AxisTable::Outside::Nearest;
    cutPositions(axis, [&](int i, int pixel, int k, double position) {
      float w[6];
      lanczosWeights(static_cast<float>(position - k), w);
      if (foldsEdges) foldWeights(pixel - 2, axis.image, w);
      to.at(i, pixel - 2);
      to.weights(i, w);
    });
    break;
  case Taps::Weights4: break; // of squares alone
  }
  to.finish();
}

bool bringTogether(AxisTable& columns, int sampleBytes)
{
  const int samples = 16 / sampleBytes, image = columns.image;
  if (!columns.shuffles || image < samples) return false;
  for (std::ptrdiff_t i = 0; i < columns.pitch; i += 4)
    if (columns.at[i + 3] + 1 - columns.at[i] >= samples) return false;
  for (std::ptrdiff_t i = 0; i < columns.pitch; i += 4) {
    const int start = std::min(columns.at[i], image - samples);
    for (int k = 0; k < 4; ++k) {
      Zor8u* const to = columns.shuffles + 4 * (i + k);
      const int byte = (columns.at[i + k] - start) * sampleBytes;
      for (int b = 0; b < 4; ++b) to[b] = static_cast<Zor8u>(sampleBytes > 1 ? byte + b : b % 2 ? 0x80 : byte + b / 2);
    }
    columns.at[i] = start;
  }
  return true;
}

double SquareAxis::positionOf(int i) const { return (static_cast<double>(firstOutput) + i + 0.5 - shift) / factor; }

void fillTable(const SquareAxis& axis, AxisTable& table)
{
  Writer to(table);
  table.image = axis.image;
  table.outside = AxisTable::Outside::Nearest;
  const int last = axis.image - 1;
  for (int i = 0; i < axis.count; ++i) {
    const double centre = axis.positionOf(i);
    if (table.taps == Taps::Nearest) {
      to.at(i, cutToWhole(centre, 0, last)); // what is not above 0 is pixel 0
      continue;
    }
    const bool isLinear = table.taps == Taps::LinearInteger || table.taps == Taps::LinearFloat;
    const double lowest = isLinear ? 0 : -1, highest = isLinear ? last : axis.image;
    const double point = centre - 0.5;
    const double position = point < highest ? (point > lowest ? point : lowest) : point >= highest ? highest : lowest;
    const int k = static_cast<int>(std::floor(position));
    const double fraction = position - k;
    switch (table.taps) {
    case Taps::LinearInteger:
    case Taps::LinearFloat: { // an image one pixel wide has its pixel twice
      const bool isLast = k == last && last > 0;
      to.at(i, isLast ? k - 1 : k);
      if (table.taps == Taps::LinearInteger) to.pair(i, isLast ? 1.0 : fraction);
      else to.factor(i, 0, static_cast<float>(isLast ? 1.0 : fraction));
      break;
    }
    case Taps::Weights4: {
      float w[4];
      cubicWeights(fraction, axis.spline, w);
      to.at(i, k - 1);
      to.weights(i, w);
      break;
    }
    case Taps::Weights6: {
      float w[6];
      lanczosWeights(static_cast<float>(fraction), w);
      to.at(i, k - 2);
      to.weights(i, w);
      break;
    }
    default: break;
    }
  }
  to.finish();
}

} // namespace resize
} // namespace zori
