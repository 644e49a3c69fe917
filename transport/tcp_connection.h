// The transport over TCP: what the daemon runs, compiled once in instantiations/.
#pragma once

#include "transport/async_putback_stream.h"
#include "transport/connection.h"
#include "transport/timeout_base_stream.h"

namespace Lumo::Transport::PicoHttp {

using TcpConnectionStream = Asio::AsyncPutbackStream<Asio::TcpTimeoutStream>;
using TcpStacks = StreamStacks<TcpConnectionStream>;

extern template class Connection<TcpConnectionStream>;

}  // namespace Lumo::Transport::PicoHttp
