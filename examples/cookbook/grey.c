/* Grey from colour: 0.299 R + 0.587 G + 0.114 B, exact to the nearest level.
 *
 * Each channel becomes floats, is weighted (77, 150 and 29 of 256, which floats hold exactly) and added up; one
 * rounding at the end. */
#include "picture.h"

int main(int argc, char** argv)
{
  static const Zor32f weights[3] = {77 / 256.0f, 150 / 256.0f, 29 / 256.0f};
  Picture colour = pictureOpen(argc, argv, 3);
  const ZorImgSize size = colour.size;
  Picture grey = pictureNew(size.width, size.height, 1), plane = pictureNew(size.width, size.height, 1);
  int step;
  Zor32f* sum = zoriMalloc_32f_C1(size.width, size.height, &step);
  Zor32f* term = zoriMalloc_32f_C1(size.width, size.height, &step);
  if (!sum || !term) return 1;

  CALL(zoriSet_32f_C1R(0, sum, step, size));
  for (int c = 0; c < 3; ++c) {
    CALL(zoriCopy_8u_C3C1R(colour.data + c, colour.step, plane.data, plane.step, size));
    CALL(zoriConvert_8u32f_C1R(plane.data, plane.step, term, step, size));
    CALL(zoriMulC_32f_C1IR(weights[c], term, step, size));
    CALL(zoriAdd_32f_C1IR(term, step, sum, step, size));
  }
  CALL(zoriConvert_32f8u_C1R(sum, step, grey.data, grey.step, size, ZorRoundNearestEven));

  const Zor8u* rgb = colour.data;
  const double exact = (77 * rgb[0] + 150 * rgb[1] + 29 * rgb[2]) / 256.0;
  EXPECT(grey.data[0] - exact <= 0.5 && exact - grey.data[0] <= 0.5);
  pictureSave(&grey, 1, argc, argv, "grey");
  zoriFree(sum), zoriFree(term);
  pictureFree(&colour), pictureFree(&grey), pictureFree(&plane);
  return 0;
}
