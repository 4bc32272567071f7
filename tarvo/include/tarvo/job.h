#pragma once

#include <chrono>
#include <functional>
#include <utility>

#include "tarvo/object.h"
#include "tarvo/result.h"

namespace tarvo {

/// A piece of work that the framework runs once on one of its workers.
class Job : public Object {
 public:
  /// The work. Runs on a worker; must not let an exception out.
  virtual Result<void> Run() = 0;

 protected:
  ~Job() = default;
};

/// A job made from a closure. The closure owns what it captures.
class ClosureJob final : public Counted<Job> {
 public:
  explicit ClosureJob(std::function<Result<void>()> work) : work_(std::move(work)) {}
  Result<void> Run() override { return work_(); }

 private:
  ~ClosureJob() override = default;
  std::function<Result<void>()> work_;
};

/// A job that was handed to a queue.
class PendingJob : public Object {
 public:
  /// Waits until the job has finished, at most `timeout`; whether it has.
  [[nodiscard]] virtual bool Wait(std::chrono::nanoseconds timeout) = 0;
  /// The job's outcome; waits for it. A job that threw gives an illegal-state error.
  virtual Result<void> TakeResult() = 0;

 protected:
  ~PendingJob() = default;
};

/// The framework's workers. Dropping a PendingJob does not cancel it; the host waits for running
/// jobs before it frees the modules.
class JobService {
 public:
  /// Hands a job to the default queue. An illegal-state error when the host is shutting down.
  virtual Result<Ref<PendingJob>> Enqueue(Ref<Job> job) = 0;

 protected:
  ~JobService() = default;
};

}  // namespace tarvo
