#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cerrno>

#include "platform/taskdb/sqlite_handle.h"

namespace {

using TaskDB::SqliteFailure;

// The Python library tells them apart alike.
TEST(SqliteFailure, Meanings) {
  struct Case {
    int code;
    bool busy;
    bool damage;
    bool full;
    bool gone;
  };
  constexpr Case kCases[] = {
      {SQLITE_BUSY, true, false, false, false},          {SQLITE_LOCKED, true, false, false, false},
      {SQLITE_PROTOCOL, true, false, false, false},      {SQLITE_BUSY_SNAPSHOT, true, false, false, false},
      {SQLITE_CORRUPT, false, true, false, false},       {SQLITE_NOTADB, false, true, false, false},
      {SQLITE_ERROR, false, true, false, false},         {SQLITE_IOERR_SHORT_READ, false, true, false, false},
      {SQLITE_FULL, false, false, true, false},          {SQLITE_IOERR_WRITE, false, false, true, false},
      {SQLITE_IOERR_SHMSIZE, false, false, true, false}, {SQLITE_IOERR_READ, false, false, false, false},
      {SQLITE_READONLY, false, false, false, false},     {SQLITE_READONLY_DBMOVED, false, false, false, true},
      {SQLITE_CANTOPEN, false, false, true, false},      {SQLITE_CANTOPEN_ISDIR, false, false, true, false},
  };
  for (Case const& c : kCases) {
    for (int const systemError : {0, EDQUOT, ENOENT}) {
      SqliteFailure const failure(c.code, systemError, "told");
      SCOPED_TRACE(testing::Message() << "code " << c.code << ", errno " << systemError);
      EXPECT_EQ(failure.isBusy(), c.busy);
      EXPECT_EQ(failure.isDamage(), c.damage);
      EXPECT_EQ(failure.isFull(), c.full);
      EXPECT_EQ(failure.isGone("/proc/self/exe"), c.gone);
      EXPECT_EQ(failure.systemError(), systemError);
      EXPECT_STREQ(failure.what(), "told");
    }
  }
}

TEST(SqliteFailure, AFileThatVanishesBeforeItIsOpenedIsGone) {
  SqliteFailure const failure(SQLITE_CANTOPEN, EACCES, "told");
  EXPECT_TRUE(failure.isGone("/proc/self/nothing"));
  EXPECT_TRUE(failure.isGone("/proc/self/stat/nothing"));
  EXPECT_FALSE(SqliteFailure(SQLITE_BUSY, 0, "told").isGone("/proc/self/nothing"));
}

}  // namespace
