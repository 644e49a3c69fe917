#pragma once

#include <chrono>
#include <functional>

namespace Ryn::Authn {

/// The time that tokens are held against. A right must not last longer because the wall clock was set back,
/// so what ends is held against the latest time that the wall clock has shown since this object was made,
/// carried on by the steady clock; what begins, against the wall clock as it is.
class TokenClock {
 public:
  using Wall = std::function<std::chrono::system_clock::time_point()>;
  using Steady = std::function<std::chrono::steady_clock::time_point()>;

  explicit TokenClock(Wall wall = &std::chrono::system_clock::now,
                      Steady steady = &std::chrono::steady_clock::now);

  /// Seconds since 1970, rounded down.
  struct Times {
    long long wall;
    long long latest;  // never earlier than `wall`
  };
  Times Now();

 private:
  Wall wall_;
  Steady steady_;
  std::chrono::system_clock::time_point latest_;
  std::chrono::steady_clock::time_point seen_;  // when `latest_` was brought up to date
};

}  // namespace Ryn::Authn
