#include "transport/request.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "runtime/errors/transport_categories.h"

namespace Lumo::Transport::PicoHttp {
namespace {

using boost::system::error_code;
using ServerDetail::Request;

/// Hands `bytes` to the request in pieces of at most `step`; the first decision.
std::optional<error_code> Give(Request& request, std::string const& bytes,
                               std::size_t step = kHeadBufferSize) {
  for (std::size_t at = 0; at < bytes.size();) {
    boost::asio::mutable_buffer const room = request.FreeHead();
    std::size_t const count = std::min({step, bytes.size() - at, room.size()});
    std::memcpy(room.data(), bytes.data() + at, count);
    at += count;
    if (auto decision = ServerDetail::TakeHeadBytes(request, count)) {
      return decision;
    }
  }
  return std::nullopt;
}

std::string Post(std::string const& headers) {
  return "POST / HTTP/1.1\r\n" + headers + "\r\n";
}

/// A head of exactly `length` bytes.
std::string HeadOfLength(std::size_t length) {
  std::string const frame = Post("a: \r\n");
  return Post("a: " + std::string(length - frame.size(), 'x') + "\r\n");
}

TEST(TakeHeadBytes, HasTheDefaultsOfAnEmptyHead) {
  auto request = std::make_unique<Request>();
  std::string const head = Post("");
  ASSERT_EQ(Give(*request, head), error_code());
  EXPECT_EQ(request->headLength, head.size());
  EXPECT_EQ(request->phr.method, "post");
  EXPECT_EQ(request->contentLength, 0U);
  EXPECT_FALSE(request->hasContentLength);
  EXPECT_FALSE(request->chunked);
  EXPECT_TRUE(request->keepAlive);
  EXPECT_FALSE(request->streamContent);
  EXPECT_FALSE(request->streamAccept);
  EXPECT_FALSE(request->expectPresent);
  EXPECT_FALSE(request->expectContinue);
  EXPECT_FALSE(request->invalid);
}

TEST(TakeHeadBytes, KeepsWhatStandsBehindTheHead) {
  auto request = std::make_unique<Request>();
  ASSERT_EQ(Give(*request, Post("Content-Length: 4\r\n") + "body"), error_code());
  boost::asio::const_buffer const behind = request->BehindHead();
  EXPECT_EQ(std::string(static_cast<char const*>(behind.data()), behind.size()), "body");
}

TEST(TakeHeadBytes, TakesAHeadThatFillsTheBuffer) {
  for (std::size_t step : {std::size_t{1}, std::size_t{1000}, kHeadBufferSize}) {
    auto request = std::make_unique<Request>();
    EXPECT_EQ(Give(*request, HeadOfLength(kHeadBufferSize), step), error_code()) << step;
    EXPECT_EQ(request->headLength, kHeadBufferSize);
  }
}

TEST(TakeHeadBytes, RefusesAHeadThatIsOneByteLonger) {
  for (std::size_t step : {std::size_t{1}, std::size_t{1000}, kHeadBufferSize}) {
    auto request = std::make_unique<Request>();
    EXPECT_EQ(Give(*request, HeadOfLength(kHeadBufferSize + 1), step),
              error_code(Error::Errc::HeadersTooLong));
  }
}

TEST(TakeHeadBytes, ComesToTheSameHoweverTheBytesArrive) {
  std::string const head = Post("Content-Length: 12\r\nConnection: Close\r\nAccept: a.stream.json\r\n");
  for (std::size_t step = 1; step <= head.size(); ++step) {
    auto request = std::make_unique<Request>();
    ASSERT_EQ(Give(*request, head, step), error_code()) << step;
    EXPECT_EQ(request->contentLength, 12U);
    EXPECT_FALSE(request->keepAlive);
    EXPECT_TRUE(request->streamAccept);
  }
}

struct LengthCase {
  std::string head;
  error_code refused;
  bool has;
  std::uint64_t length;
  bool chunked;
};

class BodyLength : public testing::TestWithParam<LengthCase> {};

TEST_P(BodyLength, IsDecidedOnce) {
  auto request = std::make_unique<Request>();
  ASSERT_EQ(Give(*request, GetParam().head), GetParam().refused) << GetParam().head;
  if (!GetParam().refused) {
    EXPECT_EQ(request->hasContentLength, GetParam().has) << GetParam().head;
    EXPECT_EQ(request->contentLength, GetParam().length) << GetParam().head;
    EXPECT_EQ(request->chunked, GetParam().chunked) << GetParam().head;
  }
}

error_code const kInvalid(Error::Errc::InvalidRequest);
error_code const kTooLong(Http::Error::Errc::MessageTooLong);

std::string With(std::string const& method, std::string const& headers) {
  return method + " / HTTP/1.1\r\n" + headers + "\r\n";
}

INSTANTIATE_TEST_SUITE_P(
    Heads, BodyLength,
    testing::ValuesIn(std::vector<LengthCase>{
        {Post("Content-Length: 5\r\n"), {}, true, 5, false},
        {Post("CONTENT-LENGTH:5\r\n"), {}, true, 5, false},
        {Post("Content-Length: 0\r\n"), {}, true, 0, false},
        {Post("Content-Length:\r\n"), kInvalid, false, 0, false},
        {Post("Content-Length:  \t\r\n"), kInvalid, false, 0, false},
        {Post("Content-Length: -1\r\n"), kInvalid, false, 0, false},
        {Post("Content-Length: +5\r\n"), kInvalid, false, 0, false},
        {Post("Content-Length: 5 5\r\n"), kInvalid, false, 0, false},
        {Post("Content-Length: 5, 5\r\n"), kInvalid, false, 0, false},
        {Post("Content-Length: 0x5\r\n"), kInvalid, false, 0, false},
        {Post("Content-Length: 18446744073709551616\r\n"), kTooLong, false, 0, false},
        {Post("Content-Length: 5\r\nContent-Length: 5\r\n"), {}, true, 5, false},
        {Post("Content-Length: 5\r\nContent-Length: 6\r\n"), kInvalid, false, 0, false},
        {Post("Transfer-Encoding: chunked\r\n"), {}, false, 0, true},
        {Post("Transfer-Encoding: gzip, chunked\r\n"), {}, false, 0, true},
        {Post("Transfer-Encoding: Chunked\r\n"), {}, false, 0, false},
        {Post("Transfer-Encoding: chunked\r\nContent-Length: 5\r\n"), {}, false, 0, true},
        {Post("Transfer-Encoding: chunked\r\nContent-Length: x\r\n"), kInvalid, false, 0, false},
        {Post("Transfer-Encoding: gzip\r\nTransfer-Encoding: chunked\r\n"), {}, false, 0, true},
        {Post("Transfer-Encoding: chunked\r\nTransfer-Encoding: gzip\r\n"), {}, false, 0, true},
        {Post(""), {}, false, 0, false},
        {With("PUT", ""), {}, false, 0, false},
        {With("PATCH", "Content-Length: 7\r\n"), {}, true, 7, false},
        {With("DELETE", ""), {}, true, 0, false},
        {With("delete", ""), {}, true, 0, false},
        {With("DELETE", "Content-Length: 7\r\n"), {}, true, 7, false},
        {With("GET", "Content-Length: 10\r\n"), {}, true, 0, false},
        {With("Get", ""), {}, true, 0, false},
        {With("HEAD", "Content-Length: 10\r\n"), {}, true, 0, false},
        {With("CONNECT", "Content-Length: 10\r\n"), {}, true, 0, false},
        {With("OPTIONS", "Content-Length: 10\r\n"), {}, true, 0, false},
        {With("TRACE", "Content-Length: 10\r\n"), {}, true, 0, false},
        {With("GET", "Transfer-Encoding: chunked\r\n"), {}, true, 0, true},
        {With("GETS", "Content-Length: 10\r\n"), {}, true, 10, false},
        {With("", ""), kInvalid, false, 0, false},
    }));

struct FlagCase {
  std::string headers;
  bool keepAlive;
  bool expectPresent;
  bool expectContinue;
  bool streamContent;
  bool streamAccept;
};

class HeadFlags : public testing::TestWithParam<FlagCase> {};

TEST_P(HeadFlags, FollowTheHeaders) {
  auto request = std::make_unique<Request>();
  ASSERT_EQ(Give(*request, Post(GetParam().headers)), error_code());
  EXPECT_EQ(request->keepAlive, GetParam().keepAlive);
  EXPECT_EQ(request->expectPresent, GetParam().expectPresent);
  EXPECT_EQ(request->expectContinue, GetParam().expectContinue);
  EXPECT_EQ(request->streamContent, GetParam().streamContent);
  EXPECT_EQ(request->streamAccept, GetParam().streamAccept);
}

INSTANTIATE_TEST_SUITE_P(Heads, HeadFlags,
                         testing::ValuesIn(std::vector<FlagCase>{
                             {"Connection: close\r\n", false, false, false, false, false},
                             {"Connection: Close\r\n", false, false, false, false, false},
                             {"Connection: upgrade, CLOSE\r\n", false, false, false, false, false},
                             {"Connection: keep-alive\r\n", true, false, false, false, false},
                             {"Connection: close\r\nConnection: keep-alive\r\n", false, false, false, false,
                              false},
                             {"Expect: 100-continue\r\n", true, true, true, false, false},
                             {"EXPECT: 100-Continue\r\n", true, true, true, false, false},
                             {"Expect: foo\r\n", true, true, false, false, false},
                             {"Expect:\r\n", true, true, false, false, false},
                             {"Expect: 100-continue, foo\r\n", true, true, false, false, false},
                             {"Content-Type: x.stream.json\r\n", true, false, false, true, false},
                             {"Content-Type: x.framed\r\n", true, false, false, true, false},
                             {"Content-Type: x.Framed\r\n", true, false, false, false, false},
                             {"Accept: x.stream.json\r\n", true, false, false, false, true},
                             {"Accept: x.framed\r\n", true, false, false, false, false},
                         }));

TEST(TakeHeadBytes, AnOldMinorVersionChangesNothing) {
  auto request = std::make_unique<Request>();
  ASSERT_EQ(Give(*request, "POST / HTTP/1.0\r\n\r\n"), error_code());
  EXPECT_TRUE(request->keepAlive);
  EXPECT_EQ(request->phr.minorVersion, 0);
}

TEST(TakeHeadBytes, KeepsTheRawValues) {
  auto request = std::make_unique<Request>();
  ASSERT_EQ(Give(*request, Post("Content-Type: A/B; c=D\r\nAccept: E/f\r\nTransfer-Encoding: Gzip\r\n")),
            error_code());
  EXPECT_EQ(request->contentType, "A/B; c=D");
  EXPECT_EQ(request->accept, "E/f");
  EXPECT_EQ(request->transferEncoding, "Gzip");
}

TEST(BadRequestAnswer, LooksUpTheCodeWhateverItsCategory) {
  std::string const head =
      "HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\nServer: Lumo-PicoHttp\r\n\r\n";
  EXPECT_EQ(BadRequestAnswer(Error::Errc::HeadersParse), head + "headers parse error");
  EXPECT_EQ(BadRequestAnswer(Error::Errc::InvalidRequest), head + "invalid request");
  EXPECT_EQ(BadRequestAnswer(Error::Errc::HeadersTooLong), head + "http headers too long");
  EXPECT_EQ(BadRequestAnswer(Http::Error::Errc::MessageTooLong), head + "chunk parse error");
  EXPECT_EQ(BadRequestAnswer(error_code(ECONNRESET, boost::system::system_category())),
            head + "transport error");
}

TEST(ExpectationFailedAnswer, Is71BytesWithoutAnEmptyLine) {
  EXPECT_EQ(kExpectationFailedAnswer.size(), 71U);
  EXPECT_EQ(kExpectationFailedAnswer,
            "HTTP/1.1 417 Expectation Failed\r\nConnection: close\r\nContent-Length: 0\r\n");
}

TEST(HeaderRequestRange, YieldsTheMethodAndTheSortedHeaders) {
  auto request = std::make_shared<Request>();
  ASSERT_EQ(Give(*request, Post("B: 2\r\nA: 1\r\n")), error_code());
  auto const range = HttpRequest(request).headersPtr();
  for (int round = 0; round < 2; ++round) {
    std::vector<std::string> lines;
    for (range->reset(); !range->atEnd(); range->advance()) {
      lines.push_back(std::string(range->current().name()) + "=" + std::string(range->current().value()));
    }
    EXPECT_EQ(lines, (std::vector<std::string>{":method=post", "a=1", "b=2"}));
  }
}

}  // namespace
}  // namespace Lumo::Transport::PicoHttp
