/* Histogram equalisation: every grey level gets the share of the range that its pixels have of the picture.
 *
 * The histogram comes with 256 bins; its running sum, brought to 0..255, is the table. */
#include "picture.h"

int main(int argc, char** argv)
{
  Picture in = pictureOpen(argc, argv, 1), out = pictureNew(in.size.width, in.size.height, 1);
  Zor32s count[256], levels[257], values[257];
  CALL(zoriHistogramEven_8u_C1R(in.data, in.step, in.size, count, levels, 257, 0, 256));
  const double pixels = (double)in.size.width * in.size.height;
  double below = 0;
  for (int i = 0; i < 256; ++i) {
    below += count[i];
    values[i] = (Zor32s)(255 * below / pixels + 0.5);
  }
  values[256] = 255;
  EXPECT(below == pixels && levels[0] == 0 && levels[256] == 256);
  CALL(zoriLUT_8u_C1R(in.data, in.step, out.data, out.step, in.size, values, levels, 257));

  Zor8u least, greatest;
  CALL(zoriMinMax_8u_C1R(out.data, out.step, out.size, &least, &greatest));
  EXPECT(greatest == 255);
  pictureSave(&out, 1, argc, argv, "equalisation");
  pictureFree(&in), pictureFree(&out);
  return 0;
}
