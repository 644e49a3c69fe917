// Runs in the sandbox: the marker file is the product's own.
#include "security/audit_report.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/audit/test_only_audit_capture.h"
#include "platform/logging/test_only_log_capture.h"

namespace {

namespace fs = std::filesystem;
using Api::AuditMap;
using Events = std::vector<Orbane::AuditEvent>;

constexpr char kMarker[] = "/var/run/orbane/AuditApiCallEnabled";

std::shared_ptr<AuditMap> Base() {
  return std::make_shared<AuditMap>(
      AuditMap{{"eventID", "api.call"}, {"subject", "alice"}, {"object", "keeld:a.b"}});
}

class AuditReportTest : public testing::Test {
 protected:
  AuditReportTest() { Restart(1); }
  ~AuditReportTest() override { Restart(0); }

  /// What a start of the process leaves.
  static void Restart(std::int32_t state) {
    fs::remove_all(kMarker);
    Api::SetTestOnlyApiCallAuditState(state);
  }

  Orbane::TestOnlyAuditCapture audit;
};

TEST_F(AuditReportTest, TheStateIsUnknownAtFirst) {
  Restart(0);
  EXPECT_EQ(Api::ApiCallAuditState(), 0);
}

TEST_F(AuditReportTest, TheMarkerFileIsLookedForOnce) {
  Restart(0);
  Api::FindOutApiCallAudit();
  EXPECT_EQ(Api::ApiCallAuditState(), 2);
  std::ofstream(kMarker) << "";
  Api::FindOutApiCallAudit();
  EXPECT_EQ(Api::ApiCallAuditState(), 2) << "created later";

  Api::SetTestOnlyApiCallAuditState(0);
  Api::FindOutApiCallAudit();
  EXPECT_EQ(Api::ApiCallAuditState(), 1);
  fs::remove(kMarker);
  Api::FindOutApiCallAudit();
  EXPECT_EQ(Api::ApiCallAuditState(), 1) << "removed later";
}

TEST_F(AuditReportTest, WhatCountsAsTheMarker) {
  struct Case {
    char const* what;
    std::function<void()> make;
    std::int32_t state;
  };
  Case const cases[] = {
      {"nothing", [] {}, 2},
      {"a folder", [] { fs::create_directory(kMarker); }, 1},
      {"a link to a file", [] { fs::create_symlink("/etc/passwd", kMarker); }, 1},
      {"a link to nothing", [] { fs::create_symlink("/no/such/file", kMarker); }, 2},
      {"a link in a circle, whose test fails", [] { fs::create_symlink(kMarker, kMarker); }, 2},
  };
  for (Case const& each : cases) {
    Restart(0);
    each.make();
    Api::FindOutApiCallAudit();
    EXPECT_EQ(Api::ApiCallAuditState(), each.state) << each.what;
  }
}

TEST_F(AuditReportTest, ReportsWithTheMarker) {
  for (bool const succeeded : {true, false}) {
    Orbane::TestOnlyAuditCapture inner;
    auto const map = Base();
    Api::ReportFinishedCall(map, succeeded);
    EXPECT_EQ(map->at("result"), succeeded ? "true" : "false");
    EXPECT_EQ(inner.events(), (Events{{"api.call", "alice", "keeld:a.b", succeeded, {}}}));
  }
}

TEST_F(AuditReportTest, ReportsNothingWithoutTheMarkerButKeepsTheResult) {
  for (std::int32_t const state : {0, 2, 3}) {
    Restart(state);
    auto const map = Base();
    map->emplace("keeld_mute", "true");
    Api::ReportFinishedCall(map, true);
    EXPECT_EQ(map->at("result"), "true");
    EXPECT_FALSE(map->contains("keeld_mute"));
  }
  EXPECT_EQ(audit.events(), Events{});
}

TEST_F(AuditReportTest, TheResultIsOverwritten) {
  auto const map = Base();
  map->emplace("result", "true");
  Api::ReportFinishedCall(map, false);
  EXPECT_EQ(map->at("result"), "false");
  EXPECT_FALSE(audit.events().at(0).result);
}

TEST_F(AuditReportTest, NoMapOrAnEmptyOneIsNoCall) {
  Api::ReportFinishedCall(nullptr, true);
  auto const map = std::make_shared<AuditMap>();
  Api::ReportFinishedCall(map, true);
  EXPECT_TRUE(map->empty());
  Api::OnCallEnd(nullptr, true);
  Api::OnCallEnd(map, true);
  EXPECT_EQ(audit.events(), Events{});
}

TEST_F(AuditReportTest, AMapWithoutItsBaseEntriesEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (std::int32_t const state : {1, 2}) {
    Restart(state);
    auto const map = std::make_shared<AuditMap>(AuditMap{{"subject", "s"}, {"object", "o"}});
    EXPECT_DEATH(Api::ReportFinishedCall(map, true), "VERIFY .*audit_report.cpp:[0-9]+\n") << state;
  }
  for (char const* const missing : {"subject", "object"}) {
    Restart(1);
    auto const map = Base();
    map->erase(missing);
    EXPECT_DEATH(Api::ReportFinishedCall(map, true), "VERIFY .*audit_report.cpp:[0-9]+\n") << missing;
    Restart(2);
    Api::ReportFinishedCall(map, true);  // what is not sent is not looked at
  }
}

TEST_F(AuditReportTest, TheEndOfACallReportsUnlessATaskTookItOver) {
  auto const map = Base();
  map->emplace("keeld_mute", "true");
  auto const before = *map;
  Api::OnCallEnd(map, true);
  EXPECT_EQ(*map, before);
  EXPECT_EQ(audit.events(), Events{});

  Api::ReportFinishedCall(map, false);
  EXPECT_EQ(audit.events(), (Events{{"api.call", "alice", "keeld:a.b", false, {}}}));

  Orbane::TestOnlyAuditCapture inner;
  Api::OnCallEnd(Base(), true);
  EXPECT_EQ(inner.events(), (Events{{"api.call", "alice", "keeld:a.b", true, {}}}));
}

TEST_F(AuditReportTest, AnyValueOfTheKeyHoldsBack) {
  auto const map = Base();
  map->emplace("keeld_mute", "");
  Api::OnCallEnd(map, true);
  EXPECT_EQ(audit.events(), Events{});
}

TEST_F(AuditReportTest, NothingHidesBehindANul) {
  using namespace std::string_literals;
  auto const map = Base();
  (*map)["subject"] = "root\0mallory"s;
  Api::ReportFinishedCall(map, true);
  EXPECT_EQ(audit.events(), (Events{{"api.call", "root#000mallory", "keeld:a.b", true, {}}}));
}

}  // namespace
