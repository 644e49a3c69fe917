// The daemon's one network face.
#pragma once

#include <boost/asio/io_context.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "runtime/core/method.h"
#include "runtime/log/logger.h"
#include "transport/asio_tcp_api_server.h"

namespace Host::Settings::SettingsApi {

/// What the log says of a failed look-up of the port. `code` is getaddrinfo's, `systemError` the errno behind
/// it, which counts for EAI_SYSTEM alone.
std::string LookUpFailure(int code, int systemError);

/// Listens on the loopback addresses, runs the only I/O thread, and starts and stops the task scheduler.
/// Constructed, listening, stopped; no restart. Entry thread only. Destroying a started endpoint that was not
/// stopped ends the process.
class Endpoint {
 public:
  /// Looks up the port by the service name "keeld". Panics when there is none. `io` outlives the endpoint.
  Endpoint(std::shared_ptr<Lumo::Core::AsyncApiProvider> const& provider, boost::asio::io_context& io,
           std::shared_ptr<Lumo::Log::Logger> const& logger);
  Endpoint(Endpoint const&) = delete;
  Endpoint& operator=(Endpoint const&) = delete;

  /// 0, also when no address could be listened on: that is only logged. Throws boost::system::system_error
  /// when IPV6_V6ONLY can't be set, std::system_error when there is no thread to be had.
  int Start();

  /// Ends the I/O thread where it stands and the scheduler, which may take its 5 seconds for a running task.
  void Stop();

 private:
  std::uint32_t port_;
  Lumo::Transport::PicoHttp::AsioTcpApiServer server_;
  boost::asio::io_context& io_;
  std::thread ioThread_;
  std::shared_ptr<Lumo::Log::Logger> logger_;
};

}  // namespace Host::Settings::SettingsApi
