#include "security/host_input_filter.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "platform/logging/test_only_log_capture.h"
#include "tests/unit/filters/test_provider.h"

namespace {

namespace fs = std::filesystem;
using Host::Settings::SettingsApi::Filter::GenerateNotFound;
using Host::Settings::SettingsApi::Filter::HostInputFilter;
using namespace Lumo::Data;
using Lines = std::vector<Orbane::CapturedLine>;

DataValuePtr WithHost(DataValuePtr const& host) {
  auto input = StructValue::GetInstance("");
  input->SetField("host", host);
  return input;
}

DataValuePtr Text(std::string const& text) {
  return StringValue::GetInstance(text);
}

DataValuePtr Optional(DataValuePtr const& inner) {
  auto optional = OptionalValue::GetInstance();
  optional->value(inner);
  return optional;
}

class HostInputFilterTest : public testing::Test {
 protected:
  Seen Call(std::string const& service, DataValuePtr const& input) {
    Seen seen;
    filter->Invoke(std::make_shared<Lumo::Core::MethodIdentifier const>(service, "get"), input,
                   TestActivation(), seen.Callback());
    answeredInside = seen.answers;
    queue.Run();
    return seen;
  }

  Orbane::TestOnlyLogCapture log;
  PostQueue queue;
  int answeredInside = 0;
  std::shared_ptr<TestProvider> next = std::make_shared<TestProvider>();
  std::shared_ptr<HostInputFilter> filter = std::make_shared<HostInputFilter>(
      queue.Poster(), std::set<std::string>{"checked.one", "checked.two"}, next);
};

TEST_F(HostInputFilterTest, HasAName) {
  EXPECT_EQ(filter->ToString(), "HostInputFilter");
}

TEST_F(HostInputFilterTest, OtherServicesPassWithAnyHost) {
  for (DataValuePtr const& input : {WithHost(Text("elsewhere")), WithHost(IntegerValue::GetInstance(1))}) {
    next->calls = 0;
    Seen const seen = Call("unchecked", input);
    EXPECT_EQ(next->calls, 1);
    EXPECT_EQ(next->lastInput, input);
    EXPECT_EQ(seen.result, next->result);
    EXPECT_EQ(seen.progress.current, 4);
    EXPECT_TRUE(seen.continues);
  }
  EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(HostInputFilterTest, CheckedServicesPassWithoutHostOrWithLocalhost) {
  DataValuePtr const inputs[] = {nullptr,
                                 VoidValue::GetInstance(),
                                 Text("localhost"),
                                 StructValue::GetInstance(""),
                                 WithHost(Text("localhost")),
                                 WithHost(Optional(Text("localhost"))),
                                 WithHost(OptionalValue::GetInstance()),
                                 WithHost(VoidValue::GetInstance())};
  for (DataValuePtr const& input : inputs) {
    next->calls = 0;
    log.Clear();
    EXPECT_EQ(Call("checked.two", input).result, next->result);
    EXPECT_EQ(next->calls, 1);
    EXPECT_EQ(
        log.lines(),
        (Lines{{2, "Checking the host parameter value for method:checked.two.get and service:checked.two"}}));
  }
}

TEST_F(HostInputFilterTest, OtherHostsAreRefused) {
  struct Case {
    DataValuePtr host;
    char const* text;
  };
  for (Case const& c :
       {Case{Text("LOCALHOST"), "LOCALHOST"}, Case{Text("Localhost"), "Localhost"},
        Case{Text("127.0.0.1"), "127.0.0.1"}, Case{Text(""), ""}, Case{Text("localhost "), "localhost "},
        Case{Text("localhost."), "localhost."}, Case{Optional(Text("x%s")), "x%s"},
        Case{IntegerValue::GetInstance(1), "1"}, Case{BooleanValue::GetInstance(true), "true"}}) {
    next->calls = 0;
    log.Clear();
    Seen const seen = Call("checked.one", WithHost(c.host));
    EXPECT_EQ(answeredInside, 0) << "refused inside Invoke";
    EXPECT_EQ(next->calls, 0);
    ASSERT_EQ(seen.answers, 1);
    EXPECT_FALSE(seen.continues);
    EXPECT_EQ(seen.progress.min, 0);
    EXPECT_EQ(seen.progress.max, 1);
    EXPECT_EQ(seen.progress.current, 1);
    EXPECT_EQ(seen.result->output(), nullptr);
    ASSERT_NE(seen.result->error(), nullptr);
    EXPECT_EQ(seen.result->error()->name(), "com.orbane.lumo.std.errors.not_found");
    EXPECT_EQ(log.texts(0), (std::vector<std::string>{std::string("Host parameter value is:") + c.text +
                                                      ". It should be:localhost"}));
  }
}

TEST_F(HostInputFilterTest, ValuesOfOtherTypesThatReadLocalhostAreRefused) {
  auto const list = ListValue::GetInstance(ListValue::Form::List);
  list->Add(Text("localhost"));
  for (DataValuePtr const& host : std::initializer_list<DataValuePtr>{
           SecretValue::GetInstance("localhost"), BinaryValue::GetInstance("localhost"), list}) {
    next->calls = 0;
    EXPECT_NE(Call("checked.one", WithHost(host)).result->error(), nullptr);
    EXPECT_EQ(next->calls, 0);
  }
  EXPECT_FALSE(log.Contains("is:localhost")) << "secrets are not shown";
}

TEST_F(HostInputFilterTest, ErrorsAreTakenForStructuresToo) {
  auto const input = ErrorValue::GetInstance("e");
  input->SetField("host", Text("other"));
  EXPECT_NE(Call("checked.one", input).result->error(), nullptr);
}

TEST(GenerateNotFound, CarriesOneMessageWithBothNames) {
  Orbane::TestOnlyLogCapture const log;
  Seen seen;
  GenerateNotFound(seen.Callback(), "far.example")();
  ASSERT_EQ(seen.answers, 1);
  EXPECT_TRUE(seen.result->final());
  auto const& error = seen.result->error();
  auto const* const type = As<OptionalValue>(error->Find("error_type"));
  ASSERT_NE(type, nullptr);
  ASSERT_NE(As<StringValue>(type->Inner()), nullptr);
  EXPECT_EQ(As<StringValue>(type->Inner())->value(), "NOT_FOUND");
  EXPECT_FALSE(error->HasField("__originator__"));

  auto const* const messages = As<ListValue>(error->Find("messages"));
  ASSERT_NE(messages, nullptr);
  ASSERT_EQ(messages->size(), 1U);
  auto const* const message = As<StructValue>(messages->Item(0));
  EXPECT_EQ(As<StringValue>(message->Find("id"))->value(), "com.orbane.ryn.host.invalid");
  auto const* const args = As<ListValue>(message->Find("args"));
  ASSERT_EQ(args->size(), 2U);
  EXPECT_EQ(As<StringValue>(args->Item(0))->value(), "far.example");
  EXPECT_EQ(As<StringValue>(args->Item(1))->value(), "localhost");
}

/// The text of a refusal's one message.
std::string RefusalText(std::string const& host) {
  Seen seen;
  GenerateNotFound(seen.Callback(), host)();
  auto const* const messages = As<ListValue>(seen.result->error()->Find("messages"));
  auto const* const message = messages ? As<StructValue>(messages->Item(0)) : nullptr;
  auto const* const text = message ? As<StringValue>(message->Find("default_message")) : nullptr;
  return text ? std::string(text->value()) : "no text";
}

/// In a process of its own, since texts stay once they were loaded.
TEST(GenerateNotFoundDeathTest, TextIsThatOfTheCatalogue) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto const tellTexts = [] {
    fs::path const folder = "/usr/lib/orbane/configmanager/locale/en";
    fs::remove_all(folder);
    fs::create_directories(folder);
    std::cerr << RefusalText("far.example") << '|';
    std::ofstream(folder / "host.omsg") << "com.orbane.ryn.host.invalid = \"Not '{1}' but '{2}'.\"\n";
    std::cerr << RefusalText("far.example") << '|' << RefusalText("{2}") << '\n';
    std::_Exit(0);
  };
  EXPECT_EXIT(
      tellTexts(), testing::ExitedWithCode(0),
      "^Unknown message\\.\\|Not 'far\\.example' but 'localhost'\\.\\|Not '\\{2\\}' but 'localhost'\\.\n$");
}

}  // namespace
