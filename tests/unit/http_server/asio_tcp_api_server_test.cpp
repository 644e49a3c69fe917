#include "transport/asio_tcp_api_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/http/fake_provider.h"
#include "tests/support/http/recording_logger.h"
#include "transport/endpoint_text.h"

namespace Lumo::Transport::PicoHttp {
namespace {

using boost::asio::ip::tcp;

/// A server on free ports of the loopback addresses, and its thread.
class AsioTcpApiServerTest : public testing::Test {
 protected:
  AsioTcpApiServerTest() : server_(Provider(), io_, Config(logger_)) {}
  ~AsioTcpApiServerTest() override {
    io_.stop();
    if (thread_.joinable()) {
      thread_.join();
    }
  }

  static std::shared_ptr<Core::AsyncApiProvider> Provider() {
    return std::make_shared<TestSupport::FakeProvider>(
        [](Core::MethodIdentifier const& method, Data::DataValuePtr const& /*input*/,
           std::shared_ptr<Core::AsyncActivation> const& /*activation*/,
           Core::AsyncApiResultCb const& callback) {
          callback(Core::MethodResult::GetInstance(Data::StringValue::GetInstance(method.ToString())), {},
                   {});
        });
  }

  static ServerConfig Config(std::shared_ptr<Log::Logger> logger) {
    ServerConfig config;
    config.logger = std::move(logger);
    config.endpoint4 = {boost::asio::ip::address_v4::loopback(), 0};
    config.endpoint6 = {boost::asio::ip::address_v6::loopback(), 0};
    config.readTimeout = std::chrono::minutes(20);
    config.writeTimeout = std::chrono::minutes(30);
    config.httpBodySizeLimitInBytes = 2500000;
    config.localizer = L10n::LocalizerHelpers::GetDefaultLocalizer();
    return config;
  }

  void Run() {
    thread_ = std::thread([this] { io_.run(); });
  }

  /// Sends `request`, ends the sending side and returns all that comes back.
  static std::string Exchange(tcp::endpoint const& endpoint, std::string const& request) {
    boost::asio::io_context io;
    tcp::socket socket(io);
    socket.connect(endpoint);
    boost::asio::write(socket, boost::asio::buffer(request));
    socket.shutdown(tcp::socket::shutdown_send);
    std::string answer;
    boost::system::error_code error;
    boost::asio::read(socket, boost::asio::dynamic_buffer(answer), error);
    return answer;
  }

  /// Waits for a line that contains `part`.
  bool AwaitLine(std::string const& part) {
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
      for (std::string const& line : logger_->Lines()) {
        if (line.find(part) != std::string::npos) {
          return true;
        }
      }
      std::this_thread::yield();
    }
    return false;
  }

  boost::asio::io_context io_;
  std::shared_ptr<TestSupport::RecordingLogger> logger_ = std::make_shared<TestSupport::RecordingLogger>();
  AsioTcpApiServer server_;
  std::thread thread_;
};

std::string Call(std::string const& headers, std::string const& body) {
  return "POST / HTTP/1.1\r\nContent-Type: application/json\r\n" + headers +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

TEST_F(AsioTcpApiServerTest, ServesBothFamilies) {
  ASSERT_FALSE(server_.Start());
  Run();
  std::string const call = Call("", R"({"jsonrpc":"2.0","id":1,"method":"com.orbane.halo.tasks.list"})");
  std::string const expected =
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Type: application/json\r\n"
      "Connection: Keep-Alive\r\nServer: Lumo-PicoHttp\r\n\r\n"
      "3e\r\n{\"jsonrpc\":\"2.0\",\"id\":1,\"result\":\"com.orbane.halo.tasks.list\"}\r\n0\r\n\r\n";
  EXPECT_EQ(Exchange(server_.config().endpoint4, call), expected);
  EXPECT_EQ(Exchange(server_.config().endpoint6, call + call), expected + expected);
}

TEST_F(AsioTcpApiServerTest, LogsWhereItListens) {
  ASSERT_FALSE(server_.Start());
  EXPECT_THAT(logger_->TakeLines(),
              testing::ElementsAre("2 Listening on: " + EndpointToString(server_.config().endpoint4),
                                   "2 Listening on: " + EndpointToString(server_.config().endpoint6)));
  EXPECT_NE(server_.config().endpoint4.port(), 0);
  EXPECT_EQ(server_.config().endpoint4.address(), boost::asio::ip::address_v4::loopback());
}

TEST_F(AsioTcpApiServerTest, OneFamilyIsEnough) {
  ASSERT_FALSE(server_.Start());
  logger_->TakeLines();
  ServerConfig config = Config(logger_);
  config.endpoint4 = server_.config().endpoint4;
  AsioTcpApiServer second(Provider(), io_, config);
  EXPECT_FALSE(second.Start());
  EXPECT_THAT(logger_->TakeLines(),
              testing::ElementsAre(
                  "2 IPv4 Failed to listen on: " + EndpointToString(config.endpoint4) + " ec: system:98",
                  "2 Listening on: " + EndpointToString(second.config().endpoint6)));
}

TEST_F(AsioTcpApiServerTest, NoFamilyIsAnError) {
  ASSERT_FALSE(server_.Start());
  logger_->TakeLines();
  ServerConfig config = Config(logger_);
  config.endpoint4 = server_.config().endpoint4;
  config.endpoint6 = server_.config().endpoint6;
  AsioTcpApiServer second(Provider(), io_, config);
  EXPECT_TRUE(second.Start());
  EXPECT_THAT(logger_->TakeLines(),
              testing::ElementsAre(
                  "2 IPv4 Failed to listen on: " + EndpointToString(config.endpoint4) + " ec: system:98",
                  "2 IPv6 Failed to listen on: " + EndpointToString(config.endpoint6) + " ec: system:98"));
}

TEST_F(AsioTcpApiServerTest, AServerThatListensAlreadyGoesOn) {
  ASSERT_FALSE(server_.Start());
  logger_->TakeLines();
  EXPECT_TRUE(server_.Start());
  EXPECT_THAT(
      logger_->TakeLines(),
      testing::ElementsAre(
          "2 IPv4 Failed to listen on: " + EndpointToString(server_.config().endpoint4) + " ec: asio.misc:1",
          "2 IPv6 Failed to listen on: " + EndpointToString(server_.config().endpoint6) +
              " ec: asio.misc:1"));
  Run();
  EXPECT_NE(Exchange(server_.config().endpoint4, Call("", R"({"jsonrpc":"2.0","id":1,"method":"s.o"})")), "");
}

TEST_F(AsioTcpApiServerTest, TheWildcardTakesItsPortAndReadsItBack) {
  ServerConfig config = Config(logger_);
  config.wildcard = true;
  AsioTcpApiServer server(Provider(), io_, config);
  EXPECT_FALSE(server.Start());
  EXPECT_TRUE(server.config().endpoint4.address().is_unspecified());
  EXPECT_TRUE(server.config().endpoint6.address().is_unspecified());
  EXPECT_NE(server.config().endpoint4.port(), 0);
}

TEST_F(AsioTcpApiServerTest, AfterStopNobodyIsTakenIn) {
  ASSERT_FALSE(server_.Start());
  Run();
  server_.Stop();
  ASSERT_TRUE(AwaitLine(";TerminalAcceptError.Acceptor info:"));
  boost::asio::io_context io;
  tcp::socket socket(io);
  boost::system::error_code error;
  // The queue of the listening socket may close a moment after the loop has ended.
  do {
    socket = tcp::socket(io);
    socket.connect(server_.config().endpoint4, error);
  } while (!error);
  EXPECT_EQ(error, boost::asio::error::connection_refused);
}

TEST_F(AsioTcpApiServerTest, ConnectionsGoOnAfterStop) {
  ASSERT_FALSE(server_.Start());
  Run();
  std::string const call = Call("", R"({"jsonrpc":"2.0","id":1,"method":"s.o"})");
  std::string const first = Exchange(server_.config().endpoint4, call);
  ASSERT_NE(first, "");
  boost::asio::io_context io;
  tcp::socket open(io);
  open.connect(server_.config().endpoint4);
  for (bool const stopped : {false, true}) {
    if (stopped) {
      server_.Stop();
      ASSERT_TRUE(AwaitLine(";TerminalAcceptError.Acceptor info:"));
    }
    boost::asio::write(open, boost::asio::buffer(call));
    std::string answer(first.size(), '\0');
    boost::asio::read(open, boost::asio::buffer(answer));
    EXPECT_EQ(answer, first) << stopped;
  }
}

TEST_F(AsioTcpApiServerTest, ASilentConnectionIsClosedAfterTheReadTimeout) {
  ServerConfig config = Config(logger_);
  config.readTimeout = std::chrono::milliseconds(1);
  AsioTcpApiServer server(Provider(), io_, config);
  ASSERT_FALSE(server.Start());
  Run();
  boost::asio::io_context io;
  tcp::socket silent(io);
  silent.connect(server.config().endpoint4);
  timeval const patience{20, 0};
  ASSERT_EQ(setsockopt(silent.native_handle(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), 0);
  char byte = 0;
  EXPECT_EQ(recv(silent.native_handle(), &byte, 1, 0), 0);
  io_.stop();
  thread_.join();
}

TEST(StreamTuner, LetsSmallWritesGoAtOnce) {
  boost::asio::io_context io;
  Asio::TcpSocket socket(io.get_executor());
  AsioTcpApiServer::StreamTuner const tune;
  tune(socket);  // not open: the failure is ignored
  socket.open(tcp::v4());
  tcp::no_delay option;
  socket.get_option(option);
  ASSERT_FALSE(option.value());
  tune(socket);
  socket.get_option(option);
  EXPECT_TRUE(option.value());
}

TEST_F(AsioTcpApiServerTest, SurvivesALackOfDescriptors) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer needs descriptors of its own to look at an object's type";
#endif
  ASSERT_FALSE(server_.Start());
  Run();
  std::string const call = Call("", R"({"jsonrpc":"2.0","id":1,"method":"s.o"})");
  ASSERT_NE(Exchange(server_.config().endpoint4, call), "");

  boost::asio::io_context io;
  tcp::socket waiting(io, tcp::v4());
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  int const lowest = dup(0);  // the next free descriptor
  ASSERT_GE(lowest, 0);
  close(lowest);
  rlimit none = before;
  none.rlim_cur = static_cast<rlim_t>(lowest);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  waiting.connect(server_.config().endpoint4);
  EXPECT_TRUE(AwaitLine("4 Accept Error: system:24;DelayAcceptError.Acceptor info:LocalEndpoint:127.0.0.1:"));
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);

  boost::asio::write(waiting, boost::asio::buffer(call));
  waiting.shutdown(tcp::socket::shutdown_send);
  std::string answer;
  boost::system::error_code error;
  boost::asio::read(waiting, boost::asio::dynamic_buffer(answer), error);
  EXPECT_THAT(answer, testing::StartsWith("HTTP/1.1 200 OK\r\n"));
}

/// Answers from a thread of its own.
class ThreadedServerTest : public testing::Test {
 protected:
  using Function = TestSupport::FakeProvider::Function;
};

TEST_F(ThreadedServerTest, AServiceMayAnswerFromAnotherThread) {
  boost::asio::io_context io;
  std::vector<std::thread> services;
  std::mutex mutex;
  auto const provider = std::make_shared<TestSupport::FakeProvider>(
      [&](Core::MethodIdentifier const& /*method*/, Data::DataValuePtr const& /*input*/,
          std::shared_ptr<Core::AsyncActivation> const& activation, Core::AsyncApiResultCb const& callback) {
        std::string const id = activation->requestContext().at("requestId");
        std::lock_guard<std::mutex> const guard(mutex);
        services.emplace_back([callback, id] {
          callback(Core::MethodResult::GetInstance(Data::StringValue::GetInstance(id)), {}, {});
        });
      });
  ServerConfig config;
  config.endpoint4 = {boost::asio::ip::address_v4::loopback(), 0};
  config.endpoint6 = {boost::asio::ip::address_v6::loopback(), 0};
  config.readTimeout = config.writeTimeout = std::chrono::minutes(20);
  config.httpBodySizeLimitInBytes = 2500000;
  config.localizer = L10n::LocalizerHelpers::GetDefaultLocalizer();
  AsioTcpApiServer server(provider, io, config);
  ASSERT_FALSE(server.Start());
  std::thread loop([&io] { io.run(); });

  constexpr int kCalls = 200;
  boost::asio::io_context clientIo;
  tcp::socket client(clientIo);
  client.connect(server.config().endpoint4);
  std::string requests;
  for (int i = 0; i < kCalls; ++i) {
    requests += Call("", R"({"jsonrpc":"2.0","id":)" + std::to_string(i) + R"(,"method":"s.o"})");
  }
  boost::asio::write(client, boost::asio::buffer(requests));
  client.shutdown(tcp::socket::shutdown_send);
  std::string answers;
  boost::system::error_code error;
  boost::asio::read(client, boost::asio::dynamic_buffer(answers), error);
  std::size_t at = 0;
  for (int i = 0; i < kCalls; ++i) {
    at = answers.find("\"result\":\"2" + std::to_string(i) + "\"}", at);
    ASSERT_NE(at, std::string::npos) << i;
  }
  io.stop();
  loop.join();
  for (std::thread& service : services) {
    service.join();
  }
}

}  // namespace
}  // namespace Lumo::Transport::PicoHttp
