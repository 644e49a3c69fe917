// Runs in the sandbox: lines go through the real system log. An output can stand once in a process, so this
// is one test a process state; the order within each matters.
#include "platform/logging/logging.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

using std::chrono::steady_clock;

constexpr char kLogFile[] = "/var/log/keeld.log";

/// Lines of the log file that hold `part`.
std::vector<std::string> LinesWith(std::string const& part) {
  std::vector<std::string> lines;
  std::ifstream file(kLogFile);
  for (std::string line; std::getline(file, line);) {
    if (line.find(part) != std::string::npos) {
      lines.push_back(line);
    }
  }
  return lines;
}

/// Waits until the log file has `count` of them.
std::vector<std::string> AwaitLinesWith(std::string const& part, std::size_t count = 1) {
  auto const end = steady_clock::now() + std::chrono::seconds(30);
  std::vector<std::string> lines = LinesWith(part);
  while (lines.size() < count && steady_clock::now() < end) {
    std::this_thread::yield();
    lines = LinesWith(part);
  }
  return lines;
}

bool EndsWith(std::string const& text, std::string const& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

LogOutput* NewOutput() {
  return Log_NewSyslogOutput("keeld", "syslog", 0, Log_CfgInterface());
}

/// Does `work` in a forked process; gives its wait status.
int InProcess(std::function<void()> const& work) {
  pid_t const pid = fork();
  if (pid == 0) {
    work();
    std::exit(0);
  }
  int status = -1;
  waitpid(pid, &status, 0);
  return status;
}

TEST(SystemLog, PrioritiesAreSeveritiesOfDaemon) {
  EXPECT_EQ(InProcess([] {
              Log_AddOutput(NewOutput());
              for (int priority = 0; priority <= 4; ++priority) {
                CSLogger::Log(priority, "severity-test %d", priority);
              }
            }),
            0)
      << "and the lines left before the process ended";
  std::vector<std::string> const lines = AwaitLinesWith("severity-test", 5);
  ASSERT_EQ(lines.size(), 5U);
  constexpr char const* kSeverities[] = {"daemon.err", "daemon.warning", "daemon.notice", "daemon.info",
                                         "daemon.debug"};
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_NE(lines[i].find(kSeverities[i]), std::string::npos) << lines[i];
    EXPECT_TRUE(EndsWith(lines[i], "]: severity-test " + std::to_string(i))) << lines[i];
    EXPECT_NE(lines[i].find(" keeld["), std::string::npos) << lines[i];
  }
}

TEST(SystemLog, OutputsAreAddedOnce) {
  EXPECT_EQ(InProcess([] {
              if (Log_IsEnabled(0)) {
                _exit(1);
              }
              LogOutput* const first = NewOutput();
              Log_SetOutputLevel(first, 5);
              if (Log_IsEnabled(0) || !Log_AddOutput(first)) {
                _exit(2);
              }
              LogOutput* const second = NewOutput();
              if (Log_AddOutput(second) || Log_AddOutput(nullptr)) {
                _exit(3);
              }
              Log_FreeOutput(second);
              if (!Log_IsEnabled(5) || Log_IsEnabled(6)) {
                _exit(4);
              }
              CSLogger::Log(3, "level-test shut out");
              CSLogger::Log(2, "level-test one");
              Log_SetOutputLevel(first, 7);
              CSLogger::Log(4, "level-test two");
            }),
            0);
  std::vector<std::string> const lines = AwaitLinesWith("level-test", 2);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_TRUE(EndsWith(lines[0], "level-test one"));
  EXPECT_TRUE(EndsWith(lines[1], "level-test two"));
}

TEST(SystemLog, OneCallIsOneLineWithContext) {
  EXPECT_EQ(InProcess([] {
              Log_AddOutput(NewOutput());
              CSLogger::CurrentContext["opId"] = "nightly-42";
              CSLogger::Log(2, "%s", "form-test a\n<27>Jan  1 00:00:00 keeld[1]: forged\n");
            }),
            0);
  std::vector<std::string> const lines = AwaitLinesWith("form-test");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_TRUE(EndsWith(lines[0], "]: [opId=nightly-42] form-test a#012<27>Jan  1 00:00:00 keeld[1]: forged"))
      << lines[0];
  EXPECT_EQ(LinesWith("forged").size(), 1U);
}

TEST(SystemLog, PanicIsLoggedBeforeTheEnd) {
  int const status = InProcess([] {
    Log_AddOutput(NewOutput());
    CSLogger::Log(2, "panic-test before");
    Panic("panic-test VERIFY %s:%d\n", "file.cpp", 7);
  });
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGABRT);
  std::vector<std::string> const lines = AwaitLinesWith("panic-test", 2);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_TRUE(EndsWith(lines[0], "panic-test before"));
  EXPECT_NE(lines[1].find("daemon.err"), std::string::npos);
  EXPECT_TRUE(EndsWith(lines[1], "panic-test VERIFY file.cpp:7"));
}

TEST(SystemLog, AForkedChildLogsUnderItsOwnPid) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "a sanitizer's own locks may be held at the fork, and a child's thread then waits for ever";
#endif
  EXPECT_EQ(InProcess([] {
              Log_AddOutput(NewOutput());
              CSLogger::Log(2, "fork-test parent %d", getpid());
              pid_t const child = fork();
              CSLogger::Log(2, "fork-test after %d", getpid());
              if (child != 0) {
                waitpid(child, nullptr, 0);
              }
            }),
            0);
  std::vector<std::string> const lines = AwaitLinesWith("fork-test", 3);
  ASSERT_EQ(lines.size(), 3U);
  for (std::string const& line : lines) {
    std::string const pid = line.substr(line.rfind(' ') + 1);
    EXPECT_NE(line.find("keeld[" + pid + "]: "), std::string::npos) << line;
  }
}

}  // namespace
