#include "toolkit/triage/store/stored_rows.h"

#include <algorithm>
#include <unordered_map>

namespace tarvo::toolkit {
namespace {

std::optional<std::uint64_t> ToOptional(std::optional<std::int64_t> number) {
  return number ? std::optional(static_cast<std::uint64_t>(*number)) : std::nullopt;
}

}  // namespace

std::vector<StoredGroup> ReadGroups(Sqlite& database) {
  std::vector<StoredGroup> groups;
  SqliteStatement rows = database.Prepare("SELECT id, signature, class FROM groups ORDER BY id");
  while (rows.Step())
    groups.push_back({.id = rows.Text(0), .signature = rows.Text(1), .crashClass = rows.Text(2)});
  // An id that a report has left may be that of a group still.
  SqliteStatement aliases = database.Prepare(
      "SELECT group_id, old_id FROM aliases WHERE old_id NOT IN (SELECT id FROM groups) "
      "ORDER BY group_id, old_id");
  while (aliases.Step()) {
    const auto group = std::ranges::lower_bound(groups, aliases.Text(0), {}, &StoredGroup::id);
    if (group != groups.end() && group->id == aliases.Text(0))
      group->formerIds.push_back(aliases.Text(1));
  }
  return groups;
}

std::vector<StoredVariant> ReadVariants(Sqlite& database) {
  std::vector<StoredVariant> variants;
  SqliteStatement rows = database.Prepare(
      "SELECT v.id, v.group_id, v.further_frames, count(r.hash) FROM variants v "
      "LEFT JOIN reports r ON r.variant_id = v.id GROUP BY v.id ORDER BY v.id");
  while (rows.Step())
    variants.push_back({.id = rows.Text(0),
                        .group = rows.Text(1),
                        .furtherFrames = static_cast<std::size_t>(rows.Number(2)),
                        .reports = static_cast<std::size_t>(rows.Number(3))});
  return variants;
}

CrashStack ReadStack(Sqlite& database, const std::string& variant) {
  CrashStack stack;
  SqliteStatement frames = database.Prepare(
      "SELECT key, function, module, build, source_file, source_line, module_offset, "
      "symbol_offset, is_inlined, is_named FROM frames WHERE variant_id = ? ORDER BY place");
  for (frames.With(variant); frames.Step();)
    stack.push_back({.function = frames.Text(1),
                     .module = frames.Text(2),
                     .build = frames.Text(3),
                     .sourceFile = frames.Text(4),
                     .sourceLine = static_cast<std::uint64_t>(frames.Number(5)),
                     .moduleOffset = ToOptional(frames.OptionalNumber(6)),
                     .symbolOffset = ToOptional(frames.OptionalNumber(7)),
                     .isInlined = frames.Number(8) != 0,
                     .key = frames.Text(0),
                     .isNamed = frames.Number(9) != 0});
  return stack;
}

std::vector<StoredReport> ReadReports(Sqlite& database) {
  std::vector<StoredReport> reports;
  std::unordered_map<std::string, std::size_t> places;
  SqliteStatement rows = database.Prepare(
      "SELECT r.hash, r.variant_id, r.time, b.name, s.name FROM reports r JOIN builds b ON b.id = "
      "r.build_id JOIN systems s ON s.id = r.system_id ORDER BY r.hash");
  while (rows.Step()) {
    StoredReport report{.hash = rows.Text(0),
                        .variant = rows.Text(1),
                        .build = rows.Text(3),
                        .system = rows.Text(4)};
    if (const auto time = rows.OptionalNumber(2))
      report.time = std::chrono::sys_seconds(std::chrono::seconds(*time));
    places[report.hash] = reports.size();
    reports.push_back(std::move(report));
  }
  SqliteStatement logs = database.Prepare("SELECT hash, path FROM logs ORDER BY path, hash");
  while (logs.Step())
    if (const auto place = places.find(logs.Text(0)); place != places.end())
      reports[place->second].paths.push_back(logs.Text(1));
  SqliteStatement missing = database.Prepare(
      "SELECT hash, module, build, frames FROM missing_symbols ORDER BY hash, module, build");
  while (missing.Step())
    if (const auto place = places.find(missing.Text(0)); place != places.end())
      reports[place->second].missing.push_back(
          {missing.Text(1), missing.Text(2), static_cast<std::size_t>(missing.Number(3))});
  return reports;
}

}  // namespace tarvo::toolkit
