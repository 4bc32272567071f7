#include "toolkit/cluster/shard_work.h"

#include <filesystem>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "tarvo/crash_report.h"
#include "toolkit/cluster/outcome_lines.h"
#include "toolkit/resolve/summary/lacks_document.h"

namespace tarvo::toolkit {
namespace {

namespace fs = std::filesystem;

/// Beside `file`, those that tasks have left which did not end.
std::vector<Url> PartialFiles(const Url& file) {
  const std::string start = file.Name().ToStdString() + std::string(kPartialInfix);
  const std::string directory = file.Parent().SystemPath().ToStdString();
  std::vector<Url> partial;
  std::error_code error;
  for (auto entry = fs::directory_iterator(directory.empty() ? "." : directory, error);
       !error && entry != fs::directory_iterator(); entry.increment(error))
    if (entry->path().filename().string().starts_with(start))
      partial.push_back(Url::FromSystemPath(entry->path().string()));
  return partial;
}

void Remove(const std::vector<Url>& files) {
  std::error_code gone;
  for (const Url& file : files) fs::remove(file.SystemPath().ToStdString(), gone);
}

/// The reports of a shard that have no line yet.
class Awaited {
 public:
  Awaited(const std::vector<ListedReport>& list, std::vector<std::size_t> mine)
      : list_(list), mine_(std::move(mine)), isDone_(mine_.size()) {
    for (std::size_t place = 0; place < mine_.size(); ++place)
      places_.emplace(list[mine_[place]].report.file.Text().ToStdString(), place);
  }

  /// The line's place among the shard's, when it is awaited.
  std::optional<std::size_t> Take(const OutcomeLine& outcome) {
    const auto found = places_.find(outcome.report);
    if (found == places_.end() || isDone_[found->second] ||
        list_[mine_[found->second]].hash != outcome.hash)
      return std::nullopt;
    isDone_[found->second] = true;
    ++done_;
    if (const auto* lacks =
            outcome.outcome.FindAs<DataArray>(crash_report::property::kOutcomeLacks))
      lacks_.AddReport(ReadLacks(*lacks));
    return found->second;
  }

  [[nodiscard]] std::size_t All() const { return mine_.size(); }
  [[nodiscard]] std::size_t Done() const { return done_; }
  [[nodiscard]] Lacks TakeLacks() { return std::move(lacks_); }

  /// The places that are left, and their reports.
  std::pair<std::vector<std::size_t>, std::vector<Report>> Left() const {
    std::pair<std::vector<std::size_t>, std::vector<Report>> left;
    for (std::size_t place = 0; place < mine_.size(); ++place) {
      if (isDone_[place]) continue;
      left.first.push_back(place);
      left.second.push_back(list_[mine_[place]].report);
    }
    return left;
  }

 private:
  const std::vector<ListedReport>& list_;
  const std::vector<std::size_t> mine_;
  std::unordered_map<std::string, std::size_t> places_{};
  std::vector<bool> isDone_;
  std::size_t done_ = 0;
  Lacks lacks_;  ///< of those that are done
};

/// What the reports lack, where `file` is whole and has all lines of the shard.
std::optional<Lacks> LacksOfRun(const std::vector<ListedReport>& list,
                                const std::vector<std::size_t>& mine, const Url& file) {
  Awaited awaited(list, mine);
  const auto read = ForEachOutcome(file, CutEnd::Refused, [&](const OutcomeLine& outcome) {
    (void)awaited.Take(outcome);
    return Result<void>();
  });
  if (!read || awaited.Done() != awaited.All()) return std::nullopt;
  return awaited.TakeLacks();
}

}  // namespace

Result<TakenUpShard> TakeUpShard(FileService& files, const std::vector<ListedReport>& list,
                                 const Shard& shard, const Url& file) {
  const std::vector<std::size_t> mine = ReportsOf(shard, list);
  std::vector<Url> partial = PartialFiles(file);
  if (auto lacks = LacksOfRun(list, mine, file)) {
    Remove(partial);
    return TakenUpShard{.reports = mine.size(), .lacks = *std::move(lacks)};
  }
  Result<ResultsFile> results = ResultsFile::MakeKept(files, file, mine.size());
  if (!results) return results.GetError();
  Awaited awaited(list, mine);
  for (const Url& earlier : partial) {
    // A line that cannot be read, or a file that has gone meanwhile, is nothing to take up.
    (void)static_cast<bool>(
        ForEachOutcome(earlier, CutEnd::PassedOver, [&](const OutcomeLine& outcome) {
          if (const auto place = awaited.Take(outcome))
            results->Add(*place, std::string(outcome.line));
          return Result<void>();
        }));
  }
  auto [places, reports] = awaited.Left();
  results->SetPlaces(std::move(places));
  return TakenUpShard{.reports = awaited.Done(),
                      .lacks = awaited.TakeLacks(),
                      .work = ShardWork{.reports = std::move(reports),
                                        .results = std::move(*results),
                                        .partial = std::move(partial)}};
}

Result<void> FinishShard(ShardWork& work) {
  if (auto committed = work.results.Commit(); !committed) return committed;
  Remove(work.partial);
  return {};
}

}  // namespace tarvo::toolkit
