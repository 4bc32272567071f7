#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tarvo/result.h"
#include "toolkit/base/regular_file.h"
#include "toolkit/triage/reading/log_list.h"

namespace tarvo::toolkit {

/// A crash log that is to be read: a file, or a line of a file of results.
struct PendingLog {
  std::string path{};  ///< of the file; of a line "FILE:LINE"
  bool isLine = false;
  std::string line{};
};

/// Gives the logs of a list one after the other, in portions that a known memory holds.
class LogSource {
 public:
  explicit LogSource(std::vector<LogFile> files) : files_(std::move(files)) {}

  /// The next logs; empty at the end. What cannot be read goes to `skipped`.
  [[nodiscard]] std::vector<PendingLog> TakePortion(std::vector<SkippedLog>& skipped);

 private:
  void TakeLines(std::vector<PendingLog>& portion, std::vector<SkippedLog>& skipped);
  void NextLine(std::vector<PendingLog>& portion, std::vector<SkippedLog>& skipped);
  void CloseResults();

  std::vector<LogFile> files_;
  std::size_t next_ = 0;
  File results_{};  ///< open while its lines are taken
  std::size_t line_ = 0;
  std::size_t bytes_ = 0;  ///< of the portion's lines
};

/// The whole text of a log. An error when it cannot be read or is larger than
/// kMaximumDocumentBytes.
[[nodiscard]] Result<std::string> ReadLog(const std::string& path);

}  // namespace tarvo::toolkit
