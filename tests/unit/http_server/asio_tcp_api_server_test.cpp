#include "transport/asio_tcp_api_server.h"

#include <gtest/gtest.h>

#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <string>
#include <thread>

#include "tests/support/http/fake_provider.h"

namespace Lumo::Transport::PicoHttp {
namespace {

using boost::asio::ip::tcp;

/// A server on free ports of the loopback addresses, and its thread.
class AsioTcpApiServerTest : public testing::Test {
 protected:
  AsioTcpApiServerTest() : server_(Provider(), io_, Config()) {}
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

  static ServerConfig Config() {
    ServerConfig config;
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

  boost::asio::io_context io_;
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

}  // namespace
}  // namespace Lumo::Transport::PicoHttp
