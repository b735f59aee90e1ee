// zori{Dilate,Erode}_{8u,16u,32f}_{C1,C3,AC4}{R,IR}, zori{Dilate,Erode}_{8u,16u,32f}_C4R: the greatest and least
// samples under a mask of any shape.
//
// The mask becomes a list of runs: members that follow each other in a row of it. Each source row gives a row of the
// picks of every length of run that occurs, the longer ones from the shorter; these wait until the mask has passed.
// Then a result is the pick of as many samples as there are runs, four vectors at once. Where that saves nothing, every
// member is a run of one, the source row itself. Of integers, whose picks may come in any order, two rows of results
// share the runs that stand in both windows. A mask whose members fill a rectangle is worked on as that.
#include "morphology_rectangle.h"

#include "frame/arena.h"
#include "zori/filter.h"

namespace zori {
namespace morphology {
namespace {

// The rectangle that holds all members, and how many there are.
struct Members {
  long long count = 0;
  int left = 0, top = 0, right = -1, bottom = -1;

  Members(const Zor8u* pMask, ZorImgSize mask)
  {
    for (int j = 0; j < mask.height; ++j) {
      for (int i = 0; i < mask.width; ++i) {
        if (!pMask[std::ptrdiff_t{j} * mask.width + i]) continue;
        left = count ? std::min(left, i) : i;
        right = std::max(right, i);
        top = count ? top : j;
        bottom = j;
        ++count;
      }
    }
  }
  ZorImgSize size() const { return {right - left + 1, bottom - top + 1}; }
  bool areRectangle() const { return count == static_cast<long long>(size().width) * size().height; }
};

// A run of members, seen from the first sample of the rectangle that holds them all: of more than one in that row of
// the ring, of one in the source, where nothing ends after some rows (row 0).
struct Run {
  std::ptrdiff_t offset; // in bytes
  std::ptrdiff_t row;
  std::ptrdiff_t isLong; // 0 or 1
};

// The lengths of runs that are computed, in ascending order, each from the one before it; the first is 1.
class Levels {
public:
  static constexpr int most = 24;

  int count() const { return count_; }
  int length(int level) const { return length_[level]; }
  int taps(int level) const { return (length_[level] + length_[level - 1] - 1) / length_[level - 1]; }
  int of(int length) const { return static_cast<int>(std::lower_bound(length_, length_ + count_, length) - length_); }
  // False when there are too many.
  bool add(int length)
  {
    const int at = of(length);
    if (at < count_ && length_[at] == length) return true;
    if (count_ == most) return false;
    std::copy_backward(length_ + at, length_ + count_, length_ + count_ + 1);
    length_[at] = length;
    ++count_;
    return true;
  }
  // Lengths between, so that none is more than five times the one before it.
  bool fill()
  {
    for (int k = 1; k < count_; ++k)
      if (taps(k) > 5 && !add(4 * length_[k - 1])) return false;
    return true;
  }

private:
  int length_[most] = {1}, count_ = 1;
};

// Calls body(x, y, length) for every run of members, in the order of rows.
template <class Body>
inline void forRuns(const Zor8u* pMask, ZorImgSize mask, const Members& members, bool joined, Body body)
{
  for (int j = members.top; j <= members.bottom; ++j) {
    const Zor8u* const row = pMask + std::ptrdiff_t{j} * mask.width;
    for (int i = members.left; i <= members.right; ++i) {
      if (!row[i]) continue;
      const int first = i;
      while (joined && i < members.right && row[i + 1]) ++i;
      body(first - members.left, j - members.top, i + 1 - first);
    }
  }
}

// to[i] = the pick of rows[k][i] for all k. A row is coming.
template <class Op, bool KeepFourth, class T = typename Op::Sample>
[[gnu::noinline]] void pickAcross(const T* const* rows, std::ptrdiff_t count, T* to, std::ptrdiff_t length,
                                  Coming<T> coming)
{
  const UpperHalvesCleared atTheEnd;
  constexpr std::ptrdiff_t lanes = Vec<T>::size;
  if (length < lanes) {
    const std::size_t bytes = static_cast<std::size_t>(length) * sizeof(T);
    Vec<T> best = loadShort<T>(rows[0], bytes);
    for (std::ptrdiff_t k = 1; k < count; ++k) best = Op::pick(best, loadShort<T>(rows[k], bytes));
    storeShortResult<KeepFourth>(to, Op::finished(best), bytes);
    return;
  }
  std::ptrdiff_t x = 0;
  for (; x + 4 * lanes <= length; x += 4 * lanes) {
    for (std::ptrdiff_t i = 0; i < 4 * vectorBytes; i += 64) fetch<1>(coming, x + i / std::ptrdiff_t{sizeof(T)});
    const T* p = rows[0] + x;
    Vec<T> a = load<T>(p), b = load<T>(p + lanes), c = load<T>(p + 2 * lanes), d = load<T>(p + 3 * lanes);
    for (std::ptrdiff_t k = 1; k < count; ++k) {
      p = rows[k] + x;
      a = Op::pick(a, load<T>(p));
      b = Op::pick(b, load<T>(p + lanes));
      c = Op::pick(c, load<T>(p + 2 * lanes));
      d = Op::pick(d, load<T>(p + 3 * lanes));
    }
    storeResult<KeepFourth>(to + x, Op::finished(a));
    storeResult<KeepFourth>(to + x + lanes, Op::finished(b));
    storeResult<KeepFourth>(to + x + 2 * lanes, Op::finished(c));
    storeResult<KeepFourth>(to + x + 3 * lanes, Op::finished(d));
  }
  while (x < length) {
    x = std::min(x, length - lanes);
    Vec<T> best = load<T>(rows[0] + x);
    for (std::ptrdiff_t k = 1; k < count; ++k) best = Op::pick(best, load<T>(rows[k] + x));
    storeResult<KeepFourth>(to + x, Op::finished(best));
    x += lanes;
  }
}

// first[i] and second[i] = the picks of rows[k][i] for all k: the first `shared` of these count for both, `own` behind
// them for the first, the last `own` for the second. length: a vector at least. Two rows are coming.
template <class Op, bool KeepFourth, class T = typename Op::Sample>
[[gnu::noinline]] void pickAcrossTwo(const T* const* rows, std::ptrdiff_t shared, std::ptrdiff_t own, T* first,
                                     T* second, std::ptrdiff_t length, Coming<T> coming)
{
  const UpperHalvesCleared atTheEnd;
  constexpr std::ptrdiff_t lanes = Vec<T>::size;
  const auto vectors = [=](std::ptrdiff_t x, auto count) __attribute__((always_inline))
  {
    constexpr int n = decltype(count)::value;
    Vec<T> a[n], b[n];
    const auto pick = [=](Vec<T>(&best)[n], std::ptrdiff_t k) __attribute__((always_inline))
    {
      const T* const p = rows[k] + x;
      for (int i = 0; i < n; ++i) best[i] = Op::pick(best[i], load<T>(p + i * lanes));
    };
    const auto put = [=](T * to, const Vec<T>(&best)[n]) __attribute__((always_inline))
    {
      for (int i = 0; i < n; ++i) storeResult<KeepFourth>(to + x + i * lanes, Op::finished(best[i]));
    };
    for (int i = 0; i < n; ++i) a[i] = load<T>(rows[0] + x + i * lanes);
    std::ptrdiff_t k = 1;
    for (; k < shared; ++k) pick(a, k);
    for (int i = 0; i < n; ++i) b[i] = a[i];
    for (; k < shared + own; ++k) pick(a, k);
    put(first, a);
    for (; k < shared + 2 * own; ++k) pick(b, k);
    put(second, b);
  };
  std::ptrdiff_t x = 0;
  for (; x + 4 * lanes <= length; x += 4 * lanes) {
    for (std::ptrdiff_t i = 0; i < 4 * vectorBytes; i += 64) fetch<2>(coming, x + i / std::ptrdiff_t{sizeof(T)});
    vectors(x, std::integral_constant<int, 4>{});
  }
  for (; x < length; x += lanes) {
    x = std::min(x, length - lanes);
    vectors(x, std::integral_constant<int, 1>{});
  }
}

// The runs of a mask: joined where that takes fewer picks than its members do.
struct Shape {
  Levels levels;
  long long runs = 0, shared = 0; // shared: those that the windows of a row and of the one below it have both
  bool joined = true;

  Shape(const Zor8u* pMask, ZorImgSize mask, const Members& members, bool mayJoin, bool mayShare)
    : pMask_(pMask), mask_(mask), members_(members)
  {
    join(mayJoin);
    if (mayShare) forAll([&](int x, int y, int length) { shared += isRun(x, y + 1, length); });
  }

  // Calls body(x, y, length) for every run.
  template <class Body> void forAll(Body body) const { forRuns(pMask_, mask_, members_, joined, body); }
  bool isRun(int x, int y, int length) const
  {
    if (y < 0 || y >= members_.size().height) return false;
    const int left = members_.left + x, right = left + length;
    const Zor8u* const row = pMask_ + (std::ptrdiff_t{members_.top} + y) * mask_.width;
    if (std::find(row + left, row + right, Zor8u{0}) != row + right) return false;
    return !joined || ((x == 0 || !row[left - 1]) && (right > members_.right || !row[right]));
  }

private:
  void join(bool mayJoin)
  {
    bool canJoin = true;
    forAll([&](int, int, int length) {
      canJoin = canJoin && levels.add(length);
      ++runs;
    });
    joined = mayJoin && canJoin && levels.fill();
    long long picks = runs;
    for (int k = 1; joined && k < levels.count(); ++k) picks += levels.taps(k) + 2;
    if (joined && picks < members_.count) return;
    levels = {};
    runs = members_.count;
    joined = false;
  }

  const Zor8u* pMask_;
  ZorImgSize mask_;
  const Members& members_;
};

template <class Op> class AnyShape {
  using T = typename Op::Sample;

public:
  // src: from the first sample of the members' rectangle.
  AnyShape(Rows<const T> src, ZorImgSize size, const Shape& shape, ZorImgSize roi, int channels)
    : src_(src), size_(size), roi_(roi), channels_(channels), samples_(std::ptrdiff_t{roi.width} * channels),
      sourceRows_(std::ptrdiff_t{roi.height} + size_.height - 1), levels_(shape.levels),
      count_(static_cast<std::ptrdiff_t>(shape.runs)), shared_(static_cast<std::ptrdiff_t>(shape.shared)),
      pitch_(((static_cast<long long>(roi.width) + size_.width) * channels + wholeLine - 1) / wholeLine * wholeLine),
      ringRows_((size_.height + 2LL * group - 2) / group * group), run_(plan_.add<Run>(shape.runs)),
      pair_(plan_.add<Run>(shape.shared > 0 ? 2 * shape.runs - shape.shared : 0)),
      row_(plan_.add<const T*>(2 * shape.runs)), ring_(plan_.add<T>(ringSamples(), 64)), memory_(plan_.bytes())
  {
    if (status() != ZorOk) return;
    Run* run = run_.in(block());
    shape.forAll([&](int x, int y, int length) { *run++ = runAt(x, y, length); });
    if (shared_ == 0) return;
    Run *both = pair_.in(block()), *first = both + shared_, *second = first + (count_ - shared_);
    shape.forAll([&](int x, int y, int length) {
      (shape.isRun(x, y + 1, length) ? *both++ : *second++) = runAt(x, y + 1, length);
      if (!shape.isRun(x, y - 1, length)) *first++ = runAt(x, y, length);
    });
  }
  ZorStatus status() const { return require(static_cast<bool>(memory_), ZorErrAlloc); }
  int rowsAtOnce() const { return group; }

  // One group after the other, from the top.
  void rows(std::ptrdiff_t y, int count, Rows<T> to, bool keepFourth)
  {
    for (const std::ptrdiff_t end = y + count + size_.height - 1; ready_ < end; ready_ += group)
      lengthen(ready_, static_cast<int>(std::min<std::ptrdiff_t>(group, sourceRows_ - ready_)),
               count == group ? comingIn<T>(roi_, channels_, readOnly(to)) : Coming<T>{});
    if (keepFourth) pickWindows<true>(src_[y], count, to);
    else pickWindows<false>(src_[y], count, to);
  }

private:
  static constexpr int group = 4; // rows of the source that are lengthened at once
  static constexpr int wholeLine = 64 / static_cast<int>(sizeof(T));

  Zor8u* block() { return memory_.get(); }
  long long ringSamples() const
  {
    if (levels_.count() == 1) return 0;
    if (pitch_ > LLONG_MAX / Levels::most / ringRows_) return BlockPlan::impossible;
    return (levels_.count() - 1) * pitch_ * ringRows_;
  }
  Run runAt(int x, int y, int length) const
  {
    const std::ptrdiff_t samples = std::ptrdiff_t{x} * channels_, bytes = sizeof(T);
    if (length == 1 || levels_.count() == 1) return {rowOffset(y, src_.step) + samples * bytes, 0, 0};
    return {(ringOffset(levels_.of(length), y) + samples) * bytes, y, 1};
  }
  std::ptrdiff_t ringOffset(int level, std::ptrdiff_t row) const
  {
    return ((level - 1) * static_cast<std::ptrdiff_t>(ringRows_) + row) * static_cast<std::ptrdiff_t>(pitch_);
  }

  // `count` rows of results, the windows of the first begin at `top`.
  template <bool Keep> void pickWindows(const T* top, int count, Rows<T> to)
  {
    const T** const row = row_.in(block());
    const std::ptrdiff_t own = count_ - shared_;
    const auto coming = [&](int i) {
      return ready_ + group <= sourceRows_ ? comingIn<T>(roi_, channels_, {src_[ready_ + i], src_.step}) : Coming<T>{};
    };
    int i = 0;
    for (; shared_ > 0 && i + 2 <= count; i += 2) {
      placeRuns(pair_.in(block()), shared_ + 2 * own, rowAt(top, src_.step, i), 2);
      pickAcrossTwo<Op, Keep>(row, shared_, own, to[i], to[i + 1], samples_, coming(i));
    }
    for (; i < count; ++i) {
      placeRuns(run_.in(block()), count_, rowAt(top, src_.step, i), 1);
      pickAcross<Op, Keep>(row, count_, to[i], samples_, coming(i));
    }
  }

  // Where the runs of the next window begin, whose first row is `top`; so many rows of windows are then done.
  void placeRuns(const Run* run, std::ptrdiff_t count, const T* top, int rows)
  {
    const auto ringRows = static_cast<std::ptrdiff_t>(ringRows_);
    const std::ptrdiff_t ringBytes = ringOffset(2, 0) * static_cast<std::ptrdiff_t>(sizeof(T)),
                         below = ringRows - slot_;
    const char* const from[2] = {reinterpret_cast<const char*>(top),
                                 reinterpret_cast<const char*>(ring_.in(block()) + ringOffset(1, slot_))};
    const T** const row = row_.in(block());
#pragma GCC unroll 2
    for (std::ptrdiff_t k = 0; k < count; ++k)
      row[k] =
        reinterpret_cast<const T*>(from[run[k].isLong] + (run[k].offset - (run[k].row >= below ? ringBytes : 0)));
    slot_ += rows < below ? rows : rows - ringRows;
  }

  // The picks of longer runs of `count` source rows, from a whole number of groups on.
  void lengthen(std::ptrdiff_t first, int count, Coming<T> coming)
  {
    T* const ring = ring_.in(block());
    const std::ptrdiff_t slot = first % static_cast<std::ptrdiff_t>(ringRows_),
                         step = static_cast<std::ptrdiff_t>(pitch_) * static_cast<std::ptrdiff_t>(sizeof(T));
    RowPairs<T> pairs{src_[first], src_.step, nullptr, step, count, 0, coming};
    for (int k = 1; k < levels_.count(); ++k) {
      const int length = levels_.length(k), before = levels_.length(k - 1);
      pairs.to = ring + ringOffset(k, slot);
      pairs.length = samples_ + (std::ptrdiff_t{size_.width} - length) * channels_;
      pickTapsOf<Op, false>(levels_.taps(k), pairs, std::ptrdiff_t{before} * channels_,
                            (std::ptrdiff_t{length} - before) * channels_);
      pairs.from = pairs.to, pairs.fromStep = step, pairs.coming = {};
    }
  }

  Rows<const T> src_;
  ZorImgSize size_, roi_;
  int channels_;
  std::ptrdiff_t samples_, sourceRows_;
  Levels levels_;
  std::ptrdiff_t count_, shared_;
  long long pitch_, ringRows_; // the ring: for each level but the first so many rows, whole groups
  BlockPlan plan_;
  BlockPart<Run> run_, pair_; // of one window, and of two as pickAcrossTwo takes them
  BlockPart<const T*> row_;
  BlockPart<T> ring_;
  SmallScratch<Zor8u, 8192> memory_;
  std::ptrdiff_t ready_ = 0, slot_ = 0; // source rows whose longer runs are in the ring; where the next window's are
};

template <class Op, Layout L, class T>
ZorStatus filterShape(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roi, const Zor8u* pMask,
                      ZorImgSize mask, ZorImgPoint anchor)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, pMask), positive(srcStep, dstStep), nonEmpty(roi), isMask(mask));
      s != ZorOk)
    return s;
  const Members members(pMask, mask);
  if (auto s = firstFailure(require(members.count > 0, ZorErrZeroMask), isAnchorInside(mask, anchor),
                            rowFits<T, L>(srcStep, mask.width - 1LL + roi.width), rowFits<T, L>(dstStep, roi.width));
      s != ZorOk)
    return s;
  const Rows<const T> src{pSrc, srcStep};
  const Target<T> target{{pDst, dstStep}, roi, channels<L>, L == AC4};
  const bool inPlace = pSrc == pDst;
  const int above = anchor.y - members.top, before = anchor.x - members.left; // negative where they start behind it
  const Rows<const T> first{src[-std::ptrdiff_t{above}] - std::ptrdiff_t{before} * channels<L>, srcStep};
  if (members.areRectangle()) return filterRectangle<Op>(first, members.size(), target, inPlace, above);
  const std::ptrdiff_t samples = std::ptrdiff_t{roi.width} * channels<L>;
  // what windows share is found out where that is little of the work
  constexpr long long largeRegion = 8192 / sizeof(T);
  const bool mayShare =
    !std::is_same_v<T, float> && samples >= Vec<T>::size && roi.height > 1 && 1LL * samples * roi.height >= largeRegion;
  const Shape shape(pMask, mask, members, samples >= Vec<T, 16>::size, mayShare);
  AnyShape<Op> filter(first, members.size(), shape, roi, channels<L>);
  if (auto s = filter.status(); s != ZorOk) return s;
  if (inPlace) return target.fillInPlace(filter, above);
  target.fill(filter);
  return ZorOk;
}

} // namespace
} // namespace morphology
} // namespace zori

using namespace zori;
using namespace zori::morphology;

// clang-format off
#define STAMP(name, op, type, layout)                                                                                  \
  ZorStatus zori##name##_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,        \
                                              ZorImgSize roiSize, const Zor8u* pMask, ZorImgSize maskSize,             \
                                              ZorImgPoint anchor)                                                      \
  {                                                                                                                    \
    return filterShape<Limited<op, Zor##type>, layout>(pSrc, srcStep, pDst, dstStep, roiSize, pMask, maskSize, anchor);\
  }
#define STAMP_I(name, op, type, layout)                                                                                \
  ZorStatus zori##name##_##type##_##layout##IR(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize,                 \
                                               const Zor8u* pMask, ZorImgSize maskSize, ZorImgPoint anchor)            \
  {                                                                                                                    \
    return filterShape<Limited<op, Zor##type>, layout>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, pMask,       \
                                                       maskSize, anchor);                                              \
  }
#define BOTH(name, op, type, layout) STAMP(name, op, type, layout) STAMP_I(name, op, type, layout)
#define LAYOUTS(name, op, type) BOTH(name, op, type, C1) BOTH(name, op, type, C3) BOTH(name, op, type, AC4) STAMP(name, op, type, C4)
#define TYPES(name, op) LAYOUTS(name, op, 8u) LAYOUTS(name, op, 16u) LAYOUTS(name, op, 32f)
TYPES(Dilate, Greatest) TYPES(Erode, Least)
#undef TYPES
#undef LAYOUTS
#undef BOTH
#undef STAMP_I
#undef STAMP
