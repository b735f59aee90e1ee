// Views, parts and owners of zori.hpp: a smoothed copy of the middle of a picture, and the mean of what it changed.
#include <cstdio>

#include "zori.hpp"

int main()
{
  using zori::C1;
  zori::Image<Zor8u, C1> picture(320, 240), smooth(316, 236), change(316, 236);
  if (!picture.ok() || !smooth.ok() || !change.ok()) return 1;

  // One name an operation: types and layout come from the views, the region is their common size.
  if (zori::Status s = zori::imageJaehne(picture); !s.ok()) return std::printf("%s\n", s.text()), 1;

  // A part knows what lies around it, so a filter can tell whether its neighbours are there.
  const zori::View<const Zor8u, C1> middle = picture.view().within(2, 2, 2, 2);
  if (zori::Status s = zori::filterBox(middle, smooth, {5, 5}, {2, 2}); !s.ok())
    return std::printf("%s\n", s.text()), 1;
  const zori::Status outside = zori::filterBox(picture, smooth, {5, 5}, {2, 2});
  std::printf("without room: %s, %s\n", outside.name(), outside.text());

  double mean = 0;
  zori::Status s = zori::sub(smooth, middle, change, 0);
  if (s.ok()) s = zori::mean(change, mean);
  if (!s.ok()) return std::printf("%s\n", s.text()), 1;
  std::printf("brighter than its surroundings by %.2f on the average\n", mean);
  return outside == ZorErrSize && mean > 0 ? 0 : 1;
}
