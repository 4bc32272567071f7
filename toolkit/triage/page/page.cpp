#include "toolkit/triage/page/page.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "toolkit/triage/page/crash_chart.h"
#include "toolkit/triage/page/group_details.h"
#include "toolkit/triage/page/group_row.h"
#include "toolkit/triage/page/html.h"
#include "toolkit/triage/page/page_assets.h"
#include "toolkit/triage/page/page_index.h"
#include "toolkit/triage/page/page_text.h"

namespace tarvo::toolkit {
namespace {

constexpr std::size_t kTitleWidth = 120;
constexpr std::size_t kChoiceWidth = 60;
/// What one group's details may take where there is room.
constexpr std::size_t kMostDetailBytes = std::size_t{256} << 10;
/// Left for what comes behind the groups.
constexpr std::size_t kPageReserve = std::size_t{64} << 10;

Html Head(const PageContent& content) {
  Html head;
  head.Add(
      "<!doctype html>\n<html lang=en>\n<head>\n<meta charset=utf-8>\n"
      "<meta http-equiv=Content-Security-Policy content=\"default-src 'none'; style-src '@'; "
      "script-src '@'; "
      "base-uri 'none'; form-action 'none'\">\n"
      "<meta name=referrer content=no-referrer>\n"
      "<meta name=viewport content='width=device-width, initial-scale=1'>\n"
      "<meta name=color-scheme content='light dark'>\n<title>@</title>\n",
      kPageStyleHash, kPageScriptHash, ShortName(content.title, kTitleWidth));
  return head;
}

/// The figures at the top.
Html Facts(const PageContent& content, const PageIndex& index) {
  const auto newOnes =
      static_cast<std::size_t>(std::ranges::count_if(content.groups, &PageGroup::isNew));
  Html header;
  header.Add("<header><h1><bdi>@</bdi></h1>", ShortName(content.title, kTitleWidth));
  header.Add(
      "<dl><div><dt>Reports<dd>@</div><div><dt>Groups<dd>@</div><div><dt>Days with "
      "crashes<dd>@</div>",
      Grouped(index.reports), Grouped(content.groups.size()),
      index.window.daysWithReports == 0 ? "–" : Grouped(index.window.daysWithReports));
  if (newOnes != 0 && !content.builds.empty() && !content.builds.back().empty())
    header.Add("<div class=new><dt>New in <bdi>@</bdi><dd>@</div>",
               ShortName(content.builds.back(), 32), Grouped(newOnes));
  header.Add("</dl>");
  if (content.skipped != 0)
    header.Add("<p class=note>@ could not be read.</p>",
               Counted(content.skipped, "crash log", "crash logs"));
  header.Add("</header>\n");
  return header;
}

Html Choice(std::string_view id, std::string_view label, std::string_view all,
            const PageIndex::Choices& choices) {
  Html choice;
  choice.Add("<label>@ <select id=@><option value=''>@", label, id, all);
  for (std::size_t i = 0; i < choices.names.size(); ++i)
    choice.Add("<option value=@>@", i,
               choices.names[i].empty() ? "unknown" : ShortName(choices.names[i], kChoiceWidth));
  choice.Add("</select></label>\n");
  return choice;
}

/// Hidden until the script is there that makes it work.
Html Filters(const PageIndex& index) {
  Html filters;
  filters.Add(
      "<noscript><p class=note>Sorting and filtering need JavaScript.</p></noscript>\n"
      "<div id=filters role=search aria-label='Filter groups' hidden>\n"
      "<label class=find>Find <input id=find type=search autocomplete=off spellcheck=false "
      "placeholder="
      "'function, file, class, id'></label>\n@@"
      "<label>Marked <select id=marked><option value=''>all<option value=new>new<option "
      "value=back>back<option "
      "value=rising>rising</select></label>\n"
      "<output id=found></output><button id=clear type=button hidden>Show all</button></div>\n",
      Choice("build", "Build", "all builds", index.builds),
      Choice("system", "System", "all systems", index.systems));
  return filters;
}

/// The sum of what is not on the page.
Html Rest(const PageContent& content, const PageIndex& index) {
  std::size_t reports = 0;
  for (const PageGroup& group : std::span(content.groups).subspan(index.shown.size()))
    reports += group.count;
  Html rest;
  rest.Add("<tfoot><tr><td colspan=@>And @ with @ (@). ", kGroupColumns,
           Counted(content.groups.size() - index.shown.size(), "less frequent group",
                   "less frequent groups"),
           Counted(reports, "report", "reports"), Percent(reports, index.reports));
  if (content.document.empty())
    rest.Add("The option --json writes them all.</tfoot>\n");
  else
    rest.Add("All groups are in <bdi>@</bdi>.</tfoot>\n", ShortPath(content.document, kTitleWidth));
  return rest;
}

void AddGroups(Html& page, const PageContent& content, const PageIndex& index) {
  page.Add("<section class=groups aria-labelledby=groups-title><h2 id=groups-title>Groups</h2>\n");
  if (content.groups.empty()) {
    page.Add("<p class=empty>There is nothing to show: no crash log was read.</p></section>\n");
    return;
  }
  page.Add("@<table id=groups>@", Filters(index), GroupHead());
  for (std::size_t i = 0; i < index.shown.size(); ++i) {
    // What one group leaves over is for the others.
    const std::size_t left =
        kLargestPage - kPageReserve - std::min(page.Size(), kLargestPage - kPageReserve);
    const std::size_t share = left / (index.shown.size() - i);
    const Html row = GroupRow(index.shown[i], i + 1, index);
    page.Add("@@", row,
             GroupDetails(index.shown[i], index,
                          std::min(share - std::min(share, row.Size()), kMostDetailBytes)));
  }
  if (index.shown.size() < content.groups.size()) page.Add("@", Rest(content, index));
  page.Add("</table>\n<p id=none class=empty hidden>No group is like that.</p></section>\n");
}

void AddFooter(Html& page, const PageContent& content) {
  page.Add(
      "<footer><p id=keys hidden><kbd>/</kbd> find <kbd>↓</kbd> <kbd>↑</kbd> next and previous "
      "group "
      "<kbd>Enter</kbd> open <kbd>Esc</kbd> show all</p><p>All times are UTC.");
  if (content.made) page.Add(" Made @.", TimeText(*content.made));
  page.Add("</footer>\n");
}

}  // namespace

std::string MakePage(const PageContent& content) {
  const PageIndex index = MakePageIndex(content);
  Html page = Head(content);
  page.AddAsset("<style>", kPageStyle, "</style>\n</head>\n<body>\n");
  page.Add("@<main>\n", Facts(content, index));
  if (!content.groups.empty()) page.Add("@", CrashChart(content, index.window));
  AddGroups(page, content, index);
  page.Add("</main>\n");
  AddFooter(page, content);
  page.AddAsset("<script>", kPageScript, "</script>\n</body>\n</html>\n");
  return std::move(page).Take();
}

}  // namespace tarvo::toolkit
