// One request on its stream stack.
#pragma once

#include <boost/utility/string_view.hpp>
#include <cstdint>
#include <memory>
#include <utility>

#include "transport/request.h"
#include "transport/response_head.h"

namespace Lumo::Transport::PicoHttp {

/// `Stream` is one of the six stacks. Its address names the transaction in log lines. I/O thread, but for
/// writes that a service starts.
template <typename StreamType>
class HttpServerTransaction {
 public:
  using Stream = StreamType;

  HttpServerTransaction(Stream stream, std::shared_ptr<ServerDetail::Request> request)
      : stream_(std::move(stream)), request_(std::move(request)) {}
  HttpServerTransaction(HttpServerTransaction const&) = delete;
  HttpServerTransaction& operator=(HttpServerTransaction const&) = delete;

  Stream& stream() { return stream_; }
  /// The request's method, from its pseudo-header.
  void method(boost::string_view method) { method_ = method; }
  boost::string_view method() const { return method_; }

  /// Appends a response head to `pieces`; valid until the next head of this transaction.
  void AppendHead(Http::HeaderRange& headers, Http::Pieces& pieces, std::uint64_t contentLength,
                  bool chunked) {
    Http::AppendHead(headers, method_, contentLength, chunked, scratch_, pieces);
  }

 private:
  Stream stream_;
  std::shared_ptr<ServerDetail::Request> request_;
  boost::string_view method_;
  char scratch_[Http::kLengthScratch];
};

}  // namespace Lumo::Transport::PicoHttp
