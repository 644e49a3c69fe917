// What the tools of the command service get to see, with the real process control between.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "answer_sink.h"
#include "hostile_texts.h"
#include "platform/logging/test_only_log_capture.h"
#include "platform/process/command_words.h"
#include "recorded_calls.h"
#include "software/ryncli_svc.h"
#include "tests/unit/lifecycle_state.h"

namespace {

using Recorded::Words;
using testing::ElementsAre;
using testing::IsEmpty;

namespace Svc = Com::Orbane::Ryn::KeelDaemon::DataProcessingUnit::RyncliSvc;

Words const kListWords = {"/usr/bin/ryncli", "/bin/ryncli", "--formatter=xml",
                          "software",        "component",   "list"};

/// What an unquoted text comes to: what blanks, tabs and line feeds part. For texts without quotes and
/// backslashes.
Words SplitAtBlanks(std::string const& text) {
  Words words;
  std::string word;
  for (char const c : text + " ") {
    if (c != ' ' && c != '\t' && c != '\n') {
      word += c;
    } else if (!word.empty()) {
      words.push_back(std::move(word));
      word.clear();
    }
  }
  return words;
}

Words operator+(Words words, Words const& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

class RyncliInjection : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    LifecycleState::InstallCatalogues(KEELD_SOURCE_DIR);
    Recorded::Install();
  }
  void SetUp() override {
    Recorded::Answer("<answer/>");
    Recorded::Take();
  }

  void AddFlag(std::string const& flag, std::string const& value = "") {
    auto const record = std::make_shared<Svc::Flag>();
    record->flag = flag;
    record->value = value;
    input_->flags.push_back(record);
  }
  /// Runs "component list" with what was added to the input.
  ServiceCall::Answer Run() {
    input_->prefix = Svc::Prefix::RYNCLI;
    input_->command = Svc::Command::COMPONENT_LIST;
    return RunAsItIs();
  }
  ServiceCall::Answer RunAsItIs() {
    auto const sink = std::make_shared<AnswerSink>();
    Svc::AsyncServiceImpl().RunRyncliCmd(input_,
                                         Lumo::AsyncResult<std::shared_ptr<Svc::RyncliOutput const>>(sink));
    input_ = std::make_shared<Svc::RunRyncliCmdInput>();
    return sink->answer;
  }
  /// Runs it for one of the hostile texts: either it is refused and no process starts, or exactly the tool
  /// does, with the fixed words and `expected`, which are those that the line with `tail` splits into. A text
  /// that no command text can hold is a start failure.
  void RunHostile(std::string const& text, std::string const& tail, Words const& expected) {
    SCOPED_TRACE(testing::PrintToString(text.substr(0, 100)));
    long const before = Recorded::LastProcess();
    std::string const error = Run().Error();
    std::vector<Words> const calls = Recorded::Take();
    if (error.find("invalidinput") != std::string::npos) {
      ++refused_;
      EXPECT_THAT(calls, IsEmpty());
      EXPECT_EQ(Recorded::LastProcess(), before);
      return;
    }
    if (text.find('\0') != std::string::npos ||
        text.size() > 131000) {  // a word is at most 128 KiB with its NUL
      EXPECT_THAT(error, testing::HasSubstr(std::strerror(text.size() > 131000 ? E2BIG : EINVAL)));
      EXPECT_THAT(calls, IsEmpty());
      return;
    }
    ++ran_;
    EXPECT_EQ(error, "");
    EXPECT_THAT(calls, ElementsAre(kListWords + expected));
    EXPECT_EQ(Recorded::LastProcess(), before + 1);
    Words split;
    EXPECT_TRUE(Orbane::SplitCommand("/bin/ryncli --formatter=xml software component list" + tail, split));
    EXPECT_THAT(calls, ElementsAre(Words{kListWords[0]} + split));
  }
  std::shared_ptr<Svc::RunRyncliCmdInput> input_ = std::make_shared<Svc::RunRyncliCmdInput>();
  Orbane::TestOnlyLogCapture log_;
  int refused_ = 0;
  int ran_ = 0;
};

TEST_F(RyncliInjection, DocumentedExampleAsTheToolReceivesIt) {
  input_->prefix = Svc::Prefix::RYNCLI;
  input_->command = Svc::Command::PAK_LIST;
  input_->depots = {"http://depot/index.xml"};
  AddFlag("-f");
  AddFlag("-n", "a:b");
  ServiceCall::Answer const answer = RunAsItIs();
  EXPECT_EQ(answer.Json(), R"({"output":"<answer/>"})");
  EXPECT_THAT(Recorded::Take(),
              ElementsAre(Words{"/usr/bin/ryncli", "/bin/ryncli", "--formatter=xml", "software", "pak",
                                "list", "--depot", "http://depot/index.xml", "-f", "-n", "a:b"}));
}

TEST_F(RyncliInjection, EachToolAndCommandAsReceived) {
  Words const prefixes[] = {
      {"/usr/bin/ryncli", "/bin/ryncli", "--formatter=xml", "software"},
      {"/usr/bin/nearcli", "/bin/nearcli", "--formatter=xml", "software"},
      {"/usr/bin/nearcli", "/bin/nearcli", "--formatter=xml",
       "--plugin=/usr/lib/orbane/ryncli/int/ext/ryncli-softwareinternal.xml", "softwareinternal"}};
  for (int prefix = 0; prefix < 3; ++prefix) {
    for (Lumo::EnumText const& entry : Svc::Command::descriptor().texts) {
      input_->prefix = static_cast<Svc::Prefix::Value>(prefix);
      input_->command = static_cast<Svc::Command::Value>(entry.number);
      EXPECT_EQ(RunAsItIs().Error(), "");
      std::string words(entry.text);
      for (char& c : words) {
        c = c == '_' ? ' ' : static_cast<char>(std::tolower(c));
      }
      EXPECT_THAT(Recorded::Take(), ElementsAre(prefixes[prefix] + SplitAtBlanks(words)));
    }
  }
}

TEST_F(RyncliInjection, Depots) {
  for (std::string const& text : HostileTexts()) {
    input_->depots = {text};
    RunHostile(text, " --depot " + text, {"--depot", text});
  }
  EXPECT_GT(refused_, 500);
  EXPECT_GT(ran_, 50);
}

TEST_F(RyncliInjection, FlagsWithoutValue) {
  for (std::string const& text : HostileTexts()) {
    AddFlag(text);
    RunHostile(text, " " + text, SplitAtBlanks(text));
  }
  EXPECT_GT(refused_, 300);
  EXPECT_GT(ran_, 200);
}

TEST_F(RyncliInjection, FlagsWithValue) {
  for (std::string const& text : HostileTexts()) {
    AddFlag(text, "value");
    RunHostile(text, " " + text + " \"value\"", SplitAtBlanks(text) + Words{"value"});
  }
  EXPECT_GT(refused_, 300);
  EXPECT_GT(ran_, 200);
}

/// A value is one word, letter for letter, whatever it holds.
TEST_F(RyncliInjection, Values) {
  for (std::string const& text : HostileTexts()) {
    if (!text.empty()) {
      AddFlag("-n", text);
      RunHostile(text, " -n \"" + text + "\"", {"-n", text});
    }
  }
  EXPECT_GT(refused_, 200);
  EXPECT_GT(ran_, 300);
}

TEST_F(RyncliInjection, SpecValues) {
  for (std::string const& text : HostileTexts()) {
    if (!text.empty()) {
      AddFlag("-s", text);
      RunHostile(text, " -s " + text, {"-s", text});
    }
  }
  EXPECT_GT(refused_, 500);
  EXPECT_GT(ran_, 50);
}

TEST_F(RyncliInjection, ExitCodesAndSignalsOfTheTool) {
  for (int const status : {1, 2, 22, 95, 255}) {
    Recorded::Answer("<error/>", status);
    EXPECT_EQ(
        Run().Error(),
        std::string("internal_server_error: com.orbane.ryn.host_settings.command.failed(Error: <error/>. "
                    "ErrorCode: ") +
            std::strerror(status) + ")");
    EXPECT_THAT(log_.texts(0),
                ElementsAre("[RunRyncliCmd] Failed to run Ryncli command: " + std::to_string(status) + "."));
    log_.Clear();
  }
  Recorded::Answer("half", 0, SIGKILL);  // the raw wait status, not an exit code
  EXPECT_THAT(Run().Error(),
              testing::HasSubstr(std::string("Error: half. ErrorCode: ") + std::strerror(SIGKILL)));
}

TEST_F(RyncliInjection, OutputArrivesWhole) {
  std::string const output(300000, '<');
  Recorded::Answer(output);
  EXPECT_EQ(Run().Json(), R"({"output":")" + output + "\"}");
}

}  // namespace
