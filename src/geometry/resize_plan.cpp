// Planning of a resize, one axis at a time.
#include "resize_plan.h"

#include "rowkernels/simd.h"

#include <algorithm>
#include <climits>
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

// 16384 - f and f of 16 bits each, as one number that is negative when f is.
inline std::int32_t pairOf(double fraction)
{
  const auto f = static_cast<std::uint32_t>(static_cast<std::int32_t>(fraction * 16384 + slack));
  return static_cast<std::int32_t>(((16384 - f) & 0xffff) | f << 16);
}

class Writer {
public:
  explicit Writer(AxisTable& table)
    : table_(table), at_(table.at), factors_(reinterpret_cast<float*>(table.factors)), pitch_(table.pitch)
  {}

  void at(int i, int pixel) { at_[i] = pixel; }
  void factor(int i, int plane, float x) { factors_[plane * pitch_ + i] = x; }
  void pair(int i, double fraction) { put(factors_ + i, pairOf(fraction)); }
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
    const int last = table_.count - 1;
    if (table_.taps == Taps::LinearInteger) {
      std::int32_t all = 0;
      for (int i = 0; i <= last; ++i) all |= get<std::int32_t>(factors_ + i);
      table_.hasNegative = all < 0;
    }
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

// emit(i, n, positions, whole): for n outputs from i on their positions, and these cut to pixels; both are counted from
// the region and lie in the image.
template <class Emit> inline void cutRuns(const Axis& axis, Emit emit)
{
  constexpr int run = 64;
  double positions[run];
  std::int32_t whole[run];
  const double lowest = -static_cast<double>(axis.first), highest = static_cast<double>(axis.image - 1) - axis.first;
  const double step = axis.step;
  double running = axis.start;
  for (int i = 0; i < axis.count; i += run) {
    const int n = std::min(run, axis.count - i);
    for (int j = 0; j < n; ++j, running += step) positions[j] = running;
    // cut towards zero, so that fractions left of the region's corner are negative
    if (step >= 0 && positions[0] >= lowest && positions[n - 1] <= highest) {
      for (int j = 0; j < n; ++j) whole[j] = static_cast<std::int32_t>(positions[j] + slack);
    } else {
      for (int j = 0; j < n; ++j) {
        const double x = positions[j];
        const bool isInside = x >= lowest && x <= highest;
        if (!isInside) positions[j] = x > highest ? highest : lowest;
        whole[j] = static_cast<std::int32_t>(isInside ? x + slack : positions[j]);
      }
    }
    emit(i, n, positions, whole);
  }
}

// emit(i, pixel, k, position) for each output; pixel is counted in the image.
template <class Emit> inline void cutPositions(const Axis& axis, Emit emit)
{
  const int first = axis.first;
  cutRuns(axis, [=](int i, int n, const double* positions, const std::int32_t* whole) {
    for (int j = 0; j < n; ++j) emit(i + j, first + whole[j], whole[j], positions[j]);
  });
}

// Whether positions grow from one that lies in the image: then they can only leave it behind its last pixel.
bool growsWithin(const Axis& axis)
{
  return axis.step >= 0 && axis.start >= -static_cast<double>(axis.first) && axis.first < axis.image;
}

// The factors of fractions.
template <class Factor> inline Vec<Factor> linearFactors(Vec<double> low, Vec<double> high)
{
  if constexpr (std::is_same_v<Factor, float>) {
    return toFloat(low, high);
  } else {
    const auto by = splat(16384.0), dust = splat(slack);
    const auto f = toIntTruncated(low * by + dust, high * by + dust);
    return (shiftLeft<16>(f) - f) + splat<Zor32s>(16384); // as pairOf
  }
}

// Of the last pixel all, as the second tap of the one before it.
template <class Factor> class LinearFiller {
public:
  static constexpr int unit = 8;

  LinearFiller(const Axis& axis, AxisTable& table)
    : at_(table.at), factors_(reinterpret_cast<Factor*>(table.factors)), first_(axis.first), last_(axis.image - 1)
  {}

  // Outputs i .. i + unit - 1, of which some may be those behind the last one, from positions that grow, in pairs.
  void fill(std::ptrdiff_t i, const F64x2 (&pairs)[unit / 2])
  {
    const auto dust = splat(slack), highest = splat(static_cast<double>(last_) - first_);
    const auto first = splat<Zor32s>(first_), last = splat<Zor32s>(last_ - first_);
    Vec<Factor> all;
    if constexpr (std::is_same_v<Factor, float>) all = splat(1.0f);
    else all = splat<Zor32s>(pairOf(1));
    const auto positions = [&pairs](int j) {
#if ZORI_VECTOR_BYTES == 32
      return joined(pairs[j / 2], pairs[j / 2 + 1]);
#else
      return pairs[j / 2];
#endif
    };
    constexpr int lanes = Vec<Zor32s>::size;
    for (int j = 0; j < unit; j += lanes) {
      const auto low = min(positions(j), highest), high = min(positions(j + lanes / 2), highest);
      const auto whole = toIntTruncated(low + dust, high + dust), isLast = equal(whole, last);
      const auto f = linearFactors<Factor>(low - toDoubleLow(whole), high - toDoubleHigh(whole));
      store(at_ + i + j, whole + first + isLast);
      store(factors_ + i + j, select(as<Factor>(isLast), all, f));
    }
  }
  // Any positions.
  void fillAll(const Axis& axis)
  {
    cutRuns(axis, [this](int i, int n, const double* positions, const std::int32_t* whole) {
      for (int j = 0; j < n; ++j) {
        const std::int32_t pixel = first_ + whole[j], isLast = pixel == last_;
        const double fraction = isLast ? 1.0 : positions[j] - whole[j];
        at_[i + j] = pixel - isLast;
        if constexpr (std::is_same_v<Factor, float>) factors_[i + j] = static_cast<float>(fraction);
        else factors_[i + j] = pairOf(fraction);
      }
    });
  }

private:
  std::int32_t* const at_;
  Factor* const factors_;
  const int first_, last_;
};

// Both axes side by side: each sum waits for the one before it.
template <class Factor> void fillLinear(const Axis& x, AxisTable& columns, const Axis& y, AxisTable& rows)
{
  LinearFiller<Factor> across(x, columns), down(y, rows);
  if (growsWithin(x) && growsWithin(y)) {
    constexpr int unit = LinearFiller<Factor>::unit;
    const auto pair = [](double a, double b) { return interleaveLow(splat<double, 16>(a), splat<double, 16>(b)); };
    const F64x2 step = pair(x.step, y.step);
    F64x2 sum = pair(x.start, y.start);
    for (std::ptrdiff_t i = 0; i < columns.count || i < rows.count; i += unit) {
      F64x2 positions[2][unit / 2];
      for (int j = 0; j < unit / 2; ++j) {
        const F64x2 next = sum + step;
        positions[0][j] = interleaveLow(sum, next);
        positions[1][j] = interleaveHigh(sum, next);
        sum = next + step;
      }
      if (i < columns.count) across.fill(i, positions[0]);
      if (i < rows.count) down.fill(i, positions[1]);
    }
  } else {
    across.fillAll(x);
    down.fillAll(y);
  }
  Writer(columns).finish();
  Writer(rows).finish();
}

// Positions whose sums have no rounding in them, as whole numbers of 20 bits behind the point.
void fillNearest(const Axis& axis, std::int32_t* at)
{
  constexpr int bits = 20;
  constexpr double one = 1 << bits;
  const double most = static_cast<double>(axis.image - 1) - axis.first,
               behind = axis.start + axis.step * static_cast<double>(tablePitch(axis.count));
  const auto isWhole = [](double x) { return x >= 0 && x * one == static_cast<Zor32s>(x * one); };
  if (!(most >= 0 && most < 2048 && behind < 2048 && isWhole(axis.start) && isWhole(axis.step)))
    return cutPositions(axis, [=](int i, int pixel, int, double) { at[i] = pixel; });
  // four at a time; behind the last output there is room
  const auto first = splat<Zor32s, 16>(axis.first), last = splat<Zor32s, 16>(static_cast<Zor32s>(most));
  const auto start = static_cast<Zor32s>(axis.start * one), step = static_cast<Zor32s>(axis.step * one);
  const Zor32s starts[4] = {start, start + step, start + 2 * step, start + 3 * step};
  auto position = load<Zor32s, 16>(starts);
  const auto next = splat<Zor32s, 16>(4 * step);
  for (int i = 0; i < axis.count; i += 4, position += next) {
    const auto pixel = shiftRight<bits>(position);
    store(at + i, first + select(greater(pixel, last), last, pixel));
  }
}

} // namespace

namespace {

void fillTable(const Axis& axis, AxisTable& table, bool foldsEdges)
{
  Writer to(table);
  const int last = axis.image - 1;
  switch (table.taps) {
  case Taps::Nearest: fillNearest(axis, table.at); break;
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
  default: break;
  }
  to.finish();
}

} // namespace

void fillTables(const Axis& x, AxisTable& columns, const Axis& y, AxisTable& rows)
{
  columns.image = x.image;
  rows.image = y.image;
  switch (columns.taps) {
  case Taps::LinearInteger: return fillLinear<std::int32_t>(x, columns, y, rows);
  case Taps::LinearFloat: return fillLinear<float>(x, columns, y, rows);
  default: fillTable(x, columns, true); return fillTable(y, rows, false);
  }
}

// ---- Windows ----

namespace {

// Whether the first taps of each n outputs lie at most `reach` apart; places grow along the row.
bool areNear(const AxisTable& columns, int n, int reach)
{
  int farthest = 0;
  for (std::ptrdiff_t i = 0; i < columns.pitch; i += n)
    farthest = std::max(farthest, columns.at[i + n - 1] - columns.at[i]);
  return farthest <= reach;
}

} // namespace

namespace {

// Byte b of the destination is byte (b % N) of pixel at[b / N].
template <int N> struct CopyWindow {
  const AxisTable& columns;
  int first, last; // pixels of the 16 bytes from b on
  int skipped;     // bytes of the first one

  CopyWindow(const AxisTable& c, long long b)
    : columns(c), first(static_cast<int>(b / N)), last(static_cast<int>((b + 15) / N)), skipped(static_cast<int>(b % N))
  {}
  bool fits() const { return (columns.at[last] - columns.at[first] + 1) * N <= 16; }
  std::int32_t start() const { return std::min(columns.at[first] * N, columns.image * N - 16); }
  void order(Zor8u* to) const
  {
    const int from = start();
    for (int i = first, c = skipped, k = 0; k < 16; ++i, c = 0)
      for (; c < N && k < 16; ++c, ++k) to[k] = static_cast<Zor8u>(columns.at[i] * N + c - from);
  }
};

template <int N> bool fillCopyWindows(AxisTable& columns)
{
  const long long bytes = 1LL * columns.count * N;
  if (bytes < 32 || columns.image < 16 || columns.image > INT_MAX / N) return false;
  const CopyWindow<N> lastBut1(columns, bytes - 32), last(columns, bytes - 16);
  bool fit = lastBut1.fits() && last.fits();
  for (long long b = 0; b + 16 <= bytes; b += 16) fit &= CopyWindow<N>(columns, b).fits();
  if (!fit) return false;
  std::ptrdiff_t g = static_cast<std::ptrdiff_t>((bytes + 31) / 32 * 2);
  lastBut1.order(columns.shuffles + 16 * (g - 2));
  last.order(columns.shuffles + 16 * (g - 1));
  const std::int32_t lastStarts[2] = {lastBut1.start(), last.start()};
  for (std::ptrdiff_t k = 0; k < g - 2; ++k) { // what is written over has been read
    const CopyWindow<N> window(columns, 16LL * k);
    window.order(columns.shuffles + 16 * k);
    columns.at[k] = window.start();
  }
  columns.at[g - 2] = lastStarts[0];
  columns.at[g - 1] = lastStarts[1];
  return true;
}

// The first tap stands at byte `first` of the window, in both bytes of a lane; the second one C further. Of all of the
// second tap that one is taken twice, for twice the fraction would not fit.
template <int C> inline void orderWindow(const std::int32_t* at, const Zor16s* pairs, std::int32_t start, Zor8u* order)
{
  constexpr int all = 16384;
  Zor8u* const factors = order + 32;
  if constexpr (C == 1) {
    const auto from = splat<Zor32s, 16>(start);
    const auto first = narrowSat<Zor16s>(load<Zor32s, 16>(at) - from, load<Zor32s, 16>(at + 4) - from),
               f = narrowSat<Zor16s>(shiftRight<16>(load<Zor32s, 16>(pairs)),
                                     shiftRight<16>(load<Zor32s, 16>(pairs + 8))),
               isAll = equal(f, splat<Zor16s, 16>(all));
    store(order, ((shiftLeft<8>(first) + first) + splat<Zor16s, 16>(256)) - isAll);
    store(factors, without(f + f, isAll));
  } else {
    constexpr std::uint64_t everyLane = 0x0001000100010001, samples = 0x0303020201010000;
    for (int k = 0; k < 2; ++k) { // a fourth sample of three is written over by what follows
      const int f = pairs[2 * k + 1], isAll = f == all;
      const auto taps = static_cast<std::uint64_t>((at[k] * C - start) * 257 + C * 256 + (C & -isAll));
      put(order + 2 * C * k, taps * everyLane + samples);
      put(factors + 2 * C * k, static_cast<std::uint16_t>(isAll ? 0 : 2 * f) * everyLane);
    }
    if constexpr (C == 3) { // the two lanes that count for nothing
      put(order + 12, std::uint32_t{0});
      put(factors + 12, std::uint32_t{0});
    }
  }
}

template <int C> void fillByteWindows(AxisTable& columns)
{
  constexpr int n = byteWindowOutputs(C);
  const std::int32_t* from = columns.at;
  const Zor16s* pairs = columns.pairs();
  std::int32_t* to = columns.at;
  const std::int32_t lastStart = columns.image * C - 16;
  Zor8u* order = columns.shuffles;
  for (std::ptrdiff_t i = 0; i < columns.pitch; i += n, from += n, pairs += 2 * n) {
    const std::int32_t start = std::min(from[0] * C, lastStart);
    orderWindow<C>(from, pairs, start, order);
    *to++ = start;
    order += i / n % 2 ? 48 : 16;
  }
}

} // namespace

bool makeCopyWindows(AxisTable& columns, int pixelBytes)
{
  if (!columns.shuffles) return false;
  switch (pixelBytes) {
  case 1: return fillCopyWindows<1>(columns);
  case 2: return fillCopyWindows<2>(columns);
  case 3: return fillCopyWindows<3>(columns);
  case 4: return fillCopyWindows<4>(columns);
  default: return false;
  }
}

bool makeByteWindows(AxisTable& columns, int channels)
{
  if (!columns.shuffles || columns.image < 16 || columns.image > INT_MAX / channels ||
      !areNear(columns, byteWindowOutputs(channels), 16 / channels - 2))
    return false;
  switch (channels) {
  case 1: fillByteWindows<1>(columns); break;
  case 3: fillByteWindows<3>(columns); break;
  default: fillByteWindows<4>(columns); break;
  }
  return true;
}

bool makePairWindows(AxisTable& columns, int sampleBytes)
{
  const int samples = 16 / sampleBytes, image = columns.image;
  if (!columns.shuffles || image < samples || !areNear(columns, 4, samples - 2)) return false;
  for (std::ptrdiff_t i = 0; i < columns.pitch; i += 4) {
    const int start = std::min(columns.at[i], image - samples);
    for (int k = 0; k < 4; ++k) {
      Zor8u* const to = columns.shuffles + 4 * (i + k);
      const int byte = (columns.at[i + k] - start) * sampleBytes;
      for (int b = 0; b < 4; ++b) to[b] = static_cast<Zor8u>(sampleBytes > 1 ? byte + b : b % 2 ? 0x80 : byte + b / 2);
    }
    columns.at[i] = start;
  }
  const auto exchange = [](void* a, void* b) {
    const auto x = load<Zor8u, 16>(a), y = load<Zor8u, 16>(b);
    store(a, y);
    store(b, x);
  };
  for (std::ptrdiff_t i = 4; i < columns.pitch; i += 16) {
    std::swap(columns.at[i], columns.at[i + 4]);
    exchange(columns.shuffles + 4 * i, columns.shuffles + 4 * (i + 4));
    exchange(columns.factors + 4 * i, columns.factors + 4 * (i + 4));
  }
  return true;
}

bool makeFloatWindows(AxisTable& columns)
{
  const int image = columns.image;
  if (!columns.shuffles || image < 8 || !areNear(columns, 8, 6)) return false;
  for (std::ptrdiff_t i = 0; i < columns.pitch; i += 8) {
    const int start = std::min(columns.at[i], image - 8);
    for (int k = 0; k < 8; ++k) put(columns.shuffles + 4 * (i + k), columns.at[i + k] - start);
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
