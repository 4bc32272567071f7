#include "toolkit/triage/page/group_row.h"

#include <array>
#include <string>

#include "toolkit/triage/page/page_text.h"
#include "toolkit/triage/page/trend_line.h"

namespace tarvo::toolkit {
namespace {

constexpr std::size_t kSignatureWidth = 160;
constexpr std::size_t kClassWidth = 48;
constexpr std::size_t kCellWidth = 32;

/// "3 0 12": the numbers of those of `counts` that can be chosen.
Html ChoiceNumbers(const std::vector<PageCount>& counts, const PageIndex::Choices& choices) {
  Html numbers;
  for (const PageCount& count : counts)
    if (const auto at = choices.numbers.find(count.name); at != choices.numbers.end())
      numbers.Add("@ ", at->second);
  return numbers;
}

Html Marks(const PageGroup& group) {
  Html marks;
  if (group.isNew)
    marks.Add(" <b class='m new' title='Nothing older than the newest build has it'>new</b>");
  if (group.isBack) marks.Add(" <b class=m title='Builds in between did not have it'>back</b>");
  if (group.isRising) marks.Add(" <b class=m title='More frequent of late'>rising</b>");
  return marks;
}

/// A name from outside; it has the first place in its cell.
Html CellText(std::string_view name) {
  Html text;
  if (name.empty())
    text.Add("<i>unknown</i>");
  else
    text.Add("@", ShortName(name, kCellWidth));
  return text;
}

/// A build, and the day of a time.
Html BuildCell(const PageCount* build, const std::optional<std::chrono::sys_seconds>& time) {
  Html cell;
  cell.Add("@", CellText(build == nullptr ? std::string_view() : build->name));
  if (time) cell.Add(" <small>@</small>", DayText(std::chrono::floor<std::chrono::days>(*time)));
  return cell;
}

Html SystemCell(const std::vector<PageCount>& systems) {
  Html cell;
  cell.Add("@", CellText(systems.empty() ? std::string_view() : systems[0].name));
  if (systems.size() > 1) cell.Add(" <small>+@</small>", systems.size() - 1);
  return cell;
}

std::int64_t SecondsOf(const std::optional<std::chrono::sys_seconds>& time) {
  return time ? time->time_since_epoch().count() : 0;
}

}  // namespace

Html GroupHead() {
  struct Column {
    const char* key;
    const char* name;
  };
  // The keys are those of the script's table of orders.
  constexpr std::array<Column, kGroupColumns> kColumns = {{{"rank", "#"},
                                                           {"count", "Reports"},
                                                           {"share", "Share"},
                                                           {"trend", "Trend"},
                                                           {"signature", "Signature"},
                                                           {"class", "Class"},
                                                           {"first", "First"},
                                                           {"last", "Last"},
                                                           {"systems", "Systems"}}};
  Html head;
  head.Add("<thead><tr>");
  for (const Column& column : kColumns)
    head.Add("<th scope=col class=@ data-key=@>@", column.key, column.key, column.name);
  head.Add("</thead>\n");
  return head;
}

Html GroupRow(const PageGroup& group, std::size_t rank, const PageIndex& index) {
  const std::vector<std::size_t> slots = CountBySlot(group.days, index.window);
  const double bar = index.mostReports == 0 ? 0
                                            : 48.0 * static_cast<double>(group.count) /
                                                  static_cast<double>(index.mostReports);
  Html row;
  row.Add(
      "<tbody data-count=@ data-trend=@ data-first=@ data-last=@ data-builds='@' data-systems='@'>",
      group.count, RecentPercent(slots), SecondsOf(group.first), SecondsOf(group.last),
      ChoiceNumbers(group.builds, index.builds), ChoiceNumbers(group.systems, index.systems));
  row.Add(
      "<tr><td class=rank>@<td class=count>@<td class=share>@<svg width=48 height=4 "
      "aria-hidden=true>"
      "<rect width=@ height=4 /></svg><td class=trend>@",
      rank, Grouped(group.count), Percent(group.count, index.reports), std::max(bar, 1.0),
      group.count > 1 ? TrendLine(slots) : Html());
  row.Add("<th scope=row class=signature><code>@</code>@<td class=class>@",
          group.signature.empty() ? "(no frames)" : ShortName(group.signature, kSignatureWidth),
          Marks(group), ShortName(group.crashClass, kClassWidth));
  row.Add("<td class=first>@<td class=last>@<td class=systems>@\n",
          BuildCell(group.builds.empty() ? nullptr : &group.builds.front(), group.first),
          BuildCell(group.builds.empty() ? nullptr : &group.builds.back(), group.last),
          SystemCell(group.systems));
  return row;
}

}  // namespace tarvo::toolkit
