#include "apps/lifecycle/lumo/lumocpp/lumo_logger_wrapper.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <thread>

#include "platform/logging/test_only_log_capture.h"

namespace {

using Host::Settings::SettingsApi::LumoLoggerWrapper;
using Lines = std::vector<Orbane::CapturedLine>;
using RecordPtr = std::unique_ptr<Lumo::Log::LogRecord>;

TEST(LumoLoggerWrapper, LevelsBecomePriorities) {
  struct Case {
    int level;
    int enabledAt;
    int priority;
  };
  for (Case const& c :
       {Case{0, 7, 4}, Case{1, 6, 3}, Case{2, 5, 2}, Case{3, 3, 1}, Case{4, 2, 0}, Case{5, 1, 0}}) {
    LumoLoggerWrapper const logger;
    RecordPtr record;
    {
      Orbane::TestOnlyLogCapture log(c.enabledAt);
      logger.MakeRecord(c.level, record);
      ASSERT_NE(record, nullptr) << c.level;
      record->stream() << "level " << c.level;
      record.reset();
      EXPECT_EQ(log.lines(), (Lines{{c.priority, "level " + std::to_string(c.level)}}));
    }
    Orbane::TestOnlyLogCapture const log(c.enabledAt - 1);
    logger.MakeRecord(c.level, record);
    EXPECT_EQ(record, nullptr) << c.level;
  }
}

TEST(LumoLoggerWrapper, DisabledLevelFormatsNothing) {
  struct Noisy {
    bool* printed;
  };
  struct Printer {
    static void Print(std::ostream& out, Noisy const& noisy) {
      *noisy.printed = true;
      out << "x";
    }
  };
  Orbane::TestOnlyLogCapture log(6);
  auto const logger = std::make_shared<LumoLoggerWrapper>();
  RecordPtr record = nullptr;
  logger->MakeRecord(0, record);
  bool printed = false;
  if (record) {
    Printer::Print(record->stream(), Noisy{&printed});
  }
  EXPECT_FALSE(printed);
  Lumo::Log::Write(logger, 0, "never");
  Lumo::Log::Write(logger, 1, "written ", 1);
  EXPECT_EQ(log.texts(), std::vector<std::string>{"written 1"});
}

TEST(LumoLoggerWrapper, LineIsWrittenWhenTheRecordEnds) {
  Orbane::TestOnlyLogCapture log;
  LumoLoggerWrapper const logger;
  RecordPtr record;
  logger.MakeRecord(2, record);
  record->stream() << "one" << ' ' << "line" << ' ' << std::string(5000, 'x');
  EXPECT_TRUE(log.lines().empty());
  record.reset();
  EXPECT_EQ(log.texts(), std::vector<std::string>{"one line " + std::string(5000, 'x')});
}

TEST(LumoLoggerWrapper, PercentSignsAreText) {
  Orbane::TestOnlyLogCapture log;
  Lumo::Log::Write(std::make_shared<LumoLoggerWrapper>(), 2, "100%s %n");
  EXPECT_EQ(log.texts(), std::vector<std::string>{"100%s %n"});
}

TEST(LumoLoggerWrapper, EachRecordBeginsAfresh) {
  Orbane::TestOnlyLogCapture log;
  LumoLoggerWrapper const logger;
  RecordPtr record;
  logger.MakeRecord(2, record);
  record->stream() << std::hex << std::setfill('*') << std::setprecision(2) << std::boolalpha << std::setw(6)
                   << 255;
  record->stream().setstate(std::ios::failbit);
  record.reset();
  logger.MakeRecord(2, record);
  record->stream() << std::setw(5) << 255 << ' ' << 3.14159 << ' ' << true;
  record.reset();
  EXPECT_EQ(log.texts(), (std::vector<std::string>{"****ff", "  255 3.14159 1"}));
}

TEST(LumoLoggerWrapper, RecordsMayBeOpenAtTheSameTime) {
  Orbane::TestOnlyLogCapture log;
  LumoLoggerWrapper const logger;
  RecordPtr outer;
  RecordPtr inner;
  logger.MakeRecord(2, outer);
  outer->stream() << "out";
  logger.MakeRecord(2, inner);
  inner->stream() << "in";
  outer->stream() << "er";
  inner->stream() << "ner";
  inner.reset();
  outer.reset();
  EXPECT_EQ(log.texts(), (std::vector<std::string>{"inner", "outer"}));
}

TEST(LumoLoggerWrapper, AnyThreadMayLog) {
  Orbane::TestOnlyLogCapture log;
  auto const logger = std::make_shared<LumoLoggerWrapper>();
  std::thread([&logger] { Lumo::Log::Write(logger, 3, "elsewhere"); }).join();
  EXPECT_EQ(log.lines(), (Lines{{1, "elsewhere"}}));
}

TEST(LumoLoggerWrapperDeathTest, LevelsAreZeroToFive) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  LumoLoggerWrapper const logger;
  RecordPtr record;
  EXPECT_DEATH(logger.MakeRecord(6, record), "NOT_REACHED .*lumo_logger_wrapper.cpp:[0-9]+");
}

}  // namespace
