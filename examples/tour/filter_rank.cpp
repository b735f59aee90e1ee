// Filters that choose among the pixels of a window: medians and morphology.
#include "tour/tour.h"

#include <cstdint>

namespace tour {

namespace {

constexpr int margin = 4;

// A picture inside a larger one that repeats its edge.
template <int N> class Framed {
public:
  explicit Framed(ZorImgSize inner) : whole(inner.width + 2 * margin, inner.height + 2 * margin) {}
  const Zor8u* data() const { return whole.at(margin, margin); }
  int step() const { return whole.step(); }

  Image<Zor8u, N> whole;
};

// Every tenth pixel or so turns black or white, in each channel alike.
Picture peppered(const Picture& picture)
{
  const ZorImgSize size = picture.size();
  Picture noisy(size);
  ZORI_CHECK(zoriCopy_8u_C3R(picture.data(), picture.step(), noisy.data(), noisy.step(), size));
  std::uint32_t random = 20260101;
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x) {
      random = random * 1664525u + 1013904223u;
      if (random >> 24 >= 26) continue;
      Zor8u* const pixel = noisy.at(x, y);
      pixel[0] = pixel[1] = pixel[2] = random >> 16 & 1 ? 255 : 0;
    }
  return noisy;
}

void noiseAndItsRemoval(Tour& tour)
{
  const ZorImgSize size = tour.size();
  const Picture noisy = peppered(tour.picture());
  tour.stage("Salt and pepper (detail)").show(noisy, View::detail);

  Framed<3> framed(size);
  Picture out(size);
  tour.stage("Median of 3 x 3 (detail)")
    .highlight()
    .time("CopyReplicateBorder_8u_C3R",
          [&] {
            return zoriCopyReplicateBorder_8u_C3R(noisy.data(), noisy.step(), size, framed.whole.data(), framed.step(),
                                                  framed.whole.size(), margin, margin);
          })
    .time("FilterMedian_8u_C3R",
          [&] {
            return zoriFilterMedian_8u_C3R(framed.data(), framed.step(), out.data(), out.step(), size, ZorImgSize{3, 3},
                                           ZorImgPoint{1, 1});
          })
    .show(out, View::detail);

  tour.stage("Median of colours (detail)")
    .time("FilterMedianColor_8u_C3R",
          [&] {
            return zoriFilterMedianColor_8u_C3R(framed.data(), framed.step(), out.data(), out.step(), size, ZorMask3x3);
          })
    .show(out, View::detail);
}

// What a disc makes brighter minus what it makes darker: outlines, whichever way they run.
void morphologicalGradient(Tour& tour)
{
  const Grey& in = tour.grey();
  const ZorImgSize size = in.size();
  static const Zor8u disc[25] = {
    0, 1, 1, 1, 0, //
    1, 1, 1, 1, 1, //
    1, 1, 1, 1, 1, //
    1, 1, 1, 1, 1, //
    0, 1, 1, 1, 0, //
  };
  const ZorImgSize discSize = {5, 5};
  const ZorImgPoint centre = {2, 2};
  Framed<1> framed(size);
  Grey least(size), greatest(size), out(size);
  ZORI_CHECK(zoriCopyReplicateBorder_8u_C1R(in.data(), in.step(), size, framed.whole.data(), framed.step(),
                                            framed.whole.size(), margin, margin));
  tour.stage("Outlines, by dilation and erosion")
    .highlight()
    .time("Dilate_8u_C1R",
          [&] {
            return zoriDilate_8u_C1R(framed.data(), framed.step(), greatest.data(), greatest.step(), size, disc,
                                     discSize, centre);
          })
    .time("Erode_8u_C1R",
          [&] {
            return zoriErode_8u_C1R(framed.data(), framed.step(), least.data(), least.step(), size, disc, discSize,
                                    centre);
          })
    .time("Sub_8u_C1RSfs",
          [&] {
            return zoriSub_8u_C1RSfs(least.data(), least.step(), greatest.data(), greatest.step(), out.data(),
                                     out.step(), size, 0);
          })
    .show(out);
}

} // namespace

void rankFilterStages(Tour& tour)
{
  noiseAndItsRemoval(tour);
  morphologicalGradient(tour);
}

} // namespace tour
