// A sheet of pictures with captions: fills, copies of regions, and letters under masks.
#include "support/contact_sheet.h"

#include "support/letters.h"

#include <algorithm>
#include <cmath>

namespace example {

namespace {

constexpr int columns = 4, margin = 32, gap = 24, tileWidth = 336, captionLine = 16, captionRoom = 3 * captionLine + 10;
constexpr int headRoom = 84;

const Zor8u paper[3] = {27, 29, 34}, frame[3] = {52, 55, 63}, mat[3] = {18, 19, 22};
const Ink headInk = {{240, 236, 226}, 3, false}, subInk = {{150, 154, 164}, 1, false};
const Ink titleInk = {{236, 233, 225}, 1, true}, detailInk = {{150, 170, 198}, 1, false};

// The middle of the picture, dot by dot.
Picture middle(const Picture& picture, ZorImgSize box)
{
  Picture out(std::min(picture.width(), box.width), std::min(picture.height(), box.height));
  const int x = (picture.width() - out.width()) / 2, y = (picture.height() - out.height()) / 2;
  ZORI_CHECK(zoriCopy_8u_C3R(picture.at(x, y), picture.step(), out.data(), out.step(), out.size()));
  return out;
}

// Every dot as a square of factor x factor.
Picture enlarged(const Picture& picture, int factor)
{
  Picture out(picture.width() * factor, picture.height() * factor);
  const ZorImgSize square = {factor, factor};
  for (int y = 0; y < picture.height(); ++y)
    for (int x = 0; x < picture.width(); ++x)
      ZORI_CHECK(zoriSet_8u_C3R(picture.at(x, y), out.at(x * factor, y * factor), out.step(), square));
  return out;
}

// Along one side, the samples that a sample of the smaller picture covers, and how much of each.
struct Cover {
  int first, last;
  float weightOf(int i) const { return std::min<float>(i + 1, end) - std::max<float>(i, start); }
  float start, end;

  Cover(int i, int from, int to)
  {
    start = static_cast<float>(static_cast<double>(i) * from / to);
    end = std::min(static_cast<float>(static_cast<double>(i + 1) * from / to), static_cast<float>(from));
    first = static_cast<int>(start);
    last = std::max(first, static_cast<int>(std::ceil(end)) - 1);
  }
};

// The mean of the samples under each dot of the smaller picture.
Picture reduced(const Picture& picture, ZorImgSize size)
{
  Picture out(size);
  for (int y = 0; y < size.height; ++y) {
    const Cover rows(y, picture.height(), size.height);
    for (int x = 0; x < size.width; ++x) {
      const Cover across(x, picture.width(), size.width);
      float sum[3] = {0, 0, 0}, area = 0;
      for (int v = rows.first; v <= rows.last; ++v)
        for (int u = across.first; u <= across.last; ++u) {
          const float weight = rows.weightOf(v) * across.weightOf(u);
          for (int k = 0; k < 3; ++k) sum[k] += weight * picture.at(u, v)[k];
          area += weight;
        }
      for (int k = 0; k < 3; ++k) out.at(x, y)[k] = static_cast<Zor8u>(std::lround(sum[k] / area));
    }
  }
  return out;
}

Picture fitted(const Picture& picture, ZorImgSize box, View view)
{
  const double ratio =
    std::min(static_cast<double>(box.width) / picture.width(), static_cast<double>(box.height) / picture.height());
  if (ratio >= 2) return enlarged(picture, static_cast<int>(ratio));
  if (ratio >= 1 || view == View::detail) return middle(picture, box);
  return reduced(picture, {std::max(1, static_cast<int>(std::lround(picture.width() * ratio))),
                           std::max(1, static_cast<int>(std::lround(picture.height() * ratio)))});
}

} // namespace

ContactSheet::ContactSheet(std::string title, std::string subtitle, ZorImgSize shape)
  : title_(std::move(title)),
    subtitle_(std::move(subtitle)), tileSize_{tileWidth, static_cast<int>(std::clamp(static_cast<double>(tileWidth) *
                                                                                       shape.height / shape.width,
                                                                                     tileWidth * 0.4, tileWidth * 1.2))}
{}

void ContactSheet::add(const Picture& picture, View view, std::vector<std::string> caption)
{
  tiles_.push_back({fitted(picture, tileSize_, view), std::move(caption)});
}

Picture ContactSheet::drawn() const
{
  const int rows = (static_cast<int>(tiles_.size()) + columns - 1) / columns;
  const int tileStride = tileSize_.height + captionRoom + gap;
  Picture sheet(2 * margin + columns * tileWidth + (columns - 1) * gap, margin + headRoom + rows * tileStride);
  ZORI_CHECK(zoriSet_8u_C3R(paper, sheet.data(), sheet.step(), sheet.size()));
  drawText(sheet, margin, margin, title_, headInk);
  drawText(sheet, margin, margin + 44, fitText(subtitle_, sheet.width() - 2 * margin, subInk), subInk);

  for (std::size_t i = 0; i < tiles_.size(); ++i) {
    const Picture& picture = tiles_[i].picture;
    const int x = margin + static_cast<int>(i % columns) * (tileWidth + gap);
    const int y = margin + headRoom + static_cast<int>(i / columns) * tileStride;
    const ZorImgSize framed = {tileSize_.width + 2, tileSize_.height + 2};
    ZORI_CHECK(zoriSet_8u_C3R(frame, sheet.at(x - 1, y - 1), sheet.step(), framed));
    ZORI_CHECK(zoriSet_8u_C3R(mat, sheet.at(x, y), sheet.step(), tileSize_));
    const int left = x + (tileSize_.width - picture.width()) / 2, top = y + (tileSize_.height - picture.height()) / 2;
    ZORI_CHECK(zoriCopy_8u_C3R(picture.data(), picture.step(), sheet.at(left, top), sheet.step(), picture.size()));

    int line = y + tileSize_.height + 11;
    for (const std::string& text : tiles_[i].caption) {
      const Ink& ink = line == y + tileSize_.height + 11 ? titleInk : detailInk;
      drawText(sheet, x, line, fitText(text, tileWidth, ink), ink);
      line += captionLine;
    }
  }
  return sheet;
}

} // namespace example
