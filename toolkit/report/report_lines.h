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
  Register,     ///< a line of a thread's registers
  Variable,     ///< "NAME = VALUE" of a thread
  Module,       ///< opens a module's entry, "ModuleName = …"
  ModuleValue,  ///< "KEY = VALUE" of a module's entry
};

struct ReportLine {
  LineKind kind = LineKind::Other;
  std::string_view text;  ///< with the line's end
};

[[nodiscard]] std::vector<ReportLine> CutReport(std::string_view report);

/// The same for a report of this project's own capture, whose lines are known to the letter: a name
/// may start with whatever opens or ends a block elsewhere. A name that holds line ends makes one
/// line here, with them in it. Lines end with "\n" alone.
[[nodiscard]] std::vector<ReportLine> CutOwnReport(std::string_view report);

/// How deep the lines of an own report stand: threads and modules, what is in them, variables.
inline constexpr std::size_t kOuterDepth = 2;
inline constexpr std::size_t kInnerDepth = 3;
inline constexpr std::size_t kVariableDepth = 4;

/// A line of an own report without the `depth` tabs in front of it and without its end: blanks are
/// of the text. A line with fewer tabs loses all blanks in front.
[[nodiscard]] std::string_view OwnContent(std::string_view line, std::size_t depth) noexcept;

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

/// An entry of an own report, in front of which stand `depth` tabs: the value is all that follows
/// "KEY = ".
[[nodiscard]] std::optional<KeyValue> SplitOwnEntry(std::string_view line,
                                                    std::size_t depth) noexcept;

/// "0x7f2a…", or "(nil)", as a number; nothing when it is another text.
[[nodiscard]] std::optional<std::uint64_t> ParseAddress(std::string_view text) noexcept;
/// Appends `address` as such a text.
void AppendAddress(std::string& text, std::uint64_t address);

}  // namespace tarvo::report
