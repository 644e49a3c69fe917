// Requests of both dialects: what reaches the visitor, and what is refused with which error.
#include <gtest/gtest.h>

#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "runtime/json/error_code.h"
#include "runtime/json/request_id.h"
#include "runtime/json/serializers.h"

namespace Lumo::Protocol::Json {
namespace {

class Recorder : public Core::ApiRequestVisitor {
 public:
  std::error_code Visit(std::string const& requestId,
                        std::shared_ptr<Core::MethodIdentifier const> const& method,
                        Data::DataValuePtr const& params,
                        std::shared_ptr<Core::ExecutionContext> const& created) override {
    ++calls;
    id = requestId;
    service = method->service();
    operation = method->operation();
    input = params;
    context = created;
    return answer;
  }

  int calls = 0;
  std::string id;
  std::string service;
  std::string operation;
  Data::DataValuePtr input;
  std::shared_ptr<Core::ExecutionContext> context;
  std::error_code answer;
};

struct Accepted {
  char const* body;
  char const* id;
  char const* service;
  char const* operation;
  char const* input;
};
void PrintTo(Accepted const& test, std::ostream* out) {
  *out << test.body;
}

class AcceptedRequests : public testing::TestWithParam<Accepted> {};

TEST_P(AcceptedRequests, ReachTheVisitor) {
  Recorder visitor;
  std::shared_ptr<Data::ErrorValue const> error;
  std::string const body = GetParam().body;
  ASSERT_TRUE(JsonApiRequestDeserializer().Deserialize(std::string_view(body), visitor, error))
      << error->ToString();
  EXPECT_FALSE(error);
  EXPECT_EQ(visitor.calls, 1);
  EXPECT_EQ(visitor.id, GetParam().id);
  EXPECT_EQ(visitor.service, GetParam().service);
  EXPECT_EQ(visitor.operation, GetParam().operation);
  ASSERT_TRUE(visitor.input);
  EXPECT_EQ(visitor.input->ToString(), GetParam().input);
  ASSERT_TRUE(visitor.context);
  EXPECT_TRUE(visitor.context->applicationData().empty());

  Recorder again;
  std::stringbuf stream(body);
  ASSERT_TRUE(JsonApiRequestDeserializer().Deserialize(stream, again, error));
  EXPECT_EQ(again.id, visitor.id);
  EXPECT_TRUE(Data::DataValue::Equals(*again.input, *visitor.input));
}

Accepted const kAccepted[] = {
    {R"({"jsonrpc":"2.0","id":1,"method":"com.orbane.halo.tasks.get","params":{"task":"6f1c"}})", "21",
     "com.orbane.halo.tasks", "get", R"({"task":"6f1c"})"},
    {R"({"version":"1.1","id":1,"method":"a.b","params":{}})", "11", "a", "b", "{}"},
    {R"({"jsonrpc":"2.0","method":"a.b"})", "2null", "a", "b", "{}"},
    {R"({"jsonrpc":"2.0","id":null,"method":"a.b"})", "2null", "a", "b", "{}"},
    {R"({"version":"1.1","method":"a.b"})", "1null", "a", "b", "{}"},
    {R"({"jsonrpc":"2.0","id":"a","method":"a.b"})", "2\"a\"", "a", "b", "{}"},
    {R"({"jsonrpc":"2.0","id":"","method":"a.b"})", "2\"\"", "a", "b", "{}"},
    {R"({"jsonrpc":"2.0","id":"\"\u00e4\n","method":"a.b"})", "2\"\\\"\xC3\xA4\\n\"", "a", "b", "{}"},
    {R"({"jsonrpc":"2.0","id":-9223372036854775808,"method":"a.b"})", "2-9223372036854775808", "a", "b",
     "{}"},
    {R"({"params":{"@struct":"n","s":{"@set":[1]}},"method":"a.b.c","id":17,"jsonrpc":"2.0"})", "217", "a.b",
     "c", R"(n{"s":[1]})"},
    {R"({"jsonrpc":"2.0","id":1,"method":"a.b","params":{"@error":"e","a":1}})", "21", "a", "b",
     R"(e{"a":1})"},
    // Members that no dialect knows are ignored, and annotations in them too.
    {R"({"jsonrpc":"2.0","id":1,"method":"a.b","more":{"@nope":[{"@set":1}]},"@struct":"x"})", "21", "a", "b",
     "{}"},
    {" \n{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"a.b\"}\r\n", "21", "a", "b", "{}"},
};
INSTANTIATE_TEST_SUITE_P(All, AcceptedRequests, testing::ValuesIn(kAccepted));

struct Refused {
  std::string body;
  int code;
  char const* message;  // part of it
};
void PrintTo(Refused const& test, std::ostream* out) {
  *out << test.body.substr(0, 80);
}

class RefusedRequests : public testing::TestWithParam<Refused> {};

TEST_P(RefusedRequests, NeverReachTheVisitor) {
  Recorder visitor;
  std::shared_ptr<Data::ErrorValue const> error;
  EXPECT_FALSE(JsonApiRequestDeserializer().Deserialize(std::string_view(GetParam().body), visitor, error))
      << GetParam().body;
  EXPECT_EQ(visitor.calls, 0);
  ASSERT_TRUE(error);
  EXPECT_EQ(RpcCode(error->name()), GetParam().code) << GetParam().body << " " << error->ToString();
  EXPECT_NE(RpcMessage(*error).find(GetParam().message), std::string::npos) << RpcMessage(*error);
}

std::string Params(std::string const& params) {
  return R"({"jsonrpc":"2.0","id":1,"method":"a.b","params":)" + params + "}";
}
std::string Method(std::string const& method) {
  return R"({"jsonrpc":"2.0","id":1,"method":)" + method + R"(,"params":{}})";
}
std::string Id(std::string const& id) {
  return R"({"jsonrpc":"2.0","id":)" + id + R"(,"method":"a.b"})";
}
std::string Deep(std::size_t lists) {
  return R"({"a":)" + std::string(lists, '[') + std::string(lists, ']') + "}";
}

Refused const kRefused[] = {
    // No JSON document.
    {"", -32700, "offset 0"},
    {" ", -32700, "offset 1"},
    {"{", -32700, "ends too early"},
    {Params("{}") + "x", -32700, "follows the document"},
    {Params("{}") + std::string(1, '\0'), -32700, "follows the document"},
    {"\xEF\xBB\xBF" + Params("{}"), -32700, "byte order mark"},
    {Params("{\"a\":\"\xFF\"}"), -32700, "UTF-8"},
    {Params(R"({"a":"\udc00"})"), -32700, "surrogate"},
    {Params(R"({"a":1,"a":1})"), -32700, "comes twice"},
    {Params("{}").replace(1, 0, R"("id":1,)"), -32700, "comes twice"},
    {R"({"jsonrpc":"2.0","jsonrpc":"2.0","id":1,"method":"a.b"})", -32700, "comes twice"},
    {Params(R"({"a":1e400})"), -32700, "double"},
    {Params(R"({"a":9223372036854775808})"), -32700, "64 bits"},
    {Params(Deep(127)), -32700, "deeper than 128"},
    {std::string(100'000, '['), -32700, "deeper than 128"},
    {R"({"more":)" + std::string(600, '[') + std::string(600, ']') + "}", -32700, "deeper than 128"},
    // No document, although an annotation before was bad too.
    {R"({"params":{"@nope":1},"a":})", -32700, "expected a value"},
    // No envelope.
    {"null", -32600, "object"},
    {"1", -32600, "object"},
    {"\"a\"", -32600, "object"},
    {"[]", -32600, "object"},
    {"[" + Params("{}") + "]", -32600, "object"},
    {"{}", -32600, "neither"},
    {R"({"id":1,"method":"a.b"})", -32600, "neither"},
    {R"({"jsonrpc":"2.0","version":"1.1","id":1,"method":"a.b"})", -32600, "both"},
    {R"({"jsonrpc":"1.1","id":1,"method":"a.b"})", -32600, "'jsonrpc'"},
    {R"({"jsonrpc":2.0,"id":1,"method":"a.b"})", -32600, "'jsonrpc'"},
    {R"({"jsonrpc":null,"id":1,"method":"a.b"})", -32600, "'jsonrpc'"},
    {R"({"jsonrpc":{"@secret":"2.0"},"id":1,"method":"a.b"})", -32600, "'jsonrpc'"},
    {R"({"version":"2.0","id":1,"method":"a.b"})", -32600, "'version'"},
    {R"({"version":"1.0","id":1,"method":"a.b"})", -32600, "'version'"},
    {Id("1.0"), -32600, "'id'"},
    {Id("1e2"), -32600, "'id'"},
    {Id("true"), -32600, "'id'"},
    {Id("[1]"), -32600, "'id'"},
    {Id("{}"), -32600, "'id'"},
    {Id(R"({"@optional":null})"), -32600, "'id'"},
    {Id(R"({"@nope":1})"), -32600, "'id'"},
    {Id(R"({"@secret":"s"})"), -32600, "'id'"},
    {R"({"jsonrpc":"2.0","id":1})", -32600, "'method'"},
    {Method("null"), -32600, "'method'"},
    {Method("7"), -32600, "'method'"},
    {Method(R"({"@secret":"a.b"})"), -32600, "'method'"},
    {Method(R"("")"), -32600, "no dot"},
    {Method(R"("get")"), -32600, "no dot"},
    {Method(R"(".")"), -32600, "empty part"},
    {Method(R"(".get")"), -32600, "empty part"},
    {Method(R"("a.")"), -32600, "empty part"},
    {Method(R"("a..b")"), -32600, "empty part"},
    {Params("null"), -32600, "'params'"},
    {Params("[]"), -32600, "'params'"},
    {Params("[1]"), -32600, "'params'"},
    {Params("1"), -32600, "'params'"},
    {Params("1.5"), -32600, "'params'"},
    {Params("true"), -32600, "'params'"},
    {Params(R"("a")"), -32600, "'params'"},
    // An envelope that is wrong goes before an annotation that is.
    {R"({"jsonrpc":"2.0","id":1,"method":"ab","params":{"@nope":1}})", -32600, "no dot"},
    // A bad annotation.
    {Params(R"({"@nope":1})"), -32602, "offset 48: unknown annotation '@nope'"},
    {Params(R"({"a":{"@binary":"A"}})"), -32602, "offset 53: annotation '@binary' wants a text in base64"},
    {Params(R"({"a":{"@first":1},"b":{"@second":1}})"), -32602, "'@first'"},
    {R"({"x":{"@elsewhere":1},"jsonrpc":"2.0","method":"a.b","params":{"a":{"@here":1}},"y":{"@later":1}})",
     -32602, "'@here'"},
    {Params(R"({"@set":[]})"), -32602, "structure"},
    {Params(R"({"@map":[]})"), -32602, "structure"},
    {Params(R"({"@optional":null})"), -32602, "structure"},
    {Params(R"({"@secret":"s"})"), -32602, "structure"},
};
INSTANTIATE_TEST_SUITE_P(All, RefusedRequests, testing::ValuesIn(kRefused));

TEST(Request, EnvelopeCountsForDepth) {
  Recorder visitor;
  std::shared_ptr<Data::ErrorValue const> error;
  EXPECT_TRUE(JsonApiRequestDeserializer().Deserialize(std::string_view(Params(Deep(126))), visitor, error));
}

TEST(Request, EveryCutBodyIsNoDocument) {
  std::string const body =
      R"({"jsonrpc":"2.0","id":"x","method":"a.b","params":{"a":[1,2.5,{"@binary":"AAAA"},"\u00e4"],"b":null}})";
  for (std::size_t size = 0; size < body.size(); ++size) {
    Recorder visitor;
    std::shared_ptr<Data::ErrorValue const> error;
    ASSERT_FALSE(
        JsonApiRequestDeserializer().Deserialize(std::string_view(body).substr(0, size), visitor, error));
    ASSERT_EQ(error->name(), "com.orbane.lumo.std.errors.json_parse_error") << size;
    ASSERT_EQ(visitor.calls, 0);
  }
}

TEST(Request, AnErrorOfTheVisitorIsAnInvalidRequest) {
  Recorder visitor;
  visitor.answer = std::make_error_code(std::errc::bad_message);
  std::shared_ptr<Data::ErrorValue const> error;
  EXPECT_FALSE(JsonApiRequestDeserializer().Deserialize(std::string_view(Params("{}")), visitor, error));
  EXPECT_EQ(visitor.calls, 1);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->name(), "com.orbane.lumo.std.errors.invalid_request");
  EXPECT_EQ(RpcCode(error->name()), -32600);
  EXPECT_EQ(RpcMessage(*error), visitor.answer.message());
}

TEST(Request, ExceptionsOfTheVisitorPassThrough) {
  struct Thrower : Recorder {
    std::error_code Visit(std::string const& /*id*/,
                          std::shared_ptr<Core::MethodIdentifier const> const& /*method*/,
                          Data::DataValuePtr const& /*input*/,
                          std::shared_ptr<Core::ExecutionContext> const& /*context*/) override {
      throw std::runtime_error("from the visitor");
    }
  } visitor;
  std::shared_ptr<Data::ErrorValue const> error;
  EXPECT_THROW(JsonApiRequestDeserializer().Deserialize(std::string_view(Params("{}")), visitor, error),
               std::runtime_error);
}

TEST(Request, InputOutlivesTheBody) {
  Recorder visitor;
  std::shared_ptr<Data::ErrorValue const> error;
  auto body = std::make_unique<std::string>(Params(R"({"a":"some text behind which the memory is gone"})"));
  ASSERT_TRUE(JsonApiRequestDeserializer().Deserialize(std::string_view(*body), visitor, error));
  std::fill(body->begin(), body->end(), 'x');
  body.reset();
  EXPECT_EQ(visitor.input->ToString(), R"({"a":"some text behind which the memory is gone"})");
}

TEST(RequestId, EncodesDialectAndText) {
  EXPECT_EQ(EncodeRequestId({Dialect::JsonRpc20, "\"a\""}), "2\"a\"");
  EXPECT_EQ(EncodeRequestId({Dialect::JsonRpc20, "17"}), "217");
  EXPECT_EQ(EncodeRequestId({Dialect::JsonRpc11, "null"}), "1null");
}

TEST(RequestId, DecodesWhatIsEncodedAndTakesTheRestForNull) {
  struct Case {
    char const* encoded;
    Dialect dialect;
    char const* json;
  } const cases[] = {
      {"2\"a\"", Dialect::JsonRpc20, "\"a\""}, {"217", Dialect::JsonRpc20, "17"},
      {"1null", Dialect::JsonRpc11, "null"},   {"1-5", Dialect::JsonRpc11, "-5"},
      {"", Dialect::JsonRpc20, "null"},        {"1", Dialect::JsonRpc20, "null"},
      {"317", Dialect::JsonRpc20, "null"},     {"x", Dialect::JsonRpc20, "null"},
  };
  for (Case const& test : cases) {
    RequestId const id = DecodeRequestId(test.encoded);
    EXPECT_EQ(id.dialect, test.dialect) << test.encoded;
    EXPECT_EQ(id.json, test.json) << test.encoded;
  }
}

}  // namespace
}  // namespace Lumo::Protocol::Json
