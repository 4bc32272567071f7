#pragma once

namespace tarvo::command {

// What `tarvo exec` tells the preloaded library, in the environment of the program and of all that
// it starts. Configuration entries travel as "TARVO_g_NAME", which every host reads.

inline constexpr const char* kModulesVariable = "TARVO_EXEC_MODULES";  ///< files, ":" between them
inline constexpr const char* kConfigVariable = "TARVO_EXEC_CONFIG";    ///< a file, or not set
inline constexpr const char* kReportVariable = "TARVO_EXEC_REPORT";    ///< a path's pattern

}  // namespace tarvo::command
