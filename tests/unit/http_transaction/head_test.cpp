// How connections take and refuse request heads, and which stream stack reads the body.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/http_transaction/fake_connection.h"

namespace Lumo::Transport::TestSupport {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string const kBadHead =
    "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\nServer: Lumo-PicoHttp\r\n\r\n";
std::string const kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
std::string const kBody = R"({"jsonrpc":"2.0","id":1,"method":"s.o"})";

class HeadTest : public ConnectionTest {
 protected:
  /// Refused with `answer` and one log line, and closed, whatever came behind.
  void ExpectRefused(std::string const& input, std::string const& answer, std::string const& line) {
    EXPECT_EQ(Exchange(input), answer) << input;
    EXPECT_THAT(logger_->TakeLines(), ElementsAre(line));
    EXPECT_FALSE(wire_->open);
    EXPECT_TRUE(calls_.empty());
  }
};

std::string HeadOfLength(std::size_t length) {
  std::string const frame =
      "POST / HTTP/1.1\r\nContent-Type: application/json\r\nContent-Length: 39\r\na: \r\n\r\n";
  std::string head = frame;
  head.insert(head.size() - 4, std::string(length - frame.size(), 'x'));
  return head;
}

TEST_F(HeadTest, RefusalsByteForByte) {
  struct Case {
    std::string input;
    std::string text;
  };
  std::string headers;
  for (int i = 0; i < 65; ++i) {
    headers += "h" + std::to_string(i) + ": v\r\n";
  }
  for (Case const& row : std::vector<Case>{
           {"nonsense\r\n\r\n", "headers parse error"},
           {"POST / HTTP/1.1\r\nbad header\r\n\r\n", "headers parse error"},
           {"POST / HTTP/1.1\r\n" + headers + "\r\n", "headers parse error"},
           {HeadOfLength(4097) + kBody, "http headers too long"},
           {std::string(5000, 'x'), "http headers too long"},
           {"POST / HTTP/1.1\r\nContent-Length: 99999999999999999999\r\n\r\n", "chunk parse error"},
           {"POST / HTTP/1.1\r\nContent-Length:\r\n\r\n", "invalid request"},
           {"POST / HTTP/1.1\r\nContent-Length: -1\r\n\r\n", "invalid request"},
           {"POST / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n", "invalid request"},
           {" / HTTP/1.1\r\n\r\n", "invalid request"},
       }) {
    ExpectRefused(row.input, kBadHead + row.text, "2 Invalid Http request");
  }
}

TEST_F(HeadTest, AHeadOfTheBuffersSizeIsTaken) {
  EXPECT_EQ(Exchange(HeadOfLength(4096) + kBody), Answer());
}

TEST_F(HeadTest, OtherExpectationsFail) {
  for (std::string const value : {"foo", "", "100-continue, foo"}) {
    ExpectRefused("POST / HTTP/1.1\r\nContent-Type: application/json\r\nExpect: " + value + "\r\n\r\n",
                  "HTTP/1.1 417 Expectation Failed\r\nConnection: close\r\nContent-Length: 0\r\n",
                  "2 Invalid Http request: Expect header value is not 100-continue");
  }
}

TEST_F(HeadTest, ARefusedHeadComesBeforeAFailedExpectation) {
  ExpectRefused("POST / HTTP/1.1\r\nExpect: foo\r\nContent-Length: x\r\n\r\n", kBadHead + "invalid request",
                "2 Invalid Http request");
}

TEST_F(HeadTest, AClientThatGoesAwayGetsNothing) {
  std::string const call = Call();
  std::size_t const head = call.find("\r\n\r\n") + 4;
  for (std::size_t cut = 0; cut < head; ++cut) {
    Connect();
    wire_->Feed(call.substr(0, cut));
    wire_->End();
    Poll();
    EXPECT_EQ(wire_->output, "") << cut;
    EXPECT_FALSE(wire_->open);
    EXPECT_THAT(logger_->TakeLines(), IsEmpty());
  }
}

TEST_F(HeadTest, ABrokenConnectionIsATransportError) {
  Connect();
  wire_->End(boost::asio::error::connection_reset);
  Poll();
  EXPECT_EQ(wire_->output, kBadHead + "transport error");
  EXPECT_THAT(logger_->TakeLines(), ElementsAre("2 Invalid Http request"));
  EXPECT_FALSE(wire_->open);
}

TEST_F(HeadTest, ARefusalThatCannotBeSentClosesAllTheSame) {
  for (std::string const input : {"nonsense\r\n\r\n", "POST / HTTP/1.1\r\nExpect: foo\r\n\r\n"}) {
    Connect();
    wire_->failWrite = 0;
    wire_->Feed(input);
    Poll();
    EXPECT_EQ(wire_->output, "");
    EXPECT_FALSE(wire_->open);
  }
}

TEST_F(HeadTest, WhatIsUnreadAtARefusalIsDropped) {
  Exchange("nonsense\r\n\r\n" + std::string(10000, 'x'));
  EXPECT_EQ(wire_->PendingInput(), 0U);
}

struct StackCase {
  std::string name;
  std::string head;
  std::string body;
  bool continues;
  /// The body ends with the connection's input.
  bool toEndOfFile;
};

class StackTest : public ConnectionTest, public testing::WithParamInterface<StackCase> {
 protected:
  std::string Expected() const { return (GetParam().continues ? kContinue : "") + Answer(); }
};

std::string const kType = "Content-Type: application/json\r\n";
std::string const kExpect = "Expect: 100-continue\r\n";
std::string const kLength = "Content-Length: 39\r\n";
std::string const kChunkedHeader = "Transfer-Encoding: chunked\r\n";
std::string const kChunkedBody =
    "A\r\n" + kBody.substr(0, 10) + "\r\n1d;x=y\r\n" + kBody.substr(10) + "\r\n0\r\nt: u\r\n\r\n";

std::vector<StackCase> const kStacks = {
    {"Plain", kType, kBody, false, true},
    {"Body", kType + kLength, kBody, false, false},
    {"Chunked", kType + kChunkedHeader, kChunkedBody, false, false},
    {"ChunkedWithIgnoredLength", kType + kChunkedHeader + "Content-Length: 5\r\n", kChunkedBody, false,
     false},
    {"Expect", kType + kExpect, kBody, true, true},
    {"ExpectBody", kType + kExpect + kLength, kBody, true, false},
    {"ExpectChunked", kType + kExpect + kChunkedHeader, kChunkedBody, true, false},
};

TEST_P(StackTest, CutAtEveryOffset) {
  std::string const input = "POST / HTTP/1.1\r\n" + GetParam().head + "\r\n" + GetParam().body;
  for (std::size_t cut = 1; cut <= input.size(); ++cut) {
    Connect();
    wire_->Feed(input.substr(0, cut));
    Poll();
    wire_->Feed(input.substr(cut));
    if (GetParam().toEndOfFile) {
      wire_->End();
    }
    Poll();
    EXPECT_EQ(wire_->output, Expected()) << "cut at " << cut;
  }
}

TEST_P(StackTest, ByteByByte) {
  Connect();
  for (char c : "POST / HTTP/1.1\r\n" + GetParam().head + "\r\n" + GetParam().body) {
    wire_->Feed(std::string(1, c));
    Poll();
  }
  if (GetParam().toEndOfFile) {
    wire_->End();
    Poll();
  }
  EXPECT_EQ(wire_->output, Expected());
}

// Whatever the pieces, the next request on the connection begins where the body ended.
TEST_P(StackTest, TheNextRequestIsServed) {
  if (GetParam().toEndOfFile) {
    return;
  }
  std::string const input = "POST / HTTP/1.1\r\n" + GetParam().head + "\r\n" + GetParam().body;
  std::string const both = input + input;
  for (std::size_t cut = 1; cut <= both.size(); ++cut) {
    Connect();
    wire_->Feed(both.substr(0, cut));
    wire_->Feed(both.substr(cut));
    Poll();
    EXPECT_EQ(wire_->output, Expected() + Expected()) << "cut at " << cut;
  }
}

TEST_P(StackTest, TheClientIsToldToGoOnOnlyWhenItsBodyIsWanted) {
  if (!GetParam().continues) {
    return;
  }
  Connect();
  wire_->Feed("POST / HTTP/1.1\r\n" + GetParam().head + "\r\n");
  Poll();
  EXPECT_EQ(wire_->output, kContinue);
  // A type that isn't taken is refused at once.
  std::string refused = GetParam().head;
  refused.replace(refused.find("application/json"), 16, "text/plain");
  EXPECT_THAT(Exchange("POST / HTTP/1.1\r\n" + refused + "\r\n"),
              testing::StartsWith("HTTP/1.1 400 Bad Request\r\n"));
}

TEST_P(StackTest, AFailureToTellTheClientIsAReadFailure) {
  if (!GetParam().continues) {
    return;
  }
  Connect();
  wire_->failWrite = 0;
  wire_->Feed("POST / HTTP/1.1\r\n" + GetParam().head + "\r\n" + GetParam().body);
  Poll();
  EXPECT_THAT(logger_->TakeLines(),
              ElementsAre("0 Request head: [P]", "1 RequestReadCb: [P] Error: system:104",
                          "1 Failed to send InvalidRequest response:[P]system:104",
                          testing::StartsWith("0 Handle request error: [P]InvalidRequest")));
  EXPECT_FALSE(wire_->open);
}

INSTANTIATE_TEST_SUITE_P(Stacks, StackTest, testing::ValuesIn(kStacks),
                         [](testing::TestParamInfo<StackCase> const& param) { return param.param.name; });

}  // namespace
}  // namespace Lumo::Transport::TestSupport
