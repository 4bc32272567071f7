#pragma once

#include <string>
#include <vector>

#include "tarvo/result.h"

namespace tarvo::toolkit {

/// The separate debug file of the ELF file `path`, by its build id and its debug link, in
/// `debugDirectories` and beside it; empty when there is none. An error when `path` cannot be read.
Result<std::string> FindDebugFile(const std::string& path,
                                  const std::vector<std::string>& debugDirectories);

}  // namespace tarvo::toolkit
