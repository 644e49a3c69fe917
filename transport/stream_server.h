// The acceptance loop.
#pragma once

#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/strand.hpp>
#include <boost/system/error_code.hpp>
#include <chrono>
#include <memory>
#include <utility>

#include "runtime/errors/string_of_error.h"
#include "runtime/log/logger.h"
#include "transport/acceptor.h"
#include "transport/timeout_base_stream.h"

namespace Lumo::Asio {

class PolymorphicStreamServer {
 public:
  virtual ~PolymorphicStreamServer() = default;
  /// Arms one accept. EBADF when the acceptor is not open: then nothing is armed.
  virtual boost::system::error_code Start() = 0;
  /// Queues the closing of the acceptor and returns. EBADF when it is not open. Any thread. Connections go
  /// on.
  virtual boost::system::error_code Stop() = 0;
};

/// Hands each connection to `Handler`. A lack of descriptors is survived, every other error ends the loop for
/// good. Held by a shared pointer. I/O thread, but for Stop.
template <typename AcceptorType, typename Handler, typename Timer = SteadyTimer>
class StreamServer final : public PolymorphicStreamServer,
                           public std::enable_shared_from_this<StreamServer<AcceptorType, Handler, Timer>> {
 public:
  static constexpr std::chrono::nanoseconds kAcceptDelay{500000000};

  StreamServer(AcceptorType acceptor, Handler handler, std::shared_ptr<Log::Logger> logger)
      : acceptor_(std::move(acceptor)),
        handler_(std::move(handler)),
        logger_(std::move(logger)),
        strand_(acceptor_.get_executor()) {}

  AcceptorType& acceptor() { return acceptor_; }

  boost::system::error_code Start() override {
    if (!acceptor_.socket().is_open()) {
      return boost::asio::error::bad_descriptor;
    }
    Arm();
    return {};
  }

  boost::system::error_code Stop() override {
    if (!acceptor_.socket().is_open()) {
      return boost::asio::error::bad_descriptor;
    }
    boost::asio::post(strand_, [self = this->shared_from_this()] {
      boost::system::error_code ignored;
      self->acceptor_.socket().close(ignored);
    });
    return {};
  }

 private:
  using StreamPtr = std::shared_ptr<typename AcceptorType::StreamType>;

  /// One from the loop itself, one from the delay after a lack of descriptors.
  static constexpr int kMostArmed = 2;

  void Arm() {
    if (armed_ == kMostArmed) {
      return;
    }
    ++armed_;
    acceptor_.async_accept([self = this->shared_from_this()](AcceptError const& outcome, StreamPtr stream) {
      --self->armed_;
      self->OnAccept(outcome, std::move(stream));
    });
  }

  /// A loop that has ended is not taken up again: neither by a second accept that was armed nor by a delay.
  void Rearm() {
    if (!ended_) {
      static_cast<void>(Start());
    }
  }

  void OnAccept(AcceptError const& outcome, StreamPtr stream) {
    if (outcome.error) {
      Log::Write(logger_, 4, "Accept Error: ", outcome.ToString(), ".Acceptor info:", acceptor_.Info());
    }
    if (outcome.Terminal()) {
      ended_ = true;
      return;
    }
    if (outcome.Delay()) {
      // The next try follows at once, and one more after the delay. While the delay lasts, further failures
      // only wait for it: without descriptors the tries would follow each other as fast as the processor can
      // make them.
      if (delayed_) {
        return;
      }
      Delay();
    }
    Rearm();
    if (!outcome.error) {
      handler_(std::move(stream));
    }
  }

  void Delay() {
    auto timer = std::make_shared<Timer>(acceptor_.get_executor());
    timer->expires_after(std::chrono::duration_cast<typename Timer::duration>(kAcceptDelay));
    delayed_ = true;
    timer->async_wait([self = this->shared_from_this(), timer](boost::system::error_code const& error) {
      self->delayed_ = false;
      if (error) {
        Log::Write(self->logger_, 4, "Delay timer Accept Error: ", StringOfError(error),
                   self->acceptor_.Info());
        return;
      }
      self->Rearm();
    });
  }

  AcceptorType acceptor_;
  Handler handler_;
  std::shared_ptr<Log::Logger> logger_;
  boost::asio::strand<typename AcceptorType::executor_type> strand_;
  int armed_ = 0;
  bool delayed_ = false;
  /// An accept ended with a terminal error.
  bool ended_ = false;
};

}  // namespace Lumo::Asio
