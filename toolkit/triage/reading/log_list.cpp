#include "toolkit/triage/reading/log_list.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>

#include "tarvo/crash_report.h"
#include "toolkit/base/regular_file.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLookedAt = std::size_t{64} << 10;

std::string_view Trimmed(std::string_view line) {
  constexpr std::string_view kBlanks = " \t\r";
  const std::size_t first = std::min(line.find_first_not_of(kBlanks), line.size());
  line.remove_prefix(first);
  return line.substr(0, line.find_last_not_of(kBlanks) + 1);
}

/// Whether a file is one of results, by its start: its lines are whole objects, where a document
/// has its first brace, or the first member behind it, alone.
bool HasResults(const std::string& path) {
  const auto opened = OpenRegularFile(path);
  if (!opened) return false;
  std::string start(kLookedAt, '\0');
  start.resize(std::fread(start.data(), 1, start.size(), opened->file.get()));
  const std::size_t end = start.find('\n');
  const std::string_view first = Trimmed(std::string_view(start).substr(0, end));
  if (end == std::string::npos || end + 1 == start.size())
    return first.starts_with('{') && !path.ends_with(crash_report::kDocumentSuffix);
  return (first.starts_with('{') && first.ends_with('}') && first.size() > 2) ||
         Trimmed(std::string_view(start).substr(end + 1)).starts_with('{');
}

class Lister {
 public:
  void Add(const std::string& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::is_directory(status)) return AddDirectory(path);
    if (fs::is_regular_file(status)) return AddFile(path, HasResults(path));
    const bool isThere = fs::exists(status);
    list_.skipped.push_back({path, isThere ? "It is neither a file nor a directory."
                                           : "There is no such file or directory."});
  }

  LogList Take() {
    std::ranges::sort(list_.files, {}, &LogFile::path);
    return std::move(list_);
  }

 private:
  void AddFile(const std::string& path, bool hasResults) {
    std::error_code error;
    const fs::path canonical = fs::canonical(path, error);
    if (known_.insert(error ? path : canonical.string()).second)
      list_.files.push_back({path, hasResults});
  }

  void AddDirectory(const std::string& path) {
    std::error_code error;
    const fs::directory_iterator entries(path, error);
    if (error) {
      list_.skipped.push_back({path, "It could not be listed: " + error.message()});
      return;
    }
    // Sorted, so that of two names of one file the same stays everywhere.
    std::set<fs::path> inside;
    for (auto entry = begin(entries); !error && entry != end(entries); entry.increment(error))
      if (!entry->path().filename().string().starts_with('.')) inside.insert(entry->path());
    for (const fs::path& entry : inside) {
      const fs::file_status status = fs::status(entry, error);
      if (fs::is_directory(status)) {
        if (!fs::is_symlink(fs::symlink_status(entry, error))) AddDirectory(entry.string());
      } else if (entry.string().ends_with("." + std::string(crash_report::kDocumentSuffix)) &&
                 fs::is_regular_file(status)) {
        AddFile(entry.string(), false);
      }
    }
  }

  LogList list_{};
  std::set<std::string> known_{};  ///< paths without links
};

}  // namespace

LogList ListLogs(const std::vector<std::string>& paths) {
  Lister lister;
  for (const std::string& path : paths) lister.Add(path);
  return lister.Take();
}

}  // namespace tarvo::toolkit
