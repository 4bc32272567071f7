#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "tarvo/result.h"

namespace tarvo::toolkit {

struct CloseFile {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
/// Owns an open file, or none.
using File = std::unique_ptr<std::FILE, CloseFile>;

struct RegularFile {
  File file;  ///< open for reading, at its start
  std::uint64_t size = 0;
};

/// Opens a regular file, or a link to one, for reading. Nothing else is opened for good, so neither
/// a pipe nor a device blocks or is changed. A file error that names the file and says what was
/// found otherwise.
Result<RegularFile> OpenRegularFile(const std::string& path);

}  // namespace tarvo::toolkit
