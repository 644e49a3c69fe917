#include "runtime/l10n/date_time.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using Lumo::DateTime;

TEST(DateTime, DefaultIsTheEpoch) {
  EXPECT_EQ(DateTime().ToString(), "1970-01-01T00:00:00.000Z");
}

TEST(DateTime, TextsGoBothWays) {
  struct Case {
    char const* text;
    long milliseconds;
  };
  for (Case const& c :
       {Case{"1970-01-01T00:00:00.000Z", 0}, Case{"1969-12-31T23:59:59.999Z", -1},
        Case{"2000-02-29T12:30:45.678Z", 951827445678}, Case{"2038-01-19T03:14:08.000Z", 2147483648000},
        Case{"0001-01-01T00:00:00.000Z", -62135596800000},
        Case{"9999-12-31T23:59:59.999Z", 253402300799999}}) {
    DateTime fromText;
    DateTime fromNumber;
    ASSERT_TRUE(DateTime::Create(std::string(c.text), fromText)) << c.text;
    ASSERT_TRUE(DateTime::Create(c.milliseconds, fromNumber)) << c.text;
    EXPECT_EQ(fromText.millisecondsSinceEpoch(), c.milliseconds);
    EXPECT_EQ(fromText, fromNumber);
    EXPECT_EQ(fromNumber.ToString(), c.text);
  }
}

TEST(DateTime, FractionMayBeMissing) {
  DateTime time;
  ASSERT_TRUE(DateTime::Create(std::string("2024-03-01T00:00:01Z"), time));
  EXPECT_EQ(time.ToString(), "2024-03-01T00:00:01.000Z");
}

TEST(DateTime, RefusesOthersAndLeavesTheTargetAlone) {
  DateTime time;
  ASSERT_TRUE(DateTime::Create(5L, time));
  for (char const* text : {"",
                           "2024",
                           "2024-03-01",
                           "2024-03-01T00:00:00",
                           "2024-03-01T00:00:00.0Z",
                           "2024-03-01T00:00:00.0000Z",
                           "2024-03-01T00:00:00.000z",
                           "2024-03-01 00:00:00.000Z",
                           "2024-13-01T00:00:00.000Z",
                           "2023-02-29T00:00:00.000Z",
                           "2024-00-01T00:00:00.000Z",
                           "2024-01-00T00:00:00.000Z",
                           "2024-01-01T24:00:00.000Z",
                           "2024-01-01T00:60:00.000Z",
                           "2024-01-01T00:00:60.000Z",
                           "0000-01-01T00:00:00.000Z",
                           "+024-01-01T00:00:00.000Z",
                           "2024-01-01T00:00:00.000Zx",
                           "2024-01-01T00:00:00.000+00:00",
                           " 2024-01-01T00:00:00.000Z"}) {
    EXPECT_FALSE(DateTime::Create(std::string(text), time)) << text;
    EXPECT_EQ(time.millisecondsSinceEpoch(), 5) << text;
  }
  EXPECT_FALSE(DateTime::Create(-62135596800001L, time));
  EXPECT_FALSE(DateTime::Create(253402300800000L, time));
  EXPECT_EQ(time.millisecondsSinceEpoch(), 5);
}

TEST(DateTime, NowIsNow) {
  auto const now = [] {
    return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now())
        .time_since_epoch()
        .count();
  };
  auto const before = now();
  auto const time = DateTime::GetUtcDateTime().millisecondsSinceEpoch();
  EXPECT_LE(before, time);
  EXPECT_LE(time, now());
}

}  // namespace
