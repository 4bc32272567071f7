#pragma once

#include <cstddef>
#include <span>

#include "toolkit/triage/page/html.h"

namespace tarvo::toolkit {

/// A small line of how counts went, as high as its highest point; nothing without two slots.
[[nodiscard]] Html TrendLine(std::span<const std::size_t> counts);

/// The same as a broad row of bars.
[[nodiscard]] Html TrendBars(std::span<const std::size_t> counts);

/// Which part of all counts lies in the last quarter of the slots, in percent.
[[nodiscard]] std::size_t RecentPercent(std::span<const std::size_t> counts);

}  // namespace tarvo::toolkit
