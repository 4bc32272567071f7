#include "toolkit/resolve/run.h"

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <exception>
#include <mutex>
#include <thread>

#include "json/json_writer.h"
#include "toolkit/resolve/outcome.h"
#include "toolkit/resolve/progress.h"
#include "toolkit/resolve/report_identity.h"
#include "toolkit/resolve/report_work.h"
#include "toolkit/resolve/schedule.h"

namespace tarvo::toolkit {
namespace {

constexpr std::chrono::milliseconds kBetweenLooks{100};

volatile std::sig_atomic_t g_isInterrupted = 0;

/// Takes the signals that ask a program to end, for as long as it lives.
class Interruptible {
 public:
  Interruptible() {
    g_isInterrupted = 0;
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

std::string JsonLine(const DataDictionary& document) {
  std::string line;
  const auto append = [&](std::string_view bytes) {
    line += bytes;
    return Result<void>();
  };
  return WriteJson(document, append, JsonForm::Line) ? line : std::string();  // cannot fail
}

class Run {
 public:
  Run(report::ReportResolver& resolver, const std::vector<Report>& reports, ArchiveTree& archives,
      ResultsFile* results, Summary& summary)
      : resolver_(resolver),
        reports_(reports),
        archives_(archives),
        results_(results),
        summary_(summary),
        schedule_(reports) {}

  void InThreads(std::size_t count, ClockService& clock, Progress& progress) {
    const auto start = clock.Now();
    std::vector<std::jthread> threads;
    working_ = count;
    for (std::size_t i = 0; i < count; ++i) threads.emplace_back([this] { Work(); });
    std::unique_lock lock(mutex_);
    while (!ended_.wait_for(lock, kBetweenLooks, [&] { return working_ == 0; })) {
      if (g_isInterrupted != 0) schedule_.Stop();
      progress.Show({done_, reports_.size(), clock.Now() - start});
    }
    summary_.untouched += reports_.size() - done_;
  }

 private:
  void Work() {
    while (const auto report = schedule_.Take()) {
      ReportWork work;
      const Result<bool> resolved = Resolve(*report, work);
      schedule_.Done(*report);
      const std::scoped_lock lock(mutex_);
      Note(reports_[*report], resolved, work.tally);
    }
    const std::scoped_lock lock(mutex_);
    if (--working_ == 0) ended_.notify_one();
  }

  /// Whether the report was damaged.
  Result<bool> Resolve(std::size_t index, ReportWork& work) {
    const Report& report = reports_[index];
    const Result<ReportIdentity> identity = IdentifyReport(report.file);
    if (!identity) return Failed(index, {}, identity.GetError());
    work.onResolved = [&](DataDictionary& crashLog) {
      crashLog = WithOutcome(OutcomeOf(report.file, *identity, work.builds, archives_), crashLog);
      if (results_ != nullptr) results_->Add(index, JsonLine(crashLog));
      return results_ == nullptr;
    };
    const Result<bool> resolved = Resolved(report, work);
    return resolved ? resolved : Failed(index, *identity, resolved.GetError());
  }

  Result<bool> Resolved(const Report& report, ReportWork& work) try {
    const ReportWorkScope scope(work);
    return resolver_.Resolve(report.file, report.needsCopy);
  } catch (const std::exception& exception) {
    return Error::Plain({}, exception.what());
  }

  Result<bool> Failed(std::size_t index, const ReportIdentity& identity, Error error) {
    if (results_ == nullptr) return error;
    DataDictionary outcome = FailedOutcome(reports_[index].file, identity, error.Text());
    results_->Add(index, JsonLine(WithOutcome(std::move(outcome), {})));
    return error;
  }

  void Note(const Report& report, const Result<bool>& resolved, const Tally& tally) {
    ++done_;
    ++summary_.read;
    if (resolved) {
      ++summary_.resolved;
      summary_.damaged += *resolved;
      summary_.tally.Merge(tally);
    } else {
      summary_.failures.push_back({report.file, resolved.GetError().Text()});
    }
  }

  report::ReportResolver& resolver_;
  const std::vector<Report>& reports_;
  ArchiveTree& archives_;
  ResultsFile* results_;
  Summary& summary_;
  Schedule schedule_;
  std::mutex mutex_;
  std::condition_variable ended_;
  std::size_t working_ = 0;
  std::size_t done_ = 0;
};

}  // namespace

void ResolveAll(Framework& framework, report::ReportResolver& resolver,
                const std::vector<Report>& reports, ArchiveTree& archives,
                const RunOptions& options, Summary& summary) {
  const Interruptible interruptible;
  Progress progress(options.isQuiet);
  Run(resolver, reports, archives, options.results, summary)
      .InThreads(std::clamp<std::size_t>(reports.size(), 1, options.threads), framework.Clock(),
                 progress);
  std::ranges::stable_sort(summary.failures, {},
                           [](const Failure& failure) { return failure.file.Text(); });
}

}  // namespace tarvo::toolkit
