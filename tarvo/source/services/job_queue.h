#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "tarvo/framework.h"

namespace tarvo {

class QueuedJob;

/// The default queue: jobs run in the order of their arrival on a few workers that start when
/// there is work. A worker that waits for another job lends its place to a further worker, so jobs
/// may wait for jobs to any depth.
class JobQueue final : public JobService {
 public:
  static constexpr std::size_t kWorkers = 2;

  /// Timed waits follow `clock`, which must outlive the pending jobs.
  explicit JobQueue(ClockService& clock);
  ~JobQueue();

  Result<Ref<PendingJob>> Enqueue(Ref<Job> job) override;

  /// Refuses new jobs, ends those that have not started with an illegal-state error, and waits for
  /// those that run. Not to be called by a job.
  void Shutdown();

 private:
  friend class LentPlace;

  void Work();
  void StartWorkerIfNeeded();
  [[nodiscard]] Ref<QueuedJob> NextJob();

  ClockService& clock_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Ref<QueuedJob>> waiting_;
  std::vector<std::thread> workers_;
  std::size_t idle_ = 0;  ///< workers without a job
  std::size_t lent_ = 0;  ///< workers whose job waits for another
  bool isShutDown_ = false;
};

}  // namespace tarvo
