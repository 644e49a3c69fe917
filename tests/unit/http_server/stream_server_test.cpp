#include "transport/stream_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <queue>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/http/fake_socket.h"
#include "tests/support/http/fake_timer.h"
#include "tests/support/http/recording_logger.h"
#include "transport/async_putback_stream.h"

namespace Lumo::Asio {
namespace {

using boost::system::error_code;
using testing::ElementsAre;
using testing::IsEmpty;
using Transport::TestSupport::FakeClock;
using Transport::TestSupport::FakeSocket;
using Transport::TestSupport::FakeTimer;
using Transport::TestSupport::RecordingLogger;

using Stream = AsyncPutbackStream<TimeoutBaseStream<FakeSocket, std::mutex, FakeTimer>>;

/// A listening socket whose accepts end as the test says.
class FakeSocketAcceptor {
 public:
  using executor_type = boost::asio::io_context::executor_type;

  struct State {
    bool open = true;
    error_code localError;
    std::queue<std::function<void(error_code)>> armed;

    void Complete(error_code const& error) {
      auto handler = std::move(armed.front());
      armed.pop();
      handler(error);
    }
  };

  explicit FakeSocketAcceptor(executor_type const& executor) : executor_(executor) {}

  executor_type get_executor() { return executor_; }
  bool is_open() const { return state->open; }
  void close(error_code& error) {
    error = {};
    state->open = false;
    while (!state->armed.empty()) {
      auto handler = std::move(state->armed.front());
      state->armed.pop();
      boost::asio::post(executor_, [handler] { handler(boost::asio::error::operation_aborted); });
    }
  }
  boost::asio::ip::tcp::endpoint local_endpoint(error_code& error) const {
    error = state->localError;
    return {boost::asio::ip::address_v4::loopback(), 7433};
  }
  template <typename Handler>
  void async_accept(FakeSocket& /*socket*/, Handler handler) {
    auto shared = std::make_shared<Handler>(std::move(handler));
    state->armed.push([shared](error_code const& error) { (*shared)(error); });
  }

  std::shared_ptr<State> state = std::make_shared<State>();

 private:
  executor_type executor_;
};

struct CountingTuner {
  std::shared_ptr<int> tuned;
  void operator()(FakeSocket& /*socket*/) const { ++*tuned; }
};

using FakeAcceptor = Acceptor<FakeSocketAcceptor, Stream, CountingTuner>;
using Handler = std::function<void(std::shared_ptr<Stream>)>;
using Server = StreamServer<FakeAcceptor, Handler, FakeTimer>;

error_code const kNoDescriptors(EMFILE, boost::system::system_category());

class StreamServerTest : public testing::Test {
 protected:
  StreamServerTest() {
    FakeAcceptor acceptor(io_.get_executor(), CountingTuner{tuned_}, std::chrono::seconds(1200),
                          std::chrono::seconds(1800));
    state_ = acceptor.socket().state;
    server_ = std::make_shared<Server>(
        std::move(acceptor),
        [this](std::shared_ptr<Stream> const& stream) {
          EXPECT_TRUE(stream);
          stream_ = stream;
          armedAtConnection_ = state_->armed.size();
          ++connections_;
        },
        logger_);
  }
  ~StreamServerTest() override {
    // The armed accepts hold the server, and that their acceptor.
    state_->armed = {};
    Advance(std::chrono::hours(1));
    state_->armed = {};
  }

  void Poll() {
    io_.restart();
    io_.poll();
  }
  void Advance(FakeClock::duration step) {
    FakeClock::Advance(step);
    Poll();
  }

  boost::asio::io_context io_;
  std::shared_ptr<RecordingLogger> logger_ = std::make_shared<RecordingLogger>();
  std::shared_ptr<int> tuned_ = std::make_shared<int>(0);
  std::shared_ptr<FakeSocketAcceptor::State> state_;
  std::shared_ptr<Server> server_;
  /// Of the last connection.
  std::shared_ptr<Stream> stream_;
  int connections_ = 0;
  std::size_t armedAtConnection_ = 0;
};

TEST_F(StreamServerTest, KeepsOneAcceptArmedAndHandsConnectionsOn) {
  EXPECT_FALSE(server_->Start());
  EXPECT_EQ(state_->armed.size(), 1U);
  for (int i = 1; i <= 3; ++i) {
    state_->Complete({});
    EXPECT_EQ(connections_, i);
    EXPECT_EQ(*tuned_, i);
    EXPECT_EQ(armedAtConnection_, 1U) << "armed again before the connection starts";
  }
  EXPECT_THAT(logger_->TakeLines(), IsEmpty());
}

TEST_F(StreamServerTest, AClosedAcceptorIsRefused) {
  state_->open = false;
  EXPECT_EQ(server_->Start(), error_code(EBADF, boost::system::system_category()));
  EXPECT_EQ(server_->Stop(), error_code(EBADF, boost::system::system_category()));
  EXPECT_TRUE(state_->armed.empty());
}

TEST_F(StreamServerTest, StopClosesLaterAndEndsTheLoop) {
  ASSERT_FALSE(server_->Start());
  EXPECT_FALSE(server_->Stop());
  EXPECT_TRUE(state_->open) << "Stop only queues";
  Poll();
  EXPECT_FALSE(state_->open);
  EXPECT_TRUE(state_->armed.empty());
  EXPECT_THAT(logger_->TakeLines(),
              ElementsAre("4 Accept Error: system:125;TerminalAcceptError.Acceptor info:"
                          "LocalEndpoint:127.0.0.1:7433"));
}

TEST_F(StreamServerTest, EachStreamHasTheTimeoutsOfTheAcceptor) {
  auto const ignore = [](error_code const& /*error*/, std::size_t /*count*/) {};
  char byte = 0;
  for (bool const writes : {false, true}) {
    ASSERT_FALSE(server_->Start());
    state_->Complete({});
    auto const wire = stream_->lowest().socket().wire();
    wire->blockWrites = true;
    if (writes) {
      stream_->async_write_some(boost::asio::const_buffer(&byte, 1), ignore);
    } else {
      stream_->async_read_some(boost::asio::mutable_buffer(&byte, 1), ignore);
    }
    Advance(std::chrono::seconds(writes ? 1800 : 1200) - std::chrono::nanoseconds(1));
    EXPECT_FALSE(wire->shutDown) << writes;
    Advance(std::chrono::nanoseconds(1));
    EXPECT_TRUE(wire->shutDown) << writes;
  }
}

class TerminalErrorTest : public StreamServerTest, public testing::WithParamInterface<int> {};

TEST_P(TerminalErrorTest, EndsTheLoop) {
  ASSERT_FALSE(server_->Start());
  state_->Complete(error_code(GetParam(), boost::system::system_category()));
  EXPECT_TRUE(state_->armed.empty());
  EXPECT_THAT(logger_->TakeLines(),
              ElementsAre("4 Accept Error: system:" + std::to_string(GetParam()) +
                          ";TerminalAcceptError.Acceptor info:LocalEndpoint:127.0.0.1:7433"));
  Advance(std::chrono::seconds(10));
  EXPECT_TRUE(state_->armed.empty());
  EXPECT_TRUE(state_->open) << "the listening socket stays open but unserved";
  EXPECT_EQ(connections_, 0);
  EXPECT_EQ(*tuned_, 0);
}

INSTANTIATE_TEST_SUITE_P(Errors, TerminalErrorTest,
                         testing::Values(ENFILE, ECONNABORTED, ENOBUFS, ENOMEM, EPERM, ECANCELED));

TEST_F(StreamServerTest, ALackOfDescriptorsIsTriedAtOnceAndOnceMoreAfterTheDelay) {
  ASSERT_FALSE(server_->Start());
  state_->Complete(kNoDescriptors);
  EXPECT_THAT(logger_->TakeLines(), ElementsAre("4 Accept Error: system:24;DelayAcceptError.Acceptor info:"
                                                "LocalEndpoint:127.0.0.1:7433"));
  EXPECT_EQ(state_->armed.size(), 1U) << "armed again at once";
  Advance(std::chrono::milliseconds(499));
  EXPECT_EQ(state_->armed.size(), 1U);
  Advance(std::chrono::milliseconds(1));
  EXPECT_EQ(state_->armed.size(), 2U) << "both happen";
  state_->Complete({});
  EXPECT_EQ(connections_, 1);
  EXPECT_THAT(logger_->TakeLines(), IsEmpty());
}

TEST_F(StreamServerTest, ALastingLackOfDescriptorsCostsTwoTriesADelay) {
  ASSERT_FALSE(server_->Start());
  for (int round = 0; round < 10; ++round) {
    int tries = 0;
    while (!state_->armed.empty()) {
      state_->Complete(kNoDescriptors);
      ASSERT_LE(++tries, 2);
    }
    Advance(std::chrono::milliseconds(500));
    EXPECT_EQ(state_->armed.size(), 1U);
  }
  logger_->TakeLines();
  state_->Complete({});
  EXPECT_EQ(connections_, 1) << "accepting goes on when there are descriptors again";
}

TEST_F(StreamServerTest, NeverMoreThanTwoAcceptsAreArmed) {
  ASSERT_FALSE(server_->Start());
  for (int round = 0; round < 10; ++round) {
    state_->Complete(kNoDescriptors);
    Advance(std::chrono::milliseconds(500));
    EXPECT_LE(state_->armed.size(), 2U);
  }
}

TEST_F(StreamServerTest, ADelayThatEndsAfterStopArmsNothing) {
  ASSERT_FALSE(server_->Start());
  state_->Complete(kNoDescriptors);
  ASSERT_FALSE(server_->Stop());
  Poll();
  Advance(std::chrono::milliseconds(500));
  EXPECT_TRUE(state_->armed.empty());
}

TEST_F(StreamServerTest, ADelayDoesNotTakeUpALoopThatHasEnded) {
  ASSERT_FALSE(server_->Start());
  state_->Complete(kNoDescriptors);
  state_->Complete(error_code(ECONNABORTED, boost::system::system_category()));
  EXPECT_TRUE(state_->armed.empty());
  Advance(std::chrono::milliseconds(500));
  EXPECT_TRUE(state_->armed.empty()) << "ended for good";
}

TEST_F(StreamServerTest, ASecondAcceptDoesNotTakeUpALoopThatHasEnded) {
  ASSERT_FALSE(server_->Start());
  state_->Complete(kNoDescriptors);
  Advance(std::chrono::milliseconds(500));
  ASSERT_EQ(state_->armed.size(), 2U);
  state_->Complete(error_code(ENFILE, boost::system::system_category()));
  state_->Complete({});
  EXPECT_EQ(connections_, 1) << "a connection that is there is served";
  EXPECT_TRUE(state_->armed.empty()) << "ended for good";
}

TEST_F(StreamServerTest, ADelayThatIsCancelledIsToldAndArmsNothing) {
  ASSERT_FALSE(server_->Start());
  state_->Complete(kNoDescriptors);
  state_->armed = {};
  logger_->TakeLines();
  FakeClock::CancelAll();
  Poll();
  EXPECT_THAT(logger_->TakeLines(),
              ElementsAre("4 Delay timer Accept Error: system:125LocalEndpoint:127.0.0.1:7433"));
  EXPECT_TRUE(state_->armed.empty());
}

TEST_F(StreamServerTest, AnUnreadableAddressIsTold) {
  state_->localError = error_code(ENOTSOCK, boost::system::system_category());
  ASSERT_FALSE(server_->Start());
  state_->Complete(kNoDescriptors);
  EXPECT_THAT(logger_->TakeLines(), ElementsAre("4 Accept Error: system:24;DelayAcceptError.Acceptor info:"
                                                "LocalEndpoint:Socket operation on non-socket"));
}

TEST(AcceptError, HasATextOfAllItsParts) {
  EXPECT_EQ(AcceptError::From({}).ToString(), "NoError");
  AcceptError error = AcceptError::From(kNoDescriptors);
  EXPECT_EQ(error.bits, AcceptError::kDelayAcceptError);
  EXPECT_EQ(error.ToString(), "system:24;DelayAcceptError");
  error.bits |= AcceptError::kTerminalAcceptError;
  error.text = "more";
  EXPECT_EQ(error.ToString(), "system:24;TerminalAcceptError;DelayAcceptError;more");
}

}  // namespace
}  // namespace Lumo::Asio
