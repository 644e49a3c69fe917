// A listening socket that makes timed streams of its connections.
#pragma once

#include <boost/asio/basic_socket_acceptor.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/system/error_code.hpp>
#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "transport/endpoint_text.h"

namespace Lumo::Asio {

/// The outcome of one accept.
struct AcceptError {
  /// Bits of `bits`.
  static constexpr unsigned kTerminalAcceptError = 1;
  static constexpr unsigned kDelayAcceptError = 2;

  /// Only a lack of file descriptors of this process is worth another try.
  static AcceptError From(boost::system::error_code const& error);

  bool Terminal() const { return (bits & kTerminalAcceptError) != 0; }
  bool Delay() const { return (bits & kDelayAcceptError) != 0; }
  /// "NoError", or error, bits and text, separated by semicolons.
  std::string ToString() const;

  boost::system::error_code error;
  unsigned bits = 0;
  std::string text;
};

/// `Stream` is made by Stream::Create(executor, read time-out, write time-out); `Tuner` is given each new
/// socket. I/O thread.
template <typename SocketAcceptor, typename Stream, typename Tuner>
class Acceptor {
 public:
  using StreamType = Stream;
  using executor_type = typename SocketAcceptor::executor_type;

  Acceptor(executor_type const& executor, Tuner tuner, std::chrono::nanoseconds readTimeout,
           std::chrono::nanoseconds writeTimeout)
      : acceptor_(executor),
        tuner_(std::move(tuner)),
        readTimeout_(readTimeout),
        writeTimeout_(writeTimeout) {}

  SocketAcceptor& socket() { return acceptor_; }
  executor_type get_executor() { return acceptor_.get_executor(); }

  /// `handler` gets an AcceptError and the new stream, which it may use only without error.
  template <typename Handler>
  void async_accept(Handler handler) {
    if (!acceptor_.is_open()) {
      boost::asio::post(get_executor(), [handler = std::move(handler)]() mutable {
        handler(AcceptError::From(boost::asio::error::bad_descriptor), nullptr);
      });
      return;
    }
    std::shared_ptr<Stream> stream = Stream::Create(get_executor(), readTimeout_, writeTimeout_);
    auto& socket = stream->lowest().socket();
    acceptor_.async_accept(socket, [this, stream = std::move(stream), handler = std::move(handler)](
                                       boost::system::error_code const& error) mutable {
      if (!error) {
        tuner_(stream->lowest().socket());
      }
      handler(AcceptError::From(error), std::move(stream));
    });
  }

  /// The bound address for log lines, or why it can't be read.
  std::string Info() const {
    boost::system::error_code error;
    auto const endpoint = acceptor_.local_endpoint(error);
    return "LocalEndpoint:" + (error ? error.message() : Transport::EndpointToString(endpoint));
  }

 private:
  SocketAcceptor acceptor_;
  Tuner tuner_;
  std::chrono::nanoseconds readTimeout_;
  std::chrono::nanoseconds writeTimeout_;
};

using TcpSocketAcceptor =
    boost::asio::basic_socket_acceptor<boost::asio::ip::tcp, boost::asio::io_context::executor_type>;

}  // namespace Lumo::Asio
