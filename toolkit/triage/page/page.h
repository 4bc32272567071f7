#pragma once

#include <cstddef>
#include <string>

#include "toolkit/triage/page/page_content.h"

namespace tarvo::toolkit {

/// Of groups beyond that many only the sum is on the page.
inline constexpr std::size_t kPageGroups = 2000;
/// A page is not larger. Where it would be, the groups' details say less.
inline constexpr std::size_t kLargestPage = std::size_t{12} << 20;

/// The page: one HTML document in UTF-8 that needs nothing else, neither file nor network, and lets
/// nothing else in: its Content-Security-Policy names the hashes of its own style sheet and script,
/// and refuses all other sources of anything. Without JavaScript it can be read in full; sorting
/// and filtering need it. `#ID` behind its address opens the group of that id.
///
/// The same content gives the same page. Takes some three times the page's size in memory.
[[nodiscard]] std::string MakePage(const PageContent& content);

}  // namespace tarvo::toolkit
