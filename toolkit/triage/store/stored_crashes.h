#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "toolkit/triage/model/crash_stack.h"
#include "toolkit/triage/reading/crash_record.h"

/// What a database of crashes holds, as it is read for showing.
namespace tarvo::toolkit {

struct StoredVariant {
  std::string id{};
  std::string group{};
  std::size_t furtherFrames = 0;
  std::size_t reports = 0;
  std::vector<std::string> frames{};  ///< its keys, as Fingerprint has them
  /// Of the representative; empty but for the variant of its group that has most reports.
  CrashStack stack{};
  std::size_t culprit = 0;  ///< index in `stack` of the entry that the group is named after
};

struct StoredGroup {
  std::string id{};
  std::string signature{};
  std::string crashClass{};
  std::vector<std::string> formerIds{};
};

struct StoredReport {
  std::string hash{};
  std::string variant{};
  std::optional<std::chrono::sys_seconds> time{};
  std::string build{};
  std::string system{};
  std::vector<std::string> paths{};  ///< sorted
  std::vector<MissingSymbols> missing{};
};

struct StoredCrashes {
  std::vector<StoredGroup> groups{};
  std::vector<StoredVariant> variants{};
  std::vector<StoredReport> reports{};
};

}  // namespace tarvo::toolkit
