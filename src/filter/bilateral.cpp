// zoriFilterBilateral{GetBufSize,Init,}_8u_C1R: the state of a bilateral filter, and the filter's checks.
//
//   weight = exp(-0.5 / posSquareSigma * distance^2) * exp(-0.5 / valSquareSigma * difference^2)
//
// Both factors are tables in single precision. The two filter types share them: looking a weight up costs less than any
// approximation of it.
#include "bilateral_record.h"
#include "bilateral_sums.h"
#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "rowkernels/exp_log.h"
#include "zori/filter.h"

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>

namespace zori {
namespace bilateral {
namespace {

ZorStatus isKernel(ZorImgSize kernel) { return require(kernel.width >= 1 && kernel.height >= 1, ZorErrMaskSize); }
ZorStatus isType(int filter)
{
  return require(filter == ZorBilateralGauss || filter == ZorBilateralGaussFast, ZorErrMode);
}

// A size that no int can tell is told as the largest one: no state takes that much.
int bufferBytes(ZorImgSize roi, ZorImgSize kernel)
{
  const long long width = roi.width, side = std::max(kernel.width, kernel.height);
  const long long area = 1LL * kernel.width * kernel.height;
  if (area > INT_MAX / 4) return INT_MAX;
  const long long bytes = ((width + 3) & ~3LL) * 12 + ((width + 7) >> 3) * 16 + 2213 +
                          (((area + 3) & ~3LL) + (side % 2 ? side : side - 1)) * 4;
  return static_cast<int>(std::min<long long>(bytes, INT_MAX));
}

// ---- The tables ----

// From this difference in value on, weights count as 0: n times the window's area they would still not matter.
int valuesThatMatter(ZorImgSize kernel, float squareSigma)
{
  const double area = static_cast<double>(kernel.width) * kernel.height;
  const double last = std::sqrt(static_cast<double>(squareSigma) * (std::log(area) + 6.3) * 1.42);
  return last < levels - 1 ? static_cast<int>(last) + 1 : levels;
}

// count floats at `to`, which stands at any address: weight k = exp(-0.5 / squareSigma * squareOf(k)).
template <class SquareOf> void storeWeights(char* to, int count, float squareSigma, SquareOf squareOf)
{
  const float factor = std::max(-0.5f / squareSigma, -FLT_MAX); // times 0 it shall be 0
  for (int first = 0; first < count; first += Group<float>::size) {
    float x[Group<float>::size];
    for (int k = 0; k < Group<float>::size; ++k) x[k] = factor * squareOf(std::min(first + k, count - 1));
    storeGroup(x, exponential(loadGroup(x)));
    const int length = std::min(count - first, Group<float>::size);
    std::memcpy(to + first * sizeof(float), x, static_cast<std::size_t>(length) * sizeof(float));
  }
}

void makeRecord(char* buffer, const Head& head, float valueSquareSigma, float placeSquareSigma)
{
  const UpperHalvesCleared atTheEnd;
  const auto distance = static_cast<char>(8 - (reinterpret_cast<std::uintptr_t>(buffer) & 7));
  *buffer = distance;
  char* const record = buffer + distance;
  put(record, head);

  char* const values = record + sizeof(Head);
  storeWeights(values, head.values, valueSquareSigma, [](int d) { return static_cast<float>(d * d); });
  std::memset(values + head.values * sizeof(float), 0, static_cast<std::size_t>(levels - head.values) * sizeof(float));

  const int step = head.step, pitch = head.radiusX / step + 1, rows = head.radiusY / step + 1;
  storeWeights(values + levels * sizeof(float), pitch * rows, placeSquareSigma, [=](int k) {
    const int x = k % pitch * step, y = k / pitch * step;
    return static_cast<float>(x * x + y * y);
  });
}

ZorStatus init(int filter, ZorImgSize kernel, float valueSquareSigma, float placeSquareSigma, int step, void* buffer)
{
  if (auto s =
        firstFailure(nonNull(buffer), isKernel(kernel),
                     require(valueSquareSigma > 0 && placeSquareSigma > 0 && step >= 1, ZorErrBadArg), isType(filter));
      s != ZorOk)
    return s;
  const Radii radii = steppedRadii(kernel, step);
  if (std::max(radii.x, radii.y) > mostRadius) return ZorErrMaskSize;
  const Head head{filter == ZorBilateralGauss ? tagOfGauss : tagOfGaussFast,
                  filter,
                  radii.x,
                  radii.y,
                  step,
                  valuesThatMatter(kernel, valueSquareSigma)};
  underRounding(Rounding::Nearest,
                [=] { makeRecord(static_cast<char*>(buffer), head, valueSquareSigma, placeSquareSigma); });
  return ZorOk;
}

ZorStatus filter(const Zor8u* pSrc, int srcStep, Zor8u* pDst, int dstStep, ZorImgSize roi, ZorImgSize kernel,
                 const void* buffer)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, buffer), nonEmpty(roi), positive(srcStep, dstStep), isKernel(kernel));
      s != ZorOk)
    return s;
  Record record;
  if (!record.find(buffer)) return ZorErrContext;
  const Radii radii = steppedRadii(kernel, record.head().step);
  if (radii.x > record.head().radiusX || radii.y > record.head().radiusY) return ZorErrMaskSize;
  const Call call{{pSrc, srcStep}, {pDst, dstStep}, roi, radii, record};
  underRounding(Rounding::Nearest, [&] { filterRegion(call); });
  return ZorOk;
}

} // namespace
} // namespace bilateral
} // namespace zori

using namespace zori::bilateral;

ZorStatus zoriFilterBilateralGetBufSize_8u_C1R(ZorBilateralType filter, ZorImgSize maxRoiSize, ZorImgSize maxKernelSize,
                                               int* pBufferSize)
{
  if (auto s = zori::firstFailure(zori::nonNull(pBufferSize), zori::nonEmpty(maxRoiSize), isKernel(maxKernelSize),
                                  isType(filter));
      s != ZorOk)
    return s;
  *pBufferSize = bufferBytes(maxRoiSize, maxKernelSize);
  return ZorOk;
}

ZorStatus zoriFilterBilateralInit_8u_C1R(ZorBilateralType filter, ZorImgSize kernelSize, Zor32f valSquareSigma,
                                         Zor32f posSquareSigma, int stepInKernel, ZorBilateralState* pSpec)
{
  return init(filter, kernelSize, valSquareSigma, posSquareSigma, stepInKernel, pSpec);
}

ZorStatus zoriFilterBilateral_8u_C1R(const Zor8u* pSrc, int srcStep, Zor8u* pDst, int dstStep, ZorImgSize roiSize,
                                     ZorImgSize kernelSize, const ZorBilateralState* pSpec)
{
  return filter(pSrc, srcStep, pDst, dstStep, roiSize, kernelSize, pSpec);
}
