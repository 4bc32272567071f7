#pragma once

#include <cstddef>

#include "toolkit/triage/page/html.h"
#include "toolkit/triage/page/page_content.h"

namespace tarvo::toolkit {

/// How much a group's details may say.
struct PageDetail {
  std::size_t frames;
  std::size_t callers;  ///< of a frame
  std::size_t items;    ///< of each other list
  std::size_t reports;
  std::size_t nameWidth;  ///< of a name, in columns
  bool wholeNames;        ///< longer names can be opened
};

/// A C++ name, and where `detail` allows it, all of it to open where it is too long to be shown.
[[nodiscard]] Html NameHtml(std::string_view name, const PageDetail& detail);

/// The stack of a group's representative, with inlined callers. Ends early once it is larger than
/// `room` bytes, when it is of no use.
[[nodiscard]] Html GroupStack(const PageGroup& group, const PageDetail& detail, std::size_t room);

}  // namespace tarvo::toolkit
