// Reading a whole body into memory.
#pragma once

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <boost/system/error_code.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "runtime/errors/transport_categories.h"

namespace Lumo::Transport::Http {

/// The bytes of a body. Grows with what arrives, and trusts a declared length beyond 4 KiB only once
/// something has arrived, so that a header alone costs next to nothing.
class BodyBuffer {
 public:
  /// Takes at most `maxBytes`. `declaredBytes` is the content length, 0 when there is none.
  BodyBuffer(std::uint64_t maxBytes, std::uint64_t declaredBytes)
      : max_(maxBytes), declared_(declaredBytes) {}

  std::size_t size() const noexcept { return size_; }
  bool Full() const noexcept { return size_ == max_; }
  std::string_view Bytes() const noexcept { return {bytes_.get(), size_}; }

  /// Room for the next bytes; empty when full, or when there is no memory.
  boost::asio::mutable_buffer Room();
  /// `count` bytes were written to the room.
  void Commit(std::size_t count) noexcept { size_ += count; }

 private:
  struct Free {
    void operator()(char* bytes) const noexcept { std::free(bytes); }
  };

  std::unique_ptr<char, Free> bytes_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  std::uint64_t max_;
  std::uint64_t declared_;
};

/// Reads until "end of body" or end of file, which count as success, or an error. More than `limit` bytes,
/// the maximum of `body` less one, are "message too long". `handler` gets the error and must keep stream and
/// body alive; it may be called before the reading call returns, when all of the body is there.
template <typename Stream, typename Handler>
class ReadBodyOperation {
 public:
  ReadBodyOperation(Stream& stream, BodyBuffer& body, Handler handler)
      : stream_(&stream), body_(&body), handler_(std::move(handler)) {}

  void Start() {
    boost::asio::mutable_buffer const room = body_->Room();
    if (room.size() == 0) {
      boost::system::error_code const error = make_error_code(boost::system::errc::not_enough_memory);
      boost::asio::post(stream_->get_executor(),
                        [handler = std::move(handler_), error]() mutable { handler(error); });
      return;
    }
    Stream& stream = *stream_;
    if constexpr (requires { stream.TakeUnread(room); }) {
      if (std::size_t const count = stream.TakeUnread(room)) {
        (*this)(boost::system::error_code(), count);
        return;
      }
    }
    stream.async_read_some(room, std::move(*this));
  }

  void operator()(boost::system::error_code error, std::size_t count) {
    body_->Commit(count);
    if (error == Error::Errc::EndOfBody || error == boost::asio::error::eof) {
      handler_(boost::system::error_code());
      return;
    }
    if (!error && body_->Full()) {
      error = Error::Errc::MessageTooLong;
    }
    if (error) {
      handler_(error);
      return;
    }
    if constexpr (requires { stream_->AtEnd(); }) {
      if (stream_->AtEnd()) {
        handler_(error);
        return;
      }
    }
    Start();
  }

 private:
  Stream* stream_;
  BodyBuffer* body_;
  Handler handler_;
};

template <typename Stream, typename Handler>
void AsyncReadBody(Stream& stream, BodyBuffer& body, Handler handler) {
  ReadBodyOperation<Stream, Handler>(stream, body, std::move(handler)).Start();
}

}  // namespace Lumo::Transport::Http
