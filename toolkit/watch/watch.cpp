#include "toolkit/watch/watch.h"

#include <poll.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"
#include "toolkit/resolve/run.h"
#include "toolkit/watch/arrivals.h"
#include "toolkit/watch/batch_process.h"
#include "toolkit/watch/news_text.h"
#include "toolkit/watch/report_book.h"
#include "toolkit/watch/service_manager.h"
#include "toolkit/watch/signal_descriptor.h"

namespace tarvo::toolkit {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t kMostReports = 512;  ///< of a batch
constexpr seconds kFirstPause{1};
constexpr seconds kLongestPause{60};
constexpr seconds kBetweenForcedLooks{1};
constexpr int kRestInLooks = 10;  ///< looking takes at most one part of so many of the time

void Say(const std::string& text) { std::fprintf(stderr, "tarvo: %s\n", text.c_str()); }

/// How a process has died.
std::string DeathOf(int status) {
  if (WIFSIGNALED(status))
    return "was ended by signal " + std::to_string(WTERMSIG(status)) + " (" +
           strsignal(WTERMSIG(status)) + ")";
  return "has ended with status " + std::to_string(WEXITSTATUS(status));
}

class Watcher {
 public:
  Watcher(const WatchOptions& options, Arrivals arrivals, SignalDescriptor signals)
      : options_(options), arrivals_(std::move(arrivals)), signals_(std::move(signals)) {}

  int Run() {
    while (!status_) {
      now_ = Clock::now();
      manager_.Live(now_);
      if (isReady_ && !isEnding_) Look();
      if (!process_ && !isEnding_) Begin();
      if (!process_ && isEnding_) break;
      Await();
      now_ = Clock::now();
      while (signals_.Take()) End();
      arrivals_.TakeEvents(now_);
      if (process_) Listen();
    }
    return status_.value_or(kWatchEnded);
  }

 private:
  // --- What there is to do -----------------------------------------------------------------------

  void Look() {
    const bool isForced = arrivals_.HasLost() && now_ >= lastLook_ + kBetweenForcedLooks;
    if (now_ < nextLook_ && !isForced) return;
    const Sighting sighting = arrivals_.LookAtAll(now_);
    for (const std::string& path : sighting.gone) book_.Forget(path);
    SayUnreadable(sighting);
    ArchiveTree archives(archives_);
    for (std::string& path : book_.TakeOutdated(archives)) queue_.push_back({std::move(path)});
    lastLook_ = Clock::now();
    nextLook_ =
        lastLook_ + std::max<Clock::duration>(options_.rescan, kRestInLooks * (lastLook_ - now_));
  }

  void SayUnreadable(const Sighting& sighting) {
    std::map<std::string, std::string> unreadable(sighting.unreadable.begin(),
                                                  sighting.unreadable.end());
    for (const auto& [directory, reason] : unreadable)
      if (!unreadable_.contains(directory))
        Say(SafeText(directory) + " cannot be listed, and is tried again: " + reason);
    for (const auto& [directory, reason] : unreadable_)
      if (!unreadable.contains(directory)) Say(SafeText(directory) + " can be listed again.");
    unreadable_ = std::move(unreadable);
    if (!std::exchange(isDeafnessSaid_, !arrivals_.Deafness().empty()) && isDeafnessSaid_)
      Say("Not all directories tell of changes (" + arrivals_.Deafness() +
          "): some are seen every " + std::to_string(options_.rescan.count()) + " s only.");
  }

  /// Starts a process for the next batch, where there is one; first of all for one of no reports.
  void Begin() {
    if (now_ < pausedUntil_ || (isReady_ && !FillBatch())) return;
    Result<BatchProcess> process =
        BatchProcess::Start([this](const auto& tell) { return options_.work(batch_, tell); });
    if (!process) {
      Say(process.GetError().Text().ToStdString());
      return PutBack();
    }
    process_.emplace(*std::move(process));
    isTimedOut_ = false;
    lastSign_ = now_;
  }

  bool FillBatch() {
    for (std::string& path : book_.TakeDue(now_)) queue_.push_back({std::move(path), true});
    const std::size_t most = oneByOne_ != 0 ? 1 : kMostReports;
    if (queue_.size() < most)
      for (std::string& path : arrivals_.TakeWhole(most - queue_.size(), now_))
        queue_.push_back({std::move(path)});
    std::set<std::string_view> named;
    batch_.clear();
    batch_.reserve(most);  // names stay where they are
    while (!queue_.empty() && batch_.size() < most) {
      batch_.push_back(std::move(queue_.front()));
      queue_.pop_front();
      if (!named.insert(batch_.back().path).second) batch_.pop_back();
    }
    isDone_.assign(batch_.size(), false);
    return !batch_.empty();
  }

  // --- What comes of it --------------------------------------------------------------------------

  void Listen() {
    const auto lines = process_->TakeLines();
    if (!lines) return EndBatch();
    if (!lines->empty()) lastSign_ = now_;
    for (const std::string& line : *lines) {
      if (line.empty()) continue;
      if (!isReady_) archives_.push_back(Url::FromSystemPath(line));
      const auto record = isReady_ ? ReadBatchRecord(line) : std::nullopt;
      if (record && record->place < batch_.size()) Note(*record);
    }
    if (now_ - lastSign_ < options_.timeLimit) return;
    isTimedOut_ = true;
    process_->Kill();
  }

  void Note(const BatchRecord& record) {
    isDone_[record.place] = true;
    const bool isNews = book_.Note(batch_[record.place].path, record, now_);
    if (!isNews || record.news.IsEmpty()) return;
    const auto* outcome = record.news.FindAs<String>(news::kOutcome);
    ++(outcome != nullptr && *outcome == String(news::kFailed) ? failed_ : resolved_);
    const std::string line = options_.isJson ? NewsLine(record.news) : NewsText(record.news);
    std::fputs(line.c_str(), stdout);
    std::fflush(stdout);
  }

  void EndBatch() {
    const int status = process_->Wait();
    process_.reset();
    if (!isReady_) return GetReady(status);
    const std::size_t done = std::min(oneByOne_, batch_.size());
    if (WIFEXITED(status) && WEXITSTATUS(status) == kWatchEnded) {
      oneByOne_ -= done;
      pause_ = kFirstPause;
    } else if (WIFEXITED(status) && WEXITSTATUS(status) == kBatchImpossible) {
      PutBack();
    } else if (!isEnding_) {
      NoteDeath(isTimedOut_
                    ? "has taken more than " + std::to_string(options_.timeLimit.count()) + " s"
                    : DeathOf(status));
    }
    manager_.Tell("STATUS=" + std::to_string(resolved_) + " reports resolved, " +
                  std::to_string(failed_) + " failed; " +
                  std::to_string(queue_.size() + arrivals_.Waiting()) + " wait");
  }

  /// The batch of no reports has ended.
  void GetReady(int status) {
    isReady_ = WIFEXITED(status) && WEXITSTATUS(status) == kWatchEnded;
    if (isReady_) return manager_.Tell("READY=1");
    if (!isEnding_) status_ = WIFEXITED(status) ? WEXITSTATUS(status) : kWatchFailed;
  }

  /// Which report was it? Each of the batch is tried alone.
  void NoteDeath(const std::string& death) {
    if (batch_.size() > 1) {
      Say("The process for " + std::to_string(batch_.size()) + " reports " + death +
          "; they are tried one by one.");
      oneByOne_ = PutBackUndone();
      return;
    }
    oneByOne_ -= std::min<std::size_t>(oneByOne_, 1);
    if (isDone_[0]) return;
    BatchRecord record{.place = 0, .isTroubled = true, .archives = {}, .news = {}};
    record.news.Set(news::kReport, String(batch_[0].path));
    record.news.Set(news::kOutcome, news::kFailed);
    record.news.Set(news::kError, String("The process that resolved it " + death + "."));
    Note(record);
  }

  std::size_t PutBackUndone() {
    const std::size_t before = queue_.size();
    for (std::size_t i = batch_.size(); i-- > 0;)
      if (!isDone_[i]) queue_.push_front(std::move(batch_[i]));
    batch_.clear();
    return queue_.size() - before;
  }

  /// Nothing can be done just now.
  void PutBack() {
    PutBackUndone();
    pausedUntil_ = now_ + pause_;
    pause_ = std::min(2 * pause_, kLongestPause);
  }

  // --- Waiting and ending ------------------------------------------------------------------------

  void Await() {
    milliseconds time = std::chrono::ceil<milliseconds>(
        std::max({nextLook_ - now_, Clock::duration(kBetweenForcedLooks)}));
    const bool isBusy = process_ || !queue_.empty() || arrivals_.Waiting() != 0 ||
                        book_.Troubled() != 0 || arrivals_.HasLost();
    if (isBusy) time = Arrivals::kBetweenLooks;
    if (const auto every = manager_.SignEvery()) time = std::min(time, *every);
    std::array<pollfd, 3> awaited{
        {{.fd = signals_.Descriptor(), .events = POLLIN, .revents = 0},
         {.fd = arrivals_.Descriptor(), .events = POLLIN, .revents = 0},
         {.fd = process_ ? process_->Descriptor() : -1, .events = POLLIN, .revents = 0}}};
    (void)poll(awaited.data(), awaited.size(), static_cast<int>(time.count()));
  }

  /// The reports that are being resolved are done to their end; asked again, they are not.
  void End() {
    if (std::exchange(isEnding_, true)) {
      if (process_) process_->Kill();
      status_ = kInterruptedStatus;
      return;
    }
    manager_.Tell("STOPPING=1");
    if (process_) process_->AskToEnd();
  }

  const WatchOptions& options_;
  Arrivals arrivals_;
  SignalDescriptor signals_;
  ServiceManager manager_{};
  ReportBook book_{};
  std::vector<Url> archives_{};
  std::deque<BatchReport> queue_{};
  std::map<std::string, std::string> unreadable_{};
  bool isDeafnessSaid_ = false;

  std::vector<BatchReport> batch_{};
  std::vector<bool> isDone_{};
  std::optional<BatchProcess> process_{};
  bool isTimedOut_ = false;
  std::size_t oneByOne_ = 0;  ///< so many reports are batches of their own

  SteadyTime now_{};
  SteadyTime lastLook_{};
  SteadyTime nextLook_{};
  SteadyTime lastSign_{};  ///< of life, of the process
  SteadyTime pausedUntil_{};
  seconds pause_ = kFirstPause;
  std::size_t resolved_ = 0;
  std::size_t failed_ = 0;
  bool isReady_ = false;
  bool isEnding_ = false;
  std::optional<int> status_{};
};

}  // namespace

int Watch(const WatchOptions& options) {
  for (const std::string& directory : options.directories) {
    std::error_code missing;
    if (std::filesystem::is_directory(directory, missing)) continue;
    Say("\"" + SafeText(directory) + "\" is no directory.");
    return kWatchFailed;
  }
  Result<SignalDescriptor> signals = SignalDescriptor::Make();
  if (!signals) Say(signals.GetError().Text().ToStdString());
  Result<Arrivals> arrivals = Arrivals::Make(options.directories, options.patience);
  if (!arrivals) Say(arrivals.GetError().Text().ToStdString());
  if (!signals || !arrivals) return kWatchFailed;
  return Watcher(options, *std::move(arrivals), *std::move(signals)).Run();
}

}  // namespace tarvo::toolkit
