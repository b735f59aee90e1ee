// Text on pictures: a small proportional alphabet of the examples' own.
#pragma once

#include "support/image.h"

#include <string>

namespace example {

struct Ink {
  Zor8u colour[3];
  int scale = 1; // pixels of the picture for a dot of a letter
  bool bold = false;
};

// Rows of a line of text at scale 1: nine from the top of a capital to the base line, three below it.
constexpr int letterHeight = 12;

int textWidth(const std::string& text, const Ink& ink);

// The text, or as much of it as fits the width with two dots behind it.
std::string fitText(const std::string& text, int width, const Ink& ink);

// Writes the text with its upper left corner at x, y; what lies outside the picture is left out.
void drawText(Picture& on, int x, int y, const std::string& text, const Ink& ink);

} // namespace example
