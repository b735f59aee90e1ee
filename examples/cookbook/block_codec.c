/* The path of a block codec: 8 x 8 blocks are level shifted and transformed, quantised, put in zigzag order, and back.
 */
#include "picture.h"

#include <math.h>

int main(int argc, char** argv)
{
  Picture in = pictureOpen(argc, argv, 1);
  const ZorImgSize size = {in.size.width / 8 * 8, in.size.height / 8 * 8};
  Picture out = pictureNew(size.width, size.height, 1);
  long long kept = 0, all = 0;
  for (int y = 0; y < size.height; y += 8)
    for (int x = 0; x < size.width; x += 8) {
      Zor16s block[64], ordered[64];
      CALL(zoriDCT8x8FwdLS_8u16s_C1R(in.data + y * in.step + x, in.step, block, -128));
      for (int i = 0; i < 64; ++i) { /* coarser for higher frequencies */
        const int quantum = 6 + 4 * (i / 8 + i % 8);
        block[i] = (Zor16s)(block[i] / quantum);
      }
      CALL(zoriZigzagFwd8x8_16s_C1(block, ordered)); /* what an entropy coder would get */
      for (int i = 0; i < 64; ++i) kept += ordered[i] != 0, ++all;
      CALL(zoriZigzagInv8x8_16s_C1(ordered, block));
      for (int i = 0; i < 64; ++i) block[i] = (Zor16s)(block[i] * (6 + 4 * (i / 8 + i % 8)));
      CALL(zoriDCT8x8InvLSClip_16s8u_C1R(block, out.data + y * out.step + x, out.step, 128, 0, 255));
    }
  Zor64f norm;
  CALL(zoriNormDiff_L2_8u_C1R(in.data, in.step, out.data, out.step, size, &norm));
  const double mse = norm * norm / ((double)size.width * size.height);
  printf("%.1f%% of the coefficients are not zero, %.1f dB\n", 100.0 * (double)kept / (double)all,
         10 * log10(255 * 255 / mse));
  EXPECT(mse < 200 && kept < all / 2);
  pictureSave(&out, 1, argc, argv, "block_codec");
  pictureFree(&in), pictureFree(&out);
  return 0;
}
