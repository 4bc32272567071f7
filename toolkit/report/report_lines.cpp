#include "toolkit/report/report_lines.h"

#include <algorithm>
#include <charconv>

#include "tarvo/crash_report.h"
#include "toolkit/report/block_follower.h"

namespace tarvo::report {

std::string_view Content(std::string_view line) noexcept { return Trimmed(line, " \t\r\n"); }

std::optional<KeyValue> SplitKeyValue(std::string_view line) noexcept {
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos) return std::nullopt;
  return KeyValue{Content(line.substr(0, equals)), Content(line.substr(equals + 1))};
}

std::optional<std::uint64_t> ParseAddress(std::string_view text) noexcept {
  if (text == crash_report::kNull) return 0;
  if (!text.starts_with(crash_report::kHexadecimal)) return std::nullopt;
  text.remove_prefix(crash_report::kHexadecimal.size());
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, number, 16);
  if (status != std::errc{} || stop != end) return std::nullopt;
  return number;
}

void AppendAddress(std::string& text, std::uint64_t address) {
  char digits[16];
  const auto end = std::to_chars(digits, digits + sizeof digits, address, 16).ptr;
  text += crash_report::kHexadecimal;
  text.append(digits, end);
}

std::string_view Magic(std::string_view text) noexcept {
  if (text.starts_with(crash_report::kByteOrderMark))
    text.remove_prefix(crash_report::kByteOrderMark.size());
  const std::size_t start = text.find_first_not_of(" \t\r\n");
  if (start == std::string_view::npos) return {};
  text.remove_prefix(start);
  const std::string_view line = text.substr(0, text.find_first_of("\r\n"));
  const auto magic = std::ranges::find_if(
      crash_report::kMagics, [&](std::string_view known) { return Opens(line, known); });
  return magic == crash_report::kMagics.end() ? std::string_view() : *magic;
}

std::vector<ReportLine> CutReport(std::string_view report) {
  std::vector<ReportLine> lines;
  BlockFollower reader;
  while (!report.empty()) {
    const std::string_view line = TakeLine(report);
    lines.push_back({reader.Read(Content(line)), line});
  }
  return lines;
}

}  // namespace tarvo::report
