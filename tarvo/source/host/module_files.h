#pragma once

#include <string>
#include <vector>

#include "tarvo/result.h"

namespace tarvo {

/// The default module files: every "*.so" of the first directory that holds one, "crashhandler.so"
/// first, the others by name. An illegal-state error that names the directories when none does.
Result<std::vector<std::string>> DefaultModuleFiles(const std::vector<std::string>& directories);

/// Where the default modules are looked for: beside the program, then beside the host library.
[[nodiscard]] std::vector<std::string> DefaultModuleDirectories();

}  // namespace tarvo
