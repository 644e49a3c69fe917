// The task service over a database that fails in every way it may.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/logging/test_only_log_capture.h"
#include "runtime/l10n/localizer.h"
#include "tasks/task_files.h"
#include "tasks/tasks_svc.h"
#include "tests/unit/faulty_task_database.h"
#include "tests/unit/lifecycle_state.h"
#include "tests/unit/service_call.h"

/// In place of the real database's factory.
std::shared_ptr<TaskDB::TaskManager> TaskDB::TaskManager::FromPath(std::string dbPath) {
  return FaultyDatabase::Manager::Open(std::move(dbPath));
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
    FaultyDatabase::onAccess = c.fault;
    FaultyDatabase::calls.clear();
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
    std::string const open = "open /var/orbane/lifecycle/task-status.json.db";
    EXPECT_EQ(FaultyDatabase::calls, (std::vector<std::string>{open, "get t 5", open, "list 5"}));
  }
}

}  // namespace
