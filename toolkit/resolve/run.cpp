#include "toolkit/resolve/run.h"

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <thread>

#include "json/json_writer.h"
#include "tarvo/crash_report.h"
#include "tarvo/report/resolve.h"
#include "toolkit/resolve/listing/freshness.h"
#include "toolkit/resolve/listing/report_identity.h"
#include "toolkit/resolve/outcome/address_texts.h"
#include "toolkit/resolve/outcome/outcome.h"
#include "toolkit/resolve/running/progress.h"
#include "toolkit/resolve/running/report_work.h"
#include "toolkit/resolve/running/schedule.h"
#include "toolkit/resolve/summary/lacks_document.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kRun{"command/resolve/run"};
constexpr std::chrono::milliseconds kBetweenLooks{100};
constexpr std::chrono::milliseconds kPatience{700};
constexpr std::uint64_t kMostExpected = 1 << 20;

using report::ReportDamage;

volatile std::sig_atomic_t g_isInterrupted = 0;

/// Takes the signals that ask a program to end, for as long as it lives.
class Interruptible {
 public:
  Interruptible() {
    struct sigaction action{};
    action.sa_handler = [](int) { g_isInterrupted = 1; };
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigaction(SIGINT, &action, &interrupt_);
    sigaction(SIGTERM, &action, &terminate_);
  }
  ~Interruptible() {
    sigaction(SIGINT, &interrupt_, nullptr);
    sigaction(SIGTERM, &terminate_, nullptr);
  }
  Interruptible(const Interruptible&) = delete;
  Interruptible& operator=(const Interruptible&) = delete;

 private:
  struct sigaction interrupt_{};
  struct sigaction terminate_{};
};

/// Whether another attempt would fail in the same way: for what is in the report, and not for want
/// of memory, room or a file.
bool IsOfContent(const Error& error) {
  const std::string_view kind = error.ClassId();
  return kind == Error::kPlain || kind == Error::kConversion || kind == Error::kIllegalArgument;
}

class Run {
 public:
  Run(Framework& framework, report::ReportResolver& resolver, const std::vector<Report>& reports,
      ArchiveTree& archives, const RunOptions& options, Summary& summary)
      : framework_(framework),
        resolver_(resolver),
        reports_(reports),
        archives_(archives),
        options_(options),
        results_(options.results),
        summary_(summary),
        schedule_(reports) {}

  void InThreads(std::size_t count, Progress& progress) {
    ClockService& clock = framework_.Clock();
    const auto start = clock.Now();
    std::vector<std::jthread> threads;
    working_ = count;
    for (std::size_t i = 0; i < count; ++i) threads.emplace_back([this] { Work(); });
    std::unique_lock lock(mutex_);
    while (!ended_.wait_for(lock, kBetweenLooks, [&] { return working_ == 0; })) {
      if (options_.isEnding && options_.isEnding()) schedule_.Stop();
      if (g_isInterrupted != 0) Stop();
      progress.Show({done_, reports_.size(), clock.Now() - start});
    }
    summary_.untouched += reports_.size() - done_;
  }

 private:
  /// Reports that are nearly done may end; who asked for the end does not wait for others. What is
  /// written appears in one step, so leaving does no harm.
  void Stop() {
    schedule_.Stop();
    const auto now = std::chrono::steady_clock::now();
    if (!stopped_) {
      stopped_ = now;
      std::fputs("\rtarvo: Ending; a second Ctrl-C ends it at once.\n", stderr);
    }
    if (now - *stopped_ < kPatience) return;
    std::fprintf(stderr, "tarvo: Interrupted: %zu of %zu reports are done.\n", done_,
                 reports_.size());
    std::fflush(nullptr);
    std::_Exit(kInterruptedStatus);
  }

  void Work() {
    while (const auto report = schedule_.Take()) {
      ReportWork work;
      const Result<ReportDamage> resolved = Resolve(*report, work);
      schedule_.Done(*report);
      const std::scoped_lock lock(mutex_);
      Note(reports_[*report], resolved, work.tally);
      if (options_.onDone) options_.onDone(*report, resolved, work.tally);
    }
    const std::scoped_lock lock(mutex_);
    if (--working_ == 0) ended_.notify_one();
  }

  /// How the report was damaged, if it was.
  Result<ReportDamage> Resolve(std::size_t index, ReportWork& work) {
    const Report& report = reports_[index];
    // What is read of the report itself need not be read another time for the hash.
    Result<ReportIdentity> identity = resolver_.MakesCopy(report.needsCopy)
                                          ? IdentifyReport(report.file)
                                          : LookAtReport(report.file);
    if (!identity) return Failed(index, {}, identity.GetError());
    if (identity->size == 0) {
      AddContent({}, *identity);
      return Failed(index, *identity, Error::Plain(kRun.Here(), "The file is empty."));
    }
    work.onTextRead = [&](const String& text) {
      if (identity->hash.empty()) AddContent(text, *identity);
    };
    work.onResolved = [&](DataDictionary& crashLog) {
      DataDictionary outcome = OutcomeOf(report.file, *identity, work.builds, archives_);
      const std::uint64_t resolved = work.tally.Frames(FrameOutcome::Resolved);
      NoteMissedIn(outcome, work.missed);
      outcome.Set(String(crash_report::property::kOutcomeResolved), resolved);
      outcome.Set(String(crash_report::property::kOutcomeLacks),
                  LacksDocument(work.tally.ReportLacks()));
      AddAddressTexts(crashLog);
      crashLog = WithOutcome(std::move(outcome), crashLog);
      if (results_ != nullptr) {
        // Lines are up to twice as long as their reports.
        const std::size_t expected = std::min<std::uint64_t>(2 * identity->size, kMostExpected);
        results_->Add(index, JsonDocument(crashLog, JsonForm::Line, expected));
      }
      return results_ == nullptr && !KeepsBetter(report, *identity, resolved);
    };
    Result<ReportDamage> resolved = Resolved(report, work);
    if (resolved) return resolved;
    if (identity->hash.empty()) identity = IdentifyReport(report.file);
    return identity ? Failed(index, *identity, resolved.GetError())
                    : Failed(index, {}, identity.GetError());
  }

  /// Whether what is beside the report, of the same content, knows more of it than `resolved`
  /// frames.
  bool KeepsBetter(const Report& report, const ReportIdentity& identity, std::uint64_t resolved) {
    if (options_.replacesBetter) return false;
    const auto made = ReadMadeOf(report.place);
    if (!made || made->hash != identity.hash || made->resolved.value_or(0) <= resolved)
      return false;
    const std::scoped_lock lock(mutex_);
    ++summary_.kept;
    return true;
  }

  Result<ReportDamage> Resolved(const Report& report, ReportWork& work) try {
    const ReportWorkScope scope(work);
    return resolver_.Resolve(report.file, report.place, report.needsCopy);
  } catch (const std::bad_alloc&) {
    return Error::OutOfMemory(kRun.Here());
  } catch (const std::exception& exception) {
    return Error::IllegalState(kRun.Here(), exception.what());
  }

  Result<ReportDamage> Failed(std::size_t index, const ReportIdentity& identity, Error error) {
    const DataDictionary document =
        WithOutcome(FailedOutcome(reports_[index].file, identity, error.Text()), {});
    if (results_ != nullptr) {
      results_->Add(index, JsonDocument(document, JsonForm::Line));
    } else if (options_.notesBad && !identity.hash.empty() && IsOfContent(error)) {
      NoteBad(reports_[index].place, identity, document);
    }
    return error;
  }

  /// What cannot be written is found out anew by the next run.
  void NoteBad(const Url& place, const ReportIdentity& identity, const DataDictionary& document) {
    const auto made = ReadMadeOf(place);
    const bool isKnownBetter = made && made->hash == identity.hash && made->error.empty();
    if (isKnownBetter && !options_.replacesBetter) return;
    if (!framework_.Files().CreateDirectory(place.Parent())) return;
    if (!framework_.DataFormats().WriteJson(document, report::DocumentOf(place))) return;
    std::error_code missing;  // the copy is of what the report was before
    if (made) std::filesystem::remove(report::CopyOf(place).SystemPath().ToStdString(), missing);
  }

  void Note(const Report& report, const Result<ReportDamage>& resolved, const Tally& tally) {
    ++done_;
    ++summary_.read;
    if (resolved) {
      ++summary_.resolved;
      if (*resolved) summary_.damaged.push_back({report.file, *resolved});
      summary_.tally.AddFrames(tally);
      summary_.lacks.AddReport(tally.ReportLacks());
    } else {
      summary_.failures.push_back({report.file, resolved.GetError().Text()});
    }
  }

  Framework& framework_;
  report::ReportResolver& resolver_;
  const std::vector<Report>& reports_;
  ArchiveTree& archives_;
  const RunOptions& options_;
  ResultsFile* results_;
  Summary& summary_;
  Schedule schedule_;
  std::mutex mutex_;
  std::condition_variable ended_;
  std::optional<std::chrono::steady_clock::time_point> stopped_;
  std::size_t working_ = 0;
  std::size_t done_ = 0;
};

}  // namespace

void ResolveAll(Framework& framework, report::ReportResolver& resolver,
                const std::vector<Report>& reports, ArchiveTree& archives,
                const RunOptions& options, Summary& summary) {
  g_isInterrupted = 0;
  std::optional<Interruptible> interruptible;
  if (!options.isEnding) interruptible.emplace();
  Progress progress(options.isQuiet);
  Run(framework, resolver, reports, archives, options, summary)
      .InThreads(std::clamp<std::size_t>(reports.size(), 1, options.threads), progress);
  std::ranges::stable_sort(summary.failures, {},
                           [](const Failure& failure) { return failure.file.Text(); });
  std::ranges::stable_sort(summary.damaged, {},
                           [](const DamagedReport& report) { return report.file.Text(); });
}

}  // namespace tarvo::toolkit
