#pragma once

#include <string>

namespace tarvo {

/// Whether this process is traced, or one of its parent processes is a known debugger. Looks at the
/// process file system as it is at this moment; `processes` is where it is mounted. What cannot be
/// read counts as no debugger.
[[nodiscard]] bool RunsUnderDebugger(const std::string& processes = "/proc");

}  // namespace tarvo
