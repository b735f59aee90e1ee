// Resizing: a thumbnail made by every interpolation, and one magnified by every interpolation.
#include "tour/tour.h"

#include <algorithm>
#include <string>

namespace tour {

namespace {

constexpr int zoom = 8;

struct Way {
  const char* name;
  int interpolation;
};

} // namespace

void resizeStages(Tour& tour)
{
  const Picture& in = tour.picture();
  const ZorImgSize size = tour.size();
  const ZorImgRect whole = {0, 0, size.width, size.height};

  // the thumbnail: the mean of the pixels under each of its own
  const double small = std::min(1.0, 96.0 / std::max(size.width, size.height));
  Picture thumbnail(std::max(1, static_cast<int>(size.width * small + 1e-7)),
                    std::max(1, static_cast<int>(size.height * small + 1e-7)));
  tour.stage("A thumbnail").time("Resize_8u_C3R", [&] {
    return zoriResize_8u_C3R(in.data(), size, in.step(), whole, thumbnail.data(), thumbnail.step(), thumbnail.size(),
                             small, small, ZORI_INTER_SUPER);
  });

  // the same by every interpolation, eight times as large: strips of their middles side by side, pixel by pixel
  constexpr Way makers[] = {{"nearest", ZORI_INTER_NN},
                            {"linear", ZORI_INTER_LINEAR},
                            {"cubic", ZORI_INTER_CUBIC},
                            {"Lanczos", ZORI_INTER_LANCZOS},
                            {"supersampling", ZORI_INTER_SUPER}};
  constexpr int makerCount = 5;
  const ZorImgSize part = {std::min(thumbnail.width(), 8), std::min(thumbnail.height(), 27)};
  const ZorImgRect centre = {(thumbnail.width() - part.width) / 2, (thumbnail.height() - part.height) / 2, part.width,
                             part.height};
  Picture made(part.width * zoom * makerCount, part.height * zoom);
  Stage& thumbnails = tour.stage("Thumbnails made five ways");
  std::string makersInOrder;
  for (int k = 0; k < makerCount; ++k) {
    Picture reduced(thumbnail.width(), thumbnail.height());
    thumbnails.time(std::string("Resize_8u_C3R ") + makers[k].name, [&] {
      return zoriResize_8u_C3R(in.data(), size, in.step(), whole, reduced.data(), reduced.step(), reduced.size(), small,
                               small, makers[k].interpolation);
    });
    zoriResize_8u_C3R(reduced.data(), reduced.size(), reduced.step(), centre, made.at(k * part.width * zoom, 0),
                      made.step(), {part.width * zoom, part.height * zoom}, zoom, zoom, ZORI_INTER_NN);
    makersInOrder += (k ? ", " : "") + std::string(makers[k].name);
  }
  thumbnails.note(makersInOrder).show(made, View::detail);

  // the middle of the first, eight times as large by every interpolation that magnifies
  constexpr Way ways[] = {{"nearest", ZORI_INTER_NN},
                          {"linear", ZORI_INTER_LINEAR},
                          {"cubic", ZORI_INTER_CUBIC},
                          {"Lanczos", ZORI_INTER_LANCZOS}};
  constexpr int count = 4;
  const ZorImgSize piece = {std::min(thumbnail.width(), 10), std::min(thumbnail.height(), 27)};
  const ZorImgRect middle = {(thumbnail.width() - piece.width) / 2, (thumbnail.height() - piece.height) / 2,
                             piece.width, piece.height};
  const ZorImgSize strip = {piece.width * zoom, piece.height * zoom};
  Picture side(strip.width * count, strip.height);
  Stage& stage = tour.stage("Eight times as large");
  std::string order;
  for (int k = 0; k < count; ++k) {
    stage.time(
      std::string("Resize_8u_C3R ") + ways[k].name,
      [&] {
        return zoriResize_8u_C3R(thumbnail.data(), thumbnail.size(), thumbnail.step(), middle,
                                 side.at(k * strip.width, 0), side.step(), strip, zoom, zoom, ways[k].interpolation);
      },
      static_cast<long long>(strip.width) * strip.height);
    order += (k ? ", " : "") + std::string(ways[k].name);
  }
  stage.note(order).show(side, View::detail);
}

} // namespace tour
