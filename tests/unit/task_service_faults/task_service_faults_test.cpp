// The task service over a database that fails in every way it may.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/logging/test_only_log_capture.h"
#include "platform/taskdb/task_manager.h"
#include "runtime/l10n/localizer.h"
#include "tasks/task_files.h"
#include "tasks/tasks_svc.h"
#include "tests/unit/lifecycle_state.h"
#include "tests/unit/service_call.h"

namespace {

/// What each read of the database does.
std::function<void()> onRead = [] {};
std::vector<std::string> calls;

class FaultyManager final : public TaskDB::TaskManager {
 public:
  void init() override { calls.emplace_back("init"); }
  std::map<std::string, TaskDB::TaskInfo> list(int retries) override {
    calls.push_back("list " + std::to_string(retries));
    onRead();
    return {};
  }
  bool get(char const* id, TaskDB::TaskInfo& /*info*/, int retries) override {
    calls.push_back(std::string("get ") + id + " " + std::to_string(retries));
    onRead();
    return false;
  }
  void createTask(char const*, int) override {}
  void createNamedTask(char const*, char const*, int) override {}
  void startTask(char const*, int) override {}
  void setProgress(char const*, std::int32_t, std::string const&) override {}
  void addNotification(char const*, std::string const&) override {}
  void completeTask(char const*, std::string const&, int) override {}
  void failTask(char const*, std::string const&, int) override {}
  void failTaskWithResult(char const*, std::string const&, std::string const&, int) override {}
};

}  // namespace

/// In place of the real database's factory.
std::shared_ptr<TaskDB::TaskManager> TaskDB::TaskManager::FromPath(std::string dbPath) {
  calls.push_back("open " + dbPath);
  return std::make_shared<FaultyManager>();
}

namespace {

namespace Svc = Com::Orbane::Halo::TasksSvc;

TEST(TaskServiceFaults, EachExceptionHasItsAnswer) {
  LifecycleState::InstallCatalogues(KEELD_SOURCE_DIR);
  boost::filesystem::remove_all(LifeCycle::kStateDirectory);
  LifecycleState::Put(LifeCycle::kTaskDatabasePath, "");
  auto const api = Svc::AsyncServiceBinder::BindImplementation(
      std::make_shared<Svc::AsyncServiceImpl>(), Lumo::L10n::LocalizerHelpers::GetDefaultLocalizer());
  struct Case {
    char const* what;
    std::function<void()> fault;
    std::string getLog;
    std::string getError;
    std::string listLog;
    std::string listError;  // empty: success with an empty map
  };
  std::vector<Case> const cases = {
      {"lock", [] { throw LifeCycle::AccessLockError(EADDRINUSE); },
       "[Get]: Failed to acquire lock: Address already in use",
       "resource_inaccessible: com.orbane.ryn.task.lock.error()",
       "[List]: Failed to acquire lock: Address already in use",
       "resource_inaccessible: com.orbane.ryn.task.lock.error()"},
      {"parse", [] { throw LifeCycle::JsonParseError("no database"); }, "[Get] :  no database",
       "error: com.orbane.ryn.task.parse.error()", "[List] :  no database",
       "resource_inaccessible: com.orbane.ryn.task.parse.error()"},
      {"file", [] { throw LifeCycle::TaskFileNotFoundError("not there"); }, "[Get] not there",
       "not_found: com.orbane.ryn.task.file.notfound.error()", "[List]: Returning empty list.: not there",
       ""},
      {"std", [] { throw std::runtime_error("disk"); }, "[Get]: Unknown error",
       "error: com.orbane.ryn.task.unknown.error()", "[List]: Unknown error",
       "service_unavailable: com.orbane.ryn.task.unknown.error()"},
      {"other", [] { throw 7; }, "[Get]: Unknown error", "error: com.orbane.ryn.task.unknown.error()",
       "[List]: Unknown error", "service_unavailable: com.orbane.ryn.task.unknown.error()"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    onRead = c.fault;
    calls.clear();
    Orbane::TestOnlyLogCapture log;
    auto const get = ServiceCall::Call(api, "get", R"({"task":"t"})");
    EXPECT_EQ(get.answers, 1);
    EXPECT_EQ(get.Error(), c.getError);
    auto const list = ServiceCall::Call(api, "list", "{}");
    EXPECT_EQ(list.answers, 1);
    EXPECT_EQ(list.Error(), c.listError);
    if (c.listError.empty()) {
      EXPECT_EQ(list.Json(), "{}");
    }
    EXPECT_EQ(log.texts(0), (std::vector<std::string>{c.getLog, c.listLog}));
    EXPECT_EQ(calls, (std::vector<std::string>{"open /var/orbane/lifecycle/task-status.json.db", "get t 5",
                                               "open /var/orbane/lifecycle/task-status.json.db", "list 5"}));
  }
}

}  // namespace
