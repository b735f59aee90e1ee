// Warps: a turned picture, one put in perspective and back, one seen through a lens.
#include "tour/tour.h"

#include <algorithm>
#include <cmath>

namespace tour {

namespace {

ZorImgRect whole(ZorImgSize size) { return {0, 0, size.width, size.height}; }

void rotated(Tour& tour)
{
  const Picture& in = tour.picture();
  Picture out(tour.size());
  const Zor8u dark[3] = {24, 24, 24};
  ZORI_CHECK(zoriSet_8u_C3R(dark, out.data(), out.step(), out.size()));
  tour.stage("Turned by 20 degrees")
    .time("RotateCenter_8u_C3R",
          [&] {
            return zoriRotateCenter_8u_C3R(in.data(), in.size(), in.step(), whole(in.size()), out.data(), out.step(),
                                           whole(out.size()), 20, in.width() / 2.0, in.height() / 2.0,
                                           ZORI_INTER_CUBIC);
          })
    .show(out);
}

// The picture as a poster seen from the side, and what a scanner makes of that: the four corners back to a rectangle.
void perspective(Tour& tour)
{
  const Picture& in = tour.picture();
  const double w = in.width() - 1, h = in.height() - 1;
  const double poster[4][2] = {{0.08 * w, 0.05 * h}, {0.93 * w, 0.24 * h}, {0.87 * w, 0.8 * h}, {0.14 * w, 0.96 * h}};
  const double corners[4][2] = {{0, 0}, {w, 0}, {w, h}, {0, h}};
  Picture seen(tour.size()), back(tour.size());
  const Zor8u dark[3] = {24, 24, 24};
  ZORI_CHECK(zoriSet_8u_C3R(dark, seen.data(), seen.step(), seen.size()));
  tour.stage("Seen from the side")
    .highlight()
    .time("WarpPerspectiveQuad_8u_C3R",
          [&] {
            return zoriWarpPerspectiveQuad_8u_C3R(in.data(), in.size(), in.step(), whole(in.size()), corners,
                                                  seen.data(), seen.step(), whole(in.size()), poster,
                                                  ZORI_INTER_LINEAR);
          })
    .show(seen);
  tour.stage("Perspective corrected")
    .time("WarpPerspectiveQuad_8u_C3R",
          [&] {
            return zoriWarpPerspectiveQuad_8u_C3R(seen.data(), seen.size(), seen.step(), whole(seen.size()), poster,
                                                  back.data(), back.step(), whole(back.size()), corners,
                                                  ZORI_INTER_LINEAR);
          })
    .show(back);
}

void lens(Tour& tour)
{
  const Picture& in = tour.picture();
  const ZorImgSize size = in.size();
  Image<Zor32f, 1> xMap(size), yMap(size);
  const float cx = (size.width - 1) / 2.0f, cy = (size.height - 1) / 2.0f, reach = 0.8f * std::min(cx, cy);
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x) {
      const float dx = x - cx, dy = y - cy, r = std::sqrt(dx * dx + dy * dy) / reach;
      const float scale = r < 1 ? 0.45f + 0.55f * r * r : 1; // magnified in the middle
      *xMap.at(x, y) = cx + dx * scale;
      *yMap.at(x, y) = cy + dy * scale;
    }
  Picture out(size);
  tour.stage("Through a lens")
    .highlight()
    .time("Remap_8u_C3R",
          [&] {
            return zoriRemap_8u_C3R(in.data(), size, in.step(), whole(size), xMap.data(), xMap.step(), yMap.data(),
                                    yMap.step(), out.data(), out.step(), size, ZORI_INTER_LINEAR);
          })
    .show(out);
}

} // namespace

void warpStages(Tour& tour)
{
  rotated(tour);
  perspective(tour);
  lens(tour);
}

} // namespace tour
