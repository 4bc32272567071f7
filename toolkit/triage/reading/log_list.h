#pragma once

#include <string>
#include <vector>

#include "toolkit/triage/model/skipped_log.h"

namespace tarvo::toolkit {

struct LogFile {
  std::string path{};
  bool hasResults = false;  ///< a line for each report, and not one document
};

struct LogList {
  std::vector<LogFile> files{};
  std::vector<SkippedLog> skipped{};
};

/// The crash logs that `paths` name: files as they are; of directories, and of those below, the
/// files whose names end in ".resolved.json". Hidden entries, and links to directories, are passed
/// over. Sorted by path, each file once. A path that names nothing, or neither a file nor a
/// directory, and a directory that cannot be listed, are skipped.
[[nodiscard]] LogList ListLogs(const std::vector<std::string>& paths);

}  // namespace tarvo::toolkit
