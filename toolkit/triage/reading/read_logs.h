#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "toolkit/triage/reading/crash_record.h"
#include "toolkit/triage/reading/log_list.h"

namespace tarvo::toolkit {

struct ReadingOptions {
  std::size_t threads = 1;
  /// Called with each log's record, in the order of the list, by the caller's thread.
  std::function<void(CrashRecord&& record)> take{};
  /// Called now and then with the number of logs read, by the caller's thread.
  std::function<void(std::size_t done)> onProgress = [](std::size_t) {};
};

/// Reads the logs that `paths` name. Memory does not grow with their number; what cannot be read is
/// returned, in the order of the list.
[[nodiscard]] std::vector<SkippedLog> ReadLogs(const std::vector<std::string>& paths,
                                               const ReadingOptions& options);

}  // namespace tarvo::toolkit
