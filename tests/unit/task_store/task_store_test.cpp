#include "tasks/task_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <type_traits>

#include "tasks/remove_files.h"
#include "tasks/task_files.h"
#include "tests/unit/lifecycle_state.h"

namespace {

using LifeCycle::TaskStore;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(std::is_base_of_v<std::exception, LifeCycle::TaskInfoError>);
static_assert(std::is_base_of_v<std::exception, LifeCycle::AccessLockError>);
static_assert(std::is_base_of_v<std::exception, LifeCycle::TaskFileNotFoundError>);
static_assert(std::is_base_of_v<std::exception, LifeCycle::JsonParseError>);

class TaskStoreTest : public testing::Test {
 protected:
  void SetUp() override { LifecycleState::Reset(); }
};

TEST_F(TaskStoreTest, Paths) {
  EXPECT_EQ(std::string(LifeCycle::kTaskDatabasePath), std::string(LifeCycle::kTaskStorePath) + ".db");
  TaskStore const store(LifeCycle::kTaskStorePath, false);
  EXPECT_EQ(store.path(), "/var/orbane/lifecycle/task-status.json");
  EXPECT_TRUE(LifecycleState::Exists("/var/orbane/lifecycle/task-status.json.db"));
  EXPECT_FALSE(LifecycleState::Exists("/var/orbane/lifecycle/task-status.json"));  // never opened
}

TEST_F(TaskStoreTest, ForwardsEachOperation) {
  TaskStore store(LifeCycle::kTaskStorePath, false);
  store.createNamedTask("a", "operation", 5);
  store.createTask("b", 5);
  store.createTask("c", 5);
  for (char const* id : {"a", "b", "c"}) {
    store.startTask(id, 5);
  }
  store.setProgress("a", 40, "");
  store.addNotification("a", R"({"id":"n"})");
  store.completeTask("a", "1", 5);
  store.failTask("b", "2", 5);
  store.failTaskWithResult("c", "3", "4", 5);
  auto const records = store.list(5);
  ASSERT_EQ(records.size(), 3U);
  TaskDB::TaskInfo const& a = records.at("a");
  EXPECT_EQ(a.id, "a");
  EXPECT_EQ(a.name, "operation");
  EXPECT_EQ(a.status, "SUCCEEDED");
  EXPECT_EQ(a.progressTotal, 100);
  EXPECT_EQ(a.result, "1");
  EXPECT_THAT(a.notifications, ElementsAre(R"({"id":"n"})"));
  EXPECT_EQ(records.at("b").name, "");
  EXPECT_EQ(records.at("b").status, "FAILED");
  EXPECT_EQ(records.at("b").error, "2");
  EXPECT_EQ(records.at("c").result, "3");
  EXPECT_EQ(records.at("c").error, "4");
  TaskDB::TaskInfo info;
  EXPECT_TRUE(store.get("c", info, 5));
  EXPECT_EQ(info.error, "4");
  EXPECT_FALSE(store.get("d", info, 5));
}

TEST_F(TaskStoreTest, ResetEmptiesAFilledDatabase) {
  TaskStore(LifeCycle::kTaskStorePath, false).createTask("old", 5);
  TaskStore store(LifeCycle::kTaskStorePath, true);
  EXPECT_THAT(store.list(5), IsEmpty());
}

TEST_F(TaskStoreTest, ResetReplacesADamagedDatabase) {
  LifecycleState::Put(LifeCycle::kTaskDatabasePath, "this is no database");
  EXPECT_THROW(TaskStore(LifeCycle::kTaskStorePath, false).list(5), LifeCycle::JsonParseError);
  TaskStore store(LifeCycle::kTaskStorePath, true);
  EXPECT_THAT(store.list(5), IsEmpty());
}

TEST_F(TaskStoreTest, WithoutResetAFilledDatabaseStays) {
  TaskStore(LifeCycle::kTaskStorePath, false).createTask("kept", 5);
  EXPECT_EQ(TaskStore(LifeCycle::kTaskStorePath, false).list(5).count("kept"), 1U);
}

TEST_F(TaskStoreTest, MissingDatabaseIsMade) {
  TaskStore(LifeCycle::kTaskStorePath, false).createTask("gone", 5);
  ASSERT_EQ(::unlink(LifeCycle::kTaskDatabasePath), 0);
  TaskStore store(LifeCycle::kTaskStorePath, false);
  EXPECT_THAT(store.list(5), IsEmpty());
}

TEST_F(TaskStoreTest, StatusThatCannotBeHadCountsAsMissing) {
  for (char const* target : {LifeCycle::kTaskDatabasePath, "/nowhere/file"}) {
    LifeCycle::RemoveFiles({LifeCycle::kTaskDatabasePath});
    ASSERT_EQ(::symlink(target, LifeCycle::kTaskDatabasePath), 0);
    TaskStore store(LifeCycle::kTaskStorePath, false);
    EXPECT_THAT(store.list(5), IsEmpty()) << target;
    EXPECT_FALSE(boost::filesystem::is_symlink(LifeCycle::kTaskDatabasePath)) << target;
  }
}

TEST_F(TaskStoreTest, AnyTypeOfFileCountsAsThere) {
  LifeCycle::RemoveFiles({LifeCycle::kTaskDatabasePath, std::string(LifeCycle::kTaskDatabasePath) + "-wal",
                          std::string(LifeCycle::kTaskDatabasePath) + "-shm"});
  ASSERT_EQ(::mkdir(LifeCycle::kTaskDatabasePath, 0755), 0);
  TaskStore const store(LifeCycle::kTaskStorePath, false);
  struct stat info {};
  ASSERT_EQ(::stat(LifeCycle::kTaskDatabasePath, &info), 0);
  EXPECT_TRUE(S_ISDIR(info.st_mode));  // no init
}

TEST_F(TaskStoreTest, StartUpCleaning) {
  TaskStore(LifeCycle::kTaskStorePath, false).createTask("old", 5);
  LifecycleState::Put(LifeCycle::kTaskSyncFile, "PRECURSOR: old");
  LifecycleState::Put(LifeCycle::kApplyPidFile, "1234");
  TaskStore const store(LifeCycle::kTaskStorePath, true);
  LifeCycle::RemoveFiles({LifeCycle::kTaskSyncFile});
  EXPECT_THAT(LifecycleState::Records(), IsEmpty());
  EXPECT_THAT(LifecycleState::Files(), ElementsAre("lifecycle.apply.pid"));
  LifeCycle::RemoveFiles({LifeCycle::kTaskSyncFile});  // absent: nothing happens
}

TEST(TaskInfoErrorTest, KeepsItsText) {
  EXPECT_STREQ(LifeCycle::TaskInfoError("why").what(), "why");
}

TEST(AccessLockErrorTest, TextIsThatOfTheErrno) {
  for (int const error : {0, EADDRINUSE, EWOULDBLOCK, 12345}) {
    std::string const text = LifeCycle::AccessLockError(error).what();
    EXPECT_EQ(text, std::string(std::strerror(error)));
    EXPECT_EQ(LifeCycle::AccessLockError(error).error(), error);
  }
}

TEST(RemoveFilesTest, RemovesAllAndIgnoresFailures) {
  std::string const directory = "/tmp/remove-files/";
  LifecycleState::Put(directory + "a", "");
  LifecycleState::Put(directory + "full/b", "");
  boost::filesystem::create_directories(directory + "empty");
  ASSERT_EQ(::symlink((directory + "a").c_str(), (directory + "link").c_str()), 0);
  LifeCycle::RemoveFiles(
      {directory + "missing", directory + "full", directory + "link", directory + "empty", ""});
  EXPECT_TRUE(LifecycleState::Exists(directory + "a"));  // the link went, not its target
  EXPECT_TRUE(LifecycleState::Exists(directory + "full/b"));
  EXPECT_FALSE(LifecycleState::Exists(directory + "link"));
  EXPECT_FALSE(LifecycleState::Exists(directory + "empty"));
  LifeCycle::RemoveFiles({directory + "full/b", directory + "full"});  // in order
  EXPECT_FALSE(LifecycleState::Exists(directory + "full"));
  LifeCycle::RemoveFiles({});
}

}  // namespace
