// The sums of bilateral filters.
//
// The weight between two pixels serves both of them. Windows of moderate radii therefore look up the weights to the
// right and below only, in strips of columns that go down the region: a row's weights to a row below are formed for all
// distances along the row, added to the sums of the row below (which stand in a ring), and to those of the row itself.
// Larger windows form all weights of a window at once and keep nothing.
//
//   radius 1, 2, 3, 4 at step 1, 2 and 4 at step 2, square    half the weights, unrolled
//   others up to 8                                            half the weights
//   larger                                                    all weights
#include "bilateral_sums.h"

#include "rowkernels/convert.h"

#include <algorithm>

namespace zori {
namespace bilateral {
namespace {

constexpr int vectorRoom = 32; // bytes that vectors may reach beyond the last pixel

// The weights of differences, with zeros between them: so a pair of words that is read has its weight in either.
struct ValueTable {
  alignas(64) float spaced[2 * levels + 1] = {};
  explicit ValueTable(const Record& record)
  {
    float weights[levels];
    record.copyValues(weights);
    for (int i = 0; i < levels; ++i) spaced[2 * i + 1] = weights[i];
  }

  // Of four differences, which are read as one word: reading counts for more here than arithmetic.
  F32x4 ofFour(const Zor8u* differences) const
  {
    const std::uint64_t four = get<std::uint32_t>(differences), upper = four >> 16;
    const auto first = [=](std::uint64_t i) { return spaced + 1 + 2 * i; };
    const auto second = [=](std::uint64_t i) { return spaced + 2 * i; };
    return loadHalves(first(four & 255), first(upper & 255)) | loadHalves(second(four >> 8 & 255), second(upper >> 8));
  }
};

// Asks for the part of a row that a strip comes to next: strips are too narrow for the processor to do so by itself.
inline void fetchRow(const Zor8u* p, int length)
{
  for (int i = 0; i < length; i += 64) prefetch(p + i);
}

inline Vec<Zor8u> difference(const Zor8u* a, const Zor8u* b)
{
  const Vec<Zor8u> x = load<Zor8u>(a), y = load<Zor8u>(b);
  return subSat(x, y) | subSat(y, x);
}

// dst = numerators / denominators, rounded.
struct RoundedQuotient {
  Group<Zor8u> operator()(Group<float> numerators, const Group<float>& denominators) const
  {
    for (int k = 0; k < numerators.parts; ++k) numerators.part[k] = numerators.part[k] / denominators.part[k];
    return Rounded<Zor8u>{}(numerators);
  }
};

// ---- Half the weights ----

constexpr int mostSharedRadius = 8;

// The places of a window along its rows, 2 * reach + 1 of them, `step` pixels apart; how far the window reaches below;
// and what strips of it take.
template <int Reach, int Step> struct FixedPlaces {
  static constexpr int reach = Reach, step = Step, below = Reach * Step;
  static constexpr int mostReach = below, mostBelow = below, stripWidth = 256;
};
struct AnyPlaces {
  int reach, step, below;
  static constexpr int mostReach = mostSharedRadius, mostBelow = mostSharedRadius, stripWidth = 128;
};

template <class Places> class SharedWeights {
public:
  static constexpr int stripWidth = Places::stripWidth;

  SharedWeights(const Call& call, const ValueTable& table, Places along) : call_(call), table_(table), along_(along)
  {
    for (int j = 0; j <= along.below / along.step; ++j)
      for (int k = 0; k <= along.reach; ++k) places_[j][k] = call.record.place(k, j);
  }

  // The columns x .. x + width - 1.
  void filter(int x, int width)
  {
    const Places along = along_;
    const int height = call_.roi.height, below = along.below, stepDown = along.step, reachDown = below / stepDown;
    width_ = width;
    padded_ = (width + Group<float>::size - 1) / Group<float>::size * Group<float>::size;
    for (int y = -below; y < 0; ++y) loadRow(x, y);
    for (int y = -below; y < height; ++y) {
      loadRow(x, y + below);
      Row& upper = row(y);
      const bool isInside = y >= 0;
      if (isInside) fetchRow(call_.dst[y] + x, width);
      if (isInside) sumWithin(upper);
      for (int j = 1; j <= reachDown; ++j) {
        const int other = y + j * stepDown;
        const bool isOtherInside = other >= 0 && other < height;
        if (!isInside && !isOtherInside) continue;
        Row& lower = row(other);
        weigh(upper, lower, j, -along.reach, 2 * along.reach + 1);
        if (isInside && isOtherInside) sumBetween<true, true>(upper, lower, j == reachDown);
        else if (isInside) sumBetween<false, true>(upper, lower, false);
        else sumBetween<true, false>(upper, lower, j == reachDown);
      }
      if (isInside) mapGroups(call_.dst[y] + x, width, RoundedQuotient{}, upper.numerators, upper.denominators);
    }
  }

private:
  // Pixel x of a strip stands at [margin + x]; vectors read beyond the last one.
  static constexpr int margin = mostSharedRadius, pitch = margin + stripWidth + margin + vectorRoom;

  struct Row {
    alignas(32) Zor8u pixels[pitch];
    alignas(32) float samples[pitch];
    alignas(32) float numerators[stripWidth], denominators[stripWidth];

    const float* sample(std::ptrdiff_t x) const { return samples + margin + x; }
  };
  struct Weights {
    alignas(32) float values[pitch];

    const float* at(std::ptrdiff_t x) const { return values + margin + x; }
  };

  Row& row(int y) { return rows_[(y + along_.below) % (along_.below + 1)]; }

  void loadRow(int x, int y)
  {
    Row& to = row(y);
    const int radius = call_.radii.x, read = width_ + 2 * radius;
    Zor8u* const first = to.pixels + margin - radius;
    std::memcpy(first, call_.src[y] + x - radius, static_cast<std::size_t>(read));
    std::memset(first + read, 0, static_cast<std::size_t>(padded_ - width_ + vectorRoom));
    convertRow(first, to.samples + margin - radius, padded_ + 2 * radius);
    fetchRow(call_.src[y + 1] + x - radius, read);
  }

  // Weights between each pixel of the upper row and the one so many steps below and so many, from `left` on, to its
  // right, for so many numbers of steps: of those pairs of which either pixel is in the strip.
  void weigh(const Row& upper, const Row& lower, int down, int left, int count)
  {
    const Places along = along_;
    const auto distance = [=](int k) { return (left + k) * along.step; };
    const auto first = [=](int k) { return std::min(-distance(k), 0); };
    // all differences first: read as they are written, they would hold up the look-ups
    for (int i = 0; i < padded_ + margin; i += Vec<Zor8u>::size)
      for (int k = 0; k < count; ++k) {
        const int at = margin + first(k) + i;
        store(differences_[k] + i, difference(upper.pixels + at, lower.pixels + at + distance(k)));
      }
    const ValueTable& table = table_;
    const int length = padded_ + margin; // for all alike: branches are foreseen
    for (int k = 0; k < count; ++k) {
      const F32x4 place = splatFour(places_[down][std::abs(left + k)]);
      const Zor8u* const differences = differences_[k];
      float* const weights = weights_[k].values + margin + first(k);
      for (int i = 0; i < length; i += 8) {
        store(weights + i, table.ofFour(differences + i) * place);
        store(weights + i + 4, table.ofFour(differences + i + 4) * place);
      }
    }
  }

  struct Sums {
    Vec<float> numerator, denominator;

    Sums(Vec<float> sample, Vec<float> weight) : numerator(weight * sample), denominator(weight) {}
    void add(Vec<float> sample, Vec<float> weight)
    {
      numerator += weight * sample;
      denominator += weight;
    }
  };
  static void put(Row& to, int x, const Sums& sums, bool isFirst)
  {
    Vec<float> n = sums.numerator, d = sums.denominator;
    if (!isFirst) {
      n = load<float>(to.numerators + x) + n;
      d = load<float>(to.denominators + x) + d;
    }
    store(to.numerators + x, n);
    store(to.denominators + x, d);
  }

  // The row itself is to each of its pixels the middle row of the window.
  void sumWithin(Row& row)
  {
    const Places along = along_;
    if (along.reach > 0) weigh(row, row, 0, 1, along.reach);
    for (int x = 0; x < padded_; x += Vec<float>::size) {
      const auto right = [&](int k) { return load<float>(row.sample(x + k * along.step)); };
      const auto toRight = [&](int x, int k) { return load<float>(weights_[k - 1].at(x)); };
      const Vec<float> middle = load<float>(row.sample(x)), one = splat(1.0f);
      if (along.reach == 0) {
        put(row, x, Sums(middle, one), along.below == 0);
        continue;
      }
      Sums sums(right(-along.reach), toRight(x - along.reach * along.step, along.reach));
      for (int k = along.reach - 1; k > 0; --k) sums.add(right(-k), toRight(x - k * along.step, k));
      sums.add(middle, one);
      for (int k = 1; k <= along.reach; ++k) sums.add(right(k), toRight(x, k));
      put(row, x, sums, along.below == 0);
    }
  }

  // The sums of a row of windows: to the lower row those over the upper one, to the upper row those over the lower one.
  template <bool ToLower, bool ToUpper> void sumBetween(Row& upper, Row& lower, bool isFirstOfLower)
  {
    const Places along = along_;
    const int last = 2 * along.reach;
    for (int x = 0; x < padded_; x += Vec<float>::size) {
      const auto at = [&](int k) { return x + (k - along.reach) * along.step; };
      const auto above = [&](int k) { return load<float>(upper.sample(at(k))); };
      const auto below = [&](int k) { return load<float>(lower.sample(at(k))); };
      const auto toAbove = [&](int k) { return load<float>(weights_[last - k].at(at(k))); };
      const auto toBelow = [&](int k) { return load<float>(weights_[k].at(x)); };
      Sums ofLower(above(0), toAbove(0)), ofUpper(below(0), toBelow(0));
      for (int k = 1; k <= last; ++k) {
        if constexpr (ToLower) ofLower.add(above(k), toAbove(k));
        if constexpr (ToUpper) ofUpper.add(below(k), toBelow(k));
      }
      if constexpr (ToLower) put(lower, x, ofLower, isFirstOfLower);
      if constexpr (ToUpper) put(upper, x, ofUpper, false);
    }
  }

  const Call& call_;
  const ValueTable& table_;
  const Places along_;
  int width_, padded_; // of the strip; the latter whole groups
  float places_[Places::mostBelow + 1][Places::mostReach + 1];
  Row rows_[Places::mostBelow + 1];
  Weights weights_[2 * Places::mostReach + 1];
  alignas(32) Zor8u differences_[2 * Places::mostReach + 1][pitch];
};

// ---- All weights ----

// The columns x .. x + width - 1 of row y.
class AllWeights {
public:
  static constexpr int stripWidth = 128;

  AllWeights(const Call& call, const ValueTable& table) : call_(call), table_(table) {}

  void filter(int x, int width)
  {
    for (int y = 0; y < call_.roi.height; ++y) filterRow(x, y, width);
  }

private:
  static constexpr int block = 8;

  void filterRow(int x, int y, int width)
  {
    const int step = call_.record.head().step, radius = call_.radii.x, below = call_.radii.y;
    const int padded = (width + block - 1) / block * block;
    copy(middle_, call_.src[y] + x, width, padded);
    for (int dy = -below; dy <= below; dy += step) {
      copy(pixels_, call_.src[y + dy] + x - radius, width + 2 * radius, padded + 2 * radius);
      convertRow(pixels_, samples_, padded + 2 * radius);
      for (int i = 0; i < padded; i += block) addRow(i, std::abs(dy) / step, dy == -below);
    }
    mapGroups(call_.dst[y] + x, width, RoundedQuotient{}, numerators_, denominators_);
  }

  static void copy(Zor8u* to, const Zor8u* from, int length, int padded)
  {
    std::memcpy(to, from, static_cast<std::size_t>(length));
    std::memset(to + length, 0, static_cast<std::size_t>(padded - length));
  }

  // One row of the windows of the pixels i .. i + 7.
  void addRow(int i, int down, bool isFirst)
  {
    const int step = call_.record.head().step, radius = call_.radii.x;
    const auto middle = loadLow8<Zor8u>(middle_ + i);
    F32x4 n[2] = {splatFour(0), splatFour(0)}, d[2] = {splatFour(0), splatFour(0)};
    for (int dx = -radius; dx <= radius; dx += step) {
      const auto other = loadLow8<Zor8u>(pixels_ + i + radius + dx);
      Zor8u differences[block];
      storeLow8(differences, subSat(middle, other) | subSat(other, middle));
      const F32x4 place = splatFour(call_.record.place(std::abs(dx) / step, down));
      for (int k = 0; k < 2; ++k) {
        const F32x4 weight = table_.ofFour(differences + 4 * k) * place;
        n[k] += weight * loadFour(samples_ + i + radius + dx + 4 * k);
        d[k] += weight;
      }
    }
    for (int k = 0; k < 2; ++k) {
      float *const numerators = numerators_ + i + 4 * k, *const denominators = denominators_ + i + 4 * k;
      store(numerators, isFirst ? n[k] : loadFour(numerators) + n[k]);
      store(denominators, isFirst ? d[k] : loadFour(denominators) + d[k]);
    }
  }

  const Call& call_;
  const ValueTable& table_;
  alignas(32) Zor8u middle_[stripWidth], pixels_[stripWidth + 2 * mostRadius];
  alignas(32) float samples_[stripWidth + 2 * mostRadius], numerators_[stripWidth], denominators_[stripWidth];
};

// In a frame of its own, so that no two kinds of strips lie on the stack together.
template <class Strips, class... Given> [[gnu::noinline]] void filterStrips(const Call& call, const Given&... given)
{
  const UpperHalvesCleared atTheEnd;
  Strips strips(call, given...);
  constexpr int width = Strips::stripWidth;
  for (int x = 0; x < call.roi.width; x += width) strips.filter(x, std::min(width, call.roi.width - x));
}

} // namespace

void filterRegion(const Call& call)
{
  const UpperHalvesCleared atTheEnd;
  const ValueTable table(call.record);
  const auto [x, y] = call.radii;
  const int step = call.record.head().step;
  if (std::max(x, y) > mostSharedRadius) return filterStrips<AllWeights>(call, table);
  const auto shared = [&](auto along) { filterStrips<SharedWeights<decltype(along)>>(call, table, along); };
  if (x == y && step == 1 && x == 1) return shared(FixedPlaces<1, 1>{});
  if (x == y && step == 1 && x == 2) return shared(FixedPlaces<2, 1>{});
  if (x == y && step == 1 && x == 3) return shared(FixedPlaces<3, 1>{});
  if (x == y && step == 1 && x == 4) return shared(FixedPlaces<4, 1>{});
  if (x == y && step == 2 && x == 2) return shared(FixedPlaces<1, 2>{});
  if (x == y && step == 2 && x == 4) return shared(FixedPlaces<2, 2>{});
  shared(AnyPlaces{x / step, step, y});
}

} // namespace bilateral
} // namespace zori
