#pragma once

#include <string>
#include <vector>

#include "toolkit/triage/model/skipped_log.h"

namespace tarvo::toolkit {

/// A crash log that was added to a database, and the group that it came to.
struct AddedLog {
  std::string path{};
  std::string group{};
  std::string signature{};
  bool isTaken = false;     ///< not known before, or not with so many names
  bool isNewGroup = false;  ///< no log of an earlier run was of the group
};

struct AddedLogs {
  std::vector<AddedLog> logs{};
  std::vector<SkippedLog> skipped{};
};

}  // namespace tarvo::toolkit
