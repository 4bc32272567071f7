#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tarvo::toolkit {

/// What of a file changes when its content does, as far as a look from outside tells.
struct FileState {
  std::uint64_t size = 0;    ///< in bytes
  std::int64_t time = 0;     ///< of the last change, in nanoseconds since 1970
  std::uint64_t number = 0;  ///< the inode
  friend bool operator==(const FileState&, const FileState&) = default;
};

/// Nothing where there is no regular file, or none that can be looked at. Links are followed.
[[nodiscard]] std::optional<FileState> LookAtFile(const std::string& path);

/// How a report's file ends.
enum class ReportEnd : std::uint8_t {
  Seen,     ///< by the line that closes a report
  Missing,  ///< by anything else
  Hidden,   ///< it is packed or UTF-16
};
[[nodiscard]] ReportEnd LookAtEnd(const std::string& path);

}  // namespace tarvo::toolkit
