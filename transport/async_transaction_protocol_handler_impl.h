// Bodies of AsyncTransactionProtocolHandler; for the sources that instantiate it.
#pragma once

#include "runtime/core/recycled.h"
#include "runtime/errors/categories.h"
#include "runtime/errors/string_of_error.h"
#include "runtime/l10n/localizer.h"
#include "transport/async_transaction_protocol_handler.h"
#include "transport/buffer_span.h"

namespace Lumo::Transport::Http {

template <typename T, typename E>
AsyncTransactionProtocolHandler<T, E>::AsyncTransactionProtocolHandler(
    std::shared_ptr<ProtocolHandlerSpec const> spec, std::shared_ptr<HeaderRange> headers,
    std::shared_ptr<ContextHook const> contextHook, Stream stream,
    std::shared_ptr<PicoHttp::ServerDetail::Request> request)
    : spec_(std::move(spec)),
      headers_(std::move(headers)),
      contextHook_(std::move(contextHook)),
      transaction_(std::move(stream), std::move(request)) {}

template <typename T, typename E>
void AsyncTransactionProtocolHandler<T, E>::Handle(RequestReceived requestReceived, Done done) {
  requestReceived_ = std::move(requestReceived);
  done_ = std::move(done);
  boost::asio::dispatch(transaction_.stream().get_executor(),
                        [self = this->shared_from_this()] { self->Start(); });
}

template <typename T, typename E>
void AsyncTransactionProtocolHandler<T, E>::Start() {
  LogLine(0, "Request head: ");
  extractor_ = E::Extract(*headers_);
  if (!extractor_->deserializer || !extractor_->serializer) {
    Log::Write(spec_->logger, 1, "Request is considered as bad");
    SendInvalidRequest();
    return;
  }
  if (extractor_->isFramed) {
    Log::Write(spec_->logger, 1, "Request is framed. Not supported");
    SendInvalidRequest();
    return;
  }
  body_.emplace(spec_->httpBodySizeLimitInBytes + 1, extractor_->contentLength);
  AsyncReadBody(transaction_.stream(), *body_,
                [self = this->shared_from_this()](boost::system::error_code const& error) {
                  self->RequestReadCb(error);
                });
}

template <typename T, typename E>
void AsyncTransactionProtocolHandler<T, E>::RequestReadCb(boost::system::error_code const& error) {
  if (error) {
    LogLine(1, "RequestReadCb: ", " Error: ", StringOfError(error));
    body_.reset();
    SendInvalidRequest();
    return;
  }
  LogLine(0, "RequestReadCb");
  requestReceived_();
  if (body_->size() == 0) {
    Finish(nullptr);
    return;
  }
  Deserialize();
}

template <typename T, typename E>
void AsyncTransactionProtocolHandler<T, E>::Deserialize() {
  auto const wrapper = Core::MakeRecycled<ResponseWrapper<EmptyOutStrm>>(this->shared_from_this(),
                                                                         std::string(), EmptyOutStrm());
  ErrorPtr error;
  bool const understood = extractor_->deserializer->Deserialize(body_->Bytes(), *wrapper, error);
  body_.reset();
  if (!understood) {
    SendDeserializerError(error);
  }
}

template <typename T, typename E>
std::error_code AsyncTransactionProtocolHandler<T, E>::Visit(
    std::shared_ptr<ResponseWrapper<EmptyOutStrm>> const& wrapper, std::string const& requestId,
    std::shared_ptr<Core::MethodIdentifier const> const& method, Data::DataValuePtr const& input,
    std::shared_ptr<Core::ExecutionContext> const& context) {
  using Provider::JsonRpc1_1::UpdateExecutionCtxHelper;
  if (contextHook_) {
    (*contextHook_)(context);
  }
  if (!UpdateExecutionCtxHelper::Update(*headers_, *method, *context, spec_->contextUpdate)) {
    return Provider::ProtocolErrc::OperationMismatch;
  }
  auto const activation = Core::AsyncActivation::GetInstance(context);
  RequestIdHelper::Set(activation->requestContext(), requestId);
  // A bad locale header leaves the fixed locale in its place.
  std::error_code ignored;
  activation->localeSpec(L10n::LocaleSpecHelpers::ExtractLocaleSpec(context, ignored));
  activation->localizer(spec_->localizer);
  spec_->provider->Invoke(method, input, activation, ResponseWrapper<EmptyOutStrm>::Callback(wrapper));
  return {};
}

template <typename T, typename E>
template <typename Sent>
void AsyncTransactionProtocolHandler<T, E>::SendFixed(std::shared_ptr<FixedAnswer> answer, Sent sent) {
  transaction_.AppendHead(*answer->headers, answer->pieces, answer->body.size(), false);
  AppendPiece(answer->pieces, answer->body);
  Pieces& pieces = answer->pieces;
  Asio::AsyncWriteAll(
      transaction_.stream(), pieces, 0, pieces.size(),
      [self = this->shared_from_this(), answer = std::move(answer), sent = std::move(sent)](
          boost::system::error_code const& error, std::size_t /*count*/) { sent(*self, error); });
}

template <typename T, typename E>
void AsyncTransactionProtocolHandler<T, E>::SendDeserializerError(ErrorPtr const& error) {
  auto answer = std::make_shared<FixedAnswer>();
  ErrorPtr failed;
  extractor_->serializer->SerializeError(error, answer->body, failed);
  if (failed) {
    Finish(failed);
    return;
  }
  answer->error = error;
  answer->headers = spec_->errToHeaders(error, {extractor_->responseFormat, extractor_->keepAlive});
  SendFixed(std::move(answer), [](Self& self, boost::system::error_code const& failure) {
    if (failure) {
      self.LogLine(1, "Failed to sent Deserializer error ", " Error: ", StringOfError(failure));
    } else {
      self.LogLine(1, "Response head sent (Deserializer error): ");
    }
    self.Finish(ToErrorValue(failure, Direction::Send));
  });
}

template <typename T, typename E>
void AsyncTransactionProtocolHandler<T, E>::SendInvalidRequest() {
  auto answer = std::make_shared<FixedAnswer>();
  answer->headers = InvalidRequestHeaders();
  answer->body = InvalidRequestBody(*extractor_, spec_->httpBodySizeLimitInBytes);
  SendFixed(std::move(answer), [](Self& self, boost::system::error_code const& failure) {
    if (failure) {
      self.LogLine(1, "Failed to send InvalidRequest response:", StringOfError(failure));
    } else {
      self.LogLine(1, "Sent InvalidRequest response:");
    }
    self.Finish(Data::ErrorValue::GetInstance("InvalidRequest"));
  });
}

template <typename T, typename E>
void AsyncTransactionProtocolHandler<T, E>::Deliver(std::string const& requestId,
                                                    std::shared_ptr<OutStrm> out, ResultPtr const& result,
                                                    Continuation next) {
  ResultPlan const plan = PlanResult(static_cast<bool>(next), extractor_->isStream, *result);
  ResultPtr const answer = plan.internalError ? InternalErrorResult() : result;
  bool const first = !out;
  if (first) {
    out = Core::MakeRecycled<OutStrm>(transaction_.stream());
  }
  out->Reset(answer);
  ErrorPtr failed;
  extractor_->serializer->SerializeInvoke(requestId, answer, out->body(), failed, plan.isStream);
  if (failed) {
    Finish(failed);
    return;
  }
  if (first) {
    std::shared_ptr<ResponseHeaders> headers =
        spec_->errToHeaders(answer->error(), {extractor_->responseFormat, extractor_->keepAlive});
    transaction_.AppendHead(*headers, out->pieces(), 0, true);
    out->EndHead(std::move(headers));
  }
  out->Fill(extractor_->isStream, plan.last);
  bool const fitsOneWrite = out->BytesUpTo(out->end()) <= Asio::kMaxWrite;
  ResultWrite write{this->shared_from_this(), std::move(out), plan.last ? std::string() : requestId,
                    std::move(next), plan.last};
  if (fitsOneWrite) {
    WriteAtOnce(std::move(write));
  } else if (first) {
    WriteHead(std::move(write));
  } else {
    WriteBody(std::move(write));
  }
}

template <typename T, typename E>
void AsyncTransactionProtocolHandler<T, E>::WriteAtOnce(ResultWrite write) {
  OutStrm& out = *write.out;
  // Counted now: a write moves the pieces along.
  std::size_t const headBytes = out.BytesUpTo(out.headEnd());
  std::size_t const bodyBytes = out.BytesUpTo(out.bodyEnd());
  out.Compact();
  out.AsyncWrite(0, out.end(),
                 [write = std::move(write), headBytes, bodyBytes](boost::system::error_code const& error,
                                                                  std::size_t count) mutable {
                   boost::system::error_code const none;
                   Self& handler = *write.handler;
                   if (headBytes != 0 && !handler.HeadSent(count < headBytes ? error : none)) {
                     return;
                   }
                   if (handler.ResponseSentCb(count < bodyBytes ? error : none, write) && write.last) {
                     handler.Finish(ToErrorValue(error, Direction::Send));
                   }
                 });
}

template <typename T, typename E>
void AsyncTransactionProtocolHandler<T, E>::WriteHead(ResultWrite write) {
  OutStrm& out = *write.out;
  out.AsyncWrite(
      0, out.headEnd(),
      [write = std::move(write)](boost::system::error_code const& error, std::size_t /*count*/) mutable {
        if (write.handler->HeadSent(error)) {
          WriteBody(std::move(write));
        }
      });
}

template <typename T, typename E>
void AsyncTransactionProtocolHandler<T, E>::WriteBody(ResultWrite write) {
  OutStrm& out = *write.out;
  out.AsyncWrite(
      out.headEnd(), out.bodyEnd(),
      [write = std::move(write)](boost::system::error_code const& error, std::size_t /*count*/) mutable {
        if (write.handler->ResponseSentCb(error, write) && write.last) {
          WriteLastChunk(std::move(write));
        }
      });
}

template <typename T, typename E>
void AsyncTransactionProtocolHandler<T, E>::WriteLastChunk(ResultWrite write) {
  OutStrm& out = *write.out;
  out.AsyncWrite(out.bodyEnd(), out.end(),
                 [write = std::move(write)](boost::system::error_code const& error, std::size_t /*count*/) {
                   write.handler->Finish(ToErrorValue(error, Direction::Send));
                 });
}

template <typename T, typename E>
bool AsyncTransactionProtocolHandler<T, E>::HeadSent(boost::system::error_code const& error) {
  if (error) {
    LogLine(1, "Failed to sent response head", StringOfError(error));
    Finish(ToErrorValue(error, Direction::Send));
    return false;
  }
  LogLine(0, "Response head sent: ");
  return true;
}

template <typename T, typename E>
bool AsyncTransactionProtocolHandler<T, E>::ResponseSentCb(boost::system::error_code const& error,
                                                           ResultWrite& write) {
  if (error) {
    if (write.next) {
      write.next(nullptr);
    }
    LogLine(1, "Failed to sent response body ");
    Finish(ToErrorValue(error, Direction::Send));
    return false;
  }
  LogLine(0, "ResponseSentCb");
  if (write.last) {
    if (write.next) {
      write.next(nullptr);
    }
    return true;
  }
  using Next = ResponseWrapper<std::shared_ptr<OutStrm>>;
  auto wrapper =
      std::make_shared<Next>(this->shared_from_this(), std::move(write.requestId), std::move(write.out));
  write.next(std::make_shared<Core::AsyncApiResultCb>(Next::Callback(std::move(wrapper))));
  return true;
}

template <typename T, typename E>
void AsyncTransactionProtocolHandler<T, E>::Finish(ErrorPtr const& error) {
  ErrorPtr outcome = error;
  if (!outcome) {
    outcome = ToErrorValue(transaction_.stream().ReturnUnread(), Direction::Receive);
  }
  // The closure may start the connection's next request: nothing of this one is kept in it.
  Done const done = std::move(done_);
  done(outcome);
}

}  // namespace Lumo::Transport::Http
