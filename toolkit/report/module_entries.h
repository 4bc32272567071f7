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

/// The name that most frames have which lie in `modules`' first entry, the program; empty when none
/// does.
[[nodiscard]] std::string_view ProgramName(std::span<const ModuleEntry> modules,
                                           std::span<const OwnFrame> frames);

/// The build that all modules with a build share; empty when there are several, or none.
[[nodiscard]] std::string_view SharedBuild(std::span<const ModuleEntry> modules);

}  // namespace tarvo::report
