#include "tasks/operation_launch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "platform/logging/test_only_log_capture.h"
#include "platform/process/zekctl.h"
#include "tasks/access_lock.h"
#include "tasks/task_files.h"
#include "tests/unit/lifecycle_state.h"
#include "tests/unit/service_call.h"

namespace {

using LifeCycle::ErrorPtr;
using LifeCycle::InitOperation;
using LifeCycle::InitTask;
using LifeCycle::RunTask;
using Orbane::CapturedLine;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::string Describe(ErrorPtr const& error) {
  return ServiceCall::Answer{nullptr, error, 0}.Error();
}

char const* const kContention = "not_allowed_in_current_state: com.orbane.ryn.task.contention()";

class OperationLaunch : public testing::Test {
 protected:
  static void SetUpTestSuite() { LifecycleState::InstallCatalogues(KEELD_SOURCE_DIR); }
  void SetUp() override { LifecycleState::Reset(); }

  static bool GateIsOpen() { return !LifecycleState::Exists(LifeCycle::kTaskSyncFile); }
  static std::string Gate() { return LifecycleState::Content(LifeCycle::kTaskSyncFile); }
  static void ShutGate() { LifecycleState::Put(LifeCycle::kTaskSyncFile, "TASK: other 17"); }
  /// A database that no record can be put into.
  static void BreakDatabase() { LifecycleState::Put(LifeCycle::kTaskDatabasePath, "this is no database"); }

  /// Lines of the gate's attempts, with the retries left that each gives.
  static std::vector<std::string> Attempts(std::string const& start, int retries) {
    std::vector<std::string> lines;
    for (int left = retries; left >= 0; --left) {
      lines.push_back("[_CheckTaskContention]: " + start + ", " + std::to_string(left) + " retries left");
    }
    return lines;
  }

  LifecycleState::FakeLaunch launch_;
  Orbane::TestOnlyLogCapture log_;
  ErrorPtr error_;
};

using GetTaskIdTest = OperationLaunch;

TEST_F(GetTaskIdTest, GivesDifferentUuids) {
  std::string const a = LifeCycle::GetTaskId(error_, true);
  std::string const b = LifeCycle::GetTaskId(error_, false);
  EXPECT_FALSE(error_);
  EXPECT_THAT(a, testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}"));
  EXPECT_NE(a, b);
  EXPECT_EQ(log_.lines(), (std::vector<CapturedLine>{{3, "[GetTaskId]: Generated task uuid " + a},
                                                     {3, "[GetTaskId]: Generated task uuid " + b}}));
}

TEST_F(GetTaskIdTest, Failures) {
  for (char const* text : {static_cast<char const*>(nullptr), "no uuid"}) {
    LifeCycle::CurrentLaunchEnvironment().createUuid = [text] {
      return text != nullptr ? ::strdup(text) : nullptr;
    };
    ErrorPtr error;
    EXPECT_EQ(LifeCycle::GetTaskId(error, true), "");
    EXPECT_EQ(Describe(error), "internal_server_error: com.orbane.ryn.task.uuid.error()");
    error.reset();
    EXPECT_EQ(LifeCycle::GetTaskId(error, false), "");
    EXPECT_EQ(Describe(error), "error: com.orbane.ryn.task.uuid.error()");
    EXPECT_EQ(InitTask("name", error, true), "");
    EXPECT_EQ(Describe(error), "internal_server_error: com.orbane.ryn.task.uuid.error()");
  }
  EXPECT_THAT(log_.texts(0), IsEmpty());
  EXPECT_TRUE(GateIsOpen());
}

using InitTaskTest = OperationLaunch;

TEST_F(InitTaskTest, TakesTheGateAndMakesANamedRecord) {
  std::string const id = InitTask("com.orbane.sample.apply", error_, true);
  ASSERT_FALSE(error_);
  EXPECT_EQ(Gate(), "PRECURSOR: " + id);
  auto const records = LifecycleState::Records();
  ASSERT_THAT(records, SizeIs(1));
  EXPECT_EQ(records.at(id).name, "com.orbane.sample.apply");
  EXPECT_EQ(records.at(id).status, "PENDING");
  EXPECT_EQ(log_.texts(2), (std::vector<std::string>{"[InitTask]: Creating task: " + id}));
  EXPECT_EQ(launch_.sleeps, 0);
}

TEST_F(InitTaskTest, BusyGateCostsOneSecond) {
  ShutGate();
  EXPECT_EQ(InitTask("name", error_, true), "");
  EXPECT_EQ(Describe(error_), kContention);
  EXPECT_EQ(launch_.slept, seconds(1));
  EXPECT_EQ(log_.texts(0), Attempts("Task sync file exists and contains 'TASK: other 17'", 0));
  EXPECT_EQ(Gate(), "TASK: other 17");
  EXPECT_THAT(LifecycleState::Records(), IsEmpty());
}

TEST_F(InitTaskTest, RecordThatCannotBeMade) {
  BreakDatabase();
  EXPECT_EQ(InitTask("name", error_, true), "");
  EXPECT_EQ(Describe(error_), "error: com.orbane.ryn.task.create.error()");  // plain, whatever was asked for
  EXPECT_TRUE(GateIsOpen());
  ASSERT_THAT(log_.texts(0), SizeIs(1));
  EXPECT_THAT(log_.texts(0)[0],
              testing::MatchesRegex("\\[InitTask\\]: Failed to create task [0-9a-f-]{36}: .+"));
}

using RunTaskTest = OperationLaunch;

TEST_F(RunTaskTest, StartsTheCommandAndLeavesTheGateToIt) {
  RunTask("tool --task-id id-1", "id-1", error_, true, 2);
  EXPECT_FALSE(error_);
  EXPECT_EQ(Gate(), "PRECURSOR: id-1");
  EXPECT_THAT(launch_.commands, ElementsAre("tool --task-id id-1"));
  EXPECT_EQ(LifecycleState::Records().at("id-1").name, "");
  EXPECT_EQ(log_.lines(),
            (std::vector<CapturedLine>{{2, "[RunTask]: Creating task: id-1"},
                                       {2, "[RunTask]: Executing command: tool --task-id id-1"}}));
  EXPECT_EQ(launch_.sleeps, 0);
}

TEST_F(RunTaskTest, BusyGateCostsThreeSeconds) {
  ShutGate();
  RunTask("tool", "id", error_, false, 2);
  EXPECT_EQ(Describe(error_), kContention);
  EXPECT_EQ(launch_.slept, seconds(3));
  EXPECT_EQ(log_.texts(0), Attempts("Task sync file exists and contains 'TASK: other 17'", 2));
  EXPECT_THAT(launch_.commands, IsEmpty());
  EXPECT_THAT(LifecycleState::Records(), IsEmpty());
  auto const* const messages = Lumo::Data::As<Lumo::Data::ListValue>(error_->Find("messages"));
  auto const* const message = Lumo::Data::As<Lumo::Data::CompoundValue>(messages->Item(0));
  EXPECT_EQ(Lumo::Data::As<Lumo::Data::StringValue>(message->Find("default_message"))->value(),
            LifeCycle::GetDefaultMessage("com.orbane.ryn.task.contention"));
}

TEST_F(RunTaskTest, GateThatOpensInTime) {
  ShutGate();
  launch_.onSleep = [] { ::unlink(LifeCycle::kTaskSyncFile); };
  RunTask("tool", "id", error_, true, 2);
  EXPECT_FALSE(error_);
  EXPECT_EQ(launch_.sleeps, 1);
  EXPECT_EQ(Gate(), "PRECURSOR: id");
}

TEST_F(RunTaskTest, NegativeRetriesFailStraightAway) {
  RunTask("tool", "id", error_, true, -1);
  EXPECT_EQ(Describe(error_), kContention);
  EXPECT_EQ(launch_.sleeps, 0);
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_TRUE(GateIsOpen());
}

TEST_F(RunTaskTest, RecordThatCannotBeMade) {
  BreakDatabase();
  RunTask("tool", "id", error_, true, 2);
  EXPECT_EQ(Describe(error_), "error: com.orbane.ryn.task.create.error()");
  EXPECT_TRUE(GateIsOpen());
  EXPECT_THAT(launch_.commands, IsEmpty());
  ASSERT_THAT(log_.texts(0), SizeIs(1));
  EXPECT_THAT(log_.texts(0)[0], testing::StartsWith("[RunTask]: Failed to create task id: "));
}

TEST_F(RunTaskTest, CommandThatCannotBeStarted) {
  launch_.onStart = [] { return 2; };
  RunTask("tool", "id", error_, true, 2);
  EXPECT_EQ(Describe(error_), "internal_server_error: com.orbane.ryn.task.exec.error()");
  EXPECT_THAT(launch_.commands, ElementsAre("tool", "tool", "tool"));
  EXPECT_EQ(launch_.slept, seconds(2));  // between the tries only
  EXPECT_TRUE(GateIsOpen());
  EXPECT_EQ(LifecycleState::Records().at("id").status, "PENDING");  // stays for good
  std::string const failure = "[RunTask]: Failed to exec command for task id: ZekCtl_Daemon() returned 2, ";
  EXPECT_EQ(log_.lines(), (std::vector<CapturedLine>{{2, "[RunTask]: Creating task: id"},
                                                     {2, "[RunTask]: Executing command: tool"},
                                                     {0, failure + "2 retries left"},
                                                     {2, "[RunTask]: Executing command: tool"},
                                                     {0, failure + "1 retries left"},
                                                     {2, "[RunTask]: Executing command: tool"},
                                                     {0, failure + "0 retries left"}}));
}

TEST_F(RunTaskTest, CommandThatThrows) {
  launch_.onStart = []() -> int { throw HostCtl::Lib::HostCtlException("no such program"); };
  RunTask("tool", "id", error_, false, 0);
  EXPECT_EQ(Describe(error_), "error: com.orbane.ryn.task.exec.error()");
  EXPECT_EQ(launch_.sleeps, 0);
  EXPECT_TRUE(GateIsOpen());
  EXPECT_THAT(log_.texts(0),
              ElementsAre("[RunTask]: Failed to exec command for task id: no such program, 0 retries left"));
}

TEST_F(RunTaskTest, CommandThatStartsAtTheSecondTry) {
  int tries = 0;
  launch_.onStart = [&tries] { return ++tries == 2 ? 0 : 12; };
  RunTask("tool", "id", error_, true, 2);
  EXPECT_FALSE(error_);
  EXPECT_THAT(launch_.commands, SizeIs(2));
  EXPECT_EQ(Gate(), "PRECURSOR: id");
}

TEST_F(RunTaskTest, StartsARealProcess) {
  LifeCycle::CurrentLaunchEnvironment().startCommand = launch_.real().startCommand;
  std::string const folder = std::string(LifeCycle::kStateDirectory) + "seen/";
  ASSERT_EQ(::mkdir(folder.c_str(), 0700), 0);
  std::string const self = "/proc/self/";
  RunTask("/bin/cp -P " + self + "fd/0 " + self + "fd/1 " + self + "fd/2 " + self + "stat " + folder, "id",
          error_, true, 0);
  ASSERT_FALSE(error_);
  auto const deadline = std::chrono::steady_clock::now() + seconds(20);
  std::string stat;
  while (stat.empty() || stat.back() != '\n') {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    stat = LifecycleState::Content(folder + "stat");
  }
  for (char const* stream : {"0", "1", "2"}) {
    EXPECT_EQ(boost::filesystem::read_symlink(folder + stream), "/dev/null");
  }
  // Behind the name in parentheses: state, parent, process group, session.
  std::istringstream fields(stat.substr(stat.rfind(')') + 1));
  char state = 0;
  pid_t parent = 0;
  pid_t group = 0;
  pid_t session = 0;
  fields >> state >> parent >> group >> session;
  EXPECT_NE(parent, ::getpid());
  EXPECT_NE(session, ::getsid(0));
}

using GateTest = OperationLaunch;

TEST_F(GateTest, InitOperationWaitsThirtyOneSeconds) {
  ShutGate();
  ErrorPtr const error = InitOperation("export");
  EXPECT_EQ(Describe(error), kContention);
  EXPECT_EQ(launch_.slept, seconds(31));
  auto expected = Attempts("Task sync file exists and contains 'TASK: other 17'", 30);
  expected.emplace_back("[InitOperation]: Operation=export cannot proceed due to contention");
  EXPECT_EQ(log_.texts(0), expected);
  EXPECT_EQ(log_.texts(2), (std::vector<std::string>{"[InitOperation]: Initializing operation: export"}));
}

TEST_F(GateTest, OperationTakesAndOpensTheGate) {
  EXPECT_FALSE(InitOperation("export"));
  EXPECT_EQ(Gate(), "PRECURSOR: export");
  LifeCycle::CleanupOperation("export");
  EXPECT_TRUE(GateIsOpen());
  EXPECT_EQ(log_.lines(),
            (std::vector<CapturedLine>{
                {2, "[InitOperation]: Initializing operation: export"},
                {2, "[CleanupOperation]: Cleaned up state associated with operation=export "}}));
  EXPECT_THAT(LifecycleState::Records(), IsEmpty());
}

TEST_F(GateTest, SomebodyInTheSameInstant) {
  LifeCycle::AccessLock const holder(LifeCycle::kTaskSyncFile, 0);
  RunTask("tool", "id", error_, true, 1);
  EXPECT_EQ(Describe(error_), kContention);
  EXPECT_EQ(launch_.slept, seconds(2));
  EXPECT_EQ(log_.texts(0), Attempts("Lock contention in task id, another task is starting", 1));
  EXPECT_TRUE(GateIsOpen());
}

TEST_F(GateTest, LongContentIsLoggedCut) {
  LifecycleState::Put(LifeCycle::kTaskSyncFile, std::string(255, 'x') + "yz");
  InitTask("name", error_, true);
  EXPECT_EQ(log_.texts(0), Attempts("Task sync file exists and contains '" + std::string(255, 'x') + "'", 0));
}

TEST_F(GateTest, EmptyFileIsShut) {
  LifecycleState::Put(LifeCycle::kTaskSyncFile, "");
  InitTask("name", error_, true);
  EXPECT_EQ(Describe(error_), kContention);
  EXPECT_EQ(log_.texts(0), Attempts("Task sync file exists and contains ''", 0));
}

TEST_F(GateTest, DirectoryIsLikeABusyGate) {
  ASSERT_EQ(::mkdir(LifeCycle::kTaskSyncFile, 0755), 0);
  RunTask("tool", "id", error_, true, 2);
  EXPECT_EQ(Describe(error_), kContention);
  EXPECT_EQ(launch_.slept, seconds(3));
  EXPECT_EQ(log_.texts(0), Attempts("Failed to determine if the task sync file exists: Is a directory", 2));
}

TEST_F(GateTest, FileThatCannotBeOpened) {
  ASSERT_EQ(::symlink(LifeCycle::kTaskSyncFile, LifeCycle::kTaskSyncFile), 0);
  InitTask("name", error_, true);
  EXPECT_EQ(Describe(error_), kContention);
  EXPECT_EQ(
      log_.texts(0),
      Attempts("Failed to determine if the task sync file exists: Too many levels of symbolic links", 0));
}

TEST_F(GateTest, FileThatCannotBeWritten) {
  ASSERT_EQ(::symlink("/nowhere/file", LifeCycle::kTaskSyncFile),
            0);  // missing for the reader, refused for the writer
  RunTask("tool", "id", error_, true, 0);
  EXPECT_EQ(Describe(error_), kContention);
  EXPECT_THAT(
      log_.texts(0),
      ElementsAre(
          std::string("[WriteToFile] Unable to open file: ") + LifeCycle::kTaskSyncFile,
          "[_CheckTaskContention]: Failed to write to the task sync file in task id: std::exception, 0 "
          "retries left"));
}

TEST_F(GateTest, StateDirectoryIsMade) {
  boost::filesystem::remove_all(LifeCycle::kStateDirectory);
  EXPECT_FALSE(InitOperation("export"));
  EXPECT_EQ(Gate(), "PRECURSOR: export");
}

TEST_F(GateTest, SecondOperationIsRefusedAsLongAsTheFirstHasNotEnded) {
  RunTask("tool", "first", error_, true, 2);
  ASSERT_FALSE(error_);
  RunTask("tool", "second", error_, true, 2);
  EXPECT_EQ(Describe(error_), kContention);
  EXPECT_EQ(Gate(), "PRECURSOR: first");
  LifeCycle::CleanupOperation("tool");
  error_.reset();
  RunTask("tool", "third", error_, true, 2);
  EXPECT_FALSE(error_);
}

}  // namespace
