// A clock that stands still until it is told, and timers on it.
#pragma once

#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/system/error_code.hpp>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <utility>

namespace Lumo::Transport::TestSupport {

/// One for all timers of a test process; tests move it forward only. One thread.
class FakeClock {
 public:
  using duration = std::chrono::nanoseconds;
  using rep = duration::rep;
  using period = duration::period;
  using time_point = std::chrono::time_point<FakeClock>;
  static constexpr bool is_steady = true;

  static time_point now() { return Now(); }

  /// Moves the clock and queues the handlers of all waits that are over.
  static void Advance(duration step) {
    Now() += step;
    for (auto wait = Waits().begin(); wait != Waits().end();) {
      if (wait->expiry <= Now()) {
        Complete(wait->executor, std::move(wait->handler), {});
        wait = Waits().erase(wait);
      } else {
        ++wait;
      }
    }
  }

  /// Cancels every wait, as the owners of their timers would.
  static void CancelAll() {
    for (Wait& wait : std::exchange(Waits(), {})) {
      Complete(wait.executor, std::move(wait.handler), boost::asio::error::operation_aborted);
    }
  }

  /// Waits begun since the process started; a measure of what arming a timer costs.
  static int WaitsBegun() { return Begun(); }

 private:
  friend class FakeTimer;
  using Handler = std::function<void(boost::system::error_code const&)>;

  struct Wait {
    void const* timer;
    boost::asio::io_context::executor_type executor;
    time_point expiry;
    Handler handler;
  };

  static time_point& Now() {
    static time_point now{std::chrono::hours(1)};
    return now;
  }
  static std::list<Wait>& Waits() {
    static std::list<Wait> waits;
    return waits;
  }
  static int& Begun() {
    static int begun = 0;
    return begun;
  }
  static void Complete(boost::asio::io_context::executor_type const& executor, Handler handler,
                       boost::system::error_code const& error) {
    boost::asio::post(executor, [handler = std::move(handler), error] { handler(error); });
  }
  static void Cancel(void const* timer) {
    for (auto wait = Waits().begin(); wait != Waits().end();) {
      if (wait->timer == timer) {
        Complete(wait->executor, std::move(wait->handler), boost::asio::error::operation_aborted);
        wait = Waits().erase(wait);
      } else {
        ++wait;
      }
    }
  }
};

/// The part of a waitable timer that the transport uses.
class FakeTimer {
 public:
  using clock_type = FakeClock;
  using duration = FakeClock::duration;
  using time_point = FakeClock::time_point;
  using executor_type = boost::asio::io_context::executor_type;

  explicit FakeTimer(executor_type const& executor) : executor_(executor) {}
  FakeTimer(FakeTimer const&) = delete;
  FakeTimer& operator=(FakeTimer const&) = delete;
  ~FakeTimer() { FakeClock::Cancel(this); }

  time_point expiry() const { return expiry_; }
  void expires_at(time_point expiry) {
    FakeClock::Cancel(this);
    expiry_ = expiry;
  }
  void expires_after(duration delay) { expires_at(FakeClock::now() + delay); }
  void cancel() { FakeClock::Cancel(this); }

  template <typename Handler>
  void async_wait(Handler handler) {
    ++FakeClock::Begun();
    FakeClock::Waits().push_back({this, executor_, expiry_, std::move(handler)});
  }

 private:
  executor_type executor_;
  time_point expiry_;
};

}  // namespace Lumo::Transport::TestSupport
