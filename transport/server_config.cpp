#include "transport/server_config.h"

#include "transport/endpoint_text.h"

namespace Lumo::Transport::PicoHttp {

std::string DurationToString(std::chrono::nanoseconds duration) {
  constexpr long long kMicrosecond = 1000;
  constexpr long long kMillisecond = 1000 * kMicrosecond;
  constexpr long long kSecond = 1000 * kMillisecond;
  constexpr long long kMinuteInSeconds = 60;
  long long const count = duration.count();
  if (count < kMicrosecond) {
    return std::to_string(count) + " nanoseconds";
  }
  if (count < kMillisecond) {
    return std::to_string(count / kMicrosecond) + " microseconds";
  }
  if (count < kSecond) {
    return std::to_string(count / kMillisecond) + " milliseconds";
  }
  long long const seconds = count / kSecond;
  if (seconds < kMinuteInSeconds) {
    return std::to_string(seconds) + " seconds";
  }
  std::string const minutes = std::to_string(seconds / kMinuteInSeconds) + " minutes";
  long long const rest = seconds % kMinuteInSeconds;
  return rest == 0 ? minutes : minutes + " and " + std::to_string(rest) + " seconds";
}

std::string ServerConfig::ToString() const {
  std::string line = "ServerConfig{";
  if (wildcard) {
    line += "port:" + std::to_string(endpoint4.port());
  } else {
    line += "endpoint4:" + EndpointToString(endpoint4) + ";endpoint6:" + EndpointToString(endpoint6);
  }
  if (!localizer) {
    line += ";Localizer not set";
  }
  line += ";readTimeout:" + DurationToString(readTimeout) +
          ";writeTimeout:" + DurationToString(writeTimeout) +
          ";httpBodySizeLimitInBytes:" + std::to_string(httpBodySizeLimitInBytes) +
          ";ProtocolHandlerSpec::extractors " +
          (extractorCount == 0 ? std::string("not set") : "count:" + std::to_string(extractorCount));
  return line + "}";
}

}  // namespace Lumo::Transport::PicoHttp
