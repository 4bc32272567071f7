#include "toolkit/resolve/report_list.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <map>
#include <new>
#include <optional>
#include <system_error>
#include <thread>
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
    std::string directory = file.Parent().SystemPath().ToStdString();
    if (directory != directory_) {
      std::error_code missing;
      const auto canonical = std::filesystem::weakly_canonical(directory, missing);
      canonical_ = missing ? directory : canonical.string();
      directory_ = std::move(directory);
    }
    const std::filesystem::path name(file.Name().View());
    found_.push_back({(std::filesystem::path(canonical_) / name).string(), file});
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
  std::optional<std::string>
      directory_;          ///< of the file added last; those of one follow each other
  std::string canonical_;  ///< the same with no links
};

/// What a report's text tells before it is resolved.
struct Looked {
  Builds builds;
  bool needsCopy = false;
  String error;  ///< why it could not be read
};

Looked LookAt(Framework& framework, const Url& file) try {
  const Result<report::ReportText> read = report::ReadReportText(framework, file);
  if (!read) return {{}, false, read.GetError().Text()};
  return {.builds = BuildsIn(read->text),
          .needsCopy = report::IsOwnReport(read->text) || read->isConverted,
          .error = {}};
} catch (const std::bad_alloc&) {
  return {{}, false, "There is not enough memory to read it."};
}

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

ReportList ListReports(Framework& framework, const std::vector<std::string>& paths,
                       std::size_t threads) {
  Collector collector(framework.Files());
  for (const std::string& path : paths) collector.Add(Url::FromSystemPath(path));
  const std::vector<Url> files = collector.TakeFiles();
  std::vector<Looked> looked(files.size());
  std::atomic<std::size_t> next = 0;
  const auto work = [&] {
    for (std::size_t i = 0; (i = next++) < files.size();) looked[i] = LookAt(framework, files[i]);
  };
  {
    std::vector<std::jthread> others;
    for (std::size_t i = 1; i < std::min(threads, files.size()); ++i) others.emplace_back(work);
    work();
  }
  ReportList list{.reports = {}, .failures = std::move(collector.failures)};
  std::map<Builds, std::shared_ptr<const Builds>> known;
  for (std::size_t i = 0; i < files.size(); ++i) {
    auto& [named, needsCopy, error] = looked[i];
    if (!error.IsEmpty()) {
      list.failures.push_back({files[i], error});
      continue;
    }
    std::shared_ptr<const Builds>& builds = known[named];
    if (builds == nullptr) builds = std::make_shared<const Builds>(std::move(named));
    list.reports.push_back({files[i], builds, needsCopy});
  }
  return list;
}

}  // namespace tarvo::toolkit
