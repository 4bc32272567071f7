#pragma once

#include <cstdint>

namespace tarvo {

/// What one extraction may make at most, however little its archive declares. Both are entries of
/// the host's configuration.
struct ArchiveLimits {
  static constexpr std::int64_t kDefaultBytes = std::int64_t{64} << 30;
  static constexpr std::int64_t kDefaultEntries = 1'000'000;

  std::int64_t bytes = kDefaultBytes;      ///< g_archiveMaximumBytes, of all files together
  std::int64_t entries = kDefaultEntries;  ///< g_archiveMaximumEntries, directories included
};

}  // namespace tarvo
