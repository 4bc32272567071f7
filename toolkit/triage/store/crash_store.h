#pragma once

#include <set>
#include <string>
#include <unordered_map>

#include "toolkit/triage/store/draft.h"
#include "toolkit/triage/store/sqlite.h"
#include "toolkit/triage/store/stored_crashes.h"

namespace tarvo::toolkit {

/// What a run has changed.
struct Addition {
  std::set<std::string> groups{};  ///< ids of those that were not there, by these or former ids
  std::set<std::string>
      reports{};  ///< hashes of those that are new, or whose frames have names now
};

/// All crashes that are known: a database that grows from run to run, or one in memory. What a run
/// adds is one transaction: killed before its end it leaves the database as it was.
class CrashStore {
 public:
  /// Opens or makes the database `path`; an empty one is in memory. An error when it is damaged,
  /// of another program or version, or cannot be written. Where the rules of grouping have changed
  /// since it was written, its groups are made anew, and their former ids become aliases.
  static Result<CrashStore> Open(const std::string& path);

  /// Adds reports. One that is there stays as it is, unless more of its frames have names now: then
  /// it moves to its new group, whose alias the old one becomes.
  Result<Addition> Add(const Draft& draft);

  /// Everything, for showing.
  Result<StoredCrashes> Read();

 private:
  explicit CrashStore(Sqlite database) : database_(std::move(database)) {}

  Result<void> Prepare(const std::string& path);
  void Regroup();
  void RegroupVariant(const StoredVariant& variant, const StoredGroup& group, CrashStack stack);
  void AddVariant(const DraftVariant& variant, const TextPool& texts);
  std::int64_t TextId(const std::string& text);
  /// Whether it was taken.
  bool AddReport(const DraftReport& report);
  void AddAlias(const std::string& oldGroup, const std::string& group);
  void RemoveEmpty();
  std::int64_t IdOf(const char* table, const std::string& name);

  Sqlite database_;
  std::unordered_map<std::string, std::int64_t> textIds_{};
};

}  // namespace tarvo::toolkit
