// Neighbourhood filters: smoothing, edges, sharpening, kernels of one's own.
#include "tour/tour.h"

namespace tour {

namespace {

// Filters read around their region: here it lies inside a larger image, which repeats the picture's edge pixels.
constexpr int margin = 16;

template <int N> class Framed {
public:
  explicit Framed(ZorImgSize inner) : whole(inner.width + 2 * margin, inner.height + 2 * margin) {}
  const Zor8u* data() const { return whole.at(margin, margin); }
  int step() const { return whole.step(); }

  Image<Zor8u, N> whole;
};

void fineFilters(Tour& tour, Framed<3>& framed)
{
  const Picture& in = tour.picture();
  Picture out(tour.size());
  tour.stage("Gaussian blur (detail)")
    .time("CopyReplicateBorder_8u_C3R",
          [&] {
            return zoriCopyReplicateBorder_8u_C3R(in.data(), in.step(), in.size(), framed.whole.data(), framed.step(),
                                                  framed.whole.size(), margin, margin);
          })
    .time("FilterGauss_8u_C3R",
          [&] {
            return zoriFilterGauss_8u_C3R(framed.data(), framed.step(), out.data(), out.step(), in.size(), ZorMask5x5);
          })
    .show(out, View::detail);

  tour.stage("Sharpened (detail)")
    .time("FilterSharpen_8u_C3R",
          [&] { return zoriFilterSharpen_8u_C3R(framed.data(), framed.step(), out.data(), out.step(), in.size()); })
    .show(out, View::detail);
}

// Gradients and second derivatives have a sign: they are 16-bit images until they are shown.
void edges(Tour& tour, Framed<1>& framed)
{
  const Grey& in = tour.grey();
  const ZorImgSize size = in.size();
  Image<Zor16s, 1> down(size), across(size), sum(size);
  Grey out(size);
  tour.stage("Edges, by Sobel")
    .highlight()
    .time("CopyReplicateBorder_8u_C1R",
          [&] {
            return zoriCopyReplicateBorder_8u_C1R(in.data(), in.step(), size, framed.whole.data(), framed.step(),
                                                  framed.whole.size(), margin, margin);
          })
    .time("FilterSobelHoriz_8u16s_C1R",
          [&] {
            return zoriFilterSobelHoriz_8u16s_C1R(framed.data(), framed.step(), down.data(), down.step(), size,
                                                  ZorMask3x3);
          })
    .time("FilterSobelVert_8u16s_C1R",
          [&] {
            return zoriFilterSobelVert_8u16s_C1R(framed.data(), framed.step(), across.data(), across.step(), size,
                                                 ZorMask3x3);
          })
    .time(
      "Abs_16s_C1IR",
      [&] {
        const ZorStatus status = zoriAbs_16s_C1IR(down.data(), down.step(), size);
        return status == ZorOk ? zoriAbs_16s_C1IR(across.data(), across.step(), size) : status;
      },
      2 * tour.pixels())
    .time("Add_16s_C1RSfs",
          [&] {
            return zoriAdd_16s_C1RSfs(down.data(), down.step(), across.data(), across.step(), sum.data(), sum.step(),
                                      size, 0);
          })
    .time("Convert_16s8u_C1R", // above 255 it is 255
          [&] { return zoriConvert_16s8u_C1R(sum.data(), sum.step(), out.data(), out.step(), size); })
    .show(out);

  // zero in the middle of the scale: (value + 128 * 2^scale) * 2^-scale
  const auto aroundGrey = [&](Image<Zor16s, 1>& values, int scale, Grey& to) {
    const ZorStatus status = zoriAddC_16s_C1RSfs(values.data(), values.step(), static_cast<Zor16s>(128 << scale),
                                                 sum.data(), sum.step(), size, scale);
    return status == ZorOk ? zoriConvert_16s8u_C1R(sum.data(), sum.step(), to.data(), to.step(), size) : status;
  };

  // the picture as a relief: its slope to the right is red, its slope downwards green
  Grey green(size), blue(size);
  Picture relief(size);
  const Zor8u* const planes[3] = {out.data(), green.data(), blue.data()};
  ZORI_CHECK(zoriSet_8u_C1R(255, blue.data(), blue.step(), size));
  Stage& slopes = tour.stage("Slopes, by Scharr");
  slopes
    .time(
      "FilterScharrVert_8u16s_C1R",
      [&] { return zoriFilterScharrVert_8u16s_C1R(framed.data(), framed.step(), across.data(), across.step(), size); })
    .time("FilterScharrHoriz_8u16s_C1R", [&] {
      return zoriFilterScharrHoriz_8u16s_C1R(framed.data(), framed.step(), down.data(), down.step(), size);
    });
  ZORI_CHECK(aroundGrey(across, 2, out));
  ZORI_CHECK(aroundGrey(down, 2, green));
  ZORI_CHECK(zoriCopy_8u_P3C3R(planes, out.step(), relief.data(), relief.step(), size));
  slopes.show(relief);

  Stage& curvature = tour.stage("Curvature, by Laplace");
  curvature.time("FilterLaplace_8u16s_C1R", [&] {
    return zoriFilterLaplace_8u16s_C1R(framed.data(), framed.step(), down.data(), down.step(), size, ZorMask5x5);
  });
  ZORI_CHECK(aroundGrey(down, 2, out));
  curvature.show(out);
}

// Windows and kernels of any size; the anchor says which of their pixels is the one at hand.
void wideFilters(Tour& tour, const Framed<3>& framed)
{
  const ZorImgSize size = tour.size();
  Picture out(size);
  const ZorImgSize window = {2 * margin - 1, 2 * margin - 1};
  const ZorImgPoint centre = {margin - 1, margin - 1};
  tour.stage("The mean of 31 x 31")
    .time(
      "FilterBox_8u_C3R",
      [&] { return zoriFilterBox_8u_C3R(framed.data(), framed.step(), out.data(), out.step(), size, window, centre); })
    .show(out);
}

void ownKernels(Tour& tour, const Framed<3>& framed)
{
  const ZorImgSize size = tour.size();
  Picture out(size);
  // light from the upper left; the elements add up to 1, so that flat areas keep their colour
  const Zor32s emboss[9] = {
    2, 1,  0,  //
    1, 1,  -1, //
    0, -1, -2,
  };
  tour.stage("Embossed (detail)")
    .time("Filter_8u_C3R",
          [&] {
            return zoriFilter_8u_C3R(framed.data(), framed.step(), out.data(), out.step(), size, emboss,
                                     ZorImgSize{3, 3}, ZorImgPoint{1, 1}, 1);
          })
    .show(out, View::detail);

  // a camera that moved while its shutter closed
  constexpr int length = 2 * margin - 1;
  Zor32f path[length];
  for (int i = 0; i < length; ++i) path[i] = 2.0f * (i + 1) / (length * (length + 1));
  tour.stage("Moved while exposed")
    .time("Filter32f_8u_C3R",
          [&] {
            return zoriFilter32f_8u_C3R(framed.data(), framed.step(), out.data(), out.step(), size, path,
                                        ZorImgSize{length, 1}, ZorImgPoint{length / 2, 0});
          })
    .show(out);
}

} // namespace

void filterStages(Tour& tour)
{
  Framed<3> colours(tour.size());
  Framed<1> greys(tour.size());
  fineFilters(tour, colours);
  edges(tour, greys);
  wideFilters(tour, colours);
  ownKernels(tour, colours);
}

} // namespace tour
