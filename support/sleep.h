#pragma once

#include <chrono>
#include <functional>

namespace LifeCycle {

/// Returns when the time is over. Code that waits takes one, so that tests need not.
using SleepFunction = std::function<void(std::chrono::seconds)>;

/// Sleeps on the calling thread.
void SleepOnThread(std::chrono::seconds time);

}  // namespace LifeCycle
