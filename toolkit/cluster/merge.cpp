#include "toolkit/cluster/merge.h"

#include <filesystem>
#include <system_error>
#include <unordered_map>

#include "tarvo/format.h"
#include "toolkit/cluster/outcome_lines.h"

namespace tarvo::toolkit {
namespace {

class Merger {
 public:
  Merger(const std::vector<ListedReport>& list, const TakeLine& take)
      : list_(list), take_(take), isDone_(list.size()) {
    places_.reserve(list.size());
    for (std::size_t place = 0; place < list.size(); ++place)
      places_.emplace(list[place].report.file.SystemPath().View(), place);
  }

  Result<void> Read(const Url& file) {
    std::error_code error;
    if (!std::filesystem::exists(file.SystemPath().ToStdString(), error) && !error) return {};
    return ForEachOutcome(file, CutEnd::Refused,
                          [&](const OutcomeLine& outcome) { return Take(file, outcome); });
  }

  Merge Finish() {
    for (std::size_t place = 0; place < list_.size(); ++place)
      if (!isDone_[place]) merge_.missing.push_back(place);
    return std::move(merge_);
  }

 private:
  Result<void> Take(const Url& file, const OutcomeLine& outcome) {
    const auto found = places_.find(outcome.report);
    if (found == places_.end()) {
      merge_.unlisted.push_back(outcome.report);
      return {};
    }
    const std::size_t place = found->second;
    if (isDone_[place]) {
      merge_.doubled.push_back(Format("@ in @", String(outcome.report), file).ToStdString());
      return {};
    }
    isDone_[place] = true;
    ++(outcome.isFailed ? merge_.failed : merge_.resolved);
    merge_.changed += !outcome.hash.empty() && outcome.hash != list_[place].hash;
    return take_ ? take_(place, outcome.line) : Result<void>();
  }

  const std::vector<ListedReport>& list_;
  const TakeLine& take_;
  std::unordered_map<std::string_view, std::size_t> places_{};
  std::vector<bool> isDone_;
  Merge merge_{};
};

}  // namespace

Result<Merge> MergeResults(const std::vector<ListedReport>& list, const std::vector<Url>& results,
                           const TakeLine& take) {
  Merger merger(list, take);
  for (const Url& file : results)
    if (auto read = merger.Read(file); !read) return read.GetError();
  return merger.Finish();
}

}  // namespace tarvo::toolkit
