// A page photographed at an angle is brought back to a rectangle.
//
// The page's corners in the photograph are known (from a user's clicks, or a detector). The transform that takes a
// rectangle to these four points, used from destination to source, straightens the page: each pixel of the result looks
// up where it lies in the photograph.
#include "zori.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#define CHECK(call)                                                                                                    \
  if (const ZorStatus status = (call); status != ZorOk) {                                                              \
    std::fprintf(stderr, "%s: status %d\n", #call, status);                                                            \
    return 1;                                                                                                          \
  }

namespace {

struct Free {
  void operator()(void* image) const { zoriFree(image); }
};
using Bytes = std::unique_ptr<Zor8u, Free>;

constexpr ZorImgSize pageSize = {300, 400}, photoSize = {640, 480};
constexpr ZorImgRect page = {0, 0, 300, 400}, photo = {0, 0, 640, 480};

} // namespace

int main()
{
  int pageStep, photoStep;
  const Bytes original(zoriMalloc_8u_C1(pageSize.width, pageSize.height, &pageStep));
  const Bytes straight(zoriMalloc_8u_C1(pageSize.width, pageSize.height, &pageStep));
  const Bytes seen(zoriMalloc_8u_C1(photoSize.width, photoSize.height, &photoStep));
  if (!original || !straight || !seen) return 1;
  for (int y = 0; y < pageSize.height; ++y) // a page of soft rings
    for (int x = 0; x < pageSize.width; ++x)
      original.get()[y * pageStep + x] =
        static_cast<Zor8u>(128 + 100 * std::cos(0.002 * ((x - 150) * (x - 150) + (y - 200) * (y - 200))));

  // the photograph: a page on a dark table
  const double corners[4][2] = {{90, 60}, {480, 20}, {590, 430}, {40, 400}};
  double toPhoto[3][3];
  CHECK(zoriGetPerspectiveTransform(page, corners, toPhoto));
  CHECK(zoriSet_8u_C1R(30, seen.get(), photoStep, photoSize));
  CHECK(zoriWarpPerspective_8u_C1R(original.get(), pageSize, pageStep, page, seen.get(), photoStep, photo, toPhoto,
                                   ZORI_INTER_CUBIC | ZORI_SMOOTH_EDGE));

  // how much of the photograph the page takes
  double bound[2][2];
  CHECK(zoriGetPerspectiveBound(page, bound, toPhoto));
  std::printf("the page lies between (%.0f, %.0f) and (%.0f, %.0f)\n", bound[0][0], bound[0][1], bound[1][0],
              bound[1][1]);

  // Straightened. Pixels whose place in the photograph is outside of it would keep their value.
  CHECK(zoriWarpPerspectiveBack_8u_C1R(seen.get(), photoSize, photoStep, photo, straight.get(), pageStep, page, toPhoto,
                                       ZORI_INTER_CUBIC));

  double sum = 0; // away from the edges
  for (int y = 10; y < pageSize.height - 10; ++y)
    for (int x = 10; x < pageSize.width - 10; ++x)
      sum += std::abs(original.get()[y * pageStep + x] - straight.get()[y * pageStep + x]);
  const double mean = sum / (280.0 * 380);
  std::printf("mean difference between the page and its straightened photograph: %.2f levels\n", mean);
  return mean < 3 ? 0 : 1;
}
