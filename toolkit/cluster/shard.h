#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "toolkit/cluster/report_list_file.h"

namespace tarvo::toolkit {

/// One of the equal parts that a list's work is cut into.
struct Shard {
  std::size_t index = 0;  ///< from 0
  std::size_t count = 1;
};
inline constexpr std::size_t kMaximumShards = 100'000;

/// Reads "I/N" with 1 ≤ I ≤ N ≤ kMaximumShards.
[[nodiscard]] std::optional<Shard> ShardFromText(std::string_view text);

/// The reports of a shard, by their places in the list, rising. Everybody who has the same list
/// comes to the same parts, and each report is of one.
///
/// A build's reports stay together, so that its archive is unpacked and indexed by as few machines
/// as can be. A build with more work than a shard should have (kLargeBuild times) is cut by the
/// hash of its reports into as many parts as it has shards' worth of work. Builds and parts go,
/// largest first, to the shard that has least. A report's work is taken for its size and as much
/// again as reading a small one takes.
inline constexpr double kLargeBuild = 1.25;
[[nodiscard]] std::vector<std::size_t> ReportsOf(const Shard& shard,
                                                 std::span<const ListedReport> list);

}  // namespace tarvo::toolkit
