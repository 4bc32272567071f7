#include "services/job_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <functional>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "services/clock.h"

namespace tarvo {
namespace {

using namespace std::chrono_literals;

constexpr SourceFile kSource{"tests/job_queue"};

template <typename Work>
Ref<PendingJob> Start(JobQueue& queue, Work work) {
  return *queue.Enqueue(Make<ClosureJob>(std::move(work)));
}

TEST(JobQueue, EndsOfJobsBecomeResults) {
  JobQueue queue(SteadyClock());
  const struct {
    std::function<Result<void>()> work;
    const char* expected;
  } kCases[] = {
      {[] { return Result<void>(); }, "done"},
      {[]() -> Result<void> { return Error::Plain(kSource.Here(), "failed"); }, "failed"},
      {[]() -> Result<void> { throw std::runtime_error("oh"); }, "The job threw an exception: oh"},
      {[]() -> Result<void> { throw 1; },
       "The job threw an exception: something that is no std::exception"},
  };
  for (const auto& [work, expected] : kCases) {
    const auto result = Start(queue, work)->TakeResult();
    EXPECT_EQ(result ? "done" : result.GetError().Message().ToStdString(), expected);
  }
  EXPECT_EQ(queue.Enqueue(nullptr).GetError().ClassId(), Error::kIllegalArgument);
}

/// Each job waits for the next one; a fixed number of workers would wait for ever.
TEST(JobQueue, JobsMayWaitForJobsDeeperThanThereAreWorkers) {
  JobQueue queue(SteadyClock());
  std::atomic<int> ran = 0;
  std::function<Result<void>(int)> nest = [&](int depth) -> Result<void> {
    ++ran;
    if (depth == 0) return {};
    return Start(queue, [&nest, depth] { return nest(depth - 1); })->TakeResult();
  };
  std::vector<Ref<PendingJob>> roots;
  for (int i = 0; i < 8; ++i) roots.push_back(Start(queue, [&nest] { return nest(6); }));
  for (const auto& root : roots) EXPECT_TRUE(root->TakeResult());
  EXPECT_EQ(ran, 8 * 7);
}

TEST(JobQueue, WorkersRunSideBySideButNoMoreThanTheirNumber) {
  JobQueue queue(SteadyClock());
  std::atomic<int> running = 0;
  std::atomic<int> most = 0;
  std::barrier together(2);
  std::vector<Ref<PendingJob>> jobs;
  // The first two can only end together.
  for (int i = 0; i < 2; ++i) {
    jobs.push_back(Start(queue, [&]() -> Result<void> {
      together.arrive_and_wait();
      return {};
    }));
  }
  for (const auto& job : jobs) EXPECT_TRUE(job->TakeResult());
  for (int i = 0; i < 50; ++i) {
    jobs.push_back(Start(queue, [&]() -> Result<void> {
      const int now = ++running;
      for (int seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
      }
      std::this_thread::yield();
      --running;
      return {};
    }));
  }
  for (const auto& job : jobs) EXPECT_TRUE(job->TakeResult());
  EXPECT_LE(most, static_cast<int>(JobQueue::kWorkers));
}

/// A clock in the test's hand: every look at it takes ten seconds.
class LeapingClock final : public ClockService {
 public:
  std::chrono::nanoseconds Now() override { return 10s * ++looks_; }

 private:
  std::atomic<int> looks_ = 0;
};

TEST(JobQueue, TimedWaitsFollowTheClock) {
  LeapingClock clock;
  JobQueue queue(clock);
  std::binary_semaphore end(0);
  const auto job = Start(queue, [&]() -> Result<void> {
    end.acquire();
    return {};
  });
  EXPECT_FALSE(job->Wait(10s));
  EXPECT_FALSE(job->Wait(100s));
  EXPECT_FALSE(job->Wait(-1s));
  end.release();
  EXPECT_TRUE(job->TakeResult());
  EXPECT_TRUE(job->Wait(0s));
}

TEST(JobQueue, ShutdownWaitsForRunningJobsAndEndsTheOthers) {
  JobQueue queue(SteadyClock());
  std::binary_semaphore started(0);
  std::atomic<bool> isShutDown = false;
  std::vector<Ref<PendingJob>> jobs;
  jobs.push_back(Start(queue, [&]() -> Result<void> {
    started.release();
    while (queue.Enqueue(Make<ClosureJob>([] { return Result<void>(); }))) {
      std::this_thread::sleep_for(1ms);
    }
    EXPECT_FALSE(isShutDown);
    return {};
  }));
  started.acquire();
  queue.Shutdown();
  isShutDown = true;
  EXPECT_TRUE(jobs[0]->Wait(0s));
  EXPECT_TRUE(jobs[0]->TakeResult());
  EXPECT_EQ(queue.Enqueue(Make<ClosureJob>([] { return Result<void>(); })).GetError().Message(),
            "The host is shutting down and takes no jobs.");
}

TEST(JobQueue, AWaitingJobIsFreedWhenShutdownDropsWhatItWaitsFor) {
  std::vector<Ref<PendingJob>> jobs;
  std::counting_semaphore<> started(0);
  std::counting_semaphore<> finish(0);
  JobQueue queue(SteadyClock());
  for (std::size_t i = 0; i < JobQueue::kWorkers; ++i) {
    jobs.push_back(Start(queue, [&]() -> Result<void> {
      started.release();
      finish.acquire();
      return {};
    }));
  }
  for (std::size_t i = 0; i < JobQueue::kWorkers; ++i) started.acquire();
  const auto never = Start(queue, [] { return Result<void>(); });
  std::thread client([&] {
    EXPECT_EQ(never->TakeResult().GetError().Message(),
              "The host shut down before the job started.");
    finish.release(JobQueue::kWorkers);
  });
  queue.Shutdown();
  client.join();
  for (const auto& job : jobs) EXPECT_TRUE(job->TakeResult());
}

}  // namespace
}  // namespace tarvo
