#pragma once

#include <string>
#include <vector>

namespace tarvo {

/// What a program left when it had ended.
struct ProgramEnd {
  int status = -1;  ///< exit status; negative: the signal that ended it
  std::string output;
  std::string errors;
};

/// Runs a program to its end with the environment of this process and `environment`
/// ("NAME=VALUE") added.
ProgramEnd RunProgram(const std::vector<std::string>& commandLine,
                      const std::vector<std::string>& environment = {});

}  // namespace tarvo
