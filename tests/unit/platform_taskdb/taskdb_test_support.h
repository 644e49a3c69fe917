// A throw-away folder with a database in it.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "platform/taskdb/task_manager.h"

class TaskDatabaseTest : public ::testing::Test {
 protected:
  static constexpr int kRetries = 5;

  void SetUp() override {
    char name[] = "/tmp/taskdb-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder_ = name;
    path_ = folder_ + "/tasks.db";
    manager_ = TaskDB::TaskManager::FromPath(path_, [this](std::chrono::milliseconds time) {
      slept_.push_back(time);
      if (whileSleeping_) {
        whileSleeping_();
      }
    });
    manager_->init();
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  TaskDB::TaskInfo Get(char const* id) {
    TaskDB::TaskInfo info;
    EXPECT_TRUE(manager_->get(id, info, kRetries)) << id;
    return info;
  }
  /// Does SQL on the file by other means, as a foreign program would.
  void Sql(std::string const& sql) const { SqlOn(path_, sql); }
  static void SqlOn(std::string const& path, std::string const& sql) {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
    char* text = nullptr;
    EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, &text), SQLITE_OK) << text;
    sqlite3_free(text);
    sqlite3_close(database);
  }
  /// Puts the journal into the file, so that the file alone holds all.
  static void SqliteCheckpoint(std::string const& path) { SqlOn(path, "PRAGMA wal_checkpoint(TRUNCATE)"); }
  void RemoveDatabase() const {
    for (char const* const suffix : {"-journal", "-wal", "-shm", "-reserve", ""}) {
      std::filesystem::remove_all(path_ + suffix);
    }
  }
  /// A folder with something in it, in the place of whatever is at `path`.
  static void Folder(std::string const& path) {
    std::filesystem::remove_all(path);
    std::filesystem::create_directories(path + "/inside");
  }
  static std::string Content(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }
  static void Write(std::string const& path, std::string const& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
  }

  std::string folder_;
  std::string path_;
  std::shared_ptr<TaskDB::TaskManager> manager_;
  std::vector<std::chrono::milliseconds> slept_;
  std::function<void()> whileSleeping_;
};
