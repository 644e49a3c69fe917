#include "transport/timeout_base_stream.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "tests/support/http/fake_socket.h"
#include "tests/support/http/fake_timer.h"
#include "transport/async_putback_stream.h"

namespace Lumo::Asio {
namespace {

using boost::system::error_code;
using std::chrono::seconds;
using Transport::TestSupport::FakeClock;
using Transport::TestSupport::FakeSocket;
using Transport::TestSupport::FakeTimer;
using Transport::TestSupport::FakeWire;

using TimedStream = TimeoutBaseStream<FakeSocket, std::mutex, FakeTimer>;
using PutbackStream = AsyncPutbackStream<TimedStream>;

constexpr seconds kReadTimeout{1200};
constexpr seconds kWriteTimeout{1800};

struct Outcome {
  error_code error;
  std::size_t count = 0;
};

class StreamTest : public testing::Test {
 protected:
  StreamTest()
      : stream_(PutbackStream::Create(io_.get_executor(), kReadTimeout, kWriteTimeout)),
        wire_(stream_->lowest().socket().wire()) {}
  ~StreamTest() override { wire_->Drop(); }

  void Poll() {
    io_.restart();
    io_.poll();
  }
  void Advance(FakeClock::duration step) {
    FakeClock::Advance(step);
    Poll();
  }
  /// Starts a read of up to `size` bytes into buffer_.
  void Read(std::size_t size) {
    outcome_.reset();
    buffer_.assign(size, '\0');
    stream_->async_read_some(boost::asio::buffer(buffer_),
                             [this, keep = stream_](error_code error, std::size_t count) {
                               outcome_ = Outcome{error, count};
                             });
    Poll();
  }
  void Write(std::string const& text) {
    outcome_.reset();
    written_ = text;
    stream_->async_write_some(boost::asio::buffer(written_),
                              [this, keep = stream_](error_code error, std::size_t count) {
                                outcome_ = Outcome{error, count};
                              });
    Poll();
  }

  boost::asio::io_context io_;
  std::shared_ptr<PutbackStream> stream_;
  std::shared_ptr<FakeWire> wire_;
  std::string buffer_;
  std::string written_;
  std::optional<Outcome> outcome_;
};

TEST_F(StreamTest, ReadsAndWrites) {
  wire_->Feed("abc");
  Read(2);
  ASSERT_TRUE(outcome_);
  EXPECT_FALSE(outcome_->error);
  EXPECT_EQ(buffer_.substr(0, outcome_->count), "ab");
  Write("xyz");
  ASSERT_TRUE(outcome_);
  EXPECT_EQ(outcome_->count, 3U);
  EXPECT_EQ(wire_->output, "xyz");
}

TEST_F(StreamTest, ASilentReadIsShutDownAtItsLimitAndNotBefore) {
  Read(10);
  Advance(kReadTimeout - seconds(1));
  EXPECT_FALSE(wire_->shutDown);
  EXPECT_FALSE(outcome_);
  Advance(seconds(1));
  EXPECT_TRUE(wire_->shutDown);
  ASSERT_TRUE(outcome_);
  EXPECT_EQ(outcome_->error, boost::asio::error::eof);
  EXPECT_TRUE(wire_->open) << "the time-out does not close the socket";
}

TEST_F(StreamTest, EachReadHasItsOwnLimit) {
  for (int round = 0; round < 5; ++round) {
    Read(10);
    Advance(seconds(1000));
    EXPECT_FALSE(wire_->shutDown) << round;
    wire_->Feed("x");
    Poll();
    ASSERT_TRUE(outcome_);
    EXPECT_EQ(outcome_->count, 1U);
  }
  Read(10);
  Advance(kReadTimeout - seconds(1));
  EXPECT_FALSE(wire_->shutDown);
  Advance(seconds(1));
  EXPECT_TRUE(wire_->shutDown);
}

TEST_F(StreamTest, NothingHappensWhileNoOperationIsUnderWay) {
  wire_->Feed("x");
  Read(10);
  Write("y");
  Advance(10 * kWriteTimeout);
  EXPECT_FALSE(wire_->shutDown);
}

TEST_F(StreamTest, ASilentWriteIsShutDownAtItsOwnLimit) {
  wire_->blockWrites = true;
  Write("x");
  Advance(kReadTimeout);
  EXPECT_FALSE(wire_->shutDown);
  Advance(kWriteTimeout - kReadTimeout);
  EXPECT_TRUE(wire_->shutDown);
  ASSERT_TRUE(outcome_);
  EXPECT_TRUE(outcome_->error);
}

TEST_F(StreamTest, ManyOperationsCostOneTimerWait) {
  int const before = FakeClock::WaitsBegun();
  for (int round = 0; round < 100; ++round) {
    wire_->Feed("x");
    Read(10);
    Write("y");
  }
  EXPECT_EQ(FakeClock::WaitsBegun() - before, 2);
}

TEST_F(StreamTest, ALimitBeyondTheClockSaturates) {
  stream_ = PutbackStream::Create(io_.get_executor(), std::chrono::nanoseconds::max(),
                                  std::chrono::nanoseconds::max());
  wire_ = stream_->lowest().socket().wire();
  Read(10);
  Advance(std::chrono::hours(24 * 365));
  EXPECT_FALSE(wire_->shutDown);
}

TEST_F(StreamTest, AReadOnASocketThatWasClosedGivesEndOfFile) {
  Read(10);
  stream_->close();
  Poll();
  ASSERT_TRUE(outcome_);
  EXPECT_EQ(outcome_->error, boost::asio::error::eof);
  EXPECT_EQ(outcome_->count, 0U);
}

TEST_F(StreamTest, AWriteOnASocketThatWasClosedGivesBrokenPipe) {
  wire_->blockWrites = true;
  Write("x");
  stream_->close();
  Poll();
  ASSERT_TRUE(outcome_);
  EXPECT_EQ(outcome_->error, error_code(EPIPE, boost::system::system_category()));
  EXPECT_EQ(outcome_->count, 0U);
}

TEST_F(StreamTest, ATimeoutOfAClosedSocketDoesNothing) {
  Read(10);
  wire_->open = false;
  Advance(kReadTimeout);
  EXPECT_FALSE(wire_->shutDown);
}

TEST_F(StreamTest, TheEndOfFileIsReadAgainWithoutTheSocket) {
  wire_->Feed("x");
  wire_->End();
  Read(10);
  ASSERT_TRUE(outcome_);
  EXPECT_FALSE(outcome_->error);
  Read(10);
  ASSERT_TRUE(outcome_);
  EXPECT_EQ(outcome_->error, boost::asio::error::eof);
  EXPECT_EQ(wire_->reads, 2);
  Read(10);
  ASSERT_TRUE(outcome_);
  EXPECT_EQ(outcome_->error, boost::asio::error::eof);
  EXPECT_EQ(wire_->reads, 2) << "an edge-triggered socket tells of its end once";
}

TEST_F(StreamTest, APendingTimerDoesNotKeepTheStream) {
  Read(10);
  wire_->Feed("x");
  Poll();
  stream_.reset();
  EXPECT_TRUE(wire_->destroyed);
  Advance(10 * kReadTimeout);
}

TEST_F(StreamTest, CloseDropsWhatHasArrived) {
  wire_->Feed("abc");
  wire_->Feed("def");
  stream_->close();
  EXPECT_EQ(wire_->PendingInput(), 0U);
  EXPECT_FALSE(wire_->open);
}

TEST_F(StreamTest, UnreadBytesAreServedWithoutTheSocket) {
  wire_->Feed("socket");
  int const waits = FakeClock::WaitsBegun();
  ASSERT_FALSE(stream_->putback(boost::asio::buffer(std::string("unread"))));
  Read(4);
  EXPECT_EQ(buffer_.substr(0, outcome_->count), "unre");
  Read(4);
  EXPECT_EQ(buffer_.substr(0, outcome_->count), "ad") << "never mixed with bytes of the socket";
  EXPECT_EQ(wire_->reads, 0);
  EXPECT_EQ(FakeClock::WaitsBegun(), waits);
  Read(10);
  EXPECT_EQ(buffer_.substr(0, outcome_->count), "socket");
  EXPECT_EQ(wire_->reads, 1);
}

TEST(ReadAhead, PutsInFrontOfWhatWaits) {
  ReadAhead bytes;
  std::string const text = "0123456789";
  ASSERT_FALSE(bytes.PutFront(boost::asio::buffer(text)));
  std::string taken(6, '\0');
  EXPECT_EQ(bytes.Take(boost::asio::buffer(taken)), 6U);
  EXPECT_EQ(taken, "012345");
  ASSERT_FALSE(bytes.PutFront(boost::asio::buffer(std::string("45"))));
  ASSERT_FALSE(bytes.PutFront(boost::asio::buffer(std::string("abcdefghij"))));
  EXPECT_EQ(bytes.size(), 16U);
  taken.assign(100, '\0');
  std::size_t const count = bytes.Take(boost::asio::buffer(taken));
  EXPECT_EQ(taken.substr(0, count), "abcdefghij456789");
  EXPECT_TRUE(bytes.empty());
  EXPECT_EQ(bytes.Take(boost::asio::buffer(taken)), 0U);
  EXPECT_FALSE(bytes.PutFront(boost::asio::const_buffer()));
  EXPECT_TRUE(bytes.empty());
}

}  // namespace
}  // namespace Lumo::Asio
