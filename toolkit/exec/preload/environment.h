#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo::toolkit {

// What `tarvo exec` tells the preloaded library, in the environment of the program and of all that
// it starts. Configuration entries travel as "TARVO_g_NAME" and "TARVO_DEFAULT_g_NAME", which every
// host reads, those that programs start themselves too.

inline constexpr const char* kModulesVariable = "TARVO_EXEC_MODULES";  ///< files, ":" between them
inline constexpr const char* kConfigVariable = "TARVO_EXEC_CONFIG";    ///< a file, or not set
/// Set once it was said that there is no capture under a debugger.
inline constexpr const char* kDebuggerVariable = "TARVO_EXEC_UNDER_DEBUGGER";

/// The files of kModulesVariable.
inline std::vector<std::string> SplitFiles(std::string_view all) {
  std::vector<std::string> files;
  while (!all.empty()) {
    const std::string_view file = all.substr(0, all.find(':'));
    files.emplace_back(file);
    all.remove_prefix(std::min(file.size() + 1, all.size()));
  }
  return files;
}

}  // namespace tarvo::toolkit
