// The daemon's way into the task database.
#pragma once

#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <string>

#include "platform/taskdb/task_manager.h"

namespace LifeCycle {

/// One task record is not consistent.
class TaskInfoError : public std::exception {
 public:
  explicit TaskInfoError(std::string message) : message_(std::move(message)) {}
  char const* what() const noexcept override { return message_.c_str(); }

 private:
  std::string message_;
};

/// Forwards to the database at `path` + ".db". Cheap: made anew for each call and each task, never shared
/// between threads. Throws what TaskDB::TaskManager throws.
class TaskStore {
 public:
  /// Initialises the database when it is missing or, with `reset`, whatever is there.
  TaskStore(std::string const& path, bool reset);

  void init() { manager_->init(); }
  std::map<std::string, TaskDB::TaskInfo> list(int retries) { return manager_->list(retries); }
  /// What a look-up in list() gives, without reading the others; false when there is none of that id.
  bool get(std::string const& id, TaskDB::TaskInfo& info, int retries);
  void createTask(std::string const& id, int retries) { manager_->createTask(id.c_str(), retries); }
  void createNamedTask(std::string const& id, std::string const& name, int retries);
  void startTask(std::string const& id, int retries) { manager_->startTask(id.c_str(), retries); }
  void setProgress(std::string const& id, std::int32_t progress, std::string const& message);
  void addNotification(std::string const& id, std::string const& json);
  void completeTask(std::string const& id, std::string const& resultJson, int retries);
  void failTask(std::string const& id, std::string const& errorJson, int retries);
  void failTaskWithResult(std::string const& id, std::string const& resultJson, std::string const& errorJson,
                          int retries);

  std::string const& path() const { return path_; }

 private:
  std::shared_ptr<TaskDB::TaskManager> manager_;
  std::string path_;
};

}  // namespace LifeCycle
