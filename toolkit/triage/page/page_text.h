#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "toolkit/triage/page/html.h"

/// How the page writes numbers, times and names.
namespace tarvo::toolkit {

/// "12,345".
[[nodiscard]] std::string Grouped(std::size_t number);
/// "1 report", "12,345 reports".
[[nodiscard]] std::string Counted(std::size_t number, std::string_view one, std::string_view many);
/// "12.3 %"; "< 0.1 %" for what would round to nothing.
[[nodiscard]] std::string Percent(std::size_t part, std::size_t whole);
/// "2026-11-22".
[[nodiscard]] std::string DayText(std::chrono::sys_days day);
/// "2026-11-22 05:33".
[[nodiscard]] std::string TimeText(std::chrono::sys_seconds time);

/// A C++ name in at most `width` columns, safe to show. What is dropped first are the arguments of
/// templates and functions, the innermost first ("Map<…>::Insert(…)"), so that the function's own
/// name stays as long as it can; then the middle of what is left. Names longer than kLongestName
/// bytes have lost their middle before.
[[nodiscard]] std::string ShortName(std::string_view name, std::size_t width);
inline constexpr std::size_t kLongestName = 16384;

/// A file's path in at most `width` columns; its end is what stays.
[[nodiscard]] std::string ShortPath(std::string_view path, std::size_t width);

/// "scene.cpp:15".
[[nodiscard]] std::string PlaceText(std::string_view file, std::uint64_t line, std::size_t width);

}  // namespace tarvo::toolkit
