// Measurement: the difference of two pictures in numbers, moments of an object.
#include "tour/tour.h"

#include "support/letters.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace tour {

namespace {

template <class... T> std::string formatted(const char* format, T... values)
{
  char text[64];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

// Strips with more and more noise, and how far each is from what it was.
void noiseMeasured(Tour& tour)
{
  constexpr int strips = 4;
  const Zor8u deviations[strips] = {5, 15, 40, 100};
  const Picture& in = tour.picture();
  Picture out = displayed(in);
  if (in.width() < strips) return;
  const auto left = [&](int i) { return in.width() * i / strips; };
  const auto strip = [&](int i) { return ZorImgSize{left(i + 1) - left(i), in.height()}; };
  for (int i = 0; i < strips; ++i) {
    Zor32u seed = 11;
    ZORI_CHECK(zoriAddRandGauss_Direct_8u_C3IR(out.at(left(i), 0), out.step(), strip(i), 0, deviations[i], &seed));
  }

  Zor32f index[strips][3];
  Zor64f distance[strips][3];
  Stage& stage = tour.stage("Noise, measured");
  stage
    .time("QualityIndex_8u32f_C3R",
          [&] {
            for (int i = 0; i < strips; ++i) {
              const ZorStatus status = zoriQualityIndex_8u32f_C3R(in.at(left(i), 0), in.step(), out.at(left(i), 0),
                                                                  out.step(), strip(i), index[i]);
              // black pictures have none: it is NaN
              if (status != ZorOk && status != ZorErrQualitySize) return status;
            }
            return ZorOk;
          })
    .time("NormDiff_L2_8u_C3R", [&] {
      for (int i = 0; i < strips; ++i) {
        const ZorStatus status =
          zoriNormDiff_L2_8u_C3R(in.at(left(i), 0), in.step(), out.at(left(i), 0), out.step(), strip(i), distance[i]);
        if (status != ZorOk) return status;
      }
      return ZorOk;
    });

  // the numbers of the green channel, on a band at the foot of each strip
  const int scale = std::max(1, in.width() / 250), line = (example::letterHeight + 2) * scale;
  const example::Ink ink = {{255, 255, 255}, scale, true};
  const int foot = std::min(in.height(), 2 * line + 4 * scale);
  const Zor8u dark[3] = {20, 20, 28};
  ZORI_CHECK(zoriSet_8u_C3R(dark, out.at(0, in.height() - foot), out.step(), ZorImgSize{in.width(), foot}));
  for (int i = 0; i < strips; ++i) {
    const double pixels = static_cast<double>(strip(i).width) * strip(i).height;
    const double rms = distance[i][1] / std::sqrt(pixels);
    const int x = left(i) + 4 * scale, y = in.height() - 2 * line;
    example::drawText(out, x, y, formatted("Q %.3f", index[i][1]), ink);
    example::drawText(out, x, y + line, formatted("%.1f dB", 20 * std::log10(255 / std::max(rms, 1e-3))), ink);
  }
  stage.show(out);
}

struct Place {
  int x, y;
};
using Part = std::vector<Place>;

// The largest connected parts of a mask, those that the edge of the picture cuts behind all others.
std::vector<Part> largestParts(Grey& mask, std::size_t count)
{
  std::vector<std::pair<bool, Part>> parts;
  Part part;
  const auto visit = [&](int x, int y) {
    if (x < 0 || y < 0 || x >= mask.width() || y >= mask.height() || *mask.at(x, y) == 0) return;
    *mask.at(x, y) = 0; // seen
    part.push_back({x, y});
  };
  const auto behind = [](const auto& a, const auto& b) {
    return a.first != b.first ? a.first : a.second.size() < b.second.size();
  };
  for (int y = 0; y < mask.height(); ++y)
    for (int x = 0; x < mask.width(); ++x) {
      part.clear();
      visit(x, y);
      for (std::size_t i = 0; i < part.size(); ++i) {
        const Place at = part[i];
        visit(at.x - 1, at.y);
        visit(at.x + 1, at.y);
        visit(at.x, at.y - 1);
        visit(at.x, at.y + 1);
      }
      if (part.empty()) continue;
      const bool cut = std::any_of(part.begin(), part.end(), [&](Place at) {
        return at.x == 0 || at.y == 0 || at.x == mask.width() - 1 || at.y == mask.height() - 1;
      });
      parts.emplace_back(cut, std::move(part));
      if (parts.size() > count) parts.erase(std::min_element(parts.begin(), parts.end(), behind));
    }
  std::sort(parts.begin(), parts.end(), [&](const auto& a, const auto& b) { return behind(b, a); });
  std::vector<Part> out;
  for (auto& each : parts) out.push_back(std::move(each.second));
  return out;
}

void drawLine(Picture& on, double x0, double y0, double x1, double y1, int thickness, const Zor8u colour[3])
{
  const int dots = static_cast<int>(std::max(std::abs(x1 - x0), std::abs(y1 - y0))) + 1;
  for (int i = 0; i <= dots; ++i) {
    const int x = static_cast<int>(std::lround(x0 + (x1 - x0) * i / dots)) - thickness / 2;
    const int y = static_cast<int>(std::lround(y0 + (y1 - y0) * i / dots)) - thickness / 2;
    if (x >= 0 && y >= 0 && x + thickness <= on.width() && y + thickness <= on.height())
      ZORI_CHECK(zoriSet_8u_C3R(colour, on.at(x, y), on.step(), ZorImgSize{thickness, thickness}));
  }
}

// The lengths and the direction of an ellipse with the same moments as an object.
struct Axes {
  double x, y, major, minor, angle;

  explicit Axes(const ZorMomentState* state)
  {
    const auto spatial = [&](int m, int n) {
      Zor64f value = 0;
      ZORI_CHECK(zoriGetSpatialMoment_64f(state, m, n, 0, ZorImgPoint{0, 0}, &value));
      return value;
    };
    const auto central = [&](int m, int n) {
      Zor64f value = 0;
      ZORI_CHECK(zoriGetCentralMoment_64f(state, m, n, 0, &value));
      return value;
    };
    const double mass = spatial(0, 0);
    x = spatial(1, 0) / mass;
    y = spatial(0, 1) / mass;
    const double xx = central(2, 0) / mass, yy = central(0, 2) / mass, xy = central(1, 1) / mass;
    const double mean = (xx + yy) / 2, spread = std::hypot((xx - yy) / 2, xy);
    major = 2 * std::sqrt(mean + spread);
    minor = 2 * std::sqrt(std::max(0.0, mean - spread));
    angle = std::atan2(2 * xy, xx - yy) / 2;
  }
};

void orientation(Tour& tour)
{
  const Grey& grey = tour.grey();
  const ZorImgSize size = tour.size();

  // the objects: parts that are brighter than the mean by a standard deviation
  Zor64f mean = 0, norm = 0;
  ZORI_CHECK(zoriMean_8u_C1R(grey.data(), grey.step(), size, &mean));
  ZORI_CHECK(zoriNorm_L2_8u_C1R(grey.data(), grey.step(), size, &norm));
  const double pixels = static_cast<double>(size.width) * size.height;
  const double deviation = std::sqrt(std::max(0.0, norm * norm / pixels - mean * mean));
  const Zor8u threshold = static_cast<Zor8u>(std::min(255.0, mean + deviation));
  Grey mask(size);
  ZORI_CHECK(zoriCompareC_8u_C1R(grey.data(), grey.step(), threshold, mask.data(), mask.step(), size, ZorCmpGreater));
  const std::vector<Part> objects = largestParts(mask, 3);
  if (objects.empty()) return;

  // each is shown in its colours on a dim ground
  Picture out(size);
  const Zor32u bits[3] = {2, 2, 2};
  ZORI_CHECK(zoriDup_8u_C1C3R(grey.data(), grey.step(), out.data(), out.step(), size));
  ZORI_CHECK(zoriRShiftC_8u_C3IR(bits, out.data(), out.step(), size));

  ZorMomentState* state = nullptr;
  ZORI_CHECK(zoriMomentInitAlloc_64f(&state, ZorHintNone));
  Stage& stage = tour.stage("Objects and their axes").highlight();
  std::vector<Axes> found;
  std::string angles;
  for (const Part& object : objects) {
    ZORI_CHECK(zoriSet_8u_C1R(0, mask.data(), mask.step(), size));
    for (const Place& at : object) *mask.at(at.x, at.y) = 255;
    const auto measure = [&] { return zoriMoments64f_8u_C1R(mask.data(), mask.step(), size, state); };
    if (found.empty()) stage.time("Moments64f_8u_C1R", measure);
    else ZORI_CHECK(measure());
    found.emplace_back(state);
    angles += (angles.empty() ? "at " : ", ") + formatted("%.0f", -found.back().angle * 180 / 3.14159265358979);
    ZORI_CHECK(zoriCopy_8u_C3MR(tour.picture().data(), tour.picture().step(), out.data(), out.step(), size, mask.data(),
                                mask.step()));
  }
  ZORI_CHECK(zoriMomentFree_64f(state));

  const int thickness = std::max(1, size.width / 200);
  const Zor8u red[3] = {235, 60, 50}, cyan[3] = {40, 200, 220};
  for (const Axes& axes : found) {
    const double c = std::cos(axes.angle), s = std::sin(axes.angle);
    drawLine(out, axes.x + s * axes.minor, axes.y - c * axes.minor, axes.x - s * axes.minor, axes.y + c * axes.minor,
             thickness, cyan);
    drawLine(out, axes.x - c * axes.major, axes.y - s * axes.major, axes.x + c * axes.major, axes.y + s * axes.major,
             thickness, red);
  }
  stage.note(angles + " degrees").show(out);
}

} // namespace

void statsStages(Tour& tour)
{
  noiseMeasured(tour);
  orientation(tour);
}

} // namespace tour
