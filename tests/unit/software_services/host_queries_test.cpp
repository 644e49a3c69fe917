// Components and base image as the image manager tells them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fake_tool.h"
#include "platform/logging/test_only_log_capture.h"
#include "runtime/l10n/localizer.h"
#include "software/hosts_components_svc.h"
#include "software/hosts_ryn_svc.h"
#include "tests/unit/lifecycle_state.h"
#include "tests/unit/service_call.h"

namespace {

using ServiceCall::Answer;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace Software = Com::Orbane::Ryn::Hosts::Software;

char const* const kComponent =
    R"({"name":"web","version":"1.0","display_name":"Web","display_version":"1.0 GA","vendor":"V",)"
    R"("impact":"REBOOT","platforms":["x86_64"],"paks":[{"name":"p","version":"1","size":12,"acceptance":"vendor"}]})";
char const* const kBase = R"({"name":"base","version":"2.0","display_name":"Base","display_version":"2.0"})";

class HostQueries : public testing::Test {
 protected:
  static void SetUpTestSuite() { LifecycleState::InstallCatalogues(KEELD_SOURCE_DIR); }

  Answer GetComponent(std::string const& name) {
    return Checked(ServiceCall::Call(components_, "get", R"({"component":")" + name + R"("})"));
  }
  Answer ListComponents() { return Checked(ServiceCall::Call(components_, "list", "{}")); }
  Answer GetBase() { return Checked(ServiceCall::Call(base_, "get", "{}")); }
  static Answer Checked(Answer const& answer) {
    EXPECT_EQ(answer.answers, 1);
    return answer;
  }

  static std::shared_ptr<Lumo::L10n::Localizer const> Localizer() {
    return Lumo::L10n::LocalizerHelpers::GetDefaultLocalizer();
  }
  std::shared_ptr<Lumo::Provider::AsyncApiInterface const> const components_ =
      Software::ComponentsSvc::AsyncServiceBinder::BindImplementation(
          std::make_shared<Software::ComponentsSvc::AsyncServiceImpl>(), Localizer());
  std::shared_ptr<Lumo::Provider::AsyncApiInterface const> const base_ =
      Software::RynSvc::AsyncServiceBinder::BindImplementation(
          std::make_shared<Software::RynSvc::AsyncServiceImpl>(), Localizer());
  Orbane::TestOnlyLogCapture log_;
};

std::string CommandFailed(int code) {
  return std::string("internal_server_error: com.orbane.ryn.host_settings.command.failed(") +
         std::strerror(code) + ")";
}

TEST_F(HostQueries, List) {
  FakeTool::Install(R"([{"name":"a","version":"1","display_name":"A","display_version":"1","unknown":{}},)"
                    R"({"name":"b","version":"2","display_name":"B","display_version":"2","vendor":"V"}])"
                    "\n");
  EXPECT_EQ(ListComponents().Json(),
            R"([{"name":"a","version":"1","display_name":"A","display_version":"1"},)"
            R"({"name":"b","version":"2","display_name":"B","display_version":"2","vendor":"V"}])");
  EXPECT_THAT(FakeTool::Calls(), ElementsAre("component|--list"));
  EXPECT_THAT(log_.texts(3), Contains("[RunCommand] About to run command /usr/bin/python "
                                      "/usr/lib/orbane/lifecycle/bin/stowctl.py component --list "));
}

TEST_F(HostQueries, EmptyList) {
  FakeTool::Install("[]");
  EXPECT_EQ(ListComponents().Json(), "[]");
}

TEST_F(HostQueries, GetComponent) {
  FakeTool::Install(kComponent);
  EXPECT_EQ(GetComponent("web").Json(), kComponent);
  EXPECT_THAT(FakeTool::Calls(), ElementsAre("component|--get|web"));
  EXPECT_THAT(log_.texts(3), Contains("[RunCommand] About to run command /usr/bin/python "
                                      "/usr/lib/orbane/lifecycle/bin/stowctl.py component --get web"));
}

TEST_F(HostQueries, GetBase) {
  FakeTool::Install(kBase);
  EXPECT_EQ(GetBase().Json(), kBase);
  EXPECT_THAT(FakeTool::Calls(), ElementsAre("ryn|--get"));
  EXPECT_THAT(log_.texts(3), Contains("[RunCommand] About to run command /usr/bin/python "
                                      "/usr/lib/orbane/lifecycle/bin/stowctl.py ryn --get "));
}

TEST_F(HostQueries, UnsafeNamesRunNothing) {
  FakeTool::Install(kComponent);
  for (char const* name : {"name:1.0", "", "   ", "a;b", "a`b", "$a", "~", "a\\nb"}) {
    log_.Clear();
    EXPECT_EQ(GetComponent(name).Error(),
              "invalid_argument: com.orbane.ryn.host_settings.software.component.invalid()")
        << name;
    EXPECT_EQ(log_.lines(),
              (std::vector<Orbane::CapturedLine>{{0, "[Get] Invalid component name specified"}}));
  }
  EXPECT_THAT(FakeTool::Calls(), IsEmpty());
}

TEST_F(HostQueries, BlankInsideANamePasses) {
  FakeTool::Install(kComponent);
  EXPECT_EQ(GetComponent("two words").Error(), "");
  EXPECT_THAT(FakeTool::Calls(), ElementsAre("component|--get|two|words"));
}

TEST_F(HostQueries, ToolThatFails) {
  FakeTool::Install(kComponent, 2);
  EXPECT_EQ(ListComponents().Error(), CommandFailed(2));
  EXPECT_EQ(GetComponent("web").Error(), CommandFailed(2));
  FakeTool::Install(kBase, 2);
  EXPECT_EQ(GetBase().Json(), kBase);  // an exit code is no error here
}

TEST_F(HostQueries, ToolThatCannotBeStarted) {
  FakeTool::RemoveInterpreter();
  EXPECT_EQ(ListComponents().Error(), CommandFailed(ENOENT));
  EXPECT_EQ(GetComponent("web").Error(), CommandFailed(ENOENT));
  EXPECT_EQ(GetBase().Error(), CommandFailed(ENOENT));
  FakeTool::RestoreInterpreter();
}

TEST_F(HostQueries, Null) {
  FakeTool::Install("null");
  EXPECT_EQ(GetComponent("web").Error(), "not_found");
  EXPECT_EQ(GetBase().Error(), "not_found");
  EXPECT_THAT(log_.texts(0), ElementsAre("[Get] Result is null ", "[Get] Result is null "));
  log_.Clear();
  EXPECT_EQ(ListComponents().Error(), "not_found");
  EXPECT_THAT(log_.texts(0), IsEmpty());
}

TEST_F(HostQueries, NullWithALineEndGoesOnToTheParse) {
  FakeTool::Install("null\n");
  EXPECT_EQ(GetComponent("web").Error(), "internal_server_error");
  EXPECT_EQ(GetBase().Error(), "internal_server_error");
  EXPECT_EQ(ListComponents().Error(), "not_found");
  EXPECT_THAT(log_.texts(0), IsEmpty());
}

TEST_F(HostQueries, NullAndExitCodeOne) {
  FakeTool::Install("null", 1);
  EXPECT_EQ(GetBase().Error(), "not_found");
  EXPECT_EQ(GetComponent("web").Error(), CommandFailed(1));
}

TEST_F(HostQueries, OutputThatDoesNotFit) {
  FakeTool::Install(R"({"name":7})");
  EXPECT_THAT(GetComponent("web").Error(), StartsWith("internal_server_error: lumo.data."));
  EXPECT_THAT(GetBase().Error(), StartsWith("internal_server_error: lumo.data."));
  FakeTool::Install(R"([{"name":7}])");
  EXPECT_THAT(ListComponents().Error(), StartsWith("internal_server_error: lumo.data."));
  EXPECT_THAT(log_.texts(0), ElementsAre(StartsWith("[Get] Could not adapt to native types : "),
                                         StartsWith("[Get] Could not adapt to native types : "),
                                         StartsWith("[List] Could not adapt to native types : ")));
}

TEST_F(HostQueries, ObjectInPlaceOfTheListIsAnEmptyList) {
  FakeTool::Install("{}");
  EXPECT_EQ(ListComponents().Json(), "[]");
}

/// Whatever a tool prints, the call is answered with an error, and the next one works.
TEST_F(HostQueries, HostileOutput) {
  struct Case {
    char const* what;
    std::string output;
  };
  for (Case const& c : {Case{"nothing", ""}, Case{"half a document", "[{\"name\":\"a\","},
                        Case{"50 MB", std::string(50 << 20, '[')}, Case{"NULs", std::string(5000, '\0')},
                        Case{"bad UTF-8", "[{\"name\":\"\xC3\x28\"}]"},
                        Case{"brackets", std::string(100000, '[')}, Case{"gzip magic", "\x1f\x8bxxxx"},
                        Case{"traceback", "Traceback (most recent call last):\n  File \"x\"\n"}}) {
    SCOPED_TRACE(c.what);
    FakeTool::Install(c.output);
    Orbane::TestOnlyLogCapture const quiet(1);
    EXPECT_EQ(ListComponents().Error(), "internal_server_error");
    EXPECT_EQ(GetComponent("web").Error(), "internal_server_error");
    EXPECT_EQ(GetBase().Error(), "internal_server_error");
    for (std::string const& line : quiet.texts()) {
      EXPECT_LT(line.size(), 20000U);
    }
    EXPECT_THAT(quiet.texts(), Contains(testing::AnyOf(HasSubstr("Deserialize from JSON failed: "),
                                                       HasSubstr("Decompression failed: "))));
  }
  FakeTool::Install(kBase);
  EXPECT_EQ(GetBase().Json(), kBase);
}

}  // namespace
