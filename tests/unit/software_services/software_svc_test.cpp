#include "software/software_svc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/features/features.h"
#include "platform/logging/test_only_log_capture.h"
#include "runtime/l10n/localizer.h"
#include "tests/unit/lifecycle_state.h"
#include "tests/unit/service_call.h"

namespace {

using ServiceCall::Answer;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace Svc = Com::Orbane::Ryn::KeelDaemon::SoftwareSvc;

char const* const kSpec =
    R"({"base_image":{"version":"2.0"},"components":{"a":"1","b":"2"},)"
    R"("solutions":{"s":{"version":"3","components":[{"component":"a","version":"1"}]}}})";
std::string const kPrefix =
    "/usr/bin/python ++group=keeld-task-forks,mem=groupMax,stats /usr/lib/orbane/lifecycle/bin/stowctl.py  "
    "software ";
char const* const kScanSpec = "/var/run/lifecycle.scan.swspec";
char const* const kInvalidInput = "invalid_argument: com.orbane.ryn.lumo.invalidinput()";
char const* const kWriteError = "internal_server_error: com.orbane.ryn.softwarespec.write.error()";

class SoftwareService : public testing::Test {
 protected:
  static void SetUpTestSuite() { LifecycleState::InstallCatalogues(KEELD_SOURCE_DIR); }
  void SetUp() override {
    LifecycleState::Reset();
    ::unlink(kScanSpec);
    SetFeatures("");
  }

  static void SetFeatures(std::string const& lines) {
    LifecycleState::Put("/etc/orbane/features.conf", lines);
    FeatureState_InitSilentMode();
  }

  Answer Call(std::string const& operation, std::string const& depots, std::string const& more = "") {
    Answer const answer = ServiceCall::Call(
        api_, operation, std::string(R"({"software_spec":)") + kSpec + R"(,"depots":)" + depots + more + "}");
    EXPECT_EQ(answer.answers, 1);
    return answer;
  }
  /// The task id of a success.
  static std::string Id(Answer const& answer) {
    auto const* const id = Lumo::Data::As<Lumo::Data::StringValue>(answer.output.get());
    EXPECT_NE(id, nullptr) << answer.Error();
    return id != nullptr ? std::string(id->value()) : "";
  }
  static std::string SpecPath(std::string const& id) { return "/var/orbane/lifecycle/swspec-" + id; }

  std::shared_ptr<Lumo::Provider::AsyncApiInterface const> const api_ =
      Svc::AsyncServiceBinder::BindImplementation(std::make_shared<Svc::AsyncServiceImpl>(),
                                                  Lumo::L10n::LocalizerHelpers::GetDefaultLocalizer());
  LifecycleState::FakeLaunch launch_;
  Orbane::TestOnlyLogCapture log_;
};

TEST_F(SoftwareService, Apply) {
  std::string const id = Id(Call("apply", R"(["file:///z","http://a/b"])"));
  EXPECT_THAT(launch_.commands,
              ElementsAre(kPrefix + "--apply --task-id " + id +
                          " --depot file:///z --depot http://a/b --software-spec " + SpecPath(id)));
  EXPECT_EQ(LifecycleState::Content(SpecPath(id)), kSpec);
  EXPECT_EQ(LifecycleState::Content(LifeCycle::kTaskSyncFile), "PRECURSOR: " + id);
  EXPECT_EQ(LifecycleState::Records().at(id).status, "PENDING");
  EXPECT_EQ(LifecycleState::Records().at(id).name, "");
}

TEST_F(SoftwareService, StageSortsItsDepots) {
  std::string const id = Id(Call("stage", R"(["http://z","file:///b","file:///a","http://z"])"));
  EXPECT_THAT(
      launch_.commands,
      ElementsAre(kPrefix + "--stage --task-id " + id +
                  " --depot file:///a --depot file:///b --depot http://z --software-spec " + SpecPath(id)));
  EXPECT_EQ(LifecycleState::Content(SpecPath(id)), kSpec);
}

TEST_F(SoftwareService, Scan) {
  std::string const id = Id(Call("scan", R"(["http://z","file:///a"])"));
  EXPECT_THAT(launch_.commands, ElementsAre(kPrefix + "--scan --software-spec " + kScanSpec +
                                            " --depot http://z --depot file:///a --task-id " + id));
  EXPECT_EQ(LifecycleState::Content(kScanSpec), kSpec);
  EXPECT_THAT(LifecycleState::Files(), ElementsAre("lifecycle.task"));
}

TEST_F(SoftwareService, ScanOverwritesItsSpec) {
  LifecycleState::Put(kScanSpec, std::string(100000, 'x'));
  Id(Call("scan", R"(["http://z"])"));
  EXPECT_EQ(LifecycleState::Content(kScanSpec), kSpec);
}

TEST_F(SoftwareService, QuickPatchNeedsBothSwitchesAndTheInput) {
  struct Case {
    char const* features;
    char const* input;
    bool quick;
  };
  std::string const both = "QuickPatch = on\nQuickPatchTool = on\n";
  for (Case const& c : {
           Case{both.c_str(), R"(,"quick_patch":true)", true},
           Case{both.c_str(), R"(,"quick_patch":false)", false},
           Case{both.c_str(), "", false},
           Case{"QuickPatch = on\n", R"(,"quick_patch":true)", false},
           Case{"QuickPatchTool = on\n", R"(,"quick_patch":true)", false},
           Case{"", R"(,"quick_patch":true)", false},
       }) {
    for (char const* operation : {"apply", "scan"}) {
      LifecycleState::Reset();
      SetFeatures(c.features);
      launch_.commands.clear();
      Id(Call(operation, R"(["http://z"])", c.input));
      ASSERT_EQ(launch_.commands.size(), 1U);
      EXPECT_EQ(launch_.commands[0].find(" --quick-patch") != std::string::npos, c.quick)
          << operation << c.features << c.input;
      if (c.quick) {
        EXPECT_THAT(launch_.commands[0], EndsWith(" --quick-patch"));
      }
    }
  }
  LifecycleState::Reset();
  SetFeatures(both);
  launch_.commands.clear();
  Id(Call("stage", R"(["http://z"])"));
  EXPECT_THAT(launch_.commands[0], Not(HasSubstr("--quick-patch")));
}

TEST_F(SoftwareService, DepotsThatAreRefused) {
  for (char const* depots :
       {R"([])", R"([""])", R"(["http://a b"])", R"(["http://good","b ad"])", R"(["a\"b"])", R"(["a\\b"])",
        R"(["a<b"])", R"(["a>b"])", R"(["a|b"])", R"(["a^b"])", R"(["a`b"])", R"(["a{b"])", R"(["a}b"])",
        R"(["a\nb"])", R"(["a\n"])", R"(["\u00e4"])", R"(["a\u0000b"])", R"(["a\tb"])"}) {
    for (char const* operation : {"apply", "stage", "scan"}) {
      EXPECT_EQ(Call(operation, depots).Error(), kInvalidInput) << operation << ' ' << depots;
    }
    EXPECT_THAT(LifecycleState::Files(), IsEmpty()) << depots;  // no spec, no gate
  }
  EXPECT_THAT(launch_.commands, IsEmpty());
  EXPECT_THAT(LifecycleState::Records(), IsEmpty());
  EXPECT_EQ(launch_.sleeps, 0);
}

TEST_F(SoftwareService, ScanWithoutDepotsStillWritesItsSpec) {
  EXPECT_EQ(Call("scan", "[]").Error(), kInvalidInput);
  EXPECT_EQ(LifecycleState::Content(kScanSpec), kSpec);
}

TEST_F(SoftwareService, EveryCharacterOfAUrlPasses) {
  std::string const all =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~:/?#[]@!$&'()*+,;%=";
  std::string const id = Id(Call("apply", "[\"" + all + "\"]"));
  EXPECT_THAT(launch_.commands, ElementsAre(HasSubstr(" --depot " + all + " --software-spec ")));
}

TEST_F(SoftwareService, LongDepotIsNoTrouble) {
  std::string const depot(2000000, 'a');
  Id(Call("apply", "[\"" + depot + "\"]"));
  EXPECT_THAT(launch_.commands[0].size(), testing::Gt(depot.size()));
  EXPECT_EQ(Call("stage", "[\"" + depot + " \"]").Error(), kInvalidInput);
}

TEST_F(SoftwareService, NoTaskId) {
  LifeCycle::CurrentLaunchEnvironment().createUuid = []() -> char* { return nullptr; };
  for (char const* operation : {"apply", "stage", "scan"}) {
    EXPECT_EQ(Call(operation, "[]").Error(), "internal_server_error: com.orbane.ryn.task.uuid.error()");
  }
  EXPECT_FALSE(LifecycleState::Exists(kScanSpec));
}

TEST_F(SoftwareService, BusyGate) {
  LifecycleState::Put(LifeCycle::kTaskSyncFile, "TASK: x 1");
  for (char const* operation : {"apply", "stage", "scan"}) {
    launch_.slept = std::chrono::seconds(0);
    EXPECT_EQ(Call(operation, R"(["http://z"])").Error(),
              "not_allowed_in_current_state: com.orbane.ryn.task.contention()");
    EXPECT_EQ(launch_.slept, std::chrono::seconds(3));
  }
  EXPECT_THAT(LifecycleState::Files(), ElementsAre("lifecycle.task"));  // the specs are gone
  EXPECT_EQ(LifecycleState::Content(kScanSpec), kSpec);                 // the scan's stays
}

TEST_F(SoftwareService, ToolThatCannotBeStarted) {
  launch_.onStart = [] { return 2; };
  for (char const* operation : {"apply", "stage", "scan"}) {
    launch_.commands.clear();
    EXPECT_EQ(Call(operation, R"(["http://z"])").Error(),
              "internal_server_error: com.orbane.ryn.task.exec.error()");
    EXPECT_EQ(launch_.commands.size(), 3U);
  }
  EXPECT_THAT(LifecycleState::Files(), IsEmpty());
  EXPECT_EQ(LifecycleState::Content(kScanSpec), kSpec);
}

TEST_F(SoftwareService, RecordThatCannotBeMade) {
  LifecycleState::Put(LifeCycle::kTaskDatabasePath, "this is no database");
  for (char const* operation : {"apply", "stage", "scan"}) {
    EXPECT_EQ(Call(operation, R"(["http://z"])").Error(), "error: com.orbane.ryn.task.create.error()");
  }
  EXPECT_THAT(LifecycleState::Files(), IsEmpty());
}

TEST_F(SoftwareService, SpecThatCannotBeWritten) {
  boost::filesystem::remove_all("/var/orbane/lifecycle");
  LifecycleState::Put("/var/orbane/lifecycle", "a file");
  for (char const* operation : {"apply", "stage"}) {
    log_.Clear();
    EXPECT_EQ(Call(operation, R"(["http://z"])").Error(), kWriteError);
    for (std::string const& line : log_.texts(0)) {
      EXPECT_THAT(line, testing::StartsWith("[WriteToFile] "));  // no line of its own
    }
  }
  boost::filesystem::remove("/var/orbane/lifecycle");
  EXPECT_THAT(launch_.commands, IsEmpty());
}

TEST_F(SoftwareService, ScanSpecThatCannotBeWrittenLeavesTheMethod) {
  boost::filesystem::create_directories(std::string(kScanSpec) + "/full");
  EXPECT_EQ(Call("scan", R"(["http://z"])").Error(), "internal_server_error");  // bare, by the binder
  EXPECT_THAT(log_.texts(0), Contains(HasSubstr("std::exception")));
  boost::filesystem::remove_all(kScanSpec);
  EXPECT_THAT(launch_.commands, IsEmpty());
}

TEST_F(SoftwareService, SpecIsPassedThrough) {
  Answer const answer = ServiceCall::Call(
      api_, "apply",
      "{\"software_spec\":{\"base_image\":{\"version\":\"\"},\"components\":{\"na\\\"me\":\"\xE2\x82\xAC\"}},"
      "\"depots\":[\"http://z\"]}");
  EXPECT_EQ(LifecycleState::Content(SpecPath(Id(answer))),
            "{\"base_image\":{\"version\":\"\"},\"components\":{\"na\\\"me\":\"\xE2\x82\xAC\"}}");
}

/// For calls past the binder, with a record that no caller can send.
class Sink final : public Lumo::Provider::ResultSink {
 public:
  void Deliver(Lumo::Data::DataValuePtr const& output) override { answer.output = output; }
  void Fail(std::shared_ptr<Lumo::Data::ErrorValue const> const& error) override { answer.error = error; }
  std::shared_ptr<Lumo::Core::AsyncActivation> const& activation() const override { return activation_; }
  Answer answer;

 private:
  std::shared_ptr<Lumo::Core::AsyncActivation> activation_ =
      Lumo::Core::AsyncActivation::GetInstance(std::make_shared<Lumo::Core::ExecutionContext>());
};

TEST_F(SoftwareService, ScanOfARecordThatDoesNotAdapt) {
  auto const input = std::make_shared<Svc::ScanInput>();
  input->softwareSpec = std::make_shared<Com::Orbane::Ryn::KeelDaemon::SoftwareSpec>();  // no base image
  input->depots = {"http://z"};
  auto const sink = std::make_shared<Sink>();
  Svc::AsyncServiceImpl().Scan(
      input,
      Lumo::AsyncTaskResult<std::shared_ptr<Com::Orbane::Ryn::KeelDaemon::HostCompliance const>>(sink));
  EXPECT_EQ(sink->answer.Error(), kWriteError);
  EXPECT_THAT(log_.texts(0), ElementsAre("[Scan]: Failed to write software spec to file."));
  EXPECT_FALSE(LifecycleState::Exists(kScanSpec));
}

/// Only a scan looks at what the adapter reports: the tool finds that its document is none.
TEST_F(SoftwareService, ApplyAndStageOfARecordThatDoesNotAdapt) {
  auto const spec = std::make_shared<Com::Orbane::Ryn::KeelDaemon::SoftwareSpec>();  // no base image
  auto const apply = std::make_shared<Svc::ApplyInput>();
  apply->softwareSpec = spec;
  apply->depots = {"http://z"};
  auto const applied = std::make_shared<Sink>();
  Svc::AsyncServiceImpl().Apply(apply, Lumo::AsyncTaskResult<Lumo::Void>(applied));
  EXPECT_EQ(LifecycleState::Content(SpecPath(Id(applied->answer))), "null");

  LifecycleState::Reset();
  auto const stage = std::make_shared<Svc::StageInput>();
  stage->softwareSpec = spec;
  stage->depots = {"http://z"};
  auto const staged = std::make_shared<Sink>();
  Svc::AsyncServiceImpl().Stage(stage, Lumo::AsyncTaskResult<std::shared_ptr<Svc::StageInfo const>>(staged));
  EXPECT_EQ(LifecycleState::Content(SpecPath(Id(staged->answer))), "null");
  EXPECT_EQ(launch_.commands.size(), 2U);
  EXPECT_THAT(log_.texts(0), IsEmpty());
}

}  // namespace
