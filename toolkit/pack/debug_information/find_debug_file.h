#pragma once

#include <string>
#include <vector>

#include "tarvo/result.h"

namespace tarvo::toolkit {

struct FoundDebugFile {
  std::string path;                 ///< empty: there is none
  std::vector<std::string> places;  ///< that the debug link names
};

/// The separate debug file of the ELF file `path`, by its build id and its debug link, in
/// `debugDirectories` and beside it. An error when `path` cannot be read.
Result<FoundDebugFile> FindDebugFile(const std::string& path,
                                     const std::vector<std::string>& debugDirectories);

}  // namespace tarvo::toolkit
