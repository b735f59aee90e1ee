// Records of image transforms, the work memory of a call, and how rows and columns are shared among threads.
#include "image_transform.h"

#include "frame/parallel.h"
#include "frame/record.h"
#include "image_column_levels.h"
#include "image_joined.h"
#include "image_row_pairs.h"

#include <cmath>
#include <cstring>
#include <initializer_list>
#include <limits>

namespace zori {
namespace {

// ---- Records ----

// From these sides on, team work is planned for when a record is made.
constexpr int leastSideForThreads(bool isReal) { return isReal ? 141 : 291; }

int powerOf(int length) { return (length & (length - 1)) == 0 ? __builtin_ctz(static_cast<unsigned>(length)) : -1; }

// The work buffer of one vector, with room to align it: of the vector FFT for 2^k values.
long long vectorBufferBytes(FftKind kind, int length)
{
  const int order = powerOf(length);
  if (order < 0) return ((8 * laneWorkLength(length) + 31) & ~31LL) + 32;
  long long record, init, buffer = 0;
  vectorFftSizes(kind, order, ZorFftNoDiv, ZorHintNone, &record, &init, &buffer);
  return buffer;
}

// What GetBufSize plans for a thread: columns in eights behind each other, or a few rows, and a vector's buffer.
long long plannedBytes(bool isReal, ZorImgSize size)
{
  const long long w = laneWorkLength(size.width), h = laneWorkLength(size.height);
  const long long columns = 64 * h + vectorBufferBytes(FftKind::Complex, size.height);
  if (!isReal) return std::max(vectorBufferBytes(FftKind::Complex, size.width), columns);
  return std::max({16 * w + vectorBufferBytes(FftKind::Real, size.width),
                   16 * h + vectorBufferBytes(FftKind::Real, size.height), columns});
}

// Lengths that are transformed as the vector FFT does it: powers of two, of the DFT those from 8 on.
bool isFftLength(TransformFamily family, int length)
{
  return powerOf(length) >= (family == TransformFamily::Fft ? 0 : 3);
}

// The divisor of a side as a factor. That of the DFT by the root comes from an estimate and one step of Newton.
[[gnu::noinline]] float factorOf(TransformFamily family, int flag, int length)
{
  if (flag == ZorFftNoDiv) return 1;
  const float n = static_cast<float>(length);
  if (flag != ZorFftDivBySqrtN) return 1 / n;
  if (isFftLength(family, length)) return static_cast<float>(1 / std::sqrt(static_cast<double>(length)));
  const float x = firstLane(rsqrtEstimate(splatFour(n)));
  return x * (n * x * x - 3) * -0.5f;
}

// One row or one column of such a length goes through the vector FFT.
int vectorLength(TransformFamily family, ZorImgSize size)
{
  const int length = size.height == 1 ? size.width : size.width == 1 ? size.height : 0;
  return length && isFftLength(family, length) ? length : 0;
}

// ---- Work memory ----

// Complex columns of a block: where memory is scarce, and where it is not. Wide blocks visit the rows less often, as
// long as they fit well into the second-level cache and each thread gets some of them.
constexpr int fewLanes = 8;
int manyLanes(const LanePlan& side, long long columns, int threads)
{
  constexpr int most = 32;
  constexpr long long mostElements = 512;
  return side.workLength() <= mostElements && columns >= 4LL * most * threads ? most : most / 2;
}

// A slice for each of so many threads: of the call's own, or of the caller's buffer. Where the caller's buffer must do
// (there is no memory, or none is wanted), columns go in eights and rows one by one.
class WorkMemory {
public:
  struct Wanted {
    long long bytes;
    int threads, columnLanes;
  };
  WorkMemory(const ImageTransform& plan, Zor8u* given, Wanted wanted)
    : slice_((wanted.bytes + 63) & ~63LL),
      here(slice_ > BlockPlan::impossible / wanted.threads ? 0 : slice_ * wanted.threads), base_(here.get()),
      columnLanes_(here ? wanted.columnLanes : fewLanes), isScarce_(!here)
  {
    if (here || !given) return;
    base_ = given + (-reinterpret_cast<std::uintptr_t>(given) & 15);
    slice_ = plan.bytesPerThread;
  }
  explicit operator bool() const { return base_ != nullptr; }
  bool isScarce() const { return isScarce_; }
  int columnLanes() const { return columnLanes_; }
  float* of(int thread) const { return reinterpret_cast<float*>(base_ + static_cast<std::ptrdiff_t>(slice_) * thread); }

private:
  long long slice_;
  Scratch<Zor8u> here;
  Zor8u* base_;
  int columnLanes_;
  bool isScarce_;
};

// ---- Teams ----

// Runs body(unit, memory of the thread) for all units, in as many threads as the record allows and the work is worth.
template <class Body>
void share(const ImageTransform& plan, TeamRule rule, std::ptrdiff_t units, const WorkMemory& memory, Body body)
{
  masterSlabs(rule, Rounding::Nearest, static_cast<int>(units), 0, [&](const Slab& slab) {
    const int threads = std::min(slab.threads, plan.threads), t = slab.thread;
    if (t >= threads) return ZorOk;
    const std::ptrdiff_t each = units / threads, first = t * each;
    const std::ptrdiff_t end = t == threads - 1 ? units : first + each;
    for (std::ptrdiff_t u = first; u < end; ++u) body(u, memory.of(t));
    return ZorOk;
  });
}

// A value in one pass takes about so long, in picoseconds.
constexpr int passPicoseconds = 2500;

TeamRule teamRule(const ImageTransform& plan, int channelCount)
{
  const long long values = static_cast<long long>(plan.width) * plan.height * channelCount;
  return TeamRule::forWork(values, passPicoseconds).fromSize(plan.threads > 1);
}
TeamRule columnRule(const ImageTransform& plan, int channelCount, int side)
{
  return teamRule(plan, channelCount).fromSize(plan.width > side && plan.height > side);
}

// ---- One row or one column ----

template <class T, class Work>
ZorStatus transformVector(const ImageTransform& plan, Rows<const T> src, Rows<T> dst, int channelCount, int transformed,
                          Zor8u* given, Work work)
{
  const std::ptrdiff_t length = std::max(plan.width, plan.height);
  const auto place = [&](auto rows, std::ptrdiff_t i) {
    return plan.height == 1 ? rows[0] + i * channelCount : rows[i];
  };
  const auto adjoin = [&](int step) { return channelCount == 1 && (plan.height == 1 || step == int(sizeof(T))); };
  const WorkMemory memory(plan, given, {given ? 0 : plan.bytesPerThread, 1, 1});
  if (!memory) return ZorErrAlloc;
  const RoundingScope rounding(Rounding::Nearest);
  T* const values = reinterpret_cast<T*>(memory.of(0));
  if (adjoin(src.step) && adjoin(dst.step)) return work(src[0], dst[0], values);
  for (int c = 0; c < transformed; ++c) {
    for (std::ptrdiff_t i = 0; i < length; ++i) values[i] = get<T>(place(src, i) + c);
    if (const ZorStatus s = work(values, values, values + length); s != ZorOk) return s;
    for (std::ptrdiff_t i = 0; i < length; ++i) put(place(dst, i) + c, values[i]);
  }
  return ZorOk;
}

// ---- Rows ----

template <class Kind>
void realRows(const ImageTransform& plan, Direction direction, TeamRule rule, const WorkMemory& memory,
              Rows<const float> src, Rows<float> dst, bool inHalves = false)
{
  using From = typename Kind::template Set<const float>;
  using To = typename Kind::template Set<float>;
  constexpr int group = Kind::pairs;
  const RowPass pass{plan.rows, &plan, plan.rowFactor[static_cast<int>(direction)], plan.width};
  const std::ptrdiff_t pairs = (plan.height + 1LL) / 2, groups = (pairs + group - 1) / group;
  share(plan, rule, groups, memory, [&](std::ptrdiff_t g, float* buffer) {
    const std::ptrdiff_t y = inHalves ? group * g : 2 * group * g, other = inHalves ? y + plan.height / 2 : y + 1;
    const int apart = inHalves ? 1 : 2;
    const From even(src, y, apart, plan.height, plan.width), odd(src, other, apart, plan.height, plan.width);
    const To evenTo(dst, y, apart, plan.height, plan.width), oddTo(dst, other, apart, plan.height, plan.width);
    if (direction == Direction::Forward) forwardRealRows(pass, even, odd, evenTo, oddTo, buffer);
    else inverseRealRows(pass, even, odd, evenTo, oddTo, buffer);
  });
}

// Rows so long are fetched ahead. Shorter ones the processor fetches in time by itself.
constexpr int leastFetched = 512;

template <class V>
void pairedRows(const ImageTransform& plan, Direction direction, TeamRule rule, const WorkMemory& memory,
                Rows<const float> src, Rows<float> dst, bool inHalves)
{
  const RowPass pass{plan.rows, &plan, plan.rowFactor[static_cast<int>(direction)], plan.width};
  share(plan, rule, (plan.height + 1LL) / 2, memory, [&](std::ptrdiff_t pair, float* buffer) {
    const std::ptrdiff_t apart = inHalves ? plan.height / 2 : 1, y = inHalves ? pair : 2 * pair;
    const std::ptrdiff_t last = plan.height - 1LL, ahead = plan.width < leastFetched ? 0 : inHalves ? 1 : 2;
    const RowPair rows{src[y],
                       src[std::min(y + apart, last)],
                       src[std::min(y + ahead, last)],
                       src[std::min(y + ahead + apart, last)],
                       dst[y],
                       y < last ? dst[y + apart] : nullptr};
    if (direction == Direction::Forward) forwardRowPair<V>(pass, rows, buffer);
    else inverseRowPair<V>(pass, rows, buffer);
  });
}

template <class V>
void complexImageRows(const ImageTransform& plan, Direction direction, TeamRule rule, const WorkMemory& memory,
                      Rows<const float> src, Rows<float> dst)
{
  using Kind = std::conditional_t<std::is_same_v<V, float>, OneByOne<1>, ByRows<V>>;
  using From = typename Kind::template Set<const float>;
  using To = typename Kind::template Set<float>;
  constexpr int group = Kind::pairs;
  const RowPass pass{plan.rows, &plan, plan.rowFactor[static_cast<int>(direction)], plan.width};
  share(plan, rule, (plan.height + group - 1LL) / group, memory, [&](std::ptrdiff_t g, float* buffer) {
    complexRows(pass, direction == Direction::Inverse, From(src, group * g, 1, plan.height, 0),
                To(dst, group * g, 1, plan.height, 0), buffer);
  });
}

// So few pairs of rows, or columns, leave half of wider vectors idle.
constexpr int fewRows = 4;

template <Layout L>
void allRows(const ImageTransform& plan, Direction direction, const WorkMemory& memory, Rows<const float> src,
             Rows<float> dst)
{
  const TeamRule rule = teamRule(plan, processed<L>);
  // which rows share a transform shows in the last bits
  const bool inHalves = L == C1 && canBeJoined(plan.rows, plan.columns);
  if (memory.isScarce())
    for (int c = 0; c < processed<L>; ++c)
      realRows<OneByOne<channels<L>>>(plan, direction, rule, memory, Rows{src.first + c, src.step},
                                      Rows{dst.first + c, dst.step}, inHalves);
  else if constexpr (L == C1) {
    if (plan.rows.isAlong()) pairedRows<Vec<float>>(plan, direction, rule, memory, src, dst, inHalves);
    else if (plan.height <= 2 * fewRows) realRows<ByRows<F32x4>>(plan, direction, rule, memory, src, dst);
    else realRows<ByRows<Vec<float>>>(plan, direction, rule, memory, src, dst);
  } else realRows<ByChannels<L>>(plan, direction, rule, memory, src, dst);
}

// ---- Columns ----

ColumnPass columnPass(const ImageTransform& plan, Direction direction)
{
  return {plan.columns, &plan, plan.columnFactor[static_cast<int>(direction)], direction == Direction::Inverse,
          plan.height};
}

// `columns` pairs of floats from float `first` of a row on, and the real ones behind them if there are some.
template <class V>
void pairColumns(const ImageTransform& plan, Direction direction, TeamRule rule, const WorkMemory& memory,
                 std::ptrdiff_t first, std::ptrdiff_t columns, RealColumns real, Rows<const float> src, Rows<float> dst)
{
  const ColumnPass pass = columnPass(plan, direction);
  const int lanes = memory.columnLanes();
  const std::ptrdiff_t all = columns + real.areThere, blocks = (all + lanes - 1) / lanes;
  share(plan, rule, blocks, memory, [&](std::ptrdiff_t b, float* buffer) {
    const std::ptrdiff_t at = b * lanes;
    const int pairs = static_cast<int>(std::min<std::ptrdiff_t>(lanes, columns - at));
    const RealColumns realHere{real.areThere && b == blocks - 1, real.last};
    const int vectors = (pairs + realHere.areThere + laneCount<V> - 1) / laneCount<V>;
    const PairColumns<V> here{first + 2 * at, pairs, vectors};
    if constexpr (std::is_same_v<V, Vec<float>>)
      if (!realHere.areThere && isStraight(pass, here)) return transformStraight(pass, here, src, dst, buffer);
    transformBlock(pass, here, realHere, vectors, src, dst, buffer);
  });
}

template <Layout L>
void allColumns(const ImageTransform& plan, Direction direction, const WorkMemory& memory, Rows<const float> src,
                Rows<float> dst)
{
  const std::ptrdiff_t width = plan.width, columns = (width - 1) / 2;
  const RealColumns real{true, width % 2 == 0 ? (width - 1) * channels<L> : 0};
  if constexpr (L == C1) {
    const TeamRule rule = columnRule(plan, 1, 290);
    if (memory.isScarce() || columns < fewRows)
      pairColumns<F32x4>(plan, direction, rule, memory, 1, columns, real, src, dst);
    else pairColumns<Vec<float>>(plan, direction, rule, memory, 1, columns, real, src, dst);
  } else {
    const ColumnPass pass = columnPass(plan, direction);
    const int together = memory.columnLanes() / 4;
    const std::ptrdiff_t blocks = (columns + 1 + together - 1) / together;
    share(plan, columnRule(plan, processed<L>, 140), blocks, memory, [&](std::ptrdiff_t b, float* buffer) {
      const std::ptrdiff_t at = b * together;
      const int pairs = static_cast<int>(std::min<std::ptrdiff_t>(together, columns - at));
      const RealColumns realHere{b == blocks - 1, real.last};
      const PixelColumns<L> here{1 + 2 * at, width, pairs};
      transformBlock(pass, here, realHere, pairs + realHere.areThere, src, dst, buffer);
    });
  }
}

// Columns fill whole vectors.
template <class V> long long wholeVectors(long long lanes)
{
  return (lanes + laneCount<V> - 1) / laneCount<V> * laneCount<V>;
}

// What a call works best with: a row in each of so many lanes, and blocks out of so many columns.
WorkMemory::Wanted wantedMemory(const ImageTransform& plan, TeamRule rule, long long rowLanes, long long columnLanes)
{
  constexpr long long lane = 2 * sizeof(float);
  const auto bytes = [=](long long lanes, const LanePlan& side) {
    return side.workLength() > BlockPlan::impossible / 4096 ? BlockPlan::impossible : lanes * lane * side.workLength();
  };
  const int threads = std::min(plan.threads, rule.threads(std::numeric_limits<int>::max())),
            lanes = manyLanes(plan.columns, columnLanes, threads);
  return {std::max(bytes(rowLanes, plan.rows), bytes(std::min<long long>(columnLanes, lanes), plan.columns)), threads,
          lanes};
}

// ---- Rows and columns joined ----

// Whether rows of two images lie apart from each other.
bool areApart(Rows<const float> src, Rows<float> dst, const ImageTransform& plan)
{
  const auto start = [](auto rows) { return reinterpret_cast<std::uintptr_t>(rows.first); };
  const auto end = [&](auto rows) { return reinterpret_cast<std::uintptr_t>(rows[plan.height - 1LL] + plan.width); };
  return end(src) <= start(dst) || end(dst) <= start(src);
}

JoinedPass joinedPass(const ImageTransform& plan, Direction direction)
{
  const int d = static_cast<int>(direction);
  return {plan.rows, plan.columns, &plan, plan.rowFactor[d], plan.columnFactor[d], direction == Direction::Inverse};
}

WorkMemory::Wanted wantedJoined(const ImageTransform& plan, Direction direction)
{
  const JoinedPass pass = joinedPass(plan, direction);
  const int threads = std::min(plan.threads, teamRule(plan, 1).threads(std::numeric_limits<int>::max()));
  return {(pass.threadFloats() + pass.realFloats()) * static_cast<long long>(sizeof(float)), threads, fewLanes};
}

void transformJoined(const ImageTransform& plan, Direction direction, const WorkMemory& memory, Rows<const float> src,
                     Rows<float> dst)
{
  using V = Vec<float>;
  const JoinedPass pass = joinedPass(plan, direction);
  const TeamRule rule = teamRule(plan, 1);
  const auto real = reinterpret_cast<Complex<float>*>(memory.of(0) + pass.threadFloats());
  const auto rows = [&] {
    share(plan, rule, pass.closed(), memory, [&](std::ptrdiff_t j, float* buffer) {
      if (!pass.inverse) forwardJoinedRows<8, V>(pass, src, dst, j, buffer);
      else if (pass.together() == 8) inverseJoinedRows<8, V>(pass, dst, j, buffer);
      else inverseJoinedRows<16, V>(pass, dst, j, buffer);
    });
  };
  const auto columns = [&] {
    share(plan, rule, pass.together(), memory,
          [&](std::ptrdiff_t unit, float* buffer) { JoinedColumns<V>{pass, src, dst, unit, buffer, real}.run(); });
  };
  if (direction == Direction::Forward) {
    rows();
    columns();
    bringJoinedReals(pass, dst, real);
  } else {
    takeJoinedReals(pass, src, real);
    columns();
    rows();
  }
}

ZorStatus checked(const void* pSrc, int srcStep, const void* pDst, int dstStep)
{
  if (!pSrc || !pDst) return ZorErrNullPtr;
  return srcStep >= 1 && dstStep >= 1 ? ZorOk : ZorErrStep;
}

} // namespace

int bufferBytes(const ImageTransform& plan)
{
  const long long bytes = plan.threads * (static_cast<long long>(plan.bytesPerThread) + 4) + 16;
  return bytes > std::numeric_limits<int>::max() ? 0 : static_cast<int>(bytes);
}

ZorStatus makeImageTransform(TransformFamily family, bool isReal, Zor32u tag, ZorImgSize size, int flag, ZorHint hint,
                             long long headBytes, void** made)
{
  if (flag != ZorFftDivFwdByN && flag != ZorFftDivInvByN && flag != ZorFftDivBySqrtN && flag != ZorFftNoDiv)
    return ZorErrFlag;

  // a work buffer whose size an int cannot tell is none
  const int least = leastSideForThreads(isReal);
  const int threads = size.width >= least && size.height >= least ? allowedThreads() : 1;
  if (laneWorkLength(size.width) == 0 || laneWorkLength(size.height) == 0) return ZorErrAlloc;
  long long planned = plannedBytes(isReal, size);
  if (threads > 1) planned = (planned + 15) & ~15LL;
  if (planned > std::numeric_limits<int>::max()) return ZorErrAlloc;

  // offsets of parts count from the record
  BlockPlan block(sizeof(ImageTransform));
  ImageTransform plan = {};
  plan.tag = tag;
  plan.width = size.width;
  plan.height = size.height;
  plan.hint = hint;
  plan.bytesPerThread = static_cast<Zor32s>(planned);
  plan.threads = threads;
  if (bufferBytes(plan) == 0) return ZorErrAlloc;
  const int vector = vectorLength(family, size);
  const FftKind kind = isReal ? FftKind::Real : FftKind::Complex;
  long long vectorBytes = 0, initBytes = 0, ignored;
  if (vector) {
    const ZorStatus s = vectorFftSizes(kind, powerOf(vector), flag, hint, &vectorBytes, &initBytes, &ignored);
    if (s != ZorOk) return s;
    plan.vector = block.add<char>(vectorBytes);
  } else {
    plan.rows = LanePlan(size.width, block, isReal);
    plan.columns = LanePlan(size.height, block);
  }
  if (block.isImpossible()) return ZorErrAlloc;

  const RoundingScope rounding(Rounding::Nearest);
  const bool isRow = size.height == 1, isColumn = size.width == 1 && !isRow; // which have one factor
  for (const Direction direction : {Direction::Forward, Direction::Inverse}) {
    const bool divides =
      flag == ZorFftDivBySqrtN || flag == (direction == Direction::Forward ? ZorFftDivFwdByN : ZorFftDivInvByN);
    const int d = static_cast<int>(direction);
    plan.rowFactor[d] = divides && !isColumn ? factorOf(family, flag, size.width) : 1;
    plan.columnFactor[d] = divides && !isRow ? factorOf(family, flag, size.height) : 1;
  }
  Scratch<Zor8u> memory(headBytes + block.bytes()), initMemory(initBytes);
  if (!memory || (initBytes && !initMemory)) return ZorErrAlloc;
  char* const record = reinterpret_cast<char*>(memory.get()) + headBytes;
  if (vector) {
    FftVectorRecord* inside;
    const ZorStatus s =
      initVectorFft(kind, powerOf(vector), flag, hint, plan.vector.in(record), initMemory.get(), &inside);
    if (s != ZorOk) return s;
    plan.vectorAt = static_cast<Zor32s>(reinterpret_cast<char*>(inside) - plan.vector.in(record));
  } else {
    plan.rows.fill(record);
    plan.columns.fill(record);
  }
  std::memcpy(record, &plan, sizeof plan);
  *made = memory.release();
  return ZorOk;
}

ZorStatus transformComplex(const ImageTransform& plan, Direction direction, const Zor32fc* pSrc, int srcStep,
                           Zor32fc* pDst, int dstStep, Zor8u* pBuffer)
{
  if (const ZorStatus s = checked(pSrc, srcStep, pDst, dstStep); s != ZorOk) return s;
  if (const FftVectorRecord* record = plan.vectorRecord()) {
    return transformVector(plan, Rows{pSrc, srcStep}, Rows{pDst, dstStep}, 1, 1, pBuffer,
                           [&](const Zor32fc* from, Zor32fc* to, Zor32fc* buffer) {
                             return direction == Direction::Forward ? forwardComplex(from, to, record, buffer)
                                                                    : inverseComplex(from, to, record, buffer);
                           });
  }
  const TeamRule rows = teamRule(plan, 2), columns = rows.fromSize(plan.width >= 8LL * plan.threads);
  constexpr int lanes = laneCount<Vec<float>>;
  const WorkMemory memory(plan, pBuffer, wantedMemory(plan, rows, lanes, wholeVectors<Vec<float>>(plan.width)));
  if (!memory) return ZorErrAlloc;
  const Rows src{reinterpret_cast<const float*>(pSrc), srcStep};
  const Rows dst{reinterpret_cast<float*>(pDst), dstStep};
  const Rows<const float> made{dst.first, dst.step};
  if (memory.isScarce()) {
    complexImageRows<float>(plan, direction, rows, memory, src, dst);
    pairColumns<F32x4>(plan, direction, columns, memory, 0, plan.width, {false, 0}, made, dst);
  } else {
    complexImageRows<Vec<float>>(plan, direction, rows, memory, src, dst);
    pairColumns<Vec<float>>(plan, direction, columns, memory, 0, plan.width, {false, 0}, made, dst);
  }
  return ZorOk;
}

template <Layout L>
ZorStatus transformReal(const ImageTransform& plan, Direction direction, const Zor32f* pSrc, int srcStep, Zor32f* pDst,
                        int dstStep, Zor8u* pBuffer)
{
  if (const ZorStatus s = checked(pSrc, srcStep, pDst, dstStep); s != ZorOk) return s;
  if (const FftVectorRecord* record = plan.vectorRecord())
    return transformVector(plan, Rows{pSrc, srcStep}, Rows{pDst, dstStep}, channels<L>, processed<L>, pBuffer,
                           [&](const Zor32f* from, Zor32f* to, Zor32f* buffer) {
                             return direction == Direction::Forward ? forwardToPack(from, to, record, buffer)
                                                                    : inverseFromPack(from, to, record, buffer);
                           });
  const Rows src{pSrc, srcStep};
  const Rows dst{pDst, dstStep};
  const Rows<const float> made{pDst, dstStep};
  const bool joins = L == C1 && canBeJoined(plan.rows, plan.columns) && areApart(src, dst, plan);
  constexpr int rowLanes = L == C1 ? laneCount<Vec<float>> : 4;
  const long long columns = (plan.width + 1LL) / 2;
  const WorkMemory memory(plan, pBuffer,
                          joins ? wantedJoined(plan, direction)
                                : wantedMemory(plan, teamRule(plan, processed<L>), rowLanes,
                                               L == C1 ? wholeVectors<Vec<float>>(columns) : 4 * columns));
  if (!memory) return ZorErrAlloc;
  if (joins && !memory.isScarce()) {
    transformJoined(plan, direction, memory, src, dst);
    return ZorOk;
  }
  if (direction == Direction::Forward) {
    allRows<L>(plan, direction, memory, src, dst);
    allColumns<L>(plan, direction, memory, made, dst);
  } else {
    allColumns<L>(plan, direction, memory, src, dst);
    allRows<L>(plan, direction, memory, made, dst);
  }
  return ZorOk;
}

// clang-format off
#define STAMP(layout)                                                                                              \
  template ZorStatus transformReal<layout>(const ImageTransform&, Direction, const Zor32f*, int, Zor32f*, int, Zor8u*);
STAMP(C1) STAMP(C3) STAMP(C4) STAMP(AC4)
#undef STAMP

} // namespace zori
