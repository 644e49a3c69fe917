#include "platform/taskdb/task_manager.h"

#include <regex>
#include <stdexcept>

#include "taskdb_test_support.h"

namespace {

using TaskDB::TaskInfo;
using namespace std::string_literals;

using Records = TaskDatabaseTest;

std::regex const kTime(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)");

TEST_F(Records, AFreshDatabaseIsEmpty) {
  EXPECT_TRUE(manager_->list(kRetries).empty());
}

TEST_F(Records, CreateMakesAPendingRecordWithoutName) {
  manager_->createTask("a", kRetries);
  TaskInfo const info = Get("a");
  EXPECT_EQ(info.id, "a");
  EXPECT_EQ(info.name, "");
  EXPECT_EQ(info.user, "");
  EXPECT_EQ(info.status, "PENDING");
  EXPECT_TRUE(std::regex_match(info.lastUpdate, kTime)) << info.lastUpdate;
  EXPECT_EQ(info.startTime, "");
  EXPECT_EQ(info.endTime, "");
  EXPECT_EQ(info.progressCompleted, 0);
  EXPECT_EQ(info.progressTotal, 100);
  EXPECT_EQ(info.result, "");
  EXPECT_EQ(info.error, "");
  EXPECT_EQ(info.errorId, "");
  EXPECT_TRUE(info.errorArgs.empty());
  EXPECT_TRUE(info.notifications.empty());
}

TEST_F(Records, CreateNamedKeepsTheName) {
  manager_->createNamedTask("a", "com.orbane.ryn.configuration$apply", kRetries);
  EXPECT_EQ(Get("a").name, "com.orbane.ryn.configuration$apply");
}

TEST_F(Records, TheRoadOfASuccess) {
  manager_->createTask("a", kRetries);
  manager_->startTask("a", kRetries);
  TaskInfo info = Get("a");
  EXPECT_EQ(info.status, "RUNNING");
  EXPECT_TRUE(std::regex_match(info.startTime, kTime));
  EXPECT_EQ(info.lastUpdate, info.startTime);
  EXPECT_EQ(info.endTime, "");
  manager_->setProgress("a", 42, "never stored");
  EXPECT_EQ(Get("a").progressCompleted, 42);
  EXPECT_EQ(Get("a").progressTotal, 100);
  manager_->addNotification("a", R"({"id":"one"})");
  manager_->addNotification("a", R"({"id":"two"})");
  manager_->completeTask("a", R"({"version":"2.0"})", kRetries);
  std::string const start = info.startTime;
  info = Get("a");
  EXPECT_EQ(info.status, "SUCCEEDED");
  EXPECT_EQ(info.startTime, start);
  EXPECT_TRUE(std::regex_match(info.endTime, kTime));
  EXPECT_EQ(info.lastUpdate, info.endTime);
  EXPECT_GE(info.endTime, info.startTime);
  EXPECT_EQ(info.progressCompleted, 100);
  EXPECT_EQ(info.result, R"({"version":"2.0"})");
  EXPECT_EQ(info.error, "");
  EXPECT_EQ(info.notifications, (std::vector<std::string>{R"({"id":"one"})", R"({"id":"two"})"}));
}

TEST_F(Records, AFailureKeepsItsProgress) {
  manager_->createTask("a", kRetries);
  manager_->startTask("a", kRetries);
  manager_->setProgress("a", 42, "");
  manager_->failTask("a", R"({"@error":"x"})", kRetries);
  TaskInfo const info = Get("a");
  EXPECT_EQ(info.status, "FAILED");
  EXPECT_EQ(info.progressCompleted, 42);
  EXPECT_EQ(info.result, "");
  EXPECT_EQ(info.error, R"({"@error":"x"})");
  EXPECT_TRUE(std::regex_match(info.endTime, kTime));
}

TEST_F(Records, AFailureMayHaveAResultToo) {
  manager_->createTask("a", kRetries);
  manager_->startTask("a", kRetries);
  manager_->failTaskWithResult("a", "1", "2", kRetries);
  EXPECT_EQ(Get("a").status, "FAILED");
  EXPECT_EQ(Get("a").result, "1");
  EXPECT_EQ(Get("a").error, "2");
}

TEST_F(Records, ATaskThatEndsBeforeItWasStartedHasBothTimes) {
  manager_->createTask("a", kRetries);
  manager_->failTask("a", "1", kRetries);
  EXPECT_TRUE(std::regex_match(Get("a").startTime, kTime));
  EXPECT_EQ(Get("a").startTime, Get("a").endTime);
}

TEST_F(Records, TheLastEndHolds) {
  manager_->createTask("a", kRetries);
  Sql("UPDATE task SET error_id = 'com.x'; INSERT INTO error_argument VALUES ('a', 0, 'one')");
  EXPECT_EQ(Get("a").errorId, "com.x");
  EXPECT_EQ(Get("a").errorArgs, std::list<std::string>{"one"});
  manager_->failTaskWithResult("a", "1", "2", kRetries);
  manager_->completeTask("a", "3", kRetries);
  TaskInfo const info = Get("a");
  EXPECT_EQ(info.status, "SUCCEEDED");
  EXPECT_EQ(info.result, "3");
  EXPECT_EQ(info.error, "");
  EXPECT_EQ(info.errorId, "");
  EXPECT_TRUE(info.errorArgs.empty());
}

TEST_F(Records, ValuesKeepTheirBytes) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) {
    all += static_cast<char>(byte);
  }
  manager_->createTask("a", kRetries);
  for (std::string const& value :
       {""s, "null"s, "\"ä€😀\""s, "\x1f\x8b\x08\0gzip"s, "a\0b"s, all, std::string(2000000, 'x')}) {
    manager_->failTaskWithResult("a", value, value, kRetries);
    EXPECT_EQ(Get("a").result, value);
    EXPECT_EQ(Get("a").error, value);
  }
  manager_->addNotification("a", all);
  EXPECT_EQ(Get("a").notifications, std::vector<std::string>{all});
  EXPECT_EQ(manager_->list(kRetries).at("a").notifications, std::vector<std::string>{all});
}

TEST_F(Records, ListHasAllOfAllTasks) {
  for (int i = 0; i < 300; ++i) {
    std::string const id = "task-" + std::to_string(i);
    manager_->createNamedTask(id.c_str(), ("name " + std::to_string(i)).c_str(), kRetries);
    if (i % 3 == 0) {
      manager_->addNotification(id.c_str(), "1");
      manager_->addNotification(id.c_str(), "2");
    }
  }
  Sql("UPDATE task SET error_id = 'com.x' WHERE id = 'task-7';"
      "INSERT INTO error_argument VALUES ('task-7', 1, 'two'), ('task-7', 0, 'one'), ('nobody', 0, 'x');"
      "INSERT INTO notification VALUES ('nobody', 0, 'x')");
  std::map<std::string, TaskInfo> const tasks = manager_->list(kRetries);
  ASSERT_EQ(tasks.size(), 300U);
  for (auto const& [id, info] : tasks) {
    EXPECT_EQ(id, info.id);
    int const number = std::stoi(id.substr(5));
    EXPECT_EQ(info.name, "name " + std::to_string(number));
    EXPECT_EQ(info.notifications,
              number % 3 == 0 ? (std::vector<std::string>{"1", "2"}) : std::vector<std::string>{});
    EXPECT_EQ(info.errorArgs,
              number == 7 ? (std::list<std::string>{"one", "two"}) : std::list<std::string>{});
    TaskInfo const alone = Get(id.c_str());
    EXPECT_EQ(alone.lastUpdate, info.lastUpdate);
    EXPECT_EQ(alone.notifications, info.notifications);
    EXPECT_EQ(alone.errorArgs, info.errorArgs);
  }
}

TEST_F(Records, AForeignProgramsOddTextsAreGivenAsTheyAre) {
  Sql("INSERT INTO task (id, status, last_update, progress_completed) VALUES ('a', 'ODD', '', 2147483647)");
  EXPECT_EQ(Get("a").status, "ODD");
  EXPECT_EQ(Get("a").lastUpdate, "");
  EXPECT_EQ(Get("a").progressCompleted, 2147483647);
}

TEST_F(Records, GetOfAnUnknownIdLeavesTheRecordAlone) {
  TaskInfo info;
  info.name = "kept";
  EXPECT_FALSE(manager_->get("nobody", info, kRetries));
  EXPECT_EQ(info.name, "kept");
}

TEST_F(Records, AnUnknownIdIsARuntimeError) {
  manager_->createTask("a", kRetries);
  auto const expect = [](char const* what, std::function<void()> const& call) {
    try {
      call();
      ADD_FAILURE() << what;
    } catch (std::runtime_error const& failure) {
      EXPECT_STREQ(failure.what(), "no task \"nobody\"") << what;
    }
  };
  expect("start", [this] { manager_->startTask("nobody", kRetries); });
  expect("progress", [this] { manager_->setProgress("nobody", 1, ""); });
  expect("notification", [this] { manager_->addNotification("nobody", "1"); });
  expect("complete", [this] { manager_->completeTask("nobody", "1", kRetries); });
  expect("fail", [this] { manager_->failTask("nobody", "1", kRetries); });
  expect("fail with result", [this] { manager_->failTaskWithResult("nobody", "1", "1", kRetries); });
  EXPECT_EQ(manager_->list(kRetries).size(), 1U);
  EXPECT_EQ(Get("a").status, "PENDING") << "and the database works on";
  manager_->startTask("a", kRetries);
}

TEST_F(Records, AnIdIsTakenOnce) {
  manager_->createNamedTask("a", "first", kRetries);
  try {
    manager_->createNamedTask("a", "second", kRetries);
    ADD_FAILURE();
  } catch (std::runtime_error const& failure) {
    EXPECT_STREQ(failure.what(), "task \"a\" exists");
  }
  EXPECT_EQ(Get("a").name, "first");
}

TEST_F(Records, IdsAreTakenLetterForLetter) {
  for (char const* const id : {"", "a", "A", "a ", "'; DROP TABLE task; --", "%", "ä"}) {
    manager_->createTask(id, kRetries);
  }
  EXPECT_EQ(manager_->list(kRetries).size(), 7U);
  EXPECT_EQ(Get("A").id, "A");
}

TEST_F(Records, ManagersOfOnePathShareTheFile) {
  auto const other = TaskDB::TaskManager::FromPath(path_);
  other->createTask("a", kRetries);
  EXPECT_EQ(Get("a").status, "PENDING");
  manager_->startTask("a", kRetries);
  TaskInfo info;
  ASSERT_TRUE(other->get("a", info, kRetries));
  EXPECT_EQ(info.status, "RUNNING");
}

}  // namespace
