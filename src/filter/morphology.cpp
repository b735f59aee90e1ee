// zori{Dilate,Erode}_{8u,16u,32f}_{C1,C3,AC4}{R,IR}, zori{Dilate,Erode}_{8u,16u,32f}_C4R: the greatest and least
// samples under a mask of any shape.
//
// The mask becomes a list of runs: members that follow each other in a row of it. Each source row gives a row of the
// picks of every length of run that occurs, the longer ones from the shorter; these wait until the mask has passed.
// Then a result is the pick of as many samples as there are runs, four vectors at once. Where that saves nothing, every
// member is a run of one, the source row itself. A mask whose members fill a rectangle is worked on as that.
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

// A run of members, seen from the first sample of the rectangle that holds them all: of one in the source, offset in
// bytes; of more in the ring, offset in samples.
struct Run {
  std::ptrdiff_t offset;
  int row;
  bool isLong;
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

// to[i] = the pick of rows[k][i] for all k.
template <class Op, bool KeepFourth, class T = typename Op::Sample>
[[gnu::noinline]] void pickAcross(const T* const* rows, std::ptrdiff_t count, T* to, std::ptrdiff_t length)
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

// The runs of a mask: joined where that takes fewer picks than its members do.
struct Shape {
  Levels levels;
  long long runs = 0;
  bool joined = true;

  Shape(const Zor8u* pMask, ZorImgSize mask, const Members& members, bool mayJoin)
  {
    forRuns(pMask, mask, members, true, [&](int, int, int length) {
      joined = joined && levels.add(length);
      ++runs;
    });
    joined = mayJoin && joined && levels.fill();
    long long picks = runs;
    for (int k = 1; joined && k < levels.count(); ++k) picks += levels.taps(k) + 2;
    if (joined && picks < members.count) return;
    levels = {};
    runs = members.count;
    joined = false;
  }
};

template <class Op> class AnyShape {
  using T = typename Op::Sample;

public:
  // src: from the first sample of the members' rectangle.
  AnyShape(Rows<const T> src, const Zor8u* pMask, ZorImgSize mask, const Members& members, const Shape& shape,
           ZorImgSize roi, int channels)
    : src_(src), size_(members.size()), channels_(channels), samples_(std::ptrdiff_t{roi.width} * channels),
      sourceRows_(std::ptrdiff_t{roi.height} + size_.height - 1), levels_(shape.levels),
      count_(static_cast<std::ptrdiff_t>(shape.runs)),
      pitch_(((static_cast<long long>(roi.width) + size_.width) * channels + wholeLine - 1) / wholeLine * wholeLine),
      ringRows_((size_.height + 2LL * group - 2) / group * group), run_(plan_.add<Run>(shape.runs)),
      row_(plan_.add<const T*>(shape.runs)), ring_(plan_.add<T>(ringSamples(), 64)), memory_(plan_.bytes())
  {
    if (status() != ZorOk) return;
    Run* run = run_.in(block());
    forRuns(pMask, mask, members, shape.joined, [&](int x, int y, int length) {
      const std::ptrdiff_t samples = std::ptrdiff_t{x} * channels;
      const bool isLong = length > 1 && shape.joined;
      *run++ = {isLong ? ringOffset(levels_.of(length), y) + samples
                       : rowOffset(y, src.step) + samples * static_cast<std::ptrdiff_t>(sizeof(T)),
                y, isLong};
    });
  }
  ZorStatus status() const { return require(static_cast<bool>(memory_), ZorErrAlloc); }
  int rowsAtOnce() const { return group; }

  // One group after the other, from the top.
  void rows(std::ptrdiff_t y, int count, Rows<T> to, bool keepFourth)
  {
    for (const std::ptrdiff_t end = y + count + size_.height - 1; ready_ < end; ready_ += group)
      lengthen(ready_, static_cast<int>(std::min<std::ptrdiff_t>(group, sourceRows_ - ready_)));
    for (int i = 0; i < count; ++i) {
      placeRuns(src_[y + i]);
      if (keepFourth) pickAcross<Op, true>(row_.in(block()), count_, to[i], samples_);
      else pickAcross<Op, false>(row_.in(block()), count_, to[i], samples_);
    }
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
  std::ptrdiff_t ringOffset(int level, std::ptrdiff_t row) const
  {
    return ((level - 1) * static_cast<std::ptrdiff_t>(ringRows_) + row) * static_cast<std::ptrdiff_t>(pitch_);
  }

  // Where the runs of the next window begin, whose first row is `top`.
  void placeRuns(const T* top)
  {
    const auto ringRows = static_cast<std::ptrdiff_t>(ringRows_), ringSize = ringOffset(2, 0);
    const T* const ring = ring_.in(block()) + ringOffset(1, slot_);
    const Run* const run = run_.in(block());
    const T** const row = row_.in(block());
    for (std::ptrdiff_t k = 0; k < count_; ++k)
      row[k] = run[k].isLong ? ring + run[k].offset - (slot_ + run[k].row >= ringRows ? ringSize : 0)
                             : reinterpret_cast<const T*>(reinterpret_cast<const char*>(top) + run[k].offset);
    slot_ = slot_ + 1 == ringRows ? 0 : slot_ + 1;
  }

  // The picks of longer runs of `count` source rows, from a whole number of groups on.
  void lengthen(std::ptrdiff_t first, int count)
  {
    T* const ring = ring_.in(block());
    const std::ptrdiff_t slot = first % static_cast<std::ptrdiff_t>(ringRows_),
                         step = static_cast<std::ptrdiff_t>(pitch_) * static_cast<std::ptrdiff_t>(sizeof(T));
    RowPairs<T> pairs{src_[first], src_.step, nullptr, step, count, 0};
    for (int k = 1; k < levels_.count(); ++k) {
      const int length = levels_.length(k), before = levels_.length(k - 1);
      pairs.to = ring + ringOffset(k, slot);
      pairs.length = samples_ + (std::ptrdiff_t{size_.width} - length) * channels_;
      pickTapsOf<Op, false>(levels_.taps(k), pairs, std::ptrdiff_t{before} * channels_,
                            (std::ptrdiff_t{length} - before) * channels_);
      pairs.from = pairs.to, pairs.fromStep = step;
    }
  }

  Rows<const T> src_;
  ZorImgSize size_;
  int channels_;
  std::ptrdiff_t samples_, sourceRows_;
  Levels levels_;
  std::ptrdiff_t count_;
  long long pitch_, ringRows_; // the ring: for each level but the first so many rows, whole groups
  BlockPlan plan_;
  BlockPart<Run> run_;
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
  const Shape shape(pMask, mask, members, std::ptrdiff_t{roi.width} * channels<L> >= Vec<T, 16>::size);
  AnyShape<Op> filter(first, pMask, mask, members, shape, roi, channels<L>);
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
