#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "toolkit/report/own_frame.h"
#include "toolkit/report/report_lines.h"

namespace tarvo::report {

/// An entry of a report's list of modules.
struct ModuleEntry {
  std::size_t nameLine = 0;  ///< index of its "ModuleName = …"
  std::size_t lastLine = 0;  ///< index of its last "KEY = VALUE"
  std::string_view name{};
  std::string_view path{};
  std::string_view build{};
  std::optional<std::uint64_t> base{};
};

[[nodiscard]] std::vector<ModuleEntry> ReadModuleEntries(std::span<const ReportLine> lines);

struct AddressRange {
  std::uint64_t first = 0;
  std::uint64_t end = 0;

  [[nodiscard]] bool Holds(std::uint64_t address) const noexcept {
    return address >= first && address < end;
  }
};

/// Where `modules`' first entry lies, the program: up to the module that follows it in memory.
/// Empty where that is not known.
[[nodiscard]] AddressRange ProgramRange(std::span<const ModuleEntry> modules);

/// The name that most frames have which lie in `program`; empty when none does.
[[nodiscard]] std::string_view ProgramName(const AddressRange& program,
                                           std::span<const OwnFrame> frames);

/// The build that all modules with a build share; empty when there are several, or none.
[[nodiscard]] std::string_view SharedBuild(std::span<const ModuleEntry> modules);

}  // namespace tarvo::report
