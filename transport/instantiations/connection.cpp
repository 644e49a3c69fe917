#include "transport/tcp_connection.h"

namespace Lumo::Transport::PicoHttp {

template class Connection<TcpConnectionStream>;

}  // namespace Lumo::Transport::PicoHttp
