/* |a - b| of two pictures of bytes: there is no single call, and none is needed.
 *
 * A difference of bytes saturates at 0, so that one of a - b and b - a is the answer and the other is 0; their sum, or
 * their larger, is |a - b|. */
#include "picture.h"

int main(int argc, char** argv)
{
  Picture a = pictureOpen(argc, argv, 1);
  const ZorImgSize size = a.size;
  Picture b = pictureNew(size.width, size.height, 1), ab = pictureNew(size.width, size.height, 1),
          ba = pictureNew(size.width, size.height, 1);
  CALL(zoriMirror_8u_C1R(a.data, a.step, b.data, b.step, size, ZorAxsVertical)); /* something to compare with */

  /* Sub: the second source less the first */
  CALL(zoriSub_8u_C1RSfs(b.data, b.step, a.data, a.step, ab.data, ab.step, size, 0));
  CALL(zoriSub_8u_C1RSfs(a.data, a.step, b.data, b.step, ba.data, ba.step, size, 0));
  CALL(zoriMaxEvery_8u_C1IR(ba.data, ba.step, ab.data, ab.step, size));

  for (int x = 0; x < size.width; ++x) EXPECT(ab.data[x] == abs(a.data[x] - b.data[x]));
  pictureSave(&ab, 1, argc, argv, "absolute_difference");
  pictureFree(&a), pictureFree(&b), pictureFree(&ab), pictureFree(&ba);
  return 0;
}
