// The launch path over a database in which no record can be made.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

#include "platform/logging/test_only_log_capture.h"
#include "tasks/operation_launch.h"
#include "tasks/task_files.h"
#include "tests/unit/faulty_task_database.h"
#include "tests/unit/lifecycle_state.h"
#include "tests/unit/service_call.h"

/// In place of the real database's factory.
std::shared_ptr<TaskDB::TaskManager> TaskDB::TaskManager::FromPath(std::string dbPath) {
  return FaultyDatabase::Manager::Open(std::move(dbPath));
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Fault {
  char const* text;  // as the log tells it
  void (*happen)();
};

constexpr Fault kFaults[] = {
    {"Address already in use", [] { throw LifeCycle::AccessLockError(EADDRINUSE); }},
    {"not there", [] { throw LifeCycle::TaskFileNotFoundError("not there"); }},
    {"no database", [] { throw LifeCycle::JsonParseError("no database"); }},
    {"no room", [] { throw std::runtime_error("no room"); }},
};

std::string const kOpen = "open /var/orbane/lifecycle/task-status.json.db";

/// Each fault with each wish for the type of error, which must not matter.
class OperationLaunchFaults : public testing::TestWithParam<std::tuple<Fault, bool>> {
 protected:
  OperationLaunchFaults() {
    boost::filesystem::remove_all(LifeCycle::kStateDirectory);
    LifecycleState::Put(LifeCycle::kTaskDatabasePath, "");
    FaultyDatabase::calls.clear();
    FaultyDatabase::onAccess = fault_.happen;
  }
  static void SetUpTestSuite() { LifecycleState::InstallCatalogues(KEELD_SOURCE_DIR); }

  void ExpectRefused() const {
    EXPECT_EQ((ServiceCall::Answer{nullptr, error_, 0}.Error()), "error: com.orbane.ryn.task.create.error()");
    EXPECT_FALSE(LifecycleState::Exists(LifeCycle::kTaskSyncFile));
  }

  Fault const fault_ = std::get<0>(GetParam());
  bool const internalError_ = std::get<1>(GetParam());
  LifecycleState::FakeLaunch launch_;
  Orbane::TestOnlyLogCapture log_;
  LifeCycle::ErrorPtr error_;
};

TEST_P(OperationLaunchFaults, InitTask) {
  EXPECT_EQ(LifeCycle::InitTask("com.orbane.sample.apply", error_, internalError_), "");
  ExpectRefused();
  std::string const creating = "[InitTask]: Creating task: ";
  ASSERT_THAT(log_.texts(2), ElementsAre(testing::StartsWith(creating)));
  std::string const id = log_.texts(2)[0].substr(creating.size());
  EXPECT_THAT(log_.texts(0), ElementsAre("[InitTask]: Failed to create task " + id + ": " + fault_.text));
  EXPECT_THAT(FaultyDatabase::calls,
              ElementsAre(kOpen, "createNamedTask " + id + " com.orbane.sample.apply 5"));
}

TEST_P(OperationLaunchFaults, RunTask) {
  LifeCycle::RunTask("tool", "t", error_, internalError_, 2);
  ExpectRefused();
  EXPECT_THAT(log_.texts(0), ElementsAre(std::string("[RunTask]: Failed to create task t: ") + fault_.text));
  EXPECT_THAT(FaultyDatabase::calls, ElementsAre(kOpen, "createTask t 5"));
  EXPECT_THAT(launch_.commands, IsEmpty());
  EXPECT_EQ(launch_.sleeps, 0);
}

TEST_P(OperationLaunchFaults, RunTaskWithoutDatabase) {
  boost::filesystem::remove_all(LifeCycle::kStateDirectory);
  LifeCycle::RunTask("tool", "t", error_, internalError_, 0);
  ExpectRefused();
  EXPECT_THAT(FaultyDatabase::calls, ElementsAre(kOpen, "init"));
}

INSTANTIATE_TEST_SUITE_P(All, OperationLaunchFaults,
                         testing::Combine(testing::ValuesIn(kFaults), testing::Bool()));

}  // namespace
