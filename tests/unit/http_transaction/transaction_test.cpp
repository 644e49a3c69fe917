// Whole transactions: what goes over the wire, what is logged, what becomes of the connection.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/http_transaction/fake_connection.h"
#include "transport/update_execution_ctx_helper.h"

namespace Lumo::Transport::TestSupport {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Lines = std::vector<std::string>;

Lines const kCallLines = {"0 Request head: [P]",       "0 RequestReadCb[P]",  "1 Request received[P]",
                          "0 Response head sent: [P]", "0 ResponseSentCb[P]", "0 Request handled[P]"};

std::string const kBadHead =
    "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\nServer: Lumo-PicoHttp\r\n\r\n";

/// The answer to a request that can't be understood.
std::string InvalidAnswer(std::string const& name, std::string const& message) {
  std::string const body = R"({"jsonrpc":"2.0","id":null,"error":{"code":400,"message":")" + message +
                           R"(","data":{"@error":")" + name + R"(","code":400,"message":")" + message +
                           R"("}}})";
  return "HTTP/1.1 400 Bad Request\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\nContent-Type: text/plain\r\nConnection: close\r\nServer: Lumo-PicoHttp\r\n\r\n" + body;
}

class TransactionTest : public ConnectionTest {};

TEST_F(TransactionTest, APlainCallIsAnsweredAndTheConnectionKept) {
  EXPECT_EQ(Exchange(Call()), Answer());
  EXPECT_EQ(logger_->TakeLines(), kCallLines);
  EXPECT_TRUE(wire_->open);
  ASSERT_EQ(calls_.size(), 1U);
  EXPECT_EQ(calls_[0].method, "s.o");
  EXPECT_EQ(wire_->writes.size(), 1U) << "an answer that fits one write leaves in one";
}

TEST_F(TransactionTest, AConnectionThatIsToCloseSaysSoAndCloses) {
  EXPECT_EQ(Exchange(Call("Connection: Close\r\n")), Answer("close"));
  EXPECT_EQ(logger_->TakeLines(), kCallLines);
  calls_.clear();
  EXPECT_TRUE(wire_->destroyed);
}

TEST_F(TransactionTest, TheApplicationsOwnUpdateReachesTheCall) {
  class OriginKeeper final : public Provider::JsonRpc1_1::ContextUpdate {
   public:
    void Update(Http::HeaderRange& headers, Core::ExecutionContext& context) const override {
      for (; !headers.atEnd(); headers.advance()) {
        if (headers.current().name() == "x-origin") {
          context.applicationData()["origin"] = std::string(headers.current().value());
        }
      }
    }
  };
  spec_->contextUpdate = std::make_shared<OriginKeeper const>();
  EXPECT_EQ(Exchange(Call("X-Origin: here\r\n")), Answer());
  ASSERT_EQ(calls_.size(), 1U);
  EXPECT_EQ(calls_[0].activation->executionContext()->applicationData().at("origin"), "here");
}

TEST_F(TransactionTest, AnOldClientWithoutConnectionHeaderIsKept) {
  std::string call = Call();
  call.replace(call.find("HTTP/1.1"), 8, "HTTP/1.0");
  EXPECT_EQ(Exchange(call), Answer());
  EXPECT_TRUE(wire_->open);
}

TEST_F(TransactionTest, AnErrorResultIsA200WithItsName) {
  service_ = [](ReceivedCall const& call) {
    call.callback(ErrorResult("com.orbane.lumo.std.errors.not_found"), {}, {});
  };
  std::string const answer = Exchange(Call());
  EXPECT_THAT(answer,
              StartsWith("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Type: application/json\r\n"
                         "Connection: Keep-Alive\r\nlumo-error: com.orbane.lumo.std.errors.not_found\r\n"
                         "Server: Lumo-PicoHttp\r\n\r\n"));
  EXPECT_THAT(answer, HasSubstr(R"("data":{"@error":"com.orbane.lumo.std.errors.not_found")"));
}

TEST_F(TransactionTest, TheAcceptHeaderChoosesTheForm) {
  service_ = [](ReceivedCall const& call) {
    auto value = Data::StructValue::GetInstance("s.n");
    value->SetField("a", Data::IntegerValue::GetInstance(1));
    call.callback(Core::MethodResult::GetInstance(value), {}, {});
  };
  EXPECT_EQ(Exchange(Call("Accept: application/vnd.orbane.lumo.cleanjson\r\n")),
            Answer("Keep-Alive", R"({"jsonrpc":"2.0","id":1,"result":{"a":1}})", "",
                   "application/vnd.orbane.lumo.cleanjson"));
  EXPECT_EQ(Exchange(Call()),
            Answer("Keep-Alive", R"({"jsonrpc":"2.0","id":1,"result":{"@struct":"s.n","a":1}})"));
  EXPECT_EQ(Exchange(Call("Accept: application/vnd.orbane.lumo.framed\r\n")),
            Answer("Keep-Alive", R"({"jsonrpc":"2.0","id":1,"result":{"@struct":"s.n","a":1}})"));
}

TEST_F(TransactionTest, ACallComesWithItsContext) {
  Exchange(
      Call("Authorization: Basic cm9vdDpzZWNyZXQ=\r\nlumo-ctx-opid: nightly-42\r\nAccept-Language: de\r\n",
           R"({"version":"1.1","id":"a","method":"a.b.c","params":{"x":1}})"));
  ASSERT_EQ(calls_.size(), 1U);
  Core::ExecutionContext const& context = *calls_[0].activation->executionContext();
  EXPECT_EQ(context.securityContext().schemeId, "com.orbane.lumo.std.security.user_pass");
  EXPECT_EQ(context.securityContext().entries.at("userName"), "root");
  EXPECT_EQ(context.applicationData().at("opId"), "nightly-42");
  EXPECT_EQ(context.applicationData().at("userBindingInfoKey"), "127.0.0.1");
  EXPECT_EQ(context.applicationData().at("peerPort"), "50000");
  EXPECT_EQ(calls_[0].activation->requestContext().at("requestId"), R"(1"a")");
  EXPECT_EQ(calls_[0].activation->requestContext().at("opId"), "nightly-42");
  EXPECT_EQ(calls_[0].activation->requestLocalizer().locale().language.ToString(), "de");
  EXPECT_EQ(calls_[0].activation->localizer(), spec_->localizer);
  for (std::string const& line : logger_->TakeLines()) {
    EXPECT_THAT(line, Not(HasSubstr("secret")));
    EXPECT_THAT(line, Not(HasSubstr("cm9vd")));
  }
}

TEST_F(TransactionTest, APeerThatCannotBeReadIsLeftOut) {
  Connect();
  wire_->peerError = boost::asio::error::not_connected;
  wire_->Feed(Call());
  Poll();
  ASSERT_EQ(calls_.size(), 1U);
  EXPECT_EQ(calls_[0].activation->executionContext()->applicationData().count("userBindingInfoKey"), 0U);
  EXPECT_EQ(wire_->output, Answer());
}

TEST_F(TransactionTest, ABadLocaleHeaderIsNoReasonToRefuse) {
  EXPECT_EQ(Exchange(Call("Accept-Language: ;;;\r\nlumo-ctx-format-locale: !!\r\n")), Answer());
  ASSERT_EQ(calls_.size(), 1U);
  EXPECT_TRUE(calls_[0].activation->localeSpec()) << "whatever the extraction gave is kept";
}

TEST_F(TransactionTest, RequestsThatCannotBeUnderstoodAreAnsweredAndClosed) {
  struct Case {
    std::string head;
    std::string name;
    std::string message;
  };
  std::string const type = "The content type '{}' is not supported; send application/json.";
  auto const typeText = [&type](std::string const& value) {
    return std::string(type).replace(type.find("{}"), 2, value);
  };
  for (Case const& row : std::vector<Case>{
           {"POST / HTTP/1.1\r\nContent-Length: 2\r\n\r\n{}", "invalid_content_type", typeText("")},
           {"POST / HTTP/1.1\r\nContent-Type: text/plain\r\nContent-Length: 2\r\n\r\n{}",
            "invalid_content_type", typeText("text/plain")},
           {"POST / HTTP/1.1\r\nContent-Type: Application/JSON\r\nContent-Length: 2\r\n\r\n{}",
            "invalid_content_type", typeText("Application/JSON")},
           {"GET / HTTP/1.1\r\n\r\n", "invalid_content_type", typeText("")},
           {"POST / HTTP/1.1\r\nContent-Type: application/vnd.orbane.lumo.framed\r\nContent-Length: "
            "2\r\n\r\n{}",
            "invalid_request", "The request is not valid."},
           {"POST / HTTP/1.1\r\nContent-Type: application/vnd.orbane.lumo.cleanjson\r\n\r\n",
            "invalid_request", "The request is not valid."},
           {"POST / HTTP/1.1\r\nContent-Type: application/vnd.orbane.lumo.stream.json\r\n\r\n",
            "invalid_request", "The request is not valid."},
           {"POST / HTTP/1.1\r\nContent-Type: application/json, application/vnd.orbane.lumo.framed\r\n\r\n",
            "invalid_request", "The request is not valid."},
           {"POST / HTTP/1.1\r\nContent-Type: application/vnd.orbane.lumo.framed\r\nContent-Length: "
            "2500001\r\n\r\n",
            "request_exceeds_max_size", "The request is larger than the server takes."},
           {"POST / HTTP/1.1\r\nContent-Length: 2500001\r\n\r\n", "invalid_content_type", typeText("")},
           {"POST / HTTP/1.1\r\nAccept: application/vnd.orbane.lumo.clean.stream.json\r\n\r\n",
            "invalid_content_type", typeText("")},
       }) {
    EXPECT_EQ(Exchange(row.head), InvalidAnswer(row.name, row.message)) << row.head;
    EXPECT_FALSE(wire_->open);
    EXPECT_EQ(wire_->writes.size(), 1U);
    EXPECT_THAT(logger_->TakeLines(), ElementsAre("0 Request head: [P]", "1 Request is considered as bad",
                                                  "1 Sent InvalidRequest response:[P]",
                                                  StartsWith("0 Handle request error: [P]InvalidRequest")));
  }
  EXPECT_TRUE(calls_.empty());
}

TEST_F(TransactionTest, AnInvalidAnswerThatCannotBeSentIsLogged) {
  Connect();
  wire_->failWrite = 0;
  wire_->Feed("POST / HTTP/1.1\r\n\r\n");
  Poll();
  EXPECT_THAT(logger_->TakeLines(), ElementsAre("0 Request head: [P]", "1 Request is considered as bad",
                                                "1 Failed to send InvalidRequest response:[P]system:104",
                                                StartsWith("0 Handle request error: [P]InvalidRequest")));
  EXPECT_FALSE(wire_->open);
}

TEST_F(TransactionTest, ABodyOfTheLimitIsTakenAndOneByteMoreIsNot) {
  std::string const frame = R"({"jsonrpc":"2.0","id":1,"method":"s.o","params":{"a":""}})";
  std::string body = frame;
  body.insert(body.size() - 3, std::string(2500000 - frame.size(), 'x'));
  ASSERT_EQ(body.size(), 2500000U);
  EXPECT_EQ(Exchange(Call("", body)), Answer());
  logger_->TakeLines();

  EXPECT_EQ(Exchange(Call("", body + " ")),
            InvalidAnswer("request_exceeds_max_size", "The request is larger than the server takes."));
  EXPECT_THAT(logger_->TakeLines(),
              ElementsAre("0 Request head: [P]", "1 RequestReadCb: [P] Error: Lumo Transport Http:2",
                          "1 Sent InvalidRequest response:[P]",
                          StartsWith("0 Handle request error: [P]InvalidRequest")));
  EXPECT_FALSE(wire_->open);

  std::string const chunked =
      "POST / HTTP/1.1\r\nContent-Type: application/json\r\nTransfer-Encoding: chunked\r\n\r\n";
  EXPECT_EQ(Exchange(chunked + Chunk(body) + "0\r\n\r\n"), Answer());
  EXPECT_EQ(Exchange(chunked + Chunk(body + " ") + "0\r\n\r\n"),
            InvalidAnswer("invalid_request", "The request is not valid."))
      << "a chunked body has a content length of 0";
}

TEST_F(TransactionTest, ABodyThatEndsEarlyIsAnsweredAsInvalid) {
  Connect();
  std::string const call = Call();
  wire_->Feed(call.substr(0, call.size() - 1));
  wire_->End();
  Poll();
  EXPECT_EQ(wire_->output, InvalidAnswer("invalid_request", "The request is not valid."));
  EXPECT_THAT(logger_->TakeLines(),
              ElementsAre("0 Request head: [P]", "1 RequestReadCb: [P] Error: Lumo Transport PicoHttp:6",
                          "1 Sent InvalidRequest response:[P]",
                          StartsWith("0 Handle request error: [P]InvalidRequest")));
}

TEST_F(TransactionTest, AMalformedChunkIsAnsweredAsInvalid) {
  EXPECT_EQ(
      Exchange("POST / HTTP/1.1\r\nContent-Type: application/json\r\nTransfer-Encoding: chunked\r\n\r\nx"),
      InvalidAnswer("invalid_request", "The request is not valid."));
  EXPECT_EQ(logger_->TakeLines()[1], "1 RequestReadCb: [P] Error: Lumo Transport PicoHttp:2");
}

TEST_F(TransactionTest, ASilentBodyTimesOut) {
  Connect();
  wire_->Feed(Call().substr(0, 100));
  Poll();
  Advance(kReadTimeout - std::chrono::seconds(1));
  EXPECT_TRUE(wire_->open);
  Advance(std::chrono::seconds(1));
  EXPECT_FALSE(wire_->open);
  EXPECT_THAT(logger_->TakeLines(),
              ElementsAre("0 Request head: [P]", "1 RequestReadCb: [P] Error: Lumo Transport PicoHttp:6",
                          "1 Failed to send InvalidRequest response:[P]system:32",
                          StartsWith("0 Handle request error: [P]InvalidRequest")));
}

TEST_F(TransactionTest, AnIdleConnectionIsClosedWithoutAWord) {
  Connect();
  Poll();
  Advance(kReadTimeout);
  EXPECT_FALSE(wire_->open);
  EXPECT_EQ(wire_->output, "");
  EXPECT_TRUE(logger_->TakeLines().empty());
}

TEST_F(TransactionTest, AKeptConnectionTimesOutAfterItsLastRead) {
  Exchange(Call());
  Advance(kReadTimeout - std::chrono::seconds(1));
  EXPECT_TRUE(wire_->open);
  Advance(std::chrono::seconds(1));
  EXPECT_FALSE(wire_->open);
}

TEST_F(TransactionTest, AClientThatReadsTooSlowlyIsCutOff) {
  Connect();
  wire_->blockWrites = true;
  wire_->Feed(Call());
  Poll();
  Advance(kWriteTimeout);
  EXPECT_FALSE(wire_->open);
  EXPECT_THAT(logger_->TakeLines(), testing::Contains("1 Failed to sent response head[P]system:32"));
}

TEST_F(TransactionTest, AnEmptyBodyGetsNoAnswerAndTheNextRequestIsServed) {
  EXPECT_EQ(Exchange(Call("", "")), "");
  EXPECT_EQ(logger_->TakeLines(), (Lines{"0 Request head: [P]", "0 RequestReadCb[P]", "1 Request received[P]",
                                         "0 Request handled[P]"}));
  wire_->Feed(Call());
  Poll();
  EXPECT_EQ(wire_->output, Answer());
}

TEST_F(TransactionTest, AGetWithALengthLeavesItsBodyToTheNextRequest) {
  std::string const get =
      "GET / HTTP/1.1\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(Call().size()) +
      "\r\n\r\n";
  EXPECT_EQ(Exchange(get + Call()), Answer());
}

TEST_F(TransactionTest, MalformedJsonIsA200WithALength) {
  std::string const answer = Exchange(Call("", "{"));
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\nContent-Length: "));
  EXPECT_THAT(
      answer,
      HasSubstr("\r\nContent-Type: application/json\r\nConnection: Keep-Alive\r\n"
                "lumo-error: com.orbane.lumo.std.errors.json_parse_error\r\n"
                "Server: Lumo-PicoHttp\r\n\r\n{\"jsonrpc\":\"2.0\",\"id\":null,\"error\":{\"code\":-32700"));
  std::size_t const end = answer.find("\r\n\r\n") + 4;
  EXPECT_THAT(answer, HasSubstr("Content-Length: " + std::to_string(answer.size() - end) + "\r\n"));
  EXPECT_EQ(wire_->writes.size(), 1U);
  EXPECT_EQ(logger_->TakeLines(),
            (Lines{"0 Request head: [P]", "0 RequestReadCb[P]", "1 Request received[P]",
                   "1 Response head sent (Deserializer error): [P]", "0 Request handled[P]"}));
  wire_->output.clear();
  wire_->Feed(Call());
  Poll();
  EXPECT_EQ(wire_->output, Answer()) << "the connection is kept";
}

TEST_F(TransactionTest, MalformedJsonOnAConnectionThatIsToClose) {
  EXPECT_THAT(Exchange(Call("Connection: close\r\n", "{")), HasSubstr("Connection: close\r\n"));
  EXPECT_TRUE(wire_->destroyed);
}

TEST_F(TransactionTest, ADeserializerErrorThatCannotBeSentIsLogged) {
  Connect();
  wire_->failWrite = 0;
  wire_->Feed(Call("", "{"));
  Poll();
  Lines const lines = logger_->TakeLines();
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_EQ(lines[3], "1 Failed to sent Deserializer error [P] Error: system:104");
  EXPECT_THAT(lines[4], StartsWith("0 Handle request error: [P]system_error"));
  EXPECT_FALSE(wire_->open);
}

TEST_F(TransactionTest, AHeaderThatNamesAnotherOperationIsRefused) {
  for (std::string const header : {"lumo-operation: other\r\n", "lumo-service: other\r\n"}) {
    std::string const answer = Exchange(Call(header));
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\nContent-Length: "));
    EXPECT_THAT(answer, HasSubstr("lumo-error: com.orbane.lumo.std.errors.invalid_request\r\n"));
    EXPECT_THAT(answer, HasSubstr("Mismatching operation identifier in HTTP header and payload"));
    EXPECT_TRUE(wire_->open);
  }
  EXPECT_TRUE(calls_.empty());
  EXPECT_EQ(Exchange(Call("lumo-operation: o\r\nlumo-service: s\r\n")), Answer());
}

TEST_F(TransactionTest, BackToBackRequestsAreAnsweredInOrder) {
  std::string const first = Call("", R"({"jsonrpc":"2.0","id":1,"method":"s.o"})");
  std::string const second = Call("", R"({"jsonrpc":"2.0","id":2,"method":"s.o"})");
  std::vector<ReceivedCall> waiting;
  service_ = [&waiting](ReceivedCall const& call) { waiting.push_back(call); };
  EXPECT_EQ(Exchange(first + second), "");
  ASSERT_EQ(calls_.size(), 1U) << "the second is not looked at before the first is answered";
  logger_->TakeLines();
  waiting[0].callback(TextResult("first"), {}, {});
  Poll();
  EXPECT_EQ(wire_->output, Answer("Keep-Alive", R"({"jsonrpc":"2.0","id":1,"result":"first"})"));
  EXPECT_EQ(logger_->TakeLines(),
            (Lines{"0 Response head sent: [P]", "0 ResponseSentCb[P]", "0 Request handled[P]",
                   "0 Request head: [P]", "0 RequestReadCb[P]", "1 Request received[P]"}));
  ASSERT_EQ(calls_.size(), 2U);
  wire_->output.clear();
  waiting[1].callback(TextResult("second"), {}, {});
  Poll();
  EXPECT_EQ(wire_->output, Answer("Keep-Alive", R"({"jsonrpc":"2.0","id":2,"result":"second"})"));
}

TEST_F(TransactionTest, ManyPipelinedRequestsOfAllKindsKeepTheirOrder) {
  service_ = [](ReceivedCall const& call) {
    call.callback(TextResult(call.activation->requestContext().at("requestId").substr(1)), {}, {});
  };
  std::string input;
  std::string expected;
  for (int i = 1000; i < 1200; ++i) {
    std::string const id = std::to_string(i);
    std::string const body = R"({"jsonrpc":"2.0","id":)" + id + R"(,"method":"s.o"})";
    std::string const expect = i % 3 == 0 ? "Expect: 100-continue\r\n" : "";
    expected += i % 3 == 0 ? "HTTP/1.1 100 Continue\r\n\r\n" : "";
    input += i % 2 == 0 ? Call(expect, body)
                        : "POST / HTTP/1.1\r\n" + expect +
                              "Content-Type: application/json\r\nTransfer-Encoding: chunked\r\n\r\n" +
                              Chunk(body) + "0\r\n\r\n";
    expected += Answer("Keep-Alive", R"({"jsonrpc":"2.0","id":)" + id + R"(,"result":")" + id + R"("})");
  }
  ASSERT_GT(input.size(), 16384U);
  EXPECT_EQ(Exchange(input), expected);
}

TEST_F(TransactionTest, ACallThatIsLetGoEndsTheConnection) {
  service_ = [](ReceivedCall const& /*call*/) {};
  EXPECT_EQ(Exchange(Call()), "");
  EXPECT_FALSE(wire_->destroyed);
  calls_.clear();
  Poll();
  EXPECT_TRUE(wire_->destroyed);
}

TEST_F(TransactionTest, ANullResultAndASecondAnswerAreIgnored) {
  service_ = [](ReceivedCall const& call) {
    call.callback(nullptr, {}, {});
    call.callback(TextResult("ok"), {}, {});
    call.callback(TextResult("again"), {}, {});
  };
  EXPECT_EQ(Exchange(Call()), Answer());
}

}  // namespace
}  // namespace Lumo::Transport::TestSupport
