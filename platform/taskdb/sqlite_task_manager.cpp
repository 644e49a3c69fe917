#include "platform/taskdb/sqlite_task_manager.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <thread>
#include <utility>

#include "platform/taskdb/create_database.h"

namespace TaskDB {
namespace {

/// Of the operations that are called without a count.
constexpr int kUsualRetries = 5;
constexpr std::chrono::milliseconds kBetweenTries{200};

#define TASK_COLUMNS                                                                                        \
  "id, name, user, status, last_update, start_time, end_time, progress_completed, progress_total, result, " \
  "error, "                                                                                                 \
  "error_id"

/// The current time in a record's form, "YYYY-MM-DDTHH:MM:SS.mmmZ".
std::string Now() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  std::tm utc{};
  gmtime_r(&now.tv_sec, &utc);
  char text[64];
  int const length =
      std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03ldZ", utc.tm_year + 1900,
                    utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, now.tv_nsec / 1000000);
  return std::string(text, static_cast<std::size_t>(length));
}

/// The record of the current row of a SELECT of TASK_COLUMNS.
void ReadRow(Statement const& row, TaskInfo& info) {
  info = {};
  info.id = row.Text(0);
  info.name = row.Text(1);
  info.user = row.Text(2);
  info.status = row.Text(3);
  info.lastUpdate = row.Text(4);
  info.startTime = row.Text(5);
  info.endTime = row.Text(6);
  info.progressCompleted = static_cast<std::int32_t>(row.Number(7));
  info.progressTotal = static_cast<std::int32_t>(row.Number(8));
  info.result = row.Text(9);
  info.error = row.Text(10);
  info.errorId = row.Text(11);
}

void RequireTask(Session& session, char const* id) {
  if (session.database().changes() != 1) {
    throw std::runtime_error(std::string("no task \"") + id + "\"");
  }
}

}  // namespace

std::shared_ptr<TaskManager> TaskManager::FromPath(std::string dbPath) {
  return FromPath(std::move(dbPath),
                  [](std::chrono::milliseconds time) { std::this_thread::sleep_for(time); });
}

std::shared_ptr<TaskManager> TaskManager::FromPath(std::string dbPath, Sleeper sleep) {
  return std::make_shared<SqliteTaskManager>(std::move(dbPath), std::move(sleep));
}

SqliteTaskManager::SqliteTaskManager(std::string path, Sleeper sleep)
    : path_(std::move(path)), reserve_(path_), sleep_(std::move(sleep)) {}

void SqliteTaskManager::TryOnce(Work const& work) {
  Session session(path_);
  try {
    work(session);
  } catch (SqliteFailure const& failure) {
    if (!failure.isBusy()) {
      session.Spoil();
    }
    throw;
  }
}

void SqliteTaskManager::Try(int retries, Work const& work, OnFullDisk onFullDisk) {
  bool mayUseReserve = onFullDisk == OnFullDisk::UseReserve;
  int left = retries;
  for (;;) {
    try {
      return TryOnce(work);
    } catch (LifeCycle::AccessLockError const&) {
      if (--left <= 0) {
        throw;
      }
    } catch (SqliteFailure const& failure) {
      if (failure.isFull() && mayUseReserve && reserve_.Release()) {
        mayUseReserve = false;
        continue;
      }
      if (failure.isGone(path_)) {
        throw LifeCycle::TaskFileNotFoundError("cannot find \"" + path_ + "\"");
      }
      if (failure.isDamage()) {
        throw LifeCycle::JsonParseError("cannot read \"" + path_ + "\": " + failure.what());
      }
      if (failure.isCannotOpen()) {
        throw LifeCycle::AccessLockError(failure.systemError() != 0 ? failure.systemError() : EACCES);
      }
      if (!failure.isBusy()) {
        throw std::runtime_error("cannot use the task database \"" + path_ + "\": " + failure.what());
      }
      if (--left <= 0) {
        throw LifeCycle::AccessLockError(EWOULDBLOCK);
      }
    }
    sleep_(kBetweenTries);
  }
}

void SqliteTaskManager::Read(int retries, Work const& work) {
  Try(
      retries,
      [&work](Session& session) {
        session.database().Prepare("BEGIN").Run();
        try {
          work(session);
        } catch (...) {
          if (session.database().inTransaction()) {
            session.database().Prepare("ROLLBACK").Run();
          }
          throw;
        }
        session.database().Prepare("COMMIT").Run();
      },
      OnFullDisk::Fail);
}

void SqliteTaskManager::Write(int retries, OnFullDisk onFullDisk, Work const& work) {
  Try(
      retries,
      [&work](Session& session) {
        session.database().Prepare("BEGIN IMMEDIATE").Run();
        try {
          work(session);
          session.database().Prepare("COMMIT").Run();
        } catch (...) {
          if (session.database().inTransaction()) {
            session.database().Prepare("ROLLBACK").Run();
          }
          throw;
        }
        session.CheckUnmoved();
      },
      onFullDisk);
  reserve_.Ensure();
}

void SqliteTaskManager::init() {
  CreateDatabase(path_);
}

std::map<std::string, TaskInfo> SqliteTaskManager::list(int retries) {
  std::map<std::string, TaskInfo> tasks;
  Read(retries, [&tasks](Session& session) {
    tasks.clear();
    SqliteHandle& database = session.database();
    {
      Statement rows = database.Prepare("SELECT " TASK_COLUMNS " FROM task");
      TaskInfo info;
      while (rows.Step()) {
        ReadRow(rows, info);
        std::string id = info.id;
        tasks.emplace(std::move(id), std::move(info));
      }
    }
    auto const taskOf = [&tasks](Statement const& row) { return tasks.find(row.Text(0)); };
    Statement arguments = database.Prepare("SELECT task, value FROM error_argument ORDER BY task, position");
    while (arguments.Step()) {
      if (auto const task = taskOf(arguments); task != tasks.end()) {
        task->second.errorArgs.push_back(arguments.Text(1));
      }
    }
    Statement notifications = database.Prepare("SELECT task, json FROM notification ORDER BY task, position");
    while (notifications.Step()) {
      if (auto const task = taskOf(notifications); task != tasks.end()) {
        task->second.notifications.push_back(notifications.Text(1));
      }
    }
  });
  return tasks;
}

bool SqliteTaskManager::get(char const* id, TaskInfo& info, int retries) {
  bool found = false;
  TaskInfo read;
  Read(retries, [&](Session& session) {
    SqliteHandle& database = session.database();
    Statement row = database.Prepare("SELECT " TASK_COLUMNS " FROM task WHERE id = ?1");
    found = row.Bind(1, id).Step();
    if (!found) {
      return;
    }
    ReadRow(row, read);
    Statement arguments =
        database.Prepare("SELECT value FROM error_argument WHERE task = ?1 ORDER BY position");
    for (arguments.Bind(1, id); arguments.Step();) {
      read.errorArgs.push_back(arguments.Text(0));
    }
    Statement notifications =
        database.Prepare("SELECT json FROM notification WHERE task = ?1 ORDER BY position");
    for (notifications.Bind(1, id); notifications.Step();) {
      read.notifications.push_back(notifications.Text(0));
    }
  });
  if (found) {
    info = std::move(read);
  }
  return found;
}

void SqliteTaskManager::createTask(char const* id, int retries) {
  createNamedTask(id, "", retries);
}

void SqliteTaskManager::createNamedTask(char const* id, char const* name, int retries) {
  Write(retries, OnFullDisk::Fail, [&](Session& session) {
    std::string const now = Now();
    try {
      session.database()
          .Prepare("INSERT INTO task (id, name, last_update) VALUES (?1, ?2, ?3)")
          .Bind(1, id)
          .Bind(2, name)
          .Bind(3, now)
          .Run();
    } catch (SqliteFailure const& failure) {
      if (failure.isConstraint()) {
        throw std::runtime_error(std::string("task \"") + id + "\" exists");
      }
      throw;
    }
  });
}

void SqliteTaskManager::startTask(char const* id, int retries) {
  Write(retries, OnFullDisk::Fail, [&](Session& session) {
    std::string const now = Now();
    session.database()
        .Prepare("UPDATE task SET status = 'RUNNING', start_time = ?2, last_update = ?2 WHERE id = ?1")
        .Bind(1, id)
        .Bind(2, now)
        .Run();
    RequireTask(session, id);
  });
}

void SqliteTaskManager::setProgress(char const* id, std::int32_t progress, std::string const& /*message*/) {
  Write(kUsualRetries, OnFullDisk::Fail, [&](Session& session) {
    std::string const now = Now();
    session.database()
        .Prepare("UPDATE task SET progress_completed = ?2, last_update = ?3 WHERE id = ?1")
        .Bind(1, id)
        .Bind(2, std::int64_t{progress})
        .Bind(3, now)
        .Run();
    RequireTask(session, id);
  });
}

void SqliteTaskManager::addNotification(char const* id, std::string const& json) {
  Write(kUsualRetries, OnFullDisk::Fail, [&](Session& session) {
    std::string const now = Now();
    SqliteHandle& database = session.database();
    database.Prepare("UPDATE task SET last_update = ?2 WHERE id = ?1").Bind(1, id).Bind(2, now).Run();
    RequireTask(session, id);
    database
        .Prepare(
            "INSERT INTO notification (task, position, json) VALUES (?1, "
            "(SELECT coalesce(max(position) + 1, 0) FROM notification WHERE task = ?1), ?2)")
        .Bind(1, id)
        .BindBytes(2, json)
        .Run();
  });
}

void SqliteTaskManager::completeTask(char const* id, std::string const& resultJson, int retries) {
  EndTask(id, "SUCCEEDED", resultJson, {}, retries);
}

void SqliteTaskManager::failTask(char const* id, std::string const& errorJson, int retries) {
  EndTask(id, "FAILED", {}, errorJson, retries);
}

void SqliteTaskManager::failTaskWithResult(char const* id, std::string const& resultJson,
                                           std::string const& errorJson, int retries) {
  EndTask(id, "FAILED", resultJson, errorJson, retries);
}

void SqliteTaskManager::EndTask(char const* id, char const* status, std::string const& result,
                                std::string const& error, int retries) {
  Write(retries, OnFullDisk::UseReserve, [&](Session& session) {
    std::string const now = Now();
    // A task that fails before it was started still needs both times.
    session.database()
        .Prepare(
            "UPDATE task SET status = ?2, result = ?3, error = ?4, error_id = '', end_time = ?5, last_update "
            "= ?5, "
            "start_time = iif(start_time = '', ?5, start_time), "
            "progress_completed = iif(?2 = 'SUCCEEDED', progress_total, progress_completed) WHERE id = ?1")
        .Bind(1, id)
        .Bind(2, std::string_view(status))
        .BindBytes(3, result)
        .BindBytes(4, error)
        .Bind(5, now)
        .Run();
    RequireTask(session, id);
    session.database().Prepare("DELETE FROM error_argument WHERE task = ?1").Bind(1, id).Run();
  });
}

}  // namespace TaskDB
