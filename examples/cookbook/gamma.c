/* Gamma: out = 255 * (in / 255)^(1 / 2.2) by a table of 256 entries.
 *
 * LUT maps steps: from level i to below level i + 1 goes value i. For bytes 257 levels 0..256 make the table of every
 * byte; the last level only closes the last step. */
#include "picture.h"

#include <math.h>

int main(int argc, char** argv)
{
  Picture in = pictureOpen(argc, argv, 3), out = pictureNew(in.size.width, in.size.height, 3);
  Zor32s levels[257], values[257];
  for (int i = 0; i < 257; ++i) {
    levels[i] = i;
    values[i] = (Zor32s)(255 * pow(i < 255 ? i / 255.0 : 1, 1 / 2.2) + 0.5);
  }
  const Zor32s* const allLevels[3] = {levels, levels, levels};
  const Zor32s* const allValues[3] = {values, values, values};
  const int counts[3] = {257, 257, 257};
  CALL(zoriLUT_8u_C3R(in.data, in.step, out.data, out.step, in.size, allValues, allLevels, counts));

  EXPECT(out.data[0] == values[in.data[0]] && values[0] == 0 && values[255] == 255);
  pictureSave(&out, 3, argc, argv, "gamma");
  pictureFree(&in), pictureFree(&out);
  return 0;
}
