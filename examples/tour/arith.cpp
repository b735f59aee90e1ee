// Arithmetic, pixel by pixel.
#include "tour/tour.h"

namespace tour {

namespace {

void sumsAndProducts(Tour& tour)
{
  const Picture& in = tour.picture();
  Picture mirrored(tour.size()), out(tour.size());
  tour.stage("The mean of both sides")
    .time("Mirror_8u_C3R",
          [&] {
            return zoriMirror_8u_C3R(in.data(), in.step(), mirrored.data(), mirrored.step(), tour.size(),
                                     ZorAxsVertical);
          })
    .time("Add_8u_C3RSfs",
          [&] { // a scale factor of 1 halves the sum
            return zoriAdd_8u_C3RSfs(in.data(), in.step(), mirrored.data(), mirrored.step(), out.data(), out.step(),
                                     tour.size(), 1);
          })
    .show(out);

  tour.stage("Multiplied by itself")
    .time("MulScale_8u_C3R",
          [&] {
            return zoriMulScale_8u_C3R(in.data(), in.step(), in.data(), in.step(), out.data(), out.step(),
                                       tour.size());
          })
    .show(out);
}

void logic(Tour& tour)
{
  const Picture& in = tour.picture();
  Picture out(tour.size());
  tour.stage("Negative")
    .time("Not_8u_C3R", [&] { return zoriNot_8u_C3R(in.data(), in.step(), out.data(), out.step(), tour.size()); })
    .show(out);

  const Zor8u highest[3] = {0xc0, 0xc0, 0xc0};
  tour.stage("Two bits a channel")
    .time("AndC_8u_C3R",
          [&] { return zoriAndC_8u_C3R(in.data(), in.step(), highest, out.data(), out.step(), tour.size()); })
    .show(out);
}

// The picture over itself, some pixels to the side.
void blending(Tour& tour)
{
  const Picture& in = tour.picture();
  Picture out = displayed(in);
  const int aside = in.width() / 8;
  const ZorImgSize overlap = {in.width() - aside, in.height()};
  tour.stage("Double exposure")
    .time("AlphaCompC_8u_C3R",
          [&] {
            return zoriAlphaCompC_8u_C3R(in.data(), in.step(), 128, in.at(aside, 0), in.step(), 255, out.data(),
                                         out.step(), overlap, ZorAlphaOver);
          })
    .show(out);
}

void absoluteValues(Tour& tour)
{
  const Picture& in = tour.picture();
  const ZorImgSize size = tour.size();
  Picture out(size);
  {
    Image<Zor32f, 3> wide(size), distance(size);
    tour.stage("Distance from mid-grey")
      .time("Scale_8u32f_C3R",
            [&] { return zoriScale_8u32f_C3R(in.data(), in.step(), wide.data(), wide.step(), size, -1, 1); })
      .time("Abs_32f_C3R",
            [&] { return zoriAbs_32f_C3R(wide.data(), wide.step(), distance.data(), distance.step(), size); })
      .time("Scale_32f8u_C3R",
            [&] { return zoriScale_32f8u_C3R(distance.data(), distance.step(), out.data(), out.step(), size, 0, 1); })
      .show(out);
  }
  Image<Zor16s, 3> wide(size), folded(size);
  tour.stage("Folded in 16 bits")
    .time("Scale_8u16s_C3R",
          [&] { return zoriScale_8u16s_C3R(in.data(), in.step(), wide.data(), wide.step(), size); })
    .time("Abs_16s_C3R", [&] { return zoriAbs_16s_C3R(wide.data(), wide.step(), folded.data(), folded.step(), size); })
    .time("Scale_16s8u_C3R",
          [&] { return zoriScale_16s8u_C3R(folded.data(), folded.step(), out.data(), out.step(), size, ZorHintFast); })
    .show(out);
}

} // namespace

void arithStages(Tour& tour)
{
  sumsAndProducts(tour);
  logic(tour);
  blending(tour);
  absoluteValues(tour);
}

} // namespace tour
