// Several users of one file.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "taskdb_test_support.h"

namespace {

namespace fs = std::filesystem;
using LifeCycle::AccessLockError;
using TaskDB::TaskInfo;
using TaskDB::TaskManager;
using namespace std::chrono_literals;

/// Another user's open transaction.
class Transaction {
 public:
  explicit Transaction(std::string const& path) {
    EXPECT_EQ(sqlite3_open(path.c_str(), &database_), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  }
  ~Transaction() { End(); }
  Transaction(Transaction const&) = delete;
  Transaction& operator=(Transaction const&) = delete;
  void End() {
    if (database_ != nullptr) {
      sqlite3_exec(database_, "COMMIT", nullptr, nullptr, nullptr);
      sqlite3_close(database_);
      database_ = nullptr;
    }
  }

 private:
  sqlite3* database_ = nullptr;
};

using Locks = TaskDatabaseTest;

TEST_F(Locks, AWriterTriesAsOftenAsToldTwoHundredMillisecondsApart) {
  manager_->createTask("a", kRetries);
  Transaction const other(path_);
  for (int const retries : {5, 2, 1, 0, -1}) {
    slept_.clear();
    EXPECT_THROW(manager_->startTask("a", retries), AccessLockError) << retries;
    std::size_t const sleeps = retries > 0 ? static_cast<std::size_t>(retries) - 1 : 0;
    EXPECT_EQ(slept_, std::vector<std::chrono::milliseconds>(sleeps, 200ms)) << retries;
  }
  slept_.clear();
  EXPECT_THROW(manager_->setProgress("a", 1, ""), AccessLockError);
  EXPECT_EQ(slept_.size(), 4U) << "five tries where the caller gives no count";
}

TEST_F(Locks, TheErrorSaysWhy) {
  manager_->createTask("a", kRetries);
  Transaction const other(path_);
  try {
    manager_->startTask("a", 1);
    ADD_FAILURE();
  } catch (AccessLockError const& failure) {
    EXPECT_EQ(failure.error(), EWOULDBLOCK);
    EXPECT_STREQ(failure.what(), "Resource temporarily unavailable");
  }
}

TEST_F(Locks, ATryThatComesThroughIsEnough) {
  manager_->createTask("a", kRetries);
  Transaction other(path_);
  whileSleeping_ = [this, &other] {
    if (slept_.size() == 4) {
      other.End();
    }
  };
  manager_->startTask("a", 5);
  EXPECT_EQ(slept_.size(), 4U);
  EXPECT_EQ(Get("a").status, "RUNNING");
}

TEST_F(Locks, ReadersDoNotWaitForAWriter) {
  manager_->createTask("a", kRetries);
  Transaction const other(path_);
  EXPECT_EQ(Get("a").status, "PENDING");
  EXPECT_EQ(manager_->list(1).size(), 1U);
  EXPECT_TRUE(slept_.empty());
}

TEST_F(Locks, WhileInitIsAtWorkUsersTryAgain) {
  manager_->createTask("a", kRetries);
  int const folder = open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(flock(folder, LOCK_EX), 0);
  EXPECT_THROW(manager_->list(3), AccessLockError);
  EXPECT_EQ(slept_.size(), 2U);
  EXPECT_THROW(TaskManager::FromPath(path_, [](auto) {})->createTask("b", 2), AccessLockError);
  whileSleeping_ = [folder] { flock(folder, LOCK_UN); };
  EXPECT_EQ(manager_->list(2).size(), 1U);
  close(folder);
}

TEST_F(Locks, InitWaitsForUsers) {
  int const folder = open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(flock(folder, LOCK_SH), 0);
  std::atomic<bool> done{false};
  std::thread initialiser([this, &done] {
    manager_->init();
    done = true;
  });
  // It can't be done before the lock is gone: the file is still the old one.
  struct stat before {};
  ASSERT_EQ(stat(path_.c_str(), &before), 0);
  for (int i = 0; i < 50; ++i) {
    struct stat now {};
    ASSERT_EQ(stat(path_.c_str(), &now), 0);
    ASSERT_EQ(now.st_ino, before.st_ino);
    ASSERT_FALSE(done);
    std::this_thread::yield();
  }
  flock(folder, LOCK_UN);
  initialiser.join();
  close(folder);
  EXPECT_TRUE(manager_->list(kRetries).empty());
}

TEST_F(Locks, ThreadsShareTheFile) {
  constexpr int kThreads = 6;
  constexpr int kTasks = 60;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([this, t] {
      auto const own = TaskManager::FromPath(path_);
      for (int i = 0; i < kTasks; ++i) {
        std::string const id = std::to_string(t) + "-" + std::to_string(i);
        own->createTask(id.c_str(), 50);
        own->startTask(id.c_str(), 50);
        own->completeTask(id.c_str(), "1", 50);
        TaskInfo info;
        EXPECT_TRUE(own->get(id.c_str(), info, 50));
        EXPECT_EQ(info.status, "SUCCEEDED");
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(manager_->list(kRetries).size(), static_cast<std::size_t>(kThreads * kTasks));
}

TEST_F(Locks, InitAmongBusyThreadsLeavesAUsableDatabase) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([this, t, &stop] {
      auto const own = TaskManager::FromPath(path_);
      for (int i = 0; !stop; ++i) {
        std::string const id = std::to_string(t) + "-" + std::to_string(i);
        try {
          own->createTask(id.c_str(), 50);
          own->completeTask(id.c_str(), "1", 50);
        } catch (LifeCycle::TaskFileNotFoundError const&) {  // replaced at this moment
        } catch (std::runtime_error const& failure) {
          EXPECT_EQ(std::string(failure.what()).find("no task"), 0U) << failure.what();
        }
      }
    });
  }
  for (int i = 0; i < 30; ++i) {
    manager_->init();
    manager_->list(50);
  }
  stop = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  manager_->init();
  EXPECT_TRUE(manager_->list(kRetries).empty());
  Sql("PRAGMA integrity_check");
}

TEST_F(Locks, AForkedChildUsesTheFileLikeAnyOther) {
  manager_->createTask("parent", kRetries);
  pid_t const child = fork();
  if (child == 0) {
    try {
      manager_->createTask("child", 50);
      manager_->startTask("parent", 50);
      _exit(manager_->list(50).size() == 2 ? 0 : 1);
    } catch (std::exception const& failure) {
      std::fprintf(stderr, "%s\n", failure.what());
      _exit(2);
    }
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Get("child").status, "PENDING");
  EXPECT_EQ(Get("parent").status, "RUNNING");
}

/// A child must not keep or drop locks of the parent, whatever it does and however it ends.
TEST_F(Locks, ForksWhileOthersWork) {
  std::atomic<bool> stop{false};
  std::thread worker([this, &stop] {
    for (int i = 0; !stop; ++i) {
      manager_->createTask(("w-" + std::to_string(i)).c_str(), 50);
    }
  });
  for (int i = 0; i < 20; ++i) {
    pid_t const child = fork();
    if (child == 0) {
      try {
        manager_->createTask(("c-" + std::to_string(i)).c_str(), 50);
        _exit(0);
      } catch (std::exception const& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        _exit(1);
      }
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  stop = true;
  worker.join();
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(Get(("c-" + std::to_string(i)).c_str()).status, "PENDING");
  }
}

}  // namespace
