#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "toolkit/resolve/listing/report_list.h"

namespace tarvo::toolkit {

/// Hands reports out to the threads that resolve them. Of each build one report goes first: it
/// makes the build's archive be unpacked and indexed, while other threads work for other builds
/// instead of waiting for it. The rest of the build's reports follow at once, so that its symbols
/// stay open. All operations from any thread.
class Schedule {
 public:
  /// A report counts to the first build that it names.
  explicit Schedule(std::span<const Report> reports);

  /// The index of a report that nobody has; waits for one. Nothing when no more will come.
  [[nodiscard]] std::optional<std::size_t> Take();
  /// The report that Take gave has been resolved, or has failed.
  void Done(std::size_t report);
  /// Hands out no more.
  void Stop();

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::size_t> ready_;
  std::deque<std::size_t> firsts_;
  std::map<std::size_t, std::vector<std::size_t>> followers_;  ///< by a build's first report
  std::size_t awaitedFirsts_ = 0;  ///< that were handed out and are not done
};

}  // namespace tarvo::toolkit
