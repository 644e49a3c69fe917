// What a response is made of before its body: which headers, in which bytes.
#pragma once

#include <boost/asio/buffer.hpp>
#include <boost/utility/string_view.hpp>
#include <cstdint>
#include <memory>

#include "runtime/data/value.h"
#include "transport/buffer_span.h"
#include "transport/header.h"
#include "transport/text.h"

namespace Lumo::Transport::Http {

/// Views of the bytes to send.
using Pieces = Asio::PieceList;

void AppendPiece(Pieces& pieces, boost::string_view text);

/// What a response head depends on besides the result. Part of ProtocolHandlerSpec.
struct ParamsToHead {
  /// A flag of MediaType.
  std::uint32_t responseFormat;
  bool keepAlive;
};

/// The headers of every answer to a call: status 200, media type, connection, and "lumo-error" with the
/// error's identifier when there is one. The views live as long as `error`.
std::shared_ptr<ResponseHeaders> ErrToHeaders(std::shared_ptr<Data::ErrorValue const> const& error,
                                              ParamsToHead const& params);

/// The headers of the answer to a request that can't be understood.
std::shared_ptr<ResponseHeaders> InvalidRequestHeaders();

/// Appends a head, as views into `headers` and `scratch`, without copying. `contentLength` counts only when
/// not `chunked`. `method` is the request's.
void AppendHead(HeaderRange& headers, boost::string_view method, std::uint64_t contentLength, bool chunked,
                char (&scratch)[kLengthScratch], Pieces& pieces);

}  // namespace Lumo::Transport::Http
