#include "toolkit/cluster/shard.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <functional>
#include <map>
#include <queue>
#include <string>
#include <utility>

namespace tarvo::toolkit {
namespace {

/// In bytes: what a report costs whatever its size.
constexpr std::uint64_t kWorkOfAReport = 16 * 1024;
constexpr int kHashBits = 32;
constexpr std::size_t kHashDigitsRead = 8;

std::uint64_t WorkOf(const ListedReport& listed) { return listed.size + kWorkOfAReport; }

std::optional<std::size_t> Number(std::string_view text) {
  std::size_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

/// Which of `parts` parts a hash belongs to.
std::size_t PartOf(const std::string& hash, std::size_t parts) {
  std::uint32_t start = 0;
  std::from_chars(hash.data(), hash.data() + std::min(hash.size(), kHashDigitsRead), start, 16);
  return static_cast<std::size_t>((std::uint64_t{start} * parts) >> kHashBits);
}

/// A build, or a part of a large one.
struct Unit {
  std::uint64_t work = 0;
  std::vector<std::size_t> reports;
};

/// The builds' reports, by their places; in the order of the builds' names.
std::map<std::string_view, Unit> ByBuild(std::span<const ListedReport> list) {
  std::map<std::string_view, Unit> builds;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const Builds& named = *list[i].report.builds;
    Unit& unit = builds[named.empty() ? std::string_view() : named.front()];
    unit.work += WorkOf(list[i]);
    unit.reports.push_back(i);
  }
  return builds;
}

std::vector<Unit> Units(std::span<const ListedReport> list, std::size_t shards) {
  std::map<std::string_view, Unit> builds = ByBuild(list);
  double fair = 0;
  for (const auto& [build, unit] : builds) fair += static_cast<double>(unit.work);
  fair = std::max(fair / static_cast<double>(shards), 1.0);
  std::vector<Unit> units;
  for (auto& [build, unit] : builds) {
    const double share = static_cast<double>(unit.work) / fair;
    const auto parts = share > kLargeBuild ? static_cast<std::size_t>(std::ceil(share)) : 1;
    const std::size_t first = units.size();
    units.resize(first + parts);
    for (const std::size_t report : unit.reports) {
      Unit& part = units[first + PartOf(list[report].hash, parts)];
      part.work += WorkOf(list[report]);
      part.reports.push_back(report);
    }
  }
  std::ranges::stable_sort(units, std::ranges::greater(), &Unit::work);
  return units;
}

}  // namespace

std::optional<Shard> ShardFromText(std::string_view text) {
  const std::size_t slash = text.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const auto index = Number(text.substr(0, slash));
  const auto count = Number(text.substr(slash + 1));
  if (!index || !count || *index < 1 || *index > *count || *count > kMaximumShards)
    return std::nullopt;
  return Shard{*index - 1, *count};
}

std::vector<std::size_t> ReportsOf(const Shard& shard, std::span<const ListedReport> list) {
  using Load = std::pair<std::uint64_t, std::size_t>;  // work and shard
  std::priority_queue<Load, std::vector<Load>, std::greater<>> loads;
  for (std::size_t i = 0; i < shard.count; ++i) loads.emplace(0, i);
  std::vector<std::size_t> mine;
  for (const Unit& unit : Units(list, shard.count)) {
    const auto [work, to] = loads.top();
    loads.pop();
    loads.emplace(work + unit.work, to);
    if (to == shard.index) mine.insert(mine.end(), unit.reports.begin(), unit.reports.end());
  }
  std::ranges::sort(mine);
  return mine;
}

}  // namespace tarvo::toolkit
