#include "transport/request_spec_extractor.h"

#include <gtest/gtest.h>

#include <boost/asio/error.hpp>

#include <string>
#include <utility>
#include <vector>

#include "transport/answers.h"
#include "transport/response_body.h"
#include "transport/response_head.h"

namespace Lumo::Transport::Http {
namespace {

using Headers = std::vector<std::pair<std::string, std::string>>;

std::shared_ptr<RequestSpecExtractor const> Extract(Headers const& headers) {
  HeaderViews views;
  for (auto const& [name, value] : headers) {
    views.emplace_back(name, value);
  }
  ResponseHeaders range(std::move(views));
  if (!range.atEnd()) {
    range.advance();
  }
  return RequestSpecExtractor::Extract(range);
}

bool IsDirect(RequestSpecExtractor const& spec) {
  return dynamic_cast<Protocol::Json::JsonApiDirectResponseSerializer<0UL>*>(spec.serializer.get()) !=
         nullptr;
}

TEST(RequestSpecExtractor, TheContentTypeMustBePlainJson) {
  struct Case {
    std::string type;
    std::uint32_t mask;
    bool taken;
  };
  for (Case const& row : std::vector<Case>{
           {"application/json", 1, true},
           {"application/json; charset=utf-8", 1, true},
           {"text/plain, application/json", 1, true},
           {"application/vnd.orbane.lumo.cleanjson", 2, false},
           {"application/vnd.orbane.lumo.framed", 4, false},
           {"application/vnd.orbane.lumo.cframed.cleanjson", 8, false},
           {"application/vnd.orbane.lumo.stream.json", 16, false},
           {"application/vnd.orbane.lumo.clean.stream.json", 32, false},
           {"application/json, application/vnd.orbane.lumo.cleanjson", 3, false},
           {"Application/json", 0, false},
           {"text/plain", 0, false},
           {"", 0, false},
       }) {
    auto const spec = Extract({{"content-type", row.type}});
    EXPECT_EQ(spec->contentTypeMask, row.mask) << row.type;
    EXPECT_EQ(spec->deserializer != nullptr, row.taken) << row.type;
    EXPECT_EQ(spec->contentType, row.type);
    EXPECT_TRUE(spec->serializer);
    EXPECT_FALSE(spec->isFramed);
  }
}

TEST(RequestSpecExtractor, TheAcceptHeaderChoosesTheAnswer) {
  struct Case {
    std::string accept;
    std::uint32_t format;
    bool direct;
    bool stream;
  };
  std::string const prefix = "application/vnd.orbane.lumo.";
  for (Case const& row : std::vector<Case>{
           {"application/json", 1, false, false},
           {"*/*", 1, false, false},
           {"", 1, false, false},
           {prefix + "cleanjson", 2, true, false},
           {prefix + "framed", 1, false, false},
           {prefix + "cframed.cleanjson", 1, false, false},
           {prefix + "stream.json", 16, false, true},
           {prefix + "clean.stream.json", 32, true, true},
           {prefix + "clean.stream.json, application/json", 32, true, true},
           {prefix + "stream.json, " + prefix + "clean.stream.json", 32, true, true},
           {prefix + "cleanjson, " + prefix + "stream.json", 16, false, true},
           {"application/json, " + prefix + "cleanjson", 2, true, false},
           {"x/other.stream.json", 1, false, true},
           {"APPLICATION/VND.ORBANE.LUMO.CLEANJSON", 1, false, false},
       }) {
    auto const spec = Extract({{"accept", row.accept}, {"content-type", "application/json"}});
    EXPECT_EQ(spec->responseFormat, row.format) << row.accept;
    EXPECT_EQ(IsDirect(*spec), row.direct) << row.accept;
    EXPECT_EQ(spec->isStream, row.stream) << row.accept;
  }
}

TEST(RequestSpecExtractor, HasDefaults) {
  auto const spec = Extract({});
  EXPECT_EQ(spec->contentLength, 0U);
  EXPECT_EQ(spec->contentType, "");
  EXPECT_FALSE(spec->deserializer);
  ASSERT_TRUE(spec->serializer);
  EXPECT_FALSE(IsDirect(*spec));
  EXPECT_FALSE(spec->isStream);
  EXPECT_TRUE(spec->keepAlive);
  EXPECT_EQ(spec->contentTypeMask, 0U);
  EXPECT_EQ(spec->responseFormat, 1U);
}

TEST(RequestSpecExtractor, ReadsConnectionAndLength) {
  EXPECT_FALSE(Extract({{"connection", "Close"}})->keepAlive);
  EXPECT_FALSE(Extract({{"connection", "x, CLOSE"}})->keepAlive);
  EXPECT_TRUE(Extract({{"connection", "keep-alive"}})->keepAlive);
  EXPECT_EQ(Extract({{"content-length", "42"}})->contentLength, 42U);
  EXPECT_EQ(Extract({{"content-length", "x"}})->contentLength, 0U);
}

TEST(RequestSpecExtractor, StopsWhenAllThreeHeadersWereSeen) {
  auto const spec = Extract({{"accept", "application/json"},
                             {"connection", "x"},
                             {"content-type", "text/plain"},
                             {"content-type", "application/json"}});
  EXPECT_EQ(spec->contentTypeMask, 0U);
}

std::string Head(HeaderRange& headers, std::string const& method, std::uint64_t length, bool chunked) {
  char scratch[kLengthScratch];
  Pieces pieces;
  AppendHead(headers, method, length, chunked, scratch, pieces);
  std::string text;
  for (boost::asio::const_buffer const& piece : pieces) {
    text.append(static_cast<char const*>(piece.data()), piece.size());
  }
  return text;
}

TEST(AppendHead, BeginsWithStatusAndLength) {
  ResponseHeaders headers({{"A", "1"}, {":reason", "Fine"}, {":status", "201"}, {"B", ""}});
  EXPECT_EQ(Head(headers, "post", 12, false),
            "HTTP/1.1 201 Fine\r\nContent-Length: 12\r\nA: 1\r\nB: \r\nServer: Lumo-PicoHttp\r\n\r\n");
  headers.reset();
  EXPECT_EQ(
      Head(headers, "post", 12, true),
      "HTTP/1.1 201 Fine\r\nTransfer-Encoding: chunked\r\nA: 1\r\nB: \r\nServer: Lumo-PicoHttp\r\n\r\n");
}

TEST(AppendHead, LeavesTheLengthOutInOneCaseOnly) {
  struct Case {
    std::string status;
    std::string method;
    std::uint64_t length;
    bool hasLength;
  };
  for (Case const& row : std::vector<Case>{
           {"101", "connnect", 0, false},
           {"101", "CONNNECT", 0, false},
           {"101", "connect", 0, true},
           {"101", "connnect", 1, true},
           {"200", "connnect", 0, true},
           {"204", "connnect", 0, true},
           {"", "connnect", 0, true},
       }) {
    ResponseHeaders headers({{":status", row.status}, {":reason", ""}});
    EXPECT_EQ(Head(headers, row.method, row.length, false).find("Content-Length") != std::string::npos,
              row.hasLength)
        << row.status << row.method;
  }
}

TEST(CompactPieces, KeepsTheBytesInFewPieces) {
  std::string const large(600, 'L');
  for (std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{30}, std::size_t{200}}) {
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < count; ++i) {
      texts.push_back(i % 10 == 5 ? large : std::to_string(i) + "....");
    }
    Pieces pieces;
    std::string whole;
    for (std::string const& text : texts) {
      AppendPiece(pieces, text);
      whole += text;
    }
    char scratch[HttpDetail::kCompactScratch];
    HttpDetail::CompactPieces(pieces, scratch);
    std::string compact;
    for (boost::asio::const_buffer const& piece : pieces) {
      compact.append(static_cast<char const*>(piece.data()), piece.size());
    }
    EXPECT_EQ(compact, whole);
    if (count == 30) {
      EXPECT_EQ(pieces.size(), 7U) << "three large ones, and the runs between them";
    }
  }
}

TEST(CompactPieces, ASmallAnswerIsOnePiece) {
  std::string const head(130, 'H');
  std::string const body(500, 'B');
  Pieces pieces;
  for (boost::string_view const text :
       {boost::string_view(head), boost::string_view(body), boost::string_view("\r\n0\r\n\r\n")}) {
    AppendPiece(pieces, text);
  }
  char scratch[HttpDetail::kCompactScratch];
  HttpDetail::CompactPieces(pieces, scratch);
  ASSERT_EQ(pieces.size(), 1U);
  EXPECT_EQ(pieces.front().size(), 637U);
}

TEST(ErrToHeaders, NamesTypeConnectionAndError) {
  auto headers = ErrToHeaders(nullptr, {MediaType::kCleanStream, true});
  EXPECT_EQ(Head(*headers, "post", 0, true),
            "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Type: "
            "application/vnd.orbane.lumo.clean.stream.json\r\nConnection: Keep-Alive\r\nServer: "
            "Lumo-PicoHttp\r\n\r\n");
  auto const error = Data::ErrorValue::GetInstance("s.e");
  headers = ErrToHeaders(error, {64, false});
  EXPECT_EQ(Head(*headers, "post", 0, true),
            "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Type: \r\nConnection: close\r\n"
            "lumo-error: s.e\r\nServer: Lumo-PicoHttp\r\n\r\n");
}

TEST(ToErrorValue, NamesTheDirection) {
  EXPECT_FALSE(ToErrorValue({}, Direction::Send));
  boost::system::error_code const reset(boost::asio::error::connection_reset);
  std::string const received = ToErrorValue(reset, Direction::Receive)->ToString();
  EXPECT_NE(received.find("system_error"), std::string::npos);
  EXPECT_NE(received.find("lumo.recv.failed"), std::string::npos);
  EXPECT_NE(received.find("system:104"), std::string::npos);
  EXPECT_NE(ToErrorValue(reset, Direction::Send)->ToString().find("lumo.send.failed"), std::string::npos);
}

}  // namespace
}  // namespace Lumo::Transport::Http
