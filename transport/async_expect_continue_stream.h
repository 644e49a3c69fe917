// A stream that tells a waiting client to go on before it reads.
#pragma once

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/system/error_code.hpp>
#include <boost/utility/string_view.hpp>
#include <cstddef>
#include <utility>
#include <vector>

#include "transport/buffer_span.h"
#include "transport/read_ahead.h"

namespace Lumo::Transport::PicoHttp::PicoHttpDetail {

/// The first read sends "HTTP/1.1 100 Continue" and starts when that is written; a write failure is the
/// reader's. Bytes that were put back are this stream's own until ReturnUnread. One read may be outstanding;
/// its handler must keep the stream alive.
template <typename Stream>
class AsyncExpectContinueStream {
 public:
  using executor_type = typename Stream::executor_type;

  explicit AsyncExpectContinueStream(Stream inner) : inner_(std::move(inner)) {}

  executor_type get_executor() { return inner_.get_executor(); }

  template <typename Handler>
  void async_read_some(boost::asio::mutable_buffer buffer, Handler handler) {
    if (!toSend_) {
      Read(buffer, std::move(handler));
      return;
    }
    toSend_ = false;
    pieces_.emplace_back(kContinue.data(), kContinue.size());
    Asio::AsyncWriteAll(inner_, pieces_, 0, pieces_.size(),
                        [this, buffer, handler = std::move(handler)](boost::system::error_code const& error,
                                                                     std::size_t /*count*/) mutable {
                          if (error) {
                            handler(error, std::size_t{0});
                            return;
                          }
                          Read(buffer, std::move(handler));
                        });
  }

  template <typename ConstBuffers, typename Handler>
  void async_write_some(ConstBuffers const& buffers, Handler handler) {
    inner_.async_write_some(buffers, std::move(handler));
  }

  boost::system::error_code putback(boost::asio::const_buffer bytes) { return unread_.PutFront(bytes); }

  boost::system::error_code ReturnUnread() {
    boost::system::error_code const error = inner_.putback(unread_.Bytes());
    unread_.Clear();
    return error ? error : inner_.ReturnUnread();
  }

 private:
  static constexpr boost::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";

  template <typename Handler>
  void Read(boost::asio::mutable_buffer buffer, Handler handler) {
    if (unread_.empty()) {
      inner_.async_read_some(buffer, std::move(handler));
      return;
    }
    std::size_t const count = unread_.Take(buffer);
    boost::asio::post(get_executor(), [handler = std::move(handler), count]() mutable {
      handler(boost::system::error_code(), count);
    });
  }

  Stream inner_;
  Asio::ReadAhead unread_;
  bool toSend_ = true;
  Asio::PieceList pieces_;
};

}  // namespace Lumo::Transport::PicoHttp::PicoHttpDetail
