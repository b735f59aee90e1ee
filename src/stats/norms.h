// The width from which the L2 norm of bytes is formed in strips.
#pragma once

namespace zori {

inline constexpr int normStripWidth = 32768;

} // namespace zori
