#include "platform/tickets/ticket_record.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Orbane::ParseTicketRecord;
using Orbane::TicketRecord;

TEST(ParseTicketRecord, ReadsServiceAndTime) {
  struct Case {
    char const* text;
    char const* service;
    std::int64_t expires;
  };
  Case const cases[] = {
      {R"({"service":"Lifecycle","expires":"1970-01-01T00:00:00.000Z"})", "Lifecycle", 0},
      {R"({"service":"Lifecycle","expires":"1970-01-01T00:00:00Z"})", "Lifecycle", 0},
      {R"({"service":"Lifecycle","expires":"2026-11-21T15:04:05.678Z"})", "Lifecycle", 1795273445678},
      {R"({"service":"Lifecycle","expires":"2024-02-29T23:59:59.999Z"})", "Lifecycle", 1709251199999},
      {R"({"service":"Lifecycle","expires":"1969-12-31T23:59:59.999Z"})", "Lifecycle", -1},
      {R"({"service":"Lifecycle","expires":"0001-01-01T00:00:00.000Z"})", "Lifecycle", -62135596800000},
      {R"({"service":"Lifecycle","expires":"9999-12-31T23:59:59.999Z"})", "Lifecycle", 253402300799999},
      {R"({"expires":"1970-01-01T00:00:00.001Z","service":"Other"})", "Other", 1},
      {" \n{ \"service\" : \"Life\\u0063ycle\",\r\n\t\"expires\" : \"1970-01-01T00:00:01Z\" } \n",
       "Lifecycle", 1000},
  };
  for (Case const& each : cases) {
    std::optional<TicketRecord> const record = ParseTicketRecord(each.text);
    ASSERT_TRUE(record) << each.text;
    EXPECT_EQ(record->service, each.service) << each.text;
    EXPECT_EQ(record->expires, each.expires) << each.text;
  }
}

TEST(ParseTicketRecord, RefusesOtherDocuments) {
  std::string const good = R"({"service":"Lifecycle","expires":"2026-11-21T15:04:05.678Z"})";
  ASSERT_TRUE(ParseTicketRecord(good));
  for (std::size_t length = 0; length < good.size(); ++length) {
    EXPECT_FALSE(ParseTicketRecord(good.substr(0, length))) << length;
  }
  std::string const cases[] = {
      "null",
      "[]",
      "{}",
      "\"Lifecycle\"",
      "17",
      good + "x",
      good + good,
      good + std::string(1, '\0'),
      "[" + good + "]",
      "\xef\xbb\xbf" + good,
      R"({"service":"Lifecycle"})",
      R"({"expires":"2026-11-21T15:04:05.678Z"})",
      R"({"service":"Lifecycle","expires":1795273445678})",
      R"({"service":null,"expires":"2026-11-21T15:04:05.678Z"})",
      R"({"service":["Lifecycle"],"expires":"2026-11-21T15:04:05.678Z"})",
      R"({"service":{"service":"Lifecycle"},"expires":"2026-11-21T15:04:05.678Z"})",
      R"({"service":"Lifecycle","service":"Lifecycle","expires":"2026-11-21T15:04:05.678Z"})",
      R"({"service":"Lifecycle","expires":"2026-11-21T15:04:05.678Z","expires":"2027-11-21T15:04:05.678Z"})",
      R"({"service":"Lifecycle","expires":"2026-11-21T15:04:05.678Z","more":1})",
      R"({"Service":"Lifecycle","expires":"2026-11-21T15:04:05.678Z"})",
      R"({"service":"","expires":"2026-11-21T15:04:05.678Z"})",
      R"({"service":"Lifecycle\u0000","expires":"2026-11-21T15:04:05.678Z"})",
      "{\"service\":\"Lifecycle\xff\",\"expires\":\"2026-11-21T15:04:05.678Z\"}",
      std::string(1000, '['),
      std::string(1000, '{'),
  };
  for (std::string const& text : cases) {
    EXPECT_FALSE(ParseTicketRecord(text)) << text;
  }
}

TEST(ParseTicketRecord, RefusesWhatIsNoTime) {
  for (char const* time : {"",
                           "tomorrow",
                           "2026-11-21",
                           "2026-11-21T15:04:05",
                           "2026-11-21 15:04:05Z",
                           "2026-11-21T15:04:05.6Z",
                           "2026-11-21T15:04:05.67Z",
                           "2026-11-21T15:04:05.6789Z",
                           "2026-11-21T15:04:05,678Z",
                           "2026-11-21T15:04:05.678z",
                           "2026-11-21T15:04:05+01:00",
                           "2026-13-21T15:04:05Z",
                           "2026-00-21T15:04:05Z",
                           "2026-11-31T15:04:05Z",
                           "2026-11-00T15:04:05Z",
                           "2026-02-29T15:04:05Z",
                           "2100-02-29T15:04:05Z",
                           "2026-11-21T24:00:00Z",
                           "2026-11-21T15:60:00Z",
                           "2026-11-21T15:04:60Z",
                           "0000-11-21T15:04:05Z",
                           "-026-11-21T15:04:05Z",
                           "+026-11-21T15:04:05Z",
                           " 026-11-21T15:04:05Z",
                           "2O26-11-21T15:04:05Z",
                           "2026-+1-21T15:04:05Z",
                           "2026-11-21T15:04:-5Z",
                           "2026-11-21T15:04:05.-78Z",
                           "2026-11-21T15:04:05. 78Z"}) {
    EXPECT_FALSE(ParseTicketRecord(std::string(R"({"service":"Lifecycle","expires":")") + time + R"("})"))
        << time;
  }
}

}  // namespace
