// The task database: one record a task, shared by the daemon and the tools, in this and other processes.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/taskdb/errors.h"

namespace TaskDB {

/// A task record. Empty text: not set. Times are "YYYY-MM-DDTHH:MM:SS.mmmZ".
struct TaskInfo {
  std::string id;
  std::string name;
  std::string user;
  std::string status;  // PENDING, RUNNING, SUCCEEDED, FAILED; empty reads as pending
  std::string lastUpdate;
  std::string startTime;
  std::string endTime;
  std::int32_t progressCompleted = 0;
  std::int32_t progressTotal = 0;
  std::string result;   // JSON text of a value, plain or gzip
  std::string error;    // JSON text of an error value, plain or gzip
  std::string errorId;  // or: a message id and its arguments
  std::list<std::string> errorArgs;
  std::vector<std::string> notifications;  // JSON texts
};

/// Waits for that time.
using Sleeper = std::function<void(std::chrono::milliseconds)>;

/// Access to one database file. Holds nothing between calls, so it is cheap and may be kept over a fork and
/// over deletion of the file; connections that the process keeps are used only while the path names the same
/// file. Any thread. A call tries `retries` times, once at least. All calls but init throw
/// LifeCycle::AccessLockError (lock not had within `retries`, 200 ms apart), TaskFileNotFoundError,
/// JsonParseError, and std::runtime_error for an unknown id or a failed write.
class TaskManager {
 public:
  static std::shared_ptr<TaskManager> FromPath(std::string dbPath);
  /// With another way of waiting between tries.
  static std::shared_ptr<TaskManager> FromPath(std::string dbPath, Sleeper sleep);
  virtual ~TaskManager() = default;

  /// Leaves an empty, usable database, whatever stood there, journal files included.
  virtual void init() = 0;
  virtual std::map<std::string, TaskInfo> list(int retries) = 0;
  /// One record; false when there is none of that id. Costs the same however many there are.
  virtual bool get(char const* id, TaskInfo& info, int retries) = 0;
  virtual void createTask(char const* id, int retries) = 0;
  virtual void createNamedTask(char const* id, char const* name, int retries) = 0;
  virtual void startTask(char const* id, int retries) = 0;
  /// Percent of the total of 100; the message is not stored.
  virtual void setProgress(char const* id, std::int32_t progress, std::string const& message) = 0;
  virtual void addNotification(char const* id, std::string const& json) = 0;
  virtual void completeTask(char const* id, std::string const& resultJson, int retries) = 0;
  virtual void failTask(char const* id, std::string const& errorJson, int retries) = 0;
  virtual void failTaskWithResult(char const* id, std::string const& resultJson, std::string const& errorJson,
                                  int retries) = 0;
};

}  // namespace TaskDB
