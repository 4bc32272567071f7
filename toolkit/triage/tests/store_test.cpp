// The database of crashes: what runs add, what symbols move, what a changed rule renames.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>

#include "support/files.h"
#include "toolkit/triage/grouping/stack_keys.h"
#include "toolkit/triage/store/crash_store.h"

namespace tarvo::toolkit {
namespace {

CrashRecord Record(const std::string& hash, const std::vector<std::string>& functions) {
  CrashRecord record{.path = hash + ".resolved.json",
                     .hash = hash,
                     .build = "R1",
                     .system = "Linux",
                     .crashClass = "abort"};
  for (const std::string& function : functions)
    record.stack.push_back(
        {.function = function, .module = "app", .moduleOffset = 0x10 * record.stack.size()});
  SetKeys(record.stack);
  for (const StackEntry& entry : record.stack) record.namedFrames += entry.isNamed ? 1 : 0;
  record.fingerprint = MakeFingerprint(record.stack, record.crashClass);
  return record;
}

class CrashStoreTest : public testing::Test {
 protected:
  /// How many groups are new, and all groups as "signature former ids".
  std::pair<std::size_t, std::set<std::string>> Run(std::vector<CrashRecord> records) {
    Draft draft;
    for (CrashRecord& record : records) draft.Add(std::move(record));
    auto store = CrashStore::Open(path_);
    if (!store) return {0, {store.GetError().Text().ToStdString()}};
    const auto added = store->Add(draft);
    const auto crashes = store->Read();
    if (!added || !crashes) return {0, {"failed"}};
    std::set<std::string> groups;
    for (const StoredGroup& group : crashes->groups) {
      std::string text = group.signature;
      for (const std::string& id : group.formerIds) text += " " + id;
      groups.insert(text);
    }
    reports_ = crashes->reports.size();
    return {added->groups.size(), groups};
  }
  void Execute(const char* statement) {
    sqlite3* database = nullptr;
    sqlite3_open(path_.c_str(), &database);
    EXPECT_EQ(sqlite3_exec(database, statement, nullptr, nullptr, nullptr), SQLITE_OK) << statement;
    sqlite3_close(database);
  }

  using Outcome = std::pair<std::size_t, std::set<std::string>>;
  TemporaryDirectory folder_;
  std::string path_ = folder_ / "crashes.db";
  std::size_t reports_ = 0;
};

TEST_F(CrashStoreTest, AReportCountsOnceAndMovesWhenItsSymbolsCome) {
  const CrashRecord unnamed = Record("1", {"", "", "", "main"});
  EXPECT_EQ(Run({unnamed, Record("2", {"f()", "main"})}), Outcome(2, {"app+0x0", "f"}));
  EXPECT_EQ(Run({unnamed, Record("2", {"f()", "main"})}), Outcome(0, {"app+0x0", "f"}));
  EXPECT_EQ(reports_, 2U);
  // The bug is known, whatever it is called now.
  EXPECT_EQ(Run({Record("1", {"g()", "h()", "i()", "main"})}),
            Outcome(0, {"f", "g " + unnamed.fingerprint.group}));
  // Without symbols again: what is known stays.
  EXPECT_EQ(Run({unnamed}), Outcome(0, {"f", "g " + unnamed.fingerprint.group}));
  EXPECT_EQ(reports_, 2U);
}

TEST_F(CrashStoreTest, AChangedRuleKeepsOldIdsAsAliases) {
  Run({Record("1", {"f()", "main"}), Record("2", {"g()", "main"})});
  Execute(
      "UPDATE settings SET value = 0; PRAGMA foreign_keys = OFF;"
      "UPDATE variants SET group_id = 'old' WHERE group_id = "
      "(SELECT id FROM groups WHERE signature = 'f');"
      "UPDATE groups SET id = 'old' WHERE signature = 'f'");
  EXPECT_EQ(Run({}), Outcome(0, {"f old", "g"}));
  EXPECT_EQ(Run({Record("3", {"f()", "main"})}), Outcome(0, {"f old", "g"}));
}

TEST_F(CrashStoreTest, FilesThatAreNoDatabaseOfCrashesAreRefused) {
  const auto error = [&] {
    const auto store = CrashStore::Open(path_);
    return store ? std::string("opened") : store.GetError().Text().ToStdString();
  };
  Run({Record("1", {"f()", "main"})});
  EXPECT_EQ(error(), "opened");
  const std::string whole = ReadFile(path_);
  Execute("PRAGMA user_version = 2");
  EXPECT_NE(error().find("of version 2, this program knows version 1"), std::string::npos);
  Execute("PRAGMA application_id = 5");
  EXPECT_NE(error().find("database of another program"), std::string::npos);
  std::ofstream(path_, std::ios::binary) << "no database at all" << std::string(5000, 'x');
  EXPECT_NE(error().find("it is no database"), std::string::npos) << error();
  std::string damaged = whole;
  for (std::size_t i = 200; i < damaged.size(); ++i)
    damaged[i] = static_cast<char>(damaged[i] ^ 0x5A);
  std::ofstream(path_, std::ios::binary) << damaged;
  EXPECT_NE(error().find("it is damaged"), std::string::npos) << error();
  path_ = folder_ / "missing" / "crashes.db";
  EXPECT_NE(error().find("cannot be opened or made"), std::string::npos) << error();
}

}  // namespace
}  // namespace tarvo::toolkit
