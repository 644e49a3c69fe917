// A task database that fails as a test wants. The test program defines TaskDB::TaskManager::FromPath itself,
// to give a Manager in place of the real one.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/taskdb/task_manager.h"

namespace FaultyDatabase {

/// What each look into the database and each new record does.
inline std::function<void()> onAccess = [] {};
/// The operation's words, in the order of the calls.
inline std::vector<std::string> calls;

class Manager final : public TaskDB::TaskManager {
 public:
  static std::shared_ptr<TaskDB::TaskManager> Open(std::string path) {
    calls.push_back("open " + std::move(path));
    return std::make_shared<Manager>();
  }

  void init() override { Access("init"); }
  std::map<std::string, TaskDB::TaskInfo> list(int retries) override {
    Access("list " + std::to_string(retries));
    return {};
  }
  bool get(char const* id, TaskDB::TaskInfo& /*info*/, int retries) override {
    Access(std::string("get ") + id + " " + std::to_string(retries));
    return false;
  }
  void createTask(char const* id, int retries) override {
    Access(std::string("createTask ") + id + " " + std::to_string(retries));
  }
  void createNamedTask(char const* id, char const* name, int retries) override {
    Access(std::string("createNamedTask ") + id + " " + name + " " + std::to_string(retries));
  }
  void startTask(char const*, int) override {}
  void setProgress(char const*, std::int32_t, std::string const&) override {}
  void addNotification(char const*, std::string const&) override {}
  void completeTask(char const*, std::string const&, int) override {}
  void failTask(char const*, std::string const&, int) override {}
  void failTaskWithResult(char const*, std::string const&, std::string const&, int) override {}

 private:
  static void Access(std::string call) {
    calls.push_back(std::move(call));
    onAccess();
  }
};

}  // namespace FaultyDatabase
