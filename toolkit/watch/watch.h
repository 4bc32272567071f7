#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "toolkit/watch/batch.h"

namespace tarvo::toolkit {

/// Exit statuses of a watch, and of the process of a batch.
inline constexpr int kWatchEnded = 0;
inline constexpr int kWatchFailed = 1;
/// Of the process of a batch: nothing could be done, and it has said why.
inline constexpr int kBatchImpossible = 2;

struct WatchOptions {
  std::vector<std::string> directories{};
  std::chrono::seconds rescan{30};       ///< between two looks at everything, at least
  std::chrono::seconds patience{60};     ///< a report without its end is taken after so long
  std::chrono::seconds timeLimit{1800};  ///< for a report
  bool isJson = false;                   ///< news as JSON
  /// Called in the process of a batch; `tell` is BatchTools::tell. Gives the exit status. A batch
  /// of no reports looks whether everything is as it should be, and tells the directories of
  /// archives, a line each.
  std::function<int(const std::vector<BatchReport>& reports,
                    const std::function<void(std::string_view line)>& tell)>
      work{};
};

/// Resolves and groups reports as they drop into directories, until SIGINT or SIGTERM:
///
///     Arrivals: whole reports → batches, a process each: resolved, grouped, told → ReportBook
///        ▲ events and looks                    tried again, symbols that came late │
///        └────────────────────────────────────────────────────────────────────────┘
///
/// Nothing is kept but what is beside the reports and in the database: a watch that was killed
/// finds there how far it was. News go to standard output, a line each; trouble to standard error.
/// Called before the process has other threads. Returns the program's exit status.
[[nodiscard]] int Watch(const WatchOptions& options);

}  // namespace tarvo::toolkit
