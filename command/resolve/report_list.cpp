#include "command/resolve/report_list.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>

#include "command/normalize/report_lines.h"
#include "command/resolve/outcome_files.h"
#include "tarvo/format.h"

namespace tarvo::command {
namespace {

constexpr std::string_view kReportNameEnd = "_bugreport.txt";

class Collector {
 public:
  explicit Collector(FileService& files) : files_(files) {}

  void Add(const Url& path) {
    switch (files_.Detect(path)) {
      case FileKind::Directory:
        return AddDirectory(path);
      case FileKind::Nothing:
        return Fail(path, "There is no such file or directory.");
      case FileKind::File:
      case FileKind::Other:
        return AddFile(path);
    }
  }

  /// Sorted, each once; then the two that would have one outcome.
  std::vector<Url> TakeFiles() {
    std::vector<Url> files;
    std::map<std::string, Url> outcomes;
    for (auto& [name, file] : found_) {
      const auto [first, isNew] = outcomes.try_emplace(DocumentOf(file).Text().ToStdString(), file);
      if (isNew) {
        files.push_back(std::move(file));
      } else {
        Fail(file, Format("Its outcome would have the same name as that of @.", first->second));
      }
    }
    return files;
  }

  std::vector<Failure> failures;

 private:
  void Fail(const Url& file, String reason) { failures.push_back({file, std::move(reason)}); }

  void AddFile(const Url& file) {
    std::error_code missing;
    const std::string path = file.SystemPath().ToStdString();
    const auto canonical = std::filesystem::weakly_canonical(path, missing);
    found_.try_emplace(missing ? path : canonical.string(), file);
  }

  void AddDirectory(const Url& directory) {
    Result<Ref<BrowseIterator>> entries = files_.Browse(directory);
    if (!entries) return Fail(directory, entries.GetError().Text());
    DirectoryEntry entry;
    for (;;) {
      const Result<bool> isThere = (*entries)->Next(entry);
      if (!isThere) return Fail(directory, isThere.GetError().Text());
      if (!*isThere) return;
      if ((entry.attributes & kSkippedAttribute) != 0) continue;
      if ((entry.attributes & kDirectoryAttribute) != 0) {
        AddDirectory(entry.url);
      } else if (entry.name.ToLower().EndsWith(kReportNameEnd)) {
        AddFile(entry.url);
      }
    }
  }

  FileService& files_;
  std::map<std::string, Url> found_;  ///< by canonical path
};

}  // namespace

std::vector<std::string> BuildsIn(std::string_view report) {
  constexpr std::string_view kKey = "Build";
  std::vector<std::string> builds;
  for (std::size_t at = report.find(kKey); at != std::string_view::npos;
       at = report.find(kKey, at + kKey.size())) {
    const std::size_t start = report.rfind('\n', at) + 1;
    const auto line = SplitKeyValue(report.substr(start, report.find('\n', at) - start));
    if (!line || line->key != kKey || line->value.empty()) continue;
    if (std::ranges::find(builds, line->value) == builds.end()) builds.emplace_back(line->value);
    if (builds.size() == kMaximumBuilds) break;
  }
  return builds;
}

ReportList ListReports(FileService& files, const std::vector<std::string>& paths) {
  Collector collector(files);
  for (const std::string& path : paths) collector.Add(Url::FromSystemPath(path));
  ReportList list;
  for (const Url& file : collector.TakeFiles()) {
    const Result<String> text = files.ReadText(file);
    if (text) {
      list.reports.push_back({file, BuildsIn(*text), IsOwnReport(*text)});
    } else {
      collector.failures.push_back({file, text.GetError().Text()});
    }
  }
  list.failures = std::move(collector.failures);
  return list;
}

}  // namespace tarvo::command
