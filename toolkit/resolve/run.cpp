#include "toolkit/resolve/run.h"

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <exception>
#include <mutex>
#include <thread>

#include "toolkit/resolve/progress.h"
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

class Run {
 public:
  Run(report::ReportResolver& resolver, const std::vector<Report>& reports, Summary& summary)
      : resolver_(resolver), reports_(reports), summary_(summary), schedule_(reports) {}

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
      Tally tally;
      CountInto(&tally);
      const Result<bool> resolved = Resolve(*report);
      CountInto(nullptr);
      schedule_.Done(*report);
      const std::scoped_lock lock(mutex_);
      Note(reports_[*report], resolved, tally);
    }
    const std::scoped_lock lock(mutex_);
    if (--working_ == 0) ended_.notify_one();
  }

  /// Whether the report was damaged.
  Result<bool> Resolve(std::size_t report) try {
    return resolver_.Resolve(reports_[report].file, reports_[report].needsCopy);
  } catch (const std::exception& exception) {
    return Error::Plain({}, exception.what());
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
  Summary& summary_;
  Schedule schedule_;
  std::mutex mutex_;
  std::condition_variable ended_;
  std::size_t working_ = 0;
  std::size_t done_ = 0;
};

}  // namespace

void ResolveAll(Framework& framework, report::ReportResolver& resolver,
                const std::vector<Report>& reports, std::size_t threads, bool isQuiet,
                Summary& summary) {
  const Interruptible interruptible;
  Progress progress(isQuiet);
  Run(resolver, reports, summary)
      .InThreads(std::clamp<std::size_t>(reports.size(), 1, threads), framework.Clock(), progress);
  std::ranges::stable_sort(summary.failures, {},
                           [](const Failure& failure) { return failure.file.Text(); });
}

}  // namespace tarvo::toolkit
