// What happens to and around the file.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <random>
#include <stdexcept>
#include <thread>

#include "taskdb_test_support.h"

namespace {

namespace fs = std::filesystem;
using LifeCycle::AccessLockError;
using LifeCycle::JsonParseError;
using LifeCycle::TaskFileNotFoundError;
using TaskDB::TaskInfo;
using TaskDB::TaskManager;

using Files = TaskDatabaseTest;

/// All operations on task "a" but init.
std::vector<std::function<void(TaskManager&)>> const kOperations{
    [](TaskManager& m) { m.list(5); },
    [](TaskManager& m) {
      TaskInfo info;
      m.get("a", info, 5);
    },
    [](TaskManager& m) { m.createTask("b", 5); },
    [](TaskManager& m) { m.createNamedTask("c", "x", 5); },
    [](TaskManager& m) { m.startTask("a", 5); },
    [](TaskManager& m) { m.setProgress("a", 1, ""); },
    [](TaskManager& m) { m.addNotification("a", "1"); },
    [](TaskManager& m) { m.completeTask("a", "1", 5); },
    [](TaskManager& m) { m.failTask("a", "1", 5); },
    [](TaskManager& m) { m.failTaskWithResult("a", "1", "1", 5); },
};

TEST_F(Files, AreForTheOwnerAlone) {
  manager_->createTask("a", kRetries);
  int count = 0;
  for (auto const& entry : fs::directory_iterator(folder_)) {
    struct stat status {};
    ASSERT_EQ(lstat(entry.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U) << entry.path();
    ++count;
  }
  EXPECT_EQ(count, 4) << "file, journal, index of the journal, reserve";
}

TEST_F(Files, AMissingFileIsToldByAllOperations) {
  for (bool const wasUsed : {true, false}) {
    for (auto const& operation : kOperations) {
      manager_->init();
      manager_->createTask("a", kRetries);
      auto const manager = wasUsed ? manager_ : TaskManager::FromPath(path_);
      fs::remove(path_);
      EXPECT_THROW(operation(*manager), TaskFileNotFoundError);
      EXPECT_FALSE(fs::exists(path_)) << "none is made";
    }
  }
  EXPECT_TRUE(slept_.empty()) << "no retry for what no retry helps";
}

TEST_F(Files, AMissingFolderIsAMissingFile) {
  fs::remove_all(folder_);
  for (auto const& operation : kOperations) {
    EXPECT_THROW(operation(*manager_), TaskFileNotFoundError);
  }
  EXPECT_THROW(TaskManager::FromPath("/dev/null/tasks.db")->list(5), TaskFileNotFoundError);
}

TEST_F(Files, InitAfterDeletionGivesAnEmptyDatabase) {
  manager_->createTask("a", kRetries);
  fs::remove(path_);
  ASSERT_TRUE(fs::exists(path_ + "-wal")) << "what the deletion left behind";
  TaskManager::FromPath(path_)->init();
  EXPECT_TRUE(manager_->list(kRetries).empty());
  manager_->createTask("a", kRetries);
  EXPECT_EQ(manager_->list(kRetries).size(), 1U);
}

TEST_F(Files, AFileThatWasReplacedIsNoticed) {
  manager_->createTask("a", kRetries);
  std::string const other = folder_ + "/other.db";
  auto const otherManager = TaskManager::FromPath(other);
  otherManager->init();
  otherManager->createTask("b", kRetries);
  SqliteCheckpoint(other);
  for (char const* const suffix : {"-wal", "-shm"}) {
    fs::remove(path_ + suffix);
  }
  fs::rename(other, path_);
  EXPECT_EQ(manager_->list(kRetries).count("b"), 1U);
  EXPECT_EQ(manager_->list(kRetries).count("a"), 0U);
}

TEST_F(Files, InitReplacesWhateverStandsThere) {
  std::string const target = folder_ + "/target";
  std::vector<std::pair<char const*, std::function<void()>>> const obstacles{
      {"a filled database", [this] { TaskManager::FromPath(path_)->createTask("a", kRetries); }},
      {"nothing", [this] { fs::remove(path_); }},
      {"an empty file", [this] { Write(path_, ""); }},
      {"random bytes", [this] { Write(path_, std::string(10000, '\x5a')); }},
      {"a folder", [this] { Folder(path_); }},
      {"folders at the journals",
       [this] {
         Folder(path_ + "-wal");
         Folder(path_ + "-shm");
         Folder(path_ + "-journal");
         Folder(path_ + "-reserve");
       }},
      {"journals of another file",
       [this] {
         Write(path_ + "-wal", Content(path_ + "-wal") + "junk");
         Write(path_ + "-journal", "junk");
         Write(path_ + "-shm", "junk");
       }},
      {"a link to a file",
       [&, this] {
         Write(target, "precious");
         fs::remove(path_);
         fs::create_symlink(target, path_);
       }},
      {"a link to nowhere",
       [this] {
         fs::remove(path_);
         fs::create_symlink("/nonexistent/x", path_);
       }},
      {"links at the journals",
       [&, this] {
         for (char const* const suffix : {"-wal", "-shm", "-journal", "-reserve"}) {
           fs::remove_all(path_ + suffix);
           fs::create_symlink(target, path_ + suffix);
         }
       }},
      {"a FIFO",
       [this] {
         fs::remove(path_);
         ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
       }},
      {"what a dead init left",
       [this] {
         Write(path_ + ".new", "junk");
         Write(path_ + ".new-wal", "junk");
       }},
  };
  for (auto const& [what, place] : obstacles) {
    SCOPED_TRACE(what);
    place();
    manager_->init();
    EXPECT_TRUE(manager_->list(kRetries).empty());
    manager_->createTask("a", kRetries);
    EXPECT_EQ(Get("a").status, "PENDING");
    struct stat status {};
    ASSERT_EQ(lstat(path_.c_str(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_FALSE(fs::exists(path_ + ".new"));
    EXPECT_FALSE(fs::exists(path_ + ".new-wal"));
  }
  EXPECT_EQ(Content(target), "precious") << "links are replaced, not followed";
}

TEST_F(Files, InitMakesMissingFolders) {
  std::string const deep = folder_ + "/a/b/tasks.db";
  auto const manager = TaskManager::FromPath(deep);
  manager->init();
  EXPECT_TRUE(manager->list(kRetries).empty());
}

TEST_F(Files, InitRefusesAFolderThatOthersCanWriteTo) {
  for (mode_t const mode : {0777, 0757, 01777}) {
    ASSERT_EQ(chmod(folder_.c_str(), mode), 0);
    try {
      manager_->init();
      ADD_FAILURE() << std::oct << mode;
    } catch (std::runtime_error const& failure) {
      EXPECT_EQ(failure.what(),
                "cannot create the task database \"" + path_ + "\": others can write to its folder");
    }
  }
  ASSERT_EQ(chmod(folder_.c_str(), 0755), 0);
  manager_->init();
  if (geteuid() == 0) {
    ASSERT_EQ(chown(folder_.c_str(), 65534, 0), 0);
    EXPECT_THROW(manager_->init(), std::runtime_error) << "another's folder";
    ASSERT_EQ(chown(folder_.c_str(), 0, 65534), 0);
    manager_->init();
    ASSERT_EQ(chmod(folder_.c_str(), 0775), 0);
    EXPECT_THROW(manager_->init(), std::runtime_error) << "another group's";
  }
}

TEST_F(Files, InitThatCannotSaysWhy) {
  auto const manager = TaskManager::FromPath("/proc/tasks.db");
  try {
    manager->init();
    ADD_FAILURE();
  } catch (std::runtime_error const& failure) {
    EXPECT_NE(std::string(failure.what()).find("cannot create the task database \"/proc/tasks.db\": "),
              std::string::npos)
        << failure.what();
  }
}

TEST_F(Files, ForeignFilesAreNotReadable) {
  std::string const good = [this] {
    manager_->createTask("a", kRetries);
    SqliteCheckpoint(path_);
    return Content(path_);
  }();
  std::vector<std::pair<char const*, std::function<void()>>> const obstacles{
      {"an empty file", [this] { Write(path_, ""); }},
      {"text", [this] { Write(path_, "{\"tasks\":{}}"); }},
      {"random bytes", [this] { Write(path_, std::string(50000, '\xa5')); }},
      {"one page of zeros", [this] { Write(path_, std::string(4096, '\0')); }},
      {"another program's database",
       [this] { SqlOn(path_, "CREATE TABLE task (id); INSERT INTO task VALUES ('a')"); }},
      {"a version to come",
       [&, this] {
         Write(path_, good);
         SqlOn(path_, "PRAGMA user_version = 2");
       }},
      {"without a version",
       [&, this] {
         Write(path_, good);
         SqlOn(path_, "PRAGMA user_version = 0");
       }},
      {"without our mark",
       [&, this] {
         Write(path_, good);
         SqlOn(path_, "PRAGMA application_id = 0");
       }},
      {"our mark, no tables",
       [this] { SqlOn(path_, "PRAGMA application_id = 0x4b45454c; PRAGMA user_version = 1"); }},
      {"our mark, other tables",
       [this] {
         SqlOn(path_,
               "PRAGMA application_id = 0x4b45454c; PRAGMA user_version = 1; CREATE TABLE task (id); "
               "CREATE TABLE notification (x); CREATE TABLE error_argument (x)");
       }},
      {"a folder", [this] { Folder(path_); }},
      {"a link", [this] { fs::create_symlink("/etc/passwd", path_); }},
  };
  for (auto const& [what, place] : obstacles) {
    for (std::size_t i = 0; i < kOperations.size(); ++i) {
      SCOPED_TRACE(std::string(what) + ", operation " + std::to_string(i));
      RemoveDatabase();
      place();
      EXPECT_THROW(kOperations[i](*manager_), JsonParseError);
    }
  }
  RemoveDatabase();
  manager_->init();
  manager_->createTask("a", kRetries);
}

TEST_F(Files, ATruncatedFileNeverMisleads) {
  for (int i = 0; i < 200; ++i) {
    manager_->createNamedTask(("task-" + std::to_string(i)).c_str(), std::string(300, 'n').c_str(), kRetries);
  }
  SqliteCheckpoint(path_);
  std::string const good = Content(path_);
  ASSERT_GT(good.size(), 40000U);
  std::size_t unreadable = 0;
  for (std::size_t size = 0; size < good.size(); size += size % 4096 == 0 ? 100 : 4096 - 100) {
    RemoveDatabase();
    Write(path_, good.substr(0, size));
    try {
      // A page that only speeds up the search is not missed here.
      EXPECT_EQ(manager_->list(kRetries).size(), 200U) << size;
      EXPECT_GT(size, good.size() / 2);
    } catch (JsonParseError const&) {
      ++unreadable;
    }
  }
  EXPECT_GT(unreadable, good.size() / 4096);
  RemoveDatabase();
  Write(path_, good);
  EXPECT_EQ(manager_->list(kRetries).size(), 200U);
}

/// Any page may be overwritten: the records come whole or not at all, and the process lives.
TEST_F(Files, OverwrittenBytesAreSurvived) {
  for (int i = 0; i < 50; ++i) {
    std::string const id = "task-" + std::to_string(i);
    manager_->createNamedTask(id.c_str(), std::string(100, 'n').c_str(), kRetries);
    manager_->addNotification(id.c_str(), std::string(50, '1'));
  }
  SqliteCheckpoint(path_);
  std::string const good = Content(path_);
  std::mt19937 random(11);
  int unreadable = 0;
  for (int round = 0; round < 100; ++round) {
    std::string bad = good;
    std::size_t const length = 1 + random() % 200;
    std::size_t const place = random() % (bad.size() - length);
    for (std::size_t i = 0; i < length; ++i) {
      bad[place + i] = static_cast<char>(random());
    }
    RemoveDatabase();
    Write(path_, bad);
    for (auto const& operation : kOperations) {
      try {
        operation(*manager_);
      } catch (JsonParseError const&) {
        ++unreadable;
      } catch (AccessLockError const&) {
      } catch (std::runtime_error const&) {
      }
    }
  }
  EXPECT_GT(unreadable, 0);
  manager_->init();
  EXPECT_TRUE(manager_->list(kRetries).empty());
}

TEST_F(Files, TheReserveIsThereAndComesBack) {
  std::string const reserve = path_ + "-reserve";
  ASSERT_TRUE(fs::exists(reserve));
  EXPECT_EQ(fs::file_size(reserve), 1024U * 1024);
  struct stat status {};
  ASSERT_EQ(stat(reserve.c_str(), &status), 0);
  EXPECT_GE(status.st_blocks * 512, 1024 * 1024) << "allocated, not only long";
  fs::remove(reserve);
  manager_->createTask("a", kRetries);
  EXPECT_EQ(fs::file_size(reserve), 1024U * 1024);
  Write(reserve, "cut short");
  manager_->startTask("a", kRetries);
  EXPECT_EQ(fs::file_size(reserve), 1024U * 1024);
}

TEST_F(Files, NoDescriptorIsLeftOpen) {
  auto const count = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  manager_->createTask("a", kRetries);
  auto const before = count();
  for (int i = 0; i < 50; ++i) {
    for (auto const& operation : kOperations) {
      try {
        operation(*manager_);
      } catch (std::runtime_error const&) {
      }
    }
    manager_->init();
    manager_->createTask("a", kRetries);
  }
  EXPECT_EQ(count(), before);
}

}  // namespace
