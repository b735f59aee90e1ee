// Arithmetic, pixel by pixel.
#include "tour/tour.h"

#include "support/letters.h"

#include <algorithm>
#include <cmath>

namespace tour {

namespace {

// The scale factor s multiplies the exact result by 2^-s.
void brightnessAndContrast(Tour& tour)
{
  const Picture& in = tour.picture();
  Picture lower(tour.size()), out(tour.size());
  const Zor8u black[3] = {40, 40, 40}, slope[3] = {100, 100, 100};
  tour.stage("More contrast")
    .time("SubC_8u_C3RSfs",
          [&] { return zoriSubC_8u_C3RSfs(in.data(), in.step(), black, lower.data(), lower.step(), tour.size(), 0); })
    .time("MulC_8u_C3RSfs", // times 100 / 64
          [&] { return zoriMulC_8u_C3RSfs(lower.data(), lower.step(), slope, out.data(), out.step(), tour.size(), 6); })
    .show(out);

  const Zor8u light[3] = {250, 240, 220};
  tour.stage("Faded")
    .time("AddC_8u_C3RSfs", // half way to the light
          [&] { return zoriAddC_8u_C3RSfs(in.data(), in.step(), light, out.data(), out.step(), tour.size(), 1); })
    .show(out);
}

void bothSides(Tour& tour)
{
  const Picture& in = tour.picture();
  if (in.width() < 2) return; // there is no mirroring of a single column
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

  Picture above(tour.size()), below(tour.size());
  tour.stage("What differs between them")
    .time(
      "Sub_8u_C3RSfs", // negative differences become 0
      [&] {
        const ZorStatus status = zoriSub_8u_C3RSfs(mirrored.data(), mirrored.step(), in.data(), in.step(), above.data(),
                                                   above.step(), tour.size(), 0);
        if (status != ZorOk) return status;
        return zoriSub_8u_C3RSfs(in.data(), in.step(), mirrored.data(), mirrored.step(), below.data(), below.step(),
                                 tour.size(), 0);
      },
      2 * tour.pixels())
    .time("Or_8u_C3R", // one of the two is 0
          [&] {
            return zoriOr_8u_C3R(above.data(), above.step(), below.data(), below.step(), out.data(), out.step(),
                                 tour.size());
          })
    .show(out);
}

void products(Tour& tour)
{
  const Picture& in = tour.picture();
  Picture out(tour.size());
  tour.stage("Multiplied by itself")
    .time("MulScale_8u_C3R",
          [&] {
            return zoriMulScale_8u_C3R(in.data(), in.step(), in.data(), in.step(), out.data(), out.step(), tour.size());
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
    .highlight()
    .time("AlphaCompC_8u_C3R",
          [&] {
            return zoriAlphaCompC_8u_C3R(in.data(), in.step(), 128, in.at(aside, 0), in.step(), 255, out.data(),
                                         out.step(), overlap, ZorAlphaOver);
          })
    .show(out);
}

using Coloured = Image<Zor8u, 4>;

// How much of a dot a shape covers whose edge is this far away, inside being negative.
double covered(double distance) { return std::clamp(0.5 - distance, 0.0, 1.0); }

// Letters on a round-cornered plate through which what is below can be seen; alpha comes last.
Coloured logo(int scale)
{
  const example::Ink ink = {{255, 255, 255}, scale, true};
  const std::string name = "zori";
  const int pad = 6 * scale, width = example::textWidth(name, ink) + 2 * pad;
  Picture letters(width, example::letterHeight * scale + 2 * pad);
  const Zor8u plate[3] = {176, 36, 60};
  ZORI_CHECK(zoriSet_8u_C3R(plate, letters.data(), letters.step(), letters.size()));
  example::drawText(letters, pad, pad + scale, name, ink);

  Coloured out(letters.size());
  const int order[4] = {0, 1, 2, 3}; // channel 3 is not in the source: it takes the value
  ZORI_CHECK(zoriSwapChannels_8u_C3C4R(letters.data(), letters.step(), out.data(), out.step(), out.size(), order, 255));
  const double radius = pad, halfWidth = out.width() / 2.0, halfHeight = out.height() / 2.0;
  for (int y = 0; y < out.height(); ++y)
    for (int x = 0; x < out.width(); ++x) {
      const double dx = std::max(0.0, std::abs(x + 0.5 - halfWidth) - halfWidth + radius);
      const double dy = std::max(0.0, std::abs(y + 0.5 - halfHeight) - halfHeight + radius);
      const bool letter = out.at(x, y)[0] == 255;
      out.at(x, y)[3] = static_cast<Zor8u>((letter ? 255 : 150) * covered(std::hypot(dx, dy) - radius));
    }
  return out;
}

void compositions(Tour& tour)
{
  const Picture& in = tour.picture();
  Coloured under(tour.size()), out(tour.size());
  const int order[4] = {0, 1, 2, 3};
  const Coloured mark = logo(std::max(1, in.width() / 120));
  const int apart = in.width() / 30, x = in.width() - mark.width() - apart, y = apart;
  if (x >= 0 && y + mark.height() <= in.height())
    tour.stage("A logo with alpha")
      .highlight()
      .time("SwapChannels_8u_C3C4R",
            [&] {
              return zoriSwapChannels_8u_C3C4R(in.data(), in.step(), under.data(), under.step(), tour.size(), order,
                                               255);
            })
      .time("Copy_8u_C4R",
            [&] { return zoriCopy_8u_C4R(under.data(), under.step(), out.data(), out.step(), tour.size()); })
      .time(
        "AlphaComp_8u_AC4R",
        [&] {
          return zoriAlphaComp_8u_AC4R(mark.data(), mark.step(), under.at(x, y), under.step(), out.at(x, y), out.step(),
                                       mark.size(), ZorAlphaOver);
        },
        static_cast<long long>(mark.width()) * mark.height())
      .show(out);

  // the letters are as wide as the picture; where they stand in the key colour, the picture shows through
  Picture sheet(tour.size()), seen(tour.size());
  const Zor8u paper[3] = {236, 230, 214}, key[3] = {0, 255, 0};
  ZORI_CHECK(zoriSet_8u_C3R(paper, sheet.data(), sheet.step(), sheet.size()));
  example::Ink ink = {{key[0], key[1], key[2]}, 1, true};
  const std::string name = "zori";
  ink.scale = std::max(1, in.width() / (example::textWidth(name, ink) + 4));
  example::drawText(sheet, (in.width() - example::textWidth(name, ink)) / 2, (in.height() - 9 * ink.scale) / 2, name,
                    ink);
  tour.stage("A colour key")
    .time("CompColorKey_8u_C3R",
          [&] {
            return zoriCompColorKey_8u_C3R(sheet.data(), sheet.step(), in.data(), in.step(), seen.data(), seen.step(),
                                           tour.size(), key);
          })
    .show(seen);
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
    .time("Scale_8u16s_C3R", [&] { return zoriScale_8u16s_C3R(in.data(), in.step(), wide.data(), wide.step(), size); })
    .time("Abs_16s_C3R", [&] { return zoriAbs_16s_C3R(wide.data(), wide.step(), folded.data(), folded.step(), size); })
    .time("Scale_16s8u_C3R",
          [&] { return zoriScale_16s8u_C3R(folded.data(), folded.step(), out.data(), out.step(), size, ZorHintFast); })
    .show(out);
}

} // namespace

void arithStages(Tour& tour)
{
  brightnessAndContrast(tour);
  bothSides(tour);
  products(tour);
  logic(tour);
  blending(tour);
  compositions(tour);
  absoluteValues(tour);
}

} // namespace tour
