// A connection on a fake socket, with a provider of the test's own and a recording logger.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/http/fake_provider.h"
#include "tests/support/http/fake_socket.h"
#include "tests/support/http/fake_timer.h"
#include "tests/support/http/recording_logger.h"
#include "transport/async_putback_stream.h"
#include "transport/connection.h"
#include "transport/timeout_base_stream.h"

namespace Lumo::Transport::TestSupport {

using FakeStream = Asio::AsyncPutbackStream<Asio::TimeoutBaseStream<FakeSocket, std::mutex, FakeTimer>>;

inline constexpr std::chrono::seconds kReadTimeout{1200};
inline constexpr std::chrono::seconds kWriteTimeout{1800};

/// One call as the provider got it.
struct ReceivedCall {
  std::string method;
  Data::DataValuePtr input;
  std::shared_ptr<Core::AsyncActivation> activation;
  Core::AsyncApiResultCb callback;
};

class ConnectionTest : public testing::Test {
 protected:
  ConnectionTest();
  ~ConnectionTest() override;

  /// Connects a new client; `wire_` is its side.
  void Connect();
  void Poll();
  void Advance(std::chrono::nanoseconds step);
  /// Connects, feeds `input`, runs until nothing moves, and gives what came back.
  std::string Exchange(std::string const& input);

  boost::asio::io_context io_;
  std::shared_ptr<RecordingLogger> logger_ = std::make_shared<RecordingLogger>();
  std::shared_ptr<Http::ProtocolHandlerSpec> spec_ = std::make_shared<Http::ProtocolHandlerSpec>();
  std::shared_ptr<FakeWire> wire_;
  /// Of all connections of the test.
  std::vector<std::shared_ptr<FakeWire>> wires_;
  std::vector<ReceivedCall> calls_;
  /// What the provider does with a call; answers the text "ok" at first.
  std::function<void(ReceivedCall const&)> service_;
};

/// A request with a content length and the given further headers.
std::string Call(std::string const& headers = "",
                 std::string const& body = R"({"jsonrpc":"2.0","id":1,"method":"s.o"})");

/// An answer of the text "ok" in one chunk, as `Call` gets it.
std::string Answer(std::string const& connection = "Keep-Alive",
                   std::string const& body = R"({"jsonrpc":"2.0","id":1,"result":"ok"})",
                   std::string const& moreHeaders = "", std::string const& type = "application/json");

/// `body` as one chunk.
std::string Chunk(std::string const& body);

std::shared_ptr<Core::MethodResult const> TextResult(std::string const& text, bool final = false);
std::shared_ptr<Core::MethodResult const> ErrorResult(std::string const& name, bool final = true);

}  // namespace Lumo::Transport::TestSupport

namespace Lumo::Transport::PicoHttp {
extern template class Connection<TestSupport::FakeStream>;
}
