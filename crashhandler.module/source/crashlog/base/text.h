#pragma once

#include <algorithm>
#include <string_view>

/// Small operations on the views that the tokenizer hands out. Blanks are " " and tab.
namespace tarvo::crashhandler {

inline constexpr std::string_view kBlanks = " \t";

[[nodiscard]] constexpr bool IsBlank(char c) noexcept { return c == ' ' || c == '\t'; }

/// `text` without leading blanks.
[[nodiscard]] constexpr std::string_view SkipBlanks(std::string_view text) noexcept {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  return text;
}

/// `text` without trailing blanks.
[[nodiscard]] constexpr std::string_view DropTrailingBlanks(std::string_view text) noexcept {
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

[[nodiscard]] constexpr std::string_view Trim(std::string_view text) noexcept {
  return DropTrailingBlanks(SkipBlanks(text));
}

}  // namespace tarvo::crashhandler
