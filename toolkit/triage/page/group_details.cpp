#include "toolkit/triage/page/group_details.h"

#include <algorithm>
#include <array>
#include <ranges>
#include <span>
#include <string>

#include "toolkit/triage/page/group_row.h"
#include "toolkit/triage/page/group_stack.h"
#include "toolkit/triage/page/page_text.h"
#include "toolkit/triage/page/trend_line.h"

namespace tarvo::toolkit {
namespace {

/// From all to the least. What comes after the last is the note.
constexpr std::array<PageDetail, 5> kDetails = {{
    {.frames = kPageFrames,
     .callers = 16,
     .items = 12,
     .reports = kPageReports,
     .nameWidth = 200,
     .wholeNames = true},
    {.frames = kPageFrames,
     .callers = 16,
     .items = 10,
     .reports = kPageReports,
     .nameWidth = 160,
     .wholeNames = false},
    {.frames = kPageFrames,
     .callers = 6,
     .items = 6,
     .reports = kPageReports,
     .nameWidth = 100,
     .wholeNames = false},
    {.frames = 12, .callers = 3, .items = 4, .reports = 8, .nameWidth = 80, .wholeNames = false},
    {.frames = 6, .callers = 1, .items = 2, .reports = 3, .nameWidth = 60, .wholeNames = false},
}};

constexpr std::size_t kPathWidth = 120;
constexpr std::size_t kLabelWidth = 40;
constexpr std::size_t kIdWidth = 40;
/// Smaller counts are seen at a glance as they are.
constexpr std::size_t kWorthBars = 5;

Html MoreNote(std::size_t all, std::size_t shown) {
  Html note;
  if (all > shown) note.Add("<p class=note>and @ more</p>", Grouped(all - shown));
  return note;
}

/// Names with counts and bars. `keepsEnd`: of more than can be shown the last ones are.
Html CountList(std::span<const PageCount> counts, std::size_t most, bool keepsEnd) {
  Html list;
  const std::size_t shown = std::min(counts.size(), most);
  const auto listed = keepsEnd ? counts.last(shown) : counts.first(shown);
  std::size_t largest = 1;
  for (const PageCount& count : listed) largest = std::max(largest, count.count);
  if (keepsEnd && shown < counts.size())
    list.Add("<p class=note>@</p>", Counted(counts.size() - shown, "older build", "older builds"));
  list.Add("<ul class=bars>");
  for (const PageCount& count : listed) {
    list.Add("<li>@<span>@</span>",
             count.name.empty() ? "unknown" : ShortName(count.name, kLabelWidth),
             Grouped(count.count));
    if (largest >= kWorthBars)
      list.Add(
          "<svg width='100%' height=3 aria-hidden=true><rect width='@%' height=3 /></svg>",
          std::max(1.0, 100.0 * static_cast<double>(count.count) / static_cast<double>(largest)));
  }
  list.Add("</ul>@", keepsEnd ? Html() : MoreNote(counts.size(), shown));
  return list;
}

Html Occurrence(const PageGroup& group, const PageIndex& index, const PageDetail& detail) {
  Html section;
  section.Add("<section class=where><h3>Where and when</h3>");
  if (index.window.slots != 0 && group.count > 1 && !group.days.empty())
    section.Add("@<p class=ends><span>@</span><span>@</span></p>",
                TrendBars(CountBySlot(group.days, index.window)), DayText(index.window.first),
                DayText(index.window.LastOf(index.window.slots - 1)));
  section.Add("<p>First @<br>last @</p>", group.first ? TimeText(*group.first) + " UTC" : "unknown",
              group.last ? TimeText(*group.last) + " UTC" : "unknown");
  if (!group.builds.empty())
    section.Add("<h4>Builds</h4>@", CountList(group.builds, detail.items, true));
  if (!group.systems.empty())
    section.Add("<h4>Systems</h4>@", CountList(group.systems, detail.items, false));
  section.Add("</section>");
  return section;
}

Html Variants(const PageGroup& group, const PageDetail& detail) {
  Html section;
  if (group.variants.size() < 2) return section;
  section.Add(
      "<section><h3>Variants</h3><p class=note>Its reports by their first frames, from the crash "
      "outwards.</p>"
      "<ul class=v>");
  const std::size_t shown = std::min(group.variants.size(), detail.items);
  for (const PageVariant& variant : std::span(group.variants).first(shown)) {
    section.Add("<li><span class=c>@</span><ol>", Grouped(variant.count));
    for (const std::string& frame : variant.frames | std::views::take(3))
      section.Add("<li>@", ShortName(frame, std::min<std::size_t>(detail.nameWidth, 100)));
    section.Add("</ol><span class=id>@</span>", ShortName(variant.id, kIdWidth));
  }
  section.Add("</ul>@</section>", MoreNote(group.variants.size(), shown));
  return section;
}

Html Similar(const PageGroup& group, const PageIndex& index, const PageDetail& detail) {
  Html section;
  if (group.similar.empty()) return section;
  section.Add("<section><h3>Possibly the same as</h3><ul class=r>");
  const std::size_t shown = std::min(group.similar.size(), detail.items);
  for (const std::string& id : std::span(group.similar).first(shown)) {
    const auto at = index.groups.find(id);
    if (at == index.groups.end())
      section.Add("<li><span class=id>@</span> <i>not on this page</i>", ShortName(id, kIdWidth));
    else
      section.Add("<li><a class=id href='#@'>@</a> <code>@</code>", id, id,
                  ShortName(at->second->signature, std::min<std::size_t>(detail.nameWidth, 100)));
  }
  section.Add("</ul>@</section>", MoreNote(group.similar.size(), shown));
  return section;
}

Html MissingSymbols(const PageGroup& group, const PageDetail& detail) {
  Html section;
  if (group.missingSymbols.empty()) return section;
  section.Add("<section><h3>Symbols that would help most</h3>@</section>",
              CountList(group.missingSymbols, detail.items, false));
  return section;
}

Html Reports(const PageGroup& group, const PageDetail& detail) {
  Html section;
  if (group.reports.empty()) return section;
  section.Add("<section><h3>Reports</h3><ul class=r>");
  const std::size_t shown = std::min(group.reports.size(), detail.reports);
  for (const std::string& report : std::span(group.reports).first(shown))
    section.Add("<li>@", ShortPath(report, kPathWidth));
  section.Add("</ul>@</section>", MoreNote(std::max(group.count, group.reports.size()), shown));
  return section;
}

/// The frame that crashed; the first where none is marked.
const PageFrame* CrashingFrame(const PageGroup& group) {
  if (group.stack.empty()) return nullptr;
  const auto at = std::ranges::find_if(group.stack, &PageFrame::isCrashing);
  return at == group.stack.end() ? group.stack.data() : &*at;
}

/// Whether a frame near the crash has no name: those that start threads matter to nobody.
bool LacksNearSymbols(const PageGroup& group) {
  constexpr std::size_t kNear = 5;
  return std::ranges::any_of(group.stack | std::views::take(kNear),
                             [](const PageFrame& frame) { return frame.function.empty(); });
}

/// What the line says that opens the details: where, and what there is to see.
Html Summary(const PageGroup& group) {
  Html summary;
  if (const PageFrame* frame = CrashingFrame(group)) {
    if (!frame->sourceFile.empty())
      summary.Add("<span class=p>@</span> ", PlaceText(frame->sourceFile, frame->sourceLine, 60));
    if (!frame->module.empty())
      summary.Add("<span class=o>@</span> ", ShortPath(frame->module, kLabelWidth));
  }
  if (group.variants.size() > 1)
    summary.Add("<span>@</span> ", Counted(group.variants.size(), "variant", "variants"));
  if (!group.similar.empty()) summary.Add("<span>@ similar</span> ", Grouped(group.similar.size()));
  if (LacksNearSymbols(group)) summary.Add("<span>symbols missing</span> ");
  if (summary.Size() == 0) summary.Add("<span>Details</span>");
  return summary;
}

/// The id's link, and empty targets for what the group was called before.
Html Names(const PageGroup& group, const PageDetail& detail) {
  Html names;
  names.Add("<p class=k>Group <a class=id href='#@'>@</a>", group.id, group.id);
  for (const std::string& id : group.formerIds | std::views::take(detail.items))
    names.Add("<span class=id id='@'> formerly @</span>", id, id);
  names.Add("</p>");
  return names;
}

/// Everything; or something larger than `room`, if that is more.
Html DetailsBody(const PageGroup& group, const PageIndex& index, const PageDetail& detail,
                 std::size_t room) {
  Html body;
  Html stack = GroupStack(group, detail, room);
  if (stack.Size() > room) return stack;
  body.Add("@<div class=c>@@</div><div class=e>@<div class=f>@@@</div></div>", Names(group, detail),
           stack, Occurrence(group, index, detail), Variants(group, detail),
           Similar(group, index, detail), MissingSymbols(group, detail), Reports(group, detail));
  return body;
}

}  // namespace

Html GroupDetails(const PageGroup& group, const PageIndex& index, std::size_t room) {
  Html body;
  for (const PageDetail& detail : kDetails) {
    body = DetailsBody(group, index, detail, room);
    if (body.Size() <= room) break;
  }
  if (body.Size() > room) {
    body = {};
    body.Add(
        "<p class=k>Group <a class=id href='#@'>@</a></p><p class=note>Its names are too long for "
        "this page; the "
        "JSON has them.</p>",
        ShortName(group.id, kIdWidth), ShortName(group.id, kIdWidth));
  }
  Html details;
  details.Add(
      "<tr><td colspan=@><details><summary>@</summary><div class=b "
      "id='@'>@</div></details></tbody>\n",
      kGroupColumns, Summary(group), ShortName(group.id, kIdWidth), body);
  return details;
}

}  // namespace tarvo::toolkit
