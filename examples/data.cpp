// data: a camera frame for a neural network and back. The frame comes as interleaved bytes, blue first, with a fourth
// channel that means nothing; the network wants three planes of floats from 0 to 1, red first.
#include <zori.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace {

// An image of the library that releases itself.
struct Release {
  void operator()(void* image) const { zoriFree(image); }
};
template <class T> using Pixels = std::unique_ptr<T, Release>;

// Codes below zero are errors; every function tells in its header which it has.
void check(ZorStatus status, const char* call)
{
  if (status >= 0) return;
  std::fprintf(stderr, "%s: status %d\n", call, status);
  std::exit(1);
}
#define CHECK(call) check(call, #call)

} // namespace

int main()
{
  const ZorImgSize size = {641, 479}; // odd sizes are as good as others
  int frameStep, colourStep, floatStep, backStep;
  const Pixels<Zor8u> frame(zoriMalloc_8u_C4(size.width, size.height, &frameStep));
  const Pixels<Zor8u> colour(zoriMalloc_8u_C3(size.width, size.height, &colourStep));
  const Pixels<Zor32f> floats(zoriMalloc_32f_C3(size.width, size.height, &floatStep));
  const Pixels<Zor8u> back(zoriMalloc_8u_C4(size.width, size.height, &backStep));
  // memory from elsewhere serves as well: the planes adjoin without gaps, as the network has them
  std::vector<Zor32f> tensor(static_cast<std::size_t>(3) * size.width * size.height);
  if (!frame || !colour || !floats || !back) return 1;
  const int planeStep = size.width * static_cast<int>(sizeof(Zor32f));
  Zor32f* const planes[3] = {&tensor[0], &tensor[1 * tensor.size() / 3], &tensor[2 * tensor.size() / 3]};

  for (int y = 0; y < size.height; ++y)
    for (int i = 0; i < size.width * 4; ++i) frame.get()[y * frameStep + i] = static_cast<Zor8u>(i * 7 + y * 3);

  // to the network
  const int redFirst[3] = {2, 1, 0};
  CHECK(zoriSwapChannels_8u_C4C3R(frame.get(), frameStep, colour.get(), colourStep, size, redFirst));
  CHECK(zoriScale_8u32f_C3R(colour.get(), colourStep, floats.get(), floatStep, size, 0, 1));
  CHECK(zoriCopy_32f_C3P3R(floats.get(), floatStep, planes, planeStep, size));

  // and back, with the fourth channel opaque
  const Zor32f* const results[3] = {planes[0], planes[1], planes[2]};
  CHECK(zoriCopy_32f_P3C3R(results, planeStep, floats.get(), floatStep, size));
  CHECK(zoriScale_32f8u_C3R(floats.get(), floatStep, colour.get(), colourStep, size, 0, 1));
  const int blueFirstThenValue[4] = {2, 1, 0, 3};
  CHECK(zoriSwapChannels_8u_C3C4R(colour.get(), colourStep, back.get(), backStep, size, blueFirstThenValue, 255));

  int largest = 0;
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x)
      for (int k = 0; k < 3; ++k) {
        const int i = x * 4 + k;
        largest = std::max(largest, std::abs(frame.get()[y * frameStep + i] - back.get()[y * backStep + i]));
      }
  std::printf("%d x %d pixels to three planes of floats and back, largest difference %d\n", size.width, size.height,
              largest);
  return largest == 0 ? 0 : 1;
}
