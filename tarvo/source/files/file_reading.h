#pragma once

#include <cstddef>

#include "tarvo/result.h"
#include "tarvo/string.h"

namespace tarvo {

/// Larger files are not read as a text.
inline constexpr std::size_t kMaximumTextBytes = std::size_t{1} << 30;

/// Reads a file to its end, whatever its size is said to be: a growing file, a pipe and the files
/// of the process file system too. A file error when it cannot be read, is a directory or holds
/// more than `limit` bytes; of a file that is said to be larger nothing is read.
Result<String> ReadWholeFile(const Url& file, std::size_t limit = kMaximumTextBytes);

/// The first `size` bytes of a regular file, or all of a shorter one; an empty text for anything
/// else that can be looked at, of which nothing is read.
Result<String> ReadStartOfFile(const Url& file, std::size_t size);

}  // namespace tarvo
