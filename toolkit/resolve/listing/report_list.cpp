#include "toolkit/resolve/listing/report_list.h"

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

namespace fs = std::filesystem;

struct Found {
  std::string canonical;  ///< the path with no links in its directory
  Url file;
};

struct Placed {
  Url file;
  Url place;
};

/// The directory without links, where it can be found out.
fs::path Canonical(const Url& directory) {
  const std::string path = directory.SystemPath().ToStdString();
  std::error_code error;
  fs::path canonical = fs::weakly_canonical(path.empty() ? "." : path, error);
  return error ? fs::path(path) : canonical;
}

/// What both paths begin with.
fs::path CommonStart(const fs::path& a, const fs::path& b) {
  const auto end = std::ranges::mismatch(a, b).in1;
  fs::path common;
  for (auto part = a.begin(); part != end; ++part) common /= *part;
  return common;
}

class Collector {
 public:
  Collector(FileService& files, const ListOptions& options)
      : files_(files), mirror_(options.mirror), hasPlaces_(options.hasPlaces) {}

  void Add(const Url& path) {
    switch (files_.Detect(path)) {
      case FileKind::Directory:
        AddRoot(path);
        return AddDirectory(path);
      case FileKind::Nothing:
        return Fail(path, "There is no such file or directory.");
      case FileKind::Other:  // a pipe would be waited for
        return Fail(path, "It is neither a file nor a directory.");
      case FileKind::File:
        AddRoot(path.Parent());
        return AddFile(path);
    }
  }

  /// Sorted, each once; of those with one outcome the first.
  std::vector<Placed> TakeFiles() {
    std::ranges::sort(found_, {}, &Found::canonical);
    const auto doubles = std::ranges::unique(found_, {}, &Found::canonical);
    found_.erase(doubles.begin(), doubles.end());
    std::unordered_map<std::string_view, const Url*> stems;
    std::vector<Placed> files;
    for (const auto& [canonical, file] : found_) {
      const std::size_t ending = file.Name().Size() - report::WithoutPacking(file).Name().Size() +
                                 report::WithoutPacking(file).Suffix().Size();
      const std::string_view stem(canonical.data(), canonical.size() - ending);
      const auto [first, isNew] = stems.try_emplace(stem, &file);
      if (isNew || !hasPlaces_) {
        files.push_back({file, PlaceOf(canonical, file)});
      } else {
        Fail(file, Format("Its outcome would have the same name as that of @.", *first->second));
      }
    }
    return files;
  }

  std::vector<Failure> failures;

 private:
  void Fail(const Url& file, String reason) { failures.push_back({file, std::move(reason)}); }

  void AddRoot(const Url& directory) {
    if (mirror_.IsEmpty()) return;
    const fs::path root = Canonical(directory);
    root_ = root_.empty() ? root : CommonStart(root_, root);
  }

  [[nodiscard]] Url PlaceOf(const std::string& canonical, const Url& file) const {
    if (mirror_.IsEmpty()) return file;
    return mirror_.Append(fs::path(canonical).lexically_relative(root_).string());
  }

  void AddFile(const Url& file) {
    const String directory = file.Parent().SystemPath();
    if (directory_ != directory) {
      canonical_ = Canonical(file.Parent());
      directory_ = directory;
    }
    found_.push_back({(canonical_ / fs::path(file.Name().View())).string(), file});
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
  const Url& mirror_;
  const bool hasPlaces_;
  fs::path root_;  ///< that all paths have in common
  std::vector<Found> found_;
  std::optional<String> directory_;  ///< of the file added last; those of one follow each other
  fs::path canonical_;               ///< the same with no links
};

/// What a report's text tells before it is resolved.
struct Looked {
  Builds builds;
  bool needsCopy = true;  ///< also where it could not be read: the resolving says why
};

Looked LookAt(Framework& framework, const Url& file) try {
  const Result<report::ReportText> read = report::ReadReportText(framework, file);
  if (!read) return {};
  return {.builds = BuildsIn(read->text),
          .needsCopy = report::IsOwnReport(read->text) || read->isConverted};
} catch (const std::bad_alloc&) {
  return {};
}

/// Whether only blanks stand in front of `at` on its line.
bool StartsLine(std::string_view text, std::size_t at) {
  while (at != 0 && (text[at - 1] == ' ' || text[at - 1] == '\t' || text[at - 1] == '\r')) --at;
  return at == 0 || text[at - 1] == '\n';
}

std::string_view LineAt(std::string_view text, std::size_t at) {
  return text.substr(at, text.find('\n', at) - at);
}

}  // namespace

Builds BuildsIn(std::string_view report) {
  constexpr std::string_view kKey = crash_report::key::kBuild;
  Builds builds;
  // From word to word, not from line to line: a report has few lines with this one.
  for (std::size_t at = 0; builds.size() < kMaximumBuilds; ++at) {
    at = report.find(kKey, at);
    if (at == std::string_view::npos) break;
    if (!StartsLine(report, at)) continue;
    const auto entry = report::SplitKeyValue(LineAt(report, at));
    if (!entry || entry->key != kKey || entry->value.empty()) continue;
    if (std::ranges::find(builds, entry->value) == builds.end()) builds.emplace_back(entry->value);
  }
  return builds;
}

ReportList ListReports(Framework& framework, const std::vector<std::string>& paths,
                       const ListOptions& options) {
  Collector collector(framework.Files(), options);
  for (const std::string& path : paths) collector.Add(Url::FromSystemPath(path));
  const std::vector<Placed> files = collector.TakeFiles();
  std::vector<Looked> looked(files.size());
  std::atomic<std::size_t> next = 0;
  const auto work = [&] {
    for (std::size_t i = 0; (i = next++) < files.size();)
      looked[i] = LookAt(framework, files[i].file);
  };
  {
    // This one waits: a thread that is begun beside one at work may not be given a processor of its
    // own before the work is done.
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < std::min(options.threads, files.size()); ++i)
      threads.emplace_back(work);
  }
  ReportList list{.reports = {}, .failures = std::move(collector.failures)};
  std::map<Builds, std::shared_ptr<const Builds>> known;
  for (std::size_t i = 0; i < files.size(); ++i) {
    auto& [named, needsCopy] = looked[i];
    std::shared_ptr<const Builds>& builds = known[named];
    if (builds == nullptr) builds = std::make_shared<const Builds>(std::move(named));
    list.reports.push_back({files[i].file, files[i].place, builds, needsCopy});
  }
  return list;
}

}  // namespace tarvo::toolkit
