#include "support/sleep.h"

#include <thread>

namespace LifeCycle {

void SleepOnThread(std::chrono::seconds time) {
  std::this_thread::sleep_for(time);
}

}  // namespace LifeCycle
