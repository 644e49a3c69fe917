#include "platform/taskdb/schema.h"

namespace TaskDB {

char const kCreateSchema[] = R"sql(
PRAGMA page_size = 4096;
PRAGMA synchronous = OFF;
PRAGMA journal_mode = WAL;
BEGIN;
CREATE TABLE task (
  id TEXT PRIMARY KEY NOT NULL,
  name TEXT NOT NULL DEFAULT '',
  user TEXT NOT NULL DEFAULT '',
  status TEXT NOT NULL DEFAULT 'PENDING',
  last_update TEXT NOT NULL,
  start_time TEXT NOT NULL DEFAULT '',
  end_time TEXT NOT NULL DEFAULT '',
  progress_completed INTEGER NOT NULL DEFAULT 0,
  progress_total INTEGER NOT NULL DEFAULT 100,
  result ANY NOT NULL DEFAULT '',
  error ANY NOT NULL DEFAULT '',
  error_id TEXT NOT NULL DEFAULT ''
) STRICT;
CREATE TABLE error_argument (
  task TEXT NOT NULL,
  position INTEGER NOT NULL,
  value TEXT NOT NULL,
  PRIMARY KEY (task, position)
) STRICT, WITHOUT ROWID;
CREATE TABLE notification (
  task TEXT NOT NULL,
  position INTEGER NOT NULL,
  json ANY NOT NULL,
  PRIMARY KEY (task, position)
) STRICT, WITHOUT ROWID;
PRAGMA application_id = 0x4b45454c;
PRAGMA user_version = 1;
COMMIT;
)sql";

}  // namespace TaskDB
