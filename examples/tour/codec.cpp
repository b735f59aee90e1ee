// What codecs of pictures are made of: blocks of cosines, coarsely rounded, and the subbands of a wavelet.
#include "tour/tour.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace tour {

namespace {

using Plane = example::Image<Zor32f, 1>;
using Block = std::array<Zor16s, 64>;

// The grey picture with its edges repeated around it.
Grey framed(const Grey& grey, ZorImgSize size, int margin)
{
  Grey out(size);
  ZORI_CHECK(zoriCopyReplicateBorder_8u_C1R(grey.data(), grey.step(), grey.size(), out.data(), out.step(), size, margin,
                                            margin));
  return out;
}

// Coefficients are rounded to multiples of a step that grows along the zigzag, from low frequencies to high ones.
constexpr int quantum(int i) { return 10 + 2 * i; }

// Returns how many are left.
int quantise(Block& scan)
{
  int left = 0;
  for (int i = 0; i < 64; ++i) {
    const int q = quantum(i), level = (std::abs(scan[i]) + q / 2) / q;
    left += level != 0;
    scan[i] = static_cast<Zor16s>(scan[i] < 0 ? -level * q : level * q);
  }
  return left;
}

void blockStage(Tour& tour)
{
  const ZorImgSize size = tour.size();
  const ZorImgSize whole = {(size.width + 7) / 8 * 8, (size.height + 7) / 8 * 8};
  const Grey source = framed(tour.grey(), whole, 0);
  Grey back(whole);
  const int across = whole.width / 8, count = across * (whole.height / 8);
  std::vector<Block> blocks(static_cast<std::size_t>(count)), scans(blocks.size());
  const auto each = [&](auto work) {
    ZorStatus status = ZorOk;
    for (int i = 0; i < count && status == ZorOk; ++i) status = work(i % across * 8, i / across * 8, i);
    return status;
  };

  Stage& stage = tour.stage("As coarse blocks of cosines");
  stage
    .time("DCT8x8FwdLS_8u16s_C1R",
          [&] {
            return each([&](int x, int y, int i) {
              return zoriDCT8x8FwdLS_8u16s_C1R(source.at(x, y), source.step(), blocks[i].data(), -128);
            });
          })
    .time("ZigzagFwd8x8_16s_C1", [&] {
      return each([&](int, int, int i) { return zoriZigzagFwd8x8_16s_C1(blocks[i].data(), scans[i].data()); });
    });
  long long left = 0;
  for (Block& scan : scans) left += quantise(scan);
  stage
    .time(
      "ZigzagInv8x8_16s_C1",
      [&] { return each([&](int, int, int i) { return zoriZigzagInv8x8_16s_C1(scans[i].data(), blocks[i].data()); }); })
    .time("DCT8x8InvLSClip_16s8u_C1R", [&] {
      return each([&](int x, int y, int i) {
        return zoriDCT8x8InvLSClip_16s8u_C1R(blocks[i].data(), back.at(x, y), back.step(), 128, 0, 255);
      });
    });
  Grey shown(size);
  ZORI_CHECK(zoriCopy_8u_C1R(back.data(), back.step(), shown.data(), shown.step(), size));
  char note[80];
  std::snprintf(note, sizeof note, "%.1f %% of the coefficients left", 100.0 * left / (64.0 * count));
  stage.note(note).show(shown, View::detail);
}

// The orthonormal filters of four taps, and a state of them.
using State = std::unique_ptr<ZorWtFwdState, ZorStatus (*)(ZorWtFwdState*)>;
State fourTaps()
{
  const double r = std::sqrt(3.0), d = 4 * std::sqrt(2.0);
  const Zor32f low[4] = {static_cast<Zor32f>((1 + r) / d), static_cast<Zor32f>((3 + r) / d),
                         static_cast<Zor32f>((3 - r) / d), static_cast<Zor32f>((1 - r) / d)};
  const Zor32f high[4] = {low[3], -low[2], low[1], -low[0]};
  ZorWtFwdState* made = nullptr;
  ZORI_CHECK(zoriWTFwdInitAlloc_32f_C1R(&made, low, 4, 2, high, 4, 2));
  return {made, zoriWTFwdFree_32f_C1R};
}

void waveletStage(Tour& tour)
{
  const ZorImgSize size = tour.size(), half = {(size.width + 1) / 2, (size.height + 1) / 2};
  constexpr int margin = 1; // the filters reach one pixel beyond the image on each side
  const ZorImgSize around = {2 * half.width + 2 * margin, 2 * half.height + 2 * margin};
  const Grey edges = framed(tour.grey(), around, margin);
  Plane plane(around), ll(half), hl(half), lh(half), hh(half);
  ZORI_CHECK(zoriConvert_8u32f_C1R(edges.data(), edges.step(), plane.data(), plane.step(), around));
  const State state = fourTaps();
  int bytes = 0;
  ZORI_CHECK(zoriWTFwdGetBufSize_C1R(state.get(), &bytes));
  std::vector<Zor8u> buffer(static_cast<std::size_t>(bytes));

  Stage& stage = tour.stage("One level of a wavelet");
  stage.time("WTFwd_32f_C1R", [&] {
    return zoriWTFwd_32f_C1R(plane.at(margin, margin), plane.step(), ll.data(), ll.step(), hl.data(), hl.step(),
                             lh.data(), lh.step(), hh.data(), hh.step(), half, state.get(), buffer.data());
  });

  // the four side by side: the small picture, and the details around the middle grey
  const ZorImgSize sheet = {2 * half.width, 2 * half.height};
  Grey all(sheet), shown(size);
  const auto place = [&](const Plane& band, int x, int y, Zor32f least, Zor32f most) {
    ZORI_CHECK(zoriScale_32f8u_C1R(band.data(), band.step(), all.at(x, y), all.step(), half, least, most));
  };
  place(ll, 0, 0, 0, 510); // the low-pass filter doubles what is constant along both axes
  place(lh, half.width, 0, -40, 40);
  place(hl, 0, half.height, -40, 40);
  place(hh, half.width, half.height, -40, 40);
  ZORI_CHECK(zoriCopy_8u_C1R(all.data(), all.step(), shown.data(), shown.step(), size));
  stage.note("details around the small picture").show(shown);
}

} // namespace

void codecStages(Tour& tour)
{
  blockStage(tour);
  waveletStage(tour);
}

} // namespace tour
