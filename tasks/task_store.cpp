#include "tasks/task_store.h"

#include "support/path_exists.h"

namespace LifeCycle {

TaskStore::TaskStore(std::string const& path, bool reset)
    : manager_(TaskDB::TaskManager::FromPath(path + ".db")), path_(path) {
  if (reset || !PathExists(path + ".db")) {
    manager_->init();
  }
}

bool TaskStore::get(std::string const& id, TaskDB::TaskInfo& info, int retries) {
  return manager_->get(id.c_str(), info, retries);
}

void TaskStore::createNamedTask(std::string const& id, std::string const& name, int retries) {
  manager_->createNamedTask(id.c_str(), name.c_str(), retries);
}

void TaskStore::setProgress(std::string const& id, std::int32_t progress, std::string const& message) {
  manager_->setProgress(id.c_str(), progress, message);
}

void TaskStore::addNotification(std::string const& id, std::string const& json) {
  manager_->addNotification(id.c_str(), json);
}

void TaskStore::completeTask(std::string const& id, std::string const& resultJson, int retries) {
  manager_->completeTask(id.c_str(), resultJson, retries);
}

void TaskStore::failTask(std::string const& id, std::string const& errorJson, int retries) {
  manager_->failTask(id.c_str(), errorJson, retries);
}

void TaskStore::failTaskWithResult(std::string const& id, std::string const& resultJson,
                                   std::string const& errorJson, int retries) {
  manager_->failTaskWithResult(id.c_str(), resultJson, errorJson, retries);
}

}  // namespace LifeCycle
