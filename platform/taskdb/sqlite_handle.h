// SQLite behind a thin C++ face: one connection, its prepared statements, failures as one exception.
#pragma once

#include <sqlite3.h>

#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

namespace TaskDB {

/// A call of SQLite failed.
class SqliteFailure : public std::exception {
 public:
  SqliteFailure(int extendedCode, int systemError, std::string text)
      : code_(extendedCode), systemError_(systemError), text_(std::move(text)) {}
  char const* what() const noexcept override { return text_.c_str(); }
  int systemError() const { return systemError_; }

  /// Somebody else holds a lock: worth another try.
  bool isBusy() const;
  /// The content of the file makes no sense.
  bool isDamage() const;
  /// The file system has no room, or may have none. SQLite knows ENOSPC of a write for what it is; a spent
  /// quota is any failed write to it, and a journal that can't be made for want of room any file that can't
  /// be opened (the errno is then that of its last attempt, for reading).
  bool isFull() const;
  /// The file, at `path`, is not where it was, or never was.
  bool isGone(std::string const& path) const;
  bool isCannotOpen() const { return (code_ & 0xff) == SQLITE_CANTOPEN; }
  bool isConstraint() const { return (code_ & 0xff) == SQLITE_CONSTRAINT; }

 private:
  int code_;
  int systemError_;  // errno, 0 when the system had no part in it
  std::string text_;
};

/// A prepared statement in use; it is reset at the end. Parameters and columns count from 1 and 0, as in
/// SQLite.
class Statement {
 public:
  Statement(sqlite3* database, sqlite3_stmt* statement) : database_(database), statement_(statement) {}
  ~Statement();
  Statement(Statement const&) = delete;
  Statement& operator=(Statement const&) = delete;

  /// The bound text must live as long as this object.
  Statement& Bind(int parameter, std::string_view text);
  Statement& Bind(int parameter, std::int64_t number);
  /// As text when it is valid UTF-8 without NUL, else as bytes.
  Statement& BindBytes(int parameter, std::string_view bytes);
  /// True when there is a row.
  bool Step();
  /// For a statement without rows.
  void Run();

  /// Text or bytes of a column, empty for null.
  std::string Text(int column) const;
  std::int64_t Number(int column) const;

 private:
  sqlite3* database_;
  sqlite3_stmt* statement_;
};

/// One thread at a time.
class SqliteHandle {
 public:
  enum class AtClose {
    FoldJournal,   // the last connection puts the write-ahead log into the file and removes it
    LeaveJournal,  // closing touches no file, so it needs no lock and costs nothing
  };
  /// Opens the file, which must exist. Waits for locks for some 50 ms a statement.
  SqliteHandle(std::string const& path, AtClose atClose);
  ~SqliteHandle();
  SqliteHandle(SqliteHandle const&) = delete;
  SqliteHandle& operator=(SqliteHandle const&) = delete;

  /// Prepared once for each `sql`, which must be a string of static lifetime.
  Statement Prepare(char const* sql);
  /// Any number of statements without parameters; their rows are passed over.
  void Execute(char const* sql);
  std::int64_t changes() const { return sqlite3_changes64(database_); }
  bool inTransaction() const { return sqlite3_get_autocommit(database_) == 0; }

 private:
  sqlite3* database_ = nullptr;
  std::unordered_map<char const*, sqlite3_stmt*> statements_;
};

}  // namespace TaskDB
