// A stream whose bytes can be un-read, and the handle by which upper layers hold it.
#pragma once

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/system/error_code.hpp>
#include <cstddef>
#include <memory>
#include <utility>

#include "transport/read_ahead.h"

namespace Lumo::Asio {

/// A read serves either un-read bytes, without touching the socket or a timer, or the stream below; never
/// both at once. All requests of a connection share one. One read and one write may be outstanding; a handler
/// must keep the stream alive.
template <typename Stream>
class AsyncPutbackStream {
 public:
  using executor_type = typename Stream::executor_type;
  using LowestStream = Stream;

  /// Arguments are those of the stream below.
  template <typename... Args>
  static std::shared_ptr<AsyncPutbackStream> Create(Args&&... args) {
    auto stream = std::make_shared<AsyncPutbackStream>(std::forward<Args>(args)...);
    stream->stream_.BindOwner(std::shared_ptr<Stream>(stream, &stream->stream_));
    return stream;
  }

  /// For Create.
  template <typename... Args>
  explicit AsyncPutbackStream(Args&&... args) : stream_(std::forward<Args>(args)...) {}

  executor_type get_executor() { return stream_.get_executor(); }
  Stream& lowest() { return stream_; }

  template <typename Handler>
  void async_read_some(boost::asio::mutable_buffer buffer, Handler handler) {
    if (unread_.empty()) {
      stream_.async_read_some(buffer, std::move(handler));
      return;
    }
    std::size_t const count = unread_.Take(buffer);
    boost::asio::post(get_executor(), [handler = std::move(handler), count]() mutable {
      handler(boost::system::error_code(), count);
    });
  }

  /// Moves un-read bytes into `buffer` at once; their number, 0 when there are none.
  std::size_t TakeUnread(boost::asio::mutable_buffer buffer) noexcept { return unread_.Take(buffer); }

  template <typename ConstBuffers, typename Handler>
  void async_write_some(ConstBuffers const& buffers, Handler handler) {
    stream_.async_write_some(buffers, std::move(handler));
  }

  /// Un-reads bytes: they are read next, before any that were un-read earlier. No read may be outstanding.
  boost::system::error_code putback(boost::asio::const_buffer bytes) { return unread_.PutFront(bytes); }
  boost::system::error_code close() { return stream_.close(); }

 private:
  Stream stream_;
  ReadAhead unread_;
};

/// A shared stream as the lowest member of a stack of layers that are held by value.
template <typename Stream>
class StreamHandle {
 public:
  using executor_type = typename Stream::executor_type;

  explicit StreamHandle(std::shared_ptr<Stream> stream) : stream_(std::move(stream)) {}

  executor_type get_executor() { return stream_->get_executor(); }

  template <typename Handler>
  void async_read_some(boost::asio::mutable_buffer buffer, Handler handler) {
    stream_->async_read_some(buffer, std::move(handler));
  }
  template <typename ConstBuffers, typename Handler>
  void async_write_some(ConstBuffers const& buffers, Handler handler) {
    stream_->async_write_some(buffers, std::move(handler));
  }
  std::size_t TakeUnread(boost::asio::mutable_buffer buffer) noexcept { return stream_->TakeUnread(buffer); }
  boost::system::error_code putback(boost::asio::const_buffer bytes) { return stream_->putback(bytes); }
  /// Gives bytes that a layer still holds back to the connection, for the next request.
  boost::system::error_code ReturnUnread() { return {}; }

 private:
  std::shared_ptr<Stream> stream_;
};

}  // namespace Lumo::Asio
