#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "tarvo/result.h"

struct sqlite3;
struct sqlite3_stmt;

namespace tarvo::toolkit {

class SqliteStatement;

/// An open database. The first failure is kept, and nothing is done after it, so that a row of
/// statements is checked once, at its end: `Outcome`.
///
/// Not for several threads at once.
class Sqlite {
 public:
  /// Opens `path`, or makes it; an empty one is a database in memory. Waits for other processes
  /// that write, ten minutes at most.
  static Result<Sqlite> Open(const std::string& path);

  /// Runs statements without values.
  void Run(const char* statements);
  /// A statement that was prepared before is used again.
  [[nodiscard]] SqliteStatement Prepare(std::string_view statement);
  /// The number that a statement gives, 0 where it gives none.
  [[nodiscard]] std::int64_t Number(std::string_view statement);

  [[nodiscard]] bool HasFailed() const { return failure_ != 0; }
  /// The first failure, as an illegal-state error that names the file and says what to do.
  [[nodiscard]] Result<void> Outcome() const;

 private:
  friend class SqliteStatement;
  struct Close {
    void operator()(sqlite3* database) const noexcept;
  };
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const noexcept;
  };
  void Note(int status);

  std::unique_ptr<sqlite3, Close> database_{};
  /// By their text; those in use are not here.
  std::unordered_map<std::string, std::unique_ptr<sqlite3_stmt, Finalize>> idle_{};
  std::string path_{};
  int failure_ = 0;
  std::string message_{};
};

/// A prepared statement, to be used before its database is closed or moved.
class SqliteStatement {
 public:
  /// Starts anew with these values: texts, integers, and nothing for std::nullopt.
  template <typename... Values>
  SqliteStatement& With(const Values&... values) {
    Reset();
    int index = 0;
    (Bind(++index, values), ...);
    return *this;
  }
  /// The next row; whether there is one.
  bool Step();
  /// Runs it to its end.
  void Run() {
    while (Step()) continue;
  }

  [[nodiscard]] std::string Text(int column) const;
  [[nodiscard]] std::int64_t Number(int column) const;
  [[nodiscard]] std::optional<std::int64_t> OptionalNumber(int column) const;

 private:
  friend class Sqlite;
  /// Gives it back to its database.
  struct Return {
    Sqlite* database;
    void operator()(sqlite3_stmt* statement) const;
  };
  explicit SqliteStatement(Sqlite& database)
      : database_(&database), statement_(nullptr, Return{&database}) {}

  void Reset();
  void Bind(int index, std::string_view text);
  void Bind(int index, const std::optional<std::int64_t>& number);
  template <std::integral Number>
  void Bind(int index, Number number) {
    Bind(index, std::optional(static_cast<std::int64_t>(number)));
  }

  Sqlite* database_;
  std::unique_ptr<sqlite3_stmt, Return> statement_;
};

}  // namespace tarvo::toolkit
