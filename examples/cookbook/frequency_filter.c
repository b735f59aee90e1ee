/* A filter in the frequency domain: a low-pass of Gaussian shape, by one product of packed spectra.
 *
 * The picture is brought to a power of two (here 256 x 256, the middle of it); the filter's response is real and even,
 * so its packed spectrum has the response in the real places and 0 in the imaginary ones. The easiest way there is the
 * transform of the kernel itself. */
#include "picture.h"

#include <math.h>

int main(int argc, char** argv)
{
  enum { order = 8, n = 1 << order };
  Picture in = pictureOpen(argc, argv, 1), out = pictureNew(n, n, 1);
  const ZorImgSize whole = {n, n};
  int step, size;
  Zor32f* image = zoriMalloc_32f_C1(n, n, &step);
  Zor32f* kernel = zoriMalloc_32f_C1(n, n, &step);
  if (!image || !kernel) return 1;

  /* the picture's upper left part; what is missing repeats the edge */
  const ZorImgSize part = {in.size.width < n ? in.size.width : n, in.size.height < n ? in.size.height : n};
  CALL(zoriCopyReplicateBorder_8u_C1R(in.data, in.step, part, out.data, out.step, whole, 0, 0));
  CALL(zoriConvert_8u32f_C1R(out.data, out.step, image, step, whole));
  Zor64f before, after;
  CALL(zoriMean_32f_C1R(image, step, whole, &before, ZorHintAccurate));

  /* a Gaussian about (0, 0), wrapped around, with the sum 1 */
  const double sigma = 2.5;
  double sum = 0;
  for (int y = 0; y < n; ++y)
    for (int x = 0; x < n; ++x) {
      const double dx = x < n / 2 ? x : x - n, dy = y < n / 2 ? y : y - n;
      const double value = exp(-(dx * dx + dy * dy) / (2 * sigma * sigma));
      ((Zor32f*)((Zor8u*)kernel + y * step))[x] = (Zor32f)value;
      sum += value;
    }
  CALL(zoriMulC_32f_C1IR((Zor32f)(1 / sum), kernel, step, whole));

  ZorFftImgRecord* record;
  CALL(zoriFFTInitAlloc_R_32f(&record, order, order, ZorFftDivInvByN, ZorHintNone));
  CALL(zoriFFTGetBufSize_R_32f(record, &size));
  Zor8u* buffer = malloc((size_t)size + 1);
  if (!buffer) return 1;
  CALL(zoriFFTFwd_RToPack_32f_C1IR(image, step, record, buffer));
  CALL(zoriFFTFwd_RToPack_32f_C1IR(kernel, step, record, buffer));
  CALL(zoriMulPack_32f_C1IR(kernel, step, image, step, whole));
  CALL(zoriFFTInv_PackToR_32f_C1IR(image, step, record, buffer));
  CALL(zoriFFTFree_R_32f(record));

  CALL(zoriMean_32f_C1R(image, step, whole, &after, ZorHintAccurate));
  printf("mean %.3f before, %.3f after\n", before, after);
  EXPECT(fabs(before - after) < 0.01);
  CALL(zoriConvert_32f8u_C1R(image, step, out.data, out.step, whole, ZorRoundNearestEven));
  pictureSave(&out, 1, argc, argv, "frequency_filter");
  free(buffer);
  zoriFree(image), zoriFree(kernel);
  pictureFree(&in), pictureFree(&out);
  return 0;
}
