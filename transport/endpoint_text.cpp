#include "transport/endpoint_text.h"

namespace Lumo::Transport {

std::string EndpointToString(boost::asio::ip::tcp::endpoint const& endpoint) {
  std::string const address = endpoint.address().to_string();
  std::string const port = std::to_string(endpoint.port());
  return endpoint.address().is_v6() ? "[" + address + "]:" + port : address + ":" + port;
}

boost::optional<std::pair<std::string, unsigned>> GetPeerInfo(
    boost::asio::ip::tcp::endpoint const& endpoint) {
  if (endpoint.address().is_unspecified()) {
    return boost::none;
  }
  return std::pair<std::string, unsigned>(endpoint.address().to_string(), endpoint.port());
}

}  // namespace Lumo::Transport
