#pragma once

#include <functional>
#include <string>
#include <thread>
#include <vector>

/// How the demo's threads are set up.
struct WorkerOptions {
  int count = 6;
  int depth = 8;            ///< calls between a thread's start and where it waits
  bool allocating = false;  ///< instead of waiting, each allocates and frees all the time
  bool oneBlocked = false;  ///< the first one blocks all signals
  bool oneStuck = false;    ///< the first one is in a system call that no signal interrupts
};

/// A program's worth of threads: named, with variables, each some calls deep in the plug-in, at
/// work until the process ends.
class Workers {
 public:
  /// Starts the threads and returns when all are at work.
  explicit Workers(const WorkerOptions& options);

  /// Runs `task` on one more thread, named `name` and as deep in the plug-in as the others, and
  /// waits for it.
  void RunInWorker(const std::string& name, const std::function<void()>& task);

 private:
  WorkerOptions options_;
};
