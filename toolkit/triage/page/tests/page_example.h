#pragma once

#include <cstddef>
#include <string_view>

#include "toolkit/triage/page/page_content.h"

namespace tarvo::toolkit {

/// Content as a viewer of scenes with so many kinds of crashes would give it in three months: the
/// same for the same number. A few bugs make most of the reports, each has its builds and its days.
[[nodiscard]] PageContent ExampleContent(std::size_t groups);

/// Names and numbers as an attacker or a broken machine would have them. Every text that can be
/// followed by `kHostileText` is.
[[nodiscard]] PageContent HostileContent();
inline constexpr std::string_view kHostileText =
    "</script></style><script>document.title='taken'</script><img src=x onerror=alert(1)>\"'&amp;"
    "\xe2\x80\xae\xd7\xa9\xd7\x9c\x1b[2J";

/// A function of some ten kilobytes whose own name comes last.
[[nodiscard]] std::string TemplateName();

/// A group of which everything is as long as can be.
[[nodiscard]] PageGroup LargeGroup(std::size_t number);

}  // namespace tarvo::toolkit
