#include "toolkit/watch/batch.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <utility>

#include "tarvo/report/resolve.h"
#include "toolkit/resolve/listing/freshness.h"
#include "toolkit/resolve/listing/report_list.h"
#include "toolkit/resolve/run.h"
#include "toolkit/watch/batch_record.h"
#include "toolkit/watch/news_text.h"
#include "toolkit/watch/signal_descriptor.h"

namespace tarvo::toolkit {
namespace {

/// Whether what has failed may go well another time: the disk was full, a file could not be read.
bool MayPass(const Error& error) {
  return error.ClassId() == Error::kFile || error.ClassId() == Error::kOutOfMemory;
}

std::string PathOf(const Url& file) { return file.SystemPath().ToStdString(); }

class Batch {
 public:
  Batch(const std::vector<BatchReport>& reports, const BatchTools& tools)
      : reports_(reports), tools_(tools), told_(reports.size()) {
    for (std::size_t place = 0; place < reports.size(); ++place)
      places_.emplace(reports[place].path, place);
  }

  Result<void> Run() {
    Resolve(List());
    if (auto grouped = Group(); !grouped) return grouped;
    for (std::size_t place = 0; place < told_.size(); ++place) Tell(place);
    return {};
  }

 private:
  /// What is known of a report so far.
  struct Told {
    DataDictionary news{};
    bool isNews = false;
    bool isTroubled = false;
    bool isResolved = false;  ///< by this batch or before
  };

  /// The reports that are to be resolved.
  std::vector<Report> List() {
    std::vector<std::string> paths;
    for (const BatchReport& report : reports_) paths.push_back(report.path);
    ReportList list = ListReports(tools_.framework, paths, {.threads = tools_.threads});
    for (const Failure& failure : list.failures) {
      if (tools_.framework.Files().Detect(failure.file) == FileKind::Nothing) continue;
      Fail(PlaceOf(failure.file), failure.reason, true);
    }
    std::erase_if(list.reports, [&](const Report& report) {
      const std::size_t place = PlaceOf(report.file);
      if (reports_[place].isRepeated) return false;
      const auto made = FindUpToDate(report, tools_.archives);
      told_[place].isResolved = made && made->error.empty();
      if (made && !made->error.empty()) Fail(place, String(made->error), false);
      return made.has_value();
    });
    return std::move(list.reports);
  }

  void Resolve(const std::vector<Report>& reports) {
    Summary summary;
    const auto note = [&](std::size_t report, const Result<report::ReportDamage>& damage,
                          const Tally& tally) {
      Note(PlaceOf(reports[report].file), damage, tally);
      tools_.tell("");
    };
    if (reports.empty()) return;
    ResolveAll(tools_.framework, tools_.resolver, reports, tools_.archives,
               {.threads = tools_.threads, .isQuiet = true, .onDone = note, .isEnding = IsEndAsked},
               summary);
  }

  void Note(std::size_t place, const Result<report::ReportDamage>& damage, const Tally& tally) {
    if (!damage) return Fail(place, damage.GetError().Text(), MayPass(damage.GetError()));
    Told& told = told_[place];
    told.isResolved = told.isNews = true;
    // An archive may be damaged for good, but a full disk keeps it from being unpacked, too.
    told.isTroubled = tally.Frames(FrameOutcome::UnreadableArchive) != 0;
    told.news.Set(news::kFrames, tally.AllFrames());
    told.news.Set(news::kResolved, tally.Frames(FrameOutcome::Resolved));
    if (*damage) told.news.Set(news::kDamaged, true);
  }

  void Fail(std::size_t place, const String& reason, bool mayPass) {
    told_[place].isNews = true;
    told_[place].isTroubled = mayPass;
    told_[place].news.Set(news::kError, reason);
  }

  Result<void> Group() {
    if (tools_.triage == nullptr) return {};
    TriageOptions options{.paths = {}, .database = tools_.database, .threads = tools_.threads};
    std::unordered_map<std::string, std::size_t> logs;
    for (std::size_t place = 0; place < told_.size(); ++place)
      if (told_[place].isResolved) {
        const Url report = Url::FromSystemPath(reports_[place].path);
        options.paths.push_back(PathOf(report::DocumentOf(report)));
        logs.emplace(options.paths.back(), place);
      }
    const Result<AddedLogs> added = tools_.triage->add(options);
    if (!added) return added.GetError();
    for (const AddedLog& log : added->logs) NoteGroup(told_[logs.at(log.path)], log);
    for (const SkippedLog& log : added->skipped) {
      Told& told = told_[logs.at(log.path)];
      told.isNews = true;
      told.news.Set(news::kNotGrouped, String(log.reason));
    }
    return {};
  }

  static void NoteGroup(Told& told, const AddedLog& log) {
    told.isNews = told.isNews || log.isTaken;
    told.news.Set(news::kGroup, String(log.group));
    told.news.Set(news::kSignature, String(log.signature));
    if (log.isNewGroup) told.news.Set(news::kNewGroup, true);
  }

  void Tell(std::size_t place) {
    const Told& told = told_[place];
    if (!told.isResolved && !told.isNews) return;
    BatchRecord record{.place = place, .isTroubled = told.isTroubled, .archives = {}, .news = {}};
    const Url report = Url::FromSystemPath(reports_[place].path);
    if (told.isResolved)
      if (const auto made = ReadMadeOf(report))
        for (const auto& [build, before] : made->archives)
          record.archives[build] = IdentitiesOf(tools_.archives, build);
    if (told.isNews) {
      record.news.Set(news::kReport, report.Text());
      record.news.Set(news::kOutcome, told.isResolved ? news::kResolved : news::kFailed);
      for (const DataDictionary::Entry& entry : told.news) record.news.Set(entry.key, entry.value);
    }
    tools_.tell(BatchRecordLine(record));
  }

  /// Reports come back by the paths that they were named by.
  [[nodiscard]] std::size_t PlaceOf(const Url& file) const { return places_.at(PathOf(file)); }

  const std::vector<BatchReport>& reports_;
  const BatchTools& tools_;
  std::vector<Told> told_;
  std::unordered_map<std::string, std::size_t> places_{};
};

}  // namespace

Result<void> RunBatch(const std::vector<BatchReport>& reports, const BatchTools& tools) {
  return Batch(reports, tools).Run();
}

}  // namespace tarvo::toolkit
