#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "toolkit/triage/model/crash_stack.h"
#include "toolkit/triage/model/skipped_log.h"

/// What triage tells: everything that is known of each group, for people and for programs. All
/// texts are raw: from strangers, not to be printed but through SafeText.
namespace tarvo::toolkit {

/// Something with a name, and how often it occurs.
struct NamedCount {
  std::string name{};
  std::size_t count = 0;
  friend bool operator==(const NamedCount&, const NamedCount&) = default;
};

/// Reports of a day and a build.
struct DayCount {
  std::chrono::sys_days day{};
  std::string build{};
  std::size_t count = 0;
};

struct TriageVariant {
  std::string id{};
  std::vector<std::string> frames{};  ///< keys, innermost first
  std::size_t count = 0;
  CrashStack stack{};          ///< of a report that stands for it; only of a group's first variant
  std::size_t namedAfter = 0;  ///< index in `stack` of the one that the group is named after
  std::size_t furtherFrames = 0;  ///< of that report, behind `stack`
};

struct TriageGroup {
  std::string id{};
  std::vector<std::string> formerIds{};
  std::string signature{};
  std::string crashClass{};
  std::size_t count = 0;  ///< reports
  std::optional<std::chrono::sys_seconds> first{};
  std::optional<std::chrono::sys_seconds> last{};
  std::vector<NamedCount> builds{};       ///< oldest first
  std::vector<NamedCount> systems{};      ///< most frequent first
  std::vector<DayCount> days{};           ///< of reports whose time is known, by day and build
  std::vector<std::string> reports{};     ///< paths of their logs, sorted
  std::vector<TriageVariant> variants{};  ///< most frequent first
  std::vector<std::string> similarTo{};   ///< ids, the most similar first
  std::vector<NamedCount> missing{};      ///< "module build": frames without a name
  bool isNotStored = false;               ///< the database did not have it before this run
  bool isNew = false;                     ///< no build but the newest one has it
  bool isBack = false;    ///< builds between its older and its newest reports do not have it
  bool isRising = false;  ///< it has become more frequent of late
};

struct TriageResult {
  std::vector<TriageGroup> groups{};  ///< most frequent first, of equal ones by id
  std::vector<std::string> builds{};  ///< all, oldest first
  std::vector<SkippedLog> skipped{};
  std::size_t reports = 0;
  std::size_t logsRead = 0;  ///< in this run
  bool hasDatabase = false;
};

}  // namespace tarvo::toolkit
