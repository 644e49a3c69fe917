// What a server is told.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "runtime/l10n/localizer.h"
#include "runtime/log/logger.h"

namespace Lumo::Transport::PicoHttp {

struct ServerConfig {
  /// True: listen on the wildcard addresses at the port of `endpoint4`, instead of on the two endpoints.
  bool wildcard = false;
  /// Port 0 takes a free one; the real one is found here once the server listens.
  boost::asio::ip::tcp::endpoint endpoint4;
  boost::asio::ip::tcp::endpoint endpoint6;
  std::shared_ptr<Log::Logger> logger;
  std::chrono::nanoseconds readTimeout{0};
  std::chrono::nanoseconds writeTimeout{0};
  std::uint64_t httpBodySizeLimitInBytes = 0;
  /// For transport-level messages.
  std::shared_ptr<L10n::Localizer> localizer;
  /// Number of request-side extractors beside the built-in one. There are none yet, so the number is only
  /// printed.
  std::size_t extractorCount = 0;

  /// One line for the log.
  std::string ToString() const;
};

/// In the largest unit that leaves no zero, cut down: "999 nanoseconds", "20 minutes", "1 minutes and 30
/// seconds".
std::string DurationToString(std::chrono::nanoseconds duration);

}  // namespace Lumo::Transport::PicoHttp
