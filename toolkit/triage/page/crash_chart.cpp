#include "toolkit/triage/page/crash_chart.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <ranges>
#include <string>
#include <vector>

#include "toolkit/triage/page/page_text.h"

namespace tarvo::toolkit {
namespace {

/// As many colours as the style sheet has.
constexpr std::size_t kMostColours = 6;
constexpr std::size_t kBuildWidth = 40;
constexpr double kPlotTop = 22;
constexpr double kPlotBottom = 190;
constexpr std::size_t kMostDayLabels = 6;
constexpr double kBarShare = 0.82;  ///< of a slot's width

/// Crashes of one build, or of all that are not told apart.
struct Series {
  std::string name;
  std::size_t colour = 0;  ///< 0: of all others; the higher the newer
  std::size_t total = 0;
  std::vector<std::size_t> slots;
};

std::string BuildName(const std::string& build) {
  return build.empty() ? "unknown build" : ShortName(build, kBuildWidth);
}

std::string SlotText(const DayWindow& window, std::size_t slot) {
  const std::string first = DayText(window.FirstOf(slot));
  return window.daysPerSlot == 1 ? first : first + " to " + DayText(window.LastOf(slot));
}

/// Series of all builds, in their order; such that `content.builds` does not name come first.
std::vector<Series> SeriesOfBuilds(const PageContent& content, const DayWindow& window) {
  std::map<std::string_view, Series> found;
  for (const PageGroup& group : content.groups) {
    for (const PageDay& day : group.days) {
      const auto slot = window.SlotOf(day.day);
      if (!slot) continue;
      Series& series = found[day.build];
      series.slots.resize(window.slots);
      series.slots[*slot] += day.count;
      series.total += day.count;
    }
  }
  std::vector<Series> ordered;
  const auto take = [&](auto at) {
    at->second.name = at->first;
    ordered.push_back(std::move(at->second));
    return found.erase(at);
  };
  std::vector<Series> known;
  for (const std::string& build : content.builds)
    if (const auto at = found.find(build); at != found.end()) take(at);
  known.swap(ordered);
  for (auto at = found.begin(); at != found.end();) at = take(at);
  std::ranges::move(known, std::back_inserter(ordered));
  return ordered;
}

/// The most frequent ones, in their order, with colours, and one of all others in front.
std::vector<Series> ToldApart(std::vector<Series> all) {
  std::vector<std::size_t> totals;
  for (const Series& series : all) totals.push_back(series.total);
  std::ranges::sort(totals, std::greater());
  const std::size_t least = all.size() <= kMostColours ? 0 : totals[kMostColours - 1];
  std::vector<Series> drawn;
  Series others;
  std::size_t count = 0;
  // Equally frequent ones at the border: the newer are shown.
  for (Series& series : all | std::views::reverse) {
    if (series.total >= least && drawn.size() < kMostColours) {
      series.colour = kMostColours - drawn.size();
      series.name = BuildName(series.name);
      drawn.push_back(std::move(series));
      continue;
    }
    ++count;
    others.total += series.total;
    others.slots.resize(series.slots.size());
    std::ranges::transform(others.slots, series.slots, others.slots.begin(), std::plus());
  }
  if (count != 0) {
    others.name = Counted(count, "other build", "other builds");
    drawn.push_back(std::move(others));
  }
  std::ranges::reverse(drawn);
  return drawn;
}

/// The distance of the chart's lines: 1, 2 or 5 and zeros behind it, so that there are up to four.
std::size_t LineStep(std::size_t most) {
  for (std::size_t scale = 1;; scale *= 10)
    for (const std::size_t digit : {1U, 2U, 5U})
      if (digit * scale * 4 >= most) return digit * scale;
}

/// The bars of all series. Horizontal places are in percent, so that the chart takes any width with
/// its letters as they are.
class ChartPlot {
 public:
  ChartPlot(const std::vector<Series>& series, const DayWindow& window)
      : series_(series), window_(window), totals_(window.slots, 0) {
    for (const Series& one : series)
      std::ranges::transform(totals_, one.slots, totals_.begin(), std::plus());
    most_ = std::max<std::size_t>(std::ranges::max(totals_), 1);
  }

  [[nodiscard]] Html Draw() const {
    Html svg;
    svg.Add(
        "<svg class=chart width='100%' height=212 role=img aria-label='Crashes by day and build; "
        "the same in "
        "numbers follows'>\n");
    AddLines(svg);
    for (std::size_t slot = 0; slot < window_.slots; ++slot)
      if (totals_[slot] != 0) AddBar(svg, slot);
    AddLabels(svg);
    svg.Add("</svg>\n");
    return svg;
  }

 private:
  [[nodiscard]] double HeightOf(std::size_t count) const {
    return (kPlotBottom - kPlotTop) * static_cast<double>(count) / static_cast<double>(most_);
  }
  [[nodiscard]] double LeftOf(std::size_t slot) const {
    return 100.0 * static_cast<double>(slot) / static_cast<double>(window_.slots);
  }

  void AddLines(Html& svg) const {
    const std::size_t step = LineStep(most_);
    for (std::size_t count = 0; count <= most_; count += step) {
      const double y = kPlotBottom - HeightOf(count);
      svg.Add("<line x1='0' x2='100%' y1=@ y2=@ />", y, y);
    }
    svg.Add("\n");
  }

  void AddBar(Html& svg, std::size_t slot) const {
    // A lonely bar need not fill the page.
    const double width = std::min(100.0 / static_cast<double>(window_.slots), 6.0) * kBarShare;
    const double left = LeftOf(slot) + (100.0 / static_cast<double>(window_.slots) - width) / 2;
    svg.Add("<g><title>@: @", SlotText(window_, slot), Counted(totals_[slot], "crash", "crashes"));
    std::size_t below = 0;
    Html bars;
    for (const Series& one : series_) {
      if (one.slots[slot] == 0) continue;
      below += one.slots[slot];
      svg.Add("&#10;@: @", one.name, Grouped(one.slots[slot]));
      bars.Add("<rect class=s@ x='@%' width='@%' y=@ height=@ />", one.colour, left, width,
               kPlotBottom - HeightOf(below), HeightOf(one.slots[slot]));
    }
    svg.Add("</title>@</g>\n", bars);
  }

  /// The counts of the lines, left of the bars, and days below.
  void AddLabels(Html& svg) const {
    const std::size_t step = LineStep(most_);
    for (std::size_t count = 0; count <= most_; count += step)
      svg.Add("<text class=count x='-8' y=@>@</text>", kPlotBottom - HeightOf(count) + 4,
              Grouped(count));
    const std::size_t every = (window_.slots + kMostDayLabels - 1) / kMostDayLabels;
    for (std::size_t slot = 0; slot < window_.slots; slot += every) {
      // The middle of the slot, but not beyond the chart's edge.
      const double middle = LeftOf(slot) + 50.0 / static_cast<double>(window_.slots);
      const bool isLast = middle > 96;
      // Where the chart is narrow there is room for every other one.
      svg.Add("<text class='@@' x='@%' y=208>@</text>", isLast ? "to" : "mid",
              slot / every % 2 == 0 ? "" : " odd", isLast ? 100 : middle,
              DayText(window_.FirstOf(slot)));
    }
  }

  const std::vector<Series>& series_;
  const DayWindow& window_;
  std::vector<std::size_t> totals_;
  std::size_t most_ = 1;
};

Html Legend(const std::vector<Series>& series) {
  Html list;
  list.Add("<ul class=legend>");
  for (const Series& one : series)
    list.Add(
        "<li><svg width=10 height=10 aria-hidden=true><rect class=s@ width=10 height=10 rx=2 "
        "/></svg> <bdi>@</bdi> <span>@</span>",
        one.colour, one.name, Grouped(one.total));
  list.Add("</ul>\n");
  return list;
}

Html Numbers(const std::vector<Series>& series, const DayWindow& window) {
  Html table;
  table.Add(
      "<details class=numbers><summary>In numbers</summary><div tabindex=0 role=region "
      "aria-label='Crashes by day and build'><table><thead><tr><th "
      "scope=col>@",
      window.daysPerSlot == 1 ? "Day" : "Days");
  for (const Series& one : series) table.Add("<th scope=col><bdi>@</bdi>", one.name);
  table.Add("<tbody>\n");
  for (std::size_t slot = 0; slot < window.slots; ++slot) {
    if (std::ranges::all_of(series, [&](const Series& one) { return one.slots[slot] == 0; }))
      continue;
    table.Add("<tr><th scope=row>@", SlotText(window, slot));
    for (const Series& one : series) table.Add("<td>@", Grouped(one.slots[slot]));
    table.Add("\n");
  }
  table.Add("</table></div></details>\n");
  return table;
}

std::string Period(const DayWindow& window) {
  if (window.daysPerSlot == 1) return "day";
  return window.daysPerSlot == 7 ? "week" : std::to_string(window.daysPerSlot / 7) + " weeks";
}

}  // namespace

Html CrashChart(const PageContent& content, const DayWindow& window) {
  Html section;
  section.Add(
      "<section class=days aria-labelledby=days-title><h2 id=days-title>Crashes per @, by "
      "build</h2>\n",
      Period(window));
  if (window.slots == 0) {
    section.Add("<p class=empty>None of the reports says when it happened.</p></section>\n");
    return section;
  }
  const std::vector<Series> series = ToldApart(SeriesOfBuilds(content, window));
  section.Add("@@", Legend(series), ChartPlot(series, window).Draw());
  if (window.outside != 0)
    section.Add(
        "<p class=note>Not in the chart: @ of days far off, as of machines whose clock was "
        "wrong.</p>",
        Counted(window.outside, "report", "reports"));
  section.Add("@</section>\n", Numbers(series, window));
  return section;
}

}  // namespace tarvo::toolkit
