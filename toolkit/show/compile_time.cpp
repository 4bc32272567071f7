#include "toolkit/show/compile_time.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <string>
#include <string_view>

#include "tarvo/crash_report.h"

namespace tarvo::toolkit {
namespace {

/// From "2026-11-21T13:09:40Z".
std::optional<std::int64_t> ToTime(std::string_view text) {
  std::tm time{};
  const char* end = strptime(std::string(text).c_str(), "%Y-%m-%dT%H:%M:%SZ", &time);
  return end == nullptr ? std::nullopt : std::optional<std::int64_t>(timegm(&time));
}

std::optional<std::int64_t> CrashTime(const CrashDocument& document) {
  for (const DocumentThread& thread : document.threads)
    if (const auto time = ToTime(FindText(thread.variables, crash_report::variable::kCrashTime)))
      return time;
  return ToTime(FindText(document.outcome, crash_report::property::kOutcomeTime));
}

/// When the module's file was changed last; what is no absolute path of a regular file has none.
std::optional<std::int64_t> BuildTime(const CrashDocument& document, std::string_view name) {
  const auto module = std::ranges::find(document.modules, name, &DocumentModule::name);
  if (module == document.modules.end() || !module->path.starts_with('/') ||
      module->path.find('\0') != std::string_view::npos)
    return std::nullopt;
  struct stat file{};
  if (stat(std::string(module->path).c_str(), &file) != 0 || !S_ISREG(file.st_mode))
    return std::nullopt;
  return file.st_mtim.tv_sec;
}

}  // namespace

std::optional<CompileBound> FindCompileBound(const CrashDocument& document,
                                             const DocumentFrame& frame) {
  const auto crash = CrashTime(document);
  const auto build = BuildTime(document, frame.module);
  if (build && (!crash || *build < *crash)) return CompileBound{*build, "the module was built"};
  return crash ? std::optional(CompileBound{*crash, "the crash"}) : std::nullopt;
}

}  // namespace tarvo::toolkit
