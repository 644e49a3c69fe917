// Results of calls: one or several, plain or streamed, and writes that fail.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "tests/unit/http_transaction/fake_connection.h"

namespace Lumo::Transport::TestSupport {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using Lines = std::vector<std::string>;
using Continuation = Core::AsyncApiResultCb::Continuation;

std::string const kStreamType = "application/vnd.orbane.lumo.stream.json";
std::string const kStreamAccept = "Accept: " + kStreamType + "\r\n";
std::string const kLastChunk = "0\r\n\r\n";

std::string StreamHead() {
  return "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Type: " + kStreamType +
         "\r\nConnection: Keep-Alive\r\nServer: Lumo-PicoHttp\r\n\r\n";
}

/// A frame in a chunk.
std::string Frame(std::string const& body) {
  return Chunk(Chunk(body));
}

std::string Envelope(std::string const& text) {
  return R"({"jsonrpc":"2.0","id":1,"result":")" + text + R"("})";
}

/// Takes chunked coding off; what is wrong with it is a test failure.
std::string Unchunked(std::string const& wire, std::vector<std::size_t>* sizes = nullptr) {
  std::string body;
  std::size_t at = wire.find("\r\n\r\n") + 4;
  for (;;) {
    std::size_t const lineEnd = wire.find("\r\n", at);
    std::size_t const size = std::stoul(wire.substr(at, lineEnd - at), nullptr, 16);
    if (sizes != nullptr) {
      sizes->push_back(size);
    }
    at = lineEnd + 2;
    body += wire.substr(at, size);
    at += size;
    EXPECT_EQ(wire.substr(at, 2), "\r\n");
    at += 2;
    if (size == 0) {
      EXPECT_EQ(at, wire.size());
      return body;
    }
  }
}

class ResultTest : public ConnectionTest {
 protected:
  /// What the continuation of a result was called with: nothing yet, null, or a callback.
  struct Next {
    int calls = 0;
    std::shared_ptr<Core::AsyncApiResultCb> callback;

    Continuation Function() {
      return [this](std::shared_ptr<Core::AsyncApiResultCb> received) {
        ++calls;
        callback = std::move(received);
      };
    }
  };

  /// Makes a call whose one result is `result`, with a continuation when `next`.
  std::string AnswerTo(std::string const& headers, std::shared_ptr<Core::MethodResult const> const& result,
                       bool next) {
    service_ = [this, result, next](ReceivedCall const& call) {
      call.callback(result, {}, next ? next_.Function() : Continuation());
    };
    return Exchange(Call(headers));
  }

  Next next_;
};

struct PlanCase {
  bool next;
  bool stream;
  bool final;
  bool error;
  bool internalError;
  bool last;
};

class PlanTable : public testing::TestWithParam<PlanCase> {};

std::vector<PlanCase> const kPlans = {
    {false, false, false, false, false, true}, {false, false, false, true, false, true},
    {false, false, true, true, false, true},   {false, false, true, false, true, true},
    {false, true, false, false, false, true},  {false, true, false, true, false, true},
    {false, true, true, false, false, true},   {false, true, true, true, false, true},
    {true, false, false, false, false, true},  {true, false, false, true, false, true},
    {true, false, true, true, false, true},    {true, false, true, false, true, true},
    {true, true, false, false, false, false},  {true, true, false, true, false, false},
    {true, true, true, false, false, true},    {true, true, true, true, false, true},
};

TEST_P(PlanTable, Row) {
  PlanCase const& row = GetParam();
  auto const result = row.error ? ErrorResult("e", row.final) : TextResult("ok", row.final);
  Http::ResultPlan const plan = Http::PlanResult(row.next, row.stream, *result);
  EXPECT_EQ(plan.internalError, row.internalError);
  EXPECT_EQ(plan.isStream, row.stream);
  EXPECT_EQ(plan.last, row.last);
}

INSTANTIATE_TEST_SUITE_P(Rows, PlanTable, testing::ValuesIn(kPlans));

class ResultTable : public ResultTest, public testing::WithParamInterface<PlanCase> {};

TEST_P(ResultTable, OnTheWire) {
  PlanCase const& row = GetParam();
  auto const result = row.error ? ErrorResult("s.e", row.final) : TextResult("ok", row.final);
  std::string const wire = AnswerTo(row.stream ? kStreamAccept : "", result, row.next);
  EXPECT_THAT(wire, StartsWith("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n"));
  EXPECT_EQ(wire.find("lumo-error: ") != std::string::npos, row.error || row.internalError);
  EXPECT_EQ(
      wire.find("lumo-error: com.orbane.lumo.std.errors.internal_server_error\r\n") != std::string::npos,
      row.internalError);
  EXPECT_EQ(wire.find("ok\"") != std::string::npos, !row.error && !row.internalError)
      << "an output without a legal result is dropped";
  EXPECT_EQ(wire.size() >= 7 && wire.substr(wire.size() - 7) == "\r\n" + kLastChunk, row.last);
  EXPECT_EQ(next_.calls, row.next ? 1 : 0);
  EXPECT_EQ(next_.callback != nullptr, !row.last) << "a null callback stops the producer";
  EXPECT_EQ(logger_->TakeLines().back(), row.last ? "0 Request handled[P]" : "0 ResponseSentCb[P]");
}

INSTANTIATE_TEST_SUITE_P(Rows, ResultTable, testing::ValuesIn(kPlans));

TEST_F(ResultTest, AStreamOfResultsFrameByFrame) {
  std::string wire = AnswerTo(kStreamAccept, TextResult("a"), true);
  EXPECT_EQ(wire, StreamHead() + Frame(Envelope("a")));
  wire_->output.clear();
  ASSERT_TRUE(next_.callback);
  (*std::exchange(next_.callback, nullptr))(TextResult("b"), {}, next_.Function());
  Poll();
  EXPECT_EQ(wire_->output, Frame(Envelope("b")));
  wire_->output.clear();
  ASSERT_TRUE(next_.callback);
  (*std::exchange(next_.callback, nullptr))(TextResult("c", true), {}, next_.Function());
  Poll();
  EXPECT_EQ(wire_->output, Frame(Envelope("c")) + kLastChunk);
  EXPECT_EQ(next_.calls, 3);
  EXPECT_FALSE(next_.callback);
  EXPECT_EQ(logger_->TakeLines(),
            (Lines{"0 Request head: [P]", "0 RequestReadCb[P]", "1 Request received[P]",
                   "0 Response head sent: [P]", "0 ResponseSentCb[P]", "0 ResponseSentCb[P]",
                   "0 ResponseSentCb[P]", "0 Request handled[P]"}));
  wire_->output.clear();
  wire_->Feed(Call());
  service_ = [](ReceivedCall const& call) { call.callback(TextResult("ok"), {}, {}); };
  Poll();
  EXPECT_EQ(wire_->output, Answer()) << "the connection is kept";
}

TEST_F(ResultTest, AStreamThatEndsWithAnErrorSaysSoInItsFrameOnly) {
  AnswerTo(kStreamAccept, TextResult("a"), true);
  wire_->output.clear();
  (*std::exchange(next_.callback, nullptr))(ErrorResult("s.e"), {}, {});
  Poll();
  EXPECT_THAT(wire_->output, HasSubstr(R"("@error":"s.e")"));
  EXPECT_THAT(wire_->output, testing::Not(HasSubstr("lumo-error")));
}

TEST_F(ResultTest, AStreamThatIsLetGoEndsTheConnectionWithoutALastChunk) {
  std::string const wire = AnswerTo(kStreamAccept, TextResult("a"), true);
  EXPECT_FALSE(wire_->destroyed);
  next_.callback.reset();
  calls_.clear();
  service_ = nullptr;
  Poll();
  EXPECT_TRUE(wire_->destroyed);
  EXPECT_EQ(wire_->output, wire);
}

/// A text so that the whole response has `size` bytes.
std::string TextForResponse(std::size_t size) {
  return std::string(size - Envelope("").size(), 'x');
}

TEST_F(ResultTest, APieceOf65536BytesIsOneChunkAndOneByteMoreIsTwo) {
  for (std::size_t const size : {65535U, 65536U, 65537U, 131072U, 200000U}) {
    std::string const text = TextForResponse(size);
    std::string const wire = AnswerTo("", TextResult(text), false);
    std::vector<std::size_t> sizes;
    EXPECT_EQ(Unchunked(wire, &sizes), Envelope(text));
    std::vector<std::size_t> expected(size / 65536, 65536);
    if (size % 65536 != 0) {
      expected.push_back(size % 65536);
    }
    expected.push_back(0);
    EXPECT_EQ(sizes, expected);
    for (std::size_t const written : wire_->writes) {
      EXPECT_LE(written, 65536U);
    }
  }
}

TEST_F(ResultTest, AFrameMaySpanChunks) {
  std::string const text = TextForResponse(100000);
  std::string const wire = AnswerTo(kStreamAccept, TextResult(text), false);
  std::vector<std::size_t> sizes;
  EXPECT_EQ(Unchunked(wire, &sizes), Chunk(Envelope(text)));
  EXPECT_EQ(sizes, (std::vector<std::size_t>{65536, 100000 + 9 - 65536, 0}));
}

/// The transaction's log lines behind the provider, without numbers of bytes or errors.
Lines Outcome(Lines const& lines) {
  return Lines(lines.begin() + 3, lines.end());
}

// Every byte at which a write can break: what is told is what separate writes would have told.
TEST_F(ResultTest, AWriteThatFailsAnywhereStopsTheResponse) {
  std::string const whole = Answer();
  std::size_t const head = whole.find("\r\n\r\n") + 4;
  std::size_t const body = whole.size() - kLastChunk.size();
  for (std::size_t room = 0; room < whole.size(); ++room) {
    next_ = Next();
    Connect();
    wire_->failWrite = 0;
    wire_->writeRoom = room;
    service_ = [this](ReceivedCall const& call) { call.callback(TextResult("ok"), {}, next_.Function()); };
    wire_->Feed(Call());
    Poll();
    EXPECT_EQ(wire_->output, whole.substr(0, room));
    EXPECT_FALSE(wire_->open);
    Lines const lines = Outcome(logger_->TakeLines());
    std::string const end = "0 Handle request error: [P]system_error";
    if (room < head) {
      EXPECT_THAT(lines, ElementsAre("1 Failed to sent response head[P]system:104", StartsWith(end))) << room;
      EXPECT_EQ(next_.calls, 0);
    } else if (room < body) {
      EXPECT_THAT(lines, ElementsAre("0 Response head sent: [P]", "1 Failed to sent response body [P]",
                                     StartsWith(end)))
          << room;
      EXPECT_EQ(next_.calls, 1);
    } else {
      EXPECT_THAT(lines, ElementsAre("0 Response head sent: [P]", "0 ResponseSentCb[P]", StartsWith(end)))
          << room;
      EXPECT_EQ(next_.calls, 1);
    }
    EXPECT_FALSE(next_.callback);
    EXPECT_TRUE(lines.back().find("lumo.send.failed") != std::string::npos) << lines.back();
  }
}

// A response of several writes, broken at each of them.
TEST_F(ResultTest, AnyWriteOfALargeResponseMayFail) {
  std::string const text = TextForResponse(200000);
  AnswerTo("", TextResult(text), true);
  int const writes = static_cast<int>(wire_->writes.size());
  ASSERT_GE(writes, 5);
  logger_->TakeLines();
  for (int failing = 0; failing < writes; ++failing) {
    next_ = Next();
    Connect();
    wire_->failWrite = failing;
    wire_->Feed(Call());
    Poll();
    EXPECT_FALSE(wire_->open);
    Lines const lines = Outcome(logger_->TakeLines());
    std::string const end = "0 Handle request error: [P]system_error";
    if (failing == 0) {
      EXPECT_THAT(lines, ElementsAre("1 Failed to sent response head[P]system:104", StartsWith(end)));
    } else if (failing < writes - 1) {
      EXPECT_THAT(lines, ElementsAre("0 Response head sent: [P]", "1 Failed to sent response body [P]",
                                     StartsWith(end)));
    } else {
      EXPECT_THAT(lines, ElementsAre("0 Response head sent: [P]", "0 ResponseSentCb[P]", StartsWith(end)));
    }
    EXPECT_EQ(next_.calls, failing == 0 ? 0 : 1);
    EXPECT_FALSE(next_.callback);
  }
}

TEST_F(ResultTest, AWriteOfALaterResultMayFail) {
  AnswerTo(kStreamAccept, TextResult("a"), true);
  logger_->TakeLines();
  wire_->failWrite = 1;
  (*std::exchange(next_.callback, nullptr))(TextResult("b"), {}, next_.Function());
  Poll();
  EXPECT_THAT(logger_->TakeLines(), ElementsAre("1 Failed to sent response body [P]",
                                                StartsWith("0 Handle request error: [P]system_error")));
  EXPECT_EQ(next_.calls, 2);
  EXPECT_FALSE(next_.callback);
  EXPECT_FALSE(wire_->open);
}

TEST_F(ResultTest, AResultThatCannotBeSerialisedEndsTheConnection) {
  service_ = [](ReceivedCall const& call) {
    call.callback(Core::MethodResult::GetInstance(
                      Data::DoubleValue::GetInstance(std::numeric_limits<double>::infinity())),
                  {}, {});
  };
  EXPECT_EQ(Exchange(Call()), "");
  EXPECT_THAT(Outcome(logger_->TakeLines()), ElementsAre(StartsWith("0 Handle request error: [P]")));
  EXPECT_FALSE(wire_->open);
}

}  // namespace
}  // namespace Lumo::Transport::TestSupport
