// Data movement: conversions, planes and channels, regions, turns and tiles, fills and copies under masks, bits.
#include "tour/tour.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace tour {

namespace {

bool identical(const Picture& a, const Picture& b)
{
  for (int y = 0; y < a.height(); ++y)
    if (std::memcmp(a.at(0, y), b.at(0, y), static_cast<std::size_t>(a.width()) * 3) != 0) return false;
  return true;
}

const char* comparedWith(const Picture& a, const Picture& b) { return identical(a, b) ? "identical" : "not identical"; }

void typesThereAndBack(Tour& tour)
{
  const Picture& in = tour.picture();
  Picture back(tour.size());
  {
    Image<Zor32f, 3> wide(tour.size());
    tour.stage("Float and back")
      .time("Convert_8u32f_C3R",
            [&] { return zoriConvert_8u32f_C3R(in.data(), in.step(), wide.data(), wide.step(), tour.size()); })
      .time("Convert_32f8u_C3R",
            [&] {
              return zoriConvert_32f8u_C3R(wide.data(), wide.step(), back.data(), back.step(), tour.size(),
                                           ZorRoundNearestEven);
            })
      .note(comparedWith(in, back))
      .show(back);
  }
  Image<Zor16u, 3> wide(tour.size());
  tour.stage("16 bits and back")
    .time("Scale_8u16u_C3R",
          [&] { return zoriScale_8u16u_C3R(in.data(), in.step(), wide.data(), wide.step(), tour.size()); })
    .time("Scale_16u8u_C3R",
          [&] {
            return zoriScale_16u8u_C3R(wide.data(), wide.step(), back.data(), back.step(), tour.size(),
                                       ZorHintAccurate);
          })
    .note(comparedWith(in, back));
}

void channels(Tour& tour)
{
  const Picture& in = tour.picture();
  Picture out(tour.size());

  // the pointers address a channel, so that each third of the picture gets another one
  const Zor8u black[3] = {0, 0, 0};
  ZORI_CHECK(zoriSet_8u_C3R(black, out.data(), out.step(), tour.size()));
  tour.stage("A channel for each third")
    .time("Copy_8u_C3CR",
          [&] {
            for (int k = 0; k < 3; ++k) {
              const int left = in.width() * k / 3, right = in.width() * (k + 1) / 3;
              if (right == left) continue;
              const ZorImgSize third = {right - left, in.height()};
              const ZorStatus status =
                zoriCopy_8u_C3CR(in.at(left, 0) + k, in.step(), out.at(left, 0) + k, out.step(), third);
              if (status != ZorOk) return status;
            }
            return ZorOk;
          })
    .show(out);

  // three planes, merged again with the pointers some pixels apart
  Grey red(tour.size()), green(tour.size()), blue(tour.size());
  Zor8u* const planes[3] = {red.data(), green.data(), blue.data()};
  const int apart = (in.width() - 1) / 50;
  const ZorImgSize overlap = {in.width() - 2 * apart, in.height()};
  const Zor8u* const shifted[3] = {red.at(2 * apart, 0), green.at(apart, 0), blue.data()};
  out = displayed(in);
  tour.stage("Planes, shifted and merged")
    .time("Copy_8u_C3P3R", [&] { return zoriCopy_8u_C3P3R(in.data(), in.step(), planes, red.step(), tour.size()); })
    .time("Copy_8u_P3C3R",
          [&] { return zoriCopy_8u_P3C3R(shifted, red.step(), out.at(apart, 0), out.step(), overlap); })
    .show(out);

  const int reverse[3] = {2, 1, 0};
  tour.stage("Channels in reverse")
    .time("SwapChannels_8u_C3R",
          [&] { return zoriSwapChannels_8u_C3R(in.data(), in.step(), out.data(), out.step(), tour.size(), reverse); })
    .show(out);

  tour.stage("One channel filled")
    .time("Copy_8u_C3R", [&] { return zoriCopy_8u_C3R(in.data(), in.step(), out.data(), out.step(), tour.size()); })
    .time("Set_8u_C3CR", [&] { return zoriSet_8u_C3CR(64, out.data() + 2, out.step(), tour.size()); })
    .show(out);
}

void regions(Tour& tour)
{
  const Picture& in = tour.picture();
  Picture out = displayed(in);
  const int across = 4, down = 3;
  const ZorImgSize block = {in.width() / across, in.height() / down};
  if (block.width == 0 || block.height == 0) return;
  tour.stage("Blocks in reverse")
    .time("Copy_8u_C3R",
          [&] {
            for (int i = 0; i < across * down; ++i) {
              const int other = across * down - 1 - i;
              const Zor8u* from = in.at(other % across * block.width, other / across * block.height);
              Zor8u* to = out.at(i % across * block.width, i / across * block.height);
              if (const ZorStatus status = zoriCopy_8u_C3R(from, in.step(), to, out.step(), block)) return status;
            }
            return ZorOk;
          })
    .show(out);
}

void places(Tour& tour)
{
  const Picture& in = tour.picture();
  const ZorImgSize size = tour.size();
  Picture turned(size.height, size.width);
  tour.stage("Rows for columns")
    .time("Transpose_8u_C3R",
          [&] { return zoriTranspose_8u_C3R(in.data(), in.step(), turned.data(), turned.step(), size); })
    .show(turned);

  Picture upright(turned.size());
  if (turned.width() > 1) // there is no mirroring of a single column
    tour.stage("A quarter turn")
      .time("Transpose_8u_C3R",
            [&] { return zoriTranspose_8u_C3R(in.data(), in.step(), turned.data(), turned.step(), size); })
      .time("Mirror_8u_C3R",
            [&] {
              return zoriMirror_8u_C3R(turned.data(), turned.step(), upright.data(), upright.step(), turned.size(),
                                       ZorAxsVertical);
            })
      .show(upright);

  // the middle of the picture, with a border of its edge pixels around it
  Picture out(size);
  const int left = size.width / 5, top = size.height / 5;
  const ZorImgSize middle = {size.width - 2 * left, size.height - 2 * top};
  tour.stage("A border of edge pixels")
    .time("CopyReplicateBorder_8u_C3R",
          [&] {
            return zoriCopyReplicateBorder_8u_C3R(in.at(left, top), in.step(), middle, out.data(), out.step(), size,
                                                  top, left);
          })
    .show(out);
}

void tiles(Tour& tour)
{
  const Picture& in = tour.picture();
  const ZorImgSize size = tour.size(), tile = {size.width / 3, size.height / 3};
  if (tile.width < 2 || tile.height < 2) return;
  const Zor8u* middle = in.at(tile.width, tile.height);

  // the middle third and its three mirror images, and a border around the four
  Picture out(size);
  const int left = (size.width - 2 * tile.width) / 2, top = (size.height - 2 * tile.height) / 2;
  const ZorImgSize four = {2 * tile.width, 2 * tile.height};
  const long long tilePixels = static_cast<long long>(tile.width) * tile.height;
  const auto place = [&](int column, int row) { return out.at(left + column * tile.width, top + row * tile.height); };
  tour.stage("Mirrored tiles")
    .time(
      "Copy_8u_C3R", [&] { return zoriCopy_8u_C3R(middle, in.step(), place(0, 0), out.step(), tile); }, tilePixels)
    .time(
      "Mirror_8u_C3R",
      [&] {
        ZorStatus status = zoriMirror_8u_C3R(middle, in.step(), place(1, 0), out.step(), tile, ZorAxsVertical);
        if (status == ZorOk)
          status = zoriMirror_8u_C3R(middle, in.step(), place(0, 1), out.step(), tile, ZorAxsHorizontal);
        if (status == ZorOk) status = zoriMirror_8u_C3R(middle, in.step(), place(1, 1), out.step(), tile, ZorAxsBoth);
        return status;
      },
      3 * tilePixels)
    .time(
      "CopyReplicateBorder_8u_C3IR", // writes what lies outside the four
      [&] { return zoriCopyReplicateBorder_8u_C3IR(place(0, 0), out.step(), four, size, top, left); },
      tour.pixels() - 4 * tilePixels)
    .show(out);

  // four bytes are one pixel of 32 bits, too
  Image<Zor8u, 4> padded(size);
  Image<Zor32s, 1> wrapped(size);
  const int order[4] = {0, 1, 2, 3};
  tour.stage("Wrapped around")
    .time(
      "SwapChannels_8u_C3C4R",
      [&] { return zoriSwapChannels_8u_C3C4R(in.data(), in.step(), padded.data(), padded.step(), size, order, 255); })
    .time("CopyWrapBorder_32s_C1R",
          [&] {
            return zoriCopyWrapBorder_32s_C1R(reinterpret_cast<const Zor32s*>(padded.at(tile.width, tile.height)),
                                              padded.step(), tile, wrapped.data(), wrapped.step(), size,
                                              tile.height / 2, tile.width / 2);
          })
    .time("Copy_8u_AC4C3R",
          [&] {
            return zoriCopy_8u_AC4C3R(reinterpret_cast<const Zor8u*>(wrapped.data()), wrapped.step(), out.data(),
                                      out.step(), size);
          })
    .show(out);
}

// An ellipse in the middle, row by row.
Grey ellipse(ZorImgSize size)
{
  Grey mask(size);
  ZORI_CHECK(zoriSet_8u_C1R(0, mask.data(), mask.step(), size));
  for (int y = 0; y < size.height; ++y) {
    const double v = (2.0 * y + 1) / size.height - 1;
    const int half = static_cast<int>(size.width * 0.40 * std::sqrt(std::max(0.0, 1 - v * v / 0.64)));
    if (half > 0)
      ZORI_CHECK(zoriSet_8u_C1R(255, mask.at(size.width / 2 - half, y), mask.step(), ZorImgSize{2 * half, 1}));
  }
  return mask;
}

void masks(Tour& tour)
{
  const Picture& in = tour.picture();
  const Grey& grey = tour.grey();
  Picture out(tour.size());
  const Grey mask = ellipse(tour.size());
  tour.stage("Colour under a mask")
    .highlight()
    .time("Dup_8u_C1C3R",
          [&] { return zoriDup_8u_C1C3R(grey.data(), grey.step(), out.data(), out.step(), tour.size()); })
    .time("Copy_8u_C3MR",
          [&] {
            return zoriCopy_8u_C3MR(in.data(), in.step(), out.data(), out.step(), tour.size(), mask.data(),
                                    mask.step());
          })
    .show(out);

  const int bitStep = (in.width() + 7) / 8;
  std::vector<Zor8u> bits(static_cast<std::size_t>(bitStep) * in.height());
  Grey dots(tour.size());
  tour.stage("One bit a pixel (detail)")
    .highlight()
    .time("Convert_8u1u_C1R",
          [&] { return zoriConvert_8u1u_C1R(grey.data(), grey.step(), bits.data(), bitStep, 0, tour.size(), 128); })
    .time("Convert_1u8u_C1R",
          [&] { return zoriConvert_1u8u_C1R(bits.data(), bitStep, 0, dots.data(), dots.step(), tour.size()); })
    .show(dots, View::detail);

  const Zor8u dark[3] = {28, 32, 84}, light[3] = {255, 214, 150};
  tour.stage("Two inks under that mask")
    .time("Set_8u_C3R", [&] { return zoriSet_8u_C3R(dark, out.data(), out.step(), tour.size()); })
    .time("Set_8u_C3MR",
          [&] { return zoriSet_8u_C3MR(light, out.data(), out.step(), tour.size(), dots.data(), dots.step()); })
    .show(out);
}

} // namespace

void dataStages(Tour& tour)
{
  typesThereAndBack(tour);
  channels(tour);
  regions(tour);
  places(tour);
  tiles(tour);
  masks(tour);
}

} // namespace tour
