#include "toolkit/triage/store/schema.h"

#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kSchema{"command/triage/schema"};

/// "TRIA": whose database it is.
constexpr std::int64_t kApplicationId = 0x54524941;

constexpr const char* kTables = R"(
PRAGMA application_id = 1414678849;
PRAGMA user_version = 1;

CREATE TABLE settings (
  name TEXT PRIMARY KEY,
  value INTEGER NOT NULL
) WITHOUT ROWID;

CREATE TABLE builds (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE
);

CREATE TABLE systems (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE
);

CREATE TABLE groups (
  id TEXT PRIMARY KEY,
  signature TEXT NOT NULL,
  class TEXT NOT NULL
) WITHOUT ROWID;

CREATE TABLE variants (
  id TEXT PRIMARY KEY,
  group_id TEXT NOT NULL REFERENCES groups (id),
  named_frames INTEGER NOT NULL,
  further_frames INTEGER NOT NULL
) WITHOUT ROWID;
CREATE INDEX variants_of_group ON variants (group_id);

CREATE TABLE texts (
  id INTEGER PRIMARY KEY,
  text TEXT NOT NULL UNIQUE
);

CREATE TABLE stack_entries (
  variant_id TEXT NOT NULL REFERENCES variants (id) ON DELETE CASCADE,
  place INTEGER NOT NULL,
  key_id INTEGER NOT NULL REFERENCES texts (id),
  function_id INTEGER NOT NULL REFERENCES texts (id),
  module_id INTEGER NOT NULL REFERENCES texts (id),
  build_id INTEGER NOT NULL REFERENCES texts (id),
  source_file_id INTEGER NOT NULL REFERENCES texts (id),
  source_line INTEGER NOT NULL,
  module_offset INTEGER,
  symbol_offset INTEGER,
  is_inlined INTEGER NOT NULL,
  is_named INTEGER NOT NULL,
  PRIMARY KEY (variant_id, place)
) WITHOUT ROWID;

CREATE VIEW frames AS
  SELECT e.variant_id, e.place, k.text AS key, f.text AS function, m.text AS module,
         b.text AS build, s.text AS source_file, e.source_line, e.module_offset, e.symbol_offset,
         e.is_inlined, e.is_named
  FROM stack_entries e
  JOIN texts k ON k.id = e.key_id
  JOIN texts f ON f.id = e.function_id
  JOIN texts m ON m.id = e.module_id
  JOIN texts b ON b.id = e.build_id
  JOIN texts s ON s.id = e.source_file_id;

CREATE TABLE reports (
  hash TEXT PRIMARY KEY,
  variant_id TEXT NOT NULL REFERENCES variants (id),
  time INTEGER,
  build_id INTEGER NOT NULL REFERENCES builds (id),
  system_id INTEGER NOT NULL REFERENCES systems (id),
  named_frames INTEGER NOT NULL
) WITHOUT ROWID;
CREATE INDEX reports_of_variant ON reports (variant_id);

CREATE TABLE logs (
  path TEXT NOT NULL,
  hash TEXT NOT NULL REFERENCES reports (hash),
  PRIMARY KEY (path, hash)
) WITHOUT ROWID;
CREATE INDEX logs_of_report ON logs (hash);

CREATE TABLE missing_symbols (
  hash TEXT NOT NULL REFERENCES reports (hash),
  module TEXT NOT NULL,
  build TEXT NOT NULL,
  frames INTEGER NOT NULL,
  PRIMARY KEY (hash, module, build)
) WITHOUT ROWID;

CREATE TABLE aliases (
  old_id TEXT PRIMARY KEY,
  group_id TEXT NOT NULL REFERENCES groups (id)
) WITHOUT ROWID;
CREATE INDEX aliases_of_group ON aliases (group_id);

CREATE VIEW days AS
  SELECT date(r.time, 'unixepoch') AS day, b.name AS build, v.group_id, count(*) AS reports
  FROM reports r
  JOIN variants v ON v.id = r.variant_id
  JOIN builds b ON b.id = r.build_id
  WHERE r.time IS NOT NULL
  GROUP BY day, b.name, v.group_id;
)";

Error Refused(const std::string& path, const std::string& why) {
  return Error::IllegalState(kSchema.Here(), Format("The database \"@\": @.", SafeText(path), why));
}

}  // namespace

Result<void> PrepareSchema(Sqlite& database, const std::string& path) {
  const bool isEmpty = database.Number("SELECT count(*) FROM sqlite_schema") == 0;
  const std::int64_t application = database.Number("PRAGMA application_id");
  const std::int64_t version = database.Number("PRAGMA user_version");
  if (auto read = database.Outcome(); !read) return read;
  if (isEmpty && application == 0) {
    database.Run(kTables);
    return database.Outcome();
  }
  if (application != kApplicationId) return Refused(path, "it is a database of another program");
  if (version != kSchemaVersion)
    return Refused(path, Format("its tables are of version @, this program knows version @",
                                version, kSchemaVersion)
                             .ToStdString());
  return {};
}

}  // namespace tarvo::toolkit
