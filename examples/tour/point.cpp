// Point decisions: thresholds and comparisons, curves, palettes, histograms.
#include "tour/tour.h"

#include <algorithm>
#include <functional>

namespace tour {

namespace {

void blackAndWhite(Tour& tour)
{
  const Grey& grey = tour.grey();
  Grey mask(tour.size());
  Zor8u threshold = 0;
  tour.stage("Black and white")
    .time("ComputeThreshold_Otsu_8u_C1R",
          [&] { return zoriComputeThreshold_Otsu_8u_C1R(grey.data(), grey.step(), tour.size(), &threshold); })
    .time("CompareC_8u_C1R",
          [&] {
            return zoriCompareC_8u_C1R(grey.data(), grey.step(), threshold, mask.data(), mask.step(), tour.size(),
                                       ZorCmpGreater);
          })
    .note("at " + std::to_string(threshold))
    .show(mask);
}

void curves(Tour& tour)
{
  const Picture& in = tour.picture();
  Picture out(tour.size());
  const Zor32s nodes[5] = {0, 64, 128, 192, 256};
  const Zor32s red[5] = {0, 44, 140, 222, 255}, green[5] = {0, 56, 130, 206, 255}, blue[5] = {48, 88, 124, 168, 214};
  const Zor32s* const levels[3] = {nodes, nodes, nodes};
  const Zor32s* const values[3] = {red, green, blue};
  const int counts[3] = {5, 5, 5};
  tour.stage("A curve for each channel")
    .time("LUT_Cubic_8u_C3R",
          [&] {
            return zoriLUT_Cubic_8u_C3R(in.data(), in.step(), out.data(), out.step(), tour.size(), values, levels,
                                        counts);
          })
    .show(out);
}

void falseColours(Tour& tour)
{
  // brightness 0..255 from night blue to white, in five even pieces
  constexpr int pieces = 5, piece = 255 / pieces;
  const int stops[pieces + 1][3] = {{8, 8, 48},     {88, 20, 128},  {204, 44, 92},
                                    {248, 132, 36}, {252, 224, 96}, {255, 255, 255}};
  Zor8u palette[256 * 3];
  for (int i = 0; i < 256; ++i) {
    const int from = std::min(i / piece, pieces - 1), part = i - from * piece;
    for (int k = 0; k < 3; ++k)
      palette[3 * i + k] = static_cast<Zor8u>(stops[from][k] + (stops[from + 1][k] - stops[from][k]) * part / piece);
  }
  const Grey& grey = tour.grey();
  Picture out(tour.size());
  tour.stage("False colours")
    .highlight()
    .time("LUTPalette_8u24u_C1R",
          [&] {
            return zoriLUTPalette_8u24u_C1R(grey.data(), grey.step(), out.data(), out.step(), tour.size(), palette, 8);
          })
    .show(out);
}

void histogram(Tour& tour)
{
  const Picture& in = tour.picture();
  constexpr int bins = 256, barWidth = 2, chartHeight = 340, foot = 1;
  Zor32s counts[3][bins], levels[3][bins + 1];
  Zor32s* const countsOf[3] = {counts[0], counts[1], counts[2]};
  Zor32s* const levelsOf[3] = {levels[0], levels[1], levels[2]};
  const int levelCounts[3] = {bins + 1, bins + 1, bins + 1}, lowest[3] = {0, 0, 0}, highest[3] = {256, 256, 256};
  Stage& stage = tour.stage("Histogram");
  stage.time("HistogramEven_8u_C3R", [&] {
    return zoriHistogramEven_8u_C3R(in.data(), in.step(), tour.size(), countsOf, levelsOf, levelCounts, lowest,
                                    highest);
  });

  // the bars of a channel are drawn in that channel alone, so that colours add where bars overlap
  Picture chart(bins * barWidth, chartHeight);
  const Zor8u ground[3] = {24, 24, 28};
  ZORI_CHECK(zoriSet_8u_C3R(ground, chart.data(), chart.step(), chart.size()));
  for (int k = 0; k < 3; ++k) {
    // a few bins may tower over all others (flat areas, ends of the range); they are cut off
    Zor32s ranked[bins];
    std::copy_n(counts[k], bins, ranked);
    std::nth_element(ranked, ranked + 8, ranked + bins, std::greater<>());
    const int most = std::max(1, ranked[8]);
    for (int i = 0; i < bins; ++i) {
      const int height =
        foot + static_cast<int>(std::min(1.0, static_cast<double>(counts[k][i]) / most) * (chartHeight - foot));
      ZORI_CHECK(zoriSet_8u_C3CR(214, chart.at(i * barWidth, chartHeight - height) + k, chart.step(),
                                 ZorImgSize{barWidth, height}));
    }
  }
  stage.show(chart);
}

} // namespace

void pointStages(Tour& tour)
{
  blackAndWhite(tour);
  curves(tour);
  falseColours(tour);
  histogram(tour);
}

} // namespace tour
