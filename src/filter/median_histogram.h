// Medians of windows of any odd size, by counting samples.
#pragma once

#include "frame/layout.h"

#include <cstdint>

namespace zori {
namespace median {

// src: from the first sample that a window covers. The first `processed` of the channels are filtered. Never fails.
void histogramOfBytes(Rows<const uint8_t> src, Rows<uint8_t> dst, ZorImgSize roi, ZorImgSize mask, int channels,
                      int processed);
void histogramOfWords(Rows<const uint16_t> src, Rows<uint16_t> dst, ZorImgSize roi, ZorImgSize mask, int channels,
                      int processed, bool isSigned);

} // namespace median
} // namespace zori
