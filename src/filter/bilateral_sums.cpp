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

constexpr int stripWidth = 128;
constexpr int vectorRoom = 32; // bytes that vectors may reach beyond the last pixel

// The weights of differences. One more is read than there are.
struct ValueTable {
  alignas(64) float weight[levels + 1];
  explicit ValueTable(const Record& record)
  {
    record.copyValues(weight);
    weight[levels] = 0;
  }

  // Of the four differences in the bytes of x.
  F32x4 ofFour(std::uint32_t x) const
  {
    const auto at = [=](int k) { return weight + (x >> (8 * k) & 255); };
    return evenLanes(loadHalves(at(0), at(1)), loadHalves(at(2), at(3)));
  }
};

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

// The places of a window along its rows: 2 * reach + 1 of them, `step` pixels apart.
template <int Reach, int Step> struct FixedPlaces {
  static constexpr int reach = Reach, step = Step;
};
struct AnyPlaces {
  int reach, step;
};

constexpr int mostSharedRadius = 8;

template <class Places> class SharedWeights {
public:
  SharedWeights(const Call& call, const ValueTable& table, Places along)
    : call_(call), table_(table), along_(along), below_(call.radii.y)
  {}

  // The columns x .. x + width - 1.
  void filter(int x, int width)
  {
    const int height = call_.roi.height, stepDown = call_.record.head().step, reachDown = below_ / stepDown;
    width_ = width;
    padded_ = (width + Group<float>::size - 1) / Group<float>::size * Group<float>::size;
    for (int y = -below_; y < 0; ++y) loadRow(x, y);
    for (int y = -below_; y < height; ++y) {
      loadRow(x, y + below_);
      Row& upper = row(y);
      const bool isInside = y >= 0;
      if (isInside) sumWithin(upper);
      for (int j = 1; j <= reachDown; ++j) {
        const int other = y + j * stepDown;
        const bool isOtherInside = other >= 0 && other < height;
        if (!isInside && !isOtherInside) continue;
        Row& lower = row(other);
        for (int k = 0; k <= 2 * along_.reach; ++k) weigh(upper, lower, k - along_.reach, j, weights_[k]);
        if (isOtherInside) sumFromAbove(upper, lower, j == reachDown);
        if (isInside) sumFromBelow(lower, upper);
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

  Row& row(int y) { return rows_[(y + below_) % (below_ + 1)]; }

  void loadRow(int x, int y)
  {
    Row& to = row(y);
    const int radius = call_.radii.x, read = width_ + 2 * radius;
    Zor8u* const first = to.pixels + margin - radius;
    std::memcpy(first, call_.src[y] + x - radius, static_cast<std::size_t>(read));
    std::memset(first + read, 0, static_cast<std::size_t>(padded_ - width_ + vectorRoom));
    convertRow(first, to.samples + margin - radius, padded_ + 2 * radius);
  }

  // Weights between each pixel of the upper row and the one so many steps to its right and below: of those pairs of
  // which either pixel is in the strip.
  void weigh(const Row& upper, const Row& lower, int right, int down, Weights& to)
  {
    const int distance = right * along_.step, first = std::min(-distance, 0), count = padded_ + std::abs(distance);
    const Zor8u *const a = upper.pixels + margin + first, *const b = lower.pixels + margin + first + distance;
    alignas(32) Zor8u differences[pitch];
    for (int i = 0; i < count; i += Vec<Zor8u>::size) store(differences + i, difference(a + i, b + i));

    const F32x4 place = splatFour(call_.record.place(std::abs(right), down));
    float* const weights = to.values + margin + first;
    for (int i = 0; i < count; i += 8) {
      const auto eight = get<std::uint64_t>(differences + i);
      store(weights + i, table_.ofFour(static_cast<std::uint32_t>(eight)) * place);
      store(weights + i + 4, table_.ofFour(static_cast<std::uint32_t>(eight >> 32)) * place);
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
    for (int k = 1; k <= along.reach; ++k) weigh(row, row, k, 0, weights_[k - 1]);
    for (int x = 0; x < padded_; x += Vec<float>::size) {
      const auto right = [&](int k) { return load<float>(row.sample(x + k * along.step)); };
      const auto toRight = [&](int x, int k) { return load<float>(weights_[k - 1].at(x)); };
      const Vec<float> middle = load<float>(row.sample(x)), one = splat(1.0f);
      if (along.reach == 0) {
        put(row, x, Sums(middle, one), below_ == 0);
        continue;
      }
      Sums sums(right(-along.reach), toRight(x - along.reach * along.step, along.reach));
      for (int k = along.reach - 1; k > 0; --k) sums.add(right(-k), toRight(x - k * along.step, k));
      sums.add(middle, one);
      for (int k = 1; k <= along.reach; ++k) sums.add(right(k), toRight(x, k));
      put(row, x, sums, below_ == 0);
    }
  }

  void sumFromAbove(const Row& from, Row& to, bool isFirst)
  {
    const Places along = along_;
    for (int x = 0; x < padded_; x += Vec<float>::size) {
      const auto at = [&](int k) { return x + (k - along.reach) * along.step; };
      const auto weight = [&](int k) { return load<float>(weights_[2 * along.reach - k].at(at(k))); };
      Sums sums(load<float>(from.sample(at(0))), weight(0));
      for (int k = 1; k <= 2 * along.reach; ++k) sums.add(load<float>(from.sample(at(k))), weight(k));
      put(to, x, sums, isFirst);
    }
  }

  void sumFromBelow(const Row& from, Row& to)
  {
    const Places along = along_;
    for (int x = 0; x < padded_; x += Vec<float>::size) {
      const auto at = [&](int k) { return x + (k - along.reach) * along.step; };
      const auto weight = [&](int k) { return load<float>(weights_[k].at(x)); };
      Sums sums(load<float>(from.sample(at(0))), weight(0));
      for (int k = 1; k <= 2 * along.reach; ++k) sums.add(load<float>(from.sample(at(k))), weight(k));
      put(to, x, sums, false);
    }
  }

  const Call& call_;
  const ValueTable& table_;
  const Places along_;
  const int below_;
  int width_, padded_; // of the strip; the latter whole groups
  Row rows_[mostSharedRadius + 1];
  Weights weights_[2 * mostSharedRadius + 1];
};

// ---- All weights ----

// The columns x .. x + width - 1 of row y.
class AllWeights {
public:
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
        const F32x4 weight = table_.ofFour(get<std::uint32_t>(differences + 4 * k)) * place;
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
  for (int x = 0; x < call.roi.width; x += stripWidth) strips.filter(x, std::min(stripWidth, call.roi.width - x));
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
  shared(AnyPlaces{x / step, step});
}

} // namespace bilateral
} // namespace zori
