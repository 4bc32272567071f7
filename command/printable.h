#pragma once

#include <string>
#include <string_view>

namespace tarvo::command {

/// `text` without anything that would act on a terminal or end a line: control bytes, and what is
/// not UTF-8, stand as "\x1b".
[[nodiscard]] std::string Printable(std::string_view text);

}  // namespace tarvo::command
