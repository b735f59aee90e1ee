// zoriDCT{Fwd,Inv}{InitAlloc,Free,GetBufSize}_32f, zoriDCT{Fwd,Inv}_32f_{C1,C3,C4,AC4}R: the orthonormal cosine
// transform of images of any size.
//
//   image         method
//   8 x 8         the block transform, zoriDCT8x8{Fwd,Inv}_32f_C1
//   one vector    of 2^k values through the real vector FFT, of others through the passes below with one lane
//   others        rows and columns through complex transforms in lanes, of half the length where it is even
//                 (cosine_halves.h) and of pairs where it is odd (cosine_passes.h): factor by factor, primes by a
//                 matrix of cosines, long ones through a convolution (lane_plan.h)
//
// A record is one block: its head, the plans and factors of rows and columns (one set where the sides are equal), and
// the record of the vector FFT where one is used. It is the same for both directions but for its tag.
#include "cosine_halves.h"
#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "frame/record.h"
#include "vector_fft.h"
#include "zori/spectral.h"

#include <cmath>
#include <limits>

namespace zori {
namespace {

enum class Direction { Forward, Inverse };
constexpr std::uint32_t tagOfKind[] = {31, 32};

// One side of the image.
struct CosineSide {
  LanePlan plan;
  BlockPart<float> turns;
  Zor32f single; // sqrt(1 / n)
  Zor32s length;

  CosinePass pass(const void* record) const { return {plan, record, turns.in(record), single, length}; }
};

struct CosineTransform {
  Zor32u tag;
  Zor32s width, height;
  ZorHint hint;
  Zor32s bufferBytes; // that GetBufSize tells
  Zor32s is8x8;
  CosineSide rows, columns;
  BlockPart<char> vector; // memory of a record of the vector FFT, if there is one
  Zor32s vectorAt;        // where in it the record begins

  bool isVector() const { return width == 1 || height == 1; }
  int vectorLength() const { return width * height; }
  const FftVectorRecord* vectorRecord() const
  {
    return vector.count ? reinterpret_cast<const FftVectorRecord*>(vector.in(this) + vectorAt) : nullptr;
  }
};

// ---- Records ----

// Complex lanes that a buffer has room for. A block of columns is a cache line wide, of pairs two.
constexpr int rowLanes = 8, columnLanes = 16;
static_assert(rowLanes >= laneCount<Vec<float>> && columnLanes % laneCount<Vec<float>> == 0);

constexpr long long alignment = 64;

bool isPowerOfTwo(int n) { return (n & (n - 1)) == 0; }

// The complex transform that a length is worked by: see cosine_halves.h for even ones, cosine_passes.h for odd ones.
bool isHalved(int length) { return length % 2 == 0; }
int planLength(int length) { return isHalved(length) ? length / 2 : length; }

long long laneBytes(int length, int lanes)
{
  constexpr long long perLane = 2 * sizeof(float);
  return perLane * lanes * laneWorkLength(planLength(length));
}

// A copy of the vector, and what its transform works in.
long long vectorBytes(int length)
{
  long long record, init, work = 0;
  if (isPowerOfTwo(length)) {
    vectorFftSizes(FftKind::Real, __builtin_ctz(static_cast<unsigned>(length)), ZorFftNoDiv, ZorHintNone, &record,
                   &init, &work);
  } else work = laneBytes(length, 1);
  return 16LL * length + work;
}

// 0 where an int does not tell them.
int bufferBytes(ZorImgSize size)
{
  if (size.width == 8 && size.height == 8) return 8 * 8 * 4 * 4 + 16;
  long long bytes;
  if (laneWorkLength(planLength(size.width)) == 0 || laneWorkLength(planLength(size.height)) == 0) return 0;
  if (size.width == 1 || size.height == 1) bytes = vectorBytes(std::max(size.width, size.height));
  else bytes = std::max(laneBytes(size.width, rowLanes), laneBytes(size.height, columnLanes));
  bytes += alignment;
  return bytes > std::numeric_limits<int>::max() ? 0 : static_cast<int>(bytes);
}

CosineSide planSide(int length, bool hasPlan, BlockPlan& block)
{
  CosineSide side = {};
  side.length = length;
  if (hasPlan) side.plan = LanePlan(planLength(length), block);
  side.turns = block.add<float>(hasPlan && isHalved(length) ? 6 * (length / 4) : length - 1LL);
  return side;
}

void fillSide(CosineSide& side, int length, bool hasPlan, void* record)
{
  constexpr double pi = 3.14159265358979323846;
  if (hasPlan) side.plan.fill(record);
  side.single = static_cast<float>(std::sqrt(1.0 / length));
  float* p = side.turns.in(record);
  const auto put = [&](double factor, double angle) {
    *p++ = static_cast<float>(factor * std::sin(pi / 2 - angle)); // nothing at the right angle
    *p++ = static_cast<float>(factor * std::sin(angle));
  };
  const auto putFactor = [&](int k) { put(std::sqrt(0.5 / length), pi * k / (2.0 * length)); };
  if (hasPlan && isHalved(length))
    for (int k = 1; k <= length / 4; ++k) {
      put(1, 2 * pi * k / length);
      putFactor(k);
      putFactor(length / 2 - k);
    }
  else
    for (int k = 1; k <= (length - 1) / 2; ++k) putFactor(k);
}

ZorStatus make(Direction direction, ZorDctImgRecord** made, ZorImgSize size, ZorHint hint)
{
  if (auto s = firstFailure(nonNull(made), nonEmpty(size)); s != ZorOk) return s;
  CosineTransform head = {};
  head.tag = tagOfKind[static_cast<int>(direction)];
  head.width = size.width;
  head.height = size.height;
  head.hint = hint;
  head.is8x8 = size.width == 8 && size.height == 8;
  head.bufferBytes = bufferBytes(size);
  if (head.bufferBytes == 0) return ZorErrAlloc;

  BlockPlan block(sizeof(CosineTransform));
  const int order = head.isVector() && isPowerOfTwo(head.vectorLength())
                      ? __builtin_ctz(static_cast<unsigned>(head.vectorLength()))
                      : -1;
  const bool hasPlans = order < 0 && !head.is8x8;
  long long initBytes = 0;
  if (order >= 0) {
    long long recordBytes, workBytes;
    if (auto s = vectorFftSizes(FftKind::Real, order, ZorFftNoDiv, hint, &recordBytes, &initBytes, &workBytes);
        s != ZorOk)
      return s;
    head.vector = block.add<char>(recordBytes);
  }
  if (!head.is8x8) {
    head.rows = planSide(size.width, hasPlans, block);
    if (size.width != size.height) head.columns = planSide(size.height, hasPlans, block);
  }
  if (block.isImpossible()) return ZorErrAlloc;

  const RoundingScope rounding(Rounding::Nearest);
  Scratch<Zor8u> memory(block.bytes()), initMemory(initBytes);
  if (!memory || (initBytes && !initMemory)) return ZorErrAlloc;
  void* const record = memory.get();
  if (order >= 0) {
    FftVectorRecord* inside;
    if (auto s =
          initVectorFft(FftKind::Real, order, ZorFftNoDiv, hint, head.vector.in(record), initMemory.get(), &inside);
        s != ZorOk)
      return s;
    head.vectorAt = static_cast<Zor32s>(reinterpret_cast<char*>(inside) - head.vector.in(record));
  }
  const auto fill = [&] {
    if (head.is8x8) return;
    fillSide(head.rows, size.width, hasPlans, record);
    if (size.width == size.height) head.columns = head.rows;
    else fillSide(head.columns, size.height, hasPlans, record);
  };
  callApart(fill);
  std::memcpy(record, &head, sizeof head);
  *made = reinterpret_cast<ZorDctImgRecord*>(memory.release());
  return ZorOk;
}

ZorStatus tellBufferBytes(Direction direction, const ZorDctImgRecord* record, int* size)
{
  if (auto s = nonNull(record, size); s != ZorOk) return s;
  if (auto s = isOfKind(record, tagOfKind[static_cast<int>(direction)]); s != ZorOk) return s;
  *size = reinterpret_cast<const CosineTransform*>(record)->bufferBytes;
  return ZorOk;
}

// ---- One block of 8 by 8 ----

template <Layout L> void transformBlock(Direction direction, Rows<const float> src, Rows<float> dst)
{
  const auto work = direction == Direction::Forward ? zoriDCT8x8Fwd_32f_C1 : zoriDCT8x8Inv_32f_C1;
  constexpr int adjoining = 8 * sizeof(float);
  if (L == C1 && src.step == adjoining && dst.step == adjoining) {
    work(src.first, dst.first);
    return;
  }
  alignas(32) float block[64];
  for (int c = 0; c < processed<L>; ++c) {
    for (int i = 0; i < 64; ++i) block[i] = get<float>(src[i / 8] + i % 8 * channels<L> + c);
    work(block, block);
    for (int i = 0; i < 64; ++i) put(dst[i / 8] + i % 8 * channels<L> + c, block[i]);
  }
}

// ---- One row or one column ----

// By the real spectrum of the folded vector, which stands as R0, R(n/2), R1, I1, R2, I2, ...
ZorStatus forwardByFft(const CosinePass& pass, int n, const FftVectorRecord* record, float* values, float* folding,
                       void* buffer)
{
  for (int i = 0; i < n; ++i) folding[folded(i, n)] = values[i];
  if (auto s = forwardToPerm(folding, folding, record, buffer); s != ZorOk) return s;
  values[0] = folding[0] * pass.single;
  if (n > 1) values[n / 2] = folding[1] * pass.single;
  for (int k = 1; 2 * k < n; ++k) {
    const float re = folding[2 * k] * 2, im = folding[2 * k + 1] * 2;
    const float c = pass.turns[2 * k - 2], s = pass.turns[2 * k - 1];
    values[k] = re * c + im * s;
    values[n - k] = re * s - im * c;
  }
  return ZorOk;
}

ZorStatus inverseByFft(const CosinePass& pass, int n, const FftVectorRecord* record, float* values, float* folding,
                       void* buffer)
{
  folding[0] = values[0] * pass.single;
  if (n > 1) folding[1] = values[n / 2] * pass.single;
  for (int k = 1; 2 * k < n; ++k) {
    const float c = pass.turns[2 * k - 2], s = pass.turns[2 * k - 1];
    folding[2 * k] = values[k] * c + values[n - k] * s;
    folding[2 * k + 1] = values[k] * s - values[n - k] * c;
  }
  if (auto s = inverseFromPerm(folding, folding, record, buffer); s != ZorOk) return s;
  for (int i = 0; i < n; ++i) values[i] = folding[folded(i, n)];
  return ZorOk;
}

// Rows y, y + 2, ... of a set and, of odd lengths, as many between them.
template <class Kind>
void transformRows(Direction direction, const CosinePass& pass, int height, Rows<const float> src, Rows<float> dst,
                   float* buffer)
{
  using From = typename Kind::template Set<const float>;
  using To = typename Kind::template Set<float>;
  const int width = static_cast<int>(pass.length);
  if (isHalved(width)) {
    for (std::ptrdiff_t y = 0; y < height; y += Kind::pairs) {
      const From from(src, y, 1, height, width);
      const To to(dst, y, 1, height, width);
      if (direction == Direction::Forward) forwardHalvedRows(pass, from, to, buffer);
      else inverseHalvedRows(pass, from, to, buffer);
    }
    return;
  }
  for (std::ptrdiff_t y = 0; y < height; y += 2 * Kind::pairs) {
    const From even(src, y, 2, height, width), odd(src, y + 1, 2, height, width);
    const To evenTo(dst, y, 2, height, width), oddTo(dst, y + 1, 2, height, width);
    const RowSets<From> from{even, odd};
    const RowSets<To> to{evenTo, oddTo};
    if (direction == Direction::Forward) forwardCosineRows(pass, from, to, buffer);
    else inverseCosineRows(pass, from, to, buffer);
  }
}

template <Layout L>
ZorStatus transformVector(const CosineTransform& plan, Direction direction, Rows<const float> src, Rows<float> dst,
                          float* buffer)
{
  const int n = plan.vectorLength();
  const bool isRow = plan.height == 1;
  const CosineSide& side = isRow ? plan.rows : plan.columns;
  float *const values = buffer, *const folding = values + n, *const work = folding + n;
  for (int c = 0; c < processed<L>; ++c) {
    for (std::ptrdiff_t i = 0; i < n; ++i) values[i] = get<float>((isRow ? src[0] + i * channels<L> : src[i]) + c);
    if (const FftVectorRecord* const record = plan.vectorRecord()) {
      const CosinePass pass = side.pass(&plan);
      const auto s =
        (direction == Direction::Forward ? forwardByFft : inverseByFft)(pass, n, record, values, folding, work);
      if (s != ZorOk) return s;
    } else {
      const Rows<float> row{values, 0};
      transformRows<OneByOne<1>>(direction, side.pass(&plan), 1, {values, 0}, row, folding);
    }
    for (std::ptrdiff_t i = 0; i < n; ++i) put((isRow ? dst[0] + i * channels<L> : dst[i]) + c, values[i]);
  }
  return ZorOk;
}

// ---- Images ----

// Columns x, x + 1, ...
template <class Columns>
void transformHalved(Direction direction, const CosinePass& pass, const Columns& columns, Rows<const float> src,
                     Rows<float> dst, float* buffer)
{
  if (direction == Direction::Forward) forwardHalvedColumns(pass, columns, src, dst, buffer);
  else inverseHalvedColumns(pass, columns, src, dst, buffer);
}
template <class Columns>
void transformPairs(Direction direction, const CosinePass& pass, const Columns& columns, Rows<const float> src,
                    Rows<float> dst, float* buffer)
{
  if (direction == Direction::Forward) forwardCosineColumns(pass, columns, src, dst, buffer);
  else inverseCosineColumns(pass, columns, src, dst, buffer);
}

// Blocks of columns: as many as there are lanes, of odd lengths twice as many.
template <Layout L>
void transformColumns(Direction direction, const CosinePass& pass, std::ptrdiff_t width, Rows<const float> src,
                      Rows<float> dst, float* buffer)
{
  using V = Vec<float>;
  const bool halved = isHalved(static_cast<int>(pass.length));
  constexpr int lanes = L == C1 ? columnLanes : columnLanes / 4;
  const std::ptrdiff_t together = halved ? lanes : 2 * lanes;
  for (std::ptrdiff_t x = 0; x < width; x += together) {
    const int count = static_cast<int>(std::min(together, width - x));
    const auto work = [&](auto transform, const auto& columns) {
      transform(direction, pass, columns, src, dst, buffer);
    };
    if constexpr (L == C1) {
      using Whole = SingleFloats<V, true>;
      using Part = SingleFloats<V, false>;
      if (!halved) work(transformPairs<FloatPairs<V>>, FloatPairs<V>{x, count});
      else if (count == Whole::line) work(transformHalved<Whole>, Whole{x, count});
      else work(transformHalved<Part>, Part{x, count});
    } else if (halved) work(transformHalved<SinglePixels<L>>, SinglePixels<L>{x, width, count});
    else work(transformPairs<PixelPairs<L>>, PixelPairs<L>{x, width, count});
  }
}

template <Layout L>
void transformImage(const CosineTransform& plan, Direction direction, Rows<const float> src, Rows<float> dst,
                    float* buffer)
{
  using Kind = std::conditional_t<L == C1, ByRows<Vec<float>>, ByChannels<L>>;
  transformRows<Kind>(direction, plan.rows.pass(&plan), plan.height, src, dst, buffer);
  transformColumns<L>(direction, plan.columns.pass(&plan), plan.width, Rows<const float>{dst.first, dst.step}, dst,
                      buffer);
}

template <Layout L>
ZorStatus transform(Direction direction, const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep,
                    const ZorDctImgRecord* record, Zor8u* pBuffer)
{
  if (auto s = nonNull(record); s != ZorOk) return s;
  if (auto s = isOfKind(record, tagOfKind[static_cast<int>(direction)]); s != ZorOk) return s;
  if (auto s = firstFailure(nonNull(pSrc, pDst), positive(srcStep, dstStep)); s != ZorOk) return s;
  const auto& plan = *reinterpret_cast<const CosineTransform*>(record);
  const bool needsMemory = !pBuffer && !plan.is8x8;
  const Scratch<Zor8u> own(needsMemory ? plan.bufferBytes : 0);
  if (needsMemory && !own) return ZorErrAlloc;
  Zor8u* const bytes = pBuffer ? pBuffer : own.get();
  const auto buffer = reinterpret_cast<float*>(bytes + (-reinterpret_cast<std::uintptr_t>(bytes) & (alignment - 1)));

  const Rows src{pSrc, srcStep};
  const Rows dst{pDst, dstStep};
  return underRounding(roundNearest, [&] {
    if (plan.isVector()) return transformVector<L>(plan, direction, src, dst, buffer);
    if (plan.is8x8) transformBlock<L>(direction, src, dst);
    else transformImage<L>(plan, direction, src, dst, buffer);
    return ZorOk;
  });
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(name, way)                                                                                         \
  ZorStatus zoriDCT##name##InitAlloc_32f(ZorDctImgRecord** ppRecord, ZorImgSize roiSize, ZorHint hint)            \
  { return make(way, ppRecord, roiSize, hint); }                                                                 \
  ZorStatus zoriDCT##name##Free_32f(ZorDctImgRecord* pRecord)                                                     \
  { return releaseRecord(pRecord, tagOfKind[static_cast<int>(way)]); }                                           \
  ZorStatus zoriDCT##name##GetBufSize_32f(const ZorDctImgRecord* pRecord, int* pSize)                             \
  { return tellBufferBytes(way, pRecord, pSize); }
STAMP(Fwd, Direction::Forward) STAMP(Inv, Direction::Inverse)
#undef STAMP

#define STAMP(name, way, layout)                                                                                 \
  ZorStatus zoriDCT##name##_32f_##layout##R(const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep,           \
                                           const ZorDctImgRecord* pRecord, Zor8u* pBuffer)                        \
  { return transform<layout>(way, pSrc, srcStep, pDst, dstStep, pRecord, pBuffer); }
STAMP(Fwd, Direction::Forward, C1) STAMP(Fwd, Direction::Forward, C3)
STAMP(Fwd, Direction::Forward, C4) STAMP(Fwd, Direction::Forward, AC4)
STAMP(Inv, Direction::Inverse, C1) STAMP(Inv, Direction::Inverse, C3)
STAMP(Inv, Direction::Inverse, C4) STAMP(Inv, Direction::Inverse, AC4)
#undef STAMP
