// What the image manager gets to see, with the real process control between: names and depots of callers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "answer_sink.h"
#include "hostile_texts.h"
#include "platform/features/features.h"
#include "platform/logging/test_only_log_capture.h"
#include "platform/process/command_words.h"
#include "recorded_calls.h"
#include "software/hosts_components_svc.h"
#include "software/software_svc.h"
#include "tests/unit/lifecycle_state.h"

namespace {

using Recorded::Words;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace Components = Com::Orbane::Ryn::Hosts::Software::ComponentsSvc;
namespace Software = Com::Orbane::Ryn::KeelDaemon::SoftwareSvc;

char const* const kTool = "/usr/lib/orbane/lifecycle/bin/stowctl.py";

class ImageManagerInjection : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    LifecycleState::InstallCatalogues(KEELD_SOURCE_DIR);
    Recorded::Install();
    LifeCycle::CurrentLaunchEnvironment().sleep = [](std::chrono::seconds) {};
  }
  void SetUp() override {
    Recorded::Answer("null");
    Recorded::Take();
    LifecycleState::Reset();
    FeatureState_InitSilentMode();
  }

  Orbane::TestOnlyLogCapture log_;
  int refused_ = 0;
  int ran_ = 0;
};

TEST_F(ImageManagerInjection, ComponentNames) {
  for (std::string const& text : HostileTexts()) {
    SCOPED_TRACE(testing::PrintToString(text.substr(0, 100)));
    auto const input = std::make_shared<Components::GetInput>();
    input->component = text;
    auto const sink = std::make_shared<AnswerSink>();
    long const before = Recorded::LastProcess();
    Components::AsyncServiceImpl().Get(input,
                                       Lumo::AsyncResult<std::shared_ptr<Components::Info const>>(sink));
    std::vector<Words> const calls = Recorded::Take();
    std::string const error = sink->answer.Error();
    if (error.find("component.invalid") != std::string::npos) {
      ++refused_;
      EXPECT_THAT(calls, IsEmpty());
      EXPECT_EQ(Recorded::LastProcess(), before);
    } else if (text.find('\0') != std::string::npos || text.size() > 131000) {
      EXPECT_THAT(error, HasSubstr(std::strerror(text.size() > 131000 ? E2BIG : EINVAL)));
      EXPECT_THAT(calls, IsEmpty());
    } else {
      ++ran_;
      EXPECT_EQ(error, "not_found");
      Words words;
      ASSERT_TRUE(Orbane::SplitCommand(
          "/usr/bin/python /usr/bin/python " + std::string(kTool) + " component --get " + text, words));
      EXPECT_THAT(calls, ElementsAre(words));
      EXPECT_EQ(Recorded::LastProcess(), before + 1);
    }
  }
  EXPECT_GT(refused_, 300);
  EXPECT_GT(ran_, 200);
}

/// Calls one of the three operations with a depot; returns the error.
template <typename Input, typename Result>
std::string Call(void (Software::AsyncServiceImpl::*method)(std::shared_ptr<Input const> const&,
                                                            Lumo::AsyncTaskResult<Result> const&),
                 std::string const& depot) {
  auto const spec = std::make_shared<Com::Orbane::Ryn::KeelDaemon::SoftwareSpec>();
  auto const base = std::make_shared<Com::Orbane::Ryn::KeelDaemon::BaseImageSpec>();
  base->version = "$(touch /tmp/canary)";  // goes into a file and onto no line
  spec->baseImage = base;
  auto const input = std::make_shared<Input>();
  input->softwareSpec = spec;
  input->depots.insert(input->depots.end(), depot);
  auto const sink = std::make_shared<AnswerSink>();
  (Software::AsyncServiceImpl().*method)(input, Lumo::AsyncTaskResult<Result>(sink));
  return sink->answer.Error();
}

std::string CallOperation(std::string const& operation, std::string const& depot) {
  return operation == "--apply"   ? Call(&Software::AsyncServiceImpl::Apply, depot)
         : operation == "--stage" ? Call(&Software::AsyncServiceImpl::Stage, depot)
                                  : Call(&Software::AsyncServiceImpl::Scan, depot);
}

/// The words of a depot that was let through: quotes are the only ones among its characters that mean
/// anything.
std::string WithoutQuotes(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '\''), text.end());
  return text;
}

TEST_F(ImageManagerInjection, DepotsOfSoftwareOperations) {
  char const* const operations[] = {"--apply", "--stage", "--scan"};
  int turn = 0;
  long processes = 0;  // that a start takes
  for (std::string const& text : HostileTexts()) {
    char const* const operation = operations[turn++ % 3];
    SCOPED_TRACE(testing::PrintToString(text.substr(0, 100)) + operation);
    boost::filesystem::remove(LifeCycle::kTaskSyncFile);
    long const before = Recorded::LastProcess();
    std::string const error = CallOperation(operation, text);
    if (error.find("invalidinput") != std::string::npos) {
      ++refused_;
      EXPECT_THAT(Recorded::Take(), IsEmpty());
      EXPECT_EQ(Recorded::LastProcess(), before);
      continue;
    }
    bool const unbalanced = std::count(text.begin(), text.end(), '\'') % 2 != 0;
    if (unbalanced || text.size() > 131000) {
      EXPECT_THAT(error, HasSubstr("com.orbane.ryn.task.exec.error"));
      EXPECT_THAT(Recorded::Take(), IsEmpty());
      continue;
    }
    ++ran_;
    ASSERT_EQ(error, "");
    std::vector<Words> const calls = Recorded::Await();
    ASSERT_EQ(calls.size(), 1U);
    Words const& words = calls[0];
    ASSERT_EQ(words.size(), 11U);
    EXPECT_EQ(Words(words.begin(), words.begin() + 5),
              (Words{"/usr/bin/python", "/usr/bin/python", kTool, "software", operation}));
    auto const depot = std::find(words.begin(), words.end(), "--depot");
    ASSERT_LT(depot + 1, words.end());
    EXPECT_EQ(depot[1], WithoutQuotes(text));
    EXPECT_THAT(words, testing::Contains("--task-id"));
    EXPECT_THAT(words, testing::Contains("--software-spec"));
    processes = processes == 0 ? Recorded::LastProcess() - before : processes;
    EXPECT_EQ(Recorded::LastProcess(), before + processes);
  }
  EXPECT_LE(processes, 2);  // the tool, and the one between that lets it go
  EXPECT_GT(refused_, 200);
  EXPECT_GT(ran_, 100);
}

}  // namespace
