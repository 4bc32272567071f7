#include "host/report_destination.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "configuration/configuration_source.h"
#include "crash_guard/report_file.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

namespace fs = std::filesystem;

constexpr SourceFile kReportDestination{"tarvo/source/host/report_destination"};
constexpr const char* kReportEntry = "g_crashReportUrl";

/// What keeps this process from making or replacing the file at `path`; empty when nothing does.
/// `makesFolders`: missing ones are made at the crash.
std::string WriteProblem(const fs::path& path, bool makesFolders) {
  struct stat status{};
  const auto refused = [] { return std::generic_category().message(errno); };
  if (stat(path.c_str(), &status) == 0) {
    if (S_ISDIR(status.st_mode)) return std::generic_category().message(EISDIR);
    return faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0 ? "" : refused();
  }
  for (fs::path folder = path.parent_path();; folder = folder.parent_path()) {
    if (stat(folder.c_str(), &status) == 0) {
      if (!S_ISDIR(status.st_mode)) return std::generic_category().message(ENOTDIR);
      return faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0 ? "" : refused();
    }
    if (errno != ENOENT || !makesFolders || folder == folder.parent_path()) return refused();
  }
}

/// The fallback folder as an absolute path; empty when there is none.
fs::path FallbackFolder(std::string_view configured) {
  fs::path folder(configured);
  if (folder.empty() || folder.is_absolute()) return folder;
  // XDG base directories, version 0.8: a relative path in the variable is to be ignored.
  const char* state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && *state == '/') return state / folder;
  const char* home = std::getenv("HOME");
  return home == nullptr || *home != '/' ? fs::path() : home / fs::path(".local/state") / folder;
}

void Warn(StartWarnings& warnings, const fs::path& path, const std::string& problem,
          const fs::path& instead) {
  const std::string place = instead.empty() ? "standard error" : '"' + instead.string() + '"';
  warnings.Add(kReportDestination.Here(),
               Format("A crash report cannot be written to \"@\": @; it goes to @.", path.string(),
                      problem, place));
}

/// `folder`, made if need be, when a file `name` can be written there; else empty.
fs::path UsableFallback(const fs::path& folder, const fs::path& name) {
  if (folder.empty()) return {};
  std::error_code error;
  fs::create_directories(folder, error);
  return WriteProblem(folder / name, false).empty() ? folder / name : fs::path();
}

Result<void> Assign(Configuration& entries, const std::string& path, const char* source) {
  auto assigned =
      entries.Assign({{.name = kReportEntry, .value = PlainText{path}, .source = source}});
  if (assigned) entries.Apply();
  return assigned;
}

Result<void> UseGuardsFile(HostFramework& framework, const fs::path& fallback,
                           StartWarnings& warnings) {
  const std::string_view pattern = framework.OwnEntries().crashGuard.report.View();
  const auto path = PrepareReportFile(pattern, fallback.string());
  if (!path) return path.GetError();
  const PreparedReport report = PreparedReportOfNow();
  if (const std::string problem = WriteProblem(report.path, report.makesFolders); !problem.empty())
    Warn(warnings, report.path, problem,
         UsableFallback(fallback, fs::path(report.path).filename()));
  return Assign(framework.Entries(), *path, "g_crashGuardReport");
}

/// Whether the guard is to put the report into a file of its own. One that only the program that
/// started this one wants does not replace what is configured here.
bool HasGuardsFile(HostFramework& framework) {
  const CrashGuardOptions& guard = framework.OwnEntries().crashGuard;
  if (!guard.enabled || guard.report.IsEmpty()) return false;
  const Configuration& entries = framework.Entries();
  const bool isForeign =
      entries.SourceOf("g_crashGuardReport").find(kDefaultVariableStart) != std::string_view::npos;
  return !isForeign || entries.SourceOf(kReportEntry).empty();
}

}  // namespace

Result<void> UseReportDestination(HostFramework& framework, StartWarnings& warnings) {
  const fs::path fallback = FallbackFolder(framework.OwnEntries().reportFallback.View());
  if (HasGuardsFile(framework)) return UseGuardsFile(framework, fallback, warnings);
  const Result<String> configured = framework.Entries().QueryString(kReportEntry);
  if (!configured || configured->IsEmpty()) return {};
  const Result<Url> url = Url::FromText(*configured);
  // The module that writes there says what is wrong with it.
  if (!url) return {};
  const fs::path path(url->SystemPath().View());
  std::error_code error;
  const std::string problem = WriteProblem(fs::absolute(path, error), false);
  if (problem.empty()) return {};
  const fs::path instead = UsableFallback(fallback, path.filename());
  Warn(warnings, path, problem, instead);
  if (instead.empty()) return {};
  return Assign(framework.Entries(), instead.string(), "g_crashReportFallback");
}

}  // namespace tarvo
