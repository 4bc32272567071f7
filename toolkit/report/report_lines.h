#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

/// The lines of a crash report, with what each one is. Anything can be cut so: what fits no rule is
/// `Other`. All texts are views of the report.
namespace tarvo::toolkit {

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

/// Whether it is a report of this project's own capture.
[[nodiscard]] bool IsOwnReport(std::string_view report) noexcept;

/// `line` without blanks and line end around it.
[[nodiscard]] std::string_view Content(std::string_view line) noexcept;

struct KeyValue {
  std::string_view key;
  std::string_view value;
};
/// "KEY = VALUE"; nothing when there is no "=".
[[nodiscard]] std::optional<KeyValue> SplitKeyValue(std::string_view line) noexcept;

}  // namespace tarvo::toolkit
