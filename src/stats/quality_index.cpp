// zoriQualityIndex_{8u32f,16u32f,32f}_{C1,C3,AC4}R: the universal quality index of two images,
// Q = 4 S12 m1 m2 / ((S11 + S22) (m1^2 + m2^2)) with the means m and the sums S of products of centred samples.
//
// The rows are summed in strips that do not depend on the team; partial sums are single precision and are added in
// order.
#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/parallel.h"
#include "rowkernels/convert.h"
#include "zori/stats.h"

namespace zori {
namespace {

// Twelve lanes hold whole pixels of one, three and four channels: element i of a row is channel i mod channels
// everywhere.
constexpr int lanesInTurn = 12, chunkElements = 64 * lanesInTurn;

struct CentredSums {
  F32x4 s11[3], s12[3], s22[3];
};

static void addProducts(CentredSums& sums, const Zor32f* a, const Zor32f* b, int length, const Zor32f* mean1,
                        const Zor32f* mean2)
{
  for (int i = 0; i < length; i += lanesInTurn)
    for (int j = 0; j < 3; ++j) {
      const F32x4 x = load<Zor32f>(a + i + 4 * j) - load<Zor32f>(mean1 + 4 * j),
                  y = load<Zor32f>(b + i + 4 * j) - load<Zor32f>(mean2 + 4 * j);
      sums.s11[j] += x * x;
      sums.s12[j] += x * y;
      sums.s22[j] += y * y;
    }
}

template <class T> void toFloats(const T* from, Zor32f* to, int n)
{
  if constexpr (std::is_same_v<T, Zor32f>) std::memcpy(to, from, static_cast<std::size_t>(n) * sizeof(Zor32f));
  else convertRow(from, to, n);
}

template <class T>
ZORI_ONE_COPY void sumRow(CentredSums& sums, const T* row1, const T* row2, std::ptrdiff_t length, const Zor32f* mean1,
                          const Zor32f* mean2)
{
  alignas(16) Zor32f a[chunkElements], b[chunkElements];
  for (std::ptrdiff_t i = 0; i < length; i += chunkElements) {
    const int n = length - i < chunkElements ? static_cast<int>(length - i) : chunkElements;
    const int whole = (n + lanesInTurn - 1) / lanesInTurn * lanesInTurn;
    toFloats(row1 + i, a, n);
    toFloats(row2 + i, b, n);
    for (int j = n; j < whole; ++j) { // what is missing adds nothing
      a[j] = mean1[j % lanesInTurn];
      b[j] = mean2[j % lanesInTurn];
    }
    addProducts(sums, a, b, whole, mean1, mean2);
  }
}

template <Layout L> void addChannels(const F32x4 (&lanes)[3], Zor32f* sums)
{
  Zor32f values[lanesInTurn];
  for (int j = 0; j < 3; ++j) store(values + 4 * j, lanes[j]);
  for (int k = 0; k < processed<L>; ++k) {
    double sum = 0;
    for (int i = k; i < lanesInTurn; i += channels<L>) sum += values[i];
    sums[k] += static_cast<Zor32f>(sum);
  }
}

// The rows are summed in strips, as many as any team is likely to have threads, so that the result does not depend on
// the team.
constexpr int mostStrips = 32;

constexpr int picosecondsPerSample = 300;

template <class T, Layout L>
ZorStatus qualityIndex(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, ZorImgSize roiSize,
                       Zor32f* pQualityIndex, ZorStatus (*mean)(const T*, int, ZorImgSize, Zor64f*))
{
  constexpr int n = processed<L>;
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pQualityIndex), nonEmpty(roiSize), positive(src1Step, src2Step));
      s != ZorOk)
    return s;

  const long long samples = static_cast<long long>(roiSize.width) * roiSize.height * channels<L>;
  const TeamRule team = TeamRule::forWork(samples, picosecondsPerSample);
  const int strips = std::min(roiSize.height, mostStrips);
  Zor32f partials[mostStrips][3 * n] = {};

  double means[2][n];
  staticRows(team, Rounding::Nearest, 2,
             [&](int i) { mean(i == 0 ? pSrc1 : pSrc2, i == 0 ? src1Step : src2Step, roiSize, means[i]); });
  Zor32f mean1[lanesInTurn], mean2[lanesInTurn];
  underRounding(Rounding::Nearest, [&] {
    for (int i = 0; i < lanesInTurn; ++i) { // the alpha of AC4 goes along and is never looked at
      mean1[i] = i % channels<L> < n ? static_cast<Zor32f>(means[0][i % channels<L>]) : 0.0f;
      mean2[i] = i % channels<L> < n ? static_cast<Zor32f>(means[1][i % channels<L>]) : 0.0f;
    }
  });

  const auto firstRow = [=](int strip) {
    return static_cast<int>(static_cast<long long>(roiSize.height) * strip / strips);
  };
  staticRows(team, Rounding::Nearest, strips, [&](int strip) {
    Zor32f* sums = partials[strip];
    for (int y = firstRow(strip); y < firstRow(strip + 1); ++y) {
      CentredSums row;
      for (int j = 0; j < 3; ++j) row.s11[j] = row.s12[j] = row.s22[j] = zero<Zor32f>();
      sumRow(row, rowAt(pSrc1, src1Step, y), rowAt(pSrc2, src2Step, y),
             static_cast<std::ptrdiff_t>(roiSize.width) * channels<L>, mean1, mean2);
      addChannels<L>(row.s11, sums);
      addChannels<L>(row.s12, sums + n);
      addChannels<L>(row.s22, sums + 2 * n);
    }
  });

  const auto index = [&] {
    ZorStatus status = ZorOk;
    for (int k = 0; k < n; ++k) {
      Zor32f s11 = 0, s12 = 0, s22 = 0;
      for (int i = 0; i < strips; ++i) {
        s11 += partials[i][k];
        s12 += partials[i][n + k];
        s22 += partials[i][2 * n + k];
      }
      const double m1 = means[0][k], m2 = means[1][k];
      const double denominator = static_cast<double>(s11 + s22) * (m1 * m1 + m2 * m2);
      if (denominator >= 1.1920928955078125e-07) {
        pQualityIndex[k] = static_cast<Zor32f>(static_cast<double>(s12 * 4.0f) * m1 * m2 / denominator);
      } else {
        pQualityIndex[k] = std::numeric_limits<Zor32f>::quiet_NaN();
        status = ZorErrQualitySize;
      }
    }
    return status;
  };
  return underRounding(Rounding::Nearest, index);
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(name, type, layout, result, mean)                                                                 \
  ZorStatus zoriQualityIndex_##name##_##layout##R(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2, \
                                                  int src2Step, ZorImgSize roiSize, result)                     \
  { return qualityIndex<Zor##type, layout>(pSrc1, src1Step, pSrc2, src2Step, roiSize, pQualityIndex, mean); }
#define STAMPS(name, type, mean)                                                                                  \
  STAMP(name, type, C1, Zor32f* pQualityIndex, mean(C1)) STAMP(name, type, C3, Zor32f pQualityIndex[3], mean(C3)) \
  STAMP(name, type, AC4, Zor32f pQualityIndex[3], mean(AC4))
#define FAST(layout) \
  [](const Zor32f* p, int step, ZorImgSize roi, Zor64f* m) { return zoriMean_32f_##layout##R(p, step, roi, m, ZorHintFast); }
#define BYTES(layout) zoriMean_8u_##layout##R
#define WORDS(layout) zoriMean_16u_##layout##R
STAMPS(8u32f, 8u, BYTES) STAMPS(16u32f, 16u, WORDS) STAMPS(32f, 32f, FAST)
#undef WORDS
#undef BYTES
#undef FAST
#undef STAMPS
#undef STAMP
