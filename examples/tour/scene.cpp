// A bay at dusk: what the tour looks at when it gets no picture.
#include "tour/tour.h"

#include "support/letters.h"

#include <algorithm>
#include <cmath>

namespace tour {

namespace {

constexpr int width = 960, height = 640, horizon = 400;
constexpr double sunX = 640, sunY = 330, sunRadius = 46;

struct Colour {
  double r, g, b;
};

Colour mix(Colour a, Colour b, double t)
{
  t = std::clamp(t, 0.0, 1.0);
  return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

// A rectangle in one colour; what lies outside the picture is left out.
void fill(Picture& picture, double x, double y, double w, double h, Colour colour)
{
  const int left = std::max(0, static_cast<int>(std::lround(x))), top = std::max(0, static_cast<int>(std::lround(y)));
  const int right = std::min(picture.width(), static_cast<int>(std::lround(x + w)));
  const int bottom = std::min(picture.height(), static_cast<int>(std::lround(y + h)));
  if (right <= left || bottom <= top) return;
  const Zor8u value[3] = {static_cast<Zor8u>(std::lround(colour.r)), static_cast<Zor8u>(std::lround(colour.g)),
                          static_cast<Zor8u>(std::lround(colour.b))};
  ZORI_CHECK(zoriSet_8u_C3R(value, picture.at(left, top), picture.step(), ZorImgSize{right - left, bottom - top}));
}

void disc(Picture& picture, double x, double y, double radius, Colour colour)
{
  for (int row = static_cast<int>(-radius); row <= radius; ++row) {
    const double half = std::sqrt(std::max(0.0, radius * radius - row * row));
    fill(picture, x - half, y + row, 2 * half, 1, colour);
  }
}

// The same numbers on every machine.
class Chance {
public:
  double next()
  {
    state_ = state_ * 1664525u + 1013904223u;
    return (state_ >> 8) / 16777216.0;
  }
  double between(double low, double high) { return low + (high - low) * next(); }

private:
  unsigned state_ = 5;
};

Colour sky(double x, double y)
{
  const Colour zenith = {34, 44, 96}, middle = {176, 96, 128}, low = {250, 176, 104}, glow = {255, 232, 170};
  const double t = y / horizon;
  const Colour clear = t < 0.55 ? mix(zenith, middle, t / 0.55) : mix(middle, low, (t - 0.55) / 0.45);
  const double distance = std::hypot(x - sunX, (y - sunY) * 1.25);
  return mix(clear, glow, 0.9 * std::exp(-distance / 130));
}

void paintSky(Picture& picture)
{
  for (int y = 0; y < horizon; ++y)
    for (int x = 0; x < width; x += 2) fill(picture, x, y, 2, 1, sky(x, y));
  Chance chance;
  for (int i = 0; i < 150; ++i) {
    const double x = chance.between(0, width), y = 190 * chance.next() * chance.next();
    fill(picture, x, y, 1 + (i % 9 == 0), 1 + (i % 9 == 0), mix(sky(x, y), {255, 255, 240}, chance.between(0.4, 1)));
  }
  disc(picture, sunX, sunY, sunRadius, {255, 246, 214});
  // long thin clouds
  for (int i = 0; i < 26; ++i) {
    const double x = chance.between(-100, width), y = chance.between(120, horizon - 70), w = chance.between(70, 260);
    for (int row = 0; row < 5; ++row) {
      const double inset = w * 0.08 * std::abs(row - 2) + chance.between(0, 12);
      for (double u = inset; u < w - inset; u += 4) {
        const double fade = 0.34 * std::sin(3.14159 * u / w);
        fill(picture, x + u, y + row, 4, 1, mix(sky(x + u, y), {255, 206, 190}, fade));
      }
    }
  }
}

double ridge(double x, double phase, double roughness)
{
  return std::sin(x / 140 + phase) + 0.5 * std::sin(x / 61 + 2.3 * phase) + roughness * std::sin(x / 17 + 5.1 * phase) +
         0.5 * roughness * std::sin(x / 7.3 + phase);
}

void paintHills(Picture& picture)
{
  struct Range {
    double base, rise, phase, roughness;
    Colour colour;
  };
  const Range ranges[] = {
    {310, 34, 0.4, 0.10, {150, 92, 124}}, {346, 26, 2.1, 0.16, {104, 66, 106}}, {380, 18, 4.4, 0.22, {62, 44, 82}}};
  for (const Range& range : ranges)
    for (int x = 0; x < width; ++x) {
      const double open = std::exp(-std::pow((x - sunX) / 190, 2)); // the ranges part in front of the sun
      const double top = range.base - range.rise * ridge(x, range.phase, range.roughness) + 84 * open;
      if (top < horizon) fill(picture, x, top, 1, horizon - top, range.colour);
    }
}

void paintSea(Picture& picture)
{
  for (int y = horizon; y < height; ++y) {
    const double depth = static_cast<double>(y - horizon) / (height - horizon);
    for (int x = 0; x < width; x += 2)
      fill(picture, x, y, 2, 1, mix(mix(sky(x, 2 * horizon - y), {60, 60, 110}, 0.45), {16, 22, 54}, depth * 0.9));
  }
  Chance chance;
  // dashes of light, closer together under the sun and towards the horizon
  for (int i = 0; i < 2600; ++i) {
    const double depth = chance.next() * chance.next(), y = horizon + 1 + depth * (height - horizon - 2);
    const double aside = chance.next() + chance.next() + chance.next() - 1.5, x = sunX + aside * (36 + 225 * depth);
    fill(picture, x, y, 2 + 26 * depth * chance.next(), 1 + (depth > 0.4),
         mix({255, 226, 160}, {216, 120, 110}, depth * 1.3));
  }
  for (int i = 0; i < 900; ++i) {
    const double depth = chance.next(), y = horizon + depth * (height - horizon);
    fill(picture, chance.between(-30, width), y, 6 + 40 * depth * chance.next(), 1,
         i % 2 ? Colour{22, 28, 66} : mix({150, 110, 140}, {40, 48, 96}, depth));
  }
}

void paintBoat(Picture& picture)
{
  const int x = 250, water = 508;
  for (int row = 0; row < 24; ++row)
    fill(picture, x - 84 + row * 1.1, water - 24 + row, 176 - row * 2.4, 1, {44, 26, 34});
  fill(picture, x - 86, water - 26, 180, 3, {210, 92, 66});
  fill(picture, x, water - 236, 4, 212, {58, 36, 40});
  for (int row = 0; row < 186; ++row) {
    const double shade = 0.18 * std::sin(row / 27.0);
    fill(picture, x + 7, water - 226 + row, row * 0.54, 1, mix({250, 236, 214}, {226, 150, 128}, 0.25 + shade));
  }
  for (int row = 0; row < 150; ++row)
    fill(picture, x - 4 - row * 0.42, water - 192 + row, row * 0.42, 1,
         mix({238, 214, 196}, {186, 110, 110}, row / 190.0));
  example::drawText(picture, x + 16, water - 82, "zori", {{96, 44, 58}, 3, true});
  for (int row = 0; row < 58; ++row) { // its image in the water
    const double sway = 3 * std::sin(row / 3.1) * (1 + row / 30.0);
    fill(picture, x - 66 + sway + row * 0.5, water + row, 142 - row * 1.2, 1,
         mix({30, 20, 38}, {38, 36, 78}, row / 58.0));
  }
}

} // namespace

Picture drawnScene()
{
  Picture picture(width, height);
  paintSky(picture);
  paintHills(picture);
  paintSea(picture);
  paintBoat(picture);
  return picture;
}

} // namespace tour
