#pragma once

#include <string>
#include <vector>

#include "tarvo/result.h"

namespace tarvo {

/// Module files that were chosen, and those beside them that were not.
struct ChosenModules {
  std::vector<std::string> files;
  std::vector<std::string> passedOver;
};

/// The default module files: every "*.so" of the first directory that holds one, "crashhandler.so"
/// first, the others by name. An illegal-state error that names the directories when none does.
Result<std::vector<std::string>> DefaultModuleFiles(const std::vector<std::string>& directories);

/// Of the first directory that has any: the modules that belong to the host library. Passed over is
/// every other "*.so" that was seen. An illegal-state error as above.
Result<ChosenModules> KnownModuleFiles(const std::vector<std::string>& directories);

/// The file of `module`: itself, or for a name alone ("crashhandler") that of the first directory
/// that has it. An illegal-argument error that names the directories when none has.
Result<std::string> FindModuleFile(const std::string& module,
                                   const std::vector<std::string>& directories);

/// Where the default modules are looked for: beside the program, then beside the host library.
[[nodiscard]] std::vector<std::string> DefaultModuleDirectories();

}  // namespace tarvo
