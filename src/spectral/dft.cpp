// zoriDFT{InitAlloc,Free,GetBufSize}_{C_32fc,R_32f,R_32s}, zoriDFT{Fwd,Inv}_CToC_32fc_C1{R,IR},
// zori{DFTFwd_RToPack,DFTInv_PackToR}_32f_{C1,C3,C4,AC4}{R,IR}, zoriDFTFwd_RToPack_8u32s_{C1,C3,C4,AC4}RSfs,
// zoriDFTInv_PackToR_32s8u_{C1,C3,C4,AC4}RSfs: images of any size. How they are transformed stands in
// image_transform.h.
#include "image_stamps.h"
#include "zori/spectral.h"

namespace zori {
namespace {

struct Dft {
  static constexpr TransformFamily kind = TransformFamily::Dft;
  static constexpr Tags tags = {27, 28, 30};

  static ZorStatus sizeOf(int width, int height, ZorImgSize* size)
  {
    *size = {width, height};
    return positiveSize(width, height);
  }
};

} // namespace
} // namespace zori

using namespace zori;

ZORI_STAMP_IMAGE_TRANSFORMS(DFT, Dft, Dft)
