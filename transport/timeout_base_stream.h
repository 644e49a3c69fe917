// The lowest stream layer: a socket with a time limit on each read and on each write.
#pragma once

#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/system/error_code.hpp>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <memory>
#include <mutex>
#include <utility>

namespace Lumo::Asio {

/// A socket whose reads and writes each have a limit on their silence: when it is over, the socket is shut
/// down and the pending operation fails or reads end of file. One read and one write may be outstanding.
/// Operations may be started from any thread, completions run on the socket's executor. A handler must keep
/// the stream alive; the stream must be held by a shared pointer that BindOwner knows.
///
/// Moving a deadline costs no timer operation: one wait stays pending and looks, when it ends, whether its
/// deadline is really past.
template <typename Socket, typename Mutex, typename Timer>
class TimeoutBaseStream {
 public:
  using executor_type = typename Socket::executor_type;
  using SocketType = Socket;

  TimeoutBaseStream(executor_type const& executor, std::chrono::nanoseconds readTimeout,
                    std::chrono::nanoseconds writeTimeout)
      : socket_(executor), read_(executor, readTimeout), write_(executor, writeTimeout) {}
  TimeoutBaseStream(TimeoutBaseStream const&) = delete;
  TimeoutBaseStream& operator=(TimeoutBaseStream const&) = delete;

  /// `owner` leads to this object and shares ownership of whatever holds it. Before the first operation.
  void BindOwner(std::weak_ptr<TimeoutBaseStream> owner) { owner_ = std::move(owner); }

  executor_type get_executor() { return socket_.get_executor(); }
  Socket& socket() { return socket_; }

  /// `handler` gets error code and byte count; a socket that was closed meanwhile reads end of file. Behind
  /// the end of file every read gives it again: the socket itself would tell of it once only.
  template <typename MutableBuffers, typename Handler>
  void async_read_some(MutableBuffers const& buffers, Handler handler) {
    std::lock_guard<Mutex> const guard(mutex_);
    if (ended_) {
      boost::asio::post(get_executor(), [handler = std::move(handler)]() mutable {
        handler(boost::system::error_code(boost::asio::error::eof), std::size_t{0});
      });
      return;
    }
    Arm(read_);
    socket_.async_read_some(buffers, [this, handler = std::move(handler)](boost::system::error_code error,
                                                                          std::size_t count) mutable {
      ended_ = error == boost::asio::error::eof;
      if (!Disarm(read_)) {
        error = boost::asio::error::eof;
        count = 0;
      }
      handler(error, count);
    });
  }

  /// `handler` as above; a socket that was closed meanwhile is EPIPE. The caller gives at most 65536 bytes.
  template <typename ConstBuffers, typename Handler>
  void async_write_some(ConstBuffers const& buffers, Handler handler) {
    auto finish = [this, handler = std::move(handler)](boost::system::error_code error,
                                                       std::size_t count) mutable {
      if (!Disarm(write_)) {
        error = boost::asio::error::broken_pipe;
        count = 0;
      }
      handler(error, count);
    };
    std::lock_guard<Mutex> const guard(mutex_);
    Arm(write_);
    auto const first = boost::asio::buffer_sequence_begin(buffers);
    if (std::next(first) == boost::asio::buffer_sequence_end(buffers)) {
      // One buffer takes the cheaper system call.
      socket_.async_write_some(boost::asio::const_buffer(*first), std::move(finish));
    } else {
      socket_.async_write_some(buffers, std::move(finish));
    }
  }

  /// Closes the socket. What has arrived unread is dropped first, so that the peer is not reset and still
  /// reads the last answer.
  boost::system::error_code close() {
    std::lock_guard<Mutex> const guard(mutex_);
    boost::system::error_code error;
    if (socket_.is_open()) {
      DropReceived();
    }
    socket_.close(error);
    return error;
  }

 private:
  using Clock = typename Timer::clock_type;
  using TimePoint = typename Timer::time_point;

  struct Limit {
    Limit(executor_type const& executor, std::chrono::nanoseconds limit) : timer(executor), timeout(limit) {}

    Timer timer;
    std::chrono::nanoseconds timeout;
    /// When the operation in flight is late; the largest time point while there is none.
    TimePoint deadline = TimePoint::max();
    /// Whether a wait of `timer` is pending.
    bool waiting = false;
  };

  static TimePoint SaturatedDeadline(std::chrono::nanoseconds timeout) {
    TimePoint const now = Clock::now();
    auto const ticks = std::chrono::duration_cast<typename Timer::duration>(timeout);
    return ticks > TimePoint::max() - now ? TimePoint::max() : now + ticks;
  }

  /// Under the lock.
  void Arm(Limit& limit) {
    limit.deadline = SaturatedDeadline(limit.timeout);
    if (!limit.waiting || limit.timer.expiry() > limit.deadline) {
      Wait(limit);
    }
  }

  /// Moves the limit out of the way; false when the socket is closed.
  bool Disarm(Limit& limit) {
    std::lock_guard<Mutex> const guard(mutex_);
    limit.deadline = TimePoint::max();
    return socket_.is_open();
  }

  /// Under the lock. The wait holds no ownership: it does not keep a connection.
  void Wait(Limit& limit) {
    limit.timer.expires_at(limit.deadline);
    limit.waiting = true;
    limit.timer.async_wait([owner = owner_, which = &limit](boost::system::error_code const& error) {
      if (error) {
        return;
      }
      if (std::shared_ptr<TimeoutBaseStream> const self = owner.lock()) {
        self->OnTimer(*which);
      }
    });
  }

  void OnTimer(Limit& limit) {
    std::lock_guard<Mutex> const guard(mutex_);
    limit.waiting = false;
    if (limit.deadline == TimePoint::max()) {
      return;
    }
    if (Clock::now() < limit.deadline) {
      Wait(limit);
      return;
    }
    boost::system::error_code ignored;
    socket_.shutdown(Socket::shutdown_both, ignored);
    limit.deadline = TimePoint::max();
  }

  /// Under the lock. Reads at most kDropRounds times, never blocks.
  void DropReceived() {
    constexpr int kDropRounds = 64;
    constexpr std::size_t kDropBuffer = 4096;
    boost::system::error_code error;
    if (!socket_.non_blocking()) {
      socket_.non_blocking(true, error);
    }
    char dropped[kDropBuffer];
    for (int round = 0; round < kDropRounds && !error; ++round) {
      socket_.read_some(boost::asio::mutable_buffer(dropped, sizeof dropped), error);
    }
  }

  Socket socket_;
  Limit read_;
  Limit write_;
  /// Whether a read met the end of file. Only reads use it, and there is one at a time.
  bool ended_ = false;
  /// Guards socket and limits; never held across a handler.
  Mutex mutex_;
  std::weak_ptr<TimeoutBaseStream> owner_;
};

/// The daemon's connections. The executor is the context's own instead of a polymorphic one.
using TcpSocket =
    boost::asio::basic_stream_socket<boost::asio::ip::tcp, boost::asio::io_context::executor_type>;
using SteadyTimer = boost::asio::basic_waitable_timer<std::chrono::steady_clock,
                                                      boost::asio::wait_traits<std::chrono::steady_clock>,
                                                      boost::asio::io_context::executor_type>;
using TcpTimeoutStream = TimeoutBaseStream<TcpSocket, std::mutex, SteadyTimer>;

}  // namespace Lumo::Asio
