/* Denoising compared: box, Gauss and median on noise of two kinds, judged by the mean squared error. */
#include "picture.h"

enum { margin = 2 };

static double meanSquaredError(const Picture* a, const Picture* b)
{
  Zor64f norm;
  CALL(zoriNormDiff_L2_8u_C1R(a->data, a->step, b->data, b->step, a->size, &norm));
  return norm * norm / ((double)a->size.width * a->size.height);
}

int main(int argc, char** argv)
{
  Picture clean = pictureOpen(argc, argv, 1);
  const ZorImgSize size = clean.size, outer = {size.width + 2 * margin, size.height + 2 * margin}, three = {3, 3};
  const ZorImgPoint centre = {1, 1};
  Picture noisy = pictureNew(size.width, size.height, 1), framed = pictureNew(outer.width, outer.height, 1),
          out = pictureNew(size.width, size.height, 1);
  const Zor8u* inner = framed.data + margin * framed.step + margin;
  double error[2][4];
  for (int kind = 0; kind < 2; ++kind) {
    CALL(zoriCopy_8u_C1R(clean.data, clean.step, noisy.data, noisy.step, size));
    unsigned seed = 11;
    if (kind == 0) CALL(zoriAddRandGauss_Direct_8u_C1IR(noisy.data, noisy.step, size, 0, 20, &seed));
    else
      for (int i = 0; i < size.width * size.height / 20; ++i) { /* salt and pepper on one pixel of twenty */
        seed = seed * 1664525u + 1013904223u;
        const int x = (int)((seed >> 8) % (unsigned)size.width);
        seed = seed * 1664525u + 1013904223u;
        noisy.data[(int)((seed >> 8) % (unsigned)size.height) * noisy.step + x] = i % 2 ? 255 : 0;
      }
    error[kind][0] = meanSquaredError(&clean, &noisy);
    CALL(zoriCopyReplicateBorder_8u_C1R(noisy.data, noisy.step, size, framed.data, framed.step, outer, margin, margin));
    CALL(zoriFilterBox_8u_C1R(inner, framed.step, out.data, out.step, size, three, centre));
    error[kind][1] = meanSquaredError(&clean, &out);
    CALL(zoriFilterGauss_8u_C1R(inner, framed.step, out.data, out.step, size, ZorMask3x3));
    error[kind][2] = meanSquaredError(&clean, &out);
    CALL(zoriFilterMedian_8u_C1R(inner, framed.step, out.data, out.step, size, three, centre));
    error[kind][3] = meanSquaredError(&clean, &out);
    printf("%-16s noisy %6.1f   box %6.1f   Gauss %6.1f   median %6.1f\n", kind ? "salt and pepper" : "Gaussian noise",
           error[kind][0], error[kind][1], error[kind][2], error[kind][3]);
  }
  EXPECT(error[1][3] < error[1][1] && error[1][3] < error[1][2]); /* single pixels: the median */
  EXPECT(error[0][2] < error[0][0]);
  pictureSave(&out, 1, argc, argv, "denoising");
  pictureFree(&clean), pictureFree(&noisy), pictureFree(&framed), pictureFree(&out);
  return 0;
}
