#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "toolkit/store/archive_tree.h"
#include "toolkit/watch/batch_record.h"

namespace tarvo::toolkit {

/// What is known of the reports that were dealt with: with which archives, so that symbols that
/// come late bring them back, and which ones are to be tried again.
class ReportBook {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// What has come of a report. Whether its news are others than those of the last try; always,
  /// where that went well.
  bool Note(const std::string& path, const BatchRecord& record, Time now);
  /// The report is not there any more.
  void Forget(const std::string& path);

  /// Reports whose next try is due; each is named once, until it is noted again. The first one
  /// comes after kFirstPause, each further one after twice the time, at most kLongestPause.
  [[nodiscard]] std::vector<std::string> TakeDue(Time now);
  static constexpr std::chrono::seconds kFirstPause{5};
  static constexpr std::chrono::seconds kLongestPause{3600};

  /// Reports that were resolved with other archives than there are now; each is named once, until
  /// it is noted again.
  [[nodiscard]] std::vector<std::string> TakeOutdated(ArchiveTree& archives);

  [[nodiscard]] std::size_t Troubled() const noexcept { return troubles_.size(); }

 private:
  struct Trouble {
    std::string news{};
    std::chrono::seconds pause{kFirstPause};
    Time next{};
  };

  /// Of few kinds, whatever the number of reports.
  std::set<ArchiveIdentities> kinds_{};
  std::unordered_map<std::string, const ArchiveIdentities*> resolved_{};
  std::map<std::string, Trouble> troubles_{};
};

}  // namespace tarvo::toolkit
