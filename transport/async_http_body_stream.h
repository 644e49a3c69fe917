// The body of a request with a content length.
#pragma once

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <boost/system/error_code.hpp>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "runtime/errors/transport_categories.h"

namespace Lumo::Transport::PicoHttp::PicoHttpDetail {

/// Reads exactly the body: never a byte behind it. Behind the last byte a read gives "end of body"; an end of
/// file before it is "incomplete body". One read may be outstanding; its handler must keep the stream alive.
template <typename Stream>
class AsyncHttpBodyStream {
 public:
  using executor_type = typename Stream::executor_type;

  AsyncHttpBodyStream(Stream inner, std::uint64_t totalLength)
      : total_(totalLength), remaining_(totalLength), inner_(std::move(inner)) {}

  executor_type get_executor() { return inner_.get_executor(); }
  std::uint64_t totalLength() const { return total_; }

  template <typename Handler>
  void async_read_some(boost::asio::mutable_buffer buffer, Handler handler) {
    if (remaining_ == 0) {
      boost::asio::post(get_executor(), [handler = std::move(handler)]() mutable {
        handler(boost::system::error_code(Http::Error::Errc::EndOfBody), std::size_t{0});
      });
      return;
    }
    inner_.async_read_some(Bounded(buffer), [this, handler = std::move(handler)](
                                                boost::system::error_code error, std::size_t count) mutable {
      remaining_ -= count;
      if (error == boost::asio::error::eof && remaining_ != 0) {
        error = Error::Errc::IncompleteBody;
      }
      handler(error, count);
    });
  }

  /// Moves bytes of the body that are un-read into `buffer` at once; their number.
  std::size_t TakeUnread(boost::asio::mutable_buffer buffer) noexcept requires requires(Stream& stream) {
    stream.TakeUnread(buffer);
  }
  {
    std::size_t const count = inner_.TakeUnread(Bounded(buffer));
    remaining_ -= count;
    return count;
  }
  /// Whether the whole body was read.
  bool AtEnd() const noexcept { return remaining_ == 0; }

  template <typename ConstBuffers, typename Handler>
  void async_write_some(ConstBuffers const& buffers, Handler handler) {
    inner_.async_write_some(buffers, std::move(handler));
  }
  boost::system::error_code putback(boost::asio::const_buffer bytes) { return inner_.putback(bytes); }
  boost::system::error_code ReturnUnread() { return inner_.ReturnUnread(); }

 private:
  boost::asio::mutable_buffer Bounded(boost::asio::mutable_buffer buffer) const noexcept {
    return {buffer.data(), static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), remaining_))};
  }

  std::uint64_t total_;
  std::uint64_t remaining_;
  Stream inner_;
};

}  // namespace Lumo::Transport::PicoHttp::PicoHttpDetail
