// PNG files in and out, through libpng.
#pragma once

#include "support/image.h"

#include <string>

namespace example {

// Reads any PNG file as 8-bit colour: 16 bits are rounded to 8, palettes and grey become colour, what is transparent
// lies on white. Throws a std::runtime_error that says in one line what is wrong with the file.
Picture readPng(const std::string& path);

void writePng(const std::string& path, const Picture& picture);

} // namespace example
