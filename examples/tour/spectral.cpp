// Spectra: what frequencies the picture holds, and the picture without the high ones.
#include "tour/tour.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

namespace tour {

namespace {

using Plane = example::Image<Zor32f, 1>;
using Record = std::unique_ptr<ZorDftImgRecord, ZorStatus (*)(ZorDftImgRecord*)>;

// The first quadrant changes places with the last one, the second with the third: frequency 0 comes to the middle.
void centred(const Plane& from, Plane& to)
{
  const int w = from.width(), h = from.height(), right = w / 2, down = h / 2;
  const auto move = [&](int x, int y, int toX, int toY, ZorImgSize size) {
    if (size.width > 0 && size.height > 0)
      ZORI_CHECK(zoriCopy_32f_C1R(from.at(x, y), from.step(), to.at(toX, toY), to.step(), size));
  };
  move(0, 0, right, down, {w - right, h - down});
  move(w - right, 0, 0, down, {right, h - down});
  move(0, h - down, right, 0, {w - right, down});
  move(w - right, h - down, 0, 0, {right, down});
}

// The weights of a Gaussian low-pass, cell by cell of the packed spectrum. At `radius` cycles per pixel it is 0.61.
Plane lowPass(ZorImgSize size, double radius)
{
  const int w = size.width, h = size.height;
  Plane weights(size);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const bool isReal = x == 0 || (x == w - 1 && w % 2 == 0); // a column whose pairs stand below each other
      const int u = (x + 1) / 2, v = isReal ? (y + 1) / 2 : std::min(y, h - y);
      const double fx = static_cast<double>(u) / w / radius, fy = static_cast<double>(v) / h / radius;
      *weights.at(x, y) = static_cast<float>(std::exp(-(fx * fx + fy * fy) / 2));
    }
  return weights;
}

} // namespace

void spectralStages(Tour& tour)
{
  const ZorImgSize size = tour.size();
  const Grey& grey = tour.grey();
  Plane plane(size), spectrum(size), magnitude(size), shifted(size);
  ZORI_CHECK(zoriConvert_8u32f_C1R(grey.data(), grey.step(), plane.data(), plane.step(), size));

  ZorDftImgRecord* made = nullptr;
  ZORI_CHECK(zoriDFTInitAlloc_R_32f(&made, size.width, size.height, ZorFftDivInvByN, ZorHintNone));
  const Record record(made, zoriDFTFree_R_32f);
  int bytes = 0;
  ZORI_CHECK(zoriDFTGetBufSize_R_32f(record.get(), &bytes));
  std::vector<Zor8u> buffer(static_cast<std::size_t>(bytes));

  Stage& seen = tour.stage("Its spectrum");
  seen
    .time("DFTFwd_RToPack_32f_C1R",
          [&] {
            return zoriDFTFwd_RToPack_32f_C1R(plane.data(), plane.step(), spectrum.data(), spectrum.step(),
                                              record.get(), buffer.data());
          })
    .time("MagnitudePack_32f_C1R", [&] {
      return zoriMagnitudePack_32f_C1R(spectrum.data(), spectrum.step(), magnitude.data(), magnitude.step(), size);
    });
  // the logarithm of what lies above a ten-thousandth of the greatest but the mean, from black to white
  Zor32f greatest = 0;
  *magnitude.data() = 0;
  ZORI_CHECK(zoriMax_32f_C1R(magnitude.data(), magnitude.step(), size, &greatest));
  greatest = std::max(greatest, 1e-20f);
  const float least = greatest * 1e-4f;
  ZORI_CHECK(zoriThreshold_LTVal_32f_C1IR(magnitude.data(), magnitude.step(), size, least, least));
  ZORI_CHECK(zoriLn_32f_C1IR(magnitude.data(), magnitude.step(), size));
  centred(magnitude, shifted);
  Grey shown(size);
  ZORI_CHECK(zoriScale_32f8u_C1R(shifted.data(), shifted.step(), shown.data(), shown.step(), size, std::log(least),
                                 std::log(greatest)));
  seen.note("magnitude, logarithmic").show(shown);

  const Plane weights = lowPass(size, 0.04);
  Plane product(size), back(size);
  Stage& low = tour.stage("Without high frequencies").highlight();
  low
    .time("Mul_32f_C1R",
          [&] {
            return zoriMul_32f_C1R(spectrum.data(), spectrum.step(), weights.data(), weights.step(), product.data(),
                                   product.step(), size);
          })
    .time("DFTInv_PackToR_32f_C1R", [&] {
      return zoriDFTInv_PackToR_32f_C1R(product.data(), product.step(), back.data(), back.step(), record.get(),
                                        buffer.data());
    });
  ZORI_CHECK(zoriConvert_32f8u_C1R(back.data(), back.step(), shown.data(), shown.step(), size, ZorRoundNearestEven));
  low.show(shown);
}

} // namespace tour
