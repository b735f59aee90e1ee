// Where a family takes another path, or numbers outgrow their type: its sources name the limit, and its tests try the
// number before it, the limit itself and the one behind it, with samples at the ends of their range.
#pragma once

#include <array>

namespace zoritest {

constexpr std::array<int, 3> around(int limit) { return {limit - 1, limit, limit + 1}; }

} // namespace zoritest
