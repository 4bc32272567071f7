#include "toolkit/triage/result/triage_page.h"

#include <utility>

#include "toolkit/triage/page/page.h"

namespace tarvo::toolkit {
namespace {

PageCaller CallerOf(const StackEntry& entry) {
  return {
      .function = entry.function, .sourceFile = entry.sourceFile, .sourceLine = entry.sourceLine};
}

/// One frame of an entry and of those that it is inlined into.
std::vector<PageFrame> FramesOf(const CrashStack& stack) {
  std::vector<PageFrame> frames;
  bool isInlined = false;
  for (const StackEntry& entry : stack) {
    if (std::exchange(isInlined, entry.isInlined)) {
      frames.back().inlinedInto.push_back(CallerOf(entry));
      continue;
    }
    frames.push_back({.module = entry.module,
                      .function = entry.function,
                      .sourceFile = entry.sourceFile,
                      .sourceLine = entry.sourceLine,
                      .offset = entry.moduleOffset,
                      .isCrashing = frames.empty()});
  }
  return frames;
}

std::vector<PageCount> CountsOf(const std::vector<NamedCount>& counts) {
  std::vector<PageCount> all;
  for (const NamedCount& count : counts) all.push_back({.name = count.name, .count = count.count});
  return all;
}

PageGroup GroupOf(const TriageGroup& group) {
  PageGroup page{.id = group.id,
                 .formerIds = group.formerIds,
                 .signature = group.signature,
                 .crashClass = group.crashClass,
                 .count = group.count,
                 .builds = CountsOf(group.builds),
                 .systems = CountsOf(group.systems),
                 .first = group.first,
                 .last = group.last,
                 .isNew = group.isNew,
                 .isBack = group.isBack,
                 .isRising = group.isRising,
                 .reports = group.reports,
                 .similar = group.similarTo,
                 .missingSymbols = CountsOf(group.missing)};
  for (const DayCount& day : group.days) page.days.push_back({day.day, day.build, day.count});
  for (const TriageVariant& variant : group.variants)
    page.variants.push_back({variant.id, variant.frames, variant.count});
  if (group.variants.empty()) return page;
  page.stack = FramesOf(group.variants.front().stack);
  page.furtherFrames = group.variants.front().furtherFrames;
  return page;
}

}  // namespace

std::string TriagePage(const TriageResult& result, const std::string& document,
                       std::chrono::sys_seconds made) {
  PageContent content{.made = made,
                      .document = document,
                      .builds = result.builds,
                      .skipped = result.skipped.size()};
  for (const TriageGroup& group : result.groups) content.groups.push_back(GroupOf(group));
  return MakePage(content);
}

}  // namespace tarvo::toolkit
