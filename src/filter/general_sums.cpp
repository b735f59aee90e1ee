// The sums of filters with the caller's kernel.
//
// Source rows are brought into stored rows of four bytes a sample, which every tap of the kernel then reads:
//
//   integer kernels   pairs of 16-bit samples, one above the other (of a kernel with one row: side by side), so
//                     that one multiply-add of pairs serves two taps. 16u is moved to the signed range, which a
//                     constant makes up for. A kernel element of more than 16 bits is two taps, its high half shifted
//                     afterwards
//   float kernels     samples as floats; the rows of a 32f image are read where they are
//
// The stored rows are a ring, each made once. Two output rows are formed at a time, since most taps serve both: a tap
// is a place in a stored row and what it is multiplied with for either output row. The sums of 16 samples of both rows
// stay in registers. The rows of sums are finished while they are in the cache; wide regions go in vertical strips.
#include "frame/numeric_mode.h"
#include "frame/parallel.h"
#include "general.h"
#include "rowkernels/convert.h"

#include <algorithm>

namespace zori {
inline namespace ZORI_WIDTH {
namespace general {
namespace {

// ---- Taps ----

struct PairLanes {
  using Sum = Zor32s;
  using Factor = Vec<int16_t>;
  static Vec<int16_t> samples(const char* p) { return load<int16_t>(p); }
  static Vec<Sum> added(Vec<Sum> sum, Vec<int16_t> x, Factor f) { return sum + mulAddPairs(x, f); }
};
struct FloatLanes {
  using Sum = Zor32f;
  using Factor = Vec<Zor32f>;
  static Vec<Sum> samples(const char* p) { return load<Zor32f>(p); }
  static Vec<Sum> added(Vec<Sum> sum, Vec<Sum> x, Factor f) { return sum + x * f; }
};

// Taps of output row 0 alone, then of both rows, then of row 1 alone; in each part in source order.
template <class Lanes> struct TapList {
  struct Place {
    int row, sample; // of the stored rows, row 0 being the first that output row 0 needs
  };
  using Factor = typename Lanes::Factor;

  const char** at; // what the places are at present
  Factor (*factors)[2];
  Place* places;
  int upperEnd = 0, bothEnd = 0, end = 0;

  void add(Place place, Factor upper, Factor lower)
  {
    places[end] = place;
    factors[end][0] = upper;
    factors[end][1] = lower;
    ++end;
  }
  // rowStart(row): the first sample of a stored row.
  template <class RowStart> void pointTo(RowStart rowStart)
  {
    for (int t = 0; t < end; ++t) at[t] = reinterpret_cast<const char*>(rowStart(places[t].row) + places[t].sample);
  }
};

template <class Lanes> struct Taps {
  TapList<Lanes> high, low; // the high halves of large elements; everything else
  typename Lanes::Sum offset = 0;
};

// ---- Sums of a block ----

constexpr int vectors = sizeof(void*) == 4 ? 2 : 4; // of an output row: two rows of sums in 8 or 16 registers
constexpr std::ptrdiff_t blockLength = 16;          // rows of sums have room for one
constexpr int lanes = Vec<Zor32s>::size;

template <class Lanes, int Rows, int N> using BlockSums = Vec<typename Lanes::Sum>[Rows][N];

// The taps first..end - 1 for the output rows From..To - 1.
template <int From, int To, class Lanes, int Rows, int N>
[[gnu::always_inline]] inline void addTaps(BlockSums<Lanes, Rows, N>& sums, const TapList<Lanes>& taps, int first,
                                           int end, std::ptrdiff_t offset)
{
  for (int t = first; t < end; ++t) {
    const char* const p = taps.at[t] + offset;
    for (int v = 0; v < N; ++v) {
      const auto x =
        To - From > 1 ? loadedOnce(Lanes::samples(p + vectorBytes * v)) : Lanes::samples(p + vectorBytes * v);
      for (int r = From; r < To; ++r) sums[r][v] = Lanes::added(sums[r][v], x, taps.factors[t][r]);
    }
  }
}

template <class Lanes, int Rows, int N>
[[gnu::always_inline]] inline void addTaps(BlockSums<Lanes, Rows, N>& sums, const TapList<Lanes>& taps,
                                           std::ptrdiff_t offset)
{
  if constexpr (Rows == 1) {
    addTaps<0, 1, Lanes>(sums, taps, 0, taps.bothEnd, offset);
  } else {
    addTaps<0, 1, Lanes>(sums, taps, 0, taps.upperEnd, offset);
    addTaps<0, 2, Lanes>(sums, taps, taps.upperEnd, taps.bothEnd, offset);
    addTaps<1, 2, Lanes>(sums, taps, taps.bothEnd, taps.end, offset);
  }
}

// N vectors from sample i on.
template <int Rows, int N, class Lanes>
[[gnu::always_inline]] inline void sumBlock(const Taps<Lanes>& taps, std::ptrdiff_t i,
                                            typename Lanes::Sum* const (&out)[Rows])
{
  using Sum = typename Lanes::Sum;
  Vec<Sum> sums[Rows][N];
  for (auto& row : sums)
    for (auto& v : row) v = zero<Sum>();
  const std::ptrdiff_t offset = i * 4;
  if constexpr (isInt<Sum>) {
    if (taps.high.end != 0) {
      addTaps<Lanes, Rows, N>(sums, taps.high, offset);
      for (auto& row : sums)
        for (auto& v : row) v = shiftLeft<16>(v);
    }
    for (auto& row : sums)
      for (auto& v : row) v += splat(taps.offset);
  }
  addTaps<Lanes, Rows, N>(sums, taps.low, offset);
  for (int r = 0; r < Rows; ++r)
    for (int v = 0; v < N; ++v) store(out[r] + i + lanes * v, sums[r][v]);
}

// The sums of a row; of fewer samples than a block, of a whole block.
template <class Lanes>
ZORI_ONE_COPY void sumRow(const Taps<Lanes>& taps, std::ptrdiff_t length, typename Lanes::Sum* out)
{
  const UpperHalvesCleared atTheEnd;
  typename Lanes::Sum* const row[1] = {out};
  constexpr int wholeBlock = blockLength / lanes;
  constexpr std::ptrdiff_t step = 2 * lanes * vectors; // one row leaves registers for twice the vectors
  std::ptrdiff_t i = 0;
  for (; i + step <= length; i += step) sumBlock<1, 2 * vectors>(taps, i, row);
  if (i == length) return;
  if (length >= step) return sumBlock<1, 2 * vectors>(taps, length - step, row);
  for (; i + blockLength <= length; i += blockLength) sumBlock<1, wholeBlock>(taps, i, row);
  if (i < length) sumBlock<1, wholeBlock>(taps, std::max<std::ptrdiff_t>(length - blockLength, 0), row);
}

// The same of two output rows.
template <class Lanes>
ZORI_ONE_COPY void sumTwoRows(const Taps<Lanes>& taps, std::ptrdiff_t length, typename Lanes::Sum* upper,
                              typename Lanes::Sum* lower)
{
  const UpperHalvesCleared atTheEnd;
  typename Lanes::Sum* const rows[2] = {upper, lower};
  constexpr std::ptrdiff_t step = lanes * vectors, least = std::min(step, blockLength);
  const std::ptrdiff_t ahead = isInt<typename Lanes::Sum> ? 0 : fetchDistance<typename Lanes::Sum>(length);
  std::ptrdiff_t i = 0;
  for (; i + step <= length; i += step) {
    if (ahead > 0) { // what the kernel's last element reads is new to both rows
      for (std::ptrdiff_t line = 0; line < 4 * step; line += 64) {
        prefetch(taps.low.at[taps.low.bothEnd - 1] + 4 * i + ahead + line);
        prefetch(taps.low.at[taps.low.end - 1] + 4 * i + ahead + line);
        for (const auto* p : rows) prefetch(reinterpret_cast<const char*>(p + i) + ahead + line);
      }
    }
    sumBlock<2, vectors>(taps, i, rows);
  }
  for (; i + least <= length && i < length; i += least) sumBlock<2, least / lanes>(taps, i, rows);
  if (i < length) sumBlock<2, least / lanes>(taps, std::max<std::ptrdiff_t>(length - least, 0), rows);
}

// ---- Stored rows and their taps ----

// Two rows of samples, one pair a sample.
template <class S> struct Paired {
  static constexpr std::ptrdiff_t blockLength = 16;
  void block(const S* a, const S* b, Zor32s* pairs) const
  {
    const Vec<Zor16u> bias = std::is_same_v<S, Zor16u> ? topBits<Zor16u>() : zero<Zor16u>();
    const auto words = [=](const S* p) {
      if constexpr (sizeof(S) == 1) return loadHalfWidened<Zor8u>(p);
      else return load<Zor16u>(p) ^ bias;
    };
    for (int i = 0; i < blockLength; i += Vec<Zor16u>::size) {
      const Vec<Zor16u> x = words(a + i), y = words(b + i);
      store(pairs + i, as<Zor32s>(interleaveLow(x, y)));
      store(pairs + i + lanes, as<Zor32s>(interleaveHigh(x, y)));
    }
  }
};

// What differs between the kinds of kernel: how many stored rows an output pass needs, what they hold, the taps.
template <class S, class K> struct Stored;

template <class S> struct Stored<S, Zor32s> {
  using Lanes = PairLanes;
  const Convolution<S, Zor32s>& call;
  const int kw = call.kernelSize.width, kh = call.kernelSize.height;
  const bool upright = kh > 1; // pairs of rows, not of neighbours
  const bool isLarge = !elementsWithin(call.pKernel, call.kernelSize, -32768, 32767);

  int rowsPerPass() const { return upright ? 2 : 1; }
  int advance() const { return 1; } // stored rows from pass to pass
  int ringRows() const { return upright ? kh / 2 + 1 : 1; }
  int places() const { return upright ? kw : kw / 2 + kw % 2; } // in a stored row
  int lists() const { return isLarge ? 2 : 1; }
  int count(int sourceRows) const { return upright ? (sourceRows + 1) / 2 : sourceRows; }

  // Stored row p of a slab whose source starts at row `first`: `samples` from sample x of the source on.
  void make(int p, int first, int sourceRows, std::ptrdiff_t x, std::ptrdiff_t samples, void* to) const
  {
    Zor32s* const pairs = static_cast<Zor32s*>(to);
    if (upright) { // what stands beside a last row without a partner meets zeros
      const int second = std::min(2 * p + 1, sourceRows - 1);
      mapBlocks(pairs, samples, Paired<S>{}, call.src[first + 2 * p] + x, call.src[first + second] + x);
    } else {
      const S* const row = call.src[first + p] + x;
      const std::ptrdiff_t partners = std::max<std::ptrdiff_t>(samples - call.channels, 0);
      if (partners > 0) mapBlocks(pairs, partners, Paired<S>{}, row, row + call.channels);
      if (kw % 2 != 0) mapBlocks(pairs + partners, samples - partners, Paired<S>{}, row + partners, row + partners);
    }
  }

  void fill(Taps<Lanes>& taps) const
  {
    if (isLarge) fill(taps.high, 16);
    fill(taps.low, 0);
    if constexpr (std::is_same_v<S, Zor16u>) {
      std::uint32_t sum = 0;
      for (int r = 0; r < kh; ++r)
        for (int c = 0; c < kw; ++c) sum += static_cast<std::uint32_t>(call.at(r, c));
      taps.offset = static_cast<Zor32s>(sum << 15);
    }
  }

private:
  // The 16 bits of each element from `shift` on; the low half being signed, the high one is rounded.
  void fill(TapList<Lanes>& list, int shift) const
  {
    const auto element = [&](int r, int c) -> std::uint32_t {
      if (r < 0 || r >= kh || c >= kw) return 0;
      return (static_cast<std::uint32_t>(call.at(r, c)) + (shift ? 0x8000u : 0u)) >> shift & 0xffffu;
    };
    const auto pair = [&](int row, int column, int row2, int column2) {
      return element(row, column) | element(row2, column2) << 16;
    };
    enum { Neither = 0, Upper = 1, Lower = 2, Both = 3 };
    const auto addAll = [&](int wanted) {
      for (int row = 0; row < ringRows(); ++row)
        for (int i = 0; i < places(); ++i) { // pairs of zeros are left out
          const std::uint32_t upper = upright ? pair(2 * row, i, 2 * row + 1, i) : pair(0, 2 * i, 0, 2 * i + 1);
          const std::uint32_t lower = upright ? pair(2 * row - 1, i, 2 * row, i) : 0;
          if ((upper ? Upper : 0) + (lower ? Lower : 0) == wanted)
            list.add({row, i * (upright ? 1 : 2) * call.channels}, as<int16_t>(splat(upper)),
                     as<int16_t>(splat(lower)));
        }
      return list.end;
    };
    list.upperEnd = addAll(Upper);
    list.bothEnd = addAll(Both);
    addAll(Lower);
  }
};

template <class S> struct Stored<S, Zor32f> {
  using Lanes = FloatLanes;
  const Convolution<S, Zor32f>& call;
  const int kw = call.kernelSize.width, kh = call.kernelSize.height;

  int rowsPerPass() const { return kh > 1 ? 2 : 1; }
  int advance() const { return rowsPerPass(); }
  int ringRows() const { return kh > 1 ? kh + 1 : 1; }
  int places() const { return kw; }
  int lists() const { return 1; }
  int count(int sourceRows) const { return sourceRows; }

  void make(int p, int first, int, std::ptrdiff_t x, std::ptrdiff_t samples, void* to) const
  {
    const S* const row = call.src[first + p] + x;
    if constexpr (std::is_same_v<S, Zor32f>) std::memcpy(to, row, static_cast<std::size_t>(samples) * sizeof(S));
    else mapGroups(static_cast<Zor32f*>(to), samples, Converted<Zor32f>{}, row);
  }

  void fill(Taps<Lanes>& taps) const
  {
    TapList<Lanes>& list = taps.low;
    for (int row = 0; row < ringRows(); ++row) {
      for (int i = 0; i < kw; ++i) {
        const auto element = [&](int r) { return splat(r >= 0 && r < kh ? call.at(r, i) : 0.0f); };
        list.add({row, i * call.channels}, element(row), element(row - 1));
      }
      if (row == 0) list.upperEnd = list.end;
      if (row == kh - 1) list.bothEnd = list.end;
    }
  }
};

// ---- A slab of rows ----

// Room for a slab's taps, ring and two rows of sums. Little comes from the stack, more from the heap; wide regions go
// in strips so that it stays in the second-level cache.
class Room {
public:
  static constexpr int onStack = 24576, wanted = 98304;
  explicit Room(long long bytes) : memory_(bytes), next_(memory_.get()) {}
  explicit operator bool() const { return next_ != nullptr; }
  template <class T> T* take(long long count)
  {
    char* const p = next_;
    next_ += roundUp(static_cast<std::size_t>(count) * sizeof(T), vectorBytes);
    return reinterpret_cast<T*>(p);
  }

private:
  SmallScratch<char, onStack> memory_;
  char* next_;
};

template <class Sum> void finishRow(const Finish<Sum>& finish, const Sum* sums, void* dst, std::ptrdiff_t samples)
{
  if (finish.row) finish.row(finish, sums, dst, samples);
  else std::memcpy(dst, sums, static_cast<std::size_t>(samples) * sizeof(Sum));
}

// What a slab of `count` rows takes of its room, and how it is cut into strips.
template <class S, class K> struct SlabSizes {
  using List = TapList<typename Stored<S, K>::Lanes>;
  static constexpr long long most = 1000000000; // more rows or taps count as no memory

  std::ptrdiff_t length, strip; // samples of a row of the region, and of a strip
  bool readsImage;              // source rows are read where they are: there is no ring
  bool sumsIntoImage;           // sums are results, and go where they belong: they have no rows of their own
  bool areWithinMost;
  int ringRows, sumRows;
  long long taps;           // of a list
  long long overlap;        // samples that the kernel needs beyond those of a strip
  std::ptrdiff_t pitch = 0; // of the ring
  long long bytes = 0;

  SlabSizes(const Convolution<S, K>& call, const Stored<S, K>& stored, int count)
    : length(call.rowSamples()), strip(length), readsImage(std::is_same_v<S, K> && length >= blockLength),
      sumsIntoImage(!call.fast.row && length >= blockLength), ringRows(readsImage ? 0 : stored.ringRows()),
      sumRows(sumsIntoImage ? 0 : 2), taps(1LL * stored.ringRows() * stored.places()),
      overlap((stored.kw - 1LL) * call.channels)
  {
    areWithinMost = 1LL * count + stored.kh <= most && taps <= most;
    if (!areWithinMost) return;
    constexpr long long bytesOfATap = sizeof(*List::factors) + sizeof(*List::at) + sizeof(*List::places);
    const long long fixed = stored.lists() * (taps * bytesOfATap + 3 * vectorBytes) +
                            (overlap + 2 * blockLength) * 4 * ringRows,
                    perSample = 4LL * (ringRows + sumRows);
    if (perSample > 0) strip = stripOf((Room::wanted - fixed) / perSample);
    pitch = strip + static_cast<std::ptrdiff_t>(overlap) + blockLength; // never short of a block
    bytes = fixed + perSample * (strip + blockLength);
  }

private:
  // Strips of equal length that are no longer than that, but not so short that their overlap costs much.
  std::ptrdiff_t stripOf(long long longest) const
  {
    constexpr long long least = 256;
    longest = std::max(longest, least);
    const long long strips = (length + longest - 1) / longest;
    return static_cast<std::ptrdiff_t>(roundUp(static_cast<std::size_t>((length + strips - 1) / strips), blockLength));
  }
};

// The rows of a slab, strip by strip: stored rows, taps that point into them, sums, results.
template <class S, class K> class SlabStrips {
  using Stores = Stored<S, K>;
  using Lanes = typename Stores::Lanes;
  using List = TapList<Lanes>;

public:
  SlabStrips(const Convolution<S, K>& call, const Stores& stored, const SlabSizes<S, K>& sizes, Room& room, int first,
             int count)
    : call_(call), stored_(stored), sizes_(sizes), first_(first), count_(count), sourceRows_(count + stored.kh - 1)
  {
    for (int k = 0; k < stored.lists(); ++k) {
      List& list = this->list(k);
      list.factors = room.take<std::remove_pointer_t<decltype(List::factors)>>(sizes.taps);
      list.at = room.take<const char*>(sizes.taps);
      list.places = room.take<typename List::Place>(sizes.taps);
    }
    stored.fill(taps_);
    ring_ = room.take<K>(sizes.ringRows * sizes.pitch);
    sums_ = room.take<K>(sizes.sumRows * sizes.strip);
  }

  void filterStrip(std::ptrdiff_t begin)
  {
    // blocks are read whole: where that is the image itself, a last strip short of one overlaps the strip before
    x_ = sizes_.readsImage ? std::min<std::ptrdiff_t>(begin, sizes_.length - blockLength) : begin;
    samples_ = std::min(sizes_.strip, sizes_.length - x_);
    made_ = 0;
    if (samples_ < blockLength) // the rest of a block
      std::memset(ring_, 0, static_cast<std::size_t>(sizes_.ringRows * sizes_.pitch) * sizeof(K));
    for (int y = 0, base = 0; y < count_; y += stored_.rowsPerPass(), base += stored_.advance()) {
      if (!sizes_.readsImage) makeRows(base + sizes_.ringRows);
      pointTaps(base);
      formRows(y, std::min(stored_.rowsPerPass(), count_ - y));
    }
  }

private:
  List& list(int k) { return k == 0 ? taps_.low : taps_.high; }

  // The stored rows before `end`, as far as the source goes.
  void makeRows(int end)
  {
    for (end = std::min(end, stored_.count(sourceRows_)); made_ < end; ++made_)
      stored_.make(made_, first_, sourceRows_, x_, samples_ + static_cast<std::ptrdiff_t>(sizes_.overlap),
                   ring_ + made_ % sizes_.ringRows * sizes_.pitch);
  }

  // To the samples of the pass whose first stored row is `base`.
  void pointTaps(int base)
  {
    const int ringRows = sizes_.ringRows, turn = sizes_.readsImage ? 0 : base % ringRows;
    const std::ptrdiff_t pitch = sizes_.pitch;
    const K* const ring = ring_;
    for (int k = 0; k < stored_.lists(); ++k)
      list(k).pointTo([=](int row) {
        if constexpr (std::is_same_v<S, K>)
          if (sizes_.readsImage) return call_.src[first_ + base + row] + x_;
        const int slot = turn + row < ringRows ? turn + row : turn + row - ringRows;
        return ring + slot * pitch;
      });
  }

  // Row y of the slab, and the one below it if there are two.
  void formRows(int y, int rows) const
  {
    char* to[2];
    K* sums[2];
    for (int r = 0; r < rows; ++r) {
      to[r] = call_.dst[first_ + y + r] + x_ * call_.dstSampleBytes;
      sums[r] = sizes_.sumsIntoImage ? reinterpret_cast<K*>(to[r]) : sums_ + r * sizes_.strip;
    }
    if (rows == 2) sumTwoRows<Lanes>(taps_, samples_, sums[0], sums[1]);
    else sumRow<Lanes>(taps_, samples_, sums[0]);
    for (int r = 0; !sizes_.sumsIntoImage && r < rows; ++r) finishRow(call_.fast, sums[r], to[r], samples_);
  }

  const Convolution<S, K>& call_;
  const Stores& stored_;
  const SlabSizes<S, K>& sizes_;
  const int first_, count_, sourceRows_;
  Taps<Lanes> taps_;
  K *ring_, *sums_;
  std::ptrdiff_t x_ = 0, samples_ = 0; // the strip
  int made_ = 0;                       // stored rows of it
};

// Rows first..first + count - 1 of the region; false when there is no working memory.
template <class S, class K> ZORI_ONE_COPY bool convolveSlab(const Convolution<S, K>& call, int first, int count)
{
  const Stored<S, K> stored{call};
  const SlabSizes<S, K> sizes(call, stored, count);
  if (!sizes.areWithinMost) return false;
  Room room(sizes.bytes);
  if (!room) return false;
  SlabStrips<S, K> slab(call, stored, sizes, room, first, count);
  for (std::ptrdiff_t begin = 0; begin < sizes.length; begin += sizes.strip) slab.filterStrip(begin);
  return true;
}

// The same in a plain loop, for any number of samples.
template <class S, class K> ZORI_ONE_COPY void plainFilter(const Convolution<S, K>& call, int first, int count)
{
  using Sum = std::conditional_t<isInt<K>, std::uint32_t, K>;
  constexpr std::ptrdiff_t chunk = 64;
  for (int y = first; y < first + count; ++y)
    for (std::ptrdiff_t x = 0; x < call.rowSamples(); x += chunk) {
      const std::ptrdiff_t samples = std::min(chunk, call.rowSamples() - x);
      alignas(16) Sum sums[chunk] = {};
      for (int r = 0; r < call.kernelSize.height; ++r)
        for (int c = 0; c < call.kernelSize.width; ++c) {
          const S* const p = call.src[std::ptrdiff_t{y} + r] + x + std::ptrdiff_t{c} * call.channels;
          const Sum k = static_cast<Sum>(call.at(r, c));
          for (std::ptrdiff_t i = 0; i < samples; ++i) sums[i] += static_cast<Sum>(get<S>(p + i)) * k;
        }
      finishRow(call.plain, reinterpret_cast<K*>(sums), call.dst[y] + x * call.dstSampleBytes, samples);
    }
}

} // namespace

template <class S, class K> void convolve(const Convolution<S, K>& call)
{
  constexpr int picosecondsPerTap = 50;
  const long long taps = 1LL * call.kernelSize.width * call.kernelSize.height,
                  samples = 1LL * call.roi.height * call.rowSamples();
  const TeamRule team = TeamRule::forWork(samples, static_cast<int>(std::min(taps, 1000000LL)) * picosecondsPerTap)
                          .fromSize(call.roi.width >= 64 && call.roi.height >= 64);
  masterSlabs(team, Rounding::Nearest, call.roi.height, 0, [&](const Slab& slab) {
    if (!convolveSlab(call, slab.first, slab.count)) plainFilter(call, slab.first, slab.count);
    return ZorOk;
  });
}

template void convolve(const Convolution<Zor8u, Zor32s>&);
template void convolve(const Convolution<Zor16u, Zor32s>&);
template void convolve(const Convolution<Zor16s, Zor32s>&);
template void convolve(const Convolution<Zor8u, Zor32f>&);
template void convolve(const Convolution<Zor16u, Zor32f>&);
template void convolve(const Convolution<Zor16s, Zor32f>&);
template void convolve(const Convolution<Zor32f, Zor32f>&);

// ---- Doubles: they need no working memory, since the image is read where it is and sums stay in registers ----

// N vectors of sums, over samples that `read` takes from their place in a source row.
template <int N, class Read>
ZORI_INLINE static inline void sumDoubles(const Convolution<Zor64f, Zor64f>& call, int y, std::ptrdiff_t x,
                                          Vec<Zor64f> (&sums)[N], Read read)
{
  for (auto& v : sums) v = zero<Zor64f>();
  const Zor64f* element = call.pKernel + std::ptrdiff_t{call.kernelSize.width} * call.kernelSize.height;
  for (int r = 0; r < call.kernelSize.height; ++r) {
    const Zor64f* p = call.src[std::ptrdiff_t{y} + r] + x;
    for (int c = 0; c < call.kernelSize.width; ++c, ++p) {
      const auto factor = splat(get<Zor64f>(--element)); // the kernel is reversed
      for (int v = 0; v < N; ++v) sums[v] += read(p + v * Vec<Zor64f>::size) * factor;
    }
  }
}

static void sumDoubles(const Convolution<Zor64f, Zor64f>& call)
{
  const UpperHalvesCleared atTheEnd;
  constexpr int most = 8;
  constexpr std::ptrdiff_t size = Vec<Zor64f>::size;
  const std::ptrdiff_t length = call.rowSamples();
  for (int y = 0; y < call.roi.height; ++y) {
    Zor64f* const dst = reinterpret_cast<Zor64f*>(call.dst[y]);
    const auto block = [&](std::ptrdiff_t x, auto vectors) ZORI_INLINE {
      Vec<Zor64f> sums[vectors];
      sumDoubles(call, y, x, sums, [](const Zor64f* p) { return load<Zor64f>(p); });
      for (int v = 0; v < vectors; ++v) store(dst + x + v * size, sums[v]);
    };
    std::ptrdiff_t x = 0;
    for (; x + most * size <= length; x += most * size) block(x, std::integral_constant<int, most>());
    for (; x < length && length >= size; x += size) // the last one ends with the row
      block(std::min(x, length - size), std::integral_constant<int, 1>());
    if (length < size) {
      const auto bytes = static_cast<std::size_t>(length) * sizeof(Zor64f);
      Vec<Zor64f> sums[1];
      sumDoubles(call, y, 0, sums, [=](const Zor64f* p) { return as<Zor64f>(loadShort<std::uint64_t>(p, bytes)); });
      storeShort<std::uint64_t>(dst, as<std::uint64_t>(sums[0]), bytes);
    }
  }
}

void convolveInDouble(const Convolution<Zor64f, Zor64f>& call)
{
  underRounding(Rounding::Nearest, [&] { sumDoubles(call); });
}

// ---- Integer kernels of 16-bit images ----

static void divide(const Zor32s* pKernel, std::ptrdiff_t count, int divisor, Zor32f* elements)
{
  const Zor32f factor = 1.0f / static_cast<Zor32f>(divisor);
  for (std::ptrdiff_t i = 0; i < count; ++i) elements[i] = static_cast<Zor32f>(get<Zor32s>(pKernel + i)) * factor;
}

DividedKernel::DividedKernel(const Zor32s* pKernel, ZorImgSize kernelSize, int divisor)
  : elements_(1LL * kernelSize.width * kernelSize.height)
{
  const long long count = 1LL * kernelSize.width * kernelSize.height;
  if (!elements_) return;
  underRounding(Rounding::Nearest,
                [&] { divide(pKernel, static_cast<std::ptrdiff_t>(count), divisor, elements_.get()); });
}

} // namespace general
} // namespace ZORI_WIDTH
} // namespace zori
