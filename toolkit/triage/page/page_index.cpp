#include "toolkit/triage/page/page_index.h"

#include <algorithm>
#include <ranges>
#include <utility>

#include "toolkit/triage/page/page.h"

namespace tarvo::toolkit {
namespace {

void AddChoice(PageIndex::Choices& choices, std::string_view name) {
  if (choices.names.size() < kMostChoices &&
      choices.numbers.try_emplace(name, choices.names.size()).second)
    choices.names.push_back(name);
}

PageIndex::Choices SystemsOf(std::span<const PageGroup> groups) {
  std::map<std::string_view, std::size_t> counts;
  for (const PageGroup& group : groups)
    for (const PageCount& system : group.systems) counts[system.name] += system.count;
  std::vector<std::pair<std::size_t, std::string_view>> byCount;
  for (const auto& [name, count] : counts) byCount.emplace_back(count, name);
  std::ranges::stable_sort(byCount, std::greater(),
                           &std::pair<std::size_t, std::string_view>::first);
  PageIndex::Choices systems;
  for (const auto& [count, name] : byCount) AddChoice(systems, name);
  return systems;
}

}  // namespace

PageIndex MakePageIndex(const PageContent& content) {
  PageIndex index;
  index.window = FindDayWindow(content.groups);
  index.shown = std::span(content.groups).first(std::min(content.groups.size(), kPageGroups));
  for (const PageGroup& group : content.groups) {
    index.reports += group.count;
    index.mostReports = std::max(index.mostReports, group.count);
  }
  for (const std::string& build : content.builds | std::views::reverse)
    AddChoice(index.builds, build);
  for (const PageGroup& group : index.shown) {
    index.groups.emplace(group.id, &group);
    for (const PageCount& build : group.builds) AddChoice(index.builds, build.name);
  }
  index.systems = SystemsOf(index.shown);
  return index;
}

}  // namespace tarvo::toolkit
