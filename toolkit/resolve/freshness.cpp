#include "toolkit/resolve/freshness.h"

#include <algorithm>
#include <optional>
#include <system_error>

#include "tarvo/report/resolve.h"
#include "tarvo/symbol_archive.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

std::optional<fs::file_time_type> TimeOf(const fs::path& file) {
  std::error_code missing;
  const auto time = fs::last_write_time(file, missing);
  return missing ? std::nullopt : std::optional(time);
}

std::optional<fs::file_time_type> TimeOf(const Url& file) {
  return TimeOf(fs::path(file.SystemPath().View()));
}

}  // namespace

Freshness::Freshness(const Url& archives) {
  std::error_code end;
  fs::recursive_directory_iterator entries(archives.SystemPath().View(),
                                           fs::directory_options::skip_permission_denied, end);
  for (; !end && entries != fs::recursive_directory_iterator(); entries.increment(end)) {
    const std::string name = entries->path().filename().string();
    if (!name.ends_with(symbol_archive::kSuffix)) continue;
    const auto time = TimeOf(entries->path());
    if (!time) continue;
    const std::string build = name.substr(0, name.size() - symbol_archive::kSuffix.size());
    const auto [newest, isFirst] = archives_.try_emplace(build, *time);
    newest->second = std::max(newest->second, *time);
  }
}

bool Freshness::IsUpToDate(const Report& report) const {
  const auto document = TimeOf(report::DocumentOf(report.file));
  const auto copy = TimeOf(report::CopyOf(report.file));
  const auto source = TimeOf(report.file);
  if (!document || !copy || !source) return false;
  const auto oldest = std::min(*document, *copy);
  if (report.builds->size() == kMaximumBuilds) return false;
  return oldest > *source && std::ranges::all_of(*report.builds, [&](const std::string& build) {
           const auto archive = archives_.find(build);
           return archive == archives_.end() || oldest > archive->second;
         });
}

}  // namespace tarvo::toolkit
