#include "platform/logging/test_only_log_capture.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/logging/logging.h"

namespace {

using Orbane::CapturedLine;
using Orbane::TestOnlyLogCapture;
using Lines = std::vector<CapturedLine>;

TEST(LogWithoutOutput, IsDisabled) {
  EXPECT_FALSE(Log_IsEnabled(0));
  EXPECT_FALSE(Log_IsEnabled(-1));
  CSLogger::Log(0, "goes nowhere");
  Log_Flush();
}

TEST(LogCapture, TakesLinesAsTheSystemLogWouldShowThem) {
  TestOnlyLogCapture log;
  CSLogger::Log(2, "[%s]: Creating task: %s\n", "RunTask", "6f1c");
  CSLogger::Log(0, "100%% of %d", 5);
  CSLogger::LogText(4, "a\nb %s");
  EXPECT_EQ(log.lines(), (Lines{{2, "[RunTask]: Creating task: 6f1c"}, {0, "100% of 5"}, {4, "a#012b %s"}}));
  EXPECT_EQ(log.texts(2), std::vector<std::string>{"[RunTask]: Creating task: 6f1c"});
  EXPECT_EQ(log.texts().size(), 3U);
  EXPECT_TRUE(log.Contains("Creating"));
  EXPECT_FALSE(log.Contains("Removing"));
  log.Clear();
  EXPECT_TRUE(log.lines().empty());
}

TEST(LogCapture, PrioritiesOutsideTheirRangeAreBroughtInside) {
  TestOnlyLogCapture log;
  CSLogger::Log(-3, "a");
  CSLogger::Log(9, "b");
  EXPECT_EQ(log.lines(), (Lines{{0, "a"}, {4, "b"}}));
}

TEST(LogCapture, LevelsAreMapped) {
  struct Case {
    int level;
    int priority;
  };
  for (Case const each :
       {Case{0, 0}, Case{1, 0}, Case{2, 0}, Case{3, 1}, Case{4, 1}, Case{5, 2}, Case{6, 3}, Case{7, 4}}) {
    TestOnlyLogCapture log;
    Log(each.level, "%s", "x");
    EXPECT_EQ(log.lines(), (Lines{{each.priority, "x"}})) << each.level;
  }
}

TEST(LogCapture, ALevelBelowShutsLinesOut) {
  for (int level = 0; level <= 7; ++level) {
    TestOnlyLogCapture log(level);
    for (int asked = 0; asked <= 8; ++asked) {
      EXPECT_EQ(Log_IsEnabled(asked), asked <= level) << asked << " at " << level;
    }
    for (int priority = 0; priority <= 4; ++priority) {
      CSLogger::Log(priority, "x");
    }
    // Priorities 0 to 4 pass from the levels 1, 3, 5, 6 and 7 on.
    constexpr std::size_t kPassing[] = {0, 1, 1, 2, 2, 3, 4, 5};
    EXPECT_EQ(log.lines().size(), kPassing[level]) << level;
  }
}

TEST(LogCapture, TheInnerOneCatches) {
  TestOnlyLogCapture outer(5);
  {
    TestOnlyLogCapture inner(7);
    CSLogger::Log(4, "inner");
    EXPECT_EQ(inner.lines(), (Lines{{4, "inner"}}));
  }
  CSLogger::Log(4, "shut out again");
  CSLogger::Log(2, "outer");
  EXPECT_EQ(outer.lines(), (Lines{{2, "outer"}}));
}

TEST(LogContext, PrecedesTheLinesOfItsThread) {
  TestOnlyLogCapture log;
  CSLogger::CurrentContext["opId"] = "nightly-42";
  CSLogger::Log(2, "one");
  CSLogger::CurrentContext["a"] = "b]";
  CSLogger::LogText(2, "two");
  std::thread([] { CSLogger::Log(2, "other thread"); }).join();
  CSLogger::CurrentContext.clear();
  CSLogger::Log(2, "three");
  EXPECT_EQ(log.texts(), (std::vector<std::string>{"[opId=nightly-42] one", "[a=b#135] [opId=nightly-42] two",
                                                   "other thread", "three"}));
}

TEST(LogText, LinesOfAnyLengthAreFormattedWhole) {
  for (std::size_t const size : {1U, 1022U, 1023U, 1024U, 1025U, 32768U}) {
    TestOnlyLogCapture log;
    std::string const text(size, 'x');
    CSLogger::Log(2, "%s", text.c_str());
    EXPECT_EQ(log.texts(), std::vector<std::string>{text}) << size;
  }
}

TEST(LogText, AVeryLongLineIsCut) {
  TestOnlyLogCapture log;
  CSLogger::Log(2, "%s", std::string(3000000, 'x').c_str());
  EXPECT_EQ(log.texts(), std::vector<std::string>{std::string(32768, 'x') + " [2967232 bytes cut]"});
}

TEST(LogText, AFormatThatFailsIsLoggedBare) {
  TestOnlyLogCapture log;
  CSLogger::Log(2, "%lc", static_cast<wint_t>(0x20ac));
  EXPECT_EQ(log.texts(), std::vector<std::string>{"%lc"});
}

using PanicDeathTest = ::testing::Test;

TEST(PanicDeathTest, WritesToStderrAndAborts) {
  EXPECT_EXIT(Panic("VERIFY %s:%d\n", "file.cpp", 7), ::testing::KilledBySignal(SIGABRT),
              "^VERIFY file.cpp:7\n");
  EXPECT_EXIT(VERIFY(1 + 1 == 3), ::testing::KilledBySignal(SIGABRT),
              "^VERIFY .*test_only_log_capture_test.cpp:[0-9]+");
  EXPECT_EXIT(NOT_REACHED(), ::testing::KilledBySignal(SIGABRT),
              "^NOT_REACHED .*test_only_log_capture_test.cpp:[0-9]+");
  VERIFY(1 + 1 == 2);
}

}  // namespace
