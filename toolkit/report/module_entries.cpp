#include "toolkit/report/module_entries.h"

#include <algorithm>
#include <map>
#include <utility>

#include "tarvo/crash_report.h"

namespace tarvo::report {

namespace key = crash_report::key;

namespace {

void Add(ModuleEntry& module, const KeyValue& line) {
  if (line.key == key::kExecutable) module.path = line.value;
  if (line.key == key::kBuild) module.build = line.value;
  if (line.key == key::kBaseAddress) module.base = ParseAddress(line.value);
}

}  // namespace

std::vector<ModuleEntry> ReadModuleEntries(std::span<const ReportLine> lines) {
  std::vector<ModuleEntry> modules;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const bool isName = lines[i].kind == LineKind::Module;
    if (!isName && lines[i].kind != LineKind::ModuleValue) continue;
    const auto line = SplitOwnEntry(lines[i].text, isName ? kOuterDepth : kInnerDepth);
    if (!line) continue;
    if (isName) {
      modules.push_back({.nameLine = i, .lastLine = i, .name = line->value});
    } else if (!modules.empty()) {
      modules.back().lastLine = i;
      Add(modules.back(), *line);
    }
  }
  return modules;
}

AddressRange ProgramRange(std::span<const ModuleEntry> modules) {
  if (modules.empty() || !modules.front().base) return {};
  AddressRange range{*modules.front().base, UINT64_MAX};
  for (const ModuleEntry& module : modules)
    if (module.base && *module.base > range.first) range.end = std::min(range.end, *module.base);
  return range;
}

std::string_view ProgramName(const AddressRange& program, std::span<const OwnFrame> frames) {
  std::map<std::string_view, std::size_t> names;
  for (const OwnFrame& frame : frames)
    if (!frame.module.empty() && program.Holds(frame.address)) ++names[frame.module];
  const auto most =
      std::ranges::max_element(names, {}, [](const auto& name) { return name.second; });
  return most == names.end() ? std::string_view() : most->first;
}

std::string_view SharedBuild(std::span<const ModuleEntry> modules) {
  std::string_view shared;
  for (const ModuleEntry& module : modules) {
    if (module.build.empty() || module.build == shared) continue;
    if (!shared.empty()) return {};
    shared = module.build;
  }
  return shared;
}

}  // namespace tarvo::report
