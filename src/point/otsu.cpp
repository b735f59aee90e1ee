// zoriComputeThreshold_Otsu_8u_C1R: the threshold with the greatest variance between the two classes it makes.
#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/numeric_mode.h"
#include "rowkernels/simd.h"
#include "zori/point.h"

#include <cmath>

namespace zori {
namespace {

// Counts of the 256 levels as doubles. Neighbouring pixels count in different tables: equal ones do not wait for each
// other's stores.
static void countLevels(const Zor8u* pSrc, int srcStep, ZorImgSize roi, double counts[256])
{
  constexpr long long flushAt = 1LL << 30; // pixels that a 32-bit counter surely holds, with a row to spare
  Zor32u tables[4][256] = {};
  long long pending = 0;
  for (int i = 0; i < 256; ++i) counts[i] = 0;
  for (int y = 0; y < roi.height; ++y) {
    const Zor8u* row = rowAt(pSrc, srcStep, y);
    int x = 0;
    for (; x + 8 <= roi.width; x += 8) {
      const Zor32u a = get<Zor32u>(row + x), b = get<Zor32u>(row + x + 4);
      ++tables[0][a & 255], ++tables[1][a >> 8 & 255], ++tables[2][a >> 16 & 255], ++tables[3][a >> 24];
      ++tables[0][b & 255], ++tables[1][b >> 8 & 255], ++tables[2][b >> 16 & 255], ++tables[3][b >> 24];
    }
    for (; x < roi.width; ++x) ++tables[0][row[x]];
    pending += roi.width;
    if (pending >= flushAt || y == roi.height - 1) {
      for (int i = 0; i < 256; ++i)
        for (auto& table : tables) {
          counts[i] += table[i];
          table[i] = 0;
        }
      pending = 0;
    }
  }
}

// A level stands for the middle of its bin, i + 0.5. A skipped level leaves the scaled mean behind: part of the method.
static int otsuLevel(const double counts[256])
{
  constexpr double least = 1.1920928955078125e-07, most = 0.9999998807907104;
  double total = 0, sumX = 0;
  for (int i = 0; i < 256; ++i) total += counts[i];
  for (int i = 0; i < 256; ++i) sumX += counts[i] * (i + 0.5);
  const double scale =
    static_cast<float>(static_cast<long long>(std::fabs(total))) > 1.1920928955078125e-07f ? 1.0 / total : 0.0;
  const double meanAll = sumX * scale;
  double w = 0, m = 0, best = 0, level = 0;
  for (int i = 0; i < 256; ++i) {
    m = m * w;
    const double p = scale * counts[i];
    w = w + p;
    const double v = 1.0 - w;
    if ((v < w ? v : w) < least || (v > w ? v : w) > most) continue;
    const double x = i + 0.5;
    m = (m + p * x) / w;
    const double second = (meanAll - w * m) / v;
    const double d = m - second;
    const double sigma = v * w * d * d;
    if (sigma > best) {
      best = sigma;
      level = x;
    }
  }
  return static_cast<int>(level);
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriComputeThreshold_Otsu_8u_C1R(const Zor8u* pSrc, int srcStep, ZorImgSize roiSize, Zor8u* pThreshold)
{
  if (auto s =
        firstFailure(nonNull(pSrc, pThreshold), nonEmpty(roiSize), require(srcStep >= roiSize.width, ZorErrStep));
      s != ZorOk)
    return s;
  double counts[256];
  countLevels(pSrc, srcStep, roiSize, counts);
  *pThreshold = underRounding(Rounding::Nearest, [&] { return static_cast<Zor8u>(otsuLevel(counts)); });
  return ZorOk;
}
