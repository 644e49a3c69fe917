#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "runtime/errors/transport_categories.h"
#include "transport/async_expect_continue_stream.h"
#include "transport/async_http_body_stream.h"
#include "transport/async_http_chunked_body_stream.h"
#include "transport/body_reader.h"

namespace Lumo::Transport::PicoHttp::PicoHttpDetail {
namespace {

using boost::system::error_code;

error_code const kEndOfBody(Http::Error::Errc::EndOfBody);
error_code const kTooLong(Http::Error::Errc::MessageTooLong);
error_code const kIncomplete(Error::Errc::IncompleteBody);
error_code const kChunkParse(Error::Errc::ChunkParse);
error_code const kEof(boost::asio::error::eof);
error_code const kReset(boost::asio::error::connection_reset);

/// What a ScriptedStream reads and what became of it.
struct Script {
  std::deque<std::string> input;
  error_code end = kEof;
  std::string output;
  error_code writeError;
  std::string unread;
  error_code putbackError;
  int reads = 0;
};

/// The stream below, by value as all layers.
class ScriptedStream {
 public:
  using executor_type = boost::asio::io_context::executor_type;

  ScriptedStream(boost::asio::io_context& io, Script& script) : io_(&io), script_(&script) {}

  executor_type get_executor() { return io_->get_executor(); }

  template <typename Handler>
  void async_read_some(boost::asio::mutable_buffer buffer, Handler handler) {
    ++script_->reads;
    error_code error;
    std::size_t count = 0;
    if (script_->input.empty()) {
      error = script_->end;
    } else {
      std::string& piece = script_->input.front();
      count = boost::asio::buffer_copy(buffer, boost::asio::buffer(piece));
      piece.erase(0, count);
      if (piece.empty()) {
        script_->input.pop_front();
      }
    }
    boost::asio::post(*io_,
                      [handler = std::move(handler), error, count]() mutable { handler(error, count); });
  }
  template <typename Buffers, typename Handler>
  void async_write_some(Buffers const& buffers, Handler handler) {
    std::size_t count = 0;
    if (!script_->writeError) {
      std::string bytes(boost::asio::buffer_size(buffers), '\0');
      count = boost::asio::buffer_copy(boost::asio::buffer(bytes), buffers);
      script_->output += bytes;
    }
    boost::asio::post(*io_, [handler = std::move(handler), error = script_->writeError, count]() mutable {
      handler(error, count);
    });
  }
  error_code putback(boost::asio::const_buffer bytes) {
    if (!script_->putbackError) {
      script_->unread.insert(0, static_cast<char const*>(bytes.data()), bytes.size());
    }
    return script_->putbackError;
  }
  error_code ReturnUnread() { return {}; }

 private:
  boost::asio::io_context* io_;
  Script* script_;
};

struct Outcome {
  error_code error;
  std::string bytes;
};

class BodyStreamTest : public testing::Test {
 protected:
  ScriptedStream Below() { return {io_, script_}; }

  /// One read of up to `size` bytes.
  template <typename Stream>
  Outcome ReadOnce(Stream& stream, std::size_t size = 100) {
    std::string buffer(size, '\0');
    std::optional<Outcome> outcome;
    stream.async_read_some(boost::asio::buffer(buffer), [&](error_code error, std::size_t count) {
      outcome = Outcome{error, buffer.substr(0, count)};
    });
    EXPECT_FALSE(outcome) << "completed inside the call";
    io_.restart();
    io_.run();
    return outcome.value_or(Outcome());
  }

  /// Reads to the first error; all bytes and that error.
  template <typename Stream>
  Outcome ReadAll(Stream& stream, std::size_t size = 100) {
    Outcome all;
    while (!all.error) {
      Outcome const one = ReadOnce(stream, size);
      all.error = one.error;
      all.bytes += one.bytes;
    }
    return all;
  }

  /// All pieces that `text` can be cut into at one place, and its single bytes.
  static std::vector<std::deque<std::string>> AllCuts(std::string const& text) {
    std::vector<std::deque<std::string>> cuts{{text}};
    for (std::size_t cut = 1; cut < text.size(); ++cut) {
      cuts.push_back({text.substr(0, cut), text.substr(cut)});
    }
    std::deque<std::string> bytes;
    for (char c : text) {
      bytes.emplace_back(1, c);
    }
    cuts.push_back(bytes);
    return cuts;
  }

  boost::asio::io_context io_;
  Script script_;
};

TEST_F(BodyStreamTest, ABodyEndsAtItsLength) {
  for (auto const& input : AllCuts("bodynext")) {
    script_ = Script();
    script_.input = input;
    AsyncHttpBodyStream<ScriptedStream> stream(Below(), 4);
    Outcome const all = ReadAll(stream);
    EXPECT_EQ(all.error, kEndOfBody);
    EXPECT_EQ(all.bytes, "body");
    std::string left;
    for (std::string const& piece : script_.input) {
      left += piece;
    }
    EXPECT_EQ(left, "next") << "no byte behind the body is read";
    int const reads = script_.reads;
    EXPECT_EQ(ReadOnce(stream).error, kEndOfBody);
    EXPECT_EQ(script_.reads, reads);
  }
}

TEST_F(BodyStreamTest, ABodyOfNoLengthIsAtItsEnd) {
  AsyncHttpBodyStream<ScriptedStream> stream(Below(), 0);
  Outcome const outcome = ReadOnce(stream);
  EXPECT_EQ(outcome.error, kEndOfBody);
  EXPECT_EQ(script_.reads, 0);
}

TEST_F(BodyStreamTest, ABodyThatEndsEarlyIsIncomplete) {
  script_.input = {"bod"};
  AsyncHttpBodyStream<ScriptedStream> stream(Below(), 4);
  Outcome const all = ReadAll(stream);
  EXPECT_EQ(all.error, kIncomplete);
  EXPECT_EQ(all.bytes, "bod");
}

TEST_F(BodyStreamTest, OtherErrorsPassThroughABody) {
  script_.end = kReset;
  AsyncHttpBodyStream<ScriptedStream> stream(Below(), 4);
  EXPECT_EQ(ReadOnce(stream).error, kReset);
}

TEST_F(BodyStreamTest, AChunkedBodyIsDecodedHoweverItArrives) {
  for (std::size_t size : {std::size_t{1}, std::size_t{3}, std::size_t{100}}) {
    for (auto const& input : AllCuts("3\r\nabc\r\n2\r\nde\r\n0\r\nT: x\r\n\r\nnext")) {
      script_ = Script();
      script_.input = input;
      AsyncHttpChunkedBodyStream<ScriptedStream> stream(Below());
      Outcome const all = ReadAll(stream, size);
      EXPECT_EQ(all.error, kEndOfBody);
      EXPECT_EQ(all.bytes, "abcde");
      std::string left = script_.unread;
      for (std::string const& piece : script_.input) {
        left += piece;
      }
      EXPECT_EQ(left, "next");
      EXPECT_EQ(ReadOnce(stream).error, kEndOfBody);
    }
  }
}

TEST_F(BodyStreamTest, AMalformedChunkIsAnError) {
  script_.input = {"3\r\nabcX"};
  AsyncHttpChunkedBodyStream<ScriptedStream> stream(Below());
  EXPECT_EQ(ReadAll(stream).error, kChunkParse);
}

TEST_F(BodyStreamTest, AChunkedBodyThatEndsEarlyIsIncomplete) {
  std::string const whole = "3\r\nabc\r\n0\r\n\r\n";
  for (std::size_t cut = 0; cut < whole.size(); ++cut) {
    script_ = Script();
    if (cut != 0) {
      script_.input = {whole.substr(0, cut)};
    }
    AsyncHttpChunkedBodyStream<ScriptedStream> stream(Below());
    EXPECT_EQ(ReadAll(stream).error, kIncomplete) << cut;
  }
}

TEST_F(BodyStreamTest, OtherErrorsPassThroughAChunkedBody) {
  script_.end = kReset;
  AsyncHttpChunkedBodyStream<ScriptedStream> stream(Below());
  EXPECT_EQ(ReadOnce(stream).error, kReset);
}

TEST_F(BodyStreamTest, AFailureToUnreadIsTheReaders) {
  script_.input = {"0\r\n\r\nnext"};
  script_.putbackError = make_error_code(boost::system::errc::not_enough_memory);
  AsyncHttpChunkedBodyStream<ScriptedStream> stream(Below());
  EXPECT_EQ(ReadOnce(stream).error, kTooLong);
}

TEST_F(BodyStreamTest, TheFirstReadTellsTheClientToGoOn) {
  script_.input = {"body"};
  AsyncExpectContinueStream<ScriptedStream> stream(Below());
  EXPECT_EQ(script_.output, "");
  EXPECT_EQ(ReadOnce(stream, 2).bytes, "bo");
  EXPECT_EQ(script_.output, "HTTP/1.1 100 Continue\r\n\r\n");
  EXPECT_EQ(script_.output.size(), 25U);
  EXPECT_EQ(ReadOnce(stream, 2).bytes, "dy");
  EXPECT_EQ(script_.output.size(), 25U);
}

TEST_F(BodyStreamTest, AFailureToTellItIsTheReaders) {
  script_.input = {"body"};
  script_.writeError = kReset;
  AsyncExpectContinueStream<ScriptedStream> stream(Below());
  EXPECT_EQ(ReadOnce(stream).error, kReset);
  EXPECT_EQ(script_.reads, 0);
}

TEST_F(BodyStreamTest, BytesBehindAnExpectingHeadAreReadFirst) {
  script_.input = {"dy"};
  AsyncExpectContinueStream<ScriptedStream> stream(Below());
  ASSERT_FALSE(stream.putback(boost::asio::buffer(std::string("bo"))));
  EXPECT_EQ(ReadOnce(stream).bytes, "bo");
  EXPECT_EQ(script_.output.size(), 25U);
  EXPECT_EQ(ReadOnce(stream).bytes, "dy");
}

TEST_F(BodyStreamTest, BytesBehindAnExpectingBodyGoBackToTheConnection) {
  AsyncHttpBodyStream<AsyncExpectContinueStream<ScriptedStream>> stream(
      AsyncExpectContinueStream<ScriptedStream>(Below()), 4);
  ASSERT_FALSE(stream.putback(boost::asio::buffer(std::string("bodynext"))));
  EXPECT_EQ(ReadAll(stream).bytes, "body");
  ASSERT_FALSE(stream.ReturnUnread());
  EXPECT_EQ(script_.unread, "next");
}

TEST_F(BodyStreamTest, BytesBehindAnExpectingChunkedBodyGoBackToTheConnection) {
  AsyncHttpChunkedBodyStream<AsyncExpectContinueStream<ScriptedStream>> stream{
      AsyncExpectContinueStream<ScriptedStream>(Below())};
  ASSERT_FALSE(stream.putback(boost::asio::buffer(std::string("1\r\nx\r\n0\r\n\r\nnext"))));
  EXPECT_EQ(ReadAll(stream).bytes, "x");
  ASSERT_FALSE(stream.ReturnUnread());
  EXPECT_EQ(script_.unread, "next");
}

/// Reads a body of at most `limit` bytes.
class ReadBodyTest : public BodyStreamTest {
 protected:
  template <typename Stream>
  Outcome ReadBody(Stream& stream, std::uint64_t limit, std::uint64_t declared = 0) {
    Http::BodyBuffer body(limit + 1, declared);
    std::optional<error_code> outcome;
    Http::AsyncReadBody(stream, body, [&](error_code error) { outcome = error; });
    io_.restart();
    io_.run();
    return {outcome.value_or(kReset), std::string(body.Bytes())};
  }
};

TEST_F(ReadBodyTest, EndOfBodyAndEndOfFileAreTheEnd) {
  script_.input = {"body"};
  AsyncHttpBodyStream<ScriptedStream> bounded(Below(), 4);
  Outcome const outcome = ReadBody(bounded, 100, 4);
  EXPECT_FALSE(outcome.error);
  EXPECT_EQ(outcome.bytes, "body");

  script_.input = {"to the", " end"};
  ScriptedStream plain = Below();
  EXPECT_EQ(ReadBody(plain, 100).bytes, "to the end");
}

TEST_F(ReadBodyTest, TakesTheLimitAndNotOneByteMore) {
  for (std::uint64_t limit : {10U, 1023U, 1024U, 70000U, 200000U}) {
    std::string const body(limit, 'x');
    script_.input = {body};
    AsyncHttpBodyStream<ScriptedStream> exact(Below(), limit);
    Outcome outcome = ReadBody(exact, limit, limit);
    EXPECT_FALSE(outcome.error) << limit;
    EXPECT_EQ(outcome.bytes, body);

    script_.input = {body};
    ScriptedStream plain = Below();
    outcome = ReadBody(plain, limit);
    EXPECT_FALSE(outcome.error) << limit;
    EXPECT_EQ(outcome.bytes, body);

    script_.input = {body + "x"};
    AsyncHttpBodyStream<ScriptedStream> longer(Below(), limit + 1);
    EXPECT_EQ(ReadBody(longer, limit, limit + 1).error, kTooLong) << limit;

    script_.input = {body + "x"};
    ScriptedStream endless = Below();
    EXPECT_EQ(ReadBody(endless, limit).error, kTooLong) << limit;
  }
}

TEST_F(ReadBodyTest, AChunkedBodyMayFillTheLimit) {
  std::string const body(1000, 'x');
  script_.input = {"3e8\r\n" + body + "\r\n0\r\n\r\n"};
  AsyncHttpChunkedBodyStream<ScriptedStream> stream(Below());
  Outcome const outcome = ReadBody(stream, body.size());
  EXPECT_FALSE(outcome.error);
  EXPECT_EQ(outcome.bytes, body);
}

TEST_F(ReadBodyTest, OtherErrorsArePassedOn) {
  script_.input = {"bo"};
  script_.end = kReset;
  AsyncHttpBodyStream<ScriptedStream> stream(Below(), 4);
  EXPECT_EQ(ReadBody(stream, 100, 4).error, kReset);
}

TEST(BodyBuffer, TrustsADeclaredLengthOnlyOnceBytesAreThere) {
  constexpr std::uint64_t kDeclared = 2000000;
  Http::BodyBuffer body(2500001, kDeclared);
  EXPECT_EQ(body.Room().size(), 4096U);
  body.Commit(1);
  EXPECT_EQ(body.Room().size(), 4095U);
  body.Commit(4095);
  EXPECT_EQ(body.Room().size(), kDeclared + 1 - 4096);
}

TEST(BodyBuffer, DoublesWithoutADeclaredLength) {
  Http::BodyBuffer body(3000, 0);
  EXPECT_EQ(body.Room().size(), 1024U);
  body.Commit(1024);
  EXPECT_EQ(body.Room().size(), 1024U);
  body.Commit(1024);
  EXPECT_EQ(body.Room().size(), 952U);
  body.Commit(952);
  EXPECT_TRUE(body.Full());
  EXPECT_EQ(body.Room().size(), 0U);
}

}  // namespace
}  // namespace Lumo::Transport::PicoHttp::PicoHttpDetail
