#include "toolkit/triage/page/page_text.h"

#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

/// What is shorter, between its brackets, is not worth dropping: "(anonymous namespace)".
constexpr std::size_t kShortArguments = 24;
constexpr std::string_view kOperator = "operator";

/// How many bytes at `at` are an operator's own, brackets or not: of "operator<<" all.
std::size_t OperatorSize(std::string_view name, std::size_t at) {
  const auto isInName = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
  };
  if (!name.substr(at).starts_with(kOperator) || (at > 0 && isInName(name[at - 1]))) return 0;
  std::size_t end = at + kOperator.size();
  if (name.substr(end).starts_with("()")) return kOperator.size() + 2;
  while (end < name.size() && std::string_view("<>=-").find(name[end]) != std::string_view::npos)
    ++end;
  // Of "operator<<int>" only the first is the operator's; "operator<<<int>" has two.
  const std::string_view signs = name.substr(at + kOperator.size(), end - at - kOperator.size());
  const bool opensArguments = signs.size() > 1 && signs.ends_with('<') && end < name.size() &&
                              name[end] != '(' && name[end] != ' ';
  return end - at - (opensArguments ? 1 : 0);
}

/// For each bracket that opens, where it is closed; for all else 0. Empty when they do not fit.
std::vector<std::size_t> MatchBrackets(std::string_view name) {
  std::vector<std::size_t> closes(name.size(), 0);
  std::vector<std::size_t> open;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (const std::size_t own = OperatorSize(name, i); own != 0) {
      i += own - 1;
    } else if (name[i] == '<' || name[i] == '(') {
      open.push_back(i);
    } else if ((name[i] == '>' && (i == 0 || name[i - 1] != '-')) || name[i] == ')') {
      if (open.empty() || (name[open.back()] == '<') != (name[i] == '>')) return {};
      closes[open.back()] = i;
      open.pop_back();
    }
  }
  return open.empty() ? closes : std::vector<std::size_t>();
}

/// `name` without the arguments that are `depth` brackets deep.
std::string WithoutArguments(std::string_view name, const std::vector<std::size_t>& closes,
                             std::size_t depth) {
  std::string text;
  std::vector<std::size_t> ends;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (!ends.empty() && ends.back() == i) ends.pop_back();
    text += name[i];
    if (closes[i] == 0) continue;
    if (ends.size() >= depth && closes[i] - i > kShortArguments) {
      text += "…";
      i = closes[i] - 1;
    } else {
      ends.push_back(closes[i]);
    }
  }
  return text;
}

/// All of it, if it is not too long.
std::string Whole(std::string_view name) {
  constexpr std::size_t kHalf = kLongestName / 2;
  if (name.size() <= kLongestName) return SafeText(name);
  return SafeText(name.substr(0, kHalf)) + "…" + SafeText(name.substr(name.size() - kHalf));
}

std::string WithoutMiddle(std::string_view text, std::size_t width) {
  const std::size_t end = width / 3;
  return Shortened(text, width - end) +
         Shortened(text, end + 1, true).substr(std::string_view("…").size());
}

}  // namespace

std::string Grouped(std::size_t number) {
  std::string text = std::to_string(number);
  for (std::size_t i = text.size(); i > 3; i -= 3) text.insert(i - 3, 1, ',');
  return text;
}

std::string Counted(std::size_t number, std::string_view one, std::string_view many) {
  return Grouped(number) + ' ' + std::string(number == 1 ? one : many);
}

std::string Percent(std::size_t part, std::size_t whole) {
  if (whole == 0) return "0 %";
  const double percent = 100.0 * static_cast<double>(part) / static_cast<double>(whole);
  if (part != 0 && percent < 0.05) return "< 0.1 %";
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f %%", percent);
  return text.data();
}

std::string DayText(std::chrono::sys_days day) {
  const std::chrono::year_month_day date(day);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02u", int{date.year()},
                unsigned{date.month()}, unsigned{date.day()});
  return text.data();
}

std::string TimeText(std::chrono::sys_seconds time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const auto minutes = std::chrono::floor<std::chrono::minutes>(time - day).count();
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), " %02d:%02d", static_cast<int>(minutes / 60),
                static_cast<int>(minutes % 60));
  return DayText(day) + text.data();
}

std::string ShortName(std::string_view name, std::size_t width) {
  std::string safe = Whole(name);
  if (TextWidth(safe) <= width) return safe;
  if (const auto closes = MatchBrackets(safe); !closes.empty()) {
    for (const std::size_t depth : {std::size_t{2}, std::size_t{1}, std::size_t{0}}) {
      std::string shorter = WithoutArguments(safe, closes, depth);
      if (TextWidth(shorter) <= width) return shorter;
      if (depth == 0) safe = std::move(shorter);
    }
  }
  return WithoutMiddle(safe, width);
}

std::string ShortPath(std::string_view path, std::size_t width) {
  if (path.size() > kLongestName) path.remove_prefix(path.size() - kLongestName);
  return Shortened(SafeText(path), width, true);
}

std::string PlaceText(std::string_view file, std::uint64_t line, std::size_t width) {
  if (file.empty()) return {};
  if (file.starts_with("./")) file.remove_prefix(2);
  return ShortPath(file, width) + (line == 0 ? std::string() : ':' + std::to_string(line));
}

}  // namespace tarvo::toolkit
