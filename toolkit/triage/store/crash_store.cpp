#include "toolkit/triage/store/crash_store.h"

#include <algorithm>
#include <utility>

#include "toolkit/triage/grouping/fingerprint.h"
#include "toolkit/triage/grouping/stack_keys.h"
#include "toolkit/triage/store/schema.h"
#include "toolkit/triage/store/stored_rows.h"

namespace tarvo::toolkit {
namespace {

constexpr std::string_view kFingerprintSetting = "fingerprint_version";

std::set<std::string> Texts(Sqlite& database, std::string_view statement) {
  std::set<std::string> texts;
  for (SqliteStatement rows = database.Prepare(statement); rows.Step();) texts.insert(rows.Text(0));
  return texts;
}

std::optional<std::int64_t> ToNumber(const std::optional<std::chrono::sys_seconds>& time) {
  return time ? std::optional<std::int64_t>(time->time_since_epoch().count()) : std::nullopt;
}

std::optional<std::int64_t> ToNumber(const std::optional<std::uint64_t>& number) {
  return number ? std::optional(static_cast<std::int64_t>(*number)) : std::nullopt;
}

}  // namespace

Result<CrashStore> CrashStore::Open(const std::string& path) {
  Result<Sqlite> database = Sqlite::Open(path);
  if (!database) return database.GetError();
  CrashStore store(*std::move(database));
  if (auto prepared = store.Prepare(path); !prepared) return prepared.GetError();
  return store;
}

Result<void> CrashStore::Prepare(const std::string& path) {
  database_.Run("PRAGMA foreign_keys = ON; BEGIN IMMEDIATE;");
  if (auto begun = database_.Outcome(); !begun) return begun;
  if (auto prepared = PrepareSchema(database_, path); !prepared) return prepared;
  const std::int64_t version = database_.Number(
      "SELECT coalesce((SELECT value FROM settings WHERE name = 'fingerprint_version'), 0)");
  if (version != kFingerprintVersion) {
    Regroup();
    database_.Prepare("INSERT OR REPLACE INTO settings VALUES (?, ?)")
        .With(kFingerprintSetting, kFingerprintVersion)
        .Run();
  }
  database_.Run("COMMIT;");
  return database_.Outcome();
}

void CrashStore::Regroup() {
  const std::vector<StoredGroup> groups = ReadGroups(database_);
  for (const StoredVariant& variant : ReadVariants(database_)) {
    const auto group = std::ranges::lower_bound(groups, variant.group, {}, &StoredGroup::id);
    if (group != groups.end() && group->id == variant.group)
      RegroupVariant(variant, *group, ReadStack(database_, variant.id));
  }
  RemoveEmpty();
}

void CrashStore::RegroupVariant(const StoredVariant& variant, const StoredGroup& group,
                                CrashStack stack) {
  SetKeys(stack);
  const Fingerprint print = MakeFingerprint(stack, group.crashClass);
  if (print.variant == variant.id && print.group == variant.group) return;
  TextPool texts;
  const auto named = std::ranges::count_if(stack, &StackEntry::isNamed);
  AddVariant({.id = print.variant,
              .group = print.group,
              .signature = print.signature,
              .crashClass = group.crashClass,
              .stack = Compact(stack, texts),
              .furtherFrames = variant.furtherFrames,
              .namedFrames = static_cast<std::size_t>(named)},
             texts);
  database_.Prepare("UPDATE reports SET variant_id = ?2 WHERE variant_id = ?1")
      .With(variant.id, print.variant)
      .Run();
  AddAlias(variant.group, print.group);
}

Result<Addition> CrashStore::Add(const Draft& draft) {
  database_.Run("BEGIN IMMEDIATE;");
  const std::set<std::string> known =
      Texts(database_, "SELECT id FROM groups UNION SELECT old_id FROM aliases");
  for (const auto& [id, variant] : draft.Variants()) AddVariant(variant, draft.Texts());
  Addition added;
  for (const auto& report : draft.Reports())
    if (AddReport(*report)) added.reports.insert(report->hash);
  RemoveEmpty();
  for (const std::string& id : Texts(database_, "SELECT id FROM groups"))
    if (!known.contains(id)) added.groups.insert(id);
  SqliteStatement aliases = database_.Prepare("SELECT old_id, group_id FROM aliases");
  while (aliases.Step())
    if (known.contains(aliases.Text(0))) added.groups.erase(aliases.Text(1));
  database_.Run("COMMIT;");
  if (auto outcome = database_.Outcome(); !outcome) return outcome.GetError();
  return added;
}

std::int64_t CrashStore::IdOf(const char* table, const std::string& name) {
  const std::string from = std::string(" INTO ") + table + " (name) VALUES (?)";
  database_.Prepare("INSERT OR IGNORE" + from).With(name).Run();
  SqliteStatement row =
      database_.Prepare(std::string("SELECT id FROM ") + table + " WHERE name = ?");
  return row.With(name).Step() ? row.Number(0) : 0;
}

std::int64_t CrashStore::TextId(const std::string& text) {
  const auto [known, isNew] = textIds_.try_emplace(text, 0);
  if (!isNew) return known->second;
  database_.Prepare("INSERT OR IGNORE INTO texts (text) VALUES (?)").With(text).Run();
  SqliteStatement row = database_.Prepare("SELECT id FROM texts WHERE text = ?");
  return known->second = row.With(text).Step() ? row.Number(0) : 0;
}

void CrashStore::AddVariant(const DraftVariant& variant, const TextPool& texts) {
  database_.Prepare("INSERT OR IGNORE INTO groups VALUES (?, ?, ?)")
      .With(variant.group, variant.signature, variant.crashClass)
      .Run();
  database_.Prepare("UPDATE variants SET group_id = ?2 WHERE id = ?1 AND group_id <> ?2")
      .With(variant.id, variant.group)
      .Run();
  // Names that have come since replace the stack.
  SqliteStatement added = database_.Prepare(
      "INSERT INTO variants VALUES (?1, ?2, ?3, ?4) ON CONFLICT (id) DO UPDATE SET "
      "named_frames = ?3, further_frames = ?4 "
      "WHERE excluded.named_frames > variants.named_frames RETURNING id");
  const bool isTaken =
      added.With(variant.id, variant.group, variant.namedFrames, variant.furtherFrames).Step();
  if (!isTaken) return;
  added.Run();
  database_.Prepare("DELETE FROM stack_entries WHERE variant_id = ?").With(variant.id).Run();
  SqliteStatement entries =
      database_.Prepare("INSERT INTO stack_entries VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  const auto id = [&](TextPool::Place place) { return TextId(texts[place]); };
  std::size_t place = 0;
  for (const CompactEntry& entry : variant.stack)
    entries
        .With(variant.id, place++, id(entry.key), id(entry.function), id(entry.module),
              id(entry.build), id(entry.sourceFile), entry.sourceLine, ToNumber(entry.moduleOffset),
              ToNumber(entry.symbolOffset), entry.isInlined, entry.isNamed)
        .Run();
}

bool CrashStore::AddReport(const DraftReport& report) {
  SqliteStatement stored = database_.Prepare(
      "SELECT r.named_frames, v.group_id FROM reports r JOIN variants v ON v.id = r.variant_id "
      "WHERE r.hash = ?");
  const bool isThere = stored.With(report.hash).Step();
  const bool isBetter = !isThere || std::cmp_greater(report.namedFrames, stored.Number(0));
  const std::string oldGroup = isThere ? stored.Text(1) : std::string();
  stored.With(report.hash);  // ends the reading
  if (isBetter) {
    database_
        .Prepare(
            "INSERT INTO reports VALUES (?1, ?2, ?3, ?4, ?5, ?6) ON CONFLICT (hash) DO UPDATE "
            "SET variant_id = ?2, time = ?3, build_id = ?4, system_id = ?5, named_frames = ?6")
        .With(report.hash, report.variant->id, ToNumber(report.time), IdOf("builds", report.build),
              IdOf("systems", report.system), report.namedFrames)
        .Run();
    database_.Prepare("DELETE FROM missing_symbols WHERE hash = ?").With(report.hash).Run();
    SqliteStatement missing = database_.Prepare("INSERT INTO missing_symbols VALUES (?, ?, ?, ?)");
    for (const MissingSymbols& lack : report.missing)
      missing.With(report.hash, lack.module, lack.build, lack.frames).Run();
  }
  SqliteStatement logs = database_.Prepare("INSERT OR IGNORE INTO logs VALUES (?, ?)");
  for (const std::string& path : report.paths) logs.With(path, report.hash).Run();
  if (isThere && isBetter) AddAlias(oldGroup, report.variant->group);
  return isBetter;
}

void CrashStore::AddAlias(const std::string& oldGroup, const std::string& group) {
  if (oldGroup == group) return;
  database_.Prepare("UPDATE aliases SET group_id = ?2 WHERE group_id = ?1")
      .With(oldGroup, group)
      .Run();
  // A group that comes back under its old id is no alias of itself.
  database_.Prepare("DELETE FROM aliases WHERE old_id = ?").With(group).Run();
  database_.Prepare("INSERT OR REPLACE INTO aliases VALUES (?, ?)").With(oldGroup, group).Run();
}

void CrashStore::RemoveEmpty() {
  database_.Run(R"(
    DELETE FROM variants WHERE id NOT IN (SELECT variant_id FROM reports);
    DELETE FROM aliases WHERE group_id NOT IN (SELECT group_id FROM variants);
    DELETE FROM groups WHERE id NOT IN (SELECT group_id FROM variants);
    DELETE FROM builds WHERE id NOT IN (SELECT build_id FROM reports);
    DELETE FROM systems WHERE id NOT IN (SELECT system_id FROM reports);
  )");
}

}  // namespace tarvo::toolkit
