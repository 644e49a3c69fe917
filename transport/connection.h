// One connection: reads heads, chooses the stream stack of each body, and starts transactions.
#pragma once

#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/system/error_code.hpp>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "runtime/core/recycled.h"
#include "runtime/log/logger.h"
#include "transport/async_expect_continue_stream.h"
#include "transport/async_http_body_stream.h"
#include "transport/async_http_chunked_body_stream.h"
#include "transport/async_putback_stream.h"
#include "transport/async_transaction_protocol_handler.h"
#include "transport/buffer_span.h"
#include "transport/protocol_handler_spec.h"
#include "transport/request.h"

namespace Lumo::Transport::PicoHttp {

/// The six stream stacks over a connection's stream.
template <typename Base>
struct StreamStacks {
  using Plain = Asio::StreamHandle<Base>;
  using Body = PicoHttpDetail::AsyncHttpBodyStream<Plain>;
  using Chunked = PicoHttpDetail::AsyncHttpChunkedBodyStream<Plain>;
  using Expect = PicoHttpDetail::AsyncExpectContinueStream<Plain>;
  using ExpectBody = PicoHttpDetail::AsyncHttpBodyStream<Expect>;
  using ExpectChunked = PicoHttpDetail::AsyncHttpChunkedBodyStream<Expect>;
};

template <typename Stream>
using ProtocolHandlerOver =
    Http::AsyncTransactionProtocolHandler<HttpServerTransaction<Stream>, Http::RequestSpecExtractor>;

/// Serves requests strictly one after the other. Lives in the closures of its pending operation; nothing else
/// holds it. I/O thread.
template <typename Base>
class Connection : public std::enable_shared_from_this<Connection<Base>> {
 public:
  Connection(std::shared_ptr<Http::ProtocolHandlerSpec const> spec, std::shared_ptr<Base> stream)
      : spec_(std::move(spec)), stream_(std::move(stream)) {}

  /// Starts reading the next head.
  void ReadHead();

 private:
  /// The reading of one head. The request is made when its first bytes are there.
  struct HeadOperation {
    std::shared_ptr<Connection> connection;
    std::shared_ptr<ServerDetail::Request> request;

    void operator()(boost::system::error_code const& error, std::size_t count);
  };

  /// A head is refused. End of file: the peer just went away.
  void Refuse(boost::system::error_code const& error, std::shared_ptr<ServerDetail::Request> const& request);
  /// Sends the last bytes of this connection and closes it.
  void SendAndClose(std::string const& answer);
  void Select(std::shared_ptr<ServerDetail::Request> const& request);
  template <typename Stream>
  void ChooseBody(Stream stream, std::shared_ptr<ServerDetail::Request> const& request);
  template <typename Stream>
  void StartTransaction(Stream stream, std::shared_ptr<ServerDetail::Request> const& request);
  void EndTransaction(Http::ErrorPtr const& error, void const* transaction, bool keepAlive);
  std::shared_ptr<Http::ContextHook const> const& PeerHook();

  std::shared_ptr<Http::ProtocolHandlerSpec const> spec_;
  std::shared_ptr<Base> stream_;
  /// Where the first bytes of a head arrive: an idle connection holds this little instead of a request.
  std::array<char, 1024> firstBytes_;
  /// Null until the peer's address was read.
  std::shared_ptr<Http::ContextHook const> peerHook_;
};

template <typename Base>
void Connection<Base>::ReadHead() {
  stream_->async_read_some(boost::asio::buffer(firstBytes_),
                           HeadOperation{this->shared_from_this(), nullptr});
}

template <typename Base>
void Connection<Base>::HeadOperation::operator()(boost::system::error_code const& error, std::size_t count) {
  Connection& self = *connection;
  if (error && count == 0) {
    self.Refuse(error, request);
    return;
  }
  if (!request) {
    request = ServerDetail::MakeRequest();
    boost::asio::buffer_copy(request->FreeHead(), boost::asio::buffer(self.firstBytes_, count));
  }
  auto const decision = ServerDetail::TakeHeadBytes(*request, count);
  if (!decision) {
    boost::asio::mutable_buffer const room = request->FreeHead();
    self.stream_->async_read_some(room, std::move(*this));
  } else if (*decision) {
    self.Refuse(*decision, request);
  } else {
    self.Select(request);
  }
}

template <typename Base>
void Connection<Base>::Refuse(boost::system::error_code const& error,
                              std::shared_ptr<ServerDetail::Request> const& request) {
  if (error == boost::asio::error::eof) {
    stream_->close();
    return;
  }
  Log::Write(spec_->logger, 2, "Invalid Http request");
  if (request) {
    request->invalid = true;
  }
  SendAndClose(BadRequestAnswer(error));
}

template <typename Base>
void Connection<Base>::SendAndClose(std::string const& answer) {
  struct Last {
    std::string bytes;
    Http::Pieces pieces;
  };
  auto last = std::make_shared<Last>();
  last->bytes = answer;
  Http::AppendPiece(last->pieces, last->bytes);
  Http::Pieces& pieces = last->pieces;
  Asio::AsyncWriteAll(
      *stream_, pieces, 0, pieces.size(),
      [self = this->shared_from_this(), last = std::move(last)](
          boost::system::error_code const& /*error*/, std::size_t /*count*/) { self->stream_->close(); });
}

template <typename Base>
void Connection<Base>::Select(std::shared_ptr<ServerDetail::Request> const& request) {
  using Stacks = StreamStacks<Base>;
  if (!request->expectPresent) {
    ChooseBody(typename Stacks::Plain(stream_), request);
  } else if (request->expectContinue) {
    ChooseBody(typename Stacks::Expect(typename Stacks::Plain(stream_)), request);
  } else {
    Log::Write(spec_->logger, 2, "Invalid Http request: Expect header value is not 100-continue");
    SendAndClose(std::string(kExpectationFailedAnswer));
  }
}

template <typename Base>
template <typename Stream>
void Connection<Base>::ChooseBody(Stream stream, std::shared_ptr<ServerDetail::Request> const& request) {
  if (stream.putback(request->BehindHead())) {
    stream_->close();
    return;
  }
  if (request->chunked) {
    StartTransaction(PicoHttpDetail::AsyncHttpChunkedBodyStream<Stream>(std::move(stream)), request);
  } else if (request->hasContentLength) {
    StartTransaction(PicoHttpDetail::AsyncHttpBodyStream<Stream>(std::move(stream), request->contentLength),
                     request);
  } else {
    StartTransaction(std::move(stream), request);
  }
}

template <typename Base>
template <typename Stream>
void Connection<Base>::StartTransaction(Stream stream,
                                        std::shared_ptr<ServerDetail::Request> const& request) {
  using Handler = ProtocolHandlerOver<Stream>;
  std::shared_ptr<Http::HeaderRange> const headers = HttpRequest(request).headersPtr();
  auto const handler = Core::MakeRecycled<Handler>(spec_, headers, PeerHook(), std::move(stream), request);
  for (headers->reset(); !headers->atEnd(); headers->advance()) {
    if (headers->current().name() == ":method") {
      handler->transaction().method(headers->current().value());
      break;
    }
  }
  void const* const transaction = &handler->transaction();
  handler->Handle(
      [spec = spec_.get(), transaction] {  // the handler holds the spec
        Log::Write(spec->logger, 1, "Request received[", transaction, "]");
      },
      [self = this->shared_from_this(), transaction, keepAlive = request->keepAlive](
          Http::ErrorPtr const& error) { self->EndTransaction(error, transaction, keepAlive); });
}

template <typename Base>
void Connection<Base>::EndTransaction(Http::ErrorPtr const& error, void const* transaction, bool keepAlive) {
  if (error) {
    Log::Write(spec_->logger, 0, "Handle request error: [", transaction, "]", error->ToString());
    stream_->close();
    return;
  }
  Log::Write(spec_->logger, 0, "Request handled[", transaction, "]");
  // A connection that is not kept closes when the last closure lets go of the stream.
  if (keepAlive) {
    ReadHead();
  }
}

template <typename Base>
std::shared_ptr<Http::ContextHook const> const& Connection<Base>::PeerHook() {
  if (!peerHook_) {
    boost::system::error_code error;
    auto const endpoint = stream_->lowest().socket().remote_endpoint(error);
    if (!error) {
      if (boost::optional<Http::PeerInfo> const peer = spec_->peerInfo(endpoint)) {
        peerHook_ = std::make_shared<Http::ContextHook const>(
            [peer = *peer](std::shared_ptr<Core::ExecutionContext> const& context) {
              Core::ActivationHelpers::SetPeerTcpBindingInfo(context, peer);
            });
      }
    }
  }
  return peerHook_;
}

/// The request handler of a stream server: serves each connection that it is given.
template <typename Base>
class PicoHttpApiRequestHandler {
 public:
  explicit PicoHttpApiRequestHandler(std::shared_ptr<Http::ProtocolHandlerSpec const> spec)
      : spec_(std::move(spec)) {}

  void operator()(std::shared_ptr<Base> stream) const {
    std::make_shared<Connection<Base>>(spec_, std::move(stream))->ReadHead();
  }

 private:
  std::shared_ptr<Http::ProtocolHandlerSpec const> spec_;
};

}  // namespace Lumo::Transport::PicoHttp
