#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tarvo/symbol_file_source.h"

namespace tarvo::toolkit {

/// What a report says of one of its modules, for a search for debug files.
struct ModuleIdentity {
  std::string name;      ///< as frames name it
  std::string path;      ///< absolute, on the machine of the crash; empty where it is not known
  std::string id;        ///< the GNU build id, lower-case hexadecimal; empty where it is not known
  std::string platform;  ///< "linux", "macos" or "windows"; empty where it is not known
  bool isExecutable = false;
  std::optional<std::int64_t> crashTime;  ///< seconds since 1970
};

/// Reads what the capture has put among the crashed thread's variables, and the module's entry.
/// What cannot be an id or a path counts as not known: reports come from anywhere.
[[nodiscard]] ModuleIdentity Identify(const ModuleQuery& query);

}  // namespace tarvo::toolkit
