#include "toolkit/resolve/report_list.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "tarvo/crash_report.h"
#include "tarvo/format.h"
#include "tarvo/report/normalize.h"
#include "toolkit/report/report_lines.h"
#include "toolkit/report/report_text.h"

namespace tarvo::toolkit {
namespace {

struct Found {
  std::string canonical;  ///< the path with no links in its directory
  Url file;
};

class Collector {
 public:
  explicit Collector(FileService& files) : files_(files) {}

  void Add(const Url& path) {
    switch (files_.Detect(path)) {
      case FileKind::Directory:
        return AddDirectory(path);
      case FileKind::Nothing:
        return Fail(path, "There is no such file or directory.");
      case FileKind::Other:  // a pipe would be waited for
        return Fail(path, "It is neither a file nor a directory.");
      case FileKind::File:
        return AddFile(path);
    }
  }

  /// Sorted, each once; of those with one outcome the first.
  std::vector<Url> TakeFiles() {
    std::ranges::sort(found_, {}, &Found::canonical);
    const auto doubles = std::ranges::unique(found_, {}, &Found::canonical);
    found_.erase(doubles.begin(), doubles.end());
    std::unordered_map<std::string_view, const Url*> stems;
    std::vector<Url> files;
    for (const auto& [canonical, file] : found_) {
      const std::size_t ending = file.Name().Size() - report::WithoutPacking(file).Name().Size() +
                                 report::WithoutPacking(file).Suffix().Size();
      const std::string_view stem(canonical.data(), canonical.size() - ending);
      const auto [first, isNew] = stems.try_emplace(stem, &file);
      if (isNew) {
        files.push_back(file);
      } else {
        Fail(file, Format("Its outcome would have the same name as that of @.", *first->second));
      }
    }
    return files;
  }

  std::vector<Failure> failures;

 private:
  void Fail(const Url& file, String reason) { failures.push_back({file, std::move(reason)}); }

  void AddFile(const Url& file) {
    std::error_code missing;
    const std::string directory = file.Parent().SystemPath().ToStdString();
    const auto canonical = std::filesystem::weakly_canonical(directory, missing);
    const std::filesystem::path name(file.Name().View());
    found_.push_back(
        {((missing ? std::filesystem::path(directory) : canonical) / name).string(), file});
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
      } else if (report::IsReportFileName(entry.name)) {
        AddFile(entry.url);
      }
    }
  }

  FileService& files_;
  std::vector<Found> found_;
};

}  // namespace

Builds BuildsIn(std::string_view report) {
  constexpr std::string_view kKey = crash_report::key::kBuild;
  Builds builds;
  while (!report.empty() && builds.size() < kMaximumBuilds) {
    const std::string_view line = report.substr(0, report.find('\n'));
    report.remove_prefix(std::min(report.size(), line.size() + 1));
    if (!report::Content(line).starts_with(kKey)) continue;
    const auto entry = report::SplitKeyValue(line);
    if (!entry || entry->key != kKey || entry->value.empty()) continue;
    if (std::ranges::find(builds, entry->value) == builds.end()) builds.emplace_back(entry->value);
  }
  return builds;
}

ReportList ListReports(Framework& framework, const std::vector<std::string>& paths) {
  Collector collector(framework.Files());
  for (const std::string& path : paths) collector.Add(Url::FromSystemPath(path));
  ReportList list;
  std::map<Builds, std::shared_ptr<const Builds>> known;
  for (Url& file : collector.TakeFiles()) {
    const Result<report::ReportText> read = report::ReadReportText(framework, file);
    if (!read) {
      collector.failures.push_back({file, read.GetError().Text()});
      continue;
    }
    const Builds named = BuildsIn(read->text);
    std::shared_ptr<const Builds>& builds = known[named];
    if (builds == nullptr) builds = std::make_shared<const Builds>(named);
    const bool needsCopy = report::IsOwnReport(read->text) || read->isConverted;
    list.reports.push_back({std::move(file), builds, needsCopy});
  }
  list.failures = std::move(collector.failures);
  return list;
}

}  // namespace tarvo::toolkit
