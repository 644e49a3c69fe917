// Carries one request into the provider and its results back.
#pragma once

#include <atomic>
#include <boost/asio/dispatch.hpp>
#include <boost/system/error_code.hpp>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "runtime/core/activation.h"
#include "runtime/core/method.h"
#include "runtime/json/serializers.h"
#include "runtime/log/logger.h"
#include "transport/answers.h"
#include "transport/body_reader.h"
#include "transport/http_server_transaction.h"
#include "transport/out_chunked_body_strm.h"
#include "transport/protocol_handler_spec.h"
#include "transport/request_spec_extractor.h"

namespace Lumo::Provider {

/// Handles one request of a protocol.
class AsyncProtocolHandler {
 public:
  using RequestReceived = std::function<void()>;
  /// Gets null for a transaction that ended well.
  using Done = std::function<void(std::shared_ptr<Data::ErrorValue const>)>;

  virtual void Hook() {}
  /// Starts the transaction. `requestReceived` is called once the request's bytes are there, `done` once at
  /// the end; not at all when a service lets go of the call without an answer.
  virtual void Handle(RequestReceived requestReceived, Done done) = 0;
  virtual ~AsyncProtocolHandler() = default;
};

}  // namespace Lumo::Provider

namespace Lumo::Transport::Http {

/// One a request, held by the closures of its pending operation. I/O thread, but for results that a service
/// delivers from elsewhere; no two steps overlap.
template <typename TransactionType, typename Extractor>
class AsyncTransactionProtocolHandler final
    : public Provider::AsyncProtocolHandler,
      public std::enable_shared_from_this<AsyncTransactionProtocolHandler<TransactionType, Extractor>> {
 public:
  using Transaction = TransactionType;
  using Stream = typename Transaction::Stream;

  AsyncTransactionProtocolHandler(std::shared_ptr<ProtocolHandlerSpec const> spec,
                                  std::shared_ptr<HeaderRange> headers,
                                  std::shared_ptr<ContextHook const> contextHook, Stream stream,
                                  std::shared_ptr<PicoHttp::ServerDetail::Request> request);

  Transaction& transaction() { return transaction_; }

  void Handle(RequestReceived requestReceived, Done done) override;

 private:
  using Self = AsyncTransactionProtocolHandler;
  using OutStrm = HttpDetail::OutChunkedBodyStrm<Stream>;
  using ResultPtr = std::shared_ptr<Core::MethodResult const>;
  using Continuation = Core::AsyncApiResultCb::Continuation;

  /// One call. Told of the request by the deserialiser, and of one result by the provider: `Out` is
  /// EmptyOutStrm for the first one, and leads to the open OutChunkedBodyStrm for each one behind.
  template <typename Out>
  class ResponseWrapper;

  /// The bytes of an answer with a content length; held until they are written.
  struct FixedAnswer {
    std::shared_ptr<ResponseHeaders> headers;
    ErrorPtr error;
    std::string body;
    Pieces pieces;
  };

  /// One result on its way out.
  struct ResultWrite {
    std::shared_ptr<AsyncTransactionProtocolHandler> handler;
    std::shared_ptr<OutStrm> out;
    std::string requestId;  // empty when this is the last result
    Continuation next;
    bool last;
  };

  void Start();
  void RequestReadCb(boost::system::error_code const& error);
  void Deserialize();
  std::error_code Visit(std::shared_ptr<ResponseWrapper<EmptyOutStrm>> const& wrapper,
                        std::string const& requestId,
                        std::shared_ptr<Core::MethodIdentifier const> const& method,
                        Data::DataValuePtr const& input,
                        std::shared_ptr<Core::ExecutionContext> const& context);

  void SendDeserializerError(ErrorPtr const& error);
  void SendInvalidRequest();
  /// One gather write of head and body; `sent` gets the error.
  template <typename Sent>
  void SendFixed(std::shared_ptr<FixedAnswer> answer, Sent sent);

  /// Serialises and sends one result; `out` is null for the first.
  void Deliver(std::string const& requestId, std::shared_ptr<OutStrm> out, ResultPtr const& result,
               Continuation next);
  /// The three steps of a write, one after the other.
  static void WriteHead(ResultWrite write);
  static void WriteBody(ResultWrite write);
  static void WriteLastChunk(ResultWrite write);
  /// All steps in one write; what happened is told as if they had been separate ones.
  static void WriteAtOnce(ResultWrite write);
  /// After each step; false when the transaction has ended.
  bool HeadSent(boost::system::error_code const& error);
  bool ResponseSentCb(boost::system::error_code const& error, ResultWrite& write);

  /// Ends the transaction.
  void Finish(ErrorPtr const& error);

  /// One line: text, the transaction's pointer in square brackets, and what follows.
  template <typename... Parts>
  void LogLine(int level, char const* text, Parts const&... parts) const {
    Log::Write(spec_->logger, level, text, "[", static_cast<void const*>(&transaction_), "]", parts...);
  }

  std::shared_ptr<ProtocolHandlerSpec const> spec_;
  std::shared_ptr<HeaderRange> headers_;
  std::shared_ptr<ContextHook const> contextHook_;
  Transaction transaction_;
  std::shared_ptr<Extractor const> extractor_;
  std::optional<BodyBuffer> body_;
  RequestReceived requestReceived_;
  Done done_;
};

template <typename TransactionType, typename Extractor>
template <typename Out>
class AsyncTransactionProtocolHandler<TransactionType, Extractor>::ResponseWrapper final
    : public Core::ApiRequestVisitor,
      public std::enable_shared_from_this<ResponseWrapper<Out>> {
 public:
  using Handler = AsyncTransactionProtocolHandler;

  ResponseWrapper(std::shared_ptr<Handler> handler, std::string requestId, Out out)
      : handler_(std::move(handler)), requestId_(std::move(requestId)), out_(std::move(out)) {}

  std::error_code Visit(std::string const& requestId,
                        std::shared_ptr<Core::MethodIdentifier const> const& method,
                        Data::DataValuePtr const& input,
                        std::shared_ptr<Core::ExecutionContext> const& context) override {
    if constexpr (std::is_same_v<Out, EmptyOutStrm>) {
      requestId_ = requestId;
      return handler_->Visit(this->shared_from_this(), requestId, method, input, context);
    } else {
      // Only the wrapper in front of a response is given to a deserialiser.
      return std::make_error_code(std::errc::operation_not_permitted);
    }
  }

  /// Takes one result; a null one and any behind the first are ignored. Any thread.
  void operator()(ResultPtr const& result, Continuation&& next) {
    if (!result || answered_.exchange(true)) {
      return;
    }
    std::shared_ptr<OutStrm> out;
    if constexpr (!std::is_same_v<Out, EmptyOutStrm>) {
      out = out_;
    }
    handler_->Deliver(requestId_, std::move(out), result, std::move(next));
  }

  /// The callback that leads here.
  static Core::AsyncApiResultCb Callback(std::shared_ptr<ResponseWrapper> wrapper) {
    return Core::AsyncApiResultCb(
        [wrapper = std::move(wrapper)](ResultPtr const& result, Lumo::Progress const& /*progress*/,
                                       Continuation&& next) { (*wrapper)(result, std::move(next)); });
  }

 private:
  std::shared_ptr<Handler> handler_;
  std::string requestId_;
  Out out_;
  std::atomic<bool> answered_ = false;
};

}  // namespace Lumo::Transport::Http
