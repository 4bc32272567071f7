#include "toolkit/triage/store/sqlite.h"

#include <sqlite3.h>

#include "tarvo/format.h"
#include "toolkit/base/safe_text.h"

namespace tarvo::toolkit {
namespace {

constexpr SourceFile kSqlite{"command/triage/sqlite"};
constexpr int kLongestWaitMilliseconds = 600'000;

/// What a failure means to the user.
std::string Advice(int status) {
  switch (status & 0xFF) {
    case SQLITE_NOTADB:
      return "it is no database";
    case SQLITE_CORRUPT:
      return "it is damaged; put it aside, or let `sqlite3 FILE .recover` save what can be read";
    case SQLITE_READONLY:
    case SQLITE_PERM:
      return "it cannot be written";
    case SQLITE_CANTOPEN:
      return "it cannot be opened or made";
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return "another process keeps it locked";
    case SQLITE_FULL:
      return "the disk is full";
    default:
      return "it cannot be used";
  }
}

}  // namespace

void Sqlite::Close::operator()(sqlite3* database) const noexcept { sqlite3_close_v2(database); }

void Sqlite::Finalize::operator()(sqlite3_stmt* statement) const noexcept {
  sqlite3_finalize(statement);
}

void SqliteStatement::Return::operator()(sqlite3_stmt* statement) const {
  sqlite3_reset(statement);
  sqlite3_clear_bindings(statement);
  database->idle_[sqlite3_sql(statement)].reset(statement);
}

Result<Sqlite> Sqlite::Open(const std::string& path) {
  Sqlite opened;
  opened.path_ = path;
  // Names that start with a colon have a meaning of their own.
  const std::string name = path.empty() ? ":memory:" : (path[0] == ':' ? "./" : "") + path;
  sqlite3* database = nullptr;
  const int status =
      sqlite3_open_v2(name.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  opened.database_.reset(database);
  opened.Note(status);
  if (!opened.HasFailed()) {
    sqlite3_extended_result_codes(database, 1);
    sqlite3_busy_timeout(database, kLongestWaitMilliseconds);
    // The file is a stranger's too: what it declares may not call anything.
    sqlite3_db_config(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  }
  if (const auto outcome = opened.Outcome(); !outcome) return outcome.GetError();
  return opened;
}

void Sqlite::Note(int status) {
  if (status == SQLITE_OK || status == SQLITE_ROW || status == SQLITE_DONE || HasFailed()) return;
  failure_ = status;
  message_ = database_ ? sqlite3_errmsg(database_.get()) : sqlite3_errstr(status);
}

Result<void> Sqlite::Outcome() const {
  if (!HasFailed()) return {};
  return Error::IllegalState(kSqlite.Here(), Format("The database \"@\": @ (@).", SafeText(path_),
                                                    Advice(failure_), SafeText(message_)));
}

void Sqlite::Run(const char* statements) {
  if (!HasFailed()) Note(sqlite3_exec(database_.get(), statements, nullptr, nullptr, nullptr));
}

SqliteStatement Sqlite::Prepare(std::string_view statement) {
  SqliteStatement prepared(*this);
  if (HasFailed()) return prepared;
  if (auto idle = idle_.extract(std::string(statement)); !idle.empty()) {
    prepared.statement_.reset(idle.mapped().release());
    return prepared;
  }
  sqlite3_stmt* made = nullptr;
  Note(sqlite3_prepare_v2(database_.get(), statement.data(), static_cast<int>(statement.size()),
                          &made, nullptr));
  prepared.statement_.reset(made);
  return prepared;
}

std::int64_t Sqlite::Number(std::string_view statement) {
  SqliteStatement prepared = Prepare(statement);
  return prepared.Step() ? prepared.Number(0) : 0;
}

bool SqliteStatement::Step() {
  if (database_->HasFailed() || !statement_) return false;
  const int status = sqlite3_step(statement_.get());
  database_->Note(status);
  return status == SQLITE_ROW;
}

void SqliteStatement::Reset() {
  if (statement_) sqlite3_reset(statement_.get());
}

void SqliteStatement::Bind(int index, std::string_view text) {
  if (database_->HasFailed() || !statement_) return;
  database_->Note(sqlite3_bind_text64(statement_.get(), index, text.data(), text.size(),
                                      SQLITE_TRANSIENT, SQLITE_UTF8));
}

void SqliteStatement::Bind(int index, const std::optional<std::int64_t>& number) {
  if (database_->HasFailed() || !statement_) return;
  database_->Note(number ? sqlite3_bind_int64(statement_.get(), index, *number)
                         : sqlite3_bind_null(statement_.get(), index));
}

std::string SqliteStatement::Text(int column) const {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
  return text == nullptr ? std::string() : std::string(text, size);
}

std::int64_t SqliteStatement::Number(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

std::optional<std::int64_t> SqliteStatement::OptionalNumber(int column) const {
  if (sqlite3_column_type(statement_.get(), column) == SQLITE_NULL) return std::nullopt;
  return Number(column);
}

}  // namespace tarvo::toolkit
