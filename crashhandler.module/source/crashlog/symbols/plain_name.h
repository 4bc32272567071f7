#pragma once

#include <string_view>

namespace tarvo::crashhandler {

/// Whether `name`, a text of a report, can stand for one entry of a directory: it is not empty, not
/// "." or "..", and holds no "/" and no NUL. No other text may become part of a path.
[[nodiscard]] constexpr bool IsPlainName(std::string_view name) noexcept {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

}  // namespace tarvo::crashhandler
