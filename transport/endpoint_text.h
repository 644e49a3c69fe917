// Texts of socket addresses.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/optional.hpp>
#include <string>
#include <utility>

namespace Lumo::Transport {

/// "127.0.0.1:7433", "[::1]:7433".
std::string EndpointToString(boost::asio::ip::tcp::endpoint const& endpoint);

/// Text address and port of a peer; nothing for an unspecified address.
boost::optional<std::pair<std::string, unsigned>> GetPeerInfo(boost::asio::ip::tcp::endpoint const& endpoint);

}  // namespace Lumo::Transport
