#include "toolkit/triage/page/group_stack.h"

#include <algorithm>
#include <span>
#include <string>

#include "tarvo/format.h"
#include "toolkit/triage/page/page_text.h"

namespace tarvo::toolkit {
namespace {

constexpr std::size_t kModuleWidth = 40;
constexpr std::size_t kPlaceWidth = 64;

Html FunctionHtml(const PageFrame& frame, const PageDetail& detail) {
  if (!frame.function.empty()) return NameHtml(frame.function, detail);
  Html text;
  if (frame.offset)
    text.Add("@", Format("+ 0x@{x}", *frame.offset).View());
  else
    text.Add("<i>no symbol</i>");
  return text;
}

Html PlaceHtml(const std::string& file, std::uint64_t line) {
  Html place;
  if (!file.empty()) place.Add("<span class=p>@</span>", PlaceText(file, line, kPlaceWidth));
  return place;
}

void AddFrame(Html& list, const PageFrame& frame, const PageDetail& detail) {
  // Elements are what makes a page of thousands of stacks slow: there is none that can be spared.
  if (frame.isCrashing)
    list.Add("<li class=x><div>@ <b class=m>crashed here</b></div>", FunctionHtml(frame, detail));
  else
    list.Add("<li>@", FunctionHtml(frame, detail));
  list.Add("@", PlaceHtml(frame.sourceFile, frame.sourceLine));
  if (!frame.module.empty())
    list.Add("<span class=o>@</span>", ShortPath(frame.module, kModuleWidth));
  const std::size_t shown = std::min(frame.inlinedInto.size(), detail.callers);
  for (const PageCaller& caller : std::span(frame.inlinedInto).first(shown))
    list.Add("<div class=i>@</div>@", NameHtml(caller.function, detail),
             PlaceHtml(caller.sourceFile, caller.sourceLine));
  if (shown < frame.inlinedInto.size())
    list.Add("<i>@</i>", Counted(frame.inlinedInto.size() - shown, "further inlined caller",
                                 "further inlined callers"));
}

}  // namespace

Html NameHtml(std::string_view name, const PageDetail& detail) {
  Html html;
  const std::string shown = ShortName(name, detail.nameWidth);
  const std::string whole = detail.wholeNames ? ShortName(name, kLongestName) : shown;
  if (whole == shown)
    html.Add("@", shown);
  else
    html.Add("<details class=w><summary>@</summary><div>@</div></details>", shown, whole);
  return html;
}

Html GroupStack(const PageGroup& group, const PageDetail& detail, std::size_t room) {
  Html section;
  section.Add("<section class=stack><h3>Stack</h3>");
  if (group.stack.empty()) {
    section.Add("<p class=note>The reports have no frames.</p></section>");
    return section;
  }
  const std::size_t shown = std::min(group.stack.size(), detail.frames);
  section.Add("<ol class=s start=0>");
  for (const PageFrame& frame : std::span(group.stack).first(shown)) {
    if (section.Size() > room) break;
    AddFrame(section, frame, detail);
  }
  section.Add("</ol>");
  if (const std::size_t further = group.stack.size() - shown + group.furtherFrames; further != 0)
    section.Add("<p class=note>and @</p>", Counted(further, "further frame", "further frames"));
  section.Add("</section>");
  return section;
}

}  // namespace tarvo::toolkit
