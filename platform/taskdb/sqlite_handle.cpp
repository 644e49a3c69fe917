#include "platform/taskdb/sqlite_handle.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/taskdb/short_wait.h"
#include "platform/text/text.h"

namespace TaskDB {
namespace {

SqliteFailure FailureOf(sqlite3* database) {
  int const systemError = sqlite3_system_errno(database);
  char const* const reason = systemError != 0 ? strerrordesc_np(systemError) : nullptr;
  std::string text = sqlite3_errmsg(database);
  if (reason != nullptr) {
    text += std::string(": ") + reason;
  }
  return SqliteFailure(sqlite3_extended_errcode(database), systemError, std::move(text));
}

[[noreturn]] void Fail(sqlite3* database) {
  throw FailureOf(database);
}

int WaitForLock(void* /*unused*/, int count) {
  return ShortWait(count) ? 1 : 0;
}

}  // namespace

bool SqliteFailure::isBusy() const {
  int const primary = code_ & 0xff;
  return primary == SQLITE_BUSY || primary == SQLITE_LOCKED || primary == SQLITE_PROTOCOL;
}

bool SqliteFailure::isDamage() const {
  int const primary = code_ & 0xff;
  // SQLITE_ERROR comes of a missing table or column: all texts of statements are constants.
  return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB || primary == SQLITE_FORMAT ||
         primary == SQLITE_ERROR || primary == SQLITE_SCHEMA || primary == SQLITE_TOOBIG ||
         code_ == SQLITE_IOERR_SHORT_READ;
}

bool SqliteFailure::isFull() const {
  return (code_ & 0xff) == SQLITE_FULL || isCannotOpen() || code_ == SQLITE_IOERR_WRITE ||
         code_ == SQLITE_IOERR_SHMSIZE;
}

bool SqliteFailure::isGone(std::string const& path) const {
  struct stat status {};
  return code_ == SQLITE_READONLY_DBMOVED ||
         (isCannotOpen() && lstat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR));
}

Statement::~Statement() {
  sqlite3_reset(statement_);
  sqlite3_clear_bindings(statement_);
}

Statement& Statement::Bind(int parameter, std::string_view text) {
  if (sqlite3_bind_text64(statement_, parameter, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8) !=
      SQLITE_OK) {
    Fail(database_);
  }
  return *this;
}

Statement& Statement::Bind(int parameter, std::int64_t number) {
  if (sqlite3_bind_int64(statement_, parameter, number) != SQLITE_OK) {
    Fail(database_);
  }
  return *this;
}

Statement& Statement::BindBytes(int parameter, std::string_view bytes) {
  if (bytes.find('\0') == std::string_view::npos && CodeSet_Validate(bytes.data(), bytes.size(), "UTF-8")) {
    return Bind(parameter, bytes);
  }
  if (sqlite3_bind_blob64(statement_, parameter, bytes.data(), bytes.size(), SQLITE_STATIC) != SQLITE_OK) {
    Fail(database_);
  }
  return *this;
}

bool Statement::Step() {
  switch (sqlite3_step(statement_)) {
    case SQLITE_ROW:
      return true;
    case SQLITE_DONE:
      return false;
    default:
      Fail(database_);
  }
}

void Statement::Run() {
  while (Step()) {
  }
}

std::string Statement::Text(int column) const {
  void const* const bytes = sqlite3_column_blob(statement_, column);
  int const size = sqlite3_column_bytes(statement_, column);
  return bytes != nullptr ? std::string(static_cast<char const*>(bytes), static_cast<std::size_t>(size))
                          : std::string();
}

std::int64_t Statement::Number(int column) const {
  return sqlite3_column_int64(statement_, column);
}

SqliteHandle::SqliteHandle(std::string const& path, AtClose atClose) {
  int const flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
  int const result = sqlite3_open_v2(path.c_str(), &database_, flags, nullptr);
  if (result != SQLITE_OK) {
    SqliteFailure const failure = FailureOf(database_);
    sqlite3_close_v2(database_);
    throw failure;
  }
  sqlite3_extended_result_codes(database_, 1);
  sqlite3_db_config(database_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, atClose == AtClose::LeaveJournal ? 1 : 0,
                    nullptr);
  sqlite3_busy_handler(database_, WaitForLock, nullptr);
}

SqliteHandle::~SqliteHandle() {
  for (auto const& [sql, statement] : statements_) {
    sqlite3_finalize(statement);
  }
  sqlite3_close_v2(database_);
}

Statement SqliteHandle::Prepare(char const* sql) {
  sqlite3_stmt*& statement = statements_[sql];
  if (statement == nullptr &&
      sqlite3_prepare_v3(database_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) != SQLITE_OK) {
    Fail(database_);
  }
  return Statement(database_, statement);
}

void SqliteHandle::Execute(char const* sql) {
  if (sqlite3_exec(database_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
    Fail(database_);
  }
}

}  // namespace TaskDB
