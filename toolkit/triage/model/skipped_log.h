#pragma once

#include <string>

namespace tarvo::toolkit {

/// Something that could not be read, and why.
struct SkippedLog {
  std::string path{};  ///< of the log; of a line of results its report, or "FILE:LINE"
  std::string reason{};
};

}  // namespace tarvo::toolkit
