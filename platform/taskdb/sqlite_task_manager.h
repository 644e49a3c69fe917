// The task database on SQLite.
#pragma once

#include <functional>
#include <string>

#include "platform/taskdb/connection.h"
#include "platform/taskdb/reserve.h"
#include "platform/taskdb/task_manager.h"

namespace TaskDB {

class SqliteTaskManager final : public TaskManager {
 public:
  SqliteTaskManager(std::string path, Sleeper sleep);

  void init() override;
  std::map<std::string, TaskInfo> list(int retries) override;
  bool get(char const* id, TaskInfo& info, int retries) override;
  void createTask(char const* id, int retries) override;
  void createNamedTask(char const* id, char const* name, int retries) override;
  void startTask(char const* id, int retries) override;
  void setProgress(char const* id, std::int32_t progress, std::string const& message) override;
  void addNotification(char const* id, std::string const& json) override;
  void completeTask(char const* id, std::string const& resultJson, int retries) override;
  void failTask(char const* id, std::string const& errorJson, int retries) override;
  void failTaskWithResult(char const* id, std::string const& resultJson, std::string const& errorJson,
                          int retries) override;

 private:
  using Work = std::function<void(Session&)>;
  enum class OnFullDisk { Fail, UseReserve };

  /// Does `work` in a session, again while locks are in the way, and turns failures into the exceptions of
  /// the class.
  void Try(int retries, Work const& work, OnFullDisk onFullDisk);
  void TryOnce(Work const& work);
  void Read(int retries, Work const& work);
  void Write(int retries, OnFullDisk onFullDisk, Work const& work);
  void EndTask(char const* id, char const* status, std::string const& result, std::string const& error,
               int retries);

  std::string const path_;
  Reserve const reserve_;
  Sleeper const sleep_;
};

}  // namespace TaskDB
