#include "toolkit/triage/result/triage_table.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

constexpr std::size_t kShownSkipped = 20;
constexpr std::size_t kColumns = 8;
constexpr std::size_t kSignature = 3;
constexpr std::size_t kLeastSignature = 24;
constexpr std::size_t kWidestBuild = 16;
constexpr std::size_t kShownColumns = 200;
constexpr std::size_t kGap = 2;

using Row = std::array<std::string, kColumns>;

std::string Share(std::size_t part, std::size_t whole) {
  char text[16];
  std::snprintf(
      text, sizeof text, "%.1f %%",
      100.0 * static_cast<double>(part) / static_cast<double>(std::max<std::size_t>(whole, 1)));
  return text;
}

std::string Date(const std::optional<std::chrono::sys_seconds>& time) {
  if (!time) return "unknown";
  const std::chrono::year_month_day date(std::chrono::floor<std::chrono::days>(*time));
  char text[24];
  std::snprintf(text, sizeof text, "%04d-%02u-%02u", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
  return text;
}

std::string Shown(std::string_view text, std::size_t width) {
  return Shortened(SafeText(text), width);
}

/// "R16.0-17", or the first and the last of several, and how many.
std::string Builds(const std::vector<NamedCount>& builds) {
  if (builds.empty()) return {};
  std::string text = Shown(builds.front().name, kWidestBuild);
  if (builds.size() > 1)
    text += " – " + Shown(builds.back().name, kWidestBuild) + " (" + std::to_string(builds.size()) +
            ")";
  return text;
}

std::string Marks(const TriageGroup& group, bool hasDatabase) {
  std::string marks;
  const auto add = [&](bool isSet, std::string_view mark) {
    if (isSet) marks += (marks.empty() ? "" : ", ") + std::string(mark);
  };
  add(hasDatabase ? group.isNotStored : group.isNew, "new");
  add(group.isBack, "back");
  add(group.isRising, "rising");
  return marks;
}

Row RowOf(const TriageResult& result, std::size_t index) {
  const TriageGroup& group = result.groups[index];
  return {std::to_string(index + 1),
          std::to_string(group.count),
          Share(group.count, result.reports),
          SafeText(group.signature) + " (" + SafeText(group.crashClass) + ")",
          Builds(group.builds),
          Date(group.first),
          Date(group.last),
          Marks(group, result.hasDatabase)};
}

std::string Cell(const std::string& text, std::size_t width, bool isNumber) {
  const std::size_t used = TextWidth(text);
  const std::string blanks(width - std::min(width, used), ' ');
  return isNumber ? blanks + text : text + blanks;
}

std::string Lines(std::vector<Row>& rows, std::optional<std::size_t> width) {
  std::array<std::size_t, kColumns> widths{};
  for (const Row& row : rows)
    for (std::size_t i = 0; i < kColumns; ++i) widths[i] = std::max(widths[i], TextWidth(row[i]));
  std::size_t others = 0;
  for (std::size_t i = 0; i < kColumns; ++i)
    if (i != kSignature) others += widths[i] + kGap;
  if (width)
    widths[kSignature] =
        std::min(widths[kSignature], std::max(kLeastSignature, *width - std::min(*width, others)));
  std::string text;
  for (Row& row : rows) {
    row[kSignature] = Shortened(row[kSignature], widths[kSignature]);
    std::string line;
    for (std::size_t i = 0; i < kColumns; ++i)
      line += Cell(row[i], widths[i], i < kSignature) + std::string(kGap, ' ');
    text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
  }
  return text;
}

std::string Counted(std::size_t count, const char* one, const char* several) {
  return std::to_string(count) + " " + (count == 1 ? one : several);
}

std::string SkippedText(const std::vector<SkippedLog>& skipped) {
  std::string text = skipped.empty() ? "" : "Skipped:\n";
  for (std::size_t i = 0; i < std::min(skipped.size(), kShownSkipped); ++i)
    text += "  " + Shown(skipped[i].path, kShownColumns) + ": " +
            Shown(skipped[i].reason, kShownColumns) + "\n";
  if (skipped.size() > kShownSkipped)
    text += "  and " + std::to_string(skipped.size() - kShownSkipped) + " more\n";
  return text;
}

}  // namespace

std::string TriageTable(const TriageResult& result, const TableOptions& options) {
  std::string text = Counted(result.reports, "report", "reports") + " in " +
                     Counted(result.groups.size(), "group", "groups");
  if (!result.skipped.empty()) text += ", " + std::to_string(result.skipped.size()) + " skipped";
  text += "\n";
  const std::size_t shown =
      options.top == 0 ? result.groups.size() : std::min(options.top, result.groups.size());
  std::vector<Row> rows = {{"#", "count", "share", "signature", "builds", "first", "last", ""}};
  for (std::size_t i = 0; i < shown; ++i) rows.push_back(RowOf(result, i));
  if (shown > 0) text += "\n" + Lines(rows, options.width);
  if (shown < result.groups.size())
    text += "and " + Counted(result.groups.size() - shown, "group", "groups") + " more\n";
  if (!result.skipped.empty()) text += "\n" + SkippedText(result.skipped);
  return text;
}

}  // namespace tarvo::toolkit
