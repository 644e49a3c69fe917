// The body of a chunked request.
#pragma once

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <boost/system/error_code.hpp>
#include <cstddef>
#include <utility>

#include "runtime/errors/transport_categories.h"
#include "transport/phr_chunked_decoder.h"

namespace Lumo::Transport::PicoHttp::PicoHttpDetail {

/// Reads into the caller's buffer and decodes there, so that a read may deliver no byte without being at the
/// end. Bytes behind the body are un-read for the next request. Behind the end a read gives "end of body"; an
/// end of file before it is "incomplete body", a malformed body "chunk parse error". One read may be
/// outstanding; its handler must keep the stream alive.
template <typename Stream>
class AsyncHttpChunkedBodyStream {
 public:
  using executor_type = typename Stream::executor_type;

  explicit AsyncHttpChunkedBodyStream(Stream inner) : inner_(std::move(inner)) {}

  executor_type get_executor() { return inner_.get_executor(); }

  template <typename Handler>
  void async_read_some(boost::asio::mutable_buffer buffer, Handler handler) {
    if (done_) {
      boost::asio::post(get_executor(), [handler = std::move(handler)]() mutable {
        handler(boost::system::error_code(Http::Error::Errc::EndOfBody), std::size_t{0});
      });
      return;
    }
    inner_.async_read_some(buffer, [this, buffer, handler = std::move(handler)](
                                       boost::system::error_code error, std::size_t count) mutable {
      std::size_t decoded = 0;
      if (error == boost::asio::error::eof) {
        error = Error::Errc::IncompleteBody;
      } else if (!error) {
        error = Decode(boost::asio::mutable_buffer(buffer.data(), count), decoded);
      }
      handler(error, decoded);
    });
  }

  template <typename ConstBuffers, typename Handler>
  void async_write_some(ConstBuffers const& buffers, Handler handler) {
    inner_.async_write_some(buffers, std::move(handler));
  }
  boost::system::error_code putback(boost::asio::const_buffer bytes) { return inner_.putback(bytes); }
  boost::system::error_code ReturnUnread() { return inner_.ReturnUnread(); }

 private:
  boost::system::error_code Decode(boost::asio::mutable_buffer bytes, std::size_t& decoded) {
    auto const [result, count] = decoder_.Decode(bytes);
    decoded = count;
    if (result == kMalformed) {
      return Error::Errc::ChunkParse;
    }
    if (result == kMore) {
      return {};
    }
    done_ = true;
    boost::asio::const_buffer const left(static_cast<char const*>(bytes.data()) + count,
                                         static_cast<std::size_t>(result));
    if (inner_.putback(left)) {
      return Http::Error::Errc::MessageTooLong;
    }
    return {};
  }

  static constexpr long kMalformed = -1;
  static constexpr long kMore = -2;

  Stream inner_;
  PhrChunkedDecoder decoder_;
  bool done_ = false;
};

}  // namespace Lumo::Transport::PicoHttp::PicoHttpDetail
