#include "tasks/access_lock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "libc_seams.h"

namespace {

using LifeCycle::AccessLock;
using LifeCycle::AccessLockError;
using testing::ElementsAre;

static_assert(std::is_base_of_v<std::exception, AccessLockError>);
static_assert(!std::is_copy_constructible_v<AccessLock> && !std::is_copy_assignable_v<AccessLock>);

/// SHA-256 of "/x/lifecycle.task", computed with sha256sum.
char const* const kPath = "/x/lifecycle.task";
char const* const kName = "/com/orbane/f0b4120415fcc4554a547b29fc40ec80137756fc01c77baaa7d783a3a86432ce";

/// As the log has it.
std::string const kSocket = std::string("{") + kName + "}";

/// A path that no test running beside this one uses.
std::string OwnPath(std::string const& name) {
  return "/nowhere/" + name + std::to_string(::getpid());
}

/// The sleeps asked for, none of them slept.
struct Sleeps {
  std::vector<std::chrono::seconds> asked;
  std::function<void()> onSleep = [] {};
  LifeCycle::SleepFunction function() {
    return [this](std::chrono::seconds time) {
      asked.push_back(time);
      onSleep();
    };
  }
};

/// The errno of the failed construction; 0 when it succeeded.
int ErrorOf(std::string const& path, int retries, Sleeps& sleeps) {
  try {
    AccessLock const lock(path, retries, sleeps.function());
  } catch (AccessLockError const& error) {
    EXPECT_STREQ(error.what(), std::strerror(error.error()));
    return error.error();
  }
  return 0;
}

class AccessLockTest : public testing::Test {
 protected:
  void SetUp() override { LibcSeams::TakeSyslog(); }
  void TearDown() override {
    LibcSeams::FailSocket({});
    LibcSeams::FailBind({});
    LibcSeams::FailClose({});
  }
  /// Asks for the lock at kPath with 5 retries; it must be given up after the first attempt, whose lines of
  /// the log are `attempt`.
  void ExpectGivenUpAtOnce(int error, std::vector<std::string> const& attempt) {
    EXPECT_EQ(ErrorOf(kPath, 5, sleeps_), error);
    EXPECT_TRUE(sleeps_.asked.empty());
    std::string const reason = kSocket + ", count{0/5}: {" + std::strerror(error) + "}";
    std::vector<std::string> lines{"info [AccessLock]: Create lock with retry count{5}"};
    lines.insert(lines.end(), attempt.begin(), attempt.end());
    lines.push_back("err [AccessLock]: Acquiring lock failed on socket" + reason);
    lines.push_back("err [AccessLock]: Giving up on acquiring lock" + reason);
    EXPECT_EQ(LibcSeams::TakeSyslog(), lines);
  }

  Sleeps sleeps_;
};

TEST_F(AccessLockTest, NameIsDigestOfPathInAbstractNameSpace) {
  { AccessLock const lock(kPath, 0); }
  std::string const address = LibcSeams::LastAddress();
  ASSERT_EQ(address.size(), 76U + 3U);
  EXPECT_EQ(address.substr(2), std::string(1, '\0') + kName);
}

TEST_F(AccessLockTest, RelativePathCountsFromCurrentDirectoryUnnormalised) {
  ASSERT_EQ(::chdir("/"), 0);
  { AccessLock const lock("x/lifecycle.task", 0); }
  EXPECT_EQ(LibcSeams::LastAddress().substr(3), kName);
  { AccessLock const lock("/x/./lifecycle.task", 0); }
  EXPECT_NE(LibcSeams::LastAddress().substr(3), kName);
}

TEST_F(AccessLockTest, AcquiredAtOnce) {
  { AccessLock const lock(kPath, 3, sleeps_.function()); }
  EXPECT_THAT(
      LibcSeams::TakeSyslog(),
      ElementsAre("info [AccessLock]: Create lock with retry count{3}",
                  std::string("info [AccessLock]: Lock acquired on socket{") + kName + "}, count{0/3}"));
  EXPECT_TRUE(sleeps_.asked.empty());
}

TEST_F(AccessLockTest, SecondHolderInOneProcessIsRefused) {
  std::string const path = OwnPath("second");
  AccessLock const holder(path, 0);
  EXPECT_EQ(ErrorOf(path, 0, sleeps_), EADDRINUSE);
  EXPECT_TRUE(sleeps_.asked.empty());
}

TEST_F(AccessLockTest, PathNeedsNoFile) {
  std::string const path = OwnPath("missing/directory");
  EXPECT_EQ(ErrorOf(path, 0, sleeps_), 0);
  EXPECT_NE(::access(path.c_str(), F_OK), 0);
}

TEST_F(AccessLockTest, FreeAgainAfterDestruction) {
  std::string const path = OwnPath("free");
  { AccessLock const lock(path, 0); }
  EXPECT_EQ(ErrorOf(path, 0, sleeps_), 0);
}

TEST_F(AccessLockTest, HolderThatStays) {
  AccessLock const holder(kPath, 0);
  LibcSeams::TakeSyslog();
  EXPECT_EQ(ErrorOf(kPath, 2, sleeps_), EADDRINUSE);
  EXPECT_THAT(sleeps_.asked, ElementsAre(std::chrono::seconds(1), std::chrono::seconds(1)));
  EXPECT_THAT(
      LibcSeams::TakeSyslog(),
      ElementsAre(
          "info [AccessLock]: Create lock with retry count{2}",
          "err [AccessLock]: Failed to bind socket" + kSocket + ": {Address already in use}",
          "info [AccessLock]: socket" + kSocket + " closed",
          "err [AccessLock]: Acquiring lock failed on socket" + kSocket +
              ", count{0/2}: {Address already in use}",
          "err [AccessLock]: Sleeping for a second and retrying to acquire lock" + kSocket + ", count{1/2}",
          "err [AccessLock]: Failed to bind socket" + kSocket + ": {Address already in use}",
          "info [AccessLock]: socket" + kSocket + " closed",
          "err [AccessLock]: Acquiring lock failed on socket" + kSocket +
              ", count{1/2}: {Address already in use}",
          "err [AccessLock]: Sleeping for a second and retrying to acquire lock" + kSocket + ", count{2/2}",
          "err [AccessLock]: Failed to bind socket" + kSocket + ": {Address already in use}",
          "info [AccessLock]: socket" + kSocket + " closed",
          "err [AccessLock]: Acquiring lock failed on socket" + kSocket +
              ", count{2/2}: {Address already in use}",
          "err [AccessLock]: Giving up on acquiring lock" + kSocket +
              ", count{2/2}: {Address already in use}"));
}

TEST_F(AccessLockTest, HolderThatLeavesAfterOneSecond) {
  auto holder = std::make_unique<AccessLock>(kPath, 0);
  LibcSeams::TakeSyslog();
  sleeps_.onSleep = [&holder] { holder.reset(); };
  EXPECT_EQ(ErrorOf(kPath, 2, sleeps_), 0);
  EXPECT_EQ(sleeps_.asked.size(), 1U);
  EXPECT_EQ(LibcSeams::TakeSyslog().back(),
            std::string("info [AccessLock]: Lock acquired on socket{") + kName + "}, count{1/2}");
}

TEST_F(AccessLockTest, LineOfTheSleepComesAfterIt) {
  AccessLock const holder(kPath, 0);
  std::vector<std::string> before;
  sleeps_.onSleep = [&before] { before = LibcSeams::TakeSyslog(); };
  ErrorOf(kPath, 1, sleeps_);
  EXPECT_THAT(before.back(), testing::HasSubstr("Acquiring lock failed"));
  EXPECT_THAT(LibcSeams::TakeSyslog().front(), testing::HasSubstr("Sleeping for a second"));
}

TEST_F(AccessLockTest, FreeAgainAfterHolderIsKilled) {
  std::string const path = OwnPath("killed");
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  pid_t const child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    AccessLock const lock(path, 0);
    static_cast<void>(!::write(ready[1], "x", 1));
    for (;;) {
      ::pause();
    }
  }
  char byte = 0;
  ASSERT_EQ(::read(ready[0], &byte, 1), 1);
  EXPECT_EQ(ErrorOf(path, 0, sleeps_), EADDRINUSE);
  ASSERT_EQ(::kill(child, SIGKILL), 0);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_EQ(ErrorOf(path, 0, sleeps_), 0);
  ::close(ready[0]);
  ::close(ready[1]);
}

TEST_F(AccessLockTest, NoSocket) {
  LibcSeams::FailSocket({EMFILE});
  ExpectGivenUpAtOnce(EMFILE,
                      {"err [AccessLock]: Failed to create socket" + kSocket + ": {Too many open files}"});
}

TEST_F(AccessLockTest, OtherBindErrorIsNotRetried) {
  LibcSeams::FailBind({EACCES});
  ExpectGivenUpAtOnce(EACCES, {"err [AccessLock]: Failed to bind socket" + kSocket + ": {Permission denied}",
                               "info [AccessLock]: socket" + kSocket + " closed"});
}

TEST_F(AccessLockTest, CloseIsRepeatedWhenInterrupted) {
  LibcSeams::FailBind({EADDRINUSE});
  LibcSeams::FailClose({EINTR, EINTR});
  EXPECT_EQ(ErrorOf(kPath, 1, sleeps_), 0);
  EXPECT_EQ(sleeps_.asked.size(), 1U);
}

TEST_F(AccessLockTest, FailedCloseReplacesTheErrorOfBind) {
  LibcSeams::FailBind({EADDRINUSE});
  LibcSeams::FailClose({EIO});
  ExpectGivenUpAtOnce(EIO,
                      {"err [AccessLock]: Failed to bind socket" + kSocket + ": {Address already in use}"});
}

TEST_F(AccessLockTest, DestructorThrowsWhenCloseFails) {
  int error = 0;
  try {
    AccessLock const lock(kPath, 0);
    LibcSeams::FailClose({EINTR, EIO});
  } catch (AccessLockError const& e) {
    error = e.error();
  }
  EXPECT_EQ(error, EIO);
}

TEST_F(AccessLockTest, NegativeRetryCountGivesUpAfterOneAttempt) {
  std::string const path = OwnPath("negative");
  AccessLock const holder(path, 0);
  EXPECT_EQ(ErrorOf(path, -1, sleeps_), EADDRINUSE);
  EXPECT_TRUE(sleeps_.asked.empty());
}

TEST_F(AccessLockTest, OneOfManyThreadsHolds) {
  std::string const path = OwnPath("threads");
  std::atomic<int> inside{0};
  std::atomic<int> acquired{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 200; ++round) {
        try {
          AccessLock const lock(path, 0);
          EXPECT_EQ(inside.fetch_add(1), 0);
          inside.fetch_sub(1);
          ++acquired;
        } catch (AccessLockError const&) {
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_GT(acquired, 0);
}

}  // namespace
