// Runs in the sandbox: events go through the real system log. An output can stand once in a process.
#include "platform/audit/audit.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <thread>
#include <vector>

#include "platform/audit/test_only_audit_capture.h"
#include "platform/logging/logging.h"

namespace {

using std::chrono::steady_clock;

constexpr char kAuditFile[] = "/var/log/auth.log";
constexpr char kLogFile[] = "/var/log/keeld.log";

std::vector<std::string> LinesWith(char const* path, std::string const& part) {
  std::vector<std::string> lines;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.find(part) != std::string::npos) {
      lines.push_back(line);
    }
  }
  return lines;
}

/// Waits until the audit file has `count` lines with `part`.
std::vector<std::string> Await(std::string const& part, std::size_t count) {
  auto const end = steady_clock::now() + std::chrono::seconds(30);
  std::vector<std::string> lines = LinesWith(kAuditFile, part);
  while (lines.size() < count && steady_clock::now() < end) {
    std::this_thread::yield();
    lines = LinesWith(kAuditFile, part);
  }
  return lines;
}

/// Does `work` in a forked process with a log output of that level; true when it ended well.
bool InProcess(int level, std::function<void()> const& work) {
  pid_t const pid = fork();
  if (pid == 0) {
    LogOutput* const output = Log_NewSyslogOutput("keeld", "syslog", 0, Log_CfgInterface());
    Log_SetOutputLevel(output, level);
    Log_AddOutput(output);
    work();
    std::exit(0);
  }
  int status = -1;
  waitpid(pid, &status, 0);
  return status == 0;
}

TEST(AuditLog, EventsAreLinesOfAuthpriv) {
  ASSERT_TRUE(InProcess(7, [] {
    CSLogger::CurrentContext["opId"] = "nightly-42";
    OrbAuditItem const items[] = {{"ip", "::1"}, {nullptr, nullptr}};
    OrbAudit_LogList("form.test", "alice", "one", true, items);
    OrbAudit_LogList("form.test", "mallory", "two\n<85>forged", false, nullptr);
  }));
  std::vector<std::string> const lines = Await("form.test", 2);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_NE(lines[0].find(" authpriv.notice keeld["), std::string::npos) << lines[0];
  EXPECT_TRUE(lines[0].ends_with(
      R"(]: {"event":"form.test","subject":"alice","object":"one","result":true,"items":{"ip":"::1"}})"))
      << lines[0];
  EXPECT_NE(lines[1].find(" authpriv.warning keeld["), std::string::npos) << lines[1];
  EXPECT_TRUE(lines[1].ends_with(
      R"(]: {"event":"form.test","subject":"mallory","object":"two\u000a<85>forged","result":false,"items":{}})"))
      << lines[1];
  EXPECT_EQ(LinesWith(kLogFile, "form.test").size(), 0U) << "kept apart from the daemon's lines";
}

TEST(AuditLog, TheLevelOfTheOutputDoesNotMatter) {
  ASSERT_TRUE(InProcess(0, [] { OrbAudit_LogList("level.test", "s", "o", true, nullptr); }));
  EXPECT_EQ(Await("level.test", 1).size(), 1U);
}

TEST(AuditLog, WithoutAnOutputNothingHappens) {
  OrbAudit_LogList("no.output", "s", "o", true, nullptr);
  EXPECT_FALSE(Log_IsEnabled(0));
}

TEST(AuditLog, AFloodOfOtherLinesLosesNoEvent) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the flood takes a sanitizer build too long";
#endif
  constexpr int kEvents = 500;
  ASSERT_TRUE(InProcess(7, [] {
    std::string const text(2000, 'x');
    for (int event = 0; event < kEvents; ++event) {
      for (int line = 0; line < 100; ++line) {
        CSLogger::LogText(2, text);
      }
      OrbAudit_LogList("flood.test", "s", std::to_string(event).c_str(), true, nullptr);
    }
  }));
  std::vector<std::string> const lines = Await("flood.test", kEvents);
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(kEvents));
  for (int event = 0; event < kEvents; ++event) {
    EXPECT_NE(lines[static_cast<std::size_t>(event)].find("\"object\":\"" + std::to_string(event) + "\""),
              std::string::npos);
  }
  EXPECT_EQ(LinesWith(kAuditFile, "audit events were dropped").size(), 0U);
}

TEST(TestOnlyAuditCapture, CatchesWhileItLives) {
  Orbane::TestOnlyAuditCapture outer;
  OrbAuditItem const items[] = {{"a", "b"}, {nullptr, nullptr}};
  {
    Orbane::TestOnlyAuditCapture inner;
    OrbAudit_LogList("e", "s", "o", true, items);
    EXPECT_EQ(inner.events(), (std::vector<Orbane::AuditEvent>{{"e", "s", "o", true, {{"a", "b"}}}}));
  }
  EXPECT_TRUE(outer.events().empty());
  OrbAudit_LogList("e", "s", "o", false, nullptr);
  EXPECT_EQ(outer.events(), (std::vector<Orbane::AuditEvent>{{"e", "s", "o", false, {}}}));
}

}  // namespace
