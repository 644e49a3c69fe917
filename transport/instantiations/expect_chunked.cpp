#include "transport/async_transaction_protocol_handler_impl.h"
#include "transport/tcp_connection.h"

template class Lumo::Transport::Http::AsyncTransactionProtocolHandler<
    Lumo::Transport::PicoHttp::HttpServerTransaction<Lumo::Transport::PicoHttp::TcpStacks::ExpectChunked>,
    Lumo::Transport::Http::RequestSpecExtractor>;
