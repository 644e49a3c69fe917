// The HTTP server over TCP: one listener a family.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/system/error_code.hpp>
#include <memory>

#include "runtime/core/method.h"
#include "transport/server_config.h"
#include "transport/timeout_base_stream.h"

namespace Lumo::Asio {
class PolymorphicStreamServer;
}

namespace Lumo::Transport::PicoHttp {

/// Constructed closed. Outlived by `io`, whose one thread does all the work; Start before that thread runs,
/// or on it.
class AsioTcpApiServer {
 public:
  /// Given each new socket: no delay of small writes. A failure is ignored.
  struct StreamTuner {
    void operator()(Asio::TcpSocket& socket) const;
  };

  AsioTcpApiServer(std::shared_ptr<Core::AsyncApiProvider> provider, boost::asio::io_context& io,
                   ServerConfig config);
  AsioTcpApiServer(AsioTcpApiServer const&) = delete;
  AsioTcpApiServer& operator=(AsioTcpApiServer const&) = delete;
  ~AsioTcpApiServer();

  /// Listens on both families. Success when at least one does; what fails is logged. Throws
  /// boost::system::system_error when IPv6 can't be kept apart from IPv4.
  boost::system::error_code Start();

  /// Stops accepting; connections go on. Any thread.
  void Stop();

  /// After Start with the real endpoints.
  ServerConfig const& config() const { return config_; }

 private:
  struct Listener;

  boost::system::error_code Listen(Listener& listener, boost::asio::ip::tcp::endpoint& endpoint,
                                   char const* family);

  ServerConfig config_;
  std::unique_ptr<Listener> listener4_;
  std::unique_ptr<Listener> listener6_;
};

}  // namespace Lumo::Transport::PicoHttp
