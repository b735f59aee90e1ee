// spectral: by how much a picture has moved. The product of one spectrum and the conjugate of the other is the spectrum
// of their correlation, which is greatest where the second picture went.
#include "support/image.h"

#include <cstdio>
#include <memory>
#include <vector>

int main()
{
  using Plane = example::Image<Zor32f, 1>;
  const ZorImgSize size = {240, 180};
  const int right = 37, down = 23;

  // a picture of noise, and the same moved around the edges
  example::Grey still(size), moved(size);
  Zor32u seed = 5;
  ZORI_CHECK(zoriSet_8u_C1R(128, still.data(), still.step(), size));
  ZORI_CHECK(zoriAddRandUniform_Direct_8u_C1IR(still.data(), still.step(), size, -100, 100, &seed));
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x)
      *moved.at((x + right) % size.width, (y + down) % size.height) = *still.at(x, y);
  ZORI_CHECK(zoriAddRandGauss_Direct_8u_C1IR(moved.data(), moved.step(), size, 0, 20, &seed));

  Plane a(size), b(size);
  ZORI_CHECK(zoriConvert_8u32f_C1R(still.data(), still.step(), a.data(), a.step(), size));
  ZORI_CHECK(zoriConvert_8u32f_C1R(moved.data(), moved.step(), b.data(), b.step(), size));

  ZorDftImgRecord* made = nullptr;
  ZORI_CHECK(zoriDFTInitAlloc_R_32f(&made, size.width, size.height, ZorFftDivInvByN, ZorHintNone));
  const std::unique_ptr<ZorDftImgRecord, ZorStatus (*)(ZorDftImgRecord*)> record(made, zoriDFTFree_R_32f);
  int bytes = 0;
  ZORI_CHECK(zoriDFTGetBufSize_R_32f(record.get(), &bytes));
  std::vector<Zor8u> buffer(static_cast<std::size_t>(bytes));

  ZORI_CHECK(zoriDFTFwd_RToPack_32f_C1IR(a.data(), a.step(), record.get(), buffer.data()));
  ZORI_CHECK(zoriDFTFwd_RToPack_32f_C1IR(b.data(), b.step(), record.get(), buffer.data()));
  // the mean of the pictures says nothing about where they are
  *a.data() = 0;
  ZORI_CHECK(zoriMulPackConj_32f_C1IR(b.data(), b.step(), a.data(), a.step(), size));
  ZORI_CHECK(zoriDFTInv_PackToR_32f_C1IR(a.data(), a.step(), record.get(), buffer.data()));

  Zor32f height = 0;
  int x = 0, y = 0;
  ZORI_CHECK(zoriMaxIndx_32f_C1R(a.data(), a.step(), size, &height, &x, &y));
  std::printf("moved by (%d, %d), found (%d, %d)\n", right, down, x, y);
  return x == right && y == down ? 0 : 1;
}
