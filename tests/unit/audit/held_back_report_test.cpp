// A task that takes the report of its call over, run by the real scheduler behind the real registrar.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "platform/audit/test_only_audit_capture.h"
#include "platform/logging/test_only_log_capture.h"
#include "runtime/core/activation.h"
#include "security/audit_context.h"
#include "security/audit_report.h"
#include "security/call_registrar.h"
#include "tasks/task.h"
#include "tasks/task_schedular.h"
#include "tests/unit/filters/test_provider.h"

namespace {

using Api::AuditMap;
using Events = std::vector<Orbane::AuditEvent>;
using Lumo::Core::AsyncApiResultCb;

/// Opened by one thread, awaited by another.
class Latch {
 public:
  void Open() {
    std::lock_guard const lock(mutex_);
    open_ = true;
    changed_.notify_all();
  }
  bool Wait() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(20), [this] { return open_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool open_ = false;
};

/// Holds its call's report back and makes it in postRun, with its own outcome.
class ReportingTask final : public LifeCycle::Task {
 public:
  ReportingTask(std::shared_ptr<AuditMap> map, bool fails, Latch& go, Latch& done)
      : map_(std::move(map)), fails_(fails), go_(go), done_(done) {
    if (map_) {
      (*map_)[Api::kHeldBackKey] = "true";
    }
  }
  ~ReportingTask() override { done_.Open(); }

  void preRun() override { EXPECT_TRUE(go_.Wait()); }
  void Run() override {
    if (fails_) {
      throw std::runtime_error("broken");
    }
  }
  void onRunFailure(std::exception const& /*failure*/) override { failed_ = true; }
  void postRun() override { Api::ReportFinishedCall(map_, !failed_); }
  bool isAborted() const override { return false; }
  void requestAbort() override {}
  void abort() override {}
  std::string name() const override { return "task"; }
  std::string id() const override { return "id"; }

 private:
  std::shared_ptr<AuditMap> map_;
  bool const fails_;
  bool failed_ = false;
  Latch& go_;
  Latch& done_;
};

/// A service whose one operation starts the task: it answers first, then gives the map out of its hands.
class TaskService final : public Lumo::Core::AsyncApiProvider {
 public:
  TaskService(LifeCycle::TaskSchedular& schedular, bool fails, Latch& go, Latch& done)
      : schedular_(schedular), fails_(fails), go_(go), done_(done) {}
  std::string ToString() const override { return "TaskService"; }
  void Invoke(std::shared_ptr<Lumo::Core::MethodIdentifier const> const& /*method*/,
              Lumo::Data::DataValuePtr const& /*input*/,
              std::shared_ptr<Lumo::Core::AsyncActivation> const& activation,
              AsyncApiResultCb const& callback) override {
    auto const context = std::dynamic_pointer_cast<Api::AuditContext<AuditMap>>(activation->callObserver());
    auto const task =
        std::make_shared<ReportingTask>(context ? context->auditMap() : nullptr, fails_, go_, done_);
    callback(Lumo::Core::MethodResult::GetInstance(Lumo::Data::StringValue::GetInstance("id")),
             Lumo::Progress(), {});
    EXPECT_EQ(schedular_.Schedule(task), 0);
  }

 private:
  LifeCycle::TaskSchedular& schedular_;
  bool const fails_;
  Latch& go_;
  Latch& done_;
};

class HeldBackReportTest : public testing::TestWithParam<bool> {
 protected:
  HeldBackReportTest() {
    Api::SetTestOnlyApiCallAuditState(1);
    EXPECT_EQ(schedular.Initialize(), 0);
    while (!log.Contains("TaskSchedular started.")) {
      std::this_thread::yield();
    }
  }
  ~HeldBackReportTest() override {
    schedular.Stop();
    Api::SetTestOnlyApiCallAuditState(0);
  }

  void Call(Lumo::Core::AsyncApiProvider& provider) {
    Seen seen;
    provider.Invoke(std::make_shared<Lumo::Core::MethodIdentifier const>("a.b", "c"), nullptr,
                    TestActivation(), seen.Callback());
    ASSERT_EQ(seen.answers, 1);
    EXPECT_EQ(seen.result->error(), nullptr);
  }

  Orbane::TestOnlyLogCapture log;
  Orbane::TestOnlyAuditCapture audit;
  Latch go;
  Latch done;
  LifeCycle::TaskSchedularImpl schedular;
};

TEST_P(HeldBackReportTest, IsMadeByTheTaskWithItsOwnOutcome) {
  bool const fails = GetParam();
  Lumo::Observer::CallRegistrar<AuditMap> registrar(std::make_shared<TaskService>(schedular, fails, go, done),
                                                    &Api::OnCallEnd);
  Call(registrar);
  EXPECT_EQ(audit.events(), Events{}) << "the call has ended, the task has not";
  go.Open();
  ASSERT_TRUE(done.Wait());
  EXPECT_EQ(audit.events(), (Events{{"api.call", "", "keeld:a.b.c", !fails, {}}}));
}

TEST_P(HeldBackReportTest, ATaskOfACallThatNobodyWatchesReportsNothing) {
  TaskService service(schedular, GetParam(), go, done);
  Call(service);
  go.Open();
  ASSERT_TRUE(done.Wait());
  EXPECT_EQ(audit.events(), Events{});
}

INSTANTIATE_TEST_SUITE_P(Outcome, HeldBackReportTest, testing::Bool(),
                         [](auto const& outcome) { return outcome.param ? "Fails" : "Succeeds"; });

}  // namespace
