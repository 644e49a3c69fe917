#include "software/ryncli_svc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/logging/test_only_log_capture.h"
#include "runtime/l10n/localizer.h"
#include "tests/unit/fake_command_runner.h"
#include "tests/unit/lifecycle_state.h"
#include "tests/unit/service_call.h"

namespace {

using FakeCommandRunner::commands;
using FakeCommandRunner::ending;
using FakeCommandRunner::printed;
using Orbane::CapturedLine;
using testing::IsEmpty;

namespace Svc = Com::Orbane::Ryn::KeelDaemon::DataProcessingUnit::RyncliSvc;

char const* const kRefused = "internal_server_error: com.orbane.ryn.lumo.invalidinput(No such process)";

/// An input in JSON. `depots` and `flags` are lists of JSON values without their brackets.
std::string Input(std::string const& prefix, std::string const& command, std::string const& depots = "",
                  std::string const& flags = "") {
  return R"({"prefix":)" + prefix + R"(,"command":)" + command + R"(,"depots":[)" + depots +
         R"(],"flags":[)" + flags + "]}";
}

std::string Flag(std::string const& flag, std::string const& value = "") {
  return R"({"flag":")" + flag + R"(","value":")" + value + R"("})";
}

class RyncliService : public testing::Test {
 protected:
  static void SetUpTestSuite() { LifecycleState::InstallCatalogues(KEELD_SOURCE_DIR); }
  void SetUp() override { Tool(LifeCycle::RunOk, 0, "<answer/>"); }

  static void Tool(std::uint32_t kind, int code, std::string const& output) {
    ending = {kind, code};
    printed = output;
    commands.clear();
  }
  ServiceCall::Answer Call(std::string const& input) {
    log_.Clear();
    ServiceCall::Answer answer = ServiceCall::Call(api_, "run_ryncli_cmd", input);
    EXPECT_EQ(answer.answers, 1);
    return answer;
  }
  /// The one line that an input makes.
  std::string Line(std::string const& input) {
    commands.clear();
    EXPECT_EQ(Call(input).Error(), "");
    EXPECT_EQ(commands.size(), 1U);
    return commands.empty() ? "" : commands[0];
  }
  /// Expects a refusal: nothing has run, and this is all that the log says.
  void Refused(std::string const& input, std::string const& reason) {
    commands.clear();
    EXPECT_EQ(Call(input).Error(), kRefused) << input;
    EXPECT_EQ(log_.lines(), (std::vector<CapturedLine>{{0, "[RunRyncliCmd] " + reason}})) << input;
    EXPECT_THAT(commands, IsEmpty()) << input;
  }

  std::shared_ptr<Lumo::Provider::AsyncApiInterface const> const api_ =
      Svc::AsyncServiceBinder::BindImplementation(std::make_shared<Svc::AsyncServiceImpl>(),
                                                  Lumo::L10n::LocalizerHelpers::GetDefaultLocalizer());
  Orbane::TestOnlyLogCapture log_;
};

TEST_F(RyncliService, IsWhatCallersCall) {
  EXPECT_EQ(*api_->identifier(), "com.orbane.ryn.keel_daemon.data_processing_unit.ryncli");
}

TEST_F(RyncliService, DocumentedExample) {
  EXPECT_EQ(Line(Input("0", "17", R"("http://depot/index.xml")", Flag("-f") + "," + Flag("-n", "a:b"))),
            "/bin/ryncli --formatter=xml software pak list --depot http://depot/index.xml -f -n \"a:b\"");
}

TEST_F(RyncliService, EnumerationsByTextAndByNumber) {
  EXPECT_EQ(Line(Input(R"("RYNCLI")", R"("COMPONENT_LIST")")),
            "/bin/ryncli --formatter=xml software component list");
  EXPECT_EQ(Line(Input(R"("NEARCLI")", R"("ACCEPTANCE_GET")")),
            "/bin/nearcli --formatter=xml software acceptance get");
  EXPECT_EQ(
      Line(Input(R"("NEARCLI_INTERNAL")", "20")),
      "/bin/nearcli --formatter=xml --plugin=/usr/lib/orbane/ryncli/int/ext/ryncli-softwareinternal.xml "
      "softwareinternal pak update");
}

TEST_F(RyncliService, OutputIsTheResult) {
  EXPECT_EQ(Call(Input("0", "7")).Json(), R"({"output":"<answer/>"})");
  EXPECT_THAT(log_.lines(), IsEmpty());
  Tool(LifeCycle::RunOk, 0, "");
  EXPECT_EQ(Call(Input("0", "7")).Json(), R"({"output":""})");
}

TEST_F(RyncliService, UnknownPrefixAndCommand) {
  for (char const* prefix : {"3", "4", "-1", "4294967296", "9223372036854775807", R"("ryncli")", R"("")",
                             R"("RYNCLI ")", R"("/bin/sh")"}) {
    Refused(Input(prefix, "17"), "Invalid prefix.");
  }
  for (char const* command :
       {"21", "22", "-1", "4294967313", R"("pak list")", R"("")", R"("PAK LIST")", R"("PAK_LIST; id")"}) {
    Refused(Input("0", command), "Invalid command.");
  }
}

TEST_F(RyncliService, FirstRefusalEndsTheWork) {
  std::string const depot = R"("https://a/index.xml")";
  std::string const flags = Flag(" ") + "," + Flag(";", "x");
  Refused(Input("3", "21", depot, flags), "Invalid prefix.");
  Refused(Input("0", "21", depot, flags), "Invalid command.");
  Refused(Input("0", "0", depot, flags), "Invalid Depot.");
  Refused(Input("0", "0", "", flags), "Invalid flag specified. Unsafe to continue.");
  Refused(Input("0", "0", "", Flag("-f") + "," + Flag(";", "x") + "," + Flag("")),
          "Invalid  flag specified. Unsafe to continue.");
}

TEST_F(RyncliService, Depots) {
  EXPECT_EQ(Line(Input("0", "7")), "/bin/ryncli --formatter=xml software component list");  // none, no check
  EXPECT_EQ(
      Line(Input("0", "7", R"("http:b.xml","http:a.xml","http:b.xml")")),
      "/bin/ryncli --formatter=xml software component list --depot http:b.xml --depot http:a.xml --depot "
      "http:b.xml");
  for (char const* depots :
       {R"("")", R"("http:a.xml","")", R"("http:a.xml","https:b.xml")", R"("http://a_b/xml")",
        R"("http://a?b.xml")", R"("http:a.xml\u0000")", R"("http:a.xml --help")"}) {
    Refused(Input("0", "7", depots), "Invalid Depot.");
  }
}

TEST_F(RyncliService, FlagsWithoutValue) {
  EXPECT_EQ(Line(Input("0", "7", "", Flag("-f") + "," + Flag("--all words") + "," + Flag("-s"))),
            "/bin/ryncli --formatter=xml software component list -f --all words -s");
  for (char const* flag :
       {"", " ", "\\t \\r", "-n;", "-n:", "-n\\\"", "-n'", "-n\\\\", "-n\\n", "`id`", "$HOME", "~"}) {
    Refused(Input("0", "7", "", Flag(flag)), "Invalid flag specified. Unsafe to continue.");
  }
}

TEST_F(RyncliService, FlagsWithValue) {
  EXPECT_EQ(Line(Input("0", "7", "",
                       Flag("-n", "a b") + "," + Flag("--x y", "a:b:c.d") + "," + Flag("-S", "a:b.c"))),
            "/bin/ryncli --formatter=xml software component list -n \"a b\" --x y \"a:b:c.d\" -S \"a:b.c\"");
  for (char const* flag : {"", " ", "\\t", "-n;", "-n:", "a:b", "-n\\\""}) {
    Refused(Input("0", "7", "", Flag(flag, "x")), "Invalid  flag specified. Unsafe to continue.");
    Refused(Input("0", "7", "", Flag(flag, ";")), "Invalid  flag specified. Unsafe to continue.");
  }
  for (char const* value :
       {" ", "\\n", "a\\\"b", "a:b:c:d", "a: b", "$a", "a;b", "http://x/spec.json", "a\\\\", "\\\""}) {
    Refused(Input("0", "7", "", Flag("-n", value)), "Invalid argument specified. Unsafe to continue.");
  }
}

TEST_F(RyncliService, SpecFlag) {
  EXPECT_EQ(
      Line(Input("0", "3", R"("http:a.xml")",
                 Flag("-s", "http://a/spec.json") + "," + Flag("-s", "http:bjson"))),
      "/bin/ryncli --formatter=xml software apply --depot http:a.xml -s http://a/spec.json -s http:bjson");
  for (char const* value :
       {"http://a/spec.xml", "a", " ", "a:b", "https://a/spec.json", "http://a/s pec.json"}) {
    Refused(Input("0", "3", "", Flag("-s", value)), "Invalid spec argument specified. Unsafe to continue.");
  }
  EXPECT_EQ(Line(Input("0", "3", "", Flag("-s ", "a:b"))),
            "/bin/ryncli --formatter=xml software apply -s  \"a:b\"");  // another flag
  EXPECT_EQ(Line(Input("0", "3", "", Flag("--s", "a"))),
            "/bin/ryncli --formatter=xml software apply --s \"a\"");
}

/// Whatever went wrong, the code alone decides, and its text as an errno is told.
TEST_F(RyncliService, FailuresOfTheTool) {
  struct Case {
    std::uint32_t kind;
    int code;
  };
  for (Case const& c : {Case{LifeCycle::RunSpawnFailed, ENOENT}, Case{LifeCycle::RunSpawnFailed, 4711},
                        Case{LifeCycle::RunNonZeroExit, 1}, Case{LifeCycle::RunNonZeroExit, 255},
                        Case{LifeCycle::RunNonZeroExit, 9}, Case{LifeCycle::RunNonZeroExit, 139},
                        Case{LifeCycle::RunWriteFailed, EPIPE}, Case{LifeCycle::RunReadFailed, EIO}}) {
    for (char const* output : {"", "<error>{1} {}</error>\n"}) {
      Tool(c.kind, c.code, output);
      EXPECT_EQ(Call(Input("0", "7")).Error(),
                std::string("internal_server_error: com.orbane.ryn.host_settings.command.failed(Error: ") +
                    output + ". ErrorCode: " + std::strerror(c.code) + ")");
      EXPECT_EQ(log_.lines(), (std::vector<CapturedLine>{{0, "[RunRyncliCmd] Failed to run Ryncli command: " +
                                                                 std::to_string(c.code) + "."}}));
      EXPECT_EQ(commands.size(), 1U);
    }
  }
  Tool(LifeCycle::RunReadFailed, 0, "half");  // a failure without a code is none
  EXPECT_EQ(Call(Input("0", "7")).Json(), R"({"output":"half"})");
}

TEST_F(RyncliService, InputThatDoesNotFitNeverArrives) {
  for (char const* input :
       {R"({"prefix":0,"command":7})", R"({"prefix":0,"command":7,"depots":[],"flags":[null]})",
        R"({"prefix":0,"command":7,"depots":[1],"flags":[]})",
        R"({"prefix":[],"command":7,"depots":[],"flags":[]})",
        R"({"prefix":0,"command":7,"depots":[],"flags":[{"flag":"-f"}]})",
        R"({"prefix":0,"command":7,"depots":[],"flags":[],"shell":"/bin/sh"})"}) {
    commands.clear();
    EXPECT_THAT(Call(input).Error(), testing::StartsWith("invalid_argument")) << input;
    EXPECT_THAT(commands, IsEmpty());
  }
}

}  // namespace
