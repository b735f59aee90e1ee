// The vector FFT: records, small orders, the choice of a path by order, the large form, real vectors.
//
//   order (of complex values)   path
//   0 .. 3                      one butterfly
//   4 .. 15                     passes of radix 4, the first of which reverses the order
//   16                          reversal in tiles, then the passes
//   17 .. 30                    reversal in tiles; blocks of at most 2^16 by the passes; a cross stage over the blocks,
//                               in chunks that stay in the cache; from order 25 on the blocks are large ones themselves
//
// A real vector is read as half as many complex values, whose spectrum is then recombined.
#include "vector_fft.h"

#include "frame/checks.h"
#include "frame/memory.h"
#include "frame/record.h"
#include "vector_passes.h"

#include <cmath>

namespace zori {

// Tables begin so many units of 32 bytes behind the record; 0 stands for none.
struct FftVectorRecord {
  std::int32_t tag, order, scalesForward, scalesInverse;
  float scale;
  std::int32_t hint, workBytes, isOwned;
  std::uint32_t reversal, turns, recombination, separation, steps[3];
  std::int32_t unused[6];
};
static_assert(sizeof(FftVectorRecord) == 84);

namespace {

constexpr int greatestOrder = 30, greatestLeaf = 16, leastTable = 4;

// The large form: 2^blocks blocks, chunks of 2^chunk values, for each order from 17 on.
struct LargeForm {
  int blocks, chunk;
};
constexpr LargeForm largeForm(int order)
{
  return order == 17   ? LargeForm{3, 9}
         : order <= 20 ? LargeForm{4, 10}
         : order == 21 ? LargeForm{5, 13}
                       : LargeForm{8, 15};
}

constexpr long long whole32(long long bytes) { return (bytes + 31) & ~31LL; }

// ---- Sizes ----

struct Places {
  long long turns, reversal, steps, real, record, work; // bytes
};

Places placesOf(FftKind kind, int order)
{
  Places p = {};
  const int complexOrder = kind == FftKind::Real ? order - 1 : order;
  if (order < leastTable) {
    p.record = sizeof(FftVectorRecord) + 32;
    return p;
  }
  const long long n = 1LL << order, h = 1LL << complexOrder;
  int leaf = complexOrder;
  if (complexOrder > greatestLeaf) {
    for (; leaf > greatestLeaf; leaf -= largeForm(leaf).blocks) {
      p.steps += 8LL << leaf;
      p.work = std::max(p.work, 8LL << largeForm(leaf).chunk);
    }
    if (complexOrder >= 18) p.work = std::max(p.work, 0x10000LL);
  }
  p.work = std::max(p.work, whole32(8LL << leaf));
  p.turns = ((8LL << leaf) + 39) & ~31LL;
  p.reversal = (h + 35) & ~31LL;
  p.real = kind == FftKind::Real ? (n / 4 * 8 + 31) >> 5 << 6 : 0;
  p.record = p.turns + p.reversal + 128 + p.steps + p.real;
  return p;
}

long long initBytesOf(int order) { return order > 10 ? (((1LL << order) + 35) & ~31LL) + 32 : 0; }

bool isFlag(int flag)
{
  return flag == ZorFftDivFwdByN || flag == ZorFftDivInvByN || flag == ZorFftDivBySqrtN || flag == ZorFftNoDiv;
}

// ---- Tables ----

// A quarter wave: sin(2 pi k / n) for k = 0 .. n / 4, the upper half from the cosine of the complement.
class SineTable {
public:
  SineTable(int order, float* p) : table_(p), n_(1LL << order)
  {
    const double step = 6.283185307179586 / static_cast<double>(n_);
    for (long long k = 0; k <= n_ / 4; ++k)
      p[k] = static_cast<float>(k <= n_ / 8 ? std::sin(static_cast<double>(k) * step)
                                            : std::cos(static_cast<double>(n_ / 4 - k) * step));
  }
  float sine(long long k) const
  {
    const long long quarter = n_ / 4, r = k % quarter;
    switch (k / quarter % 4) {
    case 0: return table_[r];
    case 1: return table_[quarter - r];
    case 2: return -table_[r];
    default: return -table_[quarter - r];
    }
  }
  float cosine(long long k) const { return sine(k + n_ / 4); }
  long long period() const { return n_; }

private:
  const float* table_;
  long long n_;
};

// The turns of four neighbouring j of a pass, by W^multiple; `at` counts in the table's period.
template <class At> float* putTurns(const SineTable& table, float* p, int multiples, At at)
{
  for (int m = 1; m <= multiples; ++m, p += 8)
    for (int i = 0; i < 4; ++i) {
      const long long k = at(i) * m;
      p[i] = table.cosine(k);
      p[4 + i] = -table.sine(k);
    }
  return p;
}

void fillPassTurns(const SineTable& table, int order, float* p)
{
  const long long n = 1LL << order;
  for (long long length = 16; length <= n; length *= 4) {
    const long long unit = table.period() / length;
    for (long long j = 0; j < length / 4; j += 4) p = putTurns(table, p, 3, [=](int i) { return (j + i) * unit; });
  }
  if (order % 2 != 0) {
    const long long unit = table.period() / n;
    for (long long j = 0; j < n / 2; j += 4) p = putTurns(table, p, 1, [=](int i) { return (j + i) * unit; });
  }
}

// The turns of a cross stage, in the order in which its chunks and passes read them.
void fillStepTurns(const SineTable& table, int order, float* p)
{
  const LargeForm form = largeForm(order);
  const long long columns = 1LL << (order - form.blocks), width = 1LL << (form.chunk - form.blocks);
  for (long long first = 0; first < columns; first += width) {
    const auto pass = [&](long long rows, int multiples) { // a part of the butterfly has so many rows
      const long long unit = table.period() / (columns * rows * (multiples + 1));
      for (long long j = 0; j < rows * width; j += 4)
        p = putTurns(table, p, multiples,
                     [=](int i) { return ((j + i) / width * columns + first + (j + i) % width) * unit; });
    };
    long long rows = 1;
    for (int b = form.blocks; b >= 2; b -= 2, rows *= 4) pass(rows, 3);
    if (form.blocks % 2 != 0) pass(rows, 1);
  }
}

// Reversed numbers of so many bits, times `by`, and a 0 behind them.
void fillReversal(int bits, int by, std::int32_t* p)
{
  const std::int32_t count = std::int32_t{1} << bits;
  std::int32_t reversed = 0;
  for (std::int32_t i = 0; i < count; ++i) {
    p[i] = reversed * by;
    std::int32_t bit = count >> 1;
    while (bit && bit <= reversed) reversed -= bit, bit >>= 1;
    reversed += bit;
  }
  p[count] = 0;
}

// k = 1 .. n / 4, in fours: 4 C, 4 S.
void fillRealTables(const SineTable& table, int order, float* recombination, float* separation)
{
  const long long quarter = (1LL << order) / 4;
  for (long long k = 1; k <= quarter; ++k) {
    const long long at = (k - 1) / 4 * 8 + (k - 1) % 4;
    recombination[at] = 0.5f * table.cosine(k);
    recombination[at + 4] = static_cast<float>(0.5 - 0.5 * static_cast<double>(table.sine(k)));
    separation[at] = table.cosine(k);
    separation[at + 4] = -table.sine(k);
  }
}

template <class T> T* tableAt(FftVectorRecord* record, std::uint32_t place)
{
  return reinterpret_cast<T*>(reinterpret_cast<char*>(record) + 32LL * place);
}
template <class T> const T* tableAt(const FftVectorRecord* record, std::uint32_t place)
{
  return reinterpret_cast<const T*>(reinterpret_cast<const char*>(record) + 32LL * place);
}

[[gnu::noinline]] void fillRecord(FftVectorRecord* record, FftKind kind, int order, void* initMemory)
{
  const Places places = placesOf(kind, order);
  record->workBytes = static_cast<std::int32_t>(places.work);
  if (order < leastTable) return;
  long long at = whole32(sizeof(FftVectorRecord));
  const auto next = [&](long long bytes) {
    const auto place = static_cast<std::uint32_t>(at / 32);
    at += whole32(bytes);
    return place;
  };
  record->turns = next(places.turns);
  record->reversal = next(places.reversal);
  if (kind == FftKind::Real) {
    record->recombination = next(places.real / 2);
    record->separation = next(places.real / 2);
  }
  float small[(1 << 10) / 4 + 1];
  const SineTable table(order, order > 10 ? static_cast<float*>(initMemory) : small);
  int complexOrder = kind == FftKind::Real ? order - 1 : order;
  if (complexOrder >= greatestLeaf) fillReversal(complexOrder - 12, 1, tableAt<std::int32_t>(record, record->reversal));
  else if (complexOrder >= leastTable)
    fillReversal(complexOrder - 2, 2, tableAt<std::int32_t>(record, record->reversal));
  for (int level = 0; complexOrder > greatestLeaf; complexOrder -= largeForm(complexOrder).blocks, ++level) {
    record->steps[level] = next(8LL << complexOrder);
    fillStepTurns(table, complexOrder, tableAt<float>(record, record->steps[level]));
  }
  fillPassTurns(table, complexOrder, tableAt<float>(record, record->turns));
  if (kind == FftKind::Real)
    fillRealTables(table, order, tableAt<float>(record, record->recombination),
                   tableAt<float>(record, record->separation));
}

// ---- Complex vectors ----

[[gnu::noinline]] void scaleValues(float* p, std::ptrdiff_t count, float by)
{
  const F32x4 factor = splat(by);
  std::ptrdiff_t i = 0;
  for (; i + 4 <= count; i += 4) store(p + i, load<float>(p + i) * factor);
  for (; i < count; ++i) put(p + i, get<float>(p + i) * by);
}

// Real and imaginary parts change places for the inverse.
template <int N, bool inverse> [[gnu::noinline]] void smallComplex(const float* src, float* dst, float scale)
{
  Complex<float> x[N];
  for (int k = 0; k < N; ++k) x[k] = {get<float>(src + 2 * k + inverse), get<float>(src + 2 * k + !inverse)};
  if constexpr (N > 1) butterfly<N>(x);
  for (int k = 0; k < N; ++k) {
    put(dst + 2 * k + inverse, x[k].re * scale);
    put(dst + 2 * k + !inverse, x[k].im * scale);
  }
}

template <bool inverse> void smallComplex(int order, const float* src, float* dst, float scale)
{
  switch (order) {
  case 0: return smallComplex<1, inverse>(src, dst, scale);
  case 1: return smallComplex<2, inverse>(src, dst, scale);
  case 2: return smallComplex<4, inverse>(src, dst, scale);
  default: return smallComplex<8, inverse>(src, dst, scale);
  }
}

// Leaves groups of four at inner levels, interleaved values at the outermost.
template <bool inverse>
[[gnu::noinline]] void largeTransform(const FftVectorRecord* record, float* data, int order, int level, float scale,
                                      float* buffer)
{
  if (order <= greatestLeaf) {
    firstPassInPlace<inverse>(data, std::ptrdiff_t{1} << order);
    laterPasses<inverse, Order::Grouped>(data, data, order, tableAt<float>(record, record->turns));
    if (scale != 1) scaleValues(data, std::ptrdiff_t{2} << order, scale);
    return;
  }
  const LargeForm form = largeForm(order);
  const std::ptrdiff_t blocks = std::ptrdiff_t{1} << form.blocks, columns = std::ptrdiff_t{1} << (order - form.blocks);
  for (std::ptrdiff_t b = 0; b < blocks; ++b)
    largeTransform<inverse>(record, data + 2 * columns * b, order - form.blocks, level + 1, scale, buffer);

  const std::ptrdiff_t width = std::ptrdiff_t{1} << (form.chunk - form.blocks);
  const auto rowBytes = static_cast<std::size_t>(width) * 2 * sizeof(float);
  const float* turns = tableAt<float>(record, record->steps[std::min(level, 2)]);
  for (std::ptrdiff_t first = 0; first < columns; first += width) {
    float* const p = data + 2 * first;
    for (std::ptrdiff_t b = 0; b < blocks; ++b) std::memcpy(buffer + 2 * width * b, p + 2 * columns * b, rowBytes);
    std::ptrdiff_t rows = 1;
    for (int left = form.blocks; left >= 2; left -= 2, rows *= 4) {
      const std::ptrdiff_t length = 4 * rows * width;
      radix4Pass<inverse, Order::Grouped>(buffer, buffer, length, blocks / (4 * rows), turns);
      turns += radix4Turns(length);
    }
    if (form.blocks % 2 != 0) {
      radix2Pass<inverse, Order::Grouped>(buffer, buffer, 2 * rows * width, 1, turns);
      turns += 2 * rows * width;
    }
    for (std::ptrdiff_t b = 0; b < blocks; ++b) {
      const float* const row = buffer + 2 * width * b;
      if (level != 0) std::memcpy(p + 2 * columns * b, row, rowBytes);
      else
        for (std::ptrdiff_t i = 0; i < 2 * width; i += 8)
          putQuad<Order::Interleaved>(p + 2 * columns * b + i, quadAt(row + i));
    }
  }
}

// The buffer is aligned, or not needed.
template <bool inverse>
void complexTransform(const FftVectorRecord* record, int order, const float* src, float* dst, float* buffer)
{
  const float scale = (inverse ? record->scalesInverse : record->scalesForward) ? record->scale : 1;
  if (order < leastTable) return smallComplex<inverse>(order, src, dst, scale);
  const std::ptrdiff_t n = std::ptrdiff_t{1} << order;
  const float* const turns = tableAt<float>(record, record->turns);
  const auto* const reversal = tableAt<std::int32_t>(record, record->reversal);
  if (order < greatestLeaf) {
    float* const work = src != dst && isAligned(dst, 16) ? dst : buffer;
    firstPass<inverse>(src, work, n, reversal);
    laterPasses<inverse, Order::Interleaved>(work, dst, order, turns);
  } else {
    reverseInTiles(src, dst, order, reversal, buffer);
    if (order > greatestLeaf) return largeTransform<inverse>(record, dst, order, 0, scale, buffer);
    firstPassInPlace<inverse>(dst, n);
    laterPasses<inverse, Order::Interleaved>(dst, dst, order, turns);
  }
  if (scale != 1) scaleValues(dst, 2 * n, scale);
}

// ---- Real vectors ----

// n = 1, 2, 4, 8, as complex ones without imaginary parts.
template <int N> [[gnu::noinline]] void smallForward(const float* src, float* perm, float scale)
{
  Complex<float> x[N];
  for (int k = 0; k < N; ++k) x[k] = {get<float>(src + k), 0};
  if constexpr (N > 1) butterfly<N>(x);
  put(perm, x[0].re * scale);
  if constexpr (N > 1) put(perm + 1, x[N / 2].re * scale);
  for (int k = 1; k < N / 2; ++k) {
    put(perm + 2 * k, x[k].re * scale);
    put(perm + 2 * k + 1, x[k].im * scale);
  }
}
template <int N> [[gnu::noinline]] void smallInverse(const float* perm, float* dst, float scale)
{
  Complex<float> x[N]; // real and imaginary parts have changed places
  x[0] = {0, get<float>(perm)};
  if constexpr (N > 1) x[N / 2] = {0, get<float>(perm + 1)};
  for (int k = 1; k < N / 2; ++k) {
    const float re = get<float>(perm + 2 * k), im = get<float>(perm + 2 * k + 1);
    x[k] = {im, re};
    x[N - k] = {-im, re};
  }
  if constexpr (N > 1) butterfly<N>(x);
  for (int k = 0; k < N; ++k) put(dst + k, x[k].im * scale);
}

// Two numbers for one: value k and value p = h - k of the spectrum of h complex values, C and S of k.
template <class V> inline void recombine(Complex<V>& zk, Complex<V>& zp, V c, V s)
{
  const V d = zk.re - zp.re, sum = zk.im + zp.im;
  const V t1 = c * sum + s * d, t2 = s * sum - c * d;
  const Complex<V> xk = {zp.re + t1, t2 - zp.im}, xp = {zk.re - t1, t2 - zk.im};
  zk = xk;
  zp = xp;
}
template <class V> inline void separate(Complex<V>& a, Complex<V>& b, V c, V s)
{
  const V sumRe = a.re + b.re, dRe = a.re - b.re, sumIm = a.im + b.im, dIm = a.im - b.im;
  const V u = s * sumIm + c * dRe, v = s * dRe - c * sumIm;
  a = {sumRe + v, dIm + u};
  b = {sumRe - v, u - dIm};
}

// The pairs k and h - k for k = 1 .. h / 2 - 1, four of them at a time.
template <class Op> inline void throughPairs(float* data, std::ptrdiff_t h, const float* table, Op op)
{
  std::ptrdiff_t k = 1;
  for (; k + 3 < h / 2; k += 4) {
    const float* const w = table + (k - 1) * 2;
    float *const low = data + 2 * k, *const high = data + 2 * (h - k) - 6; // values k .. k + 3, h - k - 3 .. h - k
    const F32x4 a = load<float>(low), b = load<float>(low + 4), c = load<float>(high), d = load<float>(high + 4);
    Quad zk = {shuffle<2, 0, 2, 0>(a, b), shuffle<3, 1, 3, 1>(a, b)};
    Quad zp = {shuffle<0, 2, 0, 2>(d, c), shuffle<1, 3, 1, 3>(d, c)};
    op(zk, zp, load<float>(w), load<float>(w + 4));
    putQuad<Order::Interleaved>(low, zk);
    putQuad<Order::Interleaved>(high, {shuffle<0, 1, 2, 3>(zp.re, zp.re), shuffle<0, 1, 2, 3>(zp.im, zp.im)});
  }
  for (; k < h / 2; ++k) {
    const float* const w = table + (k - 1) / 4 * 8 + (k - 1) % 4;
    float *const low = data + 2 * k, *const high = data + 2 * (h - k);
    Complex<float> zk = {get<float>(low), get<float>(low + 1)}, zp = {get<float>(high), get<float>(high + 1)};
    op(zk, zp, w[0], w[4]);
    put(low, zk.re), put(low + 1, zk.im), put(high, zp.re), put(high + 1, zp.im);
  }
}

[[gnu::noinline]] void recombineAll(float* data, std::ptrdiff_t h, const float* table)
{
  const float re = get<float>(data), im = get<float>(data + 1);
  put(data, re + im);
  put(data + 1, re - im);
  throughPairs(data, h, table, [](auto& zk, auto& zp, auto c, auto s) { recombine(zk, zp, c, s); });
  put(data + h + 1, -get<float>(data + h + 1));
}
[[gnu::noinline]] void separateAll(float* data, std::ptrdiff_t h, const float* table)
{
  const float first = get<float>(data), last = get<float>(data + 1);
  put(data, first + last);
  put(data + 1, first - last);
  throughPairs(data, h, table, [](auto& a, auto& b, auto c, auto s) { separate(a, b, c, s); });
  put(data + h, 2 * get<float>(data + h));
  put(data + h + 1, -2 * get<float>(data + h + 1));
}

enum class Packing { Pack, Perm };

void realForward(const FftVectorRecord* record, const float* src, float* dst, float* buffer)
{
  const int order = record->order;
  const std::ptrdiff_t n = std::ptrdiff_t{1} << order;
  const float scale = record->scalesForward ? record->scale : 1;
  switch (order) {
  case 0: return smallForward<1>(src, dst, scale);
  case 1: return smallForward<2>(src, dst, scale);
  case 2: return smallForward<4>(src, dst, scale);
  case 3: return smallForward<8>(src, dst, scale);
  default:
    complexTransform<false>(record, order - 1, src, dst, buffer);
    return recombineAll(dst, n / 2, tableAt<float>(record, record->recombination));
  }
}

// In place on a permuted spectrum.
void realInverse(const FftVectorRecord* record, float* data, float* buffer)
{
  const int order = record->order;
  const std::ptrdiff_t n = std::ptrdiff_t{1} << order;
  const float scale = record->scalesInverse ? record->scale : 1;
  switch (order) {
  case 0: return smallInverse<1>(data, data, scale);
  case 1: return smallInverse<2>(data, data, scale);
  case 2: return smallInverse<4>(data, data, scale);
  case 3: return smallInverse<8>(data, data, scale);
  default:
    separateAll(data, n / 2, tableAt<float>(record, record->separation));
    return complexTransform<true>(record, order - 1, data, data, buffer);
  }
}

// ---- Checks and buffers ----

ZorStatus isOf(FftKind kind, const FftVectorRecord* record)
{
  return record ? isOfKind(record, static_cast<std::uint32_t>(kind)) : ZorErrNullPtr;
}

// Runs work(buffer) with an aligned buffer, the caller's or one for the call.
template <class Work>
ZorStatus withBuffer(FftKind kind, const FftVectorRecord* record, const void* src, const void* dst, void* given,
                     Work work)
{
  if (auto s = isOf(kind, record); s != ZorOk) return s;
  if (auto s = nonNull(src, dst); s != ZorOk) return s;
  if (given || record->workBytes < 1) {
    work(reinterpret_cast<float*>((reinterpret_cast<std::uintptr_t>(given) + 31) & ~std::uintptr_t{31}));
    return ZorOk;
  }
  Scratch<Zor8u> own(record->workBytes);
  if (!own) return ZorErrAlloc;
  work(reinterpret_cast<float*>(own.get()));
  return ZorOk;
}

template <bool inverse>
ZorStatus complexChecked(const Zor32fc* src, Zor32fc* dst, const FftVectorRecord* record, void* buffer)
{
  return withBuffer(FftKind::Complex, record, src, dst, buffer, [=](float* work) {
    complexTransform<inverse>(record, record->order, reinterpret_cast<const float*>(src), reinterpret_cast<float*>(dst),
                              work);
  });
}

template <Packing packing>
ZorStatus forwardChecked(const Zor32f* src, Zor32f* dst, const FftVectorRecord* record, void* buffer)
{
  return withBuffer(FftKind::Real, record, src, dst, buffer, [=](float* work) {
    realForward(record, src, dst, work);
    const std::size_t n = std::size_t{1} << record->order;
    if (packing == Packing::Perm || n <= 2) return;
    const float last = get<float>(dst + 1);
    std::memmove(dst + 1, dst + 2, (n - 2) * sizeof(float));
    put(dst + n - 1, last);
  });
}

template <Packing packing>
ZorStatus inverseChecked(const Zor32f* src, Zor32f* dst, const FftVectorRecord* record, void* buffer)
{
  return withBuffer(FftKind::Real, record, src, dst, buffer, [=](float* work) {
    const std::size_t n = std::size_t{1} << record->order;
    if (packing == Packing::Perm || n <= 2) {
      if (src != dst) std::memcpy(dst, src, n * sizeof(float));
    } else {
      const float first = get<float>(src), last = get<float>(src + n - 1);
      std::memmove(dst + 2, src + 1, (n - 2) * sizeof(float));
      put(dst, first);
      put(dst + 1, last);
    }
    realInverse(record, dst, work);
  });
}

} // namespace

// ---- Records ----

ZorStatus vectorFftSizes(FftKind kind, int order, int flag, ZorHint, long long* recordBytes, long long* initBytes,
                         long long* bufferBytes)
{
  if (order < 0 || order > greatestOrder) return ZorErrOrder;
  if (auto s = nonNull(recordBytes, initBytes, bufferBytes); s != ZorOk) return s;
  if (!isFlag(flag)) return ZorErrFlag;
  const Places places = placesOf(kind, order);
  *recordBytes = places.record;
  *initBytes = initBytesOf(order);
  *bufferBytes = places.work ? places.work + 32 : 0;
  return ZorOk;
}

ZorStatus initVectorFft(FftKind kind, int order, int flag, ZorHint hint, void* memory, void* initMemory,
                        FftVectorRecord** made)
{
  if (!made) return ZorErrNullPtr;
  if (order < 0 || order > greatestOrder) return ZorErrOrder;
  if (!memory) return ZorErrNullPtr;
  auto* const record =
    reinterpret_cast<FftVectorRecord*>((reinterpret_cast<std::uintptr_t>(memory) + 31) & ~std::uintptr_t{31});
  if (!isFlag(flag)) {
    record->tag = 0;
    return ZorErrFlag;
  }
  if (order > 10 && !initMemory) return ZorErrNullPtr;
  std::memset(record, 0, sizeof *record);
  record->tag = static_cast<std::int32_t>(kind);
  record->order = order;
  record->scalesForward = flag == ZorFftDivFwdByN || flag == ZorFftDivBySqrtN;
  record->scalesInverse = flag == ZorFftDivInvByN || flag == ZorFftDivBySqrtN;
  record->hint = hint;
  const double n = static_cast<double>(1LL << order);
  if (flag == ZorFftDivBySqrtN) record->scale = static_cast<float>(1.0 / std::sqrt(n));
  else if (flag != ZorFftNoDiv) record->scale = 1.0f / static_cast<float>(n);
  fillRecord(record, kind, order, initMemory);
  *made = record;
  return ZorOk;
}

ZorStatus makeVectorFft(FftKind kind, int order, int flag, ZorHint hint, FftVectorRecord** made)
{
  if (!made) return ZorErrNullPtr;
  long long recordBytes, initBytes, bufferBytes;
  if (auto s = vectorFftSizes(kind, order, flag, hint, &recordBytes, &initBytes, &bufferBytes); s != ZorOk) return s;
  Scratch<Zor8u> memory(recordBytes), initMemory(initBytes);
  if (!memory || (initBytes && !initMemory)) return ZorErrAlloc;
  FftVectorRecord* record;
  if (auto s = initVectorFft(kind, order, flag, hint, memory.get(), initMemory.get(), &record); s != ZorOk) return s;
  record->isOwned = 1;
  memory.release(); // it is aligned: the record stands at its start
  *made = record;
  return ZorOk;
}

ZorStatus freeVectorFft(FftKind kind, FftVectorRecord* record)
{
  if (auto s = isOf(kind, record); s != ZorOk) return s;
  if (record->isOwned) return releaseRecord(record, static_cast<std::uint32_t>(kind));
  record->tag = 0;
  return ZorOk;
}

ZorStatus vectorFftBufferBytes(FftKind kind, const FftVectorRecord* record, long long* bytes)
{
  if (auto s = nonNull(record, bytes); s != ZorOk) return s;
  if (auto s = isOf(kind, record); s != ZorOk) return s;
  *bytes = record->workBytes < 1 ? 0 : record->workBytes + 32LL;
  return ZorOk;
}

// ---- Transforms ----

ZorStatus forwardComplex(const Zor32fc* src, Zor32fc* dst, const FftVectorRecord* record, void* buffer)
{
  return complexChecked<false>(src, dst, record, buffer);
}
ZorStatus inverseComplex(const Zor32fc* src, Zor32fc* dst, const FftVectorRecord* record, void* buffer)
{
  return complexChecked<true>(src, dst, record, buffer);
}
ZorStatus forwardToPack(const Zor32f* src, Zor32f* dst, const FftVectorRecord* record, void* buffer)
{
  return forwardChecked<Packing::Pack>(src, dst, record, buffer);
}
ZorStatus inverseFromPack(const Zor32f* src, Zor32f* dst, const FftVectorRecord* record, void* buffer)
{
  return inverseChecked<Packing::Pack>(src, dst, record, buffer);
}
ZorStatus forwardToPerm(const Zor32f* src, Zor32f* dst, const FftVectorRecord* record, void* buffer)
{
  return forwardChecked<Packing::Perm>(src, dst, record, buffer);
}
ZorStatus inverseFromPerm(const Zor32f* src, Zor32f* dst, const FftVectorRecord* record, void* buffer)
{
  return inverseChecked<Packing::Perm>(src, dst, record, buffer);
}

} // namespace zori
