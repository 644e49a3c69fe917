#include "security/log_filter.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/logging/logging.h"
#include "platform/logging/test_only_log_capture.h"
#include "tests/unit/filters/test_provider.h"

namespace {

using Host::Settings::SettingsApi::Filter::LogFilter;
using Lumo::Core::AsyncApiResultCb;
using Lumo::Core::MethodResult;
using Lines = std::vector<Orbane::CapturedLine>;

class LogFilterTest : public testing::Test {
 protected:
  void SetUp() override { CSLogger::CurrentContext.clear(); }
  void TearDown() override { CSLogger::CurrentContext.clear(); }

  void Call(AsyncApiResultCb const& callback, std::string const& opId = {}) {
    filter->Invoke(std::make_shared<Lumo::Core::MethodIdentifier const>("a.b", "c"), nullptr,
                   TestActivation(opId), callback);
  }

  Orbane::TestOnlyLogCapture log;
  std::shared_ptr<TestProvider> next = std::make_shared<TestProvider>();
  std::shared_ptr<LogFilter> filter = std::make_shared<LogFilter>(next);
};

TEST_F(LogFilterTest, HasAName) {
  EXPECT_EQ(filter->ToString(), "LogFilter");
}

TEST_F(LogFilterTest, LogsHowTheCallEnded) {
  auto const output = Lumo::Data::VoidValue::GetInstance();
  auto const error = Lumo::Data::ErrorValue::GetInstance("e");
  struct Case {
    std::shared_ptr<MethodResult const> result;
    Orbane::CapturedLine line;
  };
  for (Case const& c : {Case{nullptr, {2, "Method finished"}},
                        Case{MethodResult::GetErrorInstance(error), {0, "Method failed"}},
                        Case{std::make_shared<MethodResult>(nullptr, nullptr, true), {0, "Method failed"}},
                        Case{std::make_shared<MethodResult>(output, error, false), {0, "Method failed"}},
                        Case{MethodResult::GetInstance(output), {2, "Method succeeded"}}}) {
    log.Clear();
    next->result = c.result;
    Seen seen;
    Call(seen.Callback());
    EXPECT_EQ(log.lines(), Lines{c.line});
    EXPECT_EQ(seen.result, c.result);
  }
}

TEST_F(LogFilterTest, PassesProgressAndContinuationOn) {
  Seen seen;
  Call(seen.Callback());
  EXPECT_EQ(seen.progress.min, 0);
  EXPECT_EQ(seen.progress.max, 9);
  EXPECT_EQ(seen.progress.current, 4);
  EXPECT_TRUE(seen.continues);
  EXPECT_TRUE(next->continued);
}

TEST_F(LogFilterTest, LogsAfterTheCallersCallback) {
  bool quiet = false;
  Call(AsyncApiResultCb([this, &quiet](auto const&, auto const&, auto&&) { quiet = log.lines().empty(); }));
  EXPECT_TRUE(quiet);
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(LogFilterTest, OperationIdIsInTheContextUntilTheLineIsWritten) {
  CSLogger::CurrentContext["opId"] = "earlier";
  CSLogger::CurrentContext["other"] = "stays";
  std::string during;
  Call(AsyncApiResultCb(
           [&during](auto const&, auto const&, auto&&) { during = CSLogger::CurrentContext.at("opId"); }),
       "nightly-42");
  EXPECT_EQ(during, "nightly-42");
  EXPECT_TRUE(log.Contains("nightly-42")) << log.texts().front();
  EXPECT_FALSE(CSLogger::CurrentContext.contains("opId"));
  EXPECT_EQ(CSLogger::CurrentContext.at("other"), "stays");
}

TEST_F(LogFilterTest, EmptyOperationIdLeavesTheContextUntouched) {
  std::map<std::string, std::string> during;
  CSLogger::CurrentContext["opId"] = "earlier";
  Call(AsyncApiResultCb([&during](auto const&, auto const&, auto&&) { during = CSLogger::CurrentContext; }));
  EXPECT_EQ(during.at("opId"), "earlier");
}

TEST_F(LogFilterTest, AnswerFromAnotherThreadTouchesThatThreadsContext) {
  class Keeping final : public Lumo::Core::AsyncApiProvider {
   public:
    std::string ToString() const override { return "Keeping"; }
    void Invoke(std::shared_ptr<Lumo::Core::MethodIdentifier const> const& /*method*/,
                Lumo::Data::DataValuePtr const& /*input*/,
                std::shared_ptr<Lumo::Core::AsyncActivation> const& /*activation*/,
                AsyncApiResultCb const& callback) override {
      kept = callback;
    }
    AsyncApiResultCb kept;
  };
  auto const keeping = std::make_shared<Keeping>();
  filter = std::make_shared<LogFilter>(keeping);
  Seen seen;
  Call(seen.Callback(), "x");
  std::thread([&keeping] { keeping->kept(nullptr, {}, {}); }).join();
  EXPECT_EQ(seen.answers, 1);
  EXPECT_EQ(log.texts(), std::vector<std::string>{"Method finished"});
  EXPECT_EQ(CSLogger::CurrentContext.at("opId"), "x");
}

}  // namespace
