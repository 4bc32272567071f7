#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The lines of a crash report, with what each one is. Anything can be cut so: what fits no rule is
/// `Other`. All texts are views of the report.
namespace tarvo::report {

enum class LineKind {
  Other,
  Thread,       ///< opens a thread's block
  Frame,        ///< a line of a call stack
  Variable,     ///< "NAME = VALUE" of a thread
  Module,       ///< opens a module's entry, "ModuleName = …"
  ModuleValue,  ///< "KEY = VALUE" of a module's entry
};

struct ReportLine {
  LineKind kind = LineKind::Other;
  std::string_view text;  ///< with the line's end
};

[[nodiscard]] std::vector<ReportLine> CutReport(std::string_view report);

/// The first word of a report, one of crash_report::kMagics; empty when the text is no report.
[[nodiscard]] std::string_view Magic(std::string_view text) noexcept;

/// `line` without blanks and line end around it.
[[nodiscard]] std::string_view Content(std::string_view line) noexcept;

struct KeyValue {
  std::string_view key;
  std::string_view value;
};
/// "KEY = VALUE"; nothing when there is no "=".
[[nodiscard]] std::optional<KeyValue> SplitKeyValue(std::string_view line) noexcept;

/// "0x7f2a…", or "(nil)", as a number; nothing when it is another text.
[[nodiscard]] std::optional<std::uint64_t> ParseAddress(std::string_view text) noexcept;
/// Appends `address` as such a text.
void AppendAddress(std::string& text, std::uint64_t address);

}  // namespace tarvo::report
