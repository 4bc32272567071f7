#pragma once

#include <cstddef>
#include <map>
#include <span>
#include <string_view>
#include <vector>

#include "toolkit/triage/page/day_window.h"
#include "toolkit/triage/page/page_content.h"

namespace tarvo::toolkit {

/// What the page's parts need to know of the whole. Refers to the content.
struct PageIndex {
  /// Names that groups can be filtered by, with their numbers.
  struct Choices {
    std::vector<std::string_view> names;
    std::map<std::string_view, std::size_t> numbers;
  };

  DayWindow window;
  std::span<const PageGroup> shown;                     ///< groups that are on the page
  std::size_t reports = 0;                              ///< of all groups
  std::size_t mostReports = 0;                          ///< of one group
  Choices builds;                                       ///< newest first
  Choices systems;                                      ///< most frequent first
  std::map<std::string_view, const PageGroup*> groups;  ///< those shown, by id
};

/// Of more builds or systems only so many can be chosen.
inline constexpr std::size_t kMostChoices = 100;

[[nodiscard]] PageIndex MakePageIndex(const PageContent& content);

}  // namespace tarvo::toolkit
