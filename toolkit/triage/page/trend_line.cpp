#include "toolkit/triage/page/trend_line.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace tarvo::toolkit {
namespace {

constexpr std::size_t kMostTrendPoints = 30;
constexpr double kTrendWidth = 72;
constexpr double kTrendHeight = 20;
/// Room for half of the line's width.
constexpr double kTrendMargin = 1;

std::vector<std::size_t> TrendPoints(std::span<const std::size_t> counts) {
  const std::size_t step = (counts.size() + kMostTrendPoints - 1) / kMostTrendPoints;
  std::vector<std::size_t> points;
  for (std::size_t i = 0; i < counts.size(); i += step) {
    const auto part = counts.subspan(i, std::min(step, counts.size() - i));
    points.push_back(std::accumulate(part.begin(), part.end(), std::size_t{0}));
  }
  return points;
}

}  // namespace

Html TrendLine(std::span<const std::size_t> counts) {
  Html svg;
  if (counts.size() < 2) return svg;
  const std::vector<std::size_t> points = TrendPoints(counts);
  const auto most = static_cast<double>(std::max<std::size_t>(std::ranges::max(points), 1));
  const double step = (kTrendWidth - 2 * kTrendMargin) / static_cast<double>(points.size() - 1);
  Html line;
  for (std::size_t i = 0; i < points.size(); ++i) {
    line.Add("@ @ ", kTrendMargin + step * static_cast<double>(i),
             kTrendHeight - kTrendMargin -
                 (kTrendHeight - 2 * kTrendMargin) * static_cast<double>(points[i]) / most);
  }
  svg.Add("<svg class=t width=@ height=@ aria-hidden=true><path d='M@'/></svg>", kTrendWidth,
          kTrendHeight, line);
  return svg;
}

Html TrendBars(std::span<const std::size_t> counts) {
  Html svg;
  if (counts.empty()) return svg;
  const auto most = static_cast<double>(std::max<std::size_t>(std::ranges::max(counts), 1));
  Html bars;
  for (std::size_t i = 0; i < counts.size(); ++i) {
    if (counts[i] == 0) continue;
    // What is there at all is seen.
    const double height = std::max(1.5, 40 * static_cast<double>(counts[i]) / most);
    bars.Add("M@ 40v-@h8v@z", 10 * i + 1, height, height);
  }
  svg.Add(
      "<svg class=d viewBox='0 0 @ 40' preserveAspectRatio=none aria-hidden=true><path "
      "d='@'/></svg>",
      10 * counts.size(), bars);
  return svg;
}

std::size_t RecentPercent(std::span<const std::size_t> counts) {
  const auto all = std::accumulate(counts.begin(), counts.end(), std::size_t{0});
  const auto recent = std::accumulate(counts.end() - static_cast<std::ptrdiff_t>(counts.size() / 4),
                                      counts.end(), std::size_t{0});
  return all == 0 ? 0 : 100 * recent / all;
}

}  // namespace tarvo::toolkit
