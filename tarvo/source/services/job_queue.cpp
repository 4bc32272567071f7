#include "services/job_queue.h"

#include <pthread.h>

#include <algorithm>
#include <exception>
#include <optional>

#include "services/clock.h"
#include "tarvo/format.h"

namespace tarvo {
namespace {

constexpr SourceFile kJobQueue{"tarvo/source/job_queue"};

/// How long a wait sleeps before it looks at the clock again: at most this on the system's clock,
/// and the second on a clock that may run faster.
constexpr std::chrono::nanoseconds kLongestSleep = std::chrono::hours(1);
constexpr std::chrono::nanoseconds kSleepOnForeignClock = std::chrono::milliseconds(2);

/// The queue whose worker this thread is.
constinit thread_local JobQueue* t_queue = nullptr;

Result<void> RunGuarded(Job& job) {
  std::string reason;
  try {
    return job.Run();
  } catch (const std::exception& exception) {
    reason = exception.what();
  } catch (...) {
    reason = "something that is no std::exception";
  }
  return Error::IllegalState(kJobQueue.Here(), Format("The job threw an exception: @", reason));
}

}  // namespace

/// While it lives, another worker may take the place of this one.
class LentPlace {
 public:
  LentPlace() : queue_(t_queue) {
    if (queue_ == nullptr) return;
    const std::scoped_lock lock(queue_->mutex_);
    ++queue_->lent_;
    queue_->StartWorkerIfNeeded();
  }
  ~LentPlace() {
    if (queue_ == nullptr) return;
    const std::scoped_lock lock(queue_->mutex_);
    --queue_->lent_;
  }
  LentPlace(const LentPlace&) = delete;
  LentPlace& operator=(const LentPlace&) = delete;

 private:
  JobQueue* queue_;
};

/// A job in the queue, and what its client holds of it.
class QueuedJob final : public Counted<PendingJob> {
 public:
  QueuedJob(Ref<Job> job, ClockService& clock) : job_(std::move(job)), clock_(clock) {}

  void Run() {
    Result<void> result = RunGuarded(*job_);
    job_ = nullptr;  // what its closure holds is let go before anybody sees it finished
    Finish(std::move(result));
  }

  void Finish(Result<void> result) {
    {
      const std::scoped_lock lock(mutex_);
      result_ = std::move(result);
    }
    finished_.notify_all();
  }

  [[nodiscard]] bool Wait(std::chrono::nanoseconds timeout) override {
    std::unique_lock lock(mutex_);
    if (result_) return true;
    lock.unlock();
    const LentPlace place;
    lock.lock();
    const std::chrono::nanoseconds start = clock_.Now();
    const auto longest = &clock_ == &SteadyClock() ? kLongestSleep : kSleepOnForeignClock;
    while (!result_) {
      const std::chrono::nanoseconds left = timeout - (clock_.Now() - start);
      if (left <= std::chrono::nanoseconds::zero()) return false;
      finished_.wait_for(lock, std::min(left, longest));
    }
    return true;
  }

  Result<void> TakeResult() override {
    while (!Wait(kLongestSleep)) {
    }
    const std::scoped_lock lock(mutex_);
    return *result_;
  }

 private:
  ~QueuedJob() override = default;

  Ref<Job> job_;
  ClockService& clock_;
  std::mutex mutex_;
  std::condition_variable finished_;
  std::optional<Result<void>> result_;
};

JobQueue::JobQueue(ClockService& clock) : clock_(clock) {}
JobQueue::~JobQueue() { Shutdown(); }

Result<Ref<PendingJob>> JobQueue::Enqueue(Ref<Job> job) try {
  if (!job) return Error::IllegalArgument(kJobQueue.Here(), "There is no job to enqueue.");
  auto queued = Make<QueuedJob>(std::move(job), clock_);
  const std::scoped_lock lock(mutex_);
  if (isShutDown_)
    return Error::IllegalState(kJobQueue.Here(), "The host is shutting down and takes no jobs.");
  waiting_.push_back(queued);
  StartWorkerIfNeeded();
  return Ref<PendingJob>(queued);
} catch (const std::exception& exception) {
  return Error::IllegalState(kJobQueue.Here(),
                             Format("No worker could be started: @", exception.what()));
}

/// Called with the lock held, when a job has come or a place has become free.
void JobQueue::StartWorkerIfNeeded() {
  if (waiting_.empty()) return;
  if (idle_ >= waiting_.size()) return wake_.notify_one();
  if (workers_.size() - lent_ >= kWorkers) return;
  try {
    workers_.emplace_back([this] { Work(); });
  } catch (const std::exception&) {
    // No thread to be had: the job waits for a worker that is there, if there is one.
    if (workers_.empty()) throw;
  }
}

Ref<QueuedJob> JobQueue::NextJob() {
  std::unique_lock lock(mutex_);
  ++idle_;
  wake_.wait(lock, [this] { return isShutDown_ || !waiting_.empty(); });
  --idle_;
  if (waiting_.empty()) return nullptr;
  Ref<QueuedJob> job = waiting_.front();
  waiting_.pop_front();
  return job;
}

void JobQueue::Work() {
  pthread_setname_np(pthread_self(), "tarvo-worker");
  t_queue = this;
  while (const Ref<QueuedJob> job = NextJob()) job->Run();
}

void JobQueue::Shutdown() {
  std::deque<Ref<QueuedJob>> dropped;
  std::vector<std::thread> workers;
  {
    const std::scoped_lock lock(mutex_);
    isShutDown_ = true;
    dropped.swap(waiting_);
    workers.swap(workers_);
  }
  wake_.notify_all();
  for (const auto& job : dropped) {
    job->Finish(
        Error::IllegalState(kJobQueue.Here(), "The host shut down before the job started."));
  }
  for (std::thread& worker : workers) worker.join();
}

}  // namespace tarvo
