#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tarvo/url.h"

namespace tarvo::toolkit {

struct PruneOptions {
  std::string cache;    ///< of unpacked archives; empty: none
  std::string indices;  ///< of debug files; empty: none
  /// What has not been used for so long goes.
  std::chrono::hours unused{std::chrono::hours(24 * 30)};
  /// What was used last stays, up to so many bytes; nothing: any number.
  std::optional<std::uint64_t> mostBytes{};
  bool isDryRun = false;
};

/// Something that goes, or would.
struct PrunedItem {
  std::string path;
  std::uint64_t bytes = 0;
  std::chrono::hours unused{0};
  std::string reason;  ///< for people: "left over", "not used for 40 days", "over the size"
  std::string error;   ///< why it is still there; empty where it went
};
struct Pruned {
  std::vector<PrunedItem> items;
  std::uint64_t keptBytes = 0;
};

/// What was used within this time stays in any case: a resolve may be about to open it.
inline constexpr std::chrono::hours kShortestUnused{1};

/// Clears away unpacked archives and indices that are not needed, and what killed processes have
/// left of both. Each goes in one step, so that a resolve that runs makes what it misses anew; who
/// has a file open keeps it. Only what this program has made by its names is looked at. Directories
/// that cannot be listed count as empty.
[[nodiscard]] Pruned Prune(const PruneOptions& options);

}  // namespace tarvo::toolkit
