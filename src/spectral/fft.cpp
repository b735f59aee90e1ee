// zoriFFT{InitAlloc,Free,GetBufSize}_{C_32fc,R_32f,R_32s}, zoriFFT{Fwd,Inv}_CToC_32fc_C1{R,IR},
// zori{FFTFwd_RToPack,FFTInv_PackToR}_32f_{C1,C3,C4,AC4}{R,IR}, zoriFFTFwd_RToPack_8u32s_{C1,C3,C4,AC4}RSfs,
// zoriFFTInv_PackToR_32s8u_{C1,C3,C4,AC4}RSfs: images whose sides are powers of two. How they are transformed stands in
// image_transform.h.
#include "image_stamps.h"
#include "zori/spectral.h"

namespace zori {
namespace {

struct Fft {
  static constexpr TransformFamily kind = TransformFamily::Fft;
  static constexpr Tags tags = {25, 26, 29};

  static ZorStatus sizeOf(int orderX, int orderY, ZorImgSize* size)
  {
    constexpr int greatest = 30;
    if (orderX < 0 || orderX > greatest || orderY < 0 || orderY > greatest) return ZorErrOrder;
    *size = {1 << orderX, 1 << orderY};
    return ZorOk;
  }
};

} // namespace
} // namespace zori

using namespace zori;

ZORI_STAMP_IMAGE_TRANSFORMS(FFT, Fft, Fft)
