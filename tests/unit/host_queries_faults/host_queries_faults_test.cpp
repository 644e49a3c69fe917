// The queries of the image manager over a runner that ends in every way it may.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/logging/test_only_log_capture.h"
#include "runtime/l10n/localizer.h"
#include "software/hosts_components_svc.h"
#include "software/hosts_ryn_svc.h"
#include "tests/unit/fake_command_runner.h"
#include "tests/unit/lifecycle_state.h"
#include "tests/unit/service_call.h"

namespace {

using FakeCommandRunner::commands;
using FakeCommandRunner::ending;
using FakeCommandRunner::printed;
namespace Software = Com::Orbane::Ryn::Hosts::Software;

char const* const kInfo = R"({"name":"n","version":"1","display_name":"N","display_version":"1"})";

class HostQueriesFaults : public testing::Test {
 protected:
  static void SetUpTestSuite() { LifecycleState::InstallCatalogues(KEELD_SOURCE_DIR); }

  static void Tool(std::uint32_t kind, int code, std::string const& output) {
    ending = {kind, code};
    printed = output;
  }
  /// The answer's JSON, else its error.
  static std::string Told(ServiceCall::Answer const& answer) {
    EXPECT_EQ(answer.answers, 1);
    return answer.output ? answer.Json() : answer.Error();
  }
  std::string List() { return Told(ServiceCall::Call(components_, "list", "{}")); }
  std::string Get() { return Told(ServiceCall::Call(components_, "get", R"({"component":"web"})")); }
  std::string Base() { return Told(ServiceCall::Call(base_, "get", "{}")); }

  std::shared_ptr<Lumo::Provider::AsyncApiInterface const> const components_ =
      Software::ComponentsSvc::AsyncServiceBinder::BindImplementation(
          std::make_shared<Software::ComponentsSvc::AsyncServiceImpl>(),
          Lumo::L10n::LocalizerHelpers::GetDefaultLocalizer());
  std::shared_ptr<Lumo::Provider::AsyncApiInterface const> const base_ =
      Software::RynSvc::AsyncServiceBinder::BindImplementation(
          std::make_shared<Software::RynSvc::AsyncServiceImpl>(),
          Lumo::L10n::LocalizerHelpers::GetDefaultLocalizer());
  Orbane::TestOnlyLogCapture log_;
};

std::string CommandFailed(int code) {
  return std::string("internal_server_error: com.orbane.ryn.host_settings.command.failed(") +
         std::strerror(code) + ")";
}

TEST_F(HostQueriesFaults, CommandsLetterForLetter) {
  Tool(LifeCycle::RunOk, 0, "null");
  commands.clear();
  List();
  Get();
  Base();
  EXPECT_THAT(commands, testing::ElementsAre(
                            "/usr/bin/python /usr/lib/orbane/lifecycle/bin/stowctl.py component --list ",
                            "/usr/bin/python /usr/lib/orbane/lifecycle/bin/stowctl.py component --get web",
                            "/usr/bin/python /usr/lib/orbane/lifecycle/bin/stowctl.py ryn --get "));
}

TEST_F(HostQueriesFaults, ToolThatCannotBeStarted) {
  for (int const code : {ENOENT, EINVAL, 4711}) {
    Tool(LifeCycle::RunSpawnFailed, code, kInfo);  // whatever was printed
    EXPECT_EQ(List(), CommandFailed(code));
    EXPECT_EQ(Get(), CommandFailed(code));
    EXPECT_EQ(Base(), CommandFailed(code));
  }
}

TEST_F(HostQueriesFaults, ExitCodesAndRawWaitStatusesAreReadAsErrnos) {
  for (int const code : {1, 2, 9, 139, 255}) {
    Tool(LifeCycle::RunNonZeroExit, code, kInfo);
    EXPECT_EQ(List(), CommandFailed(code));
    EXPECT_EQ(Get(), CommandFailed(code));
    EXPECT_EQ(Base(), kInfo);  // none of its errors
  }
}

/// A failed write or read is no error: what has arrived is parsed.
TEST_F(HostQueriesFaults, PipesThatFail) {
  for (std::uint32_t const kind : {LifeCycle::RunWriteFailed, LifeCycle::RunReadFailed}) {
    Tool(kind, EIO, kInfo);
    EXPECT_EQ(Get(), kInfo);
    EXPECT_EQ(Base(), kInfo);
    Tool(kind, EIO, "[]");
    EXPECT_EQ(List(), "[]");
    Tool(kind, EIO, "null");
    EXPECT_EQ(List(), "not_found");
    EXPECT_EQ(Get(), "not_found");
    EXPECT_EQ(Base(), "not_found");
    Tool(kind, EIO, "[{\"name\":");
    EXPECT_EQ(List(), "internal_server_error");
    EXPECT_EQ(Get(), "internal_server_error");
    EXPECT_EQ(Base(), "internal_server_error");
  }
}

}  // namespace
