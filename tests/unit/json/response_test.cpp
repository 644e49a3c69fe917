// Answers of both dialects and forms, letter by letter.
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "runtime/json/error_code.h"
#include "runtime/json/serializers.h"
#include "tests/unit/json/tree.h"

namespace Lumo::Protocol::Json {
namespace {

using namespace Data;
using namespace Tree;
using Core::MethodResult;

struct Answer {
  std::string text;
  std::shared_ptr<ErrorValue const> error;
};

Answer Invoke(Core::ApiResponseSerializer&& serializer, std::string const& id,
              std::shared_ptr<MethodResult const> const& result, bool isStream = false) {
  Answer answer;
  serializer.SerializeInvoke(id, result, answer.text, answer.error, isStream);
  return answer;
}

std::shared_ptr<MethodResult const> Success(DataValuePtr const& output) {
  return std::make_shared<MethodResult const>(output, nullptr, false);
}
std::shared_ptr<MethodResult const> Failure(std::shared_ptr<ErrorValue const> const& error) {
  return std::make_shared<MethodResult const>(nullptr, error, true);
}

std::shared_ptr<ErrorValue> NotFound() {
  return ErrorValue::Create("com.orbane.lumo.std.errors.not_found", {BaseMessage("x.y", "no \"x\"", {"x"})});
}

TEST(Response, ResultsInBothFormsAndDialects) {
  auto const result = Success(Struct("n", {{"a", Unset()}, {"b", Int(1)}}));
  EXPECT_EQ(Invoke(JsonApiResponseSerializer<0>(), "217", result).text,
            R"({"jsonrpc":"2.0","id":17,"result":{"@struct":"n","a":{"@optional":null},"b":1}})");
  EXPECT_EQ(Invoke(JsonApiDirectResponseSerializer<0>(), "2\"x\"", result).text,
            R"({"jsonrpc":"2.0","id":"x","result":{"b":1}})");
  EXPECT_EQ(Invoke(JsonApiResponseSerializer<0>(), "1null", result).text,
            R"({"version":"1.1","id":null,"result":{"@struct":"n","a":{"@optional":null},"b":1}})");
  EXPECT_EQ(Invoke(JsonApiDirectResponseSerializer<0>(), "11", result).text,
            R"({"version":"1.1","id":1,"result":{"b":1}})");
}

TEST(Response, StreamFlagChangesNothing) {
  auto const result = Success(Int(1));
  EXPECT_EQ(Invoke(JsonApiResponseSerializer<0>(), "21", result, true).text,
            Invoke(JsonApiResponseSerializer<0>(), "21", result, false).text);
}

TEST(Response, VoidAndUnsetResultsAreNull) {
  for (DataValuePtr const& output : {Void(), Unset(), DataValuePtr()}) {
    EXPECT_EQ(Invoke(JsonApiDirectResponseSerializer<0>(), "21", Success(output)).text,
              R"({"jsonrpc":"2.0","id":1,"result":null})");
  }
}

TEST(Response, ErrorsInBothFormsAndDialects) {
  EXPECT_EQ(
      Invoke(JsonApiResponseSerializer<0>(), "21", Failure(NotFound())).text,
      R"({"jsonrpc":"2.0","id":1,"error":{"code":-32003,"message":"no \"x\"","data":{"@error":"com.orbane.lumo.std.errors.not_found","messages":[{"@struct":"com.orbane.lumo.std.localizable_message","id":"x.y","default_message":"no \"x\"","args":["x"],"localized":{"@optional":null}}]}}})");
  EXPECT_EQ(
      Invoke(JsonApiDirectResponseSerializer<0>(), "11", Failure(NotFound())).text,
      R"({"version":"1.1","id":1,"error":{"name":"JSONRPCError","code":-32003,"message":"no \"x\"","data":{"messages":[{"id":"x.y","default_message":"no \"x\"","args":["x"]}]}}})");
}

TEST(Response, AnErrorGoesBeforeAnOutput) {
  auto const result = std::make_shared<MethodResult const>(Int(1), ErrorValue::GetInstance("e"), true);
  EXPECT_EQ(Invoke(JsonApiDirectResponseSerializer<0>(), "21", result).text,
            R"({"jsonrpc":"2.0","id":1,"error":{"code":-32099,"message":"e","data":{}}})");
}

TEST(Response, MessageIsTheFirstMessagesText) {
  auto message = [](Fields fields) {
    return List(Form::List, {Struct("m", fields), Struct("m", {{"localized", Str("2nd")}})});
  };
  struct Case {
    DataValuePtr messages;
    char const* expected;
  } const cases[] = {
      {message({{"default_message", Str("default")}, {"localized", Str("localised")}}), "localised"},
      {message({{"default_message", Str("default")}, {"localized", Optional(Str("localised"))}}),
       "localised"},
      {message({{"default_message", Str("default")}, {"localized", Unset()}}), "default"},
      {message({{"default_message", Str("default")}}), "default"},
      {message({}), "e.x"},
      {List(Form::List, {}), "e.x"},
      {List(Form::List, {Int(1)}), "e.x"},
      {Int(1), "e.x"},
      {Unset(), "e.x"},
  };
  for (Case const& test : cases)
    EXPECT_EQ(RpcMessage(*Error("e.x", {{"messages", test.messages}})), test.expected);
  EXPECT_EQ(RpcMessage(*Error("e.x", {})), "e.x");
}

TEST(Response, EachErrorHasItsCode) {
  std::pair<char const*, int> const codes[] = {
      {"com.orbane.lumo.std.errors.json_parse_error", -32700},
      {"com.orbane.lumo.std.errors.invalid_request", -32600},
      {"com.orbane.lumo.std.errors.operation_not_found", -32601},
      {"com.orbane.lumo.std.errors.invalid_argument", -32602},
      {"com.orbane.lumo.std.errors.internal_server_error", -32603},
      {"com.orbane.lumo.std.errors.error", -32000},
      {"com.orbane.lumo.std.errors.already_exists", -32001},
      {"com.orbane.lumo.std.errors.not_allowed_in_current_state", -32002},
      {"com.orbane.lumo.std.errors.not_found", -32003},
      {"com.orbane.lumo.std.errors.resource_inaccessible", -32004},
      {"com.orbane.lumo.std.errors.service_unavailable", -32005},
      {"com.orbane.lumo.std.errors.unauthenticated", -32006},
      {"com.orbane.lumo.std.errors.unauthorized", -32007},
      {"com.orbane.lumo.std.errors.unsupported", -32008},
      {"com.orbane.lumo.std.errors.timed_out", -32099},
      {"com.orbane.lumo.std.errors.", -32099},
      {"not_found", -32099},
      {"invalid_request", -32099},
      {"", -32099},
  };
  for (auto const& [identifier, code] : codes)
    EXPECT_EQ(RpcCode(identifier), code) << identifier;
}

TEST(Response, BareErrorsCarryTheirOwnCodeAndMessage) {
  auto const value = Error("invalid_content_type", {{"code", Int(400)}, {"message", Str("text/xml")}});
  std::string text = "head";
  std::shared_ptr<ErrorValue const> error;
  JsonApiResponseSerializer<0>().SerializeError(value, text, error);
  EXPECT_FALSE(error);
  EXPECT_EQ(
      text,
      R"(head{"jsonrpc":"2.0","id":null,"error":{"code":400,"message":"text/xml","data":{"@error":"invalid_content_type","code":400,"message":"text/xml"}}})");
}

TEST(Response, BareErrorsWithoutCodeAndMessageHaveThoseOfTheirKind) {
  std::string text;
  std::shared_ptr<ErrorValue const> error;
  JsonApiDirectResponseSerializer<0>().SerializeError(NotFound(), text, error);
  EXPECT_EQ(
      text.find(
          R"({"jsonrpc":"2.0","id":null,"error":{"code":-32003,"message":"no \"x\"","data":{"messages")"),
      0U)
      << text;
}

TEST(Response, ProgressIsAMemberOfItsOwn) {
  std::string text;
  std::shared_ptr<ErrorValue const> error;
  JsonApiResponseSerializer<0>().SerializeInvokeProgress("25", Progress{0, 100, 42}, text, error);
  EXPECT_EQ(text, R"({"jsonrpc":"2.0","id":5,"progress":{"min":0,"max":100,"current":42}})");
}

TEST(Response, AValueThatCannotBeWrittenLeavesNothing) {
  Answer const answer =
      Invoke(JsonApiResponseSerializer<0>(), "21", Success(Real(std::numeric_limits<double>::infinity())));
  EXPECT_EQ(answer.text, "");
  ASSERT_TRUE(answer.error);
  EXPECT_EQ(answer.error->name(), "com.orbane.lumo.std.errors.internal_server_error");
}

TEST(Response, IsOneDocumentThatTheReadersTake) {
  for (char const* id : {"2\"\\\"\"", "11", "2null"}) {
    Answer const answer = Invoke(JsonApiResponseSerializer<2>(), id, Success(Struct("n", {{"a", Int(1)}})));
    std::shared_ptr<ErrorValue const> error;
    EXPECT_TRUE(JsonDirectDataDeserializer::Deserialize(answer.text, error)) << answer.text;
  }
}

}  // namespace
}  // namespace Lumo::Protocol::Json
